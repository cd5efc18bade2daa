// Tests of activating, deleting, renaming and resetting profiles. ProfileModify_test.cpp tests modifying them.
#include "profiles/store/ProfileChanges.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "command/framework/Authorization.h"
#include "command/status/AppStatusCodes.h"
#include "profiles/store/ProfileStore.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using namespace std::string_literals;
using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr const char* kSystemctl = "/bin/systemctl";
constexpr const char* kCalls = "/tmp/calls";
constexpr const char* kLab = "/etc/zuv/profiles/profile-1";
constexpr const char* kOffice = "/etc/zuv/profiles/profile-2";

class ProfileChangesTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    setAuthorizationMode(authorizationAlways);
    host::makeProfile("profile-1", "lab");
    host::makeProfile("profile-2", "office");
    host::makeProfile(".factory", "template");
    host::makeActive("profile-1");
    host::installRecorder(kSystemctl, kCalls);
    before_ = store();
  }
  void TearDown() override { setAuthorizationMode(authorizationNever); }

  static std::string store() { return host::tree(host::kProfiles); }
  static std::string calls() { return host::exists(kCalls) ? host::readFile(kCalls) : ""; }
  static std::string current() { return host::readFile(host::kCurrent); }
  static void makeStopped() { host::writeFile(kLab + "/hipvars.txt"s, "uptime.now=1\nuptime.started=1\n"); }

  std::string before_;
};

// --- The first steps that all operations share

TEST_F(ProfileChangesTest, EveryOperationChecksAuthorizationFirst) {
  for (const int mode : {authorizationNever, 3, -1}) {
    setAuthorizationMode(mode);
    for (const std::string selector : {"lab", "missing", "", ".factory", "dir="}) {
      std::string name = "left over";
      ProfileDetails details;
      EXPECT_THAT(ProfileChanges::activateProfile(selector, "systemd", name), HasCode(status::authenticationError));
      EXPECT_EQ(name, "");
      EXPECT_THAT(ProfileChanges::deleteProfile(selector), HasCode(status::authenticationError));
      EXPECT_THAT(ProfileChanges::renameProfile(selector, "", name), HasCode(status::authenticationError));
      EXPECT_THAT(ProfileChanges::resetProfile(selector, name), HasCode(status::authenticationError));
      EXPECT_THAT(ProfileChanges::modifyProfile(selector, {}, details), HasCode(status::authenticationError));
    }
  }
  EXPECT_EQ(store(), before_);
  EXPECT_EQ(calls(), "");
}

TEST_F(ProfileChangesTest, InRootOnlyModeOnlyRootMayChangeProfiles) {
  SKIP_WITHOUT_OTHER_USERS();
  setAuthorizationMode(authorizationRootOnly);
  std::string name;
  ASSERT_EQ(::seteuid(1000), 0);
  const Status refused = ProfileChanges::renameProfile("lab", "x", name);
  ASSERT_EQ(::seteuid(0), 0);
  EXPECT_THAT(refused, HasCode(status::authenticationError));
  EXPECT_THAT(ProfileChanges::renameProfile("lab", "x", name), HasCode(status::success));
}

TEST_F(ProfileChangesTest, AFailedResolutionEndsEveryOperationWithItsStatus) {
  const struct {
    const char* selector;
    StatusCode code;
  } cases[] = {{"missing", status::profileNotFound},      {"dir=", status::invalidArgument},
               {"dir=missing", status::profileNotFound},  {"dir=../../../tmp", status::profileNotFound},
               {"dir=.current", status::profileNotFound}, {"Lab", status::profileNotFound}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.selector);
    std::string name = "left over";
    ProfileDetails details;
    EXPECT_THAT(ProfileChanges::activateProfile(c.selector, "systemd", name), HasCode(c.code));
    EXPECT_EQ(name, "");
    EXPECT_THAT(ProfileChanges::deleteProfile(c.selector), HasCode(c.code));
    EXPECT_THAT(ProfileChanges::renameProfile(c.selector, "x", name), HasCode(c.code));
    EXPECT_THAT(ProfileChanges::resetProfile(c.selector, name), HasCode(c.code));
    EXPECT_THAT(ProfileChanges::modifyProfile(c.selector, {}, details), HasCode(c.code));
  }
  EXPECT_EQ(store(), before_);
  EXPECT_EQ(calls(), "");
}

