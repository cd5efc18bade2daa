#include "base/threads/ThreadNames.h"

#include <pthread.h>

#include <cerrno>
#include <ctime>

#include "base/text/TimeUtils.h"

namespace {

constexpr char anonymousThread[] = "<anonymous thread>";
constexpr std::int64_t wholeSecondsFrom = 5;

}  // namespace

void setThreadName(const char* name) {
  const bool isNamed = name != nullptr && *name != '\0';
  (void)::pthread_setname_np(::pthread_self(), isNamed ? name : anonymousThread);  // a refused name is no failure
}

std::string getThreadName() {
  char name[sizeof "fifteen letters"];  // the system has no longer names
  if (::pthread_getname_np(::pthread_self(), name, sizeof name) != 0) return "<error in pthread_getname>";
  return name;
}

void sleepMicros(std::int64_t micros) {
  if (micros <= 0) return;
  const std::int64_t seconds = micros / TimeUtils::microsPerSecond;
  const std::int64_t remainder = seconds < wholeSecondsFrom ? micros % TimeUtils::microsPerSecond : 0;
  timespec left{};
  left.tv_sec = static_cast<decltype(left.tv_sec)>(seconds);
  left.tv_nsec = static_cast<decltype(left.tv_nsec)>(remainder * 1'000);
  while (::nanosleep(&left, &left) == -1 && errno == EINTR) {
  }
}
