#include "profiles/store/ConfigLines.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <functional>
#include <optional>
#include <set>
#include <thread>

#include "base/files/FileLock.h"
#include "base/files/ProgramDirectories.h"
#include "base/system/Leftover.h"
#include "testing/faults/FaultInjector.h"
#include "testing/models/SkippedPauses.h"
#include "testing/run/AccessLists.h"
#include "testing/run/HostTest.h"

namespace {

using ConfigLines::KeyValue;
using testing::ElementsAre;

constexpr const char* kFile = "/tmp/hip.conf";
constexpr const char* kTemporary = "/tmp/hip.conf.temp";
constexpr const char* kLock = "/tmp/lock/hip.conf.lock";

class ConfigLinesTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (!IsSkipped()) (void)FileUtils::lockDir();  // created once in a process, so not in the middle of a fault loop
  }
};
using LineEditorTest = ConfigLinesTest;

std::string longLine(std::size_t length) { return std::string(length, 'x'); }

struct stat infoOf(const char* path) {
  struct stat info = {};
  EXPECT_EQ(::stat(path, &info), 0);
  return info;
}

Status setKey() { return ConfigLines::setKeys(kFile, {{"key", "2"}}); }
Status addKey() { return ConfigLines::setKeys(kFile, {{"new", "3"}}); }
Status removeKey() { return ConfigLines::removeKey(kFile, "key"); }

// --- Reading values

// Files, and the value that they give the key "key".
const struct {
  const char* why;
  std::string content;
  bool found;
  std::string value;
} kLines[] = {
    {"an empty file", "", false, ""},
    {"another key", "other=1\n", false, ""},
    {"a key and its value", "key=value\n", true, "value"},
    {"no newline", "key=value", true, "value"},
    {"the first of two", "key=1\nkey=2\n", true, "1"},
    {"blanks before the key", "  \tkey=value\n", true, "value"},
    {"blanks at the end are trimmed", "key=value \t\r\n", true, "value"},
    {"blanks behind the equals sign stay", "key= value\n", true, " value"},
    {"a blank before the equals sign is another key", "key =value\n", false, ""},
    {"an empty value is a value", "key=\nkey=2\n", true, ""},
    {"a comment", "#key=1\nkey=2\n", true, "2"},
    {"a comment behind blanks", "  #key=1\n", false, ""},
    {"case matters", "Key=1\n", false, ""},
    {"longer and shorter keys", "key2=1\nmykey=2\nke=3\n", false, ""},
    {"blanks inside the value stay", "key=a  b\n", true, "a  b"},
    {"a hash in the value stays", "key=a#b\n", true, "a#b"},
    {"quotes stay", "key='a'\n", true, "'a'"},
    {"a second equals sign stays", "key=a=b\n", true, "a=b"},
    {"bytes of 128 and above at the end are trimmed", "key=value\xff\n", true, "value"},
    {"a zero byte inside stays", std::string("key=a\0b\n", 8), true, std::string("a\0b", 3)},
    {"the key without equals sign", "key\n", false, ""},
    {"a piece of a long line counts as a line", longLine(7999) + "key=1\n", true, "1"},
    {"a long line holds no key across two pieces", longLine(7998) + "key=1\n", false, ""},
    {"a value ends with its piece", "key=" + longLine(8000) + "\n", true, longLine(7995)},
};

TEST_F(ConfigLinesTest, TheFirstLineOfAKeyGivesItsValue) {
  for (const auto& c : kLines) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, c.content);
    std::string value = "old";
    EXPECT_EQ(ConfigLines::readFirstValue(kFile, "key", value), c.found);
    EXPECT_EQ(value, c.value);
  }
}

TEST_F(ConfigLinesTest, AKeyThatFillsItsPieceHasNoValue) {
  for (const std::size_t size : {7998u, 7999u}) {
    const std::string key(size, 'k');
    host::writeFile(kFile, key + "=1\n");
    std::string value = "old";
    EXPECT_EQ(ConfigLines::readFirstValue(kFile, key, value), size == 7998) << size;
    EXPECT_EQ(value, "");
  }
}

TEST_F(ConfigLinesTest, AnEmptyKeyOrAFileThatCannotBeReadHasNoValue) {
  host::makeDirs("/tmp/directory");
  host::makeFifo("/tmp/fifo");
  host::writeFile("/tmp/unreadable", "key=1\n", 0);
  host::writeFile(kFile, "=1\nkey=1\n");
  const host::BoundByModes bound;
  const std::pair<const char*, const char*> cases[] = {
      {"", "key"},          {"/tmp/missing", "key"},    {"/tmp/directory", "key"},
      {"/tmp/fifo", "key"}, {"/tmp/unreadable", "key"}, {"/dev/null", "key"},
      {kFile, ""}};
  for (const auto& [path, key] : cases) {
    SCOPED_TRACE(path);
    std::string value = "old";
    EXPECT_FALSE(ConfigLines::readFirstValue(path, key, value));
    EXPECT_EQ(value, "");
  }
  std::string value = "old";
  EXPECT_FALSE(ConfigLines::readFirstValue(std::string(kFile) + std::string("\0x", 2), "key", value))
      << "a path with a zero byte";
  EXPECT_EQ(value, "");
  const ArmedFaults armed({1, false, EIO, {"read"}});
  value = "old";
  EXPECT_FALSE(ConfigLines::readFirstValue(kFile, "key", value)) << "a failed read";
  EXPECT_EQ(value, "");
}

TEST_F(ConfigLinesTest, ALineThatBeginsWithAHashHasNoKey) {
  host::writeFile(kFile, "#key=1\n");
  std::string value = "old";
  EXPECT_FALSE(ConfigLines::readFirstValue(kFile, "#key", value));
  EXPECT_EQ(value, "");
}

