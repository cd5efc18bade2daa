// Compares the pointer queue with std::deque<void*> in two ways: filled and then drained, and emptied after every push.
// It measures the two alternately in one run and prints the ratio of their times.
//
//   queue_bench [--brief]      prints one line for each way, such as "fill-and-drain 0.87"
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <vector>

#include "base/tasks/PointerQueue.h"

namespace {

// The processor time of this thread in nanoseconds, because other programs affect it less than the wall clock.
double now() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

int something = 0;
void* const item = &something;

struct Deque {
  std::deque<void*> items;
  void push(void* pointer) { items.push_back(pointer); }
  void* pop() {
    if (items.empty()) return nullptr;
    void* front = items.front();
    items.pop_front();
    return front;
  }
};

struct Queue {
  SimplePointerQueue items;
  void push(void* pointer) { (void)items.push(pointer); }
  void* pop() { return items.pop(); }
};

// Tells the compiler that the value is used and that any memory may have changed, so that it does not keep the queue in
// registers, which it could not do with a queue between threads.
void keep(const void* value) { asm volatile("" : : "r"(value) : "memory"); }

// Returns the nanoseconds for `count` items, pushed and popped in groups of `depth`.
template <typename T>
double timeOf(std::size_t count, std::size_t depth) {
  T queue;
  const double start = now();
  for (std::size_t done = 0; done < count; done += depth) {
    for (std::size_t i = 0; i < depth; ++i) {
      queue.push(item);
      keep(&queue);
    }
    for (std::size_t i = 0; i < depth; ++i) keep(queue.pop());
  }
  return now() - start;
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
  return values[values.size() / 2];
}

void compare(const char* name, std::size_t count, std::size_t depth, int rounds) {
  std::vector<double> deque;
  std::vector<double> queue;
  for (int i = 0; i < rounds; ++i) {
    deque.push_back(timeOf<Deque>(count, depth));
    queue.push_back(timeOf<Queue>(count, depth));
  }
  const double perItem = 1.0 / static_cast<double>(count);
  std::printf("%s %.2f (queue %.2f ns, deque %.2f ns an item)\n", name, median(queue) / median(deque),
              median(queue) * perItem, median(deque) * perItem);
}

}  // namespace

int main(int argc, char** argv) {
  const bool isBrief = argc > 1 && std::strcmp(argv[1], "--brief") == 0;
  const std::size_t count = isBrief ? 1'000 : 1'000'000;
  const int rounds = isBrief ? 3 : 51;
  compare("fill-and-drain", count, count, rounds);
  compare("emptied-each-time", count, 1, rounds);
}
