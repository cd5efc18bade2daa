// Laws of key=value files, for any content:
// - Writing back the pairs that were read leaves the file as it is, byte for byte, unless a key is there twice.
// - After setting a key, the file reads back with that value, the same keys, and the same values where the format
//   carries them bare: without outer blanks and outer quotes.
// - Setting it again changes nothing; neither does setting another value and this one again, when every value is bare.
// - Lines without a pair stay, in their order, but an empty last one.
// - An edit that fails leaves the old bytes, some of them overwritten by the first of the new ones: no file is emptied.
// Input: faults (fuzz::faults), a file.
#include <algorithm>
#include <cstdint>

#include "base/KeyValueFile.h"
#include "fuzz/FuzzTarget.h"

namespace {

using fuzz::contentOf;
using fuzz::require;

constexpr const char* fuzzedKey = "fuzzed key";

bool isCarriedBare(const std::string& value) {
  if (value.empty()) return true;
  const auto isBlank = [](char c) { return static_cast<unsigned char>(c) <= 32 || c == 127; };
  if (isBlank(value.front()) || isBlank(value.back())) return false;
  return value.size() < 2 || value.front() != value.back() || (value.front() != '"' && value.front() != '\'');
}

std::vector<std::string> linesWithoutPair(const std::string& path) {
  std::vector<std::string> lines;
  std::vector<std::string> found;
  require(FileUtils::readLines(path, lines).isSuccess(), "lines can be read");
  std::string key;
  std::string value;
  std::string comment;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const bool isDropped = lines[i].empty() && i + 1 == lines.size();
    if (!isDropped && !FileUtils::parseKeyValueLine(lines[i], '=', key, value, comment)) found.push_back(lines[i]);
  }
  return found;
}

// Whether more lines hold a pair than there are keys.
bool hasRepeatedKey(const std::string& content, std::size_t keys) {
  std::string key;
  std::string value;
  std::string comment;
  std::size_t pairs = 0;
  for (std::size_t begin = 0; begin < content.size();) {
    const std::size_t end = std::min(content.find('\n', begin), content.size());
    const std::string_view line = std::string_view(content).substr(begin, end - begin);
    if (FileUtils::parseKeyValueLine(line, '=', key, value, comment)) ++pairs;
    begin = end + 1;
  }
  return pairs > keys;
}

void requireUnchangedByItsOwnPairs(const std::string& path, const std::string& content, FileUtils::KeyValueMap& pairs) {
  require(FileUtils::readKeyValueFile(path, pairs, '='), "pairs can be read");
  require(FileUtils::writeKeyValueFile(path, pairs, '='), "what was read can be written");
  require(contentOf(path) == content || hasRepeatedKey(content, pairs.size()), "what was read changes nothing");
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
  const std::vector<std::string> texts = linesWithoutPair(path);
  require(FileUtils::setKeyValue(path, fuzzedKey, "value"), "a key can be set");
  pairs[fuzzedKey] = "value";
  requirePairs(path, pairs);
  require(linesWithoutPair(path) == texts, "lines without a pair stay");
  const std::string after = contentOf(path);
  requireStableAfterSetting(path, pairs);

  if (plan.at != 0 || plan.oneByteAtATime) {
    fuzz::writeFile(path, before);
    requireFailureIsBounded(path, plan, after);
  }
  return 0;
}
