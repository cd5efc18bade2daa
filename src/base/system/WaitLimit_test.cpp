#include "base/system/WaitLimit.h"

#include <gtest/gtest.h>

#include <thread>

#include "testing/models/SkippedPauses.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// NOLINTBEGIN(readability-identifier-naming): WaitLimit decides the name
struct Edits {
  static constexpr seconds longestWait{10};
};
struct Repairs {
  static constexpr seconds longestWait{1};
};
// NOLINTEND(readability-identifier-naming)

using Limit = WaitLimit<Edits>;

// The clock advances only during pauses.
class WaitLimitTest : public testing::Test {
 protected:
  static void pause() { std::this_thread::sleep_for(milliseconds(20)); }

  const SkippedPauses skipped_;
  const Limit::Clock::time_point start_ = Limit::Clock::now();
};

TEST_F(WaitLimitTest, TheTimeBeginsWithTheFirstOperation) {
  const Limit limit;
  pause();
  EXPECT_EQ(Limit::deadline(), start_ + milliseconds(20) + seconds(10));
  pause();
  EXPECT_EQ(Limit::deadline(), start_ + milliseconds(20) + seconds(10)) << "a later operation";
}

TEST_F(WaitLimitTest, ALimitWithinALimitHasNoEffect) {
  const Limit outer;
  EXPECT_EQ(Limit::deadline(), start_ + seconds(10));
  for (int i = 0; i < 2; ++i) {
    pause();
    const Limit inner;
    EXPECT_EQ(Limit::deadline(), start_ + seconds(10));
  }
  EXPECT_EQ(Limit::deadline(), start_ + seconds(10)) << "the inner limits have ended";
}

TEST_F(WaitLimitTest, OutsideOfEveryLimitEachOperationHasTheWholeTime) {
  EXPECT_EQ(Limit::deadline(), start_ + seconds(10));
  {
    const Limit limit;
    EXPECT_EQ(Limit::deadline(), start_ + seconds(10));
  }
  pause();
  EXPECT_EQ(Limit::deadline(), start_ + milliseconds(20) + seconds(10)) << "behind a limit";
}

TEST_F(WaitLimitTest, ALimitCountsForOneKindAndItsOwnThread) {
  const Limit limit;
  EXPECT_EQ(Limit::deadline(), start_ + seconds(10));
  pause();
  EXPECT_EQ(WaitLimit<Repairs>::deadline(), start_ + milliseconds(20) + seconds(1));
  std::thread([this] { EXPECT_EQ(Limit::deadline(), start_ + milliseconds(20) + seconds(10)); }).join();
}

}  // namespace
