// Errnos: which errors a system call can give in life, the likeliest first. What a wrong argument would give is left
// out, since a right program never sees it; so is what only a race can give.
#pragma once

#include <cerrno>
#include <vector>

#include "testing/faults/Tracer.h"

struct ErrnoRow {
  const char* call;
  std::vector<int> errors;  // none: it cannot fail
};

// The row of a call. Null when the table does not know it.
const ErrnoRow* findErrnos(const TracedCall& call);
