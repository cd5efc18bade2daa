#include "command/framework/LineOutput.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <vector>

#include "testing/faults/AllocationCount.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

// Captures what is written to one of the standard descriptors in its scope.
class Captured {
 public:
  explicit Captured(int descriptor)
      : descriptor_(descriptor), saved_(::dup(descriptor)), file_(::memfd_create("captured", MFD_CLOEXEC)) {
    ::dup2(file_, descriptor_);
  }
  ~Captured() {
    ::dup2(saved_, descriptor_);
    ::close(saved_);
    ::close(file_);
  }
  Captured(const Captured&) = delete;
  Captured& operator=(const Captured&) = delete;

  std::string text() const {
    std::string text(static_cast<std::size_t>(::lseek(file_, 0, SEEK_END)), '\0');
    EXPECT_EQ(::pread(file_, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    return text;
  }

 private:
  const int descriptor_, saved_, file_;
};

struct Said {
  std::string out, err;
  std::size_t writes = 0;
};

// Writes the lines and finishes, with the fault armed.
Said say(const std::vector<std::string>& lines, FaultPlan plan = {}) {
  plan.calls = {"write"};
  Said said;
  const Captured out(STDOUT_FILENO);
  const Captured err(STDERR_FILENO);
  {
    const ArmedFaults armed(plan);
    LineOutput output;
    for (const std::string& line : lines) output.put(line);
    output.finish();
    said.writes = armed.count();
  }
  said.out = out.text();
  said.err = err.text();
  return said;
}

void expectSaid(const Said& said, std::string_view out, const char* err, std::size_t writes, const char* why) {
  EXPECT_TRUE(said.out == out) << why << ": " << said.out.substr(0, 100);
  EXPECT_EQ(said.err, err) << why;
  EXPECT_EQ(said.writes, writes) << why;
}

// The plan in which the first write fails, and every later one too if `fromThereOn`.
FaultPlan failing(int error, bool fromThereOn = false) {
  FaultPlan plan;
  plan.at = 1;
  plan.error = error;
  plan.fromThereOn = fromThereOn;
  return plan;
}

constexpr const char* kDiskFull = "ravctl: can't write standard output: No space left on device\n";

TEST(LineOutput, AFewLinesAreOneWriteUnchangedUpToTheirFirstZeroByte) {
  expectSaid(say({"status_text: x", "", " two  blanks ", "%s%n", "\xff\x80"}),
             "status_text: x\n\n two  blanks \n%s%n\n\xff\x80\n", "", 1, "a few lines are one write");
  expectSaid(say({}), "", "", 0, "without lines nothing is written");
  expectSaid(say({std::string("ab\0cd", 5), std::string("\0x", 2), "next"}), "ab\n\nnext\n", "", 1,
             "a zero byte ends its line");
  const std::string longLine(5'000'000, 'y');
  expectSaid(say({longLine}), longLine + "\n", "", 1, "a very long line is one write");
}

TEST(LineOutput, LongOutputIsWrittenInLargePiecesUntilOneFails) {
  const std::vector<std::string> lines(10'000, std::string(99, 'x'));
  std::string expected;
  for (const std::string& line : lines) expected += line + "\n";
  expectSaid(say(lines), expected, "", 16, "a million bytes are written in pieces a little larger than 64 KiB");
  const std::string line(65'534, 'x');
  expectSaid(say({line, "y"}), line + "\ny\n", "", 1, "a line less than 64 KiB is not written at once");
  expectSaid(say({line + "x", "y"}), line + "x\ny\n", "", 2, "64 KiB are written at once");
  FaultPlan secondFails = failing(ENOSPC);
  secondFails.at = 2;
  expectSaid(say(lines, secondFails), expected.substr(0, 65'600), kDiskFull, 3,
             "after the first piece only the line on standard error is written");
}

TEST(LineOutput, AThousandBytesTakeOneAllocation) {
  for (const auto& [size, blocks] : {std::pair{1000u, 1}, {1001u, 2}}) {
    SCOPED_TRACE(size);
    const std::string line(size - 3, 'x');
    LineOutput output;
    const std::ptrdiff_t before = newBlocksSoFar();
    output.put("x");
    output.put(line);
    EXPECT_EQ(newBlocksSoFar() - before, blocks);
  }
}

TEST(LineOutput, AFailedWriteIsOneLineOnStandardError) {
  FaultPlan oneByte;
  oneByte.oneByteAtATime = true;
  expectSaid(say({"abc", "de"}, oneByte), "abc\nde\n", "", 7, "a short write is continued");
  expectSaid(say({"abc"}, failing(EINTR)), "abc\n", "", 2, "an interrupted write is retried");
  expectSaid(say({"abc"}, failing(EPIPE, true)), "", "", 1, "a closed pipe ends the output silently");
  expectSaid(say({"abc"}, failing(ENOSPC, true)), "", "", 2, "a failed write to standard error is not reported");
  const std::pair<int, std::string> cases[] = {{ENOSPC, "No space left on device"},
                                               {EIO, "Input/output error"},
                                               {EFBIG, "File too large"},
                                               {EBADF, "Bad file descriptor"}};
  for (const auto& [error, text] : cases) {
    expectSaid(say({"abc", "def"}, failing(error)), "", ("ravctl: can't write standard output: " + text + "\n").c_str(),
               2, text.c_str());
  }
}

TEST(LineOutput, WithoutFinishTheRemainingLinesAreNotWritten) {
  const Captured out(STDOUT_FILENO);
  { LineOutput().put("line"); }
  EXPECT_EQ(out.text(), "");
}

// --- The program's own output

using OutputTest = HostTest;

TEST_F(OutputTest, AClosedPipeIsNoFailureOfTheProgram) {
  Start start;
  start.readerGone = true;
  for (const auto& words : {std::vector<std::string>{}, {"reference"}, {"usage"}}) {
    const Outcome outcome = runRavctl(words, start);
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(outcome.err, "");
  }
  EXPECT_EQ(runRavctl({"bogus"}, start).exitStatus, 1);
}

TEST_F(OutputTest, AFullDevicePrintsOneLineAndKeepsTheExitStatus) {
  Start start;
  start.outputTo = "/dev/full";
  const std::pair<std::vector<std::string>, int> cases[] = {{{}, 0},
                                                            {{"reference"}, 0},
                                                            {{"list", "profiles", "--verbose"}, 0},
                                                            {{"bogus"}, 1},
                                                            {{"service", "start", "now"}, 1}};
  for (const auto& [words, exitStatus] : cases) {
    SCOPED_TRACE(testing::PrintToString(words));
    const Outcome outcome = runRavctl(words, start);
    EXPECT_EQ(outcome.exitStatus, exitStatus);
    EXPECT_EQ(outcome.err, kDiskFull);
  }
}

TEST_F(OutputTest, AFileSizeLimitIsAFailedWriteAndDoesNotKillTheProgram) {
  Start start;
  start.outputTo = "/tmp/output";
  start.fileLimit = 100;
  const Outcome outcome = runRavctl({"reference"}, start);
  EXPECT_EQ(outcome.signal, 0);
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.err, "ravctl: can't write standard output: File too large\n");
  EXPECT_EQ(host::readFile("/tmp/output").size(), 100U);
}

}  // namespace
