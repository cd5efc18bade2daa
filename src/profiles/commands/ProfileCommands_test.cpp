// Tests of the profile commands as the entry point runs them: from command words to printed lines.
#include "profiles/commands/ProfileCommands.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <sstream>

#include "base/system/UniqueFd.h"
#include "command/entry/Catalogue.h"
#include "command/framework/Authorization.h"
#include "command/status/AppStatusCodes.h"
#include "json/JsonModel.h"
#include "testing/faults/AllocationCount.h"
#include "testing/faults/FaultInjector.h"
#include "testing/models/SkippedPauses.h"
#include "testing/run/HostTest.h"

namespace {

using testing::IsEmpty;
using Words = std::vector<std::string>;

class ProfileCommandTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    registerStatusTexts(status::applicationId, appStatusText);
    setAuthorizationMode(authorizationAlways);
    makeStore();
  }
  void TearDown() override {
    setAuthorizationMode(authorizationNever);
    ASSERT_EQ(::chdir("/"), 0);
  }

  // Makes a store of two profiles on an empty host.
  static void makeStore() {
    host::reset();
    host::makeProfile("profile-1", "lab");
    host::makeProfile("profile-2", "office");
    host::makeActive("profile-1");
  }

  // Runs a command, checks that it ends with `code`, and returns what it prints.
  static std::string runWords(Words words, StatusCode code = status::success) {
    int consumed = 0;
    const std::unique_ptr<RavctlCommandInstance> command = findCommand(words, consumed);
    if (!command) return "no such command";
    const ScopedJson array(json::makeArray());
    for (const std::string& word : words) json::append(array.get(), json::makeString(word));
    EXPECT_THAT(bindCommandWords(*command, array.get(), static_cast<std::size_t>(consumed)), HasCode(status::success));
    command->run();
    EXPECT_THAT(command->status().status(), HasCode(code));
    Words lines;
    renderOutput(*command, lines);
    return joined(lines);
  }
  // The words of `line` are separated by one blank each; a blank at its end is followed by an empty word.
  static std::string run(const std::string& line, StatusCode code = status::success) {
    Words words;
    std::istringstream stream(line + ' ');
    for (std::string word; std::getline(stream, word, ' ');) words.push_back(word);
    return runWords(words, code);
  }
  static std::string joined(const Words& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
  }
  static std::string rendered(const ProfileDetailsResultField& field) {
    Words lines;
    StringVectorValueBinder sink(lines);
    field.render(sink);
    return joined(lines);
  }
  static std::string failure(const std::string& text, const std::string& code) {
    return "status_text: " + text + "\nstatus_code: " + code + "\n";
  }
  static std::string notAuthorized() {
    return failure("authentication error (ravctl requires sudo for this command)", "0x12000002");
  }
  static std::string current() { return host::readFile(host::kCurrent); }
  static std::string nameOf(const std::string& dirname) {
    return host::readFile(host::kProfiles + dirname + "/profile_name");
  }
};

constexpr StatusCode kActive = 0x00001001;
constexpr StatusCode kActiveAndRunning = 0x00001002;
constexpr StatusCode kNotFound = 0x12001001;
constexpr StatusCode kApplicationError = 0x12000001;
constexpr StatusCode kInvalidArgument = 0x10000003;
constexpr StatusCode kNotAuthorized = 0x12000002;
constexpr StatusCode kNotWhileRunning = 0x12001002;
constexpr StatusCode kChildFailed = 0x16001001;

const std::string kListed = "profile-1\t'lab'\nprofile-2\t'office'\n";
const std::string kNoValues = "network=\ndeviceID=\noverlay_device_ip=\noverlay_mask=\n";

// --- Fields

TEST_F(ProfileCommandTest, DetailsPrintKeyValueLinesAndLeaveOutAnEmptyInvitationAndHelmsor) {
  ProfileDetailsResultField field;
  ProfileDetails& details = field.details();
  EXPECT_EQ(rendered(field), "") << "never filled";
  details.filled = true;
  const std::string firstLines = "profile_dir=\nprofile_name=\n" + kNoValues;
  EXPECT_EQ(rendered(field), firstLines + "log_level=\n");
  details.helmsor = {"", "9"};
  EXPECT_EQ(rendered(field), firstLines + "log_level=\n") << "a port alone";
  details.helmsor = {"h", ""};
  EXPECT_EQ(rendered(field), firstLines + "helmsor=h\nlog_level=\n") << "a host alone";
  details.dirname = "d";
  details.name = "n";
  details.network = "e";
  details.deviceId = "i";
  details.overlayDeviceIp = "1";
  details.overlayMask = "2";
  details.invitation = "c";
  details.helmsor = {"h", "x"};
  details.logLevel = "info";
  details.networks = {"eth0"};
  EXPECT_EQ(rendered(field),
            "profile_dir=d\nprofile_name=n\nnetwork=e\ndeviceID=i\noverlay_device_ip=1\noverlay_mask=2\n"
            "invitation=c\nhelmsor=h:x\nlog_level=info\n");
  field.clear();
  EXPECT_EQ(rendered(field), "") << "cleared";
}

