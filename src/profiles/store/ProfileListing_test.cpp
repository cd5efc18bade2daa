// Tests of listing the store and repairing its names, of unique names, and of the choice of a new name.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include "base/system/UniqueFd.h"
#include "command/status/AppStatusCodes.h"
#include "profiles/store/ProfileStore.h"
#include "testing/faults/AllocationCount.h"
#include "testing/faults/FaultInjector.h"
#include "testing/models/SkippedPauses.h"
#include "testing/run/HostTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Pair = std::pair<std::string, std::string>;  // directory name, display name
using Pairs = std::vector<Pair>;

// Returns the names of all entries in the order in which the system lists them.
std::vector<std::string> directoryOrder(const std::string& folder) {
  std::vector<std::string> names;
  DIR* directory = ::opendir(folder.c_str());
  if (directory == nullptr) return names;
  while (const dirent* entry = ::readdir(directory)) names.emplace_back(entry->d_name);
  ::closedir(directory);
  return names;
}

Pairs listed(bool expected = true) {
  std::vector<ProfileRecord> records(3);  // the listing replaces these
  EXPECT_EQ(ProfileStore::listProfiles(records), expected);
  Pairs pairs;
  for (const ProfileRecord& record : records) {
    EXPECT_TRUE(record.valid);
    EXPECT_EQ(record.dir, "/etc/zuv/profiles/" + record.dirname);
    pairs.emplace_back(record.dirname, record.name);
  }
  return pairs;
}

std::vector<std::string> listedNames() {
  std::vector<std::string> names;
  for (const Pair& pair : listed()) names.push_back(pair.second);
  return names;
}

std::string nameOnDisk(const std::string& dirname) {
  return host::readFile(host::kProfiles + dirname + "/profile_name");
}

void makeNameless(const std::string& dirname) { host::makeDirs(host::kProfiles + dirname); }

// Returns the one of several directories that the system lists first.
std::string firstOf(std::initializer_list<const char*> dirnames) {
  for (const std::string& name : directoryOrder(host::kProfiles)) {
    if (std::find(dirnames.begin(), dirnames.end(), name) != dirnames.end()) return name;
  }
  return "";
}

// --- What is listed

using ProfileListingTest = HostTest;

// Returns how many blocks `list` allocates in a store of this many profiles.
std::ptrdiff_t blocksToList(int profiles, void (*list)()) {
  host::reset();
  for (int n = 100; n < 100 + profiles; ++n) {
    host::makeProfile("profile-" + std::to_string(n), "name" + std::to_string(n));
  }
  const std::ptrdiff_t before = newBlocksSoFar();
  list();
  return newBlocksSoFar() - before;
}

// A vector without reserve() would reallocate between 60 and 70 profiles, when it passes 64, but not between 50 and 60.
TEST_F(ProfileListingTest, EachListIsAllocatedOnceWhateverItsLength) {
  const std::pair<const char*, void (*)()> cases[] = {
      {"ProfileListing::read", [] { EXPECT_TRUE(ProfileListing().read()); }},
      {"listProfiles",
       [] {
         std::vector<ProfileRecord> records;
         EXPECT_TRUE(ProfileStore::listProfiles(records));
       }},
      {"chooseNewName", [] {
         std::string name;
         EXPECT_TRUE(ProfileStore::chooseNewName("name", false, "", name));
       }}};
  for (const auto& [why, list] : cases) {
    SCOPED_TRACE(why);
    const std::ptrdiff_t fifty = blocksToList(50, list), sixty = blocksToList(60, list);
    EXPECT_EQ(blocksToList(70, list) - sixty, sixty - fifty);
  }
}

TEST_F(ProfileListingTest, AnEmptyStoreHasNoProfilesAndTheListingOfAMissingStoreFails) {
  EXPECT_THAT(listed(), IsEmpty());
  host::remove(host::kProfiles);
  EXPECT_THAT(listed(false), IsEmpty()) << "no root";
  host::writeFile("/etc/zuv/profiles", "");
  EXPECT_THAT(listed(false), IsEmpty()) << "the root is a file";
}

