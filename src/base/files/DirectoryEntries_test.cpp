#include "base/files/DirectoryEntries.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

constexpr const char* kFile = "/tmp/file";

class DirectoryEntriesTest : public HostTest {};

TEST_F(DirectoryEntriesTest, MakeDirMakesOneMissingDirectoryWithTheModeLessTheUmask) {
  ::umask(027);
  host::makeDirs("/tmp/directory", 0700);
  host::writeFile("/tmp/file", "");
  host::makeLink("/tmp/nowhere", "/tmp/missing");
  for (const char* path : {"/tmp/new", "/tmp/directory", "/tmp/file", "/tmp/nowhere"}) {
    SCOPED_TRACE(path);
    EXPECT_THAT(FileUtils::makeDir(path, 0755), HasCode(status::success));
  }
  EXPECT_THAT(FileUtils::makeDir("/tmp/a/b", 0755), HasCode(status::mkdirError));
  EXPECT_EQ(host::tree("/tmp"),
            "d 0700 directory\nf 0644 file \"\"\nd 1777 lock\nd 0750 new\nl nowhere -> /tmp/missing\n");
}

TEST_F(DirectoryEntriesTest, MakeNewDirSetsTheModeWhateverTheUmaskAndReportsAnExistingEntry) {
  ::umask(0777);
  EXPECT_EQ(FileUtils::makeNewDir(AT_FDCWD, "/tmp/new", 0755), FileUtils::NewDir::made);
  EXPECT_EQ(host::modeOf("/tmp/new"), 0755u);
  host::writeFile("/tmp/file", "");
  host::makeLink("/tmp/nowhere", "/tmp/missing");
  for (const char* path : {"/tmp/new", "/tmp/file", "/tmp/nowhere"}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(FileUtils::makeNewDir(AT_FDCWD, path, 0755), FileUtils::NewDir::exists);
  }
  EXPECT_EQ(FileUtils::makeNewDir(AT_FDCWD, "/tmp/a/b", 0755), FileUtils::NewDir::failed);
}

TEST_F(DirectoryEntriesTest, ANewDirectoryWhoseModeCannotBeSetStaysOnlyIfItHasTheModeAlready) {
  for (const bool hasMode : {true, false}) {
    SCOPED_TRACE(hasMode);
    host::reset();
    ::umask(hasMode ? 0022 : 0077);
    const ArmedFaults armed{FaultPlan{1, false, EIO, {"fchmodat"}}};
    EXPECT_EQ(FileUtils::makeNewDir(AT_FDCWD, "/tmp/new", 0755),
              hasMode ? FileUtils::NewDir::made : FileUtils::NewDir::failed);
    EXPECT_EQ(host::exists("/tmp/new"), hasMode);
  }
}

TEST_F(DirectoryEntriesTest, AModeIsSetAndTheCurrentModeNeedsNoPermission) {
  host::writeFile(kFile, "", 0600);
  EXPECT_THAT(FileUtils::setMode(kFile, 01666), HasCode(status::success));
  EXPECT_EQ(host::modeOf(kFile), 01666u);
  EXPECT_THAT(FileUtils::setMode("/tmp/missing", 0666), HasCode(status::chmodError));
  const ArmedFaults armed{FaultPlan{1, true, EPERM, {"chmod"}}};
  EXPECT_THAT(FileUtils::setMode(kFile, 0666), HasCode(status::success));  // the sticky bit is none of the nine
  for (unsigned bit = 0; bit < 9; ++bit)
    EXPECT_THAT(FileUtils::setMode(kFile, 0666u ^ (1u << bit)), HasCode(status::chmodError)) << bit;
}

TEST_F(DirectoryEntriesTest, FilesAndEmptyDirectoriesAreRemovedAndAMissingPathCountsAsRemoved) {
  struct Case {
    const char* why;
    Status (*remove)(const std::string& path);
    StatusCode ofMissing, ofFile, ofLink, ofDirectory, ofFullDirectory;
    const char* left;
  };
  const Case cases[] = {
      {"removeFile", FileUtils::removeFile, status::success, status::success, status::success, status::unlinkError,
       status::unlinkError, "d 0755 directory\nd 0755 full\nf 0644 full/file \"\"\n"},
      {"removeDir", FileUtils::removeDir, status::success, status::rmdirError, status::rmdirError, status::success,
       status::rmdirError, "f 0644 file \"\"\nd 0755 full\nf 0644 full/file \"\"\nl link -> full/file\n"},
      {"removePath", FileUtils::removePath, status::success, status::success, status::success, status::success,
       status::rmdirError, "d 0755 full\nf 0644 full/file \"\"\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove("/tmp/all");
    host::writeFile("/tmp/all/file", "");
    host::makeDirs("/tmp/all/directory");
    host::writeFile("/tmp/all/full/file", "");
    host::makeLink("/tmp/all/link", "full/file");
    EXPECT_THAT(c.remove("/tmp/all/missing"), HasCode(c.ofMissing));
    EXPECT_THAT(c.remove("/tmp/all/file"), HasCode(c.ofFile));
    EXPECT_THAT(c.remove("/tmp/all/link"), HasCode(c.ofLink));
    EXPECT_THAT(c.remove("/tmp/all/directory"), HasCode(c.ofDirectory));
    EXPECT_THAT(c.remove("/tmp/all/full"), HasCode(c.ofFullDirectory));
    EXPECT_EQ(host::tree("/tmp/all"), c.left);
  }
}

TEST_F(DirectoryEntriesTest, ARenameReplacesAFileOnlyIfOverwriteIsSet) {
  host::writeFile("/tmp/from", "from");
  host::writeFile("/tmp/to", "to");
  EXPECT_THAT(FileUtils::renameFile("/tmp/from", "/tmp/to", false), HasCode(status::renameError));
  EXPECT_EQ(host::tree("/tmp"), "f 0644 from \"from\"\nd 1777 lock\nf 0644 to \"to\"\n");
  EXPECT_THAT(FileUtils::renameFile("/tmp/from", "/tmp/to", true), HasCode(status::success));
  EXPECT_EQ(host::tree("/tmp"), "d 1777 lock\nf 0644 to \"from\"\n");
}

TEST_F(DirectoryEntriesTest, ARenameToANewNameWorksWithAndWithoutOverwrite) {
  host::writeFile("/tmp/one", "");
  EXPECT_THAT(FileUtils::renameFile("/tmp/one", "/tmp/two", false), HasCode(status::success));
  EXPECT_THAT(FileUtils::renameFile("/tmp/two", "/tmp/three", true), HasCode(status::success));
  EXPECT_THAT(FileUtils::renameFile("/tmp/missing", "/tmp/four", true), HasCode(status::renameError));
  EXPECT_TRUE(host::exists("/tmp/three"));
}

TEST_F(DirectoryEntriesTest, ARenameWithoutOverwriteChecksTheTargetOfALinkAndReplacesAFileThatIsMadeLater) {
  host::writeFile("/tmp/from", "from");
  host::writeFile("/tmp/file", "file");
  host::makeLink("/tmp/link", "file");
  EXPECT_THAT(FileUtils::renameFile("/tmp/from", "/tmp/link", false), HasCode(status::renameError));
  EXPECT_EQ(host::tree("/tmp"), "f 0644 file \"file\"\nf 0644 from \"from\"\nl link -> file\nd 1777 lock\n");
  FaultPlan plan;
  plan.calls = {"rename"};
  plan.before = [](std::size_t) { host::writeFile("/tmp/to", "made meanwhile"); };
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::renameFile("/tmp/from", "/tmp/to", false), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/to"), "from");
}

}  // namespace
