#include "testing/faults/Tracer.h"

#include <stdexcept>

#if defined(__x86_64__)

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/system/UniqueFd.h"
#include "testing/faults/TimeLimit.h"

namespace {

using Arguments = decltype(SystemCall::arguments);

// Which argument names the file of a call.
enum class Subject { none, path0, path1, descriptor0, descriptorOrPath };
enum class Change { no, always, whenMaking };

struct CallRow {
  long call;
  const char* name;
  Subject subject = Subject::none;
  Change change = Change::no;
  bool isShortenable = false;
};

#define CALL(name) SYS_##name, #name
constexpr CallRow kCalls[] = {
    {CALL(access), Subject::path0},
    {CALL(bind)},
    {CALL(brk)},
    {CALL(chdir), Subject::path0},
    {CALL(chmod), Subject::path0, Change::always},
    {CALL(clock_nanosleep)},
    {CALL(clone)},
    {CALL(clone3)},
    {CALL(close), Subject::descriptor0},
    {CALL(execve), Subject::path0},
    {CALL(exit_group)},
    {CALL(faccessat), Subject::path1},
    {CALL(fallocate), Subject::descriptor0, Change::always},
    {CALL(fchmod), Subject::descriptor0, Change::always},
    {CALL(fchmodat), Subject::path1, Change::always},
    {CALL(fchown), Subject::descriptor0, Change::always},
    {CALL(fcntl), Subject::descriptor0},
    {CALL(fgetxattr), Subject::descriptor0},
    {CALL(flistxattr), Subject::descriptor0},
    {CALL(flock), Subject::descriptor0},
    {CALL(fremovexattr), Subject::descriptor0, Change::always},
    {CALL(fsetxattr), Subject::descriptor0, Change::always},
    {CALL(fstat), Subject::descriptor0},
    {CALL(fsync), Subject::descriptor0},
    {CALL(ftruncate), Subject::descriptor0, Change::always},
    {CALL(futex)},
    {CALL(getcwd)},
    {CALL(getdents64), Subject::descriptor0, Change::no, true},
    {CALL(getegid)},
    {CALL(geteuid)},
    {CALL(getgid)},
    {CALL(getpid)},
    {CALL(getppid)},
    {CALL(getrandom)},
    {CALL(getsockname)},
    {CALL(gettid)},
    {CALL(getuid)},
    {CALL(ioctl)},
    {CALL(link), Subject::path1, Change::always},
    {CALL(linkat), Subject::none, Change::always},
    {CALL(lseek), Subject::descriptor0},
    {CALL(lstat), Subject::path0},
    {CALL(madvise)},
    {CALL(mkdir), Subject::path0, Change::always},
    {CALL(mkdirat), Subject::path1, Change::always},
    {CALL(mmap)},
    {CALL(mprotect)},
    {CALL(munmap)},
    {CALL(newfstatat), Subject::descriptorOrPath},
    {CALL(open), Subject::path0, Change::whenMaking},
    {CALL(openat), Subject::path1, Change::whenMaking},
    {CALL(openat2), Subject::path1, Change::whenMaking},
    {CALL(pause)},
    {CALL(pipe2)},
    {CALL(poll)},
    {CALL(pread64), Subject::descriptor0, Change::no, true},
    {CALL(prlimit64)},
    {CALL(pwrite64), Subject::descriptor0, Change::always, true},
    {CALL(read), Subject::descriptor0, Change::no, true},
    {CALL(readlink), Subject::path0},
    {CALL(readlinkat), Subject::path1},
    {CALL(recvmsg)},
    {CALL(rename), Subject::path1, Change::always},
    {CALL(renameat), Subject::none, Change::always},
    {CALL(renameat2), Subject::none, Change::always},
    {CALL(rmdir), Subject::path0, Change::always},
    {CALL(rt_sigaction)},
    {CALL(rt_sigprocmask)},
    {CALL(rt_sigreturn)},
    {CALL(sendto)},
    {CALL(set_robust_list)},
    {CALL(socket)},
    {CALL(stat), Subject::path0},
    {CALL(symlink), Subject::path1, Change::always},
    {CALL(umask)},
    {CALL(unlink), Subject::path0, Change::always},
    {CALL(unlinkat), Subject::path1, Change::always},
    {CALL(vfork)},
    {CALL(wait4)},
    {CALL(write), Subject::descriptor0, Change::always, true},
};
#undef CALL

const CallRow* findRow(long call) {
  const auto* const found =
      std::find_if(std::begin(kCalls), std::end(kCalls), [&](const CallRow& row) { return row.call == call; });
  return found != std::end(kCalls) ? found : nullptr;
}

[[noreturn]] void fail(const char* what) { throw std::runtime_error(std::string(what) + ": " + std::strerror(errno)); }

long must(long result, const char* what) {
  if (result < 0) fail(what);
  return result;
}

// The output of a program, in memory, so that nobody has to read it while the program runs.
class Output {
 public:
  Output() : fd_(static_cast<int>(must(::memfd_create("output", MFD_CLOEXEC), "make a file in memory"))) {}
  int fd() const { return fd_.get(); }

