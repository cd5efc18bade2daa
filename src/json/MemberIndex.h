// MemberIndex: where the members of a large object lie, by the hash of their names.
//
//   index.add(name, position);
//   std::size_t position = index.find(name, [&](std::size_t at) { return names[at] == name; });
//
// It holds positions alone, not names: the caller compares, and says when a member goes or moves. Names are unique.
// A name is hashed whole, so that long common beginnings cost no more than their bytes. Slots are small, since a search
// in a large index costs what it takes to fetch one: 32 bits of the hash, and a position of 32 bits, for objects of up
// to two thousand million members. Names that were made to have one hash are found one after the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

class MemberIndex {
 public:
  static constexpr std::size_t none = static_cast<std::size_t>(-1);

  void add(std::string_view name, std::size_t position);
  // `name` lies at `position` in the index; it is there no longer.
  void remove(std::string_view name, std::size_t position);
  // `name` lies at `from` in the index; now it lies at `to`.
  void move(std::string_view name, std::size_t from, std::size_t to);

  // The position of `name`, or none. `isAt(position)` says whether the name at a position is the one looked for.
  template <class IsAt>
  std::size_t find(std::string_view name, IsAt isAt) const {
    if (slots_.empty()) return none;
    const std::uint32_t hash = hashOf(name);
    for (std::size_t at = homeOf(hash); !slots_[at].isFree(); at = after(at)) {
      if (slots_[at].hash == hash && isAt(slots_[at].position())) return slots_[at].position();
    }
    return none;
  }

 private:
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t positionPlusOne = 0;  // 0: free
    bool isFree() const { return positionPlusOne == 0; }
    std::size_t position() const { return positionPlusOne - std::size_t{1}; }
  };

  static std::uint32_t hashOf(std::string_view name) {
    return static_cast<std::uint32_t>(std::hash<std::string_view>()(name));
  }
  std::size_t homeOf(std::uint32_t hash) const { return hash & (slots_.size() - 1); }
  std::size_t after(std::size_t at) const { return (at + 1) & (slots_.size() - 1); }
  static std::uint32_t plusOne(std::size_t position) { return static_cast<std::uint32_t>(position + 1); }
  std::size_t slotOf(std::string_view name, std::size_t position) const;
  void put(const Slot& slot);
  void grow();

  std::vector<Slot> slots_;  // a power of two, never more than half full
  std::size_t used_ = 0;
};
