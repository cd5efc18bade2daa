// The files that the program reads are huge, or the store holds a huge number of entries. The program needs only a
// limited amount of memory and time.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>

#include "testing/run/HostTest.h"

namespace {

using Words = std::vector<std::string>;
using testing::HasSubstr;
using namespace std::string_literals;

constexpr const char* kProfile = "/etc/zuv/profiles/profile-1/";
constexpr off_t kFourGigabytes = off_t{4} << 30;
constexpr unsigned long kMegabyte = 1UL << 20;
constexpr unsigned long kLittle = 8;  // megabytes of address space; the program needs 3 in an ordinary store
constexpr const char* kNotRunning = "running: false\nhelmsor: false\ntunnel: false\n";
constexpr const char* kListed = "profile-1\t'lab'\ncurrent_name: lab\n";
constexpr const char* kNoLog = "no logfile available for this profile\n";
constexpr const char* kBareDetails =
    "profile_dir=profile-1\nprofile_name=lab\nnetwork=\ndeviceID=\noverlay_device_ip=\noverlay_mask=\nlog_level=\n";

// Adds entries that are no profiles to the store: a third each are files,
// links and hidden folders.
void fillRoot(int entries) {
  for (int i = 0; i < entries; ++i) {
    const std::string path = host::kProfiles + std::string(i % 3 == 2 ? "." : "") + "entry-" + std::to_string(i);
    const int done = i % 3 == 0   ? ::mknod(path.c_str(), S_IFREG | 0644, 0)
                     : i % 3 == 1 ? ::symlink("profile-1", path.c_str())
                                  : ::mkdir(path.c_str(), 0755);
    ASSERT_EQ(done, 0);
  }
}

class HostileSizeTest : public HostTest {
 public:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
#ifdef RAVCTL_SANITIZED
    GTEST_SKIP() << "a sanitizer takes terabytes of address space";
#endif
    if (std::getenv("RAVCTL_EMULATOR") != nullptr) GTEST_SKIP() << "the emulator takes gigabytes of address space";
    setScene();
  }

  static void setScene() {
    host::reset();
    host::makeProfile("profile-1", "lab");
    host::makeActive("profile-1");
  }

  // 64 MiB of address space are enough for the program, its stack and its allocations.
  static Outcome runBounded(const Words& words, unsigned long megabytes = 64) {
    Start start;
    start.memoryLimit = megabytes * kMegabyte;
    start.seconds = 600;
    Outcome outcome = runRavctl(words, start);
    EXPECT_EQ(outcome.signal, 0) << "it took too long";
    EXPECT_EQ(outcome.err, "");
    return outcome;
  }

  static void expectBoundedWith(int entries) {
    fillRoot(entries);
    EXPECT_EQ(runBounded({"list", "profiles"}).out, kListed);
    EXPECT_EQ(runBounded({"profile", "create", "new", "helmsor=h", "--quiet"}).out, "profile_name: new\n");
    EXPECT_EQ(runBounded({"profile", "delete", "new"}).out, "");
  }
};

using HostileSizeTestLong = HostileSizeTest;

struct Row {
  const char* file;
  const char* start;  // of the file; a hole of zero bytes follows
  Words words;
  std::string out;
};
const Row kRows[] = {
    {".current", "", {"service", "status"}, kNotRunning},
    {".current", "", {"list", "log", ""}, kNoLog},
    {".current", "profile-1\n", {"list", "profiles"}, kListed},
    {".current", "", {"list", "profiles"}, kListed},
    {"profile-1/profile_name", "", {"list", "profiles"}, "profile-1\t'profile'\ncurrent_name: profile\n"},
    {"profile-1/profile_name", "lab\n", {"list", "profiles"}, kListed},
    {"profile-1/hip.conf", "", {"profile", "details", "lab"}, kBareDetails},
    {"profile-1/endbox.conf", "", {"profile", "details", "lab"}, kBareDetails},
    {"profile-1/mapconfig.static", "", {"profile", "details", "lab"}, kBareDetails},
    {"profile-1/device_id", "", {"profile", "details", "lab"}, kBareDetails},
    {"profile-1/hipvars.txt", "", {"service", "status"}, kNotRunning},
    {"profile-1/hipvars.txt", "uptime.now=1\nuptime.started=1\n", {"support", "reset", "lab"}, "support reset: lab\n"},
    {"profile-1/hip.log", "", {"list", "log", "lab"}, "profile_name: lab\n"},
    {"profile-1/hip.log", "INFO text\n", {"list", "log", "lab"}, "INFO text\nprofile_name: lab\n"},
    {".factory/firmware_revision", "4.1.7\n", {"list", "versions"}, "hipapp_version: 4.1.7\nravctl_version: 2.2\n"},
};

