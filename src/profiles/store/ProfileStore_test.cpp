// Tests of paths, names, the active profile and selectors. ProfileListing_test.cpp tests listing and repair.
#include "profiles/store/ProfileStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "command/status/AppStatusCodes.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using namespace std::string_literals;

constexpr const char* kDir = "/etc/zuv/profiles/profile-1";
constexpr const char* kNameFile = "/etc/zuv/profiles/profile-1/profile_name";

// Entries of other kinds in the place of one of our files.
struct Stranger {
  const char* why;
  void (*put)(const std::string& path);
};
constexpr Stranger kStrangers[] = {
    {"a FIFO", [](const std::string& path) { host::makeFifo(path); }},
    {"a directory", [](const std::string& path) { host::makeDirs(path); }},
    {"a socket", [](const std::string& path) { host::makeSocket(path); }},
    {"a link to a directory", [](const std::string& path) { host::makeLink(path, "/tmp"); }},
    {"a link to a FIFO",
     [](const std::string& path) {
       host::remove("/tmp/fifo");
       host::makeFifo("/tmp/fifo");
       host::makeLink(path, "/tmp/fifo");
     }},
    {"a link to itself", [](const std::string& path) { host::makeLink(path, path); }},
    {"a link to a device", [](const std::string& path) { host::makeLink(path, "/dev/zero"); }},
};

std::string nameAsRead(const std::string& dir, bool expected = true) {
  std::string name = "left over";
  EXPECT_EQ(ProfileStore::readProfileName(dir, name), expected);
  return name;
}

// --- Paths

using ProfilePathTest = HostTest;

TEST_F(ProfilePathTest, TheFixedPathsAreBelowEtcZuv) {
  EXPECT_STREQ(ProfileStore::baseDir(), "/etc/zuv/");
  EXPECT_STREQ(ProfileStore::profilesRoot(), "/etc/zuv/profiles/");
  EXPECT_EQ(ProfileStore::factoryDir(), "/etc/zuv/profiles/.factory");
  EXPECT_EQ(ProfileStore::activeFile(), "/etc/zuv/profiles/.current");
}

TEST_F(ProfilePathTest, ADirectoryNameIsAppendedToTheRoot) {
  std::string path;
  EXPECT_TRUE(ProfileStore::profileDir("profile-123123", path));
  EXPECT_EQ(path, "/etc/zuv/profiles/profile-123123");
  EXPECT_TRUE(ProfileStore::fileInProfile("profile-123123", "hip.conf", path));
  EXPECT_EQ(path, "/etc/zuv/profiles/profile-123123/hip.conf");
}

TEST_F(ProfilePathTest, AnEmptyPartGivesNoPath) {
  std::string path = "left over";
  EXPECT_FALSE(ProfileStore::profileDir("", path));
  EXPECT_EQ(path, "");
  path = "left over";
  EXPECT_FALSE(ProfileStore::fileInProfile("", "hip.conf", path));
  EXPECT_EQ(path, "");
  path = "left over";
  EXPECT_FALSE(ProfileStore::fileInProfile("profile-1", "", path));
  EXPECT_EQ(path, "");
}

TEST_F(ProfilePathTest, AFileOfTheActiveProfileNeedsAnActiveProfile) {
  std::string path = "left over";
  EXPECT_FALSE(ProfileStore::fileInActiveProfile("hip.conf", path));
  EXPECT_EQ(path, "");
  host::makeActive("profile-1");
  EXPECT_TRUE(ProfileStore::fileInActiveProfile("hip.conf", path));
  EXPECT_EQ(path, "/etc/zuv/profiles/profile-1/hip.conf");
  EXPECT_FALSE(ProfileStore::fileInActiveProfile("", path));
  EXPECT_EQ(path, "");
}

TEST_F(ProfilePathTest, AFileOfTheActiveProfileNeedsAReadableMarker) {
  host::makeActive("profile-1");
  host::setMode(host::kCurrent, 0);
  const host::BoundByModes bound;
  std::string path = "left over";
  EXPECT_FALSE(ProfileStore::fileInActiveProfile("hip.conf", path));
  EXPECT_EQ(path, "");
}

