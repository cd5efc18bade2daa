// Tests of rotated files and of their emitter, with a clock that the tests set.
#include "log/output/RotatedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "base/files/DirectoryListing.h"
#include "base/files/WholeFile.h"
#include "base/text/TimeUtils.h"
#include "log/output/LogManager.h"
#include "log/output/RotatedFileEmitter.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"
#include "testing/run/LogLines.h"

namespace {

using namespace BasicLog;
using testing::ElementsAre;
using testing::IsEmpty;
using zuvsvc::ConfigResult;

constexpr char kLogs[] = "/tmp/logs";
constexpr std::int64_t kDay = 86'400'000'000;
constexpr std::int64_t kHour = 3'600'000'000;

std::int64_t at(const char* isoTime) { return TimeUtils::parseIsoTime(isoTime); }

std::atomic<std::int64_t> now{0};
std::int64_t testClock() { return now; }

std::vector<std::string> logged;
class LoggedEntries : public LogMessageProcessor {
 public:
  void process(std::unique_ptr<const LogMessage>& m) override {
    logged.push_back(lineOf(*m));
    m.reset();
  }
};

void setZone(const char* zone) {
  if (zone == nullptr) {
    ::unsetenv("TZ");
  } else {
    ::setenv("TZ", zone, 1);
  }
  ::tzset();
}

// Has an emitter of hourly files "app-..." in a directory that does not exist yet. The time is 2025-03-02 13:05 UTC.
class RotatedFileTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    logged.clear();
    setZone("UTC0");
    now = at("2025-03-02T13:05:00");
    configure("1 hour", "app-", kLogs);
    setSyncProcessor(new LoggedEntries);
  }
  void TearDown() override {
    setSyncProcessor(nullptr);
    setZone(nullptr);
  }

  void configure(const char* interval, const char* prefix, const char* directory) {
    EXPECT_EQ(emitter_.setConfig("interval", interval), ConfigResult::accepted);
    EXPECT_EQ(emitter_.setConfig("prefix", prefix), ConfigResult::accepted);
    EXPECT_EQ(emitter_.setConfig("dir", directory), ConfigResult::accepted);
  }
  void write(const std::string& body) { emitter_.write(Level::info, "[INFO]", body); }

  // Makes a file in the log directory that is `age` microseconds old at the time of the test.
  static void makeOldFile(const std::string& name, std::int64_t age) {
    host::writeFile(std::string(kLogs) + "/" + name, "old\n");
    const timeval time = TimeUtils::toTimeval(now - age);
    const timeval times[2] = {time, time};
    ASSERT_EQ(::utimes((std::string(kLogs) + "/" + name).c_str(), times), 0);
  }

  RotatedFileEmitterActor emitter_{{"file_emitter", "files"}, testClock};
};

// --- Names and periods

TEST_F(RotatedFileTest, HourlyFileChangesWithTheHour) {
  write("one");
  EXPECT_EQ(emitter_.currentFileName(), "app-20250302-13.log");
  now = at("2025-03-02T13:59:59") + 999'999;
  write("two");
  now = at("2025-03-02T14:00:00");
  write("three");
  EXPECT_EQ(emitter_.currentFileName(), "app-20250302-14.log");
  EXPECT_EQ(host::tree(kLogs),
            "f 0644 app-20250302-13.log \"[INFO] one\\n[INFO] two\\n\"\n"
            "f 0644 app-20250302-14.log \"[INFO] three\\n\"\n");
}

TEST_F(RotatedFileTest, FormatOfFileNamesDependsOnTheInterval) {
  const struct {
    const char *interval, *name;
  } cases[] = {
      {"1 day", "p20250302.log"},
      {"24 hours", "p20250302.log"},
      {"1 hour", "p20250302-13.log"},
      {"60 minutes", "p20250302-13.log"},
      {"1 minute", "p20250302-1305.log"},
      {"2 days", "p20250301-000000.log"},
      {"2 hours", "p20250302-120000.log"},
      {"10 minutes", "p20250302-130000.log"},
      {"30 seconds", "p20250302-130530.log"},
      {"7 sec", "p20250302-130541.log"},
      {"1 ms", "p20250302-130542.log"},
      {"1000 usecs", "p20250302-130542.log"},
  };
  now = at("2025-03-02T13:05:42") + 123'456;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.interval);
    RotatedFileEmitterActor other({"file_emitter", "x"}, testClock);
    EXPECT_EQ(other.setConfig("interval", c.interval), ConfigResult::accepted);
    EXPECT_EQ(other.setConfig("prefix", "p"), ConfigResult::accepted);
    EXPECT_EQ(other.setConfig("dir", kLogs), ConfigResult::accepted);
    EXPECT_EQ(other.currentFileName(), "");
    other.write(Level::info, "[INFO]", "x");
    EXPECT_EQ(other.currentFileName(), c.name);
  }
}

