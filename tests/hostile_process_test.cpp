// Callers start the program in hostile ways: with closed or few descriptors, an output that cannot be written, resource
// limits, or a strange umask.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "base/files/FileInfo.h"
#include "testing/faults/StoreCheck.h"
#include "testing/run/HostTest.h"

namespace {

using Words = std::vector<std::string>;
using testing::IsEmpty;

#ifdef RAVCTL_SANITIZED
constexpr bool kIsPlain = false;
#else
constexpr bool kIsPlain = true;
#endif
constexpr bool kIsStatic = RAVCTL_IS_STATIC_PIE;

const Words kEdits[] = {
    {"list", "profiles"},
    {"profile", "create", "new", "helmsor=h:1", "network=eth0", "invitation=x", "activate", "sys=systemd"},
    {"profile", "modify", "lab", "network=eth1", "log_level=debug", "helmsor=h:2", "new_name=office"},
    {"profile", "rename", "office", "new_name=lab"},
    {"profile", "activate", "lab", "sys=systemd"},
    {"support", "reset", "lab"},
    {"service", "restart", "sys=systemd"},
    {"support", "bundle"},
    {"profile", "delete", "new"},
};

// A child process needs descriptors too, and may print errors of its own.
bool runsChild(const Words& words) { return words.back() == "sys=systemd" || words[1] == "bundle"; }

class HostileProcessTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (!IsSkipped()) setScene();
  }

  static void setScene() {
    host::reset();
    host::makeProfile("profile-1", "lab");
    host::makeProfile("profile-2", "harbour");
    host::makeActive("profile-2");
    host::writeFile("/etc/zuv/profiles/.factory/firmware_revision", "4.1.7\n");
    host::writeFile("/etc/zuv/profiles/.factory/ca-certs/root.pem", "certificate\n");
    // Records the descriptors that it inherits.
    host::installScript("/usr/bin/systemctl", "ls /proc/self/fd > /run/descriptors\nexit 0\n");
    host::installScript("/usr/bin/zuv-sendbundle.sh", "echo bundle\n");
  }

  static void expectSoundStore(unsigned long limit) {
    SCOPED_TRACE(limit);
    EXPECT_THAT(flawsOfStore(), IsEmpty());
    EXPECT_THAT(staleLocks(), IsEmpty());
    EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-2/profile_name"), "harbour\n");
  }

  // Runs all edits one after another and returns the store after them.
  static std::string storeAfterEdits(const Start& start) {
    setScene();
    for (const Words& words : kEdits) {
      SCOPED_TRACE(testing::PrintToString(words));
      const Outcome outcome = runRavctl(words, start);
      EXPECT_EQ(outcome.exitStatus, 0);
      EXPECT_EQ(outcome.err, "");
    }
    return host::tree("/etc/zuv");
  }
};

TEST_F(HostileProcessTest, ClosedStandardDescriptorsDoNotChangeTheFiles) {
  const std::string expected = storeAfterEdits({});
  for (int closed = 1; closed < 8; ++closed) {
    Start start;
    for (int fd = 0; fd < 3; ++fd) {
      if ((closed & 1 << fd) != 0) start.closed.push_back(fd);
    }
    SCOPED_TRACE(testing::PrintToString(start.closed));
    EXPECT_EQ(storeAfterEdits(start), expected);
  }
}

TEST_F(HostileProcessTest, ChildrenInheritOnlyTheThreeStandardDescriptors) {
  for (const std::vector<int>& closed : {std::vector<int>{}, std::vector<int>{0, 1, 2}}) {
    Start start;
    start.closed = closed;
    EXPECT_EQ(runRavctl({"service", "start", "sys=systemd"}, start).exitStatus, 0);
    EXPECT_EQ(host::readFile("/run/descriptors"), "0\n1\n2\n3\n") << "ls opens 3 itself";
  }
}

// Eight descriptors are enough for every edit: a delete holds the root, the profile, a directory in it and its listing.
TEST_F(HostileProcessTest, ADescriptorLimitNeverCrashesTheProgramOrDamagesTheStore) {
  const std::string expected = storeAfterEdits({});
  // The dynamic linker and sanitizers need some descriptors before main() starts.
  const unsigned long first = kIsStatic && kIsPlain ? 0 : 5;
  for (unsigned long limit = first; limit <= 10; ++limit) {
    setScene();
    for (const Words& words : kEdits) {
      SCOPED_TRACE(std::to_string(limit) + " descriptors: " + testing::PrintToString(words));
      Start start;
      start.descriptorLimit = limit;
      start.seconds = 60;
      const Outcome outcome = runRavctl(words, start);
      EXPECT_EQ(outcome.signal, 0);
      EXPECT_EQ(outcome.exitStatus, 0);
      if (!runsChild(words)) {
        EXPECT_EQ(outcome.err, "");
      }
    }
    expectSoundStore(limit);
    if (limit >= 8) {
      EXPECT_EQ(host::tree("/etc/zuv"), expected) << limit;
    }
    EXPECT_TRUE(host::exists("/etc/zuv/profiles/profile-1/hip.conf"));
    EXPECT_THAT(host::readFile("/etc/zuv/profiles/profile-1/profile_name"), testing::AnyOf("lab\n", "office\n"));
  }
}

