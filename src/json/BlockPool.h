// BlockPool: memory for the many small blocks of a document.
//
//   void* block = json::takeBlock(24);
//   block = json::resizeBlock(block, 24, 48);   // the same bytes in a larger block
//   json::giveBlock(block, 48);                 // the same number of bytes
//
// Blocks are cut from larger pieces and, once given back, wait in lists by their size: taking and giving are a few
// instructions, and a block has no header. Pieces are kept for later blocks until the process ends. Large blocks come
// from malloc. So do all blocks under a sanitizer, which could not see into the pieces.
// Threads: each has a pool of its own; a block may be given back on another thread. What a thread has to spare when it
// ends is not used again.
#pragma once

#include <cstddef>
#include <new>

#if defined(__has_feature)
#define RAVCTL_CLANG_SANITIZES (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#else
#define RAVCTL_CLANG_SANITIZES 0
#endif

namespace json {

// ---- Inside ----

namespace pool {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || RAVCTL_CLANG_SANITIZES
constexpr bool pooling = false;
#else
constexpr bool pooling = true;
#endif

constexpr std::size_t step = 16;  // block sizes are multiples of it; it is the alignment too
constexpr std::size_t largestBlock = 256;

struct Spare {
  Spare* next;
};

struct Pool {
  Spare* spares[largestBlock / step + 1];  // by size
  char* freePart;
  std::size_t freeBytes;
  std::size_t pieceSize;  // of the last piece; each is twice as large as the one before, up to a limit
  std::ptrdiff_t inUse;
};

// All of it begins as zeros and needs no destructor: values may be released by the last destructor of the process.
inline Pool& ofThisThread() {
  static thread_local Pool pool;
  return pool;
}

inline std::size_t sizeClassOf(std::size_t bytes) { return (bytes + step - 1) / step; }
inline bool isPooled(std::size_t bytes) { return pooling && bytes <= largestBlock; }

void startPiece(Pool& pool);
void* takeLarge(std::size_t bytes);
void giveLarge(void* block);

}  // namespace pool

// ---- For everybody ----

// Never null; aligned for any type.
inline void* takeBlock(std::size_t bytes) {
  pool::Pool& pool = pool::ofThisThread();
  ++pool.inUse;
  if (!pool::isPooled(bytes)) return pool::takeLarge(bytes);
  const std::size_t sizeClass = pool::sizeClassOf(bytes);
  if (pool::Spare* spare = pool.spares[sizeClass]; spare != nullptr) {
    pool.spares[sizeClass] = spare->next;
    return spare;
  }
  const std::size_t size = sizeClass * pool::step;
  if (pool.freeBytes < size) pool::startPiece(pool);
  pool.freeBytes -= size;
  return pool.freePart + pool.freeBytes;
}

inline void giveBlock(void* block, std::size_t bytes) {
  pool::Pool& pool = pool::ofThisThread();
  --pool.inUse;
  if (!pool::isPooled(bytes)) return pool::giveLarge(block);
  pool::Spare*& spares = pool.spares[pool::sizeClassOf(bytes)];
  // A block is at least a step long, which the analyzer cannot know.
  spares = new (block) pool::Spare{spares};  // NOLINT(clang-analyzer-cplusplus.PlacementNew)
}

// A block of `wanted` bytes with the same bytes in front, as many as it has of them. `block` is given back; null is a
// block of 0 bytes.
void* resizeBlock(void* block, std::size_t bytes, std::size_t wanted);

// How many more blocks this thread has taken than given back.
inline std::ptrdiff_t blocksInUse() { return pool::ofThisThread().inUse; }

}  // namespace json