  std::string text() const {
    std::string text(static_cast<std::size_t>(must(::lseek(fd_.get(), 0, SEEK_END), "measure the output")), '\0');
    const ssize_t got = ::pread(fd_.get(), text.data(), text.size(), 0);
    must(got, "read the output");
    text.resize(static_cast<std::size_t>(got));
    return text;
  }

 private:
  UniqueFd fd_;
};

// --- The traced process

std::string linkText(const std::string& path) {
  char text[PATH_MAX];
  const ssize_t length = ::readlink(path.c_str(), text, sizeof text);
  return length > 0 ? std::string(text, static_cast<std::size_t>(length)) : std::string();
}

std::string folderOf(pid_t pid) { return "/proc/" + std::to_string(pid); }

UniqueFd memoryOf(pid_t pid) { return UniqueFd(::open((folderOf(pid) + "/mem").c_str(), O_RDONLY | O_CLOEXEC)); }

std::string textAt(pid_t pid, std::uint64_t address) {
  const UniqueFd memory = memoryOf(pid);
  std::string text;
  char bytes[256];
  while (text.size() < PATH_MAX) {
    // At the end of the readable memory pread returns fewer bytes or fails.
    const ssize_t got = ::pread(memory.get(), bytes, sizeof bytes, static_cast<off_t>(address + text.size()));
    if (got <= 0) break;
    const auto count = static_cast<std::size_t>(got);
    const std::size_t length = ::strnlen(bytes, count);
    text.append(bytes, length);
    if (length < count) break;
  }
  return text;
}

std::string joined(const std::string& folder, const std::string& name) {
  if (name.empty()) return folder;
  return name[0] == '/' ? name : folder + "/" + name;
}

std::string descriptorText(pid_t pid, std::uint64_t fd) {
  const auto number = static_cast<int>(fd);
  return linkText(folderOf(pid) + (number == AT_FDCWD ? "/cwd" : "/fd/" + std::to_string(number)));
}

std::string subjectOf(pid_t pid, const CallRow& row, const Arguments& arguments) {
  switch (row.subject) {
    case Subject::none:
      return "";
    case Subject::path0:
      return joined(linkText(folderOf(pid) + "/cwd"), textAt(pid, arguments[0]));
    case Subject::descriptor0:
      return descriptorText(pid, arguments[0]);
    case Subject::path1:
      // rename, link and symlink have two paths and no descriptor; they change the second path.
      if (row.call == SYS_rename || row.call == SYS_link || row.call == SYS_symlink) return textAt(pid, arguments[1]);
      break;
    case Subject::descriptorOrPath:
      break;
  }
  const std::string name = textAt(pid, arguments[1]);
  return !name.empty() && name[0] == '/' ? name : joined(descriptorText(pid, arguments[0]), name);
}

// The flags of an open. openat2 has them as the first number of a structure.
std::uint64_t openFlagsOf(pid_t pid, long call, const Arguments& arguments) {
  if (call == SYS_open) return arguments[1];
  if (call == SYS_openat) return arguments[2];
  std::uint64_t flags = 0;
  if (call == SYS_openat2) (void)::pread(memoryOf(pid).get(), &flags, sizeof flags, static_cast<off_t>(arguments[2]));
  return flags;
}

bool isMakingOpen(pid_t pid, long call, const Arguments& arguments) {
  constexpr std::uint64_t making = O_CREAT | O_TRUNC;
  return (openFlagsOf(pid, call, arguments) & making) != 0;
}

// Returns false for devices such as /dev/null, and for pipes and other descriptors that are not files.
bool lasts(const std::string& path) { return path.empty() || (path[0] == '/' && path.compare(0, 5, "/dev/") != 0); }

bool changesDisk(pid_t pid, const CallRow& row, const Arguments& arguments, const std::string& path) {
  if (row.change == Change::no || path.find("/memfd:") == 0 || !lasts(path)) return false;
  return row.change == Change::always || isMakingOpen(pid, row.call, arguments);
}

TracedCall describe(pid_t pid, std::size_t number, long call, const Arguments& arguments) {
  TracedCall described;
  described.number = number;
  described.call = call;
  described.name = nameOfCall(call);
  const CallRow* row = findRow(call);
  if (row == nullptr) return described;
  described.path = subjectOf(pid, *row, arguments);
  described.changesDisk = changesDisk(pid, *row, arguments, described.path);
  described.makesFile = isMakingOpen(pid, call, arguments);
  described.isShortenable = row->isShortenable;
  return described;
}

std::vector<std::string> openDescriptorsOf(pid_t pid) {
  std::vector<std::string> open;
  const std::string folder = folderOf(pid) + "/fd";
  DIR* directory = ::opendir(folder.c_str());
  if (directory == nullptr) fail("list the open descriptors");
  while (const dirent* entry = ::readdir(directory)) {
    if (entry->d_name[0] == '.' || std::atoi(entry->d_name) <= 2) continue;
    open.push_back(std::string(entry->d_name) + " -> " + linkText(folder + "/" + entry->d_name));
  }
  ::closedir(directory);
  return open;
}

// A program gets memory from brk and from mmap, and when one fails it tries the other. So they fail together.
long familyOf(long call) { return call == SYS_brk ? SYS_mmap : call; }

// Follows the program from its start to its end, stop by stop.
class Trace {
 public:
  Trace(pid_t pid, const TracePlan& plan, TraceResult* result)
      : pid_(pid), plan_(plan), result_(*result), counting_(plan.begin < 0) {}

