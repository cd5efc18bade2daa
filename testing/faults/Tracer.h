// Tracer: runs a real program, stops it at its system calls and can change what a call does. It works from outside, so
// it can trace a static program too.
//
//   TracePlan plan;
//   plan.begin = SYS_poll;                                // the first call of main; calls are counted from it, from 1
//   plan.meddling = {Meddling::fail, 7, 1, ENOSPC};       // the seventh call fails once
//   const TraceResult result = traceProgram({"/usr/bin/ravctl", "list", "profiles"}, plan);
//   EXPECT_TRUE(result.leftOpen.empty());
//
//   plan.atEachCall = [](const SystemCall& call) {        // or decide at each call, while the program stands still
//     return call.number == SYS_fsync ? Meddling::pretend : Meddling::none;
//   };
//
// The kernel does not execute a call that the tracer makes fail, with two exceptions, which follow Linux: a failed
// close releases its descriptor nevertheless, and a failed brk returns the current end of the heap.
// Children: the tracer traces only the program itself. The program's children run untraced, and the trace ends when all
// of them have ended. At the time limit the tracer kills the process group. The caller may have no other child while
// traceProgram() runs.
// Threads: the traced program may have only one.
// Needs x86_64 and a system that lets a process trace its child.
#pragma once

#include <sys/types.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

enum class Meddling {
  none,
  fail,     // the call is not executed and fails with `error`
  shorten,  // a read or write moves at most one byte, a getdents64 returns one entry; other calls are left alone
  kill,     // the process dies before the call
  pretend,  // the call is not executed and reports success: a lost write, an unlink that removes nothing
  crash,    // the process gets SIGABRT
  hang      // the call never returns
};

struct SystemCall {
  long number = -1;  // as in <sys/syscall.h>
  std::array<std::uint64_t, 6> arguments = {};
  bool changesDisk = false;  // as in TracedCall; set only for atEachCall
};

struct TracePlan {
  // The first call to change is call `at`. The tracer changes it and the later calls of the same number, `times` calls
  // in all. brk and mmap count as one number.
  struct Meddle {
    Meddling how = Meddling::none;
    std::size_t at = 0;  // from 1
    std::size_t times = 1;
    int error = EIO;
  };

  long begin = -1;  // counting starts at the first call of this number; -1: at the first call of all
  Meddle meddling = {};
  // If set, it decides about each counted call, and of `meddling` only `error` counts. It may start programs, but must
  // wait for them.
  std::function<Meddling(const SystemCall&)> atEachCall = {};
  bool keepCalls = false;  // record every counted call; otherwise only the first changed one
  unsigned seconds = 20;   // the time limit; 0: none
  std::vector<std::string> environment = {};
};

// As a value of `times` it means all later calls. It is a finite number, so that a program that retries without end
// shows up in `meddled`.
constexpr std::size_t kFromThereOn = 1000000;

struct TracedCall {
  std::size_t number = 0;  // from 1
  long call = -1;          // as in <sys/syscall.h>
  std::string name;
  std::string path;          // the file of the call, if the call has its path or descriptor; otherwise empty
  bool changesDisk = false;  // the call creates, changes or removes something that persists
  bool makesFile = false;    // the call is an open that may create the file
  bool isShortenable = false;
};

struct TraceResult {
  std::string out;
  std::string err;
  int exitStatus = -1;  // -1 if a signal ended the program
  int signal = 0;       // 0 if the program exited
  bool timedOut = false;
  std::size_t meddled = 0;            // the number of changed calls
  TracedCall meddledFirst;            // the first of them; its name is empty if there was none
  std::vector<TracedCall> calls;      // if keepCalls is set
  std::vector<std::string> leftOpen;  // descriptors from 3 on that were open at the end: "5 -> /etc/hosts"
};

// Why programs cannot be traced on this machine; empty if they can.
std::string whyNoTracing();

// Runs the program at words[0] in a process group of its own, with /dev/null as standard input and the working
// directory "/". Throws std::runtime_error when it cannot be started or traced. An exception of atEachCall() kills the
// program and is passed on.
TraceResult traceProgram(const std::vector<std::string>& words, const TracePlan& plan);

// Returns for example "openat", or "call 999" for a number that the tracer has no name for.
std::string nameOfCall(long call);

// Describes the call that a stopped program is about to make, for code that traces programs itself.
TracedCall describeCall(pid_t pid, std::size_t number, const SystemCall& call);
