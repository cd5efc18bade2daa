// Tests the interactive `./dev shell`: it runs tools/shell.sh on a private host and types through a pseudo-terminal.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"
#include "testing/run/Program.h"
#include "testing/run/Terminal.h"
#include "testing/run/Waiting.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

const std::string kPrivateHost = places::privateHost();
const std::string kStore = places::source() + "/docs/examples/demo-store";
constexpr const char* kShell = "/.private-host/source/tools/shell.sh";
constexpr const char* kPrompt = "private-host# ";
constexpr std::chrono::seconds kPatience(60);
// A variable in the environment of every process that this test starts. It tells them from those of other tests that
// run at the same time.
const std::string kMark = "RAVCTL_SHELL_TEST=" + std::to_string(::getpid()) + ".";

// The files that a shell could leave on the machine.
constexpr const char* kPlaces =
    "/etc/zuv /etc/init.d/hip /etc/manpath.config /etc/groff/mdoc.local /usr/bin/ravctl /usr/bin/ravctl-exit "
    "/usr/bin/zuv-sendbundle.sh "
    "/usr/sbin/hip /usr/local/share/man/man8/ravctl.8 /usr/share/doc/ravctl /root/.bash_history /root/.lesshst "
    "/tmp/of-ravctl-shell-test";

enum class User { caller, nobody };

class ShellTest : public testing::TestWithParam<User> {
 protected:
  void SetUp() override {
    if (GetParam() == User::nobody) {
      if (::getuid() != 0) GTEST_SKIP() << "we are an ordinary user, so the other half of these tests proves it";
      start_.uid = 65534;
      // That user cannot reach a checkout in a closed home folder.
      const std::string isOpen = std::string("test -x '") + kPrivateHost + "' && test -r '" + kStore + "'";
      if (runProgram({"/bin/sh", "-c", isOpen}, start_).exitStatus != 0)
        GTEST_SKIP() << "the checkout is closed to other users";
    }
    const Outcome trial = runProgram({kPrivateHost, "--", "/bin/true"}, start_);
    if (trial.exitStatus == 125) GTEST_SKIP() << trial.err;
    for (const char* tool : {"/usr/bin/killall", "/usr/sbin/start-stop-daemon", "/usr/bin/man", "/usr/bin/less",
                             "/usr/share/bash-completion/bash_completion"}) {
      if (!host::exists(tool)) GTEST_SKIP() << tool << " is not installed";
    }
    // Some variables name paths and programs of the machine that do not exist on the private host.
    start_.environment = {"PATH=/usr/sbin:/usr/bin", "TERM=of-nobody",   "LC_ALL=C.UTF-8", kMark,
                          "MANPATH=/nowhere",        "MANPAGER=nothing", "TMPDIR=/nowhere"};
    machine_ = traces();
  }

  // Opens the shell and returns its output before the first prompt. The commands `before` run on the private host
  // first.
  std::string open(const std::string& before = "") {
    const std::string script = before + "exec sh '" + kShell + "'";
    terminal_.emplace(std::vector<std::string>{kPrivateHost, "--store", kStore, "--", "/bin/sh", "-c", script}, start_);
    return terminal_->upTo(kPrompt);
  }

  // Returns what a command prints before the next prompt.
  std::string answerTo(const std::string& command) {
    terminal_->type(command + "\n");
    (void)terminal_->upTo("\n");
    return terminal_->upTo(kPrompt);
  }

  // Repeats the command until its output contains `text`, but only for a limited time.
  std::string answerWith(const std::string& text, const std::string& command) {
    std::string answer;
    (void)comesTrue(
        [&] {
          answer = answerTo(command);
          return answer.find(text) != std::string::npos;
        },
        kPatience);
    return answer;
  }

  // Returns the number of processes with our mark, on the machine and on private hosts.
  static int processes() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
      std::ifstream file(entry.path() / "environ");
      const std::string environment{std::istreambuf_iterator<char>(file), {}};
      if (environment.find(kMark) != std::string::npos) ++count;
    }
    return count;
  }

  static std::string traces() {
    std::string found = host::readFile("/proc/self/mounts");
    std::istringstream paths(kPlaces);
    for (std::string path; paths >> path;) {
      struct stat info {};
      if (::lstat(path.c_str(), &info) != 0) continue;
      found += path + " " + std::to_string(info.st_ino) + " " + std::to_string(info.st_ctime) + "\n";
    }
    return found;
  }

  // Creates a profile, waits for its daemon, and checks that the shell has files and processes that it must remove.
  void useTheShell() {
    (void)open();
    (void)answerTo("ravctl profile create lab helmsor=h:443 activate");
    (void)answerWith("running: true", "ravctl service status");
    const std::string create = "touch /root/.bash_history /root/.lesshst /tmp/of-ravctl-shell-test; ";
    EXPECT_EQ(answerTo(create + "ls -d >/dev/null " + kPlaces), "")
        << "each of these files must exist inside, or the check for leftovers proves nothing";
    EXPECT_GT(processes(), 3) << "the mark finds no running process";
  }

  Start start_;
  std::optional<Terminal> terminal_;
  std::string machine_;  // the result of traces() before the test
};

