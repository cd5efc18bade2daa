#include "base/files/StoreOpener.h"

#include <endian.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "testing/faults/FaultInjector.h"
#include "testing/run/AsUser.h"
#include "testing/run/HostTest.h"

namespace {

constexpr uid_t kStranger = 65534;
constexpr uid_t kThird = 65533;
constexpr const char* kFile = "/etc/zuv/file";         // root's
constexpr const char* kHisFile = "/etc/zuv/his file";  // the stranger's
constexpr const char* kLink = "/etc/zuv/dir/link";
constexpr int kLongestChain = 40;

// The system with openat2, and without it in the two ways in which it is refused.
struct System {
  const char* why;
  int error;
};
const System kSystems[] = {{"with openat2", 0}, {"openat2 is unknown", ENOSYS}, {"openat2 is filtered", EPERM}};

class StoreOpenerTest : public HostTest {
 protected:
  // The first system call of an opening is openat2.
  static StoreFile open(const System& system, const std::string& path, int flags, Follow follow) {
    std::optional<ArmedFaults> armed;
    if (system.error != 0) armed.emplace(FaultPlan{1, false, system.error, {"openat"}});
    errno = 0;
    return openInStore(AT_FDCWD, path.c_str(), flags, follow, 0640);
  }

  static int errorOf(const System& system, const std::string& path, int flags, Follow follow) {
    return open(system, path, flags, follow).fd.isOpen() ? 0 : errno;
  }

  static void prepareFiles() {
    host::reset();
    host::writeFile(kFile, "root's", 0600);
    host::writeFile(kHisFile, "his");
    host::makeDirs("/etc/zuv/dir");
  }

