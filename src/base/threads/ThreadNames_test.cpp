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
#include <utility>
#include <vector>

#include "base/text/TimeUtils.h"

// Replaces the system's calls for sleeps and thread names, so that a test can watch them or make them fail.
namespace {
using Sleeps = std::vector<std::pair<time_t, long>>;  // seconds and nanoseconds
thread_local Sleeps* recordedSleeps = nullptr;
thread_local int refusedSleeps = 0;
thread_local bool namesFail = false;
thread_local std::vector<std::string>* recordedNames = nullptr;
}  // namespace

extern "C" int nanosleep(const struct timespec* length, struct timespec* left) {
  if (recordedSleeps != nullptr) {
    recordedSleeps->emplace_back(length->tv_sec, length->tv_nsec);
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

TEST(ThreadName, IsReadBackAsSetUnlessTheSystemRefusesIt) {
  const struct {
    const char *why, *name, *asked, *readBack;
  } cases[] = {
      {"a short name", "logging_output", "logging_output", "logging_output"},
      {"fifteen bytes", "123456789012345", "123456789012345", "123456789012345"},
      {"a longer name is refused silently", "1234567890123456", "1234567890123456", "kept"},
      {"an empty name means a name that the system refuses", "", "<anonymous thread>", "kept"},
      {"no name means a name that the system refuses", nullptr, "<anonymous thread>", "kept"},
  };
  for (const auto& c : cases) {
    std::thread([&c] {
      SCOPED_TRACE(c.why);
      setThreadName("kept");
      std::vector<std::string> names;
      recordedNames = &names;
      setThreadName(c.name);
      recordedNames = nullptr;
      EXPECT_EQ(names, std::vector<std::string>{c.asked});
      EXPECT_EQ(getThreadName(), c.readBack);
    }).join();
  }
}

TEST(ThreadName, ANameThatCannotBeReadIsReplacedByAnErrorText) {
  namesFail = true;
  const std::string name = getThreadName();
  namesFail = false;
  EXPECT_EQ(name, "<error in pthread_getname>");
}

TEST(ThreadName, BelongsToTheCallingThreadAlone) {
  const std::string before = getThreadName();
  std::thread([] { setThreadName("another"); }).join();
  EXPECT_EQ(getThreadName(), before);
}

Sleeps sleepsOf(std::int64_t micros) {
  Sleeps sleeps;
  recordedSleeps = &sleeps;
  sleepMicros(micros);
  recordedSleeps = nullptr;
  return sleeps;
}

TEST(SleepMicros, SleepsExactlyBelowFiveSecondsWholeSecondsFromFiveOnAndNeverForZero) {
  const struct {
    std::int64_t micros;
    Sleeps sleeps;
  } cases[] = {
      {1, {{0, 1'000}}},
      {999'999, {{0, 999'999'000}}},
      {1'000'000, {{1, 0}}},
      {4'999'999, {{4, 999'999'000}}},
      {5'000'000, {{5, 0}}},
      {5'500'000, {{5, 0}}},
      {5'999'999, {{5, 0}}},
      {61'000'001, {{61, 0}}},
      {INT64_MAX, {{9'223'372'036'854, 0}}},
      {0, {}},
      {-1, {}},
      {INT64_MIN, {}},
  };
  for (const auto& c : cases) EXPECT_EQ(sleepsOf(c.micros), c.sleeps) << c.micros;
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
