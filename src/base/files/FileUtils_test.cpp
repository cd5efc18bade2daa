#include "base/files/FileUtils.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "base/text/TimeUtils.h"
#include "log/front/BasicLog.h"
#include "testing/FaultInjector.h"
#include "testing/HostTest.h"
#include "testing/LogLines.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::SizeIs;
using Texts = std::vector<std::string>;

constexpr const char* kFile = "/tmp/file";
constexpr std::int64_t kSecond = 1000000;

class FileUtilsTest : public HostTest {};

ino_t inodeOf(const std::string& path) {
  struct stat info = {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0);
  return info.st_ino;
}

void setModified(const std::string& path, std::int64_t seconds) {
  const timespec times[2] = {{seconds, 0}, {seconds, 999999999}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

// A limit on the size of files, for a scope.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : oldAction_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &old_);
    const rlimit limit = {bytes, old_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &old_);
    std::signal(SIGXFSZ, oldAction_);
  }

 private:
  rlimit old_ = {};
  void (*oldAction_)(int);
};

TEST_F(FileUtilsTest, AnEmptyPathIsAnInvalidArgumentEverywhere) {
  std::string text = "old";
  Texts lines{"old"};
  FileUtils::StringList list{"old"};
  EXPECT_THAT(FileUtils::readFile("", text), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::writeFile("", "x", 1), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::writeString("", "x", true), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::writeLines("", Texts{"x"}), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::writeLines("", FileUtils::StringList{"x"}), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::readLines("", lines), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::readLines("", list), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::readFirstLine("", text), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::readFirstLineAt(AT_FDCWD, "", text), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::readFirstLineAt(AT_FDCWD, nullptr, text), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::makeDir("", 0755), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::setMode("", 0755), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::removeFile(""), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::removeDir(""), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::removePath(""), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::removeTree(""), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::renameFile("", kFile, true), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::renameFile(kFile, "", true), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::copyFile("", kFile), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::copyFile("/etc/passwd", ""), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::listDirectory("").status, HasCode(status::invalidArgument));
  EXPECT_EQ(FileUtils::makeNewDir("", 0755), FileUtils::NewDir::failed);
  EXPECT_EQ(FileUtils::makeUniqueFile("", text), nullptr);
  EXPECT_FALSE(FileUtils::openDirectory("").isOpen());
  EXPECT_EQ(text, "");
  EXPECT_THAT(lines, SizeIs(0));
  EXPECT_THAT(list, SizeIs(0));
}

TEST_F(FileUtilsTest, AnEmptyPathMakesNoSystemCall) {
  const ArmedFaults counted{FaultPlan{}};
  std::string text;
  Texts lines;
  (void)FileUtils::readFile("", text);
  (void)FileUtils::writeString("", "x", true);
  (void)FileUtils::readLines("", lines);
  (void)FileUtils::readFirstLine("", text);
  (void)FileUtils::makeDir("", 0755);
  (void)FileUtils::setMode("", 0755);
  (void)FileUtils::removePath("");
  (void)FileUtils::removeTree("");
  (void)FileUtils::renameFile("", "", true);
  (void)FileUtils::copyFile("", "");
  (void)FileUtils::listDirectory("");
  (void)FileUtils::fileExists("");
  EXPECT_EQ(counted.count(), 0u);
}

TEST_F(FileUtilsTest, APathWithAZeroByteIsNeverCutShort) {
  const std::string path("/tmp/file\0behind", 16);
  std::string text;
  EXPECT_THAT(FileUtils::writeString(path, "x", true), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::readFirstLine(path, text), HasCode(status::invalidArgument));
  EXPECT_FALSE(FileUtils::fileExists(path));
  EXPECT_FALSE(host::exists(kFile));
}

// --- Reading whole files

TEST_F(FileUtilsTest, AFileIsReadWhole) {
  const std::string content("one\0two\n", 8);
  host::writeFile(kFile, content);
  std::string bytes = "old";
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::success));
  EXPECT_EQ(bytes, content);
}

TEST_F(FileUtilsTest, ALargeFileIsReadWholeOverShortReads) {
  const std::string content(100000, 'x');
  host::writeFile(kFile, content);
  FaultPlan plan;
  plan.oneByteAtATime = true;
  const ArmedFaults armed{plan};
  std::string bytes;
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::success));
  EXPECT_EQ(bytes, content);
}

TEST_F(FileUtilsTest, AFileThatGrowsBetweenTwoReadsIsReadToItsFirstSize) {
  const std::string content(5000, 'x');
  host::writeFile(kFile, content);
  FaultPlan plan;
  plan.calls = {"read"};
  plan.before = [](std::size_t call) {  // the first read ends early, the second could take more than there is room for
    ASSERT_EQ(::truncate(kFile, call == 1 ? 3 : 20000), 0);
  };
  const ArmedFaults armed{plan};
  std::string bytes;
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::success));
  EXPECT_TRUE(bytes == std::string(3, 'x') + std::string(4997, '\0')) << bytes.size();
  EXPECT_EQ(armed.count(), 2u);
}

TEST_F(FileUtilsTest, AnEmptyFileIsReadWithoutOpeningIt) {
  host::writeFile(kFile, "");
  std::string bytes = "old";
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::success));
  EXPECT_EQ(bytes, "");
  EXPECT_THAT(counted.calls(), ElementsAre("stat"));
}

TEST_F(FileUtilsTest, AMissingFileCannotBeLookedAt) {
  std::string bytes = "old";
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::statError));
  EXPECT_EQ(bytes, "");
}

TEST_F(FileUtilsTest, AnUnreadableFileCannotBeOpened) {
  host::writeFile(kFile, "text\n", 0);
  const host::BoundByModes bound;
  std::string bytes = "old";
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::openError));
  EXPECT_EQ(bytes, "");
}

TEST_F(FileUtilsTest, OnlyRegularFilesAndTheNullDeviceAreReadWhole) {
  host::makeDirs("/tmp/directory");
  host::makeFifo("/tmp/fifo");
  std::string bytes = "old";
  EXPECT_THAT(FileUtils::readFile("/tmp/directory", bytes), HasCode(status::openError));
  EXPECT_THAT(FileUtils::readFile("/tmp/fifo", bytes), HasCode(status::openError));
  EXPECT_THAT(FileUtils::readFile("/dev/zero", bytes), HasCode(status::openError));
  EXPECT_THAT(FileUtils::readFile("/dev/null", bytes), HasCode(status::success));
  EXPECT_EQ(bytes, "");
}

TEST_F(FileUtilsTest, AFailedReadClearsTheBytes) {
  host::writeFile(kFile, "text\n");
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"read"};
  const ArmedFaults armed{plan};
  std::string bytes = "old";
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::readError));
  EXPECT_EQ(bytes, "");
}

