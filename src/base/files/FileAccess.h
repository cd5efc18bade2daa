// FileAccess: how files are opened, read and written everywhere in the program; the ground below FileUtils.
//
//   OpenedFile file;
//   if (!openForReading(AT_FDCWD, path.c_str(), file)) return ...;      // errno tells why
//   char buffer[4096];
//   const ssize_t n = readSome(file.fd.get(), buffer, sizeof buffer);
//
// Every descriptor is close-on-exec, nothing waits for the other end of a FIFO, and an interrupted call is made again.
// A link to a device, /dev/null excepted, is not opened for reading at all: an open alone can start something. Neither
// is a link into /proc, where files are said to be regular that never end.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <string>
#include <string_view>

#include "base/system/UniqueFd.h"
#include "command/status/StatusCodes.h"

// Makes a call again as long as a signal interrupts it.
template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

// A file open for reading and what it was when it was opened. For /dev/null the size is 0.
struct OpenedFile {
  UniqueFd fd;
  struct stat info = {};
  off_t size = 0;
};

// Whose link at the end of a path is followed.
enum class Links {
  ofAnybody,
  ofTrusted,  // one that root made, or our own user: somebody else's would choose the file for us
};

// Whether a look at a link, not followed, saw one of Links::ofTrusted.
bool isTrustedLink(const struct stat& info);

// Opens a path, relative ones from an open directory or AT_FDCWD. Only regular files and /dev/null are opened; for
// anything else errno is EINVAL, for a link that is not followed ELOOP. False leaves `file` unchanged and the reason in
// errno.
bool openForReading(int directoryFd, const char* path, OpenedFile& file, Links links = Links::ofAnybody);

// One read(2): the bytes read, 0 at the end, -1 with errno.
ssize_t readSome(int fd, char* buffer, std::size_t size);

// Whether two looks at files saw the same file.
inline bool isSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}
// Whether it is the device /dev/null, which counts as an empty file wherever one is expected.
bool isNullDevice(const struct stat& info);

// A path can name a file: it is not empty and holds no zero byte.
bool isUsablePath(const std::string& path);

// stat(2) of what a path leads to. False when the path can name no file, or when that fails.
bool lookAt(const std::string& path, struct stat& info);

// A regular file open for writing in place, made when it was not there. Links of Links::ofTrusted are followed, to make
// their end as well. /dev/null takes bytes and keeps none.
//
//   FileWriter writer;
//   Status s = writer.open(path, 0640);
//   ...writer.write(bytes)...
//   return writer.finish();
//
// The bytes overwrite the old ones from the start; finish cuts off what is left behind them and closes. Unless finish
// has succeeded, a file that was not there before is removed again.
// Other processes: writers of one file take turns, so that it ends as one of them has written it. Each holds the file
// itself (flock) from open to the end. What holds it for longer than a second, which anybody can do who may open it, is
// not waited for.
class FileWriter {
 public:
  FileWriter() = default;
  ~FileWriter() { abandon(); }
  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;

  // Status: "file open", also for anything but a regular file and for somebody else's link. A new file gets `newMode`
  // less the umask.
  Status open(const std::string& path, mode_t newMode);

  // Whether the file was made by open.
  bool isNew() const { return isNew_; }
  // What open saw; for comparing files.
  const struct stat& info() const { return info_; }

  // Sets the mode whatever the umask; /dev/null keeps its own. A failure is no failure of the file.
  void setMode(mode_t mode);

  // Reserves room for `length` bytes where the old content is shorter, so that a full disk is met before a byte of it
  // has changed. File systems that cannot do so are passed over. Status: "file write".
  Status reserve(std::size_t length);

  // Empties the file before its first byte is written.
  Status cutToNothing();

  // Status: "file write".
  Status write(std::string_view bytes);
  Status finish();

 private:
  void abandon();

  UniqueFd fd_;
  std::string path_;  // behind all links
  struct stat info_ = {};
  off_t written_ = 0;
  bool isNew_ = false;
};

// Replaces the content of a file by `content` in place, with the statuses of FileWriter. `mode` is set whatever the
// umask: always, or only when the file is new.
enum class SetMode { always, onNewFiles };
Status replaceContent(const std::string& path, std::string_view content, mode_t mode, SetMode setMode);
