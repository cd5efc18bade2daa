// Tests the interactive `./dev shell`: it runs tools/shell.sh on a private host and types through a pseudo-terminal.
#include <gmock/gmock.h>
#include <grp.h>
#include <poll.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"
#include "testing/run/Program.h"

namespace {

using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::MatchesRegex;

const std::string kPrivateHost = places::privateHost();
const std::string kStore = places::source() + "/docs/examples/demo-store";
constexpr const char* kShell = "/.private-host/source/tools/shell.sh";
constexpr const char* kPrompt = "private-host# ";
// A variable in the environment of every process that this test starts. It tells them from those of other tests that
// run at the same time.
const std::string kMark = "RAVCTL_SHELL_TEST=" + std::to_string(::getpid()) + ".";
constexpr std::chrono::seconds kPatience(60);
// The bytes that end a terminal escape sequence that begins with ESC [.
constexpr const char* kFinals = "@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~";

// The files that a shell could leave on the machine.
constexpr const char* kPlaces[] = {"/etc/zuv",
                                   "/etc/init.d/hip",
                                   "/etc/manpath.config",
                                   "/etc/groff/mdoc.local",
                                   "/usr/bin/ravctl",
                                   "/usr/bin/zuv-sendbundle.sh",
                                   "/usr/sbin/hip",
                                   "/usr/local/share/man/man8/ravctl.8",
                                   "/usr/share/doc/ravctl",
                                   "/root/.bash_history",
                                   "/root/.lesshst",
                                   "/tmp/of-ravctl-shell-test"};

// Removes bytes from the front of `bytes` and returns the text that a screen shows for them, without escape sequences.
// An incomplete escape sequence stays in `bytes`.
std::string takeShown(std::string* bytes) {
  std::string shown;
  size_t at = 0;
  while (at < bytes->size()) {
    const char c = (*bytes)[at];
    size_t length = 1;
    if (c == '\x1b') {
      // ESC [ parameters letter, or ESC and one character.
      const bool isLong = at + 1 < bytes->size() && (*bytes)[at + 1] == '[';
      const size_t last = isLong ? bytes->find_first_of(kFinals, at + 2) : at + 1;
      if (last >= bytes->size()) break;
      length = last + 1 - at;
    } else if (c != '\r' && c != '\a') {
      shown += c;
    }
    at += length;
  }
  bytes->erase(0, at);
  return shown;
}

// A program that controls a pseudo-terminal of its own. The destructor kills it if it still runs.
class Terminal {
 public:
  Terminal(const std::vector<std::string>& words, bool asNobody) {
    winsize size{};
    size.ws_row = 50;
    size.ws_col = 200;
    child_ = ::forkpty(&screen_, nullptr, nullptr, &size);
    if (child_ != 0) return;
    if (asNobody && (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(126);
    // Some variables name paths and programs of the machine that do not exist on the private host.
    const char* environment[] = {"PATH=/usr/sbin:/usr/bin", "TERM=of-nobody",   "LC_ALL=C.UTF-8",  kMark.c_str(),
                                 "MANPATH=/nowhere",        "MANPAGER=nothing", "TMPDIR=/nowhere", nullptr};
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    ::execve(arguments[0], arguments.data(), const_cast<char**>(environment));
    ::_exit(126);
  }

  ~Terminal() {
    if (child_ > 0) {
      ::kill(child_, SIGKILL);
      ::waitpid(child_, nullptr, 0);
    }
    hangUp();
  }

  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  void type(const std::string& text) const {
    EXPECT_EQ(::write(screen_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  // Returns what the screen shows between the end of the last call and the next occurrence of `text`, without `text`.
  // If `text` never appears, the test fails and the whole remainder is returned.
  std::string upTo(const std::string& text) {
    const auto deadline = steady_clock::now() + kPatience;
    size_t at = std::string::npos;
    while ((at = shown_.find(text)) == std::string::npos) {
      if (steady_clock::now() > deadline || !readMore()) {
        ADD_FAILURE() << "the screen never shows " << host::quoted(text) << " but " << host::quoted(shown_);
        return std::exchange(shown_, "");
      }
    }
    const std::string before = shown_.substr(0, at);
    shown_.erase(0, at + text.size());
    return before;
  }

  // Returns what a command prints before the next prompt.
  std::string answerTo(const std::string& command) {
    type(command + "\n");
    (void)upTo("\n");
    return upTo(kPrompt);
  }

  // Returns everything up to the end of the program, and its exit status; -1 if a signal ended it.
  std::string rest() {
    while (readMore()) {
    }
    return std::exchange(shown_, "");
  }
  int exitStatus() {
    int status = 0;
    ::waitpid(std::exchange(child_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  // Closes the terminal, as when a user closes the window.
  void hangUp() {
    if (screen_ >= 0) ::close(std::exchange(screen_, -1));
  }

 private:
  // Returns false at the end of the output, and if nothing arrives for a long time.
  bool readMore() {
    pollfd screen{screen_, POLLIN, 0};
    char bytes[4096];
    if (::poll(&screen, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())) <= 0) return false;
    const ssize_t got = ::read(screen_, bytes, sizeof bytes);
    if (got <= 0) return false;
    bytes_.append(bytes, static_cast<size_t>(got));
    shown_ += takeShown(&bytes_);
    return true;
  }

  int screen_ = -1;
  pid_t child_ = -1;
  std::string bytes_;  // received, not yet in shown_
  std::string shown_;  // shown on the screen, not yet returned
};

enum class User { caller, nobody };

class ShellTest : public testing::TestWithParam<User> {
 protected:
  void SetUp() override {
    Start start;
    if (isNobody()) {
      if (::getuid() != 0) GTEST_SKIP() << "we are an ordinary user, so the other half of these tests proves it";
      start.uid = 65534;
      // That user cannot reach a checkout in a closed home folder.
      const std::string isOpen = std::string("test -x '") + kPrivateHost + "' && test -r '" + kStore + "'";
      if (runProgram({"/bin/sh", "-c", isOpen}, start).exitStatus != 0)
        GTEST_SKIP() << "the checkout is closed to other users";
    }
    const Outcome trial = runProgram({kPrivateHost, "--", "/bin/true"}, start);
    if (trial.exitStatus == 125) GTEST_SKIP() << trial.err;
    for (const char* tool : {"/usr/bin/killall", "/usr/sbin/start-stop-daemon", "/usr/bin/man", "/usr/bin/less",
                             "/usr/share/bash-completion/bash_completion"}) {
      if (!host::exists(tool)) GTEST_SKIP() << tool << " is not installed";
    }
    machine_ = traces();
  }

  static bool isNobody() { return GetParam() == User::nobody; }

  // Opens the shell and returns its output before the first prompt. The commands `before` run on the private host
  // first.
  std::string open(const std::string& before = "") {
    const std::string script = before + "exec sh '" + kShell + "'";
    terminal_.emplace(std::vector<std::string>{kPrivateHost, "--store", kStore, "--", "/bin/sh", "-c", script},
                      isNobody());
    return terminal_->upTo(kPrompt);
  }

  std::string answerTo(const std::string& command) { return terminal_->answerTo(command); }

  // Repeats the command until its output contains `text`, but only for a limited time.
  std::string answerWith(const std::string& text, const std::string& command) {
    std::string answer;
    (void)comesTrue([&] {
      answer = answerTo(command);
      return answer.find(text) != std::string::npos;
    });
    return answer;
  }

  template <typename Condition>
  static bool comesTrue(const Condition& condition) {
    const auto deadline = steady_clock::now() + kPatience;
    while (!condition()) {
      if (steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return true;
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
    for (const char* path : kPlaces) {
      struct stat info {};
      if (::lstat(path, &info) != 0) continue;
      found += std::string(path) + " " + std::to_string(info.st_ino) + " " + std::to_string(info.st_ctime) + "\n";
    }
    return found;
  }

  std::optional<Terminal> terminal_;
  std::string machine_;  // the result of traces() before the test
};

TEST_P(ShellTest, ItStartsWithThreeSuggestedCommands) {
  EXPECT_EQ(open(), R"(
A private host with a stand-in for the daemon. Nothing here changes the machine,
and "exit" removes it all. Three commands to begin with:

  ravctl profile create lab helmsor=h:443 activate   # starts the daemon, too
  ravctl service status              # after a few seconds it is connected
  man ravctl                         # every command; the Tab key completes them

)");
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

TEST_P(ShellTest, TheExamplesOfTheManualsAreInstalled) {
  (void)open();
  EXPECT_EQ(answerTo("ls -F /usr/share/doc/ravctl/examples | tr '\\n' ' '; echo"),
            "README.md ansible/ hip.init* hip.service ravctl-exit* ravctl-json* zuv-sendbundle.sh* \n");
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

TEST_P(ShellTest, LeavingGivesStatus0AndLeavesNothingBehind) {
  (void)open();
  (void)answerTo("ravctl profile create lab helmsor=h:443 activate");
  (void)answerWith("running: true", "ravctl service status");
  std::string look = "touch /root/.bash_history /root/.lesshst /tmp/of-ravctl-shell-test; ls -d >/dev/null";
  for (const char* path : kPlaces) look += std::string(" ") + path;
  EXPECT_EQ(answerTo(look), "") << "each of these files must exist inside, or the check for leftovers proves nothing";
  EXPECT_GT(processes(), 3) << "the mark finds no running process";
  EXPECT_THAT(answerTo("false; jobs"), "");
  terminal_->type("false; exit\n");
  (void)terminal_->rest();
  EXPECT_EQ(terminal_->exitStatus(), 0);
  EXPECT_EQ(processes(), 0);
  EXPECT_EQ(traces(), machine_);
}

TEST_P(ShellTest, ClosingItsWindowLeavesNothingBehind) {
  (void)open();
  (void)answerTo("ravctl profile create lab helmsor=h:443 activate");
  (void)answerWith("running: true", "ravctl service status");
  EXPECT_GT(processes(), 3);
  terminal_->hangUp();
  EXPECT_TRUE(comesTrue([] { return processes() == 0; }));
  EXPECT_EQ(traces(), machine_);
}

INSTANTIATE_TEST_SUITE_P(As, ShellTest, testing::Values(User::caller, User::nobody),
                         [](const auto& made) { return made.param == User::caller ? "Caller" : "Nobody"; });

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