TEST_F(ProfileListingTest, ProfilesAreSortedByTheBytesOfTheirNames) {
  const char* names[] = {"b", "a", "B", "a#10", "a#2", "\xc3\xa4z", "Z", "ab", "1", "~"};
  for (std::size_t i = 0; i < std::size(names); ++i) {
    host::makeProfile("profile-" + std::to_string(i), "x" + std::string(names[i]));
  }
  EXPECT_THAT(listedNames(), ElementsAre("x1", "xB", "xZ", "xa", "xa#10", "xa#2", "xab", "xb", "x~", "x\xc3\xa4z"));
}

TEST_F(ProfileListingTest, OnlyRealDirectoriesThatAreNotHiddenAreProfilesAndNothingIsWritten) {
  host::makeProfile("profile-1", "lab");
  host::writeFile("/etc/zuv/profiles/profile-2/profile_name", "\n  office \nmore\n", 0600);
  host::makeProfile("any name at all", "other");
  host::makeProfile(".factory", "template");
  host::makeProfile(".hidden", "hidden");
  host::makeProfile("..x", "hidden too");
  host::makeActive("profile-1");
  host::writeFile("/etc/zuv/profiles/stray", "stray\n");
  host::makeFifo("/etc/zuv/profiles/fifo");
  host::writeFile("/tmp/elsewhere/profile_name", "linked\n");
  host::makeLink("/etc/zuv/profiles/link", "/tmp/elsewhere");
  host::makeLink("/etc/zuv/profiles/inner", "profile-1");
  host::makeLink("/etc/zuv/profiles/nowhere", "gone");
  const std::string before = host::tree(host::kProfiles);
  EXPECT_THAT(listed(),
              ElementsAre(Pair("profile-1", "lab"), Pair("profile-2", "office"), Pair("any name at all", "other")));
  EXPECT_EQ(host::tree(host::kProfiles), before);
}

// --- Repair

using NameRepairTest = HostTest;

TEST_F(NameRepairTest, TheLaterOfTwoEqualNamesGetsANumberOnDisk) {
  host::makeProfile("profile-1", "lab");
  host::makeProfile("profile-2", "lab");
  const std::string first = firstOf({"profile-1", "profile-2"});
  const std::string second = first == "profile-1" ? "profile-2" : "profile-1";
  EXPECT_THAT(listed(), ElementsAre(Pair(first, "lab"), Pair(second, "lab#2")));
  EXPECT_EQ(nameOnDisk(first), "lab\n");
  EXPECT_EQ(nameOnDisk(second), "lab#2\n");
  EXPECT_EQ(host::modeOf(host::kProfiles + second + "/profile_name"), 0640u);
}

