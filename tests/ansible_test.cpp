// Ansible itself plays docs/examples/ansible on private hosts. Most of these tests take long, so only ./dev test --long
// and the CI run them.
#include <gmock/gmock.h>

#include <cstdio>

#include "testing/host/HostFiles.h"
#include "testing/run/FurnishedHost.h"
#include "testing/run/Session.h"

namespace {

using testing::HasSubstr;

// Defines these functions:
//   play        plays a playbook, keeps its output in the file `played`, and prints the line that sums up the host
//   outcome     plays a playbook, and prints how many tasks have changed something and how many have failed
//   messages    prints the messages of the last play
//   describe    reads entries of zuv_profiles, and writes the playbook described.yml
//   store       prints the name and the checksum of everything in the store, but of the files of a daemon that runs
//   running     waits until the daemon runs, but at most half a minute
constexpr const char* kPlay = R"sh(
exec 2>&1
examples=/usr/share/doc/ravctl/examples/ansible
export LC_ALL=C.UTF-8 ANSIBLE_NOCOLOR=1 ANSIBLE_ROLES_PATH=$examples/roles ANSIBLE_PYTHON_INTERPRETER=/usr/bin/python3
play() { ansible-playbook -i localhost, --connection local "$@" >played; grep '^localhost .*ok=' played; }
outcome() { play "$@" | grep -o -e 'changed=[0-9]*' -e 'failed=[0-9]*' | paste -sd ' '; }
messages() { grep -o '"msg": "Profile [^"]*' played | cut -c 9-; }
describe() {
  printf -- '- hosts: all\n  gather_facts: false\n  roles: [zuv_profile]\n  vars:\n    zuv_profiles:\n' >described.yml
  sed 's/^/      /' >>described.yml
}
store() {
  (cd "${1-}/etc/zuv" && find . -type f ! -name 'hipvars*' ! -name hip.log -exec sha256sum {} + | sort && find . | sort)
}
running() { timeout 30 sh -c "until ravctl service status | grep -qx 'running: true'; do sleep 0.2; done"; }
playbook=$examples/profiles.yml
)sh";

std::string whyNoPlay() {
  if (!host::exists("/usr/bin/ansible-playbook")) return "ansible-core is not installed";
  if (!missingForInitScript().empty()) return missingForInitScript();
  const Outcome trial = runOnFurnishedHost(":");
  return trial.exitStatus == 125 ? trial.err : "";
}

std::string said(const std::string& script) { return runOnFurnishedHost(kPlay + script).out; }

class AnsibleLong : public testing::Test {
 protected:
  void SetUp() override {
    const std::string why = whyNoPlay();
    if (!why.empty()) GTEST_SKIP() << why;
  }
};

TEST_F(AnsibleLong, ThePlayCreatesTheProfilesAndASecondPlayChangesNothing) {
  const std::string answer = said(R"sh(
    play "$playbook" | tr -s ' '
    ravctl list profiles
    ravctl profile details lab | grep -v '=$'
    ravctl profile details 'field office' | grep -v '=$'
    running
    play "$playbook" | tr -s ' ')sh");
  EXPECT_EQ(answer,
            "localhost : ok=12 changed=3 unreachable=0 failed=0 skipped=4 rescued=0 ignored=0 \n"
            "profile-123124\t'field office'\n"
            "profile-123123\t'lab'\n"
            "current_name: lab\n"
            "profile_dir=profile-123123\n"
            "profile_name=lab\n"
            "network=eth0\n"
            "helmsor=helmsor.example.com:443\n"
            "log_level=warning\n"
            "profile_dir=profile-123124\n"
            "profile_name=field office\n"
            "invitation=XK4-99\n"
            "helmsor=10.1.1.1:8096\n"
            "log_level=INFO\n"
            "localhost : ok=11 changed=0 unreachable=0 failed=0 skipped=5 rescued=0 ignored=0 \n");
}