TEST_F(RotatedFileTest, PeriodsBeginInLocalTime) {
  setZone("CET-1CEST,M3.5.0,M10.5.0/3");  // two hours ahead of UTC in April 3918, and therefore always
  now = at("2025-03-02T22:30:00");
  configure("1 day", "app-", kLogs);
  write("x");
  EXPECT_EQ(emitter_.currentFileName(), "app-20250303.log");
}

TEST_F(RotatedFileTest, FileNamesContainLocalTime) {
  setZone("EST5");
  now = at("2025-03-02T18:05:00");
  write("x");
  EXPECT_EQ(emitter_.currentFileName(), "app-20250302-13.log");
}

TEST_F(RotatedFileTest, PeriodThatBeginsAtZeroIsNotNamedAfterTheCurrentTime) {
  now = 1'234'567;
  const struct {
    const char *interval, *name;
  } cases[] = {{"1 day", "app-19700101.log"},
               {"1 hour", "app-19700101-00.log"},
               {"1 min", "app-19700101-0000.log"},
               {"10 secs", "app-19700101-000000.log"}};
  for (const auto& c : cases) {
    RotatedFileEmitterActor other({"file_emitter", "x"}, testClock);
    EXPECT_EQ(other.setConfig("interval", c.interval), ConfigResult::accepted);
    EXPECT_EQ(other.setConfig("prefix", "app-"), ConfigResult::accepted);
    EXPECT_EQ(other.setConfig("dir", kLogs), ConfigResult::accepted);
    other.write(Level::info, "[INFO]", "x");
    EXPECT_EQ(other.currentFileName(), c.name);
    other.write(Level::info, "[INFO]", "y");
    EXPECT_EQ(other.currentFileName(), c.name);
  }
}

TEST_F(RotatedFileTest, FirstPeriodIsAlwaysANewOne) {
  for (const std::int64_t ticks : {std::int64_t{0}, kHour, -kHour}) {
    RotatedFile file;
    file.interval = kHour;
    EXPECT_TRUE(file.enterPeriod(ticks));
    EXPECT_FALSE(file.enterPeriod(ticks + 1));
    EXPECT_TRUE(file.enterPeriod(ticks + kHour));
  }
}

TEST_F(RotatedFileTest, PeriodsBefore1970AreRoundedDown) {
  now = -1;
  write("x");
  EXPECT_EQ(emitter_.currentFileName(), "app-19691231-23.log");
  now = 0;
  write("y");
  EXPECT_EQ(emitter_.currentFileName(), "app-19700101-00.log");
}

TEST_F(RotatedFileTest, ClockThatIsSetBackReturnsToTheEarlierFile) {
  write("one");
  now = at("2025-03-02T14:00:00");
  write("two");
  now = at("2025-03-02T13:30:00");
  write("three");
  EXPECT_EQ(host::readFile("/tmp/logs/app-20250302-13.log"), "[INFO] one\n[INFO] three\n");
}

// --- Settings

TEST_F(RotatedFileTest, OneMillisecondIsTheSmallestValidInterval) {
  const struct {
    const char* interval;
    bool isValid;
  } cases[] = {{"999 usec", false}, {"1000 usec", true}, {"1 ms", true}, {"1 day", true}, {"0 secs", false},
               {"-1 hour", false},  {"", false},         {"10", false},  {"soon", false}};
  for (const auto& c : cases) {
    EXPECT_EQ(emitter_.setConfig("interval", c.interval), ConfigResult::accepted);
    EXPECT_EQ(emitter_.verifyConfig(), c.isValid) << c.interval;
  }
  EXPECT_EQ(emitter_.setConfig("interval", "1 day"), ConfigResult::accepted);
  EXPECT_EQ(emitter_.setConfig("interval", std::string_view()), ConfigResult::accepted);
  EXPECT_FALSE(emitter_.verifyConfig()) << "an absent text is no interval";
}

