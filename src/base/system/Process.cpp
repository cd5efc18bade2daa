#include "base/system/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <iterator>
#include <new>
#include <string_view>

#include "base/system/Leftover.h"

namespace {

// The signals that this process found blocked.
sigset_t inheritedMask;
bool hasInheritedMask = false;

// poll reports a closed descriptor even if it is asked for no event.
pollfd withoutEvents(int fd) {
  pollfd asked = {};
  asked.fd = fd;
  return asked;
}

void openClosedStandardDescriptors() {
  pollfd standard[] = {withoutEvents(STDIN_FILENO), withoutEvents(STDOUT_FILENO), withoutEvents(STDERR_FILENO)};
  const int polled = poll(standard, std::size(standard), 0);
  if (polled == 0) return;  // the usual case: poll reports nothing, so all three are open
  for (const pollfd& descriptor : standard) {
    // poll fails if the limit of descriptors is below three. Then each descriptor is tested alone.
    const bool isClosed = polled == -1 ? fcntl(descriptor.fd, F_GETFD) == -1 : (descriptor.revents & POLLNVAL) != 0;
    // open(2) uses the lowest free number, which is this one. It is not close-on-exec, because children need it too.
    // If there is no /dev/null, the program continues with a closed descriptor.
    if (isClosed) (void)open("/dev/null", O_RDWR);
  }
}

void blockSignalsOfFailedWrites() {
  sigset_t ours;
  sigemptyset(&ours);
  sigaddset(&ours, SIGPIPE);
  sigaddset(&ours, SIGXFSZ);
  hasInheritedMask = sigprocmask(SIG_BLOCK, &ours, &inheritedMask) == 0;
}

[[noreturn]] void endWithoutMemory() {
  removeLeftovers();
  constexpr std::string_view words = "ravctl: out of memory\n";
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, words.data(), words.size());  // a failure is ignored
  _exit(1);
}

}  // namespace

void prepareProcess() {
  openClosedStandardDescriptors();
  blockSignalsOfFailedWrites();
  std::set_new_handler(endWithoutMemory);
}

void makeChildrenWaitable() {
  struct sigaction action = {};
  (void)sigaction(SIGCHLD, nullptr, &action);  // can't fail: the signal is valid
  if (action.sa_handler == SIG_IGN) {
    action = {};
    action.sa_handler = SIG_DFL;
    (void)sigaction(SIGCHLD, &action, nullptr);  // can't fail: the signal and the action are valid
  }
}

void giveBackSignals() {
  if (hasInheritedMask) (void)sigprocmask(SIG_SETMASK, &inheritedMask, nullptr);  // can't fail: the mask is valid
}

// Replaces the terminate handler of libstdc++, which prints the demangled name of an exception. Our code throws
// nothing, and the demangler costs every start: with std::set_terminate instead, the program has 48 KiB more and list
// versions executes 2,400 more instructions (of 50,000).
namespace __gnu_cxx {
void __verbose_terminate_handler() { std::abort(); }  // NOLINT(bugprone-reserved-identifier): the library's own name
}  // namespace __gnu_cxx
