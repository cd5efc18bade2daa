#include "json/JsonWriter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <iterator>
#include <limits>
#include <random>

using namespace std::string_literals;

namespace {

std::string written(jsObject* owned) {
  ScopedJson value(owned);
  std::string text;
  return json::write(text, value.get());
}

std::string writtenText(std::string_view text) { return written(json::makeString(text)); }
std::string writtenNumber(double number) { return written(json::makeNumber(number)); }

TEST(JsonWriter, WritesStatusAndListInOneLine) {
  jsObject* object = json::makeObject();
  json::setMember(object, "status", json::makeNumber(0));
  jsObject* list = json::makeArray();
  json::setMember(object, "list", list);
  json::append(list, json::makeNumber(1));
  json::append(list, json::makeBoolean(true));
  EXPECT_EQ(written(object), R"({ "status":0, "list":[ 1, true ] })");
}

TEST(JsonWriter, AppendsToTheTextAndReturnsIt) {
  std::string text = "before ";
  ScopedJson array(json::makeArray());
  EXPECT_EQ(&json::write(text, array.get()), &text);
  EXPECT_EQ(text, "before [ ]");
  EXPECT_EQ(&json::writeNull(text, nullptr), &text);
  EXPECT_EQ(text, "before [ ]");
}

TEST(JsonWriter, EmptyContainersHaveOneSpaceInside) {
  EXPECT_EQ(written(json::makeObject()), "{ }");
  EXPECT_EQ(written(json::makeArray()), "[ ]");
}

TEST(JsonWriter, WritesNestedContainers) {
  jsObject* array = json::makeArray();
  json::append(array, json::makeArray());
  jsObject* record = json::appendObject(array);
  json::setMember(record, "a", json::makeObject());
  json::setMember(record, "b", json::makeArray());
  json::append(json::member(record, "b"), json::makeNumber(5));
  json::append(array, json::makeString("x"));
  EXPECT_EQ(written(array), R"([ [ ], { "a":{ }, "b":[ 5 ] }, "x" ])");
}

TEST(JsonWriter, WritesMembersInStoredOrderAfterARemoval) {
  jsObject* object = json::makeObject();
  for (const char* name : {"a", "b", "c"}) json::setMember(object, name, json::makeNull());
  json::setMember(object, "a", nullptr);
  EXPECT_EQ(written(object), R"({ "c":null, "b":null })");
}

TEST(JsonWriter, MemberNameMayBeLongerThanTheBuffer) {
  const std::string name(100'000, 'n');
  jsObject* object = json::makeObject();
  json::setMember(object, "first", json::makeBoolean(true));
  json::setMember(object, name, json::makeBoolean(false));
  EXPECT_EQ(written(object), "{ \"first\":true, \"" + name + "\":false }");
}

TEST(JsonWriter, MemberNamesAreNotEscaped) {
  jsObject* object = json::makeObject();
  json::setMember(object, "a\"b\n\xC3", json::makeBoolean(false));
  EXPECT_EQ(written(object), "{ \"a\"b\n\xC3\":false }");
}

TEST(JsonWriter, WritesEachKindOfScalar) {
  EXPECT_EQ(written(json::makeNull()), "null");
  EXPECT_EQ(written(json::makeBoolean(true)), "true");
  EXPECT_EQ(written(json::makeBoolean(false)), "false");
  EXPECT_EQ(writtenText(""), "\"\"");
  EXPECT_EQ(writtenText("lab"), "\"lab\"");
}

TEST(JsonWriter, NullPointerAndInvalidKindAppendNothing) {
  std::string text;
  EXPECT_EQ(json::write(text, nullptr), "");
  EXPECT_EQ(written(json::makeOfKind(0)), "");
}

TEST(JsonWriter, ValueOfInvalidKindLeavesItsPlaceEmpty) {
  jsObject* array = json::makeArray();
  json::append(array, json::makeNumber(1));
  json::append(array, json::makeOfKind(0));
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
    EXPECT_EQ(writtenText(text), "\"" + expected + "\"") << byte;
    EXPECT_EQ(writtenText("a" + text + "b"), "\"a" + expected + "b\"") << byte;
  }
}

TEST(JsonWriter, WritesTabNewlineAndByteOneAsEscapes) { EXPECT_EQ(writtenText("\t\n\x01"), R"("\t\n\u0001")"); }

TEST(JsonWriter, BackslashAndSlashAreNotEscaped) { EXPECT_EQ(writtenText(R"(a\b/c)"), R"("a\b/c")"); }

TEST(JsonWriter, EachByteOfAMultibyteCharacterBecomesAQuestionMark) {
  EXPECT_EQ(writtenText("\xE2\x82\xAC."), "\"???.\"");
}

TEST(JsonWriter, ZeroByteDoesNotEndAString) { EXPECT_EQ(writtenText("a\0b"s), R"("a\u0000b")"); }

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
    ASSERT_EQ(writtenText(text), expected + '"') << text.size();
  }
}

