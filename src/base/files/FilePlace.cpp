#include "base/files/FilePlace.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "base/files/StoreOpener.h"

Place placeOf(int fd, int directoryFd, const char* name) {
  struct stat opened = {};
  struct stat there = {};
  if (::fstat(fd, &opened) != 0) return Place::unknown;
  if (::fstatat(directoryFd, name, &there, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT || errno == ENOTDIR ? Place::another : Place::unknown;
  }
  return isSameFile(opened, there) ? Place::same : Place::another;
}
