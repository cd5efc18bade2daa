// An example program that logs from four threads to every kind of output, starts a new log file every second, and stops
// cleanly. docs/logging.md explains its parts.
//
//   logging-example DIRECTORY [seconds]      writes its files to DIRECTORY and logs for one second by default
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/system/SignalManager.h"
#include "base/text/TimeUtils.h"
#include "base/threads/ThreadNames.h"
#include "log/output/Emitter.h"
#include "log/output/EmitterFactory.h"
#include "log/output/LogManager.h"

namespace {

using BasicLog::Level;
using zuvsvc::ConfigResult;

// begin: entry
void reportStep(int worker, int step) {
  static BasicLog::Logger& log = BasicLog::getLogger("example");
  if (!log.isEnabled(Level::info)) return;
  BasicLog::Entry entry(log, Level::info, "step done", "logging_example.cpp", "reportStep");
  entry.addNumber("worker", worker);
  entry.addNumber("step", step);
}
// end: entry

// begin: settings
struct Setting {
  const char* key;
  std::string value;
};

struct Output {
  const char* typeName;
  const char* actorName;
  std::vector<Setting> settings;
};

std::vector<Output> outputs(const std::string& directory) {
  return {
      {"null_emitter", "nowhere", {}},
      {"stdout_emitter", "screen", {}},
      {"stderr_emitter", "errors", {}},
      {"syslog_emitter", "system", {{"subsystem", "example"}, {"category", "steps"}}},
      {"file_emitter", "files", {{"interval", "1 second"}, {"prefix", "example-"}, {"dir", directory}}},
  };
}
// end: settings

// begin: make
std::unique_ptr<zuvsvc::Actor> makeEmitter(const Output& output) {
  std::unique_ptr<zuvsvc::Actor> actor = EmitterFactory().create({output.typeName, output.actorName});
  if (!actor) return nullptr;
  for (const Setting& setting : output.settings) {
    if (actor->setConfig(setting.key, setting.value) != ConfigResult::accepted) return nullptr;
  }
  const bool isReady = actor->verifyConfig() && actor->startup();
  return isReady ? std::move(actor) : nullptr;
}
// end: make

// begin: signals
std::atomic<bool> isOver{false};

class StopSignals : public SignalManager {
  void handle(int) override { isOver = true; }
};
// end: signals

void work(int worker) {
  setThreadName("worker");
  for (int step = 0; !isOver; ++step) {
    reportStep(worker, step);
    sleepMicros(20'000);
  }
}

void workFor(std::int64_t seconds) {
  StopSignals signals;
  if (signals.install(SIGTERM) != 0) return;
  std::vector<std::thread> workers;
  for (int worker = 1; worker <= 4; ++worker) workers.emplace_back(work, worker);
  const std::int64_t end = TimeUtils::monotonicMicros() + seconds * 1'000'000;
  while (!isOver && TimeUtils::monotonicMicros() < end) {
    sleepMicros(10'000);
    signals.dispatch();
  }
  isOver = true;
  for (std::thread& worker : workers) worker.join();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;

  // begin: start
  LogManager& log = LogManager::instance();
  std::vector<std::unique_ptr<zuvsvc::Actor>> actors;
  for (const Output& output : outputs(argv[1])) {
    std::unique_ptr<zuvsvc::Actor> actor = makeEmitter(output);
    if (!actor) return 1;
    log.addEmitter(actor->interfaceOf<BasicLog::Emitter>());
    actors.push_back(std::move(actor));
  }
  if (!log.startOutputThread()) return 1;
  // end: start

  workFor(argc > 2 ? std::atoi(argv[2]) : 1);

  // begin: stop
  log.stopOutputThread();
  for (const auto& actor : actors) actor->shutdown();
  log.flush();
  for (const auto& actor : actors) {
    log.removeEmitter(actor->interfaceOf<BasicLog::Emitter>());
    if (!actor->isStopped()) return 1;
  }
  // end: stop
  return 0;
}
