#include "testing/run/FurnishedHost.h"

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"

namespace {

constexpr const char* kFurniture = R"sh(program=$(readlink /usr/bin/ravctl) source=/.private-host/source
cp --remove-destination "$program" /usr/bin/ravctl
install -m 755 "$source"/scripts/* /usr/bin/
mount -t tmpfs none /usr/local && mkdir /usr/local/bin
mount -t tmpfs none /usr/share/doc && mkdir /usr/share/doc/ravctl
cp -r "$source/docs/examples" /usr/share/doc/ravctl/
cp "$source/packaging/examples/hip.init" /usr/share/doc/ravctl/examples/
mkdir -p /etc/init.d
install -m 755 /usr/share/doc/ravctl/examples/hip.init /etc/init.d/hip
cd /root
)sh";

}  // namespace

Outcome runOnFurnishedHost(const std::string& script, const std::string& visible) {
  const std::string store = places::source() + "/docs/examples/demo-store";
  std::vector<std::string> words = {places::privateHost(), "--store", store};
  if (!visible.empty()) words.insert(words.end(), {"--visible", visible});
  words.insert(words.end(), {"--", "/bin/sh", "-c", kFurniture + script});
  return runProgram(words);
}

std::string missingForInitScript() {
  for (const char* tool : {"/usr/sbin/start-stop-daemon", "/usr/bin/killall"}) {
    if (!host::exists(tool)) return std::string(tool) + " is not installed";
  }
  return "";
}
