// Laws of configuration edits, for any content. The model below works on whole lines and has no buffers.
// - Setting a key replaces every line that begins with it, or appends a line if there is none. All other bytes stay.
// - Setting it again changes nothing.
// - Removing it removes exactly its lines.
// - A failed edit leaves the file unchanged. It leaves no temporary file, unless the removal of that file fails too.
// Input: faults (fuzz::faults), a repeat count (fuzz::repeatedRest), a file.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/FuzzTarget.h"
#include "profiles/store/ConfigLines.h"

namespace {

using fuzz::contentOf;
using fuzz::require;

constexpr std::size_t largestFile = 100000;
constexpr std::size_t largestSlowFile = 2000;  // for reads and writes of one byte

// Returns `content` with every line that begins with "k=" replaced by `line`. An empty `line` removes those lines.
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

std::string modelOfRemoval(const std::string& content) {
  bool found = false;
  return modelOf(content, "", found);
}

// Runs one edit under the plan. It must be complete, or change nothing.
template <typename Edit>
void requireWholeOrNot(const std::string& path, const FaultPlan& plan, const std::string& after, Edit edit) {
  const std::string before = contentOf(path);
  const fuzz::NothingStaysOpen nothing;
  Status status;
  std::vector<std::string> refused;
  const bool isUndisturbed = fuzz::runUnder(
      plan, [&] { status = edit(); }, &refused);
  require(!isUndisturbed || status.isSuccess(), "an edit without a fault succeeds");
  require(contentOf(path) == (status.isSuccess() ? after : before), "an edit changes only its lines, or nothing");
  // If the removal of the temporary file fails, the file stays until the next edit.
  const bool isRemovalRefused = std::find(refused.begin(), refused.end(), "unlinkat") != refused.end();
  if (isRemovalRefused) (void)FileUtils::removeFile(path + ".temp");
  require(!FileUtils::fileExists(path + ".temp"), "no temporary file is left");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Folder folder;
  const std::string path = folder.path() + "file";
  fuzz::Input input(data, size);
  const FaultPlan plan = fuzz::faults(input);
  const std::string content = fuzz::repeatedRest(input, plan.oneByteAtATime ? largestSlowFile : largestFile);
  const auto setKey = [&] { return ConfigLines::setKeys(path, {{"k", "new"}}); };
  const auto removeKey = [&] { return ConfigLines::removeKey(path, "k"); };

  fuzz::writeFile(path, content);
  const std::string set = modelOfSet(content);
  if (plan.at != 0) {
    requireWholeOrNot(path, plan, set, setKey);
    fuzz::writeFile(path, content);
    requireWholeOrNot(path, plan, modelOfRemoval(content), removeKey);
    fuzz::writeFile(path, content);
  }
  FaultPlan calm = plan;
  calm.at = 0;
  requireWholeOrNot(path, calm, set, setKey);
  requireWholeOrNot(path, calm, set, setKey);
  std::string value;
  require(ConfigLines::readFirstValue(path, "k", value), "a key that was set is found");
  requireWholeOrNot(path, calm, modelOfRemoval(set), removeKey);

  const FileUtils::DirectoryListing left = FileUtils::listDirectory(folder.path());
  require(left.files.size() == 1 && left.directories.empty(), "nothing is left beside the file");
  return 0;
}
