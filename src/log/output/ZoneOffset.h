// ZoneOffset: a cache for TimeUtils::localOffsetMicros, for code that needs the offset of many entries in a row.
//
//   ZoneOffset offset;
//   ticks = micros - offset.micros();
//
// TimeUtils::localOffsetMicros takes microseconds, because the C library calls stat on the system's zone file each
// time. micros() calls it again only if the text of TZ has changed, or if the system's coarse clock has ticked since
// the last call (it ticks every few milliseconds). So a new TZ takes effect at once, and a new zone file of the system
// with the next tick.
//
// bench/log_bench shows what this gains: without the cache, `throughput` takes 5 times as long with one producer and 4
// times as long with four, and `written` takes 2,139 more instructions a message (of about 3,520).
// Threads: the class does not lock; its owner does.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

class ZoneOffset {
 public:
  std::int64_t micros();

 private:
  struct Known {
    std::optional<std::string> zone;  // the text of TZ, empty if TZ was not set
    std::chrono::nanoseconds tick;    // the coarse clock when micros was determined
    std::int64_t micros;
  };
  std::optional<Known> known_;
};