TEST_F(NameRepairTest, ARepairedNameGetsTheFirstFreeNumberAndOtherNamesStay) {
  const struct {
    const char* why;
    std::vector<const char*> files;  // profile_name of profile-0, profile-1, ...; null: none
    std::size_t kept;                // so many of the first files must stay
    std::vector<std::string> names;
  } cases[] = {
      {"free numbers lie between others",
       {"lab#2\n", "lab#4\n", "lab\n", "lab\n", "lab\n"},
       2,
       {"lab", "lab#2", "lab#3", "lab#4", "lab#5"}},
      {"a numbered name gets a second number", {"lab#2\n", "lab#2\n"}, 0, {"lab#2", "lab#2#2"}},
      {"blanks and high bytes at the ends make no difference", {"lab\x80\n", " lab\n"}, 0, {"lab", "lab#2"}},
      {"a missing name gets a number when profile is taken", {"profile\n", nullptr}, 1, {"profile", "profile#2"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    for (std::size_t i = 0; i < c.files.size(); ++i) {
      const std::string dirname = "profile-" + std::to_string(i);
      makeNameless(dirname);
      if (c.files[i] != nullptr) host::writeFile(host::kProfiles + dirname + "/profile_name", c.files[i]);
    }
    EXPECT_EQ(listedNames(), c.names);
    for (std::size_t i = 0; i < c.kept; ++i) EXPECT_EQ(nameOnDisk("profile-" + std::to_string(i)), c.files[i]);
  }
}

TEST_F(NameRepairTest, DuplicateNamesAreRepairedBeforeMissingNames) {
  makeNameless("profile-1");
  host::makeProfile("profile-2", "profile");
  host::makeProfile("profile-3", "profile");
  makeNameless("profile-4");
  const std::string kept = firstOf({"profile-2", "profile-3"});
  const std::string duplicate = kept == "profile-2" ? "profile-3" : "profile-2";
  const std::string nameless = firstOf({"profile-1", "profile-4"});
  const std::string lastOne = nameless == "profile-1" ? "profile-4" : "profile-1";
  EXPECT_THAT(listed(), ElementsAre(Pair(kept, "profile"), Pair(duplicate, "profile#2"), Pair(nameless, "profile#3"),
                                    Pair(lastOne, "profile#4")));
}

TEST_F(NameRepairTest, AMissingOrUnreadableNameBecomesProfileWithMode0640WhateverTheUmask) {
  for (const mode_t mask : {mode_t{022}, mode_t{0}, mode_t{0777}}) {
    SCOPED_TRACE(mask);
    for (const bool isMissing : {false, true}) {
      SCOPED_TRACE(isMissing);
      host::remove("/etc/zuv/profiles/profile-1");
      makeNameless("profile-1");
      if (!isMissing) host::writeFile("/etc/zuv/profiles/profile-1/profile_name", "lab\n", 0200);
      {
        const host::BoundByModes bound;
        ::umask(mask);
        EXPECT_THAT(listed(), ElementsAre(Pair("profile-1", "profile")));
        ::umask(022);
      }
      EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-1"), "f 0640 profile_name \"profile\\n\"\n");
    }
  }
}

TEST_F(NameRepairTest, ARepairOnAFullDiskFailsAndLeavesNoHalfAName) {
  const host::SmallDisk disk("/etc/zuv", 16 * 4096);
  host::makeDirs(host::kProfiles);
  host::makeProfile("profile-1", "lab");
  host::makeProfile("profile-2", "lab");
  makeNameless("profile-3");
  for (int i = 0;; ++i) {
    try {
      host::writeFile("/etc/zuv/filler" + std::to_string(i), std::string(4096, 'x'));
    } catch (const std::exception&) {
      break;
    }
  }
  EXPECT_THAT(listed(false), IsEmpty());
  EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-3"), "");
  EXPECT_THAT(nameOnDisk("profile-1") + nameOnDisk("profile-2"), testing::AnyOf("lab\nlab#2\n", "lab#2\nlab\n"));
}

TEST_F(NameRepairTest, AProfileThatVanishesBeforeItsRepairIsNotListed) {
  std::size_t opensTheName = 0;  // to repair it, just before the lock
  for (const bool isVanishing : {false, true}) {
    SCOPED_TRACE(isVanishing);
    host::reset();
    host::makeProfile("profile-1", "lab");
    makeNameless("profile-2");
    FaultPlan plan;
    plan.calls = {"openat", "flock"};
    plan.before = [&](std::size_t call) {
      if (call == opensTheName) host::remove("/etc/zuv/profiles/profile-2");
    };
    const ArmedFaults armed(plan);
    if (isVanishing) {
      EXPECT_THAT(listed(), ElementsAre(Pair("profile-1", "lab")));
    } else {
      EXPECT_THAT(listed(), ElementsAre(Pair("profile-1", "lab"), Pair("profile-2", "profile")));
    }
    const std::vector<std::string> calls = armed.calls();
    opensTheName = static_cast<std::size_t>(std::find(calls.begin(), calls.end(), "flock") - calls.begin());
  }
}

TEST_F(NameRepairTest, ADuplicateThatSomebodyEmptiesBeforeItsRepairBecomesProfile) {
  host::makeProfile("profile-1", "lab");
  host::makeProfile("profile-2", "lab");
  FaultPlan plan;
  plan.calls = {"flock"};
  plan.before = [](std::size_t) {
    for (const std::string dirname : {"profile-1", "profile-2"})
      EXPECT_EQ(::truncate((host::kProfiles + dirname + "/profile_name").c_str(), 0), 0);
  };
  const ArmedFaults armed(plan);
  EXPECT_THAT(listedNames(), ElementsAre("lab", "profile"));
}

TEST_F(NameRepairTest, ANameThatStaysLockedIsListedAsRepairedButNotWritten) {
  std::vector<UniqueFd> locks;
  for (const std::string dirname : {"profile-1", "profile-2"}) {
    host::makeProfile(dirname, "lab");
    const std::string file = host::kProfiles + dirname + "/profile_name";
    locks.emplace_back(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(locks.back().get(), LOCK_EX), 0);
  }
  const SkippedPauses skipped;
  EXPECT_THAT(listedNames(), ElementsAre("lab", "lab#2"));
  EXPECT_EQ(nameOnDisk("profile-1") + nameOnDisk("profile-2"), "lab\nlab\n");
}

TEST_F(NameRepairTest, ADirectoryInThePlaceOfANameFileFailsTheListingAndIsKept) {
  host::makeProfile("profile-2", "lab");
  host::makeDirs("/etc/zuv/profiles/profile-1/profile_name");
  const std::string before = host::tree(host::kProfiles);
  EXPECT_THAT(listed(false), IsEmpty());
  EXPECT_EQ(host::tree(host::kProfiles), before);
}

TEST_F(NameRepairTest, AProfileWhoseNameIsABrokenLinkIsListedAndGetsAName) {
  struct Case {
    const char* target;
    bool isReplaced;  // the link; otherwise the missing file behind it is made
  };
  for (const Case& c : {Case{"/tmp/file", false}, {"/tmp/missing/name", true}, {"/dev/null/name", true}}) {
    SCOPED_TRACE(c.target);
    host::reset();
    host::makeProfile("profile-1", "lab");
    makeNameless("profile-2");
    host::makeLink("/etc/zuv/profiles/profile-2/profile_name", c.target);
    EXPECT_THAT(listed(), ElementsAre(Pair("profile-1", "lab"), Pair("profile-2", "profile")));
    EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-2"),
              c.isReplaced ? "f 0640 profile_name \"profile\\n\"\n" : "l profile_name -> /tmp/file\n");
    EXPECT_EQ(nameOnDisk("profile-2"), "profile\n");
  }
}

