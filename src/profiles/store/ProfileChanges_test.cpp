// Tests of activating, deleting, renaming, resetting and modifying profiles.
#include "profiles/store/ProfileChanges.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>

#include "base/files/FileLock.h"
#include "command/framework/Authorization.h"
#include "command/status/AppStatusCodes.h"
#include "profiles/store/ProfileStore.h"
#include "testing/faults/FaultInjector.h"
#include "testing/models/SkippedPauses.h"
#include "testing/run/HostTest.h"

namespace {

using namespace std::string_literals;
using host::kCalls;
using host::kSystemctl;
using ProfileChanges::Modification;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;

constexpr const char* kLab = "/etc/zuv/profiles/profile-1";
constexpr const char* kOffice = "/etc/zuv/profiles/profile-2";
constexpr const char* kStateFiles[] = {"m2_cache", "sadb.state", "hip.state", "peers", "map.state", "hipvars.txt"};
constexpr const char* kRestart = "systemctl stop hip\nsystemctl start hip\n";

// The status of an operation, and the profile's name as it returned it.
struct Result {
  Status status;
  std::string name;
};

auto gave(StatusCode code, const std::string& name) {
  return AllOf(Field("status", &Result::status, HasCode(code)), Field("name", &Result::name, name));
}

Result activate(const std::string& selector, const std::string& initSystem = "systemd") {
  std::string name = "left over";
  Status status = ProfileChanges::activateProfile(selector, initSystem, name);
  return {status, name};
}

Result rename(const std::string& selector, const std::string& newName) {
  std::string name = "left over";
  Status status = ProfileChanges::renameProfile(selector, newName, name);
  return {status, name};
}

Result reset(const std::string& selector) {
  std::string name = "left over";
  Status status = ProfileChanges::resetProfile(selector, name);
  return {status, name};
}

// Returns a modification with one more value.
template <typename Member, typename Value>
Modification with(Member Modification::*member, const Value& value, Modification wanted = {}) {
  wanted.*member = value;
  return wanted;
}

Result modify(const std::string& selector, Modification wanted) {
  if (wanted.initSystem.empty()) wanted.initSystem = "systemd";
  ProfileDetails details;
  details.filled = true;
  details.name = "left over";
  Status status = ProfileChanges::modifyProfile(selector, wanted, details);
  EXPECT_EQ(details.filled, status.isSuccess());
  return {status, details.name};
}

Modification everything() {
  Modification wanted = with(&Modification::newName, "workshop");
  wanted.hasHelmsor = true;
  wanted.helmsorHost = "h";
  wanted.helmsorPort = 443;
  wanted.network = "eth0";
  wanted.invitation = "code";
  wanted.logLevel = "Warn";
  return wanted;
}
Modification everythingAndActivate() { return with(&Modification::activate, true, everything()); }

// The files of "lab" and "office" before a modification, and those of either after everything(), in host::tree().
const std::string kHipConf = "f 0644 hip.conf \"\"\n";
const std::string kOfficeName = "f 0640 profile_name \"office\\n\"\n";
const std::string kNewEndbox =
    "f 0644 endbox.conf \"log_level=warning\\nopenhip.log_level=warning\\nactivation_code=code\\n\"\n";
const std::string kNewHipConf = "f 0644 hip.conf \"master_interface=eth0\\n\"\n";
const std::string kNewAddress = "f 0640 mapconfig.static \"map_uri=https://h:443\\n\"\n";
const std::string kNewName = "f 0640 profile_name \"workshop\\n\"\n";
const std::string kEverythingChanged = kNewEndbox + kNewHipConf + kNewAddress + kNewName;

// The operations that refuse the template. Renaming and modifying ask for an empty name, which is checked last.
const struct {
  const char* name;
  Result (*run)(const std::string& selector);
} kOperations[] = {
    {"activate", [](const std::string& selector) { return activate(selector); }},
    {"delete",
     [](const std::string& selector) {
       return Result{ProfileChanges::deleteProfile(selector), ""};
     }},
    {"rename", [](const std::string& selector) { return rename(selector, ""); }},
    {"modify", [](const std::string& selector) { return modify(selector, with(&Modification::newName, "")); }},
};

class ProfileChangesTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    setAuthorizationMode(authorizationAlways);
    makeScene();
  }
  void TearDown() override { setAuthorizationMode(authorizationNever); }

  // "lab" is active but stopped, "office" is not active.
  void makeScene() {
    host::reset();
    host::makeProfile("profile-1", "lab");
    host::makeProfile("profile-2", "office");
    host::makeProfile(".factory", "template");
    host::makeActive("profile-1");
    host::installRecorder(kSystemctl, kCalls);
    before_ = store();
  }
  static void expectAllRefuse(const std::string& selector, StatusCode code) {
    for (const auto& operation : kOperations) {
      const Result refused = operation.run(selector);
      EXPECT_THAT(refused, gave(code, "")) << operation.name << " " << selector;
      EXPECT_EQ(refused.status.details(), "") << operation.name << " " << selector;
    }
  }
  void expectUnchanged() const {
    EXPECT_EQ(store(), before_);
    EXPECT_EQ(host::recordedCalls(), "");
  }

  static std::string store() { return host::tree(host::kProfiles); }
  static std::string current() { return host::readFile(host::kCurrent); }
  static std::string nameOf(const std::string& folder) { return host::readFile(folder + "/profile_name"); }
  static void putLab(const std::string& file, const std::string& text) { host::writeFile(kLab + ("/" + file), text); }
  static void putOffice(const std::string& file, const std::string& text) {
    host::writeFile(kOffice + ("/" + file), text);
  }
  static void makeRunning() { host::writeHeartbeat(kLab); }
  static void makeUnlistable() { host::makeDirs("/etc/zuv/profiles/profile-3/profile_name"); }
  static void makeLinked() {
    host::writeFile("/tmp/elsewhere/profile_name", "linked\n");
    host::makeLink("/etc/zuv/profiles/link", "/tmp/elsewhere");
  }
  static void putStateFiles(const std::string& folder) {
    for (const char* file : kStateFiles) host::writeFile(folder + "/" + file, "state\n");
  }

  std::string before_;
};

// --- The first steps that all operations share

