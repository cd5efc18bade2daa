#include "base/tasks/PointerQueue.h"

#include <new>

#include "log/front/BasicLog.h"

namespace {

// Deliberately not the name of this file: people who read logs search for this name.
constexpr char sourceName[] = "ThreadUtils.cpp";
constexpr int linkedListErrorLine = 498;  // deliberately fixed, for the same reason

}  // namespace

SimplePointerQueue::~SimplePointerQueue() {
  freeChain(head_);
  freeChain(spare_);
}

void SimplePointerQueue::freeChain(Block* block) {
  while (block != nullptr) {
    Block* next = block->next;
    delete block;
    block = next;
  }
}

// Appends the spare block, or a new one, to the chain. Returns false if there is no memory.
bool SimplePointerQueue::appendBlock() {
  Block* block = spare_ != nullptr ? spare_ : new (std::nothrow) Block;
  if (block == nullptr) return false;
  spare_ = nullptr;
  block->start = block->end = 0;
  (tail_ == nullptr ? head_ : tail_->next) = block;
  tail_ = block;
  return true;
}

bool SimplePointerQueue::pushIntoNewBlock(void* pointer) {
  if (tail_ == nullptr && head_ != nullptr) {
    BasicLog::assertFailure(sourceName, linkedListErrorLine, "internal linked-list error");
    freeChain(head_);  // a chain without its last block is of no use: its pointers are lost
    head_ = nullptr;
  }
  if (!appendBlock()) return false;
  return push(pointer);
}

// Removes the empty first block from the chain. It becomes the spare if there is none.
void SimplePointerQueue::unlinkFirstBlock() {
  Block* empty = head_;
  head_ = empty->next;
  if (head_ == nullptr) tail_ = nullptr;
  empty->next = nullptr;
  if (spare_ == nullptr) {
    spare_ = empty;
  } else {
    delete empty;
  }
}

void* SimplePointerQueue::popAfterEmptyBlocks() {
  while (head_ != nullptr && head_->isEmpty()) unlinkFirstBlock();
  if (head_ == nullptr) return nullptr;
  return pop();
}

std::size_t SimplePointerQueue::pushMany(void** pointers, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (pointers[i] == nullptr) continue;
    if (!push(pointers[i])) return i;
    pointers[i] = nullptr;
  }
  return count;
}

std::size_t SimplePointerQueue::popMany(void** pointers, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) pointers[i] = pop();
  return count;
}

std::size_t SimplePointerQueue::blockCount() const {
  std::size_t count = 0;
  for (const Block* block = head_; block != nullptr; block = block->next) ++count;
  return count;
}
