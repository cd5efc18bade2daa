// Tests of loggers, of the path of an entry into the queue, and of calls that must not deadlock.
#include "log/output/LogManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <new>
#include <thread>

#include "testing/faults/QueuePeers.h"

// Replaces the nothrow allocation, so that a test can make it fail.
namespace {
bool allocationsFail = false;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocationsFail ? nullptr : ::operator new(size);
}

namespace {

using namespace BasicLog;
using testing::ElementsAre;

// Has its own log, separate from the instance of LogManager.
class InputTest : public testing::Test {
 public:
  LogOutput output;
  LogQueue& queue = output.queue();
  LogInput input{output};

  void log(std::string_view text, Level level = Level::info) {
    const Entry entry(*input.getLogger("test"), level, text, "f", "g");
  }
  std::vector<std::string> queued() {
    std::vector<std::string> texts;
    while (const auto message = queue.pop()) texts.emplace_back(message->text());
    return texts;
  }
  std::vector<std::string> loggers() {
    std::vector<std::string> names;
    input.listLoggers(names);
    return names;
  }
};

// Calls a function for every message. Counts how many processors are deleted.
int deletedProcessors = 0;
class Calling : public LogMessageProcessor {
 public:
  using Function = std::function<void(std::unique_ptr<const LogMessage>&)>;
  explicit Calling(Function function) : function_(std::move(function)) {}
  ~Calling() override { ++deletedProcessors; }
  void process(std::unique_ptr<const LogMessage>& message) override { function_(message); }

