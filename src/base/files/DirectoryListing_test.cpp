#include "base/files/DirectoryListing.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using testing::ElementsAre;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class DirectoryListingTest : public HostTest {};

void makeSocket(const std::string& path) {
  const UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
}

TEST_F(DirectoryListingTest, EntriesAreListedByKind) {
  host::makeDirs("/tmp/list/directory");
  host::makeDirs("/tmp/list/.hidden");
  host::writeFile("/tmp/list/file", "");
  host::makeFifo("/tmp/list/fifo");
  makeSocket("/tmp/list/socket");
  host::makeLink("/tmp/list/to-file", "/tmp/list/file");
  host::makeLink("/tmp/list/to-directory", "/tmp/list/directory");
  host::makeLink("/tmp/list/to-fifo", "/tmp/list/fifo");
  host::makeLink("/tmp/list/to-nothing", "/tmp/missing");
  const FileUtils::DirectoryListing listing = FileUtils::listDirectory("/tmp/list");
  EXPECT_THAT(listing.status, HasCode(status::success));
  EXPECT_EQ(listing.path, "/tmp/list");
  EXPECT_THAT(listing.directories, UnorderedElementsAre("directory", ".hidden"));
  EXPECT_THAT(listing.files, ElementsAre("file"));
  EXPECT_THAT(listing.linksToDirectories, ElementsAre("to-directory"));
  EXPECT_THAT(listing.linksToFiles, ElementsAre("to-file"));
  EXPECT_THAT(listing.others, UnorderedElementsAre("fifo", "socket", "to-fifo", "to-nothing"));
}

TEST_F(DirectoryListingTest, ARelativeLinkTextIsTakenFromTheWorkingDirectory) {
  host::writeFile("/tmp/list/file", "");
  host::makeLink("/tmp/list/link", "file");
  EXPECT_THAT(FileUtils::listDirectory("/tmp/list").others, ElementsAre("link"));
  ASSERT_EQ(::chdir("/tmp/list"), 0);
  EXPECT_THAT(FileUtils::listDirectory("/tmp/list").linksToFiles, ElementsAre("link"));
}

TEST_F(DirectoryListingTest, NamesComeInTheOrderOfTheDirectory) {
  for (const char* name : {"c", "a", "d", "b"}) host::writeFile(std::string("/tmp/list/") + name, "");
  std::vector<std::string> expected;
  DIR* directory = ::opendir("/tmp/list");
  ASSERT_NE(directory, nullptr);
  while (const dirent* entry = ::readdir(directory)) {
    if (entry->d_name[0] != '.') expected.emplace_back(entry->d_name);
  }
  ::closedir(directory);
  EXPECT_EQ(FileUtils::listDirectory("/tmp/list").files, expected);
}

TEST_F(DirectoryListingTest, AnEmptyDirectoryIsListedWithSuccess) {
  host::makeDirs("/tmp/list");
  const FileUtils::DirectoryListing listing = FileUtils::listDirectory("/tmp/list");
  EXPECT_THAT(listing.status, HasCode(status::success));
  EXPECT_THAT(listing.directories, SizeIs(0));
}

TEST_F(DirectoryListingTest, APathThatIsNoReadableDirectoryIsAFailure) {
  host::writeFile("/tmp/file", "");
  host::makeFifo("/tmp/fifo");
  host::makeDirs("/tmp/closed", 0);
  const host::BoundByModes bound;
  for (const char* path : {"/tmp/missing", "/tmp/file", "/tmp/fifo", "/tmp/closed"}) {
    SCOPED_TRACE(path);
    EXPECT_THAT(FileUtils::listDirectory(path).status, HasCode(status::opendirError));
    EXPECT_EQ(FileUtils::listDirectory(path).path, path);
  }
}

TEST_F(DirectoryListingTest, ADirectoryThatCannotBeReadToItsEndIsAFailure) {
  host::makeDirs("/tmp/list/directory");
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"readdir"};
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::listDirectory("/tmp/list").status, HasCode(status::opendirError));
}

TEST_F(DirectoryListingTest, ALinkThatCannotBeReadIsInNoList) {
  host::makeLink("/tmp/list/link", "/tmp");
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"readlinkat"};
  const ArmedFaults armed{plan};
  const FileUtils::DirectoryListing listing = FileUtils::listDirectory("/tmp/list");
  EXPECT_THAT(listing.status, HasCode(status::success));
  EXPECT_THAT(listing.others, SizeIs(0));
  EXPECT_THAT(listing.linksToDirectories, SizeIs(0));
}

