// How `./dev` installs the packages that a command needs: at a terminal it asks first, elsewhere it does not ask. The
// tests run dev on a private host, with stand-ins for dpkg-query and apt-get, so they change no package of the machine.
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "testing/host/Places.h"
#include "testing/run/HostTest.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kInstalled = "/tmp/installed";  // the names of the installed packages, one a line
constexpr const char* kCalls = "/tmp/calls";          // what apt-get was asked to do, one call a line
constexpr const char* kQuestion = "Missing packages: cmake python3\nInstall them with apt-get? [Y/n] ";
constexpr const char* kInstallation =
    "-qq -o DPkg::Lock::Timeout=300 update\n"
    "-qq -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 -y --no-install-recommends install cmake python3\n";
const std::vector<std::string> kEnvironment = {"PATH=/tmp/bin:/usr/bin:/usr/sbin", "HOME=/tmp"};

class DevPackagesTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    installStandIns();
    const Outcome copied = runProgram({"/bin/sh", "-c",
                                       "mkdir -p /tmp/checkout && cp -r '" + places::source() + "/dev' '" +
                                           places::source() + "/tools' /tmp/checkout/"});
    ASSERT_EQ(copied.exitStatus, 0) << copied.err;
    host::installScript("/tmp/checkout/tools/steps.sh", "echo \"step: $*\"\n");
  }

  // Everything that `./dev torture` needs is installed, but for two packages.
  static void installStandIns() {
    host::writeFile(kInstalled, "g++\nninja-build\nlibgtest-dev\nlibgmock-dev\n");
    host::writeFile(kCalls, "");
    host::makeDirs("/tmp/bin");
    host::installScript("/tmp/bin/dpkg-query",
                        "for package; do :; done\n"
                        "if grep -qx \"$package\" /tmp/installed; then printf installed; else exit 1; fi\n");
    host::installScript("/tmp/bin/apt-get", "echo \"$*\" >>/tmp/calls\n");
  }

  // Runs `./dev torture`, which needs few packages, without a terminal.
  static Outcome runDev() {
    Start start;
    start.environment = kEnvironment;
    start.folder = "/tmp/checkout";
    start.seconds = 60;
    return runProgram({"/bin/sh", "./dev", "torture"}, start);
  }

  // Runs `./dev torture` on a terminal where a user has typed `typed`. Returns everything that the screen shows.
  static Outcome runDevOnTerminal(const std::string& typed) {
    Outcome outcome;
    int screen = -1;
    const pid_t child = ::forkpty(&screen, nullptr, nullptr, nullptr);
    if (child < 0) throw std::runtime_error("forkpty fails");
    if (child == 0) {
      std::vector<char*> environment;
      for (const std::string& variable : kEnvironment) environment.push_back(const_cast<char*>(variable.c_str()));
      environment.push_back(nullptr);
      const char* words[] = {"/bin/sh", "./dev", "torture", nullptr};
      if (::chdir("/tmp/checkout") != 0) ::_exit(126);
      ::execve(words[0], const_cast<char**>(words), environment.data());
      ::_exit(126);
    }
    if (::write(screen, typed.data(), typed.size()) != static_cast<ssize_t>(typed.size()))
      throw std::runtime_error("the terminal takes no text");
    char bytes[4096];
    pollfd ready{screen, POLLIN, 0};
    // The read fails when dev has ended; a dev that hangs is killed when the terminal closes.
    for (ssize_t got = 0; ::poll(&ready, 1, 60000) > 0 && (got = ::read(screen, bytes, sizeof bytes)) > 0;) {
      for (ssize_t i = 0; i < got; ++i) {
        if (bytes[i] != '\r') outcome.out += bytes[i];
      }
    }
    ::close(screen);
    int status = 0;
    ::waitpid(child, &status, 0);
    outcome.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
  }
};

TEST_F(DevPackagesTest, InstallsWithoutAQuestionWhenThereIsNoTerminal) {
  const Outcome outcome = runDev();
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, HasSubstr("Installing: cmake python3\nstep: torture\n"));
  EXPECT_EQ(host::readFile(kCalls), kInstallation);
  EXPECT_EQ(outcome.exitStatus, 0);
}

TEST_F(DevPackagesTest, InstallsWhenTheUserOfATerminalAgrees) {
  for (const char* answer : {"\n", "y\n", "Y\n", "yes\n"}) {
    SCOPED_TRACE(answer);
    host::writeFile(kCalls, "");
    const Outcome outcome = runDevOnTerminal(answer);
    EXPECT_THAT(outcome.out, HasSubstr(kQuestion));
    EXPECT_THAT(outcome.out, HasSubstr("Installing: cmake python3\nstep: torture\n"));
    EXPECT_EQ(host::readFile(kCalls), kInstallation);
    EXPECT_EQ(outcome.exitStatus, 0);
  }
}

TEST_F(DevPackagesTest, NamesThePackagesAndStopsWhenTheUserOfATerminalRefuses) {
  const std::string endOfInput = "\x04";
  for (const std::string& answer : {std::string("n\n"), std::string("N\n"), std::string("later\n"), endOfInput}) {
    SCOPED_TRACE(answer);
    const Outcome outcome = runDevOnTerminal(answer);
    EXPECT_THAT(outcome.out, HasSubstr(kQuestion));
    EXPECT_THAT(outcome.out, HasSubstr("dev: these packages are missing: apt-get install cmake python3\n"));
    EXPECT_THAT(outcome.out, Not(HasSubstr("step:")));
    EXPECT_EQ(host::readFile(kCalls), "");
    EXPECT_EQ(outcome.exitStatus, 1);
  }
}

TEST_F(DevPackagesTest, AsksNothingWhenNoPackageIsMissing) {
  host::writeFile(kInstalled, host::readFile(kInstalled) + "cmake\npython3\n");
  const Outcome outcome = runDevOnTerminal("");
  EXPECT_EQ(outcome.out.substr(0, 14), "step: torture\n");
  EXPECT_EQ(host::readFile(kCalls), "");
  EXPECT_EQ(outcome.exitStatus, 0);
}

TEST_F(DevPackagesTest, StopsWhenAptGetFails) {
  host::installScript("/tmp/bin/apt-get", "exit 100\n");
  const Outcome outcome = runDev();
  EXPECT_THAT(outcome.err, HasSubstr("dev: apt-get could not install: cmake python3\n"));
  EXPECT_THAT(outcome.out, Not(HasSubstr("step:")));
  EXPECT_EQ(outcome.exitStatus, 1);
}

}  // namespace
