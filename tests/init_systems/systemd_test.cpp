// Tests the program with a real systemd, which boots on a host of its own for each test (see booted-systemd). This test
// program itself stays on the machine.
#include <unistd.h>

#include <filesystem>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"
#include "testing/run/Matchers.h"
#include "testing/run/Program.h"

namespace {

// Sets up for each script: two profiles, of which "lab" is active, and the file that selects systemd.
constexpr const char* kPrelude = R"(
profiles=/etc/zuv/profiles
profile() { mkdir -p $profiles/$1; echo $2 >$profiles/$1/profile_name; : >$profiles/$1/hip.conf; }
profile profile-1 lab
profile profile-2 office
echo profile-1 >$profiles/.current
: >/etc/zuv/.systemctl
# Waits until a command succeeds, a minute at most.
until_it() {
  for _ in $(seq 1200); do "$@" && return; sleep 0.05; done
  echo "never: $*"
}
beats() { [ -e $profiles/$1/hipvars.txt ]; }
runs() { ravctl service status | grep -qx 'running: true'; }
state() { systemctl is-active hip; }
daemon() { systemctl show -P MainPID hip; }
same() { if [ "$1" = "$2" ]; then echo same; else echo another; fi; }
unit() { printf '%s\n' "$@" >/etc/systemd/system/hip.service; systemctl daemon-reload; }
)";

class SystemdTest : public testing::Test {
 protected:
  // Runs the script and returns its output, with standard error.
  std::string onSystemd(const std::string& script) {
    Start start;
    start.environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "BOOTED_SYSTEMD_NAME=" + name_};
    const Outcome outcome = runProgram({places::source() + "/tests/init_systems/booted-systemd", ravctlPath(),
                                        places::hipStandin(), "/bin/sh", "-c", "exec 2>&1" + (kPrelude + script)},
                                       start);
    if (outcome.exitStatus == 125) whyNot_ = outcome.err.empty() ? "no booted systemd" : outcome.err;
    return outcome.out;
  }

  const std::string name_ = "booted-systemd-" + std::to_string(::getpid());
  std::string whyNot_;
  const char* row_ = "";  // names the row of a table. A trace would end up in the reason of a skip.
};

// Runs the script and compares its output. Skips the test if there is no such host.
#define EXPECT_ON_SYSTEMD(script, expected)        \
  {                                                \
    const std::string said = onSystemd(script);    \
    if (!whyNot_.empty()) GTEST_SKIP() << whyNot_; \
    EXPECT_EQ(said, expected) << row_;             \
  }

// A script that runs on a host of its own, and its output.
struct Case {
  const char* why;
  const char* script;
  const char* expected;
};

TEST_F(SystemdTest, TheUnitIsStartedRestartedAndStopped) {
  EXPECT_ON_SYSTEMD(R"(
    ravctl service status
    ravctl service start
    state
    until_it beats profile-1
    ravctl service status | head -n 1
    first=$(daemon)
    ravctl service start
    same $first $(daemon)
    ravctl service restart
    state
    same $first $(daemon)
    ravctl service bounce full
    state
    ravctl service stop
    state
    ravctl service stop)",
                    "running: false\nhelmsor: false\ntunnel: false\n"
                    "active\n"
                    "running: true\n"
                    "same\n"
                    "active\nanother\n"
                    "active\n"
                    "inactive\n");
}

constexpr Case kFailures[] = {
    {"systemctl does not know the unit",
     R"(
    rm /etc/systemd/system/hip.service
    systemctl daemon-reload
    ravctl service start
    ravctl service stop
    echo exit $?)",
     "Failed to start hip.service: Unit hip.service not found.\n"
     "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n"
     "Failed to stop hip.service: Unit hip.service not loaded.\n"
     "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n"
     "exit 0\n"},
    {"the unit fails",
     R"(
    unit '[Unit]' DefaultDependencies=no '[Service]' Type=oneshot ExecStart=/bin/false
    ravctl service start 2>/dev/null
    state
    ravctl profile activate office 2>/dev/null
    cat $profiles/.current)",
     "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n"
     "failed\n"
     "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n"
     "profile-2\n"},
    {"systemctl is missing",
     R"(
    rm /bin/systemctl
    ravctl service start
    ravctl service stop --quiet)",
     "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n"
     "status_code: 0x16001001\n"},
    {"systemd does not run",
     R"(
    mount -t tmpfs nothing /run
    ravctl service start)",
     "System has not been booted with systemd as init system (PID 1). Can't operate.\n"
     "Failed to connect to bus: Host is down\n"
     "status_text: child process returned nonzero exit code\nstatus_code: 0x16001001\n"},
};

