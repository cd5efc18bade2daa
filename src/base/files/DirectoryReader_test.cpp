#include "base/files/DirectoryReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "base/files/DirectoryListing.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using FileUtils::DirectoryReader;
using FileUtils::EntryKind;
using FileUtils::LinkBase;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;
using Names = std::vector<std::string>;

constexpr const char* kDirectory = "/tmp/list";

class DirectoryReaderTest : public HostTest {};

Names namesFrom(DirectoryReader& reader) {
  Names names;
  while (const dirent* entry = reader.next()) names.emplace_back(entry->d_name);
  return names;
}

void makeFiles(int count) {
  for (int i = 0; i < count; ++i) host::writeFile(std::string(kDirectory) + "/" + std::to_string(i), "");
}

TEST_F(DirectoryReaderTest, AnotherReaderContinuesAtThePosition) {
  makeFiles(9);
  const UniqueFd fd = FileUtils::openDirectory(kDirectory);
  DirectoryReader whole(fd.get());
  EXPECT_EQ(whole.position(), 0);
  const Names all = namesFrom(whole);
  ASSERT_THAT(all, SizeIs(9));
  for (std::size_t first = 0; first <= all.size(); ++first) {
    SCOPED_TRACE(first);
    DirectoryReader before(fd.get());
    for (std::size_t i = 0; i < first; ++i) ASSERT_EQ(before.next()->d_name, all[i]);
    DirectoryReader after(fd.get(), before.position());
    EXPECT_THAT(namesFrom(after), ElementsAreArray(all.begin() + static_cast<std::ptrdiff_t>(first), all.end()));
    EXPECT_THAT(after.status(), HasCode(status::success));
  }
}

TEST_F(DirectoryReaderTest, ADescriptorIsBorrowedForTheConstructionAloneAndKeepsItsPosition) {
  makeFiles(9);
  UniqueFd fd = FileUtils::openDirectory(kDirectory);
  DirectoryReader first(fd.get());
  EXPECT_THAT(namesFrom(first), SizeIs(9));
  EXPECT_EQ(::lseek(fd.get(), 0, SEEK_CUR), 0);
  DirectoryReader second(fd.get());
  fd.reset();
  EXPECT_THAT(namesFrom(second), SizeIs(9));
  EXPECT_THAT(second.status(), HasCode(status::success));
}

TEST_F(DirectoryReaderTest, ADirectoryThatIsNotOpenOrCannotBeReadHasNoEntries) {
  makeFiles(2);
  DirectoryReader closed(-1);
  EXPECT_EQ(closed.next(), nullptr);
  EXPECT_THAT(closed.status(), HasCode(status::opendirError));
  const UniqueFd fd = FileUtils::openDirectory(kDirectory);
  DirectoryReader first(fd.get());
  ASSERT_NE(first.next(), nullptr);
  for (const char* call : {"openat", "fdopendir", "lseek", "readdir"}) {
    SCOPED_TRACE(call);
    const ArmedFaults armed{FaultPlan{1, false, EIO, {call}}};
    DirectoryReader reader(fd.get(), first.position());
    EXPECT_THAT(namesFrom(reader), IsEmpty());
    EXPECT_THAT(reader.status(), HasCode(status::opendirError));
    EXPECT_EQ(armed.count(), 1u);
  }
}

TEST_F(DirectoryReaderTest, AKindIsThatOfTheTargetOfALink) {
  host::makeDirs("/tmp/list/directory");
  host::writeFile("/tmp/list/file", "");
  host::makeFifo("/tmp/list/fifo");
  host::makeLink("/tmp/list/to-directory", "directory");
  host::makeLink("/tmp/list/to-file", "file");
  host::makeLink("/tmp/list/to-fifo", "fifo");
  host::makeLink("/tmp/list/to-nothing", "missing");
  const UniqueFd fd = FileUtils::openDirectory(kDirectory);
  std::map<std::string, EntryKind> own;
  std::map<std::string, EntryKind> working;
  DirectoryReader reader(fd.get());
  while (const dirent* entry = reader.next()) {
    own[entry->d_name] = FileUtils::kindOf(fd.get(), *entry, LinkBase::ownDirectory);
    working[entry->d_name] = FileUtils::kindOf(fd.get(), *entry, LinkBase::workingDirectory);
    if (entry->d_type != DT_LNK) continue;
    const ArmedFaults armed{FaultPlan{1, false, EIO, {"readlinkat"}}};
    EXPECT_EQ(FileUtils::kindOf(fd.get(), *entry, LinkBase::ownDirectory), EntryKind::unreadable);
  }
  std::map<std::string, EntryKind> expected = {
      {"directory", EntryKind::directory}, {"file", EntryKind::file},
      {"fifo", EntryKind::other},          {"to-directory", EntryKind::linkToDirectory},
      {"to-file", EntryKind::linkToFile},  {"to-fifo", EntryKind::other},
      {"to-nothing", EntryKind::other},
  };
  EXPECT_EQ(own, expected);
  expected["to-directory"] = expected["to-file"] = EntryKind::other;  // nothing of that name is in "/"
  EXPECT_EQ(working, expected);
}

TEST_F(DirectoryReaderTest, ALinkIsUnreadableIfItsTargetIsEmptyOrFillsTheBuffer) {
  host::makeDirs(kDirectory);
  const UniqueFd fd = FileUtils::openDirectory(kDirectory);
  const auto kindOfOnlyEntry = [&fd] {
    DirectoryReader reader(fd.get());
    return FileUtils::kindOf(fd.get(), *reader.next(), LinkBase::workingDirectory);
  };
  host::makeLink("/tmp/list/link", "/");
  EXPECT_EQ(kindOfOnlyEntry(), EntryKind::linkToDirectory);
  for (const ssize_t length : {0, 4096}) {
    SCOPED_TRACE(length);
    FaultPlan plan{1, false, 0, {"readlinkat"}};
    plan.linkLength = length;
    const ArmedFaults armed{plan};
    EXPECT_EQ(kindOfOnlyEntry(), EntryKind::unreadable);
    EXPECT_THAT(FileUtils::listDirectory(kDirectory).status, HasCode(status::success));
  }
}

TEST_F(DirectoryReaderTest, AReaderTakesOverItsDescriptorAndClosesIt) {
  makeFiles(2);
  UniqueFd opened = FileUtils::openDirectory(kDirectory);
  const int fd = opened.get();
  {
    DirectoryReader reader(std::move(opened));
    EXPECT_EQ(reader.fd(), fd);
    EXPECT_THAT(namesFrom(reader), SizeIs(2));
  }
  EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
  DirectoryReader none((UniqueFd()));
  EXPECT_THAT(namesFrom(none), IsEmpty());
}

TEST_F(DirectoryReaderTest, AnEntryWhoseTypeNobodyKnowsIsOther) {
  makeFiles(1);
  const UniqueFd fd = FileUtils::openDirectory(kDirectory);
  DirectoryReader reader(fd.get());
  dirent entry = *reader.next();
  entry.d_type = DT_UNKNOWN;
  EXPECT_EQ(FileUtils::kindOf(fd.get(), entry, LinkBase::ownDirectory), EntryKind::file);
  host::remove(std::string(kDirectory) + "/" + entry.d_name);
  EXPECT_EQ(FileUtils::kindOf(fd.get(), entry, LinkBase::ownDirectory), EntryKind::other);
}

}  // namespace
