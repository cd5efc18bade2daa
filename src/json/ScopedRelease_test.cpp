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

TEST(ScopedPtr, DeletesWhatItHoldsOnResetAndAtTheEndOfTheScope) {
  int alive = 0;
  {
    ScopedPtr<Counted> guard(new Counted(alive));
    EXPECT_TRUE(guard);
    EXPECT_EQ(&guard->alive, &alive);
    EXPECT_EQ(&(*guard).alive, &alive);
    auto* second = new Counted(alive);
    guard.reset(second);
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(guard.get(), second);
    guard.reset();
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(guard.get(), nullptr);
    guard.reset(new Counted(alive));
    EXPECT_EQ(alive, 1);
  }
  EXPECT_EQ(alive, 0);
  const ScopedPtr<Counted> byDefault;
  EXPECT_FALSE(byDefault);
  EXPECT_EQ(byDefault.get(), nullptr);
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
    Recording guard(released, nullptr);
    guard.reset();
    guard.reset(&one);
    guard.reset(&one);
    EXPECT_TRUE(released.empty()) << "a null pointer and the pointer already held are not released";
    guard.reset(&two);
    EXPECT_EQ(released, std::vector<int*>{&one});
  }
  EXPECT_EQ(released, (std::vector<int*>{&one, &two}));
  { const Recording guard(released, nullptr); }
  EXPECT_EQ(released.size(), 2u) << "a null pointer is not released at the end of the scope";
}

}  // namespace
