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
const std::string kWhole = "open 0\nwrite 10\nwrite 10\nclose 0\n";  // the output of "write" without a fault
// The numbers of tracee's calls: poll is the first, and each printed line is a write of its own.
constexpr std::size_t kOpen = 2;
constexpr std::size_t kFirstWrite = 4;
constexpr std::size_t kClose = 8;

const std::vector<std::string> kCallsOfWrite = {"poll",  "openat", "write", "write", "write",
                                                "write", "write",  "close", "write", "exit_group"};

class TracerTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    if (!whyNoTracing().empty()) GTEST_SKIP() << whyNoTracing();
  }
};

TraceResult tracee(const std::string& action, TracePlan plan) {
  plan.begin = SYS_poll;
  return traceProgram({places::tracee(), action}, plan);
}

TraceResult tracee(const std::string& action, TracePlan::Meddle meddling = {}) {
  TracePlan plan;
  plan.meddling = meddling;
  return tracee(action, plan);
}

std::vector<TracedCall> callsOf(const std::string& action) {
  TracePlan plan;
  plan.keepCalls = true;
  return tracee(action, plan).calls;
}

// Returns the number of the first call of this name.
std::size_t numberOf(const std::string& name, const std::string& action) {
  const std::vector<TracedCall> calls = callsOf(action);
  const auto found =
      std::find_if(calls.begin(), calls.end(), [&](const TracedCall& call) { return call.name == name; });
  if (found == calls.end()) throw std::runtime_error("the program does not call " + name);
  return found->number;
}

std::vector<std::string> namesOf(const std::vector<TracedCall>& calls) {
  std::vector<std::string> names;
  for (const TracedCall& call : calls) names.push_back(call.name);
  return names;
}

TEST_F(TracerTest, TheRecordBeginsInMainAndSaysWhichFileACallUsesAndWhetherItChangesTheDisk) {
  const std::vector<TracedCall> calls = callsOf("write");
  ASSERT_EQ(namesOf(calls), kCallsOfWrite);
  EXPECT_EQ(calls[0].number, 1u);
  EXPECT_EQ(calls[kOpen - 1].path, kPath);
  EXPECT_TRUE(calls[kOpen - 1].makesFile);
  EXPECT_TRUE(calls[kOpen - 1].changesDisk);
  EXPECT_EQ(calls[kFirstWrite - 1].path, kPath);
  EXPECT_TRUE(calls[kFirstWrite - 1].changesDisk);
  EXPECT_FALSE(calls[kOpen].changesDisk) << "standard output is not a file";
  EXPECT_FALSE(calls[kClose - 1].changesDisk);
}

TEST_F(TracerTest, TheChosenCallsAndNoOthersAreChanged) {
  using M = Meddling;
  const std::string failed = "open 0\nwrite -1 No space left on device\nwrite 10\nclose 0\n";
  const std::string isShort = "open 0\nwrite 1\nwrite 10\nclose 0\n";
  const std::string kept = "0123456789abcdefghij";
  const struct {
    const char* why;
    TracePlan::Meddle meddling;
    std::size_t meddled;
    std::string out;
    std::string content;
    int signal = 0;
  } cases[] = {
      {"nothing is chosen", {}, 0, kWhole, kept},
      {"one call fails", {M::fail, kFirstWrite, 1, ENOSPC}, 1, failed, "abcdefghij"},
      {"later calls of its number fail too", {M::fail, kFirstWrite, kFromThereOn}, 5, "open 0\n", ""},
      {"a shortened write moves one byte", {M::shorten, kFirstWrite}, 1, isShort, "0abcdefghij"},
      {"a call without a length is not shortened", {M::shorten, kOpen}, 0, kWhole, kept},
      {"a pretended write is not executed and reports success", {M::pretend, kFirstWrite}, 1, kWhole, "abcdefghij"},
      {"a program is killed before the call", {M::kill, kFirstWrite}, 1, "open 0\n", "", SIGKILL},
      {"a crash is reported as its signal", {M::crash, kFirstWrite}, 1, "open 0\n", "0123456789", SIGABRT},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    const TraceResult result = tracee("write", c.meddling);
    EXPECT_EQ(result.out, c.out);
    EXPECT_EQ(result.meddled, c.meddled);
    if (c.meddled > 0) {
      EXPECT_EQ(result.meddledFirst.name, "write");
      EXPECT_EQ(result.meddledFirst.path, kPath);
    }
    EXPECT_EQ(result.signal, c.signal);
    EXPECT_EQ(result.exitStatus, c.signal == 0 ? 0 : -1);
    EXPECT_EQ(host::readFile(kPath), c.content);
  }
}

