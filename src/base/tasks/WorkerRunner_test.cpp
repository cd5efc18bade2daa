#include "base/tasks/WorkerRunner.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <memory>
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

TEST(WorkerRunner, IsStoppedBeforeItsFirstStart) {
  WorkerRunner runner([] { return false; });
  EXPECT_EQ(runner.state(), State::stopped);
  EXPECT_TRUE(runner.waitStopped(-1));
}

TEST(WorkerRunner, CanStillBeStartedAfterAStopBeforeItsFirstStart) {
  std::atomic<int> steps{0};
  WorkerRunner runner([&] { return ++steps < 3; });
  runner.requestStop();
  EXPECT_EQ(runner.state(), State::stopped);
  EXPECT_TRUE(runner.start());
  EXPECT_TRUE(runner.waitStopped(30));
  EXPECT_EQ(steps, 3);
}

TEST(WorkerRunner, StepsUntilAStepReturnsFalse) {
  std::atomic<int> steps{0};
  WorkerRunner runner([&] { return ++steps < 1000; });
  EXPECT_TRUE(runner.start());
  EXPECT_TRUE(runner.waitStopped(30));
  EXPECT_EQ(runner.state(), State::stopped);
  EXPECT_EQ(steps, 1000);
}

TEST(WorkerRunner, StepsOnAThreadOfItsOwn) {
  std::atomic<pid_t> thread{0};
  WorkerRunner runner([&] {
    thread = ::gettid();
    return false;
  });
  EXPECT_TRUE(runner.start());
  EXPECT_TRUE(runner.waitStopped(30));
  EXPECT_NE(thread, 0);
  EXPECT_NE(thread, ::gettid());
}

TEST(WorkerRunner, ARequestedStopMakesTheCurrentStepTheLast) {
  std::atomic<int> steps{0};
  std::atomic<bool> isReleased{false};
  WorkerRunner runner([&] {
    ++steps;
    while (!isReleased) ::usleep(100);
    return true;
  });
  EXPECT_TRUE(runner.start());
  while (steps == 0) ::usleep(100);
  EXPECT_EQ(runner.state(), State::running);
  runner.requestStop();
  EXPECT_EQ(runner.state(), State::stopRequested);
  runner.requestStop();
  EXPECT_EQ(runner.state(), State::stopRequested);
  EXPECT_FALSE(runner.waitStopped(-1));
  isReleased = true;
  EXPECT_TRUE(runner.waitStopped(30));
  EXPECT_EQ(steps, 1);
}

TEST(WorkerRunner, ARunnerThatIsNotStoppedIsNotStartedAgain) {
  std::atomic<int> steps{0};
  std::atomic<bool> isReleased{false};
  WorkerRunner runner([&] {
    ++steps;
    while (!isReleased) ::usleep(100);
    return false;
  });
  EXPECT_TRUE(runner.start());
  while (steps == 0) ::usleep(100);
  EXPECT_FALSE(runner.start());
  EXPECT_EQ(runner.state(), State::running);
  runner.requestStop();
  EXPECT_FALSE(runner.start());
  EXPECT_EQ(runner.state(), State::stopRequested);
  isReleased = true;
  EXPECT_TRUE(runner.waitStopped(30));
  EXPECT_EQ(steps, 1);
}

TEST(WorkerRunner, AStoppedRunnerStartsAgain) {
  std::atomic<int> steps{0};
  WorkerRunner runner([&] {
    ++steps;
    return false;
  });
  for (int i = 1; i <= 50; ++i) {
    EXPECT_TRUE(runner.start());
    EXPECT_TRUE(runner.waitStopped(30));
    EXPECT_EQ(steps, i);
  }
}

