#include "base/text/StringUtils.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <random>
#include <vector>

#include "testing/faults/AllocationCount.h"

namespace {

using StringUtils::TrimSet;

// --- Trimming

TEST(Trim, EachSetRemovesItsOwnBytesFromBothEnds) {
  for (int byte = 0; byte < 256; ++byte) {
    SCOPED_TRACE(byte);
    const std::string pair(2, static_cast<char>(byte));
    const std::string text = pair + "x" + pair;
    EXPECT_EQ(StringUtils::trim(text, TrimSet::nonPrintable), byte < 33 || byte > 126 ? "x" : text);
    EXPECT_EQ(StringUtils::trim(text, TrimSet::blanks), byte <= 32 || byte == 127 ? "x" : text);
  }
}

TEST(Trim, KeepsEverythingBetweenTheFirstAndTheLastByteOutsideTheSet) {
  EXPECT_EQ(StringUtils::trim(" a \x80 b ", TrimSet::nonPrintable), "a \x80 b") << "bytes inside the text stay";
  EXPECT_EQ(StringUtils::trim("lab\xc3\xa9", TrimSet::nonPrintable), "lab") << "bytes above 126 are not printable";
  EXPECT_EQ(StringUtils::trim("lab\xc3\xa9", TrimSet::blanks), "lab\xc3\xa9") << "bytes above 127 are no blanks";
  EXPECT_EQ(StringUtils::trim(" \t\r\n\x7f", TrimSet::blanks), "") << "a text of blanks alone becomes empty";
  EXPECT_EQ(StringUtils::trim("\xff\x80 ", TrimSet::nonPrintable), "") << "all bytes are in the set";
  EXPECT_EQ(StringUtils::trim("", TrimSet::blanks), "") << "the empty text stays empty";
}

// --- Paths

TEST(JoinPath, PutsOneSlashBetweenTwoPiecesUnlessTheFirstEndsInOne) {
  using StringUtils::joinPath;
  EXPECT_EQ(joinPath({"a", "b"}), "a/b") << "two plain names";
  EXPECT_EQ(joinPath({"/etc/zuv/profiles/", "lab"}), "/etc/zuv/profiles/lab") << "the text so far ends in a slash";
  EXPECT_EQ(joinPath({"a", "/b"}), "a//b") << "a piece that begins with a slash gets another";
  EXPECT_EQ(joinPath({"", "a", "", "b", ""}), "a/b") << "empty pieces are skipped";
  EXPECT_EQ(joinPath({"/", "b"}), "/b") << "the root alone";
  EXPECT_EQ(joinPath({}), "") << "nothing";
  EXPECT_EQ(joinPath({"", ""}), "") << "empty pieces only";
  EXPECT_EQ(joinPath({"1", "2", "3", "4", "5", "6", "7", "8", "9", "10"}), "1/2/3/4/5/6/7/8/9/10") << "ten pieces";
}

TEST(Concatenate, PutsNothingBetweenThePieces) {
  EXPECT_EQ(StringUtils::concatenate({"/a/", "", "b", "/", "c"}), "/a/b/c");
  EXPECT_EQ(StringUtils::concatenate({}), "");
  EXPECT_EQ(StringUtils::concatenate({std::string_view("x\0y", 3), "z"}), std::string("x\0yz", 4));
}

TEST(Concatenate, AllocatesMemoryOnceAsJoinPathDoes) {
  const std::string piece(100, 'x');
  for (const auto join : {StringUtils::joinPath, StringUtils::concatenate}) {
    const std::ptrdiff_t before = newBlocksSoFar();
    const std::string joined = join({piece, piece, piece, piece});
    EXPECT_EQ(newBlocksSoFar(), before + 1);
    EXPECT_GE(joined.size(), 400u);
  }
}

TEST(LastComponent, IsTheTextBehindTheLastSlashOrBackslash) {
  EXPECT_EQ(StringUtils::lastComponent("/a/b/hip.conf"), "hip.conf");
  EXPECT_EQ(StringUtils::lastComponent("a\\b\\hip.conf"), "hip.conf");
  EXPECT_EQ(StringUtils::lastComponent("a/b\\c"), "c");
  EXPECT_EQ(StringUtils::lastComponent("a\\b/c"), "c");
  EXPECT_EQ(StringUtils::lastComponent("plain"), "plain");
  EXPECT_EQ(StringUtils::lastComponent("a/"), "");
  EXPECT_EQ(StringUtils::lastComponent(""), "");
}

// --- Numbers to text

TEST(ToString, IntegersAreDecimalAndBooleansAreWords) {
  EXPECT_EQ(StringUtils::toString(std::int32_t{0}), "0");
  EXPECT_EQ(StringUtils::toString(std::int32_t{INT32_MIN}), "-2147483648");
  EXPECT_EQ(StringUtils::toString(std::int64_t{INT64_MIN}), "-9223372036854775808");
  EXPECT_EQ(StringUtils::toString(std::int64_t{INT64_MAX}), "9223372036854775807");
  EXPECT_EQ(StringUtils::toString(true), "true");
  EXPECT_EQ(StringUtils::toString(false), "false");
}

TEST(ToHex, HasLowerCaseDigitsWithoutPrefixAndToHex8HasExactlyEight) {
  EXPECT_EQ(StringUtils::toHex(0), "0");
  EXPECT_EQ(StringUtils::toHex(0xdeadbeef), "deadbeef");
  EXPECT_EQ(StringUtils::toHex(0x1400000a), "1400000a");
  EXPECT_EQ(StringUtils::toHex(255), "ff");
  EXPECT_EQ(StringUtils::toHex8(1), "00000001");
  EXPECT_EQ(StringUtils::toHex8(0xffffffff), "ffffffff");
  EXPECT_EQ(StringUtils::toHex8(0x1400000a), "1400000a");
}

// --- Text to booleans and numbers

TEST(ParseBool, AcceptsEightWordsInAnyCase) {
  const struct {
    const char* why;
    std::vector<std::string> words;
    bool isAccepted, value;
  } cases[] = {
      {"four words mean true", {"true", "yes", "1", "on", "TRUE", "YES", "On", "tRuE"}, true, true},
      {"four words mean false", {"false", "no", "0", "off", "FALSE", "No", "Off", "oFF"}, true, false},
      {"any other text fails and gives false",
       {"", "2", "y", "nein", "true ", " on", "t", "00", "truee"},
       false,
       false},
  };
  for (const auto& c : cases) {
    for (const std::string& word : c.words) {
      SCOPED_TRACE(c.why + (": " + word));
      bool result = !c.value;
      EXPECT_EQ(StringUtils::parseBool(word, result), c.isAccepted);
      EXPECT_EQ(result, c.value);
    }
  }
}

TEST(ParseInt32, TakesOneSignAndDigitsBetweenBlanks) {
  const struct {
    const char* text;
    std::int32_t expected;
  } cases[] = {
      {"0", 0},
      {"7", 7},
      {"+7", 7},
      {"-7", -7},
      {" 12 ", 12},
      {"\t\x01-3\x7f\n", -3},
      {"007", 7},
      {"-0", 0},
      {"2147483647", 2147483647},
      {"-2147483648", INT32_MIN},
      {"+0000000000000000000000000000001", 1},
  };
  for (const auto& c : cases) {
    std::int32_t value = 99;
    EXPECT_TRUE(StringUtils::parseInt32(c.text, value)) << c.text;
    EXPECT_EQ(value, c.expected) << c.text;
  }
}

TEST(ParseInt32, AFailureDoesNotChangeTheValue) {
  using namespace std::string_view_literals;
  for (const std::string_view text : std::initializer_list<std::string_view>{
           "", " ", "+", "-", "+-1", "--1", "1.0", "1x", "x1", "1 2", "- 1", "0x10", "2147483648", "-2147483649",
           "99999999999999999999999", "-99999999999999999999999", "\x80\x31", "1\0\x32"sv}) {
    SCOPED_TRACE(text);
    std::int32_t value = 99;
    EXPECT_FALSE(StringUtils::parseInt32(text, value));
    EXPECT_EQ(value, 99);
  }
}

TEST(LeadingInt64, StopsBehindTheDigitsAndSaturates) {
  const struct {
    const char* text;
    std::int64_t expected;
    std::size_t end;
  } cases[] = {
      {"12abc", 12, 2},
      {" \t\n\v\f\r-12.5", -12, 9},
      {"  -12 s", -12, 5},
      {"+3", 3, 2},
      {"", 0, 0},
      {"x1", 0, 0},
      {"- 1", 0, 0},
      {"+-1", 0, 0},
      {"  -s", 0, 0},
      {"9223372036854775807", INT64_MAX, 19},
      {"9223372036854775808", INT64_MAX, 19},
      {"-9223372036854775808", INT64_MIN, 20},
      {"-9223372036854775809", INT64_MIN, 20},
      {"99999999999999999999999999x", INT64_MAX, 26},
      {"-99999999999999999999999999", INT64_MIN, 27},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(StringUtils::leadingInt64(c.text).value, c.expected);
    EXPECT_EQ(StringUtils::leadingInt64(c.text).end, c.end);
  }
}

TEST(LeadingInt64, SkipsOnlyTheWhitespaceOfTheCLocale) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string text = std::string(1, static_cast<char>(byte)) + "7";
    const bool isWhiteSpace = std::string_view("\t\n\v\f\r ").find(text[0]) != std::string_view::npos;
    const bool isDigit = byte >= '0' && byte <= '9';
    const int expected = isWhiteSpace || byte == '+' ? 7 : byte == '-' ? -7 : isDigit ? (byte - '0') * 10 + 7 : 0;
    EXPECT_EQ(StringUtils::leadingInt64(text).value, expected) << byte;
  }
}

