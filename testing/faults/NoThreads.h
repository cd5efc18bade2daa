// NoThreads: while it lives, every attempt of this process to create a thread fails.
//
//   { const NoThreads none; EXPECT_FALSE(runner.start()); }
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstddef>

class NoThreads {
 public:
  NoThreads() {
    EXPECT_EQ(::pthread_getattr_default_np(&before_), 0);
    pthread_attr_t huge;
    EXPECT_EQ(::pthread_attr_init(&huge), 0);
    // No address space has room for such a stack.
    EXPECT_EQ(::pthread_attr_setstacksize(&huge, ~std::size_t{0} / 2 - 0xffff), 0);
    EXPECT_EQ(::pthread_setattr_default_np(&huge), 0);
    ::pthread_attr_destroy(&huge);
  }
  ~NoThreads() {
    EXPECT_EQ(::pthread_setattr_default_np(&before_), 0);
    ::pthread_attr_destroy(&before_);
  }
  NoThreads(const NoThreads&) = delete;
  NoThreads& operator=(const NoThreads&) = delete;

 private:
  pthread_attr_t before_;
};
