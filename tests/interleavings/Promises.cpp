#include "Promises.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include "testing/host/HostFiles.h"
#include "testing/run/Program.h"

namespace {

const std::string kRoot = host::kProfiles;
constexpr const char* kChanged = "dir=profile-2";  // every command that changes or deletes a profile changes this one

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// The rest of the first line that begins with the key; empty if there is none.
std::string valueOf(const std::string& text, const std::string& key) {
  for (const std::string& line : linesOf(text)) {
    if (line.compare(0, key.size(), key) == 0) return line.substr(key.size());
  }
  return "";
}

bool reportsSuccess(const InterleavedProgram& program) { return valueOf(program.out, "status_code: 0x1").empty(); }

std::string nameOf(const std::vector<std::string>& words) { return words[0] + " " + words[1]; }

std::string contentOf(const Tree& tree, const std::string& path) {
  const Node* node = tree.find(path);
  return node != nullptr ? node->content : "";
}

// --- Answers

void checkAnswers(const Pair& pair, const Serial& serial, const Ending& ending, Findings* findings) {
  for (std::size_t i = 0; i < ending.run.programs.size(); ++i) {
    std::set<std::string> known;
    for (const Ending& other : serial.both) {
      for (const std::string& line : linesOf(other.run.programs[i].out)) known.insert(line);
    }
    for (const std::string& line : linesOf(serial.alone[i].run.programs[0].out)) known.insert(line);
    for (const std::string& line : linesOf(ending.run.programs[i].out)) {
      if (known.count(line) == 0) findings->push_back({"answer of " + nameOf(pair.words[i]), line});
    }
  }
}

// --- Files

bool same(const Node* a, const Node* b) { return a == nullptr || b == nullptr ? a == b : *a == *b; }

// Returns the state of a file; empty if it is as after one of the serial runs.
std::string stateOf(const std::string& path, const Serial& serial, const Tree& tree) {
  const Node* found = tree.find(path);
  bool isKnown = serial.before.find(path) != nullptr;
  bool isOlder = same(found, serial.before.find(path));
  for (const Ending& ending : serial.both) {
    if (same(found, ending.found.find(path))) return "";
    isKnown = isKnown || ending.found.find(path) != nullptr;
  }
  for (const Ending& ending : serial.alone) isOlder = isOlder || same(found, ending.found.find(path));
  if (found == nullptr) return "gone";
  if (isOlder) return "older";
  return isKnown ? host::quoted(found->content) : "left";
}

void checkFiles(const Serial& serial, const Tree& found, Findings* findings) {
  std::set<std::string> paths;
  for (const Tree* tree : {&serial.before, &serial.both[0].found, &serial.both[1].found, &found}) {
    for (const auto& [path, node] : tree->nodes()) paths.insert(path);
  }
  for (const std::string& path : paths) {
    const std::string state = stateOf(path, serial, found);
    if (!state.empty()) findings->push_back({path, state});
  }
}

// --- What was told

bool mayChangeName(const Pair& pair, const Ending& ending, std::size_t i) {
  const std::string name = nameOf(pair.words[i]);
  return (name == "profile delete" || name == "profile rename") && reportsSuccess(ending.run.programs[i]);
}

// Returns the directory that got a name by a successful command, or nothing.
std::string directoryNamedBy(const std::vector<std::string>& words, const InterleavedProgram& program) {
  const std::string name = nameOf(words);
  if (!reportsSuccess(program)) return "";
  if (name == "profile create") return valueOf(program.out, "profile_dir=");
  return name == "profile rename" ? std::string(kChanged).substr(4) : "";
}

void checkTold(const Pair& pair, const Ending& ending, Findings* findings) {
  for (std::size_t i = 0; i < ending.run.programs.size(); ++i) {
    const InterleavedProgram& program = ending.run.programs[i];
    const std::string command = nameOf(pair.words[i]);
    const std::string folder = kRoot + "profile-2";
    if (command == "profile delete" && reportsSuccess(program) && ending.found.find(folder) != nullptr) {
      findings->push_back({"profile told as deleted", "there"});
    }
    const std::string dirname = directoryNamedBy(pair.words[i], program);
    const bool isShared = command == "profile rename" && mayChangeName(pair, ending, 1 - i);
    if (dirname.empty() || isShared) continue;
    const std::string told = valueOf(program.out, command == "profile create" ? "profile_name=" : "profile_name: ");
    const std::string there = contentOf(ending.found, kRoot + dirname + "/profile_name");
    if (there != told + "\n") findings->push_back({"name told by " + command, host::quoted(there)});
  }
}

// --- The next listing

std::map<std::string, std::string> namesIn(const Tree& tree) {
  std::map<std::string, std::string> names;
  for (const auto& [path, node] : tree.nodes()) {
    if (node.type != 'd' || path.compare(0, kRoot.size(), kRoot) != 0) continue;
    const std::string dirname = path.substr(kRoot.size());
    if (dirname.empty() || dirname[0] == '.' || dirname.find('/') != std::string::npos) continue;
    const std::string name = contentOf(tree, path + "/profile_name");
    names[dirname] = name.substr(0, name.find('\n'));
  }
  return names;
}

std::map<std::string, std::string> namesListed(const std::string& out) {
  std::map<std::string, std::string> names;
  for (const std::string& line : linesOf(out)) {
    const std::size_t tab = line.find('\t');
    if (tab == std::string::npos || line.size() < tab + 3) continue;
    names[line.substr(0, tab)] = line.substr(tab + 2, line.size() - tab - 3);
  }
  return names;
}

}  // namespace

