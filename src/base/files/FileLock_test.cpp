#include "base/files/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <thread>

#include "base/files/ProgramDirectories.h"
#include "testing/faults/FaultInjector.h"
#include "testing/models/SkippedPauses.h"
#include "testing/run/AsUser.h"
#include "testing/run/HostTest.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Result = FileLock::Result;

constexpr const char* kPath = "/etc/zuv/hip.conf";
constexpr const char* kLock = "/tmp/lock/hip.conf.lock";
constexpr milliseconds kAtOnce(0);

class FileLockTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    // The first call in a process makes the directory. It must not happen inside a fault loop.
    if (!IsSkipped()) (void)FileUtils::lockDir();
  }
};

// A child process that runs `work` and exits with its result.
class Child {
 public:
  explicit Child(const std::function<int()>& work) : pid_(::fork()) {
    if (pid_ == 0) ::_exit(work());
  }
  ~Child() {
    if (pid_ > 0) (void)end(SIGKILL);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  int wait() {
    int status = 0;
    EXPECT_EQ(::waitpid(pid_, &status, 0), pid_);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  int end(int signal) {
    EXPECT_EQ(::kill(pid_, signal), 0);
    return wait();
  }

 private:
  pid_t pid_;
};

void waitFor(const std::function<bool()>& condition) {
  const auto deadline = steady_clock::now() + std::chrono::seconds(20);
  while (!condition() && steady_clock::now() < deadline) std::this_thread::sleep_for(milliseconds(1));
  EXPECT_TRUE(condition());
}

bool isHeldElsewhere() { return FileLock(kPath, kAtOnce).result() == Result::busy; }

// Takes the lock, creates a file to show that it has it, and never ends.
int holdForever() {
  const FileLock lock(kPath);
  if (!lock.isLocked()) return 1;
  host::writeFile("/tmp/held", "");
  for (;;) ::pause();
}

TEST_F(FileLockTest, ALockIsAFileOfMode0666WhileItIsHeldWhateverTheUmask) {
  ::umask(077);
  {
    const FileLock lock(kPath);
    EXPECT_TRUE(lock.isLocked());
    EXPECT_EQ(lock.result(), Result::held);
    EXPECT_EQ(lock.lockPath(), kLock);
    EXPECT_EQ(host::modeOf(kLock), 0666u);
  }
  EXPECT_FALSE(host::exists(kLock));
  EXPECT_EQ(::umask(022), 077u) << "the umask is restored";
}

TEST_F(FileLockTest, ANegativeLimitTriesOnceWithoutWaiting) {
  const FileLock lock(kPath);
  for (const auto limit : {milliseconds(-1), milliseconds(-10'000'000'000'000), milliseconds::min()}) {
    SCOPED_TRACE(limit.count());
    const SkippedPauses skipped;
    EXPECT_EQ(FileLock(kPath, limit).result(), Result::busy);
    EXPECT_EQ(skipped.total().count(), 0);
  }
}

TEST_F(FileLockTest, TheLockIsNamedAfterTheLastComponent) {
  struct Case {
    const char* path;
    const char* lockPath;
  };
  const Case cases[] = {{"hip.conf", "/tmp/lock/hip.conf.lock"},
                        {"/etc/zuv/profiles/p/hip.conf", "/tmp/lock/hip.conf.lock"},
                        {"C:\\zuv\\hip.conf", "/tmp/lock/hip.conf.lock"},
                        {"/etc/zuv/", "/tmp/lock/.lock"}};
  for (const Case& c : cases) EXPECT_EQ(FileLock(c.path).lockPath(), c.lockPath) << c.path;
}

TEST_F(FileLockTest, LocksOnOneNameInTwoDirectoriesExcludeEachOther) {
  const FileLock one("/etc/zuv/profiles/profile-1/hip.conf");
  {
    const FileLock two("/etc/zuv/profiles/profile-2/hip.conf", kAtOnce);
    EXPECT_EQ(two.result(), Result::busy);
    EXPECT_FALSE(two.isLocked());
    EXPECT_EQ(FileLock("hip.conf", milliseconds(-5)).result(), Result::busy);
    EXPECT_EQ(FileLock("another", milliseconds(-5)).result(), Result::held);
  }
  EXPECT_TRUE(host::exists(kLock)) << "a lock that was not taken removes nothing";
  EXPECT_EQ(FileLock("/etc/zuv/profiles/profile-2/endbox.conf", kAtOnce).result(), Result::held);
}

TEST_F(FileLockTest, AReleasedLockCanBeTakenAgain) {
  FileLock lock(kPath);
  lock.release();
  EXPECT_FALSE(lock.isLocked());
  EXPECT_EQ(lock.result(), Result::held);
  EXPECT_FALSE(host::exists(kLock));
  EXPECT_EQ(FileLock(kPath, kAtOnce).result(), Result::held);
  lock.release();
}

TEST_F(FileLockTest, TheDescriptorIsCloseOnExec) {
  const FileLock lock(kPath);
  bool found = false;
  for (const std::string& line : openDescriptors()) {
    if (line.find(kLock) == std::string::npos) continue;
    found = true;
    EXPECT_EQ(::fcntl(std::atoi(line.c_str()), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  }
  EXPECT_TRUE(found);
}

TEST_F(FileLockTest, OnlyARegularFileIsUsedAsALockFile) {
  host::writeFile("/tmp/target", "text");
  struct Case {
    const char* why;
    void (*make)();
  };
  const Case cases[] = {
      {"a link to a file", [] { host::makeLink(kLock, "/tmp/target"); }},
      {"a link to a missing file", [] { host::makeLink(kLock, "/tmp/missing"); }},
      {"a FIFO", [] { host::makeFifo(kLock); }},
      {"a directory", [] { host::makeDirs(kLock); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(kLock);
    c.make();
    EXPECT_EQ(FileLock(kPath).result(), Result::unavailable);
    EXPECT_TRUE(host::exists(kLock));
  }
  EXPECT_EQ(host::readFile("/tmp/target"), "text");
  EXPECT_FALSE(host::exists("/tmp/missing"));
}

// The default lock directory is missing after every boot, so anyone can place a link there first.
TEST_F(FileLockTest, ALockDirectoryThatIsAnotherUsersLinkIsNotUsed) {
  SKIP_WITHOUT_OTHER_USERS();
  host::makeDirs("/etc/elsewhere");
  host::remove("/tmp/lock");
  host::makeLink("/tmp/lock", "/etc/elsewhere");
  ASSERT_EQ(::lchown("/tmp/lock", 65534, 65534), 0);
  EXPECT_EQ(FileLock(kPath).result(), Result::unavailable);
  EXPECT_EQ(FileLock(kPath, kAtOnce).result(), Result::unavailable);
  EXPECT_FALSE(host::exists("/etc/elsewhere/hip.conf.lock"));
  host::remove("/etc/elsewhere");
}

TEST_F(FileLockTest, ALockDirectoryThatIsTheCallersOwnLinkIsUsed) {
  host::makeDirs("/tmp/elsewhere");
  host::remove("/tmp/lock");
  host::makeLink("/tmp/lock", "/tmp/elsewhere");
  const FileLock lock(kPath);
  EXPECT_TRUE(lock.isLocked());
  EXPECT_TRUE(host::exists("/tmp/elsewhere/hip.conf.lock"));
}

TEST_F(FileLockTest, AUsersLockDirectoryMayBeHisOwnLinkOrRootsButNoThirdUsers) {
  SKIP_WITHOUT_OTHER_USERS();
  host::makeDirs("/tmp/elsewhere", 0777);
  for (const uid_t owner : {65534u, 0u, 65533u}) {
    SCOPED_TRACE(owner);
    host::remove("/tmp/lock");
    host::makeLink("/tmp/lock", "/tmp/elsewhere");
    host::giveTo(owner, "/tmp/lock");
    const AsUser user(65534);
    EXPECT_EQ(FileLock(kPath).result(), owner == 65533u ? Result::unavailable : Result::held);
  }
}

TEST_F(FileLockTest, TheDirectoryIsOursOnlyIfNobodyElseCanChangeIt) {
  SKIP_WITHOUT_OTHER_USERS();
  struct Case {
    const char* why;
    void (*make)();
    bool isOurs;
  };
  const Case cases[] = {
      {"a directory of root's alone", [] { host::makeDirs("/tmp/lock", 0755); }, true},
      {"others may write", [] { host::makeDirs("/tmp/lock", 01777); }, false},
      {"a stranger's directory",
       [] {
         host::makeDirs("/tmp/lock", 0700);
         host::giveTo(65534, "/tmp/lock");
       },
       false},
      {"a link in a directory where others may write",
       [] {
         host::makeDirs("/tmp/elsewhere", 0755);
         host::makeLink("/tmp/lock", "/tmp/elsewhere");
       },
       false},
      {"a missing directory", [] {}, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove("/tmp/lock");
    c.make();
    EXPECT_EQ(FileLock::isDirectoryOurs(), c.isOurs);
  }
}

TEST_F(FileLockTest, ATimedLockKeepsItsLimitEvenIfItsFileIsReplacedAgainAndAgain) {
  FaultPlan plan;
  plan.calls = {"fstatat"};
  plan.before = [](std::size_t) {
    host::remove(kLock);
    host::writeFile(kLock, "another");
  };
  const ArmedFaults armed{plan};
  EXPECT_EQ(FileLock(kPath, milliseconds(50)).result(), Result::busy);
}

TEST_F(FileLockTest, WithoutDirectoryPermissionOrNameTheLockIsUnavailable) {
  EXPECT_EQ(FileLock("").result(), Result::unavailable);
  EXPECT_EQ(FileLock("").lockPath(), "");
  EXPECT_EQ(FileLock(std::string("hip\0conf", 8)).result(), Result::unavailable);
  {
    host::setMode("/tmp/lock", 0500);
    const host::BoundByModes bound;
    EXPECT_EQ(FileLock(kPath).result(), Result::unavailable);
  }
  host::remove("/tmp/lock");
  EXPECT_EQ(FileLock(kPath).result(), Result::unavailable);
}

TEST_F(FileLockTest, ATimedLockGivesUpAtItsLimit) {
  const FileLock lock(kPath);
  const SkippedPauses skipped;
  EXPECT_EQ(FileLock(kPath, milliseconds(60)).result(), Result::busy);
  EXPECT_THAT(skipped.millis(), testing::ElementsAre(1, 2, 4, 8, 16, 20, 9));
}

TEST_F(FileLockTest, ATimedLockOfAnyLimitIsTakenAsSoonAsItIsFree) {
  for (const milliseconds limit : {milliseconds(20000), milliseconds::max()}) {
    SCOPED_TRACE(limit.count());
    FileLock lock(kPath);
    std::thread holder([&] {
      std::this_thread::sleep_for(milliseconds(100));
      lock.release();
    });
    EXPECT_EQ(FileLock(kPath, limit).result(), Result::held);
    holder.join();
  }
}

TEST_F(FileLockTest, OnlyTheFileOfAHeldLockIsRemovedAsALeftover) {
  FileLock lock(kPath);
  lock.release();
  host::writeFile(kLock, "another holder's");
  removeLeftovers();
  EXPECT_TRUE(host::exists(kLock));
  const FileLock held(kPath);
  ASSERT_TRUE(held.isLocked());
  removeLeftovers();
  EXPECT_FALSE(host::exists(kLock));
}

TEST_F(FileLockTest, ALockIsReleasedWhenItsHolderDies) {
  Child holder(holdForever);
  waitFor([] { return host::exists("/tmp/held"); });
  EXPECT_TRUE(isHeldElsewhere());
  holder.end(SIGKILL);
  EXPECT_TRUE(host::exists(kLock));
  EXPECT_EQ(FileLock(kPath, std::chrono::seconds(20)).result(), Result::held);
  EXPECT_FALSE(host::exists(kLock));
}

TEST_F(FileLockTest, TwoWaitersGetTheLockOneAfterTheOtherWhenItsHolderDies) {
  Child holder(holdForever);
  waitFor([] { return host::exists("/tmp/held"); });
  const auto enter = [] {
    const FileLock lock(kPath);
    if (!lock.isLocked() || ::mkdir("/tmp/inside", 0700) != 0) return 1;
    std::this_thread::sleep_for(milliseconds(50));
    return ::rmdir("/tmp/inside") == 0 ? 0 : 1;
  };
  Child one(enter);
  Child two(enter);
  std::this_thread::sleep_for(milliseconds(100));
  holder.end(SIGKILL);
  EXPECT_EQ(one.wait(), 0);
  EXPECT_EQ(two.wait(), 0);
  EXPECT_FALSE(host::exists(kLock));
}

TEST_F(FileLockTest, AWaiterOnARemovedOrReplacedLockFileStartsOver) {
  struct Case {
    const char* why;
    void (*replace)();
  };
  const Case cases[] = {
      {"removed", [] {}},
      {"replaced",
       [] {
         host::writeFile("/tmp/lock/other", "");  // so that the number of the removed file is not used again
         host::writeFile(kLock, "");
       }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    // The holder removes the file and releases the lock after the waiter has opened the file.
    FaultPlan plan;
    plan.calls = {"openat", "flock"};
    plan.before = [&c](std::size_t call) {
      if (call != 2) return;
      host::remove(kLock);
      c.replace();
    };
    const ArmedFaults armed{plan};
    const FileLock lock(kPath);
    EXPECT_TRUE(lock.isLocked());
    EXPECT_THAT(armed.calls(), testing::ElementsAre("openat", "flock", "openat", "flock"));
    EXPECT_TRUE(host::exists(kLock));  // a new one, locked
    EXPECT_TRUE(isHeldElsewhere());
  }
}

TEST_F(FileLockTest, AFileThatReplacedTheLockFileIsNotRemoved) {
  FileLock lock(kPath);
  ASSERT_EQ(::unlink(kLock), 0);
  const FileLock other(kPath, kAtOnce);
  ASSERT_TRUE(other.isLocked());
  lock.release();
  EXPECT_TRUE(host::exists(kLock));
}

TEST_F(FileLockTest, EightProcessesLoseNoneOfTheirIncrements) {
  constexpr int processes = 8;
  constexpr int increments = 2000;
  host::writeFile("/tmp/counter", "0");
  const auto work = [] {
    for (int i = 0; i < increments; ++i) {
      const FileLock lock("/tmp/counter");
      char text[16] = {};
      const UniqueFd fd(::open("/tmp/counter", O_RDWR | O_CLOEXEC));
      if (!lock.isLocked() || ::read(fd.get(), text, sizeof text - 1) < 1) return 1;
      const std::string next = std::to_string(std::atoi(text) + 1);
      if (::pwrite(fd.get(), next.data(), next.size(), 0) < 1) return 1;
    }
    return 0;
  };
  {
    std::vector<std::unique_ptr<Child>> children;
    for (int i = 0; i < processes; ++i) children.push_back(std::make_unique<Child>(work));
    for (auto& child : children) EXPECT_EQ(child->wait(), 0);
  }
  EXPECT_EQ(host::readFile("/tmp/counter"), "16000");
  EXPECT_FALSE(host::exists("/tmp/lock/counter.lock"));
}

TEST_F(FileLockTest, TwoProcessesWithOneNameInTwoDirectoriesExcludeEachOtherUnderLoad) {
  constexpr int rounds = 2000;
  const auto work = [](const std::string& path) {
    for (int i = 0; i < rounds; ++i) {
      const FileLock lock(path);
      if (!lock.isLocked() || ::mkdir("/tmp/inside", 0700) != 0 || ::rmdir("/tmp/inside") != 0) return 1;
    }
    return 0;
  };
  Child one([&] { return work("/etc/zuv/profiles/profile-1/hip.conf"); });
  Child two([&] { return work("/etc/zuv/profiles/profile-2/hip.conf"); });
  EXPECT_EQ(one.wait(), 0);
  EXPECT_EQ(two.wait(), 0);
  EXPECT_FALSE(host::exists(kLock));
}

int livesOn() {
  for (;;) ::pause();
}

// The child inherits the descriptor, but the release removes the file to which its lock belongs.
TEST_F(FileLockTest, AReleasedLockIsFreeEvenIfAChildOfItsHolderLivesOn) {
  FileLock lock(kPath);
  const Child child(livesOn);
  lock.release();
  EXPECT_FALSE(host::exists(kLock));
  EXPECT_EQ(FileLock(kPath, kAtOnce).result(), Result::held);
}

// Takes the lock, starts a child that lives on and, if `execs`, is another program by then, and dies with the lock.
void dieWithTheLockButLeaveAChild(bool execs) {
  Child holder([execs] {
    const FileLock lock(kPath);
    if (!lock.isLocked()) return 1;
    const pid_t child = ::fork();
    if (child == 0) {
      if (execs) ::execl("/bin/sleep", "sleep", "1000", nullptr);
      if (!execs) (void)livesOn();
      ::_exit(127);
    }
    const std::string program = "/proc/" + std::to_string(child) + "/comm";
    while (execs && host::readFile(program) != "sleep\n") std::this_thread::sleep_for(milliseconds(1));
    host::writeFile("/tmp/child", std::to_string(child));
    ::_exit(0);
  });
  EXPECT_EQ(holder.wait(), 0);
  EXPECT_TRUE(host::exists(kLock)) << "nobody has released the lock";
}

TEST_F(FileLockTest, TheLockOfADeadHolderIsFreeIfItsChildHasExecutedAProgramAndElseOnceTheChildIsDead) {
  for (const bool execs : {true, false}) {
    SCOPED_TRACE(execs);
    dieWithTheLockButLeaveAChild(execs);
    EXPECT_EQ(FileLock(kPath, kAtOnce).result(), execs ? Result::held : Result::busy);
    ASSERT_EQ(::kill(std::stoi(host::readFile("/tmp/child")), SIGKILL), 0);
    EXPECT_EQ(FileLock(kPath, std::chrono::seconds(20)).result(), Result::held);
    EXPECT_FALSE(host::exists(kLock));
  }
}

TEST_F(FileLockTest, ThreadsExcludeEachOtherAndTheUmaskIsRestored) {
  ::umask(027);
  // In effect a plain counter: an update is lost if two threads increment it at the same time. It is atomic only
  // because the thread sanitizer knows nothing of file locks and would report a race.
  std::atomic<int> counter{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        const FileLock lock(kPath);
        if (lock.isLocked()) counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter, 800);
  EXPECT_EQ(::umask(022), 027u);
}

TEST_F(FileLockTest, AFaultWhileLockingMeansNoLockAndAFaultAnywhereLeaksNothing) {
  const FaultLoop loop{[] { host::reset(); }};
  const std::size_t steps = forEachFault(
      loop, [] { return FileLock(kPath).result(); },
      [](Result result, const Fault& fault) {
        const bool isRelease = fault.step > 6;
        EXPECT_EQ(result, fault && !isRelease ? Result::unavailable : Result::held);
      });
  // open, openat, fstat, flock, fstat, fstatat; fstat, fstatat, unlinkat, close, close
  EXPECT_EQ(steps, 11u);
}

TEST_F(FileLockTest, AnInterruptedWaitContinues) {
  const ArmedFaults armed{FaultPlan{1, false, EINTR, {"flock"}}};
  EXPECT_TRUE(FileLock(kPath).isLocked());
}

// A process reads the lock directory once. GoogleTest runs suites whose name ends in DeathTest first, so no other test
// of this process has read it yet.
using FileLockDirectoryDeathTest = HostTest;

TEST_F(FileLockDirectoryDeathTest, TheRootMayBeTheLockDirectory) {
  host::makeDirs("/tmp/root");
  Child child([] {
    ::setenv("ZUV_LOCK_DIR", "/", 1);
    if (::chroot("/tmp/root") != 0 || ::chdir("/") != 0) return 2;
    const FileLock lock("hip.conf");
    return lock.isLocked() && lock.lockPath() == "/hip.conf.lock" && host::exists("/hip.conf.lock") ? 0 : 1;
  });
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(host::tree("/tmp/root"), "");
}

TEST_F(FileLockDirectoryDeathTest, AMissingLockDirectoryIsMade) {
  Child child([] {
    ::setenv("ZUV_LOCK_DIR", "/tmp/locks", 1);
    const FileLock lock("/etc/zuv/profiles/profile-1/hip.conf");
    return lock.isLocked() && host::tree("/tmp/locks") == "f 0666 hip.conf.lock \"\"\n" ? 0 : 1;
  });
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(host::modeOf("/tmp/locks"), 0750u);
  EXPECT_EQ(host::tree("/tmp/locks"), "");
}

}  // namespace
