#include "command/entry/Catalogue.h"

#include <iterator>
#include <string_view>
#include <utility>

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

// The `id` of a row.
enum Id : int {
  createProfile,
  modifyProfile,
  showProfile,
  activateProfile,
  deleteProfile,
  renameProfile,
  resetProfile,
  getLog,
  getInterfaces,
  getVersions,
  getProfiles,
  startService,
  stopService,
  bounceService,
  showStatus,
  supportBundle,
  json,
  usage,
  help,
  reference
};

constexpr CommandForm twoWords = CommandForm::twoWords;
constexpr CommandForm twoWordsAndName = CommandForm::twoWordsAndName;

// The rows stand in the order of the reference page. The double and triple blanks and the typographic quotes are part
// of the texts.
constexpr CommandRow rows[] = {
    {createProfile, "profile create", twoWordsAndName, " <new profile name>", " <new profile name>",
     "Creates a new profile.   The name and helmsor settings are required."},
    {modifyProfile, "profile modify", twoWordsAndName, " <profile name>", " <profile name>",
     "Changes one or more of the configured properties of the profile."},
    {showProfile, "profile details", twoWordsAndName, " <profile name>", " <profile name>",
     "Displays the configuration associated with the given profile."},
    {activateProfile, "profile activate", twoWordsAndName, " <profile name>", " <profile name>",
     "Makes the given profile the active profile, possibly restarting the service along the way."},
    {deleteProfile, "profile delete", twoWordsAndName, " <profile name>", " <profile name>", "Removes a profile."},
    {renameProfile, "profile rename", twoWordsAndName, " <profile name>", " <profile name>",
     "Changes the name of the profile.  This is a shorthand for ‘profile modify <profile name> new_name=<string>’"},
    {resetProfile, "support reset", twoWordsAndName, " <profile name>", " <profile name>",
     "Removes various temporary files associated with the profile, giving it a clean restart."},
    {getLog, "list log", twoWordsAndName, "", " <profile name>",
     "Displays an extract from the hip.log file for the given profile."},
    {getInterfaces, "list interfaces", twoWords, "", "",
     "Reports the names of network interfaces on the system that are suitable for selection as the HIP underlay."},
    {getVersions, "list versions", twoWords, "", "",
     "Displays version numbers for various pieces of the installed HIP application."},
    {getProfiles, "list profiles", twoWords, "", "",
     "Displays a list of the configured profiles, showing the directory and profile name for each one."},
    {startService, "service start", twoWords, "", "", "Starts the zuv-hipd background process."},
    {stopService, "service stop", twoWords, "", "", "Stops the zuv-hipd background process."},
    {bounceService, "service restart", twoWords, "", "",
     "Stops the zuv-hipd background process if it is running, and then starts it up again."},
    {showStatus, "service status", twoWords, "", "",
     "Displays a report about the zuv-hipd background process: whether it is running, and some information about its "
     "connections."},
    {supportBundle, "support bundle", twoWords, "", "", "Writes a new support bundle to the Logs directory."},
    {json, "json <object>", CommandForm::wordAndArgument, " <json object>", " <json object>",
     "Executes a command given in JSON form."},
    {usage, "usage", CommandForm::allWords, "", "", "Displays in short how commands are given."},
    {help, "help", CommandForm::allWords, "", " [<category> | <command name>]",
     "Displays the commands by category, or the entry of one command."},
    {reference, "reference", CommandForm::allWords, "", "",
     "Displays the entries of all commands, and the fields of their results."},
};

constexpr CommandAlias aliases[] = {
    {"show log", "list log"},           {"service bounce", "service restart"}, {"show interfaces", "list interfaces"},
    {"show profiles", "list profiles"}, {"show versions", "list versions"},
};

Made make(const CommandRow& row, const std::string& argument, const Words& words);
constexpr CommandTable table = {make, rows, std::size(rows), aliases, std::size(aliases)};

template <typename Command>
Made makePlain(const std::string&, const Words&) {
  return std::make_unique<Command>();
}

template <typename Command>
Made makeWith(const std::string& argument, const Words&) {
  return std::make_unique<Command>(argument);
}

Made makeHelp(const std::string&, const Words& words) { return std::make_unique<Hipcmd_SimpleHelp>(words, table); }
Made makeReference(const std::string&, const Words&) { return std::make_unique<Hipcmd_ReferenceHelp>(table); }

// Pointers to functions are relocated at each start, so they are not in the rows: the pages of the rows stay read-only.
struct Maker {
  Id id;
  Made (*make)(const std::string& argument, const Words& words);
};

constexpr Maker makers[] = {
    {createProfile, makeWith<Hipcmd_CreateProfile>},
    {modifyProfile, makeWith<Hipcmd_ModifyProfile>},
    {showProfile, makeWith<Hipcmd_ShowProfile>},
    {activateProfile, makeWith<Hipcmd_ActivateProfile>},
    {deleteProfile, makeWith<Hipcmd_DeleteProfile>},
    {renameProfile, makeWith<Hipcmd_RenameProfile>},
    {resetProfile, makeWith<Hipcmd_ProfileReset>},
    {getLog, makeWith<Hipcmd_GetHipLog>},
    {getInterfaces, makePlain<Hipcmd_GetInterfaces>},
    {getVersions, makePlain<Hipcmd_GetVersions>},
    {getProfiles, makePlain<Hipcmd_GetProfiles>},
    {startService, makePlain<Hipcmd_ServiceStart>},
    {stopService, makePlain<Hipcmd_ServiceStop>},
    {bounceService, makePlain<Hipcmd_ServiceBounce>},
    {showStatus, makePlain<Hipcmd_ShowStatus>},
    {supportBundle, makePlain<Hipcmd_SupportBundle>},
    {json, makeWith<Hipcmd_JsonCommand>},
    {usage, makePlain<Hipcmd_Usage>},
    {help, makeHelp},
    {reference, makeReference},
};

template <typename Indices>
struct Makers;
template <std::size_t... at>
struct Makers<std::index_sequence<at...>> {
  static constexpr bool standInTheOrderOfTheirIds = ((static_cast<std::size_t>(makers[at].id) == at) && ...);
};
static_assert(std::size(makers) == std::size(rows) &&
                  Makers<std::make_index_sequence<std::size(makers)>>::standInTheOrderOfTheirIds,
              "make() takes the id of a row as an index");

Made make(const CommandRow& row, const std::string& argument, const Words& words) {
  return makers[row.id].make(argument, words);
}

// Returns the number of words that a form requires. The last of them is the argument of the command.
std::size_t wordsRequiredBy(CommandForm form) {
  switch (form) {
    case CommandForm::twoWordsAndName:
      return 3;
    case CommandForm::twoWords:
    case CommandForm::wordAndArgument:
      return 2;
    case CommandForm::allWords:
      break;
  }
  return 1;
}

// Returns the row that the words name, or null. `words` has at least one element.
const CommandRow* findRow(const Words& words) {
  const CommandRow* row = words.size() < 2 ? nullptr : table.findTwoWords(words[0], words[1]);
  if (row == nullptr) row = table.findOneWord(words[0]);
  return row != nullptr && words.size() >= wordsRequiredBy(row->form) ? row : nullptr;
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
  const std::size_t required = wordsRequiredBy(row->form);
  consumed = static_cast<int>(row->form == CommandForm::allWords ? words.size() : required);
  return table.make(*row, words[required - 1], words);
}
