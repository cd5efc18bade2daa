#include "testing/models/WallClock.h"

#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace {

enum class Source { system, test, broken };

std::atomic<Source> source{Source::system};
std::atomic<std::int64_t> standing{0};
std::atomic<int> asked{0};

void answer(timeval& time, std::int64_t seconds, std::int64_t micros) {
  time.tv_sec = static_cast<decltype(time.tv_sec)>(seconds);
  time.tv_usec = static_cast<decltype(time.tv_usec)>(micros);
}

}  // namespace

extern "C" int gettimeofday(struct timeval* time, void*) noexcept {
  const std::int64_t now = standing;
  ++asked;  // after the time was read, so that a test that waits for this count may then move the clock
  if (source == Source::broken) {
    errno = EFAULT;
    return -1;
  }
  if (source == Source::test) {
    answer(*time, now / 1'000'000, now % 1'000'000);
    return 0;
  }
  timespec real{};
  ::clock_gettime(CLOCK_REALTIME, &real);
  answer(*time, real.tv_sec, real.tv_nsec / 1'000);
  return 0;
}

WallClock::WallClock(std::int64_t micros) {
  standing = micros;
  asked = 0;
  source = Source::test;
}

WallClock::~WallClock() { source = Source::system; }

void WallClock::moveTo(std::int64_t micros) { standing = micros; }

void WallClock::fail() { source = Source::broken; }

int WallClock::timesAsked() const { return asked; }

void WallClock::waitUntilAsked(int times) const {
  for (int i = 0; i < 300'000 && timesAsked() < times; ++i) ::usleep(100);
}
