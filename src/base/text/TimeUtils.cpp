#include "base/text/TimeUtils.h"

#include <array>
#include <cstdio>
#include <ctime>

#include "base/text/StringUtils.h"

namespace TimeUtils {
namespace {

constexpr std::int64_t microsPerSecond = 1'000'000;

// Arithmetic that wraps instead of being undefined.
constexpr std::uint64_t bits(std::int64_t value) { return static_cast<std::uint64_t>(value); }
constexpr std::int64_t plus(std::int64_t a, std::int64_t b) { return static_cast<std::int64_t>(bits(a) + bits(b)); }
constexpr std::int64_t minus(std::int64_t a, std::int64_t b) { return static_cast<std::int64_t>(bits(a) - bits(b)); }
constexpr std::int64_t times(std::int64_t a, std::int64_t b) { return static_cast<std::int64_t>(bits(a) * bits(b)); }
constexpr int minus(int a, int b) { return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b)); }

struct Split {
  std::int64_t seconds;
  std::int64_t micros;  // 0 to 999,999
};

// Rounds down, also before 1970.
constexpr Split split(std::int64_t micros) {
  Split result{micros / microsPerSecond, micros % microsPerSecond};
  if (result.micros < 0) {
    result.seconds -= 1;
    result.micros += microsPerSecond;
  }
  return result;
}

constexpr std::int64_t join(std::int64_t seconds, std::int64_t micros) {
  return plus(times(seconds, microsPerSecond), micros);
}

// The last field that a stamp shows, as how many bytes of the longest one are cut off for it.
enum StampEnd : std::size_t { atSecond = 0, atMinute = 2, atHour = 4, atDay = 7 };

std::string stamp(std::string_view prefix, std::string_view suffix, std::int64_t micros, StampEnd end) {
  const BrokenDownTime t = breakDown(micros == 0 ? nowMicros() : micros);
  std::array<char, 64> text{};
  const int length = std::snprintf(text.data(), text.size(), "%04d%02d%02d-%02d%02d%02d", t.year, t.month, t.day,
                                   t.hour, t.minute, t.second);
  const std::string_view longest(text.data(), static_cast<std::size_t>(length));
  return StringUtils::concatenate({prefix, longest.substr(0, longest.size() - end), suffix});
}

// Digits by hand, since every log line has a time. Each returns the place behind what it wrote.
char* putDigits(char* to, int value, int width) {
  for (int i = width - 1; i >= 0; --i) {
    to[i] = static_cast<char>('0' + value % 10);
    value /= 10;
  }
  return to + width;
}

char* putYear(char* to, int year) {
  if (year >= 0 && year <= 9999) return putDigits(to, year, 4);
  return to + std::snprintf(to, 16, "%04d", year);
}

struct UnitWord {
  std::string_view word;
  std::int64_t factor;
};

constexpr std::int64_t millisecond = 1'000;
constexpr std::int64_t second = 1'000'000;
constexpr std::int64_t minute = 60 * second;
constexpr std::int64_t hour = 60 * minute;
constexpr std::int64_t day = 24 * hour;

constexpr UnitWord unitWords[] = {
    {"usec", 1},
    {"usecs", 1},
    {"microsecond", 1},
    {"microseconds", 1},
    {"ms", millisecond},
    {"msec", millisecond},
    {"msecs", millisecond},
    {"milli", millisecond},
    {"millis", millisecond},
    {"millisecond", millisecond},
    {"milliseconds", millisecond},
    {"s", second},
    {"sec", second},
    {"secs", second},
    {"second", second},
    {"seconds", second},
    {"m", minute},
    {"min", minute},
    {"mins", minute},
    {"minute", minute},
    {"minutes", minute},
    {"h", hour},
    {"hr", hour},
    {"hrs", hour},
    {"hour", hour},
    {"hours", hour},
    {"d", day},
    {"day", day},
    {"days", day},
};

// Whether a byte ends a unit word, or is skipped before it.
constexpr bool isGap(char c) { return static_cast<unsigned char>(c) <= 32; }

// The factor of the unit at the start of the text, 0 when there is none.
std::int64_t unitFactor(std::string_view text) {
  for (const UnitWord& unit : unitWords) {
    if (!StringUtils::startsWithIgnoreCase(text, unit.word)) continue;
    if (text.size() == unit.word.size() || isGap(text[unit.word.size()])) return unit.factor;
  }
  return 0;
}

struct PrintedUnit {
  std::uint64_t micros;
  std::uint64_t below;  // durations below this print in this unit, unless they are whole multiples of the next one
  std::uint64_t ratio;  // how many of this unit make one of the next
  const char* singular;
  const char* plural;
};

