// MessagePool: where messages wait between their end and their next use, so that a steady flow of entries allocates
// nothing and no thread frees what another one allocated.
//
//   std::unique_ptr<LogMessage> message = MessagePool::take();
//   ...
//   MessagePool::giveBack(batch);                    // many at once, from the thread that handed them out
//
// For the log's own sources. Threads: everything may be called from any thread. Bounds: some 1,300 messages are kept,
// of ordinary size; what goes beyond is freed.
#pragma once

#include <array>
#include <cstddef>
#include <memory>

#include "log/front/BasicLog.h"

namespace BasicLog {

class MessagePool {
 public:
  static constexpr std::size_t bundleSize = 20;
  using Batch = std::array<std::unique_ptr<const LogMessage>, bundleSize>;

  // A message to begin anew: what it holds is left over from another.
  static std::unique_ptr<LogMessage> take();
  // Takes the messages out of the batch. They must have been made by take.
  static void giveBack(Batch& batch);
};

}  // namespace BasicLog
