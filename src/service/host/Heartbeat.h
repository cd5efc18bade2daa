// Heartbeat: what the daemon says of itself in its variables file, hipvars.txt.
//
//   if (runStateOf(path) != RunState::notRunning) stop the daemon
//   ServiceStatus report;
//   Status s = readServiceStatus(path, report);
//
// The daemon rewrites the file while it runs; it counts as alive while its last heartbeat is less than 6 seconds old.
// The file is only read, from the start at each call. Its lines are key=value without comments, key and value trimmed
// of everything but printable non-blank ASCII; a line of more than 1023 bytes is taken as several; the last line of a
// key wins. Anything but a regular file counts as one that cannot be opened. Memory is bounded whatever the file holds.
#pragma once

#include <string>

#include "command/status/StatusCodes.h"

// The file's name in a profile's directory.
constexpr const char* variablesFileName = "hipvars.txt";

enum class RunState { running = 1, notRunning = 2, unknown = 3 };

// Not running when the file cannot be opened or its heartbeat is 6 seconds old or more; unknown when it lacks
// "uptime.now" or "uptime.started".
RunState runStateOf(const std::string& variablesFile);

struct ServiceStatus {
  RunState running = RunState::unknown;
  RunState helmsor = RunState::unknown;  // running: connected to the Helmsor server
  RunState tunnel = RunState::unknown;   // running: a tunnel to at least one peer
};

// Reads the whole report. The file is read twice, and the daemon may rewrite it in between: "application error" when
// the second reading lacks a time that the first one had; success in every other case. In the first 4 seconds of the
// daemon, and while it does not report its state, Helmsor and tunnel are unknown.
Status readServiceStatus(const std::string& variablesFile, ServiceStatus& report);
