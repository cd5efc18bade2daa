#include "json/Chunks.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "testing/faults/AllocationCount.h"

namespace {

using namespace json;

// Allocates a block and writes to all of it.
Block filled(Chunks& memory, std::size_t bytes, int mark) {
  const Block block = memory.allocate(bytes);
  std::memset(block.start, mark, bytes);
  return block;
}

void* chunkOf(const Block& block) { return static_cast<char*>(block.start) - block.place; }

TEST(Chunks, BlocksAreAlignedAndApart) {
  Chunks memory;
  std::vector<std::pair<Block, std::size_t>> blocks;
  for (std::size_t number = 0; number < 5000; ++number) {
    const std::size_t bytes = 1 + number * 7 % 300;
    blocks.emplace_back(filled(memory, bytes, static_cast<int>(number % 256)), bytes);
  }
  memory.seal();
  BlockRelease release;
  for (std::size_t number = 0; number < blocks.size(); ++number) {
    const auto& [block, bytes] = blocks[number];
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block.start) % 8, 0u);
    EXPECT_EQ(block.place % 8, 0u);
    EXPECT_LT(block.place, 65536u);
    const std::vector<unsigned char> expected(bytes, static_cast<unsigned char>(number % 256));
    ASSERT_EQ(std::memcmp(block.start, expected.data(), bytes), 0) << number;
    release.drop(block);
  }
}

TEST(Chunks, ChunkIsFreedWithItsLastBlockOnceItIsSealed) {
  const std::ptrdiff_t before = newBlocksInUse();
  Chunks memory;
  const Block first = memory.allocate(8);
  const Block second = memory.allocate(8);
  EXPECT_EQ(chunkOf(first), chunkOf(second));
  EXPECT_EQ(newBlocksInUse(), before + 1);
  BlockRelease().drop(first);
  memory.seal();
  EXPECT_EQ(newBlocksInUse(), before + 1);
  BlockRelease().drop(second);
  EXPECT_EQ(newBlocksInUse(), before);
}

TEST(Chunks, OpenChunkIsKeptWithoutBlocksUntilItIsSealed) {
  const std::ptrdiff_t before = newBlocksInUse();
  Chunks memory;
  BlockRelease().drop(memory.allocate(8));
  EXPECT_EQ(newBlocksInUse(), before + 1);
  BlockRelease().drop(memory.allocate(8));
  EXPECT_EQ(newBlocksInUse(), before + 1);
  memory.seal();
  EXPECT_EQ(newBlocksInUse(), before);
}

TEST(Chunks, DestructorSeals) {
  const std::ptrdiff_t before = newBlocksInUse();
  {
    Chunks memory;
    BlockRelease().drop(memory.allocate(8));
  }
  EXPECT_EQ(newBlocksInUse(), before);
}

TEST(Chunks, BlockCountedAgainIsFreedTwice) {
  const std::ptrdiff_t before = newBlocksInUse();
  Chunks memory;
  const Block block = memory.allocate(8);
  memory.countAgain();
  memory.seal();
  BlockRelease().drop(block);
  EXPECT_EQ(newBlocksInUse(), before + 1);
  BlockRelease().drop(block);
  EXPECT_EQ(newBlocksInUse(), before);
}

TEST(Chunks, ReleaseSubtractsARunOfBlocksAtItsEnd) {
  const std::ptrdiff_t before = newBlocksInUse();
  Chunks memory;
  const Block inFirst = memory.allocate(8);
  memory.seal();
  const Block inSecond = memory.allocate(8);
  memory.seal();
  BlockRelease release;
  release.drop(inFirst);
  EXPECT_EQ(newBlocksInUse(), before + 2);
  release.drop(inSecond);
  EXPECT_EQ(newBlocksInUse(), before + 1);
  {
    BlockRelease other;
    other.drop({::operator new(8), aloneInMemory});
  }
  EXPECT_EQ(newBlocksInUse(), before + 1);
}

TEST(Chunks, LargeBlockIsAlone) {
  const std::ptrdiff_t before = newBlocksInUse();
  Chunks memory;
  const Block largest = filled(memory, 4096, 1);
  EXPECT_NE(largest.place, aloneInMemory);
  EXPECT_EQ(newBlocksInUse(), before + 1);
  const Block alone = filled(memory, 4097, 2);
  EXPECT_EQ(alone.place, aloneInMemory);
  EXPECT_EQ(newBlocksInUse(), before + 2);
  BlockRelease().drop(alone);
  EXPECT_EQ(newBlocksInUse(), before + 1);
  BlockRelease().drop(largest);
}

