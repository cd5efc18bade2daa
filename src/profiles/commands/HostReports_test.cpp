// Tests of the reports on the host's interfaces, with real devices in a network namespace of their own, and on
// versions.
#include "profiles/commands/HostReports.h"

#include <sched.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <functional>

#include "command/framework/Authorization.h"
#include "log/front/BasicLog.h"
#include "profiles/store/ConfigControl.h"
#include "profiles/store/ProfileControl.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"
#include "testing/run/LogLines.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Names = std::vector<std::string>;

constexpr const char* kTool = "/usr/sbin/ip";

class InterfacesTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    if (!host::exists(kTool)) GTEST_SKIP() << "needs " << kTool;
    ASSERT_EQ(::unshare(CLONE_NEWNET), 0);
  }

  // Runs one command of the tool.
  static void ip(const std::string& words) {
    const Outcome outcome = runProgram({"/bin/sh", "-c", std::string(kTool) + " " + words});
    ASSERT_EQ(outcome.exitStatus, 0) << words << ": " << outcome.err;
  }

  static void makeTunDevice() {
    host::makeDirs("/dev/net");
    host::remove("/dev/net/tun");
    ASSERT_EQ(::mknod("/dev/net/tun", S_IFCHR | 0666, makedev(10, 200)), 0);
  }

  static void makeBridge() {
    ip("link add eth0 type bridge");
    ip("addr add 10.0.0.1/24 dev eth0");
  }

  static Names networks() {
    Names list = {"left over"};
    EXPECT_TRUE(ConfigControl::read_networks(list));
    return list;
  }

  static Names run(Hipcmd_GetInterfaces& command, StatusCode expected) {
    command.run();
    EXPECT_THAT(command.status().status(), HasCode(expected));
    Names lines;
    renderOutput(command, lines);
    return lines;
  }
};

TEST_F(InterfacesTest, AnInterfaceIsListedOnceForEachIPv4Address) {
  const std::string bridge = "link add eth0 type bridge";
  const std::string veth = "link add eth0 type veth peer name eth1";
  const struct {
    const char* why;
    Names commands;
    Names listed;
  } cases[] = {
      {"a loopback interface that is down is left out", {}, {}},
      {"a loopback interface that is up is left out", {"link set lo up"}, {}},
      {"a loopback interface with an address is left out", {"link set lo up", "addr add 10.0.0.9/24 dev lo"}, {}},
      {"an interface without an address is left out", {bridge, "link set eth0 up"}, {}},
      {"two addresses",
       {veth, "addr add 10.0.0.1/24 dev eth0", "addr add 10.0.0.2/24 dev eth0", "link set eth0 up"},
       {"eth0", "eth0"}},
      {"the order is that of the system, not of the names",
       {"link add zeta type bridge", "link add alpha type bridge", "addr add 10.0.1.1/24 dev alpha",
        "addr add 10.0.2.1/24 dev zeta"},
       {"zeta", "alpha"}},
      {"an interface that is down is listed",
       {bridge, "addr add 10.0.0.1/24 dev eth0", "link set eth0 down"},
       {"eth0"}},
      {"an IPv6 address does not count", {bridge, "-6 addr add fd00::1/64 dev eth0", "link set eth0 up"}, {}},
      {"an IPv6 address hides no other",
       {bridge, "-6 addr add fd00::1/64 dev eth0", "addr add 10.0.0.1/24 dev eth0"},
       {"eth0"}},
      {"an excluded address hides no other",
       {bridge, "addr add 10.1.254.169/24 dev eth0", "addr add 10.2.0.1/24 dev eth0"},
       {"eth0"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    ASSERT_EQ(::unshare(CLONE_NEWNET), 0);
    for (const std::string& command : c.commands) ip(command);
    EXPECT_EQ(networks(), c.listed);
  }
}

TEST_F(InterfacesTest, InterfacesWhoseNamesBeginWithTapAreLeftOut) {
  for (const std::string name : {"tap", "tap0", "tapX", "taper", "ta", "Tap0", "xtap0"}) {
    ip("link add " + name + " type bridge");
    ip("addr add 10.0.0.1/24 dev " + name);
  }
  EXPECT_THAT(networks(), ElementsAre("ta", "Tap0", "xtap0"));
}

TEST_F(InterfacesTest, ATapDeviceIsLeftOutOnlyIfItsNameBeginsWithTap) {
  SKIP_WITHOUT_OTHER_USERS();  // without them no devices can be created either
  makeTunDevice();
  ip("tuntap add dev tap0 mode tap");
  ip("addr add 10.0.0.1/24 dev tap0");
  ip("tuntap add dev overlay0 mode tap");
  ip("addr add 10.0.0.2/24 dev overlay0");
  EXPECT_THAT(networks(), ElementsAre("overlay0"));
}

// The system lists such a device without any address, not even a hardware address.
TEST_F(InterfacesTest, ATunDeviceIsListedOnlyIfItHasAnAddress) {
  SKIP_WITHOUT_OTHER_USERS();  // without them no devices can be created either
  makeTunDevice();
  ip("tuntap add dev overlay0 mode tun");
  EXPECT_THAT(networks(), IsEmpty());
  ip("addr add 10.0.0.1/24 dev overlay0");
  EXPECT_THAT(networks(), ElementsAre("overlay0"));
}

TEST_F(InterfacesTest, OnlyAddressesThatEndIn254And169AreLeftOut) {
  const struct {
    const char* address;
    bool listed;
  } cases[] = {{"10.1.254.169", false},   {"192.168.254.169", false}, {"169.254.254.169", false},
               {"10.254.254.169", false}, {"169.254.10.20", true},    {"169.254.169.254", true},
               {"254.169.1.1", true},     {"10.1.169.254", true},     {"10.1.254.168", true},
               {"10.1.253.169", true},    {"10.254.169.1", true}};
  ip("link add eth0 type bridge");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.address);
    ip(std::string("addr add ") + c.address + "/32 dev eth0");
    EXPECT_EQ(networks(), c.listed ? Names{"eth0"} : Names{});
    ip("addr flush dev eth0");
  }
}

