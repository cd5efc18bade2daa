#include "command/status/StatusCodes.h"

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
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
    std::vector<StatusCode> codes;
    const char* text;
  } cases[] = {
      {"an unknown success", {0x00000500}, "generic success"},
      {"success of an unknown application", {0x00fff001}, "generic success"},
      {"an unknown client error", {0x10000099}, "generic client error"},
      {"an unknown application error", {0x12000099}, "generic application error"},
      {"an application id without a provider", {0x12002001, 0x12fff001}, "generic application error"},
      {"an unknown host error", {0x14000099}, "generic host error"},
      {"an unknown external error", {0x16000099}, "generic external-dependency error"},
      {"an unknown informational code", {0x20000099}, "unrecognized informational status code"},
      {"an unknown transient error", {0x22000001}, "unrecognized transient-error status code"},
      {"an unknown internal error", {0x24000099}, "unrecognized internal-error status code"},
      {"between the categories", {0x11000000, 0x13000000, 0x15ffffff}, "generic error code"},
      {"below the categories", {0x01000000, 0x0fffffff}, "unrecognized status code value"},
      {"above the categories", {0x17000000, 0x21000001, 0x25000000, 0x7fffffff}, "unrecognized status code value"},
      {"a negative number", {0x80000000, 0xffffffff}, "integer is not a status code"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    for (const StatusCode code : c.codes) EXPECT_STREQ(statusText(code), c.text) << code;
  }
}

TEST(StatusText, IsNeverNull) {
  for (std::uint64_t code = 0; code <= 0xffffffff; code += 65'521) {
    ASSERT_NE(statusText(static_cast<StatusCode>(code)), nullptr) << code;
  }
}

TEST(StatusText, ProvidersOfAnApplicationIdAreAskedInOrderOfRegistration) {
  registerStatusTexts(0x701, [](StatusCode code) { return code == 0x10701001 ? "first" : nullptr; });
  registerStatusTexts(0x701, [](StatusCode code) { return (code & 0xfff) <= 2 ? "second" : nullptr; });
  registerStatusTexts(0x701, [](StatusCode) { return "third"; });
  registerStatusTexts(0x702, [](StatusCode) { return "mine"; });
  registerStatusTexts(0x704, nullptr);
  registerStatusTexts(0, [](StatusCode code) { return code == 0x10000777 ? "added" : nullptr; });
  for (std::uint32_t id = 0x800; id < 0x900; ++id) registerStatusTexts(id, [](StatusCode) { return "many"; });
  const struct {
    const char* why;
    StatusCode code;
    const char* text;
  } cases[] = {
      {"the first provider knows the code", 0x10701001, "first"},
      {"only the second and the third provider know the code", 0x10701002, "second"},
      {"only the third provider knows the code", 0x10701003, "third"},
      {"a code of the id 0x702", 0x00702123, "mine"},
      {"a negative code of the id 0x702", 0x80702123, "mine"},
      {"no provider is asked for another id", 0x00703123, "generic success"},
      {"a null provider is ignored", 0x14704001, "generic host error"},
      {"the common table comes before a later provider of the id 0", 0x10000001, "client error"},
      {"a later provider of the id 0", 0x10000777, "added"},
      {"no provider of the id 0 knows the code", 0x10000778, "generic client error"},
      {"the first of 256 ids", 0x10800001, "many"},
      {"the last of 256 ids", 0x108ff001, "many"},
      {"the id after the last one", 0x10900001, "generic client error"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_STREQ(statusText(c.code), c.text);
  }
}

TEST(StatusCode, IsASuccessWhenItsCategoryIsZero) {
  for (const StatusCode code : {0x00000000U, 0x00000001U, 0x00001001U, 0x00ffffffU}) EXPECT_TRUE(isSuccess(code));
  for (const StatusCode code : {0x01000000U, 0x10000001U, 0x20000001U, 0x22000001U, 0x80000000U}) {
    EXPECT_FALSE(isSuccess(code));
  }
}

TEST(Status, HasACodeDetailsAndAContext) {
  const Status error = Status::error(status::invalidArgument, "illegal or missing parameter: x", "bind_json_args");
  Status withOtherCode = error;
  withOtherCode.setCode(0x14000005);
  Status assigned = error;
  assigned = Status::error(status::openError, "other", "");
  const struct {
    const char* why;
    Status status;
    StatusCode code;
    const char *details, *context;
  } cases[] = {
      {"a default status is plain success", Status(), 1, "", ""},
      {"plain success", Status::success(), 1, "", ""},
      {"a status of a code has no details and no context", Status::of(0x20000001), 0x20000001, "", ""},
      {"an error", error, 0x10000003, "illegal or missing parameter: x", "bind_json_args"},
      {"setCode keeps details and context", withOtherCode, 0x14000005, "illegal or missing parameter: x",
       "bind_json_args"},
      {"an assignment replaces code, details and context", assigned, 0x14000005, "other", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(c.status.code(), c.code);
    EXPECT_EQ(c.status.isSuccess(), c.code == 1);
    EXPECT_EQ(c.status.details(), c.details);
    EXPECT_EQ(c.status.context(), c.context);
  }
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

TEST(WaitForChild, AnExitIs1000PlusItsCodeAndADeathBySignal2000PlusTheSignalNumber) {
  for (const int code : {0, 1, 3, 255}) {
    EXPECT_EQ(waitForChild(childThat([code] { ::_exit(code); })), 1000 + code);
  }
  for (const int signal : {SIGKILL, SIGTERM}) {
    EXPECT_EQ(waitForChild(childThat([signal] {
                ::signal(signal, SIG_DFL);
                ::raise(signal);
              })),
              signal == SIGKILL ? 2009 : 2015);
  }
}

TEST(WaitForChild, OnlyAChildOfThisProcessCanBeWaitedForAndOnlyOnce) {
  EXPECT_EQ(waitForChild(0), 3002) << "pid 0 means that no child was started";
  errno = 0;
  EXPECT_EQ(waitForChild(1), 3001);
  EXPECT_EQ(errno, ECHILD) << "the system says that process 1 is no child of ours";
  const int pid = childThat([] { ::_exit(5); });
  EXPECT_EQ(waitForChild(-1), 3001) << "a negative pid waits for no child";
  EXPECT_EQ(waitForChild(-pid), 3001);
  EXPECT_EQ(waitForChild(pid), 1005);
  EXPECT_EQ(waitForChild(pid), 3001);
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
  const struct {
    int outcome;
    bool isExit, isSignal;
  } cases[] = {{999, false, false}, {1000, true, false}, {1999, true, false},
               {2000, false, true}, {2999, false, true}, {3000, false, false}};
  for (const auto& c : cases) {
    EXPECT_EQ(isExitOutcome(c.outcome), c.isExit) << c.outcome;
    EXPECT_EQ(isSignalOutcome(c.outcome), c.isSignal) << c.outcome;
  }
}

}  // namespace
