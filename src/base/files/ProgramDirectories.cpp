#include "base/files/ProgramDirectories.h"

#include <sys/types.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

#include "base/files/DirectoryEntries.h"

namespace FileUtils {
namespace {

constexpr mode_t programDirectoryMode = 0750;

std::string programDirectory(const char* variable, const char* fallback) {
  const char* value = std::getenv(variable);
  std::string directory = value != nullptr && *value != '\0' ? value : fallback;
  if (directory.back() != '/') directory += '/';
  (void)makeDir(directory, programDirectoryMode);  // a caller that needs the directory sees the failure when it uses it
  return directory;
}

}  // namespace

Status getCurrentDir(std::string& dir) {
  char buffer[PATH_MAX];
  dir.clear();
  if (::getcwd(buffer, sizeof buffer) == nullptr) return Status::of(status::getcwdError);
  dir = buffer;
  return Status::success();
}

const char* configRoot() { return "/etc/zuv/"; }

const std::string& tempDir() {
  static const std::string directory = programDirectory("ZUV_TMP_DIR", "/tmp/");
  return directory;
}

const std::string& lockDir() {
  static const std::string directory = programDirectory("ZUV_LOCK_DIR", "/tmp/lock/");
  return directory;
}

}  // namespace FileUtils
