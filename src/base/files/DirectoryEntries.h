// DirectoryEntries: makes, removes and renames what lies in directories (what holds for all of FileUtils is in
// FileUtils.h).
//
//   Status s = FileUtils::makeDir(path, 0750);
//   ...
//   s = FileUtils::removePath(path);
#pragma once

#include <sys/types.h>

#include <string>

#include "command/status/StatusCodes.h"

namespace FileUtils {

// mkdir with the mode less the umask; whatever already has that name is success. Not recursive. Status: "mkdir".
Status makeDir(const std::string& path, mode_t mode);

// mkdir of a directory that must be new, with exactly `mode` whatever the umask. For choosing numbered names: mkdir
// itself decides. `exists` means an entry of any kind, also a link that leads nowhere. When only the mode cannot be set
// the directory is removed again: `failed`.
enum class NewDir { made, exists, failed };
NewDir makeNewDir(const std::string& path, mode_t mode);

// chmod; success also when it fails and the nine permission bits are already those of `mode`. Status: "chmod".
Status setMode(const std::string& path, mode_t mode);

// A missing path is success for all three. Statuses: "unlink", "rmdir"; removePath tries removeFile first, and when
// that fails its result is that of removeDir.
Status removeFile(const std::string& path);
Status removeDir(const std::string& path);
Status removePath(const std::string& path);

// rename(2). Without `overwrite` an existing regular file at `to` is a failure and both stay. Status: "rename".
Status renameFile(const std::string& from, const std::string& to, bool overwrite);

}  // namespace FileUtils
