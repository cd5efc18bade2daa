#include "base/files/FileUtils.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/files/KeyValueFile.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"
#include "testing/run/LogLines.h"

namespace {

using testing::SizeIs;
using Texts = std::vector<std::string>;

constexpr const char* kFile = "/tmp/file";

class FileUtilsTest : public HostTest {};

TEST_F(FileUtilsTest, AnEmptyPathIsAnInvalidArgumentEverywhereAndMakesNoSystemCall) {
  const ArmedFaults counted{FaultPlan{}};
  std::string text = "old";
  Texts lines{"old"};
  FileUtils::StringList list{"old"};
  EXPECT_THAT(FileUtils::readFile("", text), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::writeFile("", "x", 1), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::writeString("", "x", true), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::writeStoreLine("", "x"), HasCode(status::invalidArgument));
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
  EXPECT_THAT(FileUtils::copyStoreFile("", kFile), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::copyStoreFile("/etc/passwd", ""), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::listDirectory("").status, HasCode(status::invalidArgument));
  EXPECT_EQ(FileUtils::makeNewDir(AT_FDCWD, "", 0755), FileUtils::NewDir::failed);
  EXPECT_EQ(FileUtils::makeUniqueFile("", text), nullptr);
  EXPECT_FALSE(FileUtils::fileExists(""));
  EXPECT_EQ(counted.count(), 0u);
  EXPECT_FALSE(FileUtils::openDirectory("").isOpen());
  EXPECT_EQ(text, "");
  EXPECT_THAT(lines, SizeIs(0));
  EXPECT_THAT(list, SizeIs(0));
}

TEST_F(FileUtilsTest, APathBelowAFileFailsEverywhereLeavesTheFileAndOnlyMakeUniqueFileLogs) {
  constexpr const char* kBelow = "/tmp/file/below";
  host::writeFile(kFile, "text");
  host::writeFile("/tmp/other", "text");
  const LoggedLines log;
  std::string text;
  Texts lines;
  EXPECT_THAT(FileUtils::readFile(kBelow, text), HasCode(status::statError));
  EXPECT_THAT(FileUtils::writeFile(kBelow, "x", 1), HasCode(status::openError));
  EXPECT_THAT(FileUtils::writeString(kBelow, "x", true), HasCode(status::openError));
  EXPECT_THAT(FileUtils::writeStoreLine(kBelow, "x"), HasCode(status::openError));
  EXPECT_THAT(FileUtils::writeLines(kBelow, Texts{"x"}), HasCode(status::openError));
  EXPECT_THAT(FileUtils::readLines(kBelow, lines), HasCode(status::openError));
  EXPECT_THAT(FileUtils::readFirstLine(kBelow, text), HasCode(status::success));
  EXPECT_FALSE(FileUtils::setKeyValue(kBelow, "key", "value"));
  EXPECT_THAT(FileUtils::makeDir(kBelow, 0755), HasCode(status::mkdirError));
  EXPECT_THAT(FileUtils::setMode(kBelow, 0755), HasCode(status::chmodError));
  EXPECT_THAT(FileUtils::removeFile(kBelow), HasCode(status::unlinkError));
  EXPECT_THAT(FileUtils::removeDir(kBelow), HasCode(status::rmdirError));
  EXPECT_THAT(FileUtils::removePath(kBelow), HasCode(status::rmdirError));
  EXPECT_THAT(FileUtils::removeTree(kBelow), HasCode(status::unlinkError));
  EXPECT_THAT(FileUtils::renameFile(kBelow, "/tmp/new", true), HasCode(status::renameError));
  EXPECT_THAT(FileUtils::renameFile("/tmp/other", kBelow, true), HasCode(status::renameError));
  EXPECT_THAT(FileUtils::copyFile(kBelow, "/tmp/new"), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::copyFile("/tmp/other", kBelow), HasCode(status::openError));
  EXPECT_THAT(FileUtils::listDirectory(kBelow).status, HasCode(status::opendirError));
  EXPECT_EQ(FileUtils::makeNewDir(AT_FDCWD, kBelow, 0755), FileUtils::NewDir::failed);
  EXPECT_FALSE(FileUtils::fileExists(kBelow));
  EXPECT_FALSE(FileUtils::isRealDirectory(kBelow));
  EXPECT_FALSE(FileUtils::fifoHasReader(kBelow));
  EXPECT_EQ(FileUtils::fileSize(kBelow), -1);
  EXPECT_EQ(FileUtils::fileModifiedMicros(kBelow), 0);
  EXPECT_THAT(log.lines, SizeIs(0));
  EXPECT_EQ(FileUtils::makeUniqueFile(kBelow, text), nullptr);
  EXPECT_THAT(log.lines, SizeIs(11)) << "only makeUniqueFile logs";
  EXPECT_EQ(host::tree("/tmp"), "f 0644 file \"text\"\nd 1777 lock\nf 0644 other \"text\"\n");
}

TEST_F(FileUtilsTest, ASocketIsNoKindOfFileAndCanBeRenamedAndRemoved) {
  constexpr const char* kSocket = "/tmp/socket";
  host::makeSocket(kSocket);
  EXPECT_TRUE(FileUtils::fileExists(kSocket));
  EXPECT_FALSE(FileUtils::isRegularFile(kSocket));
  EXPECT_FALSE(FileUtils::isDirectory(kSocket));
  EXPECT_FALSE(FileUtils::isFifo(kSocket));
  EXPECT_FALSE(FileUtils::fifoHasReader(kSocket));
  EXPECT_EQ(FileUtils::fileSize(kSocket), 0);
  EXPECT_THAT(FileUtils::listDirectory(kSocket).status, HasCode(status::opendirError));
  EXPECT_THAT(FileUtils::renameFile(kSocket, "/tmp/renamed", false), HasCode(status::success));
  EXPECT_THAT(FileUtils::removeFile("/tmp/renamed"), HasCode(status::success));
  host::makeSocket(kSocket);
  EXPECT_THAT(FileUtils::removeTree(kSocket), HasCode(status::success));
  EXPECT_FALSE(host::exists(kSocket));
}

TEST_F(FileUtilsTest, APathWithAZeroByteIsNeverCutShort) {
  const std::string path("/tmp/file\0behind", 16);
  const std::string other = "/tmp/other";
  std::string text;
  Texts lines;
  const ArmedFaults counted{FaultPlan{}};
  const Status results[] = {
      FileUtils::readFile(path, text),
      FileUtils::writeFile(path, "x", 1),
      FileUtils::writeString(path, "x", true),
      FileUtils::writeStoreLine(path, "x"),
      FileUtils::writeLines(path, Texts{"x"}),
      FileUtils::readLines(path, lines),
      FileUtils::readFirstLine(path, text),
      FileUtils::makeDir(path, 0755),
      FileUtils::setMode(path, 0755),
      FileUtils::removeFile(path),
      FileUtils::removeDir(path),
      FileUtils::removePath(path),
      FileUtils::removeTree(path),
      FileUtils::renameFile(path, other, true),
      FileUtils::renameFile(other, path, true),
      FileUtils::copyFile(path, other),
      FileUtils::copyFile(other, path),
      FileUtils::copyStoreFile(path, other),
      FileUtils::copyStoreFile(other, path),
      FileUtils::listDirectory(path).status,
  };
  for (const Status& result : results) EXPECT_THAT(result, HasCode(status::invalidArgument)) << &result - results;
  EXPECT_EQ(FileUtils::makeNewDir(AT_FDCWD, path, 0755), FileUtils::NewDir::failed);
  EXPECT_EQ(FileUtils::makeUniqueFile(path, text), nullptr);
  EXPECT_FALSE(FileUtils::openDirectory(path).isOpen());
  EXPECT_FALSE(FileUtils::fileExists(path));
  EXPECT_EQ(FileUtils::fileSize(path), -1);
  EXPECT_EQ(counted.count(), 0u);
  EXPECT_FALSE(host::exists(kFile));
}

}  // namespace
