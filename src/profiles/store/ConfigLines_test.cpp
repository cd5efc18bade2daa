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
#include <set>
#include <thread>

#include "base/files/FileLock.h"
#include "base/files/ProgramDirectories.h"
#include "base/system/Leftover.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using ConfigLines::KeyValue;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr const char* kFile = "/tmp/hip.conf";
constexpr const char* kTemporary = "/tmp/hip.conf.temp";

class ConfigLinesTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (!IsSkipped()) (void)FileUtils::lockDir();  // created once in a process, so not in the middle of a fault loop
  }
};
using LineEditorTest = ConfigLinesTest;

std::string longLine(std::size_t length) { return std::string(length, 'x'); }

// --- Reading values

TEST_F(ConfigLinesTest, TheFirstLineOfAKeyGivesItsValue) {
  struct Case {
    const char* why;
    std::string content;
    bool found;
    std::string value;
  };
  const Case cases[] = {
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
      {"a longer key", "key2=1\nmykey=2\n", false, ""},
      {"a hash in the value stays", "key=a#b\n", true, "a#b"},
      {"quotes stay", "key='a'\n", true, "'a'"},
      {"a second equals sign stays", "key=a=b\n", true, "a=b"},
      {"bytes of 128 and above at the end are trimmed", "key=value\xff\n", true, "value"},
      {"a zero byte inside stays", std::string("key=a\0b\n", 8), true, std::string("a\0b", 3)},
      {"the key without equals sign", "key\n", false, ""},
      {"a piece of a long line counts as a line", longLine(7999) + "key=1\n", true, "1"},
      {"a value ends with its piece", "key=" + longLine(8000) + "\n", true, longLine(7995)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, c.content);
    std::string value = "old";
    EXPECT_EQ(ConfigLines::readFirstValue(kFile, "key", value), c.found);
    EXPECT_EQ(value, c.value);
  }
}

TEST_F(ConfigLinesTest, APathThatCannotBeReadHasNoValue) {
  host::makeDirs("/tmp/directory");
  host::makeFifo("/tmp/fifo");
  host::writeFile("/tmp/unreadable", "key=1\n", 0);
  const host::BoundByModes bound;
  for (const char* path : {"", "/tmp/missing", "/tmp/directory", "/tmp/fifo", "/tmp/unreadable", "/dev/null"}) {
    SCOPED_TRACE(path);
    std::string value = "old";
    EXPECT_FALSE(ConfigLines::readFirstValue(path, "key", value));
    EXPECT_EQ(value, "");
  }
}

TEST_F(ConfigLinesTest, AnEmptyKeyHasNoValue) {
  host::writeFile(kFile, "=1\n");
  std::string value = "old";
  EXPECT_FALSE(ConfigLines::readFirstValue(kFile, "", value));
  EXPECT_EQ(value, "");
}

TEST_F(ConfigLinesTest, AValueIsReadThroughALink) {
  host::writeFile("/tmp/target", "key=1\n");
  host::makeLink(kFile, "/tmp/target");
  std::string value;
  EXPECT_TRUE(ConfigLines::readFirstValue(kFile, "key", value));
  EXPECT_EQ(value, "1");
}

TEST_F(ConfigLinesTest, AFailedReadFindsNothing) {
  host::writeFile(kFile, "key=1\n");
  const ArmedFaults armed({1, false, EIO, {"read"}});
  std::string value = "old";
  EXPECT_FALSE(ConfigLines::readFirstValue(kFile, "key", value));
  EXPECT_EQ(value, "");
}

// --- Setting keys

