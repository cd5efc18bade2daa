// Root runs the program on a profile to which another user may write, and that user has planted links there. The other
// user gains no access: files that only root may read or write stay that way.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "testing/run/HostTest.h"

namespace {

using Words = std::vector<std::string>;

constexpr uid_t kOther = 1000;
const std::string kProfile = "/etc/zuv/profiles/profile-1/";
const std::string kConf = kProfile + "hip.conf";
const Words kEdit = {"profile", "modify", "lab", "network=eth0"};  // of hip.conf
constexpr const char* kSecret = "/root/secret";                    // only root may read it
constexpr const char* kPlace = "/root/new/file";                   // does not exist; its folder is root's

Outcome asOther(const std::string& script) {
  Start other;
  other.uid = kOther;
  return runProgram({"/bin/sh", "-c", script}, other);
}

class HostileLinksTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    SKIP_WITHOUT_OTHER_USERS();
    setScene();
  }
  void TearDown() override {
    if (!hasOtherUsers()) return;
    host::remove(kSecret);
    host::remove("/root/new");
  }

  static void setScene() {
    host::reset();
    host::makeProfile("profile-1", "lab");
    host::makeProfile("profile-2", "harbour");
    host::makeActive("profile-2");
    host::giveTo(kOther, kProfile);
    for (const char* file : {"profile_name", "hip.conf"}) host::giveTo(kOther, kProfile + file);
    host::writeFile(kSecret, "secret=1\n", 0600);
    host::makeDirs("/root/new");
  }

  static void plant(const std::string& path, const std::string& target) {
    const Outcome planted = asOther("ln -sfn '" + target + "' '" + path + "'");
    ASSERT_EQ(planted.exitStatus, 0) << planted.err;
  }

  static void expectSecretKept() {
    EXPECT_EQ(host::readFile(kSecret), "secret=1\n");
    EXPECT_EQ(host::modeOf(kSecret), 0600u);
    EXPECT_FALSE(host::exists(kPlace));
    EXPECT_NE(asOther(std::string("cat ") + kSecret).exitStatus, 0);
    EXPECT_EQ(asOther(std::string("grep -rl secret=1 ") + host::kProfiles + " /tmp").out, "");
  }
};

TEST_F(HostileLinksTest, NoCommandWritesThroughALinkPlantedInAProfile) {
  struct Case {
    const char* file;
    Words words;
  };
  const Case cases[] = {
      {"profile_name", {"profile", "rename", "dir=profile-1", "new_name=mine"}},
      {"profile_name", {"profile", "details", "dir=profile-1"}},
      {"profile_name", {"list", "profiles"}},
      {"mapconfig.static", {"profile", "modify", "lab", "helmsor=h:1"}},
      {"hip.conf", kEdit},
      {"endbox.conf", {"profile", "modify", "lab", "invitation=x"}},
      {"endbox.conf", {"profile", "modify", "lab", "log_level=debug"}},
      {"hip.conf.temp", kEdit},
      {"endbox.conf.temp", {"profile", "modify", "lab", "log_level=debug"}},
      {"hipvars.txt", {"support", "reset", "lab"}},
      {"peers", {"support", "reset", "lab"}},
      {"ca-certs", {"profile", "delete", "lab"}},
      {"peer_certs", {"profile", "delete", "dir=profile-1"}},
  };
  for (const Case& c : cases) {
    for (const char* target : {kSecret, kPlace, "/root", "/root/new"}) {
      SCOPED_TRACE(std::string(c.file) + " -> " + target + ": " + testing::PrintToString(c.words));
      setScene();
      plant(kProfile + c.file, target);
      const Outcome outcome = runRavctl(c.words);
      EXPECT_EQ(outcome.exitStatus, 0);
      EXPECT_EQ(outcome.err, "");
      expectSecretKept();
    }
  }
}

// Whoever may write `.current` may name a link in the store there, whoever made that link.
TEST_F(HostileLinksTest, NoCommandRemovesAFileBehindALinkInPlaceOfTheActiveProfile) {
  for (const Words& words : {Words{"support", "reset", ""}, {"profile", "modify", "--active"}}) {
    SCOPED_TRACE(testing::PrintToString(words));
    setScene();
    host::writeFile("/root/new/hip.conf", "");
    host::writeFile("/root/new/peers", "kept");
    host::makeLink(host::kProfiles + std::string("way"), "/root/new");
    host::giveTo(kOther, host::kProfiles + std::string("way"));
    EXPECT_EQ(asOther(std::string("echo way >") + host::kCurrent).exitStatus, 0);
    const Outcome outcome = runRavctl(words);
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(host::tree("/root/new"), "f 0644 hip.conf \"\"\nf 0644 peers \"kept\"\n");
  }
}

TEST_F(HostileLinksTest, APlantedLinkInPlaceOfANameFileIsReplacedByAName) {
  for (const char* target : {kSecret, kPlace}) {
    SCOPED_TRACE(target);
    setScene();
    plant(kProfile + "profile_name", target);
    EXPECT_EQ(runRavctl({"service", "status"}).out, "running: false\nhelmsor: false\ntunnel: false\n");
    EXPECT_EQ(runRavctl({"list", "profiles"}).out,
              "profile-2\t'harbour'\nprofile-1\t'profile'\ncurrent_name: harbour\n");
    EXPECT_EQ(host::tree(kProfile), "f 0644 hip.conf \"\"\nf 0640 profile_name \"profile\\n\"\n");
    expectSecretKept();
  }
}

