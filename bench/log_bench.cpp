// log_bench: measures what logging costs. It prints one figure a line, "name value". log.sh explains the figures and
// counts instructions.
//
//   log_bench below N          makes N calls below the threshold, to be counted by callgrind
//   log_bench written N        logs N messages and writes them into a file, to be counted by callgrind
//   log_bench throughput [--brief]
//                              prints how many messages a second reach a file, with one and with four threads that log.
//                              The time runs from the first call to the last byte in the file, into which each message
//                              goes by a write of its own. If spdlog's headers are installed, it prints the same for
//                              spdlog's asynchronous logger in blocking mode that flushes each message. Rounds of both
//                              alternate in one run.
//   log_bench memory           prints how many bytes a queued message takes
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "log/output/Emitter.h"
#include "log/output/EmitterFactory.h"
#include "log/output/LogManager.h"
#include "testing/host/EmptyFolder.h"

#if __has_include(<spdlog/async.h>) && __has_include(<fmt/format.h>)
#define HAS_SPDLOG 1
#define FMT_HEADER_ONLY 1
#define SPDLOG_FMT_EXTERNAL 1
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#pragma GCC diagnostic pop
#else
#define HAS_SPDLOG 0
#endif

namespace {

using BasicLog::Entry;
using BasicLog::Level;
using Clock = std::chrono::steady_clock;

std::string folder;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// Starts `producers` threads, each of which calls log(producer, number) `each` times, and waits for them.
template <typename Log>
void produce(int producers, int each, Log log) {
  std::vector<std::thread> threads;
  for (int p = 0; p < producers; ++p) {
    threads.emplace_back([=] {
      for (int i = 0; i < each; ++i) log(p, i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

std::size_t linesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return static_cast<std::size_t>(std::count(std::istreambuf_iterator<char>(file), {}, '\n'));
}

void logNumbers(BasicLog::Logger& logger, int producer, int number) {
  if (!logger.isEnabled(Level::info)) return;
  Entry entry(logger, Level::info, "a message of the benchmark", "log_bench.cpp", "logNumbers");
  entry.addNumber("producer", producer);
  entry.addNumber("number", number);
}

std::unique_ptr<zuvsvc::Actor> makeFileEmitter() {
  auto actor = EmitterFactory().create({"file_emitter", "bench"});
  (void)actor->setConfig("interval", "1 day");
  (void)actor->setConfig("prefix", "ours-");
  (void)actor->setConfig("dir", folder);
  return actor;
}

// Logs `count` messages in turns. In each turn this thread logs, and then another thread writes what was logged. So no
// thread waits for a lock, and the number of instructions is nearly the same in every run.
void writeInTurn(int count) {
  constexpr int perTurn = 1'000;
  const auto actor = makeFileEmitter();
  LogManager log;
  log.addEmitter(actor->interfaceOf<BasicLog::Emitter>());
  BasicLog::Logger& logger = *log.input().getLogger("test");
  for (int done = 0; done < count; done += perTurn) {
    for (int i = 0; i < perTurn; ++i) logNumbers(logger, 0, i);
    std::thread([&] { log.flush(); }).join();
  }
}

// Returns how many seconds `total` messages took. Aborts unless every message is in the file.
double ours(int producers, int total) {
  const auto actor = makeFileEmitter();
  LogManager log;
  log.addEmitter(actor->interfaceOf<BasicLog::Emitter>());
  if (!log.startOutputThread()) std::abort();
  BasicLog::Logger& logger = *log.input().getLogger("test");
  const auto start = Clock::now();
  produce(producers, total / producers, [&](int p, int i) { logNumbers(logger, p, i); });
  log.stopOutputThread();
  log.flush();
  const double seconds = secondsSince(start);
  const std::string path = folder + "/" + actor->interfaceOf<BasicLog::FileEmitterInterface>()->currentFileName();
  if (linesOf(path) != static_cast<std::size_t>(total)) std::abort();
  ::unlink(path.c_str());
  return seconds;
}

#if HAS_SPDLOG
double theirs(int producers, int total) {
  const std::string path = folder + "/spdlog.log";
  spdlog::init_thread_pool(8'192, 1);
  auto logger = spdlog::basic_logger_mt<spdlog::async_factory>("bench", path, true);
  logger->flush_on(spdlog::level::trace);  // each message is in the file by a write of its own, as ours is
  const auto start = Clock::now();
  produce(producers, total / producers,
          [&](int p, int i) { logger->info("a message of the benchmark: producer={} number={}", p, i); });
  logger.reset();
  spdlog::shutdown();  // waits for the last message and closes the file
  const double seconds = secondsSince(start);
  if (linesOf(path) != static_cast<std::size_t>(total)) std::abort();
  ::unlink(path.c_str());
  return seconds;
}
#endif

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void compareThroughput(int producers, int total, int rounds) {
  std::vector<double> own;
  std::vector<double> other;
  for (int i = 0; i < rounds; ++i) {
    own.push_back(ours(producers, total));
#if HAS_SPDLOG
    other.push_back(theirs(producers, total));
#endif
  }
  std::printf("messages-per-second-%d %.0f\n", producers, total / median(own));
  if (other.empty()) return;
  std::printf("spdlog-per-second-%d %.0f\n", producers, total / median(other));
  std::printf("times-spdlog-%d %.2f\n", producers, median(other) / median(own));
}

void measureThroughput(bool isBrief) {
  for (const int producers : {1, 4}) compareThroughput(producers, isBrief ? 2'000 : 400'000, isBrief ? 1 : 11);
}

void measureMemory() {
  constexpr int count = 100'000;
  LogManager log;
  BasicLog::Logger& logger = *log.input().getLogger("test");
  const std::size_t before = ::mallinfo2().uordblks;
  for (int i = 0; i < count; ++i) logNumbers(logger, 0, i);
  std::printf("bytes-per-queued-message %zu\n", (::mallinfo2().uordblks - before) / count);
}

// A call in the form that every source file uses.
inline void logBelow() {
  static BasicLog::Logger& logger = BasicLog::getLogger("test");
  if (!logger.isEnabled(Level::debug)) return;
  Entry entry(logger, Level::debug, "below", "log_bench.cpp", "logBelow");
  entry.addNumber("number", 1);
}

void callBelowThreshold(long count) {
  for (long i = 0; i < count; ++i) {
    logBelow();
    asm volatile("" : : : "memory");  // so that the next call reads the threshold again
  }
}

// Makes the folder for the files, in memory if possible, so that the disk is not measured.
void makeFolder() {
  char inMemory[] = "/dev/shm/log_bench.XXXXXX";
  char elsewhere[] = "/tmp/log_bench.XXXXXX";
  char* const path = ::mkdtemp(inMemory) != nullptr ? inMemory : ::mkdtemp(elsewhere);
  if (path == nullptr) std::abort();
  folder = path;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  const bool isBrief = argc > 2 && std::strcmp(argv[2], "--brief") == 0;
  if (what == "below" && argc > 2) {
    callBelowThreshold(std::atol(argv[2]));
  } else if (what == "memory") {
    measureMemory();
  } else if (what == "written" && argc > 2) {
    makeFolder();
    writeInTurn(std::atoi(argv[2]));
    (void)emptyFolder(folder);
    (void)::rmdir(folder.c_str());
  } else if (what == "throughput") {
    makeFolder();
    measureThroughput(isBrief);
    (void)emptyFolder(folder);
    (void)::rmdir(folder.c_str());
  } else {
    std::fprintf(stderr, "Usage: %s below N | written N | throughput [--brief] | memory\n", argv[0]);
    return 2;
  }
  return 0;
}
