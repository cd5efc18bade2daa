#include "Policy.h"

#include <algorithm>
#include <sstream>

namespace {

std::set<std::string> wordsOf(const std::string& text) {
  std::set<std::string> words;
  std::istringstream in(text);
  for (std::string word; in >> word;) words.insert(word);
  return words;
}

void readRule(const std::string& line, Policy* policy) {
  static const std::regex capability("capability ([a-z_]+),");
  static const std::regex network("network ([a-z]+ [a-z]+),");
  static const std::regex process("((?:signal|ptrace) .*),");
  static const std::regex file("(/[^ ]*) ([a-zA-Z]+)( -> [a-z]+)?,");
  static const std::regex ignored("include .*");
  std::smatch parts;
  if (std::regex_match(line, parts, capability)) {
    policy->capabilities.insert(parts[1]);
  } else if (std::regex_match(line, parts, network)) {
    policy->networks.insert(parts[1]);
  } else if (std::regex_match(line, parts, process)) {
    policy->processes.insert(parts[1]);
  } else if (std::regex_match(line, parts, file)) {
    policy->files.push_back({line, std::regex(expressionOf(parts[1])), parts[2]});
  } else if (!std::regex_match(line, ignored)) {
    policy->unread.push_back(line);
  }
}

}  // namespace

bool Policy::allows(const Use& use) const {
  return std::any_of(files.begin(), files.end(), [&](const FileRule& rule) { return rule.allows(use); });
}

Policy readPolicy(const std::string& text, const std::string& name) {
  static const std::regex head("profile ([a-z]+)(?: /[^ ]*)?(?: flags=\\(([a-z, ]+)\\))? \\{");
  Policy policy;
  std::vector<std::string> profiles;  // that are open, the outer one first
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    line.erase(std::min(line.find('#'), line.size()));
    line.erase(0, line.find_first_not_of(' '));
    std::smatch parts;
    if (std::regex_match(line, parts, head)) {
      profiles.push_back(parts[1]);
      if (profiles.back() == name) policy.flags = wordsOf(parts[2]);
    } else if (line == "}" && !profiles.empty()) {
      profiles.pop_back();
    } else if (!line.empty() && !profiles.empty() && profiles.back() == name) {
      readRule(line, &policy);
    }
  }
  return policy;
}

std::string expressionOf(const std::string& glob) {
  std::string expression;
  bool isInBraces = false;
  for (std::size_t at = 0; at < glob.size(); ++at) {
    const char c = glob[at];
    if (c == '*') {
      const bool isDouble = glob.compare(at, 2, "**") == 0;
      const std::size_t next = at + (isDouble ? 2 : 1);
      const bool isAll = at > 0 && glob[at - 1] == '/' && (next == glob.size() || glob[next] == '/');
      expression += isAll ? "[^/]" : "";
      expression += isDouble ? ".*" : "[^/]*";
      at = next - 1;
    } else if (c == '{' || c == '}') {
      isInBraces = c == '{';
      expression += isInBraces ? '(' : ')';
    } else if (c == ',' && isInBraces) {
      expression += '|';
    } else {
      if (c == '.') expression += '\\';
      expression += c;
    }
  }
  return expression;
}
