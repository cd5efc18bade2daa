// Tests tools/tree.sh, which checks that a checkout holds only files that developers wrote, on a small checkout with
// one mistake at a time. Also tests .gitignore with the files that tools leave behind.
#include <sstream>

#include "testing/host/Places.h"
#include "testing/run/HostTest.h"

namespace {

const std::string kScript = places::source() + "/tools/tree.sh";
const std::string kIgnored = places::source() + "/.gitignore";
constexpr const char* kCheckout = "/tmp/checkout";

Outcome shell(const std::string& script) {
  Start start;
  start.environment = {"PATH=/usr/bin:/usr/sbin", "HOME=/tmp", "GIT_CONFIG_NOSYSTEM=1"};
  start.folder = kCheckout;
  return runProgram({"/bin/sh", "-c", script}, start);
}

Outcome check() { return shell(std::string("'") + kScript + "' ."); }

class TreeTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    if (!host::exists("/usr/bin/git")) GTEST_SKIP() << "/usr/bin/git is not installed";
    host::makeDirs(kCheckout);
    host::writeFile(std::string(kCheckout) + "/.gitignore", host::readFile(kIgnored));
    const Outcome made = shell(R"(
      git init -q .
      printf '#!/bin/sh\n' >dev && chmod 755 dev
      echo '# Read me' >README.md
      mkdir -p src/base fuzz/corpus/json
      echo 'int thing;' >src/base/Thing.cpp
      printf 'a\r\n\000 \n' >fuzz/corpus/json/odd
      git add .)");
    ASSERT_EQ(made.exitStatus, 0) << made.err;
  }

  void TearDown() override { host::remove(kCheckout); }
};

struct Mistake {
  const char* why;
  const char* made;  // the script that makes the mistake
  const char* file;
  const char* complaint;
};

constexpr Mistake kMistakes[] = {
    {"an empty file", ": >src/base/Empty.cpp", "src/base/Empty.cpp", "empty"},
    {"an empty input", ": >fuzz/corpus/json/none", "fuzz/corpus/json/none", "empty"},
    {"a zero byte", "printf 'int a;\\n\\000\\n' >src/base/Zero.cpp", "src/base/Zero.cpp", "binary"},
    {"a program", "cp /bin/true src/base/Program.cpp && chmod 644 src/base/Program.cpp", "src/base/Program.cpp",
     "binary"},
    {"line ends with a carriage return", "printf 'a\\r\\n' >src/base/Ends.h", "src/base/Ends.h",
     "lines end with CR LF"},
    {"one line end with a carriage return", "printf 'a\\r\\nb\\n' >src/base/Ends.h", "src/base/Ends.h",
     "lines end with CR LF"},
    {"a blank", "printf 'a\\nb \\n' >src/base/Blank.h", "src/base/Blank.h", "blanks at the end of a line"},
    {"a tab", "printf 'a\\t\\nb\\n' >src/base/Tab.h", "src/base/Tab.h", "blanks at the end of a line"},
    {"a script that is not executable", "printf '#!/bin/sh\\n' >bench/go.sh", "bench/go.sh",
     "begins with #!, but is not executable"},
    {"an executable text", "echo text >LICENSE && chmod 755 LICENSE", "LICENSE",
     "executable, but does not begin with #!"},
    {"an unknown kind", "echo a >src/base/notes.txt", "src/base/notes.txt", "tools/tree.sh knows no such file"},
    {"an unknown folder", "mkdir -p more && echo a >more/Thing.cpp", "more/Thing.cpp",
     "tools/tree.sh knows no such file"},
    {"an unknown file at the root", "echo a >Thing.cpp", "Thing.cpp", "tools/tree.sh knows no such file"},
    {"a large file", "head -c 400001 /dev/zero | tr '\\0' a >src/base/Large.h", "src/base/Large.h",
     "more than 400000 bytes"},
    {"a large input", "head -c 400001 /dev/zero >fuzz/corpus/json/large", "fuzz/corpus/json/large",
     "more than 400000 bytes"},
    {"a link", "ln -s Thing.cpp src/base/Link.cpp", "src/base/Link.cpp", "no plain file"},
    {"a name with a blank", "echo a >'src/base/a thing.h'", "src/base/a thing.h",
     "the name holds more than letters, digits and . _ - /"},
};

