// Tests of modifying a profile: the changes, their order, and when the daemon is stopped and started.
#include <sys/stat.h>
#include <unistd.h>

#include "base/files/ProgramDirectories.h"
#include "command/framework/Authorization.h"
#include "command/status/AppStatusCodes.h"
#include "profiles/store/ProfileChanges.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using namespace std::string_literals;
using ProfileChanges::Modification;
using testing::AnyOf;

constexpr const char* kSystemctl = "/bin/systemctl";
constexpr const char* kCalls = "/tmp/calls";
constexpr const char* kLab = "/etc/zuv/profiles/profile-1";
constexpr const char* kOffice = "/etc/zuv/profiles/profile-2";

class ModifyTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    setAuthorizationMode(authorizationAlways);
    makeScene();
  }
  void TearDown() override { setAuthorizationMode(authorizationNever); }

  // "lab" is active, "office" is not.
  static void makeScene() {
    host::makeProfile("profile-1", "lab");
    host::makeProfile("profile-2", "office");
    host::makeActive("profile-1");
    host::installRecorder(kSystemctl, kCalls);
  }
  static void makeRunning() { host::writeHeartbeat(kLab); }

  static Modification wish() {
    Modification wanted;
    wanted.initSystem = "systemd";
    return wanted;
  }
  static Modification everything() {
    Modification wanted = wish();
    wanted.newName = "workshop";
    wanted.hasHelmsor = true;
    wanted.helmsorHost = "h";
    wanted.helmsorPort = 443;
    wanted.network = "eth0";
    wanted.invitation = "code";
    wanted.logLevel = "Warn";
    return wanted;
  }
  static ProfileDetails modify(const std::string& selector, const Modification& wanted,
                               StatusCode expected = status::success) {
    ProfileDetails details;
    details.filled = true;
    const Status modified = ProfileChanges::modifyProfile(selector, wanted, details);
    EXPECT_THAT(modified, HasCode(expected));
    EXPECT_EQ(details.filled, modified.isSuccess());
    return details;
  }
  static std::string store() { return host::tree(host::kProfiles); }
  static std::string calls() { return host::exists(kCalls) ? host::readFile(kCalls) : ""; }
  static std::string current() { return host::readFile(host::kCurrent); }
};

constexpr const char* kStateFiles[] = {"m2_cache", "sadb.state", "hip.state", "peers", "map.state", "hipvars.txt"};

constexpr const char* kEverythingChanged =
    "f 0644 endbox.conf \"log_level=warning\\nopenhip.log_level=warning\\nactivation_code=code\\n\"\n"
    "f 0644 hip.conf \"master_interface=eth0\\n\"\n"
    "f 0640 mapconfig.static \"map_uri=https://h:443\\n\"\n"
    "f 0640 profile_name \"workshop\\n\"\n";

// --- The changes

TEST_F(ModifyTest, AllGivenChangesAreMadeAndTheStateFilesAreRemoved) {
  for (const char* file : kStateFiles) host::writeFile(kOffice + "/"s + file, "state\n");
  const ProfileDetails details = modify("office", everything());
  EXPECT_EQ(host::tree(kOffice), kEverythingChanged);
  EXPECT_EQ(details.dirname, "profile-2");
  EXPECT_EQ(details.name, "workshop");
  EXPECT_EQ(details.network, "eth0");
  EXPECT_EQ(details.invitation, "code");
  EXPECT_EQ(details.helmsor.host, "h");
  EXPECT_EQ(details.helmsor.port, "443");
  EXPECT_EQ(details.logLevel, "warning");
  EXPECT_EQ(calls(), "");
  EXPECT_EQ(current(), "profile-1\n");
}

TEST_F(ModifyTest, AModificationWithoutChangesStillRemovesTheStateFiles) {
  host::writeFile(kOffice + "/hip.state"s, "x");
  host::writeFile(kOffice + "/hip.conf"s, "a=1\nmaster_interface=eth0\n");
  host::writeFile(kOffice + "/endbox.conf"s, "log_level=debug\n");
  modify("office", wish());
  EXPECT_EQ(host::tree(kOffice),
            "f 0644 endbox.conf \"log_level=debug\\n\"\n"
            "f 0644 hip.conf \"a=1\\nmaster_interface=eth0\\n\"\n"
            "f 0640 profile_name \"office\\n\"\n");
}

