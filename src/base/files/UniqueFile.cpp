#include "base/files/UniqueFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "base/files/FileAccess.h"
#include "base/system/UniqueFd.h"
#include "base/text/TimeUtils.h"
#include "log/front/BasicLog.h"

namespace FileUtils {
namespace {

constexpr mode_t uniqueFileMode = 0644;
constexpr std::size_t pathBufferSize = 4096;

// Six letters and digits that differ from call to call and from process to process; being the first to make the file is
// what counts, not being hard to guess.
std::string uniqueSuffix() {
  static constexpr char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  static std::atomic<std::uint64_t> calls{0};
  std::uint64_t bits =
      static_cast<std::uint64_t>(TimeUtils::nowMicros()) ^ (static_cast<std::uint64_t>(::getpid()) << 40);
  bits += calls.fetch_add(1, std::memory_order_relaxed) * 0x9e3779b97f4a7c15u;
  bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9u;
  bits = (bits ^ (bits >> 27)) * 0x94d049bb133111ebu;
  bits ^= bits >> 31;
  std::string suffix;
  for (int i = 0; i < 6; ++i, bits /= 62) suffix += letters[bits % 62];
  return suffix;
}

void logFailedOpen(int error) {
  static BasicLog::Logger& log = BasicLog::getLogger(BasicLog::basiclibLogger);
  if (!log.isEnabled(BasicLog::Level::error)) return;
  // Deliberately not this file's name: whoever reads logs searches for this one.
  BasicLog::Entry entry(log, BasicLog::Level::error, "failed to open file", "FileUtils.cpp", "makeUniqueFile");
  entry.add("error", std::strerror(error));
}

}  // namespace

std::FILE* makeUniqueFile(const std::string& base, std::string& pathOut) {
  constexpr int attempts = 11;  // deliberate
  constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC;
  if (!isUsablePath(base) || base.size() + std::strlen(".XXXXXX") >= pathBufferSize) return nullptr;
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
