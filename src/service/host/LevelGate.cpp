#include "service/host/LevelGate.h"

#include <algorithm>
#include <cctype>
#include <cstring>

// The length of the head, or 0 if a control character stands in it: the parser treats that as a blank only at the ends
// of the text, and a zero byte or a line end may end the text there.
std::size_t LevelGate::headLength(std::string_view line) {
  const std::string_view longest = line.substr(0, longestHead);
  const auto end = std::find_if(longest.begin(), longest.end(), [](unsigned char byte) {
    return byte == ' ' || byte == ']' || std::iscntrl(byte) != 0;
  });
  if (end == longest.end()) return longestHead;
  return *end == ' ' || *end == ']' ? static_cast<std::size_t>(end - longest.begin()) + 1 : 0;
}

// Pads the line with zero bytes. No head contains one, so a line that ends within its head stays undecided.
LevelGate::Answer LevelGate::askPadded(std::string_view line) {
  std::array<char, longestHead> padded{};
  std::copy(line.begin(), line.end(), padded.begin());
  return ask({padded.data(), padded.size()});
}

LevelGate::Answer LevelGate::askParser(std::string_view line) {
  const std::size_t length = headLength(line);
  if (length == 0) return Answer::needsWholeText;
  KnownHead& known = slotOf(line);
  known.mask = {};
  std::memcpy(&known.mask, &allBits, length);
  known.bytes = {};
  std::memcpy(&known.bytes, line.data(), length);
  known.answer = passes(line.substr(0, length)) ? Answer::passes : Answer::below;
  return known.answer;
}
