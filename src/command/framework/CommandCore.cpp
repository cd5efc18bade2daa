#include "command/framework/CommandCore.h"

#include <algorithm>
#include <utility>

#include "base/text/StringUtils.h"
#include "json/JsonModel.h"
#include "json/JsonWriter.h"
#include "log/front/BasicLog.h"

namespace {

constexpr const char* bindContext = "bind_json_args";

struct ModeWord {
  char word[sizeof "--verbose"];
  bool OutputMode::*set;
  bool OutputMode::*cleared;
};
constexpr ModeWord modeWords[] = {{"--quiet", &OutputMode::quiet, &OutputMode::verbose},
                                  {"--verbose", &OutputMode::verbose, &OutputMode::quiet},
                                  {"--json", &OutputMode::json, &OutputMode::text},
                                  {"--text", &OutputMode::text, &OutputMode::json}};

}  // namespace

bool OutputMode::take(std::string_view word) {
  for (const ModeWord& row : modeWords) {
    if (row.word == word) {
      this->*row.set = true;
      this->*row.cleared = false;
      return true;
    }
  }
  return false;
}

RavctlCommandInstance::RavctlCommandInstance(const char* method)
    : auth_(Show::hidden),
      requestID_("requestID", Need::optional, Show::hidden, {}, ""),  // deliberately without a description
      output_("output", Need::optional, Show::hidden, {}, ""),
      status_(*this, method) {
  // The lengths of the longest lists in the catalogue, so that one allocation is enough.
  params_.reserve(11);
  results_.reserve(5);
  takes({&auth_, &requestID_, &output_});
  reports({&status_});
}

namespace {

Status refuse(std::string_view what, std::string_view which = {}) {
  return Status::error(status::invalidArgument, StringUtils::concatenate({what, which}), bindContext);
}

std::string printed(const jsObject* value) {
  std::string text;
  json::write(text, value);
  return text;
}

// Returns true if the value says that the key was given without "=".
bool isMarker(const jsObject* value) {
  return json::isString(value) && (json::textOf(value) == singleWordPresent || json::textOf(value) == singleWordAbsent);
}

void logInvalidParam(std::string_view key) {
  static BasicLog::Logger& log = BasicLog::getLogger(BasicLog::controlLogger);
  if (log.isEnabled(BasicLog::Level::error)) {
    BasicLog::Entry entry(log, BasicLog::Level::error, "invalid param", "CommandCore", bindContext);
    entry.add("param", key);
  }
}

Status bindOne(RavctlCommandInstance& command, std::string_view key, const jsObject* value) {
  InputParamBase* param = findParam(command.params(), key);
  if (param == nullptr) return refuse("disregarding unused input: ", key);
  if (param->isSingleWord()) {
    return setFromJson(*param, value) ? Status() : refuse("illegal single-word input: ", printed(value));
  }
  if (param->takesValue()) {
    if (isMarker(value)) return refuse("parameter value required");
    return setFromJson(*param, value) ? Status() : refuse("illegal value presented: ", printed(value));
  }
  logInvalidParam(key);
  return Status::of(status::invalidArgument);
}

}  // namespace

Status bind_json_args(RavctlCommandInstance& command, const jsObject* args) {
  const std::size_t count = json::memberCount(args);
  for (std::size_t i = 0; i < count; ++i) {
    const std::string_view key = json::memberName(args, i);
    if (key == "command_name") continue;
    Status bound = bindOne(command, key, json::memberValue(args, i));
    if (!bound.isSuccess()) return bound;
  }
  for (const InputParamBase* param : command.params()) {
    if (!param->isSatisfied()) return refuse("illegal or missing parameter: ", param->name());
  }
  return Status();
}

namespace {

// Sets a parameter word. Both keys of a parameter set one member, so the later word counts and the member keeps its
// position.
void gatherWord(const RavctlCommandInstance& command, std::string_view word, jsObject* args) {
  const std::string_view key = word.substr(0, word.find('='));
  const InputParamBase* param = findParam(command.params(), key);
  if (param == nullptr || param->name() == key) return setParameterWord(args, word);
  setParameterWord(args, StringUtils::concatenate({param->name(), word.substr(key.size())}));
}

// The two forms of a list of words.
struct JsonWords {
  const jsObject* array;
  std::size_t size() const { return json::elementCount(array); }
  bool isText(std::size_t i) const { return json::isString(json::element(array, i)); }
  std::string_view text(std::size_t i) const { return json::textOf(json::element(array, i)); }
};
struct TextWords {
  const std::vector<std::string>& words;
  std::size_t size() const { return words.size(); }
  static constexpr bool isText(std::size_t) { return true; }
  std::string_view text(std::size_t i) const { return words[i]; }
};

template <typename Words>
Status bindWords(RavctlCommandInstance& command, const Words& words, std::size_t consumed) {
  const std::size_t count = words.size();
  ScopedJson args;  // without parameter words there is no object; a null pointer has no members either
  for (std::size_t i = consumed; i < count; ++i) {
    if (!words.isText(i)) return Status::error(status::invalidArgument, "parameter not a string", "binding input args");
    if (command.mode().take(words.text(i))) continue;
    if (args.get() == nullptr) args.reset(json::makeObject());
    gatherWord(command, words.text(i), args.get());
  }
  for (std::size_t i = 0; i < std::min(consumed, count); ++i) command.mode().take(words.text(i));
  return bind_json_args(command, args.get());
}

}  // namespace

Status bindCommandWords(RavctlCommandInstance& command, const jsObject* words, std::size_t consumed) {
  return bindWords(command, JsonWords{words}, consumed);
}

Status bindCommandWords(RavctlCommandInstance& command, const std::vector<std::string>& words, std::size_t consumed) {
  return bindWords(command, TextWords{words}, consumed);
}

void renderOutput(const RavctlCommandInstance& command, std::vector<std::string>& lines) {
  StringVectorValueBinder sink(lines);
  if (!command.status().status().isSuccess()) {
    command.status().render(sink);
    return;
  }
  lines.reserve(lines.size() + command.results().size());  // enough if each field is one line
  for (const ResultParamBase* field : command.results()) field->render(sink);
}
