#include "base/files/DirectoryListing.h"

#include <fcntl.h>

#include <cerrno>

#include "base/files/FileAccess.h"

namespace FileUtils {
namespace {

// Returns the list for entries of a kind, or null.
std::vector<std::string>* listOf(DirectoryListing& listing, EntryKind kind) {
  switch (kind) {
    case EntryKind::directory:
      return &listing.directories;
    case EntryKind::file:
      return &listing.files;
    case EntryKind::linkToDirectory:
      return &listing.linksToDirectories;
    case EntryKind::linkToFile:
      return &listing.linksToFiles;
    case EntryKind::other:
      return &listing.others;
    default:
      return nullptr;
  }
}

DirectoryListing listFrom(DirectoryReader& reader, LinkBase base, std::size_t most) {
  DirectoryListing listing;
  std::size_t count = 0;
  while (const dirent* entry = reader.next()) {
    if (count++ == most) {
      listing.isComplete = false;
      break;
    }
    std::vector<std::string>* list = listOf(listing, kindOf(reader.fd(), *entry, base));
    if (list != nullptr) list->emplace_back(entry->d_name);
  }
  listing.status = reader.status();
  return listing;
}

}  // namespace

namespace {

UniqueFd openWith(int directoryFd, const std::string& path, int flags) {
  errno = EINVAL;
  if (!isUsablePath(path)) return UniqueFd();
  flags |= O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  return UniqueFd(uninterrupted([&] { return ::openat(directoryFd, path.c_str(), flags); }));
}

}  // namespace

UniqueFd openDirectory(const std::string& path) { return openWith(AT_FDCWD, path, 0); }

UniqueFd openRealDirectory(int directoryFd, const std::string& path) { return openWith(directoryFd, path, O_NOFOLLOW); }

DirectoryListing listDirectory(const std::string& path) {
  DirectoryListing listing;
  if (isUsablePath(path)) {
    DirectoryReader reader(openDirectory(path));
    listing = listFrom(reader, LinkBase::workingDirectory, anyNumber);
  } else {
    listing.status = Status::of(status::invalidArgument);
  }
  listing.path = path;
  return listing;
}

DirectoryListing listOpenDirectory(int directoryFd, LinkBase base, std::size_t most) {
  DirectoryReader reader(directoryFd);
  return listFrom(reader, base, most);
}

bool holdsOnly(int directoryFd, std::string_view name) {
  DirectoryReader reader(directoryFd);
  const dirent* entry = nullptr;
  while ((entry = reader.next()) != nullptr && entry->d_name == name) {
  }
  return entry == nullptr && reader.status().isSuccess();
}

Status listRealDirectories(int directoryFd, std::vector<std::string>& names) {
  const std::size_t before = names.size();
  DirectoryReader reader(directoryFd);
  while (const dirent* entry = reader.next()) {
    if (entryType(directoryFd, entry->d_name, entry->d_type) == DT_DIR) names.emplace_back(entry->d_name);
  }
  if (!reader.status().isSuccess()) names.resize(before);
  return reader.status();
}

}  // namespace FileUtils