 private:
  Function function_;
};

// --- Loggers

TEST_F(InputTest, TwelveLoggersExistFromTheStart) {
  EXPECT_THAT(loggers(), ElementsAre("control", "ravctl", "plugin", "openhip", "basiclib", "hipd", "endbox", "helmsor",
                                     "sendbundle", "ctld", "test", "other"));
}

TEST_F(InputTest, LoggerNameIsTheSourceNameWithoutPathAndEnding) {
  const struct {
    const char *given, *expected;
  } cases[] = {
      {"/src/ProfileControl.cpp", "ProfileControl"},
      {"ProfileControl", "ProfileControl"},
      {"a.c", "a"},
      {"a.cc", "a"},
      {"a.cxx", "a"},
      {"a.m", "a"},
      {"a.h", "a"},
      {"a.hpp", "a"},
      {"a.hxx", "a"},
      {"a.CPP", "a.CPP"},
      {"a.cpp.c", "a"},    // ".c", then ".cpp"
      {"a.c.cpp", "a.c"},  // ".c" is not tried again
      {"a.hxx.hpp.h.m.cxx.cpp.cc.c", "a"},
      {"a.c.c", "a.c"},
      {"b/", ""},
      {".cpp", ""},
      {"", "<anonymous logger>"},
      {"a\\b.h", "a\\b"},
      {"cpp", "cpp"},
      {"x y", "x y"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.given);
    Logger* logger = input.getLogger(c.given);
    ASSERT_NE(logger, nullptr);
    EXPECT_EQ(logger->name(), c.expected);
    EXPECT_EQ(&logger->input(), &input);
  }
}

TEST_F(InputTest, AbsentAndEmptyNamesMeanTheAnonymousLogger) {
  Logger* logger = input.getLogger(std::string_view());
  EXPECT_EQ(logger->name(), "<anonymous logger>");
  EXPECT_EQ(input.getLogger(""), logger);
  EXPECT_EQ(input.findLogger(std::string_view()), nullptr) << "findLogger does not normalise names";
}

TEST_F(InputTest, SameNameReturnsTheSameLogger) {
  Logger* logger = input.getLogger("/src/ProfileControl.cpp");
  EXPECT_EQ(input.getLogger("ProfileControl"), logger);
  EXPECT_EQ(input.getLogger("/other/ProfileControl.h"), logger);
  EXPECT_NE(input.getLogger("profilecontrol"), logger);
  EXPECT_THAT(loggers(), testing::SizeIs(14));
  EXPECT_EQ(loggers()[12], "ProfileControl");
  EXPECT_EQ(loggers()[13], "profilecontrol");
}

TEST_F(InputTest, ListLoggersAppendsToTheNames) {
  std::vector<std::string> names = {"first"};
  input.listLoggers(names);
  EXPECT_EQ(names.size(), 13U);
  EXPECT_EQ(names[0], "first");
  EXPECT_EQ(names[1], "control");
}

TEST_F(InputTest, FindLoggerCreatesNoLogger) {
  EXPECT_EQ(input.findLogger("nobody"), nullptr);
  EXPECT_EQ(loggers().size(), 12U);
  EXPECT_EQ(input.findLogger("basiclib"), input.getLogger("basiclib"));
  EXPECT_EQ(input.findLogger("basiclib.cpp"), nullptr);
  EXPECT_EQ(input.findLogger("Basiclib"), nullptr);
}

// --- Levels

TEST_F(InputTest, DefaultLevelIsInitiallyByDefaultAndMeansInfo) {
  EXPECT_EQ(input.getDefaultLevel(), Level::byDefault);
  for (const Logger* logger : {input.getLogger("control"), input.getLogger("new")}) {
    EXPECT_EQ(logger->threshold(), Level::info);
    EXPECT_FALSE(logger->isEnabled(Level::trace));
    EXPECT_FALSE(logger->isEnabled(Level::debug));
    EXPECT_TRUE(logger->isEnabled(Level::info));
    EXPECT_TRUE(logger->isEnabled(Level::byDefault));
    EXPECT_TRUE(logger->isEnabled(Level::fatal));
  }
}

TEST_F(InputTest, DefaultLevelIsSetOnExistingAndNewLoggers) {
  Logger* own = input.getLogger("own");
  input.setDefaultLevel(Level::error);
  EXPECT_EQ(input.getDefaultLevel(), Level::error);
  for (const Logger* logger : {own, input.getLogger("control"), input.getLogger("other"), input.getLogger("new")}) {
    EXPECT_EQ(logger->threshold(), Level::error);
    EXPECT_FALSE(logger->isEnabled(Level::warning));
    EXPECT_FALSE(logger->isEnabled(Level::byDefault));
    EXPECT_TRUE(logger->isEnabled(Level::error));
  }
  input.setDefaultLevel(Level::trace);
  EXPECT_TRUE(own->isEnabled(Level::trace));
}

TEST_F(InputTest, InvalidDefaultLevelMeansInfo) {
  for (const Level level : {static_cast<Level>(99), static_cast<Level>(-3), Level::byDefault}) {
    input.setDefaultLevel(Level::fatal);
    input.setDefaultLevel(level);
    EXPECT_EQ(input.getDefaultLevel(), Level::info);
    EXPECT_EQ(input.getLogger("control")->threshold(), Level::info);
  }
}

TEST_F(InputTest, EachLoggerHasItsOwnThreshold) {
  Logger* logger = input.getLogger("test");
  logger->setThreshold(Level::fatal);
  log("quiet", Level::error);
  log("loud", Level::fatal);
  EXPECT_TRUE(input.getLogger("other")->isEnabled(Level::info));
  logger->setThreshold(Level::byDefault);
  EXPECT_EQ(logger->threshold(), Level::info);
  EXPECT_THAT(queued(), ElementsAre("loud"));
}

// --- The path of an entry

TEST_F(InputTest, WithoutAProcessorEntriesAreQueuedInOrder) {
  log("one");
  log("two");
  log("three");
  EXPECT_THAT(queued(), ElementsAre("one", "two", "three"));
}

TEST_F(InputTest, ProcessorReceivesAnEntryBeforeItIsQueued) {
  std::vector<std::string> seen;
  input.setSyncProcessor(new Calling([&](auto& message) {
    seen.emplace_back(message->text());
    EXPECT_EQ(queue.pop(), nullptr);
  }));
  log("one");
  EXPECT_THAT(seen, ElementsAre("one"));
  EXPECT_THAT(queued(), ElementsAre("one"));
}

TEST_F(InputTest, EntryThatTheProcessorKeepsIsNotQueued) {
  std::unique_ptr<const LogMessage> kept;
  input.setSyncProcessor(new Calling([&](auto& message) { kept = std::move(message); }));
  log("mine");
  ASSERT_NE(kept, nullptr);
  EXPECT_EQ(kept->text(), "mine");
  EXPECT_TRUE(queued().empty());
}

TEST_F(InputTest, WithoutAsynchronousOutputEntriesAreNotQueued) {
  EXPECT_TRUE(input.isAsyncOutput());
  input.setAsyncOutput(false);
  EXPECT_FALSE(input.isAsyncOutput());
  int seen = 0;
  input.setSyncProcessor(new Calling([&](auto&) { ++seen; }));
  log("gone");
  EXPECT_EQ(seen, 1);
  EXPECT_TRUE(queued().empty());
}

TEST_F(InputTest, EntryThatTheQueueRefusesIsFreed) {
  allocationsFail = true;
  log("no room");
  allocationsFail = false;
  log("room");
  EXPECT_THAT(queued(), ElementsAre("room"));
}

TEST(Input, EntriesStillQueuedAreFreedWithTheQueue) {
  LogOutput output;
  const LogInput unused(output);
  LogInput input(output);
  for (int i = 0; i < 100; ++i) {
    Entry entry(*input.getLogger("test"), Level::info, std::string(100, 'x'), "f", "g");
    entry.add("key", std::string(100, 'y'));
  }  // the leak checkers report what is not freed
}

TEST_F(InputTest, ReplacedProcessorIsDeletedUnlessItIsTheSame) {
  deletedProcessors = 0;
  auto* first = new Calling([](auto&) {});
  input.setSyncProcessor(first);
  input.setSyncProcessor(first);
  EXPECT_EQ(deletedProcessors, 0);
  input.setSyncProcessor(new Calling([](auto&) {}));
  EXPECT_EQ(deletedProcessors, 1);
  input.setSyncProcessor(nullptr);
  EXPECT_EQ(deletedProcessors, 2);
  input.setSyncProcessor(nullptr);
  EXPECT_EQ(deletedProcessors, 2);
}

TEST(Input, DestructorDeletesTheProcessor) {
  deletedProcessors = 0;
  {
    LogOutput output;
    LogInput input(output);
    input.setSyncProcessor(new Calling([](auto&) {}));
  }
  EXPECT_EQ(deletedProcessors, 1);
}

// --- Calls from inside a processor

TEST_F(InputTest, ProcessorThatLogsIsNotCalledAgainAndItsEntryIsQueued) {
  int calls = 0;
  input.setSyncProcessor(new Calling([&](auto&) {
    ++calls;
    log("from inside");
  }));
  log("outer");
  EXPECT_EQ(calls, 1);
  EXPECT_THAT(queued(), ElementsAre("from inside", "outer"));
}

TEST_F(InputTest, ProcessorMayGetLoggersAndChangeLevels) {
  input.setSyncProcessor(new Calling([&](auto&) {
    EXPECT_NE(input.getLogger("made inside"), nullptr);
    EXPECT_NE(input.findLogger("made inside"), nullptr);
    EXPECT_EQ(loggers().size(), 13U);
    input.setDefaultLevel(Level::error);
    EXPECT_EQ(input.getDefaultLevel(), Level::error);
  }));
  log("x");
  EXPECT_EQ(input.findLogger("made inside")->threshold(), Level::error);
}

TEST_F(InputTest, ProcessorThatReplacesItselfIsDeletedWhenItReturns) {
  deletedProcessors = 0;
  int deletedInside = -1;
  input.setSyncProcessor(new Calling([&](auto&) {
    input.setSyncProcessor(nullptr);
    deletedInside = deletedProcessors;
  }));
  log("x");
  EXPECT_EQ(deletedInside, 0);
  EXPECT_EQ(deletedProcessors, 1);
}

TEST_F(InputTest, ProcessorMayLogInItsDestructor) {
  struct Noisy : LogMessageProcessor {
    InputTest* test = nullptr;
    ~Noisy() override { test->log("farewell"); }
    void process(std::unique_ptr<const LogMessage>&) override {}
  };
  auto* noisy = new Noisy;
  noisy->test = this;
  input.setSyncProcessor(noisy);
  input.setSyncProcessor(nullptr);
  EXPECT_THAT(queued(), ElementsAre("farewell"));
}

TEST(InputEnd, ProcessorMayGetLoggersWhileTheInputIsDestroyed) {
  struct Asking : LogMessageProcessor {
    LogInput* input = nullptr;
    ~Asking() override { EXPECT_NE(input->getLogger("asked for at the end"), nullptr); }
    void process(std::unique_ptr<const LogMessage>&) override {}
  };
  LogOutput output;
  LogInput input(output);
  auto* asking = new Asking;
  asking->input = &input;
  input.setSyncProcessor(asking);
}

TEST_F(InputTest, SecondThreadWaitsForTheProcessorAndThenCallsIt) {
  std::atomic<bool> isInside{false};
  std::vector<std::string> seen;  // guarded by the input's lock
  input.setSyncProcessor(new Calling([&](auto& message) {
    seen.emplace_back(message->text());
    isInside = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }));
  std::thread other([&] {
    while (!isInside) std::this_thread::yield();
    log("second");
  });
  log("first");
  other.join();
  EXPECT_THAT(seen, ElementsAre("first", "second"));
}

// Waits until the thread sleeps, and returns false if it does not. The thread can only be waiting for a lock.
bool comesToSleep(pid_t thread) {
  const std::string path = "/proc/self/task/" + std::to_string(thread) + "/stat";
  for (int i = 0; i < 10'000; ++i) {
    std::ifstream file(path);
    std::string text;
    std::getline(file, text);
    if (text.find(") S ") != std::string::npos) return true;
    ::usleep(1'000);
  }
  return false;
}

TEST_F(InputTest, RemovedProcessorIsNotCalledByAThreadThatWaitedForIt) {
  std::atomic<pid_t> waiter{0};
  std::atomic<bool> isInside{false};
  std::atomic<int> calls{0};
  Logger& logger = *input.getLogger("test");
  input.setSyncProcessor(new Calling([&](auto&) {
    ++calls;
    isInside = true;
    while (waiter == 0) std::this_thread::yield();
    EXPECT_TRUE(comesToSleep(waiter));
    input.setSyncProcessor(nullptr);
  }));
  std::thread other([&] {
    while (!isInside) std::this_thread::yield();
    waiter = ::gettid();
    const Entry entry(logger, Level::info, "second", "f", "g");
  });
  { const Entry entry(logger, Level::info, "first", "f", "g"); }
  other.join();
  EXPECT_EQ(calls, 1);
  EXPECT_THAT(queued(), testing::UnorderedElementsAre("first", "second"));
}

std::vector<std::string> assertions;
void recordAssertion(const char* file, int line, const char* message) {
  assertions.push_back(std::string(file) + " " + std::to_string(line) + " " + message);
}

TEST_F(InputTest, FailedLoggerCreationIsAnAssertionAndReturnsNull) {
  assertions.clear();
  setAssertHandler(recordAssertion);
  allocationsFail = true;
  Logger* logger = input.getLogger("too much");
  allocationsFail = false;
  setAssertHandler(nullptr);
  EXPECT_EQ(logger, nullptr);
  EXPECT_THAT(assertions, ElementsAre("BasicLog.cpp 638 failed to create a logger object"));
  EXPECT_EQ(input.findLogger("too much"), nullptr);
  EXPECT_NE(input.getLogger("too much"), nullptr);
}

// --- The front end

TEST(FrontEnd, UsesTheInstanceOfLogManager) {
  LogInput& input = LogManager::instance().input();
  Logger& logger = getLogger("front");
  EXPECT_EQ(&logger, input.getLogger("front"));
  EXPECT_EQ(findLogger("front"), &logger);
  EXPECT_EQ(findLogger("back"), nullptr);
  std::vector<std::string> names;
  listLoggers(names);
  EXPECT_NE(std::find(names.begin(), names.end(), "front"), names.end());
  setDefaultLevel(Level::notice);
  EXPECT_EQ(getDefaultLevel(), Level::notice);
  EXPECT_EQ(input.getDefaultLevel(), Level::notice);
  setDefaultLevel(Level::info);
  EXPECT_EQ(LogManager::ifUsable(), &LogManager::instance());
}

TEST(FrontEnd, EntriesAreQueuedInTheInstanceOfLogManager) {
  while (LogManager::instance().queue().pop()) {
  }
  { const Entry entry(getLogger(ravctlLogger), Level::error, "queued", "f", "g"); }
  const auto message = LogManager::instance().queue().pop();
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(message->text(), "queued");
  EXPECT_EQ(message->logger(), "ravctl");
}

TEST(FrontEnd, EntryOfALoggerThatCouldNotBeCreatedIsDropped) {
  while (LogManager::instance().queue().pop()) {
  }
  setAssertHandler(recordAssertion);
  allocationsFail = true;
  Logger& logger = getLogger("never made");
  allocationsFail = false;
  setAssertHandler(nullptr);
  EXPECT_EQ(findLogger("never made"), nullptr);
  { const Entry entry(logger, Level::fatal, "lost", "f", "g"); }
  EXPECT_EQ(LogManager::instance().queue().pop(), nullptr);
}

TEST(FrontEnd, AssertionUnderTheQueuesLockNeitherHangsNorRecurses) {
  LogQueue& queue = LogManager::instance().queue();
  { const Entry entry(getLogger("test"), Level::error, "first", "f", "g"); }
  while (queue.pop()) {
  }
  { const Entry entry(getLogger("test"), Level::error, "leaves an empty block", "f", "g"); }
  ASSERT_NE(queue.pop(), nullptr);
  WorkQueuePeer::loseTail(queue);
  const auto oldAction = ::signal(SIGILL, SIG_IGN);
  testing::internal::CaptureStderr();
  { const Entry entry(getLogger("test"), Level::error, "outer", "f", "g"); }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "assert error, ThreadUtils.cpp line 498, \"internal linked-list error\" \n");
  ::signal(SIGILL, oldAction);
  const auto message = queue.pop();
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(message->text(), "outer");
  EXPECT_EQ(queue.pop(), nullptr);  // the queue refused the entry of the assertion
}

// Waits until the flag is set. Returns false after 30 seconds, so that a deadlock fails the test instead of hanging it.
bool waitUntil(const std::atomic<bool>& sign) {
  for (int i = 0; i < 3000 && !sign; ++i) ::usleep(10'000);
  return sign;
}

TEST(FrontEnd, AssertionUnderTheQueuesLockWaitsForNoOtherLockOfTheLog) {
  static std::atomic<bool> isInProcessor{false};
  static std::atomic<bool> isAsserted{false};
  static std::atomic<bool> wasHanging{false};
  class Busy : public LogMessageProcessor {
   public:
    // Runs with the input's lock held, and returns only after the assertion has been reported.
    void process(std::unique_ptr<const LogMessage>& message) override {
      if (message->text() != "busy") return;
      isInProcessor = true;
      wasHanging = !waitUntil(isAsserted);
    }
  };
  LogQueue& queue = LogManager::instance().queue();
  Logger& logger = getLogger("test");
  { const Entry entry(logger, Level::error, "leaves an empty block", "f", "g"); }
  while (queue.pop()) {
  }
  WorkQueuePeer::loseTail(queue);
  setSyncProcessor(new Busy);
  static Logger* known = &logger;
  setAssertHandler([](const char* file, int line, const char* text) {
    { const Entry entry(*known, Level::error, "by a logger that the handler has", "f", "g"); }
    defaultAssertFailure(file, line, text);
  });
  const auto oldAction = ::signal(SIGILL, SIG_IGN);
  std::thread other([&] { const Entry entry(logger, Level::error, "busy", "f", "g"); });
  while (!isInProcessor) ::usleep(100);
  testing::internal::CaptureStderr();
  auto message = std::make_unique<const LogMessage>();
  EXPECT_TRUE(queue.push(message));
  isAsserted = true;
  other.join();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "assert error, ThreadUtils.cpp line 498, \"internal linked-list error\" \n");
  EXPECT_FALSE(wasHanging);
  ::signal(SIGILL, oldAction);
  setAssertHandler(nullptr);
  setSyncProcessor(nullptr);
  while (queue.pop()) {
  }
}

TEST(FrontEnd, PopManyReturnsOnlyTheEntriesABrokenChainStillHolds) {
  LogQueue queue;
  std::vector<std::unique_ptr<const LogMessage>> lost;  // the test owns them, because the queue loses them
  for (int i = 0; i < 3; ++i) {
    auto message = std::make_unique<const LogMessage>();
    const LogMessage* raw = message.get();
    ASSERT_TRUE(queue.push(message));
    lost.emplace_back(raw);
  }
  WorkQueuePeer::loseTail(queue);
  const auto oldAction = ::signal(SIGILL, SIG_IGN);
  testing::internal::CaptureStderr();
  auto message = std::make_unique<const LogMessage>();
  const LogMessage* kept = message.get();
  EXPECT_TRUE(queue.push(message));
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
  ::signal(SIGILL, oldAction);
  std::array<std::unique_ptr<const LogMessage>, 4> batch;
  EXPECT_EQ(queue.popMany(batch), 1U);
  EXPECT_EQ(batch[0].get(), kept);
  EXPECT_EQ(queue.popMany(batch), 0U);
}

// Runs in its own process, in which nothing has used the log yet.
TEST(FirstUseDeathTest, AssertionWhileTheLogIsCreatedEndsTheProgramAndDoesNotHang) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto firstUse = [] {
    ::signal(SIGILL, SIG_DFL);
    allocationsFail = true;
    (void)getLogger("x");
  };
  EXPECT_EXIT(firstUse(), testing::KilledBySignal(SIGILL),
              "assert error, BasicLog.cpp line 638, \"failed to create a logger object\" ");
}

