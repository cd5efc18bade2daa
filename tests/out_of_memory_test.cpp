// Every allocation of an operation is refused in turn: the operation fails with its status or the process ends with its
// last word, and what is on the disk is as after any other failure.
//
// This program has an allocator of its own. A scenario runs in a child process, once for each of its allocations with
// that one refused, and once more with every one refused from there on.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <new>
#include <set>
#include <sstream>

#include "base/files/CopyFile.h"
#include "base/files/DirectoryListing.h"
#include "base/files/KeyValueFile.h"
#include "base/files/RemoveTree.h"
#include "base/files/WholeFile.h"
#include "base/system/Process.h"
#include "command/entry/Entry.h"
#include "json/JsonParser.h"
#include "json/JsonWriter.h"
#include "log/output/EmitterFactory.h"
#include "log/output/LogManager.h"
#include "profiles/store/ConfigLines.h"
#include "testing/faults/StoreCheck.h"
#include "testing/run/HostTest.h"

namespace {

// --- The allocator

std::atomic<bool> isArmed{false};
std::atomic<size_t> allocations{0};
std::atomic<size_t> refused{0};
size_t refusedFrom = 0;  // the number of the allocation, from 1; 0 for none
size_t refusedTo = 0;

bool isRefused() {
  if (!isArmed) return false;
  const size_t number = ++allocations;
  if (number < refusedFrom || number > refusedTo) return false;
  ++refused;
  errno = ENOMEM;
  return true;
}

}  // namespace

#ifndef RAVCTL_SANITIZED
// libc's own, by the names that it keeps for its replacements; it calls ours from within itself, too.
extern "C" {
void* __libc_malloc(size_t size);                // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(size_t count, size_t size);  // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* block, size_t size);  // NOLINT(bugprone-reserved-identifier)

void* malloc(size_t size) noexcept { return isRefused() ? nullptr : __libc_malloc(size); }
void* calloc(size_t count, size_t size) noexcept { return isRefused() ? nullptr : __libc_calloc(count, size); }
void* realloc(void* block, size_t size) noexcept { return isRefused() ? nullptr : __libc_realloc(block, size); }
}
#else
// Sanitizers have an allocator of their own; what is left to us is the operator above it. Out of line, so that the
// compiler does not see what they are made of.
[[gnu::noinline]] void* operator new(size_t size) {
  for (;;) {
    void* block = isRefused() ? nullptr : std::malloc(size);
    if (block != nullptr) return block;
    const std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) std::abort();
    handler();
  }
}
[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, size_t) noexcept { std::free(block); }
#endif

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using Lines = std::set<std::string>;

#ifdef RAVCTL_SANITIZED
constexpr bool isSanitized = true;
constexpr size_t stride = 7;  // a child takes ten times as long
#else
constexpr bool isSanitized = false;
constexpr size_t stride = 1;
#endif

constexpr const char* lastWord = "ravctl: out of memory\n";

// --- One run

struct Scenario {
  const char* why;
  size_t atLeast;                   // allocations that it makes, at the least
  std::function<void()> prepare;    // on an empty host
  std::function<bool()> operation;  // whether it succeeded, and the result was right
  const char* mayMiss = nullptr;    // entries of such a name are not missed by a success
};

// What the child tells before it ends in order.
struct Told {
  bool succeeded = false;
  size_t allocations = 0;
  size_t refused = 0;
};

struct Run {
  Told told;
  int status = 0;  // as of waitpid
  std::string err;
};

int memoryFile() { return ::memfd_create("memory", MFD_CLOEXEC); }

