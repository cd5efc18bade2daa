#include "log/output/LogManager.h"

#include <unistd.h>

#include <cstdlib>
#include <new>
#include <utility>

#include "base/text/StringUtils.h"
#include "base/threads/NeverDestroyed.h"
#include "log/front/ScopeGuards.h"

using BasicLog::Level;
using BasicLog::Logger;
using BasicLog::LogMessage;
using BasicLog::LogMessageProcessor;

namespace {

// Deliberately not the name of this source file: people search logs for "BasicLog.cpp".
constexpr char sourceName[] = "BasicLog.cpp";
constexpr int loggerCreationErrorLine = 638;  // deliberately fixed, for the same reason
constexpr std::string_view anonymousLogger = "<anonymous logger>";

// The loggers that exist from the start, in the order of their creation.
constexpr std::string_view startLoggers[] = {BasicLog::controlLogger,
                                             BasicLog::ravctlLogger,
                                             "plugin",
                                             "openhip",
                                             BasicLog::basiclibLogger,
                                             "hipd",
                                             "endbox",
                                             "helmsor",
                                             "sendbundle",
                                             "ctld",
                                             "test",
                                             "other"};

// Each ending is removed once, in this order: "x.cpp.c" becomes "x", but "x.c.cpp" becomes "x.c".
constexpr std::string_view sourceEndings[] = {".c", ".cc", ".cpp", ".cxx", ".m", ".h", ".hpp", ".hxx"};

std::string_view normalised(std::string_view name) {
  if (name.empty()) return anonymousLogger;
  name.remove_prefix(name.rfind('/') + 1);  // npos + 1 is 0
  for (const std::string_view ending : sourceEndings) {
    if (StringUtils::endsWith(name, ending)) name.remove_suffix(ending.size());
  }
  return name;
}

// A synchronous processor that passes its messages to an emitter and does not keep them.
class SyncEmitter : public LogMessageProcessor {
 public:
  explicit SyncEmitter(BasicLog::Emitter& emitter) : emitter_(emitter) {}
  void process(std::unique_ptr<const LogMessage>& message) override { emitter_.emit(*message); }

 private:
  BasicLog::Emitter& emitter_;
};

// True while this thread creates the log. What the thread reports meanwhile cannot be logged.
thread_local bool isMakingTheLog = false;

}  // namespace

// --- LogInput

LogInput::LogInput(LogOutput& output) : output_(output) {
  const ScopedFlag flag(isMakingTheLog);
  for (const std::string_view name : startLoggers) (void)getLogger(name);  // reports a failure itself
}

LogInput::~LogInput() {
  setProcessor(nullptr, nullptr);  // first, because the destructor of a processor may get loggers
  while (firstLogger_ != nullptr) {
    Logger* next = firstLogger_->next_;
    delete firstLogger_;
    firstLogger_ = next;
  }
}

void LogInput::process(std::unique_ptr<const LogMessage>& message) {
  if (isClosed_) return;
  // A thread inside the queue must not wait for mutex_, because the holder of mutex_ may be waiting for the queue.
  if (hasSyncProcessor_ && !output_.queue().isHeldByThisThread()) {
    std::shared_ptr<LogMessageProcessor> replaced;  // deleted after the lock is released
    const ScopedOwnedLock lock(mutex_);
    if (!lock.wasHeld() && syncProcessor_) {
      std::shared_ptr<LogMessageProcessor> running = syncProcessor_;
      try {
        running->process(message);
      } catch (...) {  // not reported: the code that logs cannot act on it
      }
      if (running != syncProcessor_) replaced = std::move(running);  // it has replaced itself
    }
  }
  if (message && asyncOutput_) (void)output_.push(message);  // a refused message is freed by its handle
}

Logger* LogInput::findLocked(std::string_view name) {
  Logger* logger = firstLogger_;
  while (logger != nullptr && logger->name() != name) logger = logger->next_;
  return logger;
}

Logger* LogInput::findOrCreate(std::string_view name) {
  const ScopedOwnedLock lock(mutex_);
  if (Logger* logger = findLocked(name)) return logger;
  Logger* logger = new (std::nothrow) Logger(name, *this, defaultLevel_);
  if (logger == nullptr) return nullptr;
  (lastLogger_ == nullptr ? firstLogger_ : lastLogger_->next_) = logger;
  lastLogger_ = logger;
  return logger;
}

