#include "base/files/WholeFile.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "base/files/DirectoryListing.h"
#include "base/files/FileAccess.h"
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

// --- Reading whole files

// Makes one file of each kind that is no regular file.
void makeOddFiles() {
  host::writeFile("/tmp/file", "text\n");
  host::writeFile("/tmp/directory/file", "");
  host::makeFifo("/tmp/fifo");
  host::makeSocket("/tmp/socket");
  host::makeLink("/tmp/circle", "circle");
}

TEST_F(WholeFileTest, FilesOfEveryKindAreReadAsTheSystemReadsThemButTheFirstLineOnlyOfARegularFile) {
  makeOddFiles();
  host::writeFile("/tmp/unreadable", "text\n", 0);
  host::makeLink("/tmp/link", "/tmp/unreadable");
  host::makeLink("/tmp/broken", "/tmp/missing");
  host::makeFifo("/tmp/written-fifo");
  const UniqueFd writer(::open("/tmp/written-fifo", O_RDWR | O_NONBLOCK | O_CLOEXEC));
  struct Case {
    const char* why;
    const char* path;
    StatusCode ofFile, ofLines, ofFirstLine;
  };
  const Case cases[] = {
      {"the null device is empty", "/dev/null", status::success, status::success, status::success},
      {"a device without an end has a line that is too long", "/dev/zero", status::success, status::readError,
       status::success},
      {"a FIFO without a writer is empty", "/tmp/fifo", status::success, status::success, status::success},
      {"a FIFO with a writer but without data is not waited for", "/tmp/written-fifo", status::success,
       status::readError, status::success},
      {"a socket cannot be opened", "/tmp/socket", status::success, status::openError, status::success},
      {"a directory is opened but cannot be read", "/tmp/directory", status::readError, status::readError,
       status::success},
      {"a missing file", "/tmp/missing", status::statError, status::openError, status::success},
      {"a path below a file", "/tmp/file/below", status::statError, status::openError, status::success},
      {"a broken link", "/tmp/broken", status::statError, status::openError, status::success},
      {"a circular link", "/tmp/circle", status::statError, status::openError, status::success},
      {"a file without permission", "/tmp/unreadable", status::openError, status::openError, status::openError},
      {"a link to it", "/tmp/link", status::openError, status::openError, status::openError},
  };
  const host::BoundByModes bound;
  const UniqueFd root = FileUtils::openDirectory("/");
  ASSERT_EQ(::chdir("/etc"), 0);  // so that a path relative to the root is not relative to the working directory too
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    std::string bytes = "old";
    Texts lines{"old"};
    std::string line = "old";
    std::string lineAt = "old";
    EXPECT_THAT(FileUtils::readFile(c.path, bytes), HasCode(c.ofFile));
    EXPECT_THAT(FileUtils::readLines(c.path, lines), HasCode(c.ofLines));
    EXPECT_THAT(FileUtils::readFirstLine(c.path, line), HasCode(c.ofFirstLine));
    EXPECT_THAT(FileUtils::readFirstLineAt(root.get(), c.path + 1, lineAt), HasCode(c.ofFirstLine));
    EXPECT_EQ(bytes + line + lineAt, "");
    EXPECT_THAT(lines, SizeIs(0));
  }
}

// The FIFO is open for reading here too, so that its bytes outlive the writer.
TEST_F(WholeFileTest, TheLinesInAFifoAreReadOnceItsWriterIsGoneButNeverTheFirstLine) {
  host::makeFifo("/tmp/fifo");
  const UniqueFd reader(::open("/tmp/fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  {
    const UniqueFd writer(::open("/tmp/fifo", O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    ASSERT_EQ(::write(writer.get(), "one\ntwo", 7), 7);
  }
  std::string line = "old";
  EXPECT_THAT(FileUtils::readFirstLine("/tmp/fifo", line), HasCode(status::success));
  EXPECT_EQ(line, "");
  Texts lines;
  EXPECT_THAT(FileUtils::readLines("/tmp/fifo", lines), HasCode(status::success));
  EXPECT_THAT(lines, ElementsAre("one", "two"));
}

TEST_F(WholeFileTest, ALargeFileIsReadWholeAlsoByShortReads) {
  const std::string content = std::string("one\0two\n", 8) + std::string(100000, 'x');
  host::writeFile(kFile, content);
  for (const bool isInSingleBytes : {false, true}) {
    SCOPED_TRACE(isInSingleBytes);
    const ArmedFaults armed{FaultPlan{0, false, EIO, {}, isInSingleBytes}};
    std::string bytes = "old";
    EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::success));
    EXPECT_TRUE(bytes == content) << bytes.size();
  }
}

// With 64 bits this is a file of 4 EiB.
TEST_F(WholeFileTest, AFileWhoseSizeAStringCannotHaveIsAReadError) {
  std::vector<off_t> sizes = {static_cast<off_t>(std::string().max_size() + 1)};
  if (sizeof(std::size_t) == 4) sizes.push_back((off_t{4} << 30) + 5);
  host::writeFile(kFile, "text");
  for (const off_t size : sizes) {
    SCOPED_TRACE(size);
    ASSERT_EQ(::truncate(kFile, size), 0);
    std::string bytes = "old";
    EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::readError));
    EXPECT_EQ(bytes, "");
  }
}