TEST(FirstUseDeathTest, HandlerMayUseTheLogWhileItIsCreatedAndThenReturn) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto firstUse = [] {
    assertions.clear();
    setAssertHandler([](const char* file, int line, const char* message) {
      recordAssertion(file, line, message);
      // The functions of the log that a handler might call.
      std::vector<std::string> names;
      listLoggers(names);
      setDefaultLevel(Level::trace);
      setSyncProcessor(nullptr);
      const Entry entry(getLogger("handler"), Level::fatal, "dropped", "f", "g");
      if (findLogger("control") != nullptr || !names.empty()) std::_Exit(3);
      if (getDefaultLevel() != Level::byDefault) std::_Exit(5);
    });
    allocationsFail = true;
    (void)getDefaultLevel();
    allocationsFail = false;
    std::vector<std::string> names;
    listLoggers(names);
    std::_Exit(assertions.size() == 12 && names.empty() && getLogger("now").name() == "now" ? 0 : 4);
  };
  EXPECT_EXIT(firstUse(), testing::ExitedWithCode(0), "");
}

TEST(FirstUseDeathTest, AssertionThatCannotGetItsLoggerDoesNotRecurse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto assertWithoutLoggers = [] {
    ::signal(SIGILL, SIG_IGN);
    setAssertHandler([](const char*, int, const char*) {});
    allocationsFail = true;
    (void)getDefaultLevel();  // creates a log without loggers
    setAssertHandler(nullptr);
    assertFailure("f", 1, "m");
    std::_Exit(0);
  };
  EXPECT_EXIT(assertWithoutLoggers(), testing::ExitedWithCode(0),
              "^assert error, f line 1, \"m\" \n"
              "assert error, BasicLog.cpp line 638, \"failed to create a logger object\" \n$");
}

