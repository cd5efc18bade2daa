// ProgramDirectories: the directories in which the program works. FileUtils.h has the rules that all of FileUtils
// share.
//
//   const std::string path = FileUtils::lockDir() + name;
#pragma once

#include <string>

#include "command/status/StatusCodes.h"

namespace FileUtils {

// The working directory. Status: "getcwd" if it cannot be read or is longer than 4,095 bytes; `dir` is then empty.
Status getCurrentDir(std::string& dir);
// "/etc/zuv/", the root of the product's configuration.
const char* configRoot();

// The directories of temporary files and of lock files. They come from the environment variables ZUV_TMP_DIR and
// ZUV_LOCK_DIR. If a variable is not set or empty, the default is used: "/tmp/" or "/tmp/lock/". The result always ends
// in "/". A relative path stays relative: it is resolved from the working directory at the time of each use.
// The first call reads the variable and creates the directory with mode 0750; a failure to create it is ignored. Later
// calls return the same path, even if the environment has changed.
// Threads: several threads may make the first call at the same time.
const std::string& tempDir();
const std::string& lockDir();

}  // namespace FileUtils
