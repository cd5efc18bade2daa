#include "base/files/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>

#include "base/files/FileAccess.h"
#include "base/files/FilePlace.h"
#include "base/files/ProgramDirectories.h"
#include "base/text/StringUtils.h"

namespace {

using Clock = FileLock::Clock;
using std::chrono::milliseconds;

// A limit that is too long for the clock becomes the longest one, and a negative one becomes zero.
Clock::time_point deadlineIn(milliseconds limit) {
  const auto now = Clock::now();
  const auto longest = std::chrono::duration_cast<milliseconds>(Clock::time_point::max() - now);
  return now + std::clamp(limit, milliseconds(0), longest);
}

// The umask belongs to the whole process: two threads that changed it at the same time could restore the wrong one.
std::mutex umaskGuard;

// Anyone can place a link in a directory like /tmp, and lock files would be made wherever it leads.
bool leadsThroughTrustedLink(const std::string& path) {
  struct stat info = {};
  return ::lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode) && (info.st_uid == 0 || info.st_uid == ::geteuid());
}

// Opens the directory of the lock files. All lock files are accessed relative to this descriptor.
UniqueFd openLockDirectory() {
  constexpr int flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  std::string path = FileUtils::lockDir();
  while (path != "/" && path.back() == '/') path.pop_back();  // with a slash at the end the system would follow a link
  UniqueFd directory(uninterrupted([&] { return ::open(path.c_str(), flags | O_NOFOLLOW); }));
  if (!directory.isOpen() && leadsThroughTrustedLink(path)) {
    directory.reset(uninterrupted([&] { return ::open(path.c_str(), flags); }));
  }
  return directory;
}

UniqueFd openLockFile(int directory, const std::string& name) {
  constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  const std::lock_guard<std::mutex> guard(umaskGuard);
  const mode_t old = ::umask(0);
  UniqueFd fd(uninterrupted([&] { return ::openat(directory, name.c_str(), flags, 0666); }));
  const int error = errno;
  (void)::umask(old);
  errno = error;
  return fd;
}

bool isRegular(int fd) {
  struct stat info = {};
  return ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
}

std::string lockNameFor(const std::string& path) {
  if (!isUsablePath(path)) return std::string();
  return std::string(StringUtils::lastComponent(path)) + ".lock";
}

}  // namespace

FileLock::FileLock(const std::string& path) : lockName_(lockNameFor(path)) { take(LOCK_EX, nullptr); }

FileLock::FileLock(const std::string& path, milliseconds limit) : lockName_(lockNameFor(path)) {
  RetryPauses pauses(deadlineIn(limit));
  take(LOCK_EX | LOCK_NB, &pauses);
}

bool FileLock::isDirectoryOurs() {
  const std::string inside = FileUtils::lockDir() + '.';
  const StoreFile directory = openInStore(AT_FDCWD, inside.c_str(), O_PATH, Follow::trusted);
  return directory.fd.isOpen() && !othersMayWrite(directory.fd.get(), directory.info);
}

std::string FileLock::lockPath() const { return lockName_.empty() ? std::string() : FileUtils::lockDir() + lockName_; }

// The previous holder may have removed the file that this call has just locked, and a new file may have its name. So
// the lock counts only if the name still belongs to the locked file; else the loop tries again. Each such retry means
// that another holder has released the lock in the meantime. `pauses` is null for a lock that blocks: then flock(2)
// itself waits.
void FileLock::take(int operation, RetryPauses* pauses) {
  if (lockName_.empty()) return;
  directory_ = openLockDirectory();
  if (!directory_.isOpen()) return;
  markedPath_ = lockPath();  // allocated before the file is made: if memory ran out later, the file would remain
  while ((result_ = tryOnce(operation)) == Result::busy && (pauses == nullptr || pauses->next())) {
  }
}

// Returns busy also if the locked file no longer has that name.
FileLock::Result FileLock::tryOnce(int operation) {
  UniqueFd fd = openLockFile(directory_.get(), lockName_);
  if (!fd.isOpen() || !isRegular(fd.get())) return Result::unavailable;
  if (uninterrupted([&] { return ::flock(fd.get(), operation); }) != 0) {
    return errno == EWOULDBLOCK ? Result::busy : Result::unavailable;
  }
  const Place place = placeOf(fd.get(), directory_.get(), lockName_.c_str());
  if (place != Place::same) return place == Place::another ? Result::busy : Result::unavailable;
  fd_ = std::move(fd);
  lockFile_.mark(markedPath_.c_str());
  return Result::held;
}

// The file is removed before the lock is released. In the other order it could remove a file that the next holder has
// locked already. A file that another process has put in its place is not removed.
void FileLock::release() {
  if (!isLocked()) return;
  if (placeOf(fd_.get(), directory_.get(), lockName_.c_str()) != Place::another) {
    (void)::unlinkat(directory_.get(), lockName_.c_str(), 0);  // if this fails, the next holder uses the same file
  }
  lockFile_.forget();
  fd_.reset();
}
