#include "base/files/DirectoryListing.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using testing::ElementsAre;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class DirectoryListingTest : public HostTest {};

TEST_F(DirectoryListingTest, EntriesAreListedByKind) {
  host::makeDirs("/tmp/list/directory");
  host::makeDirs("/tmp/list/.hidden");
  host::writeFile("/tmp/list/file", "");
  host::makeFifo("/tmp/list/fifo");
  host::makeSocket("/tmp/list/socket");
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

TEST_F(DirectoryListingTest, ARelativeLinkIsResolvedFromTheWorkingDirectory) {
  host::writeFile("/tmp/list/file", "");
  host::makeLink("/tmp/list/link", "file");
  EXPECT_THAT(FileUtils::listDirectory("/tmp/list").others, ElementsAre("link"));
  ASSERT_EQ(::chdir("/tmp/list"), 0);
  EXPECT_THAT(FileUtils::listDirectory("/tmp/list").linksToFiles, ElementsAre("link"));
}

TEST_F(DirectoryListingTest, ARelativeLinkInAnOpenDirectoryIsResolvedFromThereIfTheCallerRequestsIt) {
  using FileUtils::LinkBase;
  host::writeFile("/tmp/list/file", "");
  host::makeLink("/tmp/list/link", "file");
  host::makeLink("/tmp/list/up", "../list");
  host::makeLink("/tmp/list/absolute", "/tmp/list/file");
  host::makeDirs("/tmp/elsewhere/file");  // of the same name, but another kind
  const UniqueFd fd = FileUtils::openDirectory("/tmp/list");
  ASSERT_EQ(::chdir("/tmp/elsewhere"), 0);
  const FileUtils::DirectoryListing own = FileUtils::listOpenDirectory(fd.get(), LinkBase::ownDirectory);
  EXPECT_THAT(own.status, HasCode(status::success));
  EXPECT_EQ(own.path, "");
  EXPECT_THAT(own.linksToFiles, UnorderedElementsAre("link", "absolute"));
  EXPECT_THAT(own.linksToDirectories, ElementsAre("up"));
  for (int i = 0; i < 2; ++i) {  // the first listing has not moved the read position
    const FileUtils::DirectoryListing working = FileUtils::listOpenDirectory(fd.get());
    EXPECT_THAT(working.linksToFiles, ElementsAre("absolute"));
    EXPECT_THAT(working.linksToDirectories, UnorderedElementsAre("link", "up"));
    EXPECT_THAT(working.files, ElementsAre("file"));
  }
}

TEST_F(DirectoryListingTest, HoldsOnlyIsTrueIfNoEntryOfAnyKindHasAnotherName) {
  struct Case {
    const char* why;
    void (*make)();
    bool expected;
  };
  const Case cases[] = {
      {"an empty directory", [] {}, true},
      {"the file alone", [] { host::writeFile("/tmp/list/last", ""); }, true},
      {"a directory of the name", [] { host::makeDirs("/tmp/list/last/more"); }, true},
      {"another file", [] { host::writeFile("/tmp/list/other", ""); }, false},
      {"a longer name", [] { host::writeFile("/tmp/list/lastly", ""); }, false},
      {"a hidden file", [] { host::writeFile("/tmp/list/.last", ""); }, false},
      {"a broken link", [] { host::makeLink("/tmp/list/broken", "missing"); }, false},
      {"a FIFO beside the file",
       [] {
         host::writeFile("/tmp/list/last", "");
         host::makeFifo("/tmp/list/fifo");
       },
       false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove("/tmp/list");
    host::makeDirs("/tmp/list");
    c.make();
    const UniqueFd fd = FileUtils::openDirectory("/tmp/list");
    EXPECT_EQ(FileUtils::holdsOnly(fd.get(), "last"), c.expected);
    EXPECT_EQ(FileUtils::holdsOnly(fd.get(), "last"), c.expected) << "again: the read position has not changed";
  }
  EXPECT_FALSE(FileUtils::holdsOnly(-1, "last"));
}

TEST_F(DirectoryListingTest, HoldsOnlyIsFalseIfTheDirectoryCannotBeReadToItsEnd) {
  host::writeFile("/tmp/list/last", "");
  const UniqueFd fd = FileUtils::openDirectory("/tmp/list");
  const std::size_t steps = forEachFault(
      FaultLoop{nullptr}, [&fd] { return FileUtils::holdsOnly(fd.get(), "last"); },
      [](bool result, const Fault& fault) { EXPECT_EQ(result, !fault || fault.call == "closedir"); });
  EXPECT_EQ(steps, 7u);  // openat, fdopendir, readdir 4, closedir
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

TEST_F(DirectoryListingTest, OnlyAReadableDirectoryIsOpenedAndListed) {
  host::makeDirs("/tmp/empty");
  host::makeLink("/tmp/link", "/tmp/empty");
  host::writeFile("/tmp/file", "");
  host::makeFifo("/tmp/fifo");
  host::makeDirs("/tmp/closed", 0);
  struct Case {
    const char* path;
    bool isOpened;
  };
  const Case cases[] = {{"/tmp/empty", true}, {"/tmp/link", true},  {"/tmp/missing", false},
                        {"/tmp/file", false}, {"/tmp/fifo", false}, {"/tmp/closed", false}};
  const host::BoundByModes bound;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    const FileUtils::DirectoryListing listing = FileUtils::listDirectory(c.path);
    EXPECT_THAT(listing.status, HasCode(c.isOpened ? status::success : status::opendirError));
    EXPECT_EQ(listing.path, c.path);
    EXPECT_THAT(listing.directories, SizeIs(0));
    const UniqueFd fd = FileUtils::openDirectory(c.path);
    EXPECT_EQ(fd.isOpen(), c.isOpened);
    EXPECT_EQ(::fcntl(fd.get(), F_GETFD), c.isOpened ? FD_CLOEXEC : -1);
  }
}

TEST_F(DirectoryListingTest, ALinkThatCannotBeReadOrFollowedDoesNotFailTheListing) {
  host::makeLink("/tmp/list/link", "/tmp");
  struct Case {
    const char* why;
    const char* call;
    std::vector<std::string> others;
  };
  const Case cases[] = {
      {"a link that cannot be read is in no list", "readlinkat", {}},
      {"a link whose target cannot be statted is among the others", "stat", {"link"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const ArmedFaults armed{FaultPlan{1, false, EIO, {c.call}}};
    const FileUtils::DirectoryListing listing = FileUtils::listDirectory("/tmp/list");
    EXPECT_THAT(listing.status, HasCode(status::success));
    EXPECT_EQ(listing.others, c.others);
    EXPECT_THAT(listing.linksToDirectories, SizeIs(0));
  }
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

TEST_F(DirectoryListingTest, ListRealDirectoriesListsNoLinksAndAddsNothingIfItFails) {
  host::makeProfile("profile-1", "lab");
  host::makeProfile("profile-2", "home");
  host::writeFile("/etc/zuv/profiles/stray", "");
  host::makeLink("/etc/zuv/profiles/link", "/etc/zuv/profiles/profile-1");
  host::makeFifo("/etc/zuv/profiles/fifo");
  host::makeDirs(host::kFactory);
  const UniqueFd root = FileUtils::openDirectory(host::kProfiles);
  std::vector<std::string> names{"kept"};
  EXPECT_THAT(FileUtils::listRealDirectories(-1, names), HasCode(status::opendirError));
  for (std::size_t failing = 1; failing <= 9; ++failing) {  // the last one would find the end
    SCOPED_TRACE(failing);
    const ArmedFaults armed{FaultPlan{failing, false, EIO, {"readdir"}}};
    EXPECT_THAT(FileUtils::listRealDirectories(root.get(), names), HasCode(status::opendirError));
    EXPECT_THAT(names, ElementsAre("kept"));
  }
  EXPECT_THAT(FileUtils::listRealDirectories(root.get(), names), HasCode(status::success));
  EXPECT_THAT(names, UnorderedElementsAre("kept", "profile-1", "profile-2", ".factory"));
  names.clear();
  EXPECT_THAT(FileUtils::listRealDirectories(root.get(), names), HasCode(status::success));
  EXPECT_THAT(names, SizeIs(3));  // the descriptor's read position has not changed
}

TEST_F(DirectoryListingTest, AListingStopsAtItsLimitAndReportsThatThereIsMore) {
  for (const char* name : {"a", "b", "c"}) host::writeFile(std::string("/tmp/list/") + name, "");
  const UniqueFd fd = FileUtils::openDirectory("/tmp/list");
  for (std::size_t most = 0; most <= 4; ++most) {
    SCOPED_TRACE(most);
    const auto listing = FileUtils::listOpenDirectory(fd.get(), FileUtils::LinkBase::ownDirectory, most);
    EXPECT_THAT(listing.status, HasCode(status::success));
    EXPECT_THAT(listing.files, SizeIs(std::min<std::size_t>(most, 3)));
    EXPECT_EQ(listing.isComplete, most >= 3);
  }
  EXPECT_TRUE(FileUtils::listDirectory("/tmp/list").isComplete);
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
        const bool isIgnored = fault.call == "readlinkat" || fault.call == "stat" || fault.call == "closedir";
        EXPECT_THAT(result, HasCode(fault && !(isIgnored && !fault.fromThereOn) && fault.call != "closedir"
                                        ? status::opendirError
                                        : status::success));
      });
  EXPECT_EQ(steps, 10u);  // openat, fdopendir, readdir 5, readlinkat, stat, closedir
}

TEST_F(DirectoryListingTest, AFailedListingKeepsTheEntriesThatItReadBefore) {
  for (const char* name : {"a", "b", "c"}) host::writeFile(std::string("/tmp/list/") + name, "");
  std::size_t most = 0;
  for (std::size_t failing = 1; failing <= 6; ++failing) {  // the last one would find the end
    const ArmedFaults armed{FaultPlan{failing, false, EIO, {"readdir"}}};
    const FileUtils::DirectoryListing listing = FileUtils::listDirectory("/tmp/list");
    EXPECT_THAT(listing.status, HasCode(status::opendirError));
    EXPECT_GE(listing.files.size(), most);
    most = listing.files.size();
  }
  EXPECT_EQ(most, 3u);
}

TEST_F(DirectoryListingTest, ARealDirectoryIsOpenedButNoLinkToOneAndErrnoSaysWhy) {
  host::makeDirs("/tmp/list/directory");
  host::makeLink("/tmp/list/link", "directory");
  host::writeFile("/tmp/list/file", "");
  const UniqueFd fd = FileUtils::openDirectory("/tmp/list");
  EXPECT_TRUE(FileUtils::openRealDirectory(fd.get(), "directory").isOpen());
  EXPECT_TRUE(FileUtils::openRealDirectory(AT_FDCWD, "/tmp/list/directory").isOpen());
  struct Case {
    const char* name;
    int error, errorOverLinks;
  };
  for (const Case& c : {Case{"link", ENOTDIR, 0}, Case{"file", ENOTDIR, ENOTDIR}, Case{"missing", ENOENT, ENOENT}}) {
    SCOPED_TRACE(c.name);
    errno = 0;
    EXPECT_FALSE(FileUtils::openRealDirectory(fd.get(), c.name).isOpen());
    EXPECT_EQ(errno, c.error);
    errno = 0;
    const bool isOpened = FileUtils::openDirectory(std::string("/tmp/list/") + c.name).isOpen();
    EXPECT_EQ(isOpened ? 0 : errno, c.errorOverLinks);
  }
}

TEST_F(DirectoryListingTest, RealDirectoriesComeInTheOrderOfTheDirectory) {
  for (const char* name : {"c", "a", "d", "b"}) host::makeDirs(std::string("/tmp/list/") + name);
  const UniqueFd fd = FileUtils::openDirectory("/tmp/list");
  std::vector<std::string> names;
  EXPECT_THAT(FileUtils::listRealDirectories(fd.get(), names), HasCode(status::success));
  EXPECT_EQ(names, FileUtils::listDirectory("/tmp/list").directories);
  EXPECT_THAT(names, SizeIs(4));
}

}  // namespace
