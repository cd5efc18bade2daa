#include "testing/host/EmptyFolder.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

#include "testing/host/Places.h"
#include "testing/run/HostTest.h"

namespace {

using EmptyFolderTest = HostTest;

// Mounts a folder of the same file system, with a file in it, and unmounts it at the end of the scope.
class BoundFolder {
 public:
  explicit BoundFolder(const std::string& at) : at_(at) {
    host::writeFile("/root/elsewhere/file", "kept");
    host::makeDirs(at);
    EXPECT_EQ(::mount("/root/elsewhere", at.c_str(), nullptr, MS_BIND, nullptr), 0) << at;
  }
  ~BoundFolder() {
    EXPECT_EQ(host::tree("/root/elsewhere"), "f 0644 file \"kept\"\n") << at_;
    EXPECT_EQ(::umount2(at_.c_str(), MNT_DETACH), 0) << at_;
    host::remove("/root/elsewhere");
  }
  BoundFolder(const BoundFolder&) = delete;
  BoundFolder& operator=(const BoundFolder&) = delete;

 private:
  const std::string at_;
};

// Every folder that the tests or their fixtures empty.
constexpr const char* kEmptied[] = {"/tmp",      "/run",     "/etc/zuv", "/etc/zuv/profiles", "/etc/init.d",
                                    "/tmp/lock", "/var/tmp", "/root",    "/dev/shm"};

TEST_F(EmptyFolderTest, FilesFoldersFifosSocketsAndLinksAreRemovedEvenIfTheFolderIsAMount) {
  const host::SmallDisk disk("/tmp/disk", 1 << 20);
  for (const char* folder : {"/run", "/tmp/disk"}) {
    SCOPED_TRACE(folder);
    const std::string a = std::string(folder) + "/a";
    host::writeFile(a + "/b/c/file", "x", 0);
    host::makeFifo(a + "/queue");
    host::makeSocket(a + "/socket");
    host::makeLink(a + "/nowhere", "/no/such");
    host::makeDirs(a + "/closed", 0);
    EXPECT_TRUE(emptyFolder(folder));
    EXPECT_EQ(host::tree(folder), "");
    EXPECT_TRUE(emptyFolder(folder)) << "an empty folder";
    EXPECT_TRUE(emptyFolder(a)) << "a folder that does not exist";
  }
}

TEST_F(EmptyFolderTest, LinksAreRemovedAndNeverFollowed) {
  host::writeFile("/var/tmp/target/file", "kept");
  host::makeLink("/tmp/a/link", "/var/tmp/target");
  EXPECT_TRUE(emptyFolder("/tmp"));
  host::makeLink("/tmp/link", "/var/tmp/target");
  EXPECT_FALSE(emptyFolder("/tmp/link"));
  EXPECT_EQ(host::readFile("/var/tmp/target/file"), "kept");
  host::remove("/var/tmp/target");
}

void expectMountStaysIn(const std::string& folder) {
  SCOPED_TRACE(folder);
  host::writeFile(folder + "/a/other", "");
  EXPECT_FALSE(emptyFolder(folder));
  EXPECT_EQ(host::tree(folder + "/a"), "d 0755 mounted\nf 0644 mounted/file \"kept\"\n");
}

TEST_F(EmptyFolderTest, AMountStaysInEveryFolderThatTestsEmpty) {
  for (const std::string folder : kEmptied) {
    {
      const host::SmallDisk ofAnotherFileSystem(folder + "/a/mounted", 8192);
      host::writeFile(folder + "/a/mounted/file", "kept");
      expectMountStaysIn(folder);
    }
    const BoundFolder ofTheSameFileSystem(folder + "/a/mounted");
    if (folder != "/root") expectMountStaysIn(folder);  // the mounted files themselves are in /root
  }
  for (const std::string folder : kEmptied) (void)emptyFolder(folder);
}

TEST_F(EmptyFolderTest, AFileOnWhichAnotherFileIsMountedStays) {
  host::writeFile("/run/target", "kept");
  host::writeFile("/tmp/a/file", "");
  host::writeFile("/tmp/a/other", "");
  ASSERT_EQ(::mount("/run/target", "/tmp/a/file", nullptr, MS_BIND, nullptr), 0);
  EXPECT_FALSE(emptyFolder("/tmp"));
  EXPECT_EQ(host::tree("/tmp"), "d 0755 a\nf 0644 a/file \"kept\"\n");
  EXPECT_EQ(::umount2("/tmp/a/file", MNT_DETACH), 0);
  EXPECT_EQ(host::readFile("/run/target"), "kept");
}

TEST_F(EmptyFolderTest, RemovingAFolderAndResettingTheHostKeepMountedFiles) {
  for (const std::string folder : {"/tmp", "/run"}) {
    SCOPED_TRACE(folder);
    const host::SmallDisk disk(folder + "/a/mounted", 8192);
    host::writeFile(folder + "/a/mounted/file", "kept");
    EXPECT_THROW(host::remove(folder + "/a"), std::runtime_error);
    host::reset();
    EXPECT_EQ(host::readFile(folder + "/a/mounted/file"), "kept");
  }
}

// planted_removal.cpp is the one exception: it removes what it can reach on purpose.
TEST(EmptyFolderInTheSources, NoOtherCodeOfTestsFuzzTargetsAndBenchmarksEmptiesFolders) {
  const std::vector<std::string> others = {std::string("remove") + "_all(", std::string("nf") + "tw(",
                                           std::string("rm -") + "r", std::string("FileUtils::remove") + "Tree("};
  int files = 0;
  for (const char* folder : {"testing", "tests", "fuzz", "bench"}) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(places::source() + "/" + folder)) {
      const bool isText = entry.is_regular_file() && entry.path().string().find("/corpus/") == std::string::npos;
      if (!isText || entry.path().filename() == "planted_removal.cpp") continue;
      ++files;
      const std::string text = host::readFile(entry.path());
      for (const std::string& other : others) EXPECT_EQ(text.find(other), std::string::npos) << entry.path() << other;
    }
  }
  EXPECT_GT(files, 100);
}

}  // namespace
