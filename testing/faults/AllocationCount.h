// AllocationCount: how many blocks this thread has allocated with `new` and not yet freed.
//
//   const std::ptrdiff_t before = newBlocksInUse();
//   json::release(json::parse("[1.5]"));
//   EXPECT_EQ(newBlocksInUse(), before);
//
// A test program that calls newBlocksInUse() gets an `operator new` and an `operator delete` that count and then use
// malloc and free, in every build: the sanitizers still see each block. A block that another thread frees is counted
// down on that thread.
#pragma once

#include <cstddef>

std::ptrdiff_t newBlocksInUse();