TEST_F(RotatedFileTest, VerifyConfigFailsWithoutAnInterval) {
  RotatedFileEmitterActor bare({"file_emitter", "x"});
  EXPECT_FALSE(bare.verifyConfig());
  EXPECT_EQ(bare.setConfig("prefix", "p"), ConfigResult::accepted);
  EXPECT_EQ(bare.setConfig("dir", kLogs), ConfigResult::accepted);
  EXPECT_FALSE(bare.verifyConfig());
  EXPECT_THAT(logged, IsEmpty());
}

TEST_F(RotatedFileTest, EntriesAreDroppedWithoutAValidInterval) {
  for (const char* interval : {"", "999 usec", "-1 day", "never"}) {
    configure(interval, "app-", kLogs);
    write("lost");
    EXPECT_EQ(emitter_.currentFileName(), "");
    EXPECT_FALSE(host::exists(kLogs)) << interval;
  }
}

TEST_F(RotatedFileTest, EntriesAreDroppedWhileTheIntervalIsInvalid) {
  write("kept");
  EXPECT_EQ(emitter_.setConfig("interval", "nonsense"), ConfigResult::accepted);
  write("lost");
  EXPECT_EQ(emitter_.setConfig("interval", "1 hour"), ConfigResult::accepted);
  write("kept too");
  EXPECT_EQ(host::readFile("/tmp/logs/app-20250302-13.log"), "[INFO] kept\n[INFO] kept too\n");
}

TEST_F(RotatedFileTest, UnknownKeyChangesNothing) {
  EXPECT_EQ(emitter_.setConfig("directory", "/elsewhere"), ConfigResult::unknownKey);
  EXPECT_EQ(emitter_.setConfig("interval", 1), ConfigResult::unknownKey);
  write("x");
  EXPECT_EQ(emitter_.currentFileName(), "app-20250302-13.log");
}

TEST_F(RotatedFileTest, WithoutPrefixAndDirectoryFilesAreInTheWorkingDirectory) {
  host::makeDirs("/tmp/work");
  ASSERT_EQ(::chdir("/tmp/work"), 0);
  configure("1 day", "", "");
  write("x");
  EXPECT_EQ(emitter_.currentFileName(), "20250302.log");
  EXPECT_EQ(host::readFile("/tmp/work/20250302.log"), "[INFO] x\n");
  ASSERT_EQ(::chdir("/"), 0);
}

TEST_F(RotatedFileTest, InterfacesBelongToThisEmitter) {
  zuvsvc::Actor& actor = emitter_;
  EXPECT_EQ(actor.interfaceOf<Emitter>(), static_cast<Emitter*>(&emitter_));
  EXPECT_EQ(actor.interfaceOf<FileEmitterInterface>(), static_cast<FileEmitterInterface*>(&emitter_));
  write("x");
  EXPECT_EQ(actor.interfaceOf<FileEmitterInterface>()->currentFileName(), "app-20250302-13.log");
}

// --- On the disk

TEST_F(RotatedFileTest, NewDirectoryHasMode0750AndNewFileMode0644) {
  write("x");
  EXPECT_EQ(host::modeOf(kLogs), 0750U);
  EXPECT_EQ(host::modeOf("/tmp/logs/app-20250302-13.log"), 0644U);
}

TEST_F(RotatedFileTest, UmaskAppliesToDirectoryAndFile) {
  const mode_t old = ::umask(077);
  write("x");
  ::umask(old);
  EXPECT_EQ(host::modeOf(kLogs), 0700U);
  EXPECT_EQ(host::modeOf("/tmp/logs/app-20250302-13.log"), 0600U);
}

TEST_F(RotatedFileTest, ExistingFileIsAppendedTo) {
  host::writeFile("/tmp/logs/app-20250302-13.log", "before\n", 0600);
  write("after");
  EXPECT_EQ(host::readFile("/tmp/logs/app-20250302-13.log"), "before\n[INFO] after\n");
  EXPECT_EQ(host::modeOf("/tmp/logs/app-20250302-13.log"), 0600U);
}

