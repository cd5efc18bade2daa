#include "testing/run/Matchers.h"

#include <cstdio>
#include <ostream>

#include "command/status/AppStatusCodes.h"

namespace {

#define NAMED(code) \
  { status::code, "status::" #code }
constexpr struct {
  StatusCode code;
  const char* name;
} kNames[] = {
    NAMED(success),         NAMED(successWithWarnings), NAMED(clientError),         NAMED(invalidCommand),
    NAMED(invalidArgument), NAMED(applicationError),    NAMED(authenticationError), NAMED(hostError),
    NAMED(externalError),   NAMED(multipleResults),     NAMED(internalError),       NAMED(unimplemented),
    NAMED(opendirError),    NAMED(readlinkError),       NAMED(statError),           NAMED(openError),
    NAMED(readError),       NAMED(writeError),          NAMED(chmodError),          NAMED(getifaddrsError),
    NAMED(forkError),       NAMED(waitpidError),        NAMED(unlinkError),         NAMED(unlinkDirectoryError),
    NAMED(rmdirError),      NAMED(mkdirError),          NAMED(renameError),         NAMED(copyfileError),
    NAMED(getcwdError),     NAMED(systemError),         NAMED(profileIsActive),     NAMED(profileIsRunning),
    NAMED(profileNotFound), NAMED(notWhileRunning),     NAMED(childExitedNonzero),  NAMED(childKilledBySignal),
};
#undef NAMED

}  // namespace

std::string nameOfCode(StatusCode code) {
  char number[16];
  std::snprintf(number, sizeof number, "0x%08x", static_cast<unsigned>(code));
  for (const auto& known : kNames) {
    if (known.code == code) return std::string(known.name) + " (" + number + ")";
  }
  return number;
}

void PrintTo(const Status& status, std::ostream* out) {
  *out << nameOfCode(status.code()) << ", details \"" << status.details() << "\", context \"" << status.context()
       << "\"";
}

bool HasCode::MatchAndExplain(const Status& status, std::ostream* out) const {
  return MatchAndExplain(status.code(), out);
}

bool HasCode::MatchAndExplain(StatusCode code, std::ostream* out) const {
  if (code != expected_ && out != nullptr) *out << "whose code is " << nameOfCode(code);
  return code == expected_;
}

void HasCode::DescribeTo(std::ostream* out) const { *out << "has code " << nameOfCode(expected_); }
void HasCode::DescribeNegationTo(std::ostream* out) const { *out << "has any code but " << nameOfCode(expected_); }
