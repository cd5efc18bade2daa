#include "service/commands/LogCommands.h"

#include "profiles/store/NameRepair.h"
#include "profiles/store/ProfileStore.h"
#include "service/host/Heartbeat.h"
#include "service/host/LogExcerpt.h"
#include "service/host/SupportBundle.h"

Hipcmd_GetHipLog::Hipcmd_GetHipLog(std::string_view selector)
    : RavctlCommandInstance("list log"), profile_(Show::hidden, selector) {
  takes({&profile_, &maxLines_, &logLevel_});
  reports({&log_, &profileName_});
}

void Hipcmd_GetHipLog::execute(StatusCodeResultField& status) {
  NameRepair::Limit limit;
  ProfileRecord profile;
  Status s = ProfileStore::resolveSelector(profile_.value(), profile);
  if (s.isSuccess()) {
    std::string file;
    (void)ProfileStore::fileInProfile(profile.dirname, logFileName, file);  // an empty path counts as a missing log
    s = readLogExcerpt(file, BasicLog::parseLogLevel(logLevel_.value()), maxLines_.value(), log_.list());
  }
  if (s.code() == status::success) {
    profileName_.set(profile.name);
  }
  status.set(s);
}

Hipcmd_ShowStatus::Hipcmd_ShowStatus() : RavctlCommandInstance("service status") {
  reports({&running_, &helmsor_, &tunnel_});
}

void Hipcmd_ShowStatus::execute(StatusCodeResultField& status) {
  std::string file;
  (void)ProfileStore::fileInActiveProfile(variablesFileName, file);  // without a path the daemon counts as not running
  ServiceStatus report;
  status.set(readServiceStatus(file, report));
  if (report.running == RunState::running) {
    running_.set(true);
    helmsor_.set(report.helmsor == RunState::running);
    tunnel_.set(report.tunnel == RunState::running);
  }
}

Hipcmd_SupportBundle::Hipcmd_SupportBundle() : RavctlCommandInstance("support bundle") { reports({&output_}); }

void Hipcmd_SupportBundle::execute(StatusCodeResultField& status) { status.set(runSupportBundle()); }
