#include "service/host/Heartbeat.h"

#include <fcntl.h>

#include <array>
#include <ctime>
#include <iterator>
#include <string_view>

#include "base/files/FileAccess.h"
#include "base/files/LineReader.h"
#include "base/text/StringUtils.h"

namespace {

constexpr std::size_t lineBufferSize = 1024;
constexpr std::int64_t freshSeconds = 6;
constexpr std::int64_t graceSeconds = 4;

enum Variable { uptimeNow, uptimeStarted, hipdState, peersCount, helmsorUp, variableCount };
struct VariableRow {
  std::string_view name;
  Variable variable;
};
constexpr VariableRow variableRows[] = {
    {"uptime.now", uptimeNow},   {"uptime.started", uptimeStarted}, {"hipd_state", hipdState},
    {"peers.count", peersCount}, {"helmsor.up", helmsorUp},
};
static_assert(std::size(variableRows) == variableCount);

// The variables that this program uses; the file holds more.
class Variables {
 public:
  // Returns false if the file cannot be opened; no variable is present then.
  bool read(const std::string& path) {
    OpenedFile file;
    if (!openForReading(AT_FDCWD, path.c_str(), file)) {
      return false;
    }
    LineReader reader(file, lineBufferSize, BlankLines::leftOut);
    for (LinePiece line; reader.next(line);) {
      take(line.text);
    }
    return true;
  }

  bool has(Variable variable) const { return entries_[variable].present; }
  bool hasTimes() const { return has(uptimeNow) && has(uptimeStarted); }
  const std::string& text(Variable variable) const { return entries_[variable].value; }
  std::int64_t number(Variable variable) const { return StringUtils::leadingInt64(text(variable)).value; }

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
    for (const VariableRow& row : variableRows) {
      if (key == row.name) {
        Entry& entry = entries_[row.variable];
        entry.present = true;
        entry.value = StringUtils::trim(line.substr(equals + 1), TrimSet::nonPrintable);
      }
    }
  }

  std::array<Entry, variableCount> entries_;
};

// A time in the file may be any number. Nothing overflows, because seconds are subtracted only from the time of this
// machine and from a heartbeat that is fresh.

bool isFresh(const Variables& variables) { return variables.number(uptimeNow) > std::time(nullptr) - freshSeconds; }

bool isPastGrace(const Variables& variables) {
  return variables.number(uptimeStarted) < variables.number(uptimeNow) - graceSeconds;
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
