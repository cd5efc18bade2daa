// Tests of paths, names, the active profile and selectors. ProfileListing_test.cpp tests listing and repair.
#include "profiles/store/ProfileStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <optional>

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

void expectRecord(const ProfileRecord& record, const ProfileRecord& expected) {
  EXPECT_EQ(record.valid, expected.valid) << expected.dirname;
  EXPECT_EQ(record.dir, expected.dir);
  EXPECT_EQ(record.dirname, expected.dirname);
  EXPECT_EQ(record.name, expected.name) << expected.dirname;
}

// --- Paths

using ProfilePathTest = HostTest;

// Expects `path` from a function that builds a path of these parts, and from the one that copies it to a buffer. An
// empty `path` means that both report failure.
template <typename Build, typename Copy, typename... Parts>
void expectPath(const char* why, const char* path, Build build, Copy copy, Parts... parts) {
  SCOPED_TRACE(why);
  const bool exists = *path != '\0';
  std::string built = "left over";
  EXPECT_EQ(build(parts..., built), exists);
  EXPECT_EQ(built, path);
  char buffer[128] = "left over";
  EXPECT_EQ(copy(parts..., buffer, sizeof buffer), exists);
  EXPECT_STREQ(buffer, path);
}

TEST_F(ProfilePathTest, TheFixedPathsAreBelowEtcZuv) {
  EXPECT_STREQ(ProfileStore::baseDir(), "/etc/zuv/");
  EXPECT_STREQ(ProfileStore::profilesRoot(), "/etc/zuv/profiles/");
  EXPECT_EQ(ProfileStore::factoryDir(), "/etc/zuv/profiles/.factory");
  EXPECT_EQ(ProfileStore::activeFile(), "/etc/zuv/profiles/.current");
  char buffer[128];
  EXPECT_TRUE(ProfileStore::copyFactoryDir(buffer, sizeof buffer));
  EXPECT_STREQ(buffer, "/etc/zuv/profiles/.factory");
}

TEST_F(ProfilePathTest, APathOfAProfileNeedsAllItsParts) {
  using namespace ProfileStore;
  expectPath("a directory", "/etc/zuv/profiles/profile-1", profileDir, copyProfileDir, "profile-1");
  expectPath("no directory name", "", profileDir, copyProfileDir, "");
  expectPath("a file", "/etc/zuv/profiles/profile-1/hip.conf", fileInProfile, copyFileInProfile, "profile-1",
             "hip.conf");
  expectPath("a file without a directory name", "", fileInProfile, copyFileInProfile, "", "hip.conf");
  expectPath("no file name", "", fileInProfile, copyFileInProfile, "profile-1", "");
}

TEST_F(ProfilePathTest, AFileOfTheActiveProfileNeedsANameAndAReadableMarker) {
  using ProfileStore::copyFileInActiveProfile;
  using ProfileStore::fileInActiveProfile;
  expectPath("no marker", "", fileInActiveProfile, copyFileInActiveProfile, "hip.conf");
  host::makeActive("profile-2");
  expectPath("a marker", "/etc/zuv/profiles/profile-2/hip.log", fileInActiveProfile, copyFileInActiveProfile,
             "hip.log");
  expectPath("no file name", "", fileInActiveProfile, copyFileInActiveProfile, "");
  host::setMode(host::kCurrent, 0);
  const host::BoundByModes bound;
  expectPath("an unreadable marker", "", fileInActiveProfile, copyFileInActiveProfile, "hip.conf");
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
      {"a line of high bytes first", "\xc3\xa4\nlab\n", "lab"},
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
    EXPECT_EQ(host::readFile(kNameFile), "a" + text + "b\n");
  }
}

TEST_F(ProfileNameTest, AMissingOrUnreadableNameBecomesProfileWithMode0640WhateverTheUmask) {
  const struct {
    const char* why;
    std::optional<std::string> content;
    mode_t mode;
    mode_t mask;
  } cases[] = {{"no file", std::nullopt, 0, 022},
               {"no file, umask 0", std::nullopt, 0, 0},
               {"no file, umask 0777", std::nullopt, 0, 0777},
               {"an empty file", "", 0644, 022},
               {"a newline only", "\n", 0644, 022},
               {"blanks only", " \n\t\n", 0644, 022},
               {"high bytes only", "\x80\n", 0644, 022},
               {"an unreadable file", "secret name\n", 0200, 022}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(kDir);
    host::makeDirs(kDir);
    if (c.content) host::writeFile(kNameFile, *c.content, c.mode);
    {
      const host::BoundByModes bound;
      ::umask(c.mask);
      EXPECT_EQ(nameAsRead(kDir), "profile");
      ::umask(022);
    }
    EXPECT_EQ(host::tree(kDir), "f 0640 profile_name \"profile\\n\"\n");
  }
}

