// pairs: compares the run times of two commands. It runs them alternately, in pairs.
//
//   pairs [--pairs N] [--warm-up N] [--bar R] [--preload-a LIBRARY] [--before-a 'COMMAND'] [--before-b 'COMMAND']
//         -- A... -- B...
//
// A and B are absolute paths with their arguments. They run with an empty environment (but A with LD_PRELOAD, if that
// is given), no input, their output on /dev/null, and on one core if the machine allows that choice. pairs measures:
// - the wall time, from before the start of the process to the return of wait4
// - the peak memory that the kernel reports, which is at least the 2 MiB of this program, because a child shares them
//   until it executes another program
// - the page faults that the kernel served without reading a file; those of the child before it executes the other
//   program are among them, and are the same for A and B
// --before-a and --before-b are commands, split at blanks, that run before each run of A and of B. Their time is not
// measured. The order of A and B alternates from pair to pair.
//
// It prints the median and the quartiles of each command, and two ratios of B to A: the ratio of the medians, which it
// compares with the bar, and the median of the ratios of the pairs, which is least sensitive to a drift of the machine.
// A missed bar is no failure: the exit status is 0 unless a command could not be run.
#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

using Words = std::vector<std::string>;

struct Options {
  size_t pairs = 30;
  size_t warm_up = 3;
  double bar = 0;
  std::string preload;
  Words before[2];
  Words command[2];
};

struct Run {
  double microseconds = 0;
  double peak_kib = 0;
  double page_faults = 0;
};

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "pairs: %s\n", what.c_str());
  std::exit(2);
}

Words split(const char* text) {
  Words words;
  std::string word;
  for (;; ++text) {
    if (*text != '\0' && *text != ' ') {
      word += *text;
      continue;
    }
    if (!word.empty()) words.push_back(word);
    word.clear();
    if (*text == '\0') return words;
  }
}

size_t count(const char* text) {
  char* end = nullptr;
  const unsigned long value = std::strtoul(text, &end, 10);
  if (*text == '\0' || *end != '\0') fail(std::string("not a number: ") + text);
  return value;
}

Options read(int argc, char** argv) {
  Options options;
  int at = 1;
  for (; at + 1 < argc && std::strcmp(argv[at], "--") != 0; at += 2) {
    const std::string key = argv[at];
    const char* value = argv[at + 1];
    if (key == "--pairs") {
      options.pairs = count(value);
    } else if (key == "--warm-up") {
      options.warm_up = count(value);
    } else if (key == "--bar") {
      options.bar = std::strtod(value, nullptr);
    } else if (key == "--preload-a") {
      options.preload = std::string("LD_PRELOAD=") + value;
    } else if (key == "--before-a") {
      options.before[0] = split(value);
    } else if (key == "--before-b") {
      options.before[1] = split(value);
    } else {
      fail("unknown word: " + key);
    }
  }
  for (Words& command : options.command) {
    for (++at; at < argc && std::strcmp(argv[at], "--") != 0; ++at) command.emplace_back(argv[at]);
    if (command.empty()) fail("two commands are needed, each after --");
  }
  if (options.pairs == 0) fail("at least one pair is needed");
  return options;
}

// Child processes inherit the core. If the machine refuses, the figures only vary more.
void stayOnOneCore() {
  cpu_set_t one;
  CPU_ZERO(&one);
  const int here = sched_getcpu();
  if (here < 0) return;
  CPU_SET(static_cast<unsigned>(here), &one);
  (void)sched_setaffinity(0, sizeof one, &one);
}

