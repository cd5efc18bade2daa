#include "command/commands/HelpCommands.h"

#include <cstddef>
#include <iterator>
#include <memory>
#include <string_view>

#include "base/text/StringUtils.h"

using StringUtils::concatenate;

namespace {

using Lines = std::vector<std::string>;

// A constant table of rows. It holds a pointer, so that tables of different lengths have the same type.
template <typename Row>
struct Rows {
  const Row* first = nullptr;
  std::size_t count = 0;

  constexpr Rows() = default;
  template <std::size_t n>
  constexpr Rows(const Row (&rows)[n]) : first(rows), count(n) {}
  const Row* begin() const { return first; }
  const Row* end() const { return first + count; }
};

constexpr char usageLines[][sizeof "    <command name> <command-specific params> [--quiet | --verbose]"] = {
    "ravctl usage:",
    "    <command name> <command-specific params> [--quiet | --verbose]",
    "    help",
    "    help <category>",
    "    help <command name>",
    "    reference",
    "    json <request object>",
};

// --- Pages of commands

struct Blurb {
  char command[sizeof "profile activate"];
  char text[sizeof "changes the user-friendly name attached to a profile"];
};

constexpr Blurb profileBlurbs[] = {
    {"profile activate", "designates which profile is currently active"},
    {"profile create", "makes a new profile"},
    {"profile delete", "removes a profile"},
    {"profile rename", "changes the user-friendly name attached to a profile"},
    {"profile modify", "changes any of the profile details"},
    {"profile details", "displays configured profile settings"},
};
constexpr Blurb serviceBlurbs[] = {
    {"service start", "runs the HIP background process"},
    {"service stop", "ends the background process"},
    {"service restart", "stops and restarts the background process"},
    {"service status", "displays the current process status"},
};
constexpr Blurb listBlurbs[] = {
    {"list profiles", "displays a list of the configured profiles"},
    {"list interfaces", "displays network interfaces available on the machine"},
    {"list versions", "displays version numbers for the software"},
    {"list log", "displays an excerpt of the active HIP log"},
};
constexpr Blurb logBlurbs[] = {
    {"list log", "displays an excerpt of the active HIP log"},
};
constexpr Blurb supportBlurbs[] = {
    {"support reset", "clean temporary data from a profile"},
    {"support bundle", "generate a support bundle"},
};

struct Category {
  char name[sizeof "internal"];
  char otherName[sizeof "internal"];
  Rows<Blurb> blurbs;
};
// The page of "json" has no blurbs; it shows the entry of the command of that name. The page of "internal" is empty,
// since there are no internal commands.
constexpr Category categories[] = {
    {"profile", "profiles", profileBlurbs}, {"service", "services", serviceBlurbs},
    {"list", "show", listBlurbs},           {"log", "log", logBlurbs},
    {"support", "support", supportBlurbs},  {"json", "json", {}},
    {"internal", "internal", {}},
};

constexpr Blurb categoryBlurbs[] = {
    {"help profile", "for managing your HIP profiles"},    {"help service", "for starting and stopping HIP processes"},
    {"help list", "to display details of various things"}, {"help log", "to display or manage log files"},
    {"help support", "for advanced operations commands"},
};
constexpr Blurb commonBlurbs[] = {
    {"profile activate", "designates which profile is currently active"},
    {"profile create", "makes a new profile"},
    {"profile delete", "removes a profile"},
    {"profile rename", "changes the user-friendly name attached to a profile"},
    {"service start", "runs the HIP background process"},
    {"service stop", "ends the background process"},
    {"list profiles", "provides a list of the configured profiles"},
};

void addBlurbs(Lines& page, Rows<Blurb> blurbs) {
  for (const Blurb& blurb : blurbs) page.push_back(concatenate({"    '", blurb.command, "' ", blurb.text}));
}

void addSummary(Lines& page) {
  page.emplace_back("Look up commands by category:");
  addBlurbs(page, categoryBlurbs);
  page.emplace_back("Try 'reference' for the complete list of all commands, or start with these common ones:");
  addBlurbs(page, commonBlurbs);
}

const Category* findCategory(std::string_view word) {
  for (const Category& category : categories) {
    if (word == category.name || word == category.otherName) return &category;
  }
  return nullptr;
}

// --- The entry of one command

constexpr const char* indent = "        ";

// "[network=<interface | auto>]", "helmsor=<addr:port>", "[activate]"
std::string usageForm(const InputParamBase& param) {
  std::string form = param.name();
  std::string value;
  param.appendValueForm(value);
  if (!value.empty()) form += concatenate({"=<", value, ">"});
  return param.isRequired() ? form : concatenate({"[", form, "]"});
}

void addSection(Lines& page, const char* heading) {
  page.emplace_back();
  page.emplace_back(heading);
}

void addEntry(Lines& page, const CommandTable& table, const CommandRow& row) {
  const std::unique_ptr<RavctlCommandInstance> command = table.make(row, {}, {});
  std::string usage = concatenate({indent, row.method, row.usage});
  Lines params;
  for (const InputParamBase* param : command->params()) {
    if (param->isHidden()) continue;
    usage += concatenate({" ", usageForm(*param)});
    params.push_back(concatenate({indent, param->name(), ": ", param->typeDescription()}));
  }

  addSection(page, "NAME");
  page.push_back(concatenate({indent, row.method, " - ", row.description}));
  addSection(page, "USAGE");
  page.push_back(usage);
  addSection(page, "PARAMETERS");
  page.insert(page.end(), params.begin(), params.end());
  const bool reportsStatusAlone = command->results().size() == 1;
  if (reportsStatusAlone) page.insert(page.end(), {"", " <no additional result data>"});
}

// --- The page for the words

void addCommandPage(Lines& page, const CommandTable& table, const CommandRow& row) {
  page.push_back(concatenate({"ravctl help for command: ", row.method}));
  addEntry(page, table, row);
}

void addCategoryPage(Lines& page, const Category& category, const CommandTable& table) {
  page.push_back(concatenate({"ravctl help for '", category.name, "' commands:"}));
  addBlurbs(page, category.blurbs);
  const CommandRow* row = table.findOneWord(category.name);
  if (row != nullptr) addEntry(page, table, *row);
}

void addPageFor(Lines& page, const Lines& subject, const CommandTable& table) {
  const CommandRow* row = subject.size() < 2 ? nullptr : table.findTwoWords(subject[0], subject[1]);
  if (row != nullptr) return addCommandPage(page, table, *row);
  const Category* category = findCategory(subject[0]);
  if (category != nullptr) return addCategoryPage(page, *category, table);
  row = table.findOneWord(subject[0]);
  if (row != nullptr) return addCommandPage(page, table, *row);
  const std::string words = subject.size() < 2 ? subject[0] : concatenate({subject[0], " ", subject[1]});
  page.push_back(concatenate({"ravctl help: nothing found for '", words, "'"}));
  addSummary(page);
}

// Returns the words after "help", without output-mode words.
Lines subjectOf(const Lines& words) {
  Lines subject;
  for (std::size_t i = 1; i < words.size(); ++i) {
    OutputMode unused;
    if (!unused.take(words[i])) subject.push_back(words[i]);
  }
  return subject;
}

// --- The fields of results

// The line of deviceID deliberately lacks its closing bracket. No result has fields named status_details and
// status_context: the details of a status are printed in brackets in status_text, and its context is never printed.
constexpr char standardFields[][sizeof "  status_context: <optional string, detail about where an error occurred>"] = {
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

}  // namespace

Hipcmd_Usage::Hipcmd_Usage() : RavctlCommandInstance("usage") { reports({&helptext_}); }

void Hipcmd_Usage::execute(StatusCodeResultField& status) {
  helptext_.list().assign(std::begin(usageLines), std::end(usageLines));
  status.set(status::success);
}

Hipcmd_SimpleHelp::Hipcmd_SimpleHelp(const std::vector<std::string>& words, const CommandTable& table)
    : RavctlCommandInstance("help"), subject_(subjectOf(words)), table_(table) {
  mode().quiet = true;
  reports({&helptext_});
}

void Hipcmd_SimpleHelp::execute(StatusCodeResultField& status) {
  if (subject_.empty()) {
    addSummary(helptext_.list());
  } else {
    addPageFor(helptext_.list(), subject_, table_);
  }
  status.set(status::success);
}

Hipcmd_ReferenceHelp::Hipcmd_ReferenceHelp(const CommandTable& table)
    : RavctlCommandInstance("reference"), table_(table) {
  reports({&helptext_});
}

void Hipcmd_ReferenceHelp::execute(StatusCodeResultField& status) {
  Lines& page = helptext_.list();
  for (const CommandRow& row : table_) addEntry(page, table_, row);
  page.emplace_back();
  page.insert(page.end(), std::begin(standardFields), std::end(standardFields));
  status.set(status::success);
}
