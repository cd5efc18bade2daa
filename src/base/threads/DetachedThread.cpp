#include "base/threads/DetachedThread.h"

#include <pthread.h>

#include <memory>
#include <utility>

namespace {

using Body = std::function<void()>;

void* runBody(void* argument) {
  const std::unique_ptr<Body> body(static_cast<Body*>(argument));
  (*body)();
  return nullptr;
}

}  // namespace

bool startDetachedThread(std::function<void()> body) {
  auto owned = std::make_unique<Body>(std::move(body));
  pthread_t thread{};
  if (::pthread_create(&thread, nullptr, runBody, owned.get()) != 0) return false;
  (void)owned.release();  // the thread owns it now
  (void)::pthread_detach(thread);
  return true;
}
