// Power cuts. The store is on an ext4 image. The tracer stops the program before each system call that changes the
// disk; then the test copies the image, mounts the copy and checks the files that had reached the disk.
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>

#include "testing/faults/DiskImage.h"
#include "testing/faults/StoreCheck.h"
#include "testing/faults/Tracer.h"
#include "testing/run/HostTest.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using Words = std::vector<std::string>;

constexpr const char* kBase = "/run/base";    // the image at the start of every run
constexpr const char* kLive = "/run/live";    // the image that the program changes
constexpr const char* kCut = "/run/cut";      // a copy of the live image, as after a power cut
constexpr const char* kAfter = "/run/after";  // the mount point of a cut image

bool isSync(const SystemCall& call) { return call.number == SYS_fsync || call.number == SYS_fdatasync; }

std::string contentOf(const std::string& path) { return host::exists(path) ? host::readFile(path) : "(missing)"; }

TraceResult runStoppingAtEachCall(const Words& words, const std::function<Meddling(const SystemCall&)>& atEachCall) {
  TracePlan plan;
  plan.atEachCall = atEachCall;
  plan.seconds = 0;  // no limit, because the cuts take most of the time; CTest has its own limit
  // A sanitizer cannot check for leaks in a traced program.
  plan.environment = {"PATH=/usr/bin:/usr/sbin", "ASAN_OPTIONS=detect_leaks=0"};
  return traceProgram(words, plan);
}

// Whether another program syncs a file on the same disk before a cut. That also writes the journal to the disk.
enum class Others { areQuiet, sync };
enum class Syncs { real, pretended };

enum class Way { replaces, writesInPlace };
constexpr Way kInPlace = Way::writesInPlace;

struct Edit {
  const char* why;
  Words words;       // the command line without the program
  const char* file;  // the file that it changes, relative to /etc/zuv
  Way way = Way::replaces;
};

const Edit kNetwork = {"an interface", {"profile", "modify", "lab", "network=eth1"}, "profiles/profile-1/hip.conf"};
const Edit kEdits[] = {
    kNetwork,
    {"an invitation", {"profile", "modify", "lab", "invitation=new"}, "profiles/profile-1/endbox.conf"},
    {"no invitation", {"profile", "modify", "lab", "invitation=###"}, "profiles/profile-1/endbox.conf"},
    {"a level", {"profile", "modify", "lab", "log_level=debug"}, "profiles/profile-1/endbox.conf"},
    {"a new file", {"profile", "modify", "office", "invitation=new"}, "profiles/profile-2/endbox.conf"},
    {"a large file", {"profile", "modify", "large", "network=eth1"}, "profiles/profile-3/hip.conf"},
    // These commands write a file in place. The only promise is that the store stays usable.
    {"a shorter name", {"profile", "rename", "office", "new_name=it"}, "profiles/profile-2/profile_name", kInPlace},
    {"a longer name", {"profile", "rename", "lab", "new_name=laboratory"}, "profiles/profile-1/profile_name", kInPlace},
    {"an address", {"profile", "modify", "lab", "helmsor=b:1"}, "profiles/profile-1/mapconfig.static", kInPlace},
};

constexpr const char* kOptions[] = {"", "noauto_da_alloc", "data=writeback", "noauto_da_alloc,data=writeback,commit=1"};

struct Cuts {
  size_t count = 0;
  size_t old = 0;                  // cuts that left the old file
  std::vector<std::string> flaws;  // states that no cut may leave
  std::vector<std::string> hurt;   // contents of files written in place that are neither old nor new
};

// Runs an edit on a fresh copy of the store, with a cut before each changing call and one after the end.
class CutRun {
 public:
  CutRun(const Edit& edit, const std::string& options) : edit_(edit), options_(options) {
    copyImage(kBase, kLive);
    old_ = contentOfCut(kLive);
    new_ = expected(old_);
  }

