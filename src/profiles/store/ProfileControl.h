// ProfileControl: the operations behind the profile commands, callable without a command object.
//
//   NewProfile wanted;
//   wanted.name = "lab";
//   wanted.helmsorHost = "10.0.0.1";
//   CreatedProfile made;
//   Status s = ProfileControl::createProfile(wanted, made);      // made.name may be "lab#2"
//
// Only createProfile asks isAuthorized(), before anything else. A failure does not undo earlier steps; each function
// documents what remains.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "command/status/StatusCodes.h"
#include "profiles/store/ConfigControl.h"

// The details of one profile, to be shown to users. A value that no file gives is empty.
struct ProfileDetails {
  bool filled = false;
  std::string dirname;
  std::string name;
  std::string network;
  std::string deviceId;
  std::string overlayDeviceIp;
  std::string overlayMask;
  std::string invitation;
  ConfigControl::HelmsorAddress helmsor;
  std::string logLevel;
  std::vector<std::string> networks;  // the host's interfaces that can carry the overlay
};

// What the caller wants of a new profile. An empty text means "not given".
struct NewProfile {
  std::string name;  // the requested name; "profile" if empty
  bool allowRename = true;
  std::string helmsorHost;
  std::int32_t helmsorPort = 0;
  std::string network;
  std::string invitation;
  std::string initSystem;  // the name of a backend (see SystemSpecificImpl.h)
  bool activate = false;
  // With `activate`: do not start the daemon if the profile could not be made active.
  bool startsOnlyIfActive = false;
};

// Empty after a failure, except for `isStartTried`.
struct CreatedProfile {
  std::string name;
  ProfileDetails details;
  bool isStartTried = false;  // the daemon was started on the profile, or the start failed
};

namespace ProfileControl {

// Reads the details of the profile that `selector` selects. Status: that of the resolution (see
// ProfileStore::resolveSelector), so for the active profile it is "profile is active" or "profile is currently
// running". If the interfaces cannot be listed, logs an error and leaves `networks` empty.
Status cmdGetProfileDetails(const std::string& selector, ProfileDetails& details);

// Creates a profile from the factory template and fills `made` on success. Statuses:
//   - "authentication error ..." and "invalid argument" (a control byte in the name, host, interface or invitation);
//     nothing has changed then;
//   - "application error" if no directory number or no name is free, if the name is taken and `allowRename` is not set,
//     if the store cannot be listed, if another process deletes the profile meanwhile, or if it cannot be made active;
//   - otherwise the status of the failed file operation or of the start of the daemon.
// A later failure leaves the numbered directory with everything written to it so far. If the daemon was stopped because
// of `activate`, it stays stopped if the template, the name or the Helmsor address cannot be written, or if another
// process deletes the profile meanwhile.
Status createProfile(const NewProfile& wanted, CreatedProfile& made);

// Ensures that there is an active profile. Keeps the active profile if it has a hip.conf; otherwise makes the first
// profile by name active; if there is none, or if the store cannot be listed, creates and activates one named
// "profile". The directory of a kept or elected profile becomes the working directory, but not that of a created one.
// A failure to enter the directory is ignored. Statuses: success; "application error" if `.current` cannot be written;
// those of createProfile.
Status ensureActiveProfile();
// Does the same for a command that starts the daemon on the active profile. `initSystem` is the backend that starts the
// daemon on a created profile, but only if that profile became active. `made` is the created profile, if there is one.
Status ensureActiveProfile(const std::string& initSystem, CreatedProfile& made);

// Returns true if `.current` names no existing directory, also if it is missing or empty. Returns false if
// `.current` cannot be read.
bool isActiveDirectoryMissing();

}  // namespace ProfileControl
