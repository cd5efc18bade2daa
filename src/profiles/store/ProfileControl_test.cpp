// Tests of creating a profile, showing its details, and electing an active one.
#include "profiles/store/ProfileControl.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "base/files/FileLock.h"
#include "base/files/ProgramDirectories.h"
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

constexpr const char* kMade = "/etc/zuv/profiles/profile-123123";
// The files that every new profile named "lab" has, in host::tree(kMade).
const std::string kAddressAndName =
    "f 0640 mapconfig.static \"map_uri=https://h:443\\n\"\nf 0640 profile_name \"lab\\n\"\n";

// A case of a creation, and what it leaves behind.
struct Creation {
  const char* why;
  void (*put)(NewProfile& wanted);  // prepares the host and changes the request
  StatusCode code = status::success;
  std::string made = "d 0755 ca-certs\n" + kAddressAndName;
  std::string current = "";  // the content of the marker
  std::string calls = "";    // of systemctl
  FaultPlan plan = {0, false, 0, {"none"}};
  std::size_t plannedCalls = 0;
};

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

  static void expectCreation(const Creation& c, NewProfile wanted = wish("lab"), void (*scene)() = host::reset) {
    SCOPED_TRACE(c.why);
    scene();
    c.put(wanted);
    const host::BoundByModes bound;
    {
      const ArmedFaults armed(c.plan);
      EXPECT_EQ(create(wanted, c.code).name, isSuccess(c.code) ? wanted.name : "");
      EXPECT_EQ(armed.count(), c.plannedCalls);
    }
    EXPECT_EQ(host::tree(kMade), c.made);
    EXPECT_EQ(current(), c.current);
    EXPECT_EQ(host::recordedCalls(), c.calls);
  }

  static void putTemplate(const std::string& name, const std::string& text, mode_t mode = 0644) {
    host::writeFile(host::kFactory + ("/" + name), text, mode);
  }
  static std::string store() { return host::tree(host::kProfiles); }
  // The dirname in the marker; "" without a marker.
  static std::string current() { return host::exists(host::kCurrent) ? host::readFile(host::kCurrent) : ""; }
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
  putTemplate("hip.conf", "x=1\n", 0600);
  putTemplate("ca-certs/ca.pem", "pem\n", 0600);
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

TEST_F(CreateTest, ARefusedTakenNameLeavesAnEmptyDirectoryThatTheNextListingNames) {
  host::makeProfile("profile-1", "lab");
  NewProfile wanted = wish("lab");
  wanted.allowRename = false;
  wanted.activate = true;
  const std::string before = store();
  create(wanted, status::applicationError);
  EXPECT_EQ(store(), before + "d 0755 profile-123123\n");
  EXPECT_EQ(create(wish()).name, "profile#2");
  EXPECT_EQ(host::tree(kMade), "f 0640 profile_name \"profile\\n\"\n");
}

TEST_F(CreateTest, ANameIsTrimmedAndMadeUnique) {
  const struct {
    const char* why;
    const char* requested;
    const char* name;
  } cases[] = {
      {"a taken name gets the first free number", "lab", "lab#3"},
      {"a taken name with a number gets a second number", "lab#2", "lab#2#2"},
      {"outer blanks are removed", " room ", "room"},
      {"outer control bytes are removed", "\t\r\nroom\x7f\x01", "room"},
      {"an inner blank is kept", "my lab", "my lab"},
      {"a high byte at the start is kept", "\xc3\xa4z", "\xc3\xa4z"},
      {"a high byte at the end is kept", "x\x80", "x\x80"},
      {"a name of blanks alone is no name", " \t ", "profile"},
      {"the selector of the active profile", "--active", "--active"},
      {"the name of the marker", ".current", ".current"},
      {"the name of the template", ".factory", ".factory"},
      {"the selector of another directory", "dir=profile-1", "dir=profile-1"},
      {"an empty selector of a directory", "dir=", "dir="},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    host::makeProfile("profile-1", "lab");
    host::makeProfile("profile-2", "lab#2");
    host::makeActive("profile-1");
    const CreatedProfile made = create(wish(c.requested));
    EXPECT_EQ(made.name, c.name);
    EXPECT_EQ(made.details.dirname, "profile-123123");
    EXPECT_EQ(host::readFile(kMade + "/profile_name"s), c.name + "\n"s);
  }
}

