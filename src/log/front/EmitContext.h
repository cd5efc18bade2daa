// EmitContext: records what the calling thread is doing for the log's output. Only the log's own sources use it.
#pragma once

#include <cstdint>

namespace BasicLog {

// Has these initial values on every thread that is not passing entries to emitters.
struct EmitContext {
  bool isEmitting = false;       // emitters run on this thread, so it is an emitter that logs now
  bool isEmittingEcho = false;   // and the entry that they write was itself logged by an emitter
  std::int64_t localOffset = 0;  // while emitting: TimeUtils::localOffsetMicros for the entry that is being written
};

// Returns the context of the calling thread.
EmitContext& emitContext();

// Works like TimeUtils::toLocalTicks, but uses localOffset while the thread is emitting.
std::int64_t localTicks(std::int64_t micros);

}  // namespace BasicLog
