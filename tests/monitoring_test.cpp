// Runs the check for monitoring systems, the metrics for Prometheus and the configuration of logrotate on a private
// host. promtool and logrotate come from packages that are only unpacked: RAVCTL_MONITORING names the folder, and
// `./dev test` creates it.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"
#include "testing/run/FurnishedHost.h"
#include "testing/run/Session.h"

namespace {

// The profile lab is active. No daemon runs, and the script writes its heartbeat.
constexpr const char* kPrelude = R"sh(
exec 2>&1
install -m 755 /usr/share/doc/ravctl/examples/ravctl-metrics /usr/local/bin/
profile=/etc/zuv/profiles/profile-123123
ravctl profile create lab helmsor=10.0.0.1:443 --quiet >/dev/null
ravctl list profiles >/dev/null
# beat PEERS HELMSOR [AGE]: writes the heartbeat of a daemon that had run for a minute. Its time is ten minutes in the
# future, so that it stays fresh, or AGE seconds in the past.
beat() {
  now=$(($(date +%s) - ${3--600}))
  printf 'uptime.now=%s\nuptime.started=%s\nhipd_state=running\npeers.count=%s\nhelmsor.up=%s\n' \
    "$now" $((now - 60)) "$1" "$2" >$profile/hipvars.txt
}
# check WHY [COMMAND...]: prints the line and the exit status of the check.
check() {
  why=$1
  shift
  "$@" check_ravctl >/tmp/line 2>/tmp/err
  echo "$why: $(cat /tmp/line) = $?"
  cat /tmp/err
  [ "$(wc -l </tmp/line)" = 1 ] || echo 'not one line'
}
anybody() { setpriv --reuid=65534 --regid=65534 --clear-groups "$@"; }
)sh";

class MonitoringTest : public testing::Test {
 protected:
  void SetUp() override {
    const Outcome trial = runOnFurnishedHost(":");
    if (trial.exitStatus == 125) GTEST_SKIP() << trial.err;
  }

  static std::string said(const std::string& script) { return runOnFurnishedHost(kPrelude + script).out; }
};

// --- check_ravctl

TEST_F(MonitoringTest, TheCheckGivesEachStateItsExitStatus) {
  const std::string answer = said(R"sh(
    beat 1 true; check up
    beat 1 false; check 'up without Helmsor'
    beat 0 true; check 'no tunnel'
    beat 1 true 100; check 'stale heartbeat'
    rm $profile/hipvars.txt; check 'no heartbeat'
    printf ' \n\t profile-123123 \n' >/etc/zuv/profiles/.current; beat 1 true; check 'blanks in .current'
    echo ../etc >/etc/zuv/profiles/.current; check 'no directory'
    rm /etc/zuv/profiles/.current; check 'no active profile'
    mv /etc/zuv/profiles /etc/zuv/gone; check 'no store'
    mkfifo /tmp/fifo; mkdir /etc/zuv/profiles; ln -s /tmp/fifo /etc/zuv/profiles/.current; check 'a FIFO')sh");
  EXPECT_EQ(answer,
            "up: RAVCTL OK: a tunnel is up | running=1 helmsor=1 tunnel=1 = 0\n"
            "up without Helmsor: RAVCTL OK: a tunnel is up | running=1 helmsor=0 tunnel=1 = 0\n"
            "no tunnel: RAVCTL WARNING: the daemon runs without a tunnel | running=1 helmsor=1 tunnel=0 = 1\n"
            "stale heartbeat: RAVCTL CRITICAL: the daemon does not run | running=0 helmsor=0 tunnel=0 = 2\n"
            "no heartbeat: RAVCTL CRITICAL: the daemon does not run | running=0 helmsor=0 tunnel=0 = 2\n"
            "blanks in .current: RAVCTL OK: a tunnel is up | running=1 helmsor=1 tunnel=1 = 0\n"
            "no directory: RAVCTL CRITICAL: no profile is active | running=0 helmsor=0 tunnel=0 = 2\n"
            "no active profile: RAVCTL CRITICAL: no profile is active | running=0 helmsor=0 tunnel=0 = 2\n"
            "no store: RAVCTL UNKNOWN: /etc/zuv/profiles does not exist, or the user root may not read /etc/zuv | "
            "running=U helmsor=U tunnel=U = 3\n"
            "a FIFO: RAVCTL UNKNOWN: the user root may not read /etc/zuv/profiles/.current | running=U helmsor=U "
            "tunnel=U = 3\n");
}