TEST_F(ProfilePathTest, APathIsCopiedOutWholeOrReportedAsCut) {
  struct {
    const char* why;
    std::size_t size;
    bool whole;
    const char* expected;
  } cases[] = {
      {"room to spare", 64, true, "/etc/zuv/"}, {"room for the path and its zero byte", 10, true, "/etc/zuv/"},
      {"one byte short", 9, false, "/etc/zuv"}, {"room for the zero byte only", 1, false, ""},
      {"no room at all", 0, false, "******"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    char buffer[65] = "******";
    EXPECT_EQ(ProfileStore::copyBaseDir(buffer, c.size), c.whole);
    EXPECT_STREQ(buffer, c.expected);
  }
}

TEST_F(ProfilePathTest, EveryPathCanBeCopiedOut) {
  host::makeActive("profile-2");
  char buffer[128];
  EXPECT_TRUE(ProfileStore::copyProfileDir("profile-1", buffer, sizeof buffer));
  EXPECT_STREQ(buffer, "/etc/zuv/profiles/profile-1");
  EXPECT_TRUE(ProfileStore::copyFactoryDir(buffer, sizeof buffer));
  EXPECT_STREQ(buffer, "/etc/zuv/profiles/.factory");
  EXPECT_TRUE(ProfileStore::copyFileInProfile("profile-1", "hip.conf", buffer, sizeof buffer));
  EXPECT_STREQ(buffer, "/etc/zuv/profiles/profile-1/hip.conf");
  EXPECT_TRUE(ProfileStore::copyFileInActiveProfile("hip.log", buffer, sizeof buffer));
  EXPECT_STREQ(buffer, "/etc/zuv/profiles/profile-2/hip.log");
}

TEST_F(ProfilePathTest, APathThatCannotBeFormedIsCopiedOutEmpty) {
  char buffer[128] = "left over";
  EXPECT_FALSE(ProfileStore::copyProfileDir("", buffer, sizeof buffer));
  EXPECT_STREQ(buffer, "");
  std::strcpy(buffer, "left over");
  EXPECT_FALSE(ProfileStore::copyFileInProfile("profile-1", "", buffer, sizeof buffer));
  EXPECT_STREQ(buffer, "");
  std::strcpy(buffer, "left over");
  EXPECT_FALSE(ProfileStore::copyFileInActiveProfile("hip.conf", buffer, sizeof buffer));
  EXPECT_STREQ(buffer, "");
}

// --- Reading a display name

using ProfileNameTest = HostTest;

TEST_F(ProfileNameTest, TheFirstLineThatIsNotBlankIsTheName) {
  const struct {
    const char* why;
    std::string content;
    std::string name;
  } cases[] = {
      {"a name and a newline", "lab\n", "lab"},
      {"no newline", "lab", "lab"},
      {"a second line", "lab\nother\n", "lab"},
      {"blank lines first", "\n \t\r\n\v\nlab\n", "lab"},
      {"blanks around", " \t lab \r\n", "lab"},
      {"blanks inside", "my  lab\n", "my  lab"},
      {"a high byte at the end", "lab\x80\n", "lab"},
      {"a high byte at the start", "\xfflab\n", "lab"},
      {"high bytes inside", "l\xc3\xa4"s + "b\n", "l\xc3\xa4"s + "b"},
      {"a zero byte at the end", "lab\0\n"s, "lab"},
      {"a zero byte inside", "la\0b\n"s, "la\0b"s},
      {"a line of high bytes first", "\xc3\xa4\nlab\n", "lab"},
      {"the first and the last printable byte at the ends", "!lab~\n", "!lab~"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kNameFile, c.content);
    EXPECT_EQ(nameAsRead(kDir), c.name);
    EXPECT_EQ(host::readFile(kNameFile), c.content);
  }
}

TEST_F(ProfileNameTest, OnlyPrintableBytesStayAtTheEndsOfAName) {
  for (int byte = 0; byte < 256; ++byte) {
    SCOPED_TRACE(byte);
    const std::string text(1, static_cast<char>(byte));
    const bool printable = byte > 32 && byte < 127;
    host::writeFile(kNameFile, "a" + text + "\n");
    EXPECT_EQ(nameAsRead(kDir), printable ? "a" + text : "a");
    host::writeFile(kNameFile, text + "a\n");
    EXPECT_EQ(nameAsRead(kDir), printable ? text + "a" : "a");
    host::writeFile(kNameFile, "a" + text + "b\n");
    EXPECT_EQ(nameAsRead(kDir), byte == '\n' ? "a" : "a" + text + "b");
  }
}

TEST_F(ProfileNameTest, ADirectoryWithoutANameIsNamedProfile) {
  const struct {
    const char* why;
    std::optional<std::string> content;
  } cases[] = {{"no file", std::nullopt},
               {"an empty file", ""},
               {"a newline only", "\n"},
               {"blanks only", " \n\t\n"},
               {"high bytes only", "\x80\n"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(kDir);
    host::makeDirs(kDir);
    if (c.content) host::writeFile(kNameFile, *c.content);
    EXPECT_EQ(nameAsRead(kDir), "profile");
    EXPECT_EQ(host::tree(kDir), "f 0640 profile_name \"profile\\n\"\n");
  }
}

TEST_F(ProfileNameTest, ARepairedNameHasMode0640WhateverTheUmask) {
  for (const mode_t mask : {mode_t{022}, mode_t{0}, mode_t{0777}}) {
    SCOPED_TRACE(mask);
    host::remove(kDir);
    host::makeDirs(kDir);
    ::umask(mask);
    EXPECT_EQ(nameAsRead(kDir), "profile");
    ::umask(022);
    EXPECT_EQ(host::tree(kDir), "f 0640 profile_name \"profile\\n\"\n");
  }
}

TEST_F(ProfileNameTest, AnUnreadableNameThatCanBeWrittenIsRepaired) {
  host::writeFile(kNameFile, "secret name\n", 0200);
  const host::BoundByModes bound;
  EXPECT_EQ(nameAsRead(kDir), "profile");
  EXPECT_EQ(host::tree(kDir), "f 0640 profile_name \"profile\\n\"\n");
}

TEST_F(ProfileNameTest, ANameThatCannotBeRepairedIsAFailureWithAnEmptyName) {
  host::writeFile(kNameFile, "lab\n", 0);
  {
    const host::BoundByModes bound;
    EXPECT_EQ(nameAsRead(kDir, false), "");
  }
  EXPECT_EQ(host::tree(kDir), "f 0000 profile_name \"lab\\n\"\n");
}

TEST_F(ProfileNameTest, ANameFileOfAnotherKindIsNeitherReadNorWritten) {
  for (const Stranger& stranger : kStrangers) {
    SCOPED_TRACE(stranger.why);
    host::remove(kDir);
    host::makeDirs(kDir);
    stranger.put(kNameFile);
    const std::string before = host::tree(kDir);
    EXPECT_EQ(nameAsRead(kDir, false), "");
    EXPECT_EQ(host::tree(kDir), before);
  }
}

TEST_F(ProfileNameTest, NothingIsWrittenToAFifoWithAReader) {
  host::makeFifo(kNameFile);
  const int reader = ::open(kNameFile, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  EXPECT_EQ(nameAsRead(kDir, false), "");
  char byte = 0;
  EXPECT_EQ(::read(reader, &byte, 1), 0);
  ::close(reader);
}

TEST_F(ProfileNameTest, ALinkToANameIsFollowed) {
  host::writeFile("/tmp/name", "linked\n");
  host::makeLink(kNameFile, "/tmp/name");
  EXPECT_EQ(nameAsRead(kDir), "linked");
}

TEST_F(ProfileNameTest, ALinkToTheNullDeviceCountsAsAnEmptyName) {
  host::makeLink(kNameFile, "/dev/null");
  EXPECT_EQ(nameAsRead(kDir), "profile");
  EXPECT_EQ(host::tree(kDir), "l profile_name -> /dev/null\n");
}

TEST_F(ProfileNameTest, OnlyAnExistingRealDirectoryIsRepaired) {
  host::makeDirs("/tmp/elsewhere");
  host::makeLink("/etc/zuv/profiles/link", "/tmp/elsewhere");
  host::writeFile("/etc/zuv/profiles/file", "");
  for (const char* dir : {"/etc/zuv/profiles/link", "/etc/zuv/profiles/file", "/etc/zuv/profiles/missing", ""}) {
    SCOPED_TRACE(dir);
    EXPECT_EQ(nameAsRead(dir, false), "");
  }
  EXPECT_EQ(host::tree("/tmp/elsewhere"), "");
  EXPECT_EQ(host::tree(host::kProfiles), "f 0644 file \"\"\nl link -> /tmp/elsewhere\n");
}

TEST_F(ProfileNameTest, ANameIsReadThroughALinkToItsDirectory) {
  host::writeFile("/tmp/elsewhere/profile_name", "linked\n");
  host::makeLink("/etc/zuv/profiles/link", "/tmp/elsewhere");
  EXPECT_EQ(nameAsRead("/etc/zuv/profiles/link"), "linked");
}

// --- Writing a display name

TEST_F(ProfileNameTest, ANameIsWrittenWithANewlineAndMode0640) {
  for (const mode_t mask : {mode_t{022}, mode_t{0}, mode_t{0777}}) {
    SCOPED_TRACE(mask);
    host::remove(kDir);
    host::makeDirs(kDir);
    ::umask(mask);
    EXPECT_THAT(ProfileStore::writeProfileName("profile-1", "lab"), HasCode(status::success));
    ::umask(022);
    EXPECT_EQ(host::tree(kDir), "f 0640 profile_name \"lab\\n\"\n");
  }
}

TEST_F(ProfileNameTest, AShorterNameReplacesALongerOneCompletely) {
  host::writeFile(kNameFile, "a long name\nand more\n", 0600);
  EXPECT_THAT(ProfileStore::writeProfileName("profile-1", "lab"), HasCode(status::success));
  EXPECT_EQ(host::tree(kDir), "f 0640 profile_name \"lab\\n\"\n");
}

TEST_F(ProfileNameTest, AFailedWriteOfANameReturnsItsStatus) {
  EXPECT_THAT(ProfileStore::writeProfileName("", "lab"), HasCode(status::invalidArgument));
  EXPECT_THAT(ProfileStore::writeProfileName("missing", "lab"), HasCode(status::openError));
  host::makeFifo(kNameFile);
  EXPECT_THAT(ProfileStore::writeProfileName("profile-1", "lab"), HasCode(status::openError));
  EXPECT_EQ(host::tree(host::kProfiles), "d 0755 profile-1\np 0644 profile-1/profile_name\n");
}

// --- A record from a directory name

using ProfileRecordTest = HostTest;

TEST_F(ProfileRecordTest, ARecordHoldsPathDirectoryAndName) {
  host::makeProfile("profile-1", "lab");
  const ProfileRecord record = ProfileStore::recordFromDirname("profile-1");
  EXPECT_TRUE(record.valid);
  EXPECT_EQ(record.dir, "/etc/zuv/profiles/profile-1");
  EXPECT_EQ(record.dirname, "profile-1");
  EXPECT_EQ(record.name, "lab");
}

TEST_F(ProfileRecordTest, TheRecordOfAMissingDirectoryIsInvalid) {
  const ProfileRecord record = ProfileStore::recordFromDirname("profile-1");
  EXPECT_FALSE(record.valid);
  EXPECT_EQ(record.dirname, "profile-1");
  EXPECT_EQ(record.name, "");
  EXPECT_EQ(host::tree(host::kProfiles), "");
}

TEST_F(ProfileRecordTest, TheRecordOfAnEmptyDirectoryNameIsInvalidAndNothingIsWritten) {
  const ProfileRecord record = ProfileStore::recordFromDirname("");
  EXPECT_FALSE(record.valid);
  EXPECT_EQ(record.dir, "");
  EXPECT_EQ(host::tree(host::kProfiles), "");
}

// --- The active profile

using ActiveProfileTest = HostTest;

TEST_F(ActiveProfileTest, TheMarkerNamesTheDirectoryOfTheActiveProfile) {
  host::makeProfile("profile-1", "lab");
  host::makeActive("profile-1");
  ProfileRecord record;
  EXPECT_TRUE(ProfileStore::readActiveRecord(record));
  EXPECT_TRUE(record.valid);
  EXPECT_EQ(record.dir, "/etc/zuv/profiles/profile-1");
  EXPECT_EQ(record.dirname, "profile-1");
  EXPECT_EQ(record.name, "lab");
  std::string dirname;
  EXPECT_TRUE(ProfileStore::readActiveDirname(dirname));
  EXPECT_EQ(dirname, "profile-1");
}

TEST_F(ActiveProfileTest, AMissingMarkerGivesAValidRecordWithoutNames) {
  ProfileRecord record;
  record.dir = record.dirname = record.name = "left over";
  EXPECT_TRUE(ProfileStore::readActiveRecord(record));
  EXPECT_TRUE(record.valid);
  EXPECT_EQ(record.dir, "");
  EXPECT_EQ(record.dirname, "");
  EXPECT_EQ(record.name, "");
}

TEST_F(ActiveProfileTest, WithAnUnreadableMarkerThereIsNoActiveProfile) {
  host::makeProfile("profile-1", "lab");
  host::writeFile(host::kCurrent, "profile-1\n", 0);
  const host::BoundByModes bound;
  ProfileRecord record;
  record.dirname = "left over";
  EXPECT_FALSE(ProfileStore::readActiveRecord(record));
  EXPECT_FALSE(record.valid);
  EXPECT_EQ(record.dirname, "");
  std::string dirname = "left over";
  EXPECT_FALSE(ProfileStore::readActiveDirname(dirname));
  EXPECT_EQ(dirname, "");
}

TEST_F(ActiveProfileTest, TheNameOfTheActiveProfileIsNotRepaired) {
  host::makeDirs(kDir);
  host::makeActive("profile-1");
  ProfileRecord record;
  EXPECT_TRUE(ProfileStore::readActiveRecord(record));
  EXPECT_EQ(record.dirname, "profile-1");
  EXPECT_EQ(record.name, "");
  EXPECT_EQ(host::tree(kDir), "");
}

TEST_F(ActiveProfileTest, TheActiveRecordIsNotCheckedAgainstTheStore) {
  host::makeActive("gone");
  ProfileRecord record;
  EXPECT_TRUE(ProfileStore::readActiveRecord(record));
  EXPECT_EQ(record.dir, "/etc/zuv/profiles/gone");
  EXPECT_EQ(record.dirname, "gone");
  EXPECT_EQ(record.name, "");
}

TEST_F(ActiveProfileTest, AMarkerThatIsNotAPlainNameCountsAsEmpty) {
  const struct {
    const char* why;
    std::string content;
  } cases[] = {
      {"empty", ""},
      {"blank", " \n\t\n"},
      {"high bytes only", "\xc3\xa4\n"},
      {"the root itself", ".\n"},
      {"the directory above", "..\n"},
      {"a path out of the store", "../../../tmp/evil\n"},
      {"a path out of the store, beginning with a name", "profile-1/../../..\n"},
      {"an absolute path", "/tmp/evil\n"},
      {"a slash at the end", "profile-1/\n"},
      {"a path below a profile", "profile-1/sub\n"},
      {"a slash only", "/\n"},
      {"the template", ".factory\n"},
      {"the marker", ".current\n"},
      {"a hidden name", ".profile-1\n"},
      {"blanks before a hidden name", "  .profile-1\n"},
      {"a zero byte", "profile-1\0x\n"s},
      {"a zero byte before a path", "profile-1\0/../x\n"s},
  };
  host::makeProfile("profile-1", "lab");
  host::makeProfile(".factory", "factory");
  host::makeProfile(".profile-1", "hidden");
  host::writeFile("/tmp/evil/profile_name", "evil\n");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(host::kCurrent, c.content, 0666);
    ProfileRecord record;
    EXPECT_TRUE(ProfileStore::readActiveRecord(record));
    EXPECT_EQ(record.dirname, "");
    EXPECT_EQ(record.dir, "");
    EXPECT_EQ(record.name, "");
    std::string path = "left over";
    EXPECT_FALSE(ProfileStore::fileInActiveProfile("hip.conf", path));
    EXPECT_EQ(path, "");
    EXPECT_EQ(host::readFile(host::kCurrent), c.content);
  }
}

TEST_F(ActiveProfileTest, AnOddButPlainNameInTheMarkerIsAccepted) {
  const struct {
    const char* content;
    const char* dirname;
  } cases[] = {
      {" profile-1 \n", "profile-1"}, {"a b\n", "a b"}, {"\n\nx\n", "x"}, {"a..b\n", "a..b"}, {"x\x80\n", "x"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.content);
    host::writeFile(host::kCurrent, c.content, 0666);
    std::string dirname;
    EXPECT_TRUE(ProfileStore::readActiveDirname(dirname));
    EXPECT_EQ(dirname, c.dirname);
  }
}

TEST_F(ActiveProfileTest, AMarkerThatIsNotARegularFileCountsAsEmptyAndCannotBeSet) {
  for (const Stranger& stranger : kStrangers) {
    SCOPED_TRACE(stranger.why);
    host::remove(host::kCurrent);
    stranger.put(host::kCurrent);
    std::string dirname = "left over";
    EXPECT_TRUE(ProfileStore::readActiveDirname(dirname));
    EXPECT_EQ(dirname, "");
    EXPECT_FALSE(ProfileStore::setActive("profile-1"));
  }
}

TEST_F(ActiveProfileTest, SettingWritesTheMarkerWithMode0666WhateverTheUmask) {
  for (const mode_t mask : {mode_t{022}, mode_t{0}, mode_t{0777}}) {
    SCOPED_TRACE(mask);
    host::remove(host::kCurrent);
    ::umask(mask);
    EXPECT_TRUE(ProfileStore::setActive("profile-123123"));
    ::umask(022);
    EXPECT_EQ(host::tree(host::kProfiles), "f 0666 .current \"profile-123123\\n\"\n");
  }
}

TEST_F(ActiveProfileTest, SettingReplacesTheOldContentOfTheMarker) {
  host::writeFile(host::kCurrent, "profile-with-a-long-name\nand a second line\n", 0600);
  EXPECT_TRUE(ProfileStore::setActive("profile-1"));
  EXPECT_EQ(host::tree(host::kProfiles), "f 0666 .current \"profile-1\\n\"\n");
}

TEST_F(ActiveProfileTest, SettingFailsWithoutARoot) {
  host::remove(host::kProfiles);
  EXPECT_FALSE(ProfileStore::setActive("profile-1"));
  EXPECT_FALSE(host::exists(host::kProfiles));
}

TEST_F(ActiveProfileTest, AnEmptyDirectoryNameIsNeverMadeActive) {
  host::makeActive("profile-1");
  EXPECT_FALSE(ProfileStore::setActive(""));
  EXPECT_EQ(host::readFile(host::kCurrent), "profile-1\n");
}

TEST_F(ActiveProfileTest, SettingFailsWhenTheModeCannotBeSet) {
  const ArmedFaults armed({1, true, EPERM, {"chmod"}});
  EXPECT_FALSE(ProfileStore::setActive("profile-1"));
}

TEST_F(ActiveProfileTest, AProfileIsActiveIfTheMarkerHoldsItsDirectoryName) {
  host::makeProfile("profile-1", "lab");
  host::makeProfile("profile-2", "lab 2");
  host::makeActive("profile-2");
  EXPECT_FALSE(ProfileStore::isActive(ProfileStore::recordFromDirname("profile-1")));
  EXPECT_TRUE(ProfileStore::isActive(ProfileStore::recordFromDirname("profile-2")));
}

TEST_F(ActiveProfileTest, NoProfileIsActiveWithoutAReadableMarker) {
  host::makeProfile("profile-1", "lab");
  const ProfileRecord profile = ProfileStore::recordFromDirname("profile-1");
  EXPECT_FALSE(ProfileStore::isActive(profile));
  EXPECT_FALSE(ProfileStore::isActive(ProfileRecord()));
  host::writeFile(host::kCurrent, "profile-1\n", 0);
  const host::BoundByModes bound;
  EXPECT_FALSE(ProfileStore::isActive(profile));
}

TEST_F(ActiveProfileTest, TheDaemonMayRunUnlessItsHeartbeatSaysItDoesNot) {
  host::makeProfile("profile-1", "lab");
  EXPECT_FALSE(ProfileStore::daemonMayRun()) << "no active profile";
  host::makeActive("profile-1");
  EXPECT_FALSE(ProfileStore::daemonMayRun()) << "no heartbeat";
  host::writeHeartbeat("/etc/zuv/profiles/profile-1");
  EXPECT_TRUE(ProfileStore::daemonMayRun()) << "running";
  host::writeFile("/etc/zuv/profiles/profile-1/hipvars.txt", "uptime.now=1\n");
  EXPECT_TRUE(ProfileStore::daemonMayRun()) << "unknown";
  host::writeFile("/etc/zuv/profiles/profile-1/hipvars.txt", "uptime.now=1\nuptime.started=1\n");
  EXPECT_FALSE(ProfileStore::daemonMayRun()) << "an old heartbeat";
}

// --- Selectors

class SelectorTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    host::makeProfile("profile-1", "lab");
    host::makeProfile("profile-2", "office");
    host::makeProfile(".factory", "template");
    host::makeActive("profile-2");
    before_ = host::tree(host::kProfiles);
  }

  // Checks the status of the resolution and returns the record.
  ProfileRecord resolve(const std::string& text, StatusCode expected) {
    ProfileRecord record;
    record.valid = true;
    record.dir = record.dirname = record.name = "left over";
    EXPECT_THAT(ProfileStore::resolveSelector(text, record), HasCode(expected)) << host::quoted(text);
    return record;
  }

  void expectRefused(const std::string& text, StatusCode expected) {
    const ProfileRecord record = resolve(text, expected);
    EXPECT_FALSE(record.valid);
    EXPECT_EQ(record.name, "");
    EXPECT_EQ(host::tree(host::kProfiles), before_);
  }

  std::string before_;
};

