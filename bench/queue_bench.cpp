// The pointer queue against std::deque<void*>, as ratios of times taken alternately in one run: filled and then
// drained, and emptied after every push.
//
//   queue_bench [--brief]      prints a line for each, "fill-and-drain 0.87"
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <vector>

#include "base/tasks/PointerQueue.h"

namespace {

// Processor time of this thread, in nanoseconds: what others do on the machine counts for less.
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

// A value that is needed, and memory that anybody may have changed: a queue between threads never lies in registers.
void keep(const void* value) { asm volatile("" : : "r"(value) : "memory"); }

// Nanoseconds for `count` items, `depth` at a time.
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