TEST_F(DirectoryListingTest, ALinkWhoseTargetCannotBeStattedIsAmongTheOthers) {
  host::makeLink("/tmp/list/link", "/tmp");
  FaultPlan plan;
  plan.at = 1;
  plan.calls = {"stat"};
  const ArmedFaults armed{plan};
  const FileUtils::DirectoryListing listing = FileUtils::listDirectory("/tmp/list");
  EXPECT_THAT(listing.status, HasCode(status::success));
  EXPECT_THAT(listing.others, ElementsAre("link"));
}

TEST_F(DirectoryListingTest, AnUnknownEntryTypeIsFoundWithStat) {
  host::makeDirs("/tmp/list/directory");
  host::writeFile("/tmp/list/file", "");
  host::makeFifo("/tmp/list/fifo");
  host::makeLink("/tmp/list/link", "/tmp/list/directory");
  const UniqueFd fd = FileUtils::openDirectory("/tmp/list");
  EXPECT_EQ(FileUtils::entryType(fd.get(), "directory", DT_UNKNOWN), DT_DIR);
  EXPECT_EQ(FileUtils::entryType(fd.get(), "file", DT_UNKNOWN), DT_REG);
  EXPECT_EQ(FileUtils::entryType(fd.get(), "fifo", DT_UNKNOWN), DT_FIFO);
  EXPECT_EQ(FileUtils::entryType(fd.get(), "link", DT_UNKNOWN), DT_LNK);
  EXPECT_EQ(FileUtils::entryType(fd.get(), "missing", DT_UNKNOWN), DT_UNKNOWN);
  EXPECT_EQ(FileUtils::entryType(fd.get(), "missing", DT_REG), DT_REG);
}

TEST_F(DirectoryListingTest, ListRealDirectoriesListsNoLinks) {
  host::makeProfile("profile-1", "lab");
  host::makeProfile("profile-2", "home");
  host::writeFile("/etc/zuv/profiles/stray", "");
  host::makeLink("/etc/zuv/profiles/link", "/etc/zuv/profiles/profile-1");
  host::makeFifo("/etc/zuv/profiles/fifo");
  host::makeDirs(host::kFactory);
  const UniqueFd root = FileUtils::openDirectory(host::kProfiles);
  std::vector<std::string> names{"kept"};
  EXPECT_THAT(FileUtils::listRealDirectories(root.get(), names), HasCode(status::success));
  EXPECT_THAT(names, UnorderedElementsAre("kept", "profile-1", "profile-2", ".factory"));
  names.clear();
  EXPECT_THAT(FileUtils::listRealDirectories(root.get(), names), HasCode(status::success));
  EXPECT_THAT(names, SizeIs(3));  // the descriptor's read position has not changed
}

TEST_F(DirectoryListingTest, AFailedListRealDirectoriesDoesNotChangeTheNames) {
  host::makeProfile("profile-1", "lab");
  const UniqueFd root = FileUtils::openDirectory(host::kProfiles);
  std::vector<std::string> names{"kept"};
  EXPECT_THAT(FileUtils::listRealDirectories(-1, names), HasCode(status::opendirError));
  FaultPlan plan;
  for (plan.at = 1; plan.at <= 4; ++plan.at) {
    plan.calls = {"readdir"};
    const ArmedFaults armed{plan};
    EXPECT_THAT(FileUtils::listRealDirectories(root.get(), names), HasCode(status::opendirError));
    EXPECT_THAT(names, ElementsAre("kept"));
  }
}

TEST_F(DirectoryListingTest, OpenDirectoryOpensOnlyDirectories) {
  host::writeFile("/tmp/file", "");
  host::makeFifo("/tmp/fifo");
  host::makeLink("/tmp/link", "/etc");
  EXPECT_FALSE(FileUtils::openDirectory("/tmp/file").isOpen());
  EXPECT_FALSE(FileUtils::openDirectory("/tmp/fifo").isOpen());
  EXPECT_FALSE(FileUtils::openDirectory("/tmp/missing").isOpen());
  const UniqueFd fd = FileUtils::openDirectory("/tmp/link");
  ASSERT_TRUE(fd.isOpen());
  EXPECT_EQ(::fcntl(fd.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(DirectoryListingTest, AListingThatFailsAnywhereLeaksNothing) {
  const FaultLoop loop{[] {
    host::reset();
    host::makeDirs("/tmp/list/directory");
    host::makeLink("/tmp/list/link", "/tmp");
  }};
  const std::size_t steps = forEachFault(
      loop, [] { return FileUtils::listDirectory("/tmp/list").status; },
      [](const Status& result, const Fault& fault) {
        const bool isPassedOver = fault.call == "readlinkat" || fault.call == "stat" || fault.call == "closedir";
        EXPECT_THAT(result, HasCode(fault && !(isPassedOver && !fault.fromThereOn) && fault.call != "closedir"
                                        ? status::opendirError
                                        : status::success));
      });
  EXPECT_EQ(steps, 10u);  // openat, fdopendir, readdir 5, readlinkat, stat, closedir
}

}  // namespace
