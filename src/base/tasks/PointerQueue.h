// SimplePointerQueue: a first-in first-out queue of pointers that allocates one 256-byte block for every 30 entries and
// keeps one empty block, so that a steady flow allocates nothing.
//
//   SimplePointerQueue queue;
//   { ScopedLock lock(queue); queue.push(item); }
//
// The queue does not own what the pointers lead to, and never holds null.
// Threads: the queue carries a lock but takes it nowhere; whoever shares a queue locks it around every call.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/threads/Locks.h"

class SimplePointerQueue : public OwnedMutex {
 public:
  SimplePointerQueue() = default;
  ~SimplePointerQueue() override;
  SimplePointerQueue(const SimplePointerQueue&) = delete;
  SimplePointerQueue& operator=(const SimplePointerQueue&) = delete;

  // False, and nothing changed, for null and when there is no memory for a block.
  [[nodiscard]] bool push(void* pointer) {
    if (pointer == nullptr || in_ == inEnd_) return pushElsewhere(pointer);
    *in_++ = pointer;
    return true;
  }
  // The oldest pointer, null when there is none.
  [[nodiscard]] void* pop() { return out_ != outEnd_ ? *out_++ : popElsewhere(); }

  // Pushes the entries of the array in order, skipping null ones, sets each pushed one to null and stops at the first
  // that cannot be pushed. Returns how many entries it got through: `count` when all went well.
  std::size_t pushMany(void** pointers, std::size_t count);
  // Pops `count` times into the array and returns `count`; entries past the end of the queue are null.
  std::size_t popMany(void** pointers, std::size_t count);

  // Blocks in the chain, and whether there is a spare one besides.
  std::size_t blockCount() const;
  bool hasSpare() const { return spare_ != nullptr; }

 private:
  friend class SimplePointerQueuePeer;  // its test
  static constexpr std::int32_t slotsPerBlock = 30;

  // While a block is the first or the last of the chain the queue works in it by the pointers below; in between, start
  // and count tell what it holds.
  struct Block {
    std::int32_t start = 0;
    std::int32_t count = 0;
    void* slots[slotsPerBlock];
    Block* next = nullptr;
  };

  // What is left when the last block is full, and when the first one may be at its end.
  bool pushElsewhere(void* pointer);
  void* popElsewhere();
  bool appendBlock();
  void unlinkFirstBlock();
  void clearLastBlock();
  Block* takeBlock();
  void retire(Block* block);
  static void freeChain(Block* block);

  Block* head_ = nullptr;
  Block* tail_ = nullptr;
  Block* spare_ = nullptr;
  void** in_ = nullptr;      // the next free slot of the last block
  void** inEnd_ = nullptr;   // and the end of its slots
  void** out_ = nullptr;     // the oldest pointer, in the first block
  void** outEnd_ = nullptr;  // up to here pointers can be taken without looking; never the very last one
};
