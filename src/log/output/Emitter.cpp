#include "log/output/Emitter.h"

#include <algorithm>
#include <cstddef>

namespace BasicLog {
namespace {

char sanitised(char c) {
  const auto byte = static_cast<unsigned char>(c);
  if (byte < 0x20) return ' ';
  return byte < 0x7f ? c : '?';
}

}  // namespace

std::string Emitter::formatHeader(const LogMessage& message) { return textHeader(message); }

std::string Emitter::formatBody(const LogMessage& message) { return textBody(message); }

void Emitter::emit(const LogMessage& message) {
  const std::string header = formatHeader(message);
  write(message.level, header, formatBody(message));
}

void appendSanitisedLine(std::string& text, std::string_view header, std::string_view body) {
  const std::size_t at = text.size();
  text.reserve(at + header.size() + body.size() + 2);
  text.append(header).append(1, ' ').append(body);
  const auto line = text.begin() + static_cast<std::ptrdiff_t>(at);
  const auto first = std::find_if(line, text.end(), [](char c) { return sanitised(c) != c; });
  std::transform(first, text.end(), first, sanitised);
}

std::string sanitisedLine(std::string_view header, std::string_view body) {
  std::string line;
  appendSanitisedLine(line, header, body);
  return line;
}

}  // namespace BasicLog
