#include "command/parameters/JsonRequest.h"

#include <cstddef>

#include "base/text/StringUtils.h"
#include "command/parameters/InputParams.h"
#include "json/JsonParser.h"

jsObject* requestFromJsonForm(const std::vector<std::string>& words) {
  if (words.size() != 3 || words[1] != "json") return nullptr;
  ScopedJson document(json::parse(words[2].data(), static_cast<std::ptrdiff_t>(words[2].size())));
  return json::isObject(document.get()) ? document.take() : nullptr;
}

Status requestFromCommandWords(ScopedJson& request, const std::vector<std::string>& words) {
  if (words.size() < 3) return Status::of(status::invalidCommand);
  jsObject* object = json::makeObject();
  request.reset(object);
  json::setText(object, "method", StringUtils::concatenate({words[1], " ", words[2]}));
  for (std::size_t i = 3; i < words.size(); ++i) setParameterWord(object, words[i]);
  jsObject* commandArgs = json::makeArray();
  for (std::size_t i = 1; i < words.size(); ++i) json::append(commandArgs, json::makeString(words[i]));
  json::setMember(object, "command_args", commandArgs);
  return Status::success();
}
