#include "base/tasks/PointerQueue.h"

#include <new>

#include "log/front/BasicLog.h"

namespace {

// Deliberately not this file's name: whoever reads logs searches for this one.
constexpr char sourceName[] = "ThreadUtils.cpp";
constexpr int linkedListErrorLine = 498;

}  // namespace

SimplePointerQueue::~SimplePointerQueue() {
  static_assert(sizeof(void*) != 8 || sizeof(Block) == 256, "blocks are made to fill 256 bytes");
  freeChain(head_);
  freeChain(spare_);
}

// The spare block or a new one, empty and without a successor; null without memory.
SimplePointerQueue::Block* SimplePointerQueue::takeBlock() {
  if (spare_ == nullptr) return new (std::nothrow) Block;
  Block* block = spare_;
  spare_ = nullptr;
  block->start = block->count = 0;
  return block;
}

// Keeps an empty block as the spare, or frees it.
void SimplePointerQueue::retire(Block* block) {
  block->next = nullptr;
  if (spare_ == nullptr) {
    spare_ = block;
  } else {
    delete block;
  }
}

void SimplePointerQueue::freeChain(Block* block) {
  while (block != nullptr) {
    Block* next = block->next;
    delete block;
    block = next;
  }
}

// Puts a block behind the last one, which is full.
bool SimplePointerQueue::appendBlock() {
  Block* block = takeBlock();
  if (block == nullptr) return false;
  if (tail_ == nullptr) {
    head_ = block;
    out_ = outEnd_ = block->slots;
  } else {
    tail_->count = static_cast<std::int32_t>(in_ - tail_->slots) - tail_->start;
    tail_->next = block;
  }
  tail_ = block;
  in_ = block->slots;
  inEnd_ = block->slots + slotsPerBlock;
  return true;
}

bool SimplePointerQueue::pushElsewhere(void* pointer) {
  if (pointer == nullptr) return false;
  if (tail_ == nullptr && head_ != nullptr) {
    BasicLog::assertFailure(sourceName, linkedListErrorLine, "internal linked-list error");
    freeChain(head_);  // the chain has lost its end, what it holds is lost with it
    head_ = nullptr;
  }
  if (!appendBlock()) return false;
  *in_++ = pointer;
  return true;
}

void SimplePointerQueue::unlinkFirstBlock() {
  Block* empty = head_;
  head_ = empty->next;
  if (head_ == nullptr) {
    tail_ = nullptr;
    in_ = inEnd_ = out_ = outEnd_ = nullptr;
  } else {
    out_ = outEnd_ = head_->slots + head_->start;
  }
  retire(empty);
}

// The next pointer goes to the first slot again.
void SimplePointerQueue::clearLastBlock() { out_ = outEnd_ = in_ = tail_->slots; }

void* SimplePointerQueue::popElsewhere() {
  while (head_ != nullptr) {
    const bool isLast = head_ == tail_;
    void** const end = isLast ? in_ : head_->slots + head_->start + head_->count;
    if (out_ >= end) {  // beyond it only in a chain that has lost its end
      unlinkFirstBlock();
      continue;
    }
    void* const oldest = *out_++;
    if (isLast && out_ == end) {
      clearLastBlock();
    } else {
      outEnd_ = isLast ? end - 1 : end;
    }
    return oldest;
  }
  return nullptr;
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
