// TimeModel: calendar, time texts and durations written down from their description, one rule after the other; slow,
// and nothing of the program in it. What the program answers is held against it. Times are microseconds since 1970,
// texts end at their first zero byte.
#pragma once

#include <cstdint>
#include <string>

namespace time_model {

// Calendar fields of a time, counted off year by year and month by month.
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

// "2024-03-01 12:00:05", with ".000123" behind when wanted.
std::string formatTime(std::int64_t micros, bool withMicros, char separator);
// The digits of a stamp for file names: "20250302-130507"; of the time of day as many pairs as wanted.
std::string stamp(std::int64_t micros, int pairsOfTheDay);
// "2024-03-01T12:00:05"; 0 unless all six numbers are there.
std::int64_t parseIsoTime(const std::string& text);

std::int64_t parseDuration(const std::string& text);
std::string formatDuration(std::int64_t micros);

}  // namespace time_model