TEST_F(WholeFileTest, AFileThatGrowsBetweenTwoReadsIsReadUpToItsFirstSize) {
  const std::string content(5000, 'x');
  host::writeFile(kFile, content);
  FaultPlan plan;
  plan.calls = {"read"};
  // The first read ends early. The second could read more than the buffer has room for.
  plan.before = [](std::size_t call) { ASSERT_EQ(::truncate(kFile, call == 1 ? 3 : 20000), 0); };
  const ArmedFaults armed{plan};
  std::string bytes;
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::success));
  EXPECT_TRUE(bytes == std::string(3, 'x') + std::string(4997, '\0')) << bytes.size();
  EXPECT_EQ(armed.count(), 2u);
}

TEST_F(WholeFileTest, AFileOfSizeZeroOfWhateverKindIsReadWithoutOpeningIt) {
  makeOddFiles();
  host::writeFile(kFile, "");
  for (const char* path : {kFile, "/tmp/fifo", "/tmp/socket", "/dev/null", "/dev/zero"}) {
    SCOPED_TRACE(path);
    std::string bytes = "old";
    const ArmedFaults counted{FaultPlan{}};
    EXPECT_THAT(FileUtils::readFile(path, bytes), HasCode(status::success));
    EXPECT_EQ(bytes, "");
    EXPECT_THAT(counted.calls(), ElementsAre("stat"));
  }
}

TEST_F(WholeFileTest, AFileThatEndsEarlyIsReadUpToItsEnd) {
  host::writeFile(kFile, std::string(5000, 'x'));
  FaultPlan plan;
  plan.calls = {"read"};
  plan.before = [](std::size_t call) {
    if (call == 1) {
      ASSERT_EQ(::truncate(kFile, 7), 0);
    }
  };
  const ArmedFaults armed{plan};
  std::string bytes = "old";
  EXPECT_THAT(FileUtils::readFile(kFile, bytes), HasCode(status::success));
  EXPECT_EQ(bytes, "xxxxxxx");
}

