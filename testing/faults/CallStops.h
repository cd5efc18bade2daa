// CallStops: runs a program and stops it before each of its system calls.
//
//   const StoppedEnd end = runWithStops({ravctlPath(), "list", "profiles"}, [](const SystemCall& call) {
//     return call.number == SYS_fsync ? Then::pretend : Then::make;
//   });
//
// The program runs with an environment of only a PATH (and no search for leaks), in "/"; what it forks runs freely. It
// dies with this process. Throws std::runtime_error when it cannot be started or traced.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct SystemCall {
  std::uint64_t number = 0;
  std::array<std::uint64_t, 6> arguments = {};
};

enum class Then {
  make,
  pretend,  // the call is not made and answers 0
};

struct StoppedEnd {
  int status = 0;  // as of waitpid
  std::string out;
  std::string err;
};

// Whether calls can be pretended on this kind of machine.
bool canStopCalls();

// words[0] is the program's path.
StoppedEnd runWithStops(const std::vector<std::string>& words, const std::function<Then(const SystemCall&)>& before);
