// What the log's sources set for the length of a scope.
#pragma once

#include <cerrno>

// Brings errno back: logging leaves it as the caller had it.
class ErrnoGuard {
 public:
  ErrnoGuard() : saved_(errno) {}
  ~ErrnoGuard() { errno = saved_; }
  ErrnoGuard(const ErrnoGuard&) = delete;
  ErrnoGuard& operator=(const ErrnoGuard&) = delete;

 private:
  const int saved_;
};

// Holds a flag up; it must be down before.
class ScopedFlag {
 public:
  explicit ScopedFlag(bool& flag) : flag_(flag) { flag_ = true; }
  ~ScopedFlag() { flag_ = false; }
  ScopedFlag(const ScopedFlag&) = delete;
  ScopedFlag& operator=(const ScopedFlag&) = delete;

 private:
  bool& flag_;
};
