#include "Interleaver.h"

#include <stdexcept>

#if defined(__x86_64__)

#include <elf.h>
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <memory>

#include "base/system/UniqueFd.h"
#include "testing/faults/TimeLimit.h"

namespace {

using std::chrono::nanoseconds;

[[noreturn]] void fail(const char* what) { throw std::runtime_error(std::string(what) + ": " + std::strerror(errno)); }

long must(long result, const char* what) {
  if (result < 0) fail(what);
  return result;
}

// --- What a program does before it becomes the one that is traced

// The programs stop only at these calls, because each stop takes time.
constexpr unsigned kClockCalls[] = {SYS_clock_gettime, SYS_clock_nanosleep, SYS_nanosleep};
constexpr unsigned kStoreCalls[] = {
    SYS_access,    SYS_chdir,        SYS_chmod,     SYS_close,     SYS_faccessat, SYS_fallocate,  SYS_fchmod,
    SYS_fchmodat,  SYS_fchown,       SYS_fchownat,  SYS_fcntl,     SYS_fdatasync, SYS_fgetxattr,  SYS_flistxattr,
    SYS_flock,     SYS_fremovexattr, SYS_fsetxattr, SYS_fstat,     SYS_fsync,     SYS_ftruncate,  SYS_getdents64,
    SYS_link,      SYS_linkat,       SYS_lstat,     SYS_mkdir,     SYS_mkdirat,   SYS_newfstatat, SYS_open,
    SYS_openat,    SYS_openat2,      SYS_pread64,   SYS_pwrite64,  SYS_read,      SYS_readlink,   SYS_readlinkat,
    SYS_rename,    SYS_renameat,     SYS_renameat2, SYS_rmdir,     SYS_stat,      SYS_statx,      SYS_symlink,
    SYS_symlinkat, SYS_unlink,       SYS_unlinkat,  SYS_utimensat, SYS_write};

std::vector<sock_filter> filterOf(const std::vector<unsigned>& calls) {
  std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (std::size_t i = 0; i < calls.size(); ++i) {
    const auto toTheTrace = static_cast<unsigned char>(calls.size() - i);
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, calls[i], toTheTrace, 0));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRACE));
  return filter;
}

const std::vector<sock_filter>& filterOfClocks() {
  static const auto filter = filterOf({std::begin(kClockCalls), std::end(kClockCalls)});
  return filter;
}

const std::vector<sock_filter>& filterOfAll() {
  static const auto filter = [] {
    std::vector<unsigned> calls(std::begin(kStoreCalls), std::end(kStoreCalls));
    calls.insert(calls.end(), std::begin(kClockCalls), std::end(kClockCalls));
    return filterOf(calls);
  }();
  return filter;
}

// Runs in the child. It reports every failure to the tracer by exit status 126.
[[noreturn]] void become(char* const* argv, char* const* envp, const sock_fprog& filter, int out, int err) {
  const int input = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  const bool isReady = ::setpgid(0, 0) == 0 && ::chdir("/") == 0 && ::dup2(input, 0) == 0 && ::dup2(out, 1) == 1 &&
                       ::dup2(err, 2) == 2 && ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 &&
                       ::raise(SIGSTOP) == 0 && ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
                       ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
  if (isReady) ::execve(argv[0], argv, envp);
  ::_exit(126);
}

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// The output of a program, in memory, so that nobody has to read it while the program runs.
UniqueFd makeOutput() { return UniqueFd(static_cast<int>(must(::memfd_create("output", MFD_CLOEXEC), "make a file"))); }

std::string textOf(const UniqueFd& output) {
  std::string text(static_cast<std::size_t>(must(::lseek(output.get(), 0, SEEK_END), "measure the output")), '\0');
  must(::pread(output.get(), text.data(), text.size(), 0), "read the output");
  return text;
}

// --- The memory of a stopped program

template <typename Value>
Value readAt(pid_t pid, std::uint64_t address) {
  Value value{};
  const iovec here = {&value, sizeof value};
  const iovec there = {reinterpret_cast<void*>(address), sizeof value};
  must(::process_vm_readv(pid, &here, 1, &there, 1, 0), "read the memory of the program");
  return value;
}

template <typename Value>
void writeAt(pid_t pid, std::uint64_t address, Value value) {
  const iovec here = {&value, sizeof value};
  const iovec there = {reinterpret_cast<void*>(address), sizeof value};
  must(::process_vm_writev(pid, &here, 1, &there, 1, 0), "write the memory of the program");
}

// A program reads the clock without a system call if the system has given it the code for that. This takes the code
// from a program that has just started: above the stack pointer are argc, argv, the environment and the pairs of the
// auxiliary vector.
void hideClockCode(pid_t pid) {
  user_regs_struct registers{};
  must(::ptrace(PTRACE_GETREGS, pid, nullptr, &registers), "read the registers");
  std::uint64_t at = registers.rsp + 8;
  for (int lists = 0; lists < 2; at += 8) lists += readAt<std::uint64_t>(pid, at) == 0 ? 1 : 0;
  for (std::uint64_t key = AT_IGNORE; (key = readAt<std::uint64_t>(pid, at)) != AT_NULL; at += 16) {
    if (key == AT_SYSINFO_EHDR) writeAt<std::uint64_t>(pid, at, AT_IGNORE);
  }
}

