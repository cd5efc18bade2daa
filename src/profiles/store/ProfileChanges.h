// ProfileChanges: the operations that change profiles which are there, callable without a command object.
//
//   std::string name;
//   Status s = ProfileChanges::activateProfile("lab", "systemd", name);
//
// Each asks isAuthorized() first ("authentication error ...", nothing changed) and then resolves its selector; a status
// of the resolution that is no success ends it (see ProfileStore::resolveSelector). All but the reset answer "invalid
// argument" for the factory template. `initSystem` is the name of a backend (see SystemSpecificImpl.h).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "command/status/StatusCodes.h"
#include "profiles/store/ProfileControl.h"

namespace ProfileChanges {

// Makes the profile active and starts the daemon on it. The active running profile is left alone, the active stopped
// one is only started; any other switch stops the daemon first, whatever its state. `name` gets the display name.
// Status: that of the start; a failed stop or switch is not reported. "invalid argument" for an empty selector.
Status activateProfile(const std::string& selector, const std::string& initSystem, std::string& name);

// Removes the profile's directory with everything in it; of a link the link alone. Electing another active profile is
// up to the caller. Statuses: "invalid argument" for the texts ".factory" and ".current"; "command cannot be executed
// while the profile is running"; "application error" when something stays.
Status deleteProfile(const std::string& selector);

// Gives the profile another display name; also while it is active and running. `name` gets the name it has then.
// Statuses: "invalid argument (profile name not provided)"; "invalid argument (invalid profile name)" for a name with a
// control byte inside, or one that is a selector of some profile, its own too; those of the write.
Status renameProfile(const std::string& selector, const std::string& newName, std::string& name);

// Removes the state that the daemon keeps in the profile. What cannot be removed stays, without a failure. `name` gets
// the display name. Status: "command cannot be executed while the profile is running".
Status resetProfile(const std::string& selector, std::string& name);

// What is to be changed in a profile; what is not set stays as it is.
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

// Changes a profile and removes the daemon's state from it, always; that is deliberate. A daemon that runs, or may run,
// on the profile, or has to make way for it, is stopped before and started afterwards. `details` is filled on success.
// Statuses: "invalid argument" (a name that is refused; control bytes; both before anything changes; an empty
// interface), "application error (invalid log_level value)", those of writing, of the stop and of the start. The first
// failure counts; one of the Helmsor address or the level keeps the changes behind it from being made, and the profile
// from becoming active.
Status modifyProfile(const std::string& selector, const Modification& wanted, ProfileDetails& details);

}  // namespace ProfileChanges
