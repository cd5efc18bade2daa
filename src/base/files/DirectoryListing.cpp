#include "base/files/DirectoryListing.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "base/files/FileAccess.h"

namespace FileUtils {
namespace {

// Reads the entries of a directory through a descriptor of its own.
class DirectoryReader {
 public:
  explicit DirectoryReader(UniqueFd fd) {
    directory_ = fd.isOpen() ? ::fdopendir(fd.get()) : nullptr;
    if (directory_ != nullptr) (void)fd.release();
  }
  ~DirectoryReader() {
    if (directory_ != nullptr) (void)::closedir(directory_);
  }
  DirectoryReader(const DirectoryReader&) = delete;
  DirectoryReader& operator=(const DirectoryReader&) = delete;

  // Returns the next entry, without "." and "..". Null at the end and if the directory cannot be read.
  const dirent* next() {
    const dirent* entry = nullptr;
    while (directory_ != nullptr && (entry = read()) != nullptr) {
      if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) return entry;
    }
    return nullptr;
  }

  int fd() const { return ::dirfd(directory_); }
  Status status() const {
    return Status::of(directory_ != nullptr && !failed_ ? status::success : status::opendirError);
  }

 private:
  const dirent* read() {
    errno = 0;
    const dirent* entry = ::readdir(directory_);
    failed_ = entry == nullptr && errno != 0;
    return entry;
  }

  DIR* directory_ = nullptr;
  bool failed_ = false;
};

UniqueFd openDirectoryAt(int directoryFd, const char* path) {
  return UniqueFd(uninterrupted([&] { return ::openat(directoryFd, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
}

// Returns the list that a link belongs to, or null.
std::vector<std::string>* listOfLink(DirectoryListing& listing, int directoryFd, const char* name, LinkBase base) {
  char text[4096];
  const ssize_t length = ::readlinkat(directoryFd, name, text, sizeof text);
  if (length < 1 || static_cast<std::size_t>(length) >= sizeof text) return nullptr;
  text[length] = '\0';
  struct stat info = {};
  const bool isFound =
      base == LinkBase::ownDirectory ? ::fstatat(directoryFd, text, &info, 0) == 0 : ::stat(text, &info) == 0;
  if (!isFound) return &listing.others;
  if (S_ISREG(info.st_mode)) return &listing.linksToFiles;
  return S_ISDIR(info.st_mode) ? &listing.linksToDirectories : &listing.others;
}

std::vector<std::string>* listOf(DirectoryListing& listing, int directoryFd, const dirent& entry, LinkBase base) {
  switch (entryType(directoryFd, entry.d_name, entry.d_type)) {
    case DT_DIR:
      return &listing.directories;
    case DT_REG:
      return &listing.files;
    case DT_LNK:
      return listOfLink(listing, directoryFd, entry.d_name, base);
    default:
      return &listing.others;
  }
}

DirectoryListing listFrom(UniqueFd fd, LinkBase base) {
  DirectoryListing listing;
  DirectoryReader reader(std::move(fd));
  while (const dirent* entry = reader.next()) {
    std::vector<std::string>* list = listOf(listing, reader.fd(), *entry, base);
    if (list != nullptr) list->emplace_back(entry->d_name);
  }
  listing.status = reader.status();
  return listing;
}

}  // namespace

UniqueFd openDirectory(const std::string& path) {
  errno = EINVAL;
  return isUsablePath(path) ? openDirectoryAt(AT_FDCWD, path.c_str()) : UniqueFd();
}

DirectoryListing listDirectory(const std::string& path) {
  DirectoryListing listing;
  if (isUsablePath(path)) {
    listing = listFrom(openDirectory(path), LinkBase::workingDirectory);
  } else {
    listing.status = Status::of(status::invalidArgument);
  }
  listing.path = path;
  return listing;
}

DirectoryListing listOpenDirectory(int directoryFd, LinkBase base) {
  return listFrom(openDirectoryAt(directoryFd, "."), base);
}

bool holdsOnly(int directoryFd, std::string_view name) {
  DirectoryReader reader(openDirectoryAt(directoryFd, "."));
  const dirent* entry = nullptr;
  while ((entry = reader.next()) != nullptr && entry->d_name == name) {
  }
  return entry == nullptr && reader.status().isSuccess();
}

Status listRealDirectories(int directoryFd, std::vector<std::string>& names) {
  const std::size_t before = names.size();
  DirectoryReader reader(openDirectoryAt(directoryFd, "."));
  while (const dirent* entry = reader.next()) {
    if (entryType(directoryFd, entry->d_name, entry->d_type) == DT_DIR) names.emplace_back(entry->d_name);
  }
  if (!reader.status().isSuccess()) names.resize(before);
  return reader.status();
}

unsigned char entryType(int directoryFd, const char* name, unsigned char type) {
  if (type != DT_UNKNOWN) return type;
  struct stat info = {};
  if (::fstatat(directoryFd, name, &info, AT_SYMLINK_NOFOLLOW) != 0) return DT_UNKNOWN;
  return static_cast<unsigned char>(IFTODT(info.st_mode));
}

}  // namespace FileUtils
