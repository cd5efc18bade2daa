#include "service/host/SupportBundle.h"

#include <csignal>
#include <cstdlib>

#include "base/system/Process.h"

namespace {

constexpr const char* bundleCommand = "/usr/bin/zuv-sendbundle.sh";
constexpr int noShellResult = 127;

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

}  // namespace

Status runSupportBundle() {
  makeChildrenWaitable();
  const SignalsGivenBack givenBack;
  return statusOfSystemResult(std::system(bundleCommand));
}

Status statusOfSystemResult(int result) {
  if (result > 0 && result != noShellResult) return Status::of(status::applicationError);
  return result == 0 ? Status::success() : Status::of(status::systemError);
}
