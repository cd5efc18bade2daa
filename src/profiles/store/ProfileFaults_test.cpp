// Tests of the operations on profiles under faults, on full disks and below a limit of the file size.
#include <sys/wait.h>

#include <iterator>
#include <sstream>

#include "base/files/ProgramDirectories.h"
#include "command/framework/Authorization.h"
#include "command/status/AppStatusCodes.h"
#include "profiles/store/ProfileChanges.h"
#include "profiles/store/ProfileControl.h"
#include "profiles/store/ProfileStore.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using namespace std::string_literals;
using host::kSystemctl;
using testing::AnyOf;
using testing::Contains;
using testing::IsSupersetOf;

constexpr const char* kLab = "/etc/zuv/profiles/profile-1";
constexpr const char* kOffice = "/etc/zuv/profiles/profile-2";
constexpr const char* kMade = "/etc/zuv/profiles/profile-123123";

class ProfileFaultsTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    setAuthorizationMode(authorizationAlways);
    (void)FileUtils::lockDir();  // created once in a process, so not in the middle of a fault loop
  }
  void TearDown() override { setAuthorizationMode(authorizationNever); }
};

// "lab" is active, "office" is not.
void makeTwoProfiles() {
  host::makeProfile("profile-1", "lab");
  host::makeProfile("profile-2", "office");
  host::makeActive("profile-1");
  host::installRecorder(kSystemctl, host::kCalls);
}

NewProfile wish(const std::string& name, const std::string& network, const std::string& invitation) {
  NewProfile wanted;
  wanted.name = name;
  wanted.helmsorHost = "h";
  wanted.helmsorPort = 443;
  wanted.network = network;
  wanted.invitation = invitation;
  wanted.initSystem = "null";
  return wanted;
}

// Creates the profile. Its name is returned on success only.
Status create(const NewProfile& wanted) {
  CreatedProfile made;
  Status created = ProfileControl::createProfile(wanted, made);
  EXPECT_EQ(made.name, created.isSuccess() ? wanted.name : "");
  return created;
}

Status activate(const std::string& selector, const std::string& initSystem) {
  std::string name;
  return ProfileChanges::activateProfile(selector, initSystem, name);
}

Status rename(const std::string& selector, const std::string& newName) {
  std::string name = "left over";
  Status renamed = ProfileChanges::renameProfile(selector, newName, name);
  EXPECT_EQ(name, renamed.isSuccess() ? newName : "");
  return renamed;
}

Status modify(const std::string& selector, const ProfileChanges::Modification& wanted) {
  ProfileDetails details;
  return ProfileChanges::modifyProfile(selector, wanted, details);
}

std::string store() { return host::tree(host::kProfiles); }

using Lines = std::set<std::string>;

Lines linesOf(const std::string& text) {
  Lines lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find('\n', at) + 1;
    lines.insert(text.substr(at, end - at));
    at = end;
  }
  return lines;
}

// --- The calls of parts of an operation

const std::string kReadFile = "openat fstat read close ";
const std::string kCopyFile =
    "stat openat fstat openat openat fstat flock fstat fstatat read write fchmod close close ";
const std::string kMakeNumbered = "openat mkdirat fchmodat close ";
const std::string kWriteNewFile = "openat openat fstat flock fstat fstatat write fchmod close ";
// By a text of the same length.
const std::string kOverwriteFile = "openat fstat flock fstat fstatat pread write fchmod fstat close close ";
const std::string kWriteLongerFile = "openat fstat flock fstat fstatat fallocate pread write fchmod fstat close close ";
const std::string kMakeNewFile =
    "openat fstat close "                        // others may write in the lock directory: no lock of it
    "openat fstat openat flock fstat fstatat ";  // open the directory, make and lock the new file
const std::string kEditFile =
    kMakeNewFile +
    "openat fstat read "                                            // read the old file
    "write fchown flistxattr flistxattr fstat fchmod fsync close "  // write the new file
    "fstat fstatat renameat openat fsync close close "              // replace the old one, release the lock
    "close close ";                                                 // close the directory and the old file