TEST_F(ProfileChangesTest, AStoreThatCannotBeListedIsAnApplicationError) {
  host::makeFifo("/etc/zuv/profiles/profile-3/profile_name");
  std::string name;
  ProfileDetails details;
  EXPECT_THAT(ProfileChanges::activateProfile("lab", "systemd", name), HasCode(status::applicationError));
  EXPECT_THAT(ProfileChanges::deleteProfile("lab"), HasCode(status::applicationError));
  EXPECT_THAT(ProfileChanges::renameProfile("lab", "x", name), HasCode(status::applicationError));
  EXPECT_THAT(ProfileChanges::resetProfile("lab", name), HasCode(status::applicationError));
  EXPECT_THAT(ProfileChanges::modifyProfile("lab", {}, details), HasCode(status::applicationError));
}

TEST_F(ProfileChangesTest, TheTemplateCanOnlyBeResetHoweverItIsSelected) {
  host::writeFile("/etc/zuv/profiles/.factory/hip.state", "x");
  before_ = store();
  for (const char* selector : {".factory", "dir=.factory"}) {
    SCOPED_TRACE(selector);
    std::string name;
    ProfileDetails details;
    ProfileChanges::Modification wanted;
    wanted.newName = "";
    EXPECT_THAT(ProfileChanges::activateProfile(selector, "systemd", name), HasCode(status::invalidArgument));
    EXPECT_THAT(ProfileChanges::deleteProfile(selector), HasCode(status::invalidArgument));
    const Status renamed = ProfileChanges::renameProfile(selector, "", name);
    EXPECT_THAT(renamed, HasCode(status::invalidArgument));
    EXPECT_EQ(renamed.details(), "") << "refused before the name is checked";
    const Status modified = ProfileChanges::modifyProfile(selector, wanted, details);
    EXPECT_THAT(modified, HasCode(status::invalidArgument));
    EXPECT_EQ(modified.details(), "");
  }
  EXPECT_EQ(store(), before_);
  EXPECT_EQ(calls(), "");
  std::string name;
  EXPECT_THAT(ProfileChanges::resetProfile(".factory", name), HasCode(status::success));
  EXPECT_EQ(name, ".factory");
  EXPECT_FALSE(host::exists("/etc/zuv/profiles/.factory/hip.state"));
}

// --- Activate

using ActivateTest = ProfileChangesTest;

