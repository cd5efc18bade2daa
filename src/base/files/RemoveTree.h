// RemoveTree: removes a directory with everything below it. FileUtils.h has the rules that all of FileUtils share.
//
//   Status s = FileUtils::removeTree("/etc/zuv/profiles/profile-7");
#pragma once

#include <string>
#include <string_view>

#include "command/status/StatusCodes.h"

namespace FileUtils {

// Removes an absolute path with everything below it. A path that is no directory is unlinked. A missing path is a
// success.
// - Links are unlinked, never followed, even if a link takes the place of a directory during the removal.
// - Entries that listDirectory puts under `others` (FIFOs, sockets, devices, broken links) are not removed.
// - An entry that cannot be removed is skipped. The removal of the directories above it then fails too.
// - The tree may have any depth. A tree of n levels needs at most about log2(n) + 5 descriptors, which is 20 for 30,000
//   levels.
// - A directory may have any number of entries. If it has more than 1,024, it is read several times instead of being
//   held in memory. If somebody makes new entries all the time, the removal ends nevertheless, unless the file system
//   shows each of them to a reader that has begun before.
// - Time: a few system calls for each entry. Each level is opened again about log2(n) / 2 times, by the names on the
//   way. The removal does not go through "..", because that takes time for the whole depth on a bind mount.
// Statuses: "invalid argument" for a relative path and for "/" in any spelling; "unlink" if the path is no directory
// and cannot be unlinked; "rmdir" if the directory still exists at the end.
Status removeTree(const std::string& path);

// Empties an open directory of the store in the same way, but keeps the entry `kept`, unless that is a directory. It
// resolves the relative target of a link from the link's own directory, so the result does not depend on the working
// directory of the process.
void emptyStoreDirectory(int directoryFd, std::string_view kept);

}  // namespace FileUtils
