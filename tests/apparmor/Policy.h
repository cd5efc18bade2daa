// Policy: reads an AppArmor profile and answers what it allows. It knows the forms of rules that the profile of ravctl
// uses, and no others: capabilities, networks, signals, ptrace, and files with letters behind their
// path.
//
//   const Policy policy = readPolicy(text, "ravctl");
//   EXPECT_TRUE(policy.unread.empty());
//   if (!policy.allows({"/etc/zuv/profiles/", 'r'})) ...
#pragma once

#include <regex>
#include <set>
#include <string>
#include <vector>

// A use of a file. The path of a directory ends with a slash, as in profiles. The letter is that of the permission: r,
// w, k (lock), l (link), m (map as code) or x (execute).
struct Use {
  std::string path;
  char letter = 'r';
  bool operator<(const Use& other) const { return path != other.path ? path < other.path : letter < other.letter; }
};

struct FileRule {
  std::string line;
  std::regex paths;
  std::string letters;
  bool allows(const Use& use) const {
    return letters.find(use.letter) != std::string::npos && std::regex_match(use.path, paths);
  }
};

struct Policy {
  std::set<std::string> flags;
  std::set<std::string> capabilities;
  std::set<std::string> networks;   // "netlink raw"
  std::set<std::string> processes;  // "ptrace (readby)" and the like for signals, whole but for the comma
  std::vector<FileRule> files;
  std::vector<std::string> unread;  // lines in the braces that are none of these

  bool allows(const Use& use) const;
};

// Reads the profile of that name. It may be inside another one. Comments and includes are left out.
Policy readPolicy(const std::string& text, const std::string& name);

// Returns a regular expression that matches the same paths as a path of a profile. In the latter, * matches any text
// without a slash, ** matches any text, and {a,b} matches a or b. Stars that are a whole name, as in /a/* and /a/*/b,
// match at least one character.
std::string expressionOf(const std::string& glob);
