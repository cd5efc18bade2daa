// AtomicValue: a value that threads set, and wait for.
//
//   AtomicValue<State> state(State::idle);
//   const AtomicEqualityTestPredicate<State> isStopped(state, State::stopped);
//   isStopped.wait();                                    // until some thread has set it
//   if (isStopped.waitFor(1'000'000)) ...                // for a second at most
//
// Every function locks for itself and may be called from any thread. Who has seen the value under wait, waitFor or get
// may destroy the object when the thread that set it touches it no more.
// Other processes: the value may be destroyed in a child made while some thread of the parent was waiting.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <new>

template <typename T>
class AtomicValue {
 public:
  explicit AtomicValue(T value) : value_(value) { new (&changed_) std::condition_variable; }
  // The condition is left as it is: destroying one waits for its waiters, and in a child they are not there.
  ~AtomicValue() {}
  AtomicValue(const AtomicValue&) = delete;
  AtomicValue& operator=(const AtomicValue&) = delete;

  T get() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return value_;
  }

  void set(T value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    value_ = value;
    changed_.notify_all();  // under the lock: a waiter that sees the value may destroy this
  }

  // Sets `value` only where `expected` stands; whether it did.
  bool compareAndSet(T expected, T value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (value_ != expected) return false;
    value_ = value;
    changed_.notify_all();
    return true;
  }

  // Ends the waitFor of every thread that is in it, without a change.
  void wakeWaiters() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++wakes_;
    changed_.notify_all();
  }

  void waitForValue(T value) const {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return value_ == value; });
  }

  // Whether the value stood there within `micros`. Comes back early after wakeWaiters.
  bool waitForValue(T value, std::int64_t micros) const {
    std::unique_lock<std::mutex> lock(mutex_);
    const std::uint64_t wakes = wakes_;
    const std::chrono::microseconds limit(std::clamp<std::int64_t>(micros, 0, longestWait));
    changed_.wait_for(lock, limit, [&] { return value_ == value || wakes_ != wakes; });
    return value_ == value;
  }

 private:
  // A century: now and what is added to it must stay within 64 bits of nanoseconds.
  static constexpr std::int64_t longestWait = 3'155'760'000'000'000;

  mutable std::mutex mutex_;
  union {
    mutable std::condition_variable changed_;
  };
  T value_;
  std::uint64_t wakes_ = 0;
};

// The question whether an AtomicValue stands at one certain value.
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
