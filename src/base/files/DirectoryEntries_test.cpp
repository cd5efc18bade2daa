#include "base/files/DirectoryEntries.h"

#include <sys/stat.h>
#include <unistd.h>

#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

constexpr const char* kFile = "/tmp/file";

class DirectoryEntriesTest : public HostTest {};

TEST_F(DirectoryEntriesTest, ADirectoryIsMadeWithTheModeLessTheUmask) {
  ::umask(027);
  EXPECT_THAT(FileUtils::makeDir("/tmp/new", 0755), HasCode(status::success));
  EXPECT_EQ(host::modeOf("/tmp/new"), 0750u);
}

TEST_F(DirectoryEntriesTest, AnExistingEntryCountsAsADirectoryMade) {
  host::makeDirs("/tmp/there", 0700);
  EXPECT_THAT(FileUtils::makeDir("/tmp/there", 0755), HasCode(status::success));
  EXPECT_EQ(host::modeOf("/tmp/there"), 0700u);
  host::writeFile(kFile, "");
  EXPECT_THAT(FileUtils::makeDir(kFile, 0755), HasCode(status::success));
}

TEST_F(DirectoryEntriesTest, MissingParentDirectoriesAreNotMade) {
  EXPECT_THAT(FileUtils::makeDir("/tmp/a/b", 0755), HasCode(status::mkdirError));
  EXPECT_FALSE(host::exists("/tmp/a"));
}

TEST_F(DirectoryEntriesTest, ANewDirectoryHasItsModeWhateverTheUmask) {
  ::umask(0777);
  EXPECT_EQ(FileUtils::makeNewDir("/tmp/new", 0755), FileUtils::NewDir::made);
  EXPECT_EQ(host::modeOf("/tmp/new"), 0755u);
}

TEST_F(DirectoryEntriesTest, AnExistingEntryOfAnyKindIsReportedAsExisting) {
  host::makeDirs("/tmp/directory");
  host::writeFile("/tmp/file", "");
  host::makeLink("/tmp/nowhere", "/tmp/missing");
  for (const char* path : {"/tmp/directory", "/tmp/file", "/tmp/nowhere"}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(FileUtils::makeNewDir(path, 0755), FileUtils::NewDir::exists);
  }
  EXPECT_EQ(FileUtils::makeNewDir("/tmp/a/b", 0755), FileUtils::NewDir::failed);
}

TEST_F(DirectoryEntriesTest, ANewDirectoryWhoseModeCannotBeSetIsRemovedAgain) {
  ::umask(0077);
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"chmod"};
  const ArmedFaults armed{plan};
  EXPECT_EQ(FileUtils::makeNewDir("/tmp/new", 0755), FileUtils::NewDir::failed);
  EXPECT_FALSE(host::exists("/tmp/new"));
}

TEST_F(DirectoryEntriesTest, AModeIsSet) {
  host::writeFile(kFile, "", 0600);
  EXPECT_THAT(FileUtils::setMode(kFile, 0666), HasCode(status::success));
  EXPECT_EQ(host::modeOf(kFile), 0666u);
  EXPECT_THAT(FileUtils::setMode("/tmp/missing", 0666), HasCode(status::chmodError));
}

TEST_F(DirectoryEntriesTest, SettingTheCurrentModeNeedsNoPermission) {
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

TEST_F(DirectoryEntriesTest, AMissingPathCountsAsRemoved) {
  EXPECT_THAT(FileUtils::removeFile("/tmp/missing"), HasCode(status::success));
  EXPECT_THAT(FileUtils::removeDir("/tmp/missing"), HasCode(status::success));
  EXPECT_THAT(FileUtils::removePath("/tmp/missing"), HasCode(status::success));
}

TEST_F(DirectoryEntriesTest, FilesAndEmptyDirectoriesAreRemoved) {
  host::writeFile("/tmp/file", "");
  host::makeDirs("/tmp/directory");
  EXPECT_THAT(FileUtils::removeFile("/tmp/directory"), HasCode(status::unlinkError));
  EXPECT_THAT(FileUtils::removeDir("/tmp/file"), HasCode(status::rmdirError));
  EXPECT_THAT(FileUtils::removeFile("/tmp/file"), HasCode(status::success));
  EXPECT_THAT(FileUtils::removeDir("/tmp/directory"), HasCode(status::success));
  EXPECT_FALSE(host::exists("/tmp/file"));
  EXPECT_FALSE(host::exists("/tmp/directory"));
}

TEST_F(DirectoryEntriesTest, RemovePathRemovesFilesAndEmptyDirectories) {
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

TEST_F(DirectoryEntriesTest, ALinkIsRemovedAndItsTargetStays) {
  host::writeFile(kFile, "x");
  host::makeLink("/tmp/link", kFile);
  EXPECT_THAT(FileUtils::removeFile("/tmp/link"), HasCode(status::success));
  EXPECT_FALSE(host::exists("/tmp/link"));
  EXPECT_TRUE(host::exists(kFile));
}

TEST_F(DirectoryEntriesTest, ARenameReplacesAFileOnlyIfOverwriteIsSet) {
  host::writeFile("/tmp/from", "from");
  host::writeFile("/tmp/to", "to");
  EXPECT_THAT(FileUtils::renameFile("/tmp/from", "/tmp/to", false), HasCode(status::renameError));
  EXPECT_EQ(host::readFile("/tmp/from"), "from");
  EXPECT_EQ(host::readFile("/tmp/to"), "to");
  EXPECT_THAT(FileUtils::renameFile("/tmp/from", "/tmp/to", true), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/to"), "from");
  EXPECT_FALSE(host::exists("/tmp/from"));
}

TEST_F(DirectoryEntriesTest, ARenameToANewNameWorksWithAndWithoutOverwrite) {
  host::writeFile("/tmp/one", "");
  EXPECT_THAT(FileUtils::renameFile("/tmp/one", "/tmp/two", false), HasCode(status::success));
  EXPECT_THAT(FileUtils::renameFile("/tmp/two", "/tmp/three", true), HasCode(status::success));
  EXPECT_THAT(FileUtils::renameFile("/tmp/missing", "/tmp/four", true), HasCode(status::renameError));
  EXPECT_TRUE(host::exists("/tmp/three"));
}

}  // namespace
