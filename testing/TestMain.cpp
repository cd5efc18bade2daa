// The main function of every test program. It moves the program to a private host, unless it only lists the tests.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "testing/host/PrivateHost.h"

int main(int argc, char** argv) {
  // Tests that check descriptors must see only their own, but ctest passes its log file down.
  for (int fd = 3; fd < 256; ++fd) (void)::close(fd);
  testing::InitGoogleTest(&argc, argv);
  // If no private host can be created, the tests that need one skip themselves and say why.
  const bool isOnlyListing = GTEST_FLAG_GET(list_tests);
  if (!isOnlyListing) (void)PrivateHost::enter();
  // GoogleTest has read this variable already. Programs that the tests start must not write to the same report.
  (void)::unsetenv("GTEST_OUTPUT");
  const int result = RUN_ALL_TESTS();
  if (isOnlyListing || testing::UnitTest::GetInstance()->test_to_run_count() > 0) return result;
  // If a test was renamed after ctest listed it, the run must not count as passed.
  (void)std::fputs("no test has that name\n", stderr);
  return 1;
}
