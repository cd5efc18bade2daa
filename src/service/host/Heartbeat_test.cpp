#include "service/host/Heartbeat.h"

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using namespace std::string_literals;

constexpr const char* kFile = "/tmp/hipvars.txt";
constexpr RunState kYes = RunState::running;
constexpr RunState kNo = RunState::notRunning;
constexpr RunState kUnknown = RunState::unknown;

class HeartbeatTest : public HostTest {};

struct Reading {
  StatusCode code = 0;
  RunState running = kUnknown;
  RunState helmsor = kUnknown;
  RunState tunnel = kUnknown;
};

bool operator==(const Reading& a, const Reading& b) {
  return a.code == b.code && a.running == b.running && a.helmsor == b.helmsor && a.tunnel == b.tunnel;
}

void PrintTo(const Reading& reading, std::ostream* out) {
  *out << nameOfCode(reading.code) << ", running " << static_cast<int>(reading.running) << ", helmsor "
       << static_cast<int>(reading.helmsor) << ", tunnel " << static_cast<int>(reading.tunnel);
}

Reading readNow(const char* path = kFile) {
  ServiceStatus report;
  report.helmsor = kYes;  // readServiceStatus must reset it
  const Status s = readServiceStatus(path, report);
  return {s.code(), report.running, report.helmsor, report.tunnel};
}

// Calls `act` with the current time and returns its result. If the clock reached the next second meanwhile, it retries.
template <typename Act>
auto withinOneSecond(Act act) {
  for (;;) {
    const std::time_t now = std::time(nullptr);
    auto result = act(now);
    if (std::time(nullptr) == now) return result;
  }
}

// The times of a daemon whose last heartbeat is `age` seconds old and which had run for `up` seconds at that heartbeat.
std::string times(std::time_t now, long age, long up) {
  return "uptime.now=" + std::to_string(now - age) + "\nuptime.started=" + std::to_string(now - age - up) + "\n";
}

Reading readingOf(const std::string& rest, long age = 0, long up = 60) {
  return withinOneSecond([&](std::time_t now) {
    host::writeFile(kFile, times(now, age, up) + rest);
    return readNow();
  });
}

RunState runStateOfText(const std::string& text) {
  host::writeFile(kFile, text);
  return runStateOf(kFile);
}

const std::string kAll = "hipd_state=running\npeers.count=1\nhelmsor.up=true\n";

// --- Running or not

TEST_F(HeartbeatTest, AHeartbeatIsFreshForLessThanSixSeconds) {
  struct Case {
    long age;
    RunState running;
  };
  for (const Case& c :
       {Case{-1000000, kYes}, {-1, kYes}, {0, kYes}, {4, kYes}, {5, kYes}, {6, kNo}, {7, kNo}, {86400, kNo}}) {
    SCOPED_TRACE(c.age);
    EXPECT_EQ(readingOf("", c.age), (Reading{status::success, c.running, kUnknown, kUnknown}));
    EXPECT_EQ(withinOneSecond([&](std::time_t now) { return runStateOfText(times(now, c.age, 60)); }), c.running);
  }
}

TEST_F(HeartbeatTest, AStaleHeartbeatMakesHelmsorAndTunnelUnknown) {
  EXPECT_EQ(readingOf(kAll, 6), (Reading{status::success, kNo, kUnknown, kUnknown}));
}

