#include "base/threads/DetachedThread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <memory>

#include "testing/faults/NoThreads.h"

namespace {

TEST(DetachedThread, RunsTheBodyOnceOnAThreadOfItsOwn) {
  const auto runs = std::make_shared<std::atomic<int>>(0);
  const pid_t own = ::gettid();
  ASSERT_TRUE(startDetachedThread([runs, own] {
    EXPECT_NE(::gettid(), own);
    ++*runs;
  }));
  while (runs.use_count() > 1) ::usleep(100);
  EXPECT_EQ(*runs, 1);
}

TEST(DetachedThread, NothingRunsWhenTheSystemGivesNoThread) {
  const auto runs = std::make_shared<std::atomic<int>>(0);
  {
    const NoThreads none;
    EXPECT_FALSE(startDetachedThread([runs] { ++*runs; }));
  }
  EXPECT_EQ(runs.use_count(), 1);
  EXPECT_EQ(*runs, 0);
}

}  // namespace
