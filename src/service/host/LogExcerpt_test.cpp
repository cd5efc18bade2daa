#include "service/host/LogExcerpt.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <limits>
#include <random>

#include "testing/faults/FaultInjector.h"
#include "testing/models/LogModel.h"
#include "testing/run/HostTest.h"

namespace {

using BasicLog::Level;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;
using namespace std::string_literals;

constexpr const char* kLog = "/tmp/hip.log";

class LogExcerptTest : public HostTest {};

Texts excerptOf(const std::string& content, Level threshold = Level::info, std::int32_t maxLines = 50) {
  host::writeFile(kLog, content);
  Texts lines = {"what was there before"};
  EXPECT_THAT(readLogExcerpt(kLog, threshold, maxLines, lines), HasCode(status::success));
  return lines;
}

std::string numbered(int count) {
  std::string content;
  for (int n = 1; n <= count; ++n) content += "line " + std::to_string(n) + "\n";
  return content;
}

// --- Which lines

TEST_F(LogExcerptTest, TheLastLinesAreInFileOrder) {
  EXPECT_THAT(excerptOf(numbered(10), Level::info, 3), ElementsAre("line 8", "line 9", "line 10"));
  EXPECT_THAT(excerptOf(numbered(2), Level::info, 3), ElementsAre("line 1", "line 2"));
}

TEST_F(LogExcerptTest, OnlyMatchingLinesAreCounted) {
  EXPECT_THAT(excerptOf("[ERROR] 1\n[DEBUG] 2\n[FATAL] 3\n[INFO] 4\n[ERROR] 5\nplain 6\n", Level::error, 2),
              ElementsAre("[FATAL] 3", "[ERROR] 5"));
}

TEST_F(LogExcerptTest, LinesAtTheThresholdAreShownAndLinesWithoutALevelAreInfo) {
  const std::string content =
      "[TRACE] t\n[DEBUG] d\n[INFO] i\n[NOTICE] n\n[WARN] w\n[ERR] e\n[FATAL] f\nplain\n[notes] on it\n";
  EXPECT_THAT(excerptOf(content, Level::trace).size(), 9u);
  EXPECT_THAT(excerptOf(content, Level::debug), ElementsAre("[DEBUG] d", "[INFO] i", "[NOTICE] n", "[WARN] w",
                                                            "[ERR] e", "[FATAL] f", "plain", "[notes] on it"));
  EXPECT_THAT(excerptOf(content, Level::info),
              ElementsAre("[INFO] i", "[NOTICE] n", "[WARN] w", "[ERR] e", "[FATAL] f", "plain", "[notes] on it"));
  EXPECT_THAT(excerptOf(content, Level::notice), ElementsAre("[NOTICE] n", "[WARN] w", "[ERR] e", "[FATAL] f"));
  EXPECT_THAT(excerptOf(content, Level::warning), ElementsAre("[WARN] w", "[ERR] e", "[FATAL] f"));
  EXPECT_THAT(excerptOf(content, Level::error), ElementsAre("[ERR] e", "[FATAL] f"));
  EXPECT_THAT(excerptOf(content, Level::fatal), ElementsAre("[FATAL] f"));
}

TEST_F(LogExcerptTest, MaxLinesZeroShowsNothing) { EXPECT_THAT(excerptOf(numbered(10), Level::info, 0), IsEmpty()); }

TEST_F(LogExcerptTest, ANegativeMaxLinesMeansFifty) {
  for (const std::int32_t negative : {-1, -5, std::numeric_limits<std::int32_t>::min()}) {
    SCOPED_TRACE(negative);
    const Texts lines = excerptOf(numbered(60), Level::info, negative);
    EXPECT_EQ(lines.size(), 50u);
    EXPECT_EQ(lines.front(), "line 11");
  }
}

TEST_F(LogExcerptTest, MaxLinesIsLimitedToAHundredThousand) {
  const std::string content = numbered(100010);
  for (const std::int32_t large : {100000, 100001, 200000, std::numeric_limits<std::int32_t>::max()}) {
    SCOPED_TRACE(large);
    const Texts lines = excerptOf(content, Level::info, large);
    ASSERT_EQ(lines.size(), 100000u);
    EXPECT_EQ(lines.front(), "line 11");
    EXPECT_EQ(lines.back(), "line 100010");
  }
  EXPECT_EQ(excerptOf(content, Level::info, 99999).front(), "line 12");
}

TEST_F(LogExcerptTest, AnEmptyLogHasNoLines) { EXPECT_THAT(excerptOf(""), IsEmpty()); }

// --- What a line is

TEST_F(LogExcerptTest, ALogMayHaveOneByteOrOneLine) {
  EXPECT_THAT(excerptOf("x"), ElementsAre("x"));
  EXPECT_THAT(excerptOf("x\n[ERROR] y"), ElementsAre("x", "[ERROR] y"));
  EXPECT_THAT(excerptOf("\n"), IsEmpty());
}

TEST_F(LogExcerptTest, LineEndsAreRemovedAndEmptyLinesSkipped) {
  EXPECT_THAT(excerptOf("one\r\n\n\r\n\r\r\ntwo\r\r\n \nthree"), ElementsAre("one", "two", " ", "three"));
  EXPECT_THAT(excerptOf("one\rtwo\n"), ElementsAre("one\rtwo"));
  EXPECT_THAT(excerptOf("\n"), IsEmpty());
  EXPECT_THAT(excerptOf("\n\n\nx"), ElementsAre("x"));
}

TEST_F(LogExcerptTest, EmptyLinesDoNotCount) {
  EXPECT_THAT(excerptOf("one\n\n\ntwo\n\n\n", Level::info, 2), ElementsAre("one", "two"));
}

TEST_F(LogExcerptTest, AZeroByteEndsTheText) {
  EXPECT_THAT(excerptOf("one\0more\ntwo\r\0more\n\0three\nfour\n"s), ElementsAre("one", "two", "four"));
  EXPECT_THAT(excerptOf("[ERROR\0] x\n[DEBUG] \0[ERROR]\n"s, Level::error), ElementsAre("[ERROR"));
}

TEST_F(LogExcerptTest, ALongLineIsCutIntoPiecesOf4095) {
  const std::string x(4095, 'x'), y(4095, 'y');
  EXPECT_THAT(excerptOf(x.substr(1) + "\nend\n"), ElementsAre(x.substr(1), "end"));
  EXPECT_THAT(excerptOf(x + "\nend\n"), ElementsAre(x, "end"));
  EXPECT_THAT(excerptOf(x + "z\nend\n"), ElementsAre(x, "z", "end"));
  EXPECT_THAT(excerptOf(x + y), ElementsAre(x, y));
  EXPECT_THAT(excerptOf("first\n" + x + y + "z", Level::info, 2), ElementsAre(y, "z"));
}

TEST_F(LogExcerptTest, EachPieceHasItsOwnLevel) {
  const std::string first = "[ERROR] " + std::string(4095 - 8, 'x');
  const std::string second = "[DEBUG] " + std::string(4095 - 8, 'y');
  EXPECT_THAT(excerptOf(first + second + "[FATAL] z\n", Level::error), ElementsAre(first, "[FATAL] z"));
}

TEST_F(LogExcerptTest, AZeroByteEndsOnlyTheTextOfItsPiece) {
  const std::string first = "a\0"s + std::string(4093, 'x');
  EXPECT_THAT(excerptOf(first + "b\0c\n"s), ElementsAre("a", "b"));
}

TEST_F(LogExcerptTest, ACarriageReturnAtTheEndOfAPieceIsRemoved) {
  const std::string first = std::string(4094, 'x') + "\r";
  EXPECT_THAT(excerptOf(first + "\n"), ElementsAre(first.substr(0, 4094)));
  EXPECT_THAT(excerptOf(first + "rest\n"), ElementsAre(first.substr(0, 4094), "rest"));
}

TEST_F(LogExcerptTest, PiecesAreCutFromTheStartOfALineOfAnyLength) {
  // The line is longer than a buffer, and one of its pieces has a higher level.
  for (const std::size_t at : {std::size_t{0}, std::size_t{1}, std::size_t{31}, std::size_t{32}, std::size_t{99}}) {
    SCOPED_TRACE(at);
    std::string line;
    for (std::size_t piece = 0; piece < 100; ++piece) {
      line += (piece == at ? "[ERROR] here" : "[DEBUG] ....") + std::string(4095 - 12, 'x');
    }
    const std::string shown = "[ERROR] here" + std::string(4095 - 12, 'x');
    EXPECT_THAT(excerptOf(line, Level::error), ElementsAre(shown));
    EXPECT_THAT(excerptOf("[ERROR] before\n" + line + "\n[ERROR] after\n", Level::error),
                ElementsAre("[ERROR] before", shown, "[ERROR] after"));
  }
}

// --- Comparison with the model

class LogMaker {
 public:
  explicit LogMaker(unsigned seed) : random_(seed) {}

  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  // Makes a log of at least `size` bytes. A long line has at most about `longest` bytes.
  std::string log(std::size_t size, unsigned longest) {
    std::string content;
    while (content.size() < size) content += line(longest);
    if (below(3) == 0 && !content.empty()) content.pop_back();  // no last newline
    return content;
  }