TEST_F(AnsibleLong, ThePlayRevertsManualChangesAndRemovesUnwantedProfiles) {
  const std::string answer = said(R"sh(
    ravctl profile create lab helmsor=helmsor.example.com:443 network=eth9 activate --quiet
    ravctl profile create old helmsor=10.0.0.9 --quiet
    ravctl profile create 'field office' helmsor=10.1.1.1 invitation=XK4-99 --quiet
    ravctl profile create another helmsor=10.0.0.8 --quiet
    running
    touch /etc/zuv/profiles/profile-123125/hip.state
    play "$playbook" >/dev/null
    grep -A 2 'Change what differs' played | grep -v '^TASK'
    ravctl list profiles
    ravctl profile details lab | grep -e network -e level
    ls /etc/zuv/profiles/profile-123125/hip.state)sh");
  EXPECT_EQ(answer,
            "profile_name: lab\nprofile_name: old\nprofile_name: field office\nprofile_name: another\n"
            "changed: [localhost] => (item=lab)\nskipping: [localhost] => (item=None) \n"
            "profile-123126\t'another'\n"
            "profile-123125\t'field office'\n"
            "profile-123123\t'lab'\n"
            "current_name: lab\n"
            "network=eth0\n"
            "log_level=warning\n"
            "/etc/zuv/profiles/profile-123125/hip.state\n");
}

TEST_F(AnsibleLong, CheckModeChangesNothing) {
  const std::string answer = said(R"sh(
    outcome --check "$playbook"
    ls -A /etc/zuv/profiles
    ravctl profile create lab helmsor=helmsor.example.com:443 network=eth9 --quiet
    ravctl profile create old helmsor=10.0.0.9 --quiet
    ravctl list profiles >listed
    store >before
    outcome --check "$playbook"
    store | diff before -)sh");
  EXPECT_EQ(answer,
            "changed=0 failed=0\n"
            ".factory\n"
            "profile_name: lab\nprofile_name: old\n"
            "changed=0 failed=0\n");
}

TEST_F(AnsibleLong, AFailedCommandFailsThePlayAlthoughItsExitStatusIsZero) {
  const std::string answer = said(R"sh(
    printf '#!/bin/sh\necho no daemon >&2\nexit 3\n' >/etc/init.d/hip
    outcome "$playbook"
    messages)sh");
  EXPECT_THAT(answer, testing::StartsWith("changed=3 failed=1\n"
                                          "Profile 'lab': status_text: child process returned nonzero exit code, "
                                          "status_code: 0x16001001, "));
  EXPECT_THAT(answer, testing::EndsWith(", no daemon\n"));
}

// --- The description

// The store would read the first two names without their last letter. ravctl would refuse the third name, take the
// fourth as an output mode, and the last as its template.
TEST_F(AnsibleLong, ANameThatWouldNotSurviveFailsEachRunBeforeAnythingChanges) {
  const std::string answer = said(R"sh(
    ravctl profile create lab helmsor=10.0.0.1 --quiet
    ravctl list profiles >listed
    store >before
    for name in 'Café' 'lab ' 'a\tb' --quiet .factory; do
      describe <<TEXT
- {name: good, helmsor: '10.0.0.1:443'}
- {name: "$name", helmsor: '10.0.0.1:443'}
TEXT
      for run in 1 2 3; do
        outcome described.yml
        store | diff before -
      done
      messages
    done)sh");
  const std::string failures = "changed=0 failed=1\nchanged=0 failed=1\nchanged=0 failed=1\n";
  const std::string bytes =
      ": the name must begin and end with a printable ASCII character that is no blank, and must hold no control "
      "character\n";
  const std::string meaning = ": the name has a special meaning for ravctl\n";
  EXPECT_EQ(answer, "profile_name: lab\n" + failures + "Profile 'Café'" + bytes + failures + "Profile 'lab '" + bytes +
                        failures + "Profile 'a\\tb'" + bytes + failures + "Profile '--quiet'" + meaning + failures +
                        "Profile '.factory'" + meaning);
}

