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
  const std::chrono::nanoseconds tick = lastTick();
  const auto isStillTrue = [&](const Known& known) {
    const bool isSameZone = zone == nullptr ? !known.zone : known.zone && *known.zone == zone;
    return isSameZone && known.tick == tick;
  };
  if (!known_ || !isStillTrue(*known_)) {
    known_ = Known{std::nullopt, tick, TimeUtils::localOffsetMicros()};
    if (zone != nullptr) known_->zone = zone;
  }
  return known_->micros;
}
