// EmitterFactory: creates emitters by the name of their type.
//
//   type              settings                       what it does with an entry
//   "null_emitter"                                   formats and drops it
//   "stdout_emitter"                                 writes a line to standard output
//   "stderr_emitter"                                 writes a line to standard error
//   "syslog_emitter"  "subsystem", "category"        formats and drops it
//   "file_emitter"    "interval", "prefix", "dir"    writes a line to the file of the period
#pragma once

#include "log/output/Actor.h"

class EmitterFactory : public zuvsvc::ActorFactory {
 public:
  std::unique_ptr<zuvsvc::Actor> create(const zuvsvc::CreationRequest& request) const override;
  void listTypes(std::vector<std::string>& names) const override;
};
