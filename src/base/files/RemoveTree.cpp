#include "base/files/RemoveTree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "base/files/DirectoryEntries.h"
#include "base/files/DirectoryListing.h"
#include "base/files/FileAccess.h"

namespace FileUtils {
namespace {

// A tree may be deeper than the limit of descriptors and than the longest path. So only the 16 lowest directories stay
// open. The remover returns to the others through "..", and continues only if it finds the same directory there as
// before.
class TreeRemover {
 public:
  TreeRemover(LinkBase links, std::string_view kept) : links_(links), kept_(kept) {}

  // Empties the directory at `path`. Does nothing if a link has taken its place.
  void empty(const std::string& path, int from = AT_FDCWD) {
    enter(from, path);
    while (!levels_.empty()) {
      if (!levels_.back().directories.empty()) {
        descend();
      } else if (!ascend()) {
        return;
      }
    }
  }

 private:
  static constexpr std::size_t keptOpen = 16;

  struct Level {
    std::string name;  // its name in the level above
    UniqueFd fd;
    struct stat info = {};
    std::vector<std::string> directories;  // the subdirectories still to be removed
  };

  // Opens a directory, unlinks its files and links and makes it the lowest level.
  bool enter(int parentFd, const std::string& name) {
    Level level;
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    level.fd.reset(uninterrupted([&] { return ::openat(parentFd, name.c_str(), flags); }));
    if (!level.fd.isOpen() || ::fstat(level.fd.get(), &level.info) != 0) return false;
    DirectoryListing listing = listOpenDirectory(level.fd.get(), links_);
    for (const auto* names : {&listing.files, &listing.linksToFiles, &listing.linksToDirectories}) {
      for (const std::string& entry : *names) {
        const bool isKept = levels_.empty() && entry == kept_;
        if (!isKept) (void)::unlinkat(level.fd.get(), entry.c_str(), 0);
      }
    }
    level.name = name;
    level.directories = std::move(listing.directories);
    levels_.push_back(std::move(level));
    if (levels_.size() > keptOpen) levels_[levels_.size() - 1 - keptOpen].fd.reset();
    return true;
  }

  void descend() {
    Level& level = levels_.back();
    const std::string name = std::move(level.directories.back());
    level.directories.pop_back();
    const int fd = level.fd.get();
    if (!enter(fd, name)) (void)::unlinkat(fd, name.c_str(), AT_REMOVEDIR);
  }

  // Returns to the level above and removes the directory just emptied from it. Returns false if the level above cannot
  // be opened again.
  bool ascend() {
    const Level done = std::move(levels_.back());
    levels_.pop_back();
    if (levels_.empty()) return true;
    Level& above = levels_.back();
    if (!above.fd.isOpen() && !reopen(above, done.fd.get())) return false;
    (void)::unlinkat(above.fd.get(), done.name.c_str(), AT_REMOVEDIR);
    return true;
  }

  static bool reopen(Level& level, int childFd) {
    UniqueFd fd(uninterrupted([&] { return ::openat(childFd, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    struct stat info = {};
    if (!fd.isOpen() || ::fstat(fd.get(), &info) != 0 || !isSameFile(info, level.info)) return false;
    level.fd = std::move(fd);
    return true;
  }

  const LinkBase links_;
  const std::string kept_;  // a file of the first level
  std::vector<Level> levels_;
};

// With a slash at the end the system would follow a link.
std::string withoutSlashesAtEnd(const std::string& path) { return path.substr(0, path.find_last_not_of('/') + 1); }

bool isRoot(const struct stat& info) {
  struct stat root = {};
  return ::lstat("/", &root) == 0 && isSameFile(info, root);
}

}  // namespace

Status removeTree(const std::string& path) {
  if (!isUsablePath(path) || path[0] != '/') return Status::of(status::invalidArgument);
  const std::string tree = withoutSlashesAtEnd(path);
  if (tree.empty()) return Status::of(status::invalidArgument);
  struct stat info = {};
  const bool isThere = ::lstat(tree.c_str(), &info) == 0;
  if (isThere && S_ISLNK(info.st_mode)) return removeFile(tree);
  if (!isThere || !S_ISDIR(info.st_mode)) return removeFile(path);  // fails for a file with a slash behind it
  if (isRoot(info)) return Status::of(status::invalidArgument);
  TreeRemover(LinkBase::workingDirectory, {}).empty(tree);
  return removeDir(tree);
}

void emptyStoreDirectory(int directoryFd, std::string_view kept) {
  TreeRemover(LinkBase::ownDirectory, kept).empty(".", directoryFd);
}

}  // namespace FileUtils