TEST_F(RotatedFileTest, WholeLineIsSanitised) {
  emitter_.write(Level::info, "[IN\nFO]", "two\nlines \xe9");
  EXPECT_EQ(host::readFile("/tmp/logs/app-20250302-13.log"), "[IN FO] two lines ?\n");
}

TEST_F(RotatedFileTest, EachEntryIsWrittenAtOnce) {
  for (int i = 1; i <= 3; ++i) {
    write("x");
    EXPECT_EQ(host::readFile("/tmp/logs/app-20250302-13.log").size(), 9U * static_cast<unsigned>(i));
  }
}

TEST_F(RotatedFileTest, LinkInPlaceOfTheFileIsNotFollowed) {
  host::writeFile("/tmp/victim", "mine\n");
  host::makeDirs(kLogs);
  host::makeLink("/tmp/logs/app-20250302-13.log", "/tmp/victim");
  write("lost");
  EXPECT_EQ(emitter_.currentFileName(), "");
  EXPECT_EQ(host::readFile("/tmp/victim"), "mine\n");
  host::remove("/tmp/logs/app-20250302-13.log");
  write("kept");
  EXPECT_EQ(host::readFile("/tmp/logs/app-20250302-13.log"), "[INFO] kept\n");
}

TEST_F(RotatedFileTest, DanglingLinkIsNotFollowed) {
  host::makeDirs(kLogs);
  host::makeLink("/tmp/logs/app-20250302-13.log", "/tmp/made-by-a-link");
  write("lost");
  EXPECT_FALSE(host::exists("/tmp/made-by-a-link"));
}

TEST_F(RotatedFileTest, FifoInPlaceOfTheFileNeitherBlocksNorIsWrittenTo) {
  host::makeDirs(kLogs);
  host::makeFifo("/tmp/logs/app-20250302-13.log");
  write("lost");
  EXPECT_EQ(emitter_.currentFileName(), "");
}

TEST_F(RotatedFileTest, DirectoryInPlaceOfTheFileDropsEntries) {
  host::makeDirs("/tmp/logs/app-20250302-13.log");
  write("lost");
  EXPECT_EQ(emitter_.currentFileName(), "");
}

TEST_F(RotatedFileTest, EntriesAreDroppedUntilTheDirectoryIsWritable) {
  host::makeDirs(kLogs, 0555);
  {
    const host::BoundByModes bound;
    write("lost");
    write("lost too");
    EXPECT_EQ(emitter_.currentFileName(), "");
  }
  host::setMode(kLogs, 0755);
  write("kept");
  EXPECT_EQ(host::tree(kLogs), "f 0644 app-20250302-13.log \"[INFO] kept\\n\"\n");
  EXPECT_THAT(logged, IsEmpty()) << "failures are not reported";
}

TEST_F(RotatedFileTest, DirectoryIsNotCreatedIfItsParentIsMissing) {
  configure("1 hour", "app-", "/tmp/missing/logs");
  write("lost");
  EXPECT_FALSE(host::exists("/tmp/missing"));
  host::makeDirs("/tmp/missing");
  write("kept");
  EXPECT_EQ(host::readFile("/tmp/missing/logs/app-20250302-13.log"), "[INFO] kept\n");
}

TEST_F(RotatedFileTest, FileNameIsNotTruncatedAtAZeroByte) {
  EXPECT_EQ(emitter_.setConfig("prefix", std::string_view("a\0b", 3)), ConfigResult::accepted);
  write("lost");
  EXPECT_EQ(emitter_.currentFileName(), "");
  EXPECT_EQ(host::tree(kLogs), "");
}

TEST_F(RotatedFileTest, FileIsClosedInChildPrograms) {
  write("x");
  bool found = false;
  for (int fd = 3; fd < 64; ++fd) {
    char path[64] = {};
    const ssize_t length = ::readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path - 1);
    if (length <= 0 || std::string(path).find("app-20250302-13.log") == std::string::npos) continue;
    found = true;
    EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
  }
  EXPECT_TRUE(found);
}

