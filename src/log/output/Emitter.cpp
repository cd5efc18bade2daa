#include "log/output/Emitter.h"

#include <algorithm>

#include "base/text/StringUtils.h"

namespace BasicLog {
namespace {

char sanitised(char c) { return static_cast<unsigned char>(c) < 0x7f ? std::max(c, ' ') : '?'; }

}  // namespace

std::string Emitter::formatHeader(const LogMessage& message) { return textHeader(message); }

std::string Emitter::formatBody(const LogMessage& message) { return textBody(message); }

void Emitter::emit(const LogMessage& message) {
  const std::string header = formatHeader(message);
  write(message.level, header, formatBody(message));
}

void sanitise(std::string& line) {
  const auto first = std::find_if(line.begin(), line.end(), [](char c) { return sanitised(c) != c; });
  std::transform(first, line.end(), first, sanitised);
}

std::string sanitisedLine(std::string_view header, std::string_view body) {
  std::string line = StringUtils::concatenate({header, " ", body});
  sanitise(line);
  return line;
}

}  // namespace BasicLog
