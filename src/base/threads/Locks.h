// Locks: an interface for mutexes, a plain mutex, a mutex that reports slow use, a mutex that knows whether the calling
// thread holds it, and scoped guards.
//
//   PortableMutex mutex_;
//   { ScopedLock lock(mutex_); ... }
//
// No lock here is recursive. The program makes every PortableMutex without arguments: a plain
// mutex that never reports anything.
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

// Holds a lock from its construction to the end of its scope.
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

 private:
  std::mutex mutex_;
};

// Reports slow use of a lock: the names of the mutex and of the thread that holds or held it, the threshold, and the
// measured time, both in microseconds. It is called on the thread that took the lock. A slow acquisition is reported
// while the thread holds the lock, a long hold after the thread has released it.
using LockReport = void (*)(const char* mutexName, const char* holder, std::int64_t threshold, std::int64_t measured);

// Replace the process-wide reports. Null restores the default. The default reports write these lines to standard error:
//   lock contention warning, '<name>' took <milliseconds>ms to acquire
//   lock warning, '<name>' held for <milliseconds>ms
void setSlowAcquireReport(LockReport report);
void setLongHoldReport(LockReport report);

// A mutex that measures with the wall clock how long a thread waits for it and how long a thread holds it. It reports
// times above the thresholds.
class TimedMutex : public Lockable {
 public:
  // A null or empty name becomes "<unnamed mutex>". A negative threshold becomes 0.
  TimedMutex(const char* name, std::int64_t acquireWarnMicros, std::int64_t holdWarnMicros);
  TimedMutex(const TimedMutex&) = delete;
  TimedMutex& operator=(const TimedMutex&) = delete;
  void lock() override;
  void unlock() override;

  const std::string& name() const { return name_; }
  std::int64_t acquireWarnMicros() const { return acquireWarnMicros_; }
  std::int64_t holdWarnMicros() const { return holdWarnMicros_; }
  // The wall-clock time, in microseconds, at which the mutex was locked; 0 while it is free. Only the thread that holds
  // it may rely on the result.
  std::int64_t acquiredAt() const { return acquiredAt_; }

 private:
  std::mutex mutex_;
  const std::string name_;
  const std::int64_t acquireWarnMicros_;
  const std::int64_t holdWarnMicros_;
  std::atomic<std::int64_t> acquiredAt_{0};
  std::string holder_;  // guarded by mutex_
};

// The mutex that the program uses: plain, or timed if both thresholds are at least 1.
class PortableMutex : public Lockable {
 public:
  PortableMutex() = default;
  PortableMutex(const char* name, std::int64_t acquireWarnMicros, std::int64_t holdWarnMicros);
  PortableMutex(const PortableMutex&) = delete;
  PortableMutex& operator=(const PortableMutex&) = delete;
  void lock() override;
  void unlock() override;

  bool isTimed() const { return timed_ != nullptr; }

 private:
  BasicMutex basic_;  // unused if there is a timed one
  std::unique_ptr<TimedMutex> timed_;
};

// A mutex that knows whether the calling thread holds it. It is for code that calls out while locked and may be entered
// again by what it calls. isHeldByThisThread takes no lock.
class OwnedMutex : public Lockable {
 public:
  void lock() override;
  void unlock() override;
  bool isHeldByThisThread() const { return owner_.load(std::memory_order_relaxed) == std::this_thread::get_id(); }
  // Unlocks the mutex if the calling thread holds it. Only for a thread that ends the process: exit() does not return
  // to the code that locked the mutex, and other threads may be waiting for it.
  void unlockIfHeld() {
    if (isHeldByThisThread()) unlock();
  }

 private:
  PortableMutex mutex_;
  // Relaxed is enough: a thread only compares it with its own id, and only that thread itself stores that id.
  std::atomic<std::thread::id> owner_{};
};

// Holds an OwnedMutex to the end of its scope. If the calling thread holds the mutex already, it neither locks nor
// unlocks it.
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
