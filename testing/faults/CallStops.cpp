#include "testing/faults/CallStops.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace {

std::int64_t must(std::int64_t result, const char* what) {
  if (result < 0) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
  return result;
}

class MemoryFile {
 public:
  MemoryFile() : fd_(static_cast<int>(must(::memfd_create("output", MFD_CLOEXEC), "make a file in memory"))) {}
  ~MemoryFile() { ::close(fd_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  int fd() const { return fd_; }
  std::string text() const {
    std::string bytes(static_cast<std::size_t>(must(::lseek(fd_, 0, SEEK_END), "measure the output")), '\0');
    must(::pread(fd_, bytes.data(), bytes.size(), 0), "read the output");
    return bytes;
  }

 private:
  const int fd_;
};

[[noreturn]] void becomeTraced(const std::vector<std::string>& words, int out, int err) {
  std::vector<char*> argv;
  for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  char path[] = "PATH=/usr/bin:/usr/sbin";
  char sanitizer[] = "ASAN_OPTIONS=detect_leaks=0";  // leaks cannot be looked for while somebody traces
  char* environment[] = {path, sanitizer, nullptr};
  if (::chdir("/") == 0 && ::dup2(out, 1) == 1 && ::dup2(err, 2) == 2 && ::ptrace(PTRACE_TRACEME, 0, 0, 0) == 0 &&
      ::raise(SIGSTOP) == 0) {
    ::execve(argv[0], argv.data(), environment);
  }
  ::_exit(126);
}

// Has the call under way not be made, or, behind it, answer 0.
#ifdef __x86_64__
void replaceNumber(pid_t child) {
  must(::ptrace(PTRACE_POKEUSER, child, offsetof(user, regs) + offsetof(user_regs_struct, orig_rax), -1L),
       "drop a call");
}
void answerZero(pid_t child) {
  must(::ptrace(PTRACE_POKEUSER, child, offsetof(user, regs) + offsetof(user_regs_struct, rax), 0L), "answer a call");
}
#else
void replaceNumber(pid_t) {}
void answerZero(pid_t) {}
#endif

class Tracer {
 public:
  Tracer(pid_t child, const std::function<Then(const SystemCall&)>& before) : child_(child), before_(before) {}

  // Gives the wait status of the end.
  int run() {
    constexpr long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
    must(::ptrace(PTRACE_SETOPTIONS, child_, 0, options), "trace");
    long signal = 0;
    for (;;) {
      must(::ptrace(PTRACE_SYSCALL, child_, 0, signal), "go on");
      int status = 0;
      must(::waitpid(child_, &status, 0), "wait for a stop");
      if (!WIFSTOPPED(status)) return status;
      const bool isCall = WSTOPSIG(status) == (SIGTRAP | 0x80);
      if (isCall) look();
      signal = isCall || WSTOPSIG(status) == SIGTRAP ? 0 : WSTOPSIG(status);
    }
  }

 private:
  void look() {
    __ptrace_syscall_info info{};
    must(::ptrace(PTRACE_GET_SYSCALL_INFO, child_, sizeof info, &info), "look at a call");
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
      SystemCall call;
      call.number = info.entry.nr;
      for (std::size_t i = 0; i < call.arguments.size(); ++i) call.arguments[i] = info.entry.args[i];
      pretends_ = before_(call) == Then::pretend;
      if (pretends_) replaceNumber(child_);
    } else if (info.op == PTRACE_SYSCALL_INFO_EXIT && pretends_) {
      answerZero(child_);
      pretends_ = false;
    }
  }

  const pid_t child_;
  const std::function<Then(const SystemCall&)>& before_;
  bool pretends_ = false;
};

}  // namespace

bool canStopCalls() {
#ifdef __x86_64__
  return true;
#else
  return false;
#endif
}

StoppedEnd runWithStops(const std::vector<std::string>& words, const std::function<Then(const SystemCall&)>& before) {
  const MemoryFile out;
  const MemoryFile err;
  const pid_t child = static_cast<pid_t>(must(::fork(), "fork"));
  if (child == 0) becomeTraced(words, out.fd(), err.fd());
  StoppedEnd end;
  must(::waitpid(child, &end.status, 0), "wait for the first stop");
  if (!WIFSTOPPED(end.status)) throw std::runtime_error("could not start " + words.at(0));
  try {
    end.status = Tracer(child, before).run();
  } catch (...) {
    (void)::kill(child, SIGKILL);
    (void)::waitpid(child, nullptr, 0);
    throw;
  }
  end.out = out.text();
  end.err = err.text();
  return end;
}
