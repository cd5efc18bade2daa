#include "command/framework/LineOutput.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <vector>

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

FaultPlan failing(std::size_t at, int error, bool fromThereOn = false) {
  FaultPlan plan;
  plan.at = at;
  plan.error = error;
  plan.fromThereOn = fromThereOn;
  return plan;
}

TEST(LineOutput, AFewLinesAreOneWrite) {
  const Said said = say({"status_text: x", "", " two  blanks ", "%s%n", "\xff\x80"});
  EXPECT_EQ(said.out, "status_text: x\n\n two  blanks \n%s%n\n\xff\x80\n");
  EXPECT_EQ(said.err, "");
  EXPECT_EQ(said.writes, 1U);
}

TEST(LineOutput, WithoutLinesNothingIsWritten) {
  const Said said = say({});
  EXPECT_EQ(said.out, "");
  EXPECT_EQ(said.writes, 0U);
}

TEST(LineOutput, AZeroByteEndsItsLine) {
  EXPECT_EQ(say({std::string("ab\0cd", 5), std::string("\0x", 2), "next"}).out, "ab\n\nnext\n");
}

TEST(LineOutput, LongOutputIsWrittenInLargePieces) {
  const std::vector<std::string> lines(10'000, std::string(99, 'x'));
  std::string expected;
  for (const std::string& line : lines) expected += line + "\n";
  const Said said = say(lines);
  EXPECT_TRUE(said.out == expected);
  EXPECT_EQ(said.writes, 16U);  // a million bytes in pieces a little larger than 64 KiB
}

TEST(LineOutput, AVeryLongLineIsWrittenCompletely) {
  const std::string line(5'000'000, 'y');
  EXPECT_TRUE(say({line}).out == line + "\n");
}

TEST(LineOutput, AShortWriteIsContinued) {
  FaultPlan plan;
  plan.oneByteAtATime = true;
  const Said said = say({"abc", "de"}, plan);
  EXPECT_EQ(said.out, "abc\nde\n");
  EXPECT_EQ(said.err, "");
  EXPECT_EQ(said.writes, 7U);
}

TEST(LineOutput, AnInterruptedWriteIsRetried) {
  const Said said = say({"abc"}, failing(1, EINTR));
  EXPECT_EQ(said.out, "abc\n");
  EXPECT_EQ(said.err, "");
  EXPECT_EQ(said.writes, 2U);
}

TEST(LineOutput, AClosedPipeEndsTheOutputSilently) {
  const Said said = say({"abc"}, failing(1, EPIPE, true));
  EXPECT_EQ(said.out, "");
  EXPECT_EQ(said.err, "");
  EXPECT_EQ(said.writes, 1U);
}

TEST(LineOutput, AnyOtherFailurePrintsOneLineToStandardError) {
  const struct {
    int error;
    const char* line;
  } cases[] = {
      {ENOSPC, "ravctl: can't write standard output: No space left on device\n"},
      {EIO, "ravctl: can't write standard output: Input/output error\n"},
      {EFBIG, "ravctl: can't write standard output: File too large\n"},
      {EBADF, "ravctl: can't write standard output: Bad file descriptor\n"},
  };
  for (const auto& c : cases) {
    const Said said = say({"abc", "def"}, failing(1, c.error));
    EXPECT_EQ(said.out, "");
    EXPECT_EQ(said.err, c.line);
    EXPECT_EQ(said.writes, 2U);
  }
}

TEST(LineOutput, NothingIsWrittenAfterAFailure) {
  const std::vector<std::string> lines(10'000, std::string(99, 'x'));
  const Said said = say(lines, failing(2, ENOSPC));
  EXPECT_EQ(said.out.size(), 65'600U);  // only the first piece
  EXPECT_EQ(said.err, "ravctl: can't write standard output: No space left on device\n");
  EXPECT_EQ(said.writes, 3U);  // the third write is the line on standard error
}

TEST(LineOutput, AFailedWriteToStandardErrorIsNotReported) {
  const Said said = say({"abc"}, failing(1, ENOSPC, true));
  EXPECT_EQ(said.out, "");
  EXPECT_EQ(said.err, "");
  EXPECT_EQ(said.writes, 2U);
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
  const std::string line = "ravctl: can't write standard output: No space left on device\n";
  for (const auto& words : {std::vector<std::string>{}, {"reference"}, {"list", "profiles", "--verbose"}}) {
    const Outcome outcome = runRavctl(words, start);
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(outcome.err, line);
  }
  for (const auto& words : {std::vector<std::string>{"bogus"}, {"service", "start", "now"}}) {
    const Outcome outcome = runRavctl(words, start);
    EXPECT_EQ(outcome.exitStatus, 1);
    EXPECT_EQ(outcome.err, line);
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
