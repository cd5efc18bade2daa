// TypedWorkQueue: a first-in first-out queue that owns its objects. Many threads push, and one or more threads pop.
//
//   TypedWorkQueue<BasicLog::LogMessage const> queue;
//   if (!queue.push(message)) ...              // `message` still owns the object
//   queue.popMany(batch);                      // up to batch.size() objects
//
// The queue has no size limit. Its destructor frees the objects that are still queued.
// Threads: every function may be called from any thread.
// Re-entry: a thread may call the queue while it already holds the queue's lock, because a failed assertion inside the
// queue is logged. Such a call does not deadlock: a push is refused, and a pop returns nothing.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

#include "base/tasks/PointerQueue.h"
#include "base/threads/Locks.h"

template <typename T>
class TypedWorkQueue {
 public:
  TypedWorkQueue() = default;
  ~TypedWorkQueue() {
    while (pop()) {
    }
  }
  TypedWorkQueue(const TypedWorkQueue&) = delete;
  TypedWorkQueue& operator=(const TypedWorkQueue&) = delete;

  // Moves the object from `item` into the queue and returns how many objects the queue has then. Returns 0, and leaves
  // `item` unchanged, if `item` is null, if memory runs out, or if the calling thread is inside the queue.
  [[nodiscard]] std::size_t push(std::unique_ptr<T>& item) {
    if (queue_.isHeldByThisThread()) return 0;
    const ScopedLock lock(queue_);
    if (!queue_.push(const_cast<std::remove_const_t<T>*>(item.get()))) return 0;
    (void)item.release();  // the queue has it
    return ++size_;
  }

  // Returns how many objects are queued.
  std::size_t size() {
    const ScopedOwnedLock lock(queue_);
    return size_;
  }

  // Returns true if the calling thread is inside the queue.
  bool isHeldByThisThread() const { return queue_.isHeldByThisThread(); }
  // Unlocks the queue if the calling thread is inside it. Only for a thread that ends the process (see OwnedMutex).
  void unlockIfHeld() { queue_.unlockIfHeld(); }

  // Removes and returns the oldest object. Returns null if the queue is empty.
  std::unique_ptr<T> pop() {
    std::array<std::unique_ptr<T>, 1> one;
    popMany(one);
    return std::move(one[0]);
  }

  // Moves the oldest objects into the first places of the batch and returns how many it moved. The other places become
  // null.
  template <std::size_t size>
  std::size_t popMany(std::array<std::unique_ptr<T>, size>& batch) {
    std::array<void*, size> pointers{};
    std::size_t count = 0;
    if (!queue_.isHeldByThisThread()) {
      const ScopedLock lock(queue_);
      const std::size_t wanted = std::min(size, size_);
      queue_.popMany(pointers.data(), wanted);
      const auto end = pointers.begin() + wanted;
      count = static_cast<std::size_t>(std::find(pointers.begin(), end, nullptr) - pointers.begin());
      size_ = count < wanted ? 0 : size_ - count;  // a broken chain, already reported, has lost the others
    }
    for (std::size_t i = 0; i < size; ++i) batch[i].reset(static_cast<T*>(pointers[i]));
    return count;
  }

 private:
  friend class WorkQueuePeer;  // its test
  SimplePointerQueue queue_;
  std::size_t size_ = 0;  // guarded by the queue's lock
};