TEST_F(RotatedFileTest, FileIsClosedWithItsEmitterAndItsPeriod) {
  const auto before = openDescriptors();
  {
    RotatedFileEmitterActor other({"file_emitter", "x"}, testClock);
    EXPECT_EQ(other.setConfig("interval", "1 hour"), ConfigResult::accepted);
    EXPECT_EQ(other.setConfig("dir", kLogs), ConfigResult::accepted);
    other.write(Level::info, "h", "b");
    EXPECT_EQ(openDescriptors().size(), before.size() + 1);
    now = now + kHour;
    other.write(Level::info, "h", "b");
    EXPECT_EQ(openDescriptors().size(), before.size() + 1);
  }
  EXPECT_EQ(openDescriptors(), before);
}

// --- Old files

TEST_F(RotatedFileTest, FilesOlderThanThirtyDaysAreRemovedWhenAPeriodBegins) {
  makeOldFile("app-old.log", 30 * kDay + 1'000'000);
  makeOldFile("app-exactly.log", 30 * kDay);
  makeOldFile("app-young.log", 30 * kDay - 1'000'000);
  makeOldFile("other-old.log", 60 * kDay);
  makeOldFile("ap", 60 * kDay);
  makeOldFile("app-", 60 * kDay);
  host::makeDirs("/tmp/logs/app-folder");
  host::makeLink("/tmp/logs/app-link", "/tmp/logs/other-old.log");
  host::makeFifo("/tmp/logs/app-fifo");
  write("x");
  EXPECT_EQ(host::tree(kLogs),
            "f 0644 ap \"old\\n\"\n"
            "f 0644 app-20250302-13.log \"[INFO] x\\n\"\n"
            "f 0644 app-exactly.log \"old\\n\"\n"
            "p 0644 app-fifo\n"
            "d 0755 app-folder\n"
            "l app-link -> /tmp/logs/other-old.log\n"
            "f 0644 app-young.log \"old\\n\"\n"
            "f 0644 other-old.log \"old\\n\"\n");
}

TEST_F(RotatedFileTest, EachRemovalIsLogged) {
  makeOldFile("app-old.log", 31 * kDay);
  write("x");
  EXPECT_THAT(logged, ElementsAre("[INFO] basiclib BasicLog.cpp scrub_old_files removing outdated logfile: "
                                  "filename=/tmp/logs/app-old.log"));
}

TEST_F(RotatedFileTest, RemovalsAreNotLoggedWhenInfoIsNotEnabled) {
  Logger& logger = getLogger(basiclibLogger);
  const Level before = logger.threshold();
  makeOldFile("app-old.log", 31 * kDay);
  logger.setThreshold(Level::notice);
  write("x");
  logger.setThreshold(before);
  EXPECT_FALSE(host::exists("/tmp/logs/app-old.log"));
  EXPECT_THAT(logged, IsEmpty());
}

TEST_F(RotatedFileTest, FileReplacedByALinkBeforeItsAgeIsReadIsKept) {
  makeOldFile("app-old.log", 31 * kDay);
  FaultPlan plan;
  plan.calls = {"lstat"};
  plan.before = [](std::size_t) {
    host::remove("/tmp/logs/app-old.log");
    host::makeLink("/tmp/logs/app-old.log", "/tmp/other");
  };
  const ArmedFaults armed(plan);
  scrub_old_files(kLogs, "app-", at("2500-01-01T00:00:00"));  // a time at which the link is outdated too
  EXPECT_EQ(armed.count(), 1U);
  EXPECT_EQ(host::tree(kLogs), "l app-old.log -> /tmp/other\n");
  EXPECT_THAT(logged, IsEmpty());
}

TEST_F(RotatedFileTest, AgeUsesTheWallClockAlthoughNamesUseLocalTime) {
  setZone("EST5");  // local ticks are five hours behind
  makeOldFile("app-old.log", 30 * kDay + 1'000'000);
  makeOldFile("app-young.log", 30 * kDay - 1'000'000);
  write("x");
  EXPECT_FALSE(host::exists("/tmp/logs/app-old.log"));
  EXPECT_TRUE(host::exists("/tmp/logs/app-young.log"));
}

TEST_F(RotatedFileTest, OldFilesAreRemovedOnceInAPeriod) {
  write("one");
  makeOldFile("app-old.log", 31 * kDay);
  write("two");
  EXPECT_TRUE(host::exists("/tmp/logs/app-old.log"));
  now = now + kHour;
  write("three");
  EXPECT_FALSE(host::exists("/tmp/logs/app-old.log"));
}

