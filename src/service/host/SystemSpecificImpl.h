// Init-system backends: how the daemon is started, stopped and restarted on this host.
//
//   Status s = runBackendOperation("systemd", &SystemSpecificImpl::start);
//
// A backend's operation replaces the calling process by the init system's tool and never returns. Therefore each
// operation runs in a forked child; the parent waits for the child and turns its outcome into a status. The tool writes
// to our standard output and standard error.
//
// A process has one current backend.
// Threads: the current backend is not protected by a lock; only the thread that runs the command may select and use it.
#pragma once

#include <string>

#include "command/status/StatusCodes.h"

class SystemSpecificImpl {
 public:
  virtual ~SystemSpecificImpl() = default;
  virtual const char* name() const = 0;
  // Each replaces the calling process by the tool, or ends the process with exit status 101.
  virtual void start() = 0;
  virtual void stop() = 0;
  virtual void restart() = 0;
};

// The exit status of a child that could not execute its tool, and of every operation of the null backend.
constexpr int toolNotRunExitStatus = 101;

// Runs no tool: each operation ends the process with exit status 101. A service command on a host without an init
// system therefore reports a failed child.
class NullSystem : public SystemSpecificImpl {
 public:
  const char* name() const override { return "null"; }
  void start() override;
  void stop() override;
  void restart() override;
};

class SystemdSystem : public SystemSpecificImpl {
 public:
  const char* name() const override { return "systemd"; }
  void start() override;
  void stop() override;
  void restart() override;
};

// Starts and restarts the daemon with its init script. Deliberately stops it with killall instead of the script,
// because killall ends every process that executes the daemon's file.
class InitdSystem : public SystemSpecificImpl {
 public:
  const char* name() const override { return "initd"; }
  void start() override;
  void stop() override;
  void restart() override;
};

class UpstartSystem : public SystemSpecificImpl {
 public:
  const char* name() const override { return "upstart"; }
  void start() override;
  void stop() override;
  void restart() override;
};

// Makes the backend of that name current. The names are "null", "launchd" (also the null backend), "systemd", "initd"
// and "upstart"; they are compared exactly. Any other name deselects the current backend. A null pointer or an empty
// name changes nothing.
void selectBackend(const char* name);

// Returns the current backend; selects systemd first if none is selected. The object stays valid until the next call of
// selectBackend with a name that is not empty.
SystemSpecificImpl& currentBackend();

// Detects the init system of this host: returns "systemd" if /etc/zuv/.systemctl exists, else "initd" if
// /etc/init.d/hip exists, else a null pointer.
const char* detectBackendName();

// The same, but returns the text "null" if no init system is detected.
std::string backendNameOrNull();

// Replaces the process by the tool at exactly that path; PATH is not searched. The argument vector is the given texts
// up to the first null pointer, at most six; the environment is our own. If the tool cannot be executed, this ends the
// process with exit status 101 and neither runs exit handlers nor flushes streams.
[[noreturn]] void executeTool(const char* path, const char* arg0, const char* arg1 = nullptr,
                              const char* arg2 = nullptr, const char* arg3 = nullptr, const char* arg4 = nullptr,
                              const char* arg5 = nullptr);

// Selects the backend, forks, runs the operation in the child and waits for the child. An unknown name means systemd;
// an empty name means the current backend.
// Statuses:
//   success                                      the tool exited with 0
//   "child process returned nonzero exit code"
//   "child process terminated by a signal"
//   "stdlib error: fork"
//   "stdlib error: waitpid"
Status runBackendOperation(const std::string& name, void (SystemSpecificImpl::*operation)());