double now() {
  timespec time{};
  if (clock_gettime(CLOCK_MONOTONIC, &time) != 0) fail("no clock");
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

// A program and everything that posix_spawn needs to start it, prepared once before the measurement.
class Starter {
 public:
  // `variable` is the whole environment; empty: none.
  explicit Starter(const Words& words, const std::string& variable = {}) : words_(words), variable_(variable) {
    for (std::string& word : words_) argv_.push_back(word.data());
    argv_.push_back(nullptr);
    if (posix_spawn_file_actions_init(&actions_) != 0 || !sendToNull(0, O_RDONLY) || !sendToNull(1, O_WRONLY)) {
      fail("out of memory");
    }
  }
  ~Starter() { posix_spawn_file_actions_destroy(&actions_); }
  Starter(const Starter&) = delete;
  Starter& operator=(const Starter&) = delete;

  Run run() {
    char* environment[] = {variable_.empty() ? nullptr : variable_.data(), nullptr};
    pid_t child = 0;
    int status = 0;
    rusage usage{};
    const double start = now();
    const int error = posix_spawn(&child, argv_[0], &actions_, nullptr, argv_.data(), environment);
    if (error != 0) fail(words_[0] + ": " + std::strerror(error));
    if (wait4(child, &status, 0, &usage) != child) fail("wait4");
    const double end = now();
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) fail(words_[0] + ": did not end with 0");
    return {end - start, static_cast<double>(usage.ru_maxrss), static_cast<double>(usage.ru_minflt)};
  }

 private:
  bool sendToNull(int fd, int mode) {
    return posix_spawn_file_actions_addopen(&actions_, fd, "/dev/null", mode, 0) == 0;
  }

  Words words_;
  std::string variable_;
  std::vector<char*> argv_;
  posix_spawn_file_actions_t actions_{};
};

// Most runs need no preparation.
void prepare(const Words& command) {
  if (!command.empty()) (void)Starter(command).run();
}

double quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  const double place = part * static_cast<double>(values.size() - 1);
  const size_t below = static_cast<size_t>(place);
  const size_t above = std::min(below + 1, values.size() - 1);
  return values[below] + (values[above] - values[below]) * (place - static_cast<double>(below));
}

struct Series {
  std::vector<double> microseconds, peak_kib, page_faults;

  void add(const Run& run) {
    microseconds.push_back(run.microseconds);
    peak_kib.push_back(run.peak_kib);
    page_faults.push_back(run.page_faults);
  }

  void print(char label, const Words& command) const {
    std::printf("  %c %10.1f us  (quartiles %.1f .. %.1f, peak %.0f KiB, %.0f page faults)  %s\n", label,
                quantile(microseconds, 0.5), quantile(microseconds, 0.25), quantile(microseconds, 0.75),
                quantile(peak_kib, 0.5), quantile(page_faults, 0.5), command[0].c_str());
  }
};

void printRatios(const Series& a, const Series& b, double bar) {
  std::vector<double> ratios;
  for (size_t i = 0; i < a.microseconds.size(); ++i) ratios.push_back(b.microseconds[i] / a.microseconds[i]);
  const double ofMedians = quantile(b.microseconds, 0.5) / quantile(a.microseconds, 0.5);
  std::printf("  B to A %.3f of the medians, %.3f median of the pairs", ofMedians, quantile(ratios, 0.5));
  if (bar > 0) std::printf(", bar %.2f: %s", bar, ofMedians <= bar ? "met" : "missed");
  std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = read(argc, argv);
  stayOnOneCore();
  Starter starters[2] = {Starter(options.command[0], options.preload), Starter(options.command[1])};
  Series series[2];
  for (size_t pair = 0; pair < options.warm_up + options.pairs; ++pair) {
    for (size_t turn = 0; turn < 2; ++turn) {
      const size_t which = (pair + turn) % 2;
      prepare(options.before[which]);
      const Run run = starters[which].run();
      if (pair >= options.warm_up) series[which].add(run);
    }
  }
  std::printf("  %zu pairs\n", options.pairs);
  series[0].print('A', options.command[0]);
  series[1].print('B', options.command[1]);
  printRatios(series[0], series[1], options.bar);
  return std::fflush(stdout) == 0 ? 0 : 2;
}
