// Tests the completion of bash, zsh and fish with the real shells on a private host. The completion files are installed
// where the shells of Debian look for them. tests/completion/type.py types into bash and zsh through a pseudo-terminal;
// fish prints its completions with `complete -C`.
#include <sys/mount.h>

#include <algorithm>
#include <sstream>

#include "command/entry/Catalogue.h"
#include "command/framework/CommandTable.h"
#include "command/parameters/InputParams.h"
#include "log/front/BasicLog.h"
#include "testing/host/Places.h"
#include "testing/run/HostTest.h"
#include "testing/run/Session.h"

namespace {

const std::string kTyper = places::source() + "/tests/completion/type.py";

struct Shell {
  const char* name;
  const char* source;  // the file in completions/
  const char* folder;  // the folder in which the shell looks for it
  const char* file;    // the name that the shell expects
};

constexpr Shell kShells[] = {
    {"bash", "ravctl.bash", "/usr/share/bash-completion/completions", "ravctl"},
    {"zsh", "_ravctl", "/usr/share/zsh/vendor-completions", "_ravctl"},
    {"fish", "ravctl.fish", "/usr/share/fish/vendor_completions.d", "ravctl.fish"},
};

std::string sourceOf(const Shell& shell) { return host::readFile(places::source() + "/completions/" + shell.source); }

// The scripts that take the words of ravctl.
constexpr const char* kScripts[] = {"ravctl-exit", "ravctl-json"};

// Returns the part of a text between two others. Fails the test if there is none.
std::string between(const std::string& text, const std::string& begin, const std::string& end) {
  const std::size_t from = text.find(begin);
  const std::size_t to = from == std::string::npos ? from : text.find(end, from + begin.size());
  EXPECT_NE(to, std::string::npos) << begin;
  return to == std::string::npos ? "" : text.substr(from + begin.size(), to - from - begin.size());
}

std::vector<std::string> wordsOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

// --- The words are compared with the command table

// Commands that accept the template as their profile.
bool mayMeanTheTemplate(const std::string& method) {
  return method == "profile details" || method == "support reset" || method == "list log";
}

std::string thirdOf(const CommandRow& row) {
  switch (row.form) {
    case CommandForm::twoWordsAndName:
      if (std::string(row.usage) == " <new profile name>") return "new";
      return mayMeanTheTemplate(row.method) ? "any" : "named";
    case CommandForm::wordAndArgument:
      return "new";
    case CommandForm::allWords:
      return std::string(row.method) == "help" ? "help" : "";
    case CommandForm::twoWords:
      break;
  }
  return "";
}

std::string keysOf(const CommandRow& row) {
  std::string keys;
  const auto command = commandTable().make(row, {}, {});
  for (const InputParamBase* param : command->params()) {
    if (param->isHidden()) continue;
    keys += (keys.empty() ? "" : " ") + param->name() + (param->takesValue() ? "=" : "");
  }
  return keys;
}

std::vector<std::string> rowsOfTheTable() {
  const CommandTable& table = commandTable();
  std::vector<std::string> rows;
  const auto add = [&](const std::string& words, const CommandRow& row) {
    rows.push_back(words + ":" + thirdOf(row) + ":" + keysOf(row));
  };
  for (const CommandRow& row : table) {
    const std::string method = row.method;
    add(method.substr(0, method.find(" <")), row);
  }
  for (const CommandAlias* alias = table.aliases; alias != table.aliases + table.aliasCount; ++alias) {
    for (const CommandRow& row : table)
      if (std::string(row.method) == alias->method) add(alias->words, row);
  }
  return rows;
}

TEST(CompletionWords, EachShellOffersExactlyTheCommandsOfTheTableAndTheirKeys) {
  for (const Shell& shell : kShells) {
    SCOPED_TRACE(shell.name);
    const std::string block = between(sourceOf(shell), "'\n", "\n'\n");
    EXPECT_THAT(linesOf(block), testing::UnorderedElementsAreArray(rowsOfTheTable()));
  }
}

TEST(CompletionWords, EachShellOffersTheModeWordsTheSubjectsOfHelpAndTheLogLevels) {
  const std::string subjects = "profile service list log support json internal";
  for (const Shell& shell : kShells) {
    SCOPED_TRACE(shell.name);
    const std::string source = sourceOf(shell);
    EXPECT_THAT(source, testing::ContainsRegex("_ravctl_modes[ =]'?--quiet --verbose --json --text'?\n"));
    EXPECT_THAT(source, testing::ContainsRegex("_ravctl_subjects[ =]'?" + subjects + "'?\n"));
    EXPECT_THAT(source, testing::ContainsRegex("[ ({]info[ ,]warn[ ,]error[ ,]debug[ ,]trace[})\n]"));
  }
  for (const std::string& subject : wordsOf(subjects)) {
    EXPECT_THAT(runRavctl({"help", subject}).out, testing::Not(testing::HasSubstr("nothing found"))) << subject;
  }
  for (const char* level : {"info", "warn", "error", "debug", "trace"}) {
    BasicLog::Level parsed;
    EXPECT_TRUE(BasicLog::parseLogLevel(level, parsed)) << level;
  }
}

// --- The shells

class CompletionTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    for (const char* part : {"/usr/bin/bash", "/usr/bin/zsh", "/usr/bin/fish", "/usr/bin/python3",
                             "/usr/share/bash-completion/bash_completion", "/usr/lib/python3/dist-packages/pexpect"}) {
      if (!host::exists(part)) GTEST_SKIP() << part << " is not installed";
    }
    for (const Shell& shell : kShells) {
      ASSERT_EQ(::mount("completions", shell.folder, "tmpfs", 0, "mode=755"), 0) << shell.folder;
      mounted_.emplace_back(shell.folder);
      host::writeFile(std::string(shell.folder) + "/" + shell.file, sourceOf(shell));
      for (const char* script : kScripts) linkFor(script, shell);
    }
    for (const char* name : {"lo", "eth0", "wlan1"}) host::makeDirs(std::string("/sys/class/net/") + name);
    // fish completes only commands that exist.
    for (const std::string command : {"ravctl", kScripts[0], kScripts[1]}) {
      host::installRecorder("/usr/bin/" + command, "/tmp/ravctl-was-run");
    }
  }

  void TearDown() override {
    for (const std::string& folder : mounted_) EXPECT_EQ(::umount2(folder.c_str(), MNT_DETACH), 0) << folder;
    EXPECT_FALSE(host::exists("/tmp/ravctl-was-run"));
    host::remove("/sys/class");
  }

  static Start start() {
    Start start;
    start.environment = {"PATH=/usr/bin:/usr/sbin", "HOME=/tmp/home", "TERM=dumb", "LC_ALL=C.UTF-8"};
    host::makeDirs("/tmp/home", 0777);
    return start;
  }

  // Types each text into bash or zsh, presses the key, and returns the command lines that result.
  static std::vector<std::string> typedInto(const std::string& shell, const std::string& key,
                                            const std::vector<std::string>& texts, Start how = start()) {
    for (const std::string& text : texts) how.input += key + "\t" + text + "\n";
    const Outcome outcome = runProgram({"/usr/bin/python3", kTyper, shell}, how);
    EXPECT_EQ(outcome.exitStatus, 0) << outcome.err;
    std::vector<std::string> lines = linesOf(outcome.out);
    for (std::string& line : lines) line.erase(line.find_last_not_of("\r ") + 1);
    EXPECT_EQ(lines.size(), texts.size()) << outcome.out << outcome.err;
    lines.resize(texts.size());
    return lines;
  }

  // Returns what `shell` offers for the last word of each text. If the shell shows only the part after "=", the key is
  // added again.
  static std::vector<std::vector<std::string>> offered(const std::string& shell,
                                                       const std::vector<std::string>& texts) {
    std::vector<std::vector<std::string>> offers;
    if (shell == "fish") {
      for (const std::string& text : texts) offers.push_back(wordsOf(answerOfFish(text)));
    } else {
      const std::vector<std::string> lines = typedInto(shell, "all", texts);
      for (std::size_t i = 0; i < texts.size(); ++i) offers.push_back(withKeys(texts[i], lines[i]));
    }
    for (auto& words : offers) std::sort(words.begin(), words.end());
    return offers;
  }

  static std::string answerOfFish(const std::string& text) {
    const Outcome outcome = runProgram({"/usr/bin/fish", "-c", "complete -C \"$argv\"", "--", text}, start());
    EXPECT_EQ(outcome.err, "");
    return outcome.out;
  }

  static std::vector<std::string> withKeys(const std::string& text, const std::string& line) {
    const std::size_t last = text.rfind(' ') + 1;
    const std::size_t key = text.find('=', last);
    std::vector<std::string> words = wordsOf(line.substr(std::min(last, line.size())));
    for (std::size_t i = 1; key != std::string::npos && i < words.size(); ++i) {
      if (words[i].find('=') == std::string::npos) words[i].insert(0, text.substr(last, key + 1 - last));
    }
    return words;
  }

 private:
  // Links the file for ravctl to the name under which the shell looks for the completion of the script.
  static void linkFor(const std::string& script, const Shell& shell) {
    if (std::string(shell.name) == "zsh") return;  // zsh reads the names in the first line of the file
    const std::string suffix = std::string(shell.file).substr(std::string("ravctl").size());
    host::makeLink(std::string(shell.folder) + "/" + script + suffix, shell.file);
  }

  std::vector<std::string> mounted_;
};

