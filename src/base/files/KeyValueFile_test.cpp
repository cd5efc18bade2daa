#include "base/files/KeyValueFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files/FileInfo.h"
#include "base/files/ProgramDirectories.h"
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
    if (!IsSkipped())
      (void)FileUtils::lockDir();  // made here, because the first call in the process makes it and must not fall into a
                                   // fault loop
  }
};

KeyValueMap read(const std::string& content) {
  host::writeFile(kFile, content);
  KeyValueMap map;
  EXPECT_TRUE(FileUtils::readKeyValueFile(kFile, map, '='));
  return map;
}

// --- One line

TEST_F(KeyValueFileTest, ALineIsSplitIntoKeyValueAndComment) {
  struct Case {
    const char* why;
    std::string line;
    bool isPair;
    std::string key, value, comment;
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
      {"even if another hash follows", "key=#x #y", true, "key", "#x #y", ""},
      {"a hash behind a blank is a comment", "key= #x", true, "key", "", " #x"},
      {"an empty value", "k=", true, "k", "", ""},
      {"an empty key", "=v", true, "", "v", ""},
      {"the first separator counts", "a=b=c", true, "a", "b=c", ""},
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
    EXPECT_EQ(FileUtils::parseKeyValueLine(c.line, '=', key, value, comment), c.isPair);
    EXPECT_EQ(key, c.key);
    EXPECT_EQ(value, c.value);
    EXPECT_EQ(comment, c.comment);
  }
}

TEST_F(KeyValueFileTest, TheSeparatorIsAParameter) {
  std::string key, value, comment;
  EXPECT_TRUE(FileUtils::parseKeyValueLine("a : b=c", ':', key, value, comment));
  EXPECT_EQ(key, "a");
  EXPECT_EQ(value, "b=c");
}

// --- Reading

TEST_F(KeyValueFileTest, AllPairsAreReadAndTheLastPairOfAKeyWins) {
  EXPECT_THAT(read("# head\n\nb=2\na=1\ntext\nb=3"), ElementsAre(Pair("a", "1"), Pair("b", "3")));
}

TEST_F(KeyValueFileTest, ReadingAddsToTheMapAndClearsNothing) {
  host::writeFile(kFile, "a=1\n");
  KeyValueMap map{{"a", "old"}, {"z", "26"}};
  EXPECT_TRUE(FileUtils::readKeyValueFile(kFile, map, '='));
  EXPECT_THAT(map, ElementsAre(Pair("a", "1"), Pair("z", "26")));
}

TEST_F(KeyValueFileTest, AFailedReadDoesNotChangeTheMap) {
  host::makeFifo("/tmp/fifo");
  host::makeDirs("/tmp/directory");
  host::writeFile("/tmp/unreadable", "a=1\n", 0);
  host::writeFile("/tmp/overlong", "a=1\n" + std::string(10000000, 'x') + "\n");
  const host::BoundByModes bound;
  for (const char* path : {"", "/tmp/missing", "/tmp/fifo", "/tmp/directory", "/tmp/unreadable", "/tmp/overlong"}) {
    SCOPED_TRACE(path);
    KeyValueMap map{{"z", "26"}};
    EXPECT_FALSE(FileUtils::readKeyValueFile(path, map, '='));
    EXPECT_THAT(map, ElementsAre(Pair("z", "26")));
  }
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
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, c.before);
    EXPECT_TRUE(FileUtils::writeKeyValueFile(kFile, c.map, '='));
    EXPECT_EQ(host::readFile(kFile), c.after);
  }
}

TEST_F(KeyValueFileTest, AFileThatWouldNotChangeIsNotTouched) {
  for (const char* content : {"a = '1' # note\n\n", "a=1", ""}) {
    SCOPED_TRACE(content);
    host::writeFile(kFile, content);
    const KeyValueMap map = *content == '\0' ? KeyValueMap{} : KeyValueMap{{"a", "1"}};
    EXPECT_TRUE(FileUtils::writeKeyValueFile(kFile, map, '='));
    EXPECT_EQ(host::readFile(kFile), content);
  }
}

TEST_F(KeyValueFileTest, AMissingFileIsMadeWithMode0640WhateverTheUmask) {
  ::umask(0777);
  EXPECT_TRUE(FileUtils::writeKeyValueFile(kFile, {{"a", "1"}}, '='));
  EXPECT_EQ(host::readFile(kFile), "a=1\n");
  EXPECT_EQ(host::modeOf(kFile), 0640u);
}

