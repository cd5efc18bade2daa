#include "base/system/SignalManager.h"

#include <array>
#include <atomic>
#include <csignal>

namespace {

constexpr unsigned signalCount = 32;
constexpr unsigned isInstalled = 1;
constexpr unsigned isPending = 2;

std::atomic<const SignalManager*> current{nullptr};  // the one made last

// The only data that the signal handler uses. It is not part of the manager, because the handler may still run on
// another thread while the manager is destroyed.
std::array<std::atomic<unsigned>, signalCount> flags{};

static_assert(std::atomic<unsigned>::is_always_lock_free, "a signal handler must not wait");

bool isValidSignal(int signal) { return static_cast<unsigned>(signal) < signalCount; }

std::atomic<unsigned>& flagsOf(int signal) { return flags[static_cast<unsigned>(signal)]; }

void markPending(int signal) {
  if (isValidSignal(signal)) flagsOf(signal).fetch_or(isPending);
}

}  // namespace

SignalManager::SignalManager() {
  for (std::atomic<unsigned>& word : flags) word = 0;
  current = this;
}

SignalManager::~SignalManager() {
  const SignalManager* self = this;
  current.compare_exchange_strong(self, nullptr);
}

int SignalManager::install(int signal) {
  if (!isValidSignal(signal)) return -1;
  if ((flagsOf(signal).fetch_or(isInstalled) & isInstalled) != 0) return 0;
  if (::signal(signal, markPending) != SIG_ERR) return 0;
  flagsOf(signal).fetch_and(~isInstalled);
  return -1;
}

void SignalManager::dispatch() {
  if (current.load() != this) return;
  for (std::atomic<unsigned>& word : flags) {
    // The pending bit is cleared before the call of handle, so that a signal that arrives during the call is marked
    // again.
    const bool wasPending = (word.fetch_and(~isPending) & isPending) != 0;
    if (wasPending) handle(static_cast<int>(&word - flags.data()));
  }
}