TEST(Chunks, LargeBlockIsInTheOpenChunkIfItHasRoom) {
  Chunks memory;
  BlockRelease release;
  while (memory.chunkNumber() < 7) release.drop(memory.allocate(8));  // opens the first chunk of 64 KiB
  const std::ptrdiff_t before = newBlocksInUse();
  const Block large = filled(memory, 5000, 1);
  EXPECT_EQ(large.place, 16u) << "behind the start of the chunk and the block that opened it";
  EXPECT_EQ(newBlocksInUse(), before);
  const Block next = filled(memory, 8, 2);
  EXPECT_EQ(next.place, 16u + 5000u);
  const Block alone = filled(memory, 65536, 3);
  EXPECT_EQ(alone.place, aloneInMemory);
  EXPECT_EQ(newBlocksInUse(), before + 1);
  for (const Block& block : {large, next, alone}) release.drop(block);
}

TEST(Chunks, NumberCountsTheChunks) {
  Chunks memory;
  EXPECT_EQ(memory.chunkNumber(), 0u);
  BlockRelease release;
  release.drop(memory.allocate(8));
  EXPECT_EQ(memory.chunkNumber(), 1u);
  release.drop(memory.allocate(8));
  EXPECT_EQ(memory.chunkNumber(), 1u);
  memory.seal();
  EXPECT_EQ(memory.chunkNumber(), 1u);
  release.drop(memory.allocate(8));
  EXPECT_EQ(memory.chunkNumber(), 2u);
}

TEST(Chunks, SmallDocumentTakesASmallChunkAndLaterOnesGrowToTheLargest) {
  Chunks memory;
  BlockRelease release;
  release.drop(memory.allocate(8));
  std::size_t blocks = 1;  // in the open chunk
  for (const std::size_t size : {1024U, 2048U, 4096U, 8192U, 16384U, 32768U, 65536U, 65536U}) {
    const std::size_t number = memory.chunkNumber();
    for (; memory.chunkNumber() == number; ++blocks) release.drop(memory.allocate(8));
    EXPECT_EQ(blocks - 1, size / 8 - 1) << "the chunk begins with 8 bytes of its own";
    blocks = 1;
  }
}

TEST(Chunks, BlockThatIsLargerThanTheNextChunkGetsAChunkOfItsSize) {
  Chunks memory;
  BlockRelease release;
  release.drop(filled(memory, 4093, 1));
  EXPECT_EQ(memory.chunkNumber(), 1u);
  release.drop(filled(memory, 8, 2));
  EXPECT_EQ(memory.chunkNumber(), 2u);
}

TEST(Chunks, BlocksOfASealedChunkMayBeFreedByThreads) {
  constexpr int drops = 2000000;  // by each of two threads
  Chunks memory;
  const Block block = filled(memory, 24, 1);
  for (int count = 1; count < 2 * drops; ++count) memory.countAgain();
  memory.seal();
  const auto freedBlocks = [&block] {
    const std::ptrdiff_t before = newBlocksInUse();
    for (int drop = 0; drop < drops; ++drop) BlockRelease().drop(block);
    return before - newBlocksInUse();
  };
  std::ptrdiff_t freedThere = 0;
  std::atomic<bool> isRunning = false;
  std::thread other([&] {
    isRunning = true;
    freedThere = freedBlocks();
  });
  while (!isRunning) std::this_thread::yield();
  const std::ptrdiff_t freedHere = freedBlocks();
  other.join();
  EXPECT_EQ(freedHere + freedThere, 1);
}

#ifdef __has_feature
#if __has_feature(address_sanitizer)
#define RAVCTL_ADDRESS_SANITIZER
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(RAVCTL_ADDRESS_SANITIZER)
TEST(ChunksDeathTest, AddressSanitizerReportsTheUseOfMemoryThatBelongsToNoBlock) {
  Chunks memory;
  const Block block = filled(memory, 24, 1);
  EXPECT_DEATH(static_cast<char*>(block.start)[24] = 1, "use-after-poison");
  BlockRelease().drop(block);
}
#endif

}  // namespace
