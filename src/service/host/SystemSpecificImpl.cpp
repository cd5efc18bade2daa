#include "service/host/SystemSpecificImpl.h"

#include <unistd.h>

#include <memory>
#include <string_view>

#include "base/files/FileInfo.h"
#include "base/system/Process.h"
#include "command/status/AppStatusCodes.h"

extern char** environ;

namespace {

std::unique_ptr<SystemSpecificImpl>& selected() {
  static std::unique_ptr<SystemSpecificImpl> backend;
  return backend;
}

template <typename Backend>
std::unique_ptr<SystemSpecificImpl> make() {
  return std::make_unique<Backend>();
}

struct BackendRow {
  std::string_view name;
  std::unique_ptr<SystemSpecificImpl> (*make)();
};
// There is no launchd backend; the name stays because callers use it.
constexpr BackendRow backends[] = {{"null", make<NullSystem>},
                                   {"launchd", make<NullSystem>},
                                   {"systemd", make<SystemdSystem>},
                                   {"initd", make<InitdSystem>},
                                   {"upstart", make<UpstartSystem>}};

struct MarkerRow {
  char file[sizeof "/etc/zuv/.systemctl"];
  char backend[sizeof "systemd"];
};
constexpr MarkerRow markers[] = {{"/etc/zuv/.systemctl", "systemd"}, {"/etc/init.d/hip", "initd"}};

constexpr const char* systemctl = "/bin/systemctl";
constexpr const char* initScript = "/etc/init.d/hip";
constexpr const char* killall = "/usr/bin/killall";
constexpr const char* daemonFile = "/usr/sbin/hip";
constexpr const char* initctl = "/sbin/initctl";

}  // namespace

void NullSystem::start() { _exit(toolNotRunExitStatus); }
void NullSystem::stop() { _exit(toolNotRunExitStatus); }
void NullSystem::restart() { _exit(toolNotRunExitStatus); }

void SystemdSystem::start() { executeTool(systemctl, "systemctl", "start", "hip"); }
void SystemdSystem::stop() { executeTool(systemctl, "systemctl", "stop", "hip"); }
void SystemdSystem::restart() { executeTool(systemctl, "systemctl", "restart", "hip"); }

void InitdSystem::start() { executeTool(initScript, "hip", "start"); }
void InitdSystem::stop() { executeTool(killall, "killall", daemonFile); }
void InitdSystem::restart() { executeTool(initScript, "hip", "restart"); }

void UpstartSystem::start() { executeTool(initctl, "initctl", "start", "hip"); }
void UpstartSystem::stop() { executeTool(initctl, "initctl", "stop", "hip"); }
void UpstartSystem::restart() { executeTool(initctl, "initctl", "restart", "hip"); }

void selectBackend(const char* name) {
  if (name == nullptr || *name == '\0') {
    return;
  }
  selected().reset();
  for (const BackendRow& row : backends) {
    if (row.name == name) {
      selected() = row.make();
      return;
    }
  }
}

SystemSpecificImpl& currentBackend() {
  if (!selected()) {
    selected() = make<SystemdSystem>();
  }
  return *selected();
}

const char* detectBackendName() {
  for (const MarkerRow& marker : markers) {
    if (FileUtils::fileExists(marker.file)) {
      return marker.backend;
    }
  }
  return nullptr;
}

std::string backendNameOrNull() {
  const char* detected = detectBackendName();
  return detected != nullptr ? detected : "null";
}

void executeTool(const char* path, const char* arg0, const char* arg1, const char* arg2, const char* arg3,
                 const char* arg4, const char* arg5) {
  const char* arguments[] = {arg0, arg1, arg2, arg3, arg4, arg5, nullptr};
  // execve(2) does not change the texts; it takes them without const for historical reasons.
  execve(path, const_cast<char**>(arguments), environ);
  _exit(toolNotRunExitStatus);
}

Status runBackendOperation(const std::string& name, void (SystemSpecificImpl::*operation)()) {
  selectBackend(name.c_str());
  // The backend is made before the fork, so that the child allocates nothing.
  SystemSpecificImpl& backend = currentBackend();
  makeChildrenWaitable();
  const pid_t child = fork();
  switch (child) {
    case -1:
      return Status::of(status::forkError);
    case 0:
      giveBackSignals();
      (backend.*operation)();
      _exit(toolNotRunExitStatus);
    default:
      return statusOfChildOutcome(waitForChild(child));
  }
}
