// SyslogEmitterActor: accepts the configuration of a system log emitter and writes nothing.
#pragma once

#include "log/output/EmitterActor.h"

// It has two settings, "subsystem" and "category"; both are required. It formats entries and drops them. That is
// deliberate: configurations that name this emitter rely on its silence. Programs that want to write to the system log
// use BasicLog::SyslogConnection.
class SyslogEmitterActor : public EmitterActor {
 public:
  using EmitterActor::EmitterActor;

  using Actor::setConfig;
  zuvsvc::ConfigResult setConfig(TextOrNull key, TextOrNull text) override;
  // Returns false if a setting is missing or empty, and logs "required config field not present" for the first one.
  bool verifyConfig() override;
  void write(BasicLog::Level level, const std::string& header, const std::string& body) override;
  const char* name() const override { return "SyslogEmitter"; }

 private:
  std::string subsystem_;
  std::string category_;
};