TEST_F(ConfigLinesTest, KeysAreReplacedOrAppended) {
  struct Case {
    const char* why;
    std::string before;
    std::vector<KeyValue> settings;
    std::string after;
  };
  const std::vector<KeyValue> one = {{"key", "new"}};
  const std::vector<KeyValue> levels = {{"log_level", "debug"}, {"openhip.log_level", "debug"}};
  const Case cases[] = {
      {"appended to an empty file", "", one, "key=new\n"},
      {"appended", "# head\n\nother=1\n", one, "# head\n\nother=1\nkey=new\n"},
      {"replaced in its place", "a=1\nkey=old\nb=2\n", one, "a=1\nkey=new\nb=2\n"},
      {"every line of the key", "key=1\na=1\nkey=2\n", one, "key=new\na=1\nkey=new\n"},
      {"a key behind blanks is not replaced", "  key=old\n", one, "  key=old\nkey=new\n"},
      {"a blank before the equals sign is another key", "key =old\n", one, "key =old\nkey=new\n"},
      {"a comment is not replaced", "#key=old\n", one, "#key=old\nkey=new\n"},
      {"case matters", "KEY=old\n", one, "KEY=old\nkey=new\n"},
      {"the key alone is not replaced", "key\n", one, "key\nkey=new\n"},
      {"a last line without newline gets one", "a=1", one, "a=1\nkey=new\n"},
      {"a last line without newline is replaced", "key=old", one, "key=new\n"},
      {"a last line without newline stays if nothing is appended", "key=old\na=1", one, "key=new\na=1"},
      {"line ends of other lines stay", "a=1\r\nkey=old\r\n\r\n", one, "a=1\r\nkey=new\n\r\n"},
      {"zero bytes of other lines stay", std::string("a\0b\n", 4), one, std::string("a\0b\n", 4) + "key=new\n"},
      {"two keys in one pass", "openhip.log_level=info\na=1\nlog_level=info\n", levels,
       "openhip.log_level=debug\na=1\nlog_level=debug\n"},
      {"two keys appended in their order", "a=1", levels, "a=1\nlog_level=debug\nopenhip.log_level=debug\n"},
      {"one replaced, one appended", "log_level=info\n", levels, "log_level=debug\nopenhip.log_level=debug\n"},
      {"no keys", "a=1\nb", {}, "a=1\nb"},
      {"an empty value", "key=old\n", {{"key", ""}}, "key=\n"},
  };
  for (const Case& c : cases) {
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

TEST_F(ConfigLinesTest, ALaterPieceOfALongLineIsNeverTakenForAKey) {
  const std::string line = longLine(7999) + "key=old\n";
  host::writeFile(kFile, line);
  EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "new"}}), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), line + "key=new\n");
  EXPECT_THAT(ConfigLines::removeKey(kFile, "key"), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), line);
}

TEST_F(ConfigLinesTest, AnOverLongLineOfAKeyIsReplacedOrRemovedWhole) {
  const std::string content = "a=1\nkey=" + longLine(20000) + "\nb=2\n";
  host::writeFile(kFile, content);
  EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "new"}}), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "a=1\nkey=new\nb=2\n");
  host::writeFile(kFile, content);
  EXPECT_THAT(ConfigLines::removeKey(kFile, "key"), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "a=1\nb=2\n");
}

TEST_F(ConfigLinesTest, AKeyOrValueThatDoesNotFitALineIsRefused) {
  host::writeFile(kFile, "key=old\n");
  const std::string zero("a\0", 2);
  const std::vector<KeyValue> refused = {{"", "1"},   {"a=b", "1"},   {"a\nb", "1"}, {"a\r", "1"},
                                         {zero, "1"}, {"key", "1\n"}, {"key", "\r"}, {"key", zero}};
  for (const KeyValue& setting : refused) {
    EXPECT_THAT(ConfigLines::setKeys(kFile, {{"other", "1"}, setting}), HasCode(status::invalidArgument));
  }
  EXPECT_THAT(ConfigLines::removeKey(kFile, ""), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigLines::removeKey(kFile, "a=b"), HasCode(status::invalidArgument));
  EXPECT_EQ(host::readFile(kFile), "key=old\n");
}

TEST_F(ConfigLinesTest, AnEmptyPathIsAnInvalidArgument) {
  EXPECT_THAT(ConfigLines::setKeys("", {{"key", "1"}}), HasCode(status::invalidArgument));
  EXPECT_THAT(ConfigLines::removeKey("", "key"), HasCode(status::invalidArgument));
  LineEditor editor("");
  EXPECT_THAT(editor.commit(), HasCode(status::invalidArgument));
  EXPECT_EQ(host::tree("/tmp"), "d 1777 lock\n");
}

