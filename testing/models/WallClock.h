// WallClock: while it lives, gettimeofday(2) answers what the test says. There is one at a time.
//
//   WallClock clock(10'000'000);          // it stands still, ten seconds after 1970 began
//   clock.moveTo(11'000'000);
//   clock.fail();                         // from now on the call fails
//
// Threads: all of the process see this clock, and any may move it.
#pragma once

#include <cstdint>

class WallClock {
 public:
  explicit WallClock(std::int64_t micros);
  // The system's clock again.
  ~WallClock();
  WallClock(const WallClock&) = delete;
  WallClock& operator=(const WallClock&) = delete;

  void moveTo(std::int64_t micros);
  void fail();

  // How often it was asked since it was made; and waits until it was asked so often, for half a minute at most.
  int timesAsked() const;
  void waitUntilAsked(int times) const;
};
