// Tests the program with a real init script and the real killall on a private host.
#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "testing/host/Places.h"
#include "testing/run/HostTest.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Words = std::vector<std::string>;

constexpr const char* kOptions = "/etc/default/hip";
constexpr const char* kNotRunning = "running: false\nhelmsor: false\ntunnel: false\n";

// Returns the processes that run the file of the daemon.
std::vector<pid_t> daemons() {
  std::vector<pid_t> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::error_code gone;
    const auto program = std::filesystem::read_symlink(entry.path() / "exe", gone);
    if (!gone && program == "/usr/sbin/hip") found.push_back(std::stoi(entry.path().filename().string()));
  }
  return found;
}

template <typename Condition>
bool comesTrue(Condition condition, milliseconds within = seconds(10)) {
  for (milliseconds waited{0}; waited < within; waited += milliseconds(20)) {
    if (condition()) return true;
    std::this_thread::sleep_for(milliseconds(20));
  }
  return condition();
}

// Sets up two profiles, of which "lab" is the active one.
class InitScriptTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    if (!host::exists("/usr/sbin/start-stop-daemon")) GTEST_SKIP() << "start-stop-daemon is not installed";
    if (!host::exists("/usr/bin/killall")) GTEST_SKIP() << "killall is not installed";
    host::installDaemon();
    host::writeFile("/etc/init.d/hip", host::readFile(places::source() + "/packaging/examples/hip.init"), 0755);
    host::makeProfile("profile-1", "lab");
    host::makeProfile("profile-2", "office");
    host::makeActive("profile-1");
  }

  void TearDown() override {
    for (const pid_t daemon : daemons()) ::kill(daemon, SIGKILL);
    EXPECT_TRUE(comesTrue([] { return daemons().empty(); }));
    host::remove("/etc/default");
  }

  static void setDaemonOptions(const std::string& words) {
    host::writeFile(kOptions, "DAEMON_OPTS=\"" + words + "\"\n");
  }
};

std::string outputOf(const Words& words) {
  const Outcome outcome = runRavctl(words);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exitStatus, 0);
  return outcome.out;
}

// Waits up to a few seconds until the daemon runs. Whether it is connected depends on when it was started.
bool isRunning() {
  return comesTrue([] { return outputOf({"service", "status"}).find("running: true\n") == 0; });
}

bool hasBeat(const std::string& dirname) { return host::exists(host::kProfiles + dirname + "/hipvars.txt"); }

TEST_F(InitScriptTest, TheDaemonIsStartedAndKilled) {
  EXPECT_EQ(outputOf({"service", "status"}), kNotRunning);
  EXPECT_EQ(outputOf({"service", "start"}), "");
  EXPECT_TRUE(isRunning());
  EXPECT_EQ(daemons().size(), 1u);
  EXPECT_EQ(outputOf({"service", "stop"}), "");
  EXPECT_TRUE(comesTrue([] { return daemons().empty(); }));
}

TEST_F(InitScriptTest, StoppingWithoutADaemonIsAFailureOfKillall) {
  const Outcome outcome = runRavctl({"service", "stop"});
  EXPECT_EQ(outcome.out, "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n");
  EXPECT_EQ(outcome.err, "/usr/sbin/hip: no process found\n");
}

TEST_F(InitScriptTest, KillallEndsEveryDaemonAndNoOtherProcess) {
  for (const char* folder : {"/tmp/one", "/tmp/two"}) {
    host::makeDirs(folder);
    EXPECT_EQ(runProgram({"/usr/sbin/hip", "--daemon", "--dir", folder}).exitStatus, 0);
  }
  host::writeFile("/tmp/bin/hip", host::readFile(places::hipStandin()), 0755);
  EXPECT_EQ(runProgram({"/tmp/bin/hip", "--daemon", "--dir", "/tmp"}).exitStatus, 0);
  EXPECT_EQ(daemons().size(), 2u);
  EXPECT_EQ(outputOf({"service", "stop"}), "");
  EXPECT_TRUE(comesTrue([] { return daemons().empty(); }));
  EXPECT_EQ(runProgram({"/usr/bin/killall", "/tmp/bin/hip"}).exitStatus, 0)
      << "the program of the same name has ended too";
}

TEST_F(InitScriptTest, ARestartReplacesTheDaemon) {
  EXPECT_EQ(outputOf({"service", "start"}), "");
  ASSERT_TRUE(comesTrue([] { return daemons().size() == 1; }));
  const pid_t before = daemons().at(0);
  EXPECT_EQ(outputOf({"service", "restart", "full"}), "");
  ASSERT_TRUE(comesTrue([] { return daemons().size() == 1; }));
  EXPECT_NE(daemons().at(0), before);
}

TEST_F(InitScriptTest, AFailedScriptIsAToolFailure) {
  host::setMode("/usr/sbin/hip", 0644);
  EXPECT_EQ(outputOf({"service", "start"}),
            "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n");
}

