#include "json/JsonRecords.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>

namespace {

using namespace json;

TEST(JsonRecords, EachRecordHasItsKind) {
  EXPECT_EQ(PlainValue(JsonKind::null, sharedPlace).kind(), JsonKind::null);
  EXPECT_EQ(BooleanValue(true).kind(), JsonKind::boolean);
  EXPECT_EQ(NumberValue(0.5, aloneInMemory).kind(), JsonKind::number);
  EXPECT_EQ(EmptyString().kind(), JsonKind::string);
}

TEST(JsonRecords, BytesOfTheEmptyStringPointToItsTerminator) {
  const EmptyString empty;
  EXPECT_EQ(empty.length, 0u);
  EXPECT_EQ(empty.bytes(), &empty.terminator);
  EXPECT_EQ(*empty.bytes(), '\0');
}

void addToAFullArrayOfTwoThousandMillion() {
  ArrayValue array(aloneInMemory);
  array.count = array.capacity = std::uint32_t{1} << 31;
  array.add(makeNull());
}

TEST(JsonRecordsDeathTest, ContainerAbortsBeforeItsCountOverflows) {
  EXPECT_EXIT(addToAFullArrayOfTwoThousandMillion(), testing::KilledBySignal(SIGABRT), "");
}

TEST(JsonRecordsDeathTest, AListForMoreThanTwoThousandMillionEntriesAborts) {
  EXPECT_EXIT((void)sizeWithList<ArrayValue>(mostEntries + 1), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