const std::string kEditMissingFile =
    kMakeNewFile +
    "openat "                                           // find no old file
    "write fchmod fsync close "                         // write the new file
    "fstat fstatat renameat openat fsync close close "  // give it its name, release the lock
    "close ";                                           // close the directory

std::string times(std::size_t count, const std::string& part) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += part;
  return all;
}

// Lists an open directory. There is a readdir for each entry, "." and "..", and one that finds the end.
std::string listOpened(std::size_t readdirs) { return "openat fdopendir " + times(readdirs, "readdir ") + "closedir "; }
std::string list(std::size_t readdirs) { return "openat " + listOpened(readdirs); }

std::vector<std::string> wordsOf(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

// --- A fault at each call

// Returns true if a fault may have kept a name from being read. An unreadable name is deliberately replaced.
bool hitsReading(const Fault& fault) {
  return fault && (fault.call == "openat" || fault.call == "fstat" || fault.call == "read");
}

// Returns true if a fault may have hidden the access list or the mode of a file. An edit then leaves it to its owner.
bool hidesAccess(const Fault& fault) { return fault.call == "flistxattr" || fault.call == "fstat"; }

// When the operation may replace a name that it cannot read.
enum class Repair { never, beforeTheChange, always };

// A file that an operation may change, with its contents before and after the change.
struct ChangedFile {
  std::string path;
  mode_t mode;
  std::vector<std::string> before;
  std::vector<std::string> after;
  Repair repair = Repair::never;
};

// The failures that the creation of a profile may return.
const std::vector<StatusCode> kFailuresOfCreate = {
    status::applicationError, status::opendirError,       status::openError,      status::readError,
    status::writeError,       status::chmodError,         status::renameError,    status::forkError,
    status::waitpidError,     status::childExitedNonzero, status::invalidArgument};

struct Operation {
  const char* why;
  void (*prepare)();
  Status (*run)();
  bool reportsEveryFault;
  std::vector<StatusCode> failures;
  std::vector<ChangedFile> files;
  const char* daemonCalls;  // the calls of the init tool
  std::string calls;
};

const Operation kOperations[] = {
    {"electing",
     [] {
       host::makeProfile("profile-1", "a");
       host::makeProfile("profile-2", "b");
       host::makeActive("profile-9");
     },
     [] { return ProfileStore::setActive("profile-1") ? Status() : Status::of(status::applicationError); },
     true,
     {status::applicationError},
     {{host::kCurrent, 0666, {"profile-9\n"}, {"profile-1\n"}}},
     "",
     kOverwriteFile + "chmod "},
    {"activation, which does not report a failed switch",
     makeTwoProfiles,
     [] { return activate("dir=profile-2", "systemd"); },
     false,
     {status::forkError, status::waitpidError, status::profileNotFound},
     {{host::kCurrent, 0666, {"profile-1\n"}, {"profile-2\n"}}, {kLab + "/profile_name"s, 0640, {}, {"lab\n"}}},
     "systemctl stop hip\nsystemctl start hip\n",
     times(2, kReadFile) +            // read name and marker
         "fork waitpid " +            // stop the daemon
         kOverwriteFile + "chmod " +  // write the marker
         "fork waitpid "},            // start the daemon
    {"renaming",
     [] { host::makeProfile("profile-1", "lab"); },
     [] { return rename("dir=profile-1", "workshop"); },
     true,
     {status::applicationError, status::invalidArgument, status::profileNotFound, status::openError,
      status::writeError},
     {{kLab + "/profile_name"s, 0640, {"lab\n"}, {"workshop\n"}, Repair::beforeTheChange}},
     "",
     kReadFile + "openat fstatat " +       // read the old name, find no marker
         list(4) + kReadFile + "close " +  // list the root and read the name in it, to check the new name
         kWriteLongerFile},
    {"creating an active profile",
     [] {
       host::makeProfile("profile-1", "old");
       host::makeActive("profile-1");
       host::writeHeartbeat(kLab);
       host::installRecorder(kSystemctl, host::kCalls);
     },
     [] {
       NewProfile wanted = wish("lab", "", "");
       wanted.activate = true;
       wanted.initSystem = "systemd";
       return create(wanted);
     },
     true,
     kFailuresOfCreate,
     {{host::kCurrent, 0666, {"profile-1\n"}, {"profile-123123\n", "profile-123124\n"}}},
     "systemctl stop hip\nsystemctl start hip\n",
     kMakeNumbered + list(6) + kReadFile + "close " +  // create the directory, list the store to choose a name
         "openat " +                                   // open the new directory
         times(2, kReadFile) + "fork waitpid " +       // read marker and heartbeat, stop the daemon
         "openat " + kWriteNewFile +                   // find no template, write the name
         "mkdir chmod openat " + kWriteNewFile +       // find no certificates, write the Helmsor address
         "fstat fstatat " +                            // see that the directory is still there
         kWriteLongerFile + "chmod fork waitpid " +    // write the marker, start the daemon
         times(3, kReadFile) + "openat " +             // read the name, and the marker twice; find no heartbeat
         "openat getifaddrs " +                        // find no interface; read the interfaces
         "openat fstatat openat openat openat " +      // find no device_id, device_ip, device_mask and invitation
         kReadFile + "openat openat close "},          // read the Helmsor address; find neither level
    {"modifying",
     [] {
       makeTwoProfiles();
       host::writeFile(kOffice + "/endbox.conf"s, "activation_code=old\nlog_level=info\nopenhip.log_level=info\n");
       host::writeFile(kOffice + "/hip.conf"s, "master_interface=old0\n");
       host::writeFile(kOffice + "/mapconfig.static"s, "map_uri=https://g:443\n", 0640);
       host::writeFile(kOffice + "/hip.state"s, "x");
     },
     [] {
       return modify("dir=profile-2", {"workshop", true, "h", 443, "eth0", "code", "Warn", "systemd"});
     },
     true,
     {status::applicationError, status::invalidArgument, status::openError, status::readError, status::writeError,
      status::chmodError, status::renameError, status::profileNotFound},
     {{host::kCurrent, 0666, {}, {"profile-1\n"}},
      {kOffice + "/endbox.conf"s,
       0644,
       {"activation_code=old\nlog_level=info\nopenhip.log_level=info\n",
        "activation_code=old\nlog_level=warning\nopenhip.log_level=warning\n"},
       {"activation_code=code\nlog_level=warning\nopenhip.log_level=warning\n"}},
      {kOffice + "/hip.conf"s, 0644, {"master_interface=old0\n"}, {"master_interface=eth0\n"}},
      {kOffice + "/mapconfig.static"s, 0640, {"map_uri=https://g:443\n"}, {"map_uri=https://h:443\n"}},
      {kOffice + "/profile_name"s, 0640, {"office\n"}, {"workshop\n"}, Repair::always},
      {kLab + "/profile_name"s, 0640, {}, {"lab\n"}, Repair::always}},
     "",
     times(2, kReadFile) +                                     // read name and marker
         list(6) + times(2, kReadFile) + "close " +            // list the store to check the new name
         times(2, kReadFile) + "openat " +                     // read the marker twice, find no heartbeat
         kOverwriteFile + kEditFile +                          // write the Helmsor address and the levels
         "openat fstat " + times(6, "unlinkat ") + "close " +  // remove the state files
         times(2, kEditFile) +                                 // set the interface and the invitation
         times(2, kReadFile) +                                 // read name and marker
         list(6) + times(2, kReadFile) + "close " +            // check the new name again
         kWriteLongerFile +                                    // write it
         times(3, kReadFile) + "getifaddrs " +                 // read name, marker, interface and interfaces
         "openat fstatat " +                                   // find no device_id
         times(5, kReadFile)},  // read device_ip, device_mask, invitation, Helmsor address and level
};

void expectOldOrNew(const Operation& operation, const Status& status, const Fault& fault) {
  const bool isDone = status.isSuccess() && (operation.reportsEveryFault || !fault);
  for (const ChangedFile& file : operation.files) {
    std::vector<std::string> allowed = file.after;
    if (!isDone) allowed.insert(allowed.end(), file.before.begin(), file.before.end());
    const bool mayBeRepaired = file.repair == Repair::always || (file.repair == Repair::beforeTheChange && !isDone);
    if (mayBeRepaired && hitsReading(fault)) allowed.push_back("profile\n");
    EXPECT_THAT(allowed, Contains(host::readFile(file.path))) << file.path;
    const bool mayBeClosed = hidesAccess(fault) && file.path.find(".conf") != std::string::npos;
    if (isDone && !(mayBeClosed && host::modeOf(file.path) == (file.mode & 0700))) {
      EXPECT_EQ(host::modeOf(file.path), file.mode) << file.path;
    }
  }
}

TEST_F(ProfileFaultsTest, AFaultAnywhereLeavesEveryFileOldOrNewAndSuccessMeansNew) {
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.why);
    const FaultLoop loop{[&] {
      host::reset();
      operation.prepare();
    }};
    forEachFault(loop, operation.run, [&](const Status& status, const Fault& fault) {
      while (::wait(nullptr) > 0) {  // for the children that a failed waitpid has left
      }
      expectOldOrNew(operation, status, fault);
      const std::string calls = host::recordedCalls();
      if (!fault) {
        EXPECT_THAT(status, HasCode(status::success));
        EXPECT_EQ(calls, operation.daemonCalls);
      }
      if (status.isSuccess()) {
        EXPECT_EQ(calls.find("start hip\n") != std::string::npos, operation.daemonCalls[0] != '\0');
      } else {
        EXPECT_THAT(operation.failures, Contains(HasCode(status.code())));
      }
      if (!fault.fromThereOn) {
        EXPECT_EQ(store().find(".temp"), std::string::npos);
      }
    });
    EXPECT_EQ(fault_loop::run(loop, {}, operation.run), wordsOf(operation.calls));
  }
}

