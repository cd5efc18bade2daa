// What tests do to queues, and no caller can.
#pragma once

#include "base/tasks/PointerQueue.h"
#include "log/output/WorkQueue.h"

class SimplePointerQueuePeer {
 public:
  // Breaks the chain: it has a head and no tail. The next push is an assertion under the queue's lock.
  static void loseTail(SimplePointerQueue& queue) {
    queue.tail_ = nullptr;
    queue.in_ = queue.inEnd_ = nullptr;
  }
};

class WorkQueuePeer {
 public:
  template <typename T>
  static void loseTail(TypedWorkQueue<T>& queue) {
    SimplePointerQueuePeer::loseTail(queue.queue_);
  }
};
