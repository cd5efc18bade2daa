#include "service/host/LevelSieve.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

using BasicLog::Level;
using Texts = std::vector<std::string>;

// Clang compiles vectors of 32 bytes for every machine, too, because LevelSieve.cpp does not ask for AVX2 then.
const std::vector<Vectors>& allVectors() {
#ifdef __clang__
  constexpr bool workHere = true;
#else
  constexpr bool workHere = false;
#endif
  static const std::vector<Vectors> all = [] {
    std::vector<Vectors> found;
    for (const Vectors vectors : {Vectors::none, Vectors::of16Bytes, Vectors::of32Bytes}) {
      if (workHere || vectors <= widestVectors()) found.push_back(vectors);
    }
    return found;
  }();
  return all;
}

// Returns the lines that the sieve leaves to be judged, with their line ends, in the order of the log.
Texts judgedLines(const std::string& log, Level threshold, Vectors vectors) {
  LevelSieve sieve(log, threshold, vectors);
  Texts judged;
  for (std::size_t end = log.size(); end > 0;) {
    end = sieve.skip(end);
    const std::size_t before = end < 2 ? std::string::npos : log.rfind('\n', end - 2);
    const std::size_t start = before == std::string::npos ? 0 : before + 1;
    judged.push_back(log.substr(start, end - start));
    end = start;
  }
  std::reverse(judged.begin(), judged.end());
  return judged;
}

Texts linesOf(const std::string& log) {
  Texts lines;
  for (std::size_t start = 0; start < log.size();) {
    const std::size_t end = std::min(log.size(), log.find('\n', start)) + 1;
    lines.push_back(log.substr(start, end - start));
    start = end;
  }
  return lines;
}

// Returns the lines that the log model would show or cut into pieces.
Texts linesThatMatter(const Texts& lines, Level threshold) {
  Texts result;
  for (const std::string& line : lines) {
    const std::string text = line.substr(0, line.find_first_of(std::string("\0\n", 2)));
    if (line.size() > 4095 || (!text.empty() && BasicLog::parseLogLevel(text) >= threshold)) result.push_back(line);
  }
  return result;
}

std::string repeated(const std::string& lines, std::size_t size) {
  std::string log;
  while (log.size() < size) log += lines;
  return log;
}

TEST(LevelSieveTest, MostLinesOfUpToFourKindsAreSkipped) {
  const std::string filler = " 2024-03-01 12:00:05.000123] peer 7: received a control packet\n";
  struct Case {
    const char* why;
    std::string log;
    bool isSkipped;
  };
  const Case cases[] = {
      {"one level", repeated("[INFO" + filler, 100000), true},
      {"two levels", repeated("[INFO" + filler + "[DEBUG" + filler, 100000), true},
      {"three levels", repeated("[INFO" + filler + "[DEBUG" + filler + "[TRACE" + filler, 100000), true},
      {"four levels", repeated("[INFO" + filler + "[DEBUG" + filler + "[TRACE" + filler + "[NOTICE" + filler, 100000),
       true},
      {"five levels",
       repeated("[INFO" + filler + "[DEBUG" + filler + "[TRACE" + filler + "[NOTICE" + filler + "[WARNING" + filler,
                100000),
       false},
      {"lines without a level", repeated("2024-03-01 12:00:05" + filler, 100000), true},
      {"a level in every line that the second byte does not exclude", repeated("[ELSE" + filler, 100000), false},
      {"lines that begin with blanks", repeated("  INFO" + filler, 100000), false},
      {"lines whose second byte is zero", repeated(std::string("I\0", 2) + filler, 100000), false},
      {"lines of one byte", repeated("I\n", 10000), false},
      {"empty lines", repeated("\n", 10000), false},
  };
  for (const Case& c : cases) {
    for (const Vectors vectors : allVectors()) {
      SCOPED_TRACE(c.why + std::string(", vectors ") + std::to_string(static_cast<int>(vectors)));
      const std::size_t lines = linesOf(c.log).size();
      const std::size_t judged = judgedLines(c.log, Level::error, vectors).size();
      if (c.isSkipped && vectors != Vectors::none) {
        EXPECT_LT(judged, lines / 4);
      } else {
        EXPECT_EQ(judged, lines);
      }
      EXPECT_EQ(judgedLines(c.log, Level::info, vectors).size(), lines) << "every line may be info";
    }
  }
}

