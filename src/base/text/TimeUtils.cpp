#include "base/text/TimeUtils.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>

#include "base/text/StringUtils.h"

namespace TimeUtils {
namespace {

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

// Splits a time and rounds the seconds down, also before 1970.
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

std::string digits(int width, int number) {
  char text[sizeof "-2147483648"];
  std::snprintf(text, sizeof text, "%0*d", width, number);
  return text;
}

// The texts of the stamps. Each adds one field to the one before it.
std::string dayText(const BrokenDownTime& t) { return digits(4, t.year) + digits(2, t.month) + digits(2, t.day); }
std::string hourText(const BrokenDownTime& t) { return dayText(t) + "-" + digits(2, t.hour); }
std::string minuteText(const BrokenDownTime& t) { return hourText(t) + digits(2, t.minute); }
std::string secondText(const BrokenDownTime& t) { return minuteText(t) + digits(2, t.second); }

BrokenDownTime fieldsOrNow(std::int64_t micros) { return breakDown(micros == 0 ? nowMicros() : micros); }

struct UnitWord {
  std::string_view word;
  std::int64_t factor;
};

constexpr std::int64_t millisecond = 1'000;
constexpr std::int64_t second = microsPerSecond;
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

// True for a byte that may separate number and unit, and that ends a unit.
constexpr bool isGap(char c) { return static_cast<unsigned char>(c) <= 32; }

// The factor of the unit at the start of the text; 0 if there is none.
std::int64_t unitFactor(std::string_view text) {
  for (const UnitWord& unit : unitWords) {
    if (!StringUtils::startsWithIgnoreCase(text, unit.word)) continue;
    if (text.size() == unit.word.size() || isGap(text[unit.word.size()])) return unit.factor;
  }
  return 0;
}

struct PrintedUnit {
  std::uint64_t micros;
  const char* singular;
  const char* plural;
};

constexpr PrintedUnit printedUnits[] = {
    {1, " usec", " usecs"},    {millisecond, " ms", " ms"}, {second, " sec", " secs"},
    {minute, " min", " mins"}, {hour, " hr", " hrs"},       {day, " day", " days"},
};

// True for a whole number of the next unit, after what is less than one of this unit was cut off.
bool isWholeIn(std::uint64_t magnitude, const PrintedUnit& unit, const PrintedUnit& next) {
  return magnitude / unit.micros % (next.micros / unit.micros) == 0;
}

// A unit is used from ten on, and for whole numbers.
const PrintedUnit& unitFor(std::uint64_t magnitude) {
  const PrintedUnit* unit = std::begin(printedUnits);
  for (const PrintedUnit& next : printedUnits) {
    if (magnitude / next.micros > 9 || isWholeIn(magnitude, *unit, next)) unit = &next;
  }
  return *unit;
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
  reference.tm_year = 2018;  // counted from 1900, so 3918: deliberate, see the header
  reference.tm_mon = 3;
  reference.tm_mday = 1;
  // Both calls use one record in this order: mktime stores daylight saving in the fields that timegm then reads.
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
  fields.second = calendar.tm_sec == 60 ? 59 : calendar.tm_sec;  // 60 is a leap second, in time zones that count them
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
  char text[sizeof "-290308-12-21 19:59:05"];  // the earliest time has the longest text
  const int length = std::snprintf(text, sizeof text, "%04d-%02d-%02d%c%02d:%02d:%02d", t.year, t.month, t.day,
                                   separator, t.hour, t.minute, t.second);
  const std::string seconds(text, static_cast<std::size_t>(length));
  return withMicros ? seconds + "." + digits(6, t.millisecond * 1'000 + t.microsecond) : seconds;
}

std::int64_t parseIsoTime(TextOrNull text) {
  BrokenDownTime fields;
  const int read = std::sscanf(std::string(text).c_str(), "%4d-%2d-%2dT%2d:%2d:%2d", &fields.year, &fields.month,
                               &fields.day, &fields.hour, &fields.minute, &fields.second);
  return read == 6 ? compose(fields) : 0;
}

std::string dayStamp(TextOrNull prefix, TextOrNull suffix, std::int64_t micros) {
  return StringUtils::concatenate({prefix, dayText(fieldsOrNow(micros)), suffix});
}

std::string hourStamp(TextOrNull prefix, TextOrNull suffix, std::int64_t micros) {
  return StringUtils::concatenate({prefix, hourText(fieldsOrNow(micros)), suffix});
}

std::string minuteStamp(TextOrNull prefix, TextOrNull suffix, std::int64_t micros) {
  return StringUtils::concatenate({prefix, minuteText(fieldsOrNow(micros)), suffix});
}

std::string secondStamp(TextOrNull prefix, TextOrNull suffix, std::int64_t micros) {
  return StringUtils::concatenate({prefix, secondText(fieldsOrNow(micros)), suffix});
}

std::int64_t parseDuration(TextOrNull text) {
  text = text.substr(0, text.find('\0'));
  auto [count, at] = StringUtils::leadingInt64(text);
  while (at < text.size() && isGap(text[at])) ++at;
  return times(count, unitFactor(text.substr(at)));
}

std::string formatDuration(std::int64_t micros) {
  const std::uint64_t magnitude = std::min(bits(micros), 0 - bits(micros));  // the negative one has the highest bit
  const PrintedUnit& unit = unitFor(magnitude);
  // The count always fits 32 bits: the largest duration is 106751991 days.
  const auto count = static_cast<std::int32_t>(magnitude / unit.micros);
  const char* const word = count == 1 ? unit.singular : unit.plural;
  return StringUtils::concatenate(
      {micros < 0 ? "-" : "", StringUtils::toString(count), count == 0 ? " seconds" : word});
}

}  // namespace TimeUtils
