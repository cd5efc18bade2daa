// RemoveTree: the removal of whole trees, of any depth, with few descriptors, never through a link (what holds for all
// of FileUtils is in FileUtils.h).
//
//   Status s = FileUtils::removeTree("/etc/zuv/profiles/profile-7");
#pragma once

#include <string>
#include <string_view>

#include "command/status/StatusCodes.h"

namespace FileUtils {

// Removes an absolute path with everything below it. A relative path and "/" (in any spelling) are "invalid argument".
// Anything but a directory is unlinked. Links are unlinked, never gone through, and a directory is looked at again
// before it is entered. Entries that listDirectory puts under `others` (FIFOs, sockets, devices, links whose text leads
// nowhere) stay, and then the last step fails: "rmdir". What fails on the way is passed over. Any depth, with few
// descriptors. `last` names a file of the directory itself that goes after all else in it that can go, so that whoever
// finds the rest of a process that ended on its way finds that file, too.
Status removeTree(const std::string& path, std::string_view last = {});

}  // namespace FileUtils
