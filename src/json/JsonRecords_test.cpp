#include "json/JsonRecords.h"

#include <gtest/gtest.h>

namespace {

using namespace json;

TEST(JsonRecords, EachKnowsItsKind) {
  EXPECT_EQ(PlainValue(JsonKind::null).kind(), JsonKind::null);
  EXPECT_EQ(BooleanValue(true).kind(), JsonKind::boolean);
  EXPECT_EQ(NumberValue(0.5).kind(), JsonKind::number);
  EXPECT_EQ(EmptyString().kind(), JsonKind::string);
}

TEST(JsonRecords, TheEmptyTextEndsInAZeroByteWhereBytesAreLookedFor) {
  const EmptyString empty;
  EXPECT_EQ(empty.length, 0u);
  EXPECT_EQ(empty.bytes(), &empty.terminator);
  EXPECT_EQ(*empty.bytes(), '\0');
}

}  // namespace
