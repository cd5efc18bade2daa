// UniqueFd: the one owner of a file descriptor.
//
//   UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
//   if (!fd.isOpen()) return ...;        // errno holds the reason
//   if (!fd.close()) return ...;         // only where a failed close matters: the destructor closes too
//
// It can be moved, not copied. A negative descriptor means none. Not thread-safe.
#pragma once

#include <unistd.h>

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { reset(); }

  bool isOpen() const { return fd_ >= 0; }
  int get() const { return fd_; }

  // Gives up the descriptor and returns it. The caller must close it.
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

  // Closes the held descriptor, ignoring the result, and takes ownership of `fd`.
  void reset(int fd = -1) {
    (void)close();
    fd_ = fd;
  }

  // Closes the descriptor. Returns true if that succeeded or if none was open. After a failure it does not try again:
  // the system has released the descriptor anyway.
  bool close() {
    const int fd = release();
    return fd < 0 || ::close(fd) == 0;
  }

 private:
  int fd_ = -1;
};
