// The torture test. It makes each system call of each command fail in turn, and kills each command before each call
// that changes the disk. docs/reliability.md lists the states that may remain; any other state fails the test.
//
// With RAVCTL_TORTURE=whole or RAVCTL_LONG in the environment it tries every errno that a call can return. Otherwise
// each call returns its most likely errno, and EINTR if it can.
#include <sys/syscall.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <set>

#include "Errnos.h"
#include "Verdict.h"
#include "command/entry/Catalogue.h"
#include "testing/run/HostTest.h"

namespace {

bool isWhole() {
  const char* form = std::getenv("RAVCTL_TORTURE");
  return (form != nullptr && std::string(form) == "whole") || std::getenv("RAVCTL_LONG") != nullptr;
}

// Lets the heap grow page by page, so that the program requests memory from the system as often as possible.
const std::vector<std::string> kEnvironment = {"PATH=/usr/bin:/usr/sbin", "GLIBC_TUNABLES=glibc.malloc.top_pad=0"};

using Meddle = TracePlan::Meddle;

std::string describe(const Meddle& meddle, const TracedCall& call) {
  static const char* const how[] = {"left alone", "fails", "is short", "kills", "is pretended", "crashes", "hangs"};
  std::string text = "call " + std::to_string(call.number) + ", " + call.name + " " + call.path + ", " +
                     how[static_cast<int>(meddle.how)];
  if (meddle.how == Meddling::fail) text += std::string(" with ") + ::strerrorname_np(meddle.error);
  return meddle.times > 1 ? text + " from there on" : text;
}

// Runs the program on the store of a scene.
class Workbench {
 public:
  explicit Workbench(Scene scene) : scene_(std::move(scene)) { reference_ = measure(scene_.store); }

  const Scene& scene() const { return scene_; }
  const Reference& reference() const { return reference_; }
  const std::vector<TracedCall>& calls() const { return reference_.result.calls; }

  std::size_t stepsOnDisk() const {
    std::size_t steps = 0;
    for (const TracedCall& call : calls()) steps += call.changesDisk ? 1 : 0;
    return steps;
  }

  Disturbed disturb(const Meddle& meddle) const {
    scene_.store.putBack();
    Disturbed run{meddle, trace(scene_.words, meddle), {}};
    run.found = Tree::read();
    return run;
  }

  // Runs the command on a store without any fault.
  Reference measure(const Tree& store) const {
    Reference run;
    run.before = store;
    store.putBack();
    run.result = trace(scene_.words, {}, true);
    run.after = Tree::read();
    return run;
  }

  static TraceResult trace(const std::vector<std::string>& words, const Meddle& meddle, bool keepCalls = false) {
    TracePlan plan;
    plan.begin = SYS_poll;
    plan.meddling = meddle;
    plan.keepCalls = keepCalls;
    plan.environment = kEnvironment;
    if (meddle.how == Meddling::hang) plan.seconds = 1;
    std::vector<std::string> all = {ravctlPath()};
    all.insert(all.end(), words.begin(), words.end());
    return traceProgram(all, plan);
  }

 private:
  const Scene scene_;
  Reference reference_;
};

std::vector<Meddle> faultsOf(const TracedCall& call) {
  std::vector<Meddle> faults;
  const ErrnoRow* row = findErrnos(call);
  if (row == nullptr) return faults;
  for (const int error : row->errors) {
    const bool passes =
        error == EINTR || error == EAGAIN;  // these errors are temporary, so they do not repeat for ever
    if (!isWhole() && error != row->errors.front() && error != EINTR) continue;
    faults.push_back({Meddling::fail, call.number, 1, error});
    faults.push_back({Meddling::fail, call.number, passes ? 5 : kFromThereOn, error});
  }
  if (call.isShortenable) {
    faults.push_back({Meddling::shorten, call.number, 1, 0});
    faults.push_back({Meddling::shorten, call.number, kFromThereOn, 0});
  }
  return faults;
}

class Torture : public HostTest, public testing::WithParamInterface<Scene> {
 protected:
  void SetUp() override {
    if (!RAVCTL_IS_RELEASE) GTEST_SKIP() << "only the release build is tortured";
    HostTest::SetUp();
    if (IsSkipped()) return;
    if (!whyNoTracing().empty()) GTEST_SKIP() << whyNoTracing();
    installTools();
  }

  // Reports each distinct problem once, with the first run that had it.
  void note(const Problems& problems, const std::string& what) {
    for (const std::string& problem : problems) {
      if (seen_.insert(problem).second) ADD_FAILURE() << problem << "\n  " << what;
    }
  }