std::string textOf(int fd) {
  std::string text(static_cast<size_t>(::lseek(fd, 0, SEEK_END)), '\0');
  EXPECT_EQ(::pread(fd, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
  ::close(fd);
  return text;
}

// An exception must not find its way into the test that we are a copy of.
[[noreturn]] void runInChild(const Scenario& scenario, int tellTo) noexcept {
  prepareProcess();
  Told told;
  isArmed = true;
  told.succeeded = scenario.operation();
  isArmed = false;
  told.allocations = allocations;
  told.refused = refused;
  ::_exit(::write(tellTo, &told, sizeof told) == static_cast<ssize_t>(sizeof told) ? 0 : 99);
}

Run run(const Scenario& scenario, size_t from, size_t to) {
  host::reset();
  scenario.prepare();
  Run result;
  const int told = memoryFile();
  const int out = memoryFile();
  const int err = memoryFile();
  const pid_t child = ::fork();
  if (child == 0) {
    refusedFrom = from;
    refusedTo = to;
    if (::dup2(out, 1) != 1 || ::dup2(err, 2) != 2) ::_exit(98);
    runInChild(scenario, told);
  }
  EXPECT_EQ(::waitpid(child, &result.status, 0), child);
  const std::string bytes = textOf(told);
  if (bytes.size() == sizeof result.told)
    std::copy_n(bytes.data(), bytes.size(), reinterpret_cast<char*>(&result.told));
  result.err = textOf(err);
  ::close(out);
  return result;
}

// --- The verdict on a run

Lines treeLines(const std::string& folder) {
  std::istringstream text(host::tree(folder));
  Lines lines;
  for (std::string line; std::getline(text, line);) lines.insert(folder + " " + line);
  return lines;
}

// All that a scenario can change. A command changes each file once, so that there is nothing between old and new.
Lines disk() {
  Lines lines = treeLines("/etc/zuv");
  lines.merge(treeLines("/tmp"));
  return lines;
}

// Logs hold times, so that no two runs leave the same: of them it is asked that their lines are whole.
constexpr const char* kLogs = "/run/logs/";

bool holdsHalfALine() {
  if (!host::exists(kLogs)) return false;
  for (const std::string& name : FileUtils::listDirectory(kLogs).files) {
    const std::string text = host::readFile(kLogs + name);
    if (!text.empty() && text.back() != '\n') return true;
  }
  return false;
}

// Every entry is as before or as after, and what is the same before and after is still there.
std::vector<std::string> flawsOfDisk(const Lines& before, const Lines& after, const Lines& now) {
  std::vector<std::string> flaws;
  for (const std::string& line : now)
    if (before.count(line) == 0 && after.count(line) == 0) flaws.push_back("neither old nor new: " + line);
  for (const std::string& line : before)
    if (after.count(line) != 0 && now.count(line) == 0) flaws.push_back("gone: " + line);
  return flaws;
}

std::vector<std::string> flawsOfEnd(const Run& run) {
  if (WIFSIGNALED(run.status)) return {"signal " + std::to_string(WTERMSIG(run.status)) + ", " + host::quoted(run.err)};
  const int status = WEXITSTATUS(run.status);
  if (status == 1 && run.err == lastWord) return {};
  if (status != 0 || !run.err.empty()) return {"status " + std::to_string(status) + ", " + host::quoted(run.err)};
  if (!run.told.succeeded && run.told.refused == 0) return {"a failure without a reason"};
  return {};
}

bool isLike(const Lines& after, const Lines& now, const char* mayMiss) {
  return std::all_of(after.begin(), after.end(), [&](const std::string& line) {
    return now.count(line) != 0 || (mayMiss != nullptr && line.find(mayMiss) != std::string::npos);
  });
}

struct Sweep {
  size_t allocations = 0;
  size_t lastWords = 0;
  size_t failures = 0;
  size_t successes = 0;  // although an allocation was refused
  std::vector<std::string> flaws;
};

// Whether the process survived.
bool judge(const Scenario& scenario, const Lines& after, size_t from, size_t to, Sweep* sweep) {
  host::reset();
  scenario.prepare();
  const Lines before = disk();
  const Run faulted = run(scenario, from, to);
  std::vector<std::string> flaws = flawsOfEnd(faulted);
  const Lines now = disk();
  for (const std::string& flaw : flawsOfDisk(before, after, now)) flaws.push_back(flaw);
  if (flaws.empty() && faulted.status == 0 && faulted.told.succeeded && !isLike(after, now, scenario.mayMiss)) {
    flaws.push_back("a success that is none");
  }
  if (holdsHalfALine()) flaws.push_back("half a line");
  const std::string mode = from == to ? " alone" : " and all later ones";
  for (const std::string& flaw : flaws) {
    sweep->flaws.push_back(scenario.why + std::string(": allocation ") + std::to_string(from) + mode + ": " + flaw);
  }
  if (faulted.status != 0) {
    ++sweep->lastWords;
  } else if (faulted.told.refused != 0) {
    ++(faulted.told.succeeded ? sweep->successes : sweep->failures);
  }
  return faulted.status == 0;
}

Sweep sweep(const Scenario& scenario) {
  Sweep result;
  const Run whole = run(scenario, 0, 0);
  const Lines after = disk();
  result.allocations = whole.told.allocations;
  if (whole.status != 0 || !whole.told.succeeded) {
    result.flaws = {std::string(scenario.why) + ": does not work at all: " + whole.err};
    return result;
  }
  for (size_t number = 1; number <= result.allocations; number += stride) {
    // One that has ended at the first refusal will do so again.
    if (judge(scenario, after, number, number, &result) || number % 10 == 1) {
      judge(scenario, after, number, static_cast<size_t>(-1), &result);
    }
  }
  return result;
}

// --- Scenarios

constexpr const char* kFile = "/tmp/file.conf";
const std::string kDocument =
    R"({"method":"profile modify","list":[1,2.5,"three",null,true,{"a":[[],{}],"b":"\n\t\u0041"}],)"
    R"("a long name that fits into no small buffer":"a long text that fits into no small buffer either"})";

std::string printed(const std::string& text) {
  const ScopedJson first(json::parse(text.c_str(), static_cast<std::ptrdiff_t>(text.size())));
  std::string once;
  json::write(once, first.get());
  return once;
}

bool parseAndPrint() {
  static const std::string expected =
      R"({ "method":"profile modify", "list":[ 1, 2.500000, "three", null, true, { "a":[ [ ], { } ], "b":"\n\t?0041" } ], )"
      R"("a long name that fits into no small buffer":"a long text that fits into no small buffer either" })";
  return printed(kDocument) == expected;
}

bool buildAndTakeApart() {
  const ScopedJson document(json::makeObject());
  for (int i = 0; i < 100; ++i) {
    const std::string name = "member " + std::to_string(i);
    jsObject* list = json::makeArray();
    for (int n = 0; n < i; ++n) json::append(list, json::makeNumber(n * 0.25));
    json::setMember(document.get(), name, list);
    json::setText(document.get(), "text " + name, name);
  }
  for (int i = 0; i < 100; i += 2) json::setMember(document.get(), "member " + std::to_string(i), nullptr);
  return json::memberCount(document.get()) == 150;
}

void fill() {
  host::writeFile(kFile, "# a comment\nmode = fast\nname='a value that fits into no small buffer'  # why\n");
  host::writeFile("/tmp/tree/deep/deeper/file", std::string(9000, 'x'));
  host::makeLink("/tmp/tree/deep/link", kFile);
  host::writeFile("/tmp/tree/a name that fits into no small buffer", "x");
}

// Large enough for the temporary file to be there while lines are still read.
void fillLarge() {
  std::string text;
  for (int i = 0; i < 9000; ++i) text += "key" + std::to_string(i) + "=value\n";
  host::writeFile(kFile, text);
}

bool logThroughQueueAndFile() {
  LogManager& log = LogManager::instance();
  const std::unique_ptr<zuvsvc::Actor> actor = EmitterFactory().create({"file_emitter", "files"});
  if (!actor) return false;
  actor->setConfig("interval", "1 day");
  actor->setConfig("prefix", "x-");
  actor->setConfig("dir", kLogs);
  if (!actor->verifyConfig() || !actor->startup()) return false;
  log.addEmitter(actor->interfaceOf<BasicLog::Emitter>());
  BasicLog::Logger& logger = BasicLog::getLogger("memory");
  for (int i = 0; i < 3; ++i) {
    BasicLog::Entry entry(logger, BasicLog::Level::error, "a message that fits into no small buffer", "x.cpp", "f");
    entry.add("key", "a value that fits into no small buffer");
  }
  log.flush();
  actor->shutdown();
  log.removeEmitter(actor->interfaceOf<BasicLog::Emitter>());
  const std::vector<std::string> files = FileUtils::listDirectory(kLogs).files;
  std::vector<std::string> lines;
  return files.size() == 1 && FileUtils::readLines(std::string(kLogs) + files.front(), lines).isSuccess() &&
         lines.size() == 4;  // the emitter tells of itself, too
}

bool logThroughThread() {
  LogManager& log = LogManager::instance();
  if (!log.startOutputThread()) return false;
  BasicLog::Logger& logger = BasicLog::getLogger("memory");
  { const BasicLog::Entry entry(logger, BasicLog::Level::error, "told", "x.cpp", "f"); }
  log.stopOutputThread();
  log.flush();
  return true;
}

std::vector<Scenario> libraryScenarios() {
  using namespace FileUtils;
  return {
      {"parse and print a document", 8, [] {}, parseAndPrint},
      {"build a document and take it apart", 100, [] {}, buildAndTakeApart},
      {"read a key=value file", 8, fill, [] { return getKeyValue(kFile, "mode") == "fast"; }},
      {"set a key of a key=value file", 20, fill, [] { return setKeyValue(kFile, "mode", std::string(99, 's')); }},
      {"make a key=value file", 3, [] {}, [] { return setKeyValue(kFile, "mode", "slow"); }},
      {"replace the pairs of a key=value file", 10, fill,
       [] {
         return writeKeyValueFile(kFile, {{"mode", "slow"}, {"new", std::string(99, 'n')}}, '=');
       }},
      {"set keys of a small file", 8, fill,
       [] {
         return ConfigLines::setKeys(kFile, {{"mode", "slow"}, {"level", "info"}}).isSuccess();
       }},
      {"set keys of a large file", 10, fillLarge,
       [] {
         return ConfigLines::setKeys(kFile, {{"key5", "slow"}, {"new", "info"}}).isSuccess();
       }},
      {"remove a key", 4, fillLarge, [] { return ConfigLines::removeKey(kFile, "key700").isSuccess(); }},
      {"read and write lines", 8, fill,
       [] {
         std::vector<std::string> lines;
         return readLines(kFile, lines).isSuccess() && lines.size() == 3 &&
                writeLines("/tmp/a name that fits into no small buffer", lines).isSuccess();
       }},
      {"read a whole file and write it", 2, fill,
       [] {
         std::string bytes;
         return readFile(kFile, bytes).isSuccess() && writeString("/tmp/new", bytes, true).isSuccess();
       }},
      {"list a directory", 4, fill,
       [] {
         const DirectoryListing listing = listDirectory("/tmp/tree");
         return listing.status.isSuccess() && listing.directories.size() == 1 && listing.files.size() == 1;
       }},
      {"copy a file", 1, fill,
       [] { return copyFile("/tmp/tree/deep/deeper/file", "/tmp/a name that fits into no small buffer").isSuccess(); }},
      {"remove a tree", 6, fill, [] { return removeTree("/tmp/tree").isSuccess(); }},
      {"log through the queue into a file", 20, [] {}, logThroughQueueAndFile},
      {"log through the output thread", 8, [] {}, logThroughThread},
  };
}

// The store of every command: three profiles, of which one has no name yet.
void fillStore() {
  const std::string root = host::kProfiles;
  host::writeFile(root + ".factory/firmware_revision", "4.1.7\n");
  host::writeFile(root + ".factory/ca-certs/root.pem", std::string(5000, 'c'));
  host::makeProfile("profile-1", "lab");
  host::makeProfile("profile-2", "lab");
  host::makeDirs(root + "profile-3");
  host::writeFile(root + "profile-1/endbox.conf", "device_ip=10.0.0.1\nlog_level=info\nactivation_code=a\n");
  host::writeFile(root + "profile-1/mapconfig.static", "map_uri=https://old:1\n", 0640);
  host::writeFile(root + "profile-1/peers", "p");
  host::writeFile(root + "profile-1/hip.log", "2024 [INFO] one\n2024 [ERROR] two\n");
  host::makeActive("profile-1");
  host::installScript("/usr/bin/systemctl", "exit 0\n");
}

Scenario command(const char* line, size_t atLeast) {
  std::istringstream text(line);
  auto words = std::make_shared<std::vector<std::string>>(1, "ravctl");
  for (std::string word; text >> word;) words->push_back(word);
  auto argv = std::make_shared<std::vector<char*>>();
  for (std::string& word : *words) argv->push_back(word.data());
  argv->push_back(nullptr);
  return {line, atLeast, fillStore, [words, argv] {
            const int status = runRavctl(static_cast<int>(words->size()), argv->data());
            isArmed = false;
            // Standard output is a file here.
            std::string out(1 << 16, '\0');
            const ssize_t length = ::pread(1, out.data(), out.size(), 0);
            out.resize(length > 0 ? static_cast<size_t>(length) : 0);
            return status == 0 && out.find("status_code: 0x1") == std::string::npos;
          }};
}

// A profile without its certificates is made all the same.
Scenario createCommand() {
  Scenario create = command("profile create field helmsor=h:1 network=eth0 invitation=code", 40);
  create.mayMiss = "ca-certs/";
  return create;
}

std::vector<Scenario> commandScenarios() {
  return {
      command("", 0),
      command("help", 20),
      command("help profile create", 20),
      command("reference", 20),
      command("list profiles", 20),
      command("list profiles --verbose", 20),
      command("list versions", 10),
      command("list interfaces", 10),
      command("list log lab", 10),
      command("profile details lab", 20),
      createCommand(),
      command("profile rename lab new_name=harbour-with-a-name-that-fits-no-buffer", 20),
      command("profile modify lab helmsor=new:2 log_level=debug network=eth1 new_name=new", 40),
      command("profile modify lab invitation=new", 40),
      command("profile modify lab invitation=###", 40),
      command("profile activate lab#2 sys=systemctl", 20),
      command("profile delete lab", 20),
      command("support reset lab", 20),
      command("service status", 10),
      command("json {\"method\":\"list\",\"a\":[1,{\"b\":2}]}", 10),
  };
}

class OutOfMemory : public HostTest {
 protected:
  // In sanitized builds fewer are seen and fewer are refused.
  static void expectNothingBreaks(const std::vector<Scenario>& scenarios) {
    size_t all = 0;
    for (const Scenario& scenario : scenarios) {
      const Sweep result = sweep(scenario);
      EXPECT_THAT(result.flaws, IsEmpty());
      if (!isSanitized) {
        EXPECT_GE(result.allocations, scenario.atLeast) << scenario.why;
      }
      all += result.allocations;
      std::printf("%5zu allocations, %5zu last words, %3zu failures, %3zu successes: %s\n", result.allocations,
                  result.lastWords, result.failures, result.successes, scenario.why);
    }
    std::printf("%5zu allocations in all\n", all);
  }
};

TEST_F(OutOfMemory, TheLibrariesFailInOrderOrEndWithTheirLastWord) { expectNothingBreaks(libraryScenarios()); }

TEST_F(OutOfMemory, EveryCommandFailsInOrderOrEndsWithItsLastWord) { expectNothingBreaks(commandScenarios()); }

// --- The checks can fail

std::string allocated() { return std::string(200, 'x'); }

// As malloc does it: null, and no handler is called.
char* allocatedOrNull() {
  static char block[200];
  return isRefused() ? nullptr : block;
}

TEST_F(OutOfMemory, EveryPlantedFaultIsNoticed) {
  struct Case {
    const char* flaw;
    std::function<bool()> operation;
  };
  const Case cases[] = {
      {"signal 6",
       [] {
         std::set_new_handler(nullptr);
         return !allocated().empty();
       }},
      {"signal 11",
       [] {
         volatile char* const block = allocatedOrNull();
         *block = 'x';
         return true;
       }},
      {"neither old nor new: /tmp f 0644 file.conf \"new",
       [] {
         FILE* file = std::fopen(kFile, "w");
         (void)std::fputs("new", file);
         (void)std::fflush(file);
         const std::string rest = allocated();
         return std::fputs(rest.c_str(), file) >= 0 && std::fclose(file) == 0;
       }},
      {"gone: /tmp f 0644 file.conf",
       [] {
         (void)::rename(kFile, "/tmp/x");
         const std::string rest = allocated();
         return ::rename("/tmp/x", kFile) == 0 && !rest.empty();
       }},
      {"neither old nor new: /tmp f 0600 file.conf.temp",
       [] {
         const int fd = ::open("/tmp/file.conf.temp", O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
         const std::string rest = allocated();
         return ::close(fd) == 0 && ::unlink("/tmp/file.conf.temp") == 0 && !rest.empty();
       }},
      {"a success that is none", [] { return allocatedOrNull() == nullptr || ::truncate(kFile, 0) == 0; }},
      {"status 3",
       [] {
         if (allocatedOrNull() == nullptr) ::_exit(3);
         return true;
       }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.flaw);
    const Sweep result = sweep({"planted", 1, fill, c.operation});
    EXPECT_THAT(result.flaws, Contains(HasSubstr(isSanitized ? "planted" : c.flaw)));
  }
}

// A child that nobody refuses anything has no flaw.
TEST_F(OutOfMemory, AnHonestScenarioHasNoFlaw) {
  const Sweep result = sweep({"honest", 1, fill, [] { return !allocated().empty(); }});
  EXPECT_THAT(result.flaws, IsEmpty());
  EXPECT_EQ(result.allocations, 1u);
  EXPECT_EQ(result.lastWords, 2u);
}

}  // namespace
