#include "base/text/TextOrNull.h"

#include <gtest/gtest.h>

namespace {

std::string taken(TextOrNull text) { return std::string(text); }

TEST(TextOrNull, ANullPointerIsTheEmptyText) {
  const char* const absent = nullptr;
  EXPECT_EQ(taken(absent), "");
  EXPECT_EQ(taken(nullptr), "");
}

TEST(TextOrNull, EveryKindOfTextIsTakenWhole) {
  const std::string text("a\0b", 3);
  EXPECT_EQ(taken(text), text);
  EXPECT_EQ(taken(std::string_view(text)), text);
  EXPECT_EQ(taken("a literal"), "a literal");
}

}  // namespace