TEST_F(RotatedFileTest, FailedOpenDoesNotScrubAgainInTheSamePeriod) {
  host::makeDirs("/tmp/logs/app-20250302-13.log");
  write("lost");
  makeOldFile("app-old.log", 31 * kDay);
  write("lost");
  EXPECT_TRUE(host::exists("/tmp/logs/app-old.log"));
}

TEST_F(RotatedFileTest, WithoutAPrefixNothingIsScrubbed) {
  makeOldFile("old.log", 60 * kDay);
  configure("1 hour", "", kLogs);
  write("x");
  EXPECT_TRUE(host::exists("/tmp/logs/old.log"));
}

TEST_F(RotatedFileTest, WithoutADirectoryNothingIsScrubbed) {
  makeOldFile("app-old.log", 60 * kDay);
  ASSERT_EQ(::chdir(kLogs), 0);
  configure("1 hour", "app-", "");
  write("x");
  EXPECT_TRUE(host::exists("/tmp/logs/app-old.log"));
  EXPECT_TRUE(host::exists("/tmp/logs/app-20250302-13.log"));
  ASSERT_EQ(::chdir("/"), 0);
}

TEST_F(RotatedFileTest, FailedRemovalStopsNeitherOtherRemovalsNorTheEntry) {
  for (const char* name : {"app-a.log", "app-b.log", "app-c.log"}) makeOldFile(name, 31 * kDay);
  {
    const ArmedFaults faults({1, false, EPERM, {"unlink"}});
    write("x");
  }
  int left = 0;
  for (const char* name : {"app-a.log", "app-b.log", "app-c.log"}) {
    if (host::exists(std::string(kLogs) + "/" + name)) ++left;
  }
  EXPECT_EQ(left, 1);
  EXPECT_EQ(logged.size(), 3U);
  EXPECT_EQ(host::readFile("/tmp/logs/app-20250302-13.log"), "[INFO] x\n");
  now = now + kHour;
  write("y");
  EXPECT_EQ(host::tree(kLogs),
            "f 0644 app-20250302-13.log \"[INFO] x\\n\"\n"
            "f 0644 app-20250302-14.log \"[INFO] y\\n\"\n");
}

TEST_F(RotatedFileTest, FileWhoseAgeCannotBeReadIsKept) {
  makeOldFile("app-old.log", 31 * kDay);
  const ArmedFaults faults({1, true, EACCES, {"lstat"}});
  write("x");
  EXPECT_TRUE(host::exists("/tmp/logs/app-old.log"));
}

TEST_F(RotatedFileTest, AgeIsCorrectForTimesBeyond64BitsOfMicroseconds) {
  constexpr std::int64_t beyondMicros = 9'300'000'000'000;  // seconds whose microseconds do not fit into 64 bits
  const struct {
    const char* name;
    std::int64_t seconds;
  } files[] = {{"app-future.log", beyondMicros}, {"app-past.log", -beyondMicros}};
  for (const auto& file : files) {
    const std::string path = std::string(kLogs) + "/" + file.name;
    host::writeFile(path, "old\n");
    const timespec time{static_cast<time_t>(file.seconds), 0};
    const timespec times[2] = {time, time};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }
  scrub_old_files(kLogs, "app-", now);
  EXPECT_EQ(host::tree(kLogs), "f 0644 app-future.log \"old\\n\"\n");
}

TEST_F(RotatedFileTest, UnlistableDirectoryIsNotScrubbedButWrittenTo) {
  makeOldFile("app-old.log", 31 * kDay);
  const ArmedFaults faults({1, true, EACCES, {"fdopendir"}});
  write("x");
  EXPECT_TRUE(host::exists("/tmp/logs/app-old.log"));
  EXPECT_TRUE(host::exists("/tmp/logs/app-20250302-13.log"));
}

// --- Faults

