// tracee: a small program that the tests of the tracer trace. It performs the action that its argument names, one
// system call at a time, and prints the result of each call.
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace {

constexpr const char* kPath = "/tmp/tracee";

// Prints one line with one write and no other system call.
void say(const char* what, long result) {
  char line[128];
  const int length = std::snprintf(line, sizeof line, "%s %ld%s%s\n", what, result, result < 0 ? " " : "",
                                   result < 0 ? std::strerror(errno) : "");
  (void)!::write(1, line, static_cast<size_t>(length));
}

// open, write, write, close. The result of each is printed right after it.
void writeTwice() {
  const int fd = ::open(kPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  say("open", fd > 2 ? 0 : -1);
  say("write", ::write(fd, "0123456789", 10));
  say("write", ::write(fd, "abcdefghij", 10));
  say("close", ::close(fd));
}

void readTwice() {
  char bytes[10];
  const int fd = ::open(kPath, O_RDONLY | O_CLOEXEC);
  say("read", ::read(fd, bytes, sizeof bytes));
  say("read", ::read(fd, bytes, sizeof bytes));
  say("again", ::close(fd));
  say("again", ::close(fd));
}

void leaveOpen() { (void)!::open("/etc/hosts", O_RDONLY | O_CLOEXEC); }

void removeFile() { say("unlink", ::unlink(kPath)); }

// The child outlives its parent for a moment.
void startChild() {
  const pid_t child = ::fork();
  if (child == 0) {
    ::usleep(50000);
    const int fd = ::open(kPath, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    ::_exit(fd < 0 ? 1 : 0);
  }
  say("fork", child > 0 ? 0 : -1);
}

// Asks for more than the heap has free, but for less than the size from which malloc always uses mmap.
void growHeap() {
  constexpr size_t size = 100000;
  auto* first = static_cast<char*>(std::malloc(size));
  auto* second = static_cast<char*>(std::malloc(size));
  say("first", first != nullptr ? 1 : 0);
  say("second", second != nullptr ? 1 : 0);
  for (char* memory : {first, second}) {
    if (memory != nullptr) std::memset(memory, 1, size);
    std::free(memory);
  }
}

constexpr struct {
  const char* name;
  void (*run)();
} kActions[] = {{"write", writeTwice},  {"read", readTwice},  {"leave-open", leaveOpen},
                {"unlink", removeFile}, {"fork", startChild}, {"grow", growHeap}};

}  // namespace

int main(int argc, char** argv) {
  pollfd nothing{-1, 0, 0};
  (void)::poll(&nothing, 1, 0);  // marks where the tests begin to count calls
  for (const auto& action : kActions) {
    if (argc == 2 && std::strcmp(argv[1], action.name) == 0) action.run();
  }
  return argc == 2 ? 0 : 7;
}
