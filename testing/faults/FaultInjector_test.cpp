#include "testing/faults/FaultInjector.h"

#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "testing/run/HostTest.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kPath = "/tmp/file";

int openForWriting() { return ::open(kPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644); }

// Makes four calls: open, write, fsync, close. Returns true if all of them succeed.
bool writeCarefully() {
  const int fd = openForWriting();
  if (fd < 0) return false;
  const bool written = ::write(fd, "text", 4) == 4 && ::fsync(fd) == 0;
  return ::close(fd) == 0 && written;
}

bool writeIgnoringErrors() {
  const int fd = openForWriting();
  if (fd < 0) return false;
  (void)!::write(fd, "text", 4);
  return ::close(fd) == 0;
}

bool leaveOpenOnFailure() {
  const int fd = openForWriting();
  return fd >= 0 && ::write(fd, "text", 4) == 4 && ::close(fd) == 0;
}

void expectFailureWithFault(bool worked, const Fault& fault) { EXPECT_EQ(worked, !fault); }

// Runs the operation under the fault loop, in the mode in which one call fails once. Returns the messages of the test
// failures that the loop reports.
std::vector<std::string> failuresReported(bool (*operation)()) {
  testing::TestPartResultArray failures;
  {
    const testing::ScopedFakeTestPartResultReporter reporter(
        testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
    forEachFault({[] { host::reset(); }, {}, EIO, true}, operation, expectFailureWithFault);
  }
  std::vector<std::string> messages;
  for (int i = 0; i < failures.size(); ++i) messages.emplace_back(failures.GetTestPartResult(i).message());
  return messages;
}

using FaultInjectorTest = HostTest;

TEST_F(FaultInjectorTest, AnOperationThatChecksErrorsPassesAndItsCallsAreCounted) {
  int prepared = 0;
  int checked = 0;
  const std::size_t steps = forEachFault({[&] { ++prepared; }}, writeCarefully, [&](bool worked, const Fault& fault) {
    ++checked;
    EXPECT_EQ(prepared, checked) << "each run is prepared";
    expectFailureWithFault(worked, fault);
  });
  EXPECT_EQ(steps, 4u);
  EXPECT_EQ(checked, 1 + 2 * 4);
}

TEST_F(FaultInjectorTest, AnIgnoredErrorAndALeakedDescriptorAreCaught) {
  EXPECT_THAT(failuresReported(writeIgnoringErrors),
              ElementsAre(HasSubstr("call 2, write, failed with EIO; calls: open write close")));
  EXPECT_THAT(failuresReported(leaveOpenOnFailure),
              ElementsAre(AllOf(HasSubstr("a descriptor was leaked: call 2, write, failed with EIO"),
                                HasSubstr("-> /tmp/file"))));
}

TEST_F(FaultInjectorTest, TheChosenCallAndAllLaterCallsFailUntilThePlanIsDisarmed) {
  {
    const ArmedFaults armed({2, true, ENOSPC, {}, false});
    EXPECT_EQ(::access("/", F_OK), 0);
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(::access("/", F_OK), -1);
      EXPECT_EQ(errno, ENOSPC);
    }
    EXPECT_EQ(armed.count(), 4u);
    EXPECT_FALSE(writeCarefully());
  }
  EXPECT_TRUE(writeCarefully());
}

TEST_F(FaultInjectorTest, OnlyTheNamedCallsCountAndTheir64BitVariantsHaveTheSameName) {
  {
    const ArmedFaults armed({1, false, EIO, {"fsync", "close"}, false});
    EXPECT_FALSE(writeCarefully());
    EXPECT_EQ(armed.calls(), (std::vector<std::string>{"fsync", "close"}));
  }
  const ArmedFaults armed({0, false, 0, {}, false});
  struct stat info {};
  EXPECT_EQ(::stat("/", &info), 0);
  EXPECT_EQ(::lstat("/", &info), 0);
  EXPECT_EQ(::lseek(-1, 0, SEEK_SET), -1);
  EXPECT_EQ(armed.calls(), (std::vector<std::string>{"stat", "lstat", "lseek"}));
}

TEST_F(FaultInjectorTest, AFailedCloseReleasesTheDescriptorAndAFailedForkStartsNoProcess) {
  const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  {
    const ArmedFaults armed({1, true, EAGAIN, {"close", "fork"}, false});
    EXPECT_EQ(::close(fd), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(::fork(), -1);
    EXPECT_EQ(errno, EAGAIN);
  }
  EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(::wait(nullptr), -1);
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
