// Tests of rotated files and of their emitter, with a clock that the tests set.
#include "log/output/RotatedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <thread>
#include <utility>

#include "base/files/DirectoryListing.h"
#include "base/files/WholeFile.h"
#include "base/text/TimeUtils.h"
#include "log/output/LogManager.h"
#include "log/output/RotatedFileEmitter.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"
#include "testing/run/LogLines.h"
#include "testing/run/Zone.h"

namespace {

using namespace BasicLog;
using testing::AnyOf;
using testing::IsEmpty;
using zuvsvc::ConfigResult;

constexpr char kLogs[] = "/tmp/logs";
constexpr char kFile[] = "/tmp/logs/app-20250302-13.log";
constexpr char kOldFile[] = "/tmp/logs/app-old.log";
constexpr std::int64_t kDay = 86'400'000'000;
constexpr std::int64_t kHour = 3'600'000'000;

std::int64_t at(const char* isoTime) { return TimeUtils::parseIsoTime(isoTime); }

std::atomic<std::int64_t> now{0};
std::int64_t testClock() { return now; }

// Has an emitter of hourly files "app-..." in a directory that does not exist yet. The time is 2025-03-02 13:05 UTC.
class RotatedFileTest : public HostTest {
 protected:
  RotatedFileTest() { now = at("2025-03-02T13:05:00"); }

  static void configure(RotatedFileEmitterActor& emitter, std::string_view interval, const char* prefix,
                        const char* directory) {
    EXPECT_EQ(emitter.setConfig("interval", interval), ConfigResult::accepted);
    EXPECT_EQ(emitter.setConfig("prefix", prefix), ConfigResult::accepted);
    EXPECT_EQ(emitter.setConfig("dir", directory), ConfigResult::accepted);
  }
  static void write(RotatedFileEmitterActor& emitter, const std::string& body) {
    emitter.write(Level::info, "[INFO]", body);
  }
  void write(const std::string& body) { write(emitter_, body); }

  static std::string content() {
    if (!host::exists(kLogs)) return "no directory";
    return host::exists(kFile) ? host::readFile(kFile) : "no file";
  }

  // Makes a file that is `age` microseconds old at the time of the test.
  static void makeOldFile(const std::string& path = kOldFile, std::int64_t age = 31 * kDay) {
    host::writeFile(path, "old\n");
    const timeval time = TimeUtils::toTimeval(now - age);
    const timeval times[2] = {time, time};
    ASSERT_EQ(::utimes(path.c_str(), times), 0);
  }

  // An emitter with a file of its own, for each row of a table.
  struct Other : RotatedFileEmitterActor {
    explicit Other(std::string_view interval = "1 hour", const char* prefix = "app-", const char* directory = kLogs)
        : RotatedFileEmitterActor({"file_emitter", "x"}, testClock) {
      configure(*this, interval, prefix, directory);
    }
  };

