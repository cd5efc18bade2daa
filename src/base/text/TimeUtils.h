// TimeUtils: clocks, calendar fields, time stamps and durations.
//
// Time is a signed 64-bit count of microseconds: of the wall clock since 1970-01-01 00:00:00 UTC, of the monotonic
// clock, or local ticks (wall clock shifted to local time). Calendar fields and texts are those of the given value
// taken as UTC; times before 1970 round down, so 1 microsecond before 1970 is 23:59:59.999999. Results that leave 64
// bits wrap. Nothing fails loudly: unreadable input gives 0. All functions may be called from any thread.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace TimeUtils {

// A calendar time; month and day count from 1.
struct BrokenDownTime {
  int year = 1970;
  int month = 1;
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int millisecond = 0;
  int microsecond = 0;      // within the millisecond
  std::int64_t micros = 0;  // the time it came from
};

// The wall clock (whole seconds where the system gives no better) and the monotonic one.
std::int64_t nowMicros();
std::int64_t monotonicMicros();
// Now, or `previous` + 1 when the clock is not past it: stamps taken in a row strictly increase.
std::int64_t nextTimestamp(std::int64_t previous);

// Seconds and microseconds, the latter always 0 to 999,999; null gives 0.
timeval toTimeval(std::int64_t micros);
std::int64_t fromTimeval(const timeval* time);

// Local ticks are a wall-clock time minus the offset. The offset is that of the local zone's rules on 1 April 3918, not
// of today: deliberate, rotated log files are named by it. Computed on every call.
std::int64_t localOffsetMicros();
std::int64_t toLocalTicks(std::int64_t micros);
std::int64_t fromLocalTicks(std::int64_t ticks);

// A leap second shows as second 59.
BrokenDownTime breakDown(std::int64_t micros);
// Back again; fields outside their range carry over, `fields.micros` is not looked at.
std::int64_t compose(const BrokenDownTime& fields);

// "2024-03-01 12:00:05", with `separator` in the middle, and ".000123" behind when `withMicros` is set.
std::string formatTime(std::int64_t micros, bool withMicros, char separator);
// Reads "2024-03-01T12:00:05" as UTC; text behind it is ignored; 0 unless all six fields are there.
std::int64_t parseIsoTime(std::string_view text);

// Stamps for file names, between a prefix and a suffix: "20250302", "20250302-13", "20250302-1305", "20250302-130507".
// The time 0 means now.
std::string dayStamp(std::string_view prefix, std::string_view suffix, std::int64_t micros = 0);
std::string hourStamp(std::string_view prefix, std::string_view suffix, std::int64_t micros = 0);
std::string minuteStamp(std::string_view prefix, std::string_view suffix, std::int64_t micros = 0);
std::string secondStamp(std::string_view prefix, std::string_view suffix, std::int64_t micros = 0);

// "10 s", "-5 sec", "10minutes", "2 days and more" in microseconds. The unit is required, a bare number is 0, and so is
// anything not understood. What follows the unit behind a blank is ignored.
std::int64_t parseDuration(std::string_view text);
// The time in its largest fitting unit, cut toward zero: "0 seconds", "1 sec", "90 secs", "2 mins", "1500 usecs",
// "25 hrs", "10 days". Milliseconds have no plural.
std::string formatDuration(std::int64_t micros);

}  // namespace TimeUtils
