#include "base/files/CopyFile.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files/FileInfo.h"
#include "base/files/WholeFile.h"
#include "base/system/UniqueFd.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

constexpr const char* kFrom = "/tmp/from";
constexpr const char* kTo = "/tmp/to";

class CopyFileTest : public HostTest {};

TEST_F(CopyFileTest, ACopyHasExactlyTheBytesAndMode0644WhateverTheUmask) {
  const std::string content = std::string(10000, 'x') + std::string("\0end", 4);
  host::writeFile(kFrom, content, 0600);
  for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
    ::umask(mask);
    for (const bool isNew : {true, false}) {
      SCOPED_TRACE(isNew ? "a new file" : "over a longer file");
      host::remove(kTo);
      if (!isNew) host::writeFile(kTo, content + "more", 0600);
      EXPECT_THAT(FileUtils::copyFile(kFrom, kTo), HasCode(status::success));
      EXPECT_EQ(host::readFile(kTo), content);
      EXPECT_EQ(host::modeOf(kTo), 0644u);
    }
  }
}

TEST_F(CopyFileTest, ACopyBelongsToTheCallerAndHasTheCurrentTime) {
  host::writeFile(kFrom, "text");
  const timespec longAgo[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, kFrom, longAgo, 0), 0);
  // If the host has one user only, the caller owns every file anyway.
  [[maybe_unused]] const int given = ::chown(kFrom, 1000, 1000);
  EXPECT_THAT(FileUtils::copyFile(kFrom, kTo), HasCode(status::success));
  struct stat copy = {};
  ASSERT_EQ(::stat(kTo, &copy), 0);
  EXPECT_EQ(copy.st_uid, ::geteuid());
  EXPECT_EQ(copy.st_gid, ::getegid());
  EXPECT_GT(copy.st_mtim.tv_sec, 1'700'000'000);
}

TEST_F(CopyFileTest, EachReadAndWriteHasFourKibibytesAtMostAndTheEndIsNotRead) {
  const struct {
    std::size_t size;
    std::size_t pieces;
  } cases[] = {{0, 0}, {1, 1}, {4096, 1}, {4097, 2}, {8192, 2}, {8193, 3}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.size);
    host::writeFile(kFrom, std::string(c.size, 'x'));
    const ArmedFaults counted{FaultPlan{0, false, EIO, {"read", "write"}}};
    EXPECT_THAT(FileUtils::copyFile(kFrom, kTo), HasCode(status::success));
    EXPECT_EQ(counted.count(), 2 * c.pieces);
  }
}

TEST_F(CopyFileTest, ACopyContinuesAfterShortReadsAndWrites) {
  host::writeFile(kFrom, std::string(5000, 'x'));
  const ArmedFaults armed{FaultPlan{0, false, EIO, {}, true}};
  EXPECT_THAT(FileUtils::copyFile(kFrom, kTo), HasCode(status::success));
  EXPECT_EQ(host::readFile(kTo), std::string(5000, 'x'));
}

TEST_F(CopyFileTest, ACopyInTheStoreFollowsOnlyTrustedLinks) {
  SKIP_WITHOUT_OTHER_USERS();
  host::writeFile("/tmp/secret", "secret", 0600);
  host::makeLink("/tmp/theirs/link", "/tmp/secret");
  EXPECT_THAT(FileUtils::copyStoreFile("/tmp/theirs/link", kTo), HasCode(status::success));
  EXPECT_EQ(host::readFile(kTo), "secret");
  host::remove(kTo);
  host::giveTo(65534, "/tmp/theirs/link");
  EXPECT_THAT(FileUtils::copyStoreFile("/tmp/theirs/link", kTo), HasCode(status::openError));
  EXPECT_FALSE(host::exists(kTo));
  EXPECT_THAT(FileUtils::copyFile("/tmp/theirs/link", kTo), HasCode(status::success)) << "as the system does";
}

TEST_F(CopyFileTest, AnOwnersLinkToHisOwnFileIsNotCopiedInTheStore) {
  SKIP_WITHOUT_OTHER_USERS();
  host::writeFile("/tmp/theirs/file", "text");
  host::makeLink("/tmp/theirs/link", "file");
  for (const char* path : {"/tmp/theirs/file", "/tmp/theirs/link", "/tmp/theirs"}) host::giveTo(65534, path);
  EXPECT_THAT(FileUtils::copyStoreFile("/tmp/theirs/file", kTo), HasCode(status::success));
  host::remove(kTo);
  EXPECT_THAT(FileUtils::copyStoreFile("/tmp/theirs/link", kTo), HasCode(status::openError));
  EXPECT_FALSE(host::exists(kTo));
}

