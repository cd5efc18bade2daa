#include "service/host/SupportBundle.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>

#include "base/system/Process.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

constexpr const char* kScript = "/usr/bin/zuv-sendbundle.sh";
constexpr const char* kApplicationError = "status_text: application error\nstatus_code: 0x12000001\n";

class SupportBundleTest : public HostTest {};

TEST_F(SupportBundleTest, TheRawResultOfTheSystemFunctionDecidesTheStatus) {
  struct Case {
    const char* why;
    int result;
    StatusCode code;
  };
  const Case cases[] = {
      {"exit status 0", 0, status::success},
      {"no shell could be started", -1, status::systemError},
      {"any other negative value", INT_MIN, status::systemError},
      {"exactly 127", 127, status::systemError},
      {"exit status 127, a missing script", 32512, status::applicationError},
      {"exit status 1", 256, status::applicationError},
      {"signal 1", 1, status::applicationError},
      {"one below 127", 126, status::applicationError},
      {"one above 127", 128, status::applicationError},
      {"the largest value", INT_MAX, status::applicationError},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_THAT(statusOfSystemResult(c.result), HasCode(c.code));
  }
}

TEST_F(SupportBundleTest, TheExitOfTheScriptDecidesTheStatus) {
  struct Case {
    const char* script;
    StatusCode code;
  };
  for (const Case& c : {Case{"exit 0", status::success},
                        {"exit 1", status::applicationError},
                        {"exit 127", status::applicationError},
                        {"exit 255", status::applicationError},
                        {"kill -9 $$", status::applicationError}}) {
    SCOPED_TRACE(c.script);
    host::installScript(kScript, c.script);
    EXPECT_THAT(runSupportBundle(), HasCode(c.code));
  }
}

TEST_F(SupportBundleTest, AMissingScriptIsAnApplicationErrorAndTheShellReportsIt) {
  const Outcome outcome = runRavctl({"support", "bundle"});
  EXPECT_EQ(outcome.out, kApplicationError);
  EXPECT_EQ(outcome.err, "sh: 1: /usr/bin/zuv-sendbundle.sh: not found\n");
  EXPECT_EQ(outcome.exitStatus, 0);
}

TEST_F(SupportBundleTest, AShellThatCannotBeStartedIsASystemError) {
  host::installRecorder(kScript, "/tmp/calls");
  FaultPlan plan;
  plan.at = 1;
  plan.error = EAGAIN;
  const ArmedFaults armed(plan);
  EXPECT_THAT(runSupportBundle(), HasCode(status::systemError));
  EXPECT_THAT(armed.calls(), testing::ElementsAre("system"));
  EXPECT_FALSE(host::exists("/tmp/calls"));
}

