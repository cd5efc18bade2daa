// FirstFailure: one status for several steps that all run even if one of them fails. The first failure counts.
//
//   Status first;
//   keepFirstFailure(first, stepOne());
//   keepFirstFailure(first, stepTwo());
//   return first;
#pragma once

#include "command/status/StatusCodes.h"

// Assigns `next` to `kept` if `next` is a failure and `kept` is still a success.
void keepFirstFailure(Status& kept, Status next);
