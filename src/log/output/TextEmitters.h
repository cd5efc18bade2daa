// The emitters that need no settings: nowhere, standard output, standard error.
//
// A line is the text header, a blank and the text body. It is sanitised as a whole, so that one entry is one line
// whatever it holds. Failures to write are not reported.
#pragma once

#include "log/output/EmitterActor.h"

// Formats entries and drops them.
class NullEmitterActor : public EmitterActor {
 public:
  using EmitterActor::EmitterActor;
  void write(BasicLog::Level level, const std::string& header, const std::string& body) override;
  const char* name() const override { return "NullEmitter"; }
};

// To stdout, by way of its buffer: when a line appears is up to the stream.
class StdoutEmitterActor : public EmitterActor {
 public:
  using EmitterActor::EmitterActor;
  void write(BasicLog::Level level, const std::string& header, const std::string& body) override;
  const char* name() const override { return "StdoutEmitter"; }
};

// To descriptor 2, each line at once.
class StderrEmitterActor : public EmitterActor {
 public:
  using EmitterActor::EmitterActor;
  void write(BasicLog::Level level, const std::string& header, const std::string& body) override;
  const char* name() const override { return "StderrEmitter"; }
};
