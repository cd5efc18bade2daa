// Tests of creating a profile, showing its details, and electing an active one.
#include "profiles/store/ProfileControl.h"

#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <set>

#include "base/files/ProgramDirectories.h"
#include "command/framework/Authorization.h"
#include "command/status/AppStatusCodes.h"
#include "profiles/store/ProfileStore.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using namespace std::string_literals;
using testing::AnyOf;

constexpr const char* kSystemctl = "/bin/systemctl";
constexpr const char* kCalls = "/tmp/calls";
constexpr const char* kMade = "/etc/zuv/profiles/profile-123123";

class ProfileControlTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    setAuthorizationMode(authorizationAlways);
  }
  void TearDown() override {
    setAuthorizationMode(authorizationNever);
    if (!IsSkipped()) {
      ASSERT_EQ(::chdir("/"), 0);
    }
  }

  // A request with a Helmsor address, which the command line requires, and with the backend that does nothing.
  static NewProfile wish(const std::string& name = "") {
    NewProfile wanted;
    wanted.name = name;
    wanted.helmsorHost = "h";
    wanted.helmsorPort = 443;
    wanted.initSystem = "null";
    return wanted;
  }

  // A request with everything that can be requested, for systemd.
  static NewProfile everything(const std::string& name) {
    NewProfile wanted = wish(name);
    wanted.network = "eth0";
    wanted.invitation = "code";
    wanted.activate = true;
    wanted.initSystem = "systemd";
    return wanted;
  }

  static CreatedProfile create(const NewProfile& wanted, StatusCode expected = status::success) {
    CreatedProfile made;
    made.name = "left over";
    made.details.filled = true;
    EXPECT_THAT(ProfileControl::createProfile(wanted, made), HasCode(expected));
    if (!isSuccess(expected)) {
      EXPECT_EQ(made.name, "");
      EXPECT_FALSE(made.details.filled);
    }
    return made;
  }

  static std::string store() { return host::tree(host::kProfiles); }
  static std::string calls() { return host::exists(kCalls) ? host::readFile(kCalls) : ""; }
};

// --- Create: name and directory

using CreateTest = ProfileControlTest;

TEST_F(CreateTest, OnAnEmptyStoreTheFirstProfileIsNamedProfileAndTheSecondGetsANumber) {
  EXPECT_EQ(create(wish()).name, "profile");
  EXPECT_EQ(create(wish()).name, "profile#2");
  EXPECT_EQ(store(),
            "d 0755 profile-123123\n"
            "d 0755 profile-123123/ca-certs\n"
            "f 0640 profile-123123/mapconfig.static \"map_uri=https://h:443\\n\"\n"
            "f 0640 profile-123123/profile_name \"profile\\n\"\n"
            "d 0755 profile-123124\n"
            "d 0755 profile-123124/ca-certs\n"
            "f 0640 profile-123124/mapconfig.static \"map_uri=https://h:443\\n\"\n"
            "f 0640 profile-123124/profile_name \"profile#2\\n\"\n");
}

TEST_F(CreateTest, EveryCreatedFileHasItsFixedModeWhateverTheUmask) {
  host::writeFile("/etc/zuv/profiles/.factory/hip.conf", "x=1\n", 0600);
  host::writeFile("/etc/zuv/profiles/.factory/ca-certs/ca.pem", "pem\n", 0600);
  for (const mode_t mask : {mode_t{022}, mode_t{0}, mode_t{0777}}) {
    SCOPED_TRACE(mask);
    host::remove(kMade);
    ::umask(mask);
    create(wish());
    ::umask(022);
    EXPECT_EQ(host::modeOf(kMade), 0755u);
    EXPECT_EQ(host::tree(kMade),
              "d 0755 ca-certs\n"
              "f 0644 ca-certs/ca.pem \"pem\\n\"\n"
              "f 0644 hip.conf \"x=1\\n\"\n"
              "f 0640 mapconfig.static \"map_uri=https://h:443\\n\"\n"
              "f 0640 profile_name \"profile\\n\"\n");
  }
}

TEST_F(CreateTest, ATakenNameWithoutRenamingIsRefusedAndLeavesAnEmptyDirectory) {
  host::makeProfile("profile-1", "lab");
  NewProfile wanted = wish("lab");
  wanted.allowRename = false;
  wanted.activate = true;
  const std::string before = store();
  create(wanted, status::applicationError);
  EXPECT_EQ(store(), before + "d 0755 profile-123123\n");
}

