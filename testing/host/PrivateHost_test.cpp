#include "testing/host/PrivateHost.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "testing/host/Places.h"
#include "testing/run/HostTest.h"

namespace {

using PrivateHostTest = HostTest;

TEST_F(PrivateHostTest, ToolsAreAbsentUntilATestInstallsAStandIn) {
  EXPECT_FALSE(host::exists("/etc/init.d"));
  EXPECT_FALSE(host::exists("/usr/bin/ravctl"));
  for (const char* path : {"/bin/systemctl", "/sbin/initctl", "/etc/init.d/hip", "/usr/bin/killall", "/usr/sbin/hip",
                           "/usr/bin/zuv-sendbundle.sh"}) {
    SCOPED_TRACE(path);
    const bool isOfTheMachine = std::string(path) == "/usr/bin/killall";
    EXPECT_TRUE(isOfTheMachine || !host::exists(path));
    host::installRecorder(path, "/tmp/calls", 3);
    EXPECT_EQ(runProgram({path, "start", "hip"}).exitStatus, 3);
  }
  EXPECT_EQ(host::readFile("/tmp/calls"),
            "systemctl start hip\ninitctl start hip\nhip start hip\nkillall start hip\nhip start "
            "hip\nzuv-sendbundle.sh start hip\n");
}

TEST_F(PrivateHostTest, TheTestRunsAsRootFromItsPathInsideAndIsAChildOfProcessOne) {
  EXPECT_EQ(::getuid(), 0U);
  EXPECT_EQ(::geteuid(), 0U);
  EXPECT_EQ(::getppid(), 1);
  EXPECT_EQ(std::filesystem::read_symlink("/proc/self/exe"), "/.private-host/build/testing/testing_test");
  EXPECT_EQ(places::source(), "/.private-host/source");
  EXPECT_EQ(places::build(), "/.private-host/build");
  EXPECT_EQ(places::made(), "/.private-host/made");
}

TEST_F(PrivateHostTest, TheCheckoutIsReadOnlyExceptForOneFolder) {
  EXPECT_NE(host::readFile(places::source() + "/CMakeLists.txt"), "");
  for (const char* path :
       {"/.private-host/source/CMakeLists.txt", "/.private-host/build/new", "/.private-host/build/made/new"}) {
    EXPECT_THROW(host::writeFile(path, ""), std::runtime_error) << path;
  }
  const std::string file = places::made() + "/private-host-test." + std::to_string(::getpid());
  host::writeFile(file, "kept");
  EXPECT_EQ(host::readFile(file), "kept");
  host::remove(file);
}

TEST_F(PrivateHostTest, TheStoreIsEmptyAndNoFolderThatTestsWriteToHoldsFilesOfTheMachine) {
  EXPECT_EQ(host::tree("/etc/zuv"), "d 0755 profiles\n");
  EXPECT_EQ(host::tree("/tmp"), "d 1777 lock\n");
  for (const char* folder : {"/run", "/root", "/home", "/sys"}) EXPECT_EQ(host::tree(folder), "") << folder;
  EXPECT_EQ(host::tree("/var"), "d 0755 lib\nd 0755 log\nl run -> /run\nd 1777 tmp\n");
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator("/etc")) names.push_back(entry.path().filename());
  EXPECT_THAT(names, testing::IsSubsetOf({"alternatives", "group", "hosts", "inputrc", "ld.so.cache", "mtab",
                                          "nsswitch.conf", "passwd", "terminfo", "zuv"}));
}

TEST_F(PrivateHostTest, AnotherUserCanReadTheCheckoutAndRunItsPrograms) {
  SKIP_WITHOUT_OTHER_USERS();
  Start start;
  start.uid = 1000;
  EXPECT_EQ(runProgram({"/bin/sh", "-c", "id -u"}, start).out, "1000\n");
  EXPECT_EQ(runProgram({places::ravctl()}, start).exitStatus, 0);
  EXPECT_NE(runProgram({"/bin/ls", places::source(), places::build()}, start).out, "");
}

struct Translation {
  const char* why;
  const char* text;
  const char* expected;
};

