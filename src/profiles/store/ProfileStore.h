// ProfileStore: the profiles on the disk.
//
//   ProfileRecord record;
//   Status found = ProfileStore::resolveSelector("lab", record);        // or "dir=profile-123123", "", ".factory" ...
//   if (!found.isSuccess()) return found;
//
//   /etc/zuv/profiles/.current          first line: the directory name of the active profile; mode 0666
//   /etc/zuv/profiles/.factory/         the template of new profiles, never listed
//   /etc/zuv/profiles/profile-123123/   a profile; its first line of `profile_name` (0640) is the display name
//
// Nothing is kept in memory: every call reads the disk anew. Output arguments are cleared first.
// Repair: a profile without a readable name gets one, and a name that is taken twice gets a "#" and a number, the first
// time it is looked at. Deliberate; it means that reading the store may write to it.
// Hostile input: `.current` is writable by everybody. A name in it that holds "/" or a zero byte, or begins with ".",
// counts as empty, and an empty directory name is never joined to a path.
// Other processes: the store as a whole has no lock; those that write one file take turns (FileWriter). Two that give
// names at the same moment may give the same one, which the next listing repairs; numbered directories come from mkdir
// itself, so no two processes get the same.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "command/status/StatusCodes.h"
#include "service/host/Heartbeat.h"

// One profile, copied by value.
struct ProfileRecord {
  bool valid = false;   // filled from the disk
  std::string dir;      // full path
  std::string dirname;  // the directory's own name, never changed after it was made
  std::string name;     // display name
};

namespace ProfileStore {

constexpr std::string_view factoryName = ".factory";
constexpr std::string_view currentName = ".current";
constexpr std::string_view activeName = "--active";
constexpr std::string_view dirPrefix = "dir=";
constexpr const char* nameFile = "profile_name";

// --- Paths

const char* baseDir();       // "/etc/zuv/"
const char* profilesRoot();  // "/etc/zuv/profiles/"
std::string factoryDir();
std::string activeFile();
// Each returns false, and an empty path, when a part of it is empty (or there is no active profile).
bool profileDir(std::string_view dirname, std::string& path);
bool fileInProfile(std::string_view dirname, std::string_view filename, std::string& path);
bool fileInActiveProfile(std::string_view filename, std::string& path);

// The same paths into a caller's buffer of `size` bytes, always zero-terminated unless size is 0. False when the path
// could not be formed or was cut.
bool copyBaseDir(char* buffer, std::size_t size);
bool copyProfileDir(std::string_view dirname, char* buffer, std::size_t size);
bool copyFactoryDir(char* buffer, std::size_t size);
bool copyFileInProfile(std::string_view dirname, std::string_view filename, char* buffer, std::size_t size);
bool copyFileInActiveProfile(std::string_view filename, char* buffer, std::size_t size);

// --- Names

// The display name of the profile in `dir`. A directory without a readable one is given the name "profile" on the disk,
// when it is a real directory. False, and an empty name, when that fails.
bool readProfileName(const std::string& dir, std::string& name);

// Writes a display name, mode 0640. Statuses: those of FileUtils::writeString; "invalid argument" for an empty dirname.
Status writeProfileName(std::string_view dirname, const std::string& name);

// The name itself when it is not in use, else the name with "#2", "#3", ... up to "#999999": the first that is not in
// use; the name itself when all are.
std::string uniqueName(const std::string& base, const std::vector<std::string>& inUse);

// --- Profiles

// The profile in that directory; invalid when it has no name and can't be given one.
ProfileRecord recordFromDirname(const std::string& dirname);

// What `.current` says. False when it is there and cannot be read; a missing one is an empty name. The record is not
// checked against the listing, and no name is repaired.
bool readActiveDirname(std::string& dirname);
bool readActiveRecord(ProfileRecord& record);
bool isActive(const ProfileRecord& profile);

// Makes the profile in that directory the active one. False when `.current` could not be written or its mode not be
// set.
bool setActive(const std::string& dirname);

// Whether the daemon runs, as its heartbeat file in the active profile tells.
RunState activeRunState();
// Whether it runs or may run: its heartbeat says anything but "not running".
bool daemonMayRun();

// All profiles in the order of their names (bytes compared), after repair: in the order of the directory, a name that
// an earlier profile has becomes unique, then profiles without one get "profile". Only real directories whose names do
// not begin with "." are profiles; `without` names one to leave alone altogether. False when the root cannot be listed
// or a repair cannot be written. Cost: n log n, a few system calls a profile.
bool listProfiles(std::vector<ProfileRecord>& profiles, std::string_view without = {});

// Status: "profile not found", or "application error" when the listing fails.
Status findByName(const std::string& name, ProfileRecord& record);

// The display name of a new profile: `requested` ("profile" when empty), or, when that is taken and `allowRename`, the
// first free one with "#2" up to "#999999". False when there is none or the listing fails. The directory `without`,
// made for it a moment ago, neither counts nor is repaired.
bool chooseNewName(const std::string& requested, bool allowRename, std::string_view without, std::string& name);

// Makes the first directory "profile-123123", "profile-123124", ... up to "profile-999998" that is not there, mode
// 0755. mkdir decides: an existing entry of any kind means the next number, and so does another failure; three of these
// in a row, or a missing root, end the search. False then, and when the numbers run out.
bool newProfileDirectory(std::string& dir, std::string& dirname);

// Finds the profile that a user's text means:
//   "", ".current", "--active"   the active one
//   "dir=" and a directory name  that directory; one plain name, no path
//   ".factory"                   the template
//   anything else                the profile of exactly that display name
// Statuses: success, "profile is active" and "profile is currently running" (successes); "profile not found", "invalid
// argument" (nothing behind "dir="), "application error" (the store can't be listed). The record is valid on success.
Status resolveSelector(const std::string& text, ProfileRecord& record);

}  // namespace ProfileStore
