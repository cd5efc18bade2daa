#include "testing/run/Session.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "testing/host/HostFiles.h"
#include "testing/run/Program.h"

namespace {

constexpr const char* kRight =
    "# word='a b'\n# echo \"$word\"\na b\n\n# for i in 1 2; do\n>   echo \"$i\" >&2\n> done\n1\n2\n# :\n";

// Returns the output of the script of a session.
std::string played(const std::string& text) { return runProgram({"/bin/sh", "-c", readSession(text).script}).out; }

TEST(ReadSessionTest, TheScriptPrintsTheCommandsWithTheirActualOutput) {
  const struct {
    const char* why;
    const char* text;
    const char* shown;
    const char* printed;
  } cases[] = {
      {"a correct session", kRight, kRight, kRight},
      {"wrong output", "# echo one\ntwo\n", "# echo one\ntwo\n", "# echo one\none\n"},
      {"missing output", "# echo one\n", "# echo one\n", "# echo one\none\n"},
      {"output that the command does not print", "# :\nnothing\n", "# :\nnothing\n", "# :\n"},
      {"a command after an at sign runs but is not shown", "@ word=set; echo said\n# echo \"$word\"\nset\n",
       "# echo \"$word\"\nset\n", "# echo \"$word\"\nset\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(readSession(c.text).shown, c.shown);
    EXPECT_EQ(played(c.text), c.printed);
  }
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
