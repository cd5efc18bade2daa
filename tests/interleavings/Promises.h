// Promises: what holds after two commands have run on one store, in whatever order their system calls came.
//
//   for (const Finding& finding : findingsOf(pair, serial, ending)) ...
//
// The checks:
//   - Both programs end by themselves, with status 0, without a message on standard error, and wait for eleven seconds
//     at most.
//   - Each prints only lines that it prints when the other one runs before it, after it, or not at all.
//   - Every file holds what it holds when the commands run one after the other. Nothing else is left: no lock file, no
//     temporary file, no directory of a delete.
//   - A name that was reported as given is in its file; what was reported as deleted does not exist.
//   - The next listing succeeds, changes nothing, and shows each directory under its own name, each name once
//     (findingsOfListing).
#pragma once

#include <string>
#include <vector>

#include "Stage.h"

// Something that is not as promised. docs/interleavings.md allows some of these (see Exceptions.h).
struct Finding {
  std::string subject;  // the path of a file, "answer of COMMAND", "name told by COMMAND", "run" or "next listing"
  std::string state;    // a file: gone, left, older or its content; otherwise what was seen
};
using Findings = std::vector<Finding>;

// All checks but that of the next listing.
Findings findingsOf(const Pair& pair, const Serial& serial, const Ending& ending);

// The checks that need no serial runs, also for a run with an attacker.
Findings findingsOfRun(const Interleaved& run);

// Runs the next listing. `found` is the present state of the host.
Findings findingsOfListing(const Tree& found);
