#include "testing/faults/TimeLimit.h"

#include <signal.h>
#include <unistd.h>

#include <stdexcept>

namespace {

volatile pid_t watched[2] = {0, 0};
volatile std::sig_atomic_t limitReached = 0;

void endAtLimit(int) {
  limitReached = 1;
  for (const pid_t group : watched) {
    if (group > 0) ::kill(-group, SIGKILL);
  }
}

}  // namespace

TimeLimit::TimeLimit(unsigned seconds) {
  limitReached = 0;
  watched[0] = watched[1] = 0;
  struct sigaction action = {};
  action.sa_handler = endAtLimit;
  ::sigaction(SIGALRM, &action, &before_);
  ::alarm(seconds);
}

TimeLimit::~TimeLimit() {
  ::alarm(0);
  ::sigaction(SIGALRM, &before_, nullptr);
}

void TimeLimit::watch(pid_t group) {
  if (watched[1] != 0) throw std::logic_error("a time limit has room for two process groups");
  watched[watched[0] == 0 ? 0 : 1] = group;
  if (isReached()) (void)::kill(-group, SIGKILL);
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): only a living limit can be asked
bool TimeLimit::isReached() const { return limitReached != 0; }
