#include "base/system/Process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <exception>
#include <functional>
#include <new>
#include <string>

#include "base/files/FileLock.h"
#include "base/text/TimeUtils.h"
#include "profiles/store/ConfigLines.h"
#include "testing/run/HostTest.h"

namespace {

// Exit statuses of a child: the test succeeded or failed.
constexpr int kYes = 10;
constexpr int kNo = 11;

// Runs `body` in a child. Returns its exit status, or the negated number of the signal that killed it.
int endOf(const std::function<bool()>& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body() ? kYes : kNo);
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

bool isNullDevice(int descriptor) {
  struct stat null {};
  struct stat there {};
  return ::stat("/dev/null", &null) == 0 && ::fstat(descriptor, &there) == 0 && there.st_rdev == null.st_rdev &&
         S_ISCHR(there.st_mode);
}

bool isOpen(int descriptor) { return ::fcntl(descriptor, F_GETFD) >= 0; }
bool survivesExec(int descriptor) { return (::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0; }

using Handler = void (*)(int);
Handler handlerOf(int signal) {
  struct sigaction action {};
  ::sigaction(signal, nullptr, &action);
  return action.sa_handler;
}

bool isBlocked(int signal) {
  sigset_t mask;
  ::sigprocmask(SIG_BLOCK, nullptr, &mask);
  return ::sigismember(&mask, signal) == 1;
}

void setBlocked(std::initializer_list<int> signals, bool blocked) {
  sigset_t set;
  ::sigemptyset(&set);
  for (const int signal : signals) ::sigaddset(&set, signal);
  ::sigprocmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
}

using ProcessTest = HostTest;

// --- Descriptors

TEST_F(ProcessTest, ClosedStandardDescriptorsAreOpenedOnTheNullDevice) {
  for (unsigned closed = 0; closed < 8; ++closed) {
    SCOPED_TRACE(closed);
    EXPECT_EQ(kYes, endOf([closed] {
                const int next = ::dup(0);
                ::close(next);
                bool was[3];
                for (int fd = 0; fd < 3; ++fd) {
                  if ((closed >> fd & 1U) != 0) ::close(fd);
                  was[fd] = isNullDevice(fd);
                }
                prepareProcess();
                bool good = !isOpen(next);
                for (int fd = 0; fd < 3; ++fd) {
                  const bool isClosed = (closed >> fd & 1U) != 0;
                  good = good && isOpen(fd) && isNullDevice(fd) == (isClosed || was[fd]);
                  if (isClosed) good = good && survivesExec(fd) && (::fcntl(fd, F_GETFL) & O_ACCMODE) == O_RDWR;
                }
                return good;
              }));
  }
}

TEST_F(ProcessTest, ThePreparationDoesNotWait) {
  EXPECT_EQ(kYes, endOf([] {
              std::int64_t shortest = INT64_MAX;
              for (int i = 0; i < 50; ++i) {
                const std::int64_t start = TimeUtils::monotonicMicros();
                prepareProcess();
                shortest = std::min(shortest, TimeUtils::monotonicMicros() - start);
              }
              return shortest < 1'000;
            }));
}

TEST_F(ProcessTest, OnlyClosedDescriptorsAreOpened) {
  const struct {
    const char* why;
    bool (*body)();
  } cases[] = {
      {"a closed descriptor is opened under a low limit of descriptors too",
       [] {
         ::close(0);
         const rlimit limit{2, 2};  // poll(2) refuses three descriptors then
         ::setrlimit(RLIMIT_NOFILE, &limit);
         prepareProcess();
         return isNullDevice(0) && isOpen(1) && isOpen(2);
       }},
      {"open descriptors are left alone",
       [] {
         const int file = ::open("/tmp/file", O_RDWR | O_CREAT, 0600);
         for (int fd = 0; fd < 3; ++fd) ::dup2(file, fd);
         ::close(file);
         prepareProcess();
         const bool areWritable = ::write(1, "out", 3) == 3 && ::write(2, "err", 3) == 3;
         return areWritable && !isOpen(file) && host::readFile("/tmp/file") == "outerr";
       }},
      {"a descriptor of a broken pipe counts as open",
       [] {
         int ends[2];
         if (::pipe(ends) != 0) return false;
         ::dup2(ends[1], 1);
         ::close(ends[0]);
         ::close(ends[1]);
         prepareProcess();
         return ::write(1, "x", 1) < 0 && errno == EPIPE;
       }},
      {"the process continues without a null device",
       [] {
         if (::chroot("/tmp") != 0) return false;
         ::close(0);
         prepareProcess();
         return !isOpen(0) && isOpen(1) && isOpen(2);
       }},
  };
  for (const auto& c : cases) EXPECT_EQ(kYes, endOf(c.body)) << c.why;
}

TEST_F(ProcessTest, ChildrenFindTheirStandardDescriptorsOpen) {
  host::writeFile("/etc/zuv/.systemctl", "");
  host::installScript("/bin/systemctl",
                      "for n in 0 1 2; do readlink /proc/self/fd/$n || echo closed; done >>/tmp/descriptors");
  Start start;
  start.closed = {0, 1, 2};
  EXPECT_EQ(runRavctl({"service", "start"}, start).exitStatus, 0);
  EXPECT_EQ(host::readFile("/tmp/descriptors"), "/dev/null\n/tmp/descriptors\n/dev/null\n");
}

// --- Signals

TEST_F(ProcessTest, AFailedWriteDoesNotKillTheProcess) {
  const auto writeBeyondTheLimit = [] {
    const rlimit limit{10, 10};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    const int file = ::open("/tmp/file", O_WRONLY | O_CREAT | O_TRUNC, 0600);
    return ::write(file, "0123456789", 10) == 10 && ::write(file, "x", 1) < 0 && errno == EFBIG;
  };
  EXPECT_EQ(-SIGXFSZ, endOf(writeBeyondTheLimit));
  EXPECT_EQ(kYes, endOf([&] {
              prepareProcess();
              return writeBeyondTheLimit();
            }));
}

TEST_F(ProcessTest, AnInheritedIgnoredChildSignalDoesNotHideAFailedTool) {
  host::writeFile("/etc/zuv/.systemctl", "");
  host::installScript("/bin/systemctl", "exit 7");
  const Outcome outcome =
      runProgram({"/bin/sh", "-c", "trap '' CHLD; exec \"$0\" service start", ravctlPath()}, Start());
  EXPECT_EQ(outcome.out, "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n");
  EXPECT_EQ(outcome.exitStatus, 0);
}

TEST_F(ProcessTest, TheInheritedMaskOfSignalsIsKeptOrRestored) {
  const struct {
    const char* why;
    bool pipe, fileSize;
  } cases[] = {
      {"neither is blocked", false, false},
      {"both are blocked", true, true},
      {"one of them", true, false},
      {"the other one", false, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const auto isInherited = [&c] {
      return isBlocked(SIGPIPE) == c.pipe && isBlocked(SIGXFSZ) == c.fileSize && isBlocked(SIGHUP) == c.pipe &&
             isBlocked(SIGINT) == c.fileSize && !isBlocked(SIGTERM);
    };
    EXPECT_EQ(kYes, endOf([&] {
                setBlocked({SIGPIPE, SIGHUP}, c.pipe);
                setBlocked({SIGXFSZ, SIGINT}, c.fileSize);
                giveBackSignals();
                const bool isKept = isInherited();  // nothing was changed yet that could be given back
                prepareProcess();
                const bool areBlocked = isBlocked(SIGPIPE) && isBlocked(SIGXFSZ) && isBlocked(SIGHUP) == c.pipe;
                giveBackSignals();
                return isKept && areBlocked && isInherited();
              }));
  }
}

TEST_F(ProcessTest, TheActionsOfSignalsStayAsInherited) {
  for (const Handler handler : {SIG_DFL, SIG_IGN}) {
    EXPECT_EQ(kYes, endOf([handler] {
                for (const int signal : {SIGPIPE, SIGXFSZ, SIGCHLD}) ::signal(signal, handler);
                prepareProcess();
                return handlerOf(SIGPIPE) == handler && handlerOf(SIGXFSZ) == handler && handlerOf(SIGCHLD) == handler;
              }));
  }
}

TEST_F(ProcessTest, AChildThatGetsTheSignalsBackIsNotKilledByThoseOfItsParent) {
  EXPECT_EQ(kYes, endOf([] {
              prepareProcess();
              ::raise(SIGPIPE);  // as a failed write does; it stays pending
              const pid_t child = ::fork();
              if (child == 0) {
                giveBackSignals();
                ::_exit(3);
              }
              int status = 0;
              return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 3;
            }));
}

TEST_F(ProcessTest, ChildrenAreWaitableIfTheChildSignalWasInheritedAsIgnored) {
  EXPECT_EQ(kYes, endOf([] {
              ::signal(SIGCHLD, SIG_IGN);
              makeChildrenWaitable();
              const pid_t child = ::fork();
              if (child == 0) ::_exit(3);
              int status = 0;
              return ::waitpid(child, &status, 0) == child && WEXITSTATUS(status) == 3 && handlerOf(SIGCHLD) == SIG_DFL;
            }));
}

TEST_F(ProcessTest, AHandlerOfTheChildSignalStays) {
  EXPECT_EQ(kYes, endOf([] {
              const Handler handler = [](int) {};
              ::signal(SIGCHLD, handler);
              makeChildrenWaitable();
              return handlerOf(SIGCHLD) == handler;
            }));
}

// Returns the blocked and the ignored signals of the tool that the program starts, if `before` runs before the program
// itself starts.
std::string signalsOfTheTool(const std::string& before) {
  host::writeFile("/etc/zuv/.systemctl", "");
  host::installScript("/bin/systemctl", "grep -E '^Sig(Blk|Ign)' /proc/self/status >/tmp/signals");
  const Outcome outcome = runProgram({"/bin/sh", "-c", before + "exec \"$0\" service start", ravctlPath()}, Start());
  EXPECT_EQ(outcome.out, "");
  return host::readFile("/tmp/signals");
}

TEST_F(ProcessTest, AToolStartsWithTheInheritedSignalActions) {
  // One bit per signal; the lowest bit is signal 1: HUP 1, PIPE 0x1000, CHLD 0x10000, XFSZ 0x1000000.
  EXPECT_EQ(signalsOfTheTool(""), "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
  EXPECT_EQ(signalsOfTheTool("trap '' HUP PIPE; "), "SigBlk:\t0000000000000000\nSigIgn:\t0000000000001001\n");
  EXPECT_EQ(signalsOfTheTool("trap '' XFSZ CHLD; "), "SigBlk:\t0000000000000000\nSigIgn:\t0000000001000000\n");
}

// --- Memory

// Runs `body` in a child. Compares what the child writes to standard error, and its end as endOf() returns it.
void expectLastWords(const std::string& text, int end, const std::function<bool()>& body) {
  EXPECT_EQ(end, endOf([&body] {
              const int file = ::open("/tmp/last-words", O_WRONLY | O_CREAT | O_TRUNC, 0600);
              ::dup2(file, 2);
              return body();
            }));
  EXPECT_EQ(host::readFile("/tmp/last-words"), text);
}

TEST_F(ProcessTest, OutOfMemoryPrintsOneLineIfItCanAndExitsWithStatus1) {
  for (const bool hasStandardError : {true, false}) {
    SCOPED_TRACE(hasStandardError ? "with standard error" : "without standard error");
    expectLastWords(hasStandardError ? "ravctl: out of memory\n" : "", 1, [&] {
      prepareProcess();
      if (!hasStandardError) ::close(2);
      std::get_new_handler()();
      return true;
    });
  }
}

TEST_F(ProcessTest, AnUncaughtExceptionEndsTheProcessWithoutOutput) {
  expectLastWords("", -SIGABRT, [] {
    const rlimit noCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
    std::terminate();
    return true;
  });
}

TEST_F(ProcessTest, OutOfMemoryLeavesNoLockFileAndNoTemporaryFile) {
  host::writeFile("/tmp/x.conf", "old=1\n");
  const std::string before = host::tree("/tmp");
  EXPECT_EQ(1, endOf([] {
              prepareProcess();
              const FileLock lock("/tmp/x.conf");
              LineEditor editor("/tmp/x.conf");
              editor.writeLine(std::string(1 << 20, 'x'));
              const bool bothAreThere =
                  ::access("/tmp/x.conf.temp", F_OK) == 0 && ::access("/tmp/lock/x.conf.lock", F_OK) == 0;
              if (bothAreThere) std::get_new_handler()();
              return true;
            }));
  EXPECT_EQ(host::tree("/tmp"), before);
}

#ifndef RAVCTL_SANITIZED  // sanitizers have reserved more address space than any limit
TEST_F(ProcessTest, AnAllocationBeyondTheLimitEndsTheProcess) {
  expectLastWords("ravctl: out of memory\n", 1, [] {
    prepareProcess();
    const rlimit limit{256UL << 20, 256UL << 20};
    ::setrlimit(RLIMIT_AS, &limit);
    const std::string huge(1UL << 30, 'x');
    return huge.size() != 0;
  });
}

// The limits range from too little memory to load the program to more than it needs.
TEST_F(ProcessTest, ListProfilesUnderAnyMemoryLimitPrintsAllOrFailsAndChangesNothing) {
  for (int i = 1; i <= 300; ++i) {
    host::makeProfile("profile-" + std::to_string(i), std::string(200, 'n') + std::to_string(i));
  }
  host::makeActive("profile-1");
  const std::string before = host::tree("/etc/zuv");
  const std::string expected = runRavctl({"list", "profiles"}).out;
  ASSERT_NE(expected, "");
  int ran = 0;
  int outOfMemory = 0;
  for (unsigned long limit = 1UL << 20; limit <= 16UL << 20; limit += 64UL << 10) {
    Start start;
    start.memoryLimit = limit;
    Outcome outcome;
    try {
      outcome = runRavctl({"list", "profiles"}, start);
    } catch (const std::exception&) {
      continue;  // the system could not load the program
    }
    SCOPED_TRACE(limit);
    if (outcome.out == expected) {
      EXPECT_EQ(outcome.exitStatus, 0);
      ++ran;
    } else if (outcome.err == "ravctl: out of memory\n") {
      EXPECT_EQ(outcome.exitStatus, 1);
      EXPECT_EQ(outcome.out, "");
      ++outOfMemory;
    } else if (outcome.out.rfind("status_text: ", 0) == 0) {
      EXPECT_EQ(outcome.exitStatus, 0);  // the system refused memory to one call; the program reports a failed call
    } else {
      EXPECT_EQ(outcome.out, "") << outcome.err;  // the dynamic loader failed
      EXPECT_NE(outcome.exitStatus, 0);
    }
  }
  EXPECT_GT(ran, 0);
  EXPECT_GT(outOfMemory, 0);
  EXPECT_EQ(host::tree("/etc/zuv"), before);
}
#endif

}  // namespace
