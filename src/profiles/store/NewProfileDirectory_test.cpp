// Tests of creating numbered directories, where mkdir itself decides who gets which number.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "profiles/store/ProfileStore.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using NewProfileDirectoryTest = HostTest;

// Returns the name of the new directory, or "" if none was created.
std::string made(bool expected = true) {
  std::string dir = "left over";
  std::string dirname = "left over";
  EXPECT_EQ(ProfileStore::newProfileDirectory(dir, dirname), expected);
  EXPECT_EQ(dir, expected ? "/etc/zuv/profiles/" + dirname : "");
  return dirname;
}

TEST_F(NewProfileDirectoryTest, NumbersStartAt123123AndIncreaseByOne) {
  EXPECT_EQ(made(), "profile-123123");
  EXPECT_EQ(made(), "profile-123124");
  EXPECT_EQ(host::tree(host::kProfiles), "d 0755 profile-123123\nd 0755 profile-123124\n");
}

TEST_F(NewProfileDirectoryTest, AGapIsFilled) {
  host::makeDirs("/etc/zuv/profiles/profile-123123");
  host::makeDirs("/etc/zuv/profiles/profile-123125");
  EXPECT_EQ(made(), "profile-123124");
}

TEST_F(NewProfileDirectoryTest, AnExistingEntryOfAnyKindIsSkipped) {
  host::writeFile("/etc/zuv/profiles/profile-123123", "");
  host::makeLink("/etc/zuv/profiles/profile-123124", "nowhere");
  host::makeLink("/etc/zuv/profiles/profile-123125", "/tmp");
  host::makeFifo("/etc/zuv/profiles/profile-123126");
  EXPECT_EQ(made(), "profile-123127");
  EXPECT_EQ(host::tree(host::kProfiles),
            "f 0644 profile-123123 \"\"\n"
            "l profile-123124 -> nowhere\n"
            "l profile-123125 -> /tmp\n"
            "p 0644 profile-123126\n"
            "d 0755 profile-123127\n");
}

TEST_F(NewProfileDirectoryTest, TheModeIs0755WhateverTheUmask) {
  for (const mode_t mask : {mode_t{022}, mode_t{0}, mode_t{0777}}) {
    SCOPED_TRACE(mask);
    ::umask(mask);
    const std::string dirname = made();
    ::umask(022);
    EXPECT_EQ(host::modeOf(host::kProfiles + dirname), 0755u);
  }
}

TEST_F(NewProfileDirectoryTest, AfterOneOtherFailureTheNextNumberIsTried) {
  const ArmedFaults armed({1, false, EACCES, {"mkdir"}});
  EXPECT_EQ(made(), "profile-123124");
  EXPECT_EQ(armed.count(), 2u);
}

TEST_F(NewProfileDirectoryTest, ThreeFailuresInARowEndTheSearch) {
  const ArmedFaults armed({1, true, EACCES, {"mkdir"}});
  EXPECT_EQ(made(false), "");
  EXPECT_EQ(armed.count(), 3u);
}

TEST_F(NewProfileDirectoryTest, ThreeFailuresAfterExistingEntriesEndTheSearch) {
  made();
  made();
  const ArmedFaults armed({3, true, ENOSPC, {"mkdir"}});
  EXPECT_EQ(made(false), "");
  EXPECT_EQ(armed.count(), 5u);
}

TEST_F(NewProfileDirectoryTest, AnExistingEntryBetweenFailuresRestartsTheirCount) {
  host::makeDirs("/etc/zuv/profiles/profile-123125");
  host::setMode(host::kProfiles, 0555);
  FaultPlan plan;
  plan.calls = {"mkdir"};
  plan.before = [](std::size_t number) {
    if (number == 6) host::setMode(host::kProfiles, 0755);
  };
  const host::BoundByModes bound;
  const ArmedFaults armed(plan);
  EXPECT_EQ(made(), "profile-123128");
  EXPECT_EQ(armed.count(), 6u);
}

