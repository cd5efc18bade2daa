// Checks the manuals: each example prints what it shows, and the tables of ravctl(8) agree with the program.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>

#include "command/entry/Catalogue.h"
#include "command/framework/CommandCore.h"
#include "command/status/AppStatusCodes.h"
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
constexpr Escape kEscapes[] = {{"\\(aq", "'"}, {"\\(ga", "`"}, {"\\(ha", "^"},
                               {"\\(ti", "~"}, {"\\e", "\\"},  {"\\&", ""}};

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
  EXPECT_EQ(manuals(), (std::vector<std::string>{"ravctl-examples.7", "ravctl-profiles.5", "ravctl.8"}));
  for (const std::string& manual : manuals()) EXPECT_GE(examplesOf(manual).size(), 6u) << manual;
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
    const auto instance = row.make("", {});
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

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
