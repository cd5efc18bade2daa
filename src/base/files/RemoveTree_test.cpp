#include "base/files/RemoveTree.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include "base/files/DirectoryListing.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

constexpr const char* kTree = "/tmp/tree";

class RemoveTreeTest : public HostTest {};

TEST_F(RemoveTreeTest, ATreeIsRemovedWithEverythingBelow) {
  host::writeFile("/tmp/tree/file", "");
  host::writeFile("/tmp/tree/a/b/c/file", "");
  host::makeDirs("/tmp/tree/empty");
  host::makeDirs("/tmp/tree/a/other");
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
  EXPECT_FALSE(host::exists(kTree));
}

TEST_F(RemoveTreeTest, FilesAreRemovedBeforeLinksToFilesThenLinksToDirectoriesThenDirectories) {
  host::writeFile("/tmp/target/file", "");
  host::makeDirs("/tmp/tree/a directory");
  host::makeLink("/tmp/tree/b link to a directory", "/tmp/target");
  host::makeLink("/tmp/tree/c link to a file", "/tmp/target/file");
  host::writeFile("/tmp/tree/d file", "");
  std::vector<std::string> whatWasThere;
  FaultPlan plan;
  plan.calls = {"unlinkat"};
  plan.before = [&](std::size_t) {
    std::string names;
    for (const char* name : {"d file", "c link to a file", "b link to a directory", "a directory"}) {
      if (host::exists(std::string(kTree) + "/" + name)) names += name[0];
    }
    whatWasThere.push_back(names);
  };
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
  EXPECT_THAT(whatWasThere, testing::ElementsAre("dcba", "cba", "ba", "a"));
}

TEST_F(RemoveTreeTest, ARelativePathRemovesNothing) {
  host::writeFile("/tmp/tree/file", "");
  ASSERT_EQ(::chdir("/tmp"), 0);
  for (const char* path : {"tree", "./tree", "../tmp/tree"}) {
    EXPECT_THAT(FileUtils::removeTree(path), HasCode(status::invalidArgument));
  }
  EXPECT_TRUE(host::exists("/tmp/tree/file"));
}

TEST_F(RemoveTreeTest, TheRootIsAnInvalidArgumentInAnySpelling) {
  host::writeFile("/tmp/tree/file", "");
  const ArmedFaults armed{FaultPlan{1, true, EPERM, {"unlinkat", "rmdir", "unlink"}, false}};  // if it were tried
  for (const char* path : {"/", "//", "///", "/.", "/..", "/tmp/..", "/../", "/tmp/../."}) {
    SCOPED_TRACE(path);
    EXPECT_THAT(FileUtils::removeTree(path), HasCode(status::invalidArgument));
  }
  EXPECT_EQ(armed.count(), 0u);
}

TEST_F(RemoveTreeTest, APathThatIsNoDirectoryIsUnlinked) {
  host::writeFile("/tmp/file", "");
  host::makeFifo("/tmp/fifo");
  EXPECT_THAT(FileUtils::removeTree("/tmp/file"), HasCode(status::success));
  EXPECT_THAT(FileUtils::removeTree("/tmp/fifo"), HasCode(status::success));
  EXPECT_THAT(FileUtils::removeTree("/tmp/missing"), HasCode(status::success));
  EXPECT_FALSE(host::exists("/tmp/file"));
  EXPECT_FALSE(host::exists("/tmp/fifo"));
}

TEST_F(RemoveTreeTest, AFileWithASlashBehindItIsNotRemoved) {
  host::writeFile("/tmp/file", "");
  EXPECT_THAT(FileUtils::removeTree("/tmp/file/"), HasCode(status::unlinkError));
  EXPECT_TRUE(host::exists("/tmp/file"));
  EXPECT_THAT(FileUtils::removeTree("/tmp/missing/"), HasCode(status::success));
}

TEST_F(RemoveTreeTest, ALinkAtTheTopIsUnlinkedAndNotFollowed) {
  host::writeFile("/tmp/target/file", "");
  for (const char* path : {"/tmp/link", "/tmp/link/", "/tmp/link//"}) {
    SCOPED_TRACE(path);
    host::makeLink("/tmp/link", "/tmp/target");
    EXPECT_THAT(FileUtils::removeTree(path), HasCode(status::success));
    EXPECT_FALSE(host::exists("/tmp/link"));
    EXPECT_TRUE(host::exists("/tmp/target/file"));
  }
}

