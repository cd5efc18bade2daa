// How `./dev` configures a build folder: with all options of its preset, whatever CMake makes of an older cache. CMake
// is a stand-in here.
#include "testing/host/Places.h"
#include "testing/run/HostTest.h"

namespace {

constexpr const char* kCalls = "/tmp/calls";  // the first two words and the last word of each call, one call a line
constexpr const char* kCall = "--preset fuzz -DA=1\n";

class DevConfiguresTest : public HostTest {
 protected:
  // Configures the preset "fuzz" with a cmake that does `script`, and returns its calls.
  static std::string callsWith(const std::string& script) {
    host::writeFile(kCalls, "");
    host::makeDirs("/tmp/bin");
    host::makeDirs("/tmp/checkout");
    host::installScript("/tmp/bin/cmake", "for last; do :; done; echo \"$1 $2 $last\" >>/tmp/calls\n" + script);
    host::installScript("/tmp/bin/ninja", "");
    Start start;
    start.environment = {"PATH=/tmp/bin:/usr/bin", "HOME=/tmp"};
    start.folder = "/tmp/checkout";
    const std::string common = places::source() + "/tools/common.sh";
    const Outcome outcome = runProgram({"/bin/sh", "-euc", ". '" + common + "'; configure fuzz -DA=1"}, start);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.exitStatus, 0);
    return host::readFile(kCalls);
  }
};

TEST_F(DevConfiguresTest, AnOrdinaryBuildFolderIsConfiguredOnce) { EXPECT_EQ(callsWith(""), kCall); }

// When the compiler is at another path, CMake starts afresh with the compiler as its only option. A build folder for
// sanitizers or for a fuzzer would then have neither.
TEST_F(DevConfiguresTest, AFolderWhoseCacheCMakeDroppedIsConfiguredTwice) {
  const std::string calls = callsWith(
      "echo 'You have changed variables that require your cache to be deleted.'\n"
      "echo 'Configure will be re-run and you may have to reset some variables.' >&2\n");
  EXPECT_EQ(calls, std::string(kCall) + kCall);
}

}  // namespace
