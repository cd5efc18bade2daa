// Each file that the program reads or writes is replaced by a FIFO, a socket, a folder, a device or a link to a device.
// The program never blocks, and treats each of them as a file that cannot be opened. It replaces a name file that is
// none.
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <filesystem>

#include "log/front/BasicLog.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using Words = std::vector<std::string>;

enum Kind { fifo, socket, folder, device, linkToDevice, kindCount };
constexpr const char* kKindNames[] = {"FIFO", "socket", "folder", "device", "link to a device"};

// Reading /dev/zero would never end.
void put(Kind kind, const std::string& path) {
  host::makeDirs(std::filesystem::path(path).parent_path());
  host::remove(path);
  switch (kind) {
    case fifo:
      return host::makeFifo(path, 0666);
    case socket:
      return host::makeSocket(path);
    case folder:
      return host::makeDirs(path);
    case linkToDevice:
      return host::makeLink(path, "/dev/zero");
    default:
      ASSERT_EQ(::mknod(path.c_str(), S_IFCHR | 0666, makedev(1, 5)), 0);
  }
}

constexpr const char* kNotRunning = "running: false\nhelmsor: false\ntunnel: false\n";
constexpr const char* kNotOpened = "status_text: stdlib error: file open\nstatus_code: 0x14000005\n";
constexpr const char* kApplicationError = "status_text: application error\nstatus_code: 0x12000001\n";
constexpr const char* kNotFound = "status_text: profile not found\nstatus_code: 0x12001001\n";
constexpr const char* kToolFailed = "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n";
constexpr const char* kBareDetails =
    "profile_dir=profile-1\nprofile_name=lab\nnetwork=\ndeviceID=\noverlay_device_ip=\noverlay_mask=\nlog_level=\n";
constexpr const char* kUnnamed =
    "profile_dir=profile-1\nprofile_name=profile\nnetwork=\ndeviceID=\noverlay_device_ip=\noverlay_mask=\nlog_level="
    "\n";
constexpr const char* kWithNetwork =
    "profile_dir=profile-1\nprofile_name=lab\nnetwork=eth0\ndeviceID=\noverlay_device_ip=\noverlay_mask=\nlog_level=\n";

struct Row {
  const char* path;
  Words words;
  const char* out;
  const char* outOfFolder = nullptr;  // if a folder gives another output
};

