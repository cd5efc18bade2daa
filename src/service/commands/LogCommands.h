// The commands that look at the daemon from outside: an excerpt of its log, its status, a support bundle.
#pragma once

#include <string_view>

#include "command/framework/CommandCore.h"

// list log SELECTOR, show log SELECTOR
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

// service status
class Hipcmd_ShowStatus : public RavctlCommandInstance {
 public:
  Hipcmd_ShowStatus();
  void execute(StatusCodeResultField& status) override;

 private:
  BoolResult running_{"running"};
  BoolResult helmsor_{"helmsor"};
  BoolResult tunnel_{"tunnel"};
};

// support bundle. `output` stays unset: the script names the bundle itself.
class Hipcmd_SupportBundle : public RavctlCommandInstance {
 public:
  Hipcmd_SupportBundle();
  void execute(StatusCodeResultField& status) override;

 private:
  StringResult output_{"output"};
};
