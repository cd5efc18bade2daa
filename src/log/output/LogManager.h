// LogManager: the back end of the log. LogInput keeps the loggers and receives their entries; LogManager owns the input
// and the output.
//
// Sources that only log include BasicLog.h and nothing else. This header is for the log's own sources and for programs
// that configure where their entries are written:
//
//   LogManager& log = LogManager::instance();
//   log.addEmitter(emitter);                   // see EmitterFactory.h
//   if (!log.startOutputThread()) ...
//   ...
//   log.stopOutputThread();                    // entries may still be queued
//   log.flush();
//   log.removeEmitter(emitter);                // now the emitter may be destroyed
#pragma once

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/threads/Locks.h"
#include "log/front/BasicLog.h"
#include "log/front/LoggerKeeper.h"
#include "log/output/LogOutput.h"

// Keeps the loggers and receives the entries that they submit. It passes an entry to the synchronous processor, if one
// is installed, and then queues it if asynchronous output is in use. An entry that the processor does not take and
// that is not queued is freed by its handle.
// Threads: one lock guards the list of loggers, the default level and the synchronous processor. It is held while the
// processor runs. A processor is deleted after the lock is released, so its destructor may wait for a thread that logs
// or gets loggers. There is one exception: if a running processor installs a second one and replaces that one too
// before it returns, the second one may be deleted while the lock is held.
// Re-entry: a processor that logs or gets loggers does not deadlock. Its entries are queued without being passed to
// the processor.
// Deadlock: with asynchronous output, a processor must not flush or stop the output, and must not add or remove
// emitters. It could deadlock with an emitter that logs, because such an emitter waits for the processor.
class LogInput final : public BasicLog::LogMessageProcessor, public BasicLog::LoggerKeeper {
 public:
  // Creates the loggers that exist from the start. `output` must outlive the input.
  explicit LogInput(LogOutput& output);
  ~LogInput() override;
  LogInput(const LogInput&) = delete;
  LogInput& operator=(const LogInput&) = delete;

  void process(std::unique_ptr<const BasicLog::LogMessage>& message) override;

  BasicLog::Logger* getLogger(std::string_view name) override;
  BasicLog::Logger* findLogger(std::string_view name) override;
  void listLoggers(std::vector<std::string>& names) override;
  void setDefaultLevel(BasicLog::Level level) override;
  BasicLog::Level getDefaultLevel() override;
  void setSyncProcessor(BasicLog::LogMessageProcessor* processor) override;

  // Installs a synchronous processor that passes every entry to `emitter`. The processor does not own the emitter,
  // which must not be null and must live until it is removed or the processor is replaced. The processor can be
  // replaced like any other.
  void setSyncEmitter(BasicLog::Emitter* emitter);
  // Removes the synchronous processor if it passes entries to this emitter. Afterwards the emitter is not called any
  // more.
  void removeSyncEmitter(BasicLog::Emitter* emitter);

  // Drops all entries that are submitted from now on. A processor that is installed later is deleted at once. Takes no
  // lock.
  void close() { isClosed_ = true; }
  // Removes and deletes the processor at exit. Waits until its call on another thread has ended. If the processor
  // itself called exit(), it is not deleted.
  void shutDown();

  // Sets whether entries are queued. Initially they are.
  void setAsyncOutput(bool inUse) { asyncOutput_ = inUse; }
  bool isAsyncOutput() const { return asyncOutput_; }

 private:
  BasicLog::Logger* findLocked(std::string_view name);
  BasicLog::Logger* findOrCreate(std::string_view name);

  void setProcessor(std::shared_ptr<BasicLog::LogMessageProcessor> processor, const BasicLog::Emitter* emitter);
  // Requires the lock. Returns the previous processor, or the new one if the input is closed. It must be deleted after
  // the lock is released.
  [[nodiscard]] std::shared_ptr<BasicLog::LogMessageProcessor> exchangeProcessor(
      std::shared_ptr<BasicLog::LogMessageProcessor> processor, const BasicLog::Emitter* emitter);

