// EmitContext: records what the calling thread is doing for the log's output. Only the log's own sources use it.
#pragma once

#include <cstdint>
#include <optional>

namespace BasicLog {

// Has these initial values on every thread that is not passing entries to emitters.
struct EmitContext {
  bool isEmittingEcho = false;              // the entry that emitters write was itself logged by an emitter
  std::optional<std::int64_t> localOffset;  // while emitting: TimeUtils::localOffsetMicros for the entry being written

  // Returns true while emitters run on this thread, so that it is an emitter that logs now.
  bool isEmitting() const { return localOffset.has_value(); }
};

// Returns the context of the calling thread.
EmitContext& emitContext();

// Works like TimeUtils::toLocalTicks, but uses localOffset while the thread is emitting.
std::int64_t localTicks(std::int64_t micros);

}  // namespace BasicLog
