// Laws of configuration edits, for any content; the model below knows whole lines and nothing of buffers:
// - Setting a key replaces every line that begins with it and appends it where there is none; all else stays.
// - Setting it again changes nothing more.
// - Removing it takes exactly its lines.
// - Nothing is left beside the file.
// The first byte says how often the rest is repeated, so that lines grow beyond the buffer.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/FileUtils.h"
#include "profiles/ConfigLines.h"

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
    path = FileUtils::tempDir() + "fuzz_line_editor.XXXXXX";
    require(::mkdtemp(path.data()) != nullptr, "a folder can be made");
    path += '/';
    ::setenv("ZUV_LOCK_DIR", path.c_str(), 1);
  }
  ~Folder() { (void)FileUtils::removeTree(path); }
  std::string path;
};

// `content` with every line that begins with "k=" replaced, where `line` is not empty, or removed.
std::string modelOf(const std::string& content, const std::string& line, bool& found) {
  std::string result;
  found = false;
  for (std::size_t begin = 0; begin < content.size();) {
    const std::size_t end = std::min(content.find('\n', begin), content.size() - 1) + 1;
    const bool isKey = content.compare(begin, 2, "k=") == 0;
    result += isKey ? line : content.substr(begin, end - begin);
    found = found || isKey;
    begin = end;
  }
  return result;
}

std::string modelOfSet(const std::string& content) {
  bool found = false;
  std::string result = modelOf(content, "k=new\n", found);
  if (found) return result;
  if (!result.empty() && result.back() != '\n') result += '\n';
  return result + "k=new\n";
}

std::string contentOf(const std::string& path) {
  std::string content;
  require(FileUtils::readFile(path, content).isSuccess(), "a file can be read");
  return content;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Folder folder;
  const std::string path = folder.path + "file";
  std::string content;
  for (int copies = size > 0 ? data[0] : 0; copies >= 0 && size > 0; copies -= 8) {
    content.append(reinterpret_cast<const char*>(data) + 1, size - 1);
  }
  require(FileUtils::writeString(path, content, false).isSuccess(), "a file can be written");

  const std::string set = modelOfSet(content);
  for (int pass = 0; pass < 2; ++pass) {
    require(ConfigLines::setKeys(path, {{"k", "new"}}).isSuccess(), "a key can be set");
    require(contentOf(path) == set, "setting changes the lines of the key alone");
  }
  std::string value;
  require(ConfigLines::readFirstValue(path, "k", value), "a key that was set is found");

  bool found = false;
  require(ConfigLines::removeKey(path, "k").isSuccess(), "a key can be removed");
  require(contentOf(path) == modelOf(set, "", found), "removing takes the lines of the key alone");

  const FileUtils::DirectoryListing left = FileUtils::listDirectory(folder.path);
  require(left.files.size() == 1 && left.directories.empty(), "nothing is left beside the file");
  return 0;
}
