// AsyncTask: the start and the stop of work that goes on by itself.
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
//   if (!listener.asyncStartup()) return ...;       // failed for good
//   listener.asyncShutdown();
//   while (!listener.isStopped()) ...               // each question moves the shutdown on
//
// Threads: everything may be called from any thread. The three operations run on the calling thread under the task's
// lock, one at a time; they may log, and must not call asyncStartup, asyncShutdown, isStopped or state.
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

  // Starts a ready task: true, and it is running. A start that fails, and a start of a task that is not ready, even of
  // a running one, leave it failed: false. Logs "AsyncTask starting up" first.
  bool asyncStartup();
  // A running task begins to stop; a ready one is stopped, without any of its operations; others are left alone. Logs
  // "AsyncTask beginning shutdown" first.
  void asyncShutdown();
  // Whether the task is stopped or failed. Of a stopping task the shutdown is continued first.
  bool isStopped();

  State state() const;
  const std::string& taskName() const { return taskName_; }

 protected:
  // From stopping to stopped, and from no other state. Only from inside the operations.
  void finishShutdown();

 private:
  // What a task supplies. start says whether it succeeded; continueShutdown is called, maybe often, until
  // finishShutdown was called from within.
  virtual bool start() = 0;
  virtual void beginShutdown() = 0;
  virtual void continueShutdown() = 0;

  void logStep(std::string_view text, std::string_view function) const;

  const std::string taskName_;
  mutable PortableMutex mutex_;
  State state_ = State::ready;
};