  // Returns the cuts of all runs so far.
  Cuts run(Others others, Syncs syncs) {
    copyImage(kBase, kLive);
    const MountedImage live(kLive, "/etc/zuv", options_);
    Words words = edit_.words;
    words.insert(words.begin(), ravctlPath());
    const TraceResult end = runStoppingAtEachCall(words, [&](const SystemCall& call) {
      if (call.changesDisk || isSync(call)) cut("before " + nameOfCall(call.number), others, false);
      return syncs == Syncs::pretended && isSync(call) ? Meddling::pretend : Meddling::none;
    });
    if (end.exitStatus != 0 || end.out.find("status_code: 0x1") != std::string::npos) {
      cuts_.flaws.push_back("the command failed: " + host::quoted(end.out + end.err));
    }
    cut("after the end", others, true);
    return cuts_;
  }

 private:
  // Returns the new content that the edit should write, without use of the product.
  std::string expected(const std::string& old) const {
    const std::string& word = edit_.words.back();
    const std::string value = word.substr(word.find('=') + 1);
    if (word.compare(0, 9, "new_name=") == 0) return value + "\n";
    if (word.compare(0, 8, "helmsor=") == 0) return "map_uri=https://" + value + "\n";
    if (word == "invitation=###") return replaced(old, "activation_code=", "");
    if (word.compare(0, 8, "network=") == 0)
      return replaced(old, "master_interface=", "master_interface=" + value + "\n");
    if (word.compare(0, 11, "invitation=") == 0)
      return replaced(old, "activation_code=", "activation_code=" + value + "\n");
    return replaced(replaced(old, "log_level=", "log_level=" + value + "\n"),
                    "openhip.log_level=", "openhip.log_level=" + value + "\n");
  }

  static std::string replaced(const std::string& old, const std::string& begin, const std::string& line) {
    if (old == "(missing)") return line;
    std::string text = "\n" + old;
    const size_t at = text.find("\n" + begin);
    if (at == std::string::npos) return old + line;
    text.replace(at + 1, text.find('\n', at + 1) - at, line);
    return text.substr(1);
  }

  std::string contentOfCut(const std::string& image) const {
    const MountedImage after(image, kAfter, options_);
    return contentOf(std::string(kAfter) + "/" + edit_.file);
  }

  void cut(const std::string& when, Others others, bool hasReported) {
    if (others == Others::sync) syncSomethingElse();
    copyImage(kLive, kCut);
    const std::string content = contentOfCut(kCut);
    ++cuts_.count;
    if (content == old_) ++cuts_.old;
    const auto tell = [&](const char* what) {
      cuts_.flaws.push_back(std::string(edit_.why) + " (" + options_ + ") " + when + " " + what + ": " +
                            host::quoted(content.substr(0, 200)));
    };
    if (edit_.way == Way::writesInPlace) {
      if (content != old_ && content != new_) cuts_.hurt.push_back(host::quoted(content));
      if (!canBeUsed()) tell("leaves a store that cannot be used");
      return;
    }
    if (content != old_ && content != new_) tell("is neither old nor new");
    if (hasReported && content != new_) tell("is not new");
  }

  // Mounts the cut image over the live store, whose files the stopped program has open.
  bool canBeUsed() const {
    const MountedImage above(kCut, "/etc/zuv", options_);
    const Outcome listed = runRavctl({"list", "profiles"});
    const Outcome renamed = runRavctl({"profile", "rename", "dir=profile-1", "new_name=used"});
    return listed.out.find("profile-1\t") != std::string::npos && renamed.out == "profile_name: used\n" &&
           contentOf("/etc/zuv/profiles/profile-1/profile_name") == "used\n";
  }

  // Writes the journal to the disk, but no file data of the program.
  static void syncSomethingElse() {
    const int fd = ::open("/etc/zuv/other", O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600);
    const bool done = fd >= 0 && ::write(fd, "x", 1) == 1 && ::fsync(fd) == 0;
    if (fd >= 0) ::close(fd);
    if (!done) throw std::runtime_error("could not sync another file");
  }

  const Edit& edit_;
  const std::string options_;
  std::string old_;
  std::string new_;
  Cuts cuts_;
};

