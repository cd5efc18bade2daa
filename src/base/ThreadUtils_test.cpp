#include "base/ThreadUtils.h"

#include <gtest/gtest.h>

namespace {

// A file that includes this header alone has all of them.
TEST(ThreadUtils, OneHeaderGivesThreadsLocksQueuesTasksAndSignals) {
  const AtomicValue<int> value(1);
  BasicMutex mutex;
  const ScopedLock lock(mutex);
  SimplePointerQueue queue;
  EXPECT_FALSE(queue.push(nullptr));
  EXPECT_EQ(value.get(), 1);
  sleepMicros(0);
  static_assert(sizeof(WorkerRunner) > 0 && sizeof(AsyncTask) > 0 && sizeof(SignalManager) > 0, "they are complete");
  (void)&startDetachedThread;
}

}  // namespace
