#include "base/files/FileAccess.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/files/CopyFile.h"
#include "base/files/DirectoryEntries.h"
#include "base/files/WholeFile.h"
#include "testing/faults/FaultInjector.h"
#include "testing/models/SkippedPauses.h"
#include "testing/run/AsUser.h"
#include "testing/run/HostTest.h"

namespace {

using testing::AnyOf;

constexpr const char* kFile = "/tmp/file";
const std::string kOldText = "old text\n";
const std::string kNewText = "a new text that is longer than the old one\n";

class FileAccessTest : public HostTest {};

bool isCloseOnExec(int fd) { return (::fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }

// Writes kFile, or removes it if the text is empty.
void makeOld(const std::string& text) {
  host::remove(kFile);
  if (!text.empty()) host::writeFile(kFile, text);
}

TEST_F(FileAccessTest, OnlyRegularFilesAndTheNullDeviceAreOpenedForReading) {
  host::writeFile(kFile, "12345");
  host::makeLink("/tmp/link", kFile);
  host::makeDirs("/tmp/directory");
  host::makeFifo("/tmp/fifo");
  host::makeFifo("/tmp/written-fifo");
  const UniqueFd both(::open("/tmp/written-fifo", O_RDWR | O_NONBLOCK | O_CLOEXEC));
  ASSERT_EQ(::write(both.get(), "x", 1), 1);
  struct Case {
    const char* path;
    off_t size;
    int error;
  };
  const Case cases[] = {
      {"/tmp/file", 5, 0},
      {"/tmp/link", 5, 0},
      {"/dev/null", 0, 0},
      {"/tmp/missing", -1, ENOENT},
      {"/dev/zero", -1, EINVAL},
      {"/tmp/fifo", -1, EINVAL},
      {"/tmp/directory", -1, EINVAL},
      {"/tmp/written-fifo", -1, EINVAL},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    OpenedFile file;
    file.info.st_size = -1;
    errno = 0;
    const bool isOpened = openForReading(AT_FDCWD, c.path, file);
    EXPECT_EQ(isOpened ? 0 : errno, c.error);
    EXPECT_EQ(file.size(), c.size);
    EXPECT_EQ(file.fd.isOpen(), c.error == 0);
    if (c.error == 0) {
      EXPECT_TRUE(isCloseOnExec(file.fd.get()));
    }
  }
  char byte = 0;
  EXPECT_EQ(::read(both.get(), &byte, 1), 1) << "nobody read the byte in the FIFO that has a writer";
}

// --- Links

constexpr uid_t kStranger = 65534;
constexpr const char* kLink = "/tmp/links/link";
constexpr const char* kTarget = "/tmp/target";
// Without the link /proc/self, which belongs to another user if ours is not root.
const std::string kOwnStatus = "/proc/" + std::to_string(::getpid()) + "/status";

TEST_F(FileAccessTest, APathWithoutLinksIsOpenedWithTwoCalls) {
  host::writeFile(kTarget, "text");
  const ArmedFaults counted{FaultPlan{}};
  OpenedFile file;
  EXPECT_TRUE(openForReading(AT_FDCWD, kTarget, file));
  EXPECT_EQ(counted.calls(), (std::vector<std::string>{"openat", "fstat"}));
}

TEST_F(FileAccessTest, ATrustedLinkIsReadLikeItsTarget) {
  host::writeFile(kTarget, "text");
  host::makeLink(kLink, kTarget);
  host::makeLink("/tmp/links/device", "/dev/zero");
  host::makeLink("/tmp/links/proc", kOwnStatus);
  host::makeLink("/tmp/links/broken", "missing");
  host::makeLink("/tmp/links/circle", "circle");
  struct Case {
    const char* why;
    const char* path;
    int error;
  };
  const Case cases[] = {
      {"a link to a file is opened", kLink, 0},
      {"a link to a device is not opened", "/tmp/links/device", EINVAL},
      {"a link into /proc is opened", "/tmp/links/proc", 0},
      {"a path in /proc is opened", kOwnStatus.c_str(), 0},
      {"a broken link counts as a missing file", "/tmp/links/broken", ENOENT},
      {"a circular link is not followed", "/tmp/links/circle", ELOOP},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    OpenedFile file;
    errno = 0;
    const bool isOpened = openForReading(AT_FDCWD, c.path, file);
    EXPECT_EQ(isOpened ? 0 : errno, c.error);
    EXPECT_EQ(isOpened, c.error == 0);
  }
}

TEST_F(FileAccessTest, WithoutProcAnOwnersLinkIsOpenedByItsPathAgain) {
  SKIP_WITHOUT_OTHER_USERS();
  host::writeFile(kTarget, "text");
  host::makeLink(kLink, kTarget);
  for (const char* path : {kTarget, kLink, "/tmp/links"}) host::giveTo(kStranger, path);
  const ArmedFaults armed{FaultPlan{1, false, ENOENT, {"open"}}};
  OpenedFile file;
  EXPECT_TRUE(openForReading(AT_FDCWD, kLink, file));
  EXPECT_EQ(armed.count(), 1u) << "the path in /proc was tried";
  EXPECT_EQ(file.size(), 4);
}

// Makes another user's link to kTarget and a link of ours to that one, and returns their paths.
std::vector<const char*> linksOfAStranger() {
  host::makeLink(kLink, kTarget);
  host::giveTo(kStranger, kLink);
  host::makeLink("/tmp/links/ours", "link");
  return {kLink, "/tmp/links/ours"};
}

TEST_F(FileAccessTest, AnotherUsersLinkIsNeitherReadNorWritten) {
  SKIP_WITHOUT_OTHER_USERS();
  for (const char* path : linksOfAStranger()) {
    SCOPED_TRACE(path);
    host::remove(kTarget);
    EXPECT_THAT(replaceContent(path, "new", 0640, SetMode::always), HasCode(status::openError));
    EXPECT_FALSE(host::exists(kTarget));
    host::writeFile(kTarget, "old");
    EXPECT_THAT(replaceContent(path, "new", 0640, SetMode::always), HasCode(status::openError));
    EXPECT_EQ(host::readFile(kTarget), "old");
    for (const Follow follow : {Follow::trusted, Follow::forReading}) {
      OpenedFile file;
      EXPECT_FALSE(openForReading(AT_FDCWD, path, file, follow));
      EXPECT_EQ(errno, ELOOP);
    }
  }
}

TEST_F(FileAccessTest, AnotherUsersLinkIsFollowedByTheWriterOfTheSystem) {
  SKIP_WITHOUT_OTHER_USERS();
  for (const char* path : linksOfAStranger()) {
    SCOPED_TRACE(path);
    host::remove(kTarget);
    for (const char* text : {"a new file", "an old file"}) {
      EXPECT_THAT(replaceContent(path, text, 0640, SetMode::always, Access::ofSystem), HasCode(status::success));
      EXPECT_EQ(host::readFile(kTarget), text);
    }
  }
  EXPECT_EQ(host::tree("/tmp/links"), "l link -> /tmp/target\nl ours -> link\n");
}

TEST_F(FileAccessTest, AFileIsSparseIfItHasFewerBlocksOf512BytesThanItsSizeFills) {
  struct Case {
    blkcnt_t blocks;
    off_t size;
    bool isSparse;
  };
  const Case cases[] = {{0, 0, false},    {0, 511, false}, {0, 512, true},   {8, 1, false},
                        {8, 4096, false}, {7, 4096, true}, {8, 4607, false}, {8, 4608, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.blocks) + " blocks, " + std::to_string(c.size) + " bytes");
    OpenedFile file;
    file.info.st_blocks = c.blocks;
    file.info.st_size = c.size;
    EXPECT_EQ(file.isSparse(), c.isSparse);
  }
}

TEST_F(FileAccessTest, AFileOfAnyKindIsOpenedForReadingWithTheSizeOfStat) {
  host::writeFile(kFile, "12345");
  host::makeDirs("/tmp/directory");
  host::makeFifo("/tmp/fifo");
  host::makeSocket("/tmp/socket");
  host::makeLink("/tmp/link", "/proc/self/status");
  struct Case {
    const char* path;
    int error;
  };
  const Case cases[] = {{kFile, 0},       {"/tmp/directory", 0},    {"/tmp/fifo", 0},
                        {"/dev/zero", 0}, {"/tmp/link", 0},         {"/tmp/socket", ENXIO},
                        {"", ENOENT},     {"/tmp/missing", ENOENT}, {"/tmp/file/below", ENOTDIR}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    struct stat info = {};
    (void)::stat(c.path, &info);
    OpenedFile file;
    file.info.st_size = -1;
    errno = 0;
    const bool isOpened = openAnyForReading(c.path, file);
    EXPECT_EQ(isOpened ? 0 : errno, c.error);
    EXPECT_EQ(isOpened, c.error == 0);
    EXPECT_EQ(file.fd.isOpen(), isOpened);
    EXPECT_EQ(file.size(), isOpened ? info.st_size : -1);
    if (isOpened) {
      EXPECT_TRUE(isCloseOnExec(file.fd.get()));
      EXPECT_TRUE(isSameFile(file.info, info));
    }
  }
}

TEST_F(FileAccessTest, AChainOfFortyTrustedLinksIsFollowedAsTheSystemWouldFollowIt) {
  constexpr int longestChain = 40;
  host::writeFile(kTarget, "old");
  host::makeLink("/tmp/links/1", kTarget);
  host::makeLink("/tmp/links/2", "../links/1");
  for (int i = 2; i <= longestChain; ++i) {
    host::makeLink("/tmp/links/" + std::to_string(i + 1), std::to_string(i));
  }
  OpenedFile file;
  EXPECT_TRUE(openForReading(AT_FDCWD, "/tmp/links/40", file, Follow::trusted));
  EXPECT_EQ(file.size(), 3);
  EXPECT_THAT(replaceContent("/tmp/links/40", "new", 0640, SetMode::always), HasCode(status::success));
  EXPECT_EQ(host::readFile(kTarget), "new");
  EXPECT_FALSE(openForReading(AT_FDCWD, "/tmp/links/41", file, Follow::trusted));
  EXPECT_EQ(errno, ELOOP);
  EXPECT_THAT(replaceContent("/tmp/links/41", "newer", 0640, SetMode::always), HasCode(status::openError));
  EXPECT_EQ(host::readFile(kTarget), "new");
}

// The system itself follows 40 links. The chain can become longer before the file is made.
TEST_F(FileAccessTest, TheWriterOfTheSystemMakesAMissingFileOverFortyLinksAtMost) {
  constexpr int longestChain = 40;
  for (const bool isLengthened : {false, true}) {
    SCOPED_TRACE(isLengthened);
    host::reset();
    host::makeLink("/tmp/links/1", kTarget);
    for (int i = 1; i < longestChain; ++i) host::makeLink("/tmp/links/" + std::to_string(i + 1), std::to_string(i));
    FaultPlan plan;
    plan.calls = {"open"};
    plan.before = [isLengthened](std::size_t call) {
      if (!isLengthened || call != 2) return;
      host::remove("/tmp/links/40");
      host::makeLink("/tmp/links/40", "more");
      host::makeLink("/tmp/links/more", "39");
    };
    const ArmedFaults armed{plan};
    EXPECT_THAT(FileUtils::writeString("/tmp/links/40", kNewText, false),
                HasCode(isLengthened ? status::openError : status::success));
    EXPECT_EQ(host::exists(kTarget), !isLengthened);
  }
}

TEST_F(FileAccessTest, WithoutTheTargetOfALinkTheWriterOfTheSystemMakesNothing) {
  host::makeLink(kLink, kTarget);
  const ArmedFaults armed{FaultPlan{1, false, EIO, {"readlinkat"}}};
  EXPECT_THAT(FileUtils::writeString(kLink, kNewText, false), HasCode(status::openError));
  EXPECT_EQ(armed.count(), 1u);
  EXPECT_FALSE(host::exists(kTarget));
}

TEST_F(FileAccessTest, AUserWritesOnlyThroughHisOwnLinksAndThoseOfRoot) {
  SKIP_WITHOUT_OTHER_USERS();
  struct Case {
    const char* why;
    uid_t owner;
    bool isFollowed;
  };
  const Case cases[] = {
      {"a link of root", 0, true}, {"his own link", kStranger, true}, {"a link of a third user", kStranger - 1, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    host::writeFile(kTarget, "old", 0666);
    host::makeLink(kLink, kTarget);
    host::giveTo(c.owner, kLink);
    {
      const AsUser stranger(kStranger);
      EXPECT_THAT(replaceContent(kLink, "new", 0666, SetMode::onNewFiles),
                  HasCode(c.isFollowed ? status::success : status::openError));
    }
    EXPECT_EQ(host::readFile(kTarget), c.isFollowed ? "new" : "old");
  }
}

// A user who may write in a directory can replace its entries at any moment.
TEST_F(FileAccessTest, ALinkThatReplacesATrustedOneDuringTheCheckIsNotFollowed) {
  SKIP_WITHOUT_OTHER_USERS();
  host::writeFile(kTarget, "old");
  host::writeFile("/tmp/ours", "old");
  host::makeLink(kLink, "/tmp/ours");
  FaultPlan plan;
  plan.calls = {"readlinkat"};
  plan.before = [](std::size_t) {
    host::remove(kLink);
    host::makeLink(kLink, kTarget);
    host::giveTo(kStranger, kLink);
  };
  {
    const ArmedFaults armed{plan};
    EXPECT_THAT(replaceContent(kLink, "new", 0640, SetMode::always), HasCode(status::success));
  }
  EXPECT_EQ(host::readFile(kTarget), "old");
  EXPECT_EQ(host::readFile("/tmp/ours"), "new");
}

TEST_F(FileAccessTest, AFailedWriteKeepsTheTargetOfALinkThatReplacedTheNewFile) {
  host::writeFile(kTarget, "old");
  FaultPlan plan{1, false, EIO, {"write"}};
  plan.before = [](std::size_t) {
    host::remove(kFile);
    host::makeLink(kFile, kTarget);
  };
  const ArmedFaults armed{plan};
  EXPECT_THAT(replaceContent(kFile, "new", 0640, SetMode::always), HasCode(status::writeError));
  EXPECT_EQ(host::readFile(kTarget), "old");
}

// --- Writers

TEST_F(FileAccessTest, AnUnfinishedWriterRemovesTheFileThatItMadeButNoOther) {
  {
    FileWriter writer;
    EXPECT_FALSE(writer.isNew());
    ASSERT_THAT(writer.open(kFile, 0600), HasCode(status::success));
    EXPECT_TRUE(writer.isNew());
    EXPECT_THAT(writer.write("text"), HasCode(status::success));
    EXPECT_TRUE(host::exists(kFile));
  }
  EXPECT_FALSE(host::exists(kFile));
  host::writeFile(kFile, "old");
  {
    FileWriter writer;
    ASSERT_THAT(writer.open(kFile, 0600), HasCode(status::success));
    EXPECT_FALSE(writer.isNew());
  }
  EXPECT_EQ(host::readFile(kFile), "old");
}

TEST_F(FileAccessTest, ANewFileIsOpenedWithItsModeLessTheUmask) {
  ::umask(027);
  for (const Access access : {Access::ofStore, Access::ofSystem}) {
    FileWriter writer;
    ASSERT_THAT(writer.open(kFile, 0666, access), HasCode(status::success));
    EXPECT_EQ(host::modeOf(kFile), 0640u);
  }
}

TEST_F(FileAccessTest, AWriterThatFailedToOpenHoldsNoDescriptorAndWritesNothing) {
  host::writeFile(kFile, "old");
  host::makeFifo("/tmp/fifo");
  const UniqueFd reader(::open("/tmp/fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct Case {
    const char* why;
    const char* path;
    FaultPlan plan;
  };
  const Case cases[] = {
      {"a FIFO is rejected", "/tmp/fifo", FaultPlan{}},
      {"a file cannot be statted", kFile, FaultPlan{1, false, EIO, {"fstat"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const std::vector<std::string> before = openDescriptors();
    const ArmedFaults armed{c.plan};
    FileWriter writer;
    EXPECT_THAT(writer.open(c.path, 0600), HasCode(status::openError));
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_THAT(writer.write("text"), HasCode(status::writeError));
    EXPECT_THAT(writer.finish(), HasCode(status::writeError));
  }
  char byte = 0;
  EXPECT_EQ(::read(reader.get(), &byte, 1), 0);
  EXPECT_EQ(host::readFile(kFile), "old");
}

TEST_F(FileAccessTest, AFinishedWriterLeavesExactlyItsBytes) {
  host::writeFile(kFile, "a long old text");
  host::makeLink("/tmp/links/1", kFile);
  const std::vector<std::string> before = openDescriptors();
  FileWriter writer;
  ASSERT_THAT(writer.open("/tmp/links/1", 0600), HasCode(status::success));
  EXPECT_THAT(writer.write("ab"), HasCode(status::success));
  EXPECT_THAT(writer.write("cd"), HasCode(status::success));
  EXPECT_THAT(writer.finish(), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "abcd");
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_THAT(writer.finish(), HasCode(status::writeError));
}

TEST_F(FileAccessTest, ASecondDescriptorIsCloseOnExecAndHasTheLowestFreeNumber) {
  const UniqueFd fd(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const UniqueFd standardInput(::dup(STDIN_FILENO));
  (void)::close(STDIN_FILENO);
  UniqueFd second = duplicateOf(fd.get());
  EXPECT_EQ(second.get(), STDIN_FILENO);
  EXPECT_EQ(::fcntl(second.get(), F_GETFD), FD_CLOEXEC);
  second.reset();
  EXPECT_FALSE(duplicateOf(-1).isOpen());
  EXPECT_EQ(::dup2(standardInput.get(), STDIN_FILENO), STDIN_FILENO);
}

TEST_F(FileAccessTest, AWriterIsCloseOnExec) {
  FileWriter writer;
  ASSERT_THAT(writer.open(kFile, 0600), HasCode(status::success));
  bool found = false;
  for (const std::string& line : openDescriptors()) {
    if (line.find(kFile) == std::string::npos) continue;
    found = true;
    EXPECT_TRUE(isCloseOnExec(std::atoi(line.c_str())));
  }
  EXPECT_TRUE(found);
}

TEST_F(FileAccessTest, TheModeIsSetOnEveryFileOrOnlyOnNewFilesWhateverTheUmask) {
  ::umask(0777);
  EXPECT_THAT(replaceContent(kFile, "x", 0604, SetMode::onNewFiles), HasCode(status::success));
  EXPECT_EQ(host::modeOf(kFile), 0604u);
  EXPECT_THAT(replaceContent(kFile, "x", 0640, SetMode::onNewFiles), HasCode(status::success));
  EXPECT_EQ(host::modeOf(kFile), 0604u);
  EXPECT_THAT(replaceContent(kFile, "x", 0640, SetMode::always), HasCode(status::success));
  EXPECT_EQ(host::modeOf(kFile), 0640u);
}

// --- Faults

// A write succeeds even if one of these calls fails.
bool isHarmless(const Fault& fault) {
  const std::vector<std::string> harmless = {"fchmod", "flock", "fstatat", "pread"};
  const bool isListed = std::find(harmless.begin(), harmless.end(), fault.call) != harmless.end();
  return !fault || (isListed && !fault.fromThereOn);
}

TEST_F(FileAccessTest, AFaultWhileWritingKeepsLinksAndOldFilesAndLeavesNoNewFile) {
  struct Case {
    const char* why;
    const char* path;
    bool isNew;
    std::size_t stepsOfOpening;
    std::size_t steps;
    std::size_t lastCloses = 0;  // closes after these steps, whose failure does not count
    Access access = Access::ofSystem;
  };
  const Case cases[] = {
      // open, flock, fstat; fallocate, write, fchmod, fstat, close
      {"an old file, as the system does", kTarget, false, 3, 8},
      {"a link to an old file, which the system follows", kLink, false, 3, 8},
      // open, open, flock, fstat; write, fchmod, close. The first open only finds that there is no file. If it fails
      // with another error, the write ends.
      {"a new file, as the system does", kFile, true, 4, 7},
      // In the store also an fstat after each open, an fstatat before the writing, and for an old file a pread before
      // the
      // write and the close of a second descriptor.
      {"an old file", kTarget, false, 4, 11, 1, Access::ofStore},
      {"a new file", kFile, true, 5, 9, 0, Access::ofStore},
      // Eighteen more calls walk to the link and to its target; the last call closes the directory of the target.
      {"a link to an old file", kLink, false, 23, 30, 2, Access::ofStore},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const FaultLoop loop{[] {
      host::reset();
      host::writeFile(kTarget, kOldText);
      host::makeLink(kLink, kTarget);
    }};
    const std::size_t steps = forEachFault(
        loop, [&c] { return replaceContent(c.path, kNewText, 0640, SetMode::always, c.access); },
        [&c](const Status& result, const Fault& fault) {
          const bool isOpening = fault.step <= c.stepsOfOpening;
          const bool isCloseOnTheWay = isOpening && fault.call == "close" && !fault.fromThereOn;
          const bool isDropped = isHarmless(fault) || isCloseOnTheWay || fault.step > c.steps;
          const StatusCode failure = isOpening ? status::openError : status::writeError;
          EXPECT_THAT(result, HasCode(isDropped ? status::success : failure));
          if (result.isSuccess()) {
            EXPECT_EQ(host::readFile(c.path), kNewText);
          } else if (!fault.fromThereOn) {  // if every later call fails, the file cannot be removed either
            EXPECT_EQ(host::exists(c.path), !c.isNew);
          }
          EXPECT_THAT(host::readFile(kTarget), AnyOf(kOldText, kNewText));
          if (c.access == Access::ofStore && !result.isSuccess() && !fault.fromThereOn) {
            EXPECT_EQ(host::readFile(kTarget), kOldText);
          }
          EXPECT_EQ(host::tree("/tmp/links"), "l link -> /tmp/target\n");
        });
    EXPECT_EQ(steps, c.steps + c.lastCloses);
  }
}

TEST_F(FileAccessTest, AFailedCopyLeavesNoNewFileAndRemovesNoOldOne) {
  struct Case {
    const char* why;
    std::string old;
    std::size_t stepsBeforeAChange;
    std::size_t steps;
  };
  const Case cases[] = {
      // stat, openat, fstat, open, open, flock, fstat; read, write, fchmod, close, close
      {"a new file", "", 0, 12},
      // stat, openat, fstat, open, flock, fstat, ftruncate; read, write, fchmod, ftruncate, close, close
      {"over an old file", kOldText, 7, 13},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const FaultLoop loop{[&c] {
      host::reset();
      host::writeFile("/tmp/from", kNewText);
      makeOld(c.old);
    }};
    const std::size_t steps = forEachFault(
        loop, [] { return FileUtils::copyFile("/tmp/from", kFile); },
        [&c](const Status& result, const Fault& fault) {
          const bool isLastClose = fault.step == c.steps;  // of the source, which was only read
          EXPECT_EQ(result.isSuccess(), isHarmless(fault) || isLastClose);
          EXPECT_EQ(host::readFile("/tmp/from"), kNewText);
          if (result.isSuccess()) {
            EXPECT_EQ(host::readFile(kFile), kNewText);
          } else if (fault.step <= c.stepsBeforeAChange) {
            EXPECT_EQ(host::readFile(kFile), kOldText);
          } else if (!c.old.empty() || !fault.fromThereOn) {
            EXPECT_EQ(host::exists(kFile), !c.old.empty());
          }
          if (fault.call == "ftruncate") {
            EXPECT_THAT(result, HasCode(status::writeError));
            EXPECT_EQ(result.details(), kFile);
          }
        });
    EXPECT_EQ(steps, c.steps);
  }
}

// --- Old bytes

Status writeToStore(const std::string& text) { return replaceContent(kFile, text, 0640, SetMode::always); }

TEST_F(FileAccessTest, AWriteToTheStoreThatFailsHalfwayPutsTheOldBytesBack) {
  constexpr std::size_t page = 4096;
  struct Case {
    const char* why;
    std::string old;
    std::string text;
  };
  const Case cases[] = {
      {"as long as the old text", "beta\n", "text\n"},
      {"shorter", "beta\n", "lab\n"},
      {"longer than all that is kept", std::string(3 * page, 'x'), "lab\n"},
      {"as long as all that is kept", std::string(page + 4, 'x'), "lab\n"},
      {"longer by one byte", std::string(page + 5, 'x'), "lab\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::writeFile(kFile, c.old);
    {
      const host::FileSizeLimit limit(2);
      EXPECT_THAT(writeToStore(c.text), HasCode(status::writeError));
    }
    EXPECT_EQ(host::readFile(kFile), c.old);
    // A failure after every byte of the new text.
    for (std::size_t written = 0; written < c.text.size(); ++written) {
      FaultPlan plan{written + 1, false, ENOSPC, {"write"}};
      plan.oneByteAtATime = true;
      const ArmedFaults armed(plan);
      EXPECT_THAT(writeToStore(c.text), HasCode(status::writeError));
      EXPECT_EQ(host::readFile(kFile), c.old);
    }
  }
}

TEST_F(FileAccessTest, ALengthenedFileGetsItsOldLengthBack) {
  host::makeDirs("/tmp/disk");
  const host::SmallDisk disk("/tmp/disk", 4096);
  for (const char* old : {"", "old\n"}) {
    host::writeFile("/tmp/disk/file", old);
    // Where no room can be reserved, only the write finds that there is none.
    const ArmedFaults armed(FaultPlan{1, false, EOPNOTSUPP, {"fallocate"}});
    EXPECT_THAT(replaceContent("/tmp/disk/file", std::string(9000, 'x'), 0640, SetMode::always),
                HasCode(status::writeError));
    EXPECT_EQ(host::readFile("/tmp/disk/file"), old);
  }
}

TEST_F(FileAccessTest, AFailedCutPutsTheOldBytesBack) {
  for (const std::string& old : {kNewText, std::string(20000, 'x')}) {
    host::writeFile(kFile, old, 0600);
    const ArmedFaults armed(FaultPlan{1, true, EIO, {"ftruncate"}});
    EXPECT_THAT(writeToStore("lab\n"), HasCode(status::writeError));
    EXPECT_EQ(host::readFile(kFile), old);
    EXPECT_EQ(host::modeOf(kFile), 0640u) << "the old mode does not come back";
  }
}

TEST_F(FileAccessTest, AFailedCloseAfterTheCutPutsTheOldBytesBackIfAllAreKept) {
  for (const std::string& old : {kNewText, std::string(20000, 'x')}) {
    host::writeFile(kFile, old);
    const ArmedFaults armed(FaultPlan{1, false, EIO, {"close"}});
    EXPECT_THAT(writeToStore("lab\n"), HasCode(status::writeError));
    EXPECT_EQ(host::readFile(kFile), old == kNewText ? old : "lab\n");
  }
}

TEST_F(FileAccessTest, AFailureToPutTheOldBytesBackDoesNotHideTheFirstOne) {
  host::writeFile(kFile, "beta\n");
  FaultPlan plan{2, true, ENOSPC, {"write", "pwrite"}};
  plan.oneByteAtATime = true;
  const ArmedFaults armed(plan);
  EXPECT_THAT(writeToStore("lab\n"), HasCode(status::writeError));
  EXPECT_EQ(host::readFile(kFile), "leta\n");
}

TEST_F(FileAccessTest, AWriterThatIsNotFinishedPutsTheOldBytesBack) {
  host::writeFile(kFile, kOldText);
  {
    FileWriter writer;
    ASSERT_THAT(writer.open(kFile, 0600), HasCode(status::success));
    writer.keepOldBytes(kNewText.size());
    EXPECT_THAT(writer.write(kNewText), HasCode(status::success));
    EXPECT_EQ(host::readFile(kFile), kNewText);
  }
  EXPECT_EQ(host::readFile(kFile), kOldText);
}

TEST_F(FileAccessTest, AFailedFinishPutsTheOldBytesBackAtOnce) {
  host::writeFile(kFile, kOldText);
  const std::vector<std::string> before = openDescriptors();
  FileWriter writer;
  ASSERT_THAT(writer.open(kFile, 0600), HasCode(status::success));
  writer.keepOldBytes(kNewText.size());
  EXPECT_THAT(writer.write(kNewText), HasCode(status::success));
  {
    const ArmedFaults armed(FaultPlan{1, false, EIO, {"close"}});
    EXPECT_THAT(writer.finish(), HasCode(status::writeError));
  }
  EXPECT_EQ(host::readFile(kFile), kOldText);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(FileAccessTest, AFileOfTheStoreThatIsNotReadableIsWritten) {
  host::writeFile(kFile, kOldText, 0200);
  const host::BoundByModes bound;
  EXPECT_THAT(replaceContent(kFile, kNewText, 0600, SetMode::always), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), kNewText);
}

TEST_F(FileAccessTest, ACutNeverLengthensAFileThatAnotherProgramHasCut) {
  for (const Access access : {Access::ofStore, Access::ofSystem}) {
    host::writeFile(kFile, kNewText);
    FaultPlan plan;
    plan.calls = {"fchmod"};  // the last call before the cut
    plan.before = [](std::size_t) { ASSERT_EQ(::truncate(kFile, 2), 0); };
    const ArmedFaults armed(plan);
    EXPECT_THAT(replaceContent(kFile, kOldText, 0640, SetMode::always, access), HasCode(status::success));
    EXPECT_EQ(host::readFile(kFile), kOldText.substr(0, 2));
  }
}

// --- Room

TEST_F(FileAccessTest, AFailedReservationStopsAWriteOnlyIfTheDiskIsFull) {
  struct Case {
    int error;
    bool isMissingRoom;
  };
  const Case cases[] = {{ENOSPC, true},      {EDQUOT, true},  {EFBIG, true},  {EIO, true},
                        {EOPNOTSUPP, false}, {ENOSYS, false}, {EPERM, false}, {EINVAL, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(::strerrorname_np(c.error));
    host::writeFile(kFile, kOldText);
    const ArmedFaults armed{FaultPlan{1, false, c.error, {"fallocate"}}};
    EXPECT_THAT(FileUtils::writeString(kFile, kNewText, false),
                HasCode(c.isMissingRoom ? status::writeError : status::success));
    EXPECT_EQ(host::readFile(kFile), c.isMissingRoom ? kOldText : kNewText);
  }
}

TEST_F(FileAccessTest, AsMuchRoomIsReservedAsTheTextTakes) {
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  makeOld("old");
  FileWriter writer;
  ASSERT_THAT(writer.open(kFile, 0640), HasCode(status::success));
  EXPECT_THAT(writer.reserve(2 * page), HasCode(status::success));
  struct stat info = {};
  ASSERT_TRUE(lookAt(kFile, info));
  EXPECT_EQ(static_cast<std::size_t>(info.st_blocks) * 512, 2 * page);
  EXPECT_EQ(info.st_size, 3);
}

TEST_F(FileAccessTest, RoomIsReservedOnlyForATextLongerThanTheOldOne) {
  struct Case {
    const char* why;
    std::string old;
    std::string text;
    std::size_t reservations;
  };
  const Case cases[] = {
      {"longer by a byte", "old", "newe", 1},
      {"as long", "old", "new", 0},
      {"shorter", "old", "n", 0},
      {"a new file", "", "new", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    makeOld(c.old);
    const ArmedFaults counted{FaultPlan{0, false, EIO, {"fallocate"}}};
    EXPECT_THAT(FileUtils::writeString(kFile, c.text, false), HasCode(status::success));
    EXPECT_EQ(counted.count(), c.reservations);
    EXPECT_EQ(host::readFile(kFile), c.text);
  }
  const ArmedFaults counted{FaultPlan{0, false, EIO, {"fallocate", "ftruncate"}}};
  EXPECT_THAT(FileUtils::writeString("/dev/null", "new", false), HasCode(status::success));
  EXPECT_EQ(counted.count(), 0u) << "the null device has no old text either";
}

TEST_F(FileAccessTest, AFaultOfAnOperationOfOneSystemCallGivesTheStatusOfThatOperation) {
  struct Case {
    const char* why;
    StatusCode expected;
    std::function<Status()> operation;
  };
  const Case cases[] = {
      {"mkdir", status::mkdirError, [] { return FileUtils::makeDir("/tmp/new", 0755); }},
      {"unlink", status::unlinkError, [] { return FileUtils::removeFile(kFile); }},
      {"rmdir", status::rmdirError, [] { return FileUtils::removeDir("/tmp/empty"); }},
      {"rename", status::renameError, [] { return FileUtils::renameFile(kFile, "/tmp/other", true); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const FaultLoop loop{[] {
      host::reset();
      host::writeFile(kFile, kOldText);
      host::makeDirs("/tmp/empty");
    }};
    const std::size_t steps = forEachFault(loop, c.operation, [&](const Status& result, const Fault& fault) {
      EXPECT_THAT(result, HasCode(fault ? c.expected : status::success));
    });
    EXPECT_EQ(steps, 1u);
  }
}

// Another process creates and fills the file after our first open has failed and before our second one creates it.
TEST_F(FileAccessTest, AFileThatAnotherProcessHasJustFilledDoesNotCountAsNew) {
  FaultPlan plan;
  plan.calls = {"open"};
  plan.before = [](std::size_t call) {
    if (call == 2) host::writeFile(kFile, kOldText + kOldText + kOldText);
  };
  {
    const ArmedFaults armed{plan};
    EXPECT_THAT(replaceContent(kFile, kNewText, 0640, SetMode::onNewFiles), HasCode(status::success));
  }
  EXPECT_EQ(host::readFile(kFile), kNewText);
}

// Replaces kFile before each lock up to the n-th.
FaultPlan replacementsBeforeLocks(std::size_t n) {
  FaultPlan plan;
  plan.calls = {"flock"};
  plan.before = [n](std::size_t call) {
    if (call > n) return;
    host::remove(kFile);
    host::writeFile(kFile, "another");
  };
  return plan;
}

TEST_F(FileAccessTest, AFileThatIsReplacedBeforeItsLockIsOpenedAgainTwentyTimesAtMost) {
  struct Case {
    std::size_t replacements;
    std::size_t starts;
    bool isReached;
  };
  for (const Case& c : {Case{0, 1, true}, Case{1, 2, true}, Case{19, 20, true}, Case{20, 20, false}}) {
    SCOPED_TRACE(c.replacements);
    host::writeFile(kFile, kOldText);
    const ArmedFaults armed{replacementsBeforeLocks(c.replacements)};
    EXPECT_THAT(replaceContent(kFile, kNewText, 0640, SetMode::always), HasCode(status::success));
    EXPECT_EQ(armed.count(), c.starts);
    EXPECT_EQ(host::readFile(kFile), c.isReached ? kNewText : "another");
  }
}

TEST_F(FileAccessTest, ALockedOpenOfAFileThatIsReplacedTriesAgainUntilTheDeadline) {
  using std::chrono::seconds;
  for (const bool isLate : {false, true}) {
    SCOPED_TRACE(isLate);
    host::writeFile(kFile, kOldText);
    const ArmedFaults armed{replacementsBeforeLocks(1)};
    const SkippedPauses standing;  // so that the deadline comes exactly
    FileWriter writer;
    const auto deadline = FileWriter::Clock::now() + seconds(isLate ? 0 : 5);
    EXPECT_EQ(writer.openLocked(AT_FDCWD, kFile, 0640, deadline), !isLate);
    if (isLate) {
      EXPECT_EQ(errno, EWOULDBLOCK);
    }
    EXPECT_EQ(armed.count(), isLate ? 1u : 2u);
  }
}

TEST_F(FileAccessTest, ALockedOpenMakesAMissingFileWhichStaysOnlyIfItIsFinished) {
  for (const bool isFinished : {false, true}) {
    SCOPED_TRACE(isFinished);
    {
      FileWriter writer;
      ASSERT_TRUE(writer.openLocked(AT_FDCWD, kFile, 0640, FileWriter::Clock::now() + std::chrono::seconds(5)));
      EXPECT_TRUE(writer.isNew());
      if (isFinished) {
        EXPECT_THAT(writer.finish(), HasCode(status::success));
      }
    }
    EXPECT_EQ(host::exists(kFile), isFinished);
  }
}

TEST_F(FileAccessTest, ALockedOpenDoesNotRemoveAFileThatReplacesItsNewOne) {
  for (const bool isLate : {false, true}) {
    SCOPED_TRACE(isLate);
    host::remove(kFile);
    const ArmedFaults armed{replacementsBeforeLocks(1)};
    const SkippedPauses standing;  // so that the deadline comes exactly
    FileWriter writer;
    const auto deadline = FileWriter::Clock::now() + std::chrono::seconds(isLate ? 0 : 5);
    EXPECT_EQ(writer.openLocked(AT_FDCWD, kFile, 0640, deadline), !isLate);
    EXPECT_FALSE(writer.isNew());
    EXPECT_EQ(host::readFile(kFile), "another");
  }
}

TEST_F(FileAccessTest, ALockedOpenWaitsForTheLockUntilTheDeadline) {
  host::writeFile(kFile, kOldText);
  const UniqueFd holder(::open(kFile, O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(holder.get(), LOCK_EX), 0);
  const SkippedPauses skipped;
  FileWriter writer;
  const auto limit = std::chrono::milliseconds(60);
  EXPECT_FALSE(writer.openLocked(AT_FDCWD, kFile, 0640, FileWriter::Clock::now() + limit));
  EXPECT_EQ(errno, EWOULDBLOCK);
  EXPECT_EQ(skipped.total(), limit);
}

TEST_F(FileAccessTest, AMadeFileThatAnotherProcessFillsBeforeTheLockIsNotRemoved) {
  FaultPlan plan;
  plan.calls = {"flock"};
  plan.before = [](std::size_t) { host::writeFile(kFile, kOldText); };
  const ArmedFaults armed{plan};
  {
    FileWriter writer;
    ASSERT_TRUE(writer.openLocked(AT_FDCWD, kFile, 0640, FileWriter::Clock::now() + std::chrono::seconds(5)));
    EXPECT_FALSE(writer.isNew());
  }
  EXPECT_EQ(host::readFile(kFile), kOldText);
}

// Starts a process that writes the file at once. Waits until it has ended, for 100 ms in the constructor and for as
// long as it takes in the destructor.
class OtherWriter {
 public:
  explicit OtherWriter(const std::string& text) : child_(::fork()) {
    if (child_ == 0) {
      // If the child kept our descriptor, it would inherit our lock and then wait for itself until the longest wait is
      // over.
      (void)::close_range(3, ~0U, 0);
      ::_exit(replaceContent(kFile, text, 0640, SetMode::always).isSuccess() ? 0 : 1);
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
    while (!isDone() && std::chrono::steady_clock::now() < end) ::usleep(1000);
  }
  ~OtherWriter() {
    if (!isDone()) {
      EXPECT_EQ(::waitpid(child_, &status_, 0), child_);
    }
    EXPECT_EQ(status_, 0);
  }

 private:
  bool isDone() {
    if (!done_) done_ = ::waitpid(child_, &status_, WNOHANG) == child_;
    return done_;
  }

  const pid_t child_;
  int status_ = 0;
  bool done_ = false;
};

// Another process writes the file before one of our calls. Afterwards the file holds the text of one of the two.
TEST_F(FileAccessTest, WritersOfOneFileTakeTurns) {
  struct Case {
    const char* why;
    std::string old;
    std::string ours;
    std::string theirs;
  };
  const Case cases[] = {
      {"we are shorter", kOldText, "short\n", kNewText},
      {"we are longer", kOldText, kNewText, "short\n"},
      {"a new file, and we are shorter", "", "short\n", kNewText},
      {"a new file, and we are longer", "", kNewText, "short\n"},
  };
  for (const Case& c : cases) {
    for (std::size_t step = 1; step <= 8; ++step) {
      SCOPED_TRACE(std::string(c.why) + ", before step " + std::to_string(step));
      makeOld(c.old);
      std::unique_ptr<OtherWriter> other;
      FaultPlan plan;
      plan.before = [&](std::size_t call) {
        if (call == step) other = std::make_unique<OtherWriter>(c.theirs);
      };
      {
        const ArmedFaults armed{plan};
        EXPECT_THAT(replaceContent(kFile, c.ours, 0640, SetMode::always), HasCode(status::success));
      }
      other.reset();
      EXPECT_THAT(host::readFile(kFile), AnyOf(c.ours, c.theirs));
    }
  }
}

TEST_F(FileAccessTest, AFileThatStaysLockedIsWrittenAfterASecond) {
  host::writeFile(kFile, kOldText);
  const UniqueFd holder(::open(kFile, O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(holder.get(), LOCK_EX), 0);
  const SkippedPauses skipped;
  EXPECT_THAT(replaceContent(kFile, kNewText, 0640, SetMode::always), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), kNewText);
  EXPECT_EQ(skipped.total(), std::chrono::seconds(1));
}

TEST_F(FileAccessTest, ALockIsNotTakenIfAnotherHolderKeepsItUntilTheDeadline) {
  using std::chrono::milliseconds;
  host::writeFile(kFile, kOldText);
  const UniqueFd holder(::open(kFile, O_RDONLY | O_CLOEXEC));
  const UniqueFd other(::open(kFile, O_RDONLY | O_CLOEXEC));
  const auto start = FileWriter::Clock::now();
  EXPECT_TRUE(lockFile(holder.get(), start));
  EXPECT_FALSE(lockFile(other.get(), start + milliseconds(50)));
  EXPECT_GE(FileWriter::Clock::now() - start, milliseconds(50));
  const ArmedFaults armed{FaultPlan{1, true, EOPNOTSUPP, {"flock"}}};
  EXPECT_TRUE(lockFile(other.get(), start)) << "a file system without locks";
}

TEST_F(FileAccessTest, AUsablePathHasBytesButNoZeroByte) {
  host::writeFile(kFile, "12345");
  host::makeLink("/tmp/link", kFile);
  const std::string withZero("/tmp/file\0", 10);
  EXPECT_TRUE(isUsablePath("x"));
  EXPECT_FALSE(isUsablePath(""));
  EXPECT_FALSE(isUsablePath(withZero));
  struct stat info = {};
  EXPECT_TRUE(lookAt("/tmp/link", info));
  EXPECT_EQ(info.st_size, 5);
  for (const std::string& path : {std::string(), withZero, std::string("/tmp/missing")})
    EXPECT_FALSE(lookAt(path, info));
}

TEST_F(FileAccessTest, AWriterReadsItsOpenFileAndWritesItFromTheStartAgain) {
  host::writeFile(kFile, kOldText);
  FileWriter writer;
  const auto deadline = FileWriter::Clock::now() + std::chrono::seconds(5);
  ASSERT_TRUE(writer.openLocked(AT_FDCWD, kFile, 0640, deadline));
  struct stat info = {};
  EXPECT_TRUE(lookAt(kFile, info));
  EXPECT_TRUE(isSameFile(writer.info(), info));
  {
    OpenedFile shared;
    ASSERT_TRUE(writer.share(shared));
    char bytes[4] = {};
    EXPECT_EQ(readSome(shared.fd.get(), bytes, 3), 3);
    EXPECT_EQ(std::string(bytes), "old");
    EXPECT_EQ(::lseek(shared.fd.get(), 0, SEEK_CUR), 3);
    EXPECT_TRUE(writer.rewind());
    EXPECT_EQ(::lseek(shared.fd.get(), 0, SEEK_CUR), 0) << "the position is shared";
  }
  const UniqueFd other(::open(kFile, O_RDONLY | O_CLOEXEC));
  EXPECT_FALSE(lockFile(other.get(), FileWriter::Clock::now())) << "the lock is held on";
  EXPECT_THAT(writer.cutToNothing(), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "");
  EXPECT_TRUE(writer.rewind());
  EXPECT_THAT(writer.write("new"), HasCode(status::success));
  EXPECT_THAT(writer.finish(), HasCode(status::success));
  EXPECT_EQ(host::readFile(kFile), "new");
  OpenedFile none;
  EXPECT_FALSE(writer.share(none));
  EXPECT_FALSE(writer.rewind());
}

TEST_F(FileAccessTest, ALockedOpenTakesOnlyARegularFileOverTrustedLinks) {
  SKIP_WITHOUT_OTHER_USERS();
  host::makeFifo("/tmp/fifo");
  host::writeFile(kTarget, "old");
  linksOfAStranger();
  host::writeFile(kFile, kOldText);
  const UniqueFd holder(::open(kFile, O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(holder.get(), LOCK_EX), 0);
  struct Case {
    const char* path;
    int error;
  };
  for (const Case& c : {Case{"/tmp/fifo", EINVAL}, Case{kLink, ELOOP}, Case{kFile, EWOULDBLOCK}}) {
    SCOPED_TRACE(c.path);
    const std::vector<std::string> before = openDescriptors();
    FileWriter writer;
    EXPECT_FALSE(writer.openLocked(AT_FDCWD, c.path, 0640, FileWriter::Clock::now()));
    EXPECT_EQ(errno, c.error);
    EXPECT_EQ(openDescriptors(), before);
  }
}

}  // namespace
