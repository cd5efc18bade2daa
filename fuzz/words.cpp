// Laws of the command line, for any words. No command is executed. The model below is a second implementation of the
// list of commands and of the rules for binding parameters.
// - The words name the same command as in the model, or none, and the same number of words belongs to its name.
// - Binding has the status, details and context of the model. Then every parameter has the value of the model, and is
//   marked as given if it is in the model. The same holds for the object of a "json" command and the command that its
//   "method" names.
// - Finding and binding make no system call, except to detect the init system if "sys" is empty.
// Input: words, separated by zero bytes.
#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "command/entry/Catalogue.h"
#include "command/parameters/JsonRequest.h"
#include "fuzz/FuzzTarget.h"
#include "json/JsonParser.h"
#include "json/JsonWriter.h"
#include "service/host/SysImplParam.h"
#include "testing/models/AddressModel.h"
#include "testing/models/LogModel.h"

namespace {

using fuzz::require;
using Words = std::vector<std::string>;

// --- The model: the commands and their parameters

enum class Kind { text, integer, boolean, singleWord, helmsor, level, sys };

// The second key of the parameter "sys".
const std::string hiddenKey = "sys-impl";

struct ModelParam {
  std::string key;
  Kind kind = Kind::text;
  bool isRequired = false;
  // As text: numbers in decimal, booleans and single words as "true" or "false", an address as "host port".
  std::string value;
  bool isGiven = false;

  bool takes(const std::string& given) const { return given == key || (kind == Kind::sys && given == hiddenKey); }
};

struct ModelCommand {
  std::string first;
  std::string second;    // empty: one word is enough
  std::size_t consumed;  // 0: all words
  std::vector<ModelParam> params;
};

const ModelParam newName = {"new_name", Kind::text, false, "", false};
const ModelParam profile = {"profile", Kind::text, false, "", false};
const ModelParam helmsor = {"helmsor", Kind::helmsor, false, " 8096", false};
const ModelParam network = {"network", Kind::text, false, "auto", false};
const ModelParam invitation = {"invitation", Kind::text, false, "", false};
const ModelParam logLevel = {"log_level", Kind::level, false, "info", false};
const ModelParam sys = {"sys", Kind::sys, false, "", false};

ModelParam required(ModelParam param) {
  param.isRequired = true;
  return param;
}
ModelParam singleWord(const std::string& key) { return {key, Kind::singleWord, false, "false", false}; }

const std::vector<ModelParam> logParams = {profile, {"max_lines", Kind::integer, false, "50", false}, logLevel};
const std::vector<ModelParam> restartParams = {sys, singleWord("full")};

const std::vector<ModelCommand> commands = {
    {"profile",
     "create",
     3,
     {newName,
      {"allow_rename", Kind::boolean, false, "true", false},
      required(helmsor),
      network,
      invitation,
      logLevel,
      sys,
      singleWord("activate")}},
    {"profile", "activate", 3, {profile, sys}},
    {"profile", "delete", 3, {profile}},
    {"profile", "details", 3, {profile}},
    {"profile", "modify", 3, {profile, newName, helmsor, network, invitation, logLevel, sys, singleWord("activate")}},
    {"profile", "rename", 3, {profile, required(newName)}},
    {"list", "log", 3, logParams},
    {"show", "log", 3, logParams},
    {"support", "reset", 3, {profile}},
    {"json", "", 2, {{"object", Kind::text, false, "", false}}},
    {"service", "start", 2, {sys}},
    {"service", "stop", 2, {sys}},
    {"service", "restart", 2, restartParams},
    {"service", "bounce", 2, restartParams},
    {"service", "status", 2, {}},
    {"list", "interfaces", 2, {}},
    {"show", "interfaces", 2, {}},
    {"list", "profiles", 2, {}},
    {"show", "profiles", 2, {}},
    {"list", "versions", 2, {}},
    {"show", "versions", 2, {}},
    {"support", "bundle", 2, {}},
    {"usage", "", 0, {}},
    {"help", "", 0, {}},
    {"reference", "", 0, {}},
};

// --- The model: finding

struct Found {
  bool isCommand = false;
  int consumed = -1;
  bool startsQuiet = false;
  std::vector<ModelParam> params;
};

Found modelOfFinding(const Words& words) {
  Found found;
  found.params = {{"auth", Kind::text, false, "", false},
                  {"requestID", Kind::text, false, "", false},
                  {"output", Kind::text, false, "", false}};
  if (words.empty()) {
    found.isCommand = true;
    found.consumed = 0;
    return found;
  }
  for (const ModelCommand& command : commands) {
    const bool isSecond = command.second.empty() || (words.size() > 1 && words[1] == command.second);
    if (words[0] != command.first || !isSecond || words.size() < command.consumed) continue;
    found.isCommand = true;
    found.consumed = static_cast<int>(command.consumed == 0 ? words.size() : command.consumed);
    found.startsQuiet = command.first == "help";
    const std::size_t named = found.params.size();
    found.params.insert(found.params.end(), command.params.begin(), command.params.end());
    if (command.consumed == 3) found.params[named].value = words[2];
    if (command.first == "json") found.params[named].value = words[1];
    return found;
  }
  return found;
}

// --- The model: binding

// A value as it was given: of a word, or of a member of a JSON object.
struct Value {
  enum Type { text, number, boolean, other } type = other;
  std::string content;
  double amount = 0;
  bool isTrue = false;
  std::string printed;  // as JSON
};
using Members = std::vector<std::pair<std::string, Value>>;

std::string quoted(const std::string& text) {
  const std::map<char, std::string> shortForms = {
      {'\b', "\\b"}, {'\t', "\\t"}, {'\n', "\\n"}, {'\r', "\\r"}, {'"', "\\\""}};
  std::string result = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    char hex[8];
    (void)std::snprintf(hex, sizeof hex, "\\u%04X", byte);
    if (shortForms.count(c) > 0) {
      result += shortForms.at(c);
    } else if (byte < 32 || byte == 127) {
      result += hex;
    } else {
      result += byte >= 128 ? '?' : c;
    }
  }
  return result + "\"";
}