TEST_F(SelectorTest, AProfileIsFoundByEveryKindOfSelector) {
  const struct {
    const char* text;
    StatusCode code;
    const char* dirname;
    const char* name;
  } cases[] = {
      {"lab", status::success, "profile-1", "lab"},
      {"dir=profile-1", status::success, "profile-1", "lab"},
      {"office", status::profileIsActive, "profile-2", "office"},
      {"dir=profile-2", status::profileIsActive, "profile-2", "office"},
      {"", status::profileIsActive, "profile-2", "office"},
      {".current", status::profileIsActive, "profile-2", "office"},
      {"--active", status::profileIsActive, "profile-2", "office"},
      {".factory", status::success, ".factory", ".factory"},
      {"dir=.factory", status::success, ".factory", ".factory"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const ProfileRecord record = resolve(c.text, c.code);
    EXPECT_TRUE(record.valid);
    EXPECT_EQ(record.dir, std::string("/etc/zuv/profiles/") + c.dirname);
    EXPECT_EQ(record.dirname, c.dirname);
    EXPECT_EQ(record.name, c.name);
  }
  EXPECT_EQ(host::tree(host::kProfiles), before_);
}

TEST_F(SelectorTest, TheActiveProfileOfARunningDaemonIsReportedAsRunning) {
  host::writeHeartbeat("/etc/zuv/profiles/profile-2");
  for (const char* text : {"office", "dir=profile-2", "", ".current", "--active"}) {
    EXPECT_EQ(resolve(text, status::profileIsRunning).dirname, "profile-2");
  }
  EXPECT_EQ(resolve("lab", status::success).dirname, "profile-1");
}

TEST_F(SelectorTest, TheHeartbeatOfAnInactiveProfileIsIgnored) {
  host::writeHeartbeat("/etc/zuv/profiles/profile-1");
  resolve("office", status::profileIsActive);
  resolve("lab", status::success);
}

TEST_F(SelectorTest, ADaemonInAnUnknownStateIsNotReportedAsRunning) {
  host::writeFile("/etc/zuv/profiles/profile-2/hipvars.txt", "hipd_state=running\n");
  resolve("office", status::profileIsActive);
  host::writeFile("/etc/zuv/profiles/profile-2/hipvars.txt", "uptime.now=1000\nuptime.started=1\n");
  resolve("office", status::profileIsActive);
}

TEST_F(SelectorTest, AnUnknownNameIsNotFoundAndNothingIsWritten) {
  for (const std::string text : {"Lab", "LAB", "la", "lab ", " lab", "profile-1", "template", "dirprofile-1", "dir",
                                 "DIR=profile-1", ".Current", "-active", ".", "..", "/", "lab\n", "l\xc3\xa4"}) {
    expectRefused(text, status::profileNotFound);
  }
  expectRefused("lab\0"s, status::profileNotFound);
}

TEST_F(SelectorTest, AnEmptyDirectorySelectorIsAnInvalidArgument) { expectRefused("dir=", status::invalidArgument); }

TEST_F(SelectorTest, ADirectorySelectorThatIsNotAPlainNameIsNotFoundAndNothingIsWritten) {
  host::makeDirs("/tmp/evil");
  host::makeDirs("/etc/zuv/profiles/.hidden");
  host::makeDirs("/etc/zuv/profiles/profile-1/sub");
  before_ = host::tree(host::kProfiles);
  for (const std::string rest :
       {"missing", ".", "..", ".hidden", ".current", "../../../tmp/evil", "/tmp/evil", "profile-1/", "profile-1/sub",
        "profile-1/../profile-1", "/", "//profile-1", ".factory/", "..factory", ".factory2", " profile-1"}) {
    expectRefused("dir=" + rest, status::profileNotFound);
  }
  expectRefused("dir=profile-1\0"s, status::profileNotFound);
  EXPECT_EQ(host::tree("/tmp/evil"), "");
}

TEST_F(SelectorTest, ALinkToADirectoryCanBeSelectedButIsNotRepaired) {
  host::writeFile("/tmp/elsewhere/profile_name", "linked\n");
  host::makeLink("/etc/zuv/profiles/link", "/tmp/elsewhere");
  EXPECT_EQ(resolve("dir=link", status::success).name, "linked");
  resolve("linked", status::profileNotFound);
  host::remove("/tmp/elsewhere/profile_name");
  resolve("dir=link", status::profileNotFound);
  EXPECT_EQ(host::tree("/tmp/elsewhere"), "");
}

TEST_F(SelectorTest, ALinkedDirectoryCanBeTheActiveProfile) {
  host::writeFile("/tmp/elsewhere/profile_name", "linked\n");
  host::makeLink("/etc/zuv/profiles/link", "/tmp/elsewhere");
  host::makeActive("link");
  EXPECT_EQ(resolve("", status::profileIsActive).name, "linked");
  EXPECT_EQ(resolve("dir=link", status::profileIsActive).dirname, "link");
}

TEST_F(SelectorTest, ADirectoryWithoutANameIsNamedWhenItIsSelected) {
  host::makeDirs("/etc/zuv/profiles/profile-3");
  EXPECT_EQ(resolve("dir=profile-3", status::success).name, "profile");
  EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-3"), "f 0640 profile_name \"profile\\n\"\n");
}