TEST_F(ProfileNameTest, ANameThatCannotBeRepairedIsAFailureWithAnEmptyName) {
  host::writeFile(kNameFile, "lab\n", 0);
  {
    const host::BoundByModes bound;
    EXPECT_EQ(nameAsRead(kDir, false), "");
  }
  EXPECT_EQ(host::tree(kDir), "f 0000 profile_name \"lab\\n\"\n");
}

TEST_F(ProfileNameTest, InAStrangersDirectoryANameThatCannotBeWrittenIsStillReturned) {
  SKIP_WITHOUT_OTHER_USERS();
  constexpr uid_t stranger = 65534;
  host::writeFile(kNameFile, "");
  host::giveTo(stranger, kNameFile);
  host::giveTo(stranger, kDir);
  const ArmedFaults armed(FaultPlan{1, true, EIO, {"write"}});
  EXPECT_EQ(nameAsRead(kDir), "profile");
}

TEST_F(ProfileNameTest, ANameFileOfAnotherKindIsNotReadAndAnyButADirectoryIsReplaced) {
  for (const Stranger& stranger : kStrangers) {
    SCOPED_TRACE(stranger.why);
    host::remove(kDir);
    host::makeDirs(kDir);
    stranger.put(kNameFile);
    const bool isKept = stranger.why == std::string("a directory");
    EXPECT_EQ(nameAsRead(kDir, !isKept), isKept ? "" : "profile");
    EXPECT_EQ(host::tree(kDir), isKept ? "d 0755 profile_name\n" : "f 0640 profile_name \"profile\\n\"\n");
  }
}