TEST_F(SystemdTest, AFailureOfSystemctlGivesTheCodeOfAFailedChild) {
  for (const Case& c : kFailures) {
    row_ = c.why;
    EXPECT_ON_SYSTEMD(c.script, c.expected);
  }
}

constexpr Case kMoves[] = {
    {"activating starts a stopped daemon, keeps a running one, and moves it to another profile",
     R"(
    ravctl profile activate lab
    state
    until_it beats profile-1
    first=$(daemon)
    ravctl profile activate lab
    same $first $(daemon)
    ravctl profile activate office
    until_it beats profile-2
    same $first $(daemon)
    grep -c 'hip: ended' $profiles/profile-1/hip.log
    ravctl service status | head -n 1
    cat $profiles/.current)",
     "profile_name: lab\nactive\n"
     "profile_name: lab\nsame\n"
     "profile_name: office\nanother\n"
     "1\n"
     "running: true\n"
     "profile-2\n"},
    {"activating waits for a slow daemon",
     R"(
    unit '[Unit]' DefaultDependencies=no '[Service]' 'ExecStart=/usr/sbin/hip --stop-delay 2'
    ravctl service start
    until_it beats profile-1
    ravctl profile activate office
    state
    until_it beats profile-2
    pidof /usr/sbin/hip | wc -w)",
     "profile_name: office\nactive\n1\n"},
    {"modifying restarts the daemon of the running profile only, and activating moves it",
     R"(
    ravctl service start
    until_it beats profile-1
    first=$(daemon)
    ravctl profile modify office helmsor=10.0.0.9:443 --quiet
    same $first $(daemon)
    ravctl profile modify lab helmsor=10.0.0.9:443 --quiet
    state
    same $first $(daemon)
    cat $profiles/profile-1/mapconfig.static
    until_it beats profile-1
    ravctl service status | head -n 1
    second=$(daemon)
    ravctl profile modify office helmsor=10.0.0.10:443 activate --quiet
    same $second $(daemon)
    until_it beats profile-2
    cat $profiles/.current)",
     "same\n"
     "active\nanother\n"
     "map_uri=https://10.0.0.9:443\n"
     "running: true\n"
     "another\nprofile-2\n"},
    {"creating and activating moves the daemon",
     R"(
    ravctl service start
    until_it beats profile-1
    ravctl profile create field helmsor=10.0.0.9:443 activate --quiet
    state
    until_it beats profile-123123
    cat $profiles/.current)",
     "profile_name: field\nactive\nprofile-123123\n"},
};

TEST_F(SystemdTest, TheDaemonAlwaysRunsOnTheActiveProfile) {
  for (const Case& c : kMoves) {
    row_ = c.why;
    EXPECT_ON_SYSTEMD(c.script, c.expected);
  }
}

// --- The unit of the examples

const std::string kExampleUnit = places::source() + "/docs/examples/hip.service";

// Returns a command that writes a text to a file.
std::string writing(const std::string& path, const std::string& text) {
  return "cat >" + path + " <<'END_OF_FILE'\n" + text + "END_OF_FILE\n";
}

// Installs docs/examples/hip.service and scripts/ravctl-exit before the script. The unit lacks its default
// dependencies, because the small host boots no basic.target. The target of the host wants the unit, as
// multi-user.target does after `systemctl enable`.
std::string withExampleUnit(const std::string& script) {
  return writing("/etc/systemd/system/hip.service", host::readFile(kExampleUnit)) +
         writing("/usr/bin/ravctl-exit", host::readFile(places::source() + "/scripts/ravctl-exit")) + R"(
chmod 755 /usr/bin/ravctl-exit
mkdir -p /etc/systemd/system/hip.service.d
printf '[Unit]\nDefaultDependencies=no\n' >/etc/systemd/system/hip.service.d/host.conf
systemctl --quiet add-wants ravctl-test.target hip.service
# Prints the exit status of a start. Its output is not compared, since systemctl names things in its own words.
start_status() { ravctl-exit service start >/dev/null 2>&1; echo $?; }
# Makes a script the daemon. The stand-in stays as hip-itself.
daemon_is() {
  [ -e /usr/sbin/hip-itself ] || mv /usr/sbin/hip /usr/sbin/hip-itself
  printf '#!/bin/sh\n%s\n' "$1" >/usr/sbin/hip
  chmod 755 /usr/sbin/hip
}
)" + script;
}