struct Completed {
  const char* why;
  const char* typed;  // behind "ravctl "
  const char* line;   // that bash and zsh make of it, behind "ravctl "
  const char* fish;   // the only candidate, without quotes
};

constexpr Completed kCompleted[] = {
    {"a first word", "ref", "reference", "reference"},
    {"a second word", "profile det", "profile details", "details"},
    {"an alias", "service bou", "service bounce", "bounce"},
    {"a name with a blank", "profile details fie", "profile details field\\ office", "field office"},
    {"a name with a blank, begun behind it", "profile details field\\ o", "profile details field\\ office",
     "field office"},
    {"a name in single quotes", "profile details 'fie", "profile details 'field office'", "field office"},
    {"a name in double quotes", "profile details \"fie", "profile details \"field office\"", "field office"},
    {"a name with a quote", "profile details o", "profile details o\\'brien", "o'brien"},
    {"a name with a quote, in quotes", "profile details 'o", "profile details 'o'\\''brien'", "o'brien"},
    {"a name that begins like a comment", "profile details \\#", "profile details \\#7", "#7"},
    {"such a name in quotes", "profile details '#", "profile details '#7'", "#7"},
    {"a name beyond ASCII", "profile details ca", "profile details café\\ au\\ lait", "café au lait"},
    {"a name with = and :", "profile details a=", "profile details a=b:c", "a=b:c"},
    {"such a name, behind the :", "profile details a=b:", "profile details a=b:c", "a=b:c"},
    {"such a name in quotes", "profile details 'a=", "profile details 'a=b:c'", "a=b:c"},
    {"a name with a dollar and a double quote", "profile details \\$", "profile details \\$x\\\"y", "$x\"y"},
    {"such a name in double quotes", "profile details \"\\$", "profile details \"\\$x\\\"y\"", "$x\"y"},
    {"a directory", "profile details dir=other", "profile details dir=other-dir", "dir=other-dir"},
    {"a key, with no blank behind it", "profile modify x net", "profile modify x network=", "network="},
    {"a value", "list log x log_level=de", "list log x log_level=debug", "log_level=debug"},
    {"an interface", "profile modify x network=e", "profile modify x network=eth0", "network=eth0"},
    {"nothing to offer", "profile create pl", "profile create pl", ""},
    {"no such command", "nothing he", "nothing he", ""},
};