TEST_P(ShellTest, ItSuggestsThreeCommandsAndInstallsTheExamplesOfTheManuals) {
  EXPECT_EQ(open(), R"(
A private host with a stand-in for the daemon. Nothing here changes the machine,
and "exit" removes it all. Three commands to begin with:

  ravctl profile create lab helmsor=h:443 activate   # starts the daemon, too
  ravctl service status              # after a few seconds it is connected
  man ravctl                         # every command; the Tab key completes them

)");
  EXPECT_EQ(answerTo("ls -F /usr/share/doc/ravctl/examples | tr '\\n' ' '; echo"),
            "README.md ansible/ hip.init* hip.logrotate hip.service ravctl-metrics* "
            "ravctl-metrics.service ravctl-metrics.timer zuv-sendbundle.sh* \n");
}

TEST_P(ShellTest, AnActivatedProfileHasARunningDaemonALogAndASupportBundle) {
  (void)open();
  EXPECT_THAT(answerTo("ravctl profile create lab helmsor=h:443 activate"), HasSubstr("\nprofile_name: lab\n"));
  EXPECT_THAT(answerWith("running: true", "ravctl service status"), HasSubstr("running: true\n"));
  EXPECT_THAT(answerWith("started", "ravctl list log lab"),
              MatchesRegex("\\[INFO [-0-9]+ [:.0-9]+\\] hip: started\nprofile_name: lab\n"));
  const std::string bundle = answerTo("ravctl support bundle");
  EXPECT_THAT(bundle, MatchesRegex("/etc/zuv/logs/bundle-[0-9TZ]+\\.tar\\.gz\n"));
  EXPECT_THAT(answerTo("tar tf " + bundle.substr(0, bundle.find('\n'))), HasSubstr("/profile-123123/hip.log\n"));
  (void)answerTo("ravctl service stop");
  EXPECT_THAT(answerWith("ended", "ravctl list log lab"), HasSubstr("] hip: ended\n"));
}

TEST_P(ShellTest, ManShowsThePagesThroughAPager) {
  (void)open();
  for (const char* page : {"ravctl", "8 ravctl", "5 ravctl-profiles", "7 ravctl-examples"}) {
    SCOPED_TRACE(page);
    terminal_->type(std::string("man ") + page + "\n");
    (void)terminal_->upTo("\n");
    EXPECT_THAT(terminal_->upTo("\nNAME\n"), MatchesRegex("RAVCTL[-A-Z]*\\([578]\\).*\n"));
    (void)terminal_->upTo("press h for help or q to quit)");
    terminal_->type("q");
    (void)terminal_->upTo(kPrompt);
  }
}

TEST_P(ShellTest, TabCompletesCommandsAndProfileNames) {
  (void)open();
  terminal_->type("ravctl prof\t");
  EXPECT_EQ(terminal_->upTo("ravctl profile "), "");
  terminal_->type("cr\t");
  EXPECT_EQ(terminal_->upTo("create "), "");
  EXPECT_THAT(answerTo("quartz helmsor=h:443"), HasSubstr("profile_name: quartz\n"));
  terminal_->type("ravctl profile details qua\t");
  EXPECT_EQ(terminal_->upTo("ravctl profile details quartz "), "");
}

TEST_P(ShellTest, MissingToolsAreNamed) {
  EXPECT_THAT(open("rm /usr/bin/killall; "),
              HasSubstr("\nMissing here: killall (psmisc). The daemon can be neither started nor stopped.\n"));
  EXPECT_THAT(answerTo("ls /etc/init.d"), HasSubstr("No such file"));
  terminal_.reset();
  EXPECT_THAT(open("rm /usr/sbin/start-stop-daemon /usr/bin/killall /usr/bin/man; "),
              HasSubstr("\nMissing here: killall (psmisc), start-stop-daemon (dpkg). The daemon can be neither started "
                        "nor stopped.\n\nMissing here: man (man-db). There are no manuals.\n"));
}

TEST_P(ShellTest, LeavingItGivesStatus0AndLeavesNothingBehind) {
  useTheShell();
  EXPECT_EQ(answerTo("false; jobs"), "");
  terminal_->type("false; exit\n");
  (void)terminal_->rest();
  EXPECT_EQ(terminal_->exitStatus(), 0);
  EXPECT_EQ(processes(), 0);
  EXPECT_EQ(traces(), machine_);
}

TEST_P(ShellTest, ClosingItsWindowLeavesNothingBehind) {
  useTheShell();
  terminal_->hangUp();
  EXPECT_TRUE(comesTrue([] { return processes() == 0; }, kPatience));
  EXPECT_EQ(traces(), machine_);
}

INSTANTIATE_TEST_SUITE_P(As, ShellTest, testing::Values(User::caller, User::nobody),
                         [](const auto& made) { return made.param == User::caller ? "Caller" : "Nobody"; });

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
