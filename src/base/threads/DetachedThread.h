// Starting threads that nobody joins.
#pragma once

#include <functional>

// Runs `body` on a detached thread of its own. False when the system gives no thread; then nothing runs. What `body`
// holds is freed on that thread when it is through, so whoever waits for the end of the work waits for a sign that the
// body itself gives, and keeps what it refers to until then.
[[nodiscard]] bool startDetachedThread(std::function<void()> body);
