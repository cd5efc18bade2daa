// FileLock: holds off other processes that edit the same configuration file.
//
//   FileLock lock(path);                      // waits without limit
//   if (!lock.isLocked()) return false;
//   ...read, change, write path...            // let go at the end of the scope
//
// The lock is advisory and exclusive, and named after the last component of `path` alone: edits of hip.conf in two
// profiles exclude each other, deliberately. Its file lies in FileUtils::lockDir(), mode 0666 whatever the umask.
// Other processes: a holder that dies lets go. The lock file is removed by its holder while it still holds it, and a
// waiter that gets a removed file starts over, so there is never more than one holder. A lock not taken removes
// nothing. Files: only a regular file is ever used as a lock file, and no link is followed; neither is one in the place
// of the lock directory, unless root or the caller made it. Children: the descriptor is close-on-exec; a child that
// runs on without an exec would keep the lock, so never fork while holding one. Locks are never nested. Threads: locks
// of one process exclude each other like those of several.
#pragma once

#include <chrono>
#include <string>

#include "base/system/Leftover.h"
#include "base/system/UniqueFd.h"

class FileLock {
 public:
  using Clock = std::chrono::steady_clock;

  enum class Result {
    held,
    busy,         // somebody else held it all the time
    unavailable,  // it cannot be taken at all: no directory, no right, not a regular file, an empty path
  };

  // Waits until the lock is held or cannot be taken.
  explicit FileLock(const std::string& path);
  // Waits that long at most; zero tries once.
  FileLock(const std::string& path, std::chrono::milliseconds limit);
  ~FileLock() { release(); }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  bool isLocked() const { return fd_.isOpen(); }
  // What became of taking it; stays after a release.
  Result result() const { return result_; }
  // The path of the lock file; empty without a usable path.
  std::string lockPath() const;

  // Removes the lock file and lets go; does nothing without the lock.
  void release();

 private:
  void take(int operation, Clock::time_point deadline);
  Result tryOnce(int operation);

  std::string lockName_;
  UniqueFd directory_;
  UniqueFd fd_;
  std::string markedPath_;
  Leftover lockFile_;
  Result result_ = Result::unavailable;
};
