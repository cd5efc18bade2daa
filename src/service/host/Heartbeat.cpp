#include "service/host/Heartbeat.h"

#include <fcntl.h>

#include <array>
#include <ctime>
#include <limits>
#include <string_view>

#include "base/files/FileAccess.h"
#include "base/files/LineReader.h"
#include "base/text/StringUtils.h"

namespace {

constexpr std::size_t lineBufferSize = 1024;
constexpr std::int64_t freshSeconds = 6;
constexpr std::int64_t graceSeconds = 4;

enum Variable { uptimeNow, uptimeStarted, hipdState, peersCount, helmsorUp, variableCount };
constexpr std::string_view variableNames[variableCount] = {"uptime.now", "uptime.started", "hipd_state", "peers.count",
                                                           "helmsor.up"};

// The variables that matter, whatever else the file holds.
class Variables {
 public:
  // False when the file cannot be opened; then nothing is known.
  bool read(const std::string& path) {
    OpenedFile file;
    if (!openForReading(AT_FDCWD, path.c_str(), file)) {
      return false;
    }
    LineReader reader(file, lineBufferSize);
    for (LinePiece line; reader.next(line);) {
      take(line.text);
    }
    return true;
  }

  bool has(Variable variable) const { return entries_[variable].present; }
  bool hasTimes() const { return has(uptimeNow) && has(uptimeStarted); }
  const std::string& text(Variable variable) const { return entries_[variable].value; }
  std::int64_t number(Variable variable) const { return StringUtils::leadingInt64(text(variable)); }

 private:
  struct Entry {
    bool present = false;
    std::string value;
  };

  void take(std::string_view line) {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
      return;
    }
    using StringUtils::TrimSet;
    const std::string_view key = StringUtils::trim(line.substr(0, equals), TrimSet::nonPrintable);
    for (std::size_t i = 0; i < variableCount; ++i) {
      if (key == variableNames[i]) {
        entries_[i].present = true;
        entries_[i].value = StringUtils::trim(line.substr(equals + 1), TrimSet::nonPrintable);
      }
    }
  }

  std::array<Entry, variableCount> entries_;
};

// later - earlier, staying at the ends of the range: the file may hold any number.
std::int64_t secondsBetween(std::int64_t earlier, std::int64_t later) {
  std::int64_t difference = 0;
  if (__builtin_sub_overflow(later, earlier, &difference)) {
    return earlier < 0 ? std::numeric_limits<std::int64_t>::max() : std::numeric_limits<std::int64_t>::min();
  }
  return difference;
}

bool isFresh(const Variables& variables) {
  return secondsBetween(variables.number(uptimeNow), std::time(nullptr)) < freshSeconds;
}

bool isPastGrace(const Variables& variables) {
  return secondsBetween(variables.number(uptimeStarted), variables.number(uptimeNow)) > graceSeconds;
}

RunState yesOrNo(bool yes) { return yes ? RunState::running : RunState::notRunning; }

}  // namespace

RunState runStateOf(const std::string& variablesFile) {
  Variables variables;
  if (!variables.read(variablesFile)) {
    return RunState::notRunning;
  }
  return variables.hasTimes() ? yesOrNo(isFresh(variables)) : RunState::unknown;
}

Status readServiceStatus(const std::string& variablesFile, ServiceStatus& report) {
  report = ServiceStatus();
  report.running = runStateOf(variablesFile);
  if (report.running != RunState::running) {
    return Status();
  }
  Variables variables;
  if (!variables.read(variablesFile)) {
    report.running = RunState::notRunning;
    return Status();
  }
  if (!variables.hasTimes()) {
    return Status::of(status::applicationError);
  }
  report.running = yesOrNo(isFresh(variables));
  if (report.running != RunState::running || !isPastGrace(variables) || !variables.has(hipdState)) {
    return Status();
  }
  if (variables.has(peersCount)) {
    report.tunnel = yesOrNo(variables.number(peersCount) >= 1);
  }
  if (variables.has(helmsorUp)) {
    report.helmsor = yesOrNo(variables.text(helmsorUp) == "true");
  }
  return Status();
}
