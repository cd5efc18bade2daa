// JsonRequest: the request object of a command, built for callers outside the command line.
//
//   ScopedJson request;
//   if (requestFromCommandWords(request, {"ravctl", "profile", "rename", "lab", "new_name=x"}).isSuccess()) ...
//   // { "method":"profile rename", "lab":"<single-word-command-present>", "new_name":"x",
//   //   "command_args":[ "profile", "rename", "lab", "new_name=x" ] }
//
// `words` begin with the program's path, as argv does. The object has the members "method", one for each parameter
// word, and "command_args". Binding takes the parameters alone: set "method" and "command_args" to a null pointer
// first, which removes them, or bind_json_args fails with "disregarding unused input: method".
#pragma once

#include <string>
#include <vector>

#include "command/status/StatusCodes.h"
#include "json/JsonModel.h"

// The request written in exactly three words: program path, "json", and the text of a JSON object. Parses the whole
// text. The object is the caller's; null for any other words, and for a text that does not parse or is no object.
// What was parsed and is no object is freed. Without memory the process ends, here as below.
[[nodiscard]] jsObject* requestFromJsonForm(const std::vector<std::string>& words);

// Builds the request of a command given in words: the method is words 1 and 2 joined by a blank, the words from 3 on
// are parameter words (see setParameterWord; output-mode words are words like any other), and "command_args" are all
// words from 1 on. A word "method=..." replaces the method, in its place; one "command_args=..." gives its place to the
// array. Success, with the new object in `request`, or "invalid command" for fewer than three words; `request` is then
// as it was.
Status requestFromCommandWords(ScopedJson& request, const std::vector<std::string>& words);
