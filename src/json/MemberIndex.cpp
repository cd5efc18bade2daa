#include "json/MemberIndex.h"

namespace {
constexpr std::size_t firstSize = 64;
constexpr std::size_t growth = 4;
}  // namespace

void MemberIndex::add(std::string_view name, std::size_t position) {
  if (2 * (used_ + 1) > slots_.size()) grow();
  put({hashOf(name), plusOne(position)});
  ++used_;
}

// A free slot ends a search. So each later slot of the same run moves into the gap, unless that would put it before its
// home slot.
void MemberIndex::remove(std::string_view name, std::size_t position) {
  std::size_t gap = slotOf(name, position);
  for (std::size_t at = after(gap); !slots_[at].isFree(); at = after(at)) {
    const std::size_t wayFromHome = (at - homeOf(slots_[at].hash)) & (slots_.size() - 1);
    const std::size_t wayFromGap = (at - gap) & (slots_.size() - 1);
    if (wayFromHome < wayFromGap) continue;
    slots_[gap] = slots_[at];
    gap = at;
  }
  slots_[gap] = Slot();
  --used_;
}

void MemberIndex::move(std::string_view name, std::size_t from, std::size_t to) {
  slots_[slotOf(name, from)].positionPlusOne = plusOne(to);
}

std::size_t MemberIndex::slotOf(std::string_view name, std::size_t position) const {
  std::size_t at = homeOf(hashOf(name));
  while (slots_[at].position() != position) at = after(at);
  return at;
}

void MemberIndex::put(const Slot& slot) {
  std::size_t at = homeOf(slot.hash);
  while (!slots_[at].isFree()) at = after(at);
  slots_[at] = slot;
}

void MemberIndex::grow() {
  std::vector<Slot> old(slots_.empty() ? firstSize : growth * slots_.size());
  old.swap(slots_);
  for (const Slot& slot : old) {
    if (!slot.isFree()) put(slot);
  }
}
