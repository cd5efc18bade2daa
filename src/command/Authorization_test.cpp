#include "command/Authorization.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>

#include "testing/HostTest.h"

namespace {

class AuthorizationTest : public HostTest {
 protected:
  void TearDown() override { setAuthorizationMode(authorizationNever); }
};

TEST_F(AuthorizationTest, ModesOneAndTwoAloneMayPermit) {
  for (const int mode : {authorizationNever, 3, 4, -1, INT_MAX, INT_MIN}) {
    setAuthorizationMode(mode);
    EXPECT_FALSE(isAuthorized()) << mode;
  }
  setAuthorizationMode(authorizationAlways);
  EXPECT_TRUE(isAuthorized());
  setAuthorizationMode(authorizationRootOnly);
  EXPECT_TRUE(isAuthorized());  // the private host is root's
}

TEST_F(AuthorizationTest, TheModesHaveTheirNumbers) {
  EXPECT_EQ(authorizationNever, 0);
  EXPECT_EQ(authorizationAlways, 1);
  EXPECT_EQ(authorizationRootOnly, 2);
}

// What a process with these user ids is told in mode 2: 0 no, 1 yes.
int answerAs(uid_t real, uid_t effective) {
  const pid_t child = ::fork();
  if (child == 0) {
    setAuthorizationMode(authorizationRootOnly);
    ::_exit(::setresuid(real, effective, 0) != 0 ? 99 : isAuthorized() ? 1 : 0);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WEXITSTATUS(status);
}

TEST_F(AuthorizationTest, RootOnlyAsksForTheRealAndTheEffectiveUser) {
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

}  // namespace
