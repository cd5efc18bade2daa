// ProgramDirectories: where the program works (what holds for all of FileUtils is in FileUtils.h).
//
//   const std::string path = FileUtils::lockDir() + name;
//
// Threads: the two that are read once are safe to be asked for first by several threads at once.
#pragma once

#include <string>

#include "command/status/StatusCodes.h"

namespace FileUtils {

// The working directory, when it fits 4,095 bytes; else "getcwd" and an empty `dir`.
Status getCurrentDir(std::string& dir);
// "/etc/zuv/", the root of the product's configuration.
const char* configRoot();

// ZUV_TMP_DIR, or "/tmp/"; ZUV_LOCK_DIR, or "/tmp/lock/"; always ending in "/". Read once per process; later changes of
// the environment are not seen. At that moment the directory is made, mode 0750, whether that works or not.
const std::string& tempDir();
const std::string& lockDir();

}  // namespace FileUtils
