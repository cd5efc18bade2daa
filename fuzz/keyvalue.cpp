// Laws of key=value files, for any content. The model below is a simple second implementation of the format.
// - Writing back the pairs that were read does not change a byte of the file, unless a key occurs twice.
// - Setting a key gives the file of the model: the line of the key has the new value and keeps its comment, other pairs
//   are in normal form, every other line is unchanged, and an empty last line is removed.
// - The file then reads back with the new value and the same keys. Values that need no quotes are the same too.
// - Setting the key again changes nothing. If no value needs quotes and the last line is not empty, setting another
// value
//   and then the first one again does not change the file either. Each write removes an empty last line.
// - A failed edit leaves the old bytes, of which the first may be overwritten by new ones. It never empties the file.
// Input: faults (fuzz::faults), a file.
#include <algorithm>
#include <cstdint>

#include "base/files/KeyValueFile.h"
#include "fuzz/FuzzTarget.h"

namespace {

using fuzz::contentOf;
using fuzz::require;

constexpr const char* fuzzedKey = "fuzzed key";

bool isBlank(char c) { return static_cast<unsigned char>(c) <= 32 || c == 127; }

bool needsNoQuotes(const std::string& value) {
  if (value.empty()) return true;
  if (isBlank(value.front()) || isBlank(value.back())) return false;
  return value.size() < 2 || value.front() != value.back() || (value.front() != '"' && value.front() != '\'');
}

// --- The model

std::string trimmed(std::string text) {
  while (!text.empty() && isBlank(text.back())) text.pop_back();
  while (!text.empty() && isBlank(text.front())) text.erase(0, 1);
  return text;
}

struct Line {
  std::string text;
  bool isPair = false;
  std::string key;
  std::string value;
  std::string comment;
};

Line modelOfLine(std::string whole) {
  while (!whole.empty() && (whole.back() == '\n' || whole.back() == '\r' || whole.back() == '\0')) whole.pop_back();
  Line line;
  line.text = whole;
  const std::string text = trimmed(whole);
  const std::size_t separator = text.find('=');
  const std::size_t hash = text.find('#');
  line.isPair = separator != std::string::npos && (hash == std::string::npos || hash > separator);
  if (!line.isPair) return line;
  const bool hasComment = hash != std::string::npos && hash > separator + 1;
  line.key = trimmed(text.substr(0, separator));
  line.value = trimmed(text.substr(0, hasComment ? hash : text.size()).substr(separator + 1));
  if (hasComment) line.comment = " " + text.substr(hash);
  const char first = line.value.size() < 2 ? 'x' : line.value.front();
  if ((first == '"' || first == '\'') && line.value.back() == first)
    line.value = line.value.substr(1, line.value.size() - 2);
  return line;
}

// Returns false if there is no model: in a line longer than one read a carriage return may end the line.
bool modelOfLines(const std::string& content, std::vector<Line>& lines) {
  for (std::size_t begin = 0; begin < content.size();) {
    const std::size_t end = std::min(content.find('\n', begin), content.size() - 1) + 1;
    if (end - begin >= 499 && content.substr(begin, end - begin).find('\r') != std::string::npos) return false;
    lines.push_back(modelOfLine(content.substr(begin, end - begin)));
    begin = end;
  }
  return true;
}

FileUtils::KeyValueMap pairsOf(const std::vector<Line>& lines) {
  FileUtils::KeyValueMap pairs;
  for (const Line& line : lines)
    if (line.isPair) pairs[line.key] = line.value;
  return pairs;
}

std::string modelOfSet(const std::string& content, const std::vector<Line>& lines) {
  FileUtils::KeyValueMap pairs = pairsOf(lines);
  const bool isThere = pairs.count(fuzzedKey) > 0;
  if (isThere && pairs[fuzzedKey] == "value") return content;
  pairs[fuzzedKey] = "value";
  std::string text;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const Line& line = lines[i];
    if (line.isPair) {
      text += line.key + "=" + pairs[line.key] + line.comment + "\n";
    } else if (!line.text.empty() || i + 1 < lines.size()) {
      text += line.text + "\n";
    }
  }
  return isThere ? text : text + fuzzedKey + "=value\n";
}

// --- The laws