const Row kRows[] = {
    {"/etc/zuv/profiles",
     {"list", "profiles"},
     kApplicationError,
     "profile-123123\t'profile'\ncurrent_name: profile\n"},
    {"/etc/zuv/profiles/.current", {"service", "status"}, kNotRunning},
    {"/etc/zuv/profiles/.current", {"list", "profiles"}, "profile-1\t'lab'\ncurrent_name: \n"},
    {"/etc/zuv/profiles/.current", {"profile", "activate", "lab", "sys=null"}, kToolFailed},
    {"/etc/zuv/profiles/.factory",
     {"profile", "create", "x", "helmsor=h", "--quiet"},
     "status_code: 0x14000002\n",
     "profile_name: x\n"},
    {"/etc/zuv/profiles/.factory/extra", {"profile", "create", "x", "helmsor=h", "--quiet"}, "profile_name: x\n"},
    {"/etc/zuv/profiles/.factory/firmware_revision", {"list", "versions"}, "hipapp_version: \nravctl_version: 2.2\n"},
    {"/etc/zuv/profiles/profile-1", {"profile", "details", "dir=profile-1"}, kNotFound, kUnnamed},
    // A new name file takes the place of anything but a folder.
    {"/etc/zuv/profiles/profile-1/profile_name", {"profile", "details", "dir=profile-1"}, kUnnamed, kNotFound},
    {"/etc/zuv/profiles/profile-1/profile_name",
     {"list", "profiles"},
     "profile-1\t'profile'\ncurrent_name: profile\n",
     kApplicationError},
    {"/etc/zuv/profiles/profile-1/profile_name", {"list", "log", "lab"}, kNotFound, kApplicationError},
    {"/etc/zuv/profiles/profile-1/hip.conf", {"profile", "details", "lab"}, kBareDetails},
    {"/etc/zuv/profiles/profile-1/hip.conf", {"profile", "modify", "lab", "network=eth0"}, kNotOpened},
    {"/etc/zuv/profiles/profile-1/endbox.conf", {"profile", "details", "lab"}, kBareDetails},
    {"/etc/zuv/profiles/profile-1/endbox.conf", {"profile", "modify", "lab", "invitation=x"}, kNotOpened},
    {"/etc/zuv/profiles/profile-1/endbox.conf", {"profile", "modify", "lab", "log_level=debug"}, kNotOpened},
    {"/etc/zuv/profiles/profile-1/mapconfig.static", {"profile", "details", "lab"}, kBareDetails},
    {"/etc/zuv/profiles/profile-1/mapconfig.static", {"profile", "modify", "lab", "helmsor=h:1"}, kApplicationError},
    {"/etc/zuv/profiles/profile-1/device_id", {"profile", "details", "lab"}, kBareDetails},
    {"/etc/zuv/profiles/profile-1/hipvars.txt", {"service", "status"}, kNotRunning},
    {"/etc/zuv/profiles/profile-1/hipvars.txt", {"support", "reset", "lab"}, "support reset: lab\n"},
    {"/etc/zuv/profiles/profile-1/peers", {"support", "reset", "lab"}, "support reset: lab\n"},
    {"/etc/zuv/profiles/profile-1/hip.log", {"list", "log", "lab"}, kNotOpened},
    // The editor removes whatever has the name of its temporary file, except a folder.
    {"/etc/zuv/profiles/profile-1/hip.conf.temp",
     {"profile", "modify", "lab", "network=eth0"},
     kWithNetwork,
     kNotOpened},
    // An edit continues if it cannot take the lock.
    {"/tmp/lock", {"profile", "modify", "lab", "network=eth0"}, kWithNetwork},
    {"/tmp/lock/hip.conf.lock", {"profile", "modify", "lab", "network=eth0"}, kWithNetwork},
    {"/etc/init.d/hip", {"service", "start"}, kToolFailed},
    {"/usr/bin/systemctl", {"service", "start", "sys=systemd"}, kToolFailed},
    {"/usr/sbin/initctl", {"service", "stop", "sys=upstart"}, kToolFailed},
};

using HostilePlacesTest = HostTest;

TEST_F(HostilePlacesTest, ACommandNeverBlocksOnAFileOfTheWrongKindAndTreatsItAsOneThatCannotBeOpened) {
  for (const Row& row : kRows) {
    for (int kind = 0; kind < kindCount; ++kind) {
      if (kind == device && !hasOtherUsers()) continue;  // only the machine's root user can create a device
      SCOPED_TRACE(std::string(kKindNames[kind]) + " for " + row.path + ": " + testing::PrintToString(row.words));
      host::reset();
      host::makeProfile("profile-1", "lab");
      host::makeActive("profile-1");
      put(static_cast<Kind>(kind), row.path);
      Start start;
      start.seconds = 60;
      const Outcome outcome = runRavctl(row.words, start);
      EXPECT_EQ(outcome.out, kind == folder && row.outOfFolder != nullptr ? row.outOfFolder : row.out);
      EXPECT_EQ(outcome.err, "");
      EXPECT_EQ(outcome.exitStatus, 0);
    }
  }
}

// The host runs no log daemon, so it has no /dev/log.
TEST(SystemLog, LinesAreLostWithoutAnErrorIfThereIsNoDevLog) {
  ASSERT_FALSE(host::exists("/dev/log"));
  const std::vector<std::string> before = openDescriptors();
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  for (int i = 0; i < 3; ++i) {
    BasicLog::SyslogConnection connection("ravctl");
    connection.send(BasicLog::Level::fatal, "lost");
    connection.send(BasicLog::Level::trace, "lost too");
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
