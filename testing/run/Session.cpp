#include "testing/run/Session.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace {

constexpr std::string_view kEndOfText = "END_OF_TEXT_OF_SESSION";

struct Step {
  char prompt;
  std::string shown;    // the lines with their prompts
  std::string command;  // the lines without prompts
  int blankLinesBefore;
};

bool hasPrompt(std::string_view line, std::string_view kinds) {
  return line.size() > 2 && line[1] == ' ' && kinds.find(line[0]) != std::string_view::npos;
}

std::string heredoc(const std::string& text) {
  return "<<'" + std::string(kEndOfText) + "'\n" + text + std::string(kEndOfText) + "\n";
}

class Reader {
 public:
  void read(std::string_view line) {
    if (hasPrompt(line, "#$@")) {
      begin(line);
    } else if (steps_.empty()) {
      throw std::runtime_error("a session begins with a command, not with: " + std::string(line));
    } else if (isCommandOpen_ && hasPrompt(line, ">")) {
      goOn(line);
    } else {
      isCommandOpen_ = false;
      blankLines_ = line.empty() ? blankLines_ + 1 : 0;
      shown_ += std::string(line) + "\n";
    }
  }

  Session result() const {
    Session session;
    session.shown = shown_;
    session.script = "exec 2>&1\n";
    for (const Step& step : steps_) {
      session.script += scriptOf(step);
      session.needsAnyUser = session.needsAnyUser || step.prompt == '$';
    }
    return session;
  }

 private:
  void begin(std::string_view line) {
    steps_.push_back({line[0], "", "", blankLines_});
    blankLines_ = 0;
    isCommandOpen_ = true;
    goOn(line);
  }

  void goOn(std::string_view line) {
    Step& step = steps_.back();
    step.shown += std::string(line) + "\n";
    step.command += std::string(line.substr(2)) + "\n";
    if (step.prompt != '@') shown_ += std::string(line) + "\n";
  }

  static std::string scriptOf(const Step& step) {
    std::string script;
    for (int i = 0; i < step.blankLinesBefore; ++i) script += "echo\n";
    if (step.prompt == '@') return script + "{\n" + step.command + "} >/dev/null 2>&1\n";
    script += "cat " + heredoc(step.shown);
    if (step.prompt == '#') return script + step.command;
    return script + "setpriv --reuid=65534 --regid=65534 --clear-groups sh -c \"$(cat " + heredoc(step.command) +
           ")\" </dev/null\n";
  }

  std::vector<Step> steps_;
  std::string shown_;
  int blankLines_ = 0;
  bool isCommandOpen_ = false;
};

}  // namespace

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  for (size_t from = 0, end = 0; from < text.size(); from = end + 1) {
    end = std::min(text.find('\n', from), text.size());
    lines.emplace_back(text.substr(from, end - from));
  }
  return lines;
}

Session readSession(std::string_view text) {
  Reader reader;
  for (const std::string& line : linesOf(text)) reader.read(line);
  return reader.result();
}