TEST_F(NameRepairTest, TheDirectoryToLeaveOutIsNeitherListedNorRepaired) {
  host::makeProfile("profile-1", "lab");
  makeNameless("profile-2");
  std::vector<ProfileRecord> records;
  EXPECT_TRUE(ProfileStore::listProfiles(records, "profile-2"));
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].dirname, "profile-1");
  EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-2"), "");
}

TEST_F(NameRepairTest, AMovedListingKeepsItsEntriesAndASecondReadReplacesThem) {
  host::makeProfile("profile-1", "site");
  host::makeProfile("profile-2", "lab");
  ProfileListing listing;
  ASSERT_TRUE(listing.read());
  ProfileListing moved = std::move(listing);
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(moved.sorted().size(), 2u);
    EXPECT_EQ(moved.sorted()[0]->name + " " + moved.sorted()[0]->dirname, "lab profile-2");
    EXPECT_EQ(moved.sorted()[1]->name + " " + moved.sorted()[1]->dirname, "site profile-1");
    ASSERT_TRUE(moved.read());
  }
}

TEST_F(NameRepairTest, AThousandEqualNamesBecomeUniqueInOnePass) {
  std::vector<std::string> expected = {"lab"};
  for (int i = 0; i < 1000; ++i) host::makeProfile("profile-" + std::to_string(i), "lab");
  for (int i = 2; i <= 1000; ++i) expected.push_back("lab#" + std::to_string(i));
  EXPECT_THAT(listedNames(), testing::UnorderedElementsAreArray(expected));
}

// --- A model that applies the rules literally and slowly

class Model {
 public:
  Model() {
    for (const std::string& entry : directoryOrder(host::kProfiles)) walk(entry);
    for (const Pair& duplicate : duplicates_) accept(duplicate.first, unique(duplicate.second));
    for (const std::string& entry : unnamed_) accept(entry, unique("profile"));
    for (std::size_t i = 1; i < accepted_.size(); ++i) {
      const Pair moving = accepted_[i];
      std::size_t at = i;
      for (; at > 0 && isGreater(accepted_[at - 1].second, moving.second); --at) accepted_[at] = accepted_[at - 1];
      accepted_[at] = moving;
    }
  }

  const Pairs& result() const { return accepted_; }
  // The directories whose names the listing must write, each with its new name.
  const Pairs& written() const { return written_; }

