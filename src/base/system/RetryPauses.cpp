#include "base/system/RetryPauses.h"

#include <algorithm>
#include <thread>

bool RetryPauses::next() {
  constexpr Clock::duration longestPause = std::chrono::milliseconds(20);
  const auto now = Clock::now();
  if (now >= deadline_) return false;
  std::this_thread::sleep_for(std::min(pause_, deadline_ - now));
  pause_ = std::min(pause_ * 2, longestPause);
  return true;
}