// A text of fewer than `limit` bytes of the alphabet.
std::string randomText(std::mt19937& random, std::string_view alphabet, std::size_t limit) {
  std::string text;
  for (std::size_t length = random() % limit; length > 0; --length) text += alphabet[random() % alphabet.size()];
  return text;
}

TEST(LeadingInt64, ReadsLikeStrtoll) {
  std::mt19937 random(1);
  for (int round = 0; round < 200'000; ++round) {
    const std::string text = randomText(random, " \t\v+-0123456789x9223372036854775807", 24);
    char* end = nullptr;
    const long long expected = std::strtoll(text.c_str(), &end, 10);
    const StringUtils::LeadingInt64 number = StringUtils::leadingInt64(text);
    ASSERT_EQ(number.value, expected) << '"' << text << '"';
    ASSERT_EQ(number.end, static_cast<std::size_t>(end - text.c_str())) << '"' << text << '"';
  }
}

// A slow parser of whole numbers, digit by digit in a wide type.
bool slowParse(std::string text, std::int64_t& number) {
  auto isOuter = [](char c) { return static_cast<unsigned char>(c) <= 32 || c == 127; };
  while (!text.empty() && isOuter(text.front())) text.erase(0, 1);
  while (!text.empty() && isOuter(text.back())) text.pop_back();
  int sign = 1;
  if (!text.empty() && (text[0] == '+' || text[0] == '-')) {
    sign = text[0] == '-' ? -1 : 1;
    text.erase(0, 1);
  }
  if (text.empty()) return false;
  long double value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + (c - '0');
  }
  value *= sign;
  if (value < -2147483648.0L || value > 2147483647.0L) return false;
  number = static_cast<std::int64_t>(value);
  return true;
}

