// LevelGate: decides whether a line of a log is at or above a level, in most cases from the first bytes of the line.
//
//   LevelGate gate(BasicLog::Level::warning);
//   LevelGate::Answer answer = gate.ask(line);
//   if (answer == LevelGate::Answer::below) continue;
//   if (answer == LevelGate::Answer::passes || gate.passes(textOf(line))) show the line;
//
// The first word of a line decides about its level (see BasicLog::parseLogLevel), and the lines of a log begin with few
// different words. The gate asks the parser once for each such beginning and remembers its answer. It knows no level
// name itself; it relies only on the fact that no name is longer than a head (see longestHead).
//
// What it gains: where LevelSieve cannot skip lines, as on a long log of DEBUG lines that is listed from info on,
// `list log` executes 128 instructions a line. Asking the parser for every line costs 786 instructions a line and 2.8
// times the time.
//
// What runs for each line of a log is in the header, so that the compiler can inline it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "log/front/BasicLog.h"

class LevelGate {
 public:
  explicit LevelGate(BasicLog::Level threshold) : threshold_(threshold) {}

  enum class Answer { passes, below, needsWholeText };

  // Judges a line by its first bytes. `line` may be the whole line or only its beginning: `passes` and `below` are
  // right whatever follows, even if a zero byte later ends the text, and imply that the text is not empty.
  // `needsWholeText` means that the first bytes do not decide; the caller then calls passes() with the text.
  Answer ask(std::string_view line) {
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    if (line.size() < longestHead) return askPadded(line);
    const KnownHead& known = slotOf(line);
    return known.begins(line) ? known.answer : askParser(line);
  }

  // Asks the parser for the level of a text and returns true if it is at or above the threshold.
  bool passes(std::string_view text) const { return BasicLog::parseLogLevel(text) >= threshold_; }

 private:
  // The head of a line is its first word with the blank or "]" that ends it, or the first 16 bytes of a longer word.
  struct Head {
    std::uint64_t first, second;
  };
  static constexpr Head allBits = {UINT64_MAX, UINT64_MAX};
  static constexpr std::size_t longestHead = sizeof(Head);
  static constexpr std::size_t slotCount = 64;

  // A head and what the parser answered for it. `mask` has all bits set in the bytes that belong to the head, and
  // `bytes` is zero in the others. The default is a head of zero bytes, which needs the whole text.
  struct KnownHead {
    Head mask = allBits;
    Head bytes = {};
    Answer answer = Answer::needsWholeText;

    bool begins(std::string_view line) const {
      Head head;
      std::memcpy(&head, line.data(), sizeof head);
      return (head.first & mask.first) == bytes.first && (head.second & mask.second) == bytes.second;
    }
  };

  // The first two bytes of a line choose its slot. A new head replaces the old one of its slot.
  KnownHead& slotOf(std::string_view line) {
    return slots_[(static_cast<unsigned char>(line[0]) * 7U + static_cast<unsigned char>(line[1])) % slotCount];
  }

  static std::size_t headLength(std::string_view line);
  Answer askPadded(std::string_view line);
  Answer askParser(std::string_view line);

  BasicLog::Level threshold_;
  std::array<KnownHead, slotCount> slots_;
};
