// TimeLimit: kills process groups when a time has passed, and so ends a trace of them that waits for ever.
//
//   TimeLimit limit(plan.seconds);
//   limit.watch(pid);  // after each fork
//   ...
//   if (limit.isReached()) ...
//
// It uses SIGALRM, so only one can live at a time. The destructor restores the action of that signal.
#pragma once

#include <sys/types.h>

#include <csignal>

class TimeLimit {
 public:
  explicit TimeLimit(unsigned seconds);
  ~TimeLimit();
  TimeLimit(const TimeLimit&) = delete;
  TimeLimit& operator=(const TimeLimit&) = delete;

  // At the limit, SIGKILL goes to this process group; at once if the limit is reached already. There is room for two.
  void watch(pid_t group);
  bool isReached() const;

 private:
  struct sigaction before_ = {};
};
