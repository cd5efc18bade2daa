// AppStatusCodes: the program's own status codes. Their application id is 1. The entry point registers their texts
// before it runs a command.
#pragma once

#include "command/status/StatusCodes.h"

namespace status {
constexpr std::uint32_t applicationId = 1;

// Successes with a note.
constexpr StatusCode profileIsActive = 0x00001001;
constexpr StatusCode profileIsRunning = 0x00001002;
// Failures.
constexpr StatusCode profileNotFound = 0x12001001;
constexpr StatusCode notWhileRunning = 0x12001002;
constexpr StatusCode childExitedNonzero = 0x16001001;
constexpr StatusCode childKilledBySignal = 0x16001002;
}  // namespace status

// The text provider for application id 1: returns the text of one of the codes above, or null for any other code.
const char* appStatusText(StatusCode code);

// Turns the outcome of a child (see waitForChild) into a status without details:
//   1000              success
//   1001 to 1999      "child process returned nonzero exit code"
//   2000 to 2999      "child process terminated by a signal"
//   anything else     "stdlib error: waitpid"
Status statusOfChildOutcome(int outcome);
