#include "base/files/RemoveTree.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <optional>
#include <thread>

#include "base/files/DirectoryListing.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

constexpr const char* kTree = "/tmp/tree";

class RemoveTreeTest : public HostTest {};

// Creates a chain of directories below the tree, each with the name d, and beside each of them one with the name
// `side`, if given.
void makeDeepTree(int depth, const char* side = nullptr) {
  host::makeDirs(kTree);
  UniqueFd fd = FileUtils::openDirectory(kTree);
  for (int i = 0; i < depth; ++i) {
    ASSERT_EQ(::mkdirat(fd.get(), "d", 0755), 0);
    if (side != nullptr) {
      ASSERT_EQ(::mkdirat(fd.get(), side, 0755), 0);
    }
    UniqueFd next(::openat(fd.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(next.isOpen());
    fd = std::move(next);
  }
}

// Empties kTree as a directory of the store.
void emptyStoreTree(const char* kept) {
  const UniqueFd directory(::open(kTree, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_TRUE(directory.isOpen());
  FileUtils::emptyStoreDirectory(directory.get(), kept);
}

TEST_F(RemoveTreeTest, ATreeIsRemovedWithEverythingBelowAndItsLinksAreNotFollowed) {
  host::writeFile("/tmp/target/file", "");
  host::writeFile("/tmp/tree/file", "");
  host::writeFile("/tmp/tree/a/b/c/file", "");
  host::makeDirs("/tmp/tree/empty");
  host::makeDirs("/tmp/tree/a/other");
  host::makeLink("/tmp/tree/to-directory", "/tmp/target");
  host::makeLink("/tmp/tree/a/to-file", "/tmp/target/file");
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
  EXPECT_FALSE(host::exists(kTree));
  EXPECT_TRUE(host::exists("/tmp/target/file"));
}

TEST_F(RemoveTreeTest, FilesAreRemovedBeforeLinksToFilesThenLinksToDirectoriesThenDirectories) {
  host::writeFile("/tmp/target/file", "");
  host::makeDirs("/tmp/tree/a directory");
  host::makeLink("/tmp/tree/b link to a directory", "/tmp/target");
  host::makeLink("/tmp/tree/c link to a file", "/tmp/target/file");
  host::writeFile("/tmp/tree/d file", "");
  std::vector<std::string> remaining;
  FaultPlan plan;
  plan.calls = {"unlinkat"};
  plan.before = [&](std::size_t) {
    std::string names;
    for (const char* name : {"d file", "c link to a file", "b link to a directory", "a directory"}) {
      if (host::exists(std::string(kTree) + "/" + name)) names += name[0];
    }
    remaining.push_back(names);
  };
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
  EXPECT_THAT(remaining, testing::ElementsAre("dcba", "cba", "ba", "a"));
}

TEST_F(RemoveTreeTest, ARelativePathAndTheRootInAnySpellingAreInvalidArguments) {
  host::writeFile("/tmp/tree/file", "");
  ASSERT_EQ(::chdir("/tmp"), 0);
  const ArmedFaults armed{FaultPlan{1, true, EPERM, {"unlinkat", "rmdir", "unlink"}, false}};  // if it were tried
  for (const char* path :
       {"tree", "./tree", "../tmp/tree", "/", "//", "///", "/.", "/..", "/tmp/..", "/../", "/tmp/../."}) {
    SCOPED_TRACE(path);
    EXPECT_THAT(FileUtils::removeTree(path), HasCode(status::invalidArgument));
  }
  EXPECT_EQ(armed.count(), 0u);
  EXPECT_TRUE(host::exists("/tmp/tree/file"));
}

TEST_F(RemoveTreeTest, APathThatIsNoDirectoryIsUnlinkedAndNotFollowed) {
  struct Case {
    const char* why;
    const char* path;
    StatusCode code;
    std::string removed;
  };
  const Case cases[] = {
      {"a file", "/tmp/file", status::success, "/tmp/file"},
      {"a FIFO", "/tmp/fifo", status::success, "/tmp/fifo"},
      {"a link to a directory", "/tmp/link", status::success, "/tmp/link"},
      {"a link to a directory, with a slash", "/tmp/link/", status::success, "/tmp/link"},
      {"a link to a directory, with two slashes", "/tmp/link//", status::success, "/tmp/link"},
      {"a file with a slash is an error", "/tmp/file/", status::unlinkError, ""},
      {"a missing path", "/tmp/missing", status::success, ""},
      {"a missing path with a slash", "/tmp/missing/", status::success, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    host::writeFile("/tmp/file", "");
    host::makeFifo("/tmp/fifo");
    host::writeFile("/tmp/target/file", "");
    host::makeLink("/tmp/link", "/tmp/target");
    EXPECT_THAT(FileUtils::removeTree(c.path), HasCode(c.code));
    for (const char* path : {"/tmp/file", "/tmp/fifo", "/tmp/link", "/tmp/target/file"}) {
      EXPECT_EQ(host::exists(path), path != c.removed) << path;
    }
  }
}

TEST_F(RemoveTreeTest, FifosAndBrokenLinksStayAndTheRemovalFails) {
  host::makeFifo("/tmp/tree/a/fifo");
  host::writeFile("/tmp/tree/a/file", "");
  host::writeFile("/tmp/tree/b/file", "");
  host::makeLink("/tmp/tree/nowhere", "/tmp/missing");
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
  EXPECT_EQ(host::tree(kTree), "d 0755 a\np 0644 a/fifo\nl nowhere -> /tmp/missing\n");
}

TEST_F(RemoveTreeTest, ATreeDeeperThanTheLongestPathIsRemoved) {
  makeDeepTree(5000, "side");
  rlimit old = {};
  ::getrlimit(RLIMIT_NOFILE, &old);
  const rlimit few = {64, old.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
  ::setrlimit(RLIMIT_NOFILE, &old);
  EXPECT_FALSE(host::exists(kTree));
}

// Something else takes the place of /tmp/tree/a after it was listed and before it is entered.
TEST_F(RemoveTreeTest, ADirectoryThatBecomesALinkOrAFifoBeforeItIsEnteredIsNotEntered) {
  struct Case {
    const char* why;
    void (*make)();
    const char* left;
  };
  const Case cases[] = {
      {"a link is not followed", [] { host::makeLink("/tmp/tree/a", "/tmp/target"); }, "l a -> /tmp/target\n"},
      // Opening a FIFO for reading would block until there is a writer.
      {"a FIFO does not block", [] { host::makeFifo("/tmp/tree/a"); }, "p 0644 a\n"},
  };
  host::writeFile("/tmp/target/file", "");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(kTree);
    host::makeDirs("/tmp/tree/a");
    FaultPlan plan;
    plan.calls = {"openat"};
    plan.before = [&c](std::size_t call) {
      if (call != 3) return;  // the first two calls open the top and list it
      host::remove("/tmp/tree/a");
      c.make();
    };
    const ArmedFaults armed{plan};
    EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
    EXPECT_EQ(host::tree(kTree), c.left);
    EXPECT_TRUE(host::exists("/tmp/target/file"));
  }
}

// Of 21 levels the lowest two and the levels 0, 8, 16 and 18 are still open when the removal has arrived at the bottom,
// after 42 calls of openat and 21 of fstat. The next of these calls opens level 17 again.
constexpr int kDepth = 20;
constexpr std::size_t kOpenedOnTheWayDown = 42;

std::string treeOfDepth(int depth) {
  std::string tree;
  std::string path = "d";
  for (int i = 0; i < depth; ++i, path += "/d") tree += "d 0755 " + path + "\n";
  return tree;
}

TEST_F(RemoveTreeTest, ADeepDirectoryThatIsMovedAwayEndsTheRemoval) {
  makeDeepTree(kDepth);
  host::writeFile("/tmp/elsewhere/file", "");
  FaultPlan plan;
  plan.calls = {"openat"};
  plan.before = [](std::size_t call) {
    if (call != kOpenedOnTheWayDown + 1) return;
    ASSERT_EQ(::rename("/tmp/tree/d/d/d/d/d", "/tmp/elsewhere/d"), 0);
  };
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
  // Level 8 was still open. On the way from level 0 to level 7, level 5 is missing.
  EXPECT_EQ(host::tree("/tmp/elsewhere"), treeOfDepth(4) + "f 0644 file \"\"\n");
  EXPECT_EQ(host::tree(kTree), treeOfDepth(4));
}

TEST_F(RemoveTreeTest, AnotherDirectoryInThePlaceOfAClosedOneIsNotTouched) {
  makeDeepTree(kDepth);
  FaultPlan plan;
  plan.calls = {"openat"};
  plan.before = [](std::size_t call) {
    if (call != kOpenedOnTheWayDown + 1) return;
    ASSERT_EQ(::rename("/tmp/tree/d/d/d/d/d", "/tmp/away"), 0);
    host::makeDirs("/tmp/tree/d/d/d/d/d/d/d");
  };
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
  EXPECT_EQ(host::tree(kTree), treeOfDepth(7));
  // Opened again: level 17; 9 to 15; 13; 9 to 11; 9; and 1 to 5, where the removal ends.
  EXPECT_EQ(armed.count(), kOpenedOnTheWayDown + 1 + 7 + 1 + 3 + 1 + 5);
}

TEST_F(RemoveTreeTest, AFileSystemThatIsMountedOverAClosedDirectoryIsNotTouched) {
  makeDeepTree(kDepth);
  std::optional<host::SmallDisk> disk;
  FaultPlan plan;
  plan.calls = {"openat"};
  plan.before = [&disk](std::size_t call) {
    if (call != kOpenedOnTheWayDown + 1) return;
    disk.emplace("/tmp/tree/d/d/d/d/d", 4096);
    host::makeDirs("/tmp/tree/d/d/d/d/d/d/d");
  };
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
  EXPECT_TRUE(host::exists("/tmp/tree/d/d/d/d/d/d/d"));
}

TEST_F(RemoveTreeTest, AParentDirectoryThatCannotBeReopenedEndsTheRemoval) {
  for (const FaultPlan& plan : {FaultPlan{kOpenedOnTheWayDown + 1, false, EMFILE, {"openat"}},
                                FaultPlan{kOpenedOnTheWayDown / 2 + 1, false, EIO, {"fstat"}}}) {
    SCOPED_TRACE(*plan.calls.begin());
    host::reset();
    makeDeepTree(kDepth);
    const ArmedFaults armed{plan};
    EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
    EXPECT_EQ(host::tree(kTree), treeOfDepth(18));
    EXPECT_EQ(armed.count(), plan.at) << "the removal ends at the fault";
  }
}

TEST_F(RemoveTreeTest, OnTheWayBackNoLevelIsOpenThatIsFarAboveTheLowest) {
  makeDeepTree(kDepth);
  FaultPlan plan;
  plan.calls = {"unlinkat"};
  plan.before = [](std::size_t call) {
    const int lowest = kDepth - static_cast<int>(call);
    for (const std::string& open : openDescriptors()) {
      const std::size_t tree = open.find(kTree);
      if (tree == std::string::npos) continue;
      const int level = static_cast<int>(std::count(open.begin(), open.end(), 'd'));
      const int largestPower = level & -level;
      EXPECT_TRUE(level == 0 || lowest - level < 2 * largestPower) << open << ", the lowest level is " << lowest;
    }
  };
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
  EXPECT_EQ(armed.count(), std::size_t{kDepth});
}

// --- Costs

TEST_F(RemoveTreeTest, TheNumberOfOpenDescriptorsGrowsWithTheLogarithmOfTheDepth) {
  struct Case {
    int depth;
    rlim_t most;
  };
  rlimit old = {};
  ::getrlimit(RLIMIT_NOFILE, &old);
  for (const Case& c : {Case{100, 12}, Case{1000, 15}, Case{10000, 18}}) {
    SCOPED_TRACE(c.depth);
    makeDeepTree(c.depth);
    const UniqueFd firstFree(::dup(0));
    const rlimit few = {static_cast<rlim_t>(firstFree.get()) + 1 + c.most, old.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
    ::setrlimit(RLIMIT_NOFILE, &old);
  }
}

// The number of system calls for each directory.
double callsToRemove(int directories) {
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
  return static_cast<double>(counted.count()) / directories;
}

TEST_F(RemoveTreeTest, TheNumberOfSystemCallsForALevelGrowsWithTheLogarithmOfTheDepth) {
  // 11 calls for each level, and 3 for each time that it is opened again
  makeDeepTree(50);
  EXPECT_LE(callsToRemove(50), 11 + 3 * 3);
  makeDeepTree(1600);
  EXPECT_LE(callsToRemove(1600), 11 + 3 * 5.5);
}

// At some depths many levels are closed on the way down and have to be opened again on the way back.
TEST_F(RemoveTreeTest, ManySubdirectoriesAtAnyDepthTakeFewSystemCallsEach) {
  constexpr int siblings = 200;
  for (const int depth : {1, 62, 63, 64, 65, 127, 128}) {
    for (const int height : {1, 2, 5}) {
      SCOPED_TRACE(std::to_string(depth) + ", " + std::to_string(height));
      std::string bottom = kTree;
      for (int i = 0; i < depth; ++i) bottom += "/d";
      for (int i = 0; i < siblings; ++i) {
        std::string path = bottom + "/" + std::to_string(i);
        for (int level = 1; level < height; ++level) path += "/d";
        host::makeDirs(path);
      }
      EXPECT_LE(callsToRemove(siblings * height), 30);
    }
  }
}

// --- Directories whose names are not held in memory

constexpr int kMany = 3000;  // almost three times as many as are read at a time

std::string inTree(const std::string& name) { return std::string(kTree) + "/" + name; }

TEST_F(RemoveTreeTest, ManyEntriesOfEveryKindAreRemovedAsFewAre) {
  host::writeFile("/tmp/target/file", "");
  for (int i = 0; i < kMany; ++i) {
    const std::string n = std::to_string(i);
    host::writeFile(inTree("file" + n), "");
    host::makeLink(inTree("to-file" + n), "file" + n);
    host::makeLink(inTree("to-link" + n), "to-file" + n);  // broken as soon as the other link has gone
    host::makeLink(inTree("to-directory" + n), "/tmp/target");
    host::makeDirs(inTree("directory" + n));
  }
  host::makeLink(inTree("a-broken-link"), "missing");
  host::makeFifo(inTree("fifo"));
  host::makeFifo(inTree("directory7/fifo"));
  host::writeFile(inTree("kept"), "");
  host::writeFile(inTree("directory8/kept"), "");
  emptyStoreTree("kept");
  EXPECT_EQ(host::tree(kTree),
            "l a-broken-link -> missing\nd 0755 directory7\np 0644 directory7/fifo\np 0644 fifo\nf 0644 kept \"\"\n");
  EXPECT_TRUE(host::exists("/tmp/target/file"));
}

TEST_F(RemoveTreeTest, ABrokenLinkStaysEvenIfAGoodLinkHasTheSame32BitHash) {
  host::writeFile("/tmp/target/file", "");
  for (int i = 0; i < kMany; ++i) host::writeFile(inTree(std::to_string(i)), "");
  // These have the same std::hash where that has 32 bits.
  host::makeLink(inTree("good-386548"), "/tmp/target/file");
  host::makeLink(inTree("broken-24829"), "/tmp/missing");
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
  EXPECT_EQ(host::tree(kTree), "l broken-24829 -> /tmp/missing\n");
}

TEST_F(RemoveTreeTest, ManyFilesAreRemovedBeforeLinksToFilesThenLinksToDirectoriesThenDirectories) {
  host::writeFile("/tmp/target/file", "");
  for (int i = 0; i < kMany; ++i) host::writeFile(inTree("file" + std::to_string(i)), "");
  host::makeLink(inTree("link to a directory"), "/tmp/target");
  host::makeLink(inTree("link to a file"), "/tmp/target/file");
  host::makeDirs(inTree("directory"));
  std::vector<std::string> remaining;
  FaultPlan plan;
  plan.calls = {"unlinkat"};
  plan.before = [&](std::size_t call) {
    if (call > kMany) remaining.push_back(host::tree(kTree));
  };
  const ArmedFaults armed{plan};
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
  const std::string directory = "d 0755 directory\n";
  const std::string toDirectory = "l link to a directory -> /tmp/target\n";
  const std::string toFile = "l link to a file -> /tmp/target/file\n";
  EXPECT_THAT(remaining, testing::ElementsAre(directory + toDirectory + toFile, directory + toDirectory, directory));
}

TEST_F(RemoveTreeTest, OfManyEntriesOneThatCannotBeRemovedAtFirstIsRemovedLater) {
  for (const bool areFiles : {true, false}) {
    SCOPED_TRACE(areFiles ? "files" : "directories");
    for (int i = 0; i < kMany; ++i) {
      areFiles ? host::writeFile(inTree(std::to_string(i)), "") : host::makeDirs(inTree(std::to_string(i)));
    }
    const ArmedFaults armed{FaultPlan{kMany / 2, false, EIO, {"unlinkat"}}};
    EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
    EXPECT_EQ(armed.count(), std::size_t{kMany + 1});
  }
}

TEST_F(RemoveTreeTest, ManyDirectoriesThatCannotBeRemovedDoNotStopTheRemovalOfOthers) {
  for (int i = 0; i < kMany; ++i) {
    host::makeDirs(inTree(std::to_string(i)));
    if (i % 100 != 0) host::makeFifo(inTree(std::to_string(i) + "/fifo"));
  }
  const ArmedFaults counted{FaultPlan{0, false, EIO, {"unlinkat"}}};
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
  EXPECT_LE(counted.count(), std::size_t{2 * kMany}) << "each directory is tried twice at most";
  EXPECT_FALSE(host::exists(inTree("2900")));
  EXPECT_TRUE(host::exists(inTree("2901")));
}

TEST_F(RemoveTreeTest, ADirectoryOfMoreThan1024EntriesIsReadSeveralTimes) {
  for (const int files : {1024, 1025}) {
    SCOPED_TRACE(files);
    for (int i = 0; i < files; ++i) host::writeFile(inTree(std::to_string(i)), "");
    const ArmedFaults counted{FaultPlan{0, false, EIO, {"openat"}}};
    EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
    EXPECT_EQ(counted.count() > 2, files > 1024) << "one call opens the directory and one reads it";
  }
}

TEST_F(RemoveTreeTest, TheNamesOf1024DirectoriesAreReadAtATime) {
  for (int i = 0; i < 2048; ++i) host::makeDirs(inTree(std::to_string(i)));
  const ArmedFaults counted{FaultPlan{0, false, EIO, {"lseek"}}};
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
  EXPECT_EQ(counted.count(), 2u) << "the first 1024 are read from the start, the others and the end from a position";
}

// The first reading of the directory removes all of its files. Before the second one new files appear, and before the
// third one another.
TEST_F(RemoveTreeTest, AReadingThatRemovesMoreThanThreeQuartersOfTheOneBeforeIsTheLast) {
  constexpr int kAtStart = 1103;
  constexpr int kThreeQuarters = kAtStart / 4 * 3;
  constexpr std::size_t kSecondReading = 5;  // of the calls that open the directory
  for (const int made : {kThreeQuarters, kThreeQuarters + 1}) {
    SCOPED_TRACE(made);
    for (int i = 0; i < kAtStart; ++i) host::writeFile(inTree(std::to_string(i)), "");
    FaultPlan plan;
    plan.calls = {"openat"};
    plan.before = [made](std::size_t call) {
      for (int i = 0; call == kSecondReading && i < made; ++i) host::writeFile(inTree("new" + std::to_string(i)), "");
      if (call == kSecondReading + 1) host::writeFile(inTree("late"), "");
    };
    const ArmedFaults armed{plan};
    const bool isLast = made > kThreeQuarters;
    EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(isLast ? status::rmdirError : status::success));
    EXPECT_EQ(host::tree(kTree), isLast ? "f 0644 late \"\"\n" : "");
  }
}

TEST_F(RemoveTreeTest, SomebodyWhoMakesEntriesAllTheTimeDoesNotKeepTheRemovalFromEnding) {
  constexpr int atStart = 1100;
  for (const bool isOfFiles : {true, false}) {
    for (const std::size_t removalsForEachNew : {1u, 2u, 5u}) {
      SCOPED_TRACE(std::to_string(isOfFiles) + ", " + std::to_string(removalsForEachNew));
      host::reset();
      const auto make = [&](const std::string& name) {
        if (isOfFiles) host::writeFile(inTree(name), "");
        if (!isOfFiles) host::makeDirs(inTree(name));
      };
      for (int i = 0; i < atStart; ++i) make(std::to_string(i));
      FaultPlan plan;
      plan.calls = {"unlinkat"};
      plan.before = [&](std::size_t call) {
        if (call % removalsForEachNew == 0 && call < 20 * atStart) make("new" + std::to_string(call));
      };
      const ArmedFaults armed{plan};
      (void)FileUtils::removeTree(kTree);  // an entry that was made in the last pass may remain
      EXPECT_GE(armed.count(), std::size_t{atStart});
      EXPECT_LE(armed.count(), std::size_t{4 * atStart});
    }
  }
}

TEST_F(RemoveTreeTest, ADirectoryThatCannotBeReadOnEndsItsRemoval) {
  for (int i = 0; i < kMany; ++i) host::makeDirs(inTree(std::to_string(i)));
  const ArmedFaults armed{FaultPlan{1, true, EIO, {"lseek"}}};
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::rmdirError));
  EXPECT_GE(armed.count(), 1u);
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

TEST_F(RemoveTreeTest, AnOpenDirectoryIsEmptiedButForOneEntryOfItsOwn) {
  for (const char* file : {"a", "kept", "sub/file", "sub/kept", "z"}) {
    host::writeFile(std::string(kTree) + "/" + file, "");
  }
  host::makeLink("/tmp/tree/to-own", "kept");  // only from its own directory does it lead to a file
  host::makeLink("/tmp/tree/to-nothing", "/tmp/missing");
  const UniqueFd directory(::open(kTree, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::rename(kTree, "/tmp/moved"), 0);
  host::writeFile("/tmp/tree/file", "another tree");
  FileUtils::emptyStoreDirectory(directory.get(), "kept");
  EXPECT_EQ(host::tree("/tmp/moved"), "f 0644 kept \"\"\nl to-nothing -> /tmp/missing\n");
  EXPECT_TRUE(host::exists("/tmp/tree/file"));
}

TEST_F(RemoveTreeTest, ARelativeLinkIsResolvedFromItsOwnDirectoryInTheStoreAndElseFromTheWorkingDirectory) {
  for (const char* directory : {"/", "/tmp/elsewhere", "/tmp/tree/a"}) {
    SCOPED_TRACE(directory);
    host::reset();
    host::writeFile("/tmp/target/file", "");
    host::writeFile("/tmp/elsewhere/sibling", "");
    host::writeFile("/tmp/tree/a/sibling", "");
    host::makeLink("/tmp/tree/a/to-sibling", "sibling");
    host::makeLink("/tmp/tree/a/to-directory", "../../target");
    host::makeLink("/tmp/tree/top", "a/sibling");
    ASSERT_EQ(::chdir(directory), 0);
    emptyStoreTree("");
    EXPECT_EQ(host::tree(kTree), "");
    EXPECT_TRUE(host::exists("/tmp/target/file"));

    host::makeLink("/tmp/tree/a/to-sibling", "sibling");
    host::writeFile("/tmp/tree/a/sibling", "");
    const bool isFound = std::string(directory) == "/tmp/elsewhere";
    EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(isFound ? status::success : status::rmdirError));
    EXPECT_EQ(host::exists("/tmp/tree/a/to-sibling"), !isFound);
  }
}

TEST_F(RemoveTreeTest, WhatIsNeitherAFileNorALinkToAnythingStaysBesideTheKeptFile) {
  struct Case {
    const char* why;
    void (*make)();
    const char* left;
    FaultPlan plan = {};
  };
  const Case cases[] = {
      {"a FIFO", [] { host::makeFifo("/tmp/tree/fifo"); }, "p 0644 fifo\nf 0644 last \"\"\n"},
      {"a socket", [] { host::makeSocket("/tmp/tree/a-socket"); }, "s 0644 a-socket\nf 0644 last \"\"\n"},
      {"a broken link", [] { host::makeLink("/tmp/tree/broken", "missing"); },
       "l broken -> missing\nf 0644 last \"\"\n"},
      {"a link that cannot be read", [] { host::makeLink("/tmp/tree/a-link", "/tmp"); },
       "l a-link -> /tmp\nf 0644 last \"\"\n", FaultPlan{1, false, EIO, {"readlinkat"}}},
      {"a file that cannot be removed", [] { host::writeFile("/tmp/tree/file", ""); },
       "f 0644 file \"\"\nf 0644 last \"\"\n", FaultPlan{1, false, EPERM, {"unlinkat"}}},
      {"a subdirectory that cannot be emptied", [] { host::makeFifo("/tmp/tree/a/b/fifo"); },
       "d 0755 a\nd 0755 a/b\np 0644 a/b/fifo\nf 0644 last \"\"\n"},
      {"a subdirectory with a file of the same name is emptied, but not the FIFO in it",
       [] {
         host::writeFile("/tmp/tree/a/last", "");
         host::makeFifo("/tmp/tree/a/fifo");
       },
       "d 0755 a\np 0644 a/fifo\nf 0644 last \"\"\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    host::writeFile("/tmp/tree/last", "");
    c.make();
    const ArmedFaults armed{c.plan};
    emptyStoreTree("last");
    EXPECT_EQ(host::tree(kTree), c.left);
  }
}

TEST_F(RemoveTreeTest, ADirectoryWithoutPermissionsIsRemovedOnlyIfItIsEmpty) {
  for (const bool isEmpty : {true, false}) {
    SCOPED_TRACE(isEmpty);
    host::makeDirs(kTree);
    if (!isEmpty) host::writeFile("/tmp/tree/file", "");
    host::setMode(kTree, 0);
    {
      const host::BoundByModes bound;
      EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(isEmpty ? status::success : status::rmdirError));
    }
    EXPECT_EQ(host::exists(kTree), !isEmpty);
  }
  host::setMode(kTree, 0755);
  EXPECT_TRUE(host::exists("/tmp/tree/file"));
}

TEST_F(RemoveTreeTest, AnEmptyDirectoryThatCannotBeOpenedIsRemoved) {
  host::makeDirs("/tmp/tree/closed");
  const ArmedFaults armed{FaultPlan{3, false, EMFILE, {"openat"}}};  // the tree is opened twice, to list it
  EXPECT_THAT(FileUtils::removeTree(kTree), HasCode(status::success));
  EXPECT_FALSE(host::exists(kTree));
}

TEST_F(RemoveTreeTest, AFaultAnywhereLeaksNothingAndTouchesNothingElse) {
  const FaultLoop loop{[] {
    host::reset();
    host::writeFile("/tmp/outside", "");
    host::writeFile("/tmp/tree/a/file", "");
    host::makeLink("/tmp/tree/link", "/tmp/outside");
  }};
  // The file system decides in which order a directory lists its entries, so the order of some of the calls is open.
  const std::vector<std::string> calls = {
      "lstat",      "lstat",     "openat",   "fstat",                                                  // open the top
      "openat",     "fdopendir", "readdir",  "readdir", "readdir", "readdir", "readdir",  "closedir",  // list it
      "readlinkat", "stat",      "unlinkat",  // examine the link and remove it
      "openat",     "fstat",                  // open a
      "openat",     "fdopendir", "readdir",  "readdir", "readdir", "readdir", "closedir",  // list it
      "unlinkat",   "unlinkat",  "close",    "close",   "rmdir",  // remove the file, a and the top
  };
  const auto remove = [] { return FileUtils::removeTree(kTree); };
  loop.prepare();
  {
    const ArmedFaults counted{FaultPlan{}};
    EXPECT_THAT(remove(), HasCode(status::success));
    EXPECT_THAT(counted.calls(), testing::UnorderedElementsAreArray(calls));
  }
  forEachFault(loop, remove, [](const Status& result, const Fault&) {
    EXPECT_EQ(result.isSuccess(), !host::exists(kTree));
    if (!result.isSuccess()) {
      EXPECT_THAT(result.code(), testing::AnyOf(status::rmdirError, status::unlinkError));
    }
    EXPECT_TRUE(host::exists("/tmp/outside"));
  });
}

TEST_F(RemoveTreeTest, ADirectoryOfTheKeptNameIsRemoved) {
  host::writeFile(inTree("kept/file"), "");
  emptyStoreTree("kept");
  EXPECT_EQ(host::tree(kTree), "");
}

}  // namespace
