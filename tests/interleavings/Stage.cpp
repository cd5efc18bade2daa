#include "Stage.h"

#include <utility>

#include "testing/faults/Tracer.h"
#include "testing/host/HostFiles.h"
#include "testing/run/Program.h"

namespace {

const std::string kRoot = host::kProfiles;

void addProfile(Tree* tree, const std::string& dirname, const std::string& name) {
  const std::string folder = kRoot + dirname;
  tree->addFile(folder + "/profile_name", name + "\n", 0640);
  tree->addFile(folder + "/hip.conf", "# by hand\nmaster_interface=eth0\nkeep=this\n", 0600);
  tree->addFile(folder + "/endbox.conf", "device_ip=10.1.0.2\nactivation_code=OLD\nlog_level=info\n");
  tree->addFile(folder + "/mapconfig.static", "map_uri=https://helmsor.example.com:8443\n", 0640);
}

Tree storeWithLockMode(mode_t mode) {
  Tree tree;
  tree.addFolder("/etc/zuv");
  tree.addFolder("/run");
  tree.addFolder("/tmp", 01777);
  tree.addFolder("/tmp/lock", mode);
  tree.addFile(host::kCurrent, "profile-1\n", 0666);
  addProfile(&tree, "profile-1", "lab");
  addProfile(&tree, "profile-2", "field office");
  addProfile(&tree, "profile-3", "warehouse");
  tree.addFile(kRoot + "profile-2/ca-certs/a.pem", "certificate\n");
  tree.addFile(kRoot + "profile-2/peers", "state\n");
  tree.addFile(kRoot + "profile-2/hip.state", "state\n");
  tree.addFile(std::string(host::kFactory) + "/hip.conf", "# template\nmaster_interface=\n");
  tree.addFile(std::string(host::kFactory) + "/ca-certs/root.pem", "root certificate\n");
  return tree;
}

std::vector<std::string> modify(const std::string& text) {
  return {"profile", "modify", "dir=profile-2", "helmsor=" + text + ":1", "network=" + text, "invitation=" + text};
}

std::vector<std::string> create(const std::string& name, const std::string& text) {
  return {"profile", "create", name, "helmsor=" + text + ":1", "network=" + text, "invitation=" + text};
}

const char* const kSelector = "field office";

Pair pairOf(const Command& a, const Command& b, const std::string& note, const Tree& store) {
  return {a.name + " + " + b.name + note, b.name + " + " + a.name + note, {a.first, b.second}, store};
}

}  // namespace

std::string whyNoTurns() { return RAVCTL_IS_RELEASE ? whyNoTracing() : "only the release build is interleaved"; }

const std::vector<Command>& allCommands() {
  static const std::vector<Command> commands = {
      {"list profiles", {"list", "profiles"}, {"list", "profiles"}},
      {"profile details", {"profile", "details", kSelector}, {"profile", "details", kSelector}},
      {"profile create", create("depot", "first"), create("harbour", "a-second-text")},
      {"profile delete", {"profile", "delete", kSelector}, {"profile", "delete", "dir=profile-2"}},
      {"profile rename",
       {"profile", "rename", "dir=profile-2", "new_name=den"},
       {"profile", "rename", "dir=profile-2", "new_name=a much longer name"}},
      {"profile modify", modify("first"), modify("a-second-text")},
      {"profile activate", {"profile", "activate", kSelector}, {"profile", "activate", "warehouse"}},
      {"support reset", {"support", "reset", kSelector}, {"support", "reset", "dir=profile-2"}},
  };
  return commands;
}

Tree soundStore() { return storeWithLockMode(01777); }

Tree storeWithOwnLocks() { return storeWithLockMode(0755); }

Tree storeToRepair() {
  Tree tree = soundStore();
  tree.addFile(kRoot + "profile-3/profile_name", "field office\n", 0640);
  tree.remove(kRoot + "profile-1/profile_name");
  return tree;
}

std::vector<Pair> pairsOf(const Command& first) {
  std::vector<Pair> pairs;
  for (const Command& second : allCommands()) {
    pairs.push_back(pairOf(first, second, "", soundStore()));
    if (first.name == "list profiles") pairs.push_back(pairOf(first, second, ", names to repair", storeToRepair()));
  }
  if (first.name == "profile modify") pairs.push_back(pairOf(first, first, ", own locks", storeWithOwnLocks()));
  if (first.name == "profile delete") {
    pairs.push_back(pairOf(first, first, ", two profiles", soundStore()));
    pairs.back().words[1] = {"profile", "delete", "warehouse"};
  }
  if (first.name == "profile create") {
    pairs.push_back(pairOf(first, first, ", one name", soundStore()));
    pairs.back().words[1] = create("depot", "other");
  }
  return pairs;
}

Interleaving planOf(const std::vector<std::vector<std::string>>& commands) {
  Interleaving plan;
  for (const std::vector<std::string>& words : commands) {
    plan.programs.push_back({ravctlPath()});
    plan.programs.back().insert(plan.programs.back().end(), words.begin(), words.end());
  }
  return plan;
}

Ending perform(const Tree& store, const Interleaving& plan) {
  store.putBack();
  Ending ending;
  ending.run = interleave(plan);
  ending.found = Tree::read();
  return ending;
}

Serial serialOf(const Pair& pair) {
  Serial serial;
  serial.before = pair.store;
  Interleaving plan = planOf(pair.words);
  for (std::size_t first = 0; first < 2; ++first) {
    plan.turns = {{first, kToItsEnd}};
    serial.both.push_back(perform(pair.store, plan));
    Interleaving alone = planOf({pair.words[first]});
    alone.keepCalls = true;
    serial.alone.push_back(perform(pair.store, alone));
  }
  return serial;
}
