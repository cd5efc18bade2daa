// Tree: an in-memory copy of all files of the private host that the program may change. It is fast enough to compare
// and restore the files many times a second.
//
//   const Tree before = store;
//   before.putBack();
//   ...
//   const Tree found = Tree::read();
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <tuple>

struct Node {
  char type = 'f';  // 'f' a file, 'd' a folder, 'l' a link, '?' anything else
  mode_t mode = 0644;
  std::string content;  // for a link: its target
  bool operator==(const Node& other) const {
    return type == other.type && mode == other.mode && content == other.content;
  }
  bool operator!=(const Node& other) const { return !(*this == other); }
  bool operator<(const Node& other) const {
    return std::tie(type, mode, content) < std::tie(other.type, other.mode, other.content);
  }
};

class Tree {
 public:
  using Nodes = std::map<std::string, Node>;  // by full path

  // Reads everything below /etc/zuv, /run and /tmp.
  static Tree read();
  // Writes the tree to the host and removes everything else in these folders. Throws if something in them cannot be
  // removed, such as a mount (see testing/host/EmptyFolder.h).
  void putBack() const;

  // These functions also add missing folders above the path.
  void addFile(const std::string& path, const std::string& content, mode_t mode = 0644);
  void addFolder(const std::string& path, mode_t mode = 0755);
  void addLink(const std::string& path, const std::string& target);
  // Removes the entry and everything below it.
  void remove(const std::string& path);

  const Nodes& nodes() const { return nodes_; }
  // Returns null if there is no such entry.
  const Node* find(const std::string& path) const;
  bool operator==(const Tree& other) const { return nodes_ == other.nodes_; }

 private:
  void addFoldersAbove(const std::string& path);

  Nodes nodes_;
};
