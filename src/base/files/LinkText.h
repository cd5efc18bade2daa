// LinkText: reads where a symbolic link leads.
//
//   if (const std::optional<std::string> target = linkText(directoryFd, "hip.conf")) ...
#pragma once

#include <optional>
#include <string>

// Returns the text of the link `name` in the open directory, or in the working directory for AT_FDCWD. With an empty
// name, `directoryFd` is the link itself, opened with O_PATH. Returns nothing, with errno set, if readlinkat(2) fails.
// Also returns nothing, with ENAMETOOLONG, if the text is empty, or if it has PATH_MAX bytes and so may have been cut.
std::optional<std::string> linkText(int directoryFd, const char* name);
