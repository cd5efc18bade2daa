// HostReports: the commands that report the host's network interfaces and the installed versions.
#pragma once

#include "command/framework/CommandCore.h"

// list interfaces: lists the interfaces that can carry the overlay, by the rules of ConfigControl::read_networks, so a
// name occurs once for each IPv4 address that the rules allow. Status: success or "stdlib error: getifaddrs".
class Hipcmd_GetInterfaces : public RavctlCommandInstance {
 public:
  Hipcmd_GetInterfaces();
  void execute(StatusCodeResultField& status) override;

 private:
  StringVectorResultField interfaces_{"_interfaces"};
};

// list versions: reports the version of the installed application and that of this program; never fails. The first is
// the first line of the template's firmware_revision that is not blank (see FileUtils::readFirstLine). If that is a
// regular file that cannot be read, the command reports this program's version in its place. If it is missing or not a
// regular file, or if all its lines are blank, the command reports an empty text. Both are deliberate.
class Hipcmd_GetVersions : public RavctlCommandInstance {
 public:
  Hipcmd_GetVersions();
  void execute(StatusCodeResultField& status) override;

 private:
  StringResult hipappVersion_{"hipapp_version"};
  StringResult ravctlVersion_{"ravctl_version"};
};