TEST_F(CopyFileTest, ACopyOfASetUidProgramHasMode0644EvenIfItReplacesOne) {
  host::writeFile(kFrom, "text", 04755);
  for (const auto& copy : {FileUtils::copyFile, FileUtils::copyStoreFile}) {
    host::writeFile(kTo, "old", 04755);
    EXPECT_THAT(copy(kFrom, kTo), HasCode(status::success));
    EXPECT_EQ(host::modeOf(kTo), 0644u);
    host::remove(kTo);
    EXPECT_THAT(copy(kFrom, kTo), HasCode(status::success));
    EXPECT_EQ(host::modeOf(kTo), 0644u);
  }
}

TEST_F(CopyFileTest, ACopyBeyondTheFileSizeLimitIsAWriteErrorAndLeavesNoNewFile) {
  host::writeFile(kFrom, std::string(10000, 'x'));
  const host::FileSizeLimit limit(5000);
  for (const auto& copy : {FileUtils::copyFile, FileUtils::copyStoreFile}) {
    const Status s = copy(kFrom, kTo);
    EXPECT_THAT(s, HasCode(status::writeError));
    EXPECT_EQ(s.details(), kTo);
    EXPECT_FALSE(host::exists(kTo));
  }
}

TEST_F(CopyFileTest, ASourceOfSizeZeroIsCopiedAsAnEmptyFileAndInTheStoreOnlyIfItIsRegular) {
  host::writeFile(kFrom, "");
  host::makeFifo("/tmp/fifo");
  struct Case {
    const char* from;
    StatusCode ofStore;
  };
  const Case cases[] = {{kFrom, status::success},
                        {"/dev/null", status::success},
                        {"/dev/zero", status::openError},
                        {"/tmp/fifo", status::openError}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.from);
    host::remove(kTo);
    EXPECT_THAT(FileUtils::copyStoreFile(c.from, kTo), HasCode(c.ofStore));
    EXPECT_EQ(host::exists(kTo), c.ofStore == status::success);
    EXPECT_THAT(FileUtils::copyFile(c.from, kTo), HasCode(status::success));
    EXPECT_EQ(host::readFile(kTo), "");
  }
}

