#include "command/status/StatusCodes.h"

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace {

TEST(StatusText, KnowsEveryCommonCode) {
  const struct {
    StatusCode code;
    const char* text;
  } cases[] = {
      {0x00000001, "success"},
      {0x00000002, "success with warnings"},
      {0x10000001, "client error"},
      {0x10000002, "invalid command"},
      {0x10000003, "invalid argument"},
      {0x12000001, "application error"},
      {0x12000002, "authentication error (ravctl requires sudo for this command)"},
      {0x14000001, "error on host system"},
      {0x16000001, "error on external system"},
      {0x20000001, "multiple results"},
      {0x24000001, "internal error"},
      {0x24000002, "unimplemented"},
      {0x14000002, "stdlib error: opendir"},
      {0x14000003, "stdlib error: readlink"},
      {0x14000004, "stdlib error: file stat"},
      {0x14000005, "stdlib error: file open"},
      {0x14000006, "stdlib error: file read"},
      {0x14000007, "stdlib error: file write"},
      {0x14000008, "stdlib error: chmod"},
      {0x14000009, "stdlib error: getifaddrs"},
      {0x1400000a, "stdlib error: fork"},
      {0x1400000b, "stdlib error: waitpid"},
      {0x1400000c, "stdlib error: unlink"},
      {0x1400000d, "stdlib error: unlink(directory)"},
      {0x1400000e, "stdlib error: rmdir"},
      {0x1400000f, "stdlib error: mkdir"},
      {0x14000010, "stdlib error: rename"},
      {0x14000011, "stdlib error: copyfile"},
      {0x14000012, "stdlib error: getcwd"},
      {0x14000013, "stdlib error: system"},
      {0x00000000, "invalid status code"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.code);
    EXPECT_STREQ(statusText(c.code), c.text);
  }
}

TEST(StatusText, AnUnknownCodeHasTheTextOfItsCategory) {
  const struct {
    const char* why;
    StatusCode code;
    const char* text;
  } cases[] = {
      {"an unknown success", 0x00000500, "generic success"},
      {"success of an unknown application", 0x00fff001, "generic success"},
      {"an unknown client error", 0x10000099, "generic client error"},
      {"an unknown application error", 0x12000099, "generic application error"},
      {"an application id without a provider", 0x12002001, "generic application error"},
      {"a common number with another application id", 0x12fff001, "generic application error"},
      {"an unknown host error", 0x14000099, "generic host error"},
      {"an unknown external error", 0x16000099, "generic external-dependency error"},
      {"an unknown informational code", 0x20000099, "unrecognized informational status code"},
      {"an unknown transient error", 0x22000001, "unrecognized transient-error status code"},
      {"an unknown internal error", 0x24000099, "unrecognized internal-error status code"},
      {"between the categories", 0x11000000, "generic error code"},
      {"between the categories", 0x13000000, "generic error code"},
      {"between the categories", 0x15ffffff, "generic error code"},
      {"below the categories", 0x01000000, "unrecognized status code value"},
      {"below the categories", 0x0fffffff, "unrecognized status code value"},
      {"above 0x16", 0x17000000, "unrecognized status code value"},
      {"above 0x20", 0x21000001, "unrecognized status code value"},
      {"above 0x24", 0x25000000, "unrecognized status code value"},
      {"the largest positive number", 0x7fffffff, "unrecognized status code value"},
      {"the smallest negative number", 0x80000000, "integer is not a status code"},
      {"minus one", 0xffffffff, "integer is not a status code"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_STREQ(statusText(c.code), c.text);
  }
}

TEST(StatusText, IsNeverNull) {
  for (std::uint64_t code = 0; code <= 0xffffffff; code += 65'521) {
    ASSERT_NE(statusText(static_cast<StatusCode>(code)), nullptr) << code;
  }
}

// A provider cannot be removed, so each test uses its own application ids.

TEST(Registry, TheFirstTextInOrderOfRegistrationWins) {
  registerStatusTexts(0x701, [](StatusCode code) { return code == 0x10701001 ? "first" : nullptr; });
  registerStatusTexts(0x701, [](StatusCode code) { return (code & 0xfff) <= 2 ? "second" : nullptr; });
  registerStatusTexts(0x701, [](StatusCode) { return "third"; });
  EXPECT_STREQ(statusText(0x10701001), "first");
  EXPECT_STREQ(statusText(0x10701002), "second");
  EXPECT_STREQ(statusText(0x10701003), "third");
}

TEST(Registry, AProviderIsAskedOnlyForItsApplicationId) {
  registerStatusTexts(0x702, [](StatusCode) { return "mine"; });
  EXPECT_STREQ(statusText(0x00702123), "mine");
  EXPECT_STREQ(statusText(0x80702123), "mine");
  EXPECT_STREQ(statusText(0x00703123), "generic success");
}

TEST(Registry, ANullProviderIsIgnored) {
  registerStatusTexts(0x704, nullptr);
  EXPECT_STREQ(statusText(0x14704001), "generic host error");
}

TEST(Registry, TheCommonTableComesBeforeLaterProvidersOfApplicationId0) {
  registerStatusTexts(0, [](StatusCode code) { return code == 0x10000777 ? "added" : nullptr; });
  EXPECT_STREQ(statusText(0x10000001), "client error");
  EXPECT_STREQ(statusText(0x10000777), "added");
  EXPECT_STREQ(statusText(0x10000778), "generic client error");
}

TEST(Registry, TakesAnyNumberOfProviders) {
  for (std::uint32_t id = 0x800; id < 0x900; ++id) registerStatusTexts(id, [](StatusCode) { return "many"; });
  EXPECT_STREQ(statusText(0x10800001), "many");
  EXPECT_STREQ(statusText(0x108ff001), "many");
  EXPECT_STREQ(statusText(0x10900001), "generic client error");
}

TEST(StatusCode, IsASuccessWhenItsCategoryIsZero) {
  for (const StatusCode code : {0x00000000U, 0x00000001U, 0x00001001U, 0x00ffffffU}) EXPECT_TRUE(isSuccess(code));
  for (const StatusCode code : {0x01000000U, 0x10000001U, 0x20000001U, 0x22000001U, 0x80000000U}) {
    EXPECT_FALSE(isSuccess(code));
  }
}

TEST(Status, ADefaultStatusIsPlainSuccess) {
  const Status status;
  EXPECT_EQ(status.code(), 1U);
  EXPECT_TRUE(status.isSuccess());
  EXPECT_EQ(status.details(), "");
  EXPECT_EQ(status.context(), "");
  EXPECT_EQ(Status::success().code(), 1U);
}

TEST(Status, AStatusOfACodeHasNoDetailsAndNoContext) {
  const Status status = Status::of(0x20000001);
  EXPECT_EQ(status.code(), 0x20000001U);
  EXPECT_FALSE(status.isSuccess());
  EXPECT_EQ(status.details(), "");
  EXPECT_EQ(status.context(), "");
}

TEST(Status, SetCodeKeepsDetailsAndContext) {
  Status status = Status::error(status::invalidArgument, "illegal or missing parameter: x", "bind_json_args");
  EXPECT_EQ(status.code(), 0x10000003U);
  status.setCode(0x14000005);
  EXPECT_EQ(status.code(), 0x14000005U);
  EXPECT_EQ(status.details(), "illegal or missing parameter: x");
  EXPECT_EQ(status.context(), "bind_json_args");
}

TEST(Status, AssigningAStatusReplacesCodeDetailsAndContext) {
  Status status = Status::error(status::invalidArgument, "details", "context");
  status = Status::error(status::openError, "other", "");
  EXPECT_EQ(status.code(), 0x14000005U);
  EXPECT_EQ(status.details(), "other");
  EXPECT_EQ(status.context(), "");
}

// --- Children

template <typename Body>
int childThat(Body body) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    body();
    ::_exit(99);
  }
  return pid;
}

