#include "json/MemberIndex.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using Names = std::vector<std::string>;

constexpr std::uint32_t kSlots = 64;  // the number of slots of a new index

std::uint32_t hashOf(const std::string& name) {
  return static_cast<std::uint32_t>(std::hash<std::string_view>()(name));
}

std::string nameOf(std::uint32_t number) { return "member " + std::to_string(number); }

// A name whose home slot in a new index is `home`. Different values of `which` give different names.
std::string nameAtHome(std::uint32_t home, int which = 0) {
  for (std::uint32_t number = 0;; ++number) {
    if (hashOf(nameOf(number)) % kSlots == home && which-- == 0) return nameOf(number);
  }
}

// Two names with the same 32-bit hash. Some hundred thousand names contain more than one such pair.
std::pair<std::string, std::string> namesWithTheSameHash() {
  std::unordered_map<std::uint32_t, std::uint32_t> numbers;
  for (std::uint32_t number = 0;; ++number) {
    const auto [place, isNew] = numbers.emplace(hashOf(nameOf(number)), number);
    if (!isNew) return {nameOf(place->second), nameOf(number)};
  }
}

std::size_t found(const MemberIndex& index, const Names& names, const std::string& name) {
  return index.find(name, [&](std::size_t at) { return names[at] == name; });
}

MemberIndex indexOf(const Names& names) {
  MemberIndex index;
  for (std::size_t at = 0; at < names.size(); ++at) index.add(names[at], at);
  return index;
}

TEST(MemberIndex, DistinguishesTwoNamesWithTheSameHash) {
  const auto [one, other] = namesWithTheSameHash();
  ASSERT_NE(one, other);
  const Names names = {one, other, other};
  MemberIndex index;
  index.add(one, 0);
  EXPECT_EQ(found(index, names, other), MemberIndex::none);
  index.add(other, 1);
  EXPECT_EQ(found(index, names, one), 0u);
  EXPECT_EQ(found(index, names, other), 1u);
  index.move(other, 1, 2);
  EXPECT_EQ(found(index, names, one), 0u);
  EXPECT_EQ(found(index, names, other), 2u);
  index.remove(one, 0);
  EXPECT_EQ(found(index, names, one), MemberIndex::none);
  EXPECT_EQ(found(index, names, other), 2u);
}

TEST(MemberIndex, FindComparesOnlyNamesWithTheSameHash) {
  const Names names = {nameAtHome(5, 0), nameAtHome(5, 1), nameAtHome(6, 0)};
  const MemberIndex index = indexOf(names);
  std::vector<std::size_t> asked;
  index.find(names[1], [&](std::size_t at) {
    asked.push_back(at);
    return true;
  });
  EXPECT_EQ(asked, std::vector<std::size_t>{1});
}

// Six names that occupy each other's home slots. In the first round the slots are in the middle of the table. In the
// second round they are at its end, so that some names are stored in the first slots.
TEST(MemberIndex, CollidingNamesAreFoundAfterRemovalsInAnyOrder) {
  for (const std::uint32_t first : {10u, kSlots - 2}) {
    const auto home = [&](std::uint32_t offset) { return (first + offset) % kSlots; };
    const Names names = {nameAtHome(home(0), 0), nameAtHome(home(1), 0), nameAtHome(home(0), 1),
                         nameAtHome(home(1), 1), nameAtHome(home(3), 0), nameAtHome(home(0), 2)};
    std::vector<std::size_t> order = {0, 1, 2, 3, 4, 5};
    do {
      MemberIndex index = indexOf(names);
      std::vector<bool> isPresent(names.size(), true);
      for (const std::size_t removed : order) {
        index.remove(names[removed], removed);
        isPresent[removed] = false;
        for (std::size_t at = 0; at < names.size(); ++at) {
          ASSERT_EQ(found(index, names, names[at]), isPresent[at] ? at : MemberIndex::none)
              << at << " after the removal of " << removed << " from " << first << testing::PrintToString(order);
        }
      }
    } while (std::next_permutation(order.begin(), order.end()));
  }
}

TEST(MemberIndex, RemovedNameMayBeAddedAtAnotherPosition) {
  Names names = {"a", "b", "a"};
  MemberIndex index = indexOf({"a", "b"});
  index.remove("a", 0);
  index.add("a", 2);
  names[0] = "";
  EXPECT_EQ(found(index, names, "a"), 2u);
  EXPECT_EQ(found(index, names, "b"), 1u);
}

TEST(MemberIndex, EveryNameIsFoundWhileTheIndexGrowsAndShrinks) {
  Names names;
  MemberIndex index;
  EXPECT_EQ(found(index, names, nameOf(0)), MemberIndex::none);
  for (std::uint32_t number = 0; number < 600; ++number) {
    names.push_back(nameOf(number));
    index.add(names.back(), number);
    for (std::uint32_t at = 0; at <= number; ++at) ASSERT_EQ(found(index, names, nameOf(at)), at) << number;
    ASSERT_EQ(found(index, names, nameOf(number + 1)), MemberIndex::none);
  }
  for (std::uint32_t number = 0; number < 600; ++number) {
    index.remove(names[number], number);
    ASSERT_EQ(found(index, names, names[number]), MemberIndex::none);
    for (std::uint32_t at = number + 1; at < 600; ++at) ASSERT_EQ(found(index, names, names[at]), at) << number;
  }
}

std::size_t bytesInUse() {
  const struct mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

TEST(MemberIndex, RepeatedAddAndRemoveTakesNoMoreMemory) {
  Names names(2);
  MemberIndex index;
  index.add("first", 2);
  const std::size_t before = bytesInUse();
  for (std::uint32_t round = 0; round < 100000; ++round) {
    const std::size_t at = round % 2;
    if (round >= 2) index.remove(names[at], at);
    names[at] = nameOf(round);
    index.add(names[at], at);
    ASSERT_EQ(found(index, names, nameOf(round)), at);
  }
  EXPECT_EQ(found(index, names, nameOf(99997)), MemberIndex::none);
  EXPECT_EQ(found(index, names, nameOf(99998)), 0u);
  EXPECT_LT(bytesInUse(), before + 4096);
}

}  // namespace
