// Errnos: the errors that each system call can return in practice, the most likely first. It leaves out errors of wrong
// arguments, because a correct program never sees them, and errors that only a race can cause.
#pragma once

#include <cerrno>
#include <vector>

#include "testing/faults/Tracer.h"

struct ErrnoRow {
  const char* call;
  std::vector<int> errors;  // empty: the call cannot fail
};

// Returns the row of a call, or null if the table has none.
const ErrnoRow* findErrnos(const TracedCall& call);
