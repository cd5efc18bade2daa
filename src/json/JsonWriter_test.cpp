#include "json/JsonWriter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <iterator>
#include <limits>
#include <random>

#include "json/JsonParser.h"
#include "testing/faults/AllocationCount.h"
#include "testing/run/DecimalPoint.h"

using namespace std::string_literals;

namespace {

std::string written(jsObject* owned) {
  ScopedJson value(owned);
  std::string text;
  return json::write(text, value.get());
}

std::string rewritten(const std::string& text) {
  return written(json::parse(text.data(), static_cast<std::ptrdiff_t>(text.size())));
}

TEST(JsonWriter, WritesADocumentInOneLine) {
  struct Case {
    const char* why;
    std::string parsed, expected;
  };
  const std::string longName(100'000, 'n');
  const Case cases[] = {
      {"members and elements", R"({"status":0,"list":[1,true]})", R"({ "status":0, "list":[ 1, true ] })"},
      {"nested containers", R"([[],{"a":{},"b":[5]},"x"])", R"([ [ ], { "a":{ }, "b":[ 5 ] }, "x" ])"},
      {"member names are not escaped", "{\"a\\\"b\\n\xC3\":false}", "{ \"a\"b\n\xC3\":false }"},
      {"a member name longer than the buffer", "{first:true," + longName + ":false}",
       "{ \"first\":true, \"" + longName + "\":false }"},
      {"control bytes are escaped", "\"\t\n\x01\"", R"("\t\n\u0001")"},
      {"a backslash and a slash are not escaped", R"("a\\b/c")", R"("a\b/c")"},
      {"each byte of a multibyte character becomes a question mark", "\"\xE2\x82\xAC.\"", "\"???.\""},
      {"a zero byte does not end a string", "\"a\0b\""s, R"("a\u0000b")"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(rewritten(c.parsed), c.expected);
  }
}

TEST(JsonWriter, AppendsToTheTextAndReturnsIt) {
  std::string text = "before ";
  ScopedJson array(json::makeArray());
  EXPECT_EQ(&json::write(text, array.get()), &text);
  EXPECT_EQ(text, "before [ ]");
  EXPECT_EQ(&json::writeNull(text, nullptr), &text);
  EXPECT_EQ(text, "before [ ]");
}

TEST(JsonWriter, WritesNothingForANullPointerOrAValueOfInvalidKind) {
  EXPECT_EQ(written(nullptr), "");
  EXPECT_EQ(written(json::makeOfKind(0)), "");
  jsObject* array = json::parse("[1,2]");
  json::setElement(array, 1, json::makeOfKind(0));
  json::append(array, json::makeNumber(2));
  EXPECT_EQ(written(array), "[ 1, , 2 ]");
  jsObject* object = json::makeObject();
  json::setMember(object, "a", json::makeOfKind(0));
  EXPECT_EQ(written(object), "{ \"a\": }");
}

TEST(JsonWriter, WritesEveryByteOfAString) {
  const char* const below32[] = {"\\u0000", "\\u0001", "\\u0002", "\\u0003", "\\u0004", "\\u0005", "\\u0006",
                                 "\\u0007", "\\b",     "\\t",     "\\n",     "\\u000B", "\\u000C", "\\r",
                                 "\\u000E", "\\u000F", "\\u0010", "\\u0011", "\\u0012", "\\u0013", "\\u0014",
                                 "\\u0015", "\\u0016", "\\u0017", "\\u0018", "\\u0019", "\\u001A", "\\u001B",
                                 "\\u001C", "\\u001D", "\\u001E", "\\u001F"};
  for (int byte = 0; byte < 256; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    std::string expected = text;
    if (byte < 32) expected = below32[byte];
    if (byte == 34) expected = "\\\"";
    if (byte == 127) expected = "\\u007F";
    if (byte > 127) expected = "?";
    EXPECT_EQ(written(json::makeString(text)), "\"" + expected + "\"") << byte;
    EXPECT_EQ(written(json::makeString("a" + text + "b")), "\"a" + expected + "b\"") << byte;
  }
}

TEST(JsonWriter, StringOfAnyLengthIsWrittenWhole) {
  const struct {
    char byte;
    const char* written;
  } rows[] = {{'a', "a"}, {'\t', "\\t"}, {'\x01', "\\u0001"}, {'\xC3', "?"}, {'"', "\\\""}};
  std::string text;
  std::string expected = "\"";
  while (text.size() < 2000) {
    const auto& row = rows[text.size() % std::size(rows)];
    text += row.byte;
    expected += row.written;
    ASSERT_EQ(written(json::makeString(text)), expected + '"') << text.size();
  }
}

// An array whose text has that many bytes and consists of short pieces.
jsObject* arrayOfTextSize(std::size_t bytes) {
  std::size_t left = bytes - std::string_view("[  ]").size() + std::string_view(", ").size();
  jsObject* array = json::makeArray();
  while (left != 0) {
    const bool value = left % std::string_view("true, ").size() == 0;
    json::append(array, json::makeBoolean(value));
    left -= std::string_view(value ? "true, " : "false, ").size();
  }
  return array;
}

TEST(JsonWriter, TextOfUpTo4096BytesIsAppendedAtOnce) {
  for (const std::size_t bytes : {4095U, 4096U, 4097U}) {
    const ScopedJson array(arrayOfTextSize(bytes));
    std::string text;
    const std::ptrdiff_t before = newBlocksSoFar();
    json::write(text, array.get());
    const std::ptrdiff_t ofTheText = newBlocksSoFar() - before - 1;  // the other one is the list of open containers
    EXPECT_EQ(ofTheText, bytes <= 4096 ? 1 : 2) << bytes;
    EXPECT_EQ(text.size(), bytes);
  }
}

// The writer gathers 4096 bytes. A name, which it does not split, precedes the value.
TEST(JsonWriter, ValueIsWrittenWholeWhereverTheBufferEnds) {
  constexpr double kLongest = -std::numeric_limits<double>::max();
  char number[400];
  std::snprintf(number, sizeof number, "%f", kLongest);
  std::string string = "\"";
  for (int byte = 0; byte < 50; ++byte) string += "\\u0001";
  string += '"';
  for (std::size_t length = 3700; length <= 4096; ++length) {
    const std::string name(length, 'n');
    ScopedJson object(json::makeObject());
    json::setMember(object.get(), name, json::makeNumber(kLongest));
    std::string text;
    ASSERT_EQ(json::write(text, object.get()), "{ \"" + name + "\":" + number + " }") << length;
    json::setText(object.get(), name, std::string(50, '\x01'));
    text.clear();
    ASSERT_EQ(json::write(text, object.get()), "{ \"" + name + "\":" + string + " }") << length;
  }
}

TEST(JsonWriter, NumbersAreFormattedAsBySnprintf) {
  const auto expectFormatted = [](double number) {
    ScopedJson value(json::makeNumber(number));
    char expected[500];
    if (json::isIntegral(value.get())) {
      std::snprintf(expected, sizeof expected, "%d", json::integerOf(value.get()));
    } else {
      std::snprintf(expected, sizeof expected, "%f", number);
    }
    std::string text;
    ASSERT_EQ(json::write(text, value.get()), expected) << number;
  };
  expectFormatted(-std::numeric_limits<double>::max());  // no number has a longer text
  std::mt19937_64 random(7);
  for (int round = 0; round < 20000; ++round) {
    const double scale = std::pow(10.0, static_cast<double>(random() % 24) - 8);
    expectFormatted((static_cast<double>(random() % 2000001) - 1000000.0) / 1000000.0 * scale);
  }
}

TEST(JsonWriter, NumbersAreReadAndWrittenWithAPointInEveryLocale) {
  const DecimalPoint comma(",");
  ASSERT_TRUE(comma.isSet());
  EXPECT_EQ(rewritten("[0.5,1.5e0,+2.5,17592186044416.5,1e22,1]"),
            "[ 0.500000, 1.500000, 2.500000, 17592186044416.500000, 10000000000000000000000.000000, 1 ]");
}

TEST(JsonWriter, FunctionForOneKindAppendsThatKindAlone) {
  using Writer = std::string& (*)(std::string&, const jsObject*);
  const Writer writers[] = {json::writeNull,   json::writeBoolean, json::writeNumber,
                            json::writeString, json::writeArray,   json::writeObject};
  const char* const texts[] = {"null", "false", "0", "\"\"", "[ ]", "{ }"};
  for (std::int32_t kind = 0; kind <= 6; ++kind) {
    ScopedJson value(json::makeOfKind(kind));
    for (std::int32_t of = 1; of <= 6; ++of) {
      std::string text = "before ";
      const std::string expected = text + (of == kind ? texts[of - 1] : "");
      EXPECT_EQ(&writers[of - 1](text, value.get()), &text);
      EXPECT_EQ(text, expected) << kind << " " << of;
      EXPECT_EQ(&writers[of - 1](text, nullptr), &text);
      EXPECT_EQ(text, expected);
    }
  }
}

TEST(JsonWriter, ArrayToStringsKeepsStringsAndWritesOtherKindsAsJson) {
  ScopedJson array(json::parse(R"(["","",2.5,null,[],"",{"k":"v"}])"));
  json::setElement(array.get(), 0, json::makeString("a\"b\n\xC3\0"s));
  json::setElement(array.get(), 5, json::makeOfKind(0));
  std::vector<std::string> list = {"old"};
  json::arrayToStrings(list, array.get());
  EXPECT_EQ(list, (std::vector<std::string>{"a\"b\n\xC3\0"s, "", "2.500000", "null", "[ ]", "", "{ \"k\":\"v\" }"}));
  json::arrayToStrings(list, nullptr);
  EXPECT_TRUE(list.empty());
}

}  // namespace