TEST_F(ModifyTest, TheStateFilesAreRemovedBeforeTheInterfaceIsWritten) {
  for (const char* file : kStateFiles) host::writeFile(kOffice + "/"s + file, "state\n");
  std::size_t callsOfTheWriter = 0;
  FaultPlan plan;
  plan.calls = {"write", "rename"};
  plan.before = [&](std::size_t) {
    if (!host::exists(kOffice + "/hip.conf.temp"s)) return;
    ++callsOfTheWriter;
    for (const char* file : kStateFiles) EXPECT_FALSE(host::exists(kOffice + "/"s + file)) << file;
  };
  Modification wanted = wish();
  wanted.network = "eth0";
  {
    const ArmedFaults armed(plan);
    modify("office", wanted);
  }
  EXPECT_GT(callsOfTheWriter, 0u);
  EXPECT_EQ(host::readFile(kOffice + "/hip.conf"s), "master_interface=eth0\n");
}

TEST_F(ModifyTest, ChangingOnlyTheLevelOfAnInactiveProfileRemovesItsStateFiles) {
  host::writeHeartbeat(kOffice);
  Modification wanted = wish();
  wanted.logLevel = "trace";
  modify("office", wanted);
  EXPECT_EQ(host::tree(kOffice),
            "f 0644 endbox.conf \"log_level=trace\\nopenhip.log_level=trace\\n\"\n"
            "f 0644 hip.conf \"\"\n"
            "f 0640 profile_name \"office\\n\"\n");
}

TEST_F(ModifyTest, ASecondModifyKeepsTheCommentsOfTheFirst) {
  host::writeFile(kOffice + "/hip.conf"s, "# mine\nmaster_interface=a\n", 0600);
  Modification wanted = wish();
  wanted.network = "b";
  modify("office", wanted);
  wanted.network = "c";
  modify("office", wanted);
  EXPECT_EQ(host::readFile(kOffice + "/hip.conf"s), "# mine\nmaster_interface=c\n");
  EXPECT_EQ(host::modeOf(kOffice + "/hip.conf"s), 0600u);
}

TEST_F(ModifyTest, ThreeHashSignsClearTheInvitationAndASecondTimeIsHarmless) {
  host::writeFile(kOffice + "/endbox.conf"s, "activation_code=old\nx=1\n");
  Modification wanted = wish();
  wanted.invitation = "###";
  modify("office", wanted);
  modify("office", wanted);
  EXPECT_EQ(host::readFile(kOffice + "/endbox.conf"s), "x=1\n");
}

TEST_F(ModifyTest, AnEmptyInvitationOrLevelDoesNothing) {
  host::writeFile(kOffice + "/endbox.conf"s, "activation_code=old\nlog_level=info\n");
  Modification wanted = wish();
  wanted.invitation = " ";
  wanted.logLevel = "";
  modify("office", wanted);
  EXPECT_EQ(host::readFile(kOffice + "/endbox.conf"s), "activation_code=old\nlog_level=info\n");
}

TEST_F(ModifyTest, APortAloneKeepsTheHostOrFailsWithoutOne) {
  Modification wanted = wish();
  wanted.hasHelmsor = true;
  wanted.helmsorPort = 443;
  host::writeFile(kOffice + "/hip.state"s, "x");
  modify("office", wanted, status::applicationError);
  EXPECT_TRUE(host::exists(kOffice + "/hip.state"s)) << "the failure skips the later changes";
  host::writeFile(kOffice + "/mapconfig.static"s, "map_uri=http://old:1/\n");
  modify("office", wanted);
  EXPECT_EQ(host::readFile(kOffice + "/mapconfig.static"s), "map_uri=https://old:443\n");
}

