#include "command/status/FirstFailure.h"

#include <gtest/gtest.h>

#include "command/status/AppStatusCodes.h"

namespace {

TEST(FirstFailure, KeepsTheFirstFailure) {
  Status kept;
  keepFirstFailure(kept, Status::of(status::profileIsActive));
  EXPECT_EQ(kept.code(), status::success);
  keepFirstFailure(kept, Status::error(status::openError, "path", "step"));
  keepFirstFailure(kept, Status::of(status::writeError));
  keepFirstFailure(kept, Status());
  EXPECT_EQ(kept.code(), status::openError);
  EXPECT_EQ(kept.details(), "path");
  EXPECT_EQ(kept.context(), "step");
}

}  // namespace
