// Tracer: runs a real program and meddles with one of its system calls, from outside, so that a static program is as
// open to it as any.
//
//   TracePlan plan;
//   plan.begin = SYS_poll;                                // the first call of main; calls count from there, from 1
//   plan.meddling = {Meddling::fail, 7, 1, ENOSPC};       // the seventh fails once
//   const TraceResult result = traceProgram({"/usr/bin/ravctl", "list", "profiles"}, plan);
//   EXPECT_TRUE(result.leftOpen.empty());
//
// A call that is made to fail is not made, with two exceptions that Linux makes too: a close lets go of its descriptor
// nevertheless, and a brk that fails answers with the end of the heap as it is.
// Children: only the program itself is traced; what it starts runs untouched, and the trace ends when all of it has
// ended; what outlives the time limit is killed with its process group. The caller has no other child meanwhile.
// Threads: the program has one. Needs x86_64 and a system that lets a process trace its child.
#pragma once

#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

enum class Meddling {
  none,
  fail,     // it is not made, and fails with `error`
  shorten,  // a read or write of one byte at most, a getdents64 of one entry at least; others are left alone
  kill,     // the process dies before it
  pretend,  // it is not made and seems to have worked: a lost write, an unlink that removes nothing
  crash,    // the process gets SIGABRT
  hang      // it never ends
};

struct TracePlan {
  // Which call, and how often: `times` calls of that number, this one included. brk and mmap count as one number.
  struct Meddle {
    Meddling how = Meddling::none;
    std::size_t at = 0;  // from 1
    std::size_t times = 1;
    int error = EIO;
  };

  long begin = -1;  // the call from whose first appearance on calls count; -1: the first of all
  Meddle meddling = {};
  bool keepCalls = false;  // note every call; else only the one that was meddled with
  unsigned seconds = 20;   // the time limit
  std::vector<std::string> environment = {};
};

// What comes to mind of "for ever"; still a number, so that a program that tries again and again shows.
constexpr std::size_t fromThereOn = 1000000;

struct TracedCall {
  std::size_t number = 0;  // from 1
  long call = -1;          // as in <sys/syscall.h>
  std::string name;
  std::string path;          // of the file it is about, as far as it names one or has its descriptor; else empty
  bool changesDisk = false;  // makes, changes or removes something that lasts
  bool makesFile = false;    // an open that may make its file
  bool isShortenable = false;
};

struct TraceResult {
  std::string out;
  std::string err;
  int exitStatus = -1;  // -1 when a signal ended it
  int signal = 0;
  bool timedOut = false;
  std::size_t meddled = 0;            // how many calls were meddled with
  TracedCall meddledFirst;            // the first of them; its name is empty when there was none
  std::vector<TracedCall> calls;      // when kept
  std::vector<std::string> leftOpen;  // descriptors from 3 on that were open at the end: "5 -> /etc/hosts"
};

// Empty where programs can be traced; else what stands against it.
std::string whyNoTracing();

// Runs the program at words[0] in a process group of its own, with /dev/null as standard input and the working
// directory "/". Throws std::runtime_error when it cannot be started or traced.
TraceResult traceProgram(const std::vector<std::string>& words, const TracePlan& plan);

// "openat"; "call 999" for one that is not in our table.
std::string nameOfCall(long call);
