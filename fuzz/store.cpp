// Laws of the operations on profiles, for any small store, any sequence of operations and any failing call. StoreTree.h
// has the model. The target runs on a private host.
// - An operation changes only its own files: those of its profile that it is to change, and names that must be
//   repaired. Nothing outside the store changes, whatever links lead there. Only a reset that selects the template
//   changes it.
// - It leaves no descriptor, no lock file and no temporary file, unless the call that should remove it failed.
// - An operation that refuses its texts changes nothing but names that need repair.
// - Without a fault a listing shows exactly the profiles of the model, and a second listing shows the same and changes
//   nothing.
// - Without a fault a store of plain files gives the status of the model, and the files have the content of the model.
// - With one failing call, or with all calls failing from one on, hip.conf and endbox.conf are complete, old or new. A
//   success means that the files have the content of the model. A profile whose deletion failed keeps its name file, if
//   that is a regular file: the repair of a name removes anything else before it makes a new file.
// Input: faults (fuzz::faults), the kind of error, then lines. A line has a letter, which says what happens, and
// fields separated by "|". In a content, ";" stands for a line end. An operation with "!" behind its letter runs under
// the faults.
//   d1          make the directory of profile 1             u1          remove it with everything in it
//   n1|lab      write its name                              f1|b|k=v;   write its file b
//   s1|b|0      make its file b a link to the target 0      k1|b|0      make its file b a FIFO, a directory ...
//   i1|0        make its directory a link                   o1          give its directory to another user
//   c|profile-1 write .current                              L           list
//   C|name|host|port|network|invitation|flags  create       R|selector|name  rename
//   M|selector|flags|name|host|port|network|invitation|level  modify
//   D|selector  delete    S|selector  reset    A|dirname  make active    E  ensure that one is active    G|selector
// The letters of profiles, files and targets are in the tables below.
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <utility>

#include "base/files/FileUtils.h"
#include "command/framework/Authorization.h"
#include "command/status/AppStatusCodes.h"
#include "fuzz/FuzzTarget.h"
#include "fuzz/StoreMutator.h"
#include "fuzz/StoreTree.h"
#include "profiles/store/ProfileChanges.h"
#include "profiles/store/ProfileControl.h"
#include "profiles/store/ProfileStore.h"
#include "testing/host/Places.h"
#include "testing/host/PrivateHost.h"

namespace {

using fuzz::contentAt;
using fuzz::inStore;
using fuzz::require;
using fuzz::Tree;
using Fields = std::vector<std::string>;

constexpr std::size_t kMostLines = 40;
constexpr int kMostOperations = 6;
constexpr std::size_t kLongestField = 400;  // shorter than the pieces in which long lines are read
constexpr uid_t kStranger = 1000;
constexpr uid_t kOther = 1001;  // owns no directory and no link

constexpr const char* kOutside = "/etc/zuv/outside";
constexpr const char* kOthersFile = "/etc/zuv/outside/other";  // hard links lead to it
constexpr const char* kLocks = "/etc/zuv/lock";
constexpr const char* kStateFiles[] = {"m2_cache", "sadb.state", "hip.state", "peers", "map.state", "hipvars.txt"};

constexpr const char* kDirnames[] = {".factory", "profile-1",      "profile-2",  "profile-123123",
                                     "lab",      "profile-123124", ".deleted-1", ".hidden"};
constexpr const char* kFiles[] = {"profile_name", "hip.conf",    "endbox.conf", "mapconfig.static", "device_id",
                                  "hipvars.txt",  "peers",       "hip.state",   "other.txt",        "ca-certs/ca.pem",
                                  "ca-certs",     "folder/file", "sadb.state",  "map.state",        "m2_cache"};
// Links to targets outside the store belong to the stranger, so nothing may be changed through them.
constexpr const char* kTargets[] = {"../profile-2/hip.conf",
                                    "/etc/zuv/outside/name",
                                    "/etc/zuv/outside/folder",
                                    "/etc/zuv/outside/none/x",
                                    "/etc/zuv/profiles/profile-1",
                                    "profile_name",
                                    "/dev/null",
                                    "/etc/zuv/outside/hip.conf"};
constexpr int kErrors[] = {EIO, ENOSPC, EACCES, ENOMEM};

template <typename Table>
auto& chosen(Table& table, char letter, char first) {
  return table[static_cast<unsigned char>(letter - first) % std::size(table)];
}

char firstOf(const std::string& field) { return field.empty() ? '\0' : field.front(); }

// --- The files of the host

bool hasStranger = false;

// The calls of this part may fail, as when a file is made in a directory that is not there. The line then does nothing.
// A FIFO is refused at once; without O_NONBLOCK the open would wait for a reader.
void writeFile(const std::string& path, const std::string& content) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, 0666);
  if (file < 0) return;
  (void)!::write(file, content.data(), content.size());
  (void)::close(file);
}

bool giveToStranger(const std::string& path) { return ::lchown(path.c_str(), kStranger, kStranger) == 0; }

void makeFolder(const std::string& path) { (void)::mkdir(path.c_str(), 0755); }

