#include "profiles/store/ProfileStore.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "base/files/DirectoryEntries.h"
#include "base/files/DirectoryListing.h"
#include "base/files/DirectoryReader.h"
#include "base/files/FileInfo.h"
#include "base/files/ProgramDirectories.h"
#include "base/files/StoreOpener.h"
#include "base/files/WholeFile.h"
#include "base/text/StringUtils.h"
#include "command/status/AppStatusCodes.h"
#include "profiles/store/NameRepair.h"
#include "service/host/Heartbeat.h"

using StringUtils::concatenate;
using StringUtils::joinPath;

namespace {

constexpr const char* root = "/etc/zuv/profiles/";
constexpr const char* nameOfUnnamed = "profile";
constexpr int firstNumber = 123123;
constexpr int lastNumber = 999998;
constexpr int firstSuffix = 2;
constexpr int lastSuffix = 999999;
constexpr mode_t profileDirMode = 0755;
constexpr mode_t activeFileMode = 0666;

// Returns true if a directory name is a plain name that a profile may have.
bool isPlainName(std::string_view dirname) {
  return !dirname.empty() && dirname.front() != '.' && dirname.find('/') == std::string_view::npos &&
         dirname.find('\0') == std::string_view::npos;
}

// Copies a path, which is empty if it could not be formed, to a caller's buffer as strlcpy(3) would.
bool copyOut(bool formed, const std::string& path, char* buffer, std::size_t size) {
  if (size == 0) return false;
  const std::size_t length = std::min(path.size(), size - 1);
  std::memcpy(buffer, path.data(), length);
  buffer[length] = '\0';
  return formed && length == path.size();
}

}  // namespace

namespace ProfileStore {

const char* baseDir() { return FileUtils::configRoot(); }
const char* profilesRoot() { return root; }
UniqueFd openRoot(int flags) { return openDirectoryInStore(root, flags); }
std::string factoryDir() { return concatenate({root, factoryName}); }
std::string activeFile() { return concatenate({root, currentName}); }

bool profileDir(std::string_view dirname, std::string& path) {
  path.clear();
  if (dirname.empty()) return false;
  path = joinPath({root, dirname});
  return true;
}

[[gnu::hot]] bool fileInProfile(std::string_view dirname, std::string_view filename, std::string& path) {
  path.clear();
  if (dirname.empty() || filename.empty()) return false;
  path = joinPath({root, dirname, filename});
  return true;
}

bool fileInActiveProfile(std::string_view filename, std::string& path) {
  path.clear();
  std::string dirname;
  return readActiveDirname(dirname) && fileInProfile(dirname, filename, path);
}

bool copyBaseDir(char* buffer, std::size_t size) { return copyOut(true, baseDir(), buffer, size); }

bool copyProfileDir(std::string_view dirname, char* buffer, std::size_t size) {
  std::string path;
  const bool formed = profileDir(dirname, path);
  return copyOut(formed, path, buffer, size);
}

bool copyFactoryDir(char* buffer, std::size_t size) { return copyOut(true, factoryDir(), buffer, size); }

bool copyFileInProfile(std::string_view dirname, std::string_view filename, char* buffer, std::size_t size) {
  std::string path;
  const bool formed = fileInProfile(dirname, filename, path);
  return copyOut(formed, path, buffer, size);
}

bool copyFileInActiveProfile(std::string_view filename, char* buffer, std::size_t size) {
  std::string path;
  const bool formed = fileInActiveProfile(filename, path);
  return copyOut(formed, path, buffer, size);
}

bool readProfileName(const std::string& dir, std::string& name) {
  name.clear();
  if (dir.empty()) return false;
  (void)FileUtils::readFirstLine(joinPath({dir, nameFile}), name);  // a failure leaves the name empty
  if (!name.empty()) return true;
  if (!FileUtils::isRealDirectory(dir)) return false;
  const auto choose = [](const std::string& found) { return found.empty() ? nameOfUnnamed : found; };
  switch (NameRepair::run(dir, "", choose, name)) {
    case NameRepair::Result::done:
    case NameRepair::Result::notWritten:
      return true;
    default:
      name.clear();
      return false;
  }
}

Status writeProfileName(std::string_view dirname, const std::string& name) {
  std::string file;
  (void)fileInProfile(dirname, nameFile, file);  // the writer refuses an empty path
  return FileUtils::writeStoreLine(file, name);
}

ProfileRecord recordFromDirname(const std::string& dirname) {
  ProfileRecord record;
  record.dirname = dirname;
  (void)profileDir(dirname, record.dir);  // the next call fails for an empty directory
  record.valid = readProfileName(record.dir, record.name);
  return record;
}

bool readActiveDirname(std::string& dirname) {
  const bool read = FileUtils::readFirstLine(activeFile(), dirname).isSuccess();
  if (!isPlainName(dirname)) dirname.clear();
  return read;
}

bool readActiveRecord(ProfileRecord& record) {
  record = ProfileRecord();
  if (!readActiveDirname(record.dirname)) return false;
  record.valid = true;
  std::string file;
  if (profileDir(record.dirname, record.dir)) {
    (void)fileInProfile(record.dirname, nameFile, file);
    (void)FileUtils::readFirstLine(file, record.name);  // a failure leaves the name empty
  }
  return true;
}

bool isActive(const ProfileRecord& profile) {
  std::string active;
  return readActiveDirname(active) && !active.empty() && active == profile.dirname;
}

RunState activeRunState() {
  std::string file;
  (void)fileInActiveProfile(variablesFileName, file);  // an empty path means "not running"
  return runStateOf(file);
}

bool daemonMayRun() { return activeRunState() != RunState::notRunning; }

bool setActive(const std::string& dirname) {
  if (!isPlainName(dirname)) return false;
  const std::string file = activeFile();
  return FileUtils::writeStoreLine(file, dirname).isSuccess() && FileUtils::setMode(file, activeFileMode).isSuccess();
}

}  // namespace ProfileStore

