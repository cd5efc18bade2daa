// The manuals are true: each example prints what it shows, and the tables of ravctl(8) are those of the program.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <sstream>

#include "command/AppStatusCodes.h"
#include "command/Catalogue.h"
#include "command/CommandCore.h"
#include "testing/FurnishedHost.h"
#include "testing/HostFiles.h"
#include "testing/Matchers.h"
#include "testing/Program.h"
#include "testing/Session.h"

namespace {

constexpr const char* kManuals = RAVCTL_SOURCE_DIR "/man/";

bool startsWith(const std::string& text, const std::string& start) { return text.compare(0, start.size(), start) == 0; }

// --- Examples

// The characters that a manual's source writes otherwise, since they would come out as typographic ones.
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
        << "would not come out as it stands: " << line;
    text += isEscape ? escape->plain : std::string(1, line[at]);
    at += isEscape ? std::strlen(escape->written) : 1;
  }
  return text;
}

// The sessions of a manual by their headings: all literal displays below one heading make one session.
std::map<std::string, std::string> sessionsOf(const std::string& source) {
  std::map<std::string, std::string> sessions;
  std::string heading;
  bool isLiteral = false;
  for (const std::string& line : linesOf(source)) {
    if (startsWith(line, ".Sh ") || startsWith(line, ".Ss ")) heading = line.substr(4);
    if (startsWith(line, ".\\\"# ")) sessions[heading] += "@ " + line.substr(5) + "\n";
    if (startsWith(line, ".Ed")) isLiteral = false;
    if (isLiteral) sessions[heading] += plain(line) + "\n";
    if (startsWith(line, ".Bd -literal")) isLiteral = true;
  }
  return sessions;
}

class ManualExamples : public testing::TestWithParam<const char*> {};

TEST_P(ManualExamples, PrintWhatTheyShow) {
  if (!missingForInitScript().empty()) GTEST_SKIP() << missingForInitScript();
  const std::map<std::string, std::string> sessions = sessionsOf(host::readFile(kManuals + std::string(GetParam())));
  EXPECT_GE(sessions.size(), 3u);
  for (const auto& [heading, text] : sessions) {
    SCOPED_TRACE(heading);
    const Session session = readSession(text);
    if (session.needsAnyUser && ::getuid() != 0) GTEST_SKIP() << "only root can become another user";
    const Outcome outcome = runOnFurnishedHost(session.script);
    if (outcome.exitStatus == 125) GTEST_SKIP() << outcome.err;
    EXPECT_EQ(outcome.out, session.shown);
    EXPECT_EQ(outcome.err, "");
  }
}

INSTANTIATE_TEST_SUITE_P(Manuals, ManualExamples, testing::Values("ravctl.8", "ravctl-profiles.5"),
                         [](const auto& instance) {
                           std::string name;
                           for (const char letter : std::string(instance.param)) {
                             if (std::isalnum(static_cast<unsigned char>(letter)) != 0) name += letter;
                           }
                           return name;
                         });

// --- Status codes

using CodesAndTexts = std::map<StatusCode, std::string>;

// From lines ".It Li 0x00000001 Dq success".
CodesAndTexts codesOfManual() {
  const std::string item = ".It Li 0x";
  const std::string quote = " Dq ";
  CodesAndTexts codes;
  for (const std::string& line : linesOf(host::readFile(std::string(kManuals) + "ravctl.8"))) {
    if (!startsWith(line, item)) continue;
    const std::string digits = line.substr(item.size(), 8);
    EXPECT_EQ(line.compare(item.size() + 8, quote.size(), quote), 0) << line;
    const bool isNew =
        codes.emplace(std::stoul(digits, nullptr, 16), line.substr(item.size() + 8 + quote.size())).second;
    EXPECT_TRUE(isNew) << "twice: " << line;
  }
  return codes;
}

// Every code with a text of its own, found by asking for all that can be: each category and number of the two
// application ids. Nobody registers id 2, so what it answers is the text of a code that nobody knows.
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

// A command and its parameters in order, one that may be left out in brackets: "profile rename new_name".
std::string withKey(std::string command, const std::string& key, bool isOptional) {
  return command.append(isOptional ? " [" : " ").append(key).append(isOptional ? "]" : "");
}

// From the words of an item such as ".It Ic service restart Oo Cm sys Ns = Ns Ar system Oc Op Cm full".
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

// The items of the manual's section COMMANDS.
std::vector<std::string> commandsOfManual() {
  const std::string source = host::readFile(std::string(kManuals) + "ravctl.8");
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
