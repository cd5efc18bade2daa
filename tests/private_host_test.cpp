// Tests the private host from outside: its exit status, and that it leaves nothing behind. Unlike other test programs,
// this one stays on the machine; only the programs that it starts enter a private host.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/capability.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"
#include "testing/host/PrivateHost.h"
#include "testing/run/Program.h"

namespace {

const std::string kHost = places::privateHost();

Outcome onHost(const std::vector<std::string>& command, const Start& start = {}) {
  std::vector<std::string> words = {kHost, "--"};
  words.insert(words.end(), command.begin(), command.end());
  return runProgram(words, start);
}

class PrivateHostFromOutside : public testing::Test {
 protected:
  void SetUp() override {
    const Outcome trial = onHost({"/bin/true"});
    if (trial.exitStatus == 125) GTEST_SKIP() << trial.err;
    ASSERT_NE(::mkdtemp(folder_), nullptr);
  }
  void TearDown() override { host::remove(folder_); }

  char folder_[32] = "/tmp/private-host-test-XXXXXX";  // an empty folder of the machine
};

TEST_F(PrivateHostFromOutside, TheOuterProcessEndsLikeTheCommand) {
  EXPECT_EQ(onHost({"/bin/sh", "-c", "exit 7"}).exitStatus, 7);
  EXPECT_EQ(onHost({"/bin/true"}).exitStatus, 0);
  EXPECT_EQ(onHost({"/bin/sh", "-c", "kill -9 $$"}).signal, SIGKILL);
  EXPECT_EQ(onHost({"/bin/sh", "-c", "kill -TERM $$"}).signal, SIGTERM);
  const Outcome missing = onHost({"no-such-command"});
  EXPECT_EQ(missing.exitStatus, 127);
  EXPECT_EQ(missing.err, "private-host: no-such-command: No such file or directory\n");
}

TEST_F(PrivateHostFromOutside, TheProgramAndTheDaemonAreInstalledAndAStoreCanBeCopied) {
  const std::string folder = places::source() + "/tests/transcripts";  // any folder works
  const char* script = "command -v ravctl; test -x /usr/sbin/hip && cat /etc/zuv/profiles/README.md";
  EXPECT_EQ(runProgram({kHost, "--store", folder, "--", "/bin/sh", "-c", script}).out,
            "/usr/bin/ravctl\n" + host::readFile(folder + "/README.md"));
}

TEST_F(PrivateHostFromOutside, NothingWrittenOrMountedInsideReachesTheMachine) {
  const std::string places =
      "/etc/zuv/profiles/x /etc/x-of-private-host /tmp/x-of-private-host /run/x-of-private-host "
      "/usr/bin/x-of-private-host /usr/sbin/x-of-private-host /var/x-of-private-host";
  const std::string mounts = host::readFile("/proc/self/mounts");
  const std::string script =
      "touch " + places + " && ls " + places + " | wc -l; mount -t tmpfs none /root && echo mounted";
  EXPECT_EQ(onHost({"/bin/sh", "-c", script}).out, "7\nmounted\n");
  EXPECT_EQ(runProgram({"/bin/sh", "-c", "ls " + places + " 2>/dev/null | wc -l"}).out, "0\n");
  EXPECT_EQ(host::readFile("/proc/self/mounts"), mounts);
}

TEST_F(PrivateHostFromOutside, AFolderOfTheMachineCanBeShownReadOnlyOrWritable) {
  const std::string file = std::string(folder_) + "/file";
  const char* write = "echo written >\"$0\" && echo \"$0\"";
  EXPECT_NE(runProgram({kHost, "--visible", folder_, "--", "/bin/sh", "-c", write, file}).exitStatus, 0);
  EXPECT_EQ(runProgram({kHost, "--writable", folder_, "--", "/bin/sh", "-c", write, file}).out,
            "/.private-host/shown/1/file\n");
  EXPECT_EQ(host::readFile(file), "written\n");
}

TEST_F(PrivateHostFromOutside, TheWorkingDirectoryIsTheSameFolderOfTheCheckoutOrElseTheRoot) {
  Start start;
  start.folder = places::source() + "/docs";
  EXPECT_EQ(onHost({"/bin/pwd"}, start).out, "/.private-host/source/docs\n");
  start.folder = places::build();
  EXPECT_EQ(onHost({"/bin/pwd"}, start).out, "/.private-host/build\n");
  start.folder = "/usr";
  EXPECT_EQ(onHost({"/bin/pwd"}, start).out, "/\n");
}

TEST_F(PrivateHostFromOutside, PathsOfTheCheckoutInArgumentsAndVariablesAreTranslated) {
  Start start;
  start.environment = {"WHERE=" + places::build() + "/x"};
  EXPECT_EQ(
      onHost({"/bin/sh", "-c", "echo $0 $1 $WHERE", places::source() + "/dev", "--to=" + places::build()}, start).out,
      "/.private-host/source/dev --to=/.private-host/build /.private-host/build/x\n");
}

TEST_F(PrivateHostFromOutside, TestsWriteToTheFolderInTheVariableRavctlMade) {
  Start start;
  start.environment = {std::string("RAVCTL_MADE=") + folder_};
  EXPECT_EQ(onHost({"/bin/sh", "-c", "echo written >/.private-host/made/file; echo $RAVCTL_MADE"}, start).out,
            "/.private-host/made\n");
  EXPECT_EQ(host::readFile(folder_ + std::string("/file")), "written\n");
}

TEST_F(PrivateHostFromOutside, TheFoldersOfAPrivateHostDoNotShowTheCheckout) {
  const Outcome outcome = onHost({"/bin/ls", "-A", "/", "/tmp", "/run", "/root", "/home", "/var"});
  EXPECT_EQ(outcome.out.find(places::source().substr(places::source().rfind('/') + 1) + "\n"), std::string::npos)
      << outcome.out;
}

TEST_F(PrivateHostFromOutside, AFolderWithTheNameOfTheHostDoesNotMakeTheMachineAPrivateHost) {
  // Otherwise a test would take the machine for a private host and empty its folders.
  const Outcome outcome = runProgram({"/bin/sh", "-c", "test -d /.private-host && echo there"});
  if (outcome.out == "there\n") GTEST_SKIP() << "this machine has such a folder";
  EXPECT_FALSE(PrivateHost::inside());
  EXPECT_THROW(host::reset(), std::runtime_error);
}

TEST_F(PrivateHostFromOutside, ProcessesInsideDieWithTheCommand) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);  // the sleeper inherits the write end and keeps the pipe open while it lives
  EXPECT_EQ(onHost({"/bin/sh", "-c", "setsid sleep 1000 >/dev/null 2>&1 &"}).exitStatus, 0);
  ::close(ends[1]);
  char byte;
  EXPECT_EQ(::read(ends[0], &byte, 1), 0);
  ::close(ends[0]);
}