TEST_F(CopyFileTest, ACopyIntoAFifoWithAReaderArrives) {
  host::writeFile(kFrom, "text");
  host::makeFifo("/tmp/fifo", 0600);
  const UniqueFd reader(::open("/tmp/fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_THAT(FileUtils::copyStoreFile(kFrom, "/tmp/fifo"), HasCode(status::openError));
  EXPECT_THAT(FileUtils::copyFile(kFrom, "/tmp/fifo"), HasCode(status::success));
  char bytes[16] = {};
  EXPECT_EQ(::read(reader.get(), bytes, sizeof bytes), 4);
  EXPECT_STREQ(bytes, "text");
  EXPECT_EQ(host::modeOf("/tmp/fifo"), 0600u);
}

TEST_F(CopyFileTest, ACopyOntoTheNullDeviceKeepsTheDevice) {
  host::writeFile(kFrom, "text");
  const mode_t before = host::modeOf("/dev/null");
  EXPECT_THAT(FileUtils::copyFile(kFrom, "/dev/null"), HasCode(status::success));
  EXPECT_EQ(host::modeOf("/dev/null"), before);
  EXPECT_FALSE(FileUtils::isRegularFile("/dev/null"));
}

TEST_F(CopyFileTest, ASourceThatGrowsIsCopiedUpToItsFirstSize) {
  host::writeFile(kFrom, std::string(5000, 'x'));
  FaultPlan plan;
  plan.calls = {"read"};
  plan.before = [](std::size_t call) {
    if (call == 2) host::writeFile(kFrom, std::string(20000, 'x'));
  };
  {
    const ArmedFaults armed{plan};
    EXPECT_THAT(FileUtils::copyFile(kFrom, kTo), HasCode(status::success));
    EXPECT_EQ(armed.count(), 2u);
  }
  EXPECT_EQ(FileUtils::fileSize(kTo), 5000);
}

TEST_F(CopyFileTest, AFileIsNotCopiedOntoItselfEvenIfItCannotBeWritten) {
  host::writeFile(kFrom, "text");
  host::makeLink("/tmp/link", kFrom);
  ASSERT_EQ(::link(kFrom, "/tmp/hard"), 0);
  const host::BoundByModes bound;
  for (const mode_t mode : {mode_t{0644}, mode_t{0444}}) {
    SCOPED_TRACE(mode);
    host::setMode(kFrom, mode);
    for (const char* to : {kFrom, "/tmp/link", "/tmp/hard", "/tmp/../tmp/from"}) {
      SCOPED_TRACE(to);
      EXPECT_THAT(FileUtils::copyFile(kFrom, to), HasCode(status::invalidArgument));
      EXPECT_EQ(host::readFile(kFrom), "text");
    }
  }
}

TEST_F(CopyFileTest, ACopyOfAMissingFileIsAnInvalidArgument) {
  for (const std::string& from : {std::string("/tmp/missing"), std::string("/tmp/from\0x", 11), std::string()}) {
    const Status s = FileUtils::copyFile(from, kTo);
    EXPECT_THAT(s, HasCode(status::invalidArgument));
    EXPECT_EQ(s.details(), "");
  }
  EXPECT_FALSE(host::exists(kTo));
}

void expectCopyError(const Status& s, StatusCode code, const char* details) {
  EXPECT_THAT(s, HasCode(code));
  EXPECT_EQ(s.details(), details);
  EXPECT_EQ(s.context(), "copyFile");
  EXPECT_FALSE(host::exists(kTo));
}

TEST_F(CopyFileTest, TheErrorOfACopyNamesTheSourceOrTargetThatFailed) {
  host::writeFile(kFrom, "text");
  host::writeFile("/tmp/unreadable", "text", 0);
  host::writeFile("/tmp/directory/file", "");
  host::makeFifo("/tmp/fifo");
  host::makeSocket("/tmp/socket");
  struct Case {
    const char* why;
    const char* from;
    const char* to;
    StatusCode ofSystem;
    const char* named;
  };
  const Case cases[] = {
      {"a source without permission", "/tmp/unreadable", kTo, status::openError, "/tmp/unreadable"},
      {"a directory is opened but cannot be read", "/tmp/directory", kTo, status::readError, "/tmp/directory"},
      {"a socket as source", "/tmp/socket", kTo, status::openError, "/tmp/socket"},
      {"a directory as target", kFrom, "/tmp/directory", status::openError, "/tmp/directory"},
      {"a FIFO without a reader", kFrom, "/tmp/fifo", status::openError, "/tmp/fifo"},
      {"a socket as target", kFrom, "/tmp/socket", status::openError, "/tmp/socket"},
      {"a full device is opened but cannot be written", kFrom, "/dev/full", status::writeError, "/dev/full"},
      {"a path below a missing directory", kFrom, "/tmp/a/b", status::openError, "/tmp/a/b"},
  };
  const host::BoundByModes bound;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    expectCopyError(FileUtils::copyFile(c.from, c.to), c.ofSystem, c.named);
    expectCopyError(FileUtils::copyStoreFile(c.from, c.to), status::openError, c.named);
  }
}

TEST_F(CopyFileTest, AFileThatCannotBeReadOrWrittenIsNamedInTheErrorOfTheCopy) {
  host::writeFile(kFrom, "text");
  struct Case {
    const char* call;
    StatusCode code;
    const char* path;
  };
  const Case cases[] = {
      {"read", status::readError, kFrom},
      {"write", status::writeError, kTo},
      {"close", status::writeError, kTo},  // the target is closed first
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.call);
    const ArmedFaults armed{FaultPlan{1, false, EIO, {c.call}}};
    expectCopyError(FileUtils::copyFile(kFrom, kTo), c.code, c.path);
  }
}

TEST_F(CopyFileTest, ASourceThatEndsBeforeItsReportedSizeIsCopiedToItsEnd) {
  // stat reports a size of one page for a file in sysfs, but the file ends much earlier.
  constexpr const char* kPage = "/tmp/sys/class/net/lo/mtu";
  host::makeDirs("/tmp/sys");
  if (::mount("sysfs", "/tmp/sys", "sysfs", MS_RDONLY, nullptr) != 0) GTEST_SKIP() << "needs a sysfs of its own";
  const std::string content = host::readFile(kPage);
  ASSERT_EQ(FileUtils::fileSize(kPage), 4096);
  EXPECT_THAT(FileUtils::copyFile(kPage, kTo), HasCode(status::success));
  EXPECT_EQ(host::readFile(kTo), content);
  std::string bytes;
  EXPECT_THAT(FileUtils::readFile(kPage, bytes), HasCode(status::success));
  EXPECT_EQ(bytes, content);
  EXPECT_EQ(::umount("/tmp/sys"), 0);
}

}  // namespace
