// ServiceCommands: the commands that control the daemon. Each uses the init system of the host, or the one that `sys`
// names.
// Statuses: "authentication error ..." if the user may not change the system; the command then detects no init system
// and starts no process. Otherwise those of runBackendOperation.
#pragma once

#include "command/framework/CommandCore.h"
#include "service/host/SysImplParam.h"

class Hipcmd_ServiceStart : public RavctlCommandInstance {
 public:
  Hipcmd_ServiceStart();
  void execute(StatusCodeResultField& status) override;

 private:
  SysImplParam sys_;
};

class Hipcmd_ServiceStop : public RavctlCommandInstance {
 public:
  Hipcmd_ServiceStop();
  void execute(StatusCodeResultField& status) override;

 private:
  SysImplParam sys_;
};

// service restart, service bounce. The word "full" is accepted and deliberately changes nothing.
class Hipcmd_ServiceBounce : public RavctlCommandInstance {
 public:
  Hipcmd_ServiceBounce();
  void execute(StatusCodeResultField& status) override;

 private:
  SysImplParam sys_;
  SingleWordParam full_{"full"};
};
