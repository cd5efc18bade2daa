// Many processes run random commands on one store at the same time, with the real program on one private host. The test
// prints the seed of the random numbers. RAVCTL_SEED sets the seed, but the order of the processes still differs.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <limits>
#include <map>
#include <random>
#include <sstream>

#include "base/files/WholeFile.h"
#include "profiles/store/ConfigLines.h"
#include "testing/faults/FaultInjector.h"
#include "testing/faults/StoreCheck.h"
#include "testing/run/HostTest.h"
#include "testing/run/Session.h"

namespace {

using testing::IsEmpty;
using testing::Not;
using Words = std::vector<std::string>;

constexpr int kProcesses = 16;
// Under a sanitizer the program takes about ten times as long to start, so each process makes fewer steps.
#ifdef RAVCTL_SANITIZED
constexpr int kFewer = 10;
#else
constexpr int kFewer = 1;
#endif
constexpr const char* kNotes = "/run/notes/";

// One step of a process, and one line of its notes. Tabs separate the fields.
struct Note {
  long long began = 0;
  long long ended = 0;
  std::string what;     // the first two words of a command, or "problem"
  std::string failure;  // the printed status code; "-" for success
  std::string subject;  // the directory that the step changed
  std::string value;    // the value that it wrote there
};

long long now() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

std::string lineOf(const std::string& text, const std::string& key) {
  const size_t from = text.compare(0, key.size(), key) == 0 ? 0 : text.find("\n" + key);
  if (from == std::string::npos) return "";
  const size_t value = from + key.size() + (from == 0 ? 0 : 1);
  return text.substr(value, text.find('\n', value) - value);
}

// One of the processes. It runs the program step by step and keeps notes.
class Actor {
 public:
  Actor(int number, unsigned seed) : number_(number), random_(seed + static_cast<unsigned>(number)) {}

  int number() const { return number_; }
  unsigned upTo(unsigned last) { return static_cast<unsigned>(random_() % (last + 1)); }
  template <typename Rows>
  const auto& anyOf(const Rows& rows) {
    return rows[upTo(static_cast<unsigned>(std::size(rows)) - 1)];
  }

  // Returns a text that no other step writes.
  std::string unique() { return "w" + std::to_string(number_) + "s" + std::to_string(++texts_); }

  Outcome run(const Words& words, const std::string& subject = "", const std::string& value = "") {
    Note note;
    note.began = now();
    const Outcome outcome = runRavctl(words);
    note.ended = now();
    note.what = words.at(0) + " " + words.at(1);
    note.failure = lineOf(outcome.out, "status_code: 0x1");
    note.subject = subject.empty() ? lineOf(outcome.out, "profile_dir=") : subject;
    note.value = value;
    write(note);
    const bool inOrder = outcome.exitStatus == 0 && outcome.signal == 0 && outcome.err.empty();
    if (!inOrder || (!note.failure.empty() && !isKnown(note.failure))) {
      problem(note.what, "status " + std::to_string(outcome.exitStatus) + ", signal " + std::to_string(outcome.signal) +
                             ", " + host::quoted(outcome.out) + ", " + host::quoted(outcome.err));
    }
    return outcome;
  }

  void note(const std::string& what, bool succeeded, const std::string& subject, const std::string& value) {
    write({0, 0, what, succeeded ? "" : "failed", subject, value});
  }

  void expect(bool holds, const std::string& claim, const std::string& seen) {
    if (!holds) problem(claim, host::quoted(seen));
  }

  void finish() { host::writeFile(kNotes + std::to_string(number_), notes_.str()); }

 private:
  // Returns true for a status code that a change may return if another process was faster: files that have disappeared,
  // "application error", "profile not found", "invalid argument" for a name that another profile has taken, directories
  // in use. It also allows the code of a daemon start without an init system. The codes lack their leading 1.
  static bool isKnown(const std::string& code) {
    constexpr const char* codes[] = {"0000003", "2000001", "2001001", "4000004", "4000005",
                                     "4000006", "4000007", "400000e", "4000010", "6001001"};
    return std::find(std::begin(codes), std::end(codes), code) != std::end(codes);
  }

  void problem(const std::string& what, const std::string& seen) { write({0, 0, "problem", "", what, seen}); }

  void write(const Note& note) {
    notes_ << note.began << '\t' << note.ended << '\t' << note.what << '\t'
           << (note.failure.empty() ? "-" : note.failure) << '\t' << note.subject << '\t' << note.value << '\n';
  }

