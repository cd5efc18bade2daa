// ProfileChanges: the operations on existing profiles, callable without a command object.
//
//   std::string name;
//   Status s = ProfileChanges::activateProfile("lab", "systemd", name);
//
// Each operation clears its output and calls isAuthorized(); if that refuses, it returns "authentication error ..." and
// changes nothing. Then it resolves its selector; if the resolution fails, it returns that status (see
// ProfileStore::resolveSelector). Every operation except resetProfile returns "invalid argument" for the factory
// template. `initSystem` is the name of a backend (see SystemSpecificImpl.h).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "command/status/StatusCodes.h"
#include "profiles/store/ProfileControl.h"

namespace ProfileChanges {

// Makes the profile active and starts the daemon on it:
//   - a profile that is active and running stays as it is;
//   - for a profile that is active but stopped, only starts the daemon;
//   - for any other profile, stops the daemon whatever its state, makes the profile active and starts the daemon.
// Sets `name` to the display name. Statuses: that of the start, since a failed stop or switch is not reported; "invalid
// argument" for an empty selector; "profile not found" if the active profile is selected and its directory is missing,
// so that the daemon is never started without a profile. A failed start sets `name` too.
Status activateProfile(const std::string& selector, const std::string& initSystem, std::string& name);

// Removes the profile's directory and everything in it. If the directory is a symbolic link, removes the link alone. If
// something cannot be removed (a FIFO, a socket, a device, a broken link), the name file stays as well, so the deletion
// can be repeated under the same name. The caller elects another active profile.
// Statuses: "invalid argument" for the selectors ".factory" and ".current"; "command cannot be executed while the
// profile is running"; those of removeProfile (see ProfileRemoval.h).
Status deleteProfile(const std::string& selector);

// Changes the display name of a profile, even while the profile is active and running. Sets `name` to the resulting
// name on success. Statuses: "invalid argument (profile name not provided)"; "invalid argument (invalid profile name)"
// for a name with a control byte inside, and for a name with which resolveSelector returns anything but "profile not
// found", so for every listed name, even that of this profile, and for "dir="; those of the write.
Status renameProfile(const std::string& selector, const std::string& newName, std::string& name);

// Removes the files in which the daemon keeps its state, but nothing behind an untrusted link in the place of the
// profile's directory or on the way to it (see StoreOpener.h). A file that cannot be removed stays and is not reported.
// Sets `name` to the display name. Status: "command cannot be executed while the profile is running".
Status resetProfile(const std::string& selector, std::string& name);

// The changes to make to a profile. A value that is not set stays unchanged.
struct Modification {
  std::optional<std::string> newName;
  bool hasHelmsor = false;
  std::string helmsorHost;
  std::int32_t helmsorPort = 0;
  std::optional<std::string> network;
  std::optional<std::string> invitation;
  std::optional<std::string> logLevel;
  std::string initSystem;
  bool activate = false;
};

// Changes a profile, and removes the daemon's state files even if nothing else changes, which is deliberate. Fills
// `details` on success.
//
// If the profile is active or `activate` is set, a daemon that runs or may run is stopped before the changes and
// started after them. With `activate`, a daemon that does not run is started as well.
//
// Statuses: "invalid argument" for a refused name or a control byte, and for the selector of the active profile if none
// is active (nothing changes then); "invalid argument" also for an empty interface, while the other changes are made;
// "application error (invalid log_level value)"; "application error" if the profile cannot be made active; those of the
// writes, of the stop and of the start. The first failure is returned. If the Helmsor address or the level fails, the
// later changes are skipped, the profile does not become active, and a daemon that did not run is not started. Other
// failures skip nothing.
Status modifyProfile(const std::string& selector, const Modification& wanted, ProfileDetails& details);

}  // namespace ProfileChanges