TEST_F(TreeTest, EachMistakeIsNamedIfGitAddWouldTakeTheFile) {
  host::makeDirs(std::string(kCheckout) + "/bench");
  for (const Mistake& mistake : kMistakes) {
    SCOPED_TRACE(mistake.why);
    ASSERT_EQ(shell(mistake.made).exitStatus, 0);
    const std::string line = std::string(mistake.file) + ": " + mistake.complaint + "\n";
    for (const bool isTracked : {false, true}) {
      SCOPED_TRACE(isTracked ? "tracked" : "not tracked");
      if (isTracked) shell("git add .");
      const Outcome outcome = check();
      EXPECT_EQ(outcome.out, line);
      EXPECT_EQ(outcome.err, "");
      EXPECT_EQ(outcome.exitStatus, 1);
    }
    ASSERT_EQ(
        shell(std::string("git rm -q -f --cached '") + mistake.file + "' && rm '" + mistake.file + "'").exitStatus, 0);
  }
  EXPECT_EQ(check().exitStatus, 0);
}

TEST_F(TreeTest, ATrackedFileThatGitignoreMatchesIsNamed) {
  shell("echo a >src/base/Thing.cpp.orig");
  EXPECT_EQ(check().out, "");
  shell("git add -f .");
  const Outcome outcome = check();
  EXPECT_EQ(outcome.out,
            "src/base/Thing.cpp.orig: tools/tree.sh knows no such file\n"
            "src/base/Thing.cpp.orig: tracked, but .gitignore names it\n");
  EXPECT_EQ(outcome.exitStatus, 1);
}

TEST_F(TreeTest, ACleanTreePassesEvenWithAFileOfMaximumSizeAndADeletedFile) {
  for (const char* change : {":", "head -c 400000 /dev/zero | tr '\\0' a >src/base/Large.h; rm src/base/Thing.cpp"}) {
    SCOPED_TRACE(change);
    shell(change);
    const Outcome outcome = check();
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(outcome.out + outcome.err, "");
  }
}

TEST_F(TreeTest, AFolderThatIsNoCheckoutIsAnError) {
  host::remove(std::string(kCheckout) + "/.git");
  const Outcome outcome = check();
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_THAT(outcome.err, testing::HasSubstr("tools/tree.sh: git tracks no file here\n"));
}

TEST_F(TreeTest, TheCheckoutOfAnotherUserIsChecked) {
  SKIP_WITHOUT_OTHER_USERS();
  shell(": >src/base/Empty.cpp; chown -R 65534:65534 .");
  EXPECT_EQ(check().out, "src/base/Empty.cpp: empty\n");
}

// At least one file for each line of .gitignore. The lines are: CMake and compilers, Debian packages, measurements,
// profilers, crashes, fuzz targets, scripts, and editors.
constexpr const char* kLeftovers = R"(
build/release/ravctl build-old/x .cache/clangd/x Testing/Temporary/x compile_commands.json CMakeUserPresets.json
CMakeCache.txt src/CMakeFiles/x src/base/Thing.o libx.a
obj-x86_64-linux-gnu/x debian/.debhelper/x debian/debhelper-build-stamp debian/files debian/ravctl/usr/bin/ravctl
debian/tmp/x debian/ravctl.debhelper.log debian/ravctl.substvars
default.profraw src/x.profdata src/Thing.gcda src/Thing.gcno Thing.cpp.gcov gmon.out
perf.data perf.data.old callgrind.out.123 cachegrind.out.123 massif.out.123
core core.4711 vgcore.4711
crash-da39a3ee5e6b4b0d3255bfef95601890afd80709 fuzz/leak-da39a3ee5e6b4b0d3255bfef95601890afd80709
oom-da39a3ee5e6b4b0d3255bfef95601890afd80709 slow-unit-da39a3ee5e6b4b0d3255bfef95601890afd80709
timeout-da39a3ee5e6b4b0d3255bfef95601890afd80709
tests/completion/__pycache__/type.pyc x.pyc .ansible/x docs/examples/ansible/profiles.retry
dev~ src/base/Thing.cpp.orig src/base/Thing.cpp.rej src/base/.Thing.cpp.swp src/base/.Thing.cpp.swo
src/base/.#Thing.cpp src/base/#Thing.cpp# .DS_Store .idea/x .vscode/settings.json
)";

TEST_F(TreeTest, GitIgnoresTheFilesThatToolsLeaveAndNoPatternIsUntested) {
  std::istringstream files(kLeftovers);
  std::string lines;
  for (std::string file; files >> file; lines += file + "\n") {
    host::writeFile(std::string(kCheckout) + "/" + file, "left\n");
  }
  EXPECT_EQ(shell("git ls-files --others --exclude-standard").out, "");
  host::writeFile("/tmp/files", lines);
  // git prints for each file the number of the line in .gitignore that matches it.
  EXPECT_EQ(shell("git check-ignore --no-index --verbose --stdin </tmp/files | cut -f 1 | cut -d : -f 2 | sort -un | "
                  "tr '\\n' ' '")
                .out,
            shell("grep -nv -e '^#' -e '^$' .gitignore | cut -d : -f 1 | sort -n | tr '\\n' ' '").out);
}

}  // namespace
