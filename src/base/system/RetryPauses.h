// RetryPauses: the pauses of a loop that tries again until another process is done, or until a deadline.
//
//   RetryPauses pauses(deadline);
//   while (!tryOnce()) {
//     if (!pauses.next()) return false;        // the deadline has come
//   }
//
// The first pause takes 1 ms, and each of the others twice as long as the one before it, but 20 ms at most. The last
// one ends at the deadline.
#pragma once

#include <chrono>

class RetryPauses {
 public:
  using Clock = std::chrono::steady_clock;

  explicit RetryPauses(Clock::time_point deadline) : deadline_(deadline) {}

  // Pauses, as described above, and returns true. Returns false at once if the deadline has come.
  bool next();

 private:
  const Clock::time_point deadline_;
  Clock::duration pause_ = std::chrono::milliseconds(1);
};
