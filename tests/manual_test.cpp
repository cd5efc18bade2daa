// Checks the manuals: each example prints what it shows, and the tables of ravctl(8) agree with the program.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

#include "command/entry/Catalogue.h"
#include "command/framework/CommandCore.h"
#include "command/parameters/InputParams.h"
#include "command/status/AppStatusCodes.h"
#include "log/front/BasicLog.h"
#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"
#include "testing/run/FurnishedHost.h"
#include "testing/run/Matchers.h"
#include "testing/run/Program.h"
#include "testing/run/Session.h"

namespace {

const std::string kManuals = places::source() + "/man/";

bool startsWith(const std::string& text, const std::string& start) { return text.compare(0, start.size(), start) == 0; }

// --- Examples

// The escapes with which the source of a manual writes characters that would be printed as typographic ones.
struct Escape {
  const char* written;
  const char* plain;
};
constexpr Escape kEscapes[] = {{"\\(aq", "'"}, {"\\(ga", "`"}, {"\\(ha", "^"}, {"\\(ti", "~"},
                               {"\\('e", "é"}, {"\\e", "\\"},  {"\\&", ""}};

std::string plain(const std::string& line) {
  std::string text;
  for (size_t at = 0; at < line.size();) {
    const auto* escape = std::find_if(std::begin(kEscapes), std::end(kEscapes), [&](const Escape& e) {
      return line.compare(at, std::strlen(e.written), e.written) == 0;
    });
    const bool isEscape = escape != std::end(kEscapes);
    EXPECT_TRUE(isEscape || std::string("\\'`^~").find(line[at]) == std::string::npos)
        << "the manual would print this differently: " << line;
    text += isEscape ? escape->plain : std::string(1, line[at]);
    at += isEscape ? std::strlen(escape->written) : 1;
  }
  return text;
}

struct Example {
  std::string manual;
  std::string heading;
  std::string session;
};

// All literal displays below one heading form one session.
std::vector<Example> examplesOf(const std::string& manual) {
  std::vector<Example> examples;
  bool isLiteral = false;
  for (const std::string& line : linesOf(host::readFile(kManuals + manual))) {
    if (startsWith(line, ".Sh ") || startsWith(line, ".Ss ")) examples.push_back({manual, line.substr(4), ""});
    if (examples.empty()) continue;
    std::string& session = examples.back().session;
    if (startsWith(line, ".\\\"# ")) session += "@ " + line.substr(5) + "\n";
    if (startsWith(line, ".\\\"> ")) session += line.substr(3) + "\n";
    if (startsWith(line, ".Ed")) isLiteral = false;
    if (isLiteral) session += plain(line) + "\n";
    if (startsWith(line, ".Bd -literal")) isLiteral = true;
  }
  const auto isEmpty = [](const Example& example) { return example.session.empty(); };
  examples.erase(std::remove_if(examples.begin(), examples.end(), isEmpty), examples.end());
  return examples;
}

std::vector<std::string> manuals() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(kManuals)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<Example> allExamples() {
  std::vector<Example> all;
  for (const std::string& manual : manuals()) {
    const std::vector<Example> some = examplesOf(manual);
    all.insert(all.end(), some.begin(), some.end());
  }
  return all;
}

std::string nameOf(const testing::TestParamInfo<Example>& instance) {
  std::string name = instance.param.manual + instance.param.heading;
  const auto isOther = [](unsigned char letter) { return std::isalnum(letter) == 0; };
  name.erase(std::remove_if(name.begin(), name.end(), isOther), name.end());
  return name;
}

class ManualExample : public testing::TestWithParam<Example> {};
void PrintTo(const Example& example, std::ostream* out) { *out << example.manual << ": " << example.heading; }

TEST_P(ManualExample, PrintsWhatItShows) {
  if (!missingForInitScript().empty()) GTEST_SKIP() << missingForInitScript();
  const Session session = readSession(GetParam().session);
  const bool usesJq = session.script.find("| jq ") != std::string::npos;
  if (usesJq && !host::exists("/usr/bin/jq")) GTEST_SKIP() << "jq is not installed";
  if (session.needsAnyUser && ::getuid() != 0) GTEST_SKIP() << "only root can become another user";
  const Outcome outcome = runOnFurnishedHost(session.script);
  if (outcome.exitStatus == 125) GTEST_SKIP() << outcome.err;
  EXPECT_EQ(outcome.out, session.shown);
  EXPECT_EQ(outcome.err, "");
}

INSTANTIATE_TEST_SUITE_P(Manuals, ManualExample, testing::ValuesIn(allExamples()), nameOf);

TEST(ManualTest, EveryManualHasExamples) {
  const std::map<std::string, size_t> least = {{"check_ravctl.8", 1}, {"ravctl-examples.7", 6}, {"ravctl-exit.8", 1},
                                               {"ravctl-json.8", 1},  {"ravctl-profiles.5", 6}, {"ravctl.8", 6}};
  EXPECT_EQ(manuals().size(), least.size());
  for (const std::string& manual : manuals()) {
    ASSERT_EQ(least.count(manual), 1u) << manual;
    EXPECT_GE(examplesOf(manual).size(), least.at(manual)) << manual;
  }
}

// --- The first use

TEST(ManualTest, TheExampleForAHostWithoutAStoreEndsWithARunningDaemon) {
  if (!missingForInitScript().empty()) GTEST_SKIP() << missingForInitScript();
  const std::vector<Example> examples = examplesOf("ravctl-examples.7");
  const auto first = std::find_if(examples.begin(), examples.end(),
                                  [](const Example& example) { return example.heading == "Before the first use"; });
  ASSERT_NE(first, examples.end());
  const Session session = readSession(first->session);
  const Outcome outcome = runOnFurnishedHost(session.script);
  if (outcome.exitStatus == 125) GTEST_SKIP() << outcome.err;
  EXPECT_THAT(outcome.out, testing::StartsWith("# ls /etc/zuv\nls: cannot access '/etc/zuv': No such file"));
  EXPECT_EQ(linesOf(outcome.out).back(), "running: true");
}

// --- Narrow and wide terminals

// Shows each manual with man in terminals of these widths. Returns a line for each mistake: man fails or does not end,
// the first line is wider than the terminal, or a section is missing. man gets a second chance, because a busy machine
// may halt it for seconds.
std::string mistakesAt(const std::string& widths) {
  const Outcome outcome = runOnFurnishedHost(R"sh(
    mkdir -p /etc/groff
    touch /etc/manpath.config /etc/groff/man.local /etc/groff/mdoc.local
    export LC_ALL=C.UTF-8
    cd /.private-host/source/man
    show() { MANWIDTH=$width timeout 5 man -l "./$manual" >/tmp/page 2>/dev/null; }
    for manual in *; do
      for width in )sh" + widths + R"sh(; do
        show || show || echo "$manual, $width columns: man ended with $?"
        head -n 1 /tmp/page | awk -v most="$width" 'length > most' | sed "s/^/$manual, $width columns: too wide: /"
        grep '^\.Sh ' "$manual" | cut -d ' ' -f 2 | while read -r word; do
          grep -q "^$word" /tmp/page || echo "$manual, $width columns: no section $word"
        done
      done
      echo "$manual was shown"
    done)sh");
  std::string shown;
  for (const std::string& manual : manuals()) shown += manual + " was shown\n";
  return outcome.out == shown ? "" : outcome.out + outcome.err;
}

TEST(ManualWidths, ManShowsEachManualInNarrowAndWideTerminals) {
  if (runOnFurnishedHost("command -v man").exitStatus != 0) GTEST_SKIP() << "man is not installed";
  EXPECT_EQ(mistakesAt("20 25 33 40 46 80 132"), "");
}

TEST(ManualWidthsLong, ManShowsEachManualInTerminalsOf20To200Columns) {
  if (runOnFurnishedHost("command -v man").exitStatus != 0) GTEST_SKIP() << "man is not installed";
  EXPECT_EQ(mistakesAt("$(seq 20 200)"), "");
}

// --- Status codes

using CodesAndTexts = std::map<StatusCode, std::string>;

// Reads them from lines such as ".It Li 0x00000001 Dq success".
CodesAndTexts codesOfManual() {
  const std::string item = ".It Li 0x";
  const std::string quote = " Dq ";
  CodesAndTexts codes;
  for (const std::string& line : linesOf(host::readFile(kManuals + "ravctl.8"))) {
    if (!startsWith(line, item)) continue;
    const std::string digits = line.substr(item.size(), 8);
    EXPECT_EQ(line.compare(item.size() + 8, quote.size(), quote), 0) << line;
    const bool isNew =
        codes.emplace(std::stoul(digits, nullptr, 16), line.substr(item.size() + 8 + quote.size())).second;
    EXPECT_TRUE(isNew) << "listed twice: " << line;
  }
  return codes;
}

// Returns every code that has a text of its own. It tries every category and number of the two application ids. No code
// has the application id 2, so its text is that of an unknown code.
CodesAndTexts codesOfProgram() {
  registerStatusTexts(status::applicationId, appStatusText);
  CodesAndTexts codes;
  for (StatusCode category = 0; category <= 0xff; ++category) {
    const std::string unknown = statusText(category << 24 | 2 << 12 | 1);
    for (StatusCode rest = 0; rest <= 0x1fff; ++rest) {
      const StatusCode code = category << 24 | rest;
      const char* text = statusText(code);
      if (text != unknown) codes.emplace(code, text);
    }
  }
  return codes;
}

TEST(ManualTest, ListsExactlyTheStatusCodesOfTheProgram) {
  const CodesAndTexts codes = codesOfManual();
  EXPECT_EQ(codes, codesOfProgram());
  EXPECT_EQ(codes.at(0x12000002), "authentication error (ravctl requires sudo for this command)");
}

// --- Exit statuses of the scripts

// Returns the numbers that stand behind `before` in the lines of a text.
std::set<std::string> numbersBehind(const std::string& before, const std::string& text) {
  std::set<std::string> numbers;
  for (const std::string& line : linesOf(text)) {
    const size_t at = line.find(before);
    if (at == std::string::npos) continue;
    const size_t from = at + before.size();
    const std::string number = line.substr(from, line.find_first_not_of("0123456789", from) - from);
    if (!number.empty()) numbers.insert(number);
  }
  return numbers;
}

TEST(ManualTest, ListsExactlyTheExitStatusesOfRavctlExit) {
  std::set<std::string> ofScript = numbersBehind(") exit ", host::readFile(places::source() + "/scripts/ravctl-exit"));
  EXPECT_EQ(ofScript.count("77"), 1u);
  ofScript.insert({"0", "1", "127"});  // those of ravctl, and of the shell if there is no ravctl
  EXPECT_EQ(numbersBehind(".It ", host::readFile(kManuals + "ravctl-exit.8")), ofScript);
}

// --- Commands

// A command and its parameters in order, such as "profile rename new_name". Optional parameters are in brackets.
std::string withKey(std::string command, const std::string& key, bool isOptional) {
  return command.append(isOptional ? " [" : " ").append(key).append(isOptional ? "]" : "");
}

// Reads it from the words of an item such as ".It Ic service restart Oo Cm sys Ns = Ns Ar system Oc Op Cm full".
std::string commandOfItem(const std::string& item) {
  std::string command;
  bool isName = false;
  bool isKey = false;
  bool isInOo = false;
  bool isInOp = false;
  std::istringstream lines(item);
  for (std::string line; std::getline(lines, line); isInOp = false) {
    std::istringstream words(line);
    for (std::string word; words >> word;) {
      isName = isName && (std::islower(static_cast<unsigned char>(word[0])) != 0);
      if (isName) command += (command.empty() ? "" : " ") + word;
      if (isKey) command = withKey(command, word, isInOo || isInOp);
      isKey = word == "Cm" || word == ".Cm";
      isName = isName || word == "Ic";
      isInOo = (isInOo && word != "Oc") || word == "Oo";
      isInOp = isInOp || word == "Op" || word == ".Op";
    }
  }
  return command;
}

// Returns the items of the section COMMANDS of the manual.
std::vector<std::string> commandsOfManual() {
  const std::string source = host::readFile(kManuals + "ravctl.8");
  std::vector<std::string> commands;
  for (size_t at = 0; (at = source.find("\n.It ", at)) != std::string::npos; ++at) {
    const bool isLong = source.compare(at, 8, "\n.It Xo ") == 0;
    const std::string item = source.substr(at + 1, source.find(isLong ? "\n.Xc" : "\n", at + 1) - at - 1);
    if (item.find(" Ic ") != std::string::npos) commands.push_back(commandOfItem(item));
  }
  return commands;
}

std::vector<std::string> commandsOfProgram() {
  std::vector<std::string> commands;
  for (const CommandRow& row : commandTable()) {
    std::string command = std::string(row.method).substr(0, std::string(row.method).find(" <"));
    const auto instance = commandTable().make(row, "", {});
    for (const InputParamBase* param : instance->params()) {
      if (!param->isHidden()) command = withKey(command, param->name(), !param->isRequired());
    }
    commands.push_back(command);
  }
  return commands;
}

TEST(ManualTest, ListsExactlyTheCommandsOfTheProgramWithTheirParameters) {
  const std::vector<std::string> commands = commandsOfManual();
  EXPECT_THAT(commands, testing::UnorderedElementsAreArray(commandsOfProgram()));
  EXPECT_THAT(commands, testing::Contains("profile rename new_name"));
  EXPECT_THAT(commands, testing::Contains("service restart [sys] [full]"));
}

// --- Values

using Values = std::vector<std::string>;

// Returns the words that the help text names as values of a key: "auto" of "[network=<interface | auto>]". In a list of
// alternatives, "interface" stands for any name.
std::map<std::string, Values> valuesOfHelp() {
  std::map<std::string, Values> values;
  for (const CommandRow& row : commandTable()) {
    const auto instance = commandTable().make(row, "", {});
    for (const InputParamBase* param : instance->params()) {
      std::string form;
      if (!param->isHidden()) param->appendValueForm(form);
      if (form.find(" | ") == std::string::npos) continue;
      std::istringstream words(form);
      Values named;
      for (std::string word; words >> word;) {
        if (word != "|" && word != "interface") named.push_back(word);
      }
      values[param->name()] = named;
    }
  }
  return values;
}

// Returns the words in the lines ".Li" between two texts of ravctl(8).
Values literalsBetween(const std::string& begin, const std::string& end) {
  const std::string source = host::readFile(kManuals + "ravctl.8");
  const size_t from = source.find(begin);
  const size_t to = source.find(end, from + 1);
  EXPECT_NE(to, std::string::npos) << begin;
  Values words;
  for (const std::string& line : linesOf(source.substr(from, to - from))) {
    if (!startsWith(line, ".Li ")) continue;
    std::istringstream stream(line.substr(4));
    for (std::string word; stream >> word;) {
      if (std::isalpha(static_cast<unsigned char>(word[0])) != 0) words.push_back(word);
    }
  }
  return words;
}

Values valuesOfManual(const std::string& key) { return literalsBetween("\n.It Cm " + key + " Ns =\n", "\n.It "); }

struct Completion {
  const char* file;
  const char* behindKey;  // the text between a key and its values
  const char* end;        // the text behind its values
};
constexpr Completion kCompletions[] = {
    {"ravctl.bash", "=)", ";;"}, {"_ravctl", ") ", ";;"}, {"ravctl.fish", "=\n", "\n        "}};

std::string sourceOf(const Completion& completion) {
  return host::readFile(places::source() + "/completions/" + completion.file);
}

// Returns the part of a completion that offers the values of a key. The table of commands stands before it.
std::string valuesOfCompletion(const Completion& completion, const std::string& key) {
  const std::string source = sourceOf(completion);
  const std::string label = " " + key + completion.behindKey;
  const size_t from = source.rfind(label);
  if (from == std::string::npos) return "";
  return source.substr(from + label.size(), source.find(completion.end, from + label.size()) - from - label.size());
}

TEST(ManualTest, EveryValueThatHelpNamesIsInTheManualAndInEachCompletion) {
  const std::map<std::string, Values> help = valuesOfHelp();
  EXPECT_EQ(help, (std::map<std::string, Values>{{"log_level", {"info", "warn", "error", "debug", "trace"}},
                                                 {"network", {"auto"}}}));
  for (const auto& [key, values] : help) {
    SCOPED_TRACE(key);
    EXPECT_THAT(valuesOfManual(key), testing::IsSupersetOf(values));
    std::string list;
    for (const std::string& value : values) list += (list.empty() ? "" : "[ ,]") + value;
    // A brace, a bracket, a blank or the argument with the key is before the first value.
    for (const Completion& completion : kCompletions) {
      SCOPED_TRACE(completion.file);
      EXPECT_THAT(valuesOfCompletion(completion, key), testing::ContainsRegex("[] ({1]" + list + "([} )\"]|$)"));
    }
  }
}

TEST(ManualTest, NamesTheLevelsAndTheInitSystemsThatTheProgramKnows) {
  const Values levels = valuesOfManual("log_level");
  EXPECT_THAT(levels, testing::IsSupersetOf({"fatal", "error", "warning", "info", "debug", "trace"}));
  for (const std::string& level : levels) {
    BasicLog::Level parsed;
    EXPECT_TRUE(BasicLog::parseLogLevel(level, parsed)) << level;
  }
  const Values systems = literalsBetween("\n.It Cm sys Ns =\n", "\n.El");
  EXPECT_THAT(systems, testing::ElementsAre("systemd", "initd", "upstart", "launchd", "null"));
  for (const Completion& completion : kCompletions) {
    SCOPED_TRACE(completion.file);
    const std::string offered = valuesOfCompletion(completion, "sys");
    for (const std::string& system : systems) EXPECT_THAT(offered, testing::HasSubstr(system));
  }
}

// Returns the categories that the summary page of help names: "profile" of the line "    'help profile' for ...".
Values categoriesOfHelp() {
  Values categories;
  for (const std::string& line : linesOf(runProgram({ravctlPath(), "help"}).out)) {
    const std::string start = "    'help ";
    if (startsWith(line, start)) categories.push_back(line.substr(start.size(), line.find('\'', 5) - start.size()));
  }
  return categories;
}

TEST(ManualTest, EveryCategoryThatHelpNamesIsInTheManualAndInEachCompletion) {
  const Values categories = categoriesOfHelp();
  EXPECT_EQ(categories, (Values{"profile", "service", "list", "log", "support"}));
  EXPECT_THAT(literalsBetween("\n.Ar category\nis\n", "\n.El"), testing::IsSupersetOf(categories));
  for (const Completion& completion : kCompletions) {
    SCOPED_TRACE(completion.file);
    const std::string source = sourceOf(completion);
    const size_t at = source.find("_ravctl_subjects");
    const std::string subjects = source.substr(at, source.find('\n', at) - at);
    for (const std::string& category : categories)
      EXPECT_THAT(subjects, testing::ContainsRegex("[ =']" + category + "([ ']|$)"));
  }
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