// --- Writing whole files

TEST_F(FileUtilsTest, AWholeFileGetsExactlyTheBytes) {
  const std::string content("a\0b", 3);
  EXPECT_THAT(FileUtils::writeFile(kFile, content.data(), content.size()), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), content);
}

TEST_F(FileUtilsTest, NoBytesMakeAnEmptyFile) {
  host::writeFile(kFile, "old\n");
  EXPECT_THAT(FileUtils::writeFile(kFile, nullptr, 0), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "");
  EXPECT_THAT(FileUtils::writeFile("/tmp/new", nullptr, 0), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/new"), "");
}

TEST_F(FileUtilsTest, ATextIsWrittenWithOrWithoutANewline) {
  EXPECT_THAT(FileUtils::writeString(kFile, "lab", true), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "lab\n");
  EXPECT_THAT(FileUtils::writeString(kFile, "lab", false), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "lab");
}

TEST_F(FileUtilsTest, AShorterTextLeavesNothingOfALongerOne) {
  host::writeFile(kFile, "a much longer text\n");
  EXPECT_THAT(FileUtils::writeString(kFile, "lab", true), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "lab\n");
}

TEST_F(FileUtilsTest, LinesAreWrittenAlikeFromBothLists) {
  EXPECT_THAT(FileUtils::writeLines(kFile, Texts{"one", "", "three"}), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "one\n\nthree\n");
  EXPECT_THAT(FileUtils::writeLines(kFile, FileUtils::StringList{"1", "2"}), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "1\n2\n");
  EXPECT_THAT(FileUtils::writeLines(kFile, Texts{}), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "");
}

TEST_F(FileUtilsTest, WholeFileWritesHaveMode0640WhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{0777}}) {
    ::umask(mask);
    host::remove(kFile);
    EXPECT_THAT(FileUtils::writeString(kFile, "x", true), HasCode(status::success));
    EXPECT_EQ(host::modeOf(kFile), 0640u);
    host::setMode(kFile, 0600);
    EXPECT_THAT(FileUtils::writeLines(kFile, Texts{"x"}), HasCode(status::success));
    EXPECT_EQ(host::modeOf(kFile), 0640u);
  }
}

TEST_F(FileUtilsTest, AModeThatCannotBeSetIsNoFailure) {
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"fchmod"};
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::writeString(kFile, "x", true), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "x\n");
}

TEST_F(FileUtilsTest, AFileIsRewrittenInPlace) {
  host::writeFile(kFile, "old\n");
  host::makeLink("/tmp/link", kFile);
  const ino_t before = inodeOf(kFile);
  EXPECT_THAT(FileUtils::writeString("/tmp/link", "new", true), HasCode(status::success));
  EXPECT_EQ(inodeOf(kFile), before);
  EXPECT_EQ(host::readFile(kFile), "new\n");
  struct stat info = {};
  ASSERT_EQ(::lstat("/tmp/link", &info), 0);
  EXPECT_TRUE(S_ISLNK(info.st_mode));
}

TEST_F(FileUtilsTest, AFileIsRewrittenOnlyAfterItsNewBytesAreInIt) {
  host::writeFile(kFile, "old text\n");
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(FileUtils::writeString(kFile, "new", true), HasCode(status::success));
  EXPECT_THAT(counted.calls(), ElementsAre("open", "flock", "fstat", "write", "fchmod", "ftruncate", "close"));
}

TEST_F(FileUtilsTest, TheEndOfALinkThatLeadsNowhereIsMade) {
  host::makeLink("/tmp/link", "/tmp/target");
  EXPECT_THAT(FileUtils::writeString("/tmp/link", "new", true), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/target"), "new\n");
}

TEST_F(FileUtilsTest, TheEndOfALinkIsRemovedAgainWhenWritingItFails) {
  host::makeLink("/tmp/link", "/tmp/target");
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"write"};
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::writeString("/tmp/link", "new", true), HasCode(status::writeError));
  EXPECT_FALSE(host::exists("/tmp/target"));
  EXPECT_TRUE(host::exists("/tmp/link"));
}

TEST_F(FileUtilsTest, OnlyRegularFilesAreWritten) {
  host::makeDirs("/tmp/directory");
  host::makeFifo("/tmp/fifo");
  EXPECT_THAT(FileUtils::writeString("/tmp/directory", "x", true), HasCode(status::openError));
  EXPECT_THAT(FileUtils::writeString("/tmp/fifo", "x", true), HasCode(status::openError));
  EXPECT_THAT(FileUtils::writeString("/dev/full", "x", true), HasCode(status::openError));
  EXPECT_THAT(FileUtils::writeString("/tmp/missing/file", "x", true), HasCode(status::openError));
}

TEST_F(FileUtilsTest, AFifoWithAReaderIsNotWrittenEither) {
  host::makeFifo("/tmp/fifo");
  const UniqueFd reader(::open("/tmp/fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_THAT(FileUtils::writeString("/tmp/fifo", "x", true), HasCode(status::openError));
  char byte = 0;
  EXPECT_EQ(::read(reader.get(), &byte, 1), 0);
}

TEST_F(FileUtilsTest, TheNullDeviceTakesBytesAndKeepsItsMode) {
  const mode_t before = host::modeOf("/dev/null");
  EXPECT_THAT(FileUtils::writeString("/dev/null", "x", true), HasCode(status::success));
  EXPECT_EQ(host::modeOf("/dev/null"), before);
}

TEST_F(FileUtilsTest, AFullDiskLeavesTheOldFileWhole) {
  host::makeDirs("/tmp/disk");
  const host::SmallDisk disk("/tmp/disk", 4 * 4096);
  host::writeFile("/tmp/disk/file", "old\n");
  EXPECT_THAT(FileUtils::writeString("/tmp/disk/file", std::string(100000, 'x'), true), HasCode(status::writeError));
  EXPECT_EQ(host::readFile("/tmp/disk/file"), "old\n");
}

TEST_F(FileUtilsTest, AFullDiskLeavesNoNewFile) {
  host::makeDirs("/tmp/disk");
  const host::SmallDisk disk("/tmp/disk", 4 * 4096);
  EXPECT_THAT(FileUtils::writeString("/tmp/disk/file", std::string(100000, 'x'), true), HasCode(status::writeError));
  EXPECT_FALSE(host::exists("/tmp/disk/file"));
}

TEST_F(FileUtilsTest, AFullDiskStillTakesATextThatIsNotLonger) {
  host::makeDirs("/tmp/disk");
  const host::SmallDisk disk("/tmp/disk", 2 * 4096);
  host::writeFile("/tmp/disk/file", std::string(4000, 'o'));
  FaultPlan plan;  // the disk is full from the first moment on: nothing can be reserved
  plan.at = 1;
  plan.error = ENOSPC;
  plan.calls = {"fallocate"};
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::writeString("/tmp/disk/file", "new", true), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/disk/file"), "new\n");
}

TEST_F(FileUtilsTest, AFileSystemThatReservesNothingIsNoFailure) {
  host::writeFile(kFile, "old\n");
  FaultPlan plan;
  plan.at = 1;
  plan.error = EOPNOTSUPP;
  plan.calls = {"fallocate"};
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::writeString(kFile, "longer text", true), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "longer text\n");
}

TEST_F(FileUtilsTest, AFileSizeLimitIsAFailedWrite) {
  const FileSizeLimit limit(4);
  EXPECT_THAT(FileUtils::writeString(kFile, "longer", true), HasCode(status::writeError));
  EXPECT_FALSE(host::exists(kFile));
}

TEST_F(FileUtilsTest, WritingGoesOnAfterShortWrites) {
  FaultPlan plan;
  plan.oneByteAtATime = true;
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::writeString(kFile, "lab", true), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "lab\n");
}

