// The AppArmor profile allows what the commands do and nothing else. strace shows what they do, because few machines
// have AppArmor in their kernel. apparmor_parser comes from a package that is only unpacked: RAVCTL_APPARMOR names the
// folder, and `./dev test` creates it.
#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "../torture/Scenes.h"
#include "Policy.h"
#include "Uses.h"
#include "testing/host/Places.h"
#include "testing/run/HostTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kStrace = "/usr/bin/strace";
constexpr const char* kTraces = "/root/traces/";
const std::string kProfile = places::source() + "/packaging/apparmor/usr.bin.ravctl";

// A scene, with circumstances that change which files the program uses. The scenes run every command of the catalogue.
struct TracedRun {
  Scene scene;
  std::string variable = "NONE=";
  bool isInputClosed = false;
};

std::vector<TracedRun> allRuns() {
  std::vector<TracedRun> runs;
  for (const Scene& scene : allScenes()) runs.push_back({scene});
  const Tree store = runs.front().scene.store;
  for (const char* system : {"sys=initd", "sys=upstart", "sys=systemd"}) {
    for (const char* action : {"start", "stop", "restart"}) {
      runs.push_back({{std::string(action) + " " + system, {"service", action, system}, store}});
    }
  }
  Tree bare = store;
  bare.remove("/tmp/lock");
  const std::vector<std::string> edit = {"profile", "modify", "field office", "network=eth2"};
  runs.push_back({{"no lock directory", edit, bare}});
  runs.push_back({{"another lock directory", edit, bare}, "ZUV_LOCK_DIR=/run/zuv-lock"});
  runs.push_back({{"no standard input", {"list", "versions"}, store}, "NONE=", true});
  return runs;
}

Uses usesOfRun(const TracedRun& run) {
  run.scene.store.putBack();
  host::remove(kTraces);
  host::makeDirs(kTraces);
  // The shell closes standard input if the run asks for that.
  std::vector<std::string> words = {kStrace,      "-ff",       "-y",
                                    "-s",         "4096",      "-e",
                                    kTracedCalls, "-o",        kTraces + std::string("t"),
                                    "/bin/sh",    "-c",        run.isInputClosed ? "exec \"$@\" <&-" : "exec \"$@\"",
                                    "sh",         ravctlPath()};
  words.insert(words.end(), run.scene.words.begin(), run.scene.words.end());
  Start start;
  start.environment.push_back(run.variable);
  const Outcome outcome = runProgram(words, start);
  EXPECT_EQ(outcome.exitStatus, 0) << run.scene.name << ": " << outcome.err;
  std::set<std::string> folders;
  for (const auto& [path, node] : run.scene.store.nodes()) {
    if (node.type == 'd') folders.insert(path);
  }
  Uses uses;
  for (const auto& entry : std::filesystem::directory_iterator(kTraces)) {
    uses.add(usesOf(host::readFile(entry.path()), ravctlPath(), folders));
  }
  return uses;
}

void installAllTools() {
  for (const char* tool : {"/usr/bin/systemctl", "/usr/sbin/initctl", "/etc/init.d/hip", "/usr/bin/killall",
                           "/usr/bin/zuv-sendbundle.sh"}) {
    host::makeDirs(std::filesystem::path(tool).parent_path());
    host::installScript(tool, ":\n");
  }
}

std::string described(const Use& use) { return use.path + " " + use.letter; }

class AppArmorTest : public HostTest {
 protected:
  const Policy policy_ = readPolicy(host::readFile(kProfile), "ravctl");
  // The rules for the shell that runs the bundle script.
  const Policy shell_ = readPolicy(host::readFile(kProfile), "shell");
};

class AppArmorTraceTest : public AppArmorTest {
 protected:
  void SetUp() override {
    if (!RAVCTL_IS_STATIC_PIE) GTEST_SKIP() << "the profile is for the program that needs no other file to run";
    AppArmorTest::SetUp();
    if (IsSkipped()) return;
    if (!host::exists(kStrace)) GTEST_SKIP() << "strace is not installed";
    installAllTools();
    for (const TracedRun& run : allRuns()) uses_.add(usesOfRun(run));
  }

  Uses uses_;
};

TEST_F(AppArmorTraceTest, NoCommandUsesWhatTheProfileDoesNotAllow) {
  std::vector<std::string> denied;
  for (const Use& use : uses_.files) {
    const bool isByShell = use.letter == 'x' && shell_.allows(use);
    if (!policy_.allows(use) && !isByShell) denied.push_back(described(use));
  }
  EXPECT_THAT(denied, IsEmpty());
  EXPECT_THAT(uses_.unknown, IsEmpty());
  EXPECT_EQ(uses_.networks, policy_.networks);
}