TEST_F(SelectorTest, ADirectoryWhoseNameCannotBeRepairedIsNotFound) {
  host::makeFifo("/etc/zuv/profiles/profile-3/profile_name");
  before_ = host::tree(host::kProfiles);
  resolve("dir=profile-3", status::profileNotFound);
  EXPECT_EQ(host::tree(host::kProfiles), before_);
}

TEST_F(SelectorTest, WithAMissingMarkerTheActiveProfileHasNoNames) {
  host::remove(host::kCurrent);
  for (const char* text : {"", ".current", "--active"}) {
    const ProfileRecord record = resolve(text, status::profileIsActive);
    EXPECT_EQ(record.dir, "");
    EXPECT_EQ(record.dirname, "");
    EXPECT_EQ(record.name, "");
  }
  resolve("office", status::success);
  resolve("dir=profile-2", status::success);
}

TEST_F(SelectorTest, WithAnUnreadableMarkerOnlyTheSelectorsOfTheActiveProfileFail) {
  host::setMode(host::kCurrent, 0);
  const host::BoundByModes bound;
  for (const char* text : {"", ".current", "--active"}) EXPECT_FALSE(resolve(text, status::profileNotFound).valid);
  resolve("office", status::success);
  resolve("dir=profile-2", status::success);
}

