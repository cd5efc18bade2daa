#include "Tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <stdexcept>

#include "base/system/UniqueFd.h"
#include "testing/host/EmptyFolder.h"

namespace {

constexpr const char* kRoots[] = {"/etc/zuv", "/run", "/tmp"};

void must(bool worked, const std::string& what) {
  if (!worked) throw std::runtime_error(what + ": " + std::strerror(errno));
}

std::string contentOf(const std::string& path, off_t size) {
  const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  must(fd.isOpen(), path);
  std::string content(static_cast<std::size_t>(size), '\0');
  const ssize_t got = ::read(fd.get(), content.data(), content.size());
  must(got == static_cast<ssize_t>(content.size()), path);
  return content;
}

Node nodeAt(const std::string& path) {
  struct stat info {};
  must(::lstat(path.c_str(), &info) == 0, path);
  Node node;
  node.mode = info.st_mode & 07777;
  node.type = S_ISREG(info.st_mode) ? 'f' : S_ISDIR(info.st_mode) ? 'd' : S_ISLNK(info.st_mode) ? 'l' : '?';
  if (node.type == 'f') node.content = contentOf(path, info.st_size);
  if (node.type == 'l') {
    char text[PATH_MAX];
    const ssize_t length = ::readlink(path.c_str(), text, sizeof text);
    must(length > 0, path);
    node.content.assign(text, static_cast<std::size_t>(length));
  }
  return node;
}

// Calls visit(path) for each entry of a folder.
template <typename Visit>
void forEachEntry(const std::string& folder, Visit visit) {
  DIR* directory = ::opendir(folder.c_str());
  must(directory != nullptr, folder);
  while (const dirent* entry = ::readdir(directory)) {
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
      visit(folder + "/" + entry->d_name);
    }
  }
  ::closedir(directory);
}

void readBelow(const std::string& folder, Tree::Nodes* nodes) {
  forEachEntry(folder, [&](const std::string& path) {
    const Node& node = (*nodes)[path] = nodeAt(path);
    if (node.type == 'd') readBelow(path, nodes);
  });
}

void make(const std::string& path, const Node& node) {
  if (node.type == 'l') {
    must(::symlink(node.content.c_str(), path.c_str()) == 0, path);
    return;
  }
  if (node.type == 'd') {
    must(::mkdir(path.c_str(), node.mode) == 0, path);
  } else {
    const UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, node.mode));
    must(fd.isOpen() &&
             ::write(fd.get(), node.content.data(), node.content.size()) == static_cast<ssize_t>(node.content.size()),
         path);
  }
  must(::chmod(path.c_str(), node.mode) == 0, path);
}

}  // namespace

Tree Tree::read() {
  Tree tree;
  for (const char* root : kRoots) {
    tree.nodes_[root] = nodeAt(root);
    readBelow(root, &tree.nodes_);
  }
  return tree;
}

void Tree::putBack() const {
  for (const char* root : kRoots) {
    errno = EBUSY;
    must(emptyFolder(root), std::string("empty ") + root);
  }
  for (const auto& [path, node] : nodes_) {
    bool isRoot = false;
    for (const char* root : kRoots) isRoot = isRoot || path == root;
    if (isRoot) {
      must(::chmod(path.c_str(), node.mode) == 0, path);
    } else {
      make(path, node);
    }
  }
}

void Tree::addFoldersAbove(const std::string& path) {
  for (std::size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
    const std::string folder = path.substr(0, end);
    if (folder != "/etc") nodes_.emplace(folder, Node{'d', 0755, ""});
  }
}

void Tree::addFile(const std::string& path, const std::string& content, mode_t mode) {
  addFoldersAbove(path);
  nodes_[path] = Node{'f', mode, content};
}

void Tree::addFolder(const std::string& path, mode_t mode) {
  addFoldersAbove(path);
  nodes_[path] = Node{'d', mode, ""};
}

void Tree::addLink(const std::string& path, const std::string& target) {
  addFoldersAbove(path);
  nodes_[path] = Node{'l', 0777, target};
}

void Tree::remove(const std::string& path) {
  const std::string below = path + "/";
  for (auto node = nodes_.begin(); node != nodes_.end();) {
    const bool goes = node->first == path || node->first.compare(0, below.size(), below) == 0;
    node = goes ? nodes_.erase(node) : std::next(node);
  }
}

const Node* Tree::find(const std::string& path) const {
  const auto found = nodes_.find(path);
  return found != nodes_.end() ? &found->second : nullptr;
}
