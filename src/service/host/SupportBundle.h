// SupportBundle: has the material for a support case gathered.
//
//   Status s = runSupportBundle();
//
// The work is that of /usr/bin/zuv-sendbundle.sh, which is no part of this program. It runs in the system's shell with
// our own standard output and error, and we wait for it. SIGPIPE and SIGXFSZ are to the shell what they were to us when
// we were started (see Process.h); meanwhile they are so for us too, and we write nothing.
#pragma once

#include "command/status/StatusCodes.h"

// Statuses: those of statusOfSystemResult.
Status runSupportBundle();

// What system(3) returned, taken as it is and not as a wait status: 0 is success, a negative value or exactly 127
// "stdlib error: system", anything else "application error". A missing script, for which the shell exits with 127, is
// therefore an application error. Deliberate; callers go by it.
Status statusOfSystemResult(int result);
