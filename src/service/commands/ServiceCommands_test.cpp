#include "service/commands/ServiceCommands.h"

#include <sys/wait.h>

#include "command/framework/Authorization.h"
#include "command/status/AppStatusCodes.h"
#include "json/JsonModel.h"
#include "json/JsonParser.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using testing::IsEmpty;
using Words = std::vector<std::string>;

constexpr const char* kCalls = "/tmp/calls";
constexpr const char* kSystemctl = "/usr/bin/systemctl";

class ServiceCommandsTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    setAuthorizationMode(authorizationAlways);
  }
  void TearDown() override { setAuthorizationMode(authorizationNever); }
};

// Binds the words that follow the name of the command, and runs the command.
template <typename Command>
Status run(const Words& words = {}) {
  Command command;
  ScopedJson array(json::makeArray());
  for (const std::string& word : words) json::append(array.get(), json::makeString(word));
  EXPECT_THAT(bindCommandWords(command, array.get(), 0), HasCode(status::success));
  command.run();
  return command.status().status();
}

std::string calls() { return host::exists(kCalls) ? host::readFile(kCalls) : ""; }

void installAllTools() {
  for (const char* path : {"/usr/bin/systemctl", "/etc/init.d/hip", "/usr/bin/killall", "/usr/sbin/initctl"}) {
    host::installRecorder(path, kCalls);
  }
}

