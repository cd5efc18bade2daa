// Tests the tools of the interleavings: the switch between programs, their clock, and the checks.
#include "Interleaver.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>

#include "Attacks.h"
#include "Orders.h"
#include "base/system/UniqueFd.h"
#include "testing/run/HostTest.h"

namespace {

using testing::IsEmpty;
using testing::Not;

const std::string kProfile = std::string(host::kProfiles) + "profile-2";
const std::vector<std::string> kList = {"list", "profiles"};
const std::vector<std::string> kRename = {"profile", "rename", "dir=profile-2", "new_name=den"};
const std::vector<std::string> kRenameAgain = {"profile", "rename", "dir=profile-2", "new_name=burrow"};
const std::vector<std::string> kDelete = {"profile", "delete", "dir=profile-2"};

class InterleaverTest : public Interleavings {
 protected:
  void SetUp() override {
    Interleavings::SetUp();
    if (IsSkipped()) return;
    soundStore().putBack();
  }

  // The number of the first call of this name on this path, if the command runs alone.
  static std::size_t numberOf(const std::string& name, const std::string& path, const std::vector<std::string>& words) {
    Interleaving plan = planOf({words});
    plan.keepCalls = true;
    const Ending ending = perform(soundStore(), plan);
    soundStore().putBack();
    for (const TracedCall& call : ending.run.programs[0].calls) {
      if (call.name == name && call.path == path) return call.number;
    }
    throw std::runtime_error("no call " + name);
  }

  static std::string nameOfProfile() { return host::readFile(kProfile + "/profile_name"); }
};

TEST_F(InterleaverTest, AProgramStopsBeforeACallAndTheOtherOneEndsMeanwhile) {
  const std::size_t write = numberOf("write", kProfile + "/profile_name", kRename);
  Interleaving plan = planOf({kRename, kList});
  plan.turns = {{0, write}, {1, kToItsEnd}};
  std::string nameAtTheStop;
  plan.afterFirstTurn = [&] { nameAtTheStop = nameOfProfile(); };
  const Interleaved run = interleave(plan);
  EXPECT_EQ(run.turnsReached, 1u);
  EXPECT_EQ(nameAtTheStop, "field office\n");
  EXPECT_NE(run.programs[1].out.find("profile-2\t'field office'\n"), std::string::npos) << run.programs[1].out;
  EXPECT_EQ(nameOfProfile(), "den\n");
}

TEST_F(InterleaverTest, TheTurnComesBack) {
  const std::size_t write = numberOf("write", kProfile + "/profile_name", kRename);
  const std::size_t read = numberOf("read", kProfile + "/profile_name", kList);
  Interleaving plan = planOf({kRename, kList});
  plan.turns = {{0, write}, {1, read}, {0, kToItsEnd}};
  const Interleaved run = interleave(plan);
  EXPECT_EQ(run.turnsReached, 2u);
  EXPECT_NE(run.programs[1].out.find("profile-2\t'den'\n"), std::string::npos) << run.programs[1].out;
}

TEST_F(InterleaverTest, TheSamePlanGivesTheSameCalls) {
  std::vector<std::string> calls[2];
  for (std::vector<std::string>& all : calls) {
    Interleaving plan = planOf({kRename, kDelete});
    plan.turns = {{0, 20}, {1, 40}};
    plan.keepCalls = true;
    const Ending ending = perform(soundStore(), plan);
    for (const InterleavedProgram& program : ending.run.programs) {
      for (const TracedCall& call : program.calls) all.push_back(call.name + " " + call.path);
    }
  }
  EXPECT_GT(calls[0].size(), 60u);
  EXPECT_EQ(calls[0], calls[1]);
}

TEST_F(InterleaverTest, AProgramThatEndsBeforeItsTurnReachesNoTurn) {
  Interleaving plan = planOf({kList});
  plan.turns = {{0, 100000}};
  bool acted = false;
  plan.afterFirstTurn = [&] { acted = true; };
  const Interleaved run = interleave(plan);
  EXPECT_EQ(run.turnsReached, 0u);
  EXPECT_FALSE(acted);
  EXPECT_EQ(run.programs[0].exitStatus, 0);
}

TEST_F(InterleaverTest, AWaitTakesNoTimeButIsCounted) {
  const UniqueFd name(::open((kProfile + "/profile_name").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(name.get(), LOCK_EX), 0);
  const auto begin = std::chrono::steady_clock::now();
  const Interleaved run = interleave(planOf({kRename}));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900));
  EXPECT_GE(run.waited, std::chrono::seconds(1));
  EXPECT_EQ(nameOfProfile(), "den\n");
}

