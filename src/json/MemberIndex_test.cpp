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
constexpr std::uint32_t kGroup = 8;   // the number of slots that a search compares at once

std::uint32_t hashOf(const std::string& name) {
  return static_cast<std::uint32_t>(std::hash<std::string_view>()(name));
}

// The home of a name in a new index is the first slot of its group.
std::uint32_t groupOf(const std::string& name) { return hashOf(name) % kSlots / kGroup; }
// What a slot of a new index keeps of the hash.
std::uint32_t keptHashOf(const std::string& name) { return hashOf(name) / kSlots; }

std::string nameOf(std::uint32_t number) { return "member " + std::to_string(number); }

// A name whose group in a new index is `group`. Different values of `which` give different names.
std::string nameInGroup(std::uint32_t group, int which = 0) {
  for (std::uint32_t number = 0;; ++number) {
    if (groupOf(nameOf(number)) == group && which-- == 0) return nameOf(number);
  }
}

// Two names of one group that a slot of a new index does not tell apart.
std::pair<std::string, std::string> namesWithTheSameHash() {
  std::unordered_map<std::uint64_t, std::uint32_t> numbers;
  for (std::uint32_t number = 0;; ++number) {
    const std::string name = nameOf(number);
    const auto [place, isNew] = numbers.emplace(keptHashOf(name) * std::uint64_t{kSlots} + groupOf(name), number);
    if (!isNew) return {nameOf(place->second), name};
  }
}

auto namesIn(const Names& names) {
  return [&names](std::size_t at) { return std::string_view(names.at(at)); };
}

std::size_t found(const MemberIndex& index, const Names& names, const std::string& name) {
  return index.find(name, namesIn(names));
}

MemberIndex indexOf(const Names& names) {
  MemberIndex index;
  for (std::size_t at = 0; at < names.size(); ++at) index.add(at, namesIn(names));
  return index;
}

TEST(MemberIndex, DistinguishesTwoNamesWithTheSameHash) {
  const auto [one, other] = namesWithTheSameHash();
  ASSERT_NE(one, other);
  const Names names = {one, other, other};
  MemberIndex index;
  index.add(0, namesIn(names));
  EXPECT_EQ(found(index, names, other), MemberIndex::none);
  index.add(1, namesIn(names));
  EXPECT_EQ(found(index, names, one), 0u);
  EXPECT_EQ(found(index, names, other), 1u);
  index.move(other, 1, 2);
  EXPECT_EQ(found(index, names, one), 0u);
  EXPECT_EQ(found(index, names, other), 2u);
  index.remove(0, namesIn(names));
  EXPECT_EQ(found(index, names, one), MemberIndex::none);
  EXPECT_EQ(found(index, names, other), 2u);
}

TEST(MemberIndex, FindComparesOnlyNamesWithTheSameHash) {
  const Names names = {nameInGroup(5, 0), nameInGroup(5, 1), nameInGroup(6, 0)};
  const MemberIndex index = indexOf(names);
  std::vector<std::size_t> asked;
  index.find(names[1], [&](std::size_t at) {
    asked.push_back(at);
    return std::string_view(names[at]);
  });
  EXPECT_EQ(asked, std::vector<std::size_t>{1});
}

// The first slot of the next group holds a name that matches.
TEST(MemberIndex, FindComparesOnlySlotsOfItsGroup) {
  std::unordered_map<std::uint64_t, std::uint32_t> numbers;  // of names by kept hash and group
  const auto keyOf = [](const std::string& name, std::uint32_t group) {
    return keptHashOf(name) * std::uint64_t{kSlots} + group;
  };
  for (std::uint32_t number = 0;; ++number) {
    const std::string name = nameOf(number);
    numbers.emplace(keyOf(name, groupOf(name)), number);
    const auto next = numbers.find(keyOf(name, groupOf(name) + 1));
    if (next == numbers.end()) continue;
    const Names names = {nameOf(next->second)};
    std::size_t asked = 0;
    const MemberIndex index = indexOf(names);
    EXPECT_EQ(index.find(name, [&](std::size_t at) { return ++asked, std::string_view(names.at(at)); }),
              MemberIndex::none);
    EXPECT_EQ(asked, 0u);
    return;
  }
}

TEST(MemberIndex, AddAsksForTheOtherNamesOnlyIfMoreThanHalfOfTheSlotsWouldBeUsed) {
  Names names;
  MemberIndex index;
  for (std::uint32_t number = 0; number <= kSlots; ++number) {
    names.push_back(nameOf(number));
    std::size_t asked = 0;
    index.add(number, [&](std::size_t at) { return ++asked, std::string_view(names.at(at)); });
    const bool grows = number == kSlots / 2 || number == kSlots;
    EXPECT_EQ(asked, grows ? number + 1 : 1) << number;
  }
}

