// StoreTree: the files of a small store, and what the program should make of them. The store is that of a private host
// (see PrivateHost.h), so nothing of the machine is touched.
//
//   const fuzz::Tree before = fuzz::readTree();
//   ...
//   for (const std::string& path : fuzz::changesBetween(before, fuzz::readTree())) ...
//   const auto names = fuzz::namesAfterRepair(before);           // what a listing shows
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

constexpr const char* kConfig = "/etc/zuv";
constexpr std::string_view kStore = "/etc/zuv/profiles/";

// --- Trees

struct TreeEntry {
  mode_t mode = 0;
  uid_t owner = 0;
  std::string text;  // the content of a file, the target of a link
};

inline bool operator==(const TreeEntry& one, const TreeEntry& other) {
  return one.mode == other.mode && one.owner == other.owner && one.text == other.text;
}

// Full paths.
using Tree = std::map<std::string, TreeEntry>;

inline void readTreeBelow(const std::string& folder, Tree& tree) {
  for (const auto& found : std::filesystem::directory_iterator(folder)) {
    const std::string path = found.path();
    struct stat info = {};
    if (::lstat(path.c_str(), &info) != 0) continue;
    TreeEntry& entry = tree[path];
    entry.mode = info.st_mode;
    entry.owner = info.st_uid;
    if (S_ISREG(info.st_mode)) {
      std::ifstream file(path, std::ios::binary);
      entry.text.assign(std::istreambuf_iterator<char>(file), {});
    } else if (S_ISLNK(info.st_mode)) {
      entry.text = std::filesystem::read_symlink(found.path());
    } else if (S_ISDIR(info.st_mode)) {
      readTreeBelow(path, tree);
    }
  }
}

// Everything in the configuration directory: the store, what lies beside it, and the lock files.
inline Tree readTree() {
  Tree tree;
  readTreeBelow(kConfig, tree);
  return tree;
}

inline std::vector<std::string> changesBetween(const Tree& before, const Tree& after) {
  std::vector<std::string> changed;
  for (const auto& [path, entry] : before) {
    const auto now = after.find(path);
    if (now == after.end() || !(now->second == entry)) changed.push_back(path);
  }
  for (const auto& [path, entry] : after) {
    if (before.count(path) == 0) changed.push_back(path);
  }
  return changed;
}

inline const TreeEntry* entryAt(const Tree& tree, const std::string& path) {
  const auto found = tree.find(path);
  return found == tree.end() ? nullptr : &found->second;
}

// The content of a regular file; none if there is no such file.
inline std::optional<std::string> contentAt(const Tree& tree, const std::string& path) {
  const TreeEntry* entry = entryAt(tree, path);
  return entry != nullptr && S_ISREG(entry->mode) ? std::optional(entry->text) : std::nullopt;
}

inline bool isDirectoryAt(const Tree& tree, const std::string& path) {
  const TreeEntry* entry = entryAt(tree, path);
  return entry != nullptr && S_ISDIR(entry->mode);
}

inline std::string inStore(std::string_view dirname, std::string_view file = {}) {
  std::string path = std::string(kStore) + std::string(dirname);
  if (!file.empty()) path.append("/").append(file);
  return path;
}

inline bool beginsWith(std::string_view text, std::string_view start) { return text.substr(0, start.size()) == start; }

// Returns true if the store holds only directories and regular files of root, as a new one does, and no daemon reports
// anything. For such a store the model knows every status.
inline bool isPlain(const Tree& tree) {
  for (const auto& [path, entry] : tree) {
    if (!beginsWith(path, kStore)) continue;
    if (entry.owner != 0) return false;
    const std::string_view below = std::string_view(path).substr(kStore.size());
    const std::size_t slash = below.find('/');
    const std::string_view name = slash == std::string_view::npos ? "" : below.substr(slash + 1);
    const bool isFolder = below != ".current" && (name.empty() || name == "ca-certs");
    if (isFolder ? !S_ISDIR(entry.mode) : !S_ISREG(entry.mode)) return false;
    if (name == "hipvars.txt") return false;
  }
  return true;
}