// --- Removing keys

TEST_F(ConfigLinesTest, EveryLineOfAKeyIsRemoved) {
  host::writeFile(kFile, "a=1\nkey=1\n  key=2\n\nkey=3");
  EXPECT_THAT(ConfigLines::removeKey(kFile, "key"), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "a=1\n  key=2\n\n");
}

TEST_F(ConfigLinesTest, AFileWithoutTheKeyIsNotTouched) {
  host::writeFile(kFile, "a=1");
  struct stat before = {};
  struct stat after = {};
  ASSERT_EQ(::stat(kFile, &before), 0);
  EXPECT_THAT(ConfigLines::removeKey(kFile, "key"), HasCode(status::success));
  ASSERT_EQ(::stat(kFile, &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(host::readFile(kFile), "a=1");
}

TEST_F(ConfigLinesTest, ARemovalFromAMissingFileCreatesNone) {
  EXPECT_THAT(ConfigLines::removeKey(kFile, "key"), HasCode(status::success));
  EXPECT_EQ(host::tree("/tmp"), "d 1777 lock\n");
}

// --- The file that an edit leaves

TEST_F(ConfigLinesTest, AMissingFileIsCreatedWithMode0644WhateverTheUmask) {
  ::umask(0777);
  EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "1"}}), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "key=1\n");
  EXPECT_EQ(host::modeOf(kFile), 0644u);
}

TEST_F(ConfigLinesTest, TheModeOfTheOldFileIsKept) {
  for (const mode_t mode : {mode_t{0600}, mode_t{0666}, mode_t{0400}, mode_t{0750}}) {
    ::umask(027);
    host::writeFile(kFile, "key=1\n", mode);
    EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::success));
    EXPECT_EQ(host::modeOf(kFile), mode);
  }
}

TEST_F(ConfigLinesTest, AnEditedSparseFileStaysSparse) {
  constexpr off_t terabyte = off_t{1} << 40;
  host::writeSparse(kFile, terabyte, {{0, "key=1\na"}});
  EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "22"}, {"new", "3"}}), HasCode(status::success));
  struct stat info = {};
  ASSERT_EQ(::stat(kFile, &info), 0);
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
    const FaultLoop loop{[&] {
                           host::reset();
                           host::writeSparse(kFile, size, c.islands);
                         },
                         {"open", "write", "lseek"}};
    std::set<StatusCode> failures;
    forEachFault(
        loop,
        [] {
          return ConfigLines::setKeys(kFile, {{"new", "3"}});
        },
        [&](const Status& result, const Fault& fault) {
          struct stat info = {};
          ASSERT_EQ(::stat(kFile, &info), 0);
          EXPECT_EQ(info.st_size, result.isSuccess() ? size + 7 : size);
          EXPECT_FALSE(host::exists(kTemporary));
          if (!fault) {
            EXPECT_THAT(result, HasCode(status::success));
          }
          if (!result.isSuccess()) failures.insert(result.code());
        });
    EXPECT_THAT(failures, testing::UnorderedElementsAre(status::openError, status::readError, status::writeError));
  }
}

// A link may lead to such a program, and the copy would outlive it.
TEST_F(ConfigLinesTest, AnEditCreatesNoSetUserIdProgram) {
  host::writeFile("/tmp/program", "key=1\n", 06755);
  host::makeLink(kFile, "/tmp/program");
  EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::success));
  EXPECT_EQ(host::modeOf(kFile), 0755u);
}

TEST_F(ConfigLinesTest, TheOwnerOfTheOldFileIsKept) {
  SKIP_WITHOUT_OTHER_USERS();
  host::writeFile(kFile, "key=1\n", 0640);
  ASSERT_EQ(::chown(kFile, 1234, 2345), 0);
  EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::success));
  struct stat info = {};
  ASSERT_EQ(::stat(kFile, &info), 0);
  EXPECT_EQ(info.st_uid, 1234u);
  EXPECT_EQ(info.st_gid, 2345u);
  EXPECT_EQ(info.st_mode & 07777, 0640u);
}

