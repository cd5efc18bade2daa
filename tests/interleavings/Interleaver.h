// Interleaver: runs two real programs on one store and decides which of them goes on at each system call that touches
// the store. The same plan gives the same order of calls every time.
//
//   Interleaving plan;
//   plan.programs = {{ravctlPath(), "list", "profiles"}, {ravctlPath(), "profile", "delete", "lab"}};
//   plan.turns = {{0, 5}, {1, kToItsEnd}};         // the first one stops before its fifth call, the second one ends
//   const Interleaved run = interleave(plan);      // then the first one ends
//
// A program starts with its first turn. After the turns each program runs to its end, the first one first.
// Waiting: a program that sleeps waits for another one, so the turn goes to the other one, to its end. A sleep takes no
// time: the programs read a clock that stands still but for their sleeps, so a wait of ten seconds costs nothing and
// shows in `waited`.
// Children of a program run freely, and the run ends when all have ended. The caller may have no other child while
// interleave() runs.
// Needs x86_64, a system that lets a process trace its child, and seccomp filters.
#pragma once

#include <chrono>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "testing/faults/Tracer.h"

constexpr std::size_t kToItsEnd = std::numeric_limits<std::size_t>::max();

struct Turn {
  std::size_t program;
  std::size_t until;  // it stops before its call of this number; calls on the store are counted from 1
};

struct Interleaving {
  std::vector<std::vector<std::string>> programs;  // one or two; the first word of each is a path
  std::vector<Turn> turns;
  unsigned seconds = 10;   // the time limit of the whole run
  bool keepCalls = false;  // record all calls on the store; otherwise only those of turns that have a limit
  std::function<void()> afterFirstTurn = {};  // what somebody else does then; not called if the program has ended
  // If set, it sees each call on the store before the call is made. A value replaces the call: the call is not made and
  // returns the value.
  std::function<std::optional<long>(std::size_t program, const TracedCall& call)> forge = {};
};

struct InterleavedProgram {
  std::string out;
  std::string err;
  int exitStatus = -1;  // -1 if a signal ended it
  int signal = 0;
  std::vector<TracedCall> calls;  // on the store
};

struct Interleaved {
  std::vector<InterleavedProgram> programs;
  std::size_t turnsReached = 0;  // the turns that ended before the program did, until the first that did not
  std::chrono::nanoseconds waited = {};
  bool timedOut = false;  // the programs were killed at the time limit
};

// Throws std::runtime_error when a program cannot be started.
Interleaved interleave(const Interleaving& plan);

// True for calls on the store, on the lock directory, and on files whose path the tracer does not know.
bool touchesStore(const TracedCall& call);
