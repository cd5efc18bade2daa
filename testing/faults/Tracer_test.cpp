#include "testing/faults/Tracer.h"

#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>

#include "testing/host/Places.h"
#include "testing/run/HostTest.h"

namespace {

constexpr const char* kPath = "/tmp/tracee";
// The numbers of tracee's calls: poll is the first, and each printed line is a write of its own.
constexpr std::size_t kOpen = 2;
constexpr std::size_t kFirstWrite = 4;
constexpr std::size_t kClose = 8;

class TracerTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    if (!whyNoTracing().empty()) GTEST_SKIP() << whyNoTracing();
  }
};

TraceResult tracee(const std::string& action, TracePlan::Meddle meddling = {}, unsigned seconds = 20) {
  TracePlan plan;
  plan.begin = SYS_poll;
  plan.meddling = meddling;
  plan.seconds = seconds;
  return traceProgram({places::tracee(), action}, plan);
}

std::vector<std::string> namesOf(const std::vector<TracedCall>& calls) {
  std::vector<std::string> names;
  for (const TracedCall& call : calls) names.push_back(call.name);
  return names;
}

TEST_F(TracerTest, WithoutMeddlingTheProgramRunsNormally) {
  const TraceResult result = tracee("write");
  EXPECT_EQ(result.out, "open 0\nwrite 10\nwrite 10\nclose 0\n");
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.signal, 0);
  EXPECT_EQ(result.meddled, 0u);
  EXPECT_EQ(host::readFile(kPath), "0123456789abcdefghij");
  EXPECT_EQ(traceProgram({places::tracee()}, {}).exitStatus, 7);
}

TEST_F(TracerTest, RecordingStartsAtTheFirstCallOfMain) {
  TracePlan plan;
  plan.begin = SYS_poll;
  plan.keepCalls = true;
  const TraceResult result = traceProgram({places::tracee(), "write"}, plan);
  EXPECT_EQ(namesOf(result.calls), (std::vector<std::string>{"poll", "openat", "write", "write", "write", "write",
                                                             "write", "close", "write", "exit_group"}));
  EXPECT_EQ(result.calls[0].number, 1u);
}

TEST_F(TracerTest, ARecordedCallHasItsFileAndItsEffectOnTheDisk) {
  TracePlan plan;
  plan.begin = SYS_poll;
  plan.keepCalls = true;
  const std::vector<TracedCall> calls = traceProgram({places::tracee(), "write"}, plan).calls;
  EXPECT_EQ(calls.at(kOpen - 1).path, kPath);
  EXPECT_TRUE(calls[kOpen - 1].makesFile);
  EXPECT_TRUE(calls[kOpen - 1].changesDisk);
  EXPECT_EQ(calls[kFirstWrite - 1].path, kPath);
  EXPECT_TRUE(calls[kFirstWrite - 1].changesDisk);
  EXPECT_FALSE(calls[kOpen].changesDisk) << "standard output is not a file";
  EXPECT_FALSE(calls[kClose - 1].changesDisk);
}

TEST_F(TracerTest, AChosenCallFailsOnce) {
  const TraceResult result = tracee("write", {Meddling::fail, kFirstWrite, 1, ENOSPC});
  EXPECT_EQ(result.out, "open 0\nwrite -1 No space left on device\nwrite 10\nclose 0\n");
  EXPECT_EQ(host::readFile(kPath), "abcdefghij");
  EXPECT_EQ(result.meddled, 1u);
  EXPECT_EQ(result.meddledFirst.name, "write");
  EXPECT_EQ(result.meddledFirst.path, kPath);
}

TEST_F(TracerTest, TheChosenCallAndAllLaterCallsOfItsNumberFail) {
  const TraceResult result = tracee("write", {Meddling::fail, kFirstWrite, kFromThereOn, EIO});
  EXPECT_EQ(result.out, "open 0\n");
  EXPECT_EQ(host::readFile(kPath), "");
  EXPECT_EQ(result.meddled, 5u);
  EXPECT_EQ(result.exitStatus, 0);
}

TEST_F(TracerTest, AFailedCloseReleasesTheDescriptor) {
  host::writeFile(kPath, "");
  TracePlan plan;
  plan.begin = SYS_poll;
  plan.keepCalls = true;
  const std::vector<TracedCall> calls = traceProgram({places::tracee(), "read"}, plan).calls;
  const auto close =
      std::find_if(calls.begin(), calls.end(), [](const TracedCall& call) { return call.name == "close"; });
  EXPECT_EQ(tracee("read", {Meddling::fail, close->number, 1, EINTR}).out,
            "read 0\nread 0\nagain -1 Interrupted system call\nagain -1 Bad file descriptor\n");
}

TEST_F(TracerTest, MmapReplacesAFailedBrkButFailsWithItFromThereOn) {
  TracePlan plan;
  plan.begin = SYS_poll;
  plan.keepCalls = true;
  const TraceResult free = traceProgram({places::tracee(), "grow"}, plan);
  const std::string both = "first 1\nsecond 1\n";
  EXPECT_EQ(free.out, both);
  const auto brk =
      std::find_if(free.calls.begin(), free.calls.end(), [](const TracedCall& call) { return call.name == "brk"; });
  ASSERT_NE(brk, free.calls.end());
  EXPECT_EQ(tracee("grow", {Meddling::fail, brk->number, 1, ENOMEM}).out, both);
  EXPECT_EQ(tracee("grow", {Meddling::fail, brk->number, kFromThereOn, ENOMEM}).out, "first 0\nsecond 0\n");
}

