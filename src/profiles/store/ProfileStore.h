// ProfileStore: finds, names and creates the profiles on the disk.
//
//   ProfileRecord record;
//   Status found = ProfileStore::resolveSelector("lab", record);        // or "dir=profile-123123", "", ".factory" ...
//   if (!found.isSuccess()) return found;
//
//   /etc/zuv/profiles/.current          first line: the directory name of the active profile; mode 0666
//   /etc/zuv/profiles/.factory/         the template of new profiles, never listed
//   /etc/zuv/profiles/profile-123123/   a profile; the first line of its `profile_name` (0640) is the display name
//
// Nothing is cached in memory: every call reads the disk. Functions clear their output arguments first.
// Repair: a profile without a readable name gets one as soon as a function other than readActiveRecord reads it, and of
// two equal names one gets a "#" and a number as soon as a function lists them. This is deliberate; it means that
// reading the store may write to it.
// Plain names: a directory name is plain if it is not empty, does not begin with "." and contains no "/" and no zero
// byte.
// Hostile input: everybody can write `.current`. A name in it that is not plain counts as empty, and an empty directory
// name is never joined to a path.
// Other processes: the store as a whole has no lock; writers of the same file take turns (FileWriter). Two processes
// that assign names at the same moment may assign the same name, which the next listing repairs. mkdir itself decides
// who gets a numbered directory, so no two processes get the same one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/system/UniqueFd.h"
#include "command/status/StatusCodes.h"
#include "service/host/Heartbeat.h"

// One profile, copied by value.
struct ProfileRecord {
  bool valid = false;   // true if the record was filled from the disk
  std::string dir;      // full path
  std::string dirname;  // the directory's own name, which never changes
  std::string name;     // display name
};

// All profiles of the store, sorted by display name (compared byte by byte).
//
//   ProfileListing listing;
//   if (!listing.read()) return ...;
//   for (const ProfileListing::Entry* profile : listing.sorted()) ...profile->dirname, profile->name...
//
// Cost: n log n comparisons of names, and a few system calls for each profile. All names are in memory, and each can
// have 10 MB, also as a sparse file of two disk blocks. A listing can be moved and keeps its entries then.
class ProfileListing {
 public:
  struct Entry {
    std::string dirname;
    std::string name;
  };

  ProfileListing() = default;
  ProfileListing(ProfileListing&&) = default;
  ProfileListing& operator=(ProfileListing&&) = default;

  // Repairs the names of the profiles and lists them. Only real directories whose names do not begin with "." are
  // profiles. The directory `without` is neither listed nor repaired, and its name does not count as taken. Repair
  // takes two steps, each in the order in which the system lists the directory: first, each profile with the name of an
  // earlier profile gets a unique name; then each profile without a name gets "profile", made unique. Returns false if
  // the root cannot be listed or a repair fails (NameRepair::Result::failed); sorted() is then undefined. A name that
  // is not written for another reason is listed as repaired.
  bool read(std::string_view without = {});

  // The entries belong to the listing. The caller may take their texts.
  const std::vector<Entry*>& sorted() const { return sorted_; }

 private:
  std::vector<Entry> entries_;
  std::vector<Entry*> sorted_;
};