TEST_F(WholeFileTest, AFailedReadIsAReadErrorAndLeavesTheResultEmpty) {
  host::writeFile(kFile, "one\n" + std::string(100000, 'x') + "\n");
  std::string bytes = "old";
  Texts lines{"old"};
  std::string line = "old";
  struct Case {
    const char* why;
    std::size_t failingRead;
    std::function<Status()> operation;
  };
  const Case cases[] = {
      {"the whole file", 1, [&] { return FileUtils::readFile(kFile, bytes); }},
      {"all lines, at the second read", 2, [&] { return FileUtils::readLines(kFile, lines); }},
      {"the first line", 1, [&] { return FileUtils::readFirstLine(kFile, line); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const ArmedFaults armed{FaultPlan{c.failingRead, false, EIO, {"read"}}};
    EXPECT_THAT(c.operation(), HasCode(status::readError));
  }
  EXPECT_EQ(bytes, "");
  EXPECT_THAT(lines, SizeIs(0));
  EXPECT_EQ(line, "");
}

// --- Writing whole files

TEST_F(WholeFileTest, AFileIsWrittenInPlaceAndHoldsExactlyTheNewBytes) {
  const Texts three = {"one", "", "three"};
  const FileUtils::StringList list = {"1", "2"};
  struct Case {
    const char* why;
    std::function<Status()> operation;
    std::string expected;
  };
  const Case cases[] = {
      {"bytes", [] { return FileUtils::writeFile(kFile, "a\0b", 3); }, std::string("a\0b", 3)},
      {"no bytes", [] { return FileUtils::writeFile(kFile, nullptr, 0); }, ""},
      {"a text with a newline", [] { return FileUtils::writeString(kFile, "lab", true); }, "lab\n"},
      {"a text without a newline", [] { return FileUtils::writeString(kFile, "lab", false); }, "lab"},
      {"lines", [&] { return FileUtils::writeLines(kFile, three); }, "one\n\nthree\n"},
      {"a list of lines", [&] { return FileUtils::writeLines(kFile, list); }, "1\n2\n"},
      {"no lines", [] { return FileUtils::writeLines(kFile, Texts{}); }, ""},
  };
  for (const Case& c : cases) {
    for (const bool isInSingleBytes : {false, true}) {
      SCOPED_TRACE(std::string(c.why) + (isInSingleBytes ? ", by writes of one byte" : ""));
      const ArmedFaults armed{FaultPlan{0, false, EIO, {}, isInSingleBytes}};
      host::remove(kFile);
      EXPECT_THAT(c.operation(), HasCode(status::success));
      EXPECT_EQ(host::readFile(kFile), c.expected) << "a new file";
      host::writeFile(kFile, "a much longer text\n");
      const ino_t before = inodeOf(kFile);
      EXPECT_THAT(c.operation(), HasCode(status::success));
      EXPECT_EQ(host::readFile(kFile), c.expected) << "over a longer text";
      EXPECT_EQ(inodeOf(kFile), before);
    }
  }
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

TEST_F(WholeFileTest, AFileIsCutOnlyAfterItsNewBytesAreWritten) {
  host::writeFile(kFile, "old text\n");
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(FileUtils::writeString(kFile, "new", true), HasCode(status::success));
  EXPECT_THAT(counted.calls(), ElementsAre("open", "flock", "fstat", "write", "fchmod", "fstat", "ftruncate", "close"));
}

TEST_F(WholeFileTest, TheMissingTargetOfALinkIsMadeAndIsRemovedAgainIfWritingFails) {
  host::makeLink("/tmp/link", "/tmp/target");
  {
    const ArmedFaults armed{FaultPlan{1, false, EIO, {"write"}}};
    EXPECT_THAT(FileUtils::writeString("/tmp/link", "new", true), HasCode(status::writeError));
  }
  EXPECT_EQ(host::tree("/tmp"), "l link -> /tmp/target\nd 1777 lock\n");
  EXPECT_THAT(FileUtils::writeString("/tmp/link", "new", true), HasCode(status::success));
  EXPECT_EQ(host::tree("/tmp"), "l link -> /tmp/target\nd 1777 lock\nf 0640 target \"new\\n\"\n");
}

TEST_F(WholeFileTest, FilesOfEveryKindAreWrittenAsTheSystemWritesThemButOnlyRegularOnesInTheStore) {
  makeOddFiles();
  host::makeFifo("/tmp/read-fifo");
  const UniqueFd reader(::open("/tmp/read-fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct Case {
    const char* why;
    const char* path;
    StatusCode ofStore, ofSystem;
  };
  const Case cases[] = {
      {"the null device", "/dev/null", status::success, status::success},
      {"a device that is full", "/dev/full", status::openError, status::writeError},
      {"a device that takes every byte", "/dev/zero", status::openError, status::success},
      {"a FIFO without a reader is not waited for", "/tmp/fifo", status::openError, status::openError},
      {"a FIFO with a reader", "/tmp/read-fifo", status::openError, status::success},
      {"a socket", "/tmp/socket", status::openError, status::openError},
      {"a directory", "/tmp/directory", status::openError, status::openError},
      {"a circular link", "/tmp/circle", status::openError, status::openError},
      {"a path below a missing directory", "/tmp/missing/file", status::openError, status::openError},
      {"a path below a file", "/tmp/file/below", status::openError, status::openError},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const mode_t before = host::exists(c.path) ? host::modeOf(c.path) : 0;
    const ArmedFaults counted{FaultPlan{0, false, EIO, {"fchmod", "ftruncate", "fallocate"}}};
    EXPECT_THAT(FileUtils::writeStoreLine(c.path, "store"), HasCode(c.ofStore));
    EXPECT_THAT(FileUtils::writeString(c.path, "x", true), HasCode(c.ofSystem));
    EXPECT_THAT(counted.calls(), SizeIs(0)) << "no mode is set and nothing is cut";
    EXPECT_EQ(host::exists(c.path) ? host::modeOf(c.path) : 0, before);
  }
  char bytes[16] = {};
  EXPECT_EQ(::read(reader.get(), bytes, sizeof bytes), 2);
  EXPECT_STREQ(bytes, "x\n");
}

// More bytes than a pipe holds: without the wait, a write fails as soon as the pipe is full.
TEST_F(WholeFileTest, AWriteIntoAFifoWaitsForItsReader) {
  host::makeFifo("/tmp/fifo");
  const UniqueFd reader(::open("/tmp/fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  const std::string text(300000, 'x');
  std::string arrived;
  std::thread slow([&] {
    pollfd waiting = {reader.get(), POLLIN, 0};
    EXPECT_EQ(::poll(&waiting, 1, 20000), 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    char bytes[4096];
    ssize_t count = 0;
    while ((count = ::read(reader.get(), bytes, sizeof bytes)) > 0 || (count < 0 && errno == EAGAIN)) {
      if (count > 0) arrived.append(bytes, static_cast<std::size_t>(count));
    }
  });
  EXPECT_THAT(FileUtils::writeString("/tmp/fifo", text, false), HasCode(status::success));
  slow.join();
  EXPECT_TRUE(arrived == text) << arrived.size();
}

TEST_F(WholeFileTest, LinksOfAnybodyAreFollowedButNotByTheWriterOfTheStore) {
  SKIP_WITHOUT_OTHER_USERS();
  constexpr const char* kTarget = "/tmp/target";
  host::makeLink("/tmp/theirs/link", kTarget);
  host::giveTo(65534, "/tmp/theirs/link");
  for (const bool isThere : {true, false}) {
    SCOPED_TRACE(isThere ? "to a file" : "to a missing target");
    host::remove(kTarget);
    if (isThere) host::writeFile(kTarget, "a long old text\n");
    EXPECT_THAT(FileUtils::writeStoreLine("/tmp/theirs/link", "store"), HasCode(status::openError));
    EXPECT_EQ(host::exists(kTarget), isThere);
    EXPECT_THAT(FileUtils::writeString("/tmp/theirs/link", "new", true), HasCode(status::success));
    EXPECT_EQ(host::tree("/tmp/theirs"), "l link -> /tmp/target\n");
    EXPECT_EQ(host::readFile(kTarget), "new\n");
    EXPECT_EQ(host::modeOf(kTarget), 0640u);
  }
  std::string bytes;
  Texts lines;
  EXPECT_THAT(FileUtils::readFile("/tmp/theirs/link", bytes), HasCode(status::success));
  EXPECT_EQ(bytes, "new\n");
  EXPECT_THAT(FileUtils::readLines("/tmp/theirs/link", lines), HasCode(status::success));
  EXPECT_THAT(lines, ElementsAre("new"));
}

// The text of such a link is no path, so only the system itself can follow it.
TEST_F(WholeFileTest, ALinkToAnOpenPipeIsFollowedLikeDevStdout) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  const UniqueFd reader(ends[0]);
  const UniqueFd writer(ends[1]);
  host::makeLink("/tmp/link", "/proc/self/fd/" + std::to_string(writer.get()));
  EXPECT_THAT(FileUtils::writeStoreLine("/tmp/link", "store"), HasCode(status::openError));
  EXPECT_THAT(FileUtils::writeString("/tmp/link", "x", true), HasCode(status::success));
  char bytes[16] = {};
  EXPECT_EQ(::read(reader.get(), bytes, sizeof bytes), 2);
  EXPECT_STREQ(bytes, "x\n");
}

TEST_F(WholeFileTest, ALineOfTheStoreIsWrittenWithItsNewlineAndMode0640) {
  host::writeFile(kFile, "a much longer text\n", 0600);
  host::makeLink("/tmp/links/link", kFile);
  for (const char* path : {kFile, "/tmp/links/link", "/tmp/new"}) {
    SCOPED_TRACE(path);
    EXPECT_THAT(FileUtils::writeStoreLine(path, "lab"), HasCode(status::success));
    EXPECT_EQ(host::readFile(path), "lab\n");
  }
  EXPECT_EQ(host::modeOf(kFile), 0640u);
  EXPECT_EQ(host::modeOf("/tmp/new"), 0640u);
}

TEST_F(WholeFileTest, AFullDiskLeavesTheOldFileWholeAndNoNewFile) {
  host::makeDirs("/tmp/disk");
  const host::SmallDisk disk("/tmp/disk", 4 * 4096);
  host::writeFile("/tmp/disk/file", "old\n");
  const std::string tooLong(100000, 'x');
  EXPECT_THAT(FileUtils::writeString("/tmp/disk/file", tooLong, true), HasCode(status::writeError));
  EXPECT_THAT(FileUtils::writeString("/tmp/disk/new", tooLong, true), HasCode(status::writeError));
  EXPECT_EQ(host::tree("/tmp/disk"), "f 0644 file \"old\\n\"\n");
}

TEST_F(WholeFileTest, AWriteThatFailsAfterSomeBytesLeavesNoNewFile) {
  const ArmedFaults armed{FaultPlan{5, false, EFBIG, {"write"}, true}};
  EXPECT_THAT(FileUtils::writeString(kFile, "longer", true), HasCode(status::writeError));
  EXPECT_EQ(armed.calls().size(), 5u);
  EXPECT_FALSE(host::exists(kFile));
}

TEST_F(WholeFileTest, AnInterruptedCallIsMadeAgain) {
  for (const char* call : {"open", "write", "ftruncate"}) {
    SCOPED_TRACE(call);
    host::writeFile(kFile, "old text\n");
    const ArmedFaults armed{FaultPlan{1, false, EINTR, {call}}};
    EXPECT_THAT(FileUtils::writeString(kFile, "new", true), HasCode(status::success));
    EXPECT_GT(armed.count(), 1u);
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
      {"several CR, LF and zero bytes at the end", std::string("one\r\0\r\n", 7), {"one"}},
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

TEST_F(WholeFileTest, AnOverLongLineIsAReadErrorForReadLines) {
  host::writeFile(kFile, "short\n" + std::string(9999498, 'x') + "\n");
  Texts lines;
  EXPECT_THAT(FileUtils::readLines(kFile, lines), HasCode(status::success));
  EXPECT_THAT(lines, SizeIs(2));
  host::writeFile(kFile, "short\n" + std::string(9999499, 'x') + "\n");
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
      {"bytes of 128 and above stay inside", "l\xc3\xa4z\n", "l\xc3\xa4z"},
      {"blanks stay inside", "my lab\n", "my lab"},
      {"a zero byte at the end is removed", std::string("lab\0\n", 5), "lab"},
      {"a zero byte inside stays", std::string("l\0b\n", 4), std::string("l\0b", 3)},
      {"a line behind more blanks than a buffer holds", std::string(10000, ' ') + "\nlab\n", "lab"},
      {"longer than a buffer", std::string(10000, 'x') + "\nlab\n", std::string(10000, 'x')},
      {"a line that is too long ends the search", std::string(10000000, 'x') + "\nlab\n", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, c.content);
    std::string line = "old";
    EXPECT_THAT(FileUtils::readFirstLine(kFile, line), HasCode(status::success));
    EXPECT_EQ(line, c.expected);
  }
}

TEST_F(WholeFileTest, AFirstLineIsReadInFourCalls) {
  host::makeProfile("profile-1", "lab");
  host::writeFile(kFile, "lab");
  const UniqueFd root = FileUtils::openDirectory(host::kProfiles);
  std::string line;
  struct Case {
    const char* why;
    std::function<Status()> operation;
  };
  const Case cases[] = {
      {"relative to a directory",
       [&] { return FileUtils::readFirstLineAt(root.get(), "profile-1/profile_name", line); }},
      {"without a newline", [&] { return FileUtils::readFirstLine(kFile, line); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    line = "old";
    const ArmedFaults counted{FaultPlan{}};
    EXPECT_THAT(c.operation(), HasCode(status::success));
    EXPECT_EQ(line, "lab");
    EXPECT_THAT(counted.calls(), ElementsAre("openat", "fstat", "read", "close"));
  }
}

TEST_F(WholeFileTest, TheFirstLineOfAnOpenFileIsTheFirstThatIsNotBlank) {
  host::writeFile(kFile, "\n one \ntwo\n");
  OpenedFile file;
  ASSERT_TRUE(openForReading(AT_FDCWD, kFile, file));
  std::string line = "old";
  EXPECT_THAT(FileUtils::readFirstLineFrom(file, line), HasCode(status::success));
  EXPECT_EQ(line, "one");
  host::writeFile(kFile, std::string(200'000, 'x'));
  ASSERT_TRUE(openForReading(AT_FDCWD, kFile, file));
  const ArmedFaults armed{FaultPlan{2, false, EIO, {"read"}}};
  EXPECT_THAT(FileUtils::readFirstLineFrom(file, line), HasCode(status::readError));
  EXPECT_EQ(line, "") << "also if its beginning was read";
}

}  // namespace
