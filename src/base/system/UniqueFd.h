// UniqueFd: the one owner of a file descriptor.
//
//   UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
//   if (!fd.isOpen()) return ...;        // errno tells why
//   if (!fd.close()) return ...;         // where a failed close matters; else the end of the scope closes
//
// Move only. A descriptor below 0 means none. Not thread-safe.
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

  // Gives the descriptor away; the caller closes it.
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

  // Closes what is held, whatever the result, and takes `fd`.
  void reset(int fd = -1) {
    (void)close();
    fd_ = fd;
  }

  // Closes; true when that succeeded or nothing was open. Never tried twice: the descriptor is gone either way.
  bool close() {
    const int fd = release();
    return fd < 0 || ::close(fd) == 0;
  }

 private:
  int fd_ = -1;
};