TEST(ExitDeathTest, EntriesStillQueuedAtExitAreFreedWithoutOutput) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto logAndExit = [] {
    for (int i = 0; i < 100; ++i) const Entry entry(getLogger("test"), Level::error, "unseen", "f", "g");
    std::exit(0);
  };
  EXPECT_EXIT(logAndExit(), testing::ExitedWithCode(0), "^$");
}

// --- Threads

TEST_F(InputTest, SixteenThreadsLoseNoEntryAndKeepTheirOrder) {
  constexpr int producers = 16;
  constexpr int each = 200;
  std::vector<std::thread> threads;
  for (int p = 0; p < producers; ++p) {
    threads.emplace_back([this, p] {
      Logger* logger = input.getLogger("thread " + std::to_string(p % 4));
      for (int i = 0; i < each; ++i) {
        Entry entry(*logger, Level::info, std::to_string(p), "f", "g");
        entry.addNumber("i", i);
      }
    });
  }
  std::vector<int> next(producers);
  for (int received = 0; received < producers * each;) {
    const auto message = queue.pop();
    if (message == nullptr) {
      std::this_thread::yield();
      continue;
    }
    ++received;
    const auto producer = static_cast<std::size_t>(std::stoi(std::string(message->text())));
    EXPECT_EQ(message->parameters().at(0).value, std::to_string(next[producer]++));
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(queue.pop(), nullptr);
  EXPECT_EQ(loggers().size(), 16U);
}

TEST_F(InputTest, ThreadsMayGetLoggersChangeLevelsAndReplaceProcessorsAtTheSameTime) {
  constexpr int rounds = 200;
  std::atomic<int> seen{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([this, t] {
      for (int i = 0; i < rounds; ++i) {
        const Logger* logger = input.getLogger("shared " + std::to_string((i + t) % 20));
        const Entry entry(*logger, Level::warning, "x", "f", "g");
      }
    });
  }
  threads.emplace_back([this] {
    for (int i = 0; i < rounds; ++i) input.setDefaultLevel(i % 2 == 0 ? Level::debug : Level::warning);
  });
  threads.emplace_back([this, &seen] {
    for (int i = 0; i < rounds; ++i) {
      input.setSyncProcessor(new Calling([&seen](auto&) { ++seen; }));
      std::vector<std::string> names;
      input.listLoggers(names);
    }
  });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(queued().size(), 4U * rounds);
  EXPECT_EQ(loggers().size(), 32U);
}

}  // namespace
