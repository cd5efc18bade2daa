// EmergencyEmitter: what entries go to when the program can do no more than say them.
#pragma once

#include "log/output/Emitter.h"

// Writes the header with its time and the body as JSON, "[ERROR 2024-03-01 12:00:05.000123] { "msg":"..." }", to
// standard output, and flushes it after each entry. Nothing is sanitised.
class EmergencyEmitter : public BasicLog::Emitter {
 public:
  // The one of the process. It lives until the process ends, whatever else is destroyed at exit.
  static EmergencyEmitter& instance();

  std::string formatBody(const BasicLog::LogMessage& message) override;
  void write(BasicLog::Level level, const std::string& header, const std::string& body) override;
  const char* name() const override { return "EmergencyEmitter"; }
};