TEST_F(SystemdTest, TheExampleUnitHasNoComplaintFromSystemdAnalyze) {
  EXPECT_ON_SYSTEMD(withExampleUnit("systemd-analyze verify --man=no hip.service; echo $?"), "0\n");
}

// The figure of systemd 252 is 5.4, and without any limit it is 9.6.
TEST_F(SystemdTest, TheExampleUnitKeepsItsExposureBelowSix) {
  EXPECT_ON_SYSTEMD(withExampleUnit("systemd-analyze security --offline=true --threshold=60 "
                                    "/etc/systemd/system/hip.service >/dev/null; echo $?"),
                    "0\n");
}

TEST_F(SystemdTest, TheExampleUnitRunsTheDaemonOnTheActiveProfileAndRestartsItAfterItsDeath) {
  EXPECT_ON_SYSTEMD(withExampleUnit(R"sh(
    is_another() { case $(daemon) in 0 | "$first") return 1 ;; esac; }
    rm $profiles/.current
    ravctl profile activate lab
    state
    first=$(daemon)
    runs && echo runs
    kill -9 "$first"
    until_it is_another
    until_it runs
    ravctl profile activate office
    until_it beats profile-2
    state
    ravctl service stop
    state)sh"),
                    "profile_name: lab\nactive\n"
                    "runs\n"
                    "profile_name: office\nactive\n"
                    "inactive\n");
}

TEST_F(SystemdTest, TheExampleUnitDoesNotStartWithoutAnActiveProfileOrWithoutTheProgram) {
  EXPECT_ON_SYSTEMD(withExampleUnit(R"(
    rm $profiles/.current
    start_status
    state
    echo profile-1 >$profiles/.current
    chmod 644 /usr/sbin/hip
    start_status
    state
    rm /usr/sbin/hip
    start_status
    state)"),
                    "69\ninactive\n"
                    "69\ninactive\n"
                    "69\ninactive\n");
}

constexpr Case kShortLives[] = {
    {"it fails", "exit 1", "69\n"},
    {"it ends with success", "exit 0", "69\n"},
    {"a signal ends it", "kill -9 $$", "69\n"},
    {"it writes one heartbeat, then ends with success", "exec /usr/sbin/hip-itself --once", "69\n"},
    {"it lives for half a second, and writes no heartbeat", "sleep 0.5", "69\n"},
};

TEST_F(SystemdTest, ADaemonThatEndsAtOnceIsAFailedStartOfTheExampleUnit) {
  std::string script;
  std::string expected;
  for (const Case& c : kShortLives) {
    // A heartbeat of an earlier daemon is there, and must not count.
    script += "echo '" + std::string(c.why) + "'\ndaemon_is '" + c.script + "'\n" + R"(
      printf 'uptime.now=%s\nuptime.started=1\n' $(date +%s) >$profiles/profile-1/hipvars.txt
      start_status
      systemctl stop hip
    )";
    expected += std::string(c.why) + "\n" + c.expected;
  }
  EXPECT_ON_SYSTEMD(withExampleUnit(script), expected);
}

TEST_F(SystemdTest, AStartOfTheExampleUnitReturnsWhenTheDaemonHasWrittenAHeartbeat) {
  EXPECT_ON_SYSTEMD(withExampleUnit(R"(
    daemon_is 'sleep 1; exec /usr/sbin/hip-itself'
    for _ in 1 2; do
      start_status
      runs && echo runs
      ravctl service stop
      sed -i s/uptime.now=.*/uptime.now=1/ $profiles/profile-1/hipvars.txt
    done)"),
                    "0\nruns\n0\nruns\n");
}

TEST_F(SystemdTest, ADaemonWithoutHeartbeatThatStaysAliveIsAStartOfTheExampleUnit) {
  EXPECT_ON_SYSTEMD(withExampleUnit(R"(
    daemon_is 'exec sleep 1000'
    start_status
    state)"),
                    "0\nactive\n");
}

// The pause between two starts is short here, so that systemd's own limit of five starts in ten seconds would count.
TEST_F(SystemdTest, ADaemonThatFailsTenTimesAndThenWorksIsActiveInTheEnd) {
  EXPECT_ON_SYSTEMD(withExampleUnit(R"(
    printf '[Service]\nRestartSec=20ms\n' >/etc/systemd/system/hip.service.d/pause.conf
    systemctl daemon-reload
    daemon_is 'echo >>/run/starts; [ $(wc -l </run/starts) -gt 10 ] || exit 1; exec /usr/sbin/hip-itself'
    start_status
    until_it runs
    until_it systemctl is-active --quiet hip
    state
    wc -l </run/starts)"),
                    "69\nactive\n11\n");
}

