// Tests of the whole program: the words that it accepts, what it prints and its exit status.
#include "command/entry/Entry.h"

#include <sys/syscall.h>

#include <algorithm>
#include <cstdlib>

#include "testing/faults/Tracer.h"
#include "testing/run/HostTest.h"

namespace {

using Words = std::vector<std::string>;
using EntryTest = HostTest;

constexpr const char* kNoName = "invalid command name\n";
constexpr const char* kNoArguments = "invalid command arguments\n";
constexpr const char* kUsageText =
    "ravctl usage:\n"
    "    <command name> <command-specific params> [--quiet | --verbose]\n"
    "    help\n"
    "    help <category>\n"
    "    help <command name>\n"
    "    reference\n"
    "    json <request object>\n";

void expectRefused(const Words& words, const char* text) {
  SCOPED_TRACE(testing::PrintToString(words).substr(0, 200));
  const Outcome outcome = runRavctl(words);
  EXPECT_EQ(outcome.out, text);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exitStatus, 1);
}

// Runs the program, which must end with 0 and an empty standard error, and returns its output.
std::string outputOf(const Words& words, const Start& start = {}) {
  SCOPED_TRACE(testing::PrintToString(words));
  const Outcome outcome = runRavctl(words, start);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exitStatus, 0);
  return outcome.out;
}

TEST_F(EntryTest, WithoutWordsTheUsageShowsTheNameThatStartedTheProgram) {
  for (const std::string argv0 : {"ravctl", "/usr/sbin/ravctl", "", "%s%n", "a\nb \xff"}) {
    Start start;
    start.argv0 = argv0;
    EXPECT_EQ(outputOf({}, start), "Usage: " + argv0 + " json <command request object>\n   or: " + argv0 +
                                       " <two-word command name> <command-specific params>\n   or: " + argv0 +
                                       " help   (for a command list and short summaries)\n");
  }
}

TEST_F(EntryTest, AnEmptyArgumentVectorPrintsTheUsage) {
  char* none[] = {nullptr};
  testing::internal::CaptureStdout();
  EXPECT_EQ(runRavctl(0, none), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Usage: ravctl json <command request object>\n"
            "   or: ravctl <two-word command name> <command-specific params>\n"
            "   or: ravctl help   (for a command list and short summaries)\n");
}

TEST_F(EntryTest, UnknownCommandWordsAreReportedOnStandardOutput) {
  expectRefused({"bogus"}, kNoName);
  expectRefused({"profile", "create"}, kNoName);
  expectRefused({"json"}, kNoName);
  expectRefused({""}, kNoName);
  expectRefused({"ravctl", "ravctl"}, kNoName);
}

TEST_F(EntryTest, WordsThatDoNotBindAreReportedOnStandardOutputAndNothingRuns) {
  host::writeFile("/etc/zuv/.systemctl", "");
  host::installRecorder("/bin/systemctl", "/tmp/calls");
  expectRefused({"service", "start", "now"}, kNoArguments);
  expectRefused({"service", "start", "sys=systemd", "now"}, kNoArguments);
  expectRefused({"profile", "create", "alpha"}, kNoArguments);
  expectRefused({"profile", "rename", "alpha"}, kNoArguments);
  expectRefused({"list", "profiles", "--verbose", "x"}, kNoArguments);
  expectRefused({"list", "log", "x", "max_lines=many"}, kNoArguments);
  EXPECT_FALSE(host::exists("/tmp/calls"));
  EXPECT_EQ(host::tree("/etc/zuv/profiles"), "");
}

TEST_F(EntryTest, ModeWordsMayStandAnywhereAfterTheName) {
  const std::string success = "status_text: success\nstatus_code: 0x00000001\n";
  const std::string usage = kUsageText, verboseUsage = "method: usage\n" + success + usage;
  EXPECT_EQ(outputOf({"ravctl"}), usage) << "the name of the program as the only word means usage";
  EXPECT_EQ(outputOf({"usage", "--quiet"}), usage);
  EXPECT_EQ(outputOf({"usage", "--verbose"}), verboseUsage);
  EXPECT_EQ(outputOf({"usage", "--verbose", "--quiet"}), usage);
  EXPECT_EQ(outputOf({"usage", "--quiet", "--json", "--verbose"}), verboseUsage);
  EXPECT_EQ(outputOf({"ravctl", "usage", "--text"}), usage);
  const std::string reference = outputOf({"reference"}), verboseReference = "method: reference\n" + success + reference;
  EXPECT_EQ(reference.substr(0, 28), "\nNAME\n        profile create");
  EXPECT_EQ(outputOf({"reference", "--verbose"}), verboseReference);
  EXPECT_EQ(outputOf({"reference", "x", "--verbose"}), verboseReference);
  EXPECT_EQ(outputOf({"reference", "--quiet"}), reference);
  EXPECT_EQ(outputOf({"reference", "--verbose", "--quiet"}), reference);
  EXPECT_EQ(outputOf({"reference", "--json"}), reference);
  EXPECT_EQ(outputOf({"reference", "a=b", "--nonsense"}), reference);
  EXPECT_EQ(outputOf({"reference", "profile", "create"}), reference);
}

