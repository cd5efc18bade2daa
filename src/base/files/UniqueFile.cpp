#include "base/files/UniqueFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/files/FileAccess.h"
#include "base/system/UniqueFd.h"
#include "base/text/TimeUtils.h"
#include "log/front/BasicLog.h"

namespace FileUtils {
namespace {

constexpr mode_t uniqueFileMode = 0644;

// Six letters or digits that differ from call to call and usually from process to process. They need not be hard to
// guess, because O_EXCL ensures that the file is new.
std::string uniqueSuffix() {
  static constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  static std::atomic<std::uint64_t> calls{0};
  std::uint64_t number = static_cast<std::uint64_t>(TimeUtils::nowMicros()) + calls++;
  // As if the clock of this process were ahead by one second for each unit of its process id.
  number += static_cast<std::uint64_t>(::getpid()) * TimeUtils::microsPerSecond;
  std::string suffix;
  for (int i = 0; i < 6; ++i, number /= letters.size())
    suffix += letters[static_cast<std::size_t>(number % letters.size())];
  return suffix;
}

void logFailedOpen(int error) {
  static BasicLog::Logger& log = BasicLog::getLogger(BasicLog::basiclibLogger);
  if (!log.isEnabled(BasicLog::Level::error)) return;
  // Deliberately not the name of this file: people who read logs search for this name.
  BasicLog::Entry entry(log, BasicLog::Level::error, "failed to open file", "FileUtils.cpp", "makeUniqueFile");
  entry.add("error", std::strerror(error));
}

}  // namespace

std::FILE* makeUniqueFile(const std::string& base, std::string& pathOut) {
  constexpr int attempts = 11;  // deliberate
  constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC;
  if (!isUsablePath(base) || base.size() + std::strlen(".XXXXXX") >= PATH_MAX) return nullptr;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    const std::string path = base + "." + uniqueSuffix();
    UniqueFd fd(uninterrupted([&] { return ::open(path.c_str(), flags, uniqueFileMode); }));
    if (!fd.isOpen()) {
      logFailedOpen(errno);
      continue;
    }
    std::FILE* stream = ::fdopen(fd.get(), "w+");
    if (stream == nullptr) {
      (void)::unlink(path.c_str());
      return nullptr;
    }
    (void)fd.release();
    pathOut = path;
    return stream;
  }
  return nullptr;
}

}  // namespace FileUtils
