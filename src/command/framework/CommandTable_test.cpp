#include "command/framework/CommandTable.h"

#include <gtest/gtest.h>

#include <iterator>

namespace {

constexpr CommandRow rows[] = {
    {"tea make", CommandForm::twoWords, "", "", "", nullptr},
    {"tea drink", CommandForm::twoWordsAndName, "", "", "", nullptr},
    {"pour <cup>", CommandForm::wordAndArgument, "", "", "", nullptr},
    {"wait", CommandForm::allWords, "", "", "", nullptr},
};
constexpr CommandAlias aliases[] = {{"tea brew", "tea make"}, {"brew tea", "tea make"}, {"tea spill", "pour <cup>"}};
constexpr CommandTable table = {rows, std::size(rows), aliases, std::size(aliases)};

TEST(CommandTable, TwoWordsFindTheCommandThatTheyNameOrAreAnAliasOf) {
  const struct {
    const char *first, *second;
    const CommandRow* row;
  } cases[] = {
      {"tea", "make", &rows[0]}, {"tea", "drink", &rows[1]}, {"tea", "brew", &rows[0]}, {"brew", "tea", &rows[0]},
      {"Tea", "make", nullptr},  {"tea", "Make", nullptr},   {"tea", "", nullptr},      {"", "make", nullptr},
      {"", "", nullptr},         {"tea", "mak", nullptr},    {"tea", "makes", nullptr}, {"tea ", "make", nullptr},
      {"tea make", "", nullptr}, {"tea m", "ake", nullptr},  {"wait", "", nullptr},     {"pour", "<cup>", nullptr},
      {"tea", "spill", nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.first) + "/" + c.second);
    EXPECT_EQ(table.findTwoWords(c.first, c.second), c.row);
  }
}

TEST(CommandTable, OneWordFindsOnlyCommandsNamedByOneWord) {
  EXPECT_EQ(table.findOneWord("pour"), &rows[2]);
  EXPECT_EQ(table.findOneWord("wait"), &rows[3]);
  for (const char* word : {"tea", "make", "tea make", "brew", "pour <cup>", "<cup>", "Wait", "wai", "waits", ""}) {
    EXPECT_EQ(table.findOneWord(word), nullptr) << word;
  }
}

TEST(CommandTable, IteratesInTheOrderOfTheRows) {
  std::string methods;
  for (const CommandRow& row : table) methods += std::string(row.method) + "; ";
  EXPECT_EQ(methods, "tea make; tea drink; pour <cup>; wait; ");
}

}  // namespace
