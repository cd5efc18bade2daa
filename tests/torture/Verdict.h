// Verdict: finds the problems of a disturbed run by comparing it with an undisturbed run of the same command.
#pragma once

#include <string>
#include <vector>

#include "Scenes.h"
#include "Stated.h"
#include "testing/faults/Tracer.h"

// An undisturbed run.
struct Reference {
  TraceResult result;
  Tree before;
  Tree after;
};

// A run in which the tracer changed a call.
struct Disturbed {
  TracePlan::Meddle meddle;
  TraceResult result;
  Tree found;
};

using Problems = std::vector<std::string>;

// Returns a line for each problem; none if the documentation allows everything. The checks:
//   - The program ended by itself and in time, without open descriptors. Its status is 0, or 1 if memory ran out.
//   - After a failure it printed exactly two status lines, otherwise only lines that this command prints.
//   - A missing or different line of output is allowed only with a reported failure or if the document states it.
//   - Each file is as before or as after. Any other state, or a mixture of old and new files, must be stated.
Problems problemsOfFault(const Scene& scene, const Reference& reference, const Disturbed& run, Stated* stated);

// Returns the problems of the files that a killed run has left.
Problems problemsOfCrash(const Scene& scene, const Reference& reference, const Tree& found, Stated* stated);

// Returns the problems after the same command ran again on the files that a killed run has left, with `list profiles`
// and `profile details` in between. `again` is the second of two undisturbed runs in a row; its output and files are
// also correct.
Problems problemsAfterCrash(const Scene& scene, const Reference& reference, const Reference& again,
                            const Disturbed& next, Stated* stated);

// Returns the state of a file, compared with the file before and after an undisturbed run:
//   kept  done              as before; as after
//   mode                    as after, but with another mode
//   cut                     the first part of the new content, or nothing of it
//   overlaid                the new content, followed by the end of the longer old content
//   left                    exists, but neither before nor after
//   gone                    missing, although it should be as before or as after
//   "text"                  any other content, between quotes
// Returns an empty text if the file is the same before, after and now.
std::string stateOf(const Node* before, const Node* after, const Node* found);

// Returns true if the status lines report a failure.
bool isFailure(const TraceResult& result);