TEST_F(AnsibleLong, EachRuleOfTheDescriptionNamesTheProfileThatBreaksIt) {
  struct Case {
    const char* entry;
    const char* message;
  };
  const char* kName = "the name must begin and end with a printable ASCII character";
  const char* kMeaning = "the name has a special meaning for ravctl";
  const char* kAddress = "helmsor must be host:port, without a scheme, and with a port from 1 to 65535";
  const char* kInvitation = "invitation must hold only printable ASCII characters, without blanks at its ends";
  const char* kText = "every value but active must be a text, so put numbers in quotes";
  const Case cases[] = {
      {"{name: \"n1\\x7f\", helmsor: 'h:1'}", kName},
      {"{name: \"n2\\nn\", helmsor: 'h:1'}", kName},
      {"{name: '', helmsor: 'h:1'}", kName},
      {"{helmsor: 'h:1'}", kName},
      {"{name: dir=n3, helmsor: 'h:1'}", kMeaning},
      {"{name: --active, helmsor: 'h:1'}", kMeaning},
      {"{name: .current, helmsor: 'h:1'}", kMeaning},
      {"{name: --json, helmsor: 'h:1'}", kMeaning},
      {"{name: 17, helmsor: 'h:1'}", kText},
      {"{name: n4, helmsor: 'h:1', invitation: 0123}", kText},
      {"{name: n5, helmsor: 'h:1', colour: red}", "a key is unknown: colour"},
      {"{name: n6, state: present}", kAddress},
      {"{name: n7, helmsor: h}", kAddress},
      {"{name: n8, helmsor: 'h:0443'}", kAddress},
      {"{name: n9, helmsor: 'h:65536'}", kAddress},
      {"{name: n10, helmsor: 'https://h:443'}", kAddress},
      {"{name: n11, helmsor: \"h:1\\n\"}", kAddress},
      {"{name: n12, helmsor: 'hé:1'}", kAddress},
      {"{name: n13, helmsor: 'h:1', network: ''}", "network must be the name of an interface"},
      {"{name: n14, helmsor: 'h:1', network: 'eth0 '}", "network must be the name of an interface"},
      {"{name: n15, helmsor: 'h:1', log_level: loud}",
       "log_level must be one of error, err, warning, warn, info, debug, trace, fatal"},
      {"{name: n16, helmsor: 'h:1', invitation: ''}", kInvitation},
      {"{name: n17, helmsor: 'h:1', invitation: 'XK '}", kInvitation},
      {"{name: n18, helmsor: 'h:1', invitation: 'Xé4'}", kInvitation},
      {"{name: n19, helmsor: 'h:1', active: 'no'}", "active must be true or false"},
      {"{name: n20, helmsor: 'h:1', active: true}", "another profile is active, too"},
      {"{name: n21, state: absent, active: true}", "a profile that is absent cannot be active"},
      {"{name: n22, state: gone, helmsor: 'h:1'}", "state must be present or absent"},
      {"{name: n23, helmsor: 'h:1'}", "the name is given twice"},
      {"{name: n23, state: absent}", "the name is given twice"},
  };
  std::string entries;
  std::string expected;
  for (const Case& c : cases) entries += std::string("- ") + c.entry + "\n";
  const std::string answer = said("describe <<'TEXT'\n" + entries + R"sh(TEXT
    outcome described.yml
    ls -A /etc/zuv/profiles
    messages)sh");
  const std::vector<std::string> lines = linesOf(answer);
  ASSERT_EQ(lines.size(), std::size(cases) + 2) << answer;
  EXPECT_EQ(lines[0], "changed=0 failed=1");
  EXPECT_EQ(lines[1], ".factory");
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const std::string entry = cases[i].entry;
    SCOPED_TRACE(entry);
    EXPECT_THAT(lines[i + 2], HasSubstr(cases[i].message));
    const std::size_t from = entry.find('n', entry.find(": "));
    const bool hasName = entry.compare(0, 7, "{name: ") == 0 && from != std::string::npos;
    const std::string name = hasName ? entry.substr(from, entry.find_first_of("\\,", from) - from) : "";
    EXPECT_THAT(lines[i + 2], HasSubstr(name));
  }
}

TEST_F(AnsibleLong, WhatPassesTheCheckIsReadBackUnchanged) {
  const std::string answer = said(R"sh(
    ravctl profile create '~root' helmsor=10.0.0.1 invitation=XK4-99 --quiet
    ravctl list profiles >listed
    describe <<'TEXT'
- {name: 'a$HOMEé b', helmsor: 'h:65535', invitation: 'X$HOME "9', log_level: warn, network: auto}
- {name: '~root', helmsor: 'H:1', invitation: '###', log_level: err}
- {name: "x'y=z", helmsor: 'http:9', log_level: fatal}
- {name: "a\u2028b\u0085c", helmsor: '~:1', network: err}
- {name: 'a#2', helmsor: '$HOME:1'}
- {name: '17', helmsor: 'h:1', invitation: '0123'}
TEXT
    outcome described.yml
    store >first
    outcome described.yml
    outcome described.yml
    store | diff first -
    ravctl profile details 'a$HOMEé b' | grep -e level -e network -e invit
    ravctl profile details '~root' | grep -e level -e invit
    ravctl profile details 'a#2' | grep helmsor
    ravctl list profiles | wc -l)sh");
  EXPECT_EQ(answer,
            "profile_name: ~root\n"
            "changed=2 failed=0\n"
            "changed=0 failed=0\n"
            "changed=0 failed=0\n"
            "network=auto\ninvitation=X$HOME \"9\nlog_level=warning\n"
            "log_level=error\n"
            "helmsor=$HOME:1\n"
            "7\n");
}

