#include "json/NumberText.h"

#include <algorithm>
#include <cfloat>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/text/FromBytes.h"
#include "base/text/StringUtils.h"

namespace {

// Powers of ten that 64 bits hold.
constexpr std::uint64_t powersOfTen[] = {1,
                                         10,
                                         100,
                                         1000,
                                         10000,
                                         100000,
                                         1000000,
                                         10000000,
                                         100000000,
                                         1000000000,
                                         10000000000,
                                         100000000000,
                                         1000000000000,
                                         10000000000000,
                                         100000000000000,
                                         1000000000000000,
                                         10000000000000000,
                                         100000000000000000,
                                         1000000000000000000,
                                         10000000000000000000U};
constexpr std::size_t mostDigits = 19;  // every whole number with this many digits fits into 64 bits
constexpr int doubleBits = DBL_MANT_DIG;
constexpr std::size_t fixedDecimals = 6;    // of "%f"
constexpr std::uint64_t million = 1000000;  // 10^fixedDecimals
constexpr int millionthsBits = 44;          // 2^44 * million fits into 64 bits

// Whole numbers of at most `doubleBits` bits are divided as doubles. A double represents them exactly, and every power
// of ten up to 10^22. One division then rounds once, unless the processor computes with more bits than a double has.
constexpr bool dividesDoubles = std::is_same_v<std::double_t, double>;

// A double is (hidden bit + fraction) * 2^(exponent - bias - fraction bits), its sign and exponent above the fraction.
static_assert(std::numeric_limits<double>::is_iec559);
static_assert(sizeof(double) == sizeof(std::uint64_t));
constexpr int fractionBits = doubleBits - 1;
constexpr std::uint64_t hiddenBit = std::uint64_t{1} << fractionBits;
constexpr int exponentBias = 1023;
constexpr std::uint64_t exponentMask = 0x7ff;

#ifdef __SIZEOF_INT128__
__extension__ using Wide = unsigned __int128;
constexpr int wideBits = CHAR_BIT * sizeof(Wide);

double powerOfTwo(int exponent) {
  const std::uint64_t bits = static_cast<std::uint64_t>(exponentBias + exponent) << fractionBits;
  return fromBytes<double>(&bits);
}

// Returns the double nearest to whole / divisor. Both are shifted left until their highest bit is set, so that one
// division gives a quotient of 62 or 63 bits. The lowest bit of the quotient is sticky: it is set if there is a
// remainder. So the conversion to double rounds once, and correctly.
std::optional<double> divide(std::uint64_t whole, std::uint64_t divisor) {
  const int wholeShift = __builtin_clzll(whole);
  const int divisorShift = __builtin_clzll(divisor);
  const Wide dividend = static_cast<Wide>(whole << wholeShift) << 62;
  const std::uint64_t aligned = divisor << divisorShift;
  const auto quotient = static_cast<std::uint64_t>(dividend / aligned);
  const bool hasRemainder = quotient * aligned != static_cast<std::uint64_t>(dividend);
  return static_cast<double>(static_cast<std::int64_t>(quotient | static_cast<std::uint64_t>(hasRemainder))) *
         powerOfTwo(divisorShift - wholeShift - 62);
}

// Returns |number| times a million, rounded as "%f" rounds: to the nearest whole number, halves to even. Returns
// nothing if the number is outside the range of this fast path.
std::optional<std::uint64_t> millionths(double number) {
  const auto bits = fromBytes<std::uint64_t>(&number);
  const int shift = exponentBias + fractionBits - static_cast<int>(bits >> fractionBits & exponentMask);
  // The result of a larger number would not fit into 64 bits. The shift of a smaller one would be out of range; such
  // numbers are rare.
  if (shift <= fractionBits - millionthsBits || shift >= wideBits) return std::nullopt;
  const std::uint64_t significand = (bits & (hiddenBit - 1)) | hiddenBit;
  const Wide scaled = static_cast<Wide>(significand) * million;
  const Wide half = static_cast<Wide>(1) << (shift - 1);
  auto rounded = static_cast<std::uint64_t>(scaled >> shift);
  const Wide remainder = scaled - (static_cast<Wide>(rounded) << shift);
  if (remainder > half || (remainder == half && rounded % 2 != 0)) ++rounded;
  return rounded;
}
#else
std::optional<double> divide(std::uint64_t, std::uint64_t) { return std::nullopt; }
std::optional<std::uint64_t> millionths(double) { return std::nullopt; }
#endif

// Returns the double nearest to whole / 10^power, or nothing if this machine needs another way.
std::optional<double> scaleDown(std::uint64_t whole, std::size_t power) {
  const auto number = static_cast<double>(whole);
  if (power == 0 || whole == 0) return number;
  if (!dividesDoubles || whole >> doubleBits != 0) return divide(whole, powersOfTen[power]);
  return number / static_cast<double>(powersOfTen[power]);
}

// Writes the two digits of a number below 100.
char* writePair(char* at, std::uint32_t number) {
  *at++ = static_cast<char>('0' + number / 10);
  *at++ = static_cast<char>('0' + number % 10);
  return at;
}

// The number of decimal digits, from the number of bits: 3 / 10 is slightly less than log10(2).
std::size_t lengthOf(std::uint32_t number) {
  number |= 1;  // 0 has a digit too
  const auto bits = static_cast<std::uint32_t>(std::numeric_limits<std::uint32_t>::digits - __builtin_clz(number));
  const std::size_t length = bits * 3 / 10;
  return length + (number >= powersOfTen[length] ? 1 : 0);
}

// The eight digits of a number below 10^8 as ASCII, the first digit in the lowest byte. The number is split into two
// parts of four digits, each of those into two of two digits, and each of those into single digits. Each division is a
// multiplication and a shift, which is exact for numbers of that size.
std::uint64_t digitsOf(std::uint32_t number) {
  const std::uint64_t fours = number / 10000 | static_cast<std::uint64_t>(number % 10000) << 32;
  const std::uint64_t hundreds = (fours * 5243 >> 19) & 0x0000007f0000007f;
  const std::uint64_t twos = hundreds | (fours - 100 * hundreds) << 16;
  const std::uint64_t tens = (twos * 103 >> 10) & 0x000f000f000f000f;
  return (tens | (twos - 10 * tens) << 8) + 0x3030303030303030;
}

// Writes the last `length` of eight digits.
constexpr std::size_t wordDigits = sizeof(std::uint64_t);
char* writeWord(char* at, std::uint64_t digits, std::size_t length) {
  digits >>= CHAR_BIT * (wordDigits - length);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  digits = __builtin_bswap64(digits);
#endif
  std::memcpy(at, &digits, sizeof digits);
  return at + length;
}

// ---- The C library ----
//
// It reads and writes the decimal point of the program's locale, which may have several bytes. ravctl sets no locale,
// so this code is fast if the point is "." and slower for any other point. It does not ask the C library for the point,
// because nl_langinfo() would add 125 instructions to every start.

constexpr char point = '.';

double readInOtherLocale(std::string text) {
  char sample[sizeof "0.5" + MB_LEN_MAX];
  const int length = std::snprintf(sample, sizeof sample, "%.1f", 0.5);
  const std::string_view localPoint(sample + 1, static_cast<std::size_t>(length) - 2);
  if (localPoint != std::string_view(&point, 1)) {
    text.resize(std::min(text.find(localPoint), text.size()));  // no number contains it
    const std::size_t at = text.find(point);
    if (at != std::string::npos) text.replace(at, 1, localPoint);
  }
  return std::strtod(text.c_str(), nullptr);
}

// `end` points behind what strtod() has read. Returns true if strtod() certainly reads the same number in every locale.
bool isSameInEveryLocale(const char* at, const char* end) {
  if (*at == '-' || *at == '+') ++at;
  while (StringUtils::isDigit(*at)) ++at;
  if (*at == point) return end > at;  // the locale has this point if it has been read
  const char lower = static_cast<char>(*at | ('a' ^ 'A'));
  return *at == '\0' || (lower >= 'a' && lower <= 'z' && lower != 'x');
}

double readWithCLibrary(std::string_view text) {
  char buffer[64];  // most numbers need no memory
  std::string longText;
  const char* start = buffer;
  if (text.size() < sizeof buffer) {
    buffer[text.copy(buffer, text.size())] = '\0';
  } else {
    longText = text;
    start = longText.c_str();
  }
  char* end = nullptr;
  const double number = std::strtod(start, &end);
  return isSameInEveryLocale(start, end) ? number : readInOtherLocale(std::string(text));
}

char* writeInOtherLocale(char* at, double number) {
  char buffer[json::mostFixedBytes + MB_LEN_MAX];
  const auto length = static_cast<std::size_t>(std::snprintf(buffer, sizeof buffer, "%f", number));
  const std::string_view text(buffer, length);
  at += text.copy(at, text.find_first_not_of("-0123456789"));
  *at++ = point;
  return at + text.copy(at, fixedDecimals, length - fixedDecimals);
}

char* writeWithCLibrary(char* at, double number) {
  const auto length = static_cast<std::size_t>(std::snprintf(at, json::mostFixedBytes, "%f", number));
  if (!std::isfinite(number)) return at + length;
  const bool hasPoint = length < json::mostFixedBytes && at[length - fixedDecimals - 1] == point;
  return hasPoint ? at + length : writeInOtherLocale(at, number);
}

// Returns a pointer to the first byte that is not a digit. `whole` overflows if there are too many digits; the caller
// counts the digits and then discards it.
const char* readDigits(const char* at, const char* end, std::uint64_t& whole) {
  for (; at != end && StringUtils::isDigit(*at); ++at) whole = whole * 10 + static_cast<std::uint64_t>(*at - '0');
  return at;
}

}  // namespace