 private:
  std::string line(unsigned longest) {
    static const char* const heads[] = {"[DEBUG 2024-03-01 12:00:05.000123] ",
                                        "[INFO] ",
                                        "[error] ",
                                        "W~ ",
                                        "f~",
                                        "EMERGENCY ",
                                        "[Critical]",
                                        "trace ",
                                        "plain ",
                                        "  [WARN] ",
                                        "\t[ERR",
                                        "",
                                        "",
                                        "[[ERROR] ",
                                        "errors ",
                                        "ERROR\t"};
    std::string text;
    switch (below(12)) {
      case 0:
        break;  // an empty line
      case 1:
        for (unsigned n = below(3 * 4095); n > 0; n /= 2) text += filler(below(4095)) + heads[below(16)];
        break;
      case 2:
        text = heads[below(16)] + filler(below(longest));
        break;
      case 3:
        text = heads[below(16)] + filler(4095u * (below(3) + 1) - 20 + below(26));
        break;
      default:
        text = heads[below(16)] + filler(below(80));
        break;
    }
    if (below(6) == 0) text.insert(below(static_cast<unsigned>(text.size()) + 1), 1, '\0');
    if (below(8) == 0) text.insert(below(static_cast<unsigned>(text.size()) + 1), 1, '\r');
    return text + (below(5) == 0 ? "\r\n" : "\n");
  }