class PowerCut : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    const std::string reason = whyNoTracing().empty() ? whyNoDiskImage() : whyNoTracing();
    if (!reason.empty()) GTEST_SKIP() << reason;
    makeDiskImage(kBase, 8 << 20);
    const MountedImage disk(kBase, "/etc/zuv");
    fill();
  }

  // Returns the sum of the cuts of one edit without and with syncs of another program.
  static Cuts cutAll(const Edit& edit, const std::string& options) {
    CutRun both(edit, options);
    (void)both.run(Others::areQuiet, Syncs::real);
    return both.run(Others::sync, Syncs::real);
  }

 private:
  static void fill() {
    host::makeDirs(host::kFactory);
    host::makeProfile("profile-1", "lab");
    host::makeProfile("profile-2", "office");
    host::makeProfile("profile-3", "large");
    host::makeActive("profile-1");
    const std::string root = host::kProfiles;
    host::writeFile(root + "profile-1/hip.conf", "# the daemon's\nmaster_interface=eth0\nmode=fast\n");
    host::writeFile(root + "profile-1/mapconfig.static", "map_uri=https://old.example:4430\n");
    host::writeFile(root + "profile-1/endbox.conf", "device_ip=10.0.0.1\nactivation_code=old\nlog_level=info\n");
    std::string large;
    for (int i = 0; i < 9000; ++i) large += "key" + std::to_string(i) + "=value\n";
    host::writeFile(root + "profile-3/hip.conf", large + "master_interface=eth0\n");
  }
};

TEST_F(PowerCut, AReplacedFileIsOldOrNewAndIsNewOnceSuccessIsReported) {
  const Cuts cuts = cutAll(kNetwork, "noauto_da_alloc");
  EXPECT_THAT(cuts.flaws, IsEmpty());
  EXPECT_GE(cuts.count, 16u);
  EXPECT_GE(cuts.old, 8u) << "no cut came before the change";
  EXPECT_LT(cuts.old, cuts.count) << "no cut came after it";
  std::printf("%zu cuts, %zu old\n", cuts.count, cuts.old);
}

// Proves that the cuts detect a program whose syncs do nothing.
TEST_F(PowerCut, WithoutItsSyncsTheFileIsLost) {
  const Cuts cuts = CutRun(kNetwork, "noauto_da_alloc").run(Others::sync, Syncs::pretended);
  EXPECT_THAT(cuts.flaws, Contains(HasSubstr("after the end is not new")));
  EXPECT_THAT(cuts.flaws, Contains(HasSubstr("is neither old nor new: \"\"")));
}

class PowerCutLong : public PowerCut {};

TEST_F(PowerCutLong, EveryEditIsSafeWithEveryMountOption) {
  size_t count = 0;
  for (const char* options : kOptions) {
    for (const Edit& edit : kEdits) {
      const Cuts cuts = cutAll(edit, options);
      EXPECT_THAT(cuts.flaws, IsEmpty());
      EXPECT_GE(cuts.count, edit.way == Way::replaces ? 16u : 8u) << edit.why;
      if (edit.way == Way::replaces) count += cuts.count;
      std::printf("%4zu cuts, %4zu old, %2zu neither old nor new%s: %s (%s)\n", cuts.count, cuts.old, cuts.hurt.size(),
                  cuts.hurt.empty() ? "" : (", such as " + cuts.hurt.back()).c_str(), edit.why, options);
    }
  }
  std::printf("%zu cuts of replaced files in all\n", count);
}

// A cut leaves the temporary file of the edit behind. The next edit ignores it.
TEST_F(PowerCut, ALeftoverTemporaryFileDoesNotDisturbTheNextEdit) {
  copyImage(kBase, kLive);
  {
    const MountedImage live(kLive, "/etc/zuv");
    size_t renames = 0;
    const Words modify = {ravctlPath(), "profile", "modify", "lab", "network=eth1"};
    (void)runStoppingAtEachCall(modify, [&](const SystemCall& call) {
      if (call.number == SYS_renameat && ++renames == 1) copyImage(kLive, kCut);
      return Meddling::none;
    });
    ASSERT_EQ(renames, 1u);
  }
  const MountedImage after(kCut, "/etc/zuv");
  EXPECT_THAT(flawsOfStore(), Contains(HasSubstr("hip.conf.temp is a temporary file")));
  EXPECT_EQ(runRavctl({"profile", "modify", "lab", "network=eth2"}).exitStatus, 0);
  EXPECT_EQ(pairsOf("/etc/zuv/profiles/profile-1/hip.conf")["master_interface"], "eth2");
  EXPECT_THAT(flawsOfStore(), IsEmpty());
}

}  // namespace