TEST_F(ProfileChangesTest, EveryOperationChecksAuthorizationFirst) {
  for (const int mode : {authorizationNever, 3, -1}) {
    setAuthorizationMode(mode);
    for (const char* selector : {"lab", "missing", "", ".factory", "dir="}) {
      expectAllRefuse(selector, status::authenticationError);
      EXPECT_THAT(reset(selector), gave(status::authenticationError, "")) << selector;
    }
  }
  expectUnchanged();
}

TEST_F(ProfileChangesTest, InRootOnlyModeRootMayRenameAProfileAndOthersMayNot) {
  SKIP_WITHOUT_OTHER_USERS();
  setAuthorizationMode(authorizationRootOnly);
  ASSERT_EQ(::seteuid(1000), 0);
  const Result refused = rename("lab", "x");
  ASSERT_EQ(::seteuid(0), 0);
  EXPECT_THAT(refused, gave(status::authenticationError, ""));
  EXPECT_THAT(rename("lab", "x"), gave(status::success, "x"));
}

TEST_F(ProfileChangesTest, AFailedResolutionEndsEveryOperationWithItsStatusBeforeTheNameIsChecked) {
  const std::pair<const char*, StatusCode> cases[] = {
      {"missing", status::profileNotFound},
      {"dir=missing", status::profileNotFound},
      {"dir=../../../tmp", status::profileNotFound},
      {"dir=.current", status::profileNotFound},
      {"Lab", status::profileNotFound},
      {"dir=", status::invalidArgument},
  };
  for (const auto& [selector, code] : cases) {
    expectAllRefuse(selector, code);
    EXPECT_THAT(reset(selector), gave(code, "")) << selector;
  }
  expectUnchanged();
  makeUnlistable();
  before_ = store();
  expectAllRefuse("lab", status::applicationError);
  EXPECT_THAT(reset("lab"), gave(status::applicationError, ""));
  expectUnchanged();
}

TEST_F(ProfileChangesTest, EveryOperationExceptResetRefusesTheTemplate) {
  host::writeFile("/etc/zuv/profiles/.factory/hip.state", "x");
  before_ = store();
  for (const char* selector : {".factory", "dir=.factory"}) expectAllRefuse(selector, status::invalidArgument);
  expectUnchanged();
  EXPECT_THAT(reset(".factory"), gave(status::success, ".factory"));
  EXPECT_FALSE(host::exists("/etc/zuv/profiles/.factory/hip.state"));
}

TEST_F(ProfileChangesTest, AnActiveProfileWithoutADirectoryNameIsRefusedAndItsResetChangesNothing) {
  const Modification changes[] = {
      {},
      everything(),
      with(&Modification::newName, "x"),
      with(&Modification::logLevel, "info"),
      with(&Modification::network, "eth0"),
      with(&Modification::invitation, "###"),
      with(&Modification::activate, true),
      with(&Modification::activate, true, with(&Modification::network, "eth0")),
      with(&Modification::hasHelmsor, true, with(&Modification::helmsorHost, "h")),
      with(&Modification::hasHelmsor, true, with(&Modification::helmsorPort, 443)),
  };
  putStateFiles("/etc/zuv/profiles");
  putStateFiles("/tmp");
  for (const std::string& content : {""s, ".\n"s, "..\n"s, "../..\n"s, "../../../tmp\n"s, "/\n"s, ".factory\n"s,
                                     "profile-1/..\n"s, "profile-1\0/..\n"s}) {
    SCOPED_TRACE(host::quoted(content));
    host::writeFile(host::kCurrent, content, 0666);
    const std::string before = host::tree("/etc/zuv") + host::tree("/tmp");
    EXPECT_THAT(ProfileChanges::deleteProfile("--active"), HasCode(status::applicationError));
    EXPECT_THAT(ProfileChanges::deleteProfile(""), HasCode(status::applicationError));
    EXPECT_THAT(rename("", "x"), gave(status::invalidArgument, ""));
    EXPECT_THAT(reset(""), gave(status::success, ""));
    for (const Modification& change : changes) EXPECT_THAT(modify("", change), gave(status::invalidArgument, ""));
    EXPECT_EQ(host::tree("/etc/zuv") + host::tree("/tmp"), before);
  }
}

// --- Activate

using ActivateTest = ProfileChangesTest;

