#include "service/host/LevelGate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using BasicLog::Level;
using Answer = LevelGate::Answer;

constexpr Level kLevels[] = {Level::trace,   Level::debug, Level::info, Level::notice,
                             Level::warning, Level::error, Level::fatal};

TEST(LevelGateTest, TheFirstWordDecides) {
  struct Case {
    const char* why;
    std::string_view text;
    Answer answer;
  };
  const Case cases[] = {
      {"a level in brackets with a time", "[DEBUG 2024-03-01 12:00:05.000123] hip: heartbeat", Answer::below},
      {"the threshold itself", "[WARNING 2024-03-01] low", Answer::passes},
      {"the alternate name", "WARN disk almost full", Answer::passes},
      {"any letter case", "eRRor disk full", Answer::passes},
      {"a short name", "E~ disk full", Answer::passes},
      {"a short name does not count behind a bracket", "[E~ disk full", Answer::below},
      {"a short name has one letter", "EE~ disk full", Answer::below},
      {"a word that only begins with a level name", "warnings are no level", Answer::below},
      {"a colon behind a level name", "error: is no level", Answer::below},
      {"a byte above 127 behind a level name", "error\x80 is no level", Answer::below},
      {"a date in front of a level name", "2024-03-01 12:00 error", Answer::below},
      {"blanks and tabs in front of a level name", "  \t [FATAL] is one", Answer::passes},
      {"a blank between the bracket and the level name", "[ ERROR] is none", Answer::below},
      {"a level name of eight letters", "CRITICAL overflow in queue", Answer::passes},
      {"a level name of eight letters in brackets", "[critical] overflow in queue", Answer::passes},
      {"a level name of nine letters, the longest", "[EMERGENCY 2024-03-01] out", Answer::passes},
      {"nine letters that are not a level name", "debugging is over for today", Answer::below},
      {"a level name of eight letters and a colon", "CRITICAL: overflow in queue", Answer::below},
      {"a word of ten letters that begins with a level name", "EMERGENCYX and a half of it", Answer::below},
      {"a word longer than any head", "abcdefghijklmnopqrstuvwxyz", Answer::below},
      {"a short line", "E~ x", Answer::passes},
      {"a short line that is below", "[INFO] x", Answer::below},
      {"a line that ends with its head", "[ERROR]", Answer::passes},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    LevelGate gate(Level::warning);
    EXPECT_EQ(gate.ask(c.text), c.answer);
    EXPECT_EQ(gate.ask(c.text), c.answer) << "the second time";
  }
}

TEST(LevelGateTest, ABeginningThatDoesNotDecideNeedsTheWholeText) {
  using namespace std::string_view_literals;
  static constexpr char kZeros[20] = {};
  for (const std::string_view head :
       {""sv, "ERROR"sv, "[ERROR"sv, "E~"sv, "ERROR\t         "sv, "ERROR\0 and more text"sv, "ERROR\r\n"sv,
        "ERROR\x7F        "sv, "\0 ERROR and more text"sv, "\r\n"sv, std::string_view(kZeros, sizeof kZeros),
        "           "sv, "CRITICAL"sv, "EMERGENCY"sv}) {
    EXPECT_EQ(LevelGate(Level::warning).ask(head), Answer::needsWholeText) << head;
  }
}

TEST(LevelGateTest, AKnownHeadDoesNotAnswerForASimilarOne) {
  LevelGate gate(Level::error);
  EXPECT_EQ(gate.ask("[ERROR] one and more text"), Answer::passes);
  EXPECT_EQ(gate.ask("[ERRO] two and more text"), Answer::below);
  EXPECT_EQ(gate.ask("ERROR] three and more"), Answer::passes);
  EXPECT_EQ(gate.ask("[ERROR: four and more text"), Answer::below);
  EXPECT_EQ(gate.ask("[error five and more text"), Answer::passes);
  EXPECT_EQ(gate.ask("[E~ six and more text"), Answer::below);
  EXPECT_EQ(gate.ask("E~ seven and more text"), Answer::passes);
  EXPECT_EQ(gate.ask("[E~ six and more text"), Answer::below);
  // A byte above 127 is not taken for a letter.
  LevelGate bytes(Level::error);
  EXPECT_EQ(bytes.ask("[eRROR] one and more text"), Answer::passes);
  EXPECT_EQ(bytes.ask("\xE5RROR] two and more text"), Answer::below);
  EXPECT_EQ(bytes.ask("[\xE5RROR] three and more"), Answer::below);
  // A short line does not match a longer head.
  for (const std::string_view line : {"[ERROR", "[ERRO", "[E", "["}) {
    EXPECT_EQ(gate.ask("[ERROR] two"), Answer::passes);
    EXPECT_EQ(gate.ask(line), Answer::needsWholeText) << line;
    EXPECT_EQ(gate.ask("[ERROR] two"), Answer::passes);
  }
}

