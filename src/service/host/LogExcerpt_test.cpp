#include "service/host/LogExcerpt.h"

#include <unistd.h>

#include <algorithm>
#include <limits>
#include <random>

#include "service/host/LevelSieve.h"
#include "testing/faults/AllocationCount.h"
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

// Reads the file, expects this status, and returns the lines.
Texts linesOf(const std::string& path, Level threshold = Level::info, std::int32_t maxLines = 50,
              StatusCode expected = status::success) {
  Texts lines = {"what was there before"};
  EXPECT_THAT(readLogExcerpt(path, threshold, maxLines, lines), HasCode(expected));
  return lines;
}

Texts excerptOf(const std::string& content, Level threshold = Level::info, std::int32_t maxLines = 50) {
  host::writeFile(kLog, content);
  return linesOf(kLog, threshold, maxLines);
}

std::string numbered(int count) {
  std::string content;
  for (int n = 1; n <= count; ++n) content += "line " + std::to_string(n) + "\n";
  return content;
}

struct Case {
  const char* why;
  std::string content;
  Texts shown;
  std::int32_t maxLines = 50;
  Level threshold = Level::info;
};

void expectShown(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(excerptOf(c.content, c.threshold, c.maxLines), c.shown);
  }
}

// --- Which lines

TEST_F(LogExcerptTest, TheLastMatchingLinesAreInFileOrder) {
  const std::string mixed = "[ERROR] 1\n[DEBUG] 2\n[FATAL] 3\n[INFO] 4\n[ERROR] 5\nplain 6\n";
  expectShown({
      {"a longer log shows its last lines", numbered(10), {"line 8", "line 9", "line 10"}, 3},
      {"a shorter log shows all lines", numbered(2), {"line 1", "line 2"}, 3},
      {"only matching lines count", mixed, {"[FATAL] 3", "[ERROR] 5"}, 2, Level::error},
      {"empty lines do not count", "one\n\n\ntwo\n\n\n", {"one", "two"}, 2},
      {"a maximum of 0 shows nothing", numbered(10), {}, 0},
      {"an empty log has no lines", "", {}},
  });
}

TEST_F(LogExcerptTest, ANegativeMaxLinesMeansFiftyAndTheLimitIsAHundredThousand) {
  using Limits = std::numeric_limits<std::int32_t>;
  const std::pair<std::int32_t, std::size_t> cases[] = {
      {-1, 50},         {-5, 50},         {Limits::min(), 50}, {99999, 99999},
      {100000, 100000}, {100001, 100000}, {200000, 100000},    {Limits::max(), 100000}};
  for (const auto& [maxLines, shown] : cases) {
    SCOPED_TRACE(maxLines);
    const Texts lines = excerptOf(numbered(100010), Level::info, maxLines);
    ASSERT_EQ(lines.size(), shown);
    EXPECT_EQ(lines.front(), "line " + std::to_string(100011 - shown));
    EXPECT_EQ(lines.back(), "line 100010");
  }
}

// --- What a line is

TEST_F(LogExcerptTest, ALineEndsAtItsLineEndOrAtAZeroByte) {
  expectShown({
      {"a log of one byte", "x", {"x"}},
      {"the last line needs no line end", "x\n[ERROR] y", {"x", "[ERROR] y"}},
      {"a log of one empty line", "\n", {}},
      {"empty lines are skipped", "\n\n\nx", {"x"}},
      {"carriage returns at the end of a line are removed",
       "one\r\n\n\r\n\r\r\ntwo\r\r\n \nthree",
       {"one", "two", " ", "three"}},
      {"a carriage return inside a line remains", "one\rtwo\n", {"one\rtwo"}},
      {"a zero byte ends the text of its line", "one\0more\ntwo\r\0more\n\0three\nfour\n"s, {"one", "two", "four"}},
      {"a zero byte ends the level too", "[ERROR\0] x\n[DEBUG] \0[ERROR]\n"s, {"[ERROR"}, 50, Level::error},
  });
}