TEST_F(HostileSizeTest, SparseFilesOfFourGigabytesTakeLittleMemoryAndTime) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(std::string(row.file) + ": " + testing::PrintToString(row.words));
    setScene();
    const std::string path = std::string(host::kProfiles) + row.file;
    host::writeSparse(path, kFourGigabytes, {{0, row.start}});
    EXPECT_EQ(runBounded(row.words).out, row.out);
  }
}

TEST_F(HostileSizeTest, AnEditOfASparseFileKeepsItSparse) {
  const std::string conf = std::string(kProfile) + "endbox.conf";
  host::writeSparse(conf, kFourGigabytes, {{0, "log_level=info\n"}});
  EXPECT_EQ(runBounded({"profile", "modify", "lab", "log_level=debug", "--quiet"}).out, "");
  struct stat info {};
  ASSERT_EQ(::stat(conf.c_str(), &info), 0);
  EXPECT_GT(info.st_size, kFourGigabytes);
  EXPECT_LT(info.st_blocks * 512, 1 << 20);
  EXPECT_THAT(runBounded({"profile", "details", "lab"}).out, HasSubstr("log_level=debug\n"));
}

// Writes a file of `bytes` bytes that repeats `unit`.
void fillWith(const std::string& path, const std::string& unit, size_t bytes) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  std::string block;
  while (block.size() < kMegabyte) block += unit;
  for (size_t done = 0; done < bytes; done += block.size()) {
    ASSERT_EQ(::write(fd, block.data(), block.size()), static_cast<ssize_t>(block.size()));
  }
  ::close(fd);
}

void appendTo(const std::string& path, const std::string& text) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  ASSERT_EQ(::write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  ::close(fd);
}

TEST_F(HostileSizeTest, BlankLinesBeforeAMarkerTakeLittleMemory) {
  for (const char* unit : {"\n", " \t\r\n", "                                                             \n"}) {
    SCOPED_TRACE(unit);
    fillWith(host::kCurrent, unit, 8 * kMegabyte);
    EXPECT_EQ(runBounded({"list", "log", ""}).out, kNoLog);
    appendTo(host::kCurrent, "profile-1\n");
    EXPECT_EQ(runBounded({"list", "log", ""}).out, kNoLog);
    EXPECT_EQ(runBounded({"list", "profiles"}).out, kListed);
  }
}

TEST_F(HostileSizeTest, TheLongestAcceptedLinesFitIntoMemory) {
  const std::string longest(9'999'000, 'x');
  host::writeFile(std::string(kProfile) + "profile_name", longest + "\n");
  EXPECT_THAT(runBounded({"profile", "details", "dir=profile-1"}, 128).out,
              HasSubstr("profile_name=" + longest + "\n"));
  // A line is printed up to its first zero byte.
  host::writeSparse(std::string(kProfile) + "profile_name", 9'999'000, {{0, "x"}, {9'998'999, "x"}});
  EXPECT_EQ(runBounded({"list", "profiles"}, 128).out, "profile-1\t'x\ncurrent_name: x\n");
  host::writeFile(host::kCurrent, longest + "\n");
  EXPECT_EQ(runBounded({"service", "status"}).out, kNotRunning);
}

