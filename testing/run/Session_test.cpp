#include "testing/run/Session.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "testing/host/HostFiles.h"
#include "testing/run/Program.h"

namespace {

// Returns the output of the script of a session.
std::string played(const std::string& text) { return runProgram({"/bin/sh", "-c", readSession(text).script}).out; }

TEST(ReadSessionTest, TheScriptOfACorrectSessionPrintsTheSession) {
  const std::string text =
      "# word='a b'\n# echo \"$word\"\na b\n\n# for i in 1 2; do\n>   echo \"$i\" >&2\n> done\n1\n2\n# :\n";
  EXPECT_EQ(readSession(text).shown, text);
  EXPECT_EQ(played(text), text);
}

TEST(ReadSessionTest, PlayingASessionWithWrongOutputPrintsTheActualOutput) {
  EXPECT_EQ(played("# echo one\ntwo\n"), "# echo one\none\n");
  EXPECT_EQ(played("# echo one\n"), "# echo one\none\n");
  EXPECT_EQ(played("# :\nnothing\n"), "# :\n");
}

TEST(ReadSessionTest, AnAtSignCommandRunsButIsNotShown) {
  const std::string text = "@ word=set; echo said\n# echo \"$word\"\nset\n";
  EXPECT_EQ(readSession(text).shown, "# echo \"$word\"\nset\n");
  EXPECT_EQ(played(text), readSession(text).shown);
}

TEST(ReadSessionTest, ADollarCommandRunsAsAnUnprivilegedUser) {
  if (!host::hasOtherUsers()) GTEST_SKIP() << "needs a second user, and a user namespace without root has one alone";
  const std::string text = "$ id -u; cat\n65534\n# echo $((1 + 1))\n2\n";
  EXPECT_TRUE(readSession(text).needsAnyUser);
  EXPECT_EQ(played(text), text);
}

TEST(ReadSessionTest, TextWithoutACommandBeforeItIsRefused) {
  EXPECT_THROW((void)readSession("said\n# echo said\n"), std::runtime_error);
  EXPECT_THROW((void)readSession("> done\n"), std::runtime_error);
}

}  // namespace
