#include "base/files/StoreOpener.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "base/files/LinkText.h"
#include "base/system/OpenAt2.h"
#include "base/system/Uninterrupted.h"
#include "base/text/StringUtils.h"

namespace {

constexpr int alwaysFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW;
constexpr int longestChain = 40;  // of links, the system's own limit

// The mode is only for O_CREAT.
template <typename... Mode>
UniqueFd openAt(int directoryFd, const char* name, int flags, Mode... mode) {
  return UniqueFd(uninterrupted([&] { return ::openat(directoryFd, name, flags | alwaysFlags, mode...); }));
}

bool isOurs(uid_t owner) { return owner == 0 || owner == ::geteuid(); }

// An O_PATH descriptor gives no attributes, but its path in /proc does. A directory without that path counts as one
// with a list.
bool hasAccessList(int directoryFd) {
  const std::string path =
      directoryFd == AT_FDCWD ? "." : StringUtils::concatenate({"/proc/self/fd/", StringUtils::toString(directoryFd)});
  return ::getxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) != -1 ||
         (errno != ENODATA && errno != ENOTSUP);
}

bool isTrusted(const struct stat& link, int directoryFd, const struct stat& directory) {
  return isOurs(link.st_uid) && !othersMayWrite(directoryFd, directory);
}

bool hasSecondName(const struct stat& info) { return S_ISREG(info.st_mode) && info.st_nlink > 1; }

bool mayBeOfProc(int fd) {
  struct statfs system = {};
  return ::fstatfs(fd, &system) != 0 || system.f_type == PROC_SUPER_MAGIC;
}

// Fills in the stat of an opened file. If that fails, a file that the opening may have made is removed again.
bool lookAtOpened(StoreFile& file, int directoryFd, int flags) {
  if (::fstat(file.fd.get(), &file.info) == 0) return true;
  const int error = errno;
  if ((flags & O_CREAT) != 0) (void)::unlinkat(directoryFd, file.name.c_str(), 0);
  errno = error;
  return false;
}

void closeKeepingErrno(UniqueFd& fd) {
  const int error = errno;
  fd.reset();
  errno = error;
}

// Walks a path component by component and follows the links on it.
class Walk {
 public:
  Walk(int directoryFd, const char* path, Follow follow) : start_(directoryFd), rest_(path), follow_(follow) {}

  StoreFile open(int flags, mode_t mode) {
    StoreFile file;
    file.start = start_;
    errno = ENOENT;
    bool goesOn = !rest_.empty();
    while (goesOn && stepToLast(file)) {
      file.fd = owner_ ? openFound(file, flags) : openAt(here(), file.name.c_str(), flags, mode);
      if (file.fd.isOpen() && isAcceptable(file, flags)) {
        file.directory = std::move(directory_);
        return file;
      }
      goesOn = errno == ELOOP && followLink(file.name, true);
    }
    closeKeepingErrno(file.fd);
    return file;
  }

 private:
  int here() const { return directory_.isOpen() ? directory_.get() : start_; }

  // Walks to the directory of the last component and puts that component into `file.name`.
  bool stepToLast(StoreFile& file) {
    for (;;) {
      if (rest_[walked_] == '/') {  // a zero byte at the end
        directory_ = openAt(AT_FDCWD, "/", O_PATH);
        if (!directory_.isOpen()) return false;
      }
      skipSlashes();
      const std::size_t slash = std::min(rest_.find('/', walked_), rest_.size());
      file.name.assign(rest_, walked_, slash - walked_);
      if (file.name.empty()) file.name = ".";
      walked_ = slash;
      if (slash == rest_.size()) return true;
      skipSlashes();
      if (!enter(file.name)) return false;
    }
  }

  void skipSlashes() { walked_ = std::min(rest_.find_first_not_of('/', walked_), rest_.size()); }

  bool enter(const std::string& name) {
    UniqueFd next = openAt(here(), name.c_str(), O_PATH);
    struct stat info = {};
    if (!next.isOpen() || ::fstat(next.get(), &info) != 0) return false;
    if (S_ISLNK(info.st_mode)) return followLink(name, false);
    directory_ = std::move(next);
    return true;
  }

  // Puts the target of a link in front of the rest of the path, if the link is to be followed.
  bool followLink(const std::string& name, bool isLast) {
    const UniqueFd link = openAt(here(), name.c_str(), O_PATH);
    struct stat info = {};
    struct stat directory = {};
    if (!link.isOpen() || ::fstat(link.get(), &info) != 0 || !lookAtHere(directory)) return false;
    const bool isFollowed = isTrusted(info, here(), directory) || (isLast && mayBeOwn(info, directory));
    std::optional<std::string> target;
    if (isFollowed && ++links_ <= longestChain && S_ISLNK(info.st_mode)) target = linkText(link.get(), "");
    if (!target) {
      errno = ELOOP;
      return false;
    }
    if (!isLast) *target += '/';
    rest_.replace(0, walked_, *target);
    walked_ = 0;
    return true;
  }

  bool lookAtHere(struct stat& info) const {
    return here() == AT_FDCWD ? ::stat(".", &info) == 0 : ::fstat(here(), &info) == 0;
  }

