// StringUtils: the small text routines that everything else shares: trimming and path joining, which nobody else in the
// program does, numbers and booleans to text and back, and the splitting of a server URL.
//
// Bytes are bytes: nothing here depends on the locale, and letters are the ASCII letters. Views that are returned point
// into the argument. Nothing fails loudly; a parser that returns false says what became of its output.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace StringUtils {

// What trimming takes off, from both ends.
enum class TrimSet {
  nonPrintable,  // every byte outside 33..126: names, configuration lines, heartbeat
  blanks,        // bytes up to 32, and 127: values of key=value files, level names, numbers
};
std::string_view trim(std::string_view text, TrimSet set);

// The pieces in order, empty ones skipped, with one "/" between two unless the text so far ends in one.
std::string joinPath(std::initializer_list<std::string_view> pieces);
// The pieces in order, nothing between them.
std::string concatenate(std::initializer_list<std::string_view> pieces);
// What follows the last "/" or "\"; the whole text when there is none.
std::string_view lastComponent(std::string_view path);

// Decimal, as "%d" and "%ld"; "true" or "false". The deleted form keeps a pointer from being taken for a boolean.
std::string toString(std::int32_t number);
std::string toString(std::int64_t number);
std::string toString(bool value);
std::string toString(const void* pointer) = delete;
// Lower-case hexadecimal digits without a prefix: as many as needed, and exactly eight.
std::string toHex(std::uint32_t number);
std::string toHex8(std::uint32_t number);

// "true", "yes", "1", "on" and "false", "no", "0", "off", whatever the case. Anything else is false with failure.
bool parseBool(std::string_view text, bool& result);

// A whole number: outer blanks taken off, one optional sign, decimal digits and nothing else, within 32 bits. On
// failure `value` is left as it was.
bool parseInt32(std::string_view text, std::int32_t& value);

// The number at the start of the text as strtoll reads it in base 10: white space, one optional sign, digits up to the
// first byte that is none; saturating; 0 when there are no digits. `end`, when given, becomes the offset behind the
// last digit, 0 when there are none.
std::int64_t leadingInt64(std::string_view text, std::size_t* end = nullptr);

// The digits directly at the start, 0 when there are none. A number too large for the type stays at its largest value,
// so that a port above 65535 is never taken for a good one.
std::int32_t leadingPort(std::string_view text);

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool startsWith(std::string_view text, std::string_view prefix);
bool endsWith(std::string_view text, std::string_view ending);
// Without regard to the case of ASCII letters.
bool equalIgnoreCase(std::string_view a, std::string_view b);
bool startsWithIgnoreCase(std::string_view text, std::string_view prefix);

// The text with the letters A to Z made small.
std::string lowerCase(std::string_view text);

// Whether a byte below 32, or 127, is anywhere in the text.
bool hasControlByte(std::string_view text);
// The text with every byte of 128 and above replaced by "?", so that one byte stays one byte.
std::string plainAscii(std::string_view text);

// Splits "scheme://host:port/rest". `scheme` keeps its "://"; a host in brackets loses them; `port` is the run of
// digits behind the host's colon, maybe empty and never checked; `rest` is everything behind. The search for ":" comes
// before the one for "/": a colon anywhere in the rest ends an unbracketed host, deliberately. All four are emptied
// first. False without "://", without anything behind it, without the closing bracket, and with an empty host; what was
// recognised until then stays in the outputs.
bool splitUrl(std::string_view url, std::string& scheme, std::string& host, std::string& port, std::string& rest);

}  // namespace StringUtils
