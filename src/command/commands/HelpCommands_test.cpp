#include "command/commands/HelpCommands.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "command/entry/Catalogue.h"
#include "testing/run/Matchers.h"

namespace {

using Lines = std::vector<std::string>;
using Words = std::vector<std::string>;

Lines linesOf(RavctlCommandInstance& command) {
  command.run();
  EXPECT_THAT(command.status().status(), HasCode(status::success));
  Lines lines;
  renderOutput(command, lines);
  return lines;
}

// Returns the help page for these words after "help".
Lines help(Words words, const CommandTable& table = commandTable()) {
  words.insert(words.begin(), "help");
  Hipcmd_SimpleHelp command(words, table);
  return linesOf(command);
}

const Lines kSummary = {
    "Look up commands by category:",
    "    'help profile' for managing your HIP profiles",
    "    'help service' for starting and stopping HIP processes",
    "    'help list' to display details of various things",
    "    'help log' to display or manage log files",
    "    'help support' for advanced operations commands",
    "Try 'reference' for the complete list of all commands, or start with these common ones:",
    "    'profile activate' designates which profile is currently active",
    "    'profile create' makes a new profile",
    "    'profile delete' removes a profile",
    "    'profile rename' changes the user-friendly name attached to a profile",
    "    'service start' runs the HIP background process",
    "    'service stop' ends the background process",
    "    'list profiles' provides a list of the configured profiles",
};

Lines notFound(const std::string& words) {
  Lines lines = {"ravctl help: nothing found for '" + words + "'"};
  lines.insert(lines.end(), kSummary.begin(), kSummary.end());
  return lines;
}

// --- usage

TEST(Usage, PrintsItsLines) {
  Hipcmd_Usage command;
  EXPECT_EQ(linesOf(command), (Lines{
                                  "ravctl usage:",
                                  "    <command name> <command-specific params> [--quiet | --verbose]",
                                  "    help",
                                  "    help <category>",
                                  "    help <command name>",
                                  "    reference",
                                  "    json <request object>",
                              }));
}

// --- help

TEST(Help, WithoutFurtherWordsItPrintsTheSummary) {
  for (const Words& words : {Words{}, Words{"--quiet"}, Words{"--json", "--text", "--verbose"}}) {
    EXPECT_EQ(help(words), kSummary) << testing::PrintToString(words);
  }
  Hipcmd_SimpleHelp withoutWords({}, commandTable());
  EXPECT_EQ(linesOf(withoutWords), kSummary);
}

TEST(Help, OnlyHelpIsQuietByDefault) {
  for (const CommandRow& row : commandTable()) {
    EXPECT_EQ(commandTable().make(row, "", {})->mode().quiet, row.method == std::string("help")) << row.method;
  }
}

// Returns the page of one command: a heading, the command with its description and its usage, and then the lines of
// its parameters.
Lines page(const std::string& heading, const std::string& command, const std::string& description,
           const std::string& usage, const Lines& params) {
  Lines lines = {"ravctl help for " + heading, "", "NAME",      "        " + command + " - " + description, "", "USAGE",
                 "        " + command + usage, "", "PARAMETERS"};
  lines.insert(lines.end(), params.begin(), params.end());
  return lines;
}

// Splits "profile create" into its words.
Words wordsOf(const std::string& method) {
  const std::size_t blank = method.find(' ');
  return blank == std::string::npos ? Words{method} : Words{method.substr(0, blank), method.substr(blank + 1)};
}

TEST(Help, ACategoryListsItsCommandsUnderItsCanonicalName) {
  const std::pair<Words, Lines> cases[] = {
      {{"profile", "profiles"},
       {
           "ravctl help for 'profile' commands:",
           "    'profile activate' designates which profile is currently active",
           "    'profile create' makes a new profile",
           "    'profile delete' removes a profile",
           "    'profile rename' changes the user-friendly name attached to a profile",
           "    'profile modify' changes any of the profile details",
           "    'profile details' displays configured profile settings",
       }},
      {{"service", "services"},
       {
           "ravctl help for 'service' commands:",
           "    'service start' runs the HIP background process",
           "    'service stop' ends the background process",
           "    'service restart' stops and restarts the background process",
           "    'service status' displays the current process status",
       }},
      {{"list", "show"},
       {
           "ravctl help for 'list' commands:",
           "    'list profiles' displays a list of the configured profiles",
           "    'list interfaces' displays network interfaces available on the machine",
           "    'list versions' displays version numbers for the software",
           "    'list log' displays an excerpt of the active HIP log",
       }},
      {{"log"}, {"ravctl help for 'log' commands:", "    'list log' displays an excerpt of the active HIP log"}},
      {{"support"},
       {
           "ravctl help for 'support' commands:",
           "    'support reset' clean temporary data from a profile",
           "    'support bundle' generate a support bundle",
       }},
      {{"json"},
       page("'json' commands:", "json <object>", "Executes a command given in JSON form.", " <json object>", {})},
      {{"internal"}, {"ravctl help for 'internal' commands:"}},
  };
  for (const auto& [words, lines] : cases) {
    for (const std::string& word : words) {
      SCOPED_TRACE(word);
      EXPECT_EQ(help({word}), lines);
      EXPECT_EQ(help({word, "nothing of it"}), lines);
      EXPECT_EQ(help({"--quiet", word, "--text"}), lines);
    }
  }
}

TEST(Help, TheWordsOfACommandGiveItsEntry) {
  const Lines noResults = {"", " <no additional result data>"};
  const struct {
    const char *why, *command, *description, *usage;
    Lines params;
  } cases[] = {
      {"required and optional parameters",
       "profile create",
       "Creates a new profile.   The name and helmsor settings are required.",
       " <new profile name> [allow_rename=<boolean>] helmsor=<addr:port> [network=<interface | auto>] "
       "[invitation=<invitation>] [log_level=<info | warn | error | debug | trace>] [sys=<sys-impl>] [activate]",
       {"        allow_rename: boolean", "        helmsor: helmsor address, in host:port form",
        "        network: network interface", "        invitation: invitation code", "        log_level: log level",
        "        sys: sys impl name", "        activate: single word"}},
      {"results but no parameters",
       "list versions",
       "Displays version numbers for various pieces of the installed HIP application.",
       "",
       {}},
      {"parameters but no results",
       "service restart",
       "Stops the zuv-hipd background process if it is running, and then starts it up again.",
       " [sys=<sys-impl>] [full]",
       {"        sys: sys impl name", "        full: single word", "", " <no additional result data>"}},
      {"no parameters and results", "profile delete", "Removes a profile.", " <profile name>", noResults},
      {"a usage suffix and an integer parameter",
       "list log",
       "Displays an extract from the hip.log file for the given profile.",
       " <profile name> [max_lines=<integer>] [log_level=<info | warn | error | debug | trace>]",
       {"        max_lines: integer", "        log_level: log level"}},
      {"a command that one word names",
       "help",
       "Displays the commands by category, or the entry of one command.",
       " [<category> | <command name>]",
       {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const Lines expected = page(std::string("command: ") + c.command, c.command, c.description, c.usage, c.params);
    Words words = wordsOf(c.command);
    EXPECT_EQ(help(words), expected);
    words.insert(words.end(), {"lab", "x=y"});
    EXPECT_EQ(help(words), expected);
  }
}

TEST(Help, TheLongestMatchWins) {
  const std::pair<Words, const char*> cases[] = {
      {{"list", "profiles"}, "ravctl help for command: list profiles"},
      {{"show", "profiles"}, "ravctl help for command: list profiles"},
      {{"show", "interfaces"}, "ravctl help for command: list interfaces"},
      {{"show", "versions"}, "ravctl help for command: list versions"},
      {{"show", "log"}, "ravctl help for command: list log"},
      {{"service", "bounce"}, "ravctl help for command: service restart"},
      {{"support", "bundle"}, "ravctl help for command: support bundle"},
      {{"list", "status"}, "ravctl help for 'list' commands:"},
      {{"profile", "show"}, "ravctl help for 'profile' commands:"},
      {{"profiles", "create"}, "ravctl help for 'profile' commands:"},
      {{"log", "list"}, "ravctl help for 'log' commands:"},
      {{"json", "<object>"}, "ravctl help for 'json' commands:"},
      {{"usage"}, "ravctl help for command: usage"},
      {{"help"}, "ravctl help for command: help"},
      {{"reference"}, "ravctl help for command: reference"},
      {{"usage", "profile"}, "ravctl help for command: usage"},
      {{"help", "profile"}, "ravctl help for command: help"},
      {{"--verbose", "service", "--quiet", "stop"}, "ravctl help for command: service stop"},
  };
  for (const auto& [words, heading] : cases) {
    SCOPED_TRACE(testing::PrintToString(words));
    EXPECT_EQ(help(words).front(), heading);
  }
}

TEST(Help, UnknownWordsAreNamedAboveTheSummary) {
  const std::pair<Words, const char*> cases[] = {
      {{"bogus"}, "bogus"},
      {{"bogus", "words", "more"}, "bogus words"},
      {{"Profile"}, "Profile"},
      {{"PROFILE", "create"}, "PROFILE create"},
      {{"profile create"}, "profile create"},
      {{"logs"}, "logs"},
      {{"interfaces"}, "interfaces"},
      {{"json <object>"}, "json <object>"},
      {{""}, ""},
      {{"", ""}, " "},
      {{"%n%s"}, "%n%s"},
      {{"\xff\n"}, "\xff\n"},
      {{"bogus", "--quiet", "x"}, "bogus x"},
      {{"--Quiet"}, "--Quiet"},
  };
  for (const auto& [words, named] : cases) {
    SCOPED_TRACE(testing::PrintToString(words));
    EXPECT_EQ(help(words), notFound(named));
  }
}

TEST(Help, VerbosePrintsTheStatusLines) {
  Hipcmd_SimpleHelp command({"help", "internal", "--verbose"}, commandTable());
  EXPECT_TRUE(command.mode().take("--verbose"));  // binding does this
  EXPECT_EQ(linesOf(command), (Lines{"method: help", "status_text: success", "status_code: 0x00000001",
                                     "ravctl help for 'internal' commands:"}));
}

// The category pages list exactly the commands that the program has.
TEST(Help, EveryCommandOfTwoWordsIsOnACategoryPage) {
  Lines listed;
  for (const char* category : {"profile", "service", "list", "support"}) {
    const Lines lines = help({category});
    for (std::size_t i = 1; i < lines.size(); ++i) listed.push_back(lines[i].substr(5, lines[i].find('\'', 5) - 5));
  }
  Lines expected;
  for (const CommandRow& row : commandTable()) {
    if (row.form == CommandForm::twoWords || row.form == CommandForm::twoWordsAndName)
      expected.emplace_back(row.method);
  }
  std::sort(listed.begin(), listed.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(listed, expected);
}

// --- The entry of a command with all kinds of parameters

class Everything : public RavctlCommandInstance {
 public:
  Everything() : RavctlCommandInstance("do everything") {
    takes({&requiredText_, &number_, &hidden_, &requiredWord_, &word_, &network_, &profile_, &auth_});
  }
  void execute(StatusCodeResultField&) override {}

 private:
  StringParam requiredText_{"text", Need::required};
  IntParam number_{"number", Need::optional, 1};
  StringParam hidden_{"hidden", Need::required, Show::hidden};
  SingleWordParam requiredWord_{"must", Need::required};
  SingleWordParam word_{"may"};
  OptionalNetworkParam network_;
  OptionalProfileParam profile_;
  AuthParam auth_;
};

std::unique_ptr<RavctlCommandInstance> makeEverything(const CommandRow&, const std::string&,
                                                      const std::vector<std::string>&) {
  return std::make_unique<Everything>();
}

constexpr CommandRow kEverythingRow[] = {
    {0, "do everything", CommandForm::twoWords, " <summary>", " <usage>", "Does %s."}};
constexpr CommandTable kEverythingTable = {makeEverything, kEverythingRow, 1, nullptr, 0};

const Lines kEverythingEntry = {
    "",
    "NAME",
    "        do everything - Does %s.",
    "",
    "USAGE",
    "        do everything <usage> text=<string> [number=<integer>] must [may] [network=<interface | auto>] "
    "[profile=<string>] [auth=<auth string>]",
    "",
    "PARAMETERS",
    "        text: string",
    "        number: integer",
    "        must: single word",
    "        may: single word",
    "        network: network interface",
    "        profile: profile name",
    "        auth: auth string",
    "",
    " <no additional result data>",
};

TEST(Help, AnEntryShowsTheRowAndTheListedParameters) {
  Lines expected = {"ravctl help for command: do everything"};
  expected.insert(expected.end(), kEverythingEntry.begin(), kEverythingEntry.end());
  EXPECT_EQ(help({"do", "everything"}, kEverythingTable), expected);
}

// --- reference

const Lines kStandardFields = {
    "",
    "Commands also return standard fields for result status:",
    "  method: <string, the name of the method invoked>",
    "  status_code: <integer, a code giving the specific result>",
    "  status_text: <string, readable explanatory text for the status>",
    "  status_details: <optional string, more detail about the status code>",
    "  status_context: <optional string, detail about where an error occurred>",
    "Commands that return profile details do so with this set of fields:",
    "  profile_name: <string, the common name of the profile>",
    "  profile_dir: <string, the subdirectory in which the profile is stored>",
    "  network: <string, the name of the underlay interface>",
    "  deviceID: <string, the device ID for a managed profile",
    "  overlay_device_ip: <string, the IP address on the overlay network>",
    "  overlay_mask: <string, the subnet mask for this HIP service>",
    "  invitation: <string, a code used when creating the profile>",
    "  helmsor: <string in host:port form, the Helmsor address>",
    "  networks: <local interfaces suitable for use as the underlay network>",
};

TEST(Reference, PrintsEveryEntryAndThenTheStandardFields) {
  Hipcmd_ReferenceHelp command(kEverythingTable);
  Lines expected = kEverythingEntry;
  expected.insert(expected.end(), kStandardFields.begin(), kStandardFields.end());
  EXPECT_EQ(linesOf(command), expected);
}

TEST(Reference, PrintsTheSameEntriesAsHelpInTheOrderOfTheTable) {
  Lines expected;
  for (const CommandRow& row : commandTable()) {
    const Lines entry = help(wordsOf(row.method));
    expected.insert(expected.end(), entry.begin() + 1, entry.end());
  }
  expected.insert(expected.end(), kStandardFields.begin(), kStandardFields.end());
  Hipcmd_ReferenceHelp command(commandTable());
  EXPECT_EQ(linesOf(command), expected);
}

}  // namespace