  const int number_;
  std::mt19937 random_;
  int texts_ = 0;
  std::ostringstream notes_;
};

std::vector<Note> notesOf(int number) {
  std::vector<Note> notes;
  for (const std::string& line : linesOf(host::readFile(kNotes + std::to_string(number)))) {
    std::istringstream parts(line);
    std::string began;
    std::string ended;
    Note note;
    for (std::string* part : {&began, &ended, &note.what, &note.failure, &note.subject, &note.value})
      std::getline(parts, *part, '\t');
    note.began = std::stoll(began);
    note.ended = std::stoll(ended);
    notes.push_back(note);
  }
  return notes;
}

using Notes = std::vector<std::vector<Note>>;  // one list for each process

// Forks processes, releases them at the same moment, waits for all and returns their notes.
template <typename Work>
Notes runTogether(unsigned seed, Work work, int processes = kProcesses) {
  int gate[2];
  EXPECT_EQ(::pipe(gate), 0);
  std::vector<pid_t> children;
  for (int number = 0; number < processes; ++number) {
    const pid_t child = ::fork();
    if (child != 0) {
      children.push_back(child);
      continue;
    }
    int end = 1;
    try {
      char none = 0;
      ::close(gate[1]);
      end = ::read(gate[0], &none, 1) == 0 ? 0 : 1;
      Actor actor(number, seed);
      work(actor);
      actor.finish();
    } catch (const std::exception& problem) {
      std::cerr << problem.what() << std::endl;
      end = 1;
    }
    ::_exit(end);
  }
  ::close(gate[0]);
  ::close(gate[1]);
  Notes notes;
  for (int number = 0; number < processes; ++number) {
    int status = 0;
    EXPECT_EQ(::waitpid(children[static_cast<size_t>(number)], &status, 0), children[static_cast<size_t>(number)]);
    EXPECT_EQ(status, 0) << "process " << number;
    notes.push_back(notesOf(number));
  }
  return notes;
}

std::vector<std::string> problemsIn(const Notes& notes) {
  std::vector<std::string> problems;
  for (const auto& ofOne : notes) {
    for (const Note& note : ofOne)
      if (note.what == "problem") problems.push_back(note.subject + ": " + note.value);
  }
  return problems;
}

// --- The two checks that need the notes of all processes

// A directory belongs to its creator from the end of the create to the start of the delete. Returns each directory that
// belongs to two processes at the same time.
std::vector<std::string> sharedDirectories(const Notes& notes) {
  struct Time {
    long long from, to;
    int owner;
  };
  std::map<std::string, std::vector<Time>> times;
  for (int owner = 0; owner < static_cast<int>(notes.size()); ++owner) {
    for (const Note& note : notes[static_cast<size_t>(owner)]) {
      if (note.what == "profile create" && note.failure == "-") {
        times[note.subject].push_back({note.ended, std::numeric_limits<long long>::max(), owner});
      } else if (note.what == "profile delete") {
        for (Time& time : times[note.subject])
          if (time.owner == owner && time.from < note.began) time.to = std::min(time.to, note.began);
      }
    }
  }
  std::vector<std::string> shared;
  for (const auto& [dirname, all] : times) {
    for (size_t i = 0; i < all.size(); ++i) {
      for (size_t j = i + 1; j < all.size(); ++j) {
        if (all[i].from < all[j].to && all[j].from < all[i].to) shared.push_back(dirname);
      }
    }
  }
  return shared;
}

// Returns the last value that was written to each key. Each key is edited by one process only. A failed edit may or may
// not have changed the file, so a key whose last edit failed is left out. Subjects have the form "path key".
std::map<std::string, std::string> lastValues(const Notes& notes, const std::string& what) {
  std::map<std::string, std::string> values;
  for (const auto& ofOne : notes) {
    for (const Note& note : ofOne) {
      if (note.what != what || note.value.empty()) continue;
      values.erase(note.subject);
      if (note.failure == "-") values[note.subject] = note.value;
    }
  }
  return values;
}

std::vector<std::string> lostEdits(const std::map<std::string, std::string>& expected) {
  std::vector<std::string> lost;
  for (const auto& [subject, value] : expected) {
    const size_t blank = subject.find(' ');
    std::map<std::string, std::string> pairs = pairsOf(subject.substr(0, blank));
    const std::string& there = pairs[subject.substr(blank + 1)];
    if (there != value) lost.push_back(subject + ": " + value + " was written, " + there + " is in the file");
  }
  return lost;
}

// --- The two kinds of lock directory

constexpr const char* kLocks = "/tmp/lock";
constexpr uid_t kStranger = 65534;

enum class LockOwner { we, stranger };
constexpr LockOwner kLockOwners[] = {LockOwner::we, LockOwner::stranger};

// Makes the lock directory. In that of a stranger, a process of his removes every lock file as soon as he sees it.
class LockDirectory {
 public:
  explicit LockDirectory(LockOwner owner) {
    host::remove(kLocks);
    host::makeDirs(kLocks, owner == LockOwner::we ? 0755 : 01777);
    if (owner == LockOwner::we) return;
    if (host::hasOtherUsers()) host::giveTo(kStranger, kLocks);
    remover_ = ::fork();
    if (remover_ == 0) removeLockFiles();
  }
  ~LockDirectory() {
    if (remover_ < 0) return;
    int status = 0;
    (void)::kill(remover_, SIGKILL);
    EXPECT_EQ(::waitpid(remover_, &status, 0), remover_);
    EXPECT_TRUE(WIFSIGNALED(status)) << "the stranger's process did not work until the end";
  }
  LockDirectory(const LockDirectory&) = delete;
  LockDirectory& operator=(const LockDirectory&) = delete;