void makeNamedProfiles() {
  int number = 1;
  for (const char* name : {"plain", "field office", "o'brien", "#7", "café au lait", "a=b:c", "$x\"y"}) {
    host::makeProfile("profile-" + std::to_string(number++), name);
  }
  host::makeProfile("other-dir", "x");
}

TEST_F(CompletionTest, CompletesWordsNamesKeysAndValuesWithCorrectQuoting) {
  makeNamedProfiles();
  std::vector<std::string> texts;
  for (const Completed& c : kCompleted) texts.push_back(std::string("ravctl ") + c.typed);
  const auto bash = typedInto("bash", "tab", texts);
  const auto zsh = typedInto("zsh", "tab", texts);
  for (std::size_t i = 0; i < texts.size(); ++i) {
    SCOPED_TRACE(kCompleted[i].why);
    const std::string line = std::string("ravctl ") + kCompleted[i].line;
    EXPECT_EQ(bash[i], line);
    EXPECT_EQ(zsh[i], line);
    EXPECT_EQ(answerOfFish(texts[i]), *kCompleted[i].fish == '\0' ? "" : std::string(kCompleted[i].fish) + "\n");
  }
}

TEST_F(CompletionTest, TheScriptsThatTakeTheSameWordsGetTheSameCompletions) {
  makeNamedProfiles();
  // A shell loads the completion of the first command whose words it completes, so each script has a shell of its own.
  for (const std::string script : kScripts) {
    SCOPED_TRACE(script);
    const std::vector<std::string> texts = {script + " profile details fie", script + " service sta"};
    const std::vector<std::string> full = {script + " profile details field\\ office", script + " service sta"};
    EXPECT_EQ(typedInto("bash", "tab", texts), full);
    EXPECT_EQ(typedInto("zsh", "tab", texts), full);
    EXPECT_EQ(answerOfFish(texts[0]), "field office\n");
    EXPECT_EQ(answerOfFish(texts[1]), "start\nstatus\n");
  }
}

