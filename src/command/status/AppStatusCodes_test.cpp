#include "command/status/AppStatusCodes.h"

#include <gtest/gtest.h>

namespace {

TEST(AppStatusText, KnowsItsSixCodes) {
  const struct {
    StatusCode code;
    const char* text;
  } cases[] = {
      {0x00001001, "profile is active"},
      {0x00001002, "profile is currently running"},
      {0x12001001, "profile not found"},
      {0x12001002, "command cannot be executed while the profile is running"},
      {0x16001001, "child process returned nonzero exit code"},
      {0x16001002, "child process terminated by a signal"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.code);
    EXPECT_STREQ(appStatusText(c.code), c.text);
  }
}

TEST(AppStatusText, IsNullForACodeThatIsNotTheProgramsOwn) {
  for (const StatusCode code : {0x00000001U, 0x00001003U, 0x00000000U, 0x12002001U, 0x10001001U}) {
    EXPECT_EQ(appStatusText(code), nullptr) << code;
  }
}

TEST(AppStatusText, StatusTextFindsItAfterRegistration) {
  registerStatusTexts(1, appStatusText);
  EXPECT_STREQ(statusText(0x00001001), "profile is active");
  EXPECT_STREQ(statusText(0x12001099), "generic application error");
}

TEST(AppStatus, CodesWithANoteAreSuccesses) {
  EXPECT_TRUE(isSuccess(0x00001001));
  EXPECT_TRUE(isSuccess(0x00001002));
  EXPECT_EQ(status::profileIsActive, 0x00001001U);
  EXPECT_EQ(status::profileIsRunning, 0x00001002U);
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
