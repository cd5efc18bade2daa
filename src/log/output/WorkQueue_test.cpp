#include "log/output/WorkQueue.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "log/front/BasicLog.h"
#include "testing/faults/QueuePeers.h"

namespace {

struct Item {
  static std::atomic<int> alive;
  const int number;

  explicit Item(int n) : number(n) { ++alive; }
  Item(const Item&) = delete;
  Item& operator=(const Item&) = delete;
  ~Item() { --alive; }
};
std::atomic<int> Item::alive{0};

using Queue = TypedWorkQueue<const Item>;

bool push(Queue& queue, int number) {
  auto item = std::make_unique<const Item>(number);
  return queue.push(item) != 0 && item == nullptr;
}

void pushMany(Queue& queue, int count) {
  for (int i = 0; i < count; ++i) ASSERT_TRUE(push(queue, i));
}

// Empties the queue and damages it. The next push fails an assertion while it holds the queue's lock.
void damage(Queue& queue) {
  pushMany(queue, 1);
  ASSERT_NE(queue.pop(), nullptr);
  WorkQueuePeer::loseTail(queue);
}

TEST(WorkQueue, ReturnsObjectsInTheOrderInWhichTheyWerePushed) {
  Queue queue;
  pushMany(queue, 100);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(queue.pop()->number, i);
  EXPECT_EQ(queue.pop(), nullptr);
}

TEST(WorkQueue, PopManyFillsTheBatchFromItsStart) {
  Queue queue;
  pushMany(queue, 25);
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

TEST(WorkQueue, SizeIsTheNumberOfQueuedObjectsAndNullIsRefused) {
  Queue queue;
  EXPECT_EQ(queue.size(), 0U);
  std::unique_ptr<const Item> none;
  EXPECT_EQ(queue.push(none), 0U);
  EXPECT_EQ(queue.pop(), nullptr);
  for (std::size_t i = 1; i <= 50; ++i) {
    auto item = std::make_unique<const Item>(0);
    EXPECT_EQ(queue.push(item), i);
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
    pushMany(queue, 70);
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
  auto item = std::make_unique<const Item>(1);
  EXPECT_EQ(entered->push(item), 0U);
  EXPECT_NE(item, nullptr);
  EXPECT_EQ(entered->pop(), nullptr);
  std::array<std::unique_ptr<const Item>, 3> batch;
  for (auto& place : batch) place = std::make_unique<const Item>(2);
  EXPECT_EQ(entered->popMany(batch), 0U);
  for (const auto& place : batch) EXPECT_EQ(place, nullptr);
}

TEST(WorkQueue, CallsOfAThreadInsideTheQueueAreRefusedAndDoNotDeadlock) {
  Queue queue;
  damage(queue);
  entered = &queue;
  entries = 0;
  BasicLog::setAssertHandler(comeBackIntoTheQueue);
  auto item = std::make_unique<const Item>(3);
  EXPECT_EQ(queue.push(item), 1U);
  BasicLog::setAssertHandler(nullptr);
  EXPECT_EQ(entries, 1);
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
    auto item = std::make_unique<const Item>(i);
    const Item* raw = item.get();
    ASSERT_NE(queue.push(item), 0U);
    lost.emplace_back(raw);
  }
  WorkQueuePeer::loseTail(queue);
  BasicLog::setAssertHandler([](const char*, int, const char*) {});
  EXPECT_TRUE(push(queue, 3));
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
  damage(queue);
  BasicLog::setAssertHandler([](const char*, int, const char*) {
    other = std::thread([] {
      EXPECT_FALSE(shared->isHeldByThisThread());
      EXPECT_TRUE(push(*shared, 2));
    });
  });
  EXPECT_TRUE(push(queue, 1));
  BasicLog::setAssertHandler(nullptr);
  other.join();
  EXPECT_EQ(queue.pop()->number, 1);
  EXPECT_EQ(queue.pop()->number, 2);
  EXPECT_EQ(queue.pop(), nullptr);
}

TEST(WorkQueue, EveryFunctionOfAnotherThreadWaitsForTheThreadInsideTheQueue) {
  using Function = std::size_t (*)(Queue&);
  const struct {
    const char* why;
    Function function;
  } cases[] = {
      {"size", [](Queue& queue) { return queue.size(); }},
      {"pop", [](Queue& queue) { return std::size_t{queue.pop() != nullptr}; }},
      {"popMany",
       [](Queue& queue) {
         std::array<std::unique_ptr<const Item>, 3> batch;
         return queue.popMany(batch);
       }},
  };
  static Queue* shared = nullptr;
  static std::thread other;
  static Function called = nullptr;
  static std::size_t result = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    Queue queue;
    shared = &queue;
    called = c.function;
    damage(queue);
    BasicLog::setAssertHandler([](const char*, int, const char*) {
      other = std::thread([] { result = called(*shared); });
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    });
    EXPECT_TRUE(push(queue, 1));
    BasicLog::setAssertHandler(nullptr);
    other.join();
    EXPECT_EQ(result, 1U) << "of the object that is being pushed";
  }
}

}  // namespace
