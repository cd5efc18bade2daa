#include "testing/host/EmptyFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/stat.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace {

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Returns true if something is mounted on the open folder: another file system, or a folder of the same one (statx
// reports those since Linux 5.8). A folder that cannot be examined counts as a mount.
bool isMount(int folder, dev_t device) {
  struct stat info {};
  struct statx more {};
  if (::fstat(folder, &info) != 0 || info.st_dev != device) return true;
  if (::statx(folder, "", AT_EMPTY_PATH, STATX_BASIC_STATS, &more) != 0) return true;
  return (more.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

// The names are read before anything is removed, because a removal may change what the directory stream returns next.
std::vector<std::string> namesIn(DIR* folder) {
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(folder)) {
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) names.push_back(entry->d_name);
  }
  return names;
}

bool emptyOpened(int fd, dev_t device);

bool removeEntry(int folder, const char* name, dev_t device) {
  if (::unlinkat(folder, name, 0) == 0) return true;
  const int below = ::openat(folder, name, kOpenFolder);
  if (below < 0) return errno == ENOENT;
  if (isMount(below, device)) {
    (void)::close(below);
    return false;
  }
  return emptyOpened(below, device) && ::unlinkat(folder, name, AT_REMOVEDIR) == 0;
}

// Takes ownership of the descriptor and closes it.
bool emptyOpened(int fd, dev_t device) {
  DIR* const folder = ::fdopendir(fd);
  if (folder == nullptr) {
    (void)::close(fd);
    return false;
  }
  bool isEmpty = true;
  for (const std::string& name : namesIn(folder)) isEmpty = removeEntry(fd, name.c_str(), device) && isEmpty;
  (void)::closedir(folder);
  return isEmpty;
}

}  // namespace

bool emptyFolder(const std::string& folder) {
  const int fd = ::open(folder.c_str(), kOpenFolder);
  if (fd < 0) return errno == ENOENT;
  struct stat info {};
  if (::fstat(fd, &info) != 0) {
    (void)::close(fd);
    return false;
  }
  return emptyOpened(fd, info.st_dev);
}
