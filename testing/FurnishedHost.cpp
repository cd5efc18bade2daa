#include "testing/FurnishedHost.h"

#include "testing/HostFiles.h"

namespace {

constexpr const char* kStore = RAVCTL_SOURCE_DIR "/docs/examples/demo-store";
constexpr const char* kFurniture = "program='" RAVCTL_PROGRAM "' source='" RAVCTL_SOURCE_DIR
                                   "'"
                                   R"sh(
cp --remove-destination "$program" /usr/bin/ravctl
mount -t tmpfs none /usr/local && mkdir /usr/local/bin
mount -t tmpfs none /usr/share/doc && mkdir /usr/share/doc/ravctl
cp -r "$source/docs/examples" /usr/share/doc/ravctl/
cp "$source/packaging/examples/hip.init" /usr/share/doc/ravctl/examples/
mkdir -p /etc/init.d
install -m 755 /usr/share/doc/ravctl/examples/hip.init /etc/init.d/hip
cd /root
)sh";

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
