#include "profiles/store/NameRepair.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "base/files/FileAccess.h"
#include "base/files/FilePlace.h"
#include "base/files/WholeFile.h"
#include "base/system/Leftover.h"
#include "profiles/store/ProfileStore.h"

namespace {

constexpr mode_t nameFileMode = 0640;

using Clock = FileWriter::Clock;

bool hasGone(const StoreFile& directory, const std::string& path) {
  return placeOf(directory.fd.get(), AT_FDCWD, path.c_str()) == Place::another;
}

// True if a new regular file may take the place of what could not be opened: a FIFO, a socket, a device, or a link that
// is not trusted, leads to a directory, or leads to a place where no file can be created.
bool isReplaceable(int error) {
  constexpr int errors[] = {ELOOP, EINVAL, ENXIO, EISDIR, ENOENT, ENOTDIR, ENAMETOOLONG};
  return std::find(std::begin(errors), std::end(errors), error) != std::end(errors);
}

// Removes what cannot be opened. A regular file stays: another repair may have just put it there.
bool makeWayForName(int directoryFd) {
  struct stat info = {};
  if (::fstatat(directoryFd, ProfileStore::nameFile, &info, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT;
  return S_ISREG(info.st_mode) || ::unlinkat(directoryFd, ProfileStore::nameFile, 0) == 0;  // removes no directory
}

bool openName(FileWriter& writer, int directoryFd, Clock::time_point deadline) {
  if (writer.openLocked(directoryFd, ProfileStore::nameFile, nameFileMode, deadline)) return true;
  return isReplaceable(errno) && makeWayForName(directoryFd) &&
         writer.openLocked(directoryFd, ProfileStore::nameFile, nameFileMode, deadline);
}

bool writeName(FileWriter& writer, const std::string& name) {
  const std::string line = name + '\n';
  if (!writer.rewind() || !writer.reserve(line.size()).isSuccess()) return false;
  writer.keepOldBytes(line.size());
  if (!writer.write(line).isSuccess()) return false;
  writer.setMode(nameFileMode);
  return writer.finish().isSuccess();
}

}  // namespace

namespace NameRepair {

Result run(const std::string& dir, const std::string& listed, const Choose& choose, std::string& name) {
  const Clock::time_point deadline = Limit::deadline();
  const StoreFile directory = openInStore(AT_FDCWD, dir.c_str(), O_PATH | O_DIRECTORY, Follow::trusted);
  if (!directory.fd.isOpen()) return errno == ENOENT || errno == ENOTDIR ? Result::gone : Result::failed;
  // In a directory of somebody else a failure must not stop the whole store.
  const Result failure = othersMayWrite(directory.fd.get(), directory.info) ? Result::notWritten : Result::failed;
  name = choose(listed);
  const std::string path = dir + '/' + ProfileStore::nameFile;  // allocated before a new file exists
  FileWriter writer;
  Leftover newFile;  // if memory runs out before the name is in it
  if (!openName(writer, directory.fd.get(), deadline)) {
    const int error = errno;
    if (error == ENOENT || hasGone(directory, dir)) return Result::gone;
    return error == EWOULDBLOCK ? Result::notWritten : failure;
  }
  if (writer.isNew()) newFile.mark(path.c_str());
  if (writer.isNew() && hasGone(directory, dir)) return Result::gone;
  std::string found;
  OpenedFile file;
  if (!writer.share(file)) return failure;
  const bool isRead = FileUtils::readFirstLineFrom(file, found).isSuccess();
  if (!isRead && !listed.empty()) return failure;  // a file that nobody could read has no name to lose
  if (found != listed) name = choose(found);
  return name == found || writeName(writer, name) ? Result::done : failure;
}

}  // namespace NameRepair
