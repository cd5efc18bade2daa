// Every command, with every system call made to fail, one after the other, and with the program killed before every
// call that changes the disk. docs/reliability.md says what may remain; nothing else may.
//
// RAVCTL_TORTURE=whole, like RAVCTL_LONG, goes through every errno that a call can give; else each call gives its
// likeliest one, and EINTR where it can.
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

// A heap that grows page by page asks the system for memory where it would else have some in hand.
const std::vector<std::string> kEnvironment = {"PATH=/usr/bin:/usr/sbin", "GLIBC_TUNABLES=glibc.malloc.top_pad=0"};

using Meddle = TracePlan::Meddle;

std::string describe(const Meddle& meddle, const TracedCall& call) {
  static const char* const how[] = {"left alone", "fails", "is short", "kills", "is pretended", "crashes", "hangs"};
  std::string text = "call " + std::to_string(call.number) + ", " + call.name + " " + call.path + ", " +
                     how[static_cast<int>(meddle.how)];
  if (meddle.how == Meddling::fail) text += std::string(" with ") + ::strerrorname_np(meddle.error);
  return meddle.times > 1 ? text + " from there on" : text;
}

// The program at work on the store of a scene.
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

  // An undisturbed run on a store.
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
    const bool passes = error == EINTR || error == EAGAIN;  // lasts for a moment, never for ever
    if (!isWhole() && error != row->errors.front() && error != EINTR) continue;
    faults.push_back({Meddling::fail, call.number, 1, error});
    faults.push_back({Meddling::fail, call.number, passes ? 5 : fromThereOn, error});
  }
  if (call.isShortenable) {
    faults.push_back({Meddling::shorten, call.number, 1, 0});
    faults.push_back({Meddling::shorten, call.number, fromThereOn, 0});
  }
  return faults;
}

class Torture : public HostTest, public testing::WithParamInterface<Scene> {
 protected:
  void SetUp() override {
    if (!RAVCTL_IS_RELEASE) GTEST_SKIP() << "only the program that users get is tortured";
    HostTest::SetUp();
    if (IsSkipped()) return;
    if (!whyNoTracing().empty()) GTEST_SKIP() << whyNoTracing();
    installTools();
  }

  // Each distinct problem once, with the first run that had it.
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

// A line for the figures of docs/reliability.md, kept for whoever asked for them.
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

// Whether rows of the document that bear the name of this scene are about it alone.
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

// A program that does not look whether its calls worked is one whose calls only seem to work. Counts the calls of a
// kind whose pretence the verdict sees.
template <typename Choose>
std::size_t countSeen(const Workbench& bench, Meddling how, Choose choose) {
  std::size_t seen = 0;
  Stated stated;
  for (const TracedCall& call : bench.calls()) {
    if (!choose(call)) continue;
    const Disturbed run = bench.disturb({how, call.number, 1, 0});
    if (!problemsOfFault(bench.scene(), bench.reference(), run, &stated).empty()) ++seen;
  }
  return seen;
}

// What a sweep must see in the same run: lost work, descriptors left open, a crash.
void expectPlantedFaultsAreSeen(const Workbench& bench) {
  const bool changes = bench.stepsOnDisk() > 0;
  const auto losesWork = [&](const TracedCall& call) { return call.changesDisk || call.name == "write"; };
  const auto isClose = [](const TracedCall& call) { return call.name == "close"; };
  const auto isFirst = [](const TracedCall& call) { return call.number == 1; };
  const auto closes = std::count_if(bench.calls().begin(), bench.calls().end(), isClose);
  // A command that neither changes nor prints anything has no work of its own to lose.
  if (changes || !bench.reference().result.out.empty()) {
    EXPECT_GT(countSeen(bench, Meddling::pretend, losesWork), 0u) << "lost work was not seen";
  }
  EXPECT_EQ(countSeen(bench, Meddling::pretend, isClose), static_cast<std::size_t>(closes))
      << "a descriptor left open was not seen";
  EXPECT_EQ(countSeen(bench, Meddling::crash, isFirst), 1u) << "a crash was not seen";
}

TEST_P(Torture, EveryFailureIsSurvivedAndTold) {
  const Workbench bench(GetParam());
  Stated stated;
  ASSERT_FALSE(bench.calls().empty());
  EXPECT_EQ(bench.calls().front().name, "poll") << "calls are no longer counted from the first of main on";
  EXPECT_EQ(bench.reference().result.exitStatus, 0) << bench.reference().result.out;

  std::size_t faults = 0;
  for (const TracedCall& call : bench.calls()) {
    EXPECT_NE(findErrnos(call), nullptr) << "no row for " << call.name << ": what errors can it give?";
    for (const Meddle& fault : faultsOf(call)) {
      const Disturbed run = bench.disturb(fault);
      const std::string what = describe(fault, call);
      if (run.result.meddled == 0) {
        EXPECT_EQ(fault.how, Meddling::shorten) << what << ": was not made";
        continue;
      }
      EXPECT_EQ(run.result.meddledFirst.name, call.name) << what << ": calls came in another order";
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

// All that is looked at after a kill has left the store as it lies there.
Problems problemsOfStoreThere(const Workbench& bench, const Reference& again, Stated* stated) {
  Problems problems = problemsOfCrash(bench.scene(), bench.reference(), Tree::read(), stated);
  append(&problems, problemsOfWorking({"list", "profiles"}));
  append(&problems, problemsOfWorking({"profile", "details", "--active"}));
  Disturbed next{{}, Workbench::trace(bench.scene().words, {}), {}};
  next.found = Tree::read();
  append(&problems, problemsAfterCrash(bench.scene(), bench.reference(), again, next, stated));
  return problems;
}

// What a program would leave that wrote its files in place, or did not clear up after another.
void expectPlantedCrashesAreSeen(const Workbench& bench, const Reference& again) {
  Stated stated;
  const std::string conf = std::string(host::kProfiles) + "profile-3/hip.conf";
  Tree store = bench.scene().store;
  const Node* whole = store.find(conf);
  if (whole != nullptr) {
    store.addFile(conf, whole->content.substr(0, whole->content.size() / 2), whole->mode);
    store.putBack();
    EXPECT_FALSE(problemsOfStoreThere(bench, again, &stated).empty()) << "a file that was cut was not seen";
  }
  store = bench.scene().store;
  store.addFile(std::string(host::kProfiles) + "profile-3/other.conf.temp", "");
  store.putBack();
  EXPECT_FALSE(problemsOfStoreThere(bench, again, &stated).empty()) << "a file that was left was not seen";
}

TEST_P(Torture, ACrashBeforeAnyChangeOfTheDiskIsOvercome) {
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

// --- The sweeps themselves

class TortureItself : public Torture {};

TEST_P(TortureItself, ARunThatDoesNotEndIsSeen) {
  const Workbench bench(GetParam());
  Stated stated;
  const Disturbed run = bench.disturb({Meddling::hang, 2, 1, 0});
  EXPECT_EQ(problemsOfFault(bench.scene(), bench.reference(), run, &stated), Problems{"it did not end"});
}

INSTANTIATE_TEST_SUITE_P(Commands, TortureItself, testing::Values(allScenes().front()), nameOf);

TEST(TortureScenes, HaveEveryCommandOfTheCatalogue) {
  std::set<std::string> commands;
  for (const Scene& scene : allScenes()) commands.insert(scene.command());
  for (const CommandRow& row : commandTable()) EXPECT_EQ(commands.count(row.method), 1u) << row.method;
}

}  // namespace