TEST_F(MonitoringTest, AUserWithoutPermissionGetsUnknownAndOthersGetTheState) {
  if (::getuid() != 0) GTEST_SKIP() << "only root can become another user";
  const std::string answer = said(R"sh(
    beat 1 true; check allowed anybody
    chmod 600 $profile/hipvars.txt; check heartbeat anybody
    chmod 644 $profile/hipvars.txt; chmod 700 $profile; check profile anybody
    chmod 755 $profile; chmod 600 /etc/zuv/profiles/.current; check current anybody
    chmod 700 /etc/zuv/profiles; check store anybody
    chmod 700 /etc/zuv; check folder anybody)sh");
  const std::string nothing = " | running=U helmsor=U tunnel=U = 3\n";
  const std::string refused = "RAVCTL UNKNOWN: the user nobody may not read /etc/zuv/profiles";
  EXPECT_EQ(answer,
            "allowed: RAVCTL OK: a tunnel is up | running=1 helmsor=1 tunnel=1 = 0\n"
            "heartbeat: " +
                refused + "/profile-123123/hipvars.txt" + nothing + "profile: " + refused + "/profile-123123" +
                nothing + "current: " + refused + "/.current" + nothing + "store: " + refused + nothing +
                "folder: RAVCTL UNKNOWN: /etc/zuv/profiles does not exist, or the user nobody may not read "
                "/etc/zuv" +
                nothing);
}

// A busy machine may halt a process for seconds, so the check gets a second chance to end in time.
TEST_F(MonitoringTest, ARavctlThatHangsOrIsMissingOrBrokenGivesUnknownWithinFiveSeconds) {
  const std::string answer = said(R"sh(
    beat 1 true
    mv /usr/bin/ravctl /usr/bin/ravctl-itself
    ravctl_is() { printf '#!/bin/sh\n%s\n' "$1" >/usr/bin/ravctl; chmod 755 /usr/bin/ravctl; }
    timed() {
      for _ in 1 2; do
        began=$(cut -d . -f 1 /proc/uptime)
        check "$1" >/tmp/timed
        took=$(($(cut -d . -f 1 /proc/uptime) - began))
        [ "$took" -gt 4 ] || break
      done
      cat /tmp/timed
      [ "$took" -le 4 ] || echo "$took s"
    }
    timed missing
    ravctl_is 'exec sleep 100'; timed hangs
    ravctl_is 'trap "" TERM; while :; do sleep 100; done'; timed 'hangs and ignores the signal'
    ravctl_is 'sleep 100 & echo running: true'; timed 'leaves a process behind that holds the output'
    chmod 644 /usr/bin/ravctl; timed 'not executable'
    ravctl_is 'kill -9 $$'; timed killed
    ravctl_is 'echo oops >&2; exit 1'; timed fails
    ravctl_is 'printf "a|b\033c%0200d\n" 1'; timed 'prints something else'
    ravctl_is 'for _ in 1; do echo tried >>/tmp/tries; done
[ "$(wc -l </tmp/tries)" -ge 3 ] || { echo "status_text: application error"; exit 0; }
exec ravctl-itself "$@"'; timed 'the heartbeat is rewritten twice'
    pgrep -x sleep | wc -l)sh");
  const std::string nothing = " | running=U helmsor=U tunnel=U = 3\n";
  const std::string unknown = ": RAVCTL UNKNOWN: ravctl ";
  EXPECT_EQ(answer,
            "missing" + unknown + "is not installed, or cannot be executed" + nothing + "hangs" + unknown +
                "did not answer within two seconds" + nothing + "hangs and ignores the signal" + unknown +
                "did not answer within two seconds" + nothing + "leaves a process behind that holds the output" +
                unknown + "did not answer within two seconds" + nothing + "not executable" + unknown +
                "is not installed, or cannot be executed" + nothing + "killed: RAVCTL UNKNOWN: a signal ended ravctl" +
                nothing + "fails" + unknown + "ended with status 1" + nothing + "prints something else" + unknown +
                "printed: abc" + std::string(77, '0') + nothing +
                "the heartbeat is rewritten twice: RAVCTL OK: a tunnel is up | running=1 helmsor=1 tunnel=1 = 0\n"
                "0\n");
}

TEST_F(MonitoringTest, TheCheckTakesNoWordsAndChangesNothingInTheStore) {
  const std::string answer = said(R"sh(
    beat 1 true
    rm $profile/profile_name
    state() { find /etc/zuv -printf '%p %m %s %T@\n' | sort; }
    state >/root/before
    check_ravctl --help; echo $?
    check_ravctl; echo $?
    state | cmp - /root/before)sh");
  EXPECT_EQ(answer,
            "RAVCTL UNKNOWN: check_ravctl takes no words | running=U helmsor=U tunnel=U\n3\n"
            "RAVCTL OK: a tunnel is up | running=1 helmsor=1 tunnel=1\n0\n");
}

// --- Metrics

// The folder with the unpacked packages. Empty if there is none.
std::string unpacked() {
  const char* folder = std::getenv("RAVCTL_MONITORING");
  return folder != nullptr && host::exists(std::string(folder) + "/complete") ? folder : "";
}

