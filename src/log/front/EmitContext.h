// What the calling thread is doing for the log's output. For the log's own sources.
#pragma once

#include <cstdint>

namespace BasicLog {

// At rest, as it stands here, on every thread that hands no entries to emitters.
struct EmitContext {
  bool isEmitting = false;       // inside the emitters of a batch: what is logged now was logged by an emitter
  bool isEmittingEcho = false;   // and they have an entry that was itself logged by an emitter
  std::int64_t localOffset = 0;  // while emitting: TimeUtils::localOffsetMicros for the entry in hand
};

// That of the calling thread.
EmitContext& emitContext();

// TimeUtils::toLocalTicks, with the offset of the entry in hand while there is one.
std::int64_t localTicks(std::int64_t micros);

}  // namespace BasicLog
