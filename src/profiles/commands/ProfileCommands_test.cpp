// Tests of the profile commands as the entry point runs them: from command words to printed lines.
#include "profiles/commands/ProfileCommands.h"

#include <sys/stat.h>
#include <unistd.h>

#include "command/entry/Catalogue.h"
#include "command/framework/Authorization.h"
#include "command/status/AppStatusCodes.h"
#include "json/JsonModel.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Words = std::vector<std::string>;

class ProfileCommandTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    registerStatusTexts(status::applicationId, appStatusText);
    setAuthorizationMode(authorizationAlways);
    host::makeProfile("profile-1", "lab");
    host::makeProfile("profile-2", "office");
    host::makeActive("profile-1");
  }
  void TearDown() override {
    setAuthorizationMode(authorizationNever);
    ASSERT_EQ(::chdir("/"), 0);
  }

  // Runs a command, checks that it ends with `code`, and returns the lines that it prints.
  static Words run(Words words, StatusCode code = status::success) {
    int consumed = 0;
    const std::unique_ptr<RavctlCommandInstance> command = findCommand(words, consumed);
    if (!command) return {"no such command"};
    const ScopedJson array(json::makeArray());
    for (const std::string& word : words) json::append(array.get(), json::makeString(word));
    EXPECT_THAT(bindCommandWords(*command, array.get(), static_cast<std::size_t>(consumed)), HasCode(status::success));
    command->run();
    EXPECT_THAT(command->status().status(), HasCode(code));
    Words lines;
    renderOutput(*command, lines);
    return lines;
  }
  static Words failure(const std::string& text, const std::string& code) {
    return {"status_text: " + text, "status_code: " + code};
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

// --- Fields

TEST_F(ProfileCommandTest, DetailsPrintKeyValueLinesAndLeaveOutAnEmptyInvitationAndHelmsor) {
  ProfileDetailsResultField field;
  Words lines;
  StringVectorValueBinder sink(lines);
  field.render(sink);
  EXPECT_THAT(lines, IsEmpty()) << "never filled";
  field.details().filled = true;
  field.render(sink);
  EXPECT_THAT(lines, ElementsAre("profile_dir=", "profile_name=", "network=", "deviceID=", "overlay_device_ip=",
                                 "overlay_mask=", "log_level="));
  lines.clear();
  field.details().dirname = "d";
  field.details().name = "n";
  field.details().network = "e";
  field.details().deviceId = "i";
  field.details().overlayDeviceIp = "1";
  field.details().overlayMask = "2";
  field.details().invitation = "c";
  field.details().helmsor = {"h", "9"};
  field.details().logLevel = "info";
  field.details().networks = {"eth0"};
  field.render(sink);
  EXPECT_THAT(lines, ElementsAre("profile_dir=d", "profile_name=n", "network=e", "deviceID=i", "overlay_device_ip=1",
                                 "overlay_mask=2", "invitation=c", "helmsor=h:9", "log_level=info"));
  lines.clear();
  field.clear();
  field.render(sink);
  EXPECT_THAT(lines, IsEmpty()) << "cleared";
}

TEST_F(ProfileCommandTest, AHelmsorIsPrintedWithoutAnEmptyPortAndNotAtAllWithoutAHost) {
  const struct {
    ConfigControl::HelmsorAddress address;
    const char* line;
  } cases[] = {{{"h", ""}, "helmsor=h"}, {{"h", "x"}, "helmsor=h:x"}, {{"", "9"}, nullptr}};
  for (const auto& c : cases) {
    ProfileDetailsResultField field;
    field.details().filled = true;
    field.details().helmsor = c.address;
    Words lines;
    StringVectorValueBinder sink(lines);
    field.render(sink);
    if (c.line != nullptr) {
      ASSERT_EQ(lines.size(), 8u);
      EXPECT_EQ(lines[6], c.line);
    } else {
      EXPECT_EQ(lines.size(), 7u);
    }
  }
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

TEST_F(ProfileCommandTest, ListPrintsDirectoryTabAndQuotedNameInTheOrderOfNames) {
  host::makeProfile("profile-0", "m'x");
  EXPECT_THAT(run({"list", "profiles"}),
              ElementsAre("profile-1\t'lab'", "profile-0\t'm'x'", "profile-2\t'office'", "current_name: lab"));
  EXPECT_EQ(run({"show", "profiles"}), run({"list", "profiles"}));
}

TEST_F(ProfileCommandTest, ListPrintsDirectoryAndRootOnlyWhenVerbose) {
  EXPECT_THAT(run({"list", "profiles", "--verbose"}),
              ElementsAre("method: list profiles", "status_text: success", "status_code: 0x00000001",
                          "profile-1\t'lab'", "profile-2\t'office'", "current_dir: profile-1", "current_name: lab",
                          "root_dir: /etc/zuv/profiles/"));
  EXPECT_THAT(run({"list", "profiles", "--quiet"}),
              ElementsAre("profile-1\t'lab'", "profile-2\t'office'", "current_name: lab"));
}

TEST_F(ProfileCommandTest, ListElectsAnActiveProfileFirst) {
  host::remove(host::kCurrent);
  EXPECT_THAT(run({"list", "profiles"}), ElementsAre("profile-1\t'lab'", "profile-2\t'office'", "current_name: lab"));
  EXPECT_EQ(current(), "profile-1\n");
}

TEST_F(ProfileCommandTest, ListRepairsNamesBeforeItPrintsThem) {
  host::writeFile("/etc/zuv/profiles/profile-2/profile_name", "lab\n");
  const Words lines = run({"list", "profiles"});
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_THAT(lines[0], testing::EndsWith("\t'lab'"));
  EXPECT_THAT(lines[1], testing::EndsWith("\t'lab#2'"));
  EXPECT_THAT(nameOf("profile-1") + nameOf("profile-2"), testing::AnyOf("lab\nlab#2\n", "lab#2\nlab\n"));
}

TEST_F(ProfileCommandTest, ListOfAnEmptyStoreCreatesTheFirstProfile) {
  host::remove(host::kProfiles);
  host::makeDirs(host::kProfiles);
  EXPECT_THAT(run({"list", "profiles"}), ElementsAre("profile-123123\t'profile'", "current_name: profile"));
  EXPECT_EQ(current(), "profile-123123\n");
}

TEST_F(ProfileCommandTest, ListWithoutARootIsAnApplicationError) {
  host::remove(host::kProfiles);
  EXPECT_EQ(run({"list", "profiles"}, kApplicationError), failure("application error", "0x12000001"));
  EXPECT_FALSE(host::exists(host::kProfiles));
}

TEST_F(ProfileCommandTest, ListContinuesIfElectingFails) {
  host::remove(host::kCurrent);
  host::makeDirs(host::kCurrent);
  EXPECT_THAT(run({"list", "profiles"}), ElementsAre("profile-1\t'lab'", "profile-2\t'office'", "current_name: "));
}

TEST_F(ProfileCommandTest, ListPrintsAnEmptyNameIfTheMarkerCannotBeRead) {
  setAuthorizationMode(authorizationNever);
  host::writeFile(host::kCurrent, "profile-1\n", 0);
  const host::BoundByModes bound;
  EXPECT_THAT(
      run({"list", "profiles", "--verbose"}),
      ElementsAre("method: list profiles", "status_text: success", "status_code: 0x00000001", "profile-1\t'lab'",
                  "profile-2\t'office'", "current_dir: ", "current_name: ", "root_dir: /etc/zuv/profiles/"));
}

TEST_F(ProfileCommandTest, ListAndDetailsNeedNoAuthorization) {
  setAuthorizationMode(authorizationNever);
  EXPECT_THAT(run({"list", "profiles"}), testing::Contains("current_name: lab"));
  EXPECT_THAT(run({"profile", "details", "office"}), testing::Contains("profile_name=office"));
}

TEST_F(ProfileCommandTest, WithoutAuthorizationNoSystemCallIsMade) {
  setAuthorizationMode(authorizationNever);
  const Words commands[] = {{"profile", "create", "new", "helmsor=h"},
                            {"profile", "create", "new", "helmsor=h", "sys=initd", "activate"},
                            {"profile", "modify", "office", "network=n", "activate"},
                            {"profile", "modify", "office", "network=n", "sys=systemd"},
                            {"profile", "activate", "office"},
                            {"profile", "activate", "office", "sys=null"},
                            {"profile", "rename", "office", "new_name=x"},
                            {"profile", "delete", "office"},
                            {"support", "reset", "office"}};
  const std::string before = host::tree("/etc/zuv");
  for (const Words& words : commands) {
    SCOPED_TRACE(words[1]);
    const ArmedFaults counted({});
    EXPECT_EQ(run(words, kNotAuthorized),
              failure("authentication error (ravctl requires sudo for this command)", "0x12000002"));
    EXPECT_THAT(counted.calls(), IsEmpty());
  }
  EXPECT_EQ(host::tree("/etc/zuv"), before);
}

// --- profile details

TEST_F(ProfileCommandTest, DetailsPrintTheValuesOfTheFiles) {
  host::writeFile("/etc/zuv/profiles/profile-2/hip.conf", "master_interface=eth0\n");
  host::writeFile("/etc/zuv/profiles/profile-2/device_id", "00:11\n");
  host::writeFile("/etc/zuv/profiles/profile-2/endbox.conf",
                  "device_ip=10.9.0.1\ndevice_mask=255.255.0.0\nactivation_code=code\nlog_level=debug\n");
  host::writeFile("/etc/zuv/profiles/profile-2/mapconfig.static", "map_uri=http://10.0.0.5:9000/path\n");
  const Words expected = {"profile_dir=profile-2", "profile_name=office",        "network=eth0",
                          "deviceID=00:11",        "overlay_device_ip=10.9.0.1", "overlay_mask=255.255.0.0",
                          "invitation=code",       "helmsor=10.0.0.5:9000",      "log_level=debug"};
  EXPECT_EQ(run({"profile", "details", "office"}), expected);
  EXPECT_EQ(run({"profile", "details", "dir=profile-2"}), expected);
  EXPECT_EQ(run({"profile", "details", "lab", "profile=office"}), expected)
      << "the named parameter wins over the positional one";
}

TEST_F(ProfileCommandTest, DetailsOfTheActiveProfileReportThatItIsActiveOrRunning) {
  for (const char* selector : {"lab", "dir=profile-1", "", ".current", "--active"}) {
    SCOPED_TRACE(selector);
    const Words lines = run({"profile", "details", selector, "--verbose"}, kActive);
    ASSERT_GE(lines.size(), 5u);
    EXPECT_EQ(lines[0], "method: profile details");
    EXPECT_EQ(lines[1], "status_text: profile is active");
    EXPECT_EQ(lines[2], "status_code: 0x00001001");
    EXPECT_EQ(lines[3], "profile_dir=profile-1");
    EXPECT_EQ(lines[4], "profile_name=lab");
  }
  host::writeHeartbeat("/etc/zuv/profiles/profile-1");
  const Words lines = run({"profile", "details", "lab", "--verbose"}, kActiveAndRunning);
  EXPECT_EQ(lines[1], "status_text: profile is currently running");
  EXPECT_EQ(lines[2], "status_code: 0x00001002");
}

TEST_F(ProfileCommandTest, DetailsOfTheTemplateSucceed) {
  host::writeFile("/etc/zuv/profiles/.factory/endbox.conf", "log_level=info\n");
  EXPECT_THAT(run({"profile", "details", ".factory"}),
              ElementsAre("profile_dir=.factory", "profile_name=.factory",
                          "network=", "deviceID=", "overlay_device_ip=", "overlay_mask=", "log_level=info"));
}

TEST_F(ProfileCommandTest, DetailsOfAnUnknownProfileFail) {
  EXPECT_EQ(run({"profile", "details", "missing"}, kNotFound), failure("profile not found", "0x12001001"));
  EXPECT_EQ(run({"profile", "details", "dir="}, kInvalidArgument), failure("invalid argument", "0x10000003"));
  EXPECT_EQ(run({"profile", "details", "dir=../profiles/profile-1"}, kNotFound),
            failure("profile not found", "0x12001001"));
  EXPECT_THAT(run({"profile", "details", "missing", "--quiet"}, kNotFound), ElementsAre("status_code: 0x12001001"));
}

TEST_F(ProfileCommandTest, DetailsElectAnActiveProfileFirst) {
  host::makeActive("gone");
  EXPECT_EQ(run({"profile", "details", ""}, kActive)[0], "profile_dir=profile-1");
  EXPECT_EQ(current(), "profile-1\n");
}

// --- profile create

TEST_F(ProfileCommandTest, CreatePrintsTheDetailsAndTheName) {
  EXPECT_THAT(run({"profile", "create", "new", "helmsor=10.0.0.1:443", "network=eth0", "invitation=code"}),
              ElementsAre("profile_dir=profile-123123", "profile_name=new", "network=eth0",
                          "deviceID=", "overlay_device_ip=", "overlay_mask=", "invitation=code", "helmsor=10.0.0.1:443",
                          "log_level=", "profile_name: new"));
}

TEST_F(ProfileCommandTest, CreateInQuietModePrintsOnlyTheName) {
  EXPECT_THAT(run({"profile", "create", "new", "helmsor=h", "--quiet"}), ElementsAre("profile_name: new"));
}

TEST_F(ProfileCommandTest, CreateWritesNoLevelAndNoEmptyInterface) {
  run({"profile", "create", "new", "helmsor=h", "log_level=debug", "network="});
  EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-123123"),
            "d 0755 ca-certs\n"
            "f 0640 mapconfig.static \"map_uri=https://h:8096\\n\"\n"
            "f 0640 profile_name \"new\\n\"\n");
}

TEST_F(ProfileCommandTest, CreatePrefersTheNamedParameterToThePositionalName) {
  EXPECT_THAT(run({"profile", "create", "new", "helmsor=h", "new_name=other", "--quiet"}),
              ElementsAre("profile_name: other"));
}

TEST_F(ProfileCommandTest, CreateRefusesATakenNameOnlyWithoutAllowRename) {
  EXPECT_EQ(run({"profile", "create", "lab", "helmsor=h", "allow_rename=false"}, kApplicationError),
            failure("application error", "0x12000001"));
  EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-123123"), "");
  EXPECT_THAT(run({"profile", "create", "lab", "helmsor=h", "--quiet"}), ElementsAre("profile_name: lab#2"));
}

TEST_F(ProfileCommandTest, CreateElectsNothing) {
  host::remove(host::kCurrent);
  run({"profile", "create", "new", "helmsor=h"});
  EXPECT_FALSE(host::exists(host::kCurrent));
}

TEST_F(ProfileCommandTest, CreateMakesTheProfileActiveOnlyIfActivateIsSet) {
  run({"profile", "create", "new", "helmsor=h", "activate=false", "sys=null"});
  EXPECT_EQ(current(), "profile-1\n");
  run({"profile", "create", "new", "helmsor=h", "activate", "sys=null"}, status::childExitedNonzero);
  EXPECT_EQ(current(), "profile-123124\n");
}

TEST_F(ProfileCommandTest, CreateReportsAControlByteInAName) {
  EXPECT_EQ(run({"profile", "create", "a\tb", "helmsor=h"}, kInvalidArgument),
            failure("invalid argument (invalid profile name)", "0x10000003"));
}

// --- profile activate, delete, rename, modify and support reset: what the commands add to their operations

TEST_F(ProfileCommandTest, ActivatePrintsTheName) {
  host::writeFile("/etc/zuv/.systemctl", "");
  host::installRecorder("/bin/systemctl", "/tmp/calls");
  EXPECT_THAT(run({"profile", "activate", "office"}), ElementsAre("profile_name: office"));
  EXPECT_EQ(current(), "profile-2\n");
  EXPECT_EQ(host::readFile("/tmp/calls"), "systemctl stop hip\nsystemctl start hip\n");
}

TEST_F(ProfileCommandTest, ActivateWithoutAnInitSystemUsesTheNullBackend) {
  EXPECT_EQ(run({"profile", "activate", "office"}, status::childExitedNonzero),
            failure("child process returned nonzero exit code", "0x16001001"));
  EXPECT_EQ(current(), "profile-2\n");
  EXPECT_EQ(run({"profile", "activate", "lab", "sys="}, status::childExitedNonzero),
            failure("child process returned nonzero exit code", "0x16001001"));
}

TEST_F(ProfileCommandTest, ActivateElectsNothing) {
  host::remove(host::kCurrent);
  run({"profile", "activate", "missing"}, kNotFound);
  run({"profile", "activate", ""}, kInvalidArgument);
  EXPECT_FALSE(host::exists(host::kCurrent));
}

TEST_F(ProfileCommandTest, DeletePrintsNothingAndElectsAnother) {
  EXPECT_THAT(run({"profile", "delete", "lab"}), IsEmpty());
  EXPECT_EQ(current(), "profile-2\n");
  EXPECT_FALSE(host::exists("/etc/zuv/profiles/profile-1"));
}

TEST_F(ProfileCommandTest, DeletingTheLastProfileCreatesANewOne) {
  run({"profile", "delete", "office"});
  EXPECT_THAT(run({"profile", "delete", "lab"}), IsEmpty());
  EXPECT_EQ(current(), "profile-123123\n");
  EXPECT_EQ(nameOf("profile-123123"), "profile\n");
}

TEST_F(ProfileCommandTest, DeleteElectsNothingBeforehandOrAfterAFailure) {
  host::makeActive("gone");
  EXPECT_EQ(run({"profile", "delete", "missing"}, kNotFound), failure("profile not found", "0x12001001"));
  EXPECT_EQ(current(), "gone\n");
  host::makeActive("../profiles/profile-1");
  EXPECT_EQ(run({"profile", "delete", ""}, kApplicationError), failure("application error", "0x12000001"));
  EXPECT_EQ(current(), "../profiles/profile-1\n");
}

TEST_F(ProfileCommandTest, DeletingAnActiveProfileWhoseDirectoryIsMissingElectsAnother) {
  host::makeActive("gone");
  EXPECT_THAT(run({"profile", "delete", "--active"}), IsEmpty());
  EXPECT_EQ(current(), "profile-1\n");
}

TEST_F(ProfileCommandTest, RenamePrintsTheNewName) {
  EXPECT_THAT(run({"profile", "rename", "lab", "new_name= new "}), ElementsAre("profile_name: new"));
  EXPECT_EQ(nameOf("profile-1"), "new\n");
}

TEST_F(ProfileCommandTest, RenameAndModifyElectFirstAndOnlyWithAuthorization) {
  for (const char* verb : {"rename", "modify"}) {
    SCOPED_TRACE(verb);
    host::makeActive("gone");
    setAuthorizationMode(authorizationNever);
    EXPECT_EQ(run({"profile", verb, "missing", "new_name=x"}, kNotAuthorized),
              failure("authentication error (ravctl requires sudo for this command)", "0x12000002"));
    EXPECT_EQ(current(), "gone\n");
    setAuthorizationMode(authorizationAlways);
    EXPECT_EQ(run({"profile", verb, "missing", "new_name=x"}, kNotFound), failure("profile not found", "0x12001001"));
    EXPECT_EQ(current(), "profile-1\n");
  }
}

TEST_F(ProfileCommandTest, ModifyWithoutChangesLeavesTheFilesUnchanged) {
  host::writeFile("/etc/zuv/profiles/profile-2/hip.conf", "master_interface=eth0\n");
  host::writeFile("/etc/zuv/profiles/profile-2/endbox.conf", "activation_code=old\nlog_level=debug\n");
  host::writeFile("/etc/zuv/profiles/profile-2/mapconfig.static", "map_uri=https://old:1\n");
  const std::string before = host::tree("/etc/zuv/profiles/profile-2");
  const Words details = {"profile_dir=profile-2", "profile_name=office", "network=eth0",   "deviceID=",
                         "overlay_device_ip=",    "overlay_mask=",       "invitation=old", "helmsor=old:1",
                         "log_level=debug"};
  EXPECT_EQ(run({"profile", "modify", "office"}), details);
  EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-2"), before);
}

TEST_F(ProfileCommandTest, ModifyInQuietModePrintsNothing) {
  EXPECT_THAT(run({"profile", "modify", "office", "log_level=info", "--quiet"}), IsEmpty());
}

TEST_F(ProfileCommandTest, ModifyAcceptsTheKnownLevelNamesAndRefusesOthers) {
  const struct {
    const char* word;
    const char* written;
  } cases[] = {{"log_level=Warn", "warning"},
               {"log_level=critical", "fatal"},
               {"log_level= debug ", "debug"},
               {"log_level=err", "error"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.word);
    run({"profile", "modify", "office", c.word});
    EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-2/endbox.conf"),
              std::string("log_level=") + c.written + "\nopenhip.log_level=" + c.written + "\n");
  }
  const std::string before = host::tree("/etc/zuv/profiles/profile-2");
  for (const char* word : {"log_level=verbose", "log_level=notice", "log_level= "}) {
    SCOPED_TRACE(word);
    EXPECT_EQ(run({"profile", "modify", "office", word}, kApplicationError),
              failure("application error (invalid log_level value)", "0x12000001"));
    EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-2"), before);
  }
  run({"profile", "modify", "office", "log_level="});
  EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-2"), before);
}