// The target may be closed by its own mode or by the mode of its directory.
TEST_F(HostileLinksTest, AnEditDoesNotOpenTheTargetOfAPlantedLink) {
  for (const mode_t mode : {0644u, 0600u, 04700u}) {
    for (const char* file : {"hip.conf", "endbox.conf"}) {
      SCOPED_TRACE(testing::Message() << file << ", " << std::oct << mode);
      setScene();
      host::setMode(kSecret, mode);
      plant(kProfile + file, kSecret);
      const Outcome outcome = runRavctl({"profile", "modify", "lab", "network=eth0", "log_level=debug"});
      EXPECT_EQ(outcome.out, "status_text: stdlib error: file open\nstatus_code: 0x14000005\n");
      EXPECT_THAT(host::tree(kProfile), testing::HasSubstr(std::string("l ") + file + " -> " + kSecret + "\n"));
      EXPECT_EQ(asOther(std::string("grep -Rl secret=1 ") + host::kProfiles + " /tmp").out, "");
      EXPECT_EQ(host::modeOf(kSecret), mode);
    }
  }
}

TEST_F(HostileLinksTest, TheTargetOfAForeignLinkInTheTemplateIsNotCopied) {
  host::makeDirs("/etc/zuv/profiles/.factory/ca-certs");
  for (const char* folder : {".factory", ".factory/ca-certs"}) {
    SCOPED_TRACE(folder);
    const std::string path = std::string(host::kProfiles) + folder;
    host::giveTo(kOther, path);
    plant(path + "/theirs", kSecret);
    EXPECT_THAT(runRavctl({"profile", "create", "new", "helmsor=h", "--quiet"}).out,
                testing::StartsWith("profile_name: new"));
    expectSecretKept();
    host::remove(path + "/theirs");
  }
  host::giveTo(0, "/etc/zuv/profiles/.factory");
  host::makeLink("/etc/zuv/profiles/.factory/ours", kSecret);
  EXPECT_EQ(runRavctl({"profile", "create", "newer", "helmsor=h", "--quiet"}).out, "profile_name: newer\n");
  EXPECT_EQ(host::readFile("/etc/zuv/profiles/profile-123125/ours"), "secret=1\n");
}

TEST_F(HostileLinksTest, LinksInPlaceOfTheLockAreNotFollowed) {
  for (const char* target : {kSecret, kPlace}) {
    SCOPED_TRACE(target);
    plant("/tmp/lock/hip.conf.lock", target);
    EXPECT_EQ(runRavctl(kEdit).exitStatus, 0);
    expectSecretKept();
  }
  host::remove("/tmp/lock");
  plant("/tmp/lock", "/root/new");
  EXPECT_EQ(runRavctl(kEdit).exitStatus, 0);
  EXPECT_EQ(host::tree("/root/new"), "");
  expectSecretKept();
}

TEST_F(HostileLinksTest, TheTemporaryFileIsCreatedAnewIfItsNameIsTaken) {
  const std::string temporary = kProfile + "hip.conf.temp";
  ASSERT_EQ(asOther("echo theirs=1 > " + temporary + "; chmod 666 " + temporary).exitStatus, 0);
  EXPECT_EQ(runRavctl(kEdit).exitStatus, 0);
  EXPECT_EQ(host::readFile(kConf), "master_interface=eth0\n");
  EXPECT_FALSE(host::exists(temporary));
}

TEST_F(HostileLinksTest, DeletingAProfileRemovesNoTargetOfALink) {
  ASSERT_EQ(asOther("cd " + kProfile + " && mkdir peer_certs && ln -s /root peer_certs/a && ln -s " + kSecret +
                    " b && ln -s /root/new c")
                .exitStatus,
            0);
  EXPECT_EQ(runRavctl({"profile", "delete", "lab"}).out, "");
  EXPECT_FALSE(host::exists("/etc/zuv/profiles/profile-1"));
  expectSecretKept();
  EXPECT_TRUE(host::exists("/root/new"));
}

// While a process holds a lease on a file, the kernel blocks others that open it, for 45 seconds by default.
TEST_F(HostileLinksTest, ALeaseDoesNotBlockTheProgram) {
  const std::string file = kProfile + "hip.log";
  ASSERT_EQ(asOther("echo text > " + file).exitStatus, 0);
  int ready[2];
  ASSERT_EQ(::pipe2(ready, O_CLOEXEC), 0);
  const pid_t holder = ::fork();
  if (holder == 0) {
    const bool isOther = ::setresgid(kOther, kOther, kOther) == 0 && ::setresuid(kOther, kOther, kOther) == 0;
    const int fd = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
    ::signal(SIGIO, SIG_IGN);
    const bool holds = isOther && fd >= 0 && ::fcntl(fd, F_SETLEASE, F_WRLCK) == 0;
    if (::write(ready[1], holds ? "y" : "n", 1) == 1) ::pause();
    ::_exit(0);
  }
  char answer = 0;
  ASSERT_EQ(::read(ready[0], &answer, 1), 1);
  Start start;
  start.seconds = 30;
  const Outcome outcome = runRavctl({"list", "log", "lab"}, start);
  ::kill(holder, SIGKILL);
  ::waitpid(holder, nullptr, 0);
  ::close(ready[0]);
  ::close(ready[1]);
  if (answer != 'y') GTEST_SKIP() << "this file system has no leases";
  EXPECT_EQ(outcome.signal, 0);
  EXPECT_EQ(outcome.out, "status_text: stdlib error: file open\nstatus_code: 0x14000005\n");
}

}  // namespace
