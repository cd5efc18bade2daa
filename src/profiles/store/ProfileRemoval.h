// ProfileRemoval: removes the directory of a profile.
//
//   Status s = removeProfile("profile-7");
//
// The order of steps, and what a failure of each leaves behind:
//   1. open and lock the directory                          the profile; another delete may be at work on it
//   2. remove everything but the name file                  the profile: its name, and what could not be removed
//   3. rename the directory to `.deleted-` and a number     the profile, empty but for its name
//      up to 999999
//   4. remove the name file and the directory               a directory that no listing shows, for a later delete
// Step 3 takes the profile out of the store at one moment: a listing sees it whole or not at all, and gives no name to
// a directory that is just being removed. From then on the profile is deleted, whatever is left. Where the system or
// the file system has no such rename, or all numbers are taken, step 4 removes the name file and the directory without
// a rename.
// Other processes: a delete waits for another one of the same profile for ten seconds at most.
#pragma once

#include <string>

#include "command/status/StatusCodes.h"

// Removes the profile in that directory of the store, with everything in it. Links in it are removed, never followed. A
// broken link cannot be removed, unless it has the name of a directory of certificates or of the name file; a relative
// link counts from its own directory. If the directory itself is a link, removes the link alone. Also removes what
// earlier deletes have left.
// Statuses: success also if there is no such directory; "profile not found" if the path leads elsewhere by the time the
// directory is locked; "application error" if anything cannot be removed, if another delete keeps the lock, or if the
// name is empty.
Status removeProfile(const std::string& dirname);