  Zone zone_{"UTC0"};
  LoggedLines logged_;
  Other emitter_;
};

// --- Emitting

TEST_F(RotatedFileTest, EmittedMessageIsRenderedSanitisedAndWrittenInEveryPeriod) {
  RotatedFileEmitterActor emitter({"file_emitter", "x"}, testClock);
  configure(emitter, "1 hour", "app-", kLogs);
  LogMessage message;
  message.created = at("2025-03-02T13:04:59") + 7;
  message.begin("f", "g", "l", "two\nlines");
  message.add("key", "\xe9");
  emitter.emit(message);
  EXPECT_EQ(content(), "[INFO 2025-03-02 13:04:59.000007] two lines: key=?\n") << "the first entry of a period";
  message.begin("f", "g", "l", "short");
  emitter.emit(message);
  EXPECT_EQ(content(), "[INFO 2025-03-02 13:04:59.000007] two lines: key=?\n[INFO 2025-03-02 13:04:59.000007] short\n");
  EXPECT_THAT(logged_.lines, IsEmpty());
}

TEST_F(RotatedFileTest, MessageWithAnInvalidLevelIsReportedWhileTheEmitterIsNotLocked) {
  static RotatedFileEmitterActor* used = nullptr;
  RotatedFileEmitterActor emitter({"file_emitter", "x"}, testClock);
  configure(emitter, "1 hour", "app-", kLogs);
  used = &emitter;
  class Asker : public LogMessageProcessor {
    void process(std::unique_ptr<const LogMessage>&) override { (void)used->currentFileName(); }
  };
  setSyncProcessor(new Asker);
  LogMessage message;
  message.level = static_cast<Level>(99);
  message.created = at("2025-03-02T13:05:00");
  message.begin("f", "g", "l", "odd");
  emitter.emit(message);
  EXPECT_EQ(content(), "[<log level> 2025-03-02 13:05:00.000000] odd\n");
}

// --- Names and periods

TEST_F(RotatedFileTest, HourlyFileChangesWithTheHourEvenIfTheClockIsSetBack) {
  write("one");
  EXPECT_EQ(emitter_.currentFileName(), "app-20250302-13.log");
  now = at("2025-03-02T13:59:59") + 999'999;
  write("two");
  now = at("2025-03-02T14:00:00");
  write("three");
  EXPECT_EQ(emitter_.currentFileName(), "app-20250302-14.log");
  now = at("2025-03-02T13:30:00");
  write("four");
  EXPECT_EQ(host::tree(kLogs),
            "f 0644 app-20250302-13.log \"[INFO] one\\n[INFO] two\\n[INFO] four\\n\"\n"
            "f 0644 app-20250302-14.log \"[INFO] three\\n\"\n");
}

TEST_F(RotatedFileTest, FileNameContainsTheStartOfItsPeriodInLocalTime) {
  const std::int64_t usual = at("2025-03-02T13:05:42") + 123'456;
  // Two hours ahead of UTC in April 3918, and therefore always.
  const char* summer = "CET-1CEST,M3.5.0,M10.5.0/3";
  const struct {
    const char* why;
    const char *zone, *interval;
    std::int64_t time;
    const char* name;
  } cases[] = {
      {"a day is named to the day", "UTC0", "1 day", usual, "app-20250302.log"},
      {"24 hours are a day", "UTC0", "24 hours", usual, "app-20250302.log"},
      {"an hour is named to the hour", "UTC0", "1 hour", usual, "app-20250302-13.log"},
      {"60 minutes are an hour", "UTC0", "60 minutes", usual, "app-20250302-13.log"},
      {"a minute is named to the minute", "UTC0", "1 minute", usual, "app-20250302-1305.log"},
      {"days are named to the second", "UTC0", "2 days", usual, "app-20250301-000000.log"},
      {"hours are named to the second", "UTC0", "2 hours", usual, "app-20250302-120000.log"},
      {"minutes are named to the second", "UTC0", "10 minutes", usual, "app-20250302-130000.log"},
      {"seconds are named to the second", "UTC0", "30 seconds", usual, "app-20250302-130530.log"},
      {"seconds need not divide a minute", "UTC0", "7 sec", usual, "app-20250302-130541.log"},
      {"a millisecond is named to the second", "UTC0", "1 ms", usual, "app-20250302-130542.log"},
      {"microseconds are named to the second", "UTC0", "1000 usecs", usual, "app-20250302-130542.log"},
      {"a period begins in local time", summer, "1 day", at("2025-03-02T22:30:00"), "app-20250303.log"},
      {"a name contains local time", "EST5", "1 hour", at("2025-03-02T18:05:00"), "app-20250302-13.log"},
      {"the first day is not the current one", "UTC0", "1 day", 1'234'567, "app-19700101.log"},
      {"the first hour is not the current one", "UTC0", "1 hour", 1'234'567, "app-19700101-00.log"},
      {"the first minute is not the current one", "UTC0", "1 min", 1'234'567, "app-19700101-0000.log"},
      {"the first seconds are not the current ones", "UTC0", "10 secs", 1'234'567, "app-19700101-000000.log"},
      {"the first period begins at 0", "UTC0", "1 hour", 0, "app-19700101-00.log"},
      {"a time before 1970 is rounded down", "UTC0", "1 hour", -1, "app-19691231-23.log"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    zone_.set(c.zone);
    now = c.time;
    Other other(c.interval);
    EXPECT_EQ(other.currentFileName(), "");
    for (const char* body : {"x", "y"}) {
      write(other, body);
      EXPECT_EQ(other.currentFileName(), c.name);
    }
  }
}

TEST_F(RotatedFileTest, FirstCallOfEnterPeriodAlwaysEntersANewPeriod) {
  for (const std::int64_t ticks : {std::int64_t{0}, kHour, -kHour}) {
    RotatedFile file;
    file.interval = kHour;
    EXPECT_TRUE(file.enterPeriod(ticks));
    EXPECT_FALSE(file.enterPeriod(ticks + 1));
    EXPECT_TRUE(file.enterPeriod(ticks + kHour));
  }
}

// --- Settings

TEST_F(RotatedFileTest, EntriesAreDroppedUnlessTheIntervalIsAtLeastOneMillisecond) {
  const struct {
    std::string_view interval;
    bool isValid;
  } cases[] = {{"999 usec", false}, {"1000 usec", true},         {"1 ms", true},    {"1 day", true},
               {"0 secs", false},   {"-1 hour", false},          {"-1 day", false}, {"", false},
               {"10", false},       {std::string_view(), false}, {"soon", false}};
  RotatedFileEmitterActor bare({"file_emitter", "x"});
  EXPECT_FALSE(bare.verifyConfig());
  EXPECT_EQ(bare.setConfig("prefix", "p"), ConfigResult::accepted);
  EXPECT_EQ(bare.setConfig("dir", kLogs), ConfigResult::accepted);
  EXPECT_FALSE(bare.verifyConfig());
  for (const auto& c : cases) {
    SCOPED_TRACE(c.interval);
    host::remove(kLogs);
    Other other(c.interval);
    EXPECT_EQ(other.verifyConfig(), c.isValid);
    write(other, "x");
    EXPECT_EQ(other.currentFileName().empty(), !c.isValid);
    EXPECT_EQ(host::exists(kLogs), c.isValid);
  }
  EXPECT_THAT(logged_.lines, IsEmpty());
}

TEST_F(RotatedFileTest, EntriesAreDroppedWhileTheIntervalIsInvalid) {
  write("kept");
  EXPECT_EQ(emitter_.setConfig("interval", "nonsense"), ConfigResult::accepted);
  EXPECT_FALSE(emitter_.verifyConfig());
  write("lost");
  EXPECT_EQ(emitter_.setConfig("interval", "1 hour"), ConfigResult::accepted);
  write("kept too");
  EXPECT_EQ(host::readFile(kFile), "[INFO] kept\n[INFO] kept too\n");
}

TEST_F(RotatedFileTest, UnknownKeyChangesNothing) {
  EXPECT_EQ(emitter_.setConfig("directory", "/elsewhere"), ConfigResult::unknownKey);
  EXPECT_EQ(emitter_.setConfig("interval", 1), ConfigResult::unknownKey);
  write("x");
  EXPECT_EQ(emitter_.currentFileName(), "app-20250302-13.log");
}

TEST_F(RotatedFileTest, WithoutPrefixOrDirectoryFilesAreWrittenButOldOnesAreKept) {
  const struct {
    const char *why, *prefix, *directory, *name;
    std::string folder;
  } cases[] = {
      {"without a prefix the name is the time", "", kLogs, "20250302.log", "/tmp/logs/"},
      {"without a directory the file is in the working directory", "app-", "", "app-20250302.log", "/tmp/work/"},
      {"both settings may be missing", "", "", "20250302.log", "/tmp/work/"},
  };
  makeOldFile();
  makeOldFile("/tmp/work/app-old.log");
  ASSERT_EQ(::chdir("/tmp/work"), 0);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    Other other("1 day", c.prefix, c.directory);
    write(other, "x");
    EXPECT_EQ(other.currentFileName(), c.name);
    EXPECT_EQ(host::readFile(c.folder + c.name), "[INFO] x\n");
    EXPECT_TRUE(host::exists(kOldFile));
    EXPECT_TRUE(host::exists("/tmp/work/app-old.log"));
  }
  ASSERT_EQ(::chdir("/"), 0);
}

TEST_F(RotatedFileTest, NullTextRemovesASetting) {
  const char* const absent = nullptr;
  host::makeDirs("/tmp/work");
  ASSERT_EQ(::chdir("/tmp/work"), 0);
  for (const char* key : {"prefix", "dir"}) EXPECT_EQ(emitter_.setConfig(key, absent), ConfigResult::accepted);
  write("x");
  EXPECT_EQ(host::readFile("/tmp/work/20250302-13.log"), "[INFO] x\n");
  EXPECT_EQ(emitter_.setConfig("interval", absent), ConfigResult::accepted);
  write("lost");
  EXPECT_EQ(host::readFile("/tmp/work/20250302-13.log"), "[INFO] x\n");
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

TEST_F(RotatedFileTest, NewDirectoryHasMode0750AndNewFileMode0644BothLessTheUmask) {
  const struct { mode_t umask, directory, file; } cases[] = {{022, 0750, 0644}, {077, 0700, 0600}, {0, 0750, 0644}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.umask);
    host::remove(kLogs);
    Other other;
    const mode_t old = ::umask(c.umask);
    write(other, "x");
    ::umask(old);
    EXPECT_EQ(host::modeOf(kLogs), c.directory);
    EXPECT_EQ(host::modeOf(kFile), c.file);
  }
}

TEST_F(RotatedFileTest, ExistingFileIsAppendedTo) {
  host::writeFile(kFile, "before\n", 0600);
  write("after");
  EXPECT_EQ(host::readFile(kFile), "before\n[INFO] after\n");
  EXPECT_EQ(host::modeOf(kFile), 0600U);
}

TEST_F(RotatedFileTest, WholeLineIsSanitised) {
  emitter_.write(Level::info, "[IN\nFO]", "two\nlines \xe9");
  EXPECT_EQ(host::readFile(kFile), "[IN FO] two lines ?\n");
}

TEST_F(RotatedFileTest, OnlyARegularFileIsWrittenTo) {
  const struct {
    const char* why;
    std::function<void()> make;
  } cases[] = {
      {"a link is not followed", [] { host::makeLink(kFile, "/tmp/victim"); }},
      {"a link without a target is not followed", [] { host::makeLink(kFile, "/tmp/made-by-a-link"); }},
      {"a FIFO neither blocks nor is written to", [] { host::makeFifo(kFile); }},
      {"a directory drops entries", [] { host::makeDirs(kFile); }},
  };
  host::writeFile("/tmp/victim", "mine\n");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(kLogs);
    host::makeDirs(kLogs);
    c.make();
    const std::string before = host::tree("/tmp");
    Other other;
    write(other, "lost");
    EXPECT_EQ(other.currentFileName(), "");
    EXPECT_EQ(host::tree("/tmp"), before);
    host::remove(kFile);
    write(other, "kept");
    EXPECT_EQ(host::readFile(kFile), "[INFO] kept\n");
  }
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
  EXPECT_THAT(logged_.lines, IsEmpty()) << "failures are not reported";
}

