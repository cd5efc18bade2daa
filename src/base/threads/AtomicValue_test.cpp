#include "base/threads/AtomicValue.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "base/text/TimeUtils.h"

namespace {

constexpr std::int64_t kALongTime = 60'000'000;

TEST(AtomicValue, SetStoresTheValueAndCompareAndSetOnlyIfTheOldValueMatches) {
  AtomicValue<int> value(1);
  EXPECT_EQ(value.get(), 1);
  value.set(2);
  EXPECT_EQ(value.get(), 2);
  EXPECT_FALSE(value.compareAndSet(1, 3));
  EXPECT_EQ(value.get(), 2);
  EXPECT_TRUE(value.compareAndSet(2, 3));
  EXPECT_EQ(value.get(), 3);
}

TEST(AtomicValue, APredicateIsTrueOnlyForTheValueItWasGiven) {
  AtomicValue<int> value(1);
  const AtomicEqualityTestPredicate<int> isOne(value, 1);
  const AtomicEqualityTestPredicate<int> isTwo(value, 2);
  EXPECT_TRUE(isOne.test());
  EXPECT_FALSE(isTwo.test());
  value.set(2);
  EXPECT_FALSE(isOne.test());
  EXPECT_TRUE(isTwo.test());
}

TEST(AtomicValue, WaitingForTheCurrentValueDoesNotBlock) {
  AtomicValue<int> value(1);
  const AtomicEqualityTestPredicate<int> isOne(value, 1);
  isOne.wait();
  EXPECT_TRUE(isOne.waitFor(kALongTime));
  EXPECT_TRUE(isOne.waitFor(0));
}

TEST(AtomicValue, AWaitForAValueThatIsNotSetEndsAfterItsTimeLimit) {
  AtomicValue<int> value(1);
  const std::int64_t start = TimeUtils::monotonicMicros();
  EXPECT_FALSE(AtomicEqualityTestPredicate<int>(value, 2).waitFor(20'000));
  EXPECT_GE(TimeUtils::monotonicMicros() - start, 20'000);
  EXPECT_FALSE(AtomicEqualityTestPredicate<int>(value, 2).waitFor(-1));
  EXPECT_FALSE(AtomicEqualityTestPredicate<int>(value, 2).waitFor(INT64_MIN));
}

TEST(AtomicValue, WaitsWithLongLimitsAndWithoutLimitEndWhenTheValueIsSet) {
  AtomicValue<int> value(1);
  const AtomicEqualityTestPredicate<int> isTwo(value, 2);
  std::atomic<int> aboutToWait{0};
  std::thread endless([&] {
    ++aboutToWait;
    isTwo.wait();
  });
  std::vector<std::thread> waiters;
  for (const std::int64_t micros : {kALongTime, std::int64_t{INT64_MAX}}) {
    waiters.emplace_back([&, micros] {
      ++aboutToWait;
      EXPECT_TRUE(isTwo.waitFor(micros));
    });
  }
  while (aboutToWait < 3) ::usleep(100);
  ::usleep(20'000);
  value.set(3);  // another value ends no wait
  ::usleep(20'000);
  EXPECT_TRUE(value.compareAndSet(3, 2));
  endless.join();
  for (std::thread& waiter : waiters) waiter.join();
}

TEST(AtomicValue, WakingEndsTimedWaitsWithoutAChange) {
  AtomicValue<int> value(1);
  std::atomic<bool> isBack{false};
  std::thread waiter([&] {
    EXPECT_FALSE(AtomicEqualityTestPredicate<int>(value, 2).waitFor(kALongTime));
    isBack = true;
  });
  while (!isBack) {
    value.wakeWaiters();
    ::usleep(1'000);
  }
  waiter.join();
  EXPECT_EQ(value.get(), 1);
}

TEST(AtomicValue, AWaiterMayDestroyTheObjectItWaitedFor) {
  for (int i = 0; i < 200; ++i) {
    auto value = std::make_unique<AtomicValue<int>>(1);
    std::thread setter([raw = value.get()] { raw->set(2); });
    AtomicEqualityTestPredicate<int>(*value, 2).wait();
    value.reset();
    setter.join();
  }
}

TEST(AtomicValue, AChildCanDestroyItWhileAThreadOfTheParentWaits) {
  auto value = std::make_unique<AtomicValue<int>>(1);
  std::thread waiter([&] { AtomicEqualityTestPredicate<int>(*value, 2).wait(); });
  ::usleep(20'000);
  const pid_t child = ::fork();
  if (child == 0) {
    value.reset();
    ::_exit(7);
  }
  int status = -1;
  for (int i = 0; i < 500 && ::waitpid(child, &status, WNOHANG) == 0; ++i) ::usleep(10'000);
  EXPECT_TRUE(WIFEXITED(status)) << "the child hangs";
  EXPECT_EQ(WEXITSTATUS(status), 7);
  value->set(2);
  waiter.join();
}

}  // namespace
