#include "base/system/Leftover.h"

#include <gtest/gtest.h>

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

}  // namespace