TEST_F(FileUtilsTest, AnInterruptedCallIsMadeAgain) {
  host::writeFile(kFile, "old\n");
  for (const char* call : {"open", "write", "ftruncate"}) {
    SCOPED_TRACE(call);
    FaultPlan plan;
    plan.at = 1;
    plan.error = EINTR;
    plan.calls = {call};
    const ArmedFaults armed{plan};
    EXPECT_THAT(FileUtils::writeString(kFile, "new", true), HasCode(status::success));
    EXPECT_EQ(host::readFile(kFile), "new\n");
  }
}

// --- Lines

TEST_F(FileUtilsTest, LinesLoseTheirEndsAndEmptyOnesStay) {
  struct Case {
    const char* why;
    std::string content;
    Texts expected;
  };
  const Case cases[] = {
      {"nothing", "", {}},
      {"one line", "one\n", {"one"}},
      {"a last line without newline", "one\ntwo", {"one", "two"}},
      {"an empty line", "one\n\ntwo\n", {"one", "", "two"}},
      {"only a newline", "\n", {""}},
      {"CR LF", "one\r\ntwo\r\n", {"one", "two"}},
      {"several ends", std::string("one\r\0\r\n", 7), {"one"}},
      {"blanks stay", "  one \t\n", {"  one \t"}},
      {"a CR inside stays", "a\rb\n", {"a\rb"}},
      {"a zero byte inside stays", std::string("a\0b\n", 4), {std::string("a\0b", 3)}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, c.content);
    Texts lines{"old"};
    EXPECT_THAT(FileUtils::readLines(kFile, lines), HasCode(status::success));
    EXPECT_EQ(lines, c.expected);
    FileUtils::StringList list{"old"};
    EXPECT_THAT(FileUtils::readLines(kFile, list), HasCode(status::success));
    EXPECT_EQ(Texts(list.begin(), list.end()), c.expected);
  }
}

TEST_F(FileUtilsTest, WhatCannotBeReadAsLinesIsSaid) {
  host::makeFifo("/tmp/fifo");
  host::makeDirs("/tmp/directory");
  host::writeFile("/tmp/unreadable", "x\n", 0);
  const host::BoundByModes bound;
  for (const char* path : {"/tmp/missing", "/tmp/fifo", "/tmp/directory", "/tmp/unreadable", "/dev/zero"}) {
    SCOPED_TRACE(path);
    Texts lines{"old"};
    EXPECT_THAT(FileUtils::readLines(path, lines), HasCode(status::openError));
    EXPECT_THAT(lines, SizeIs(0));
  }
  Texts lines{"old"};
  EXPECT_THAT(FileUtils::readLines("/dev/null", lines), HasCode(status::success));
  EXPECT_THAT(lines, SizeIs(0));
}

TEST_F(FileUtilsTest, AnOverLongLineIsAReadErrorForReadLines) {
  host::writeFile(kFile, "short\n" + std::string(9999498, 'x') + "\n");
  Texts lines;
  EXPECT_THAT(FileUtils::readLines(kFile, lines), HasCode(status::success));
  EXPECT_THAT(lines, SizeIs(2));
  host::writeFile(kFile, "short\n" + std::string(9999499, 'x') + "\n");
  EXPECT_THAT(FileUtils::readLines(kFile, lines), HasCode(status::readError));
  EXPECT_THAT(lines, SizeIs(0));
}

TEST_F(FileUtilsTest, AFailedReadOfLinesClearsThem) {
  host::writeFile(kFile, "one\n" + std::string(100000, 'x') + "\n");
  FaultPlan plan;
  plan.at = 2;
  plan.calls = {"read"};
  const ArmedFaults armed{plan};
  Texts lines{"old"};
  EXPECT_THAT(FileUtils::readLines(kFile, lines), HasCode(status::readError));
  EXPECT_THAT(lines, SizeIs(0));
}

// --- The first line

TEST_F(FileUtilsTest, TheFirstLineThatIsNotBlankIsTheFirstLine) {
  struct Case {
    const char* why;
    std::string content;
    std::string expected;
  };
  const Case cases[] = {
      {"an empty file", "", ""},
      {"blank lines alone", "\n \n\t\r\n\x7f\n", ""},
      {"one line", "lab\n", "lab"},
      {"no newline", "lab", "lab"},
      {"the first of two", "lab\nother\n", "lab"},
      {"blank lines before", "\n  \n lab \n", "lab"},
      {"CR LF", "lab\r\n", "lab"},
      {"outer control bytes go", "\x01\t lab \x1f\x7f\n", "lab"},
      {"bytes of 128 and above go at the ends", "\x80lab\xff\n", "lab"},
      {"bytes of 128 and above stay inside",
       "l\xc3\xa4"
       "b\n",
       "l\xc3\xa4"
       "b"},
      {"blanks stay inside", "my lab\n", "my lab"},
      {"a zero byte at the end goes", std::string("lab\0\n", 5), "lab"},
      {"a zero byte inside stays", std::string("l\0b\n", 4), std::string("l\0b", 3)},
      {"behind more than a buffer of blanks", std::string(10000, ' ') + "\nlab\n", "lab"},
      {"longer than a buffer", std::string(10000, 'x') + "\nlab\n", std::string(10000, 'x')},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, c.content);
    std::string line = "old";
    EXPECT_THAT(FileUtils::readFirstLine(kFile, line), HasCode(status::success));
    EXPECT_EQ(line, c.expected);
  }
}

TEST_F(FileUtilsTest, AMissingFileHasAnEmptyFirstLine) {
  std::string line = "old";
  EXPECT_THAT(FileUtils::readFirstLine("/tmp/missing", line), HasCode(status::success));
  EXPECT_EQ(line, "");
}

