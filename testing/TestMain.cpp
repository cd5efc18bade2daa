// The main of every test program: the tests run on a private host, except when they are only listed.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "testing/host/PrivateHost.h"

int main(int argc, char** argv) {
  // ctest hands down its log; tests that look at descriptors are to see none but their own.
  for (int fd = 3; fd < 256; ++fd) (void)::close(fd);
  testing::InitGoogleTest(&argc, argv);
  // Where there is no host the tests that need one skip themselves and say why.
  const bool isOnlyListing = GTEST_FLAG_GET(list_tests);
  if (!isOnlyListing) (void)PrivateHost::enter();
  // GoogleTest has read where its report goes; what the tests start must not write there too.
  (void)::unsetenv("GTEST_OUTPUT");
  const int result = RUN_ALL_TESTS();
  if (isOnlyListing || testing::UnitTest::GetInstance()->test_to_run_count() > 0) return result;
  // A test that was renamed since it was listed must not count as passed.
  (void)std::fputs("no test has that name\n", stderr);
  return 1;
}
