// The program's own status codes, application id 1. The entry point registers their texts before anything else runs.
#pragma once

#include "command/status/StatusCodes.h"

namespace status {
constexpr std::uint32_t applicationId = 1;

// Successes that carry a note.
constexpr StatusCode profileIsActive = 0x00001001;
constexpr StatusCode profileIsRunning = 0x00001002;
// Failures.
constexpr StatusCode profileNotFound = 0x12001001;
constexpr StatusCode notWhileRunning = 0x12001002;
constexpr StatusCode childExitedNonzero = 0x16001001;
constexpr StatusCode childKilledBySignal = 0x16001002;
}  // namespace status

// The text provider for application id 1: the text of one of the codes above, or null.
const char* appStatusText(StatusCode code);

// The status of a child's outcome (see waitForChild): success for 1000, else "child process returned nonzero exit
// code", "child process terminated by a signal" or "stdlib error: waitpid". No details are attached.
Status statusOfChildOutcome(int outcome);
