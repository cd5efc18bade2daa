#include "log/WorkQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

struct Item {
  static std::atomic<int> alive;
  int producer, number;

  Item(int p, int n) : producer(p), number(n) { ++alive; }
  Item(const Item&) = delete;
  Item& operator=(const Item&) = delete;
  ~Item() { --alive; }
};
std::atomic<int> Item::alive{0};

using Queue = TypedWorkQueue<const Item>;

TEST(WorkQueue, GivesBackWhatItTookInOrder) {
  Queue queue;
  for (int i = 0; i < 100; ++i) {
    auto item = std::make_unique<const Item>(0, i);
    ASSERT_TRUE(queue.push(item));
    ASSERT_EQ(item, nullptr);
  }
  for (int i = 0; i < 100; ++i) EXPECT_EQ(queue.pop()->number, i);
  EXPECT_EQ(queue.pop(), nullptr);
}

TEST(WorkQueue, NullIsRefused) {
  Queue queue;
  std::unique_ptr<const Item> none;
  EXPECT_FALSE(queue.push(none));
  EXPECT_EQ(queue.pop(), nullptr);
}

TEST(WorkQueue, ABatchIsFilledFromItsStart) {
  Queue queue;
  for (int i = 0; i < 25; ++i) {
    auto item = std::make_unique<const Item>(0, i);
    ASSERT_TRUE(queue.push(item));
  }
  std::array<std::unique_ptr<const Item>, 20> batch;
  EXPECT_EQ(queue.popMany(batch), 20U);
  EXPECT_EQ(batch[0]->number, 0);
  EXPECT_EQ(batch[19]->number, 19);
  EXPECT_EQ(queue.popMany(batch), 5U);
  EXPECT_EQ(batch[4]->number, 24);
  for (std::size_t i = 5; i < batch.size(); ++i) EXPECT_EQ(batch[i], nullptr);
  EXPECT_EQ(queue.popMany(batch), 0U);
  EXPECT_EQ(batch[0], nullptr);
}

TEST(WorkQueue, TellsHowManyObjectsItHolds) {
  Queue queue;
  EXPECT_EQ(queue.size(), 0U);
  std::size_t queued = 99;
  std::unique_ptr<const Item> none;
  EXPECT_FALSE(queue.push(none, queued));
  EXPECT_EQ(queued, 99U);
  for (std::size_t i = 1; i <= 50; ++i) {
    auto item = std::make_unique<const Item>(0, 0);
    EXPECT_TRUE(queue.push(item, queued));
    EXPECT_EQ(queued, i);
  }
  std::array<std::unique_ptr<const Item>, 20> batch;
  EXPECT_EQ(queue.popMany(batch), 20U);
  EXPECT_EQ(queue.size(), 30U);
  EXPECT_NE(queue.pop(), nullptr);
  EXPECT_EQ(queue.size(), 29U);
}

TEST(WorkQueue, WhatIsStillQueuedIsFreedWithTheQueue) {
  ASSERT_EQ(Item::alive, 0);
  {
    Queue queue;
    for (int i = 0; i < 70; ++i) {
      auto item = std::make_unique<const Item>(0, i);
      ASSERT_TRUE(queue.push(item));
    }
    EXPECT_EQ(Item::alive, 70);
  }
  EXPECT_EQ(Item::alive, 0);
}

TEST(WorkQueue, SixteenProducersLoseNothingAndKeepTheirOrder) {
  constexpr int producers = 16;
  constexpr int each = 500;
  Queue queue;
  std::vector<std::thread> threads;
  for (int p = 0; p < producers; ++p) {
    threads.emplace_back([&queue, p] {
      for (int i = 0; i < each; ++i) {
        auto item = std::make_unique<const Item>(p, i);
        ASSERT_TRUE(queue.push(item));
      }
    });
  }
  std::vector<int> next(producers);
  std::array<std::unique_ptr<const Item>, 20> batch;
  for (int received = 0; received < producers * each;) {
    const std::size_t count = queue.popMany(batch);
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_EQ(batch[i]->number, next[static_cast<std::size_t>(batch[i]->producer)]++);
    }
    received += static_cast<int>(count);
    if (count == 0) std::this_thread::yield();
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(queue.pop(), nullptr);
  for (const int count : next) EXPECT_EQ(count, each);
}

}  // namespace
