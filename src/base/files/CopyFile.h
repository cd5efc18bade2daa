// CopyFile: copies of files (what holds for all of FileUtils is in FileUtils.h).
//
//   Status s = FileUtils::copyFile(from, to);
#pragma once

#include <string>

#include "command/status/StatusCodes.h"

namespace FileUtils {

// Copies the bytes that `from` has at the start (one that ends earlier is copied as far as it goes), mode 0644 whatever
// the umask; owner and times are not copied. A destination that was not there is removed again after a failure. Only
// links of Links::ofTrusted are followed, at `from` too, since everybody may read the copy.
// Statuses, with the path as details and "copyFile" as context: "file open", "file read", "file write". "invalid
// argument" without details: an empty path, no file at `from`, or both the same file.
Status copyFile(const std::string& from, const std::string& to);

}  // namespace FileUtils
