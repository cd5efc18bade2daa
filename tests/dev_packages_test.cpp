// How `./dev` installs the packages that a command needs: at a terminal it asks first, elsewhere it does not ask. The
// tests run dev on a private host, with stand-ins for dpkg-query and apt-get, so they change no package of the machine.
#include "testing/host/Places.h"
#include "testing/run/HostTest.h"
#include "testing/run/Terminal.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kInstalled = "/tmp/installed";  // the names of the installed packages, one a line
constexpr const char* kCalls = "/tmp/calls";          // what apt-get was asked to do, one call a line
constexpr const char* kQuestion = "Missing packages: cmake python3\nInstall them with apt-get? [Y/n] ";
constexpr const char* kInstallation =
    "-qq -o DPkg::Lock::Timeout=300 update\n"
    "-qq -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 -y --no-install-recommends install cmake python3\n";

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

  static Start inCheckout() {
    Start start;
    start.environment = {"PATH=/tmp/bin:/usr/bin:/usr/sbin", "HOME=/tmp"};
    start.folder = "/tmp/checkout";
    start.seconds = 60;
    return start;
  }

  // Runs `./dev torture`, which needs few packages, without a terminal.
  static Outcome runDev() { return runProgram({"/bin/sh", "./dev", "torture"}, inCheckout()); }

  // Runs `./dev torture` on a terminal where a user has typed `typed`. Returns everything that the screen shows.
  static Outcome runDevOnTerminal(const std::string& typed) {
    Terminal terminal({"/bin/sh", "./dev", "torture"}, inCheckout());
    terminal.type(typed);
    Outcome outcome;
    outcome.out = terminal.rest();
    outcome.exitStatus = terminal.exitStatus();
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

TEST_F(DevPackagesTest, InstallsOnlyWhenTheUserOfATerminalAgrees) {
  const char* endOfInput = "\x04";
  const char* installs = "Installing: cmake python3\nstep: torture\n";
  const char* stops = "dev: these packages are missing: apt-get install cmake python3\n";
  const struct {
    const char* answer;
    bool agrees;
  } cases[] = {{"\n", true},   {"y\n", true},  {"Y\n", true},      {"yes\n", true},
               {"n\n", false}, {"N\n", false}, {"later\n", false}, {endOfInput, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.answer);
    host::writeFile(kCalls, "");
    const Outcome outcome = runDevOnTerminal(c.answer);
    EXPECT_THAT(outcome.out, HasSubstr(kQuestion));
    EXPECT_THAT(outcome.out, HasSubstr(c.agrees ? installs : stops));
    EXPECT_EQ(outcome.out.find("step:") != std::string::npos, c.agrees);
    EXPECT_EQ(host::readFile(kCalls), c.agrees ? kInstallation : "");
    EXPECT_EQ(outcome.exitStatus, c.agrees ? 0 : 1);
  }
}

TEST_F(DevPackagesTest, AsksNothingWhenNoPackageIsMissing) {
  host::writeFile(kInstalled, host::readFile(kInstalled) + "cmake\npython3\n");
  const Outcome outcome = runDevOnTerminal("");
  EXPECT_EQ(outcome.out.substr(0, 14), "step: torture\n");
  EXPECT_EQ(host::readFile(kCalls), "");
  EXPECT_EQ(outcome.exitStatus, 0);
}

// dpkg-buildpackage demands build-essential, although debian/control does not name it.
TEST_F(DevPackagesTest, PackageInstallsBuildEssential) {
  host::installScript("/tmp/checkout/tools/package.sh", "echo packed\n");
  const Outcome outcome = runProgram({"/bin/sh", "./dev", "package"}, inCheckout());
  EXPECT_EQ(outcome.exitStatus, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\npacked\n"));
  EXPECT_THAT(host::readFile(kCalls), HasSubstr(" build-essential "));
}

TEST_F(DevPackagesTest, StopsWhenAptGetFails) {
  host::installScript("/tmp/bin/apt-get", "exit 100\n");
  const Outcome outcome = runDev();
  EXPECT_THAT(outcome.err, HasSubstr("dev: apt-get could not install: cmake python3\n"));
  EXPECT_THAT(outcome.out, Not(HasSubstr("step:")));
  EXPECT_EQ(outcome.exitStatus, 1);
}

}  // namespace