  // A root's file, a stranger's file and a directory, as every row finds them.
  static void prepare() {
    prepareFiles();
    host::giveTo(kStranger, kHisFile);
  }
};

void giveLink(uid_t owner, const std::string& target, const std::string& path = kLink) {
  host::makeLink(path, target);
  host::giveTo(owner, path);
}

void giveLinkAndDirectory(uid_t owner, const std::string& target) {
  giveLink(owner, target);
  host::giveTo(owner, "/etc/zuv/dir");
}

// Makes a link of root's to the stranger's file: only a trusted one is followed.
void linkInDirectoryOfMode(mode_t mode, gid_t group) {
  host::makeLink(kLink, kHisFile);
  ASSERT_EQ(::chown("/etc/zuv/dir", 0, group), 0);
  host::setMode("/etc/zuv/dir", mode);
}

// Lets the stranger write in a directory by an access list. The system stores it in little-endian order.
void setAccessList(const char* directory) {
  struct Entry {
    std::uint16_t tag;
    std::uint16_t permissions;
    std::uint32_t id;
  };
  struct {
    std::uint32_t version = htole32(2);
    Entry entries[5] = {{0x01, 7, ~0U}, {0x02, 7, kStranger}, {0x04, 5, ~0U}, {0x10, 7, ~0U}, {0x20, 5, ~0U}};
  } list;
  for (Entry& entry : list.entries) entry = {htole16(entry.tag), htole16(entry.permissions), htole32(entry.id)};
  ASSERT_EQ(::setxattr(directory, "system.posix_acl_access", &list, sizeof list, 0), 0);
}

void makeChain(int length) {
  host::makeLink("/etc/zuv/dir/1", kFile);
  for (int i = 1; i < length; ++i) host::makeLink("/etc/zuv/dir/" + std::to_string(i + 1), std::to_string(i));
}

struct OpenCase {
  const char* why;
  std::function<void()> make;
  const char* path;
  int errorTrusted;  // with Follow::trusted
  int errorReading;  // with Follow::forReading
};

const OpenCase kPlainWays[] = {
    {"a plain file is opened", [] {}, kFile, 0, 0},
    {"a stranger's directory on the way does not count",
     [] {
       host::writeFile("/etc/zuv/dir/file", "");
       host::giveTo(kStranger, "/etc/zuv/dir");
     },
     "/etc/zuv/dir/file", 0, 0},
    {"a directory with slashes at its end is opened", [] {}, "/etc//zuv/dir//", 0, 0},
    {"a missing file is missing", [] {}, "/etc/zuv/missing", ENOENT, ENOENT},
    {"a file is no directory", [] {}, "/etc/zuv/file/x", ENOTDIR, ENOTDIR},
    {"an empty path names nothing", [] {}, "", ENOENT, ENOENT},
    {"a hard link to a file of another owner is not opened",
     [] {
       ASSERT_EQ(::link(kFile, "/etc/zuv/dir/file"), 0);
       host::giveTo(kStranger, "/etc/zuv/dir");
     },
     "/etc/zuv/dir/file", EPERM, EPERM},
    {"a hard link in a directory of its owner is opened", [] { ASSERT_EQ(::link(kFile, "/etc/zuv/dir/file"), 0); },
     "/etc/zuv/dir/file", 0, 0},
};

const OpenCase kLastLinks[] = {
    {"root's link in root's directory is trusted", [] { host::makeLink(kLink, kHisFile); }, kLink, 0, 0},
    {"a relative link counts from its directory", [] { host::makeLink(kLink, "../dir/../his file"); }, kLink, 0, 0},
    {"a link that leads nowhere is a missing file", [] { host::makeLink(kLink, "missing"); }, kLink, ENOENT, ENOENT},
    {"a circular link is not followed", [] { host::makeLink(kLink, kLink); }, kLink, ELOOP, ELOOP},
    {"a chain of 40 links is followed", [] { makeChain(kLongestChain); }, "/etc/zuv/dir/40", 0, 0},
    {"a chain of 41 links is not", [] { makeChain(kLongestChain + 1); }, "/etc/zuv/dir/41", ELOOP, ELOOP},
    {"a stranger's link in root's directory is not trusted", [] { giveLink(kStranger, kHisFile); }, kLink, ELOOP,
     ELOOP},
    {"root's link in a stranger's directory is not trusted",
     [] {
       host::makeLink(kLink, kFile);
       host::giveTo(kStranger, "/etc/zuv/dir");
     },
     kLink, ELOOP, ELOOP},
    {"root's link where others may write is not trusted", [] { linkInDirectoryOfMode(01777, 0); }, kLink, ELOOP, ELOOP},
    {"root's link where another group may write is not trusted", [] { linkInDirectoryOfMode(0775, kThird); }, kLink,
     ELOOP, ELOOP},
    {"root's link where only root's group may write is trusted", [] { linkInDirectoryOfMode(0775, 0); }, kLink, 0, 0},
    {"root's link where an access list lets a stranger write is not trusted",
     [] {
       host::makeLink(kLink, kHisFile);
       setAccessList("/etc/zuv/dir");
     },
     kLink, ELOOP, ELOOP},
    {"a trusted link to an untrusted one is not followed",
     [] {
       giveLink(kStranger, kFile, "/etc/zuv/dir/second");
       host::makeLink(kLink, "second");
     },
     kLink, ELOOP, ELOOP},
};

const OpenCase kOwnLinks[] = {
    {"an owner's link to his own file is read", [] { giveLinkAndDirectory(kStranger, kHisFile); }, kLink, ELOOP, 0},
    {"a chain of an owner's links to his own file is read",
     [] {
       giveLink(kStranger, kHisFile, "/etc/zuv/dir/second");
       giveLinkAndDirectory(kStranger, "second");
     },
     kLink, ELOOP, 0},
    {"an owner's link over another stranger's link is not read",
     [] {
       host::makeDirs("/etc/zuv/third");
       giveLink(kThird, kHisFile, "/etc/zuv/third/link");
       host::giveTo(kThird, "/etc/zuv/third");
       giveLinkAndDirectory(kStranger, "/etc/zuv/third/link");
     },
     kLink, ELOOP, ELOOP},
    {"a stranger's link in root's directory is not read, even if it leads to an owner's link",
     [] {
       giveLink(kStranger, kHisFile, "/etc/zuv/his/link");
       host::giveTo(kStranger, "/etc/zuv/his");
       giveLink(kStranger, "/etc/zuv/his/link");
     },
     kLink, ELOOP, ELOOP},
    {"an owner's link to root's file is not read", [] { giveLinkAndDirectory(kStranger, kFile); }, kLink, ELOOP, ELOOP},
    {"an owner's link over root's link to root's file is not read",
     [] {
       host::makeLink("/etc/zuv/root's", kFile);
       giveLinkAndDirectory(kStranger, "/etc/zuv/root's");
     },
     kLink, ELOOP, ELOOP},
    {"an owner's link to his file with two names is not read",
     [] {
       ASSERT_EQ(::link(kHisFile, "/etc/zuv/second name"), 0);
       giveLinkAndDirectory(kStranger, kHisFile);
     },
     kLink, ELOOP, ELOOP},
    {"an owner's link to his directory is not read",
     [] {
       host::makeDirs("/etc/zuv/his directory");
       host::giveTo(kStranger, "/etc/zuv/his directory");
       giveLinkAndDirectory(kStranger, "/etc/zuv/his directory");
     },
     kLink, ELOOP, ELOOP},
    {"an owner's link to his FIFO is not read",
     [] {
       host::makeFifo("/etc/zuv/queue");
       host::giveTo(kStranger, "/etc/zuv/queue");
       giveLinkAndDirectory(kStranger, "/etc/zuv/queue");
     },
     kLink, ELOOP, ELOOP},
    {"a file of /proc is not read over an owner's link", [] { giveLinkAndDirectory(kStranger, "/proc/self/status"); },
     kLink, ELOOP, ELOOP},
    {"anybody's link to /dev/null is read", [] { giveLink(kStranger, "/dev/null"); }, kLink, ELOOP, 0},
    {"another device is not read over anybody's link", [] { giveLink(kStranger, "/dev/zero"); }, kLink, ELOOP, ELOOP},
};

const OpenCase kLinksToDirectories[] = {
    {"a trusted link in the place of a directory is followed", [] { host::makeLink("/etc/zuv/way", "/etc/zuv"); },
     "/etc/zuv/way/dir/../file", 0, 0},
    {"a stranger's link in the place of a directory is not followed, whoever owns its target",
     [] {
       host::giveTo(kStranger, "/etc/zuv/dir");
       giveLink(kStranger, "/etc/zuv");
     },
     "/etc/zuv/dir/link/his file", ELOOP, ELOOP},
    {"root's link in a stranger's directory is not followed to a directory",
     [] {
       host::makeLink(kLink, "/etc/zuv");
       host::giveTo(kStranger, "/etc/zuv/dir");
     },
     "/etc/zuv/dir/link/file", ELOOP, ELOOP},
    {"the target of a trusted link must not lead over an untrusted one",
     [] {
       giveLink(kStranger, "/etc/zuv");
       host::makeLink("/etc/zuv/first", "dir/link/file");
     },
     "/etc/zuv/first", ELOOP, ELOOP},
    {"a path that ends with a slash also leads over the link", [] { giveLink(kStranger, "/etc/zuv"); },
     "/etc/zuv/dir/link/", ELOOP, ELOOP},
};

template <std::size_t kCount>
void checkOpening(const OpenCase (&cases)[kCount], void (*prepare)(),
                  int (*errorOf)(const System&, const std::string&, int, Follow)) {
  for (const OpenCase& c : cases) {
    SCOPED_TRACE(c.why);
    prepare();
    c.make();
    for (const System& system : kSystems) {
      SCOPED_TRACE(system.why);
      EXPECT_EQ(errorOf(system, c.path, O_RDONLY, Follow::trusted), c.errorTrusted);
      EXPECT_EQ(errorOf(system, c.path, O_RDONLY, Follow::forReading), c.errorReading);
    }
  }
}

TEST_F(StoreOpenerTest, AWayWithoutLinksIsOpenedAsTheSystemDoesIt) {
  SKIP_WITHOUT_OTHER_USERS();
  checkOpening(kPlainWays, prepare, errorOf);
}

TEST_F(StoreOpenerTest, ALinkToAFileIsFollowedOnlyIfItAndItsDirectoryAreTrusted) {
  SKIP_WITHOUT_OTHER_USERS();
  checkOpening(kLastLinks, prepare, errorOf);
}

TEST_F(StoreOpenerTest, AReaderAlsoFollowsAnOwnersLinkToHisOwnFileAndLinksToTheNullDevice) {
  SKIP_WITHOUT_OTHER_USERS();
  checkOpening(kOwnLinks, prepare, errorOf);
}

TEST_F(StoreOpenerTest, ALinkInTheWorkingDirectoryIsFollowedOnlyIfItAndTheWorkingDirectoryAreTrusted) {
  SKIP_WITHOUT_OTHER_USERS();
  for (const uid_t owner : {uid_t{0}, kStranger}) {
    SCOPED_TRACE(owner);
    prepare();
    host::makeLink(kLink, kFile);
    host::giveTo(owner, "/etc/zuv/dir");
    ASSERT_EQ(::chdir("/etc/zuv/dir"), 0);
    for (const System& system : kSystems) {
      SCOPED_TRACE(system.why);
      EXPECT_EQ(errorOf(system, "link", O_RDONLY, Follow::trusted), owner == 0 ? 0 : ELOOP);
    }
    ASSERT_EQ(::chdir("/"), 0);
  }
}

TEST_F(StoreOpenerTest, AUserTrustsLinksOfRootsAndOfHisOwnAndNoThirdUsers) {
  SKIP_WITHOUT_OTHER_USERS();
  for (const uid_t owner : {uid_t{0}, kStranger, uid_t{kThird}}) {
    SCOPED_TRACE(owner);
    prepareFiles();
    giveLinkAndDirectory(owner, kHisFile);
    const AsUser user(kStranger);
    for (const System& system : kSystems) {
      SCOPED_TRACE(system.why);
      EXPECT_EQ(errorOf(system, kLink, O_RDONLY, Follow::trusted), owner == kThird ? ELOOP : 0);
    }
  }
}

TEST_F(StoreOpenerTest, EveryLinkInThePlaceOfADirectoryMustBeTrusted) {
  SKIP_WITHOUT_OTHER_USERS();
  checkOpening(kLinksToDirectories, prepare, errorOf);
}

TEST_F(StoreOpenerTest, ADirectoryIsOpenedOverTrustedLinksAlone) {
  SKIP_WITHOUT_OTHER_USERS();
  for (const System& system : kSystems) {
    SCOPED_TRACE(system.why);
    const auto errorOfDirectory = [&](const char* path) {
      const ArmedFaults armed(FaultPlan{system.error == 0 ? 0u : 1u, false, system.error, {"openat"}});
      errno = 0;
      return openDirectoryInStore(path, O_RDONLY).isOpen() ? 0 : errno;
    };
    prepare();
    EXPECT_EQ(errorOfDirectory("/etc/zuv/missing/"), ENOENT);
    EXPECT_EQ(errorOfDirectory("/etc/zuv/file"), ENOTDIR);
    host::makeLink(kLink, "/etc/zuv");
    EXPECT_EQ(errorOfDirectory("/etc/zuv/dir/link/"), 0);
    EXPECT_NE(errorOfDirectory("/etc/zuv/dir/link"), 0);
    host::giveTo(kStranger, kLink);
    EXPECT_EQ(errorOfDirectory("/etc/zuv/dir/link/"), ELOOP);
    EXPECT_EQ(errorOfDirectory("/etc/zuv/dir/link/dir"), ELOOP);
  }
}

TEST_F(StoreOpenerTest, APathOfADirectoryWithoutLinksIsOpenedWithOneCall) {
  host::makeDirs("/etc/zuv/dir");
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_TRUE(openDirectoryInStore("/etc/zuv/dir/", O_RDONLY).isOpen());
  EXPECT_EQ(counted.calls(), (std::vector<std::string>{"openat", "close"}));
}

TEST_F(StoreOpenerTest, AMissingTargetIsMadeOverATrustedLinkAlone) {
  SKIP_WITHOUT_OTHER_USERS();
  for (const System& system : kSystems) {
    SCOPED_TRACE(system.why);
    prepare();
    host::makeLink(kLink, "../made");
    giveLink(kStranger, "../never", "/etc/zuv/dir/his");
    const StoreFile file = open(system, kLink, O_WRONLY | O_CREAT, Follow::trusted);
    ASSERT_TRUE(file.fd.isOpen());
    EXPECT_EQ(host::modeOf("/etc/zuv/made"), 0640u);
    EXPECT_EQ(file.name, "made");
    EXPECT_EQ(::unlinkat(file.place(), file.name.c_str(), 0), 0);
    EXPECT_FALSE(host::exists("/etc/zuv/made")) << "the place is the directory of the file itself";
    EXPECT_EQ(errorOf(system, "/etc/zuv/dir/his", O_WRONLY | O_CREAT, Follow::trusted), ELOOP);
    EXPECT_FALSE(host::exists("/etc/zuv/never"));
  }
}

TEST_F(StoreOpenerTest, ALinkThatIsSwappedAtAnyStepNeverOpensRootsFile) {
  SKIP_WITHOUT_OTHER_USERS();
  for (const char* first : {kHisFile, "/dev/null"}) {
    SCOPED_TRACE(first);
    std::size_t steps = 1;
    for (std::size_t at = 1; at <= steps; ++at) {
      SCOPED_TRACE(at);
      prepare();
      giveLinkAndDirectory(kStranger, first);
      struct stat secret = {};
      ASSERT_EQ(::stat(kFile, &secret), 0);
      FaultPlan plan;
      plan.before = [at](std::size_t call) {
        if (call != at) return;
        host::remove(kLink);
        giveLink(kStranger, kFile);
      };
      const ArmedFaults armed(plan);
      const StoreFile file = openInStore(AT_FDCWD, kLink, O_RDONLY, Follow::forReading);
      EXPECT_FALSE(file.fd.isOpen() && isSameFile(file.info, secret));
      if (at == 1) steps = 20;
      steps = std::min(steps, std::max<std::size_t>(armed.count(), at));
    }
    EXPECT_GT(steps, 5u) << "the steps of a walk over a link";
  }
}

TEST_F(StoreOpenerTest, ATrustedLinkThatBecomesAFileIsRefusedOrReadAsThatFile) {
  SKIP_WITHOUT_OTHER_USERS();
  constexpr std::size_t steps = 40;  // more than a walk over the link takes
  std::size_t refusals = 0;
  for (std::size_t at = 1; at <= steps; ++at) {
    SCOPED_TRACE(at);
    prepare();
    host::makeLink(kLink, kHisFile);
    FaultPlan plan;
    plan.before = [at](std::size_t call) {
      if (call != at) return;
      host::remove(kLink);
      host::writeFile(kLink, "a file of root's");
    };
    const ArmedFaults armed(plan);
    if (openInStore(AT_FDCWD, kLink, O_RDONLY, Follow::trusted).fd.isOpen()) continue;
    EXPECT_EQ(errno, ELOOP);
    ++refusals;
  }
  EXPECT_GT(refusals, 0u);
}

TEST_F(StoreOpenerTest, AnOwnersFileThatGetsASecondNameBeforeItIsOpenedIsNotRead) {
  SKIP_WITHOUT_OTHER_USERS();
  prepare();
  giveLinkAndDirectory(kStranger, kHisFile);
  FaultPlan plan;
  plan.calls = {"open"};  // the one of the path in /proc
  plan.before = [](std::size_t) { ASSERT_EQ(::link(kHisFile, "/etc/zuv/second name"), 0); };
  const ArmedFaults armed(plan);
  EXPECT_FALSE(openInStore(AT_FDCWD, kLink, O_RDONLY, Follow::forReading).fd.isOpen());
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(armed.count(), 1u);
}

// A process of the stranger's, until the end of the scope.
class StrangersProcess {
 public:
  StrangersProcess() {
    int ready[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ready, O_CLOEXEC), 0);
    child_ = ::fork();
    if (child_ == 0) {
      // Without the flag, the files of a process that changed its user belong to root.
      const bool isHis = ::setuid(kStranger) == 0 && ::prctl(PR_SET_DUMPABLE, 1) == 0;
      (void)!::write(ready[1], isHis ? "y" : "n", 1);
      for (;;) ::pause();
    }
    char answer = '\0';
    EXPECT_EQ(::read(ready[0], &answer, 1), 1);
    isHis_ = answer == 'y';
    (void)::close(ready[0]);
    (void)::close(ready[1]);
  }
  ~StrangersProcess() {
    EXPECT_EQ(::kill(child_, SIGKILL), 0);
    EXPECT_EQ(::waitpid(child_, nullptr, 0), child_);
  }
  StrangersProcess(const StrangersProcess&) = delete;
  StrangersProcess& operator=(const StrangersProcess&) = delete;

