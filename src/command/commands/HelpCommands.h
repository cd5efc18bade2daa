// The commands that explain the others: usage, help and reference. Their text is printed from the rows of the command
// table and from the parameters of the commands made of them, so that it cannot drift from what the commands accept.
//
// All of them succeed and print bare lines. The entry of one command, after an empty line:
//
//   NAME
//           profile rename - Changes the name of the profile.  ...
//
//   USAGE
//           profile rename <profile name> new_name=<string>
//
//   PARAMETERS
//           new_name: string
//
// Hidden parameters are left out, brackets mean optional, and the three headings always stand. A command that reports
// nothing but its status says so in a last line of its own.
#pragma once

#include <string>
#include <vector>

#include "command/framework/CommandTable.h"

class Hipcmd_Usage : public RavctlCommandInstance {
 public:
  Hipcmd_Usage();
  void execute(StatusCodeResultField& status) override;

 private:
  StringVectorResultField helptext_{"_helptext"};
};

// help, help CATEGORY, help COMMAND WORDS. Quiet by construction: its text comes without status lines unless it fails.
//
// The longest match wins: two words that name a command, or are an alias of one, give the entry of that command; else
// the first word is looked for among the categories, then among the commands of one word. Words that match nothing are
// named in one line above the summary page. Output-mode words are passed over.
class Hipcmd_SimpleHelp : public RavctlCommandInstance {
 public:
  // `words` are all command words, "help" included; the table outlives the command.
  Hipcmd_SimpleHelp(const std::vector<std::string>& words, const CommandTable& table);
  void execute(StatusCodeResultField& status) override;

 private:
  std::vector<std::string> subject_;  // the words that ask for something: at most two
  const CommandTable& table_;
  StringVectorResultField helptext_{"_helptext"};
};

// reference: the entry of every command in the order of the table, then what results are made of.
class Hipcmd_ReferenceHelp : public RavctlCommandInstance {
 public:
  explicit Hipcmd_ReferenceHelp(const CommandTable& table);
  void execute(StatusCodeResultField& status) override;

 private:
  const CommandTable& table_;
  StringVectorResultField helptext_{"_helptext"};
};
