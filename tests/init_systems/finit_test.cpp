// Tests the "upstart" backend with a real `initctl start|stop|restart NAME`, namely that of finit. Debian has no
// Upstart any more, so nothing here tests the program with Upstart itself. finit is not installed but unpacked into a
// folder: RAVCTL_FINIT names that folder, and `./dev test` creates it.
#include <cstdlib>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"
#include "testing/run/Matchers.h"
#include "testing/run/Program.h"

namespace {

constexpr const char* kService = "service name:hip [2345] /usr/sbin/hip -- Stand-in of the overlay daemon";

class FinitTest : public testing::Test {
 protected:
  void SetUp() override {
    const char* folder = std::getenv("RAVCTL_FINIT");
    if (folder == nullptr) GTEST_SKIP() << "RAVCTL_FINIT names no folder with finit unpacked";
    if (!host::exists(std::string(folder) + "/lib/finit/initctl")) GTEST_SKIP() << "no finit in " << folder;
    folder_ = folder;
  }

  // Runs a script on the private host and returns its output, with standard error. Its $0 is the folder of finit.
  std::string onHost(const std::string& script, const std::vector<std::string>& more = {}) {
    std::vector<std::string> words = {places::privateHost(),  "--visible", folder_, "--", "/bin/sh", "-c",
                                      "exec 2>&1\n" + script, folder_};
    words.insert(words.end(), more.begin(), more.end());
    const Outcome outcome = runProgram(words);
    if (outcome.exitStatus == 125) whyNot_ = outcome.err.empty() ? "no private host" : outcome.err;
    return outcome.out;
  }

  // The same on a host on which finit has booted with that service.
  std::string onFinit(const std::string& service, const std::string& script) {
    return onHost("exec /.private-host/source/tests/init_systems/booted-finit \"$0\" \"$@\"", {service, script});
  }

  std::string folder_;
  std::string whyNot_;
};

// Skips the test if there is no such host.
#define EXPECT_SAID(said, expected)                \
  {                                                \
    const std::string words = said;                \
    if (!whyNot_.empty()) GTEST_SKIP() << whyNot_; \
    EXPECT_EQ(words, expected);                    \
  }

TEST_F(FinitTest, TheServiceIsStoppedStartedAndRestartedIfSysNamesUpstart) {
  EXPECT_SAID(onFinit(kService, R"(
    until_it is running
    first=$(daemon)
    ravctl service stop
    state
    ravctl service start sys=upstart
    echo exit $?
    same $first $(daemon)
    pidof /usr/sbin/hip | wc -w
    ravctl service stop sys=upstart
    until_it is stopped
    ravctl service start sys=upstart
    until_it is running
    second=$(daemon)
    ravctl service status | head -n 1
    ravctl service restart sys=upstart
    until_it is running
    same $second $(daemon)
    ravctl service bounce full sys=upstart
    until_it is running
    ravctl service stop sys=upstart
    until_it is stopped
    pidof /usr/sbin/hip
    state)"),
              "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\nrunning\n"
              "exit 0\nsame\n1\n"
              "running: true\nanother\nstopped\n");
}

TEST_F(FinitTest, AFailureOfInitctlIsReportedWithItsErrorText) {
  EXPECT_SAID(onFinit("# none", R"(
    ravctl service start sys=upstart
    ravctl service stop sys=upstart --quiet)"),
              "No such task or service(s): hip\n\nUsage: initctl start <NAME>[:ID]\n"
              "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n"
              "No such task or service(s): hip\n\nUsage: initctl stop <NAME>[:ID]\n"
              "status_code: 0x16001001\n");
  EXPECT_SAID(onHost(R"(
    cp "$0"/lib/finit/initctl /usr/sbin/
    export LD_LIBRARY_PATH=$(echo "$0"/usr/lib/*-linux-*)
    ravctl service start sys=upstart)"),
              "initctl: Failed connecting to finit: No such file or directory\n"
              "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n");
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
