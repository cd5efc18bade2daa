/*
 * Makes the renames of a program durable, so that `sed -i` can be compared with an edit of the product. `sed` writes a
 * new file and renames it, but syncs neither the file nor the directory.
 *
 *   LD_PRELOAD=libsync_rename.so sed -i ...
 *
 * It replaces rename(2): it syncs the file, renames it, and syncs the directory, as the product does.
 */
#define _GNU_SOURCE
#include <fcntl.h>
#include <libgen.h>
#include <limits.h>
#include <stdio.h>
#include <unistd.h>

static int sync_path(const char* path) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  const int result = fsync(fd);
  return close(fd) == 0 ? result : -1;
}

int rename(const char* from, const char* to) {
  char path[PATH_MAX];
  if (snprintf(path, sizeof path, "%s", to) >= (int)sizeof path) return -1;
  if (sync_path(from) != 0 || renameat(AT_FDCWD, from, AT_FDCWD, to) != 0) return -1;
  return sync_path(dirname(path));
}
