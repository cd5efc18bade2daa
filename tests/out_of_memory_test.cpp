// Makes each allocation of an operation fail in turn. Either the operation returns an error status, or the process
// prints its out-of-memory message and exits. The disk is in a state that other failures can leave too.
//
// This program replaces the allocator. A scenario runs in a child process many times: once for each of its allocations
// with that one refused, and once with that one and all later ones refused.
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
#include "testing/run/Session.h"

namespace {

// --- The allocator

std::atomic<bool> isArmed{false};
std::atomic<size_t> allocations{0};
std::atomic<size_t> refused{0};
size_t refusedFrom = 0;  // the number of the first refused allocation, from 1; 0: none
size_t refusedTo = 0;    // the number of the last refused allocation

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
// glibc offers its allocator under these names to programs that replace malloc. glibc itself also calls ours.
extern "C" {
void* __libc_malloc(size_t size);                // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(size_t count, size_t size);  // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* block, size_t size);  // NOLINT(bugprone-reserved-identifier)

void* malloc(size_t size) noexcept { return isRefused() ? nullptr : __libc_malloc(size); }
void* calloc(size_t count, size_t size) noexcept { return isRefused() ? nullptr : __libc_calloc(count, size); }
void* realloc(void* block, size_t size) noexcept { return isRefused() ? nullptr : __libc_realloc(block, size); }
}
#else
// A sanitizer has its own malloc, so only operator new can be replaced. The functions are not inlined, so that the
// compiler does not optimise the pairs of new and delete away.
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
constexpr bool kIsSanitized = true;
constexpr size_t kStride = 7;  // a child takes ten times as long
#else
constexpr bool kIsSanitized = false;
constexpr size_t kStride = 1;
#endif

constexpr const char* kLastWord = "ravctl: out of memory\n";

// --- One run

struct Scenario {
  const char* why;
  size_t atLeast;                   // the least number of allocations that it makes
  std::function<void()> prepare;    // runs on an empty host
  std::function<bool()> operation;  // returns true if it succeeded with the right result
  const char* mayMiss = nullptr;    // a success may lack entries with this name
};

// The child sends it to the parent before it exits normally.
struct Report {
  bool succeeded = false;
  size_t allocations = 0;
  size_t refused = 0;
};

struct Run {
  Report report;
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

void prepare(const Scenario& scenario) {
  host::reset();
  host::setMode("/tmp/lock", 0755);  // in a lock directory where others may write, an edit takes no lock
  scenario.prepare();
}

// noexcept, because an exception must not continue in the copy of the test that the child is.
[[noreturn]] void runInChild(const Scenario& scenario, int reportTo) noexcept {
  prepareProcess();
  Report report;
  isArmed = true;
  report.succeeded = scenario.operation();
  isArmed = false;
  report.allocations = allocations;
  report.refused = refused;
  ::_exit(::write(reportTo, &report, sizeof report) == static_cast<ssize_t>(sizeof report) ? 0 : 99);
}

Run run(const Scenario& scenario, size_t from, size_t to) {
  prepare(scenario);
  Run result;
  const int report = memoryFile();
  const int out = memoryFile();
  const int err = memoryFile();
  const pid_t child = ::fork();
  if (child == 0) {
    refusedFrom = from;
    refusedTo = to;
    if (::dup2(out, 1) != 1 || ::dup2(err, 2) != 2) ::_exit(98);
    runInChild(scenario, report);
  }
  EXPECT_EQ(::waitpid(child, &result.status, 0), child);
  const std::string bytes = textOf(report);
  if (bytes.size() == sizeof result.report)
    std::copy_n(bytes.data(), bytes.size(), reinterpret_cast<char*>(&result.report));
  result.err = textOf(err);
  ::close(out);
  return result;
}

// --- Checking a run

Lines treeLines(const std::string& folder) {
  Lines lines;
  for (const std::string& line : linesOf(host::tree(folder))) lines.insert(folder + " " + line);
  return lines;
}

// Returns all files that a scenario can change. A command changes each file only once, so every file is old or new.
Lines disk() {
  Lines lines = treeLines("/etc/zuv");
  lines.merge(treeLines("/tmp"));
  return lines;
}

// Logs hold times, so no two runs leave the same logs. The check is only that all lines are complete.
constexpr const char* kLogs = "/run/logs/";

bool holdsHalfALine() {
  if (!host::exists(kLogs)) return false;
  for (const std::string& name : FileUtils::listDirectory(kLogs).files) {
    const std::string text = host::readFile(kLogs + name);
    if (!text.empty() && text.back() != '\n') return true;
  }
  return false;
}

// Returns a line for each entry that is neither as before nor as after, and for each missing entry that is the same
// before and after.
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
  if (status == 1 && run.err == kLastWord) return {};
  if (status != 0 || !run.err.empty()) return {"status " + std::to_string(status) + ", " + host::quoted(run.err)};
  if (!run.report.succeeded && run.report.refused == 0) return {"a failure without a reason"};
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

// Runs the scenario with these allocations refused and adds the result to the sweep. Returns true if the process exited
// normally.
bool judge(const Scenario& scenario, const Lines& after, size_t from, size_t to, Sweep* sweep) {
  prepare(scenario);
  const Lines before = disk();
  const Run faulted = run(scenario, from, to);
  std::vector<std::string> flaws = flawsOfEnd(faulted);
  const Lines now = disk();
  for (const std::string& flaw : flawsOfDisk(before, after, now)) flaws.push_back(flaw);
  if (flaws.empty() && faulted.status == 0 && faulted.report.succeeded && !isLike(after, now, scenario.mayMiss)) {
    flaws.push_back("a success that is none");
  }
  if (holdsHalfALine()) flaws.push_back("half a line");
  const std::string mode = from == to ? " alone" : " and all later ones";
  for (const std::string& flaw : flaws) {
    sweep->flaws.push_back(scenario.why + std::string(": allocation ") + std::to_string(from) + mode + ": " + flaw);
  }
  if (faulted.status != 0) {
    ++sweep->lastWords;
  } else if (faulted.report.refused != 0) {
    ++(faulted.report.succeeded ? sweep->successes : sweep->failures);
  }
  return faulted.status == 0;
}

Sweep sweep(const Scenario& scenario) {
  Sweep result;
  const Run whole = run(scenario, 0, 0);
  const Lines after = disk();
  result.allocations = whole.report.allocations;
  if (whole.status != 0 || !whole.report.succeeded) {
    result.flaws = {std::string(scenario.why) + ": does not work at all: " + whole.err};
    return result;
  }
  for (size_t number = 1; number <= result.allocations; number += kStride) {
    // If one refusal already ends the process, refusing more gives the same result, so only some of those runs follow.
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

// So large that the editor creates its temporary file while it still reads lines.
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
         lines.size() == 4;  // the fourth line is from the emitter itself
}

bool logThroughThread() {
  LogManager& log = LogManager::instance();
  if (!log.startOutputThread()) return false;
  BasicLog::Logger& logger = BasicLog::getLogger("memory");
  { const BasicLog::Entry entry(logger, BasicLog::Level::error, "message", "x.cpp", "f"); }
  log.stopOutputThread();
  log.flush();
  return true;
}

bool setTwoKeys(const std::string& first) {
  return ConfigLines::setKeys(kFile, {{first, "slow"}, {"new", "info"}}).isSuccess();
}

using namespace FileUtils;
const std::vector<Scenario> kLibraryScenarios = {
    {"parse and print a document", 8, [] {}, parseAndPrint},
    {"build a document and take it apart", 100, [] {}, buildAndTakeApart},
    {"read a key=value file", 8, fill, [] { return getKeyValue(kFile, "mode") == "fast"; }},
    {"set a key of a key=value file", 20, fill, [] { return setKeyValue(kFile, "mode", std::string(99, 's')); }},
    {"make a key=value file", 3, [] {}, [] { return setKeyValue(kFile, "mode", "slow"); }},
    {"replace the pairs of a key=value file", 10, fill,
     [] {
       return writeKeyValueFile(kFile, {{"mode", "slow"}, {"new", std::string(99, 'n')}}, '=');
     }},
    {"set keys of a small file", 8, fill, [] { return setTwoKeys("mode"); }},
    {"set keys of a large file", 10, fillLarge, [] { return setTwoKeys("key5"); }},
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

// The store for every command: it has three profiles, and one has no name yet.
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
            // Standard output is a file in this test.
            std::string out(1 << 16, '\0');
            const ssize_t length = ::pread(1, out.data(), out.size(), 0);
            out.resize(length > 0 ? static_cast<size_t>(length) : 0);
            return status == 0 && out.find("status_code: 0x1") == std::string::npos;
          }};
}

// The program creates a profile even if it cannot copy the certificates.
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
      command("json {\"method\":\"list\",\"a\":[1,{\"b\":2}]}", 5),
  };
}