TEST_F(SystemdTest, TheLockDirectoryOfTheExampleUnitIsThatOfTheManualAndOutlivesTheDaemon) {
  const std::string lockDirectory = "ZUV_LOCK_DIR=/run/zuv-lock\n";
  EXPECT_THAT(host::readFile(places::source() + "/man/ravctl.8"), testing::HasSubstr("export " + lockDirectory));
  EXPECT_ON_SYSTEMD(withExampleUnit(R"(
    daemon_is 'env | grep ZUV >/run/told; exec /usr/sbin/hip-itself'
    start_status
    cat /run/told
    ravctl service stop
    stat -c '%a %U %n' /run/zuv-lock
    ls -A /run/zuv-lock)"),
                    "0\n" + lockDirectory + "750 root /run/zuv-lock\n");
}

// On this small host, ProtectControlGroups=yes leaves /run writable even without ReadWritePaths=/run. So it is off
// here.
TEST_F(SystemdTest, TheDaemonOfTheExampleUnitWritesToItsStoreAndToRunAndVarAndTmpOnly) {
  EXPECT_ON_SYSTEMD(withExampleUnit(R"sh(
    printf '[Service]\nProtectControlGroups=no\n' >/etc/systemd/system/hip.service.d/groups.conf
    systemctl daemon-reload
    daemon_is 'for folder in /etc/zuv/profiles/profile-1 /run /var /tmp /etc /usr /opt /root; do
        touch $folder/x 2>/dev/null && echo $folder
      done >/etc/zuv/profiles/told
      exec /usr/sbin/hip-itself'
    start_status
    cat $profiles/told)sh"),
                    "0\n/etc/zuv/profiles/profile-1\n/run\n/var\n/tmp\n");
}

// The bits are those of CAP_CHOWN, CAP_SETUID, CAP_NET_BIND_SERVICE, CAP_NET_ADMIN, CAP_NET_RAW, CAP_SYS_ADMIN and
// CAP_SYS_NICE, and then of CAP_SYS_MODULE, CAP_SYS_BOOT and CAP_SYS_TIME.
TEST_F(SystemdTest, TheDaemonOfTheExampleUnitKeepsTheRightsOfANetworkDaemon) {
  EXPECT_ON_SYSTEMD(withExampleUnit(R"sh(
    daemon_is 'grep CapEff /proc/self/status >/run/told; exec /usr/sbin/hip-itself'
    start_status
    read -r _ rights </run/told
    for bit in 0 7 10 12 13 21 23 16 22 25; do
      echo $((0x$rights >> bit & 1))
    done | paste -s -d ' ')sh"),
                    "0\n1 1 1 1 1 1 1 0 0 0\n");
}

TEST_F(SystemdTest, AForbiddenSystemCallOfTheExampleUnitIsAnErrorAndDoesNotEndTheDaemon) {
  EXPECT_ON_SYSTEMD(withExampleUnit(R"sh(
    daemon_is 'swapoff /dev/null 2>/run/told; exec /usr/sbin/hip-itself'
    start_status
    cat /run/told)sh"),
                    "0\nswapoff: Not superuser.\n");
}

// --- The task "The daemon does not run after a boot" of ravctl-examples(7)

// The text of `systemctl status` that the manual lists, and the state of the host that it stands for.
constexpr Case kAfterBoot[] = {
    {"the unit is not installed",
     "find /etc/systemd/system -path '*hip.service*' ! -type d -delete; systemctl daemon-reload",
     "hip.service could not be found"},
    {"nobody enabled the unit", "rm /etc/systemd/system/*.wants/hip.service; systemctl daemon-reload",
     "hip.service; disabled"},
    {"no profile is active", "rm $profiles/.current; boot", "AssertPathExists=/etc/zuv/profiles/.current was not met"},
    {"the program is missing", "rm /usr/sbin/hip; boot", "AssertFileIsExecutable=/usr/sbin/hip was not met"},
    {"the daemon ends at once", "daemon_is 'exit 1'; boot", "activating (auto-restart)"},
    {"the start waits for the network", R"(
    printf '%s\n' '[Unit]' DefaultDependencies=no Before=network-online.target '[Service]' Type=oneshot \
      'ExecStart=/bin/sleep 1000' >/etc/systemd/system/slow.service
    systemctl --quiet add-wants network-online.target slow.service
    boot --no-block
    waits() { systemctl list-jobs --no-legend | grep -q 'hip.service *start waiting'; }
    until_it waits)",
     "inactive (dead)"},
    {"the daemon runs", "boot", "active (running)"},
};

