// DirectoryReader: reads the entries of an open directory one after the other, so that a directory of any size takes
// little memory. DirectoryListing.h has the functions that return all of them at once.
//
//   DirectoryReader reader(fd);
//   while (const dirent* entry = reader.next()) ...
//   if (!reader.status().isSuccess()) return ...;        // it was not read to its end
#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <optional>

#include "base/system/UniqueFd.h"
#include "command/status/StatusCodes.h"

namespace FileUtils {

class DirectoryReader {
 public:
  // Reads an open directory through a descriptor of its own, from a position on or from its start. The descriptor is
  // borrowed only for this call, and its read position does not change.
  explicit DirectoryReader(int directoryFd, std::optional<off_t> position = std::nullopt);
  // Takes over the descriptor. One that is not open gives a reader without entries.
  explicit DirectoryReader(UniqueFd fd);
  ~DirectoryReader();
  DirectoryReader(const DirectoryReader&) = delete;
  DirectoryReader& operator=(const DirectoryReader&) = delete;

  // Returns the next entry, without "." and "..", valid until the next call. Null at the end and if the directory
  // cannot be read.
  const dirent* next();

  // The position behind the last entry that next returned, from which another reader can continue. Entries that were
  // removed in the meantime may move it on some file systems, so that others are left out.
  off_t position() const { return position_; }

  // The descriptor of an open reader.
  int fd() const { return ::dirfd(directory_); }
  // Status: "opendir" if the directory could not be opened or read to its end.
  Status status() const;

 private:
  const dirent* read();

  DIR* directory_ = nullptr;
  off_t position_ = 0;
  bool failed_ = false;
};

// Where the relative target of a link is resolved from.
enum class LinkBase { workingDirectory, ownDirectory };

// The kind of an entry. A link is classified by its target: `other` if stat cannot find or reach that, or if it is
// neither a regular file nor a directory; `unreadable` if the link itself cannot be read, or if its target is empty or
// has 4,096 bytes or more. An entry whose type the system does not report, and stat neither, is `other`.
enum class EntryKind { directory, file, linkToDirectory, linkToFile, other, unreadable };
EntryKind kindOf(int directoryFd, const dirent& entry, LinkBase base);

// The kind of a directory entry, as in d_type: `type` itself, unless it is DT_UNKNOWN; then the kind that stat reports
// for the entry, without following links. DT_UNKNOWN if that stat fails.
unsigned char entryType(int directoryFd, const char* name, unsigned char type);

}  // namespace FileUtils