TEST(ParseInt32, AgreesWithASlowImplementation) {
  std::mt19937 random(2);
  for (int round = 0; round < 200'000; ++round) {
    const std::string text = randomText(random, " \x7f+-0123456789x21474836", 14);
    std::int64_t expected = 77;
    std::int32_t value = 77;
    ASSERT_EQ(StringUtils::parseInt32(text, value), slowParse(text, expected)) << '"' << text << '"';
    ASSERT_EQ(value, expected) << '"' << text << '"';
  }
}

TEST(LeadingPort, TakesTheDigitsAtTheVeryStartAndNeverWraps) {
  EXPECT_EQ(StringUtils::leadingPort("443"), 443);
  EXPECT_EQ(StringUtils::leadingPort("443/x"), 443);
  EXPECT_EQ(StringUtils::leadingPort("65536"), 65536);
  for (const char* text : {"0", "", " 443", "-1", "+1"}) EXPECT_EQ(StringUtils::leadingPort(text), 0) << text;
  for (const char* text : {"2147483648", "4294967297", "18446744073709551617"}) {
    EXPECT_EQ(StringUtils::leadingPort(text), INT32_MAX) << text;
  }
  EXPECT_EQ(StringUtils::leadingPort(std::string(1000, '9')), INT32_MAX);
}