TEST_F(HostileSizeTest, ALogOfLongLinesTakesMemoryOnlyForTheShownLines) {
  fillWith(std::string(kProfile) + "hip.log", std::string(100'000, 'x') + "\n", 64 * kMegabyte);
  EXPECT_EQ(runBounded({"list", "log", "lab", "max_lines=1"}).out.size(), 100'000 % 4095 + 1 + 18);
}

// Returns the least address space, in steps of 64 KiB, in which the command succeeds.
unsigned long leastMemoryFor(const Words& words) {
  Start start;
  unsigned long limit = kMegabyte;
  for (; limit < 64 * kMegabyte; limit += 64 << 10) {
    start.memoryLimit = limit;
    if (runRavctl(words, start).exitStatus == 0) break;
  }
  return limit;
}

TEST_F(HostileSizeTest, ALogOfAnyLinesTakesAtMostTwoBuffersOf256KibMoreThanAShortOne) {
  const Words words = {"list", "log", "lab", "max_lines=1", "log_level=error"};
  const std::string log = std::string(kProfile) + "hip.log";
  host::writeFile(log, "[ERROR] text\n");
  const unsigned long most = leastMemoryFor(words) + (2 * 256 << 10) + (128 << 10);
  for (const std::string& unit : {"[INFO] text\n"s, std::string(100'000, 'x') + "\n", "a long line "s}) {
    SCOPED_TRACE(unit.substr(0, 12));
    fillWith(log, unit, 16 * kMegabyte);
    EXPECT_LE(leastMemoryFor(words), most);
  }
}

TEST_F(HostileSizeTest, AHeartbeatFileOfAnyContentTakesLittleMemory) {
  for (const std::string& unit :
       {std::string(100'000, 'x') + "\n", "uptime.now=" + std::string(100'000, '1'), "uptime.now=1\n"s, "a=b\n"s}) {
    SCOPED_TRACE(unit.substr(0, 12));
    fillWith(std::string(kProfile) + "hipvars.txt", unit, 16 * kMegabyte);
    EXPECT_EQ(runBounded({"service", "status"}, kLittle).out, kNotRunning);
  }
}

// Each of the line ends is in a disk block of its own, and each line is just short enough to be read.
host::Islands lineEnds(int count) {
  constexpr off_t distance = 9'990'000 / 4096 * 4096;
  host::Islands islands;
  for (int i = 1; i <= count; ++i) islands.push_back({i * distance, "\n"});
  return islands;
}

void expectHolesTakeLittleMemory(int count, const std::function<Outcome(const Words&)>& run) {
  for (const Row& row : kRows) {
    const std::string file = row.file;
    if (file == "profile-1/hip.log") continue;  // its zero bytes are no blank lines
    SCOPED_TRACE(file + ": " + testing::PrintToString(row.words));
    HostileSizeTest::setScene();
    host::Islands islands = lineEnds(count);
    islands.push_back({islands.back().offset + 1, row.start});
    const std::string path = host::kProfiles + file;
    host::writeSparse(path, islands.back().offset + kFourGigabytes, islands);
    EXPECT_EQ(run(row.words).out, row.out);
  }
}

TEST_F(HostileSizeTest, HolesBetweenBlankLinesTakeLittleMemory) {
  expectHolesTakeLittleMemory(20, [](const Words& words) { return runBounded(words, kLittle); });
}

TEST_F(HostileSizeTestLong, ThousandsOfHolesBetweenBlankLinesTakeLittleMemory) {
  expectHolesTakeLittleMemory(5000, [](const Words& words) { return runBounded(words, kLittle); });
}

TEST_F(HostileSizeTestLong, AGigabyteOfBlankLinesInTheMarkerTakesLittleMemory) {
  fillWith(host::kCurrent, "\n", 1024 * kMegabyte);
  EXPECT_EQ(runBounded({"list", "log", ""}).out, kNoLog);
}

// --- Many entries

TEST_F(HostileSizeTest, EntriesThatAreNoProfilesTakeLittleMemory) { expectBoundedWith(30'000); }

TEST_F(HostileSizeTestLong, EntriesThatAreNoProfilesTakeLittleMemory) { expectBoundedWith(1'000'000); }

// Makes entries with names of 250 bytes in the profile.
void fillProfile(const std::function<int(const char*)>& make, int entries) {
  for (int i = 0; i < entries; ++i) {
    const std::string number = std::to_string(i);
    const std::string path = kProfile + std::string(250 - number.size(), 'x') + number;
    ASSERT_EQ(make(path.c_str()), 0);
  }
}

void expectRemovalTakesLittleMemory(int entries, const std::function<Outcome(const Words&)>& run) {
  struct Case {
    const char* why;
    std::function<int(const char*)> make;
    bool isRemoved;
  };
  const Case cases[] = {
      {"files", [](const char* path) { return ::mknod(path, S_IFREG | 0644, 0); }, true},
      {"links", [](const char* path) { return ::symlink("profile_name", path); }, true},
      {"directories", [](const char* path) { return ::mkdir(path, 0755); }, true},
      {"FIFOs", [](const char* path) { return ::mkfifo(path, 0644); }, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    HostileSizeTest::setScene();
    fillProfile(c.make, entries);
    EXPECT_EQ(run({"profile", "delete", "lab"}).exitStatus, 0);
    EXPECT_EQ(host::exists("/etc/zuv/profiles/profile-1"), !c.isRemoved);
  }
}

TEST_F(HostileSizeTest, AProfileWithManyEntriesIsRemovedWithLittleMemory) {
  expectRemovalTakesLittleMemory(40'000, [](const Words& words) { return runBounded(words, kLittle); });
}

TEST_F(HostileSizeTestLong, AProfileWithManyEntriesIsRemovedWithLittleMemory) {
  expectRemovalTakesLittleMemory(300'000, [](const Words& words) { return runBounded(words, 2 * kLittle); });
}

// On a bind mount the kernel takes time for the whole depth to go through "..".
TEST_F(HostileSizeTestLong, AVeryDeepTreeOnABindMountIsRemovedWithFewDescriptors) {
  host::makeDirs("/tmp/store");
  ASSERT_EQ(::mount("/tmp/store", host::kProfiles, nullptr, MS_BIND, nullptr), 0);
  host::makeProfile("profile-1", "lab");
  host::makeActive("profile-1");
  int fd = ::open(kProfile, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int i = 0; i < 30'000; ++i) {
    ASSERT_EQ(::mkdirat(fd, "d", 0755), 0);
    const int next = ::openat(fd, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(fd);
    fd = next;
  }
  ::close(fd);
  Start start;
  start.descriptorLimit = 32;
  start.memoryLimit = 2 * kLittle * kMegabyte;
  EXPECT_EQ(runRavctl({"profile", "delete", "lab"}, start).out, "");
  EXPECT_FALSE(host::exists(kProfile));
  EXPECT_EQ(::umount(host::kProfiles), 0);
}

// Takes every number that a new profile could get, up to `last`.
void takeNumbers(int last) {
  for (int number = 123123; number <= last; ++number) {
    const std::string path = host::kProfiles + std::string("profile-") + std::to_string(number);
    ASSERT_EQ(::mknod(path.c_str(), S_IFREG | 0644, 0), 0);
  }
}

TEST_F(HostileSizeTest, ANewProfileGetsTheFirstFreeNumber) {
  takeNumbers(123123 + 20'000);
  EXPECT_EQ(runBounded({"profile", "create", "new", "helmsor=h"}).exitStatus, 0);
  EXPECT_TRUE(host::exists("/etc/zuv/profiles/profile-143124/profile_name"));
}

TEST_F(HostileSizeTestLong, ANewProfileIsRefusedIfAllNumbersAreTaken) {
  takeNumbers(999998);
  EXPECT_EQ(runBounded({"profile", "create", "new", "helmsor=h"}).out,
            "status_text: application error\nstatus_code: 0x12000001\n");
}

}  // namespace
