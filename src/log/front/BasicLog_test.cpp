// Tests of levels, entries, their text and JSON forms, assertions and the system log, through the front end.
#include "log/front/BasicLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <random>

#include "base/text/TimeUtils.h"
#include "testing/run/LogLines.h"
#include "testing/run/Zone.h"

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
using testing::IsEmpty;

constexpr Level kNotALevel = static_cast<Level>(99);

class LogTest : public testing::Test {
 protected:
  LogTest() { setDefaultLevel(Level::info); }
  ~LogTest() override { setDefaultLevel(Level::info); }

  LoggedLines logged_;
};

// --- Levels

TEST_F(LogTest, EveryLevelHasItsNamesItsPriorityAndItsSeverity) {
  const struct {
    Level level;
    const char *shortName, *fullName;
    int priority;
  } cases[] = {
      {Level::trace, "T~", "TRACE", 7},   {Level::debug, "D~", "DEBUG", 7},     {Level::info, "I~", "INFO", 6},
      {Level::notice, "N~", "NOTICE", 5}, {Level::warning, "W~", "WARNING", 4}, {Level::error, "E~", "ERROR", 3},
      {Level::fatal, "F~", "FATAL", 2},
  };
  Level previous = Level::byDefault;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fullName);
    EXPECT_STREQ(loglevel_shortname(c.level), c.shortName);
    EXPECT_STREQ(loglevel_fullname(c.level), c.fullName);
    EXPECT_EQ(loglevel_to_syslog(c.level), c.priority);
    EXPECT_EQ(parseLogLevel(c.shortName), c.level);
    EXPECT_EQ(parseLogLevel(c.fullName), c.level);
    EXPECT_LT(previous, c.level);
    previous = c.level;
  }
  EXPECT_THAT(logged_.lines, IsEmpty());
}

TEST_F(LogTest, InvalidLevelIsLoggedWithTheNameOfTheCalledFunction) {
  for (const Level level : {Level::byDefault, kNotALevel, static_cast<Level>(-1), static_cast<Level>(8)}) {
    logged_.lines.clear();
    EXPECT_STREQ(loglevel_shortname(level), "X~");
    EXPECT_STREQ(loglevel_fullname(level), "<log level>");
    EXPECT_EQ(loglevel_to_syslog(level), 6);
    EXPECT_THAT(logged_.lines, ElementsAre("[ERROR] basiclib BasicLog.cpp loglevel_shortname invalid log level",
                                           "[ERROR] basiclib BasicLog.cpp loglevel_fullname invalid log level",
                                           "[ERROR] basiclib BasicLog.cpp loglevel_to_syslog invalid log level"));
  }
}

TEST_F(LogTest, InvalidLevelIsNotLoggedWhenErrorsAreNotEnabled) {
  setDefaultLevel(Level::fatal);
  EXPECT_STREQ(loglevel_fullname(kNotALevel), "<log level>");
  EXPECT_THAT(logged_.lines, IsEmpty());
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
    Level level;
    bool matches;
    std::vector<std::string_view> texts;
  } cases[] = {
      {Level::trace, true, {"TRACE", "T~"}},
      {Level::debug, true, {"DEBUG", " debug ", "d~"}},
      {Level::info, true, {"INFO", "i~"}},
      {Level::notice, true, {"NOTICE", "N~"}},
      {Level::warning, true, {"WARN", "WARNING", "\tWarning\n", "W~ text"}},
      {Level::error, true, {"ERR", "ERROR", "[error] disk full", "[ERROR]", "error]", "error disk full"}},
      {Level::error, true, {"e~", "  e~"}},
      {Level::fatal, true, {"FATAL", "PANIC", "EMERG", "EMERGENCY", "CRITICAL", "ALERT", "fatal [x", "f~x"}},
      {Level::info, false, {std::string_view(), "", "   ", "[", "e", "verbose", "x~"}},
      {Level::info, false, {"warnings", "warn1", "error:", "error\tdisk", "[[error]", "[ error]", "[e~]"}},
      {Level::info, false, {"crit", "trac"}},
  };
  for (const auto& c : cases) {
    for (const std::string_view text : c.texts) {
      SCOPED_TRACE(text);
      EXPECT_EQ(parseLogLevel(text), c.level);
      Level level = Level::byDefault;
      EXPECT_EQ(parseLogLevel(text, level), c.matches);
      EXPECT_EQ(level, c.level);
    }
  }
}

