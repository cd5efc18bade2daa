#include "profiles/store/ProfileRemoval.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <vector>

#include "base/files/DirectoryEntries.h"
#include "base/files/DirectoryListing.h"
#include "base/files/FileAccess.h"
#include "base/files/FilePlace.h"
#include "base/files/RemoveTree.h"
#include "base/text/StringUtils.h"
#include "command/status/AppStatusCodes.h"
#include "profiles/store/ProfileStore.h"

using StringUtils::concatenate;

namespace {

constexpr std::string_view deletedPrefix = ".deleted-";
constexpr int lastNumber = 999999;
constexpr std::chrono::seconds longestWait(10);
// These directories of a profile are removed before everything else in it.
constexpr const char* certificateDirectories[] = {ProfileStore::certificatesDir, "customer-certs", "peer_certs"};

// Removes what an interrupted delete has left: a name file, and the directory if it is empty then. Nothing else.
void finishDelete(int rootFd, const std::string& name) {
  const UniqueFd fd = FileUtils::openRealDirectory(rootFd, name);
  if (!fd.isOpen()) return;
  (void)::unlinkat(fd.get(), ProfileStore::nameFile, 0);
  (void)::unlinkat(rootFd, name.c_str(), AT_REMOVEDIR);  // what is still there stays for the administrator
}

bool isOfDelete(std::string_view name) {
  if (!StringUtils::startsWith(name, deletedPrefix)) return false;
  const std::string_view number = name.substr(deletedPrefix.size());
  return !number.empty() && number.find_first_not_of("0123456789") == std::string_view::npos;
}

void finishEarlierDeletes(int rootFd) {
  std::vector<std::string> names;
  if (!FileUtils::listRealDirectories(rootFd, names).isSuccess()) return;
  for (const std::string& name : names) {
    if (isOfDelete(name)) finishDelete(rootFd, name);
  }
}

// True if nothing is left but perhaps the name, in a regular file or a link.
bool isEmptyButForItsName(int fd) {
  struct stat info = {};
  if (!FileUtils::holdsOnly(fd, ProfileStore::nameFile)) return false;
  if (::fstatat(fd, ProfileStore::nameFile, &info, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT;
  return S_ISREG(info.st_mode) || S_ISLNK(info.st_mode);
}

// True if the open directory has no name any more.
bool isRemoved(int fd) {
  struct stat info = {};
  return ::fstat(fd, &info) == 0 && info.st_nlink == 0;
}

enum class Moved { away, elsewhere, unknown, failed };

// Renames the directory to the first free name. Returns false if that fails.
bool renameAway(int rootFd, const std::string& dirname, std::string& to) {
  for (int number = 1; number <= lastNumber; ++number) {
    to = concatenate({deletedPrefix, StringUtils::toString(number)});
    if (::renameat2(rootFd, dirname.c_str(), rootFd, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EEXIST && errno != ENOTEMPTY) return false;
  }
  return false;
}

// Renames the directory out of the store. Sets `to` to its new name.
Moved moveAway(int rootFd, const std::string& dirname, int fd, std::string& to) {
  if (!renameAway(rootFd, dirname, to)) return Moved::failed;
  const Place place = placeOf(fd, rootFd, to.c_str());
  if (place != Place::another) return place == Place::same ? Moved::away : Moved::unknown;
  // Another delete may have removed what this one has moved, and may have moved its own profile to that name.
  if (isRemoved(fd)) return Moved::unknown;
  // Somebody has put another directory in the place of the profile: that one goes back.
  (void)::renameat2(rootFd, to.c_str(), rootFd, dirname.c_str(), RENAME_NOREPLACE);
  return Moved::elsewhere;
}

// Everything is removed through the open directory, because its path may lead elsewhere by now.
void removeCertificates(int fd) {
  for (const char* directory : certificateDirectories) {
    if (::unlinkat(fd, directory, 0) == 0) continue;  // it is no directory
    const UniqueFd opened = FileUtils::openRealDirectory(fd, directory);
    if (opened.isOpen()) FileUtils::emptyStoreDirectory(opened.get(), {});
    (void)::unlinkat(fd, directory, AT_REMOVEDIR);
  }
}

// Without a rename that overwrites nothing, the last steps are not one moment.
Status removeInPlace(int rootFd, const std::string& dirname, int fd) {
  if (placeOf(fd, rootFd, dirname.c_str()) != Place::same) return Status::of(status::profileNotFound);
  (void)::unlinkat(fd, ProfileStore::nameFile, 0);
  const bool isGone = ::unlinkat(rootFd, dirname.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT;
  return isGone ? Status() : Status::of(status::applicationError);
}

Status removeOpen(int rootFd, const std::string& dirname, int fd) {
  removeCertificates(fd);
  FileUtils::emptyStoreDirectory(fd, ProfileStore::nameFile);
  if (!isEmptyButForItsName(fd)) return Status::of(status::applicationError);
  std::string to;
  switch (moveAway(rootFd, dirname, fd, to)) {
    case Moved::away:
      finishDelete(rootFd, to);
      return Status();
    case Moved::unknown:
      return Status();  // it is out of the store; a later delete removes it
    case Moved::elsewhere:
      return Status::of(status::profileNotFound);
    default:
      return removeInPlace(rootFd, dirname, fd);
  }
}

}  // namespace

Status removeProfile(const std::string& dirname) {
  if (dirname.empty()) return Status::of(status::applicationError);
  const UniqueFd rootFd = ProfileStore::openRoot(O_RDONLY);
  if (!rootFd.isOpen()) return Status::of(status::applicationError);
  finishEarlierDeletes(rootFd.get());
  const UniqueFd fd = FileUtils::openRealDirectory(rootFd.get(), dirname);
  if (!fd.isOpen()) {
    struct stat info = {};
    if (::fstatat(rootFd.get(), dirname.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
      return errno == ENOENT ? Status() : Status::of(status::applicationError);
    }
    const bool isLink = S_ISLNK(info.st_mode) && ::unlinkat(rootFd.get(), dirname.c_str(), 0) == 0;
    return isLink ? Status() : Status::of(status::applicationError);
  }
  if (!lockFile(fd.get(), std::chrono::steady_clock::now() + longestWait)) return Status::of(status::applicationError);
  if (placeOf(fd.get(), rootFd.get(), dirname.c_str()) != Place::same) return Status::of(status::profileNotFound);
  return removeOpen(rootFd.get(), dirname, fd.get());
}
