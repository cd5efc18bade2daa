#include "profiles/commands/ProfileCommands.h"

#include <utility>

#include "base/text/StringUtils.h"
#include "command/framework/Authorization.h"
#include "profiles/store/NameRepair.h"

using StringUtils::concatenate;

void ProfileDetailsResultField::render(ValueBinder& sink) const {
  if (!details_.filled) return;
  const ConfigControl::HelmsorAddress& helmsor = details_.helmsor;
  const std::string address = helmsor.port.empty() ? helmsor.host : concatenate({helmsor.host, ":", helmsor.port});
  struct Row {
    std::string_view key;
    const std::string& value;
    bool shown;
  };
  const Row rows[] = {{"profile_dir", details_.dirname, true},
                      {"profile_name", details_.name, true},
                      {"network", details_.network, true},
                      {"deviceID", details_.deviceId, true},
                      {"overlay_device_ip", details_.overlayDeviceIp, true},
                      {"overlay_mask", details_.overlayMask, true},
                      {"invitation", details_.invitation, !details_.invitation.empty()},
                      {"helmsor", address, !helmsor.host.empty()},
                      {"log_level", details_.logLevel, true}};
  std::vector<std::string> lines;
  for (const Row& row : rows) {
    if (row.shown) {
      lines.push_back(concatenate({row.key, "=", row.value}));
    }
  }
  sink.takeStringList({}, std::move(lines));  // a list without a key is rendered without a heading
}

void Hipcmd_GetProfiles::ProfileListResultField::render(ValueBinder& sink) const {
  std::vector<std::string> lines;
  lines.reserve(listing.sorted().size());
  for (const ProfileListing::Entry* profile : listing.sorted()) {
    lines.push_back(concatenate({profile->dirname, "\t'", profile->name, "'"}));
  }
  sink.takeStringList(name(), std::move(lines));
}

Hipcmd_GetProfiles::Hipcmd_GetProfiles() : RavctlCommandInstance("list profiles") {
  reports({&profiles_, &currentDir_, &currentName_, &rootDir_});
}

void Hipcmd_GetProfiles::execute(StatusCodeResultField& status) {
  NameRepair::Limit limit;
  (void)ProfileControl::ensureActiveProfile();  // if it fails, the store is listed nevertheless
  if (!profiles_.listing.read()) {
    status.set(status::applicationError);
    return;
  }
  ProfileRecord active;
  (void)ProfileStore::readActiveRecord(active);  // without an active profile the name is empty
  currentName_.set(active.name);
  if (mode().verbose) {
    currentDir_.set(active.dirname);
    rootDir_.set(ProfileStore::profilesRoot());
  }
  status.set(status::success);
}

Hipcmd_ShowProfile::Hipcmd_ShowProfile(std::string_view selector)
    : RavctlCommandInstance("profile details"), profile_(Show::hidden, selector) {
  takes({&profile_});
  reports({&details_});
}

void Hipcmd_ShowProfile::execute(StatusCodeResultField& status) {
  NameRepair::Limit limit;
  (void)ProfileControl::ensureActiveProfile();  // if it fails, the details are reported nevertheless
  status.set(ProfileControl::cmdGetProfileDetails(profile_.value(), details_.details()));
}

Hipcmd_CreateProfile::Hipcmd_CreateProfile(std::string_view name)
    : RavctlCommandInstance("profile create"), newName_("new_name", Need::optional, Show::hidden, name) {
  takes({&newName_, &allowRename_, &helmsor_, &network_, &invitation_, &logLevel_, &sys_, &activate_});
  reports({&details_, &profileName_});
}

void Hipcmd_CreateProfile::execute(StatusCodeResultField& status) {
  NameRepair::Limit limit;
  if (!isAuthorized()) return status.set(status::authenticationError);  // before it reads the store
  NewProfile wanted;
  wanted.name = newName_.value();
  wanted.allowRename = allowRename_.value();
  wanted.helmsorHost = helmsor_.host();
  wanted.helmsorPort = helmsor_.port();
  wanted.network = network_.hasValue() ? network_.value() : "";
  wanted.invitation = invitation_.value();
  wanted.initSystem = sys_.resolved();
  wanted.activate = activate_.isPresent();

  CreatedProfile made;
  Status created = ProfileControl::createProfile(wanted, made);
  if (created.isSuccess()) {
    profileName_.set(made.name);
    if (!mode().quiet) details_.details() = std::move(made.details);
  }
  status.set(std::move(created));
}
