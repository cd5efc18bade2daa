// exiting-logger CASE: a program that exits in one of many ways while four of its threads log. The test
// src/log/output/LogExit_test.cpp runs it. It ends with status 5. If the log does something wrong, it says what, and
// ends with status 70.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>

#include "log/output/Emitter.h"
#include "log/output/LogManager.h"
#include "testing/faults/QueuePeers.h"

namespace {

using namespace BasicLog;

constexpr int kNormalEnd = 5;

[[noreturn]] void fail(const char* what) {
  (void)std::fprintf(stderr, "%s\n", what);
  std::_Exit(70);
}

// These have no destructors, so that they can be used until the process has ended.
std::atomic<bool> isOutputAlive{true};
std::atomic<int> ownWritten{0};   // entries of the logger "own" that the output has received
std::atomic<int> ownExpected{0};  // how many of them it must receive until it is destroyed
std::atomic<int> busyWorkers{0};
std::atomic<bool> isWriting{false};
std::atomic<void (*)()> whenWriting{nullptr};  // what the output calls for each entry
std::atomic<Logger*> lateLogger{nullptr};
// Such a child must not allocate: the allocator of a sanitizer may have been locked at the fork.
bool isForkedChild = false;
std::thread::id mainThread;

void log(const Logger& logger, std::string_view text) { const Entry entry(logger, Level::info, text, "f", "g"); }

void logOwn() {
  for (int i = 0; i < 100; ++i) log(getLogger("own"), "written");
}

// It is constructed before the log, so it is destroyed after the log has stopped.
class Output : public Emitter {
 public:
  Output() = default;
  ~Output() override {
    isOutputAlive = false;
    if (isForkedChild) return;
    log(*lateLogger, "by a static destructor");
    ::usleep(20'000);  // the threads go on logging, so a late call is likely to happen in this time
    if (ownWritten != ownExpected) fail("the number of written entries is wrong");
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  void emit(const LogMessage& message) override {
    if (!isOutputAlive) fail("the emitter was called after its destruction");
    if (message.logger() == "own") ++ownWritten;
    if (void (*const call)() = whenWriting) call();
  }
  void write(Level, const std::string&, const std::string&) override {}
  const char* name() const override { return "Output"; }
};

Output output;

void logForEver() {
  static constexpr const char* names[] = {"control", "worker", "basiclib"};
  for (unsigned i = 0;; ++i) {
    log(getLogger(names[i % 3]), "step");
    if (i % 50 == 0) (void)loglevel_fullname(static_cast<Level>(77));  // logs with a logger of the log
    if (i == 100) ++busyWorkers;
  }
}

void startWorkers() {
  for (int i = 0; i < 4; ++i) std::thread(logForEver).detach();
  while (busyWorkers < 4) ::usleep(100);
}

LogManager& attachOutput() {
  lateLogger = &getLogger("late");
  LogManager& manager = LogManager::instance();
  manager.addEmitter(&output);
  return manager;
}

LogManager& startLog() {
  LogManager& manager = attachOutput();
  if (!manager.startOutputThread()) fail("no output thread");
  return manager;
}

[[noreturn]] void pauseForEver() {
  for (;;) ::pause();
}

// --- Where the exit comes from

int returnFromMain() {
  startLog();
  startWorkers();
  logOwn();
  ownExpected = 100;
  return kNormalEnd;
}

int exitOnAnotherThread() {
  startLog();
  startWorkers();
  std::thread([] {
    logOwn();
    ownExpected = 100;
    std::exit(kNormalEnd);
  }).detach();
  pauseForEver();
}

int exitRightAfterTheStart() {
  startLog();
  for (int i = 0; i < 4; ++i) std::thread(logForEver).detach();
  return kNormalEnd;
}

int exitInAnEmitter() {
  startLog();
  startWorkers();
  whenWriting = [] { std::exit(kNormalEnd); };
  pauseForEver();
}

int exitInAnEmitterThatAFlushCalls() {
  LogManager& manager = startLog();
  startWorkers();
  whenWriting = [] {
    if (std::this_thread::get_id() == mainThread) std::exit(kNormalEnd);
  };
  for (;;) manager.flush();
}

// While the processor exits, an emitter waits for the processor.
int exitInAProcessor() {
  static std::atomic<bool> isInProcessor{false};
  class Exiting : public LogMessageProcessor {
   public:
    ~Exiting() override { fail("the processor was deleted while it ran"); }
    void process(std::unique_ptr<const LogMessage>&) override {
      if (std::this_thread::get_id() != mainThread) return;
      isInProcessor = true;
      ::usleep(10'000);
      std::exit(kNormalEnd);
    }
  };
  startLog();
  startWorkers();
  setSyncProcessor(new Exiting);
  whenWriting = [] {
    isWriting = true;
    while (!isInProcessor) ::usleep(100);
    log(*lateLogger, "by an emitter");
  };
  while (!isWriting) ::usleep(100);
  log(*lateLogger, "exit");
  pauseForEver();
}

// While the handler exits inside the queue, the output thread waits for the queue.
int exitInAnAssertionHandler() {
  static std::atomic<bool> isBroken{false};
  whenWriting = [] {
    isWriting = true;
    while (!isBroken) ::usleep(100);
  };
  LogManager& manager = startLog();
  log(*lateLogger, "leaves an empty block");
  while (!isWriting) ::usleep(100);
  setAssertHandler([](const char*, int, const char*) {
    isBroken = true;
    ::usleep(10'000);
    std::exit(kNormalEnd);
  });
  WorkQueuePeer::loseTail(manager.queue());
  log(*lateLogger, "fails");
  pauseForEver();
}

// C++ leaves it undefined what a second exit() does. With glibc, both threads call handlers, each handler once.
int exitOnTwoThreads() {
  startLog();
  startWorkers();
  std::thread([] { std::exit(kNormalEnd); }).detach();
  return kNormalEnd;
}

// --- What other threads do at the exit

int exitWhileThreadsWaitForTheOutput() {
  static std::atomic<int> slowCalls{50};
  whenWriting = [] {
    if (slowCalls-- > 0) ::usleep(1'000);
  };
  startLog();
  startWorkers();
  std::thread([] { LogManager::instance().stopOutputThread(); }).detach();
  std::thread([] { LogManager::instance().flush(); }).detach();
  std::thread([] { LogManager::instance().removeEmitter(nullptr); }).detach();
  ::usleep(10'000);
  return kNormalEnd;
}

// The children lack the threads, which may hold any lock of the log at the fork.
int exitInForkedChildren() {
  // Lets one entry in a hundred pass, so that the queue does not grow much, and each fork is quick.
  class Dropping : public LogMessageProcessor {
   public:
    void process(std::unique_ptr<const LogMessage>& message) override {
      if (++entries_ % 100 != 0) message.reset();
    }

   private:
    unsigned entries_ = 0;
  };
  startLog();
  setSyncProcessor(new Dropping);
  startWorkers();
  for (int i = 0; i < 10; ++i) {
    const pid_t child = ::fork();
    if (child == 0) {
      isForkedChild = true;
      (void)::alarm(10);
      std::exit(kNormalEnd);
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child || status != kNormalEnd << 8) fail("a child hangs or crashes");
  }
  return kNormalEnd;
}

// --- Without an output thread

int exitWithASynchronousEmitter() {
  LogManager::instance().input().setAsyncOutput(false);
  attachOutput();
  startWorkers();
  logOwn();
  ownExpected = 100;
  return kNormalEnd;
}

int exitInASynchronousEmitter() {
  LogManager::instance().input().setAsyncOutput(false);
  whenWriting = [] { std::exit(kNormalEnd); };
  attachOutput();
  for (int i = 0; i < 4; ++i) std::thread(logForEver).detach();
  pauseForEver();
}

int exitWithoutAnOutputThread() {
  attachOutput();
  startWorkers();
  logOwn();
  return kNormalEnd;
}

int exitAfterAStop() {
  startLog().stopOutputThread();
  startWorkers();
  logOwn();
  return kNormalEnd;
}

// --- What still runs at the exit

// Registers a function for the exit. It is called after the log has stopped if the log does not exist yet, else before.
void atExit(void (*function)()) {
  if (std::atexit(function) != 0) fail("no handler");
}

int exitWithAProcessorThatLogsInItsDestructor() {
  static std::atomic<bool> isDeleted{false};
  class Logging : public LogMessageProcessor {
   public:
    ~Logging() override {
      log(getLogger("processor"), "deleted");
      isDeleted = true;
    }
    void process(std::unique_ptr<const LogMessage>&) override {}
  };
  atExit([] {
    if (!isDeleted) fail("the processor was not deleted");
  });
  startLog();
  startWorkers();
  setSyncProcessor(new Logging);
  return kNormalEnd;
}

// Uses every function of the log after it has stopped.
void useTheStoppedLog() {
  class Forbidden : public LogMessageProcessor {
   public:
    void process(std::unique_ptr<const LogMessage>&) override { fail("a processor was called after the stop"); }
  };
  whenWriting = [] { fail("an emitter was called after the stop"); };
  LogManager& manager = attachOutput();
  setSyncProcessor(new Forbidden);
  (void)manager.startOutputThread();
  log(getLogger("made after the stop"), "dropped");
  if (findLogger("made after the stop") == nullptr) fail("a logger is missing");
  manager.flush();
  manager.input().setAsyncOutput(false);
  manager.addEmitter(&output);
  log(*lateLogger, "dropped too");
  manager.removeEmitter(&output);
  manager.emergencyFlush();
  ::usleep(20'000);
}

int exitWithHandlersThatLog() {
  atExit(useTheStoppedLog);
  startLog();
  startWorkers();
  ownExpected = 100;
  atExit(logOwn);  // before the log has stopped
  return kNormalEnd;
}

int exitWithAHandlerThatFlushes() {
  atExit(useTheStoppedLog);
  return exitWithoutAnOutputThread();
}

struct Case {
  std::string_view name;
  int (*run)();
};

constexpr Case kCases[] = {
    {"return", returnFromMain},
    {"another-thread", exitOnAnotherThread},
    {"right-after-the-start", exitRightAfterTheStart},
    {"emitter", exitInAnEmitter},
    {"flush", exitInAnEmitterThatAFlushCalls},
    {"processor", exitInAProcessor},
    {"assertion", exitInAnAssertionHandler},
    {"two-threads", exitOnTwoThreads},
    {"waiting", exitWhileThreadsWaitForTheOutput},
    {"forked", exitInForkedChildren},
    {"synchronous", exitWithASynchronousEmitter},
    {"in-synchronous", exitInASynchronousEmitter},
    {"no-output-thread", exitWithoutAnOutputThread},
    {"stopped", exitAfterAStop},
    {"processor-destructor", exitWithAProcessorThatLogsInItsDestructor},
    {"handlers", exitWithHandlersThatLog},
    {"late-flush", exitWithAHandlerThatFlushes},
};

}  // namespace

int main(int argc, char** argv) {
  mainThread = std::this_thread::get_id();
  for (const Case& c : kCases) {
    if (argc == 2 && c.name == argv[1]) return c.run();
  }
  fail("no such case");
}
