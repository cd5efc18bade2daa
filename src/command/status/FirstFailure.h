// For several steps that all run, whatever becomes of each: the first failure is the status of them together.
//
//   Status first;
//   keepFirstFailure(first, stepOne());
//   keepFirstFailure(first, stepTwo());
//   return first;
#pragma once

#include "command/status/StatusCodes.h"

// Makes `kept` the next status when that is a failure and no earlier one was.
void keepFirstFailure(Status& kept, Status next);
