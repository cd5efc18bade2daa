// AllocationCount: how many blocks this thread has allocated with `new` and not yet freed.
//
//   const std::ptrdiff_t before = newBlocksInUse();
//   json::release(json::parse("[1.5]"));
//   EXPECT_EQ(newBlocksInUse(), before);
//
// A test program that is built with AllocationCount.cpp (see testing/CMakeLists.txt) gets an `operator new` and an
// `operator delete` that count and then use malloc and free, in every build. The sanitizers still see each block. If
// another thread frees a block, the count of that thread goes down.
#pragma once

#include <cstddef>
#include <cstdint>

std::ptrdiff_t newBlocksInUse();

// While it is true, `new (std::nothrow)` finds no memory on this thread.
extern thread_local bool nothrowNewFails;

// How many blocks this thread has allocated with `new`, the freed ones too.
std::ptrdiff_t newBlocksSoFar();

// The first four bytes that the block held which this thread freed last, as a number; -1 if it was smaller.
std::int32_t startOfLastFreedBlock();
