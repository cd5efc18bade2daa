// DirectoryEntries: makes, removes and renames files and directories. FileUtils.h has the rules that all of FileUtils
// share.
//
//   Status s = FileUtils::makeDir(path, 0750);
//   ...
//   s = FileUtils::removePath(path);
#pragma once

#include <sys/types.h>

#include <string>

#include "command/status/StatusCodes.h"

namespace FileUtils {

// Makes a directory with `mode` less the umask. Succeeds if an entry of any kind already has that name. It does not
// make the directories above. Status: "mkdir".
Status makeDir(const std::string& path, mode_t mode);

// Makes a directory that must be new, in an open directory or at AT_FDCWD, with exactly `mode` whatever the umask.
// Callers that choose a numbered name use it to test whether the name is free and take it in one step. Returns `exists`
// if an entry of any kind has that name, even a broken link, and `failed` if the directory cannot be made for another
// reason. If the mode cannot be set (see setMode), it removes the directory again and returns `failed`.
enum class NewDir { made, exists, failed };
NewDir makeNewDir(int directoryFd, const std::string& path, mode_t mode);

// Sets the mode. Succeeds also if chmod fails but the nine permission bits already equal `mode`. Status: "chmod".
Status setMode(const std::string& path, mode_t mode);

// Remove a file, an empty directory, or either of the two. A missing path is a success. Statuses: "unlink" for
// removeFile, "rmdir" for removeDir. removePath tries removeFile first; if that fails, it returns the result of
// removeDir.
Status removeFile(const std::string& path);
Status removeDir(const std::string& path);
Status removePath(const std::string& path);

// Renames a file or directory. If `overwrite` is false and there is a regular file at `to`, or a link to one, it fails
// and changes nothing. A file that another process makes at `to` after this check is replaced. Status: "rename".
Status renameFile(const std::string& from, const std::string& to, bool overwrite);

}  // namespace FileUtils