void requireUnchangedByItsOwnPairs(const std::string& path, const std::string& content, FileUtils::KeyValueMap& pairs) {
  require(FileUtils::readKeyValueFile(path, pairs, '='), "pairs can be read");
  require(FileUtils::writeKeyValueFile(path, pairs, '='), "the pairs that were read can be written");
  std::vector<Line> lines;
  if (!modelOfLines(content, lines)) return;
  require(pairs == pairsOf(lines), "pairs are those of the model");
  const auto inLines = std::count_if(lines.begin(), lines.end(), [](const Line& line) { return line.isPair; });
  const bool isKeyThereTwice = static_cast<std::size_t>(inLines) > pairs.size();
  require(contentOf(path) == content || isKeyThereTwice, "writing back the same pairs changes nothing");
}

void requirePairs(const std::string& path, const FileUtils::KeyValueMap& expected) {
  FileUtils::KeyValueMap found;
  require(FileUtils::readKeyValueFile(path, found, '='), "pairs can be read again");
  require(found[fuzzedKey] == "value", "a value reads back");
  require(found.size() == expected.size(), "the keys are the same");
  for (const auto& [key, value] : expected) {
    const auto pair = found.find(key);
    require(pair != found.end(), "a key reads back");
    require(!needsNoQuotes(value) || pair->second == value, "a bare value reads back");
  }
}

void requireStableAfterSetting(const std::string& path, const FileUtils::KeyValueMap& pairs) {
  const std::string once = contentOf(path);
  require(FileUtils::setKeyValue(path, fuzzedKey, "value"), "a key can be set again");
  require(contentOf(path) == once, "setting a key twice is the same as setting it once");
  for (const auto& [key, value] : pairs)
    if (!needsNoQuotes(value)) return;
  const bool endsWithEmptyLine = once.size() > 1 && once.compare(once.size() - 2, 2, "\n\n") == 0;
  if (endsWithEmptyLine) return;
  require(FileUtils::setKeyValue(path, fuzzedKey, "another"), "another value can be set");
  require(FileUtils::setKeyValue(path, fuzzedKey, "value"), "the first value can be set again");
  require(contentOf(path) == once, "setting another value and the first one again changes nothing");
}

// Sets the key under the plan. Without a fault the file would become `after`.
void requireFailureIsBounded(const std::string& path, const FaultPlan& plan, const std::string& after) {
  const std::string before = contentOf(path);
  bool worked = false;
  {
    const fuzz::NothingStaysOpen nothing;
    const bool isUndisturbed = fuzz::runUnder(plan, [&] { worked = FileUtils::setKeyValue(path, fuzzedKey, "value"); });
    require(!isUndisturbed || worked, "an edit without a fault succeeds");
  }
  const std::string content = contentOf(path);
  require(!worked || content == after, "a successful edit is complete");
  if (content == after) return;  // only the close failed
  const auto [end, unused] = std::mismatch(content.begin(), content.end(), after.begin(), after.end());
  const auto written = static_cast<std::size_t>(end - content.begin());
  const std::string_view kept = std::string_view(before).substr(std::min(written, before.size()));
  require(content.size() >= std::min(before.size(), after.size()), "a failed edit does not shorten the file");
  require(content.compare(written, std::string::npos, kept) == 0, "after the new bytes come the old bytes");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Folder folder;
  const std::string path = folder.path() + "file";
  fuzz::Input input(data, size);
  const FaultPlan plan = fuzz::faults(input);
  const std::string content(input.rest());
  fuzz::writeFile(path, content);

  FileUtils::KeyValueMap pairs;
  requireUnchangedByItsOwnPairs(path, content, pairs);
  const std::string before = contentOf(path);
  std::vector<Line> lines;
  const bool hasModel = modelOfLines(before, lines);
  require(FileUtils::setKeyValue(path, fuzzedKey, "value"), "a key can be set");
  pairs[fuzzedKey] = "value";
  requirePairs(path, pairs);
  const std::string after = contentOf(path);
  require(!hasModel || after == modelOfSet(before, lines), "a key is set as in the model");
  requireStableAfterSetting(path, pairs);

  if (plan.at != 0 || plan.oneByteAtATime) {
    fuzz::writeFile(path, before);
    requireFailureIsBounded(path, plan, after);
  }
  return 0;
}