TEST_F(ConfigLinesTest, AnOwnerThatCannotBeKeptIsNoFailure) {
  host::writeFile(kFile, "key=1\n");
  const ArmedFaults armed({1, false, EPERM, {"fchown"}});
  EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "key=2\n");
}

TEST_F(ConfigLinesTest, AModeThatCannotBeSetIsAFailureUnlessTheNewFileHasItAlready) {
  const struct {
    const char* why;
    mode_t mode;
    CallNames failing;
    StatusCode code;
  } cases[] = {
      {"the new file has another mode", 0644, {"fchmod"}, status::chmodError},
      {"the new file has that mode", 0600, {"fchmod"}, status::success},
      {"the mode of the new file is unknown", 0600, {"fchmod", "fstat"}, status::chmodError},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, "key=1\n", c.mode);
    std::size_t at = 0;
    {
      const ArmedFaults counted({0, false, EPERM, c.failing});
      ASSERT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::success));
      const std::vector<std::string> calls = counted.calls();
      at = static_cast<std::size_t>(std::find(calls.begin(), calls.end(), "fchmod") - calls.begin()) + 1;
    }
    const ArmedFaults armed({at, true, EPERM, c.failing});
    EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "3"}}), HasCode(c.code));
    EXPECT_EQ(host::readFile(kFile), c.code == status::success ? "key=3\n" : "key=2\n");
    EXPECT_EQ(host::modeOf(kFile), c.mode);
    EXPECT_FALSE(host::exists(kTemporary));
  }
}

TEST_F(ConfigLinesTest, AFileInTheWorkingDirectoryIsEditedByItsBareName) {
  host::writeFile(kFile, "key=1\n");
  ASSERT_EQ(::chdir("/tmp"), 0);
  const ArmedFaults counted({0, false, EIO, {"rename", "fsync"}});
  EXPECT_THAT(ConfigLines::setKeys("hip.conf", {{"key", "2"}}), HasCode(status::success));
  EXPECT_EQ(host::tree("/tmp"), "f 0644 hip.conf \"key=2\\n\"\nd 1777 lock\n");
  EXPECT_THAT(counted.calls(), ElementsAre("fsync", "rename", "fsync")) << "the directory is synced too";
}

TEST_F(ConfigLinesTest, ALinkIsReplacedByARegularFile) {
  host::writeFile("/tmp/target", "key=1\na=1\n", 0600);
  host::makeLink(kFile, "/tmp/target");
  EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/target"), "key=1\na=1\n");
  host::remove("/tmp/target");
  EXPECT_EQ(host::tree("/tmp"), "f 0600 hip.conf \"key=2\\na=1\\n\"\nd 1777 lock\n");
}

TEST_F(ConfigLinesTest, ALinkToNothingOrToTheNullDeviceCountsAsAnEmptyFile) {
  for (const char* target : {"/tmp/missing", "/dev/null"}) {
    host::makeLink(kFile, target);
    EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "1"}}), HasCode(status::success));
    EXPECT_EQ(host::tree("/tmp"), "f 0644 hip.conf \"key=1\\n\"\nd 1777 lock\n");
    host::remove(kFile);
  }
}

TEST_F(ConfigLinesTest, AFileThatCannotBeOpenedEndsTheEditAndChangesNothing) {
  const std::function<void()> obstacles[] = {
      [] { host::makeDirs(kFile); },
      [] { host::makeFifo(kFile); },
      [] { host::writeFile(kFile, "key=1\n", 0); },
      [] { host::makeLink(kFile, kFile); },
      [] { host::makeLink(kFile, "/dev/zero"); },
  };
  for (const auto& obstacle : obstacles) {
    host::reset();
    obstacle();
    const std::string before = host::tree("/tmp");
    {
      const host::BoundByModes bound;
      EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::openError));
      EXPECT_THAT(ConfigLines::removeKey(kFile, "key"), HasCode(status::openError));
    }
    EXPECT_EQ(host::tree("/tmp"), before);
  }
}

