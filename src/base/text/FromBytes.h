// FromBytes: reads a value from bytes in memory.
//
//   const auto length = fromBytes<std::uint32_t>(bytes);
#pragma once

#include <cstring>
#include <type_traits>

// Returns the value of type T whose bytes, as this machine stores them, begin at that address. It need not be aligned.
template <class T>
T fromBytes(const void* bytes) {
  static_assert(std::is_trivially_copyable_v<T>);
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}