TEST_F(ActivateTest, AnInactiveProfileBecomesActiveWhateverTheStateOfTheDaemon) {
  const struct {
    const char* why;
    void (*put)();
  } cases[] = {
      {"running", [] { host::writeHeartbeat(kLab); }},
      {"not running", [] { host::remove(kLab + "/hipvars.txt"s); }},
      {"an old heartbeat", [] { makeStopped(); }},
      {"unknown", [] { host::writeFile(kLab + "/hipvars.txt"s, "x=1\n"); }},
      {"no active profile", [] { host::remove(host::kCurrent); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::makeActive("profile-1");
    host::remove(kCalls);
    c.put();
    std::string name;
    EXPECT_THAT(ProfileChanges::activateProfile("office", "systemd", name), HasCode(status::success));
    EXPECT_EQ(name, "office");
    EXPECT_EQ(calls(), "systemctl stop hip\nsystemctl start hip\n");
    EXPECT_EQ(current(), "profile-2\n");
    EXPECT_EQ(host::modeOf(host::kCurrent), 0666u);
  }
}

TEST_F(ActivateTest, TheActiveRunningProfileIsLeftAlone) {
  host::writeHeartbeat(kLab);
  before_ = store();
  for (const char* selector : {"lab", "dir=profile-1", ".current", "--active"}) {
    std::string name;
    EXPECT_THAT(ProfileChanges::activateProfile(selector, "systemd", name), HasCode(status::success));
    EXPECT_EQ(name, "lab");
  }
  EXPECT_EQ(calls(), "");
  EXPECT_EQ(store(), before_);
}

TEST_F(ActivateTest, TheActiveStoppedProfileIsOnlyStarted) {
  host::setMode(host::kCurrent, 0600);
  before_ = store();
  std::string name;
  EXPECT_THAT(ProfileChanges::activateProfile("lab", "systemd", name), HasCode(status::success));
  EXPECT_EQ(name, "lab");
  EXPECT_EQ(calls(), "systemctl start hip\n");
  EXPECT_EQ(store(), before_) << "the marker is not touched";
}

TEST_F(ActivateTest, AnEmptySelectorIsAnInvalidArgument) {
  std::string name = "left over";
  EXPECT_THAT(ProfileChanges::activateProfile("", "systemd", name), HasCode(status::invalidArgument));
  EXPECT_EQ(name, "");
  EXPECT_EQ(calls(), "");
}

TEST_F(ActivateTest, TheStatusIsThatOfTheStart) {
  const struct {
    const char* why;
    const char* script;
    StatusCode code;
  } cases[] = {
      {"exit status", "exit 5\n", status::childExitedNonzero},
      {"signal", "kill -TERM $$\n", status::childKilledBySignal},
      {"missing tool", nullptr, status::childExitedNonzero},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::makeActive("profile-1");
    host::remove("/usr/bin/systemctl");
    if (c.script != nullptr) host::installScript(kSystemctl, c.script);
    std::string name;
    EXPECT_THAT(ProfileChanges::activateProfile("office", "systemd", name), HasCode(c.code));
    EXPECT_EQ(current(), "profile-2\n");
    EXPECT_THAT(ProfileChanges::activateProfile("office", "systemd", name), HasCode(c.code))
        << "the profile is active now, so the daemon is only started";
  }
}

TEST_F(ActivateTest, AFailedStopOrSwitchIsNotReported) {
  host::installScript(kSystemctl, "echo \"$1\" >> /tmp/calls\n[ \"$1\" = start ]\n");
  host::remove(host::kCurrent);
  host::makeDirs(host::kCurrent);
  std::string name;
  EXPECT_THAT(ProfileChanges::activateProfile("office", "systemd", name), HasCode(status::success));
  EXPECT_EQ(calls(), "stop\nstart\n");
}

TEST_F(ActivateTest, AFailedForkOfTheStartIsReturned) {
  const ArmedFaults armed({1, true, EAGAIN, {"fork"}});
  std::string name;
  EXPECT_THAT(ProfileChanges::activateProfile("office", "systemd", name), HasCode(status::forkError));
  EXPECT_EQ(armed.count(), 2u);
}

TEST_F(ActivateTest, TheNullBackendDoesNothingAndReturnsAFailure) {
  std::string name;
  EXPECT_THAT(ProfileChanges::activateProfile("office", "null", name), HasCode(status::childExitedNonzero));
  EXPECT_EQ(current(), "profile-2\n");
  EXPECT_EQ(calls(), "");
}

TEST_F(ActivateTest, ALinkedDirectoryCanBeActivated) {
  host::writeFile("/tmp/elsewhere/profile_name", "linked\n");
  host::makeLink("/etc/zuv/profiles/link", "/tmp/elsewhere");
  std::string name;
  EXPECT_THAT(ProfileChanges::activateProfile("dir=link", "systemd", name), HasCode(status::success));
  EXPECT_EQ(name, "linked");
  EXPECT_EQ(current(), "link\n");
}

TEST_F(ActivateTest, AMarkerThatPointsOutsideTheStoreIsReplaced) {
  host::makeActive("../../../tmp/evil");
  std::string name;
  EXPECT_THAT(ProfileChanges::activateProfile("office", "systemd", name), HasCode(status::success));
  EXPECT_EQ(current(), "profile-2\n");
}

// --- Delete

using DeleteTest = ProfileChangesTest;

TEST_F(DeleteTest, TheDirectoryIsRemovedWithAllItsContents) {
  host::writeFile(kOffice + "/ca-certs/a/b/c.pem"s, "x");
  host::writeFile(kOffice + "/customer-certs/c.pem"s, "x");
  host::writeFile(kOffice + "/peer_certs/c.pem"s, "x");
  host::writeFile(kOffice + "/sub/deep/file"s, "x");
  EXPECT_THAT(ProfileChanges::deleteProfile("office"), HasCode(status::success));
  EXPECT_EQ(store(),
            "f 0666 .current \"profile-1\\n\"\n"
            "d 0755 .factory\n"
            "f 0644 .factory/hip.conf \"\"\n"
            "f 0640 .factory/profile_name \"template\\n\"\n"
            "d 0755 profile-1\n"
            "f 0644 profile-1/hip.conf \"\"\n"
            "f 0640 profile-1/profile_name \"lab\\n\"\n");
}

TEST_F(DeleteTest, TheActiveStoppedProfileIsDeletedAndElectingIsLeftToTheCaller) {
  EXPECT_THAT(ProfileChanges::deleteProfile("lab"), HasCode(status::success));
  EXPECT_FALSE(host::exists(kLab));
  EXPECT_EQ(current(), "profile-1\n");
  EXPECT_EQ(calls(), "");
}

TEST_F(DeleteTest, TheActiveRunningProfileIsNotDeleted) {
  host::writeHeartbeat(kLab);
  before_ = store();
  for (const char* selector : {"lab", "dir=profile-1", "--active", ""}) {
    EXPECT_THAT(ProfileChanges::deleteProfile(selector), HasCode(status::notWhileRunning));
  }
  EXPECT_EQ(store(), before_);
}

TEST_F(DeleteTest, TheSelectorDotCurrentIsRefusedButDashDashActiveIsAccepted) {
  EXPECT_THAT(ProfileChanges::deleteProfile(".current"), HasCode(status::invalidArgument));
  EXPECT_THAT(ProfileChanges::deleteProfile(".factory"), HasCode(status::invalidArgument));
  EXPECT_EQ(store(), before_);
  EXPECT_THAT(ProfileChanges::deleteProfile("--active"), HasCode(status::success));
  EXPECT_FALSE(host::exists(kLab));
}

TEST_F(DeleteTest, TemplateAndMarkerAreRefusedEvenIfTheStoreCannotBeListed) {
  host::makeFifo("/etc/zuv/profiles/profile-3/profile_name");
  before_ = store();
  EXPECT_THAT(ProfileChanges::deleteProfile("office"), HasCode(status::applicationError));
  for (const char* selector : {".factory", ".current"}) {
    EXPECT_THAT(ProfileChanges::deleteProfile(selector), HasCode(status::invalidArgument)) << selector;
  }
  EXPECT_EQ(store(), before_);
}

TEST_F(DeleteTest, TheCertificateDirectoriesAreRemovedFirstAndInOrder) {
  const std::vector<std::string> parts = {"ca-certs", "customer-certs", "peer_certs", "logs"};
  for (const std::string& part : parts) host::writeFile(kOffice + "/"s + part + "/file", "x");
  std::vector<std::string> stages;
  FaultPlan plan;
  plan.calls = {"unlinkat", "unlink", "rmdir"};
  plan.before = [&](std::size_t) {
    std::string left;
    for (const std::string& part : parts) left += host::exists(kOffice + "/"s + part) ? part + " " : "";
    if (stages.empty() || stages.back() != left) stages.push_back(left);
  };
  {
    const ArmedFaults armed(plan);
    EXPECT_THAT(ProfileChanges::deleteProfile("office"), HasCode(status::success));
  }
  EXPECT_THAT(stages, ElementsAre("ca-certs customer-certs peer_certs logs ", "customer-certs peer_certs logs ",
                                  "peer_certs logs ", "logs ", ""));
}

TEST_F(DeleteTest, AnActiveProfileWithoutADirectoryNameIsAnApplicationErrorAndNothingIsTouched) {
  for (const std::string& content :
       {""s, "..\n"s, "../..\n"s, "/\n"s, ".factory\n"s, "profile-1/..\n"s, "profile-1\0/..\n"s}) {
    SCOPED_TRACE(host::quoted(content));
    host::writeFile(host::kCurrent, content, 0666);
    before_ = host::tree("/etc/zuv");
    EXPECT_THAT(ProfileChanges::deleteProfile("--active"), HasCode(status::applicationError));
    EXPECT_THAT(ProfileChanges::deleteProfile(""), HasCode(status::applicationError));
    EXPECT_EQ(host::tree("/etc/zuv"), before_);
  }
}

TEST_F(DeleteTest, OnlyTheLinkOfALinkedProfileIsRemoved) {
  host::writeFile("/tmp/elsewhere/profile_name", "linked\n");
  host::writeFile("/tmp/elsewhere/ca-certs/ca.pem", "x");
  host::makeLink("/etc/zuv/profiles/link", "/tmp/elsewhere");
  const std::string target = host::tree("/tmp/elsewhere");
  EXPECT_THAT(ProfileChanges::deleteProfile("dir=link"), HasCode(status::success));
  EXPECT_FALSE(host::exists("/etc/zuv/profiles/link"));
  EXPECT_EQ(host::tree("/tmp/elsewhere"), target);
}

TEST_F(DeleteTest, LinksInsideTheProfileAreNotFollowed) {
  host::writeFile("/tmp/elsewhere/file", "kept");
  host::makeLink(kOffice + "/ca-certs"s, "/tmp/elsewhere");
  host::makeLink(kOffice + "/file"s, "/tmp/elsewhere/file");
  EXPECT_THAT(ProfileChanges::deleteProfile("office"), HasCode(status::success));
  EXPECT_FALSE(host::exists(kOffice));
  EXPECT_EQ(host::readFile("/tmp/elsewhere/file"), "kept");
}

TEST_F(DeleteTest, AnEntryThatCannotBeRemovedIsAnApplicationErrorAndTheOthersAreRemoved) {
  host::makeFifo(kOffice + "/fifo"s);
  host::writeFile(kOffice + "/ca-certs/ca.pem"s, "x");
  EXPECT_THAT(ProfileChanges::deleteProfile("office"), HasCode(status::applicationError));
  EXPECT_EQ(host::tree(kOffice), "p 0644 fifo\n");
}

TEST_F(DeleteTest, TheNameFileIsRemovedLast) {
  host::makeProfile("profile-2", "office");
  for (const char* file : {"a", "z", "ca-certs/ca.pem", "logs/old"}) host::writeFile(kOffice + "/"s + file, "");
  std::vector<std::string> namesThen;
  FaultPlan plan;
  plan.calls = {"unlinkat"};
  plan.before = [&](std::size_t) { namesThen.push_back(host::readFile(kOffice + "/profile_name"s)); };
  {
    const ArmedFaults armed(plan);
    EXPECT_THAT(ProfileChanges::deleteProfile("office"), HasCode(status::success));
  }
  EXPECT_THAT(namesThen, Each("office\n"));
  EXPECT_GE(namesThen.size(), 7u);
}

// --- Rename

class RenameTest : public ProfileChangesTest {
 protected:
  static std::string rename(const std::string& selector, const std::string& newName) {
    std::string name = "left over";
    EXPECT_THAT(ProfileChanges::renameProfile(selector, newName, name), HasCode(status::success));
    return name;
  }
  void expectRefused(const std::string& newName, const char* details) const {
    std::string name = "left over";
    const Status refused = ProfileChanges::renameProfile("lab", newName, name);
    EXPECT_THAT(refused, HasCode(status::invalidArgument)) << host::quoted(newName);
    EXPECT_EQ(refused.details(), details);
    EXPECT_EQ(refused.context(), "profile rename");
    EXPECT_EQ(name, "");
    EXPECT_EQ(store(), before_);
  }
};

TEST_F(RenameTest, TheNameChangesAndTheDirectoryDoesNot) {
  EXPECT_EQ(rename("lab", "workshop"), "workshop");
  EXPECT_EQ(host::tree(kLab), "f 0644 hip.conf \"\"\nf 0640 profile_name \"workshop\\n\"\n");
  EXPECT_EQ(rename("dir=profile-1", "x"), "x");
  EXPECT_EQ(host::tree(kLab), "f 0644 hip.conf \"\"\nf 0640 profile_name \"x\\n\"\n");
  EXPECT_EQ(current(), "profile-1\n");
}

TEST_F(RenameTest, TheActiveProfileIsRenamedRunningOrNot) {
  EXPECT_EQ(rename("", "stopped"), "stopped");
  host::writeHeartbeat(kLab);
  EXPECT_EQ(rename("--active", "running"), "running");
  EXPECT_EQ(host::readFile(kLab + "/profile_name"s), "running\n");
  EXPECT_EQ(calls(), "");
}

TEST_F(RenameTest, ANewNameLosesBlanksAndControlBytesOnlyAtItsEnds) {
  EXPECT_EQ(rename("lab", " \t my lab\r\n"), "my lab");
  EXPECT_EQ(host::readFile(kLab + "/profile_name"s), "my lab\n");
  EXPECT_EQ(rename("my lab", "l\xc3\xa4z"), "l\xc3\xa4z");
}

TEST_F(RenameTest, AnEmptyNewNameIsReportedAsNotProvided) {
  for (const char* newName : {"", " ", "\t\n", "\x7f"}) expectRefused(newName, "profile name not provided");
}

TEST_F(RenameTest, TheSelectorIsResolvedBeforeAnEmptyNameIsRefused) {
  const auto expectPlain = [](const char* selector, StatusCode code) {
    SCOPED_TRACE(selector);
    std::string name;
    const Status refused = ProfileChanges::renameProfile(selector, "", name);
    EXPECT_THAT(refused, HasCode(code));
    EXPECT_EQ(refused.details(), "");
  };
  expectPlain("missing", status::profileNotFound);
  expectPlain(".factory", status::invalidArgument);
  host::makeFifo("/etc/zuv/profiles/profile-3/profile_name");
  expectPlain("lab", status::applicationError);
}

TEST_F(RenameTest, ANameThatDiffersOnlyInOuterHighBytesIsAcceptedAndMadeUniqueByTheNextListing) {
  for (const char* newName : {"office\x80", "\xc3\xa4office", "\xffoffice\xff"}) {
    SCOPED_TRACE(host::quoted(newName));
    host::writeFile(kLab + "/profile_name"s, "lab\n", 0640);
    host::writeFile(kOffice + "/profile_name"s, "office\n", 0640);
    EXPECT_EQ(rename("lab", newName), newName);
    EXPECT_EQ(host::readFile(kLab + "/profile_name"s), newName + "\n"s);
    EXPECT_EQ(host::readFile(kOffice + "/profile_name"s), "office\n");
    std::vector<ProfileRecord> records;
    ASSERT_TRUE(ProfileStore::listProfiles(records));
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].name, "office") << "read without its outer bytes";
    EXPECT_EQ(records[1].name, "office#2");
    EXPECT_EQ(host::readFile(records[1].dir + "/profile_name"), "office#2\n");
  }
}