TEST_F(ConfigLinesTest, AnOldTemporaryFileIsRemovedAndNeverFollowed) {
  host::writeFile("/tmp/target", "precious");
  const std::function<void()> leftovers[] = {
      [] { host::writeFile(kTemporary, "half an edit", 0666); },
      [] { host::makeLink(kTemporary, "/tmp/target"); },
      [] { host::makeLink(kTemporary, "/tmp/missing"); },
      [] { host::makeFifo(kTemporary); },
  };
  for (const auto& leftover : leftovers) {
    host::writeFile(kFile, "key=1\n");
    leftover();
    EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::success));
    EXPECT_EQ(host::tree("/tmp"), "f 0644 hip.conf \"key=2\\n\"\nd 1777 lock\nf 0644 target \"precious\"\n");
  }
}

TEST_F(LineEditorTest, WhenMemoryRunsOutTheTemporaryFileIsRemoved) {
  host::writeFile(kFile, "old\n");
  LineEditor editor(kFile);
  editor.writeLine(longLine(100000));  // more than the editor gathers before it creates the file
  ASSERT_TRUE(host::exists(kTemporary));
  removeLeftovers();
  EXPECT_FALSE(host::exists(kTemporary));
  EXPECT_EQ(host::readFile(kFile), "old\n");
}

TEST_F(ConfigLinesTest, AnEditThatCannotCreateItsTemporaryFileChangesNothing) {
  host::writeFile(kFile, "key=1\n");
  host::makeDirs(kTemporary);
  EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::openError));
  EXPECT_EQ(host::readFile(kFile), "key=1\n");
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
  const Status result = ConfigLines::setKeys(kFile, {{"key", "2"}});
  ::setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, oldAction);
  EXPECT_THAT(result, HasCode(status::writeError));
  EXPECT_EQ(host::readFile(kFile), "a=12345\nkey=1\n");
  EXPECT_FALSE(host::exists(kTemporary));
}

TEST_F(ConfigLinesTest, AFileSystemWithoutSyncIsNoFailure) {
  for (const int error : {EINVAL, ENOSYS, EOPNOTSUPP}) {
    host::writeFile(kFile, "key=1\n");
    const ArmedFaults armed({1, true, error, {"fsync"}});
    EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::success));
    EXPECT_EQ(host::readFile(kFile), "key=2\n");
  }
}

TEST_F(ConfigLinesTest, TheDataAreSyncedBeforeTheRenameAndTheDirectoryAfterIt) {
  host::writeFile(kFile, "key=1\n");
  const ArmedFaults counted({0, false, EIO, {"write", "fsync", "rename", "fchmod", "fchown"}});
  EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::success));
  EXPECT_THAT(counted.calls(), ElementsAre("write", "fchown", "fchmod", "fsync", "rename", "fsync"));
}

// --- Every call that can fail, made to fail

StatusCode codeOfFault(const std::string& call) {
  if (call == "read") return status::readError;
  if (call == "fchmod") return status::chmodError;
  if (call == "rename") return status::renameError;
  return call == "open" || call == "openat" || call == "fstat" ? status::openError : status::writeError;
}

