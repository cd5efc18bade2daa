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

#include <cerrno>
#include <cstddef>
#include <string>
#include <string_view>

#include "base/system/UniqueFd.h"
#include "command/status/StatusCodes.h"

// Repeats a system call until no signal interrupts it.
template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

// A file open for reading, with its stat and its size at the time of opening. The size of /dev/null is 0.
struct OpenedFile {
  UniqueFd fd;
  struct stat info = {};
  off_t size = 0;
};

enum class Access {
  ofStore,   // regular files and /dev/null only; writers follow only links of Links::ofTrusted
  ofSystem,  // files of every kind; links of anybody are followed, also /dev/stdout and the like
};

// Whose symbolic links are followed in the last component of a path.
enum class Links {
  ofAnybody,
  ofTrusted,  // only links that root or our own user owns: with a link, another user could choose which file we use
};

// True if `info`, from an lstat, is that of a link of Links::ofTrusted.
bool isTrustedLink(const struct stat& info);

// Opens a file of the store for reading. A relative path starts at `directoryFd`, an open directory or AT_FDCWD. Only
// regular files and /dev/null can be opened. On failure it returns false, does not change `file`, and sets errno:
// EINVAL for any other kind of file, ELOOP for a link that is not followed.
// A link to a device other than /dev/null is never opened, because opening a device can already have an effect. A link
// into /proc is never opened either: /proc has endless files that stat reports as regular.
bool openForReading(int directoryFd, const char* path, OpenedFile& file, Links links = Links::ofAnybody);

// Opens a file of any kind for reading, as Access::ofSystem. The size is that of stat. Reads never block: without data
// in a FIFO or terminal they fail. On failure it returns false, does not change `file`, and sets errno.
bool openAnyForReading(const std::string& path, OpenedFile& file);

// True if the path is a link that Links::ofTrusted does not follow, or leads over one.
bool isUntrustedLink(const std::string& path);

// One read(2). Returns the number of bytes read, 0 at the end of the file, or -1 with errno set.
ssize_t readSome(int fd, char* buffer, std::size_t size);

// True if both belong to the same file.
inline bool isSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}
// True if it belongs to the device /dev/null, which counts as an empty file wherever a regular file is expected.
bool isNullDevice(const struct stat& info);

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
// the file. A file that open created is removed again unless finish succeeds.
// Other processes: writers of one file take turns, so that the file ends as one of them has written it. Each holds a
// flock on the file from open until finish or its destruction. Anyone who can open the file can hold that lock, so a
// writer waits for it for one second at most and then writes without it.
class FileWriter {
 public:
  FileWriter() = default;
  ~FileWriter() { abandon(); }
  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;

  // Opens the file for writing and creates a missing one, which gets `newMode` less the umask. Statuses: "invalid
  // argument" for an empty path or one with a zero byte; "file open", also for a FIFO without a reader, and for a kind
  // of file or a link that `access` does not open.
  Status open(const std::string& path, mode_t newMode, Access access = Access::ofStore);

  // True if open created the file.
  bool isNew() const { return isNew_; }
  // The stat of the file when open opened it, for isSameFile.
  const struct stat& info() const { return info_; }

  // Sets the mode whatever the umask. Does not change devices and FIFOs. A failure is ignored.
  void setMode(mode_t mode);

  // Reserves disk space for `length` bytes if the old content is shorter, so that a full disk is reported before any
  // byte of the old content changes. Succeeds if the file system cannot reserve space. Status: "file write".
  Status reserve(std::size_t length);

  // Empties the file; to be called before the first write.
  Status cutToNothing();

  // Status of both: "file write". After a failed finish, and if finish is never called, a new file is removed again.
  Status write(std::string_view bytes);
  Status finish();

 private:
  void abandon();

  UniqueFd fd_;
  std::string path_;  // the path of the file itself, with all links resolved
  struct stat info_ = {};
  off_t written_ = 0;
  bool isNew_ = false;
};

// Replaces the content of a file in place by `content`. Sets the mode whatever the umask: always, or only if the file
// is new. The statuses are those of FileWriter.
enum class SetMode { always, onNewFiles };
Status replaceContent(const std::string& path, std::string_view content, mode_t mode, SetMode setMode,
                      Access access = Access::ofStore);
