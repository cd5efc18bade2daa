#include "service/host/LevelGate.h"

#include <gtest/gtest.h>

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
      {"a short name is none in brackets", "[E~ disk full", Answer::below},
      {"a short name needs its first letter alone", "EE~ disk full", Answer::below},
      {"a longer word is no level", "warnings are no level", Answer::below},
      {"a colon ends no level", "error: is no level", Answer::below},
      {"a byte of 128 and above ends no level", "error\x80 is no level", Answer::below},
      {"no letter at all", "2024-03-01 12:00 error", Answer::below},
      {"blanks and tabs before it", "  \t [FATAL] is one", Answer::passes},
      {"a blank behind the bracket", "[ ERROR] is none", Answer::below},
      {"eight letters", "CRITICAL overflow in queue", Answer::passes},
      {"eight letters in brackets", "[critical] overflow in queue", Answer::passes},
      {"nine letters", "[EMERGENCY 2024-03-01] out", Answer::passes},
      {"nine letters that are no level", "debugging is over for today", Answer::below},
      {"eight letters and a colon", "CRITICAL: overflow in queue", Answer::below},
      {"ten letters", "EMERGENCYX and a half of it", Answer::below},
      {"twenty letters", "abcdefghijklmnopqrstuvwxyz", Answer::below},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    LevelGate gate(Level::warning);
    EXPECT_EQ(gate.ask(c.text), c.answer);
    EXPECT_EQ(gate.ask(c.text), c.answer) << "the second time";
  }
}

TEST(LevelGateTest, WhatLaterBytesCouldChangeIsLeftToTheWholeText) {
  using namespace std::string_view_literals;
  const std::string_view heads[] = {"",
                                    "ERROR",
                                    "[ERROR]",
                                    "E~",
                                    "ERROR\t         ",
                                    "ERROR\0 and more text"sv,
                                    "ERROR\r\n",
                                    "ERROR\x7F        ",
                                    "\0 ERROR and more text"sv,
                                    "\r\n",
                                    "           ",
                                    "CRITICAL 8",
                                    "EMERGENCY"};
  for (const std::string_view head : heads) {
    SCOPED_TRACE(head);
    LevelGate gate(Level::warning);
    EXPECT_EQ(gate.ask(head), Answer::needsWholeText);
  }
}

TEST(LevelGateTest, AWordIsNotMistakenForTheOneBefore) {
  LevelGate gate(Level::error);
  EXPECT_EQ(gate.ask("[ERROR] one and more text"), Answer::passes);
  EXPECT_EQ(gate.ask("[ERRO] two and more text"), Answer::below);
  EXPECT_EQ(gate.ask("ERROR] three and more"), Answer::passes);
  EXPECT_EQ(gate.ask("[ERROR: four and more text"), Answer::below);
  EXPECT_EQ(gate.ask("[error five and more text"), Answer::passes);
  EXPECT_EQ(gate.ask("[E~ six and more text"), Answer::below);
  EXPECT_EQ(gate.ask("E~ seven and more text"), Answer::passes);
  EXPECT_EQ(gate.ask("[E~ six and more text"), Answer::below);
}

TEST(LevelGateTest, AByteOf128AndAboveIsNotTakenForALetterInBrackets) {
  LevelGate gate(Level::error);
  EXPECT_EQ(gate.ask("[eRROR] one and more text"), Answer::passes);
  EXPECT_EQ(gate.ask("\xE5RROR] two and more text"), Answer::below);
  EXPECT_EQ(gate.ask("[\xE5RROR] three and more"), Answer::below);
}

TEST(LevelGateTest, LongWordsWithTheSameBeginningAreKeptApart) {
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

TEST(LevelGateTest, AWordThatIsAlmostALevelIsNotMistakenForIt) {
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

TEST(LevelGateTest, TheWholeTextIsAskedOfTheParser) {
  const LevelGate gate(Level::warning);
  EXPECT_TRUE(gate.passes("ERROR\t"));
  EXPECT_TRUE(gate.passes("[ERROR"));
  EXPECT_FALSE(gate.passes("ERROR\t1"));
  EXPECT_FALSE(gate.passes(""));
}

// Words made of the pieces that levels are made of, and a few that they are not.
std::string randomText(std::mt19937& random) {
  static const std::vector<std::string> pieces = {
      "TRACE",    "debug",    "Info", "NOTICE", "warn", "ING",  "ERR",  "or", "FATAL",    "panic", "EMERG", "ENCY",
      "alert",    "CRITICAL", "T~",   "d~",     "I~",   "n~",   "W~",   "e~", "F~",       "[",     "]",     " ",
      "\t",       "\x7f",     "\x80", ":",      "x",    "yes ", "123 ", "~",  "[[",       "s",     "e",     "some text",
      "received", "\x01",     "\n",   "\xff",   "A",    "z",    "@",    "`{", "EMERGENCY"};
  std::string text;
  for (auto n = random() % 6; n > 0; --n) text += pieces[random() % pieces.size()];
  return text;
}

TEST(LevelGateTest, AnAnswerIsThatOfTheParserWhateverFollows) {
  std::mt19937 random(20240301);
  std::vector<LevelGate> gates;
  for (const Level level : kLevels) gates.emplace_back(level);
  for (int round = 0; round < 200000; ++round) {
    const std::string head = randomText(random);
    const std::string text = head + randomText(random);
    const std::size_t which = random() % gates.size();
    const Answer answer = gates[which].ask(head);
    if (answer == Answer::needsWholeText) continue;
    ASSERT_EQ(answer == Answer::passes, BasicLog::parseLogLevel(text) >= kLevels[which]) << head << "|" << text;
  }
}

}  // namespace
