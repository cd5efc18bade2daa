#include "profiles/store/ProfileChanges.h"

#include <utility>

#include "base/files/DirectoryEntries.h"
#include "base/files/FileInfo.h"
#include "base/files/RemoveTree.h"
#include "base/text/StringUtils.h"
#include "command/framework/Authorization.h"
#include "command/status/AppStatusCodes.h"
#include "command/status/FirstFailure.h"
#include "profiles/store/ConfigControl.h"
#include "profiles/store/ProfileStore.h"
#include "profiles/store/ProfileTexts.h"
#include "service/host/Heartbeat.h"
#include "service/host/SystemSpecificImpl.h"

using StringUtils::hasControlByte;
using StringUtils::joinPath;

namespace {

// The daemon's state in a profile, in the order of removal.
constexpr const char* stateFiles[] = {"m2_cache", "sadb.state", "hip.state", "peers", "map.state", variablesFileName};
// Removed before the rest of a deleted profile.
constexpr const char* certificateDirectories[] = {"ca-certs", "customer-certs", "peer_certs"};

enum class Template { allowed, refused };

// The steps that every operation begins with.
Status beginChange(const std::string& selector, Template factory, ProfileRecord& profile) {
  if (!isAuthorized()) return Status::of(status::authenticationError);
  Status found = ProfileStore::resolveSelector(selector, profile);
  if (found.isSuccess() && factory == Template::refused && profile.dirname == ProfileStore::factoryName) {
    return Status::of(status::invalidArgument);
  }
  return found;
}

void removeStateFiles(const ProfileRecord& profile) {
  std::string path;
  for (const char* file : stateFiles) {
    if (ProfileStore::fileInProfile(profile.dirname, file, path)) {
      (void)FileUtils::removeFile(path);  // a daemon that starts finds its old state or none; both are right
    }
  }
}

// A name can be given exactly when no profile answers to it as a selector.
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
  name = profile.name;
  if (found.code() == status::profileIsRunning) return Status();
  if (found.code() != status::profileIsActive) {
    // The start tells in the end whether the daemon runs.
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
  const bool isOwn = FileUtils::isRealDirectory(profile.dir);  // of a link the link alone goes
  for (const char* directory : certificateDirectories) {
    if (isOwn) {
      (void)FileUtils::removeTree(joinPath({profile.dir, directory}));  // what stays fails the last removal
    }
  }
  // The name last: a removal that ended on its way can be repeated under it.
  const bool isGone = FileUtils::removeTree(profile.dir, ProfileStore::nameFile).isSuccess();
  return isGone ? Status() : Status::of(status::applicationError);
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
  // Reached with the profile's own name only when the store changed since the check.
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

// Without these two a profile is not what was asked for, so their failure ends the changes.
Status applyAddressAndLevel(const ProfileRecord& profile, const Modification& wanted) {
  if (wanted.hasHelmsor) {
    Status written = ConfigControl::changeHelmsor(profile.dirname, wanted.helmsorHost, wanted.helmsorPort);
    if (!written.isSuccess()) return written;
  }
  return wanted.logLevel ? ConfigControl::setLogLevel(profile.dirname, *wanted.logLevel) : Status();
}

Status applyRest(const ProfileRecord& profile, const Modification& wanted) {
  removeStateFiles(profile);
  Status first;
  if (wanted.network) keepFirstFailure(first, ConfigControl::setInterface(profile.dirname, *wanted.network));
  if (wanted.invitation) keepFirstFailure(first, ConfigControl::setInvitation(profile.dirname, *wanted.invitation));
  if (wanted.newName) {
    std::string name;
    // By its directory: its name may be that of a selector, or of a second profile.
    const std::string selector = StringUtils::concatenate({ProfileStore::dirPrefix, profile.dirname});
    keepFirstFailure(first, ProfileChanges::renameProfile(selector, *wanted.newName, name));
  }
  return first;
}

}  // namespace

namespace ProfileChanges {

// The order of steps, and what a failure of each leaves behind:
//   1. name and texts are checked                  nothing
//   2. the daemon is stopped when it must be       reported, the work goes on
//   3. Helmsor address, then level                 a failure goes on with step 6
//   4. state files, interface, invitation, name    each is tried
//   5. an inactive profile becomes active, when asked for
//   6. the daemon is started: when step 2 was due, and, unless step 3 failed, when the profile is to be active
Status modifyProfile(const std::string& selector, const Modification& wanted, ProfileDetails& details) {
  details = ProfileDetails();
  ProfileRecord profile;
  Status found = beginChange(selector, Template::refused, profile);
  if (!found.isSuccess()) return found;
  if (profile.dirname.empty()) return Status::of(status::invalidArgument);  // active, and nowhere on the disk
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
  if (applied) keepFirstFailure(first, applyRest(profile, wanted));
  if (applied && wanted.activate && !active && !ProfileStore::setActive(profile.dirname)) {
    keepFirstFailure(first, Status::of(status::applicationError));
  }
  if (restarts && (applied || running)) {
    keepFirstFailure(first, runBackendOperation(wanted.initSystem, &SystemSpecificImpl::start));
  }
  if (first.isSuccess()) {
    // The changes are made, whether or not they can be shown.
    (void)ProfileControl::cmdGetProfileDetails(StringUtils::concatenate({ProfileStore::dirPrefix, profile.dirname}),
                                               details);
  }
  return first;
}

}  // namespace ProfileChanges