TEST_F(ConfigLinesTest, AFaultAnywhereLeavesTheWholeOldFileOrTheWholeNewOne) {
  constexpr const char* oldText = "# head\nkey=1\na=1";
  constexpr const char* newText = "# head\nkey=2\na=1";
  const FaultLoop loop{[=] {
    host::reset();
    host::writeFile(kFile, oldText, 0640);
  }};
  const auto edit = [] { return ConfigLines::setKeys(kFile, {{"key", "2"}}); };
  forEachFault(loop, edit, [=](const Status& result, const Fault& fault) {
    EXPECT_EQ(host::readFile(kFile), result.isSuccess() ? newText : oldText);
    EXPECT_EQ(host::modeOf(kFile), 0640u);
    if (!fault) {
      EXPECT_THAT(result, HasCode(status::success));
    }
    if (!fault.fromThereOn || fault.step == 1) {
      // No temporary file is left. Where every later call fails, it cannot be removed.
      EXPECT_FALSE(host::exists(kTemporary));
    }
    if (!result.isSuccess() && !fault.fromThereOn) {
      EXPECT_THAT(result, HasCode(codeOfFault(fault.call)));
    }
  });
  EXPECT_THAT(fault_loop::run(loop, {}, edit),
              ElementsAreArray({
                  "open",   "openat", "fstat",   "flock",    "fstat",  "fstatat",           // take the lock
                  "openat", "fstat",  "read",                                               // read the old file
                  "unlink", "open",   "write",   "fchown",   "fchmod", "fsync",   "close",  // write the new file
                  "rename", "open",   "fsync",   "close",                                   // replace the old one
                  "close",  "fstat",  "fstatat", "unlinkat", "close",  "close",  // close it, release the lock
              }));
}

TEST_F(ConfigLinesTest, AFaultAnywhereLeavesNoNewFileUnlessTheEditSucceeds) {
  const FaultLoop loop{[] { host::reset(); }};
  const auto edit = [] { return ConfigLines::setKeys(kFile, {{"key", "2"}}); };
  forEachFault(loop, edit, [](const Status& result, const Fault& fault) {
    EXPECT_EQ(host::exists(kFile), result.isSuccess());
    if (!fault) {
      EXPECT_THAT(result, HasCode(status::success));
    }
    if (!fault.fromThereOn) {
      EXPECT_FALSE(host::exists(kTemporary));
    }
  });
  EXPECT_THAT(fault_loop::run(loop, {}, edit),
              ElementsAreArray({
                  "open",   "openat",  "fstat",    "flock",  "fstat", "fstatat",  // take the lock
                  "openat",                                                       // find no old file
                  "unlink", "open",    "write",    "fchmod", "fsync", "close",    // write the new file
                  "rename", "open",    "fsync",    "close",                       // give it its name
                  "fstat",  "fstatat", "unlinkat", "close",  "close",             // release the lock
              }));
}

TEST_F(ConfigLinesTest, ARemovalWithAFaultAnywhereLeavesTheWholeOldFileOrTheWholeNewOne) {
  const FaultLoop loop{[] {
    host::reset();
    host::writeFile(kFile, "key=1\na=1\n");
  }};
  const auto remove = [] { return ConfigLines::removeKey(kFile, "key"); };
  forEachFault(loop, remove, [](const Status& result, const Fault& fault) {
    EXPECT_EQ(host::readFile(kFile), result.isSuccess() ? "a=1\n" : "key=1\na=1\n");
    if (!fault) {
      EXPECT_THAT(result, HasCode(status::success));
    }
    if (!fault.fromThereOn) {
      EXPECT_FALSE(host::exists(kTemporary));
    }
  });
  EXPECT_THAT(fault_loop::run(loop, {}, remove),
              ElementsAreArray({
                  "open",   "openat", "fstat",   "flock",    "fstat",  "fstatat",           // take the lock
                  "openat", "fstat",  "read",                                               // read the old file
                  "unlink", "open",   "write",   "fchown",   "fchmod", "fsync",   "close",  // write the new file
                  "rename", "open",   "fsync",   "close",                                   // replace the old one
                  "close",  "fstat",  "fstatat", "unlinkat", "close",  "close",  // close it, release the lock
              }));
}

TEST_F(ConfigLinesTest, AnEditCompletesDespiteShortReadsAndWrites) {
  host::writeFile(kFile, longLine(9000) + "\nkey=1\n");
  const ArmedFaults armed({0, false, EIO, {}, true});
  EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), longLine(9000) + "\nkey=2\n");
}

// --- The lock

