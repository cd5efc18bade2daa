#include "base/tasks/PointerQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <deque>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "log/front/BasicLog.h"
#include "testing/faults/AllocationCount.h"
#include "testing/faults/QueuePeers.h"

namespace {

using testing::Each;
using testing::ElementsAre;

int items[1'000];

class PointerQueue : public testing::Test {
 protected:
  void pushItems(std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i) ASSERT_TRUE(queue_.push(&items[i]));
  }
  void expectItems(std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i) ASSERT_EQ(queue_.pop(), &items[i]) << i;
  }

  SimplePointerQueue queue_;
};

// Pushes as many items as fit without an allocation, from items[from] on, and returns the number of all pushed items.
std::size_t fillWithoutMemory(SimplePointerQueue& queue, std::size_t from) {
  nothrowNewFails = true;
  while (from + 1 < std::size(items) && queue.push(&items[from])) ++from;
  EXPECT_FALSE(queue.push(&items[from])) << "a failed push changes nothing";
  nothrowNewFails = false;
  return from;
}

TEST_F(PointerQueue, ABlockFills256BytesWherePointersHave64Bits) {
  EXPECT_EQ(SimplePointerQueuePeer::kBlockSize, sizeof(void*) == 8 ? 256u : 132u);
}

TEST_F(PointerQueue, ABlockHoldsThirtyPointersAndOneEmptyBlockIsKept) {
  const struct {
    const char* why;
    std::vector<int> steps;  // pointers to push, or, negative, to pop
    std::size_t blocks;
    bool hasSpare;
    std::size_t room;  // for pointers, without another block
  } cases[] = {
      {"a new queue has no memory", {}, 0, false, 0},
      {"an empty queue returns null", {-1}, 0, false, 0},
      {"thirty pointers fill a block", {30}, 1, false, 0},
      {"the next pointer needs another block", {30, 1}, 2, false, 29},
      {"a full second block needs a third", {30, 1, 30}, 3, false, 29},
      {"the emptied first block becomes the spare", {31, -31}, 1, true, 60},
      {"one of two empty blocks is kept", {31, -32}, 0, true, 30},
      {"one of many empty blocks is kept", {150, -151}, 0, true, 30},
      {"all blocks are full", {150}, 5, false, 0},
      {"an emptied block is filled before the spare is used", {31, -31, 30}, 1, true, 30},
      {"the spare is used before a new block", {31, -31, 60}, 2, false, 0},
      {"an empty block is filled from its beginning", {10, -10, 30}, 1, false, 0},
      {"a block that was filled and emptied has no room", {30, -30}, 1, false, 0},
      {"the next pointer after it needs another block", {30, -30, 1}, 2, false, 29},
      {"the block before it becomes the spare", {30, -30, 1, -1}, 1, true, 60},
      {"many pointers keep their order", {900, -901}, 0, true, 30},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    SimplePointerQueue queue;
    std::size_t pushed = 0;
    std::size_t popped = 0;
    const auto pop = [&] { ASSERT_EQ(queue.pop(), popped < pushed ? &items[popped++] : nullptr) << popped; };
    for (const int step : c.steps) {
      for (int i = 0; i < step; ++i) ASSERT_TRUE(queue.push(&items[pushed++]));
      for (int i = 0; i > step; --i) pop();
    }
    EXPECT_EQ(queue.blockCount(), c.blocks);
    EXPECT_EQ(queue.hasSpare(), c.hasSpare);
    const std::size_t before = pushed;
    pushed = fillWithoutMemory(queue, pushed);
    EXPECT_EQ(pushed - before, c.room);
    EXPECT_EQ(queue.blockCount(), c.blocks + (c.hasSpare ? 1U : 0U));
    EXPECT_FALSE(queue.hasSpare());
    while (popped < pushed && !HasFatalFailure()) pop();
    EXPECT_EQ(queue.pop(), nullptr);
  }
}

TEST_F(PointerQueue, ADestroyedQueueFreesItsBlocks) {
  const std::ptrdiff_t before = newBlocksInUse();
  {
    SimplePointerQueue queue;
    for (int& item : items) ASSERT_TRUE(queue.push(&item));
    for (int i = 0; i < 40; ++i) ASSERT_NE(queue.pop(), nullptr);
    EXPECT_TRUE(queue.hasSpare());
    EXPECT_EQ(newBlocksInUse(), before + static_cast<std::ptrdiff_t>(queue.blockCount()) + 1);
  }
  EXPECT_EQ(newBlocksInUse(), before);
}

TEST_F(PointerQueue, NullIsRefused) {
  EXPECT_FALSE(queue_.push(nullptr));
  EXPECT_EQ(queue_.blockCount(), 0U);
}

TEST_F(PointerQueue, ASteadyFlowAllocatesNothing) {
  pushItems(0, 31);
  expectItems(0, 31);
  nothrowNewFails = true;
  for (int round = 0; round < 100; ++round) {
    pushItems(0, 7);
    expectItems(0, 7);
  }
  nothrowNewFails = false;
  EXPECT_LE(queue_.blockCount(), 1U);
}

TEST_F(PointerQueue, PushManySkipsNullAndSetsPushedEntriesToNull) {
  void* pointers[] = {&items[0], nullptr, &items[1], &items[2]};
  EXPECT_EQ(queue_.pushMany(pointers, 4), 4U);
  EXPECT_THAT(pointers, Each(nullptr));
  expectItems(0, 3);
  EXPECT_EQ(queue_.pop(), nullptr);
}

