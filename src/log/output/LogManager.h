// The back end of the log: where finished entries go, the list of loggers, and the one object that owns it all.
//
// Sources that log include BasicLog.h alone; this header is for the log's own sources and for a program that configures
// where its entries go:
//
//   LogManager& log = LogManager::instance();
//   log.addEmitter(emitter);                   // see EmitterFactory.h
//   if (!log.startOutputThread()) ...
//   ...
//   log.stopOutputThread();                    // at once, entries may still be queued
//   log.flush();
//   log.removeEmitter(emitter);                // then it may be destroyed
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/threads/Locks.h"
#include "log/front/BasicLog.h"
#include "log/front/LoggerKeeper.h"
#include "log/output/LogOutput.h"

// Takes what every logger submits, and keeps the loggers. An entry is first shown to the synchronous processor, if
// there is one, then queued when asynchronous output is in use; what nobody took is freed by its handle. Threads: one
// lock guards the loggers' list, the default level and the synchronous processor, and is held while that processor
// runs. A thread that comes back from inside it (a processor that logs or asks for a logger) does not wait for itself:
// its entries skip the processor and are queued. With asynchronous output a processor neither flushes nor stops the
// output, nor adds or removes emitters: an emitter that logs may hold these up and wait for the processor.
class LogInput final : public BasicLog::LogMessageProcessor, public BasicLog::LoggerKeeper {
 public:
  // `output` outlives the input. Makes the loggers that exist from the start.
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

  // Installs a synchronous processor that hands every entry to `emitter`, which is not owned. It is replaced like any.
  void setSyncEmitter(BasicLog::Emitter* emitter);
  // Removes the synchronous processor if it is the one of this emitter. Then the emitter is called no more.
  void removeSyncEmitter(BasicLog::Emitter* emitter);

  // Whether entries are queued; true from the start.
  void setAsyncOutput(bool inUse) { asyncOutput_ = inUse; }
  bool isAsyncOutput() const { return asyncOutput_; }

 private:
  BasicLog::Logger* findLocked(std::string_view name);
  BasicLog::Logger* findOrCreate(std::string_view name);

  void setProcessor(std::shared_ptr<BasicLog::LogMessageProcessor> processor, const BasicLog::Emitter* emitter);

  LogOutput& output_;
  std::atomic<bool> asyncOutput_{true};
  OwnedMutex mutex_;
  std::shared_ptr<BasicLog::LogMessageProcessor> syncProcessor_;  // shared with the call that runs it
  std::atomic<bool> hasSyncProcessor_{false};                     // so that without one nobody locks
  const BasicLog::Emitter* syncEmitter_ = nullptr;                // that the processor hands entries to
  BasicLog::Logger* firstLogger_ = nullptr;                       // a chain in order of creation
  BasicLog::Logger* lastLogger_ = nullptr;
  BasicLog::Level defaultLevel_ = BasicLog::Level::byDefault;
};

// Owns the input and the output behind it. The one of the program is made when the log is first used; at exit its
// output thread is stopped and waited for, and entries still queued are freed unseen.
class LogManager {
 public:
  static LogManager& instance();
  // The same, or null on a thread that is just making it or is inside its queue: what is reported there cannot be
  // logged, and must not wait for a lock whose holder may want the queue.
  static LogManager* ifUsable();

  LogManager() = default;
  // Loggers live as long as the thread may log by them.
  ~LogManager() { output_.stopOutputThread(); }
  LogManager(const LogManager&) = delete;
  LogManager& operator=(const LogManager&) = delete;

  LogInput& input() { return input_; }
  LogOutput& output() { return output_; }
  LogQueue& queue() { return output_.queue(); }

  // Has entries handed to an emitter, which stays its caller's: by the output, or, when asynchronous output is not in
  // use, at once on the thread that logs, as the synchronous processor. Null is ignored.
  void addEmitter(BasicLog::Emitter* emitter) {
    if (emitter == nullptr) return;
    if (input_.isAsyncOutput()) {
      output_.addEmitter(emitter);
    } else {
      input_.setSyncEmitter(emitter);
    }
  }
  // Undoes that, in whichever way it was added. Afterwards the emitter may be destroyed.
  void removeEmitter(BasicLog::Emitter* emitter) {
    output_.removeEmitter(emitter);
    input_.removeSyncEmitter(emitter);
  }

  // True at once, and no thread, when asynchronous output is not in use. Else as in LogOutput.h.
  bool startOutputThread() { return !input_.isAsyncOutput() || output_.startOutputThread(); }
  // As in LogOutput.h.
  void stopOutputThread() { output_.stopOutputThread(); }
  bool isOutputThreadStopped() const { return output_.isOutputThreadStopped(); }
  void flush() { output_.flush(); }
  void emergencyFlush() { output_.emergencyFlush(); }

 private:
  LogOutput output_;
  LogInput input_{output_};
};