Findings findingsOfRun(const Interleaved& run) {
  constexpr std::chrono::seconds longestWait(11);
  Findings findings;
  if (run.timedOut) findings.push_back({"run", "did not end"});
  if (run.waited > longestWait) findings.push_back({"run", "waited too long"});
  for (const InterleavedProgram& program : run.programs) {
    if (program.signal != 0) findings.push_back({"run", "ended by signal " + std::to_string(program.signal)});
    if (program.signal == 0 && program.exitStatus != 0) findings.push_back({"run", "ended with a status other than 0"});
    if (!program.err.empty()) findings.push_back({"run", "printed " + host::quoted(program.err)});
  }
  return findings;
}

Findings findingsOfListing(const Tree& found) {
  Findings findings;
  const Outcome listing = runRavctl({"list", "profiles"});
  const std::map<std::string, std::string> listed = namesListed(listing.out);
  if (listing.exitStatus != 0 || listing.out.find("status_code: 0x1") != std::string::npos || !listing.err.empty()) {
    findings.push_back({"next listing", "fails: " + host::quoted(listing.out + listing.err)});
    return findings;
  }
  std::set<std::string> names;
  for (const auto& [dirname, name] : listed) {
    if (!names.insert(name).second) findings.push_back({"next listing", "shows a name twice: " + name});
  }
  const std::map<std::string, std::string> there = namesIn(found);
  for (const auto& [dirname, name] : there) {
    const auto shown = listed.find(dirname);
    if (shown == listed.end()) {
      findings.push_back({"next listing", "lacks " + dirname});
    } else if (shown->second != name) {
      findings.push_back({"next listing", "shows " + dirname + " as " + shown->second + ", not " + name});
    }
  }
  for (const auto& [dirname, name] : listed) {
    if (there.count(dirname) == 0) findings.push_back({"next listing", "shows " + dirname + ", which does not exist"});
  }
  if (findings.empty() && !(Tree::read() == found)) findings.push_back({"next listing", "changes the store"});
  return findings;
}

Findings findingsOf(const Pair& pair, const Serial& serial, const Ending& ending) {
  Findings findings = findingsOfRun(ending.run);
  checkAnswers(pair, serial, ending, &findings);
  checkFiles(serial, ending.found, &findings);
  checkTold(pair, ending, &findings);
  return findings;
}
