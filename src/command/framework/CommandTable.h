// The form of the command table: one row a command, from which words are looked up and all help is printed.
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
  twoWordsAndName,  // "profile create X": a third word must be there and is handed to the command
  wordAndArgument,  // "json X": any second word, handed to the command
  allWords          // "help ...": every word belongs to the command
};

struct CommandRow {
  const char* method;  // the words, and the command's name in output and help
  CommandForm form;
  const char* synopsis;     // what may follow the words, in short; the pages print `usage`
  const char* usage;        // behind the method name in usage lines
  const char* description;  // one paragraph
  // Makes the command. `argument` is the word handed to it, empty where its form has none; `words` are all words.
  std::unique_ptr<RavctlCommandInstance> (*make)(const std::string& argument, const std::vector<std::string>& words);
};

// Another name for a command's words.
struct CommandAlias {
  const char* words;
  const char* method;
};

// All rows, in the order of the reference page. Points to constant tables that live as long as the process.
struct CommandTable {
  const CommandRow* rows;
  std::size_t rowCount;
  const CommandAlias* aliases;
  std::size_t aliasCount;

  const CommandRow* begin() const { return rows; }
  const CommandRow* end() const { return rows + rowCount; }
  // The command that is named by exactly these two words, or has them as an alias; null when none.
  const CommandRow* findTwoWords(std::string_view first, std::string_view second) const;
  // The command that is named by one word alone ("help", "json"); null when none.
  const CommandRow* findOneWord(std::string_view word) const;
};
