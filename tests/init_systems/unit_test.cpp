// Tests docs/examples/hip.service on a booted systemd (see booted-systemd). This test program itself stays on the
// machine.
#include <gtest/gtest.h>
#include <unistd.h>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"
#include "testing/run/Program.h"

namespace {

// Installs the unit without its default dependencies, because the small host boots no basic.target.
constexpr const char* kInstall = R"(
exec 2>&1
mkdir -p /etc/systemd/system/hip.service.d /etc/zuv/profiles/profile-1
printf '[Unit]\nDefaultDependencies=no\n' >/etc/systemd/system/hip.service.d/host.conf
printf '%s' "$UNIT" >/etc/systemd/system/hip.service
systemctl daemon-reload
echo lab >/etc/zuv/profiles/profile-1/profile_name
: >/etc/zuv/profiles/profile-1/hip.conf
: >/etc/zuv/.systemctl
# Waits until a command succeeds, twenty seconds at most.
until_it() {
  for _ in $(seq 400); do "$@" && return; sleep 0.05; done
  echo "never: $*"
}
beats() { ravctl service status | grep -qx 'running: true'; }
state() { systemctl is-active hip; }
)";

Outcome onSystemd(const std::string& script) {
  Start start;
  start.environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "BOOTED_SYSTEMD_NAME=unit-" + std::to_string(::getpid())};
  return runProgram(
      {places::source() + "/tests/init_systems/booted-systemd", ravctlPath(), places::hipStandin(), "/usr/bin/env",
       "UNIT=" + host::readFile(places::source() + "/docs/examples/hip.service"), "/bin/sh", "-c", kInstall + script},
      start);
}

TEST(UnitTest, HasNoComplaintFromSystemdAnalyze) {
  const Outcome outcome = onSystemd("systemd-analyze verify --man=no hip.service; echo $?");
  if (outcome.exitStatus == 125) GTEST_SKIP() << outcome.err;
  EXPECT_EQ(outcome.out, "0\n");
}

TEST(UnitTest, RunsTheDaemonOnTheActiveProfileAndRestartsItAfterItsDeath) {
  const Outcome outcome = onSystemd(R"sh(
    daemon() { systemctl show -P MainPID hip; }
    is_another() { case $(daemon) in 0 | "$first") return 1 ;; esac; }
    ravctl service start
    state
    ravctl profile activate lab
    state
    first=$(daemon)
    until_it beats
    kill -9 "$first"
    until_it is_another
    until_it beats
    state
    ravctl service stop
    state)sh");
  if (outcome.exitStatus == 125) GTEST_SKIP() << outcome.err;
  EXPECT_EQ(outcome.out,
            "inactive\n"  // there is no active profile yet, so the daemon does not start
            "profile_name: lab\nactive\n"
            "active\n"
            "inactive\n");
}

// The daemon can write only to the store.
TEST(UnitTest, TheDaemonCannotWriteOutsideTheStore) {
  const Outcome outcome = onSystemd(R"(
    echo profile-1 >/etc/zuv/profiles/.current
    mv /usr/sbin/hip /usr/sbin/hip-itself
    cat >/usr/sbin/hip <<'TEXT'
#!/bin/sh
for folder in /etc/zuv/profiles/profile-1 /etc /usr /var; do
  touch $folder/x 2>/dev/null && echo $folder
done >/etc/zuv/profiles/profile-1/told
exec sleep 100
TEXT
    chmod 755 /usr/sbin/hip
    ravctl service start
    until_it test -s /etc/zuv/profiles/profile-1/told
    cat /etc/zuv/profiles/profile-1/told)");
  if (outcome.exitStatus == 125) GTEST_SKIP() << outcome.err;
  EXPECT_EQ(outcome.out, "/etc/zuv/profiles/profile-1\n");
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
