#include "base/system/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <new>

#include "base/system/Leftover.h"

namespace {

// The signals whose default would kill us on a failed write, and what we found there.
struct OwnSignal {
  int number;
  bool changed;
  struct sigaction inherited;
};
OwnSignal ownSignals[] = {{SIGPIPE, false, {}}, {SIGXFSZ, false, {}}};

void openClosedStandardDescriptors() {
  pollfd standard[] = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}};
  const int polled = poll(standard, 3, 0);
  if (polled == 0) return;  // the usual case: nothing to report, so all three are open
  for (const pollfd& descriptor : standard) {
    // A limit of descriptors below three makes poll fail; then each is asked alone.
    const bool isClosed = polled > 0 ? (descriptor.revents & POLLNVAL) != 0 : fcntl(descriptor.fd, F_GETFD) < 0;
    // open(2) takes the lowest free number, which is this one. Kept open across exec: children need it as much.
    // Without a /dev/null there is nothing better to do than to go on.
    if (isClosed) (void)open("/dev/null", O_RDWR);
  }
}

void ignoreSignalsOfFailedWrites() {
  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;
  for (OwnSignal& own : ownSignals) own.changed = sigaction(own.number, &ignore, &own.inherited) == 0;
}

void makeChildrenWaitable() {
  struct sigaction action = {};
  if (sigaction(SIGCHLD, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
    action = {};
    action.sa_handler = SIG_DFL;
    (void)sigaction(SIGCHLD, &action, nullptr);  // can't fail: the signal and the action are valid
  }
}

[[noreturn]] void endWithoutMemory() {
  removeLeftovers();
  constexpr char words[] = "ravctl: out of memory\n";
  // The process ends in any case; there is nowhere left to report a failure of its last word.
  if (write(STDERR_FILENO, words, sizeof words - 1) < 0) _exit(1);
  _exit(1);
}

}  // namespace

void prepareProcess() {
  openClosedStandardDescriptors();
  ignoreSignalsOfFailedWrites();
  makeChildrenWaitable();
  std::set_new_handler(endWithoutMemory);
}

void giveBackSignals() {
  for (const OwnSignal& own : ownSignals) {
    if (own.changed) {
      (void)sigaction(own.number, &own.inherited, nullptr);  // it was set a moment ago, so it can be set back
    }
  }
}

// Nothing of ours throws, so nobody would read the demangled name of an exception that ended the process. The library's
// own handler brings a demangler of 50 KiB with it, which every start would pay for in pages.
namespace __gnu_cxx {
void __verbose_terminate_handler() { std::abort(); }  // NOLINT(bugprone-reserved-identifier): the library's own name
}  // namespace __gnu_cxx