// A free slot looks like one of a name whose kept hash is 0. Half of the groups get seven names, so that one slot is
// free, and then such a name is looked for that none of them has.
TEST(MemberIndex, AFreeSlotIsNotTakenForANameWhoseKeptHashIsZero) {
  constexpr std::uint32_t slots = 65536;
  constexpr std::uint32_t fullGroups = slots / kGroup / 2;
  const auto groupIn = [](std::uint32_t hash) { return hash % slots / kGroup; };
  std::vector<std::uint32_t> used(fullGroups);
  Names names;
  std::uint32_t number = 0;
  for (; names.size() < fullGroups * (kGroup - 1); ++number) {
    const std::uint32_t group = groupIn(hashOf(nameOf(number)));
    if (group >= fullGroups || used[group] == kGroup - 1) continue;
    ++used[group];
    names.push_back(nameOf(number));
  }
  const MemberIndex index = indexOf(names);
  const auto isSought = [&](std::uint32_t hash) { return groupIn(hash) < fullGroups && hash / slots == 0; };
  while (!isSought(hashOf(nameOf(number)))) ++number;
  EXPECT_EQ(found(index, names, nameOf(number)), MemberIndex::none);
}

// More names of one group than it has slots.
TEST(MemberIndex, NamesOfAFullGroupAreFoundInTheNextOne) {
  for (const std::uint32_t group : {3u, kSlots / kGroup - 1}) {
    Names names;
    for (int which = 0; which < 11; ++which) names.push_back(nameInGroup(group, which));
    names.push_back(nameInGroup((group + 1) % (kSlots / kGroup)));
    MemberIndex index = indexOf(names);
    for (std::size_t at = 0; at < names.size(); ++at) EXPECT_EQ(found(index, names, names[at]), at);
    EXPECT_EQ(found(index, names, nameInGroup(group, 11)), MemberIndex::none);
    index.remove(2, namesIn(names));
    for (std::size_t at = 0; at < names.size(); ++at) {
      EXPECT_EQ(found(index, names, names[at]), at == 2 ? MemberIndex::none : at);
    }
  }
}

// Names that occupy each other's groups. In the first round the groups are in the middle of the table. In the second
// round they are at its end, so that some names are stored in the first slots.
TEST(MemberIndex, CollidingNamesAreFoundAfterRemovalsInAnyOrder) {
  for (const std::uint32_t first : {2u, kSlots / kGroup - 1}) {
    Names names;
    for (int which = 0; which < 7; ++which) names.push_back(nameInGroup(first, which));
    const std::size_t kept = names.size();
    for (int which = 7; which < 11; ++which) names.push_back(nameInGroup(first, which));
    names.push_back(nameInGroup((first + 1) % (kSlots / kGroup)));
    std::vector<std::size_t> order;
    for (std::size_t at = kept; at < names.size(); ++at) order.push_back(at);
    do {
      MemberIndex index = indexOf(names);
      std::vector<bool> isPresent(names.size(), true);
      for (const std::size_t removed : order) {
        index.remove(removed, namesIn(names));
        isPresent[removed] = false;
        for (std::size_t at = 0; at < names.size(); ++at) {
          ASSERT_EQ(found(index, names, names[at]), isPresent[at] ? at : MemberIndex::none)
              << at << " after the removal of " << removed << " from " << first << testing::PrintToString(order);
        }
      }
    } while (std::next_permutation(order.begin(), order.end()));
  }
}

TEST(MemberIndex, RemovedNameMayBeAddedAgain) {
  const Names names = {"a", "b"};
  MemberIndex index = indexOf(names);
  index.remove(1, namesIn(names));
  EXPECT_EQ(found(index, names, "b"), MemberIndex::none);
  index.add(1, namesIn(names));
  EXPECT_EQ(found(index, names, "a"), 0u);
  EXPECT_EQ(found(index, names, "b"), 1u);
}

TEST(MemberIndex, EveryNameIsFoundWhileTheIndexGrowsAndShrinks) {
  Names names;
  MemberIndex index;
  EXPECT_EQ(found(index, names, nameOf(0)), MemberIndex::none);
  for (std::uint32_t number = 0; number < 600; ++number) {
    names.push_back(nameOf(number));
    index.add(number, namesIn(names));
    for (std::uint32_t at = 0; at <= number; ++at) ASSERT_EQ(found(index, names, nameOf(at)), at) << number;
    ASSERT_EQ(found(index, names, nameOf(number + 1)), MemberIndex::none);
  }
  for (std::uint32_t number = 600; number-- > 0;) {
    index.remove(number, namesIn(names));
    ASSERT_EQ(found(index, names, names[number]), MemberIndex::none);
    for (std::uint32_t at = 0; at < number; ++at) ASSERT_EQ(found(index, names, names[at]), at) << number;
  }
}

std::size_t bytesInUse() {
  const struct mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

TEST(MemberIndex, RepeatedAddAndRemoveTakesNoMoreMemory) {
  Names names = {"first", ""};
  MemberIndex index;
  index.add(0, namesIn(names));
  const std::size_t before = bytesInUse();
  for (std::uint32_t round = 0; round < 100000; ++round) {
    names[1] = nameOf(round);
    index.add(1, namesIn(names));
    ASSERT_EQ(found(index, names, nameOf(round)), 1u);
    index.remove(1, namesIn(names));
  }
  EXPECT_EQ(found(index, names, nameOf(99999)), MemberIndex::none);
  EXPECT_EQ(found(index, names, "first"), 0u);
  EXPECT_LT(bytesInUse(), before + 4096);
}

}  // namespace
