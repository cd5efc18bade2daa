#include "base/files/FileUtils.h"

#include <fcntl.h>
#include <unistd.h>

#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

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
  EXPECT_FALSE(FileUtils::fileExists(""));
  EXPECT_EQ(counted.count(), 0u);
  EXPECT_FALSE(FileUtils::openDirectory("").isOpen());
  EXPECT_EQ(text, "");
  EXPECT_THAT(lines, SizeIs(0));
  EXPECT_THAT(list, SizeIs(0));
}

TEST_F(FileUtilsTest, APathWithAZeroByteIsNeverCutShort) {
  const std::string path("/tmp/file\0behind", 16);
  std::string text;
  EXPECT_THAT(FileUtils::writeString(path, "x", true), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::readFirstLine(path, text), HasCode(status::invalidArgument));
  EXPECT_FALSE(FileUtils::fileExists(path));
  EXPECT_FALSE(host::exists(kFile));
}

}  // namespace
