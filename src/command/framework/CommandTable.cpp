#include "command/framework/CommandTable.h"

namespace {

// If `text` begins with the word, moves behind it and returns true.
bool skip(const char*& text, std::string_view word) {
  for (const char c : word) {
    if (c == '\0' || *text != c) return false;
    ++text;
  }
  return true;
}

bool isNamed(const char* name, std::string_view first, std::string_view second) {
  return skip(name, first) && skip(name, " ") && skip(name, second) && *name == '\0';
}

bool isNamedByTwoWords(const CommandRow& row) {
  return row.form == CommandForm::twoWords || row.form == CommandForm::twoWordsAndName;
}

}  // namespace

const CommandRow* CommandTable::findTwoWords(std::string_view first, std::string_view second) const {
  for (const CommandRow& row : *this)
    if (isNamedByTwoWords(row) && isNamed(row.method, first, second)) return &row;
  for (const CommandAlias* alias = aliases; alias != aliases + aliasCount; ++alias) {
    if (!isNamed(alias->words, first, second)) continue;
    const std::string_view method = alias->method;
    const std::size_t blank = method.find(' ');
    return findTwoWords(method.substr(0, blank), method.substr(blank + 1));
  }
  return nullptr;
}

const CommandRow* CommandTable::findOneWord(std::string_view word) const {
  for (const CommandRow& row : *this) {
    const std::string_view method = row.method;
    if (!isNamedByTwoWords(row) && method.substr(0, method.find(' ')) == word) return &row;
  }
  return nullptr;
}
