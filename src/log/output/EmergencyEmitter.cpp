#include "log/output/EmergencyEmitter.h"

#include <cstdio>

#include "log/output/LogOutput.h"

EmergencyEmitter& EmergencyEmitter::instance() {
  static auto* const emitter = new EmergencyEmitter;  // never deleted, because the log may be flushed during exit
  return *emitter;
}

std::string EmergencyEmitter::formatBody(const BasicLog::LogMessage& message) { return BasicLog::jsonBody(message); }

void EmergencyEmitter::write(BasicLog::Level, const std::string& header, const std::string& body) {
  (void)std::printf("%s %s\n", header.c_str(), body.c_str());  // nothing is left to report a failure to
  (void)std::fflush(stdout);
}

// Defined here and not in LogOutput.cpp, so that a static program that never calls it does not link stdio.
void LogOutput::emergencyFlush() {
  {
    const ScopedOwnedLock lock(emittersMutex_);
    emitters_.assign(1, &EmergencyEmitter::instance());
  }
  flush();
}
