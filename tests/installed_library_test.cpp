// Installs the component `dev` and builds programs against it, as docs/logging.md shows, outside the tree of the
// sources. The build has installed the component in dev/prefix.
#include <filesystem>

#include "testing/host/Places.h"
#include "testing/run/HostTest.h"

namespace {

constexpr const char* kPrefix = "/usr/local";
constexpr const char* kFolder = "/tmp/program";
const std::string kPage = places::source() + "/docs/logging.md";

// Returns the blocks of a page between a line "```kind" and a line "```".
std::vector<std::string> blocksOf(const std::string& page, const std::string& kind) {
  const std::string begin = "\n```" + kind + "\n";
  std::vector<std::string> blocks;
  for (std::size_t at = page.find(begin); at != std::string::npos; at = page.find(begin, at)) {
    at += begin.size();
    blocks.push_back(page.substr(at, page.find("```\n", at) - at));
  }
  return blocks;
}

// Returns the commands of the page in blocks of one line or more: how to install the component, and the two ways to
// build the example.
std::vector<std::string> commandsOfThePage() {
  std::vector<std::string> commands = blocksOf(host::readFile(kPage), "sh");
  EXPECT_EQ(commands.size(), 3u);
  commands.resize(3);
  return commands;
}

// Runs a shell script in kFolder.
Outcome runHere(const std::string& script) {
  Start start;
  start.environment.push_back("CMAKE_GENERATOR=Ninja");
  start.environment.push_back("CXX=g++");
  start.environment.push_back("CXXFLAGS=-Wall -Wextra -Werror");
  start.folder = kFolder;
  return runProgram({"/bin/sh", "-c", "set -e\n" + script}, start);
}

class InstalledLibraryTest : public HostTest {
 protected:
  void SetUp() override {
#ifdef RAVCTL_SANITIZED
    GTEST_SKIP() << "a program must be built with the sanitizers of the library";
#endif
    HostTest::SetUp();
    if (IsSkipped()) return;
    for (const char* tool : {"cmake", "g++", "ninja", "pkg-config"}) {
      if (!host::exists(std::string("/usr/bin/") + tool)) GTEST_SKIP() << tool << " is not installed";
    }
    host::makeDirs(kFolder);
    const Outcome mounted = runHere("mount --bind " + places::build() + "/dev/prefix " + kPrefix);
    ASSERT_EQ(mounted.exitStatus, 0) << mounted.err;
  }
};

// Compiling the library takes minutes. So ninja only prints how it would compile it, and the archive that this
// build has installed is copied to its place.
TEST_F(InstalledLibraryTest, TheCommandsOfThePageInstallTheComponent) {
  const std::string prefix = kPrefix;
  const std::string compile = "cmake --build build/library --target ravctl_core";
  std::string commands = commandsOfThePage()[0];
  ASSERT_THAT(commands, testing::HasSubstr(compile + "\n"));
  commands.insert(commands.find(compile) + compile.size(),
                  " -- -n\ncp $(find " + places::build() + "/dev/prefix -name libravctl.a) build/library/");
  const std::string sources = "mount -t tmpfs none " + prefix + "; ln -s " + places::source() + "/* .; rm -f build\n";
  const Outcome installed = runHere(sources + commands);
  ASSERT_EQ(installed.exitStatus, 0) << installed.out << installed.err;
  EXPECT_EQ(installed.err, "");
  // One name contains the kind of the build, and lib or lib64 depends on the system.
  const std::string files =
      "files() { (cd \"$1\" && find . -type f | sed 's/Targets-[a-z]*/Targets/; s|/lib64/|/lib/|' | sort); }\n";
  const Outcome difference = runHere(files + "files " + places::build() + "/dev/prefix >expected\n" +
                                     "grep -q libravctl.a expected\nfiles " + prefix + " | diff expected -");
  EXPECT_EQ(difference.out, "");
  EXPECT_EQ(difference.exitStatus, 0) << difference.err;
}

TEST_F(InstalledLibraryTest, TheCommandsOfThePageBuildTheExampleAndItRuns) {
  const std::vector<std::string> commands = commandsOfThePage();
  for (const std::string& command : {commands[1], commands[2]}) {
    const Outcome built = runHere(command);
    ASSERT_EQ(built.exitStatus, 0) << command << built.out << built.err;
    EXPECT_EQ(built.err, "");
  }
  const Outcome outcome =
      runHere("./example/logging-example logs >by-cmake & ./logging-example logs; wait; cat by-cmake");
  EXPECT_EQ(outcome.exitStatus, 0) << outcome.err;
  std::size_t runs = 0;
  const std::string step = "step done: worker=1 step=0\n";
  for (std::size_t at = 0; (at = outcome.out.find(step, at)) != std::string::npos; at += step.size()) ++runs;
  EXPECT_EQ(runs, 2u);
}

TEST_F(InstalledLibraryTest, ThePageShowsTheBuildFileOfTheExample) {
  const std::string file = host::readFile(std::string(kPrefix) + "/share/doc/ravctl/examples/logging/CMakeLists.txt");
  EXPECT_THAT(blocksOf(host::readFile(kPage), "cmake"), testing::ElementsAre(file));
}

TEST_F(InstalledLibraryTest, EveryInstalledHeaderFindsTheHeadersThatItIncludes) {
  const std::string folder = std::string(kPrefix) + "/include/ravctl";
  std::string all;
  int count = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file() && ++count > 0)
      all += "#include <" + entry.path().lexically_relative(folder).string() + ">\n";
  }
  EXPECT_GT(count, 50);
  host::writeFile(std::string(kFolder) + "/all.cpp", all);
  const Outcome outcome =
      runHere("g++ -std=c++17 $CXXFLAGS -Wpedantic -fsyntax-only all.cpp $(pkg-config --cflags ravctl)");
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.err, "");
}

// A script cannot use Threads, so an accepted version would end it before it prints the versions that were considered.
TEST_F(InstalledLibraryTest, AnotherMinorVersionIsNotFound) {
  const auto found = [](const std::string& version) {
    const std::string text =
        "find_package(ravctl " + version + " QUIET)\nmessage(STATUS \"${ravctl_CONSIDERED_VERSIONS}\")\n";
    host::writeFile(std::string(kFolder) + "/find.cmake", text);
    return runHere(std::string("cmake -DCMAKE_PREFIX_PATH=") + kPrefix + " -P find.cmake").out;
  };
  EXPECT_EQ(found("2.1"), "-- 2.2\n");
  EXPECT_EQ(found("2.3"), "-- 2.2\n");
  EXPECT_EQ(runHere("pkg-config --modversion ravctl").out, "2.2\n");
}

}  // namespace