// --- Setting keys

// A key in a later piece of a line that is longer than the buffer of the reader.
const std::string kPieces = longLine(7999) + "key=old\n";
const std::vector<KeyValue> kOne = {{"key", "new"}};
const std::vector<KeyValue> kLevels = {{"log_level", "debug"}, {"openhip.log_level", "debug"}};
const struct {
  const char* why;
  std::string before;
  std::vector<KeyValue> settings;
  std::string after;
} kSettings[] = {
    {"appended to an empty file", "", kOne, "key=new\n"},
    {"appended", "# head\n\nother=1\n", kOne, "# head\n\nother=1\nkey=new\n"},
    {"replaced in its place", "a=1\nkey=old\nb=2\n", kOne, "a=1\nkey=new\nb=2\n"},
    {"every line of the key", "key=1\na=1\nkey=2\n", kOne, "key=new\na=1\nkey=new\n"},
    {"a key behind blanks is not replaced", "  key=old\n", kOne, "  key=old\nkey=new\n"},
    {"a blank before the equals sign is another key", "key =old\n", kOne, "key =old\nkey=new\n"},
    {"a comment is not replaced", "#key=old\n", kOne, "#key=old\nkey=new\n"},
    {"case matters", "KEY=old\n", kOne, "KEY=old\nkey=new\n"},
    {"the key alone is not replaced", "key\n", kOne, "key\nkey=new\n"},
    {"a last line without newline gets one", "a=1", kOne, "a=1\nkey=new\n"},
    {"a last line without newline is replaced", "key=old", kOne, "key=new\n"},
    {"a last line without newline stays if nothing is appended", "key=old\na=1", kOne, "key=new\na=1"},
    {"line ends of other lines stay", "a=1\r\nkey=old\r\n\r\n", kOne, "a=1\r\nkey=new\n\r\n"},
    {"zero bytes of other lines stay", std::string("a\0b\n", 4), kOne, std::string("a\0b\n", 4) + "key=new\n"},
    {"two keys in one pass", "openhip.log_level=info\na=1\nlog_level=info\n", kLevels,
     "openhip.log_level=debug\na=1\nlog_level=debug\n"},
    {"two keys appended in their order", "a=1", kLevels, "a=1\nlog_level=debug\nopenhip.log_level=debug\n"},
    {"one replaced, one appended", "log_level=info\n", kLevels, "log_level=debug\nopenhip.log_level=debug\n"},
    {"no keys", "a=1\nb", {}, "a=1\nb"},
    {"an empty value", "key=old\n", {{"key", ""}}, "key=\n"},
    {"a long line holds no key in a later piece", kPieces, kOne, kPieces + "key=new\n"},
    {"a long line of the key is replaced whole", "key=" + longLine(20000) + "\nb=2\n", kOne, "key=new\nb=2\n"},
};

TEST_F(ConfigLinesTest, KeysAreReplacedOrAppended) {
  for (const auto& c : kSettings) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, c.before);
    EXPECT_THAT(ConfigLines::setKeys(kFile, c.settings), HasCode(status::success));
    EXPECT_EQ(host::readFile(kFile), c.after);
    EXPECT_FALSE(host::exists(kTemporary));
  }
}

TEST_F(ConfigLinesTest, OverLongLinesAreCopiedByteForByte) {
  for (const std::size_t length : {7998u, 7999u, 8000u, 15998u, 15999u, 200000u}) {
    SCOPED_TRACE(length);
    host::writeFile(kFile, longLine(length) + "\nkey=old\n" + longLine(length));
    EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "new"}}), HasCode(status::success));
    EXPECT_EQ(host::readFile(kFile), longLine(length) + "\nkey=new\n" + longLine(length));
  }
}

TEST_F(ConfigLinesTest, InvalidArgumentsAreRefusedAndNothingIsWritten) {
  host::writeFile(kFile, "key=old\n");
  const std::string zero("a\0", 2);
  const std::vector<KeyValue> refused = {{"", "1"},   {"a=b", "1"},   {"a\nb", "1"}, {"a\r", "1"},
                                         {zero, "1"}, {"key", "1\n"}, {"key", "\r"}, {"key", zero}};
  for (const KeyValue& setting : refused) {
    SCOPED_TRACE(testing::PrintToString(setting));
    EXPECT_THAT(ConfigLines::setKeys(kFile, {{"other", "1"}, setting}), HasCode(status::invalidArgument));
  }
  EXPECT_THAT(ConfigLines::removeKey(kFile, ""), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigLines::removeKey(kFile, "a=b"), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigLines::setKeys("", {{"key", "1"}}), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigLines::removeKey("", "key"), HasCode(status::invalidArgument));
  EXPECT_THAT(LineEditor("").commit(), HasCode(status::invalidArgument));
  EXPECT_EQ(host::tree("/tmp"), "f 0644 hip.conf \"key=old\\n\"\nd 1777 lock\n");
}

// --- Removing keys