namespace json {

double numberIn(std::string_view text) {
  const char* end = text.data() + text.size();
  const PlainNumber plain = readPlainNumber(text.data(), end);
  if (plain.end == end) return plain.value;
  return readWithCLibrary(text);
}

PlainNumber readPlainNumber(const char* at, const char* end) {
  const bool negative = at != end && *at == '-';
  if (negative) ++at;
  const char* first = at;
  std::uint64_t whole = 0;
  at = readDigits(at, end, whole);
  std::size_t digits = static_cast<std::size_t>(at - first);
  std::size_t power = 0;
  if (at != end && *at == '.') {
    const char* behindPoint = ++at;
    at = readDigits(at, end, whole);
    power = static_cast<std::size_t>(at - behindPoint);
    digits += power;
  }
  if (digits == 0 || digits > mostDigits) return {};
  const std::optional<double> number = scaleDown(whole, power);
  if (!number) return {};
  return {negative ? -*number : *number, at};
}

// Computes eight digits at once in one word and keeps the last ones. No branch depends on the length of the number,
// because the processor cannot predict it in a list of different numbers.
char* writeInteger(char* at, std::uint32_t number) {
  constexpr std::uint32_t wordEnd = 100000000;
  const std::size_t length = lengthOf(number);
  if (number >= wordEnd) {
    at = writeWord(at, digitsOf(number / wordEnd), length - wordDigits);
    return writeWord(at, digitsOf(number % wordEnd), wordDigits);
  }
  return writeWord(at, digitsOf(number), length);
}

char* writeFixed(char* at, double number) {
  const std::optional<std::uint64_t> rounded = millionths(number);
  if (!rounded) return writeWithCLibrary(at, number);
  if (std::signbit(number)) *at++ = '-';
  const std::uint64_t whole = *rounded / million;
  const auto low = static_cast<std::uint32_t>(whole);
  constexpr int wholeDigits = std::numeric_limits<std::uint64_t>::digits10 + 1;  // the buffer has at least this room
  at = low == whole ? writeInteger(at, low) : std::to_chars(at, at + wholeDigits, whole).ptr;
  *at++ = '.';
  const auto decimals = static_cast<std::uint32_t>(*rounded % million);
  at = writePair(at, decimals / 10000);
  at = writePair(at, decimals / 100 % 100);
  return writePair(at, decimals % 100);
}

}  // namespace json
