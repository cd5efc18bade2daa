#include "base/tasks/PointerQueue.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <deque>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "log/front/BasicLog.h"
#include "testing/faults/QueuePeers.h"

// Replaces the library's nothrow allocation, so that a test can make it fail.
namespace {
bool allocationsFail = false;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocationsFail ? nullptr : ::operator new(size);
}

namespace {

int items[1'000];

void pushItems(SimplePointerQueue& queue, std::size_t from, std::size_t to) {
  for (std::size_t i = from; i < to; ++i) ASSERT_TRUE(queue.push(&items[i]));
}

void expectItems(SimplePointerQueue& queue, std::size_t from, std::size_t to) {
  for (std::size_t i = from; i < to; ++i) ASSERT_EQ(queue.pop(), &items[i]) << i;
}

TEST(PointerQueue, AnEmptyQueueReturnsNull) {
  SimplePointerQueue queue;
  EXPECT_EQ(queue.pop(), nullptr);
  EXPECT_EQ(queue.blockCount(), 0U);
  EXPECT_FALSE(queue.hasSpare());
}

TEST(PointerQueue, NullIsRefused) {
  SimplePointerQueue queue;
  EXPECT_FALSE(queue.push(nullptr));
  EXPECT_EQ(queue.blockCount(), 0U);
}

TEST(PointerQueue, ReturnsThePointersInTheirOrder) {
  SimplePointerQueue queue;
  pushItems(queue, 0, 1'000);
  expectItems(queue, 0, 1'000);
  EXPECT_EQ(queue.pop(), nullptr);
}

TEST(PointerQueue, ThirtyPointersFillABlock) {
  SimplePointerQueue queue;
  pushItems(queue, 0, 30);
  EXPECT_EQ(queue.blockCount(), 1U);
  pushItems(queue, 30, 31);
  EXPECT_EQ(queue.blockCount(), 2U);
  pushItems(queue, 31, 61);
  EXPECT_EQ(queue.blockCount(), 3U);
}

TEST(PointerQueue, PoppingThirtyOneKeepsOneBlockAsTheSpare) {
  SimplePointerQueue queue;
  pushItems(queue, 0, 31);
  expectItems(queue, 0, 31);
  EXPECT_TRUE(queue.hasSpare());
  EXPECT_EQ(queue.pop(), nullptr);
  EXPECT_EQ(queue.blockCount(), 0U);
  EXPECT_TRUE(queue.hasSpare());
}

TEST(PointerQueue, OneOfManyEmptiedBlocksIsKept) {
  SimplePointerQueue queue;
  pushItems(queue, 0, 150);
  EXPECT_EQ(queue.blockCount(), 5U);
  expectItems(queue, 0, 150);
  EXPECT_EQ(queue.pop(), nullptr);
  EXPECT_EQ(queue.blockCount(), 0U);
  allocationsFail = true;
  pushItems(queue, 0, 30);
  EXPECT_FALSE(queue.push(&items[30]));
  allocationsFail = false;
  EXPECT_FALSE(queue.hasSpare());
}

TEST(PointerQueue, TheSpareIsUsedBeforeANewBlock) {
  SimplePointerQueue queue;
  pushItems(queue, 0, 31);
  expectItems(queue, 0, 31);
  allocationsFail = true;
  pushItems(queue, 31, 61);  // goes into the second block, which is empty again
  EXPECT_TRUE(queue.hasSpare());
  pushItems(queue, 61, 91);
  EXPECT_FALSE(queue.hasSpare());
  EXPECT_FALSE(queue.push(&items[91]));
  allocationsFail = false;
  expectItems(queue, 31, 91);
}

TEST(PointerQueue, ASteadyFlowAllocatesNothing) {
  SimplePointerQueue queue;
  pushItems(queue, 0, 31);
  expectItems(queue, 0, 31);
  allocationsFail = true;
  for (int round = 0; round < 100; ++round) {
    pushItems(queue, 0, 7);
    expectItems(queue, 0, 7);
  }
  allocationsFail = false;
  EXPECT_LE(queue.blockCount(), 1U);
}

TEST(PointerQueue, StoringIntoAnEmptyBlockStartsAtItsBeginning) {
  SimplePointerQueue queue;
  pushItems(queue, 0, 10);
  expectItems(queue, 0, 10);
  pushItems(queue, 0, 30);  // 30 pointers would not fit behind the ten slots used before
  EXPECT_EQ(queue.blockCount(), 1U);
  expectItems(queue, 0, 30);
}

TEST(PointerQueue, APushThatGetsNoMemoryChangesNothing) {
  SimplePointerQueue queue;
  allocationsFail = true;
  EXPECT_FALSE(queue.push(&items[0]));
  allocationsFail = false;
  EXPECT_EQ(queue.blockCount(), 0U);
  pushItems(queue, 0, 30);
  allocationsFail = true;
  EXPECT_FALSE(queue.push(&items[30]));
  allocationsFail = false;
  EXPECT_EQ(queue.blockCount(), 1U);
  expectItems(queue, 0, 30);
  EXPECT_EQ(queue.pop(), nullptr);
}

TEST(PointerQueue, PushManySkipsNullAndSetsPushedEntriesToNull) {
  SimplePointerQueue queue;
  void* pointers[] = {&items[0], nullptr, &items[1], &items[2]};
  EXPECT_EQ(queue.pushMany(pointers, 4), 4U);
  for (void* pointer : pointers) EXPECT_EQ(pointer, nullptr);
  expectItems(queue, 0, 3);
  EXPECT_EQ(queue.pop(), nullptr);
}

TEST(PointerQueue, PushManyStopsAtTheFirstFailure) {
  SimplePointerQueue queue;
  pushItems(queue, 0, 28);
  void* pointers[] = {&items[28], nullptr, &items[29], &items[30], &items[31]};
  allocationsFail = true;
  EXPECT_EQ(queue.pushMany(pointers, 5), 3U);
  allocationsFail = false;
  EXPECT_EQ(pointers[0], nullptr);
  EXPECT_EQ(pointers[2], nullptr);
  EXPECT_EQ(pointers[3], &items[30]);
  EXPECT_EQ(pointers[4], &items[31]);
  expectItems(queue, 0, 30);
}

TEST(PointerQueue, PopManyFillsTheRemainingEntriesWithNull) {
  SimplePointerQueue queue;
  pushItems(queue, 0, 2);
  void* pointers[4] = {&items[9], &items[9], &items[9], &items[9]};
  EXPECT_EQ(queue.popMany(pointers, 4), 4U);
  EXPECT_EQ(pointers[0], &items[0]);
  EXPECT_EQ(pointers[1], &items[1]);
  EXPECT_EQ(pointers[2], nullptr);
  EXPECT_EQ(pointers[3], nullptr);
  EXPECT_EQ(queue.popMany(pointers, 0), 0U);
}

TEST(PointerQueue, BehavesLikeAPlainQueue) {
  std::mt19937 random(6);
  SimplePointerQueue queue;
  std::deque<void*> model;
  for (int step = 0; step < 100'000; ++step) {
    const bool isFilling = (step / 200) % 2 == 0;
    if (random() % 10 < (isFilling ? 7U : 3U)) {
      void* item = &items[random() % 1'000];
      ASSERT_TRUE(queue.push(item));
      model.push_back(item);
    } else {
      void* expected = model.empty() ? nullptr : model.front();
      if (!model.empty()) model.pop_front();
      ASSERT_EQ(queue.pop(), expected);
    }
    ASSERT_LE(queue.blockCount(), model.size() / 30 + 2);
  }
}

std::string lastAssertion;

TEST(PointerQueue, AHeadWithoutATailFailsAnAssertion) {
  BasicLog::setAssertHandler([](const char* file, int line, const char* message) {
    lastAssertion = std::string(file) + " " + std::to_string(line) + " " + message;
  });
  SimplePointerQueue queue;
  pushItems(queue, 0, 31);
  SimplePointerQueuePeer::loseTail(queue);
  EXPECT_TRUE(queue.push(&items[40]));
  BasicLog::setAssertHandler(nullptr);
  EXPECT_EQ(lastAssertion, "ThreadUtils.cpp 498 internal linked-list error");
  EXPECT_EQ(queue.blockCount(), 1U);
  expectItems(queue, 40, 41);
}

TEST(PointerQueue, AChainWithoutATailReturnsOnlyPushedPointers) {
  SimplePointerQueue queue;
  pushItems(queue, 0, 5);
  expectItems(queue, 0, 2);
  SimplePointerQueuePeer::loseTail(queue);
  std::size_t next = 2;
  while (void* const pointer = queue.pop()) {
    ASSERT_LT(next, 5U);
    ASSERT_EQ(pointer, &items[next++]);
  }
  EXPECT_EQ(queue.pop(), nullptr);
  pushItems(queue, 7, 8);
  expectItems(queue, 7, 8);
}

// With RAVCTL_LONG the producers push a million pointers in all.
std::size_t pointersOfEachProducer() { return std::getenv("RAVCTL_LONG") != nullptr ? 62'500 : 1'000; }

TEST(PointerQueue, UnderItsLockNoPointerOfSixteenProducersIsLostRepeatedOrReordered) {
  constexpr std::size_t producers = 16;
  const std::size_t each = pointersOfEachProducer();
  std::vector<char> things(producers * each);  // each pointer refers to an element of its own
  SimplePointerQueue queue;
  std::atomic<std::size_t> running{producers};
  std::vector<std::thread> threads;
  for (std::size_t p = 0; p < producers; ++p) {
    threads.emplace_back([&, p] {
      for (std::size_t i = 0; i < each; ++i) {
        const ScopedLock lock(queue);
        EXPECT_TRUE(queue.push(&things[p * each + i]));
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
      const ScopedLock lock(queue);
      queue.popMany(batch.data(), batch.size());
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