TEST_F(ConfigLinesTest, EveryLineOfAKeyIsRemoved) {
  const struct {
    const char* why;
    std::string before;
    std::string after;
  } cases[] = {
      {"a key behind blanks stays", "a=1\nkey=1\n  key=2\n\nkey=3", "a=1\n  key=2\n\n"},
      {"a long line holds no key in a later piece", kPieces + "key=new\n", kPieces},
      {"a long line of the key is removed whole", "a=1\nkey=" + longLine(20000) + "\nb=2\n", "a=1\nb=2\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, c.before);
    EXPECT_THAT(removeKey(), HasCode(status::success));
    EXPECT_EQ(host::readFile(kFile), c.after);
  }
}

TEST_F(ConfigLinesTest, ARemovalWithoutALineOfTheKeyWritesNothing) {
  EXPECT_THAT(removeKey(), HasCode(status::success));
  EXPECT_EQ(host::tree("/tmp"), "d 1777 lock\n") << "a missing file is not created";
  host::writeFile(kFile, "a=1");
  const ino_t before = infoOf(kFile).st_ino;
  EXPECT_THAT(removeKey(), HasCode(status::success));
  EXPECT_EQ(infoOf(kFile).st_ino, before);
  {
    const ArmedFaults armed({1, false, EIO, {"read"}});
    EXPECT_THAT(removeKey(), HasCode(status::success));
    EXPECT_GT(armed.count(), 1u);
  }
  EXPECT_EQ(infoOf(kFile).st_ino, before) << "only the edit finds out that no line has the key";
  EXPECT_EQ(host::readFile(kFile), "a=1");
  for (const std::string& content : {std::string("a=1"), longLine(7999) + "key=1\n"}) {
    host::writeFile(kFile, content);
    const ArmedFaults counted{FaultPlan{}};
    EXPECT_THAT(removeKey(), HasCode(status::success));
    EXPECT_THAT(counted.calls(), testing::Not(testing::Contains("flock"))) << "nothing is made beside the file";
  }
}

// --- The file that an edit leaves

// The tree of /tmp after an edit.
std::string left(const std::string& mode, const std::string& text = "key=2\\n") {
  return "f " + mode + " hip.conf \"" + text + "\"\nd 1777 lock\n";
}

// What an edit finds, and what it leaves. Below /tmp/other lie files that it must not change.
const struct {
  const char* why;
  const char* before;  // the old text with mode 0644; null: no old file
  std::function<void()> prepare;
  std::string after;
} kEdits[] = {
    {"a missing file is created", nullptr, [] {}, left("0644")},
    {"0600 is kept", "key=1\n", [] { host::setMode(kFile, 0600); }, left("0600")},
    {"0666 is kept", "key=1\n", [] { host::setMode(kFile, 0666); }, left("0666")},
    {"0400 is kept", "key=1\n", [] { host::setMode(kFile, 0400); }, left("0400")},
    {"0750 is kept", "key=1\n", [] { host::setMode(kFile, 0750); }, left("0750")},
    {"a link is replaced", nullptr, [] { host::makeLink(kFile, "/tmp/other/file"); }, left("0600", "key=2\\na=1\\n")},
    // The copy would outlive the program.
    {"a set-user-ID bit is dropped", nullptr, [] { host::makeLink(kFile, "/tmp/other/program"); }, left("0755")},
    {"a link to nothing is an empty file", nullptr, [] { host::makeLink(kFile, "/tmp/missing"); }, left("0644")},
    {"a link to the null device is one too", nullptr, [] { host::makeLink(kFile, "/dev/null"); }, left("0644")},
    {"an old temporary file is removed", "key=1\n", [] { host::writeFile(kTemporary, "x", 0666); }, left("0644")},
    {"an old temporary link is not followed", "key=1\n", [] { host::makeLink(kTemporary, "/tmp/other/file"); },
     left("0644")},
    {"an old link to nothing is removed", "key=1\n", [] { host::makeLink(kTemporary, "/tmp/missing"); }, left("0644")},
    {"an old temporary FIFO is removed", "key=1\n", [] { host::makeFifo(kTemporary); }, left("0644")},
    {"a lock file that is a link stops no edit", "key=1\n", [] { host::makeLink(kLock, "/tmp/missing"); },
     left("0644") + "l lock/hip.conf.lock -> /tmp/missing\n"},
    {"a lock file that is a directory stops no edit", "key=1\n", [] { host::makeDirs(kLock); },
     left("0644") + "d 0755 lock/hip.conf.lock\n"},
    {"a lock in a directory of our own is released", "key=1\n", [] { host::setMode("/tmp/lock", 0755); },
     "f 0644 hip.conf \"key=2\\n\"\nd 0755 lock\n"},
    {"no lock directory is needed", "key=1\n", [] { host::remove("/tmp/lock"); }, "f 0644 hip.conf \"key=2\\n\"\n"},
};

TEST_F(ConfigLinesTest, AnEditLeavesOneRegularFileWithTheNinePermissionBitsOfTheOldOneWhateverTheUmask) {
  const mode_t modeBefore = host::modeOf("/tmp");
  for (const auto& c : kEdits) {
    SCOPED_TRACE(c.why);
    host::reset();
    host::setMode("/tmp", 0755);  // so that links in it are trusted
    host::writeFile("/tmp/other/file", "key=1\na=1\n", 0600);
    host::writeFile("/tmp/other/program", "key=1\n", 06755);
    const std::string others = host::tree("/tmp/other");
    if (c.before != nullptr) host::writeFile(kFile, c.before);
    c.prepare();
    ::umask(0777);
    EXPECT_THAT(setKey(), HasCode(status::success));
    ::umask(022);
    EXPECT_EQ(host::tree("/tmp/other"), others);
    host::remove("/tmp/other");
    EXPECT_EQ(host::tree("/tmp"), c.after);
  }
  host::setMode("/tmp", modeBefore);
}

TEST_F(ConfigLinesTest, AnEditNeedsNoLockThatItHasNoPermissionToTake) {
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"the lock directory is read-only", [] { host::setMode("/tmp/lock", 0555); }},
      {"the lock file is read-only", [] { host::writeFile(kLock, "", 0); }},
  };
  for (const auto& [why, forbid] : cases) {
    SCOPED_TRACE(why);
    host::reset();
    host::writeFile(kFile, "key=1\n");
    host::setMode("/tmp/lock", 0755);  // in a lock directory where others may write, an edit takes no lock
    forbid();
    const host::BoundByModes bound;
    const ArmedFaults armed({0, false, EIO, {"flock"}});
    EXPECT_THAT(setKey(), HasCode(status::success));
    EXPECT_EQ(armed.count(), 1u) << "only the temporary file is locked";
    EXPECT_EQ(host::readFile(kFile), "key=2\n");
  }
}