// --- Unique names

namespace {

std::string suffixed(const std::string& base, int number) {
  return concatenate({base, "#", StringUtils::toString(number)});
}

// The names of a store while some of them are being made unique. Names are only ever added, so the search for a base
// resumes where the previous one ended, and n equal names cost n steps.
class NamesInUse {
 public:
  // `sorted` holds views of names that must outlive this object and must not move.
  explicit NamesInUse(std::vector<std::string_view> sorted) : sorted_(std::move(sorted)) {}

  bool contains(const std::string& name) const {
    return added_.count(name) != 0 || std::binary_search(sorted_.begin(), sorted_.end(), std::string_view(name));
  }

  void add(const std::string& name) { added_.insert(name); }

  // Returns a free name, or `base` itself if all its numbers are taken.
  std::string unique(const std::string& base) {
    std::string name;
    return findFree(base, name) ? name : base;
  }

  bool findFree(const std::string& base, std::string& name) {
    if (!contains(base)) {
      name = base;
      return true;
    }
    int& next = next_.try_emplace(base, firstSuffix).first->second;
    for (; next <= lastSuffix; ++next) {
      std::string candidate = suffixed(base, next);
      if (!contains(candidate)) {
        name = std::move(candidate);
        return true;
      }
    }
    return false;
  }

