#include "log/front/MessagePool.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <climits>
#include <cstdlib>
#include <set>
#include <thread>
#include <vector>

namespace {

using namespace BasicLog;

// Takes so many messages that no earlier test's are left, and frees them.
void drain() {
  std::vector<std::unique_ptr<LogMessage>> all;
  for (int i = 0; i < 3'000; ++i) all.push_back(MessagePool::take());
}

TEST(MessagePool, WhatCameBackIsUsedAgain) {
  drain();
  MessagePool::Batch batch;
  std::set<const LogMessage*> given;
  for (auto& slot : batch) {
    auto message = MessagePool::take();
    given.insert(message.get());
    slot = std::move(message);
  }
  MessagePool::giveBack(batch);
  for (const auto& slot : batch) EXPECT_EQ(slot, nullptr);
  for (std::size_t i = 0; i < MessagePool::bundleSize; ++i) {
    const auto message = MessagePool::take();
    EXPECT_EQ(given.count(message.get()), 1U);
  }
}

TEST(MessagePool, ABatchMayBePartlyOrWhollyEmpty) {
  drain();
  MessagePool::Batch batch;
  MessagePool::giveBack(batch);
  batch[7] = MessagePool::take();
  const LogMessage* given = batch[7].get();
  MessagePool::giveBack(batch);
  const auto message = MessagePool::take();
  EXPECT_EQ(message.get(), given);
}

TEST(MessagePool, AMessageGrownLargeIsNotKept) {
  drain();
  MessagePool::Batch batch;
  auto longText = MessagePool::take();
  longText->begin("f", "g", "test", std::string(100'000, 'x'));
  batch[0] = std::move(longText);
  auto manyParameters = MessagePool::take();
  for (int i = 0; i < 1'000; ++i) manyParameters->add("key", "value");
  batch[1] = std::move(manyParameters);
  MessagePool::giveBack(batch);
  for (int i = 0; i < 2; ++i) {
    const auto message = MessagePool::take();
    EXPECT_LT(message->room(), 10'000U);
  }
}

TEST(MessagePool, KeepsNoMoreThanItsBound) {
  drain();
  for (int i = 0; i < 200; ++i) {
    MessagePool::Batch batch;
    for (auto& slot : batch) slot = std::make_unique<LogMessage>();
    MessagePool::giveBack(batch);  // the leak checkers see what is neither kept nor freed
  }
}

// What this thread has for each key that a process can have.
std::vector<void*> valuesOfAllKeys() {
  std::vector<void*> values;
  for (pthread_key_t key = 0; key < PTHREAD_KEYS_MAX; ++key) values.push_back(::pthread_getspecific(key));
  return values;
}

// In a process of its own, in which no message was taken yet.
TEST(MessagePoolDeathTest, WithoutAKeyForItsThreadsMessagesAreTakenAllTheSame) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto takeWithoutKeys = [] {
    pthread_key_t key{};
    while (::pthread_key_create(&key, nullptr) == 0) {
    }
    const std::vector<void*> before = valuesOfAllKeys();
    MessagePool::Batch batch;
    for (auto& slot : batch) slot = MessagePool::take();
    MessagePool::giveBack(batch);
    const bool isTaken = MessagePool::take() != nullptr;
    const bool isNobodysValueChanged = valuesOfAllKeys() == before;
    std::_Exit(isTaken && isNobodysValueChanged ? 0 : 1);
  };
  EXPECT_EXIT(takeWithoutKeys(), testing::ExitedWithCode(0), "");
}

TEST(MessagePool, ThreadsGiveAndTakeAtTheSameTime) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 500; ++i) {
        MessagePool::Batch batch;
        for (auto& slot : batch) {
          auto message = MessagePool::take();
          message->add("key", "value");
          slot = std::move(message);
        }
        MessagePool::giveBack(batch);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