TEST_F(InterfacesTest, AFailedEnumerationIsLoggedAndGivesAnEmptyList) {
  const struct {
    const char* why;
    int error;
    const char* record;
  } cases[] = {
      {"an error", ENOMEM, "[ERROR] ravctl ConfigControl.cpp read_networks could not getifaddrs: status=-1"},
      {"success without entries", 0, "[ERROR] ravctl ConfigControl.cpp read_networks could not getifaddrs: status=0"},
  };
  makeBridge();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const LoggedLines log;
    const ArmedFaults armed({1, false, c.error, {"getifaddrs"}});
    Names list = {"left over"};
    EXPECT_FALSE(ConfigControl::read_networks(list));
    EXPECT_THAT(list, IsEmpty());
    EXPECT_THAT(log.lines, ElementsAre(c.record));
  }
}

TEST_F(InterfacesTest, NoErrorIsLoggedIfTheThresholdIsFatal) {
  host::makeProfile("profile-1", "lab");
  BasicLog::Logger& logger = BasicLog::getLogger(BasicLog::ravctlLogger);
  const BasicLog::Level before = logger.threshold();
  logger.setThreshold(BasicLog::Level::fatal);
  const LoggedLines log;
  {
    const ArmedFaults armed({1, false, ENOMEM, {"getifaddrs"}});
    Names list;
    EXPECT_FALSE(ConfigControl::read_networks(list));
  }
  {
    const ArmedFaults armed({1, false, ENOMEM, {"getifaddrs"}});
    ProfileDetails details;
    EXPECT_THAT(ProfileControl::cmdGetProfileDetails("lab", details), HasCode(status::success));
  }
  logger.setThreshold(before);
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(InterfacesTest, DetailsContainTheInterfaces) {
  makeBridge();
  host::makeProfile("profile-1", "lab");
  ProfileDetails details;
  EXPECT_THAT(ProfileControl::cmdGetProfileDetails("lab", details), HasCode(status::success));
  EXPECT_THAT(details.networks, ElementsAre("eth0"));
}

TEST_F(InterfacesTest, IfInterfacesCannotBeListedDetailsLogItAndSucceed) {
  host::makeProfile("profile-1", "lab");
  host::writeFile("/etc/zuv/profiles/profile-1/device_id", "id\n");
  const LoggedLines log;
  const ArmedFaults armed({1, false, ENOMEM, {"getifaddrs"}});
  ProfileDetails details;
  details.networks = {"left over"};
  EXPECT_THAT(ProfileControl::cmdGetProfileDetails("lab", details), HasCode(status::success));
  EXPECT_THAT(details.networks, IsEmpty());
  EXPECT_EQ(details.deviceId, "id");
  EXPECT_THAT(log.lines,
              ElementsAre("[ERROR] ravctl ConfigControl.cpp read_networks could not getifaddrs: status=-1",
                          "[ERROR] ravctl ProfileControl.cpp cmdGetProfileDetails could not execute read_networks"));
}

TEST_F(InterfacesTest, TheCommandPrintsOnlyTheNamesAndNeedsNoAuthorization) {
  setAuthorizationMode(authorizationNever);
  Hipcmd_GetInterfaces command;
  EXPECT_THAT(run(command, status::success), IsEmpty());
  makeBridge();
  EXPECT_THAT(run(command, status::success), ElementsAre("eth0"));
}

TEST_F(InterfacesTest, TheCommandPrintsAnInterfaceOnceForEachAddress) {
  ip("link add eth0 type veth peer name tap0");
  ip("addr add 10.0.0.1/24 dev eth0");
  ip("addr add 10.0.0.2/24 dev eth0");
  ip("addr add 10.1.254.169/24 dev eth0");
  ip("addr add 10.0.1.1/24 dev tap0");
  ip("link add down0 type bridge");
  ip("addr add 169.254.10.20/16 dev down0");
  Hipcmd_GetInterfaces command;
  command.mode().verbose = true;
  EXPECT_THAT(run(command, status::success), ElementsAre("method: list interfaces", "status_text: success",
                                                         "status_code: 0x00000001", "eth0", "eth0", "down0"));
}

TEST_F(InterfacesTest, TheCommandReportsAFailedEnumeration) {
  const ArmedFaults armed({1, false, ENOMEM, {"getifaddrs"}});
  Hipcmd_GetInterfaces command;
  EXPECT_THAT(run(command, status::getifaddrsError),
              ElementsAre("status_text: stdlib error: getifaddrs", "status_code: 0x14000009"));
}

// --- Versions

class VersionsTest : public HostTest {
 protected:
  static Names report() {
    Hipcmd_GetVersions command;
    command.run();
    EXPECT_THAT(command.status().status(), HasCode(status::success));
    Names lines;
    renderOutput(command, lines);
    return lines;
  }
};

constexpr const char* kRevision = "/etc/zuv/profiles/.factory/firmware_revision";

TEST_F(VersionsTest, TheApplicationsVersionIsTheFirstLineOfItsRevisionAndNeedsNoAuthorization) {
  const struct {
    const char* why;
    std::function<void()> prepare;
    const char* line;
  } cases[] = {
      {"a line that is not blank", [] { host::writeFile(kRevision, "\n4.1.7   \nmore\n"); }, "hipapp_version: 4.1.7"},
      {"no file", [] {}, "hipapp_version: "},
      {"blank lines only", [] { host::writeFile(kRevision, "\n \n"); }, "hipapp_version: "},
      {"a FIFO does not block", [] { host::makeFifo(kRevision); }, "hipapp_version: "},
      {"a directory", [] { host::makeDirs(kRevision); }, "hipapp_version: "},
      {"an unreadable file gives our own version", [] { host::writeFile(kRevision, "4.1.7\n", 0); },
       "hipapp_version: 2.2"},
  };
  setAuthorizationMode(authorizationNever);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    c.prepare();
    const host::BoundByModes bound;
    EXPECT_THAT(report(), ElementsAre(c.line, "ravctl_version: 2.2"));
  }
}

TEST_F(VersionsTest, IfReadingTheRevisionFailsTheProgramsVersionIsReportedInItsPlace) {
  host::writeFile(kRevision, "4.1.7\n");
  const ArmedFaults armed({1, true, EIO, {"read"}});
  EXPECT_THAT(report(), ElementsAre("hipapp_version: 2.2", "ravctl_version: 2.2"));
}

}  // namespace
