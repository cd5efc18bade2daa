#include "base/text/TextRef.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>

namespace {

TEST(TextRef, ANullPointerIsTheEmptyText) {
  const TextRef text(static_cast<const char*>(nullptr));
  EXPECT_TRUE(text.isEmpty());
  EXPECT_EQ(text.length(), 0U);
  EXPECT_STREQ(text.text(), "");
}

TEST(TextRef, APlainPointerEndsAtItsZeroByte) {
  const char bytes[] = "abc\0def";
  const TextRef text(bytes);
  EXPECT_EQ(text.length(), 3U);
  EXPECT_EQ(text.text(), bytes);
}

TEST(TextRef, AStringObjectKeepsItsLengthAndItsZeroBytes) {
  const std::string bytes("abc\0def", 7);
  const TextRef text(bytes);
  EXPECT_EQ(text.length(), 7U);
  EXPECT_EQ(text.text(), bytes.data());
  EXPECT_EQ(text.view(), bytes);
}

TEST(TextRef, HoldsTheDecimalTextOfANumberOrTheWordOfABoolean) {
  EXPECT_STREQ(TextRef(-5).text(), "-5");
  EXPECT_EQ(TextRef(-5).length(), 2U);
  EXPECT_STREQ(TextRef(0).text(), "0");
  EXPECT_STREQ(TextRef(INT_MAX).text(), "2147483647");
  EXPECT_STREQ(TextRef(INT_MIN).text(), "-2147483648");
  EXPECT_EQ(TextRef(true).view(), "true");
  EXPECT_EQ(TextRef(false).view(), "false");
  EXPECT_EQ(TextRef(1.5).view(), "1.500000") << "six digits behind the point";
  EXPECT_EQ(TextRef(-0.1).view(), "-0.100000");
}

TEST(TextRef, ADoubleLongerThanTheBufferIsCutToNinetyNineBytes) {
  const TextRef text(DBL_MAX);
  EXPECT_EQ(text.length(), 99U);
  EXPECT_EQ(text.text()[99], '\0');
  EXPECT_EQ(text.view().substr(0, 5), "17976");
}

TEST(TextRef, ACopyOfANumberOutlivesTheOriginal) {
  TextRef copy(static_cast<const char*>(nullptr));
  {
    const TextRef number(42);
    copy = number;
    EXPECT_NE(copy.text(), number.text());
  }
  EXPECT_STREQ(copy.text(), "42");
  const TextRef second(copy);
  copy = TextRef(7);
  EXPECT_STREQ(second.text(), "42");
  EXPECT_STREQ(copy.text(), "7");
}

TEST(TextRef, ACopyOfAViewShowsTheSameBytes) {
  const char bytes[] = "shared";
  const TextRef original(bytes);
  TextRef copy(original);
  EXPECT_EQ(copy.text(), bytes);
  copy = TextRef(1);
  copy = original;
  EXPECT_EQ(copy.text(), bytes);
  EXPECT_EQ(copy.length(), 6U);
}

TEST(TextRef, AssigningToItselfChangesNothing) {
  TextRef text(12);
  const TextRef& same = text;
  text = same;
  EXPECT_STREQ(text.text(), "12");
}

TEST(TextRef, EqualMeansTheSameLengthAndTheSameBytes) {
  EXPECT_TRUE(TextRef("abc").equals(TextRef("abc")));
  EXPECT_FALSE(TextRef("abc").equals(TextRef("Abc")));
  EXPECT_FALSE(TextRef("abc").equals(TextRef("abcd")));
  EXPECT_FALSE(TextRef(std::string("a\0b", 3)).equals(TextRef(std::string("a\0c", 3))));
  EXPECT_TRUE(TextRef(5).equals(TextRef("5")));
}

TEST(TextRef, EqualIgnoringCaseKnowsAsciiLettersOnlyAndStopsAtAZeroByte) {
  EXPECT_TRUE(TextRef("DeBuG").equalsIgnoreCase(TextRef("dEbUg")));
  EXPECT_FALSE(TextRef("debug").equalsIgnoreCase(TextRef("debu")));
  EXPECT_FALSE(TextRef("\xc4").equalsIgnoreCase(TextRef("\xe4")));
  EXPECT_FALSE(TextRef("[").equalsIgnoreCase(TextRef("{")));
  EXPECT_TRUE(TextRef(std::string("A\0b", 3)).equalsIgnoreCase(TextRef(std::string("a\0c", 3))));
}

}  // namespace
