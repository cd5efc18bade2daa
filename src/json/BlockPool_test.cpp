#include "json/BlockPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

namespace {

struct Block {
  unsigned char* bytes;
  std::size_t size;
  unsigned char mark;
};

Block taken(std::size_t size, unsigned char mark) {
  auto* bytes = static_cast<unsigned char*>(json::takeBlock(size));
  std::memset(bytes, mark, size);
  return {bytes, size, mark};
}

void expectUntouched(const Block& block) {
  for (std::size_t at = 0; at < block.size; ++at) ASSERT_EQ(block.bytes[at], block.mark) << block.size;
}

TEST(BlockPool, BlocksOfAllSizesAreAlignedAndApart) {
  std::mt19937 random(1);
  std::vector<Block> blocks;
  for (int step = 0; step < 20000; ++step) {
    if (!blocks.empty() && random() % 5 < 2) {
      std::swap(blocks[random() % blocks.size()], blocks.back());
      expectUntouched(blocks.back());
      json::giveBlock(blocks.back().bytes, blocks.back().size);
      blocks.pop_back();
    } else {
      blocks.push_back(taken(1 + random() % 300, static_cast<unsigned char>(step)));
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(blocks.back().bytes) % alignof(std::max_align_t), 0u);
    }
  }
  for (const Block& block : blocks) {
    expectUntouched(block);
    json::giveBlock(block.bytes, block.size);
  }
}

TEST(BlockPool, CountsTheBlocksInUse) {
  const std::ptrdiff_t before = json::blocksInUse();
  void* small = json::takeBlock(8);
  void* large = json::takeBlock(5000);
  EXPECT_EQ(json::blocksInUse(), before + 2);
  json::giveBlock(small, 8);
  json::giveBlock(large, 5000);
  EXPECT_EQ(json::blocksInUse(), before);
}

TEST(BlockPool, ABlockMayBeGivenBackOnAnotherThread) {
  const Block here = taken(24, 7);
  std::thread([&] {
    EXPECT_EQ(json::blocksInUse(), 0);
    const Block there = taken(24, 9);
    json::giveBlock(here.bytes, here.size);
    expectUntouched(there);
    const Block again = taken(24, 11);
    expectUntouched(there);
    json::giveBlock(again.bytes, again.size);
    json::giveBlock(there.bytes, there.size);
    EXPECT_EQ(json::blocksInUse(), -1);
  }).join();
  json::giveBlock(taken(24, 1).bytes, 24);
}

TEST(BlockPool, AResizedBlockKeepsItsBytes) {
  const std::ptrdiff_t before = json::blocksInUse();
  for (std::size_t size : {1U, 16U, 40U, 200U, 256U, 257U, 5000U, 300000U}) {
    for (std::size_t wanted : {1U, 16U, 41U, 255U, 256U, 257U, 6000U, 400000U}) {
      Block block = taken(size, 5);
      block.bytes = static_cast<unsigned char*>(json::resizeBlock(block.bytes, size, wanted));
      block.size = std::min(size, wanted);
      expectUntouched(block);
      std::memset(block.bytes, 6, wanted);
      EXPECT_EQ(json::blocksInUse(), before + 1);
      json::giveBlock(block.bytes, wanted);
    }
  }
  EXPECT_EQ(json::blocksInUse(), before);
}

TEST(BlockPool, NoBlockIsResizedToANewOne) {
  const std::ptrdiff_t before = json::blocksInUse();
  void* block = json::resizeBlock(nullptr, 0, 64);
  std::memset(block, 1, 64);
  EXPECT_EQ(json::blocksInUse(), before + 1);
  json::giveBlock(block, 64);
}

}  // namespace
