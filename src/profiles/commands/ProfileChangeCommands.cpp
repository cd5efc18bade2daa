#include "profiles/commands/ProfileChangeCommands.h"

#include <optional>
#include <utility>

#include "command/framework/Authorization.h"
#include "profiles/store/NameRepair.h"
#include "profiles/store/ProfileChanges.h"
#include "profiles/store/ProfileStore.h"

namespace {

std::optional<std::string> given(const TextParam& param) {
  return param.hasValue() ? std::optional<std::string>(param.value()) : std::nullopt;
}

bool selectsActive(const std::string& selector) {
  return selector == ProfileStore::currentName || selector == ProfileStore::activeName;
}

}  // namespace

Hipcmd_ModifyProfile::Hipcmd_ModifyProfile(std::string_view selector)
    : RavctlCommandInstance("profile modify"), profile_(Show::hidden, selector) {
  takes({&profile_, &newName_, &helmsor_, &network_, &invitation_, &logLevel_, &sys_, &activate_});
  reports({&details_});
}

void Hipcmd_ModifyProfile::execute(StatusCodeResultField& status) {
  NameRepair::Limit limit;
  if (!isAuthorized()) return status.set(status::authenticationError);  // before it reads the store
  (void)ProfileControl::ensureActiveProfile();  // if it fails, the command continues nevertheless
  ProfileChanges::Modification wanted;
  wanted.newName = given(newName_);
  wanted.hasHelmsor = helmsor_.hasValue();
  wanted.helmsorHost = helmsor_.host();
  wanted.helmsorPort = helmsor_.port();
  wanted.network = given(network_);
  wanted.invitation = given(invitation_);
  wanted.logLevel = given(logLevel_);
  wanted.initSystem = sys_.resolved();
  wanted.activate = activate_.isPresent();
  status.set(ProfileChanges::modifyProfile(profile_.value(), wanted, details_.details()));
  if (mode().quiet) details_.clear();
}

Hipcmd_ActivateProfile::Hipcmd_ActivateProfile(std::string_view selector)
    : RavctlCommandInstance("profile activate"), profile_(Show::hidden, selector) {
  takes({&profile_, &sys_});
  reports({&profileName_});
}

void Hipcmd_ActivateProfile::execute(StatusCodeResultField& status) {
  NameRepair::Limit limit;
  if (!isAuthorized()) return status.set(status::authenticationError);  // before it reads the store
  const std::string initSystem = sys_.resolved();
  if (selectsActive(profile_.value()) && ProfileControl::isActiveDirectoryMissing()) {
    CreatedProfile made;
    Status elected = ProfileControl::ensureActiveProfile(initSystem, made);
    if (made.isStartTried) {  // so the new profile is active, and a second start would be one too many
      profileName_.set(std::move(made.name));
      return status.set(std::move(elected));
    }
  }
  std::string name;
  status.set(ProfileChanges::activateProfile(profile_.value(), initSystem, name));
  profileName_.set(std::move(name));
}

Hipcmd_DeleteProfile::Hipcmd_DeleteProfile(std::string_view selector)
    : RavctlCommandInstance("profile delete"), profile_(Show::hidden, selector) {
  takes({&profile_});
}

void Hipcmd_DeleteProfile::execute(StatusCodeResultField& status) {
  NameRepair::Limit limit;
  Status deleted = ProfileChanges::deleteProfile(profile_.value());
  if (deleted.isSuccess()) {
    (void)ProfileControl::ensureActiveProfile();  // the deletion succeeded even if no other profile becomes active
  }
  status.set(std::move(deleted));
}

Hipcmd_RenameProfile::Hipcmd_RenameProfile(std::string_view selector)
    : RavctlCommandInstance("profile rename"), profile_(Show::hidden, selector) {
  takes({&profile_, &newName_});
  reports({&profileName_});
}

void Hipcmd_RenameProfile::execute(StatusCodeResultField& status) {
  NameRepair::Limit limit;
  if (!isAuthorized()) return status.set(status::authenticationError);  // before it reads the store
  (void)ProfileControl::ensureActiveProfile();  // if it fails, the command continues nevertheless
  std::string name;
  status.set(ProfileChanges::renameProfile(profile_.value(), newName_.value(), name));
  profileName_.set(std::move(name));
}

Hipcmd_ProfileReset::Hipcmd_ProfileReset(std::string_view selector)
    : RavctlCommandInstance("support reset"), profile_(Show::hidden, selector) {
  takes({&profile_});
  reports({&reset_});
}

void Hipcmd_ProfileReset::execute(StatusCodeResultField& status) {
  NameRepair::Limit limit;
  std::string name;
  status.set(ProfileChanges::resetProfile(profile_.value(), name));
  reset_.set(std::move(name));
}