TEST_F(SupportBundleTest, AShellBeyondTheLimitOfProcessesIsASystemError) {
  SKIP_WITHOUT_OTHER_USERS();
  host::installRecorder(kScript, "/tmp/calls");
  Start start;
  start.uid = 1000;
  start.environment.push_back("ASAN_OPTIONS=detect_leaks=0");  // the search for leaks needs a process
  const Outcome outcome = runProgram({"/usr/bin/prlimit", "--nproc=1", ravctlPath(), "support", "bundle"}, start);
  EXPECT_EQ(outcome.out, "status_text: stdlib error: system\nstatus_code: 0x14000013\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_FALSE(host::exists("/tmp/calls"));
}

TEST_F(SupportBundleTest, AnErrorFromBeforeTheRunOrAnInterruptedWaitDoesNotChangeTheStatusOfAMissingScript) {
  errno = EAGAIN;
  EXPECT_THAT(runSupportBundle(), HasCode(status::applicationError));
  FaultPlan plan;
  plan.calls = {"system"};
  plan.before = [](std::size_t) { errno = EINTR; };
  const ArmedFaults armed(plan);
  EXPECT_THAT(runSupportBundle(), HasCode(status::applicationError));
  EXPECT_EQ(armed.count(), 1u);
}

TEST_F(SupportBundleTest, WaitsForTheScriptAndPassesItNoArguments) {
  host::installRecorder(kScript, "/tmp/calls");
  const Outcome outcome = runRavctl({"support", "bundle", "requestID=7"});
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(host::readFile("/tmp/calls"), "zuv-sendbundle.sh \n");
  host::installScript(kScript, "sleep 0.2; echo ended > /tmp/ended");
  EXPECT_THAT(runSupportBundle(), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/ended"), "ended\n");
}

TEST_F(SupportBundleTest, TheScriptUsesOurStandardStreams) {
  host::installScript(kScript, "echo bundle written; echo careful >&2; cat > /tmp/input");
  Start start;
  start.input = "an answer\n";
  const Outcome outcome = runRavctl({"support", "bundle", "--verbose"}, start);
  EXPECT_EQ(outcome.out, "bundle written\nmethod: support bundle\nstatus_text: success\nstatus_code: 0x00000001\n");
  EXPECT_EQ(outcome.err, "careful\n");
  EXPECT_EQ(host::readFile("/tmp/input"), "an answer\n");
}

TEST_F(SupportBundleTest, OtherUsersMayMakeABundle) {
  SKIP_WITHOUT_OTHER_USERS();
  host::installScript(kScript, "id -u");
  Start start;
  start.uid = 1000;
  EXPECT_EQ(runRavctl({"support", "bundle"}, start).out, "1000\n");
}

TEST_F(SupportBundleTest, TheScriptIgnoresOnlyTheSignalsThatWeInheritedAsIgnored) {
  const auto bitOf = [](int signal) { return 1ULL << (signal - 1); };
  const struct {
    const char* option;  // of env(1)
    unsigned long long ignored;
  } cases[] = {{"--default-signal", 0}, {"--ignore-signal=PIPE,XFSZ,CHLD", bitOf(SIGPIPE) | bitOf(SIGXFSZ)}};
  host::installScript(kScript, "grep -E '^Sig(Blk|Ign)' /proc/self/status > /tmp/signals");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.option);
    EXPECT_EQ(runProgram({"/usr/bin/env", c.option, ravctlPath(), "support", "bundle"}).out, "");
    unsigned long long blocked = 0, mask = 0;
    ASSERT_EQ(std::sscanf(host::readFile("/tmp/signals").c_str(), "SigBlk: %llx SigIgn: %llx", &blocked, &mask), 2);
    EXPECT_EQ(blocked & (bitOf(SIGPIPE) | bitOf(SIGXFSZ)), 0U);
    EXPECT_EQ(mask & (bitOf(SIGPIPE) | bitOf(SIGXFSZ) | bitOf(SIGCHLD)), c.ignored);
  }
}

TEST_F(SupportBundleTest, WeBlockTheSignalsAgainAfterTheScript) {
  host::installScript(kScript, "");
  const pid_t child = ::fork();
  if (child == 0) {
    prepareProcess();
    if (!runSupportBundle().isSuccess()) ::_exit(1);
    sigset_t blocked;
    ::sigprocmask(SIG_BLOCK, nullptr, &blocked);
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
      if (::sigismember(&blocked, signal) != 1) ::_exit(2);
    }
    ::_exit(0);
  }
  int waitStatus = 0;
  ASSERT_EQ(::waitpid(child, &waitStatus, 0), child);
  EXPECT_EQ(waitStatus, 0);
}

TEST_F(SupportBundleTest, AStandardOutputWithoutAReaderIsNoFailure) {
  host::installScript(kScript, "");
  Start start;
  start.readerGone = true;
  const Outcome outcome = runRavctl({"support", "bundle", "--verbose"}, start);
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.err, "");
}

TEST_F(SupportBundleTest, TheScriptInheritsNoDescriptorOfOurs) {
  host::installScript(kScript, "exec ls -l /proc/self/fd > /tmp/descriptors");
  EXPECT_EQ(runRavctl({"support", "bundle"}).out, "");
  EXPECT_THAT(host::readFile("/tmp/descriptors"), testing::Not(testing::HasSubstr(" 4 -> ")));
}

}  // namespace