TEST_F(ProfileFaultsTest, AFaultDuringADeletionIsReportedAndChangesNoOtherProfile) {
  const FaultLoop loop{[] {
    host::reset();
    makeTwoProfiles();
    host::writeFile(kOffice + "/ca-certs/ca.pem"s, "x");
  }};
  const auto remove = [] { return ProfileChanges::deleteProfile("dir=profile-2"); };
  forEachFault(loop, remove, [](const Status& deleted, const Fault& fault) {
    EXPECT_EQ(host::exists(kOffice), !deleted.isSuccess());
    EXPECT_EQ(host::tree(kLab), "f 0644 hip.conf \"\"\nf 0640 profile_name \"lab\\n\"\n");
    EXPECT_EQ(host::readFile(host::kCurrent), "profile-1\n");
    if (!fault) {
      EXPECT_THAT(deleted, HasCode(status::success));
    }
    if (!deleted.isSuccess()) {
      EXPECT_THAT(deleted, AnyOf(HasCode(status::applicationError), HasCode(status::profileNotFound)));
      EXPECT_EQ(host::readFile(kOffice + "/profile_name"s), "office\n") << "so that it can be deleted by its name";
    }
  });
  EXPECT_EQ(fault_loop::run(loop, {}, remove),
            wordsOf(times(2, kReadFile) + list(6) +                        // read name and marker, list the root
                    "openat flock fstat fstatat " +                        // open and lock the directory
                    "unlinkat openat openat fstat " + listOpened(4) +      // open and list ca-certs
                    "unlinkat close unlinkat close " +                     // remove its file and then itself
                    times(2, "unlinkat openat unlinkat ") +                // find no customer-certs and peer_certs
                    "openat fstat " + listOpened(5) + "unlinkat close " +  // list the directory, remove its file
                    listOpened(4) + "fstatat " +                           // find nothing but the name
                    "renameat2 fstat fstatat " +                           // take the directory out of the store
                    "openat unlinkat unlinkat close close close "));       // remove the name and the directory
}

