#include "command/framework/CommandTable.h"

namespace {

// The two words of a name; the second is empty if the name has only one word.
struct TwoWords {
  std::string_view first;
  std::string_view second;
};

TwoWords split(std::string_view name) {
  const std::size_t blank = name.find(' ');
  return blank == std::string_view::npos ? TwoWords{name, {}} : TwoWords{name.substr(0, blank), name.substr(blank + 1)};
}

bool isNamedByTwoWords(const CommandRow& row) {
  return row.form == CommandForm::twoWords || row.form == CommandForm::twoWordsAndName;
}

}  // namespace

const CommandRow* CommandTable::findTwoWords(std::string_view first, std::string_view second) const {
  for (const CommandAlias* alias = aliases; alias != aliases + aliasCount; ++alias) {
    const TwoWords words = split(alias->words);
    if (words.first == first && words.second == second) {
      const TwoWords method = split(alias->method);
      first = method.first;
      second = method.second;
      break;
    }
  }
  for (const CommandRow& row : *this) {
    const TwoWords words = split(row.method);
    if (isNamedByTwoWords(row) && words.first == first && words.second == second) return &row;
  }
  return nullptr;
}

const CommandRow* CommandTable::findOneWord(std::string_view word) const {
  for (const CommandRow& row : *this)
    if (!isNamedByTwoWords(row) && split(row.method).first == word) return &row;
  return nullptr;
}
