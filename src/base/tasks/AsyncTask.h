// AsyncTask: the state machine for starting and stopping work that runs in the background.
//
//   class Listener : public AsyncTask {
//    public:
//     Listener() : AsyncTask("listener") {}
//    private:
//     bool start() override { return openSocket(); }
//     void beginShutdown() override { wakeUp(); }
//     void continueShutdown() override { if (isDone()) finishShutdown(); }
//   };
//   Listener listener;
//   if (!listener.asyncStartup()) return ...;       // the task has failed and cannot be started again
//   listener.asyncShutdown();
//   while (!listener.isStopped()) ...               // each call continues the shutdown
//
// Threads: all functions may be called from any thread. start, beginShutdown and continueShutdown run on the calling
// thread under the task's lock, one at a time. They may log. They must not call asyncStartup, asyncShutdown, isStopped
// or state.
// Exceptions: an operation that throws has failed, and so has its task. The exception goes no further.
#pragma once

#include <string>
#include <string_view>

#include "base/threads/Locks.h"

class AsyncTask {
 public:
  enum class State { ready = 1, running = 2, stopping = 3, stopped = 4, failed = 5 };

  explicit AsyncTask(std::string_view taskName) : taskName_(taskName) {}
  virtual ~AsyncTask() = default;
  AsyncTask(const AsyncTask&) = delete;
  AsyncTask& operator=(const AsyncTask&) = delete;

  // Logs "AsyncTask starting up" and starts a ready task. Returns true if the task is then running. Returns false if
  // start fails or if the task was not ready, even if it was running; the task is then failed.
  bool asyncStartup();
  // Logs "AsyncTask beginning shutdown". Then a running task begins to stop, and a ready task becomes stopped without a
  // call of its operations. A task in any other state does not change.
  void asyncShutdown();
  // Returns true if the task is stopped or failed. It first continues the shutdown of a stopping task.
  bool isStopped();

  State state() const;
  const std::string& taskName() const { return taskName_; }

 protected:
  // Changes the state from stopping to stopped. Does nothing in any other state. Only the three operations may call it.
  void finishShutdown();

 private:
  // The operations that a task supplies. start returns true on success. continueShutdown is called, possibly often,
  // until beginShutdown or continueShutdown itself has called finishShutdown.
  virtual bool start() = 0;
  virtual void beginShutdown() = 0;
  virtual void continueShutdown() = 0;

  void runOrFail(void (AsyncTask::*operation)());
  void logStep(std::string_view text, std::string_view function) const;

  const std::string taskName_;
  mutable PortableMutex mutex_;
  State state_ = State::ready;
};
