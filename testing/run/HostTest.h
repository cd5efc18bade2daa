// HostTest: the fixture of tests that touch the system.
//
//   using ProfileStoreTest = HostTest;
//   TEST_F(ProfileStoreTest, AProfileIsListed) { ... host::makeProfile("profile-1", "lab"); ... }
//
// Every test starts on an empty private host (see host::reset), in the folder "/", with umask 022 and without the
// environment variables that the program reads. If this machine allows no private host, the test is skipped and says
// why. A fixture with its own SetUp must call this one first and return if IsSkipped().
#pragma once

#include <gtest/gtest.h>

#include "testing/host/HostFiles.h"
#include "testing/run/Matchers.h"
#include "testing/run/Program.h"

class HostTest : public testing::Test {
 protected:
  void SetUp() override;

  static bool hasOtherUsers() { return host::hasOtherUsers(); }
};

// The first line of a test that needs a second user, chown or device nodes.
#define SKIP_WITHOUT_OTHER_USERS() \
  if (!hasOtherUsers()) GTEST_SKIP() << "needs a second user, and a user namespace without root has one alone"
