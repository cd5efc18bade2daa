// DirectoryListing: what lies in a directory (what holds for all of FileUtils is in FileUtils.h).
//
//   const FileUtils::DirectoryListing listing = FileUtils::listDirectory(path);
//   if (!listing.status.isSuccess()) return listing.status;
//   for (const std::string& name : listing.files) ...
#pragma once

#include <string>
#include <vector>

#include "base/system/UniqueFd.h"
#include "command/status/StatusCodes.h"

namespace FileUtils {

// The names in a directory by kind, without "." and "..", in the order the system gives them.
struct DirectoryListing {
  std::string path;
  Status status;
  std::vector<std::string> directories;
  std::vector<std::string> files;
  std::vector<std::string> linksToDirectories;
  std::vector<std::string> linksToFiles;
  std::vector<std::string> others;
};

// Lists a directory. A link counts by what its text leads to; a relative text is taken from the working directory of
// the process, not from the link's directory, which is deliberate. A text that leads nowhere is under `others`, a link
// that cannot be read nowhere; neither is a failure. A type that the directory read leaves open is looked up. Statuses:
// "invalid argument", "opendir" (a directory that cannot be read to its end, too; the lists hold what was seen).
DirectoryListing listDirectory(const std::string& path);

// The same for an open directory; `path` stays empty and the descriptor's own position does not move.
DirectoryListing listOpenDirectory(int directoryFd);

// Opens a directory for the functions that work relative to one; not open when it is no directory (errno).
UniqueFd openDirectory(const std::string& path);

// Appends the names of the real directories, never links to one, in the order the system gives them; the descriptor's
// own position does not move. Names that begin with "." are included, "." and ".." are not. Status: "opendir" when it
// cannot be read to its end; then `names` is as it was.
Status listRealDirectories(int directoryFd, std::vector<std::string>& names);

// The kind of a directory entry, as in d_type: `type` itself, or, where the directory read left it open (DT_UNKNOWN),
// what a look at the entry says. Links are not followed. DT_UNKNOWN when that look fails.
unsigned char entryType(int directoryFd, const char* name, unsigned char type);

}  // namespace FileUtils