Value textValue(const std::string& text) {
  Value value;
  value.type = Value::text;
  value.content = text;
  value.printed = quoted(text);
  return value;
}

std::string lowerCase(std::string text) {
  for (char& c : text) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
  return text;
}

bool isDecimal(const std::string& text, std::int64_t& number) {
  std::size_t begin = 0;
  std::size_t end = text.size();
  const auto isBlank = [&](std::size_t at) { return static_cast<unsigned char>(text[at]) <= 32 || text[at] == 127; };
  while (begin < end && isBlank(end - 1)) --end;
  while (begin < end && isBlank(begin)) ++begin;
  const bool isNegative = begin < end && text[begin] == '-';
  if (begin < end && (text[begin] == '-' || text[begin] == '+')) ++begin;
  if (begin == end) return false;
  for (number = 0; begin < end; ++begin) {
    if (text[begin] < '0' || text[begin] > '9') return false;
    number = std::min<std::int64_t>(number * 10 + (text[begin] - '0'), INT64_C(1) << 40);
  }
  if (isNegative) number = -number;
  return number >= INT32_MIN && number <= INT32_MAX;
}

std::string levelText(const std::string& text) {
  const auto [level, isNamed] = log_model::levelOf(text);
  const std::string names[] = {"trace", "debug", "info", "notice", "warning", "error", "fatal"};
  return isNamed ? names[static_cast<int>(level) - static_cast<int>(BasicLog::Level::trace)] : text;
}

const std::string presentMarker = "<single-word-command-present>";
const std::string absentMarker = "<single-word-command-absent>";

bool setAddress(const std::string& text, std::string& value) {
  const address_model::Address address = address_model::addressOf(text);
  value = address.host + " " + std::to_string(address.port);
  return address.isGiven;
}

// Returns true and sets `value` if the parameter accepts the text.
bool setText(Kind kind, const std::string& text, std::string& value) {
  const std::string lower = lowerCase(text);
  std::int64_t number = 0;
  switch (kind) {
    case Kind::text:
      value = text;
      return true;
    case Kind::sys:
      if (!text.empty()) value = text;  // this host has no init system
      return true;
    case Kind::level:
      value = levelText(text);
      return true;
    case Kind::helmsor:
      return setAddress(text, value);
    case Kind::integer:
      if (!isDecimal(text, number)) return false;
      value = std::to_string(number);
      return true;
    case Kind::boolean:
      if (lower != "true" && lower != "yes" && lower != "on" && lower != "false" && lower != "no" && lower != "off")
        return false;
      value = lower == "true" || lower == "yes" || lower == "on" ? "true" : "false";
      return true;
    case Kind::singleWord:
      if (text != presentMarker && lower != "true" && !text.empty() && text != absentMarker && lower != "false")
        return false;
      value = text == presentMarker || lower == "true" ? "true" : "false";
      return true;
  }
  return false;
}

