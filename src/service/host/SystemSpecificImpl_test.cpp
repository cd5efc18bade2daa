#include "service/host/SystemSpecificImpl.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "command/status/AppStatusCodes.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

extern char** environ;

namespace {

using Operation = void (SystemSpecificImpl::*)();

constexpr const char* kSystemdMarker = "/etc/zuv/.systemctl";
constexpr const char* kInitScript = "/etc/init.d/hip";
constexpr const char* kSystemctl = "/bin/systemctl";
constexpr const char* kKillall = "/usr/bin/killall";
constexpr const char* kInitctl = "/sbin/initctl";

class SystemSpecificImplTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    selectBackend("no such backend");
  }
};

// --- Detection

TEST_F(SystemSpecificImplTest, TheFirstExistingMarkerNamesTheInitSystem) {
  const auto expectDetected = [](const char* name, const char* why) {
    EXPECT_STREQ(detectBackendName(), name) << why;
    EXPECT_EQ(backendNameOrNull(), name != nullptr ? name : "null") << why;
    host::reset();
  };
  expectDetected(nullptr, "there is no marker");
  host::writeFile(kSystemdMarker, "");
  expectDetected("systemd", "the systemd marker");
  host::writeFile(kInitScript, "");
  expectDetected("initd", "the init script");
  host::writeFile(kInitScript, "");
  host::writeFile(kSystemdMarker, "");
  expectDetected("systemd", "the systemd marker comes first");
  host::makeDirs(kSystemdMarker);
  expectDetected("systemd", "a marker may be a folder");
  host::makeFifo(kInitScript);
  expectDetected("initd", "a marker may be a FIFO");
  host::makeLink(kSystemdMarker, "/nowhere");
  expectDetected(nullptr, "a link without a target is no marker");
}

// --- Selection

