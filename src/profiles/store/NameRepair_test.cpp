#include "profiles/store/NameRepair.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/system/Leftover.h"
#include "base/system/UniqueFd.h"
#include "testing/faults/FaultInjector.h"
#include "testing/models/SkippedPauses.h"
#include "testing/run/HostTest.h"

namespace {

using Result = NameRepair::Result;
using testing::ElementsAre;

constexpr uid_t kStranger = 65534;
constexpr const char* kDir = "/etc/zuv/profiles/profile-1";
constexpr const char* kName = "/etc/zuv/profiles/profile-1/profile_name";
constexpr const char* kSecret = "/etc/zuv/secret";

class RepairOfANameTest : public HostTest {
 protected:
  // Repairs as a listing does that has read `listed`: every name but "free" is taken.
  Result repair(const std::string& listed) {
    found_.clear();
    name_ = "left over";
    const auto choose = [this](const std::string& found) {
      found_.push_back(found);
      return found == "free" ? found : (found.empty() ? "profile" : found) + "#2";
    };
    return NameRepair::run(kDir, listed, choose, name_);
  }

  std::string name_;
  std::vector<std::string> found_;
};

TEST_F(RepairOfANameTest, TheNameIsMadeFromWhatTheFileHoldsUnderTheLock) {
  struct Case {
    const char* why;
    const char* onDisk;  // null: no file
    const char* listed;
    const char* name;
    const char* after;
  };
  const Case cases[] = {
      {"the name that was listed is replaced", "lab\n", "lab", "lab#2", "f 0640 profile_name \"lab#2\\n\"\n"},
      {"a longer file is cut", "lab\nand more\n", "lab", "lab#2", "f 0640 profile_name \"lab#2\\n\"\n"},
      {"a missing name is made", nullptr, "", "profile#2", "f 0640 profile_name \"profile#2\\n\"\n"},
      {"an empty name is made", "", "", "profile#2", "f 0640 profile_name \"profile#2\\n\"\n"},
      {"a free name written meanwhile stays", "free", "lab", "free", "f 0600 profile_name \"free\"\n"},
      {"a free name written meanwhile to an empty file stays", "free", "", "free", "f 0600 profile_name \"free\"\n"},
      {"a taken name written meanwhile is the new base", "new", "lab", "new#2", "f 0640 profile_name \"new#2\\n\"\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    host::makeDirs(kDir);
    if (c.onDisk != nullptr) host::writeFile(kName, c.onDisk, 0600);
    EXPECT_EQ(repair(c.listed), Result::done);
    EXPECT_EQ(name_, c.name);
    EXPECT_EQ(host::tree(kDir), c.after);
  }
}

struct OtherKind {
  const char* why;
  void (*make)();
  Result result;
};
const OtherKind kOtherKinds[] = {
    {"a FIFO", [] { host::makeFifo(kName); }, Result::done},
    {"a socket", [] { host::makeSocket(kName); }, Result::done},
    {"a link to itself", [] { host::makeLink(kName, kName); }, Result::done},
    {"a link to a device", [] { host::makeLink(kName, "/dev/zero"); }, Result::done},
    {"a link to a directory", [] { host::makeLink(kName, "/tmp"); }, Result::done},
    {"a link into a missing directory", [] { host::makeLink(kName, "/tmp/missing/name"); }, Result::done},
    {"a link through a file", [] { host::makeLink(kName, "/dev/null/name"); }, Result::done},
    {"a link to a name that is too long", [] { host::makeLink(kName, std::string(256, 'x')); }, Result::done},
    {"a directory", [] { host::makeDirs(kName); }, Result::failed},
};

TEST_F(RepairOfANameTest, ARegularFileTakesThePlaceOfAnythingButADirectory) {
  for (const OtherKind& c : kOtherKinds) {
    SCOPED_TRACE(c.why);
    host::reset();
    host::makeDirs(kDir);
    c.make();
    const std::string before = host::tree(kDir);
    EXPECT_EQ(repair(""), c.result);
    EXPECT_EQ(host::tree(kDir), c.result == Result::done ? "f 0640 profile_name \"profile#2\\n\"\n" : before);
  }
}

TEST_F(RepairOfANameTest, AnUntrustedLinkIsReplacedAndItsTargetNeitherReadNorWritten) {
  SKIP_WITHOUT_OTHER_USERS();
  for (const bool isLinkOfRoot : {false, true}) {
    SCOPED_TRACE(isLinkOfRoot ? "root's link in a stranger's directory" : "a stranger's link");
    host::reset();
    host::writeFile(kSecret, "secret\n", 0600);
    host::makeLink(kName, kSecret);
    host::giveTo(kStranger, isLinkOfRoot ? kDir : kName);
    EXPECT_EQ(repair("lab"), Result::done);
    EXPECT_EQ(host::tree(kDir), "f 0640 profile_name \"profile#2\\n\"\n");
    EXPECT_EQ(host::readFile(kSecret), "secret\n");
  }
}

TEST_F(RepairOfANameTest, ALinkSwappedAtAnyStepTellsNoSecretAndChangesNoTarget) {
  SKIP_WITHOUT_OTHER_USERS();
  std::size_t steps = 1;
  for (std::size_t at = 1; at <= steps; ++at) {
    SCOPED_TRACE(at);
    host::reset();
    host::writeFile(kSecret, "secret\n", 0600);
    host::writeFile(kName, "lab\n");
    host::giveTo(kStranger, kName);
    host::giveTo(kStranger, kDir);
    FaultPlan plan;
    plan.before = [at](std::size_t call) {
      if (call != at) return;
      host::remove(kName);
      host::makeLink(kName, kSecret);
      host::giveTo(kStranger, kName);
    };
    {
      const ArmedFaults armed(plan);
      (void)repair("lab");
      steps = std::max(steps, armed.count());
    }
    EXPECT_EQ(host::readFile(kSecret), "secret\n");
    EXPECT_EQ(host::modeOf(kSecret), 0600u);
    EXPECT_EQ(host::tree(kDir).find("secret\\n"), std::string::npos);
    for (const std::string& found : found_) EXPECT_NE(found, "secret");
  }
  EXPECT_GT(steps, 10u);
}

TEST_F(RepairOfANameTest, AllRepairsOfALimitTogetherWaitOneSecondForLocksAndThenWriteNothing) {
  host::writeFile(kName, "lab\n");
  const UniqueFd lock(::open(kName, O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  for (const bool isLimited : {true, false}) {
    SCOPED_TRACE(isLimited);
    const SkippedPauses skipped;
    std::optional<NameRepair::Limit> outer;
    if (isLimited) outer.emplace();
    for (int i = 0; i < 3; ++i) {
      std::optional<NameRepair::Limit> inner;
      if (isLimited) inner.emplace();
      EXPECT_EQ(repair("lab"), Result::notWritten);
      EXPECT_EQ(name_, "lab#2") << "it is listed under its unique name";
    }
    EXPECT_EQ(skipped.total(), std::chrono::seconds(isLimited ? 1 : 3));
  }
  EXPECT_EQ(host::readFile(kName), "lab\n");
}

TEST_F(RepairOfANameTest, WithoutLocksTheNameIsWritten) {
  host::writeFile(kName, "lab\n");
  const ArmedFaults armed(FaultPlan{1, true, EOPNOTSUPP, {"flock"}});
  EXPECT_EQ(repair("lab"), Result::done);
  EXPECT_EQ(host::readFile(kName), "lab#2\n");
}

TEST_F(RepairOfANameTest, AVanishedDirectoryIsGone) {
  EXPECT_EQ(repair("lab"), Result::gone);
  EXPECT_FALSE(host::exists(kDir));
  host::writeFile(kDir, "a file");
  EXPECT_EQ(repair("lab"), Result::gone);
}

TEST_F(RepairOfANameTest, NoNameIsMadeInADirectoryThatIsMovedBeforeTheLastLook) {
  host::makeDirs(kDir);
  std::vector<std::string> calls;
  {
    const ArmedFaults counted{FaultPlan{}};
    ASSERT_EQ(repair(""), Result::done);
    calls = counted.calls();
  }
  const auto looks = std::find(calls.rbegin(), calls.rend(), "fstatat");
  ASSERT_NE(looks, calls.rend());
  const auto lastLook = static_cast<std::size_t>(calls.rend() - looks);
  for (std::size_t at = 1; at <= calls.size(); ++at) {
    SCOPED_TRACE(at);
    host::reset();
    host::remove("/etc/zuv/moved");
    host::makeDirs(kDir);
    FaultPlan plan;
    plan.before = [at](std::size_t call) {
      if (call != at) return;
      ASSERT_EQ(::rename(kDir, "/etc/zuv/moved"), 0);
    };
    {
      const ArmedFaults armed(plan);
      EXPECT_EQ(repair(""), at <= lastLook ? Result::gone : Result::done);
    }
    EXPECT_FALSE(host::exists(kDir));
    EXPECT_EQ(host::tree("/etc/zuv/moved"), at <= lastLook ? "" : "f 0640 profile_name \"profile#2\\n\"\n");
  }
}

TEST_F(RepairOfANameTest, IfMemoryRunsOutANewFileIsRemovedAndAnOldOneStays) {
  for (const bool isNew : {true, false}) {
    SCOPED_TRACE(isNew);
    host::reset();
    host::makeDirs(kDir);
    if (!isNew) host::writeFile(kName, "lab\n");
    FaultPlan plan;
    plan.calls = {"write"};
    plan.before = [](std::size_t) { removeLeftovers(); };
    const ArmedFaults armed(plan);
    repair(isNew ? "" : "lab");
    EXPECT_EQ(armed.count(), 1u);
    EXPECT_EQ(host::exists(kName), !isNew);
  }
}

TEST_F(RepairOfANameTest, AFailedWriteStopsAListingOnlyInADirectoryOfOurOwn) {
  SKIP_WITHOUT_OTHER_USERS();
  for (const bool isOurs : {true, false}) {
    SCOPED_TRACE(isOurs ? "our own directory" : "a stranger's directory");
    host::reset();
    host::writeFile(kName, "lab\n");
    if (!isOurs) host::giveTo(kStranger, kDir);
    if (!isOurs) host::giveTo(kStranger, kName);
    const ArmedFaults armed(FaultPlan{1, true, EIO, {"write"}});
    EXPECT_EQ(repair("older"), isOurs ? Result::failed : Result::notWritten);
    EXPECT_EQ(name_, "lab#2") << "from what the file holds";
  }
}

TEST_F(RepairOfANameTest, AHardLinkToAFileOfAnotherOwnerStays) {
  SKIP_WITHOUT_OTHER_USERS();
  host::makeDirs(kDir);
  host::writeFile(kSecret, "secret\n", 0600);
  ASSERT_EQ(::link(kSecret, kName), 0);
  host::giveTo(kStranger, kDir);
  EXPECT_EQ(repair(""), Result::notWritten);
  EXPECT_THAT(found_, ElementsAre(""));
  EXPECT_EQ(host::readFile(kSecret), "secret\n");
}

TEST_F(RepairOfANameTest, ARegularFileThatTookThePlaceOfALinkMeanwhileIsKept) {
  host::makeDirs(kDir);
  host::makeLink(kName, kName);
  FaultPlan plan;
  plan.calls = {"fstatat"};
  plan.before = [](std::size_t call) {
    if (call != 1) return;
    host::remove(kName);
    host::writeFile(kName, "free", 0600);
  };
  const ArmedFaults armed(plan);
  EXPECT_EQ(repair(""), Result::done);
  EXPECT_EQ(name_, "free");
  EXPECT_EQ(host::tree(kDir), "f 0600 profile_name \"free\"\n");
}

TEST_F(RepairOfANameTest, ALinkThatSomebodyElseRemovesMeanwhileIsNoFailure) {
  host::makeDirs(kDir);
  host::makeLink(kName, kName);
  FaultPlan plan;
  plan.calls = {"fstatat"};
  plan.before = [](std::size_t call) {
    if (call == 1) host::remove(kName);
  };
  const ArmedFaults armed(plan);
  EXPECT_EQ(repair(""), Result::done);
  EXPECT_EQ(host::tree(kDir), "f 0640 profile_name \"profile#2\\n\"\n");
}

// The name is read under the lock over a second descriptor.
TEST_F(RepairOfANameTest, WithoutASecondDescriptorTheNameStays) {
  host::writeFile(kName, "lab\n");
  rlimit old = {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &old), 0);
  FaultPlan plan;
  plan.calls = {"flock"};
  plan.before = [&old](std::size_t) {
    const rlimit none = {3, old.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  };
  Result result = Result::done;
  {
    const ArmedFaults armed(plan);
    result = repair("lab");
  }
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &old), 0);
  EXPECT_EQ(result, Result::failed);
  EXPECT_EQ(host::readFile(kName), "lab\n");
}

TEST_F(RepairOfANameTest, ANameThatCannotBeMadeInThePlaceOfALinkIsAFailure) {
  std::size_t fault = 0;
  for (const bool isFaulty : {false, true}) {
    SCOPED_TRACE(isFaulty);
    host::reset();
    host::makeDirs(kDir);
    host::makeLink(kName, kName);
    const ArmedFaults armed(FaultPlan{fault, false, EIO, {}});
    EXPECT_EQ(repair(""), isFaulty ? Result::failed : Result::done);
    const std::vector<std::string> calls = armed.calls();
    const auto removal = std::find(calls.begin(), calls.end(), "unlinkat");
    ASSERT_NE(removal, calls.end());
    fault = static_cast<std::size_t>(removal - calls.begin()) + 2;  // the call after it opens the name
  }
  EXPECT_EQ(host::tree(kDir), "");
}

TEST_F(RepairOfANameTest, ADirectoryThatIsMovedOrRemovedBeforeItsNameIsOpenedIsGone) {
  host::writeFile(kName, "lab\n");
  std::vector<std::string> calls;
  {
    const ArmedFaults counted{FaultPlan{0, false, EIO, {"openat", "flock"}}};
    ASSERT_EQ(repair("lab"), Result::done);
    calls = counted.calls();
  }
  // The name is opened by the call before the lock.
  const auto opensTheName = static_cast<std::size_t>(std::find(calls.begin(), calls.end(), "flock") - calls.begin());
  ASSERT_LT(opensTheName, calls.size());
  for (const bool isRemoved : {false, true}) {
    SCOPED_TRACE(isRemoved ? "removed" : "moved, and the name cannot be opened");
    host::reset();
    host::writeFile(kName, "lab\n");
    FaultPlan plan{isRemoved ? 0 : opensTheName, false, EIO, {"openat"}};
    plan.before = [isRemoved, opensTheName](std::size_t call) {
      if (call != opensTheName) return;
      if (isRemoved) host::remove(kDir);
      if (!isRemoved) {
        ASSERT_EQ(::rename(kDir, "/etc/zuv/moved"), 0);
      }
    };
    const ArmedFaults armed(plan);
    EXPECT_EQ(repair("lab"), Result::gone);
    EXPECT_FALSE(host::exists(kDir));
  }
}

}  // namespace
