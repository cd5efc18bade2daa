// Authorization: whether this process may change the system.
//
//   if (!isAuthorized()) return Status::of(status::authenticationError);
//
// One process-wide mode. The entry point sets it once, before any command runs; state-changing commands consult it
// before they act, and making a profile asks once more, since electing calls it. Not guarded: set at start, read later.
#pragma once

// The modes. Any other value permits nothing.
constexpr int authorizationNever = 0;
constexpr int authorizationAlways = 1;
constexpr int authorizationRootOnly = 2;  // getuid(2) and geteuid(2) both 0

// Nothing is permitted until a mode is set.
void setAuthorizationMode(int mode);

// Asks the system anew at each call in mode 2.
bool isAuthorized();
