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

// Brings a new task to the given state. Afterwards a start would succeed, and the task has recorded no call.
void bringTo(Task& task, State state) {
  task.startSucceeds = state != State::failed;
  if (state != State::ready) {
    EXPECT_EQ(task.asyncStartup(), task.startSucceeds);
  }
  if (state == State::stopping || state == State::stopped) task.asyncShutdown();
  if (state == State::stopped) {
    EXPECT_TRUE(task.isStopped());
  }
  task.startSucceeds = true;
  task.calls.clear();
  ASSERT_EQ(task.state(), state);
}

std::string startUp(AsyncTask& task) { return task.asyncStartup() ? "started" : "not started"; }
std::string askIfStopped(AsyncTask& task) { return task.isStopped() ? "stopped" : "not stopped"; }
std::string shutDown(AsyncTask& task) {
  task.asyncShutdown();
  return "";
}

TEST_F(AsyncTaskTest, EachStateHasItsOwnTransitions) {
  const struct {
    const char* why;
    State from;
    std::string (*function)(AsyncTask& task);
    const char* result;
    State to;
    std::vector<std::string> calls;
  } cases[] = {
      {"a ready task starts", State::ready, startUp, "started", State::running, {"start"}},
      {"a running task fails if it is started", State::running, startUp, "not started", State::failed, {}},
      {"a stopping task fails if it is started", State::stopping, startUp, "not started", State::failed, {}},
      {"a stopped task fails if it is started", State::stopped, startUp, "not started", State::failed, {}},
      {"a failed task stays failed if it is started", State::failed, startUp, "not started", State::failed, {}},
      {"shutdown stops a ready task without any operation", State::ready, shutDown, "", State::stopped, {}},
      {"shutdown lets a running task begin to stop", State::running, shutDown, "", State::stopping, {"begin"}},
      {"shutdown leaves a stopping task alone", State::stopping, shutDown, "", State::stopping, {}},
      {"shutdown leaves a stopped task alone", State::stopped, shutDown, "", State::stopped, {}},
      {"shutdown leaves a failed task alone", State::failed, shutDown, "", State::failed, {}},
      {"a ready task is not stopped", State::ready, askIfStopped, "not stopped", State::ready, {}},
      {"a running task is not stopped", State::running, askIfStopped, "not stopped", State::running, {}},
      {"a stopping task stops", State::stopping, askIfStopped, "stopped", State::stopped, {"continue"}},
      {"a stopped task is stopped", State::stopped, askIfStopped, "stopped", State::stopped, {}},
      {"a failed task counts as stopped", State::failed, askIfStopped, "stopped", State::failed, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    Task task;
    ASSERT_NO_FATAL_FAILURE(bringTo(task, c.from));
    EXPECT_EQ(c.function(task), c.result);
    EXPECT_EQ(task.state(), c.to);
    EXPECT_EQ(task.calls, c.calls);
  }
}

TEST_F(AsyncTaskTest, AFailedStartLeavesItFailed) {
  task_.startSucceeds = false;
  EXPECT_FALSE(task_.asyncStartup());
  EXPECT_EQ(task_.state(), State::failed);
  EXPECT_TRUE(task_.isStopped());
  EXPECT_THAT(task_.calls, ElementsAre("start"));
}

TEST_F(AsyncTaskTest, AnOperationThatThrowsFailsItsTaskAndReleasesTheLock) {
  class Throwing : public AsyncTask {
   public:
    explicit Throwing(std::string_view operation) : AsyncTask("a task"), operation_(operation) {}

   private:
    void run(std::string_view operation) const {
      if (operation == operation_) throw 1;
    }
    bool start() override {
      run("start");
      return true;
    }
    void beginShutdown() override { run("begin"); }
    void continueShutdown() override { run("continue"); }

    const std::string_view operation_;
  };
  const struct {
    const char* operation;
    bool isStarted;
    State afterShutdown;
  } cases[] = {{"start", false, State::failed}, {"begin", true, State::failed}, {"continue", true, State::stopping}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.operation);
    Throwing task(c.operation);
    EXPECT_EQ(task.asyncStartup(), c.isStarted);
    task.asyncShutdown();
    EXPECT_EQ(task.state(), c.afterShutdown);
    EXPECT_TRUE(task.isStopped());
    EXPECT_EQ(task.state(), State::failed);
  }
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

TEST_F(AsyncTaskTest, LogsStartsAndShutdownsWithItsNameEvenIfItThenRefusesThem) {
  const std::string start = "[INFO] ThreadUtils ThreadUtils.cpp asyncStartup AsyncTask starting up: task=a task";
  const std::string end = "[INFO] ThreadUtils ThreadUtils.cpp asyncShutdown AsyncTask beginning shutdown: task=a task";
  EXPECT_TRUE(task_.asyncStartup());
  EXPECT_FALSE(task_.asyncStartup());
  task_.asyncShutdown();
  EXPECT_THAT(logged, ElementsAre(start, start, end));
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
