#include "base/threads/NeverDestroyed.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <type_traits>

namespace {

struct alignas(64) Counted {
  Counted(std::unique_ptr<int> first, int& second) : number(std::move(first)), destroyed(second) {}
  ~Counted() { ++destroyed; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

  std::unique_ptr<int> number;
  int& destroyed;
};

TEST(NeverDestroyed, MakesTheObjectWithTheArgumentsAndDoesNotDestroyIt) {
  int destroyed = 0;
  {
    NeverDestroyed<Counted> object(std::make_unique<int>(7), destroyed);
    EXPECT_EQ(*object.get().number, 7);
    EXPECT_EQ(&object.get(), &object.get());
    object.get().number.reset();  // nothing else frees it
  }
  EXPECT_EQ(destroyed, 0);
}

TEST(NeverDestroyed, ObjectIsAlignedAsItsTypeRequires) {
  int destroyed = 0;
  NeverDestroyed<Counted> object(nullptr, destroyed);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&object.get()) % 64, 0U);
}

TEST(NeverDestroyed, StaticOneIsNotRegisteredForTheExit) {
  EXPECT_TRUE(std::is_trivially_destructible_v<NeverDestroyed<Counted>>);
}

}  // namespace