class OutOfMemory : public HostTest {
 protected:
  // In sanitized builds the test sees fewer allocations and refuses fewer.
  static void expectNothingBreaks(const std::vector<Scenario>& scenarios) {
    size_t all = 0;
    for (const Scenario& scenario : scenarios) {
      const Sweep result = sweep(scenario);
      EXPECT_THAT(result.flaws, IsEmpty());
      if (!kIsSanitized) {
        EXPECT_GE(result.allocations, scenario.atLeast) << scenario.why;
      }
      all += result.allocations;
      std::printf("%5zu allocations, %5zu last words, %3zu failures, %3zu successes: %s\n", result.allocations,
                  result.lastWords, result.failures, result.successes, scenario.why);
    }
    std::printf("%5zu allocations in all\n", all);
  }
};

TEST_F(OutOfMemory, LibraryFunctionsReturnAnErrorOrReportOutOfMemory) { expectNothingBreaks(kLibraryScenarios); }

TEST_F(OutOfMemory, CommandsReturnAnErrorOrReportOutOfMemory) { expectNothingBreaks(commandScenarios()); }

// --- The checks themselves detect faults

std::string allocated() { return std::string(200, 'x'); }

// Fails like malloc: it returns null and calls no handler.
char* allocatedOrNull() {
  static char block[200];
  return isRefused() ? nullptr : block;
}

TEST_F(OutOfMemory, EveryPlantedFaultIsDetected) {
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
    EXPECT_THAT(result.flaws, Contains(HasSubstr(kIsSanitized ? "planted" : c.flaw)));
  }
}

// An allocation that fails in both modes ends the process with the out-of-memory message, which is no flaw.
TEST_F(OutOfMemory, ACorrectScenarioHasNoFlaw) {
  const Sweep result = sweep({"correct", 1, fill, [] { return !allocated().empty(); }});
  EXPECT_THAT(result.flaws, IsEmpty());
  EXPECT_EQ(result.allocations, 1u);
  EXPECT_EQ(result.lastWords, 2u);
}

}  // namespace
