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
  host::makeDirs("/etc/zuv/profiles/profile-123127", 0700);
  EXPECT_EQ(made(), "profile-123128");
  EXPECT_EQ(host::tree(host::kProfiles),
            "f 0644 profile-123123 \"\"\n"
            "l profile-123124 -> nowhere\n"
            "l profile-123125 -> /tmp\n"
            "p 0644 profile-123126\n"
            "d 0700 profile-123127\n"
            "d 0755 profile-123128\n");
}

TEST_F(NewProfileDirectoryTest, TheSearchEndsAtTheThirdFailureInARowAndAtOnceWithoutAStore) {
  const auto makeTwo = [] {
    made();
    made();
  };
  const auto replaceStore = [] {
    host::remove(host::kProfiles);
    host::writeFile("/etc/zuv/profiles", "");
  };
  const struct {
    const char* why;
    void (*put)();
    FaultPlan plan;
    const char* dirname;
    std::size_t calls;
  } cases[] = {
      {"after one failure the next number is tried", [] {}, {1, false, EACCES, {"mkdirat"}}, "profile-123124", 2},
      {"three failures in a row", [] {}, {1, true, EACCES, {"mkdirat"}}, "", 3},
      {"three failures after two existing entries", makeTwo, {3, true, ENOSPC, {"mkdirat"}}, "", 5},
      {"a read-only store", [] { host::setMode(host::kProfiles, 0555); }, {0, false, 0, {"mkdirat"}}, "", 3},
      {"a missing store", [] { host::remove(host::kProfiles); }, {0, false, 0, {"mkdirat"}}, "", 0},
      {"a store that is a file", replaceStore, {0, false, 0, {"mkdirat"}}, "", 0},
      {"the last number is 999998", [] {}, {1, true, EEXIST, {"mkdirat"}}, "", 999998u - 123123u + 1u},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    c.put();
    const std::string before = host::tree(host::kProfiles);
    {
      const host::BoundByModes bound;
      const ArmedFaults armed(c.plan);
      EXPECT_EQ(made(c.dirname[0] != '\0'), c.dirname);
      EXPECT_EQ(armed.count(), c.calls);
    }
    if (c.dirname[0] == '\0') {
      EXPECT_EQ(host::tree(host::kProfiles), before);
    }
  }
}

TEST_F(NewProfileDirectoryTest, AnExistingEntryBetweenFailuresRestartsTheirCount) {
  host::makeDirs("/etc/zuv/profiles/profile-123125");
  host::setMode(host::kProfiles, 0555);
  FaultPlan plan;
  plan.calls = {"mkdirat"};
  plan.before = [](std::size_t number) {
    if (number == 6) host::setMode(host::kProfiles, 0755);
  };
  const host::BoundByModes bound;
  const ArmedFaults armed(plan);
  EXPECT_EQ(made(), "profile-123128");
  EXPECT_EQ(armed.count(), 6u);
}

TEST_F(NewProfileDirectoryTest, ADirectoryWhoseModeCannotBeSetIsNotLeftBehind) {
  ::umask(077);
  const ArmedFaults armed({1, false, EPERM, {"fchmodat"}});
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
        if (fault.fromThereOn && fault.call == "fchmodat") {
          EXPECT_EQ(dirname, "");
          EXPECT_EQ(store, "d 0755 profile-123123\n") << "every later call fails, so the directory cannot be removed";
        } else {
          EXPECT_EQ(store, dirname.empty() ? "" : "d 0755 " + dirname + "\n");
        }
      });
  EXPECT_EQ(steps, 4u);  // openat2, mkdirat, fchmodat, close
}

}  // namespace
