// EmergencyEmitter: prints the queued entries when the program can do nothing else any more.
#pragma once

#include "log/output/Emitter.h"

// Writes each entry to standard output, the header as text and the body as JSON:
// [ERROR 2024-03-01 12:00:05.000123] { "msg":"..." }
// It flushes standard output after each entry and does not sanitise anything.
class EmergencyEmitter : public BasicLog::Emitter {
 public:
  // Returns the only one of the process. It can be used until the process has ended.
  static EmergencyEmitter& instance();

  std::string formatBody(const BasicLog::LogMessage& message) override;
  void write(BasicLog::Level level, const std::string& header, const std::string& body) override;
  const char* name() const override { return "EmergencyEmitter"; }
};
