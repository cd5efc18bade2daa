// LogOutput: the asynchronous half of the log: the queue that loggers fill, the thread that empties it, and the
// emitters that it hands every entry to.
//
// What configures the log talks to LogManager, which owns the one output of the program.
//
// Producers never wait for output: they append to the queue, which has no limit. The output thread takes entries in
// batches of up to 20, after each of which the emitters have written them, and when there are none it waits for up to a
// second; so entries may reach their emitters about a second late. A stop, and a backlog, end that wait at once.
// Order: emitters see entries in the order of the queue, whichever threads hand them out.
// Emitters are not owned. They must outlive their presence in the list; when removeEmitter has returned, an emitter is
// called no more. They are called by one thread at a time.
// Re-entry: an emitter may log, flush, stop the thread, and add and remove emitters. What it logs is queued like any
// entry; what emitters log about such an entry is dropped, so that the log does not feed on itself for ever. A flush
// from inside does nothing, a stop from inside does not wait, whichever thread hands out.
// Other processes: in a child made by fork there is no output thread, and nothing waits for one.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

#include "base/threads/AtomicValue.h"
#include "base/threads/Locks.h"
#include "log/front/BasicLog.h"
#include "log/output/Emitter.h"
#include "log/output/WorkQueue.h"
#include "log/output/ZoneOffset.h"

using LogQueue = TypedWorkQueue<BasicLog::LogMessage const>;

class LogOutput {
 public:
  enum class EmitterState { idle, running, stopping, stopped };

  LogOutput() = default;
  // Stops the thread and waits for it; what is still queued is freed.
  ~LogOutput();
  LogOutput(const LogOutput&) = delete;
  LogOutput& operator=(const LogOutput&) = delete;

  LogQueue& queue() { return queue_; }
  EmitterState state() const { return state_.get(); }

  // Queues a message; what it refuses (see WorkQueue.h) stays in `message`.
  [[nodiscard]] bool push(std::unique_ptr<const BasicLog::LogMessage>& message);

  // Starts the thread. Only once: false in every state but idle, and, idle again, when the system gives no thread.
  bool startOutputThread();
  // Has the thread end after the batch under way, and waits for that. Entries still queued stay, for a flush. Does
  // nothing when no thread was started.
  void stopOutputThread();
  // Whether the thread was started and has left its loop.
  bool isOutputThreadStopped() const;

  // Appends an emitter to the list; null is ignored.
  void addEmitter(BasicLog::Emitter* emitter);
  // Takes it off the list, every time it is there.
  void removeEmitter(BasicLog::Emitter* emitter);

  // Hands out what is queued, on the calling thread, until there is nothing left: as long as producers keep ahead of
  // it, it goes on.
  void flush();
  // Puts one emitter, which writes to standard output, in the place of all others, and flushes.
  void emergencyFlush();

 private:
  void runOutputThread();
  bool isRunning() const { return state_.get() == EmitterState::running; }
  std::size_t drainBatch();
  void emit(const BasicLog::LogMessage& message);
  void beginBatch();
  void endBatch();

  LogQueue queue_;
  AtomicValue<EmitterState> state_{EmitterState::idle};
  const AtomicEqualityTestPredicate<EmitterState> isStopping_{state_, EmitterState::stopping};
  const AtomicEqualityTestPredicate<EmitterState> isStopped_{state_, EmitterState::stopped};
  PortableMutex outputMutex_;
  std::atomic<pid_t> process_{0};  // that has the thread
  OwnedMutex emittersMutex_;
  std::vector<BasicLog::Emitter*> emitters_;  // null where one was removed while a batch is under way
  ZoneOffset zoneOffset_;                     // guarded by the emitters' lock
};
