// HelpCommands: the commands usage, help and reference, which explain the other commands. The entry of a command is
// printed from its row of the command table and from its parameters, so that it matches what the command accepts. The
// usage page, the summary, the category pages and the list of result fields are fixed texts in HelpCommands.cpp.
//
// These commands always succeed and print plain lines. The entry of one command begins with an empty line. An example:
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
// Hidden parameters are left out, brackets mean optional, and the three headings are always printed. The entry of a
// command that reports only its status ends with an empty line and a line that says so.
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

// help, help CATEGORY, help COMMAND WORDS. The constructor sets the quiet mode, so the text has no status lines unless
// "--verbose" is given.
//
// Output-mode words are skipped. The first match of these decides what is printed:
//   no word                                      the summary page
//   two words that name a command or its alias   the entry of that command
//   the first word is a category                 the page of that category
//   the first word names a command by itself     the entry of that command
//   anything else                                a line that names the words, then the summary page
class Hipcmd_SimpleHelp : public RavctlCommandInstance {
 public:
  // `words` are all command words, including "help". The table must outlive the command.
  Hipcmd_SimpleHelp(const std::vector<std::string>& words, const CommandTable& table);
  void execute(StatusCodeResultField& status) override;

 private:
  std::vector<std::string> subject_;  // without "help" and output-mode words; only two words count
  const CommandTable& table_;
  StringVectorResultField helptext_{"_helptext"};
};

// reference: prints the entries of all commands in the order of the table, then the fields of results. The table must
// outlive the command.
class Hipcmd_ReferenceHelp : public RavctlCommandInstance {
 public:
  explicit Hipcmd_ReferenceHelp(const CommandTable& table);
  void execute(StatusCodeResultField& status) override;

 private:
  const CommandTable& table_;
  StringVectorResultField helptext_{"_helptext"};
};
