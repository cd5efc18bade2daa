// StringUtils: the small text routines that the whole program shares: trimming, joining of paths, conversion of numbers
// and booleans to text and back, and splitting of a server URL.
//
// All functions work on bytes. A letter is an ASCII letter. Returned views point into the argument. parseBool,
// parseInt32 and splitUrl return false on failure, and each documents what its outputs then hold. leadingInt64 and
// leadingPort cannot fail: without a number they return 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace StringUtils {

// The bytes that trimming removes from both ends.
enum class TrimSet {
  nonPrintable,  // every byte outside 33..126: names, configuration lines, heartbeat
  blanks,        // bytes up to 32, and 127: values of key=value files, level names, numbers
};
std::string_view trim(std::string_view text, TrimSet set);

// Joins the pieces in order and skips empty ones. Puts one "/" between two pieces, unless the text so far ends in "/".
// A "/" at the start of a piece stays: "a" and "/b" give "a//b".
std::string joinPath(std::initializer_list<std::string_view> pieces);
// Joins the pieces in order with nothing between them. It and joinPath allocate memory once at most.
std::string concatenate(std::initializer_list<std::string_view> pieces);
// The text behind the last "/" or "\"; the whole text if it has neither.
std::string_view lastComponent(std::string_view path);

// Numbers become decimal text, as by "%d" and "%ld"; booleans become "true" or "false". The deleted overload stops the
// compiler from converting a pointer to a boolean.
std::string toString(std::int32_t number);
std::string toString(std::int64_t number);
std::string toString(bool value);
std::string toString(const void* pointer) = delete;
// Lower-case hexadecimal digits without a prefix. toHex writes as many as needed, toHex8 exactly eight.
std::string toHex(std::uint32_t number);
std::string toHex8(std::uint32_t number);

// Parses "true", "yes", "1", "on" and "false", "no", "0", "off" in any mix of cases. For any other text it returns
// false and sets `result` to false.
bool parseBool(std::string_view text, bool& result);

// Parses a whole number that fits 32 bits: blanks at both ends are ignored, one sign is allowed, and everything else
// must be decimal digits. On failure it returns false and does not change `value`.
bool parseInt32(std::string_view text, std::int32_t& value);

// The number at the start of the text, read as strtoll does in base 10: optional whitespace, an optional sign, then
// digits up to the first byte that is no digit. A number beyond 64 bits becomes the nearest limit. Without digits the
// value is 0. `end` is the offset behind the last digit, or 0 if there are no digits.
struct LeadingInt64 {
  std::int64_t value;
  std::size_t end;
};
LeadingInt64 leadingInt64(std::string_view text);

// The number that the digits at the very start of the text form; 0 if there are none. A number too large for the type
// becomes its largest value, so that a port above 65535 never wraps to a valid one.
std::int32_t leadingPort(std::string_view text);

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool startsWith(std::string_view text, std::string_view prefix);
bool endsWith(std::string_view text, std::string_view ending);
// These two ignore the case of ASCII letters.
bool equalIgnoreCase(std::string_view a, std::string_view b);
bool startsWithIgnoreCase(std::string_view text, std::string_view prefix);

// The text with the letters A to Z converted to lower case.
std::string lowerCase(std::string_view text);

// True if the text contains a byte below 32 or the byte 127.
bool hasControlByte(std::string_view text);
// The text with every byte of 128 and above replaced by one "?". The length does not change.
std::string plainAscii(std::string_view text);

// The text without a leading "http://" or "https://", in any letter case.
std::string_view withoutWebScheme(std::string_view text);

// Splits "scheme://host:port/rest" into four outputs, which it clears first.
// - `scheme` includes the "://".
// - `host` does not include the brackets of a bracketed host. The search for ":" comes before the search for "/": a
//   colon anywhere behind the scheme ends an unbracketed host, even behind a slash. That is deliberate.
// - `port` is the run of digits behind the host's colon. It may be empty; its value is not checked.
// - `rest` is everything behind the port, or behind the host if there is no port.
// Returns false if there is no "://", if nothing follows it, if the closing bracket is missing, or if the host is
// empty. The outputs then keep the parts that were recognised before the failure.
bool splitUrl(std::string_view url, std::string& scheme, std::string& host, std::string& port, std::string& rest);

}  // namespace StringUtils