TEST_F(ConfigLinesTest, AnEditedSparseFileStaysSparse) {
  constexpr off_t terabyte = off_t{1} << 40;
  host::writeSparse(kFile, terabyte, {{0, "key=1\na"}});
  EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "22"}, {"new", "3"}}), HasCode(status::success));
  const struct stat info = infoOf(kFile);
  EXPECT_EQ(info.st_size, terabyte + 1 + 7);  // one more digit, a newline, and the 6 bytes of the new line
  EXPECT_LT(info.st_blocks, 1000);
  std::string value;
  EXPECT_TRUE(ConfigLines::readFirstValue(kFile, "new", value));
  EXPECT_EQ(value, "3");
}

TEST_F(ConfigLinesTest, AFaultAtAHoleLeavesTheOldFile) {
  constexpr off_t size = 1000000;
  const struct {
    const char* why;
    host::Islands islands;
  } cases[] = {{"a hole behind the text", {{0, "key=1\na"}}}, {"a hole before the text", {{900000, "\nkey=1\na"}}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const auto prepare = [&] {
      host::reset();
      host::writeSparse(kFile, size, c.islands);
    };
    std::set<StatusCode> failures;
    forEachFault({prepare, {"openat", "write", "lseek"}}, addKey, [&](const Status& result, const Fault& fault) {
      EXPECT_EQ(infoOf(kFile).st_size, result.isSuccess() ? size + 7 : size);
      EXPECT_FALSE(host::exists(kTemporary));
      if (!fault) {
        EXPECT_THAT(result, HasCode(status::success));
      }
      if (!result.isSuccess()) failures.insert(result.code());
    });
    EXPECT_THAT(failures, testing::UnorderedElementsAre(status::openError, status::readError, status::writeError));
  }
}

TEST_F(ConfigLinesTest, TheOwnerOfTheOldFileIsKept) {
  SKIP_WITHOUT_OTHER_USERS();
  host::writeFile(kFile, "key=1\n", 0640);
  ASSERT_EQ(::chown(kFile, 1234, 2345), 0);
  EXPECT_THAT(setKey(), HasCode(status::success));
  const struct stat info = infoOf(kFile);
  EXPECT_EQ(info.st_uid, 1234u);
  EXPECT_EQ(info.st_gid, 2345u);
  EXPECT_EQ(info.st_mode & 07777, 0640u);
}

constexpr const char* kListed = "/tmp/listed/hip.conf";

Status setListedKey() { return ConfigLines::setKeys(kListed, {{"key", "2"}}); }

// Makes a directory whose new files inherit an access list, and an old file in it without a list.
void makeListedDirectory() {
  host::remove("/tmp/listed");
  host::writeFile(kListed, "key=1\n", 0640);
  setAttribute("/tmp/listed", kDefaultList, accessList({6, 7, 7}));
}

TEST_F(ConfigLinesTest, AnEditKeepsTheAccessListAndItsMaskAndTheFileInheritsNone) {
  makeListedDirectory();
  EXPECT_THAT(setListedKey(), HasCode(status::success));
  EXPECT_EQ(attributeOf(kListed, kAccessList), "(none)");
  EXPECT_EQ(host::modeOf(kListed), 0640u);
  for (const AccessOf& access : {AccessOf{6, 6, 0}, AccessOf{6, 4, 4}, AccessOf{4, 0, 0}}) {
    makeListedDirectory();
    setAttribute(kListed, kAccessList, accessList(access));
    const mode_t mode = host::modeOf(kListed);
    EXPECT_THAT(setListedKey(), HasCode(status::success));
    EXPECT_EQ(host::readFile(kListed), "key=2\n");
    EXPECT_EQ(attributeOf(kListed, kAccessList), accessList(access));
    EXPECT_EQ(host::modeOf(kListed), mode);
  }
}

TEST_F(ConfigLinesTest, ANewFileInheritsTheAccessListOfItsDirectory) {
  makeListedDirectory();
  host::remove(kListed);
  EXPECT_THAT(setListedKey(), HasCode(status::success));
  EXPECT_EQ(attributeOf(kListed, kAccessList), accessList({6, 4, 4}));
  EXPECT_EQ(host::modeOf(kListed), 0644u);
}

TEST_F(ConfigLinesTest, AnEditKeepsOtherAttributesWhereTheSystemAllows) {
  SKIP_WITHOUT_OTHER_USERS();
  for (const bool isKept : {true, false}) {
    host::writeFile(kFile, "key=1\n", 0644);
    setAttribute(kFile, kNote, "note");
    const ArmedFaults armed({isKept ? 0u : 1u, false, EPERM, {"fsetxattr"}});
    EXPECT_THAT(setKey(), HasCode(status::success));
    EXPECT_EQ(host::readFile(kFile), "key=2\n");
    EXPECT_EQ(attributeOf(kFile, kNote), isKept ? "note" : "(none)");
    EXPECT_EQ(host::modeOf(kFile), 0644u);
  }
}

TEST_F(ConfigLinesTest, IfTheAccessListIsNotKeptTheModeLosesTheBitsOfGroupAndOthers) {
  const struct {
    const char* why;
    AccessOf access;  // without a mask: no list
    FaultPlan plan;
    mode_t mode;
  } cases[] = {
      {"it cannot be read", {6, 6, 4}, {1, false, EIO, {"fgetxattr"}}, 0600},
      {"it cannot be set", {6, 6, 4}, {1, false, ENOSPC, {"fsetxattr"}}, 0600},
      {"the attributes of the old file cannot be listed", {6, 6, 4}, {1, false, E2BIG, {"flistxattr"}}, 0600},
      {"those of the new file cannot be listed", {6, 6, 4}, {2, false, EIO, {"flistxattr"}}, 0600},
      {"an inherited one cannot be removed", {}, {1, false, EPERM, {"fremovexattr"}}, 0600},
      {"the file system has none", {}, {1, true, ENOTSUP, {"flistxattr"}}, 0640},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    makeListedDirectory();
    if (c.access.mask != 0) setAttribute(kListed, kAccessList, accessList(c.access));
    const ArmedFaults armed(c.plan);
    EXPECT_THAT(setListedKey(), HasCode(status::success));
    EXPECT_EQ(host::readFile(kListed), "key=2\n");
    EXPECT_EQ(host::modeOf(kListed), c.mode);
  }
}

TEST_F(ConfigLinesTest, IfTheOwnerOrTheGroupIsNotKeptTheModeLosesTheBitsOfGroupAndOthers) {
  SKIP_WITHOUT_OTHER_USERS();
  const std::pair<uid_t, gid_t> owners[] = {{1234, 0}, {0, 2345}, {1234, 2345}};
  for (const auto& [user, group] : owners) {
    for (const bool hasList : {false, true}) {
      SCOPED_TRACE(testing::Message() << user << ':' << group << (hasList ? ", with a list" : ""));
      host::writeFile(kFile, "key=1\n", 0664);
      if (hasList) setAttribute(kFile, kAccessList, accessList({6, 6, 4}));
      ASSERT_EQ(::chown(kFile, user, group), 0);
      FaultPlan plan{1, false, EPERM, {"fchown", "fchmod"}};
      plan.before = [](std::size_t call) {
        if (call != 2) return;
        EXPECT_EQ(host::modeOf(kTemporary), 0600u) << "the list opens it to nobody either";
      };
      const ArmedFaults armed(plan);
      EXPECT_THAT(setKey(), HasCode(status::success));
      EXPECT_EQ(host::modeOf(kFile), 0600u);
      EXPECT_EQ(attributeOf(kFile, kAccessList), hasList ? accessList({6, 0, 0}) : "(none)");
      host::remove(kFile);
    }
  }
}

TEST_F(ConfigLinesTest, AFileThatIsClosedDuringAnEditStaysClosed) {
  const struct {
    const char* why;
    std::function<void()> close;
    mode_t mode;
  } cases[] = {
      {"by its mode", [] { host::setMode(kFile, 0600); }, 0600},
      // The mask of the removed list would become the bits of the group.
      {"by removing its list",
       [] {
         ASSERT_EQ(::removexattr(kFile, kAccessList), 0);
         host::setMode(kFile, 0644);
       },
       0644},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, "key=1\n", 0644);
    setAttribute(kFile, kAccessList, accessList({6, 6, 4}));
    ASSERT_EQ(host::modeOf(kFile), 0664u);
    FaultPlan plan;
    plan.calls = {"fchown"};
    plan.before = [&](std::size_t) { c.close(); };
    const ArmedFaults armed(plan);
    EXPECT_THAT(setKey(), HasCode(status::success));
    EXPECT_EQ(host::modeOf(kFile), c.mode);
    host::remove(kFile);
  }
}

