#include "Verdict.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "testing/host/HostFiles.h"

namespace {

constexpr const char* kOutOfMemory = "ravctl: out of memory\n";
constexpr const char* kCannotWrite = "ravctl: can't write standard output: ";

bool startsWith(const std::string& text, const std::string& start) { return text.compare(0, start.size(), start) == 0; }

bool ranOutOfMemory(const TraceResult& result) { return startsWith(result.err, kOutOfMemory); }
bool couldNotPrint(const TraceResult& result) { return startsWith(result.err, kCannotWrite); }

// Returns true if the fault keeps the program from reporting a failure: all writes fail, or the reader is gone.
bool isSilenced(const Disturbed& run) {
  if (run.meddle.how != Meddling::fail || run.result.meddledFirst.name != "write") return false;
  return run.meddle.error == EPIPE || (run.meddle.times > 1 && run.meddle.error != EINTR);
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// Returns the key of a line of output: the text before ": " or "=". A line without a key has an empty key.
std::string keyOf(const std::string& line) {
  const std::size_t end = line.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_");
  if (end == std::string::npos || end == 0) return "";
  return line[end] == '=' || line.compare(end, 2, ": ") == 0 || line.substr(end) == ":" ? line.substr(0, end) : "";
}

bool isStatusCode(const std::string& line) {
  const std::string start = "status_code: 0x";
  return startsWith(line, start) && line.size() == start.size() + 8 &&
         line.find_first_not_of("0123456789abcdef", start.size()) == std::string::npos;
}

using States = std::vector<std::pair<std::string, std::string>>;  // path and state

States statesOf(const Tree& before, const Tree& after, const Tree& found) {
  std::set<std::string> paths;
  for (const Tree* tree : {&before, &after, &found}) {
    for (const auto& [path, node] : tree->nodes()) paths.insert(path);
  }
  States states;
  for (const std::string& path : paths) {
    const std::string state = stateOf(before.find(path), after.find(path), found.find(path));
    if (!state.empty()) states.emplace_back(path, state);
  }
  return states;
}

bool areAll(const States& states, const char* wanted) {
  return std::all_of(states.begin(), states.end(), [&](const auto& state) { return state.second == wanted; });
}

// Returns the status line of a failure, or nothing.
std::string statusOf(const TraceResult& result) {
  if (!isFailure(result)) return "";
  const std::vector<std::string> lines = linesOf(result.out);
  return lines.size() > 1 ? lines[1] : lines[0];
}

class Judge {
 public:
  Judge(const Scene& scene, const Reference& reference, const Disturbed& run, Stated* stated)
      : scene_(scene), reference_(reference), run_(run), result_(run.result), stated_(*stated) {}

  Problems judge() {
    checkEnd();
    if (problems_.empty()) checkOutput();
    if (problems_.empty()) checkFiles();
    return problems_;
  }

 private:
  void add(const std::string& problem) { problems_.push_back(problem); }

  // Returns true if the program reported the failure, or if the fault itself made a report impossible.
  bool isReported() const {
    return isFailure(result_) || ranOutOfMemory(result_) || couldNotPrint(result_) || isSilenced(run_);
  }

  void checkEnd() {
    if (result_.timedOut) return add("it did not end");
    if (result_.signal != 0) return add("it died of signal " + std::to_string(result_.signal));
    const int expected = ranOutOfMemory(result_) ? 1 : 0;
    if (result_.exitStatus != expected) add("its exit status is " + std::to_string(result_.exitStatus));
    if (ranOutOfMemory(result_)) return;  // it exits at once, and the kernel closes its descriptors
    for (const std::string& open : result_.leftOpen) add("a descriptor was left open: " + open);
  }

  void checkOutput() {
    if (!result_.err.empty() && !ranOutOfMemory(result_) && !couldNotPrint(result_))
      add("on standard error: " + result_.err);
    const std::vector<std::string> lines = linesOf(result_.out);
    if (isFailure(result_)) {
      if (lines.size() != 2 || !isStatusCode(lines[1])) add("a failure has more lines than its two: " + result_.out);
      return;
    }
    if (result_.out == reference_.result.out || isReported()) return;
    compareLines(linesOf(reference_.result.out), lines);
  }

  void compareLines(const std::vector<std::string>& expected, const std::vector<std::string>& lines) {
    const std::set<std::string> known(expected.begin(), expected.end());
    const std::set<std::string> there(lines.begin(), lines.end());
    std::set<std::string> keys;
    for (const std::string& line : lines) {
      keys.insert(keyOf(line));
      if (known.count(line) == 0) judgeLine(line, stateOfLine(line));
    }
    for (const std::string& line : expected) {
      const bool isReplaced = !keyOf(line).empty() && keys.count(keyOf(line)) != 0;
      if (there.count(line) == 0 && !isReplaced) judgeLine(line, "missing");
    }
  }

  static std::string stateOfLine(const std::string& line) {
    const std::string key = keyOf(line);
    const std::string value = key.empty() ? line : line.substr(key.size());
    return value == "=" || value == ": " ? "empty" : "other";
  }

  void judgeLine(const std::string& line, const std::string& state) {
    const std::string key = keyOf(line).empty() ? "(bare)" : keyOf(line);
    if (!stated_.allows(StatedTable::faultOutput, scene_.name, key, state, result_.meddledFirst.name, false)) {
      add("unreported in the output: | " + scene_.name + " | `" + key + "` | " + state + " | " +
          result_.meddledFirst.name + " |");
    }
  }

  void checkFiles() {
    const bool reported = isReported();
    const States states = statesOf(reference_.before, reference_.after, run_.found);
    if (areAll(states, "done") || (reported && areAll(states, "kept"))) return;
    for (const auto& [path, state] : states) {
      if (reported || state != "done") judgeFile(path, state, reported);
    }
  }

  void judgeFile(const std::string& path, const std::string& state, bool reported) {
    if (!stated_.allows(StatedTable::faultFiles, scene_.name, path, state, result_.meddledFirst.name, reported)) {
      add("not stated: | " + scene_.name + " | `" + path + "` | " + state + " | " + result_.meddledFirst.name + " | " +
          (reported ? "yes" : "no") + " |");
    }
  }

  const Scene& scene_;
  const Reference& reference_;
  const Disturbed& run_;
  const TraceResult& result_;
  Stated& stated_;
  Problems problems_;
};

bool isSameBut(const Node* node, const Node* other) {
  return node != nullptr && node->type == other->type && node->content == other->content;
}

}  // namespace

Problems problemsOfFault(const Scene& scene, const Reference& reference, const Disturbed& run, Stated* stated) {
  return Judge(scene, reference, run, stated).judge();
}

Problems problemsOfCrash(const Scene& scene, const Reference& reference, const Tree& found, Stated* stated) {
  Problems problems;
  const States states = statesOf(reference.before, reference.after, found);
  if (areAll(states, "done") || areAll(states, "kept")) return problems;
  for (const auto& [path, state] : states) {
    if (!stated->allows(StatedTable::crashFiles, scene.name, path, state, "kill", true)) {
      problems.push_back("not stated: | " + scene.name + " | `" + path + "` | " + state + " | kill |");
    }
  }
  return problems;
}

Problems problemsAfterCrash(const Scene& scene, const Reference& reference, const Reference& again,
                            const Disturbed& next, Stated* stated) {
  Problems problems;
  const std::string status = statusOf(next.result);
  if (next.result.exitStatus != 0 || !next.result.err.empty()) problems.push_back("it failed: " + next.result.err);
  if (status != statusOf(reference.result) && status != statusOf(again.result)) {
    problems.push_back("the same command then answers " + next.result.out);
  }
  for (const auto& [path, state] : statesOf(again.after, reference.after, next.found)) {
    if (state != "kept" && state != "done" &&
        !stated->allows(StatedTable::crashFiles, scene.name, path, state, "next", true)) {
      problems.push_back("not stated: | " + scene.name + " | `" + path + "` | " + state + " | next |");
    }
  }
  return problems;
}

std::string stateOf(const Node* before, const Node* after, const Node* found) {
  const auto same = [](const Node* one, const Node* other) {
    return one == nullptr || other == nullptr ? one == other : *one == *other;
  };
  const bool isAsBefore = same(found, before);
  const bool isAsAfter = same(found, after);
  if (isAsBefore && isAsAfter) return "";
  if (isAsAfter) return "done";
  if (isAsBefore) return "kept";
  if (found == nullptr) return "gone";
  if (before == nullptr && after == nullptr) return "left";
  if (isSameBut(after, found)) return "mode";
  if (after != nullptr && after->type == 'f' && found->type == 'f') {
    if (startsWith(after->content, found->content)) return "cut";
    const std::size_t length = after->content.size();
    if (before != nullptr && before->content.size() > length &&
        found->content == after->content + before->content.substr(length))
      return "overlaid";
  }
  return host::quoted(found->content);
}

bool isFailure(const TraceResult& result) {
  return startsWith(result.out, "status_text: ") && result.out.find("\nstatus_code: 0x00") == std::string::npos;
}
