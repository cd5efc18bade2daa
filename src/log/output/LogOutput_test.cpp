// Tests of the output thread, of batches and the list of emitters, and of calls that must not deadlock.
#include "log/output/LogOutput.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "base/text/TimeUtils.h"
#include "base/threads/ThreadNames.h"
#include "log/output/LogManager.h"
#include "testing/faults/NoThreads.h"
#include "testing/run/Zone.h"

namespace {

using namespace BasicLog;
using State = LogOutput::EmitterState;
using testing::ElementsAre;
using testing::IsEmpty;

// Records the text of each entry and then calls a function.
class Recorder : public Emitter {
 public:
  void emit(const LogMessage& message) override {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      texts_.emplace_back(message.text());
    }
    whenEmitting(message);
  }
  void write(Level, const std::string&, const std::string&) override {}
  const char* name() const override { return "Recorder"; }

  std::vector<std::string> texts() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return texts_;
  }
  void waitFor(std::size_t count) {
    while (texts().size() < count) ::usleep(200);
  }

  std::function<void(const LogMessage&)> whenEmitting = [](const LogMessage&) {};

 private:
  std::mutex mutex_;
  std::vector<std::string> texts_;
};

void logTo(LogManager& manager, std::string_view text) {
  const Entry entry(*manager.input().getLogger("test"), Level::info, text, "f", "g");
}

// Has its own log with one emitter, separate from the instance of LogManager.
class OutputTest : public testing::Test {
 public:
  OutputTest() { manager.addEmitter(&emitter); }

  Recorder emitter;  // before the manager, whose thread may use it until its end
  LogManager manager;
  LogOutput& output = manager.output();

  void log(std::string_view text) { logTo(manager, text); }
  void logMany(int count) {
    for (int i = 0; i < count; ++i) log(std::to_string(i));
  }
};