  void run() {
    waitForStop();
    if (isOver()) return;
    constexpr long options = PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEEXIT | PTRACE_O_TRACEEXEC;
    must(::ptrace(PTRACE_SETOPTIONS, pid_, nullptr, options), "set the options of the trace");
    int signal = 0;
    for (;;) {
      // When nothing is left to change, the program need not stop at its calls any more.
      if (::ptrace(isDone() ? PTRACE_CONT : PTRACE_SYSCALL, pid_, nullptr, static_cast<long>(signal)) != 0 &&
          errno != ESRCH) {
        fail("continue the traced program");
      }
      waitForStop();
      if (isOver()) return;
      signal = handleStop();
    }
  }

  int status() const { return status_; }

 private:
  bool isOver() const { return WIFEXITED(status_) || WIFSIGNALED(status_); }
  bool isDone() const {
    return !plan_.keepCalls && !plan_.atEachCall && pending_ == Pending::nothing &&
           result_.meddled >= plan_.meddling.times;
  }

  void waitForStop() {
    while (::waitpid(pid_, &status_, __WALL) < 0) {
      if (errno != EINTR) fail("wait for the traced program");
    }
  }

  // Returns the signal to deliver to the program; 0: none.
  int handleStop() {
    const int event = status_ >> 16;
    const int signal = WSTOPSIG(status_);
    if (event == PTRACE_EVENT_EXIT) {
      result_.leftOpen = openDescriptorsOf(pid_);
    } else if (signal == (SIGTRAP | 0x80)) {
      handleCall();
    } else if (event == 0 && signal != SIGTRAP) {
      return signal;
    }
    return 0;
  }

