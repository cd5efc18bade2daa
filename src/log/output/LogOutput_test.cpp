// Tests of the output thread, of batches and the list of emitters, and of calls that must not deadlock.
#include "log/output/LogOutput.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>

#include "base/text/TimeUtils.h"
#include "base/threads/ThreadNames.h"
#include "log/output/EmergencyEmitter.h"
#include "log/output/LogManager.h"
#include "testing/faults/NoThreads.h"

namespace {

using namespace BasicLog;
using State = LogOutput::EmitterState;
using testing::ElementsAre;
using testing::IsEmpty;

// `run` returns how many microseconds its operation took. Returns true if one of ten attempts took clearly less than
// the second for which an idle thread waits. An operation that waits for that second is slow in every attempt; a busy
// machine delays only some of them.
bool isImmediate(const std::function<std::int64_t()>& run) {
  for (int attempt = 0; attempt < 10; ++attempt) {
    if (run() < 900'000) return true;
  }
  return false;
}

// Records the text of each entry and then calls a function.
class Recorder : public Emitter {
 public:
  explicit Recorder(std::string nameOfIt = "", std::vector<std::string>* sharedList = nullptr)
      : name_(std::move(nameOfIt)), list_(sharedList == nullptr ? &own_ : sharedList) {}

  void emit(const LogMessage& message) override {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      list_->push_back(name_ + std::string(message.text()));
    }
    whenEmitting(message);
  }
  void write(Level, const std::string&, const std::string&) override {}
  const char* name() const override { return "Recorder"; }

  std::vector<std::string> texts() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return *list_;
  }
  void waitFor(std::size_t count) {
    while (texts().size() < count) ::usleep(200);
  }

  std::function<void(const LogMessage&)> whenEmitting = [](const LogMessage&) {};

 private:
  const std::string name_;
  std::mutex mutex_;
  std::vector<std::string> own_;
  std::vector<std::string>* const list_;
};

// Has its own log, separate from the instance of LogManager.
class OutputTest : public testing::Test {
 public:
  LogManager manager;
  LogOutput& output = manager.output();
  Logger& logger = *manager.input().getLogger("test");

  void log(std::string_view text) { const Entry entry(logger, Level::info, text, "f", "g"); }
  void logMany(int count) {
    for (int i = 0; i < count; ++i) log(std::to_string(i));
  }
};

std::vector<std::string> numbers(int count) {
  std::vector<std::string> texts;
  for (int i = 0; i < count; ++i) texts.push_back(std::to_string(i));
  return texts;
}

// --- Flushing and batches

TEST_F(OutputTest, FlushEmitsAllQueuedEntriesInOrder) {
  Recorder emitter;
  manager.addEmitter(&emitter);
  logMany(45);
  EXPECT_THAT(emitter.texts(), IsEmpty());
  manager.flush();
  EXPECT_EQ(emitter.texts(), numbers(45));
  manager.flush();
  EXPECT_EQ(emitter.texts().size(), 45U);
}

TEST_F(OutputTest, BatchHasAtMostTwentyEntries) {
  class Batches : public Recorder {
   public:
    std::vector<std::size_t> sizes;
    void beginBatch() override { before_ = texts().size(); }
    void endBatch() override { sizes.push_back(texts().size() - before_); }

   private:
    std::size_t before_ = 0;
  };
  Batches emitter;
  manager.addEmitter(&emitter);
  logMany(45);
  manager.flush();
  EXPECT_THAT(emitter.sizes, ElementsAre(20U, 20U, 5U));
}

TEST_F(OutputTest, EntriesAreTakenTwentyAtATime) {
  // For each emitted entry, how many entries are still queued at that time.
  std::vector<std::size_t> left;
  Recorder emitter;
  emitter.whenEmitting = [&](const LogMessage&) { left.push_back(output.queue().size()); };
  manager.addEmitter(&emitter);
  logMany(45);
  manager.flush();
  ASSERT_EQ(left.size(), 45U);
  for (std::size_t i = 0; i < left.size(); ++i) EXPECT_EQ(left[i], i < 20 ? 25U : i < 40 ? 5U : 0U) << i;
}

TEST_F(OutputTest, EachEntryReachesAllEmittersInTheOrderOfTheList) {
  std::vector<std::string> all;
  Recorder first("a", &all);
  Recorder second("b", &all);
  manager.addEmitter(&first);
  manager.addEmitter(&second);
  logMany(2);
  manager.flush();
  EXPECT_THAT(all, ElementsAre("a0", "b0", "a1", "b1"));
}

