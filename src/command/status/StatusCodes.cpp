#include "command/status/StatusCodes.h"

#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

namespace {

// The text is an array in the row and no pointer, because a static-pie program relocates each of its pointers at each
// start. All larger tables of texts do so. That saves 2,400 instructions of a start, of 46,000.
struct StatusText {
  StatusCode code;
  char text[sizeof "authentication error (ravctl requires sudo for this command)"];
};

// The last row gives a text to 0, which is the code of no status.
constexpr StatusText commonTexts[] = {
    {status::success, "success"},
    {status::successWithWarnings, "success with warnings"},
    {status::clientError, "client error"},
    {status::invalidCommand, "invalid command"},
    {status::invalidArgument, "invalid argument"},
    {status::applicationError, "application error"},
    {status::authenticationError, "authentication error (ravctl requires sudo for this command)"},
    {status::hostError, "error on host system"},
    {status::externalError, "error on external system"},
    {status::multipleResults, "multiple results"},
    {status::internalError, "internal error"},
    {status::unimplemented, "unimplemented"},
    {status::opendirError, "stdlib error: opendir"},
    {status::readlinkError, "stdlib error: readlink"},
    {status::statError, "stdlib error: file stat"},
    {status::openError, "stdlib error: file open"},
    {status::readError, "stdlib error: file read"},
    {status::writeError, "stdlib error: file write"},
    {status::chmodError, "stdlib error: chmod"},
    {status::getifaddrsError, "stdlib error: getifaddrs"},
    {status::forkError, "stdlib error: fork"},
    {status::waitpidError, "stdlib error: waitpid"},
    {status::unlinkError, "stdlib error: unlink"},
    {status::unlinkDirectoryError, "stdlib error: unlink(directory)"},
    {status::rmdirError, "stdlib error: rmdir"},
    {status::mkdirError, "stdlib error: mkdir"},
    {status::renameError, "stdlib error: rename"},
    {status::copyfileError, "stdlib error: copyfile"},
    {status::getcwdError, "stdlib error: getcwd"},
    {status::systemError, "stdlib error: system"},
    {0, "invalid status code"},
};
static_assert(std::size(commonTexts) <= 31, "a lookup examines at most 31 rows");

// The texts of codes that no provider knows, by category.
constexpr StatusText categoryTexts[] = {
    {0x00, "generic success"},
    {0x10, "generic client error"},
    {0x11, "generic error code"},
    {0x12, "generic application error"},
    {0x13, "generic error code"},
    {0x14, "generic host error"},
    {0x15, "generic error code"},
    {0x16, "generic external-dependency error"},
    {0x20, "unrecognized informational status code"},
    {0x22, "unrecognized transient-error status code"},
    {0x24, "unrecognized internal-error status code"},
};

constexpr std::uint32_t applicationIdOf(StatusCode code) { return (code >> 12) & 0xfff; }

const char* find(const StatusText* begin, const StatusText* end, std::uint32_t key) {
  const StatusText* row = std::find_if(begin, end, [key](const StatusText& entry) { return entry.code == key; });
  return row == end ? nullptr : row->text;
}

const char* commonText(StatusCode code) { return find(std::begin(commonTexts), std::end(commonTexts), code); }

const char* genericText(StatusCode code) {
  const char* text = find(std::begin(categoryTexts), std::end(categoryTexts), statusCategory(code));
  if (text != nullptr) return text;
  const bool isPositive = code <= 0x7fffffff;  // as a signed number; 0 has a text of its own
  return isPositive ? "unrecognized status code value" : "integer is not a status code";
}

struct Registration {
  std::uint32_t applicationId;
  StatusTextProvider provider;
  Registration* next;
};

// A linked list in the order of registration; the first one is that of the common codes. Registrations are deliberately
// never freed, so that statusText works even while the process exits.
struct Registry {
  Registration first{0, commonText, nullptr};
  Registration* last = &first;
};

Registry& registry() {
  static Registry instance;
  return instance;
}

}  // namespace

Status Status::of(StatusCode code) {
  Status status;
  status.code_ = code;
  return status;
}

Status Status::error(StatusCode code, std::string details, std::string context) {
  Status status;
  status.code_ = code;
  status.details_ = std::move(details);
  status.context_ = std::move(context);
  return status;
}

void registerStatusTexts(std::uint32_t applicationId, StatusTextProvider provider) {
  if (provider == nullptr) return;
  Registry& all = registry();
  all.last->next = new Registration{applicationId, provider, nullptr};
  all.last = all.last->next;
}

const char* statusText(StatusCode code) {
  for (const Registration* entry = &registry().first; entry != nullptr; entry = entry->next) {
    if (entry->applicationId != applicationIdOf(code)) continue;
    if (const char* text = entry->provider(code)) return text;
  }
  return genericText(code);
}

int outcomeOfWaitStatus(int waitStatus) {
  if (WIFEXITED(waitStatus)) return 1000 + WEXITSTATUS(waitStatus);
  if (WIFSIGNALED(waitStatus)) return 2000 + WTERMSIG(waitStatus);
  if (WIFSTOPPED(waitStatus)) return 2000 + WSTOPSIG(waitStatus);
  return waitFailedOutcome;
}

int waitForChild(int pid) {
  // waitpid(2) takes 0 and negative numbers as process groups, and -1 as any child.
  if (pid <= 0) return pid == 0 ? neverStartedOutcome : waitFailedOutcome;
  for (int waitStatus = 0;;) {
    if (::waitpid(pid, &waitStatus, 0) == pid) return outcomeOfWaitStatus(waitStatus);
    if (errno != EINTR) return waitFailedOutcome;
  }
}
