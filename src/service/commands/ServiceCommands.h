// The commands that control the daemon. Each acts through the init system of the host or the one named with `sys`.
// Statuses: success, "authentication error ..." (nothing is run then), and those of runBackendOperation.
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

// service restart, service bounce. "full" is accepted and changes nothing, which is deliberate.
class Hipcmd_ServiceBounce : public RavctlCommandInstance {
 public:
  Hipcmd_ServiceBounce();
  void execute(StatusCodeResultField& status) override;

 private:
  SysImplParam sys_;
  SingleWordParam full_{"full"};
};