TEST(JsonWriter, NumbersAreIntegersOrHaveSixDecimals) {
  struct Case {
    double number;
    const char* text;
  };
  const double infinity = std::numeric_limits<double>::infinity();
  const Case cases[] = {
      {3, "3"},
      {0, "0"},
      {-0.0, "0"},
      {1, "1"},
      {42, "42"},
      {1000000, "1000000"},
      {2147483647, "2147483647"},
      {3.000001, "3"},
      {2.999999, "3"},
      {-0.000001, "0"},
      {2.5, "2.500000"},
      {0.1, "0.100000"},
      {0.0000004, "0"},
      {0.00002, "0.000020"},
      {1.0000005, "1"},
      {0.0078125, "0.007812"},
      {0.0234375, "0.023438"},
      {-1, "-1.000000"},
      {-2, "-2.000000"},
      {-2.5, "-2.500000"},
      {2147483648.0, "2147483648.000000"},
      {-2147483648.0, "-2147483648.000000"},
      {1e10, "10000000000.000000"},
      {1e22, "10000000000000000000000.000000"},
      {infinity, "inf"},
      {-infinity, "-inf"},
      {std::nan(""), "nan"},
  };
  for (const Case& c : cases) EXPECT_EQ(writtenNumber(c.number), c.text) << c.number;
}

TEST(JsonWriter, LargestNumberFitsIntoTheBuffer) {
  const std::string text = writtenNumber(-std::numeric_limits<double>::max());
  EXPECT_EQ(text.size(), 1u + 309u + 1u + 6u);
  EXPECT_EQ(text.substr(0, 18), "-17976931348623157");
  EXPECT_EQ(text.substr(text.size() - 8), "8.000000");
}

TEST(JsonWriter, NumbersAreFormattedAsBySnprintf) {
  std::mt19937_64 random(7);
  for (int round = 0; round < 20000; ++round) {
    const double scale = std::pow(10.0, static_cast<double>(random() % 24) - 8);
    const double number = (static_cast<double>(random() % 2000001) - 1000000.0) / 1000000.0 * scale;
    ScopedJson value(json::makeNumber(number));
    char expected[500];
    if (json::isIntegral(value.get())) {
      std::snprintf(expected, sizeof expected, "%d", json::integerOf(value.get()));
    } else {
      std::snprintf(expected, sizeof expected, "%f", number);
    }
    std::string text;
    ASSERT_EQ(json::write(text, value.get()), expected) << number;
  }
}

TEST(JsonWriter, FunctionForOneKindWritesNoOtherKind) {
  using Writer = std::string& (*)(std::string&, const jsObject*);
  const Writer writers[] = {json::writeNull,   json::writeBoolean, json::writeNumber,
                            json::writeString, json::writeArray,   json::writeObject};
  const char* const texts[] = {"null", "false", "0", "\"\"", "[ ]", "{ }"};
  for (std::int32_t kind = 0; kind <= 6; ++kind) {
    ScopedJson value(json::makeOfKind(kind));
    for (std::int32_t of = 1; of <= 6; ++of) {
      std::string text;
      writers[of - 1](text, value.get());
      EXPECT_EQ(text, of == kind ? texts[of - 1] : "") << kind << " " << of;
      writers[of - 1](text, nullptr);
      EXPECT_EQ(text, of == kind ? texts[of - 1] : "");
    }
  }
}

TEST(JsonWriter, WritesDeepTrees) {
  constexpr std::size_t depth = 200000;
  jsObject* tree = json::makeArray();
  for (std::size_t level = 1; level < depth; ++level) {
    jsObject* outer = level % 2 == 0 ? json::makeArray() : json::makeObject();
    if (json::isArray(outer)) {
      json::append(outer, tree);
    } else {
      json::setMember(outer, "a", tree);
    }
    tree = outer;
  }
  const std::string text = written(tree);
  EXPECT_EQ(text.substr(0, 16), "{ \"a\":[ { \"a\":[ ");
  EXPECT_EQ(text.substr(text.size() - 8), " ] } ] }");
  EXPECT_EQ(text.size(), 3 + depth / 2 * 8 + (depth / 2 - 1) * 4);
}

TEST(JsonWriter, ArrayToStringsKeepsStringsAndWritesOtherKindsAsJson) {
  ScopedJson array(json::makeArray());
  json::append(array.get(), json::makeString("a\"b\n\xC3\0"s));
  json::append(array.get(), json::makeString(""));
  json::append(array.get(), json::makeNumber(2.5));
  json::append(array.get(), json::makeNull());
  json::append(array.get(), json::makeArray());
  json::append(array.get(), json::makeOfKind(0));
  json::setText(json::appendObject(array.get()), "k", "v");
  std::vector<std::string> list = {"old"};
  json::arrayToStrings(list, array.get());
  EXPECT_EQ(list, (std::vector<std::string>{"a\"b\n\xC3\0"s, "", "2.500000", "null", "[ ]", "", "{ \"k\":\"v\" }"}));
}

TEST(JsonWriter, ArrayToStringsClearsTheListForANullPointer) {
  std::vector<std::string> list = {"old"};
  json::arrayToStrings(list, nullptr);
  EXPECT_TRUE(list.empty());
}

}  // namespace