struct Offer {
  const char* why;
  const char* typed;  // behind "ravctl "
  const char* words;
};

// Returns an offer in the form in which the shell shows it.
std::vector<std::string> shownBy(const std::string& shell, const Offer& offer) {
  std::vector<std::string> words = wordsOf(offer.words);
  const std::string typed = std::string("ravctl ") + offer.typed;
  if (shell == "fish") {  // fish shows names that begin with a dot only after a typed dot
    words.erase(std::remove_if(words.begin(), words.end(), [](auto& word) { return word[0] == '.'; }), words.end());
  } else if (words.empty()) {
    words = {typed.substr(typed.rfind(' ') + 1)};  // the command line is unchanged
  }
  std::sort(words.begin(), words.end());
  return words;
}

TEST_F(CompletionTest, OffersExactlyTheWordsThatAreValidThere) {
  host::makeProfile("profile-1", "lab");
  const Offer offers[] = {
      {"first words", "", "help json list profile reference service show support usage"},
      {"second words", "list ", "interfaces log profiles versions"},
      {"profiles, for what the template refuses", "profile rename ", "--active .current dir=profile-1 lab"},
      {"profiles, and the template", "profile details ", "--active .current .factory dir=profile-1 lab"},
      {"keys", "service restart ", "--json --quiet --text --verbose full sys="},
      {"keys that are not given yet", "service restart full sys=initd --quiet ", "--json --text --verbose"},
      {"init systems", "service start sys=", "sys=initd sys=launchd sys=null sys=systemd sys=upstart"},
      {"interfaces without the loopback", "profile create a network=", "network=auto network=eth0 network=wlan1"},
      {"truth", "profile create a allow_rename=", "allow_rename=false allow_rename=true"},
      {"the second word of a subject of help", "help service ", "bounce restart start status stop"},
      {"nothing behind free text", "profile create a helmsor=", ""},
  };
  std::vector<std::string> texts;
  for (const Offer& offer : offers) texts.push_back(std::string("ravctl ") + offer.typed);
  for (const Shell& shell : kShells) {
    const auto offered = CompletionTest::offered(shell.name, texts);
    for (std::size_t i = 0; i < texts.size(); ++i) {
      SCOPED_TRACE(std::string(shell.name) + ": " + offers[i].why);
      EXPECT_EQ(offered[i], shownBy(shell.name, offers[i]));
    }
  }
}

TEST_F(CompletionTest, NoFileInTheStoreBlocksTheShellOrIsChanged) {
  host::makeProfile("profile-1", "lab");
  host::makeFifo("/etc/zuv/profiles/profile-2/profile_name");
  host::makeDirs("/etc/zuv/profiles/profile-3/profile_name");
  host::makeLink("/etc/zuv/profiles/profile-4", "profile-1");
  host::writeFile("/etc/zuv/profiles/profile-5/profile_name", std::string(1 << 20, 'x'));
  host::writeFile("/etc/zuv/profiles/profile-6/profile_name", " \n\t \n \x01 field \n");
  host::makeProfile("profile-7", "lab");
  host::makeDirs("/etc/zuv/profiles/profile-8");
  host::makeActive("profile-1");
  const std::string before = host::tree("/etc/zuv");
  for (const Shell& shell : kShells) {
    SCOPED_TRACE(shell.name);
    const auto words = offered(shell.name, {"ravctl profile activate dir=", "ravctl profile activate fi"});
    EXPECT_THAT(words[0], testing::IsSupersetOf({"dir=profile-1", "dir=profile-2", "dir=profile-3", "dir=profile-5",
                                                 "dir=profile-7", "dir=profile-8"}));
    EXPECT_THAT(words[0], testing::Not(testing::Contains("dir=profile-4")));
    EXPECT_THAT(words[1], testing::ElementsAre("field"));
  }
  EXPECT_EQ(host::tree("/etc/zuv"), before);
}

TEST_F(CompletionTest, AUserWhoMayNotReadTheNamesGetsTheDirectoriesOffered) {
  SKIP_WITHOUT_OTHER_USERS();
  host::makeProfile("profile-1", "lab");
  host::setMode("/etc/zuv/profiles/profile-1/profile_name", 0640);
  Start asUser = start();
  asUser.uid = 1000;
  for (const char* shell : {"bash", "zsh"}) {
    EXPECT_EQ(typedInto(shell, "tab", {"ravctl profile details d", "ravctl profile details l"}, asUser),
              (std::vector<std::string>{"ravctl profile details dir=profile-1", "ravctl profile details l"}))
        << shell;
  }
}

}  // namespace
