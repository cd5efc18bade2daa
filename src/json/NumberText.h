// NumberText: converts numbers to text and back with the results of the C library, but faster for common numbers.
//
//   double half = json::numberIn("0.5abc");     // like strtod: 0.5
//   char text[json::mostFixedBytes];
//   char* end = json::writeFixed(text, half);   // like "%f": 0.500000
//
// Every result equals that of the C library in the C locale to the last bit and digit, whatever locale the program has
// set: the decimal point is always ".". Numbers without a fast path are passed to the C library.
//
// What it gains (bench/json_libraries), measured as our speed divided by that of another library:
// - readPlainNumber: "parse doubles" is 3.7 to 5.3 times as fast as cJSON; with strtod 0.87 times.
// - writeFixed: "print doubles" is 1.7 times as fast as nlohmann; with snprintf 0.22 times.
// - writeInteger: "print integers" is 1.1 times as fast as nlohmann; with std::to_chars 0.86 times.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace json {

// Returns what strtod() returns for the text in the C locale. A text of up to 19 digits, with or without a sign, needs
// no memory.
double numberIn(std::string_view text);

struct PlainNumber {
  double value;
  const char* end;  // behind the last byte that was read; null if the fast path cannot read the number
};
// The fast path of numberIn. Reads an optional minus sign and up to 19 digits with an optional decimal point. It does
// not check what follows: for "1e5" the end is the position of the "e", and the caller must decide whether the number
// ends there. The end is null if the text starts differently or has more digits. The end is also null for a number with
// decimals on a machine that has no 128-bit integers and rounds a division of doubles twice.
PlainNumber readPlainNumber(const char* at, const char* end);

// These write a number to `at` and return the end of the text. A zero byte need not follow it. The buffer must have the
// size given by the constant, because bytes after the end may be overwritten too.
constexpr std::size_t mostIntegerBytes = 10;
char* writeInteger(char* at, std::uint32_t number);

// Writes the number as "%f" formats it.
constexpr std::size_t mostFixedBytes = 318;  // a sign, 309 digits, a point, six digits and a zero byte
char* writeFixed(char* at, double number);

}  // namespace json