// The thread may already be in a step when the stop is requested. If it is not, it must never run one. The test checks
// this by the state after the request: if that is `stopped`, no step runs from then on.
TEST(WorkerRunner, ARunnerStoppedRightAfterItsStartNeverTakesAStep) {
  int stoppedAtOnce = 0;
  for (int i = 0; i < 500; ++i) {
    std::atomic<int> steps{0};
    WorkerRunner runner([&] {
      ++steps;
      return true;
    });
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
  std::atomic<bool> isReleased{false};
  WorkerRunner runner([&] {
    while (!isReleased) ::usleep(100);
    return false;
  });
  EXPECT_TRUE(runner.start());
  const std::int64_t start = TimeUtils::nowMicros() / 1'000'000;
  EXPECT_FALSE(runner.waitStopped(0));
  EXPECT_GT(TimeUtils::nowMicros() / 1'000'000, start);
  isReleased = true;
  EXPECT_TRUE(runner.waitStopped(30));
}

// A step that blocks until the test releases it, and that reads no clock.
class Endless {
 public:
  ~Endless() {
    isReleased_ = true;
    EXPECT_TRUE(runner.waitStopped(30));
  }

  WorkerRunner runner{[this] {
    while (!isReleased_) ::usleep(100);
    return false;
  }};

 private:
  std::atomic<bool> isReleased_{false};
};

TEST(WorkerRunner, AWaitEndsWhenTheClockIsPastTheWholeSecondAndNotBefore) {
  Endless endless;
  EXPECT_TRUE(endless.runner.start());
  WallClock clock(10'000'000);
  std::atomic<bool> isOver{false};
  std::thread waiter([&] {
    EXPECT_FALSE(endless.runner.waitStopped(1'000));
    isOver = true;
  });
  clock.waitUntilAsked(2);
  clock.moveTo(1'010'999'999);  // the last microsecond of the last second
  const int asked = clock.timesAsked();
  clock.waitUntilAsked(asked + 2);  // at least one of these reads returned the new time, and the wait continued
  EXPECT_FALSE(isOver);
  clock.moveTo(1'011'000'000);
  waiter.join();
  EXPECT_TRUE(isOver);
}

TEST(WorkerRunner, TheLongestWaitEndsWhenTheRunnerIsStopped) {
  std::atomic<bool> isReleased{false};
  WorkerRunner runner([&] {
    while (!isReleased) ::usleep(100);
    return false;
  });
  EXPECT_TRUE(runner.start());
  std::atomic<bool> isAboutToWait{false};
  std::thread waiter([&] {
    isAboutToWait = true;
    EXPECT_TRUE(runner.waitStopped(INT64_MAX));
  });
  while (!isAboutToWait) ::usleep(100);
  ::usleep(20'000);
  EXPECT_FALSE(runner.waitStopped(INT64_MIN));
  isReleased = true;
  waiter.join();
}

TEST(WorkerRunner, AWaitForTheSmallestTimeEndsAtOnce) {
  Endless endless;
  EXPECT_TRUE(endless.runner.start());
  const WallClock clock(
      -1'000'000);  // a second before 1970, so that the deadline of the smallest time does not fit 64 bits
  EXPECT_FALSE(endless.runner.waitStopped(INT64_MIN));
}

TEST(WorkerRunner, AStepMayRequestTheStopAndCannotStartItAgain) {
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

TEST(WorkerRunner, StoppingAStoppedRunnerChangesNothing) {
  std::atomic<int> steps{0};
  WorkerRunner runner([&] {
    ++steps;
    return false;
  });
  EXPECT_TRUE(runner.start());
  EXPECT_TRUE(runner.waitStopped(30));
  runner.requestStop();
  runner.requestStop();
  EXPECT_EQ(runner.state(), State::stopped);
  EXPECT_TRUE(runner.start());  // an earlier stop has no effect on a later start
  EXPECT_TRUE(runner.waitStopped(30));
  EXPECT_EQ(steps, 2);
}

TEST(WorkerRunner, IsStoppedWhenTheSystemGivesNoThread) {
  std::atomic<int> steps{0};
  WorkerRunner runner([&] {
    ++steps;
    return false;
  });
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

}  // namespace