TEST(WaitForChild, AnExitIs1000PlusItsCode) {
  for (const int code : {0, 1, 3, 255}) {
    EXPECT_EQ(waitForChild(childThat([code] { ::_exit(code); })), 1000 + code);
  }
}

TEST(WaitForChild, ADeathBySignalIs2000PlusTheSignalNumber) {
  EXPECT_EQ(waitForChild(childThat([] { ::raise(SIGKILL); })), 2009);
  EXPECT_EQ(waitForChild(childThat([] {
              ::signal(SIGTERM, SIG_DFL);
              ::raise(SIGTERM);
            })),
            2015);
}

TEST(WaitForChild, PidZeroWasNeverStarted) { EXPECT_EQ(waitForChild(0), 3002); }

TEST(WaitForChild, AProcessThatIsNotAChildCannotBeWaitedFor) {
  EXPECT_EQ(waitForChild(1), 3001);
  const int pid = childThat([] { ::_exit(0); });
  EXPECT_EQ(waitForChild(pid), 1000);
  EXPECT_EQ(waitForChild(pid), 3001);
}

TEST(WaitForChild, ANegativePidNeverWaitsForOtherChildren) {
  const int pid = childThat([] { ::_exit(5); });
  EXPECT_EQ(waitForChild(-1), 3001);
  EXPECT_EQ(waitForChild(-pid), 3001);
  EXPECT_EQ(waitForChild(pid), 1005);
}