 private:
  void walk(const std::string& entry) {
    struct stat info {};
    const std::string path = host::kProfiles + entry;
    if (entry.empty() || entry[0] == '.' || ::lstat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return;
    const std::string name = firstLine(path + "/profile_name");
    if (name.empty()) {
      unnamed_.push_back(entry);
    } else if (isTaken(name)) {
      duplicates_.emplace_back(entry, name);
    } else {
      accepted_.emplace_back(entry, name);
    }
  }

  void accept(const std::string& entry, const std::string& name) {
    accepted_.emplace_back(entry, name);
    written_.emplace_back(entry, name);
  }

  bool isTaken(const std::string& name) const {
    for (const Pair& pair : accepted_)
      if (pair.second == name) return true;
    return false;
  }

  std::string unique(const std::string& base) const {
    if (!isTaken(base)) return base;
    for (int n = 2; n <= 999999; ++n) {
      if (!isTaken(base + "#" + std::to_string(n))) return base + "#" + std::to_string(n);
    }
    return base;
  }

  static bool isGreater(const std::string& a, const std::string& b) {
    for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
      const int left = static_cast<unsigned char>(a[i]);
      const int right = static_cast<unsigned char>(b[i]);
      if (left != right) return left > right;
    }
    return a.size() > b.size();
  }

  static bool isBlank(char c) { return static_cast<signed char>(c) < 33 || c == 127; }

  static std::string firstLine(const std::string& path) {
    if (!host::exists(path)) return "";
    std::string text = host::readFile(path) + "\n";
    while (!text.empty()) {
      std::string line = text.substr(0, text.find('\n'));
      text.erase(0, text.find('\n') + 1);
      while (!line.empty() && isBlank(line.front())) line.erase(0, 1);
      while (!line.empty() && isBlank(line.back())) line.pop_back();
      if (!line.empty()) return line;
    }
    return "";
  }

  Pairs accepted_;
  Pairs duplicates_;
  Pairs written_;
  std::vector<std::string> unnamed_;
};

// Makes a store of up to 14 entries whose names come from a few texts, so that many are equal.
void makeRandomStore(std::mt19937& random) {
  const char* contents[] = {"lab\n",     "lab\n",       "lab#2\n",  "lab#3\n",   "profile\n", "profile#2\n",
                            "lab#2#2\n", "\n\n",        "",         " Lab\t\n",  "lab\x80\n", "l\xc3\xa4z\n",
                            "\x7f\n",    "\n profile ", "a\nlab\n", "profile#3", "z",         "~\r\n"};
  std::uniform_int_distribution<std::size_t> pick(0, std::size(contents) - 1);
  std::uniform_int_distribution<int> kind(0, 19);
  const int count = std::uniform_int_distribution<int>(0, 14)(random);
  for (int i = 0; i < count; ++i) {
    const std::string path = host::kProfiles + std::to_string(pick(random)) + "-" + std::to_string(i);
    switch (kind(random)) {
      case 0:
        host::writeFile(path, contents[pick(random)]);
        break;
      case 1:
        host::makeLink(path, "/tmp");
        break;
      case 2:
        host::writeFile(std::string(host::kProfiles) + ".h" + std::to_string(i) + "/profile_name", "lab\n");
        break;
      case 3:
      case 4:
        host::makeDirs(path);
        break;
      default:
        host::writeFile(path + "/profile_name", contents[pick(random)], 0644);
    }
  }
}

TEST_F(NameRepairTest, RandomStoresAreListedAndRepairedAsTheModelSays) {
  std::mt19937 random(20240501);
  for (int round = 0; round < 400; ++round) {
    SCOPED_TRACE(round);
    host::remove(host::kProfiles);
    host::makeDirs(host::kProfiles);
    makeRandomStore(random);
    const std::string before = host::tree(host::kProfiles);
    const Model model;
    ASSERT_EQ(listed(), model.result()) << before;
    for (const auto& [dirname, name] : model.written()) {
      ASSERT_EQ(nameOnDisk(dirname), name + "\n") << before;
      host::remove(host::kProfiles + dirname + "/profile_name");
    }
    // Apart from the names that the repair wrote, the store is unchanged.
    const std::string kept = host::tree(host::kProfiles);
    for (const auto& [dirname, name] : model.written()) {
      host::writeFile(host::kProfiles + dirname + "/profile_name", name + "\n", 0640);
    }
    const std::string repaired = host::tree(host::kProfiles);
    ASSERT_EQ(listed(), model.result());
    ASSERT_EQ(host::tree(host::kProfiles), repaired) << "a second listing wrote";
    for (std::size_t at = 0; at < kept.size();) {
      const std::size_t end = kept.find('\n', at) + 1;
      ASSERT_NE(before.find(kept.substr(at, end - at)), std::string::npos);
      at = end;
    }
  }
}

