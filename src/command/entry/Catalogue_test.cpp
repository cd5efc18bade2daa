#include "command/entry/Catalogue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <typeindex>

#include "command/commands/HelpCommands.h"
#include "command/commands/JsonCommand.h"
#include "json/JsonModel.h"
#include "profiles/commands/HostReports.h"
#include "profiles/commands/ProfileChangeCommands.h"
#include "profiles/commands/ProfileCommands.h"
#include "service/commands/LogCommands.h"
#include "service/commands/ServiceCommands.h"
#include "service/host/SysImplParam.h"
#include "testing/run/Matchers.h"

namespace {

using Words = std::vector<std::string>;
using Command = std::unique_ptr<RavctlCommandInstance>;

Command find(Words words, int* consumed = nullptr) {
  int count = 77;
  Command command = findCommand(words, count);
  if (consumed != nullptr) *consumed = count;
  return command;
}

// Finds the command and binds its words, as the entry point does.
Status findAndBind(const Words& given, Command* command) {
  Words words = given;
  int consumed = noCommand;
  *command = findCommand(words, consumed);
  if (!*command) return Status::of(status::invalidCommand);
  const ScopedJson array(json::makeArray());
  for (const std::string& word : words) json::append(array.get(), json::makeString(word));
  return bindCommandWords(**command, array.get(), static_cast<std::size_t>(consumed));
}

template <typename Param>
const Param& param(const RavctlCommandInstance& command, const char* key) {
  return dynamic_cast<const Param&>(*findParam(command.params(), key));
}

// Splits "profile|create|X" into its words.
Words wordsOf(const std::string& text) {
  Words words = {""};
  for (const char c : text) {
    if (c == '|') {
      words.emplace_back();
    } else {
      words.back() += c;
    }
  }
  return words;
}

// "(new_name) helmsor!": "helmsor!" is required, "(new_name)" hidden.
std::string paramsOf(const RavctlCommandInstance& command) {
  std::string params;
  for (const InputParamBase* one : command.params()) {
    const std::string name = one->name() + (one->isRequired() ? "!" : "");
    params += (params.empty() ? "" : " ") + (one->isHidden() ? "(" + name + ")" : name);
  }
  return params;
}

// "status status, details profile-details": each field and its type
std::string resultsOf(const RavctlCommandInstance& command) {
  std::string results;
  for (const ResultParamBase* field : command.results()) {
    std::string word;
    field->typeWord(word);
    results += (results.empty() ? "" : ", ") + field->name() + " " + word;
  }
  return results;
}

// The expected properties of every command.
struct Expected {
  const char* method;
  std::type_index type;
  const char* words;    // one way to call the command, with exactly the words that it consumes
  const char* params;   // what follows the standard parameters
  const char* results;  // what follows the status
  const char* synopsis;
  const char* usage;  // what follows the method in the usage line
  const char* description;
};

const std::vector<Expected> kCatalogue = {
    {"profile create", typeid(Hipcmd_CreateProfile), "profile|create|X",
     " (new_name) allow_rename helmsor! network invitation log_level sys activate",
     ", details profile-details, profile_name string", " <new profile name>", " <new profile name>",
     "Creates a new profile.   The name and helmsor settings are required."},
    {"profile modify", typeid(Hipcmd_ModifyProfile), "profile|modify|X",
     " (profile) new_name helmsor network invitation log_level sys activate", ", details profile-details",
     " <profile name>", " <profile name>", "Changes one or more of the configured properties of the profile."},
    {"profile details", typeid(Hipcmd_ShowProfile), "profile|details|X", " (profile)", ", details profile-details",
     " <profile name>", " <profile name>", "Displays the configuration associated with the given profile."},
    {"profile activate", typeid(Hipcmd_ActivateProfile), "profile|activate|X", " (profile) sys",
     ", profile_name string", " <profile name>", " <profile name>",
     "Makes the given profile the active profile, possibly restarting the service along the way."},
    {"profile delete", typeid(Hipcmd_DeleteProfile), "profile|delete|X", " (profile)", "", " <profile name>",
     " <profile name>", "Removes a profile."},
    {"profile rename", typeid(Hipcmd_RenameProfile), "profile|rename|X", " (profile) new_name!",
     ", profile_name string", " <profile name>", " <profile name>",
     "Changes the name of the profile.  This is a shorthand for \xe2\x80\x98profile modify <profile name> "
     "new_name=<string>\xe2\x80\x99"},
    {"support reset", typeid(Hipcmd_ProfileReset), "support|reset|X", " (profile)", ", support reset string",
     " <profile name>", " <profile name>",
     "Removes various temporary files associated with the profile, giving it a clean restart."},
    {"list log", typeid(Hipcmd_GetHipLog), "list|log|X", " (profile) max_lines log_level",
     ", _log _log, profile_name string", "", " <profile name>",
     "Displays an extract from the hip.log file for the given profile."},
    {"list interfaces", typeid(Hipcmd_GetInterfaces), "list|interfaces", "", ", _interfaces _interfaces", "", "",
     "Reports the names of network interfaces on the system that are suitable for selection as the HIP underlay."},
    {"list versions", typeid(Hipcmd_GetVersions), "list|versions", "", ", hipapp_version string, ravctl_version string",
     "", "", "Displays version numbers for various pieces of the installed HIP application."},
    {"list profiles", typeid(Hipcmd_GetProfiles), "list|profiles", "",
     ", _profiles profile-list, current_dir string, current_name string, root_dir string", "", "",
     "Displays a list of the configured profiles, showing the directory and profile name for each one."},
    {"service start", typeid(Hipcmd_ServiceStart), "service|start", " sys", "", "", "",
     "Starts the zuv-hipd background process."},
    {"service stop", typeid(Hipcmd_ServiceStop), "service|stop", " sys", "", "", "",
     "Stops the zuv-hipd background process."},
    {"service restart", typeid(Hipcmd_ServiceBounce), "service|restart", " sys full", "", "", "",
     "Stops the zuv-hipd background process if it is running, and then starts it up again."},
    {"service status", typeid(Hipcmd_ShowStatus), "service|status", "", ", running bool, helmsor bool, tunnel bool", "",
     "",
     "Displays a report about the zuv-hipd background process: whether it is running, and some information about its "
     "connections."},
    {"support bundle", typeid(Hipcmd_SupportBundle), "support|bundle", "", ", output string", "", "",
     "Writes a new support bundle to the Logs directory."},
    {"json <object>", typeid(Hipcmd_JsonCommand), "json|X", " (object)", ", subcommand subcommand", " <json object>",
     " <json object>", "Executes a command given in JSON form."},
    {"usage", typeid(Hipcmd_Usage), "usage", "", ", _helptext _helptext", "", "",
     "Displays in short how commands are given."},
    {"help", typeid(Hipcmd_SimpleHelp), "help", "", ", _helptext _helptext", "", " [<category> | <command name>]",
     "Displays the commands by category, or the entry of one command."},
    {"reference", typeid(Hipcmd_ReferenceHelp), "reference", "", ", _helptext _helptext", "", "",
     "Displays the entries of all commands, and the fields of their results."},
};

// Checks the method and the class of the command that these words name, the number of naming words, and that only a
// leading name of the program is removed from the words.
void expectMade(const Words& words, const Expected& e, int consumed) {
  const bool named = !words.empty() && words[0] == "ravctl";
  Words left = words;
  int count = 77;
  const Command command = findCommand(left, count);
  ASSERT_NE(command, nullptr);
  const RavctlCommandInstance& made = *command;
  EXPECT_STREQ(made.status().method(), e.method);
  EXPECT_TRUE(std::type_index(typeid(made)) == e.type);
  EXPECT_EQ(count, consumed);
  EXPECT_EQ(left, Words(words.begin() + (named ? 1 : 0), words.end()));
}

TEST(Catalogue, EachCommandHasItsClassParametersAndResults) {
  for (const Expected& e : kCatalogue) {
    SCOPED_TRACE(e.method);
    const Words words = wordsOf(e.words);
    expectMade(words, e, static_cast<int>(words.size()));
    const Command command = find(words);
    ASSERT_NE(command, nullptr);
    EXPECT_EQ(paramsOf(*command), std::string("(auth) (requestID) (output)") + e.params);
    EXPECT_EQ(resultsOf(*command), std::string("status status") + e.results);
    EXPECT_EQ(command->status().status().code(), 0x12000001U);
  }
}

TEST(Catalogue, TheListsOfACommandHaveRoomForTheLongestOnesAndNoMore) {
  std::size_t mostParams = 0;
  std::size_t mostResults = 0;
  for (const CommandRow& row : commandTable()) {
    const Command command = commandTable().make(row, "", {});
    mostParams = std::max(mostParams, command->params().size());
    mostResults = std::max(mostResults, command->results().size());
    EXPECT_EQ(command->params().capacity(), 11U) << row.method;
    EXPECT_EQ(command->results().capacity(), 5U) << row.method;
  }
  EXPECT_EQ(mostParams, 11U);
  EXPECT_EQ(mostResults, 5U);
}

TEST(Catalogue, TheTableHasExactlyTheseRowsInThisOrder) {
  const CommandTable& table = commandTable();
  ASSERT_EQ(table.rowCount, kCatalogue.size());
  for (std::size_t i = 0; i < table.rowCount; ++i) {
    const Expected& e = kCatalogue[i];
    const CommandRow& row = table.rows[i];
    SCOPED_TRACE(e.method);
    EXPECT_STREQ(row.method, e.method);
    EXPECT_STREQ(row.synopsis, e.synopsis);
    EXPECT_STREQ(row.usage, e.usage);
    EXPECT_STREQ(row.description, e.description);
    // The command has the name of its row, so that help and output agree.
    EXPECT_STREQ(table.make(row, "", {})->status().method(), e.method);
  }
}

TEST(Catalogue, AParameterHasTheSameKindInEveryCommand) {
  const std::map<std::string, std::type_index> kinds = {{"auth", typeid(AuthParam)},
                                                        {"requestID", typeid(StringParam)},
                                                        {"output", typeid(StringParam)},
                                                        {"new_name", typeid(StringParam)},
                                                        {"allow_rename", typeid(BoolParam)},
                                                        {"helmsor", typeid(HelmsorParam)},
                                                        {"network", typeid(OptionalNetworkParam)},
                                                        {"invitation", typeid(OptionalActivationParam)},
                                                        {"log_level", typeid(OptionalLogLevelParam)},
                                                        {"sys", typeid(SysImplParam)},
                                                        {"activate", typeid(SingleWordParam)},
                                                        {"profile", typeid(OptionalProfileParam)},
                                                        {"max_lines", typeid(IntParam)},
                                                        {"full", typeid(SingleWordParam)},
                                                        {"object", typeid(StringParam)}};
  for (const Expected& e : kCatalogue) {
    const Command command = find(wordsOf(e.words));
    for (const InputParamBase* one : command->params()) {
      const InputParamBase& found = *one;
      EXPECT_TRUE(std::type_index(typeid(found)) == kinds.at(found.name())) << e.method << " " << found.name();
    }
  }
}

TEST(Catalogue, MaxLinesIsFiftyAndAllowRenameIsTrueByDefault) {
  Command command;
  EXPECT_THAT(findAndBind({"list", "log", "lab"}, &command), HasCode(status::success));
  EXPECT_EQ(param<IntParam>(*command, "max_lines").value(), 50);
  EXPECT_THAT(findAndBind({"list", "log", "lab", "max_lines=10"}, &command), HasCode(status::success));
  EXPECT_EQ(param<IntParam>(*command, "max_lines").value(), 10);
  EXPECT_THAT(findAndBind({"profile", "create", "lab", "helmsor=h"}, &command), HasCode(status::success));
  EXPECT_TRUE(param<BoolParam>(*command, "allow_rename").value());
}

TEST(Catalogue, TheWordBehindTheNameIsTheInitialValueOfAHiddenParameter) {
  const struct {
    Words words;
    const char* key;
  } cases[] = {
      {{"profile", "create", "", "helmsor=h"}, "new_name"},
      {{"profile", "modify", ""}, "profile"},
      {{"profile", "details", ""}, "profile"},
      {{"profile", "activate", ""}, "profile"},
      {{"profile", "delete", ""}, "profile"},
      {{"profile", "rename", "", "new_name=x"}, "profile"},
      {{"support", "reset", ""}, "profile"},
      {{"list", "log", ""}, "profile"},
      {{"show", "log", ""}, "profile"},
      {{"json", ""}, "object"},
  };
  for (const auto& c : cases) {
    for (const std::string given : {"lab", "", ".current", "dir=profile-1", "--active", "--json", "a=b", "%n%s", "\xff",
                                    R"({"method":"list profiles"})"}) {
      SCOPED_TRACE(testing::PrintToString(c.words) + " " + given);
      Words words = c.words;
      *std::find(words.begin(), words.end(), "") = given;
      Command command;
      ASSERT_THAT(findAndBind(words, &command), HasCode(status::success));
      const auto& name = param<TextParam>(*command, c.key);
      EXPECT_EQ(name.value(), given);
      EXPECT_TRUE(name.isHidden());
      EXPECT_FALSE(name.hasValue());
      EXPECT_EQ(command->mode().json, given == "--json");
      // A parameter word with that key overrides the initial value.
      words.push_back(std::string(c.key) + "=beta");
      ASSERT_THAT(findAndBind(words, &command), HasCode(status::success));
      EXPECT_EQ(param<TextParam>(*command, c.key).value(), "beta");
    }
  }
}

TEST(Catalogue, AMissingRequiredParameterFailsTheBinding) {
  const std::pair<Words, const char*> cases[] = {
      {{"profile", "create", "alpha"}, "illegal or missing parameter: helmsor"},
      {{"profile", "create", "alpha", "new_name=beta"}, "illegal or missing parameter: helmsor"},
      {{"profile", "create", "alpha", "helmsor="}, R"(illegal value presented: "")"},
      {{"profile", "rename", "alpha"}, "illegal or missing parameter: new_name"},
      {{"profile", "rename", "alpha", "beta"}, "disregarding unused input: beta"},
      {{"service", "start", "now"}, "disregarding unused input: now"},
      {{"service", "start", "full"}, "disregarding unused input: full"},
      {{"service", "start", "sys-impl"}, "parameter value required"},
      {{"service", "start", "sys=null", "sys-impl"}, "parameter value required"},
      {{"service", "start", "Sys-impl=null"}, "disregarding unused input: Sys-impl"},
      {{"service", "start", "sys=null", "sys-impl", "now"}, "parameter value required"},
      {{"service", "start", "sys=null", "now", "later", "sys-impl=b"}, "disregarding unused input: now"},
      {{"service", "status", "sys-impl=null"}, "disregarding unused input: sys-impl"},
      {{"profile", "create", "alpha", "helmsor=https:///x"}, R"(illegal value presented: "https:///x")"},
      {{"list", "profiles", "lab"}, "disregarding unused input: lab"},
      {{"support", "bundle", "out"}, "disregarding unused input: out"},
      {{"profile", "details", "alpha", "profile"}, "parameter value required"},
      {{"json", "{}", "{}"}, "disregarding unused input: {}"},
  };
  for (const auto& [words, details] : cases) {
    SCOPED_TRACE(testing::PrintToString(words));
    Command command;
    const Status bound = findAndBind(words, &command);
    EXPECT_THAT(bound, HasCode(status::invalidArgument));
    EXPECT_EQ(bound.details(), details);
  }
}

TEST(Catalogue, EveryCommandAcceptsTheStandardParameters) {
  for (const Expected& e : kCatalogue) {
    Words words = wordsOf(e.words);
    for (const std::string key : {"auth", "requestID", "output", "helmsor", "new_name"}) {
      if (findParam(find(wordsOf(e.words))->params(), key) != nullptr) words.push_back(key + "=x");
    }
    Command command;
    EXPECT_THAT(findAndBind(words, &command), HasCode(status::success)) << e.method;
  }
}

TEST(Catalogue, EveryCommandWithSysAlsoTakesSysImplAndTheLaterWordCounts) {
  const struct {
    Words words;
    const char* value;
  } cases[] = {
      {{"sys-impl=b"}, "b"},
      {{"sys=a", "sys-impl=b"}, "b"},
      {{"sys-impl=b", "sys=a"}, "a"},
      {{"sys=a", "sys-impl=b", "sys=c"}, "c"},
      {{"sys-impl=a", "sys=b", "--quiet", "sys-impl=c=d"}, "c=d"},
      {{"sys", "sys-impl=b"}, "b"},
  };
  const Words helpers = {"usage", "help", "reference"};
  Words takers;
  for (const Expected& e : kCatalogue) {
    const bool takesSys = findParam(find(wordsOf(e.words))->params(), "sys") != nullptr;
    if (takesSys) takers.emplace_back(e.method);
    const bool takesAnyWords = std::find(helpers.begin(), helpers.end(), e.method) != helpers.end();
    for (const auto& c : cases) {
      SCOPED_TRACE(e.method + testing::PrintToString(c.words));
      Words words = wordsOf(e.words);
      if (words == wordsOf("profile|create|X")) words.emplace_back("helmsor=h");
      words.insert(words.end(), c.words.begin(), c.words.end());
      Command command;
      const Status bound = findAndBind(words, &command);
      const std::string key = c.words[0].substr(0, c.words[0].find('='));
      EXPECT_EQ(bound.details(), takesSys || takesAnyWords ? "" : "disregarding unused input: " + key);
      if (takesSys) {
        EXPECT_EQ(param<SysImplParam>(*command, "sys").value(), c.value);
      }
    }
  }
  EXPECT_EQ(takers, (Words{"profile create", "profile modify", "profile activate", "service start", "service stop",
                           "service restart"}));
}

// --- Lookup

TEST(FindCommand, ConsumesTheWordsOfTheName) {
  const struct {
    const char* why;
    Words words;
    const char* method;
    int consumed;
  } cases[] = {
      {"show is an alias of list", {"show", "log", "X"}, "list log", 3},
      {"show is an alias of list", {"show", "interfaces"}, "list interfaces", 2},
      {"show is an alias of list", {"show", "profiles"}, "list profiles", 2},
      {"show is an alias of list", {"show", "versions"}, "list versions", 2},
      {"bounce is an alias of restart", {"service", "bounce"}, "service restart", 2},
      {"parameter words are not consumed", {"profile", "create", "X", "helmsor=h", "now"}, "profile create", 3},
      {"the name may be any text", {"profile", "delete", ""}, "profile delete", 3},
      {"the name may look like a parameter", {"profile", "details", "profile=lab"}, "profile details", 3},
      {"a third word is not part of a name of two words", {"service", "start", "now"}, "service start", 2},
      {"a request may be any text", {"json", ""}, "json <object>", 2},
      {"a request may be any text", {"json", "json"}, "json <object>", 2},
      {"words after the request are not consumed", {"json", "{}", "x"}, "json <object>", 2},
      {"help consumes all words", {"help", "profile", "create", "x=y"}, "help", 4},
      {"usage consumes all words", {"usage", "x", "--quiet"}, "usage", 3},
      {"reference consumes all words", {"reference", ""}, "reference", 2},
      {"the name of the program is removed", {"ravctl", "list", "profiles"}, "list profiles", 2},
      {"the name of the program is removed", {"ravctl", "help"}, "help", 1},
      {"it is removed only once", {"ravctl", "service", "start", "ravctl"}, "service start", 2},
      {"only the name of the program means usage", {"ravctl"}, "usage", 0},
      {"no word means usage", {}, "usage", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.why) + " " + testing::PrintToString(c.words));
    const auto isMeant = [&](const Expected& e) { return std::string(e.method) == c.method; };
    expectMade(c.words, *std::find_if(kCatalogue.begin(), kCatalogue.end(), isMeant), c.consumed);
  }
}

TEST(FindCommand, AnyOtherWordsNameNoCommand) {
  for (const char* words : {"",
                            "bogus",
                            "profile",
                            "profile|create",
                            "profile|activate",
                            "profile|delete",
                            "profile|details",
                            "profile|modify",
                            "profile|rename",
                            "list|log",
                            "show|log",
                            "support|reset",
                            "json",
                            "service",
                            "service|Start",
                            "Service|start",
                            "service|start ",
                            "service start",
                            "service|reload",
                            "profile|list",
                            "profile|show|X",
                            "list|status",
                            "show|status",
                            "list|profile",
                            "list|support",
                            "Usage",
                            "HELP",
                            "--help",
                            "Ravctl",
                            "Ravctl|list|profiles",
                            "ravctl|ravctl",
                            "ravctl|ravctl|list|profiles",
                            "--quiet|list|profiles",
                            "list|--quiet|profiles",
                            "|list|profiles",
                            "%n|%s",
                            "json <object>",
                            "list|profiles\n"}) {
    SCOPED_TRACE(words);
    int consumed = 77;
    EXPECT_EQ(find(wordsOf(words), &consumed), nullptr);
    EXPECT_EQ(consumed, -1);
  }
}

TEST(FindCommand, APrefixOfASecondWordNamesNoCommand) {
  for (const Expected& e : kCatalogue) {
    Words words = wordsOf(e.words);
    if (words.size() < 2 || words[0] == "json") continue;  // any text is valid as the second word of "json"
    while (!words[1].empty()) {
      words[1].pop_back();
      EXPECT_EQ(find(words), nullptr) << testing::PrintToString(words);
    }
  }
}

TEST(FindCommand, HelpGetsTheWordsWithoutALeadingNameOfTheProgram) {
  for (const Words& words : {Words{"help", "usage"}, Words{"ravctl", "help", "usage"}}) {
    SCOPED_TRACE(testing::PrintToString(words));
    const Command command = find(words);
    ASSERT_NE(command, nullptr);
    command->run();
    Words lines;
    renderOutput(*command, lines);
    EXPECT_EQ(lines.front(), "ravctl help for command: usage");
  }
}

}  // namespace
