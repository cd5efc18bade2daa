// Compares our JSON parser with two libraries that follow the JSON standard. Each case is a text that a parser either
// parses to a value or refuses. Where a library gives another result than ours, a row of `differences` names our result
// and the rule of our language that explains it. The tests fail for a difference without a row, a row without a
// difference, and a rule without a row.
//
// Case names start as in other collections of JSON texts: a strict parser must accept y_, must refuse n_, and may do
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

#if __has_include(<rapidjson/document.h>) && __has_include(<nlohmann/json.hpp>)
#define RAVCTL_HAS_JSON_LIBRARIES
#include <rapidjson/document.h>
#include <nlohmann/json.hpp>
#endif

using namespace std::string_literals;

namespace {

struct Case {
  const char* name;
  std::string text;
};

// clang-format off
const std::vector<Case> kCases = {
    {"y_array_empty", "[]"},
    {"y_array_of_kinds", R"([null, true, false, 1, "a", [2], {"b": 3}])"},
    {"y_array_nested_empty", "[[], [[]], {}]"},
    {"y_array_blanks_everywhere", " [ 1 ,\t2\r\n, 3 ] \n"},
    {"y_array_of_strings", R"(["", "a", "b c"])"},
    {"y_object_empty", "{}"},
    {"y_object_of_kinds", R"({"n": null, "t": true, "f": false, "d": 1.5, "s": "x", "a": [], "o": {}})"},
    {"y_object_nested", R"({"a": {"b": {"c": [{"d": 1}]}}})"},
    {"y_object_name_twice", R"({"a": 1, "b": 2, "a": 3})"},
    {"y_object_name_twice_other_kind", R"({"a": [1], "a": {"b": 2}})"},
    {"y_object_name_with_escapes", R"({"a\n\"b\\": 1})"},
    {"y_object_name_with_blanks", R"({" a b ": 1})"},
    {"y_object_name_is_keyword", R"({"null": 1, "true": 2})"},
    {"y_object_name_is_number", R"({"1": 1, "2": 2})"},
    {"y_object_name_empty_of_scalar", R"({"": 1})"},
    {"y_object_name_empty_of_array", R"({"": [1], "a": 2})"},
    {"y_object_name_empty_of_object", R"({"a": 2, "": {"b": 1}})"},
    {"y_object_name_escape_u", R"({"\u0061": 1})"},
    {"y_object_name_utf8", "{\"\xc3\xa9\": 1}"},
    {"y_object_many_members", R"({"a":1,"b":2,"c":3,"d":4,"e":5,"f":6,"g":7,"h":8,"i":9,"j":10,"k":11,"l":12})"},
    {"y_structure_lonely_number", "42"},
    {"y_structure_lonely_negative", "-7"},
    {"y_structure_lonely_string", R"("text")"},
    {"y_structure_lonely_empty_string", R"("")"},
    {"y_structure_lonely_true", "true"},
    {"y_structure_lonely_false", "false"},
    {"y_structure_lonely_null", "null"},
    {"y_structure_blanks_around", "\r\n\t [1] \t\n\r"},
    {"y_structure_depth_500", std::string(500, '[') + std::string(500, ']')},
    {"y_number_zero", "[0]"},
    {"y_number_minus_zero", "[-0]"},
    {"y_number_minus_zero_fraction", "[-0.0]"},
    {"y_number_shared_values", "[-1, 0, 1, 2]"},
    {"y_number_fraction", "[0.5, 1.25, -3.75]"},
    {"y_number_tenths", "[0.1, 0.2, 0.3]"},
    {"y_number_exponent", "[1e3, 1E3, 1e+3, 1e-3, 12.5e1]"},
    {"y_number_exponent_zero", "[1e0, 0e5, 0E-5]"},
    {"y_number_int32_ends", "[2147483647, -2147483648, 2147483648]"},
    {"y_number_int64_ends", "[9223372036854775807, -9223372036854775808]"},
    {"y_number_uint64_end", "[18446744073709551615, 18446744073709551616]"},
    {"y_number_beyond_integers", "[123456789012345678901234567890]"},
    {"y_number_two_to_53", "[9007199254740991, 9007199254740992, 9007199254740993]"},
    {"y_number_largest_double", "[1.7976931348623157e308]"},
    {"y_number_smallest_normal", "[2.2250738585072014e-308]"},
    {"y_number_subnormal", "[5e-324, 2.2250738585072011e-308]"},
    {"y_number_many_digits", "[3.14159265358979323846264338327950288419716939937510]"},
    {"y_number_halfway", "[1.00000000000000011102230246251565404236316680908203125]"},
    {"y_number_small_exponent", "[1e-300]"},
    {"y_number_before_bracket", "[1]"},
    {"y_number_before_curly", R"({"a":1})"},
    {"y_string_short_escapes", R"(["\b\f\n\r\t\"\\\/"])"},
    {"y_string_escape_at_ends", R"(["\na\n", "\\", "\\\\"])"},
    {"y_string_slash", R"(["a/b"])"},
    {"y_string_quote_behind_backslash", R"(["a\\", "b\"c"])"},
    {"y_string_del", "[\"a\x7f\"]"},
    {"y_string_utf8_two_bytes", "[\"\xc3\xa9\"]"},
    {"y_string_utf8_three_bytes", "[\"\xe2\x82\xac\"]"},
    {"y_string_utf8_four_bytes", "[\"\xf0\x9d\x84\x9e\"]"},
    {"y_string_utf8_last", "[\"\xf4\x8f\xbf\xbf\"]"},
    {"y_string_utf8_bom_inside", "[\"\xef\xbb\xbf\"]"},
    {"y_string_escape_u_letter", R"(["\u0041"])"},
    {"y_string_escape_u_lower_case", R"(["\u00e9"])"},
    {"y_string_escape_u_zero", R"(["a\u0000b"])"},
    {"y_string_escape_u_control", R"(["\u001f"])"},
    {"y_string_escape_u_pair", R"(["\uD834\uDD1E"])"},
    {"y_string_escape_u_quote", R"(["\u0022"])"},
    {"y_string_escape_u_backslash", R"(["\u005C"])"},
    {"y_string_looks_like_json", R"(["[1,2]", "{}", "null", "//"])"},
    {"y_string_apostrophe", R"(["it's"])"},
    {"y_string_number_sign", R"(["#1"])"},
    {"i_number_too_large", "[1e999]"},
    {"i_number_too_large_negative", "[-1e999]"},
    {"i_number_large_exponent", "[1e100000]"},
    {"i_number_just_too_large", "[1.7976931348623159e308]"},
    {"i_number_too_small", "[1e-999]"},
    {"i_number_too_small_negative", "[-1e-999]"},
    {"i_string_surrogate_alone", R"(["\uD800"])"},
    {"i_string_surrogate_second_alone", R"(["\uDC00"])"},
    {"i_string_surrogates_swapped", R"(["\uDD1E\uD834"])"},
    {"i_string_surrogate_and_letter", R"(["\uD834a"])"},
    {"i_string_byte_80", "[\"\x80\"]"},
    {"i_string_byte_ff", "[\"\xff\"]"},
    {"i_string_utf8_cut", "[\"\xe2\x82\"]"},
    {"i_string_utf8_overlong", "[\"\xc0\xaf\"]"},
    {"i_string_utf8_surrogate", "[\"\xed\xa0\x80\"]"},
    {"i_string_utf8_beyond", "[\"\xf4\x90\x80\x80\"]"},
    {"i_string_latin1", "[\"caf\xe9\"]"},
    {"i_object_name_invalid_utf8", "{\"\xff\": 1}"},
    {"i_structure_bom", "\xef\xbb\xbf[1]"},
    {"i_structure_zero_byte_behind", "[1]\0"s},
    {"i_structure_zero_byte_and_text", "[1]\0x"s},
    {"n_structure_no_text", ""},
    {"n_structure_blanks_only", " \n"},
    {"n_structure_bom_only", "\xef\xbb\xbf"},
    {"n_structure_utf16", "\xff\xfe[\0]\0"s},
    {"n_structure_open_array", "[1"},
    {"n_structure_open_array_comma", "[1,"},
    {"n_structure_open_object", R"({"a": 1)"},
    {"n_structure_open_object_comma", R"({"a": 1,)"},
    {"n_structure_open_object_name", R"({"a")"},
    {"n_structure_open_object_colon", R"({"a":)"},
    {"n_structure_open_nested", "[[["},
    {"n_structure_closed_array_alone", "]"},
    {"n_structure_closed_object_alone", "}"},
    {"n_structure_closed_twice", "[1]]"},
    {"n_structure_closed_by_other", "[1}"},
    {"n_structure_closed_by_other_object", R"({"a": 1])"},
    {"n_structure_crossed", "[{]}"},
    {"n_structure_two_arrays", "[1][2]"},
    {"n_structure_two_objects", "{} {}"},
    {"n_structure_two_numbers", "1 2"},
    {"n_structure_comma_behind", "[1],"},
    {"n_structure_comma_before", ",[1]"},
    {"n_structure_comma_alone", ","},
    {"n_structure_colon_alone", ":"},
    {"n_structure_text_behind", "[1] x"},
    {"n_structure_number_sign_behind", "[1]#"},
    {"n_structure_open_string_behind", "[1] \"x"},
    {"n_structure_quote_behind", "{}\""},
    {"n_structure_string_and_number", R"("a" 1)"},
    {"n_structure_bare_word", "word"},
    {"n_structure_letter", "a"},
    {"n_structure_asterisk", "[*]"},
    {"n_structure_angle", "<.>"},
    {"n_structure_form_feed", "[\f]"},
    {"n_structure_vertical_tab", "[\v1]"},
    {"n_structure_no_break_space", "[\xc2\xa0]"},
    {"n_structure_zero_byte", "\0"s},
    {"n_structure_zero_byte_inside", "[\0]"s},
    {"n_structure_comment_line", "[1] // one"},
    {"n_structure_comment_block", "[/* one */ 1]"},
    {"n_structure_number_sign_comment", "[1] # one"},
    {"n_array_comma_behind", "[1,]"},
    {"n_array_comma_behind_nested", "[[1,],]"},
    {"n_array_comma_behind_blank", "[1 , ]"},
    {"n_array_comma_twice", "[1,,2]"},
    {"n_array_comma_twice_behind", "[1,,]"},
    {"n_array_comma_before", "[,1]"},
    {"n_array_comma_alone", "[,]"},
    {"n_array_no_comma", "[1 2]"},
    {"n_array_no_comma_strings", R"(["a" "b"])"},
    {"n_array_no_comma_containers", "[[] {}]"},
    {"n_array_colon", R"(["a": 1])"},
    {"n_array_colon_numbers", "[1:2]"},
    {"n_array_bare_word", "[word]"},
    {"n_array_name_of_keyword_case", "[True]"},
    {"n_array_keyword_cut", "[nul]"},
    {"n_array_keyword_long", "[nulll]"},
    {"n_array_keyword_upper_case", "[NULL]"},
    {"n_array_nan", "[NaN]"},
    {"n_array_infinity", "[Infinity]"},
    {"n_array_string_single_quotes", "['a']"},
    {"n_object_comma_behind", R"({"a": 1,})"},
    {"n_object_comma_behind_blank", R"({"a": 1 , })"},
    {"n_object_comma_twice", R"({"a": 1,,"b": 2})"},
    {"n_object_comma_before", R"({,"a": 1})"},
    {"n_object_comma_alone", "{,}"},
    {"n_object_comma_for_colon", R"({"a", 1})"},
    {"n_object_no_colon", R"({"a" 1})"},
    {"n_object_no_colon_string", R"({"a" "b"})"},
    {"n_object_no_comma", R"({"a": 1 "b": 2})"},
    {"n_object_no_value", R"({"a":})"},
    {"n_object_no_value_nested", R"({"x": {"a":}, "y": 1})"},
    {"n_object_no_value_behind", R"({"a": 1, "b":})"},
    {"n_object_name_alone", R"({"a"})"},
    {"n_object_name_alone_behind", R"({"a": 1, "b"})"},
    {"n_object_name_alone_in_array", R"([{"a"}])"},
    {"n_object_no_value_comma", R"({"a":, "b": 1})"},
    {"n_object_no_name", "{:1}"},
    {"n_object_two_colons", R"({"a":: 1})"},
    {"n_object_colon_behind", R"({"a": 1:})"},
    {"n_object_name_bare", "{a: 1}"},
    {"n_object_name_bare_dotted", "{a.b_c: 1}"},
    {"n_object_name_bare_digit", "{a1: 1}"},
    {"n_object_name_bare_first_behind", R"({"a": 1, b: 2})"},
    {"n_object_name_number", "{1: 1}"},
    {"n_object_name_keyword", "{null: 1}"},
    {"n_object_name_array", "{[]: 1}"},
    {"n_object_name_single_quotes", "{'a': 1}"},
    {"n_object_value_bare", R"({"a": b})"},
    {"n_object_value_alone", "{1}"},
    {"n_object_keyword_alone", "{true}"},
    {"n_number_plus", "[+1]"},
    {"n_number_plus_plus", "[++1]"},
    {"n_number_minus_minus", "[--1]"},
    {"n_number_minus_alone", "[-]"},
    {"n_number_plus_alone", "[+]"},
    {"n_number_point_alone", "[.]"},
    {"n_number_minus_point", "[-.]"},
    {"n_number_minus_blank", "[- 1]"},
    {"n_number_no_whole_part", "[.5]"},
    {"n_number_no_whole_part_negative", "[-.5]"},
    {"n_number_no_fraction", "[1.]"},
    {"n_number_no_fraction_exponent", "[1.e3]"},
    {"n_number_two_points", "[1.2.3]"},
    {"n_number_leading_zero", "[012]"},
    {"n_number_leading_zero_negative", "[-012]"},
    {"n_number_leading_zero_fraction", "[00.5]"},
    {"n_number_no_exponent", "[1e]"},
    {"n_number_no_exponent_sign", "[1e+]"},
    {"n_number_exponent_fraction", "[1e2.5]"},
    {"n_number_exponent_twice", "[1e2e3]"},
    {"n_number_exponent_alone", "[e3]"},
    {"n_number_hexadecimal", "[0x1F]"},
    {"n_number_hexadecimal_exponent", "[0x1p4]"},
    {"n_number_hexadecimal_cut", "[0x]"},
    {"n_number_octal", "[0o17]"},
    {"n_number_letters_behind", "[12abc]"},
    {"n_number_underscore", "[1_000]"},
    {"n_number_apostrophe", "[1'000]"},
    {"n_number_slash", "[1/2]"},
    {"n_number_percent", "[50%]"},
    {"n_number_sum", "[1+2]"},
    {"n_number_minus_infinity", "[-Infinity]"},
    {"n_number_minus_inf", "[-inf]"},
    {"n_number_minus_nan", "[-NaN]"},
    {"n_number_plus_nan", "[+nan]"},
    {"n_number_bracket_inside", "[1[2]"},
    {"n_number_curly_inside", "[1{2]"},
    {"n_number_string_inside", R"([1"a"])"},
    {"n_number_colon_inside", "1:2"},
    {"n_number_names_inside", R"({"a": 1b: 2})"},
    {"n_number_number_sign_inside", "[1#2]"},
    {"n_number_utf8_digit", "[\xef\xbc\x91]"},
    {"n_number_utf8_behind", "[1\xc3\xa9]"},
    {"n_number_comma_decimal", R"({"a": 1,5})"},
    {"n_string_open", "[\"a"},
    {"n_string_open_escape", "[\"a\\"},
    {"n_string_open_escaped_quote", "[\"a\\\"]"},
    {"n_string_lonely_quote", "\""},
    {"n_string_single_quotes", "'a'"},
    {"n_string_backquotes", "[`a`]"},
    {"n_string_escape_x", R"(["\x41"])"},
    {"n_string_escape_a", R"(["\a"])"},
    {"n_string_escape_v", R"(["\v"])"},
    {"n_string_escape_zero", R"(["\0"])"},
    {"n_string_escape_apostrophe", R"(["\'"])"},
    {"n_string_escape_upper_case", R"(["\N\T\U0041"])"},
    {"n_string_escape_blank", R"(["\ "])"},
    {"n_string_escape_newline", "[\"a\\\nb\"]"},
    {"n_string_escape_byte", "[\"\\\xc3\xa9\"]"},
    {"n_string_escape_u_short", R"(["\u004"])"},
    {"n_string_escape_u_none", R"(["\u"])"},
    {"n_string_escape_u_letters", R"(["\u00G1"])"},
    {"n_string_escape_u_braces", R"(["\u{41}"])"},
    {"n_string_raw_newline", "[\"a\nb\"]"},
    {"n_string_raw_tab", "[\"a\tb\"]"},
    {"n_string_raw_zero", "[\"a\0b\"]"s},
    {"n_string_raw_escape", "[\"\x1b\"]"},
    {"n_object_name_raw_tab", "{\"a\tb\": 1}"},
    {"n_string_concatenated", R"(["a" + "b"])"},
    {"n_string_behind_string", R"(["a""b"])"},
    {"n_string_bare_behind", R"(["a"b])"},
};
// clang-format on

#ifdef RAVCTL_HAS_JSON_LIBRARIES

// --- The rules of our language that deliberately differ from the standard

constexpr const char* kEmptyName =
    "a scalar under an empty name is an error, an array or object there is read and dropped";
constexpr const char* kEscapeU =
    "a backslash and a u become a question mark, and the digits after them are ordinary text";
constexpr const char* kOtherEscapes =
    "a backslash and an apostrophe become an apostrophe; a backslash and an unknown byte become a question mark";
constexpr const char* kMinusZero = "a number equal to 0 is the shared 0, which has no sign";
constexpr const char* kTooLarge = "a number too large for a double is infinite, as with strtod";
constexpr const char* kBytes = "strings and names are bytes; their encoding is not checked";
constexpr const char* kByteOrderMark = "a byte order mark is not whitespace";
constexpr const char* kZeroByte = "a zero byte does not end a text of given length, and it is not a token";
constexpr const char* kOpenString = "a string without a closing quote ends the text without an error";
constexpr const char* kCommaBehind = "a closing bracket is accepted after a comma";
constexpr const char* kNameWithoutValue = "a closing curly bracket drops a name without a value";
constexpr const char* kBareName = "a name may be a bare word of letters, points and underscores";
constexpr const char* kRawControl = "a control byte in a string is an ordinary byte";
constexpr const char* kNumberToSeparator =
    "a number ends at the next comma, closing bracket or whitespace, and strtod reads its value";
constexpr const char* kRules[] = {
    kEmptyName, kEscapeU,    kOtherEscapes, kMinusZero,        kTooLarge, kBytes,      kByteOrderMark,
    kZeroByte,  kOpenString, kCommaBehind,  kNameWithoutValue, kBareName, kRawControl, kNumberToSeparator};

constexpr const char* kRefused = "refused";

enum Library { rapid = 1, nlohmannJson = 2, both = 3 };

struct Difference {
  const char* name;
  Library library;  // the library whose result differs from ours
  const char* rule;
  const char* ours;
};

// clang-format off
const Difference kDifferences[] = {
    {"y_object_name_empty_of_scalar", both, kEmptyName, kRefused},
    {"y_object_name_empty_of_array", both, kEmptyName, "{'a':2}"},
    {"y_object_name_empty_of_object", both, kEmptyName, "{'a':2}"},
    {"y_object_name_escape_u", both, kEscapeU, "{'?0061':1}"},
    {"y_number_minus_zero_fraction", both, kMinusZero, "[0]"},
    {"y_string_escape_u_letter", both, kEscapeU, "['?0041']"},
    {"y_string_escape_u_lower_case", both, kEscapeU, "['?00e9']"},
    {"y_string_escape_u_zero", both, kEscapeU, "['a?0000b']"},
    {"y_string_escape_u_control", both, kEscapeU, "['?001f']"},
    {"y_string_escape_u_pair", both, kEscapeU, "['?D834?DD1E']"},
    {"y_string_escape_u_quote", both, kEscapeU, "['?0022']"},
    {"y_string_escape_u_backslash", both, kEscapeU, "['?005C']"},
    {"i_number_too_large", both, kTooLarge, "[inf]"},
    {"i_number_too_large_negative", both, kTooLarge, "[-inf]"},
    {"i_number_large_exponent", both, kTooLarge, "[inf]"},
    {"i_number_just_too_large", nlohmannJson, kTooLarge, "[inf]"},
    {"i_number_too_small_negative", both, kMinusZero, "[0]"},
    {"i_string_surrogate_alone", both, kEscapeU, "['?D800']"},
    {"i_string_surrogate_second_alone", both, kEscapeU, "['?DC00']"},
    {"i_string_surrogates_swapped", both, kEscapeU, "['?DD1E?D834']"},
    {"i_string_surrogate_and_letter", both, kEscapeU, "['?D834a']"},
    {"i_string_byte_80", both, kBytes, "['<80>']"},
    {"i_string_byte_ff", both, kBytes, "['<ff>']"},
    {"i_string_utf8_cut", both, kBytes, "['<e2><82>']"},
    {"i_string_utf8_overlong", both, kBytes, "['<c0><af>']"},
    {"i_string_utf8_surrogate", both, kBytes, "['<ed><a0><80>']"},
    {"i_string_utf8_beyond", both, kBytes, "['<f4><90><80><80>']"},
    {"i_string_latin1", both, kBytes, "['caf<e9>']"},
    {"i_object_name_invalid_utf8", both, kBytes, "{'<ff>':1}"},
    {"i_structure_bom", both, kByteOrderMark, kRefused},
    {"i_structure_zero_byte_behind", both, kZeroByte, kRefused},
    {"i_structure_zero_byte_and_text", both, kZeroByte, kRefused},
    {"n_structure_open_string_behind", both, kOpenString, "[1]"},
    {"n_structure_quote_behind", both, kOpenString, "{}"},
    {"n_array_comma_behind", both, kCommaBehind, "[1]"},
    {"n_array_comma_behind_nested", both, kCommaBehind, "[[1]]"},
    {"n_array_comma_behind_blank", both, kCommaBehind, "[1]"},
    {"n_array_colon_numbers", both, kNumberToSeparator, "[1]"},
    {"n_object_comma_behind", both, kCommaBehind, "{'a':1}"},
    {"n_object_comma_behind_blank", both, kCommaBehind, "{'a':1}"},
    {"n_object_no_value", both, kNameWithoutValue, "{}"},
    {"n_object_no_value_nested", both, kNameWithoutValue, "{'x':{},'y':1}"},
    {"n_object_no_value_behind", both, kNameWithoutValue, "{'a':1}"},
    {"n_object_name_alone", both, kNameWithoutValue, "{}"},
    {"n_object_name_alone_behind", both, kNameWithoutValue, "{'a':1}"},
    {"n_object_name_alone_in_array", both, kNameWithoutValue, "[{}]"},
    {"n_object_colon_behind", both, kNumberToSeparator, "{'a':1}"},
    {"n_object_name_bare", both, kBareName, "{'a':1}"},
    {"n_object_name_bare_dotted", both, kBareName, "{'a.b_c':1}"},
    {"n_object_name_bare_first_behind", both, kBareName, "{'a':1,'b':2}"},
    {"n_number_plus", both, kNumberToSeparator, "[1]"},
    {"n_number_plus_plus", both, kNumberToSeparator, "[0]"},
    {"n_number_minus_minus", both, kNumberToSeparator, "[0]"},
    {"n_number_minus_alone", both, kNumberToSeparator, "[0]"},
    {"n_number_plus_alone", both, kNumberToSeparator, "[0]"},
    {"n_number_point_alone", both, kNumberToSeparator, "[0]"},
    {"n_number_minus_point", both, kNumberToSeparator, "[0]"},
    {"n_number_no_whole_part", both, kNumberToSeparator, "[0.5]"},
    {"n_number_no_whole_part_negative", both, kNumberToSeparator, "[-0.5]"},
    {"n_number_no_fraction", both, kNumberToSeparator, "[1]"},
    {"n_number_no_fraction_exponent", both, kNumberToSeparator, "[1000]"},
    {"n_number_two_points", both, kNumberToSeparator, "[1.2]"},
    {"n_number_leading_zero", both, kNumberToSeparator, "[12]"},
    {"n_number_leading_zero_negative", both, kNumberToSeparator, "[-12]"},
    {"n_number_leading_zero_fraction", both, kNumberToSeparator, "[0.5]"},
    {"n_number_no_exponent", both, kNumberToSeparator, "[1]"},
    {"n_number_no_exponent_sign", both, kNumberToSeparator, "[1]"},
    {"n_number_exponent_fraction", both, kNumberToSeparator, "[100]"},
    {"n_number_exponent_twice", both, kNumberToSeparator, "[100]"},
    {"n_number_hexadecimal", both, kNumberToSeparator, "[31]"},
    {"n_number_hexadecimal_exponent", both, kNumberToSeparator, "[16]"},
    {"n_number_hexadecimal_cut", both, kNumberToSeparator, "[0]"},
    {"n_number_octal", both, kNumberToSeparator, "[0]"},
    {"n_number_letters_behind", both, kNumberToSeparator, "[12]"},
    {"n_number_underscore", both, kNumberToSeparator, "[1]"},
    {"n_number_apostrophe", both, kNumberToSeparator, "[1]"},
    {"n_number_slash", both, kNumberToSeparator, "[1]"},
    {"n_number_percent", both, kNumberToSeparator, "[50]"},
    {"n_number_sum", both, kNumberToSeparator, "[1]"},
    {"n_number_minus_infinity", both, kNumberToSeparator, "[-inf]"},
    {"n_number_minus_inf", both, kNumberToSeparator, "[-inf]"},
    {"n_number_minus_nan", both, kNumberToSeparator, "[nan]"},
    {"n_number_plus_nan", both, kNumberToSeparator, "[nan]"},
    {"n_number_bracket_inside", both, kNumberToSeparator, "[1]"},
    {"n_number_curly_inside", both, kNumberToSeparator, "[1]"},
    {"n_number_string_inside", both, kNumberToSeparator, "[1]"},
    {"n_number_colon_inside", both, kNumberToSeparator, "1"},
    {"n_number_number_sign_inside", both, kNumberToSeparator, "[1]"},
    {"n_number_utf8_behind", both, kNumberToSeparator, "[1]"},
    {"n_string_escape_x", both, kOtherEscapes, "['?41']"},
    {"n_string_escape_a", both, kOtherEscapes, "['?']"},
    {"n_string_escape_v", both, kOtherEscapes, "['?']"},
    {"n_string_escape_zero", both, kOtherEscapes, "['?']"},
    {"n_string_escape_apostrophe", both, kOtherEscapes, "[''']"},
    {"n_string_escape_upper_case", both, kOtherEscapes, "['???0041']"},
    {"n_string_escape_blank", both, kOtherEscapes, "['?']"},
    {"n_string_escape_newline", both, kOtherEscapes, "['a?b']"},
    {"n_string_escape_byte", both, kOtherEscapes, "['?<a9>']"},
    {"n_string_escape_u_short", both, kEscapeU, "['?004']"},
    {"n_string_escape_u_none", both, kEscapeU, "['?']"},
    {"n_string_escape_u_letters", both, kEscapeU, "['?00G1']"},
    {"n_string_escape_u_braces", both, kEscapeU, "['?{41}']"},
    {"n_string_raw_newline", both, kRawControl, "['a<0a>b']"},
    {"n_string_raw_tab", both, kRawControl, "['a<09>b']"},
    {"n_string_raw_zero", both, kRawControl, "['a<00>b']"},
    {"n_string_raw_escape", both, kRawControl, "['<1b>']"},
    {"n_object_name_raw_tab", both, kRawControl, "{'a<09>b':1}"},
};
// clang-format on

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
  std::map<std::string, const Difference*> rows;
  for (const Difference& row : kDifferences) EXPECT_TRUE(rows.emplace(row.name, &row).second) << row.name << " twice";
  for (const Case& c : kCases) {
    SCOPED_TRACE(std::string(c.name) + ": " + shownBytes(c.text));
    const std::string answer = ours(c.text);
    const std::string answers[] = {rapidJsons(c.text), nlohmanns(c.text)};
    const int differing = (answer != answers[0] ? rapid : 0) | (answer != answers[1] ? nlohmannJson : 0);
    const auto row = rows.find(c.name);
    const bool isExplained = row != rows.end();
    EXPECT_EQ(differing, isExplained ? row->second->library : 0)
        << "ours: " << answer << "\nrapidjson: " << answers[0] << "\nnlohmann: " << answers[1];
    if (!isExplained) continue;
    EXPECT_EQ(answer, row->second->ours) << row->second->rule;
    rows.erase(row);
  }
  for (const auto& [name, row] : rows) ADD_FAILURE() << "the row " << name << " does not belong to any difference";
}

TEST(JsonDifferential, EveryRuleExplainsADifference) {
  std::set<std::string_view> shown;
  for (const Difference& row : kDifferences) shown.insert(row.rule);
  for (const char* rule : kRules) EXPECT_EQ(shown.erase(rule), 1u) << rule;
  EXPECT_TRUE(shown.empty());
}

// Both libraries accept the y_ cases and refuse the n_ cases.
TEST(JsonDifferential, FirstLetterOfACaseNameMatchesTheStrictParsers) {
  std::set<std::string> names;
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_TRUE(names.insert(c.name).second) << "two cases have this name";
    const bool isTakenByBoth = rapidJsons(c.text) != kRefused && nlohmanns(c.text) != kRefused;
    const bool isRefusedByBoth = rapidJsons(c.text) == kRefused && nlohmanns(c.text) == kRefused;
    if (c.name[0] == 'y') {
      EXPECT_TRUE(isTakenByBoth);
    } else if (c.name[0] == 'n') {
      EXPECT_TRUE(isRefusedByBoth);
    } else {
      EXPECT_EQ(c.name[0], 'i');
    }
  }
}

#else

TEST(JsonDifferential, EachDifferenceFromTheStandardIsAStatedRule) {
  GTEST_SKIP() << "rapidjson-dev and nlohmann-json3-dev are not installed";
}

#endif

}  // namespace