// The parts of a profile that is created with an interface and an invitation.
const Lines kNewProfile = {
    "d 0755 ca-certs\n",
    "f 0644 ca-certs/ca.pem \"pem\\n\"\n",
    "f 0644 endbox.conf \"activation_code=code\\n\"\n",
    "f 0644 hip.conf \"master_interface=eth0\\n\"\n",
    "f 0640 mapconfig.static \"map_uri=https://h:443\\n\"\n",
    "f 0640 profile_name \"lab\\n\"\n",
};
// What a read fault leaves of its name.
constexpr const char* kRepairedName = "f 0640 profile_name \"profile\\n\"\n";
// A file of the template, before it is edited.
constexpr const char* kTemplateFile = "f 0644 hip.conf \"master_interface=auto\\n\"\n";

// Unfinished files, which an operation removes unless every later call fails.
const Lines kUnfinished = {
    "f 0644 ca-certs/ca.pem \"\"\n",
    "f 0600 endbox.conf.temp \"\"\n",
    "f 0600 endbox.conf.temp \"activation_code=code\\n\"\n",
    "f 0644 endbox.conf.temp \"activation_code=code\\n\"\n",
    "f 0644 hip.conf \"\"\n",
    "f 0600 hip.conf.temp \"\"\n",
    "f 0600 hip.conf.temp \"master_interface=eth0\\n\"\n",
    "f 0644 hip.conf.temp \"master_interface=eth0\\n\"\n",
    "f 0640 mapconfig.static \"\"\n",
    "f 0640 profile_name \"\"\n",
};

