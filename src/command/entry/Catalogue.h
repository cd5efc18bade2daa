// The catalogue: every command of the program, and how the words of the command line find one.
//
//   int consumed = noCommand;
//   std::unique_ptr<RavctlCommandInstance> command = findCommand(words, consumed);
//
// Words compare exactly. Commands that take a name need a third word, any text, which is handed to them; "json" needs a
// second one; the help words take all words.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "command/framework/CommandCore.h"
#include "command/framework/CommandTable.h"

// Every command, one row each.
const CommandTable& commandTable();

// The consumed count while no command was found.
constexpr int noCommand = -1;

// Makes the command that the words name, or none. A leading word "ravctl" is removed from `words` first, so that a
// request may repeat the program's name; nothing else left means the usage command. `consumed` gets the number of words
// that name the command: 1 to 3, all of them for the help words, noCommand for none.
std::unique_ptr<RavctlCommandInstance> findCommand(std::vector<std::string>& words, int& consumed);
