// FileAccess: opens, reads and writes files for the whole program. FileUtils is built on it.
//
//   OpenedFile file;
//   if (!openForReading(AT_FDCWD, path.c_str(), file)) return ...;      // errno holds the reason
//   char buffer[4096];
//   const ssize_t n = readSome(file.fd.get(), buffer, sizeof buffer);
//
// - Every descriptor is close-on-exec.
// - No call waits for the other end of a FIFO.
// - An interrupted call is made again.
//
// There are two ways to open a file. What the program does in its store must not depend on what somebody else put there
// (Access::ofStore); the general file functions do what the system does (Access::ofSystem).
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "base/files/OldBytes.h"
#include "base/files/StoreOpener.h"
#include "base/system/Uninterrupted.h"
#include "base/system/UniqueFd.h"
#include "command/status/StatusCodes.h"

// A file open for reading, with its stat and its size at the time of opening. The size of /dev/null is 0.
struct OpenedFile {
  UniqueFd fd;
  struct stat info = {};

  off_t size() const { return info.st_size; }
  // Returns true if the file has fewer disk blocks than its size needs. It may then have holes that a reader can skip.
  bool isSparse() const;
};

enum class Access {
  ofStore,   // regular files and /dev/null only; over trusted links only (see StoreOpener.h)
  ofSystem,  // files of every kind; links of anybody are followed, also /dev/stdout and the like
};

// Opens a file of the store for reading, over the links that `follow` includes (see StoreOpener.h). A relative path
// starts at `directoryFd`, an open directory or AT_FDCWD. Only regular files and /dev/null can be opened. On failure it
// returns false, does not change `file`, and sets errno: EINVAL for any other kind of file, ELOOP for a link that is
// not followed.
bool openForReading(int directoryFd, const char* path, OpenedFile& file, Follow follow = Follow::forReading);

// Opens a file of any kind for reading, as Access::ofSystem. The size is that of stat. Reads never block: without data
// in a FIFO or terminal they fail. On failure it returns false, does not change `file`, and sets errno.
bool openAnyForReading(const std::string& path, OpenedFile& file);

// One read(2). Returns the number of bytes read, 0 at the end of the file, or -1 with errno set.
ssize_t readSome(int fd, char* buffer, std::size_t size);

// fcntl(2) with F_DUPFD_CLOEXEC and the lowest free number. The result is not open if that fails.
UniqueFd duplicateOf(int fd);

// Takes the flock of an open file or directory. Returns false if another holder kept it until the deadline; it tries
// again after pauses (see RetryPauses.h). A file system without locks counts as if the lock were taken.
bool lockFile(int fd, std::chrono::steady_clock::time_point deadline);

// True if the path is not empty and contains no zero byte, so that it can name a file.
bool isUsablePath(const std::string& path);

// Calls stat(2), which follows links. Returns false if that fails or if the path is not usable.
bool lookAt(const std::string& path, struct stat& info);

// Writes a regular file in place and creates it if it does not exist. It also creates the missing target of a link that
// it follows. It writes to /dev/null too, and with Access::ofSystem to every FIFO that has a reader and to every
// device.
//
//   FileWriter writer;
//   Status s = writer.open(path, 0640, Access::ofStore);
//   ...writer.write(bytes)...
//   return writer.finish();
//
// The new bytes overwrite the old ones from the start of the file. finish cuts off the remaining old bytes and closes
// the file. It never lengthens a file that another program has cut in the meantime. A file that open created is removed
// again unless finish succeeds. After keepOldBytes, an old file gets its old bytes back unless finish succeeds.
// A writer writes one file: once open or openLocked has succeeded, neither may be called again.
// Other processes: writers of one file take turns, so that the file ends as one of them has written it. Each holds a
// flock on the file from open until finish or its destruction. If another file takes the path of a file of the store
// before open has locked it, open starts over. It does so 19 times at most and then writes the file that it has. Anyone
// who can open the file can hold that lock, so a writer waits for it for one second at most and then writes without it.
// On a file system without locks it writes at once.
class FileWriter {
 public:
  using Clock = std::chrono::steady_clock;

  FileWriter() = default;
  ~FileWriter() { abandon(); }
  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;

  // Opens the file for writing and creates a missing one, which gets `newMode` less the umask. A file of the store is
  // opened for reading too, if it is readable. Statuses: "invalid argument" for an empty path or one with a zero byte;
  // "file open", also for a FIFO without a reader, and for a kind of file or a link that `access` does not open.
  Status open(const std::string& path, mode_t newMode, Access access = Access::ofStore);

  // Opens a file of the store in an open directory, to read its first line, if it is readable, and then to write it. It
  // waits for the lock until `deadline`. Returns false, with errno set, if the file cannot be opened: EWOULDBLOCK if
  // another holder kept the lock, EINVAL if it is no regular file, ELOOP for a link that is not trusted.
  bool openLocked(int directoryFd, const char* name, mode_t newMode, Clock::time_point deadline);
  // Duplicates the descriptor, to read the file; the lock and the position are shared. Returns false if that fails.
  bool share(OpenedFile& file) const;
  // Returns to the start of the file, to write after reading. Returns false if that fails.
  bool rewind();

  // True if open created the file.
  bool isNew() const { return isNew_; }
  // The stat of the file when open opened it, for isSameFile.
  const struct stat& info() const { return file_.info; }

  // Sets the mode whatever the umask. Does not change devices and FIFOs. A failure is ignored.
  void setMode(mode_t mode);

  // Reserves disk space for `length` bytes if the file is not new and is shorter, so that a full disk is reported
  // before any byte of the old content changes. Succeeds if the file system cannot reserve space. Status: "file write".
  Status reserve(std::size_t length);

  // Empties the file; to be called before the first write. Status: "file write".
  Status cutToNothing();

  // To be called right before the first write, if `length` bytes will be written to a file of the store. If the write,
  // the cut or the close fails, or if finish is never called, the file gets its old bytes and its old length back as
  // far as the system allows. A file that is more than 4 KiB longer than `length` gets them back if the write or the
  // cut fails, but keeps the whole new content if only the close after the cut fails. A file that is not readable keeps
  // what was written.
  void keepOldBytes(std::size_t length);

  // Status of both: "file write". After a failed finish, and if finish is never called, a new file is removed again.
  Status write(std::string_view bytes);
  Status finish();

 private:
  template <typename Open>
  void openOrMake(Open open);
  void abandon();
  bool cutToWritten();

  StoreFile file_;
  OldBytes old_;
  off_t written_ = 0;
  bool isNew_ = false;
};

// Replaces the content of a file in place by `content`. Sets the mode whatever the umask: always, or only if the file
// is new. A file of the store gets its old bytes back if that fails (see keepOldBytes), but not its old mode. The
// statuses are those of FileWriter.
enum class SetMode { always, onNewFiles };
Status replaceContent(const std::string& path, std::string_view content, mode_t mode, SetMode setMode,
                      Access access = Access::ofStore);
