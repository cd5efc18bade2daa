// Laws of the daemon's variables file, for any content. The model below is a simple and slow second implementation.
// - The run state and the report are those of the model.
// - If a call fails, the result is as if each of the two readings had found the whole file, an empty file or no file.
// Input: faults (fuzz::faults), a repeat count (fuzz::repeatedRest), a file. In the file, a byte 1 and the byte after
// it stand for a time in seconds. It is up to 9 seconds before now ('@' is now), or up to 5 seconds after it.
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>

#include "fuzz/FuzzTarget.h"
#include "service/host/Heartbeat.h"

namespace {

using fuzz::require;
using Variables = std::map<std::string, std::string>;

constexpr std::size_t largestFile = 5000;

std::string withTimes(const std::string& text, std::time_t now) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != 1 || at + 1 == text.size()) {
      result += text[at];
      continue;
    }
    const int age = static_cast<unsigned char>(text[++at]) % 16;
    result += std::to_string(now - (age < 10 ? age : 10 - age));
  }
  return result;
}

// --- The model

std::string trimmed(std::string text) {
  const auto isPrintable = [](char c) { return c >= 33 && c <= 126; };
  while (!text.empty() && !isPrintable(text.back())) text.pop_back();
  while (!text.empty() && !isPrintable(text.front())) text.erase(0, 1);
  return text;
}

Variables variablesOf(const std::string& content) {
  Variables variables;
  for (std::size_t at = 0; at < content.size();) {
    std::string line;
    while (at < content.size() && line.size() < 1023) {
      line += content[at++];
      if (line.back() == '\n') break;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    const std::string key = trimmed(line.substr(0, equals));
    if (!key.empty()) variables[key] = trimmed(line.substr(equals + 1));
  }
  return variables;
}

// So wide that the arithmetic is exact: numberOf() limits every number to 64 bits.
__extension__ typedef __int128 Wide;

Wide numberOf(const std::string& text) {
  constexpr Wide most = INT64_MAX;
  std::size_t at = 0;
  const bool isNegative = !text.empty() && text[0] == '-';
  if (!text.empty() && (text[0] == '-' || text[0] == '+')) ++at;
  Wide number = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
    number = std::min(number * 10 + (text[at] - '0'), most + 1);
  return isNegative ? -number : std::min(number, most);
}

// The result of one reading; none if the file cannot be opened.
using Reading = std::optional<Variables>;

bool hasTimes(const Variables& variables) {
  return variables.count("uptime.now") > 0 && variables.count("uptime.started") > 0;
}

RunState stateOf(const Reading& reading, std::time_t t) {
  if (!reading) return RunState::notRunning;
  if (!hasTimes(*reading)) return RunState::unknown;
  return t - numberOf(reading->at("uptime.now")) < 6 ? RunState::running : RunState::notRunning;
}

struct Report {
  bool isSuccess = true;
  ServiceStatus states;

  bool operator==(const Report& other) const {
    return isSuccess == other.isSuccess &&
           (!isSuccess || (states.running == other.states.running && states.helmsor == other.states.helmsor &&
                           states.tunnel == other.states.tunnel));
  }
};

Report reportOf(const Reading& first, const Reading& second, std::time_t t) {
  Report report;
  report.states.running = stateOf(first, t);
  if (report.states.running != RunState::running) return report;
  if (second && !hasTimes(*second)) {
    report.isSuccess = false;
    return report;
  }
  report.states.running = stateOf(second, t);
  if (report.states.running != RunState::running) return report;
  const Wide sinceStart = numberOf(second->at("uptime.now")) - numberOf(second->at("uptime.started"));
  if (sinceStart <= 4 || second->count("hipd_state") == 0) return report;
  const auto yesOrNo = [](bool yes) { return yes ? RunState::running : RunState::notRunning; };
  if (second->count("peers.count") > 0) report.states.tunnel = yesOrNo(numberOf(second->at("peers.count")) >= 1);
  if (second->count("helmsor.up") > 0) report.states.helmsor = yesOrNo(second->at("helmsor.up") == "true");
  return report;
}

// --- The laws

struct Answers {
  RunState state = RunState::unknown;
  Report report;
  bool isUndisturbed = true;
};

Answers answersUnder(const FaultPlan& plan, const std::string& path) {
  Answers answers;
  Status status;
  answers.isUndisturbed = fuzz::runUnder(plan, [&] { answers.state = runStateOf(path); });
  answers.isUndisturbed &= fuzz::runUnder(plan, [&] { status = readServiceStatus(path, answers.report.states); });
  answers.report.isSuccess = status.isSuccess();
  require(status.isSuccess() || status.code() == status::applicationError, "the only failure is application error");
  return answers;
}

void requireAsModel(const Answers& answers, const std::string& content, std::time_t t) {
  const Reading whole = variablesOf(content);
  if (answers.isUndisturbed) {
    require(answers.state == stateOf(whole, t), "the run state is that of the model");
    require(answers.report == reportOf(whole, whole, t), "the report is that of the model");
    return;
  }
  const Reading readings[] = {whole, Variables(), std::nullopt};
  bool isKnown = false;
  for (const Reading& reading : readings) isKnown = isKnown || answers.state == stateOf(reading, t);
  require(isKnown, "with a fault the run state is that of the file, an empty file or no file");
  isKnown = false;
  for (const Reading& first : readings) {
    for (const Reading& second : readings) isKnown = isKnown || answers.report == reportOf(first, second, t);
  }
  require(isKnown, "with a fault each reading of the report is that of the file, an empty file or no file");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Folder folder;
  const std::string path = folder.path() + variablesFileName;
  fuzz::Input input(data, size);
  const FaultPlan plan = fuzz::faults(input);
  const std::string text = fuzz::repeatedRest(input, largestFile);
  std::time_t now = 0;
  Answers answers;
  std::string content;
  do {  // repeated if the clock moved to the next second meanwhile
    now = std::time(nullptr);
    content = withTimes(text, now);
    fuzz::writeFile(path, content);
    const fuzz::NothingStaysOpen nothing;
    answers = answersUnder(plan, path);
  } while (std::time(nullptr) != now);
  requireAsModel(answers, content, now);
  return 0;
}
