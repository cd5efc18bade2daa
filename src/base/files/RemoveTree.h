// RemoveTree: removes a directory with everything below it. FileUtils.h has the rules that all of FileUtils share.
//
//   Status s = FileUtils::removeTree("/etc/zuv/profiles/profile-7");
#pragma once

#include <string>
#include <string_view>

#include "command/status/StatusCodes.h"

namespace FileUtils {

// Removes an absolute path with everything below it. A path that is no directory is unlinked.
// - Links are unlinked, never followed, even if a link takes the place of a directory during the removal.
// - Entries that listDirectory puts under `others` (FIFOs, sockets, devices, broken links) are not removed.
// - An entry that cannot be removed is skipped. The removal of the directories above it then fails too.
// - The tree may have any depth. At most about 20 descriptors are open at a time.
// Statuses: "invalid argument" for a relative path and for "/" in any spelling; "unlink" if the path is no directory
// and cannot be unlinked; "rmdir" if the directory still exists at the end.
Status removeTree(const std::string& path);

// Empties an open directory of the store in the same way, but keeps the entry `kept`, unless that is a directory. It
// resolves the relative target of a link from the link's own directory, so the result does not depend on the working
// directory of the process.
void emptyStoreDirectory(int directoryFd, std::string_view kept);

}  // namespace FileUtils
