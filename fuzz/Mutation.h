// Mutation: what the targets share whose mutators know the form of their input.
//
//   extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room, unsigned
//   seed) {
//     fuzz::Random random(seed);
//     if (random.below(4) == 0) return LLVMFuzzerMutate(data, size, room);
//     return fuzz::putMutation(changed(fuzz::textOf(data, size), random), data, size, room);
//   }
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

// Changes the bytes at `data` with the mutators of libFuzzer. Returns the new size, which is at most `room`.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t room);

namespace fuzz {

// A sequence of numbers that depends only on its seed.
class Random {
 public:
  explicit Random(unsigned seed) : state_(seed) {}

  // Returns a number below `bound`, which is not 0.
  std::size_t below(std::size_t bound) {
    state_ = state_ * 6364136223846793005U + 1442695040888963407U;
    return static_cast<std::size_t>(state_ >> 33U) % bound;
  }

  template <typename Range>
  auto& oneOf(Range& range) {
    return range[below(std::size(range))];
  }

 private:
  std::uint64_t state_;
};

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// Puts a changed text in the place of the input and returns its size. If it does not fit, libFuzzer changes the input.
inline std::size_t putMutation(const std::string& changed, std::uint8_t* data, std::size_t size, std::size_t room) {
  if (changed.size() > room) return LLVMFuzzerMutate(data, size, room);
  std::memcpy(data, changed.data(), changed.size());
  return changed.size();
}

}  // namespace fuzz
