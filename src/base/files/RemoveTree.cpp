#include "base/files/RemoveTree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/files/DirectoryEntries.h"
#include "base/files/DirectoryListing.h"
#include "base/files/FileAccess.h"

namespace FileUtils {
namespace {

constexpr std::size_t mostNames = 1024;  // that are read from a directory at a time

// Some file systems leave out entries while others are removed, so a large directory is read again after something was
// removed. Somebody else may make new entries all the time. So each time must remove at most three quarters of what
// the time before removed, which bounds all of them by four times the first.
class Passes {
 public:
  void countRemoved() { ++removed_; }

  // At the end of a pass: returns true if there is to be another one.
  bool beginNext() {
    const bool isNext = removed_ != 0 && removed_ <= allowed_;
    allowed_ = removed_ / 4 * 3;
    removed_ = 0;
    return isNext;
  }

 private:
  std::size_t removed_ = 0;  // in this pass
  std::size_t allowed_ = std::numeric_limits<std::size_t>::max();
};

bool unlinkEntry(int directoryFd, const char* name) { return ::unlinkat(directoryFd, name, 0) == 0; }

// Removes the files and links of a directory that has too many entries to hold their names in memory. Links are
// classified before anything is removed, because a link may lead to a file or another link of the same directory. Their
// names are remembered as hashes of 64 bits: should two be equal, at worst a broken link is removed, too.
class ManyEntriesRemover {
 public:
  ManyEntriesRemover(int directoryFd, LinkBase links, std::string_view kept) : fd_(directoryFd), kept_(kept) {
    DirectoryReader reader(fd_);
    while (const dirent* entry = reader.next()) {
      const EntryKind kind = kindOf(fd_, *entry, links);
      if (kind == EntryKind::linkToFile) toFiles_.push_back(hashOf(entry->d_name));
      if (kind == EntryKind::linkToDirectory) toDirectories_.push_back(hashOf(entry->d_name));
    }
    std::sort(toFiles_.begin(), toFiles_.end());
    std::sort(toDirectories_.begin(), toDirectories_.end());
  }

  void removeAll() {
    removeEach([&](const dirent& entry) { return isOf(DT_REG, entry); });
    for (const Hashes* links : {&toFiles_, &toDirectories_}) {
      removeEach([&](const dirent& entry) {
        return isOf(DT_LNK, entry) && std::binary_search(links->begin(), links->end(), hashOf(entry.d_name));
      });
    }
  }

 private:
  using Hashes = std::vector<std::uint64_t>;

  // FNV-1a, because std::hash has 32 bits on some machines: of 100,000 links two would then probably have the same
  // hash.
  static std::uint64_t hashOf(std::string_view name) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char byte : name) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    return hash;
  }

  bool isOf(unsigned char type, const dirent& entry) const {
    return entryType(fd_, entry.d_name, entry.d_type) == type;
  }

  template <typename IsWanted>
  void removeEach(IsWanted isWanted) {
    Passes passes;
    do {
      DirectoryReader reader(fd_);
      while (const dirent* entry = reader.next()) {
        if (entry->d_name != kept_ && isWanted(*entry) && unlinkEntry(fd_, entry->d_name)) passes.countRemoved();
      }
    } while (passes.beginNext());
  }

  const int fd_;
  const std::string_view kept_;
  Hashes toFiles_;
  Hashes toDirectories_;
};

// A tree may be deeper than the limit of descriptors and than the longest path. So of n levels only about log2(n) stay
// open: level i as long as the lowest level is less than 2 * (the largest power of two that divides i) below it. From
// one of them the remover opens a closed level again by the names on the way, and continues only if it finds the same
// directory there as before. It does not go through "..", which takes time for the whole depth on a bind mount.
class TreeRemover {
 public:
  TreeRemover(LinkBase links, std::string_view kept) : links_(links), kept_(kept) {}

  // Empties the directory at `path`. Does nothing if a link has taken its place.
  void empty(const std::string& path, int from = AT_FDCWD) {
    if (!enter(from, path)) return;
    do {
      while (!levels_.back().directories.empty() || readOn(levels_.back())) descend();
    } while (ascend());
  }

