#include "base/text/FromBytes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace {

TEST(FromBytes, ReadsAValueFromAnyAddress) {
  const std::uint32_t number = 0x12345678;
  char bytes[16];
  for (std::size_t at = 0; at < 8; ++at) {
    std::memset(bytes, 0x55, sizeof bytes);
    std::memcpy(bytes + at, &number, sizeof number);
    EXPECT_EQ(fromBytes<std::uint32_t>(bytes + at), number) << at;
  }
  const double half = 0.5;
  EXPECT_EQ(fromBytes<double>(&half), 0.5);
}

}  // namespace
