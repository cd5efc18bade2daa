#include "log/output/ZoneOffset.h"

#include <time.h>

#include <cstdlib>

#include "base/text/TimeUtils.h"
#include "testing/run/HostTest.h"

namespace {

class ZoneOffsetTest : public HostTest {
 protected:
  void TearDown() override { ::unsetenv("TZ"); }

  static void use(const char* zone) { ::setenv("TZ", zone, 1); }
};

constexpr std::int64_t kHour = 3'600'000'000;

TEST_F(ZoneOffsetTest, NewTzTakesEffectAtOnce) {
  const struct {
    const char* zone;
    std::int64_t expected;
  } cases[] = {
      {"UTC0", 0},
      {"EST5", 5 * kHour},
      {"EST6", 6 * kHour},
      {"JST-9", -9 * kHour},
      {"", 0},
      {"EST5", 5 * kHour},
      // Daylight saving time is in effect on 1 April 3918.
      {"CET-1CEST,M3.5.0,M10.5.0/3", -2 * kHour},
  };
  ZoneOffset offset;
  for (int round = 0; round < 50; ++round) {
    for (const auto& c : cases) {
      SCOPED_TRACE(c.zone);
      use(c.zone);
      ASSERT_EQ(offset.micros(), c.expected);
      ASSERT_EQ(offset.micros(), c.expected);
      ASSERT_EQ(TimeUtils::localOffsetMicros(), c.expected);
    }
  }
}

TEST_F(ZoneOffsetTest, WithoutTzTheZoneOfTheSystemIsUsed) {
  ZoneOffset offset;
  ::unsetenv("TZ");
  const std::int64_t system = TimeUtils::localOffsetMicros();
  for (int round = 0; round < 50; ++round) {
    use("ACST-9:30");
    ASSERT_EQ(offset.micros(), -9 * kHour - kHour / 2);
    ::unsetenv("TZ");
    ASSERT_EQ(offset.micros(), system);
  }
}

TEST_F(ZoneOffsetTest, NewZoneFileOfTheSystemTakesEffectSoon) {
  constexpr char tokyo[] = "/usr/share/zoneinfo/Asia/Tokyo";
  if (!host::exists(tokyo)) GTEST_SKIP() << "no zones here";
  ::unsetenv("TZ");
  ZoneOffset offset;
  ASSERT_NE(offset.micros(), -9 * kHour);
  host::remove("/etc/localtime");
  host::makeLink("/etc/localtime", tokyo);
  for (int i = 0; i < 2'000 && offset.micros() != -9 * kHour; ++i) ::usleep(1'000);
  EXPECT_EQ(offset.micros(), -9 * kHour);
}

}  // namespace
