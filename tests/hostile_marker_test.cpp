// Every user may write the marker of the active profile, so it may hold any text, and any kind of file may be in its
// place. In no case does the program read or write anything outside the store, and it never blocks.
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <functional>

#include "testing/run/HostTest.h"

namespace {

using Words = std::vector<std::string>;

constexpr const char* kEvil = "/tmp/evil";

Start bounded() {
  Start start;
  start.seconds = 60;
  return start;
}

// The outputs of commands on the active profile when the marker names no profile.
struct Answer {
  Words words;
  const char* out;
};
const Answer kAnswers[] = {
    {{"list", "log", ""}, "no logfile available for this profile\n"},
    {{"service", "status"}, "running: false\nhelmsor: false\ntunnel: false\n"},
    {{"support", "reset", ""}, "support reset: \n"},
    {{"profile", "delete", ""}, "status_text: application error\nstatus_code: 0x12000001\n"},
};

class HostileMarkerTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    host::makeProfile("profile-1", "lab");
    host::makeProfile("profile-2", "harbour");
    for (const char* name : {"profile_name", "hip.conf", "hip.log", "hip.state", "endbox.conf"}) {
      host::writeFile(std::string(kEvil) + "/" + name, "device_ip=secret\n");
    }
    host::writeHeartbeat(kEvil);
    profiles_ = profiles();
    evil_ = host::tree(kEvil);
  }

  static std::string profiles() {
    return host::tree(std::string(host::kProfiles) + "profile-1") +
           host::tree(std::string(host::kProfiles) + "profile-2");
  }

  void expectAnswersAndNothingTouched() {
    for (const Answer& answer : kAnswers) {
      SCOPED_TRACE(testing::PrintToString(answer.words));
      const Outcome outcome = runRavctl(answer.words, bounded());
      EXPECT_EQ(outcome.out, answer.out);
      EXPECT_EQ(outcome.err, "");
      EXPECT_EQ(outcome.exitStatus, 0);
    }
    EXPECT_EQ(profiles(), profiles_);
    EXPECT_EQ(host::tree(kEvil), evil_);
  }

  std::string profiles_;
  std::string evil_;
};

TEST_F(HostileMarkerTest, NoTextInItLeadsOutOfTheStore) {
  using std::string;
  struct Case {
    const char* why;
    string text;
  };
  const Case cases[] = {
      {"a path out of the store", "../../../tmp/evil\n"},
      {"an absolute path", "/tmp/evil\n"},
      {"a path out of a profile", "profile-1/../../../../tmp/evil\n"},
      {"a file of a profile", "profile-1/hip.conf\n"},
      {"a slash at the end", "profile-1/\n"},
      {"the root itself", ".\n"},
      {"the parent folder", "..\n"},
      {"the template", ".factory\n"},
      {"the marker itself", ".current\n"},
      {"a zero byte inside", string("profile-1\0/../../../../tmp/evil\n", 32)},
      {"a zero byte between names", string("profile-1\0profile-2\n", 20)},
      {"an empty file", ""},
      {"blank lines", "\n\r\n\t\n \n"},
      {"only control bytes and high bytes", "\x01\x1b\x7f\x80\xff\n"},
      {"only zero bytes", string(5000, '\0')},
      {"a name that is one byte too long for a file", string(256, 'x') + "\n"},
      {"a name that is too long for a path", string(5000, 'x') + "\n"},
      {"the longest line", string(9'000'000, 'x') + "\n"},
      {"a line that is too long", string(11'000'000, 'x') + "\nprofile-1\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(host::kCurrent, c.text, 0666);
    expectAnswersAndNothingTouched();
  }
}

// The next command that elects an active profile repairs the marker.
TEST_F(HostileMarkerTest, AMarkerThatNamesNoProfileIsRewritten) {
  for (const char* text : {"../../../tmp/evil\n", "/tmp/evil\n", "", ".\n", "profile-9\n"}) {
    SCOPED_TRACE(text);
    host::writeFile(host::kCurrent, text, 0600);
    EXPECT_EQ(runRavctl({"list", "profiles"}, bounded()).out,
              "profile-2\t'harbour'\nprofile-1\t'lab'\ncurrent_name: harbour\n");
    EXPECT_EQ(host::readFile(host::kCurrent), "profile-2\n");
    EXPECT_EQ(host::modeOf(host::kCurrent), 0666u);
    EXPECT_EQ(profiles(), profiles_);
    EXPECT_EQ(host::tree(kEvil), evil_);
  }
}

TEST_F(HostileMarkerTest, NoKindOfFileInItsPlaceBlocksOrLeadsOutOfTheStore) {
  struct Case {
    const char* why;
    std::function<void()> make;
  };
  const Case cases[] = {
      {"a FIFO", [] { host::makeFifo(host::kCurrent, 0666); }},
      {"a folder", [] { host::makeDirs(host::kCurrent); }},
      {"a socket", [] { host::makeSocket(host::kCurrent); }},
      {"a link to a device", [] { host::makeLink(host::kCurrent, "/dev/zero"); }},
      {"a link with a missing target", [] { host::makeLink(host::kCurrent, "/missing/file"); }},
      {"a link to itself", [] { host::makeLink(host::kCurrent, ".current"); }},
      {"a link to a folder", [] { host::makeLink(host::kCurrent, kEvil); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(host::kCurrent);
    c.make();
    expectAnswersAndNothingTouched();
    // The program cannot write such a marker either, so there is still no active profile to change.
    for (const Words& words :
         {Words{"profile", "rename", "", "new_name=x"}, Words{"profile", "modify", "", "network=x"}}) {
      EXPECT_EQ(runRavctl(words, bounded()).out, "status_text: invalid argument\nstatus_code: 0x10000003\n");
    }
    EXPECT_EQ(profiles(), profiles_);
    EXPECT_EQ(host::tree(kEvil), evil_);
  }
}

TEST_F(HostileMarkerTest, ALinkOfOurOwnIntoProcLeadsOutOfTheStoreNoMoreThanAnyText) {
  host::remove(host::kCurrent);
  host::makeLink(host::kCurrent, "/proc/" + std::to_string(::getpid()) + "/environ");
  expectAnswersAndNothingTouched();
}

TEST_F(HostileMarkerTest, ADeviceInItsPlaceNamesNoProfile) {
  SKIP_WITHOUT_OTHER_USERS();
  host::remove(host::kCurrent);
  ASSERT_EQ(::mknod(host::kCurrent, S_IFCHR | 0666, makedev(1, 5)), 0);
  expectAnswersAndNothingTouched();
}

TEST_F(HostileMarkerTest, ATextOfAnotherUserCountsOnlyIfItNamesAProfile) {
  SKIP_WITHOUT_OTHER_USERS();
  host::makeActive("profile-1");
  Start other;
  other.uid = 1000;
  const auto write = [&](const std::string& text) {
    return runProgram({"/bin/sh", "-c", "printf '" + text + "' > " + host::kCurrent}, other).exitStatus;
  };
  ASSERT_EQ(write("profile-2\\n"), 0);
  EXPECT_EQ(runRavctl({"list", "profiles"}).out, "profile-2\t'harbour'\nprofile-1\t'lab'\ncurrent_name: harbour\n");
  ASSERT_EQ(write("../../../tmp/evil\\n"), 0);
  expectAnswersAndNothingTouched();
}

}  // namespace
