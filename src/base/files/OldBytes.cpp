#include "base/files/OldBytes.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/system/Uninterrupted.h"

void OldBytes::keep(int fd, off_t size, std::size_t length) {
  constexpr off_t mostMore = 4096;
  const off_t most = static_cast<off_t>(length) + mostMore;
  bytes_.resize(static_cast<std::size_t>(std::min(most, size)));
  kept_ = size > most ? Kept::beginning : Kept::wholeFile;
  for (std::size_t filled = 0; filled < bytes_.size();) {
    const auto at = static_cast<off_t>(filled);
    const ssize_t count = uninterrupted([&] { return ::pread(fd, &bytes_[filled], bytes_.size() - filled, at); });
    if (count == -1) return forget();
    filled += static_cast<std::size_t>(count);
    if (count != 0) continue;
    bytes_.resize(filled);  // the file ends earlier than its size said
    kept_ = Kept::wholeFile;
  }
}

void OldBytes::noteCut() {
  if (kept_ == Kept::beginning) forget();
}

void OldBytes::putBack(int fd) {
  if (!isKept()) return;
  const auto size = static_cast<off_t>(bytes_.size());
  off_t done = 0;
  while (done < size) {
    const char* const from = bytes_.data() + done;
    const ssize_t count =
        uninterrupted([&] { return ::pwrite(fd, from, static_cast<std::size_t>(size - done), done); });
    if (count <= 0) break;
    done += count;
  }
  // After the writes the file has at least its old length, so a cut without a look cannot make it longer.
  struct stat info = {};
  const bool isPutBack = kept_ == Kept::wholeFile && done == size;
  if (isPutBack && (::fstat(fd, &info) != 0 || info.st_size > size)) {
    [[maybe_unused]] const int cut = uninterrupted([&] { return ::ftruncate(fd, size); });
  }
  forget();
}