// --- Unique names

using UniqueNameTest = HostTest;

TEST_F(UniqueNameTest, AUniqueNameIsTheBaseOrTheBaseWithTheFirstFreeNumber) {
  const struct {
    const char* why;
    const char* base;
    std::vector<std::string> inUse;
    const char* expected;
  } cases[] = {
      {"nothing in use", "lab", {}, "lab"},
      {"others in use", "lab", {"Lab", "lab#2", "la", "labs"}, "lab"},
      {"taken", "lab", {"lab"}, "lab#2"},
      {"the next one is taken too", "lab", {"lab#2", "lab"}, "lab#3"},
      {"a gap among the taken numbers", "lab", {"lab#3", "lab", "lab#5", "lab#2"}, "lab#4"},
      {"number 1 is never given", "lab", {"lab", "lab#1"}, "lab#2"},
      {"leading zeros are other names", "lab", {"lab", "lab#02"}, "lab#2"},
      {"a numbered base", "lab#2", {"lab", "lab#2"}, "lab#2#2"},
      {"an empty base", "", {""}, "#2"},
      {"a base with high bytes", "\xc3\xa4", {"\xc3\xa4"}, "\xc3\xa4#2"},
      {"a name that is taken twice", "lab", {"lab", "lab"}, "lab#2"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(ProfileStore::uniqueName(c.base, c.inUse), c.expected);
  }
}

// Returns the name "x" and its numbered forms up to "x#last".
std::vector<std::string> usedUpTo(int last) {
  std::vector<std::string> inUse = {"x"};
  inUse.reserve(static_cast<std::size_t>(last));
  for (int n = 2; n <= last; ++n) inUse.push_back("x#" + std::to_string(n));
  return inUse;
}

TEST_F(UniqueNameTest, TheLastNumberIs999999AndThenTheNameIsReturnedUnchanged) {
  EXPECT_EQ(ProfileStore::uniqueName("x", usedUpTo(999998)), "x#999999");
  EXPECT_EQ(ProfileStore::uniqueName("x", usedUpTo(999999)), "x");
}

TEST_F(UniqueNameTest, ANewNameIsNotChosenIfAllItsNumbersAreTaken) {
  for (const int last : {999998, 999999}) {
    SCOPED_TRACE(last);
    const std::vector<std::string> inUse = usedUpTo(last);
    std::string name = "left over";
    EXPECT_EQ(ProfileStore::chooseUnusedName("x", true, {inUse.begin(), inUse.end()}, name), last == 999998);
    EXPECT_EQ(name, last == 999998 ? "x#999999" : "");
  }
}

// --- Choosing the name of a new profile

using NewNameTest = HostTest;

TEST_F(NewNameTest, AFreeNameIsKeptAndATakenOneGetsANumberIfAllowed) {
  host::makeProfile("profile-1", "lab");
  host::makeProfile("profile-2", "lab#2");
  host::makeProfile("profile-3", "profile");
  const struct {
    const char* why;
    const char* requested;
    bool allowRename;
    bool found;
    const char* expected;
  } cases[] = {
      {"free", "office", false, true, "office"},
      {"free, renaming allowed", "office", true, true, "office"},
      {"taken", "lab", true, true, "lab#3"},
      {"a taken name with a number", "lab#2", true, true, "lab#2#2"},
      {"taken, renaming not allowed", "lab", false, false, ""},
      {"other case", "Lab", false, true, "Lab"},
      {"no request", "", true, true, "profile#2"},
      {"no request, renaming not allowed", "", false, false, ""},
      {"a text that is a selector", "--active", false, true, "--active"},
      {"the name of the template", ".factory", false, true, ".factory"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    std::string name = "left over";
    EXPECT_EQ(ProfileStore::chooseNewName(c.requested, c.allowRename, "", name), c.found);
    EXPECT_EQ(name, c.expected);
  }
}

TEST_F(NewNameTest, TheDirectoryOfTheNewProfileIsNeitherRepairedNorCountedButOthersAre) {
  std::string name;
  EXPECT_TRUE(ProfileStore::chooseNewName("", false, "", name));
  EXPECT_EQ(name, "profile") << "an empty store";
  makeNameless("profile-1");
  EXPECT_TRUE(ProfileStore::chooseNewName("", false, "profile-1", name));
  EXPECT_EQ(name, "profile") << "the directory of the new profile does not count";
  EXPECT_EQ(host::tree("/etc/zuv/profiles/profile-1"), "");
  EXPECT_TRUE(ProfileStore::chooseNewName("", true, "profile-2", name));
  EXPECT_EQ(name, "profile#2") << "another directory is repaired first";
  EXPECT_EQ(nameOnDisk("profile-1"), "profile\n");
}

TEST_F(NewNameTest, NoNameIsChosenIfTheStoreCannotBeListed) {
  host::makeDirs("/etc/zuv/profiles/profile-1/profile_name");
  std::string name = "left over";
  EXPECT_FALSE(ProfileStore::chooseNewName("lab", true, "", name));
  EXPECT_EQ(name, "");
}

// --- Under faults

std::vector<std::string> namesOfRepairStore() {
  std::vector<std::string> names;
  for (const char* dirname : {"profile-1", "profile-2", "profile-3"}) {
    const std::string path = std::string(host::kProfiles) + dirname + "/profile_name";
    names.push_back(host::exists(path) ? host::readFile(path) : "");
  }
  return names;
}

// The calls of a listing that repaired this store. They follow the order of the directory, so call it after the
// listing.
std::vector<std::string> callsOfRepair() {
  std::vector<std::string> calls = {"openat",  "openat",  "fdopendir", "readdir", "readdir",
                                    "readdir", "readdir", "readdir",   "readdir", "closedir"};  // list the root
  const auto add = [&](std::initializer_list<const char*> names) {
    calls.insert(calls.end(), names.begin(), names.end());
  };
  for (const std::string& entry : directoryOrder(host::kProfiles)) {
    if (entry == "profile-3") {
      add({"openat", "fstatat"});  // its name is missing
    } else if (entry.front() != '.') {
      add({"openat", "fstat", "read", "close"});  // its name is read
    }
  }
  add({"close"});
  // Open the directory, open, lock and read the file, write a longer name.
  add({"openat", "fstat", "openat", "fstat", "flock", "fstat", "fstatat", "read", "lseek", "fallocate", "pread",
       "write", "fchmod", "fstat", "close", "close", "close", "close"});
  // Open the directory, make, lock and read a new name file, see that the directory is still there, write the name.
  add({"openat", "fstat", "openat", "openat", "fstat", "flock", "fstat", "fstatat", "fstat", "fstatat", "read", "lseek",
       "write", "fchmod", "close", "close", "close"});
  return calls;
}

TEST_F(NameRepairTest, AFaultAnywhereLeavesEachNameOldOrRepaired) {
  const FaultLoop loop{[] {
    host::reset();
    host::makeProfile("profile-1", "a name of some length");
    host::makeProfile("profile-2", "a name of some length");
    makeNameless("profile-3");
  }};
  const auto list = [] {
    std::vector<ProfileRecord> records;
    const bool good = ProfileStore::listProfiles(records);
    EXPECT_EQ(records.size(), good ? 3u : 0u);
    return good;
  };
  forEachFault(loop, list, [](bool good, const Fault& fault) {
    std::vector<std::string> names = namesOfRepairStore();
    const auto count = [&](const char* name) { return std::count(names.begin(), names.end(), name); };
    const auto whole = count("a name of some length\n");
    const auto numbered = count("a name of some length#2\n");
    const auto nameless = count("profile\n") + count("profile#2\n") + count("");
    // A name that could not be read counts as missing and is replaced.
    EXPECT_EQ(whole + numbered + nameless, 3) << testing::PrintToString(names);
    if (!fault) {
      EXPECT_TRUE(good);
      EXPECT_THAT(names,
                  testing::UnorderedElementsAre("a name of some length\n", "a name of some length#2\n", "profile\n"));
    }
    if (good && fault.call != "openat" && fault.call != "fstat" && fault.call != "read") {
      EXPECT_EQ(numbered, 1);
      EXPECT_EQ(count("profile\n"), 1);
    }
  });
  const std::vector<std::string> calls = fault_loop::run(loop, {}, list);
  EXPECT_EQ(calls, callsOfRepair());
}

}  // namespace
