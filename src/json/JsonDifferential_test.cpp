// Compares our JSON parser with two libraries that follow the JSON standard. Each case has texts that a parser either
// parses to a value or refuses. If a library gives another result than our parser, the case states our result and the
// rule of our language that explains it. The tests fail for a difference that no rule explains, for a rule in a case
// without a difference, and for a rule that explains nothing.
//
// The first letter of a case name states what a strict parser does: it must accept y_, must refuse n_, and may do
// either with i_.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "json/JsonParser.h"

// clang 19 does not compile RapidJSON 1.1.0, which assigns to a constant.
#if __has_include(<rapidjson/document.h>) && __has_include(<nlohmann/json.hpp>) && \
    !(defined(__clang__) && __clang_major__ >= 19)
#define RAVCTL_HAS_JSON_LIBRARIES
#include <rapidjson/document.h>
#include <nlohmann/json.hpp>
#endif

using namespace std::string_literals;

namespace {

#ifdef RAVCTL_HAS_JSON_LIBRARIES

// --- The rules of our language that deliberately differ from the standard

constexpr const char* kEmptyName =
    "a scalar under an empty name is an error; an array or an object under an empty name is parsed and dropped";
constexpr const char* kEscapeU = "a backslash and a u become a question mark; the digits after them remain as text";
constexpr const char* kOtherEscapes =
    "a backslash and an apostrophe become an apostrophe; a backslash and an unknown byte become a question mark";
constexpr const char* kMinusZero = "a number equal to 0 becomes the shared 0, which has no sign";
constexpr const char* kTooLarge = "a number too large for a double becomes infinite, as strtod returns it";
constexpr const char* kBytes = "strings and names are bytes; their encoding is not checked";
constexpr const char* kByteOrderMark = "a byte order mark is not whitespace";
constexpr const char* kZeroByte = "a zero byte does not end a text whose length is given, and no token starts with it";
constexpr const char* kUnclosedString = "a string without a closing quote ends the text without an error";
constexpr const char* kTrailingComma = "a comma may stand before a closing bracket";
constexpr const char* kNameWithoutValue = "a closing curly bracket drops a name without a value";
constexpr const char* kBareName = "a name may be a bare word of letters, points and underscores";
constexpr const char* kUnescapedControl = "a control byte in a string is an ordinary byte";
constexpr const char* kNumberToSeparator =
    "a number ends at the next comma, closing bracket or whitespace, and strtod reads its value";
constexpr const char* kRules[] = {
    kEmptyName,        kEscapeU,          kOtherEscapes,   kMinusZero,     kTooLarge,         kBytes,
    kByteOrderMark,    kZeroByte,         kUnclosedString, kTrailingComma, kNameWithoutValue, kBareName,
    kUnescapedControl, kNumberToSeparator};

constexpr const char* kRefused = "refused";

enum Library { none = 0, rapid = 1, nlohmannJson = 2, both = 3 };

struct Case {
  const char* name;
  std::vector<std::string> texts;
  Library differing = none;  // the libraries whose result differs from ours
  const char* rule = nullptr;
  const char* ours = nullptr;  // our result, if a library differs
};

const std::vector<Case> kCases = {
    {"y_array",
     {"[]", R"([null, true, false, 1, "a", [2], {"b": 3}])", "[[], [[]], {}]", " [ 1 ,\t2\r\n, 3 ] \n",
      R"(["", "a", "b c"])"}},
    {"y_object",
     {"{}", R"({"n": null, "t": true, "f": false, "d": 1.5, "s": "x", "a": [], "o": {}})",
      R"({"a": {"b": {"c": [{"d": 1}]}}})",
      R"({"a":1,"b":2,"c":3,"d":4,"e":5,"f":6,"g":7,"h":8,"i":9,"j":10,"k":11,"l":12})"}},
    {"y_object_name_twice", {R"({"a": 1, "b": 2, "a": 3})", R"({"a": [1], "a": {"b": 2}})"}},
    {"y_object_name",
     {R"({"a\n\"b\\": 1})", R"({" a b ": 1})", R"({"null": 1, "true": 2})", R"({"1": 1, "2": 2})",
      "{\"\xc3\xa9\": 1}"}},
    {"y_object_name_empty_of_scalar", {R"({"": 1})"}, both, kEmptyName, kRefused},
    {"y_object_name_empty_of_container",
     {R"({"": [1], "a": 2})", R"({"a": 2, "": {"b": 1}})"},
     both,
     kEmptyName,
     "{'a':2}"},
    {"y_object_name_escape_u", {R"({"\u0061": 1})"}, both, kEscapeU, "{'?0061':1}"},
    {"y_scalar_alone", {"42", "-7", R"("text")", R"("")", "true", "false", "null"}},
    {"y_whitespace_around", {"\r\n\t [1] \t\n\r"}},
    {"y_depth_500", {std::string(500, '[') + std::string(500, ']')}},
    {"y_number", {"[0]", "[-0]", "[-1, 0, 1, 2]", "[0.5, 1.25, -3.75]", "[0.1, 0.2, 0.3]", "[1]", R"({"a":1})"}},
    {"y_number_minus_zero_fraction", {"[-0.0]"}, both, kMinusZero, "[0]"},
    {"y_number_exponent", {"[1e3, 1E3, 1e+3, 1e-3, 12.5e1]", "[1e0, 0e5, 0E-5]", "[1e-300]"}},
    {"y_number_large_integers",
     {"[2147483647, -2147483648, 2147483648]", "[9223372036854775807, -9223372036854775808]",
      "[18446744073709551615, 18446744073709551616]", "[123456789012345678901234567890]",
      "[9007199254740991, 9007199254740992, 9007199254740993]"}},
    {"y_number_limits_of_doubles",
     {"[1.7976931348623157e308]", "[2.2250738585072014e-308]", "[5e-324, 2.2250738585072011e-308]"}},
    {"y_number_many_digits",
     {"[3.14159265358979323846264338327950288419716939937510]",
      "[1.00000000000000011102230246251565404236316680908203125]"}},
    {"y_string_escapes", {R"(["\b\f\n\r\t\"\\\/"])", R"(["\na\n", "\\", "\\\\"])", R"(["a\\", "b\"c"])"}},
    {"y_string_ordinary_bytes",
     {R"(["a/b"])", "[\"a\x7f\"]", R"(["[1,2]", "{}", "null", "//"])", R"(["it's"])", R"(["#1"])"}},
    {"y_string_utf8",
     {"[\"\xc3\xa9\"]", "[\"\xe2\x82\xac\"]", "[\"\xf0\x9d\x84\x9e\"]", "[\"\xf4\x8f\xbf\xbf\"]",
      "[\"\xef\xbb\xbf\"]"}},
    {"y_string_escape_u_letter", {R"(["\u0041"])"}, both, kEscapeU, "['?0041']"},
    {"y_string_escape_u_lower_case", {R"(["\u00e9"])"}, both, kEscapeU, "['?00e9']"},
    {"y_string_escape_u_zero", {R"(["a\u0000b"])"}, both, kEscapeU, "['a?0000b']"},
    {"y_string_escape_u_control", {R"(["\u001f"])"}, both, kEscapeU, "['?001f']"},
    {"y_string_escape_u_pair", {R"(["\uD834\uDD1E"])"}, both, kEscapeU, "['?D834?DD1E']"},
    {"y_string_escape_u_quote", {R"(["\u0022"])"}, both, kEscapeU, "['?0022']"},
    {"y_string_escape_u_backslash", {R"(["\u005C"])"}, both, kEscapeU, "['?005C']"},
    {"i_number_too_large", {"[1e999]", "[1e100000]"}, both, kTooLarge, "[inf]"},
    {"i_number_too_large_negative", {"[-1e999]"}, both, kTooLarge, "[-inf]"},
    {"i_number_just_too_large", {"[1.7976931348623159e308]"}, nlohmannJson, kTooLarge, "[inf]"},
    {"i_number_too_small", {"[1e-999]"}},
    {"i_number_too_small_negative", {"[-1e-999]"}, both, kMinusZero, "[0]"},
    {"i_string_surrogate_alone", {R"(["\uD800"])"}, both, kEscapeU, "['?D800']"},
    {"i_string_surrogate_second_alone", {R"(["\uDC00"])"}, both, kEscapeU, "['?DC00']"},
    {"i_string_surrogates_swapped", {R"(["\uDD1E\uD834"])"}, both, kEscapeU, "['?DD1E?D834']"},
    {"i_string_surrogate_and_letter", {R"(["\uD834a"])"}, both, kEscapeU, "['?D834a']"},
    {"i_string_byte_80", {"[\"\x80\"]"}, both, kBytes, "['<80>']"},
    {"i_string_byte_ff", {"[\"\xff\"]"}, both, kBytes, "['<ff>']"},
    {"i_string_utf8_truncated", {"[\"\xe2\x82\"]"}, both, kBytes, "['<e2><82>']"},
    {"i_string_utf8_overlong", {"[\"\xc0\xaf\"]"}, both, kBytes, "['<c0><af>']"},
    {"i_string_utf8_surrogate", {"[\"\xed\xa0\x80\"]"}, both, kBytes, "['<ed><a0><80>']"},
    {"i_string_utf8_above_the_last_character", {"[\"\xf4\x90\x80\x80\"]"}, both, kBytes, "['<f4><90><80><80>']"},
    {"i_string_latin1", {"[\"caf\xe9\"]"}, both, kBytes, "['caf<e9>']"},
    {"i_object_name_invalid_utf8", {"{\"\xff\": 1}"}, both, kBytes, "{'<ff>':1}"},
    {"i_structure_bom", {"\xef\xbb\xbf[1]"}, both, kByteOrderMark, kRefused},
    {"i_zero_byte_after", {"[1]\0"s, "[1]\0x"s}, both, kZeroByte, kRefused},
    {"n_no_value", {"", " \n", "\xef\xbb\xbf", "\xff\xfe[\0]\0"s}},
    {"n_unclosed", {"[1", "[1,", R"({"a": 1)", R"({"a": 1,)", R"({"a")", R"({"a":)", "[[["}},
    {"n_closed_without_opening", {"]", "}", "[1]]", "[1}", R"({"a": 1])", "[{]}"}},
    {"n_two_values", {"[1][2]", "{} {}", "1 2", R"("a" 1)"}},
    {"n_tokens_around_the_value", {"[1],", ",[1]", ",", ":", "[1] x", "[1]#"}},
    {"n_structure_unclosed_string_after", {"[1] \"x"}, both, kUnclosedString, "[1]"},
    {"n_structure_quote_after", {"{}\""}, both, kUnclosedString, "{}"},
    {"n_unknown_token", {"word", "a", "[*]", "<.>"}},
    {"n_unknown_whitespace", {"[\f]", "[\v1]", "[\xc2\xa0]", "\0"s, "[\0]"s}},
    {"n_comment", {"[1] // one", "[/* one */ 1]", "[1] # one"}},
    {"n_array_comma_after", {"[1,]", "[1 , ]"}, both, kTrailingComma, "[1]"},
    {"n_array_comma_after_nested", {"[[1,],]"}, both, kTrailingComma, "[[1]]"},
    {"n_array_comma", {"[1,,2]", "[1,,]", "[,1]", "[,]"}},
    {"n_array_no_comma", {"[1 2]", R"(["a" "b"])", "[[] {}]"}},
    {"n_array_colon", {R"(["a": 1])"}},
    {"n_number_read_as_one",
     {"[1:2]", "[+1]", "[1.]", "[1e]", "[1e+]", "[1_000]", "[1'000]", "[1/2]", "[1+2]", "[1[2]", "[1{2]", R"([1"a"])",
      "[1#2]", "[1\xc3\xa9]"},
     both,
     kNumberToSeparator,
     "[1]"},
    {"n_array_bare_word", {"[word]", "[True]", "[nul]", "[nulll]", "[NULL]", "[NaN]", "[Infinity]"}},
    {"n_other_quotes", {"['a']", "{'a': 1}", "'a'", "[`a`]"}},
    {"n_object_comma_after", {R"({"a": 1,})", R"({"a": 1 , })"}, both, kTrailingComma, "{'a':1}"},
    {"n_object_comma", {R"({"a": 1,,"b": 2})", R"({,"a": 1})", "{,}", R"({"a", 1})"}},
    {"n_object_no_colon_or_comma", {R"({"a" 1})", R"({"a" "b"})", R"({"a": 1 "b": 2})"}},
    {"n_object_no_value_at_the_end", {R"({"a":})", R"({"a"})"}, both, kNameWithoutValue, "{}"},
    {"n_object_no_value_nested", {R"({"x": {"a":}, "y": 1})"}, both, kNameWithoutValue, "{'x':{},'y':1}"},
    {"n_object_no_value_after_a_member", {R"({"a": 1, "b":})", R"({"a": 1, "b"})"}, both, kNameWithoutValue, "{'a':1}"},
    {"n_object_name_alone_in_array", {R"([{"a"}])"}, both, kNameWithoutValue, "[{}]"},
    {"n_object_no_value", {R"({"a":, "b": 1})", R"({"a": b})"}},
    {"n_object_no_name", {"{:1}", R"({"a":: 1})", "{1}", "{true}"}},
    {"n_object_colon_after", {R"({"a": 1:})"}, both, kNumberToSeparator, "{'a':1}"},
    {"n_object_name_bare", {"{a: 1}"}, both, kBareName, "{'a':1}"},
    {"n_object_name_bare_dotted", {"{a.b_c: 1}"}, both, kBareName, "{'a.b_c':1}"},
    {"n_object_name", {"{a1: 1}", "{1: 1}", "{null: 1}", "{[]: 1}"}},
    {"n_object_name_bare_after_member", {R"({"a": 1, b: 2})"}, both, kBareName, "{'a':1,'b':2}"},
    {"n_number_read_as_zero",
     {"[++1]", "[--1]", "[-]", "[+]", "[.]", "[-.]", "[0x]", "[0o17]"},
     both,
     kNumberToSeparator,
     "[0]"},
    {"n_number", {"[- 1]", "[e3]", R"({"a": 1b: 2})", "[\xef\xbc\x91]", R"({"a": 1,5})"}},
    {"n_number_no_whole_part", {"[.5]"}, both, kNumberToSeparator, "[0.5]"},
    {"n_number_no_whole_part_negative", {"[-.5]"}, both, kNumberToSeparator, "[-0.5]"},
    {"n_number_no_fraction_exponent", {"[1.e3]"}, both, kNumberToSeparator, "[1000]"},
    {"n_number_two_points", {"[1.2.3]"}, both, kNumberToSeparator, "[1.2]"},
    {"n_number_leading_zero", {"[012]"}, both, kNumberToSeparator, "[12]"},
    {"n_number_leading_zero_negative", {"[-012]"}, both, kNumberToSeparator, "[-12]"},
    {"n_number_leading_zero_fraction", {"[00.5]"}, both, kNumberToSeparator, "[0.5]"},
    {"n_number_exponent_fraction", {"[1e2.5]"}, both, kNumberToSeparator, "[100]"},
    {"n_number_exponent_twice", {"[1e2e3]"}, both, kNumberToSeparator, "[100]"},
    {"n_number_hexadecimal", {"[0x1F]"}, both, kNumberToSeparator, "[31]"},
    {"n_number_hexadecimal_exponent", {"[0x1p4]"}, both, kNumberToSeparator, "[16]"},
    {"n_number_letters_after", {"[12abc]"}, both, kNumberToSeparator, "[12]"},
    {"n_number_percent", {"[50%]"}, both, kNumberToSeparator, "[50]"},
    {"n_number_minus_infinity", {"[-Infinity]", "[-inf]"}, both, kNumberToSeparator, "[-inf]"},
    {"n_number_signed_nan", {"[-NaN]", "[+nan]"}, both, kNumberToSeparator, "[nan]"},
    {"n_number_colon_inside", {"1:2"}, both, kNumberToSeparator, "1"},
    {"n_string_unclosed", {"[\"a", "[\"a\\", "[\"a\\\"]", "\""}},
    {"n_string_escape_x", {R"(["\x41"])"}, both, kOtherEscapes, "['?41']"},
    {"n_string_escape_unknown", {R"(["\a"])", R"(["\v"])", R"(["\0"])", R"(["\ "])"}, both, kOtherEscapes, "['?']"},
    {"n_string_escape_apostrophe", {R"(["\'"])"}, both, kOtherEscapes, "[''']"},
    {"n_string_escape_upper_case", {R"(["\N\T\U0041"])"}, both, kOtherEscapes, "['???0041']"},
    {"n_string_escape_newline", {"[\"a\\\nb\"]"}, both, kOtherEscapes, "['a?b']"},
    {"n_string_escape_byte", {"[\"\\\xc3\xa9\"]"}, both, kOtherEscapes, "['?<a9>']"},
    {"n_string_escape_u_short", {R"(["\u004"])"}, both, kEscapeU, "['?004']"},
    {"n_string_escape_u_none", {R"(["\u"])"}, both, kEscapeU, "['?']"},
    {"n_string_escape_u_letters", {R"(["\u00G1"])"}, both, kEscapeU, "['?00G1']"},
    {"n_string_escape_u_braces", {R"(["\u{41}"])"}, both, kEscapeU, "['?{41}']"},
    {"n_string_unescaped_newline", {"[\"a\nb\"]"}, both, kUnescapedControl, "['a<0a>b']"},
    {"n_string_unescaped_tab", {"[\"a\tb\"]"}, both, kUnescapedControl, "['a<09>b']"},
    {"n_string_unescaped_zero", {"[\"a\0b\"]"s}, both, kUnescapedControl, "['a<00>b']"},
    {"n_string_unescaped_escape", {"[\"\x1b\"]"}, both, kUnescapedControl, "['<1b>']"},
    {"n_object_name_unescaped_tab", {"{\"a\tb\": 1}"}, both, kUnescapedControl, "{'a<09>b':1}"},
    {"n_string_after_string", {R"(["a" + "b"])", R"(["a""b"])", R"(["a"b])"}},
};

// --- A value as text, in the same form for the three libraries: numbers with 17 digits, unprintable bytes in
// hexadecimal

std::string numberText(double number) {
  char text[40];
  (void)std::snprintf(text, sizeof text, "%.17g", number);
  return std::isnan(number) ? "nan" : text;
}

std::string shownBytes(std::string_view raw) {
  std::string text = "'";
  for (const char c : raw) {
    char hex[8];
    (void)std::snprintf(hex, sizeof hex, "<%02x>", static_cast<unsigned char>(c));
    text += c >= 32 && c <= 126 ? std::string(1, c) : hex;
  }
  return text + "'";
}

std::string arrayText(const std::vector<std::string>& elements) {
  std::string text;
  for (const std::string& element : elements) text += (text.empty() ? "" : ",") + element;
  return "[" + text + "]";
}

// The members of an object. A repeated name keeps its position and takes the new value.
class Members {
 public:
  void set(const std::string& name, const std::string& value) {
    const auto [place, isNew] = values_.try_emplace(name, value);
    if (isNew) names_.push_back(name);
    place->second = value;
  }
  std::string text() const {
    std::string text;
    for (const std::string& name : names_)
      text += (text.empty() ? "" : ",") + shownBytes(name) + ":" + values_.at(name);
    return "{" + text + "}";
  }

 private:
  std::vector<std::string> names_;
  std::map<std::string, std::string> values_;
};

std::string textOf(const jsObject* value) {
  if (json::isNull(value)) return "null";
  if (json::isBoolean(value)) return json::booleanOf(value) ? "true" : "false";
  if (json::isNumber(value)) return numberText(json::numberOf(value));
  if (json::isString(value)) return shownBytes(json::textOf(value));
  if (json::isArray(value)) {
    std::vector<std::string> elements;
    for (std::size_t i = 0; i < json::elementCount(value); ++i) elements.push_back(textOf(json::element(value, i)));
    return arrayText(elements);
  }
  Members members;
  for (std::size_t i = 0; i < json::memberCount(value); ++i)
    members.set(std::string(json::memberName(value, i)), textOf(json::memberValue(value, i)));
  return members.text();
}

std::string textOf(const rapidjson::Value& value) {
  if (value.IsNull()) return "null";
  if (value.IsBool()) return value.GetBool() ? "true" : "false";
  if (value.IsNumber()) return numberText(value.GetDouble());
  if (value.IsString()) return shownBytes({value.GetString(), value.GetStringLength()});
  if (value.IsArray()) {
    std::vector<std::string> elements;
    for (const auto& element : value.GetArray()) elements.push_back(textOf(element));
    return arrayText(elements);
  }
  Members members;
  for (const auto& member : value.GetObject())
    members.set({member.name.GetString(), member.name.GetStringLength()}, textOf(member.value));
  return members.text();
}

std::string textOf(const nlohmann::ordered_json& value) {
  if (value.is_null()) return "null";
  if (value.is_boolean()) return value.get<bool>() ? "true" : "false";
  if (value.is_number()) return numberText(value.get<double>());
  if (value.is_string()) return shownBytes(value.get_ref<const std::string&>());
  if (value.is_array()) {
    std::vector<std::string> elements;
    for (const auto& element : value) elements.push_back(textOf(element));
    return arrayText(elements);
  }
  Members members;
  for (const auto& member : value.items()) members.set(member.key(), textOf(member.value()));
  return members.text();
}

std::string ours(const std::string& text) {
  const ScopedJson document(json::parse(text.data(), static_cast<std::ptrdiff_t>(text.size())));
  return document ? textOf(document.get()) : kRefused;
}

std::string rapidJsons(const std::string& text) {
  constexpr unsigned strict =
      rapidjson::kParseFullPrecisionFlag | rapidjson::kParseValidateEncodingFlag | rapidjson::kParseIterativeFlag;
  rapidjson::Document document;
  document.Parse<strict>(text.data(), text.size());
  return document.HasParseError() ? kRefused : textOf(document);
}

std::string nlohmanns(const std::string& text) {
  const nlohmann::ordered_json document = nlohmann::ordered_json::parse(text, nullptr, false);
  return document.is_discarded() ? kRefused : textOf(document);
}

// --- The tests

TEST(JsonDifferential, EachDifferenceFromTheStandardIsAStatedRule) {
  for (const Case& c : kCases) {
    for (const std::string& text : c.texts) {
      SCOPED_TRACE(std::string(c.name) + ": " + shownBytes(text));
      const std::string answer = ours(text);
      const std::string answers[] = {rapidJsons(text), nlohmanns(text)};
      const int differing = (answer != answers[0] ? rapid : 0) | (answer != answers[1] ? nlohmannJson : 0);
      EXPECT_EQ(differing, c.differing) << "ours: " << answer << "\nrapidjson: " << answers[0]
                                        << "\nnlohmann: " << answers[1];
      EXPECT_EQ(answer, c.ours == nullptr ? answers[0] : c.ours);
    }
  }
}

TEST(JsonDifferential, EveryRuleExplainsADifference) {
  std::set<std::string_view> shown;
  for (const Case& c : kCases) {
    EXPECT_EQ(c.rule != nullptr, c.differing != none) << c.name;
    if (c.rule != nullptr) shown.insert(c.rule);
  }
  for (const char* rule : kRules) EXPECT_EQ(shown.erase(rule), 1u) << rule;
  EXPECT_TRUE(shown.empty());
}

TEST(JsonDifferential, FirstLetterOfACaseNameMatchesTheStrictParsers) {
  std::set<std::string> names;
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_TRUE(names.insert(c.name).second) << "two cases have this name";
    EXPECT_TRUE(c.name[0] == 'y' || c.name[0] == 'n' || c.name[0] == 'i');
    for (const std::string& text : c.texts) {
      const int accepting = (rapidJsons(text) != kRefused ? 1 : 0) + (nlohmanns(text) != kRefused ? 1 : 0);
      EXPECT_TRUE(c.name[0] == 'i' || accepting == (c.name[0] == 'y' ? 2 : 0))
          << accepting << " libraries accept " << shownBytes(text);
    }
  }
}

#else

TEST(JsonDifferential, EachDifferenceFromTheStandardIsAStatedRule) {
  GTEST_SKIP() << "rapidjson-dev and nlohmann-json3-dev are not installed, or the compiler is clang 19";
}

#endif

}  // namespace
