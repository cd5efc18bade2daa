#include "Attacks.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <stdexcept>
#include <utility>

#include "base/system/UniqueFd.h"
#include "testing/host/HostFiles.h"
#include "testing/run/Program.h"

namespace {

constexpr uid_t kOther = 1000;
constexpr const char* kSecretText = "root's secret";
constexpr const char* kClosedFile = "/run/secret";
constexpr const char* kClosedFolder = "/run/closed";
constexpr const char* kFileInClosedFolder = "/run/closed/file";
constexpr const char* kLocks = "/tmp/lock";
const std::string kProfile = std::string(host::kProfiles) + "profile-2";
const std::string kRenamed = std::string(host::kProfiles) + "profile-9";

void must(bool worked, const std::string& what) {
  if (!worked) throw std::runtime_error(what + ": " + std::strerror(errno));
}

// In its scope this process has the rights of the other user.
class AsOther {
 public:
  AsOther() { must(::setegid(kOther) == 0 && ::seteuid(kOther) == 0, "become the other user"); }
  ~AsOther() {
    if (::seteuid(0) != 0 || ::setegid(0) != 0) ::abort();
  }
  AsOther(const AsOther&) = delete;
  AsOther& operator=(const AsOther&) = delete;
};

// --- What the other user does. A file may be missing by then, so that failures are no errors.

// Puts a link in the place of a file, by one rename.
void swapForLink(const std::string& path, const std::string& target) {
  const AsOther other;
  const std::string link = kProfile + "/other-link";
  if (::symlink(target.c_str(), link.c_str()) == 0) (void)::rename(link.c_str(), path.c_str());
  (void)::unlink(link.c_str());
}

// For a moment a command that writes the marker closes it to others. Then this does nothing.
void writeMarker(const std::string& text) {
  const AsOther other;
  const UniqueFd fd(::open(host::kCurrent, O_WRONLY | O_TRUNC | O_CLOEXEC));
  if (!fd.isOpen()) return;
  must(::write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()), "write the marker");
}

// Locks that are held until the end of the run.
std::vector<UniqueFd>& locksHeld() {
  static std::vector<UniqueFd> held;
  return held;
}

void hold(const std::string& path, int flags) {
  const AsOther other;
  UniqueFd fd(::open(path.c_str(), flags | O_CLOEXEC, 0666));
  if (fd.isOpen() && ::flock(fd.get(), LOCK_EX | LOCK_NB) == 0) locksHeld().push_back(std::move(fd));
}

void holdLockFiles() {
  for (const char* name : {"/hip.conf.lock", "/endbox.conf.lock"}) hold(std::string(kLocks) + name, O_RDWR | O_CREAT);
}

void removeLockFiles() {
  const AsOther other;
  for (const char* name : {"/hip.conf.lock", "/endbox.conf.lock"}) (void)::unlink((std::string(kLocks) + name).c_str());
}

void replaceLockFolder() {
  const AsOther other;
  must(::rename(kLocks, "/tmp/old-lock") == 0 && ::symlink(kClosedFolder, kLocks) == 0, "replace the lock directory");
}

void renameProfile() { (void)::rename(kProfile.c_str(), kRenamed.c_str()); }

constexpr const char* kFiller = "/etc/zuv/fill";