TEST_F(CreateTest, ANameOfHighBytesOnlyCountsAsMissingAndIsRepairedAtOnce) {
  const CreatedProfile made = create(wish("\xc3\xa4"));
  EXPECT_EQ(made.name, "\xc3\xa4");
  EXPECT_EQ(made.details.name, "profile");
  EXPECT_EQ(host::readFile(kMade + "/profile_name"s), "profile\n");
}

TEST_F(CreateTest, EveryControlByteInATextIsRefusedBeforeAnythingChanges) {
  for (int byte = 0; byte < 256; ++byte) {
    if (byte >= 32 && byte != 127) continue;
    SCOPED_TRACE(byte);
    const std::string text = "a"s + static_cast<char>(byte) + "b";
    CreatedProfile made;
    const Status refused = ProfileControl::createProfile(wish(text), made);
    EXPECT_THAT(refused, HasCode(status::invalidArgument));
    EXPECT_EQ(refused.details(), "invalid profile name");
    EXPECT_EQ(refused.context(), "profile create");
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
  host::makeDirs("/etc/zuv/profiles/profile-1/profile_name");
  create(wish(), status::applicationError);
  EXPECT_EQ(store(), "d 0755 profile-1\nd 0755 profile-1/profile_name\nd 0755 profile-123123\n");
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
  putTemplate("hip.conf", "x=1\n", 0600);
  putTemplate("empty", "", 0777);
  putTemplate(".hidden", "h\n");
  putTemplate("profile_name", "template\n");
  putTemplate("mapconfig.static", "map_uri=https://template:1\nmore=1\n");
  putTemplate("sub/file", "not copied\n");
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
  putTemplate("real", "right\n");
  host::makeLink("/etc/zuv/profiles/.factory/to_file", "real");
  host::makeLink("/etc/zuv/profiles/.factory/to_nothing", "only_there");
  host::makeLink("/etc/zuv/profiles/.factory/to_folder", "odd");
  putTemplate("odd", "odd\n");
  host::writeFile("/tmp/work/real/file", "a folder here\n");
  host::writeFile("/tmp/work/only_there", "wrong\n");
  host::makeDirs("/tmp/work/odd");
  ASSERT_EQ(::chdir("/tmp/work"), 0);
  create(wish("lab"));
  EXPECT_EQ(host::readFile(kMade + "/to_file"s), "right\n");
  EXPECT_EQ(host::readFile(kMade + "/to_folder"s), "odd\n");
  EXPECT_FALSE(host::exists(kMade + "/to_nothing"s));
}

TEST_F(CreateTest, ALinkOfTheTemplateIsCopiedOnlyIfItIsTrusted) {
  SKIP_WITHOUT_OTHER_USERS();
  host::writeFile("/tmp/secret", "secret\n", 0600);
  host::makeLink("/tmp/others", "/tmp/secret");
  host::giveTo(1000, "/tmp/others");
  for (const std::string folder : {"/etc/zuv/profiles/.factory/", "/etc/zuv/profiles/.factory/ca-certs/"}) {
    host::makeDirs(folder);
    host::makeLink(folder + "trusted", "/tmp/secret");
    host::makeLink(folder + "untrusted", "/tmp/secret");
    host::giveTo(1000, folder + "untrusted");
    host::makeLink(folder + "untrusted_broken", "/tmp/gone");
    host::giveTo(1000, folder + "untrusted_broken");
    host::makeLink(folder + "trusted_over_untrusted", "/tmp/others");
  }
  create(wish("lab"));
  EXPECT_EQ(host::tree(kMade),
            "d 0755 ca-certs\n"
            "f 0644 ca-certs/trusted \"secret\\n\"\n"
            "f 0640 mapconfig.static \"map_uri=https://h:443\\n\"\n"
            "f 0640 profile_name \"lab\\n\"\n"
            "f 0644 trusted \"secret\\n\"\n");
}

TEST_F(CreateTest, ALinkOfTheTemplateWhoseTargetHasATooLongNameIsPassedOver) {
  host::makeLink("/etc/zuv/profiles/.factory/link", "/tmp/" + std::string(300, 'x'));
  EXPECT_EQ(create(wish("lab")).name, "lab");
}

TEST_F(CreateTest, AnUntrustedLinkDoesNotFailTheCreationIfStatFails) {
  SKIP_WITHOUT_OTHER_USERS();
  constexpr const char* link = "/etc/zuv/profiles/.factory/link";
  host::makeLink(link, "/tmp/missing");
  const ArmedFaults armed{FaultPlan{1, true, EIO, {"stat"}}};
  create(wish("lab"), status::invalidArgument);
  host::giveTo(1000, link);
  EXPECT_EQ(create(wish("lab")).name, "lab");
}

TEST_F(CreateTest, ALinkOfTheTemplateThatBecomesCircularMeanwhileIsPassedOver) {
  constexpr const char* link = "/etc/zuv/profiles/.factory/link";
  for (const std::size_t at : {1u, 2u}) {
    SCOPED_TRACE(at == 1 ? "during the listing" : "before the look at its target");
    host::reset();
    host::writeFile("/tmp/target", "text");
    host::makeLink(link, "/tmp/target");
    FaultPlan plan;
    plan.calls = {"stat"};
    plan.before = [at](std::size_t call) {
      if (call != at) return;
      host::remove(link);
      host::makeLink(link, link);
    };
    const ArmedFaults armed(plan);
    create(wish("lab"));
    EXPECT_GE(armed.count(), at);
    EXPECT_EQ(host::tree(kMade), "d 0755 ca-certs\n" + kAddressAndName);
  }
}

TEST_F(CreateTest, CertificatesAndTemplateMayBeMissingOrUnusual) {
  const Creation cases[] = {
      {"certificates are copied into a directory of their own",
       [](NewProfile&) {
         putTemplate("ca-certs/ca.pem", "pem\n", 0600);
         putTemplate("ca-certs/sub/inner.pem", "not copied\n");
         host::makeLink("/etc/zuv/profiles/.factory/ca-certs/link.pem", "ca.pem");
         putTemplate("customer-certs/c.pem", "not copied\n");
       },
       status::success,
       "d 0755 ca-certs\n"
       "f 0644 ca-certs/ca.pem \"pem\\n\"\nf 0644 ca-certs/link.pem \"pem\\n\"\n" +
           kAddressAndName},
      {"a certificate that cannot be copied is ignored",
       [](NewProfile&) { putTemplate("ca-certs/ca.pem", "pem\n", 0); }},
      {"a file named like the certificates directory is copied",
       [](NewProfile&) { putTemplate("ca-certs", "no directory\n", 0600); }, status::success,
       "f 0644 ca-certs \"no directory\\n\"\n" + kAddressAndName},
      {"a missing template counts as empty", [](NewProfile&) { host::remove(host::kFactory); }},
      {"a link to a directory is followed",
       [](NewProfile&) {
         host::writeFile("/tmp/template/a.conf", "x=1\n");
         host::makeLink(host::kFactory, "/tmp/template");
       },
       status::success, "f 0644 a.conf \"x=1\\n\"\nd 0755 ca-certs\n" + kAddressAndName},
  };
  for (const Creation& c : cases) expectCreation(c);
}

TEST_F(CreateTest, ATemplateFileThatCannotBeCopiedEndsTheCreationWithThatStatus) {
  putTemplate("hip.conf", "x=1\n", 0);
  const host::BoundByModes bound;
  CreatedProfile made;
  const Status failed = ProfileControl::createProfile(wish("lab"), made);
  EXPECT_THAT(failed, HasCode(status::openError));
  EXPECT_EQ(failed.details(), "/etc/zuv/profiles/.factory/hip.conf");
  EXPECT_EQ(failed.context(), "copyFile");
  EXPECT_EQ(host::tree(kMade), "");
  EXPECT_EQ(made.name, "");
}

TEST_F(CreateTest, ATemplateThatCannotBeListedEndsTheCreationWithThatStatus) {
  const Creation cases[] = {
      {"a file", [](NewProfile&) { host::writeFile(host::kFactory, ""); }, status::opendirError, ""},
      {"a FIFO", [](NewProfile&) { host::makeFifo(host::kFactory); }, status::opendirError, ""},
      {"unreadable", [](NewProfile&) { host::makeDirs(host::kFactory, 0); }, status::opendirError, ""},
      {"a link to itself", [](NewProfile&) { host::makeLink(host::kFactory, ".factory"); }, status::opendirError, ""},
      {"a link to a file", [](NewProfile&) { host::makeLink(host::kFactory, "/etc/passwd"); }, status::opendirError,
       ""},
  };
  for (const Creation& c : cases) expectCreation(c);
}

// --- Create: configuration

TEST_F(CreateTest, PortInterfaceAndInvitationAreWrittenIfTheyAreGiven) {
  const Creation cases[] = {
      {"without a port only the host is written",
       [](NewProfile& wanted) { wanted.helmsorPort = NewProfile().helmsorPort; }, status::success,
       "d 0755 ca-certs\nf 0640 mapconfig.static \"map_uri=https://h\\n\"\nf 0640 profile_name \"lab\\n\"\n"},
      {"interface and invitation are written and the other lines are kept",
       [](NewProfile& wanted) {
         putTemplate("hip.conf", "# hip\nmaster_interface=auto\n");
         putTemplate("endbox.conf", "device_ip=10.9.0.1\nlog_level=info\n");
         wanted.network = "eth0";
         wanted.invitation = " code ";
       },
       status::success,
       "d 0755 ca-certs\n"
       "f 0644 endbox.conf \"device_ip=10.9.0.1\\nlog_level=info\\nactivation_code=code\\n\"\n"
       "f 0644 hip.conf \"# hip\\nmaster_interface=eth0\\n\"\n" +
           kAddressAndName},
      {"nothing is written for an invitation of blanks and no interface",
       [](NewProfile& wanted) { wanted.invitation = " "; }},
  };
  for (const Creation& c : cases) expectCreation(c);
}

TEST_F(CreateTest, AFailedWriteOfNameOrAddressSkipsTheLaterStepsAndAFailedEditSkipsNone) {
  const auto put = [](NewProfile&) {
    putTemplate("ca-certs/ca.pem", "pem\n");
    host::installRecorder(kSystemctl, kCalls);
  };
  const std::string certificates = "d 0755 ca-certs\nf 0644 ca-certs/ca.pem \"pem\\n\"\n";
  FaultPlan blockedAddress = {0, false, 0, {"mkdir"}};
  blockedAddress.before = [](std::size_t call) {  // the one mkdir is that of the certificates
    if (call == 1) host::makeDirs(kMade + "/mapconfig.static"s);
  };
  const Creation cases[] = {
      {"a failed write of the name", put, status::writeError, "", "", "", {1, false, ENOSPC, {"write"}}, 1},
      {"a failed write of the address", put, status::openError,
       certificates + "d 0755 mapconfig.static\nf 0640 profile_name \"lab\\n\"\n", "", "", blockedAddress, 1},
      {"a failed edit of the interface",
       put,
       status::renameError,
       certificates + "f 0644 endbox.conf \"activation_code=code\\n\"\n" + kAddressAndName,
       "profile-123123\n",
       "systemctl start hip\n",
       {1, false, EROFS, {"renameat"}},
       2},
  };
  for (const Creation& c : cases) expectCreation(c, everything("lab"));
}

TEST_F(CreateTest, AProfileThatAnotherProcessDeletesMeanwhileIsAFailureAndIsNeverActivated) {
  for (const bool isMoved : {false, true}) {
    SCOPED_TRACE(isMoved);
    host::reset();
    host::installRecorder(kSystemctl, kCalls);
    FaultPlan plan = {0, false, 0, {"fstatat"}};
    plan.before = [isMoved](std::size_t) {
      const std::string address = kMade + "/mapconfig.static"s;
      if (!host::exists(address) || host::readFile(address).empty()) return;
      isMoved ? (void)::rename(kMade, "/etc/zuv/moved") : host::remove(kMade);
    };
    NewProfile wanted = wish("lab");
    wanted.activate = true;
    CreatedProfile made;
    const ArmedFaults armed(plan);
    EXPECT_THAT(ProfileControl::createProfile(wanted, made), HasCode(status::applicationError));
    EXPECT_EQ(host::recordedCalls(), "");
    EXPECT_FALSE(host::exists(host::kCurrent));
  }
}

// The lock of a file counts for files of that name in all profiles.
TEST_F(CreateTest, AllEditsTogetherWaitTenSecondsForLocks) {
  host::setMode("/tmp/lock", 0755);  // a lock in a directory where others may write stops no edit
  const FileLock hip("hip.conf");
  const FileLock endbox("endbox.conf");
  ASSERT_TRUE(hip.isLocked() && endbox.isLocked());
  NewProfile wanted = wish("lab");
  wanted.network = "eth0";
  wanted.invitation = "code";
  const SkippedPauses skipped;
  create(wanted, status::openError);
  EXPECT_EQ(skipped.total(), std::chrono::seconds(10));
}

// --- Create: activation

class CreateActiveTest : public ProfileControlTest {
 protected:
  static constexpr const char* kHeartbeat = "/etc/zuv/profiles/profile-1/hipvars.txt";

  // A host with an active profile whose daemon runs.
  static void makeRunning() {
    host::reset();
    host::makeProfile("profile-1", "old");
    host::makeActive("profile-1");
    host::writeHeartbeat("/etc/zuv/profiles/profile-1");
    host::installRecorder(kSystemctl, kCalls);
  }
  static NewProfile activeWish() {
    NewProfile wanted = wish("lab");
    wanted.activate = true;
    wanted.initSystem = "systemd";
    return wanted;
  }
};

TEST_F(CreateActiveTest, ADaemonThatMayRunIsStoppedFirstAndStartedAtTheEnd) {
  const std::string created = "d 0755 ca-certs\n" + kAddressAndName;
  const Creation cases[] = {
      {"a daemon that may run is stopped", [](NewProfile&) { host::writeFile(kHeartbeat, "uptime.now=1\n"); },
       status::success, created, "profile-123123\n", "systemctl stop hip\nsystemctl start hip\n"},
      {"a stopped daemon is only started", [](NewProfile&) { host::remove(kHeartbeat); }, status::success, created,
       "profile-123123\n", "systemctl start hip\n"},
      {"a failed stop is ignored",
       [](NewProfile&) { host::installScript(kSystemctl, "echo \"$1\" >> /tmp/calls\n[ \"$1\" = start ]\n"); },
       status::success, created, "profile-123123\n", "stop\nstart\n"},
      {"the stop precedes the copy of the template, and the start is last",
       [](NewProfile&) {
         putTemplate("a.conf", "");
         host::installScript(kSystemctl, "echo $1 $(ls -A /etc/zuv/profiles/profile-123123) >> /tmp/calls\n");
       },
       status::success, "f 0644 a.conf \"\"\n" + created, "profile-123123\n",
       "stop\nstart a.conf ca-certs mapconfig.static profile_name\n"},
      {"a running daemon is stopped", [](NewProfile&) {}, status::success, created, "profile-123123\n",
       "systemctl stop hip\nsystemctl start hip\n"},
  };
  for (const Creation& c : cases) expectCreation(c, activeWish(), makeRunning);
  EXPECT_EQ(host::modeOf(host::kCurrent), 0666u);
}

TEST_F(CreateActiveTest, AFailedStartIsReturnedButTheProfileIsCreatedAndActive) {
  const std::string created = "d 0755 ca-certs\n" + kAddressAndName;
  const Creation cases[] = {
      {"the tool exits with a status", [](NewProfile&) { host::installScript(kSystemctl, "exit 3\n"); },
       status::childExitedNonzero, created, "profile-123123\n"},
      {"a signal ends the tool", [](NewProfile&) { host::installScript(kSystemctl, "kill -KILL $$\n"); },
       status::childKilledBySignal, created, "profile-123123\n"},
      {"the tool is missing", [](NewProfile&) { host::remove("/usr/bin/systemctl"); }, status::childExitedNonzero,
       created, "profile-123123\n"},
      {"the null backend starts nothing", [](NewProfile& wanted) { wanted.initSystem = "null"; },
       status::childExitedNonzero, created, "profile-123123\n"},
  };
  for (const Creation& c : cases) expectCreation(c, activeWish(), makeRunning);
}

TEST_F(CreateActiveTest, AFailureToSetTheModeOfTheMarkerIsReturnedEvenIfTheStartFailsToo) {
  const Creation c = {"both fail",
                      [](NewProfile&) { host::installScript(kSystemctl, "exit 3\n"); },
                      status::applicationError,
                      "d 0755 ca-certs\n" + kAddressAndName,
                      "profile-123123\n",
                      "",
                      {2, true, EPERM, {"chmod"}},  // the first one is that of the certificates
                      2};
  expectCreation(c, activeWish(), makeRunning);
}

TEST_F(CreateActiveTest, ADaemonThatWasStoppedStaysStoppedIfAnotherProcessDeletesTheProfileMeanwhile) {
  makeRunning();
  FaultPlan plan = {0, false, 0, {"fstatat"}};
  plan.before = [](std::size_t) {
    const std::string address = kMade + "/mapconfig.static"s;
    if (host::exists(address) && !host::readFile(address).empty()) host::remove(kMade);
  };
  const ArmedFaults armed(plan);
  create(activeWish(), status::applicationError);
  EXPECT_EQ(host::recordedCalls(), "systemctl stop hip\n");
  EXPECT_EQ(current(), "profile-1\n");
}

TEST_F(CreateActiveTest, TheOldProfileStaysActiveIfActivationIsNotWantedOrNotReached) {
  const Creation cases[] = {
      {"without activation the daemon is left alone", [](NewProfile& wanted) { wanted.activate = false; },
       status::success, "d 0755 ca-certs\n" + kAddressAndName, "profile-1\n"},
      {"a refused name does not stop the daemon",
       [](NewProfile& wanted) {
         wanted.name = "old";
         wanted.allowRename = false;
       },
       status::applicationError, "", "profile-1\n"},
      {"a failure after the stop leaves the daemon stopped", [](NewProfile&) { host::writeFile(host::kFactory, ""); },
       status::opendirError, "", "profile-1\n", "systemctl stop hip\n"},
  };
  for (const Creation& c : cases) expectCreation(c, activeWish(), makeRunning);
}

TEST_F(CreateActiveTest, AMarkerThatCannotBeWrittenIsAnApplicationErrorAndTheDaemonIsStarted) {
  makeRunning();
  host::remove(host::kCurrent);
  host::makeDirs(host::kCurrent);
  create(activeWish(), status::applicationError);
  EXPECT_EQ(host::recordedCalls(), "systemctl start hip\n");
}

// --- Details

using DetailsTest = ProfileControlTest;

TEST_F(DetailsTest, CreationReturnsTheDetailsOfTheNewProfile) {
  putTemplate("device_id", "id\n");
  putTemplate("endbox.conf", "device_ip=10.9.0.1\ndevice_mask=255.0.0.0\n");
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

TEST_F(DetailsTest, TheStatusIsThatOfTheResolutionAndNoAuthorizationIsNeeded) {
  const struct {
    const char* why;
    const char* selector;
    bool isRunning;
    StatusCode code;
    const char* dirname;
    const char* name;
  } cases[] = {
      {"the active profile", "lab", false, status::profileIsActive, "profile-1", "lab"},
      {"an empty selector", "", false, status::profileIsActive, "profile-1", "lab"},
      {"the running profile", "lab", true, status::profileIsRunning, "profile-1", "lab"},
      {"another profile", "office", false, status::success, "profile-2", "office"},
      {"the template", ".factory", false, status::success, ".factory", ".factory"},
      {"a missing profile", "missing", false, status::profileNotFound, "", ""},
      {"an empty directory name", "dir=", false, status::invalidArgument, "", ""},
  };
  setAuthorizationMode(authorizationNever);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    host::makeProfile("profile-1", "lab");
    host::makeProfile("profile-2", "office");
    host::makeActive("profile-1");
    if (c.isRunning) host::writeHeartbeat("/etc/zuv/profiles/profile-1");
    ProfileDetails details;
    details.filled = !isSuccess(c.code);
    details.dirname = details.name = "left over";
    EXPECT_THAT(ProfileControl::cmdGetProfileDetails(c.selector, details), HasCode(c.code));
    EXPECT_EQ(details.filled, isSuccess(c.code));
    EXPECT_EQ(details.dirname, c.dirname);
    EXPECT_EQ(details.name, c.name);
  }
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

TEST_F(ElectingTest, WithoutAUsableActiveProfileTheFirstByNameBecomesActiveWithoutAuthorization) {
  static constexpr const char* conf = "/etc/zuv/profiles/profile-1/hip.conf";
  const struct {
    const char* why;
    const char* marker;  // null: none
    void (*put)();
  } cases[] = {
      {"no marker", nullptr, [] {}},
      {"an empty marker", "", [] {}},
      {"an unreadable marker", "profile-1\n",
       [] {
         host::writeFile(conf, "");
         host::setMode(host::kCurrent, 0200);
       }},
      {"a missing profile", "gone\n", [] {}},
      {"a directory without hip.conf", ".without\n", [] { host::makeDirs("/etc/zuv/profiles/.without"); }},
      {"a path out of the store", "../../../tmp/evil\n", [] { host::writeFile("/tmp/evil/hip.conf", ""); }},
      {"the template", ".factory\n", [] { host::writeFile("/etc/zuv/profiles/.factory/hip.conf", ""); }},
      {"a profile without hip.conf", "profile-1\n", [] {}},
      {"a hip.conf that is a directory", "profile-1\n", [] { host::makeDirs(conf); }},
      {"a hip.conf that is a FIFO", "profile-1\n", [] { host::makeFifo(conf); }},
  };
  setAuthorizationMode(authorizationNever);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    ASSERT_EQ(::chdir("/"), 0);
    host::reset();
    host::writeFile("/etc/zuv/profiles/profile-1/profile_name", "", 0640);
    host::makeProfile("profile-2", "a");
    if (c.marker != nullptr) host::writeFile(host::kCurrent, c.marker, 0666);
    c.put();
    {
      const host::BoundByModes bound;
      elect();
    }
    EXPECT_EQ(current(), "profile-2\n");
    EXPECT_EQ(host::modeOf(host::kCurrent), 0666u);
    EXPECT_EQ(workingDirectory(), "/etc/zuv/profiles/profile-2");
    EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-1/profile_name"), "profile\n");  // repaired
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
  EXPECT_EQ(host::recordedCalls(), "systemctl start hip\n");
  EXPECT_EQ(workingDirectory(), "/");
}

TEST_F(ElectingTest, WithoutAnInitSystemTheNullBackendIsAskedToStart) {
  host::installRecorder(kSystemctl, kCalls);
  elect(status::childExitedNonzero);
  EXPECT_EQ(current(), "profile-123123\n");
  EXPECT_EQ(host::recordedCalls(), "");
}

TEST_F(ElectingTest, IfTheStoreCannotBeListedTheCreationOfAProfileFailsToo) {
  host::makeDirs("/etc/zuv/profiles/profile-1/profile_name");
  elect(status::applicationError);
  EXPECT_EQ(store(), "d 0755 profile-1\nd 0755 profile-1/profile_name\nd 0755 profile-123123\n");
}

TEST_F(ElectingTest, WithoutAuthorizationNoProfileIsCreated) {
  setAuthorizationMode(authorizationNever);
  elect(status::authenticationError);
  EXPECT_EQ(store(), "");
}

TEST_F(ElectingTest, FailingToEnterTheProfileDirectoryIsIgnored) {
  host::makeProfile("profile-1", "a");
  host::makeActive("profile-1");
  const ArmedFaults armed({1, true, EACCES, {"chdir"}});
  elect();
  EXPECT_EQ(armed.count(), 1u);
}

TEST_F(ElectingTest, TheActiveDirectoryIsMissingUnlessTheMarkerNamesADirectoryOrCannotBeRead) {
  host::makeDirs("/etc/zuv/profiles/profile-1");
  host::makeLink("/etc/zuv/profiles/link", "profile-1");
  host::makeLink("/etc/zuv/profiles/broken", "gone");
  host::writeFile("/etc/zuv/profiles/file", "");
  const struct {
    const char* marker;  // null: none
    mode_t mode;
    bool isMissing;
  } cases[] = {
      {nullptr, 0, true},           {"", 0666, true},        {"gone\n", 0666, true},    {"file\n", 0666, true},
      {"broken\n", 0666, true},     {"../x\n", 0666, true},  {"profile-1\n", 0, false}, {"gone\n", 0, false},
      {"profile-1\n", 0666, false}, {"link\n", 0666, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << (c.marker == nullptr ? "no marker" : c.marker) << c.mode);
    host::remove(host::kCurrent);
    if (c.marker != nullptr) host::writeFile(host::kCurrent, c.marker, c.mode);
    const host::BoundByModes bound;
    EXPECT_EQ(ProfileControl::isActiveDirectoryMissing(), c.isMissing);
  }
}

}  // namespace
