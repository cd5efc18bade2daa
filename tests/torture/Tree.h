// Tree: what lies on the parts of the private host that the program may change, in memory, to be compared and put back
// many times a second.
//
//   const Tree before = store;
//   before.putBack();
//   ...
//   const Tree found = Tree::read();
#pragma once

#include <sys/types.h>

#include <map>
#include <string>

struct Node {
  char type = 'f';  // 'f' a file, 'd' a folder, 'l' a link, '?' anything else
  mode_t mode = 0644;
  std::string content;  // of a link: where it leads
  bool operator==(const Node& other) const {
    return type == other.type && mode == other.mode && content == other.content;
  }
  bool operator!=(const Node& other) const { return !(*this == other); }
};

class Tree {
 public:
  using Nodes = std::map<std::string, Node>;  // by full path

  // Everything below /etc/zuv, /run and /tmp.
  static Tree read();
  // Makes the host so, with nothing else in these folders. Throws when something in them cannot be removed, such as a
  // mount (see EmptyFolder.h).
  void putBack() const;

  // Folders above are added.
  void addFile(const std::string& path, const std::string& content, mode_t mode = 0644);
  void addFolder(const std::string& path, mode_t mode = 0755);
  void addLink(const std::string& path, const std::string& target);
  // With all that lies below.
  void remove(const std::string& path);

  const Nodes& nodes() const { return nodes_; }
  // Null when there is none.
  const Node* find(const std::string& path) const;
  bool operator==(const Tree& other) const { return nodes_ == other.nodes_; }

 private:
  void addFoldersAbove(const std::string& path);

  Nodes nodes_;
};