Logger* LogInput::getLogger(std::string_view name) {
  Logger* logger = findOrCreate(normalised(name));
  if (logger == nullptr) {
    BasicLog::assertFailure(sourceName, loggerCreationErrorLine, "failed to create a logger object");
  }
  return logger;
}

Logger* LogInput::findLogger(std::string_view name) {
  const ScopedOwnedLock lock(mutex_);
  return findLocked(name);
}

void LogInput::listLoggers(std::vector<std::string>& names) {
  const ScopedOwnedLock lock(mutex_);
  for (const Logger* logger = firstLogger_; logger != nullptr; logger = logger->next_) names.push_back(logger->name());
}

void LogInput::setDefaultLevel(Level level) {
  const ScopedOwnedLock lock(mutex_);
  defaultLevel_ = effective(level);
  for (Logger* logger = firstLogger_; logger != nullptr; logger = logger->next_) logger->setThreshold(defaultLevel_);
}

Level LogInput::getDefaultLevel() {
  const ScopedOwnedLock lock(mutex_);
  return defaultLevel_;
}

// The functions below declare `replaced` before the lock, so that the processor is deleted after the lock is released.

void LogInput::setProcessor(std::shared_ptr<LogMessageProcessor> processor, const BasicLog::Emitter* emitter) {
  std::shared_ptr<LogMessageProcessor> replaced;
  const ScopedOwnedLock lock(mutex_);
  replaced = exchangeProcessor(std::move(processor), emitter);
}

std::shared_ptr<LogMessageProcessor> LogInput::exchangeProcessor(std::shared_ptr<LogMessageProcessor> processor,
                                                                 const BasicLog::Emitter* emitter) {
  if (isClosed_ && processor != nullptr) return processor;
  hasSyncProcessor_ = processor != nullptr;
  syncEmitter_ = emitter;
  return std::exchange(syncProcessor_, std::move(processor));
}

void LogInput::setSyncProcessor(LogMessageProcessor* processor) {
  std::shared_ptr<LogMessageProcessor> replaced;
  const ScopedOwnedLock lock(mutex_);
  if (syncProcessor_.get() == processor) return;
  replaced = exchangeProcessor(std::shared_ptr<LogMessageProcessor>(processor), nullptr);
}

void LogInput::setSyncEmitter(BasicLog::Emitter* emitter) {
  setProcessor(std::make_shared<SyncEmitter>(*emitter), emitter);
}

void LogInput::removeSyncEmitter(BasicLog::Emitter* emitter) {
  std::shared_ptr<LogMessageProcessor> replaced;
  const ScopedOwnedLock lock(mutex_);
  if (emitter == nullptr || syncEmitter_ != emitter) return;
  replaced = exchangeProcessor(nullptr, nullptr);
}

void LogInput::shutDown() {
  setProcessor(nullptr, nullptr);
  mutex_.unlockIfHeld();  // exit() does not return to the processor that called it
}

// --- LogManager

namespace {

void shutDownAtExit() { LogManager::instance().shutDown(); }

struct LogOfTheProcess {
  // The function is registered twice. If two threads call exit() at the same time, each of them takes one registration,
  // and neither goes on to destroy static emitters before the output has stopped. If there is no memory to register it,
  // nothing stops the output at exit.
  LogOfTheProcess() {
    (void)std::atexit(shutDownAtExit);
    (void)std::atexit(shutDownAtExit);
  }
  LogManager manager;
};

}  // namespace

LogManager& LogManager::instance() {
  static NeverDestroyed<LogOfTheProcess> log;
  return log.get().manager;
}

LogManager::LogManager() : maker_(::getpid()) {}

// The order of the steps:
// 1. Refuse entries, so that the flush comes to an end.
// 2. Unlock the queue, if exit() was called inside it: a processor may be waiting for it on another thread.
// 3. Remove the processor and unlock the input, if a processor called exit(): the output thread may be waiting for it.
// 4. Wait for the output thread.
void LogManager::shutDown() {
  input_.close();
  if (maker_ != ::getpid() && !output_.wasStartedHere()) return;
  queue().unlockIfHeld();
  input_.shutDown();
  output_.shutDown();
}

LogManager* LogManager::ifUsable() {
  if (isMakingTheLog) return nullptr;
  LogManager& manager = instance();
  return manager.queue().isHeldByThisThread() ? nullptr : &manager;
}

BasicLog::LoggerKeeper* BasicLog::usableKeeper() {
  LogManager* manager = LogManager::ifUsable();
  return manager == nullptr ? nullptr : &manager->input();
}
