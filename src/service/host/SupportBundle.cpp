#include "service/host/SupportBundle.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "base/system/Process.h"

namespace {

constexpr const char* bundleCommand = "/usr/bin/zuv-sendbundle.sh";
constexpr int noShellResult = 127;
constexpr int noShellWaitStatus = noShellResult << 8;  // a shell that exited with 127

// Restores the inherited mask of signals in its scope. system(3) gives us no chance to do that in the child,
// between fork and exec, so the parent does it around the whole call.
class SignalsGivenBack {
 public:
  SignalsGivenBack() {
    (void)sigprocmask(SIG_BLOCK, nullptr, &ours_);  // a query can't fail
    giveBackSignals();
  }
  ~SignalsGivenBack() { (void)sigprocmask(SIG_SETMASK, &ours_, nullptr); }
  SignalsGivenBack(const SignalsGivenBack&) = delete;
  SignalsGivenBack& operator=(const SignalsGivenBack&) = delete;

 private:
  sigset_t ours_ = {};
};

// glibc returns the wait status of a shell that exited with 127 even if it could not start the shell. It sets errno
// only in that case, except that an interrupted wait, which it repeats, may leave EINTR.
bool isShellMissing(int result, int error) { return result == noShellWaitStatus && error != 0 && error != EINTR; }

}  // namespace

Status runSupportBundle() {
  makeChildrenWaitable();
  const SignalsGivenBack givenBack;
  errno = 0;
  const int result = std::system(bundleCommand);
  return statusOfSystemResult(isShellMissing(result, errno) ? -1 : result);
}

Status statusOfSystemResult(int result) {
  if (result > 0 && result != noShellResult) return Status::of(status::applicationError);
  return result == 0 ? Status::success() : Status::of(status::systemError);
}
