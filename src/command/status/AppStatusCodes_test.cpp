#include "command/status/AppStatusCodes.h"

#include <gtest/gtest.h>

namespace {

TEST(AppStatusText, KnowsOnlyItsSixCodes) {
  const struct {
    StatusCode code, number;
    const char* text;
    bool isSuccess;
  } cases[] = {
      {status::profileIsActive, 0x00001001, "profile is active", true},
      {status::profileIsRunning, 0x00001002, "profile is currently running", true},
      {status::profileNotFound, 0x12001001, "profile not found", false},
      {status::notWhileRunning, 0x12001002, "command cannot be executed while the profile is running", false},
      {status::childExitedNonzero, 0x16001001, "child process returned nonzero exit code", false},
      {status::childKilledBySignal, 0x16001002, "child process terminated by a signal", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(c.code, c.number);
    EXPECT_STREQ(appStatusText(c.number), c.text);
    EXPECT_EQ(isSuccess(c.number), c.isSuccess);
  }
  for (const StatusCode code : {0x00000001U, 0x00001003U, 0x00000000U, 0x12002001U, 0x10001001U}) {
    EXPECT_EQ(appStatusText(code), nullptr) << code;
  }
}

TEST(AppStatusText, StatusTextFindsApplicationTextsAfterRegistration) {
  registerStatusTexts(1, appStatusText);
  EXPECT_STREQ(statusText(0x00001001), "profile is active");
  EXPECT_STREQ(statusText(0x12001099), "generic application error");
}

TEST(StatusOfChildOutcome, MapsEveryRangeWithoutDetails) {
  const struct {
    int outcome;
    StatusCode code;
  } cases[] = {
      {1000, 0x00000001}, {1001, 0x16001001}, {1255, 0x16001001}, {1999, 0x16001001}, {2000, 0x16001002},
      {2009, 0x16001002}, {2999, 0x16001002}, {3000, 0x1400000b}, {3001, 0x1400000b}, {3002, 0x1400000b},
      {999, 0x1400000b},  {0, 0x1400000b},    {-1, 0x1400000b},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.outcome);
    const Status status = statusOfChildOutcome(c.outcome);
    EXPECT_EQ(status.code(), c.code);
    EXPECT_EQ(status.details(), "");
    EXPECT_EQ(status.context(), "");
  }
}

}  // namespace