TEST_F(EntryTest, ACommandThatFailedPrintsItsStatusAndStillExitsWith0) {
  const std::string code = "status_code: 0x12001001\n", status = "status_text: profile not found\n" + code;
  EXPECT_EQ(outputOf({"profile", "details", "nobody"}), status);
  EXPECT_EQ(outputOf({"profile", "details", "nobody", "--json"}), status);
  EXPECT_EQ(outputOf({"profile", "details", "nobody", "--text"}), status);
  EXPECT_EQ(outputOf({"profile", "details", "nobody", "--quiet"}), code);
  EXPECT_EQ(outputOf({"profile", "details", "nobody", "--verbose"}), "method: profile details\n" + status);
}

TEST_F(EntryTest, KnowsTheTextOfEveryApplicationStatus) {
  host::makeProfile("profile-1", "lab");
  host::makeActive("profile-1");
  const auto expectText = [](const Words& words, const std::string& lines) {
    SCOPED_TRACE(testing::PrintToString(words));
    EXPECT_THAT(runRavctl(words).out, testing::HasSubstr(lines));
  };
  expectText({"profile", "details", "lab", "--verbose"}, "status_text: profile is active\nstatus_code: 0x00001001\n");
  host::writeHeartbeat("/etc/zuv/profiles/profile-1");
  expectText({"profile", "details", "lab", "--verbose"},
             "status_text: profile is currently running\nstatus_code: 0x00001002\n");
  expectText({"support", "reset", "lab"},
             "status_text: command cannot be executed while the profile is running\nstatus_code: 0x12001002\n");
  host::installScript("/bin/systemctl", "exit 5\n");
  expectText({"service", "stop", "sys=systemd"},
             "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n");
  host::installScript("/bin/systemctl", "kill -TERM $$\n");
  expectText({"service", "stop", "sys=systemd"},
             "status_text: child process terminated by a signal\nstatus_code: 0x16001002\n");
}

TEST_F(EntryTest, AProfileMayBeNamedLikeAModeWord) {
  host::makeProfile("profile-1", "--quiet");
  host::makeActive("profile-1");
  EXPECT_EQ(runRavctl({"profile", "rename", "--quiet", "new_name=x"}).out, "profile_name: x\n");
  EXPECT_EQ(runRavctl({"profile", "rename", "--quiet", "new_name=y"}).out, "status_code: 0x12001001\n");
}

TEST_F(EntryTest, SilentlyAcceptedWordsChangeNothing) {
  EXPECT_EQ(outputOf({"list", "profiles", "", "=x", "command_name=x", "auth=a", "requestID=1", "output=f"}),
            outputOf({"list", "profiles"}));
}

// --- Unusual words

