#include "base/files/KeyValueFile.h"

#include <set>
#include <vector>

#include "base/files/FileAccess.h"
#include "base/files/FileInfo.h"
#include "base/files/FileLock.h"
#include "base/files/WholeFile.h"
#include "base/text/StringUtils.h"

namespace FileUtils {
namespace {

using namespace std::string_view_literals;

constexpr mode_t newFileMode = 0640;
constexpr std::string_view lineBreaksAndZero = "\r\n\0"sv;

std::string_view trimmed(std::string_view text) { return StringUtils::trim(text, StringUtils::TrimSet::blanks); }

std::string_view withoutQuotes(std::string_view value) {
  if (value.size() < 2 || value.front() != value.back()) return value;
  const bool isQuoted = value.front() == '\'' || value.front() == '"';
  return isQuoted ? value.substr(1, value.size() - 2) : value;
}

bool canCarry(const std::string& key, const std::string& value, char separator) {
  return !key.empty() && trimmed(key).size() == key.size() && key.find(separator) == std::string::npos &&
         key.find('#') == std::string::npos && key.find_first_of(lineBreaksAndZero) == std::string::npos &&
         value.find_first_of(lineBreaksAndZero) == std::string::npos;
}

KeyValueMap pairsOf(const std::vector<std::string>& lines, char separator) {
  KeyValueMap pairs;
  std::string key;
  std::string value;
  std::string comment;
  for (const std::string& line : lines) {
    if (parseKeyValueLine(line, separator, key, value, comment)) pairs[key] = value;
  }
  return pairs;
}

// True if the file format can hold every pair that is not in the file already.
bool canCarryAll(const KeyValueMap& wanted, const KeyValueMap& present, char separator) {
  for (const auto& [key, value] : wanted) {
    const auto found = present.find(key);
    const bool isAsRead = found != present.end() && found->second == value;
    if (!isAsRead && !canCarry(key, value, separator)) return false;
  }
  return true;
}

// Builds the new text of a file line by line.
class Rewriter {
 public:
  Rewriter(const KeyValueMap& map, char separator) : map_(map), separator_(separator) {}

  void take(const std::string& line, bool isLast) {
    std::string key;
    std::string value;
    std::string comment;
    if (!parseKeyValueLine(line, separator_, key, value, comment)) {
      if (!line.empty() || !isLast) emit(line);
      return;
    }
    const auto wanted = map_.find(key);
    if (wanted == map_.end()) {
      hasChanged_ = true;
      return;
    }
    written_.insert(key);
    if (wanted->second != value) hasChanged_ = true;
    emit(key + separator_ + wanted->second + comment);
  }

  void appendMissing() {
    for (const auto& [key, value] : map_) {
      if (written_.count(key) != 0) continue;
      hasChanged_ = true;
      emit(key + separator_ + value);
    }
  }

  bool hasChanged() const { return hasChanged_; }
  const std::string& text() const { return text_; }

 private:
  void emit(const std::string& line) { text_.append(line).push_back('\n'); }

  const KeyValueMap& map_;
  const char separator_;
  std::set<std::string> written_;
  std::string text_;
  bool hasChanged_ = false;
};

}  // namespace

bool parseKeyValueLine(std::string_view line, char separator, std::string& key, std::string& value,
                       std::string& comment) {
  key.clear();
  value.clear();
  comment.clear();
  const std::string_view text = trimmed(line);
  const std::size_t split = text.find(separator);
  const std::size_t hash = text.find('#');
  if (split == std::string_view::npos || hash < split) return false;
  std::size_t valueEnd = text.size();
  if (hash != std::string_view::npos && hash > split + 1) {
    comment.assign(" ").append(text.substr(hash));
    valueEnd = hash;
  }
  key = trimmed(text.substr(0, split));
  value = withoutQuotes(trimmed(text.substr(split + 1, valueEnd - split - 1)));
  return true;
}

bool readKeyValueFile(const std::string& path, KeyValueMap& map, char separator) {
  const FileLock lock(path);
  std::vector<std::string> lines;
  if (!lock.isLocked() || !readLines(path, lines).isSuccess()) return false;
  for (auto& [key, value] : pairsOf(lines, separator)) map[key] = value;
  return true;
}

bool writeKeyValueFile(const std::string& path, const KeyValueMap& map, char separator) {
  const FileLock lock(path);
  if (!lock.isLocked()) return false;
  std::vector<std::string> lines;
  if (!readLines(path, lines).isSuccess() && isRegularFile(path)) return false;
  if (!canCarryAll(map, pairsOf(lines, separator), separator)) return false;
  Rewriter rewriter(map, separator);
  for (std::size_t i = 0; i < lines.size(); ++i) rewriter.take(lines[i], i + 1 == lines.size());
  rewriter.appendMissing();
  if (!rewriter.hasChanged()) return true;
  return replaceContent(path, rewriter.text(), newFileMode, SetMode::onNewFiles, Access::ofSystem).isSuccess();
}

bool setKeyValue(const std::string& path, const std::string& key, const std::string& value) {
  KeyValueMap map;
  if (!readKeyValueFile(path, map, '=') && isRegularFile(path)) return false;
  const auto found = map.find(key);
  if (found != map.end() && found->second == value) return true;
  map[key] = value;
  return writeKeyValueFile(path, map, '=');
}

bool setKeyValues(const std::string& path, const KeyValueMap& updates, char separator) {
  KeyValueMap map;
  if (!readKeyValueFile(path, map, separator)) return false;
  for (const auto& [key, value] : updates) map[key] = value;
  return writeKeyValueFile(path, map, '=');
}

std::string getKeyValue(const std::string& path, const std::string& key) {
  KeyValueMap map;
  if (!readKeyValueFile(path, map, '=')) return std::string();
  const auto found = map.find(key);
  return found == map.end() ? std::string() : found->second;
}

std::int32_t getKeyValueInt(const std::string& path, const std::string& key, std::int32_t fallback) {
  std::int32_t number = fallback;
  return StringUtils::parseInt32(getKeyValue(path, key), number) ? number : fallback;
}

}  // namespace FileUtils
