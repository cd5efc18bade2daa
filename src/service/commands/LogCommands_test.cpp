#include "service/commands/LogCommands.h"

#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using Words = std::vector<std::string>;

constexpr const char* kLab = "/etc/zuv/profiles/profile-123123";

// One active profile "lab" and another one, "home".
class LogCommandsTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    host::makeProfile("profile-123123", "lab");
    host::makeProfile("profile-123124", "home");
    host::makeActive("profile-123123");
  }
};

// Returns what the program prints for `list log` with these words.
std::string listLog(const Words& words) {
  Words all = {"list", "log"};
  all.insert(all.end(), words.begin(), words.end());
  const Outcome outcome = runRavctl(all);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exitStatus, 0);
  return outcome.out;
}

void writeLog(const std::string& text) { host::writeFile(std::string(kLab) + "/hip.log", text); }

std::string numbered(int first, int last) {
  std::string text;
  for (int n = first; n <= last; ++n) text += "line " + std::to_string(n) + "\n";
  return text;
}

// --- list log

TEST_F(LogCommandsTest, ShowsTheLogOfTheSelectedProfile) {
  writeLog("of lab\n");
  host::writeFile("/etc/zuv/profiles/profile-123124/hip.log", "of home\n");
  host::writeFile("/etc/zuv/profiles/.factory/hip.log", "of the template\n");
  EXPECT_EQ(listLog({""}), "of lab\nprofile_name: lab\n");
  EXPECT_EQ(listLog({"home"}), "of home\nprofile_name: home\n");
  EXPECT_EQ(listLog({"nobody", "profile=home"}), "of home\nprofile_name: home\n");
  EXPECT_EQ(listLog({"dir=profile-123124"}), "of home\nprofile_name: home\n");
  EXPECT_EQ(listLog({".current"}), "of lab\nprofile_name: lab\n");
  EXPECT_EQ(listLog({"--active"}), "of lab\nprofile_name: lab\n");
  EXPECT_EQ(listLog({".factory"}), "of the template\nprofile_name: .factory\n");
  EXPECT_EQ(listLog({"nobody"}), "status_text: profile not found\nstatus_code: 0x12001001\n");
  EXPECT_EQ(listLog({"dir=profile-9"}), "status_text: profile not found\nstatus_code: 0x12001001\n");
  EXPECT_EQ(listLog({"dir="}), "status_text: invalid argument\nstatus_code: 0x10000003\n");
  EXPECT_EQ(listLog({"dir=../profiles/profile-123124"}), "status_text: profile not found\nstatus_code: 0x12001001\n");
}

TEST_F(LogCommandsTest, ShowsMaxLinesLinesAndFiftyByDefault) {
  writeLog(numbered(1, 60));
  EXPECT_EQ(listLog({""}), numbered(11, 60) + "profile_name: lab\n");
  EXPECT_EQ(listLog({"lab", "max_lines=3"}), numbered(58, 60) + "profile_name: lab\n");
  EXPECT_EQ(listLog({"lab", "max_lines=200000"}), numbered(1, 60) + "profile_name: lab\n");
  EXPECT_EQ(listLog({"lab", "max_lines=-5"}), numbered(11, 60) + "profile_name: lab\n");
  EXPECT_EQ(listLog({"lab", "max_lines=0"}), "profile_name: lab\n");
}

TEST_F(LogCommandsTest, TheLevelIsAThresholdAndAnInvalidLevelMeansInfo) {
  const std::string high = "[WARNING] w\n[ERROR] e\n[FATAL] f\n", name = "profile_name: lab\n";
  const std::string middle = "[INFO] i\nplain\n[notes] on it\n[NOTICE] n\n", info = middle + high + name;
  writeLog("[TRACE] t\n[DEBUG] d\n" + middle + high);
  EXPECT_EQ(listLog({"lab", "log_level="}), info);
  EXPECT_EQ(listLog({"lab", "log_level=trace"}), "[TRACE] t\n[DEBUG] d\n" + info);
  EXPECT_EQ(listLog({"lab", "log_level=DEBUG"}), "[DEBUG] d\n" + info);
  EXPECT_EQ(listLog({"lab", "log_level=notice"}), "[NOTICE] n\n" + high + name);
  EXPECT_EQ(listLog({"lab", "log_level=Warn"}), high + name);
  EXPECT_EQ(listLog({"lab", "log_level=w~"}), high + name);
  EXPECT_EQ(listLog({"lab", "log_level=err"}), "[ERROR] e\n[FATAL] f\n" + name);
  EXPECT_EQ(listLog({"lab", "log_level=critical"}), "[FATAL] f\n" + name);
  for (const char* invalid : {"log_level=verbose", "log_level=warnings", "log_level=3"}) {
    EXPECT_EQ(listLog({"lab", invalid}), info) << invalid;
  }
}

TEST_F(LogCommandsTest, VerboseShowsTheStatusAndAMissingLogHasNoProfileName) {
  EXPECT_EQ(listLog({""}), "no logfile available for this profile\n");
  EXPECT_EQ(listLog({"lab", "--verbose"}),
            "method: list log\nstatus_text: success with warnings\nstatus_code: 0x00000002\n"
            "no logfile available for this profile\n");
  writeLog("line\n");
  host::writeHeartbeat(kLab);
  EXPECT_EQ(listLog({"lab", "--verbose"}),
            "method: list log\nstatus_text: success\nstatus_code: 0x00000001\nline\nprofile_name: lab\n")
      << "the log of the running profile is plain success";
}

