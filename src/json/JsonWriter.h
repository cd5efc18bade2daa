// JsonWriter: writes a JSON value as one line of text.
//
//   std::string line;
//   json::write(line, document.get());      // { "status":0, "list":[ 1, true ] }
//
// Each write function appends to the caller's text and returns it. For a null pointer or a value of another kind it
// appends nothing.
//
// The spacing is part of the format that users and scripts rely on: an empty object is "{ }" and an empty array "[ ]".
// Otherwise one space follows the opening bracket and one precedes the closing bracket, ", " separates the entries, and
// no space follows a colon. Members are written in their stored order. Nesting may be arbitrarily deep.
//
// These are deliberate; because of them, some texts do not read back as the same value:
// - Backslashes and slashes in strings are written unescaped.
// - Member names are written unescaped.
// - Each byte from 128 to 255 in a string becomes "?".
// - A control byte without a short escape becomes \u and four upper-case hexadecimal digits.
// - A number has at most six decimals.
#pragma once

#include <string>
#include <vector>

#include "json/JsonModel.h"

namespace json {

// Writes a value of any kind. A value whose kind is invalid appends nothing.
std::string& write(std::string& text, const jsObject* value);

std::string& writeObject(std::string& text, const jsObject* object);
std::string& writeArray(std::string& text, const jsObject* array);
std::string& writeString(std::string& text, const jsObject* string);
// A number for which json::isIntegral is true is formatted as "%d", any other as "%f": 3, 2.500000, -2.000000. The
// decimal point is a point in every locale.
std::string& writeNumber(std::string& text, const jsObject* number);
std::string& writeBoolean(std::string& text, const jsObject* boolean);
std::string& writeNull(std::string& text, const jsObject* null);

// Clears `list`, then adds one text per element of the array: the text of a string as it is stored, the JSON text
// of any other value.
void arrayToStrings(std::vector<std::string>& list, const jsObject* array);

}  // namespace json
