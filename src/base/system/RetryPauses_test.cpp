#include "base/system/RetryPauses.h"

#include <gmock/gmock.h>

#include "testing/models/SkippedPauses.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

// Returns the milliseconds of each pause until the deadline.
std::vector<std::int64_t> pausesUntil(milliseconds deadline) {
  const SkippedPauses skipped;
  RetryPauses pauses(RetryPauses::Clock::now() + deadline);
  while (pauses.next()) {
  }
  EXPECT_FALSE(pauses.next());
  return skipped.millis();
}

TEST(RetryPausesTest, EachPauseTakesTwiceAsLongAsTheOneBeforeButTwentyMillisecondsAtMost) {
  EXPECT_THAT(pausesUntil(milliseconds(91)), ElementsAre(1, 2, 4, 8, 16, 20, 20, 20));
}

TEST(RetryPausesTest, TheLastPauseEndsAtTheDeadline) {
  EXPECT_THAT(pausesUntil(milliseconds(33)), ElementsAre(1, 2, 4, 8, 16, 2));
}

TEST(RetryPausesTest, ThereIsNoPauseAfterTheDeadline) {
  EXPECT_THAT(pausesUntil(milliseconds(0)), ElementsAre());
  EXPECT_THAT(pausesUntil(milliseconds(-1)), ElementsAre());
}

}  // namespace
