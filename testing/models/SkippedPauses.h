// SkippedPauses: while it lives, pauses take no time, and std::chrono::steady_clock moves on by the length of each
// pause and by nothing else. There may be only one at a time.
//
//   const SkippedPauses skipped;
//   EXPECT_FALSE(lockFile(fd, std::chrono::steady_clock::now() + std::chrono::seconds(1)));
//   EXPECT_EQ(skipped.total(), std::chrono::seconds(1));
//
// A pause is a call of nanosleep(2), as std::this_thread::sleep_for makes it. A wait for a condition variable is none.
// Threads: the pauses of all threads count.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

class SkippedPauses {
 public:
  SkippedPauses();
  ~SkippedPauses();
  SkippedPauses(const SkippedPauses&) = delete;
  SkippedPauses& operator=(const SkippedPauses&) = delete;

  // The milliseconds of each pause so far, in order.
  std::vector<std::int64_t> millis() const;
  // The sum of all pauses so far.
  std::chrono::nanoseconds total() const;
};
