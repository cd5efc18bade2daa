// Tests of loggers, of the path of an entry into the queue, and of calls that must not deadlock.
#include "log/output/LogManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>

#include "testing/faults/QueuePeers.h"
#include "testing/run/Zone.h"

// Replaces the nothrow allocation, so that a test can make it fail, and counts the allocations of each thread.
namespace {
bool allocationsFail = false;
thread_local void (*beforeNothrowAllocation)() = nullptr;  // called once
thread_local int allocations = 0;
thread_local const std::function<void()>* whenFreed = nullptr;  // called when this thread frees its next block
void callWhenFreed() {
  if (whenFreed != nullptr) (*std::exchange(whenFreed, nullptr))();
}
}  // namespace
// Not inlined: otherwise the compiler sees a block from `new` passed to free() and warns.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) std::abort();
  return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (const auto call = std::exchange(beforeNothrowAllocation, nullptr)) call();
  return allocationsFail ? nullptr : ::operator new(size);
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
  callWhenFreed();
  std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
  callWhenFreed();
  std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }

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

// Calls a function for every message and another one when it is deleted. Counts how many processors are deleted.
int deletedProcessors = 0;
class Calling : public LogMessageProcessor {
 public:
  using Function = std::function<void(std::unique_ptr<const LogMessage>&)>;
  explicit Calling(Function function, std::function<void()> whenDeleted = nullptr)
      : function_(std::move(function)), whenDeleted_(std::move(whenDeleted)) {}
  ~Calling() override {
    ++deletedProcessors;
    if (whenDeleted_) whenDeleted_();
  }
  void process(std::unique_ptr<const LogMessage>& message) override { function_(message); }

 private:
  const Function function_;
  const std::function<void()> whenDeleted_;
};
const Calling::Function kDoNothing = [](auto&) {};

// --- Loggers

TEST_F(InputTest, ListLoggersAppendsTheTwelveLoggersThatExistFromTheStart) {
  std::vector<std::string> names = {"first"};
  input.listLoggers(names);
  EXPECT_THAT(names, ElementsAre("first", "control", "ravctl", "plugin", "openhip", "basiclib", "hipd", "endbox",
                                 "helmsor", "sendbundle", "ctld", "test", "other"));
}

TEST_F(InputTest, LoggerNameIsTheSourceNameWithoutPathAndEnding) {
  const struct {
    const char* expected;
    std::vector<std::string_view> given;
  } cases[] = {
      {"ProfileControl", {"/src/ProfileControl.cpp", "ProfileControl"}},
      {"a", {"a.c", "a.cc", "a.cxx", "a.m", "a.h", "a.hpp", "a.hxx", "a.hxx.hpp.h.m.cxx.cpp.cc.c"}},
      {"a", {"a.cpp.c"}},             // ".c", then ".cpp"
      {"a.c", {"a.c.cpp", "a.c.c"}},  // ".c" is not tried again
      {"a.CPP", {"a.CPP"}},
      {"", {"b/", ".cpp"}},
      {"<anonymous logger>", {"", std::string_view()}},
      {"a\\b", {"a\\b.h"}},
      {"cpp", {"cpp"}},
      {"x y", {"x y"}},
  };
  for (const auto& c : cases) {
    for (const std::string_view given : c.given) {
      SCOPED_TRACE(given);
      Logger* logger = input.getLogger(given);
      ASSERT_NE(logger, nullptr);
      EXPECT_EQ(logger->name(), c.expected);
      EXPECT_EQ(&logger->input(), &input);
    }
  }
}

TEST_F(InputTest, SameNameReturnsTheSameLogger) {
  Logger* logger = input.getLogger("/src/ProfileControl.cpp");
  EXPECT_EQ(input.getLogger("ProfileControl"), logger);
  EXPECT_EQ(input.getLogger("/other/ProfileControl.h"), logger);
  EXPECT_NE(input.getLogger("profilecontrol"), logger);
  EXPECT_EQ(input.getLogger(""), input.getLogger(std::string_view()));
  auto names = loggers();
  names.erase(names.begin(), names.begin() + 12);
  EXPECT_THAT(names, ElementsAre("ProfileControl", "profilecontrol", "<anonymous logger>"));
}

TEST_F(InputTest, FindLoggerCreatesNoLoggerAndDoesNotNormaliseNames) {
  EXPECT_EQ(input.findLogger("nobody"), nullptr);
  EXPECT_EQ(loggers().size(), 12U);
  EXPECT_EQ(input.findLogger("basiclib"), input.getLogger("basiclib"));
  EXPECT_EQ(input.findLogger("basiclib.cpp"), nullptr);
  EXPECT_EQ(input.findLogger("Basiclib"), nullptr);
  EXPECT_NE(input.getLogger(std::string_view()), nullptr);
  EXPECT_EQ(input.findLogger(std::string_view()), nullptr);
}