TEST_F(HeartbeatTest, AMissingTimeMakesEverythingUnknown) {
  for (const char* text : {"", "\n\n", "uptime.now=1\n", "uptime.started=1\n", "uptime.Now=1\nuptime.started=1\n",
                           "uptime.now\nuptime.started=1\n", "xuptime.now=1\nuptime.started=1\n",
                           "#uptime.now=1\nuptime.started=1\n", "uptime.now.=1\nuptime.started=1\n"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(runStateOfText(text), kUnknown);
    EXPECT_EQ(readNow(), (Reading{status::success, kUnknown, kUnknown, kUnknown}));
  }
}

TEST_F(HeartbeatTest, AMissingOrNonRegularFileMeansNotRunning) {
  host::makeFifo("/tmp/fifo");
  host::makeDirs("/tmp/folder");
  host::makeLink("/tmp/dangling", "/tmp/nowhere");
  host::makeLink("/tmp/loop", "/tmp/loop");
  for (const char* path : {"/tmp/missing", "/tmp/missing/hipvars.txt", "/tmp/fifo", "/tmp/folder", "/tmp/dangling",
                           "/tmp/loop", "/dev/zero", ""}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(runStateOf(path), kNo);
    EXPECT_EQ(readNow(path), (Reading{status::success, kNo, kUnknown, kUnknown}));
  }
}

TEST_F(HeartbeatTest, AnUnreadableFileMeansNotRunning) {
  host::writeFile(kFile, times(std::time(nullptr), 0, 60), 0000);
  const host::BoundByModes bound;
  EXPECT_EQ(runStateOf(kFile), kNo);
  EXPECT_EQ(readNow(), (Reading{status::success, kNo, kUnknown, kUnknown}));
}

TEST_F(HeartbeatTest, ALinkIsFollowedAndTheNullDeviceCountsAsAnEmptyFile) {
  host::writeFile("/tmp/elsewhere", times(std::time(nullptr), 0, 60));
  host::makeLink(kFile, "/tmp/elsewhere");
  EXPECT_EQ(runStateOf(kFile), kYes);
  EXPECT_EQ(runStateOf("/dev/null"), kUnknown);
}

TEST_F(HeartbeatTest, ATimeMayBeAnyNumberOrText) {
  struct Case {
    const char* why;
    const char* now;
    RunState running;
  };
  const Case cases[] = {
      {"text that is not a number means 0", "soon", kNo},
      {"an empty value is present and means 0", "", kNo},
      {"a negative number", "-1", kNo},
      {"the smallest number", "-9223372036854775808", kNo},
      {"a number below the smallest", "-99999999999999999999999999", kNo},
      {"the largest number", "9223372036854775807", kYes},
      {"a number above the largest", "99999999999999999999999999", kYes},
      {"a number of more than 32 bits", "4294967296000", kYes},
      {"the number ends at the first byte that is no digit", "9999999999x", kYes},
      {"a number that does not begin with a digit means 0", "x9999999999", kNo},
      {"a fraction is ignored", "9999999999.5", kYes},
      {"a plus sign is accepted", "+9999999999", kYes},
      {"hexadecimal is not understood", "0x7fffffffffffffff", kNo},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    for (const char* started : {"0", "-9223372036854775808", "9223372036854775807", "never"}) {
      EXPECT_EQ(runStateOfText("uptime.now="s + c.now + "\nuptime.started=" + started + "\n"), c.running);
      EXPECT_EQ(readNow().running, c.running);
      EXPECT_EQ(readNow().code, status::success);
    }
  }
}

// --- Helmsor and tunnel

TEST_F(HeartbeatTest, HelmsorAndTunnelAreUnknownInTheFirstFourSeconds) {
  struct Case {
    long up;
    RunState others;
  };
  for (const Case& c :
       {Case{-1000, kUnknown}, {0, kUnknown}, {3, kUnknown}, {4, kUnknown}, {5, kYes}, {1000000, kYes}}) {
    SCOPED_TRACE(c.up);
    EXPECT_EQ(readingOf(kAll, 0, c.up), (Reading{status::success, kYes, c.others, c.others}));
    EXPECT_EQ(readingOf(kAll, 5, c.up), (Reading{status::success, kYes, c.others, c.others}));
  }
}

TEST_F(HeartbeatTest, TheUptimeSaturatesForExtremeTimes) {
  const std::string largest = "9223372036854775807", smallest = "-9223372036854775808";
  host::writeFile(kFile, "uptime.now=" + largest + "\nuptime.started=" + smallest + "\n" + kAll);
  EXPECT_EQ(readNow(), (Reading{status::success, kYes, kYes, kYes}));
  host::writeFile(kFile, "uptime.now=" + largest + "\nuptime.started=" + largest + "\n" + kAll);
  EXPECT_EQ(readNow(), (Reading{status::success, kYes, kUnknown, kUnknown}));
}

TEST_F(HeartbeatTest, OnePeerMeansATunnel) {
  struct Case {
    const char* value;
    RunState tunnel;
  };
  for (const Case& c : {Case{"0", kNo},
                        {"1", kYes},
                        {"3", kYes},
                        {"-1", kNo},
                        {"many", kNo},
                        {"", kNo},
                        {"2 of 3", kYes},
                        {"99999999999999999999", kYes},
                        {"-99999999999999999999", kNo}}) {
    SCOPED_TRACE(c.value);
    EXPECT_EQ(readingOf("hipd_state=x\npeers.count="s + c.value + "\n"),
              (Reading{status::success, kYes, kUnknown, c.tunnel}));
  }
}

TEST_F(HeartbeatTest, HelmsorIsUpOnlyIfTheValueIsExactlyTrue) {
  struct Case {
    const char* value;
    RunState helmsor;
  };
  for (const Case& c : {Case{"true", kYes},
                        {"True", kNo},
                        {"TRUE", kNo},
                        {"1", kNo},
                        {"yes", kNo},
                        {"", kNo},
                        {"true.", kNo},
                        {" true ", kYes}}) {
    SCOPED_TRACE(c.value);
    EXPECT_EQ(readingOf("hipd_state=x\nhelmsor.up="s + c.value + "\n"),
              (Reading{status::success, kYes, c.helmsor, kUnknown}));
  }
}

TEST_F(HeartbeatTest, AMissingVariableMeansUnknown) {
  EXPECT_EQ(readingOf("hipd_state=x\n"), (Reading{status::success, kYes, kUnknown, kUnknown}));
  EXPECT_EQ(readingOf("peers.count=1\nhelmsor.up=true\n"), (Reading{status::success, kYes, kUnknown, kUnknown}))
      << "the daemon does not report its state";
}

TEST_F(HeartbeatTest, OnlyThePresenceOfTheStateMatters) {
  for (const char* state : {"hipd_state=\n", "hipd_state=stopped\n", "hipd_state=0\n", " hipd_state = \n"}) {
    SCOPED_TRACE(state);
    EXPECT_EQ(readingOf(state + "peers.count=0\nhelmsor.up=no\n"s), (Reading{status::success, kYes, kNo, kNo}));
  }
}

TEST_F(HeartbeatTest, AZeroByteInsideAValueIsPartOfIt) {
  EXPECT_EQ(readingOf("hipd_state=x\nhelmsor.up=true\0x\npeers.count=1\n"s),
            (Reading{status::success, kYes, kNo, kYes}));
}

// --- Lines

TEST_F(HeartbeatTest, LinesAreSplitTrimmedAndComparedExactly) {
  struct Case {
    const char* why;
    std::string rest;
    RunState tunnel;
  };
  const Case cases[] = {
      {"blanks around key and value", " \t peers.count \t = \t 1 \r\n", kYes},
      {"bytes above 127 are trimmed", "\xC2\xA0peers.count\xFF=\x80\x31\xE2\x80\x8B\n", kYes},
      {"control bytes and 127 are trimmed", "\x01peers.count\x7F=\x1F\x31\x7F\n", kYes},
      {"zero bytes are trimmed", "\0peers.count\0=\0\x31\0\n"s, kYes},
      {"a byte within a key is part of it", "peers count=1\n", kUnknown},
      {"the last line of a key wins", "peers.count=1\npeers.count=0\n", kNo},
      {"the last line of a key wins even if it is empty", "peers.count=1\npeers.count=\n", kNo},
      {"the last line of a key wins whatever its value", "peers.count=0\npeers.count=1\n", kYes},
      {"only the first = separates key and value", "peers.count=0=1\n", kNo},
      {"a line that begins with = has an empty key", "=peers.count=1\n", kUnknown},
      {"a line without = is ignored", "peers.count\n", kUnknown},
      {"an empty key is ignored", "=1\n = 1\n", kUnknown},
      {"there are no comments", "# peers.count=1\n", kUnknown},
      {"the last line needs no newline", "peers.count=1", kYes},
      {"a carriage return alone ends no line", "x=1\rpeers.count=1\n", kUnknown},
      {"keys are compared exactly", "Peers.Count=1\npeers.counts=1\npeers.coun=1\n", kUnknown},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(readingOf("hipd_state=x\n" + c.rest), (Reading{status::success, kYes, kUnknown, c.tunnel}));
  }
}

TEST_F(HeartbeatTest, AValueOfOnlyBlanksIsPresentAndEmpty) {
  EXPECT_EQ(readingOf("hipd_state= \t\xFF\npeers.count=\x80 \n"), (Reading{status::success, kYes, kUnknown, kNo}));
}

TEST_F(HeartbeatTest, ALongLineIsReadAsSeveralLinesOf1023Bytes) {
  const std::string filler(1023, 'x');
  EXPECT_EQ(readingOf("hipd_state=x\n" + filler + "peers.count=1\n"), (Reading{status::success, kYes, kUnknown, kYes}))
      << "the second piece counts as a line";
  EXPECT_EQ(readingOf("hipd_state=x\n" + filler.substr(1) + "peers.count=1\n"),
            (Reading{status::success, kYes, kUnknown, kUnknown}))
      << "the key begins one byte before the second piece";
  EXPECT_EQ(readingOf("hipd_state=x\n" + filler + filler + "peers.count=1\n"),
            (Reading{status::success, kYes, kUnknown, kYes}))
      << "the third piece counts as a line";
  EXPECT_EQ(readingOf("hipd_state=x\npeers.count=" + std::string(1023 - 12, '0') + "1\n"),
            (Reading{status::success, kYes, kUnknown, kNo}))
      << "the value ends with its piece";
  EXPECT_EQ(readingOf("hipd_state=x\npeers.count=" + std::string(1022 - 12, '0') + "1\n"),
            (Reading{status::success, kYes, kUnknown, kYes}));
}

TEST_F(HeartbeatTest, ManyOtherKeysAreIgnored) {
  std::string rest;
  for (int n = 0; n < 100000; ++n) rest += "peer." + std::to_string(n) + ".state=up\n";
  EXPECT_EQ(readingOf(rest + kAll), (Reading{status::success, kYes, kYes, kYes}));
}

// --- The two readings

// Reads the status; `change` changes the file just before the second reading.
Reading readWhile(const std::function<void(std::time_t)>& change) {
  return withinOneSecond([&](std::time_t now) {
    host::remove(kFile);
    host::writeFile(kFile, times(now, 0, 60) + kAll);
    FaultPlan plan;
    plan.calls = {"openat"};
    plan.before = [&](std::size_t number) {
      if (number == 2) change(now);
    };
    const ArmedFaults armed(plan);
    const Reading reading = readNow();
    EXPECT_EQ(armed.count(), 2u);
    return reading;
  });
}

TEST_F(HeartbeatTest, AFileThatVanishesBetweenTheReadingsMeansNotRunning) {
  EXPECT_EQ(readWhile([](std::time_t) { host::remove(kFile); }), (Reading{status::success, kNo, kUnknown, kUnknown}));
  EXPECT_EQ(readWhile([](std::time_t) {
              host::remove(kFile);
              host::makeFifo(kFile);
            }),
            (Reading{status::success, kNo, kUnknown, kUnknown}));
}

TEST_F(HeartbeatTest, AFileThatLosesATimeBetweenTheReadingsIsAnApplicationError) {
  for (const char* left : {"", "uptime.now=9999999999\n", "uptime.started=1\n"}) {
    SCOPED_TRACE(left);
    const Reading reading = readWhile([&](std::time_t) { host::writeFile(kFile, left + kAll); });
    EXPECT_EQ(reading.code, status::applicationError);
    EXPECT_EQ(reading.helmsor, kUnknown);
    EXPECT_EQ(reading.tunnel, kUnknown);
  }
}

TEST_F(HeartbeatTest, TheSecondReadingCounts) {
  EXPECT_EQ(readWhile([](std::time_t now) { host::writeFile(kFile, times(now, 6, 60) + kAll); }),
            (Reading{status::success, kNo, kUnknown, kUnknown}));
  EXPECT_EQ(readWhile([](std::time_t now) { host::writeFile(kFile, times(now, 0, 4) + kAll); }),
            (Reading{status::success, kYes, kUnknown, kUnknown}));
  EXPECT_EQ(readWhile([](std::time_t now) {
              host::writeFile(kFile, times(now, 0, 60) + "hipd_state=\npeers.count=0\nhelmsor.up=no\n");
            }),
            (Reading{status::success, kYes, kNo, kNo}));
}

TEST_F(HeartbeatTest, AFileWithoutATimeIsReadOnce) {
  host::writeFile(kFile, "uptime.now=1\n");
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_EQ(readNow(), (Reading{status::success, kUnknown, kUnknown, kUnknown}));
  EXPECT_THAT(counted.calls(), testing::ElementsAre("openat", "fstat", "read", "close"));
}

TEST_F(HeartbeatTest, EveryFailedCallHasItsResult) {
  const FaultLoop loop{[] { host::writeFile(kFile, times(std::time(nullptr), 0, 60) + kAll); }};
  const std::size_t steps = forEachFault(
      loop, [] { return readNow(); },
      [](const Reading& reading, const Fault& fault) {
        if (fault.call.empty() || fault.call == "close") {
          const bool isCutOff = fault.call == "close" && fault.fromThereOn && fault.step == 4;
          EXPECT_EQ(reading, (isCutOff ? Reading{status::success, kNo, kUnknown, kUnknown}
                                       : Reading{status::success, kYes, kYes, kYes}));
        } else if (fault.call != "read") {
          EXPECT_EQ(reading, (Reading{status::success, kNo, kUnknown, kUnknown}));
        } else if (fault.step < 5) {
          EXPECT_EQ(reading, (Reading{status::success, kUnknown, kUnknown, kUnknown}));
        } else {
          EXPECT_EQ(reading.code, status::applicationError);
        }
      });
  EXPECT_EQ(steps, 8u);
}

}  // namespace
