#include "base/files/WholeFile.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "base/files/DirectoryListing.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using testing::ElementsAre;
using testing::SizeIs;
using Texts = std::vector<std::string>;

constexpr const char* kFile = "/tmp/file";

class WholeFileTest : public HostTest {};

ino_t inodeOf(const std::string& path) {
  struct stat info = {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0);
  return info.st_ino;
}

// Limits the size of files until the end of its scope.
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

// --- Reading whole files

TEST_F(WholeFileTest, AWholeFileIsRead) {
  const std::string content("one\0two\n", 8);
  host::writeFile(kFile, content);
  std::string bytes = "old";
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::success));
  EXPECT_EQ(bytes, content);
}

TEST_F(WholeFileTest, ShortReadsStillReadALargeFileWhole) {
  const std::string content(100000, 'x');
  host::writeFile(kFile, content);
  FaultPlan plan;
  plan.oneByteAtATime = true;
  const ArmedFaults armed{plan};
  std::string bytes;
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::success));
  EXPECT_EQ(bytes, content);
}

TEST_F(WholeFileTest, AFileThatGrowsBetweenTwoReadsIsReadUpToItsFirstSize) {
  const std::string content(5000, 'x');
  host::writeFile(kFile, content);
  FaultPlan plan;
  plan.calls = {"read"};
  plan.before =
      [](std::size_t call) {  // the first read ends early; the second could read more than the buffer has room for
        ASSERT_EQ(::truncate(kFile, call == 1 ? 3 : 20000), 0);
      };
  const ArmedFaults armed{plan};
  std::string bytes;
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::success));
  EXPECT_TRUE(bytes == std::string(3, 'x') + std::string(4997, '\0')) << bytes.size();
  EXPECT_EQ(armed.count(), 2u);
}

TEST_F(WholeFileTest, AnEmptyFileIsReadWithoutOpeningIt) {
  host::writeFile(kFile, "");
  std::string bytes = "old";
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::success));
  EXPECT_EQ(bytes, "");
  EXPECT_THAT(counted.calls(), ElementsAre("stat"));
}

TEST_F(WholeFileTest, AMissingFileIsAStatError) {
  std::string bytes = "old";
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::statError));
  EXPECT_EQ(bytes, "");
}

TEST_F(WholeFileTest, AnUnreadableFileIsAnOpenError) {
  host::writeFile(kFile, "text\n", 0);
  const host::BoundByModes bound;
  std::string bytes = "old";
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::openError));
  EXPECT_EQ(bytes, "");
}

TEST_F(WholeFileTest, OnlyRegularFilesAndTheNullDeviceAreReadWhole) {
  host::makeDirs("/tmp/directory");
  host::makeFifo("/tmp/fifo");
  std::string bytes = "old";
  EXPECT_THAT(FileUtils::readFile("/tmp/directory", bytes), HasCode(status::openError));
  EXPECT_THAT(FileUtils::readFile("/tmp/fifo", bytes), HasCode(status::openError));
  EXPECT_THAT(FileUtils::readFile("/dev/zero", bytes), HasCode(status::openError));
  EXPECT_THAT(FileUtils::readFile("/dev/null", bytes), HasCode(status::success));
  EXPECT_EQ(bytes, "");
}

TEST_F(WholeFileTest, AFailedReadClearsTheBytes) {
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

TEST_F(WholeFileTest, AWrittenFileHoldsExactlyTheBytes) {
  const std::string content("a\0b", 3);
  EXPECT_THAT(FileUtils::writeFile(kFile, content.data(), content.size()), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), content);
}

TEST_F(WholeFileTest, ALengthOfZeroMakesAnEmptyFile) {
  host::writeFile(kFile, "old\n");
  EXPECT_THAT(FileUtils::writeFile(kFile, nullptr, 0), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "");
  EXPECT_THAT(FileUtils::writeFile("/tmp/new", nullptr, 0), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/new"), "");
}

TEST_F(WholeFileTest, ATextIsWrittenWithOrWithoutANewline) {
  EXPECT_THAT(FileUtils::writeString(kFile, "lab", true), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "lab\n");
  EXPECT_THAT(FileUtils::writeString(kFile, "lab", false), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "lab");
}

TEST_F(WholeFileTest, AShorterTextLeavesNothingOfALongerOne) {
  host::writeFile(kFile, "a much longer text\n");
  EXPECT_THAT(FileUtils::writeString(kFile, "lab", true), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "lab\n");
}

TEST_F(WholeFileTest, BothListTypesWriteTheSameLines) {
  EXPECT_THAT(FileUtils::writeLines(kFile, Texts{"one", "", "three"}), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "one\n\nthree\n");
  EXPECT_THAT(FileUtils::writeLines(kFile, FileUtils::StringList{"1", "2"}), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "1\n2\n");
  EXPECT_THAT(FileUtils::writeLines(kFile, Texts{}), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "");
}

TEST_F(WholeFileTest, WholeFileWritesHaveMode0640WhateverTheUmask) {
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

TEST_F(WholeFileTest, AModeThatCannotBeSetIsNoFailure) {
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"fchmod"};
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::writeString(kFile, "x", true), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "x\n");
}

