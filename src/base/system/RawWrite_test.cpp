#include "base/system/RawWrite.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include "testing/faults/FaultInjector.h"

namespace {

TEST(WriteFully, ContinuesAfterShortWritesAndInterruptions) {
  struct sigaction action {};
  struct sigaction old {};
  action.sa_handler = [](int) {};  // without SA_RESTART: a blocked write is interrupted
  ASSERT_EQ(::sigaction(SIGUSR1, &action, &old), 0);
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);

  const std::string sent(1'000'000, 'x');  // more than a pipe holds
  bool written = false;
  std::thread writer([&] {
    written = writeFully(ends[1], sent);
    ::close(ends[1]);
  });
  std::string received;
  char buffer[10'000];
  ssize_t count = 0;
  while ((count = ::read(ends[0], buffer, sizeof buffer)) > 0) {
    received.append(buffer, static_cast<std::size_t>(count));
    if (received.size() < sent.size() / 2) ::pthread_kill(writer.native_handle(), SIGUSR1);
    ::usleep(100);
  }
  writer.join();
  ::close(ends[0]);
  ::sigaction(SIGUSR1, &old, nullptr);
  EXPECT_TRUE(written);
  EXPECT_EQ(received, sent);
}

TEST(WriteFully, AFailedWriteReturnsFalseAndKeepsItsErrno) {
  errno = 0;
  EXPECT_FALSE(writeFully(-1, "x"));
  EXPECT_EQ(errno, EBADF);
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  EXPECT_FALSE(writeFully(full, "x"));
  EXPECT_EQ(errno, ENOSPC);
  ::close(full);
}

TEST(WriteFully, ADeviceThatAcceptsNoByteIsAnErrorNotAnEndlessLoop) {
  FaultPlan plan;
  plan.at = 1;
  plan.fromThereOn = true;
  plan.error = 0;
  const ArmedFaults armed(plan);
  EXPECT_FALSE(writeFully(STDOUT_FILENO, "x"));
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(armed.count(), 1u);
}

TEST(WriteFully, AnEmptyTextMakesNoSystemCall) { EXPECT_TRUE(writeFully(-1, "")); }

}  // namespace