// The call is not made and returns this.
void replaceCall(pid_t pid, long result) {
  user_regs_struct registers{};
  must(::ptrace(PTRACE_GETREGS, pid, nullptr, &registers), "read the registers");
  registers.orig_rax = ~0ULL;
  registers.rax = static_cast<unsigned long long>(result);
  must(::ptrace(PTRACE_SETREGS, pid, nullptr, &registers), "change the registers");
}

// --- The run

struct Traced {
  pid_t pid = 0;  // 0 before its start
  bool hasEnded = false;
  UniqueFd out;
  UniqueFd err;
  InterleavedProgram result;

  bool isStopped() const { return pid != 0 && !hasEnded; }
};

class Run {
 public:
  explicit Run(const Interleaving& plan) : plan_(plan), traced_(plan.programs.size()), limit_(plan.seconds) {}
  ~Run() { killAll(); }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  Interleaved run() {
    for (std::size_t i = 0; i < plan_.turns.size(); ++i) {
      const Turn& turn = plan_.turns[i];
      const bool isReached = take(turn.program, turn.until) == Stop::limit;
      if (isReached && i == result_.turnsReached) ++result_.turnsReached;
      if (isReached && i == 0 && plan_.afterFirstTurn) plan_.afterFirstTurn();
    }
    for (std::size_t i = 0; i < traced_.size(); ++i) take(i, kToItsEnd);
    waitForChildren();
    for (Traced& one : traced_) {
      one.result.out = textOf(one.out);
      one.result.err = textOf(one.err);
      if (one.result.exitStatus == 126) throw std::runtime_error("could not start or trace a program");
      result_.programs.push_back(std::move(one.result));
    }
    result_.timedOut = limit_.isReached();
    return std::move(result_);
  }

 private:
  enum class Stop { limit, sleep, end };

  // Runs a program until its limit or its end. While it sleeps, the other one runs.
  Stop take(std::size_t number, std::size_t until) {
    Stop stop = Stop::end;
    while ((stop = advance(number, until)) == Stop::sleep) {
      for (std::size_t other = 0; other < traced_.size(); ++other) {
        if (other != number && traced_[other].isStopped()) (void)advance(other, kToItsEnd);
      }
    }
    return stop;
  }

  Stop advance(std::size_t number, std::size_t until) {
    Traced& one = traced_[number];
    if (one.pid == 0) start(number);
    while (!one.hasEnded) {
      resume(one.pid, 0);
      const int status = waitFor(number);
      if (one.hasEnded) break;
      const int event = status >> 16;
      if (event == PTRACE_EVENT_EXEC) hideClockCode(one.pid);
      if (event != PTRACE_EVENT_SECCOMP) continue;
      const SystemCall call = callOf(one.pid);
      if (sleeps(one.pid, call)) return Stop::sleep;
      if (answersClock(one.pid, call) || !counts(number, until, call)) continue;
      if (one.result.calls.size() == until) return Stop::limit;
    }
    return Stop::end;
  }

  // Returns true if somebody needs to see the calls of a program.
  bool isFollowed(std::size_t number) const {
    const auto& turns = plan_.turns;
    return plan_.keepCalls || plan_.forge || std::any_of(turns.begin(), turns.end(), [&](const Turn& turn) {
             return turn.program == number && turn.until != kToItsEnd;
           });
  }

  // Returns true if the call is one on the store. The call is made, or forged, when the program goes on.
  bool counts(std::size_t number, std::size_t until, const SystemCall& call) {
    Traced& one = traced_[number];
    if (until == kToItsEnd && !plan_.keepCalls && !plan_.forge) return false;
    TracedCall described = describeCall(one.pid, one.result.calls.size() + 1, call);
    if (!touchesStore(described)) return false;
    const std::optional<long> forged = plan_.forge ? plan_.forge(number, described) : std::nullopt;
    if (forged) replaceCall(one.pid, *forged);
    one.result.calls.push_back(std::move(described));
    return true;
  }

