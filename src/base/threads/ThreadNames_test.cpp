#include "base/threads/ThreadNames.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "base/text/TimeUtils.h"

// Replaces the system's calls for sleeps and thread names, so that a test can watch them or make them fail.
namespace {
thread_local std::vector<timespec>* recordedSleeps = nullptr;
thread_local int refusedSleeps = 0;
thread_local bool namesFail = false;
thread_local std::vector<std::string>* recordedNames = nullptr;
}  // namespace

extern "C" int nanosleep(const struct timespec* length, struct timespec* left) {
  if (recordedSleeps != nullptr) {
    recordedSleeps->push_back(*length);
    errno = EINVAL;
    return refusedSleeps > 0 && refusedSleeps-- > 0 ? -1 : 0;
  }
  const int error = ::clock_nanosleep(CLOCK_REALTIME, 0, length, left);
  if (error == 0) return 0;
  errno = error;
  return -1;
}

extern "C" int __real_pthread_setname_np(pthread_t thread, const char* name);
extern "C" int __wrap_pthread_setname_np(pthread_t thread, const char* name);
extern "C" int __wrap_pthread_setname_np(pthread_t thread, const char* name) {
  if (recordedNames != nullptr) recordedNames->emplace_back(name);
  return __real_pthread_setname_np(thread, name);
}

extern "C" int pthread_getname_np(pthread_t, char* name, std::size_t) {
  return namesFail || ::prctl(PR_GET_NAME, name) != 0 ? ERANGE : 0;
}

namespace {

template <typename Body>
void onOwnThread(Body body) {
  std::thread thread(body);
  thread.join();
}

TEST(ThreadName, IsReadBackAsSet) {
  onOwnThread([] {
    setThreadName("logging_output");
    EXPECT_EQ(getThreadName(), "logging_output");
    setThreadName("123456789012345");
    EXPECT_EQ(getThreadName(), "123456789012345");
  });
}

TEST(ThreadName, ALongerNameThanFifteenBytesIsRefusedSilently) {
  onOwnThread([] {
    setThreadName("kept");
    setThreadName("1234567890123456");
    EXPECT_EQ(getThreadName(), "kept");
  });
}

TEST(ThreadName, AnEmptyNameMeansANameThatTheSystemRefuses) {
  onOwnThread([] {
    setThreadName("kept");
    std::vector<std::string> names;
    recordedNames = &names;
    setThreadName("");
    setThreadName(nullptr);
    recordedNames = nullptr;
    EXPECT_EQ(names, (std::vector<std::string>{"<anonymous thread>", "<anonymous thread>"}));
    EXPECT_EQ(getThreadName(), "kept");
  });
}

TEST(ThreadName, ANameThatCannotBeReadIsAnErrorText) {
  namesFail = true;
  const std::string name = getThreadName();
  namesFail = false;
  EXPECT_EQ(name, "<error in pthread_getname>");
}

TEST(ThreadName, BelongsToTheCallingThreadAlone) {
  const std::string before = getThreadName();
  onOwnThread([] { setThreadName("another"); });
  EXPECT_EQ(getThreadName(), before);
}

std::vector<timespec> sleepsOf(std::int64_t micros) {
  std::vector<timespec> sleeps;
  recordedSleeps = &sleeps;
  sleepMicros(micros);
  recordedSleeps = nullptr;
  return sleeps;
}

TEST(SleepMicros, SleepsExactlyBelowFiveSecondsAndWholeSecondsFromFiveOn) {
  const struct {
    std::int64_t micros;
    time_t seconds;
    long nanos;
  } cases[] = {
      {1, 0, 1'000},
      {999'999, 0, 999'999'000},
      {1'000'000, 1, 0},
      {4'999'999, 4, 999'999'000},
      {5'000'000, 5, 0},
      {5'500'000, 5, 0},
      {5'999'999, 5, 0},
      {61'000'001, 61, 0},
      {INT64_MAX, 9'223'372'036'854, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.micros);
    const std::vector<timespec> sleeps = sleepsOf(c.micros);
    ASSERT_EQ(sleeps.size(), 1U);
    EXPECT_EQ(sleeps[0].tv_sec, c.seconds);
    EXPECT_EQ(sleeps[0].tv_nsec, c.nanos);
  }
}

TEST(SleepMicros, ZeroAndNegativeTimesDoNotSleep) {
  EXPECT_TRUE(sleepsOf(0).empty());
  EXPECT_TRUE(sleepsOf(-1).empty());
  EXPECT_TRUE(sleepsOf(INT64_MIN).empty());
}

TEST(SleepMicros, AFailedSleepIsNotRetried) {
  refusedSleeps = 3;
  EXPECT_EQ(sleepsOf(1'000).size(), 1U);
  refusedSleeps = 0;
}

TEST(SleepMicros, ASignalDoesNotShortenIt) {
  struct sigaction action {};
  struct sigaction old {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGUSR1, &action, &old), 0);
  const std::int64_t start = TimeUtils::monotonicMicros();
  std::thread sleeper([] { sleepMicros(200'000); });
  ::usleep(50'000);
  ::pthread_kill(sleeper.native_handle(), SIGUSR1);
  sleeper.join();
  EXPECT_GE(TimeUtils::monotonicMicros() - start, 200'000);
  ::sigaction(SIGUSR1, &old, nullptr);
}

}  // namespace