TEST_F(AppArmorTraceTest, SomeCommandUsesEachPermissionOfTheProfile) {
  std::vector<std::string> unused;
  std::vector<FileRule> rules = policy_.files;
  rules.insert(rules.end(), shell_.files.begin(), shell_.files.end());
  for (const FileRule& rule : rules) {
    // The kernel maps a program itself, before the first call of the program.
    if (rule.letters == "mr") continue;
    for (const char letter : std::string("rwklmx")) {
      const auto isUse = [&](const Use& use) { return use.letter == letter && rule.allows(use); };
      const bool isGiven = rule.letters.find(letter) != std::string::npos;
      if (isGiven && std::none_of(uses_.files.begin(), uses_.files.end(), isUse))
        unused.push_back(rule.line + " " + letter);
    }
  }
  EXPECT_THAT(unused, IsEmpty());
  EXPECT_GE(policy_.files.size(), 13u);
}

TEST_F(AppArmorTest, TheProfileComplainsAndHasNoRuleThatTheTestsCannotRead) {
  for (const Policy& policy : {policy_, shell_}) {
    EXPECT_THAT(policy.flags, ElementsAre("complain"));
    EXPECT_THAT(policy.unread, IsEmpty());
    EXPECT_FALSE(policy.files.empty());
  }
}

// The traces show no call that signals or traces a process: each would be an unknown call there.
TEST_F(AppArmorTest, OthersMayKillAndTraceTheProgramAndItSignalsOnlyItself) {
  EXPECT_THAT(policy_.processes, ElementsAre("ptrace (readby)", "ptrace (tracedby)", "signal (receive) peer=unconfined",
                                             "signal (receive, send) set=(\"exists\")", "signal peer=@{profile_name}"));
}

// --- Capabilities

// Commands of root on a store whose files belong to somebody else, who lets nobody read them.
constexpr const char* kForeignStore = R"sh(set -e
cd /etc/zuv/profiles
mkdir -p profile-1/ca-certs profile-2
echo lab >profile-1/profile_name
echo depot >profile-2/profile_name
echo keep=this | tee profile-1/hip.conf profile-2/hip.conf >/dev/null
echo profile-2 >.current
chown -R 1000:1000 /etc/zuv
find . -type f -exec chmod 600 {} +
find . -type d -exec chmod 700 {} +
set +e
for words in 'list profiles' 'profile modify lab network=eth9 helmsor=h' 'profile activate lab' 'profile delete depot'; do
  # shellcheck disable=SC2086 # words
  setpriv --bounding-set "-all,$1" "$2" $words
done
find /etc/zuv /tmp/lock -printf '%p %M %U %G\n' | sort
cat profile-1/hip.conf
)sh";

TEST_F(AppArmorTest, RootEditsAForeignStoreWithTheCapabilitiesOfTheProfileAndNotWithFewer) {
  SKIP_WITHOUT_OTHER_USERS();
  // dac_override includes dac_read_search, but the kernel asks for the latter first, and would log that it is missing.
  EXPECT_THAT(policy_.capabilities, ElementsAre("chown", "dac_override", "dac_read_search", "fowner"));
  const auto said = [&](const std::string& without) {
    std::string list;
    for (const std::string& capability : policy_.capabilities) {
      if (without.find(capability) == std::string::npos) list += (list.empty() ? "+" : ",+") + capability;
    }
    if (without == "all") list = "+all";
    host::reset();
    const Outcome outcome = runProgram({"/bin/sh", "-c", kForeignStore, "sh", list, ravctlPath()});
    EXPECT_EQ(outcome.err, "");
    return outcome.out;
  };
  const std::string withAll = said("all");
  EXPECT_EQ(said("none"), withAll);
  for (const char* capability : {"chown", "dac_override dac_read_search", "fowner"}) {
    EXPECT_NE(said(capability), withAll) << capability;
  }
}

TEST(AppArmorPolicy, PathsOfAProfileMatchAsAppArmorDocuments) {
  const struct {
    const char* glob;
    const char* path;
    bool matches;
  } cases[] = {{"/a/*", "/a/b", true},
               {"/a/*", "/a/", false},
               {"/a/*", "/a/b/c", false},
               {"/a/**", "/a/b/c", true},
               {"/a/**", "/a/b/", true},
               {"/a/**", "/a/", false},
               {"/a/", "/a", false},
               {"/a/*.lock", "/a/x.lock", true},
               {"/a/*.lock", "/a/.lock", true},
               {"/a/*.lock", "/a/xlock", false},
               {"/{,usr/}bin/x", "/bin/x", true},
               {"/{,usr/}bin/x", "/usr/bin/x", true},
               {"/{,usr/}bin/x", "/sbin/x", false}};
  for (const auto& c : cases) {
    EXPECT_EQ(std::regex_match(c.path, std::regex(expressionOf(c.glob))), c.matches) << c.glob << " " << c.path;
  }
}

