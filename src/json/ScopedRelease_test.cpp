#include "json/ScopedRelease.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Counted {
  explicit Counted(int& count) : alive(count) { ++alive; }
  ~Counted() { --alive; }
  int& alive;
};

class Recording final : public ScopedRelease<int> {
 public:
  Recording(std::vector<int*>& released, int* owned) : ScopedRelease(owned), released_(released) {}
  ~Recording() override { reset(); }

 protected:
  void release(int* owned) override { released_.push_back(owned); }

 private:
  std::vector<int*>& released_;
};

TEST(ScopedPtr, DeletesAtTheEndOfTheScope) {
  int alive = 0;
  {
    ScopedPtr<Counted> guard(new Counted(alive));
    EXPECT_TRUE(guard);
    EXPECT_EQ(&guard->alive, &alive);
    EXPECT_EQ(&(*guard).alive, &alive);
    EXPECT_EQ(alive, 1);
  }
  EXPECT_EQ(alive, 0);
}

TEST(ScopedPtr, IsNullByDefault) {
  ScopedPtr<Counted> guard;
  EXPECT_FALSE(guard);
  EXPECT_EQ(guard.get(), nullptr);
}

TEST(ScopedPtr, ResetDeletesTheOldOneAndKeepsTheNewOne) {
  int alive = 0;
  ScopedPtr<Counted> guard(new Counted(alive));
  auto* second = new Counted(alive);
  guard.reset(second);
  EXPECT_EQ(alive, 1);
  EXPECT_EQ(guard.get(), second);
  guard.reset();
  EXPECT_EQ(alive, 0);
  EXPECT_EQ(guard.get(), nullptr);
}

TEST(ScopedPtr, TakeHandsOverTheOwnership) {
  int alive = 0;
  ScopedPtr<Counted> guard(new Counted(alive));
  Counted* taken = guard.take();
  EXPECT_EQ(guard.get(), nullptr);
  guard.reset();
  EXPECT_EQ(alive, 1);
  delete taken;
}

TEST(ScopedRelease, CallsReleaseOfTheDerivedClassOncePerPointer) {
  std::vector<int*> released;
  int one = 1;
  int two = 2;
  {
    Recording guard(released, &one);
    guard.reset(&one);
    EXPECT_TRUE(released.empty()) << "the pointer already held stays held";
    guard.reset(&two);
    EXPECT_EQ(released, std::vector<int*>{&one});
  }
  EXPECT_EQ(released, (std::vector<int*>{&one, &two}));
}

TEST(ScopedRelease, NeverReleasesANullPointer) {
  std::vector<int*> released;
  {
    Recording guard(released, nullptr);
    guard.reset();
  }
  EXPECT_TRUE(released.empty());
}

}  // namespace
