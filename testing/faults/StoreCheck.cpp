#include "testing/faults/StoreCheck.h"

#include <filesystem>
#include <set>

namespace fs = std::filesystem;

namespace {

using Flaws = std::vector<std::string>;

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t from = 0; from < text.size();) {
    const size_t end = text.find('\n', from);
    lines.push_back(text.substr(from, end - from));
    from = end == std::string::npos ? text.size() : end + 1;
  }
  return lines;
}

bool isText(const std::string& text) {
  for (const char c : text)
    if (static_cast<unsigned char>(c) < ' ') return false;
  return !text.empty();
}

// Each of these functions returns what is wrong with the text, or nothing.

std::string flawOfLine(const std::string& text) {
  const std::vector<std::string> lines = linesOf(text);
  return lines.size() == 1 && isText(lines.front()) && text.back() == '\n' ? "" : "is not one line";
}

std::string flawOfPairs(const std::string& text) {
  if (!text.empty() && text.back() != '\n') return "ends inside a line";
  std::set<std::string> keys;
  for (const std::string& line : linesOf(text)) {
    if (line.empty() || line.front() == '#') continue;
    const size_t sign = line.find('=');
    if (sign == std::string::npos || sign == 0 || !isText(line)) return "has a line that is no pair";
    if (!keys.insert(line.substr(0, sign)).second) return "has a key twice";
  }
  return "";
}

std::string flawOfAddress(const std::string& text) {
  const bool isAddress = text.compare(0, 8, "map_uri=") == 0;
  return isAddress ? flawOfLine(text) : "is no address";
}

struct Kind {
  const char* name;
  std::string (*flawOf)(const std::string& text);
};
constexpr Kind kKinds[] = {{"profile_name", flawOfLine},
                           {"mapconfig.static", flawOfAddress},
                           {"hip.conf", flawOfPairs},
                           {"endbox.conf", flawOfPairs},
                           {".current", flawOfLine}};

// Returns true for a directory that a delete has renamed to `.deleted-` and a number.
bool isDeleted(const fs::path& directory) { return directory.filename().string().compare(0, 9, ".deleted-") == 0; }

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

void check(const fs::path& path, const std::string& copyOf, Flaws* flaws) {
  const std::string name = path.filename().string();
  const auto tell = [&](const std::string& what) {
    flaws->push_back(path.string() + " " + what + ": " + host::quoted(host::readFile(path.string())));
  };
  if (endsWith(name, ".temp")) tell("is a temporary file");
  for (const Kind& kind : kKinds) {
    if (name != kind.name) continue;
    const std::string flaw = kind.flawOf(host::readFile(path.string()));
    if (!flaw.empty()) tell(flaw);
    return;
  }
  const bool isCopy = !copyOf.empty() && fs::is_regular_file(copyOf);
  if (isCopy && host::readFile(path.string()) != host::readFile(copyOf)) tell("differs from the template");
}

}  // namespace

std::vector<std::string> flawsOfStore(const std::string& profiles) {
  Flaws flaws;
  for (const fs::directory_entry& entry : fs::directory_iterator(profiles)) {
    if (entry.is_regular_file()) check(entry.path(), "", &flaws);
    if (!entry.is_directory()) continue;
    for (const fs::directory_entry& file : fs::recursive_directory_iterator(entry.path())) {
      const std::string below = file.path().string().substr(entry.path().string().size());
      if (!file.is_regular_file() || (isDeleted(entry.path()) && file.file_size() == 0)) continue;
      check(file.path(), profiles + ".factory" + below, &flaws);
    }
  }
  return flaws;
}

std::vector<std::string> staleLocks(const std::string& lockFolder) {
  Flaws locks;
  if (!fs::is_directory(lockFolder)) return locks;
  for (const fs::directory_entry& file : fs::directory_iterator(lockFolder)) locks.push_back(file.path().string());
  return locks;
}

std::map<std::string, std::string> pairsOf(const std::string& path) {
  std::map<std::string, std::string> pairs;
  if (!host::exists(path)) return pairs;
  for (const std::string& line : linesOf(host::readFile(path))) {
    const size_t sign = line.find('=');
    if (sign != std::string::npos) pairs[line.substr(0, sign)] = line.substr(sign + 1);
  }
  return pairs;
}
