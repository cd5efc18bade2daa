#include "log/output/ZoneOffset.h"

#include <cstdlib>
#include <ctime>

#include "base/text/TimeUtils.h"

namespace {

// Returns the time of the coarse clock's last tick, in nanoseconds.
std::int64_t lastTick() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

}  // namespace

std::int64_t ZoneOffset::micros() {
  const char* const zone = std::getenv("TZ");
  const bool isSameZone = zone == nullptr ? !zone_ : zone_ && *zone_ == zone;
  const std::int64_t tick = lastTick();
  if (isSameZone && tick == tick_) return micros_;
  tick_ = tick;
  zone_.reset();
  if (zone != nullptr) zone_ = zone;
  micros_ = TimeUtils::localOffsetMicros();
  return micros_;
}
