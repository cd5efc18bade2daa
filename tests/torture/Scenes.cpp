#include "Scenes.h"

#include <ostream>

#include "testing/host/HostFiles.h"

namespace {

const std::string kRoot = host::kProfiles;
const std::string kActive = kRoot + "profile-1";
const std::string kOther = kRoot + "profile-2";

// The heartbeat of a running daemon. Its time is far in the future, so that it stays fresh during the whole test.
std::string heartbeat() {
  constexpr const char* now = "4102444800";
  return std::string("uptime.now=") + now +
         "\nuptime.started=1000\nhipd_state=running\npeers.count=2\nhelmsor.up=true\n";
}

std::string log() {
  std::string text;
  for (int i = 1; i <= 12; ++i) {
    text += std::string(i % 3 == 0 ? "[WARNING" : "[INFO") + " 2026-01-02 03:04:05.000000] hip: line " +
            std::to_string(i) + "\n";
  }
  return text;
}

void addProfile(Tree* tree, const std::string& dirname, const std::string& name) {
  const std::string folder = kRoot + dirname;
  tree->addFile(folder + "/profile_name", name + "\n", 0640);
  tree->addFile(folder + "/hip.conf", "# by hand\nmaster_interface=eth0\nkeep=this\n", 0600);
  tree->addFile(
      folder + "/endbox.conf",
      "device_ip=10.1.0.2\ndevice_mask=255.255.0.0\nactivation_code=OLD\nlog_level=info\nopenhip.log_level=info\n");
  tree->addFile(folder + "/mapconfig.static", "map_uri=https://helmsor.example.com:8443\n", 0640);
  tree->addFile(folder + "/device_id", dirname + "-id\n");
}

void addCertificatesAndState(Tree* tree, const std::string& dirname) {
  const std::string folder = kRoot + dirname;
  for (const char* file : {"/ca-certs/a.pem", "/customer-certs/b.pem", "/peer_certs/c.pem"}) {
    tree->addFile(folder + file, "certificate\n");
  }
  for (const char* file : {"/m2_cache", "/sadb.state", "/hip.state", "/peers", "/map.state", "/hipvars.txt"}) {
    tree->addFile(folder + file, "state\n");
  }
}

// A store with three profiles, a template and a log. The first profile is active and its daemon runs.
Tree running() {
  Tree tree;
  tree.addFolder("/etc/zuv");
  tree.addFolder("/run");
  tree.addFolder("/tmp", 01777);
  tree.addFolder("/tmp/lock");
  tree.addFile("/etc/zuv/.systemctl", "");
  tree.addFile(host::kCurrent, "profile-1\n", 0666);
  addProfile(&tree, "profile-1", "lab");
  addProfile(&tree, "profile-2", "field office");
  addProfile(&tree, "profile-3", "warehouse");
  addCertificatesAndState(&tree, "profile-2");
  tree.addFile(kActive + "/hipvars.txt", heartbeat());
  tree.addFile(kActive + "/hip.log", log());
  const std::string factory = host::kFactory;
  tree.addFile(factory + "/hip.conf", "# template\nmaster_interface=\n");
  tree.addFile(factory + "/endbox.conf", "device_ip=\n");
  tree.addFile(factory + "/firmware_revision", "4.1.7\n");
  tree.addLink(factory + "/banner", "firmware_revision");
  tree.addFile(factory + "/ca-certs/root.pem", "root certificate\n");
  return tree;
}

Tree stopped() {
  Tree tree = running();
  tree.remove(kActive + "/hipvars.txt");
  return tree;
}

Tree without(Tree tree, const std::string& path) {
  tree.remove(path);
  return tree;
}

Tree withFile(Tree tree, const std::string& path, const std::string& content) {
  tree.addFile(path, content);
  return tree;
}

// Everybody may write in the lock directory, so edits take no lock in it.
Tree withSharedLocks(Tree tree) {
  tree.remove("/tmp/lock");
  tree.addFolder("/tmp/lock", 01777);
  return tree;
}

// Two profiles have the same name, and one has none.
Tree badlyNamed() {
  Tree tree = withFile(running(), kOther + "/profile_name", "lab\n");
  tree.remove(kRoot + "profile-3/profile_name");
  return tree;
}

std::vector<Scene> scenesOfProfiles() {
  return {
      {"list profiles", {"list", "profiles"}, running()},
      {"list profiles, names to repair", {"list", "profiles"}, badlyNamed()},
      {"list profiles, none active", {"list", "profiles"}, without(running(), host::kCurrent)},
      {"list profiles, an empty store",
       {"list", "profiles"},
       without(without(without(without(running(), kActive), kOther), kRoot + "profile-3"), host::kCurrent)},
      {"profile details", {"profile", "details", "field office"}, running()},
      {"profile create",
       {"profile", "create", "lab", "helmsor=10.9.9.9:443", "network=eth1", "invitation=NEW-1"},
       running()},
      {"profile create, activated", {"profile", "create", "depot", "helmsor=10.9.9.9", "activate"}, running()},
      {"profile modify",
       {"profile", "modify", "field office", "helmsor=h:1", "network=eth1", "invitation=NEW-2", "log_level=debug",
        "new_name=o"},
       running()},
      {"profile modify, running",
       {"profile", "modify", "lab", "helmsor=a.rather.long.name.example.com", "network=eth1", "log_level=warn"},
       running()},
      {"profile modify, activated",
       {"profile", "modify", "warehouse", "invitation=###", "activate"},
       withSharedLocks(running())},
      {"profile activate", {"profile", "activate", "field office"}, running()},
      {"profile activate, stopped", {"profile", "activate", "lab"}, stopped()},
      {"profile delete", {"profile", "delete", "field office"}, running()},
      {"profile delete, active", {"profile", "delete", "lab"}, stopped()},
      {"profile rename", {"profile", "rename", "warehouse", "new_name=den"}, running()},
      {"support reset", {"support", "reset", "field office"}, running()},
  };
}

std::vector<Scene> otherScenes() {
  return {
      {"list log", {"list", "log", "lab"}, running()},
      {"list log, filtered", {"list", "log", "lab", "max_lines=3", "log_level=warning"}, running()},
      {"list interfaces", {"list", "interfaces"}, running()},
      {"list versions", {"list", "versions"}, running()},
      {"service start", {"service", "start"}, running()},
      {"service stop", {"service", "stop"}, running()},
      {"service restart", {"service", "restart", "full"}, running()},
      {"service status", {"service", "status"}, running()},
      {"support bundle", {"support", "bundle"}, running()},
      {"usage", {"usage"}, running()},
      {"help", {"help", "profile", "create"}, running()},
      {"reference", {"reference"}, running()},
      {"json <object>", {"json", "{\"method\":\"list profiles\"}"}, running()},
  };
}

}  // namespace

void PrintTo(const Scene& scene, std::ostream* out) { *out << scene.name; }

std::vector<Scene> allScenes() {
  std::vector<Scene> all = scenesOfProfiles();
  for (const Scene& scene : otherScenes()) all.push_back(scene);
  return all;
}

void installTools() {
  // The scripts start no other program, to be fast.
  for (const char* tool : {"systemctl", "zuv-sendbundle.sh"}) {
    host::installScript(std::string("/usr/bin/") + tool, std::string("echo ") + tool + " \"$@\" >>/run/calls\n");
  }
}
