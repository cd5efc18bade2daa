// Catalogue: the table of all commands, and the search for the command that the words of the command line name.
//
//   int consumed = noCommand;
//   std::unique_ptr<RavctlCommandInstance> command = findCommand(words, consumed);
//
// Words are compared exactly. A command that takes a name requires a third word, and "json" requires a second word;
// that word may be any text and is passed to the command. "usage", "help" and "reference" consume all words.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "command/framework/CommandCore.h"
#include "command/framework/CommandTable.h"

// The table of all commands, a constant.
const CommandTable& commandTable();

// The value of `consumed` if no command was found.
constexpr int noCommand = -1;

// Returns a new object of the command that the words name, or null if they name none. First removes a leading word
// "ravctl" from `words`, so that a request may repeat the name of the program. If no word remains, returns the usage
// command. Sets `consumed` to the number of words that name the command: 1 to 3, all words for "usage", "help" and
// "reference", 0 if no word remains, and noCommand if there is no command.
std::unique_ptr<RavctlCommandInstance> findCommand(std::vector<std::string>& words, int& consumed);