// Returns the lines of a new profile, as if no fault had closed the file of the template that is edited.
Lines partsOf(const std::string& dir, const Fault& fault) {
  std::string tree = host::tree(dir);
  const std::size_t closed = tree.find("f 0600 hip.conf \"master_interface=eth0");
  if (closed != std::string::npos && hidesAccess(fault)) tree.replace(closed, 6, "f 0644");
  return linesOf(tree);
}

void expectPartsAlone(const std::string& dir, const Fault& fault) {
  for (const std::string& line : partsOf(dir, fault)) {
    const bool isRepaired = line == kRepairedName && hitsReading(fault);
    // Where every later call fails, an unfinished file cannot be removed.
    const bool mayStay = fault.fromThereOn && kUnfinished.count(line) != 0;
    EXPECT_TRUE(kNewProfile.count(line) != 0 || line == kTemplateFile || isRepaired || mayStay) << dir << ": " << line;
  }
}

// Expects everything that the profile needs. Its certificates may be missing.
void expectUsable(const std::string& dir, const Fault& fault) {
  const Lines made = partsOf(dir, fault);
  for (const std::string& line : kNewProfile) {
    const bool isCertificate = line.find("ca-certs") != std::string::npos;
    const bool isRepaired =
        line.find("profile_name") != std::string::npos && hitsReading(fault) && made.count(kRepairedName) != 0;
    EXPECT_TRUE(made.count(line) != 0 || isCertificate || isRepaired) << line;
  }
}

// Returns the lines of the store without those of newly created directories, and with the name that a fault repaired.
Lines oldPart(const Fault& fault) {
  Lines kept;
  for (const std::string& line : linesOf(store())) {
    if (line.find(" profile-12312") == std::string::npos) kept.insert(line);
  }
  if (hitsReading(fault) && kept.erase("f 0640 profile-1/profile_name \"profile\\n\"\n") != 0) {
    kept.insert("f 0640 profile-1/profile_name \"old\\n\"\n");
  }
  return kept;
}

