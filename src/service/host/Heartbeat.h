// Heartbeat: what the daemon reports about itself in its variables file, hipvars.txt.
//
//   if (runStateOf(path) != RunState::notRunning) stop the daemon
//   ServiceStatus report;
//   Status s = readServiceStatus(path, report);
//
// The daemon rewrites the file while it runs. The daemon counts as running while its last heartbeat is less than 6
// seconds old. This code only reads the file, from the start at each call.
//
// Format: lines of key=value, without comments. Key and value are trimmed of all bytes but printable non-blank ASCII.
// A line of more than 1023 bytes is read as several lines. If a key occurs more than once, its last line counts.
//
// A file that is not a regular file counts as one that cannot be opened; /dev/null counts as an empty file. Memory use
// is bounded whatever the file holds.
#pragma once

#include <string>

#include "command/status/StatusCodes.h"

// The name of the file in the directory of a profile.
constexpr const char* variablesFileName = "hipvars.txt";

// As numbers, the states are 1, 2 and 3.
enum class RunState { running = 1, notRunning, unknown };

// Returns notRunning if the file cannot be opened or its heartbeat is 6 seconds old or older, unknown if the file lacks
// "uptime.now" or "uptime.started", and running otherwise, also if the heartbeat lies in the future. A time without
// digits counts as 0.
RunState runStateOf(const std::string& variablesFile);

struct ServiceStatus {
  RunState running = RunState::unknown;
  RunState helmsor = RunState::unknown;  // running: connected to the Helmsor server
  RunState tunnel = RunState::unknown;   // running: a tunnel to at least one peer
};

// Reads the whole report. If the daemon runs by a first reading, it reads the file again, and the daemon may rewrite
// the file in between. Returns "application error" if the second reading lacks "uptime.now" or "uptime.started", and
// success in every other case. Helmsor and tunnel are unknown unless the daemon runs, and also in its first 4 seconds
// and while it does not report its state. Each is also unknown if the file lacks its key.
Status readServiceStatus(const std::string& variablesFile, ServiceStatus& report);