TEST_F(RenameTest, ANameThatSelectsAProfileIsRefused) {
  for (const char* newName : {"office", "lab", "--active", ".current", ".factory", "dir=profile-1", "dir=profile-2",
                              "dir=.factory", " office ", "dir="}) {
    expectRefused(newName, "invalid profile name");
  }
}

TEST_F(RenameTest, ADirectorySelectorThatFindsNothingIsAcceptedAsAName) {
  EXPECT_EQ(rename("lab", "dir=missing"), "dir=missing");
  EXPECT_EQ(rename("dir=profile-1", "dir=../x"), "dir=../x");
  EXPECT_EQ(rename("dir=profile-1", ".hidden"), ".hidden");
}

TEST_F(RenameTest, EveryControlByteInsideANameIsRefused) {
  for (int byte = 0; byte < 256; ++byte) {
    if (byte >= 32 && byte != 127) continue;
    expectRefused("a"s + static_cast<char>(byte) + "b", "invalid profile name");
  }
}

TEST_F(RenameTest, RenamingALinkedProfileToItsOwnNameWritesNothing) {
  host::writeFile("/tmp/elsewhere/profile_name", "linked\n", 0604);
  host::makeLink("/etc/zuv/profiles/link", "/tmp/elsewhere");
  EXPECT_EQ(rename("dir=link", "linked"), "linked");
  EXPECT_EQ(host::tree("/tmp/elsewhere"), "f 0604 profile_name \"linked\\n\"\n");
  EXPECT_EQ(rename("dir=link", "other"), "other");
  EXPECT_EQ(host::readFile("/tmp/elsewhere/profile_name"), "other\n");
}