TEST_F(SystemdTest, TheManualListsWhatSystemctlSaysIfTheDaemonDoesNotRunAfterABoot) {
  const std::string manual = host::readFile(places::source() + "/man/ravctl-examples.7");
  const size_t from = manual.find("\n.Ss The daemon does not run after a boot\n");
  ASSERT_NE(from, std::string::npos);
  const std::string task = manual.substr(from, manual.find("\n.Ss ", from + 1) - from);
  size_t items = 0;
  for (size_t at = 0; (at = task.find("\n.It Li ", at)) != std::string::npos; ++at) ++items;
  EXPECT_EQ(items, std::size(kAfterBoot));
  for (const Case& c : kAfterBoot) {
    row_ = c.why;
    EXPECT_THAT(task, testing::HasSubstr("\n.It Li " + std::string(c.expected) + "\n"));
    EXPECT_ON_SYSTEMD(withExampleUnit("boot() { systemctl start \"$@\" hip 2>/dev/null; }\n" + std::string(c.script) +
                                      "\nsystemctl status hip 2>&1 | grep -oF '" + c.expected + "'"),
                      c.expected + std::string("\n"));
  }
}

// --- The timer of the examples

// Installs a file of the sources on the host.
std::string installed(const std::string& source, const std::string& at, const char* mode) {
  return "cat >" + at + " <<'END_OF_FILE'\n" + host::readFile(places::source() + source) + "END_OF_FILE\nchmod " +
         mode + " " + at + "\n";
}

TEST_F(SystemdTest, TheExampleTimerWritesTheMetricsAgainAndAgain) {
  const std::string units = "/etc/systemd/system/ravctl-metrics";
  const std::string examples = "/docs/examples/ravctl-metrics";
  EXPECT_ON_SYSTEMD(installed("/scripts/check_ravctl", "/usr/bin/check_ravctl", "755") +
                        installed(examples, "/usr/local/bin/ravctl-metrics", "755") +
                        installed(examples + ".service", units + ".service", "644") +
                        installed(examples + ".timer", units + ".timer", "644") + R"sh(
    for kind in service timer; do
      mkdir -p /etc/systemd/system/ravctl-metrics.$kind.d
      printf '[Unit]\nDefaultDependencies=no\n' >/etc/systemd/system/ravctl-metrics.$kind.d/host.conf
    done
    systemd-analyze verify --man=no ravctl-metrics.service ravctl-metrics.timer; echo $?
    # The test does not wait for half a minute.
    printf '[Timer]\nOnUnitActiveSec=\nOnBootSec=\nOnActiveSec=0\nOnUnitActiveSec=1\n' \
      >>/etc/systemd/system/ravctl-metrics.timer.d/host.conf
    systemctl daemon-reload
    metrics=/var/lib/prometheus/node-exporter/ravctl.prom
    mkdir -p ${metrics%/*}
    systemctl start ravctl-metrics.timer
    says() { grep -qsx "ravctl_daemon_running $1" $metrics; }
    until_it says 0
    ravctl service start
    until_it says 1
    grep known $metrics | grep -v '#'
    ravctl service stop
    until_it says 0
    systemctl show -P Result ravctl-metrics.service)sh",
                    "0\nravctl_state_known 1\nsuccess\n");
}

// --- Leftovers

std::string entriesOf(const std::string& folder, const std::string& name) {
  std::string names;
  std::error_code none;
  for (const auto& entry : std::filesystem::directory_iterator(folder, none)) {
    const std::string found = entry.path().filename();
    if (found.find(name) == 0) names += found + "\n";
  }
  return names;
}

TEST_F(SystemdTest, TheHostLeavesNothingBehind) {
  EXPECT_ON_SYSTEMD("echo here; (sleep 1000 &); kill -9 $$", "here\n");
  for (const char* folder : {"/tmp", "/sys/fs/cgroup", "/sys/fs/cgroup/unified"}) {
    SCOPED_TRACE(folder);
    EXPECT_EQ(entriesOf(folder, name_), "");
  }
  EXPECT_THAT(host::readFile("/proc/mounts"), testing::Not(testing::HasSubstr(name_)));
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
