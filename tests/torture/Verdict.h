// Verdict: what is wrong with a run of the program, given the same run undisturbed.
#pragma once

#include <string>
#include <vector>

#include "Scenes.h"
#include "Stated.h"
#include "testing/faults/Tracer.h"

// A run that nothing disturbed, to compare with.
struct Reference {
  TraceResult result;
  Tree before;
  Tree after;
};

// A run in which something was done to the program.
struct Disturbed {
  TracePlan::Meddle meddle;
  TraceResult result;
  Tree found;
};

using Problems = std::vector<std::string>;

// One line each; none when all is as stated. What is looked at:
//   - it ended by itself, in time, with the status 0, or 1 where memory ran out, and without an open descriptor
//   - what it printed: two status lines alone after a failure, else only lines that this command has
//   - a result that is missing or another one is told by a failure, or stated
//   - each file is as before or as after; a mixture of both is stated, and so is what is neither
Problems problemsOfFault(const Scene& scene, const Reference& reference, const Disturbed& run, Stated* stated);

// What is wrong with the files that a killed run left.
Problems problemsOfCrash(const Scene& scene, const Reference& reference, const Tree& found, Stated* stated);

// What is wrong after the same command ran again on what a killed run left, and `list profiles` and `profile details`
// in between. `again` is the command's second undisturbed run in a row: what it answers and makes is right too.
Problems problemsAfterCrash(const Scene& scene, const Reference& reference, const Reference& again,
                            const Disturbed& next, Stated* stated);

// How a file lies between before and after:
//   kept  done              as before; as after
//   mode                    as after but for its mode
//   cut                     the first part of what it should have become, nothing included
//   overlaid                what it should have become, and behind it the rest of what it was
//   left                    there, and neither before nor after
//   gone                    not there, though before and after
//   "text"                  anything else
// Empty when it is no different from both.
std::string stateOf(const Node* before, const Node* after, const Node* found);

// Whether the status lines tell a failure.
bool isFailure(const TraceResult& result);
