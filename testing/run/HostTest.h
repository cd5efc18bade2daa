// HostTest: the fixture of tests that touch the system.
//
//   using ProfileStoreTest = HostTest;
//   TEST_F(ProfileStoreTest, AnEmptyStoreGivesAnEmptyList) { ... host::makeProfile("profile-1", "lab"); ... }
//
// Every test begins on an empty private host (see host::reset), in "/", with umask 022, without the program's
// environment variables. Where there is no private host the test is skipped and says why. A fixture with a SetUp of its
// own calls this one first and returns when IsSkipped().
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

// First line of a test that needs them.
#define SKIP_WITHOUT_OTHER_USERS() \
  if (!hasOtherUsers()) GTEST_SKIP() << "needs a second user, and a user namespace without root has one alone"
