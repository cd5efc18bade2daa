#include "service/host/SupportBundle.h"

#include <csignal>
#include <cstdlib>

#include "base/system/Process.h"

namespace {

constexpr const char* bundleCommand = "/usr/bin/zuv-sendbundle.sh";
constexpr int noShellResult = 127;

// Restores the inherited signal dispositions in its scope. system(3) gives us no chance to do that in the child,
// between fork and exec, so the parent does it around the whole call.
class SignalsGivenBack {
 public:
  SignalsGivenBack() {
    (void)sigaction(SIGPIPE, nullptr, &brokenPipe_);  // a query for an existing signal can't fail
    (void)sigaction(SIGXFSZ, nullptr, &fileTooLarge_);
    giveBackSignals();
  }
  ~SignalsGivenBack() {
    (void)sigaction(SIGPIPE, &brokenPipe_, nullptr);
    (void)sigaction(SIGXFSZ, &fileTooLarge_, nullptr);
  }
  SignalsGivenBack(const SignalsGivenBack&) = delete;
  SignalsGivenBack& operator=(const SignalsGivenBack&) = delete;

 private:
  struct sigaction brokenPipe_ = {};
  struct sigaction fileTooLarge_ = {};
};

}  // namespace

Status runSupportBundle() {
  const SignalsGivenBack givenBack;
  return statusOfSystemResult(std::system(bundleCommand));
}

Status statusOfSystemResult(int result) {
  if (result == 0) return Status::success();
  return Status::of(result < 0 || result == noShellResult ? status::systemError : status::applicationError);
}