TEST_F(WholeFileTest, AFileIsRewrittenInPlace) {
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

TEST_F(WholeFileTest, AFileIsCutOnlyAfterItsNewBytesAreWritten) {
  host::writeFile(kFile, "old text\n");
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(FileUtils::writeString(kFile, "new", true), HasCode(status::success));
  EXPECT_THAT(counted.calls(), ElementsAre("open", "flock", "fstat", "write", "fchmod", "ftruncate", "close"));
}

TEST_F(WholeFileTest, TheMissingTargetOfALinkIsMade) {
  host::makeLink("/tmp/link", "/tmp/target");
  EXPECT_THAT(FileUtils::writeString("/tmp/link", "new", true), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/target"), "new\n");
}

TEST_F(WholeFileTest, TheNewTargetOfALinkIsRemovedAgainIfWritingFails) {
  host::makeLink("/tmp/link", "/tmp/target");
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"write"};
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::writeString("/tmp/link", "new", true), HasCode(status::writeError));
  EXPECT_FALSE(host::exists("/tmp/target"));
  EXPECT_TRUE(host::exists("/tmp/link"));
}

TEST_F(WholeFileTest, OnlyRegularFilesAreWritten) {
  host::makeDirs("/tmp/directory");
  host::makeFifo("/tmp/fifo");
  EXPECT_THAT(FileUtils::writeString("/tmp/directory", "x", true), HasCode(status::openError));
  EXPECT_THAT(FileUtils::writeString("/tmp/fifo", "x", true), HasCode(status::openError));
  EXPECT_THAT(FileUtils::writeString("/dev/full", "x", true), HasCode(status::openError));
  EXPECT_THAT(FileUtils::writeString("/tmp/missing/file", "x", true), HasCode(status::openError));
}

TEST_F(WholeFileTest, AFifoWithAReaderIsNotWrittenEither) {
  host::makeFifo("/tmp/fifo");
  const UniqueFd reader(::open("/tmp/fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_THAT(FileUtils::writeString("/tmp/fifo", "x", true), HasCode(status::openError));
  char byte = 0;
  EXPECT_EQ(::read(reader.get(), &byte, 1), 0);
}

TEST_F(WholeFileTest, TheNullDeviceTakesBytesAndKeepsItsMode) {
  const mode_t before = host::modeOf("/dev/null");
  EXPECT_THAT(FileUtils::writeString("/dev/null", "x", true), HasCode(status::success));
  EXPECT_EQ(host::modeOf("/dev/null"), before);
}

TEST_F(WholeFileTest, AFullDiskLeavesTheOldFileWhole) {
  host::makeDirs("/tmp/disk");
  const host::SmallDisk disk("/tmp/disk", 4 * 4096);
  host::writeFile("/tmp/disk/file", "old\n");
  EXPECT_THAT(FileUtils::writeString("/tmp/disk/file", std::string(100000, 'x'), true), HasCode(status::writeError));
  EXPECT_EQ(host::readFile("/tmp/disk/file"), "old\n");
}

TEST_F(WholeFileTest, AFullDiskLeavesNoNewFile) {
  host::makeDirs("/tmp/disk");
  const host::SmallDisk disk("/tmp/disk", 4 * 4096);
  EXPECT_THAT(FileUtils::writeString("/tmp/disk/file", std::string(100000, 'x'), true), HasCode(status::writeError));
  EXPECT_FALSE(host::exists("/tmp/disk/file"));
}

TEST_F(WholeFileTest, AFullDiskStillAcceptsATextThatIsNotLonger) {
  host::makeDirs("/tmp/disk");
  const host::SmallDisk disk("/tmp/disk", 2 * 4096);
  host::writeFile("/tmp/disk/file", std::string(4000, 'o'));
  FaultPlan plan;  // the disk is full from the start: no space can be reserved
  plan.at = 1;
  plan.error = ENOSPC;
  plan.calls = {"fallocate"};
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::writeString("/tmp/disk/file", "new", true), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/disk/file"), "new\n");
}

TEST_F(WholeFileTest, AFileSystemThatCannotReserveSpaceIsNoFailure) {
  host::writeFile(kFile, "old\n");
  FaultPlan plan;
  plan.at = 1;
  plan.error = EOPNOTSUPP;
  plan.calls = {"fallocate"};
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::writeString(kFile, "longer text", true), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "longer text\n");
}

TEST_F(WholeFileTest, AFileSizeLimitIsAFailedWrite) {
  const FileSizeLimit limit(4);
  EXPECT_THAT(FileUtils::writeString(kFile, "longer", true), HasCode(status::writeError));
  EXPECT_FALSE(host::exists(kFile));
}

TEST_F(WholeFileTest, WritingContinuesAfterShortWrites) {
  FaultPlan plan;
  plan.oneByteAtATime = true;
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::writeString(kFile, "lab", true), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "lab\n");
}

