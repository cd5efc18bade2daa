// WorkerRunner: calls a function, the step, again and again on its own thread. It stops when the step returns false or
// when a stop is requested.
//
//   WorkerRunner runner([&] { return serveOne(); });   // true: call it again
//   if (!runner.start()) ...
//   runner.requestStop();
//   if (!runner.waitStopped(5)) ...                    // the step has not returned after five seconds
//
// Threads: all functions may be called from any thread. Steps run on the runner's thread only, never two at a time.
// Exceptions: one that a step throws ends the process, as on every thread.
// Lifetime: the runner may be destroyed at any time. If its thread is then in a step, the thread finishes that step and
// starts no other. So the objects that the step refers to must live until waitStopped has returned true or state has
// returned stopped.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "base/threads/Locks.h"

class WorkerRunner {
 public:
  enum class State { starting = 1, running = 2, stopRequested = 3, stopped = 4 };
  using Step = std::function<bool()>;

  explicit WorkerRunner(Step step);
  // Requests a stop. Does not wait for it.
  ~WorkerRunner();
  WorkerRunner(const WorkerRunner&) = delete;
  WorkerRunner& operator=(const WorkerRunner&) = delete;

  // Starts the thread. A stopped runner can be started again. Returns false without a change if the runner is not
  // stopped. Returns false, and leaves it stopped, if the system cannot make a thread.
  bool start();
  // Makes the current step the last one. If the thread has not yet begun its first step, the runner is stopped at once
  // and never runs a step.
  void requestStop();
  // Blocks until the runner is stopped and returns true; a runner that was never started counts as stopped. Returns
  // false once the wall clock, in whole seconds, is later than the time of the call plus `seconds`. It reads the clock
  // every half second, so it notices when the clock is set. With a negative time it returns at once whether the runner
  // is stopped; with INT64_MAX it waits without limit.
  bool waitStopped(std::int64_t seconds) const;

  // The state; `stopped` before the first start.
  State state() const;

 private:
  struct Run;
  static void runSteps(Run& run);

  const Step step_;
  mutable PortableMutex mutex_;
  std::shared_ptr<Run> run_;  // of the latest start, shared with its thread; null before the first start
};
