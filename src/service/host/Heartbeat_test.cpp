#include "service/host/Heartbeat.h"

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

TEST(RunState, TheStatesAreTheNumbers1To3) {
  EXPECT_EQ(static_cast<int>(RunState::running), 1);
  EXPECT_EQ(static_cast<int>(RunState::notRunning), 2);
  EXPECT_EQ(static_cast<int>(RunState::unknown), 3);
}

// --- Running or not

TEST_F(HeartbeatTest, AHeartbeatIsFreshForLessThanSixSeconds) {
  for (const long age : {-1000000, -1, 0, 4, 5, 6, 7, 86400}) {
    SCOPED_TRACE(age);
    const RunState running = age < 6 ? kYes : kNo;
    const RunState others = age < 6 ? kYes : kUnknown;
    EXPECT_EQ(readingOf("", age), (Reading{status::success, running, kUnknown, kUnknown}));
    EXPECT_EQ(readingOf(kAll, age), (Reading{status::success, running, others, others}));
    EXPECT_EQ(withinOneSecond([&](std::time_t now) { return runStateOfText(times(now, age, 60)); }), running);
  }
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

TEST_F(HeartbeatTest, AFileThatIsNotReadableOrNotRegularMeansNotRunning) {
  host::makeFifo("/tmp/fifo");
  host::makeDirs("/tmp/folder");
  host::makeLink("/tmp/dangling", "/tmp/nowhere");
  host::makeLink("/tmp/loop", "/tmp/loop");
  host::writeFile(kFile, times(std::time(nullptr), 0, 60), 0000);
  const host::BoundByModes bound;
  for (const char* path : {"/tmp/missing", "/tmp/missing/hipvars.txt", "/tmp/fifo", "/tmp/folder", "/tmp/dangling",
                           "/tmp/loop", "/dev/zero", "", kFile}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(runStateOf(path), kNo);
    EXPECT_EQ(readNow(path), (Reading{status::success, kNo, kUnknown, kUnknown}));
  }
}

TEST_F(HeartbeatTest, ALinkIsFollowedAndTheNullDeviceCountsAsAnEmptyFile) {
  host::writeFile("/tmp/elsewhere", times(std::time(nullptr), 0, 60));
  host::makeLink(kFile, "/tmp/elsewhere");
  EXPECT_EQ(runStateOf(kFile), kYes);
  EXPECT_EQ(runStateOf("/dev/null"), kUnknown);
}

TEST_F(HeartbeatTest, ATimeMayBeAnyNumberOrText) {
  struct Case {
    const char *why, *now;
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
  for (const long up : {-1000, 0, 3, 4, 5, 1000000}) {
    SCOPED_TRACE(up);
    const RunState others = up > 4 ? kYes : kUnknown;
    EXPECT_EQ(readingOf(kAll, 0, up), (Reading{status::success, kYes, others, others}));
    EXPECT_EQ(readingOf(kAll, 5, up), (Reading{status::success, kYes, others, others}));
  }
}

TEST_F(HeartbeatTest, TheUptimeSaturatesForExtremeTimes) {
  const std::string largest = "9223372036854775807", smallest = "-9223372036854775808";
  host::writeFile(kFile, "uptime.now=" + largest + "\nuptime.started=" + smallest + "\n" + kAll);
  EXPECT_EQ(readNow(), (Reading{status::success, kYes, kYes, kYes}));
  host::writeFile(kFile, "uptime.now=" + largest + "\nuptime.started=" + largest + "\n" + kAll);
  EXPECT_EQ(readNow(), (Reading{status::success, kYes, kUnknown, kUnknown}));
}

// Lines that follow the times of a running daemon, and the states that they give.
struct Lines {
  const char* why;
  std::string text;
  RunState helmsor;
  RunState tunnel;
};

void expectReadings(const std::vector<Lines>& cases) {
  for (const Lines& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(readingOf(c.text), (Reading{status::success, kYes, c.helmsor, c.tunnel}));
  }
}

TEST_F(HeartbeatTest, OnePeerMeansATunnelAndTheExactValueTrueMeansHelmsor) {
  expectReadings({
      {"no variable", "hipd_state=x\n", kUnknown, kUnknown},
      {"0 peers", "hipd_state=x\npeers.count=0\n", kUnknown, kNo},
      {"1 peer", "hipd_state=x\npeers.count=1\n", kUnknown, kYes},
      {"3 peers", "hipd_state=x\npeers.count=3\n", kUnknown, kYes},
      {"a negative number of peers", "hipd_state=x\npeers.count=-1\n", kUnknown, kNo},
      {"a text without a number means 0", "hipd_state=x\npeers.count=many\n", kUnknown, kNo},
      {"an empty number of peers means 0", "hipd_state=x\npeers.count=\n", kUnknown, kNo},
      {"the number ends at the first byte that is no digit", "hipd_state=x\npeers.count=2 of 3\n", kUnknown, kYes},
      {"a number above the largest", "hipd_state=x\npeers.count=99999999999999999999\n", kUnknown, kYes},
      {"a number below the smallest", "hipd_state=x\npeers.count=-99999999999999999999\n", kUnknown, kNo},
      {"true", "hipd_state=x\nhelmsor.up=true\n", kYes, kUnknown},
      {"one capital letter", "hipd_state=x\nhelmsor.up=True\n", kNo, kUnknown},
      {"capital letters", "hipd_state=x\nhelmsor.up=TRUE\n", kNo, kUnknown},
      {"1", "hipd_state=x\nhelmsor.up=1\n", kNo, kUnknown},
      {"yes", "hipd_state=x\nhelmsor.up=yes\n", kNo, kUnknown},
      {"an empty value", "hipd_state=x\nhelmsor.up=\n", kNo, kUnknown},
      {"a byte behind the value", "hipd_state=x\nhelmsor.up=true.\n", kNo, kUnknown},
      {"blanks around the value", "hipd_state=x\nhelmsor.up= true \n", kYes, kUnknown},
      {"a zero byte inside a value is part of it", "hipd_state=x\nhelmsor.up=true\0x\npeers.count=1\n"s, kNo, kYes},
  });
}

TEST_F(HeartbeatTest, TheKeyHipdStateMustBePresentAndItsValueDoesNotMatter) {
  expectReadings({
      {"no state", "peers.count=1\nhelmsor.up=true\n", kUnknown, kUnknown},
      {"an empty state", "hipd_state=\npeers.count=0\nhelmsor.up=no\n", kNo, kNo},
      {"the state stopped", "hipd_state=stopped\npeers.count=0\nhelmsor.up=no\n", kNo, kNo},
      {"the state 0", "hipd_state=0\npeers.count=0\nhelmsor.up=no\n", kNo, kNo},
      {"blanks", " hipd_state = \npeers.count=0\nhelmsor.up=no\n", kNo, kNo},
  });
}

// --- Lines

TEST_F(HeartbeatTest, LinesAreSplitTrimmedAndComparedExactly) {
  std::string others;
  for (int n = 0; n < 100000; ++n) others += "peer." + std::to_string(n) + ".state=up\n";
  const std::string state = "hipd_state=x\n";
  expectReadings({
      {"blanks around key and value", state + " \t peers.count \t = \t 1 \r\n", kUnknown, kYes},
      {"bytes above 127 are trimmed", state + "\xC2\xA0peers.count\xFF=\x80\x31\xE2\x80\x8B\n", kUnknown, kYes},
      {"control bytes and 127 are trimmed", state + "\x01peers.count\x7F=\x1F\x31\x7F\n", kUnknown, kYes},
      {"zero bytes are trimmed", state + "\0peers.count\0=\0\x31\0\n"s, kUnknown, kYes},
      {"a value of only blanks is present and empty", "hipd_state= \t\xFF\npeers.count=\x80 \n", kUnknown, kNo},
      {"a byte within a key is part of it", state + "peers count=1\n", kUnknown, kUnknown},
      {"the last line of a key wins", state + "peers.count=1\npeers.count=0\n", kUnknown, kNo},
      {"the last line of a key wins even if it is empty", state + "peers.count=1\npeers.count=\n", kUnknown, kNo},
      {"the last line of a key wins whatever its value", state + "peers.count=0\npeers.count=1\n", kUnknown, kYes},
      {"only the first = separates key and value", state + "peers.count=0=1\n", kUnknown, kNo},
      {"a line that begins with = has an empty key", state + "=peers.count=1\n", kUnknown, kUnknown},
      {"a line without = is ignored", state + "peers.count\n", kUnknown, kUnknown},
      {"an empty key is ignored", state + "=1\n = 1\n", kUnknown, kUnknown},
      {"there are no comments", state + "# peers.count=1\n", kUnknown, kUnknown},
      {"the last line needs no newline", state + "peers.count=1", kUnknown, kYes},
      {"a carriage return alone ends no line", state + "x=1\rpeers.count=1\n", kUnknown, kUnknown},
      {"keys are compared exactly", state + "Peers.Count=1\npeers.counts=1\npeers.coun=1\n", kUnknown, kUnknown},
      {"other keys are ignored, however many", others + kAll, kYes, kYes},
  });
}

TEST_F(HeartbeatTest, ALongLineIsReadAsSeveralLinesOf1023Bytes) {
  const std::string x(1023, 'x'), state = "hipd_state=x\n", zeros(1022 - 12, '0');
  expectReadings({
      {"the second piece counts as a line", state + x + "peers.count=1\n", kUnknown, kYes},
      {"the key begins before the second piece", state + x.substr(1) + "peers.count=1\n", kUnknown, kUnknown},
      {"the third piece counts as a line", state + x + x + "peers.count=1\n", kUnknown, kYes},
      {"the value ends with its piece", state + "peers.count=0" + zeros + "1\n", kUnknown, kNo},
      {"the value fills its piece", state + "peers.count=" + zeros + "1\n", kUnknown, kYes},
  });
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

TEST_F(HeartbeatTest, TheSecondOfTwoReadingsDecidesTheResult) {
  const Reading notRunning = {status::success, kNo, kUnknown, kUnknown};
  const auto replaceByFifo = [](std::time_t) {
    host::remove(kFile);
    host::makeFifo(kFile);
  };
  EXPECT_EQ(readWhile([](std::time_t) { host::remove(kFile); }), notRunning) << "the file vanishes";
  EXPECT_EQ(readWhile(replaceByFifo), notRunning);
  EXPECT_EQ(readWhile([](std::time_t now) { host::writeFile(kFile, times(now, 6, 60) + kAll); }), notRunning);
  EXPECT_EQ(readWhile([](std::time_t now) { host::writeFile(kFile, times(now, 0, 4) + kAll); }),
            (Reading{status::success, kYes, kUnknown, kUnknown}));
  const char* const others = "hipd_state=\npeers.count=0\nhelmsor.up=no\n";
  EXPECT_EQ(readWhile([&](std::time_t now) { host::writeFile(kFile, times(now, 0, 60) + others); }),
            (Reading{status::success, kYes, kNo, kNo}));
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

TEST_F(HeartbeatTest, AFileWithoutATimeIsReadOnce) {
  host::writeFile(kFile, "uptime.now=1\n");
  const ArmedFaults counted{FaultPlan{}};
  EXPECT_EQ(readNow(), (Reading{status::success, kUnknown, kUnknown, kUnknown}));
  EXPECT_THAT(counted.calls(), testing::ElementsAre("openat", "fstat", "read", "close"));
}

TEST_F(HeartbeatTest, AFaultWhileReadingGivesNotRunningUnknownOrAnApplicationError) {
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
