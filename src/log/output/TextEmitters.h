// The emitters that need no settings. They write to standard output, to standard error, or nowhere.
//
// Each entry becomes a line: the text header, a blank and the text body. The whole line is sanitised, so an entry is
// always exactly one line. Write failures are not reported.
#pragma once

#include "log/output/EmitterActor.h"

// Formats entries and drops them.
class NullEmitterActor : public EmitterActor {
 public:
  using EmitterActor::EmitterActor;
  void write(BasicLog::Level level, const std::string& header, const std::string& body) override;
  const char* name() const override { return "NullEmitter"; }
};

// Writes to the stream stdout. The buffer of the stream decides when a line appears.
class StdoutEmitterActor : public EmitterActor {
 public:
  using EmitterActor::EmitterActor;
  void write(BasicLog::Level level, const std::string& header, const std::string& body) override;
  const char* name() const override { return "StdoutEmitter"; }
};

// Writes each line at once to file descriptor 2.
class StderrEmitterActor : public EmitterActor {
 public:
  using EmitterActor::EmitterActor;
  void write(BasicLog::Level level, const std::string& header, const std::string& body) override;
  const char* name() const override { return "StderrEmitter"; }
};
