// tools/count_tests.py counts planted reports of CTest and GoogleTest. All counts that ./dev prints come from it.
#include "testing/host/Places.h"
#include "testing/run/HostTest.h"

namespace {

using testing::HasSubstr;

const std::string kScript = places::source() + "/tools/count_tests.py";
constexpr const char* kFolder = "/tmp/reports/";
constexpr const char* kSkips = "/tmp/skips";

// Tests as GoogleTest reports them.
constexpr const char* kPassed =
    R"(<testcase name="Works" file="a_test.cpp" line="3" status="run" result="completed" time="0." classname="Thing" />)";
constexpr const char* kFailed = R"(<testcase name="Breaks" status="run" result="completed" classname="Thing">
      <failure message="a_test.cpp:7&#x0A;Value of: x" type=""><![CDATA[a_test.cpp:7
Value of: x]]></failure>
      <failure message="a_test.cpp:8&#x0A;Value of: y" type=""><![CDATA[y]]></failure>
    </testcase>)";
constexpr const char* kSkipped =
    R"(<testcase name="Needs/0" status="run" result="skipped" classname="All/Thing">
      <skipped message="a_test.cpp:9&#x0A;needs &quot;root&quot; &amp; more&#x0A;"><![CDATA[a_test.cpp:9
needs "root" & more
]]></skipped>
    </testcase>)";
constexpr const char* kDisabled =
    R"(<testcase name="DISABLED_Waits" status="notrun" result="suppressed" classname="Thing" />)";
// A text of a test may hold bytes that XML cannot hold.
constexpr const char* kFailedWithBytes =
    "<testcase name=\"Breaks\" status=\"run\" result=\"completed\" classname=\"Thing\">\n"
    "  <failure message=\"\" type=\"\"><![CDATA[a_test.cpp:7\n\x01\xff\xef\xbf\xbf]]></failure>\n</testcase>";
// What a test has printed may look like a result.
constexpr const char* kFailedWithAText =
    R"(<testcase name="Prints" status="run" result="completed" classname="Thing">
      <failure message="says &lt;/testcase&gt;&#x0A;" type=""><![CDATA[</failure></testcase>
<testcase name="Fake" status="run" result="completed" classname="Thing" />
</testsuites>]]></failure>
    </testcase>)";

// A report of GoogleTest, and one of CTest.
std::string googleTest(const std::string& tests) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<testsuites tests="1" name="AllTests">
  <testsuite name="Thing" tests="1">
    )" + tests +
         "\n  </testsuite>\n</testsuites>\n";
}
std::string ctest(const std::string& entries) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<testsuite name="Linux" tests="1">
)" + entries +
         "</testsuite>\n";
}
std::string entry(const std::string& name, const std::string& status, const std::string& output = "") {
  return "\t<testcase name=\"" + name + "\" classname=\"" + name + "\" time=\"0.1\" status=\"" + status +
         "\">\n\t\t<system-out>" + output + "</system-out>\n\t</testcase>\n";
}

std::string skippedEntry(const std::string& name, const std::string& message, const std::string& output) {
  return "\t<testcase name=\"" + name + "\" classname=\"" + name +
         "\" time=\"0.1\" status=\"notrun\">\n\t\t<skipped message=\"" + message + "\"/>\n\t\t<system-out>" + output +
         "</system-out>\n\t</testcase>\n";
}

struct Report {
  const char* name;
  std::string text;
};

class CountTestsTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped()) return;
    if (!host::exists("/usr/bin/python3")) GTEST_SKIP() << "python3 is not installed";
  }

  // Writes the reports and counts them, in the given order.
  static Outcome count(const std::vector<Report>& reports) {
    std::vector<std::string> words = {"/usr/bin/python3", "-I", kScript, "--step", "step", "--skips", kSkips};
    for (const Report& report : reports) {
      host::writeFile(kFolder + std::string(report.name), report.text);
      words.push_back(kFolder + std::string(report.name));
    }
    return runProgram(words);
  }
};

struct Case {
  const char* why;
  std::vector<Report> reports;
  const char* counts;  // of passed, failed and skipped tests
  const char* err = "";
};

Report list(const std::string& entries) { return {"ctest.xml", ctest(entries)}; }
Report ofThing(const std::string& tests) { return {"a_test-Thing.xml", googleTest(tests)}; }

constexpr const char* kNotWhole = "a_test/Thing has left no whole report of its tests\n";
const std::string kFake = "&lt;testcase name=&quot;x&quot; status=&quot;run&quot; classname=&quot;x&quot;/&gt;";
const std::string kPassedAndFailed = entry("fuzz_json", "run") + entry("fuzz_json", "fail");
const std::string kFailedAndPassed = entry("fuzz_json", "fail") + entry("fuzz_json", "run");

