#include "base/files/CopyFile.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files/FileInfo.h"
#include "base/files/WholeFile.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

class CopyFileTest : public HostTest {};

TEST_F(CopyFileTest, ACopyHasTheBytesAndMode0644WhateverTheUmask) {
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

TEST_F(CopyFileTest, ACopyBelongsToTheCallerAndHasTheCurrentTime) {
  host::writeFile("/tmp/from", "text");
  const timespec longAgo[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, "/tmp/from", longAgo, 0), 0);
  // If the host has one user only, the caller owns every file anyway.
  [[maybe_unused]] const int given = ::chown("/tmp/from", 1000, 1000);
  EXPECT_THAT(FileUtils::copyFile("/tmp/from", "/tmp/to"), HasCode(status::success));
  struct stat copy = {};
  ASSERT_EQ(::stat("/tmp/to", &copy), 0);
  EXPECT_EQ(copy.st_uid, ::geteuid());
  EXPECT_EQ(copy.st_gid, ::getegid());
  EXPECT_GT(copy.st_mtim.tv_sec, 1'700'000'000);
}

TEST_F(CopyFileTest, ACopyLeavesNothingOfALongerFile) {
  host::writeFile("/tmp/from", "short\n");
  host::writeFile("/tmp/to", "a much longer text\n", 0600);
  EXPECT_THAT(FileUtils::copyFile("/tmp/from", "/tmp/to"), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/to"), "short\n");
  EXPECT_EQ(host::modeOf("/tmp/to"), 0644u);
}

TEST_F(CopyFileTest, ACopyContinuesAfterShortReadsAndWrites) {
  host::writeFile("/tmp/from", std::string(5000, 'x'));
  FaultPlan plan;
  plan.oneByteAtATime = true;
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::copyFile("/tmp/from", "/tmp/to"), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/to"), std::string(5000, 'x'));
}

TEST_F(CopyFileTest, TheTargetOfAnotherUsersLinkIsNotCopied) {
  SKIP_WITHOUT_OTHER_USERS();
  host::writeFile("/tmp/secret", "secret", 0600);
  host::makeLink("/tmp/theirs/link", "/tmp/secret");
  EXPECT_THAT(FileUtils::copyFile("/tmp/theirs/link", "/tmp/to"), HasCode(status::success));
  host::remove("/tmp/to");
  host::giveTo(65534, "/tmp/theirs/link");
  EXPECT_THAT(FileUtils::copyFile("/tmp/theirs/link", "/tmp/to"), HasCode(status::openError));
  EXPECT_FALSE(host::exists("/tmp/to"));
}

TEST_F(CopyFileTest, AnEmptyFileAndTheNullDeviceAreCopiedAsEmptyFiles) {
  host::writeFile("/tmp/from", "");
  EXPECT_THAT(FileUtils::copyFile("/tmp/from", "/tmp/one"), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/one"), "");
  EXPECT_THAT(FileUtils::copyFile("/dev/null", "/tmp/two"), HasCode(status::success));
  EXPECT_EQ(host::readFile("/tmp/two"), "");
}

TEST_F(CopyFileTest, ACopyOntoTheNullDeviceKeepsTheDevice) {
  host::writeFile("/tmp/from", "text");
  const mode_t before = host::modeOf("/dev/null");
  EXPECT_THAT(FileUtils::copyFile("/tmp/from", "/dev/null"), HasCode(status::success));
  EXPECT_EQ(host::modeOf("/dev/null"), before);
  EXPECT_FALSE(FileUtils::isRegularFile("/dev/null"));
}

TEST_F(CopyFileTest, ASourceThatGrowsIsCopiedUpToItsFirstSize) {
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

TEST_F(CopyFileTest, AFileThatCannotBeWrittenIsNotCopiedOntoItself) {
  host::writeFile("/tmp/file", "text", 0444);
  host::makeLink("/tmp/link", "/tmp/file");
  const host::BoundByModes bound;
  EXPECT_THAT(FileUtils::copyFile("/tmp/file", "/tmp/file"), HasCode(status::invalidArgument));
  EXPECT_THAT(FileUtils::copyFile("/tmp/file", "/tmp/link"), HasCode(status::invalidArgument));
  EXPECT_EQ(host::readFile("/tmp/file"), "text");
}

TEST_F(CopyFileTest, AFileIsNotCopiedOntoItself) {
  host::writeFile("/tmp/from", "text");
  host::makeLink("/tmp/link", "/tmp/from");
  ASSERT_EQ(::link("/tmp/from", "/tmp/hard"), 0);
  for (const char* to : {"/tmp/from", "/tmp/link", "/tmp/hard", "/tmp/../tmp/from"}) {
    SCOPED_TRACE(to);
    EXPECT_THAT(FileUtils::copyFile("/tmp/from", to), HasCode(status::invalidArgument));
    EXPECT_EQ(host::readFile("/tmp/from"), "text");
  }
}

TEST_F(CopyFileTest, ACopyOfAMissingFileIsAnInvalidArgument) {
  EXPECT_THAT(FileUtils::copyFile("/tmp/missing", "/tmp/to"), HasCode(status::invalidArgument));
  EXPECT_FALSE(host::exists("/tmp/to"));
}

void expectCopyError(const Status& s, StatusCode code, const char* details) {
  EXPECT_THAT(s, HasCode(code));
  EXPECT_EQ(s.details(), details);
  EXPECT_EQ(s.context(), "copyFile");
}

TEST_F(CopyFileTest, AFailedCopyNamesThePath) {
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

TEST_F(CopyFileTest, ACopyThatCannotBeReadOrWrittenNamesThePath) {
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
  plan.calls = {"close"};  // the target is closed first
  {
    const ArmedFaults armed{plan};
    expectCopyError(FileUtils::copyFile("/tmp/from", "/tmp/to"), status::writeError, "/tmp/to");
  }
  EXPECT_FALSE(host::exists("/tmp/to"));
}

TEST_F(CopyFileTest, ASourceThatEndsEarlyEndsTheCopyWithSuccess) {
  // stat reports a size of one page for a file in sysfs, but the file ends much earlier.
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

}  // namespace
