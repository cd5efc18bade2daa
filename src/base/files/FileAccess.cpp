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

// A FIFO never makes an open wait, and a terminal never becomes ours.
constexpr int alwaysFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

bool isAccepted(const struct stat& info) { return S_ISREG(info.st_mode) || isNullDevice(info); }

UniqueFd openAt(int directoryFd, const char* path, int flags) {
  return UniqueFd(uninterrupted([&] { return ::openat(directoryFd, path, flags | alwaysFlags); }));
}

// Where a trusted link leads, as a path from the same directory. False, with errno, for anything else. The link is held
// while it is looked at, so that nobody can put another in its place.
bool readTrustedLink(int directoryFd, const char* path, std::string& target) {
  const UniqueFd link = openAt(directoryFd, path, O_PATH | O_NOFOLLOW);
  struct stat info = {};
  char text[PATH_MAX];
  if (!link.isOpen() || ::fstat(link.get(), &info) != 0) return false;
  const ssize_t length = isTrustedLink(info) ? ::readlinkat(link.get(), "", text, sizeof text) : 0;
  if (length <= 0) {
    errno = ELOOP;
    return false;
  }
  const std::string_view from = path;
  target.assign(text, static_cast<std::size_t>(length));
  if (target[0] != '/') target.insert(0, from.substr(0, from.rfind('/') + 1));  // npos + 1 is 0
  return true;
}

// Opens a path by a call that does not follow links, and follows trusted ones at its end, each of a chain. `path` then
// is where they led.
template <typename Open>
UniqueFd openThroughTrusted(int directoryFd, std::string& path, Open open) {
  constexpr int longestChain = 40;  // the system's own limit
  UniqueFd fd = open(path.c_str());
  for (int links = 0; !fd.isOpen() && errno == ELOOP && links < longestChain; ++links) {
    std::string target;
    if (!readTrustedLink(directoryFd, path.c_str(), target)) return UniqueFd();
    path = std::move(target);
    fd = open(path.c_str());
  }
  return fd;
}

UniqueFd openToWrite(std::string& path, int flags, mode_t mode) {
  return openThroughTrusted(AT_FDCWD, path, [&](const char* end) {
    return UniqueFd(uninterrupted([&] { return ::open(end, O_WRONLY | O_NOFOLLOW | alwaysFlags | flags, mode); }));
  });
}

bool isOfProc(int fd) {
  struct statfs system = {};
  return ::fstatfs(fd, &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

// Opens what links lead to, once a look at it has told that it may be opened. It is opened by the descriptor that was
// looked at; where the system has no /proc, by its path again.
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

// The usual case, no link, is one call.
UniqueFd openToRead(int directoryFd, const char* path, Links links) {
  const auto open = [&](const char* end) { return openAt(directoryFd, end, O_RDONLY | O_NOFOLLOW); };
  if (links == Links::ofTrusted) {
    std::string end = path;
    return openThroughTrusted(directoryFd, end, open);
  }
  UniqueFd fd = open(path);
  return fd.isOpen() || errno != ELOOP ? std::move(fd) : openThroughAny(directoryFd, path);
}

// Waits for the other writers of a file. Anybody who can open it can hold it, so the wait has an end: a file of which
// that is reached is written nevertheless, as is one whose file system knows no locks.
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

ssize_t readSome(int fd, char* buffer, std::size_t size) {
  return uninterrupted([&] { return ::read(fd, buffer, size); });
}

Status FileWriter::open(const std::string& path, mode_t newMode) {
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  abandon();
  path_ = path;
  fd_ = openToWrite(path_, 0, 0);
  if (!fd_.isOpen() && errno == ENOENT) {
    fd_ = openToWrite(path_, O_CREAT, newMode);
    isNew_ = fd_.isOpen();
  }
  if (fd_.isOpen()) waitForTurn(fd_.get());
  if (fd_.isOpen() && ::fstat(fd_.get(), &info_) == 0 && isAccepted(info_)) {
    isNew_ = isNew_ && info_.st_size == 0;  // else somebody else made and filled it a moment ago
    return Status::success();
  }
  abandon();
  return Status::of(status::openError);
}

void FileWriter::setMode(mode_t mode) {
  if (S_ISREG(info_.st_mode)) (void)::fchmod(fd_.get(), mode);  // the content counts, the mode is a courtesy
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
  if (isNew_) (void)::unlink(path_.c_str());  // never through a link that took the file's place
  isNew_ = false;
  written_ = 0;
  fd_.reset();
}

Status replaceContent(const std::string& path, std::string_view content, mode_t mode, SetMode setMode) {
  FileWriter writer;
  Status s = writer.open(path, mode);
  if (s.isSuccess()) s = writer.reserve(content.size());
  if (s.isSuccess()) s = writer.write(content);
  if (!s.isSuccess()) return s;
  if (setMode == SetMode::always || writer.isNew()) writer.setMode(mode);
  return writer.finish();
}