// --- Comparisons

TEST(EqualIgnoreCase, IgnoresTheCaseOfAsciiLettersOnly) {
  for (int a = 0; a < 256; ++a) {
    for (int b = 0; b < 256; ++b) {
      const bool sameLetter = (a ^ b) == 32 && (a | 32) >= 'a' && (a | 32) <= 'z';
      const std::string left(1, static_cast<char>(a));
      const std::string right(1, static_cast<char>(b));
      ASSERT_EQ(StringUtils::equalIgnoreCase(left, right), a == b || sameLetter) << a << " " << b;
    }
  }
  EXPECT_FALSE(StringUtils::equalIgnoreCase("ab", "abc"));
  EXPECT_TRUE(StringUtils::equalIgnoreCase("", ""));
}

TEST(StartsWith, ComparesThePrefixByteForByte) {
  EXPECT_TRUE(StringUtils::startsWith("dir=profile-1", "dir="));
  EXPECT_TRUE(StringUtils::startsWith("dir=", "dir="));
  EXPECT_TRUE(StringUtils::startsWith("x", ""));
  EXPECT_FALSE(StringUtils::startsWith("di", "dir="));
  EXPECT_FALSE(StringUtils::startsWith("DIR=x", "dir="));
  EXPECT_TRUE(StringUtils::startsWithIgnoreCase("DIR=x", "dir="));
  EXPECT_FALSE(StringUtils::startsWithIgnoreCase("DIR", "dir="));
}

TEST(EndsWith, ComparesTheEndingByteForByte) {
  EXPECT_TRUE(StringUtils::endsWith("main.cpp", ".cpp"));
  EXPECT_TRUE(StringUtils::endsWith(".cpp", ".cpp"));
  EXPECT_TRUE(StringUtils::endsWith("x", ""));
  EXPECT_FALSE(StringUtils::endsWith("pp", ".cpp"));
  EXPECT_FALSE(StringUtils::endsWith("main.cpp.h", ".cpp"));
  EXPECT_FALSE(StringUtils::endsWith("main.CPP", ".cpp"));
}

TEST(IsDigit, IsTrueForTheTenDigitsOnly) {
  for (int byte = 0; byte < 256; ++byte) {
    EXPECT_EQ(StringUtils::isDigit(static_cast<char>(byte)), byte >= 48 && byte <= 57) << byte;
  }
}

TEST(HasControlByte, FindsBytesBelow32And127) {
  for (int byte = 0; byte < 256; ++byte) {
    SCOPED_TRACE(byte);
    EXPECT_EQ(StringUtils::hasControlByte(std::string("ab") + static_cast<char>(byte) + "c"), byte < 32 || byte == 127);
  }
  EXPECT_FALSE(StringUtils::hasControlByte(""));
}

TEST(PlainAscii, ReplacesEachByteOf128AndAboveByOneQuestionMark) {
  EXPECT_EQ(StringUtils::plainAscii("caf\xc3\xa9"), "caf??");
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  const std::string plain = StringUtils::plainAscii(bytes);
  EXPECT_EQ(plain.substr(0, 128), bytes.substr(0, 128));
  EXPECT_EQ(plain.substr(128), std::string(128, '?'));
}

// --- splitUrl

