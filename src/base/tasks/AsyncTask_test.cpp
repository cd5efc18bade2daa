#include "base/tasks/AsyncTask.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "log/front/BasicLog.h"
#include "testing/run/LogLines.h"

namespace {

using State = AsyncTask::State;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> logged;  // guarded by the log's own lock

class Recorder : public BasicLog::LogMessageProcessor {
 public:
  void process(std::unique_ptr<const BasicLog::LogMessage>& message) override {
    logged.push_back(lineOf(*message));
    message.reset();
  }
};

// A task whose results the test sets and that records its operations.
class Task : public AsyncTask {
 public:
  explicit Task(std::string_view name = "a task") : AsyncTask(name) {}

  bool startSucceeds = true;
  bool isDone = true;
  std::vector<std::string> calls;  // guarded by the task's lock

 private:
  bool start() override {
    calls.emplace_back("start");
    return startSucceeds;
  }
  void beginShutdown() override { calls.emplace_back("begin"); }
  void continueShutdown() override {
    calls.emplace_back("continue");
    if (isDone) finishShutdown();
  }
};

class AsyncTaskTest : public testing::Test {
 protected:
  void SetUp() override {
    logged.clear();
    BasicLog::setDefaultLevel(BasicLog::Level::info);
    BasicLog::setSyncProcessor(new Recorder);
  }
  void TearDown() override { BasicLog::setSyncProcessor(nullptr); }

