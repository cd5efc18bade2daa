#include "testing/faults/AllocationCount.h"

#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

thread_local std::ptrdiff_t inUse = 0;
thread_local std::ptrdiff_t soFar = 0;
thread_local std::int32_t startOfLastFreed = -1;

void freeCounted(void* block) {
  if (block == nullptr) return;
  --inUse;
  startOfLastFreed = -1;
  if (::malloc_usable_size(block) >= sizeof startOfLastFreed)
    std::memcpy(&startOfLastFreed, block, sizeof startOfLastFreed);
  std::free(block);
}

}  // namespace

thread_local bool nothrowNewFails = false;

std::ptrdiff_t newBlocksInUse() { return inUse; }

std::ptrdiff_t newBlocksSoFar() { return soFar; }

std::int32_t startOfLastFreedBlock() { return startOfLastFreed; }

// Not inlined: otherwise the compiler sees a block from `new` passed to free() and warns.
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* block = std::malloc(size == 0 ? 1 : size);
  while (block == nullptr) {
    const std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) std::abort();
    handler();
    block = std::malloc(size == 0 ? 1 : size);
  }
  ++inUse;
  ++soFar;
  return block;
}
// The address sanitizer has a replacement of its own for each form, and reports a block that one form of ours frees and
// one of its own allocated. So this form is here too; the forms for arrays are the sanitizer's in pairs.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  void* block = nothrowNewFails ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) return nullptr;
  ++inUse;
  ++soFar;
  return block;
}
[[gnu::noinline]] void operator delete(void* block) noexcept { freeCounted(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { freeCounted(block); }
[[gnu::noinline]] void operator delete(void* block, const std::nothrow_t&) noexcept { freeCounted(block); }