TEST_F(HostileProcessTest, AnOutputThatCannotBeWrittenDoesNotChangeTheFiles) {
  const std::string expected = storeAfterEdits({});
  for (const bool readerGone : {false, true}) {
    setScene();
    for (const Words& words : kEdits) {
      SCOPED_TRACE(testing::PrintToString(words));
      Start start;
      start.readerGone = readerGone;
      if (!readerGone) start.outputTo = "/dev/full";
      const Outcome outcome = runRavctl(words, start);
      EXPECT_EQ(outcome.exitStatus, 0);
      if (words[1] == "bundle") continue;  // its script prints, and reports the error itself
      // Two of the commands print nothing.
      const bool prints = words[0] != "service" && words[1] != "delete";
      EXPECT_EQ(outcome.err,
                readerGone || !prints ? "" : "ravctl: can't write standard output: No space left on device\n");
    }
    EXPECT_EQ(host::tree("/etc/zuv"), expected);
  }
}

TEST_F(HostileProcessTest, AFileSizeLimitNeverDamagesTheStore) {
  for (const unsigned long limit : {0UL, 1UL, 2UL, 4UL, 5UL, 7UL, 8UL, 11UL, 16UL, 30UL, 100UL}) {
    setScene();
    for (const Words& words : kEdits) {
      SCOPED_TRACE(std::to_string(limit) + " bytes: " + testing::PrintToString(words));
      Start start;
      start.fileLimit = limit;
      const Outcome outcome = runRavctl(words, start);
      EXPECT_EQ(outcome.signal, 0);
      EXPECT_EQ(outcome.exitStatus, 0);
    }
    expectSoundStore(limit);
  }
}

TEST_F(HostileProcessTest, TheUmaskDoesNotChangeTheStore) {
  const std::string expected = storeAfterEdits({});
  for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
    SCOPED_TRACE(mask);
    Start start;
    start.mask = mask;
    EXPECT_EQ(storeAfterEdits(start), expected);
  }
}

// The program trusts the environment of root.
TEST_F(HostileProcessTest, TheLockDirectoryThatTheEnvironmentNamesIsUsedAndLeftEmpty) {
  const struct {
    const char *given, *path;
  } cases[] = {
      {"/run/locks", "/run/locks"},
      {"/run/slash/", "/run/slash"},
      {"run/relative", "/etc/zuv/profiles/profile-2/run/relative"},  // the active profile is the working directory
      {"/run/new", "/run/new"}};
  for (const char* folder : {"/run/locks", "/run/slash", "/etc/zuv/profiles/profile-2/run/relative"})
    host::makeDirs(folder);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.given);
    Start start;
    start.environment.push_back(std::string("ZUV_LOCK_DIR=") + c.given);
    const Words edit = {"profile", "modify", "lab", "network=eth0", "--quiet"};
    EXPECT_EQ(runRavctl(edit, start).out, "");
    // A lock file that is made and removed again changes the time of its directory.
    constexpr timespec kOld[2] = {};
    EXPECT_EQ(::utimensat(AT_FDCWD, c.path, kOld, 0), 0);
    EXPECT_EQ(runRavctl(edit, start).out, "");
    EXPECT_GT(FileUtils::fileModifiedMicros(c.path), 0);
    EXPECT_EQ(host::tree(c.path), "");
  }
  EXPECT_EQ(host::modeOf("/run/new"), 0750u);
}

TEST_F(HostileProcessTest, AnEditContinuesWithoutAUsableLockDirectory) {
  host::makeFifo("/run/fifo", 0666);
  host::writeFile("/run/file", "text\n");
  const std::string endless(100'000, 'x');
  int number = 0;
  for (const std::string& folder : {std::string("/run/fifo"), std::string("/run/file"), std::string("/missing/folder"),
                                    std::string("/proc/self"), std::string("/dev/null"), endless, "/" + endless}) {
    SCOPED_TRACE(folder.substr(0, 20));
    const std::string name = "eth" + std::to_string(++number);
    Start start;
    start.seconds = 60;
    start.environment.push_back("ZUV_LOCK_DIR=" + folder);
    start.environment.push_back("ZUV_TMP_DIR=" + folder);
    EXPECT_EQ(runRavctl({"profile", "modify", "lab", "network=" + name, "--quiet"}, start).exitStatus, 0);
    EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-1/hip.conf"), "master_interface=" + name + "\n");
  }
  EXPECT_EQ(host::readFile("/run/file"), "text\n");
}

}  // namespace
