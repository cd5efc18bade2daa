// Status codes: how every operation of the program reports what became of it.
//
//   Status s = FileUtils::writeString(path, text, true);
//   if (!s.isSuccess()) return s;
//   return Status::error(status::invalidArgument, "profile name not provided", "profile rename");
//
// A code is 32 bits: category (31-24), application id (23-12), number (11-0). It is a success exactly when the category
// is 0; informational (0x20) and transient (0x22) codes therefore count as failures wherever success is asked for.
//
// Texts come from a process-wide registry of providers, one or more for each application id. Application id 0 is this
// file's own table, registered when the registry is first used; a module adds its codes with registerStatusTexts.
// Threads: registration happens on the main thread at start; afterwards the registry is only read.
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

// The category byte of a code, and the test that everything else rests on.
constexpr std::uint32_t statusCategory(StatusCode code) { return code >> 24; }
constexpr bool isSuccess(StatusCode code) { return statusCategory(code) == 0; }

// What became of an operation: a code, what went wrong (details, shown in brackets behind the code's text) and where
// (context, carried but never printed). Both texts are empty by default. Copied by value.
class [[nodiscard]] Status {
 public:
  // Plain success, code 1.
  Status() = default;
  // `code` with empty details and context.
  static Status of(StatusCode code);
  static Status error(StatusCode code, std::string details, std::string context);
  static Status success() { return Status(); }

  bool isSuccess() const { return ::isSuccess(code_); }
  StatusCode code() const { return code_; }
  const std::string& details() const { return details_; }
  const std::string& context() const { return context_; }

  // Replaces the code alone; details and context stay as they are.
  void setCode(StatusCode code) { code_ = code; }

 private:
  StatusCode code_ = status::success;
  std::string details_;
  std::string context_;
};

// The text of a code, or null when the provider does not know it. The text must outlive the process.
using StatusTextProvider = const char* (*)(StatusCode code);

// Appends a provider for one application id (0 to 0xfff). Order is kept and an id may be registered more than once; the
// first text found wins. A null provider is ignored.
void registerStatusTexts(std::uint32_t applicationId, StatusTextProvider provider);

// The text of any 32-bit value; never null. Codes that no provider knows get a text by category ("generic host error").
const char* statusText(StatusCode code);

// The outcome of a child process as one integer:
//   1000-1999  exited, 1000 + exit code      2000-2999  ended or stopped by a signal, 2000 + its number
//   3001       it could not be waited for    3002       it was never started (pid 0)
constexpr int waitFailedOutcome = 3001;
constexpr int neverStartedOutcome = 3002;
constexpr bool isExitOutcome(int outcome) { return outcome >= 1000 && outcome <= 1999; }
constexpr bool isSignalOutcome(int outcome) { return outcome >= 2000 && outcome <= 2999; }

// Waits for the child with waitpid(2), blocking, again after every interruption, and gives its outcome.
int waitForChild(int pid);

// The one place where a raw wait status (as of waitpid) becomes an outcome.
int outcomeOfWaitStatus(int waitStatus);
