// The model of an edit, model/edit.pml, makes the same system calls as the program, in the same order. The tracer
// records those of `profile modify`, and a simulation prints the steps of the model.
#include <fcntl.h>
#include <sys/syscall.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <utility>

#include "testing/faults/Tracer.h"
#include "testing/host/Places.h"
#include "testing/run/HostTest.h"

namespace {

using Steps = std::vector<std::string>;

const std::string kDirectory = "/etc/zuv/profiles/profile-1";
const std::string kFile = kDirectory + "/hip.conf";
const std::string kTemporary = kFile + ".temp";
const std::string kLockDirectory = "/tmp/lock";
const std::string kLock = kLockDirectory + "/hip.conf.lock";
constexpr const char* kSpin = "/usr/bin/spin";

struct World {
  const char* why;
  mode_t lockDirectory;
  bool hasLeftover;
  bool isDiskFull;
};

constexpr World kWorlds[] = {
    {"with the lock file", 0755, false, false},
    {"others may write in the lock directory", 01777, false, false},
    {"with the lock file, and a temporary file is left over", 0755, true, false},
    {"without the lock file, and a temporary file is left over", 01777, true, false},
    {"with the lock file, and a write fails", 0755, false, true},
    {"without the lock file, and a write fails", 01777, false, true},
};

// Returns what the model calls the file of a call; empty if the file has no part in an edit.
std::string subjectOf(const TracedCall& call) {
  // The tracer reports no path for it. Where it leads is seen in the result.
  if (call.name == "renameat") return "temporary file";
  std::string path = call.path;
  for (const std::string& end : {std::string(" (deleted)"), std::string("/.")}) {
    if (path.size() > end.size() && path.compare(path.size() - end.size(), end.size(), end) == 0)
      path.resize(path.size() - end.size());
  }
  const std::pair<std::string, const char*> subjects[] = {{kDirectory, "directory"},
                                                          {kFile, "file"},
                                                          {kTemporary, "temporary file"},
                                                          {kLockDirectory, "lock directory"},
                                                          {kLock, "lock file"}};
  for (const auto& [subject, name] : subjects) {
    if (path == subject) return name;
  }
  return "";
}

// The same step several times in a row counts as one: the model writes a file in two parts, and the program in as many
// as it needs.
void add(Steps& steps, const std::string& step) {
  if (steps.empty() || steps.back() != step) steps.push_back(step);
}

// `change` is one more definition for the model.
Steps stepsOfModel(const World& world, const std::string& change = "-DDEATHS=0") {
  const auto truth = [](bool is) { return is ? "true" : "false"; };
  Start start;
  start.folder = "/tmp";  // Spin writes a file where it runs, and removes it
  const Outcome simulated =
      runProgram({kSpin, "-T", "-B", "-DEDITORS=0", change,
                  std::string("-DDIRECTORY=") + (world.lockDirectory == 0755 ? "OURS" : "HIS"),
                  std::string("-DHAS_LEFTOVER=") + truth(world.hasLeftover),
                  std::string("-DIS_DISK_FULL=") + truth(world.isDiskFull), places::source() + "/model/edit.pml"},
                 start);
  EXPECT_EQ(simulated.exitStatus, 0) << simulated.out << simulated.err;
  Steps steps;
  std::istringstream lines(simulated.out);
  for (std::string line; std::getline(lines, line);) add(steps, line);
  return steps;
}

void prepare(const World& world) {
  host::reset();
  host::makeProfile("profile-1", "lab");
  host::makeActive("profile-1");
  host::writeFile(kFile, "master_interface=eth0\n");
  if (world.hasLeftover) host::writeFile(kTemporary, "left over\n");
  host::setMode(kLockDirectory, world.lockDirectory);
}

// fstat(2) may be a newfstatat without a path.
bool isFstat(const SystemCall& call) {
  return call.number == SYS_newfstatat && (call.arguments[3] & AT_EMPTY_PATH) != 0;
}

// Other parts of the command have the same files open before and after the edit. The edit begins with the look at the
// lock directory, and ends when it closes its last directory.
Steps withinEdit(const Steps& steps) {
  const auto isEnd = [](const std::string& step) {
    return step == "close directory" || step == "close lock directory";
  };
  const auto begin = std::find(steps.begin(), steps.end(), "openat2 lock directory");
  const auto end = std::find_if(steps.rbegin(), std::make_reverse_iterator(begin), isEnd).base();
  return Steps(begin, end);
}

Steps stepsOfProgram(const World& world) {
  prepare(world);
  TracePlan plan;
  plan.keepCalls = true;
  plan.meddling.error = ENOSPC;
  plan.environment = {"PATH=/usr/bin:/usr/sbin", "ASAN_OPTIONS=detect_leaks=0"};
  std::vector<bool> areFstat;
  bool isEditing = false;
  plan.atEachCall = [&](const SystemCall& call) {
    areFstat.push_back(isFstat(call));
    isEditing = isEditing || call.number == SYS_flock;
    const bool isWrite = isEditing && call.number == SYS_write && call.arguments[0] > 2;
    return world.isDiskFull && isWrite ? Meddling::fail : Meddling::none;
  };
  const TraceResult result = traceProgram({ravctlPath(), "profile", "modify", "lab", "network=eth1"}, plan);
  EXPECT_EQ(result.meddled > 0, world.isDiskFull);
  Steps steps;
  for (const TracedCall& call : result.calls) {
    const std::string subject = subjectOf(call);
    if (!subject.empty()) add(steps, (areFstat.at(call.number - 1) ? "fstat" : call.name) + " " + subject);
  }
  return withinEdit(steps);
}

class ModelTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    if (!whyNoTracing().empty()) GTEST_SKIP() << whyNoTracing();
    if (!host::exists(kSpin)) GTEST_SKIP() << kSpin << " is not installed";
  }
};

TEST_F(ModelTest, TheStepsOfTheModelAreTheSystemCallsOfTheProgramInOrder) {
  for (const World& world : kWorlds) {
    SCOPED_TRACE(world.why);
    EXPECT_EQ(stepsOfProgram(world), stepsOfModel(world));
    EXPECT_EQ(host::readFile(kFile), world.isDiskFull ? "master_interface=eth0\n" : "master_interface=eth1\n");
    EXPECT_FALSE(host::exists(kTemporary));
  }
}

TEST_F(ModelTest, AModelWithAnotherOrderOrWithoutAStepDiffersFromTheProgram) {
  const World world = {"with the lock file, and a temporary file is left over", 0755, true, false};
  const Steps steps = stepsOfProgram(world);
  EXPECT_EQ(steps, stepsOfModel(world));
  EXPECT_NE(steps, stepsOfModel(world, "-DUNLINKS_LOCKED=false"));
  EXPECT_NE(steps, stepsOfModel(world, "-DLOOKS_AT_LEFTOVER=false"));
}

}  // namespace