// The log has 16 lines of 64 bytes and `more` bytes in its first line. The sieve learns from the last block. It tests
// the next one at the end that lies 512 bytes before that of the log; a block needs two bytes behind it.
TEST(LevelSieveTest, ABlockIsTestedFromTheFirstEndBeforeItOn) {
  for (const std::size_t more : {1U, 2U}) {
    const std::string line = "[INFO" + std::string(64 - 6, '.') + "\n";
    const std::string log = "[INFO" + std::string(more, '.') + line.substr(5) + repeated(line, 15 * line.size());
    ASSERT_EQ(log.size(), 1024 + more);
    for (const Vectors vectors : allVectors()) {
      SCOPED_TRACE(std::to_string(more) + ", vectors " + std::to_string(static_cast<int>(vectors)));
      const bool isSkipped = more == 2 && vectors != Vectors::none;
      EXPECT_EQ(judgedLines(log, Level::error, vectors).size(), isSkipped ? 9u : 16u);
    }
  }
}

TEST(LevelSieveTest, ALineAmongSkippedOnesIsJudged) {
  const std::string info = "[INFO] the quick brown fox jumps over the lazy dog\n";
  for (const std::string& line : {std::string("[ERROR] here\n"), "F~\n" + info, std::string("error"), "[ALERT\n" + info,
                                  " E~ x\n" + info, std::string(4095, 'I') + "\n", std::string(2100, 'I') + "\n"}) {
    for (std::size_t at = 0; at < 3000; at += at < 2900 ? 61 : 1) {
      const std::string log = repeated(info, 4000) + line + repeated(info, 5000).substr(0, at / 50 * info.size()) +
                              std::string(at % 50, 'I') + "\n" + repeated(info, 3000);
      const Texts expected = linesThatMatter(linesOf(log), Level::error);
      for (const Vectors vectors : allVectors()) {
        const Texts judged = judgedLines(log, Level::error, vectors);
        ASSERT_EQ(linesThatMatter(judged, Level::error), expected) << line << at;
      }
    }
  }
}

TEST(LevelSieveTest, EveryLineThatMattersIsJudged) {
  static const std::string parts[] = {"[INFO",
                                      "[ERROR",
                                      "[DEBUG",
                                      "E~",
                                      "I",
                                      "[",
                                      " ",
                                      "\t",
                                      "warn ",
                                      "fatal]",
                                      "\n",
                                      "\n\n",
                                      "\r\n",
                                      "text",
                                      "]",
                                      "x",
                                      "~",
                                      "\n[",
                                      "\n[INFO] and a text\n"};
  std::mt19937 random(20241122);
  for (int round = 0; round < 300; ++round) {
    const std::size_t kinds = 1 + random() % 4;
    std::string log;
    while (log.size() < 30000) {
      for (auto n = random() % 300; n > 0; --n) log += "[" + std::string(1, "IDNT"[random() % kinds]) + " some text\n";
      for (auto n = random() % 6; n > 0; --n) log += parts[random() % std::size(parts)];
      if (random() % 20 == 0) log += std::string(random() % 5000, 'I');
      if (random() % 20 == 0) log += '\0';
    }
    const auto threshold = static_cast<Level>(static_cast<int>(Level::trace) + static_cast<int>(random() % 7));
    const Texts expected = linesThatMatter(linesOf(log), threshold);
    for (const Vectors vectors : allVectors()) {
      const Texts judged = judgedLines(log, threshold, vectors);
      ASSERT_EQ(linesThatMatter(judged, threshold), expected) << round;
    }
  }
}

TEST(LevelSieveTest, BytesThatCannotEndALevelNameNameNoLevel) {
  for (const Vectors vectors : allVectors()) {
    SCOPED_TRACE(static_cast<int>(vectors));
    for (const std::size_t size : {0U, 1U, 100U, 2047U, 2048U, 2049U, 10000U}) {
      EXPECT_EQ(mayNameLevel(std::string(size, 'x'), vectors), vectors == Vectors::none) << size;
    }
    for (int byte = 0; byte < 256; ++byte) {
      const bool canEnd = byte < '!' || byte == ']' || byte > '}';
      for (const std::size_t at : {0U, 1U, 15U, 16U, 31U, 32U, 2046U, 2047U, 2048U, 4095U, 4096U, 4099U}) {
        std::string bytes(4100, 'x');
        bytes[at] = static_cast<char>(byte);
        ASSERT_EQ(mayNameLevel(bytes, vectors), canEnd || vectors == Vectors::none) << byte << " at " << at;
      }
    }
  }
}

TEST(LevelSieveTest, ATextThatNamesALevelMayNameOne) {
  static const std::string parts[] = {"EMERGENCY", "[critical", "[WARNING", "err",  "E~", "~",
                                      " ",         "]",         "x",        "\x7f", "\t"};
  std::mt19937 random(5);
  for (int round = 0; round < 100000; ++round) {
    std::string text;
    for (auto n = random() % 5; n > 0; --n) text += parts[random() % std::size(parts)];
    text += std::string(16, 'x');
    Level level = Level::info;
    if (!BasicLog::parseLogLevel(text, level)) continue;
    for (const Vectors vectors : allVectors()) ASSERT_TRUE(mayNameLevel(text.substr(0, 16), vectors)) << text;
  }
}

}  // namespace
