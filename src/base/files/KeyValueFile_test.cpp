#include "base/files/KeyValueFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "base/files/FileInfo.h"
#include "base/files/FileLock.h"
#include "base/files/ProgramDirectories.h"
#include "base/system/UniqueFd.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using FileUtils::KeyValueMap;
using testing::AnyOf;
using testing::ElementsAre;
using testing::Pair;

constexpr const char* kFile = "/tmp/settings.conf";

class KeyValueFileTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    // The first call in a process makes the directory. It must not happen inside a fault loop.
    if (!IsSkipped()) (void)FileUtils::lockDir();
  }
};

// --- One line

TEST_F(KeyValueFileTest, ALineIsSplitIntoKeyValueAndComment) {
  struct Case {
    const char* why;
    std::string line;
    bool isPair;
    std::string key, value, comment;
    char separator = '=';
  };
  const Case cases[] = {
      {"a pair", "k=v", true, "k", "v", ""},
      {"blanks everywhere", " \t k \t = \t v \r\n", true, "k", "v", ""},
      {"blanks inside stay", "my key=my value", true, "my key", "my value", ""},
      {"an empty line", "", false, "", "", ""},
      {"blanks alone", " \t\r\n", false, "", "", ""},
      {"no separator", "text", false, "", "", ""},
      {"a comment line", "# k=v", false, "", "", ""},
      {"a hash before the separator", "k # =v", false, "", "", ""},
      {"a comment", "k=v # note", true, "k", "v", " # note"},
      {"a comment without a blank", "k=v#note", true, "k", "v", " #note"},
      {"the comment ends with the trimmed line", "k=v #  note  \n", true, "k", "v", " #  note"},
      {"a hash directly behind the separator is the value", "key=#x", true, "key", "#x", ""},
      {"also if another hash follows the value", "key=#x #y", true, "key", "#x #y", ""},
      {"a hash behind a blank is a comment", "key= #x", true, "key", "", " #x"},
      {"an empty value", "k=", true, "k", "", ""},
      {"an empty key", "=v", true, "", "v", ""},
      {"the first separator counts", "a=b=c", true, "a", "b=c", ""},
      {"another separator", "a : b=c", true, "a", "b=c", "", ':'},
      {"a hash as the separator", "a#b#c", true, "a", "b#c", "", '#'},
      {"double quotes", "k=\" v \"", true, "k", " v ", ""},
      {"single quotes and a comment", "k = 'v' # note", true, "k", "v", " # note"},
      {"empty quotes", "k=''", true, "k", "", ""},
      {"only the outer quotes", "k=''v''", true, "k", "'v'", ""},
      {"a single quote alone", "k='", true, "k", "'", ""},
      {"quotes that differ", "k='v\"", true, "k", "'v\"", ""},
      {"one quote", "k='v", true, "k", "'v", ""},
      {"equal characters at both ends that are no quotes", "k=`v`", true, "k", "`v`", ""},
      {"quotes do not keep a hash", "k='a # b'", true, "k", "'a", " # b'"},
      {"bytes of 128 and above are no blanks", "\xc3\xa4=\xff", true, "\xc3\xa4", "\xff", ""},
      {"a zero byte at the end is a blank", std::string("k=v\0", 4), true, "k", "v", ""},
      {"a zero byte inside stays", std::string("k=a\0b", 5), true, "k", std::string("a\0b", 3), ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    std::string key = "old";
    std::string value = "old";
    std::string comment = "old";
    EXPECT_EQ(FileUtils::parseKeyValueLine(c.line, c.separator, key, value, comment), c.isPair);
    EXPECT_EQ(key, c.key);
    EXPECT_EQ(value, c.value);
    EXPECT_EQ(comment, c.comment);
  }
}

// --- Reading and failures

TEST_F(KeyValueFileTest, ReadPairsReplaceThoseOfTheMapAndTheLastPairOfAKeyWins) {
  host::writeFile(kFile, "# head\n\nb=2\na=1\ntext\nb=3");
  KeyValueMap map{{"a", "old"}, {"z", "26"}};
  EXPECT_TRUE(FileUtils::readKeyValueFile(kFile, map, '='));
  EXPECT_THAT(map, ElementsAre(Pair("a", "1"), Pair("b", "3"), Pair("z", "26")));
}

TEST_F(KeyValueFileTest, AFileThatCannotBeReadChangesNeitherTheMapNorTheFile) {
  host::makeSocket("/tmp/socket");
  host::makeDirs("/tmp/directory");
  host::writeFile("/tmp/unreadable", "a=1\n", 0200);
  host::writeFile("/tmp/overlong", "a=1\n" + std::string(10000000, 'x') + "\n");
  KeyValueMap map{{"z", "26"}};
  {
    const host::BoundByModes bound;
    for (const char* path : {"", "/tmp/missing/file", "/tmp/socket", "/tmp/directory", "/tmp/unreadable",
                             "/tmp/overlong", "/tmp/overlong/below", "/dev/full"}) {
      SCOPED_TRACE(path);
      // Without data a FIFO is an empty file.
      EXPECT_EQ(FileUtils::readKeyValueFile(path, map, '='), path == std::string("/tmp/fifo"));
      EXPECT_THAT(map, ElementsAre(Pair("z", "26")));
      EXPECT_FALSE(FileUtils::writeKeyValueFile(path, {{"b", "2"}}, '='));
      EXPECT_FALSE(FileUtils::setKeyValue(path, "b", "2"));
      EXPECT_FALSE(FileUtils::setKeyValues(path, {{"b", "2"}}, '='));
    }
  }
  EXPECT_FALSE(FileUtils::readKeyValueFile("/tmp/missing", map, '='));
  EXPECT_THAT(map, ElementsAre(Pair("z", "26")));
  EXPECT_EQ(host::readFile("/tmp/unreadable"), "a=1\n");
  EXPECT_EQ(host::readFile("/tmp/overlong").size(), 10000005u);
}

TEST_F(KeyValueFileTest, AFifoAndTheNullDeviceAreReadAsEmptyAndWrittenAsTheSystemWritesThem) {
  host::makeFifo("/tmp/fifo");
  host::makeFifo("/tmp/read-fifo");
  const UniqueFd reader(::open("/tmp/read-fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct Case {
    const char* why;
    const char* path;
    bool isWritten;
  };
  const Case cases[] = {{"a FIFO without a reader is not waited for", "/tmp/fifo", false},
                        {"a FIFO with a reader", "/tmp/read-fifo", true},
                        {"the null device", "/dev/null", true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    KeyValueMap map;
    EXPECT_TRUE(FileUtils::readKeyValueFile(c.path, map, '='));
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(FileUtils::setKeyValue(c.path, "b", "2"), c.isWritten);
  }
  char bytes[16] = {};
  EXPECT_EQ(::read(reader.get(), bytes, sizeof bytes), 4);
  EXPECT_STREQ(bytes, "b=2\n");
}

TEST_F(KeyValueFileTest, LinksOfAnybodyAreFollowedAlsoToAMissingTarget) {
  SKIP_WITHOUT_OTHER_USERS();
  host::makeLink("/tmp/theirs/link", kFile);
  host::giveTo(65534, "/tmp/theirs/link");
  EXPECT_TRUE(FileUtils::setKeyValue("/tmp/theirs/link", "a", "1"));
  EXPECT_EQ(host::tree("/tmp/theirs"), std::string("l link -> ") + kFile + "\n");
  EXPECT_EQ(host::readFile(kFile), "a=1\n");
  EXPECT_EQ(FileUtils::getKeyValue("/tmp/theirs/link", "a"), "1");
}

TEST_F(KeyValueFileTest, WithoutALockNothingIsReadOrWritten) {
  host::writeFile(kFile, "a=1\n");
  host::remove("/tmp/lock");
  KeyValueMap map;
  EXPECT_FALSE(FileUtils::readKeyValueFile(kFile, map, '='));
  EXPECT_FALSE(FileUtils::writeKeyValueFile(kFile, {{"a", "2"}}, '='));
  EXPECT_FALSE(FileUtils::setKeyValue(kFile, "a", "2"));
  EXPECT_FALSE(FileUtils::setKeyValues(kFile, {{"a", "2"}}, '='));
  EXPECT_EQ(FileUtils::getKeyValue(kFile, "a"), "");
  EXPECT_EQ(host::readFile(kFile), "a=1\n");
}

TEST_F(KeyValueFileTest, AValueIsReadByItsKey) {
  host::writeFile(kFile, "k = 'v' # note\nempty=\n");
  EXPECT_EQ(FileUtils::getKeyValue(kFile, "k"), "v");
  EXPECT_EQ(FileUtils::getKeyValue(kFile, "empty"), "");
  EXPECT_EQ(FileUtils::getKeyValue(kFile, "absent"), "");
  EXPECT_EQ(FileUtils::getKeyValue("/tmp/missing", "k"), "");
}

TEST_F(KeyValueFileTest, ANumberIsReadByItsKeyAndDefaultsToTheFallback) {
  host::writeFile(kFile, "n= -12\nmax=2147483647\nover=2147483648\ntext=12a\nempty=\nquoted=\" 7 \"\n");
  EXPECT_EQ(FileUtils::getKeyValueInt(kFile, "n", 5), -12);
  EXPECT_EQ(FileUtils::getKeyValueInt(kFile, "max", 5), 2147483647);
  EXPECT_EQ(FileUtils::getKeyValueInt(kFile, "quoted", 5), 7);
  for (const char* key : {"over", "text", "empty", "absent"}) {
    EXPECT_EQ(FileUtils::getKeyValueInt(kFile, key, 5), 5);
  }
  EXPECT_EQ(FileUtils::getKeyValueInt("/tmp/missing", "n", 5), 5);
}

// --- Writing

TEST_F(KeyValueFileTest, ThePairsOfTheFileBecomeThoseOfTheMap) {
  struct Case {
    const char* why;
    std::string before;
    KeyValueMap map;
    std::string after;
  };
  const Case cases[] = {
      {"a changed value keeps its line and comment",
       "# head\nk = 'v' # note\nend\n",
       {{"k", "w"}},
       "# head\nk=w # note\nend\n"},
      {"a pair that is not in the map is removed", "a=1\nb=2\n", {{"b", "2"}}, "b=2\n"},
      {"missing pairs are appended in key order", "b=2\n", {{"c", "3"}, {"b", "2"}, {"a", "1"}}, "b=2\na=1\nc=3\n"},
      {"lines without a pair stay", "text\n\n# note\na=1\n", {{"a", "2"}}, "text\n\n# note\na=2\n"},
      {"an empty last line is removed", "a=1\n\n", {{"a", "2"}}, "a=2\n"},
      {"only the last of several empty lines is removed", "a=1\n\n\n", {{"a", "2"}}, "a=2\n\n"},
      {"unchanged pairs get normal form", "a = \"1\" #x\nb=2\n", {{"a", "1"}, {"b", "3"}}, "a=1 #x\nb=3\n"},
      {"every line of a key gets the value", "a=1\na=2\n", {{"a", "2"}}, "a=2\na=2\n"},
      {"a last line gets its newline", "a=1", {{"a", "1"}, {"b", "2"}}, "a=1\nb=2\n"},
      {"a rewrite removes CR", "text\r\na=1\r\n", {{"a", "2"}}, "text\na=2\n"},
      {"an empty map", "text\na=1\n", {}, "text\n"},
      {"blanks at the ends of a value lose their quotes", "a=' 1 '\nb=2\n", {{"a", " 1 "}, {"b", "3"}}, "a= 1 \nb=3\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, c.before);
    EXPECT_TRUE(FileUtils::writeKeyValueFile(kFile, c.map, '='));
    EXPECT_EQ(host::readFile(kFile), c.after);
  }
}

TEST_F(KeyValueFileTest, AFileThatWouldNotChangeIsNotWritten) {
  const auto writeMap = [] { return FileUtils::writeKeyValueFile(kFile, {{"a", "1"}}, '='); };
  struct Case {
    const char* why;
    std::string content;
    std::function<bool()> operation;
  };
  const Case cases[] = {
      {"quotes, a comment and an empty last line stay", "a = '1' # note\n\n", writeMap},
      {"a newline that is missing is not added", "a=1", writeMap},
      {"an empty file stays empty", "", [] { return FileUtils::writeKeyValueFile(kFile, {}, '='); }},
      {"a key that is set to its present value", "a = '1'\n", [] { return FileUtils::setKeyValue(kFile, "a", "1"); }},
  };
  const timespec times[2] = {{1000, 0}, {1000, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, c.content);
    ASSERT_EQ(::utimensat(AT_FDCWD, kFile, times, 0), 0);
    EXPECT_TRUE(c.operation());
    EXPECT_EQ(FileUtils::fileModifiedMicros(kFile), 1000 * 1000000LL);
    EXPECT_EQ(host::readFile(kFile), c.content);
  }
}

TEST_F(KeyValueFileTest, AMissingFileIsMadeWithMode0640UnlessTheMapIsEmpty) {
  ::umask(0777);
  EXPECT_TRUE(FileUtils::writeKeyValueFile(kFile, {}, '='));
  EXPECT_FALSE(host::exists(kFile));
  EXPECT_TRUE(FileUtils::writeKeyValueFile(kFile, {{"a", "1"}}, '='));
  EXPECT_EQ(host::readFile(kFile), "a=1\n");
  EXPECT_EQ(host::modeOf(kFile), 0640u);
}

TEST_F(KeyValueFileTest, AFileIsChangedInPlaceAndKeepsItsMode) {
  host::writeFile(kFile, "a=1\n", 0604);
  host::makeLink("/tmp/link", kFile);
  struct stat before = {};
  struct stat after = {};
  ASSERT_EQ(::stat(kFile, &before), 0);
  EXPECT_TRUE(FileUtils::setKeyValue("/tmp/link", "a", "2"));
  ASSERT_EQ(::stat(kFile, &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(host::modeOf(kFile), 0604u);
  EXPECT_EQ(host::readFile(kFile), "a=2\n");
}

TEST_F(KeyValueFileTest, APlainValueThatIsSetReadsBackAndTheLockIsReleased) {
  const std::string odd("=nokey\nz=a\0b\n", 13);
  struct Case {
    const char* why;
    std::string before;
    std::string value;
    std::string after;
  };
  const Case cases[] = {
      {"a comment stays", "k = 'v' # note\n", "w", "k=w # note\n"},
      {"one blank comes before a comment", "k=v   #   note\n", "w", "k=w #   note\n"},
      {"a second change keeps the comment of the first", "k=w #   note\n", "x", "k=x #   note\n"},
      {"pairs that could not be set are written back as read", odd + "k=1\n", "2", odd + "k=2\n"},
      {"a missing file is made", "", "1", "k=1\n"},
      {"an absent key with an empty value is written", "", "", "k=\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(kFile);
    if (!c.before.empty()) host::writeFile(kFile, c.before);
    EXPECT_TRUE(FileUtils::setKeyValue(kFile, "k", c.value));
    EXPECT_EQ(host::readFile(kFile), c.after);
    EXPECT_EQ(FileUtils::getKeyValue(kFile, "k"), c.value);
    EXPECT_EQ(host::tree("/tmp/lock"), "");
  }
}

TEST_F(KeyValueFileTest, UpdatesNeedAReadableFileAndAreWrittenWithAnEqualsSign) {
  EXPECT_FALSE(FileUtils::setKeyValues(kFile, {{"a", "1"}}, '='));
  EXPECT_FALSE(host::exists(kFile));
  host::writeFile(kFile, "a=1\nb=2\n");
  EXPECT_TRUE(FileUtils::setKeyValues(kFile, {{"b", "3"}, {"c", "4"}}, '='));
  EXPECT_EQ(host::readFile(kFile), "a=1\nb=3\nc=4\n");
  host::writeFile(kFile, "a:1\n");
  EXPECT_TRUE(FileUtils::setKeyValues(kFile, {{"b", "2"}}, ':'));
  EXPECT_EQ(host::readFile(kFile), "a:1\na=1\nb=2\n");
}

// --- Pairs that the format cannot hold

TEST_F(KeyValueFileTest, NewAndChangedPairsThatTheFormatCannotHoldAreRefused) {
  struct Case {
    const char* why;
    std::string key, value;
  };
  const Case cases[] = {
      {"a newline in the value", "a", "1\nb=2"},
      {"a carriage return in the value", "a", "1\r2"},
      {"a zero byte in the value", "a", std::string("1\0", 2)},
      {"an empty key", "", "1"},
      {"the separator in the key", "a=b", "1"},
      {"a hash in the key", "a#b", "1"},
      {"a blank before the key", " a", "1"},
      {"a tab behind the key", "a\t", "1"},
      {"a newline in the key", "a\nb", "1"},
      {"a zero byte in the key", std::string("a\0b", 3), "1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, "a=old\nz=26\n");
    EXPECT_FALSE(FileUtils::setKeyValue(kFile, c.key, c.value));
    EXPECT_FALSE(FileUtils::setKeyValues(kFile, {{c.key, c.value}, {"y", "25"}}, '='));
    EXPECT_FALSE(FileUtils::writeKeyValueFile(kFile, {{c.key, c.value}}, '='));
    EXPECT_EQ(host::readFile(kFile), "a=old\nz=26\n");
    host::remove(kFile);
    EXPECT_FALSE(FileUtils::setKeyValue(kFile, c.key, c.value));
    EXPECT_FALSE(host::exists(kFile));
  }
}

// --- Faults

struct FaultCase {
  const char* why;
  std::string before;
  std::string after;
  std::vector<std::string> calls;
};
const FaultCase kFaultCases[] = {
    {"an old file",
     "a=1 # note\n",
     "a=22 # note\n",
     {
         "open",   "openat",  "fstat",    "flock",     "fstat", "fstatat",           // take the lock
         "openat", "fstat",   "read",     "close",                                   // read the value
         "fstat",  "fstatat", "unlinkat", "close",     "close",                      // release the lock
         "open",   "openat",  "fstat",    "flock",     "fstat", "fstatat",           // take it again
         "openat", "fstat",   "read",     "close",                                   // read the text
         "open",   "flock",   "fstat",    "fallocate", "write", "fstat",   "close",  // write the new text
         "fstat",  "fstatat", "unlinkat", "close",     "close",                      // release the lock
     }},
    {"a new file",
     "",
     "a=22\n",
     {
         "open",   "openat",  "fstat",    "flock", "fstat", "fstatat",             // take the lock
         "openat",                                                                 // there is no file
         "fstat",  "fstatat", "unlinkat", "close", "close",                        // release the lock
         "stat",   "open",    "openat",   "fstat", "flock", "fstat",   "fstatat",  // take it again
         "openat", "stat",                                                         // there is still no file
         "open",   "open",    "flock",    "fstat", "write", "fchmod",  "close",    // make it
         "fstat",  "fstatat", "unlinkat", "close", "close",                        // release the lock
     }},
};

TEST_F(KeyValueFileTest, AFaultAnywhereLeavesTheOldTextOrTheNewAndNoNewFile) {
  const auto set = [] { return FileUtils::setKeyValue(kFile, "a", "22"); };
  for (const FaultCase& c : kFaultCases) {
    SCOPED_TRACE(c.why);
    const FaultLoop loop{[&c] {
      host::reset();
      if (!c.before.empty()) host::writeFile(kFile, c.before);
    }};
    loop.prepare();
    {
      const ArmedFaults counted{FaultPlan{}};
      EXPECT_TRUE(set());
      EXPECT_EQ(counted.calls(), c.calls);
    }
    forEachFault(loop, set, [&c](bool worked, const Fault& fault) {
      EXPECT_TRUE(worked || fault);
      const std::string text = host::exists(kFile) ? host::readFile(kFile) : "";
      EXPECT_THAT(text, AnyOf(c.after, worked ? c.after : c.before));
      if (fault.fromThereOn) return;
      if (worked) {
        const bool isLastUnlink = fault.step + 2 == c.calls.size();
        EXPECT_EQ(host::exists("/tmp/lock/settings.conf.lock"), isLastUnlink);
      } else {
        EXPECT_EQ(host::exists(kFile), !c.before.empty());
      }
    });
  }
}

TEST_F(KeyValueFileTest, AFullDiskLeavesTheOldFileWhole) {
  host::makeDirs("/tmp/disk");
  const host::SmallDisk disk("/tmp/disk", 4 * 4096);
  host::writeFile("/tmp/disk/file", "a=1\n");
  EXPECT_FALSE(FileUtils::setKeyValue("/tmp/disk/file", "a", std::string(100000, 'x')));
  EXPECT_EQ(host::readFile("/tmp/disk/file"), "a=1\n");
  EXPECT_FALSE(FileUtils::setKeyValue("/tmp/disk/new", "a", std::string(100000, 'x')));
  EXPECT_FALSE(host::exists("/tmp/disk/new"));
}

TEST_F(KeyValueFileTest, AReadAndAWriteWaitForTheLock) {
  struct Case {
    const char* why;
    bool (*operation)();
    const char* left;
  };
  const Case cases[] = {
      {"a read", [] { return FileUtils::getKeyValue(kFile, "a") == "1"; }, "a=1\n"},
      {"a write alone",
       [] {
         return FileUtils::writeKeyValueFile(kFile, {{"a", "2"}}, '=');
       },
       "a=2\n"},
      {"a read and a write", [] { return FileUtils::setKeyValue(kFile, "a", "3"); }, "a=3\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, "a=1\n");
    FileLock lock(kFile);
    ASSERT_TRUE(lock.isLocked());
    std::atomic<bool> isReleased{false};
    std::thread holder([&] {
      ::usleep(100'000);
      isReleased = true;
      lock.release();
    });
    EXPECT_TRUE(c.operation());
    EXPECT_TRUE(isReleased);
    holder.join();
    EXPECT_EQ(host::readFile(kFile), c.left);
  }
}

}  // namespace
