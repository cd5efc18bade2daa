#include "base/files/FileAccess.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <thread>
#include <utility>

#include "base/system/RawWrite.h"
#include "base/text/StringUtils.h"

namespace {

// An open never blocks on a FIFO, and a terminal never becomes our controlling terminal.
constexpr int alwaysFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

bool isAccepted(const struct stat& info) { return S_ISREG(info.st_mode) || isNullDevice(info); }

UniqueFd openAt(int directoryFd, const char* path, int flags) {
  return UniqueFd(uninterrupted([&] { return ::openat(directoryFd, path, flags | alwaysFlags); }));
}

// Reads the target of a link, as a path from the same directory. Returns false, with errno set, for a link that `links`
// does not include. The stat and the target are read through one descriptor of the link, so that nobody can replace the
// link in between.
bool readLink(int directoryFd, const char* path, Links links, std::string& target) {
  const UniqueFd link = openAt(directoryFd, path, O_PATH | O_NOFOLLOW);
  struct stat info = {};
  char text[PATH_MAX];
  if (!link.isOpen() || ::fstat(link.get(), &info) != 0) return false;
  const bool isFollowed = links == Links::ofAnybody ? S_ISLNK(info.st_mode) : isTrustedLink(info);
  const ssize_t length = isFollowed ? ::readlinkat(link.get(), "", text, sizeof text) : 0;
  if (length <= 0) {
    errno = ELOOP;
    return false;
  }
  const std::string_view from = path;
  target.assign(text, static_cast<std::size_t>(length));
  if (target[0] != '/') target.insert(0, from.substr(0, from.rfind('/') + 1));  // npos + 1 is 0
  return true;
}

// Opens a path with `open`, which does not follow links. Follows links in the last component itself, also a chain of
// them. `path` becomes the path of the file itself.
template <typename Open>
UniqueFd openThroughLinks(int directoryFd, std::string& path, Links links, Open open) {
  constexpr int longestChain = 40;  // the system's own limit
  UniqueFd fd = open(path.c_str());
  for (int count = 0; !fd.isOpen() && errno == ELOOP && count < longestChain; ++count) {
    std::string target;
    if (!readLink(directoryFd, path.c_str(), links, target)) return UniqueFd();
    path = std::move(target);
    fd = open(path.c_str());
  }
  return fd;
}

UniqueFd openToWrite(std::string& path, int flags, mode_t mode, Links links) {
  return openThroughLinks(AT_FDCWD, path, links, [&](const char* end) {
    return UniqueFd(uninterrupted([&] { return ::open(end, O_WRONLY | O_NOFOLLOW | alwaysFlags | flags, mode); }));
  });
}

// Opens an existing file of any kind over links of anybody, also over those of /proc, whose text is no path.
UniqueFd openAnyToWrite(const std::string& path) {
  return UniqueFd(uninterrupted([&] { return ::open(path.c_str(), O_WRONLY | alwaysFlags); }));
}

// From now on a write to a FIFO or device waits until it can be made.
void letWritesWait(int fd) { (void)::fcntl(fd, F_SETFL, O_WRONLY); }

bool isOfProc(int fd) {
  struct statfs system = {};
  return ::fstatfs(fd, &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

// Opens the target of a path that may be a link, but only after a stat has shown that it is a file that may be opened.
// It opens the file through the descriptor that it called stat on. Without /proc it must open the path again.
UniqueFd openThroughAny(int directoryFd, const char* path) {
  const UniqueFd found = openAt(directoryFd, path, O_PATH);
  struct stat info = {};
  if (!found.isOpen() || ::fstat(found.get(), &info) != 0) return UniqueFd();
  if (!isAccepted(info) || isOfProc(found.get())) {
    errno = EINVAL;
    return UniqueFd();
  }
  const std::string again = StringUtils::concatenate({"/proc/self/fd/", StringUtils::toString(found.get())});
  UniqueFd fd = openAt(AT_FDCWD, again.c_str(), O_RDONLY);
  return fd.isOpen() || errno != ENOENT ? std::move(fd) : openAt(directoryFd, path, O_RDONLY);
}

// If the path is no link, which is the usual case, this is one system call.
UniqueFd openToRead(int directoryFd, const char* path, Links links) {
  const auto open = [&](const char* end) { return openAt(directoryFd, end, O_RDONLY | O_NOFOLLOW); };
  if (links == Links::ofTrusted) {
    std::string end = path;
    return openThroughLinks(directoryFd, end, Links::ofTrusted, open);
  }
  UniqueFd fd = open(path);
  return fd.isOpen() || errno != ELOOP ? std::move(fd) : openThroughAny(directoryFd, path);
}

// Waits for the other writers of a file. Anyone who can open the file can hold the lock, so after one second the write
// goes ahead anyway. It does so at once if the file system has no locks.
void waitForTurn(int fd) {
  using std::chrono::milliseconds;
  using Clock = std::chrono::steady_clock;
  constexpr milliseconds longestWait(1000);
  constexpr milliseconds longestPause(20);
  const auto deadline = Clock::now() + longestWait;
  for (milliseconds pause(1); ::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK && Clock::now() < deadline;) {
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, longestPause);
  }
}

bool isRoomMissing(int error) { return error == ENOSPC || error == EDQUOT || error == EFBIG || error == EIO; }

}  // namespace

bool isNullDevice(const struct stat& info) { return S_ISCHR(info.st_mode) && info.st_rdev == makedev(1, 3); }

bool isUsablePath(const std::string& path) { return !path.empty() && path.find('\0') == std::string::npos; }

bool lookAt(const std::string& path, struct stat& info) {
  return isUsablePath(path) && ::stat(path.c_str(), &info) == 0;
}

bool isTrustedLink(const struct stat& info) {
  return S_ISLNK(info.st_mode) && (info.st_uid == 0 || info.st_uid == ::geteuid());
}

bool openForReading(int directoryFd, const char* path, OpenedFile& file, Links links) {
  UniqueFd fd = openToRead(directoryFd, path, links);
  struct stat info = {};
  if (!fd.isOpen() || ::fstat(fd.get(), &info) != 0) return false;
  if (!isAccepted(info)) {
    errno = EINVAL;
    return false;
  }
  file.fd = std::move(fd);
  file.info = info;
  file.size = S_ISREG(info.st_mode) ? info.st_size : 0;
  return true;
}

bool openAnyForReading(const std::string& path, OpenedFile& file) {
  UniqueFd fd = openAt(AT_FDCWD, path.c_str(), O_RDONLY);
  struct stat info = {};
  if (!fd.isOpen() || ::fstat(fd.get(), &info) != 0) return false;
  file.fd = std::move(fd);
  file.info = info;
  file.size = info.st_size;
  return true;
}

bool isUntrustedLink(const std::string& path) {
  std::string end = path;
  const auto find = [](const char* file) {
    UniqueFd fd = openAt(AT_FDCWD, file, O_PATH | O_NOFOLLOW);
    struct stat info = {};
    if (fd.isOpen() && ::fstat(fd.get(), &info) == 0 && S_ISLNK(info.st_mode)) {
      errno = ELOOP;
      fd.reset();
    }
    return fd;
  };
  return !openThroughLinks(AT_FDCWD, end, Links::ofTrusted, find).isOpen() && errno == ELOOP;
}

ssize_t readSome(int fd, char* buffer, std::size_t size) {
  return uninterrupted([&] { return ::read(fd, buffer, size); });
}

Status FileWriter::open(const std::string& path, mode_t newMode, Access access) {
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  abandon();
  path_ = path;
  const Links links = access == Access::ofStore ? Links::ofTrusted : Links::ofAnybody;
  fd_ = access == Access::ofSystem ? openAnyToWrite(path) : openToWrite(path_, 0, 0, links);
  if (!fd_.isOpen() && errno == ENOENT) {
    fd_ = openToWrite(path_, O_CREAT, newMode, links);
    isNew_ = fd_.isOpen();
  }
  if (fd_.isOpen()) waitForTurn(fd_.get());
  if (fd_.isOpen() && ::fstat(fd_.get(), &info_) == 0 && (access == Access::ofSystem || isAccepted(info_))) {
    isNew_ = isNew_ && info_.st_size == 0;  // else another process created and filled it a moment ago
    if (access == Access::ofSystem && !S_ISREG(info_.st_mode)) letWritesWait(fd_.get());
    return Status::success();
  }
  abandon();
  return Status::of(status::openError);
}

void FileWriter::setMode(mode_t mode) {
  if (S_ISREG(info_.st_mode)) (void)::fchmod(fd_.get(), mode);  // a failure is ignored: the content is what matters
}

Status FileWriter::reserve(std::size_t length) {
  const auto wanted = static_cast<off_t>(length);
  if (isNew_ || !S_ISREG(info_.st_mode) || wanted <= info_.st_size) return Status::success();
  const int result = uninterrupted([&] { return ::fallocate(fd_.get(), FALLOC_FL_KEEP_SIZE, 0, wanted); });
  return Status::of(result != 0 && isRoomMissing(errno) ? status::writeError : status::success);
}

Status FileWriter::cutToNothing() {
  if (isNew_ || !S_ISREG(info_.st_mode)) return Status::success();
  const int result = uninterrupted([&] { return ::ftruncate(fd_.get(), 0); });
  return Status::of(result == 0 ? status::success : status::writeError);
}

Status FileWriter::write(std::string_view bytes) {
  written_ += static_cast<off_t>(bytes.size());
  return Status::of(writeFully(fd_.get(), bytes) ? status::success : status::writeError);
}

Status FileWriter::finish() {
  bool good = fd_.isOpen();
  if (good && !isNew_ && S_ISREG(info_.st_mode)) {
    good = uninterrupted([&] { return ::ftruncate(fd_.get(), written_); }) == 0;
  }
  good = fd_.close() && good;
  if (good) isNew_ = false;
  abandon();
  return Status::of(good ? status::success : status::writeError);
}

void FileWriter::abandon() {
  if (isNew_) (void)::unlink(path_.c_str());  // unlink removes a link that took the file's place, never its target
  isNew_ = false;
  written_ = 0;
  fd_.reset();
}

Status replaceContent(const std::string& path, std::string_view content, mode_t mode, SetMode setMode, Access access) {
  FileWriter writer;
  Status s = writer.open(path, mode, access);
  if (s.isSuccess()) s = writer.reserve(content.size());
  if (s.isSuccess()) s = writer.write(content);
  if (!s.isSuccess()) return s;
  if (setMode == SetMode::always || writer.isNew()) writer.setMode(mode);
  return writer.finish();
}