TEST(PrivateHost, PathsOfTheCheckoutAreTranslatedAtTheStartAndAfterEqualSignsAndColons) {
  const std::vector<PrivateHost::Shown> shown = {{"/work/x", "/S"}, {"/work/x/build/a b", "/B"}};
  const Translation cases[] = {
      {"a folder itself", "/work/x", "/S"},
      {"a path below it", "/work/x/README.md", "/S/README.md"},
      {"the longer folder wins", "/work/x/build/a b/made", "/B/made"},
      {"a sibling of the build is in the source", "/work/x/build/a", "/S/build/a"},
      {"after an equal sign", "--out=/work/x/y", "--out=/S/y"},
      {"after a colon", "PATH=/usr/bin:/work/x/bin:/work/x", "PATH=/usr/bin:/S/bin:/S"},
      {"a longer name is another folder", "/work/xy", "/work/xy"},
      {"a path in the middle of a text stays", "cat /work/x/y", "cat /work/x/y"},
      {"the end of another path stays", "/srv/work/x", "/srv/work/x"},
      {"empty", "", ""},
  };
  for (const Translation& c : cases) EXPECT_EQ(PrivateHost::translated(c.text, shown), c.expected) << c.why;
}

TEST_F(PrivateHostTest, DevicesWork) {
  EXPECT_EQ(
      runProgram({"/bin/sh", "-c", "cat /dev/null && head -c 3 /dev/zero | wc -c && head -c 9 /dev/urandom | wc -c"})
          .out,
      "3\n9\n");
  EXPECT_NE(runProgram({"/bin/sh", "-c", "echo x > /dev/full"}).exitStatus, 0);
}

TEST_F(PrivateHostTest, DeviceNodesAreSeparateFromThoseOfTheMachine) {
  SKIP_WITHOUT_OTHER_USERS();
  struct stat root;
  struct stat device;
  ASSERT_EQ(::stat("/", &root), 0);
  ASSERT_EQ(::stat("/dev/null", &device), 0);
  EXPECT_EQ(device.st_dev, root.st_dev) << "a change of its mode would reach the machine";
}

TEST_F(PrivateHostTest, LoopbackIsTheOnlyNetworkInterface) {
  EXPECT_EQ(runProgram({"/bin/sh", "-c", "tail -n +3 /proc/net/dev | cut -d: -f1"}).out, "    lo\n");
}

TEST_F(PrivateHostTest, KillallSeesOnlyProcessesInside) {
  if (!host::exists("/usr/bin/killall")) GTEST_SKIP() << "killall is not installed (package psmisc)";
  host::installDaemon();
  EXPECT_EQ(runProgram({"/usr/bin/killall", "/usr/sbin/hip"}).exitStatus, 1);
  host::makeProfile("profile-1", "lab");
  host::makeActive("profile-1");
  EXPECT_EQ(runProgram({"/usr/sbin/hip", "--daemon"}).exitStatus, 0);
  // Wait until the daemon has ended; otherwise its last lines could go to the log of the next test.
  EXPECT_EQ(runProgram({"/usr/bin/killall", "--wait", "/usr/sbin/hip"}).exitStatus, 0);
}

TEST_F(PrivateHostTest, TheStandInDaemonWritesHeartbeatAndLogInTheActiveProfile) {
  host::installDaemon();
  host::makeProfile("profile-1", "lab");
  host::makeActive("profile-1");
  EXPECT_EQ(runProgram({"/usr/sbin/hip", "--once", "--peers", "3"}).exitStatus, 0);
  EXPECT_THAT(host::readFile("/etc/zuv/profiles/profile-1/hipvars.txt"),
              testing::MatchesRegex(
                  "uptime.now=[0-9]+\nuptime.started=[0-9]+\nhipd_state=running\npeers.count=3\nhelmsor.up=true\n"));
  EXPECT_EQ(runProgram({"/bin/sh", "-c", "/usr/sbin/hip & sleep 0.1; kill $!; wait $!"}).exitStatus, 0);
  EXPECT_THAT(host::readFile("/etc/zuv/profiles/profile-1/hip.log"),
              testing::ContainsRegex(
                  "^\\[INFO [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}\\] hip: started\n"));
}

