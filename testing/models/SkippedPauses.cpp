#include "testing/models/SkippedPauses.h"

#include <time.h>

#include <mutex>
#include <numeric>
#include <optional>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

std::mutex guard;
std::optional<Clock::time_point> standing;  // set while pauses are skipped
std::vector<nanoseconds> skipped;

bool skip(const timespec& pause) {
  const std::lock_guard<std::mutex> lock(guard);
  if (!standing) return false;
  skipped.push_back(std::chrono::seconds(pause.tv_sec) + nanoseconds(pause.tv_nsec));
  *standing += skipped.back();
  return true;
}

}  // namespace

// The linker turns each call of a wrapped function into a call of __wrap_NAME (testing/CMakeLists.txt).
Clock::time_point realNow() asm("__real__ZNSt6chrono3_V212steady_clock3nowEv");
Clock::time_point wrappedNow() asm("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");

Clock::time_point wrappedNow() {
  const std::lock_guard<std::mutex> lock(guard);
  return standing ? *standing : realNow();
}

#define WRAP_SLEEP(name)                                                     \
  extern "C" int __real_##name(const timespec* pause, timespec* remainder);  \
  extern "C" int __wrap_##name(const timespec* pause, timespec* remainder);  \
  extern "C" int __wrap_##name(const timespec* pause, timespec* remainder) { \
    return skip(*pause) ? 0 : __real_##name(pause, remainder);               \
  }
WRAP_SLEEP(nanosleep)
#if __SIZEOF_POINTER__ == 4
WRAP_SLEEP(__nanosleep64)  // with times of 64 bits
#endif

SkippedPauses::SkippedPauses() {
  const std::lock_guard<std::mutex> lock(guard);
  skipped.clear();
  standing = realNow();
}

SkippedPauses::~SkippedPauses() {
  const std::lock_guard<std::mutex> lock(guard);
  standing.reset();
}

std::vector<std::int64_t> SkippedPauses::millis() const {
  const std::lock_guard<std::mutex> lock(guard);
  std::vector<std::int64_t> millis;
  for (const nanoseconds pause : skipped)
    millis.push_back(std::chrono::duration_cast<std::chrono::milliseconds>(pause).count());
  return millis;
}

nanoseconds SkippedPauses::total() const {
  const std::lock_guard<std::mutex> lock(guard);
  return std::accumulate(skipped.begin(), skipped.end(), nanoseconds(0));
}
