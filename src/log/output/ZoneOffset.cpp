#include "log/output/ZoneOffset.h"

#include <cstdlib>
#include <ctime>

#include "base/text/TimeUtils.h"

namespace {

// Returns the time of the coarse clock's last tick.
std::chrono::nanoseconds lastTick() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

}  // namespace

std::int64_t ZoneOffset::micros() {
  const char* const zone = std::getenv("TZ");
  const bool isSameZone = zone == nullptr ? !zone_ : zone_ && *zone_ == zone;
  const std::chrono::nanoseconds tick = lastTick();
  if (isSameZone && tick_ == tick) return micros_;
  tick_ = tick;
  zone_.reset();
  if (zone != nullptr) zone_ = zone;
  micros_ = TimeUtils::localOffsetMicros();
  return micros_;
}
