// Starts threads that nobody joins.
#pragma once

#include <functional>

// Runs `body` on a new detached thread. Returns false, without running it, if the system cannot make a thread.
// The thread destroys `body` when it has returned. To wait for the end of the work, the caller must wait for a signal
// that `body` itself gives, and must keep everything that `body` refers to until then.
[[nodiscard]] bool startDetachedThread(std::function<void()> body);
