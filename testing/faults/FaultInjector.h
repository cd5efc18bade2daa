// FaultInjector: makes system calls of this process fail, one after the other, so that every way out of an operation
// runs.
//
//   const FaultLoop loop{[] { host::reset(); host::writeFile(kPath, "old\n"); }};
//   const size_t steps = forEachFault(
//       loop, [] { return FileUtils::writeString(kPath, "new", true); },
//       [](const Status& result, const Fault& fault) {
//         if (!fault) EXPECT_THAT(result, HasCode(status::success));
//         EXPECT_EQ(host::readFile(kPath), result.isSuccess() ? "new\n" : "old\n");
//       });
//   EXPECT_EQ(steps, 6u);  // so that a changed order of calls is noticed
//
// The calls are wrapped when a test program is linked (the list is in testing/CMakeLists.txt) and pass straight through
// while nothing is armed. Calls are known by their plain names: "open" is also open64 and what fortified code calls.
// What libc calls within itself, as for a stdio stream, is not seen.
// A failing close lets go of the descriptor nevertheless, as Linux does. A failing fork starts nothing.
// Threads: calls of all threads count. Children: only the process that armed counts and fails.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <vector>

using CallNames = std::set<std::string, std::less<>>;

// Which call fails, and how. As it stands: none; calls are only counted.
struct FaultPlan {
  std::size_t at = 0;           // the number of the call, from 1
  bool fromThereOn = false;     // it and every one after it
  int error = EIO;              // errno of the failed call; 0: no error, nothing written or listed
  CallNames calls;              // the calls that count; empty means all
  bool oneByteAtATime = false;  // reads and writes that do not fail move one byte a call
  // Runs before each call that counts, with its number: another process that is quick. Its own calls do not count.
  std::function<void(std::size_t)> before = {};
};

// Arms the plan for its scope. One at a time.
class ArmedFaults {
 public:
  explicit ArmedFaults(FaultPlan plan);
  ~ArmedFaults();
  ArmedFaults(const ArmedFaults&) = delete;
  ArmedFaults& operator=(const ArmedFaults&) = delete;

  // The names of the calls seen so far, in order; the first 4096 are kept.
  std::vector<std::string> calls() const;
  std::size_t count() const;
};

// The fault of one run of a loop; false for the run without.
struct Fault {
  std::size_t step = 0;
  bool fromThereOn = false;
  std::string call;  // the name of the call at that step
  explicit operator bool() const { return step != 0; }
};

struct FaultLoop {
  std::function<void()> prepare;  // sets the scene anew before each run
  CallNames calls = {};
  int error = EIO;
  bool onlyOnce = false;  // leave out the second mode, in which every later call fails too
};

// The open descriptors of this process with what they lead to: "5 -> /etc/zuv/profiles/.current".
std::vector<std::string> openDescriptors();

namespace fault_loop {
// One run: arms, runs, disarms, looks for leaked descriptors, forgets child processes that were not waited for.
// Gives the calls that were made.
std::vector<std::string> run(const FaultLoop& loop, const FaultPlan& plan, const std::function<void()>& operation);
std::string describe(const Fault& fault, const FaultLoop& loop, const std::vector<std::string>& calls);
}  // namespace fault_loop

// Runs the operation without a fault, which tells its number of steps; then once for each step with that call failing,
// and once more with every call failing from there on. After each run, the one without included, calls
// check(result, fault). `operation` returns what became of it. A descriptor that a run leaves open fails the test.
// Returns the number of steps of the run without a fault.
template <typename Operation, typename Check>
std::size_t forEachFault(const FaultLoop& loop, Operation operation, Check check) {
  auto runWith = [&](Fault fault) {
    FaultPlan plan;
    plan.at = fault.step;
    plan.fromThereOn = fault.fromThereOn;
    plan.error = loop.error;
    plan.calls = loop.calls;
    std::vector<decltype(operation())> results;  // room for one; the type need not have a default
    results.reserve(1);
    const std::vector<std::string> calls = fault_loop::run(loop, plan, [&] { results.push_back(operation()); });
    if (fault.step != 0 && fault.step <= calls.size()) fault.call = calls[fault.step - 1];
    const testing::ScopedTrace trace(__FILE__, __LINE__, fault_loop::describe(fault, loop, calls));
    EXPECT_LE(fault.step, calls.size()) << "the run ended before the step at which it should have failed";
    check(results.front(), static_cast<const Fault&>(fault));
    return calls.size();
  };

  const std::size_t steps = runWith(Fault{});
  for (std::size_t step = 1; step <= steps; ++step) {
    runWith(Fault{step, false, ""});
    if (!loop.onlyOnce) runWith(Fault{step, true, ""});
  }
  return steps;
}