TEST_F(ProfileCommandTest, FieldsReportTheirNamesAndTypes) {
  const ProfileDetailsResultField details;
  const Hipcmd_GetProfiles::ProfileListResultField list;
  std::string word = "left over";
  details.typeWord(word);
  EXPECT_EQ(word, "profile-details");
  EXPECT_EQ(details.name(), "details");
  list.typeWord(word);
  EXPECT_EQ(word, "profile-list");
  EXPECT_EQ(list.name(), "_profiles");
}

// --- list profiles

TEST_F(ProfileCommandTest, ListPrintsTheDirectoriesOfTheActiveProfileAndOfTheStoreOnlyIfVerbose) {
  EXPECT_EQ(run("list profiles"), kListed + "current_name: lab\n");
  EXPECT_EQ(run("show profiles"), kListed + "current_name: lab\n");
  EXPECT_EQ(run("list profiles --quiet"), kListed + "current_name: lab\n");
  EXPECT_EQ(run("list profiles --verbose"),
            "method: list profiles\nstatus_text: success\nstatus_code: 0x00000001\n" + kListed +
                "current_dir: profile-1\ncurrent_name: lab\nroot_dir: /etc/zuv/profiles/\n");
}

// Returns how many blocks it takes to turn a list of this many profiles into lines.
std::ptrdiff_t blocksToRender(int profiles) {
  host::reset();
  for (int n = 100; n < 100 + profiles; ++n) {
    host::makeProfile("profile-" + std::to_string(n), "name" + std::to_string(n));
  }
  Hipcmd_GetProfiles command;
  command.run();
  std::vector<std::string> lines;
  const std::ptrdiff_t before = newBlocksSoFar();
  renderOutput(command, lines);
  EXPECT_GT(lines.size(), static_cast<std::size_t>(profiles));
  return newBlocksSoFar() - before;
}

// A vector without reserve() would reallocate between 60 and 70 profiles, when it passes 64, but not between 50 and 60.
TEST_F(ProfileCommandTest, TheLinesOfAListAreAllocatedOnceWhateverTheirNumber) {
  const std::ptrdiff_t fifty = blocksToRender(50), sixty = blocksToRender(60);
  EXPECT_EQ(blocksToRender(70) - sixty, sixty - fifty);
}

TEST_F(ProfileCommandTest, ListSortsByNameQuotesNamesAsTheyAreAndRepairsThemFirst) {
  host::makeProfile("profile-0", "m'x");
  EXPECT_EQ(run("list profiles"), "profile-1\t'lab'\nprofile-0\t'm'x'\nprofile-2\t'office'\ncurrent_name: lab\n");
  host::remove("/etc/zuv/profiles/profile-0");
  host::writeFile("/etc/zuv/profiles/profile-2/profile_name", "lab\n");
  EXPECT_THAT(run("list profiles"), testing::AnyOf("profile-1\t'lab'\nprofile-2\t'lab#2'\ncurrent_name: lab\n",
                                                   "profile-2\t'lab'\nprofile-1\t'lab#2'\ncurrent_name: lab#2\n"));
  EXPECT_THAT(nameOf("profile-1") + nameOf("profile-2"), testing::AnyOf("lab\nlab#2\n", "lab#2\nlab\n"));
}

TEST_F(ProfileCommandTest, ListCreatesTheFirstProfileButNotAMissingStore) {
  host::reset();
  EXPECT_EQ(run("list profiles"), "profile-123123\t'profile'\ncurrent_name: profile\n");
  EXPECT_EQ(current(), "profile-123123\n");
  host::remove(host::kProfiles);
  EXPECT_EQ(run("list profiles", kApplicationError), failure("application error", "0x12000001"));
  EXPECT_FALSE(host::exists(host::kProfiles));
}

TEST_F(ProfileCommandTest, ListPrintsAnEmptyNameIfNoProfileIsElectedOrTheMarkerCannotBeRead) {
  host::remove(host::kCurrent);
  host::makeDirs(host::kCurrent);
  EXPECT_EQ(run("list profiles"), kListed + "current_name: \n");
  host::remove(host::kCurrent);
  setAuthorizationMode(authorizationNever);
  host::writeFile(host::kCurrent, "profile-1\n", 0);
  const host::BoundByModes bound;
  EXPECT_EQ(run("list profiles --verbose"), "method: list profiles\nstatus_text: success\nstatus_code: 0x00000001\n" +
                                                kListed +
                                                "current_dir: \ncurrent_name: \nroot_dir: /etc/zuv/profiles/\n");
}