TEST_F(ActivateTest, AnInactiveProfileBecomesActiveWhateverTheStateOfTheDaemon) {
  const struct {
    const char* why;
    void (*put)();
    const char* selector = "office";
    const char* name = "office";
    const char* marker = "profile-2\n";
  } cases[] = {
      {"the daemon runs", makeRunning},
      {"the daemon does not run", [] {}},
      {"the last heartbeat is old", [] { putLab("hipvars.txt", "uptime.now=1\nuptime.started=1\n"); }},
      {"the state of the daemon is unknown", [] { putLab("hipvars.txt", "x=1\n"); }},
      {"no profile is active", [] { host::remove(host::kCurrent); }},
      {"the marker points outside the store", [] { host::makeActive("../../../tmp/evil"); }},
      {"the directory is a link", makeLinked, "dir=link", "linked", "link\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    makeScene();
    c.put();
    EXPECT_THAT(activate(c.selector), gave(status::success, c.name));
    EXPECT_EQ(host::recordedCalls(), kRestart);
    EXPECT_EQ(current(), c.marker);
    EXPECT_EQ(host::modeOf(host::kCurrent), 0666u);
  }
}

TEST_F(ActivateTest, TheActiveProfileIsStartedOnlyIfItDoesNotRun) {
  host::setMode(host::kCurrent, 0600);
  before_ = store();
  EXPECT_THAT(activate("lab"), gave(status::success, "lab"));
  EXPECT_EQ(host::recordedCalls(), "systemctl start hip\n");
  EXPECT_EQ(store(), before_) << "the marker is not touched";
  makeScene();
  makeRunning();
  before_ = store();
  for (const char* selector : {"lab", "dir=profile-1", ".current", "--active"}) {
    EXPECT_THAT(activate(selector), gave(status::success, "lab")) << selector;
  }
  expectUnchanged();
}

TEST_F(ActivateTest, AnEmptySelectorIsAnInvalidArgument) {
  EXPECT_THAT(activate(""), gave(status::invalidArgument, ""));
  expectUnchanged();
}

TEST_F(ActivateTest, TheActiveProfileIsNotFoundIfItsDirectoryIsMissing) {
  for (const char* marker : {"", "gone\n", "../../../tmp\n"}) {
    for (const char* selector : {".current", "--active"}) {
      SCOPED_TRACE(marker + " "s + selector);
      host::writeFile(host::kCurrent, marker, 0666);
      before_ = store();
      EXPECT_THAT(activate(selector), gave(status::profileNotFound, ""));
      expectUnchanged();
    }
  }
}

TEST_F(ActivateTest, TheStatusIsThatOfTheStart) {
  const struct {
    const char* why;
    void (*put)();
    StatusCode code;
    const char* initSystem = "systemd";
  } cases[] = {
      {"the tool exits with a status", [] { host::installScript(kSystemctl, "exit 5\n"); }, status::childExitedNonzero},
      {"a signal ends the tool", [] { host::installScript(kSystemctl, "kill -TERM $$\n"); },
       status::childKilledBySignal},
      {"the tool is missing", [] { host::remove("/usr/bin/systemctl"); }, status::childExitedNonzero},
      {"the null backend does nothing", [] {}, status::childExitedNonzero, "null"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    makeScene();
    c.put();
    EXPECT_THAT(activate("office", c.initSystem), gave(c.code, "office"));
    EXPECT_EQ(current(), "profile-2\n");
    EXPECT_THAT(activate("office", c.initSystem), gave(c.code, "office"))
        << "the profile is active now, so the daemon is only started";
    EXPECT_EQ(host::recordedCalls(), "");
  }
}

TEST_F(ActivateTest, AFailedStopOrSwitchIsNotReported) {
  host::installScript(kSystemctl, "echo \"$1\" >> /tmp/calls\n[ \"$1\" = start ]\n");
  host::remove(host::kCurrent);
  host::makeDirs(host::kCurrent);
  EXPECT_THAT(activate("office"), gave(status::success, "office"));
  EXPECT_EQ(host::recordedCalls(), "stop\nstart\n");
}

TEST_F(ActivateTest, TheStatusOfAFailedForkForTheStartIsReturned) {
  const ArmedFaults armed({1, true, EAGAIN, {"fork"}});
  EXPECT_THAT(activate("office"), gave(status::forkError, "office"));
  EXPECT_EQ(armed.count(), 2u);
}

// --- Delete

using DeleteTest = ProfileChangesTest;

TEST_F(DeleteTest, TheDirectoryIsRemovedWithAllItsContents) {
  for (const char* file : {"ca-certs/a/b/c.pem", "customer-certs/c.pem", "peer_certs/c.pem", "sub/deep/file"}) {
    putOffice(file, "x");
  }
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
  for (const char* selector : {"lab", "--active"}) {
    SCOPED_TRACE(selector);
    makeScene();
    EXPECT_THAT(ProfileChanges::deleteProfile(selector), HasCode(status::success));
    EXPECT_FALSE(host::exists(kLab));
    EXPECT_EQ(current(), "profile-1\n");
    EXPECT_EQ(host::recordedCalls(), "");
  }
}

TEST_F(DeleteTest, TheRunningProfileAndTheSelectorsOfTemplateAndMarkerAreRefused) {
  const struct {
    const char* why;
    void (*put)();
    std::vector<const char*> selectors;
    StatusCode code;
  } cases[] = {
      {"the running profile is refused",
       makeRunning,
       {"lab", "dir=profile-1", "--active", ""},
       status::notWhileRunning},
      {"template and marker are refused", [] {}, {".factory", ".current"}, status::invalidArgument},
      {"template and marker are refused if the store cannot be listed",
       makeUnlistable,
       {".factory", ".current"},
       status::invalidArgument},
      {"no other profile is found if the store cannot be listed", makeUnlistable, {"office"}, status::applicationError},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    makeScene();
    c.put();
    before_ = store();
    for (const char* selector : c.selectors) {
      EXPECT_THAT(ProfileChanges::deleteProfile(selector), HasCode(c.code)) << selector;
    }
    expectUnchanged();
  }
}

TEST_F(DeleteTest, TheCertificateDirectoriesAreRemovedFirstAndInOrder) {
  const std::vector<std::string> parts = {"ca-certs", "customer-certs", "peer_certs", "logs"};
  for (const std::string& part : parts) putOffice(part + "/file", "x");
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

TEST_F(DeleteTest, LinksAreRemovedButNotTheirTargets) {
  makeLinked();
  host::writeFile("/tmp/elsewhere/ca-certs/ca.pem", "x");
  host::makeLink(kOffice + "/ca-certs"s, "/tmp/elsewhere/ca-certs");
  host::makeLink(kOffice + "/file"s, "/tmp/elsewhere/profile_name");
  const std::string targets = host::tree("/tmp/elsewhere");
  EXPECT_THAT(ProfileChanges::deleteProfile("dir=link"), HasCode(status::success));
  EXPECT_FALSE(host::exists("/etc/zuv/profiles/link"));
  EXPECT_EQ(host::tree("/tmp/elsewhere"), targets);
  EXPECT_THAT(ProfileChanges::deleteProfile("office"), HasCode(status::success));
  EXPECT_FALSE(host::exists(kOffice));
  EXPECT_EQ(host::tree("/tmp/elsewhere"), targets);
}

TEST_F(DeleteTest, IfAnEntryCannotBeRemovedTheNameFileStaysSoThatTheDeletionCanBeRepeated) {
  const std::string name = "f 0640 profile_name \"office\\n\"\n";
  const struct {
    const char* why;
    std::string entry;
    void (*make)(const std::string& path);
    std::string left;
  } cases[] = {
      {"a FIFO", "/fifo", [](const std::string& path) { host::makeFifo(path); }, "p 0644 fifo\n" + name},
      {"a socket", "/socket", [](const std::string& path) { host::makeSocket(path); }, name + "s 0644 socket\n"},
      {"a broken link", "/link", [](const std::string& path) { host::makeLink(path, "/gone"); },
       "l link -> /gone\n" + name},
      {"a FIFO among the certificates", "/ca-certs/fifo",
       [](const std::string& path) {
         host::makeDirs(kOffice + "/ca-certs"s);
         host::makeFifo(path);
       },
       "d 0755 ca-certs\np 0644 ca-certs/fifo\n" + name},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    makeScene();
    putOffice("ca-certs/ca.pem", "x");
    const std::string path = kOffice + c.entry;
    c.make(path);
    for (int attempt = 0; attempt < 2; ++attempt) {
      EXPECT_THAT(ProfileChanges::deleteProfile("office"), HasCode(status::applicationError));
      EXPECT_EQ(host::tree(kOffice), c.left);
    }
    host::remove(path);
    EXPECT_THAT(ProfileChanges::deleteProfile("office"), HasCode(status::success));
    EXPECT_FALSE(host::exists(kOffice));
  }
}

TEST_F(DeleteTest, ARelativeLinkIsResolvedFromItsOwnDirectoryWhateverTheWorkingDirectory) {
  const struct {
    const char* why;
    const char *link, *target;
    bool isRemoved;
  } cases[] = {
      {"a target in the profile", "/link", "hip.conf", true},
      {"a target in another profile", "/logs/link", "../../profile-1/hip.conf", true},
      {"a target beside a certificate", "/ca-certs/link", "ca.pem", true},
      {"a target that only the working directory has", "/link", "only_there", false},
      {"a certificate whose target only the working directory has", "/ca-certs/link", "only_there", false},
  };
  for (const char* workingDirectory : {"/", "/tmp/work", kOffice}) {
    for (const auto& c : cases) {
      SCOPED_TRACE(workingDirectory + " "s + c.why);
      makeScene();
      host::writeFile("/tmp/work/only_there", "x");
      host::writeFile("/only_there", "x");
      putOffice("ca-certs/ca.pem", "x");
      putOffice("logs/old", "x");
      host::makeLink(kOffice + std::string(c.link), c.target);
      ASSERT_EQ(::chdir(workingDirectory), 0);
      EXPECT_THAT(ProfileChanges::deleteProfile("office"),
                  HasCode(c.isRemoved ? status::success : status::applicationError));
      ASSERT_EQ(::chdir("/"), 0);
      EXPECT_EQ(host::exists(kOffice), !c.isRemoved);
      EXPECT_EQ(host::exists(kOffice + "/profile_name"s), !c.isRemoved);
    }
  }
  host::remove("/only_there");
}

TEST_F(DeleteTest, TheNameFileIsRemovedLast) {
  for (const char* file : {"a", "z", "ca-certs/ca.pem", "logs/old"}) putOffice(file, "");
  std::vector<std::string> namesThen;
  FaultPlan plan;
  plan.calls = {"unlinkat", "renameat2"};
  plan.before = [&](std::size_t) {
    if (host::exists(kOffice)) namesThen.push_back(nameOf(kOffice));
  };
  {
    const ArmedFaults armed(plan);
    EXPECT_THAT(ProfileChanges::deleteProfile("office"), HasCode(status::success));
  }
  EXPECT_THAT(namesThen, Each("office\n"));
  EXPECT_GE(namesThen.size(), 7u);
}

// --- Rename

using RenameTest = ProfileChangesTest;

TEST_F(RenameTest, TheTrimmedNameIsWrittenAndTheDirectoryKept) {
  const struct {
    const char* why;
    const char* selector;
    const char* newName;
    const char* name;
  } cases[] = {
      {"selected by name", "lab", "workshop", "workshop"},
      {"selected by directory", "dir=profile-1", "x", "x"},
      {"an empty selector", "", "x", "x"},
      {"the selector of the active profile", "--active", "x", "x"},
      {"outer blanks and control bytes are removed", "lab", " \t my lab\r\n", "my lab"},
      {"a high byte is kept", "lab", "l\xc3\xa4z", "l\xc3\xa4z"},
      {"a selector of a missing directory", "lab", "dir=missing", "dir=missing"},
      {"a selector of a directory outside the store", "lab", "dir=../x", "dir=../x"},
      {"a hidden name", "lab", ".hidden", ".hidden"},
  };
  for (const auto& c : cases) {
    for (const bool isRunning : {false, true}) {
      SCOPED_TRACE(c.why + (isRunning ? ", running"s : ", stopped"s));
      makeScene();
      if (isRunning) makeRunning();
      EXPECT_THAT(rename(c.selector, c.newName), gave(status::success, c.name));
      host::remove(kLab + "/hipvars.txt"s);
      EXPECT_EQ(nameOf(kLab), c.name + "\n"s);
      host::writeFile(kLab + "/profile_name"s, "lab\n", host::modeOf(kLab + "/profile_name"s));
      expectUnchanged();
    }
  }
}

TEST_F(RenameTest, AfterTrimmingANameIsRefusedIfItIsEmptyOrSelectsAProfileOrHasAControlByteInside) {
  const auto expectRefused = [&](const std::string& newName, const char* details) {
    SCOPED_TRACE(host::quoted(newName));
    const Result refused = rename("dir=profile-1", newName);
    EXPECT_THAT(refused, gave(status::invalidArgument, ""));
    EXPECT_EQ(refused.status.details(), details);
    EXPECT_EQ(refused.status.context(), "profile rename");
    expectUnchanged();
  };
  for (const char* newName : {"", " ", "\t\n", "\x7f"}) expectRefused(newName, "profile name not provided");
  for (const char* newName : {"office", "lab", "--active", ".current", ".factory", "dir=profile-1", "dir=profile-2",
                              "dir=.factory", " office ", "dir="}) {
    expectRefused(newName, "invalid profile name");
  }
  for (int byte = 0; byte < 256; ++byte) {
    if (byte < 32 || byte == 127) expectRefused("a"s + static_cast<char>(byte) + "b", "invalid profile name");
  }
  makeUnlistable();
  before_ = store();
  expectRefused("x", "invalid profile name");
}

TEST_F(RenameTest, ANameThatDiffersOnlyInOuterHighBytesIsAcceptedAndMadeUniqueByTheNextListing) {
  for (const char* newName : {"office\x80", "\xc3\xa4office", "\xffoffice\xff"}) {
    SCOPED_TRACE(host::quoted(newName));
    makeScene();
    EXPECT_THAT(rename("lab", newName), gave(status::success, newName));
    EXPECT_EQ(nameOf(kLab), newName + "\n"s);
    EXPECT_EQ(nameOf(kOffice), "office\n");
    std::vector<ProfileRecord> records;
    ASSERT_TRUE(ProfileStore::listProfiles(records));
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].name, "office") << "read without its outer bytes";
    EXPECT_EQ(records[1].name, "office#2");
    EXPECT_EQ(nameOf(records[1].dir), "office#2\n");
  }
}

TEST_F(RenameTest, RenamingALinkedProfileToItsOwnNameWritesNothing) {
  makeLinked();
  host::setMode("/tmp/elsewhere/profile_name", 0604);
  EXPECT_THAT(rename("dir=link", "linked"), gave(status::success, "linked"));
  EXPECT_EQ(host::tree("/tmp/elsewhere"), "f 0604 profile_name \"linked\\n\"\n");
  EXPECT_THAT(rename("dir=link", "other"), gave(status::success, "other"));
  EXPECT_EQ(nameOf("/tmp/elsewhere"), "other\n");
}

TEST_F(RenameTest, ANameThatCannotBeWrittenIsAnOpenError) {
  host::setMode(kLab + "/profile_name"s, 0440);
  const host::BoundByModes bound;
  EXPECT_THAT(rename("lab", "x"), gave(status::openError, ""));
}

// --- Reset

using ResetTest = ProfileChangesTest;

TEST_F(ResetTest, OnlyTheSixStateFilesAreRemoved) {
  for (const char* file : {"endbox.conf", "mapconfig.static", "device_id", "hip.log", "ca-certs/ca.pem", "peers2"}) {
    putOffice(file, "kept\n");
  }
  before_ = store();
  putStateFiles(kOffice);
  putStateFiles(kLab);
  putLab("hipvars.txt", "uptime.now=1\nuptime.started=1\n");
  const std::string lab = host::tree(kLab);
  EXPECT_THAT(reset("office"), gave(status::success, "office"));
  EXPECT_EQ(host::tree(kLab), lab);
  EXPECT_THAT(reset(""), gave(status::success, "lab"));
  expectUnchanged();  // so the daemon is not started
}

TEST_F(ResetTest, TheStateFilesAreRemovedInOrder) {
  putStateFiles(kOffice);
  FaultPlan plan;
  plan.calls = {"unlinkat"};
  plan.before = [](std::size_t call) {
    for (std::size_t i = 0; i < std::size(kStateFiles); ++i) {
      EXPECT_EQ(host::exists(kOffice + "/"s + kStateFiles[i]), i + 1 >= call)
          << kStateFiles[i] << " at removal " << call;
    }
  };
  const ArmedFaults armed(plan);
  EXPECT_THAT(reset("office"), gave(status::success, "office"));
  EXPECT_EQ(armed.count(), 6u);
}

TEST_F(ResetTest, TheActiveRunningProfileIsRefusedAndNothingIsChanged) {
  putStateFiles(kLab);
  makeRunning();
  before_ = store();
  EXPECT_THAT(reset("lab"), gave(status::notWhileRunning, "lab"));
  expectUnchanged();
}

TEST_F(ResetTest, ResettingRemovesOnlyFilesAndLinks) {
  const struct {
    const char* why;
    void (*put)();
    const char* kept;
  } cases[] = {
      {"without state files nothing changes", [] {}, ""},
      {"the fresh heartbeat of an inactive profile is removed", [] { host::writeHeartbeat(kOffice); }, ""},
      {"a directory named like a state file is kept",
       [] {
         host::makeDirs(kOffice + "/peers"s);
         putOffice("map.state", "x");
       },
       "d 0755 peers\n"},
      {"a link is removed, but not its target", [] { host::makeLink(kOffice + "/peers"s, "/tmp/state"); }, ""},
  };
  host::writeFile("/tmp/state", "kept");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    c.put();
    EXPECT_THAT(reset("office"), gave(status::success, "office"));
    EXPECT_EQ(host::tree(kOffice), "f 0644 hip.conf \"\"\n"s + c.kept + "f 0640 profile_name \"office\\n\"\n");
    EXPECT_EQ(host::readFile("/tmp/state"), "kept");
    host::remove(kOffice + "/peers"s);
  }
  expectUnchanged();
}