TEST_F(TracerTest, AFailedCloseReleasesTheDescriptor) {
  host::writeFile(kPath, "");
  EXPECT_EQ(tracee("read", {Meddling::fail, numberOf("close", "read"), 1, EINTR}).out,
            "read 0\nread 0\nagain -1 Interrupted system call\nagain -1 Bad file descriptor\n");
}

TEST_F(TracerTest, MmapReplacesAFailedBrkButFailsWithItFromThereOn) {
  const std::string both = "first 1\nsecond 1\n";
  EXPECT_EQ(tracee("grow").out, both);
  const std::size_t brk = numberOf("brk", "grow");
  EXPECT_EQ(tracee("grow", {Meddling::fail, brk, 1, ENOMEM}).out, both);
  EXPECT_EQ(tracee("grow", {Meddling::fail, brk, kFromThereOn, ENOMEM}).out, "first 0\nsecond 0\n");
}

TEST_F(TracerTest, AShortenedReadLeavesTheRemainderForTheNextRead) {
  host::writeFile(kPath, "0123456789");
  EXPECT_EQ(tracee("read", {Meddling::shorten, 3, 1}).out.substr(0, 14), "read 1\nread 9\n");
}

TEST_F(TracerTest, APretendedUnlinkRemovesNothing) {
  host::writeFile(kPath, "");
  EXPECT_EQ(tracee("unlink", {Meddling::pretend, 2}).out, "unlink 0\n");
  EXPECT_TRUE(host::exists(kPath));
}

TEST_F(TracerTest, TheTimeLimitKillsAProgramThatHangs) {
  TracePlan plan;
  plan.meddling = {Meddling::hang, kOpen};
  plan.seconds = 1;
  const TraceResult result = tracee("write", plan);
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

TEST_F(TracerTest, TheExitStatusIsReportedAndAMissingProgramIsAnError) {
  EXPECT_EQ(traceProgram({places::tracee()}, {}).exitStatus, 7);
  EXPECT_THROW(traceProgram({"/usr/bin/no-such-program"}, {}), std::runtime_error);
}

TEST_F(TracerTest, ACallbackRunsBeforeEachCallWhileTheProgramStandsStill) {
  std::vector<std::string> names;
  std::vector<std::string> contents;  // of the file, before each write to it
  std::vector<std::string> changes;   // the calls that change the disk
  TracePlan plan;
  plan.atEachCall = [&](const SystemCall& call) {
    names.push_back(nameOfCall(call.number));
    if (call.changesDisk) changes.push_back(names.back());
    if (call.number == SYS_write && call.arguments[0] > 2) contents.push_back(host::readFile(kPath));
    return Meddling::none;
  };
  const TraceResult result = tracee("write", plan);
  EXPECT_EQ(result.out, kWhole);
  EXPECT_EQ(result.meddled, 0u);
  EXPECT_EQ(names, kCallsOfWrite);
  EXPECT_EQ(contents, (std::vector<std::string>{"", "0123456789"}));
  EXPECT_EQ(changes, (std::vector<std::string>{"openat", "write", "write"}));
}

TEST_F(TracerTest, ACallbackDecidesAboutEachCall) {
  TracePlan plan;
  plan.meddling.error = ENOSPC;
  plan.atEachCall = [](const SystemCall& call) {
    if (call.number == SYS_close) return Meddling::pretend;
    return call.number == SYS_write && call.arguments[0] > 2 ? Meddling::fail : Meddling::none;
  };
  const TraceResult result = tracee("write", plan);
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