TEST_F(RemoveTreeTest, LinksInsideAreUnlinkedAndNotFollowed) {
  host::writeFile("/tmp/target/file", "");
  host::makeDirs("/tmp/tree/a");
  host::makeLink("/tmp/tree/to-directory", "/tmp/target");
  host::makeLink("/tmp/tree/a/to-file", "/tmp/target/file");
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
  EXPECT_FALSE(host::exists(kTree));
  EXPECT_TRUE(host::exists("/tmp/target/file"));
}

TEST_F(RemoveTreeTest, OtherEntriesStayAndTheRemovalFails) {
  host::makeFifo("/tmp/tree/a/fifo");
  host::writeFile("/tmp/tree/a/file", "");
  host::writeFile("/tmp/tree/b/file", "");
  host::makeLink("/tmp/tree/nowhere", "/tmp/missing");
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
  EXPECT_EQ(host::tree(kTree), "d 0755 a\np 0644 a/fifo\nl nowhere -> /tmp/missing\n");
}

TEST_F(RemoveTreeTest, ATreeDeeperThanTheLongestPathIsRemoved) {
  constexpr int depth = 5000;
  host::makeDirs(kTree);
  {
    UniqueFd fd = FileUtils::openDirectory(kTree);
    for (int i = 0; i < depth; ++i) {
      ASSERT_EQ(::mkdirat(fd.get(), "deep", 0755), 0);
      ASSERT_EQ(::mkdirat(fd.get(), "side", 0755), 0);
      UniqueFd next(::openat(fd.get(), "deep", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      ASSERT_TRUE(next.isOpen());
      fd = std::move(next);
    }
  }
  rlimit old = {};
  ::getrlimit(RLIMIT_NOFILE, &old);
  const rlimit few = {64, old.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
  ::setrlimit(RLIMIT_NOFILE, &old);
  EXPECT_FALSE(host::exists(kTree));
}

// Something else takes the place of /tmp/tree/a after it was listed and before it is entered.
FaultPlan replacedBeforeEntered(void (*make)()) {
  host::makeDirs("/tmp/tree/a");
  FaultPlan plan;
  plan.calls = {"openat"};
  plan.before = [make](std::size_t call) {
    if (call != 3) return;  // the first two calls open the top and list it
    host::remove("/tmp/tree/a");
    make();
  };
  return plan;
}

TEST_F(RemoveTreeTest, ADirectoryThatBecomesALinkBeforeItIsEnteredIsNotFollowed) {
  host::writeFile("/tmp/target/file", "");
  const ArmedFaults armed{replacedBeforeEntered([] { host::makeLink("/tmp/tree/a", "/tmp/target"); })};
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
  EXPECT_EQ(host::tree("/tmp/tree"), "l a -> /tmp/target\n");
  EXPECT_TRUE(host::exists("/tmp/target/file"));
}

// Opening a FIFO for reading would block until there is a writer.
TEST_F(RemoveTreeTest, ADirectoryThatBecomesAFifoBeforeItIsEnteredDoesNotBlock) {
  const ArmedFaults armed{replacedBeforeEntered([] { host::makeFifo("/tmp/tree/a"); })};
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
  EXPECT_TRUE(host::exists("/tmp/tree/a"));
}

TEST_F(RemoveTreeTest, ADeepDirectoryThatIsMovedAwayEndsTheRemoval) {
  // From more than 16 levels down the removal returns through "..", which must lead to the same directory as before.
  std::string path = kTree;
  for (int i = 0; i < 20; ++i) path += "/d";
  host::makeDirs(path);
  host::writeFile("/tmp/elsewhere/file", "");
  FaultPlan plan;
  plan.calls = {"openat"};
  plan.before = [](std::size_t call) {
    if (call != 43) return;  // 21 directories were opened and listed; call 43 is the first ".."
    std::string fifth = kTree;
    for (int i = 0; i < 5; ++i) fifth += "/d";
    ASSERT_EQ(::rename(fifth.c_str(), "/tmp/elsewhere/d"), 0);
  };
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
  EXPECT_EQ(host::tree("/tmp/elsewhere"), "d 0755 d\nf 0644 file \"\"\n");
}

TEST_F(RemoveTreeTest, AParentDirectoryThatCannotBeReopenedEndsTheRemoval) {
  // The lowest 16 of 21 directories stay open. The first "..", from the sixth, comes after all of them were opened.
  for (const FaultPlan& plan : {FaultPlan{43, false, EMFILE, {"openat"}},
                                FaultPlan{22, false, EIO, {"fstat"}}}) {  // two openat and one fstat for each directory
    SCOPED_TRACE(*plan.calls.begin());
    host::reset();
    std::string path = kTree;
    for (int i = 0; i < 20; ++i) path += "/d";
    host::makeDirs(path);
    const ArmedFaults armed{plan};
    EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
    EXPECT_EQ(host::tree(kTree), "d 0755 d\nd 0755 d/d\nd 0755 d/d/d\nd 0755 d/d/d/d\nd 0755 d/d/d/d/d\n");
    EXPECT_EQ(armed.count(), plan.at) << "the removal ends at the fault";
  }
}

TEST_F(RemoveTreeTest, ALinkThatReplacesADirectoryAgainAndAgainIsNeverFollowed) {
  host::writeFile("/tmp/target/file", "");
  std::atomic<bool> isOver{false};
  std::thread swapper([&] {
    while (!isOver) {
      (void)::rename("/tmp/tree/a", "/tmp/spare");
      [[maybe_unused]] const int linked = ::symlink("/tmp/target", "/tmp/tree/a");
      (void)::unlink("/tmp/tree/a");
      (void)::rename("/tmp/spare", "/tmp/tree/a");
    }
  });
  for (int i = 0; i < 2000; ++i) {
    (void)::mkdir("/tmp/tree", 0755);
    (void)::mkdir("/tmp/tree/a", 0755);
    (void)FileUtils::removeTree(kTree);  // its result depends on the timing
  }
  isOver = true;
  swapper.join();
  EXPECT_TRUE(host::exists("/tmp/target/file"));
}

TEST_F(RemoveTreeTest, ADirectoryThatCannotBeReadDoesNotStopTheRemovalOfOthers) {
  host::writeFile("/tmp/tree/closed/file", "");
  host::writeFile("/tmp/tree/open/file", "");
  host::setMode("/tmp/tree/closed", 0);
  {
    const host::BoundByModes bound;
    EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
  }
  host::setMode("/tmp/tree/closed", 0755);
  EXPECT_EQ(host::tree(kTree), "d 0755 closed\nf 0644 closed/file \"\"\n");
}

TEST_F(RemoveTreeTest, TheLastFileIsRemovedAfterEverythingElse) {
  for (const char* file : {"a", "last", "sub/file", "sub/last", "z"})
    host::writeFile(std::string(kTree) + "/" + file, "");
  std::vector<std::string> whenItWent;
  FaultPlan plan;
  plan.calls = {"unlinkat", "rmdir"};
  plan.before = [&](std::size_t) {
    if (host::exists(std::string(kTree) + "/last")) whenItWent = {host::tree(kTree)};
  };
  {
    const ArmedFaults armed(plan);
    EXPECT_THAT(FileUtils::removeTree(kTree, "last"), HasCode(status::success));
  }
  EXPECT_EQ(whenItWent, (std::vector<std::string>{"f 0644 last \"\"\n"}));
  EXPECT_FALSE(host::exists(kTree));
}

TEST_F(RemoveTreeTest, AMissingLastFileChangesNothing) {
  host::writeFile("/tmp/tree/file", "");
  EXPECT_THAT(FileUtils::removeTree(kTree, "last"), HasCode(status::success));
  EXPECT_FALSE(host::exists(kTree));
}

TEST_F(RemoveTreeTest, AFaultAnywhereLeaksNothingAndTouchesNothingElse) {
  const FaultLoop loop{[] {
    host::reset();
    host::writeFile("/tmp/outside", "");
    host::writeFile("/tmp/tree/a/file", "");
    host::makeLink("/tmp/tree/link", "/tmp/outside");
  }};
  const std::size_t steps = forEachFault(
      loop, [] { return FileUtils::removeTree(kTree); },
      [](const Status& result, const Fault&) {
        EXPECT_EQ(result.isSuccess(), !host::exists(kTree));
        if (!result.isSuccess()) {
          EXPECT_THAT(result.code(), testing::AnyOf(status::rmdirError, status::unlinkError));
        }
        EXPECT_TRUE(host::exists("/tmp/outside"));
      });
  EXPECT_EQ(steps, 29u);
}

}  // namespace