TEST_F(ModifyTest, AnAddressThatIsNotGivenIsNotWritten) {
  Modification wanted = wish();
  wanted.helmsorHost = "h";
  wanted.helmsorPort = 1;
  modify("office", wanted);
  EXPECT_FALSE(host::exists(kOffice + "/mapconfig.static"s));
}

TEST_F(ModifyTest, TheSelectedProfileIsRenamedEvenIfItsNameIsASelector) {
  for (const char* odd : {"--active", ".current", ".factory", "dir=profile-1"}) {
    SCOPED_TRACE(odd);
    host::writeFile(kOffice + "/profile_name"s, odd + "\n"s, 0640);
    Modification wanted = wish();
    wanted.newName = "workshop";
    EXPECT_EQ(modify("dir=profile-2", wanted).name, "workshop");
    EXPECT_EQ(host::readFile(kOffice + "/profile_name"s), "workshop\n");
    EXPECT_EQ(host::readFile(kLab + "/profile_name"s), "lab\n");
  }
}

TEST_F(ModifyTest, WithTwoEqualNamesTheSelectedProfileIsRenamed) {
  for (const char* selected : {"profile-1", "profile-2"}) {
    SCOPED_TRACE(selected);
    host::writeFile(kLab + "/profile_name"s, "same\n", 0640);
    host::writeFile(kOffice + "/profile_name"s, "same\n", 0640);
    Modification wanted = wish();
    wanted.newName = "workshop";
    modify("dir="s + selected, wanted);
    EXPECT_EQ(host::readFile(host::kProfiles + ""s + selected + "/profile_name"), "workshop\n");
  }
}

TEST_F(ModifyTest, ALinkedProfileIsRenamed) {
  host::writeFile("/tmp/elsewhere/profile_name", "linked\n");
  host::makeLink("/etc/zuv/profiles/link", "/tmp/elsewhere");
  Modification wanted = wish();
  wanted.newName = "workshop";
  modify("dir=link", wanted);
  EXPECT_EQ(host::readFile("/tmp/elsewhere/profile_name"), "workshop\n");
}

// --- Refusals before anything changes

TEST_F(ModifyTest, ARefusedNameChangesNothing) {
  makeRunning();
  const std::string before = store();
  for (const std::string name : {"", " ", "lab", "office", "--active", ".current", ".factory", "dir=profile-1",
                                 "dir=", "dir=.factory", " lab\n", "a\nb",
                                 "a\x7f"
                                 "b"}) {
    SCOPED_TRACE(host::quoted(name));
    Modification wanted = everything();
    wanted.newName = name;
    ProfileDetails details;
    const Status refused = ProfileChanges::modifyProfile("lab", wanted, details);
    EXPECT_THAT(refused, HasCode(status::invalidArgument));
    EXPECT_EQ(refused.details(), "invalid profile name");
    EXPECT_EQ(refused.context(), "profile modify");
  }
  EXPECT_EQ(store(), before);
  EXPECT_EQ(calls(), "");
}

TEST_F(ModifyTest, EveryControlByteInATextIsRefusedBeforeAnythingChanges) {
  makeRunning();
  const std::string before = store();
  for (int byte = 0; byte < 256; ++byte) {
    if (byte >= 32 && byte != 127) continue;
    SCOPED_TRACE(byte);
    const std::string text = "a"s + static_cast<char>(byte) + "b";
    Modification name = everything();
    name.newName = text;
    modify("lab", name, status::invalidArgument);
    Modification address = everything();
    address.helmsorHost = text;
    modify("lab", address, status::invalidArgument);
    Modification network = everything();
    network.network = text;
    modify("lab", network, status::invalidArgument);
    Modification invitation = everything();
    invitation.invitation = text;
    modify("lab", invitation, status::invalidArgument);
  }
  EXPECT_EQ(store(), before);
  EXPECT_EQ(calls(), "");
}