TEST_F(FileUtilsTest, WhatIsNoRegularFileHasAnEmptyFirstLine) {
  host::makeDirs("/tmp/directory");
  host::makeFifo("/tmp/fifo");
  host::makeLink("/tmp/link", "/tmp/nowhere");
  for (const char* path : {"/tmp/directory", "/tmp/fifo", "/tmp/link", "/dev/zero", "/dev/null"}) {
    SCOPED_TRACE(path);
    std::string line = "old";
    EXPECT_THAT(FileUtils::readFirstLine(path, line), HasCode(status::success));
    EXPECT_EQ(line, "");
  }
}

TEST_F(FileUtilsTest, AnUnreadableFileHasNoFirstLine) {
  host::writeFile(kFile, "lab\n", 0);
  host::makeLink("/tmp/link", kFile);
  const host::BoundByModes bound;
  std::string line = "old";
  EXPECT_THAT(FileUtils::readFirstLine(kFile, line), HasCode(status::openError));
  EXPECT_THAT(FileUtils::readFirstLine("/tmp/link", line), HasCode(status::openError));
  EXPECT_EQ(line, "");
}

TEST_F(FileUtilsTest, AnOverLongLineLeavesTheFirstLineEmpty) {
  host::writeFile(kFile, std::string(10000000, 'x') + "\nlab\n");
  std::string line = "old";
  EXPECT_THAT(FileUtils::readFirstLine(kFile, line), HasCode(status::success));
  EXPECT_EQ(line, "");
}

TEST_F(FileUtilsTest, AFailedReadOfTheFirstLineIsSaid) {
  host::writeFile(kFile, "lab\n");
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"read"};
  const ArmedFaults armed{plan};
  std::string line = "old";
  EXPECT_THAT(FileUtils::readFirstLine(kFile, line), HasCode(status::readError));
  EXPECT_EQ(line, "");
}

TEST_F(FileUtilsTest, AFirstLineIsReadRelativeToADirectoryInFourCalls) {
  host::makeProfile("profile-1", "lab");
  const UniqueFd root = FileUtils::openDirectory(host::kProfiles);
  ASSERT_TRUE(root.isOpen());
  std::string line = "old";
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(FileUtils::readFirstLineAt(root.get(), "profile-1/profile_name", line), HasCode(status::success));
  EXPECT_EQ(line, "lab");
  EXPECT_THAT(counted.calls(), ElementsAre("openat", "fstat", "read", "close"));
}

TEST_F(FileUtilsTest, AFirstLineWithoutNewlineTakesFourCallsToo) {
  host::writeFile(kFile, "lab");
  std::string line;
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(FileUtils::readFirstLine(kFile, line), HasCode(status::success));
  EXPECT_EQ(line, "lab");
  EXPECT_EQ(counted.count(), 4u);
}

TEST_F(FileUtilsTest, AMissingFileRelativeToADirectoryHasAnEmptyFirstLine) {
  const UniqueFd root = FileUtils::openDirectory(host::kProfiles);
  std::string line = "old";
  EXPECT_THAT(FileUtils::readFirstLineAt(root.get(), "profile-1/profile_name", line), HasCode(status::success));
  EXPECT_EQ(line, "");
}

TEST_F(FileUtilsTest, AnUnreadableFileRelativeToADirectoryHasNoFirstLine) {
  host::makeProfile("profile-1", "lab");
  host::setMode("/etc/zuv/profiles/profile-1/profile_name", 0);
  const host::BoundByModes bound;
  const UniqueFd root = FileUtils::openDirectory(host::kProfiles);
  std::string line = "old";
  EXPECT_THAT(FileUtils::readFirstLineAt(root.get(), "profile-1/profile_name", line), HasCode(status::openError));
}

// --- Questions

