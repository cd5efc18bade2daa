// MemberIndex: a hash index from the names of an object's members to their positions.
//
//   const auto nameAt = [&](std::size_t position) -> std::string_view { return names[position]; };
//   MemberIndex index;
//   index.add(position, nameAt);
//   std::size_t found = index.find("port", nameAt);
//
// The index stores positions, not names. The caller adds each name only once and reports each removed or moved member.
// add() is called with the number of names in the index as the position: while the index grows, it asks for the names
// at all positions below. It grows when more than half of its slots would be used. Names that have the same hash are
// searched linearly.
//
// The index is an open-addressing table with linear probing. What its two peculiarities gain (bench/json_bench, finding
// each of 100,000 members, on a busy machine; a simple table with slots of 8 bytes: 28 ns a member):
// - A slot has only 4 bytes: a table of 2^k slots needs k bits for a position and fills the other bits with a part of
//   the hash. A search in a large index mostly waits for one cache miss, and half as many slots miss: 19 ns.
// - A search starts at the first of eight slots and compares all eight without a branch. A branch on a slot that is not
//   in the cache is predicted wrongly and then waits for it: 14 ns.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <string_view>
#include <vector>

class MemberIndex {
 public:
  static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

  // Adds the name at that position.
  template <class NameAt>
  void add(std::size_t position, NameAt nameAt) {
    if (2 * (used_ + 1) > slots_.size()) grow(nameAt);
    put(hashOf(nameAt(position)), position);
    ++used_;
  }

  // Returns the position of `name`, or `none`.
  template <class NameAt>
  std::size_t find(std::string_view name, NameAt nameAt) const {
    if (slots_.empty()) return none;
    const Hash hash = hashOf(name);
    const Slot* group = slots_.data() + homeOf(hash);
    const Slot* end = group + groupSize;
    Slot matches = 0;
    for (const Slot* slot = group; slot != end; ++slot) matches |= isMatching(*slot, hash) ? *slot : Slot{0};
    if (isFree(matches) && isFree(*std::prev(end))) return none;
    // If several slots match, their bits are mixed, and the position is hardly ever that of one of them.
    const std::size_t position = positionIn(matches);
    if (position < used_ && nameAt(position) == name) return position;
    return findSlowly(hash, name, nameAt);
  }

  // Removes the name at that position. A free slot ends a search. So each later slot of the same run moves into the
  // gap, unless that would put it before its home slot.
  template <class NameAt>
  void remove(std::size_t position, NameAt nameAt) {
    std::size_t gap = slotOf(hashOf(nameAt(position)), position);
    for (std::size_t at = after(gap); !isFree(slots_[at]); at = after(at)) {
      const std::size_t home = homeOf(hashOf(nameAt(positionIn(slots_[at]))));
      if (((at - home) & mask()) < ((at - gap) & mask())) continue;
      slots_[gap] = slots_[at];
      gap = at;
    }
    slots_[gap] = 0;
    --used_;
  }

  // Changes the position of `name` from `from` to `to`.
  void move(std::string_view name, std::size_t from, std::size_t to) {
    const Hash hash = hashOf(name);
    slots_[slotOf(hash, from)] = slotFor(hash, to);
  }

 private:
  // 0 if it is free; else the position + 1 in the lowest bits, and the bits of the hash above them.
  using Slot = std::uint32_t;
  using Hash = std::uint32_t;  // its lowest bits choose the home slot

  static constexpr std::size_t groupSize = 8;
  static constexpr std::size_t firstSize = 8 * groupSize;

  static Hash hashOf(std::string_view name) { return static_cast<Hash>(std::hash<std::string_view>()(name)); }

  Slot mask() const { return static_cast<Slot>(slots_.size() - 1); }  // of the lowest bits
  static bool isFree(Slot slot) { return slot == 0; }
  Slot slotFor(Hash hash, std::size_t position) const { return (hash & ~mask()) | static_cast<Slot>(position + 1); }
  std::size_t positionIn(Slot slot) const { return (slot & mask()) - std::size_t{1}; }
  // A free slot may match, too.
  bool isMatching(Slot slot, Hash hash) const { return ((slot ^ hash) & ~mask()) == 0; }

  std::size_t homeOf(Hash hash) const { return (hash & mask()) / groupSize * groupSize; }
  std::size_t after(std::size_t at) const { return (at + 1) & mask(); }

  template <class NameAt>
  std::size_t findSlowly(Hash hash, std::string_view name, NameAt nameAt) const {
    for (std::size_t at = homeOf(hash); !isFree(slots_[at]); at = after(at)) {
      if (isMatching(slots_[at], hash) && nameAt(positionIn(slots_[at])) == name) return positionIn(slots_[at]);
    }
    return none;
  }

  std::size_t slotOf(Hash hash, std::size_t position) const {
    std::size_t at = homeOf(hash);
    while (positionIn(slots_[at]) != position) at = after(at);
    return at;
  }

  void put(Hash hash, std::size_t position) {
    const Slot* group = slots_.data() + homeOf(hash);
    const auto used = std::count_if(group, group + groupSize, [](Slot slot) { return !isFree(slot); });
    // The first free slot of the group, or the start of the next.
    std::size_t at = (homeOf(hash) + static_cast<std::size_t>(used)) & mask();
    while (!isFree(slots_[at])) at = after(at);
    slots_[at] = slotFor(hash, position);
  }

  template <class NameAt>
  void grow(NameAt nameAt) {
    slots_.assign(slots_.empty() ? firstSize : 2 * slots_.size(), 0);
    for (std::size_t position = 0; position < used_; ++position) put(hashOf(nameAt(position)), position);
  }

  std::vector<Slot> slots_;  // their number is a power of two; at most half of them are used
  std::size_t used_ = 0;
};
