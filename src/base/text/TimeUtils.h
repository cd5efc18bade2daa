// TimeUtils: clocks, calendar fields, time stamps and durations.
//
// A time is a signed 64-bit count of microseconds. There are three kinds:
// - wall-clock time, counted since 1970-01-01 00:00:00 UTC;
// - monotonic time;
// - local ticks: wall-clock time shifted to local time.
// Calendar fields and texts always treat the given value as UTC. Times before 1970 round down, so the time -1 is
// 23:59:59.999999. Results that do not fit 64 bits wrap. Unreadable input gives 0. All functions may be called from any
// thread.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <string>

#include "base/text/TextOrNull.h"

namespace TimeUtils {

constexpr std::int64_t microsPerSecond = 1'000'000;

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
  std::int64_t micros = 0;  // the time that breakDown was given
};

// The wall-clock time in microseconds since 1970, and the monotonic time in microseconds. If the wall clock cannot be
// read to the microsecond, its time has whole seconds.
std::int64_t nowMicros();
std::int64_t monotonicMicros();
// The wall-clock time in microseconds since 1970, or `previous` + 1 if the clock is not past `previous`. So a sequence
// of time stamps strictly increases.
std::int64_t nextTimestamp(std::int64_t previous);

// Conversions. The microseconds of a timeval are always 0 to 999,999. A null timeval gives 0.
timeval toTimeval(std::int64_t micros);
std::int64_t fromTimeval(const timeval* time);

// Local ticks are a wall-clock time minus the local offset. The offset is the one that the local zone's rules give for
// 1 April 3918, not today's. That is deliberate: the names of rotated log files depend on it. It is computed on every
// call.
std::int64_t localOffsetMicros();
std::int64_t toLocalTicks(std::int64_t micros);
std::int64_t fromLocalTicks(std::int64_t ticks);

// Splits a time, in microseconds since 1970, into calendar fields. A leap second becomes second 59.
BrokenDownTime breakDown(std::int64_t micros);
// The time in microseconds since 1970 that the fields from `year` to `microsecond` give. Fields outside their range
// carry over into the next larger one. `fields.micros`, the time that breakDown was given, is not read.
std::int64_t compose(const BrokenDownTime& fields);

// Formats a time as "2024-03-01 12:00:05", with `separator` between date and time. If `withMicros` is set, ".000123"
// follows.
std::string formatTime(std::int64_t micros, bool withMicros, char separator);
// Parses "2024-03-01T12:00:05" as UTC and returns the time in microseconds since 1970. Any text behind it is ignored.
// Returns 0 if one of the six fields is missing, and for a null pointer.
std::int64_t parseIsoTime(TextOrNull text);

// Time stamps for file names, such as "20250302", "20250302-13", "20250302-1305" and "20250302-130507", with a prefix
// before and a suffix behind them. A null pointer is no prefix or suffix. The time 0 means now.
std::string dayStamp(TextOrNull prefix, TextOrNull suffix, std::int64_t micros = 0);
std::string hourStamp(TextOrNull prefix, TextOrNull suffix, std::int64_t micros = 0);
std::string minuteStamp(TextOrNull prefix, TextOrNull suffix, std::int64_t micros = 0);
std::string secondStamp(TextOrNull prefix, TextOrNull suffix, std::int64_t micros = 0);

// Parses a duration such as "10 s", "-5 sec", "10minutes" or "2 days and more" into microseconds. The unit is required:
// a number without one gives 0, and so do a null pointer and any text that is not understood. Text behind the unit and
// a blank is ignored.
std::int64_t parseDuration(TextOrNull text);
// Formats a duration as a count of one unit, rounded toward zero: "0 seconds", "1 sec", "90 secs", "2 mins", "1500
// usecs", "25 hrs", "10 days". It uses the largest unit that passes one of two tests: the duration has at least ten
// of it, or the duration, rounded down to a whole number of the next smaller unit, is a whole number of it. The unit
// "ms" has no plural form.
std::string formatDuration(std::int64_t micros);

}  // namespace TimeUtils