TEST_F(InterleaverTest, AProgramThatWaitsLetsTheOtherOneGoOn) {
  const std::size_t write = numberOf("write", kProfile + "/profile_name", kRename);
  Interleaving plan = planOf({kRename, kRenameAgain});
  plan.turns = {{0, write}, {1, kToItsEnd}};
  const Interleaved run = interleave(plan);
  EXPECT_GT(run.waited.count(), 0);
  EXPECT_LT(run.waited, std::chrono::milliseconds(100));
  EXPECT_EQ(nameOfProfile(), "burrow\n") << "the waiting program did not write after the other one";
}

TEST_F(InterleaverTest, AForgedCallIsNotMadeAndReturnsTheValue) {
  Interleaving plan = planOf({kDelete});
  std::size_t forged = 0;
  plan.forge = [&](std::size_t, const TracedCall& call) -> std::optional<long> {
    if (call.name != "renameat2" && call.name != "unlinkat") return std::nullopt;
    ++forged;
    return -EPERM;
  };
  const Interleaved run = interleave(plan);
  EXPECT_GT(forged, 0u);
  EXPECT_NE(run.programs[0].out.find("application error"), std::string::npos) << run.programs[0].out;
  EXPECT_TRUE(host::exists(kProfile + "/peers"));
}

TEST_F(InterleaverTest, AProgramThatHangsIsKilledAtTheTimeLimit) {
  host::makeFifo("/run/pipe");
  Interleaving plan;
  plan.programs = {{"/bin/cat", "/run/pipe"}};
  plan.seconds = 1;
  const Interleaved run = interleave(plan);
  EXPECT_TRUE(run.timedOut);
  EXPECT_EQ(run.programs[0].signal, SIGKILL);
  EXPECT_THAT(findingsOfRun(run), Not(IsEmpty()));
}

TEST_F(InterleaverTest, CallsOnFilesElsewhereAreNotCounted) {
  TracedCall call;
  for (const char* path : {"/etc/zuv/profiles/.current", "/etc/zuv", "/tmp/lock/hip.conf.lock", ""}) {
    call.path = path;
    EXPECT_TRUE(touchesStore(call)) << path;
  }
  for (const char* path : {"/etc/zuvx", "/tmp/locks", "/proc/self/status", "/memfd:output (deleted)"}) {
    call.path = path;
    EXPECT_FALSE(touchesStore(call)) << path;
  }
}

// --- The checks

class ChecksOfInterleavings : public InterleaverTest {
 protected:
  void SetUp() override {
    InterleaverTest::SetUp();
    if (IsSkipped()) return;
    pair_ = {"rename + delete", "", {kRename, kDelete}, soundStore()};
    serial_ = serialOf(pair_);
    ending_ = serial_.both[0];
  }

  std::vector<std::string> findings() const {
    std::vector<std::string> texts;
    for (const Finding& finding : findingsOf(pair_, serial_, ending_)) {
      texts.push_back(finding.subject + " | " + finding.state);
    }
    return texts;
  }

  Pair pair_;
  Serial serial_;
  Ending ending_;
};

TEST_F(ChecksOfInterleavings, FindNothingAfterASerialRun) {
  for (const Ending& ending : serial_.both) {
    ending_ = ending;
    EXPECT_THAT(findings(), IsEmpty());
  }
}

TEST_F(ChecksOfInterleavings, FindDamagedMissingAndLeftoverFiles) {
  const std::string conf = std::string(host::kProfiles) + "profile-3/hip.conf";
  ending_.found.addFile(conf, "# by ha", 0600);
  EXPECT_THAT(findings(), testing::ElementsAre(conf + " | \"# by ha\""));
  ending_.found.remove(conf);
  EXPECT_THAT(findings(), testing::ElementsAre(conf + " | gone"));
  ending_ = serial_.both[0];
  ending_.found.addFile("/tmp/lock/hip.conf.lock", "");
  EXPECT_THAT(findings(), testing::ElementsAre("/tmp/lock/hip.conf.lock | left"));
  ending_ = serial_.both[0];
  ending_.found.addFolder(kProfile);
  EXPECT_THAT(findings(), testing::ElementsAre(kProfile + " | older", "profile told as deleted | there"));
}

TEST_F(ChecksOfInterleavings, FindAnswersThatNoSerialRunGives) {
  ending_.run.programs[1].out = "status_text: stdlib error: rename\n";
  EXPECT_THAT(findings(), testing::ElementsAre("answer of profile delete | status_text: stdlib error: rename"));
}

