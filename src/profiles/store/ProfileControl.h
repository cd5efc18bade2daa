// ProfileControl: the operations behind the profile commands, callable without a command object.
//
//   NewProfile wanted;
//   wanted.name = "lab";
//   wanted.helmsorHost = "10.0.0.1";
//   CreatedProfile made;
//   Status s = ProfileControl::createProfile(wanted, made);      // made.name may be "lab#2"
//
// State-changing operations ask isAuthorized() first. Work that was done before a failure stays; it is said with each.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "command/status/StatusCodes.h"
#include "profiles/store/ConfigControl.h"

// What is known of one profile, for people to read. What a file does not say is empty.
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
  std::vector<std::string> networks;  // interfaces of the host that can carry the overlay
};

// What a new profile is made from. Empty texts mean "not given".
struct NewProfile {
  std::string name;  // the wish; "profile" when empty
  bool allowRename = true;
  std::string helmsorHost;
  std::int32_t helmsorPort = 0;
  std::string network;
  std::string invitation;
  std::string initSystem;  // a backend's name
  bool activate = false;
};

struct CreatedProfile {
  std::string name;
  ProfileDetails details;
};

namespace ProfileControl {

// The details of the profile that a selector means. Status: that of the resolution (see ProfileStore::resolveSelector),
// so those of the active profile come with "profile is active" or "profile is currently running". Interfaces that
// cannot be listed are an error in the log and an empty list.
Status cmdGetProfileDetails(const std::string& selector, ProfileDetails& details);

// Makes a profile from the factory template. Statuses: "authentication error ..."; "invalid argument" for a control
// byte in a name, host, interface or invitation (nothing was changed); "application error" when there is no free
// directory number, no free name, or the profile cannot be made active; else that of the file operation or the start of
// the daemon. A failure leaves what was done until then: the numbered directory and whatever is in it. `made` is filled
// on success. A daemon that was stopped for a profile to be activated stays stopped when that profile cannot be made.
Status createProfile(const NewProfile& wanted, CreatedProfile& made);

// Sees to it that there is an active profile: the one there is when it holds a hip.conf, else the first by name, else a
// new one named "profile". The directory of one that was there becomes the working directory. To be called by commands,
// not by operations. Statuses: success; "application error" when `.current` cannot be written; those of createProfile.
Status ensureActiveProfile();

}  // namespace ProfileControl
