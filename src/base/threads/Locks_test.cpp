#include "base/threads/Locks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/text/TimeUtils.h"
#include "base/threads/ThreadNames.h"
#include "testing/models/WallClock.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::mutex reportsGuard;  // two threads may report about one mutex at the same time
std::vector<std::string> slowAcquires;
std::vector<std::string> longHolds;

// The text of a report: "queue, waiter: 101 over 100".
std::string report(const char* mutex, const std::string& holder, std::int64_t threshold, std::int64_t measured) {
  return mutex + (", " + holder) + ": " + std::to_string(measured) + " over " + std::to_string(threshold);
}
void recordSlowAcquire(const char* mutex, const char* holder, std::int64_t threshold, std::int64_t measured) {
  const std::lock_guard<std::mutex> guard(reportsGuard);
  slowAcquires.push_back(report(mutex, holder, threshold, measured));
}
void recordLongHold(const char* mutex, const char* holder, std::int64_t threshold, std::int64_t measured) {
  const std::lock_guard<std::mutex> guard(reportsGuard);
  longHolds.push_back(report(mutex, holder, threshold, measured));
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

TEST(Mutexes, AdmitOneThreadAtATimeEvenIfItHoldsThemLong) {
  constexpr int threadCount = 8;
  constexpr int rounds = 2'000;
  BasicMutex basic;
  TimedMutex timed("m", kNever, kNever);
  PortableMutex plainPortable;
  PortableMutex timedPortable("m", kNever, kNever);
  OwnedMutex owned;
  const struct {
    const char* why;
    Lockable& mutex;
  } cases[] = {
      {"a basic mutex", basic},
      {"a timed mutex", timed},
      {"a plain portable mutex", plainPortable},
      {"a timed portable mutex", timedPortable},
      {"an owned mutex", owned},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    int counter = 0;  // not atomic on purpose
    int inside = 0;   // guarded by the mutex
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < rounds; ++i) {
          const ScopedLock lock(c.mutex);
          EXPECT_EQ(++inside, 1);
          ++counter;
          if (i % 500 == 0) ::usleep(500);
          --inside;
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(counter, threadCount * rounds);
  }
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

// Lets a thread, named "waiter", wait for the mutex and then hold it, each for exactly the given time of the clock.
void waitAndHold(Lockable& mutex, std::int64_t waited, std::int64_t held) {
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

TEST_F(Reports, TheMutexIsFreeAgainWhenALongHoldIsReported) {
  static TimedMutex mutex("free", kNever, 1'000);
  static int reports;
  reports = 0;  // also if the test is repeated
  setLongHoldReport([](const char*, const char*, std::int64_t, std::int64_t) {
    ++reports;
    EXPECT_EQ(mutex.acquiredAt(), 0);
    setLongHoldReport(recordLongHold);
    const ScopedLock again(mutex);  // would block forever if the mutex were held
  });
  waitAndHold(mutex, 0, 5'000);
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
  PortableMutex belowTheLeastThreshold("plain", 0, 100);
  PortableMutex unnamed;
  for (PortableMutex* mutex : {&belowTheLeastThreshold, &unnamed}) {
    std::atomic<bool> isHeld{false};
    std::thread holder([&] {
      const ScopedLock lock(*mutex);
      isHeld = true;
      ::usleep(20'000);
    });
    while (!isHeld) ::usleep(100);
    { const ScopedLock lock(*mutex); }
    holder.join();
  }
  EXPECT_THAT(slowAcquires, IsEmpty());
  EXPECT_THAT(longHolds, IsEmpty());
}

TEST_F(Reports, ATimedPortableMutexWarns) {
  PortableMutex mutex("timed", 1, 1);
  waitAndHold(mutex, 20'000, 20'000);
  const std::string byTheWaiter = report("timed", "waiter", 1, 20'000);
  EXPECT_THAT(slowAcquires, ElementsAre(byTheWaiter));
  EXPECT_THAT(longHolds, UnorderedElementsAre(byTheWaiter, report("timed", getThreadName(), 1, 20'000)));
}

TEST_F(Reports, OnlyTimesAboveTheThresholdAreReportedWithTheNameOfTheThread) {
  const struct {
    std::int64_t threshold, micros;
    std::vector<std::string> reports;
  } cases[] = {
      {100, 99, {}},
      {100, 100, {}},
      {100, 101, {"m, waiter: 101 over 100"}},
      {0, 0, {}},
      {0, 1, {"m, waiter: 1 over 0"}},
      {-7, 1, {"m, waiter: 1 over 0"}},
      {0, -500, {}},  // the clock is set back
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.micros << " over " << c.threshold);
    slowAcquires.clear();
    longHolds.clear();
    TimedMutex slow("m", c.threshold, kNever);
    waitAndHold(slow, c.micros, 0);
    EXPECT_EQ(slowAcquires, c.reports);
    EXPECT_THAT(longHolds, IsEmpty());
    TimedMutex longHeld("m", kNever, c.threshold);
    waitAndHold(longHeld, 0, c.micros);
    EXPECT_EQ(slowAcquires, c.reports);
    EXPECT_EQ(longHolds, c.reports);
  }
}

TEST_F(Reports, ASlowAcquisitionIsReportedWhileTheMutexIsHeld) {
  static TimedMutex mutex("m", 0, kNever);
  static int reports;
  reports = 0;  // also if the test is repeated
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
    const char* name;
    std::int64_t micros;
    std::string shownName, millis;
  } cases[] = {
      {"slow 100%s", 1, "slow 100%s", "0"},
      {"slow 100%s", 999, "slow 100%s", "0"},
      {"slow 100%s", 1'000, "slow 100%s", "1"},
      {"slow 100%s", 61'999, "slow 100%s", "61"},
      {"slow 100%s", 3'600'000'000, "slow 100%s", "3600000"},
      {nullptr, 2'000, "<unnamed mutex>", "2"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.shownName + " " + c.millis);
    TimedMutex slow(c.name, 0, INT64_MAX);
    EXPECT_EQ(linesOf(slow, c.micros, 0),
              "lock contention warning, '" + c.shownName + "' took " + c.millis + "ms to acquire\n");
    TimedMutex longHeld(c.name, INT64_MAX, 0);
    EXPECT_EQ(linesOf(longHeld, 0, c.micros), "lock warning, '" + c.shownName + "' held for " + c.millis + "ms\n");
  }
}

TEST_F(Reports, NullBringsBackTheDefaults) {
  setSlowAcquireReport(nullptr);
  setLongHoldReport(nullptr);
  TimedMutex slow("m", 0, INT64_MAX);
  EXPECT_EQ(linesOf(slow, 5'000, 0), "lock contention warning, 'm' took 5ms to acquire\n");
  TimedMutex longHeld("m", INT64_MAX, 0);
  EXPECT_EQ(linesOf(longHeld, 0, 5'000), "lock warning, 'm' held for 5ms\n");
  EXPECT_THAT(slowAcquires, IsEmpty());
  EXPECT_THAT(longHolds, IsEmpty());
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

TEST(OwnedMutex, UnlockIfHeldUnlocksItForItsHolderOnly) {
  OwnedMutex mutex;
  mutex.unlockIfHeld();
  mutex.lock();
  std::thread([&] { mutex.unlockIfHeld(); }).join();
  EXPECT_TRUE(mutex.isHeldByThisThread());
  mutex.unlockIfHeld();
  EXPECT_FALSE(mutex.isHeldByThisThread());
  std::thread([&] { const ScopedOwnedLock lock(mutex); }).join();
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

}  // namespace