TEST_F(PointerQueue, PushManyOfNothingChangesNothing) {
  void* pointers[] = {&items[0], nullptr};
  EXPECT_EQ(queue_.pushMany(pointers, 0), 0U);
  EXPECT_EQ(queue_.pushMany(nullptr, 0), 0U);
  EXPECT_EQ(queue_.pushMany(pointers + 1, 1), 1U) << "a null entry is got through";
  EXPECT_THAT(pointers, ElementsAre(&items[0], nullptr));
  EXPECT_EQ(queue_.blockCount(), 0U);
  EXPECT_EQ(queue_.pop(), nullptr);
}

TEST_F(PointerQueue, PushManyStopsAtTheFirstFailure) {
  pushItems(0, 28);
  void* pointers[] = {&items[28], nullptr, &items[29], &items[30], &items[31]};
  nothrowNewFails = true;
  EXPECT_EQ(queue_.pushMany(pointers, 5), 3U);
  nothrowNewFails = false;
  EXPECT_THAT(pointers, ElementsAre(nullptr, nullptr, nullptr, &items[30], &items[31]));
  expectItems(0, 30);
}

TEST_F(PointerQueue, PopManyFillsTheRemainingEntriesWithNull) {
  pushItems(0, 2);
  void* pointers[4] = {&items[9], &items[9], &items[9], &items[9]};
  EXPECT_EQ(queue_.popMany(pointers, 4), 4U);
  EXPECT_THAT(pointers, ElementsAre(&items[0], &items[1], nullptr, nullptr));
  EXPECT_EQ(queue_.popMany(pointers, 0), 0U);
}

TEST_F(PointerQueue, BehavesLikeAPlainQueue) {
  std::mt19937 random(6);
  std::deque<void*> model;
  for (int step = 0; step < 100'000; ++step) {
    const bool isFilling = (step / 200) % 2 == 0;
    if (random() % 10 < (isFilling ? 7U : 3U)) {
      void* item = &items[random() % 1'000];
      ASSERT_TRUE(queue_.push(item));
      model.push_back(item);
    } else {
      void* expected = model.empty() ? nullptr : model.front();
      if (!model.empty()) model.pop_front();
      ASSERT_EQ(queue_.pop(), expected);
    }
    ASSERT_LE(queue_.blockCount(), model.size() / 30 + 2);
  }
}

std::string lastAssertion;

TEST_F(PointerQueue, AHeadWithoutATailFailsAnAssertion) {
  BasicLog::setAssertHandler([](const char* file, int line, const char* message) {
    lastAssertion = std::string(file) + " " + std::to_string(line) + " " + message;
  });
  lastAssertion.reserve(100);  // so that the assertion allocates no block that stays
  const std::ptrdiff_t before = newBlocksInUse();
  pushItems(0, 31);
  SimplePointerQueuePeer::loseTail(queue_);
  EXPECT_TRUE(queue_.push(&items[40]));
  BasicLog::setAssertHandler(nullptr);
  EXPECT_EQ(newBlocksInUse(), before + 1) << "the lost blocks are freed";
  EXPECT_EQ(lastAssertion, "ThreadUtils.cpp 498 internal linked-list error");
  EXPECT_EQ(queue_.blockCount(), 1U);
  expectItems(40, 41);
}

TEST_F(PointerQueue, AChainWithoutATailReturnsOnlyPushedPointers) {
  pushItems(0, 5);
  expectItems(0, 2);
  SimplePointerQueuePeer::loseTail(queue_);
  std::size_t next = 2;
  while (void* const pointer = queue_.pop()) {
    ASSERT_LT(next, 5U);
    ASSERT_EQ(pointer, &items[next++]);
  }
  EXPECT_EQ(queue_.pop(), nullptr);
  pushItems(7, 8);
  expectItems(7, 8);
}

// With RAVCTL_LONG the producers push a million pointers in all.
std::size_t pointersOfEachProducer() { return std::getenv("RAVCTL_LONG") != nullptr ? 62'500 : 1'000; }

TEST_F(PointerQueue, UnderItsLockNoPointerOfSixteenProducersIsLostRepeatedOrReordered) {
  constexpr std::size_t producers = 16;
  const std::size_t each = pointersOfEachProducer();
  std::vector<char> things(producers * each);  // each pointer refers to an element of its own
  std::atomic<std::size_t> running{producers};
  std::vector<std::thread> threads;
  for (std::size_t p = 0; p < producers; ++p) {
    threads.emplace_back([&, p] {
      for (std::size_t i = 0; i < each; ++i) {
        const ScopedLock lock(queue_);
        EXPECT_TRUE(queue_.push(&things[p * each + i]));
      }
      --running;
    });
  }
  std::vector<std::size_t> next(producers);  // the index of the next expected pointer of each producer
  std::size_t strays = 0;
  for (bool isThrough = false; !isThrough;) {
    isThrough = running == 0;
    std::array<void*, 20> batch{};
    {
      const ScopedLock lock(queue_);
      queue_.popMany(batch.data(), batch.size());
    }
    for (std::size_t i = 0; i < batch.size() && batch[i] != nullptr; ++i) {
      isThrough = false;
      const auto index = static_cast<std::size_t>(static_cast<char*>(batch[i]) - things.data());
      if (index % each != next[index / each]++) ++strays;
    }
    if (batch[0] == nullptr) std::this_thread::yield();
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(strays, 0U);
  for (const std::size_t count : next) EXPECT_EQ(count, each);
}

}  // namespace
