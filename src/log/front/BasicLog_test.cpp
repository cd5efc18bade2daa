// Tests of levels, entries, their text and JSON forms, assertions and the system log, through the front end.
#include "log/front/BasicLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>
#include <time.h>

#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "base/text/TimeUtils.h"
#include "testing/run/LogLines.h"

// Replaces the functions of syslog(3) in this test program.
namespace {
std::vector<std::string> systemLog;
const char* systemLogIdent = nullptr;

void recordSystemLog(int priority, const char* format, va_list arguments) {
  char line[200];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::vsnprintf(line, sizeof line, format, arguments);
#pragma GCC diagnostic pop
  systemLog.push_back("syslog " + std::to_string(priority) + " " + format + " " + line);
}
}  // namespace

extern "C" void openlog(const char* ident, int options, int facility) {
  systemLogIdent = ident;
  systemLog.push_back("openlog " + std::to_string(options) + " " + std::to_string(facility));
}
extern "C" void closelog() { systemLog.emplace_back("closelog"); }
extern "C" void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  recordSystemLog(priority, format, arguments);
  va_end(arguments);
}
extern "C" void __syslog_chk(int priority, int, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  recordSystemLog(priority, format, arguments);
  va_end(arguments);
}

namespace {

using namespace BasicLog;
using testing::ElementsAre;

constexpr Level kNotALevel = static_cast<Level>(99);

// Records every entry during a test. `seen` has the short form "[LEVEL] logger file function body".
std::vector<std::string> seen;
std::vector<LogMessage> seenMessages;

class Recorder : public LogMessageProcessor {
 public:
  void process(std::unique_ptr<const LogMessage>& message) override {
    seenMessages.push_back(*message);
    seen.push_back(lineOf(*message));
    message.reset();  // so that it is not queued
  }
};

class LogTest : public testing::Test {
 protected:
  void SetUp() override {
    seen.clear();
    seenMessages.clear();
    setDefaultLevel(Level::info);
    setSyncProcessor(new Recorder);
  }
  void TearDown() override {
    setSyncProcessor(nullptr);
    setDefaultLevel(Level::info);
  }
};

// --- Levels

TEST_F(LogTest, EveryLevelHasItsNamesAndItsPriority) {
  const struct {
    Level level;
    const char *shortName, *fullName;
    int priority;
  } cases[] = {
      {Level::trace, "T~", "TRACE", 7},   {Level::debug, "D~", "DEBUG", 7},     {Level::info, "I~", "INFO", 6},
      {Level::notice, "N~", "NOTICE", 5}, {Level::warning, "W~", "WARNING", 4}, {Level::error, "E~", "ERROR", 3},
      {Level::fatal, "F~", "FATAL", 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fullName);
    EXPECT_STREQ(loglevel_shortname(c.level), c.shortName);
    EXPECT_STREQ(loglevel_fullname(c.level), c.fullName);
    EXPECT_EQ(loglevel_to_syslog(c.level), c.priority);
  }
  EXPECT_TRUE(seen.empty());
}

TEST_F(LogTest, InvalidLevelIsLoggedWithTheNameOfTheCalledFunction) {
  for (const Level level : {Level::byDefault, kNotALevel, static_cast<Level>(-1), static_cast<Level>(8)}) {
    seen.clear();
    EXPECT_STREQ(loglevel_shortname(level), "X~");
    EXPECT_STREQ(loglevel_fullname(level), "<log level>");
    EXPECT_EQ(loglevel_to_syslog(level), 6);
    EXPECT_THAT(seen, ElementsAre("[ERROR] basiclib BasicLog.cpp loglevel_shortname invalid log level",
                                  "[ERROR] basiclib BasicLog.cpp loglevel_fullname invalid log level",
                                  "[ERROR] basiclib BasicLog.cpp loglevel_to_syslog invalid log level"));
  }
}

TEST_F(LogTest, InvalidLevelIsNotLoggedWhenErrorsAreNotEnabled) {
  setDefaultLevel(Level::fatal);
  EXPECT_STREQ(loglevel_fullname(kNotALevel), "<log level>");
  EXPECT_TRUE(seen.empty());
}

TEST(Level, LevelsCompareByTheirSeverity) {
  const Level order[] = {Level::trace,   Level::debug, Level::info, Level::notice,
                         Level::warning, Level::error, Level::fatal};
  for (std::size_t i = 1; i < std::size(order); ++i) EXPECT_LT(order[i - 1], order[i]);
}

TEST(Level, ByDefaultIsNotValidAndMeansInfo) {
  EXPECT_FALSE(isValid(Level::byDefault));
  EXPECT_FALSE(isValid(kNotALevel));
  EXPECT_EQ(effective(Level::byDefault), Level::info);
  EXPECT_EQ(effective(kNotALevel), Level::info);
  EXPECT_EQ(effective(Level::trace), Level::trace);
}

TEST(ParseLogLevel, ReadsShortFullAndAlternateNames) {
  const struct {
    const char* text;
    Level level;
    bool matches;
  } cases[] = {
      {"TRACE", Level::trace, true},
      {"DEBUG", Level::debug, true},
      {"INFO", Level::info, true},
      {"NOTICE", Level::notice, true},
      {"WARN", Level::warning, true},
      {"WARNING", Level::warning, true},
      {"ERR", Level::error, true},
      {"ERROR", Level::error, true},
      {"FATAL", Level::fatal, true},
      {"PANIC", Level::fatal, true},
      {"EMERG", Level::fatal, true},
      {"EMERGENCY", Level::fatal, true},
      {"CRITICAL", Level::fatal, true},
      {"ALERT", Level::fatal, true},
      {" debug ", Level::debug, true},
      {"\tWarning\n", Level::warning, true},
      {"[error] disk full", Level::error, true},
      {"[ERROR]", Level::error, true},
      {"error]", Level::error, true},
      {"error disk full", Level::error, true},
      {"fatal [x", Level::fatal, true},
      {"T~", Level::trace, true},
      {"d~", Level::debug, true},
      {"i~", Level::info, true},
      {"N~", Level::notice, true},
      {"W~ text", Level::warning, true},
      {"e~", Level::error, true},
      {"f~x", Level::fatal, true},
      {"  e~", Level::error, true},
      {"", Level::info, false},
      {"   ", Level::info, false},
      {"warnings", Level::info, false},
      {"warn1", Level::info, false},
      {"error:", Level::info, false},
      {"error\tdisk", Level::info, false},
      {"[[error]", Level::info, false},
      {"[ error]", Level::info, false},
      {"[e~]", Level::info, false},
      {"verbose", Level::info, false},
      {"x~", Level::info, false},
      {"e", Level::info, false},
      {"[", Level::info, false},
      {"crit", Level::info, false},
      {"trac", Level::info, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(parseLogLevel(c.text), c.level);
    Level level = Level::byDefault;
    EXPECT_EQ(parseLogLevel(c.text, level), c.matches);
    EXPECT_EQ(level, c.level);
  }
}

TEST(ParseLogLevel, AbsentTextNamesNoLevelAndMeansInfo) {
  Level level = Level::fatal;
  EXPECT_EQ(parseLogLevel(std::string_view()), Level::info);
  EXPECT_FALSE(parseLogLevel(std::string_view(), level));
  EXPECT_EQ(level, Level::info);
}

TEST(ParseLogLevel, EveryNameParsesBackToItsLevel) {
  for (int i = 1; i <= 7; ++i) {
    const auto level = static_cast<Level>(i);
    EXPECT_EQ(parseLogLevel(loglevel_shortname(level)), level);
    EXPECT_EQ(parseLogLevel(loglevel_fullname(level)), level);
  }
}

TEST(ParseLogLevel, TruncatedNameNamesNoLevel) {
  for (const std::string name : {"TRACE", "NOTICE", "FATAL", "CRITICAL", "ALERT", "PANIC", "DEBUG"}) {
    for (std::size_t length = 0; length < name.size(); ++length) {
      Level level = Level::fatal;
      EXPECT_FALSE(parseLogLevel(name.substr(0, length), level)) << name << length;
      EXPECT_EQ(level, Level::info);
    }
  }
}

// --- Entries

TEST_F(LogTest, EntryCarriesLevelTimeSourceAndLogger) {
  Logger& log = getLogger("test");
  const std::int64_t before = TimeUtils::nowMicros();
  { const Entry entry(log, Level::warning, "opened", "FileUtils.cpp", "makeUniqueFile"); }
  ASSERT_EQ(seenMessages.size(), 1U);
  const LogMessage& message = seenMessages[0];
  EXPECT_EQ(message.level, Level::warning);
  EXPECT_EQ(message.text(), "opened");
  EXPECT_EQ(message.file(), "FileUtils.cpp");
  EXPECT_EQ(message.function(), "makeUniqueFile");
  EXPECT_EQ(message.logger(), "test");
  EXPECT_TRUE(message.parameters().empty());
  EXPECT_GE(message.created, before);
  EXPECT_LE(message.created, TimeUtils::nowMicros());
}

TEST_F(LogTest, EveryKindOfParameterIsConvertedToText) {
  {
    Entry entry(getLogger("test"), Level::info, "all", "f", "g");
    entry.add("text", "x y");
    entry.add("", "");
    entry.addNumber("smallest", INT64_MIN);
    entry.addNumber("largest", INT64_MAX);
    entry.addHex("hex", 0xDEADBEEF);
    entry.addHex("small", 10);
    entry.addBool("yes", true);
    entry.addBool("no", false);
    entry.addAddress("peer", "10.0.0.1", 8080);
    entry.addAddress("odd", "", -1);
    entry.add("text", "again");
  }
  EXPECT_THAT(seen, ElementsAre("[INFO] test f g all: text=x y = smallest=-9223372036854775808 "
                                "largest=9223372036854775807 hex=deadbeef small=a yes=true no=false "
                                "peer=10.0.0.1:8080 odd=:-1 text=again"));
}

TEST_F(LogTest, AddErrnoAddsTwoParameters) {
  {
    Entry entry(getLogger("test"), Level::info, "failed", "f", "g");
    errno = ENOENT;
    entry.addErrno();
    entry.addErrno(EACCES);
  }
  EXPECT_THAT(seen, ElementsAre("[INFO] test f g failed: errmsg=No such file or directory errno=2 "
                                "errmsg=Permission denied errno=13"));
}

TEST_F(LogTest, UnknownErrnoHasATextToo) {
  {
    Entry entry(getLogger("test"), Level::info, "failed", "f", "g");
    entry.addErrno(98765);
  }
  EXPECT_THAT(seen, ElementsAre("[INFO] test f g failed: errmsg=Unknown error 98765 errno=98765"));
}

TEST_F(LogTest, LoggingLeavesErrnoUnchanged) {
  class Spoiler : public LogMessageProcessor {
   public:
    void process(std::unique_ptr<const LogMessage>& message) override {
      message.reset();
      errno = EIO;
    }
  };
  setSyncProcessor(new Spoiler);
  errno = ENOTTY;
  {
    Entry entry(getLogger("a new one whose name is long enough to be allocated"), Level::fatal, "x", "f", "g");
    EXPECT_EQ(errno, ENOTTY);
    entry.addErrno();
    entry.add(std::string(10'000, 'k'), std::string(10'000, 'v'));
    EXPECT_EQ(errno, ENOTTY);
  }
  EXPECT_EQ(errno, ENOTTY);
}

TEST_F(LogTest, TextsAreCopied) {
  {
    std::string text = "message", key = "key", value = "value", file = "file", function = "function";
    Entry entry(getLogger("test"), Level::info, text, file, function);
    entry.add(key, value);
    text = key = value = file = function = "#########";
  }
  EXPECT_THAT(seen, ElementsAre("[INFO] test file function message: key=value"));
}

TEST_F(LogTest, EntryBelowTheThresholdIsNotBuilt) {
  setDefaultLevel(Level::warning);
  Logger& log = getLogger("test");
  EXPECT_FALSE(log.isEnabled(Level::notice));
  {
    Entry entry(log, Level::notice, "quiet", "f", "g");
    EXPECT_TRUE(entry.isEmpty());
    entry.add("key", "value");
    entry.addNumber("key", 1);
    entry.addHex("key", 1);
    entry.addBool("key", true);
    entry.addAddress("key", "h", 1);
    entry.addErrno(1);
    entry.submit();
  }
  EXPECT_TRUE(seen.empty());
}

TEST_F(LogTest, EntryIsSubmittedOnce) {
  {
    Entry entry(getLogger("test"), Level::info, "once", "f", "g");
    EXPECT_FALSE(entry.isEmpty());
    entry.submit();
    EXPECT_TRUE(entry.isEmpty());
    entry.add("late", "lost");
    entry.submit();
  }
  EXPECT_THAT(seen, ElementsAre("[INFO] test f g once"));
}

TEST_F(LogTest, MovedEntryIsSubmittedOnlyByItsNewHandle) {
  {
    Entry entry(getLogger("test"), Level::info, "moved", "f", "g");
    Entry other(std::move(entry));
    EXPECT_TRUE(entry.isEmpty());  // NOLINT(bugprone-use-after-move): tests the moved-from handle
    other.add("by", "other");
  }
  EXPECT_THAT(seen, ElementsAre("[INFO] test f g moved: by=other"));
}

TEST_F(LogTest, EntryWithDefaultOrInvalidLevelStoresInfo) {
  { const Entry entry(getLogger("test"), Level::byDefault, "default", "f", "g"); }
  { const Entry entry(getLogger("test"), kNotALevel, "invalid", "f", "g"); }
  EXPECT_THAT(seen, ElementsAre("[INFO] test f g default", "[INFO] test f g invalid"));
}

// --- Renderings

class Zone {
 public:
  explicit Zone(const char* name) {
    if (const char* old = std::getenv("TZ")) {
      old_ = old;
      wasSet_ = true;
    }
    ::setenv("TZ", name, 1);
    ::tzset();
  }
  ~Zone() {
    if (wasSet_) {
      ::setenv("TZ", old_.c_str(), 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
  }
  Zone(const Zone&) = delete;
  Zone& operator=(const Zone&) = delete;

 private:
  std::string old_;
  bool wasSet_ = false;
};

LogMessage sample(std::string_view text = "opened", const std::vector<LogParameter>& parameters = {}) {
  LogMessage message;
  message.level = Level::warning;
  message.created = 1'709'294'405'000'123;
  message.begin("FileUtils.cpp", "makeUniqueFile", "basiclib", text);
  for (const LogParameter& parameter : parameters) message.add(parameter.key, parameter.value);
  return message;
}

TEST(Rendering, TextHeaderHasLevelAndTime) {
  const Zone zone("UTC0");
  EXPECT_EQ(textHeader(sample()), "[WARNING 2024-03-01 12:00:05.000123]");
  EXPECT_EQ(shortTextHeader(sample()), "[WARNING]");
}

TEST(Rendering, TimeUsesTheZoneOffsetOfApril3918) {
  const Zone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(textHeader(sample()), "[WARNING 2024-03-01 14:00:05.000123]");
  EXPECT_EQ(jsonHeader(sample()),
            R"({ "level":"WARNING", "ticks":1709301605000123.000000, "time":"2024-03-01 14:00:05.000123" })");
}

TEST(Rendering, TimeDoesNotDependOnTimesRenderedBefore) {
  const Zone zone("UTC0");
  const struct {
    std::int64_t time;
    const char* header;
  } cases[] = {
      {1'709'294'405'000'123, "[WARNING 2024-03-01 12:00:05.000123]"},
      {1'709'294'405'999'999, "[WARNING 2024-03-01 12:00:05.999999]"},
      {1'709'294'406'000'000, "[WARNING 2024-03-01 12:00:06.000000]"},
      {1'709'294'405'000'123, "[WARNING 2024-03-01 12:00:05.000123]"},
      {0, "[WARNING 1970-01-01 00:00:00.000000]"},
      {999'999, "[WARNING 1970-01-01 00:00:00.999999]"},
      {-1, "[WARNING 1969-12-31 23:59:59.999999]"},
      {-999'999, "[WARNING 1969-12-31 23:59:59.000001]"},
      {1, "[WARNING 1970-01-01 00:00:00.000001]"},
      {253'402'300'799'999'999, "[WARNING 9999-12-31 23:59:59.999999]"},
      {253'402'300'800'000'000, "[WARNING 10000-01-01 00:00:00.000000]"},
      {253'402'300'800'000'001, "[WARNING 10000-01-01 00:00:00.000001]"},
      {1'709'294'405'000'123, "[WARNING 2024-03-01 12:00:05.000123]"},
  };
  for (const auto& c : cases) {
    LogMessage message = sample();
    message.created = c.time;
    EXPECT_EQ(textHeader(message), c.header);
  }
}

TEST(Rendering, TextBodyHasNoColonWithoutParameters) { EXPECT_EQ(textBody(sample()), "opened"); }

TEST(Rendering, TextBodyListsTheParametersInOrder) {
  EXPECT_EQ(textBody(sample("opened", {{"path", "/x"}, {"mode", "644"}})), "opened: path=/x mode=644");
  EXPECT_EQ(textBody(sample("opened", {{"a", ""}, {"", "b"}, {"a", "%s"}})), "opened: a= =b a=%s");
  EXPECT_EQ(textBody(sample("", {{"", ""}})), ": =");
}

TEST(Rendering, JsonHeaderHasTheTicksAsANumber) {
  const Zone zone("UTC0");
  EXPECT_EQ(jsonHeader(sample()),
            R"({ "level":"WARNING", "ticks":1709294405000123.000000, "time":"2024-03-01 12:00:05.000123" })");
}

TEST(Rendering, JsonBodyHasParamsOnlyIfTheMessageHasParameters) {
  EXPECT_EQ(jsonBody(sample()), R"({ "msg":"opened" })");
  EXPECT_EQ(jsonBody(sample("opened", {{"path", "/x"}, {"mode", "644"}})),
            R"({ "msg":"opened", "params":{ "path":"/x", "mode":"644" } })");
}

TEST(Rendering, JsonBodyEscapesTheMessageAndKeepsTheLastValueOfAKey) {
  const LogMessage message = sample("say \"hi\"\n\xe9", {{"a", "1"}, {"b", "2"}, {"a", "3"}});
  EXPECT_EQ(jsonBody(message), R"({ "msg":"say \"hi\"\n?", "params":{ "a":"3", "b":"2" } })");
}

TEST_F(LogTest, MessageWithAnInvalidLevelIsStillRendered) {
  LogMessage message = sample();
  message.level = kNotALevel;
  EXPECT_EQ(shortTextHeader(message), "[<log level>]");
  EXPECT_THAT(seen, ElementsAre("[ERROR] basiclib BasicLog.cpp loglevel_fullname invalid log level"));
}

// --- Assertions

volatile std::sig_atomic_t illegalInstructions = 0;

// Handles SIGILL, so that it does not end the program, and counts how often it is raised.
class AssertTest : public LogTest {
 protected:
  void SetUp() override {
    LogTest::SetUp();
    illegalInstructions = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { illegalInstructions = illegalInstructions + 1; };
    ASSERT_EQ(::sigaction(SIGILL, &action, &old_), 0);
    testing::internal::CaptureStderr();
  }
  void TearDown() override {
    ::sigaction(SIGILL, &old_, nullptr);
    setAssertHandler(nullptr);
    LogTest::TearDown();
  }

 private:
  struct sigaction old_ {};
};

TEST_F(AssertTest, FailedAssertionIsPrintedAndLoggedAndRaisesSigill) {
  assertFailure("Some.cpp", 42, "it broke");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "assert error, Some.cpp line 42, \"it broke\" \n");
  EXPECT_THAT(seen, ElementsAre("[ERROR] basiclib BasicLog.cpp defaultAssertFailure "
                                "assert error, Some.cpp line 42, \"it broke\" \n"));
  EXPECT_EQ(illegalInstructions, 1);
}

TEST_F(AssertTest, UnknownFileAndMessageAreReplacedByPlaceholders) {
  defaultAssertFailure(nullptr, -1, nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "assert error, <filename unknown> line -1, \"<no message>\" \n");
}

TEST_F(AssertTest, TextIsCutAt1023BytesAndIsNotInterpretedAsAFormat) {
  const std::string longMessage = "%s%n" + std::string(2'000, 'x');
  defaultAssertFailure("f", 1, longMessage.c_str());
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_EQ(text.size(), 1'023U);
  EXPECT_EQ(text.substr(0, 31), "assert error, f line 1, \"%s%nxx");
  EXPECT_EQ(seenMessages.at(0).text(), text);
}

TEST_F(AssertTest, FailedAssertionIsNotLoggedWhenErrorsAreNotEnabled) {
  setDefaultLevel(Level::fatal);
  assertFailure("f", 1, "m");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "assert error, f line 1, \"m\" \n");
  EXPECT_TRUE(seen.empty());
  EXPECT_EQ(illegalInstructions, 1);
}

std::vector<std::string> handled;

TEST_F(AssertTest, InstalledHandlerReplacesTheDefault) {
  handled.clear();
  setAssertHandler([](const char* file, int line, const char* message) {
    handled.push_back(std::string(file) + " " + std::to_string(line) + " " + message);
  });
  assertFailure("f", 7, "m");
  EXPECT_THAT(handled, ElementsAre("f 7 m"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(seen.empty());
  EXPECT_EQ(illegalInstructions, 0);

  setAssertHandler(nullptr);
  testing::internal::CaptureStderr();
  assertFailure("f", 8, "m");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "assert error, f line 8, \"m\" \n");
}

TEST_F(AssertTest, AssertionInsideTheHandlerCallsTheDefault) {
  setAssertHandler([](const char*, int, const char*) { assertFailure("inner", 2, "again"); });
  assertFailure("outer", 1, "first");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "assert error, inner line 2, \"again\" \n");
  EXPECT_EQ(illegalInstructions, 1);
}

TEST_F(AssertTest, AssertionInsideAProcessorDuringAReportNeitherHangsNorRecurses) {
  class Asserting : public LogMessageProcessor {
   public:
    void process(std::unique_ptr<const LogMessage>&) override { assertFailure("inner", 2, "again"); }
  };
  setSyncProcessor(new Asserting);
  assertFailure("outer", 1, "first");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "assert error, outer line 1, \"first\" \nassert error, inner line 2, \"again\" \n");
  EXPECT_EQ(illegalInstructions, 2);
}

TEST(AssertDeathTest, FailedAssertionEndsTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto fail = [] {
    ::signal(SIGILL, SIG_DFL);
    assertFailure("f", 1, "m");
  };
  EXPECT_EXIT(fail(), testing::KilledBySignal(SIGILL), "assert error, f line 1, \"m\" ");
}

// --- The system log

TEST(SyslogConnection, ConnectionIsOpenAsLongAsTheObjectLives) {
  systemLog.clear();
  {
    const std::string name = "ravctl";
    SyslogConnection connection(name.c_str());
    EXPECT_STREQ(systemLogIdent, "ravctl");
    EXPECT_NE(systemLogIdent, name.c_str());  // a copy, since the system keeps the pointer
    connection.send(Level::fatal, "gone %s %n");
    connection.send(Level::trace, "");
  }
  EXPECT_THAT(systemLog, ElementsAre("openlog 0 8", "syslog 2 %s gone %s %n", "syslog 7 %s ", "closelog"));
}

TEST(SyslogConnection, AbsentNameIsReplacedByAPlaceholder) {
  {
    const SyslogConnection connection(nullptr);
    EXPECT_STREQ(systemLogIdent, "<appname unavailable>");
  }
  {
    const SyslogConnection connection("");
    EXPECT_STREQ(systemLogIdent, "<appname unavailable>");
  }
}

TEST_F(LogTest, InvalidLevelIsSentAtThePriorityOfInfo) {
  systemLog.clear();
  SyslogConnection("x").send(Level::byDefault, "text");
  EXPECT_THAT(systemLog, ElementsAre("openlog 0 8", "syslog 6 %s text", "closelog"));
  EXPECT_THAT(seen, ElementsAre("[ERROR] basiclib BasicLog.cpp loglevel_to_syslog invalid log level"));
}

}  // namespace
