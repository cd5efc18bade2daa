#include "Uses.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <regex>
#include <sstream>

namespace {

// What AppArmor asks for when a program makes the call: the letters for its first and its second file. It denies
// neither stat nor the reading of extended attributes.
struct CallRow {
  const char* name;
  const char* first = "";
  const char* second = "";
};
constexpr CallRow kRows[] = {
    {"access"},
    {"bind"},
    {"chdir"},
    {"chmod", "w"},
    {"chown", "w"},
    {"faccessat"},
    {"faccessat2"},
    {"fallocate", "w"},
    {"fchmod", "w"},
    {"fchmodat", "w"},
    {"fchown", "w"},
    {"fchownat", "w"},
    {"fcntl"},
    {"flock", "k"},
    {"fstat"},
    {"fstatfs"},
    {"ftruncate", "w"},
    {"getcwd"},
    {"getsockname"},
    {"getxattr"},
    {"lchown", "w"},
    {"link", "", "l"},
    {"linkat", "", "l"},
    {"lstat"},
    {"mkdir", "w"},
    {"mkdirat", "w"},
    {"newfstatat"},
    {"readlink"},
    {"readlinkat"},
    {"recvmsg"},
    {"rename", "rw", "w"},
    {"renameat", "rw", "w"},
    {"renameat2", "rw", "w"},
    {"rmdir", "w"},
    {"sendto"},
    {"stat"},
    {"statfs"},
    {"statx"},
    {"symlink", "", "w"},
    {"symlinkat", "", "w"},
    {"truncate", "w"},
    {"unlink", "w"},
    {"unlinkat", "w"},
};

const CallRow* findRow(const std::string& name) {
  const auto* const found =
      std::find_if(std::begin(kRows), std::end(kRows), [&](const CallRow& row) { return row.name == name; });
  return found != std::end(kRows) ? found : nullptr;
}

bool has(const std::string& line, const char* word) { return line.find(word) != std::string::npos; }

std::string joined(const std::string& folder, const std::string& name) {
  std::string path = name.empty() || name[0] == '/' ? name : folder + "/" + name;
  if (name.empty()) path = folder;
  const std::size_t last = path.size();
  return last > 2 && path.compare(last - 2, 2, "/.") == 0 ? path.substr(0, last - 1) : path;
}

// Returns the files of a call: a text, a descriptor, or a descriptor of a directory with the text after it.
std::vector<std::string> filesOf(const std::string& line) {
  static const std::regex file(R"re((?:(?:AT_FDCWD|[0-9]+)<([^>]*)>, )?"([^"]*)"|[0-9]+<(/[^>]*)>)re");
  std::vector<std::string> files;
  for (std::sregex_iterator at(line.begin(), line.end(), file), end; at != end; ++at) {
    files.push_back((*at)[3].matched ? (*at)[3].str() : joined((*at)[1], (*at)[2]));
  }
  return files;
}

class Reader {
 public:
  Reader(std::string program, std::set<std::string> folders)
      : program_(std::move(program)), folders_(std::move(folders)) {}

  Uses read(const std::string& trace) {
    std::istringstream in(trace);
    std::string line;
    bool isOurs = trace.find("execve(\"" + program_ + "\"") == std::string::npos;
    while (std::getline(in, line)) {
      const std::string call = line.substr(0, line.find('('));
      const bool isExecuted = call == "execve" && has(line, ") = 0");
      if (isOurs && call.find(' ') == std::string::npos) note(call, line);
      if (isExecuted && isOurs) break;
      if (isExecuted) isOurs = filesOf(line).front() == program_;
    }
    return uses_;
  }

 private:
  void note(const std::string& call, const std::string& line) {
    const std::vector<std::string> files = filesOf(line);
    const CallRow* row = findRow(call);
    if (call == "open" || call == "openat" || call == "openat2") {
      noteOpen(files, line);
    } else if (call == "execve") {
      noteExecution(files.front());
    } else if (call == "socket") {
      noteSocket(line);
    } else if (row == nullptr) {
      uses_.unknown.push_back(line);
    } else {
      if (call == "rmdir" || has(line, "AT_REMOVEDIR") || call.compare(0, 5, "mkdir") == 0) folders_.insert(files[0]);
      if (call == "fcntl" && has(line, "LK")) noteFile(files[0], "k");
      if (*row->first != '\0') noteFile(files.at(0), row->first);
      if (*row->second != '\0') noteFile(files.at(1), row->second);
    }
  }

  void noteOpen(const std::vector<std::string>& files, const std::string& line) {
    const bool isNothing = has(line, ", \"\", ");  // an empty name names no file
    if (has(line, "O_PATH") || isNothing) return;
    const bool isMade = has(line, "O_CREAT") || has(line, "O_TRUNC");
    const bool writes = has(line, "O_WRONLY") || has(line, "O_RDWR") || isMade;
    const std::string letters = std::string(has(line, "O_WRONLY") ? "" : "r") + (writes ? "w" : "");
    // If the open succeeded, the last file is its descriptor, with the path behind all links.
    if (has(line, "O_DIRECTORY")) folders_.insert(files.back());
    noteFile(files.back(), letters);
  }

  // The kernel asks for the path behind all links.
  void noteExecution(const std::string& path) {
    char resolved[PATH_MAX];
    uses_.files.insert({::realpath(path.c_str(), resolved) != nullptr ? resolved : path, 'x'});
  }

  void noteSocket(const std::string& line) {
    static const std::regex kind("socket\\(AF_([A-Z0-9]+), SOCK_([A-Z]+).*");
    std::smatch parts;
    if (!std::regex_match(line, parts, kind)) return uses_.unknown.push_back(line);
    std::string network = parts[1].str() + " " + parts[2].str();
    std::transform(network.begin(), network.end(), network.begin(), [](unsigned char c) { return std::tolower(c); });
    uses_.networks.insert(network);
  }

  void noteFile(std::string path, const std::string& letters) {
    if (path.back() != '/' && folders_.count(path) != 0) path += '/';
    for (const char letter : letters) uses_.files.insert({path, letter});
  }

  const std::string program_;
  std::set<std::string> folders_;
  Uses uses_;
};

}  // namespace

void Uses::add(const Uses& other) {
  files.insert(other.files.begin(), other.files.end());
  networks.insert(other.networks.begin(), other.networks.end());
  unknown.insert(unknown.end(), other.unknown.begin(), other.unknown.end());
}

Uses usesOf(const std::string& trace, const std::string& program, std::set<std::string> folders) {
  return Reader(program, std::move(folders)).read(trace);
}