TEST_F(ModifyTest, OuterBlanksOfNameAndInvitationAreTrimmed) {
  Modification wanted = wish();
  wanted.newName = "\t workshop\n";
  wanted.invitation = "\ncode\t";
  modify("office", wanted);
  EXPECT_EQ(host::readFile(kOffice + "/profile_name"s), "workshop\n");
  EXPECT_EQ(host::readFile(kOffice + "/endbox.conf"s), "activation_code=code\n");
}

// --- Failures during the changes

TEST_F(ModifyTest, ARefusedLevelKeepsTheNewAddressAndSkipsTheLaterChanges) {
  Modification wanted = everything();
  wanted.logLevel = "verbose";
  host::writeFile(kOffice + "/hip.state"s, "x");
  ProfileDetails details;
  const Status refused = ProfileChanges::modifyProfile("office", wanted, details);
  EXPECT_THAT(refused, HasCode(status::applicationError));
  EXPECT_EQ(refused.details(), "invalid log_level value");
  EXPECT_EQ(refused.context(), "doModifyProfile");
  EXPECT_EQ(host::tree(kOffice),
            "f 0644 hip.conf \"\"\n"
            "f 0644 hip.state \"x\"\n"
            "f 0640 mapconfig.static \"map_uri=https://h:443\\n\"\n"
            "f 0640 profile_name \"office\\n\"\n");
}

TEST_F(ModifyTest, AnAddressThatCannotBeWrittenSkipsAllLaterChanges) {
  host::makeDirs(kOffice + "/mapconfig.static"s);
  const std::string before = store();
  modify("office", everything(), status::applicationError);
  EXPECT_EQ(store(), before);
}

TEST_F(ModifyTest, AnEmptyInterfaceIsAnInvalidArgumentAndTheOtherChangesAreMade) {
  Modification wanted = everything();
  wanted.network = "";
  modify("office", wanted, status::invalidArgument);
  EXPECT_EQ(host::tree(kOffice),
            "f 0644 endbox.conf \"log_level=warning\\nopenhip.log_level=warning\\nactivation_code=code\\n\"\n"
            "f 0644 hip.conf \"\"\n"
            "f 0640 mapconfig.static \"map_uri=https://h:443\\n\"\n"
            "f 0640 profile_name \"workshop\\n\"\n");
}

TEST_F(ModifyTest, TheFirstOfSeveralFailuresIsReturned) {
  Modification wanted = everything();
  wanted.network = "";
  host::setMode(kOffice + "/profile_name"s, 0440);
  const host::BoundByModes bound;
  modify("office", wanted, status::invalidArgument);
}

TEST_F(ModifyTest, AFailedWriteOfTheNameIsReturned) {
  host::setMode(kOffice + "/profile_name"s, 0440);
  const host::BoundByModes bound;
  modify("office", everything(), status::openError);
  EXPECT_EQ(host::readFile(kOffice + "/hip.conf"s), "master_interface=eth0\n");
}

TEST_F(ModifyTest, AnActiveProfileWithoutADirectoryNameIsAnInvalidArgumentAndNothingIsWritten) {
  for (const char* content : {"", "../../../tmp\n", ".factory\n"}) {
    SCOPED_TRACE(content);
    host::writeFile(host::kCurrent, content, 0666);
    host::makeDirs(host::kFactory);
    const std::string before = store();
    Modification address = wish();
    address.hasHelmsor = true;
    address.helmsorHost = "h";
    modify("", address, status::invalidArgument);
    Modification level = wish();
    level.logLevel = "info";
    modify("", level, status::invalidArgument);
    Modification network = wish();
    network.network = "eth0";
    modify("", network, status::invalidArgument);
    Modification invitation = wish();
    invitation.invitation = "###";
    modify("", invitation, status::invalidArgument);
    Modification name = wish();
    name.newName = "x";
    modify("", name, status::invalidArgument);
    Modification port = wish();
    port.hasHelmsor = true;
    port.helmsorPort = 443;
    modify("", port, status::invalidArgument);
    modify("", wish(), status::invalidArgument);
    Modification activation = wish();
    activation.activate = true;
    modify("", activation, status::invalidArgument);
    network.activate = true;
    modify("", network, status::invalidArgument);
    EXPECT_EQ(store(), before);
  }
}