const Case kCases[] = {
    {"the single tests count instead of the entry of CTest",
     {list(entry("a_test/Thing", "fail")), ofThing(std::string(kPassed) + kFailed + kSkipped + kDisabled + kPassed)},
     "2 1 2\n"},
    {"an entry without a test program is one test",
     {list(entry("fuzz_json", "run") + entry("fuzz_url", "fail") + entry("a_test_NOT_BUILT", "notrun"))},
     "1 2 0\n"},
    {"an entry that ends with the status for a skipped test is skipped",
     {list(entry("fuzz_json", "run") + skippedEntry("fuzz_store", "SKIP_RETURN_CODE=77", "a\nno private host\n"))},
     "1 0 1\n"},
    {"an entry that CTest does not run for another reason is one failure",
     {list(skippedEntry("fuzz_store", "Disabled", ""))},
     "0 1 0\n"},
    {"an entry without a report is one failure", {list(entry("a_test/Thing", "run"))}, "0 1 0\n", kNotWhole},
    {"a failed entry without a report is one too", {list(entry("a_test/Thing", "fail"))}, "0 1 0\n", kNotWhole},
    {"an entry that fails after its last test is one failure",
     {list(entry("a_test/Thing", "fail")), ofThing(kPassed)},
     "1 1 0\n",
     "a_test/Thing failed, but none of its tests did\n"},
    {"output of a test that looks like a result does not count",
     {ofThing(std::string(kFailedWithAText) + kPassed)},
     "1 1 0\n"},
    {"output of an entry that looks like a result does not count", {list(entry("fuzz_json", "run", kFake))}, "1 0 0\n"},
    {"output may hold bytes that XML cannot hold", {ofThing(std::string(kFailedWithBytes) + kPassed)}, "1 1 0\n"},
    {"an entry that is named twice fails if the second one fails", {list(kPassedAndFailed)}, "0 1 0\n"},
    {"an entry that is named twice fails if the first one fails", {list(kFailedAndPassed)}, "0 1 0\n"},
    {"an entry that is named twice counts once",
     {list(entry("fuzz_json", "run") + entry("fuzz_json", "run"))},
     "1 0 0\n"},
};

TEST_F(CountTestsTest, EachTestCountsOnceAndEachProblemIsAFailure) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.why);
    host::reset();
    const Outcome outcome = count(c.reports);
    EXPECT_EQ(outcome.out, c.counts);
    EXPECT_EQ(outcome.err, c.err);
    EXPECT_EQ(outcome.exitStatus, 0);
  }
}

TEST_F(CountTestsTest, WritesTheLastLineOfEachReasonButNoFileWhenNoTestIsSkipped) {
  EXPECT_EQ(count({ofThing(kPassed)}).out, "1 0 0\n");
  EXPECT_FALSE(host::exists(kSkips));
  EXPECT_EQ(count({ofThing(std::string(kSkipped) + kDisabled)}).out, "0 0 2\n");
  EXPECT_EQ(host::readFile(kSkips),
            "step:All/Thing.Needs/0\tneeds \"root\" & more\nstep:Thing.DISABLED_Waits\tsuppressed\n");
  EXPECT_EQ(count({list(skippedEntry("fuzz_store", "SKIP_RETURN_CODE=77", "a\nno private host\n"))}).out, "0 0 1\n");
  EXPECT_EQ(host::readFile(kSkips), "step:fuzz_store\tno private host\n");
}

TEST_F(CountTestsTest, AMissingOrBrokenOffReportCountsAsOneFailureAndKeepsItsTests) {
  const std::string whole = googleTest(std::string(kPassed) + kPassed);
  for (const std::string& broken :
       {std::string(), whole.substr(0, 20), whole.substr(0, whole.size() - 5), std::string("no report\n")}) {
    SCOPED_TRACE(broken);
    const bool hasTests = broken.size() > 100;
    const Outcome withEntry = count({list(entry("a_test/Thing", "run")), {"a_test-Thing.xml", broken}});
    EXPECT_EQ(withEntry.out, hasTests ? "2 1 0\n" : "0 1 0\n");
    EXPECT_EQ(withEntry.err, "a_test/Thing has left no whole report of its tests\n");
    const Outcome alone = count({{"a_test-Thing.xml", broken}});
    EXPECT_EQ(alone.out, hasTests ? "2 1 0\n" : "0 1 0\n");
    EXPECT_EQ(alone.err, "a_test-Thing.xml is missing or not whole\n");
  }
  const std::string wholeList = ctest(entry("fuzz_json", "run"));
  EXPECT_EQ(count({{"ctest.xml", wholeList.substr(0, wholeList.size() - 5)}}).out, "1 1 0\n");
  const Outcome missing =
      runProgram({"/usr/bin/python3", "-I", kScript, "--step", "step", "--skips", kSkips, "/tmp/none.xml"});
  EXPECT_EQ(missing.out, "0 1 0\n");
  EXPECT_EQ(missing.err, "none.xml is missing or not whole\n");
}

TEST_F(CountTestsTest, ShowsItsUsage) {
  const Outcome help = runProgram({"/usr/bin/python3", "-I", kScript, "-h"});
  EXPECT_THAT(help.out, HasSubstr("usage: count_tests.py"));
  EXPECT_EQ(help.exitStatus, 0);
  EXPECT_EQ(runProgram({"/usr/bin/python3", "-I", kScript}).exitStatus, 2);
}

}  // namespace
