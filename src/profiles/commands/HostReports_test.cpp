// Tests of the reports on the host's interfaces, with real devices in a network namespace of their own, and on
// versions.
#include "profiles/commands/HostReports.h"

#include <sched.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

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

// Records each log entry as a line "[LEVEL] logger file function text: parameters".
class RecordingProcessor : public BasicLog::LogMessageProcessor {
 public:
  explicit RecordingProcessor(Names& records) : records_(records) {}
  void process(std::unique_ptr<const BasicLog::LogMessage>& message) override { records_.push_back(lineOf(*message)); }

 private:
  Names& records_;
};

class LogRecords {
 public:
  LogRecords() { BasicLog::setSyncProcessor(new RecordingProcessor(records)); }
  ~LogRecords() { BasicLog::setSyncProcessor(nullptr); }
  LogRecords(const LogRecords&) = delete;
  LogRecords& operator=(const LogRecords&) = delete;

  Names records;
};

class InterfacesTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    if (!host::exists(kTool)) GTEST_SKIP() << "needs " << kTool;
    ASSERT_EQ(::unshare(CLONE_NEWNET), 0);
  }

  // Runs one command of the tool; its words are separated by blanks.
  static void ip(const std::string& words) {
    Names all = {kTool};
    for (std::size_t at = 0; at < words.size();) {
      const std::size_t end = std::min(words.find(' ', at), words.size());
      all.push_back(words.substr(at, end - at));
      at = end + 1;
    }
    const Outcome outcome = runProgram(all);
    ASSERT_EQ(outcome.exitStatus, 0) << words << ": " << outcome.err;
  }

  static void makeTunDevice() {
    host::makeDirs("/dev/net");
    host::remove("/dev/net/tun");
    ASSERT_EQ(::mknod("/dev/net/tun", S_IFCHR | 0666, makedev(10, 200)), 0);
  }

  static Names networks() {
    Names list = {"left over"};
    EXPECT_TRUE(ConfigControl::read_networks(list));
    return list;
  }
};

TEST_F(InterfacesTest, TheLoopbackInterfaceIsNotListed) {
  EXPECT_THAT(networks(), IsEmpty());
  ip("link set lo up");
  EXPECT_THAT(networks(), IsEmpty());
  ip("addr add 10.0.0.9/24 dev lo");
  EXPECT_THAT(networks(), IsEmpty());
}

TEST_F(InterfacesTest, AnInterfaceWithoutAnAddressIsNotListed) {
  ip("link add eth0 type bridge");
  ip("link set eth0 up");
  EXPECT_THAT(networks(), IsEmpty());
}

TEST_F(InterfacesTest, AnInterfaceIsListedOnceForEachAddress) {
  ip("link add eth0 type veth peer name eth1");
  ip("addr add 10.0.0.1/24 dev eth0");
  ip("addr add 10.0.0.2/24 dev eth0");
  ip("link set eth0 up");
  EXPECT_THAT(networks(), ElementsAre("eth0", "eth0"));
}

TEST_F(InterfacesTest, InterfacesAreListedInTheOrderOfTheSystemNotOfTheirNames) {
  ip("link add zeta type bridge");
  ip("link add alpha type bridge");
  ip("addr add 10.0.1.1/24 dev alpha");
  ip("addr add 10.0.2.1/24 dev zeta");
  EXPECT_THAT(networks(), ElementsAre("zeta", "alpha"));
}

TEST_F(InterfacesTest, AnInterfaceThatIsDownIsListed) {
  ip("link add eth0 type bridge");
  ip("addr add 10.0.0.1/24 dev eth0");
  ip("link set eth0 down");
  EXPECT_THAT(networks(), ElementsAre("eth0"));
}

TEST_F(InterfacesTest, AnIPv6AddressDoesNotCount) {
  ip("link add eth0 type bridge");
  ip("-6 addr add fd00::1/64 dev eth0");
  ip("link set eth0 up");
  EXPECT_THAT(networks(), IsEmpty());
  ip("addr add 10.0.0.1/24 dev eth0");
  EXPECT_THAT(networks(), ElementsAre("eth0"));
}