TEST_F(OutputTest, FlushWithoutEmittersDropsQueuedEntries) {
  logMany(3);
  manager.flush();
  Recorder emitter;
  manager.addEmitter(&emitter);
  manager.flush();
  EXPECT_THAT(emitter.texts(), IsEmpty());
}

TEST_F(OutputTest, NullEmitterIsIgnored) {
  manager.addEmitter(nullptr);
  output.addEmitter(nullptr);
  manager.removeEmitter(nullptr);
  output.removeEmitter(nullptr);
  logMany(1);
  manager.flush();
}

TEST_F(OutputTest, RemovedEmitterIsNotCalledAnyMore) {
  Recorder kept;
  {
    Recorder gone;
    manager.addEmitter(&gone);
    manager.addEmitter(&kept);
    log("both");
    manager.flush();
    EXPECT_THAT(gone.texts(), ElementsAre("both"));
    manager.removeEmitter(&gone);
  }
  log("one");
  manager.flush();
  EXPECT_THAT(kept.texts(), ElementsAre("both", "one"));
}

TEST_F(OutputTest, RemovingAnEmitterThatWasAddedTwiceRemovesBoth) {
  Recorder emitter;
  manager.addEmitter(&emitter);
  manager.addEmitter(&emitter);
  log("x");
  manager.flush();
  EXPECT_THAT(emitter.texts(), ElementsAre("x", "x"));
  manager.removeEmitter(&emitter);
  log("y");
  manager.flush();
  EXPECT_EQ(emitter.texts().size(), 2U);
}

TEST_F(OutputTest, EachEntryOfABatchUsesTheZoneOffsetOfItsOwnMoment) {
  class Headers : public Emitter {
   public:
    std::vector<int> hours;
    void write(Level, const std::string& header, const std::string&) override {
      hours.push_back(std::stoi(header.substr(17, 2)));
    }
    const char* name() const override { return "Headers"; }
  };
  Headers headers;
  Recorder zones;  // the text of each entry is the zone for the next one
  zones.whenEmitting = [](const LogMessage& message) { ::setenv("TZ", std::string(message.text()).c_str(), 1); };
  manager.addEmitter(&headers);
  manager.addEmitter(&zones);
  ::setenv("TZ", "UTC0", 1);
  for (const char* zone : {"EST5", "JST-9", "EST5", "UTC0", "UTC0"}) log(zone);
  manager.flush();
  ::unsetenv("TZ");
  ::tzset();
  std::vector<int> later;  // hours later than in UTC
  for (const int hour : headers.hours) later.push_back((hour - headers.hours[0] + 24) % 24);
  EXPECT_THAT(later, ElementsAre(0, 19, 9, 19, 0));
}

// The batch begins in UTC, the last entry is emitted in EST5, and the batch ends in JST-9. One emitter changes the zone
// after each entry; the other renders its last entry at the end of the batch.
TEST_F(OutputTest, EndBatchStillUsesTheZoneOffsetInForceForTheLastEntry) {
  class Late : public Emitter {
   public:
    LogMessage last;
    std::string header;
    void emit(const LogMessage& message) override { last = message; }
    void endBatch() override { header = textHeader(last); }
    void write(Level, const std::string&, const std::string&) override {}
    const char* name() const override { return "Late"; }
  };
  Late late;
  Recorder zones;  // the text of each entry is the zone for the next one
  zones.whenEmitting = [](const LogMessage& message) { ::setenv("TZ", std::string(message.text()).c_str(), 1); };
  manager.addEmitter(&late);
  manager.addEmitter(&zones);
  ::setenv("TZ", "UTC0", 1);
  for (const char* zone : {"EST5", "JST-9"}) log(zone);
  manager.flush();
  EXPECT_NE(late.header, textHeader(late.last));
  ::setenv("TZ", "EST5", 1);
  EXPECT_EQ(late.header, textHeader(late.last));
  ::unsetenv("TZ");
  ::tzset();
}

// --- The thread

TEST_F(OutputTest, ThreadEmitsLoggedEntries) {
  Recorder emitter;
  manager.addEmitter(&emitter);
  logMany(30);
  EXPECT_EQ(output.state(), State::idle);
  EXPECT_TRUE(manager.startOutputThread());
  emitter.waitFor(30);
  EXPECT_EQ(output.state(), State::running);
  manager.stopOutputThread();
  EXPECT_EQ(emitter.texts(), numbers(30));
}