TEST_F(ResetTest, EveryRemovalIsTriedAndNoFailureIsReported) {
  putStateFiles(kOffice);
  const ArmedFaults armed({1, true, EACCES, {"unlinkat"}});
  EXPECT_THAT(reset("office"), gave(status::success, "office"));
  EXPECT_EQ(armed.count(), 6u);
}

// The profile is a link to a directory outside of the store.
TEST_F(ResetTest, NothingIsRemovedBehindALinkThatIsNotTrusted) {
  SKIP_WITHOUT_OTHER_USERS();
  constexpr uid_t stranger = 65534;
  const std::string link = host::kProfiles + "way"s;
  struct Case {
    const char* why;
    std::function<void()> distrust;
    bool isFollowed;
  };
  const Case cases[] = {
      {"root's link", [] {}, true},
      {"somebody else's link", [&] { host::giveTo(stranger, link); }, false},
      {"a link on the way is somebody else's",
       [] {
         host::remove("/run/hop");
         host::makeLink("/run/hop", "/run/away");
         host::giveTo(stranger, "/run/hop");
       },
       false},
      {"others may write in the directory of a link", [] { host::setMode("/run/links", 0777); }, false},
  };
  for (const bool modifies : {false, true}) {
    for (const std::string selector : {"", "dir=way"}) {
      for (const Case& c : cases) {
        SCOPED_TRACE(c.why + (": " + selector) + (modifies ? ", modify" : ", reset"));
        host::reset();
        host::writeFile("/run/away/profile_name", "away\n", 0640);
        for (const char* file : kStateFiles) host::writeFile("/run/away/"s + file, "uptime.now=1\nuptime.started=1\n");
        host::makeLink("/run/hop", "away");
        host::makeDirs("/run/links");
        host::makeLink("/run/links/other", "../hop");
        host::makeLink(link, "/run/links/other");
        host::makeActive("way");
        c.distrust();
        const ArmedFaults removals({0, false, EIO, {"unlinkat"}});
        ProfileDetails details;
        const Status status = modifies ? ProfileChanges::modifyProfile(selector, {}, details) : reset(selector).status;
        // A name behind such a link cannot be read, and nothing may be written there.
        const bool isFound = c.isFollowed || selector.empty();
        EXPECT_THAT(status, HasCode(isFound ? status::success : status::profileNotFound));
        EXPECT_EQ(removals.count(), c.isFollowed ? 6u : 0u);
        for (const char* file : kStateFiles) EXPECT_EQ(host::exists("/run/away/"s + file), !c.isFollowed) << file;
      }
    }
  }
}