  bool isHis() const { return isHis_; }
  std::string statusFile() const { return "/proc/" + std::to_string(child_) + "/status"; }

 private:
  pid_t child_ = -1;
  bool isHis_ = false;
};

TEST_F(StoreOpenerTest, AFileOfProcIsNotReadOverALinkOfItsOwnOwner) {
  SKIP_WITHOUT_OTHER_USERS();
  const StrangersProcess process;
  if (!process.isHis()) GTEST_SKIP() << "an emulated process cannot be made dumpable";
  struct stat info = {};
  ASSERT_EQ(::stat(process.statusFile().c_str(), &info), 0);
  ASSERT_EQ(info.st_uid, kStranger);
  prepare();
  giveLinkAndDirectory(kStranger, process.statusFile());
  EXPECT_FALSE(openInStore(AT_FDCWD, kLink, O_RDONLY, Follow::forReading).fd.isOpen());
  EXPECT_EQ(errno, ELOOP);
}

TEST_F(StoreOpenerTest, AFileOfAnUnknownFileSystemIsNotReadOverAnOwnersLink) {
  SKIP_WITHOUT_OTHER_USERS();
  prepare();
  giveLinkAndDirectory(kStranger, kHisFile);
  EXPECT_TRUE(openInStore(AT_FDCWD, kLink, O_RDONLY, Follow::forReading).fd.isOpen());
  const ArmedFaults armed{FaultPlan{1, true, ENOSYS, {"fstatfs"}}};
  EXPECT_FALSE(openInStore(AT_FDCWD, kLink, O_RDONLY, Follow::forReading).fd.isOpen());
  EXPECT_EQ(errno, ENOSYS);
}