void makeLink(const std::string& path, const std::string& target) {
  const bool leadsOutside = fuzz::beginsWith(target, kOutside);
  if (leadsOutside && !hasStranger) return;
  if (::symlink(target.c_str(), path.c_str()) != 0 || !leadsOutside) return;
  require(giveToStranger(path), "a link gets another owner");
}

void removeAny(const std::string& path) {
  if (::unlink(path.c_str()) == 0) return;
  (void)emptyFolder(path);
  (void)::rmdir(path.c_str());
}

// Removes everything and makes an empty store, and files beside it that must never change.
void startAfresh() {
  require(::chdir("/") == 0, "the working directory is left");
  makeFolder(fuzz::kConfig);
  (void)emptyFolder(fuzz::kConfig);
  for (const char* folder : {"", "/profiles", "/lock", "/outside", "/outside/folder"}) {
    makeFolder(fuzz::kConfig + std::string(folder));
  }
  for (const char* file : {"/name", "/hip.conf", "/folder/profile_name", "/folder/hip.conf", "/folder/endbox.conf",
                           "/folder/peers", "/folder/hip.state"}) {
    writeFile(kOutside + std::string(file), "outside\n");
  }
  writeFile(kOthersFile, "other\n");
  if (hasStranger) require(::chown(kOthersFile, kOther, kOther) == 0, "a file gets another owner");
}

std::string withLineEnds(std::string content) {
  std::replace(content.begin(), content.end(), ';', '\n');
  return content;
}

void prepare(char letter, const Fields& fields) {
  const std::string dirname = chosen(kDirnames, firstOf(fields[0]), '0');
  const std::string file = inStore(dirname, chosen(kFiles, firstOf(fields[1]), 'a'));
  switch (letter) {
    case 'd':
      return makeFolder(inStore(dirname));
    case 'u':
      return removeAny(inStore(dirname));
    case 'n':
      makeFolder(inStore(dirname));
      return writeFile(inStore(dirname, "profile_name"), withLineEnds(fields[1]) + "\n");
    case 'f':
      makeFolder(inStore(dirname));
      if (file.find("/folder/") != std::string::npos) makeFolder(inStore(dirname, "folder"));
      if (file.find("/ca-certs/") != std::string::npos) makeFolder(inStore(dirname, "ca-certs"));
      return writeFile(file, withLineEnds(fields[2]));
    case 's':
      removeAny(file);
      return makeLink(file, chosen(kTargets, firstOf(fields[2]), '0'));
    case 'k':
      removeAny(file);
      switch (firstOf(fields[2]) % 4) {
        case 0:
          return (void)::mkfifo(file.c_str(), 0644);
        case 1:
          return makeFolder(file);
        case 2:
          makeFolder(file);
          return writeFile(file + "/more", "more\n");
        default:
          if (hasStranger) (void)::link(kOthersFile, file.c_str());
          return;
      }
    case 'i':
      removeAny(inStore(dirname));
      return makeLink(inStore(dirname), chosen(kTargets, firstOf(fields[1]), '0'));
    case 'o':
      if (hasStranger) (void)giveToStranger(inStore(dirname));
      return;
    case 'c':
      return writeFile(std::string(fuzz::kStore) + ".current", withLineEnds(fields[1]) + "\n");
    default:
      return;
  }
}

// --- One operation

struct Operation {
  bool isUndisturbed = false;
  std::vector<std::string> refused;
  FaultPlan plan;
  Status status;
  bool isPlain = false;  // the store was, and no call failed
  Tree before;
  Tree after;
  std::vector<fuzz::NamedProfile> listed;  // before
  std::set<std::string> mayChange;         // paths
  std::set<std::string> mayRepair;         // names of directories
  std::vector<std::string> mayChangeBelow;

  bool wasRefused(const char* call) const { return std::find(refused.begin(), refused.end(), call) != refused.end(); }
};

// The path itself, and where it leads inside the store, also over a link whose target is missing.
void allow(Operation& operation, const std::string& path) {
  operation.mayChange.insert(path);
  std::filesystem::path real = path;
  std::error_code error;
  for (int links = 0; links < 8 && std::filesystem::is_symlink(real, error); ++links) {
    real = real.parent_path() / std::filesystem::read_symlink(real);
  }
  real = std::filesystem::weakly_canonical(real, error);
  if (!error && fuzz::beginsWith(real.native(), fuzz::kStore)) operation.mayChange.insert(real);
}

void allowFiles(Operation& operation, const std::string& dirname, std::initializer_list<const char*> files) {
  for (const char* file : files) allow(operation, inStore(dirname, file));
}

void allowStateFiles(Operation& operation, const std::string& dirname) {
  for (const char* file : kStateFiles) operation.mayChange.insert(inStore(dirname, file));
  // A directory of the store may be a trusted link to another one.
  std::error_code error;
  const std::string real = std::filesystem::weakly_canonical(inStore(dirname), error);
  if (error || !fuzz::beginsWith(real, fuzz::kStore)) return;
  for (const char* file : kStateFiles) operation.mayChange.insert(real + "/" + file);
}

