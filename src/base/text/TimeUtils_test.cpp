#include "base/text/TimeUtils.h"

#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <climits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "testing/models/TimeModel.h"
#include "testing/models/WallClock.h"
#include "testing/run/Zone.h"

namespace {

using namespace TimeUtils;

constexpr std::int64_t kSec = 1'000'000;

struct TextOfTime {
  std::string_view text;
  std::int64_t micros;
};

// --- Clocks

TEST(Clock, NowIsTheWallClockInMicroseconds) {
  const std::int64_t before = std::int64_t{::time(nullptr)} * kSec;
  const std::int64_t now = nowMicros();
  EXPECT_GE(now, before - kSec);
  EXPECT_LE(now, before + 5 * kSec);
  const WallClock clock(1'740'920'707'123'456);
  EXPECT_EQ(nowMicros(), 1'740'920'707'123'456);
}

TEST(Clock, AFailingWallClockFallsBackToWholeSeconds) {
  std::int64_t now = 0;
  {
    WallClock clock(0);
    clock.fail();
    now = nowMicros();
  }
  EXPECT_EQ(now % kSec, 0);
  EXPECT_LE(now, nowMicros());
  EXPECT_GE(now, nowMicros() - 5 * kSec);
}

TEST(Clock, TheMonotonicClockAdvancesAtLeastByTheTimeOfASleep) {
  const std::int64_t first = monotonicMicros();
  ::usleep(2'000);
  const std::int64_t second = monotonicMicros();
  EXPECT_GE(second - first, 2'000);
  EXPECT_LT(second - first, 60 * kSec);
}

std::int64_t systemMicros() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return std::chrono::microseconds(std::chrono::seconds(now.tv_sec)).count() +
         std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::nanoseconds(now.tv_nsec)).count();
}

TEST(Clock, TheMonotonicClockIsThatOfTheSystemToTheMicrosecond) {
  for (int i = 0; i < 10; ++i) {
    const std::int64_t before = systemMicros();
    const std::int64_t now = monotonicMicros();
    EXPECT_LE(before, now);
    EXPECT_LE(now, systemMicros());
    ::usleep(1'000);
  }
}

TEST(NextTimestamp, IsTheLaterOfTheCurrentTimeAndThePreviousStampPlusOne) {
  const WallClock clock(1'000);
  EXPECT_EQ(nextTimestamp(990), 1'000);
  EXPECT_EQ(nextTimestamp(999), 1'000);
  EXPECT_EQ(nextTimestamp(1'000), 1'001);
  EXPECT_EQ(nextTimestamp(3'600 * kSec), 3'600 * kSec + 1);
  EXPECT_EQ(nextTimestamp(INT64_MAX), INT64_MIN) << "the stamp wraps at the largest time";
}

TEST(NextTimestamp, StrictlyIncreasesEvenIfTheClockDoesNot) {
  std::int64_t stamp = 0;
  for (int i = 0; i < 10'000; ++i) {
    const std::int64_t previous = stamp;
    stamp = nextTimestamp(previous);
    ASSERT_GT(stamp, previous);
  }
}

TEST(Timeval, SplitsRoundingDown) {
  const struct {
    std::int64_t micros, seconds, remainder;
  } cases[] = {
      {0, 0, 0},
      {1'500'000, 1, 500'000},
      {-1, -1, 999'999},
      {-1'000'000, -1, 0},
      {-1'000'001, -2, 999'999},
      {INT64_MAX, 9'223'372'036'854, 775'807},
      {INT64_MIN, -9'223'372'036'855, 224'192},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.micros);
    const timeval time = toTimeval(c.micros);
    EXPECT_EQ(time.tv_sec, c.seconds);
    EXPECT_EQ(time.tv_usec, c.remainder);
    EXPECT_EQ(fromTimeval(&time), c.micros);
  }
}

TEST(Timeval, NullIsZeroAndAnOverflowWraps) {
  EXPECT_EQ(fromTimeval(nullptr), 0);
  timeval time{};
  time.tv_sec = 9'223'372'036'855;  // one second beyond the range
  EXPECT_EQ(fromTimeval(&time), -9'223'372'036'854'551'616);
}

// --- Local ticks

TEST(LocalOffset, IsThatOfTheCurrentZoneOn1April3918OnEveryCall) {
  const struct {
    const char* zone;
    std::int64_t minutes;
  } cases[] = {
      {"UTC0", 0},
      {"CET-1", -60},
      {"EST5", 300},
      {"CET-1CEST,M3.5.0,M10.5.0/3", -120},  // in summer time on that date
      {"XST-10XDT,M10.1.0,M4.1.0/3", -660},  // summer time in the south still holds
      {"IST-5:30", -330},
      {"XST0XDT,J92/0,J200", 0},          // summer time begins on 2 April
      {"XST0XDT,M4.1.1/0,M10.1.0", -60},  // it begins on 1 April only if that is a Monday, as in 3918
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.zone);
    const Zone zone(c.zone);
    EXPECT_EQ(localOffsetMicros(), c.minutes * 60 * kSec);
  }
}

TEST(LocalTicks, AreTheTimeMinusTheOffsetAndWrapAtBothLimits) {
  const Zone zone("CET-1");
  constexpr std::int64_t hour = 3'600 * kSec;
  EXPECT_EQ(toLocalTicks(0), hour);
  EXPECT_EQ(fromLocalTicks(hour), 0);
  EXPECT_EQ(fromLocalTicks(toLocalTicks(1'234'567'890'123'456)), 1'234'567'890'123'456);
  EXPECT_EQ(toLocalTicks(INT64_MAX), INT64_MIN + hour - 1);
  EXPECT_EQ(fromLocalTicks(INT64_MIN), INT64_MAX - hour + 1);
}

// --- Broken-down time

// The fields from the year to the microsecond.
std::vector<int> fieldsOf(const BrokenDownTime& t) {
  return {t.year, t.month, t.day, t.hour, t.minute, t.second, t.millisecond, t.microsecond};
}

TEST(BreakDown, FillsEveryFieldAsUtcAndRoundsDown) {
  const Zone zone("EST5");
  const struct {
    std::int64_t micros;
    std::vector<int> expected;
  } cases[] = {
      {1'709'294'405'000'123, {2024, 3, 1, 12, 0, 5, 0, 123}},
      {0, {1970, 1, 1, 0, 0, 0, 0, 0}},
      {-1, {1969, 12, 31, 23, 59, 59, 999, 999}},
      {-1'000'000, {1969, 12, 31, 23, 59, 59, 0, 0}},
      {-1'000'001, {1969, 12, 31, 23, 59, 58, 999, 999}},
      {INT64_MAX, {294247, 1, 10, 4, 0, 54, 775, 807}},
      {INT64_MIN, {-290308, 12, 21, 19, 59, 5, 224, 192}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.micros);
    EXPECT_EQ(fieldsOf(breakDown(c.micros)), c.expected);
    EXPECT_EQ(breakDown(c.micros).micros, c.micros);
    EXPECT_EQ(compose(breakDown(c.micros)), c.micros);
  }
}

TEST(BreakDown, ALeapSecondShowsSecond59) {
  if (::access("/usr/share/zoneinfo/right/UTC", R_OK) != 0) GTEST_SKIP() << "no zone here counts leap seconds";
  const Zone zone("right/UTC");
  std::tm raw{};
  const std::time_t leap = 1'483'228'826;  // the leap second at the end of 2016
  ::gmtime_r(&leap, &raw);
  ASSERT_EQ(raw.tm_sec, 60);
  EXPECT_EQ(fieldsOf(breakDown(leap * kSec + 7)), (std::vector<int>{2016, 12, 31, 23, 59, 59, 0, 7}));
}

TEST(Compose, IsTheInverseOfBreakDown) {
  std::mt19937_64 random(3);
  for (int i = 0; i < 20'000; ++i) {
    const auto micros = static_cast<std::int64_t>(random());
    ASSERT_EQ(compose(breakDown(micros)), micros);
  }
}

TEST(Compose, AnEmptyRecordIsTheStartOf1970) {
  EXPECT_EQ(fieldsOf(BrokenDownTime()), fieldsOf(breakDown(0)));
  EXPECT_EQ(BrokenDownTime().micros, 0);
  EXPECT_EQ(compose(BrokenDownTime()), 0);
}

TEST(Compose, CarriesFieldsOutsideTheirRange) {
  BrokenDownTime t;
  t.year = 2024;
  t.month = 13;
  t.millisecond = 1'500;
  EXPECT_EQ(fieldsOf(breakDown(compose(t))), (std::vector<int>{2025, 1, 1, 0, 0, 1, 500, 0}));
}

TEST(Compose, ExtremeFieldsCauseNoUndefinedBehaviour) {
  for (const int n : {INT_MIN, INT_MAX}) (void)compose(BrokenDownTime{n, n, n, n, n, n, n, n, 0});
}

// --- Texts

TEST(FormatTime, HasTheDateTheSeparatorAndTheTime) {
  EXPECT_EQ(formatTime(1'709'294'405'000'123, false, 'T'), "2024-03-01T12:00:05");
  EXPECT_EQ(formatTime(1'709'294'405'000'123, true, ' '), "2024-03-01 12:00:05.000123");
  EXPECT_EQ(formatTime(1'709'294'405'987'654, true, ' '), "2024-03-01 12:00:05.987654");
  EXPECT_EQ(formatTime(0, true, '_'), "1970-01-01_00:00:00.000000");
  EXPECT_EQ(formatTime(-1, true, ' '), "1969-12-31 23:59:59.999999");
  EXPECT_EQ(formatTime(INT64_MAX, true, ' '), "294247-01-10 04:00:54.775807");
  EXPECT_EQ(formatTime(INT64_MIN, true, ' '), "-290308-12-21 19:59:05.224192");
}

TEST(ParseIsoTime, ReadsAllSixFieldsOrNothing) {
  const TextOfTime cases[] = {
      {"2024-03-01T12:00:05", 1'709'294'405 * kSec},
      {"2024-03-01T12:00:05.123Z", 1'709'294'405 * kSec},
      {"2024-3-1T1:2:3", 1'709'254'923 * kSec},
      {"2024- 3- 1T 1: 2: 3", 1'709'254'923 * kSec},
      {"  2024-03-01T12:00:05", 1'709'294'405 * kSec},
      {"2024-+3-01T12:00:05", 1'709'294'405 * kSec},
      {"1970-01-01T00:00:01", kSec},
      {"1969-12-31T23:59:59", -kSec},
      {"2024-13-01T00:00:00", 1'735'689'600 * kSec},
      {"2024-03-01 12:00:05", 0},
      {"2024-03-01T12:00", 0},
      {"2024-03-01T12:00:", 0},
      {"20240301T120005", 0},
      {"", 0},
      {"x", 0},
  };
  for (const TextOfTime& c : cases) EXPECT_EQ(parseIsoTime(c.text), c.micros) << c.text;
}

TEST(ParseIsoTime, AbsentTextGivesZero) { EXPECT_EQ(parseIsoTime(nullptr), 0); }

TEST(ParseIsoTime, TextsThatEndBeforeTheSecondsGiveZero) {
  const std::string text = "2024-03-01T12:00:05";
  for (std::size_t length = 0; length < text.size() - 1; ++length) {
    EXPECT_EQ(parseIsoTime(text.substr(0, length)), 0) << length;
  }
}

TEST(ParseIsoTime, ReadsBackWhatFormatTimeWrites) {
  std::mt19937_64 random(4);
  for (int i = 0; i < 2'000; ++i) {
    const std::int64_t micros = static_cast<std::int64_t>(random() % 253'402'300'800) * kSec;  // the years 1970 to 9999
    ASSERT_EQ(parseIsoTime(formatTime(micros, false, 'T')), micros);
  }
}

TEST(TimeStamps, StandBetweenPrefixAndSuffix) {
  constexpr std::int64_t time = 1'740'920'707 * kSec;  // 2025-03-02 13:05:07
  EXPECT_EQ(dayStamp("app-", ".log", time), "app-20250302.log");
  EXPECT_EQ(hourStamp("app-", ".log", time), "app-20250302-13.log");
  EXPECT_EQ(minuteStamp("app-", ".log", time), "app-20250302-1305.log");
  EXPECT_EQ(secondStamp("app-", ".log", time), "app-20250302-130507.log");
  EXPECT_EQ(secondStamp("", "", time), "20250302-130507");
  EXPECT_EQ(hourStamp("", "", INT64_MIN), "-2903081221-19");  // a year may have any number of digits
  EXPECT_EQ(dayStamp("", "", INT64_MAX), "2942470110");
  EXPECT_EQ(dayStamp(std::string(5'000, 'p'), "%s", time), std::string(5'000, 'p') + "20250302%s");
}

TEST(TimeStamps, ANullPointerIsNoPrefixAndNoSuffix) {
  constexpr std::int64_t time = 1'740'920'707 * kSec;  // 2025-03-02 13:05:07
  const char* const absent = nullptr;
  const struct {
    std::string (*stamp)(TextOrNull prefix, TextOrNull suffix, std::int64_t micros);
    std::string text;
  } cases[] = {
      {dayStamp, "20250302"},
      {hourStamp, "20250302-13"},
      {minuteStamp, "20250302-1305"},
      {secondStamp, "20250302-130507"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.stamp(absent, absent, time), c.text);
    EXPECT_EQ(c.stamp("app-", absent, time), "app-" + c.text);
    EXPECT_EQ(c.stamp(absent, ".log", time), c.text + ".log");
  }
  EXPECT_EQ(dayStamp(nullptr, nullptr, time), "20250302");
}

TEST(TimeStamps, TheTimeZeroMeansNow) {
  const std::string before = secondStamp("", "", nowMicros());
  const std::string stamp = secondStamp("", "");
  const std::string after = secondStamp("", "", nowMicros());
  EXPECT_LE(before, stamp);
  EXPECT_LE(stamp, after);
  EXPECT_EQ(secondStamp("", "", 1), "19700101-000000");
  const WallClock clock(1'740'920'707 * kSec);
  EXPECT_EQ(minuteStamp("", ""), "20250302-1305");
  EXPECT_EQ(hourStamp("", ""), "20250302-13");
  EXPECT_EQ(dayStamp("", ""), "20250302");
}

// --- Durations

TEST(ParseDuration, NeedsANumberAndAUnit) {
  using namespace std::string_view_literals;
  const TextOfTime cases[] = {
      {"10", 0},
      {"10 ", 0},
      {"10 s", 10 * kSec},
      {"10 Minutes", 600 * kSec},
      {"10minutes", 600 * kSec},
      {"10 ms extra", 10'000},
      {"10 fortnights", 0},
      {"-5 sec", -5 * kSec},
      {"+5 sec", 5 * kSec},
      {"  5\t\n sec\x01", 5 * kSec},
      {"", 0},
      {"s", 0},
      {"sec", 0},
      {"10 secx", 0},
      {"10 sec.", 0},
      {"10 m", 600 * kSec},
      {"10 mm", 0},
      {"1.5 s", 0},
      {"10 \x80s", 0},
      {"10 s\x80", 0},
      {{}, 0},
      {"10\0s"sv, 0},  // the text ends at the zero byte
      {"10 s\0x"sv, 10 * kSec},
      {"9223372036854775807 usec", INT64_MAX},
      {"99999999999999999999 usec", INT64_MAX},  // a huge count saturates
      {"-99999999999999999999 usec", INT64_MIN},
      {"9223372036854775807 ms", -1'000},  // (2^63 - 1) * 1000 modulo 2^64
      {"-9223372036854775808 d", 0},
  };
  for (const TextOfTime& c : cases) EXPECT_EQ(parseDuration(c.text), c.micros) << c.text;
}

TEST(ParseDuration, BytesUpTo32AloneSeparateNumberAndUnitAndEndTheUnit) {
  for (int byte = 1; byte < 256; ++byte) {
    SCOPED_TRACE(byte);
    if (std::isdigit(byte) != 0) continue;
    const std::string gap(1, static_cast<char>(byte));
    EXPECT_EQ(parseDuration("5" + gap + "d"), byte <= 32 ? 432'000 * kSec : 0);
    EXPECT_EQ(parseDuration("5 d" + gap + "-"), byte <= 32 ? 432'000 * kSec : 0);
  }
}

TEST(ParseDuration, KnowsEveryUnitWordInEitherCase) {
  const struct {
    std::int64_t factor;
    std::vector<std::string> words;
  } rows[] = {
      {1, {"usec", "usecs", "microsecond", "microseconds"}},
      {1'000, {"ms", "msec", "msecs", "milli", "millis", "millisecond", "milliseconds"}},
      {1'000'000, {"s", "sec", "secs", "second", "seconds"}},
      {60'000'000, {"m", "min", "mins", "minute", "minutes"}},
      {3'600'000'000, {"h", "hr", "hrs", "hour", "hours"}},
      {86'400'000'000, {"d", "day", "days"}},
  };
  for (const auto& row : rows) {
    for (const std::string& word : row.words) {
      SCOPED_TRACE(word);
      std::string upper = word;
      for (char& c : upper) c = static_cast<char>(c - 32);
      EXPECT_EQ(parseDuration("3 " + word), 3 * row.factor);
      EXPECT_EQ(parseDuration("3" + upper), 3 * row.factor);
      EXPECT_EQ(parseDuration("3 " + word + "\x1f junk"), 3 * row.factor);
      EXPECT_EQ(parseDuration("3 " + word + "x"), 0);
    }
  }
}

TEST(FormatDuration, PicksTheUnitBySizeAndDivisibility) {
  const TextOfTime cases[] = {
      {"0 seconds", 0},
      {"1 usec", 1},
      {"2 usecs", 2},
      {"999 usecs", 999},
      {"1 ms", 1'000},
      {"1500 usecs", 1'500},
      {"2 ms", 2'000},
      {"9999 usecs", 9'999},
      {"10 ms", 10'000},
      {"10 ms", 10'001},
      {"999 ms", 999'999},
      {"1 sec", 1'000'000},
      {"1 sec", 1'000'500},
      {"1001 ms", 1'001'000},
      {"9999 ms", 9'999'999},
      {"10 secs", 10'000'000},
      {"59 secs", 59'000'000},
      {"1 min", 60'000'000},
      {"61 secs", 61'500'000},
      {"90 secs", 90'000'000},
      {"2 mins", 120'000'000},
      {"2 mins", 120'999'999},
      {"599 secs", 599'999'999},
      {"10 mins", 600'000'000},
      {"59 mins", 3'599'999'999},
      {"1 hr", 3'600'000'000},
      {"61 mins", 3'660'000'000},
      {"599 mins", 35'999'999'999},
      {"10 hrs", 36'000'000'000},
      {"1 day", 86'400'000'000},
      {"25 hrs", 90'000'000'000},
      {"2 days", 172'800'000'000},
      {"239 hrs", 863'999'999'999},
      {"10 days", 864'000'000'000},
      {"10 days", 867'600'000'000},
      {"-1 usec", -1},
      {"-2 secs", -2'000'000},
      {"106751991 days", INT64_MAX},
      {"-106751991 days", INT64_MIN},
  };
  for (const TextOfTime& c : cases) EXPECT_EQ(formatDuration(c.micros), c.text) << c.micros;
}

TEST(FormatDuration, AgreesWithASlowImplementation) {
  std::mt19937_64 random(5);
  const std::int64_t roundings[] = {1, 1'000, 1'000'000, 60'000'000, 3'600'000'000, 86'400'000'000};
  for (int i = 0; i < 200'000; ++i) {
    const std::int64_t rounding = roundings[random() % 6];
    std::int64_t value = static_cast<std::int64_t>(random() >> (1 + random() % 62));
    value = value / rounding * rounding + static_cast<std::int64_t>(random() % 2);
    if (value <= 0) continue;
    ASSERT_EQ(formatDuration(value), time_model::formatDuration(value)) << value;
    ASSERT_EQ(formatDuration(-value), "-" + time_model::formatDuration(value)) << value;
  }
}

TEST(FormatDuration, WholeDurationsReadBackAsTheSameTime) {
  for (const std::int64_t micros : {std::int64_t{7}, std::int64_t{5'000}, 42 * kSec, 7'200 * kSec, 864'000 * kSec}) {
    EXPECT_EQ(parseDuration(formatDuration(micros)), micros);
    EXPECT_EQ(parseDuration(formatDuration(-micros)), -micros);
  }
}

TEST(Threads, ThreadsFormatTheSameTexts) {
  const Zone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  const auto texts = [] {
    std::string all;
    for (std::int64_t micros = 0; micros < 500 * kSec; micros += kSec) {
      const std::string time = formatTime(toLocalTicks(micros), true, 'T');
      all += time + secondStamp("", "", micros + 1) + formatDuration(parseDuration("90 s")) +
             std::to_string(parseIsoTime(time));
    }
    return all;
  };
  const std::string expected = texts();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back([&] { EXPECT_EQ(texts(), expected); });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
