// WaitLimit: bounds how long all operations of one kind in a command wait together.
//
//   struct Edits {
//     static constexpr std::chrono::seconds longestWait{10};
//   };
//   WaitLimit<Edits> limit;                                   // in a command, for all its edits
//   const auto deadline = WaitLimit<Edits>::deadline();       // in each edit
//
// Threads: a limit counts for the thread that made it.
#pragma once

#include <chrono>

// Limits the operations of one kind that a thread begins in the scope of this object. The time begins with the first of
// them and lasts for Kind::longestWait. A limit in the scope of another limit of the same kind has no effect.
template <typename Kind>
class WaitLimit {
 public:
  using Clock = std::chrono::steady_clock;

  WaitLimit() {
    if (current == nullptr) current = this;
  }
  ~WaitLimit() {
    if (current == this) current = nullptr;
  }
  WaitLimit(const WaitLimit&) = delete;
  WaitLimit& operator=(const WaitLimit&) = delete;

  // Returns the time until which an operation that begins now may wait. Without a limit, each operation may wait for
  // Kind::longestWait.
  static Clock::time_point deadline() {
    const Clock::time_point end = Clock::now() + Kind::longestWait;
    if (current == nullptr) return end;
    if (current->end_ == Clock::time_point::min()) current->end_ = end;
    return current->end_;
  }

 private:
  static inline thread_local WaitLimit* current = nullptr;

  Clock::time_point end_ = Clock::time_point::min();
};