// --- Modify: the changes

using ModifyTest = ProfileChangesTest;

TEST_F(ModifyTest, AllGivenChangesAreMadeAndTheStateFilesAreRemoved) {
  putStateFiles(kOffice);
  ProfileDetails details;
  EXPECT_THAT(ProfileChanges::modifyProfile("office", everything(), details), HasCode(status::success));
  EXPECT_EQ(host::tree(kOffice), kEverythingChanged);
  EXPECT_EQ(details.dirname, "profile-2");
  EXPECT_EQ(details.name, "workshop");
  EXPECT_EQ(details.network, "eth0");
  EXPECT_EQ(details.invitation, "code");
  EXPECT_EQ(details.helmsor.host, "h");
  EXPECT_EQ(details.helmsor.port, "443");
  EXPECT_EQ(details.logLevel, "warning");
  EXPECT_EQ(host::recordedCalls(), "");
  EXPECT_EQ(current(), "profile-1\n");
}

TEST_F(ModifyTest, TheStateFilesAreRemovedBeforeTheInterfaceIsWritten) {
  putStateFiles(kOffice);
  std::size_t callsOfTheWriter = 0;
  FaultPlan plan;
  plan.calls = {"write", "renameat"};
  plan.before = [&](std::size_t) {
    if (!host::exists(kOffice + "/hip.conf.temp"s)) return;
    ++callsOfTheWriter;
    for (const char* file : kStateFiles) EXPECT_FALSE(host::exists(kOffice + "/"s + file)) << file;
  };
  {
    const ArmedFaults armed(plan);
    EXPECT_THAT(modify("office", with(&Modification::network, "eth0")), gave(status::success, "office"));
  }
  EXPECT_GT(callsOfTheWriter, 0u);
  EXPECT_EQ(host::readFile(kOffice + "/hip.conf"s), "master_interface=eth0\n");
}

