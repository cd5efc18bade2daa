// JsonWriter: the text of a JSON value, in one line.
//
//   std::string line;
//   json::write(line, document.get());      // { "status":0, "list":[ 1, true ] }
//
// Every function appends to the caller's text and returns it; a null pointer and a value of another kind append
// nothing. The spacing is part of the format that users and scripts see: "{ }" and "[ ]" when empty, one blank inside
// the brackets, ", " between entries, none behind a colon. Members come in their stored order.
//
// What reads back differently, each deliberate: backslashes and slashes are written as they are, member names are not
// escaped, bytes of 128 and above become "?" one by one, control bytes without a short form become \u and four
// upper-case digits. Nesting may be of any depth.
#pragma once

#include <string>
#include <vector>

#include "json/JsonModel.h"

namespace json {

// Any kind; a value without a kind appends nothing.
std::string& write(std::string& text, const jsObject* value);

std::string& writeObject(std::string& text, const jsObject* object);
std::string& writeArray(std::string& text, const jsObject* array);
std::string& writeString(std::string& text, const jsObject* string);
// Integral numbers (json::isIntegral) as "%d", all others as "%f": 3, 2.500000, -2.000000.
std::string& writeNumber(std::string& text, const jsObject* number);
std::string& writeBoolean(std::string& text, const jsObject* boolean);
std::string& writeNull(std::string& text, const jsObject* null);

// Empties `list`, then adds one text for each element: a string's own text, without quotes and escapes; the JSON text
// of anything else.
void arrayToStrings(std::vector<std::string>& list, const jsObject* array);

}  // namespace json
