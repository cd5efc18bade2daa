// AtomicValue: a value that threads can set and that other threads can wait for.
//
//   AtomicValue<State> state(State::idle);
//   const AtomicEqualityTestPredicate<State> isStopped(state, State::stopped);
//   isStopped.wait();                                    // blocks until a thread sets that value
//   if (isStopped.waitFor(1'000'000)) ...                // blocks for a second at most
//
// Threads: every function locks by itself and may be called from any thread. A thread that has seen the value through
// wait, waitFor or get may destroy the object, provided that the thread that set the value does not use it again.
// Other processes: a child may destroy the object although a thread of its parent was waiting at the fork.
#pragma once

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <limits>
#include <mutex>

#include "base/text/TimeUtils.h"

template <typename T>
class AtomicValue {
 public:
  explicit AtomicValue(T value) : value_(value) {}
  AtomicValue(const AtomicValue&) = delete;
  AtomicValue& operator=(const AtomicValue&) = delete;

  T get() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return value_;
  }

  void set(T value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    value_ = value;
    wakeAll();
  }

  // Sets `value` only if the current value is `expected`. Returns true if it set it.
  bool compareAndSet(T expected, T value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (value_ != expected) return false;
    value_ = value;
    wakeAll();
    return true;
  }

  // Makes every waitForValue with a time limit that is under way return. The value stays as it is.
  void wakeWaiters() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++wakes_;
    wakeAll();
  }

  // Blocks until the current value is `value`.
  void waitForValue(T value) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    while (value_ != value) (void)::pthread_cond_wait(&changed_, mutex_.native_handle());
  }

  // Blocks until the current value is `value`, but for `micros` microseconds at most and not past a wakeWaiters.
  // Returns true if the current value is `value`. A negative time counts as 0.
  bool waitForValue(T value, std::int64_t micros) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::uint64_t wakes = wakes_;
    const timespec deadline = deadlineIn(micros);
    bool isInTime = true;
    while (isInTime && value_ != value && wakes_ == wakes) {
      isInTime = ::pthread_cond_clockwait(&changed_, mutex_.native_handle(), CLOCK_MONOTONIC, &deadline) == 0;
    }
    return value_ == value;
  }

 private:
  // Called while the lock is still held: once the lock is free, a waiter that sees the new value may destroy the
  // object.
  void wakeAll() { (void)::pthread_cond_broadcast(&changed_); }

  static timespec deadlineIn(std::int64_t micros) {
    const std::int64_t now = TimeUtils::monotonicMicros();
    const timeval time = TimeUtils::toTimeval(now + std::min(micros, std::numeric_limits<std::int64_t>::max() - now));
    timespec deadline{};
    deadline.tv_sec = time.tv_sec;
    const std::chrono::nanoseconds nanos = std::chrono::microseconds(time.tv_usec);
    deadline.tv_nsec = static_cast<long>(nanos.count());
    return deadline;
  }

  mutable std::mutex mutex_;
  // Not std::condition_variable: its destructor waits for the waiters, and a child has none of the parent's threads.
  mutable pthread_cond_t changed_ = PTHREAD_COND_INITIALIZER;
  T value_;
  std::uint64_t wakes_ = 0;
};

// Tests whether an AtomicValue has a given value, and waits until it has. The AtomicValue must outlive the predicate.
template <typename T>
class AtomicEqualityTestPredicate {
 public:
  AtomicEqualityTestPredicate(const AtomicValue<T>& value, T expected) : value_(value), expected_(expected) {}

  bool test() const { return value_.get() == expected_; }
  void wait() const { value_.waitForValue(expected_); }
  bool waitFor(std::int64_t micros) const { return value_.waitForValue(expected_, micros); }

 private:
  const AtomicValue<T>& value_;
  const T expected_;
};
