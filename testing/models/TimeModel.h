// TimeModel: a simple and slow second implementation of the calendar, of time texts and of durations. Tests compare the
// results of the program with it. It uses nothing of the program. Times are microseconds since the start of 1970, in
// UTC. A text ends at its first zero byte.
#pragma once

#include <cstdint>
#include <string>

namespace time_model {

// The calendar fields of a time. fieldsOf() counts years and months one by one.
struct Fields {
  std::int64_t year = 1970;
  int month = 1;
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int microsecond = 0;  // within the second
};
Fields fieldsOf(std::int64_t micros);

// Returns "2024-03-01 12:00:05" with the separator instead of the blank, and with ".000123" appended if withMicros.
std::string formatTime(std::int64_t micros, bool withMicros, char separator);
// Returns a time stamp for file names: "20250302-130507". `pairsOfTheDay` is the number of two-digit fields of the time
// of day.
std::string stamp(std::int64_t micros, int pairsOfTheDay);
// Parses "2024-03-01T12:00:05". Returns 0 unless all six numbers are present.
std::int64_t parseIsoTime(const std::string& text);

// Parses a number with a unit, such as "5 minutes". Returns microseconds, or 0 if the text has no known unit.
std::int64_t parseDuration(const std::string& text);
// Returns a count and a unit, such as "5 mins", or "0 seconds".
std::string formatDuration(std::int64_t micros);

}  // namespace time_model
