#include "command/framework/Authorization.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

#include "testing/run/HostTest.h"

namespace {

// Before any test, and before main(), the mode has not been set.
const bool kIsAuthorizedAtFirst = isAuthorized();

class AuthorizationTest : public HostTest {
 protected:
  void TearDown() override { setAuthorizationMode(authorizationNever); }
};

TEST_F(AuthorizationTest, OnlyTheModesAlwaysAndRootOnlyPermitAnything) {
  EXPECT_EQ(authorizationNever, 0);
  EXPECT_EQ(authorizationAlways, 1);
  EXPECT_EQ(authorizationRootOnly, 2);
  for (const int mode : {authorizationNever, 3, 4, -1, INT_MAX, INT_MIN}) {
    setAuthorizationMode(mode);
    EXPECT_FALSE(isAuthorized()) << mode;
  }
  setAuthorizationMode(authorizationAlways);
  EXPECT_TRUE(isAuthorized());
  setAuthorizationMode(authorizationRootOnly);
  EXPECT_TRUE(isAuthorized());  // in the private host we are root
}

// Returns 1 if a process with these user ids is authorized in mode 2, else 0.
int answerAs(uid_t real, uid_t effective) {
  const pid_t child = ::fork();
  if (child == 0) {
    setAuthorizationMode(authorizationRootOnly);
    if (!isAuthorized()) ::_exit(98);  // as root, so that a remembered answer would be wrong below
    ::_exit(::setresuid(real, effective, 0) != 0 ? 99 : isAuthorized() ? 1 : 0);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WEXITSTATUS(status);
}

TEST_F(AuthorizationTest, RootOnlyRequiresTheRealAndTheEffectiveUserToBeRoot) {
  SKIP_WITHOUT_OTHER_USERS();
  EXPECT_EQ(answerAs(0, 0), 1);
  EXPECT_EQ(answerAs(1000, 0), 0);
  EXPECT_EQ(answerAs(0, 1000), 0);
  EXPECT_EQ(answerAs(1000, 1000), 0);
}

TEST_F(AuthorizationTest, EveryStateChangingCommandRefusesAnotherUser) {
  SKIP_WITHOUT_OTHER_USERS();
  Start start;
  start.uid = 1000;
  const std::vector<std::string> commands[] = {
      {"service", "start"},
      {"service", "stop"},
      {"service", "restart"},
      {"service", "bounce"},
      {"profile", "create", "lab", "helmsor=h"},
      {"profile", "delete", "lab"},
      {"profile", "rename", "lab", "new_name=x"},
      {"profile", "modify", "lab", "new_name=x"},
      {"profile", "activate", "lab"},
      {"support", "reset", "lab"},
  };
  host::makeProfile("profile-1", "lab");
  const std::string before = host::tree("/etc/zuv");
  for (const std::vector<std::string>& words : commands) {
    SCOPED_TRACE(testing::PrintToString(words));
    const Outcome outcome = runRavctl(words, start);
    EXPECT_EQ(outcome.out,
              "status_text: authentication error (ravctl requires sudo for this command)\nstatus_code: 0x12000002\n");
    EXPECT_EQ(outcome.exitStatus, 0);
  }
  EXPECT_EQ(host::tree("/etc/zuv"), before);
}

TEST_F(AuthorizationTest, AnotherUserMayListInterfacesAndVersions) {
  SKIP_WITHOUT_OTHER_USERS();
  Start start;
  start.uid = 1000;
  host::writeFile("/etc/zuv/profiles/.factory/firmware_revision", "4.1.7\n");
  EXPECT_EQ(runRavctl({"list", "interfaces", "--verbose"}, start).out,
            "method: list interfaces\nstatus_text: success\nstatus_code: 0x00000001\n");
  EXPECT_EQ(runRavctl({"list", "versions"}, start).out, "hipapp_version: 4.1.7\nravctl_version: 2.2\n");
}

TEST_F(AuthorizationTest, AStateChangingCommandRequiresBothUserIdsToBeRoot) {
  SKIP_WITHOUT_OTHER_USERS();
  // The program is copied to a place that both users can reach. If the tests run under an emulator, so does the
  // program.
  const char* emulator = std::getenv("RAVCTL_EMULATOR");
  host::writeFile("/usr/bin/ravctl", host::readFile(ravctlPath()), 0755);
  host::writeFile("/etc/zuv/.systemctl", "");
  host::installRecorder("/bin/systemctl", "/tmp/calls");
  const auto stopWith = [&](std::vector<std::string> words) {
    if (emulator != nullptr) words.emplace_back(emulator);
    words.insert(words.end(), {"/usr/bin/ravctl", "service", "stop"});
    return runProgram(words);
  };
  for (const char* which : {"--ruid", "--euid"}) {
    SCOPED_TRACE(which);
    // The exit status is not checked: a sanitizer cannot inspect such a process and makes it fail.
    EXPECT_EQ(stopWith({"/usr/bin/setpriv", which, "1000"}).out,
              "status_text: authentication error (ravctl requires sudo for this command)\nstatus_code: 0x12000002\n");
    EXPECT_FALSE(host::exists("/tmp/calls"));
  }
  EXPECT_EQ(stopWith({"/usr/bin/setpriv", "--ruid", "0", "--euid", "0"}).out, "");
  EXPECT_EQ(host::readFile("/tmp/calls"), "systemctl stop hip\n");
}

TEST_F(AuthorizationTest, NothingIsPermittedBeforeAModeIsSet) { EXPECT_FALSE(kIsAuthorizedAtFirst); }

}  // namespace
