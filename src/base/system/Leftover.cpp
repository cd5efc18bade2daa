#include "base/system/Leftover.h"

#include <unistd.h>

#include <mutex>

namespace {

std::mutex guard;
Leftover* lastMarked = nullptr;

}  // namespace

void Leftover::mark(const char* path) {
  forget();
  const std::lock_guard<std::mutex> lock(guard);
  path_ = path;
  next_ = lastMarked;
  lastMarked = this;
}

void Leftover::forget() {
  const std::lock_guard<std::mutex> lock(guard);
  if (path_ == nullptr) return;
  path_ = nullptr;
  Leftover** link = &lastMarked;
  while (*link != this) link = &(*link)->next_;  // a marked object is in the list
  *link = next_;
}

void removeLeftovers() {
  const std::lock_guard<std::mutex> lock(guard);
  for (const Leftover* leftover = lastMarked; leftover != nullptr; leftover = leftover->next_) {
    (void)unlink(leftover->path_);  // the process is about to end, so a failure cannot be reported
  }
}