TEST(LevelGateTest, LongHeadsThatDifferInTheirLastBytesAreKeptApart) {
  LevelGate gate(Level::fatal);
  for (char last = 'A'; last <= 'Z'; ++last) {
    for (const char behind : {' ', ']', '~'}) {
      const std::string other = std::string("EMERGENC") + last + behind + " and more text";
      EXPECT_EQ(gate.ask(other), last == 'Y' && behind != '~' ? Answer::passes : Answer::below) << other;
      EXPECT_EQ(gate.ask("EMERGENCY and more text"), Answer::passes);
      EXPECT_EQ(gate.ask("EMERGENC and more text"), Answer::below);
    }
  }
}

TEST(LevelGateTest, AOneBitDifferenceToALevelNameIsNoticed) {
  const std::string_view words[] = {"trace", "debug", "info",  "notice", "warn",  "warning",  "err",
                                    "error", "fatal", "panic", "alert",  "emerg", "critical", "emergency",
                                    "ERROR", "Warn",  "FATAL", "e~",     "W~",    "f~"};
  LevelGate gate(Level::warning);
  for (const char* bracket : {"", "["}) {
    for (const std::string_view word : words) {
      const std::string level = bracket + std::string(word) + "] and more text";
      const Answer answer = BasicLog::parseLogLevel(level) >= Level::warning ? Answer::passes : Answer::below;
      for (std::size_t at = 0; at < word.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
          std::string almost = level;
          char& letter = almost[std::strlen(bracket) + at];
          letter = static_cast<char>(letter ^ (1 << bit));
          const Answer other = gate.ask(almost);
          EXPECT_EQ(gate.ask(level), answer) << level << " after " << almost;
          if (other == Answer::needsWholeText) continue;
          EXPECT_EQ(other == Answer::passes, BasicLog::parseLogLevel(almost) >= Level::warning) << almost;
          EXPECT_EQ(gate.ask(almost), other) << almost << " after " << level;
        }
      }
    }
  }
}

TEST(LevelGateTest, PassesAsksTheParser) {
  const LevelGate gate(Level::warning);
  EXPECT_TRUE(gate.passes("ERROR\t"));
  EXPECT_TRUE(gate.passes("[ERROR"));
  EXPECT_FALSE(gate.passes("ERROR\t1"));
  EXPECT_FALSE(gate.passes(""));
}

// A text of pieces of level names and of a few other pieces.
std::string randomText(std::mt19937& random) {
  static const std::vector<std::string> pieces = {
      "TRACE",    "debug",    "Info", "NOTICE", "warn", "ING",  "ERR",  "or", "FATAL",    "panic", "EMERG", "ENCY",
      "alert",    "CRITICAL", "T~",   "d~",     "I~",   "n~",   "W~",   "e~", "F~",       "[",     "]",     " ",
      "\t",       "\x7f",     "\x80", ":",      "x",    "yes ", "123 ", "~",  "[[",       "s",     "e",     "some text",
      "received", "\x01",     "\n",   "\xff",   "A",    "z",    "@",    "`{", "EMERGENCY"};
  std::string text;
  for (auto n = random() % 6; n > 0; --n) text += pieces[random() % pieces.size()];
  if (random() % 8 == 0) text.insert(random() % (text.size() + 1), 1, '\0');
  return text;
}

TEST(LevelGateTest, AnAnswerFromTheBeginningHoldsForTheWholeText) {
  std::mt19937 random(20240301);
  std::vector<LevelGate> gates;
  for (const Level level : kLevels) gates.emplace_back(level);
  for (int round = 0; round < 200000; ++round) {
    const std::string head = randomText(random);
    std::string text = head + randomText(random);
    text.resize(std::min(text.size(), text.find('\0')));  // a zero byte ends the text
    const std::size_t which = random() % gates.size();
    const Answer answer = gates[which].ask(head);
    if (answer == Answer::needsWholeText) continue;
    ASSERT_NE(text, "") << head;
    ASSERT_EQ(answer == Answer::passes, BasicLog::parseLogLevel(text) >= kLevels[which]) << head << "|" << text;
  }
}

}  // namespace