// The last description leaves out the invitation that the profile has.
TEST_F(AnsibleLong, AnInvitationIsNeverShownButAFailureNamesItsProfile) {
  const std::string answer = said(R"sh(
    echo password >password
    describe <<TEXT
- name: lab
  helmsor: h:1
$(ansible-vault encrypt_string --vault-password-file password XK4-99 --name invitation | sed 's/^/  /')
TEXT
    outcome -vvv --vault-password-file password described.yml
    ravctl profile details lab | grep invit
    grep -c XK4-99 played
    ravctl profile modify lab invitation=XK5-00 | grep invit
    outcome -vvv --vault-password-file password described.yml
    grep -c -e XK4-99 -e XK5-00 played
    ravctl profile modify lab invitation=XK5-00 | grep invit
    mkdir /etc/zuv/profiles/profile-123123/endbox.conf.temp
    outcome -vvv --vault-password-file password described.yml
    grep -c -e XK4-99 -e XK5-00 played
    grep -o "Profile 'lab': [^\"]*" played
    rmdir /etc/zuv/profiles/profile-123123/endbox.conf.temp
    describe <<TEXT
- {name: lab, helmsor: 'h:2'}
TEXT
    outcome -vvv described.yml
    grep -c -e XK4-99 -e XK5-00 played
    ravctl profile details lab | grep invit)sh");
  EXPECT_EQ(answer,
            "changed=1 failed=0\ninvitation=XK4-99\n0\n"
            "invitation=XK5-00\nchanged=1 failed=0\n0\n"
            "invitation=XK5-00\nchanged=1 failed=1\n0\n"
            "Profile 'lab': status_text: stdlib error: file open, status_code: 0x14000005\n"
            "changed=1 failed=0\n0\ninvitation=XK5-00\n");
}

// --- The host

TEST_F(AnsibleLong, WithoutAnInitSystemNothingChanges) {
  const std::string answer = said(R"sh(
    rm /etc/init.d/hip
    outcome "$playbook"
    messages
    outcome -e zuv_init_system=initd "$playbook"
    grep -o 'zuv_init_system is [^"]*' played
    outcome -e zuv_init_system=openrc "$playbook"
    ls -A /etc/zuv /etc/zuv/profiles)sh");
  EXPECT_EQ(answer,
            "changed=0 failed=1\n"
            "Profile 'lab': ravctl finds no init system to start the daemon, so set zuv_init_system\n"
            "changed=0 failed=1\n"
            "zuv_init_system is initd, but there is no /etc/init.d/hip\n"
            "changed=0 failed=1\n"
            "/etc/zuv:\nprofiles\n\n/etc/zuv/profiles:\n.factory\n");
}

TEST_F(AnsibleLong, TheNamedInitSystemStartsTheDaemon) {
  const std::string answer = said(R"sh(
    mv /etc/init.d/hip /root/hip.init
    for tool in /usr/bin/systemctl /usr/sbin/initctl; do
      printf '#!/bin/sh\necho "${0##*/} $*" >>/root/calls\n[ "$1" != start ] || exec /usr/sbin/hip --daemon\n' >$tool
      chmod 755 $tool
    done
    outcome -e zuv_init_system=systemd "$playbook"
    running
    outcome -e zuv_init_system=systemd "$playbook"
    ls /etc/zuv/.systemctl
    mv /root/hip.init /etc/init.d/hip
    outcome -e zuv_init_system=initd "$playbook"
    ls -A /etc/zuv
    rm /etc/init.d/hip
    killall /usr/sbin/hip
    while ravctl service status | grep -qx 'running: true'; do sleep 0.5; done
    ravctl profile delete lab
    outcome -e zuv_init_system=upstart "$playbook"
    running
    outcome -e zuv_init_system=upstart "$playbook"
    cat calls)sh");
  EXPECT_EQ(answer,
            "changed=4 failed=0\nchanged=0 failed=0\n/etc/zuv/.systemctl\n"
            "changed=1 failed=0\nprofiles\n"
            "changed=3 failed=0\nchanged=0 failed=0\n"
            "systemctl stop hip\nsystemctl start hip\ninitctl stop hip\ninitctl start hip\n");
}

