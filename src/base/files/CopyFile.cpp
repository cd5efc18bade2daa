#include "base/files/CopyFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "base/files/FileAccess.h"
#include "base/files/FileInfo.h"

namespace FileUtils {
namespace {

constexpr mode_t copyMode = 0644;

bool leadsTo(const std::string& path, const struct stat& file) {
  struct stat info = {};
  return lookAt(path, info) && isSameFile(info, file);
}

Status copyError(StatusCode code, const std::string& path) { return Status::error(code, path, "copyFile"); }

// Copies the source up to the size that it had when it was opened, or to its end if that comes earlier.
Status copyBytes(const OpenedFile& source, const std::string& from, FileWriter& target, const std::string& to) {
  char buffer[4096];
  for (off_t left = source.size(); left > 0;) {
    const auto wanted = static_cast<std::size_t>(std::min<off_t>(left, sizeof buffer));
    const ssize_t count = readSome(source.fd.get(), buffer, wanted);
    if (count == -1) return copyError(status::readError, from);
    if (count == 0) break;
    const Status s = target.write(std::string_view(buffer, static_cast<std::size_t>(count)));
    if (!s.isSuccess()) return copyError(s.code(), to);
    left -= count;
  }
  return Status::success();
}

bool openSource(const std::string& from, OpenedFile& source, Access access) {
  if (access == Access::ofSystem) return openAnyForReading(from, source);
  // Everybody may read the copy, so nobody else may choose by a link what is copied.
  return openForReading(AT_FDCWD, from.c_str(), source, Follow::trusted);
}

Status copyWith(const std::string& from, const std::string& to, Access access) {
  if (!isUsablePath(to) || fileSize(from) == -1) return Status::of(status::invalidArgument);
  OpenedFile source;
  if (!openSource(from, source, access)) return copyError(status::openError, from);
  FileWriter target;
  Status s = target.open(to, copyMode, access);
  if (s.isSuccess() ? isSameFile(source.info, target.info()) : leadsTo(to, source.info)) {
    return Status::of(status::invalidArgument);
  }
  if (!s.isSuccess()) return copyError(s.code(), to);
  s = target.cutToNothing();
  if (!s.isSuccess()) return copyError(s.code(), to);
  s = copyBytes(source, from, target, to);
  if (!s.isSuccess()) return s;
  target.setMode(copyMode);
  s = target.finish();
  return s.isSuccess() ? s : copyError(s.code(), to);
}

}  // namespace

Status copyFile(const std::string& from, const std::string& to) { return copyWith(from, to, Access::ofSystem); }
Status copyStoreFile(const std::string& from, const std::string& to) { return copyWith(from, to, Access::ofStore); }

}  // namespace FileUtils