TEST_F(FileUtilsTest, TheKindOfAPathIsToldThroughLinks) {
  host::writeFile("/tmp/file", "12345");
  host::makeDirs("/tmp/directory");
  host::makeFifo("/tmp/fifo");
  host::makeLink("/tmp/link", "file");
  host::makeLink("/tmp/nowhere", "/tmp/missing");
  struct Case {
    const char* path;
    bool exists, regular, directory, fifo;
  };
  const Case cases[] = {
      {"", false, false, false, false},
      {"/tmp/missing", false, false, false, false},
      {"/tmp/nowhere", false, false, false, false},
      {"/tmp/file", true, true, false, false},
      {"/tmp/link", true, true, false, false},
      {"/tmp/directory", true, false, true, false},
      {"/tmp/fifo", true, false, false, true},
      {"/dev/null", true, false, false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(FileUtils::fileExists(c.path), c.exists);
    EXPECT_EQ(FileUtils::isRegularFile(c.path), c.regular);
    EXPECT_EQ(FileUtils::isDirectory(c.path), c.directory);
    EXPECT_EQ(FileUtils::isFifo(c.path), c.fifo);
  }
}

TEST_F(FileUtilsTest, ASizeIsInBytesOrMinusOne) {
  host::writeFile(kFile, "12345");
  EXPECT_EQ(FileUtils::fileSize(kFile), 5);
  EXPECT_EQ(FileUtils::fileSize("/tmp/missing"), -1);
  EXPECT_EQ(FileUtils::fileSize(""), -1);
}

TEST_F(FileUtilsTest, AModificationTimeHasWholeSeconds) {
  host::writeFile(kFile, "");
  setModified(kFile, 1709294400);
  EXPECT_EQ(FileUtils::fileModifiedMicros(kFile), 1709294400 * kSecond);
  EXPECT_EQ(FileUtils::fileModifiedMicros("/tmp/missing"), 0);
  EXPECT_EQ(FileUtils::fileModifiedMicros(""), 0);
}

TEST_F(FileUtilsTest, AModificationTimeBeyondTheMicrosecondsOf64BitsIsZero) {
  constexpr std::int64_t tooLate = std::numeric_limits<std::int64_t>::max() / kSecond + 1;
  host::writeFile(kFile, "");
  setModified(kFile, tooLate);
  struct stat info = {};
  ASSERT_EQ(::stat(kFile, &info), 0);
  ASSERT_EQ(info.st_mtime, tooLate);
  EXPECT_EQ(FileUtils::fileModifiedMicros(kFile), 0);
  EXPECT_FALSE(FileUtils::isFreshRegularFile(kFile, 200 * kSecond));
  setModified(kFile, tooLate - 1);
  EXPECT_EQ(FileUtils::fileModifiedMicros(kFile), (tooLate - 1) * kSecond);
}

TEST_F(FileUtilsTest, AFileIsFreshUntilItsAgeHasPassed) {
  host::writeFile(kFile, "");
  setModified(kFile, TimeUtils::nowMicros() / kSecond - 100);
  EXPECT_TRUE(FileUtils::isFreshRegularFile(kFile, 200 * kSecond));
  EXPECT_FALSE(FileUtils::isFreshRegularFile(kFile, 50 * kSecond));
  EXPECT_FALSE(FileUtils::isFreshRegularFile(kFile, 0));
  EXPECT_TRUE(FileUtils::isFreshRegularFile(kFile, std::numeric_limits<std::int64_t>::max()));
  EXPECT_FALSE(FileUtils::isFreshRegularFile("/tmp", 200 * kSecond));
  EXPECT_FALSE(FileUtils::isFreshRegularFile("/tmp/missing", 200 * kSecond));
  EXPECT_FALSE(FileUtils::isFreshRegularFile("", 200 * kSecond));
}

TEST_F(FileUtilsTest, AFifoHasAReaderWhileSomebodyReads) {
  host::makeFifo("/tmp/fifo");
  EXPECT_FALSE(FileUtils::fifoHasReader("/tmp/fifo"));
  {
    const UniqueFd reader(::open("/tmp/fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    EXPECT_TRUE(FileUtils::fifoHasReader("/tmp/fifo"));
  }
  EXPECT_FALSE(FileUtils::fifoHasReader("/tmp/fifo"));
  EXPECT_FALSE(FileUtils::fifoHasReader("/tmp/missing"));
  EXPECT_FALSE(FileUtils::fifoHasReader(""));
}

TEST_F(FileUtilsTest, TheWorkingDirectoryIsTold) {
  host::makeDirs("/tmp/here");
  ASSERT_EQ(::chdir("/tmp/here"), 0);
  std::string dir = "old";
  EXPECT_THAT(FileUtils::getCurrentDir(dir), HasCode(status::success));
  EXPECT_EQ(dir, "/tmp/here");
}

TEST_F(FileUtilsTest, ARemovedWorkingDirectoryIsAFailure) {
  host::makeDirs("/tmp/here");
  ASSERT_EQ(::chdir("/tmp/here"), 0);
  host::remove("/tmp/here");
  std::string dir = "old";
  EXPECT_THAT(FileUtils::getCurrentDir(dir), HasCode(status::getcwdError));
  EXPECT_EQ(dir, "");
}

TEST_F(FileUtilsTest, AWorkingDirectoryBeyondTheBufferIsAFailure) {
  const std::string name(200, 'd');
  ASSERT_EQ(::chdir("/tmp"), 0);
  for (int depth = 0; depth < 25; ++depth) {
    ASSERT_EQ(::mkdir(name.c_str(), 0755), 0);
    ASSERT_EQ(::chdir(name.c_str()), 0);
  }
  std::string dir = "old";
  EXPECT_THAT(FileUtils::getCurrentDir(dir), HasCode(status::getcwdError));
  EXPECT_EQ(dir, "");
  ASSERT_EQ(::chdir("/"), 0);
  EXPECT_THAT(FileUtils::removeTree("/tmp/" + name), HasCode(status::success));
}

TEST_F(FileUtilsTest, TheConfigurationRootIsFixed) { EXPECT_STREQ(FileUtils::configRoot(), "/etc/zuv/"); }

// --- Creating and removing

TEST_F(FileUtilsTest, ADirectoryIsMadeWithTheModeLessTheUmask) {
  ::umask(027);
  EXPECT_THAT(FileUtils::makeDir("/tmp/new", 0755), HasCode(status::success));
  EXPECT_EQ(host::modeOf("/tmp/new"), 0750u);
}

TEST_F(FileUtilsTest, AnExistingEntryCountsAsADirectoryMade) {
  host::makeDirs("/tmp/there", 0700);
  EXPECT_THAT(FileUtils::makeDir("/tmp/there", 0755), HasCode(status::success));
  EXPECT_EQ(host::modeOf("/tmp/there"), 0700u);
  host::writeFile(kFile, "");
  EXPECT_THAT(FileUtils::makeDir(kFile, 0755), HasCode(status::success));
}

TEST_F(FileUtilsTest, DirectoriesAboveAreNotMade) {
  EXPECT_THAT(FileUtils::makeDir("/tmp/a/b", 0755), HasCode(status::mkdirError));
  EXPECT_FALSE(host::exists("/tmp/a"));
}

TEST_F(FileUtilsTest, ANewDirectoryHasItsModeWhateverTheUmask) {
  ::umask(0777);
  EXPECT_EQ(FileUtils::makeNewDir("/tmp/new", 0755), FileUtils::NewDir::made);
  EXPECT_EQ(host::modeOf("/tmp/new"), 0755u);
}

TEST_F(FileUtilsTest, AnEntryOfAnyKindIsNoNewDirectory) {
  host::makeDirs("/tmp/directory");
  host::writeFile("/tmp/file", "");
  host::makeLink("/tmp/nowhere", "/tmp/missing");
  for (const char* path : {"/tmp/directory", "/tmp/file", "/tmp/nowhere"}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(FileUtils::makeNewDir(path, 0755), FileUtils::NewDir::exists);
  }
  EXPECT_EQ(FileUtils::makeNewDir("/tmp/a/b", 0755), FileUtils::NewDir::failed);
}

TEST_F(FileUtilsTest, ANewDirectoryWhoseModeCannotBeSetIsRemovedAgain) {
  ::umask(0077);
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"chmod"};
  const ArmedFaults armed{plan};
  EXPECT_EQ(FileUtils::makeNewDir("/tmp/new", 0755), FileUtils::NewDir::failed);
  EXPECT_FALSE(host::exists("/tmp/new"));
}

TEST_F(FileUtilsTest, AModeIsSet) {
  host::writeFile(kFile, "", 0600);
  EXPECT_THAT(FileUtils::setMode(kFile, 0666), HasCode(status::success));
  EXPECT_EQ(host::modeOf(kFile), 0666u);
  EXPECT_THAT(FileUtils::setMode("/tmp/missing", 0666), HasCode(status::chmodError));
}

TEST_F(FileUtilsTest, AModeThatIsThereAlreadyNeedsNoRight) {
  host::writeFile(kFile, "", 0666);
  FaultPlan plan;
  plan.at = 1;
  plan.fromThereOn = true;
  plan.error = EPERM;
  plan.calls = {"chmod"};
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::setMode(kFile, 0666), HasCode(status::success));
  EXPECT_THAT(FileUtils::setMode(kFile, 0640), HasCode(status::chmodError));
}

TEST_F(FileUtilsTest, WhatIsMissingCountsAsRemoved) {
  EXPECT_THAT(FileUtils::removeFile("/tmp/missing"), HasCode(status::success));
  EXPECT_THAT(FileUtils::removeDir("/tmp/missing"), HasCode(status::success));
  EXPECT_THAT(FileUtils::removePath("/tmp/missing"), HasCode(status::success));
}

TEST_F(FileUtilsTest, FilesAndEmptyDirectoriesAreRemoved) {
  host::writeFile("/tmp/file", "");
  host::makeDirs("/tmp/directory");
  EXPECT_THAT(FileUtils::removeFile("/tmp/directory"), HasCode(status::unlinkError));
  EXPECT_THAT(FileUtils::removeDir("/tmp/file"), HasCode(status::rmdirError));
  EXPECT_THAT(FileUtils::removeFile("/tmp/file"), HasCode(status::success));
  EXPECT_THAT(FileUtils::removeDir("/tmp/directory"), HasCode(status::success));
  EXPECT_FALSE(host::exists("/tmp/file"));
  EXPECT_FALSE(host::exists("/tmp/directory"));
}

TEST_F(FileUtilsTest, APathIsRemovedWhetherFileOrEmptyDirectory) {
  host::writeFile("/tmp/file", "");
  host::makeDirs("/tmp/directory");
  host::writeFile("/tmp/full/file", "");
  EXPECT_THAT(FileUtils::removePath("/tmp/file"), HasCode(status::success));
  EXPECT_THAT(FileUtils::removePath("/tmp/directory"), HasCode(status::success));
  EXPECT_THAT(FileUtils::removePath("/tmp/full"), HasCode(status::rmdirError));
  EXPECT_FALSE(host::exists("/tmp/file"));
  EXPECT_FALSE(host::exists("/tmp/directory"));
  EXPECT_TRUE(host::exists("/tmp/full/file"));
}

TEST_F(FileUtilsTest, ALinkIsRemovedAndNotItsEnd) {
  host::writeFile(kFile, "x");
  host::makeLink("/tmp/link", kFile);
  EXPECT_THAT(FileUtils::removeFile("/tmp/link"), HasCode(status::success));
  EXPECT_FALSE(host::exists("/tmp/link"));
  EXPECT_TRUE(host::exists(kFile));
}

TEST_F(FileUtilsTest, ARenameOntoAFileNeedsLeave) {
  host::writeFile("/tmp/from", "from");
  host::writeFile("/tmp/to", "to");
  EXPECT_THAT(FileUtils::renameFile("/tmp/from", "/tmp/to", false), HasCode(status::renameError));
  EXPECT_EQ(host::readFile("/tmp/from"), "from");
  EXPECT_EQ(host::readFile("/tmp/to"), "to");
  EXPECT_THAT(FileUtils::renameFile("/tmp/from", "/tmp/to", true), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/to"), "from");
  EXPECT_FALSE(host::exists("/tmp/from"));
}

TEST_F(FileUtilsTest, ARenameToANewNameWorksEitherWay) {
  host::writeFile("/tmp/one", "");
  EXPECT_THAT(FileUtils::renameFile("/tmp/one", "/tmp/two", false), HasCode(status::success));
  EXPECT_THAT(FileUtils::renameFile("/tmp/two", "/tmp/three", true), HasCode(status::success));
  EXPECT_THAT(FileUtils::renameFile("/tmp/missing", "/tmp/four", true), HasCode(status::renameError));
  EXPECT_TRUE(host::exists("/tmp/three"));
}

// --- Copies

TEST_F(FileUtilsTest, ACopyHasTheBytesAndMode0644WhateverTheUmask) {
  const std::string content = std::string(10000, 'x') + std::string("\0end", 4);
  host::writeFile("/tmp/from", content, 0600);
  for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
    ::umask(mask);
    EXPECT_THAT(FileUtils::copyFile("/tmp/from", "/tmp/to"), HasCode(status::success));
    EXPECT_EQ(host::readFile("/tmp/to"), content);
    EXPECT_EQ(host::modeOf("/tmp/to"), 0644u);
    host::remove("/tmp/to");
  }
}

TEST_F(FileUtilsTest, ACopyIsOursAndOfNow) {
  host::writeFile("/tmp/from", "text");
  const timespec longAgo[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, "/tmp/from", longAgo, 0), 0);
  // Where the host has one user only, the owner is ours in any case.
  [[maybe_unused]] const int given = ::chown("/tmp/from", 1000, 1000);
  EXPECT_THAT(FileUtils::copyFile("/tmp/from", "/tmp/to"), HasCode(status::success));
  struct stat copy = {};
  ASSERT_EQ(::stat("/tmp/to", &copy), 0);
  EXPECT_EQ(copy.st_uid, ::geteuid());
  EXPECT_EQ(copy.st_gid, ::getegid());
  EXPECT_GT(copy.st_mtim.tv_sec, 1'700'000'000);
}

TEST_F(FileUtilsTest, ACopyLeavesNothingOfALongerFile) {
  host::writeFile("/tmp/from", "short\n");
  host::writeFile("/tmp/to", "a much longer text\n", 0600);
  EXPECT_THAT(FileUtils::copyFile("/tmp/from", "/tmp/to"), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/to"), "short\n");
  EXPECT_EQ(host::modeOf("/tmp/to"), 0644u);
}

TEST_F(FileUtilsTest, ACopyGoesOnAfterShortReadsAndWrites) {
  host::writeFile("/tmp/from", std::string(5000, 'x'));
  FaultPlan plan;
  plan.oneByteAtATime = true;
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::copyFile("/tmp/from", "/tmp/to"), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/to"), std::string(5000, 'x'));
}

TEST_F(FileUtilsTest, WhatSomebodyElsesLinkLeadsToIsNotCopied) {
  SKIP_WITHOUT_OTHER_USERS();
  host::writeFile("/tmp/secret", "secret", 0600);
  host::makeLink("/tmp/theirs/link", "/tmp/secret");
  EXPECT_THAT(FileUtils::copyFile("/tmp/theirs/link", "/tmp/to"), HasCode(status::success));
  host::remove("/tmp/to");
  host::giveTo(65534, "/tmp/theirs/link");
  EXPECT_THAT(FileUtils::copyFile("/tmp/theirs/link", "/tmp/to"), HasCode(status::openError));
  EXPECT_FALSE(host::exists("/tmp/to"));
}

TEST_F(FileUtilsTest, AnEmptyFileAndTheNullDeviceAreCopiedAsEmptyFiles) {
  host::writeFile("/tmp/from", "");
  EXPECT_THAT(FileUtils::copyFile("/tmp/from", "/tmp/one"), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/one"), "");
  EXPECT_THAT(FileUtils::copyFile("/dev/null", "/tmp/two"), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/two"), "");
}

TEST_F(FileUtilsTest, ACopyOntoTheNullDeviceKeepsTheDevice) {
  host::writeFile("/tmp/from", "text");
  const mode_t before = host::modeOf("/dev/null");
  EXPECT_THAT(FileUtils::copyFile("/tmp/from", "/dev/null"), HasCode(status::success));
  EXPECT_EQ(host::modeOf("/dev/null"), before);
  EXPECT_FALSE(FileUtils::isRegularFile("/dev/null"));
}

TEST_F(FileUtilsTest, ASourceThatGrowsMeanwhileIsCopiedToItsFirstSize) {
  host::writeFile("/tmp/from", std::string(5000, 'x'));
  FaultPlan plan;
  plan.calls = {"read"};
  plan.before = [](std::size_t call) {
    if (call == 2) host::writeFile("/tmp/from", std::string(20000, 'x'));
  };
  {
    const ArmedFaults armed{plan};
    EXPECT_THAT(FileUtils::copyFile("/tmp/from", "/tmp/to"), HasCode(status::success));
    EXPECT_EQ(armed.count(), 2u);
  }
  EXPECT_EQ(FileUtils::fileSize("/tmp/to"), 5000);
}

TEST_F(FileUtilsTest, AFileThatCannotBeWrittenIsNotCopiedOntoItselfEither) {
  host::writeFile("/tmp/file", "text", 0444);
  host::makeLink("/tmp/link", "/tmp/file");
  const host::BoundByModes bound;
  EXPECT_THAT(FileUtils::copyFile("/tmp/file", "/tmp/file"), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::copyFile("/tmp/file", "/tmp/link"), HasCode(status::invalidArgument));
  EXPECT_EQ(host::readFile("/tmp/file"), "text");
}

TEST_F(FileUtilsTest, AFileIsNotCopiedOntoItself) {
  host::writeFile("/tmp/from", "text");
  host::makeLink("/tmp/link", "/tmp/from");
  ASSERT_EQ(::link("/tmp/from", "/tmp/hard"), 0);
  for (const char* to : {"/tmp/from", "/tmp/link", "/tmp/hard", "/tmp/../tmp/from"}) {
    SCOPED_TRACE(to);
    EXPECT_THAT(FileUtils::copyFile("/tmp/from", to), HasCode(status::invalidArgument));
    EXPECT_EQ(host::readFile("/tmp/from"), "text");
  }
}

TEST_F(FileUtilsTest, ACopyNeedsAFileThatIsThere) {
  EXPECT_THAT(FileUtils::copyFile("/tmp/missing", "/tmp/to"), HasCode(status::invalidArgument));
  EXPECT_FALSE(host::exists("/tmp/to"));
}

void expectCopyError(const Status& s, StatusCode code, const char* details) {
  EXPECT_THAT(s, HasCode(code));
  EXPECT_EQ(s.details(), details);
  EXPECT_EQ(s.context(), "copyFile");
}

TEST_F(FileUtilsTest, AFailedCopyNamesThePath) {
  host::writeFile("/tmp/from", "text");
  host::writeFile("/tmp/unreadable", "text", 0);
  host::makeDirs("/tmp/directory");
  host::makeFifo("/tmp/fifo");
  const host::BoundByModes bound;
  expectCopyError(FileUtils::copyFile("/tmp/unreadable", "/tmp/to"), status::openError, "/tmp/unreadable");
  expectCopyError(FileUtils::copyFile("/tmp/directory", "/tmp/to"), status::openError, "/tmp/directory");
  expectCopyError(FileUtils::copyFile("/tmp/fifo", "/tmp/to"), status::openError, "/tmp/fifo");
  expectCopyError(FileUtils::copyFile("/tmp/from", "/tmp/directory"), status::openError, "/tmp/directory");
  expectCopyError(FileUtils::copyFile("/tmp/from", "/tmp/fifo"), status::openError, "/tmp/fifo");
  expectCopyError(FileUtils::copyFile("/tmp/from", "/tmp/a/b"), status::openError, "/tmp/a/b");
  EXPECT_FALSE(host::exists("/tmp/to"));
}

TEST_F(FileUtilsTest, ACopyThatCannotBeReadOrWrittenNamesThePath) {
  host::writeFile("/tmp/from", "text");
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"read"};
  {
    const ArmedFaults armed{plan};
    expectCopyError(FileUtils::copyFile("/tmp/from", "/tmp/to"), status::readError, "/tmp/from");
  }
  EXPECT_FALSE(host::exists("/tmp/to"));
  plan.calls = {"write"};
  {
    const ArmedFaults armed{plan};
    expectCopyError(FileUtils::copyFile("/tmp/from", "/tmp/to"), status::writeError, "/tmp/to");
  }
  EXPECT_FALSE(host::exists("/tmp/to"));
  plan.calls = {"close"};  // the target's is the first
  {
    const ArmedFaults armed{plan};
    expectCopyError(FileUtils::copyFile("/tmp/from", "/tmp/to"), status::writeError, "/tmp/to");
  }
  EXPECT_FALSE(host::exists("/tmp/to"));
}

TEST_F(FileUtilsTest, ASourceThatEndsEarlyEndsTheCopyWithSuccess) {
  // A file of sysfs is said to be a page long and ends much earlier.
  constexpr const char* kPage = "/tmp/sys/class/net/lo/mtu";
  host::makeDirs("/tmp/sys");
  if (::mount("sysfs", "/tmp/sys", "sysfs", MS_RDONLY, nullptr) != 0) GTEST_SKIP() << "needs a sysfs of its own";
  const std::string content = host::readFile(kPage);
  ASSERT_EQ(FileUtils::fileSize(kPage), 4096);
  EXPECT_THAT(FileUtils::copyFile(kPage, "/tmp/to"), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/to"), content);
  std::string bytes;
  EXPECT_THAT(FileUtils::readFile(kPage, bytes), HasCode(status::success));
  EXPECT_EQ(bytes, content);
  EXPECT_EQ(::umount("/tmp/sys"), 0);
}

// --- Unique files

struct CloseStream {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, CloseStream>;

// Keeps what is logged while it lives.
class LogTap {
 public:
  LogTap() { BasicLog::setSyncProcessor(new Processor(entries)); }
  ~LogTap() { BasicLog::setSyncProcessor(nullptr); }

  std::vector<std::string> entries;

 private:
  class Processor : public BasicLog::LogMessageProcessor {
   public:
    explicit Processor(std::vector<std::string>& sink) : entries_(sink) {}
    void process(std::unique_ptr<const BasicLog::LogMessage>& message) override {
      entries_.push_back(lineOf(*message));
    }

   private:
    std::vector<std::string>& entries_;
  };
};

TEST_F(FileUtilsTest, AUniqueFileIsNewOpenForReadingAndWritingAndMode0644) {
  std::string path = "old";
  const Stream stream(FileUtils::makeUniqueFile("/tmp/bundle", path));
  ASSERT_NE(stream, nullptr);
  EXPECT_THAT(path, MatchesRegex("/tmp/bundle\\.[a-zA-Z0-9]{6}"));
  EXPECT_EQ(host::modeOf(path), 0644u);
  std::fputs("text", stream.get());
  std::rewind(stream.get());
  char text[8] = {};
  EXPECT_STREQ(std::fgets(text, sizeof text, stream.get()), "text");
  EXPECT_EQ(::fcntl(::fileno(stream.get()), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(FileUtilsTest, AUniqueFileIsSubjectToTheUmask) {
  ::umask(077);
  std::string path;
  const Stream stream(FileUtils::makeUniqueFile("/tmp/bundle", path));
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(host::modeOf(path), 0600u);
}

TEST_F(FileUtilsTest, TwoUniqueFilesHaveDifferentNames) {
  std::string one;
  std::string two;
  const Stream first(FileUtils::makeUniqueFile("/tmp/bundle", one));
  const Stream second(FileUtils::makeUniqueFile("/tmp/bundle", two));
  EXPECT_NE(one, two);
}

TEST_F(FileUtilsTest, ElevenNamesAreTriedAndEachFailureIsLogged) {
  LogTap tap;
  std::string path = "old";
  EXPECT_EQ(FileUtils::makeUniqueFile("/tmp/missing/bundle", path), nullptr);
  EXPECT_EQ(path, "old");
  EXPECT_EQ(
      tap.entries,
      Texts(11, "[ERROR] basiclib FileUtils.cpp makeUniqueFile failed to open file: error=No such file or directory"));
}

TEST_F(FileUtilsTest, WhereErrorsAreNotLoggedAFailureToMakeAUniqueFileIsNotEither) {
  BasicLog::Logger& logger = BasicLog::getLogger(BasicLog::basiclibLogger);
  const BasicLog::Level before = logger.threshold();
  LogTap tap;
  std::string path = "old";
  logger.setThreshold(BasicLog::Level::fatal);
  EXPECT_EQ(FileUtils::makeUniqueFile("/tmp/missing/bundle", path), nullptr);
  logger.setThreshold(before);
  EXPECT_THAT(tap.entries, SizeIs(0));
}

TEST_F(FileUtilsTest, TheEleventhNameMayStillSucceed) {
  for (const std::size_t failures : {0U, 1U, 9U, 10U}) {
    SCOPED_TRACE(failures);
    host::remove("/tmp/late");
    LogTap tap;
    FaultPlan plan;
    plan.at = 1000;
    plan.calls = {"open"};
    plan.before = [failures](std::size_t call) {
      if (call == failures + 1) host::makeDirs("/tmp/late");
    };
    const ArmedFaults armed{plan};
    std::string path;
    const Stream stream(FileUtils::makeUniqueFile("/tmp/late/bundle", path));
    EXPECT_NE(stream, nullptr);
    EXPECT_THAT(tap.entries, SizeIs(failures));
  }
}

TEST_F(FileUtilsTest, AUniqueNameBeyond4095BytesIsRefusedAtOnceWithoutLogging) {
  LogTap tap;
  std::string path = "old";
  EXPECT_EQ(FileUtils::makeUniqueFile("/tmp/" + std::string(4084, 'x'), path), nullptr);  // 4,096 with its ending
  EXPECT_THAT(tap.entries, SizeIs(0));
  EXPECT_EQ(FileUtils::makeUniqueFile("/tmp/" + std::string(4083, 'x'), path), nullptr);  // 4,095, but one long name
  EXPECT_THAT(tap.entries, SizeIs(11));
  EXPECT_EQ(path, "old");
}

TEST_F(FileUtilsTest, AStreamThatCannotBeMadeLeavesNoUniqueFile) {
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"fdopen"};
  const ArmedFaults armed{plan};
  std::string path = "old";
  EXPECT_EQ(FileUtils::makeUniqueFile("/tmp/bundle", path), nullptr);
  EXPECT_EQ(path, "old");
  EXPECT_EQ(host::tree("/tmp"), "d 1777 lock\n");
}

// --- Directories of the program: they are found once in a process, so that each question needs one of its own

// What the function gives in a child with that environment variable, or without it for null.
std::string directoryIn(const char* variable, const char* value, const std::string& (*directory)()) {
  int ends[2];
  EXPECT_EQ(::pipe(ends), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    if (value != nullptr) ::setenv(variable, value, 1);
    const std::string before = directory();
    ::setenv(variable, "/later", 1);
    const std::string answer = before == directory() ? before : "changed";
    ::_exit(::write(ends[1], answer.data(), answer.size()) < 0);
  }
  ::close(ends[1]);
  char answer[4096];
  const ssize_t length = ::read(ends[0], answer, sizeof answer);
  ::close(ends[0]);
  EXPECT_EQ(::waitpid(child, nullptr, 0), child);
  return std::string(answer, static_cast<std::size_t>(length));
}

// A process looks for these directories once. GoogleTest runs suites of such a name first, when no other test of this
// process has asked for them yet.
using ProgramDirectoryDeathTest = HostTest;

TEST_F(ProgramDirectoryDeathTest, TheTemporaryDirectoryEndsInASlashAndIsMade) {
  EXPECT_EQ(directoryIn("ZUV_TMP_DIR", nullptr, FileUtils::tempDir), "/tmp/");
  EXPECT_EQ(directoryIn("ZUV_TMP_DIR", "", FileUtils::tempDir), "/tmp/");
  EXPECT_EQ(directoryIn("ZUV_TMP_DIR", "/tmp/ours", FileUtils::tempDir), "/tmp/ours/");
  EXPECT_EQ(host::modeOf("/tmp/ours"), 0750u);
  EXPECT_EQ(directoryIn("ZUV_TMP_DIR", "/tmp/missing/ours/", FileUtils::tempDir), "/tmp/missing/ours/");
}

TEST_F(ProgramDirectoryDeathTest, TheLockDirectoryEndsInASlashAndIsMade) {
  host::remove("/tmp/lock");
  EXPECT_EQ(directoryIn("ZUV_LOCK_DIR", nullptr, FileUtils::lockDir), "/tmp/lock/");
  EXPECT_EQ(host::modeOf("/tmp/lock"), 0750u);
  EXPECT_EQ(directoryIn("ZUV_LOCK_DIR", "", FileUtils::lockDir), "/tmp/lock/");
  EXPECT_EQ(directoryIn("ZUV_LOCK_DIR", "/tmp/ours", FileUtils::lockDir), "/tmp/ours/");
  EXPECT_EQ(host::modeOf("/tmp/ours"), 0750u);
  EXPECT_EQ(directoryIn("ZUV_LOCK_DIR", "/tmp/missing/ours/", FileUtils::lockDir), "/tmp/missing/ours/");
}

}  // namespace
