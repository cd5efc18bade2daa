// DirectoryListing: lists the entries of a directory. FileUtils.h has the rules that all of FileUtils share.
//
//   const FileUtils::DirectoryListing listing = FileUtils::listDirectory(path);
//   if (!listing.status.isSuccess()) return listing.status;
//   for (const std::string& name : listing.files) ...
#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "base/files/DirectoryReader.h"
#include "base/system/UniqueFd.h"
#include "command/status/StatusCodes.h"

namespace FileUtils {

// The names in a directory by kind, without "." and "..", in the order in which the system returns them.
struct DirectoryListing {
  std::string path;
  Status status;
  bool isComplete = true;  // false if there are more entries than the limit
  std::vector<std::string> directories;
  std::vector<std::string> files;
  std::vector<std::string> linksToDirectories;
  std::vector<std::string> linksToFiles;
  std::vector<std::string> others;
};

// Lists a directory.
// - A link is listed by the kind of its target. A relative target is resolved from the working directory of the
//   process, not from the link's directory. That is deliberate.
// - A link whose target stat cannot find or reach is listed under `others`. A link that cannot be read, or whose target
//   is empty or has 4,096 bytes or more, is in no list. Neither is a failure.
// - If the system does not report the type of an entry, stat is asked. If that stat fails, the entry is listed under
//   `others`.
// Statuses: "invalid argument"; "opendir" if the directory cannot be opened or cannot be read to its end. After
// "opendir" the lists hold the entries that were read before the failure, if any.
DirectoryListing listDirectory(const std::string& path);

// Lists an open directory in the same way, but resolves links as `base` says. `path` stays empty. The read position of
// the descriptor does not change. It stops after `most` entries if there are more.
constexpr std::size_t anyNumber = std::numeric_limits<std::size_t>::max();
DirectoryListing listOpenDirectory(int directoryFd, LinkBase base = LinkBase::workingDirectory,
                                   std::size_t most = anyNumber);

// True if an open directory is empty or has only an entry of that name. False if it cannot be read to its end.
bool holdsOnly(int directoryFd, std::string_view name);

// Opens a directory, for functions that take a directory descriptor. If that fails, or if the path is no directory, the
// result is not open and errno holds the reason.
UniqueFd openDirectory(const std::string& path);
// Does the same from an open directory or AT_FDCWD, and does not follow a link in the place of the directory.
UniqueFd openRealDirectory(int directoryFd, const std::string& path);

// Appends the names of the directories in an open directory, in the order in which the system returns them. Links to
// directories are not included, nor are "." and ".."; other names that begin with "." are. The read position of the
// descriptor does not change. Status: "opendir" if the directory cannot be read to its end; then `names` does not
// change.
Status listRealDirectories(int directoryFd, std::vector<std::string>& names);

}  // namespace FileUtils
