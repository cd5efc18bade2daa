#include "base/files/DirectoryReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "base/files/LinkText.h"
#include "base/system/Uninterrupted.h"

namespace FileUtils {
namespace {

UniqueFd openAgain(int directoryFd) {
  return UniqueFd(uninterrupted([&] { return ::openat(directoryFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
}

EntryKind kindOfLink(int directoryFd, const char* name, LinkBase base) {
  const std::optional<std::string> target = linkText(directoryFd, name);
  if (!target) return EntryKind::unreadable;
  struct stat info = {};
  const bool isFound = base == LinkBase::ownDirectory ? ::fstatat(directoryFd, target->c_str(), &info, 0) == 0
                                                      : ::stat(target->c_str(), &info) == 0;
  if (!isFound) return EntryKind::other;
  if (S_ISREG(info.st_mode)) return EntryKind::linkToFile;
  return S_ISDIR(info.st_mode) ? EntryKind::linkToDirectory : EntryKind::other;
}

}  // namespace

DirectoryReader::DirectoryReader(int directoryFd, std::optional<off_t> position)
    : DirectoryReader(openAgain(directoryFd)) {
  if (!position || directory_ == nullptr) return;
  failed_ = ::lseek(fd(), *position, SEEK_SET) == -1;
  position_ = *position;
}

DirectoryReader::DirectoryReader(UniqueFd fd) {
  directory_ = fd.isOpen() ? ::fdopendir(fd.get()) : nullptr;
  if (directory_ != nullptr) (void)fd.release();
}

DirectoryReader::~DirectoryReader() {
  if (directory_ != nullptr) (void)::closedir(directory_);
}

const dirent* DirectoryReader::next() {
  const dirent* entry = nullptr;
  while (directory_ != nullptr && !failed_ && (entry = read()) != nullptr) {
    position_ = entry->d_off;
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) return entry;
  }
  return nullptr;
}

Status DirectoryReader::status() const {
  return Status::of(directory_ != nullptr && !failed_ ? status::success : status::opendirError);
}

const dirent* DirectoryReader::read() {
  errno = 0;
  const dirent* entry = ::readdir(directory_);
  failed_ = entry == nullptr && errno != 0;
  return entry;
}

EntryKind kindOf(int directoryFd, const dirent& entry, LinkBase base) {
  switch (entryType(directoryFd, entry.d_name, entry.d_type)) {
    case DT_DIR:
      return EntryKind::directory;
    case DT_REG:
      return EntryKind::file;
    case DT_LNK:
      return kindOfLink(directoryFd, entry.d_name, base);
    default:
      return EntryKind::other;
  }
}

unsigned char entryType(int directoryFd, const char* name, unsigned char type) {
  if (type != DT_UNKNOWN) return type;
  struct stat info = {};
  if (::fstatat(directoryFd, name, &info, AT_SYMLINK_NOFOLLOW) != 0) return DT_UNKNOWN;
  return static_cast<unsigned char>(IFTODT(info.st_mode));
}

}  // namespace FileUtils
