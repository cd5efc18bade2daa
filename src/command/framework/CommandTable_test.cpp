#include "command/framework/CommandTable.h"

#include <gtest/gtest.h>

#include <iterator>

namespace {

constexpr CommandRow kRows[] = {
    {0, "tea make", CommandForm::twoWords, "", "", ""},
    {1, "tea drink", CommandForm::twoWordsAndName, "", "", ""},
    {2, "pour <cup>", CommandForm::wordAndArgument, "", "", ""},
    {3, "wait", CommandForm::allWords, "", "", ""},
};
constexpr CommandAlias kAliases[] = {{"tea brew", "tea make"}, {"brew tea", "tea make"}, {"tea spill", "pour <cup>"}};
constexpr CommandTable kTable = {nullptr, kRows, std::size(kRows), kAliases, std::size(kAliases)};

TEST(CommandTable, TwoWordsFindTheCommandThatTheyNameOrAreAnAliasOf) {
  const struct {
    const char *first, *second;
    const CommandRow* row;
  } cases[] = {
      {"tea", "make", &kRows[0]}, {"tea", "drink", &kRows[1]}, {"tea", "brew", &kRows[0]}, {"brew", "tea", &kRows[0]},
      {"Tea", "make", nullptr},   {"tea", "Make", nullptr},    {"tea", "", nullptr},       {"", "make", nullptr},
      {"", "", nullptr},          {"tea", "mak", nullptr},     {"tea", "makes", nullptr},  {"tea ", "make", nullptr},
      {"tea make", "", nullptr},  {"tea m", "ake", nullptr},   {"wait", "", nullptr},      {"pour", "<cup>", nullptr},
      {"tea", "spill", nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.first) + "/" + c.second);
    EXPECT_EQ(kTable.findTwoWords(c.first, c.second), c.row);
  }
}

TEST(CommandTable, AZeroByteInAWordIsNotTheEndOfAName) {
  const std::string zero(1, '\0');
  EXPECT_EQ(kTable.findTwoWords("tea", "make" + zero), nullptr);
  EXPECT_EQ(kTable.findTwoWords("tea" + zero, "make"), nullptr);
  EXPECT_EQ(kTable.findTwoWords("tea", "make" + zero + "tea drink"), nullptr);
}

TEST(CommandTable, OneWordFindsOnlyCommandsNamedByOneWord) {
  EXPECT_EQ(kTable.findOneWord("pour"), &kRows[2]);
  EXPECT_EQ(kTable.findOneWord("wait"), &kRows[3]);
  for (const char* word : {"tea", "make", "tea make", "brew", "pour <cup>", "<cup>", "Wait", "wai", "waits", ""}) {
    EXPECT_EQ(kTable.findOneWord(word), nullptr) << word;
  }
}

TEST(CommandTable, IteratesInTheOrderOfTheRows) {
  std::string methods;
  for (const CommandRow& row : kTable) methods += std::string(row.method) + "; ";
  EXPECT_EQ(methods, "tea make; tea drink; pour <cup>; wait; ");
}

}  // namespace