// Leaves no free block. The directory of the store is a file system of its own.
void fillStore() {
  const UniqueFd fd(::open(kFiller, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  const std::string bytes(4096, 'f');
  while (::write(fd.get(), bytes.data(), bytes.size()) > 0) {
  }
}

// --- The list

void addLinks(std::vector<Attack>* attacks) {
  for (const char* file : {"profile_name", "hip.conf", "endbox.conf", "mapconfig.static", "hip.conf.temp"}) {
    for (const char* target : {kClosedFile, kFileInClosedFolder}) {
      const std::string path = kProfile + "/" + file;
      attacks->push_back({std::string("link ") + file + " to " + target, [=] { swapForLink(path, target); }, {path}});
    }
  }
}

std::vector<Attack> makeAttacks() {
  const std::string name = kProfile + "/profile_name";
  std::vector<Attack> attacks;
  addLinks(&attacks);
  attacks.push_back({"mark another profile", [] { writeMarker("profile-3\n"); }, {host::kCurrent}});
  attacks.push_back({"mark a path", [] { writeMarker("../../../run/closed\n"); }, {host::kCurrent}});
  attacks.push_back({"empty the marker", [] { writeMarker(""); }, {host::kCurrent}});
  attacks.push_back({"remove the lock files", removeLockFiles, {}});
  attacks.push_back({"hold the lock files", holdLockFiles, {kLocks}});
  attacks.push_back({"hold the name", [=] { hold(name, O_RDONLY); }, {}});
  attacks.push_back({"hold the directory", [] { hold(kProfile, O_RDONLY | O_DIRECTORY); }, {}});
  attacks.push_back({"replace the lock directory", replaceLockFolder, {"/tmp"}});
  attacks.push_back({"rename the profile", renameProfile, {kProfile, host::kCurrent}});
  attacks.push_back({"fill the disk", fillStore, {kFiller}});
  return attacks;
}

// --- The run

Tree storeWithSecrets() {
  Tree tree = soundStore();
  tree.addFile(kClosedFile, std::string(kSecretText) + "\n", 0600);
  tree.addFolder(kClosedFolder, 0700);
  tree.addFile(kFileInClosedFolder, std::string(kSecretText) + "\n", 0644);
  return tree;
}

void giveAway() {
  for (const std::string& path : {std::string(kLocks), kProfile, kProfile + "/ca-certs"}) host::giveTo(kOther, path);
  for (const char* file : {"profile_name", "hip.conf", "endbox.conf", "mapconfig.static", "peers", "hip.state"}) {
    host::giveTo(kOther, kProfile + "/" + file);
  }
}

Ending runOn(const Tree& store, const Interleaving& plan) {
  store.putBack();
  giveAway();
  Ending ending;
  ending.run = interleave(plan);
  locksHeld().clear();
  (void)::unlink(kFiller);
  ending.found = Tree::read();
  return ending;
}

// --- The checks

bool isSecretFile(const std::string& path) { return path == kClosedFile || path == kFileInClosedFolder; }

bool isBelow(const std::string& path, const std::string& folder) {
  return path == folder || path.compare(0, folder.size() + 1, folder + "/") == 0;
}

bool tellsSecret(const std::string& text) { return text.find(kSecretText) != std::string::npos; }

void checkSecrets(const Tree& before, const Tree& found, const std::string& answer, Findings* findings) {
  if (tellsSecret(answer)) findings->push_back({"answer", "tells a secret: " + host::quoted(answer)});
  for (const auto& [path, node] : found.nodes()) {
    if (!isSecretFile(path) && tellsSecret(node.content)) findings->push_back({path, "holds a secret"});
  }
  for (const char* path : {kClosedFile, kFileInClosedFolder, kClosedFolder}) {
    const Node* now = found.find(path);
    if (now == nullptr || *now != *before.find(path)) findings->push_back({path, "changed"});
  }
  if (std::count_if(found.nodes().begin(), found.nodes().end(),
                    [](const auto& node) { return isBelow(node.first, kClosedFolder); }) != 2) {
    findings->push_back({kClosedFolder, "holds something new"});
  }
}

// The files of the renamed profile are those of the profile.
const Node* nodeBefore(const Tree& tree, const std::string& path) {
  return tree.find(isBelow(path, kRenamed) ? kProfile + path.substr(kRenamed.size()) : path);
}

bool same(const Node* a, const Node* b) { return a == nullptr || b == nullptr ? a == b : *a == *b; }

void checkFiles(const Attack& attack, const Peace& peace, const Tree& found, Findings* findings) {
  std::set<std::string> paths;
  for (const Tree* tree : {&peace.before, &peace.after.found, &found}) {
    for (const auto& [path, node] : tree->nodes()) paths.insert(path);
  }
  for (const std::string& path : paths) {
    const bool isOwn =
        std::any_of(attack.own.begin(), attack.own.end(), [&](const std::string& own) { return isBelow(path, own); });
    const Node* before = nodeBefore(peace.before, path);
    const Node* after = nodeBefore(peace.after.found, path);
    const Node* now = found.find(path);
    if (isOwn || same(now, before) || same(now, after)) continue;
    const std::string state = now == nullptr ? "gone" : host::quoted(now->content);
    findings->push_back({path, before == nullptr && after == nullptr ? "left" : state});
  }
}

void checkListing(const Tree& before, Findings* findings) {
  const Outcome listing = runRavctl({"list", "profiles"});
  if (listing.exitStatus != 0 || !listing.err.empty() || listing.out.find("status_code: 0x1") != std::string::npos) {
    findings->push_back({"next listing", "fails: " + host::quoted(listing.out + listing.err)});
  }
  for (const char* line : {"profile-1\t'lab'\n", "profile-3\t'warehouse'\n"}) {
    if (listing.out.find(line) == std::string::npos)
      findings->push_back({"next listing", "lacks " + std::string(line)});
  }
  checkSecrets(before, Tree::read(), listing.out, findings);
}

}  // namespace

const std::vector<Attack>& allAttacks() {
  static const std::vector<Attack> attacks = makeAttacks();
  return attacks;
}

Peace peaceOf(const std::vector<std::string>& words) {
  Peace peace;
  peace.before = storeWithSecrets();
  Interleaving plan = planOf({words});
  plan.keepCalls = true;
  peace.after = runOn(peace.before, plan);
  return peace;
}

Ending attackAt(const Attack& attack, const std::vector<std::string>& words, std::size_t k) {
  Interleaving plan = planOf({words});
  plan.turns = {{0, k}};
  plan.afterFirstTurn = attack.act;
  return runOn(storeWithSecrets(), plan);
}

Findings findingsOfAttack(const Attack& attack, const Peace& peace, const Ending& ending) {
  Findings findings = findingsOfRun(ending.run);
  checkSecrets(peace.before, ending.found, ending.run.programs[0].out, &findings);
  checkFiles(attack, peace, ending.found, &findings);
  checkListing(peace.before, &findings);
  return findings;
}
