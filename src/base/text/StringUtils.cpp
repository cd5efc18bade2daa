#include "base/text/StringUtils.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <limits>

namespace StringUtils {
namespace {

constexpr unsigned char deleteByte = 127;

constexpr unsigned char byteOf(char c) { return static_cast<unsigned char>(c); }
// Whitespace as isspace() defines it in the C locale.
constexpr bool isWhiteSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr char toLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

constexpr bool isTrimmed(char c, TrimSet set) {
  const unsigned char byte = byteOf(c);
  if (set == TrimSet::blanks) return byte <= 32 || byte == deleteByte;
  return byte < 33 || byte > 126;
}

// Joins the pieces, with "/" between them if `separated` is set.
std::string append(std::initializer_list<std::string_view> pieces, bool separated) {
  std::size_t size = pieces.size();  // room for the slashes
  for (const std::string_view piece : pieces) size += piece.size();
  std::string joined;
  joined.reserve(size);
  for (const std::string_view piece : pieces) {
    if (piece.empty()) continue;
    if (separated && !joined.empty() && joined.back() != '/') joined += '/';
    joined += piece;
  }
  return joined;
}

std::string hexDigits(std::uint32_t number, int width) {
  char text[sizeof "ffffffff"];
  std::snprintf(text, sizeof text, "%0*x", width, number);
  return text;
}

constexpr std::array<std::string_view, 4> trueWords = {"true", "yes", "1", "on"};
constexpr std::array<std::string_view, 4> falseWords = {"false", "no", "0", "off"};

bool isOneOf(std::string_view text, const std::array<std::string_view, 4>& words) {
  return std::any_of(words.begin(), words.end(), [text](std::string_view word) { return equalIgnoreCase(text, word); });
}

// Removes a plus sign, which std::from_chars does not accept. The text is empty, and so no number, if "-" follows the
// "+".
std::string_view withoutPlus(std::string_view text) {
  if (!startsWith(text, "+")) return text;
  text.remove_prefix(1);
  return startsWith(text, "-") ? std::string_view() : text;
}

// The largest or smallest value, for a number that does not fit 64 bits.
std::int64_t nearestLimit(std::string_view number) {
  using Limits = std::numeric_limits<std::int64_t>;
  return startsWith(number, "-") ? Limits::min() : Limits::max();
}

}  // namespace

std::string_view trim(std::string_view text, TrimSet set) {
  while (!text.empty() && isTrimmed(text.front(), set)) text.remove_prefix(1);
  while (!text.empty() && isTrimmed(text.back(), set)) text.remove_suffix(1);
  return text;
}

std::string joinPath(std::initializer_list<std::string_view> pieces) { return append(pieces, true); }

std::string concatenate(std::initializer_list<std::string_view> pieces) { return append(pieces, false); }

std::string_view lastComponent(std::string_view path) {
  const std::size_t separator = path.find_last_of("/\\");
  return separator == std::string_view::npos ? path : path.substr(separator + 1);
}

std::string toString(std::int32_t number) { return std::to_string(number); }

std::string toString(std::int64_t number) { return std::to_string(number); }

std::string toString(bool value) { return value ? "true" : "false"; }

std::string toHex(std::uint32_t number) { return hexDigits(number, 1); }

std::string toHex8(std::uint32_t number) { return hexDigits(number, 8); }

bool parseBool(std::string_view text, bool& result) {
  result = isOneOf(text, trueWords);
  return result || isOneOf(text, falseWords);
}

bool parseInt32(std::string_view text, std::int32_t& value) {
  text = trim(text, TrimSet::blanks);
  const LeadingInt64 number = leadingInt64(text);
  const auto fitting = static_cast<std::int32_t>(number.value);
  if (text.empty() || number.end != text.size() || number.value != fitting) return false;
  value = fitting;
  return true;
}

LeadingInt64 leadingInt64(std::string_view text) {
  const auto start = std::find_if_not(text.begin(), text.end(), isWhiteSpace);
  const std::string_view number = withoutPlus(text.substr(static_cast<std::size_t>(start - text.begin())));
  std::int64_t value = 0;
  const auto [stop, error] = std::from_chars(number.data(), number.data() + number.size(), value);
  if (error == std::errc::result_out_of_range) value = nearestLimit(number);
  return {value, error == std::errc::invalid_argument ? 0 : static_cast<std::size_t>(stop - text.data())};
}

std::int32_t leadingPort(std::string_view text) {
  if (text.empty() || !isDigit(text.front())) return 0;
  auto port = std::numeric_limits<std::int32_t>::max();  // from_chars leaves it if the number is too large
  (void)std::from_chars(text.data(), text.data() + text.size(), port);
  return port;
}

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), toLower);
  return lower;
}

bool equalIgnoreCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return toLower(x) == toLower(y); });
}

bool startsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

bool endsWith(std::string_view text, std::string_view ending) {
  return text.size() >= ending.size() && text.substr(text.size() - ending.size()) == ending;
}

bool startsWithIgnoreCase(std::string_view text, std::string_view prefix) {
  return equalIgnoreCase(text.substr(0, prefix.size()), prefix);
}

std::string_view withoutWebScheme(std::string_view text) {
  for (const std::string_view scheme : {"http://", "https://"}) {
    if (startsWithIgnoreCase(text, scheme)) return text.substr(scheme.size());
  }
  return text;
}

bool hasControlByte(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) { return byteOf(c) < 32 || byteOf(c) == deleteByte; });
}

std::string plainAscii(std::string_view text) {
  std::string plain(text);
  std::replace_if(
      plain.begin(), plain.end(), [](char c) { return byteOf(c) >= 128; }, '?');
  return plain;
}

bool splitUrl(std::string_view url, std::string& scheme, std::string& host, std::string& port, std::string& rest) {
  constexpr std::string_view schemeEnd = "://";
  scheme.clear();
  host.clear();
  port.clear();
  rest.clear();

  const std::size_t marker = url.find(schemeEnd);
  if (marker == std::string_view::npos) return false;
  scheme = url.substr(0, marker + schemeEnd.size());
  url.remove_prefix(scheme.size());
  if (url.empty()) return false;

  if (url.front() == '[') {
    const std::size_t close = url.find(']');
    if (close == std::string_view::npos) return false;
    host = url.substr(1, close - 1);
    url.remove_prefix(close + 1);
  } else {
    std::size_t hostEnd = url.find(':');
    if (hostEnd == std::string_view::npos) hostEnd = url.find('/');
    host = url.substr(0, hostEnd);
    url.remove_prefix(host.size());
  }
  if (host.empty()) return false;

  if (startsWith(url, ":")) {
    url.remove_prefix(1);
    const auto portEnd = std::find_if_not(url.begin(), url.end(), isDigit);
    port = url.substr(0, static_cast<std::size_t>(portEnd - url.begin()));
    url.remove_prefix(port.size());
  }
  rest = url;
  return true;
}

}  // namespace StringUtils