TEST_F(SelectorTest, ADisplayNameThatIsASelectorIsReadAsTheSelector) {
  host::makeProfile("profile-3", "dir=profile-1");
  host::makeProfile("profile-4", ".factory");
  host::makeProfile("profile-5", "--active");
  EXPECT_EQ(resolve("dir=profile-1", status::success).dirname, "profile-1");
  EXPECT_EQ(resolve(".factory", status::success).dirname, ".factory");
  EXPECT_EQ(resolve("--active", status::profileIsActive).dirname, "profile-2");
}

TEST_F(SelectorTest, NamesWithHighBytesAreFoundAsGiven) {
  host::makeProfile("profile-3", "b\xc3\xbcro 1");
  EXPECT_EQ(resolve("b\xc3\xbcro 1", status::success).dirname, "profile-3");
  resolve("b?ro 1", status::profileNotFound);
}

TEST_F(SelectorTest, TheTemplateIsFoundEvenIfItsDirectoryIsMissing) {
  host::remove(host::kFactory);
  EXPECT_EQ(resolve(".factory", status::success).dirname, ".factory");
}

TEST_F(SelectorTest, AStoreThatCannotBeListedIsAnApplicationErrorOnlyForDisplayNames) {
  host::remove(host::kProfiles);
  resolve("lab", status::applicationError);
  resolve("dir=profile-1", status::profileNotFound);
  resolve("", status::profileIsActive);
}

TEST_F(SelectorTest, FindByNameDistinguishesAnUnknownNameFromAFailedListing) {
  ProfileRecord record;
  EXPECT_THAT(ProfileStore::findByName("office", record), HasCode(status::success));
  EXPECT_EQ(record.dirname, "profile-2");
  EXPECT_THAT(ProfileStore::findByName(".factory", record), HasCode(status::profileNotFound));
  EXPECT_FALSE(record.valid);
  host::remove(host::kProfiles);
  EXPECT_THAT(ProfileStore::findByName("office", record), HasCode(status::applicationError));
}

}  // namespace
