// TypedWorkQueue: a queue of owned objects that many threads fill and one or more empty.
//
//   TypedWorkQueue<BasicLog::LogMessage const> queue;
//   if (!queue.push(message)) ...              // still ours
//   queue.popMany(batch);                      // up to batch.size() of them
//
// Order is the order of arrival; there is no limit. What is still queued is freed with the queue.
// Threads: every function locks for itself. A thread that comes back into a queue it is inside of (an assertion about
// the queue is itself logged) is refused instead of waiting for itself: it can push and pop nothing.
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

  // Takes the object out of `item`. False leaves it there: null, no memory, or the calling thread is inside the queue.
  [[nodiscard]] bool push(std::unique_ptr<T>& item) {
    std::size_t queued = 0;
    return push(item, queued);
  }
  // The same; `queued` becomes how many objects are in the queue then, and stays as it is when it is refused.
  [[nodiscard]] bool push(std::unique_ptr<T>& item, std::size_t& queued) {
    if (queue_.isHeldByThisThread()) return false;
    const ScopedLock lock(queue_);
    if (!queue_.push(const_cast<std::remove_const_t<T>*>(item.get()))) return false;
    (void)item.release();  // the queue has it
    queued = ++size_;
    return true;
  }

  // How many objects are queued.
  std::size_t size() {
    const ScopedOwnedLock lock(queue_);
    return size_;
  }

  // Whether the calling thread is inside the queue.
  bool isHeldByThisThread() const { return queue_.isHeldByThisThread(); }

  // The oldest object, null when there is none.
  std::unique_ptr<T> pop() {
    std::array<std::unique_ptr<T>, 1> one;
    popMany(one);
    return std::move(one[0]);
  }

  // Fills the batch from its start with the oldest objects, under one lock, and returns how many there were. The rest
  // of the batch is null.
  template <std::size_t size>
  std::size_t popMany(std::array<std::unique_ptr<T>, size>& batch) {
    std::array<void*, size> pointers{};
    std::size_t count = 0;
    if (!queue_.isHeldByThisThread()) {
      const ScopedLock lock(queue_);
      const std::size_t wanted = std::min(size, size_);
      queue_.popMany(pointers.data(), wanted);
      while (count < wanted && pointers[count] != nullptr) ++count;
      size_ = count < wanted ? 0 : size_ - count;  // a broken chain, which was reported, has lost the rest
    }
    for (std::size_t i = 0; i < size; ++i) batch[i].reset(static_cast<T*>(pointers[i]));
    return count;
  }

 private:
  friend class WorkQueuePeer;  // its test
  SimplePointerQueue queue_;
  std::size_t size_ = 0;  // guarded by the queue's lock
};