TEST_F(RotatedFileTest, DirectoryIsNotCreatedIfItsParentIsMissing) {
  configure(emitter_, "1 hour", "app-", "/tmp/missing/logs");
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
  int found = 0;
  for (const std::string& line : openDescriptors()) {
    if (line.find("app-20250302-13.log") == std::string::npos) continue;
    ++found;
    EXPECT_NE(::fcntl(std::stoi(line), F_GETFD) & FD_CLOEXEC, 0);
  }
  EXPECT_EQ(found, 1);
}

TEST_F(RotatedFileTest, TheFileIsClosedWhenTheNextPeriodBeginsAndWhenItsEmitterIsDestroyed) {
  const auto before = openDescriptors();
  {
    Other other;
    for (int i = 0; i < 2; ++i) {
      write(other, "x");
      EXPECT_EQ(openDescriptors().size(), before.size() + 1);
      now = now + kHour;
    }
  }
  EXPECT_EQ(openDescriptors(), before);
}

// --- Old files

TEST_F(RotatedFileTest, FilesOlderThanThirtyDaysAreRemovedAndLoggedWhenAPeriodBegins) {
  makeOldFile(kOldFile, 30 * kDay + 1'000'000);
  makeOldFile("/tmp/logs/app-exactly.log", 30 * kDay);
  makeOldFile("/tmp/logs/app-young.log", 30 * kDay - 1'000'000);
  for (const char* name : {"other-old.log", "ap", "app-"}) makeOldFile("/tmp/logs/" + std::string(name), 60 * kDay);
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
  const std::string line = "[INFO] basiclib BasicLog.cpp scrub_old_files removing outdated logfile: filename=";
  EXPECT_THAT(logged_.lines, testing::UnorderedElementsAre(line + kOldFile, line + "/tmp/logs/app-"));
}

