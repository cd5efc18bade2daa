#include "base/files/FileAccess.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <chrono>
#include <optional>
#include <utility>

#include "base/files/LinkText.h"
#include "base/system/RawWrite.h"
#include "base/system/RetryPauses.h"
#include "base/text/StringUtils.h"

namespace {

// An open never blocks on a FIFO, and a terminal never becomes our controlling terminal.
constexpr int alwaysFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// How long a writer waits for other writers of its file.
constexpr std::chrono::milliseconds longestWriterWait(1000);

bool isAccepted(const struct stat& info) { return S_ISREG(info.st_mode) || isNullDevice(info); }

UniqueFd openAt(int directoryFd, const char* path, int flags) {
  return UniqueFd(uninterrupted([&] { return ::openat(directoryFd, path, flags | alwaysFlags); }));
}

// Reads the target of a link, as a path from the same directory. Returns nothing, with errno set, if it cannot be read.
std::optional<std::string> targetOf(const std::string& path) {
  std::optional<std::string> target = linkText(AT_FDCWD, path.c_str());
  if (target && target->front() != '/') target->insert(0, path, 0, path.rfind('/') + 1);  // npos + 1 is 0
  return target;
}

// Opens a file of the system to write it, over all links in the last component, also a chain of them. `path` becomes
// the path of the file itself, which an abandoned write may have to remove.
UniqueFd openOfSystem(std::string& path, int flags, mode_t mode) {
  constexpr int longestChain = 40;  // the system's own limit
  const auto open = [&] {
    return UniqueFd(
        uninterrupted([&] { return ::open(path.c_str(), O_WRONLY | O_NOFOLLOW | alwaysFlags | flags, mode); }));
  };
  UniqueFd fd = open();
  for (int links = 0; !fd.isOpen() && errno == ELOOP && links < longestChain; ++links) {
    const std::optional<std::string> target = targetOf(path);
    if (!target) break;
    path = *target;
    fd = open();
  }
  return fd;
}

// Opens an existing file of any kind over links of anybody, also over those of /proc, whose text is no path.
UniqueFd openAnyToWrite(const std::string& path) {
  return UniqueFd(uninterrupted([&] { return ::open(path.c_str(), O_WRONLY | alwaysFlags); }));
}

// Opens a file of the store to write it, and to read it if it is readable.
StoreFile openOfStore(int directoryFd, const char* path, int flags, mode_t mode) {
  StoreFile file = openInStore(directoryFd, path, O_RDWR | flags, Follow::trusted, mode);
  if (file.fd.isOpen() || errno != EACCES) return file;
  return openInStore(directoryFd, path, O_WRONLY | flags, Follow::trusted, mode);
}

StoreFile openToWrite(const std::string& path, int flags, mode_t mode, Access access) {
  if (access == Access::ofStore) return openOfStore(AT_FDCWD, path.c_str(), flags, mode);
  StoreFile file;
  file.start = AT_FDCWD;
  file.name = path;
  file.fd = (flags & O_CREAT) != 0 ? openOfSystem(file.name, flags, mode) : openAnyToWrite(path);
  return file;
}

// From now on a write to a FIFO or device waits until it can be made.
void letWritesWait(int fd) { (void)::fcntl(fd, F_SETFL, O_WRONLY); }

// Returns true if the name still leads to the file that is open. A failure to find that out counts as true.
bool isStillThere(const StoreFile& file) {
  struct stat info = {};
  if (::fstatat(file.place(), file.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return errno != ENOENT;
  return isSameFile(info, file.info);
}

bool isRoomMissing(int error) { return error == ENOSPC || error == EDQUOT || error == EFBIG || error == EIO; }

}  // namespace

bool OpenedFile::isSparse() const {
  constexpr off_t diskBlock = 512;  // the unit of st_blocks, whatever the file system
  return info.st_blocks < size() / diskBlock;
}

UniqueFd duplicateOf(int fd) { return UniqueFd(::fcntl(fd, F_DUPFD_CLOEXEC, 0)); }

bool lockFile(int fd, std::chrono::steady_clock::time_point deadline) {
  const auto tryOnce = [&] { return ::flock(fd, LOCK_EX | LOCK_NB); };
  RetryPauses pauses(deadline);
  while (uninterrupted(tryOnce) == -1 && errno == EWOULDBLOCK) {
    if (!pauses.next()) return false;
  }
  return true;
}

[[gnu::hot]] bool isUsablePath(const std::string& path) {
  return !path.empty() && path.find('\0') == std::string::npos;
}

bool lookAt(const std::string& path, struct stat& info) {
  return isUsablePath(path) && ::stat(path.c_str(), &info) == 0;
}

[[gnu::hot]] bool openForReading(int directoryFd, const char* path, OpenedFile& file, Follow follow) {
  StoreFile found = openInStore(directoryFd, path, O_RDONLY, follow);
  if (!found.fd.isOpen()) return false;
  if (!isAccepted(found.info)) {
    errno = EINVAL;
    return false;
  }
  file.fd = std::move(found.fd);
  file.info = found.info;
  return true;
}

bool openAnyForReading(const std::string& path, OpenedFile& file) {
  UniqueFd fd = openAt(AT_FDCWD, path.c_str(), O_RDONLY);
  struct stat info = {};
  if (!fd.isOpen() || ::fstat(fd.get(), &info) != 0) return false;
  file.fd = std::move(fd);
  file.info = info;
  return true;
}

[[gnu::hot]] ssize_t readSome(int fd, char* buffer, std::size_t size) {
  return uninterrupted([&] { return ::read(fd, buffer, size); });
}

// Calls open with flags for an existing file, and then for a new one if none exists.
template <typename Open>
void FileWriter::openOrMake(Open open) {
  isNew_ = false;
  file_ = StoreFile();  // closed first: an error of close must not hide that of open
  file_ = open(0);
  const bool isMissing = !file_.fd.isOpen() && errno == ENOENT;
  if (isMissing) file_ = open(O_CREAT);
  isNew_ = isMissing && file_.fd.isOpen();
}

// The order of steps: open, and create the file only if it is missing; lock it; look at it, because another process may
// have changed it until then; start over if the path leads elsewhere by now. Between two such starts another process
// has replaced the file, so after a few of them this one takes what it has.
Status FileWriter::open(const std::string& path, mode_t newMode, Access access) {
  constexpr int mostStarts = 20;
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  const auto deadline = Clock::now() + longestWriterWait;
  for (int start = 1;; ++start) {
    openOrMake([&](int flags) { return openToWrite(path, flags, newMode, access); });
    if (file_.fd.isOpen()) (void)lockFile(file_.fd.get(), deadline);
    if (!file_.fd.isOpen() || ::fstat(file_.fd.get(), &file_.info) != 0) break;
    if (access == Access::ofStore && !isAccepted(file_.info)) break;
    isNew_ = isNew_ && file_.info.st_size == 0;  // else another process created and filled it a moment ago
    if (access == Access::ofSystem && !S_ISREG(file_.info.st_mode)) letWritesWait(file_.fd.get());
    if (access == Access::ofSystem || start == mostStarts || isStillThere(file_)) return Status::success();
  }
  abandon();
  return Status::of(status::openError);
}

bool FileWriter::openLocked(int directoryFd, const char* name, mode_t newMode, Clock::time_point deadline) {
  for (;;) {
    openOrMake([&](int flags) { return openOfStore(directoryFd, name, flags, newMode); });
    if (!file_.fd.isOpen()) return false;
    errno = EINVAL;
    if (!S_ISREG(file_.info.st_mode)) break;
    const bool isLocked = lockFile(file_.fd.get(), deadline);
    if (::fstat(file_.fd.get(), &file_.info) != 0) break;
    isNew_ = isNew_ && file_.info.st_size == 0;
    if (isLocked && isStillThere(file_)) return true;
    isNew_ = false;  // the file at the path is not ours to remove
    errno = EWOULDBLOCK;
    if (!isLocked || Clock::now() >= deadline) break;
  }
  const int error = errno;
  abandon();
  errno = error;
  return false;
}

bool FileWriter::share(OpenedFile& file) const {
  file.fd = duplicateOf(file_.fd.get());
  file.info = file_.info;
  return file.fd.isOpen();
}

bool FileWriter::rewind() { return ::lseek(file_.fd.get(), 0, SEEK_SET) == 0; }

void FileWriter::setMode(mode_t mode) {
  if (S_ISREG(file_.info.st_mode))
    (void)::fchmod(file_.fd.get(), mode);  // a failure is ignored: the content is what matters
}

Status FileWriter::reserve(std::size_t length) {
  const auto wanted = static_cast<off_t>(length);
  if (isNew_ || !S_ISREG(file_.info.st_mode) || wanted <= file_.info.st_size) return Status::success();
  const int result = uninterrupted([&] { return ::fallocate(file_.fd.get(), FALLOC_FL_KEEP_SIZE, 0, wanted); });
  return Status::of(result == -1 && isRoomMissing(errno) ? status::writeError : status::success);
}

Status FileWriter::cutToNothing() {
  if (isNew_ || !S_ISREG(file_.info.st_mode)) return Status::success();
  const int result = uninterrupted([&] { return ::ftruncate(file_.fd.get(), 0); });
  return Status::of(result == 0 ? status::success : status::writeError);
}

void FileWriter::keepOldBytes(std::size_t length) {
  if (!isNew_ && S_ISREG(file_.info.st_mode)) old_.keep(file_.fd.get(), file_.info.st_size, length);
}

Status FileWriter::write(std::string_view bytes) {
  written_ += static_cast<off_t>(bytes.size());
  return Status::of(writeFully(file_.fd.get(), bytes) ? status::success : status::writeError);
}

bool FileWriter::cutToWritten() {
  if (isNew_ || !S_ISREG(file_.info.st_mode)) return true;
  struct stat info = {};
  if (::fstat(file_.fd.get(), &info) != 0) return false;
  if (info.st_size <= written_) return true;
  if (uninterrupted([&] { return ::ftruncate(file_.fd.get(), written_); }) != 0) return false;
  old_.noteCut();
  return true;
}

// The close reports bytes that have not reached a file on another machine. After it, only a second descriptor of the
// same open file can put the old ones back; it also holds the lock on until then.
Status FileWriter::finish() {
  bool good = file_.fd.isOpen() && cutToWritten();
  UniqueFd second = old_.isKept() ? duplicateOf(file_.fd.get()) : UniqueFd();
  good = file_.fd.close() && good;
  if (good) {
    isNew_ = false;
    old_.forget();
  }
  file_.fd = std::move(second);
  abandon();
  return Status::of(good ? status::success : status::writeError);
}

void FileWriter::abandon() {
  if (isNew_) (void)::unlinkat(file_.place(), file_.name.c_str(), 0);  // removes a link, never its target
  old_.putBack(file_.fd.get());
  isNew_ = false;
  file_.fd.reset();
  file_.directory.reset();
}

Status replaceContent(const std::string& path, std::string_view content, mode_t mode, SetMode setMode, Access access) {
  FileWriter writer;
  Status s = writer.open(path, mode, access);
  if (s.isSuccess()) s = writer.reserve(content.size());
  if (s.isSuccess() && access == Access::ofStore) writer.keepOldBytes(content.size());
  if (s.isSuccess()) s = writer.write(content);
  if (!s.isSuccess()) return s;
  if (setMode == SetMode::always || writer.isNew()) writer.setMode(mode);
  return writer.finish();
}