// Returns true if a listing may give the profile another name. If a name cannot be read, or its file is not a regular
// file, the model does not say which names are equal. A profile without a name is called "profile" as soon as it is
// selected, even if another one has that name.
bool needsRepair(const Operation& operation, const std::string& dirname) {
  if (!operation.isPlain) return true;
  const std::string name = fuzz::nameIn(operation.before, dirname);
  const auto sameName = [&](const fuzz::NamedProfile& profile) {
    return (profile.name.empty() ? "profile" : profile.name) == name;
  };
  return name.empty() || std::count_if(operation.listed.begin(), operation.listed.end(), sameName) > 1;
}

// `tree` is the store as the last operation has left it; empty if it has changed since.
void begin(Operation& operation, const Tree& tree) {
  operation.before = tree.empty() ? fuzz::readTree() : tree;
  operation.listed = fuzz::profilesNow(operation.before);
}

// Without a fault only the start of the daemon fails: a fork would cost more than everything else.
FaultPlan onlyForksFail(FaultPlan plan) {
  plan.at = 1;
  plan.fromThereOn = true;
  plan.calls = {"fork"};
  return plan;
}

// Runs the call and checks what holds for every operation.
void run(Operation& operation, const std::function<void()>& call) {
  // A name can be repaired through a trusted link.
  std::map<std::string, std::set<std::string>> ofNames;
  for (const fuzz::NamedProfile& profile : operation.listed) {
    Operation alone;
    allow(alone, inStore(profile.dirname, "profile_name"));
    ofNames[profile.dirname] = alone.mayChange;
  }
  {
    const fuzz::NothingStaysOpen nothing;
    const bool hasFault = operation.plan.at != 0;
    const bool isUndisturbed = fuzz::runUnder(hasFault ? operation.plan : onlyForksFail(operation.plan), call,
                                              hasFault ? &operation.refused : nullptr);
    operation.isUndisturbed = isUndisturbed || !hasFault;
  }
  operation.after = fuzz::readTree();
  operation.isPlain = operation.isUndisturbed && fuzz::isPlain(operation.before);
  for (const auto& [dirname, paths] : ofNames) {
    if (needsRepair(operation, dirname)) operation.mayChange.insert(paths.begin(), paths.end());
  }
  for (const std::string& path : fuzz::changesBetween(operation.before, operation.after)) {
    if (operation.mayChange.count(path) != 0) continue;
    const auto contains = [&](const std::string& folder) { return fuzz::beginsWith(path, folder); };
    if (std::any_of(operation.mayChangeBelow.begin(), operation.mayChangeBelow.end(), contains)) continue;
    const bool isLeft = fuzz::beginsWith(path, kLocks) || std::filesystem::path(path).extension() == ".temp";
    constexpr const char* removal[] = {"fstat", "fstatat", "flock", "unlink", "unlinkat"};
    const auto wasRefused = [&](const char* name) { return operation.wasRefused(name); };
    const bool wasLeftEarlier = fuzz::entryAt(operation.before, path) != nullptr;
    if (isLeft && (wasLeftEarlier || std::any_of(std::begin(removal), std::end(removal), wasRefused))) continue;
    (void)std::fprintf(stderr, "%s\n", path.c_str());
    for (const std::string& refused : operation.refused) (void)std::fprintf(stderr, "refused: %s\n", refused.c_str());
    require(false, "an operation changes only its own files");
  }
}

void requireCode(const Operation& operation, StatusCode code) {
  if (operation.status.code() == code) return;
  (void)std::fprintf(stderr, "status %08x instead of %08x\n", operation.status.code(), code);
  require(false, "the status of an operation on plain files is that of the model");
}

// The status of a start of the daemon. An operation without faults fails at the fork (see onlyForksFail); one that ends
// before its fault executes a daemon that the host does not have.
StatusCode statusOfStart(const Operation& operation) {
  return operation.plan.at == 0 ? status::forkError : status::childExitedNonzero;
}

// --- Selectors

struct Selected {
  StatusCode code = status::success;
  std::string dirname;
};