 private:
  [[noreturn]] static void removeLockFiles() {
    if (host::hasOtherUsers() && ::setuid(kStranger) != 0) ::_exit(1);
    for (;;) {
      for (const std::string& path : staleLocks(kLocks)) (void)::unlink(path.c_str());
      ::usleep(50);
    }
  }

  pid_t remover_ = -1;
};

const char* describe(LockOwner owner) {
  return owner == LockOwner::we ? "the lock directory is ours" : "a stranger removes the lock files";
}

// --- What the processes do

std::string sharedProfile(int number) { return "profile-" + std::to_string(number % (kProcesses / 2) + 1); }

// Each key of a shared profile is edited by one process, and each endbox.conf by two.
void editOwnKey(Actor& actor) {
  constexpr const char* levels[] = {"error", "warning", "info", "debug", "trace", "fatal"};
  const bool first = actor.number() < kProcesses / 2;
  const std::string key = first ? "activation_code" : "log_level";
  const std::string value = first ? actor.unique() : actor.anyOf(levels);
  const std::string dirname = sharedProfile(actor.number());
  actor.run({"profile", "modify", "dir=" + dirname, (first ? "invitation=" : "log_level=") + value},
            host::kProfiles + dirname + "/endbox.conf " + key, value);
}

// The profiles that one process has created. No other process changes them.
class OwnProfiles {
 public:
  explicit OwnProfiles(Actor* actor) : actor_(*actor) {}

  void create() {
    const std::string mark = actor_.unique();
    const Outcome made =
        actor_.run({"profile", "create", mark, "helmsor=" + mark + ":1", "network=" + mark, "invitation=" + mark});
    const std::string dirname = lineOf(made.out, "profile_dir=");
    if (!dirname.empty()) expectHolds(dirname, mark);
  }
  void rename() {
    // New names are longer or shorter than the present one.
    const std::string name = actor_.unique() + std::string(actor_.upTo(40), 'n');
    if (!marks_.empty()) actor_.run({"profile", "rename", "dir=" + any(), "new_name=" + name});
  }
  void modify() {
    if (marks_.empty()) return;
    const std::string dirname = any();
    const std::string mark = actor_.unique();
    const Outcome changed = actor_.run(
        {"profile", "modify", "dir=" + dirname, "helmsor=" + mark + ":1", "network=" + mark, "invitation=" + mark},
        dirname);
    expectHolds(dirname, lineOf(changed.out, "status_code: 0x1").empty() ? mark : marks_[dirname]);
  }
  void reset() {
    if (marks_.empty()) return;
    const std::string dirname = any();
    host::writeFile(host::kProfiles + dirname + "/peers", "p");
    actor_.run({"support", "reset", "dir=" + dirname}, dirname);
    actor_.expect(!host::exists(host::kProfiles + dirname + "/peers"), "reset removes peers", dirname);
  }
  void remove() {
    if (marks_.empty()) return;
    const std::string dirname = any();
    marks_.erase(dirname);
    actor_.run({"profile", "delete", "dir=" + dirname}, dirname);
  }