// --- Levels

TEST(DefaultLevel, DefaultLevelIsTheThresholdOfExistingAndNewLoggers) {
  const struct {
    const char* why;
    std::vector<Level> set;
    Level defaultLevel, threshold;
  } cases[] = {
      {"no default level means info", {}, Level::byDefault, Level::info},
      {"a higher level disables levels", {Level::error}, Level::error, Level::error},
      {"a lower level enables levels", {Level::error, Level::trace}, Level::trace, Level::trace},
      {"a level above all means info", {Level::fatal, static_cast<Level>(99)}, Level::info, Level::info},
      {"a level below all means info", {Level::fatal, static_cast<Level>(-3)}, Level::info, Level::info},
      {"byDefault means info", {Level::fatal, Level::byDefault}, Level::info, Level::info},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    LogOutput output;
    LogInput input(output);
    Logger* own = input.getLogger("own");
    for (const Level level : c.set) input.setDefaultLevel(level);
    EXPECT_EQ(input.getDefaultLevel(), c.defaultLevel);
    for (const Logger* logger : {own, input.getLogger("control"), input.getLogger("other"), input.getLogger("new")}) {
      EXPECT_EQ(logger->threshold(), c.threshold);
      EXPECT_EQ(logger->isEnabled(Level::byDefault), c.threshold <= Level::info);
      for (Level level = Level::trace; level <= Level::fatal; level = static_cast<Level>(static_cast<int>(level) + 1)) {
        EXPECT_EQ(logger->isEnabled(level), level >= c.threshold);
      }
    }
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
  const struct {
    const char* why;
    bool isAsync, keeps, isQueued;
  } cases[] = {
      {"an entry that the processor leaves is queued", true, false, true},
      {"an entry that the processor keeps is not queued", true, true, false},
      {"without asynchronous output no entry is queued", false, false, false},
  };
  EXPECT_TRUE(input.isAsyncOutput());
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    input.setAsyncOutput(c.isAsync);
    EXPECT_EQ(input.isAsyncOutput(), c.isAsync);
    std::vector<std::string> seen;
    std::unique_ptr<const LogMessage> kept;
    input.setSyncProcessor(new Calling([&](auto& message) {
      seen.emplace_back(message->text());
      EXPECT_EQ(queue.pop(), nullptr);
      if (c.keeps) kept = std::move(message);
    }));
    log("one");
    EXPECT_THAT(seen, ElementsAre("one"));
    EXPECT_EQ(kept ? kept->text() : "", c.keeps ? "one" : "");
    EXPECT_EQ(queued(), std::vector<std::string>(c.isQueued ? 1 : 0, "one"));
  }
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

TEST(Input, ProcessorIsDeletedWhenItIsReplacedOrItsInputIsDestroyed) {
  deletedProcessors = 0;
  {
    LogOutput output;
    LogInput input(output);
    auto* first = new Calling(kDoNothing);
    input.setSyncProcessor(first);
    input.setSyncProcessor(first);
    EXPECT_EQ(deletedProcessors, 0) << "the same processor is no replacement";
    input.setSyncProcessor(new Calling(kDoNothing));
    EXPECT_EQ(deletedProcessors, 1);
    input.setSyncProcessor(nullptr);
    EXPECT_EQ(deletedProcessors, 2);
    input.setSyncProcessor(nullptr);
    EXPECT_EQ(deletedProcessors, 2);
    input.setSyncProcessor(new Calling(kDoNothing));
  }
  EXPECT_EQ(deletedProcessors, 3);
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

TEST_F(InputTest, ExceptionOfAProcessorDoesNotReachTheCodeThatLogsAndItsEntryIsQueued) {
  input.setSyncProcessor(new Calling([](auto&) { throw std::runtime_error("from a processor"); }));
  EXPECT_NO_THROW(log("one"));
  {
    Entry entry(*input.getLogger("test"), Level::info, "two", "f", "g");
    EXPECT_NO_THROW(entry.submit());
  }
  std::thread other([&] { log("three"); });  // the lock is free again
  other.join();
  EXPECT_THAT(queued(), ElementsAre("one", "two", "three"));
  input.setSyncProcessor(new Calling([](auto& message) {
    message.reset();
    throw std::runtime_error("after it has freed the entry");
  }));
  EXPECT_NO_THROW(log("four"));
  EXPECT_THAT(queued(), ElementsAre());
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
  input.setSyncProcessor(new Calling(kDoNothing, [&] { log("farewell"); }));
  input.setSyncProcessor(nullptr);
  EXPECT_THAT(queued(), ElementsAre("farewell"));
}

class OtherThread {
 public:
  ~OtherThread() {
    if (thread_.joinable()) thread_.join();
  }
  // Returns true if the other thread can get a logger while the calling thread waits for it.
  bool getsALogger(LogInput& input) {
    std::packaged_task<void()> task([&input] { EXPECT_NE(input.getLogger("other"), nullptr); });
    const std::future<void> done = task.get_future();
    thread_ = std::thread(std::move(task));
    return done.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
  }

 private:
  std::thread thread_;
};

class NoEmitter : public Emitter {
  void write(Level, const std::string&, const std::string&) override {}
  const char* name() const override { return "no emitter"; }
};

TEST_F(InputTest, ProcessorIsDeletedAfterTheLockIsReleased) {
  NoEmitter emitter;
  const struct {
    const char* why;
    std::function<void(LogInput&)> replace;
  } cases[] = {
      {"setSyncProcessor", [](LogInput& in) { in.setSyncProcessor(new Calling(kDoNothing)); }},
      {"setSyncProcessor without a processor", [](LogInput& in) { in.setSyncProcessor(nullptr); }},
      {"setSyncEmitter", [&](LogInput& in) { in.setSyncEmitter(&emitter); }},
      {"shutDown", [](LogInput& in) { in.shutDown(); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    OtherThread other;
    bool isFree = false;
    input.setSyncProcessor(new Calling(kDoNothing, [&] { isFree = other.getsALogger(input); }));
    c.replace(input);
    EXPECT_TRUE(isFree);
  }
  input.setSyncProcessor(nullptr);
}

TEST_F(InputTest, ProcessorThatReplacesItselfIsDeletedAfterTheLockIsReleased) {
  OtherThread other;
  bool isFree = false;
  input.setSyncProcessor(
      new Calling([&](auto&) { input.setSyncProcessor(nullptr); }, [&] { isFree = other.getsALogger(input); }));
  log("x");
  EXPECT_TRUE(isFree);
  EXPECT_THAT(queued(), ElementsAre("x"));
}

// The processor of an emitter calls nothing when it is deleted. So the test looks when its memory is freed.
TEST_F(InputTest, ProcessorOfARemovedEmitterIsDeletedAfterTheLockIsReleased) {
  NoEmitter emitter;
  input.setSyncEmitter(&emitter);
  OtherThread other;
  bool isFree = false;
  const std::function<void()> look = [&] { isFree = other.getsALogger(input); };
  whenFreed = &look;
  input.removeSyncEmitter(&emitter);
  EXPECT_EQ(std::exchange(whenFreed, nullptr), nullptr) << "nothing was freed";
  EXPECT_TRUE(isFree);
}

TEST(InputEnd, ProcessorMayGetLoggersWhileTheInputIsDestroyed) {
  LogOutput output;
  LogInput input(output);
  const auto ask = [&] { EXPECT_NE(input.getLogger("asked for at the end"), nullptr); };
  input.setSyncProcessor(new Calling(kDoNothing, ask));
}

TEST_F(InputTest, SecondThreadWaitsForTheProcessorAndThenCallsIt) {
  std::atomic<bool> isInside{false};
  std::vector<std::string> seen;  // guarded by the input's lock
  input.setSyncProcessor(new Calling([&](auto& message) {
    seen.emplace_back(message->text());
    isInside = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    seen.emplace_back("end");
  }));
  std::thread other([&] {
    while (!isInside) std::this_thread::yield();
    log("second");
  });
  log("first");
  other.join();
  EXPECT_THAT(seen, ElementsAre("first", "end", "second", "end"));
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

// getLogger allocates a logger while it holds the lock.
TEST_F(InputTest, WithoutAProcessorAnEntryDoesNotWaitForTheLock) {
  static Logger* logger;
  static std::thread other;
  static std::atomic<bool> isThrough;
  logger = input.getLogger("test");
  isThrough = false;
  beforeNothrowAllocation = [] {
    other = std::thread([] {
      { const Entry entry(*logger, Level::info, "text", "f", "g"); }
      isThrough = true;
    });
    for (int waits = 0; waits < 5'000 && !isThrough; ++waits) ::usleep(1'000);
    EXPECT_TRUE(isThrough);
  };
  EXPECT_NE(input.getLogger("new"), nullptr);
  EXPECT_EQ(beforeNothrowAllocation, nullptr) << "it was called";
  if (other.joinable()) other.join();
  EXPECT_THAT(queued(), ElementsAre("text"));
}

// --- The front end

LogQueue& emptiedQueue() {
  LogQueue& queue = LogManager::instance().queue();
  while (queue.pop()) {
  }
  return queue;
}

// The next push to this queue fails an assertion while it holds the queue's lock.
LogQueue& brokenQueue() {
  { const Entry entry(getLogger("test"), Level::error, "leaves an empty block", "f", "g"); }
  WorkQueuePeer::loseTail(emptiedQueue());
  return LogManager::instance().queue();
}

TEST(FrontEnd, UsesTheInstanceOfLogManager) {
  LogInput& input = LogManager::instance().input();
  Logger& logger = getLogger("front");
  EXPECT_EQ(&logger, input.getLogger("front"));
  EXPECT_EQ(findLogger("front"), &logger);
  EXPECT_EQ(findLogger("back"), nullptr);
  std::vector<std::string> names;
  listLoggers(names);
  EXPECT_THAT(names, testing::Contains("front"));
  setDefaultLevel(Level::notice);
  EXPECT_EQ(getDefaultLevel(), Level::notice);
  EXPECT_EQ(input.getDefaultLevel(), Level::notice);
  setDefaultLevel(Level::info);
  EXPECT_EQ(LogManager::ifUsable(), &LogManager::instance());
}

TEST(FrontEnd, EntriesAreQueuedInTheInstanceOfLogManager) {
  LogQueue& queue = emptiedQueue();
  { const Entry entry(getLogger(ravctlLogger), Level::error, "queued", "f", "g"); }
  const auto message = queue.pop();
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(message->text(), "queued");
  EXPECT_EQ(message->logger(), "ravctl");
}

TEST(FrontEnd, EntryOfALoggerThatCouldNotBeCreatedIsDropped) {
  LogQueue& queue = emptiedQueue();
  setAssertHandler(recordAssertion);
  allocationsFail = true;
  Logger& logger = getLogger("never made");
  allocationsFail = false;
  setAssertHandler(nullptr);
  EXPECT_EQ(findLogger("never made"), nullptr);
  { const Entry entry(logger, Level::fatal, "lost", "f", "g"); }
  EXPECT_EQ(queue.pop(), nullptr);
}

TEST(FrontEnd, AssertionUnderTheQueuesLockNeitherHangsNorRecurses) {
  LogQueue& queue = brokenQueue();
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
  LogQueue& queue = brokenQueue();
  Logger& logger = getLogger("test");
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
  EXPECT_EQ(queue.push(message), 1U);
  isAsserted = true;
  other.join();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "assert error, ThreadUtils.cpp line 498, \"internal linked-list error\" \n");
  EXPECT_FALSE(wasHanging);
  ::signal(SIGILL, oldAction);
  setAssertHandler(nullptr);
  setSyncProcessor(nullptr);
  (void)emptiedQueue();
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

TEST(FirstUseDeathTest, CallsOfTheLogByAnAssertHandlerWhileTheLogIsCreatedHaveNoEffectAndDoNotHang) {
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

TEST(ExitDeathTest, EntriesStillQueuedAtExitAreDroppedWithoutOutput) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto logAndExit = [] {
    for (int i = 0; i < 100; ++i) const Entry entry(getLogger("test"), Level::error, "unseen", "f", "g");
    std::exit(0);
  };
  EXPECT_EXIT(logAndExit(), testing::ExitedWithCode(0), "^$");
}

// --- Threads

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

// --- More about entries and processors

TEST_F(InputTest, EntryBelowTheThresholdAllocatesNothing) {
  Logger& logger = *input.getLogger("test");
  logger.setThreshold(Level::error);
  const auto allocationsOf = [&](Level level) {
    const int before = allocations;
    {
      Entry entry(logger, level, "a text too long for the room in a std::string", "f", "g");
      entry.add("a key too long for the room in a std::string", "v");
      entry.addNumber("k", INT64_MIN);
      entry.addHex("k", 1);
      entry.addBool("k", true);
      entry.addAddress("k", "a host too long for the room in a std::string", 1);
      entry.addErrno(1);
    }
    return allocations - before;
  };
  EXPECT_EQ(allocationsOf(Level::warning), 0);
  EXPECT_GT(allocationsOf(Level::error), 0) << "the count works";
}

TEST(FrontEnd, HeaderAndBodyOfAMessageTakeOneAllocationEach) {
  LogMessage message;
  message.level = Level::warning;
  message.begin("f", "g", "l", "a text of more than fifteen bytes");
  message.add("key", "a value of more than fifteen bytes");
  (void)textHeader(message);  // the thread remembers the text of this second
  const int before = allocations;
  const std::string header = textHeader(message);
  EXPECT_EQ(allocations, before + 1);
  const std::string body = textBody(message);
  EXPECT_EQ(allocations, before + 2);
  EXPECT_EQ(header.size() + body.size(), 36U + 73U);
}

// The first batch allocates what the log keeps. A place that remained in the list would make it grow now and then.
TEST_F(InputTest, AnEmitterThatIsRemovedAndAddedInABatchLeavesNoPlaceInTheList) {
  class Emitting : public Emitter {
   public:
    std::function<void()> whenEmitting;
    void emit(const LogMessage&) override {
      if (whenEmitting) whenEmitting();
    }
    void write(Level, const std::string&, const std::string&) override {}
    const char* name() const override { return "Emitting"; }
  };
  const Zone zone("UTC0");  // a long name of a zone would be allocated anew at each tick of the clock
  Emitting first;
  Emitting second;
  output.addEmitter(&first);
  output.addEmitter(&second);
  first.whenEmitting = [&] {
    output.removeEmitter(&second);
    output.addEmitter(&second);
  };
  const auto allocationsOfABatch = [this] {
    log("text");
    const int before = allocations;
    output.flush();
    return allocations - before;
  };
  (void)allocationsOfABatch();
  for (int batch = 0; batch < 100; ++batch) EXPECT_EQ(allocationsOfABatch(), 0) << batch;
}

TEST_F(InputTest, OutputLeavesAMessageThatItsQueueRefusesWithTheCaller) {
  std::unique_ptr<const LogMessage> message;
  EXPECT_FALSE(output.push(message));
  message = LogMessage::make("f", "g", "l", "kept");
  allocationsFail = true;
  EXPECT_FALSE(output.push(message));
  allocationsFail = false;
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(message->text(), "kept");
  EXPECT_TRUE(output.push(message));
  EXPECT_EQ(message, nullptr);
  EXPECT_THAT(queued(), ElementsAre("kept"));
}

TEST_F(InputTest, ShutDownWaitsForTheProcessorOnAnotherThreadAndDeletesIt) {
  std::atomic<bool> isInside{false};
  std::atomic<bool> isThrough{false};
  deletedProcessors = 0;
  input.setSyncProcessor(new Calling([&](auto&) {
    isInside = true;
    ::usleep(30'000);
    isThrough = true;
  }));
  std::thread other([&] { log("x"); });
  while (!isInside) std::this_thread::yield();
  input.shutDown();
  EXPECT_TRUE(isThrough);
  EXPECT_EQ(deletedProcessors, 1);
  other.join();
}

TEST_F(InputTest, ClosedInputDropsEntriesAndDeletesALaterProcessor) {
  log("before");
  input.close();
  log("queued by nobody");
  int calls = 0;
  deletedProcessors = 0;
  input.setSyncProcessor(new Calling([&](auto&) { ++calls; }));
  EXPECT_EQ(deletedProcessors, 1);
  log("processed by nobody");
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(queued(), ElementsAre("before"));
}

TEST_F(InputTest, EveryFunctionThatUsesLoggersOrTheProcessorWaitsForTheProcessorOnAnotherThread) {
  const struct {
    const char* why;
    std::function<void(LogInput&)> call;
  } cases[] = {
      {"getLogger", [](LogInput& in) { EXPECT_NE(in.getLogger("new"), nullptr); }},
      {"findLogger", [](LogInput& in) { EXPECT_NE(in.findLogger("other"), nullptr); }},
      {"listLoggers",
       [](LogInput& in) {
         std::vector<std::string> names;
         in.listLoggers(names);
       }},
      {"setDefaultLevel", [](LogInput& in) { in.setDefaultLevel(Level::info); }},
      {"getDefaultLevel", [](LogInput& in) { EXPECT_EQ(in.getDefaultLevel(), Level::info); }},
      {"setSyncProcessor", [](LogInput& in) { in.setSyncProcessor(nullptr); }},
      {"removeSyncEmitter", [](LogInput& in) { in.removeSyncEmitter(nullptr); }},
  };
  input.setDefaultLevel(Level::info);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    std::atomic<bool> isInside{false};
    std::atomic<bool> isThrough{false};
    input.setSyncProcessor(new Calling([&](auto&) {
      isInside = true;
      ::usleep(20'000);
      isThrough = true;
    }));
    std::thread other([&] { log("x"); });
    while (!isInside) std::this_thread::yield();
    c.call(input);
    EXPECT_TRUE(isThrough);
    other.join();
  }
}

}  // namespace
