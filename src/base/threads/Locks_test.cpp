#include "base/threads/Locks.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "base/text/TimeUtils.h"
#include "base/threads/ThreadNames.h"
#include "testing/models/WallClock.h"

namespace {

struct Report {
  std::string mutex, holder;
  std::int64_t threshold = 0, measured = 0;

  bool operator==(const Report& other) const {
    return mutex == other.mutex && holder == other.holder && threshold == other.threshold && measured == other.measured;
  }
};
std::mutex reportsGuard;  // two threads may report about one mutex at the same time
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

// Installs reports that record their calls; restores the defaults at the end.
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

constexpr std::int64_t kNever = 3'600'000'000;

void holdFor(Lockable& mutex, useconds_t micros) {
  const ScopedLock lock(mutex);
  ::usleep(micros);
}

// Lets another thread, named "holder", hold the mutex for the given time while this thread tries to lock it.
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

TEST(BasicMutex, AdmitsOneThreadAtATime) {
  BasicMutex mutex;
  expectExclusion(mutex);
}

TEST(TimedMutex, AdmitsOneThreadAtATime) {
  TimedMutex mutex("m", kNever, kNever);
  expectExclusion(mutex);
}

TEST(PortableMutex, AdmitsOneThreadAtATime) {
  PortableMutex plain;
  expectExclusion(plain);
  PortableMutex timed("m", kNever, kNever);
  expectExclusion(timed);
}

TEST(OwnedMutex, AdmitsOneThreadAtATime) {
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

TEST(TimedMutex, AMissingNameBecomesUnnamedMutex) {
  EXPECT_EQ(TimedMutex(nullptr, 1, 1).name(), "<unnamed mutex>");
  EXPECT_EQ(TimedMutex("", 1, 1).name(), "<unnamed mutex>");
  EXPECT_EQ(TimedMutex("queue", 1, 1).name(), "queue");
}

TEST(TimedMutex, NegativeThresholdsAreZero) {
  const TimedMutex mutex("m", -1, INT64_MIN);
  EXPECT_EQ(mutex.acquireWarnMicros(), 0);
  EXPECT_EQ(mutex.holdWarnMicros(), 0);
}

TEST(TimedMutex, TheAcquisitionTimeIsZeroWhileItIsFree) {
  TimedMutex mutex("m", kNever, kNever);
  EXPECT_EQ(mutex.acquiredAt(), 0);
  const std::int64_t before = TimeUtils::nowMicros();
  mutex.lock();
  EXPECT_GE(mutex.acquiredAt(), before);
  EXPECT_LE(mutex.acquiredAt(), TimeUtils::nowMicros());
  mutex.unlock();
  EXPECT_EQ(mutex.acquiredAt(), 0);
}

TEST_F(Reports, AWaitAboveTheThresholdIsReportedByTheWaiter) {
  TimedMutex mutex("busy", 10'000, kNever);
  contend(mutex, 50'000);
  ASSERT_FALSE(slowAcquires.empty());  // on a stalled machine there may be one of the holder too
  EXPECT_EQ(slowAcquires.back().mutex, "busy");
  EXPECT_EQ(slowAcquires.back().holder, getThreadName());
  EXPECT_EQ(slowAcquires.back().threshold, 10'000);
  EXPECT_GT(slowAcquires.back().measured, 10'000);
  EXPECT_TRUE(longHolds.empty());
}

TEST_F(Reports, AHoldAboveTheThresholdIsReportedWithItsHolder) {
  TimedMutex mutex("held", kNever, 10'000);
  contend(mutex, 30'000);
  ASSERT_FALSE(longHolds.empty());  // on a stalled machine there may be one of the waiter too
  EXPECT_EQ(longHolds[0].mutex, "held");
  EXPECT_EQ(longHolds[0].holder, "holder");
  EXPECT_EQ(longHolds[0].threshold, 10'000);
  EXPECT_GE(longHolds[0].measured, 30'000);
  EXPECT_TRUE(slowAcquires.empty());
}

TEST_F(Reports, NothingIsReportedBelowTheThresholds) {
  TimedMutex mutex("quick", kNever, kNever);
  contend(mutex, 5'000);
  EXPECT_TRUE(slowAcquires.empty());
  EXPECT_TRUE(longHolds.empty());
}

TEST_F(Reports, TheMutexIsFreeAgainWhenALongHoldIsReported) {
  static TimedMutex mutex("free", kNever, 1'000);
  static int reports = 0;
  setLongHoldReport([](const char*, const char*, std::int64_t, std::int64_t) {
    ++reports;
    EXPECT_EQ(mutex.acquiredAt(), 0);
    setLongHoldReport(recordLongHold);
    const ScopedLock again(mutex);  // would block forever if the mutex were held
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
  ASSERT_GE(slowAcquires.size(), 1U);  // on a slow machine a lock takes a microsecond even without contention
  EXPECT_EQ(slowAcquires[0].mutex, "timed");
  ASSERT_GE(longHolds.size(), 1U);
  EXPECT_EQ(longHolds[0].mutex, "timed");
}

// Lets a thread, named "waiter", wait for the mutex and then hold it, each for exactly the given time of the clock.
void waitAndHold(TimedMutex& mutex, std::int64_t waited, std::int64_t held) {
  constexpr std::int64_t start = 1'000'000'000;
  WallClock clock(start);
  std::thread waiter;
  {
    const ScopedLock lock(mutex);
    const int asked = clock.timesAsked();
    waiter = std::thread([&] {
      setThreadName("waiter");
      const ScopedLock waitedFor(mutex);
      clock.moveTo(start + waited + held);
    });
    clock.waitUntilAsked(asked + 1);  // the waiter has read the clock before it waits
    clock.moveTo(start + waited);
  }
  waiter.join();
}

TEST_F(Reports, OnlyTimesAboveTheThresholdAreReported) {
  const struct {
    std::int64_t threshold, micros;
    bool isReported;
  } cases[] = {{100, 99, false}, {100, 100, false}, {100, 101, true}, {0, 0, false}, {0, 1, true}, {-7, 1, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.micros << " over " << c.threshold);
    slowAcquires.clear();
    longHolds.clear();
    TimedMutex slow("slow", c.threshold, kNever);
    waitAndHold(slow, c.micros, 0);
    ASSERT_EQ(slowAcquires.size(), c.isReported ? 1U : 0U);
    TimedMutex longHeld("long", kNever, c.threshold);
    waitAndHold(longHeld, 0, c.micros);
    ASSERT_EQ(longHolds.size(), c.isReported ? 1U : 0U);
    if (!c.isReported) continue;
    const Report expectedAcquire = {"slow", "waiter", std::max<std::int64_t>(c.threshold, 0), c.micros};
    const Report expectedHold = {"long", "waiter", std::max<std::int64_t>(c.threshold, 0), c.micros};
    EXPECT_EQ(slowAcquires[0], expectedAcquire);
    EXPECT_EQ(longHolds[0], expectedHold);
  }
}

TEST_F(Reports, AClockThatIsSetBackReportsNothing) {
  TimedMutex mutex("m", 0, 0);
  waitAndHold(mutex, -500, -500);
  EXPECT_TRUE(slowAcquires.empty());
  EXPECT_TRUE(longHolds.empty());
}

TEST_F(Reports, ASlowAcquisitionIsReportedWhileTheMutexIsHeld) {
  static TimedMutex mutex("m", 0, kNever);
  static int reports = 0;
  setSlowAcquireReport([](const char*, const char*, std::int64_t, std::int64_t) {
    ++reports;
    EXPECT_NE(mutex.acquiredAt(), 0);
  });
  waitAndHold(mutex, 1, 0);
  EXPECT_EQ(reports, 1);
}

TEST_F(Reports, AMutexMayBeDestroyedFromTheReportOfItsLastHold) {
  static std::unique_ptr<TimedMutex> mutex;
  static std::string reported;
  mutex = std::make_unique<TimedMutex>("a name too long to lie inside of the string object itself", kNever, 0);
  setLongHoldReport([](const char* name, const char* holder, std::int64_t, std::int64_t measured) {
    mutex.reset();
    reported = std::string(name) + ", " + holder + ", " + std::to_string(measured);
  });
  waitAndHold(*mutex, 0, 5);
  EXPECT_EQ(reported, "a name too long to lie inside of the string object itself, waiter, 5");
}

// Returns everything that the default reports write.
std::string linesOf(TimedMutex& mutex, std::int64_t waited, std::int64_t held) {
  testing::internal::CaptureStderr();
  waitAndHold(mutex, waited, held);
  return testing::internal::GetCapturedStderr();
}

TEST(DefaultReports, WriteOneLineOfWholeMillisecondsToStandardError) {
  const struct {
    std::int64_t micros;
    const char* millis;
  } cases[] = {{1, "0"}, {999, "0"}, {1'000, "1"}, {61'999, "61"}, {3'600'000'000, "3600000"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.micros);
    TimedMutex slow("slow 100%s", 0, INT64_MAX);
    EXPECT_EQ(linesOf(slow, c.micros, 0),
              std::string("lock contention warning, 'slow 100%s' took ") + c.millis + "ms to acquire\n");
    TimedMutex longHeld("slow 100%s", INT64_MAX, 0);
    EXPECT_EQ(linesOf(longHeld, 0, c.micros), std::string("lock warning, 'slow 100%s' held for ") + c.millis + "ms\n");
  }
}

TEST(DefaultReports, NameAnUnnamedMutex) {
  TimedMutex mutex(nullptr, INT64_MAX, 0);
  EXPECT_EQ(linesOf(mutex, 0, 2'000), "lock warning, '<unnamed mutex>' held for 2ms\n");
}

TEST_F(Reports, NullBringsBackTheDefaults) {
  setSlowAcquireReport(nullptr);
  setLongHoldReport(nullptr);
  TimedMutex slow("m", 0, INT64_MAX);
  EXPECT_EQ(linesOf(slow, 5'000, 0), "lock contention warning, 'm' took 5ms to acquire\n");
  TimedMutex longHeld("m", INT64_MAX, 0);
  EXPECT_EQ(linesOf(longHeld, 0, 5'000), "lock warning, 'm' held for 5ms\n");
  EXPECT_TRUE(slowAcquires.empty());
  EXPECT_TRUE(longHolds.empty());
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

TEST(ScopedOwnedLock, DoesNotTouchALockThatItsThreadHolds) {
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

TEST(OwnedMutex, AdmitsOneThreadAtATimeHoweverLongItIsHeld) {
  OwnedMutex mutex;
  int inside = 0;  // guarded by the mutex
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20; ++i) {
        const ScopedLock lock(mutex);
        EXPECT_EQ(++inside, 1);
        if (i % 5 == 0) ::usleep(500);
        --inside;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
