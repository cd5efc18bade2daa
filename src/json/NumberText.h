// NumberText: numbers to text and back, with the results of the C library, quicker for what is common.
//
//   double half = json::numberIn("0.5abc");     // as strtod: 0.5
//   char text[json::mostFixedBytes];
//   char* end = json::writeFixed(text, half);   // as "%f": 0.500000
//
// The results are those of the C library to the last bit and digit; what has no short road goes to it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace json {

// What strtod makes of the text.
double numberIn(std::string_view text);

// The short road of numberIn: an optional minus, digits, and a point among them. Gives the end of what it has read, or
// null when there is no number of this plain form or it has too many digits; also when it has a point and the processor
// can neither divide doubles with one rounding nor has integers of 128 bits. Whether the number ends there, is for the
// caller to see: "1e5" stops before the "e".
const char* readPlainNumber(const char* at, const char* end, double& number);

// Write a number at `at`, without a zero byte, and give the place behind it. The bytes behind that, up to the most, may
// be written too.
constexpr std::size_t mostIntegerBytes = 10;
char* writeInteger(char* at, std::uint32_t number);

// As "%f" formats it.
constexpr std::size_t mostFixedBytes = 330;  // a sign, 309 digits, a point, six digits, with some to spare
char* writeFixed(char* at, double number);

}  // namespace json