  static SystemCall callOf(pid_t pid) {
    __ptrace_syscall_info info{};
    must(::ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info), "read the call");
    SystemCall call;
    call.number = static_cast<long>(info.seccomp.nr);
    std::copy(std::begin(info.seccomp.args), std::end(info.seccomp.args), call.arguments.begin());
    return call;
  }

  bool sleeps(pid_t pid, const SystemCall& call) {
    const bool isOld = call.number == SYS_nanosleep;
    if (!isOld && call.number != SYS_clock_nanosleep) return false;
    const auto wanted = readAt<timespec>(pid, call.arguments[isOld ? 0 : 2]);
    nanoseconds length = std::chrono::seconds(wanted.tv_sec) + nanoseconds(wanted.tv_nsec);
    const bool isMoment = !isOld && (call.arguments[1] & TIMER_ABSTIME) != 0;
    if (isMoment) length = std::max(nanoseconds(0), length - now(static_cast<clockid_t>(call.arguments[0])));
    result_.waited += length;
    replaceCall(pid, 0);
    return true;
  }

  bool answersClock(pid_t pid, const SystemCall& call) {
    if (call.number != SYS_clock_gettime) return false;
    const nanoseconds time = now(static_cast<clockid_t>(call.arguments[0]));
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    writeAt(pid, call.arguments[1], timespec{seconds.count(), (time - seconds).count()});
    replaceCall(pid, 0);
    return true;
  }

  nanoseconds now(clockid_t clock) const {
    // Any moment will do for a clock without a calendar.
    const std::chrono::seconds start =
        clock == CLOCK_REALTIME ? std::chrono::seconds(1767322800) : std::chrono::hours(1);
    return start + result_.waited;
  }

  void start(std::size_t number) {
    Traced& one = traced_[number];
    one.out = makeOutput();
    one.err = makeOutput();
    const std::vector<sock_filter>& filter = isFollowed(number) ? filterOfAll() : filterOfClocks();
    const sock_fprog program = {static_cast<unsigned short>(filter.size()), const_cast<sock_filter*>(filter.data())};
    const std::vector<std::string> environment = {"PATH=/usr/bin:/usr/sbin"};
    const std::vector<char*> argv = pointersTo(plan_.programs[number]);
    const std::vector<char*> envp = pointersTo(environment);
    one.pid = static_cast<pid_t>(must(::fork(), "fork"));
    if (one.pid == 0) become(argv.data(), envp.data(), program, one.out.get(), one.err.get());
    limit_.watch(one.pid);
    (void)waitFor(number);
    if (one.hasEnded) throw std::runtime_error("could not trace a program");
    constexpr long options = PTRACE_O_EXITKILL | PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEEXEC | PTRACE_O_TRACEFORK |
                             PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE;
    must(::ptrace(PTRACE_SETOPTIONS, one.pid, nullptr, options), "set the options of the trace");
  }

  static void resume(pid_t pid, int signal) {
    if (::ptrace(PTRACE_CONT, pid, nullptr, static_cast<long>(signal)) != 0 && errno != ESRCH) {
      fail("continue the program");
    }
  }

  // Waits until this program stops or ends, and lets children of the programs run.
  int waitFor(std::size_t number) {
    Traced& one = traced_[number];
    for (;;) {
      int status = 0;
      const pid_t pid = ::waitpid(-1, &status, __WALL);
      if (pid < 0 && errno == EINTR) continue;
      if (pid < 0) fail("wait for the program");
      if (noteEnd(pid, status)) {
        if (one.hasEnded) return status;
        continue;
      }
      if (pid == one.pid && isOurStop(status)) return status;
      resume(pid, signalToDeliver(status));
    }
  }

  static bool isOurStop(int status) { return status >> 16 != 0 || WSTOPSIG(status) == SIGSTOP; }

  static int signalToDeliver(int status) {
    const int signal = WSTOPSIG(status);
    return status >> 16 != 0 || signal == SIGSTOP || signal == SIGTRAP ? 0 : signal;
  }

  // Returns true if a process has ended.
  bool noteEnd(pid_t pid, int status) {
    if (WIFSTOPPED(status)) return false;
    for (Traced& one : traced_) {
      if (pid != one.pid) continue;
      one.hasEnded = true;
      if (WIFEXITED(status)) one.result.exitStatus = WEXITSTATUS(status);
      if (WIFSIGNALED(status)) one.result.signal = WTERMSIG(status);
    }
    return true;
  }

  void waitForChildren() {
    int status = 0;
    pid_t pid = 0;
    while ((pid = ::waitpid(-1, &status, __WALL)) > 0 || errno == EINTR) {
      if (pid > 0 && !noteEnd(pid, status)) resume(pid, signalToDeliver(status));
    }
  }

  void killAll() {
    bool isAnyLeft = false;
    for (const Traced& one : traced_) {
      if (one.isStopped()) isAnyLeft = ::kill(-one.pid, SIGKILL) == 0 || ::kill(one.pid, SIGKILL) == 0;
    }
    if (isAnyLeft) waitForChildren();
  }

  const Interleaving& plan_;
  std::vector<Traced> traced_;
  TimeLimit limit_;
  Interleaved result_;
};

bool isBelow(const std::string& path, const char* folder) {
  const std::size_t length = std::strlen(folder);
  return path.compare(0, length, folder) == 0 && (path.size() == length || path[length] == '/');
}

}  // namespace

Interleaved interleave(const Interleaving& plan) { return Run(plan).run(); }

bool touchesStore(const TracedCall& call) {
  return call.path.empty() || isBelow(call.path, "/etc/zuv") || isBelow(call.path, "/tmp/lock");
}

#else

Interleaved interleave(const Interleaving&) { throw std::runtime_error(whyNoTracing()); }

bool touchesStore(const TracedCall&) { return false; }

#endif
