// ZoneOffset: TimeUtils::localOffsetMicros for code that asks it for one entry after the other.
//
//   ZoneOffset offset;
//   ticks = micros - offset.micros();
//
// Looking the offset up costs microseconds, since the system looks at the file of its zone each time. Here it is looked
// up when TZ has another text than at the last question, or when the clock has ticked since (every few milliseconds).
// So a new TZ counts at once, and another file in the place of the system's zone from the next tick on. Threads: none;
// the owner locks.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

class ZoneOffset {
 public:
  std::int64_t micros();

 private:
  std::optional<std::string> zone_;  // the text of TZ, none when it was not set
  std::int64_t tick_ = -1;           // the clock when it was looked up, below 0 when it never was
  std::int64_t micros_ = 0;
};