 private:
  std::vector<std::string_view> sorted_;
  std::unordered_set<std::string> added_;
  std::unordered_map<std::string, int> next_;
};

// --- Listing

// An entry of the root has an empty name while none can be read. The entries are stored in the order of the directory
// and sorted through pointers, so comparing two pointers compares their order in the directory.
using Entry = ProfileListing::Entry;

// Appends the names of the profile directories, each with a zero byte. A vector of strings would take six times the
// memory.
bool listDirnames(int rootFd, std::string_view without, std::string& dirnames) {
  FileUtils::DirectoryReader reader(rootFd);
  while (const dirent* entry = reader.next()) {
    const std::string_view dirname = entry->d_name;
    if (entry->d_name[0] == '.' || dirname == without) continue;
    if (FileUtils::entryType(rootFd, entry->d_name, entry->d_type) == DT_DIR) dirnames.append(dirname).push_back('\0');
  }
  return reader.status().isSuccess();
}

// Reads the profile directories in the root, and their display names.
bool readEntries(std::string_view without, std::vector<Entry>& entries) {
  const UniqueFd directory = ProfileStore::openRoot(O_RDONLY);
  std::string dirnames;
  if (!directory.isOpen() || !listDirnames(directory.get(), without, dirnames)) return false;
  entries.reserve(static_cast<std::size_t>(std::count(dirnames.begin(), dirnames.end(), '\0')));
  std::string path;  // relative to the root; one buffer for all of them
  for (std::string_view rest = dirnames; !rest.empty(); rest.remove_prefix(entries.back().dirname.size() + 1)) {
    Entry& entry = entries.emplace_back();
    entry.dirname = rest.substr(0, rest.find('\0'));
    path.assign(entry.dirname).append("/").append(ProfileStore::nameFile);
    if (!FileUtils::readFirstLineAt(directory.get(), path.c_str(), entry.name).isSuccess()) entry.name.clear();
  }
  return true;
}

using EntryOrder = std::vector<Entry*>;

void sortByName(EntryOrder& order) {
  std::sort(order.begin(), order.end(), [](const Entry* a, const Entry* b) {
    const int names = a->name.compare(b->name);
    return names < 0 || (names == 0 && a < b);
  });
}

// Returns the entries of a sorted list that need a new name: first those whose name an earlier entry has, then those
// without a name, both in the order of the directory.
EntryOrder entriesToRepair(const EntryOrder& sorted) {
  EntryOrder broken;
  EntryOrder unnamed;
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    if (sorted[i]->name.empty()) {
      unnamed.push_back(sorted[i]);
    } else if (i != 0 && sorted[i]->name == sorted[i - 1]->name) {
      broken.push_back(sorted[i]);
    }
  }
  std::sort(broken.begin(), broken.end());
  broken.insert(broken.end(), unnamed.begin(), unnamed.end());
  return broken;
}

// Gives one entry a name of its own. Clears the directory name if the directory has gone. Returns false on failure.
bool repairName(Entry& entry, NamesInUse& names) {
  const auto choose = [&](const std::string& found) {
    if (!found.empty() && !names.contains(found)) return found;  // another process wrote it in the meantime
    return names.unique(found.empty() ? nameOfUnnamed : found);
  };
  std::string name;
  switch (NameRepair::run(joinPath({root, entry.dirname}), entry.name, choose, name)) {
    case NameRepair::Result::failed:
      return false;
    case NameRepair::Result::gone:
      entry.dirname.clear();
      return true;
    default:
      names.add(name);
      entry.name = std::move(name);
      return true;
  }
}

// Gives every entry of a sorted list a name of its own and sorts it again.
bool repairNames(EntryOrder& sorted) {
  const EntryOrder broken = entriesToRepair(sorted);
  if (broken.empty()) return true;
  std::vector<std::string> taken;  // copies, since the names of the entries change in the loop below
  for (const Entry* entry : sorted) {
    if (taken.empty() || taken.back() != entry->name) taken.push_back(entry->name);
  }
  NamesInUse names(std::vector<std::string_view>(taken.begin(), taken.end()));
  NameRepair::Limit limit;
  for (Entry* entry : broken) {
    if (!repairName(*entry, names)) return false;
  }
  const auto isGone = [](const Entry* entry) { return entry->dirname.empty(); };
  sorted.erase(std::remove_if(sorted.begin(), sorted.end(), isGone), sorted.end());
  sortByName(sorted);
  return true;
}

// Takes the texts of the entry.
ProfileRecord recordFrom(Entry& entry) {
  ProfileRecord record;
  record.valid = true;
  record.dir = joinPath({root, entry.dirname});
  record.dirname = std::move(entry.dirname);
  record.name = std::move(entry.name);
  return record;
}

}  // namespace

bool ProfileListing::read(std::string_view without) {
  entries_.clear();
  sorted_.clear();
  if (!readEntries(without, entries_)) return false;
  sorted_.reserve(entries_.size());
  for (Entry& entry : entries_) sorted_.push_back(&entry);
  sortByName(sorted_);
  return repairNames(sorted_);
}

