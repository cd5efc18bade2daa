// AddressModel: a simple second implementation of the address that a Helmsor parameter reads. Tests compare the results
// of the program with it.
#pragma once

#include <cstdint>
#include <string>

namespace address_model {

// The port of an address without a colon.
constexpr std::int64_t kDefaultPort = 8096;

struct Address {
  bool isGiven = false;  // false: nothing remains of the text
  std::string host;
  std::int64_t port = kDefaultPort;
};

// Returns the number at the start of the text, or 0 if there is none. A larger number becomes the largest 32-bit
// integer.
std::int64_t portOf(const std::string& text);

// Reads "host:port". "http://" or "https://" in any letter case is removed first, and then everything from the next
// slash on. An address without such a scheme keeps its slashes.
Address addressOf(const std::string& text);

}  // namespace address_model