TEST_F(ConfigLinesTest, ALockThatCannotBeTakenDoesNotStopAnEdit) {
  const std::function<void()> obstacles[] = {
      [] { host::remove("/tmp/lock"); },
      [] { host::makeLink("/tmp/lock/hip.conf.lock", "/tmp/missing"); },
      [] { host::makeDirs("/tmp/lock/hip.conf.lock"); },
  };
  for (const auto& obstacle : obstacles) {
    host::reset();
    host::writeFile(kFile, "key=1\n");
    obstacle();
    EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::success));
    EXPECT_EQ(host::readFile(kFile), "key=2\n");
  }
}

TEST_F(ConfigLinesTest, AnEditReleasesTheLock) {
  EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::success));
  EXPECT_EQ(host::tree("/tmp/lock"), "");
}

TEST_F(ConfigLinesTest, AnEditWaitsTenSecondsAtMostForAHolderAndThenChangesNothing) {
  host::writeFile(kFile, "key=1\n");
  const FileLock lock(kFile);
  ASSERT_TRUE(lock.isLocked());
  const auto start = std::chrono::steady_clock::now();
  std::thread removal([] { EXPECT_THAT(ConfigLines::removeKey(kFile, "key"), HasCode(status::openError)); });
  EXPECT_THAT(ConfigLines::setKeys(kFile, {{"key", "2"}}), HasCode(status::openError));
  removal.join();
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::seconds(10));
  EXPECT_LT(waited, std::chrono::seconds(13));
  EXPECT_EQ(host::readFile(kFile), "key=1\n");
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

TEST_F(LineEditorTest, ADiscardedEditLeavesTheFileUnchanged) {
  host::writeFile(kFile, "old\n");
  {
    LineEditor editor(kFile);
    editor.writeLine(longLine(100000));  // more than the editor gathers before it creates the file
    EXPECT_TRUE(host::exists(kTemporary));
    editor.discard();
    EXPECT_FALSE(host::exists(kTemporary));
    EXPECT_THAT(editor.commit(), HasCode(status::writeError));
  }
  EXPECT_EQ(host::readFile(kFile), "old\n");
}

TEST_F(LineEditorTest, AnEditWithoutCommitLeavesTheFileUnchanged) {
  host::writeFile(kFile, "old\n");
  {
    LineEditor editor(kFile);
    editor.writeLine(longLine(100000));
  }
  EXPECT_EQ(host::readFile(kFile), "old\n");
  EXPECT_FALSE(host::exists(kTemporary));
}

TEST_F(LineEditorTest, ASecondCommitIsAFailureAndChangesNothing) {
  LineEditor editor(kFile);
  editor.writeLine("one");
  EXPECT_THAT(editor.commit(), HasCode(status::success));
  editor.writeLine("two");
  EXPECT_THAT(editor.commit(), HasCode(status::writeError));
  EXPECT_EQ(host::readFile(kFile), "one\n");
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
  EXPECT_FALSE(host::exists(kTemporary));
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

TEST_F(LineEditorTest, ALongEditStopsAtAFailedWrite) {
  const std::string content = "one\n" + longLine(100000) + "\ntwo\n";
  const FaultLoop loop{[&] {
                         host::reset();
                         host::writeFile(kFile, content);
                       },
                       {"write"}};
  const std::size_t steps = forEachFault(
      loop,
      [] {
        LineEditor editor(kFile);
        for (LinePiece line; editor.readLine(line);) editor.keepLine(line);
        editor.writeLine("new");
        return editor.commit();
      },
      [&](const Status& result, const Fault& fault) {
        EXPECT_THAT(result, HasCode(fault ? status::writeError : status::success));
        EXPECT_EQ(host::readFile(kFile), fault ? content : content + "new\n");
        EXPECT_FALSE(host::exists(kTemporary));
      });
  EXPECT_EQ(steps, 2u);  // write, write
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
  EXPECT_THAT(editor.commit(), HasCode(status::success));
  EXPECT_EQ(host::tree("/tmp"), "f 0644 hip.conf \"\"\nd 1777 lock\n");
}

}  // namespace