TEST_F(ProfileFaultsTest, AFaultDuringACreationLeavesTheOldStoreAndOnlyWholeFilesOfTheNewProfile) {
  Lines old;
  const FaultLoop loop{[&] {
    host::reset();
    host::makeProfile("profile-1", "old");
    host::makeActive("profile-1");
    host::writeFile("/etc/zuv/profiles/.factory/hip.conf", "master_interface=auto\n");
    host::writeFile("/etc/zuv/profiles/.factory/ca-certs/ca.pem", "pem\n");
    old = linesOf(store());
  }};
  const auto createLab = [] { return create(wish("lab", "eth0", "code")); };
  forEachFault(loop, createLab, [&](const Status& created, const Fault& fault) {
    EXPECT_EQ(oldPart(fault), old);
    const std::string next = "/etc/zuv/profiles/profile-123124";
    expectPartsAlone(kMade, fault);
    expectPartsAlone(next, fault);
    if (!fault) {
      EXPECT_THAT(created, HasCode(status::success));
      EXPECT_EQ(linesOf(host::tree(kMade)), kNewProfile);
    }
    if (created.isSuccess()) {
      expectUsable(host::exists(next) ? next : kMade, fault);
    } else {
      EXPECT_THAT(kFailuresOfCreate, Contains(HasCode(created.code())));
    }
  });
  EXPECT_EQ(fault_loop::run(loop, {}, createLab),
            wordsOf(kMakeNumbered +                                    // create the directory
                    list(7) + kReadFile + "close " +                   // list the store to choose a name
                    "openat " + list(5) + kCopyFile + "close " +       // open the directory, copy the template
                    kWriteNewFile +                                    // write the name
                    "mkdir chmod " + list(4) + kCopyFile + "close " +  // create ca-certs, copy the certificates
                    kWriteNewFile + kEditFile + kEditMissingFile +     // write address, interface, invitation
                    "fstat fstatat " +                                 // see that the directory is still there
                    times(3, kReadFile) + "getifaddrs " +              // read name, marker and interfaces
                    "openat fstatat " +                                // find no device_id
                    // Read device_ip, device_mask, invitation, Helmsor address and the two levels.
                    times(6, kReadFile) + "close "));
}

TEST_F(ProfileFaultsTest, IfStatFailsNoTemplateFileIsSilentlyLeftOut) {
  const auto prepare = [] {
    host::reset();
    host::writeFile("/etc/zuv/profiles/.factory/hip.conf", "x=1\n");
    host::makeLink("/etc/zuv/profiles/.factory/link", "hip.conf");
  };
  const std::size_t steps = forEachFault(
      FaultLoop{prepare, {"stat"}}, [] { return create(wish("lab", "", "")); },
      [](const Status& created, const Fault& fault) {
        if (!fault) {
          EXPECT_THAT(created, HasCode(status::success));
        }
        if (!created.isSuccess()) return;
        for (const char* file : {"/hip.conf", "/link"}) EXPECT_TRUE(host::exists(std::string(kMade) + file)) << file;
      });
  EXPECT_EQ(steps, 4u);  // list the link, copy the file, resolve the link, copy its target
}

// --- Full disks and limits

TEST_F(ProfileFaultsTest, CreatingAProfileOnAFullDiskDamagesNoExistingFile) {
  std::size_t failures = 0;
  for (std::size_t pages = 8; pages < 24; ++pages) {
    SCOPED_TRACE(pages);
    host::reset();
    const host::SmallDisk disk("/etc/zuv", pages * 4096);
    host::makeDirs(host::kProfiles);
    host::makeProfile("profile-1", "old");
    host::makeActive("profile-1");
    host::writeFile("/etc/zuv/profiles/.factory/hip.conf", std::string(5000, 'x') + "\n");
    host::writeFile("/etc/zuv/profiles/.factory/ca-certs/ca.pem", std::string(100, 'p') + "\n");
    const Lines before = linesOf(store());
    const Status created = create(wish("new", "eth0", "code"));
    if (!created.isSuccess()) {
      ++failures;
      EXPECT_THAT(created,
                  AnyOf(HasCode(status::writeError), HasCode(status::openError), HasCode(status::applicationError)));
    }
    EXPECT_THAT(linesOf(store()), IsSupersetOf(before)) << "an existing file has changed";
    // Each file of the new profile is whole or missing.
    const std::pair<const char*, const char*> files[] = {{"/profile_name", "new\n"},
                                                         {"/mapconfig.static", "map_uri=https://h:443\n"}};
    for (const auto& [file, content] : files) {
      const std::string path = std::string(kMade) + file;
      if (host::exists(path)) {
        EXPECT_EQ(host::readFile(path), content);
      }
    }
  }
  EXPECT_GT(failures, 0u) << "no disk was small enough";
  EXPECT_LT(failures, 16u) << "no disk was large enough";
}