  // A link that nobody trusts may be its owner's own way to a file of his own. isAllowedBehind judges the file.
  bool mayBeOwn(const struct stat& link, const struct stat& directory) {
    if (follow_ != Follow::forReading) return false;
    isOwn_ = isOwn_ && link.st_uid == directory.st_uid && owner_.value_or(link.st_uid) == link.st_uid;
    owner_ = link.st_uid;
    return true;
  }

  bool isAllowedBehind(int fd, const struct stat& info) const {
    if (isNullDevice(info)) return true;
    return isOwn_ && S_ISREG(info.st_mode) && info.st_uid == owner_ && info.st_nlink == 1 && !mayBeOfProc(fd);
  }

  // Finds the file before it opens it, and opens what it has found. Without /proc it must open the path again.
  UniqueFd openFound(const StoreFile& file, int flags) {
    const UniqueFd found = openAt(here(), file.name.c_str(), O_PATH);
    struct stat info = {};
    if (!found.isOpen() || ::fstat(found.get(), &info) != 0) return UniqueFd();
    errno = ELOOP;
    if (S_ISLNK(info.st_mode)) return UniqueFd();
    if (!isAllowedBehind(found.get(), info)) return UniqueFd();
    const std::string again = StringUtils::concatenate({"/proc/self/fd/", StringUtils::toString(found.get())});
    UniqueFd fd(uninterrupted([&] { return ::open(again.c_str(), flags | (alwaysFlags & ~O_NOFOLLOW)); }));
    if (!fd.isOpen() && errno == ENOENT) fd = openAt(here(), file.name.c_str(), flags);
    return fd;
  }

  // Also fills in the stat. Sets errno if the file may not be opened: ELOOP for a link.
  bool isAcceptable(StoreFile& file, int flags) {
    struct stat directory = {};
    if (!lookAtOpened(file, here(), flags)) return false;
    errno = ELOOP;
    if (S_ISLNK(file.info.st_mode)) return false;
    if (owner_ && !isAllowedBehind(file.fd.get(), file.info)) return false;
    if (!hasSecondName(file.info)) return true;
    if (!lookAtHere(directory)) return false;
    errno = EPERM;
    return file.info.st_uid == directory.st_uid;
  }

  const int start_;
  UniqueFd directory_;  // where the walk has arrived; not open: at its start
  std::string rest_;    // the way from there, behind the bytes that were walked already
  std::size_t walked_ = 0;
  const Follow follow_;
  int links_ = 0;
  std::optional<uid_t> owner_;  // of the last untrusted link that was followed
  bool isOwn_ = true;  // the owner of all these links is the same, and also owns the directories in which they lie
};

// Without openat2 too, which a filter of system calls may refuse.
bool mustWalk(int error) { return error == ELOOP || error == ENOSYS || error == EPERM; }

}  // namespace

bool isNullDevice(const struct stat& info) { return S_ISCHR(info.st_mode) && info.st_rdev == makedev(1, 3); }

// The functions that read a one-line file of the store are [[gnu::hot]], here, in other files of this folder and in
// ProfileStore.cpp. The linker puts such functions side by side, which saves two of the 35 page faults of a start.
[[gnu::hot]] StoreFile openInStore(int directoryFd, const char* path, int flags, Follow follow, mode_t mode) {
  StoreFile file;
  file.start = directoryFd;
  file.name = path;
  file.fd.reset(
      uninterrupted([&] { return openAt2(directoryFd, path, flags | alwaysFlags, mode, RESOLVE_NO_SYMLINKS); }));
  if (file.fd.isOpen()) {
    if (!lookAtOpened(file, directoryFd, flags)) {
      closeKeepingErrno(file.fd);
      return file;
    }
    if (!S_ISLNK(file.info.st_mode) && !hasSecondName(file.info)) return file;
  } else if (!mustWalk(errno)) {
    return file;
  }
  return Walk(directoryFd, path, follow).open(flags, mode);
}

UniqueFd openDirectoryInStore(const char* path, int flags) {
  flags |= O_DIRECTORY;
  UniqueFd fd(uninterrupted([&] { return openAt2(AT_FDCWD, path, flags | alwaysFlags, 0, RESOLVE_NO_SYMLINKS); }));
  if (fd.isOpen() || !mustWalk(errno)) return fd;
  return std::move(Walk(AT_FDCWD, path, Follow::trusted).open(flags, 0).fd);
}

// With an access list, the bits of the group are the most that the list may give to anybody.
bool othersMayWrite(int directoryFd, const struct stat& directory) {
  if (!isOurs(directory.st_uid) || (directory.st_mode & S_IWOTH) != 0) return true;
  if ((directory.st_mode & S_IWGRP) == 0) return false;
  return directory.st_gid != directory.st_uid || hasAccessList(directoryFd);
}

bool leadsOverUntrustedLink(const std::string& path) {
  return !openInStore(AT_FDCWD, path.c_str(), O_PATH, Follow::trusted).fd.isOpen() && errno == ELOOP;
}
