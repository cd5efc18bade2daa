// FileLock: keeps other processes from editing the same configuration file at the same time.
//
//   FileLock lock(path);                      // blocks without limit
//   if (!lock.isLocked()) return false;
//   ...read, change, write path...            // the lock is released at the end of the scope
//
// The lock is advisory and exclusive. Its name is the last component of `path` only, so edits of hip.conf in two
// profiles exclude each other. That is deliberate. The lock file is in FileUtils::lockDir() and has mode 0666 whatever
// the umask.
// Other processes: when a holder dies, its lock is released. A holder removes the lock file while it still holds the
// lock, and a waiter that then gets the lock on the removed file starts over. So there is never more than one holder. A
// FileLock that did not get the lock removes nothing.
// Files: only a regular file is used as a lock file, and no link to one is followed. A link in place of the lock
// directory is followed only if root or the caller's user owns it.
// Children: the descriptor is close-on-exec. A child does not keep a released lock. But if the holder dies without a
// release, a child that did not exec keeps the lock, so a process must not fork while it holds one.
// Threads: locks exclude each other within one process as between processes. A thread must not take two locks at a
// time.
#pragma once

#include <chrono>
#include <string>

#include "base/system/Leftover.h"
#include "base/system/RetryPauses.h"
#include "base/system/UniqueFd.h"

class FileLock {
 public:
  using Clock = std::chrono::steady_clock;

  enum class Result {
    held,
    busy,         // another holder had it all the time
    unavailable,  // it cannot be taken: no directory, no permission, not a regular file, or an empty path
  };

  // Blocks until the lock is held or turns out to be unavailable.
  explicit FileLock(const std::string& path);
  // Blocks for `limit` at most, and tries again after pauses (see RetryPauses.h). With zero or a negative time it tries
  // once.
  FileLock(const std::string& path, std::chrono::milliseconds limit);
  ~FileLock() { release(); }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  // True if the lock directory can be opened over trusted links alone (see StoreOpener.h) and nobody but root and our
  // own user may write in it. Otherwise others can remove lock files, or hold every lock for as long as they like.
  static bool isDirectoryOurs();

  bool isLocked() const { return fd_.isOpen(); }
  // The result of the constructor. A release does not change it.
  Result result() const { return result_; }
  // The path of the lock file; empty if the path given is not usable.
  std::string lockPath() const;

  // Removes the lock file and releases the lock. Does nothing if the lock is not held.
  void release();

 private:
  void take(int operation, RetryPauses* pauses);
  Result tryOnce(int operation);

  std::string lockName_;
  UniqueFd directory_;
  UniqueFd fd_;
  std::string markedPath_;
  Leftover lockFile_;
  Result result_ = Result::unavailable;
};
