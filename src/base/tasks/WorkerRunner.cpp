#include "base/tasks/WorkerRunner.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "base/text/TimeUtils.h"
#include "base/threads/AtomicValue.h"
#include "base/threads/DetachedThread.h"

namespace {

constexpr std::int64_t pollMicros = 500'000;

std::int64_t nowSeconds() { return TimeUtils::nowMicros() / TimeUtils::microsPerSecond; }

// The current time plus `seconds`, in seconds. A result that does not fit becomes the largest number. The clock never
// shows a time before 1970, so a negative result always fits.
std::int64_t deadlineIn(std::int64_t seconds) {
  const std::int64_t now = nowSeconds();
  return now + std::min(seconds, std::numeric_limits<std::int64_t>::max() - now);
}

}  // namespace

// The state of one start. A thread that begins late finds its own run stopped, even if the runner was started again
// since.
struct WorkerRunner::Run {
  explicit Run(const Step& steps) : step(steps) {}

  const Step step;
  AtomicValue<State> state{State::starting};
};

WorkerRunner::WorkerRunner(Step step) : step_(std::move(step)) {}

WorkerRunner::~WorkerRunner() { requestStop(); }

void WorkerRunner::runSteps(Run& run) {
  if (!run.state.compareAndSet(State::starting, State::running)) return;
  while (run.state.get() == State::running && run.step()) {
  }
  run.state.set(State::stopped);
}

bool WorkerRunner::start() {
  const ScopedLock lock(mutex_);
  if (run_ && run_->state.get() != State::stopped) return false;
  run_ = std::make_shared<Run>(step_);
  if (startDetachedThread([run = run_] { runSteps(*run); })) return true;
  run_->state.set(State::stopped);
  return false;
}

void WorkerRunner::requestStop() {
  const ScopedLock lock(mutex_);
  if (!run_ || run_->state.compareAndSet(State::starting, State::stopped)) return;
  (void)run_->state.compareAndSet(State::running, State::stopRequested);  // else it is stopping or stopped already
}

bool WorkerRunner::waitStopped(std::int64_t seconds) const {
  std::shared_ptr<Run> run;
  {
    const ScopedLock lock(mutex_);
    run = run_;
  }
  if (!run) return true;
  const std::int64_t deadline = deadlineIn(seconds);
  const AtomicEqualityTestPredicate<State> isStopped(run->state, State::stopped);
  while (!isStopped.test()) {
    if (nowSeconds() > deadline) return false;
    (void)isStopped.waitFor(pollMicros);  // the loop tests the state again
  }
  return true;
}

WorkerRunner::State WorkerRunner::state() const {
  const ScopedLock lock(mutex_);
  return run_ ? run_->state.get() : State::stopped;
}
