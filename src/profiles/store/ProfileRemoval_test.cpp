#include "profiles/store/ProfileRemoval.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "base/system/UniqueFd.h"
#include "command/status/AppStatusCodes.h"
#include "testing/faults/FaultInjector.h"
#include "testing/models/SkippedPauses.h"
#include "testing/run/HostTest.h"

namespace {

constexpr const char* kDir = "/etc/zuv/profiles/profile-1";
constexpr const char* kLeftover = "/etc/zuv/profiles/.deleted-1";
constexpr const char* kOther = "/etc/zuv/other";

class ProfileRemovalTest : public HostTest {
 protected:
  // A profile with a certificate and a subdirectory.
  static void prepare() {
    host::reset();
    host::makeProfile("profile-1", "lab");
    host::writeFile(kDir + std::string("/ca-certs/ca.pem"), "pem");
    host::writeFile(kDir + std::string("/logs/log"), "x");
  }
};

std::string store() { return host::tree(host::kProfiles); }
Status removeIt() { return removeProfile("profile-1"); }

TEST_F(ProfileRemovalTest, TheRenameComesWhenNothingButTheNameIsLeft) {
  prepare();
  std::string before;
  std::string after;
  FaultPlan plan;
  plan.calls = {"renameat2", "unlinkat"};
  plan.before = [&](std::size_t) {
    if (host::exists(kDir)) {
      before = store();
    } else if (after.empty()) {
      after = store();
    }
  };
  const ArmedFaults armed(plan);
  EXPECT_THAT(removeIt(), HasCode(status::success));
  EXPECT_EQ(before, "d 0755 profile-1\nf 0640 profile-1/profile_name \"lab\\n\"\n");
  EXPECT_EQ(after, "d 0755 .deleted-1\nf 0640 .deleted-1/profile_name \"lab\\n\"\n");
  EXPECT_EQ(store(), "");
}

struct FailedStep {
  const char* why;
  FaultPlan plan;
  StatusCode code;
  const char* left;
};

TEST_F(ProfileRemovalTest, AStepThatFailsLeavesWhatTheHeaderSays) {
  const FailedStep cases[] = {
      {"a system without this rename removes in place", {1, true, ENOSYS, {"renameat2"}}, status::success, ""},
      {"so does a file system without it", {1, true, EINVAL, {"renameat2"}}, status::success, ""},
      {"a taken number can also be an error of its own", {1, false, ENOTEMPTY, {"renameat2"}}, status::success, ""},
      {"if all 999,999 numbers are taken, it removes in place", {1, true, EEXIST, {"renameat2"}}, status::success, ""},
      {"no lock is needed", {1, true, EOPNOTSUPP, {"flock"}}, status::success, ""},
      // The root, and then the profile.
      {"a profile that cannot be opened stays", {3, false, EACCES, {"openat"}}, status::applicationError, nullptr},
  };
  for (const FailedStep& c : cases) {
    SCOPED_TRACE(c.why);
    prepare();
    const std::string all = store();
    {
      const ArmedFaults armed(c.plan);
      EXPECT_THAT(removeIt(), HasCode(c.code));
    }
    EXPECT_EQ(store(), c.left == nullptr ? all : c.left);
  }
}

TEST_F(ProfileRemovalTest, AProfileThatIsNotEmptyAnyMoreIsNotRemovedInPlace) {
  prepare();
  FaultPlan plan{1, true, ENOSYS, {"renameat2"}};
  plan.before = [](std::size_t) { host::writeFile(kDir + std::string("/late"), "written meanwhile"); };
  const ArmedFaults armed(plan);
  EXPECT_THAT(removeIt(), HasCode(status::applicationError));
  EXPECT_EQ(store(), "d 0755 profile-1\nf 0644 profile-1/late \"written meanwhile\"\n");
}

// The number of the first rename among the calls of a delete that count.
std::size_t numberOfRename(const CallNames& counted) {
  const ArmedFaults armed(FaultPlan{0, false, EIO, counted});
  EXPECT_THAT(removeIt(), HasCode(status::success));
  const std::vector<std::string> calls = armed.calls();
  return static_cast<std::size_t>(std::find(calls.begin(), calls.end(), "renameat2") - calls.begin()) + 1;
}

TEST_F(ProfileRemovalTest, AProfileThatSomebodyElseRemovesBeforeTheLastStepInPlaceIsASuccess) {
  prepare();
  const CallNames counted = {"renameat2", "unlinkat"};
  const std::size_t rename = numberOfRename(counted);
  prepare();
  FaultPlan plan{rename, false, ENOSYS, counted};
  plan.before = [rename](std::size_t call) {
    if (call == rename + 2) host::remove(kDir);  // after the unlink of the name
  };
  const ArmedFaults armed(plan);
  EXPECT_THAT(removeIt(), HasCode(status::success));
  EXPECT_EQ(armed.count(), rename + 2);
  EXPECT_EQ(store(), "");
}

TEST_F(ProfileRemovalTest, ADirectoryThatWasMovedByMistakeGoesBackEvenIfTheProfileCannotBeLookedUp) {
  prepare();
  const CallNames counted = {"renameat2", "fstat"};
  const std::size_t rename = numberOfRename(counted);
  prepare();
  host::writeFile(kOther + std::string("/file"), "other");
  FaultPlan plan{rename + 2, false, EIO, counted};  // the first fstat after the rename belongs to the comparison
  plan.before = [rename](std::size_t call) {
    if (call != rename) return;
    ASSERT_EQ(::rename(kDir, "/etc/zuv/moved"), 0);
    ASSERT_EQ(::rename(kOther, kDir), 0);
  };
  const ArmedFaults armed(plan);
  EXPECT_THAT(removeIt(), HasCode(status::profileNotFound));
  EXPECT_EQ(store(), "d 0755 profile-1\nf 0644 profile-1/file \"other\"\n");
}

TEST_F(ProfileRemovalTest, ALinkThatCannotBeRemovedStays) {
  host::makeLink(kDir, kOther);
  const ArmedFaults armed(FaultPlan{1, true, EPERM, {"unlinkat"}});
  EXPECT_THAT(removeIt(), HasCode(status::applicationError));
  EXPECT_EQ(armed.count(), 1u);
  EXPECT_EQ(store(), "l profile-1 -> /etc/zuv/other\n");
}

TEST_F(ProfileRemovalTest, AfterTheRenameADeleteIsASuccessWhateverIsLeft) {
  prepare();
  bool isRenamed = false;
  FaultPlan plan;
  plan.calls = {"renameat2", "unlinkat"};
  plan.before = [&](std::size_t) {
    if (isRenamed || host::exists(kDir)) return;
    isRenamed = true;
    host::writeFile(kLeftover + std::string("/late"), "written meanwhile");
  };
  {
    const ArmedFaults armed(plan);
    EXPECT_THAT(removeIt(), HasCode(status::success));
  }
  EXPECT_EQ(store(), "d 0755 .deleted-1\nf 0644 .deleted-1/late \"written meanwhile\"\n");
}

TEST_F(ProfileRemovalTest, ADeleteThatAnotherOneFinishesIsASuccess) {
  prepare();
  FaultPlan plan;
  plan.calls = {"fstatat"};
  plan.before = [](std::size_t) { host::remove(kLeftover); };
  const ArmedFaults armed(plan);
  EXPECT_THAT(removeIt(), HasCode(status::success));
  EXPECT_EQ(store(), "");
}

// The second delete removes what the first one has moved, and moves its own profile to the same name.
TEST_F(ProfileRemovalTest, ADeleteNeverBringsBackTheProfileOfAnotherDelete) {
  prepare();
  host::makeProfile("profile-2", "harbour");
  bool hasRun = false;
  FaultPlan plan;
  plan.calls = {"fstatat"};
  plan.before = [&](std::size_t) {
    if (hasRun || !host::exists(kLeftover)) return;
    hasRun = true;
    host::remove(kLeftover);
    ASSERT_EQ(::rename("/etc/zuv/profiles/profile-2", kLeftover), 0);
  };
  {
    const ArmedFaults armed(plan);
    EXPECT_THAT(removeIt(), HasCode(status::success));
  }
  EXPECT_TRUE(hasRun);
  EXPECT_EQ(store(),
            "d 0755 .deleted-1\nf 0644 .deleted-1/hip.conf \"\"\nf 0640 .deleted-1/profile_name \"harbour\\n\"\n");
}

TEST_F(ProfileRemovalTest, ADirectoryWhoseNameIsNotThatOfADeleteStays) {
  host::reset();
  for (const char* name : {".deleted-", ".deleted-x", ".deleted-1x", ".deleted", ".deleted--1"}) {
    host::writeFile(std::string("/etc/zuv/profiles/") + name + "/profile_name", "old");
  }
  const std::string before = store();
  host::makeProfile("profile-1", "lab");
  host::writeFile("/etc/zuv/profiles/.deleted-007/profile_name", "old");
  EXPECT_THAT(removeIt(), HasCode(status::success));
  EXPECT_EQ(store(), before);
}

TEST_F(ProfileRemovalTest, ALaterDeleteRemovesTheNameAndTheEmptyDirectoryOfAnEarlierOneAndNothingElse) {
  prepare();
  host::writeFile("/etc/zuv/profiles/.deleted-1/profile_name", "old");
  host::makeDirs("/etc/zuv/profiles/.deleted-2");
  host::writeFile("/etc/zuv/profiles/.deleted-3/profile_name", "old");
  host::writeFile("/etc/zuv/profiles/.deleted-3/keep", "x");
  host::makeDirs("/etc/zuv/profiles/.deleted-4/profile_name");
  host::writeFile("/etc/zuv/profiles/.deleted-5", "a file");
  host::writeFile("/etc/zuv/other/profile_name", "other");
  host::makeLink("/etc/zuv/profiles/.deleted-6", kOther);
  EXPECT_THAT(removeIt(), HasCode(status::success));
  EXPECT_EQ(store(),
            "d 0755 .deleted-3\nf 0644 .deleted-3/keep \"x\"\nd 0755 .deleted-4\nd 0755 .deleted-4/profile_name\n"
            "f 0644 .deleted-5 \"a file\"\nl .deleted-6 -> /etc/zuv/other\n");
  EXPECT_EQ(host::readFile("/etc/zuv/other/profile_name"), "other");
}

TEST_F(ProfileRemovalTest, ATakenNumberMeansTheNextOne) {
  prepare();
  host::writeFile("/etc/zuv/profiles/.deleted-1/keep", "x");
  host::writeFile("/etc/zuv/profiles/.deleted-2", "a file");
  std::string moved;
  FaultPlan plan;
  plan.calls = {"unlinkat"};
  plan.before = [&](std::size_t) {
    if (moved.empty() && !host::exists(kDir)) moved = store();
  };
  const ArmedFaults armed(plan);
  EXPECT_THAT(removeIt(), HasCode(status::success));
  EXPECT_EQ(moved,
            "d 0755 .deleted-1\nf 0644 .deleted-1/keep \"x\"\nf 0644 .deleted-2 \"a file\"\n"
            "d 0755 .deleted-3\nf 0640 .deleted-3/profile_name \"lab\\n\"\n");
}

// Puts another directory in the place of the profile, before the n-th call for each n.
TEST_F(ProfileRemovalTest, ADirectoryThatTakesThePlaceOfTheOpenProfileIsNeverTouched) {
  constexpr std::size_t kCallsUntilItIsOpen = 9;  // the listing of the root, with four readdir, and the opening
  for (const bool isEmpty : {false, true}) {
    SCOPED_TRACE(isEmpty ? "an empty directory" : "a profile");
    std::size_t steps = kCallsUntilItIsOpen + 1;
    for (std::size_t at = kCallsUntilItIsOpen + 1; at <= steps; ++at) {
      SCOPED_TRACE(at);
      prepare();
      host::makeDirs(kOther);
      if (!isEmpty) host::writeFile(kOther + std::string("/ca-certs/ca.pem"), "other");
      if (!isEmpty) host::writeFile(kOther + std::string("/profile_name"), "other");
      const std::string other = host::tree(kOther);
      bool isSwapped = false;
      FaultPlan plan;
      plan.before = [&](std::size_t call) {
        if (call != at || !host::exists(kDir)) return;
        isSwapped = ::rename(kDir, "/etc/zuv/moved") == 0 && ::rename(kOther, kDir) == 0;
      };
      Status removed;
      {
        const ArmedFaults armed(plan);
        removed = removeIt();
        steps = std::max(steps, armed.count());
      }
      EXPECT_THAT(removed, HasCode(isSwapped ? status::profileNotFound : status::success));
      EXPECT_EQ(host::tree(isSwapped ? kDir : kOther), other);
      EXPECT_EQ(host::exists(kDir), isSwapped);
    }
    EXPECT_GT(steps, 30u);
  }
}

TEST_F(ProfileRemovalTest, AnotherDeleteOfTheProfileIsWaitedFor) {
  prepare();
  UniqueFd lock(::open(kDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  std::thread release([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(host::exists(kDir + std::string("/ca-certs/ca.pem"))) << "nothing is removed without the lock";
    lock.reset();
  });
  EXPECT_THAT(removeIt(), HasCode(status::success));
  release.join();
  EXPECT_EQ(store(), "");
}

TEST_F(ProfileRemovalTest, WithoutAFreeNumberBelowAMillionTheProfileIsRemovedInPlace) {
  prepare();
  const ArmedFaults armed(FaultPlan{1, true, EEXIST, {"renameat2"}});
  EXPECT_THAT(removeIt(), HasCode(status::success));
  EXPECT_EQ(armed.count(), 999'999u);
  EXPECT_EQ(store(), "");
}

TEST_F(ProfileRemovalTest, WhatIsNoDirectoryIsRemovedOnlyIfItIsALink) {
  struct Case {
    const char* why;
    std::function<void()> make;
    StatusCode code;
    const char* left;
  };
  const Case cases[] = {
      {"a missing directory is no failure", [] {}, status::success, ""},
      {"a link is removed alone", [] { host::makeLink(kDir, kOther); }, status::success, ""},
      {"a link to nothing is removed", [] { host::makeLink(kDir, "/missing"); }, status::success, ""},
      {"a file stays", [] { host::writeFile(kDir, ""); }, status::applicationError, "f 0644 profile-1 \"\"\n"},
      {"a FIFO stays", [] { host::makeFifo(kDir); }, status::applicationError, "p 0644 profile-1\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    host::writeFile(kOther + std::string("/profile_name"), "other");
    c.make();
    EXPECT_THAT(removeIt(), HasCode(c.code));
    EXPECT_EQ(store(), c.left);
    EXPECT_EQ(host::readFile(kOther + std::string("/profile_name")), "other");
  }
  EXPECT_THAT(removeProfile(""), HasCode(status::applicationError));
}

TEST_F(ProfileRemovalTest, TheNameMayBeAFileOrAnyLinkButNothingElse) {
  struct Case {
    const char* why;
    void (*make)(const std::string& name);
    const char* left;  // nullptr: the profile is deleted
  };
  const Case cases[] = {
      {"a file", [](const std::string& name) { host::writeFile(name, "lab\n"); }, nullptr},
      {"no name", [](const std::string&) {}, nullptr},
      {"a link to a file", [](const std::string& name) { host::makeLink(name, "/etc/zuv/other/file"); }, nullptr},
      {"a link to a directory", [](const std::string& name) { host::makeLink(name, kOther); }, nullptr},
      {"a broken link", [](const std::string& name) { host::makeLink(name, "missing"); }, nullptr},
      {"a directory goes with the rest", [](const std::string& name) { host::writeFile(name + "/file", ""); }, nullptr},
      {"a FIFO stays", [](const std::string& name) { host::makeFifo(name); },
       "d 0755 profile-1\np 0644 profile-1/profile_name\n"},
      {"a socket stays", [](const std::string& name) { host::makeSocket(name); },
       "d 0755 profile-1\ns 0644 profile-1/profile_name\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    prepare();
    host::writeFile(kOther + std::string("/file"), "other");
    host::remove(kDir + std::string("/profile_name"));
    c.make(kDir + std::string("/profile_name"));
    EXPECT_THAT(removeIt(), HasCode(c.left == nullptr ? status::success : status::applicationError));
    EXPECT_EQ(store(), c.left == nullptr ? "" : c.left);
    EXPECT_EQ(host::tree(kOther), "f 0644 file \"other\"\n");
  }
}

TEST_F(ProfileRemovalTest, LinksInTheProfileAreRemovedAndNeverFollowed) {
  prepare();
  host::writeFile(kOther + std::string("/file"), "other");
  host::remove(kDir + std::string("/ca-certs"));
  host::makeLink(kDir + std::string("/ca-certs"), kOther);
  host::makeLink(kDir + std::string("/peer_certs"), "/missing");
  host::makeLink(kDir + std::string("/logs/link"), "../../../other");
  host::remove(kDir + std::string("/profile_name"));
  host::makeLink(kDir + std::string("/profile_name"), "/etc/zuv/other/file");
  EXPECT_THAT(removeIt(), HasCode(status::success));
  EXPECT_EQ(store(), "");
  EXPECT_EQ(host::tree(kOther), "f 0644 file \"other\"\n");
}

// The calls for a missing directory are an unlink, an open and a removal.
TEST_F(ProfileRemovalTest, ALinkInThePlaceOfADirectoryOfCertificatesTakesOneCall) {
  const auto callsToRemoveIt = [] {
    const ArmedFaults counted{FaultPlan{}};
    EXPECT_THAT(removeIt(), HasCode(status::success));
    return counted.count();
  };
  host::makeProfile("profile-1", "lab");
  const std::size_t calls = callsToRemoveIt();
  host::makeProfile("profile-1", "lab");
  host::makeLink(kDir + std::string("/ca-certs"), "/missing");
  EXPECT_EQ(callsToRemoveIt(), calls - 2);
  EXPECT_EQ(store(), "");
}

TEST_F(ProfileRemovalTest, ADeleteWaitsTenSecondsAtMostForAnotherOneAndThenRemovesNothing) {
  prepare();
  const std::string before = store();
  const UniqueFd lock(::open(kDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  const SkippedPauses skipped;
  EXPECT_THAT(removeIt(), HasCode(status::applicationError));
  EXPECT_EQ(skipped.total(), std::chrono::seconds(10));
  EXPECT_EQ(store(), before);
}

}  // namespace