 private:
  std::string any() {
    auto at = marks_.begin();
    std::advance(at, actor_.upTo(static_cast<unsigned>(marks_.size()) - 1));
    return at->first;
  }

  // Checks that every file holds the text that we wrote last, and remembers it.
  void expectHolds(const std::string& dirname, const std::string& mark) {
    marks_[dirname] = mark;
    const std::string dir = host::kProfiles + dirname + "/";
    const std::string seen = pairsOf(dir + "mapconfig.static")["map_uri"] + " " +
                             pairsOf(dir + "hip.conf")["master_interface"] + " " +
                             pairsOf(dir + "endbox.conf")["activation_code"];
    actor_.expect(seen == "https://" + mark + ":1 " + mark + " " + mark, dirname + " holds what we wrote: " + mark,
                  seen);
  }

  Actor& actor_;
  std::map<std::string, std::string> marks_;
};

// Each process changes its own profiles, and its own key of a profile that it shares with another process.
void mindOwnBusiness(Actor& actor, int steps) {
  OwnProfiles own(&actor);
  constexpr void (OwnProfiles::*actions[])() = {&OwnProfiles::create, &OwnProfiles::create, &OwnProfiles::rename,
                                                &OwnProfiles::modify, &OwnProfiles::reset,  &OwnProfiles::remove};
  for (int step = 0; step < steps; ++step) {
    if (actor.upTo(2) == 0) {
      editOwnKey(actor);
    } else {
      (own.*actor.anyOf(actions))();
    }
  }
}

// Every process changes profiles of all processes. There are only two names for all of them.
void changeAnything(Actor& actor, int steps) {
  for (int step = 0; step < steps; ++step) {
    const std::string name = actor.upTo(1) == 0 ? "lab" : "harbour";
    const std::string text = actor.unique() + std::string(actor.upTo(40), 't');
    const Words commands[] = {
        {"profile", "create", name, "helmsor=" + text, "network=" + text, "invitation=" + text},
        {"profile", "create", name, "helmsor=" + text, "allow_rename=false"},
        {"profile", "rename", name, "new_name=" + text},
        {"profile", "rename", "", "new_name=" + name},
        {"profile", "modify", name, "helmsor=" + text + ":7", "log_level=debug"},
        {"profile", "modify", "", "network=" + text, "invitation=###"},
        {"profile", "activate", name, "sys=null"},
        {"support", "reset", name},
        {"profile", "delete", name},
        {"profile", "delete", ""},
        {"list", "profiles"},
        {"profile", "details", name},
    };
    actor.run(actor.anyOf(commands));
  }
}

std::vector<std::string> namesListed() {
  std::vector<std::string> names;
  for (const std::string& line : linesOf(runRavctl({"list", "profiles"}).out)) {
    const size_t tab = line.find('\t');
    if (tab != std::string::npos) names.push_back(line.substr(tab + 1));
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool hasSucceeded(const Outcome& outcome) {
  return outcome.exitStatus == 0 && lineOf(outcome.out, "status_code: 0x1").empty();
}

// A process that works until all others have finished asks allHaveFinished.
void sayFinished(const Actor& actor) { host::writeFile(kNotes + ("finished-" + std::to_string(actor.number())), ""); }
bool allHaveFinished(int processes) {
  int finished = 0;
  for (int number = 0; number < processes; ++number) {
    finished += host::exists(kNotes + ("finished-" + std::to_string(number))) ? 1 : 0;
  }
  return finished == processes;
}

// Lists the profiles until all others have finished, and expects that every listing succeeds.
void listUntilAllHaveFinished(Actor& actor, int others) {
  while (!allHaveFinished(others)) {
    const Outcome listed = actor.run({"list", "profiles"});
    actor.expect(hasSucceeded(listed), "the listing succeeds", listed.out);
  }
}

size_t countOf(const std::vector<Note>& notes, const std::string& what) {
  return static_cast<size_t>(
      std::count_if(notes.begin(), notes.end(), [&](const Note& note) { return note.what == what; }));
}

// A configuration file with one key for each editor at its start and a text of `size` bytes behind them.
class LargeFile {
 public:
  static constexpr int kEditors = 4;
  static constexpr const char* kPath = "/etc/zuv/profiles/hip.conf";

  explicit LargeFile(size_t size) {
    for (int line = 0; text_.size() < size; ++line) text_ += "line" + std::to_string(line) + "=the daemon's own\n";
    text_ += "end=here\n";
    std::string keys;
    for (int editor = 0; editor < kEditors; ++editor) keys += keyOf(editor) + "=none\n";
    host::writeFile(kPath, keys + text_);
  }

  static std::string keyOf(int editor) { return "key" + std::to_string(editor); }

  // Returns true if the file has all keys and the whole text behind them.
  bool isWhole(const std::string& content) const {
    size_t at = 0;
    for (int editor = 0; editor < kEditors; ++editor) {
      if (content.compare(at, 5, keyOf(editor) + "=") != 0) return false;
      at = content.find('\n', at) + 1;
    }
    return content.compare(at, std::string::npos, text_) == 0;
  }

  // Each editor changes its own key with `setKey`, and one more process reads the file all the time.
  template <typename SetKey>
  Notes editTogether(unsigned seed, int steps, SetKey setKey) const {
    const auto work = [&](Actor& actor) {
      if (actor.number() == kEditors) return readUntilAllHaveFinished(actor);
      const std::string key = keyOf(actor.number());
      for (int step = 0; step < steps; ++step) {
        const std::string value = actor.unique();
        const bool succeeded = setKey(key, value);
        actor.expect(succeeded, "the edit succeeds", key);
        actor.note("edit", succeeded, std::string(kPath) + " " + key, value);
      }
      sayFinished(actor);
    };
    for (int editor = 0; editor < kEditors; ++editor) host::remove(kNotes + ("finished-" + std::to_string(editor)));
    return runTogether(seed, work, kEditors + 1);
  }

 private:
  void readUntilAllHaveFinished(Actor& actor) const {
    while (!allHaveFinished(kEditors)) {
      const std::string content = host::readFile(kPath);
      actor.expect(isWhole(content), "a reader finds the whole file", content.substr(0, 100));
      actor.note("read", true, kPath, "");
    }
  }

  std::string text_;
};

// An editor as simple as possible, without a lock.
bool setKeyWithoutLocks(const std::string& key, const std::string& value) {
  std::string content = host::readFile(LargeFile::kPath);
  const size_t at = content.find(key + "=");
  if (at == std::string::npos) return false;
  content.replace(at, content.find('\n', at) - at, key + "=" + value);
  const std::string temporary = LargeFile::kPath + ("." + key);
  host::writeFile(temporary, content);
  return ::rename(temporary.c_str(), LargeFile::kPath) == 0;
}

class ManyAtOnce : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    host::makeDirs(kNotes);
    host::setMode(kLocks, 0755);
    host::writeFile(std::string(host::kFactory) + "/firmware_revision", "4.1.7\n");
    host::writeFile(std::string(host::kFactory) + "/hip.conf", "# template\nmode=fast\n");
    host::writeFile(std::string(host::kFactory) + "/ca-certs/root.pem", std::string(9000, 'c') + "\n");
    const char* given = std::getenv("RAVCTL_SEED");
    seed_ = given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : 2022;
  }

  // `steps` is the number of steps of each process.
  void ownBusiness(int steps) {
    std::cout << "seed " << seed_ << std::endl;
    for (int number = 0; number < kProcesses / 2; ++number)
      host::makeProfile(sharedProfile(number), "shared " + std::to_string(number));
    host::makeActive("profile-1");
    const Notes notes = runTogether(seed_, [&](Actor& actor) { mindOwnBusiness(actor, steps / kFewer); });
    const auto expected = lastValues(notes, "profile modify");
    EXPECT_GE(expected.size(), 8u) << "too few edits to prove anything";
    EXPECT_THAT(problemsIn(notes), IsEmpty());
    EXPECT_THAT(sharedDirectories(notes), IsEmpty());
    EXPECT_THAT(lostEdits(expected), IsEmpty());
    expectSoundStore();
  }

  void anything(int steps) {
    std::cout << "seed " << seed_ << std::endl;
    const LockDirectory locks(LockOwner::stranger);
    const Notes notes = runTogether(seed_, [&](Actor& actor) { changeAnything(actor, steps / kFewer); });
    EXPECT_THAT(problemsIn(notes), IsEmpty());
    expectSoundStore();
  }

  static void expectSoundStore() {
    EXPECT_THAT(flawsOfStore(), IsEmpty());
    EXPECT_THAT(staleLocks(), IsEmpty());
    const std::vector<std::string> names = namesListed();
    EXPECT_THAT(names, Not(IsEmpty()));
    EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end()) << "two profiles have the same name";
  }