// A modification of "office", and the files that it leaves behind.
struct Modified {
  const char* why;
  void (*put)();
  Modification wanted;
  std::string tree;
  StatusCode code = status::success;
};

void expectModified(const Modified& c) {
  SCOPED_TRACE(c.why);
  const host::BoundByModes bound;
  EXPECT_THAT(modify("office", c.wanted).status, HasCode(c.code));
  EXPECT_EQ(host::tree(kOffice), c.tree);
}

TEST_F(ModifyTest, OnlyGivenValuesAreWrittenAndTheStateFilesAreAlwaysRemoved) {
  const Modified cases[] = {
      {"without changes the files keep their lines",
       [] { putOffice("endbox.conf", "log_level=debug\n"); },
       {},
       "f 0644 endbox.conf \"log_level=debug\\n\"\n" + kHipConf + kOfficeName},
      {"without changes the interface is kept",
       [] { putOffice("hip.conf", "a=1\nmaster_interface=eth0\n"); },
       {},
       "f 0644 hip.conf \"a=1\\nmaster_interface=eth0\\n\"\n" + kOfficeName},
      {"a change of the level alone removes the heartbeat of an inactive profile",
       [] { host::writeHeartbeat(kOffice); }, with(&Modification::logLevel, "trace"),
       "f 0644 endbox.conf \"log_level=trace\\nopenhip.log_level=trace\\n\"\n" + kHipConf + kOfficeName},
      {"three hash signs clear the invitation", [] { putOffice("endbox.conf", "activation_code=old\nx=1\n"); },
       with(&Modification::invitation, "###"), "f 0644 endbox.conf \"x=1\\n\"\n" + kHipConf + kOfficeName},
      {"an empty invitation and an empty level do nothing",
       [] { putOffice("endbox.conf", "activation_code=old\nlog_level=info\n"); },
       with(&Modification::invitation, " ", with(&Modification::logLevel, "")),
       "f 0644 endbox.conf \"activation_code=old\\nlog_level=info\\n\"\n" + kHipConf + kOfficeName},
      {"a port alone keeps the host", [] { putOffice("mapconfig.static", "map_uri=http://old:1/\n"); },
       with(&Modification::hasHelmsor, true, with(&Modification::helmsorPort, 443)),
       kHipConf + "f 0640 mapconfig.static \"map_uri=https://old:443\\n\"\n" + kOfficeName},
      {"a host alone gets the default port", [] {},
       with(&Modification::hasHelmsor, true, with(&Modification::helmsorHost, "h")),
       kHipConf + "f 0640 mapconfig.static \"map_uri=https://h:8096\\n\"\n" + kOfficeName},
      {"an address that is not given is not written", [] {},
       with(&Modification::helmsorHost, "h", with(&Modification::helmsorPort, 1)), kHipConf + kOfficeName},
      {"outer blanks of the invitation are removed", [] {}, with(&Modification::invitation, "\ncode\t"),
       "f 0644 endbox.conf \"activation_code=code\\n\"\n" + kHipConf + kOfficeName},
  };
  for (const Modified& c : cases) {
    makeScene();
    putOffice("hip.state", "x");
    c.put();
    expectModified(c);
    expectModified(c);  // a second time is harmless
  }
}

TEST_F(ModifyTest, ASecondModifyKeepsTheCommentsOfTheFirst) {
  host::writeFile(kOffice + "/hip.conf"s, "# mine\nmaster_interface=a\n", 0600);
  EXPECT_THAT(modify("office", with(&Modification::network, "b")), gave(status::success, "office"));
  EXPECT_THAT(modify("office", with(&Modification::network, "c")), gave(status::success, "office"));
  EXPECT_EQ(host::readFile(kOffice + "/hip.conf"s), "# mine\nmaster_interface=c\n");
  EXPECT_EQ(host::modeOf(kOffice + "/hip.conf"s), 0600u);
}

