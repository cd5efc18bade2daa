// NumberText: converts numbers to text and back with the results of the C library, but faster for common numbers.
//
//   double half = json::numberIn("0.5abc");     // like strtod: 0.5
//   char text[json::mostFixedBytes];
//   char* end = json::writeFixed(text, half);   // like "%f": 0.500000
//
// Every result equals that of the C library to the last bit and digit. Numbers without a fast path are passed to it.
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

// Returns what strtod() returns for the text. A number of up to 19 digits with no decimals needs no memory.
double numberIn(std::string_view text);

// The fast path of numberIn. Reads an optional minus sign and up to 19 digits with an optional decimal point, and
// returns the end of what it has read. It does not check what follows: for "1e5" it returns the position of the "e",
// and the caller must decide whether the number ends there. Returns null if the text starts differently or has more
// digits. Also returns null for a number with decimals on a machine that has no 128-bit integers and rounds a division
// of doubles twice.
const char* readPlainNumber(const char* at, const char* end, double& number);

// These write a number to `at` and return the end of the text. A zero byte need not follow it. The buffer must have the
// size given by the constant, because bytes after the end may be overwritten too.
constexpr std::size_t mostIntegerBytes = 10;
char* writeInteger(char* at, std::uint32_t number);

// Writes the number as "%f" formats it.
constexpr std::size_t mostFixedBytes = 318;  // a sign, 309 digits, a point, six digits and a zero byte
char* writeFixed(char* at, double number);

}  // namespace json