bool setValue(ModelParam& param, const Value& value) {
  bool isAccepted = false;
  if (value.type == Value::text) isAccepted = setText(param.kind, value.content, param.value);
  if (value.type == Value::boolean && param.kind == Kind::boolean) {
    param.value = value.isTrue ? "true" : "false";
    isAccepted = true;
  }
  const double cut = std::trunc(value.amount);
  if (value.type == Value::number && param.kind == Kind::integer && cut >= INT32_MIN && cut <= INT32_MAX) {
    param.value = std::to_string(static_cast<std::int64_t>(cut));
    isAccepted = true;
  }
  param.isGiven = param.isGiven || isAccepted;
  return isAccepted;
}

// Returns the details of the failure, or an empty text for success.
std::string modelOfBinding(std::vector<ModelParam>& params, const Members& members) {
  for (const auto& [key, value] : members) {
    if (key == "command_name") continue;
    ModelParam* param = nullptr;
    for (ModelParam& candidate : params)
      if (candidate.takes(key) && param == nullptr) param = &candidate;
    if (param == nullptr) return "disregarding unused input: " + key;
    const bool isMarker =
        value.type == Value::text && (value.content == presentMarker || value.content == absentMarker);
    if (param->kind == Kind::singleWord) {
      if (!setValue(*param, value)) return "illegal single-word input: " + value.printed;
    } else if (isMarker) {
      return "parameter value required";
    } else if (!setValue(*param, value)) {
      return "illegal value presented: " + value.printed;
    }
  }
  for (const ModelParam& param : params)
    if (param.isRequired && !param.isGiven) return "illegal or missing parameter: " + param.key;
  return "";
}

struct Mode {
  bool quiet = false, verbose = false, json = false, text = false;

  bool take(const std::string& word) {
    if (word == "--quiet" || word == "--verbose") verbose = !(quiet = word == "--quiet");
    if (word == "--json" || word == "--text") text = !(json = word == "--json");
    return word == "--quiet" || word == "--verbose" || word == "--json" || word == "--text";
  }
};

// Returns the key of the parameter if this is its second key, and any other key as it is.
std::string firstKeyOf(const std::vector<ModelParam>& params, const std::string& key) {
  for (const ModelParam& param : params)
    if (param.takes(key)) return param.key;
  return key;
}

// Returns the parameter words as members. A repeated key keeps its first position and gets the last value.
Members membersOf(const std::vector<ModelParam>& params, const Words& words, std::size_t consumed, Mode& mode) {
  Members members;
  for (std::size_t i = consumed; i < words.size(); ++i) {
    if (mode.take(words[i])) continue;
    const std::size_t equals = words[i].find('=');
    const std::string key = firstKeyOf(params, words[i].substr(0, equals));
    const Value value = textValue(equals == std::string::npos ? presentMarker : words[i].substr(equals + 1));
    bool isThere = key.empty();
    for (auto& [earlier, old] : members) {
      if (earlier != key) continue;
      old = value;
      isThere = true;
    }
    if (!isThere) members.emplace_back(key, value);
  }
  for (std::size_t i = 0; i < consumed && i < words.size(); ++i) mode.take(words[i]);
  return members;
}

// --- The laws

std::string shownValue(const InputParamBase& param) {
  if (const auto* text = dynamic_cast<const TextParam*>(&param)) return text->value();
  if (const auto* number = dynamic_cast<const IntParam*>(&param)) return std::to_string(number->value());
  if (const auto* yes = dynamic_cast<const BoolParam*>(&param)) return yes->value() ? "true" : "false";
  if (const auto* word = dynamic_cast<const SingleWordParam*>(&param)) return word->isPresent() ? "true" : "false";
  if (const auto* address = dynamic_cast<const HelmsorParam*>(&param))
    return address->host() + " " + std::to_string(address->port());
  return "a parameter of no known kind";
}

void requireParams(const RavctlCommandInstance& command, const std::vector<ModelParam>& expected) {
  require(command.params().size() == expected.size(), "the number of parameters");
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const InputParamBase& param = *command.params()[i];
    require(param.name() == expected[i].key, "the key of a parameter");
    require(param.isRequired() == expected[i].isRequired, "if a parameter is required");
    require(shownValue(param) == expected[i].value, "the value of a parameter");
    require(param.hasValue() == expected[i].isGiven, "if a parameter was given");
  }
}

void requireStatus(const Status& status, const std::string& details) {
  require(status.code() == (details.empty() ? status::success : status::invalidArgument), "the status of binding");
  require(status.details() == details, "the details of the status");
  require(status.context() == (details.empty() ? "" : "bind_json_args"), "the context of the status");
}