// --- Names

// The first line that is not blank, without the bytes outside 33..126 at its ends.
inline std::string firstLineOf(const std::string& content) {
  const auto isPrintable = [](char c) { return c > 32 && c < 127; };
  for (std::size_t begin = 0; begin < content.size();) {
    const std::size_t end = std::min(content.find('\n', begin), content.size());
    std::size_t first = begin;
    std::size_t last = end;
    while (first < last && !isPrintable(content[first])) ++first;
    while (last > first && !isPrintable(content[last - 1])) --last;
    if (first < last) return content.substr(first, last - first);
    begin = end + 1;
  }
  return "";
}

// Text without blanks at its ends, as names and invitations are stored.
inline std::string withoutBlanks(const std::string& text) {
  const auto isBlank = [](char c) { return static_cast<unsigned char>(c) <= 32 || c == 127; };
  std::size_t first = 0;
  std::size_t last = text.size();
  while (first < last && isBlank(text[first])) ++first;
  while (last > first && isBlank(text[last - 1])) --last;
  return text.substr(first, last - first);
}

inline bool hasControl(const std::string& text) {
  return std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 32 || c == 127; });
}

inline std::string nameIn(const Tree& tree, const std::string& dirname) {
  return firstLineOf(contentAt(tree, inStore(dirname, "profile_name")).value_or(""));
}

inline std::string uniqueAmong(const std::set<std::string>& taken, const std::string& base) {
  std::string name = base;
  for (int number = 2; taken.count(name) != 0; ++number) name = base + "#" + std::to_string(number);
  return name;
}

struct NamedProfile {
  std::string dirname;
  std::string name;
};

// The profiles in the order in which the system lists their directories, now.
inline std::vector<NamedProfile> profilesNow(const Tree& tree) {
  std::vector<NamedProfile> profiles;
  for (const auto& found : std::filesystem::directory_iterator(std::string(kStore))) {
    const std::string dirname = found.path().filename();
    if (dirname.front() != '.' && isDirectoryAt(tree, inStore(dirname))) {
      profiles.push_back({dirname, nameIn(tree, dirname)});
    }
  }
  return profiles;
}

inline std::set<std::string> namesOf(const std::vector<NamedProfile>& profiles) {
  std::set<std::string> names;
  for (const NamedProfile& profile : profiles) names.insert(profile.name);
  return names;
}

// The same profiles with the names that a listing gives them: first the equal ones, then the missing ones.
inline std::vector<NamedProfile> repaired(std::vector<NamedProfile> profiles) {
  std::set<std::string> taken = namesOf(profiles);
  std::set<std::string> seen;
  std::vector<NamedProfile*> unnamed;
  for (NamedProfile& profile : profiles) {
    if (profile.name.empty()) {
      unnamed.push_back(&profile);
    } else if (!seen.insert(profile.name).second) {
      profile.name = uniqueAmong(taken, profile.name);
      taken.insert(profile.name);
    }
  }
  for (NamedProfile* profile : unnamed) {
    profile->name = uniqueAmong(taken, "profile");
    taken.insert(profile->name);
  }
  return profiles;
}

// --- Configuration files

// The content with every line of the key replaced by `line`, which may be empty, and with the line at the end if there
// is no such line.
inline std::string withKey(const std::string& content, const std::string& key, const std::string& line) {
  std::string result;
  bool isFound = false;
  for (std::size_t begin = 0; begin < content.size();) {
    const std::size_t end = std::min(content.find('\n', begin), content.size() - 1) + 1;
    const bool isKey = content.compare(begin, key.size() + 1, key + "=") == 0;
    result += isKey ? line : content.substr(begin, end - begin);
    isFound = isFound || isKey;
    begin = end;
  }
  if (isFound || line.empty()) return result;
  if (!result.empty() && result.back() != '\n') result += '\n';
  return result + line;
}

inline std::string withSetting(const std::string& content, const std::string& key, const std::string& value) {
  return withKey(content, key, key + "=" + value + "\n");
}

}  // namespace fuzz