TEST(ParseLogLevel, NullPointerNamesNoLevel) {
  EXPECT_EQ(parseLogLevel(nullptr), Level::info);
  Level level = Level::fatal;
  EXPECT_FALSE(parseLogLevel(static_cast<const char*>(nullptr), level));
  EXPECT_EQ(level, Level::info);
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

TEST(SecondByteAllows, TheLettersOfNamesAndWhatMayPrecedeANameAreAllowed) {
  const struct {
    Level level;
    std::string letters;
  } cases[] = {{Level::notice, "acceflmnoprw"},
               {Level::warning, "acefLmprW"},
               {Level::error, "acEFlmPr"},
               {Level::fatal, "ACEFLMPR"}};
  for (const auto& c : cases) {
    for (int byte = 0; byte < 256; ++byte) {
      const bool isLetter = byte < 128 && std::any_of(c.letters.begin(), c.letters.end(), [&](char letter) {
                              return std::toupper(letter) == std::toupper(byte);
                            });
      EXPECT_EQ(secondByteAllows(c.level, static_cast<char>(byte)),
                isLetter || byte <= ' ' || byte == 127 || byte == '[' || byte == '~')
          << byte << " " << c.letters;
    }
  }
}

TEST(SecondByteAllows, EverySecondByteIsAllowedForInfoAndBelow) {
  for (const Level level : {Level::byDefault, Level::trace, Level::debug, Level::info}) {
    for (int byte = 0; byte < 256; ++byte) EXPECT_TRUE(secondByteAllows(level, static_cast<char>(byte)));
  }
}

TEST(SecondByteAllows, TheSecondByteOfATextAllowsTheLevelOfTheText) {
  static const std::string parts[] = {"EMERGENCY", "emerg ", "[",  " ", "Critical]", "alert",  "PANIC ", "f~", "W~",
                                      "err",       "warn",   "N~", "x", "\t",        "notice", "\x7f",   "~",  "[["};
  std::mt19937 random(3);
  for (int round = 0; round < 100000; ++round) {
    std::string text;
    for (auto n = random() % 4; n > 0; --n) text += parts[random() % std::size(parts)];
    if (text.size() < 2) continue;
    ASSERT_TRUE(secondByteAllows(parseLogLevel(text), text[1])) << text;
  }
}

// --- Entries

TEST_F(LogTest, EntryCarriesLevelTimeSourceAndLogger) {
  static LogMessage message;
  class Keeper : public LogMessageProcessor {
    void process(std::unique_ptr<const LogMessage>& received) override {
      message = *received;
      received.reset();
    }
  };
  setSyncProcessor(new Keeper);
  const std::int64_t before = TimeUtils::nowMicros();
  { const Entry entry(getLogger("test"), Level::warning, "opened", "FileUtils.cpp", "makeUniqueFile"); }
  EXPECT_EQ(lineOf(message), "[WARNING] test FileUtils.cpp makeUniqueFile opened");
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
  EXPECT_THAT(logged_.lines, ElementsAre("[INFO] test f g all: text=x y = smallest=-9223372036854775808 "
                                         "largest=9223372036854775807 hex=deadbeef small=a yes=true no=false "
                                         "peer=10.0.0.1:8080 odd=:-1 text=again"));
}

TEST_F(LogTest, AddErrnoAddsTheTextAndTheNumberOfKnownAndUnknownErrors) {
  {
    Entry entry(getLogger("test"), Level::info, "failed", "f", "g");
    errno = ENOENT;
    entry.addErrno();
    entry.addErrno(EACCES);
    entry.addErrno(98765);
    entry.addErrno(INT_MIN);
  }
  EXPECT_THAT(logged_.lines, ElementsAre("[INFO] test f g failed: errmsg=No such file or directory errno=2 "
                                         "errmsg=Permission denied errno=13 errmsg=Unknown error 98765 errno=98765 "
                                         "errmsg=Unknown error -2147483648 errno=-2147483648"));
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
  EXPECT_THAT(logged_.lines, ElementsAre("[INFO] test file function message: key=value"));
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
  EXPECT_THAT(logged_.lines, IsEmpty());
}

TEST_F(LogTest, NullPointerCountsAsTheEmptyTextInEveryPartOfAnEntry) {
  const char* const absent = nullptr;
  const struct {
    const char* why;
    const char *text, *file, *function, *key, *value, *expected;
  } cases[] = {
      {"a message", absent, "f", "g", "k", "v", "[INFO] test f g : k=v"},
      {"a file", "t", absent, "g", "k", "v", "[INFO] test  g t: k=v"},
      {"a function", "t", "f", absent, "k", "v", "[INFO] test f  t: k=v"},
      {"a key", "t", "f", "g", absent, "v", "[INFO] test f g t: =v"},
      {"a value", "t", "f", "g", "k", absent, "[INFO] test f g t: k="},
      {"everything", absent, absent, absent, absent, absent, "[INFO] test   : ="},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    logged_.lines.clear();
    {
      Entry entry(getLogger("test"), Level::info, c.text, c.file, c.function);
      entry.add(c.key, c.value);
    }
    EXPECT_THAT(logged_.lines, ElementsAre(c.expected));
  }
  logged_.lines.clear();
  {
    Entry entry(getLogger("test"), Level::info, "t", "f", "g");
    entry.addNumber(absent, 1);
    entry.addHex(absent, 255);
    entry.addBool(absent, true);
    entry.addAddress(absent, absent, 80);
  }
  EXPECT_THAT(logged_.lines, ElementsAre("[INFO] test f g t: =1 =ff =true =:80"));
}

TEST_F(LogTest, NullPointerIsTheNameOfTheAnonymousLoggerAndFindsNoLogger) {
  Logger& logger = getLogger(nullptr);
  EXPECT_EQ(logger.name(), "<anonymous logger>");
  EXPECT_EQ(&getLogger(static_cast<const char*>(nullptr)), &logger);
  EXPECT_EQ(&getLogger(""), &logger);
  EXPECT_EQ(findLogger("<anonymous logger>"), &logger);
  EXPECT_EQ(findLogger(nullptr), nullptr);
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
  EXPECT_THAT(logged_.lines, ElementsAre("[INFO] test f g once"));
}

TEST_F(LogTest, MovedEntryIsSubmittedOnlyByItsNewHandle) {
  {
    Entry entry(getLogger("test"), Level::info, "moved", "f", "g");
    Entry other(std::move(entry));
    EXPECT_TRUE(entry.isEmpty());  // NOLINT(bugprone-use-after-move): tests the moved-from handle
    other.add("by", "other");
  }
  EXPECT_THAT(logged_.lines, ElementsAre("[INFO] test f g moved: by=other"));
}

TEST_F(LogTest, EntryWithDefaultOrInvalidLevelStoresInfo) {
  { const Entry entry(getLogger("test"), Level::byDefault, "default", "f", "g"); }
  { const Entry entry(getLogger("test"), kNotALevel, "invalid", "f", "g"); }
  EXPECT_THAT(logged_.lines, ElementsAre("[INFO] test f g default", "[INFO] test f g invalid"));
}

// --- Renderings

// Runs in the zone UTC.
class Rendering : public LogTest {
 protected:
  Zone zone_{"UTC0"};
};

LogMessage sample(std::string_view text = "opened", const std::vector<LogParameter>& parameters = {}) {
  LogMessage message;
  message.level = Level::warning;
  message.created = 1'709'294'405'000'123;
  message.begin("FileUtils.cpp", "makeUniqueFile", "basiclib", text);
  for (const LogParameter& parameter : parameters) message.add(parameter.key, parameter.value);
  return message;
}

TEST_F(Rendering, HeaderHasLevelAndTimeAndInJsonTheTicksAsANumber) {
  EXPECT_EQ(textHeader(sample()), "[WARNING 2024-03-01 12:00:05.000123]");
  EXPECT_EQ(shortTextHeader(sample()), "[WARNING]");
  EXPECT_EQ(jsonHeader(sample()),
            R"({ "level":"WARNING", "ticks":1709294405000123.000000, "time":"2024-03-01 12:00:05.000123" })");
}

TEST_F(Rendering, TimeUsesTheZoneOffsetOfApril3918) {
  zone_.set("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(textHeader(sample()), "[WARNING 2024-03-01 14:00:05.000123]");
  EXPECT_EQ(jsonHeader(sample()),
            R"({ "level":"WARNING", "ticks":1709301605000123.000000, "time":"2024-03-01 14:00:05.000123" })");
}

TEST_F(Rendering, TimeDoesNotDependOnTimesRenderedBefore) {
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

TEST_F(Rendering, TextBodyListsTheParametersInOrder) {
  EXPECT_EQ(textBody(sample()), "opened") << "no colon without parameters";
  EXPECT_EQ(textBody(sample("opened", {{"path", "/x"}, {"mode", "644"}})), "opened: path=/x mode=644");
  EXPECT_EQ(textBody(sample("opened", {{"a", ""}, {"", "b"}, {"a", "%s"}})), "opened: a= =b a=%s");
  EXPECT_EQ(textBody(sample("", {{"", ""}})), ": =");
}

TEST_F(Rendering, TextLineIsHeaderBlankAndBodyBehindTheExistingText) {
  std::string text = "first\n";
  appendTextLine(text, sample("opened", {{"path", "/x"}}));
  EXPECT_EQ(text, "first\n[WARNING 2024-03-01 12:00:05.000123] opened: path=/x");
}

TEST_F(Rendering, JsonBodyEscapesTheMessageAndKeepsTheLastValueOfAKey) {
  EXPECT_EQ(jsonBody(sample()), R"({ "msg":"opened" })") << "no params without parameters";
  EXPECT_EQ(jsonBody(sample("opened", {{"path", "/x"}, {"mode", "644"}})),
            R"({ "msg":"opened", "params":{ "path":"/x", "mode":"644" } })");
  EXPECT_EQ(jsonBody(sample("say \"hi\"\n\xe9", {{"a", "1"}, {"b", "2"}, {"a", "3"}})),
            R"({ "msg":"say \"hi\"\n?", "params":{ "a":"3", "b":"2" } })");
}

TEST_F(Rendering, JsonBodyOmitsParametersWithAnEmptyKey) {
  EXPECT_EQ(jsonBody(sample("opened", {{"", "1"}, {"b", "2"}, {"", "3"}})),
            R"({ "msg":"opened", "params":{ "b":"2" } })");
}

TEST_F(Rendering, MessageWithAnInvalidLevelIsStillRendered) {
  LogMessage message = sample();
  message.level = kNotALevel;
  EXPECT_EQ(shortTextHeader(message), "[<log level>]");
  EXPECT_THAT(logged_.lines, ElementsAre("[ERROR] basiclib BasicLog.cpp loglevel_fullname invalid log level"));
}

// --- Assertions

volatile std::sig_atomic_t illegalInstructions = 0;

// Handles SIGILL, so that it does not end the program, and counts how often it is raised.
class AssertTest : public LogTest {
 protected:
  AssertTest() : old_(::signal(SIGILL, [](int) { illegalInstructions = illegalInstructions + 1; })) {
    illegalInstructions = 0;
    testing::internal::CaptureStderr();
  }
  ~AssertTest() override {
    ::signal(SIGILL, old_);
    setAssertHandler(nullptr);
  }

 private:
  void (*const old_)(int);
};

TEST_F(AssertTest, FailedAssertionIsPrintedAndLoggedAndRaisesSigill) {
  const std::string format = "%s%n" + std::string(2'000, 'x');
  const struct {
    const char *why, *file;
    int line;
    const char* message;
    bool isLogged;
    std::string text;
  } cases[] = {
      {"the text has all parts", "Some.cpp", 42, "broke", true, "assert error, Some.cpp line 42, \"broke\" \n"},
      {"placeholders replace an unknown file and an unknown message", nullptr, -1, nullptr, true,
       "assert error, <filename unknown> line -1, \"<no message>\" \n"},
      {"the text is cut at 1023 bytes and is no format", "f", 1, format.c_str(), true,
       ("assert error, f line 1, \"" + format).substr(0, 1'023)},
      {"it is not logged when errors are not enabled", "f", 1, "m", false, "assert error, f line 1, \"m\" \n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    setDefaultLevel(c.isLogged ? Level::info : Level::fatal);
    logged_.lines.clear();
    illegalInstructions = 0;
    assertFailure(c.file, c.line, c.message);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.text);
    testing::internal::CaptureStderr();
    std::vector<std::string> expected;
    if (c.isLogged) expected.push_back("[ERROR] basiclib BasicLog.cpp defaultAssertFailure " + c.text);
    EXPECT_EQ(logged_.lines, expected);
    EXPECT_EQ(illegalInstructions, 1);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
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
  EXPECT_THAT(logged_.lines, IsEmpty());
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
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    const SyslogConnection connection(name);
    EXPECT_STREQ(systemLogIdent, "<appname unavailable>");
  }
}

TEST_F(LogTest, InvalidLevelIsSentAtThePriorityOfInfo) {
  systemLog.clear();
  SyslogConnection("x").send(Level::byDefault, "text");
  EXPECT_THAT(systemLog, ElementsAre("openlog 0 8", "syslog 6 %s text", "closelog"));
  EXPECT_THAT(logged_.lines, ElementsAre("[ERROR] basiclib BasicLog.cpp loglevel_to_syslog invalid log level"));
}

}  // namespace
