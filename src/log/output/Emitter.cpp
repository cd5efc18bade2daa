#include "log/output/Emitter.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace BasicLog {
namespace {

constexpr std::size_t wordSize = sizeof(std::uint64_t);
constexpr std::uint64_t inEveryByte = 0x0101010101010101;

// Whether eight bytes need no change, looked at together: a byte below 0x20 borrows, one from 0x7f on has or gets the
// top bit. It may say no where a byte is fine, and never yes where one is not.
bool isPlain(const char* bytes) {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, wordSize);
  return (((word - 0x20 * inEveryByte) | (word + inEveryByte) | word) & (0x80 * inEveryByte)) == 0;
}

void sanitise(char* bytes, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    if (byte < 0x20) bytes[i] = ' ';
    if (byte >= 0x7f) bytes[i] = '?';
  }
}

}  // namespace

std::string Emitter::formatHeader(const LogMessage& message) { return textHeader(message); }

std::string Emitter::formatBody(const LogMessage& message) { return textBody(message); }

void Emitter::emit(const LogMessage& message) {
  const std::string header = formatHeader(message);
  write(message.level, header, formatBody(message));
}

void appendSanitisedLine(std::string& text, std::string_view header, std::string_view body) {
  std::size_t at = text.size();
  text.reserve(at + header.size() + body.size() + 2);
  text.append(header).append(1, ' ').append(body);
  while (at < text.size()) {
    const std::size_t end = std::min(at + wordSize, text.size());
    if (end - at < wordSize || !isPlain(&text[at])) sanitise(&text[at], end - at);
    at = end;
  }
}

std::string sanitisedLine(std::string_view header, std::string_view body) {
  std::string line;
  appendSanitisedLine(line, header, body);
  return line;
}

}  // namespace BasicLog