TEST_F(RenameTest, NoNameIsAcceptedIfTheStoreCannotBeListed) {
  host::makeFifo("/etc/zuv/profiles/profile-3/profile_name");
  before_ = store();
  std::string name;
  const Status refused = ProfileChanges::renameProfile("dir=profile-1", "x", name);
  EXPECT_THAT(refused, HasCode(status::invalidArgument));
  EXPECT_EQ(refused.details(), "invalid profile name");
  EXPECT_EQ(store(), before_);
}

TEST_F(RenameTest, AFailedWriteIsReturned) {
  std::string name = "left over";
  {
    const ArmedFaults armed({1, true, ENOSPC, {"write"}});
    EXPECT_THAT(ProfileChanges::renameProfile("lab", "x", name), HasCode(status::writeError));
  }
  EXPECT_EQ(name, "");
  EXPECT_EQ(store(), before_);
  host::setMode(kLab + "/profile_name"s, 0440);
  const host::BoundByModes bound;
  EXPECT_THAT(ProfileChanges::renameProfile("lab", "x", name), HasCode(status::openError));
}

TEST_F(RenameTest, AnActiveProfileWithoutADirectoryNameIsAnInvalidArgument) {
  for (const char* content : {"", "../../../tmp\n", ".factory\n"}) {
    host::writeFile(host::kCurrent, content, 0666);
    before_ = store();
    std::string name = "left over";
    EXPECT_THAT(ProfileChanges::renameProfile("", "x", name), HasCode(status::invalidArgument));
    EXPECT_EQ(name, "");
    EXPECT_EQ(store(), before_);
    EXPECT_FALSE(host::exists("/tmp/profile_name"));
  }
}