TEST(SplitUrl, SplitsAUrlIntoItsFourParts) {
  const struct {
    const char *why, *url;
    bool succeeds;
    const char *scheme, *host, *port, *rest;
  } cases[] = {
      {"all parts", "https://h.example:8443/path?q", true, "https://", "h.example", "8443", "/path?q"},
      {"a host alone", "http://host", true, "http://", "host", "", ""},
      {"a host and a path", "http://host/a/b", true, "http://", "host", "", "/a/b"},
      {"an IPv6 host with a port", "http://[fe80::1]:80/x", true, "http://", "fe80::1", "80", "/x"},
      {"an IPv6 host alone", "http://[::1]", true, "http://", "::1", "", ""},
      {"text behind the bracket", "http://[::1]abc", true, "http://", "::1", "", "abc"},
      {"a colon behind a slash ends the host", "http://a/b:9/c", true, "http://", "a/b", "9", "/c"},
      {"letters behind the colon", "http://host:abc", true, "http://", "host", "", "abc"},
      {"digits, then letters", "http://host:80abc", true, "http://", "host", "80", "abc"},
      {"a colon alone", "http://host:", true, "http://", "host", "", ""},
      {"an empty scheme name", "://host", true, "://", "host", "", ""},
      {"the first marker counts", "a://b://c", true, "a://", "b", "", "//c"},
      {"a number that is no port", "http://h:99999999999999", true, "http://", "h", "99999999999999", ""},
      {"without a marker", "host:80/x", false, "", "", "", ""},
      {"empty", "", false, "", "", "", ""},
      {"nothing behind the marker", "http://", false, "http://", "", "", ""},
      {"no closing bracket", "http://[::1", false, "http://", "", "", ""},
      {"empty brackets", "http://[]:80", false, "http://", "", "", ""},
      {"no host before the port", "http://:80", false, "http://", "", "", ""},
      {"no host before the slash", "http:///x", false, "http://", "", "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    std::string scheme = "s", host = "h", port = "p", rest = "r";
    EXPECT_EQ(StringUtils::splitUrl(c.url, scheme, host, port, rest), c.succeeds);
    EXPECT_EQ(scheme, c.scheme);
    EXPECT_EQ(host, c.host);
    EXPECT_EQ(port, c.port);
    EXPECT_EQ(rest, c.rest);
  }
}

TEST(SplitUrl, ThePartsJoinToTheUrlAgain) {
  const std::string url = "https://host:80/path";
  for (std::size_t length = 0; length <= url.size(); ++length) {
    const std::string prefix = url.substr(0, length);
    SCOPED_TRACE(prefix);
    std::string scheme, host, port, rest;
    if (!StringUtils::splitUrl(prefix, scheme, host, port, rest)) continue;
    const bool hasColon = prefix.find(':', scheme.size()) != std::string::npos;
    EXPECT_EQ(scheme + host + (hasColon ? ":" : "") + port + rest, prefix);
  }
}

TEST(Views, ReturnedViewsPointIntoTheArgument) {
  const std::string text = " http://a/b ";
  EXPECT_EQ(StringUtils::trim(text, TrimSet::blanks).data(), text.data() + 1);
  EXPECT_EQ(StringUtils::lastComponent(text).data(), text.data() + 10);
  EXPECT_EQ(StringUtils::withoutWebScheme(std::string_view(text).substr(1)).data(), text.data() + 8);
}

TEST(LowerCase, ConvertsOnlyTheLettersAToZ) {
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    const char lower = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    EXPECT_EQ(StringUtils::lowerCase(std::string("X") + c), std::string("x") + lower) << byte;
  }
}

TEST(WithoutWebScheme, LosesOneSchemeInAnyCase) {
  EXPECT_EQ(StringUtils::withoutWebScheme("http://host/x"), "host/x");
  EXPECT_EQ(StringUtils::withoutWebScheme("HttpS://host"), "host");
  EXPECT_EQ(StringUtils::withoutWebScheme("http://https://host"), "https://host");
  EXPECT_EQ(StringUtils::withoutWebScheme("https://"), "");
  for (const char* text : {"host", "ftp://host", "http:/host", " http://host", ""}) {
    EXPECT_EQ(StringUtils::withoutWebScheme(text), text);
  }
}

}  // namespace