// Each call fails in turn. One failure may lose one entry, but the file contains only whole lines.
TEST_F(RotatedFileTest, EachFailingCallLosesAtMostTheEntryItWasFor) {
  const FaultLoop loop{[] {
                         host::remove(kLogs);
                         host::makeDirs(kLogs);
                         makeOldFile("app-old.log", 31 * kDay);
                         logged.clear();
                       },
                       {},
                       ENOSPC};
  const std::size_t steps = forEachFault(
      loop,
      [] {
        RotatedFileEmitterActor other({"file_emitter", "x"}, testClock);
        (void)other.setConfig("interval", "1 hour");
        (void)other.setConfig("prefix", "app-");
        (void)other.setConfig("dir", kLogs);
        other.write(Level::info, "[INFO]", "one");
        other.write(Level::info, "[INFO]", "two");
        return other.currentFileName();
      },
      [](const std::string& name, const Fault& fault) {
        const std::string path = std::string(kLogs) + "/app-20250302-13.log";
        const std::string text = host::exists(path) ? host::readFile(path) : "";
        const bool isWhole =
            text.empty() || text == "[INFO] one\n" || text == "[INFO] two\n" || text == "[INFO] one\n[INFO] two\n";
        EXPECT_TRUE(isWhole) << text;
        if (!fault) {
          EXPECT_EQ(text, "[INFO] one\n[INFO] two\n");
          EXPECT_EQ(name, "app-20250302-13.log");
          EXPECT_FALSE(host::exists("/tmp/logs/app-old.log"));
        }
        // A single failure loses at most one entry.
        if (fault && !fault.fromThereOn) {
          EXPECT_GE(text.size(), 11U);
        }
      });
  // The listing makes seven calls. lstat, unlink, mkdir, open, fstat, two writes and close follow.
  EXPECT_EQ(steps, 16U) << "the order of the calls has changed";
}

TEST_F(RotatedFileTest, FailedWriteClosesTheFileAndTheNextEntryOpensItAgain) {
  write("one");
  {
    const ArmedFaults faults({1, false, ENOSPC, {"write"}});
    write("lost");
  }
  EXPECT_EQ(emitter_.currentFileName(), "");
  write("three");
  EXPECT_EQ(emitter_.currentFileName(), "app-20250302-13.log");
  EXPECT_EQ(host::readFile("/tmp/logs/app-20250302-13.log"), "[INFO] one\n[INFO] three\n");
}

TEST_F(RotatedFileTest, ShortWritesAreContinued) {
  {
    FaultPlan plan;
    plan.oneByteAtATime = true;
    const ArmedFaults faults(plan);
    write("a line in many pieces");
  }
  EXPECT_EQ(host::readFile("/tmp/logs/app-20250302-13.log"), "[INFO] a line in many pieces\n");
}

TEST_F(RotatedFileTest, InterruptedCallsAreRetried) {
  for (const char* call : {"open", "write"}) {
    SCOPED_TRACE(call);
    host::remove(kLogs);
    RotatedFileEmitterActor other({"file_emitter", "x"}, testClock);
    (void)other.setConfig("interval", "1 hour");
    (void)other.setConfig("dir", kLogs);
    const ArmedFaults faults({1, false, EINTR, {call}});
    other.write(Level::info, "[INFO]", "x");
    EXPECT_EQ(host::readFile("/tmp/logs/20250302-13.log"), "[INFO] x\n");
  }
}

TEST_F(RotatedFileTest, FailedCreationOfTheDirectoryIsRetriedWithTheNextEntry) {
  {
    const ArmedFaults faults({1, true, EACCES, {"mkdir"}});
    write("lost");
  }
  EXPECT_FALSE(host::exists(kLogs));
  write("kept");
  EXPECT_EQ(host::tree(kLogs), "f 0644 app-20250302-13.log \"[INFO] kept\\n\"\n");
}

