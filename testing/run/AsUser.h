// AsUser: makes this process act as another user until the end of the scope. The group stays that of the machine's
// root user, who alone can do this (see SKIP_WITHOUT_OTHER_USERS).
//
//   { const AsUser stranger(65534); EXPECT_FALSE(mayWrite(path)); }
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

class AsUser {
 public:
  explicit AsUser(uid_t uid) { EXPECT_EQ(::seteuid(uid), 0); }
  ~AsUser() { EXPECT_EQ(::seteuid(0), 0); }
  AsUser(const AsUser&) = delete;
  AsUser& operator=(const AsUser&) = delete;
};
