// Init-system backends: how the daemon is started, stopped and restarted on this host.
//
//   Status s = runBackendOperation("systemd", &SystemSpecificImpl::start);
//
// A backend's operation turns the calling process into the init system's own tool and does not come back, so each runs
// in a forked child; the parent waits and turns the outcome into a status. The tool's output goes to our own standard
// output and error. One backend is current in a process; it is not guarded, the one command thread selects and uses it.
#pragma once

#include <string>

#include "command/status/StatusCodes.h"

class SystemSpecificImpl {
 public:
  virtual ~SystemSpecificImpl() = default;
  virtual const char* name() const = 0;
  // Each runs the tool in place of the calling process, or ends it with exit status 101.
  virtual void start() = 0;
  virtual void stop() = 0;
  virtual void restart() = 0;
};

// The exit status of a child that could not become its tool, and of every operation of the null backend.
constexpr int toolNotRunExitStatus = 101;

// Runs nothing: each operation ends the process with exit status 101, so that a service command on a host without a
// service manager reports a child that failed.
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

// Stops the daemon by killing every process that runs its file, not through the script. Deliberate.
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

// Makes the backend of that name current: exactly "null", "launchd" (the null backend too), "systemd", "initd" or
// "upstart". Any other name leaves none selected; a null or empty one changes nothing.
void selectBackend(const char* name);

// The selected backend, owned by this file; systemd is selected when there is none.
SystemSpecificImpl& currentBackend();

// The init system of this host, or null: "systemd" when /etc/zuv/.systemctl exists, else "initd" when /etc/init.d/hip
// does.
const char* detectBackendName();

// The same with "null" for none.
std::string backendNameOrNull();

// Becomes the tool at exactly that path with the given argument vector (up to six texts, ended by the first null), in
// our own environment. Ends the process with exit status 101, without exit handlers and without flushing, when it
// can't.
[[noreturn]] void executeTool(const char* path, const char* arg0, const char* arg1 = nullptr,
                              const char* arg2 = nullptr, const char* arg3 = nullptr, const char* arg4 = nullptr,
                              const char* arg5 = nullptr);

// Selects the backend, forks, runs the operation in the child and waits for it. Success when the tool exited with 0,
// else "child process returned nonzero exit code", "child process terminated by a signal", "stdlib error: fork" or
// "stdlib error: waitpid". An unknown name falls back to systemd.
Status runBackendOperation(const std::string& name, void (SystemSpecificImpl::*operation)());