TEST_F(MonitoringTest, TheMetricsShowTheStateAndLeaveOutWhatIsNotKnown) {
  const std::string answer = said(R"sh(
    show() { echo "$1"; ravctl-metrics /tmp/m/x.prom; echo $?; grep -v '#' /tmp/m/x.prom; }
    mkdir /tmp/m
    beat 1 false; show up
    beat 0 true 100; show down
    printf 'a"b\\c\303\244\n' >/etc/zuv/profiles/.factory/firmware_revision
    mv /usr/bin/check_ravctl /usr/bin/check_ravctl-itself
    printf '#!/bin/sh\necho "RAVCTL UNKNOWN: why | running=U helmsor=U tunnel=U"\nexit 3\n' >/usr/bin/check_ravctl
    chmod 755 /usr/bin/check_ravctl; show unknown
    stat -c '%n %a' /tmp/m/*
    ravctl-metrics; echo $?
    ravctl-metrics /nowhere/x.prom 2>/dev/null; echo $?)sh");
  const std::string info = "ravctl_info{version=\"2.2\",daemon_version=\"";
  EXPECT_EQ(answer,
            "up\n0\nravctl_state_known 1\nravctl_daemon_running 1\nravctl_helmsor_connected 0\n"
            "ravctl_tunnel_up 1\n" +
                info +
                "4.1.7\"} 1\n"
                "down\n0\nravctl_state_known 1\nravctl_daemon_running 0\nravctl_helmsor_connected 0\n"
                "ravctl_tunnel_up 0\n" +
                info +
                "4.1.7\"} 1\n"
                "unknown\n0\nravctl_state_known 0\n" +
                info +
                "a\\\"b\\\\c\"} 1\n"
                "/tmp/m/x.prom 644\n"
                "Usage: ravctl-metrics FILE.prom\n2\n"
                "1\n");
}

TEST_F(MonitoringTest, PromtoolAcceptsTheMetricsOfEachState) {
  const std::string promtool = unpacked() + "/usr/bin/promtool";
  if (unpacked().empty()) GTEST_SKIP() << "RAVCTL_MONITORING names no folder with prometheus unpacked";
  for (const char* state : {"beat 1 true", "beat 0 false", "mv /etc/zuv /etc/zuv-away", "rm /usr/bin/ravctl"}) {
    SCOPED_TRACE(state);
    Start start;
    start.input = said(std::string(state) + "\nravctl-metrics /tmp/x.prom; cat /tmp/x.prom");
    EXPECT_THAT(start.input, testing::HasSubstr("\nravctl_state_known "));
    const Outcome outcome = runProgram({promtool, "check", "metrics"}, start);
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(outcome.out + outcome.err, "");
  }
  Start start;
  start.input = "ravctl_total{ 1\n";
  EXPECT_NE(runProgram({promtool, "check", "metrics"}, start).exitStatus, 0) << "promtool accepts anything";
}

// --- The log

TEST_F(MonitoringTest, LogrotateAcceptsTheExampleAndTheDaemonAndListLogGoOnWithTheRotatedLog) {
  if (unpacked().empty()) GTEST_SKIP() << "RAVCTL_MONITORING names no folder with logrotate unpacked";
  if (!missingForInitScript().empty()) GTEST_SKIP() << missingForInitScript();
  const Outcome outcome = runOnFurnishedHost(kPrelude + std::string(R"sh(
    tools=/.private-host/shown/1
    rotate() { LD_LIBRARY_PATH=$(dirname $(find $tools -name libpopt.so.0)) $tools/usr/sbin/logrotate "$@"; }
    install -m 644 /usr/share/doc/ravctl/examples/hip.logrotate /etc/hip.logrotate
    # Fails after ten seconds without success.
    until_it() { for _ in $(seq 100); do "$@" && return; sleep 0.1; done; echo "never: $*"; }
    ravctl profile activate lab
    until_it grep -qs heartbeat $profile/hip.log
    # Another program keeps the log open.
    (while :; do echo '[INFO] kept open'; sleep 0.1; done) >>$profile/hip.log &
    until_it grep -q 'kept open' $profile/hip.log

    rotate -d /etc/hip.logrotate >/tmp/said 2>&1
    echo "accepted: $?"
    grep -v "logrotate in debug mode" /tmp/said | grep -i -e error -e warning -e unknown
    ls $profile | grep -c 'hip.log[.]'
    for round in 1 2; do
      rotate -f -s /tmp/state /etc/hip.logrotate
      echo "round $round: $?"
      until_it grep -q heartbeat $profile/hip.log
      until_it grep -q 'kept open' $profile/hip.log
      grep -c started $profile/hip.log
      list() { ravctl list log lab log_level=debug max_lines=100000; }
      listed() { list | grep -q "$1"; }
      until_it listed heartbeat
      until_it listed 'kept open'
      list | grep -c started
    done
    kill $!
    tr -d '\000' <$profile/hip.log | cmp - $profile/hip.log
    cd $profile && ls | grep hip.log
    zcat hip.log.2.gz | grep -c started)sh"),
                                             unpacked());
  EXPECT_EQ(outcome.out,
            "profile_name: lab\n"
            "accepted: 0\n"
            "0\n"
            "round 1: 0\n0\n0\n"
            "round 2: 0\n0\n0\n"
            "hip.log\nhip.log.1\nhip.log.2.gz\n"
            "1\n");
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