  // Each process edits its own key in the same file, through the editor of the product.
  Notes editOneFile(int steps) {
    return runTogether(seed_, [&](Actor& actor) {
      const std::string key = "key" + std::to_string(actor.number());
      std::string last;
      bool succeeded = true;
      for (int step = 0; step < steps; ++step) {
        last = actor.unique();
        succeeded = ConfigLines::setKeys(kOneFile, {{key, last}}).isSuccess();
      }
      actor.note("edit", succeeded, std::string(kOneFile) + " " + key, last);
    });
  }

  // Four processes edit one large file, with each kind of lock directory.
  void editLargeFile(size_t size, int steps) {
    for (const LockOwner owner : kLockOwners) {
      SCOPED_TRACE(describe(owner));
      const LockDirectory locks(owner);
      const LargeFile file(size);
      const Notes notes = file.editTogether(seed_, steps, [](const std::string& key, const std::string& value) {
        return ConfigLines::setKeys(LargeFile::kPath, {{key, value}}).isSuccess();
      });
      EXPECT_THAT(problemsIn(notes), IsEmpty());
      const auto expected = lastValues(notes, "edit");
      EXPECT_EQ(expected.size(), static_cast<size_t>(LargeFile::kEditors));
      EXPECT_THAT(lostEdits(expected), IsEmpty());
      EXPECT_TRUE(file.isWhole(host::readFile(LargeFile::kPath)));
      EXPECT_GE(countOf(notes.back(), "read"), 1u);
      EXPECT_THAT(flawsOfStore(), IsEmpty());
      EXPECT_THAT(staleLocks(), IsEmpty());
      std::printf("%zu bytes, %d edits, read %zu times: %s\n", size, LargeFile::kEditors * steps,
                  countOf(notes.back(), "read"), describe(owner));
    }
  }