TEST_F(KeyValueFileTest, AnEmptyMapMakesNoFile) {
  EXPECT_TRUE(FileUtils::writeKeyValueFile(kFile, {}, '='));
  EXPECT_FALSE(host::exists(kFile));
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

TEST_F(KeyValueFileTest, AFileThatCannotBeReadIsNotOverwritten) {
  host::writeFile("/tmp/unreadable", "a=1\n", 0200);
  host::writeFile("/tmp/overlong", "a=1\n" + std::string(10000000, 'x') + "\n");
  {
    const host::BoundByModes bound;
    for (const char* path : {"/tmp/unreadable", "/tmp/overlong"}) {
      EXPECT_FALSE(FileUtils::writeKeyValueFile(path, {{"b", "2"}}, '='));
      EXPECT_FALSE(FileUtils::setKeyValue(path, "b", "2"));
      EXPECT_FALSE(FileUtils::setKeyValues(path, {{"b", "2"}}, '='));
    }
  }
  EXPECT_EQ(host::readFile("/tmp/unreadable"), "a=1\n");
  EXPECT_EQ(host::readFile("/tmp/overlong").size(), 10000005u);
}

TEST_F(KeyValueFileTest, APathThatIsNoRegularFileIsNotWritten) {
  host::makeFifo("/tmp/fifo");
  host::makeDirs("/tmp/directory");
  for (const char* path : {"", "/tmp/fifo", "/tmp/directory", "/tmp/missing/file"}) {
    SCOPED_TRACE(path);
    EXPECT_FALSE(FileUtils::writeKeyValueFile(path, {{"a", "1"}}, '='));
    EXPECT_FALSE(FileUtils::setKeyValue(path, "a", "1"));
  }
}

TEST_F(KeyValueFileTest, AnUnchangedValueIsNotWritten) {
  host::writeFile(kFile, "a = '1'\n");
  const timespec times[2] = {{1000, 0}, {1000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, kFile, times, 0), 0);
  EXPECT_TRUE(FileUtils::setKeyValue(kFile, "a", "1"));
  EXPECT_EQ(FileUtils::fileModifiedMicros(kFile), 1000 * 1000000LL);
  EXPECT_EQ(host::readFile(kFile), "a = '1'\n");
}

TEST_F(KeyValueFileTest, AValueIsSetAndReadsBack) {
  host::writeFile(kFile, "k = 'v' # note\n");
  EXPECT_EQ(FileUtils::getKeyValue(kFile, "k"), "v");
  EXPECT_TRUE(FileUtils::setKeyValue(kFile, "k", "w"));
  EXPECT_EQ(host::readFile(kFile), "k=w # note\n");
  EXPECT_EQ(FileUtils::getKeyValue(kFile, "k"), "w");
}

TEST_F(KeyValueFileTest, ASecondChangeKeepsTheCommentOfTheFirst) {
  host::writeFile(kFile, "k=v   #   note\n");
  EXPECT_TRUE(FileUtils::setKeyValue(kFile, "k", "w"));
  EXPECT_TRUE(FileUtils::setKeyValue(kFile, "k", "x"));
  EXPECT_EQ(host::readFile(kFile), "k=x #   note\n");
}

TEST_F(KeyValueFileTest, SettingAKeyMakesAMissingFile) {
  EXPECT_TRUE(FileUtils::setKeyValue(kFile, "a", "1"));
  EXPECT_EQ(host::readFile(kFile), "a=1\n");
}

TEST_F(KeyValueFileTest, AnAbsentKeyWithAnEmptyValueIsWritten) {
  EXPECT_TRUE(FileUtils::setKeyValue(kFile, "a", ""));
  EXPECT_EQ(host::readFile(kFile), "a=\n");
}

TEST_F(KeyValueFileTest, UpdatesReplaceValuesAndNeedAReadableFile) {
  EXPECT_FALSE(FileUtils::setKeyValues(kFile, {{"a", "1"}}, '='));
  EXPECT_FALSE(host::exists(kFile));
  host::writeFile(kFile, "a=1\nb=2\n");
  EXPECT_TRUE(FileUtils::setKeyValues(kFile, {{"b", "3"}, {"c", "4"}}, '='));
  EXPECT_EQ(host::readFile(kFile), "a=1\nb=3\nc=4\n");
}

TEST_F(KeyValueFileTest, UpdatesAreWrittenWithAnEqualsSign) {
  host::writeFile(kFile, "a:1\n");
  EXPECT_TRUE(FileUtils::setKeyValues(kFile, {{"b", "2"}}, ':'));
  EXPECT_EQ(host::readFile(kFile), "a:1\na=1\nb=2\n");
}

TEST_F(KeyValueFileTest, TheLockIsReleased) {
  EXPECT_TRUE(FileUtils::setKeyValue(kFile, "a", "1"));
  EXPECT_EQ(host::tree("/tmp/lock"), "");
}

// --- Pairs that the format cannot carry

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

TEST_F(KeyValueFileTest, PairsFromTheFileAreWrittenBackAsRead) {
  const std::string odd = std::string("=nokey\nz=a\0b\n", 13);
  host::writeFile(kFile, odd + "y=1\n");
  EXPECT_TRUE(FileUtils::setKeyValue(kFile, "y", "2"));
  EXPECT_EQ(host::readFile(kFile), odd + "y=2\n");
}

// --- Faults

TEST_F(KeyValueFileTest, AFaultAnywhereLeavesTheOldTextOrTheNew) {
  const FaultLoop loop{[] {
    host::reset();
    host::writeFile(kFile, "a=1 # note\n");
  }};
  const std::size_t steps = forEachFault(
      loop, [] { return FileUtils::setKeyValue(kFile, "a", "22"); },
      [](bool worked, const Fault& fault) {
        if (!fault) {
          EXPECT_TRUE(worked);
        }
        if (worked) {
          EXPECT_EQ(host::readFile(kFile), "a=22 # note\n");
        }
        EXPECT_THAT(host::readFile(kFile), AnyOf("a=1 # note\n", "a=22 # note\n"));
        const bool isLastUnlink = fault.step == 35;
        if (worked && !fault.fromThereOn) {
          EXPECT_EQ(host::exists("/tmp/lock/settings.conf.lock"), isLastUnlink);
        }
      });
  EXPECT_EQ(steps, 37u);
}

TEST_F(KeyValueFileTest, AFaultAnywhereLeavesNoNewFile) {
  const FaultLoop loop{[] { host::reset(); }};
  forEachFault(
      loop, [] { return FileUtils::setKeyValue(kFile, "a", "1"); },
      [](bool worked, const Fault& fault) {
        if (!fault) {
          EXPECT_TRUE(worked);
        }
        if (worked) {
          EXPECT_EQ(host::readFile(kFile), "a=1\n");
        }
        if (!worked && !fault.fromThereOn) {
          EXPECT_FALSE(host::exists(kFile));
        }
      });
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

}  // namespace
