// Tests the program with a real init script and the real killall on a private host.
#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>

#include "testing/host/Places.h"
#include "testing/run/FurnishedHost.h"
#include "testing/run/HostTest.h"
#include "testing/run/Waiting.h"

namespace {

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

// Sets up two profiles, of which "lab" is the active one.
class InitScriptTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    if (!missingForInitScript().empty()) GTEST_SKIP() << missingForInitScript();
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

// Waits for a daemon that writes a heartbeat in this profile. Returns the process if it is the only daemon, or else 0.
pid_t daemonOn(const std::string& dirname) {
  const bool isThere = comesTrue([&] { return hasBeat(dirname) && daemons().size() == 1; });
  EXPECT_TRUE(isThere) << daemons().size() << " daemons";
  return isThere ? daemons().at(0) : 0;
}

TEST_F(InitScriptTest, StartStartsOneDaemonRestartReplacesItAndStopKillsIt) {
  host::writeFile(kOptions, "START_WAIT=1\n");
  EXPECT_EQ(outputOf({"service", "status"}), kNotRunning);
  EXPECT_EQ(outputOf({"service", "start"}), "");
  EXPECT_TRUE(isRunning());
  const pid_t first = daemonOn("profile-1");
  EXPECT_EQ(outputOf({"service", "start"}), "");
  EXPECT_EQ(daemons(), std::vector<pid_t>{first});
  EXPECT_EQ(outputOf({"service", "restart", "full"}), "");
  EXPECT_NE(daemonOn("profile-1"), first);
  EXPECT_EQ(outputOf({"service", "stop"}), "");
  EXPECT_TRUE(comesTrue([] { return daemons().empty(); }));
}

TEST_F(InitScriptTest, AFailureOfKillallOrOfTheScriptIsReported) {
  const std::string failure = "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n";
  const Outcome outcome = runRavctl({"service", "stop"});
  EXPECT_EQ(outcome.out, failure);
  EXPECT_EQ(outcome.err, "/usr/sbin/hip: no process found\n");
  host::setMode("/usr/sbin/hip", 0644);
  EXPECT_EQ(outputOf({"service", "start"}), failure);
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

TEST_F(InitScriptTest, ActivatingStartsKeepsOrMovesTheDaemon) {
  host::writeFile(kOptions, "DAEMON_OPTS=\"--stop-delay 3\"\n");
  const Outcome outcome = runRavctl({"profile", "activate", "office"});
  EXPECT_EQ(outcome.out, "profile_name: office\n");
  EXPECT_EQ(outcome.err, "/usr/sbin/hip: no process found\n");
  const pid_t first = daemonOn("profile-2");
  EXPECT_EQ(outputOf({"profile", "activate", "office"}), "profile_name: office\n");
  EXPECT_EQ(daemons(), std::vector<pid_t>{first});
  EXPECT_EQ(outputOf({"profile", "activate", "lab"}), "profile_name: lab\n");
  ASSERT_TRUE(comesTrue([] { return hasBeat("profile-1"); }));
  ASSERT_EQ(daemons().size(), 1u) << "the old daemon must have ended before the new one was started";
  EXPECT_NE(daemons().at(0), first);
  EXPECT_TRUE(isRunning());
  EXPECT_EQ(host::readFile(host::kCurrent), "profile-1\n");
}

TEST_F(InitScriptTest, ModifyingAndCreatingRestartTheDaemonOnTheRightProfile) {
  host::writeFile(kOptions, "DAEMON_OPTS=\"--stop-delay 2\"\n");
  EXPECT_EQ(outputOf({"service", "start"}), "");
  const pid_t first = daemonOn("profile-1");
  const Outcome modified = runRavctl({"profile", "modify", "lab", "helmsor=10.0.0.9:443", "--quiet"});
  EXPECT_EQ(modified.exitStatus, 0);
  EXPECT_EQ(host::readFile(std::string(host::kProfiles) + "profile-1/mapconfig.static"),
            "map_uri=https://10.0.0.9:443\n");
  ASSERT_TRUE(comesTrue([&] { return daemons().size() == 1 && daemons().at(0) != first; }));
  EXPECT_TRUE(isRunning());
  const Outcome created = runRavctl({"profile", "create", "field", "helmsor=10.0.0.9:443", "activate", "--quiet"});
  EXPECT_EQ(created.err, "");
  EXPECT_EQ(host::readFile(host::kCurrent), "profile-123123\n");
  EXPECT_NE(daemonOn("profile-123123"), 0);
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

}  // namespace