  // One process creates profiles while another one lists them.
  void createWhileListing(int creations) {
    host::makeProfile("profile-1", "stays");
    host::makeActive("profile-1");
    const auto work = [&](Actor& actor) {
      if (actor.number() == 1) return listUntilAllHaveFinished(actor, 1);
      for (int creation = 0; creation < creations; ++creation) {
        const std::string name = actor.unique();
        const Outcome made = actor.run({"profile", "create", name, "helmsor=h:1"}, "", name);
        actor.expect(hasSucceeded(made), "the create succeeds", made.out);
      }
      sayFinished(actor);
    };
    const Notes notes = runTogether(seed_, work, 2);
    EXPECT_THAT(problemsIn(notes), IsEmpty());
    EXPECT_GE(countOf(notes[1], "list profiles"), static_cast<size_t>(creations) / 10) << "too few listings";
    std::vector<std::string> lost;
    for (const Note& note : notes[0]) {
      const std::string name = host::readFile(host::kProfiles + note.subject + "/profile_name");
      if (name != note.value + "\n") lost.push_back(note.subject + ": " + note.value + " became " + name);
    }
    EXPECT_EQ(notes[0].size(), static_cast<size_t>(creations));
    EXPECT_THAT(lost, IsEmpty());
    std::printf("%d creations, %zu listings\n", creations, countOf(notes[1], "list profiles"));
  }

  // Three processes create and delete profiles of their own while one lists them.
  void createAndDeleteWhileListing(int steps) {
    constexpr int creators = 3;
    host::makeProfile("profile-1", "stays");
    host::makeActive("profile-1");
    const std::string before = host::tree("/etc/zuv");
    const auto work = [&](Actor& actor) {
      if (actor.number() == creators) return listUntilAllHaveFinished(actor, creators);
      for (int step = 0; step < steps; ++step) {
        const Outcome made = actor.run({"profile", "create", actor.unique(), "helmsor=h:1", "network=eth0"});
        actor.expect(hasSucceeded(made), "the create succeeds", made.out);
        const Outcome deleted = actor.run({"profile", "delete", "dir=" + lineOf(made.out, "profile_dir=")});
        actor.expect(hasSucceeded(deleted), "the delete succeeds", deleted.out);
      }
      sayFinished(actor);
    };
    const Notes notes = runTogether(seed_, work, creators + 1);
    EXPECT_THAT(problemsIn(notes), IsEmpty());
    EXPECT_GE(countOf(notes.back(), "list profiles"), static_cast<size_t>(steps) / 10) << "too few listings";
    EXPECT_EQ(host::tree("/etc/zuv"), before) << "a delete left something";
    std::printf("%d creations and deletions, %zu listings\n", creators * steps, countOf(notes.back(), "list profiles"));
  }

