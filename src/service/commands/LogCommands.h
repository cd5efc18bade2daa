// LogCommands: the commands that observe the daemon. They show an excerpt of its log, show its status, and make a
// support bundle.
#pragma once

#include <string_view>

#include "command/framework/CommandCore.h"

// list log SELECTOR, show log SELECTOR. A text that names no level means the level info. Statuses: the failures of
// ProfileStore::resolveSelector; otherwise those of readLogExcerpt. The profile name is reported only with plain
// success.
class Hipcmd_GetHipLog : public RavctlCommandInstance {
 public:
  explicit Hipcmd_GetHipLog(std::string_view selector);
  void execute(StatusCodeResultField& status) override;

 private:
  OptionalProfileParam profile_;
  IntParam maxLines_{"max_lines", Need::optional, 50};
  OptionalLogLevelParam logLevel_;
  StringVectorResultField log_{"_log"};
  StringResult profileName_{"profile_name"};
};

// service status. Statuses: those of readServiceStatus. All fields are false unless the daemon runs; "unknown" is shown
// as false.
class Hipcmd_ShowStatus : public RavctlCommandInstance {
 public:
  Hipcmd_ShowStatus();
  void execute(StatusCodeResultField& status) override;

 private:
  BoolResult running_{"running"};
  BoolResult helmsor_{"helmsor"};
  BoolResult tunnel_{"tunnel"};
};

// support bundle. Statuses: those of runSupportBundle. `output` is never set; the script itself names the bundle.
class Hipcmd_SupportBundle : public RavctlCommandInstance {
 public:
  Hipcmd_SupportBundle();
  void execute(StatusCodeResultField& status) override;

 private:
  StringResult output_{"output"};
};
