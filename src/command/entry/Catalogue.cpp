#include "command/entry/Catalogue.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "command/commands/HelpCommands.h"
#include "command/commands/JsonCommand.h"
#include "command/framework/CommandTable.h"
#include "profiles/commands/HostReports.h"
#include "profiles/commands/ProfileChangeCommands.h"
#include "profiles/commands/ProfileCommands.h"
#include "service/commands/LogCommands.h"
#include "service/commands/ServiceCommands.h"

namespace {

using Made = std::unique_ptr<RavctlCommandInstance>;
using Words = std::vector<std::string>;

template <typename Command>
Made make(const std::string&, const Words&) {
  return std::make_unique<Command>();
}

template <typename Command>
Made makeWith(const std::string& argument, const Words&) {
  return std::make_unique<Command>(argument);
}

Made makeHelp(const std::string&, const Words& words);
Made makeReference(const std::string&, const Words&);

constexpr CommandForm twoWords = CommandForm::twoWords;
constexpr CommandForm twoWordsAndName = CommandForm::twoWordsAndName;
constexpr const char* ofProfile = " <profile name>";

// The rows stand in the order of the reference page. The double and triple blanks and the typographic quotes are part
// of the texts.
constexpr CommandRow rows[] = {
    {"profile create", twoWordsAndName, " <new profile name>", " <new profile name>",
     "Creates a new profile.   The name and helmsor settings are required.", makeWith<Hipcmd_CreateProfile>},
    {"profile modify", twoWordsAndName, ofProfile, ofProfile,
     "Changes one or more of the configured properties of the profile.", makeWith<Hipcmd_ModifyProfile>},
    {"profile details", twoWordsAndName, ofProfile, ofProfile,
     "Displays the configuration associated with the given profile.", makeWith<Hipcmd_ShowProfile>},
    {"profile activate", twoWordsAndName, ofProfile, ofProfile,
     "Makes the given profile the active profile, possibly restarting the service along the way.",
     makeWith<Hipcmd_ActivateProfile>},
    {"profile delete", twoWordsAndName, ofProfile, ofProfile, "Removes a profile.", makeWith<Hipcmd_DeleteProfile>},
    {"profile rename", twoWordsAndName, ofProfile, ofProfile,
     "Changes the name of the profile.  This is a shorthand for ‘profile modify <profile name> new_name=<string>’",
     makeWith<Hipcmd_RenameProfile>},
    {"support reset", twoWordsAndName, ofProfile, ofProfile,
     "Removes various temporary files associated with the profile, giving it a clean restart.",
     makeWith<Hipcmd_ProfileReset>},
    {"list log", twoWordsAndName, "", ofProfile, "Displays an extract from the hip.log file for the given profile.",
     makeWith<Hipcmd_GetHipLog>},
    {"list interfaces", twoWords, "", "",
     "Reports the names of network interfaces on the system that are suitable for selection as the HIP underlay.",
     make<Hipcmd_GetInterfaces>},
    {"list versions", twoWords, "", "", "Displays version numbers for various pieces of the installed HIP application.",
     make<Hipcmd_GetVersions>},
    {"list profiles", twoWords, "", "",
     "Displays a list of the configured profiles, showing the directory and profile name for each one.",
     make<Hipcmd_GetProfiles>},
    {"service start", twoWords, "", "", "Starts the zuv-hipd background process.", make<Hipcmd_ServiceStart>},
    {"service stop", twoWords, "", "", "Stops the zuv-hipd background process.", make<Hipcmd_ServiceStop>},
    {"service restart", twoWords, "", "",
     "Stops the zuv-hipd background process if it is running, and then starts it up again.",
     make<Hipcmd_ServiceBounce>},
    {"service status", twoWords, "", "",
     "Displays a report about the zuv-hipd background process: whether it is running, and some information about its "
     "connections.",
     make<Hipcmd_ShowStatus>},
    {"support bundle", twoWords, "", "", "Writes a new support bundle to the Logs directory.",
     make<Hipcmd_SupportBundle>},
    {"json <object>", CommandForm::wordAndArgument, " <json object>", " <json object>",
     "Executes a command given in JSON form.", makeWith<Hipcmd_JsonCommand>},
    {"usage", CommandForm::allWords, "", "", "Displays in short how commands are given.", make<Hipcmd_Usage>},
    {"help", CommandForm::allWords, "", " [<category> | <command name>]",
     "Displays the commands by category, or the entry of one command.", makeHelp},
    {"reference", CommandForm::allWords, "", "",
     "Displays the entries of all commands, and the fields of their results.", makeReference},
};

constexpr CommandAlias aliases[] = {
    {"show log", "list log"},           {"service bounce", "service restart"}, {"show interfaces", "list interfaces"},
    {"show profiles", "list profiles"}, {"show versions", "list versions"},
};

constexpr CommandTable table = {rows, std::size(rows), aliases, std::size(aliases)};

Made makeHelp(const std::string&, const Words& words) { return std::make_unique<Hipcmd_SimpleHelp>(words, table); }
Made makeReference(const std::string&, const Words&) { return std::make_unique<Hipcmd_ReferenceHelp>(table); }

// The number of words that a form requires, and the index of the word that is passed to the command (0: none).
struct FormRule {
  CommandForm form;
  std::size_t needed;
  std::size_t argument;
};
constexpr FormRule formRules[] = {
    {CommandForm::twoWords, 2, 0},
    {CommandForm::twoWordsAndName, 3, 2},
    {CommandForm::wordAndArgument, 2, 1},
    {CommandForm::allWords, 1, 0},
};
static_assert(std::size(formRules) == static_cast<std::size_t>(CommandForm::allWords) + 1, "each form has a rule");

const FormRule& ruleOf(const CommandRow& row) {
  return *std::find_if(std::begin(formRules), std::end(formRules),
                       [&](const FormRule& rule) { return rule.form == row.form; });
}

// Returns the row that the words name, or null. `words` has at least one element.
const CommandRow* findRow(const Words& words) {
  const CommandRow* row = words.size() < 2 ? nullptr : table.findTwoWords(words[0], words[1]);
  if (row == nullptr) row = table.findOneWord(words[0]);
  return row != nullptr && words.size() >= ruleOf(*row).needed ? row : nullptr;
}

}  // namespace

const CommandTable& commandTable() { return table; }

std::unique_ptr<RavctlCommandInstance> findCommand(std::vector<std::string>& words, int& consumed) {
  consumed = noCommand;
  if (!words.empty() && words[0] == "ravctl") words.erase(words.begin());
  if (words.empty()) {
    consumed = 0;
    return std::make_unique<Hipcmd_Usage>();
  }
  const CommandRow* row = findRow(words);
  if (row == nullptr) return nullptr;
  const FormRule& rule = ruleOf(*row);
  consumed = static_cast<int>(row->form == CommandForm::allWords ? words.size() : rule.needed);
  return row->make(rule.argument == 0 ? std::string() : words[rule.argument], words);
}
