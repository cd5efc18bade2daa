// Plants a flaw in the program: RAVCTL_FLAW in the environment names a system call that lies. The linker sends each
// call of the product here (--wrap).
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

bool isPlanted(const char* flaw) {
  const char* const named = std::getenv("RAVCTL_FLAW");
  return named != nullptr && std::strcmp(named, flaw) == 0;
}

// What a stat says after the flaws that are about it.
int afterFlaws(int result, struct stat64* status) {
  if (isPlanted("owner-is-root")) status->st_uid = 0;
  if (isPlanted("one-name")) status->st_nlink = 1;
  return result;
}

}  // namespace

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): --wrap decides the names
int __real_fchmod(int, mode_t);
int __real_fchown(int, uid_t, gid_t);
int __real_ftruncate64(int, off64_t);
int __real_unlinkat(int, const char*, int);
int __real_renameat(int, const char*, int, const char*);
int __real_fstat64(int, struct stat64*);
int __real_fstatat64(int, const char*, struct stat64*, int);
uid_t __real_geteuid();
uid_t __real_getuid();
pid_t __real_waitpid(pid_t, int*, int);
dirent64* __real_readdir64(DIR*);

int __wrap_fchmod(int file, mode_t mode) { return isPlanted("lost-mode") ? 0 : __real_fchmod(file, mode); }

int __wrap_fchown(int file, uid_t user, gid_t group) {
  return isPlanted("lost-owner") ? 0 : __real_fchown(file, user, group);
}

int __wrap_ftruncate64(int file, off64_t size) { return isPlanted("lost-cut") ? 0 : __real_ftruncate64(file, size); }

int __wrap_unlinkat(int folder, const char* name, int flags) {
  if (isPlanted("lost-removal") && std::strcmp(name, "hipvars.txt") == 0) return 0;
  return __real_unlinkat(folder, name, flags);
}

int __wrap_renameat(int from, const char* name, int to, const char* newName) {
  return isPlanted("lost-rename") ? 0 : __real_renameat(from, name, to, newName);
}

int __wrap_fstat64(int file, struct stat64* status) { return afterFlaws(__real_fstat64(file, status), status); }

int __wrap_fstatat64(int folder, const char* name, struct stat64* status, int flags) {
  return afterFlaws(__real_fstatat64(folder, name, status, flags), status);
}

uid_t __wrap_geteuid() { return isPlanted("everybody-is-root") ? 0 : __real_geteuid(); }
uid_t __wrap_getuid() { return isPlanted("everybody-is-root") ? 0 : __real_getuid(); }

pid_t __wrap_waitpid(pid_t child, int* status, int options) {
  const pid_t ended = __real_waitpid(child, status, options);
  if (isPlanted("tools-succeed") && status != nullptr) *status = 0;
  return ended;
}

dirent64* __wrap_readdir64(DIR* folder) {
  dirent64* const entry = __real_readdir64(folder);
  if (isPlanted("no-fourth-profile") && entry != nullptr && std::strcmp(entry->d_name, "profile-123126") == 0)
    return __real_readdir64(folder);
  return entry;
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
}
