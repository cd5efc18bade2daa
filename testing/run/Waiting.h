// Waiting: waits for something that another process does.
//
//   EXPECT_TRUE(comesTrue([] { return host::exists("/run/ready"); }));
#pragma once

#include <chrono>
#include <thread>

// Checks the condition again and again. Returns true as soon as it holds, and false if it does not hold within the
// time.
template <typename Condition>
bool comesTrue(Condition condition, std::chrono::milliseconds within = std::chrono::seconds(10)) {
  const auto deadline = std::chrono::steady_clock::now() + within;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}