TEST_F(ServiceCommandsTest, UsesTheNamedInitSystemElseTheDetectedOneElseNull) {
  struct Case {
    const char* why;
    bool systemdMarker, initScript;
    Words words;
    StatusCode code;
    const char* calls;
  };
  const Case cases[] = {
      {"no init system", false, false, {}, status::childExitedNonzero, ""},
      {"no init system, and an empty value", false, false, {"sys="}, status::childExitedNonzero, ""},
      {"systemd", true, false, {}, status::success, "systemctl start hip\n"},
      {"systemd, and an empty value", true, false, {"sys="}, status::success, "systemctl start hip\n"},
      {"init script", false, true, {}, status::success, "hip start\n"},
      {"both", true, true, {}, status::success, "systemctl start hip\n"},
      {"a given name wins", true, true, {"sys=upstart"}, status::success, "initctl start hip\n"},
      {"the given name is null", true, true, {"sys=null"}, status::childExitedNonzero, ""},
      {"launchd means the null backend", true, true, {"sys=launchd"}, status::childExitedNonzero, ""},
      {"an unknown name means systemd", false, true, {"sys=Systemd"}, status::success, "systemctl start hip\n"},
      {"a blank is an unknown name", false, true, {"sys= "}, status::success, "systemctl start hip\n"},
      {"an empty value replaces a name", false, true, {"sys=upstart", "sys="}, status::success, "hip start\n"},
      {"the hidden key", true, true, {"sys-impl=upstart"}, status::success, "initctl start hip\n"},
      {"the hidden key is later", true, true, {"sys=null", "sys-impl=initd"}, status::success, "hip start\n"},
      {"the hidden key is earlier", true, true, {"sys-impl=null", "sys=initd"}, status::success, "hip start\n"},
      {"an empty value replaces a name of the other key",
       false,
       false,
       {"sys=upstart", "sys-impl="},
       status::childExitedNonzero,
       ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    host::reset();
    installAllTools();
    if (c.systemdMarker) host::writeFile("/etc/zuv/.systemctl", "");
    if (!c.initScript) host::remove("/etc/init.d/hip");
    EXPECT_THAT(run<Hipcmd_ServiceStart>(c.words), HasCode(c.code));
    EXPECT_EQ(calls(), c.calls);
  }
}

TEST_F(ServiceCommandsTest, JsonArgumentsTakeBothKeysAndTheLaterMemberCounts) {
  installAllTools();
  std::string expected;
  for (const char* text : {R"({"sys-impl":"upstart"})", R"({"sys":"initd","sys-impl":"upstart"})",
                           R"({"sys-impl":"initd","sys":"upstart"})"}) {
    SCOPED_TRACE(text);
    Hipcmd_ServiceStart command;
    const ScopedJson args(json::parse(text));
    EXPECT_THAT(bind_json_args(command, args.get()), HasCode(status::success));
    command.run();
    EXPECT_EQ(calls(), expected += "initctl start hip\n");
  }
  Hipcmd_ServiceStart command;
  const ScopedJson args(json::parse(R"({"sys-impl":null})"));
  EXPECT_EQ(bind_json_args(command, args.get()).details(), "illegal value presented: null");
}

TEST_F(ServiceCommandsTest, FullIsAcceptedAndChangesNothing) {
  installAllTools();
  for (const Words& words : {Words{}, Words{"full"}, Words{"full=true"}, Words{"full=false"}, Words{"full=FALSE"}}) {
    Words all = {"sys=initd"};
    all.insert(all.end(), words.begin(), words.end());
    EXPECT_THAT(run<Hipcmd_ServiceBounce>(all), HasCode(status::success));
  }
  EXPECT_EQ(calls(), "hip restart\nhip restart\nhip restart\nhip restart\nhip restart\n");
}

template <typename Command>
void expectNothingDoneWithoutAuthorization() {
  installAllTools();
  host::writeFile("/etc/zuv/.systemctl", "");
  const ArmedFaults counted{FaultPlan{}};
  for (const Words& words : {Words{}, Words{"sys=systemd"}, Words{"sys=null"}}) {
    EXPECT_THAT(run<Command>(words), HasCode(status::authenticationError));
  }
  EXPECT_THAT(counted.calls(), IsEmpty()) << "the command inspected a file or forked";
  EXPECT_EQ(calls(), "");
}

TEST_F(ServiceCommandsTest, WithoutAuthorizationNothingIsInspectedOrForked) {
  setAuthorizationMode(authorizationNever);
  expectNothingDoneWithoutAuthorization<Hipcmd_ServiceStart>();
  expectNothingDoneWithoutAuthorization<Hipcmd_ServiceStop>();
  expectNothingDoneWithoutAuthorization<Hipcmd_ServiceBounce>();
}

TEST_F(ServiceCommandsTest, EachFailureOfTheChildHasItsOwnStatus) {
  const struct {
    const char *script, *failingCall;
    StatusCode code;
  } cases[] = {{"exit 3", "", status::childExitedNonzero},
               {"kill -9 $$", "", status::childKilledBySignal},
               {"exit 0", "fork", status::forkError},
               {"exit 0", "waitpid", status::waitpidError}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.script) + " " + c.failingCall);
    host::installScript(kSystemctl, c.script);
    FaultPlan plan;
    plan.at = 1;
    plan.calls = {c.failingCall};  // no call has an empty name
    {
      const ArmedFaults armed(plan);
      EXPECT_THAT(run<Hipcmd_ServiceStop>({"sys=systemd"}), HasCode(c.code));
    }
    while (::wait(nullptr) > 0) {
      // After a failed waitpid the child may still run.
    }
  }
}

TEST_F(ServiceCommandsTest, EachCommandRunsItsOperationPrintsNothingAndChangesNoFileOfTheStore) {
  installAllTools();
  host::makeProfile("profile-1", "lab");
  host::makeDirs("/etc/zuv/profiles/profile-2");
  const std::string before = host::tree("/etc/zuv");
  for (const char* operation : {"start", "stop", "restart", "bounce"}) {
    SCOPED_TRACE(operation);
    const Outcome outcome = runRavctl({"service", operation, "sys=systemd"});
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.exitStatus, 0);
  }
  EXPECT_EQ(calls(), "systemctl start hip\nsystemctl stop hip\nsystemctl restart hip\nsystemctl restart hip\n");
  EXPECT_EQ(host::tree("/etc/zuv"), before);
}

}  // namespace