// --- Authorization and election

TEST_F(ProfileCommandTest, ListAndDetailsNeedNoAuthorization) {
  setAuthorizationMode(authorizationNever);
  EXPECT_EQ(run("list profiles"), kListed + "current_name: lab\n");
  EXPECT_EQ(run("profile details office"), "profile_dir=profile-2\nprofile_name=office\n" + kNoValues + "log_level=\n");
}

TEST_F(ProfileCommandTest, WithoutAuthorizationNoSystemCallIsMade) {
  setAuthorizationMode(authorizationNever);
  const std::string before = host::tree("/etc/zuv");
  for (const char* line : {"profile create new helmsor=h", "profile create new helmsor=h sys=initd activate",
                           "profile modify office network=n activate", "profile modify office network=n sys=systemd",
                           "profile activate office", "profile activate .current sys=null",
                           "profile rename office new_name=x", "profile delete office", "support reset office"}) {
    SCOPED_TRACE(line);
    const ArmedFaults counted({});
    EXPECT_EQ(run(line, kNotAuthorized), notAuthorized());
    EXPECT_THAT(counted.calls(), IsEmpty());
  }
  EXPECT_EQ(host::tree("/etc/zuv"), before);
}

TEST_F(ProfileCommandTest, RenameAndModifyElectNothingWithoutAuthorization) {
  setAuthorizationMode(authorizationNever);
  host::makeActive("gone");
  for (const char* line : {"profile rename missing new_name=x", "profile modify missing new_name=x"}) {
    SCOPED_TRACE(line);
    EXPECT_EQ(run(line, kNotAuthorized), notAuthorized());
    EXPECT_EQ(current(), "gone\n");
  }
}

