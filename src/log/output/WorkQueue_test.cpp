#include "log/output/WorkQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "log/front/BasicLog.h"
#include "testing/faults/QueuePeers.h"

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

TEST(WorkQueue, ReturnsObjectsInTheOrderInWhichTheyWerePushed) {
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

TEST(WorkQueue, PopManyFillsTheBatchFromItsStart) {
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

TEST(WorkQueue, SizeIsTheNumberOfQueuedObjects) {
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

TEST(WorkQueue, DestructorFreesQueuedObjects) {
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

Queue* entered = nullptr;
int entries = 0;

// Calls every function of the queue from a thread that is inside the queue.
void comeBackIntoTheQueue(const char*, int, const char*) {
  ++entries;
  EXPECT_TRUE(entered->isHeldByThisThread());
  EXPECT_EQ(entered->size(), 0U);
  auto item = std::make_unique<const Item>(1, 1);
  std::size_t queued = 99;
  EXPECT_FALSE(entered->push(item, queued));
  EXPECT_NE(item, nullptr);
  EXPECT_EQ(queued, 99U);
  EXPECT_EQ(entered->pop(), nullptr);
  std::array<std::unique_ptr<const Item>, 3> batch;
  for (auto& place : batch) place = std::make_unique<const Item>(2, 2);
  EXPECT_EQ(entered->popMany(batch), 0U);
  for (const auto& place : batch) EXPECT_EQ(place, nullptr);
}

TEST(WorkQueue, CallsOfAThreadInsideTheQueueAreRefusedAndDoNotDeadlock) {
  Queue queue;
  auto item = std::make_unique<const Item>(0, 0);
  ASSERT_TRUE(queue.push(item));
  ASSERT_NE(queue.pop(), nullptr);
  WorkQueuePeer::loseTail(queue);
  entered = &queue;
  entries = 0;
  BasicLog::setAssertHandler(comeBackIntoTheQueue);
  item = std::make_unique<const Item>(3, 3);
  std::size_t queued = 0;
  EXPECT_TRUE(queue.push(item, queued));
  BasicLog::setAssertHandler(nullptr);
  EXPECT_EQ(entries, 1);
  EXPECT_EQ(queued, 1U);
  EXPECT_FALSE(queue.isHeldByThisThread());
  const auto popped = queue.pop();
  ASSERT_NE(popped, nullptr);
  EXPECT_EQ(popped->number, 3);
  EXPECT_EQ(queue.pop(), nullptr);
  EXPECT_EQ(Item::alive, 1);
}

TEST(WorkQueue, SizeIsCorrectedWhenABrokenChainHasLostObjects) {
  Queue queue;
  std::vector<std::unique_ptr<const Item>> lost;  // the test owns them, because the queue loses them
  for (int i = 0; i < 3; ++i) {
    auto item = std::make_unique<const Item>(0, i);
    const Item* raw = item.get();
    ASSERT_TRUE(queue.push(item));
    lost.emplace_back(raw);
  }
  WorkQueuePeer::loseTail(queue);
  BasicLog::setAssertHandler([](const char*, int, const char*) {});
  auto item = std::make_unique<const Item>(0, 3);
  EXPECT_TRUE(queue.push(item));
  BasicLog::setAssertHandler(nullptr);
  std::array<std::unique_ptr<const Item>, 3> batch;
  EXPECT_EQ(queue.popMany(batch), 1U);
  ASSERT_NE(batch[0], nullptr);
  EXPECT_EQ(batch[0]->number, 3);
  EXPECT_EQ(queue.size(), 0U);
  EXPECT_EQ(queue.popMany(batch), 0U);
}

TEST(WorkQueue, OtherThreadWaitsForTheThreadInsideTheQueue) {
  static Queue* shared = nullptr;
  static std::thread other;
  Queue queue;
  shared = &queue;
  auto item = std::make_unique<const Item>(0, 0);
  ASSERT_TRUE(queue.push(item));
  ASSERT_NE(queue.pop(), nullptr);
  WorkQueuePeer::loseTail(queue);
  BasicLog::setAssertHandler([](const char*, int, const char*) {
    other = std::thread([] {
      EXPECT_FALSE(shared->isHeldByThisThread());
      auto late = std::make_unique<const Item>(0, 2);
      EXPECT_TRUE(shared->push(late));
    });
  });
  item = std::make_unique<const Item>(0, 1);
  EXPECT_TRUE(queue.push(item));
  BasicLog::setAssertHandler(nullptr);
  other.join();
  EXPECT_EQ(queue.pop()->number, 1);
  EXPECT_EQ(queue.pop()->number, 2);
  EXPECT_EQ(queue.pop(), nullptr);
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