TEST_F(RotatedFileTest, RemovalsAreNotLoggedWhenInfoIsNotEnabled) {
  Logger& logger = getLogger(basiclibLogger);
  const Level before = logger.threshold();
  makeOldFile();
  logger.setThreshold(Level::notice);
  write("x");
  logger.setThreshold(before);
  EXPECT_FALSE(host::exists(kOldFile));
  EXPECT_THAT(logged_.lines, IsEmpty());
}

TEST_F(RotatedFileTest, FileReplacedByALinkBeforeItsAgeIsReadIsKept) {
  makeOldFile();
  FaultPlan plan;
  plan.calls = {"lstat"};
  plan.before = [](std::size_t) {
    host::remove(kOldFile);
    host::makeLink(kOldFile, "/tmp/other");
  };
  const ArmedFaults armed(plan);
  scrub_old_files(kLogs, "app-", at("2500-01-01T00:00:00"));  // a time at which the link is outdated too
  EXPECT_EQ(armed.count(), 1U);
  EXPECT_EQ(host::tree(kLogs), "l app-old.log -> /tmp/other\n");
  EXPECT_THAT(logged_.lines, IsEmpty());
}

TEST_F(RotatedFileTest, AgeUsesTheWallClockAlthoughNamesUseLocalTime) {
  zone_.set("EST5");  // local ticks are five hours behind
  makeOldFile(kOldFile, 30 * kDay + 1'000'000);
  makeOldFile("/tmp/logs/app-young.log", 30 * kDay - 1'000'000);
  write("x");
  EXPECT_FALSE(host::exists(kOldFile));
  EXPECT_TRUE(host::exists("/tmp/logs/app-young.log"));
}

