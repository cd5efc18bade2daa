// QueuePeers: access to the private parts of the queues, so that tests can damage a queue.
#pragma once

#include <cstddef>

#include "base/tasks/PointerQueue.h"
#include "log/output/WorkQueue.h"

class SimplePointerQueuePeer {
 public:
  static constexpr std::size_t kBlockSize = sizeof(SimplePointerQueue::Block);

  // Leaves the queue with a head and no tail. The next push then fails an assertion while it holds the queue's lock.
  static void loseTail(SimplePointerQueue& queue) { queue.tail_ = nullptr; }
};

class WorkQueuePeer {
 public:
  // The same for the queue inside a work queue.
  template <typename T>
  static void loseTail(TypedWorkQueue<T>& queue) {
    SimplePointerQueuePeer::loseTail(queue.queue_);
  }
};