TEST_F(LogExcerptTest, ALongLineIsCutIntoPiecesOf4095) {
  const std::string x(4095, 'x'), y(4095, 'y'), almost(4094, 'x');
  const std::string error = "[ERROR] " + x.substr(8), debug = "[DEBUG] " + x.substr(8);
  expectShown({
      {"a line one byte below the limit", almost + "\nend\n", {almost, "end"}},
      {"a line at the limit", x + "\nend\n", {x, "end"}},
      {"a line one byte above the limit", x + "z\nend\n", {x, "z", "end"}},
      {"two full pieces", x + y, {x, y}},
      {"each piece counts as a line", "first\n" + x + y + "z", {y, "z"}, 2},
      {"each piece has its own level", error + debug + "[FATAL] z\n", {error, "[FATAL] z"}, 50, Level::error},
      {"a zero byte ends only the text of its piece", "a\0"s + x.substr(2) + "b\0c\n"s, {"a", "b"}},
      {"a carriage return at the end of a line of one piece is removed", almost + "\r\n", {almost}},
      {"a carriage return at the end of a piece is removed", almost + "\rrest\n", {almost, "rest"}},
  });
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

TEST_F(LogExcerptTest, PiecesAroundALongWordAreJudged) {
  // A long word cannot name a level, so its pieces are not read again. Those before and behind it are.
  const std::string word(600000, 'x');
  for (const std::size_t at :
       {std::size_t{1}, std::size_t{4094}, std::size_t{4095}, std::size_t{4096}, std::size_t{300000}}) {
    SCOPED_TRACE(at);
    std::string line = std::string(at, 'y') + " " + word + "[ERROR] middle " + word.substr(at % 4095) + " ";
    line += std::string(4095 - line.size() % 4095, 'z') + "[ERROR] piece " + word + "\n";
    for (const std::string& content :
         {line, "before\n" + line, line + "[ERROR] behind", "first\n" + line + numbered(40000)}) {
      host::writeFile(kLog, content);
      for (const Level threshold : {Level::info, Level::error}) {
        EXPECT_TRUE(linesOf(kLog, threshold, 100000) ==
                    log_model::lastOf(log_model::matchingLines(content, threshold), 100000));
      }
    }
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
    static const char* const heads[] = {
        "[DEBUG 12:00:05] ", "[INFO] ", "[error] ", "W~ ", "f~",        "EMERGENCY ", "[Critical]", "trace ", "plain ",
        "  [WARN] ",         "\t[ERR",  "",         "",    "[[ERROR] ", "errors ",    "ERROR\t"};
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
    const std::string word(below(length + 1), 'w');  // no byte of it ends a level name, so it is read once
    std::string text = below(2) == 0 ? word : "";
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

TEST_F(LogExcerptTest, RandomLogsGiveTheLinesOfTheModel) {
  const struct {
    const char* why;
    int rounds;
    unsigned least, more;  // the size of a log is `least` and up to `more` bytes
    unsigned longest;
  } cases[] = {
      {"small logs", 400, 0, 3000, 9000},
      {"large logs", 20, 200000, 300000, 20000},
      {"large logs with lines longer than a buffer", 10, 200000, 600000, 1000000},
  };
  LogMaker maker(1);
  for (const auto& c : cases) {
    for (int round = 0; round < c.rounds; ++round) {
      SCOPED_TRACE(std::string(c.why) + ", round " + std::to_string(round));
      const std::string content = maker.log(c.least + maker.below(c.more), c.longest);
      host::writeFile(kLog, content);
      expectAsModel(content, maker);
      if (HasFatalFailure()) return;
    }
  }
}

// --- Cost

// The size of the log without holes is a multiple of the block size, so the file has exactly as many blocks as its size
// needs. A search for holes would be a call of lseek.
TEST_F(LogExcerptTest, ALogIsReadOnceAndOnlyALongLineWithPossibleLevelsTwice) {
  constexpr std::size_t window = 256 * 1024;
  const std::string shortLines = numbered(1000000), longWord(10000000, 'x');
  std::string longLine;
  while (longLine.size() < longWord.size()) longLine += "a word and ";
  const std::size_t readsOfLongWord = widestVectors() == Vectors::none ? 2 : 1;
  const struct {
    const char* why;
    std::string content;
    Level threshold;
    std::int32_t maxLines;
    std::size_t mostCalls;
    const char* last;  // the last line shown; "": none
  } cases[] = {
      {"the last lines of a large log take one read", shortLines, Level::info, 50, 4, "line 1000000"},
      {"a maximum of 0 reads nothing", numbered(10), Level::info, 0, 3, ""},
      {"a log of short lines is read once", shortLines, Level::error, 50, shortLines.size() / window + 5, ""},
      {"a long line is read twice", longLine, Level::error, 50, 2 * longLine.size() / window + 6, ""},
      {"a long line without blanks is read once", longWord, Level::error, 50,
       readsOfLongWord * longWord.size() / window + 7, ""},
      {"a long line without blanks between others is read once", "[INFO] x " + longWord + " x\n" + numbered(10),
       Level::error, 50, readsOfLongWord * longWord.size() / window + 8, ""},
      {"a log without holes is not searched for holes", std::string(4096 * 500, 'x'), Level::error, 50, 50, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kLog, c.content);
    Texts lines, calls;
    {
      const ArmedFaults counted{FaultPlan{}};
      EXPECT_THAT(readLogExcerpt(kLog, c.threshold, c.maxLines, lines), HasCode(status::success));
      calls = counted.calls();
    }
    EXPECT_LE(calls.size(), c.mostCalls);
    calls.erase(std::remove(calls.begin(), calls.end(), "pread"), calls.end());
    EXPECT_THAT(calls, ElementsAre("openat", "fstat", "close"));
    EXPECT_EQ(lines.empty() ? "" : lines.back(), c.last);
  }
}

// Lines of 64 bytes. Each read but the first one starts with the line that the read before found incomplete.
TEST_F(LogExcerptTest, TheFirstReadHasEightKibibytesAndTheOthersHave256) {
  constexpr std::size_t first = 8 * 1024, window = 256 * 1024, line = 64;
  constexpr std::size_t inFiveReads = first + 4 * window - 4 * line;
  std::ptrdiff_t fewBlocks = 0;
  for (const auto& [size, reads] : {std::pair{first, 1u},
                                    {first + line, 2u},
                                    {first + window - line, 2u},
                                    {first + window, 3u},
                                    {inFiveReads, 5u},
                                    {inFiveReads + line, 6u}}) {
    SCOPED_TRACE(size);
    std::string content;
    while (content.size() < size) content += std::string(line - 1, 'x') + '\n';
    host::writeFile(kLog, content);
    Texts lines;
    const ArmedFaults counted({0, false, 0, {"pread"}});
    const std::ptrdiff_t before = newBlocksSoFar();
    EXPECT_THAT(readLogExcerpt(kLog, Level::error, 50, lines), HasCode(status::success));
    const std::ptrdiff_t blocks = newBlocksSoFar() - before;
    EXPECT_EQ(counted.count(), reads);
    if (reads == 2) fewBlocks = blocks;
    if (reads > 2) {
      EXPECT_EQ(blocks, fewBlocks) << "the buffer of the second read serves the later ones too";
    }
  }
}

// The second window begins within a line, and `end` bytes of the line are in it.
TEST_F(LogExcerptTest, OnlyALineWithMoreThanFourPiecesInTheWindowHasReadsOfItsOwn) {
  constexpr std::size_t first = 8 * 1024, window = 256 * 1024, line = 64;
  for (const auto& [end, reads] : {std::pair{4 * 4095u, 3u}, {4 * 4095u + 1, 4u}}) {
    SCOPED_TRACE(end);
    const std::size_t behind = window + first - line - end;
    std::string content = std::string(30000, 'x') + '\n' + std::string(behind % line, 'y');
    while (content.size() < 30001 + behind) content += std::string(line - 1, 'z') + '\n';
    host::writeFile(kLog, content);
    Texts lines;
    const ArmedFaults counted({0, false, 0, {"pread"}});
    EXPECT_THAT(readLogExcerpt(kLog, Level::info, 100000, lines), HasCode(status::success));
    EXPECT_EQ(counted.count(), reads);
    EXPECT_EQ(lines, log_model::matchingLines(content, Level::info));
  }
}

// A window that begins with the second byte of the log.
TEST_F(LogExcerptTest, TheFirstByteOfALogIsReadAlone) {
  for (const std::size_t size : {8191u, 8192u, 8193u, 8194u}) {
    SCOPED_TRACE(size);
    const std::string content = "first\n" + std::string(size - 7, 'x') + "\n";
    EXPECT_EQ(excerptOf(content), log_model::matchingLines(content, Level::info));
  }
  const std::string content = "\n" + std::string(3 * 256 * 1024, 'w');
  EXPECT_TRUE(excerptOf(content, Level::info, 1000) == log_model::matchingLines(content, Level::info));
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
      {"a hole behind the first byte of a piece", 4096 + (1 << 18), {{0, std::string(4096, 'x')}}},
  };
  for (const auto& c : cases) {
    std::string content(static_cast<std::size_t>(c.size), '\0');
    for (const host::Island& island : c.islands) {
      content.replace(static_cast<std::size_t>(island.offset), island.text.size(), island.text);
    }
    host::writeSparse(kLog, c.size, c.islands);
    for (const std::int32_t maxLines : {1, 3, 50, 2000}) {
      EXPECT_EQ(linesOf(kLog, Level::info, maxLines),
                log_model::lastOf(log_model::matchingLines(content, Level::info), maxLines))
          << c.why << ", " << maxLines;
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
    EXPECT_THAT(linesOf(kLog), ElementsAre("text"));
    EXPECT_LT(counted.count(), 6000u);
  }
}

TEST_F(LogExcerptTest, ALogOfTheLargestSizeIsReadFromItsEnd) {
  constexpr off_t kMost = std::numeric_limits<off_t>::max();
  const std::string words(1 << 20, 'w');
  host::writeSparse(kLog, kMost, {{kMost - static_cast<off_t>(words.size()), words}});
  const auto lines = linesOf(kLog, Level::info, 3);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], std::string(4095, 'w'));
  EXPECT_EQ(lines[1], std::string(4095, 'w'));
  EXPECT_EQ(lines[2], std::string(kMost % 4095, 'w'));
}

// The log has a hole and then words of one window, so that the search for the start of the line begins where they do.
TEST_F(LogExcerptTest, AHoleBeforeAWindowIsNotRead) {
  constexpr off_t hole = 1 << 24;
  host::writeSparse(kLog, hole + 256 * 1024, {{hole, std::string(256 * 1024, 'w')}});
  const ArmedFaults counted({0, false, 0, {"pread"}});
  linesOf(kLog);
  EXPECT_EQ(counted.count(), 3u) << "8 KiB, the window, and the last fifty pieces";
}

TEST_F(LogExcerptTest, ALogWithOneSmallHoleIsSearchedForHoles) {
  const std::string word(4096 * 999, 'w');
  host::writeSparse(kLog, 4096 + static_cast<off_t>(word.size()), {{4096, word}});
  const ArmedFaults counted({0, false, 0, {"lseek"}});
  linesOf(kLog);
  EXPECT_GT(counted.count(), 0u);
}

// --- Files that are missing or not regular

TEST_F(LogExcerptTest, AMissingLogIsAWarningAndGivesOneLine) {
  host::makeLink("/tmp/dangling", "/tmp/nowhere");
  host::writeFile("/tmp/plain", "");
  const std::string tooLong = "/tmp/" + std::string(300, 'x') + "/hip.log";
  for (const std::string& path :
       {"/tmp/missing"s, "/tmp/nowhere/hip.log"s, "/tmp/dangling"s, "/tmp/plain/hip.log"s, tooLong, ""s}) {
    for (const std::int32_t maxLines : {50, 0}) {
      SCOPED_TRACE(path + ", " + std::to_string(maxLines));
      EXPECT_THAT(linesOf(path, Level::fatal, maxLines, status::successWithWarnings),
                  ElementsAre("no logfile available for this profile"));
    }
  }
}

TEST_F(LogExcerptTest, ALogThatIsNotReadableOrNotRegularIsAnOpenError) {
  host::makeFifo("/tmp/fifo");
  host::makeDirs("/tmp/folder");
  host::makeLink("/tmp/loop", "/tmp/loop");
  host::writeFile(kLog, "line\n", 0000);
  const host::BoundByModes bound;
  for (const char* path : {"/tmp/fifo", "/tmp/folder", "/tmp/loop", "/dev/zero", kLog}) {
    SCOPED_TRACE(path);
    EXPECT_THAT(linesOf(path, Level::info, 50, status::openError), IsEmpty());
  }
}

TEST_F(LogExcerptTest, ALinkIsFollowedAndTheNullDeviceCountsAsAnEmptyLog) {
  host::writeFile("/tmp/elsewhere", "line\n");
  host::makeLink(kLog, "/tmp/elsewhere");
  host::makeLink("/tmp/null", "/dev/null");
  EXPECT_THAT(linesOf(kLog), ElementsAre("line"));
  EXPECT_THAT(linesOf("/tmp/null"), IsEmpty());
}

// --- Faults and other processes

TEST_F(LogExcerptTest, AFaultWhileOpeningOrReadingHasItsStatusAndGivesNoLines) {
  std::string content = "[ERROR] first\n";
  while (content.size() < 600000) content += "text ";
  content += "\n" + numbered(20000) + "[ERROR] last\n";
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
  EXPECT_EQ(steps, 11u);
}

TEST_F(LogExcerptTest, AnInterruptedCallIsRetriedAndAShortReadContinued) {
  host::writeFile(kLog, numbered(20) + std::string(5000, 'x') + "\nlast\n");
  std::vector<FaultPlan> plans(1);
  plans[0].oneByteAtATime = true;
  for (std::size_t at = 1; at <= 3; ++at) plans.push_back({at, false, EINTR, {"openat", "pread"}});
  for (const FaultPlan& plan : plans) {
    SCOPED_TRACE(plan.at);
    const ArmedFaults armed(plan);
    EXPECT_THAT(linesOf(kLog, Level::info, 4),
                ElementsAre("line 20", std::string(4095, 'x'), std::string(905, 'x'), "last"));
  }
}

// Reads the log; `meanwhile` runs just before the pread of that number.
Texts excerptWhile(std::size_t number, const std::function<void()>& meanwhile) {
  FaultPlan plan;
  plan.calls = {"pread"};
  plan.before = [&](std::size_t at) {
    if (at == number) meanwhile();
  };
  const ArmedFaults armed(plan);
  const Texts lines = linesOf(kLog, Level::error);
  EXPECT_GE(armed.count(), number);
  return lines;
}

TEST_F(LogExcerptTest, ALogChangedDuringTheReadShowsNoNewLines) {
  host::writeFile(kLog, "[ERROR] 1\n[ERROR] 2");
  EXPECT_THAT(excerptWhile(1, [] { host::writeFile(kLog, "[ERROR] 1\n[ERROR] 2 and more\n[ERROR] 3\n"); }),
              ElementsAre("[ERROR] 1", "[ERROR] 2"))
      << "lines were written";
  host::writeFile(kLog, "[ERROR] 1\n[ERROR] 2\n[ERROR] 3\n");
  const auto rotate = [] {
    ASSERT_EQ(::rename(kLog, "/tmp/hip.log.1"), 0);
    host::writeFile(kLog, "[ERROR] new\n");
  };
  EXPECT_THAT(excerptWhile(1, rotate), ElementsAre("[ERROR] 1", "[ERROR] 2", "[ERROR] 3")) << "the log was rotated";
  host::writeFile(kLog, "[ERROR] 1\n" + numbered(100000));
  EXPECT_THAT(excerptWhile(1, [] { ASSERT_EQ(::truncate(kLog, 0), 0); }), IsEmpty()) << "the log was emptied";
}

TEST_F(LogExcerptTest, ALogTruncatedDuringTheReadShowsTheRemainingLines) {
  struct Cut {
    const char* why;
    std::string content;
    std::size_t atRead;
    off_t left;
    const char* last;
  };
  std::string longLine = "[ERROR] long";
  while (longLine.size() < 400000) longLine += " text";
  longLine += '\n';
  const std::size_t inFirstWindow = 80 * 4095;
  std::string longWord(768 * 1024, 'x');
  longWord.replace(inFirstWindow, 5, "ERROR");
  const Cut cases[] = {
      {"the log is cut before the first read", "[ERROR] 1\n[ERROR] 2\n[ERROR] 3\n", 1, 10, "[ERROR] 1"},
      {"the log is cut within a line", "[ERROR] 1\n[ERROR] 2\n", 1, 19, "[ERROR] 2"},
      {"the log has several windows and is cut before the second", "[ERROR] 1\n" + numbered(60000), 2, 20, "[ERROR] 1"},
      {"the log is cut far before its end", "[ERROR] 1\n" + numbered(300000), 1, 10, "[ERROR] 1"},
      {"the log is cut while the start of a line is searched", "[ERROR] 1\n" + longLine, 3, 10, "[ERROR] 1"},
      {"the log is cut while the pieces of a line are read", "[ERROR] 1\n" + longLine, 5, 10, "[ERROR] 1"},
      {"the log is cut behind the first bytes of a piece", longWord, 3, inFirstWindow + 5, "ERROR"},
  };
  for (const Cut& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kLog, c.content);
    const Texts lines = excerptWhile(c.atRead, [&] { ASSERT_EQ(::truncate(kLog, c.left), 0); });
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), c.last);
  }
}

}  // namespace
