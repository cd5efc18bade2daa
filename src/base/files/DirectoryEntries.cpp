#include "base/files/DirectoryEntries.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/files/FileAccess.h"
#include "base/files/FileInfo.h"

namespace FileUtils {

Status makeDir(const std::string& path, mode_t mode) {
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  const bool good = ::mkdir(path.c_str(), mode) != -1 || errno == EEXIST;
  return Status::of(good ? status::success : status::mkdirError);
}

NewDir makeNewDir(int directoryFd, const std::string& path, mode_t mode) {
  if (!isUsablePath(path)) return NewDir::failed;
  if (::mkdirat(directoryFd, path.c_str(), mode) != 0) return errno == EEXIST ? NewDir::exists : NewDir::failed;
  if (::fchmodat(directoryFd, path.c_str(), mode, 0) == 0) return NewDir::made;
  struct stat info = {};
  if (::fstatat(directoryFd, path.c_str(), &info, 0) == 0 && (info.st_mode & 0777) == mode) return NewDir::made;
  (void)::unlinkat(directoryFd, path.c_str(), AT_REMOVEDIR);
  return NewDir::failed;
}

Status setMode(const std::string& path, mode_t mode) {
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  if (::chmod(path.c_str(), mode) == 0) return Status::success();
  struct stat info = {};
  const bool good = lookAt(path, info) && (info.st_mode & 0777) == mode;
  return Status::of(good ? status::success : status::chmodError);
}

Status removeFile(const std::string& path) {
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  const bool good = ::unlink(path.c_str()) != -1 || errno == ENOENT;
  return Status::of(good ? status::success : status::unlinkError);
}

Status removeDir(const std::string& path) {
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  const bool good = ::rmdir(path.c_str()) != -1 || errno == ENOENT;
  return Status::of(good ? status::success : status::rmdirError);
}

Status removePath(const std::string& path) {
  const Status s = removeFile(path);
  return s.isSuccess() ? s : removeDir(path);
}

Status renameFile(const std::string& from, const std::string& to, bool overwrite) {
  if (!isUsablePath(from) || !isUsablePath(to)) return Status::of(status::invalidArgument);
  const bool good = (overwrite || !isRegularFile(to)) && ::rename(from.c_str(), to.c_str()) == 0;
  return Status::of(good ? status::success : status::renameError);
}

}  // namespace FileUtils
