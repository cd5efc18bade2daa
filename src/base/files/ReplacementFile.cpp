#include "base/files/ReplacementFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "base/files/FileAccess.h"
#include "base/system/RetryPauses.h"
#include "base/system/Uninterrupted.h"

namespace {

constexpr mode_t newFileMode = 0600;
constexpr std::chrono::seconds longestWaitForDirectory(1);

bool isOfEditors(uid_t owner) { return owner == 0 || owner == ::geteuid(); }

// True if the lock was taken or if the file system has none. False if another process holds it.
bool tryLock(int fd) {
  return uninterrupted([&] { return ::flock(fd, LOCK_EX | LOCK_NB); }) != -1 || errno != EWOULDBLOCK;
}

bool isShortage(int error) { return error == EMFILE || error == ENFILE || error == ENOMEM; }

// The directory of a file, as a path that ends inside it, so that a link in its place counts as a link on the way.
std::string insideDirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1) + ".";
}

}  // namespace

Status ReplacementFile::make(const std::string& path, Clock::time_point deadline) {
  directory_ = openInStore(AT_FDCWD, insideDirectoryOf(path).c_str(), O_PATH, Follow::trusted);
  if (!directory_.fd.isOpen()) return Status::of(status::openError);
  oldName_ = path.substr(path.rfind('/') + 1);  // npos + 1 is 0
  newName_ = oldName_ + ".temp";
  newPath_ = path + ".temp";
  constexpr int mostLateStarts = 3;  // so that a file left over is still removed after the deadline
  int lateStarts = 0;
  RetryPauses pauses(deadline);
  Attempt attempt = tryOnce();
  while (attempt == Attempt::again || attempt == Attempt::busy) {
    if (attempt == Attempt::busy && !pauses.next()) break;
    if (attempt == Attempt::again && Clock::now() >= deadline && ++lateStarts == mostLateStarts) break;
    attempt = tryOnce();
  }
  return Status::of(attempt == Attempt::made ? status::success : status::openError);
}

ReplacementFile::Attempt ReplacementFile::tryOnce() {
  constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;  // O_EXCL follows no link
  UniqueFd fd(uninterrupted([&] { return ::openat(directory(), newName_.c_str(), flags, newFileMode); }));
  if (!fd.isOpen()) return errno == EEXIST ? makeWay() : Attempt::failed;
  if (!tryLock(fd.get())) return Attempt::busy;  // somebody takes it for left over
  const Place place = placeOfNew(fd.get());
  if (place == Place::another) return Attempt::again;
  lock_ = duplicateOf(fd.get());
  fd_ = std::move(fd);
  isMade_ = true;
  leftover_.mark(newPath_.c_str());
  if (place == Place::same && lock_.isOpen()) return Attempt::made;
  remove();
  return Attempt::failed;
}

// Removes what lies in the way, unless an editor is at work on it.
ReplacementFile::Attempt ReplacementFile::makeWay() {
  constexpr int alwaysFlags = O_NOFOLLOW | O_CLOEXEC;
  const auto open = [&](int flags) {
    return UniqueFd(uninterrupted([&] { return ::openat(directory(), newName_.c_str(), flags | alwaysFlags); }));
  };
  const UniqueFd found = open(O_PATH);
  struct stat info = {};
  if (!found.isOpen() || ::fstat(found.get(), &info) != 0) return errno == ENOENT ? Attempt::again : Attempt::failed;
  UniqueFd fd;
  if (S_ISREG(info.st_mode) && isOfEditors(info.st_uid)) {
    fd = open(O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (!fd.isOpen() && isShortage(errno)) return Attempt::failed;  // an editor may be at work on it
  }
  if (fd.isOpen() && !tryLock(fd.get())) return Attempt::busy;
  UniqueFd directoryLock = fd.isOpen() ? UniqueFd() : lockDirectory();
  const Place place = placeOfNew(found.get());
  if (place != Place::same) return place == Place::another ? Attempt::again : Attempt::failed;
  if (::unlinkat(directory(), newName_.c_str(), 0) != -1 || errno == ENOENT) return Attempt::again;
  return Attempt::failed;
}

UniqueFd ReplacementFile::openDirectory() const {
  return UniqueFd(uninterrupted([&] { return ::openat(directory(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
}

// If the lock cannot be had, the descriptor is returned without it.
UniqueFd ReplacementFile::lockDirectory() const {
  UniqueFd fd = openDirectory();
  if (fd.isOpen()) (void)lockFile(fd.get(), Clock::now() + longestWaitForDirectory);
  return fd;
}

bool ReplacementFile::giveTo(uid_t owner, gid_t group) {
  if (!isOfEditors(owner)) directoryLock_ = lockDirectory();
  return ::fchown(fd_.get(), owner, group) == 0;
}

// Another editor may have removed this file, because it could not see the lock, and may be writing its own.
bool ReplacementFile::replaceOld() {
  if (!isMade_ || placeOfNew(lock_.get()) != Place::same) return false;
  if (::renameat(directory(), newName_.c_str(), directory(), oldName_.c_str()) != 0) return false;
  isMade_ = false;
  leftover_.forget();
  // The rename has happened and cannot be undone, so a failure to sync it does not count.
  if (!directoryLock_.isOpen()) directoryLock_ = openDirectory();
  if (directoryLock_.isOpen()) (void)::fsync(directoryLock_.get());
  directoryLock_.reset();
  lock_.reset();
  return true;
}

void ReplacementFile::remove() {
  const int fd = lock_.isOpen() ? lock_.get() : fd_.get();
  // Another editor's file stays. A failure to find that out does not count.
  if (isMade_ && placeOfNew(fd) != Place::another) (void)::unlinkat(directory(), newName_.c_str(), 0);
  isMade_ = false;
  leftover_.forget();
  fd_.reset();
  directoryLock_.reset();
  lock_.reset();
}
