#include "profiles/store/ProfileChanges.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "base/files/FileInfo.h"
#include "base/files/StoreOpener.h"
#include "base/text/StringUtils.h"
#include "command/framework/Authorization.h"
#include "command/status/AppStatusCodes.h"
#include "command/status/FirstFailure.h"
#include "profiles/store/ConfigControl.h"
#include "profiles/store/ConfigLines.h"
#include "profiles/store/ProfileRemoval.h"
#include "profiles/store/ProfileStore.h"
#include "profiles/store/ProfileTexts.h"
#include "service/host/Heartbeat.h"
#include "service/host/SystemSpecificImpl.h"

using StringUtils::hasControlByte;

namespace {

// The files with the daemon's state in a profile, in the order of their removal.
constexpr const char* stateFiles[] = {"m2_cache", "sadb.state", "hip.state", "peers", "map.state", variablesFileName};
enum class Template { allowed, refused };

// The first steps of every operation.
Status beginChange(const std::string& selector, Template factory, ProfileRecord& profile) {
  if (!isAuthorized()) return Status::of(status::authenticationError);
  Status found = ProfileStore::resolveSelector(selector, profile);
  if (found.isSuccess() && factory == Template::refused && profile.dirname == ProfileStore::factoryName) {
    return Status::of(status::invalidArgument);
  }
  return found;
}

// The directory is opened in the same way as every file of the store, so that no untrusted link leads to another one.
// The dot lets the profile itself be a trusted link. Failures are dropped: the daemon can start with its old state too.
void removeStateFiles(const ProfileRecord& profile) {
  std::string path;
  if (!ProfileStore::fileInProfile(profile.dirname, ".", path)) return;
  const StoreFile directory = openInStore(AT_FDCWD, path.c_str(), O_PATH, Follow::trusted);
  if (!directory.fd.isOpen()) return;
  for (const char* file : stateFiles) (void)::unlinkat(directory.fd.get(), file, 0);
}

// A new name is acceptable exactly if, used as a selector, it finds no profile.
Status checkNewName(const std::string& name, const char* context) {
  ProfileRecord other;
  const bool isFree =
      !hasControlByte(name) && ProfileStore::resolveSelector(name, other).code() == status::profileNotFound;
  return isFree ? Status() : Status::error(status::invalidArgument, "invalid profile name", context);
}

}  // namespace

namespace ProfileChanges {

Status activateProfile(const std::string& selector, const std::string& initSystem, std::string& name) {
  name.clear();
  if (!isAuthorized()) return Status::of(status::authenticationError);
  if (selector.empty()) return Status::of(status::invalidArgument);
  ProfileRecord profile;
  Status found = beginChange(selector, Template::refused, profile);
  if (!found.isSuccess()) return found;
  const bool isActive = found.code() == status::profileIsActive;
  if (isActive && !FileUtils::isDirectory(profile.dir)) return Status::of(status::profileNotFound);
  name = profile.name;
  if (found.code() == status::profileIsRunning) return Status();
  if (!isActive) {
    // Failures are dropped: the status of the start says whether the daemon runs.
    (void)runBackendOperation(initSystem, &SystemSpecificImpl::stop);
    (void)ProfileStore::setActive(profile.dirname);
  }
  return runBackendOperation(initSystem, &SystemSpecificImpl::start);
}

Status deleteProfile(const std::string& selector) {
  if (!isAuthorized()) return Status::of(status::authenticationError);
  if (selector == ProfileStore::factoryName || selector == ProfileStore::currentName) {
    return Status::of(status::invalidArgument);
  }
  ProfileRecord profile;
  Status found = beginChange(selector, Template::refused, profile);
  if (!found.isSuccess()) return found;
  if (found.code() == status::profileIsRunning) return Status::of(status::notWhileRunning);
  return removeProfile(profile.dirname);
}

Status renameProfile(const std::string& selector, const std::string& newName, std::string& name) {
  name.clear();
  ProfileRecord profile;
  Status found = beginChange(selector, Template::refused, profile);
  if (!found.isSuccess()) return found;
  constexpr const char* context = "profile rename";
  const std::string wish = ProfileTexts::cleanName(newName);
  if (wish.empty()) return Status::error(status::invalidArgument, "profile name not provided", context);
  Status checked = checkNewName(wish, context);
  if (!checked.isSuccess()) return checked;
  // The check refuses the profile's own name, except that of a linked profile, which is not listed, and unless the
  // store has changed since.
  Status written = wish == profile.name ? Status() : ProfileStore::writeProfileName(profile.dirname, wish);
  if (written.isSuccess()) name = wish;
  return written;
}

Status resetProfile(const std::string& selector, std::string& name) {
  name.clear();
  ProfileRecord profile;
  Status found = beginChange(selector, Template::allowed, profile);
  if (!found.isSuccess()) return found;
  name = profile.name;
  if (found.code() == status::profileIsRunning) return Status::of(status::notWhileRunning);
  removeStateFiles(profile);
  return Status();
}

}  // namespace ProfileChanges