// While it lives, every system call fails, so no init system is found. Requires that only the search for one makes
// calls.
class AllCallsFail {
 public:
  explicit AllCallsFail(bool mayLook) : armed_({1, true, ENOENT, {}, false, {}}), mayLook_(mayLook) {}
  ~AllCallsFail() { require(mayLook_ || armed_.count() == 0, "binding makes no system call"); }
  AllCallsFail(const AllCallsFail&) = delete;
  AllCallsFail& operator=(const AllCallsFail&) = delete;

 private:
  ArmedFaults armed_;
  bool mayLook_;
};

bool asksForInitSystem(const Members& members) {
  for (const auto& [key, value] : members)
    if ((key == "sys" || key == hiddenKey) && value.type == Value::text && value.content.empty()) return true;
  return false;
}

void requireBoundWords(RavctlCommandInstance& command, const Words& words, Found& found) {
  Mode mode;
  mode.quiet = found.startsQuiet;
  const auto consumed = static_cast<std::size_t>(found.consumed);
  const Members members = membersOf(found.params, words, consumed, mode);
  ScopedJson array(json::makeArray());
  for (const std::string& word : words) json::append(array.get(), json::makeString(word));
  Status status;
  {
    const AllCallsFail nothing(asksForInitSystem(members));
    status = bindCommandWords(command, array.get(), consumed);
  }
  requireStatus(status, modelOfBinding(found.params, members));
  requireParams(command, found.params);
  const OutputMode& shown = command.mode();
  require(shown.quiet == mode.quiet && shown.verbose == mode.verbose, "quiet and verbose");
  require(shown.json == mode.json && shown.text == mode.text, "json and text");
}

Members membersOf(const jsObject* object) {
  Members members;
  for (std::size_t i = 0; i < json::memberCount(object); ++i) {
    const jsObject* member = json::memberValue(object, i);
    Value value;
    if (json::isString(member)) value.type = Value::text;
    if (json::isNumber(member)) value.type = Value::number;
    if (json::isBoolean(member)) value.type = Value::boolean;
    value.content = json::textOf(member);
    value.amount = json::numberOf(member);
    value.isTrue = json::booleanOf(member);
    json::write(value.printed, member);
    members.emplace_back(json::memberName(object, i), value);
  }
  return members;
}

// Checks the object of a "json" command. It adds a third word, because some commands need a name.
void requireBoundRequest(const std::string& text) {
  ScopedJson request(requestFromJsonForm({"ravctl", "json", text}));
  ScopedJson document(json::parse(text.data(), static_cast<std::ptrdiff_t>(text.size())));
  require(static_cast<bool>(request) == json::isObject(document.get()), "a request is an object");
  if (!request) return;
  const std::string method(json::textOf(json::member(request.get(), "method")));
  const std::size_t blank = method.find(' ');
  Words words = {method.substr(0, blank), blank == std::string::npos ? "" : method.substr(blank + 1), "third"};
  json::setMember(request.get(), "method", nullptr);
  json::setMember(request.get(), "command_args", nullptr);
  Found found = modelOfFinding(words);
  int consumed = noCommand;
  if (words[0] == "ravctl") return;
  const std::unique_ptr<RavctlCommandInstance> command = findCommand(words, consumed);
  require(static_cast<bool>(command) == found.isCommand, "a method names a command");
  if (!command) return;
  const Members members = membersOf(request.get());
  Status status;
  {
    const AllCallsFail nothing(asksForInitSystem(members));
    status = bind_json_args(*command, request.get());
  }
  requireStatus(status, modelOfBinding(found.params, members));
  requireParams(*command, found.params);
}

Words wordsOf(std::string_view text) {
  Words words;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\0'), text.size());
    words.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return words;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  Words words = wordsOf(input.rest());
  Words expectedWords = words;
  if (!words.empty() && words[0] == "ravctl") expectedWords.erase(expectedWords.begin());
  Found found = modelOfFinding(expectedWords);
  int consumed = 17;
  std::unique_ptr<RavctlCommandInstance> command;
  {
    const AllCallsFail nothing(false);
    command = findCommand(words, consumed);
  }
  require(words == expectedWords, "one leading name of the program is removed");
  require(static_cast<bool>(command) == found.isCommand && consumed == found.consumed, "which words name a command");
  if (!command) return 0;
  requireParams(*command, found.params);
  requireBoundWords(*command, words, found);
  if (words.size() > 1 && words[0] == "json") requireBoundRequest(words[1]);
  return 0;
}
