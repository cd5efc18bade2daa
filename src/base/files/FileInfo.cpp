#include "base/files/FileInfo.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <limits>

#include "base/files/FileAccess.h"
#include "base/system/UniqueFd.h"
#include "base/text/TimeUtils.h"

namespace FileUtils {
namespace {

bool isOfType(const std::string& path, mode_t type) {
  struct stat info = {};
  return lookAt(path, info) && (info.st_mode & S_IFMT) == type;
}

}  // namespace

bool fileExists(const std::string& path) {
  struct stat info = {};
  return lookAt(path, info);
}

bool isRegularFile(const std::string& path) { return isOfType(path, S_IFREG); }
bool isDirectory(const std::string& path) { return isOfType(path, S_IFDIR); }
bool isFifo(const std::string& path) { return isOfType(path, S_IFIFO); }

bool isRealDirectory(const std::string& path) {
  struct stat info = {};
  return isUsablePath(path) && ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::int64_t fileSize(const std::string& path) {
  struct stat info = {};
  return lookAt(path, info) ? info.st_size : -1;
}

std::int64_t fileModifiedMicros(const std::string& path) {
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max() / TimeUtils::microsPerSecond;
  struct stat info = {};
  const std::int64_t seconds = lookAt(path, info) ? info.st_mtime : 0;
  return seconds == std::clamp(seconds, -most, most) ? seconds * TimeUtils::microsPerSecond : 0;
}

bool isFreshRegularFile(const std::string& path, std::int64_t maxAgeMicros) {
  if (!isRegularFile(path)) return false;
  const std::int64_t now = TimeUtils::nowMicros();
  // The clock never shows a time before 1970, so only the age of a very old file does not fit 64 bits.
  const std::int64_t oldest = now - std::numeric_limits<std::int64_t>::max();
  return now - std::max(fileModifiedMicros(path), oldest) < maxAgeMicros;
}

bool fifoHasReader(const std::string& path) {
  if (!isUsablePath(path)) return false;
  const UniqueFd fd(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  return fd.isOpen();
}

}  // namespace FileUtils
