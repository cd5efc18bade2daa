#include "testing/faults/FaultInjector.h"

#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "testing/run/HostTest.h"

namespace {

constexpr const char* kPath = "/tmp/file";

// Makes four calls: open, write, fsync, close. Returns true if all of them succeed.
bool writeCarefully() {
  const int fd = ::open(kPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  const bool written = ::write(fd, "text", 4) == 4 && ::fsync(fd) == 0;
  return ::close(fd) == 0 && written;
}

bool writeIgnoringErrors() {
  const int fd = ::open(kPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  (void)!::write(fd, "text", 4);
  return ::close(fd) == 0;
}

bool leaveOpenOnFailure() {
  const int fd = ::open(kPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0 || ::write(fd, "text", 4) != 4) return false;
  return ::close(fd) == 0;
}

void expectFailureWithFault(bool worked, const Fault& fault) { EXPECT_EQ(worked, !fault); }

// Runs the operation under the fault loop, in the mode in which one call fails once. Returns the number of test
// failures that the loop reports.
int failuresReported(bool (*operation)(), std::string* firstMessage) {
  testing::TestPartResultArray failures;
  {
    const testing::ScopedFakeTestPartResultReporter reporter(
        testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
    forEachFault({[] { host::reset(); }, {}, EIO, true}, operation, expectFailureWithFault);
  }
  if (failures.size() > 0) *firstMessage = failures.GetTestPartResult(0).message();
  return failures.size();
}

using FaultInjectorTest = HostTest;

TEST_F(FaultInjectorTest, AnOperationThatChecksErrorsPassesAndItsCallsAreCounted) {
  int runs = 0;
  const std::size_t steps = forEachFault({[] { host::reset(); }}, writeCarefully, [&](bool worked, const Fault& fault) {
    ++runs;
    expectFailureWithFault(worked, fault);
  });
  EXPECT_EQ(steps, 4u);
  EXPECT_EQ(runs, 1 + 2 * 4);
}

TEST_F(FaultInjectorTest, AnIgnoredWriteErrorIsCaught) {
  std::string message;
  EXPECT_EQ(failuresReported(writeIgnoringErrors, &message), 1);
  EXPECT_THAT(message, testing::HasSubstr("call 2, write, failed with EIO; calls: open write close"));
}

TEST_F(FaultInjectorTest, ALeakedDescriptorIsCaught) {
  std::string message;
  EXPECT_EQ(failuresReported(leaveOpenOnFailure, &message), 1);
  EXPECT_THAT(message, testing::HasSubstr("a descriptor was leaked: call 2, write, failed with EIO"));
  EXPECT_THAT(message, testing::HasSubstr("-> /tmp/file"));
}

TEST_F(FaultInjectorTest, PrepareRunsBeforeEveryRun) {
  int scenes = 0;
  forEachFault({[&] { ++scenes; }}, writeCarefully, [](bool, const Fault&) {});
  EXPECT_EQ(scenes, 9);
}

TEST_F(FaultInjectorTest, TheChosenCallAndAllLaterCallsFail) {
  const ArmedFaults armed({2, true, ENOSPC, {}, false});
  EXPECT_EQ(::access("/", F_OK), 0);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(::access("/", F_OK), -1);
    EXPECT_EQ(errno, ENOSPC);
  }
  EXPECT_EQ(armed.count(), 4u);
}

TEST_F(FaultInjectorTest, OnlyTheNamedCallsCount) {
  const ArmedFaults armed({1, false, EIO, {"fsync", "close"}, false});
  EXPECT_FALSE(writeCarefully());
  EXPECT_EQ(armed.calls(), (std::vector<std::string>{"fsync", "close"}));
}

TEST_F(FaultInjectorTest, NoCallFailsAfterThePlanIsDisarmed) {
  {
    const ArmedFaults armed({1, true, EIO, {}, false});
    EXPECT_FALSE(writeCarefully());
  }
  EXPECT_TRUE(writeCarefully());
}

TEST_F(FaultInjectorTest, AFailedCloseReleasesTheDescriptor) {
  const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  {
    const ArmedFaults armed({1, false, EIO, {}, false});
    EXPECT_EQ(::close(fd), -1);
    EXPECT_EQ(errno, EIO);
  }
  EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
}

TEST_F(FaultInjectorTest, ReadsAndWritesCanMoveOneByteAtATime) {
  host::writeFile(kPath, "text");
  const ArmedFaults armed({0, false, 0, {}, true});
  const int fd = ::open(kPath, O_RDWR | O_CLOEXEC);
  char bytes[4];
  EXPECT_EQ(::read(fd, bytes, sizeof bytes), 1);
  EXPECT_EQ(::pread(fd, bytes, sizeof bytes, 0), 1);
  EXPECT_EQ(::write(fd, "more", 4), 1);
  EXPECT_EQ(::pwrite(fd, "more", 4, 0), 1);
  EXPECT_EQ(::write(fd, "", 0), 0);
  EXPECT_EQ(::close(fd), 0);
}

TEST_F(FaultInjectorTest, CallsOfAChildProcessDoNotFail) {
  const ArmedFaults armed({2, true, EIO, {}, false});
  const pid_t child = ::fork();
  if (child == 0) ::_exit(::access("/", F_OK) == 0 ? 0 : 1);
  int status = -1;
  // Our own waitpid is the second counted call and fails. wait is not wrapped.
  EXPECT_EQ(::waitpid(child, &status, 0), -1);
  EXPECT_EQ(::wait(&status), child);
  EXPECT_EQ(status, 0);
}

TEST_F(FaultInjectorTest, AFailedForkStartsNoProcess) {
  const ArmedFaults armed({1, false, EAGAIN, {"fork"}, false});
  EXPECT_EQ(::fork(), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(::wait(nullptr), -1);
}

TEST_F(FaultInjectorTest, CallsOfAllThreadsAreCounted) {
  const ArmedFaults armed({0, false, 0, {"access"}, false});
  auto call = [] {
    for (int i = 0; i < 100; ++i) (void)!::access("/", F_OK);
  };
  std::thread one(call), two(call);
  one.join();
  two.join();
  EXPECT_EQ(armed.count(), 200u);
}

TEST_F(FaultInjectorTest, CallsWith64BitOffsetsHaveTheirPlainNames) {
  const ArmedFaults armed({0, false, 0, {}, false});
  struct stat info {};
  EXPECT_EQ(::stat("/", &info), 0);
  EXPECT_EQ(::lstat("/", &info), 0);
  EXPECT_EQ(::lseek(-1, 0, SEEK_SET), -1);
  EXPECT_EQ(armed.calls(), (std::vector<std::string>{"stat", "lstat", "lseek"}));
}

TEST_F(FaultInjectorTest, ThePlanCanActBeforeACall) {
  FaultPlan plan;
  plan.calls = {"access", "unlink"};
  plan.before = [](std::size_t number) {
    if (number == 2) (void)::unlink(kPath);
  };
  host::writeFile(kPath, "text");
  const ArmedFaults armed(plan);
  EXPECT_EQ(::access(kPath, F_OK), 0);
  EXPECT_EQ(::access(kPath, F_OK), -1);
  EXPECT_EQ(armed.count(), 2u) << "a call of the callback was counted";
}

}  // namespace
