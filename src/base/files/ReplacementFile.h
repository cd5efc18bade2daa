// ReplacementFile: a new file that is written beside an old one and then takes its place.
//
//   ReplacementFile file;
//   Status s = file.make(path, deadline);            // path + ".temp", mode 0600; waits for other editors of the file
//   if (!s.isSuccess()) return s;
//   ...read the old file, write to file.fd()...
//   return file.replaceOld() ? ... : ...;            // without it, the new file is removed at the end of the scope
//
// On disk: the name of the new file is fixed. Only an editor that died can have left a file of this name; it is
// removed, and a link of that name is never followed. Other processes: there is one temporary name, so it needs an
// owner. Its maker holds flock on it until it has its final name, and after it has the lock it looks whether the name
// still belongs to its file; otherwise it starts over. A file that is locked belongs to somebody at work and is waited
// for. One that is not locked is left over: it is checked again and removed while the remover holds its lock. So no two
// editors ever write one file, whatever becomes of lock files elsewhere. What is no regular file, or belongs neither to
// root nor to our own user, is removed at once. On a file system without locks an old file of that name is removed at
// once. A file that cannot be examined, or cannot be opened because descriptors or memory have run out, stays, and make
// fails at once. A file that our own user may not open is removed.
//
// Before the rename an editor gives its file to the owner of the old one, and from then on other editors would remove
// it. So it first takes the flock of the directory and holds it until the rename; and whoever removes a file of that
// name without its lock takes the lock of the directory first. Everybody who may open the directory can hold that lock,
// so both wait for it for one second at most and then go on without it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "base/files/FilePlace.h"
#include "base/files/StoreOpener.h"
#include "base/system/Leftover.h"
#include "base/system/UniqueFd.h"
#include "command/status/StatusCodes.h"

class ReplacementFile {
 public:
  using Clock = std::chrono::steady_clock;

  ReplacementFile() = default;
  ~ReplacementFile() { remove(); }
  ReplacementFile(const ReplacementFile&) = delete;
  ReplacementFile& operator=(const ReplacementFile&) = delete;

  // Makes and locks the new file. Call it once, or again if it has failed. While another editor is at work it tries
  // again after pauses (see RetryPauses.h). After the deadline it still takes a free name, and removes a file left
  // over. Status: "file open", also if another editor is at work until the deadline.
  Status make(const std::string& path, Clock::time_point deadline);

  // True from make until the file has its final name or was removed.
  bool isMade() const { return isMade_; }
  int fd() const { return fd_.get(); }
  // The directory of both files, with all links on the way resolved, and the name of the old one in it.
  int directory() const { return directory_.fd.get(); }
  const std::string& oldName() const { return oldName_; }

  // Changes the owner and the group of the new file. Returns false, with errno set, if that fails. Call it at most
  // once, when the content is complete.
  bool giveTo(uid_t owner, gid_t group);
  // Closes the descriptor; the lock stays held. Returns false if that fails.
  bool closeToWrite() { return fd_.close(); }
  // Renames the new file over the old one, syncs the directory and releases the lock. Returns false, and leaves the old
  // file unchanged, if the rename fails or if the name of the new file belongs to another file by now. A failure to
  // sync is ignored.
  bool replaceOld();
  // Removes the new file, unless its name belongs to another file by now. Does nothing if there is none.
  void remove();

 private:
  enum class Attempt { made, busy, again, failed };
  Attempt tryOnce();
  Attempt makeWay();
  Place placeOfNew(int fd) const { return placeOf(fd, directory(), newName_.c_str()); }
  UniqueFd openDirectory() const;
  UniqueFd lockDirectory() const;

  StoreFile directory_;
  std::string oldName_;
  std::string newName_;
  std::string newPath_;
  UniqueFd fd_;
  UniqueFd lock_;  // the same open file, so it has the same lock
  UniqueFd directoryLock_;
  bool isMade_ = false;
  Leftover leftover_;
};