// --- The daemon

TEST_F(ModifyTest, TheDaemonIsStoppedAndStartedOnlyAsNeeded) {
  const struct {
    const char* why;
    const char* selector;
    bool activate;
    const char* heartbeat;  // of the active profile; "running": a fresh one
    const char* calls;
    const char* current;
  } cases[] = {
      {"active, stopped", "lab", false, "", "", "profile-1\n"},
      {"active, running", "lab", false, "running", "systemctl stop hip\nsystemctl start hip\n", "profile-1\n"},
      {"active, unknown", "lab", false, "x=1\n", "systemctl stop hip\nsystemctl start hip\n", "profile-1\n"},
      {"active, stopped, activate", "lab", true, "", "systemctl start hip\n", "profile-1\n"},
      {"active, running, activate", "lab", true, "running", "systemctl stop hip\nsystemctl start hip\n", "profile-1\n"},
      {"inactive, stopped", "office", false, "", "", "profile-1\n"},
      {"inactive, running", "office", false, "running", "", "profile-1\n"},
      {"inactive, stopped, activate", "office", true, "", "systemctl start hip\n", "profile-2\n"},
      {"inactive, running, activate", "office", true, "running", "systemctl stop hip\nsystemctl start hip\n",
       "profile-2\n"},
      {"inactive, unknown, activate", "office", true, "x=1\n", "systemctl stop hip\nsystemctl start hip\n",
       "profile-2\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    makeScene();
    if (c.heartbeat == "running"s) {
      makeRunning();
    } else if (c.heartbeat[0] != '\0') {
      host::writeFile(kLab + "/hipvars.txt"s, c.heartbeat);
    }
    Modification wanted = wish();
    wanted.network = "eth0";
    wanted.activate = c.activate;
    modify(c.selector, wanted);
    EXPECT_EQ(calls(), c.calls);
    EXPECT_EQ(current(), c.current);
  }
}

TEST_F(ModifyTest, ChangesAreMadeBetweenTheStopAndTheStart) {
  makeRunning();
  host::installScript(kSystemctl, "echo \"$1 $(cat /etc/zuv/profiles/profile-1/profile_name)\" >> /tmp/calls\n");
  modify("lab", everything());
  EXPECT_EQ(calls(), "stop lab\nstart workshop\n");
}

TEST_F(ModifyTest, AnInactiveProfileIsMadeActiveBeforeTheStart) {
  makeRunning();
  host::installScript(kSystemctl, "echo \"$1 $(cat /etc/zuv/profiles/.current)\" >> /tmp/calls\n");
  Modification wanted = wish();
  wanted.activate = true;
  modify("office", wanted);
  EXPECT_EQ(calls(), "stop profile-1\nstart profile-2\n");
}

TEST_F(ModifyTest, TheMarkerOfTheActiveProfileIsNotRewritten) {
  host::setMode(host::kCurrent, 0600);
  Modification wanted = wish();
  wanted.activate = true;
  modify("lab", wanted);
  EXPECT_EQ(host::modeOf(host::kCurrent), 0600u);
}

TEST_F(ModifyTest, AFailedStopIsReturnedAndTheChangesAreMade) {
  const struct {
    const char* body;
    StatusCode code;
  } cases[] = {{"exit 4\n", status::childExitedNonzero}, {"kill -KILL $$\n", status::childKilledBySignal}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.body);
    host::reset();
    makeScene();
    makeRunning();
    host::installScript(kSystemctl, "echo \"$1\" >> /tmp/calls\n[ \"$1\" = start ] && exit 0\n"s + c.body);
    modify("lab", everything(), c.code);
    EXPECT_EQ(calls(), "stop\nstart\n");
    EXPECT_EQ(host::tree(kLab), kEverythingChanged);
  }
}

TEST_F(ModifyTest, AFailedStartIsReturned) {
  host::remove("/usr/bin/systemctl");
  Modification wanted = everything();
  wanted.activate = true;
  modify("lab", wanted, status::childExitedNonzero);
  EXPECT_EQ(host::tree(kLab), kEverythingChanged);
}

