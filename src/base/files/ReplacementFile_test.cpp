#include "base/files/ReplacementFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "testing/faults/FaultInjector.h"
#include "testing/models/SkippedPauses.h"
#include "testing/run/AsUser.h"
#include "testing/run/HostTest.h"

namespace {

using std::chrono::milliseconds;
using Clock = ReplacementFile::Clock;

constexpr uid_t kStranger = 65534;
constexpr const char* kFile = "/etc/zuv/hip.conf";
constexpr const char* kNew = "/etc/zuv/hip.conf.temp";
constexpr const char* kOutside = "/tmp/outside";

class ReplacementFileTest : public HostTest {};

Clock::time_point in(int limit) { return Clock::now() + milliseconds(limit); }

void write(const ReplacementFile& file, const std::string& text) {
  ASSERT_EQ(::write(file.fd(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

// Holds flock on a file, as an editor in another process does.
UniqueFd lockOf(const char* path) {
  UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(::flock(fd.get(), LOCK_EX | LOCK_NB), 0);
  return fd;
}

struct InTheWay {
  const char* why;
  std::function<void()> make;
};
const InTheWay kInTheWay[] = {
    {"nothing", [] {}},
    {"a file left over", [] { host::writeFile(kNew, "left over"); }},
    {"a file without permissions", [] { host::writeFile(kNew, "left over", 0); }},
    {"a link to a file", [] { host::makeLink(kNew, kOutside); }},
    {"a link to nothing", [] { host::makeLink(kNew, "/tmp/missing"); }},
    {"a FIFO", [] { host::makeFifo(kNew); }},
    {"a socket", [] { host::makeSocket(kNew); }},
};

TEST_F(ReplacementFileTest, WhatLiesInTheWayIsRemovedAtOnceAndNeverFollowed) {
  for (const InTheWay& c : kInTheWay) {
    SCOPED_TRACE(c.why);
    host::reset();
    host::writeFile(kFile, "old");
    host::writeFile(kOutside, "outside");
    c.make();
    ReplacementFile file;
    EXPECT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
    EXPECT_TRUE(file.isMade());
    EXPECT_EQ(host::modeOf(kNew), 0600u);
    write(file, "new");
    EXPECT_EQ(host::readFile(kFile), "old");
    EXPECT_TRUE(file.closeToWrite());
    EXPECT_TRUE(file.replaceOld());
    EXPECT_FALSE(file.isMade());
    EXPECT_EQ(host::readFile(kFile), "new");
    EXPECT_FALSE(host::exists(kNew));
    EXPECT_EQ(host::readFile(kOutside), "outside");
    EXPECT_FALSE(host::exists("/tmp/missing"));
  }
}

TEST_F(ReplacementFileTest, ABackslashBelongsToTheNameOfTheFile) {
  const std::string path = "/etc/zuv/a\\b.conf";
  host::writeFile("/etc/zuv/b.conf", "another");
  ReplacementFile file;
  EXPECT_THAT(file.make(path, in(5000)), HasCode(status::success));
  EXPECT_EQ(file.oldName(), "a\\b.conf");
  EXPECT_TRUE(host::exists(path + ".temp"));
  write(file, "new");
  EXPECT_TRUE(file.replaceOld());
  EXPECT_EQ(host::readFile(path), "new");
  EXPECT_EQ(host::readFile("/etc/zuv/b.conf"), "another");
}

TEST_F(ReplacementFileTest, TheNewFileIsCloseOnExec) {
  ReplacementFile file;
  ASSERT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
  EXPECT_EQ(::fcntl(file.fd(), F_GETFD), FD_CLOEXEC);
}

TEST_F(ReplacementFileTest, ADirectoryInTheWayStaysAndIsAnError) {
  host::makeDirs(kNew);
  ReplacementFile file;
  EXPECT_THAT(file.make(kFile, in(5000)), HasCode(status::openError));
  EXPECT_FALSE(file.isMade());
  EXPECT_TRUE(host::exists(kNew));
}

TEST_F(ReplacementFileTest, AStrangersFileIsRemovedAtOnceEvenIfItIsLocked) {
  SKIP_WITHOUT_OTHER_USERS();
  host::writeFile(kNew, "his");
  host::giveTo(kStranger, kNew);
  const UniqueFd lock = lockOf(kNew);
  ReplacementFile file;
  EXPECT_THAT(file.make(kFile, Clock::now()), HasCode(status::success));
}

TEST_F(ReplacementFileTest, AnEditorThatHasGivenItsFileToAStrangerIsWaitedForUntilItsRename) {
  SKIP_WITHOUT_OTHER_USERS();
  host::writeFile(kFile, "old");
  ReplacementFile first;
  ASSERT_THAT(first.make(kFile, in(5000)), HasCode(status::success));
  write(first, "first");
  ASSERT_TRUE(first.giveTo(kStranger, kStranger));
  ASSERT_TRUE(first.closeToWrite());
  std::thread end([&] {
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_TRUE(first.replaceOld());
  });
  ReplacementFile second;
  EXPECT_THAT(second.make(kFile, in(5000)), HasCode(status::success));
  end.join();
  EXPECT_EQ(host::readFile(kFile), "first");
  EXPECT_EQ(host::readFile(kNew), "");
  struct stat info = {};
  ASSERT_EQ(::stat(kFile, &info), 0);
  EXPECT_EQ(info.st_uid, kStranger);
  EXPECT_EQ(info.st_gid, kStranger);
}

TEST_F(ReplacementFileTest, ADirectoryThatStaysLockedDelaysARemovalAndANewOwnerByOneSecondEach) {
  SKIP_WITHOUT_OTHER_USERS();
  host::writeFile(kNew, "his");
  host::giveTo(kStranger, kNew);
  const UniqueFd lock = lockOf("/etc/zuv");
  const SkippedPauses skipped;
  ReplacementFile file;
  EXPECT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
  EXPECT_EQ(skipped.total(), milliseconds(1000));
  EXPECT_TRUE(file.giveTo(kStranger, kStranger));
  EXPECT_EQ(skipped.total(), milliseconds(2000));
  EXPECT_TRUE(file.replaceOld());
}

TEST_F(ReplacementFileTest, AFileThatTakesTheNameWhileTheDirectoryIsLockedStays) {
  SKIP_WITHOUT_OTHER_USERS();
  host::writeFile(kNew, "his");
  host::giveTo(kStranger, kNew);
  UniqueFd lock;
  FaultPlan plan;
  plan.calls = {"flock"};
  plan.before = [&lock](std::size_t call) {
    if (call != 1) return;
    host::remove(kNew);
    host::writeFile(kNew, "an editor's");
    lock = lockOf(kNew);
  };
  const ArmedFaults armed(plan);
  ReplacementFile file;
  EXPECT_THAT(file.make(kFile, Clock::now()), HasCode(status::openError));
  EXPECT_EQ(host::readFile(kNew), "an editor's");
}

TEST_F(ReplacementFileTest, AnEditorAtWorkIsWaitedForUntilTheDeadline) {
  ReplacementFile first;
  ASSERT_THAT(first.make(kFile, in(5000)), HasCode(status::success));
  write(first, "first");
  ASSERT_TRUE(first.closeToWrite()) << "the lock is held on";
  ReplacementFile second;
  {
    const SkippedPauses skipped;
    EXPECT_THAT(second.make(kFile, in(60)), HasCode(status::openError));
    EXPECT_THAT(skipped.millis(), testing::ElementsAre(1, 2, 4, 8, 16, 20, 9));
  }
  EXPECT_FALSE(second.isMade());
  EXPECT_EQ(host::readFile(kNew), "first");
  std::thread end([&] {
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_TRUE(first.replaceOld());
  });
  EXPECT_THAT(second.make(kFile, in(5000)), HasCode(status::success));
  end.join();
  EXPECT_EQ(host::readFile(kFile), "first");
  EXPECT_EQ(host::readFile(kNew), "");
}

TEST_F(ReplacementFileTest, AfterTheDeadlineAFreeNameIsStillTakenAndAFileLeftOverIsStillRemoved) {
  for (const bool isLeftOver : {false, true}) {
    SCOPED_TRACE(isLeftOver);
    if (isLeftOver) host::writeFile(kNew, "left over");
    ReplacementFile file;
    EXPECT_THAT(file.make(kFile, Clock::now() - milliseconds(1)), HasCode(status::success));
    EXPECT_EQ(host::readFile(kNew), "");
  }
}

TEST_F(ReplacementFileTest, WithoutLocksAnOldFileIsRemovedAtOnce) {
  host::writeFile(kNew, "left over");
  const UniqueFd lock = lockOf(kNew);
  const ArmedFaults armed{FaultPlan{1, true, EOPNOTSUPP, {"flock"}}};
  ReplacementFile file;
  EXPECT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
  EXPECT_EQ(host::readFile(kNew), "");
}

// A stranger who may write in the directory can do so at any moment.
TEST_F(ReplacementFileTest, AfterTheLockTheNameIsLookedUpOnceMore) {
  for (const bool isLeftover : {false, true}) {
    SCOPED_TRACE(isLeftover ? "a file left over is locked" : "the new file is locked");
    host::reset();
    if (isLeftover) host::writeFile(kNew, "left over");
    std::optional<UniqueFd> lock;
    FaultPlan plan;
    plan.calls = {"flock"};
    plan.before = [&](std::size_t call) {
      if (call != 1) return;
      host::remove(kNew);
      host::writeFile(kNew, "another editor's");
      lock.emplace(lockOf(kNew));
    };
    const ArmedFaults armed(plan);
    ReplacementFile file;
    EXPECT_THAT(file.make(kFile, in(100)), HasCode(status::openError));
    EXPECT_EQ(host::readFile(kNew), "another editor's");
    lock.reset();
    EXPECT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
    EXPECT_EQ(host::readFile(kNew), "");
  }
}

TEST_F(ReplacementFileTest, WhatCannotBeExaminedStaysAndEndsTheAttemptAtOnce) {
  const struct {
    const char* why;
    FaultPlan plan;
  } cases[] = {
      {"it cannot be found", {3, false, EMFILE, {"openat"}}},
      {"it cannot be opened: too many open files", {4, false, EMFILE, {"openat"}}},
      {"it cannot be opened: too many of the system", {4, false, ENFILE, {"openat"}}},
      {"it cannot be opened: out of memory", {4, false, ENOMEM, {"openat"}}},
      {"its stat fails", {2, false, EIO, {"fstat"}}},
      {"its name cannot be looked up", {1, false, EIO, {"fstatat"}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kNew, "perhaps another editor's");
    const auto start = Clock::now();
    const ArmedFaults armed(c.plan);
    ReplacementFile file;
    EXPECT_THAT(file.make(kFile, in(10000)), HasCode(status::openError));
    EXPECT_LT(Clock::now() - start, milliseconds(5000));
    EXPECT_EQ(host::readFile(kNew), "perhaps another editor's");
  }
}

TEST_F(ReplacementFileTest, AnOldFileThatMayNotBeOpenedIsRemoved) {
  host::writeFile(kNew, "left over", 0);
  const host::BoundByModes bound;
  ReplacementFile file;
  EXPECT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
  EXPECT_EQ(host::readFile(kNew), "");
}

TEST_F(ReplacementFileTest, AnOldFileThatSomebodyElseRemovesIsNoFailure) {
  const struct {
    const char* when;
    std::size_t at;
    const char* call;
  } cases[] = {{"before it is found", 3, "openat"}, {"before it is removed", 1, "unlinkat"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.when);
    host::reset();
    host::writeFile(kNew, "left over");
    FaultPlan plan;
    plan.calls = {c.call};
    plan.before = [&c](std::size_t call) {
      if (call == c.at) host::remove(kNew);
    };
    const ArmedFaults armed(plan);
    ReplacementFile file;
    EXPECT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
  }
}

TEST_F(ReplacementFileTest, WhatLiesInTheWayIsRemovedEvenIfTheDirectoryCannotBeLocked) {
  host::makeFifo(kNew);
  const ArmedFaults armed{FaultPlan{4, false, EMFILE, {"openat"}}};
  ReplacementFile file;
  ASSERT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
  EXPECT_EQ(host::readFile(kNew), "");
}

// Somebody finds the new file before it is locked, and takes it for left over.
TEST_F(ReplacementFileTest, ANewFileThatSomebodyElseLocksFirstIsWaitedForUntilTheDeadline) {
  UniqueFd lock;
  FaultPlan plan;
  plan.calls = {"flock"};
  plan.before = [&lock](std::size_t call) {
    if (call == 1) lock = lockOf(kNew);
  };
  const ArmedFaults armed(plan);
  ReplacementFile file;
  const auto start = Clock::now();
  EXPECT_THAT(file.make(kFile, in(100)), HasCode(status::openError));
  EXPECT_GE(Clock::now() - start, milliseconds(100));
  EXPECT_TRUE(host::exists(kNew));
  lock.reset();
  EXPECT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
}

TEST_F(ReplacementFileTest, AfterTheDeadlineANameThatIsTakenAgainAndAgainIsTriedThreeTimes) {
  FaultPlan plan;
  plan.calls = {"flock"};
  plan.before = [](std::size_t) {
    host::remove(kNew);
    host::writeFile(kNew, "another's");
  };
  const SkippedPauses skipped;
  const ArmedFaults armed(plan);
  ReplacementFile file;
  EXPECT_THAT(file.make(kFile, Clock::now()), HasCode(status::openError));
  EXPECT_EQ(armed.count(), 3u);
  EXPECT_EQ(skipped.total(), milliseconds(0));
  EXPECT_EQ(host::readFile(kNew), "another's");
}

TEST_F(ReplacementFileTest, AUserWaitsForAnotherEditorOfHisOwnOrOfRootsAndForNoStranger) {
  SKIP_WITHOUT_OTHER_USERS();
  host::setMode("/etc/zuv", 0777);
  for (const uid_t owner : {kStranger, uid_t{0}, kStranger - 1}) {
    SCOPED_TRACE(owner);
    host::remove(kNew);
    host::writeFile(kNew, "an editor's");
    host::giveTo(owner, kNew);
    const UniqueFd lock = lockOf(kNew);
    const AsUser user(kStranger);
    ReplacementFile file;
    EXPECT_THAT(file.make(kFile, Clock::now()), HasCode(owner == kStranger - 1 ? status::success : status::openError));
  }
}

// The second descriptor of the new file holds its lock.
TEST_F(ReplacementFileTest, WithoutASecondDescriptorTheNewFileIsRemoved) {
  rlimit old = {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &old), 0);
  FaultPlan plan;
  plan.calls = {"fstatat"};
  plan.before = [&old](std::size_t call) {
    const rlimit none = {3, old.rlim_max};
    if (call == 1) {
      ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    }
  };
  Status made;
  {
    const ArmedFaults armed(plan);
    ReplacementFile file;
    made = file.make(kFile, in(5000));
    EXPECT_FALSE(file.isMade());
  }
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &old), 0);
  EXPECT_THAT(made, HasCode(status::openError));
  EXPECT_FALSE(host::exists(kNew));
}

TEST_F(ReplacementFileTest, AFileThatWasNotMadeReplacesNothing) {
  host::writeFile(kFile, "old");
  host::writeFile(kNew, "another's");
  ReplacementFile file;
  EXPECT_FALSE(file.isMade());
  EXPECT_FALSE(file.replaceOld());
  EXPECT_EQ(host::readFile(kFile), "old");
}

TEST_F(ReplacementFileTest, ANewFileWhoseNameCannotBeLookedUpIsRemovedAtOnce) {
  const auto start = Clock::now();
  const ArmedFaults armed{FaultPlan{1, true, EIO, {"fstatat"}}};
  ReplacementFile file;
  EXPECT_THAT(file.make(kFile, in(10000)), HasCode(status::openError));
  EXPECT_LT(Clock::now() - start, milliseconds(5000));
  EXPECT_FALSE(host::exists(kNew));
}

TEST_F(ReplacementFileTest, AFileThatTookTheNameIsNeitherRenamedNorRemoved) {
  host::writeFile(kFile, "old");
  for (const bool isReplacing : {false, true}) {
    SCOPED_TRACE(isReplacing ? "replaceOld" : "remove");
    ReplacementFile file;
    ASSERT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
    write(file, "new");
    host::remove(kNew);
    host::writeFile(kNew, "another editor's");
    if (isReplacing) {
      EXPECT_FALSE(file.replaceOld());
    }
    file.remove();
    EXPECT_FALSE(file.isMade());
    EXPECT_EQ(host::readFile(kNew), "another editor's");
    EXPECT_EQ(host::readFile(kFile), "old");
    host::remove(kNew);
  }
}

TEST_F(ReplacementFileTest, OnlyAFileWithoutItsFinalNameIsRemovedAsALeftover) {
  for (const bool isReplacing : {false, true}) {
    SCOPED_TRACE(isReplacing ? "replaceOld" : "remove");
    ReplacementFile file;
    ASSERT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
    if (isReplacing) {
      EXPECT_TRUE(file.replaceOld());
    } else {
      file.remove();
    }
    host::writeFile(kNew, "another editor's");
    removeLeftovers();
    EXPECT_EQ(host::readFile(kNew), "another editor's");
    host::remove(kNew);
  }
  ReplacementFile file;
  ASSERT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
  removeLeftovers();
  EXPECT_FALSE(host::exists(kNew));
}

TEST_F(ReplacementFileTest, OnlyTheDirectoryStaysOpenOnceTheFileHasItsNameOrIsRemoved) {
  SKIP_WITHOUT_OTHER_USERS();
  for (const bool isReplacing : {false, true}) {
    SCOPED_TRACE(isReplacing ? "replaceOld" : "remove");
    ReplacementFile file;
    ASSERT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
    const std::size_t made = openDescriptors().size();
    ASSERT_TRUE(file.giveTo(kStranger, kStranger));
    if (isReplacing) {
      EXPECT_TRUE(file.closeToWrite());
      EXPECT_TRUE(file.replaceOld());
    } else {
      file.remove();
    }
    EXPECT_EQ(openDescriptors().size(), made - 2) << "only the descriptor of the directory is still open";
  }
}

TEST_F(ReplacementFileTest, ALinkInThePlaceOfTheOldFileIsReplacedItself) {
  host::writeFile(kOutside, "outside");
  host::makeLink(kFile, kOutside);
  ReplacementFile file;
  ASSERT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
  EXPECT_TRUE(file.replaceOld());
  EXPECT_EQ(host::tree("/etc/zuv"), "f 0600 hip.conf \"\"\nd 0755 profiles\n");
  EXPECT_EQ(host::readFile(kOutside), "outside");
}

TEST_F(ReplacementFileTest, TheDirectoryIsReachedOverTrustedLinksAlone) {
  SKIP_WITHOUT_OTHER_USERS();
  host::makeDirs("/etc/zuv/real");
  host::makeLink("/etc/zuv/way", "real");
  ReplacementFile file;
  EXPECT_THAT(file.make("/etc/zuv/way/hip.conf", in(5000)), HasCode(status::success));
  EXPECT_TRUE(host::exists("/etc/zuv/real/hip.conf.temp"));
  file.remove();
  host::giveTo(kStranger, "/etc/zuv/way");
  EXPECT_THAT(file.make("/etc/zuv/way/hip.conf", in(5000)), HasCode(status::openError));
  EXPECT_EQ(host::tree("/etc/zuv/real"), "");
}

TEST_F(ReplacementFileTest, ADirectoryThatIsMovedKeepsBothFiles) {
  host::writeFile("/etc/zuv/dir/hip.conf", "old");
  ReplacementFile file;
  ASSERT_THAT(file.make("/etc/zuv/dir/hip.conf", in(5000)), HasCode(status::success));
  ASSERT_EQ(::rename("/etc/zuv/dir", "/etc/zuv/moved"), 0);
  host::writeFile("/etc/zuv/dir/hip.conf", "another");
  write(file, "new");
  EXPECT_TRUE(file.replaceOld());
  EXPECT_EQ(host::tree("/etc/zuv/moved"), "f 0600 hip.conf \"new\"\n");
  EXPECT_EQ(host::readFile("/etc/zuv/dir/hip.conf"), "another");
}

TEST_F(ReplacementFileTest, EditorsAtTheSameTimeNeverWriteOneFile) {
  constexpr int editors = 3;
  constexpr int edits = 40;
  std::atomic<int> writing{0};
  std::vector<std::thread> threads;
  for (int editor = 0; editor < editors; ++editor) {
    threads.emplace_back([&] {
      for (int i = 0; i < edits; ++i) {
        ReplacementFile file;
        ASSERT_THAT(file.make(kFile, in(20000)), HasCode(status::success));
        EXPECT_EQ(++writing, 1);
        write(file, "whole");
        --writing;
        if (i % 2 == 0) {
          EXPECT_TRUE(file.replaceOld());
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(host::readFile(kFile), "whole");
  EXPECT_FALSE(host::exists(kNew));
}

TEST_F(ReplacementFileTest, AFaultAnywhereLeavesTheWholeOldOrNewFileAndNoOther) {
  const FaultLoop loop{[] {
    host::reset();
    host::writeFile(kFile, "old");
  }};
  const auto edit = [] {
    ReplacementFile file;
    if (!file.make(kFile, in(20)).isSuccess()) return false;
    return ::write(file.fd(), "new", 3) == 3 && file.closeToWrite() && file.replaceOld();
  };
  forEachFault(loop, edit, [](bool isReplaced, const Fault& fault) {
    EXPECT_EQ(host::readFile(kFile), isReplaced ? "new" : "old");
    EXPECT_TRUE(isReplaced || fault);
    if (!fault.fromThereOn) {  // where every later call fails, the new file cannot be removed
      EXPECT_FALSE(host::exists(kNew));
    }
  });
  EXPECT_EQ(fault_loop::run(loop, {}, edit),
            (std::vector<std::string>{"openat", "fstat",                      // open the directory
                                      "openat", "flock", "fstat", "fstatat",  // make and lock the new file
                                      "write", "close", "fstat", "fstatat", "renameat", "openat", "fsync", "close",
                                      "close", "close"}));
}

TEST_F(ReplacementFileTest, AFailureToGiveTheFileAwayOrToCloseItIsReported) {
  ReplacementFile file;
  EXPECT_FALSE(file.isMade());
  ASSERT_THAT(file.make(kFile, in(5000)), HasCode(status::success));
  EXPECT_EQ(file.oldName(), "hip.conf");
  {
    const ArmedFaults armed{FaultPlan{1, false, EPERM, {"fchown"}}};
    errno = 0;
    EXPECT_FALSE(file.giveTo(kStranger, kStranger));
    EXPECT_EQ(errno, EPERM);
  }
  const ArmedFaults armed{FaultPlan{1, false, EIO, {"close"}}};
  EXPECT_FALSE(file.closeToWrite());
}

}  // namespace