TEST_F(ProfileNameTest, NothingIsWrittenToAFifoWithAReader) {
  host::makeFifo(kNameFile);
  const int reader = ::open(kNameFile, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  EXPECT_EQ(nameAsRead(kDir), "profile");
  char byte = 0;
  EXPECT_EQ(::read(reader, &byte, 1), 0);
  ::close(reader);
}

TEST_F(ProfileNameTest, ANameIsReadThroughALinkToItsFileOrItsDirectory) {
  host::writeFile("/tmp/elsewhere/profile_name", "linked\n");
  host::makeDirs(kDir);
  host::makeLink(kNameFile, "/tmp/elsewhere/profile_name");
  EXPECT_EQ(nameAsRead(kDir), "linked");
  host::makeLink("/etc/zuv/profiles/link", "/tmp/elsewhere");
  EXPECT_EQ(nameAsRead("/etc/zuv/profiles/link"), "linked");
}

TEST_F(ProfileNameTest, ALinkToTheNullDeviceCountsAsAnEmptyNameAndIsReplaced) {
  host::makeLink(kNameFile, "/dev/null");
  EXPECT_EQ(nameAsRead(kDir), "profile");
  EXPECT_EQ(host::tree(kDir), "f 0640 profile_name \"profile\\n\"\n");
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

// --- Writing a display name and the marker

TEST_F(ProfileNameTest, ANameAndTheMarkerReplaceTheWholeFileAndItsModeWhateverTheUmask) {
  for (const mode_t mask : {mode_t{022}, mode_t{0}, mode_t{0777}}) {
    SCOPED_TRACE(mask);
    for (const bool replaced : {false, true}) {
      SCOPED_TRACE(replaced ? "an old file" : "no old file");
      host::reset();
      host::makeDirs(kDir);
      if (replaced) {
        host::writeFile(kNameFile, "a long name\nand more\n", 0600);
        host::writeFile(host::kCurrent, "profile-with-a-long-name\nand a second line\n", 0600);
      }
      ::umask(mask);
      EXPECT_THAT(ProfileStore::writeProfileName("profile-1", "lab"), HasCode(status::success));
      EXPECT_TRUE(ProfileStore::setActive("profile-1"));
      ::umask(022);
      EXPECT_EQ(host::tree(host::kProfiles),
                "f 0666 .current \"profile-1\\n\"\nd 0755 profile-1\nf 0640 profile-1/profile_name \"lab\\n\"\n");
    }
  }
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

TEST_F(ProfileRecordTest, ANamedDirectoryGivesAValidRecordAndAMissingOneAnInvalidRecordAndNothingIsWritten) {
  host::makeProfile("profile-1", "lab");
  const std::string before = host::tree(host::kProfiles);
  const ProfileRecord expected[] = {
      {true, kDir, "profile-1", "lab"}, {false, "/etc/zuv/profiles/missing", "missing", ""}, {false, "", "", ""}};
  for (const ProfileRecord& record : expected) {
    expectRecord(ProfileStore::recordFromDirname(record.dirname), record);
  }
  EXPECT_EQ(host::tree(host::kProfiles), before);
}

// --- The active profile

using ActiveProfileTest = HostTest;

TEST_F(ActiveProfileTest, TheActiveRecordFollowsTheMarkerAndNothingIsCheckedOrRepaired) {
  host::makeProfile("profile-1", "lab");
  host::makeDirs("/etc/zuv/profiles/nameless");
  host::writeFile("/etc/zuv/profiles/unreadable/profile_name", "secret\n", 0);
  const struct {
    const char* why;
    const char* marker;  // null: no marker
    mode_t mode;
    ProfileRecord expected;  // invalid if the marker cannot be read
  } cases[] = {
      {"a profile", "profile-1\n", 0666, {true, kDir, "profile-1", "lab"}},
      {"no marker", nullptr, 0, {true, "", "", ""}},
      {"an unreadable marker", "profile-1\n", 0, {false, "", "", ""}},
      {"a profile without a name", "nameless\n", 0666, {true, "/etc/zuv/profiles/nameless", "nameless", ""}},
      {"a name that cannot be read", "unreadable\n", 0666, {true, "/etc/zuv/profiles/unreadable", "unreadable", ""}},
      {"a missing profile", "gone\n", 0666, {true, "/etc/zuv/profiles/gone", "gone", ""}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(host::kCurrent);
    if (c.marker != nullptr) host::writeFile(host::kCurrent, c.marker, c.mode);
    const std::string before = host::tree(host::kProfiles);
    {
      const host::BoundByModes bound;
      ProfileRecord record{!c.expected.valid, "left over", "left over", "left over"};
      EXPECT_EQ(ProfileStore::readActiveRecord(record), c.expected.valid);
      expectRecord(record, c.expected);
      std::string dirname = "left over";
      EXPECT_EQ(ProfileStore::readActiveDirname(dirname), c.expected.valid);
      EXPECT_EQ(dirname, c.expected.dirname);
    }
    EXPECT_EQ(host::tree(host::kProfiles), before);
  }
}

// Contents of the marker, and the directory name that each gives; an empty one means that the content is refused.
const struct {
  const char* why;
  std::string content;
  std::string dirname;
} kMarkers[] = {
    {"empty", "", ""},
    {"blank", " \n\t\n", ""},
    {"high bytes only", "\xc3\xa4\n", ""},
    {"the root itself", ".\n", ""},
    {"the directory above", "..\n", ""},
    {"a path out of the store", "../../../tmp/evil\n", ""},
    {"a path out of the store, beginning with a name", "profile-1/../../..\n", ""},
    {"an absolute path", "/tmp/evil\n", ""},
    {"a slash at the end", "profile-1/\n", ""},
    {"a path below a profile", "profile-1/sub\n", ""},
    {"a slash only", "/\n", ""},
    {"the template", ".factory\n", ""},
    {"the marker", ".current\n", ""},
    {"a hidden name", ".profile-1\n", ""},
    {"blanks before a hidden name", "  .profile-1\n", ""},
    {"a zero byte", "profile-1\0x\n"s, ""},
    {"a zero byte before a path", "profile-1\0/../x\n"s, ""},
    {"blanks around a plain name", " profile-2 \n", "profile-2"},
    {"a blank inside a plain name", "a b\n", "a b"},
    {"blank lines before a plain name", "\n\nx\n", "x"},
    {"dots inside a plain name", "a..b\n", "a..b"},
    {"a high byte behind a plain name", "x\x80\n", "x"},
};

TEST_F(ActiveProfileTest, OnlyAPlainNameInTheMarkerIsAccepted) {
  host::makeProfile("profile-1", "lab");
  host::makeProfile(".factory", "factory");
  host::makeProfile(".profile-1", "hidden");
  host::writeFile("/tmp/evil/profile_name", "evil\n");
  for (const auto& c : kMarkers) {
    SCOPED_TRACE(c.why);
    host::writeFile(host::kCurrent, c.content, 0666);
    const std::string dir = c.dirname.empty() ? "" : host::kProfiles + c.dirname;
    ProfileRecord record;
    EXPECT_TRUE(ProfileStore::readActiveRecord(record));
    expectRecord(record, {true, dir, c.dirname, ""});
    std::string path = "left over";
    EXPECT_EQ(ProfileStore::fileInActiveProfile("hip.conf", path), !c.dirname.empty());
    EXPECT_EQ(path, c.dirname.empty() ? "" : dir + "/hip.conf");
    EXPECT_EQ(host::readFile(host::kCurrent), c.content);
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

TEST_F(ActiveProfileTest, ADirectoryNameThatReadersTrimIsWrittenButDoesNotBecomeActive) {
  for (const std::string& name : {"b\xc3\xbcro"s, "b\xc3\xbcro\xc3\xa4"s, " b\xc3\xbcro"s}) {
    SCOPED_TRACE(name);
    host::makeProfile(name, "office");
    EXPECT_TRUE(ProfileStore::setActive(name));
    EXPECT_EQ(host::readFile(host::kCurrent), name + "\n");
    std::string dirname;
    EXPECT_TRUE(ProfileStore::readActiveDirname(dirname));
    EXPECT_EQ(dirname, "b\xc3\xbcro");
  }
}

TEST_F(ActiveProfileTest, SettingTheActiveProfileFailsForANameThatIsNotPlainForAModeThatCannotBeSetAndWithoutAStore) {
  host::makeActive("profile-1");
  for (const std::string& notPlain : {""s, ".profile"s, "profile/1"s, "profile\0"s})
    EXPECT_FALSE(ProfileStore::setActive(notPlain)) << notPlain;
  EXPECT_EQ(host::readFile(host::kCurrent), "profile-1\n");
  {
    const ArmedFaults armed({1, true, EPERM, {"chmod"}});
    EXPECT_FALSE(ProfileStore::setActive("profile-1")) << "the mode cannot be set";
  }
  host::remove(host::kProfiles);
  EXPECT_FALSE(ProfileStore::setActive("profile-1"));
  EXPECT_FALSE(host::exists(host::kProfiles));
}

TEST_F(ActiveProfileTest, AProfileIsActiveIfAReadableMarkerHoldsItsDirectoryName) {
  host::makeProfile("profile-1", "lab");
  host::makeProfile("profile-2", "lab 2");
  const ProfileRecord other = ProfileStore::recordFromDirname("profile-1");
  const ProfileRecord profile = ProfileStore::recordFromDirname("profile-2");
  EXPECT_FALSE(ProfileStore::isActive(profile)) << "no marker";
  EXPECT_FALSE(ProfileStore::isActive(ProfileRecord())) << "no marker and no name";
  host::makeActive("profile-2");
  EXPECT_FALSE(ProfileStore::isActive(other));
  EXPECT_TRUE(ProfileStore::isActive(profile));
  host::setMode(host::kCurrent, 0);
  const host::BoundByModes bound;
  EXPECT_FALSE(ProfileStore::isActive(profile)) << "an unreadable marker";
}

TEST_F(ActiveProfileTest, TheDaemonMayRunIfTheHeartbeatOfTheActiveProfileIsFreshOrLacksATime) {
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
    host::makeProfile("profile-3", "b\xc3\xbcro 1");
    host::makeProfile(".factory", "template");
    host::makeActive("profile-2");
    before_ = host::tree(host::kProfiles);
  }

  // Checks the status of the resolution and returns the record.
  ProfileRecord resolve(const std::string& text, StatusCode expected) {
    ProfileRecord record{true, "left over", "left over", "left over"};
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
  // Names that are selectors are read as the selectors.
  host::makeProfile("profile-4", "dir=profile-1");
  host::makeProfile("profile-5", ".factory");
  host::makeProfile("profile-6", "--active");
  before_ = host::tree(host::kProfiles);
  const struct {
    const char* text;
    StatusCode code;
    const char* dirname;
    const char* name;
  } cases[] = {
      {"lab", status::success, "profile-1", "lab"},
      {"b\xc3\xbcro 1", status::success, "profile-3", "b\xc3\xbcro 1"},
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
    expectRecord(record, {true, std::string("/etc/zuv/profiles/") + c.dirname, c.dirname, c.name});
  }
  EXPECT_EQ(host::tree(host::kProfiles), before_);
}

TEST_F(SelectorTest, TheActiveProfileIsRunningOnlyIfItsOwnHeartbeatSaysSo) {
  constexpr const char* variables = "/etc/zuv/profiles/profile-2/hipvars.txt";
  const struct {
    const char* why;
    std::function<void()> prepare;
    StatusCode code;
  } cases[] = {
      {"running", [] { host::writeHeartbeat("/etc/zuv/profiles/profile-2"); }, status::profileIsRunning},
      {"unknown", [] { host::writeFile(variables, "hipd_state=running\n"); }, status::profileIsActive},
      {"old", [] { host::writeFile(variables, "uptime.now=1000\nuptime.started=1\n"); }, status::profileIsActive},
      {"another profile's", [] { host::writeHeartbeat("/etc/zuv/profiles/profile-1"); }, status::profileIsActive},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(variables);
    c.prepare();
    for (const char* text : {"office", "dir=profile-2", "", ".current", "--active"}) {
      EXPECT_EQ(resolve(text, c.code).dirname, "profile-2");
    }
    EXPECT_EQ(resolve("lab", status::success).dirname, "profile-1");
  }
}

TEST_F(SelectorTest, AnUnknownNameIsNotFoundAndNothingIsWritten) {
  for (const std::string text :
       {"Lab", "LAB", "la", "lab ", " lab", "profile-1", "template", "dirprofile-1", "dir", "DIR=profile-1", ".Current",
        "-active", ".", "..", "/", "lab\n", "l\xc3\xa4", "b?ro 1"}) {
    expectRefused(text, status::profileNotFound);
  }
  expectRefused("lab\0"s, status::profileNotFound);
}

TEST_F(SelectorTest, ADirectorySelectorWithoutAPlainNameIsRefusedAndNothingIsWritten) {
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
  expectRefused("dir=", status::invalidArgument);
  EXPECT_EQ(host::tree("/tmp/evil"), "");
}

TEST_F(SelectorTest, ALinkToADirectoryCanBeSelectedAndActiveButIsNotRepaired) {
  host::writeFile("/tmp/elsewhere/profile_name", "linked\n");
  host::makeLink("/etc/zuv/profiles/link", "/tmp/elsewhere");
  EXPECT_EQ(resolve("dir=link", status::success).name, "linked");
  resolve("linked", status::profileNotFound);
  host::makeActive("link");
  EXPECT_EQ(resolve("", status::profileIsActive).name, "linked");
  EXPECT_EQ(resolve("dir=link", status::profileIsActive).dirname, "link");
  host::remove("/tmp/elsewhere/profile_name");
  resolve("dir=link", status::profileNotFound);
  EXPECT_EQ(host::tree("/tmp/elsewhere"), "");
}

TEST_F(SelectorTest, ADirectoryWithoutANameIsNamedWhenItIsSelected) {
  host::makeDirs("/etc/zuv/profiles/profile-4");
  EXPECT_EQ(resolve("dir=profile-4", status::success).name, "profile");
  EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-4"), "f 0640 profile_name \"profile\\n\"\n");
  host::makeDirs("/etc/zuv/profiles/profile-5/profile_name");
  before_ = host::tree(host::kProfiles);
  resolve("dir=profile-5", status::profileNotFound);
  EXPECT_EQ(host::tree(host::kProfiles), before_) << "its name cannot be repaired";
}

TEST_F(SelectorTest, WithoutAReadableMarkerOnlyTheSelectorsOfTheActiveProfileAreAffected) {
  host::setMode(host::kCurrent, 0);
  for (const bool isMissing : {false, true}) {
    SCOPED_TRACE(isMissing);
    if (isMissing) host::remove(host::kCurrent);
    const host::BoundByModes bound;
    for (const char* text : {"", ".current", "--active"}) {
      const StatusCode expected = isMissing ? status::profileIsActive : status::profileNotFound;
      expectRecord(resolve(text, expected), {isMissing, "", "", ""});
    }
    resolve("office", status::success);
    resolve("dir=profile-2", status::success);
  }
}

TEST_F(SelectorTest, AStoreThatCannotBeListedIsAnApplicationErrorOnlyForDisplayNames) {
  host::remove(host::kProfiles);
  resolve("lab", status::applicationError);
  resolve("dir=profile-1", status::profileNotFound);
  resolve("", status::profileIsActive);
  EXPECT_EQ(resolve(".factory", status::success).dirname, ".factory");
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