TEST_F(RotatedFileTest, OldFilesAreRemovedOnceInAPeriodEvenIfItsFileCannotBeOpened) {
  for (const bool canBeOpened : {true, false}) {
    SCOPED_TRACE(canBeOpened);
    now = now + kHour;
    if (!canBeOpened) host::makeDirs("/tmp/logs/app-20250302-15.log");
    write("one");
    makeOldFile();
    write("two");
    EXPECT_TRUE(host::exists(kOldFile));
  }
  now = now + kHour;
  write("three");
  EXPECT_FALSE(host::exists(kOldFile));
}

TEST_F(RotatedFileTest, FailedRemovalStopsNeitherOtherRemovalsNorTheEntry) {
  const char* const olds[] = {"/tmp/logs/app-a.log", "/tmp/logs/app-b.log", "/tmp/logs/app-c.log"};
  for (const char* old : olds) makeOldFile(old);
  {
    const ArmedFaults faults({1, false, EPERM, {"unlink"}});
    write("x");
  }
  EXPECT_EQ(std::count_if(std::begin(olds), std::end(olds), host::exists), 1);
  EXPECT_EQ(logged_.lines.size(), 3U);
  EXPECT_EQ(host::readFile(kFile), "[INFO] x\n");
  now = now + kHour;
  write("y");
  EXPECT_EQ(host::tree(kLogs),
            "f 0644 app-20250302-13.log \"[INFO] x\\n\"\n"
            "f 0644 app-20250302-14.log \"[INFO] y\\n\"\n");
}

TEST_F(RotatedFileTest, FilesThatCannotBeListedOrWhoseAgeCannotBeReadAreKept) {
  for (const char* call : {"lstat", "fdopendir"}) {
    SCOPED_TRACE(call);
    makeOldFile();
    Other other;
    const ArmedFaults faults({1, true, EACCES, {call}});
    write(other, "x");
    EXPECT_TRUE(host::exists(kOldFile));
    EXPECT_EQ(other.currentFileName(), "app-20250302-13.log");
  }
}