TEST_F(InterfacesTest, InterfacesWhoseNamesBeginWithTapAreLeftOut) {
  for (const char* name : {"tap", "tap0", "tapX", "taper"}) {
    ip(std::string("link add ") + name + " type bridge");
    ip(std::string("addr add 10.0.0.1/24 dev ") + name);
  }
  for (const char* name : {"ta", "Tap0", "xtap0"}) {
    ip(std::string("link add ") + name + " type bridge");
    ip(std::string("addr add 10.0.0.1/24 dev ") + name);
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

TEST_F(InterfacesTest, AnExcludedAddressDoesNotHideAnotherOfTheSameInterface) {
  ip("link add eth0 type bridge");
  ip("addr add 10.1.254.169/24 dev eth0");
  ip("addr add 10.2.0.1/24 dev eth0");
  EXPECT_THAT(networks(), ElementsAre("eth0"));
}

TEST_F(InterfacesTest, AFailedEnumerationIsLoggedAndGivesAnEmptyList) {
  ip("link add eth0 type bridge");
  ip("addr add 10.0.0.1/24 dev eth0");
  const LogRecords log;
  const ArmedFaults armed({1, false, ENOMEM, {"getifaddrs"}});
  Names list = {"left over"};
  EXPECT_FALSE(ConfigControl::read_networks(list));
  EXPECT_THAT(list, IsEmpty());
  EXPECT_THAT(log.records,
              ElementsAre("[ERROR] ravctl ConfigControl.cpp read_networks could not getifaddrs: status=-1"));
}

TEST_F(InterfacesTest, AnEnumerationWithoutEntriesIsAFailure) {
  const LogRecords log;
  const ArmedFaults armed({1, false, 0, {"getifaddrs"}});
  Names list = {"left over"};
  EXPECT_FALSE(ConfigControl::read_networks(list));
  EXPECT_THAT(list, IsEmpty());
  EXPECT_THAT(log.records,
              ElementsAre("[ERROR] ravctl ConfigControl.cpp read_networks could not getifaddrs: status=0"));
}

TEST_F(InterfacesTest, NothingIsLoggedBelowTheThreshold) {
  BasicLog::Logger& logger = BasicLog::getLogger(BasicLog::ravctlLogger);
  const BasicLog::Level before = logger.threshold();
  logger.setThreshold(BasicLog::Level::fatal);
  {
    const LogRecords log;
    const ArmedFaults armed({1, false, ENOMEM, {"getifaddrs"}});
    Names list;
    EXPECT_FALSE(ConfigControl::read_networks(list));
    EXPECT_THAT(log.records, IsEmpty());
  }
  host::makeProfile("profile-1", "lab");
  {
    const LogRecords log;
    const ArmedFaults armed({1, false, ENOMEM, {"getifaddrs"}});
    ProfileDetails details;
    EXPECT_THAT(ProfileControl::cmdGetProfileDetails("lab", details), HasCode(status::success));
    EXPECT_THAT(log.records, IsEmpty());
  }
  logger.setThreshold(before);
}

TEST_F(InterfacesTest, DetailsContainTheInterfaces) {
  ip("link add eth0 type bridge");
  ip("addr add 10.0.0.1/24 dev eth0");
  host::makeProfile("profile-1", "lab");
  ProfileDetails details;
  EXPECT_THAT(ProfileControl::cmdGetProfileDetails("lab", details), HasCode(status::success));
  EXPECT_THAT(details.networks, ElementsAre("eth0"));
}

TEST_F(InterfacesTest, IfInterfacesCannotBeListedDetailsLogItAndSucceed) {
  host::makeProfile("profile-1", "lab");
  host::writeFile("/etc/zuv/profiles/profile-1/device_id", "id\n");
  const LogRecords log;
  const ArmedFaults armed({1, false, ENOMEM, {"getifaddrs"}});
  ProfileDetails details;
  details.networks = {"left over"};
  EXPECT_THAT(ProfileControl::cmdGetProfileDetails("lab", details), HasCode(status::success));
  EXPECT_THAT(details.networks, IsEmpty());
  EXPECT_EQ(details.deviceId, "id");
  EXPECT_THAT(log.records,
              ElementsAre("[ERROR] ravctl ConfigControl.cpp read_networks could not getifaddrs: status=-1",
                          "[ERROR] ravctl ProfileControl.cpp cmdGetProfileDetails could not execute read_networks"));
}

TEST_F(InterfacesTest, TheCommandPrintsOnlyTheNames) {
  ip("link add eth0 type bridge");
  ip("addr add 10.0.0.1/24 dev eth0");
  Hipcmd_GetInterfaces command;
  command.run();
  Names lines;
  renderOutput(command, lines);
  EXPECT_THAT(command.status().status(), HasCode(status::success));
  EXPECT_THAT(lines, ElementsAre("eth0"));
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
  command.run();
  Names lines;
  renderOutput(command, lines);
  EXPECT_THAT(lines, ElementsAre("method: list interfaces", "status_text: success", "status_code: 0x00000001", "eth0",
                                 "eth0", "down0"));
}

TEST_F(InterfacesTest, TheCommandPrintsNothingIfThereAreNoInterfaces) {
  Hipcmd_GetInterfaces command;
  command.run();
  Names lines;
  renderOutput(command, lines);
  EXPECT_THAT(command.status().status(), HasCode(status::success));
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(InterfacesTest, TheCommandReportsAFailedEnumeration) {
  const ArmedFaults armed({1, false, ENOMEM, {"getifaddrs"}});
  Hipcmd_GetInterfaces command;
  command.run();
  Names lines;
  renderOutput(command, lines);
  EXPECT_THAT(command.status().status(), HasCode(status::getifaddrsError));
  EXPECT_THAT(lines, ElementsAre("status_text: stdlib error: getifaddrs", "status_code: 0x14000009"));
}

TEST_F(InterfacesTest, TheCommandNeedsNoAuthorization) {
  setAuthorizationMode(authorizationNever);
  Hipcmd_GetInterfaces command;
  command.run();
  EXPECT_THAT(command.status().status(), HasCode(status::success));
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

TEST_F(VersionsTest, TheFirstLineThatIsNotBlankIsTheVersionOfTheApplication) {
  host::writeFile(kRevision, "\n4.1.7   \nmore\n");
  EXPECT_THAT(report(), ElementsAre("hipapp_version: 4.1.7", "ravctl_version: 2.2"));
}

TEST_F(VersionsTest, AMissingOrBlankRevisionFileGivesAnEmptyText) {
  EXPECT_THAT(report(), ElementsAre("hipapp_version: ", "ravctl_version: 2.2"));
  host::writeFile(kRevision, "\n \n");
  EXPECT_THAT(report(), ElementsAre("hipapp_version: ", "ravctl_version: 2.2"));
}

TEST_F(VersionsTest, ARevisionThatIsNotARegularFileGivesAnEmptyTextWithoutBlocking) {
  host::makeFifo(kRevision);
  EXPECT_THAT(report(), ElementsAre("hipapp_version: ", "ravctl_version: 2.2"));
  host::remove(kRevision);
  host::makeDirs(kRevision);
  EXPECT_THAT(report(), ElementsAre("hipapp_version: ", "ravctl_version: 2.2"));
}

TEST_F(VersionsTest, IfTheRevisionCannotBeOpenedOurOwnVersionIsReported) {
  host::writeFile(kRevision, "4.1.7\n", 0);
  const host::BoundByModes bound;
  EXPECT_THAT(report(), ElementsAre("hipapp_version: 2.2", "ravctl_version: 2.2"));
}

TEST_F(VersionsTest, IfTheRevisionCannotBeReadOurOwnVersionIsReported) {
  host::writeFile(kRevision, "4.1.7\n");
  const ArmedFaults armed({1, true, EIO, {"read"}});
  EXPECT_THAT(report(), ElementsAre("hipapp_version: 2.2", "ravctl_version: 2.2"));
}

TEST_F(VersionsTest, NoAuthorizationIsNeeded) {
  host::writeFile(kRevision, "4.1.7\n");
  setAuthorizationMode(authorizationNever);
  EXPECT_THAT(report(), ElementsAre("hipapp_version: 4.1.7", "ravctl_version: 2.2"));
}

}  // namespace