TEST_F(InitScriptTest, ActivatingWaitsForASlowDaemonAndStartsOneOnTheOtherProfile) {
  setDaemonOptions("--stop-delay 3");
  EXPECT_EQ(outputOf({"service", "start"}), "");
  ASSERT_TRUE(comesTrue([] { return hasBeat("profile-1"); }));
  const pid_t before = daemons().at(0);
  EXPECT_EQ(outputOf({"profile", "activate", "office"}), "profile_name: office\n");
  ASSERT_TRUE(comesTrue([] { return hasBeat("profile-2"); }));
  ASSERT_EQ(daemons().size(), 1u) << "the old daemon must have ended before the new one was started";
  EXPECT_NE(daemons().at(0), before);
  EXPECT_TRUE(isRunning());
  EXPECT_EQ(host::readFile(host::kCurrent), "profile-2\n");
}

TEST_F(InitScriptTest, ActivatingStartsADaemonIfNoneRuns) {
  const Outcome outcome = runRavctl({"profile", "activate", "office"});
  EXPECT_EQ(outcome.out, "profile_name: office\n");
  EXPECT_EQ(outcome.err, "/usr/sbin/hip: no process found\n");
  EXPECT_TRUE(comesTrue([] { return hasBeat("profile-2"); }));
}

TEST_F(InitScriptTest, ActivatingTheRunningProfileKeepsItsDaemon) {
  EXPECT_EQ(outputOf({"service", "start"}), "");
  ASSERT_TRUE(comesTrue([] { return hasBeat("profile-1"); }));
  const std::vector<pid_t> before = daemons();
  EXPECT_EQ(outputOf({"profile", "activate", "lab"}), "profile_name: lab\n");
  EXPECT_EQ(daemons(), before);
}

TEST_F(InitScriptTest, ModifyingTheRunningProfileRestartsEvenASlowDaemon) {
  setDaemonOptions("--stop-delay 2");
  EXPECT_EQ(outputOf({"service", "start"}), "");
  ASSERT_TRUE(comesTrue([] { return hasBeat("profile-1"); }));
  const pid_t before = daemons().at(0);
  const Outcome outcome = runRavctl({"profile", "modify", "lab", "helmsor=10.0.0.9:443", "--quiet"});
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(host::readFile(std::string(host::kProfiles) + "profile-1/mapconfig.static"),
            "map_uri=https://10.0.0.9:443\n");
  ASSERT_TRUE(comesTrue([&] { return daemons().size() == 1 && daemons().at(0) != before; }));
  EXPECT_TRUE(isRunning());
}

TEST_F(InitScriptTest, CreatingAndActivatingMovesTheDaemon) {
  EXPECT_EQ(outputOf({"service", "start"}), "");
  ASSERT_TRUE(comesTrue([] { return hasBeat("profile-1"); }));
  const Outcome outcome = runRavctl({"profile", "create", "field", "helmsor=10.0.0.9:443", "activate", "--quiet"});
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(host::readFile(host::kCurrent), "profile-123123\n");
  EXPECT_TRUE(comesTrue([] { return hasBeat("profile-123123") && daemons().size() == 1; }));
}

TEST_F(InitScriptTest, TheScriptSupportsItsActions) {
  auto script = [](const char* word) { return runProgram({"/etc/init.d/hip", word}); };
  EXPECT_EQ(script("status").exitStatus, 3);
  EXPECT_EQ(script("start").exitStatus, 0);
  ASSERT_TRUE(comesTrue([] { return daemons().size() == 1; }));
  EXPECT_EQ(script("status").out, "hip is running\n");
  EXPECT_EQ(script("restart").exitStatus, 0);
  ASSERT_TRUE(comesTrue([] { return daemons().size() == 1; }));
  EXPECT_EQ(script("stop").exitStatus, 0);
  EXPECT_TRUE(daemons().empty()) << "the stop action of the script waits for the end";
  EXPECT_EQ(script("stop").exitStatus, 0);
  EXPECT_EQ(script("dance").exitStatus, 2);
}

// killall does not find a daemon that is forked but not yet executed, so a stop right after the start would miss it.
TEST_F(InitScriptTest, TheDaemonRunsWhenTheStartReturns) {
  const std::string tool = "/usr/sbin/start-stop-daemon";
  host::writeFile(tool + ".itself", host::readFile(tool), 0755);
  host::installScript(tool,
                      "case $* in --start*) { sleep 0.5; \"$0.itself\" \"$@\"; } >/dev/null 2>&1 & ;; *) exec "
                      "\"$0.itself\" \"$@\" ;; esac\n");
  EXPECT_EQ(outputOf({"service", "start"}), "");
  EXPECT_EQ(daemons().size(), 1u);
  host::remove(tool + ".itself");  // the next reset of the host removes the script
}

TEST_F(InitScriptTest, StartingTwiceLeavesOneDaemon) {
  host::writeFile(kOptions, "START_WAIT=1\n");
  EXPECT_EQ(outputOf({"service", "start"}), "");
  ASSERT_TRUE(comesTrue([] { return daemons().size() == 1; }));
  const std::vector<pid_t> before = daemons();
  EXPECT_EQ(outputOf({"service", "start"}), "");
  EXPECT_EQ(daemons(), before);
}

}  // namespace
