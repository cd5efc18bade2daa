#include "testing/models/TimeModel.h"

#include <cstdio>
#include <cstdlib>

namespace time_model {

namespace {

constexpr std::int64_t kSecond = 1000000;
constexpr std::int64_t kDay = 86400 * kSecond;

bool isLeap(std::int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }
std::int64_t daysOfYear(std::int64_t year) { return isLeap(year) ? 366 : 365; }
int daysOfMonth(std::int64_t year, int month) {
  const int days[] = {31, isLeap(year) ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return days[month - 1];
}

// Every period of 400 years has this number of days.
constexpr std::int64_t kDaysOf400Years = 146097;

// Returns the days from 1970-01-01 to the first day of the month. The month may be outside 1 to 12.
std::int64_t daysBefore(std::int64_t year, int month) {
  for (; month > 12; month -= 12) ++year;
  for (; month < 1; month += 12) --year;
  std::int64_t days = 0;
  for (std::int64_t y = 1970; y < year; ++y) days += daysOfYear(y);
  for (std::int64_t y = year; y < 1970; ++y) days -= daysOfYear(y);
  for (int m = 1; m < month; ++m) days += daysOfMonth(year, m);
  return days;
}

std::string twoDigits(int number) {
  char text[20];
  (void)std::snprintf(text, sizeof text, "%02d", number);
  return text;
}

std::string fourDigits(std::int64_t number) {
  char text[30];
  (void)std::snprintf(text, sizeof text, "%04d", static_cast<int>(number));
  return text;
}

bool isBlankOrEnd(char c) { return static_cast<unsigned char>(c) <= 32; }

bool sameLetter(char a, char b) {
  const auto small = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return small(a) == small(b);
}

// Returns true if the text starts with the word, followed by whitespace or the end of the text.
bool isWord(const char* text, const std::string& word) {
  for (const char c : word) {
    if (!sameLetter(*text, c)) return false;
    ++text;
  }
  return isBlankOrEnd(*text);
}

struct Unit {
  const char* word;
  std::int64_t factor;
};
const Unit kUnits[] = {{"usec", 1},
                       {"usecs", 1},
                       {"microsecond", 1},
                       {"microseconds", 1},
                       {"ms", 1000},
                       {"msec", 1000},
                       {"msecs", 1000},
                       {"milli", 1000},
                       {"millis", 1000},
                       {"millisecond", 1000},
                       {"milliseconds", 1000},
                       {"s", kSecond},
                       {"sec", kSecond},
                       {"secs", kSecond},
                       {"second", kSecond},
                       {"seconds", kSecond},
                       {"m", 60 * kSecond},
                       {"min", 60 * kSecond},
                       {"mins", 60 * kSecond},
                       {"minute", 60 * kSecond},
                       {"minutes", 60 * kSecond},
                       {"h", 3600 * kSecond},
                       {"hr", 3600 * kSecond},
                       {"hrs", 3600 * kSecond},
                       {"hour", 3600 * kSecond},
                       {"hours", 3600 * kSecond},
                       {"d", kDay},
                       {"day", kDay},
                       {"days", kDay}};

std::string counted(std::uint64_t value, std::uint64_t unit, const std::string& one, const std::string& many) {
  const auto count = static_cast<std::int32_t>(static_cast<std::uint32_t>(value / unit));
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string formatMagnitude(std::uint64_t us) {
  const auto usecs = [&] { return counted(us, 1, "usec", "usecs"); };
  const auto millis = [&] { return counted(us, 1000, "ms", "ms"); };
  const auto secs = [&] { return counted(us, 1000000, "sec", "secs"); };
  const auto mins = [&] { return counted(us, 60000000, "min", "mins"); };
  const auto hours = [&] { return counted(us, 3600000000, "hr", "hrs"); };
  const auto days = [&] { return counted(us, 86400000000, "day", "days"); };
  if (us < 10000) return us % 1000 != 0 ? usecs() : millis();
  if (us < 10000000) return us / 1000 % 1000 == 0 ? secs() : millis();
  if (us < 600000000) return us / 1000000 % 60 != 0 ? secs() : mins();
  if (us < 36000000000) return us / 60000000 % 60 != 0 ? mins() : hours();
  return us < 864000000000 && us / 3600000000 % 24 != 0 ? hours() : days();
}

}  // namespace

Fields fieldsOf(std::int64_t micros) {
  std::int64_t days = micros / kDay;
  std::int64_t rest = micros % kDay;
  if (rest < 0) {
    rest += kDay;
    --days;
  }
  Fields fields;
  for (; days < 0; days += kDaysOf400Years) fields.year -= 400;
  for (; days >= kDaysOf400Years; days -= kDaysOf400Years) fields.year += 400;
  for (; days >= daysOfYear(fields.year); ++fields.year) days -= daysOfYear(fields.year);
  for (; days >= daysOfMonth(fields.year, fields.month); ++fields.month) days -= daysOfMonth(fields.year, fields.month);
  fields.day = static_cast<int>(days) + 1;
  fields.hour = static_cast<int>(rest / (3600 * kSecond));
  fields.minute = static_cast<int>(rest / (60 * kSecond) % 60);
  fields.second = static_cast<int>(rest / kSecond % 60);
  fields.microsecond = static_cast<int>(rest % kSecond);
  return fields;
}

std::string formatTime(std::int64_t micros, bool withMicros, char separator) {
  const Fields f = fieldsOf(micros);
  std::string text = fourDigits(f.year) + "-" + twoDigits(f.month) + "-" + twoDigits(f.day) + separator +
                     twoDigits(f.hour) + ":" + twoDigits(f.minute) + ":" + twoDigits(f.second);
  if (!withMicros) return text;
  char fraction[20];
  (void)std::snprintf(fraction, sizeof fraction, ".%06d", f.microsecond);
  return text + fraction;
}

std::string stamp(std::int64_t micros, int pairsOfTheDay) {
  const Fields f = fieldsOf(micros);
  std::string text = fourDigits(f.year) + twoDigits(f.month) + twoDigits(f.day);
  const int ofTheDay[] = {f.hour, f.minute, f.second};
  for (int i = 0; i < pairsOfTheDay; ++i) text += (i == 0 ? "-" : "") + twoDigits(ofTheDay[i]);
  return text;
}

std::int64_t parseIsoTime(const std::string& text) {
  int y = 0;
  int mon = 0;
  int d = 0;
  int h = 0;
  int min = 0;
  int s = 0;
  if (std::sscanf(text.c_str(), "%04d-%02d-%02dT%02d:%02d:%02d", &y, &mon, &d, &h, &min, &s) != 6) return 0;
  return (daysBefore(y, mon) + d - 1) * kDay + (h * 3600LL + min * 60LL + s) * kSecond;
}

std::int64_t parseDuration(const std::string& text) {
  char* at = nullptr;
  const long long number = std::strtoll(text.c_str(), &at, 10);
  while (*at != 0 && isBlankOrEnd(*at)) ++at;
  if (*at == 0) return 0;
  for (const Unit& unit : kUnits) {
    if (!isWord(at, unit.word)) continue;
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(number) * static_cast<std::uint64_t>(unit.factor));
  }
  return 0;
}

std::string formatDuration(std::int64_t micros) {
  if (micros == 0) return "0 seconds";
  if (micros < 0) return "-" + formatMagnitude(0 - static_cast<std::uint64_t>(micros));
  return formatMagnitude(static_cast<std::uint64_t>(micros));
}

}  // namespace time_model