constexpr PrintedUnit printedUnits[] = {
    {1, 10'000, 1'000, " usec", " usecs"},      {millisecond, 10'000'000, 1'000, " ms", " ms"},
    {second, 600'000'000, 60, " sec", " secs"}, {minute, 36'000'000'000, 60, " min", " mins"},
    {hour, 864'000'000'000, 24, " hr", " hrs"}, {day, UINT64_MAX, 1, " day", " days"},
};

const PrintedUnit& unitFor(std::uint64_t magnitude) {
  const PrintedUnit* unit = printedUnits;
  while (magnitude >= unit->below) ++unit;
  const bool isWholeInNext = (magnitude / unit->micros) % unit->ratio == 0;
  const bool isLast = unit->ratio == 1;
  return isWholeInNext && !isLast ? unit[1] : *unit;
}

}  // namespace

std::int64_t nowMicros() {
  timeval now{};
  if (::gettimeofday(&now, nullptr) != 0) return times(std::time(nullptr), microsPerSecond);
  return fromTimeval(&now);
}

std::int64_t monotonicMicros() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return join(now.tv_sec, now.tv_nsec / 1'000);
}

std::int64_t nextTimestamp(std::int64_t previous) {
  const std::int64_t now = nowMicros();
  return now > previous ? now : plus(previous, 1);
}

timeval toTimeval(std::int64_t micros) {
  const Split parts = split(micros);
  timeval time{};
  time.tv_sec = static_cast<decltype(time.tv_sec)>(parts.seconds);
  time.tv_usec = static_cast<decltype(time.tv_usec)>(parts.micros);
  return time;
}

std::int64_t fromTimeval(const timeval* time) { return time == nullptr ? 0 : join(time->tv_sec, time->tv_usec); }

std::int64_t localOffsetMicros() {
  std::tm reference{};
  reference.tm_year = 2018;  // counted from 1900: deliberate, see the header
  reference.tm_mon = 3;
  reference.tm_mday = 1;
  // In this order on one record: mktime puts daylight saving into the fields that timegm then reads.
  const std::int64_t local = std::mktime(&reference);
  const std::int64_t utc = ::timegm(&reference);
  return times(local - utc, microsPerSecond);
}

std::int64_t toLocalTicks(std::int64_t micros) { return minus(micros, localOffsetMicros()); }

std::int64_t fromLocalTicks(std::int64_t ticks) { return plus(ticks, localOffsetMicros()); }

BrokenDownTime breakDown(std::int64_t micros) {
  const Split parts = split(micros);
  const std::time_t seconds = static_cast<std::time_t>(parts.seconds);
  std::tm calendar{};
  ::gmtime_r(&seconds, &calendar);

  BrokenDownTime fields;
  fields.year = calendar.tm_year + 1900;
  fields.month = calendar.tm_mon + 1;
  fields.day = calendar.tm_mday;
  fields.hour = calendar.tm_hour;
  fields.minute = calendar.tm_min;
  fields.second = calendar.tm_sec == 60 ? 59 : calendar.tm_sec;  // 60 is a leap second, in zones that count them
  fields.millisecond = static_cast<int>(parts.micros / 1'000);
  fields.microsecond = static_cast<int>(parts.micros % 1'000);
  fields.micros = micros;
  return fields;
}

std::int64_t compose(const BrokenDownTime& fields) {
  std::tm calendar{};
  calendar.tm_year = minus(fields.year, 1900);
  calendar.tm_mon = minus(fields.month, 1);
  calendar.tm_mday = fields.day;
  calendar.tm_hour = fields.hour;
  calendar.tm_min = fields.minute;
  calendar.tm_sec = fields.second;
  const std::int64_t wholeSeconds = join(::timegm(&calendar), 0);
  return plus(wholeSeconds, std::int64_t{fields.millisecond} * 1'000 + fields.microsecond);
}

std::string formatTime(std::int64_t micros, bool withMicros, char separator) {
  const BrokenDownTime t = breakDown(micros);
  std::array<char, 64> text;
  char* at = putYear(text.data(), t.year);
  *at++ = '-';
  at = putDigits(at, t.month, 2);
  *at++ = '-';
  at = putDigits(at, t.day, 2);
  *at++ = separator;
  at = putDigits(at, t.hour, 2);
  *at++ = ':';
  at = putDigits(at, t.minute, 2);
  *at++ = ':';
  at = putDigits(at, t.second, 2);
  if (withMicros) {
    *at++ = '.';
    at = putDigits(at, t.millisecond * 1'000 + t.microsecond, 6);
  }
  return std::string(text.data(), at);
}

std::int64_t parseIsoTime(std::string_view text) {
  BrokenDownTime fields;
  const int read = std::sscanf(std::string(text).c_str(), "%4d-%2d-%2dT%2d:%2d:%2d", &fields.year, &fields.month,
                               &fields.day, &fields.hour, &fields.minute, &fields.second);
  return read == 6 ? compose(fields) : 0;
}

std::string dayStamp(std::string_view prefix, std::string_view suffix, std::int64_t micros) {
  return stamp(prefix, suffix, micros, atDay);
}

std::string hourStamp(std::string_view prefix, std::string_view suffix, std::int64_t micros) {
  return stamp(prefix, suffix, micros, atHour);
}

std::string minuteStamp(std::string_view prefix, std::string_view suffix, std::int64_t micros) {
  return stamp(prefix, suffix, micros, atMinute);
}

std::string secondStamp(std::string_view prefix, std::string_view suffix, std::int64_t micros) {
  return stamp(prefix, suffix, micros, atSecond);
}

std::int64_t parseDuration(std::string_view text) {
  text = text.substr(0, text.find('\0'));
  std::size_t at = 0;
  const std::int64_t count = StringUtils::leadingInt64(text, &at);
  while (at < text.size() && isGap(text[at])) ++at;
  return times(count, unitFactor(text.substr(at)));
}

std::string formatDuration(std::int64_t micros) {
  if (micros == 0) return "0 seconds";
  const std::uint64_t magnitude = micros < 0 ? 0 - bits(micros) : bits(micros);
  const PrintedUnit& unit = unitFor(magnitude);
  // No duration of 64 bits has more units than 32 bits hold: the largest is 106751991 days.
  const auto count = static_cast<std::int32_t>(magnitude / unit.micros);
  return StringUtils::concatenate(
      {micros < 0 ? "-" : "", StringUtils::toString(count), count == 1 ? unit.singular : unit.plural});
}

}  // namespace TimeUtils