// --- Reset

using ResetTest = ProfileChangesTest;

constexpr const char* kStateFiles[] = {"m2_cache", "sadb.state", "hip.state", "peers", "map.state", "hipvars.txt"};

void writeStateFiles(const std::string& folder) {
  for (const char* file : kStateFiles) host::writeFile(folder + "/" + file, "state\n");
}

TEST_F(ResetTest, OnlyTheSixStateFilesAreRemoved) {
  for (const char* file : {"endbox.conf", "mapconfig.static", "device_id", "hip.log", "ca-certs/ca.pem", "peers2"}) {
    host::writeFile(kOffice + "/"s + file, "kept\n");
  }
  before_ = store();
  writeStateFiles(kOffice);
  writeStateFiles(kLab);
  makeStopped();
  const std::string lab = host::tree(kLab);
  std::string name;
  EXPECT_THAT(ProfileChanges::resetProfile("office", name), HasCode(status::success));
  EXPECT_EQ(name, "office");
  EXPECT_EQ(host::tree(kLab), lab);
  EXPECT_THAT(ProfileChanges::resetProfile("", name), HasCode(status::success));
  EXPECT_EQ(name, "lab");
  EXPECT_EQ(store(), before_);
  EXPECT_EQ(calls(), "") << "the daemon is not started";
}