bool isPlainName(const std::string& dirname) {
  return !dirname.empty() && dirname.front() != '.' &&
         dirname.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

std::string activeIn(const Tree& tree) {
  const std::string dirname = fuzz::firstLineOf(contentAt(tree, inStore(".current")).value_or(""));
  return isPlainName(dirname) ? dirname : "";
}

// What the selector selects in a store of plain files.
Selected selectIn(const Operation& operation, const std::string& selector) {
  const std::string active = activeIn(operation.before);
  Selected selected;
  if (selector.empty() || selector == ".current" || selector == "--active") {
    return {status::profileIsActive, active};
  }
  if (selector == ".factory" || selector == "dir=.factory") return {status::success, ".factory"};
  if (fuzz::beginsWith(selector, "dir=")) {
    selected.dirname = selector.substr(4);
    if (selected.dirname.empty()) return {status::invalidArgument, ""};
    if (!isPlainName(selected.dirname) || !fuzz::isDirectoryAt(operation.before, inStore(selected.dirname))) {
      return {status::profileNotFound, ""};
    }
  } else {
    const auto profiles = fuzz::repaired(operation.listed);
    const auto found = std::find_if(profiles.begin(), profiles.end(),
                                    [&](const fuzz::NamedProfile& profile) { return profile.name == selector; });
    if (found == profiles.end()) return {status::profileNotFound, ""};
    selected.dirname = found->dirname;
  }
  if (selected.dirname == active) selected.code = status::profileIsActive;
  return selected;
}

// The directories that an operation may change. If the model cannot know what the selector selects, because a name may
// be read through a link or not at all, these are all of them.
std::vector<std::string> candidates(const Operation& operation, const std::string& selector) {
  if (fuzz::beginsWith(selector, "dir=")) {
    return isPlainName(selector.substr(4)) ? Fields{selector.substr(4)} : Fields();
  }
  if (selector.empty() || selector == ".current" || selector == "--active") {
    const fuzz::TreeEntry* current = fuzz::entryAt(operation.before, inStore(".current"));
    if (current == nullptr) return {};
    const std::string active = activeIn(operation.before);
    if (S_ISREG(current->mode)) return active.empty() ? Fields() : Fields{active};
  }
  std::vector<std::string> all;
  for (const auto& [path, entry] : operation.before) {
    if (!fuzz::beginsWith(path, fuzz::kStore)) continue;
    const std::string dirname = path.substr(fuzz::kStore.size());
    if (isPlainName(dirname)) all.push_back(dirname);
  }
  return all;
}

bool selectsTemplate(const std::string& selector) { return selector == ".factory" || selector == "dir=.factory"; }

// --- Operations

// The one candidate, if it is a directory and its files of these names are regular or missing.
std::string plainCandidate(const Operation& operation, const std::string& selector,
                           std::initializer_list<const char*> files) {
  const Fields found = candidates(operation, selector);
  if (found.size() != 1 || !fuzz::isDirectoryAt(operation.before, inStore(found.front()))) return "";
  for (const char* file : files) {
    const fuzz::TreeEntry* entry = fuzz::entryAt(operation.before, inStore(found.front(), file));
    if (entry != nullptr && !S_ISREG(entry->mode)) return "";
  }
  return found.front();
}

// A directory without a name gets one when it is selected, which the model of the other names does not know.
bool getsNameWhenSelected(const Operation& operation, const std::string& selector) {
  return fuzz::beginsWith(selector, "dir=") && fuzz::nameIn(operation.before, selector.substr(4)).empty();
}

bool isPort(std::int32_t port) { return port >= 1 && port <= 65535; }

std::int32_t portOf(const std::string& field) {
  return static_cast<std::int32_t>(std::strtoll(field.c_str(), nullptr, 10));
}

bool has(const std::string& flags, char flag) { return flags.find(flag) != std::string::npos; }

// Returns true if the name selects no profile.
bool isFreeName(const Operation& operation, const std::string& name) {
  return !name.empty() && !fuzz::hasControl(name) && selectIn(operation, name).code == status::profileNotFound;
}

bool areTextsFine(const std::string& host, const std::string& network, const std::string& invitation) {
  return !fuzz::hasControl(host) && !fuzz::hasControl(network) && !fuzz::hasControl(fuzz::withoutBlanks(invitation));
}

void requireContent(const Tree& tree, const std::string& path, const std::string& content) {
  if (contentAt(tree, path).value_or("(none)") == content) return;
  (void)std::fprintf(stderr, "%s: \"%s\" instead of \"%s\"\n", path.c_str(),
                     contentAt(tree, path).value_or("(none)").c_str(), content.c_str());
  require(false, "the content of a file is that of the model");
}

std::vector<fuzz::NamedProfile> listing(bool& isListed) {
  std::vector<ProfileRecord> records;
  isListed = ProfileStore::listProfiles(records);
  std::vector<fuzz::NamedProfile> profiles;
  if (!isListed) return profiles;
  for (const ProfileRecord& record : records) profiles.push_back({record.dirname, record.name});
  return profiles;
}

bool isBefore(const fuzz::NamedProfile& one, const fuzz::NamedProfile& other) { return one.name < other.name; }

void requireSame(const std::vector<fuzz::NamedProfile>& shown, const std::vector<fuzz::NamedProfile>& expected) {
  const auto isSame = [](const fuzz::NamedProfile& one, const fuzz::NamedProfile& other) {
    return one.dirname == other.dirname && one.name == other.name;
  };
  require(std::equal(shown.begin(), shown.end(), expected.begin(), expected.end(), isSame),
          "a listing shows the profiles of the model");
}

void list(Operation& operation) {
  bool isListed = false;
  std::vector<fuzz::NamedProfile> shown;
  run(operation, [&] { shown = listing(isListed); });
  for (std::size_t at = 0; at < shown.size(); ++at) {
    require(!shown[at].name.empty(), "every profile has a name");
    require(at == 0 || isBefore(shown[at - 1], shown[at]), "names differ and are sorted");
  }
  if (!operation.isPlain) return;
  require(isListed, "a store of plain files can be listed");
  std::vector<fuzz::NamedProfile> expected = fuzz::repaired(operation.listed);
  std::sort(expected.begin(), expected.end(), isBefore);
  requireSame(shown, expected);
  for (const fuzz::NamedProfile& profile : expected) {
    if (fuzz::nameIn(operation.before, profile.dirname) != profile.name) {
      requireContent(operation.after, inStore(profile.dirname, "profile_name"), profile.name + "\n");
    }
  }
  requireSame(listing(isListed), expected);
  require(fuzz::readTree() == operation.after, "a second listing changes nothing");
}

// The first directory names for new profiles that are free.
Fields freeDirnames(const Tree& tree) {
  Fields free;
  for (int number = 123123; free.size() < 4; ++number) {
    const std::string dirname = "profile-" + std::to_string(number);
    if (fuzz::entryAt(tree, inStore(dirname)) == nullptr) free.push_back(dirname);
  }
  return free;
}

void allowNewProfile(Operation& operation) {
  for (const std::string& dirname : freeDirnames(operation.before)) {
    operation.mayChangeBelow.push_back(inStore(dirname));
  }
}

// The directory that is there now and was not before.
std::string newDirname(const Operation& operation) {
  for (const std::string& dirname : freeDirnames(operation.before)) {
    if (fuzz::isDirectoryAt(operation.after, inStore(dirname))) return dirname;
  }
  return "";
}

std::string withInvitation(const std::string& content, const std::string& invitation) {
  const std::string value = fuzz::withoutBlanks(invitation);
  if (value.empty()) return content;
  return value == "###" ? fuzz::withKey(content, "activation_code", "")
                        : fuzz::withSetting(content, "activation_code", value);
}

// Checks the name file after an operation that gives this name and reads it again: a name without a printable byte
// counts as missing and becomes "profile". The operation succeeds even if a failing call keeps it from reading the
// name.
void requireNameFile(const Operation& operation, const std::string& dirname, const std::string& name) {
  const std::string path = inStore(dirname, "profile_name");
  if (!operation.isUndisturbed && contentAt(operation.after, path) == name + "\n") return;
  requireContent(operation.after, path, fuzz::firstLineOf(name).empty() ? "profile\n" : name + "\n");
}

void requireNewFiles(const Operation& operation, const NewProfile& wanted, const CreatedProfile& made) {
  const std::string dirname = newDirname(operation);
  require(!dirname.empty(), "a created profile has a new directory");
  require((operation.after.at(inStore(dirname)).mode & 0777U) == 0755, "a new directory has mode 0755");
  requireNameFile(operation, dirname, made.name);
  std::string address = "map_uri=";
  if (!wanted.helmsorHost.empty()) address += "https://" + wanted.helmsorHost;
  if (!wanted.helmsorHost.empty() && isPort(wanted.helmsorPort)) address += ":" + std::to_string(wanted.helmsorPort);
  requireContent(operation.after, inStore(dirname, "mapconfig.static"), address + "\n");
  const auto fromTemplate = [&](const char* file) { return contentAt(operation.before, inStore(".factory", file)); };
  if (!fuzz::isPlain(operation.before)) return;
  if (!wanted.network.empty()) {
    requireContent(operation.after, inStore(dirname, "hip.conf"),
                   fuzz::withSetting(fromTemplate("hip.conf").value_or(""), "master_interface", wanted.network));
  }
  const std::string value = fuzz::withoutBlanks(wanted.invitation);
  if (!value.empty() && value != "###") {
    requireContent(operation.after, inStore(dirname, "endbox.conf"),
                   withInvitation(fromTemplate("endbox.conf").value_or(""), value));
  }
  for (const char* file : {"device_id", "peers", "hip.state", "sadb.state", "map.state", "m2_cache", "other.txt"}) {
    if (fromTemplate(file)) requireContent(operation.after, inStore(dirname, file), *fromTemplate(file));
  }
}

void create(Operation& operation, const Fields& fields) {
  NewProfile wanted;
  wanted.name = fields[0];
  wanted.helmsorHost = fields[1];
  wanted.helmsorPort = portOf(fields[2]);
  wanted.network = fields[3];
  wanted.invitation = fields[4];
  wanted.allowRename = !has(fields[5], 'r');
  wanted.activate = has(fields[5], 'a');
  wanted.initSystem = "null";
  CreatedProfile made;
  allowNewProfile(operation);
  if (wanted.activate) allow(operation, inStore(".current"));
  run(operation, [&] { operation.status = ProfileControl::createProfile(wanted, made); });
  if (operation.status.isSuccess()) requireNewFiles(operation, wanted, made);
  const std::string wish = fuzz::withoutBlanks(wanted.name);
  if (fuzz::hasControl(wish) || !areTextsFine(wanted.helmsorHost, wanted.network, wanted.invitation)) {
    require(operation.status.code() == status::invalidArgument, "a control byte in a text is refused");
    require(operation.before == operation.after, "a refused creation changes nothing");
    return;
  }
  if (!operation.isPlain) return;
  const std::set<std::string> names = fuzz::namesOf(fuzz::repaired(operation.listed));
  const std::string base = wish.empty() ? "profile" : wish;
  if (!wanted.allowRename && names.count(base) != 0) return requireCode(operation, status::applicationError);
  requireCode(operation, wanted.activate ? statusOfStart(operation) : status::success);
  if (operation.status.isSuccess()) require(made.name == fuzz::uniqueAmong(names, base), "a new name is free");
  if (wanted.activate) requireContent(operation.after, inStore(".current"), newDirname(operation) + "\n");
}

void rename(Operation& operation, const Fields& fields) {
  const std::string wish = fuzz::withoutBlanks(fields[1]);
  for (const std::string& dirname : candidates(operation, fields[0])) allowFiles(operation, dirname, {"profile_name"});
  std::string name;
  run(operation, [&] { operation.status = ProfileChanges::renameProfile(fields[0], fields[1], name); });
  require(name == (operation.status.isSuccess() ? wish : ""), "a rename returns the new name, or none");
  const std::string known = plainCandidate(operation, fields[0], {"profile_name"});
  if (operation.status.isSuccess() && !known.empty()) {
    requireContent(operation.after, inStore(known, "profile_name"), wish + "\n");
  }
  if (!operation.isPlain || getsNameWhenSelected(operation, fields[0])) return;
  const Selected selected = selectIn(operation, fields[0]);
  if (!isSuccess(selected.code)) return requireCode(operation, selected.code);
  const bool isRefused = selected.dirname == ".factory" || !isFreeName(operation, wish);
  if (isRefused) return requireCode(operation, status::invalidArgument);
  if (!fuzz::isDirectoryAt(operation.before, inStore(selected.dirname))) return;
  requireCode(operation, status::success);
  requireContent(operation.after, inStore(selected.dirname, "profile_name"), wish + "\n");
}

void remove(Operation& operation, const Fields& fields) {
  for (const std::string& dirname : candidates(operation, fields[0])) {
    operation.mayChange.insert(inStore(dirname));
    operation.mayChangeBelow.push_back(inStore(dirname) + "/");
  }
  operation.mayChangeBelow.push_back(inStore(".deleted-"));
  run(operation, [&] { operation.status = ProfileChanges::deleteProfile(fields[0]); });
  std::size_t removed = 0;
  for (const fuzz::NamedProfile& profile : operation.listed) {
    removed += fuzz::entryAt(operation.after, inStore(profile.dirname)) == nullptr ? 1 : 0;
  }
  require(removed <= 1, "a delete removes at most one profile");
  const std::string known = plainCandidate(operation, fields[0], {});
  if (!known.empty()) {
    const bool hadName = contentAt(operation.before, inStore(known, "profile_name")).has_value();
    const bool hasName = fuzz::entryAt(operation.after, inStore(known, "profile_name")) != nullptr;
    if (operation.status.isSuccess()) {
      require(fuzz::entryAt(operation.after, inStore(known)) == nullptr, "a deleted profile is gone");
    } else if (hadName) {
      require(hasName, "a profile that was not deleted keeps its name file");
    }
  }
  if (!operation.isPlain) return;
  if (fields[0] == ".factory" || fields[0] == ".current") return requireCode(operation, status::invalidArgument);
  const Selected selected = selectIn(operation, fields[0]);
  if (!isSuccess(selected.code)) return requireCode(operation, selected.code);
  if (selected.dirname == ".factory") return requireCode(operation, status::invalidArgument);
  // A name that is too long does not count as a missing directory: the system reports ENAMETOOLONG.
  const bool canExist = !selected.dirname.empty() && selected.dirname.size() <= NAME_MAX;
  if (!canExist) return requireCode(operation, status::applicationError);
  requireCode(operation, status::success);
  require(fuzz::entryAt(operation.after, inStore(selected.dirname)) == nullptr, "a deleted profile is gone");
}

void reset(Operation& operation, const Fields& fields) {
  for (const std::string& dirname : candidates(operation, fields[0])) allowStateFiles(operation, dirname);
  if (selectsTemplate(fields[0])) allowStateFiles(operation, ".factory");
  std::string name;
  run(operation, [&] { operation.status = ProfileChanges::resetProfile(fields[0], name); });
  if (!operation.isPlain) return;
  const Selected selected = selectIn(operation, fields[0]);
  requireCode(operation, isSuccess(selected.code) ? status::success : selected.code);
  if (!isSuccess(selected.code) || selected.dirname.empty()) return;
  for (const char* file : kStateFiles) {
    require(!contentAt(operation.after, inStore(selected.dirname, file)), "a reset removes the files of the state");
  }
}

constexpr const char* kLevels[][2] = {{"error", "error"},  {"err", "error"},  {"warning", "warning"},
                                      {"warn", "warning"}, {"info", "info"},  {"debug", "debug"},
                                      {"trace", "trace"},  {"fatal", "fatal"}};

// The name that is written for a level; empty if there is no such level.
std::string levelOf(std::string level) {
  for (char& c : level) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  for (const auto& row : kLevels) {
    if (level == row[0]) return row[1];
  }
  return "";
}

// What a modification makes of the files of a profile.
struct Modified {
  std::string hipConf;
  std::string endboxConf[3];  // before, after the level, after the invitation
};

Modified modelOf(const Operation& operation, const ProfileChanges::Modification& wanted, const std::string& dirname) {
  Modified model;
  model.hipConf = contentAt(operation.before, inStore(dirname, "hip.conf")).value_or("");
  if (wanted.network) model.hipConf = fuzz::withSetting(model.hipConf, "master_interface", *wanted.network);
  std::string content = contentAt(operation.before, inStore(dirname, "endbox.conf")).value_or("");
  model.endboxConf[0] = content;
  if (wanted.logLevel && !wanted.logLevel->empty()) {
    const std::string level = levelOf(*wanted.logLevel);
    content = fuzz::withSetting(content, "log_level", level);
    content = fuzz::withSetting(content, "openhip.log_level", level);
  }
  model.endboxConf[1] = content;
  model.endboxConf[2] = withInvitation(content, wanted.invitation.value_or(""));
  return model;
}

// A failed edit leaves the whole old file, a success the whole new one.
void requireModified(const Operation& operation, const ProfileChanges::Modification& wanted,
                     const std::string& dirname) {
  const Modified model = modelOf(operation, wanted, dirname);
  const std::string hipBefore = contentAt(operation.before, inStore(dirname, "hip.conf")).value_or("");
  const std::string hip = contentAt(operation.after, inStore(dirname, "hip.conf")).value_or("");
  const std::string endbox = contentAt(operation.after, inStore(dirname, "endbox.conf")).value_or("");
  const bool isDone = operation.status.isSuccess();
  require(hip == model.hipConf || (!isDone && hip == hipBefore), "hip.conf is whole, old or new");
  require(
      endbox == model.endboxConf[2] || (!isDone && (endbox == model.endboxConf[0] || endbox == model.endboxConf[1])),
      "endbox.conf is whole, old or new");
  if (isDone && wanted.newName) {
    requireNameFile(operation, dirname, fuzz::withoutBlanks(*wanted.newName));
  }
  if (isDone && wanted.hasHelmsor && !wanted.helmsorHost.empty()) {
    const std::int32_t port = isPort(wanted.helmsorPort) ? wanted.helmsorPort : 8096;
    requireContent(operation.after, inStore(dirname, "mapconfig.static"),
                   "map_uri=https://" + wanted.helmsorHost + ":" + std::to_string(port) + "\n");
  }
}

// The status in a store of plain files. Without a host, a port alone may have no host to go with.
void requireStatusOfModification(const Operation& operation, const ProfileChanges::Modification& wanted,
                                 const std::string& selector) {
  if (getsNameWhenSelected(operation, selector)) return;
  const Selected selected = selectIn(operation, selector);
  if (!isSuccess(selected.code)) return requireCode(operation, selected.code);
  const bool isRefused = selected.dirname.empty() || selected.dirname == ".factory" ||
                         (wanted.newName && !isFreeName(operation, fuzz::withoutBlanks(*wanted.newName))) ||
                         !areTextsFine(wanted.helmsorHost, wanted.network.value_or(""), wanted.invitation.value_or(""));
  if (isRefused) return requireCode(operation, status::invalidArgument);
  if (!fuzz::isDirectoryAt(operation.before, inStore(selected.dirname))) return;
  if (wanted.hasHelmsor && wanted.helmsorHost.empty() && isPort(wanted.helmsorPort)) return;
  if (wanted.logLevel && !wanted.logLevel->empty() && levelOf(*wanted.logLevel).empty()) {
    return requireCode(operation, status::applicationError);
  }
  if (wanted.network && wanted.network->empty()) return requireCode(operation, status::invalidArgument);
  requireCode(operation, wanted.activate ? statusOfStart(operation) : status::success);
  requireModified(operation, wanted, selected.dirname);
}

void modify(Operation& operation, const Fields& fields) {
  const std::string& flags = fields[1];
  ProfileChanges::Modification wanted;
  if (has(flags, 'n')) wanted.newName = fields[2];
  wanted.hasHelmsor = has(flags, 'h');
  if (wanted.hasHelmsor) wanted.helmsorHost = fields[3];
  if (wanted.hasHelmsor) wanted.helmsorPort = portOf(fields[4]);
  if (has(flags, 'i')) wanted.network = fields[5];
  if (has(flags, 'v')) wanted.invitation = fields[6];
  if (has(flags, 'l')) wanted.logLevel = fields[7];
  wanted.activate = has(flags, 'a');
  wanted.initSystem = "null";
  for (const std::string& dirname : candidates(operation, fields[0])) {
    allowFiles(operation, dirname, {"profile_name", "hip.conf", "endbox.conf", "mapconfig.static"});
    allowStateFiles(operation, dirname);
  }
  if (wanted.activate) allow(operation, inStore(".current"));
  ProfileDetails details;
  run(operation, [&] { operation.status = ProfileChanges::modifyProfile(fields[0], wanted, details); });
  const std::string known =
      plainCandidate(operation, fields[0], {"hip.conf", "endbox.conf", "mapconfig.static", "profile_name"});
  if (!known.empty()) requireModified(operation, wanted, known);
  if (operation.isPlain) requireStatusOfModification(operation, wanted, fields[0]);
}

void setActive(Operation& operation, const Fields& fields) {
  allow(operation, inStore(".current"));
  bool isSet = false;
  run(operation, [&] { isSet = ProfileStore::setActive(fields[0]); });
  require(!isSet || !fields[0].empty(), "an empty name is refused");
  const fuzz::TreeEntry* current = fuzz::entryAt(operation.before, inStore(".current"));
  if (!isSet || (current != nullptr && !S_ISREG(current->mode))) return;
  requireContent(operation.after, inStore(".current"), fields[0] + "\n");
  require((operation.after.at(inStore(".current")).mode & 0777U) == 0666, "everybody may write .current");
}

void ensureActive(Operation& operation) {
  allow(operation, inStore(".current"));
  allowNewProfile(operation);
  run(operation, [&] { operation.status = ProfileControl::ensureActiveProfile(); });
  if (!operation.isPlain) return;
  const std::string active = activeIn(operation.before);
  if (!active.empty() && contentAt(operation.before, inStore(active, "hip.conf"))) {
    requireCode(operation, status::success);
    require(operation.before == operation.after, "an active profile stays active");
    return;
  }
  std::vector<fuzz::NamedProfile> profiles = fuzz::repaired(operation.listed);
  std::sort(profiles.begin(), profiles.end(), isBefore);
  requireCode(operation, profiles.empty() ? statusOfStart(operation) : status::success);
  require(activeIn(operation.after) == (profiles.empty() ? newDirname(operation) : profiles.front().dirname),
          "the first profile by name becomes active, or a new one");
}

void getDetails(Operation& operation, const Fields& fields) {
  ProfileDetails details;
  run(operation, [&] { operation.status = ProfileControl::cmdGetProfileDetails(fields[0], details); });
  require(details.filled == operation.status.isSuccess(), "details are filled on success alone");
  if (!operation.isPlain) return;
  const Selected selected = selectIn(operation, fields[0]);
  requireCode(operation, selected.code);
  require(details.dirname == selected.dirname, "the details are those of the selected profile");
}

void perform(char letter, Operation& operation, const Fields& fields) {
  switch (letter) {
    case 'L':
      return list(operation);
    case 'C':
      return create(operation, fields);
    case 'R':
      return rename(operation, fields);
    case 'D':
      return remove(operation, fields);
    case 'S':
      return reset(operation, fields);
    case 'M':
      return modify(operation, fields);
    case 'A':
      return setActive(operation, fields);
    case 'E':
      return ensureActive(operation);
    default:
      return getDetails(operation, fields);
  }
}

// --- The input

// The fields of a line behind its letter. There are always as many as an operation can have.
Fields fieldsOf(std::string_view text) {
  Fields fields;
  constexpr std::size_t most = 8;
  while (fields.size() < most) {
    const std::size_t end = std::min(text.find('|'), text.size());
    fields.emplace_back(text.substr(0, std::min(end, kLongestField)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return fields;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  // New inputs are written in a folder of the build.
  std::vector<PrivateHost::Shown> shown;
  const std::string found = places::build() + "/new";
  if (FileUtils::isDirectory(found)) shown.push_back({found, "/.private-host/new", true});
  if (!PrivateHost::enter(shown)) {
    (void)std::fprintf(stderr, "%s\n", PrivateHost::whyNot().c_str());
    std::exit(77);  // never on the machine itself; CTest counts the test as skipped
  }
  setAuthorizationMode(authorizationAlways);
  ::umask(022);
  require(::setenv("ZUV_LOCK_DIR", kLocks, 1) == 0, "the environment can be changed");
  makeFolder(fuzz::kConfig);
  makeFolder(kLocks);
  (void)FileUtils::lockDir();  // read once in a process
  const std::string probe = std::string(kLocks) + "/owner";
  writeFile(probe, "");
  hasStranger = giveToStranger(probe);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  startAfresh();
  fuzz::Input input(data, size);
  FaultPlan plan = fuzz::faults(input);
  plan.error = kErrors[input.byte() % std::size(kErrors)];
  std::string_view rest = input.rest();
  int operations = 0;
  Tree tree;
  for (std::size_t number = 0; number < kMostLines && !rest.empty(); ++number) {
    std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    if (line.empty()) continue;
    const char letter = line.front();
    line.remove_prefix(1);
    if (letter < 'A' || letter > 'Z') {
      prepare(letter, fieldsOf(line));
      tree.clear();
      continue;
    }
    if (++operations > kMostOperations) break;
    Operation operation;
    if (!line.empty() && line.front() == '!') operation.plan = plan;
    line.remove_prefix(std::min<std::size_t>(line.find_first_not_of('!'), line.size()));
    begin(operation, tree);
    perform(letter, operation, fieldsOf(line));
    tree = std::move(operation.after);
    require(::chdir("/") == 0, "the working directory is left");
  }
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room, unsigned seed) {
  fuzz::Random random(seed);
  if (random.below(4) == 0) return LLVMFuzzerMutate(data, size, room);
  return fuzz::putMutation(fuzz::mutatedStore(fuzz::textOf(data, size), random), data, size, room);
}