TEST_F(ConfigLinesTest, AnEditSucceedsDespiteLimitsOfTheSystemUnlessTheModeIsWrong) {
  const struct {
    const char* why;
    mode_t mode;
    FaultPlan plan;
    StatusCode code;
  } cases[] = {
      {"the owner cannot be set, but the new file has it", 0644, {1, false, EPERM, {"fchown"}}, status::success},
      {"the file system has no sync: EINVAL", 0644, {1, true, EINVAL, {"fsync"}}, status::success},
      {"the file system has no sync: ENOSYS", 0644, {1, true, ENOSYS, {"fsync"}}, status::success},
      {"the file system has no sync: EOPNOTSUPP", 0644, {1, true, EOPNOTSUPP, {"fsync"}}, status::success},
      {"each read and write moves one byte", 0644, {0, false, EIO, {}, true}, status::success},
      {"the mode cannot be set, and the new file has another", 0644, {1, true, EPERM, {"fchmod"}}, status::chmodError},
      {"the mode cannot be set, but the new file has it", 0600, {1, true, EPERM, {"fchmod"}}, status::success},
      // The sixth of these calls is the fchmod, after the fstat of both directories, of the new file and twice of the
      // old one.
      {"the mode is unknown too", 0600, {6, true, EPERM, {"fchmod", "fstat"}}, status::chmodError},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, longLine(9000) + "\nkey=1\n", c.mode);
    {
      const ArmedFaults armed(c.plan);
      EXPECT_THAT(setKey(), HasCode(c.code));
    }
    EXPECT_EQ(host::readFile(kFile), longLine(9000) + (c.code == status::success ? "\nkey=2\n" : "\nkey=1\n"));
    EXPECT_EQ(host::modeOf(kFile), c.mode);
    EXPECT_FALSE(host::exists(kTemporary));
  }
}

TEST_F(ConfigLinesTest, AFileInTheWorkingDirectoryIsEditedByItsBareName) {
  host::writeFile(kFile, "key=1\n");
  ASSERT_EQ(::chdir("/tmp"), 0);
  const ArmedFaults counted({0, false, EIO, {"renameat", "fsync"}});
  EXPECT_THAT(ConfigLines::setKeys("hip.conf", {{"key", "2"}}), HasCode(status::success));
  EXPECT_EQ(host::tree("/tmp"), "f 0644 hip.conf \"key=2\\n\"\nd 1777 lock\n");
  EXPECT_THAT(counted.calls(), ElementsAre("fsync", "renameat", "fsync")) << "the directory is synced too";
}

