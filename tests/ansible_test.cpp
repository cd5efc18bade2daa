// Ansible itself plays docs/examples/ansible on a private host. That takes long, so only ./dev test --long and the CI
// run it.
#include <gmock/gmock.h>

#include "testing/host/HostFiles.h"
#include "testing/run/FurnishedHost.h"

namespace {

using testing::HasSubstr;

// Defines play(), which plays a playbook and keeps its output in the file `played`.
constexpr const char* kPlay = R"sh(
exec 2>&1
export LC_ALL=C.UTF-8 ANSIBLE_NOCOLOR=1
play() { ansible-playbook -i localhost, --connection local "$@" >played; grep ^localhost played; }
running() { until ravctl service status | grep -qx 'running: true'; do sleep 0.2; done; }
playbook=/usr/share/doc/ravctl/examples/ansible/profiles.yml
)sh";

class AnsibleLong : public testing::Test {
 protected:
  void SetUp() override {
    if (!host::exists("/usr/bin/ansible-playbook")) GTEST_SKIP() << "ansible-core is not installed";
    if (!missingForInitScript().empty()) GTEST_SKIP() << missingForInitScript();
    const Outcome trial = runOnFurnishedHost(":");
    if (trial.exitStatus == 125) GTEST_SKIP() << trial.err;
  }
  static std::string said(const std::string& script) { return runOnFurnishedHost(kPlay + script).out; }
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
            "localhost : ok=21 changed=5 unreachable=0 failed=0 skipped=12 rescued=0 ignored=0 \n"
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
            "localhost : ok=17 changed=0 unreachable=0 failed=0 skipped=16 rescued=0 ignored=0 \n");
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
    grep -A 1 'Change what differs' played | grep -v -e '^TASK' -e '^--'
    ravctl list profiles
    ravctl profile details lab | grep -e network -e level
    ls /etc/zuv/profiles/profile-123125/hip.state)sh");
  EXPECT_EQ(answer,
            "profile_name: lab\nprofile_name: old\nprofile_name: field office\nprofile_name: another\n"
            "changed: [localhost]\nskipping: [localhost]\nskipping: [localhost]\n"
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
    play --check "$playbook" | grep -o 'failed=[0-9]*'
    ls -A /etc/zuv/profiles)sh");
  EXPECT_EQ(answer, "failed=0\n.factory\n");
}

TEST_F(AnsibleLong, AFailedCommandFailsThePlayAlthoughItsExitStatusIsZero) {
  const std::string answer = said(R"sh(
    rm /etc/init.d/hip
    play "$playbook" | grep -o 'failed=[0-9]*'
    cat played)sh");
  EXPECT_THAT(answer, HasSubstr("failed=1\n"));
  EXPECT_THAT(answer, HasSubstr("child process returned nonzero exit code"));
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
