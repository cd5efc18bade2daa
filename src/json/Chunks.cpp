#include "json/Chunks.h"

#include <algorithm>

namespace json {

namespace {
constexpr std::size_t largestBlock = 4096;
constexpr std::size_t largestChunk = std::size_t{1} << placeBits;
}  // namespace

Block Chunks::allocateElsewhere(std::size_t bytes) {
  if (bytes > largestBlock) return {::operator new(bytes), aloneInMemory};
  openChunk(std::max(nextChunk_, sizeof(Chunk) + rounded(bytes)));
  nextChunk_ = std::min(2 * nextChunk_, largestChunk);
  return allocate(bytes);
}

void Chunks::openChunk(std::size_t bytes) {
  seal();
  chunk_ = static_cast<char*>(::operator new(bytes));
  free_ = chunk_ + sizeof(Chunk);
  end_ = chunk_ + bytes;
  ++chunkNumber_;
  new (chunk_) Chunk;
  ASAN_POISON_MEMORY_REGION(free_, bytes - sizeof(Chunk));
}

void Chunks::seal() {
  if (chunk_ == nullptr) return;
  reinterpret_cast<Chunk*>(chunk_)->add(blocks_);
  chunk_ = free_ = end_ = nullptr;
  blocks_ = 0;
}

}  // namespace json