  Task task_;
};

TEST_F(AsyncTaskTest, StatesHaveTheirNumbers) {
  EXPECT_EQ(static_cast<int>(State::ready), 1);
  EXPECT_EQ(static_cast<int>(State::running), 2);
  EXPECT_EQ(static_cast<int>(State::stopping), 3);
  EXPECT_EQ(static_cast<int>(State::stopped), 4);
  EXPECT_EQ(static_cast<int>(State::failed), 5);
}

TEST_F(AsyncTaskTest, ANewTaskIsReadyAndNotStopped) {
  EXPECT_EQ(task_.state(), State::ready);
  EXPECT_FALSE(task_.isStopped());
  EXPECT_THAT(task_.calls, IsEmpty());
}

TEST_F(AsyncTaskTest, ItsStatesAreReadyRunningStoppingAndStoppedInThatOrder) {
  EXPECT_TRUE(task_.asyncStartup());
  EXPECT_EQ(task_.state(), State::running);
  EXPECT_FALSE(task_.isStopped());
  task_.asyncShutdown();
  EXPECT_EQ(task_.state(), State::stopping);
  EXPECT_TRUE(task_.isStopped());
  EXPECT_EQ(task_.state(), State::stopped);
  EXPECT_THAT(task_.calls, ElementsAre("start", "begin", "continue"));
}

TEST_F(AsyncTaskTest, AFailedStartLeavesItFailed) {
  task_.startSucceeds = false;
  EXPECT_FALSE(task_.asyncStartup());
  EXPECT_EQ(task_.state(), State::failed);
  EXPECT_TRUE(task_.isStopped());
  EXPECT_THAT(task_.calls, ElementsAre("start"));
}

TEST_F(AsyncTaskTest, StartingARunningTaskReturnsFalseAndLeavesItFailed) {
  EXPECT_TRUE(task_.asyncStartup());
  EXPECT_FALSE(task_.asyncStartup());
  EXPECT_EQ(task_.state(), State::failed);
  EXPECT_THAT(task_.calls, ElementsAre("start"));
}

TEST_F(AsyncTaskTest, StartingFromAnyStateButReadyLeavesItFailedWithoutTheStartOperation) {
  for (const State from : {State::running, State::stopping, State::stopped, State::failed}) {
    SCOPED_TRACE(static_cast<int>(from));
    Task other;
    other.startSucceeds = from != State::failed;
    (void)other.asyncStartup();
    if (from == State::stopping || from == State::stopped) other.asyncShutdown();
    if (from == State::stopped) {
      EXPECT_TRUE(other.isStopped());
    }
    ASSERT_EQ(other.state(), from);
    other.startSucceeds = true;
    other.calls.clear();
    EXPECT_FALSE(other.asyncStartup());
    EXPECT_EQ(other.state(), State::failed);
    EXPECT_THAT(other.calls, IsEmpty());
  }
}

TEST_F(AsyncTaskTest, ShuttingDownAReadyTaskStopsItWithoutAnyOperation) {
  task_.asyncShutdown();
  EXPECT_EQ(task_.state(), State::stopped);
  EXPECT_TRUE(task_.isStopped());
  EXPECT_THAT(task_.calls, IsEmpty());
}

TEST_F(AsyncTaskTest, ShuttingDownAStoppingStoppedOrFailedTaskLeavesItAlone) {
  EXPECT_TRUE(task_.asyncStartup());
  task_.asyncShutdown();
  task_.asyncShutdown();
  EXPECT_EQ(task_.state(), State::stopping);
  EXPECT_TRUE(task_.isStopped());
  task_.asyncShutdown();
  EXPECT_EQ(task_.state(), State::stopped);
  EXPECT_FALSE(task_.asyncStartup());
  task_.asyncShutdown();
  EXPECT_EQ(task_.state(), State::failed);
  EXPECT_THAT(task_.calls, ElementsAre("start", "begin", "continue"));
}

TEST_F(AsyncTaskTest, EveryCallOfIsStoppedContinuesAShutdownUntilItIsDone) {
  task_.isDone = false;
  EXPECT_TRUE(task_.asyncStartup());
  task_.asyncShutdown();
  EXPECT_FALSE(task_.isStopped());
  EXPECT_FALSE(task_.isStopped());
  EXPECT_EQ(task_.state(), State::stopping);
  task_.isDone = true;
  EXPECT_TRUE(task_.isStopped());
  EXPECT_TRUE(task_.isStopped());
  EXPECT_THAT(task_.calls, ElementsAre("start", "begin", "continue", "continue", "continue"));
}

TEST_F(AsyncTaskTest, FinishShutdownChangesOnlyAStoppingTask) {
  class Hasty : public AsyncTask {
   public:
    Hasty() : AsyncTask("hasty") {}

   private:
    bool start() override {
      finishShutdown();
      return true;
    }
    void beginShutdown() override { finishShutdown(); }
    void continueShutdown() override { ADD_FAILURE() << "the task has stopped already"; }
  };
  Hasty hasty;
  EXPECT_TRUE(hasty.asyncStartup());
  EXPECT_EQ(hasty.state(), State::running);
  hasty.asyncShutdown();
  EXPECT_EQ(hasty.state(), State::stopped);
  EXPECT_TRUE(hasty.isStopped());
}

TEST_F(AsyncTaskTest, LogsItsStartAndItsShutdownWithItsName) {
  EXPECT_TRUE(task_.asyncStartup());
  task_.asyncShutdown();
  EXPECT_THAT(
      logged,
      ElementsAre("[INFO] ThreadUtils ThreadUtils.cpp asyncStartup AsyncTask starting up: task=a task",
                  "[INFO] ThreadUtils ThreadUtils.cpp asyncShutdown AsyncTask beginning shutdown: task=a task"));
}

TEST_F(AsyncTaskTest, LogsStartsAndShutdownsThatItThenRefuses) {
  task_.asyncShutdown();
  EXPECT_FALSE(task_.asyncStartup());
  EXPECT_EQ(logged.size(), 2U);
}

TEST_F(AsyncTaskTest, LogsNothingWhenInfoIsNotEnabled) {
  BasicLog::getLogger("ThreadUtils").setThreshold(BasicLog::Level::notice);
  EXPECT_TRUE(task_.asyncStartup());
  task_.asyncShutdown();
  EXPECT_THAT(logged, IsEmpty());
  BasicLog::getLogger("ThreadUtils").setThreshold(BasicLog::Level::info);
}

TEST_F(AsyncTaskTest, AnOperationMayLogAndFailAnAssertionUnderTheLock) {
  class Noisy : public AsyncTask {
   public:
    Noisy() : AsyncTask("noisy") {}

   private:
    bool start() override {
      { const BasicLog::Entry entry(BasicLog::getLogger("test"), BasicLog::Level::info, "from start", "f", "g"); }
      BasicLog::assertFailure("f", 1, "under the lock");
      return true;
    }
    void beginShutdown() override {}
    void continueShutdown() override { finishShutdown(); }
  };
  BasicLog::setAssertHandler([](const char*, int, const char* message) { logged.emplace_back(message); });
  Noisy noisy;
  EXPECT_TRUE(noisy.asyncStartup());
  BasicLog::setAssertHandler(nullptr);
  EXPECT_THAT(logged, ElementsAre("[INFO] ThreadUtils ThreadUtils.cpp asyncStartup AsyncTask starting up: task=noisy",
                                  "[INFO] test f g from start", "under the lock"));
}

TEST_F(AsyncTaskTest, OneOfManyStartersSucceedsAndOperationsNeverOverlap) {
  class Counting : public AsyncTask {
   public:
    Counting() : AsyncTask("counting") {}
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};

   private:
    void enter() {
      if (++inside != 1) overlapped = true;
      std::this_thread::yield();
      --inside;
    }
    bool start() override {
      enter();
      return true;
    }
    void beginShutdown() override { enter(); }
    void continueShutdown() override { enter(); }
  };
  Counting counting;
  std::atomic<int> successes{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      if (counting.asyncStartup()) ++successes;
      counting.asyncShutdown();
      (void)counting.isStopped();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(successes, 1);
  EXPECT_FALSE(counting.overlapped);
}

}  // namespace