TEST_F(SystemSpecificImplTest, NamesAreComparedExactly) {
  struct Case {
    const char *why, *name, *selected;
  };
  const Case cases[] = {
      {"the null backend", "null", "null"},
      {"there is no launchd backend", "launchd", "null"},
      {"systemd", "systemd", "systemd"},
      {"init script", "initd", "initd"},
      {"Upstart", "upstart", "upstart"},
      {"a capital letter makes the name unknown", "Systemd", "systemd"},
      {"an unknown name selects nothing; systemd is the default", "openrc", "systemd"},
      {"the beginning of a name is unknown", "init", "systemd"},
      {"a blank behind a name makes it unknown", "initd ", "systemd"},
      {"no name changes nothing", nullptr, "initd"},
      {"an empty name changes nothing", "", "initd"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    selectBackend("initd");
    selectBackend(c.name);
    EXPECT_STREQ(currentBackend().name(), c.selected);
  }
}

TEST_F(SystemSpecificImplTest, SystemdIsTheDefaultBackend) {
  const SystemSpecificImpl* const selected = &currentBackend();
  EXPECT_STREQ(selected->name(), "systemd");
  EXPECT_EQ(&currentBackend(), selected);
}

TEST_F(SystemSpecificImplTest, ABackendStaysValidUntilAnotherNameIsSelected) {
  selectBackend("initd");
  const SystemSpecificImpl* const selected = &currentBackend();
  selectBackend("");
  selectBackend(nullptr);
  EXPECT_EQ(&currentBackend(), selected);
  EXPECT_STREQ(selected->name(), "initd");
}

// --- The tools

// Installs a tool that records how it was called. The tool is a copy of the shell, so it gets its argument vector
// unchanged from the kernel. It runs its first argument as a script: `script` must be the path of that argument in the
// working directory.
void installTool(const std::string& path, const std::string& script) {
  host::installScript(path, "");  // the host restores the displaced file later
  host::writeFile(path, host::readFile("/bin/dash"), 0755);
  host::writeFile(script,
                  "tr '\\0' '|' < /proc/$$/cmdline >> /tmp/arguments; echo >> /tmp/arguments\n"
                  "readlink /proc/$$/exe >> /tmp/arguments\n"
                  "cat /proc/$$/environ > /tmp/environment\n",
                  0755);
}

TEST_F(SystemSpecificImplTest, EachOperationRunsItsToolWithExactlyTheseArguments) {
  struct Case {
    const char* backend;
    Operation operation;
    const char *tool, *script, *arguments;
  };
  constexpr Operation start = &SystemSpecificImpl::start;
  constexpr Operation stop = &SystemSpecificImpl::stop;
  constexpr Operation restart = &SystemSpecificImpl::restart;
  const Case cases[] = {
      {"systemd", start, kSystemctl, "/tmp/start", "systemctl|start|hip|\n/usr/bin/systemctl\n"},
      {"systemd", stop, kSystemctl, "/tmp/stop", "systemctl|stop|hip|\n/usr/bin/systemctl\n"},
      {"systemd", restart, kSystemctl, "/tmp/restart", "systemctl|restart|hip|\n/usr/bin/systemctl\n"},
      {"initd", start, kInitScript, "/tmp/start", "hip|start|\n/etc/init.d/hip\n"},
      {"initd", stop, kKillall, "/usr/sbin/hip", "killall|/usr/sbin/hip|\n/usr/bin/killall\n"},
      {"initd", restart, kInitScript, "/tmp/restart", "hip|restart|\n/etc/init.d/hip\n"},
      {"upstart", start, kInitctl, "/tmp/start", "initctl|start|hip|\n/usr/sbin/initctl\n"},
      {"upstart", stop, kInitctl, "/tmp/stop", "initctl|stop|hip|\n/usr/sbin/initctl\n"},
      {"upstart", restart, kInitctl, "/tmp/restart", "initctl|restart|hip|\n/usr/sbin/initctl\n"},
      {"", start, kInitctl, "/tmp/start", "initctl|start|hip|\n/usr/sbin/initctl\n"},
      {"Systemd", start, kSystemctl, "/tmp/start", "systemctl|start|hip|\n/usr/bin/systemctl\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.backend) + " " + c.script);
    host::reset();
    ASSERT_EQ(::chdir("/tmp"), 0);
    installTool(c.tool, c.script);
    EXPECT_THAT(runBackendOperation(c.backend, c.operation), HasCode(status::success));
    EXPECT_EQ(host::readFile("/tmp/arguments"), c.arguments);
  }
}

TEST_F(SystemSpecificImplTest, TheToolGetsOurEnvironmentUnchanged) {
  ASSERT_EQ(::chdir("/tmp"), 0);
  installTool(kSystemctl, "/tmp/start");
  ::setenv("RAVCTL_TEST_VALUE", "kept = as\nit is", 1);
  std::string ours;
  for (char** entry = environ; *entry != nullptr; ++entry) ours += std::string(*entry) + '\0';
  EXPECT_THAT(runBackendOperation("systemd", &SystemSpecificImpl::start), HasCode(status::success));
  ::unsetenv("RAVCTL_TEST_VALUE");
  EXPECT_EQ(host::readFile("/tmp/environment"), ours);
}

TEST_F(SystemSpecificImplTest, ArgumentsEndAtTheFirstNullAndAreAtMostSix) {
  ASSERT_EQ(::chdir("/tmp"), 0);
  installTool("/tmp/tool", "/tmp/one");
  const pid_t six = ::fork();
  if (six == 0) executeTool("/tmp/tool", "name", "one", "", "three", "four", "five");
  EXPECT_EQ(waitForChild(six), 1000);
  const pid_t two = ::fork();
  if (two == 0) executeTool("/tmp/tool", "name", "one", nullptr, "three");
  EXPECT_EQ(waitForChild(two), 1000);
  EXPECT_EQ(host::readFile("/tmp/arguments"), "name|one||three|four|five|\n/tmp/tool\nname|one|\n/tmp/tool\n");
}

TEST_F(SystemSpecificImplTest, ToolsAreNotSearchedInPath) {
  host::installRecorder("/tmp/bin/systemctl", "/tmp/calls");
  const std::string path = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "";
  ::setenv("PATH", "/tmp/bin", 1);
  EXPECT_THAT(runBackendOperation("systemd", &SystemSpecificImpl::start), HasCode(status::childExitedNonzero));
  ::setenv("PATH", path.c_str(), 1);
  EXPECT_FALSE(host::exists("/tmp/calls"));
}

// --- The outcome of the child

TEST_F(SystemSpecificImplTest, TheExitStatusOrSignalOfTheToolDecidesTheStatus) {
  struct Case {
    const char *why, *script;
    StatusCode code;
  };
  const Case cases[] = {
      {"exit status 0", "exit 0", status::success},
      {"exit status 1", "exit 1", status::childExitedNonzero},
      {"exit status 3", "exit 3", status::childExitedNonzero},
      {"exit status 255", "exit 255", status::childExitedNonzero},
      {"signal 9", "kill -9 $$", status::childKilledBySignal},
      {"signal 15", "kill -15 $$", status::childKilledBySignal},
      {"signal 11", "ulimit -c 0; kill -11 $$", status::childKilledBySignal},
      {"a real-time signal", "kill -34 $$", status::childKilledBySignal},
      {"stopped and continued", "(sleep 0.1; kill -CONT $$) & kill -STOP $$; exit 0", status::success},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::installScript(kSystemctl, c.script);
    const Status s = runBackendOperation("systemd", &SystemSpecificImpl::start);
    EXPECT_THAT(s, HasCode(c.code));
    EXPECT_EQ(s.details(), "");
  }
}

int outcomeOf(void (*act)()) {
  const pid_t child = ::fork();
  if (child == 0) {
    act();
    ::_exit(0);
  }
  return waitForChild(child);
}

TEST_F(SystemSpecificImplTest, AToolThatCannotBeExecutedGivesExitStatus101) {
  const auto start = [] { SystemdSystem().start(); };
  EXPECT_EQ(outcomeOf(start), 1101) << "the tool is missing";
  host::writeFile(kSystemctl, "#!/bin/sh\n", 0644);
  EXPECT_EQ(outcomeOf(start), 1101) << "the tool is not executable";
  host::writeFile(kSystemctl, "exit 0\n", 0755);
  EXPECT_EQ(outcomeOf(start), 1101) << "the tool is a script without an interpreter line; no shell runs it";
  host::writeFile(kSystemctl, "#!/no/shell\n", 0755);
  EXPECT_EQ(outcomeOf(start), 1101) << "the interpreter is missing";
  host::remove(kSystemctl);
  host::makeDirs(kSystemctl);
  EXPECT_EQ(outcomeOf(start), 1101) << "the tool is a directory";
  EXPECT_THAT(runBackendOperation("systemd", &SystemSpecificImpl::start), HasCode(status::childExitedNonzero));
}

TEST_F(SystemSpecificImplTest, AMissingToolIsReportedAsANonzeroExit) {
  host::installScript(kKillall, "");  // the host restores the displaced file later
  host::remove(kKillall);
  for (const char* backend : {"systemd", "initd", "upstart", "null", "launchd"}) {
    for (const Operation operation :
         {&SystemSpecificImpl::start, &SystemSpecificImpl::stop, &SystemSpecificImpl::restart}) {
      EXPECT_THAT(runBackendOperation(backend, operation), HasCode(status::childExitedNonzero)) << backend;
    }
  }
}

TEST_F(SystemSpecificImplTest, TheNullBackendRunsNothingAndExitsWith101) {
  EXPECT_EQ(outcomeOf([] { NullSystem().start(); }), 1101);
  EXPECT_EQ(outcomeOf([] { NullSystem().stop(); }), 1101);
  EXPECT_EQ(outcomeOf([] { NullSystem().restart(); }), 1101);
}

void leaveATraceInTheChild() {
  static const pid_t parent = ::getpid();
  if (::getpid() != parent) host::writeFile("/tmp/exit-handler", "");
}

TEST_F(SystemSpecificImplTest, AChildWithoutItsToolRunsNoExitHandlersAndFlushesNothing) {
  ASSERT_EQ(std::atexit([] { leaveATraceInTheChild(); }), 0);
  leaveATraceInTheChild();
  std::FILE* const file = std::fopen("/tmp/buffered", "we");
  ASSERT_NE(file, nullptr);
  ASSERT_GE(std::fputs("once\n", file), 0);
  EXPECT_THAT(runBackendOperation("systemd", &SystemSpecificImpl::start), HasCode(status::childExitedNonzero));
  EXPECT_THAT(runBackendOperation("null", &SystemSpecificImpl::start), HasCode(status::childExitedNonzero));
  ASSERT_EQ(std::fclose(file), 0);
  EXPECT_EQ(host::readFile("/tmp/buffered"), "once\n");
  EXPECT_FALSE(host::exists("/tmp/exit-handler"));
}

TEST_F(SystemSpecificImplTest, AFailedForkOrWaitIsReportedAndAnInterruptedWaitRetried) {
  const struct {
    const char* why;
    std::size_t at;
    int error;
    StatusCode code;
    std::vector<std::string> calls;
  } cases[] = {
      {"nothing fails", 0, 0, status::childExitedNonzero, {"fork", "waitpid"}},
      {"the fork fails", 1, EAGAIN, status::forkError, {"fork"}},
      {"the wait fails", 2, ECHILD, status::waitpidError, {"fork", "waitpid"}},
      {"the wait is interrupted", 2, EINTR, status::childExitedNonzero, {"fork", "waitpid", "waitpid"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    host::installScript(kSystemctl, "echo called > /tmp/calls; exit 3");
    FaultPlan plan;
    plan.at = c.at;
    plan.error = c.error;
    {
      const ArmedFaults armed(plan);
      EXPECT_THAT(runBackendOperation("systemd", &SystemSpecificImpl::start), HasCode(c.code));
      EXPECT_EQ(armed.calls(), c.calls);
    }
    EXPECT_EQ(::wait(nullptr) > 0, c.code == status::waitpidError) << "only a failed wait leaves a child behind";
    EXPECT_EQ(host::exists("/tmp/calls"), c.code != status::forkError);
  }
}

TEST_F(SystemSpecificImplTest, ASignalWithAHandlerDoesNotEndTheWait) {
  struct sigaction ours = {};
  struct sigaction before = {};
  ours.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGUSR1, &ours, &before), 0);
  host::installScript(kSystemctl, "kill -USR1 $PPID; sleep 0.1; exit 3");
  EXPECT_THAT(runBackendOperation("systemd", &SystemSpecificImpl::start), HasCode(status::childExitedNonzero));
  ASSERT_EQ(::sigaction(SIGUSR1, &before, nullptr), 0);
}

// --- What the children of the real program inherit

// Runs the program's `service start` with a systemctl that runs the script. env(1) starts the program, with these
// options, after it has set all signals to their defaults.
Outcome startThrough(const std::string& script, std::vector<std::string> envOptions = {}) {
  host::installScript(kSystemctl, script);
  std::vector<std::string> words = {"/usr/bin/env", "--default-signal"};
  words.insert(words.end(), envOptions.begin(), envOptions.end());
  words.insert(words.end(), {ravctlPath(), "service", "start", "sys=systemd"});
  return runProgram(words);
}

// A script wrote its SigIgn line to /tmp/signals. Returns those of the signals that this line contains.
std::vector<int> ignoredOf(const std::vector<int>& signals) {
  unsigned long long mask = 0;
  EXPECT_EQ(std::sscanf(host::readFile("/tmp/signals").c_str(), "SigIgn: %llx", &mask), 1);
  std::vector<int> ignored;
  for (const int signal : signals) {
    if ((mask >> (signal - 1) & 1) != 0) ignored.push_back(signal);
  }
  return ignored;
}

TEST_F(SystemSpecificImplTest, TheToolIgnoresOnlyTheSignalsThatWeInheritedAsIgnored) {
  const struct {
    const char* why;
    std::vector<std::string> envOptions;
    std::vector<int> ignored;
  } cases[] = {
      {"the signals that we ignore ourselves", {}, {}},
      {"inherited signals", {"--ignore-signal=PIPE,XFSZ,HUP"}, {SIGHUP, SIGPIPE, SIGXFSZ}},
      {"SIGCHLD, which would hide the exit of the tool", {"--ignore-signal=CHLD"}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const Outcome outcome = startThrough("grep SigIgn /proc/self/status > /tmp/signals", c.envOptions);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(ignoredOf({SIGHUP, SIGPIPE, SIGTERM, SIGCHLD, SIGXFSZ}), c.ignored);
  }
}

TEST_F(SystemSpecificImplTest, AnInheritedIgnoredSigchldDoesNotHideTheExitOfTheTool) {
  const Outcome failed = startThrough("exit 3", {"--ignore-signal=CHLD"});
  EXPECT_EQ(failed.out, "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n");
}

TEST_F(SystemSpecificImplTest, TheToolUsesOurStandardOutputs) {
  const Outcome outcome = startThrough("echo out of the tool; echo error of the tool >&2");
  EXPECT_EQ(outcome.out, "out of the tool\n");
  EXPECT_EQ(outcome.err, "error of the tool\n");
}

TEST_F(SystemSpecificImplTest, AChildWithoutItsToolPrintsNothing) {
  const Outcome missing = runRavctl({"service", "start", "sys=systemd"});
  EXPECT_EQ(missing.out, "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n");
  EXPECT_EQ(missing.err, "");
}

}  // namespace
