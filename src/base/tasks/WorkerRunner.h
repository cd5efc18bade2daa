// WorkerRunner: takes steps on a thread of its own until a step says that it was the last, or a stop is requested.
//
//   WorkerRunner runner([&] { return serveOne(); });   // whether to go on
//   if (!runner.start()) ...
//   runner.requestStop();
//   if (!runner.waitStopped(5)) ...                    // still in its step after five seconds
//
// Threads: everything may be called from any thread; steps run on the runner's thread alone, never two at a time.
// Lifetime: the runner may be destroyed at any time; a thread still in its step finishes that step and takes no other,
// so what the step refers to must live until the runner was seen stopped.
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
  // Requests a stop and does not wait.
  ~WorkerRunner();
  WorkerRunner(const WorkerRunner&) = delete;
  WorkerRunner& operator=(const WorkerRunner&) = delete;

  // Starts the thread; false, and the runner is stopped, when the system gives none. A stopped runner can be started
  // again; one that is not stopped is left alone: false.
  bool start();
  // The step under way is the last. A runner that was only just started is stopped at once and never takes a step.
  void requestStop();
  // Waits until the runner is stopped; false once the wall clock, in whole seconds, is past now plus `seconds`. Looks
  // at least every half second, so that a clock that is set is noticed. A negative time only looks, INT64_MAX waits for
  // ever.
  bool waitStopped(std::int64_t seconds) const;

  // stopped before the first start.
  State state() const;

 private:
  struct Run;
  static void runSteps(Run& run);

  const Step step_;
  mutable PortableMutex mutex_;
  std::shared_ptr<Run> run_;  // the latest start, shared with its thread; null before the first
};
