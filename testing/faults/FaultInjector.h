// FaultInjector: makes each system call of an operation in this process fail in turn, so that a test reaches every
// error path of the operation.
//
//   const FaultLoop loop{[] { host::reset(); host::writeFile(kPath, "old\n"); }};
//   const size_t steps = forEachFault(
//       loop, [] { return FileUtils::writeString(kPath, "new", true); },
//       [](const Status& result, const Fault& fault) {
//         if (!fault) EXPECT_THAT(result, HasCode(status::success));
//         EXPECT_EQ(host::readFile(kPath), result.isSuccess() ? "new\n" : "old\n");
//       });
//   EXPECT_EQ(steps, 6u);  // so that the test notices a new or missing call
//
// The linker wraps the calls in every test program (testing/CMakeLists.txt has the list). While no plan is armed, the
// wrappers only pass the calls on. A call has one plain name: "open" includes open64 and the variants of fortified
// code. The injector does not see calls that libc makes internally, for example for a stdio stream. A failed close
// releases the descriptor nevertheless, as Linux does. A failed fork starts no process.
// Threads: the calls of all threads count.
// Children: only the process that armed the plan counts calls and has faults.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <vector>

using CallNames = std::set<std::string, std::less<>>;

// Which call fails, and how. The default plan only counts calls.
struct FaultPlan {
  std::size_t at = 0;           // the number of the failing call, from 1; 0: none
  bool fromThereOn = false;     // that call and every later one fail
  int error = EIO;              // errno of the failed call; with 0 it writes or lists nothing and reports no error
  CallNames calls;              // the names of the calls that count; empty: all
  bool oneByteAtATime = false;  // each read or write that does not fail moves one byte
  ssize_t linkLength = 0;       // with the error 0: what a failed readlinkat returns
  // Runs before each counted call, with the number of the call. It can act like another process at that moment. Its own
  // calls do not count.
  std::function<void(std::size_t)> before = {};
};

// Arms the plan from its construction to the end of its scope. There may be only one at a time.
class ArmedFaults {
 public:
  explicit ArmedFaults(FaultPlan plan);
  ~ArmedFaults();
  ArmedFaults(const ArmedFaults&) = delete;
  ArmedFaults& operator=(const ArmedFaults&) = delete;

  // The names of the calls counted so far, in order. Calls after the 4096th have the name "...".
  std::vector<std::string> calls() const;
  // The number of calls counted so far.
  std::size_t count() const;
};

// The fault of one run of a fault loop. It converts to false for the run without a fault.
struct Fault {
  std::size_t step = 0;
  bool fromThereOn = false;
  std::string call;  // the name of the failing call
  explicit operator bool() const { return step != 0; }
};

struct FaultLoop {
  std::function<void()> prepare;  // prepares the same starting state before each run
  CallNames calls = {};
  int error = EIO;
  bool onlyOnce = false;  // skip the second mode, in which every later call fails too
};

// Returns the open descriptors of this process with their files: "5 -> /etc/zuv/profiles/.current".
std::vector<std::string> openDescriptors();

namespace fault_loop {
// Performs one run: prepares, arms the plan, calls the operation, disarms the plan, checks for leaked descriptors and
// reaps ended child processes. Returns the names of the counted calls.
std::vector<std::string> run(const FaultLoop& loop, const FaultPlan& plan, const std::function<void()>& operation);
// Describes the run for a failure message.
std::string describe(const Fault& fault, const FaultLoop& loop, const std::vector<std::string>& calls);
}  // namespace fault_loop

// Runs the operation many times:
// - once without a fault, to count its calls, which are the steps
// - for each step once with only that call failing, and once with that call and all later calls failing
// After each run it calls check(result, fault) with the return value of `operation`. The test fails if a run leaves a
// descriptor open, or if one is not close-on-exec before a call of the run without a fault. Returns the number of steps
// of the run without a fault.
template <typename Operation, typename Check>
std::size_t forEachFault(const FaultLoop& loop, Operation operation, Check check) {
  auto runWith = [&](Fault fault) {
    FaultPlan plan;
    plan.at = fault.step;
    plan.fromThereOn = fault.fromThereOn;
    plan.error = loop.error;
    plan.calls = loop.calls;
    std::vector<decltype(operation())> results;  // holds one result; the type may lack a default constructor
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
