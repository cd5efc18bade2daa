#include "profiles/commands/HostReports.h"

#include <utility>

#include "base/files/WholeFile.h"
#include "profiles/store/ConfigControl.h"
#include "profiles/store/ProfileStore.h"

namespace {
constexpr const char* version = "2.2";
constexpr const char* revisionFile = "firmware_revision";
}  // namespace

Hipcmd_GetInterfaces::Hipcmd_GetInterfaces() : RavctlCommandInstance("list interfaces") { reports({&interfaces_}); }

void Hipcmd_GetInterfaces::execute(StatusCodeResultField& status) {
  status.set(ConfigControl::read_networks(interfaces_.list()) ? status::success : status::getifaddrsError);
}

Hipcmd_GetVersions::Hipcmd_GetVersions() : RavctlCommandInstance("list versions") {
  reports({&hipappVersion_, &ravctlVersion_});
}

void Hipcmd_GetVersions::execute(StatusCodeResultField& status) {
  ravctlVersion_.set(version);
  std::string revision;
  std::string file;
  (void)ProfileStore::fileInProfile(ProfileStore::factoryName, revisionFile, file);  // false only for an empty name
  const bool read = FileUtils::readFirstLine(file, revision).isSuccess();
  hipappVersion_.set(read ? std::move(revision) : version);
  status.set(status::success);
}