TEST_F(StoreOpenerTest, AnOpenedFileIsCloseOnExecAndAQueueDoesNotBlock) {
  host::makeFifo("/etc/zuv/queue");
  for (const System& system : kSystems) {
    SCOPED_TRACE(system.why);
    const StoreFile file = open(system, "/etc/zuv/queue", O_RDONLY, Follow::trusted);
    ASSERT_TRUE(file.fd.isOpen());
    EXPECT_TRUE(S_ISFIFO(file.info.st_mode));
    EXPECT_EQ(::fcntl(file.fd.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  }
}

TEST_F(StoreOpenerTest, OthersMayWriteWhereTheOwnerTheModeOrAnAccessListLetsThem) {
  SKIP_WITHOUT_OTHER_USERS();
  struct Case {
    const char* why;
    uid_t owner;
    gid_t group;
    mode_t mode;
    bool hasList;
    bool mayWrite;
  };
  const Case cases[] = {
      {"root's directory is root's alone", 0, 0, 0755, false, false},
      {"the owner's own group is the owner", 0, 0, 0775, false, false},
      {"a stranger owns it", kStranger, kStranger, 0700, false, true},
      {"others may write", 0, 0, 0757, false, true},
      {"another group may write", 0, kThird, 0775, false, true},
      {"another group may not write", 0, kThird, 0755, false, false},
      {"an access list lets a stranger write", 0, 0, 0755, true, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    prepare();
    ASSERT_EQ(::chown("/etc/zuv/dir", c.owner, c.group), 0);
    host::setMode("/etc/zuv/dir", c.mode);
    if (c.hasList) setAccessList("/etc/zuv/dir");
    const StoreFile directory = openInStore(AT_FDCWD, "/etc/zuv/dir", O_PATH, Follow::trusted);
    EXPECT_EQ(othersMayWrite(directory.fd.get(), directory.info), c.mayWrite);
    ASSERT_EQ(::chdir("/etc/zuv/dir"), 0);
    EXPECT_EQ(othersMayWrite(AT_FDCWD, directory.info), c.mayWrite) << "as the working directory";
    ASSERT_EQ(::chdir("/"), 0);
  }
}

TEST_F(StoreOpenerTest, AFileSystemWithoutAccessListsHasNoneAndADirectoryThatCannotBeAskedCountsAsOneWithAList) {
  host::makeDirs("/tmp/ram");
  if (::mount("ramfs", "/tmp/ram", "ramfs", 0, "mode=0775") != 0) GTEST_SKIP() << "needs a ramfs";
  {
    const StoreFile directory = openInStore(AT_FDCWD, "/tmp/ram", O_PATH, Follow::trusted);
    EXPECT_EQ(directory.info.st_mode & 07777, 0775u);
    EXPECT_FALSE(othersMayWrite(directory.fd.get(), directory.info));
    constexpr int notOpen = 1000;
    EXPECT_TRUE(othersMayWrite(notOpen, directory.info));
  }
  EXPECT_EQ(::umount("/tmp/ram"), 0);
}

TEST_F(StoreOpenerTest, APathLeadsOverAnUntrustedLinkOnlyIfThereIsOne) {
  SKIP_WITHOUT_OTHER_USERS();
  prepare();
  giveLink(kStranger, kHisFile);
  host::makeLink("/etc/zuv/ours", kHisFile);
  EXPECT_TRUE(leadsOverUntrustedLink(kLink));
  for (const char* path : {"/etc/zuv/ours", kFile, "/etc/zuv/missing"}) {
    EXPECT_FALSE(leadsOverUntrustedLink(path)) << path;
  }
}

void expectThatFaultsOpenNothing(const FaultLoop& loop) {
  const auto open = [] { return openInStore(AT_FDCWD, kLink, O_RDONLY, Follow::forReading).fd.isOpen(); };
  forEachFault(loop, open, [](bool isOpened, const Fault& fault) {
    if (fault.call == "close") {
      EXPECT_TRUE(isOpened || fault.fromThereOn) << "a close that fails has closed nevertheless";
    } else {
      EXPECT_EQ(isOpened, !fault);
    }
  });
}

TEST_F(StoreOpenerTest, AFaultOpensNothingAndLeaksNothing) {
  for (const bool isOurs : {true, false}) {
    if (!isOurs && !hasOtherUsers()) continue;
    SCOPED_TRACE(isOurs ? "a trusted link" : "an owner's link");
    const FaultLoop loop{[isOurs] {
      prepareFiles();
      host::makeLink(kLink, isOurs ? kFile : kHisFile);
      if (isOurs) return;
      for (const char* path : {kHisFile, kLink, "/etc/zuv/dir"}) host::giveTo(kStranger, path);
    }};
    expectThatFaultsOpenNothing(loop);
  }
}

TEST_F(StoreOpenerTest, AFaultDoesNotOpenAFileWithASecondName) {
  const FaultLoop loop{[] {
    prepareFiles();
    ASSERT_EQ(::link(kFile, "/etc/zuv/second name"), 0);
    host::makeLink(kLink, kFile);
  }};
  expectThatFaultsOpenNothing(loop);
}

}  // namespace