TEST_F(ModifyTest, AMarkerThatCannotBeWrittenIsAnApplicationErrorAndTheDaemonIsStarted) {
  host::remove(host::kCurrent);
  host::makeDirs(host::kCurrent);
  Modification wanted = wish();
  wanted.activate = true;
  modify("office", wanted, status::applicationError);
  EXPECT_EQ(calls(), "systemctl start hip\n");
}

TEST_F(ModifyTest, IfAddressOrLevelFailsAStoppedDaemonIsRestartedOnTheOldProfile) {
  for (const bool breaksAddress : {true, false}) {
    SCOPED_TRACE(breaksAddress);
    host::reset();
    makeScene();
    makeRunning();
    if (breaksAddress) host::makeDirs(kOffice + "/mapconfig.static"s);
    Modification wanted = everything();
    wanted.activate = true;
    if (!breaksAddress) wanted.logLevel = "verbose";
    modify("office", wanted, status::applicationError);
    EXPECT_EQ(calls(), "systemctl stop hip\nsystemctl start hip\n");
    EXPECT_EQ(current(), "profile-1\n");
    EXPECT_EQ(host::readFile(kOffice + "/profile_name"s), "office\n");
  }
}

TEST_F(ModifyTest, IfAddressOrLevelFailsADaemonThatDidNotRunIsNotStarted) {
  Modification wanted = wish();
  wanted.activate = true;
  wanted.logLevel = "verbose";
  modify("office", wanted, status::applicationError);
  modify("lab", wanted, status::applicationError);
  EXPECT_EQ(calls(), "");
  EXPECT_EQ(current(), "profile-1\n");
}

TEST_F(ModifyTest, WithTheNullBackendTheProfileIsChangedAndTheStartFails) {
  Modification wanted = everything();
  wanted.activate = true;
  wanted.initSystem = "null";
  modify("office", wanted, status::childExitedNonzero);
  EXPECT_EQ(host::tree(kOffice), kEverythingChanged);
  EXPECT_EQ(current(), "profile-2\n");
  EXPECT_EQ(calls(), "");
}

// --- Links and entries of other kinds

TEST_F(ModifyTest, AnEditReplacesALinkByARegularFile) {
  host::writeFile("/tmp/hip.conf", "a=1\nmaster_interface=old\n");
  host::remove(kOffice + "/hip.conf"s);
  host::makeLink(kOffice + "/hip.conf"s, "/tmp/hip.conf");
  Modification wanted = wish();
  wanted.network = "eth0";
  modify("office", wanted);
  EXPECT_EQ(host::tree(kOffice),
            "f 0644 hip.conf \"a=1\\nmaster_interface=eth0\\n\"\nf 0640 profile_name \"office\\n\"\n");
  EXPECT_EQ(host::readFile("/tmp/hip.conf"), "a=1\nmaster_interface=old\n");
}

TEST_F(ModifyTest, AHipConfThatIsNotARegularFileIsAnOpenError) {
  host::remove(kOffice + "/hip.conf"s);
  host::makeFifo(kOffice + "/hip.conf"s);
  Modification wanted = wish();
  wanted.network = "eth0";
  wanted.invitation = "code";
  modify("office", wanted, status::openError);
  EXPECT_EQ(host::tree(kOffice),
            "f 0644 endbox.conf \"activation_code=code\\n\"\np 0644 hip.conf\nf 0640 profile_name \"office\\n\"\n");
}

TEST_F(ModifyTest, ALinkedDirectoryCanBeModified) {
  host::writeFile("/tmp/elsewhere/profile_name", "linked\n");
  host::makeLink("/etc/zuv/profiles/link", "/tmp/elsewhere");
  Modification wanted = wish();
  wanted.network = "eth0";
  EXPECT_EQ(modify("dir=link", wanted).network, "eth0");
  EXPECT_EQ(host::readFile("/tmp/elsewhere/hip.conf"), "master_interface=eth0\n");
}

}  // namespace
