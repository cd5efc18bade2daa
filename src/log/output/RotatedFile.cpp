#include "log/output/RotatedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "base/files/DirectoryEntries.h"
#include "base/files/DirectoryListing.h"
#include "base/files/FileAccess.h"
#include "base/system/RawWrite.h"
#include "base/text/StringUtils.h"
#include "base/text/TimeUtils.h"
#include "log/front/BasicLog.h"

namespace {

constexpr std::int64_t maxAgeMicros = 2'592'000'000'000;  // 30 days
constexpr mode_t directoryMode = 0750;
constexpr mode_t fileMode = 0644;
constexpr char ending[] = ".log";

struct Naming {
  std::int64_t interval;
  std::string (*stamp)(TextOrNull prefix, TextOrNull suffix, std::int64_t micros);
};

constexpr Naming namings[] = {
    {86'400'000'000, TimeUtils::dayStamp},
    {3'600'000'000, TimeUtils::hourStamp},
    {60'000'000, TimeUtils::minuteStamp},
};

std::string nameOf(std::int64_t interval, const std::string& prefix, std::int64_t periodStart) {
  // The stamp functions take 0 for the current time. One microsecond after 0 gives the name for 0.
  const std::int64_t time = periodStart == 0 ? 1 : periodStart;
  for (const Naming& naming : namings) {
    if (naming.interval == interval) return naming.stamp(prefix, ending, time);
  }
  return TimeUtils::secondStamp(prefix, ending, time);
}

// Returns the greatest multiple of `interval` that is not above `ticks`.
std::int64_t startOfPeriod(std::int64_t ticks, std::int64_t interval) {
  const std::int64_t remainder = ticks % interval;
  return ticks - (remainder < 0 ? remainder + interval : remainder);
}

UniqueFd openForAppending(const std::string& path) {
  // O_NONBLOCK keeps the open of a FIFO from blocking. Anything but a regular file is closed again below.
  constexpr int flags = O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  UniqueFd fd(uninterrupted([&] { return ::open(path.c_str(), flags, fileMode); }));
  struct stat info = {};
  if (fd.isOpen() && (::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode))) fd.reset();
  return fd;
}

}  // namespace

// --- RotatedFile

bool RotatedFile::enterPeriod(std::int64_t localTicks) {
  if (!hasValidInterval()) return false;
  const std::int64_t start = startOfPeriod(localTicks, interval);
  if (periodStart_ == start) return false;
  closeFile();
  periodStart_ = start;
  return true;
}

void RotatedFile::closeFile() {
  (void)fd_.close();  // failures are not reported to the code that logs
  fileName_.clear();
}

bool RotatedFile::openFile() {
  if (fd_.isOpen()) return true;
  (void)FileUtils::makeDir(directory, directoryMode);  // if this fails, the open fails too
  const std::string name = nameOf(interval, prefix, *periodStart_);
  const std::string path = StringUtils::joinPath({directory, name});
  if (isUsablePath(path)) fd_ = openForAppending(path);
  if (fd_.isOpen()) fileName_ = name;
  return fd_.isOpen();
}

void RotatedFile::append(std::string_view line) {
  if (!periodStart_ || !hasValidInterval() || !openFile()) return;
  if (!writeFully(fd_.get(), line)) closeFile();
}

// --- Old files

namespace {

// Counts the time of a file in whole seconds, and the cut-off in microseconds.
bool isOutdated(const std::string& path, std::int64_t cutOff) {
  struct stat info = {};
  if (::lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
  // Compares seconds first: the time of a file may be too large for 64 bits of microseconds.
  const timeval limit = TimeUtils::toTimeval(cutOff);
  return info.st_mtim.tv_sec < limit.tv_sec || (info.st_mtim.tv_sec == limit.tv_sec && limit.tv_usec != 0);
}

void logRemoval(const std::string& path) {
  static BasicLog::Logger& log = BasicLog::getLogger(BasicLog::basiclibLogger);
  if (!log.isEnabled(BasicLog::Level::info)) return;
  // Deliberately not the name of this source file: people search logs for "BasicLog.cpp".
  BasicLog::Entry entry(log, BasicLog::Level::info, "removing outdated logfile", "BasicLog.cpp", "scrub_old_files");
  entry.add("filename", path);
}

}  // namespace

void scrub_old_files(const std::string& directory, const std::string& prefix, std::int64_t nowMicros) {
  if (directory.empty() || prefix.empty()) return;
  const std::int64_t cutOff = nowMicros - maxAgeMicros;
  for (const std::string& name : FileUtils::listDirectory(directory).files) {
    const std::string path = StringUtils::joinPath({directory, name});
    if (!StringUtils::startsWith(name, prefix) || !isOutdated(path, cutOff)) continue;
    logRemoval(path);
    (void)FileUtils::removeFile(path);  // a file that remains is tried again in the next period
  }
}