  // The text contains level names, since a piece may begin anywhere inside a long line.
  std::string filler(unsigned length) {
    static const std::string parts[] = {"[ERROR] ", "[DEBUG] ", "xxxxxxxxxxxxxxxxxxxx",
                                        " ",        "F~",       std::string(500, 'y')};
    std::string text;
    while (text.size() < length) text += parts[below(6)];
    return text.substr(0, length);
  }

  std::mt19937 random_;
};

void expectAsModel(const std::string& content, LogMaker& maker) {
  const Level threshold = static_cast<Level>(static_cast<int>(Level::trace) + static_cast<int>(maker.below(7)));
  const Texts all = log_model::matchingLines(content, threshold);
  const auto matching = static_cast<std::int32_t>(all.size());
  const auto random = static_cast<std::int32_t>(maker.below(static_cast<unsigned>(matching) + 2));
  for (const std::int32_t maxLines : {0, 1, 2, 50, matching - 1, matching, matching + 1, random, 100000}) {
    SCOPED_TRACE("max_lines " + std::to_string(maxLines) + " of " + std::to_string(matching));
    Texts lines;
    ASSERT_THAT(readLogExcerpt(kLog, threshold, maxLines, lines), HasCode(status::success));
    ASSERT_TRUE(lines == log_model::lastOf(all, maxLines));
  }
}

TEST_F(LogExcerptTest, SmallLogsGiveTheLinesOfTheModel) {
  LogMaker maker(1);
  for (unsigned round = 0; round < 400; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    const std::string content = maker.log(maker.below(3000), 9000);
    host::writeFile(kLog, content);
    expectAsModel(content, maker);
    if (HasFatalFailure()) return;
  }
}

TEST_F(LogExcerptTest, LargeLogsGiveTheLinesOfTheModel) {
  LogMaker maker(2);
  for (unsigned round = 0; round < 40; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    const std::string content = maker.log(200000 + maker.below(300000), round % 2 == 0 ? 20000 : 300000);
    host::writeFile(kLog, content);
    expectAsModel(content, maker);
    if (HasFatalFailure()) return;
  }
}

// --- Cost

TEST_F(LogExcerptTest, TheLastLinesOfALargeLogTakeOneRead) {
  host::writeFile(kLog, numbered(1000000));
  Texts lines;
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(readLogExcerpt(kLog, Level::info, 50, lines), HasCode(status::success));
  EXPECT_THAT(counted.calls(), ElementsAre("openat", "fstat", "pread", "close"));
  EXPECT_EQ(lines.back(), "line 1000000");
}

TEST_F(LogExcerptTest, MaxLinesZeroReadsNothing) {
  host::writeFile(kLog, numbered(10));
  Texts lines;
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(readLogExcerpt(kLog, Level::info, 0, lines), HasCode(status::success));
  EXPECT_THAT(counted.calls(), ElementsAre("openat", "fstat", "close"));
}

TEST_F(LogExcerptTest, ALogOfShortLinesIsReadOnce) {
  const std::string content = numbered(1000000);
  host::writeFile(kLog, content);
  Texts lines;
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(readLogExcerpt(kLog, Level::error, 50, lines), HasCode(status::success));
  EXPECT_THAT(lines, IsEmpty());
  EXPECT_LE(counted.count(), content.size() / (128 * 1024) + 6);
}

TEST_F(LogExcerptTest, ALongLineIsReadTwice) {
  const std::string content(10000000, 'x');
  host::writeFile(kLog, content);
  Texts lines;
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(readLogExcerpt(kLog, Level::error, 50, lines), HasCode(status::success));
  EXPECT_LE(counted.count(), 2 * content.size() / (128 * 1024) + 8);
}

// The size is a multiple of the block size, so the file has exactly as many blocks as its size needs.
TEST_F(LogExcerptTest, ALogWithoutHolesIsNotSearchedForHoles) {
  host::writeFile(kLog, std::string(4096 * 500, 'x'));
  Texts lines;
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(readLogExcerpt(kLog, Level::error, 50, lines), HasCode(status::success));
  EXPECT_THAT(counted.calls(), testing::Not(testing::Contains("lseek")));
}

// --- Sparse logs

TEST_F(LogExcerptTest, SparseLogsGiveTheLinesOfTheModel) {
  const std::string lines = numbered(1000);
  const struct {
    const char* why;
    off_t size;
    host::Islands islands;
  } cases[] = {
      {"only a hole", 2000000, {}},
      {"lines before a hole", 2000000, {{0, lines}}},
      {"lines behind a hole", 2000000, {{2000000 - static_cast<off_t>(lines.size()), lines}}},
      {"lines between holes", 3000000, {{0, "first\n"}, {1000001, "\nsecond\n"}, {2999990, "third"}}},
      {"one line with texts between holes", 3000000, {{0, "first"}, {4095 * 200, "piece"}, {4095 * 400 + 1, "hidden"}}},
      {"a line end behind a hole of whole pieces", 4095 * 300 + 1, {{4095 * 300, "\n"}}},
      {"small holes", 300000, {{0, "a\n"}, {100000, "b\n"}, {200000, "\nc\n"}}},
  };
  for (const auto& c : cases) {
    std::string content(static_cast<std::size_t>(c.size), '\0');
    for (const host::Island& island : c.islands)
      content.replace(static_cast<std::size_t>(island.offset), island.text.size(), island.text);
    for (const std::int32_t maxLines : {1, 3, 50, 2000}) {
      SCOPED_TRACE(std::string(c.why) + ", " + std::to_string(maxLines));
      host::writeSparse(kLog, c.size, c.islands);
      Texts shown;
      EXPECT_THAT(readLogExcerpt(kLog, Level::info, maxLines, shown), HasCode(status::success));
      EXPECT_EQ(shown, log_model::lastOf(log_model::matchingLines(content, Level::info), maxLines));
    }
  }
}

TEST_F(LogExcerptTest, HolesOfASparseLogAreNotRead) {
  constexpr off_t most = std::numeric_limits<off_t>::max() - (1 << 20);  // pread(2) rejects larger offsets
  const host::Islands places[] = {{{0, "text\n"}}, {{most / 2, "\ntext\n"}}, {{most - 6, "\ntext\n"}}};
  for (const host::Islands& islands : places) {
    SCOPED_TRACE(islands[0].offset);
    host::writeSparse(kLog, most, islands);
    const ArmedFaults counted{FaultPlan{}};
    Texts lines;
    EXPECT_THAT(readLogExcerpt(kLog, Level::info, 50, lines), HasCode(status::success));
    EXPECT_THAT(lines, ElementsAre("text"));
    EXPECT_LT(counted.count(), 6000u);
  }
}

// --- Files that are missing or not regular

TEST_F(LogExcerptTest, AMissingLogIsAWarningAndGivesOneLine) {
  host::makeLink("/tmp/dangling", "/tmp/nowhere");
  host::writeFile("/tmp/plain", "");
  const std::string paths[] = {"/tmp/missing",
                               "/tmp/nowhere/hip.log",
                               "/tmp/dangling",
                               "/tmp/plain/hip.log",
                               "/tmp/" + std::string(300, 'x') + "/hip.log",
                               ""};
  for (const std::string& path : paths) {
    SCOPED_TRACE(path);
    Texts lines = {"what was there before"};
    EXPECT_THAT(readLogExcerpt(path, Level::info, 50, lines), HasCode(status::successWithWarnings));
    EXPECT_THAT(lines, ElementsAre("no logfile available for this profile"));
  }
}

TEST_F(LogExcerptTest, TheLineOfAMissingLogDoesNotDependOnMaxLines) {
  Texts lines;
  EXPECT_THAT(readLogExcerpt("/tmp/missing", Level::fatal, 0, lines), HasCode(status::successWithWarnings));
  EXPECT_THAT(lines, ElementsAre("no logfile available for this profile"));
}

TEST_F(LogExcerptTest, ALogThatIsNotARegularFileIsAnOpenError) {
  host::makeFifo("/tmp/fifo");
  host::makeDirs("/tmp/folder");
  host::makeLink("/tmp/loop", "/tmp/loop");
  for (const char* path : {"/tmp/fifo", "/tmp/folder", "/tmp/loop", "/dev/zero"}) {
    SCOPED_TRACE(path);
    Texts lines = {"what was there before"};
    EXPECT_THAT(readLogExcerpt(path, Level::info, 50, lines), HasCode(status::openError));
    EXPECT_THAT(lines, IsEmpty());
  }
}

TEST_F(LogExcerptTest, AnUnreadableLogIsAnOpenError) {
  host::writeFile(kLog, "line\n", 0000);
  const host::BoundByModes bound;
  Texts lines;
  EXPECT_THAT(readLogExcerpt(kLog, Level::info, 50, lines), HasCode(status::openError));
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(LogExcerptTest, ALinkIsFollowedAndTheNullDeviceCountsAsAnEmptyLog) {
  host::writeFile("/tmp/elsewhere", "line\n");
  host::makeLink(kLog, "/tmp/elsewhere");
  host::makeLink("/tmp/null", "/dev/null");
  Texts lines;
  EXPECT_THAT(readLogExcerpt(kLog, Level::info, 50, lines), HasCode(status::success));
  EXPECT_THAT(lines, ElementsAre("line"));
  EXPECT_THAT(readLogExcerpt("/tmp/null", Level::info, 50, lines), HasCode(status::success));
  EXPECT_THAT(lines, IsEmpty());
}

// --- Faults and other processes

TEST_F(LogExcerptTest, EveryFailedCallHasItsStatusAndGivesNoLines) {
  std::string content = "[ERROR] first\n" + std::string(300000, 'x') + "\n" + numbered(20000) + "[ERROR] last\n";
  const FaultLoop loop{[&] { host::writeFile(kLog, content); }};
  Texts lines;
  const std::size_t steps = forEachFault(
      loop, [&] { return readLogExcerpt(kLog, Level::error, 50, lines); },
      [&](const Status& s, const Fault& fault) {
        const StatusCode expected = fault.call.empty() || fault.call == "close" ? status::success
                                    : fault.call == "pread"                     ? status::readError
                                                                                : status::openError;
        EXPECT_THAT(s, HasCode(expected));
        EXPECT_EQ(lines.size(), expected == status::success ? 2u : 0u);
      });
  EXPECT_EQ(steps, 10u);
}

TEST_F(LogExcerptTest, AnInterruptedCallIsRetried) {
  host::writeFile(kLog, numbered(3));
  Texts lines;
  for (std::size_t at = 1; at <= 3; ++at) {
    SCOPED_TRACE(at);
    FaultPlan plan;
    plan.at = at;
    plan.error = EINTR;
    plan.calls = {"openat", "pread"};
    const ArmedFaults armed(plan);
    EXPECT_THAT(readLogExcerpt(kLog, Level::info, 50, lines), HasCode(status::success));
    EXPECT_THAT(lines, ElementsAre("line 1", "line 2", "line 3"));
  }
}

TEST_F(LogExcerptTest, ShortReadsAreContinued) {
  const std::string content = numbered(20) + std::string(5000, 'x') + "\nlast\n";
  host::writeFile(kLog, content);
  FaultPlan plan;
  plan.oneByteAtATime = true;
  const ArmedFaults armed(plan);
  Texts lines;
  EXPECT_THAT(readLogExcerpt(kLog, Level::info, 4, lines), HasCode(status::success));
  EXPECT_THAT(lines, ElementsAre("line 20", std::string(4095, 'x'), std::string(905, 'x'), "last"));
}

// Reads the log; `meanwhile` runs just before the pread of that number.
Texts excerptWhile(std::size_t number, const std::function<void()>& meanwhile, Level threshold, std::int32_t maxLines) {
  FaultPlan plan;
  plan.calls = {"pread"};
  plan.before = [&](std::size_t at) {
    if (at == number) meanwhile();
  };
  const ArmedFaults armed(plan);
  Texts lines;
  EXPECT_THAT(readLogExcerpt(kLog, threshold, maxLines, lines), HasCode(status::success));
  EXPECT_GE(armed.count(), number);
  return lines;
}

TEST_F(LogExcerptTest, LinesWrittenDuringTheReadAreNotShown) {
  host::writeFile(kLog, "one\ntwo");
  const Texts lines = excerptWhile(
      1, [] { host::writeFile(kLog, "one\ntwo and more\nthree\n"); }, Level::info, 50);
  EXPECT_THAT(lines, ElementsAre("one", "two"));
}

TEST_F(LogExcerptTest, ALogThatIsRotatedDuringTheReadIsReadCompletely) {
  host::writeFile(kLog, numbered(3));
  const Texts lines = excerptWhile(
      1,
      [] {
        ASSERT_EQ(::rename(kLog, "/tmp/hip.log.1"), 0);
        host::writeFile(kLog, "new\n");
      },
      Level::info, 50);
  EXPECT_THAT(lines, ElementsAre("line 1", "line 2", "line 3"));
}

TEST_F(LogExcerptTest, ALogTruncatedDuringTheReadShowsTheRemainingLines) {
  struct Case {
    const char* why;
    std::string content;
    std::size_t atRead;
    off_t left;
    std::string last;
  };
  const std::string longLine = "[ERROR] long" + std::string(400000, 'x') + "\n";
  const Case cases[] = {
      {"the log is cut before the first read", "[ERROR] 1\n[ERROR] 2\n[ERROR] 3\n", 1, 10, "[ERROR] 1"},
      {"the log is cut within a line", "[ERROR] 1\n[ERROR] 2\n", 1, 19, "[ERROR] 2"},
      {"the log has several windows and is cut before the second", "[ERROR] 1\n" + numbered(60000), 2, 20, "[ERROR] 1"},
      {"the log is cut far before its end", "[ERROR] 1\n" + numbered(300000), 1, 10, "[ERROR] 1"},
      {"the log is cut while the start of a line is searched", "[ERROR] 1\n" + longLine, 3, 10, "[ERROR] 1"},
      {"the log is cut while the pieces of a line are read", "[ERROR] 1\n" + longLine, 6, 10, "[ERROR] 1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kLog, c.content);
    const Texts lines = excerptWhile(
        c.atRead, [&] { ASSERT_EQ(::truncate(kLog, c.left), 0); }, Level::error, 50);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), c.last);
  }
}

TEST_F(LogExcerptTest, ALogEmptiedDuringTheReadShowsNoLines) {
  host::writeFile(kLog, numbered(100000));
  const Texts lines = excerptWhile(
      1, [] { ASSERT_EQ(::truncate(kLog, 0), 0); }, Level::info, 50);
  EXPECT_THAT(lines, IsEmpty());
}

}  // namespace
