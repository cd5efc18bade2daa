#include "command/parameters/InputParams.h"

#include <cmath>
#include <limits>
#include <optional>

#include "base/text/StringUtils.h"
#include "json/JsonModel.h"
#include "log/front/BasicLog.h"

using StringUtils::equalIgnoreCase;

void setParameterWord(jsObject* args, std::string_view word) {
  const std::size_t equals = word.find('=');
  if (equals == std::string_view::npos) {
    json::setText(args, word, singleWordPresent);
  } else {
    json::setText(args, word.substr(0, equals), word.substr(equals + 1));
  }
}

bool NamedValueBinder::setFromText(const std::string&) { return false; }
bool NamedValueBinder::setFromInteger(std::int32_t) { return false; }
bool NamedValueBinder::setFromBoolean(bool) { return false; }
bool NamedValueBinder::setFromOther() { return false; }

bool InputParamBase::isSingleWord() const { return false; }
bool InputParamBase::takesValue() const { return true; }
bool InputParamBase::isSatisfied() const { return hasValue() || !isRequired(); }

InputParamBase* findParam(const InputParamList& params, std::string_view key) {
  for (InputParamBase* param : params)
    if (param->name() == key || (!key.empty() && param->hiddenKey() == key)) return param;
  return nullptr;
}

namespace {

// Truncates a number toward zero. Returns nothing if the result is not a 32-bit integer.
std::optional<std::int32_t> truncatedToInteger(double number) {
  const double whole = std::trunc(number);
  if (!(whole >= std::numeric_limits<std::int32_t>::min() && whole <= std::numeric_limits<std::int32_t>::max())) {
    return std::nullopt;
  }
  return static_cast<std::int32_t>(whole);
}

struct BooleanWord {
  char word[sizeof "false"];
  bool value;
};
constexpr BooleanWord booleanWords[] = {{"true", true},   {"yes", true}, {"on", true},
                                        {"false", false}, {"no", false}, {"off", false}};

}  // namespace

bool setFromJson(NamedValueBinder& param, const jsObject* value) {
  if (json::isString(value)) return param.setFromText(std::string(json::textOf(value)));
  if (json::isNumber(value)) {
    const std::optional<std::int32_t> n = truncatedToInteger(json::numberOf(value));
    return n && param.setFromInteger(*n);
  }
  if (json::isBoolean(value)) return param.setFromBoolean(json::booleanOf(value));
  return false;
}

bool TextParam::setFromText(const std::string& text) {
  value_ = text;
  return accept();
}

bool OptionalLogLevelParam::setFromText(const std::string& text) {
  BasicLog::Level level = BasicLog::Level::info;
  if (!BasicLog::parseLogLevel(text, level)) return TextParam::setFromText(text);
  value_ = StringUtils::lowerCase(BasicLog::loglevel_fullname(level));
  return accept();
}

bool IntParam::setFromText(const std::string& text) {
  if (!StringUtils::parseInt32(text, value_)) return false;
  return accept();
}

bool IntParam::setFromInteger(std::int32_t n) {
  value_ = n;
  return accept();
}

bool BoolParam::setFromText(const std::string& text) {
  for (const BooleanWord& row : booleanWords)
    if (equalIgnoreCase(text, row.word)) return setFromBoolean(row.value);
  return false;
}

bool BoolParam::setFromBoolean(bool value) {
  value_ = value;
  return accept();
}

bool SingleWordParam::setFromText(const std::string& text) {
  if (text.empty() || text == singleWordAbsent || equalIgnoreCase(text, "false")) {
    value_ = singleWordAbsent;
  } else if (text == singleWordPresent || equalIgnoreCase(text, "true")) {
    value_ = singleWordPresent;
  } else {
    return false;
  }
  return accept();
}

bool HelmsorParam::setFromText(const std::string& text) {
  std::string_view address = StringUtils::withoutWebScheme(text);
  if (address.size() < text.size()) address = address.substr(0, address.find('/'));
  const std::size_t colon = address.find(':');
  host_ = address.substr(0, colon);
  port_ = colon == std::string_view::npos ? defaultPort : StringUtils::leadingPort(address.substr(colon + 1));
  if (address.empty()) return false;
  return accept();
}
