#include "base/system/Leftover.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "testing/run/HostTest.h"

namespace {

using LeftoverTest = HostTest;

TEST_F(LeftoverTest, RemoveLeftoversRemovesExactlyTheMarkedFiles) {
  const struct {
    const char* why;
    void (*mark)(Leftover& first, Leftover& second, Leftover& third);
    const char* remaining;
  } cases[] = {
      {"marked files are removed",
       [](Leftover& first, Leftover& second, Leftover&) {
         first.mark("/tmp/a");
         second.mark("/tmp/b");
       },
       "c"},
      {"a forgotten file stays, and a second forget does nothing",
       [](Leftover& first, Leftover& second, Leftover& third) {
         first.mark("/tmp/a");
         second.mark("/tmp/b");
         third.mark("/tmp/c");
         second.forget();
         second.forget();
       },
       "b"},
      {"the destructor forgets the mark", [](Leftover&, Leftover&, Leftover&) { Leftover().mark("/tmp/a"); }, "abc"},
      {"a second mark replaces the first",
       [](Leftover& first, Leftover&, Leftover&) {
         first.mark("/tmp/a");
         first.mark("/tmp/b");
       },
       "ac"},
      {"another thread may forget a mark",
       [](Leftover& first, Leftover&, Leftover&) {
         first.mark("/tmp/a");
         std::thread([&] { first.forget(); }).join();
       },
       "abc"},
      {"files that another thread marked are removed",
       [](Leftover& first, Leftover&, Leftover&) { std::thread([&] { first.mark("/tmp/a"); }).join(); }, "bc"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    for (const char* name : {"a", "b", "c"}) host::writeFile(std::string("/tmp/") + name, "x");
    Leftover first, second, third;
    c.mark(first, second, third);
    removeLeftovers();
    std::string remaining;
    for (const char* name : {"a", "b", "c"}) remaining += host::exists(std::string("/tmp/") + name) ? name : "";
    EXPECT_EQ(remaining, c.remaining);
  }
}

#ifndef RAVCTL_SANITIZED  // sanitizers have reserved more address space than any limit
TEST_F(LeftoverTest, MarkingAndRemovingNeedNoMemory) {
  host::writeFile("/tmp/a", "x");
  const pid_t child = ::fork();
  if (child == 0) {
    Leftover leftover;
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_AS, &none);
    for (const std::size_t size : {4096U, 256U, 16U, 1U}) {
      void* volatile taken = nullptr;  // no compiler leaves the calls out
      int left = 1'000'000;
      do {
        taken = std::malloc(size);
      } while (taken != nullptr && --left > 0);
      if (left == 0) ::_exit(9);  // a system that does not limit memory
    }
    try {
      leftover.mark("/tmp/a");
      removeLeftovers();
    } catch (...) {
      ::_exit(8);
    }
    ::_exit(7);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
  EXPECT_FALSE(host::exists("/tmp/a"));
}
#endif

}  // namespace