// Gives the word to several commands, which must take it as plain text.
void expectPlainText(const std::string& word) {
  SCOPED_TRACE(testing::PrintToString(word.substr(0, 40)));
  expectRefused({word}, kNoName);
  expectRefused({"service", word}, kNoName);
  expectRefused({"service", "start", word}, kNoArguments);
  expectRefused({"service", "start", "sys=x", word + "=x"}, kNoArguments);
  expectRefused({"list", "log", "x", "max_lines=" + word.substr(0, 100'000)}, kNoArguments);
  EXPECT_EQ(runRavctl({"profile", "details", word}).out, "status_text: profile not found\nstatus_code: 0x12001001\n");
  EXPECT_EQ(runRavctl({"json", word}).out, "subcommand:\n");
}

TEST_F(EntryTest, NoWordIsUsedAsAFormatString) {
  for (const std::string word : {"%n", "%s%s%s%s%s%s%s%s%n", "%99999999d", "%1$n", "%*.*f"}) {
    expectPlainText(word);
    expectRefused({"service", "start", word + "=" + word}, kNoArguments);
    EXPECT_EQ(runRavctl({"help", word}).out.substr(0, 34 + word.size()),
              "ravctl help: nothing found for '" + word + "'\n");
    host::reset();
    host::makeProfile("profile-1", "lab");
    host::makeActive("profile-1");
    EXPECT_EQ(runRavctl({"profile", "rename", "lab", "new_name=" + word}).out, "profile_name: " + word + "\n");
    EXPECT_EQ(runRavctl({"list", "profiles"}).out, "profile-1\t'" + word + "'\ncurrent_name: " + word + "\n");
  }
}

TEST_F(EntryTest, WordsMayHoldAnyByteAndBeVeryLong) {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
  expectPlainText(bytes);
  expectPlainText(std::string(131'000, 'x'));  // the kernel accepts no longer word
  EXPECT_EQ(runRavctl({"json", std::string(131'000, '[')}).out, "subcommand:\n");
}

TEST_F(EntryTest, ManyWordsAreAccepted) {
  Words same = {"list", "profiles"};
  Words keys = {"list", "profiles"};
  Words modes = {"usage"};
  for (int i = 0; i < 10'000; ++i) {
    same.push_back("requestID=" + std::to_string(i));
    keys.push_back("key" + std::to_string(i));
    modes.push_back(i % 2 == 0 ? "--quiet" : "--verbose");
  }
  EXPECT_EQ(runRavctl(same).out, runRavctl({"list", "profiles"}).out);
  expectRefused(keys, kNoArguments);
  expectRefused(Words(10'000, "bogus"), kNoName);
  EXPECT_EQ(runRavctl(modes).out,
            std::string("method: usage\nstatus_text: success\nstatus_code: 0x00000001\n") + kUsageText);
  Words help(10'000, "profile");
  help[0] = "help";
  EXPECT_EQ(runRavctl(help).exitStatus, 0);
}

// --- Threads and the log

class TracedEntryTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
#ifdef RAVCTL_SANITIZED
    GTEST_SKIP() << "a sanitizer does not run under a trace";
#endif
    if (!whyNoTracing().empty()) GTEST_SKIP() << whyNoTracing();
    host::writeFile("/etc/zuv/.systemctl", "");
    host::installRecorder("/bin/systemctl", "/tmp/calls");
    host::makeProfile("profile-1", "lab");
    host::makeActive("profile-1");
  }

  static TraceResult traced(Words words, const TracePlan::Meddle& meddling = {}) {
    TracePlan plan;
    plan.begin = SYS_poll;
    plan.keepCalls = true;
    plan.meddling = meddling;
    // Without this variable an instrumented program would write its profile into the working directory.
    const char* profile = std::getenv("LLVM_PROFILE_FILE");
    plan.environment = {std::string("LLVM_PROFILE_FILE=") + (profile == nullptr ? "/dev/null" : profile)};
    words.insert(words.begin(), ravctlPath());
    return traceProgram(words, plan);
  }
  static Words pathsOf(const TraceResult& result, const Words& names) {
    Words paths;
    for (const TracedCall& call : result.calls) {
      if (std::find(names.begin(), names.end(), call.name) != names.end()) paths.push_back(call.path);
    }
    return paths;
  }
};

TEST_F(TracedEntryTest, CommandsStartNoThreadAndOneProcessForEachCallOfTheInitSystem) {
  const std::pair<Words, std::size_t> cases[] = {
      {{"list", "profiles"}, 0},
      {{"profile", "create", "new", "helmsor=h", "network=eth0"}, 0},
      {{"profile", "rename", "new", "new_name=newer"}, 0},
      {{"list", "log", "lab"}, 0},
      {{"list", "interfaces"}, 0},
      {{"service", "status"}, 0},
      {{"service", "start"}, 1},
      {{"profile", "activate", "newer"}, 2},
      {{"json", "{}"}, 0},
      {{"help"}, 0},
  };
  std::size_t toolsRun = 0;
  for (const auto& [words, tools] : cases) {
    SCOPED_TRACE(testing::PrintToString(words));
    const TraceResult result = traced(words);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(pathsOf(result, {"clone", "clone3", "fork", "vfork"}).size(), tools);
    toolsRun += tools;
    const std::string calls = host::exists("/tmp/calls") ? host::readFile("/tmp/calls") : "";
    EXPECT_EQ(static_cast<std::size_t>(std::count(calls.begin(), calls.end(), '\n')), toolsRun);
  }
}

TEST_F(TracedEntryTest, ALoggedFailureIsWrittenNowhere) {
  const TraceResult whole = traced({"list", "interfaces"});
  const auto socket = std::find_if(whole.calls.begin(), whole.calls.end(),
                                   [](const TracedCall& call) { return call.name == "socket"; });
  ASSERT_NE(socket, whole.calls.end());
  const std::string before = host::tree("/etc/zuv") + host::tree("/tmp") + host::tree("/var");
  const TraceResult failed = traced({"list", "interfaces"}, {Meddling::fail, socket->number, kFromThereOn, EMFILE});
  EXPECT_EQ(failed.out, "status_text: stdlib error: getifaddrs\nstatus_code: 0x14000009\n");
  EXPECT_EQ(failed.err, "");
  EXPECT_THAT(pathsOf(failed, {"clone", "clone3"}), testing::IsEmpty());
  EXPECT_THAT(pathsOf(failed, {"connect", "sendto", "sendmsg"}), testing::IsEmpty());
  EXPECT_EQ(host::tree("/etc/zuv") + host::tree("/tmp") + host::tree("/var"), before);
}

}  // namespace