  static constexpr const char* kOneFile = "/etc/zuv/profiles/hip.conf";
  unsigned seed_ = 0;
};

TEST_F(ManyAtOnce, AnEmptyFileIsAFlawUnlessADeleteHasMovedItAway) {
  const std::string name = "/firmware_revision";
  host::writeFile(host::kProfiles + (".deleted-4" + name), "");
  EXPECT_THAT(flawsOfStore(), IsEmpty());
  host::writeFile(host::kProfiles + (".deleted-4" + name), "4.");
  host::writeFile(host::kProfiles + ("profile-4" + name), "");
  EXPECT_EQ(flawsOfStore().size(), 2u);
}

TEST_F(ManyAtOnce, EachProcessFindsItsProfilesAndKeysUnchangedByOthers) { ownBusiness(60); }

TEST_F(ManyAtOnce, TheStoreStaysSoundWhenManyProcessesMakeRandomChanges) { anything(100); }

TEST_F(ManyAtOnce, NoEditIsLostWhenProcessesEditDifferentKeysOfOneFile) {
  for (const LockOwner owner : kLockOwners) {
    SCOPED_TRACE(describe(owner));
    const LockDirectory locks(owner);
    host::remove(kOneFile);
    const auto expected = lastValues(editOneFile(40), "edit");
    EXPECT_EQ(expected.size(), static_cast<size_t>(kProcesses));
    EXPECT_THAT(lostEdits(expected), IsEmpty());
    EXPECT_THAT(flawsOfStore(), IsEmpty());
    EXPECT_THAT(staleLocks(), IsEmpty());
  }
}

