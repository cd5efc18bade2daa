// LogOutput: the asynchronous half of the log. It has a queue that the loggers fill, a list of emitters, and an output
// thread that takes entries from the queue and passes each of them to every emitter.
//
// Code that configures the log uses LogManager, which owns the only LogOutput of the program.
//
// Producers: they append to the queue, which has no size limit, and never wait for output.
// Batches: the output thread takes entries in batches of up to 20. Each entry of a batch is passed to every emitter, in
// the order of the list, before the next entry. If the queue is empty, the thread waits for up to one second, so an
// entry may reach the emitters about a second late. A stop or a backlog ends the wait at once.
// Order: emitters receive entries in the order of the queue, even if several threads flush.
// Emitters: the list does not own them. An emitter must live as long as it is in the list. After removeEmitter has
// returned, the log does not call the emitter any more. Only one thread at a time calls emitters.
// Re-entry: an emitter may log, flush, stop the thread, and add and remove emitters.
// - An emitter that another one adds receives the current entry too. So an emitter must not add itself again: it would
//   receive the same entry for ever.
// - An entry that an emitter logs is queued like any other. What emitters log while they write such an entry is
//   dropped. Otherwise the log could feed itself for ever.
// - A flush that an emitter calls does nothing.
// - A stop that an emitter calls does not wait for the thread, on whichever thread the emitter runs.
// Exceptions: an exception that leaves an emitter is ignored. The entry is passed to the next emitter.
// Other processes: a child made by fork has no output thread, and nothing in the child waits for one.
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
  // Stops the thread and waits until it has ended. Frees the entries that are still queued.
  ~LogOutput();
  LogOutput(const LogOutput&) = delete;
  LogOutput& operator=(const LogOutput&) = delete;

  LogQueue& queue() { return queue_; }
  EmitterState state() const { return state_.get(); }

  // Queues a message. Returns false, and leaves `message` unchanged, if the queue refuses it (see WorkQueue.h).
  [[nodiscard]] bool push(std::unique_ptr<const BasicLog::LogMessage>& message);

  // Starts the thread. Returns false if the state is not idle. The state never becomes idle again after a successful
  // start, so it can succeed only once. Returns false and leaves the state idle if the system cannot create a thread.
  bool startOutputThread();
  // Ends the thread after its current batch and waits until it has ended. Entries that are still queued remain there; a
  // flush writes them. Does nothing if no thread was started.
  void stopOutputThread();
  // Returns true if the thread was started and has left its loop.
  bool isOutputThreadStopped() const;
  // Returns true if this process started the thread, which may have ended since.
  bool wasStartedHere() const;

  // Appends an emitter to the list. Ignores null.
  void addEmitter(BasicLog::Emitter* emitter);
  // Removes the emitter from the list, even if it was added more than once. Ignores null.
  void removeEmitter(BasicLog::Emitter* emitter);

  // Passes the queued entries to the emitters, on the calling thread, until the queue is empty. It does not return
  // while producers add entries faster than it writes them.
  void flush();
  // Replaces all emitters by the EmergencyEmitter, which writes to standard output, and flushes.
  void emergencyFlush();

  // Ends the output at exit. If the thread is running, it waits until the thread has flushed and ended, however long
  // that takes. When it returns, no thread is calling an emitter, and no emitter is called any more, not even one that
  // is added later. If an emitter calls it, it neither waits nor flushes. Entries must be refused before (see
  // LogManager.h).
  // Two threads may call it at the same time. Both then wait for the same end.
  void shutDown();

 private:
  void runOutputThread();
  bool requestStop();
  bool isRunning() const { return state_.get() == EmitterState::running; }
  std::size_t drainBatch();
  void emit(const BasicLog::LogMessage& message);
  void forgetRemovedEmitters();

  LogQueue queue_;
  AtomicValue<EmitterState> state_{EmitterState::idle};
  const AtomicEqualityTestPredicate<EmitterState> isStopping_{state_, EmitterState::stopping};
  const AtomicEqualityTestPredicate<EmitterState> isStopped_{state_, EmitterState::stopped};
  PortableMutex outputMutex_;
  std::atomic<pid_t> process_{0};  // the process that started the thread
  std::atomic<bool> flushesAtItsEnd_{false};
  OwnedMutex emittersMutex_;
  std::vector<BasicLog::Emitter*> emitters_;  // null where an emitter was removed during a batch
  bool hasEnded_ = false;                     // guarded by emittersMutex_
  ZoneOffset zoneOffset_;                     // guarded by emittersMutex_
};
