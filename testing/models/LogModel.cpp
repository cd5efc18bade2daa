#include "testing/models/LogModel.h"

namespace log_model {

using BasicLog::Level;

std::pair<Level, bool> levelOf(const std::string& whole) {
  static const std::string shortNames[] = {"T~", "D~", "I~", "N~", "W~", "E~", "F~"};
  static const std::pair<std::string, Level> names[] = {
      {"TRACE", Level::trace},    {"DEBUG", Level::debug},     {"INFO", Level::info},   {"NOTICE", Level::notice},
      {"WARN", Level::warning},   {"WARNING", Level::warning}, {"ERR", Level::error},   {"ERROR", Level::error},
      {"FATAL", Level::fatal},    {"PANIC", Level::fatal},     {"EMERG", Level::fatal}, {"EMERGENCY", Level::fatal},
      {"CRITICAL", Level::fatal}, {"ALERT", Level::fatal}};
  auto isBlank = [](char c) { return static_cast<unsigned char>(c) <= 32 || c == 127; };
  std::size_t start = 0;
  std::size_t end = whole.size();
  while (end > 0 && isBlank(whole[end - 1])) --end;
  while (start < end && isBlank(whole[start])) ++start;
  std::string text = whole.substr(start, end - start);
  for (char& c : text) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
  for (int i = 0; i < 7; ++i) {
    if (text.compare(0, 2, shortNames[i]) == 0) return {static_cast<Level>(static_cast<int>(Level::trace) + i), true};
  }
  if (!text.empty() && text[0] == '[') text.erase(0, 1);
  for (const auto& [name, level] : names) {
    if (text.compare(0, name.size(), name) != 0) continue;
    const char next = text.size() == name.size() ? ' ' : text[name.size()];
    if (next == ' ' || next == ']') return {level, true};
  }
  return {Level::info, false};
}

std::string textOf(const std::string& piece) {
  std::string text = piece.c_str();
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  return text;
}

std::vector<std::string> matchingLines(const std::string& log, Level threshold) {
  std::vector<std::string> lines;
  std::size_t at = 0;
  while (at < log.size()) {
    std::string piece;
    while (at < log.size() && piece.size() < 4095) {
      piece += log[at++];
      if (piece.back() == '\n') break;
    }
    const std::string text = textOf(piece);
    if (!text.empty() && levelOf(text).first >= threshold) lines.push_back(text);
  }
  return lines;
}

std::vector<std::string> lastOf(std::vector<std::string> lines, std::int32_t maxLines) {
  if (maxLines < 0) maxLines = 50;
  if (maxLines > 100000) maxLines = 100000;
  while (lines.size() > static_cast<std::size_t>(maxLines)) lines.erase(lines.begin());
  return lines;
}

}  // namespace log_model