TEST_F(ProfileCommandTest, ListDetailsRenameAndModifyElectBeforeTheyActAndASuccessfulDeleteElectsAfterwards) {
  const std::string notFound = failure("profile not found", "0x12001001");
  const std::string lab = "profile_dir=profile-1\nprofile_name=lab\n" + kNoValues + "log_level=\n";
  const std::string childFailed = failure("child process returned nonzero exit code", "0x16001001");
  const struct {
    const char* before;  // the marker; empty: none
    const char* line;
    StatusCode code;
    std::string printed;
    const char* after;
  } cases[] = {
      {"", "list profiles", status::success, kListed + "current_name: lab\n", "profile-1\n"},
      {"gone\n", "profile details ", kActive, lab, "profile-1\n"},
      {"gone\n", "profile rename missing new_name=x", kNotFound, notFound, "profile-1\n"},
      {"gone\n", "profile modify missing new_name=x", kNotFound, notFound, "profile-1\n"},
      {"profile-1\n", "profile delete lab", status::success, "", "profile-2\n"},
      {"gone\n", "profile delete --active", status::success, "", "profile-1\n"},
      {"gone\n", "profile delete missing", kNotFound, notFound, "gone\n"},
      {"../profiles/profile-1\n", "profile delete ", kApplicationError, failure("application error", "0x12000001"),
       "../profiles/profile-1\n"},
      {"", "profile create new helmsor=h --quiet", status::success, "profile_name: new\n", ""},
      {"profile-1\n", "profile create new helmsor=h activate=false sys=null --quiet", status::success,
       "profile_name: new\n", "profile-1\n"},
      {"profile-1\n", "profile create new helmsor=h activate sys=null", kChildFailed, childFailed, "profile-123123\n"},
      {"", "profile activate missing", kNotFound, notFound, ""},
      {"", "profile activate ", kInvalidArgument, failure("invalid argument", "0x10000003"), ""},
      {"profile-1\n", "profile activate office", kChildFailed, childFailed, "profile-2\n"},
      {"profile-2\n", "profile activate lab sys=", kChildFailed, childFailed, "profile-1\n"},
      {"", "support reset ", status::success, "support reset: \n", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    makeStore();
    host::remove(host::kCurrent);
    if (*c.before != '\0') host::writeFile(host::kCurrent, c.before, 0666);
    EXPECT_EQ(run(c.line, c.code), c.printed);
    EXPECT_EQ(host::exists(host::kCurrent) ? current() : "", c.after);
  }
}

// --- profile details

TEST_F(ProfileCommandTest, DetailsPrintTheValuesOfTheFiles) {
  host::writeFile("/etc/zuv/profiles/profile-2/hip.conf", "master_interface=eth0\n");
  host::writeFile("/etc/zuv/profiles/profile-2/device_id", "00:11\n");
  host::writeFile("/etc/zuv/profiles/profile-2/endbox.conf",
                  "device_ip=10.9.0.1\ndevice_mask=255.255.0.0\nactivation_code=code\nlog_level=debug\n");
  host::writeFile("/etc/zuv/profiles/profile-2/mapconfig.static", "map_uri=http://10.0.0.5:9000/path\n");
  const char* expected =
      "profile_dir=profile-2\nprofile_name=office\nnetwork=eth0\ndeviceID=00:11\noverlay_device_ip=10.9.0.1\n"
      "overlay_mask=255.255.0.0\ninvitation=code\nhelmsor=10.0.0.5:9000\nlog_level=debug\n";
  EXPECT_EQ(run("profile details office"), expected);
  EXPECT_EQ(run("profile details dir=profile-2"), expected);
  EXPECT_EQ(run("profile details lab profile=office"), expected) << "the named parameter wins";
  host::writeFile("/etc/zuv/profiles/.factory/endbox.conf", "log_level=info\n");
  EXPECT_EQ(run("profile details .factory"),
            "profile_dir=.factory\nprofile_name=.factory\n" + kNoValues + "log_level=info\n");
}

TEST_F(ProfileCommandTest, DetailsOfTheActiveProfileReportThatItIsActiveOrRunning) {
  for (const char* selector : {"lab", "dir=profile-1", "", ".current", "--active"}) {
    SCOPED_TRACE(selector);
    EXPECT_THAT(run("profile details " + std::string(selector) + " --verbose", kActive),
                testing::StartsWith("method: profile details\nstatus_text: profile is active\nstatus_code: 0x00001001\n"
                                    "profile_dir=profile-1\nprofile_name=lab\n"));
  }
  host::writeHeartbeat("/etc/zuv/profiles/profile-1");
  EXPECT_THAT(run("profile details lab --verbose", kActiveAndRunning),
              testing::StartsWith(
                  "method: profile details\nstatus_text: profile is currently running\nstatus_code: 0x00001002\n"));
}

// --- profile create

TEST_F(ProfileCommandTest, CreatePrintsTheDetailsAndTheName) {
  EXPECT_EQ(run("profile create new helmsor=10.0.0.1:443 network=eth0 invitation=code"),
            "profile_dir=profile-123123\nprofile_name=new\nnetwork=eth0\ndeviceID=\noverlay_device_ip=\noverlay_mask=\n"
            "invitation=code\nhelmsor=10.0.0.1:443\nlog_level=\nprofile_name: new\n");
  EXPECT_EQ(run("profile create new helmsor=h new_name=other --quiet"), "profile_name: other\n");
}

TEST_F(ProfileCommandTest, CreateAndModifyWriteHostAndPortOfTheAddressBehindHttpsWithoutItsPath) {
  const struct {
    const char *given, *written;
  } cases[] = {
      {"https://10.0.0.5", "map_uri=https://10.0.0.5:8096\n"},
      {"HTTP://10.0.0.5:443/a:b", "map_uri=https://10.0.0.5:443\n"},
      {"10.0.0.5", "map_uri=https://10.0.0.5:8096\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.given);
    makeStore();
    run(std::string("profile create new --quiet helmsor=") + c.given);
    EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-123123/mapconfig.static"), c.written);
    run(std::string("profile modify office --quiet helmsor=") + c.given);
    EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-2/mapconfig.static"), c.written);
  }
}

TEST_F(ProfileCommandTest, CreateWritesNoLevelAndNoEmptyInterface) {
  run("profile create new helmsor=h log_level=debug network=");
  EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-123123"),
            "d 0755 ca-certs\n"
            "f 0640 mapconfig.static \"map_uri=https://h:8096\\n\"\n"
            "f 0640 profile_name \"new\\n\"\n");
}

TEST_F(ProfileCommandTest, CreateRefusesATakenNameOnlyWithoutAllowRename) {
  EXPECT_EQ(run("profile create lab helmsor=h allow_rename=false", kApplicationError),
            failure("application error", "0x12000001"));
  EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-123123"), "");
  EXPECT_EQ(run("profile create lab helmsor=h --quiet"), "profile_name: lab#2\n");
}

// --- profile activate, delete, rename, modify and support reset: what the commands add to their operations

TEST_F(ProfileCommandTest, ActivatePrintsTheName) {
  host::writeFile("/etc/zuv/.systemctl", "");
  host::installRecorder("/bin/systemctl", "/tmp/calls");
  EXPECT_EQ(run("profile activate office"), "profile_name: office\n");
  EXPECT_EQ(current(), "profile-2\n");
  EXPECT_EQ(host::readFile("/tmp/calls"), "systemctl stop hip\nsystemctl start hip\n");
}

// The host has systemd, but the commands name another init system.
class ActivateActiveTest : public ProfileCommandTest {
 protected:
  static constexpr const char* kStart = "initctl start hip\n";

  static void makeStoreWithTools(int exitStatus = 0) {
    ASSERT_EQ(::chdir("/"), 0);  // electing has entered a profile
    makeStore();
    host::remove(host::kCurrent);
    host::writeFile("/etc/zuv/.systemctl", "");
    host::installRecorder(host::kSystemctl, host::kCalls, exitStatus);
    host::installRecorder("/sbin/initctl", host::kCalls, exitStatus);
  }
  static void makeEmptyStoreWithTools(int exitStatus = 0) {
    makeStoreWithTools(exitStatus);
    for (const char* dirname : {"profile-1", "profile-2"}) host::remove(std::string(host::kProfiles) + dirname);
  }
  static std::string activateActive(const std::string& selector, StatusCode code = status::success) {
    return run("profile activate " + selector + " sys=upstart", code);
  }
};

TEST_F(ActivateActiveTest, AnotherProfileIsElectedAndStartedOnceIfTheDirectoryIsMissing) {
  const struct {
    const char* why;
    void (*put)();
  } cases[] = {
      {"no marker", [] {}},
      {"an empty marker", [] { host::writeFile(host::kCurrent, "", 0666); }},
      {"a marker of blanks", [] { host::writeFile(host::kCurrent, " \n", 0666); }},
      {"a missing directory", [] { host::makeActive("gone"); }},
      {"a file",
       [] {
         host::writeFile("/etc/zuv/profiles/file", "");
         host::makeActive("file");
       }},
      {"a broken link",
       [] {
         host::makeLink("/etc/zuv/profiles/link", "/tmp/gone");
         host::makeActive("link");
       }},
      {"a path out of the store", [] { host::makeActive("../profiles/profile-2"); }},
      {"the template", [] { host::makeActive(".factory"); }},
  };
  for (const auto& c : cases) {
    for (const char* selector : {".current", "--active"}) {
      SCOPED_TRACE(std::string(c.why) + " " + selector);
      makeStoreWithTools();
      c.put();
      EXPECT_EQ(activateActive(selector), "profile_name: lab\n");
      EXPECT_EQ(current(), "profile-1\n");
      EXPECT_EQ(host::recordedCalls(), kStart);
      EXPECT_EQ(run(std::string("profile activate ") + selector), "profile_name: lab\n");
      EXPECT_EQ(host::recordedCalls(), std::string(kStart) + "systemctl start hip\n") << "now it is only started";
    }
  }
}

TEST_F(ActivateActiveTest, OnAnEmptyStoreAProfileIsCreatedAndStartedOnce) {
  for (const char* selector : {".current", "--active"}) {
    SCOPED_TRACE(selector);
    makeEmptyStoreWithTools();
    EXPECT_EQ(activateActive(selector), "profile_name: profile\n");
    EXPECT_EQ(current(), "profile-123123\n");
    EXPECT_EQ(nameOf("profile-123123"), "profile\n");
    EXPECT_EQ(host::recordedCalls(), kStart);
  }
}

TEST_F(ActivateActiveTest, TheStatusOfTheOnlyStartIsReturned) {
  const std::string failed = failure("child process returned nonzero exit code", "0x16001001");
  for (const bool isEmpty : {false, true}) {
    SCOPED_TRACE(isEmpty ? "a profile is created" : "a profile is elected");
    isEmpty ? makeEmptyStoreWithTools(5) : makeStoreWithTools(5);
    EXPECT_EQ(activateActive(".current", kChildFailed), failed);
    EXPECT_EQ(current(), isEmpty ? "profile-123123\n" : "profile-1\n");
    EXPECT_EQ(host::recordedCalls(), kStart);
  }
}

TEST_F(ActivateActiveTest, NothingIsStartedIfNoProfileBecomesActive) {
  const struct {
    const char* why;
    void (*put)();
  } cases[] = {
      {"the marker cannot be read",
       [] {
         makeStoreWithTools();
         host::writeFile(host::kCurrent, "profile-1\n", 0);
       }},
      {"the marker cannot be read and there is no profile",
       [] {
         makeEmptyStoreWithTools();
         host::writeFile(host::kCurrent, "gone\n", 0);
       }},
      {"the marker cannot be written for an elected profile",
       [] {
         makeStoreWithTools();
         host::makeDirs(host::kCurrent);
       }},
      {"the marker cannot be written for a created profile",
       [] {
         makeEmptyStoreWithTools();
         host::makeDirs(host::kCurrent);
       }},
      {"no profile can be created",
       [] {
         makeEmptyStoreWithTools();
         host::setMode(host::kProfiles, 0500);
       }},
      {"there is no store",
       [] {
         makeEmptyStoreWithTools();
         host::remove(host::kProfiles);
       }},
  };
  for (const auto& c : cases) {
    for (const char* selector : {".current", "--active"}) {
      SCOPED_TRACE(std::string(c.why) + " " + selector);
      c.put();
      {
        const host::BoundByModes bound;
        EXPECT_EQ(activateActive(selector, kNotFound), failure("profile not found", "0x12001001"));
      }
      EXPECT_EQ(host::recordedCalls(), "");
      if (host::exists(host::kProfiles)) host::setMode(host::kProfiles, 0755);
    }
  }
}

TEST_F(ActivateActiveTest, OtherSelectorsAndAnExistingDirectoryElectNothing) {
  const struct {
    const char *selector, *marker;
    StatusCode code;
    const char *after, *calls;
  } cases[] = {
      {"office", "gone\n", status::success, "profile-2\n", "initctl stop hip\ninitctl start hip\n"},
      {"dir=profile-2", "gone\n", status::success, "profile-2\n", "initctl stop hip\ninitctl start hip\n"},
      {"dir=gone", "gone\n", kNotFound, "gone\n", ""},
      {"missing", "gone\n", kNotFound, "gone\n", ""},
      {"dir=", "gone\n", kInvalidArgument, "gone\n", ""},
      {".factory", "gone\n", kInvalidArgument, "gone\n", ""},
      {"profile=", "gone\n", kNotFound, "gone\n", ""},
      {".current", "profile-2\n", status::success, "profile-2\n", "initctl start hip\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.selector);
    makeStoreWithTools();
    host::remove("/etc/zuv/profiles/profile-2/hip.conf");  // an active profile without it would not be kept
    host::writeFile(host::kCurrent, c.marker, 0666);
    activateActive(c.selector, c.code);
    EXPECT_EQ(current(), c.after);
    EXPECT_EQ(host::recordedCalls(), c.calls);
  }
}

TEST_F(ProfileCommandTest, DeletingTheLastProfileCreatesANewOne) {
  run("profile delete office");
  EXPECT_EQ(run("profile delete lab"), "");
  EXPECT_FALSE(host::exists("/etc/zuv/profiles/profile-1"));
  EXPECT_EQ(current(), "profile-123123\n");
  EXPECT_EQ(nameOf("profile-123123"), "profile\n");
}

TEST_F(ProfileCommandTest, RenamePrintsTheNewName) {
  EXPECT_EQ(runWords({"profile", "rename", "lab", "new_name= new "}), "profile_name: new\n");
  EXPECT_EQ(nameOf("profile-1"), "new\n");
}

TEST_F(ProfileCommandTest, ModifyWithoutChangesLeavesTheFilesUnchanged) {
  host::writeFile("/etc/zuv/profiles/profile-2/hip.conf", "master_interface=eth0\n");
  host::writeFile("/etc/zuv/profiles/profile-2/endbox.conf", "activation_code=old\nlog_level=debug\n");
  host::writeFile("/etc/zuv/profiles/profile-2/mapconfig.static", "map_uri=https://old:1\n");
  const std::string before = host::tree("/etc/zuv/profiles/profile-2");
  EXPECT_EQ(run("profile modify office"),
            "profile_dir=profile-2\nprofile_name=office\nnetwork=eth0\ndeviceID=\noverlay_device_ip=\noverlay_mask=\n"
            "invitation=old\nhelmsor=old:1\nlog_level=debug\n");
  EXPECT_EQ(run("profile modify office --quiet"), "");
  EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-2"), before);
}

TEST_F(ProfileCommandTest, ModifyWritesAKnownLevelUnderItsFullName) {
  const struct {
    const char* word;
    const char* written;
  } cases[] = {{"log_level=Warn", "warning"},
               {"log_level=critical", "fatal"},
               {"log_level= debug ", "debug"},
               {"log_level=err", "error"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.word);
    EXPECT_EQ(runWords({"profile", "modify", "office", c.word, "--quiet"}), "");
    EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-2/endbox.conf"),
              std::string("log_level=") + c.written + "\nopenhip.log_level=" + c.written + "\n");
  }
  const std::string before = host::tree("/etc/zuv/profiles/profile-2");
  EXPECT_EQ(run("profile modify office log_level= --quiet"), "");
  EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-2"), before);
}

TEST_F(ProfileCommandTest, ModifyAcceptsAPortAloneAndAHostWithoutAPort) {
  const struct {
    const char* word;
    const char* before;
    const char* after;
  } cases[] = {{"helmsor=h:0", "map_uri=https://old:1\n", "map_uri=https://h:8096\n"},
               {"helmsor=g", "map_uri=https://old:1\n", "map_uri=https://g:8096\n"},
               {"helmsor=:443", "map_uri=https://old:1\n", "map_uri=https://old:443\n"},
               {"helmsor=:443", "map_uri=HTTP://old:1/x\n", "map_uri=https://old:443\n"},
               {"helmsor=http://:443/x", "map_uri=https://old:1\n", "map_uri=https://old:443\n"},
               {"helmsor=:", "map_uri=http://old:1/path\n", "map_uri=http://old:1/path\n"},
               {"helmsor=:0", "map_uri=http://old:1/path\n", "map_uri=http://old:1/path\n"},
               {"helmsor=:65536", "map_uri=http://old:1/path\n", "map_uri=http://old:1/path\n"},
               {"helmsor=:99999999999", "map_uri=http://old:1/path\n", "map_uri=http://old:1/path\n"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.word);
    host::writeFile("/etc/zuv/profiles/profile-2/mapconfig.static", c.before);
    run("profile modify office " + std::string(c.word));
    EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-2/mapconfig.static"), c.after);
  }
}

TEST_F(ProfileCommandTest, ModifyRefusesAnEmptyInterfaceButWritesTheInvitation) {
  EXPECT_EQ(run("profile modify office network= invitation=code", kInvalidArgument),
            failure("invalid argument", "0x10000003"));
  EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-2/endbox.conf"), "activation_code=code\n");
}

TEST_F(ProfileCommandTest, ResetPrintsTheNameUnderItsOwnKey) {
  host::writeFile("/etc/zuv/profiles/profile-2/hip.state", "x");
  EXPECT_EQ(run("support reset office"), "support reset: office\n");
  EXPECT_FALSE(host::exists("/etc/zuv/profiles/profile-2/hip.state"));
}

TEST_F(ProfileCommandTest, DeleteAndResetAreRefusedWhileTheDaemonRuns) {
  host::writeHeartbeat("/etc/zuv/profiles/profile-1");
  const std::string refused = failure("command cannot be executed while the profile is running", "0x12001002");
  EXPECT_EQ(run("profile delete lab", kNotWhileRunning), refused);
  EXPECT_EQ(run("support reset ", kNotWhileRunning), refused);
}

TEST_F(ProfileCommandTest, ARefusedCommandPrintsItsStatusAndChangesNothing) {
  const std::string notFound = failure("profile not found", "0x12001001");
  const std::string badLevel = failure("application error (invalid log_level value)", "0x12000001");
  const std::string badName = failure("invalid argument (invalid profile name)", "0x10000003");
  const struct {
    Words words;
    StatusCode code;
    std::string printed;
  } cases[] = {
      {{"profile", "details", "missing"}, kNotFound, notFound},
      {{"profile", "details", "missing", "--quiet"}, kNotFound, "status_code: 0x12001001\n"},
      {{"profile", "details", "dir="}, kInvalidArgument, failure("invalid argument", "0x10000003")},
      {{"profile", "details", "dir=../profiles/profile-1"}, kNotFound, notFound},
      {{"profile", "create", "a\tb", "helmsor=h"}, kInvalidArgument, badName},
      {{"profile", "modify", "office", "new_name="}, kInvalidArgument, badName},
      {{"profile", "modify", "office", "log_level=verbose"}, kApplicationError, badLevel},
      {{"profile", "modify", "office", "log_level=notice"}, kApplicationError, badLevel},
      {{"profile", "modify", "office", "log_level= "}, kApplicationError, badLevel},
  };
  const std::string before = host::tree("/etc/zuv");
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.words));
    EXPECT_EQ(runWords(c.words, c.code), c.printed);
    EXPECT_EQ(host::tree("/etc/zuv"), before);
  }
}