TEST_F(ResetTest, TheStateFilesAreRemovedInOrder) {
  writeStateFiles(kOffice);
  FaultPlan plan;
  plan.calls = {"unlink"};
  plan.before = [](std::size_t call) {
    for (std::size_t i = 0; i < std::size(kStateFiles); ++i) {
      EXPECT_EQ(host::exists(kOffice + "/"s + kStateFiles[i]), i + 1 >= call)
          << kStateFiles[i] << " at removal " << call;
    }
  };
  const ArmedFaults armed(plan);
  std::string name;
  EXPECT_THAT(ProfileChanges::resetProfile("office", name), HasCode(status::success));
  EXPECT_EQ(armed.count(), 6u);
}

TEST_F(ResetTest, ResettingAProfileWithoutStateFilesSucceeds) {
  std::string name;
  EXPECT_THAT(ProfileChanges::resetProfile("lab", name), HasCode(status::success));
  EXPECT_EQ(store(), before_);
}

TEST_F(ResetTest, TheActiveRunningProfileIsLeftAlone) {
  writeStateFiles(kLab);
  host::writeHeartbeat(kLab);
  before_ = store();
  std::string name = "left over";
  EXPECT_THAT(ProfileChanges::resetProfile("lab", name), HasCode(status::notWhileRunning));
  EXPECT_EQ(name, "lab");
  EXPECT_EQ(store(), before_);
}