TEST_F(ManyAtOnce, ALargeFileWithFourEditorsIsNeverCutAndLosesNoEdit) { editLargeFile(300'000, 40 / kFewer); }

TEST_F(ManyAtOnce, NoNameIsLostWhenOneProcessCreatesAndAnotherLists) { createWhileListing(300 / kFewer); }

TEST_F(ManyAtOnce, NoListingFailsAndNoDirectoryRemainsWhenOthersCreateAndDelete) {
  createAndDeleteWhileListing(100 / kFewer);
}

// The texts differ in length, so that the test would see the end of a longer text, or a hole, after a shorter one.
TEST_F(ManyAtOnce, AFileThatAllProcessesReplaceIsComplete) {
  const std::string path = host::kProfiles + std::string("profile-1/profile_name");
  for (int round = 0; round < 20; ++round) {
    host::makeDirs(host::kProfiles + std::string("profile-1"));
    const Notes notes = runTogether(seed_ + static_cast<unsigned>(round), [&](Actor& actor) {
      for (int step = 0; step < 20; ++step) {
        const std::string text = actor.unique() + std::string(actor.upTo(200), 't');
        actor.expect(FileUtils::writeString(path, text, true).isSuccess(), "the write succeeds", text);
      }
    });
    EXPECT_THAT(problemsIn(notes), IsEmpty());
    EXPECT_THAT(flawsOfStore(), IsEmpty());
    host::remove(path);
  }
}

class ManyAtOnceLong : public ManyAtOnce {
 protected:
  void SetUp() override {
    ManyAtOnce::SetUp();
    if (std::getenv("RAVCTL_SEED") == nullptr) seed_ = std::random_device()();  // so that long runs differ
  }
};

TEST_F(ManyAtOnceLong, EachProcessFindsItsProfilesAndKeysUnchangedByOthers) { ownBusiness(400); }

TEST_F(ManyAtOnceLong, TheStoreStaysSoundWhenManyProcessesMakeRandomChanges) { anything(400); }

TEST_F(ManyAtOnceLong, NoListingFailsAndNoDirectoryRemainsWhenOthersCreateAndDelete) {
  createAndDeleteWhileListing(1000 / kFewer);
}

TEST_F(ManyAtOnceLong, ALargeFileWithFourEditorsIsNeverCutAndLosesNoEdit) { editLargeFile(7'000'000, 40 / kFewer); }

// --- The checks themselves detect faults

TEST_F(ManyAtOnce, EditsWithoutLocksAreDetected) {
  const LargeFile file(300'000);
  size_t lost = 0;
  for (int round = 0; round < 50 && lost == 0; ++round) {
    const Notes notes = file.editTogether(seed_, 20, setKeyWithoutLocks);
    lost = lostEdits(lastValues(notes, "edit")).size();
  }
  EXPECT_GT(lost, 0u);
  const std::string whole = host::readFile(LargeFile::kPath);
  EXPECT_FALSE(file.isWhole(whole.substr(0, whole.size() / 2)));
  EXPECT_FALSE(file.isWhole(whole.substr(whole.find('\n') + 1)));
}

// Where others may write in the lock directory, only the lock of the temporary file is left. A file system that has no
// locks takes that away too.
TEST_F(ManyAtOnce, WithoutTheLockOfTheTemporaryFileEditsCollide) {
  const LockDirectory locks(LockOwner::stranger);
  const LargeFile file(300'000);
  size_t collisions = 0;
  for (int round = 0; round < 50 && collisions == 0; ++round) {
    const Notes notes = file.editTogether(seed_, 20, [](const std::string& key, const std::string& value) {
      const ArmedFaults armed{FaultPlan{1, true, EOPNOTSUPP, {"flock"}}};
      return ConfigLines::setKeys(LargeFile::kPath, {{key, value}}).isSuccess();
    });
    collisions = problemsIn(notes).size();
  }
  EXPECT_GT(collisions, 0u);
}

TEST_F(ManyAtOnce, TwoCreatorsOfOneDirectoryAreDetected) {
  const auto note = [](const char* what, long long began, const char* dirname) {
    return Note{began, began + 1, std::string("profile ") + what, "-", dirname, ""};
  };
  const struct {
    const char* why;
    Notes notes;
    std::vector<std::string> shared;
  } cases[] = {
      {"deleted before", {{note("create", 1, "a"), note("delete", 5, "a")}, {note("create", 4, "a")}}, {}},
      {"deleted later", {{note("create", 1, "a"), note("delete", 9, "a")}, {note("create", 4, "a")}}, {"a"}},
      {"never deleted", {{note("create", 1, "a")}, {note("create", 4, "a")}}, {"a"}},
      {"another directory", {{note("create", 1, "a")}, {note("create", 4, "b")}}, {}},
  };
  for (const auto& c : cases) EXPECT_EQ(sharedDirectories(c.notes), c.shared) << c.why;
}

TEST_F(ManyAtOnce, EveryPlantedFlawIsDetected) {
  struct Case {
    const char* why;
    const char* path;
    std::string text;
  };
  const Case cases[] = {
      {"a name followed by the end of a longer name", "profile-1/profile_name", "ab\ngname\n"},
      {"a name with a hole", "profile-1/profile_name", std::string("ab\n\0\0\0", 6)},
      {"an empty name", "profile-1/profile_name", ""},
      {"an incomplete address", "profile-1/mapconfig.static", "map_uri=https://h"},
      {"no address", "profile-1/mapconfig.static", "x\n"},
      {"a repeated key", "profile-1/hip.conf", "a=1\na=2\n"},
      {"an incomplete line", "profile-1/endbox.conf", "a=1\nb"},
      {"zero bytes", "profile-1/endbox.conf", std::string("a=1\n\0\0\n", 7)},
      {"a temporary file", "profile-1/hip.conf.temp", "a=1\n"},
      {"an incomplete copy", "profile-1/ca-certs/root.pem", "ccc"},
      {"two lines in the marker", ".current", "profile-1\n1\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(host::kProfiles + std::string("profile-1"));
    host::makeProfile("profile-1", "lab");
    EXPECT_THAT(flawsOfStore(), IsEmpty());
    host::writeFile(host::kProfiles + std::string(c.path), c.text);
    EXPECT_EQ(flawsOfStore().size(), 1u);
  }
  EXPECT_THAT(staleLocks(), IsEmpty());
  host::writeFile("/tmp/lock/hip.conf.lock", "");
  EXPECT_THAT(staleLocks(), testing::ElementsAre("/tmp/lock/hip.conf.lock"));
}

}  // namespace