TEST_F(ChecksOfInterleavings, FindLongWaitsAndOddEnds) {
  ending_.run.waited = std::chrono::seconds(12);
  ending_.run.timedOut = true;
  ending_.run.programs[0].err = "oh";
  ending_.run.programs[1].exitStatus = 1;
  EXPECT_THAT(findings(), testing::ElementsAre("run | did not end", "run | waited too long", "run | printed \"oh\"",
                                               "run | ended with a status other than 0"));
}

TEST_F(ChecksOfInterleavings, FindANameThatWasToldAndIsNotThere) {
  pair_.words[1] = kList;
  serial_ = serialOf(pair_);
  ending_ = serial_.both[0];
  EXPECT_THAT(findings(), IsEmpty());
  ending_.found.addFile(kProfile + "/profile_name", "field office\n", 0640);
  EXPECT_THAT(findings(), testing::ElementsAre(kProfile + "/profile_name | older",
                                               "name told by profile rename | \"field office\\n\""));
}

TEST_F(ChecksOfInterleavings, FindAListingThatDiffersFromTheStore) {
  soundStore().putBack();
  EXPECT_THAT(findingsOfListing(soundStore()), IsEmpty());
  Tree other = soundStore();
  other.addFile(kProfile + "/profile_name", "den\n", 0640);
  other.addFolder(std::string(host::kProfiles) + "profile-4");
  other.remove(std::string(host::kProfiles) + "profile-1");
  std::vector<std::string> states;
  for (const Finding& finding : findingsOfListing(other)) states.push_back(finding.state);
  EXPECT_THAT(states, testing::ElementsAre("shows profile-2 as field office, not den", "lacks profile-4",
                                           "shows profile-1, which does not exist"));
  storeToRepair().putBack();
  EXPECT_THAT(findingsOfListing(Tree::read()), Not(IsEmpty())) << "a repair was not noticed";
}

// --- The checks of attacks

class ChecksOfAttacks : public InterleaverTest {
 protected:
  void SetUp() override {
    InterleaverTest::SetUp();
    if (IsSkipped()) return;
    SKIP_WITHOUT_OTHER_USERS();
    peace_ = peaceOf(kRename);
    ending_ = peace_.after;
  }

  std::vector<std::string> findings() const {
    std::vector<std::string> texts;
    for (const Finding& finding : findingsOfAttack(Attack(), peace_, ending_)) {
      texts.push_back(finding.subject + " | " + finding.state);
    }
    return texts;
  }

  Peace peace_;
  Ending ending_;
};

TEST_F(ChecksOfAttacks, FindNothingWithoutAnAttack) { EXPECT_THAT(findings(), IsEmpty()); }

TEST_F(ChecksOfAttacks, FindASecretInAFileAndInAnAnswer) {
  ending_.found.addFile(kProfile + "/profile_name", "root's secret#2\n", 0640);
  ending_.run.programs[0].out = "profile_name: root's secret\n";
  EXPECT_THAT(findings(), testing::ElementsAre("answer | tells a secret: \"profile_name: root's secret\\n\"",
                                               kProfile + "/profile_name | holds a secret",
                                               kProfile + "/profile_name | \"root's secret#2\\n\""));
}

TEST_F(ChecksOfAttacks, FindASecretThatTheNextListingTells) {
  host::writeFile(kProfile + "/profile_name", "root's secret\n");
  EXPECT_THAT(findings(), testing::Contains(kProfile + "/profile_name | holds a secret"));
}

TEST_F(ChecksOfAttacks, FindChangedSecrets) {
  ending_.found.addFile("/run/secret", "den\n", 0600);
  ending_.found.addFile("/run/closed/hip.conf.lock", "");
  EXPECT_THAT(findings(), testing::ElementsAre("/run/secret | changed", "/run/closed | holds something new",
                                               "/run/closed/hip.conf.lock | left", "/run/secret | \"den\\n\""));
}

TEST_F(ChecksOfAttacks, FindADamagedFileAndAFailingListing) {
  ending_.found.addFile(kProfile + "/hip.conf", "# by", 0600);
  host::remove("/etc/zuv/profiles/profile-1");
  const std::vector<std::string> found = findings();
  EXPECT_THAT(found, testing::Contains(kProfile + "/hip.conf | \"# by\""));
  EXPECT_THAT(found, testing::Contains("next listing | lacks profile-1\t'lab'\n"));
}

}  // namespace