TEST_F(OutputTest, ThreadIsNamedLoggingOutput) {
  Recorder emitter;
  std::string name;
  emitter.whenEmitting = [&](const LogMessage&) { name = getThreadName(); };
  manager.addEmitter(&emitter);
  log("x");
  EXPECT_TRUE(manager.startOutputThread());
  emitter.waitFor(1);
  manager.stopOutputThread();
  EXPECT_EQ(name, "logging_output");
}

// Nothing wakes the thread, so the entry is emitted when the thread's wait of one second ends.
TEST_F(OutputTest, EntryReachesItsEmittersAlthoughTheThreadWasIdle) {
  Recorder emitter;
  manager.addEmitter(&emitter);
  EXPECT_TRUE(manager.startOutputThread());
  ::usleep(20'000);
  log("late");
  emitter.waitFor(1);
  manager.stopOutputThread();
  EXPECT_THAT(emitter.texts(), ElementsAre("late"));
}

TEST_F(OutputTest, BacklogWakesTheIdleThreadAtOnce) {
  EXPECT_TRUE(isImmediate([] {
    Recorder emitter;
    LogManager other;
    other.addEmitter(&emitter);
    EXPECT_TRUE(other.startOutputThread());
    ::usleep(50'000);
    const std::int64_t start = TimeUtils::monotonicMicros();
    for (int i = 0; i < 3 * 1'024; ++i) const Entry entry(*other.input().getLogger("test"), Level::info, "x", "f", "g");
    emitter.waitFor(1'024);
    return TimeUtils::monotonicMicros() - start;
  }));
}

TEST_F(OutputTest, ThreadStartsOnlyOnce) {
  EXPECT_TRUE(manager.startOutputThread());
  EXPECT_FALSE(manager.startOutputThread());
  manager.stopOutputThread();
  EXPECT_EQ(output.state(), State::stopped);
  EXPECT_FALSE(manager.startOutputThread());
  EXPECT_EQ(output.state(), State::stopped);
}

TEST_F(OutputTest, StateIsIdleAgainIfTheSystemCannotCreateAThread) {
  {
    const NoThreads none;
    EXPECT_FALSE(manager.startOutputThread());
  }
  EXPECT_EQ(output.state(), State::idle);
  EXPECT_FALSE(manager.isOutputThreadStopped());
  EXPECT_TRUE(manager.startOutputThread());
}

TEST_F(OutputTest, WithoutAsynchronousOutputStartReturnsTrueAndStartsNoThread) {
  manager.input().setAsyncOutput(false);
  EXPECT_TRUE(manager.startOutputThread());
  EXPECT_TRUE(manager.startOutputThread());
  EXPECT_EQ(output.state(), State::idle);
}

TEST_F(OutputTest, StopWakesTheIdleThreadAtOnce) {
  EXPECT_TRUE(isImmediate([] {
    LogManager other;
    EXPECT_TRUE(other.startOutputThread());
    ::usleep(20'000);
    EXPECT_FALSE(other.isOutputThreadStopped());
    const std::int64_t start = TimeUtils::monotonicMicros();
    other.stopOutputThread();
    EXPECT_TRUE(other.isOutputThreadStopped());
    return TimeUtils::monotonicMicros() - start;
  }));
}

TEST_F(OutputTest, StopRightAfterAStartEndsTheThread) {
  for (int i = 0; i < 200; ++i) {
    LogManager other;
    EXPECT_TRUE(other.startOutputThread());
    other.stopOutputThread();
    EXPECT_TRUE(other.isOutputThreadStopped());
  }
}

TEST_F(OutputTest, StopDuringAFailingStartDoesNotWaitForAThread) {
  std::atomic<bool> isOver{false};
  std::atomic<int> stops{0};
  std::thread stopper([&] {
    while (!isOver) {
      manager.stopOutputThread();
      ++stops;
      ::usleep(10);  // so that it does not keep the lock all the time
    }
  });
  while (stops == 0) std::this_thread::yield();
  {
    const NoThreads none;
    const std::int64_t end = TimeUtils::monotonicMicros() + 500'000;
    while (TimeUtils::monotonicMicros() < end) EXPECT_FALSE(manager.startOutputThread());
  }
  isOver = true;
  stopper.join();
  EXPECT_EQ(output.state(), State::idle);
}

TEST_F(OutputTest, StopWithoutAStartDoesNothing) {
  manager.stopOutputThread();
  EXPECT_EQ(output.state(), State::idle);
  EXPECT_FALSE(manager.isOutputThreadStopped());
  EXPECT_TRUE(manager.startOutputThread());
}

TEST_F(OutputTest, StopWaitsForTheCurrentBatch) {
  Recorder emitter;
  std::atomic<bool> isInside{false};
  std::atomic<bool> isThrough{false};
  emitter.whenEmitting = [&](const LogMessage&) {
    isInside = true;
    ::usleep(30'000);
    isThrough = true;
  };
  manager.addEmitter(&emitter);
  log("x");
  EXPECT_TRUE(manager.startOutputThread());
  while (!isInside) ::usleep(100);
  manager.stopOutputThread();
  EXPECT_TRUE(isThrough);
}

TEST_F(OutputTest, EntriesQueuedAtAStopAreEmittedByALaterFlush) {
  Recorder emitter;
  std::atomic<bool> isInside{false};
  emitter.whenEmitting = [&](const LogMessage&) {
    isInside = true;
    ::usleep(1'000);
  };
  manager.addEmitter(&emitter);
  logMany(100);
  EXPECT_TRUE(manager.startOutputThread());
  while (!isInside) ::usleep(100);
  manager.stopOutputThread();
  EXPECT_LT(emitter.texts().size(), 100U);
  EXPECT_EQ(emitter.texts().size() % 20, 0U);
  log("100");
  manager.flush();
  EXPECT_EQ(emitter.texts(), numbers(101));
}

TEST_F(OutputTest, SecondStopDoesNothing) {
  EXPECT_TRUE(manager.startOutputThread());
  manager.stopOutputThread();
  manager.stopOutputThread();
  EXPECT_EQ(output.state(), State::stopped);
}

TEST_F(OutputTest, ManyThreadsMayStopAtTheSameTime) {
  EXPECT_TRUE(manager.startOutputThread());
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      manager.stopOutputThread();
      EXPECT_TRUE(manager.isOutputThreadStopped());
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(OutputTest, OneOfManyConcurrentStartsSucceeds) {
  std::atomic<int> successes{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      if (manager.startOutputThread()) ++successes;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(successes, 1);
}

TEST_F(OutputTest, DestructorStopsTheThreadAndWaits) {
  Recorder emitter;
  std::atomic<bool> isInside{false};
  std::atomic<bool> isThrough{false};
  emitter.whenEmitting = [&](const LogMessage&) {
    isInside = true;
    ::usleep(30'000);
    isThrough = true;
  };
  {
    LogManager other;
    other.addEmitter(&emitter);
    { const Entry entry(*other.input().getLogger("test"), Level::info, "x", "f", "g"); }
    EXPECT_TRUE(other.startOutputThread());
    while (!isInside) ::usleep(100);
  }
  EXPECT_TRUE(isThrough);
}

TEST_F(OutputTest, RemoveEmitterWaitsForABusyEmitter) {
  auto emitter = std::make_unique<Recorder>();
  std::atomic<bool> isInside{false};
  emitter->whenEmitting = [&](const LogMessage&) {
    isInside = true;
    ::usleep(20'000);
  };
  manager.addEmitter(emitter.get());
  log("x");
  EXPECT_TRUE(manager.startOutputThread());
  while (!isInside) ::usleep(100);
  manager.removeEmitter(emitter.get());
  emitter.reset();  // the sanitizers report it if the emitter is still in use
}

// --- Calls from inside an emitter

TEST_F(OutputTest, EntryThatAnEmitterLogsIsEmittedLater) {
  Recorder emitter;
  emitter.whenEmitting = [&](const LogMessage& message) {
    if (message.text() == "outer") log("from inside");
  };
  manager.addEmitter(&emitter);
  log("outer");
  log("next");
  manager.flush();
  EXPECT_THAT(emitter.texts(), ElementsAre("outer", "next", "from inside"));
}

TEST_F(OutputTest, EmitterThatAlwaysLogsDoesNotFeedTheLogForEver) {
  Recorder emitter;
  emitter.whenEmitting = [&](const LogMessage&) { log("echo"); };
  manager.addEmitter(&emitter);
  log("a");
  log("b");
  manager.flush();
  EXPECT_THAT(emitter.texts(), ElementsAre("a", "b", "echo", "echo"));
}

TEST_F(OutputTest, ThreadContinuesAfterAnEmitterThatLogs) {
  Recorder emitter;
  emitter.whenEmitting = [&](const LogMessage&) { log("echo"); };
  manager.addEmitter(&emitter);
  log("a");
  EXPECT_TRUE(manager.startOutputThread());
  emitter.waitFor(2);
  manager.stopOutputThread();
  manager.flush();
  EXPECT_THAT(emitter.texts(), ElementsAre("a", "echo"));
}

TEST_F(OutputTest, EntriesLoggedAfterABatchAreNotDropped) {
  Recorder emitter;
  emitter.whenEmitting = [&](const LogMessage&) { log("echo"); };
  manager.addEmitter(&emitter);
  log("a");
  manager.flush();
  emitter.whenEmitting = [](const LogMessage&) {};
  log("b");
  manager.flush();
  EXPECT_THAT(emitter.texts(), ElementsAre("a", "echo", "b"));
}

TEST_F(OutputTest, FlushFromInsideAnEmitterDoesNothing) {
  Recorder emitter;
  emitter.whenEmitting = [&](const LogMessage&) { manager.flush(); };
  manager.addEmitter(&emitter);
  logMany(25);
  manager.flush();
  EXPECT_EQ(emitter.texts(), numbers(25));
}

TEST_F(OutputTest, StopFromInsideAnEmitterDoesNotWaitForItself) {
  Recorder emitter;
  std::atomic<bool> isThrough{false};
  emitter.whenEmitting = [&](const LogMessage&) {
    manager.stopOutputThread();
    isThrough = true;
  };
  manager.addEmitter(&emitter);
  log("x");
  EXPECT_TRUE(manager.startOutputThread());
  while (!isThrough) ::usleep(100);
  manager.stopOutputThread();
  EXPECT_TRUE(manager.isOutputThreadStopped());
}

// The flush holds the lock of the emitters, and the output thread waits for that lock.
TEST_F(OutputTest, StopFromInsideAFlushDoesNotWaitForTheThread) {
  Recorder emitter;
  emitter.whenEmitting = [&](const LogMessage&) {
    EXPECT_TRUE(manager.startOutputThread());
    ::usleep(20'000);
    manager.stopOutputThread();
  };
  manager.addEmitter(&emitter);
  log("x");
  manager.flush();
  manager.stopOutputThread();
  EXPECT_TRUE(manager.isOutputThreadStopped());
}

TEST_F(OutputTest, EmitterMayRemoveItselfInTheMiddleOfABatch) {
  class Fleeting : public Recorder {
   public:
    int ended = 0;
    void endBatch() override { ++ended; }
  };
  Recorder after;
  auto emitter = std::make_unique<Fleeting>();
  emitter->whenEmitting = [&](const LogMessage& message) {
    if (message.text() == "1") manager.removeEmitter(emitter.get());
  };
  manager.addEmitter(emitter.get());
  manager.addEmitter(&after);
  logMany(5);
  manager.flush();
  EXPECT_THAT(emitter->texts(), ElementsAre("0", "1"));
  EXPECT_EQ(emitter->ended, 1);
  EXPECT_EQ(after.texts(), numbers(5));
  emitter.reset();
  logMany(1);
  manager.flush();
  EXPECT_EQ(after.texts().size(), 6U);
}

TEST_F(OutputTest, EmitterMayAddAndRemoveOthersInTheMiddleOfABatch) {
  Recorder first;
  Recorder removed;
  Recorder added;
  first.whenEmitting = [&](const LogMessage& message) {
    if (message.text() == "1") manager.removeEmitter(&removed);
    if (message.text() == "2") manager.addEmitter(&added);
  };
  manager.addEmitter(&first);
  manager.addEmitter(&removed);
  logMany(4);
  manager.flush();
  EXPECT_EQ(first.texts(), numbers(4));
  EXPECT_THAT(removed.texts(), ElementsAre("0"));
  EXPECT_THAT(added.texts(), ElementsAre("2", "3"));
}

// Also counts the calls at the beginning and at the end of batches.
class BatchRecorder : public Recorder {
 public:
  void beginBatch() override {
    ++begun;
    whenBeginning();
  }
  void endBatch() override { ++ended; }

  int begun = 0;
  int ended = 0;
  std::function<void()> whenBeginning = [] {};
};

TEST_F(OutputTest, EmitterRemovedBeforeItsBatchBeginsIsNotCalled) {
  BatchRecorder first;
  BatchRecorder removed;
  BatchRecorder last;
  first.whenBeginning = [&] { manager.removeEmitter(&removed); };
  for (BatchRecorder* emitter : {&first, &removed, &last}) manager.addEmitter(emitter);
  logMany(3);
  manager.flush();
  EXPECT_EQ(removed.begun, 0);
  EXPECT_THAT(removed.texts(), IsEmpty());
  EXPECT_EQ(last.begun, 1);
  EXPECT_EQ(last.ended, 1);
  EXPECT_EQ(last.texts(), numbers(3));
}

TEST_F(OutputTest, RemovingAnUnlistedEmitterFromInsideDoesNotCallIt) {
  BatchRecorder stranger;
  Recorder emitter;
  emitter.whenEmitting = [&](const LogMessage&) { manager.removeEmitter(&stranger); };
  manager.addEmitter(&emitter);
  logMany(3);
  manager.flush();
  EXPECT_EQ(stranger.ended, 0);
  EXPECT_EQ(emitter.texts(), numbers(3));
}

// Uses the instance of LogManager, because the default report logs there.
TEST(OutputAssertions, AssertionInsideAnEmitterNeitherHangsNorFeedsTheLogForEver) {
  LogManager& log = LogManager::instance();
  log.flush();
  Recorder emitter;
  emitter.whenEmitting = [](const LogMessage&) { assertFailure("f", 1, "inside"); };
  log.addEmitter(&emitter);
  const auto oldAction = ::signal(SIGILL, SIG_IGN);
  testing::internal::CaptureStderr();
  for (const char* text : {"a", "b"}) const Entry entry(getLogger("test"), Level::info, text, "f", "g");
  log.flush();
  const std::string line = "assert error, f line 1, \"inside\" \n";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), line + line + line + line);
  ::signal(SIGILL, oldAction);
  log.removeEmitter(&emitter);
  EXPECT_THAT(emitter.texts(), ElementsAre("a", "b", line, line));
}

// --- Without asynchronous output

TEST_F(OutputTest, WithoutAsynchronousOutputEntriesAreEmittedAtOnceOnTheThreadThatLogs) {
  manager.input().setAsyncOutput(false);
  Recorder emitter;
  std::thread::id thread;
  emitter.whenEmitting = [&](const LogMessage&) { thread = std::this_thread::get_id(); };
  manager.addEmitter(&emitter);
  log("x");
  EXPECT_THAT(emitter.texts(), ElementsAre("x"));
  EXPECT_EQ(thread, std::this_thread::get_id());
  manager.flush();
  EXPECT_THAT(emitter.texts(), ElementsAre("x"));
}

TEST_F(OutputTest, DeletingTheAdapterDoesNotDeleteTheEmitter) {
  manager.input().setAsyncOutput(false);
  Recorder emitter;
  manager.addEmitter(&emitter);
  manager.input().setSyncProcessor(nullptr);  // deletes the adapter
  log("x");
  EXPECT_THAT(emitter.texts(), IsEmpty());
}

TEST_F(OutputTest, EmitterBehindTheAdapterCanBeRemoved) {
  manager.input().setAsyncOutput(false);
  {
    Recorder emitter;
    manager.addEmitter(&emitter);
    manager.removeEmitter(&emitter);
  }
  log("x");
}

TEST_F(OutputTest, RemovingAReplacedEmitterLeavesItsReplacement) {
  manager.input().setAsyncOutput(false);
  Recorder first;
  Recorder second;
  manager.addEmitter(&first);
  manager.addEmitter(&second);
  manager.removeEmitter(&first);
  log("x");
  EXPECT_THAT(first.texts(), IsEmpty());
  EXPECT_THAT(second.texts(), ElementsAre("x"));
}

class Counting : public LogMessageProcessor {
 public:
  explicit Counting(int& count) : count_(count) {}
  void process(std::unique_ptr<const LogMessage>&) override { ++count_; }

 private:
  int& count_;
};

TEST_F(OutputTest, RemovingAReplacedEmitterLeavesTheNewProcessor) {
  manager.input().setAsyncOutput(false);
  int count = 0;
  Recorder emitter;
  manager.addEmitter(&emitter);
  manager.input().setSyncProcessor(new Counting(count));
  manager.removeEmitter(&emitter);
  log("x");
  EXPECT_EQ(count, 1);
}

TEST_F(OutputTest, RemovingNullLeavesTheProcessor) {
  int calls = 0;
  manager.input().setSyncProcessor(new Counting(calls));
  manager.removeEmitter(nullptr);
  log("x");
  EXPECT_EQ(calls, 1);
  manager.input().setSyncProcessor(nullptr);
}

TEST_F(OutputTest, EmitterBehindTheAdapterMayLogAndRemoveItself) {
  manager.input().setAsyncOutput(false);
  Recorder emitter;
  emitter.whenEmitting = [&](const LogMessage&) {
    log("from inside");
    manager.removeEmitter(&emitter);
  };
  manager.addEmitter(&emitter);
  log("x");
  log("y");
  EXPECT_THAT(emitter.texts(), ElementsAre("x"));
}

// --- Emergencies

std::string standardOutputOf(const std::function<void()>& run) {
  std::fflush(stdout);
  std::FILE* file = std::tmpfile();
  const int saved = ::dup(1);
  ::dup2(::fileno(file), 1);
  run();
  ::dup2(saved, 1);
  ::close(saved);
  std::fseek(file, 0, SEEK_END);
  std::string text(static_cast<std::size_t>(std::ftell(file)), '\0');
  std::rewind(file);
  EXPECT_EQ(std::fread(text.data(), 1, text.size(), file), text.size());
  std::fclose(file);
  return text;
}

TEST_F(OutputTest, EmergencyFlushReplacesAllEmittersByTheEmergencyEmitter) {
  Recorder first;
  Recorder second;
  manager.addEmitter(&first);
  manager.addEmitter(&second);
  logMany(25);
  const std::string text = standardOutputOf([&] { manager.emergencyFlush(); });
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 25);
  EXPECT_NE(text.find("] { \"msg\":\"24\" }\n"), std::string::npos);
  log("later");
  EXPECT_NE(standardOutputOf([&] { manager.flush(); }).find("] { \"msg\":\"later\" }\n"), std::string::npos);
  EXPECT_THAT(first.texts(), IsEmpty());
  EXPECT_THAT(second.texts(), IsEmpty());
}

TEST_F(OutputTest, EmergencyFlushFromInsideAnEmitterReplacesItWithoutHanging) {
  Recorder emitter;
  emitter.whenEmitting = [&](const LogMessage& message) {
    if (message.text() == "1") manager.emergencyFlush();
  };
  manager.addEmitter(&emitter);
  const std::string text = standardOutputOf([&] {
    logMany(30);
    manager.flush();
  });
  EXPECT_THAT(emitter.texts(), ElementsAre("0", "1"));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 28);
}

// --- The end of the process

// Runs `body` in a forked child. Returns the child's exit status, or -1 if the child hangs or a signal ends it.
int exitStatusOf(const std::function<void()>& body) {
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child == 0) {
    body();
    std::_Exit(99);  // the body is expected to end the process itself
  }
  for (int i = 0; i < 3000; ++i) {
    int status = 0;
    if (::waitpid(child, &status, WNOHANG) == child) return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    ::usleep(10'000);
  }
  ::kill(child, SIGKILL);
  (void)::waitpid(child, nullptr, 0);
  return -1;
}

Recorder& immortal() {
  static auto* const emitter = new Recorder;
  return *emitter;
}

TEST(OutputExitDeathTest, ExitStopsARunningOutputThreadAndWaits) {
  EXPECT_EQ(exitStatusOf([] {
              LogManager& log = LogManager::instance();
              log.addEmitter(&immortal());
              if (!log.startOutputThread()) std::_Exit(1);
              for (int i = 0; i < 1'000; ++i) {
                const Entry entry(getLogger("test"), Level::info, "x", "f", "g");
              }
              std::exit(7);
            }),
            7);
}

TEST(OutputExitDeathTest, ExitFinishesTheCurrentBatch) {
  struct Shared {
    std::atomic<bool> isInside{false};
    std::atomic<int> emitted{0};
    std::atomic<int> written{0};
  };
  class Slow : public Emitter {
   public:
    explicit Slow(Shared& shared) : shared_(shared) {}
    void emit(const LogMessage&) override {
      shared_.isInside = true;
      ::usleep(2'000);
      ++shared_.emitted;
    }
    void endBatch() override { shared_.written = shared_.emitted.load(); }
    void write(Level, const std::string&, const std::string&) override {}
    const char* name() const override { return "Slow"; }

   private:
    Shared& shared_;
  };
  void* const memory = ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* const shared = new (memory) Shared;
  EXPECT_EQ(exitStatusOf([shared] {
              LogManager& log = LogManager::instance();
              static auto* const emitter = new Slow(*shared);  // outlives the log
              log.addEmitter(emitter);
              for (int i = 0; i < 100; ++i) const Entry entry(getLogger("test"), Level::info, "x", "f", "g");
              if (!log.startOutputThread()) std::_Exit(1);
              while (!shared->isInside) ::usleep(100);
              std::exit(6);
            }),
            6);
  EXPECT_GE(shared->emitted, 20);
  EXPECT_EQ(shared->emitted % 20, 0);
  EXPECT_EQ(shared->written, shared->emitted);
  ::munmap(memory, sizeof(Shared));
}

TEST(OutputExitDeathTest, ExitFromInsideAnEmitterDoesNotHang) {
  EXPECT_EQ(exitStatusOf([] {
              LogManager& log = LogManager::instance();
              immortal().whenEmitting = [](const LogMessage&) { std::exit(8); };
              log.addEmitter(&immortal());
              { const Entry entry(getLogger("test"), Level::info, "x", "f", "g"); }
              if (!log.startOutputThread()) std::_Exit(1);
              for (;;) ::pause();
            }),
            8);
}

TEST(OutputExitDeathTest, ExitOfAForkedChildDoesNotWaitForTheThreadOfItsParent) {
  EXPECT_EQ(exitStatusOf([] {
              LogManager& log = LogManager::instance();
              if (!log.startOutputThread()) std::_Exit(1);
              ::usleep(50'000);  // the thread is idle now
              const int inner = exitStatusOf([] {
                LogManager::instance().stopOutputThread();
                if (!LogManager::instance().isOutputThreadStopped()) std::_Exit(2);
                std::exit(9);
              });
              std::exit(inner);
            }),
            9);
}

// --- Many threads at the same time

// Returns one million if RAVCTL_LONG is set.
int messagesInAll() { return std::getenv("RAVCTL_LONG") != nullptr ? 1'000'000 : 32'000; }

// Checks that each message of each producer arrives once and in order.
class Checker : public Emitter {
 public:
  explicit Checker(int producers) : next_(static_cast<std::size_t>(producers)) {}
  void emit(const LogMessage& message) override {
    const auto parameters = message.parameters();
    const auto producer = static_cast<std::size_t>(std::stoi(std::string(parameters[0].value)));
    const int number = std::stoi(std::string(parameters[1].value));
    if (next_[producer] != number) isOrdered_ = false;
    next_[producer] = number + 1;
    ++count_;
  }
  void write(Level, const std::string&, const std::string&) override {}
  const char* name() const override { return "Checker"; }

  int count() const { return count_; }
  bool isOrdered() const { return isOrdered_; }

 private:
  std::vector<int> next_;  // only used under the lock of the emitters
  std::atomic<int> count_{0};
  std::atomic<bool> isOrdered_{true};
};

TEST_F(OutputTest, SixteenProducersLoseNothingRepeatNothingAndKeepTheirOrder) {
  constexpr int producers = 16;
  const int each = messagesInAll() / producers;
  Checker emitter(producers);
  manager.addEmitter(&emitter);
  EXPECT_TRUE(manager.startOutputThread());
  std::vector<std::thread> threads;
  for (int p = 0; p < producers; ++p) {
    threads.emplace_back([&, p] {
      for (int i = 0; i < each; ++i) {
        Entry entry(logger, Level::info, "a message", "f", "g");
        entry.addNumber("producer", p);
        entry.addNumber("number", i);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  manager.stopOutputThread();
  manager.flush();
  EXPECT_EQ(emitter.count(), producers * each);
  EXPECT_TRUE(emitter.isOrdered());
}

TEST_F(OutputTest, OrderIsKeptWhenSeveralThreadsFlush) {
  constexpr int producers = 4;
  const int each = messagesInAll() / 8;
  Checker emitter(producers);
  manager.addEmitter(&emitter);
  EXPECT_TRUE(manager.startOutputThread());
  std::vector<std::thread> threads;
  for (int p = 0; p < producers; ++p) {
    threads.emplace_back([&, p] {
      for (int i = 0; i < each; ++i) {
        {
          Entry entry(logger, Level::info, "a message", "f", "g");
          entry.addNumber("producer", p);
          entry.addNumber("number", i);
        }
        if (i % 100 == 0) manager.flush();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  manager.stopOutputThread();
  manager.flush();
  EXPECT_EQ(emitter.count(), producers * each);
  EXPECT_TRUE(emitter.isOrdered());
}

TEST_F(OutputTest, EmittersMayBeAddedAndRemovedWhileThreadsLog) {
  std::atomic<bool> isOver{false};
  EXPECT_TRUE(manager.startOutputThread());
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!isOver) {
        log("x");
        ::usleep(100);  // so that the flush can empty the queue
      }
    });
  }
  for (int i = 0; i < 200; ++i) {
    Recorder emitter;
    manager.addEmitter(&emitter);
    manager.flush();
    manager.removeEmitter(&emitter);
  }
  isOver = true;
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
