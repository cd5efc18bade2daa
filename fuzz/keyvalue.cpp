// Laws of key=value files, for any content; the model below takes lines apart by the description of the format:
// - Writing back the pairs that were read leaves the file as it is, byte for byte, unless a key is there twice.
// - Setting a key makes the file that of the model: its line has the new value and keeps its comment, other pairs are
// in
//   normal form, every other line is as it was, and an empty last one goes.
// - The file then reads back with that value, the same keys, and the same values where the format carries them bare:
//   without outer blanks and outer quotes.
// - Setting it again changes nothing; neither does setting another value and this one again, when every value is bare.
// - An edit that fails leaves the old bytes, some of them overwritten by the first of the new ones: no file is emptied.
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

bool isCarriedBare(const std::string& value) {
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

// None when a line is longer than what is read at a time: a carriage return there may end it.
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
    if (line.isPair)
      text += line.key + "=" + pairs[line.key] + line.comment + "\n";
    else if (!line.text.empty() || i + 1 < lines.size())
      text += line.text + "\n";
  }
  return isThere ? text : text + fuzzedKey + "=value\n";
}

// --- The laws

void requireUnchangedByItsOwnPairs(const std::string& path, const std::string& content, FileUtils::KeyValueMap& pairs) {
  require(FileUtils::readKeyValueFile(path, pairs, '='), "pairs can be read");
  require(FileUtils::writeKeyValueFile(path, pairs, '='), "what was read can be written");
  std::vector<Line> lines;
  if (!modelOfLines(content, lines)) return;
  require(pairs == pairsOf(lines), "pairs are those of the model");
  const auto inLines = std::count_if(lines.begin(), lines.end(), [](const Line& line) { return line.isPair; });
  const bool isKeyThereTwice = static_cast<std::size_t>(inLines) > pairs.size();
  require(contentOf(path) == content || isKeyThereTwice, "what was read changes nothing");
}

void requirePairs(const std::string& path, const FileUtils::KeyValueMap& expected) {
  FileUtils::KeyValueMap found;
  require(FileUtils::readKeyValueFile(path, found, '='), "pairs can be read again");
  require(found[fuzzedKey] == "value", "a value reads back");
  require(found.size() == expected.size(), "the keys are the same");
  for (const auto& [key, value] : expected) {
    const auto pair = found.find(key);
    require(pair != found.end(), "a key reads back");
    require(!isCarriedBare(value) || pair->second == value, "a bare value reads back");
  }
}

void requireStableAfterSetting(const std::string& path, const FileUtils::KeyValueMap& pairs) {
  const std::string once = contentOf(path);
  require(FileUtils::setKeyValue(path, fuzzedKey, "value"), "a key can be set again");
  require(contentOf(path) == once, "setting twice is setting once");
  for (const auto& [key, value] : pairs)
    if (!isCarriedBare(value)) return;
  require(FileUtils::setKeyValue(path, fuzzedKey, "another"), "another value can be set");
  require(FileUtils::setKeyValue(path, fuzzedKey, "value"), "and the first one again");
  require(contentOf(path) == once, "a value and back is no change");
}

// Sets the key under the plan in a file whose content a calm run turns into `after`.
void requireFailureIsBounded(const std::string& path, const FaultPlan& plan, const std::string& after) {
  const std::string before = contentOf(path);
  bool worked = false;
  {
    const fuzz::NothingStaysOpen nothing;
    const bool isUndisturbed = fuzz::runUnder(plan, [&] { worked = FileUtils::setKeyValue(path, fuzzedKey, "value"); });
    require(!isUndisturbed || worked, "an edit without a fault succeeds");
  }
  const std::string content = contentOf(path);
  require(!worked || content == after, "an edit that succeeds is whole");
  if (content == after) return;  // only the close failed
  const auto [end, unused] = std::mismatch(content.begin(), content.end(), after.begin(), after.end());
  const auto written = static_cast<std::size_t>(end - content.begin());
  const std::string_view kept = std::string_view(before).substr(std::min(written, before.size()));
  require(content.size() >= std::min(before.size(), after.size()), "a failed edit empties nothing");
  require(content.compare(written, std::string::npos, kept) == 0, "behind what was written stand the old bytes");
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