// --- Modify

namespace {

using ProfileChanges::Modification;

constexpr const char* modifyContext = "profile modify";

Status checkModification(const Modification& wanted) {
  if (wanted.newName) {
    const std::string wish = ProfileTexts::cleanName(*wanted.newName);
    Status checked = wish.empty() ? Status::error(status::invalidArgument, "invalid profile name", modifyContext)
                                  : checkNewName(wish, modifyContext);
    if (!checked.isSuccess()) return checked;
  }
  return ProfileTexts::checkTexts(wanted.helmsorHost, wanted.network.value_or(""), wanted.invitation.value_or(""));
}

// If one of these two fails, the later changes are skipped: the profile would not be usable as requested.
Status applyAddressAndLevel(const ProfileRecord& profile, const Modification& wanted) {
  if (wanted.hasHelmsor) {
    Status written = ConfigControl::changeHelmsor(profile.dirname, wanted.helmsorHost, wanted.helmsorPort);
    if (!written.isSuccess()) return written;
  }
  return wanted.logLevel ? ConfigControl::setLogLevel(profile.dirname, *wanted.logLevel) : Status();
}

Status applyOtherChanges(const ProfileRecord& profile, const Modification& wanted) {
  removeStateFiles(profile);
  Status first;
  if (wanted.network) keepFirstFailure(first, ConfigControl::setInterface(profile.dirname, *wanted.network));
  if (wanted.invitation) keepFirstFailure(first, ConfigControl::setInvitation(profile.dirname, *wanted.invitation));
  if (wanted.newName) {
    std::string name;
    // Selects by directory, because the display name may also be a selector or the name of a second profile.
    const std::string selector = StringUtils::concatenate({ProfileStore::dirPrefix, profile.dirname});
    keepFirstFailure(first, ProfileChanges::renameProfile(selector, *wanted.newName, name));
  }
  return first;
}

}  // namespace

namespace ProfileChanges {

// The order of steps, and what follows a failure of each:
//   1. check name and texts                                  nothing has changed, the operation ends
//   2. stop the daemon, if necessary                         continue
//   3. write the Helmsor address, then the level             continue with step 6
//   4. remove the state files; write interface, invitation
//      and name                                              continue with the next of them
//   5. make an inactive profile active, if requested         continue
//   6. start the daemon, if step 2 was necessary, or if activation is requested and step 3 did not fail
// The status is that of the first failure.
Status modifyProfile(const std::string& selector, const Modification& wanted, ProfileDetails& details) {
  ConfigLines::EditLimit limit;
  details = ProfileDetails();
  ProfileRecord profile;
  Status found = beginChange(selector, Template::refused, profile);
  if (!found.isSuccess()) return found;
  if (profile.dirname.empty()) return Status::of(status::invalidArgument);  // an active profile without a directory
  Status checked = checkModification(wanted);
  if (!checked.isSuccess()) return checked;
  const bool active = ProfileStore::isActive(profile);
  const bool running = ProfileStore::daemonMayRun();
  const bool restarts = wanted.activate || (active && running);

  Status first;
  if (restarts && running) keepFirstFailure(first, runBackendOperation(wanted.initSystem, &SystemSpecificImpl::stop));
  Status essential = applyAddressAndLevel(profile, wanted);
  const bool applied = essential.isSuccess();
  keepFirstFailure(first, std::move(essential));
  if (applied) keepFirstFailure(first, applyOtherChanges(profile, wanted));
  if (applied && wanted.activate && !active && !ProfileStore::setActive(profile.dirname)) {
    keepFirstFailure(first, Status::of(status::applicationError));
  }
  if (restarts && (applied || running)) {
    keepFirstFailure(first, runBackendOperation(wanted.initSystem, &SystemSpecificImpl::start));
  }
  if (first.isSuccess()) {
    // A failure is dropped: the changes are made, even if the details cannot be read.
    (void)ProfileControl::cmdGetProfileDetails(StringUtils::concatenate({ProfileStore::dirPrefix, profile.dirname}),
                                               details);
  }
  return first;
}

}  // namespace ProfileChanges