TEST_F(RotatedFileTest, AgeIsCountedInWholeSecondsOfTheFileAndInMicrosecondsOfTheClock) {
  constexpr std::int64_t kHalf = 500'000;
  const struct {
    const char* why;
    std::int64_t fraction;  // of the second of the clock, in microseconds
    std::int64_t age;       // in microseconds
    bool isRemoved;
  } cases[] = {
      {"half a second too old is one whole second too old", 0, 30 * kDay + kHalf, true},
      {"a microsecond too old is one whole second too old", 0, 30 * kDay + 1, true},
      {"exactly 30 days are not too old", 0, 30 * kDay, false},
      {"a file of the same second counts by the beginning of that second", 700'000, 30 * kDay - 200'000, true},
      {"a file of the next second is younger", 700'000, 30 * kDay - kHalf, false},
      {"the clock counts in microseconds", 1, 30 * kDay, true},
      {"a file of the same second as the clock at its beginning is not too old", 0, 30 * kDay - kHalf, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    now = at("2025-03-02T13:05:00") + c.fraction;
    makeOldFile(kOldFile, c.age);
    scrub_old_files(kLogs, "app-", now);
    EXPECT_EQ(host::exists(kOldFile), !c.isRemoved);
  }
}

TEST_F(RotatedFileTest, AgeIsCorrectForTimesBeyond64BitsOfMicroseconds) {
  constexpr std::int64_t beyondMicros = 9'300'000'000'000;  // seconds whose microseconds do not fit into 64 bits
  for (const auto& [name, seconds] : {std::pair("app-future.log", beyondMicros), {"app-past.log", -beyondMicros}}) {
    const std::string path = std::string(kLogs) + "/" + name;
    host::writeFile(path, "old\n");
    const timespec time{static_cast<time_t>(seconds), 0};
    const timespec times[2] = {time, time};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }
  scrub_old_files(kLogs, "app-", now);
  EXPECT_EQ(host::tree(kLogs), "f 0644 app-future.log \"old\\n\"\n");
}

// --- Faults

// Each call fails in turn. One failure may lose one entry, but the file contains only whole lines.
TEST_F(RotatedFileTest, EachFailingCallLosesAtMostTheEntryItWasFor) {
  const auto prepare = [] {
    host::remove(kLogs);
    makeOldFile();
  };
  const std::size_t steps = forEachFault(
      {prepare, {}, ENOSPC},
      [] {
        Other other;
        write(other, "one");
        write(other, "two");
        return other.currentFileName();
      },
      [](const std::string& name, const Fault& fault) {
        const std::string text = content();
        EXPECT_THAT(text, AnyOf("no file", "", "[INFO] one\n", "[INFO] two\n", "[INFO] one\n[INFO] two\n"));
        if (!fault) {
          EXPECT_EQ(text, "[INFO] one\n[INFO] two\n");
          EXPECT_EQ(name, "app-20250302-13.log");
          EXPECT_FALSE(host::exists(kOldFile));
        }
        // A single failure loses at most one entry.
        if (fault && !fault.fromThereOn) {
          EXPECT_GE(text.size(), 11U);
        }
      });
  // The listing makes seven calls. lstat, unlink, mkdir, open, fstat, two writes and close follow.
  EXPECT_EQ(steps, 16U) << "the order of the calls has changed";
}

TEST_F(RotatedFileTest, EntryWhoseCallFailsIsLostAndTheNextEntryTriesAgain) {
  FaultPlan oneByteAtATime;
  oneByteAtATime.oneByteAtATime = true;
  const std::string a = "[INFO] a\n";
  const std::string ab = "[INFO] a\n[INFO] b\n";
  const struct {
    const char* why;
    FaultPlan plan;
    std::string first, last;  // the content after an entry with faults and after another one without
  } cases[] = {
      {"a failed write closes the file", {1, false, ENOSPC, {"write"}}, "", "[INFO] b\n"},
      {"a failed mkdir is retried", {1, true, EACCES, {"mkdir"}}, "no directory", "[INFO] b\n"},
      {"a short write is continued", oneByteAtATime, a, ab},
      {"an interrupted open is retried", {1, false, EINTR, {"open"}}, a, ab},
      {"an interrupted write is retried", {1, false, EINTR, {"write"}}, a, ab},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(kLogs);
    Other other;
    {
      const ArmedFaults faults(c.plan);
      write(other, "a");
    }
    EXPECT_EQ(content(), c.first);
    EXPECT_EQ(other.currentFileName(), c.first == a ? "app-20250302-13.log" : "");
    write(other, "b");
    EXPECT_EQ(content(), c.last);
    EXPECT_EQ(other.currentFileName(), "app-20250302-13.log");
  }
}

TEST_F(RotatedFileTest, WritingContinuesWhenAFullDiskHasSpaceAgain) {
  host::makeDirs("/tmp/disk");
  const host::SmallDisk disk("/tmp/disk", 8'192);
  configure(emitter_, "1 hour", "app-", "/tmp/disk");
  const std::string big(3'000, 'x');
  for (int i = 0; i < 6; ++i) write(big);
  EXPECT_EQ(emitter_.currentFileName(), "");
  const std::string text = host::readFile("/tmp/disk/app-20250302-13.log");
  EXPECT_EQ(text.substr(0, 3'008), "[INFO] " + big + "\n");
  ASSERT_EQ(::truncate("/tmp/disk/app-20250302-13.log", 0), 0);
  write("room");
  EXPECT_EQ(host::readFile("/tmp/disk/app-20250302-13.log"), "[INFO] room\n");
}

// --- Entries of a batch

// A log with a file emitter, and behind it an emitter that calls a function for each entry.
class BatchTest : public RotatedFileTest {
 protected:
  // Its header is "[INFO]".
  struct Plain : Other {
    std::string formatHeader(const LogMessage&) override { return "[INFO]"; }
  };
  struct Calling : Emitter {
    std::function<void(const LogMessage&)> whenEmitting = [](const LogMessage&) {};
    void emit(const LogMessage& message) override { whenEmitting(message); }
    void write(Level, const std::string&, const std::string&) override {}
    const char* name() const override { return "Calling"; }
  };

  BatchTest() {
    manager_.addEmitter(&file_);
    manager_.addEmitter(&second_);
  }
  void log(const std::string& text) {
    const Entry entry(*manager_.input().getLogger("test"), Level::info, text, "f", "g");
  }

  Plain file_;
  Calling second_;
  LogManager manager_;  // after its emitters
};

TEST_F(BatchTest, EachEntryIsInTheFileByAWriteOfItsOwnBeforeTheNextEmitterHasItsTurn) {
  std::vector<std::string> contents;
  std::vector<std::size_t> writes;
  std::vector<std::string> names;
  const ArmedFaults counted({0, false, EIO, {"write"}});
  second_.whenEmitting = [&](const LogMessage&) {
    contents.push_back(content());
    writes.push_back(counted.count());
    names.push_back(file_.currentFileName());
  };
  for (const char* text : {"one", "two", "three"}) log(text);
  EXPECT_FALSE(host::exists(kLogs));
  manager_.flush();
  EXPECT_THAT(contents, testing::ElementsAre("[INFO] one\n", "[INFO] one\n[INFO] two\n",
                                             "[INFO] one\n[INFO] two\n[INFO] three\n"));
  EXPECT_THAT(writes, testing::ElementsAre(1U, 2U, 3U));
  EXPECT_EQ(names, std::vector<std::string>(3, "app-20250302-13.log"));
}

TEST_F(BatchTest, FailedCallLosesOneEntryAndTheNextEntryOpensTheFileAgain) {
  FaultPlan failsInTheSecondLine{12, false, EIO, {"write"}};
  failsInTheSecondLine.oneByteAtATime = true;
  const struct {
    const char* why;
    FaultPlan plan;
    std::size_t calls;
    const char* expected;
  } cases[] = {
      {"without a failure each entry is written at once",
       {0, false, EIO, {"write"}},
       3,
       "[INFO] one\n[INFO] two\n[INFO] three\n"},
      {"a failed write loses its entry", {2, false, ENOSPC, {"write"}}, 3, "[INFO] one\n[INFO] three\n"},
      {"a short write is continued until a write fails", failsInTheSecondLine, 25, "[INFO] one\n[INFO] three\n"},
      {"the file is opened once, and again after a failed write",
       {3, false, EIO, {"open", "write"}},
       5,
       "[INFO] one\n[INFO] three\n"},
      {"every entry retries a failed open", {1, false, EMFILE, {"open"}}, 2, "[INFO] two\n[INFO] three\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host::remove(kLogs);
    Plain file;
    EXPECT_EQ(file.setConfig("prefix", ""),
              ConfigResult::accepted);  // no old files are listed, so no other calls count
    LogManager manager;
    manager.addEmitter(&file);
    for (const char* text : {"one", "two", "three"}) {
      const Entry entry(*manager.input().getLogger("test"), Level::info, text, "f", "g");
    }
    const ArmedFaults faults(c.plan);
    manager.flush();
    EXPECT_EQ(faults.count(), c.calls);
    EXPECT_EQ(host::readFile("/tmp/logs/20250302-13.log"), c.expected);
    EXPECT_EQ(file.currentFileName(), "20250302-13.log");
  }
}

TEST_F(BatchTest, AfterACrashInTheMiddleOfABatchAllEntriesEmittedUntilThenAreInTheFile) {
  const pid_t child = ::fork();
  if (child == 0) {
    second_.whenEmitting = [](const LogMessage& message) {
      if (message.text() == "7") ::kill(::getpid(), SIGKILL);
    };
    for (int i = 0; i < 15; ++i) log(std::to_string(i));
    manager_.flush();
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  std::string expected;
  for (int i = 0; i <= 7; ++i) expected += "[INFO] " + std::to_string(i) + "\n";
  EXPECT_EQ(content(), expected);
}

TEST_F(BatchTest, EntryOfOneMebibyteIsOneLineAndOneWrite) {
  const std::string text(1'048'576, 'x');
  const ArmedFaults counted({0, false, EIO, {"write"}});
  log("before");
  log(text + "\nnext line");
  log("after");
  manager_.flush();
  EXPECT_EQ(counted.count(), 3U);
  EXPECT_TRUE(content() == "[INFO] before\n[INFO] " + text + " next line\n[INFO] after\n");
}

// --- Threads

TEST_F(RotatedFileTest, RemovalsAreLoggedWithoutHoldingTheLock) {
  // The emitter is the synchronous processor, so the entry about the removal is passed to it while it scrubs.
  LogManager manager;
  manager.input().setAsyncOutput(false);
  manager.addEmitter(&emitter_);
  makeOldFile();
  { const Entry entry(*manager.input().getLogger("test"), Level::info, "direct", "f", "g"); }
  write("by hand");
  EXPECT_EQ(logged_.lines.size(), 1U);
  manager.removeEmitter(&emitter_);
}

TEST_F(RotatedFileTest, ManyThreadsWriteWholeLinesWhileOneSetsAndAsks) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([this, t] {
      for (int i = 0; i < 200; ++i) {
        if (i % 20 == 0) now += kHour / 4;
        write(std::string(50, static_cast<char>('a' + t)));
      }
    });
  }
  threads.emplace_back([this] {
    for (int i = 0; i < 200; ++i) {
      EXPECT_EQ(emitter_.setConfig("prefix", "app-"), ConfigResult::accepted);
      EXPECT_TRUE(emitter_.verifyConfig());
      EXPECT_THAT(emitter_.currentFileName(), AnyOf("", testing::StartsWith("app-2025030")));
    }
  });
  for (std::thread& thread : threads) thread.join();
  std::size_t lines = 0;
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

// --- Settings and old files again

TEST_F(RotatedFileTest, NewPrefixOrDirectoryTakesEffectWhenTheNextFileIsOpened) {
  write("one");
  configure(emitter_, "1 hour", "new-", "/tmp/other");
  write("two");
  EXPECT_EQ(host::readFile(kFile), "[INFO] one\n[INFO] two\n");
  EXPECT_FALSE(host::exists("/tmp/other"));
  now = now + kHour;
  write("three");
  EXPECT_EQ(host::tree("/tmp/other"), "f 0644 new-20250302-14.log \"[INFO] three\\n\"\n");
}

TEST_F(RotatedFileTest, NewIntervalTakesEffectWithTheNextEntryUnlessThePeriodBeginsAtTheSameTime) {
  const auto setInterval = [this](const char* interval) {
    EXPECT_EQ(emitter_.setConfig("interval", interval), ConfigResult::accepted);
  };
  write("one");
  setInterval("1 day");
  EXPECT_EQ(emitter_.currentFileName(), "app-20250302-13.log") << "until the next entry";
  write("two");
  EXPECT_EQ(emitter_.currentFileName(), "app-20250302.log");
  now = at("2025-03-03T00:30:00");
  setInterval("1 hour");
  write("three");
  EXPECT_EQ(emitter_.currentFileName(), "app-20250303-00.log");
  setInterval("1 day");
  write("four");
  EXPECT_EQ(emitter_.currentFileName(), "app-20250303-00.log") << "both periods begin at midnight";
  now = at("2025-03-03T13:05:00");
  write("five");
  now = at("2025-03-04T00:00:00");
  write("six");
  EXPECT_EQ(host::tree(kLogs),
            "f 0644 app-20250302-13.log \"[INFO] one\\n\"\n"
            "f 0644 app-20250302.log \"[INFO] two\\n\"\n"
            "f 0644 app-20250303-00.log \"[INFO] three\\n[INFO] four\\n[INFO] five\\n\"\n"
            "f 0644 app-20250304.log \"[INFO] six\\n\"\n");
}

TEST_F(RotatedFileTest, InvalidIntervalEntersNoPeriodAndNoLineIsWrittenBeforeTheFirstPeriod) {
  RotatedFile file;
  file.prefix = "app-";
  file.directory = kLogs;
  EXPECT_EQ(file.interval, 0) << "until it is set";
  for (const std::int64_t invalid : {std::int64_t{0}, -kHour, std::int64_t{999}}) {
    file.interval = invalid;
    EXPECT_FALSE(file.enterPeriod(now));
  }
  file.interval = kHour;
  file.append("before the first period\n");
  EXPECT_EQ(content(), "no directory");
  EXPECT_TRUE(file.enterPeriod(now)) << "the calls above entered none";
  file.append("one\n");
  file.interval = 999;
  EXPECT_FALSE(file.enterPeriod(now + kHour));
  file.append("with an invalid interval\n");
  file.interval = kHour;
  EXPECT_FALSE(file.enterPeriod(now)) << "still the same period";
  file.append("two\n");
  EXPECT_EQ(content(), "one\ntwo\n");
}

TEST_F(RotatedFileTest, EachFileIsLoggedBeforeItIsRemoved) {
  static int logged = 0;
  class Looker : public LogMessageProcessor {
    void process(std::unique_ptr<const LogMessage>& message) override {
      EXPECT_TRUE(host::exists(std::string(message->parameters().at(0).value)));
      ++logged;
      message.reset();
    }
  };
  logged = 0;
  makeOldFile();
  makeOldFile("/tmp/logs/app-older.log");
  setSyncProcessor(new Looker);
  scrub_old_files(kLogs, "app-", now);
  setSyncProcessor(nullptr);
  EXPECT_EQ(logged, 2);
  EXPECT_EQ(host::tree(kLogs), "");
}

TEST_F(RotatedFileTest, CallsOfAnotherThreadWaitForTheWrite) {
  const struct {
    const char* why;
    std::function<void(RotatedFileEmitterActor&)> call;
  } cases[] = {
      {"write", [](auto& emitter) { write(emitter, "y"); }},
      {"setConfig", [](auto& emitter) { EXPECT_EQ(emitter.setConfig("prefix", "x-"), ConfigResult::accepted); }},
      {"verifyConfig", [](auto& emitter) { EXPECT_TRUE(emitter.verifyConfig()); }},
      {"currentFileName", [](auto& emitter) { EXPECT_EQ(emitter.currentFileName(), "app-20250302-13.log"); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    Other other;
    std::atomic<bool> isInside{false};
    std::atomic<bool> isThrough{false};
    FaultPlan plan;
    plan.calls = {"write"};
    plan.before = [&](std::size_t call) {
      if (call != 1) return;
      isInside = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      isThrough = true;
    };
    const ArmedFaults armed(plan);
    std::thread writer([&] { write(other, "x"); });
    while (!isInside) std::this_thread::yield();
    c.call(other);
    EXPECT_TRUE(isThrough);
    writer.join();
  }
}

}  // namespace
