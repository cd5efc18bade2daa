#include "json/JsonRecords.h"

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>

#include "testing/faults/AllocationCount.h"

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

// Ends the program in another way than abort() if a container asks for more memory than there is.
void exitWithoutMemory() {
  std::set_new_handler([] { std::_Exit(EXIT_FAILURE); });
}

void addToAFullArrayOfTwoThousandMillion() {
  exitWithoutMemory();
  ArrayValue array(aloneInMemory, std::size_t{1} << 31);
  array.count = array.capacity;
  array.add(makeNull());
}

void addToAFullObjectOfTwoThousandMillion() {
  exitWithoutMemory();
  ObjectValue object(aloneInMemory, std::size_t{1} << 31);
  object.count = object.capacity;
  Name name(0, aloneInMemory);
  object.add(&name, makeNull());
}

TEST(JsonRecordsDeathTest, ContainerAbortsBeforeItsCountOverflows) {
  EXPECT_EXIT(addToAFullArrayOfTwoThousandMillion(), testing::KilledBySignal(SIGABRT), "");
  EXPECT_EXIT(addToAFullObjectOfTwoThousandMillion(), testing::KilledBySignal(SIGABRT), "");
}

TEST(JsonRecords, EachNewValueAndNameIsOneBlockUntilItsListGrows) {
  const std::ptrdiff_t before = newBlocksInUse();
  const auto blocks = [before] { return newBlocksInUse() - before; };
  ScopedJson number(makeNumber(5));
  EXPECT_EQ(blocks(), 1);
  ScopedJson string(makeString("a string of more bytes than a string object holds"));
  EXPECT_EQ(blocks(), 2);
  ScopedJson array(makeArray());
  EXPECT_EQ(blocks(), 3);
  for (int count = 1; count <= 9; ++count) {
    append(array.get(), makeNull());
    EXPECT_EQ(blocks(), count <= 8 ? 3 : 4) << count;
  }
  ScopedJson object(makeObject());
  EXPECT_EQ(blocks(), 5);
  for (int count = 1; count <= 9; ++count) {
    setMember(object.get(), std::to_string(count), makeNull());
    EXPECT_EQ(blocks(), 5 + count + (count <= 8 ? 0 : 1)) << count;
  }
}

TEST(JsonRecords, AFullListIsDoubled) {
  const ScopedJson array(makeArray());
  for (int count = 1; count <= 33; ++count) {
    const std::ptrdiff_t before = newBlocksSoFar();
    append(array.get(), makeNull());
    EXPECT_EQ(newBlocksSoFar() - before, count == 9 || count == 17 || count == 33 ? 1 : 0) << count;
  }
}

TEST(JsonRecordsDeathTest, AListForMoreThanTwoThousandMillionEntriesAborts) {
  constexpr std::size_t kMost = std::size_t{1} << 31;
  EXPECT_EQ(sizeWithList<ArrayValue>(kMost), sizeof(ArrayValue) + 8 * kMost);
  EXPECT_EXIT((void)sizeWithList<ArrayValue>(kMost + 1), testing::KilledBySignal(SIGABRT), "");
}

TEST(JsonRecords, BlockOfATextHasRoomForOneMoreByte) {
  EXPECT_EQ(sizeWithBytes<Name>("port"), sizeof(Name) + 5);
  EXPECT_EQ(sizeWithBytes<StringValue>("port"), sizeof(StringValue) + 5);
}

TEST(JsonRecords, ObjectOfMoreThanSixteenMembersHasAnIndex) {
  ScopedJson object(makeObject());
  for (int count = 1; count <= 17; ++count) {
    setMember(object.get(), std::to_string(count), makeNull());
    EXPECT_EQ(static_cast<ObjectValue*>(object.get())->index != nullptr, count > 16) << count;
  }
}

TEST(JsonRecords, NumberFitsInto32BitsIfItDoesAfterAHalfIsAddedAndItIsTruncated) {
  constexpr double kSmallest = -2147483649.5;  // these two are just too far
  constexpr double kLargest = 2147483647.5;
  EXPECT_FALSE(fits32Bits(kSmallest));
  EXPECT_TRUE(fits32Bits(std::nextafter(kSmallest, 0)));
  EXPECT_FALSE(fits32Bits(kLargest));
  EXPECT_TRUE(fits32Bits(std::nextafter(kLargest, 0)));
  EXPECT_FALSE(fits32Bits(std::nan("")));
}

}  // namespace
