#include "base/tasks/AsyncTask.h"

#include "log/front/BasicLog.h"

namespace {

// Deliberately not the name of this file: people who read logs search for this name.
constexpr char sourceName[] = "ThreadUtils.cpp";

}  // namespace

void AsyncTask::logStep(std::string_view text, std::string_view function) const {
  static BasicLog::Logger& log = BasicLog::getLogger(BasicLog::threadUtilsLogger);
  if (!log.isEnabled(BasicLog::Level::info)) return;
  BasicLog::Entry entry(log, BasicLog::Level::info, text, sourceName, function);
  entry.add("task", taskName_);
}

bool AsyncTask::asyncStartup() {
  logStep("AsyncTask starting up", "asyncStartup");
  const ScopedLock lock(mutex_);
  bool isStarted = false;
  try {
    isStarted = state_ == State::ready && start();
  } catch (...) {  // the result says that the start failed
  }
  state_ = isStarted ? State::running : State::failed;
  return isStarted;
}

void AsyncTask::asyncShutdown() {
  logStep("AsyncTask beginning shutdown", "asyncShutdown");
  const ScopedLock lock(mutex_);
  if (state_ == State::ready) {
    state_ = State::stopped;
  } else if (state_ == State::running) {
    state_ = State::stopping;
    runOrFail(&AsyncTask::beginShutdown);
  }
}

bool AsyncTask::isStopped() {
  const ScopedLock lock(mutex_);
  if (state_ == State::stopping) runOrFail(&AsyncTask::continueShutdown);
  return state_ == State::stopped || state_ == State::failed;
}

AsyncTask::State AsyncTask::state() const {
  const ScopedLock lock(mutex_);
  return state_;
}

void AsyncTask::runOrFail(void (AsyncTask::*operation)()) {
  try {
    (this->*operation)();
  } catch (...) {  // isStopped tells
    state_ = State::failed;
  }
}

void AsyncTask::finishShutdown() {
  if (state_ == State::stopping) state_ = State::stopped;
}