TEST_F(ProfileCommandTest, ModifyAcceptsAPortAloneAndAHostWithoutAPort) {
  run({"profile", "modify", "office", "helmsor=h:0"});
  EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-2/mapconfig.static"), "map_uri=https://h:8096\n");
  run({"profile", "modify", "office", "helmsor=:443"});
  EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-2/mapconfig.static"), "map_uri=https://h:443\n");
  run({"profile", "modify", "office", "helmsor=g"});
  EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-2/mapconfig.static"), "map_uri=https://g:8096\n");
}

TEST_F(ProfileCommandTest, ModifyWithNeitherHostNorPortLeavesTheAddressAlone) {
  host::writeFile("/etc/zuv/profiles/profile-2/mapconfig.static", "map_uri=http://old:1/path\n");
  for (const char* word : {"helmsor=:", "helmsor=:0", "helmsor=:65536", "helmsor=:99999999999"}) {
    run({"profile", "modify", "office", word});
    EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-2/mapconfig.static"), "map_uri=http://old:1/path\n");
  }
}

TEST_F(ProfileCommandTest, ModifyRefusesAnEmptyNameOrInterface) {
  EXPECT_EQ(run({"profile", "modify", "office", "new_name="}, kInvalidArgument),
            failure("invalid argument (invalid profile name)", "0x10000003"));
  EXPECT_EQ(run({"profile", "modify", "office", "network=", "invitation=code"}, kInvalidArgument),
            failure("invalid argument", "0x10000003"));
  EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-2/endbox.conf"), "activation_code=code\n");
}

TEST_F(ProfileCommandTest, ResetPrintsTheNameUnderItsOwnKeyAndElectsNothing) {
  host::writeFile("/etc/zuv/profiles/profile-2/hip.state", "x");
  EXPECT_THAT(run({"support", "reset", "office"}), ElementsAre("support reset: office"));
  EXPECT_FALSE(host::exists("/etc/zuv/profiles/profile-2/hip.state"));
  host::remove(host::kCurrent);
  EXPECT_THAT(run({"support", "reset", ""}, status::success), ElementsAre("support reset: "));
  EXPECT_FALSE(host::exists(host::kCurrent));
}

TEST_F(ProfileCommandTest, DeleteAndResetAreRefusedWhileTheDaemonRuns) {
  host::writeHeartbeat("/etc/zuv/profiles/profile-1");
  const Words refused = failure("command cannot be executed while the profile is running", "0x12001002");
  EXPECT_EQ(run({"profile", "delete", "lab"}, kNotWhileRunning), refused);
  EXPECT_EQ(run({"support", "reset", ""}, kNotWhileRunning), refused);
}

}  // namespace
