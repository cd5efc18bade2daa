// SyslogEmitterActor: the place of a system log emitter in a configuration.
#pragma once

#include "log/output/EmitterActor.h"

// Settings, both required: "subsystem", "category". Entries are formatted and dropped: deliberate, configurations that
// name this emitter rely on its silence. The system log itself is reached by BasicLog::SyslogConnection.
class SyslogEmitterActor : public EmitterActor {
 public:
  using EmitterActor::EmitterActor;

  using Actor::setConfig;
  zuvsvc::ConfigResult setConfig(std::string_view key, std::string_view text) override;
  // False when a setting is missing or empty. The first such one is logged: "required config field not present".
  bool verifyConfig() override;
  void write(BasicLog::Level level, const std::string& header, const std::string& body) override;
  const char* name() const override { return "SyslogEmitter"; }

 private:
  std::string subsystem_;
  std::string category_;
};
