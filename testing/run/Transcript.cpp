#include "testing/run/Transcript.h"

#include <unistd.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <sstream>

#include "testing/host/HostFiles.h"
#include "testing/run/Program.h"

namespace {

using Words = std::vector<std::string>;

constexpr const char* kRecord = "/run/calls";  // recorders append their calls to this file
constexpr const char* kStore = "/etc/zuv";     // every transcript ends with the tree of this folder

mode_t modeIn(const std::string& word) { return static_cast<mode_t>(std::stoul(word, nullptr, 8)); }
unsigned long numberIn(const std::string& word) { return std::stoul(word); }
int numberOr(const Words& words, size_t at, int otherwise) {
  return words.size() > at ? std::stoi(words[at]) : otherwise;
}

bool startsWith(const std::string& text, const char* start) { return text.rfind(start, 0) == 0; }

void needAddressSpace() {
#ifdef RAVCTL_SANITIZED
  throw TranscriptNeeds("a memory limit; a program under sanitizers has reserved more than any limit");
#endif
}

void needOtherUsers() {
  if (!host::hasOtherUsers()) throw TranscriptNeeds("a second user; a user namespace without root has one alone");
}

// One replay of a transcript: it keeps how to start the next commands, and the text with the actual results so far.
class Replay {
 public:
  explicit Replay(const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) lines_.push_back(line);
    before_ = host::tree(kStore);
  }

  std::string run() {
    while (at_ < lines_.size()) {
      try {
        step(lines_[at_]);
      } catch (const TranscriptNeeds&) {
        throw;
      } catch (const std::exception& problem) {
        throw std::runtime_error("line " + std::to_string(at_ + 1) + ", \"" + lines_[at_] + "\": " + problem.what());
      }
    }
    if (!treeShown_) showTree(std::string("tree ") + kStore, {});
    return shown_;
  }

 private:
  void step(const std::string& line) {
    show(line);
    if (line.empty() || line[0] == '#') {
      ++at_;
    } else if (startsWith(line, "given ")) {
      change(givens(), splitWords(line.substr(6)));
      before_ = host::tree(kStore);
    } else if (startsWith(line, "with ")) {
      change(withs(), splitWords(line.substr(5)));
    } else if (startsWith(line, "$ ")) {
      runCommand(splitWords(line.substr(2)));
    } else if (startsWith(line, "tree ")) {
      shown_.resize(shown_.size() - line.size() - 1);  // showTree() decides which form it gets
      ++at_;
      Words expected;
      for (; at_ < lines_.size() && !lines_[at_].empty(); ++at_) expected.push_back(lines_[at_]);
      showTree(line, expected);
    } else {
      throw std::runtime_error("begins with none of # given with $ tree");
    }
  }

  struct Change {
    size_t wordsNeeded;
    std::function<void(const Words&)> make;
  };
  using Changes = std::map<std::string, Change>;

  // The words after "given", which set up files before the next command; words[0] is the key.
  Changes givens() {
    return {
        {"d", {3, [](const Words& w) { host::makeDirs(w[2], modeIn(w[1])); }}},
        {"f", {4, [](const Words& w) { host::writeFile(w[2], w[3], modeIn(w[1])); }}},
        {"l", {4, [](const Words& w) { host::makeLink(w[1], w[3]); }}},
        {"p", {3, [](const Words& w) { host::makeFifo(w[2], modeIn(w[1])); }}},
        {"mode", {3, [](const Words& w) { host::setMode(w[2], modeIn(w[1])); }}},
        {"absent", {2, [](const Words& w) { host::remove(w[1]); }}},
        {"profile", {3, [](const Words& w) { host::makeProfile(w[1], w[2]); }}},
        {"active", {2, [](const Words& w) { host::makeActive(w[1]); }}},
        {"running", {2, [](const Words& w) { host::writeHeartbeat(host::kProfiles + w[1], numberOr(w, 2, 1)); }}},
        {"daemon", {1, [](const Words&) { host::installDaemon(); }}},
        {"script", {3, [](const Words& w) { host::installScript(w[1], w[2]); }}},
        {"recorder", {2, [](const Words& w) { host::installRecorder(w[1], kRecord, numberOr(w, 2, 0)); }}},
        {"disk",
         {3, [this](const Words& w) { disks_.push_back(std::make_unique<host::SmallDisk>(w[1], numberIn(w[2]))); }}},
    };
  }

