#include "json/JsonScanner.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

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

TEST(JsonScanner, NullOrEmptyTextFailsAndDeliversNothing) {
  Recorder recorder;
  EXPECT_FALSE(json::scan(recorder, nullptr, 5));
  EXPECT_FALSE(json::scan(recorder, nullptr));
  EXPECT_FALSE(json::scan(recorder, "text", 0));
  EXPECT_FALSE(json::scan(recorder, ""));
  EXPECT_EQ(recorder.tokens, "");
}

TEST(JsonScanner, NegativeLengthMeansUpToTheZeroByte) {
  Recorder recorder;
  EXPECT_TRUE(json::scan(recorder, "[1]\0[2]", -1));
  EXPECT_TRUE(json::scan(recorder, "{", -77));
  EXPECT_EQ(recorder.tokens, "[ n1 ] {");
}

TEST(JsonScanner, ScanStopsAtTheGivenLength) {
  Recorder recorder;
  EXPECT_TRUE(json::scan(recorder, "123456", 3));
  EXPECT_TRUE(json::scan(recorder, "nullify", 4));
  EXPECT_TRUE(json::scan(recorder, "\"ab\"\"", 4));
  EXPECT_EQ(recorder.tokens, "n123 null \"ab\"");
}

TEST(JsonScanner, ScanReturnsTrueDespiteErrors) { EXPECT_EQ(tokensOf("#"), "error(scanner error)"); }

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
      {"an apostrophe is an error", "'", "error(scanner error)"},
      {"a backslash is an error", "\\", "error(scanner error)"},
      {"an underscore cannot start a word", "_a", "error(scanner error) name(a)"},
      {"the scan continues after a number sign, which is an error", "#[#1#]#",
       "error(scanner error) [ error(scanner error) n1 ] error(scanner error)"},
      {"a number sign in a string is an ordinary byte", "\"#\"", "\"#\""},
      {"a number sign in a number is an ordinary byte", "1#2", "n1"},
      {"an empty string", "\"\"", "\"\""},
      {"brackets, commas and colons in a string", "\"[,:]{}\"", "\"[,:]{}\""},
      {"line ends in a string", "\"a\nb\"", "\"a\nb\""},
      {"a zero byte in a string", "\"a\0b\""s, "\"a\0b\""s},
      {"bytes above 127 in a string", "\"\xC3\xA4\"", "\"\xC3\xA4\""},
      {"two adjacent strings", "\"a\"\"b\"", "\"a\" \"b\""},
      {"an escaped quote does not end the string", R"("a\"b")", "\"a\"b\""},
      {"an escaped backslash does not escape the quote after it", R"("a\\"1)", "\"a\\\" n1"},
      {"a string without a closing quote is not reported", "1 \"abc", "n1"},
      {"a string without a closing quote includes all that follows", "\"abc, 1, 2 #", ""},
      {"a quote that ends the text", "1,\"", "n1 ,"},
      {"a backslash that ends the text", "1,\"a\\", "n1 ,"},
      {"an escaped quote that ends the text", "1,\"a\\\"", "n1 ,"},
      {"a number", "42", "n42"},
      {"a negative number", "-42", "n-42"},
      {"a plus sign", "+42", "n42"},
      {"a leading point", ".5", "n0.5"},
      {"a trailing point", "5.", "n5"},
      {"a fraction", "-12.375", "n-12.375"},
      {"an exponent", "1e3", "n1000"},
      {"an exponent with sign", "25E-1", "n2.5"},
      {"a lone minus is 0", "-", "n0"},
      {"a lone plus is 0", "+", "n0"},
      {"a lone point is 0", ".", "n0"},
      {"a double minus is 0", "--5", "n0"},
      {"a second decimal point ends the value", "1.2.3", "n1.2"},
      {"letters end the value", "12abc", "n12"},
      {"a colon belongs to the number", "12:3", "n12"},
      {"an opening bracket belongs to the number", "1[2{3", "n1"},
      {"a quote belongs to the number", "1\"a\"", "n1"},
      {"a zero byte belongs to the number", "1\0002"s, "n1"},
      {"a hexadecimal number is read as by strtod", "0x10", "n16"},
      {"infinity is read as by strtod", "+inf", "ninf"},
      {"a comma ends a number", "1,2", "n1 , n2"},
      {"a closing curly bracket ends a number", "1}", "n1 }"},
      {"a closing square bracket ends a number", "1]", "n1 ]"},
      {"whitespace ends a number", "1 2\t3\n4\r5", "n1 n2 n3 n4 n5"},
      {"a form feed does not end a number", "1\f2", "n1"},
      {"keywords", "null true false", "null true false"},
      {"keywords at the end of the text", "true", "true"},
      {"case matters", "True NULL False", "name(True) name(NULL) name(False)"},
      {"a longer word is a name", "nulls truefalse", "name(nulls) name(truefalse)"},
      {"names may contain points and underscores", "a.b_c. Z", "name(a.b_c.) name(Z)"},
      {"digits end a word", "a1", "name(a) n1"},
      {"a colon ends a word", "a:b", "name(a) : name(b)"},
      {"a quote ends a word", "a\"b\"", "name(a) \"b\""},
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

TEST(JsonScanner, LongTokenIsDeliveredWhole) {
  const std::string text(100000, 'x');
  EXPECT_EQ(tokensOf("\"" + text + "\""), "\"" + text + "\"");
  EXPECT_EQ(tokensOf(text), "name(" + text + ")");
  EXPECT_EQ(tokensOf(std::string(100000, '0') + "7"), "n7");
  EXPECT_EQ(tokensOf("0." + std::string(400, '0') + "1e400"), "n0.10000000000000001");
}

}  // namespace
