// Laws of key=value files, for any content:
// - Writing back the pairs that were read leaves the file as it is, byte for byte, unless a key is there twice.
// - After setting a key, the file reads back with that value, the same keys, and the same values where the format
// carries
//   them bare: without outer blanks and outer quotes.
// - Lines without a pair stay, in their order, but an empty last one.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "base/FileUtils.h"
#include "base/KeyValueFile.h"

namespace {

void require(bool holds, const char* law) {
  if (holds) return;
  std::fprintf(stderr, "broken law: %s\n", law);
  std::abort();
}

// A folder of our own (in ZUV_TMP_DIR: best in memory) for the file and its lock, gone at the end.
class Folder {
 public:
  Folder() {
    path = FileUtils::tempDir() + "fuzz_keyvalue.XXXXXX";
    require(::mkdtemp(path.data()) != nullptr, "a folder can be made");
    path += '/';
    ::setenv("ZUV_LOCK_DIR", path.c_str(), 1);
  }
  ~Folder() { (void)FileUtils::removeTree(path); }
  std::string path;
};

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Folder folder;
  const std::string path = folder.path + "file";
  const std::string content(reinterpret_cast<const char*>(data), size);
  require(FileUtils::writeString(path, content, false).isSuccess(), "a file can be written");

  FileUtils::KeyValueMap before;
  require(FileUtils::readKeyValueFile(path, before, '='), "pairs can be read");
  require(FileUtils::writeKeyValueFile(path, before, '='), "what was read can be written");
  std::string after;
  require(FileUtils::readFile(path, after).isSuccess(), "a file can be read");
  require(after == content || hasRepeatedKey(content, before.size()), "what was read changes nothing");

  const std::vector<std::string> texts = linesWithoutPair(path);
  require(FileUtils::setKeyValue(path, "fuzzed key", "value"), "a key can be set");
  FileUtils::KeyValueMap again;
  require(FileUtils::readKeyValueFile(path, again, '='), "pairs can be read again");
  require(again["fuzzed key"] == "value", "a value reads back");
  before["fuzzed key"] = "value";
  require(again.size() == before.size(), "the keys are the same");
  for (const auto& [key, value] : before) {
    const auto found = again.find(key);
    require(found != again.end(), "a key reads back");
    require(!isCarriedBare(value) || found->second == value, "a bare value reads back");
  }
  require(linesWithoutPair(path) == texts, "lines without a pair stay");
  return 0;
}