  void handleCall() {
    __ptrace_syscall_info info{};
    if (::ptrace(PTRACE_GET_SYSCALL_INFO, pid_, sizeof info, &info) < 0)
      return;  // the program was killed in the meantime
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
      Arguments arguments;
      std::copy(std::begin(info.entry.args), std::end(info.entry.args), arguments.begin());
      enter(static_cast<long>(info.entry.nr), arguments);
    } else if (info.op == PTRACE_SYSCALL_INFO_EXIT && pending_ != Pending::nothing) {
      settle();
    }
  }

  // Restores the registers that the tracer changed, because the program may still use them, and sets the result.
  void settle() {
    user_regs_struct after{};
    must(::ptrace(PTRACE_GETREGS, pid_, nullptr, &after), "read the registers");
    after.rdi = before_.rdi;
    after.rdx = before_.rdx;
    if (pending_ == Pending::failure) after.rax = static_cast<unsigned long long>(-plan_.meddling.error);
    if (pending_ == Pending::success) after.rax = pretended_;
    must(::ptrace(PTRACE_SETREGS, pid_, nullptr, &after), "change the registers");
    pending_ = Pending::nothing;
  }

  void enter(long call, const Arguments& arguments) {
    counting_ = counting_ || call == plan_.begin;
    if (!counting_) return;
    ++count_;
    if (plan_.keepCalls) result_.calls.push_back(describe(pid_, count_, call, arguments));
    const bool isFirst = result_.meddled == 0 && (plan_.atEachCall != nullptr || count_ == plan_.meddling.at);
    const Meddling how = plan_.atEachCall ? asked(call, arguments) : planned(call);
    if (how == Meddling::none) return;
    if (isFirst) {
      chosen_ = call;
      result_.meddledFirst = describe(pid_, count_, call, arguments);
    }
    if (meddle(how, call, arguments)) ++result_.meddled;
  }

  Meddling asked(long call, const Arguments& arguments) const {
    return plan_.atEachCall({call, arguments, describe(pid_, count_, call, arguments).changesDisk});
  }

  Meddling planned(long call) const {
    const TracePlan::Meddle& meddling = plan_.meddling;
    if (count_ < meddling.at || result_.meddled >= meddling.times) return Meddling::none;
    const bool isChosen = count_ == meddling.at || familyOf(call) == familyOf(chosen_);
    return isChosen ? meddling.how : Meddling::none;
  }

  bool meddle(Meddling how, long call, const Arguments& arguments) {
    switch (how) {
      case Meddling::none:
        return false;
      case Meddling::fail:
        makeFail(call);
        return true;
      case Meddling::shorten:
        return shorten(call, arguments);
      case Meddling::kill:
        return ::kill(pid_, SIGKILL) == 0;
      case Meddling::crash:
        return ::kill(pid_, SIGABRT) == 0;
      case Meddling::pretend:
        pretended_ = call == SYS_write ? arguments[2] : 0;
        leaveOut();
        pending_ = Pending::success;
        return true;
      case Meddling::hang:
        change([](user_regs_struct& registers) { registers.orig_rax = SYS_pause; });
        return true;
    }
    return false;
  }

  void makeFail(long call) {
    if (call == SYS_brk) {
      change([](user_regs_struct& registers) { registers.rdi = 0; });
      pending_ = Pending::ownResult;
      return;
    }
    if (call != SYS_close) leaveOut();
    pending_ = Pending::failure;
  }

  bool shorten(long call, const Arguments& arguments) {
    // The kernel refuses a buffer that is too small for the next entry. This size fits the longest possible entry.
    constexpr std::uint64_t oneEntry = 24 + NAME_MAX + 1;
    const CallRow* row = findRow(call);
    const std::uint64_t length = call == SYS_getdents64 ? oneEntry : 1;
    if (row == nullptr || !row->isShortenable || arguments[2] <= length) return false;
    change([&](user_regs_struct& registers) { registers.rdx = length; });
    pending_ = Pending::ownResult;
    return true;
  }

  void leaveOut() {
    change([](user_regs_struct& registers) { registers.orig_rax = ~0ULL; });
  }

