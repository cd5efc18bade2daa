#include "json/BlockPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
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

// How many pieces lead on from a new one, itself included: each begins with a link to the one before.
std::size_t reachablePieces() {
  json::pool::Pool pool{};
  json::pool::startPiece(pool);
  std::size_t count = 0;
  const void* begin = pool.freePart - json::pool::step;
  for (auto* piece = static_cast<const json::pool::Spare*>(begin); piece != nullptr; piece = piece->next) ++count;
  return count;
}

// Memory that was in use already comes quickly, so that threads which take it meet in what they do with it. The first
// time tells the library that such large blocks come and go.
void warmUp(std::size_t bytes) {
  for (int time = 0; time < 2; ++time) {
    auto* room = static_cast<char*>(std::malloc(bytes));
    for (std::size_t at = 0; at < bytes; at += 4096) *const_cast<volatile char*>(room + at) = 1;
    std::free(room);
  }
}

TEST(BlockPool, PiecesThatThreadsStartAtTheSameMomentAreApartAndStayReachable) {
  constexpr int threads = 4;
  constexpr int piecesOfEach = 3000;
  std::vector<std::vector<Block>> started(threads);
  std::vector<std::thread> running;
  std::atomic<int> waiting{threads};
  const std::size_t before = reachablePieces();
  for (int mark = 0; mark < threads; ++mark) {
    running.emplace_back([&, mark] {
      std::vector<Block>& pieces = started[static_cast<std::size_t>(mark)];
      pieces.reserve(piecesOfEach);
      warmUp(piecesOfEach * 1100);
      --waiting;
      while (waiting != 0) std::this_thread::yield();
      for (int count = 0; count < piecesOfEach; ++count) {
        json::pool::Pool pool{};
        json::pool::startPiece(pool);
        pieces.push_back(
            {reinterpret_cast<unsigned char*>(pool.freePart), pool.freeBytes, static_cast<unsigned char>(mark)});
      }
    });
  }
  for (std::thread& thread : running) thread.join();
  EXPECT_EQ(reachablePieces(), before + threads * piecesOfEach + 1);
  for (const std::vector<Block>& pieces : started) {
    for (const Block& piece : pieces) std::memset(piece.bytes, piece.mark, piece.size);
  }
  for (const std::vector<Block>& pieces : started) {
    for (const Block& piece : pieces) {
      ASSERT_GE(piece.size, 256u) << "room for the largest block";
      ASSERT_EQ(std::count(piece.bytes, piece.bytes + piece.size, piece.mark), static_cast<std::ptrdiff_t>(piece.size));
    }
  }
}

// Sanitizers end the process themselves, and a machine of 32 bits may have room for half of what it can address.
#if !defined(RAVCTL_SANITIZED) && __SIZEOF_POINTER__ > 4
constexpr std::size_t moreThanThereIs = static_cast<std::size_t>(-1) / 2;

void takeMoreThanThereIs() {
  std::set_new_handler([] { std::_Exit(7); });
  json::takeBlock(moreThanThereIs);
}

void resizeToMoreThanThereIs() {
  std::set_new_handler([] { std::_Exit(7); });
  void* block = json::takeBlock(5000);
  json::resizeBlock(block, 5000, moreThanThereIs);
}

void takeMoreThanThereIsWithoutAHandler() {
  std::set_new_handler(nullptr);
  json::takeBlock(moreThanThereIs);
}

TEST(BlockPoolDeathTest, WithoutMemoryAndWithoutAHandlerTheProcessIsAborted) {
  EXPECT_EXIT(takeMoreThanThereIsWithoutAHandler(), testing::KilledBySignal(SIGABRT), "");
}

TEST(BlockPoolDeathTest, WithoutMemoryTheHandlerOfTheProgramIsAsked) {
  EXPECT_EXIT(takeMoreThanThereIs(), testing::ExitedWithCode(7), "");
  EXPECT_EXIT(resizeToMoreThanThereIs(), testing::ExitedWithCode(7), "");
}
#endif

}  // namespace
