#include "log/front/MessagePool.h"

#include <pthread.h>

#include <vector>

#include "base/threads/Locks.h"

namespace BasicLog {
namespace {

constexpr std::size_t maxBundles = 64;
constexpr std::size_t ordinaryRoom = 2'048;

struct Bundle {
  std::array<LogMessage*, MessagePool::bundleSize> messages;
  std::size_t count = 0;
};

// Full bundles, for all threads.
struct Depot {
  PortableMutex mutex;
  std::array<Bundle, maxBundles> bundles;
  std::size_t count = 0;
};

Depot& depot() {
  static auto* const theDepot = new Depot;  // never deleted: the log is still used at exit
  return *theDepot;
}

// The bundle that a thread takes from. Its end is watched by a key and not by a destructor: to register one takes
// memory, and libc aborts the process when there is none.
struct OwnBundle : Bundle {
  bool isWatched = false;
};

void emptyAtEndOfThread(void* ofThread) {
  auto* const bundle = static_cast<OwnBundle*>(ofThread);
  while (bundle->count != 0) delete bundle->messages[--bundle->count];
  bundle->isWatched = false;  // whatever still logs on this thread begins anew
}

// Without a key, or room for its value, the few messages of a thread that ends are lost.
void watch(OwnBundle& bundle) {
  struct Key {
    pthread_key_t key{};
    const bool isMade = ::pthread_key_create(&key, emptyAtEndOfThread) == 0;
  };
  static const Key theKey;
  bundle.isWatched = true;
  if (theKey.isMade) (void)::pthread_setspecific(theKey.key, &bundle);
}

OwnBundle& ownBundle() {
  static thread_local OwnBundle bundle;
  if (!bundle.isWatched) watch(bundle);
  return bundle;
}

void refill(Bundle& bundle) {
  Depot& from = depot();
  const ScopedLock lock(from.mutex);
  if (from.count != 0) bundle = from.bundles[--from.count];
}

// Reads no more of it than its beginning: the rest is in the memory of the processor that will use it again.
bool isOrdinary(const LogMessage& message) { return message.room() <= ordinaryRoom; }

}  // namespace

std::unique_ptr<LogMessage> MessagePool::take() {
  OwnBundle& own = ownBundle();
  if (own.count == 0) refill(own);
  if (own.count == 0) return std::make_unique<LogMessage>();
  return std::unique_ptr<LogMessage>(own.messages[--own.count]);
}

void MessagePool::giveBack(Batch& batch) {
  Bundle bundle;
  for (std::unique_ptr<const LogMessage>& message : batch) {
    if (!message || !isOrdinary(*message)) {
      message.reset();
      continue;
    }
    bundle.messages[bundle.count++] = const_cast<LogMessage*>(message.release());  // take made it
  }
  {
    Depot& to = depot();
    const ScopedLock lock(to.mutex);
    if (bundle.count != 0 && to.count != maxBundles) {
      to.bundles[to.count++] = bundle;
      return;
    }
  }
  while (bundle.count != 0) delete bundle.messages[--bundle.count];
}

}  // namespace BasicLog