TEST_F(AnsibleLong, AProfileThatCannotBeRemovedFailsBeforeAnythingChanges) {
  const std::string answer = said(R"sh(
    ravctl profile create old helmsor=10.0.0.9 activate --quiet
    ravctl profile create older helmsor=10.0.0.9 --quiet
    running
    store >before
    describe <<TEXT
- {name: old, state: absent}
- {name: lab, helmsor: 'h:1'}
TEXT
    outcome described.yml
    messages
    describe <<TEXT
- {name: old, state: absent}
- {name: older, state: absent}
TEXT
    outcome described.yml
    messages
    store | diff before -)sh");
  EXPECT_EQ(answer,
            "profile_name: old\nprofile_name: older\n"
            "changed=0 failed=1\n"
            "Profile 'old': the daemon runs on it, so it cannot be removed unless another one is active\n"
            "changed=0 failed=1\n"
            "Profile 'old', 'older': no other profile remains, so ravctl would make a new one\n");
}

TEST_F(AnsibleLong, AProfileOnWhichTheDaemonRunsIsRemovedAfterAnotherOneHasBecomeActive) {
  const std::string answer = said(R"sh(
    ravctl profile create old helmsor=10.0.0.9 activate --quiet
    running
    describe <<TEXT
- {name: old, state: absent}
- {name: lab, helmsor: 'h:1', active: true}
TEXT
    outcome described.yml
    running
    ravctl list profiles
    outcome described.yml)sh");
  EXPECT_EQ(answer,
            "profile_name: old\nchanged=3 failed=0\nprofile-123124\t'lab'\ncurrent_name: lab\nchanged=0 failed=0\n");
}

// --- A fleet

// Each host of the fleet has its own mounts, processes and interfaces, and so its own store and daemon. The playbook
// runs twice on all hosts. Prints the number of hosts for each summary, and in the end the seconds of each run.
constexpr const char* kFleet = R"sh(
cat >host <<'TEXT'
read -r process rest </proc/self/stat
exec 3>>inventory
cd /
mount -t proc none /proc
for own in /etc/zuv /tmp /run /root; do mount -t tmpfs none $own; done
cp -r /.private-host/source/docs/examples/demo-store /etc/zuv/profiles
echo "host-$1 ansible_private_host_process=$process" >&3
exec 3>&-
while :; do sleep 5; done
TEXT
touch inventory
for number in $(seq "$count"); do unshare --mount --pid --net --fork --kill-child sh host "$number" & done
for try in $(seq 600); do [ "$(wc -l <inventory)" -lt "$count" ] || break; sleep 0.1; done
export ANSIBLE_CONNECTION_PLUGINS=/.private-host/source/tests/ansible ANSIBLE_PIPELINING=1
everywhere() {
  started=$(date +%s%N)
  ansible-playbook -i inventory --connection private_host --forks 4 "$playbook" >played
  echo "$((($(date +%s%N) - started) / 1000000))" >>milliseconds
  sed -n 's/^host-.*\(changed=.* failed=[0-9]*\).*/\1/p' played | tr -s ' ' | sort | uniq -c | sed 's/^ *//'
}
stores() {
  sed 's/.*=//' inventory | while read -r process; do store "/proc/$process/root"; done
}
everywhere
stores >first
grep -c "  ./profiles/profile-123124/profile_name$" first
everywhere
stores | diff first -
ls -l /proc/[0-9]*/exe 2>/dev/null | grep -c ' /usr/sbin/hip$'
ls -A /etc/zuv/profiles
paste -sd ' ' milliseconds
)sh";

// Fails unless the first run changes every host, and the second run none.
void expectThatASecondRunChangesNothing(int count) {
  const std::string hosts = std::to_string(count);
  std::vector<std::string> lines = linesOf(said("count=" + hosts + "\n" + kFleet));
  ASSERT_FALSE(lines.empty());
  int first = 0;
  int second = 0;
  ASSERT_EQ(std::sscanf(lines.back().c_str(), "%d %d", &first, &second), 2) << lines.back();
  lines.pop_back();
  EXPECT_THAT(lines, testing::ElementsAre(hosts + " changed=3 unreachable=0 failed=0", hosts,
                                          hosts + " changed=0 unreachable=0 failed=0", hosts, ".factory"));
  std::printf("%d hosts: the first run took %d ms for each host, the second %d ms\n", count, first / count,
              second / count);
}

TEST(AnsibleFleet, ASecondPlayChangesNothingOnAnyOfThreeHosts) {
  const std::string why = whyNoPlay();
  if (!why.empty()) GTEST_SKIP() << why;
  expectThatASecondRunChangesNothing(3);
}

TEST_F(AnsibleLong, ASecondPlayChangesNothingOnAnyOfFiftyHosts) { expectThatASecondRunChangesNothing(50); }

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