  template <typename Edit>
  void change(Edit edit) {
    user_regs_struct registers{};
    must(::ptrace(PTRACE_GETREGS, pid_, nullptr, &registers), "read the registers");
    before_ = registers;
    edit(registers);
    must(::ptrace(PTRACE_SETREGS, pid_, nullptr, &registers), "change the registers");
  }

  // What settle() must do when the current call returns.
  enum class Pending { nothing, failure, success, ownResult };

  const pid_t pid_;
  const TracePlan& plan_;
  TraceResult& result_;
  bool counting_;
  std::size_t count_ = 0;
  long chosen_ = -1;
  Pending pending_ = Pending::nothing;
  unsigned long long pretended_ = 0;
  user_regs_struct before_{};
  int status_ = 0;
};

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// Runs in the child. It reports every failure to the tracer by exit status 126.
[[noreturn]] void become(char* const* argv, char* const* envp, int out, int err) {
  const int input = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  // Without address randomisation every run makes the same calls for memory.
  const bool isReady = ::setpgid(0, 0) == 0 && ::personality(ADDR_NO_RANDOMIZE) >= 0 && ::chdir("/") == 0 &&
                       ::dup2(input, 0) == 0 && ::dup2(out, 1) == 1 && ::dup2(err, 2) == 2 &&
                       ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0;
  if (isReady) ::execve(argv[0], argv, envp);
  ::_exit(126);
}

// While it lives, orphans of the traced program become our children, so that we can wait for them.
class Adoption {
 public:
  Adoption() { must(::prctl(PR_SET_CHILD_SUBREAPER, 1), "adopt orphans"); }
  ~Adoption() { (void)::prctl(PR_SET_CHILD_SUBREAPER, 0); }
  Adoption(const Adoption&) = delete;
  Adoption& operator=(const Adoption&) = delete;

  static void waitForAll() {
    int status = 0;
    pid_t pid = 0;
    while ((pid = ::waitpid(-1, &status, __WALL)) > 0 || errno == EINTR) {
      // A traced program that was killed may stop once more before it ends.
      if (pid > 0 && WIFSTOPPED(status)) (void)::ptrace(PTRACE_CONT, pid, nullptr, 0L);
    }
  }
};

}  // namespace

std::string whyNoTracing() { return ""; }

TraceResult traceProgram(const std::vector<std::string>& words, const TracePlan& plan) {
  const std::vector<char*> argv = pointersTo(words);
  const std::vector<char*> envp = pointersTo(plan.environment);
  const Output out;
  const Output err;
  const Adoption adoption;
  const auto pid = static_cast<pid_t>(must(::fork(), "fork"));
  if (pid == 0) become(argv.data(), envp.data(), out.fd(), err.fd());

  TraceResult result;
  Trace trace(pid, plan, &result);
  {
    TimeLimit limit(plan.seconds);
    limit.watch(pid);
    try {
      trace.run();
    } catch (...) {
      (void)::kill(-pid, SIGKILL);
      (void)::kill(pid, SIGKILL);
      Adoption::waitForAll();
      throw;
    }
    Adoption::waitForAll();
    result.timedOut = limit.isReached();
  }
  if (WIFEXITED(trace.status())) result.exitStatus = WEXITSTATUS(trace.status());
  if (WIFSIGNALED(trace.status())) result.signal = WTERMSIG(trace.status());
  if (result.exitStatus == 126) throw std::runtime_error("could not start or trace " + words.at(0));
  result.out = out.text();
  result.err = err.text();
  return result;
}

std::string nameOfCall(long call) {
  const CallRow* row = findRow(call);
  return row != nullptr ? row->name : "call " + std::to_string(call);
}

TracedCall describeCall(pid_t pid, std::size_t number, const SystemCall& call) {
  return describe(pid, number, call.number, call.arguments);
}

#else

std::string whyNoTracing() { return "programs are traced on x86_64 alone"; }

TraceResult traceProgram(const std::vector<std::string>&, const TracePlan&) {
  throw std::runtime_error(whyNoTracing());
}

std::string nameOfCall(long call) { return "call " + std::to_string(call); }

TracedCall describeCall(pid_t, std::size_t, const SystemCall&) { throw std::runtime_error(whyNoTracing()); }

#endif
