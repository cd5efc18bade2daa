// Authorization: decides whether this process may change the system.
//
//   if (!isAuthorized()) return Status::of(status::authenticationError);
//
// The mode is one value for the whole process. The entry point sets it once, before it runs a command. Commands that
// change something check the authorization before they act: service start, stop and restart, support reset, and profile
// create, modify, rename, delete and activate. Other commands never ask, although they may repair names and elect an
// active profile. createProfile checks it too, because an election may call it.
// Threads: the mode is not protected by a lock; it is set at the start and only read later.
#pragma once

// The modes. With any other value isAuthorized() returns false.
constexpr int authorizationNever = 0;
constexpr int authorizationAlways = 1;
constexpr int authorizationRootOnly = 2;  // only if getuid(2) and geteuid(2) both return 0

// Sets the mode. Until the first call the mode is authorizationNever.
void setAuthorizationMode(int mode);

// Returns true if the mode permits changes. With authorizationRootOnly each call reads the user ids anew.
bool isAuthorized();