// Returns true if `wake` took clearly less than the second for which an idle thread waits, in one of ten attempts. An
// operation that waits for that second is slow in every attempt; a busy machine delays only some of them.
bool isImmediate(const std::function<void(LogManager&, Recorder&)>& wake) {
  for (int attempt = 0; attempt < 10; ++attempt) {
    Recorder emitter;
    LogManager manager;
    manager.addEmitter(&emitter);
    EXPECT_TRUE(manager.startOutputThread());
    ::usleep(50'000);
    const std::int64_t start = TimeUtils::monotonicMicros();
    wake(manager, emitter);
    if (TimeUtils::monotonicMicros() - start < 500'000) return true;
  }
  return false;
}

std::vector<std::string> numbers(int count) {
  std::vector<std::string> texts;
  for (int i = 0; i < count; ++i) texts.push_back(std::to_string(i));
  return texts;
}

// Calls `run` with the numbers below `count`, each in its own thread, and waits for them.
void inThreads(int count, const std::function<void(int)>& run) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back(run, i);
  for (std::thread& thread : threads) thread.join();
}

// --- Flushing and batches

TEST_F(OutputTest, FlushEmitsAllQueuedEntriesInOrder) {
  logMany(45);
  EXPECT_THAT(emitter.texts(), IsEmpty());
  manager.flush();
  EXPECT_EQ(emitter.texts(), numbers(45));
  manager.flush();
  EXPECT_EQ(emitter.texts().size(), 45U);
}

TEST_F(OutputTest, EntriesAreTakenAndEmittedInBatchesOfAtMostTwenty) {
  // For each emitted entry, how many entries are still queued at that time.
  std::vector<std::size_t> left;
  emitter.whenEmitting = [&](const LogMessage&) { left.push_back(output.queue().size()); };
  logMany(45);
  manager.flush();
  std::vector<std::size_t> expectedLeft(20, 25U);
  expectedLeft.insert(expectedLeft.end(), 20, 5U);
  expectedLeft.insert(expectedLeft.end(), 5, 0U);
  EXPECT_EQ(left, expectedLeft);
  EXPECT_EQ(emitter.texts(), numbers(45));
}

TEST_F(OutputTest, EachEntryReachesAllEmittersInTheOrderOfTheList) {
  std::vector<std::string> all;
  Recorder second;
  emitter.whenEmitting = [&](const LogMessage& message) { all.push_back("a" + std::string(message.text())); };
  second.whenEmitting = [&](const LogMessage& message) { all.push_back("b" + std::string(message.text())); };
  manager.addEmitter(&second);
  logMany(2);
  manager.flush();
  EXPECT_THAT(all, ElementsAre("a0", "b0", "a1", "b1"));
}

TEST_F(OutputTest, FlushWithoutEmittersDropsQueuedEntries) {
  manager.removeEmitter(&emitter);
  logMany(3);
  manager.flush();
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
  EXPECT_EQ(emitter.texts(), numbers(1));
}

TEST_F(OutputTest, RemovedEmitterIsNotCalledAnyMoreEvenIfItWasAddedTwice) {
  Recorder once;
  Recorder twice;
  for (Recorder* added : {&once, &twice, &twice}) manager.addEmitter(added);
  log("x");
  manager.flush();
  for (Recorder* removed : {&once, &twice}) manager.removeEmitter(removed);
  log("y");
  manager.flush();
  EXPECT_THAT(once.texts(), ElementsAre("x"));
  EXPECT_THAT(twice.texts(), ElementsAre("x", "x"));
  EXPECT_THAT(emitter.texts(), ElementsAre("x", "y"));
}

// The first emitter changes the zone while it writes an entry. The second emitter writes the same entry after that.
TEST_F(OutputTest, EntryHasTheZoneOffsetOfItsOwnMomentInEveryEmitter) {
  const auto hourOf = [](const LogMessage& message) { return std::stoi(textHeader(message).substr(17, 2)); };
  std::vector<int> hours;
  Recorder second;
  const Zone zone("UTC0");
  emitter.whenEmitting = [&](const LogMessage& message) {
    hours.push_back(hourOf(message));
    ::setenv("TZ", std::string(message.text()).c_str(), 1);  // the text of each entry is the zone for the next one
  };
  second.whenEmitting = [&](const LogMessage& message) { hours.push_back(hourOf(message)); };
  manager.addEmitter(&second);
  for (const char* next : {"EST5", "JST-9", "UTC0", "EST5"}) log(next);
  manager.flush();
  std::vector<int> later;  // hours later than in UTC
  for (const int hour : hours) later.push_back((hour - hours[0] + 24) % 24);
  EXPECT_THAT(later, ElementsAre(0, 0, 19, 19, 9, 9, 0, 0));
}

// --- The thread

TEST_F(OutputTest, ThreadNamedLoggingOutputEmitsLoggedEntries) {
  std::string name;
  emitter.whenEmitting = [&](const LogMessage&) { name = getThreadName(); };
  logMany(30);
  EXPECT_EQ(output.state(), State::idle);
  EXPECT_TRUE(manager.startOutputThread());
  emitter.waitFor(30);
  EXPECT_EQ(output.state(), State::running);
  manager.stopOutputThread();
  EXPECT_EQ(emitter.texts(), numbers(30));
  EXPECT_EQ(name, "logging_output");
}

// Nothing wakes the thread, so the entry is emitted when the thread's wait of one second ends.
TEST_F(OutputTest, EntryReachesItsEmittersAlthoughTheThreadWasIdle) {
  EXPECT_TRUE(manager.startOutputThread());
  ::usleep(20'000);
  const std::int64_t start = TimeUtils::monotonicMicros();
  log("late");
  emitter.waitFor(1);
  EXPECT_LT(TimeUtils::monotonicMicros() - start, 5'000'000) << "far more than a second, for a busy machine";
  manager.stopOutputThread();
  EXPECT_THAT(emitter.texts(), ElementsAre("late"));
}

TEST(OutputThread, BacklogWakesTheIdleThreadAtOnce) {
  EXPECT_TRUE(isImmediate([](LogManager& manager, Recorder& emitter) {
    for (int i = 0; i < 1'024; ++i) logTo(manager, "x");
    emitter.waitFor(1'024);
  }));
}

TEST(OutputThread, FewerEntriesThanABacklogDoNotWakeTheIdleThread) {
  bool isAsleep = false;
  for (int attempt = 0; attempt < 10 && !isAsleep; ++attempt) {  // a thread that starts late takes the entries at once
    Recorder emitter;
    LogManager manager;
    manager.addEmitter(&emitter);
    EXPECT_TRUE(manager.startOutputThread());
    ::usleep(50'000);
    for (int i = 0; i < 1'023; ++i) logTo(manager, "x");
    ::usleep(50'000);
    isAsleep = emitter.texts().empty();
  }
  EXPECT_TRUE(isAsleep);
}

TEST(OutputThread, StopWakesTheIdleThreadAtOnce) {
  EXPECT_TRUE(isImmediate([](LogManager& manager, Recorder&) {
    EXPECT_FALSE(manager.isOutputThreadStopped());
    manager.stopOutputThread();
    EXPECT_TRUE(manager.isOutputThreadStopped());
  }));
}

TEST_F(OutputTest, ThreadStartsOnceAndStopsOnce) {
  manager.stopOutputThread();
  EXPECT_EQ(output.state(), State::idle) << "a stop without a start does nothing";
  EXPECT_FALSE(manager.isOutputThreadStopped());
  EXPECT_TRUE(manager.startOutputThread());
  EXPECT_FALSE(manager.startOutputThread());
  manager.stopOutputThread();
  EXPECT_EQ(output.state(), State::stopped);
  manager.stopOutputThread();
  EXPECT_EQ(output.state(), State::stopped) << "a second stop does nothing";
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

TEST(OutputThread, StopRightAfterAStartEndsTheThread) {
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

TEST(OutputThread, StopDestructorAndRemovalWaitForABusyEmitter) {
  using Log = std::unique_ptr<LogManager>;
  const struct {
    const char* why;
    void (*wait)(Log&, Recorder&);
  } cases[] = {
      {"a stop waits for the current batch", [](Log& log, Recorder&) { log->stopOutputThread(); }},
      {"the destructor stops the thread and waits", [](Log& log, Recorder&) { log.reset(); }},
      {"the end of the log waits for the thread", [](Log& log, Recorder&) { log->shutDown(); }},
      {"removeEmitter waits for its emitter", [](Log& log, Recorder& emitter) { log->removeEmitter(&emitter); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    std::atomic<bool> isThrough{false};
    auto busy = std::make_unique<Recorder>();
    busy->whenEmitting = [&](const LogMessage&) {
      ::usleep(30'000);
      isThrough = true;
    };
    auto other = std::make_unique<LogManager>();
    other->addEmitter(busy.get());
    logTo(*other, "x");
    EXPECT_TRUE(other->startOutputThread());
    busy->waitFor(1);
    c.wait(other, *busy);
    EXPECT_TRUE(isThrough);
    busy.reset();  // the sanitizers report it if the emitter is still in use
  }
}

TEST_F(OutputTest, EntriesQueuedAtAStopAreEmittedByALaterFlush) {
  emitter.whenEmitting = [](const LogMessage&) { ::usleep(1'000); };
  logMany(100);
  EXPECT_TRUE(manager.startOutputThread());
  emitter.waitFor(1);
  manager.stopOutputThread();
  EXPECT_LT(emitter.texts().size(), 100U);
  EXPECT_EQ(emitter.texts().size() % 20, 0U);
  log("100");
  manager.flush();
  EXPECT_EQ(emitter.texts(), numbers(101));
}

TEST_F(OutputTest, ManyThreadsMayStopAtTheSameTime) {
  EXPECT_TRUE(manager.startOutputThread());
  inThreads(8, [&](int) {
    manager.stopOutputThread();
    EXPECT_TRUE(manager.isOutputThreadStopped());
  });
}

TEST_F(OutputTest, OneOfManyConcurrentStartsSucceeds) {
  std::atomic<int> successes{0};
  inThreads(8, [&](int) { successes += manager.startOutputThread() ? 1 : 0; });
  EXPECT_EQ(successes, 1);
}

// --- Calls from inside an emitter

// Flushes the entries to an emitter that calls `whenEmitting`, and then one more entry that it only records. Returns
// the texts that it recorded.
std::vector<std::string> emitted(LogManager& manager, const std::vector<std::string>& entries,
                                 const std::function<void(const LogMessage&)>& whenEmitting) {
  Recorder emitter;
  emitter.whenEmitting = whenEmitting;
  manager.addEmitter(&emitter);
  for (const std::string& text : entries) logTo(manager, text);
  manager.flush();
  emitter.whenEmitting = [](const LogMessage&) {};
  logTo(manager, "after");
  manager.flush();
  manager.removeEmitter(&emitter);
  return emitter.texts();
}

TEST_F(OutputTest, EntriesThatAnEmitterLogsAreEmittedLaterButDoNotFeedTheLogForEver) {
  const auto logOnce = [&](const LogMessage& message) {
    if (message.text() == "outer") log("from inside");
  };
  EXPECT_THAT(emitted(manager, {"outer", "next"}, logOnce), ElementsAre("outer", "next", "from inside", "after"));
  const auto logAlways = [&](const LogMessage&) { log("echo"); };
  EXPECT_THAT(emitted(manager, {"a", "b"}, logAlways), ElementsAre("a", "b", "echo", "echo", "after"));
}

TEST_F(OutputTest, FlushFromInsideAnEmitterDoesNothing) {
  auto expected = numbers(25);
  expected.emplace_back("after");
  EXPECT_EQ(emitted(manager, numbers(25), [&](const LogMessage&) { manager.flush(); }), expected);
}

TEST_F(OutputTest, ThreadContinuesAfterAnEmitterThatLogs) {
  emitter.whenEmitting = [&](const LogMessage&) { log("echo"); };
  log("a");
  EXPECT_TRUE(manager.startOutputThread());
  emitter.waitFor(2);
  manager.stopOutputThread();
  manager.flush();
  EXPECT_THAT(emitter.texts(), ElementsAre("a", "echo"));
}

TEST_F(OutputTest, StopFromInsideAnEmitterDoesNotWaitForItself) {
  std::atomic<bool> isThrough{false};
  emitter.whenEmitting = [&](const LogMessage&) {
    manager.stopOutputThread();
    isThrough = true;
  };
  log("x");
  EXPECT_TRUE(manager.startOutputThread());
  while (!isThrough) ::usleep(100);
  manager.stopOutputThread();
  EXPECT_TRUE(manager.isOutputThreadStopped());
}

// The flush holds the lock of the emitters, and the output thread waits for that lock.
TEST_F(OutputTest, StopByAnEmitterInAFlushOutsideTheOutputThreadDoesNotWaitForThatThread) {
  emitter.whenEmitting = [&](const LogMessage&) {
    EXPECT_TRUE(manager.startOutputThread());
    ::usleep(20'000);
    manager.stopOutputThread();
  };
  log("x");
  manager.flush();
  manager.stopOutputThread();
  EXPECT_TRUE(manager.isOutputThreadStopped());
}

// The list holds the emitters 0, 1 and 2, but not 3. Emitter 0 adds or removes an emitter.
TEST(EmitterList, EmitterMayAddAndRemoveEmittersInTheMiddleOfABatch) {
  const struct {
    const char* why;
    const char* moment;  // the text of the entry at which emitter 0 does it
    void (LogManager::*change)(Emitter*);
    std::size_t changed;
    const char* received;  // by the emitters 0 to 3, with a blank after each
  } cases[] = {
      {"an emitter that removes itself receives no later entry", "1", &LogManager::removeEmitter, 0,
       "01 0123x 0123x  "},
      {"an emitter that is removed does not receive the current entry", "1", &LogManager::removeEmitter, 1,
       "0123x 0 0123x  "},
      {"an emitter that is removed at the first entry receives none", "0", &LogManager::removeEmitter, 1,
       "0123x  0123x  "},
      {"an added emitter receives the current entry", "2", &LogManager::addEmitter, 3, "0123x 0123x 0123x 23x "},
      {"removing an emitter that is not in the list changes nothing", "1", &LogManager::removeEmitter, 3,
       "0123x 0123x 0123x  "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    std::array<Recorder, 4> all;
    LogManager manager;
    all[0].whenEmitting = [&](const LogMessage& message) {
      if (message.text() == c.moment) (manager.*c.change)(&all[c.changed]);
    };
    for (std::size_t i = 0; i < 3; ++i) manager.addEmitter(&all[i]);
    for (const std::string& text : numbers(4)) logTo(manager, text);
    manager.flush();
    logTo(manager, "x");
    manager.flush();
    std::string received;
    for (Recorder& emitter : all) {
      for (const std::string& text : emitter.texts()) received += text;
      received += ' ';
    }
    EXPECT_EQ(received, c.received);
  }
}

TEST_F(OutputTest, EmitterMayBeDestroyedInTheMiddleOfABatchOnceItIsRemoved) {
  auto removed = std::make_unique<Recorder>();
  manager.addEmitter(removed.get());
  emitter.whenEmitting = [&](const LogMessage& message) {
    if (message.text() != "1") return;
    EXPECT_THAT(removed->texts(), ElementsAre("0"));
    manager.removeEmitter(removed.get());
    removed.reset();  // the sanitizers report it if the emitter is still in use
  };
  logMany(3);
  manager.flush();
  EXPECT_EQ(removed, nullptr);
  EXPECT_EQ(emitter.texts(), numbers(3));
}

TEST_F(OutputTest, ExceptionOfAnEmitterStopsNeitherTheBatchNorOtherEmittersNorTheThread) {
  Recorder second;
  emitter.whenEmitting = [](const LogMessage& message) {
    if (message.text() != "1") throw std::runtime_error("from an emitter");
  };
  manager.addEmitter(&second);
  logMany(3);
  EXPECT_NO_THROW(manager.flush());
  EXPECT_EQ(emitter.texts(), numbers(3));
  EXPECT_EQ(second.texts(), numbers(3));
  log("3");
  EXPECT_TRUE(manager.startOutputThread());
  second.waitFor(4);
  manager.stopOutputThread();
  EXPECT_EQ(second.texts(), numbers(4));
}

TEST_F(OutputTest, ExceptionWhileAnEntryIsFormattedLosesThatEntryForThatEmitterAlone) {
  class Formatting : public Emitter {
   public:
    std::vector<std::string> bodies;
    std::string formatBody(const LogMessage& message) override {
      if (message.text() == "1") throw std::runtime_error("from formatBody");
      return Emitter::formatBody(message);
    }
    void write(Level, const std::string&, const std::string& body) override { bodies.push_back(body); }
    const char* name() const override { return "Formatting"; }
  };
  Formatting first;
  manager.addEmitter(&first);
  logMany(3);
  EXPECT_NO_THROW(manager.flush());
  EXPECT_THAT(first.bodies, ElementsAre("0", "2"));
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
  for (const char* text : {"a", "b"}) logTo(log, text);
  log.flush();
  const std::string line = "assert error, f line 1, \"inside\" \n";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), line + line + line + line);
  ::signal(SIGILL, oldAction);
  log.removeEmitter(&emitter);
  EXPECT_THAT(emitter.texts(), ElementsAre("a", "b", line, line));
}

// --- Without asynchronous output

class SyncOutputTest : public OutputTest {
 public:
  SyncOutputTest() { manager.input().setAsyncOutput(false); }
};

TEST_F(SyncOutputTest, EntriesAreEmittedAtOnceOnTheThreadThatLogs) {
  std::thread::id thread;
  emitter.whenEmitting = [&](const LogMessage&) { thread = std::this_thread::get_id(); };
  manager.addEmitter(&emitter);
  log("x");
  EXPECT_THAT(emitter.texts(), ElementsAre("x"));
  EXPECT_EQ(thread, std::this_thread::get_id());
  manager.flush();
  EXPECT_THAT(emitter.texts(), ElementsAre("x"));
}

TEST_F(SyncOutputTest, OnlyTheInstalledEmitterOrProcessorIsCalled) {
  static int received[3] = {};  // by the first emitter, by the second one and by the processor
  class Counting : public LogMessageProcessor {
    void process(std::unique_ptr<const LogMessage>&) override { ++received[2]; }
  };
  Recorder first;
  Recorder second;
  first.whenEmitting = [](const LogMessage&) { ++received[0]; };
  second.whenEmitting = [](const LogMessage&) { ++received[1]; };
  const auto addFirst = [&] { manager.addEmitter(&first); };
  const auto addSecond = [&] { manager.addEmitter(&second); };
  const auto removeFirst = [&] { manager.removeEmitter(&first); };
  const auto addNull = [&] { manager.addEmitter(nullptr); };
  const auto removeNull = [&] { manager.removeEmitter(nullptr); };
  const auto install = [&] { manager.input().setSyncProcessor(new Counting); };
  const auto deleteProcessor = [&] { manager.input().setSyncProcessor(nullptr); };
  const struct {
    const char* why;
    std::vector<std::function<void()>> steps;
    int first, second, processor;  // what they receive
  } cases[] = {
      {"deleting the adapter does not delete the emitter", {addFirst, deleteProcessor}, 0, 0, 0},
      {"an emitter behind the adapter can be removed", {addFirst, removeFirst}, 0, 0, 0},
      {"removing a replaced emitter leaves its replacement", {addFirst, addSecond, removeFirst}, 0, 1, 0},
      {"removing a replaced emitter leaves the new processor", {addFirst, install, removeFirst}, 0, 0, 1},
      {"removing null leaves the processor", {install, removeNull}, 0, 0, 1},
      {"removing null leaves the emitter", {addFirst, removeNull}, 1, 0, 0},
      {"adding null leaves the emitter", {addFirst, addNull}, 1, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    for (int& count : received) count = 0;
    for (const auto& step : c.steps) step();
    log("x");
    EXPECT_THAT(received, ElementsAre(c.first, c.second, c.processor));
    deleteProcessor();
  }
}

TEST_F(SyncOutputTest, ExceptionOfAnEmitterDoesNotReachTheCodeThatLogs) {
  emitter.whenEmitting = [](const LogMessage&) { throw std::runtime_error("from an emitter"); };
  manager.addEmitter(&emitter);
  EXPECT_NO_THROW(logMany(2));
  EXPECT_EQ(emitter.texts(), numbers(2));
}

TEST_F(SyncOutputTest, EmitterMayLogAndRemoveItself) {
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
  testing::internal::CaptureStdout();
  run();
  return testing::internal::GetCapturedStdout();
}

TEST_F(OutputTest, EmergencyFlushReplacesAllEmittersByTheEmergencyEmitter) {
  Recorder second;
  manager.addEmitter(&second);
  logMany(25);
  const std::string text = standardOutputOf([&] { manager.emergencyFlush(); });
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 25);
  EXPECT_NE(text.find("] { \"msg\":\"24\" }\n"), std::string::npos);
  log("later");
  EXPECT_NE(standardOutputOf([&] { manager.flush(); }).find("] { \"msg\":\"later\" }\n"), std::string::npos);
  EXPECT_THAT(emitter.texts(), IsEmpty());
  EXPECT_THAT(second.texts(), IsEmpty());
}

TEST_F(OutputTest, EmergencyFlushFromInsideAnEmitterReplacesItWithoutHanging) {
  emitter.whenEmitting = [&](const LogMessage& message) {
    if (message.text() == "1") manager.emergencyFlush();
  };
  logMany(30);
  const std::string text = standardOutputOf([&] { manager.flush(); });
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

// Starts the output thread of the instance of LogManager with an emitter that outlives the log.
LogManager& startLogOfTheChild(Recorder* emitter) {
  LogManager& log = LogManager::instance();
  log.addEmitter(emitter);
  if (!log.startOutputThread()) std::_Exit(1);
  return log;
}

TEST(OutputExitDeathTest, ExitOfAForkedChildDoesNotWaitForTheThreadOfItsParent) {
  const auto inner = [] {
    LogManager::instance().stopOutputThread();
    if (!LogManager::instance().isOutputThreadStopped()) std::_Exit(2);
    std::exit(9);
  };
  const auto body = [&] {
    startLogOfTheChild(nullptr);
    ::usleep(50'000);  // the thread is idle now
    std::exit(exitStatusOf(inner));
  };
  EXPECT_EQ(exitStatusOf(body), 9);
}

// Writes "x" for each of 100 queued entries, slowly, and exits when the output thread has begun with them.
void exitWhileTheOutputThreadWrites() {
  auto* const emitter = new Recorder;
  emitter->whenEmitting = [](const LogMessage&) {
    ::usleep(2'000);
    EXPECT_EQ(::write(1, "x", 1), 1);
  };
  for (int i = 0; i < 100; ++i) logTo(LogManager::instance(), "x");
  startLogOfTheChild(emitter);
  emitter->waitFor(1);
  std::exit(6);
}

TEST(OutputExitDeathTest, ExitWritesAllQueuedEntriesIfTheOutputThreadIsRunning) {
  int status = 0;
  const std::string text = standardOutputOf([&] { status = exitStatusOf(exitWhileTheOutputThreadWrites); });
  EXPECT_EQ(status, 6);
  EXPECT_EQ(text, std::string(100, 'x'));
}

TEST(OutputExitDeathTest, ExitOfAForkedChildWritesAllQueuedEntriesIfTheChildStartedTheThread) {
  int status = 0;
  const std::string text = standardOutputOf([&] {
    status = exitStatusOf([] {
      (void)LogManager::instance();  // made by the parent of the process that starts the thread
      std::exit(exitStatusOf(exitWhileTheOutputThreadWrites));
    });
  });
  EXPECT_EQ(status, 6);
  EXPECT_EQ(text, std::string(100, 'x'));
}

// --- Many threads at the same time

// Returns one million if RAVCTL_LONG is set.
int messagesInAll() { return std::getenv("RAVCTL_LONG") != nullptr ? 1'000'000 : 32'000; }

TEST(OutputThread, ManyProducersLoseNothingRepeatNothingAndKeepTheirOrder) {
  const struct {
    const char* why;
    int producers, each, entriesBetweenFlushes;
  } cases[] = {
      {"sixteen producers beside the output thread", 16, messagesInAll() / 16, INT_MAX},
      {"four producers that flush too", 4, messagesInAll() / 8, 100},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    std::vector<int> next(static_cast<std::size_t>(c.producers));  // only used under the lock of the emitters
    int misplaced = 0;
    Recorder checker;
    checker.whenEmitting = [&](const LogMessage& message) {
      const auto parameters = message.parameters();
      int& expected = next.at(std::stoul(std::string(parameters[0].value)));
      if (parameters[1].value != std::to_string(expected++)) ++misplaced;
    };
    LogManager manager;
    Logger& logger = *manager.input().getLogger("test");
    manager.addEmitter(&checker);
    EXPECT_TRUE(manager.startOutputThread());
    inThreads(c.producers, [&](int producer) {
      for (int i = 1; i <= c.each; ++i) {
        {
          Entry entry(logger, Level::info, "", "f", "g");
          entry.addNumber("producer", producer);
          entry.addNumber("number", i - 1);
        }
        if (i % c.entriesBetweenFlushes == 0) manager.flush();
      }
    });
    manager.stopOutputThread();
    manager.flush();
    EXPECT_EQ(next, std::vector<int>(next.size(), c.each));
    EXPECT_EQ(misplaced, 0);
  }
}

TEST_F(OutputTest, EmittersMayBeAddedAndRemovedWhileThreadsLog) {
  std::atomic<bool> isOver{false};
  EXPECT_TRUE(manager.startOutputThread());
  std::thread changer([&] {
    for (int i = 0; i < 200; ++i) {
      Recorder added;
      manager.addEmitter(&added);
      manager.flush();
      manager.removeEmitter(&added);
    }
    isOver = true;
  });
  inThreads(3, [&](int) {
    while (!isOver) {
      log("x");
      ::usleep(100);  // so that the flush can empty the queue
    }
  });
  changer.join();
}

// --- Producers and the destructors

TEST_F(OutputTest, ProducersDoNotWaitForABusyEmitter) {
  std::atomic<bool> isLogged{false};
  std::atomic<bool> wasHanging{false};
  emitter.whenEmitting = [&](const LogMessage&) {
    for (int i = 0; i < 3'000 && !isLogged; ++i) ::usleep(10'000);
    wasHanging = !isLogged;
  };
  log("0");
  EXPECT_TRUE(manager.startOutputThread());
  emitter.waitFor(1);
  for (int i = 1; i < 5'000; ++i) log(std::to_string(i));
  isLogged = true;
  manager.stopOutputThread();
  EXPECT_FALSE(wasHanging);
  manager.flush();
  EXPECT_EQ(emitter.texts(), numbers(5'000));
}

TEST(OutputThread, DestructorOfAnOutputWithoutManagerWaitsForItsThread) {
  std::atomic<bool> isThrough{false};
  Recorder busy;
  busy.whenEmitting = [&](const LogMessage&) {
    ::usleep(30'000);
    isThrough = true;
  };
  {
    LogOutput output;
    output.addEmitter(&busy);
    std::unique_ptr<const LogMessage> message = LogMessage::make("f", "g", "l", "x");
    EXPECT_TRUE(output.push(message));
    EXPECT_TRUE(output.startOutputThread());
    busy.waitFor(1);
  }
  EXPECT_TRUE(isThrough);
}

// The input deletes the processor before it deletes its loggers.
TEST(OutputThread, LoggersLiveUntilTheEmitterThatRunsAtTheDestructionOfTheLogHasReturned) {
  static std::atomic<bool> isThrough;
  static std::atomic<bool> wasThroughAtTheEnd;
  class Last : public LogMessageProcessor {
   public:
    ~Last() override { wasThroughAtTheEnd = isThrough.load(); }
    void process(std::unique_ptr<const LogMessage>&) override {}
  };
  isThrough = false;
  Recorder busy;
  {
    LogManager manager;
    manager.addEmitter(&busy);
    busy.whenEmitting = [&](const LogMessage&) {
      ::usleep(30'000);
      logTo(manager, "by the emitter");
      isThrough = true;
    };
    manager.input().setSyncProcessor(new Last);
    logTo(manager, "x");
    EXPECT_TRUE(manager.startOutputThread());
    busy.waitFor(1);
  }
  EXPECT_TRUE(wasThroughAtTheEnd);
}

TEST(OutputThread, EntriesStillQueuedAtTheDestructionOfTheLogAreNotWritten) {
  Recorder emitter;
  {
    LogManager manager;
    manager.addEmitter(&emitter);
    logTo(manager, "queued");
  }
  EXPECT_THAT(emitter.texts(), IsEmpty());
}

TEST_F(SyncOutputTest, RemovalOfAnEmitterWaitsForItsCallOnAnotherThread) {
  std::atomic<bool> isThrough{false};
  emitter.whenEmitting = [&](const LogMessage&) {
    ::usleep(30'000);
    isThrough = true;
  };
  manager.addEmitter(&emitter);
  std::thread other([&] { log("x"); });
  emitter.waitFor(1);
  manager.removeEmitter(&emitter);
  EXPECT_TRUE(isThrough);
  other.join();
}

// --- Emitters and several threads

TEST_F(OutputTest, OneThreadAtATimeCallsEmittersAndInTheOrderOfTheQueueAlthoughFourFlush) {
  std::atomic<bool> isInside{false};
  std::atomic<int> overlaps{0};
  emitter.whenEmitting = [&](const LogMessage&) {
    if (isInside.exchange(true)) ++overlaps;
    ::usleep(200);
    isInside = false;
  };
  logMany(200);
  EXPECT_TRUE(manager.startOutputThread());
  inThreads(4, [&](int) { manager.flush(); });
  manager.stopOutputThread();
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(emitter.texts(), numbers(200));
}

TEST_F(OutputTest, EntryOfAnotherThreadIsNoEchoAlthoughAnEmitterWritesOneMeanwhile) {
  emitter.whenEmitting = [&](const LogMessage& message) {
    if (message.text() == "outer") log("echo");
    if (message.text() == "other") log("about the other");
    if (message.text() != "echo") return;
    log("dropped");
    std::thread([&] { log("other"); }).join();
  };
  log("outer");
  manager.flush();
  EXPECT_THAT(emitter.texts(), ElementsAre("outer", "echo", "other", "about the other"));
}

// --- The end of the output

TEST_F(OutputTest, ShutDownWaitsForAFlushOnAnotherThreadAndEndsTheOutput) {
  std::atomic<bool> isThrough{false};
  emitter.whenEmitting = [&](const LogMessage&) {
    ::usleep(30'000);
    isThrough = true;
  };
  log("x");
  std::thread other([&] { manager.flush(); });
  emitter.waitFor(1);
  output.shutDown();
  EXPECT_TRUE(isThrough);
  other.join();
  Recorder later;
  manager.addEmitter(&later);
  log("y");
  manager.flush();
  EXPECT_THAT(emitter.texts(), ElementsAre("x"));
  EXPECT_THAT(later.texts(), IsEmpty());
}

TEST_F(OutputTest, EachOfManyThreadsThatShutDownWaitsForTheEndOfTheThread) {
  emitter.whenEmitting = [](const LogMessage&) { ::usleep(1'000); };
  logMany(30);
  EXPECT_TRUE(manager.startOutputThread());
  emitter.waitFor(1);
  inThreads(4, [&](int) {
    output.shutDown();
    EXPECT_TRUE(output.isOutputThreadStopped());
    EXPECT_EQ(emitter.texts().size(), 30U);
  });
}

TEST_F(OutputTest, ShutDownByAnEmitterNeitherWaitsNorWritesMoreThanTheCurrentBatch) {
  emitter.whenEmitting = [&](const LogMessage&) { output.shutDown(); };
  logMany(45);
  EXPECT_TRUE(manager.startOutputThread());
  emitter.waitFor(20);
  manager.stopOutputThread();
  EXPECT_EQ(emitter.texts(), numbers(20));
  manager.flush();
  EXPECT_EQ(emitter.texts(), numbers(20));
}

// The child writes "x" for each entry.
TEST(OutputExitDeathTest, ExitInAnEmitterWritesNoOtherQueuedEntry) {
  int status = 0;
  const std::string text = standardOutputOf([&] {
    status = exitStatusOf([] {
      auto* const emitter = new Recorder;
      emitter->whenEmitting = [](const LogMessage&) {
        EXPECT_EQ(::write(1, "x", 1), 1);
        std::exit(8);
      };
      for (int i = 0; i < 100; ++i) logTo(LogManager::instance(), "x");
      startLogOfTheChild(emitter);
      for (;;) ::pause();
    });
  });
  EXPECT_EQ(status, 8);
  EXPECT_EQ(text, "x");
}

TEST_F(OutputTest, ShutDownInAForkedChildOnlyDropsLaterEntries) {
  static bool isProcessorDeleted = false;
  class Processor : public LogMessageProcessor {
   public:
    ~Processor() override { isProcessorDeleted = true; }
    void process(std::unique_ptr<const LogMessage>&) override {}
  };
  manager.input().setSyncProcessor(new Processor);
  EXPECT_FALSE(output.wasStartedHere());
  EXPECT_TRUE(manager.startOutputThread());
  EXPECT_TRUE(output.wasStartedHere());
  manager.stopOutputThread();
  EXPECT_TRUE(output.wasStartedHere()) << "also when it has ended";
  log("before");
  const auto body = [&] {
    if (output.wasStartedHere()) std::_Exit(1);
    manager.shutDown();
    if (isProcessorDeleted) std::_Exit(2);
    log("later");
    if (output.queue().size() != 1) std::_Exit(3);
    manager.flush();
    std::_Exit(emitter.texts() == std::vector<std::string>{"before"} ? 7 : 4);
  };
  EXPECT_EQ(exitStatusOf(body), 7);
}

}  // namespace