 private:
  std::set<std::string> seen_;
};

std::string nameOf(const testing::TestParamInfo<Scene>& info) {
  std::string name = info.param.name;
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  return name;
}

// Prints a line of the figures in docs/reliability.md. Also appends it to the file that RAVCTL_TORTURE_FIGURES names.
void tell(const std::string& line) {
  std::printf("%s\n", line.c_str());
  if (const char* path = std::getenv("RAVCTL_TORTURE_FIGURES")) {
    std::ofstream(std::string(path), std::ios::app) << line + "\n";
  }
}

std::string numbers(std::initializer_list<std::size_t> figures) {
  std::string text;
  for (const std::size_t figure : figures) text += " | " + std::to_string(figure);
  return text;
}

// Returns true if the rows of the document with the name of this scene concern only this scene.
bool hasRowsOfItsOwn(const Scene& scene) {
  std::size_t scenes = 0;
  for (const Scene& other : allScenes()) scenes += other.command() == scene.name ? 1 : 0;
  return scenes < 2;
}

void expectRowsAreSeen(const Stated& stated, StatedTable table, const Scene& scene) {
  if (!hasRowsOfItsOwn(scene)) return;
  for (const std::string& row : stated.unused(table, scene.name)) ADD_FAILURE() << row;
}

// --- Faults

// Simulates a program that ignores errors: the chosen calls report success without being executed. Returns the number
// of such calls after which the verdict reports a problem.
struct Noticed {
  std::size_t byTheVerdict = 0;
  std::size_t byTheCommand = 0;  // it reports a failure that it does not report otherwise
};

template <typename Choose>
Noticed countNoticed(const Workbench& bench, Meddling how, Choose choose) {
  Noticed noticed;
  Stated stated;
  for (const TracedCall& call : bench.calls()) {
    if (!choose(call)) continue;
    const Disturbed run = bench.disturb({how, call.number, 1, 0});
    if (!problemsOfFault(bench.scene(), bench.reference(), run, &stated).empty()) ++noticed.byTheVerdict;
    const auto reportsFailure = [](const std::string& out) { return out.find("status_code: ") != std::string::npos; };
    if (reportsFailure(run.result.out) && !reportsFailure(bench.reference().result.out)) ++noticed.byTheCommand;
  }
  return noticed;
}

template <typename Choose>
std::size_t countSeen(const Workbench& bench, Meddling how, Choose choose) {
  return countNoticed(bench, how, choose).byTheVerdict;
}

// Proves that the verdict detects lost work, open descriptors and a crash.
void expectPlantedFaultsAreSeen(const Workbench& bench) {
  const bool changes = bench.stepsOnDisk() > 0;
  const auto losesWork = [&](const TracedCall& call) { return call.changesDisk || call.name == "write"; };
  const auto isClose = [](const TracedCall& call) { return call.name == "close"; };
  const auto isFirst = [](const TracedCall& call) { return call.number == 1; };
  const auto closes = std::count_if(bench.calls().begin(), bench.calls().end(), isClose);
  // A command that neither changes nor prints anything has no work to lose.
  if (changes || !bench.reference().result.out.empty()) {
    // A delete looks itself if the profile is gone from its place.
    const Noticed noticed = countNoticed(bench, Meddling::pretend, losesWork);
    EXPECT_GT(noticed.byTheVerdict + noticed.byTheCommand, 0u) << "lost work was not detected";
  }
  EXPECT_EQ(countSeen(bench, Meddling::pretend, isClose), static_cast<std::size_t>(closes))
      << "a descriptor left open was not detected";
  EXPECT_EQ(countSeen(bench, Meddling::crash, isFirst), 1u) << "a crash was not detected";
}

TEST_P(Torture, EveryFailedCallIsReportedAndLeavesADocumentedState) {
  const Workbench bench(GetParam());
  Stated stated;
  ASSERT_FALSE(bench.calls().empty());
  EXPECT_EQ(bench.calls().front().name, "poll") << "counting no longer starts at the first call of main";
  EXPECT_EQ(bench.reference().result.exitStatus, 0) << bench.reference().result.out;

  std::size_t faults = 0;
  for (const TracedCall& call : bench.calls()) {
    EXPECT_NE(findErrnos(call), nullptr) << "no row for " << call.name << ": which errors can it return?";
    for (const Meddle& fault : faultsOf(call)) {
      const Disturbed run = bench.disturb(fault);
      const std::string what = describe(fault, call);
      if (run.result.meddled == 0) {
        EXPECT_EQ(fault.how, Meddling::shorten) << what << ": the call was not made";
        continue;
      }
      EXPECT_EQ(run.result.meddledFirst.name, call.name) << what << ": the calls came in another order";
      ++faults;
      note(problemsOfFault(bench.scene(), bench.reference(), run, &stated), what);
    }
  }
  EXPECT_GE(faults, bench.stepsOnDisk());
  for (const StatedTable table : {StatedTable::faultFiles, StatedTable::faultOutput}) {
    expectRowsAreSeen(stated, table, GetParam());
  }
  expectPlantedFaultsAreSeen(bench);
  tell("faults | " + GetParam().name + numbers({bench.calls().size(), bench.stepsOnDisk(), faults}));
}

// --- Crashes

Problems problemsOfWorking(const std::vector<std::string>& words) {
  const TraceResult result = Workbench::trace(words, {});
  if (result.exitStatus == 0 && result.err.empty() && !isFailure(result)) return {};
  return {words[0] + " " + words[1] + " answers: " + result.out + result.err};
}

void append(Problems* all, const Problems& more) { all->insert(all->end(), more.begin(), more.end()); }

// Checks the store that a killed run has left behind, and the next commands on it.
Problems problemsOfStoreThere(const Workbench& bench, const Reference& again, Stated* stated) {
  Problems problems = problemsOfCrash(bench.scene(), bench.reference(), Tree::read(), stated);
  append(&problems, problemsOfWorking({"list", "profiles"}));
  append(&problems, problemsOfWorking({"profile", "details", "--active"}));
  Disturbed next{{}, Workbench::trace(bench.scene().words, {}), {}};
  next.found = Tree::read();
  append(&problems, problemsAfterCrash(bench.scene(), bench.reference(), again, next, stated));
  return problems;
}

// Proves that the checks detect a truncated file and a leftover temporary file.
void expectPlantedCrashesAreSeen(const Workbench& bench, const Reference& again) {
  Stated stated;
  const std::string conf = std::string(host::kProfiles) + "profile-3/hip.conf";
  Tree store = bench.scene().store;
  const Node* whole = store.find(conf);
  if (whole != nullptr) {
    store.addFile(conf, whole->content.substr(0, whole->content.size() / 2), whole->mode);
    store.putBack();
    EXPECT_FALSE(problemsOfStoreThere(bench, again, &stated).empty()) << "a truncated file was not detected";
  }
  store = bench.scene().store;
  store.addFile(std::string(host::kProfiles) + "profile-3/other.conf.temp", "");
  store.putBack();
  EXPECT_FALSE(problemsOfStoreThere(bench, again, &stated).empty()) << "a leftover file was not detected";
}

TEST_P(Torture, TheNextCommandsWorkAfterACrashBeforeAnyChangeOfTheDisk) {
  const Workbench bench(GetParam());
  const Reference again = bench.measure(bench.reference().after);
  Stated stated;
  std::size_t kills = 0;
  for (const TracedCall& call : bench.calls()) {
    if (!call.changesDisk) continue;
    const Meddle kill{Meddling::kill, call.number, 1, 0};
    const Disturbed run = bench.disturb(kill);
    EXPECT_EQ(run.result.signal, SIGKILL) << describe(kill, call);
    ++kills;
    note(problemsOfStoreThere(bench, again, &stated), describe(kill, call));
  }
  EXPECT_EQ(kills, bench.stepsOnDisk());
  expectRowsAreSeen(stated, StatedTable::crashFiles, GetParam());
  if (kills > 0) expectPlantedCrashesAreSeen(bench, again);
  tell("kills | " + GetParam().name + numbers({kills}));
}

INSTANTIATE_TEST_SUITE_P(Commands, Torture, testing::ValuesIn(allScenes()), nameOf);

// --- The checks themselves detect faults

class TortureItself : public Torture {};

TEST_P(TortureItself, ARunThatHangsIsDetected) {
  const Workbench bench(GetParam());
  Stated stated;
  const Disturbed run = bench.disturb({Meddling::hang, 2, 1, 0});
  EXPECT_EQ(problemsOfFault(bench.scene(), bench.reference(), run, &stated), Problems{"it did not end"});
}

INSTANTIATE_TEST_SUITE_P(Commands, TortureItself, testing::Values(allScenes().front()), nameOf);

TEST(TortureScenes, ContainEveryCommandOfTheCatalogue) {
  std::set<std::string> commands;
  for (const Scene& scene : allScenes()) commands.insert(scene.command());
  for (const CommandRow& row : commandTable()) EXPECT_EQ(commands.count(row.method), 1u) << row.method;
}

}  // namespace