  LogOutput& output_;
  std::atomic<bool> isClosed_{false};
  std::atomic<bool> asyncOutput_{true};
  OwnedMutex mutex_;
  std::shared_ptr<BasicLog::LogMessageProcessor> syncProcessor_;  // shared with the call that runs it
  std::atomic<bool> hasSyncProcessor_{false};                     // without a processor nobody takes the lock
  const BasicLog::Emitter* syncEmitter_ = nullptr;                // the emitter that the processor calls, or null
  BasicLog::Logger* firstLogger_ = nullptr;                       // a list in the order of creation
  BasicLog::Logger* lastLogger_ = nullptr;
  BasicLog::Level defaultLevel_ = BasicLog::Level::byDefault;
};

// Owns the input and the output. The first use of the log creates the program's only instance. It is never destroyed,
// because other threads may log until the process has ended.
// Exit: the instance is shut down at exit (see shutDown). Emitters that are still in the log must live until then, so a
// static emitter must be constructed before the first use of the log.
class LogManager {
 public:
  static LogManager& instance();
  // Returns the same instance, or null if the calling thread is just creating it or is inside its queue. Such a thread
  // cannot log, and it must not wait for a lock whose holder may be waiting for the queue.
  static LogManager* ifUsable();

  LogManager();
  // Stops the thread before the loggers are destroyed, because an emitter may use them. Frees the entries that are
  // still queued without writing them.
  ~LogManager() { output_.stopOutputThread(); }
  LogManager(const LogManager&) = delete;
  LogManager& operator=(const LogManager&) = delete;

  LogInput& input() { return input_; }
  LogOutput& output() { return output_; }
  LogQueue& queue() { return output_.queue(); }

  // Adds an emitter, which the caller still owns. With asynchronous output, the output passes entries to it. Without,
  // it becomes the synchronous processor and receives each entry at once, on the thread that logs. Ignores null.
  void addEmitter(BasicLog::Emitter* emitter) {
    if (emitter == nullptr) return;
    if (input_.isAsyncOutput()) {
      output_.addEmitter(emitter);
    } else {
      input_.setSyncEmitter(emitter);
    }
  }
  // Removes an emitter, in whichever way it was added. Afterwards the emitter may be destroyed.
  void removeEmitter(BasicLog::Emitter* emitter) {
    output_.removeEmitter(emitter);
    input_.removeSyncEmitter(emitter);
  }

  // Returns true and starts no thread if asynchronous output is not in use. Otherwise it works as in LogOutput.h.
  bool startOutputThread() { return !input_.isAsyncOutput() || output_.startOutputThread(); }
  // These work as in LogOutput.h.
  void stopOutputThread() { output_.stopOutputThread(); }
  bool isOutputThreadStopped() const { return output_.isOutputThreadStopped(); }
  void flush() { output_.flush(); }
  void emergencyFlush() { output_.emergencyFlush(); }

  // Ends the log at exit. From now on entries are dropped. If the output thread is running, the queued entries are
  // written, however long that takes, and the thread ends. Otherwise they are not written. The synchronous processor is
  // deleted. When shutDown returns, no thread is calling an emitter or a processor, and the log calls none any more,
  // not even one that is added later. A processor that has replaced itself may still be in its destructor. Re-entry: an
  // emitter, a processor or an assertion handler may call exit(). If an emitter does, the queued entries are not
  // written. Threads: two threads may exit at the same time. If more do, static emitters may be destroyed too early.
  // Other processes: a child made by fork that has not started the thread itself only drops later entries. It takes no
  // lock, because a thread of its parent may have held that lock at the fork.
  void shutDown();

 private:
  const pid_t maker_;  // the process that made this object
  LogOutput output_;
  LogInput input_{output_};
};