TEST_F(LogCommandsTest, AnOpenErrorAndAReadErrorAreReportedAsTheirStatus) {
  host::makeFifo(std::string(kLab) + "/hip.log");
  EXPECT_EQ(listLog({""}), "status_text: stdlib error: file open\nstatus_code: 0x14000005\n");
  host::remove(std::string(kLab) + "/hip.log");
  writeLog("line\n");
  Hipcmd_GetHipLog command("dir=profile-123123");
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"pread"};
  const ArmedFaults armed(plan);
  command.run();
  EXPECT_THAT(command.status().status(), HasCode(status::readError));
}

TEST_F(LogCommandsTest, WithoutAUsableActiveProfileThereIsNoLogAndNoneIsElected) {
  host::writeFile("/etc/zuv/hip.log", "secret\n");
  host::writeFile("/etc/zuv/profiles/hip.log", "secret\n");
  for (const std::string& name : {"..\n"s, ".\n"s, "../zuv\n"s, "\n"s, "profile-123123/../..\n"s, "pro\0file\n"s}) {
    SCOPED_TRACE(host::quoted(name));
    host::writeFile(host::kCurrent, name, 0666);
    EXPECT_EQ(listLog({""}), "no logfile available for this profile\n");
  }
  host::remove(host::kCurrent);
  const std::string before = host::tree("/etc/zuv");
  EXPECT_EQ(listLog({""}), "no logfile available for this profile\n");
  EXPECT_EQ(host::tree("/etc/zuv"), before);
}

TEST_F(LogCommandsTest, ListLogNeedsNoAuthorization) {
  SKIP_WITHOUT_OTHER_USERS();
  writeLog("line\n");
  host::setMode(std::string(kLab) + "/profile_name", 0644);
  Start start;
  start.uid = 1000;
  EXPECT_EQ(runRavctl({"list", "log", ""}, start).out, "line\nprofile_name: lab\n");
}

// --- service status

std::string serviceStatus() {
  const Outcome outcome = runRavctl({"service", "status"});
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exitStatus, 0);
  return outcome.out;
}

constexpr const char* kDown = "running: false\nhelmsor: false\ntunnel: false\n";

TEST_F(LogCommandsTest, ServiceStatusDescribesTheActiveProfile) {
  host::writeHeartbeat("/etc/zuv/profiles/profile-123124");
  EXPECT_EQ(serviceStatus(), kDown);
  host::makeActive("profile-123124");
  EXPECT_EQ(serviceStatus(), "running: true\nhelmsor: true\ntunnel: true\n");
}

TEST_F(LogCommandsTest, UnknownIsShownAsFalse) {
  const auto expectStatus = [](const char* why, const std::string& heartbeat, const char* shown) {
    host::writeFile(std::string(kLab) + "/hipvars.txt", heartbeat);
    EXPECT_EQ(serviceStatus(), shown) << why;
  };
  const std::string seconds = std::to_string(::time(nullptr)) + "\n", now = "uptime.now=" + seconds;
  expectStatus("the file does not say whether the daemon runs", now, kDown);
  expectStatus("the daemon has just started", now + "uptime.started=" + seconds + "hipd_state=\npeers.count=3\n",
               "running: true\nhelmsor: false\ntunnel: false\n");
  expectStatus("helmsor is not reported", now + "uptime.started=1\nhipd_state=\npeers.count=3\n",
               "running: true\nhelmsor: false\ntunnel: true\n");
  expectStatus("peers are not reported", now + "uptime.started=1\nhipd_state=\nhelmsor.up=true\n",
               "running: true\nhelmsor: true\ntunnel: false\n");
}

TEST_F(LogCommandsTest, WithoutAnActiveProfileTheDaemonIsNotRunning) {
  host::writeHeartbeat(kLab);
  host::writeFile("/etc/zuv/profiles/hipvars.txt", host::readFile(std::string(kLab) + "/hipvars.txt"));
  for (const char* name : {"", "\n", ".\n", "..\n", "profile-9\n", "profile-123124/../profile-123123\n"}) {
    host::writeFile(host::kCurrent, name, 0666);
    EXPECT_EQ(serviceStatus(), kDown) << name;
  }
  host::remove(host::kCurrent);
  EXPECT_EQ(serviceStatus(), kDown);
  host::makeDirs(host::kCurrent);
  EXPECT_EQ(serviceStatus(), kDown);
}

TEST_F(LogCommandsTest, AFailedServiceStatusShowsNoFields) {
  const std::string file = std::string(kLab) + "/hipvars.txt";
  host::writeHeartbeat(kLab);
  Hipcmd_ShowStatus command;
  FaultPlan plan;
  plan.calls = {"openat"};
  std::size_t opened = 0;
  {
    const ArmedFaults counted(plan);
    Hipcmd_ShowStatus().run();
    opened = counted.count();
  }
  plan.before = [&](std::size_t number) {
    if (number == opened) host::writeFile(file, "");
  };
  const ArmedFaults armed(plan);
  command.run();
  EXPECT_THAT(command.status().status(), HasCode(status::applicationError));
  std::vector<std::string> lines;
  renderOutput(command, lines);
  EXPECT_THAT(lines, ElementsAre("status_text: application error", "status_code: 0x12000001"));
}

}  // namespace
