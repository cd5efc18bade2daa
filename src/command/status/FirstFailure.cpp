#include "command/status/FirstFailure.h"

#include <utility>

void keepFirstFailure(Status& kept, Status next) {
  if (kept.isSuccess() && !next.isSuccess()) kept = std::move(next);
}