TEST_F(NewProfileDirectoryTest, AMissingRootEndsTheSearchAtOnce) {
  host::remove(host::kProfiles);
  const ArmedFaults armed({0, false, 0, {"mkdir"}});
  EXPECT_EQ(made(false), "");
  EXPECT_EQ(armed.count(), 1u);
}

TEST_F(NewProfileDirectoryTest, ARootThatIsAFileEndsTheSearchAtOnce) {
  host::remove(host::kProfiles);
  host::writeFile("/etc/zuv/profiles", "");
  const ArmedFaults armed({0, false, 0, {"mkdir"}});
  EXPECT_EQ(made(false), "");
  EXPECT_EQ(armed.count(), 1u);
}

TEST_F(NewProfileDirectoryTest, AReadOnlyRootEndsTheSearchAfterThreeFailures) {
  host::setMode(host::kProfiles, 0555);
  {
    const host::BoundByModes bound;
    const ArmedFaults armed({0, false, 0, {"mkdir"}});
    EXPECT_EQ(made(false), "");
    EXPECT_EQ(armed.count(), 3u);
  }
  EXPECT_EQ(host::tree(host::kProfiles), "");
}

TEST_F(NewProfileDirectoryTest, TheLastNumberIs999998) {
  const ArmedFaults armed({1, true, EEXIST, {"mkdir"}});
  EXPECT_EQ(made(false), "");
  EXPECT_EQ(armed.count(), 999998u - 123123u + 1u);
}

TEST_F(NewProfileDirectoryTest, ADirectoryWhoseModeCannotBeSetIsNotLeftBehind) {
  ::umask(077);
  const ArmedFaults armed({1, false, EPERM, {"chmod"}});
  EXPECT_EQ(made(), "profile-123124");
  EXPECT_EQ(host::tree(host::kProfiles), "d 0755 profile-123124\n");
}

TEST_F(NewProfileDirectoryTest, RacingProcessesGetDifferentDirectories) {
  constexpr int processes = 6;
  constexpr int rounds = 40;
  for (int i = 0; i < processes; ++i) {
    if (::fork() != 0) continue;
    int failures = 0;
    for (int round = 0; round < rounds; ++round) {
      std::string dir;
      std::string dirname;
      // If two processes got the same directory, only one of them could create the directory inside.
      const bool isOwn = ProfileStore::newProfileDirectory(dir, dirname) && ::mkdir((dir + "/own").c_str(), 0755) == 0;
      failures += isOwn ? 0 : 1;
    }
    ::_exit(failures);
  }
  for (int i = 0; i < processes; ++i) {
    int ended = -1;
    ASSERT_GT(::wait(&ended), 0);
    EXPECT_EQ(ended, 0);
  }
  EXPECT_TRUE(host::exists("/etc/zuv/profiles/profile-123362"));
  EXPECT_FALSE(host::exists("/etc/zuv/profiles/profile-123363"));
}

TEST_F(NewProfileDirectoryTest, AFaultAnywhereLeavesOneDirectoryOrNone) {
  const FaultLoop loop{[] { host::reset(); }};
  const std::size_t steps = forEachFault(
      loop,
      [] {
        std::string dir;
        std::string dirname;
        (void)ProfileStore::newProfileDirectory(dir, dirname);
        return dirname;
      },
      [](const std::string& dirname, const Fault& fault) {
        const std::string store = host::tree(host::kProfiles);
        if (!fault) {
          EXPECT_EQ(dirname, "profile-123123");
        }
        if (fault.fromThereOn && fault.call == "chmod") {
          EXPECT_EQ(dirname, "");
          EXPECT_EQ(store, "d 0755 profile-123123\n") << "every later call fails, so the directory cannot be removed";
        } else {
          EXPECT_EQ(store, dirname.empty() ? "" : "d 0755 " + dirname + "\n");
        }
      });
  EXPECT_EQ(steps, 2u);  // mkdir, chmod
}

}  // namespace
