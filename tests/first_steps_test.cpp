// Runs what a newcomer runs first: the demo, the first session of README.md, and the transcript of a bug report.
#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"
#include "testing/run/FurnishedHost.h"
#include "testing/run/Matchers.h"
#include "testing/run/Program.h"
#include "testing/run/Session.h"

namespace {

const std::string kStore = places::source() + "/docs/examples/demo-store";
constexpr const char* kDemo = "/.private-host/source/tools/demo.sh";

Outcome onHost(const std::string& script) {
  return runProgram({places::privateHost(), "--store", kStore, "--", "/bin/sh", "-c", script});
}

#define SKIP_WITHOUT_A_HOST(outcome) \
  if ((outcome).exitStatus == 125) GTEST_SKIP() << (outcome).err

// Returns the indented lines of a section without their indentation.
std::string sessionOf(const std::string& text, const std::string& heading) {
  const size_t from = text.find("\n" + heading + "\n");
  if (from == std::string::npos) return "";
  std::string session;
  for (const std::string& line : linesOf(text.substr(from + 1, text.find("\n## ", from + 1) - from))) {
    if (line.compare(0, 4, "    ") == 0) session += line.substr(4) + "\n";
  }
  return session;
}

TEST(FirstStepsTest, TheSessionOfTheReadmePrintsWhatItShows) {
  const std::string session = sessionOf(host::readFile(places::source() + "/README.md"), "## A first session");
  const Outcome outcome = onHost(readSession(session).script);
  SKIP_WITHOUT_A_HOST(outcome);
  EXPECT_THAT(session, testing::HasSubstr("# ravctl profile create lab"));
  EXPECT_EQ(outcome.out, session);
}

TEST(FirstStepsTest, TheTranscriptInTheTemplateOfABugReportPrintsWhatItShows) {
  const std::string page = host::readFile(places::source() + "/docs/bug-report.md");
  const std::string session = sessionOf(page, "## How to get the answers");
  const Outcome outcome = onHost(readSession(session).script);
  SKIP_WITHOUT_A_HOST(outcome);
  EXPECT_THAT(session, testing::HasSubstr("# ravctl list versions"));
  EXPECT_EQ(outcome.out, session);
}

TEST(FirstStepsTest, TheShellCompletesWords) {
  const Outcome outcome =
      onHost("bash --noprofile --rcfile /.private-host/source/tools/shell.rc -ic 'complete -p ravctl'");
  SKIP_WITHOUT_A_HOST(outcome);
  EXPECT_EQ(outcome.out, "complete -F _ravctl ravctl\n");
}

TEST(FirstStepsTest, TheDemoRunsToItsEnd) {
  if (!missingForInitScript().empty()) GTEST_SKIP() << missingForInitScript();
  const Outcome outcome = runProgram({places::privateHost(), "--store", kStore, "--", "/bin/sh", kDemo});
  SKIP_WITHOUT_A_HOST(outcome);
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.err, "/usr/sbin/hip: no process found\n") << "no daemon runs before the first start";
  for (const char* part : {"\n$ ravctl profile activate harbour\nprofile_name: harbour\n",
                           "\n$ ravctl service status\nrunning: true\nhelmsor: true\ntunnel: true\n", "hip: ended\n",
                           "\n$ ravctl service stop\n"}) {
    EXPECT_THAT(outcome.out, testing::HasSubstr(part));
  }
}

TEST(FirstStepsTest, WithoutKillallTheDemoSkipsStepsAndSaysSo) {
  const Outcome outcome = onHost(std::string("rm -f /usr/bin/killall; exec sh '") + kDemo + "'");
  SKIP_WITHOUT_A_HOST(outcome);
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, testing::HasSubstr("is not shown; missing here: killall (psmisc)"));
  EXPECT_THAT(outcome.out, testing::Not(testing::HasSubstr("service")));
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
