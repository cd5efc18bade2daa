// Chunks: memory for the many small blocks of one document.
//
//   Chunks memory;
//   const Block block = memory.allocate(24);       // aligned to 8 bytes; never null
//   memory.seal();
//   ...
//   BlockRelease().drop(block);
//
// Blocks lie one behind the other in chunks of at most 64 KiB, without a header. A chunk counts its blocks and is freed
// with the last of them: as long as one value of a document is in use, its chunk is kept, but no other chunk. The space
// of a freed block is not used again. A block of more than 4 KiB that does not fit the open chunk is allocated alone,
// with `new`.
//
// Threads: only one thread at a time may use a Chunks. Any thread may free any block of a sealed chunk.
//
// The address sanitizer reports every access to memory of a chunk that belongs to no block yet.
// What chunks gain: see DocumentBuilder.h.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(start, bytes) ((void)0)
#define ASAN_UNPOISON_MEMORY_REGION(start, bytes) ((void)0)
#endif

namespace json {

// How far a block is from the start of its chunk, in bytes: a multiple of 8, below 65536.
using Place = std::uint32_t;
constexpr int placeBits = 16;
constexpr Place aloneInMemory = 0;  // not in a chunk

struct Block {
  void* start;
  Place place;
};

// The start of a chunk.
class Chunk {
 public:
  // Adds to the number of blocks, and frees the chunk if it becomes 0. While the chunk is open, the allocated blocks
  // are not added yet, but freed blocks are subtracted: the number is negative.
  void add(std::int64_t blocks) {
    if (blocks_.fetch_add(blocks, std::memory_order_acq_rel) + blocks == 0) ::operator delete(this);
  }

 private:
  std::atomic<std::int64_t> blocks_{0};
};

class Chunks {
 public:
  Chunks() = default;
  ~Chunks() { seal(); }
  Chunks(const Chunks&) = delete;
  Chunks& operator=(const Chunks&) = delete;

  Block allocate(std::size_t bytes) {
    const std::size_t size = rounded(bytes);
    if (size > static_cast<std::size_t>(end_ - free_)) return allocateElsewhere(bytes);
    char* start = free_;
    free_ += size;
    ++blocks_;
    ASAN_UNPOISON_MEMORY_REGION(start, size);
    return {start, static_cast<Place>(start - chunk_)};
  }

  // Counts any block of the open chunk once more, so that it must be freed once more.
  void countAgain() { ++blocks_; }

  // How many chunks have been opened.
  std::size_t chunkNumber() const { return chunkNumber_; }

  // Ends the open chunk: it gets no more blocks, and is freed with its last one.
  void seal();

 private:
  static constexpr std::size_t alignment = 8;

  static std::size_t rounded(std::size_t bytes) { return (bytes + alignment - 1) & ~(alignment - 1); }
  Block allocateElsewhere(std::size_t bytes);
  void openChunk(std::size_t bytes);

  char* chunk_ = nullptr;  // the open chunk, or null
  char* free_ = nullptr;   // the part that is not allocated yet
  char* end_ = nullptr;
  std::int64_t blocks_ = 0;  // in the open chunk
  std::size_t chunkNumber_ = 0;
  std::size_t nextChunk_ = 1024;  // its size: a small document takes little memory
};

// Frees blocks. A run of blocks of one chunk is subtracted at once, at the end of the run or of this object.
class BlockRelease {
 public:
  BlockRelease() = default;
  ~BlockRelease() { subtract(); }
  BlockRelease(const BlockRelease&) = delete;
  BlockRelease& operator=(const BlockRelease&) = delete;

  // Nothing may use the block from now on, except that a block counted n times is freed n times.
  void drop(const Block& block) {
    if (block.place == aloneInMemory) return ::operator delete(block.start);
    auto* chunk = reinterpret_cast<Chunk*>(static_cast<char*>(block.start) - block.place);
    if (chunk != chunk_) {
      subtract();
      chunk_ = chunk;
    }
    ++blocks_;
  }

 private:
  void subtract() {
    if (chunk_ != nullptr) chunk_->add(-blocks_);
    blocks_ = 0;
  }

  Chunk* chunk_ = nullptr;
  std::int64_t blocks_ = 0;  // freed, but not yet subtracted
};

}  // namespace json
