// CopyFile: copies a file. FileUtils.h has the rules that all of FileUtils share.
//
//   Status s = FileUtils::copyFile(from, to);
#pragma once

#include <string>

#include "command/status/StatusCodes.h"

namespace FileUtils {

// Copies as many bytes as `from` has when the copy begins. If the file ends earlier, the copy ends there and succeeds.
// Each read and write has 4 KiB at most. No read follows the one that returns the last of these bytes.
// - A file for which stat reports the size 0 gives an empty copy, also a device, a FIFO or a file in /proc.
// - The copy has mode 0644 whatever the umask. The owner and the times are not copied.
// - If the copy fails, a destination that did not exist before is removed again. An existing one
//   stays, but may be left empty or with a part of the copy.
// - It does what the system does, with files of every kind and links of anybody.
// Statuses: "file open", "file read" and "file write", with the path as details and "copyFile" as context. "invalid
// argument", without details: a path is empty or contains a zero byte, stat fails for `from` (for example because no
// file is there), or both paths lead to the same file.
Status copyFile(const std::string& from, const std::string& to);

// Copies a file of the store in the same way, with Access::ofStore (see FileAccess.h). Only trusted links are followed,
// also at `from`: everybody may read the copy, so nobody else may choose which file is copied.
Status copyStoreFile(const std::string& from, const std::string& to);

}  // namespace FileUtils
