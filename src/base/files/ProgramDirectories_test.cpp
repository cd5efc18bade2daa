#include "base/files/ProgramDirectories.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

#include "base/files/RemoveTree.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

class ProgramDirectoriesTest : public HostTest {};

TEST_F(ProgramDirectoriesTest, TheWorkingDirectoryIsReturnedUntilItIsRemoved) {
  host::makeDirs("/tmp/here");
  ASSERT_EQ(::chdir("/tmp/here"), 0);
  std::string dir = "old";
  EXPECT_THAT(FileUtils::getCurrentDir(dir), HasCode(status::success));
  EXPECT_EQ(dir, "/tmp/here");
  host::remove("/tmp/here");
  EXPECT_THAT(FileUtils::getCurrentDir(dir), HasCode(status::getcwdError));
  EXPECT_EQ(dir, "");
}

TEST_F(ProgramDirectoriesTest, AWorkingDirectoryBeyondTheBufferIsAFailure) {
  const std::string name(200, 'd');
  ASSERT_EQ(::chdir("/tmp"), 0);
  for (int depth = 0; depth < 25; ++depth) {
    ASSERT_EQ(::mkdir(name.c_str(), 0755), 0);
    ASSERT_EQ(::chdir(name.c_str()), 0);
  }
  std::string dir = "old";
  EXPECT_THAT(FileUtils::getCurrentDir(dir), HasCode(status::getcwdError));
  EXPECT_EQ(dir, "");
  ASSERT_EQ(::chdir("/"), 0);
  EXPECT_THAT(FileUtils::removeTree("/tmp/" + name), HasCode(status::success));
}

TEST_F(ProgramDirectoriesTest, TheConfigurationRootIsFixed) { EXPECT_STREQ(FileUtils::configRoot(), "/etc/zuv/"); }

// Returns the result of the function in a child process where the environment variable has that value. If the value is
// null, the variable is not set. Returns "changed" if a later value of the variable changes the result.
// Each call needs a new process, because a process reads the directory once.
std::string directoryIn(const char* variable, const char* value, const std::string& (*directory)()) {
  int ends[2];
  EXPECT_EQ(::pipe(ends), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    if (value != nullptr) ::setenv(variable, value, 1);
    const std::string before = directory();
    ::setenv(variable, "/later", 1);
    const std::string answer = before == directory() ? before : "changed";
    ::_exit(::write(ends[1], answer.data(), answer.size()) < 0);
  }
  ::close(ends[1]);
  char answer[4096];
  const ssize_t length = ::read(ends[0], answer, sizeof answer);
  ::close(ends[0]);
  EXPECT_EQ(::waitpid(child, nullptr, 0), child);
  return std::string(answer, static_cast<std::size_t>(length));
}

// A process reads these directories once. GoogleTest runs suites whose name ends in DeathTest first, so no other test
// of this process has read them yet.
using ProgramDirectoryDeathTest = HostTest;

TEST_F(ProgramDirectoryDeathTest, TheTemporaryAndTheLockDirectoryEndInASlashAndAreMade) {
  struct Case {
    const char* variable;
    const std::string& (*directory)();
    const char* fallback;
  };
  const Case cases[] = {{"ZUV_TMP_DIR", FileUtils::tempDir, "/tmp/"},
                        {"ZUV_LOCK_DIR", FileUtils::lockDir, "/tmp/lock/"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.variable);
    host::remove("/tmp/lock");
    host::remove("/tmp/ours");
    EXPECT_EQ(directoryIn(c.variable, nullptr, c.directory), c.fallback);
    EXPECT_EQ(directoryIn(c.variable, "", c.directory), c.fallback);
    EXPECT_EQ(directoryIn(c.variable, "/tmp/ours", c.directory), "/tmp/ours/");
    EXPECT_EQ(host::modeOf("/tmp/ours"), 0750u);
    EXPECT_EQ(directoryIn(c.variable, "ours", c.directory), "ours/");
    EXPECT_EQ(directoryIn(c.variable, "/tmp/missing/ours/", c.directory), "/tmp/missing/ours/");
  }
  EXPECT_EQ(host::modeOf("/tmp/lock"), 0750u);
}

// Sixteen threads call the function for the first time. Returns 0 if all got the same text and the directory was made
// once.
int firstCallsOfManyThreads(const std::string& (*directory)()) {
  FaultPlan plan;
  plan.calls = {"mkdir"};
  plan.before = [](std::size_t) { ::usleep(20'000); };  // the other threads call meanwhile
  const ArmedFaults counted(plan);
  std::atomic<bool> mayBegin{false};
  std::vector<const std::string*> results(16);
  std::vector<std::thread> threads;
  for (const std::string*& result : results) {
    threads.emplace_back([&] {
      while (!mayBegin) std::this_thread::yield();
      result = &directory();
    });
  }
  mayBegin = true;
  for (std::thread& thread : threads) thread.join();
  if (counted.count() != 1) return 1;
  for (const std::string* result : results) {
    if (result != results[0] || *result != "/tmp/ours/") return 2;
  }
  return 0;
}

TEST_F(ProgramDirectoryDeathTest, ManyThreadsMayMakeTheFirstCallAtTheSameTime) {
  for (const auto directory : {FileUtils::tempDir, FileUtils::lockDir}) {
    host::remove("/tmp/ours");
    const pid_t child = ::fork();
    if (child == 0) {
      ::setenv("ZUV_TMP_DIR", "/tmp/ours", 1);
      ::setenv("ZUV_LOCK_DIR", "/tmp/ours", 1);
      ::_exit(firstCallsOfManyThreads(directory));
    }
    int waitStatus = -1;
    ASSERT_EQ(::waitpid(child, &waitStatus, 0), child);
    EXPECT_EQ(waitStatus, 0);
    EXPECT_EQ(host::modeOf("/tmp/ours"), 0750u);
  }
}

}  // namespace