TEST_F(CreateTest, TheDirectoryOfARefusedProfileIsNamedByTheNextListing) {
  NewProfile wanted = wish("lab");
  wanted.allowRename = false;
  host::makeProfile("profile-1", "lab");
  create(wanted, status::applicationError);
  EXPECT_EQ(create(wish()).name, "profile#2");
  EXPECT_EQ(host::tree(kMade), "f 0640 profile_name \"profile\\n\"\n");
}

TEST_F(CreateTest, ATakenNameGetsTheFirstFreeNumber) {
  host::makeProfile("profile-1", "lab");
  host::makeProfile("profile-2", "lab#2");
  EXPECT_EQ(create(wish("lab")).name, "lab#3");
  EXPECT_EQ(create(wish("lab#2")).name, "lab#2#2");
}

TEST_F(CreateTest, ANameLosesBlanksAndControlBytesOnlyAtItsEnds) {
  const struct {
    const char* requested;
    const char* name;
  } cases[] = {{" lab ", "lab"},     {"\t\r\nlab2\x7f\x01", "lab2"},
               {"my lab", "my lab"}, {"\xc3\xa4z", "\xc3\xa4z"},
               {"x\x80", "x\x80"},   {" \t ", "profile"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(host::quoted(c.requested));
    const CreatedProfile made = create(wish(c.requested));
    EXPECT_EQ(made.name, c.name);
    EXPECT_EQ(host::readFile(host::kProfiles + made.details.dirname + "/profile_name"), c.name + "\n"s);
  }
}

TEST_F(CreateTest, EveryControlByteInsideANameIsRefusedBeforeAnythingChanges) {
  for (int byte = 0; byte < 256; ++byte) {
    if (byte >= 32 && byte != 127) continue;
    SCOPED_TRACE(byte);
    CreatedProfile made;
    const Status refused = ProfileControl::createProfile(wish("a"s + static_cast<char>(byte) + "b"), made);
    EXPECT_THAT(refused, HasCode(status::invalidArgument));
    EXPECT_EQ(refused.details(), "invalid profile name");
    EXPECT_EQ(refused.context(), "profile create");
  }
  EXPECT_EQ(store(), "");
}

TEST_F(CreateTest, ANameOfHighBytesOnlyCountsAsMissingAndIsRepairedAtOnce) {
  const CreatedProfile made = create(wish("\xc3\xa4"));
  EXPECT_EQ(made.name, "\xc3\xa4");
  EXPECT_EQ(made.details.name, "profile");
  EXPECT_EQ(host::readFile(kMade + "/profile_name"s), "profile\n");
}

TEST_F(CreateTest, ASelectorIsAcceptedAsAName) {
  for (const char* name : {"--active", ".current", ".factory", "dir=profile-1", "dir="}) {
    EXPECT_EQ(create(wish(name)).name, name);
  }
}

TEST_F(CreateTest, EveryControlByteInATextIsRefusedBeforeAnythingChanges) {
  for (int byte = 0; byte < 256; ++byte) {
    if (byte >= 32 && byte != 127) continue;
    SCOPED_TRACE(byte);
    const std::string text = "a"s + static_cast<char>(byte) + "b";
    NewProfile host = wish();
    host.helmsorHost = text;
    create(host, status::invalidArgument);
    host.helmsorHost = std::string(1, static_cast<char>(byte)) + "h";
    create(host, status::invalidArgument);
    NewProfile network = wish();
    network.network = text;
    create(network, status::invalidArgument);
    NewProfile invitation = wish();
    invitation.invitation = text;
    create(invitation, status::invalidArgument);
  }
  EXPECT_EQ(store(), "");
}

TEST_F(CreateTest, AMissingStoreIsAnApplicationError) {
  host::remove(host::kProfiles);
  create(wish(), status::applicationError);
  EXPECT_FALSE(host::exists(host::kProfiles));
}

TEST_F(CreateTest, AStoreThatCannotBeListedIsAnApplicationErrorAndLeavesTheDirectory) {
  host::makeFifo("/etc/zuv/profiles/profile-1/profile_name");
  create(wish(), status::applicationError);
  EXPECT_EQ(store(), "d 0755 profile-1\np 0644 profile-1/profile_name\nd 0755 profile-123123\n");
}

// --- Create: authorization

TEST_F(CreateTest, AuthorizationIsCheckedBeforeEverythingElse) {
  setAuthorizationMode(authorizationNever);
  create(wish("a\nb"), status::authenticationError);
  setAuthorizationMode(7);
  create(wish(), status::authenticationError);
  EXPECT_EQ(store(), "");
}

TEST_F(CreateTest, InRootOnlyModeRootMayCreateAndOthersMayNot) {
  setAuthorizationMode(authorizationRootOnly);
  EXPECT_EQ(create(wish("lab")).name, "lab");
  SKIP_WITHOUT_OTHER_USERS();
  const std::string before = store();
  ASSERT_EQ(::seteuid(1000), 0);
  create(wish("lab"), status::authenticationError);
  ASSERT_EQ(::seteuid(0), 0);
  ASSERT_EQ(::setresuid(1000, 0, 0), 0);
  create(wish("lab"), status::authenticationError);
  ASSERT_EQ(::setresuid(0, 0, 0), 0);
  EXPECT_EQ(store(), before);
}

// --- Create: the template

TEST_F(CreateTest, FilesAndLinksToFilesOfTheTemplateAreCopiedAsFiles) {
  host::writeFile("/etc/zuv/profiles/.factory/hip.conf", "x=1\n", 0600);
  host::writeFile("/etc/zuv/profiles/.factory/empty", "", 0777);
  host::writeFile("/etc/zuv/profiles/.factory/.hidden", "h\n");
  host::writeFile("/etc/zuv/profiles/.factory/profile_name", "template\n");
  host::writeFile("/etc/zuv/profiles/.factory/mapconfig.static", "map_uri=https://template:1\nmore=1\n");
  host::writeFile("/etc/zuv/profiles/.factory/sub/file", "not copied\n");
  host::writeFile("/tmp/target", "absolute\n");
  host::makeLink("/etc/zuv/profiles/.factory/absolute", "/tmp/target");
  host::makeLink("/etc/zuv/profiles/.factory/relative", "hip.conf");
  host::makeLink("/etc/zuv/profiles/.factory/nested", "sub/file");
  host::makeLink("/etc/zuv/profiles/.factory/folder", "sub");
  host::makeLink("/etc/zuv/profiles/.factory/nowhere", "gone");
  host::makeFifo("/etc/zuv/profiles/.factory/fifo");
  host::makeFifo("/tmp/fifo");
  host::makeLink("/etc/zuv/profiles/.factory/to_fifo", "/tmp/fifo");
  host::makeLink("/etc/zuv/profiles/.factory/circle", "circle");
  host::makeLink("/etc/zuv/profiles/.factory/below_a_file", "hip.conf/file");
  create(wish("lab"));
  EXPECT_EQ(host::tree(kMade),
            "f 0644 .hidden \"h\\n\"\n"
            "f 0644 absolute \"absolute\\n\"\n"
            "d 0755 ca-certs\n"
            "f 0644 empty \"\"\n"
            "f 0644 hip.conf \"x=1\\n\"\n"
            "f 0640 mapconfig.static \"map_uri=https://h:443\\n\"\n"
            "f 0644 nested \"not copied\\n\"\n"
            "f 0640 profile_name \"lab\\n\"\n"
            "f 0644 relative \"x=1\\n\"\n");
}

TEST_F(CreateTest, ARelativeLinkOfTheTemplateIsResolvedFromTheTemplate) {
  host::writeFile("/etc/zuv/profiles/.factory/real", "right\n");
  host::makeLink("/etc/zuv/profiles/.factory/to_file", "real");
  host::makeLink("/etc/zuv/profiles/.factory/to_nothing", "only_there");
  host::makeLink("/etc/zuv/profiles/.factory/to_folder", "odd");
  host::writeFile("/etc/zuv/profiles/.factory/odd", "odd\n");
  host::writeFile("/tmp/work/real/file", "a folder here\n");
  host::writeFile("/tmp/work/only_there", "wrong\n");
  host::makeDirs("/tmp/work/odd");
  ASSERT_EQ(::chdir("/tmp/work"), 0);
  create(wish("lab"));
  EXPECT_EQ(host::readFile(kMade + "/to_file"s), "right\n");
  EXPECT_EQ(host::readFile(kMade + "/to_folder"s), "odd\n");
  EXPECT_FALSE(host::exists(kMade + "/to_nothing"s));
}

TEST_F(CreateTest, CertificatesOfTheTemplateAreCopiedIntoADirectoryOfTheirOwn) {
  host::writeFile("/etc/zuv/profiles/.factory/ca-certs/ca.pem", "pem\n", 0600);
  host::writeFile("/etc/zuv/profiles/.factory/ca-certs/sub/inner.pem", "not copied\n");
  host::makeLink("/etc/zuv/profiles/.factory/ca-certs/link.pem", "ca.pem");
  host::writeFile("/etc/zuv/profiles/.factory/customer-certs/c.pem", "not copied\n");
  create(wish("lab"));
  EXPECT_EQ(host::tree(kMade + "/ca-certs"s), "f 0644 ca.pem \"pem\\n\"\nf 0644 link.pem \"pem\\n\"\n");
  EXPECT_FALSE(host::exists(kMade + "/customer-certs"s));
}

TEST_F(CreateTest, ATemplateFileNamedLikeTheCertificatesDirectoryIsCopiedAsAFile) {
  host::writeFile("/etc/zuv/profiles/.factory/ca-certs", "no directory\n", 0600);
  create(wish("lab"));
  EXPECT_THAT(host::tree(kMade), testing::HasSubstr("f 0644 ca-certs \"no directory\\n\"\n"));
}

TEST_F(CreateTest, ACertificateThatCannotBeCopiedIsIgnored) {
  host::writeFile("/etc/zuv/profiles/.factory/ca-certs/ca.pem", "pem\n", 0);
  const host::BoundByModes bound;
  EXPECT_EQ(create(wish("lab")).name, "lab");
}

TEST_F(CreateTest, ATemplateFileThatCannotBeCopiedEndsTheCreationWithThatStatus) {
  host::writeFile("/etc/zuv/profiles/.factory/hip.conf", "x=1\n", 0);
  const host::BoundByModes bound;
  CreatedProfile made;
  const Status failed = ProfileControl::createProfile(wish("lab"), made);
  EXPECT_THAT(failed, HasCode(status::openError));
  EXPECT_EQ(failed.details(), "/etc/zuv/profiles/.factory/hip.conf");
  EXPECT_EQ(failed.context(), "copyFile");
  EXPECT_EQ(host::tree(kMade), "");
  EXPECT_EQ(made.name, "");
}

TEST_F(CreateTest, AMissingTemplateCountsAsEmpty) {
  host::remove(host::kFactory);
  EXPECT_EQ(create(wish("lab")).name, "lab");
}

TEST_F(CreateTest, ATemplateThatCannotBeListedEndsTheCreationWithThatStatus) {
  const struct {
    const char* why;
    void (*put)();
  } cases[] = {
      {"a file", [] { host::writeFile(host::kFactory, ""); }},
      {"a FIFO", [] { host::makeFifo(host::kFactory); }},
      {"unreadable", [] { host::makeDirs(host::kFactory, 0); }},
      {"a link to itself", [] { host::makeLink(host::kFactory, ".factory"); }},
      {"a link to a file", [] { host::makeLink(host::kFactory, "/etc/passwd"); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(host::kProfiles);
    host::makeDirs(host::kProfiles);
    c.put();
    const host::BoundByModes bound;
    create(wish("lab"), status::opendirError);
    EXPECT_EQ(host::tree(kMade), "");
  }
}

TEST_F(CreateTest, ATemplateMayBeALinkToADirectory) {
  host::writeFile("/tmp/template/hip.conf", "x=1\n");
  host::makeLink(host::kFactory, "/tmp/template");
  create(wish("lab"));
  EXPECT_EQ(host::readFile(kMade + "/hip.conf"s), "x=1\n");
}

// --- Create: configuration

TEST_F(CreateTest, InterfaceAndInvitationAreWrittenAndTheLevelIsKept) {
  host::writeFile("/etc/zuv/profiles/.factory/hip.conf", "# hip\nmaster_interface=auto\n");
  host::writeFile("/etc/zuv/profiles/.factory/endbox.conf", "device_ip=10.9.0.1\nlog_level=info\n");
  NewProfile wanted = wish("lab");
  wanted.network = "eth0";
  wanted.invitation = " code ";
  create(wanted);
  EXPECT_EQ(host::readFile(kMade + "/hip.conf"s), "# hip\nmaster_interface=eth0\n");
  EXPECT_EQ(host::readFile(kMade + "/endbox.conf"s), "device_ip=10.9.0.1\nlog_level=info\nactivation_code=code\n");
}

TEST_F(CreateTest, AnInterfaceAndInvitationThatAreNotGivenAreNotWritten) {
  NewProfile wanted = wish("lab");
  wanted.invitation = " ";
  create(wanted);
  EXPECT_FALSE(host::exists(kMade + "/hip.conf"s));
  EXPECT_FALSE(host::exists(kMade + "/endbox.conf"s));
}

TEST_F(CreateTest, WithoutAValidPortTheAddressIsTheHostAloneAndWithoutAHostEmpty) {
  NewProfile wanted = wish();
  wanted.helmsorPort = 0;
  create(wanted);
  EXPECT_EQ(host::readFile(kMade + "/mapconfig.static"s), "map_uri=https://h\n");
  wanted.helmsorHost = "";
  wanted.helmsorPort = 443;
  create(wanted);
  EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-123124/mapconfig.static"), "map_uri=\n");
}

TEST_F(CreateTest, AFailedEditOfTheInterfaceIsReturnedAndTheLaterStepsFollow) {
  host::installRecorder(kSystemctl, kCalls);
  CreatedProfile made;
  StatusCode code = 0;
  {
    const ArmedFaults armed({1, false, EROFS, {"rename"}});
    code = ProfileControl::createProfile(everything("lab"), made).code();
  }
  EXPECT_EQ(code, status::renameError);
  EXPECT_EQ(made.name, "");
  EXPECT_FALSE(host::exists(kMade + "/hip.conf"s));
  EXPECT_EQ(host::readFile(kMade + "/endbox.conf"s), "activation_code=code\n");
  EXPECT_EQ(host::readFile(host::kCurrent), "profile-123123\n");
  EXPECT_EQ(calls(), "systemctl start hip\n");
}

TEST_F(CreateTest, AFailedWriteOfTheNameIsReturnedAndSkipsAllLaterSteps) {
  host::installRecorder(kSystemctl, kCalls);
  host::writeFile("/etc/zuv/profiles/.factory/ca-certs/ca.pem", "pem\n");
  {
    const ArmedFaults armed({1, false, ENOSPC, {"write"}});
    create(everything("lab"), status::writeError);
    EXPECT_EQ(armed.count(), 1u);
  }
  EXPECT_EQ(host::tree(kMade), "");
  EXPECT_FALSE(host::exists(host::kCurrent));
  EXPECT_EQ(calls(), "");
}

TEST_F(CreateTest, AFailedWriteOfTheAddressSkipsInterfaceInvitationAndActivation) {
  host::installRecorder(kSystemctl, kCalls);
  FaultPlan plan;
  plan.calls = {"mkdir"};
  plan.before = [](std::size_t call) {  // the second mkdir is that of the certificates
    if (call == 2) host::makeDirs(kMade + "/mapconfig.static"s);
  };
  {
    const ArmedFaults armed(plan);
    create(everything("lab"), status::openError);
    EXPECT_EQ(armed.count(), 2u);
  }
  EXPECT_EQ(host::tree(kMade), "d 0755 ca-certs\nd 0755 mapconfig.static\nf 0640 profile_name \"lab\\n\"\n");
  EXPECT_FALSE(host::exists(host::kCurrent));
  EXPECT_EQ(calls(), "");
}

// --- Create: activation

class CreateActiveTest : public ProfileControlTest {
 protected:
  void SetUp() override {
    ProfileControlTest::SetUp();
    if (IsSkipped()) return;
    host::makeProfile("profile-1", "old");
    host::makeActive("profile-1");
    host::installRecorder(kSystemctl, kCalls);
  }
  static NewProfile activeWish() {
    NewProfile wanted = wish("lab");
    wanted.activate = true;
    wanted.initSystem = "systemd";
    return wanted;
  }
  static std::string current() { return host::readFile(host::kCurrent); }
};

TEST_F(CreateActiveTest, ARunningDaemonIsStoppedFirstAndStartedAtTheEnd) {
  host::writeHeartbeat("/etc/zuv/profiles/profile-1");
  EXPECT_EQ(create(activeWish()).name, "lab");
  EXPECT_EQ(calls(), "systemctl stop hip\nsystemctl start hip\n");
  EXPECT_EQ(current(), "profile-123123\n");
  EXPECT_EQ(host::modeOf(host::kCurrent), 0666u);
}

TEST_F(CreateActiveTest, TheDaemonIsStoppedBeforeTheTemplateIsCopiedAndStartedLast) {
  host::writeHeartbeat("/etc/zuv/profiles/profile-1");
  host::writeFile("/etc/zuv/profiles/.factory/hip.conf", "x=1\n");
  host::installScript(kSystemctl, "echo $1 $(ls -A /etc/zuv/profiles/profile-123123) >> /tmp/calls\n");
  create(activeWish());
  EXPECT_EQ(calls(), "stop\nstart ca-certs hip.conf mapconfig.static profile_name\n");
}

TEST_F(CreateActiveTest, AFailureAfterTheStopLeavesTheDaemonStopped) {
  host::writeHeartbeat("/etc/zuv/profiles/profile-1");
  host::writeFile(host::kFactory, "");
  create(activeWish(), status::opendirError);
  EXPECT_EQ(calls(), "systemctl stop hip\n");
  EXPECT_EQ(current(), "profile-1\n");
}

TEST_F(CreateActiveTest, ADaemonThatMayRunIsStoppedToo) {
  host::writeFile("/etc/zuv/profiles/profile-1/hipvars.txt", "uptime.now=1\n");
  create(activeWish());
  EXPECT_EQ(calls(), "systemctl stop hip\nsystemctl start hip\n");
}

TEST_F(CreateActiveTest, AStoppedDaemonIsOnlyStarted) {
  create(activeWish());
  EXPECT_EQ(calls(), "systemctl start hip\n");
}

TEST_F(CreateActiveTest, WithoutActivationTheDaemonIsLeftAlone) {
  host::writeHeartbeat("/etc/zuv/profiles/profile-1");
  NewProfile wanted = activeWish();
  wanted.activate = false;
  create(wanted);
  EXPECT_EQ(calls(), "");
  EXPECT_EQ(current(), "profile-1\n");
}

TEST_F(CreateActiveTest, ARefusedNameDoesNotStopTheDaemon) {
  host::writeHeartbeat("/etc/zuv/profiles/profile-1");
  NewProfile wanted = activeWish();
  wanted.name = "old";
  wanted.allowRename = false;
  create(wanted, status::applicationError);
  EXPECT_EQ(calls(), "");
}

TEST_F(CreateActiveTest, AFailedStopIsIgnored) {
  host::writeHeartbeat("/etc/zuv/profiles/profile-1");
  host::installScript(kSystemctl, "echo \"$1\" >> /tmp/calls\n[ \"$1\" = start ]\n");
  EXPECT_EQ(create(activeWish()).name, "lab");
  EXPECT_EQ(calls(), "stop\nstart\n");
  EXPECT_EQ(current(), "profile-123123\n");
}

TEST_F(CreateActiveTest, AFailedStartIsReturnedButTheProfileIsCreatedAndActive) {
  const struct {
    const char* why;
    const char* script;
    StatusCode code;
  } cases[] = {
      {"the tool exits with a status", "exit 3\n", status::childExitedNonzero},
      {"the tool dies of a signal", "kill -KILL $$\n", status::childKilledBySignal},
      {"the tool is missing", nullptr, status::childExitedNonzero},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::makeActive("profile-1");
    host::remove("/usr/bin/systemctl");
    host::remove(kMade);
    if (c.script != nullptr) host::installScript(kSystemctl, c.script);
    create(activeWish(), c.code);
    EXPECT_EQ(current(), "profile-123123\n");
    EXPECT_EQ(host::readFile(kMade + "/profile_name"s), "lab\n");
  }
}

TEST_F(CreateActiveTest, AMarkerThatCannotBeWrittenIsAnApplicationErrorAndTheDaemonIsStarted) {
  host::remove(host::kCurrent);
  host::makeDirs(host::kCurrent);
  create(activeWish(), status::applicationError);
  EXPECT_EQ(calls(), "systemctl start hip\n");
}

TEST_F(CreateActiveTest, TheNullBackendStartsNothingAndReturnsAFailure) {
  NewProfile wanted = activeWish();
  wanted.initSystem = "null";
  create(wanted, status::childExitedNonzero);
  EXPECT_EQ(calls(), "");
  EXPECT_EQ(current(), "profile-123123\n");
}

// --- Details

using DetailsTest = ProfileControlTest;

TEST_F(DetailsTest, CreationReturnsTheDetailsOfTheNewProfile) {
  host::writeFile("/etc/zuv/profiles/.factory/device_id", "id\n");
  host::writeFile("/etc/zuv/profiles/.factory/endbox.conf", "device_ip=10.9.0.1\ndevice_mask=255.0.0.0\n");
  NewProfile wanted = wish("lab");
  wanted.network = "eth0";
  wanted.invitation = "code";
  const ProfileDetails details = create(wanted).details;
  EXPECT_TRUE(details.filled);
  EXPECT_EQ(details.dirname, "profile-123123");
  EXPECT_EQ(details.name, "lab");
  EXPECT_EQ(details.network, "eth0");
  EXPECT_EQ(details.deviceId, "id");
  EXPECT_EQ(details.overlayDeviceIp, "10.9.0.1");
  EXPECT_EQ(details.overlayMask, "255.0.0.0");
  EXPECT_EQ(details.invitation, "code");
  EXPECT_EQ(details.helmsor.host, "h");
  EXPECT_EQ(details.helmsor.port, "443");
  EXPECT_EQ(details.logLevel, "");
}

TEST_F(DetailsTest, DetailsOfANewProfileAreThoseOfItsDirectoryWhateverItsName) {
  EXPECT_EQ(create(wish("--active")).details.dirname, "profile-123123");
  EXPECT_EQ(create(wish("dir=profile-123123")).details.dirname, "profile-123124");
}

TEST_F(DetailsTest, AValueThatNoFileGivesIsEmpty) {
  host::makeProfile("profile-1", "lab");
  ProfileDetails details;
  details.network = details.deviceId = details.invitation = details.logLevel = "left over";
  details.helmsor = {"left", "over"};
  EXPECT_THAT(ProfileControl::cmdGetProfileDetails("lab", details), HasCode(status::success));
  EXPECT_TRUE(details.filled);
  EXPECT_EQ(details.dirname, "profile-1");
  EXPECT_EQ(details.name, "lab");
  EXPECT_EQ(details.network + details.deviceId + details.overlayDeviceIp + details.overlayMask + details.invitation +
                details.helmsor.host + details.helmsor.port + details.logLevel,
            "");
}

TEST_F(DetailsTest, TheFirstAddressLineWinsEvenIfItIsEmpty) {
  const struct {
    const char* lines;
    const char* host;
  } cases[] = {
      {"map_uri=https://first\nmap_uri=https://second\n", "first"},
      {"map_uri=\nmap_uri=https://second\n", ""},
      {"map_uri=https://\nmap_uri=https://second\n", ""},
      {"#map_uri=https://comment\nmap_uri=https://second\n", "second"},
  };
  host::makeProfile("profile-1", "lab");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.lines);
    host::writeFile("/etc/zuv/profiles/profile-1/mapconfig.static", c.lines);
    ProfileDetails details;
    EXPECT_THAT(ProfileControl::cmdGetProfileDetails("lab", details), HasCode(status::success));
    EXPECT_EQ(details.helmsor.host, c.host);
  }
}

TEST_F(DetailsTest, TheStatusIsThatOfTheResolution) {
  host::makeProfile("profile-1", "lab");
  host::makeProfile("profile-2", "office");
  host::makeActive("profile-1");
  ProfileDetails details;
  EXPECT_THAT(ProfileControl::cmdGetProfileDetails("lab", details), HasCode(status::profileIsActive));
  EXPECT_TRUE(details.filled);
  EXPECT_THAT(ProfileControl::cmdGetProfileDetails("", details), HasCode(status::profileIsActive));
  EXPECT_THAT(ProfileControl::cmdGetProfileDetails("office", details), HasCode(status::success));
  host::writeHeartbeat("/etc/zuv/profiles/profile-1");
  EXPECT_THAT(ProfileControl::cmdGetProfileDetails("lab", details), HasCode(status::profileIsRunning));
  EXPECT_EQ(details.name, "lab");
  EXPECT_THAT(ProfileControl::cmdGetProfileDetails(".factory", details), HasCode(status::success));
  EXPECT_EQ(details.dirname, ".factory");
}

TEST_F(DetailsTest, AFailedResolutionClearsTheDetails) {
  const struct {
    const char* selector;
    StatusCode code;
  } cases[] = {{"missing", status::profileNotFound}, {"dir=", status::invalidArgument}};
  for (const auto& c : cases) {
    ProfileDetails details;
    details.filled = true;
    details.name = "left over";
    EXPECT_THAT(ProfileControl::cmdGetProfileDetails(c.selector, details), HasCode(c.code));
    EXPECT_FALSE(details.filled);
    EXPECT_EQ(details.name, "");
  }
}

TEST_F(DetailsTest, NoAuthorizationIsNeeded) {
  setAuthorizationMode(authorizationNever);
  host::makeProfile("profile-1", "lab");
  ProfileDetails details;
  EXPECT_THAT(ProfileControl::cmdGetProfileDetails("lab", details), HasCode(status::success));
}

// --- Electing

class ElectingTest : public ProfileControlTest {
 protected:
  static void elect(StatusCode expected = status::success) {
    EXPECT_THAT(ProfileControl::ensureActiveProfile(), HasCode(expected));
  }
  static std::string workingDirectory() {
    std::string folder;
    EXPECT_THAT(FileUtils::getCurrentDir(folder), HasCode(status::success));
    return folder;
  }
};

TEST_F(ElectingTest, AnActiveProfileWithHipConfIsKeptAndBecomesTheWorkingDirectory) {
  host::makeProfile("profile-1", "b");
  host::makeProfile("profile-2", "a");
  host::makeActive("profile-1");
  const std::string before = store();
  elect();
  EXPECT_EQ(store(), before);
  EXPECT_EQ(workingDirectory(), "/etc/zuv/profiles/profile-1");
}

TEST_F(ElectingTest, WithoutAUsableActiveProfileTheFirstByNameBecomesActive) {
  host::makeProfile("profile-1", "b");
  host::makeProfile("profile-2", "a");
  const struct {
    const char* why;
    void (*put)();
  } cases[] = {
      {"no marker", [] {}},
      {"an empty marker", [] { host::writeFile(host::kCurrent, ""); }},
      {"a missing profile", [] { host::makeActive("gone"); }},
      {"no hip.conf",
       [] {
         host::makeDirs("/etc/zuv/profiles/.without");
         host::makeActive(".without");
       }},
      {"a path out of the store",
       [] {
         host::writeFile("/tmp/evil/hip.conf", "");
         host::makeActive("../../../tmp/evil");
       }},
      {"the template",
       [] {
         host::writeFile("/etc/zuv/profiles/.factory/hip.conf", "");
         host::makeActive(".factory");
       }},
      {"an unreadable marker", [] { host::writeFile(host::kCurrent, "profile-1\n", 0200); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(host::kCurrent);
    ASSERT_EQ(::chdir("/"), 0);
    c.put();
    {
      const host::BoundByModes bound;
      elect();
    }
    EXPECT_EQ(host::readFile(host::kCurrent), "profile-2\n");
    EXPECT_EQ(host::modeOf(host::kCurrent), 0666u);
    EXPECT_EQ(workingDirectory(), "/etc/zuv/profiles/profile-2");
  }
}

TEST_F(ElectingTest, AnActiveProfileWithoutHipConfIsReplaced) {
  host::makeProfile("profile-1", "a");
  host::makeProfile("profile-2", "b");
  host::makeActive("profile-2");
  static constexpr const char* conf = "/etc/zuv/profiles/profile-2/hip.conf";
  const struct {
    const char* why;
    void (*put)();
  } cases[] = {
      {"missing", [] {}},
      {"a directory", [] { host::makeDirs(conf); }},
      {"a FIFO", [] { host::makeFifo(conf); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(conf);
    host::makeActive("profile-2");
    c.put();
    elect();
    EXPECT_EQ(host::readFile(host::kCurrent), "profile-1\n");
  }
}

TEST_F(ElectingTest, TheElectedProfileNeedsNoHipConf) {
  host::makeDirs("/etc/zuv/profiles/profile-1");
  elect();
  EXPECT_EQ(store(),
            "f 0666 .current \"profile-1\\n\"\nd 0755 profile-1\nf 0640 profile-1/profile_name \"profile\\n\"\n");
}

TEST_F(ElectingTest, AMarkerThatCannotBeWrittenIsAnApplicationError) {
  host::makeProfile("profile-1", "a");
  host::makeDirs(host::kCurrent);
  elect(status::applicationError);
  EXPECT_EQ(workingDirectory(), "/");
}

TEST_F(ElectingTest, OnAnEmptyStoreAProfileIsCreatedActivatedAndStarted) {
  host::writeFile("/etc/zuv/.systemctl", "");
  host::installRecorder(kSystemctl, kCalls);
  elect();
  EXPECT_EQ(store(),
            "f 0666 .current \"profile-123123\\n\"\n"
            "d 0755 profile-123123\n"
            "d 0755 profile-123123/ca-certs\n"
            "f 0640 profile-123123/mapconfig.static \"map_uri=\\n\"\n"
            "f 0640 profile-123123/profile_name \"profile\\n\"\n");
  EXPECT_EQ(calls(), "systemctl start hip\n");
}

TEST_F(ElectingTest, WithoutAnInitSystemTheNullBackendIsAskedToStart) {
  host::installRecorder(kSystemctl, kCalls);
  elect(status::childExitedNonzero);
  EXPECT_EQ(host::readFile(host::kCurrent), "profile-123123\n");
  EXPECT_EQ(calls(), "");
}

TEST_F(ElectingTest, IfTheStoreCannotBeListedTheCreationOfAProfileFailsToo) {
  host::makeFifo("/etc/zuv/profiles/profile-1/profile_name");
  elect(status::applicationError);
  EXPECT_EQ(store(), "d 0755 profile-1\np 0644 profile-1/profile_name\nd 0755 profile-123123\n");
}

TEST_F(ElectingTest, WithoutAuthorizationNoProfileIsCreated) {
  setAuthorizationMode(authorizationNever);
  elect(status::authenticationError);
  EXPECT_EQ(store(), "");
}

TEST_F(ElectingTest, TheMarkerIsWrittenEvenWithoutAuthorization) {
  setAuthorizationMode(authorizationNever);
  host::makeProfile("profile-1", "a");
  elect();
  EXPECT_EQ(host::readFile(host::kCurrent), "profile-1\n");
}

TEST_F(ElectingTest, FailingToEnterTheProfileDirectoryIsIgnored) {
  host::makeProfile("profile-1", "a");
  host::makeActive("profile-1");
  const ArmedFaults armed({1, true, EACCES, {"chdir"}});
  elect();
  EXPECT_EQ(armed.count(), 1u);
}

}  // namespace
