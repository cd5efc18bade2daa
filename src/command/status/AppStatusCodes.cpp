#include "command/status/AppStatusCodes.h"

#include <algorithm>
#include <iterator>

namespace {

struct AppStatusText {
  StatusCode code;
  char text[sizeof "command cannot be executed while the profile is running"];
};

constexpr AppStatusText appTexts[] = {
    {status::profileIsActive, "profile is active"},
    {status::profileIsRunning, "profile is currently running"},
    {status::profileNotFound, "profile not found"},
    {status::notWhileRunning, "command cannot be executed while the profile is running"},
    {status::childExitedNonzero, "child process returned nonzero exit code"},
    {status::childKilledBySignal, "child process terminated by a signal"},
};

constexpr int cleanExit = 1000;

}  // namespace

const char* appStatusText(StatusCode code) {
  const auto* row = std::find_if(std::begin(appTexts), std::end(appTexts),
                                 [code](const AppStatusText& entry) { return entry.code == code; });
  return row == std::end(appTexts) ? nullptr : row->text;
}

Status statusOfChildOutcome(int outcome) {
  if (outcome == cleanExit) return Status::success();
  if (isExitOutcome(outcome)) return Status::of(status::childExitedNonzero);
  if (isSignalOutcome(outcome)) return Status::of(status::childKilledBySignal);
  return Status::of(status::waitpidError);
}