TEST_F(WholeFileTest, AnInterruptedCallIsMadeAgain) {
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

TEST_F(WholeFileTest, LinesLoseTheirLineEndsAndEmptyLinesStay) {
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

TEST_F(WholeFileTest, AFileWhoseLinesCannotBeReadIsAFailure) {
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

TEST_F(WholeFileTest, AnOverLongLineIsAReadErrorForReadLines) {
  host::writeFile(kFile, "short\n" + std::string(9999498, 'x') + "\n");
  Texts lines;
  EXPECT_THAT(FileUtils::readLines(kFile, lines), HasCode(status::success));
  EXPECT_THAT(lines, SizeIs(2));
  host::writeFile(kFile, "short\n" + std::string(9999499, 'x') + "\n");
  EXPECT_THAT(FileUtils::readLines(kFile, lines), HasCode(status::readError));
  EXPECT_THAT(lines, SizeIs(0));
}

TEST_F(WholeFileTest, AFailedReadOfLinesClearsThem) {
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

TEST_F(WholeFileTest, TheFirstLineIsTheFirstThatIsNotBlank) {
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
      {"outer control bytes are removed", "\x01\t lab \x1f\x7f\n", "lab"},
      {"bytes of 128 and above are removed at the ends", "\x80lab\xff\n", "lab"},
      {"bytes of 128 and above stay inside",
       "l\xc3\xa4"
       "b\n",
       "l\xc3\xa4"
       "b"},
      {"blanks stay inside", "my lab\n", "my lab"},
      {"a zero byte at the end is removed", std::string("lab\0\n", 5), "lab"},
      {"a zero byte inside stays", std::string("l\0b\n", 4), std::string("l\0b", 3)},
      {"a line behind more blanks than a buffer holds", std::string(10000, ' ') + "\nlab\n", "lab"},
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

TEST_F(WholeFileTest, AMissingFileHasAnEmptyFirstLine) {
  std::string line = "old";
  EXPECT_THAT(FileUtils::readFirstLine("/tmp/missing", line), HasCode(status::success));
  EXPECT_EQ(line, "");
}

TEST_F(WholeFileTest, APathThatIsNoRegularFileHasAnEmptyFirstLine) {
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

TEST_F(WholeFileTest, AnUnreadableFileIsAnOpenErrorForTheFirstLine) {
  host::writeFile(kFile, "lab\n", 0);
  host::makeLink("/tmp/link", kFile);
  const host::BoundByModes bound;
  std::string line = "old";
  EXPECT_THAT(FileUtils::readFirstLine(kFile, line), HasCode(status::openError));
  EXPECT_THAT(FileUtils::readFirstLine("/tmp/link", line), HasCode(status::openError));
  EXPECT_EQ(line, "");
}

TEST_F(WholeFileTest, AnOverLongLineLeavesTheFirstLineEmpty) {
  host::writeFile(kFile, std::string(10000000, 'x') + "\nlab\n");
  std::string line = "old";
  EXPECT_THAT(FileUtils::readFirstLine(kFile, line), HasCode(status::success));
  EXPECT_EQ(line, "");
}

TEST_F(WholeFileTest, AFailedReadOfTheFirstLineIsAReadError) {
  host::writeFile(kFile, "lab\n");
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"read"};
  const ArmedFaults armed{plan};
  std::string line = "old";
  EXPECT_THAT(FileUtils::readFirstLine(kFile, line), HasCode(status::readError));
  EXPECT_EQ(line, "");
}

TEST_F(WholeFileTest, AFirstLineIsReadRelativeToADirectoryInFourCalls) {
  host::makeProfile("profile-1", "lab");
  const UniqueFd root = FileUtils::openDirectory(host::kProfiles);
  ASSERT_TRUE(root.isOpen());
  std::string line = "old";
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(FileUtils::readFirstLineAt(root.get(), "profile-1/profile_name", line), HasCode(status::success));
  EXPECT_EQ(line, "lab");
  EXPECT_THAT(counted.calls(), ElementsAre("openat", "fstat", "read", "close"));
}

TEST_F(WholeFileTest, AFirstLineWithoutNewlineTakesFourCallsToo) {
  host::writeFile(kFile, "lab");
  std::string line;
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(FileUtils::readFirstLine(kFile, line), HasCode(status::success));
  EXPECT_EQ(line, "lab");
  EXPECT_EQ(counted.count(), 4u);
}

TEST_F(WholeFileTest, AMissingFileRelativeToADirectoryHasAnEmptyFirstLine) {
  const UniqueFd root = FileUtils::openDirectory(host::kProfiles);
  std::string line = "old";
  EXPECT_THAT(FileUtils::readFirstLineAt(root.get(), "profile-1/profile_name", line), HasCode(status::success));
  EXPECT_EQ(line, "");
}

TEST_F(WholeFileTest, AnUnreadableFileRelativeToADirectoryIsAnOpenError) {
  host::makeProfile("profile-1", "lab");
  host::setMode("/etc/zuv/profiles/profile-1/profile_name", 0);
  const host::BoundByModes bound;
  const UniqueFd root = FileUtils::openDirectory(host::kProfiles);
  std::string line = "old";
  EXPECT_THAT(FileUtils::readFirstLineAt(root.get(), "profile-1/profile_name", line), HasCode(status::openError));
}

}  // namespace
