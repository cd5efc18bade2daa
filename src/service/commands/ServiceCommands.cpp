#include "service/commands/ServiceCommands.h"

#include "command/framework/Authorization.h"
#include "service/host/SystemSpecificImpl.h"

namespace {

// Checks the authorization first. Without it, this neither detects the init system nor forks.
Status control(const SysImplParam& sys, void (SystemSpecificImpl::*operation)()) {
  return isAuthorized() ? runBackendOperation(sys.resolved(), operation) : Status::of(status::authenticationError);
}

}  // namespace

Hipcmd_ServiceStart::Hipcmd_ServiceStart() : RavctlCommandInstance("service start") { takes({&sys_}); }
void Hipcmd_ServiceStart::execute(StatusCodeResultField& status) {
  status.set(control(sys_, &SystemSpecificImpl::start));
}

Hipcmd_ServiceStop::Hipcmd_ServiceStop() : RavctlCommandInstance("service stop") { takes({&sys_}); }
void Hipcmd_ServiceStop::execute(StatusCodeResultField& status) {
  status.set(control(sys_, &SystemSpecificImpl::stop));
}

Hipcmd_ServiceBounce::Hipcmd_ServiceBounce() : RavctlCommandInstance("service restart") { takes({&sys_, &full_}); }
void Hipcmd_ServiceBounce::execute(StatusCodeResultField& status) {
  status.set(control(sys_, &SystemSpecificImpl::restart));
}