TEST_F(PrivateHostFromOutside, ProcessesInsideDieWithTheOuterProcess) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const pid_t outer = ::fork();
  if (outer == 0) {
    ::dup2(ends[1], 1);
    ::execl(kHost.c_str(), "private-host", "sh", "-c", "setsid sleep 1000 & echo; exec sleep 1000", nullptr);
    ::_exit(126);
  }
  ::close(ends[1]);
  char byte;
  ASSERT_EQ(::read(ends[0], &byte, 1), 1);  // the process inside runs
  ::kill(outer, SIGKILL);
  ::waitpid(outer, nullptr, 0);
  EXPECT_EQ(::read(ends[0], &byte, 1), 0);  // no process has the write end open any more
  ::close(ends[0]);
}

TEST_F(PrivateHostFromOutside, AnOrdinaryUserGetsAPrivateHostToo) {
  if (::getuid() != 0) GTEST_SKIP() << "we are an ordinary user, so all other tests prove it";
  Start start;
  start.uid = 65534;
  // That user cannot reach a checkout in a closed home folder.
  if (runProgram({"/bin/sh", "-c", "test -x \"$0\" && test -r \"$1\"", kHost, places::hipStandin()}, start)
          .exitStatus != 0) {
    GTEST_SKIP() << "the build folder is closed to other users";
  }
  const Outcome outcome = onHost({"/bin/sh", "-c", "id -u; touch /usr/bin/new && rm /usr/bin/id && echo done"}, start);
  if (outcome.exitStatus == 125) GTEST_SKIP() << outcome.err;
  EXPECT_EQ(outcome.out, "0\ndone\n");
}

TEST_F(PrivateHostFromOutside, WithoutNamespacesItSaysWhyThereIsNoHost) {
  if (::getuid() != 0) GTEST_SKIP() << "only root can give up the right to create namespaces";
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_CAPBSET_DROP, CAP_SYS_ADMIN);
    const Outcome outcome = onHost({"/bin/true"});
    ::_exit(outcome.exitStatus == 125 &&
                    outcome.err == "private-host: no private host: new namespaces: Operation not permitted\n"
                ? 0
                : 1);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST_F(PrivateHostFromOutside, AnotherBuildCanBeShownWithTheProgramOfThisBuild) {
  host::writeFile(folder_ + std::string("/testing/private-host"), "no program of this machine\n", 0755);
  const std::string script = "cat /.private-host/build/testing/private-host; ravctl list versions | wc -l";
  EXPECT_EQ(runProgram({kHost, "--build", folder_, "--", "/bin/sh", "-c", script}).out,
            "no program of this machine\n2\n");
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
