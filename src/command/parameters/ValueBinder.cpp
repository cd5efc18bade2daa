#include "command/parameters/ValueBinder.h"

#include <iterator>

#include "base/text/StringUtils.h"
#include "base/text/TextRef.h"

bool ValueBinder::takeText(std::string_view, std::string_view) { return false; }
bool ValueBinder::takeInteger(std::string_view, std::int32_t) { return false; }
bool ValueBinder::takeBoolean(std::string_view, bool) { return false; }
bool ValueBinder::takeStringList(std::string_view, std::vector<std::string>) { return false; }

bool StringVectorValueBinder::takeText(std::string_view key, std::string_view text) {
  lines_.push_back(StringUtils::concatenate({key, ": ", text}));
  return true;
}

bool StringVectorValueBinder::takeInteger(std::string_view key, std::int32_t n) {
  return takeText(key, TextRef(n).view());
}

bool StringVectorValueBinder::takeBoolean(std::string_view key, bool value) {
  return takeText(key, TextRef(value).view());
}

bool StringVectorValueBinder::takeStringList(std::string_view key, std::vector<std::string> list) {
  const bool hasHeading = !key.empty() && key.front() != '_';
  if (hasHeading) lines_.push_back(StringUtils::concatenate({key, ":"}));
  lines_.insert(lines_.end(), std::make_move_iterator(list.begin()), std::make_move_iterator(list.end()));
  return true;
}