TEST_F(TracerTest, AShortenedWriteMovesOneByte) {
  const TraceResult result = tracee("write", {Meddling::shorten, kFirstWrite, 1});
  EXPECT_EQ(result.out, "open 0\nwrite 1\nwrite 10\nclose 0\n");
  EXPECT_EQ(host::readFile(kPath), "0abcdefghij");
}

TEST_F(TracerTest, AShortenedReadLeavesTheRemainderForTheNextRead) {
  host::writeFile(kPath, "0123456789");
  EXPECT_EQ(tracee("read", {Meddling::shorten, 3, 1}).out.substr(0, 14), "read 1\nread 9\n");
}

TEST_F(TracerTest, ACallWithoutALengthIsNotShortened) {
  const TraceResult result = tracee("write", {Meddling::shorten, kOpen, 1});
  EXPECT_EQ(result.meddled, 0u);
  EXPECT_EQ(host::readFile(kPath), "0123456789abcdefghij");
}

TEST_F(TracerTest, AProgramIsKilledBeforeTheChosenCall) {
  const TraceResult result = tracee("write", {Meddling::kill, kFirstWrite});
  EXPECT_EQ(result.signal, SIGKILL);
  EXPECT_EQ(result.exitStatus, -1);
  EXPECT_EQ(result.out, "open 0\n");
  EXPECT_EQ(host::readFile(kPath), "");
}

TEST_F(TracerTest, APretendedCallIsNotExecutedAndReportsSuccess) {
  EXPECT_EQ(tracee("write", {Meddling::pretend, kFirstWrite}).out, "open 0\nwrite 10\nwrite 10\nclose 0\n");
  EXPECT_EQ(host::readFile(kPath), "abcdefghij");
  EXPECT_EQ(tracee("unlink", {Meddling::pretend, 2}).out, "unlink 0\n");
  EXPECT_TRUE(host::exists(kPath));
}

TEST_F(TracerTest, ACrashIsReportedAsItsSignal) {
  EXPECT_EQ(tracee("write", {Meddling::crash, kOpen}).signal, SIGABRT);
}

TEST_F(TracerTest, TheTimeLimitKillsAProgramThatHangs) {
  const TraceResult result = tracee("write", {Meddling::hang, kOpen}, 1);
  EXPECT_TRUE(result.timedOut);
  EXPECT_EQ(result.signal, SIGKILL);
}

TEST_F(TracerTest, DescriptorsThatStayOpenAreReported) {
  EXPECT_EQ(tracee("leave-open").leftOpen, (std::vector<std::string>{"3 -> /etc/hosts"}));
  EXPECT_TRUE(tracee("write").leftOpen.empty());
  EXPECT_EQ(tracee("write", {Meddling::pretend, kClose}).leftOpen, (std::vector<std::string>{"3 -> /tmp/tracee"}));
}

TEST_F(TracerTest, AChildRunsUntracedAndIsWaitedFor) {
  EXPECT_EQ(tracee("fork").out, "fork 0\n");
  EXPECT_TRUE(host::exists(kPath));
}

TEST_F(TracerTest, AMissingProgramIsAnError) {
  EXPECT_THROW(traceProgram({"/usr/bin/no-such-program"}, {}), std::runtime_error);
}

TEST_F(TracerTest, ACallbackRunsBeforeEachCallWhileTheProgramStandsStill) {
  std::vector<std::string> names;
  std::vector<std::string> contents;  // of the file, before each write to it
  TracePlan plan;
  plan.begin = SYS_poll;
  plan.atEachCall = [&](const SystemCall& call) {
    names.push_back(nameOfCall(call.number));
    if (call.number == SYS_write && call.arguments[0] > 2) contents.push_back(host::readFile(kPath));
    return Meddling::none;
  };
  const TraceResult result = traceProgram({places::tracee(), "write"}, plan);
  EXPECT_EQ(result.out, "open 0\nwrite 10\nwrite 10\nclose 0\n");
  EXPECT_EQ(result.meddled, 0u);
  EXPECT_EQ(names, (std::vector<std::string>{"poll", "openat", "write", "write", "write", "write", "write", "close",
                                             "write", "exit_group"}));
  EXPECT_EQ(contents, (std::vector<std::string>{"", "0123456789"}));
}

TEST_F(TracerTest, ACallbackDecidesAboutEachCall) {
  TracePlan plan;
  plan.begin = SYS_poll;
  plan.meddling.error = ENOSPC;
  plan.atEachCall = [](const SystemCall& call) {
    if (call.number == SYS_close) return Meddling::pretend;
    return call.number == SYS_write && call.arguments[0] > 2 ? Meddling::fail : Meddling::none;
  };
  const TraceResult result = traceProgram({places::tracee(), "write"}, plan);
  const std::string failed = "write -1 No space left on device\n";
  EXPECT_EQ(result.out, "open 0\n" + failed + failed + "close 0\n");
  EXPECT_EQ(result.meddled, 3u);
  EXPECT_EQ(result.meddledFirst.name, "write");
  EXPECT_EQ(result.leftOpen, (std::vector<std::string>{"3 -> /tmp/tracee"}));
}

TEST_F(TracerTest, AnExceptionOfTheCallbackKillsTheProgramAndIsPassedOn) {
  TracePlan plan;
  plan.atEachCall = [](const SystemCall& call) -> Meddling {
    if (call.number == SYS_write) throw std::logic_error("stop here");
    return Meddling::none;
  };
  EXPECT_THROW(traceProgram({places::tracee(), "write"}, plan), std::logic_error);
  EXPECT_EQ(::waitpid(-1, nullptr, 0), -1) << "the program still exists";
  EXPECT_EQ(host::readFile(kPath), "");
}

}  // namespace
