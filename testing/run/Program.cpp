#include "testing/run/Program.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"

namespace {

int must(int result, const char* what) {
  if (result < 0) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
  return result;
}

struct Pipe {
  Pipe() {
    int ends[2];
    must(::pipe2(ends, O_CLOEXEC), "pipe");
    readEnd = ends[0];
    writeEnd = ends[1];
  }
  ~Pipe() {
    closeRead();
    closeWrite();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  void closeRead() { closeOnce(&readEnd); }
  void closeWrite() { closeOnce(&writeEnd); }
  static void closeOnce(int* fd) {
    if (*fd >= 0) ::close(*fd);
    *fd = -1;
  }
  int readEnd = -1;
  int writeEnd = -1;
};

int openInput(const std::string& text) {
  const int fd = must(::memfd_create("input", MFD_CLOEXEC), "make the input");
  if (::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) must(-1, "fill the input");
  ::lseek(fd, 0, SEEK_SET);
  return fd;
}

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// Instrumented programs always get the variables that they read, whatever environment the test asks for. Under a file
// size limit a program could not write its coverage profile and would complain on standard error, so it goes to
// /dev/null.
std::vector<std::string> environmentOf(const Start& start) {
  std::vector<std::string> environment = start.environment;
  for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
    if (const char* value = std::getenv(name)) environment.push_back(std::string(name) + "=" + value);
  }
  if (const char* profile = std::getenv("LLVM_PROFILE_FILE")) {
    const bool canWrite = !start.fileLimit;
    environment.push_back(std::string("LLVM_PROFILE_FILE=") + (canWrite ? profile : "/dev/null"));
  }
  return environment;
}

void limit(decltype(RLIMIT_FSIZE) what, const std::optional<unsigned long>& most) {
  const rlimit limits{most.value_or(0), most.value_or(0)};
  if (most) must(::setrlimit(what, &limits), "limit");
}

// Runs in the child. A failure is printed on standard error, and the exit status is then 126.
void becomeAsAsked(const Start& start) {
  ::umask(start.mask.value_or(022));
  must(::chdir(start.folder.c_str()), "enter the working directory");
  if (start.boundByModes) host::bindByModesForGood();
  if (start.uid) {
    must(::setgroups(0, nullptr), "drop groups");
    must(::setresgid(*start.uid, *start.uid, *start.uid), "change the group");
    must(::setresuid(*start.uid, *start.uid, *start.uid), "change the user");
  }
  limit(RLIMIT_FSIZE, start.fileLimit);
  limit(RLIMIT_AS, start.memoryLimit);
}

void connect(const Start& start, int input, int output, int error) {
  if (!start.outputTo.empty()) {
    output = must(::open(start.outputTo.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644), "open the output");
  }
  must(::dup2(input, 0), "connect the input");
  must(::dup2(output, 1), "connect the output");
  must(::dup2(error, 2), "connect the errors");
  for (const int fd : start.closed) ::close(fd);
  limit(RLIMIT_NOFILE, start.descriptorLimit);
  ::alarm(start.seconds);
}

// Reads the output until the child has ended and no more output is ready.
void collect(pid_t child, int outFd, int errFd, Outcome* outcome) {
  const int childFd = must(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)), "watch the child");
  pollfd sources[] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}, {childFd, POLLIN, 0}};
  std::string* const texts[] = {&outcome->out, &outcome->err};
  bool ended = false;
  for (;;) {
    // After the child has ended, its descriptor is always ready, so poll only the pipes and do not wait.
    const int ready = ::poll(sources, ended ? 2 : 3, ended ? 0 : -1);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) break;
    bool said = false;
    for (int i = 0; i < 2; ++i) {
      char bytes[4096];
      if (sources[i].revents == 0) continue;
      const ssize_t got = ::read(sources[i].fd, bytes, sizeof bytes);
      if (got > 0) texts[i]->append(bytes, static_cast<size_t>(got));
      if (got <= 0) sources[i].fd = -1;
      said = true;
    }
    if (!said && sources[2].revents != 0) ended = true;
  }
  ::close(childFd);
}

Outcome run(const std::string& program, const std::vector<std::string>& words, const Start& start) {
  Pipe out;
  Pipe err;
  const int input = openInput(start.input);
  const std::vector<char*> argv = pointersTo(words);
  const std::vector<std::string> environment = environmentOf(start);
  const std::vector<char*> envp = pointersTo(environment);
  const pid_t child = must(::fork(), "fork");
  if (child == 0) {
    try {
      if (start.readerGone) out.closeRead();
      becomeAsAsked(start);
      connect(start, input, out.writeEnd, err.writeEnd);
      ::execve(program.c_str(), argv.data(), envp.data());
      must(-1, program.c_str());
    } catch (const std::exception& problem) {
      (void)!::write(err.writeEnd, problem.what(), std::strlen(problem.what()));
    }
    ::_exit(126);
  }
  ::close(input);
  out.closeWrite();
  err.closeWrite();
  if (start.readerGone) out.closeRead();

  Outcome outcome;
  collect(child, out.readEnd, err.readEnd, &outcome);
  int status = 0;
  must(::waitpid(child, &status, 0), "wait");
  if (WIFEXITED(status)) outcome.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) outcome.signal = WTERMSIG(status);
  if (outcome.exitStatus == 126) throw std::runtime_error("could not start: " + outcome.err);
  return outcome;
}

}  // namespace

std::string ravctlPath() {
  const char* other = std::getenv("RAVCTL_PROGRAM");
  return other != nullptr ? other : places::ravctl();
}

Outcome runRavctl(const std::vector<std::string>& words, const Start& start) {
  std::vector<std::string> all = {start.argv0};
  const char* emulator = std::getenv("RAVCTL_EMULATOR");
  if (emulator != nullptr) all = {emulator, "-0", start.argv0, ravctlPath()};
  all.insert(all.end(), words.begin(), words.end());
  return run(emulator != nullptr ? emulator : ravctlPath(), all, start);
}

Outcome runProgram(const std::vector<std::string>& words, const Start& start) { return run(words.at(0), words, start); }
