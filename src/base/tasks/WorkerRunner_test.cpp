#include "base/tasks/WorkerRunner.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <thread>

#include "base/text/TimeUtils.h"
#include "testing/faults/NoThreads.h"
#include "testing/models/WallClock.h"

namespace {

using State = WorkerRunner::State;

TEST(WorkerRunner, StatesHaveTheirNumbers) {
  EXPECT_EQ(static_cast<int>(State::starting), 1);
  EXPECT_EQ(static_cast<int>(State::running), 2);
  EXPECT_EQ(static_cast<int>(State::stopRequested), 3);
  EXPECT_EQ(static_cast<int>(State::stopped), 4);
}

TEST(WorkerRunner, AStopOfAStoppedRunnerChangesNothing) {
  std::atomic<int> steps{0};
  WorkerRunner runner([&] { return ++steps % 3 != 0; });
  for (int i = 0; i < 3; ++i) {  // the first round is before the first start
    SCOPED_TRACE(i);
    EXPECT_EQ(runner.state(), State::stopped);
    EXPECT_TRUE(runner.waitStopped(-1));
    runner.requestStop();
    runner.requestStop();
    EXPECT_EQ(runner.state(), State::stopped);
    EXPECT_TRUE(runner.start());
    EXPECT_TRUE(runner.waitStopped(30));
    EXPECT_EQ(steps, 3 * (i + 1));
  }
}

TEST(WorkerRunner, StepsOnAThreadOfItsOwnUntilAStepReturnsFalse) {
  std::atomic<int> steps{0};
  std::atomic<pid_t> thread{0};
  WorkerRunner runner([&] {
    thread = ::gettid();
    return ++steps < 1000;
  });
  EXPECT_TRUE(runner.start());
  EXPECT_TRUE(runner.waitStopped(30));
  EXPECT_EQ(runner.state(), State::stopped);
  EXPECT_EQ(steps, 1000);
  EXPECT_NE(thread, 0);
  EXPECT_NE(thread, ::gettid());
}

// A started runner in its first step, which blocks until release() and asks for another step.
class BlockedRunner {
 public:
  BlockedRunner() {
    EXPECT_TRUE(runner.start());
    while (steps == 0) ::usleep(100);
    EXPECT_EQ(runner.state(), State::running);
  }
  ~BlockedRunner() {
    runner.requestStop();
    release();
    EXPECT_TRUE(runner.waitStopped(30));
    EXPECT_EQ(steps, 1);
  }
  void release() { isReleased_ = true; }

  std::atomic<int> steps{0};
  WorkerRunner runner{[this] {
    ++steps;
    while (!isReleased_) ::usleep(100);
    return true;
  }};