 private:
  struct Level {
    std::string name;  // its name in the level above
    UniqueFd fd;
    dev_t device;
    ino_t inode;
    bool isLarge;                          // not all subdirectories were read at once
    std::vector<std::string> directories;  // those still to be removed
    bool isAtEnd = false;
    std::optional<off_t> position = {};  // where to read more of a large directory; none: at its start
    Passes passes = {};
  };

  // Opens a directory, unlinks its files and links and makes it the lowest level.
  bool enter(int parentFd, const std::string& name) {
    UniqueFd fd = openRealDirectory(parentFd, name);
    struct stat info = {};
    if (!fd.isOpen() || ::fstat(fd.get(), &info) != 0) return false;
    const std::string_view kept = levels_.empty() ? std::string_view(kept_) : std::string_view();
    DirectoryListing listing = listOpenDirectory(fd.get(), links_, mostNames);
    Level level{name, std::move(fd), info.st_dev, info.st_ino, !listing.isComplete, {}};
    if (level.isLarge) {
      ManyEntriesRemover(level.fd.get(), links_, kept).removeAll();
    } else {
      removeListed(level.fd.get(), listing, kept);
      level.directories = std::move(listing.directories);
    }
    levels_.push_back(std::move(level));
    closeOneAbove();
    return true;
  }

  static void removeListed(int fd, const DirectoryListing& listing, std::string_view kept) {
    for (const auto* names : {&listing.files, &listing.linksToFiles, &listing.linksToDirectories}) {
      for (const std::string& entry : *names) {
        if (entry != kept) (void)unlinkEntry(fd, entry.c_str());
      }
    }
  }

  static std::size_t largestPowerIn(std::size_t i) { return i & (~i + 1); }

  // Closes the one level that need not stay open any more, now that there is a new lowest one.
  void closeOneAbove() {
    const std::size_t lowest = levels_.size() - 1;
    const std::size_t distance = 2 * largestPowerIn(lowest);
    if (lowest > distance) levels_[lowest - distance].fd.reset();
  }

  // Reads names of subdirectories of a large directory. Returns false if there are none to remove any more.
  static bool readOn(Level& level) {
    while (level.isLarge && level.directories.empty()) {
      if (level.isAtEnd && !level.passes.beginNext()) return false;
      DirectoryReader reader(level.fd.get(), level.position);
      const dirent* entry = nullptr;
      while (level.directories.size() < mostNames && (entry = reader.next()) != nullptr) {
        const bool isDirectory = entryType(reader.fd(), entry->d_name, entry->d_type) == DT_DIR;
        if (isDirectory) level.directories.emplace_back(entry->d_name);
      }
      level.isAtEnd = entry == nullptr;
      level.position = level.isAtEnd ? std::nullopt : std::optional(reader.position());
    }
    return !level.directories.empty();
  }

  void descend() {
    Level& level = levels_.back();
    const std::string name = std::move(level.directories.back());
    level.directories.pop_back();
    const int fd = level.fd.get();
    if (!enter(fd, name)) removeDirectory(level, name);
  }

  // Returns to the level above and removes the directory just emptied from it. Returns false if there is no level above
  // or if it cannot be opened again.
  bool ascend() {
    const std::string done = std::move(levels_.back().name);
    levels_.pop_back();
    if (levels_.empty() || (!levels_.back().fd.isOpen() && !reopen())) return false;
    removeDirectory(levels_.back(), done);
    return true;
  }

  static void removeDirectory(Level& level, const std::string& name) {
    if (::unlinkat(level.fd.get(), name.c_str(), AT_REMOVEDIR) == 0) level.passes.countRemoved();
  }

  // Opens the lowest level again, and those above it that are to be open now.
  bool reopen() {
    const std::size_t lowest = levels_.size() - 1;
    std::size_t i = lowest;
    while (!levels_[i].fd.isOpen()) --i;  // the first level is always open
    int above = levels_[i].fd.get();
    for (UniqueFd passing; ++i <= lowest;) {
      Level& level = levels_[i];
      UniqueFd fd = openRealDirectory(above, level.name);
      struct stat info = {};
      if (!fd.isOpen() || ::fstat(fd.get(), &info) != 0) return false;
      if (info.st_dev != level.device || info.st_ino != level.inode) return false;
      above = fd.get();
      UniqueFd& place = lowest - i < 2 * largestPowerIn(i) ? level.fd : passing;
      place = std::move(fd);
    }
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