TEST_F(ProfileFaultsTest, ElectingOnAFullDiskStillWritesTheMarkerWhole) {
  const host::SmallDisk disk("/etc/zuv", 7 * 4096);
  host::makeDirs(host::kProfiles);
  host::makeProfile("profile-1", "a");
  host::writeFile(host::kCurrent, "a-profile-that-is-no-longer-there\n", 0666);
  host::fillDisk("/etc/zuv");
  // The new marker fits the page that the old one has.
  EXPECT_THAT(ProfileControl::ensureActiveProfile(), HasCode(status::success));
  EXPECT_EQ(host::readFile(host::kCurrent), "profile-1\n");
}

TEST_F(ProfileFaultsTest, ModifyingAProfileOnAFullDiskChangesNothing) {
  const host::SmallDisk disk("/etc/zuv", 16 * 4096);
  host::makeDirs(host::kProfiles);
  makeTwoProfiles();
  host::writeFile(kOffice + "/hip.conf"s, "master_interface=old0\n");
  host::writeFile(kOffice + "/endbox.conf"s, "activation_code=old\n");
  host::writeFile(kOffice + "/mapconfig.static"s, "map_uri=https://g:443\n", 0640);
  host::fillDisk("/etc/zuv");
  const std::string before = store();
  ProfileChanges::Modification wanted;
  wanted.network = "eth0";
  wanted.invitation = "code";
  EXPECT_THAT(modify("office", wanted), AnyOf(HasCode(status::writeError), HasCode(status::openError)));
  EXPECT_EQ(store(), before);
}

TEST_F(ProfileFaultsTest, CreatingAProfileBeyondTheFileSizeLimitIsAFailedWrite) {
  host::writeFile("/etc/zuv/profiles/.factory/hip.conf", "0123456789\n");
  host::makeProfile("profile-1", "old");
  const Lines before = linesOf(store());
  for (rlim_t bytes = 0; bytes < 25; ++bytes) {
    SCOPED_TRACE(bytes);
    host::remove(kMade);
    const host::FileSizeLimit limit(bytes);
    const Status created = create(wish("new", "", ""));
    EXPECT_THAT(created, HasCode(bytes < 22 ? status::writeError : status::success));  // the longest file has 22 bytes
    EXPECT_THAT(linesOf(store()), IsSupersetOf(before));
  }
}

TEST_F(ProfileFaultsTest, BeyondTheFileSizeLimitMarkerNameAndAddressKeepTheirContent) {
  const struct {
    const char* why;
    rlim_t bytes;
    Status (*run)();
    StatusCode code;
  } cases[] = {
      {"activation beyond the old marker, which does not report it", 10, [] { return activate("longer", "null"); },
       status::childExitedNonzero},
      {"renaming beyond the old name", 4, [] { return rename("lab", "a longer name"); }, status::writeError},
      // Some bytes of the new text are written, and the old ones are put back.
      {"activation, halfway", 9, [] { return activate("office", "null"); }, status::childExitedNonzero},
      {"renaming, halfway", 2, [] { return rename("office", "lab-2"); }, status::writeError},
      {"a new address, halfway", 12,
       [] {
         return modify("office", {{}, true, "h", 7, {}, {}, {}, "null"});
       },
       status::writeError},
  };
  makeTwoProfiles();
  host::makeProfile("profile-with-a-longer-name", "longer");
  host::writeFile(kOffice + "/mapconfig.static"s, "map_uri=https://g:443\n", 0640);
  const std::string before = store();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const host::FileSizeLimit limit(c.bytes);
    EXPECT_THAT(c.run(), HasCode(c.code));
    EXPECT_EQ(store(), before);
  }
}

}  // namespace
