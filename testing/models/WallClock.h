// WallClock: while it lives, gettimeofday(2) returns the time that the test sets. There may be only one at a time.
//
//   WallClock clock(10'000'000);          // stands still ten seconds after the start of 1970
//   clock.moveTo(11'000'000);
//   clock.fail();                         // from now on gettimeofday fails
//
// Threads: all threads of the process see this clock, and any thread may move it.
#pragma once

#include <cstdint>

class WallClock {
 public:
  explicit WallClock(std::int64_t micros);
  // Switches back to the system's clock.
  ~WallClock();
  WallClock(const WallClock&) = delete;
  WallClock& operator=(const WallClock&) = delete;

  void moveTo(std::int64_t micros);
  void fail();

  // timesAsked() returns the number of gettimeofday calls since the construction. waitUntilAsked() waits until there
  // are that many calls, but for at most half a minute.
  int timesAsked() const;
  void waitUntilAsked(int times) const;
};
