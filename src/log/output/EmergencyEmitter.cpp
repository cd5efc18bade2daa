#include "log/output/EmergencyEmitter.h"

#include <cstdio>

#include "log/output/LogOutput.h"

EmergencyEmitter& EmergencyEmitter::instance() {
  static auto* const emitter = new EmergencyEmitter;  // never deleted: the log is flushed late
  return *emitter;
}

std::string EmergencyEmitter::formatBody(const BasicLog::LogMessage& message) { return BasicLog::jsonBody(message); }

void EmergencyEmitter::write(BasicLog::Level, const std::string& header, const std::string& body) {
  (void)std::printf("%s %s\n", header.c_str(), body.c_str());  // there is nowhere left to report a failure to
  (void)std::fflush(stdout);
}

// Here and not with the rest of the output, so that a program that never calls it does without stdio.
void LogOutput::emergencyFlush() {
  {
    const ScopedOwnedLock lock(emittersMutex_);
    if (lock.wasHeld()) endBatch();  // of those that go
    emitters_.assign(1, &EmergencyEmitter::instance());
  }
  flush();
}