TEST(WaitForChild, AnInterruptedWaitIsRetried) {
  struct sigaction action {};
  struct sigaction old {};
  static volatile sig_atomic_t alarms = 0;
  alarms = 0;
  action.sa_handler = [](int) { alarms = alarms + 1; };  // without SA_RESTART
  ASSERT_EQ(::sigaction(SIGALRM, &action, &old), 0);
  const int pid = childThat([] {
    ::usleep(300'000);
    ::_exit(4);
  });
  ::ualarm(20'000, 20'000);
  EXPECT_EQ(waitForChild(pid), 1004);
  ::ualarm(0, 0);
  ::sigaction(SIGALRM, &old, nullptr);
  EXPECT_GE(alarms, 2);
}

TEST(WaitForChild, ATracedChildThatStopsIs2000PlusTheStoppingSignal) {
  const int pid = childThat([] {
    ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    ::raise(SIGSTOP);
    ::_exit(0);
  });
  const int outcome = waitForChild(pid);
  if (outcome == 1000) GTEST_SKIP() << "no tracing is allowed here";
  EXPECT_EQ(outcome, 2000 + SIGSTOP);
  ::kill(pid, SIGKILL);
  EXPECT_EQ(waitForChild(pid), 2009);
}

TEST(OutcomeOfWaitStatus, ReadsEveryKindOfStatus) {
  const struct {
    const char* why;
    int waitStatus, outcome;
  } cases[] = {
      {"a clean exit", 0x0000, 1000},
      {"exit code 3", 0x0300, 1003},
      {"exit code 255", 0xff00, 1255},
      {"signal 9", 0x0009, 2009},
      {"signal 11 with a core dump", 0x008b, 2011},
      {"stopped by signal 19", 0x137f, 2019},
      {"continued", 0xffff, 3001},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(outcomeOfWaitStatus(c.waitStatus), c.outcome);
  }
}

TEST(Outcomes, ExitAndSignalOutcomesHaveTheirRanges) {
  EXPECT_FALSE(isExitOutcome(999));
  EXPECT_TRUE(isExitOutcome(1000));
  EXPECT_TRUE(isExitOutcome(1999));
  EXPECT_FALSE(isExitOutcome(2000));
  EXPECT_FALSE(isSignalOutcome(1999));
  EXPECT_TRUE(isSignalOutcome(2000));
  EXPECT_TRUE(isSignalOutcome(2999));
  EXPECT_FALSE(isSignalOutcome(3000));
}

}  // namespace