TEST_F(ProfileCommandTest, AllRepairsOfACommandTogetherWaitOneSecondForLocks) {
  for (const char* words :
       {"list profiles", "profile details other", "profile create new helmsor=h", "profile rename other new_name=x",
        "profile modify other new_name=x", "profile activate other sys=systemd", "profile delete other",
        "support reset other", "list log other"}) {
    for (const bool elects : {false, true}) {
      SCOPED_TRACE(words + std::string(elects ? ", no profile to keep active" : ""));
      host::reset();
      host::installRecorder("/bin/systemctl", "/tmp/calls");
      std::vector<UniqueFd> locks;
      for (const std::string dirname : {"profile-1", "profile-2"}) {
        host::makeProfile(dirname, "lab");
        const std::string file = host::kProfiles + dirname + "/profile_name";
        locks.emplace_back(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
        ASSERT_EQ(::flock(locks.back().get(), LOCK_EX), 0);
      }
      host::makeProfile("profile-3", "other");
      host::writeFile("/etc/zuv/profiles/profile-3/hip.log", "");
      host::makeActive("profile-1");
      if (!elects) host::writeFile("/etc/zuv/profiles/profile-1/hip.conf", "");
      const SkippedPauses skipped;
      (void)run(words);
      EXPECT_EQ(skipped.total(), std::chrono::seconds(1));
    }
  }
}

// The store is behind a link to a link.
constexpr uid_t kStranger = 65534;
struct LinkedStore {
  const char* why;
  void (*distrust)();
};
const LinkedStore kDistrusted[] = {
    {"the link is a stranger's", [] { host::giveTo(kStranger, "/etc/zuv/profiles"); }},
    {"the link on the way is a stranger's", [] { host::giveTo(kStranger, "/run/links/hop"); }},
    {"the directory of the link on the way is a stranger's", [] { host::giveTo(kStranger, "/run/links"); }},
    {"others may write in the directory of the link on the way", [] { host::setMode("/run/links", 0777); }},
};
constexpr const char* kLinkedStore = "/run/store";

void makeLinkedStore() {
  host::reset();
  host::writeFile("/run/store/keep/profile_name", "kept\n", 0640);
  host::writeFile("/run/store/keep/hip.conf", "", 0640);
  host::writeFile("/run/store/other/profile_name", "other\n", 0640);
  host::writeFile("/run/store/other/hip.conf", "", 0640);
  host::writeFile("/run/store/.current", "other\n", 0666);
  host::writeFile("/run/store/.deleted-1/profile_name", "", 0640);
  host::makeDirs("/run/links");
  host::makeLink("/run/links/hop", "../store");
  host::remove("/etc/zuv/profiles");
  host::makeLink("/etc/zuv/profiles", "/run/links/hop");
  host::installRecorder("/bin/systemctl", "/tmp/calls");
}

struct LinkedStoreCase {
  const char* words;
  StatusCode untrusted;
  const char* changed;  // a part of the tree of the store that only a trusted link leads to
};
const LinkedStoreCase kLinkedStoreCases[] = {
    {"list profiles", status::applicationError, ""},
    {"profile create new helmsor=h", status::applicationError, "profile-123123/profile_name \"new\\n\""},
    {"profile rename kept new_name=new", status::applicationError, "keep/profile_name \"new\\n\""},
    {"profile rename dir=keep new_name=new", status::profileNotFound, "keep/profile_name \"new\\n\""},
    {"profile modify kept network=eth0", status::applicationError, "keep/hip.conf \"master_interface=eth0\\n\""},
    {"profile modify dir=keep network=eth0", status::profileNotFound, "keep/hip.conf \"master_interface=eth0\\n\""},
    {"profile activate kept sys=systemd", status::applicationError, ".current \"keep\\n\""},
    {"profile details kept", status::applicationError, ""},
    {"profile details dir=keep", status::profileNotFound, ""},
    {"support reset kept", status::applicationError, ""},
    {"profile delete kept", status::applicationError, "!keep"},
    {"profile delete dir=keep", status::profileNotFound, "!keep"},
    {"profile delete kept", status::applicationError, "!.deleted-1"},
};

TEST_F(ProfileCommandTest, EveryCommandFollowsATrustedLinkToTheStore) {
  for (const LinkedStoreCase& c : kLinkedStoreCases) {
    SCOPED_TRACE(c.words);
    makeLinkedStore();
    (void)run(c.words);
    const std::string after = host::tree(kLinkedStore);
    const bool isGone = c.changed[0] == '!';
    EXPECT_EQ(after.find(c.changed + (isGone ? 1 : 0)) == std::string::npos, isGone) << after;
  }
}

TEST_F(ProfileCommandTest, BehindAnUntrustedLinkNoStoreIsListedOrChanged) {
  SKIP_WITHOUT_OTHER_USERS();
  for (const LinkedStore& link : kDistrusted) {
    for (const LinkedStoreCase& c : kLinkedStoreCases) {
      SCOPED_TRACE(link.why + std::string(": ") + c.words);
      makeLinkedStore();
      link.distrust();
      const std::string before = host::tree(kLinkedStore);
      const std::string output = run(c.words, c.untrusted);
      EXPECT_EQ(output.find("keep\t"), std::string::npos);
      EXPECT_EQ(host::tree(kLinkedStore), before);
    }
  }
}

}  // namespace