TEST_F(PrivateHostTest, AThreadBoundByModesCannotReadMode000) {
  host::writeFile("/tmp/closed", "secret", 0);
  EXPECT_EQ(::access("/tmp/closed", R_OK), 0);
  {
    const host::BoundByModes bound;
    EXPECT_THROW(host::readFile("/tmp/closed"), std::runtime_error);
  }
  EXPECT_EQ(host::readFile("/tmp/closed"), "secret");
  Start start;
  start.boundByModes = true;
  EXPECT_EQ(runProgram({"/bin/sh", "-c", "id -u; cat /tmp/closed 2>/dev/null || echo refused"}, start).out,
            "0\nrefused\n");
}

TEST_F(PrivateHostTest, ASmallDiskBecomesFull) {
  const host::SmallDisk disk("/etc/zuv/profiles", 8192);
  EXPECT_THROW(host::writeFile("/etc/zuv/profiles/large", std::string(20000, 'x')), std::runtime_error);
}

TEST_F(PrivateHostTest, AProgramGetsTheInputEnvironmentAndLimitsOfItsStart) {
  Start start;
  start.input = "in\n";
  start.environment = {"NAME=value"};
  start.fileLimit = 4;
  start.mask = 077;
  // SIGXFSZ kills dash, because dash does not ignore that signal.
  const Outcome outcome = runProgram({"/bin/sh", "-c", "cat; echo $NAME; echo longer > /run/limited"}, start);
  EXPECT_EQ(outcome.out, "in\nvalue\n");
  EXPECT_EQ(outcome.signal, SIGXFSZ);
  EXPECT_EQ(host::tree("/run"), "f 0600 limited \"long\"\n");
}

TEST_F(PrivateHostTest, TheOutputAndTheEndOfAProgramAreReturnedWithoutWaitingForItsBackgroundProcesses) {
  const Outcome said = runProgram({"/bin/sh", "-c", "sleep 100 & echo on; echo oops >&2; exit 5"});
  EXPECT_EQ(said.out, "on\n");
  EXPECT_EQ(said.err, "oops\n");
  EXPECT_EQ(said.exitStatus, 5);
  EXPECT_EQ(runProgram({"/bin/sh", "-c", "kill -9 $$"}).signal, SIGKILL);
  EXPECT_THROW((void)runProgram({"/no/such/program"}), std::runtime_error);
}

TEST_F(PrivateHostTest, ATreeShowsTypesModesAndContents) {
  host::makeDirs("/tmp/a", 0750);
  host::writeFile("/tmp/a/text", "one\n\"two\"\\\t\x01", 0640);
  host::makeLink("/tmp/a/link", "nowhere");
  host::makeFifo("/tmp/a/queue", 0600);
  EXPECT_EQ(host::tree("/tmp/a"), "l link -> nowhere\np 0600 queue\nf 0640 text \"one\\n\\\"two\\\"\\\\\\t\\x01\"\n");
  EXPECT_EQ(host::tree("/tmp/none"), "");
}

TEST(HostFiles, UnquotingReversesQuoting) {
  std::string every;
  for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
  std::string plain;
  EXPECT_TRUE(host::unquoted(host::quoted(every), &plain));
  EXPECT_EQ(plain, every);
  for (const char* wrong : {"", "\"", "plain", "\"open", "\"a\"b\"", "\"\\\"", "\"\\q\"", "\"\\x1\""})
    EXPECT_FALSE(host::unquoted(wrong, &plain)) << wrong;
}

TEST(HasCode, TheExplanationNamesTheActualCode) {
  const testing::Matcher<const Status&> wanted = HasCode(status::openError);
  testing::StringMatchResultListener listener;
  EXPECT_FALSE(wanted.MatchAndExplain(Status::of(status::readError), &listener));
  EXPECT_EQ(listener.str(), "whose code is status::readError (0x14000006)");
  EXPECT_TRUE(wanted.Matches(Status::error(status::openError, "details", "context")));
  EXPECT_EQ(nameOfCode(0x7f), "0x0000007f");
}

}  // namespace
