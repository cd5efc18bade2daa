#include "testing/FurnishedHost.h"

#include "testing/HostFiles.h"

namespace {

constexpr const char* kStore = RAVCTL_SOURCE_DIR "/docs/examples/demo-store";
constexpr const char* kFurniture = "cp --remove-destination '" RAVCTL_PROGRAM
                                   "' /usr/bin/ravctl\n"
                                   "mkdir -p /etc/init.d\n"
                                   "install -m 755 '" RAVCTL_SOURCE_DIR
                                   "/packaging/examples/hip.init' /etc/init.d/hip\n"
                                   "cd /root\n";

}  // namespace

Outcome runOnFurnishedHost(const std::string& script) {
  return runProgram({RAVCTL_PRIVATE_HOST, "--store", kStore, "--", "/bin/sh", "-c", kFurniture + script});
}

std::string missingForInitScript() {
  for (const char* tool : {"/usr/sbin/start-stop-daemon", "/usr/bin/killall"}) {
    if (!host::exists(tool)) return std::string(tool) + " is not installed";
  }
  return "";
}
