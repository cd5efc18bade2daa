// Runs the whole session of a new user (see session.sh) with real init systems. It compares each command, each line of
// output, each exit status and the final store. They are the same with every init system.
#include <unistd.h>

#include "testing/host/HostFiles.h"
#include "testing/host/Places.h"
#include "testing/run/FurnishedHost.h"
#include "testing/run/Matchers.h"
#include "testing/run/Program.h"

namespace {

using Words = std::vector<std::string>;

const std::string kFolder = places::source() + "/tests/init_systems/";

constexpr const char* kSession = R"($ ravctl list profiles
profile-123123	'profile'
current_name: profile
= 0
$ ravctl profile create lab helmsor=10.0.0.1:443
profile_dir=profile-123124
profile_name=lab
network=
deviceID=
overlay_device_ip=
overlay_mask=
helmsor=10.0.0.1:443
log_level=INFO
profile_name: lab
= 0
$ ravctl profile create office helmsor=10.0.0.2 network=eth0 activate
profile_dir=profile-123125
profile_name=office
network=eth0
deviceID=
overlay_device_ip=
overlay_mask=
helmsor=10.0.0.2:8096
log_level=INFO
profile_name: office
= 0
$ ravctl list profiles
profile-123124	'lab'
profile-123125	'office'
profile-123123	'profile'
current_name: office
= 0
$ ravctl profile activate lab
profile_name: lab
= 0
$ ravctl service status
running: true
helmsor: true
tunnel: true
= 0
$ ravctl list log lab log_level=info
[INFO TIME] hip: started
profile_name: lab
= 0
$ ravctl profile modify lab log_level=warn
profile_dir=profile-123124
profile_name=lab
network=
deviceID=
overlay_device_ip=
overlay_mask=
helmsor=10.0.0.1:443
log_level=warning
= 0
$ ravctl list log lab log_level=info
[INFO TIME] hip: started
[WARNING TIME] hip: told to stop
[INFO TIME] hip: ended
[INFO TIME] hip: started
profile_name: lab
= 0
$ ravctl profile rename lab new_name=harbour
profile_name: harbour
= 0
$ ravctl support reset harbour
status_text: command cannot be executed while the profile is running
status_code: 0x12001002
= 0
$ ravctl profile delete harbour
status_text: command cannot be executed while the profile is running
status_code: 0x12001002
= 0
$ ravctl service stop
= 0
$ ravctl service status
running: false
helmsor: false
tunnel: false
= 0
$ ravctl support reset harbour
support reset: harbour
= 0
$ ravctl profile delete harbour
= 0
$ ravctl profile details harbour
status_text: profile not found
status_code: 0x12001001
= 0
$ ravctl list profiles
profile-123125	'office'
profile-123123	'profile'
current_name: office
= 0
$ ravctl help service
ravctl help for 'service' commands:
    'service start' runs the HIP background process
    'service stop' ends the background process
    'service restart' stops and restarts the background process
    'service status' displays the current process status
= 0
# the store
f 666 .current
d 755 .factory
d 755 .factory/ca-certs
f 644 .factory/ca-certs/demo.pem
f 644 .factory/endbox.conf
f 644 .factory/hip.conf
d 755 profile-123123
d 755 profile-123123/ca-certs
f 644 profile-123123/ca-certs/demo.pem
f 644 profile-123123/endbox.conf
f 644 profile-123123/hip.conf
f 644 profile-123123/hip.log
f 644 profile-123123/hipvars.txt
f 640 profile-123123/mapconfig.static
f 640 profile-123123/profile_name
d 755 profile-123125
d 755 profile-123125/ca-certs
f 644 profile-123125/ca-certs/demo.pem
f 644 profile-123125/endbox.conf
f 644 profile-123125/hip.conf
f 644 profile-123125/hip.log
f 644 profile-123125/hipvars.txt
f 640 profile-123125/mapconfig.static
f 640 profile-123125/profile_name
)";

// Runs the session, after the commands `beginning`, through a program that creates a host and runs a command there.
// Compares the output. Returns the reason if there is no such host.
std::string playOn(Words host, const std::string& beginning) {
  const std::string script = beginning + host::readFile(kFolder + "session.sh");
  for (const std::string& word : Words{"/bin/sh", "-c", script}) host.push_back(word);
  Start start;
  start.environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin",
                       "BOOTED_SYSTEMD_NAME=session-" + std::to_string(::getpid())};
  const Outcome outcome = runProgram(host, start);
  if (outcome.exitStatus == 125) return outcome.err;
  EXPECT_EQ(outcome.out, kSession);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.exitStatus, 0);
  return "";
}

TEST(SessionTest, TheWholeSessionWorksOnSystemd) {
  const std::string whyNot =
      playOn({kFolder + "booted-systemd", ravctlPath(), places::hipStandin()}, ": >/etc/zuv/.systemctl\n");
  if (!whyNot.empty()) GTEST_SKIP() << whyNot;
}

TEST(SessionTest, TheWholeSessionWorksWithAnInitScript) {
  if (!missingForInitScript().empty()) GTEST_SKIP() << missingForInitScript();
  const std::string hip = "/.private-host/source/packaging/examples/hip.init";
  const std::string whyNot =
      playOn({places::privateHost(), "--"}, "mkdir /etc/init.d && install -m 755 " + hip + " /etc/init.d/hip\n");
  if (!whyNot.empty()) GTEST_SKIP() << whyNot;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