  // The words after "with", which say how to start the following commands.
  Changes withs() {
    return {
        {"nothing", {1, [this](const Words&) { start_ = Start(); }}},
        {"uid", {2, [this](const Words& w) { needOtherUsers(), start_.uid = static_cast<uid_t>(numberIn(w[1])); }}},
        {"umask", {2, [this](const Words& w) { start_.mask = modeIn(w[1]); }}},
        {"bound-by-modes", {1, [this](const Words&) { start_.boundByModes = true; }}},
        {"file-limit", {2, [this](const Words& w) { start_.fileLimit = numberIn(w[1]); }}},
        {"memory-limit", {2, [this](const Words& w) { needAddressSpace(), start_.memoryLimit = numberIn(w[1]); }}},
        {"closed", {2, [this](const Words& w) { start_.closed.push_back(std::stoi(w[1])); }}},
        {"env", {2, [this](const Words& w) { start_.environment.push_back(w[1]); }}},
        {"input", {2, [this](const Words& w) { start_.input = w[1]; }}},
        {"output", {2, [this](const Words& w) { start_.outputTo = w[1]; }}},
        {"reader-gone", {1, [this](const Words&) { start_.readerGone = true; }}},
        {"folder", {2, [this](const Words& w) { start_.folder = w[1]; }}},
        {"argv0", {2, [this](const Words& w) { start_.argv0 = w[1]; }}},
    };
  }

  void change(const Changes& changes, const Words& words) {
    const auto found = words.empty() ? changes.end() : changes.find(words[0]);
    if (found == changes.end()) throw std::runtime_error("no such word");
    if (words.size() < found->second.wordsNeeded) throw std::runtime_error("too few words");
    found->second.make(words);
    ++at_;
  }

  // Runs the command, adds its actual output and exit status, and skips those that the transcript has.
  void runCommand(Words words) {
    if (words.empty()) throw std::runtime_error("no command");
    const bool isOurs = words[0] == "ravctl";
    const Outcome outcome =
        isOurs ? runRavctl(Words(words.begin() + 1, words.end()), start_) : runProgram(words, start_);
    showOutput(">", outcome.out);
    showOutput("!", outcome.err);
    show(outcome.signal != 0 ? "= signal " + std::to_string(outcome.signal)
                             : "= " + std::to_string(outcome.exitStatus));
    for (++at_;
         at_ < lines_.size() && !lines_[at_].empty() && std::string(">!=").find(lines_[at_][0]) != std::string::npos;)
      ++at_;
  }

  // Adds each output line. A line with trailing blanks, without a newline or with unprintable bytes is quoted.
  void showOutput(const std::string& mark, const std::string& output) {
    for (size_t start = 0; start < output.size();) {
      const size_t end = output.find('\n', start);
      const std::string line = output.substr(start, end == std::string::npos ? end : end - start);
      const bool isPlain = end != std::string::npos && (line.empty() || line.back() != ' ') &&
                           std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c <= '~'; });
      if (isPlain) {
        show(line.empty() ? mark : mark + " " + line);
      } else {
        show(mark + "q " + host::quoted(end == std::string::npos ? line : line + "\n"));
      }
      start = end == std::string::npos ? output.size() : end + 1;
    }
  }

  void showTree(const std::string& line, const Words& expected) {
    treeShown_ = true;
    const Words words = splitWords(line);
    const std::string& folder = words.at(1);
    const bool isUnchanged =
        folder == kStore && words.size() == 3 && words[2] == "unchanged" && host::tree(kStore) == before_;
    show(isUnchanged ? line : "tree " + folder);
    if (isUnchanged) return;
    std::istringstream lines(host::tree(folder));
    for (std::string got; std::getline(lines, got);) show(withAnyContent(got, expected));
  }

  // The expected line "f 0644 hipvars.txt ..." matches that file with any content.
  static std::string withAnyContent(const std::string& got, const Words& expected) {
    const std::string open = got.substr(0, got.find(" \"")) + " ...";
    return std::find(expected.begin(), expected.end(), open) != expected.end() ? open : got;
  }

  void show(const std::string& line) { shown_ += line + "\n"; }

  std::vector<std::string> lines_;
  size_t at_ = 0;
  Start start_;
  std::vector<std::unique_ptr<host::SmallDisk>> disks_;
  std::string before_;  // the store before the first command that follows a given
  std::string shown_;
  bool treeShown_ = false;
};

}  // namespace

std::string replayTranscript(const std::string& text) { return Replay(text).run(); }

std::vector<std::string> splitWords(const std::string& line) {
  Words words;
  bool inWord = false;
  for (size_t at = 0; at < line.size(); ++at) {
    const char c = line[at];
    if (c == ' ') {
      inWord = false;
      continue;
    }
    if (!inWord) words.emplace_back();
    inWord = true;
    if (c == '\'' || c == '"') {
      size_t end = at + 1;
      while (end < line.size() && line[end] != c) end += c == '"' && line[end] == '\\' ? 2 : 1;
      if (end >= line.size()) throw std::runtime_error("a quote is not closed");
      std::string plain = line.substr(at + 1, end - at - 1);
      if (c == '"' && !host::unquoted(line.substr(at, end - at + 1), &plain))
        throw std::runtime_error("an unknown escape");
      words.back() += plain;
      at = end;
    } else if (c == '\\' && at + 1 < line.size()) {
      words.back() += line[++at];
    } else {
      words.back() += c;
    }
  }
  return words;
}
