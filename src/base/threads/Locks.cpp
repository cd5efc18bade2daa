#include "base/threads/Locks.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "base/system/RawWrite.h"
#include "base/text/StringUtils.h"
#include "base/text/TimeUtils.h"
#include "base/threads/ThreadNames.h"

namespace {

constexpr char unnamedMutex[] = "<unnamed mutex>";

std::string millis(std::int64_t micros) { return StringUtils::toString(micros / 1'000); }

void warn(const std::string& line) {
  (void)writeFully(STDERR_FILENO, line);  // a failure cannot be reported anywhere
}

void warnOfSlowAcquire(const char* mutexName, const char*, std::int64_t, std::int64_t measured) {
  warn(StringUtils::concatenate(
      {"lock contention warning, '", mutexName, "' took ", millis(measured), "ms to acquire\n"}));
}

void warnOfLongHold(const char* mutexName, const char*, std::int64_t, std::int64_t measured) {
  warn(StringUtils::concatenate({"lock warning, '", mutexName, "' held for ", millis(measured), "ms\n"}));
}

std::atomic<LockReport> slowAcquireReport{warnOfSlowAcquire};
std::atomic<LockReport> longHoldReport{warnOfLongHold};

}  // namespace

void setSlowAcquireReport(LockReport report) { slowAcquireReport = report == nullptr ? warnOfSlowAcquire : report; }

void setLongHoldReport(LockReport report) { longHoldReport = report == nullptr ? warnOfLongHold : report; }

TimedMutex::TimedMutex(const char* name, std::int64_t acquireWarnMicros, std::int64_t holdWarnMicros)
    : name_(name == nullptr || *name == '\0' ? unnamedMutex : name),
      acquireWarnMicros_(std::max<std::int64_t>(acquireWarnMicros, 0)),
      holdWarnMicros_(std::max<std::int64_t>(holdWarnMicros, 0)) {}

void TimedMutex::lock() {
  std::string thread = getThreadName();
  const std::int64_t start = TimeUtils::nowMicros();
  mutex_.lock();
  const std::int64_t acquired = TimeUtils::nowMicros();
  acquiredAt_ = acquired;
  holder_ = std::move(thread);
  const std::int64_t waited = acquired - start;
  if (waited > acquireWarnMicros_) slowAcquireReport.load()(name_.c_str(), holder_.c_str(), acquireWarnMicros_, waited);
}

void TimedMutex::unlock() {
  const std::string holder = std::exchange(holder_, std::string());
  const std::int64_t held = TimeUtils::nowMicros() - acquiredAt();
  acquiredAt_ = 0;
  // After the unlock another thread may destroy the mutex, so the report uses copies.
  const bool isLong = held > holdWarnMicros_;
  const std::string name = isLong ? name_ : std::string();
  const std::int64_t threshold = holdWarnMicros_;
  mutex_.unlock();
  if (isLong) longHoldReport.load()(name.c_str(), holder.c_str(), threshold, held);
}

PortableMutex::PortableMutex(const char* name, std::int64_t acquireWarnMicros, std::int64_t holdWarnMicros) {
  if (acquireWarnMicros >= 1 && holdWarnMicros >= 1) {
    timed_ = std::make_unique<TimedMutex>(name, acquireWarnMicros, holdWarnMicros);
  }
}

void PortableMutex::lock() {
  if (timed_) {
    timed_->lock();
  } else {
    basic_.lock();
  }
}

void PortableMutex::unlock() {
  if (timed_) {
    timed_->unlock();
  } else {
    basic_.unlock();
  }
}

void OwnedMutex::lock() {
  mutex_.lock();
  owner_.store(std::this_thread::get_id(), std::memory_order_relaxed);
}

void OwnedMutex::unlock() {
  owner_.store(std::thread::id(), std::memory_order_relaxed);
  mutex_.unlock();
}
