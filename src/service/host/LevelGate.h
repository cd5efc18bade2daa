// LevelGate: whether a line of a log is at or above a level, mostly told by its first bytes.
//
//   LevelGate gate(BasicLog::Level::warning);
//   if (gate.ask(line) == LevelGate::Answer::below) continue;      // a few nanoseconds, whatever the line holds
//   ...else the text of the line must be cut out, and gate.passes(text) tells...
//
// A level is the first word of a text, maybe behind a "[" (BasicLog::parseLogLevel), so its letters and the byte behind
// them decide. For words that can be a level the parser's answers are remembered, since asking it takes longer than
// finding the line; no level is named here. All in the header, since it runs once for each line of a log.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "log/front/BasicLog.h"

class LevelGate {
 public:
  explicit LevelGate(BasicLog::Level threshold) : threshold_(threshold), infoPasses_(isEnough(BasicLog::Level::info)) {}

  enum class Answer { passes, below, needsWholeText };

  // What the first bytes of a text tell. `passes` and `below` hold whatever follows them, also when a later zero byte
  // ends the text, and mean that the text is not empty.
  Answer ask(std::string_view head) {
    const bool isLikeLast = head.size() >= eight && (eightBytes(head.data()) & last_.mask) == last_.bytes;
    return isLikeLast ? last_.answer : askAnew(head);
  }

  // Asks the parser.
  bool passes(std::string_view text) const { return isEnough(BasicLog::parseLogLevel(text)); }

 private:
  static constexpr std::size_t eight = sizeof(std::uint64_t);
  static constexpr std::size_t longestName = 9;      // letters; longer words name no level
  static constexpr std::uint64_t bracketBit = 0x80;  // free, since the bytes of a key are ASCII
  static constexpr unsigned slotBits = 6;

  // The letters of a word and the byte behind them. No word is all zero.
  struct Key {
    std::uint64_t first = 0;
    std::uint64_t second = 0;
  };
  struct Slot {
    Key key;
    bool passes = false;
  };

  // The first bytes of the last text that decided about it: most texts begin like the one before.
  struct Last {
    std::uint64_t mask = 0;
    std::uint64_t bytes = 1;  // no text is so as yet
    Answer answer = Answer::needsWholeText;
  };

  bool isEnough(BasicLog::Level level) const { return level >= threshold_; }
  static Answer of(bool passes) { return passes ? Answer::passes : Answer::below; }

  // The first byte in the lowest bits.
  static std::uint64_t eightBytes(const char* text) {
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, text, eight);
    return __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? __builtin_bswap64(bytes) : bytes;
  }
  // The highest bit of each byte that is no ASCII letter. No addition carries into the next byte.
  static std::uint64_t notLetters(std::uint64_t bytes) {
    constexpr std::uint64_t each = 0x0101010101010101u;
    const std::uint64_t lower = (bytes | each * 0x20) & each * 0x7F;
    const std::uint64_t atLeastA = lower + each * (0x80 - 'a');
    const std::uint64_t aboveZ = lower + each * (0x7F - 'z');
    return ~(atLeastA & ~aboveZ & ~bytes) & each * 0x80;
  }
  static std::size_t lettersBefore(std::uint64_t others) {
    return static_cast<std::size_t>(__builtin_ctzll(others)) / 8;
  }
  static std::uint64_t upToFirst(std::uint64_t others, std::uint64_t bytes) {
    const std::uint64_t lowest = others & (~others + 1);
    return bytes & (lowest | (lowest - 1));
  }

  Answer askAnew(std::string_view head) {
    while (!head.empty() && (head.front() == ' ' || head.front() == '\t')) head.remove_prefix(1);
    const std::size_t bracket = !head.empty() && head.front() == '[' ? 1 : 0;
    if (head.size() < bracket + eight) return Answer::needsWholeText;
    const std::uint64_t bytes = eightBytes(head.data() + bracket);
    const std::uint64_t others = notLetters(bytes);
    if (others == 0) return askAboutLongWord(head, bracket, bytes);
    const std::size_t letters = lettersBefore(others);
    const Answer answer = decide(head, bracket, {upToFirst(others, bytes), 0}, letters);
    if (bracket + letters < eight) remember(head.data(), bracket + letters + 1, answer);
    return answer;
  }

  void remember(const char* text, std::size_t length, Answer answer) {
    const std::uint64_t mask = ~std::uint64_t{0} >> (64 - 8 * length);
    last_ = {mask, eightBytes(text) & mask, answer};
  }

  Answer askAboutLongWord(std::string_view head, std::size_t bracket, std::uint64_t firstBytes) {
    if (head.size() < bracket + 2 * eight) return Answer::needsWholeText;
    const std::uint64_t bytes = eightBytes(head.data() + bracket + eight);
    const std::uint64_t others = notLetters(bytes);
    const std::size_t letters = eight + (others == 0 ? eight : lettersBefore(others));
    if (letters > longestName) return of(infoPasses_);
    return decide(head, bracket, {firstBytes, upToFirst(others, bytes)}, letters);
  }

  Answer decide(std::string_view head, std::size_t bracket, Key key, std::size_t letters) {
    const auto behind = static_cast<unsigned char>(head[bracket + letters]);
    if (behind < ' ' || behind == 127) return Answer::needsWholeText;  // blank only if nothing else follows
    // A name is followed by a blank or a bracket; "~" is the second byte of the short names.
    if (behind != ' ' && behind != ']' && behind != '~') return of(infoPasses_);
    key.first |= bracket != 0 ? bracketBit : 0;
    const std::uint64_t hash = (key.first ^ key.second) * 0x9E3779B97F4A7C15u;
    Slot& slot = slots_[static_cast<std::size_t>(hash >> (64 - slotBits))];
    if (slot.key.first != key.first || slot.key.second != key.second) {
      slot = {key, passes(head.substr(0, bracket + letters + 1))};
    }
    return of(slot.passes);
  }

  BasicLog::Level threshold_;
  bool infoPasses_;
  Last last_;
  std::array<Slot, 1U << slotBits> slots_;
};