namespace ProfileStore {

std::string uniqueName(const std::string& base, const std::vector<std::string>& inUse) {
  std::vector<std::string_view> sorted(inUse.begin(), inUse.end());
  std::sort(sorted.begin(), sorted.end());
  return NamesInUse(std::move(sorted)).unique(base);
}

bool listProfiles(std::vector<ProfileRecord>& profiles, std::string_view without) {
  profiles.clear();
  ProfileListing listing;
  if (!listing.read(without)) return false;
  profiles.reserve(listing.sorted().size());
  for (Entry* entry : listing.sorted()) profiles.push_back(recordFrom(*entry));
  return true;
}

Status findByName(const std::string& name, ProfileRecord& record) {
  record = ProfileRecord();
  ProfileListing listing;
  if (!listing.read()) return Status::of(status::applicationError);
  for (Entry* entry : listing.sorted()) {
    if (entry->name == name) {
      record = recordFrom(*entry);
      return Status();
    }
  }
  return Status::of(status::profileNotFound);
}

bool chooseNewName(const std::string& requested, bool allowRename, std::string_view without, std::string& name) {
  name.clear();
  ProfileListing listing;
  if (!listing.read(without)) return false;
  std::vector<std::string_view> taken;
  taken.reserve(listing.sorted().size());
  for (const Entry* entry : listing.sorted()) taken.push_back(entry->name);
  return chooseUnusedName(requested, allowRename, std::move(taken), name);
}

bool chooseUnusedName(const std::string& requested, bool allowRename, std::vector<std::string_view> inUse,
                      std::string& name) {
  name.clear();
  const std::string base = requested.empty() ? nameOfUnnamed : requested;
  std::sort(inUse.begin(), inUse.end());
  NamesInUse names(std::move(inUse));
  if (!allowRename && names.contains(base)) return false;
  return names.findFree(base, name);
}

bool newProfileDirectory(std::string& dir, std::string& dirname) {
  constexpr int failuresAllowed = 2;
  dir.clear();
  dirname.clear();
  // The path may lead elsewhere by the next call.
  const UniqueFd directory = openRoot(O_PATH);
  if (!directory.isOpen()) return false;
  int failures = 0;
  for (int number = firstNumber; number <= lastNumber; ++number) {
    std::string candidate = concatenate({"profile-", StringUtils::toString(number)});
    const FileUtils::NewDir made = FileUtils::makeNewDir(directory.get(), candidate, profileDirMode);
    if (made == FileUtils::NewDir::made) {
      dir = joinPath({root, candidate});
      dirname = std::move(candidate);
      return true;
    }
    failures = made == FileUtils::NewDir::exists ? 0 : failures + 1;
    if (failures > failuresAllowed) return false;
  }
  return false;
}

}  // namespace ProfileStore

// --- Selectors

namespace {

// Returns the status for the active profile: one of the two successes that say whether it is running.
Status statusOfActive() {
  const bool running = ProfileStore::activeRunState() == RunState::running;
  return Status::of(running ? status::profileIsRunning : status::profileIsActive);
}

Status statusOfProfile(const ProfileRecord& profile) {
  return ProfileStore::isActive(profile) ? statusOfActive() : Status();
}

Status resolveActive(ProfileRecord& record) {
  return ProfileStore::readActiveRecord(record) ? statusOfActive() : Status::of(status::profileNotFound);
}

Status resolveFactory(ProfileRecord& record) {
  record.valid = true;
  record.dir = ProfileStore::factoryDir();
  record.dirname = ProfileStore::factoryName;
  record.name = ProfileStore::factoryName;
  return Status();
}

Status resolveDirname(const std::string& dirname, ProfileRecord& record) {
  if (dirname.empty()) return Status::of(status::invalidArgument);
  if (dirname == ProfileStore::factoryName) return resolveFactory(record);
  if (!isPlainName(dirname)) return Status::of(status::profileNotFound);
  record = ProfileStore::recordFromDirname(dirname);
  return record.valid ? statusOfProfile(record) : Status::of(status::profileNotFound);
}

Status resolveDisplayName(const std::string& name, ProfileRecord& record) {
  Status found = ProfileStore::findByName(name, record);
  return found.isSuccess() ? statusOfProfile(record) : found;
}

}  // namespace

namespace ProfileStore {

Status resolveSelector(const std::string& text, ProfileRecord& record) {
  record = ProfileRecord();
  if (text.empty() || text == currentName || text == activeName) return resolveActive(record);
  if (StringUtils::startsWith(text, dirPrefix)) return resolveDirname(text.substr(dirPrefix.size()), record);
  if (text == factoryName) return resolveFactory(record);
  return resolveDisplayName(text, record);
}

}  // namespace ProfileStore
