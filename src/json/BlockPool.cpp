#include "json/BlockPool.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// A small document pays for no more than a page, a large one for few pieces.
constexpr std::size_t firstPieceSize = 1024;
constexpr std::size_t largestPieceSize = 65536;
static_assert(json::pool::step % alignof(std::max_align_t) == 0 && json::pool::step >= sizeof(json::pool::Spare));

std::atomic<json::pool::Spare*> pieces{nullptr};  // of all threads, so that they stay reachable

// Without memory it ends as operator new does: by the handler, or else at once.
void* orEnd(void* block) {
  if (block != nullptr) return block;
  if (const std::new_handler handler = std::get_new_handler()) handler();
  std::abort();
}

}  // namespace

namespace json {

namespace pool {

void startPiece(Pool& pool) {
  pool.pieceSize = std::clamp(pool.pieceSize * 2, firstPieceSize, largestPieceSize);
  void* piece = takeLarge(pool.pieceSize);
  auto* link = new (piece) Spare{pieces.load()};
  while (!pieces.compare_exchange_weak(link->next, link)) {
  }
  pool.freePart = static_cast<char*>(piece) + step;
  pool.freeBytes = pool.pieceSize - step;
}

void* takeLarge(std::size_t bytes) { return orEnd(std::malloc(bytes)); }

void giveLarge(void* block) { std::free(block); }

}  // namespace pool

void* resizeBlock(void* block, std::size_t bytes, std::size_t wanted) {
  if (block == nullptr) return takeBlock(wanted);
  if (!pool::isPooled(bytes) && !pool::isPooled(wanted)) return orEnd(std::realloc(block, wanted));
  void* resized = takeBlock(wanted);
  std::memcpy(resized, block, std::min(bytes, wanted));
  giveBlock(block, bytes);
  return resized;
}

}  // namespace json