TEST_F(RotatedFileTest, WritingContinuesWhenAFullDiskHasSpaceAgain) {
  host::makeDirs("/tmp/disk");
  const host::SmallDisk disk("/tmp/disk", 8'192);
  configure("1 hour", "app-", "/tmp/disk");
  const std::string big(3'000, 'x');
  for (int i = 0; i < 6; ++i) write(big);
  EXPECT_EQ(emitter_.currentFileName(), "");
  const std::string text = host::readFile("/tmp/disk/app-20250302-13.log");
  EXPECT_EQ(text.substr(0, 3'008), "[INFO] " + big + "\n");
  ASSERT_EQ(::truncate("/tmp/disk/app-20250302-13.log", 0), 0);
  write("room");
  EXPECT_EQ(host::readFile("/tmp/disk/app-20250302-13.log"), "[INFO] room\n");
}

// --- Batches

TEST_F(RotatedFileTest, LinesOfABatchAreWrittenTogetherAtItsEnd) {
  emitter_.beginBatch();
  write("one");
  write("two");
  EXPECT_FALSE(host::exists(kLogs));
  {
    const ArmedFaults faults({0, false, EIO, {"write"}});
    emitter_.endBatch();
    EXPECT_EQ(faults.count(), 1U);
  }
  EXPECT_EQ(host::readFile("/tmp/logs/app-20250302-13.log"), "[INFO] one\n[INFO] two\n");
}

TEST_F(RotatedFileTest, LinesOfABatchAreWrittenToTheFileOfTheirOwnPeriod) {
  emitter_.beginBatch();
  write("one");
  now = now + kHour;
  write("two");
  emitter_.endBatch();
  EXPECT_EQ(host::readFile("/tmp/logs/app-20250302-13.log"), "[INFO] one\n");
  EXPECT_EQ(host::readFile("/tmp/logs/app-20250302-14.log"), "[INFO] two\n");
}

// The write fails inside the second of three lines.
TEST_F(RotatedFileTest, LineOfABatchThatCannotBeWrittenLosesNoOtherLine) {
  emitter_.beginBatch();
  write("one");
  write("two");
  write("three");
  {
    FaultPlan plan{12, false, EIO, {"write"}};
    plan.oneByteAtATime = true;
    const ArmedFaults faults(plan);
    emitter_.endBatch();
  }
  EXPECT_EQ(host::readFile("/tmp/logs/app-20250302-13.log"), "[INFO] one\n[INFO] three\n");
}

TEST_F(RotatedFileTest, BatchRetriesAFailedOpenForEveryLine) {
  emitter_.beginBatch();
  write("lost");
  write("kept");
  {
    const ArmedFaults faults({1, false, EMFILE, {"open"}});
    emitter_.endBatch();
  }
  EXPECT_EQ(host::readFile("/tmp/logs/app-20250302-13.log"), "[INFO] kept\n");
}

TEST_F(RotatedFileTest, LinesOfABatchAreDroppedIfTheIntervalHasBecomeInvalid) {
  emitter_.beginBatch();
  write("lost");
  EXPECT_EQ(emitter_.setConfig("interval", "never"), ConfigResult::accepted);
  emitter_.endBatch();
  EXPECT_FALSE(host::exists(kLogs)) << "no file of another name is written either";
}

TEST_F(RotatedFileTest, EmptyBatchOpensNoFile) {
  emitter_.beginBatch();
  emitter_.endBatch();
  emitter_.endBatch();
  EXPECT_FALSE(host::exists(kLogs));
}

TEST_F(RotatedFileTest, RemovalsAreLoggedWithoutHoldingTheLock) {
  // The emitter is the synchronous processor, so the entry about the removal is passed to it while it scrubs.
  LogManager manager;
  manager.input().setAsyncOutput(false);
  manager.addEmitter(&emitter_);
  makeOldFile("app-old.log", 31 * kDay);
  { const Entry entry(*manager.input().getLogger("test"), Level::info, "direct", "f", "g"); }
  write("by hand");
  EXPECT_EQ(logged.size(), 1U);
  manager.removeEmitter(&emitter_);
}

TEST_F(RotatedFileTest, ManyThreadsWriteWholeLines) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([this, t] {
      for (int i = 0; i < 200; ++i) {
        if (i % 20 == 0) now += kHour / 4;
        write(std::string(50, static_cast<char>('a' + t)));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::size_t lines = 0;
  std::vector<std::string> names;
  for (const auto& name : FileUtils::listDirectory(kLogs).files) {
    std::vector<std::string> content;
    EXPECT_THAT(FileUtils::readLines(std::string(kLogs) + "/" + name, content), HasCode(status::success));
    for (const std::string& line : content) {
      EXPECT_EQ(line, "[INFO] " + std::string(50, line[7]));
      ++lines;
    }
  }
  EXPECT_EQ(lines, 1600U);
}

}  // namespace
