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

TEST(DetachedThread, NobodyNeedsToJoinIt) {
  std::atomic<bool> isDetached{false};
  std::atomic<bool> isOver{false};
  ASSERT_TRUE(startDetachedThread([&] {
    for (int i = 0; i < 300'000 && !isDetached; ++i) {
      pthread_attr_t attributes;
      int state = PTHREAD_CREATE_JOINABLE;
      EXPECT_EQ(::pthread_getattr_np(::pthread_self(), &attributes), 0);
      EXPECT_EQ(::pthread_attr_getdetachstate(&attributes, &state), 0);
      EXPECT_EQ(::pthread_attr_destroy(&attributes), 0);
      isDetached = state == PTHREAD_CREATE_DETACHED;
      ::usleep(100);
    }
    isOver = true;
  }));
  while (!isOver) ::usleep(100);
  EXPECT_TRUE(isDetached);
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