 private:
  std::atomic<bool> isReleased_{false};
};

TEST(WorkerRunner, ARequestedStopMakesTheCurrentStepTheLast) {
  BlockedRunner blocked;
  for (int i = 0; i < 2; ++i) {
    blocked.runner.requestStop();
    EXPECT_EQ(blocked.runner.state(), State::stopRequested);
  }
  EXPECT_FALSE(blocked.runner.waitStopped(-1));
  blocked.release();
  EXPECT_TRUE(blocked.runner.waitStopped(30));
  EXPECT_EQ(blocked.steps, 1);
}

TEST(WorkerRunner, ARunnerThatIsNotStoppedIsNotStartedAgain) {
  BlockedRunner blocked;
  EXPECT_FALSE(blocked.runner.start());
  EXPECT_EQ(blocked.runner.state(), State::running);
  blocked.runner.requestStop();
  EXPECT_FALSE(blocked.runner.start());
  EXPECT_EQ(blocked.runner.state(), State::stopRequested);
}

TEST(WorkerRunner, AStoppedRunnerStartsAgain) {
  std::atomic<int> steps{0};
  WorkerRunner runner([&] { return ++steps < 0; });
  for (int i = 1; i <= 50; ++i) {
    EXPECT_TRUE(runner.start());
    EXPECT_TRUE(runner.waitStopped(30));
    EXPECT_EQ(steps, i);
  }
}

// The thread may already be in a step when the stop is requested. If it is not, it must never run one. The test checks
// this by the state after the request: if that is `stopped`, no step runs from then on.
TEST(WorkerRunner, ARunnerThatStoppedBeforeItsFirstStepTakesNoneLater) {
  int stoppedAtOnce = 0;
  for (int i = 0; i < 500; ++i) {
    std::atomic<int> steps{0};
    WorkerRunner runner([&] { return ++steps > 0; });
    EXPECT_TRUE(runner.start());
    runner.requestStop();
    if (runner.state() == State::stopped && steps == 0) {
      ++stoppedAtOnce;
      ::usleep(200);
      EXPECT_EQ(steps, 0);
    }
    EXPECT_TRUE(runner.waitStopped(30));
  }
  EXPECT_GT(stoppedAtOnce, 0);
}

TEST(WorkerRunner, AThreadThatBeginsLateTakesNoStepsForALaterStart) {
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  WorkerRunner runner([&] {
    if (++inside != 1) overlapped = true;
    ::usleep(50);
    --inside;
    return true;
  });
  for (int i = 0; i < 300; ++i) {
    EXPECT_TRUE(runner.start());
    runner.requestStop();
    EXPECT_TRUE(runner.waitStopped(30));
  }
  EXPECT_FALSE(overlapped);
}

TEST(WorkerRunner, WaitStoppedGivesUpWhenItsTimeIsOver) {
  const BlockedRunner blocked;
  const std::int64_t start = TimeUtils::nowMicros() / 1'000'000;
  EXPECT_FALSE(blocked.runner.waitStopped(0));
  EXPECT_GT(TimeUtils::nowMicros() / 1'000'000, start);
}

TEST(WorkerRunner, AWaitEndsWhenTheClockIsPastTheWholeSecondAndNotBefore) {
  const BlockedRunner blocked;
  WallClock clock(10'000'000);
  std::atomic<bool> isOver{false};
  std::thread waiter([&] {
    EXPECT_FALSE(blocked.runner.waitStopped(1'000));
    isOver = true;
  });
  clock.waitUntilAsked(2);
  ::usleep(20'000);
  EXPECT_LT(clock.timesAsked(), 10) << "it waits between two looks at the clock";
  clock.moveTo(1'010'999'999);  // the last microsecond of the last second
  const int asked = clock.timesAsked();
  clock.waitUntilAsked(asked + 2);  // at least one of these reads returned the new time, and the wait continued
  EXPECT_FALSE(isOver);
  clock.moveTo(1'011'000'000);
  waiter.join();
  EXPECT_TRUE(isOver);
}

TEST(WorkerRunner, AWaitReadsTheClockEveryHalfSecond) {
  using Clock = std::chrono::steady_clock;
  using std::chrono::milliseconds;
  BlockedRunner blocked;
  WallClock clock(10'000'000);
  std::thread waiter([&] { EXPECT_TRUE(blocked.runner.waitStopped(1'000)); });
  clock.waitUntilAsked(2);
  bool isASecond = false;  // the time of two pauses, which a busy machine may measure wrongly
  for (int i = 0; i < 10 && !isASecond; ++i) {
    const auto start = Clock::now();
    const int asked = clock.timesAsked();
    clock.waitUntilAsked(asked + 2);
    const auto pauses = Clock::now() - start;
    isASecond = pauses > milliseconds(800) && pauses < milliseconds(1'200);
  }
  EXPECT_TRUE(isASecond);
  blocked.runner.requestStop();
  blocked.release();
  waiter.join();
}

TEST(WorkerRunner, TheLongestWaitEndsWhenTheRunnerIsStopped) {
  BlockedRunner blocked;
  std::atomic<bool> isAboutToWait{false};
  std::thread waiter([&] {
    isAboutToWait = true;
    EXPECT_TRUE(blocked.runner.waitStopped(INT64_MAX));
  });
  while (!isAboutToWait) ::usleep(100);
  ::usleep(20'000);
  EXPECT_FALSE(blocked.runner.waitStopped(INT64_MIN));
  blocked.runner.requestStop();
  blocked.release();
  waiter.join();
}

TEST(WorkerRunner, AWaitForTheSmallestTimeEndsAtOnce) {
  const BlockedRunner blocked;
  const WallClock clock(0);  // the earliest time, so that the deadline of the smallest time barely fits 64 bits
  EXPECT_FALSE(blocked.runner.waitStopped(INT64_MIN));
}

TEST(WorkerRunner, AStepMayRequestTheStopButCannotStartTheRunnerAgain) {
  std::atomic<int> steps{0};
  std::unique_ptr<WorkerRunner> runner;
  runner = std::make_unique<WorkerRunner>([&] {
    ++steps;
    runner->requestStop();
    EXPECT_FALSE(runner->start());
    EXPECT_FALSE(runner->waitStopped(-1));
    return true;
  });
  EXPECT_TRUE(runner->start());
  EXPECT_TRUE(runner->waitStopped(30));
  EXPECT_EQ(steps, 1);
}

TEST(WorkerRunner, IsStoppedWhenTheSystemGivesNoThread) {
  std::atomic<int> steps{0};
  WorkerRunner runner([&] { return ++steps < 1; });
  {
    const NoThreads none;
    EXPECT_FALSE(runner.start());
  }
  EXPECT_EQ(runner.state(), State::stopped);
  EXPECT_EQ(steps, 0);
  EXPECT_TRUE(runner.start());
  EXPECT_TRUE(runner.waitStopped(30));
  EXPECT_EQ(steps, 1);
}

TEST(WorkerRunner, MayBeDestroyedWhileItSteps) {
  const auto steps = std::make_shared<std::atomic<int>>(0);
  const auto isReleased = std::make_shared<std::atomic<bool>>(false);
  {
    WorkerRunner runner([steps, isReleased] {
      ++*steps;
      while (!*isReleased) ::usleep(100);
      return true;
    });
    EXPECT_TRUE(runner.start());
    while (*steps == 0) ::usleep(100);
  }
  *isReleased = true;
  while (steps.use_count() > 1) ::usleep(100);
  EXPECT_EQ(*steps, 1);
}

TEST(WorkerRunnerDeathTest, AnExceptionOutOfAStepEndsTheProcess) {
  EXPECT_EXIT(
      {
        WorkerRunner runner([]() -> bool { throw std::runtime_error("thrown"); });
        (void)runner.start();
        (void)runner.waitStopped(30);
        ::_exit(0);
      },
      testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
