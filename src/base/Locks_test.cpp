#include "base/Locks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

#include "base/ThreadNames.h"
#include "base/TimeUtils.h"

namespace {

struct Report {
  std::string mutex, holder;
  std::int64_t threshold = 0, measured = 0;
};
std::mutex reportsGuard;  // reports of one mutex may come from two threads at once
std::vector<Report> slowAcquires;
std::vector<Report> longHolds;

void recordSlowAcquire(const char* mutex, const char* holder, std::int64_t threshold, std::int64_t measured) {
  const std::lock_guard<std::mutex> guard(reportsGuard);
  slowAcquires.push_back({mutex, holder, threshold, measured});
}
void recordLongHold(const char* mutex, const char* holder, std::int64_t threshold, std::int64_t measured) {
  const std::lock_guard<std::mutex> guard(reportsGuard);
  longHolds.push_back({mutex, holder, threshold, measured});
}

// Installs recording reports, and the defaults again.
class Reports : public testing::Test {
 protected:
  void SetUp() override {
    slowAcquires.clear();
    longHolds.clear();
    setSlowAcquireReport(recordSlowAcquire);
    setLongHoldReport(recordLongHold);
  }
  void TearDown() override {
    setSlowAcquireReport(nullptr);
    setLongHoldReport(nullptr);
  }
};

constexpr std::int64_t never = 3'600'000'000;

void holdFor(Lockable& mutex, useconds_t micros) {
  const ScopedLock lock(mutex);
  ::usleep(micros);
}

// Has another thread, named "holder", hold the mutex for that long while this thread tries to get it.
void contend(Lockable& mutex, useconds_t micros) {
  std::atomic<bool> held{false};
  std::thread holder([&] {
    setThreadName("holder");
    const ScopedLock lock(mutex);
    held = true;
    ::usleep(micros);
  });
  while (!held) ::usleep(100);
  { const ScopedLock lock(mutex); }
  holder.join();
}

template <typename Mutex>
void expectExclusion(Mutex& mutex) {
  constexpr int threads = 8;
  constexpr int rounds = 2'000;
  int counter = 0;  // not atomic on purpose
  std::vector<std::thread> all;
  for (int i = 0; i < threads; ++i) {
    all.emplace_back([&] {
      for (int round = 0; round < rounds; ++round) {
        const ScopedLock lock(mutex);
        ++counter;
      }
    });
  }
  for (std::thread& thread : all) thread.join();
  EXPECT_EQ(counter, threads * rounds);
}

TEST(BasicMutex, LetsOneThreadInAtATime) {
  BasicMutex mutex;
  expectExclusion(mutex);
}

TEST(TimedMutex, LetsOneThreadInAtATime) {
  TimedMutex mutex("m", never, never);
  expectExclusion(mutex);
}

TEST(PortableMutex, LetsOneThreadInAtATime) {
  PortableMutex plain;
  expectExclusion(plain);
  PortableMutex timed("m", never, never);
  expectExclusion(timed);
}

TEST(OwnedMutex, LetsOneThreadInAtATime) {
  OwnedMutex mutex;
  expectExclusion(mutex);
}

TEST(ScopedLock, LocksOnceAndUnlocksOnce) {
  struct Counting : Lockable {
    int locks = 0, unlocks = 0;
    void lock() override { ++locks; }
    void unlock() override { ++unlocks; }
  } lockable;
  {
    const ScopedLock lock(lockable);
    EXPECT_EQ(lockable.locks, 1);
    EXPECT_EQ(lockable.unlocks, 0);
  }
  EXPECT_EQ(lockable.locks, 1);
  EXPECT_EQ(lockable.unlocks, 1);
}

TEST(TimedMutex, AnAbsentNameIsUnnamed) {
  EXPECT_EQ(TimedMutex(nullptr, 1, 1).name(), "<unnamed mutex>");
  EXPECT_EQ(TimedMutex("", 1, 1).name(), "<unnamed mutex>");
  EXPECT_EQ(TimedMutex("queue", 1, 1).name(), "queue");
}

TEST(TimedMutex, NegativeThresholdsAreZero) {
  const TimedMutex mutex("m", -1, INT64_MIN);
  EXPECT_EQ(mutex.acquireWarnMicros(), 0);
  EXPECT_EQ(mutex.holdWarnMicros(), 0);
}

TEST(TimedMutex, KnowsWhenItWasAcquiredAndIsZeroWhileFree) {
  TimedMutex mutex("m", never, never);
  EXPECT_EQ(mutex.acquiredAt(), 0);
  const std::int64_t before = TimeUtils::nowMicros();
  mutex.lock();
  EXPECT_GE(mutex.acquiredAt(), before);
  EXPECT_LE(mutex.acquiredAt(), TimeUtils::nowMicros());
  mutex.unlock();
  EXPECT_EQ(mutex.acquiredAt(), 0);
}

TEST_F(Reports, AWaitAboveTheThresholdIsReportedByTheWaiter) {
  TimedMutex mutex("busy", 10'000, never);
  contend(mutex, 50'000);
  ASSERT_FALSE(slowAcquires.empty());  // a stalled machine may add the holder's own
  EXPECT_EQ(slowAcquires.back().mutex, "busy");
  EXPECT_EQ(slowAcquires.back().holder, getThreadName());
  EXPECT_EQ(slowAcquires.back().threshold, 10'000);
  EXPECT_GT(slowAcquires.back().measured, 10'000);
  EXPECT_TRUE(longHolds.empty());
}

TEST_F(Reports, AHoldAboveTheThresholdIsReportedWithItsHolder) {
  TimedMutex mutex("held", never, 10'000);
  contend(mutex, 30'000);
  ASSERT_FALSE(longHolds.empty());  // a stalled machine may add the waiter's own
  EXPECT_EQ(longHolds[0].mutex, "held");
  EXPECT_EQ(longHolds[0].holder, "holder");
  EXPECT_EQ(longHolds[0].threshold, 10'000);
  EXPECT_GE(longHolds[0].measured, 30'000);
  EXPECT_TRUE(slowAcquires.empty());
}

TEST_F(Reports, NothingIsReportedBelowTheThresholds) {
  TimedMutex mutex("quick", never, never);
  contend(mutex, 5'000);
  EXPECT_TRUE(slowAcquires.empty());
  EXPECT_TRUE(longHolds.empty());
}

TEST_F(Reports, TheMutexIsFreeAgainWhenALongHoldIsReported) {
  static TimedMutex mutex("free", never, 1'000);
  static int reports = 0;
  setLongHoldReport([](const char*, const char*, std::int64_t, std::int64_t) {
    ++reports;
    EXPECT_EQ(mutex.acquiredAt(), 0);
    setLongHoldReport(recordLongHold);
    const ScopedLock again(mutex);  // would wait for ever if it were held
  });
  holdFor(mutex, 5'000);
  EXPECT_EQ(reports, 1);
}

TEST_F(Reports, APortableMutexIsTimedWhenBothThresholdsAreAtLeastOne) {
  const struct {
    std::int64_t acquire, hold;
    bool timed;
  } cases[] = {{1, 1, true},  {100, 100, true}, {0, 100, false}, {100, 0, false},
               {0, 0, false}, {-5, 100, false}, {100, -5, false}};
  for (const auto& c : cases) {
    EXPECT_EQ(PortableMutex("m", c.acquire, c.hold).isTimed(), c.timed) << c.acquire << " " << c.hold;
  }
  EXPECT_FALSE(PortableMutex().isTimed());
}

TEST_F(Reports, APlainPortableMutexNeverWarns) {
  PortableMutex mutex("plain", 0, 100);
  contend(mutex, 20'000);
  PortableMutex unnamed;
  contend(unnamed, 20'000);
  EXPECT_TRUE(slowAcquires.empty());
  EXPECT_TRUE(longHolds.empty());
}

TEST_F(Reports, ATimedPortableMutexWarns) {
  PortableMutex mutex("timed", 1, 1);
  contend(mutex, 20'000);
  ASSERT_GE(slowAcquires.size(), 1U);  // on a slow machine a microsecond is soon gone without contention
  EXPECT_EQ(slowAcquires[0].mutex, "timed");
  ASSERT_GE(longHolds.size(), 1U);
  EXPECT_EQ(longHolds[0].mutex, "timed");
}

TEST(DefaultReports, WriteOneLineToStandardError) {
  TimedMutex mutex("slow 100%s", 20'000, 20'000);
  testing::internal::CaptureStderr();
  contend(mutex, 60'000);
  const std::string lines = testing::internal::GetCapturedStderr();
  EXPECT_THAT(lines, testing::ContainsRegex("lock contention warning, 'slow 100%s' took [0-9]+ms to acquire\n"));
  EXPECT_THAT(lines, testing::ContainsRegex("lock warning, 'slow 100%s' held for [0-9]+ms\n"));
  EXPECT_GE(std::count(lines.begin(), lines.end(), '\n'), 2);  // a stalled machine may add some
}

TEST(DefaultReports, CountWholeMilliseconds) {
  TimedMutex mutex("m", never, 0);
  testing::internal::CaptureStderr();
  holdFor(mutex, 3'000);
  const std::string line = testing::internal::GetCapturedStderr();
  int millis = 0;
  ASSERT_EQ(std::sscanf(line.c_str(), "lock warning, 'm' held for %dms\n", &millis), 1) << line;
  EXPECT_GE(millis, 3);
  EXPECT_LT(millis, 3'000);
}

TEST(OwnedMutex, KnowsItsHolder) {
  OwnedMutex mutex;
  EXPECT_FALSE(mutex.isHeldByThisThread());
  mutex.lock();
  EXPECT_TRUE(mutex.isHeldByThisThread());
  std::thread([&] { EXPECT_FALSE(mutex.isHeldByThisThread()); }).join();
  mutex.unlock();
  EXPECT_FALSE(mutex.isHeldByThisThread());
}

TEST(ScopedOwnedLock, LeavesALockAloneThatItsThreadHolds) {
  OwnedMutex mutex;
  {
    const ScopedOwnedLock outer(mutex);
    EXPECT_FALSE(outer.wasHeld());
    {
      const ScopedOwnedLock inner(mutex);
      EXPECT_TRUE(inner.wasHeld());
    }
    EXPECT_TRUE(mutex.isHeldByThisThread());
  }
  EXPECT_FALSE(mutex.isHeldByThisThread());
}

TEST(TryLock, LocksOnlyWhatIsFree) {
  BasicMutex basic;
  EXPECT_TRUE(basic.tryLock());
  std::thread([&] { EXPECT_FALSE(basic.tryLock()); }).join();
  basic.unlock();
  PortableMutex plain;
  EXPECT_TRUE(plain.tryLock());
  std::thread([&] { EXPECT_FALSE(plain.tryLock()); }).join();
  plain.unlock();
}

TEST(TryLock, NeverLocksATimedMutex) {
  PortableMutex timed("timed", 1'000'000, 1'000'000);
  EXPECT_FALSE(timed.tryLock());
}

TEST(OwnedMutex, IsTakenByOneThreadAtATimeHoweverLongItIsHeld) {
  OwnedMutex mutex;
  int inside = 0;  // guarded by the mutex
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20; ++i) {
        const ScopedLock lock(mutex);
        EXPECT_EQ(++inside, 1);
        if (i % 5 == 0) ::usleep(500);  // longer than anybody looks before sleeping
        --inside;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
