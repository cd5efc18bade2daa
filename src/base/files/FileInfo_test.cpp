#include "base/files/FileInfo.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <limits>

#include "base/system/UniqueFd.h"
#include "base/text/TimeUtils.h"
#include "testing/models/WallClock.h"
#include "testing/run/HostTest.h"

namespace {

constexpr const char* kFile = "/tmp/file";
constexpr std::int64_t kSecond = 1000000;

class FileInfoTest : public HostTest {};

void setModified(const std::string& path, std::int64_t seconds) {
  const timespec times[2] = {{seconds, 0}, {seconds, 999999999}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

TEST_F(FileInfoTest, TheKindOfAPathIsThatOfTheLinkTarget) {
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

TEST_F(FileInfoTest, ARealDirectoryIsReachedByAPathThatEndsInNoLink) {
  host::makeDirs("/tmp/directory");
  host::makeLink("/tmp/link", "directory");
  host::writeFile(kFile, "");
  EXPECT_TRUE(FileUtils::isRealDirectory("/tmp/directory"));
  for (const std::string& path : {std::string(), std::string("/tmp/directory\0x", 16), std::string("/tmp/missing"),
                                  std::string("/tmp/link"), std::string(kFile)}) {
    EXPECT_FALSE(FileUtils::isRealDirectory(path)) << host::quoted(path);
  }
}

TEST_F(FileInfoTest, ASizeIsInBytesOrMinusOne) {
  host::writeFile(kFile, "12345");
  EXPECT_EQ(FileUtils::fileSize(kFile), 5);
  EXPECT_EQ(FileUtils::fileSize("/tmp/missing"), -1);
  EXPECT_EQ(FileUtils::fileSize(""), -1);
}

TEST_F(FileInfoTest, AModificationTimeIsInWholeSecondsAndZeroIfItIsUnknownOrOverflows) {
  constexpr std::int64_t tooLate = std::numeric_limits<std::int64_t>::max() / kSecond + 1;
  host::writeFile(kFile, "");
  for (const std::int64_t seconds : {std::int64_t{1709294400}, tooLate - 1}) {
    setModified(kFile, seconds);
    EXPECT_EQ(FileUtils::fileModifiedMicros(kFile), seconds * kSecond);
  }
  setModified(kFile, tooLate);
  struct stat info = {};
  ASSERT_EQ(::stat(kFile, &info), 0);
  ASSERT_EQ(info.st_mtime, tooLate);
  EXPECT_EQ(FileUtils::fileModifiedMicros(kFile), 0);
  EXPECT_FALSE(FileUtils::isFreshRegularFile(kFile, 200 * kSecond));
  EXPECT_EQ(FileUtils::fileModifiedMicros("/tmp/missing"), 0);
  EXPECT_EQ(FileUtils::fileModifiedMicros(""), 0);
}

TEST_F(FileInfoTest, AFileIsFreshUntilItReachesTheMaximumAge) {
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

TEST_F(FileInfoTest, TheMaximumAgeItselfIsTooOld) {
  constexpr std::int64_t kModified = 1709294400;
  host::writeFile(kFile, "");
  setModified(kFile, kModified);
  const WallClock clock(kModified * kSecond + 50);
  EXPECT_TRUE(FileUtils::isFreshRegularFile(kFile, 51));
  EXPECT_FALSE(FileUtils::isFreshRegularFile(kFile, 50));
}

TEST_F(FileInfoTest, AnAgeThatDoesNotFitIsTooOld) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  host::writeFile(kFile, "");
  setModified(kFile, -kMost / kSecond);
  struct stat info = {};
  ASSERT_EQ(::stat(kFile, &info), 0);
  if (info.st_mtime != -kMost / kSecond) GTEST_SKIP() << "the file system cannot hold such a time";
  EXPECT_FALSE(FileUtils::isFreshRegularFile(kFile, kMost));
}

TEST_F(FileInfoTest, AFileFromTheFutureIsFreshForAnyAgeDownToMinusItsDistance) {
  host::writeFile(kFile, "");
  setModified(kFile, TimeUtils::nowMicros() / kSecond + 1000);
  for (const std::int64_t maxAge : {std::int64_t{1}, std::int64_t{0}, -500 * kSecond}) {
    EXPECT_TRUE(FileUtils::isFreshRegularFile(kFile, maxAge)) << maxAge;
  }
  EXPECT_FALSE(FileUtils::isFreshRegularFile(kFile, -1500 * kSecond));
}

TEST_F(FileInfoTest, AFifoHasAReaderWhileSomebodyReads) {
  host::makeFifo("/tmp/fifo");
  EXPECT_FALSE(FileUtils::fifoHasReader("/tmp/fifo"));
  {
    const UniqueFd reader(::open("/tmp/fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    EXPECT_TRUE(FileUtils::fifoHasReader("/tmp/fifo"));
  }
  EXPECT_FALSE(FileUtils::fifoHasReader("/tmp/fifo"));
  host::writeFile(kFile, "", 0200);
  EXPECT_TRUE(FileUtils::fifoHasReader(kFile));
  EXPECT_FALSE(FileUtils::fifoHasReader("/tmp/missing"));
  EXPECT_FALSE(FileUtils::fifoHasReader(""));
}

}  // namespace
