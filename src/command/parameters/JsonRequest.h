// JsonRequest: builds the request object of a command. The program itself does not use it; it serves other callers.
//
//   ScopedJson request;
//   if (requestFromCommandWords(request, {"ravctl", "profile", "rename", "lab", "new_name=x"}).isSuccess()) ...
//   // { "method":"profile rename", "lab":"<single-word-command-present>", "new_name":"x",
//   //   "command_args":[ "profile", "rename", "lab", "new_name=x" ] }
//
// `words` begin with the path of the program, as argv does. The object has the member "method", one member for each
// parameter word, and the member "command_args". bind_json_args accepts only the parameters, so a caller must first
// remove "method" and "command_args" by setting them to a null pointer. Otherwise binding fails with the details
// "disregarding unused input: method".
#pragma once

#include <string>
#include <vector>

#include "command/status/StatusCodes.h"
#include "json/JsonModel.h"

// Parses a request that is given in exactly three words: the path of the program, "json", and the text of a JSON
// object. Returns the object, which the caller owns. Returns null for any other words, and if the text as a whole is
// not a JSON object.
[[nodiscard]] jsObject* requestFromJsonForm(const std::vector<std::string>& words);

// Builds the request of a command that is given in words:
//   "method"         words 1 and 2, joined by a blank
//   parameters       the words from 3 on (see setParameterWord); output-mode words are parameter words too
//   "command_args"   an array of all words from 1 on
// A word "method=..." replaces the value of "method". If there is a word "command_args=...", the array stands at the
// position of that word, and the value of the word is lost.
// Statuses: success, with the new object in `request`; "invalid command" for fewer than three words, with `request`
// unchanged.
Status requestFromCommandWords(ScopedJson& request, const std::vector<std::string>& words);