TEST_F(ResetTest, AnInactiveProfileWithAFreshHeartbeatIsReset) {
  host::writeHeartbeat(kOffice);
  std::string name;
  EXPECT_THAT(ProfileChanges::resetProfile("office", name), HasCode(status::success));
  EXPECT_EQ(store(), before_);
}

TEST_F(ResetTest, ADirectoryNamedLikeAStateFileStaysAndIsNotReported) {
  host::makeDirs(kOffice + "/peers"s);
  host::writeFile(kOffice + "/map.state"s, "x");
  std::string name;
  EXPECT_THAT(ProfileChanges::resetProfile("office", name), HasCode(status::success));
  EXPECT_TRUE(host::exists(kOffice + "/peers"s));
  EXPECT_FALSE(host::exists(kOffice + "/map.state"s));
}

TEST_F(ResetTest, ALinkNamedLikeAStateFileIsRemovedButNotItsTarget) {
  host::writeFile("/tmp/state", "kept");
  host::makeLink(kOffice + "/peers"s, "/tmp/state");
  std::string name;
  EXPECT_THAT(ProfileChanges::resetProfile("office", name), HasCode(status::success));
  EXPECT_FALSE(host::exists(kOffice + "/peers"s));
  EXPECT_EQ(host::readFile("/tmp/state"), "kept");
}

TEST_F(ResetTest, EveryRemovalIsTriedAndNoFailureIsReported) {
  writeStateFiles(kOffice);
  std::string name;
  const ArmedFaults armed({1, true, EACCES, {"unlink"}});
  EXPECT_THAT(ProfileChanges::resetProfile("office", name), HasCode(status::success));
  EXPECT_EQ(armed.count(), 6u);
}

TEST_F(ResetTest, ResettingAnActiveProfileWithoutADirectoryNameSucceedsAndChangesNothing) {
  for (const char* file : kStateFiles) host::writeFile(host::kProfiles + ""s + file, "x");
  for (const char* file : kStateFiles) host::writeFile("/tmp/"s + file, "x");
  for (const char* content : {"", "../../../tmp\n", ".\n"}) {
    host::writeFile(host::kCurrent, content, 0666);
    before_ = store() + host::tree("/tmp");
    std::string name = "left over";
    EXPECT_THAT(ProfileChanges::resetProfile("", name), HasCode(status::success));
    EXPECT_EQ(name, "");
    EXPECT_EQ(store() + host::tree("/tmp"), before_);
  }
}

}  // namespace
