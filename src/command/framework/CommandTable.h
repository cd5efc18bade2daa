// CommandTable: the structure of the command table. The table has one row for each command; it serves to find the
// command that the words name, and to print all help.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "command/framework/CommandCore.h"

// How words name a command.
enum class CommandForm {
  twoWords,         // "service start"
  twoWordsAndName,  // "profile create X": a third word is required and is passed to the command
  wordAndArgument,  // "json X": a second word, which may be any text, is required and is passed to the command
  allWords          // "help ...": every word belongs to the command
};

// The texts are arrays for the reason that StatusCodes.cpp gives.
struct CommandRow {
  int id;                                  // tells the commands of one table apart
  char method[sizeof "profile activate"];  // the words that name the command, and its name in output and help
  CommandForm form;
  // A short form of what may follow the words; no page prints it, the pages print `usage`.
  char synopsis[sizeof " <new profile name>"];
  char usage[sizeof " [<category> | <command name>]"];  // what follows the method name in usage lines
  char description[sizeof "Displays a report about the zuv-hipd background process: whether it is running, and some "
                          "information about its connections."];  // one paragraph
};

// Two other words that name a command. `method` is the method of a row, not the words of another alias.
struct CommandAlias {
  char words[sizeof "show interfaces"];
  char method[sizeof "service restart"];
};

// All rows, in the order of the reference page. It points to constant tables that live as long as the process.
struct CommandTable {
  // Makes the command of a row. `argument` is the last word that the form requires. In the forms twoWords and allWords
  // that is a word of the command's own name, and such commands ignore it. `words` are all words, without a leading
  // "ravctl". Help makes commands with both empty, only to read their parameters.
  std::unique_ptr<RavctlCommandInstance> (*make)(const CommandRow& row, const std::string& argument,
                                                 const std::vector<std::string>& words);
  const CommandRow* rows;
  std::size_t rowCount;
  const CommandAlias* aliases;
  std::size_t aliasCount;

  const CommandRow* begin() const { return rows; }
  const CommandRow* end() const { return rows + rowCount; }
  // Returns the command that exactly these two words name, directly or as an alias, or null if there is none.
  const CommandRow* findTwoWords(std::string_view first, std::string_view second) const;
  // Returns the command of a form with one naming word ("help", "json") that this word names, or null if there is none.
  const CommandRow* findOneWord(std::string_view word) const;
};
