// SupportBundle: runs the script that collects the material for a support case.
//
//   Status s = runSupportBundle();
//
// The script is /usr/bin/zuv-sendbundle.sh; it is not part of this program. It runs in the system's shell, writes to
// our standard output and standard error, and we wait for it. The shell gets SIGPIPE and SIGXFSZ as this process
// inherited them (see Process.h). To that end this process does not block them while the script runs; it writes nothing
// during that time.
#pragma once

#include "command/status/StatusCodes.h"

// Returns the status that statusOfSystemResult gives for the run. A shell that could not be started gives the
// status of the result -1. It is noticed if system(3) returns -1 or sets errno.
Status runSupportBundle();

// Turns the return value of system(3) into a status: 0 gives success, a negative value or exactly 127 gives "stdlib
// error: system", any other value gives "application error". The value is deliberately not decoded as a wait status,
// and callers rely on that: for a missing script the shell exits with 127, the wait status is 32512, and the result is
// "application error".
Status statusOfSystemResult(int result);
