#include "testing/run/HostTest.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "testing/host/PrivateHost.h"

void HostTest::SetUp() {
  if (!PrivateHost::inside()) GTEST_SKIP() << PrivateHost::whyNot();
  ASSERT_EQ(::chdir("/"), 0);
  ::umask(022);
  ::unsetenv("ZUV_TMP_DIR");
  ::unsetenv("ZUV_LOCK_DIR");
  host::reset();
}
