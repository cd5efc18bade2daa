#include "json/JsonScanner.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

using namespace std::string_literals;

namespace {

// Records every token, separated by spaces: [ { ] } , : n<number> "<text>" null true false name(<name>)
// error(<message>)
class Recorder final : public TokenReceiver {
 public:
  void onError(std::string_view message) override { note("error(" + std::string(message) + ")"); }
  void onLeftBracket() override { note("["); }
  void onLeftCurly() override { note("{"); }
  void onRightBracket() override { note("]"); }
  void onRightCurly() override { note("}"); }
  void onComma() override { note(","); }
  void onColon() override { note(":"); }
  void onNumber(double number) override {
    char text[64];
    std::snprintf(text, sizeof text, "n%.17g", number);
    note(text);
  }
  void onString(std::string_view text) override { note("\"" + std::string(text) + "\""); }
  void onNull() override { note("null"); }
  void onBool(bool value) override { note(value ? "true" : "false"); }
  void onName(std::string_view name) override { note("name(" + std::string(name) + ")"); }

  std::string tokens;

 private:
  void note(const std::string& token) { tokens += tokens.empty() ? token : " " + token; }
};

std::string tokensOf(std::string_view text) {
  Recorder recorder;
  EXPECT_TRUE(json::scan(recorder, text.data(), static_cast<std::ptrdiff_t>(text.size()))) << text;
  return recorder.tokens;
}

TEST(JsonScanner, ScanEndsAtTheGivenLengthOrAtTheZeroByte) {
  const struct {
    const char* why;
    const char* text;
    std::ptrdiff_t length;
    bool isScanned;
    const char* tokens;
  } cases[] = {
      {"a null pointer with a length", nullptr, 5, false, ""},
      {"a null pointer without a length", nullptr, -1, false, ""},
      {"length 0", "text", 0, false, ""},
      {"an empty text", "", -1, false, ""},
      {"a negative length", "[1]\0[2]", -1, true, "[ n1 ]"},
      {"another negative length", "{", -77, true, "{"},
      {"a length inside a number", "123456", 3, true, "n123"},
      {"a length inside a word", "nullify", 4, true, "null"},
      {"a length after a string", "\"ab\"\"", 4, true, "\"ab\""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    Recorder recorder;
    EXPECT_EQ(json::scan(recorder, c.text, c.length), c.isScanned);
    EXPECT_EQ(recorder.tokens, c.tokens);
  }
}

TEST(JsonScanner, SplitsTextIntoTokens) {
  struct Case {
    const char* why;
    std::string text;
    std::string tokens;
  };
  const Case cases[] = {
      {"brackets, commas and colons", "[{]},:", "[ { ] } , :"},
      {"whitespace is skipped", " \t\r\n[\n]\t", "[ ]"},
      {"only whitespace", " \t\r\n", ""},
      {"other control bytes are errors", "\v\f", "error(scanner error) error(scanner error)"},
      {"a zero byte is an error", "[\0]"s, "[ error(scanner error) ]"},
      {"a byte above 127 is an error", "\xC3", "error(scanner error)"},
      {"an apostrophe and a backslash are errors", "'\\", "error(scanner error) error(scanner error)"},
      {"an underscore cannot start a word", "_a", "error(scanner error) name(a)"},
      {"the scan continues after a number sign, which is an error", "#[#1#]#",
       "error(scanner error) [ error(scanner error) n1 ] error(scanner error)"},
      {"a string holds any bytes", "\"\" \"#[,:]{}\" \"a\nb\" \"a\0b\" \"\xC3\xA4\""s,
       "\"\" \"#[,:]{}\" \"a\nb\" \"a\0b\" \"\xC3\xA4\""s},
      {"two adjacent strings", "\"a\"\"b\"", "\"a\" \"b\""},
      {"an escaped quote does not end the string", R"("a\"b")", "\"a\"b\""},
      {"an escaped backslash does not escape the quote after it", R"("a\\"1)", "\"a\\\" n1"},
      {"a string without a closing quote is not reported", "1 \"abc", "n1"},
      {"a string without a closing quote includes all that follows", "\"abc, 1, 2 #", ""},
      {"a quote that ends the text", "1,\"", "n1 ,"},
      {"a backslash that ends the text", "1,\"a\\", "n1 ,"},
      {"an escaped quote that ends the text", "1,\"a\\\"", "n1 ,"},
      {"signs, points and exponents", "42 -42 +42 .5 5. -12.375 1e3 25E-1", "n42 n-42 n42 n0.5 n5 n-12.375 n1000 n2.5"},
      {"a sign or a point without digits is 0", "- + . --5", "n0 n0 n0 n0"},
      {"the value ends where strtod stops", "1.2.3 12abc 0x10 +inf", "n1.2 n12 n16 ninf"},
      {"other tokens belong to the number", "12:3 1[2{3 1\"a\" 1#2 1\f2 1\0002"s, "n12 n1 n1 n1 n1 n1"},
      {"a comma or a closing bracket ends a number", "1,2}3]", "n1 , n2 } n3 ]"},
      {"whitespace ends a number", "1 2\t3\n4\r5", "n1 n2 n3 n4 n5"},
      {"keywords", "null true false", "null true false"},
      {"the first and the last letters", "a z A Z bz Bz bZ",
       "name(a) name(z) name(A) name(Z) name(bz) name(Bz) name(bZ)"},
      {"the bytes beside the letters are errors", "`@", "error(scanner error) error(scanner error)"},
      {"case matters", "True NULL False", "name(True) name(NULL) name(False)"},
      {"a longer word is a name", "nulls truefalse", "name(nulls) name(truefalse)"},
      {"names may contain points and underscores", "a.b_c. Z", "name(a.b_c.) name(Z)"},
      {"a digit, a colon or a quote ends a word", "a1 a:b a\"b\"", "name(a) n1 name(a) : name(b) name(a) \"b\""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(tokensOf(c.text), c.tokens);
  }
}

TEST(JsonScanner, UnescapesStrings) {
  struct Case {
    const char* between;
    const char* text;
  };
  const Case cases[] = {
      {R"(\"\\\/\')", "\"\\/'"}, {R"(\b\f\n\r\t)", "\b\f\n\r\t"},
      {R"(\u0041)", "?0041"},    {R"(\u00e9)", "?00e9"},
      {R"(\x41\0\B)", "?41??"},  {R"(a\nb)", "a\nb"},
      {R"(\n)", "\n"},           {R"(\\n)", "\\n"},
      {R"(\\\\)", "\\\\"},       {R"(end\t)", "end\t"},
      {"\\\xC3", "?"},           {"plain", "plain"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(tokensOf("\"" + std::string(c.between) + "\""), "\"" + std::string(c.text) + "\"") << c.between;
  }
  for (int byte = 0; byte < 256; ++byte) {
    const char letter = static_cast<char>(byte);
    const std::string pair = {'\\', letter};
    std::string expected = "?";
    if (std::strchr("\"\\/'", letter) != nullptr && byte != 0) expected = std::string(1, letter);
    if (letter == 'b') expected = "\x08";
    if (letter == 'f') expected = "\x0C";
    if (letter == 'n') expected = "\x0A";
    if (letter == 'r') expected = "\x0D";
    if (letter == 't') expected = "\x09";
    EXPECT_EQ(tokensOf("\"" + pair + "\""), "\"" + expected + "\"") << byte;
  }
}

TEST(JsonScanner, UnescapingAppendsAndDropsABackslashAtTheEnd) {
  std::string text = "before ";
  json::appendUnescaped(text, "a\\tb\\");
  EXPECT_EQ(text, "before a\tb");
  json::appendUnescaped(text, "\\");
  json::appendUnescaped(text, "");
  EXPECT_EQ(text, "before a\tb");
}

// Records whether each text that it receives is a part of the scanned text or a copy.
class PlaceRecorder final : public TokenReceiver {
 public:
  explicit PlaceRecorder(std::string_view scanned) : scanned_(scanned) {}
  void onError(std::string_view) override {}
  void onLeftBracket() override {}
  void onLeftCurly() override {}
  void onRightBracket() override {}
  void onRightCurly() override {}
  void onComma() override {}
  void onColon() override {}
  void onNumber(double) override {}
  void onString(std::string_view text) override { note(text); }
  void onNull() override {}
  void onBool(bool) override {}
  void onName(std::string_view name) override { note(name); }

  std::string places;

 private:
  void note(std::string_view text) {
    const bool isPart = text.data() > scanned_.data() && text.data() < scanned_.data() + scanned_.size();
    places += isPart ? "part " : "copy ";
  }
  std::string_view scanned_;
};

TEST(JsonScanner, TextsAreCopiedOnlyToUnescapeThem) {
  const std::string_view text = R"({plain:"text","a\b":"a \"quote\"",last:"text"})";
  PlaceRecorder recorder(text);
  EXPECT_TRUE(json::scan(recorder, text.data(), static_cast<std::ptrdiff_t>(text.size())));
  EXPECT_EQ(recorder.places, "part part copy copy part part ");
}

TEST(JsonScanner, LongTokenIsDeliveredWhole) {
  const std::string text(100000, 'x');
  EXPECT_EQ(tokensOf("\"" + text + "\""), "\"" + text + "\"");
  EXPECT_EQ(tokensOf(text), "name(" + text + ")");
  EXPECT_EQ(tokensOf(std::string(100000, '0') + "7"), "n7");
  EXPECT_EQ(tokensOf("0." + std::string(400, '0') + "1e400"), "n0.10000000000000001");
}

}  // namespace
