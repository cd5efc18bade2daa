// StatusCodes: the status value with which every operation of the program reports success or failure.
//
//   Status s = FileUtils::writeString(path, text, true);
//   if (!s.isSuccess()) return s;
//   return Status::error(status::invalidArgument, "profile name not provided", "profile rename");
//
// A code has 32 bits: the category (bits 31-24), the application id (bits 23-12) and a number (bits 11-0). A code is a
// success exactly if its category is 0. Informational (0x20) and transient (0x22) codes therefore count as failures.
//
// The texts of codes come from a process-wide registry of text providers; an application id may have several. The codes
// below have application id 0, and their provider is always registered. Another module adds its codes with
// registerStatusTexts.
// Threads: the main thread registers providers at the start; after that the registry is only read.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

using StatusCode = std::uint32_t;

// The common codes, application id 0. Their texts are listed in StatusCodes.cpp.
namespace status {
constexpr StatusCode success = 0x00000001;
constexpr StatusCode successWithWarnings = 0x00000002;
constexpr StatusCode clientError = 0x10000001;
constexpr StatusCode invalidCommand = 0x10000002;
constexpr StatusCode invalidArgument = 0x10000003;
constexpr StatusCode applicationError = 0x12000001;
constexpr StatusCode authenticationError = 0x12000002;
constexpr StatusCode hostError = 0x14000001;
constexpr StatusCode externalError = 0x16000001;
constexpr StatusCode multipleResults = 0x20000001;
constexpr StatusCode internalError = 0x24000001;
constexpr StatusCode unimplemented = 0x24000002;
constexpr StatusCode opendirError = 0x14000002;
constexpr StatusCode readlinkError = 0x14000003;
constexpr StatusCode statError = 0x14000004;
constexpr StatusCode openError = 0x14000005;
constexpr StatusCode readError = 0x14000006;
constexpr StatusCode writeError = 0x14000007;
constexpr StatusCode chmodError = 0x14000008;
constexpr StatusCode getifaddrsError = 0x14000009;
constexpr StatusCode forkError = 0x1400000a;
constexpr StatusCode waitpidError = 0x1400000b;
constexpr StatusCode unlinkError = 0x1400000c;
constexpr StatusCode unlinkDirectoryError = 0x1400000d;
constexpr StatusCode rmdirError = 0x1400000e;
constexpr StatusCode mkdirError = 0x1400000f;
constexpr StatusCode renameError = 0x14000010;
constexpr StatusCode copyfileError = 0x14000011;
constexpr StatusCode getcwdError = 0x14000012;
constexpr StatusCode systemError = 0x14000013;
}  // namespace status

// The category byte of a code, and the test for success.
constexpr std::uint32_t statusCategory(StatusCode code) { return code >> 24; }
constexpr bool isSuccess(StatusCode code) { return statusCategory(code) == 0; }

// The result of an operation: a code, details (what went wrong; printed in brackets behind the text of the code) and a
// context (where it went wrong; never printed). Both texts are empty by default. A status is copied by value.
class [[nodiscard]] Status {
 public:
  // Plain success, code 1.
  Status() = default;
  // A status with this code and with empty details and context.
  static Status of(StatusCode code);
  static Status error(StatusCode code, std::string details, std::string context);
  static Status success() { return Status(); }

  bool isSuccess() const { return ::isSuccess(code_); }
  StatusCode code() const { return code_; }
  const std::string& details() const { return details_; }
  const std::string& context() const { return context_; }

  // Replaces only the code; details and context do not change.
  void setCode(StatusCode code) { code_ = code; }

 private:
  StatusCode code_ = status::success;
  std::string details_;
  std::string context_;
};

// Returns the text of a code, or null if the provider does not know the code. The text must be valid until the process
// ends.
using StatusTextProvider = const char* (*)(StatusCode code);

// Appends a provider for one application id (0 to 0xfff). An id may have several providers; they are asked in the order
// of registration until one returns a text. A null provider is ignored.
void registerStatusTexts(std::uint32_t applicationId, StatusTextProvider provider);

// Returns the text of any 32-bit value, never null. A code that no provider knows has a text for its category, such as
// "generic host error".
const char* statusText(StatusCode code);

// The outcome of a child process as one integer:
//   1000-1999  the child exited: 1000 + its exit code
//   2000-2999  a signal ended or stopped the child: 2000 + the number of the signal
//   3001       waiting for the child failed
//   3002       the child was never started (pid 0)
constexpr int waitFailedOutcome = 3001;
constexpr int neverStartedOutcome = 3002;
constexpr bool isExitOutcome(int outcome) { return outcome >= 1000 && outcome <= 1999; }
constexpr bool isSignalOutcome(int outcome) { return outcome >= 2000 && outcome <= 2999; }

// Blocks in waitpid(2) until the child ends, or stops while it is traced, and returns its outcome. Retries after an
// interruption by a signal. Returns waitFailedOutcome for a negative pid without waiting.
int waitForChild(int pid);

// Turns a wait status of waitpid(2) into an outcome. A status of a child that continues gives waitFailedOutcome.
int outcomeOfWaitStatus(int waitStatus);
