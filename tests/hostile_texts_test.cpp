// Each control byte is put into each text of the command line that the program writes to a file.
#include "testing/run/HostTest.h"

namespace {

using Words = std::vector<std::string>;

constexpr const char* kRefused = "status_text: invalid argument\nstatus_code: 0x10000003\n";

struct Row {
  const char* why;
  Words words;  // of the command line; the text is appended to word `at`
  size_t at;    // the number of the word that gets the text
  const char* out;
};
const Row kRows[] = {
    {"name of a new profile, third word",
     {"profile", "create", "", "helmsor=h"},
     2,
     "status_text: invalid argument (invalid profile name)\nstatus_code: 0x10000003\n"},
    {"name of a new profile", {"profile", "create", "x", "helmsor=h", "new_name="}, 4, nullptr},
    {"new name", {"profile", "rename", "lab", "new_name="}, 3, nullptr},
    {"new name of a modification", {"profile", "modify", "lab", "new_name="}, 3, nullptr},
    {"host of a new profile", {"profile", "create", "x", "helmsor="}, 3, kRefused},
    {"host", {"profile", "modify", "lab", "helmsor="}, 3, kRefused},
    {"interface of a new profile", {"profile", "create", "x", "helmsor=h", "network="}, 4, kRefused},
    {"interface", {"profile", "modify", "lab", "network="}, 3, kRefused},
    {"invitation of a new profile", {"profile", "create", "x", "helmsor=h", "invitation="}, 4, kRefused},
    {"invitation", {"profile", "modify", "lab", "invitation="}, 3, kRefused},
};

using HostileTextsTest = HostTest;

TEST_F(HostileTextsTest, NoControlByteInsideATextReachesAFile) {
  host::makeProfile("profile-1", "lab");
  host::makeActive("profile-1");
  const std::string before = host::tree("/etc/zuv");
  for (const Row& row : kRows) {
    for (int byte = 1; byte < 128; byte = byte == 31 ? 127 : byte + 1) {
      SCOPED_TRACE(std::string(row.why) + ", byte " + std::to_string(byte));
      Words words = row.words;
      words[row.at] += std::string("a") + static_cast<char>(byte) + "b";
      const Outcome outcome = runRavctl(words);
      EXPECT_EQ(outcome.out, row.out != nullptr ? row.out : kRows[0].out);
      EXPECT_EQ(outcome.exitStatus, 0);
    }
    EXPECT_EQ(host::tree("/etc/zuv"), before) << row.why;
  }
}

TEST_F(HostileTextsTest, ControlBytesAroundANameOrAnInvitationAreRemoved) {
  for (int byte = 1; byte < 128; byte = byte == 32 ? 127 : byte + 1) {
    SCOPED_TRACE(byte);
    host::reset();
    host::makeProfile("profile-1", "lab");
    host::makeActive("profile-1");
    const std::string edge(2, static_cast<char>(byte));
    EXPECT_EQ(runRavctl({"profile", "rename", "lab", "new_name=" + edge + "new" + edge}).out, "profile_name: new\n");
    EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-1/profile_name"), "new\n");
    EXPECT_EQ(runRavctl({"profile", "modify", "new", "invitation=" + edge + "code" + edge, "--quiet"}).exitStatus, 0);
    EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-1/endbox.conf"), "activation_code=code\n");
  }
}

// These texts mean something to a shell, to printf or as a path. The program treats them as plain text.
TEST_F(HostileTextsTest, NoTextIsInterpretedAsAShellCommandFormatOrPath) {
  host::makeProfile("profile-1", "lab");
  host::makeActive("profile-1");
  std::string name = "lab";
  for (const std::string& text :
       {std::string("%s%n%p%d"), std::string("$(touch /tmp/x)"), std::string("`touch /tmp/x`"),
        std::string("; touch /tmp/x"), std::string("../../../tmp/x"), std::string("/tmp/x"), std::string("-rf"),
        std::string("\xff\xfe"), std::string(100'000, 'x')}) {
    SCOPED_TRACE(text.substr(0, 30));
    EXPECT_EQ(runRavctl({"profile", "rename", "dir=profile-1", "new_name=" + text}).out,
              "profile_name: " + text + "\n");
    EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-1/profile_name"), text + "\n");
    EXPECT_EQ(runRavctl({"profile", "details", "dir=" + text}).exitStatus, 0);
    EXPECT_FALSE(host::exists("/tmp/x"));
  }
}

}  // namespace