TEST(AppArmorPolicy, APathOutsideTheProfileIsReported) {
  const Uses uses = usesOf(
      "execve(\"/r\", [\"/r\"], 0x1 /* 1 var */) = 0\n"
      "openat(AT_FDCWD</>, \"/etc/a\", O_RDONLY|O_CLOEXEC) = 3</srv/a>\n"
      "openat(3</srv/d>, \"b\", O_WRONLY|O_CREAT|O_EXCL, 0600) = -1 EEXIST (File exists)\n"
      "openat(AT_FDCWD</>, \"/srv/d\", O_RDONLY|O_PATH) = 3</srv/d>\n"
      "mkdir(\"/srv/new\", 0755) = 0\n"
      "renameat(3</srv/d>, \"c\", 4</srv/e>, \"f\") = 0\n"
      "flock(5</srv/l>, LOCK_EX) = 0\n"
      "socket(AF_UNIX, SOCK_STREAM|SOCK_CLOEXEC, 0) = 6<socket:[1]>\n"
      "kill(1, SIGTERM) = 0\n"
      "--- SIGCHLD {si_signo=SIGCHLD} ---\n"
      "+++ exited with 0 +++\n",
      "/r", {});
  std::vector<std::string> files;
  for (const Use& use : uses.files) files.push_back(described(use));
  EXPECT_THAT(files, ElementsAre("/srv/a r", "/srv/d/b w", "/srv/d/c r", "/srv/d/c w", "/srv/e/f w", "/srv/l k",
                                 "/srv/new/ w"));
  EXPECT_THAT(uses.networks, ElementsAre("unix stream"));
  EXPECT_THAT(uses.unknown, ElementsAre("kill(1, SIGTERM) = 0"));
  const std::string profile =
      "profile x /x flags=(complain) {\n  /srv/* r,\n  /srv/ w,\n  mount,\n"
      "  profile y {\n  /srv/* w,\n  }\n}\nprofile z /z flags=(complain) {\n  /srv/d/b r,\n}\n";
  const Policy policy = readPolicy(profile, "x");
  EXPECT_TRUE(policy.allows({"/srv/a", 'r'}));
  EXPECT_FALSE(policy.allows({"/srv/a", 'w'}));
  EXPECT_FALSE(policy.allows({"/srv/d/b", 'r'}));
  EXPECT_THAT(policy.unread, ElementsAre("mount,"));
}

// --- The parser of AppArmor

class AppArmorParserTest : public AppArmorTest {
 protected:
  void SetUp() override {
    AppArmorTest::SetUp();
    if (IsSkipped()) return;
    const char* folder = std::getenv("RAVCTL_APPARMOR");
    if (folder == nullptr || !host::exists(std::string(folder) + "/complete")) {
      GTEST_SKIP() << "RAVCTL_APPARMOR names no folder with apparmor unpacked";
    }
    tools_ = folder;
  }

  // Runs the parser, which compiles the profile and gives it to no kernel.
  Outcome parse(const std::string& text, const std::string& option) const {
    Start start;
    start.input = text;
    const std::string policies = tools_ + "/etc/apparmor.d";
    return runProgram({tools_ + "/sbin/apparmor_parser", "--config-file", "/dev/null", "-K", "-M",
                       policies + "/abi/3.0", "-b", policies, option},
                      start);
  }

  std::string tools_;
};

TEST_F(AppArmorParserTest, AcceptsTheProfileInComplainMode) {
  const std::string text = host::readFile(kProfile);
  const Outcome accepted = parse(text, "-Q");
  EXPECT_EQ(accepted.exitStatus, 0);
  EXPECT_EQ(accepted.out + accepted.err, "");
  const Outcome names = parse(text, "-N");
  EXPECT_EQ(names.out, "ravctl\nravctl//shell\n");
  std::string broken = text;
  broken.replace(broken.find("/dev/null rw"), 12, "/dev/null rq");
  EXPECT_NE(parse(broken, "-Q").exitStatus, 0) << "the parser accepts anything";
}

TEST_F(AppArmorParserTest, AcceptsTheProfileThatTheCommandInItsFirstLinesEnforces) {
  const std::string text = host::readFile(kProfile);
  const std::string installed = "/etc/apparmor.d/usr.bin.ravctl";
  host::makeDirs("/etc/apparmor.d");
  host::writeFile(installed, text);
  std::smatch command;
  ASSERT_TRUE(std::regex_search(text, command, std::regex("\n#   (sed [^\n]*)\n")));
  const Outcome edited = runProgram({"/bin/sh", "-c", command[1]});
  EXPECT_EQ(edited.exitStatus, 0) << edited.err;
  const std::string enforced = host::readFile(installed);
  for (const char* name : {"ravctl", "shell"}) {
    const Policy policy = readPolicy(enforced, name);
    EXPECT_THAT(policy.flags, IsEmpty());
    EXPECT_FALSE(policy.files.empty());
  }
  const Outcome accepted = parse(enforced, "-Q");
  EXPECT_EQ(accepted.exitStatus, 0);
  EXPECT_EQ(accepted.out + accepted.err, "");
  EXPECT_EQ(parse(enforced, "-N").out, "ravctl\nravctl//shell\n");
}

}  // namespace
