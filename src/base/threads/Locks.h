// Locks: one interface, a plain mutex, one that warns when it is slow, and a guard.
//
//   PortableMutex mutex_;
//   { ScopedLock lock(mutex_); ... }
//
// No lock here is recursive and none may be copied. Every PortableMutex of the program is made without
// arguments, a plain mutex that never warns.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

class Lockable {
 public:
  virtual ~Lockable() = default;
  virtual void lock() = 0;
  virtual void unlock() = 0;
};

// Locks for the length of a scope.
class ScopedLock {
 public:
  explicit ScopedLock(Lockable& lockable) : lockable_(lockable) { lockable_.lock(); }
  ~ScopedLock() { lockable_.unlock(); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  Lockable& lockable_;
};

class BasicMutex : public Lockable {
 public:
  BasicMutex() = default;
  BasicMutex(const BasicMutex&) = delete;
  BasicMutex& operator=(const BasicMutex&) = delete;
  void lock() override { mutex_.lock(); }
  void unlock() override { mutex_.unlock(); }
  // Locks unless that means to wait; whether it did.
  bool tryLock() { return mutex_.try_lock(); }

 private:
  std::mutex mutex_;
};

// A report of a slow lock: the mutex, the thread that holds or held it, the threshold and the measured time, both in
// microseconds. It is called on the thread that took the lock: for a slow acquisition while it holds it, for a long
// hold after it let go.
using LockReport = void (*)(const char* mutexName, const char* holder, std::int64_t threshold, std::int64_t measured);

// Replace the process-wide reports; null brings back the default. The defaults write to standard error
//   lock contention warning, '<name>' took <milliseconds>ms to acquire
//   lock warning, '<name>' held for <milliseconds>ms
void setSlowAcquireReport(LockReport report);
void setLongHoldReport(LockReport report);

// A mutex that measures, by the wall clock, how long it takes to get and how long it is held, and reports what is above
// the thresholds.
class TimedMutex : public Lockable {
 public:
  // Null and empty names become "<unnamed mutex>", thresholds below 0 become 0.
  TimedMutex(const char* name, std::int64_t acquireWarnMicros, std::int64_t holdWarnMicros);
  TimedMutex(const TimedMutex&) = delete;
  TimedMutex& operator=(const TimedMutex&) = delete;
  void lock() override;
  void unlock() override;

  const std::string& name() const { return name_; }
  std::int64_t acquireWarnMicros() const { return acquireWarnMicros_; }
  std::int64_t holdWarnMicros() const { return holdWarnMicros_; }
  // When it was acquired, 0 while it is free. Only the holder may rely on it.
  std::int64_t acquiredAt() const { return acquiredAt_.load(std::memory_order_relaxed); }

 private:
  std::mutex mutex_;
  const std::string name_;
  const std::int64_t acquireWarnMicros_;
  const std::int64_t holdWarnMicros_;
  std::atomic<std::int64_t> acquiredAt_{0};
  std::string holder_;  // guarded by mutex_
};

// The mutex that everything uses: plain, or timed when both thresholds are at least 1.
class PortableMutex : public Lockable {
 public:
  PortableMutex() = default;
  PortableMutex(const char* name, std::int64_t acquireWarnMicros, std::int64_t holdWarnMicros);
  PortableMutex(const PortableMutex&) = delete;
  PortableMutex& operator=(const PortableMutex&) = delete;
  void lock() override;
  void unlock() override;
  // As for the plain mutex; a timed one is never locked so.
  bool tryLock() { return !isTimed() && basic_.tryLock(); }

  bool isTimed() const { return timed_ != nullptr; }

 private:
  BasicMutex basic_;  // unused when there is a timed one
  std::unique_ptr<TimedMutex> timed_;
};

// A mutex that can say whether the calling thread holds it, for code that may be entered again by what it calls while
// locked. Asking takes no lock. It is made for short holds: whoever finds it taken looks again for a moment before
// sleeping.
class OwnedMutex : public Lockable {
 public:
  void lock() override;
  void unlock() override;
  bool isHeldByThisThread() const { return owner_.load(std::memory_order_relaxed) == std::this_thread::get_id(); }

 private:
  PortableMutex mutex_;
  std::atomic<std::thread::id> owner_{};
};

// Locks for the length of a scope, unless the calling thread holds the lock already: then it is left alone.
class ScopedOwnedLock {
 public:
  explicit ScopedOwnedLock(OwnedMutex& mutex) : mutex_(mutex), wasHeld_(mutex.isHeldByThisThread()) {
    if (!wasHeld_) mutex_.lock();
  }
  ~ScopedOwnedLock() {
    if (!wasHeld_) mutex_.unlock();
  }
  ScopedOwnedLock(const ScopedOwnedLock&) = delete;
  ScopedOwnedLock& operator=(const ScopedOwnedLock&) = delete;

  bool wasHeld() const { return wasHeld_; }

 private:
  OwnedMutex& mutex_;
  const bool wasHeld_;
};