namespace ProfileStore {

constexpr std::string_view factoryName = ".factory";
constexpr std::string_view currentName = ".current";
constexpr std::string_view activeName = "--active";
constexpr std::string_view dirPrefix = "dir=";

// Entries of a profile's directory. ConfigControl.h describes the contents of hip.conf.
constexpr const char* nameFile = "profile_name";
constexpr const char* hipConfFile = "hip.conf";
constexpr const char* certificatesDir = "ca-certs";

// --- Paths

const char* baseDir();       // "/etc/zuv/"
const char* profilesRoot();  // "/etc/zuv/profiles/"
std::string factoryDir();
std::string activeFile();
// Opens the profiles directory with these flags of open(2), over trusted links only (see StoreOpener.h). If that fails,
// the result is not open.
UniqueFd openRoot(int flags);
// Each of these returns false and an empty path if a part of the path is empty; the last one also if there is no active
// profile.
bool profileDir(std::string_view dirname, std::string& path);
bool fileInProfile(std::string_view dirname, std::string_view filename, std::string& path);
bool fileInActiveProfile(std::string_view filename, std::string& path);

// These copy the same paths into a caller's buffer of `size` bytes, always zero-terminated unless size is 0. They
// return false if the path could not be formed or had to be cut.
bool copyBaseDir(char* buffer, std::size_t size);
bool copyProfileDir(std::string_view dirname, char* buffer, std::size_t size);
bool copyFactoryDir(char* buffer, std::size_t size);
bool copyFileInProfile(std::string_view dirname, std::string_view filename, char* buffer, std::size_t size);
bool copyFileInActiveProfile(std::string_view filename, char* buffer, std::size_t size);

// --- Names

// Reads the display name of the profile in `dir`. If there is no readable name and `dir` is a real directory, writes
// the name "profile" to the disk and returns it. Otherwise, or if that write fails in a directory of our own, returns
// false and an empty name.
bool readProfileName(const std::string& dir, std::string& name);

// Writes a display name, mode 0640. The name must have no control byte; it is not checked. Statuses: those of
// FileUtils::writeStoreLine; "invalid argument" for an empty dirname.
Status writeProfileName(std::string_view dirname, const std::string& name);

// Returns `base` if it is not in use; otherwise the first of `base`#2, `base`#3, ... `base`#999999 that is not in use;
// `base` again if all of them are.
std::string uniqueName(const std::string& base, const std::vector<std::string>& inUse);

// --- Profiles

// Returns the record of the profile in that directory. The record is invalid if the directory has no name and cannot be
// given one.
ProfileRecord recordFromDirname(const std::string& dirname);

// readActiveDirname reads the directory name in `.current`; readActiveRecord reads the record of that profile. They
// return false only if `.current` is a regular file that cannot be read. If it is missing, blank, not a regular file,
// or holds a name that is not plain, they return true and an empty name; the record is valid then, too. A name file
// that cannot be read gives an empty display name. They neither check that the profile exists nor repair names.
bool readActiveDirname(std::string& dirname);
bool readActiveRecord(ProfileRecord& record);
// Returns true if `.current` names the directory of the profile. Returns false if no profile is active or `.current`
// cannot be read.
bool isActive(const ProfileRecord& profile);

// Makes the profile in that directory the active one by writing the name to `.current`. Returns false for a name that
// is not plain, and if `.current` could not be written or its mode could not be set. A name that begins or ends with
// bytes outside 33..126 is written too, and the result is true. But readers of `.current` trim these bytes, so the
// profile does not become active.
bool setActive(const std::string& dirname);

// Returns the state of the daemon according to its heartbeat file in the active profile.
RunState activeRunState();
// Returns true unless activeRunState() is "not running", so also if the state is unknown.
bool daemonMayRun();

// Lists all profiles but `without` as ProfileListing::read does. Returns false if that fails.
bool listProfiles(std::vector<ProfileRecord>& profiles, std::string_view without = {});

// Finds the profile of exactly that display name. Statuses: success; "profile not found"; "application error" if the
// listing fails.
Status findByName(const std::string& name, ProfileRecord& record);

// Chooses the display name of a new profile: `requested` ("profile" if empty) or, if that is taken and `allowRename` is
// set, the first free name with "#2" up to "#999999". Returns false if there is none or the listing fails. `without` is
// the directory just created for the new profile: it does not count and is not repaired.
bool chooseNewName(const std::string& requested, bool allowRename, std::string_view without, std::string& name);

// Chooses a name as chooseNewName does, but takes the names in use from `inUse` and reads no store.
bool chooseUnusedName(const std::string& requested, bool allowRename, std::vector<std::string_view> inUse,
                      std::string& name);

// Creates the first of the directories "profile-123123", "profile-123124", ... "profile-999998" that does not exist,
// with mode 0755. mkdir decides: if an entry of any kind exists, or mkdir fails for another reason, the next number is
// tried. Three failures in a row for a reason other than an existing entry, or a profiles directory that openRoot does
// not open, end the search. Returns false then, and if the numbers run out.
bool newProfileDirectory(std::string& dir, std::string& dirname);

// Finds the profile that a user's text selects:
//   "", ".current", "--active"   the active one
//   "dir=" and a directory name  the profile in that directory; a plain name or ".factory", not a path
//   ".factory"                   the template
//   anything else                the profile of exactly that display name
// Statuses: "success", "profile is active" and "profile is currently running", which are all successes; "profile not
// found"; "invalid argument" if nothing follows "dir="; "application error" if the store cannot be listed. The record
// is valid on success. If no profile is active, the first row succeeds with "profile is active" and a record whose
// texts are empty. If `.current` cannot be read, the first row gives "profile not found".
Status resolveSelector(const std::string& text, ProfileRecord& record);

}  // namespace ProfileStore