TEST_F(ModifyTest, TheSelectedProfileIsRenamedWhateverItsName) {
  const struct {
    const char* why;
    const char* labName;
    const char* officeName;
    const char* dirname;
  } cases[] = {
      {"the selector of the active profile", "lab", "--active", "profile-2"},
      {"the name of the marker", "lab", ".current", "profile-2"},
      {"the name of the template", "lab", ".factory", "profile-2"},
      {"the selector of another profile", "lab", "dir=profile-1", "profile-2"},
      {"the first of two equal names", "same", "same", "profile-1"},
      {"the second of two equal names", "same", "same", "profile-2"},
      {"a linked profile", "lab", "office", "link"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    makeScene();
    makeLinked();
    host::writeFile(kLab + "/profile_name"s, c.labName + "\n"s, 0640);
    host::writeFile(kOffice + "/profile_name"s, c.officeName + "\n"s, 0640);
    EXPECT_THAT(modify("dir="s + c.dirname, with(&Modification::newName, "\t workshop\n")),
                gave(status::success, "workshop"));
    EXPECT_EQ(nameOf(host::kProfiles + ""s + c.dirname), "workshop\n");
    if (c.labName == "lab"s) {
      EXPECT_EQ(nameOf(kLab), "lab\n");
    }
  }
}

TEST_F(ModifyTest, ALinkedDirectoryCanBeModified) {
  makeLinked();
  EXPECT_THAT(modify("dir=link", with(&Modification::network, "eth0")), gave(status::success, "linked"));
  EXPECT_EQ(host::readFile("/tmp/elsewhere/hip.conf"), "master_interface=eth0\n");
}

// --- Modify: refusals before anything changes

TEST_F(ModifyTest, ARefusedNameChangesNothing) {
  makeRunning();
  before_ = store();
  for (const std::string name : {"", " ", "lab", "office", "--active", ".current", ".factory", "dir=profile-1",
                                 "dir=", "dir=.factory", " lab\n", "a\nb",
                                 "a\x7f"
                                 "b"}) {
    SCOPED_TRACE(host::quoted(name));
    const Result refused = modify("lab", with(&Modification::newName, name, everything()));
    EXPECT_THAT(refused, gave(status::invalidArgument, ""));
    EXPECT_EQ(refused.status.details(), "invalid profile name");
    EXPECT_EQ(refused.status.context(), "profile modify");
  }
  expectUnchanged();
}

TEST_F(ModifyTest, EveryControlByteInATextIsRefusedBeforeAnythingChanges) {
  makeRunning();
  before_ = store();
  for (int byte = 0; byte < 256; ++byte) {
    if (byte >= 32 && byte != 127) continue;
    SCOPED_TRACE(byte);
    const std::string text = "a"s + static_cast<char>(byte) + "b";
    for (const Modification& wanted :
         {with(&Modification::newName, text, everything()), with(&Modification::helmsorHost, text, everything()),
          with(&Modification::network, text, everything()), with(&Modification::invitation, text, everything())}) {
      EXPECT_THAT(modify("lab", wanted), gave(status::invalidArgument, ""));
    }
  }
  expectUnchanged();
}

// --- Modify: failures during the changes

TEST_F(ModifyTest, AFailedAddressOrLevelSkipsTheLaterChanges) {
  const std::string state = "f 0644 hip.state \"x\"\n";
  const Modified cases[] = {
      {"an address that cannot be written", [] { host::makeDirs(kOffice + "/mapconfig.static"s); }, everything(),
       kHipConf + state + "d 0755 mapconfig.static\n" + kOfficeName, status::applicationError},
      {"a port alone without a host", [] {},
       with(&Modification::hasHelmsor, true, with(&Modification::helmsorPort, 443)), kHipConf + state + kOfficeName,
       status::applicationError},
      {"a refused level keeps the new address", [] {}, with(&Modification::logLevel, "verbose", everything()),
       kHipConf + state + kNewAddress + kOfficeName, status::applicationError},
  };
  for (const Modified& c : cases) {
    makeScene();
    putOffice("hip.state", "x");
    c.put();
    expectModified(c);
  }
  const Status refused = modify("office", with(&Modification::logLevel, "verbose")).status;
  EXPECT_EQ(refused.details(), "invalid log_level value");
  EXPECT_EQ(refused.context(), "doModifyProfile");
}

TEST_F(ModifyTest, OtherFailuresSkipNothingAndTheFirstIsReturned) {
  const Modification withoutInterface = with(&Modification::network, "", everything());
  const auto protectName = [] { host::setMode(kOffice + "/profile_name"s, 0440); };
  const std::string protectedName = "f 0440 profile_name \"office\\n\"\n";
  const Modified cases[] = {
      {"an empty interface", [] {}, withoutInterface, kNewEndbox + kHipConf + kNewAddress + kNewName,
       status::invalidArgument},
      {"a name that cannot be written", protectName, everything(),
       kNewEndbox + kNewHipConf + kNewAddress + protectedName, status::openError},
      {"an empty interface before a name that cannot be written", protectName, withoutInterface,
       kNewEndbox + kHipConf + kNewAddress + protectedName, status::invalidArgument},
      {"a hip.conf that is a FIFO",
       [] {
         host::remove(kOffice + "/hip.conf"s);
         host::makeFifo(kOffice + "/hip.conf"s);
       },
       everything(), kNewEndbox + "p 0644 hip.conf\n" + kNewAddress + kNewName, status::openError},
  };
  for (const Modified& c : cases) {
    makeScene();
    c.put();
    expectModified(c);
  }
}

// --- Modify: the daemon

// A modification, and what becomes of the daemon and the marker.
struct DaemonCase {
  const char* why;
  void (*put)();
  const char* selector;
  Modification wanted;
  const char* calls;
  const char* current = "profile-1\n";
  StatusCode code = status::success;
};

void expectDaemon(const DaemonCase& c) {
  SCOPED_TRACE(c.why);
  c.put();
  EXPECT_THAT(modify(c.selector, c.wanted).status, HasCode(c.code));
  EXPECT_EQ(host::recordedCalls(), c.calls);
  EXPECT_EQ(host::readFile(host::kCurrent), c.current);
}

TEST_F(ModifyTest, TheDaemonIsStoppedAndStartedOnlyAsNeeded) {
  const auto unclear = [] { putLab("hipvars.txt", "x=1\n"); };
  const auto stopped = [] {};
  const Modification change = with(&Modification::network, "eth0");
  const Modification activation = with(&Modification::activate, true, change);
  const DaemonCase cases[] = {
      {"the active profile, stopped", stopped, "lab", change, ""},
      {"the active profile, running", makeRunning, "lab", change, kRestart},
      {"the active profile, perhaps running", unclear, "lab", change, kRestart},
      {"activating the active profile, stopped", stopped, "lab", activation, "systemctl start hip\n"},
      {"activating the active profile, running", makeRunning, "lab", activation, kRestart},
      {"an inactive profile, stopped", stopped, "office", change, ""},
      {"an inactive profile, running", makeRunning, "office", change, ""},
      {"activating an inactive profile, stopped", stopped, "office", activation, "systemctl start hip\n",
       "profile-2\n"},
      {"activating an inactive profile, running", makeRunning, "office", activation, kRestart, "profile-2\n"},
      {"activating an inactive profile, perhaps running", unclear, "office", activation, kRestart, "profile-2\n"},
  };
  for (const DaemonCase& c : cases) {
    makeScene();
    host::setMode(host::kCurrent, 0600);
    expectDaemon(c);
    // A profile that is active already keeps its marker.
    EXPECT_EQ(host::modeOf(host::kCurrent), c.current == "profile-1\n"s ? 0600u : 0666u) << c.why;
  }
}

TEST_F(ModifyTest, TheChangesAndTheSwitchAreMadeBetweenTheStopAndTheStart) {
  for (const char* dirname : {"profile-1", "profile-2"}) {
    SCOPED_TRACE(dirname);
    makeScene();
    makeRunning();
    const std::string oldName = nameOf(host::kProfiles + ""s + dirname);
    host::installScript(kSystemctl,
                        "cd /etc/zuv/profiles\necho $1 $(cat .current "s + dirname + "/profile_name) >> /tmp/calls\n");
    EXPECT_THAT(modify("dir="s + dirname, everythingAndActivate()), gave(status::success, "workshop"));
    EXPECT_EQ(host::recordedCalls(), "stop profile-1 " + oldName + "start " + dirname + " workshop\n");
  }
}

TEST_F(ModifyTest, AFailedStopOrStartIsReturnedAndAllChangesAreMade) {
  const auto exitInStop = [] {
    makeRunning();
    host::installScript(kSystemctl, "echo \"$1\" >> /tmp/calls\n[ \"$1\" = start ] || exit 4\n");
  };
  const auto dieInStop = [] {
    makeRunning();
    host::installScript(kSystemctl, "echo \"$1\" >> /tmp/calls\n[ \"$1\" = start ] || kill -KILL $$\n");
  };
  const DaemonCase cases[] = {
      {"the stop exits with a status", exitInStop, "lab", everything(), "stop\nstart\n", "profile-1\n",
       status::childExitedNonzero},
      {"the stop dies of a signal", dieInStop, "lab", everything(), "stop\nstart\n", "profile-1\n",
       status::childKilledBySignal},
      {"the tool is missing", [] { host::remove("/usr/bin/systemctl"); }, "lab", everythingAndActivate(), "",
       "profile-1\n", status::childExitedNonzero},
      {"the null backend starts nothing", [] {}, "office",
       with(&Modification::initSystem, "null", everythingAndActivate()), "", "profile-2\n", status::childExitedNonzero},
  };
  for (const DaemonCase& c : cases) {
    makeScene();
    expectDaemon(c);
    EXPECT_EQ(host::tree(c.selector == "lab"s ? kLab : kOffice), kEverythingChanged) << c.why;
  }
}

TEST_F(ModifyTest, TheStatusIsThatOfTheFirstOfSeveralFailures) {
  const auto failBoth = [] {
    makeRunning();
    host::installScript(kSystemctl, "echo $1 >> /tmp/calls\n[ $1 = start ] && exit 4\nkill -KILL $$\n");
  };
  const auto failStart = [] {
    makeRunning();
    host::installScript(kSystemctl, "echo $1 >> /tmp/calls\n[ $1 = stop ]\n");
  };
  const DaemonCase cases[] = {
      {"an empty interface", failBoth, "lab", with(&Modification::network, ""), "stop\nstart\n", "profile-1\n",
       status::childKilledBySignal},
      {"the level and the start", failBoth, "lab", with(&Modification::logLevel, "verbose"), "stop\nstart\n",
       "profile-1\n", status::childKilledBySignal},
      {"the marker and the start", failBoth, "office", with(&Modification::activate, true), "stop\nstart\n",
       "profile-2\n", status::childKilledBySignal},
      {"the marker and the start, but not the stop", failStart, "office", with(&Modification::activate, true),
       "stop\nstart\n", "profile-2\n", status::applicationError},
  };
  for (DaemonCase c : cases) {
    makeScene();
    c.put();
    c.put = [] {};
    const ArmedFaults armed({1, true, EPERM, {"chmod"}});  // the one of the marker
    expectDaemon(c);
  }
}

// The lock of a file counts for files of that name in all profiles.
TEST_F(ModifyTest, AllEditsTogetherWaitTenSecondsForLocks) {
  host::setMode("/tmp/lock", 0755);  // a lock in a directory where others may write stops no edit
  const FileLock hip("hip.conf");
  const FileLock endbox("endbox.conf");
  ASSERT_TRUE(hip.isLocked() && endbox.isLocked());
  const SkippedPauses skipped;
  const Modification wanted = with(&Modification::network, "eth0", with(&Modification::invitation, "code"));
  EXPECT_THAT(modify("office", wanted), gave(status::openError, ""));
  EXPECT_EQ(skipped.total(), std::chrono::seconds(10));
}

TEST_F(ModifyTest, AMarkerThatCannotBeWrittenIsAnApplicationErrorAndTheDaemonIsStarted) {
  host::remove(host::kCurrent);
  host::makeDirs(host::kCurrent);
  EXPECT_THAT(modify("office", everythingAndActivate()), gave(status::applicationError, ""));
  EXPECT_EQ(host::recordedCalls(), "systemctl start hip\n");
  EXPECT_EQ(host::tree(kOffice), kEverythingChanged);
}

TEST_F(ModifyTest, IfAddressOrLevelFailsAStoppedDaemonIsRestartedOnTheOldProfileAndNoOtherDaemonIsStarted) {
  const auto blockAddress = [] { host::makeDirs(kOffice + "/mapconfig.static"s); };
  const auto blockAddressOfRunning = [] {
    makeRunning();
    host::makeDirs(kOffice + "/mapconfig.static"s);
  };
  const Modification refusedLevel = with(&Modification::logLevel, "verbose", everythingAndActivate());
  const Modification all = everythingAndActivate();
  const StatusCode failure = status::applicationError;
  const DaemonCase cases[] = {
      {"the address fails while the daemon runs", blockAddressOfRunning, "office", all, kRestart, "profile-1\n",
       failure},
      {"the level fails while the daemon runs", makeRunning, "office", refusedLevel, kRestart, "profile-1\n", failure},
      {"the address fails while no daemon runs", blockAddress, "office", all, "", "profile-1\n", failure},
      {"the level fails while no daemon runs", [] {}, "office", refusedLevel, "", "profile-1\n", failure},
      {"the level of the active profile fails while no daemon runs", [] {}, "lab", refusedLevel, "", "profile-1\n",
       failure},
  };
  for (const DaemonCase& c : cases) {
    makeScene();
    expectDaemon(c);
    EXPECT_EQ(nameOf(kLab) + nameOf(kOffice), "lab\noffice\n") << c.why;
  }
}

}  // namespace
