#include "log/output/LogOutput.h"

#include <unistd.h>

#include <algorithm>
#include <array>

#include "base/text/TimeUtils.h"
#include "base/threads/DetachedThread.h"
#include "base/threads/ThreadNames.h"
#include "log/front/EmitContext.h"

using BasicLog::Emitter;
using BasicLog::LogMessage;

namespace {

constexpr char threadName[] = "logging_output";
constexpr std::size_t batchLimit = 20;
constexpr std::int64_t idleMicros = TimeUtils::microsPerSecond;
// The thread is woken whenever the number of queued entries reaches a multiple of this. That is so rare that it costs
// the producers nothing.
constexpr std::size_t backlog = 1'024;

// Clears the marks that emit() sets on the calling thread.
class EmittingScope {
 public:
  EmittingScope() = default;
  ~EmittingScope() { BasicLog::emitContext() = {}; }
  EmittingScope(const EmittingScope&) = delete;
  EmittingScope& operator=(const EmittingScope&) = delete;
};

}  // namespace

LogOutput::~LogOutput() { stopOutputThread(); }

bool LogOutput::push(std::unique_ptr<const LogMessage>& message) {
  const std::size_t queued = queue_.push(message);
  if (queued == 0) return false;
  if (queued % backlog == 0) state_.wakeWaiters();
  return true;
}

// --- The thread

bool LogOutput::startOutputThread() {
  const ScopedLock lock(outputMutex_);
  if (!state_.compareAndSet(EmitterState::idle, EmitterState::running)) return false;
  process_ = ::getpid();
  if (startDetachedThread([this] { runOutputThread(); })) return true;
  state_.set(EmitterState::idle);
  return false;
}

void LogOutput::runOutputThread() {
  setThreadName(threadName);
  {
    const ScopedLock lock(outputMutex_);  // waits until startOutputThread has returned; a stop may follow at once
  }
  while (isRunning()) {
    if (drainBatch() == 0) (void)isStopping_.waitFor(idleMicros);  // the loop condition checks the state again
  }
  if (flushesAtItsEnd_) flush();
  state_.set(EmitterState::stopped);  // the last access: a thread that waits for this state may destroy the object
}

// Returns true if a thread was created. With the lock, a concurrent start has either created its thread or failed, and
// the next start, which may fail too, has not begun.
bool LogOutput::requestStop() {
  const ScopedLock lock(outputMutex_);
  (void)state_.compareAndSet(EmitterState::running, EmitterState::stopping);  // false: idle, stopping or stopped
  return state_.get() != EmitterState::idle;
}

void LogOutput::stopOutputThread() {
  if (!wasStartedHere()) return;  // never started, or this is a forked child and the parent has the thread
  // An emitter must not wait for the thread: the thread may be waiting for the emitters' lock.
  if (requestStop() && !emittersMutex_.isHeldByThisThread()) isStopped_.wait();
}

bool LogOutput::isOutputThreadStopped() const {
  const pid_t process = process_;
  return (process != 0 && process != ::getpid()) || isStopped_.test();
}

bool LogOutput::wasStartedHere() const { return process_ == ::getpid(); }

// --- The end of the process

// The output thread flushes. So a static program that never starts it does not link what writes entries.
void LogOutput::shutDown() {
  flushesAtItsEnd_ = true;
  stopOutputThread();
  const ScopedOwnedLock lock(emittersMutex_);
  hasEnded_ = true;
}

// --- The emitters

void LogOutput::addEmitter(Emitter* emitter) {
  if (emitter == nullptr) return;
  const ScopedOwnedLock lock(emittersMutex_);
  emitters_.push_back(emitter);
}

void LogOutput::removeEmitter(Emitter* emitter) {
  if (emitter == nullptr) return;
  const ScopedOwnedLock lock(emittersMutex_);
  if (!lock.wasHeld()) {
    emitters_.erase(std::remove(emitters_.begin(), emitters_.end(), emitter), emitters_.end());
  } else {
    std::replace(emitters_.begin(), emitters_.end(), emitter, static_cast<Emitter*>(nullptr));
  }
}

// --- Batches

void LogOutput::flush() {
  while (drainBatch() != 0) {
  }
}

// Holds the lock of the list from taking the entries to the last emitter. This keeps the order when several threads
// drain at the same time.
std::size_t LogOutput::drainBatch() {
  const ScopedOwnedLock lock(emittersMutex_);
  if (lock.wasHeld() || hasEnded_) return 0;  // called by an emitter, or after the end
  std::array<std::unique_ptr<const LogMessage>, batchLimit> batch;
  const std::size_t count = queue_.popMany(batch);
  if (count == 0) return 0;
  const EmittingScope scope;
  for (std::size_t i = 0; i < count; ++i) emit(*batch[i]);
  forgetRemovedEmitters();
  return count;
}

// The loop uses an index, because an emitter may add emitters to the list.
void LogOutput::emit(const LogMessage& message) {
  BasicLog::emitContext() = {message.isFromEmitter, zoneOffset_.micros()};
  for (std::size_t i = 0; i < emitters_.size(); ++i) {
    if (emitters_[i] == nullptr) continue;
    try {
      emitters_[i]->emit(message);
    } catch (...) {  // not reported: the code that logs cannot act on it
    }
  }
}

void LogOutput::forgetRemovedEmitters() {
  emitters_.erase(std::remove(emitters_.begin(), emitters_.end(), static_cast<Emitter*>(nullptr)), emitters_.end());
}
