#include "base/FileAccess.h"

#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "base/RawWrite.h"

namespace {

// A FIFO never makes an open wait, and a terminal never becomes ours.
constexpr int alwaysFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

bool isAccepted(const struct stat& info) { return S_ISREG(info.st_mode) || isNullDevice(info); }

bool isRoomMissing(int error) { return error == ENOSPC || error == EDQUOT || error == EFBIG || error == EIO; }

}  // namespace

bool isNullDevice(const struct stat& info) { return S_ISCHR(info.st_mode) && info.st_rdev == makedev(1, 3); }

bool isUsablePath(const std::string& path) { return !path.empty() && path.find('\0') == std::string::npos; }

bool openForReading(int directoryFd, const char* path, OpenedFile& file) {
  UniqueFd fd(uninterrupted([&] { return ::openat(directoryFd, path, O_RDONLY | alwaysFlags); }));
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
  fd_.reset(uninterrupted([&] { return ::open(path.c_str(), O_WRONLY | alwaysFlags); }));
  if (!fd_.isOpen() && errno == ENOENT) {
    fd_.reset(uninterrupted([&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | alwaysFlags, newMode); }));
    isNew_ = fd_.isOpen();
  }
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
  if (isNew_) removeMadeFile();
  isNew_ = false;
  written_ = 0;
  fd_.reset();
}

// The path may be a link whose end was made: that end goes, the link stays.
void FileWriter::removeMadeFile() const {
  const std::unique_ptr<char, decltype(&std::free)> end(::realpath(path_.c_str(), nullptr), &std::free);
  (void)::unlink(end ? end.get() : path_.c_str());
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