TEST_F(ConfigLinesTest, AFileThatCannotBeOpenedEndsTheEditAndChangesNothing) {
  const struct {
    const char* why;
    std::function<void()> prepare;
  } cases[] = {
      {"a directory", [] { host::makeDirs(kFile); }},
      {"a FIFO", [] { host::makeFifo(kFile); }},
      {"an unreadable file", [] { host::writeFile(kFile, "key=1\n", 0); }},
      {"a link to itself", [] { host::makeLink(kFile, kFile); }},
      {"a link to a device", [] { host::makeLink(kFile, "/dev/zero"); }},
      {"the temporary file is a directory",
       [] {
         host::writeFile(kFile, "key=1\n");
         host::makeDirs(kTemporary);
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    c.prepare();
    const std::string before = host::tree("/tmp");
    {
      const host::BoundByModes bound;
      EXPECT_THAT(setKey(), HasCode(status::openError));
      EXPECT_THAT(removeKey(), HasCode(status::openError));
    }
    EXPECT_EQ(host::tree("/tmp"), before);
  }
  EXPECT_THAT(ConfigLines::setKeys("/tmp/missing/hip.conf", {{"key", "2"}}), HasCode(status::openError));
}

TEST_F(ConfigLinesTest, AFullDiskLeavesTheOldFileAndNothingElse) {
  host::makeDirs("/tmp/disk");
  const host::SmallDisk disk("/tmp/disk", 8 * 4096);
  host::writeFile("/tmp/disk/hip.conf", "a=" + longLine(20000) + "\nkey=1\n");
  EXPECT_THAT(ConfigLines::setKeys("/tmp/disk/hip.conf", {{"key", "2"}}), HasCode(status::writeError));
  EXPECT_EQ(host::readFile("/tmp/disk/hip.conf"), "a=" + longLine(20000) + "\nkey=1\n");
  EXPECT_FALSE(host::exists("/tmp/disk/hip.conf.temp"));
}

TEST_F(ConfigLinesTest, AFileSizeLimitLeavesTheOldFileAndNothingElse) {
  host::writeFile(kFile, "a=12345\nkey=1\n");
  void (*const oldAction)(int) = std::signal(SIGXFSZ, SIG_IGN);
  rlimit old = {};
  ::getrlimit(RLIMIT_FSIZE, &old);
  const rlimit limit = {4, old.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  const Status result = setKey();
  ::setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, oldAction);
  EXPECT_THAT(result, HasCode(status::writeError));
  EXPECT_EQ(host::readFile(kFile), "a=12345\nkey=1\n");
  EXPECT_FALSE(host::exists(kTemporary));
}

// --- Every call that can fail, made to fail

Status appendLine() {
  LineEditor editor(kFile);
  for (LinePiece line; editor.readLine(line);) editor.keepLine(line);
  editor.writeLine("new");
  return editor.commit();
}

// The rename begins with a look whether the name still belongs to the new file.
StatusCode codeOfFault(const Fault& fault, const std::vector<std::string>& calls) {
  const auto rename = std::find(calls.begin(), calls.end(), "renameat");
  if (rename != calls.end() && fault.step + 1 >= static_cast<std::size_t>(rename - calls.begin())) {
    return status::renameError;
  }
  if (fault.call == "read") return status::readError;
  if (fault.call == "fchmod") return status::chmodError;
  const bool isOpening = fault.call == "openat" || fault.call == "fstat" || fault.call == "fstatat";
  return isOpening ? status::openError : status::writeError;
}

// True if the fault hides who may read the old file: its access list, or its mode as it is now.
bool hidesAccess(const Fault& fault, const std::vector<std::string>& calls) {
  const auto write = static_cast<std::size_t>(std::find(calls.begin(), calls.end(), "write") - calls.begin());
  return fault.call == "flistxattr" || (fault.call == "fstat" && fault.step > write);
}

// The calls of an edit that finds an old file.
const std::vector<std::string> kCallsOfAnEdit = {
    // Others may write in the lock directory: no lock of it.
    "openat", "fstat", "close",
    // Open the directory, make and lock the new file.
    "openat", "fstat", "openat", "flock", "fstat", "fstatat",
    // Read the old file and write the new one, with owner, attributes and mode.
    "openat", "fstat", "read", "write", "fchown", "flistxattr", "flistxattr", "fstat", "fchmod", "fsync", "close",
    // Replace the old one, release the lock.
    "fstat", "fstatat", "renameat", "openat", "fsync", "close", "close",
    // Close the directory and the old file.
    "close", "close"};
// A removal first looks whether there is such a key.
const std::vector<std::string> kCallsOfARemoval = [] {
  std::vector<std::string> calls = {"openat", "fstat", "read", "close"};
  calls.insert(calls.end(), kCallsOfAnEdit.begin(), kCallsOfAnEdit.end());
  return calls;
}();
const std::vector<std::string> kCallsOfACreation = {
    "openat", "fstat",   "close",  // others may write in the lock directory: no lock of it
    "openat", "fstat",   "openat",   "flock",  "fstat", "fstatat",  // open the directory, make and lock the new file
    "openat",                                                       // find no old file
    "write",  "fchmod",  "fsync",    "close",                       // write the new file
    "fstat",  "fstatat", "renameat", "openat", "fsync", "close",   "close",  // give it its name, release the lock
    "close",                                                                 // close the directory
};
constexpr const char* kNoFile = "no file";

const std::string kLongText = "one\n" + longLine(100000) + "\ntwo\n";
const struct {
  const char* why;
  Status (*edit)();
  std::string before;
  std::string after;
  std::vector<std::string> calls;
  CallNames counted;
} kFaultyEdits[] = {
    {"a key is replaced", setKey, "# head\nkey=1\na=1", "# head\nkey=2\na=1", kCallsOfAnEdit, {}},
    {"a key is removed", removeKey, "key=1\na=1\n", "a=1\n", kCallsOfARemoval, {}},
    {"a file is created", setKey, kNoFile, "key=2\n", kCallsOfACreation, {}},
    {"a long edit stops at a failed write", appendLine, kLongText, kLongText + "new\n", {"write", "write"}, {"write"}},
};

TEST_F(ConfigLinesTest, AFaultAnywhereLeavesTheWholeOldFileOrTheWholeNewOne) {
  for (const auto& c : kFaultyEdits) {
    SCOPED_TRACE(c.why);
    const auto prepare = [&c] {
      host::reset();
      if (c.before != kNoFile) host::writeFile(kFile, c.before, 0640);
    };
    forEachFault({prepare, c.counted}, c.edit, [&c](const Status& result, const Fault& fault) {
      EXPECT_EQ(host::exists(kFile) ? host::readFile(kFile) : kNoFile, result.isSuccess() ? c.after : c.before);
      if (c.before != kNoFile) {
        EXPECT_EQ(host::modeOf(kFile), result.isSuccess() && hidesAccess(fault, c.calls) ? 0600u : 0640u);
      }
      if (!fault) {
        EXPECT_THAT(result, HasCode(status::success));
      }
      if (!result.isSuccess() && !fault.fromThereOn) {
        EXPECT_THAT(result, HasCode(codeOfFault(fault, c.calls)));
      }
      // Where every later call fails, unlink too, the temporary file cannot be removed.
      if (!fault.fromThereOn || fault.step == 1 || !c.counted.empty()) {
        EXPECT_FALSE(host::exists(kTemporary));
      }
    });
    FaultPlan counting;
    counting.calls = c.counted;
    EXPECT_EQ(fault_loop::run({prepare}, counting, c.edit), c.calls);
  }
}

TEST_F(ConfigLinesTest, AFailedSyncOrCloseOfTheNewFileIsAFailedWrite) {
  // The first close is that of the lock directory.
  for (const FaultPlan& plan : {FaultPlan{1, false, EIO, {"fsync"}}, FaultPlan{2, false, EIO, {"close"}}}) {
    SCOPED_TRACE(*plan.calls.begin());
    host::writeFile(kFile, "key=1\n");
    const ArmedFaults armed(plan);
    EXPECT_THAT(setKey(), HasCode(status::writeError));
    EXPECT_EQ(host::readFile(kFile), "key=1\n");
  }
}

// --- The lock

TEST_F(ConfigLinesTest, AnEditWaitsTenSecondsAtMostForAHolderAndThenChangesNothing) {
  host::writeFile(kFile, "key=1\n");
  host::setMode("/tmp/lock", 0755);  // a lock in a directory where others may write stops no edit
  const FileLock lock(kFile);
  ASSERT_TRUE(lock.isLocked());
  for (Status (*edit)() : {setKey, removeKey}) {
    const SkippedPauses skipped;
    EXPECT_THAT(edit(), HasCode(status::openError));
    EXPECT_EQ(skipped.total(), std::chrono::seconds(10));
  }
  EXPECT_EQ(host::readFile(kFile), "key=1\n");
}

TEST_F(ConfigLinesTest, AllEditsWithinALimitWaitTenSecondsTogetherAndTheLastOneStillTriesOnce) {
  host::writeFile(kFile, "key=1\n");
  ReplacementFile other;
  ASSERT_THAT(other.make(kFile, std::chrono::steady_clock::now()), HasCode(status::success));
  const SkippedPauses skipped;
  ConfigLines::EditLimit limit;
  EXPECT_THAT(setKey(), HasCode(status::openError));
  EXPECT_THAT(removeKey(), HasCode(status::openError));
  EXPECT_EQ(skipped.total(), std::chrono::seconds(10));
  EXPECT_EQ(host::readFile(kFile), "key=1\n");
  other.remove();
  EXPECT_THAT(setKey(), HasCode(status::success));
}

TEST_F(ConfigLinesTest, ConcurrentEditsOfSeveralProcessesLoseNoLine) {
  constexpr int processes = 4;
  constexpr int edits = 25;
  std::vector<pid_t> children;
  for (int p = 0; p < processes; ++p) {
    const pid_t child = ::fork();
    if (child == 0) {
      int failures = 0;
      for (int i = 0; i < edits; ++i) {
        const std::string key = "key" + std::to_string(p) + "_" + std::to_string(i);
        if (!ConfigLines::setKeys(kFile, {{key, "1"}}).isSuccess()) ++failures;
      }
      ::_exit(failures);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  const std::string text = host::readFile(kFile);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), processes * edits);
  EXPECT_EQ(host::tree("/tmp/lock"), "") << "an edit removes its lock file";
}

// --- The editor itself

TEST_F(LineEditorTest, LinesAreReadWithTheirLineEndsAndKeptByteForByte) {
  const std::string content("one\r\n\ntw\0o\nlast", 15);
  host::writeFile(kFile, content);
  LineEditor editor(kFile);
  std::vector<std::string> lines;
  for (LinePiece line; editor.readLine(line);) {
    lines.emplace_back(line.text);
    editor.keepLine(line);
  }
  EXPECT_THAT(lines, ElementsAre("one\r\n", "\n", std::string("tw\0o\n", 5), "last"));
  EXPECT_THAT(editor.commit(), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), content);
}

TEST_F(LineEditorTest, AnEditThatIsNotCommittedRemovesItsTemporaryFileAndKeepsTheOldFile) {
  const struct {
    const char* why;
    std::function<void(std::optional<LineEditor>&)> end;
  } cases[] = {
      {"discard() ends the edit", [](std::optional<LineEditor>& editor) { editor->discard(); }},
      {"the destructor ends the edit", [](std::optional<LineEditor>& editor) { editor.reset(); }},
      {"memory runs out", [](std::optional<LineEditor>&) { removeLeftovers(); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, "old\n");
    std::optional<LineEditor> editor(kFile);
    editor->writeLine(longLine(100000));  // more than the editor gathers before it creates the file
    EXPECT_TRUE(host::exists(kTemporary));
    c.end(editor);
    EXPECT_FALSE(host::exists(kTemporary));
    EXPECT_EQ(host::readFile(kFile), "old\n");
  }
}

TEST_F(LineEditorTest, ACommitAfterACommitOrADiscardFailsAndChangesNothing) {
  LineEditor committed(kFile);
  committed.writeLine("one");
  EXPECT_THAT(committed.commit(), HasCode(status::success));
  EXPECT_THAT(committed.status(), HasCode(status::writeError));
  host::writeFile(kTemporary, "of another editor");
  committed.discard();
  EXPECT_EQ(host::readFile(kTemporary), "of another editor");
  host::remove(kTemporary);
  committed.writeLine("two");
  EXPECT_THAT(committed.commit(), HasCode(status::writeError));
  LineEditor discarded(kFile);
  discarded.writeLine(longLine(100000));
  discarded.discard();
  EXPECT_THAT(discarded.commit(), HasCode(status::writeError));
  EXPECT_EQ(host::tree("/tmp"), "f 0644 hip.conf \"one\\n\"\nd 1777 lock\n");
}

TEST_F(LineEditorTest, AfterAFailureNothingIsReadOrWritten) {
  host::writeFile(kFile, longLine(100000));
  const ArmedFaults armed({2, false, EIO, {"read"}});
  LineEditor editor(kFile);
  LinePiece line;
  while (editor.readLine(line)) editor.keepLine(line);
  EXPECT_THAT(editor.status(), HasCode(status::readError));
  EXPECT_FALSE(editor.readLine(line));
  editor.writeLine("new");
  EXPECT_THAT(editor.commit(), HasCode(status::readError));
  EXPECT_EQ(host::readFile(kFile), longLine(100000));
  EXPECT_FALSE(host::exists(kTemporary));
}

TEST_F(LineEditorTest, TheFirstFailureStaysTheStatus) {
  LineEditor editor("");
  editor.writeLine("one");
  editor.discard();
  EXPECT_THAT(editor.status(), HasCode(status::invalidArgument));
  EXPECT_THAT(editor.commit(), HasCode(status::invalidArgument));
  EXPECT_THAT(editor.commit(), HasCode(status::invalidArgument));
}

TEST_F(LineEditorTest, AnEmptyLineIsWritten) {
  host::writeFile(kFile, "old");
  LineEditor editor(kFile);
  LinePiece line;
  ASSERT_TRUE(editor.readLine(line));
  editor.keepLine(line);
  editor.writeLine("");
  editor.writeLine("");
  editor.writeLine("new");
  EXPECT_THAT(editor.commit(), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "old\n\n\nnew\n");
}

// An edit needs no more memory than this, however large the file is.
TEST_F(LineEditorTest, LinesAreGatheredUpTo64KiBAndThenWritten) {
  LineEditor editor(kFile);
  editor.writeLine(longLine(65534));
  EXPECT_EQ(host::readFile(kTemporary), "");
  editor.writeLine("");
  EXPECT_EQ(host::readFile(kTemporary), longLine(65534) + "\n\n");
  editor.writeLine("last");
  EXPECT_EQ(host::readFile(kTemporary), longLine(65534) + "\n\n");
  EXPECT_THAT(editor.commit(), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), longLine(65534) + "\n\nlast\n");
}

TEST_F(LineEditorTest, ALongEditStopsIfItsTemporaryFileCannotBeCreated) {
  LineEditor editor("/tmp/missing/hip.conf");
  editor.writeLine(longLine(100000));
  EXPECT_THAT(editor.status(), HasCode(status::openError)) << "reported before the commit";
  const ArmedFaults counted({0, false, EIO, {"open", "write"}});
  editor.writeLine(longLine(100000));
  EXPECT_THAT(editor.commit(), HasCode(status::openError));
  EXPECT_EQ(counted.count(), 0u);
}

TEST_F(LineEditorTest, AfterAFailureNoHoleIsWritten) {
  host::writeSparse(kFile, 1000000, {{0, "one\n"}, {900000, "two\n"}});
  LineEditor editor(kFile);
  LinePiece line;
  while (editor.readLine(line) && line.hole == 0) editor.keepLine(line);
  ASSERT_GT(line.hole, 0);
  const ArmedFaults armed({1, false, ENOSPC, {"write", "lseek"}});
  editor.writeLine(longLine(100000));
  EXPECT_THAT(editor.status(), HasCode(status::writeError));
  editor.keepLine(line);
  EXPECT_THAT(editor.commit(), HasCode(status::writeError));
  EXPECT_THAT(armed.calls(), ElementsAre("write"));
  EXPECT_FALSE(host::exists(kTemporary));
}

TEST_F(LineEditorTest, AnEmptyEditCreatesAnEmptyFile) {
  LineEditor editor(kFile);
  EXPECT_THAT(editor.status(), HasCode(status::success));
  EXPECT_THAT(editor.commit(), HasCode(status::success));
  EXPECT_EQ(host::tree("/tmp"), "f 0644 hip.conf \"\"\nd 1777 lock\n");
}

}  // namespace
