// The reports about the host: its interfaces, and the versions of what is installed.
#pragma once

#include "command/framework/CommandCore.h"

// list interfaces: the interfaces that can carry the overlay. Status: success or "stdlib error: getifaddrs".
class Hipcmd_GetInterfaces : public RavctlCommandInstance {
 public:
  Hipcmd_GetInterfaces();
  void execute(StatusCodeResultField& status) override;

 private:
  StringVectorResultField interfaces_{"_interfaces"};
};

// list versions: never fails. A firmware_revision that is there and cannot be read is reported as our own version, a
// missing one as an empty text; both deliberately.
class Hipcmd_GetVersions : public RavctlCommandInstance {
 public:
  Hipcmd_GetVersions();
  void execute(StatusCodeResultField& status) override;

 private:
  StringResult hipappVersion_{"hipapp_version"};
  StringResult ravctlVersion_{"ravctl_version"};
};
