#include "service/host/LevelGate.h"

#include <algorithm>
#include <cstring>

// The length of the head, or 0 if a control character stands in it: the parser treats that as a blank only at the ends
// of the text, and a zero byte or a line end may end the text there.
std::size_t LevelGate::headLength(std::string_view line) {
  for (std::size_t i = 0; i < longestHead; ++i) {
    const auto byte = static_cast<unsigned char>(line[i]);
    if (byte == ' ' || byte == ']') return i + 1;
    if (byte < ' ' || byte == 127) return 0;
  }
  return longestHead;
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
  std::memset(known.mask, 0, longestHead);
  std::memset(known.mask, 0xFF, length);
  std::memset(known.bytes, 0, longestHead);
  std::memcpy(known.bytes, line.data(), length);
  known.answer = passes(line.substr(0, length)) ? Answer::passes : Answer::below;
  return known.answer;
}
