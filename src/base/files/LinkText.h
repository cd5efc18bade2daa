// LinkText: reads where a symbolic link leads.
//
//   if (const std::optional<std::string> target = linkText(directoryFd, "hip.conf")) ...
#pragma once

#include <optional>
#include <string>

// Returns the text of the link `name` in the open directory, or in the working directory for AT_FDCWD. An empty name
// means the link that is itself open with O_PATH. Returns nothing, with errno set, if readlinkat(2) fails, and
// ENAMETOOLONG for an empty text and one of PATH_MAX bytes, which may have been cut.
std::optional<std::string> linkText(int directoryFd, const char* name);
