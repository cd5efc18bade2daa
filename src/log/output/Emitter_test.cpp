// Tests of the emitter interface, sanitising, actors, the factory, and all emitters that write no files.
#include "log/output/Emitter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "log/output/EmergencyEmitter.h"
#include "log/output/EmitterFactory.h"
#include "log/output/LogManager.h"
#include "log/output/RotatedFileEmitter.h"
#include "log/output/SyslogEmitter.h"
#include "log/output/TextEmitters.h"
#include "testing/run/LogLines.h"

namespace {

using namespace BasicLog;
using testing::ElementsAre;
using testing::IsEmpty;
using zuvsvc::ConfigResult;

LogMessage message(std::string_view text = "opened") {
  LogMessage m;
  m.level = Level::warning;
  m.created = 1'709'294'405'000'123;
  m.begin("f", "g", "test", text);
  m.add("path", "/x");
  m.add("mode", "644");
  return m;
}

// Returns what `run` writes to a descriptor.
template <typename Run>
std::string writtenTo(int descriptor, Run run) {
  std::fflush(stdout);
  std::FILE* file = std::tmpfile();
  const int saved = ::dup(descriptor);
  ::dup2(::fileno(file), descriptor);
  run();
  std::fflush(stdout);
  ::dup2(saved, descriptor);
  ::close(saved);
  std::string text(static_cast<std::size_t>(std::ftell((std::fseek(file, 0, SEEK_END), file))), '\0');
  std::rewind(file);
  EXPECT_EQ(std::fread(text.data(), 1, text.size(), file), text.size());
  std::fclose(file);
  return text;
}

// Runs in the zone UTC.
class EmitterTest : public testing::Test {
 protected:
  void SetUp() override {
    ::setenv("TZ", "UTC0", 1);
    ::tzset();
  }
  void TearDown() override {
    ::unsetenv("TZ");
    ::tzset();
  }
};

// --- The interface

class Recording : public Emitter {
 public:
  std::vector<std::string> calls;
  std::string formatHeader(const LogMessage& m) override {
    calls.emplace_back("header");
    return Emitter::formatHeader(m);
  }
  std::string formatBody(const LogMessage& m) override {
    calls.emplace_back("body");
    return Emitter::formatBody(m);
  }
  void write(Level level, const std::string& header, const std::string& body) override {
    calls.push_back(std::to_string(static_cast<int>(level)) + "|" + header + "|" + body);
  }
  const char* name() const override { return "Recording"; }
};

TEST_F(EmitterTest, EmitFormatsHeaderAndBodyAndThenWritesThemWithTheLevel) {
  Recording emitter;
  emitter.emit(message());
  EXPECT_THAT(emitter.calls,
              ElementsAre("header", "body", "5|[WARNING 2024-03-01 12:00:05.000123]|opened: path=/x mode=644"));
}

// --- Sanitising

TEST(SanitisedLine, LineIsHeaderBlankAndBody) { EXPECT_EQ(sanitisedLine("[INFO]", "text"), "[INFO] text"); }

TEST(SanitisedLine, LineOfTwoEmptyTextsIsOneBlank) { EXPECT_EQ(sanitisedLine("", ""), " "); }

TEST(SanitisedLine, EveryByteIsKeptOrReplacedAtEveryPosition) {
  for (int byte = 0; byte < 256; ++byte) {
    const char expected = byte < 0x20 ? ' ' : byte < 0x7f ? static_cast<char>(byte) : '?';
    for (std::size_t length = 1; length < 20; ++length) {
      for (std::size_t at = 0; at < length; ++at) {
        std::string body(length, 'x');
        std::string wanted(length, 'x');
        body[at] = static_cast<char>(byte);
        wanted[at] = expected;
        ASSERT_EQ(sanitisedLine("h", body), "h " + wanted) << "byte " << byte << " at " << at << " of " << length;
      }
    }
  }
}

TEST(SanitisedLine, ReplacingAByteLeavesItsNeighboursUnchanged) {
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      std::string body(8, 'x');
      body[3] = static_cast<char>(first);
      body[4] = static_cast<char>(second);
      const auto wanted = [](int byte) { return byte < 0x20 ? ' ' : byte < 0x7f ? static_cast<char>(byte) : '?'; };
      std::string expected(8, 'x');
      expected[3] = wanted(first);
      expected[4] = wanted(second);
      ASSERT_EQ(sanitisedLine("seven b", body), "seven b " + expected);
    }
  }
}

TEST(SanitisedLine, AppendLeavesTheExistingTextUnchanged) {
  std::string text = "first\n";
  appendSanitisedLine(text, "[a\n]", "b\xe9");
  EXPECT_EQ(text, "first\n[a ] b?");
}

// --- The emitters without files

TEST_F(EmitterTest, StderrEmitterSanitisesTheWholeLine) {
  StderrEmitterActor emitter({"stderr_emitter", "e"});
  EXPECT_EQ(writtenTo(2, [&] { emitter.emit(message("two\nlines \xe9")); }),
            "[WARNING 2024-03-01 12:00:05.000123] two lines ?: path=/x mode=644\n");
  EXPECT_EQ(writtenTo(2, [&] { emitter.write(Level::info, "[h\t]", std::string("a\0b", 3)); }), "[h ] a b\n");
}

TEST_F(EmitterTest, StdoutEmitterSanitisesTheWholeLine) {
  StdoutEmitterActor emitter({"stdout_emitter", "e"});
  EXPECT_EQ(writtenTo(1, [&] { emitter.emit(message("two\nlines \xe9")); }),
            "[WARNING 2024-03-01 12:00:05.000123] two lines ?: path=/x mode=644\n");
  EXPECT_EQ(writtenTo(1, [&] { emitter.write(Level::info, "[h\t]", std::string("a\0b", 3)); }), "[h ] a b\n");
}

TEST_F(EmitterTest, NullEmitterWritesNothing) {
  NullEmitterActor emitter({"null_emitter", "e"});
  EXPECT_EQ(writtenTo(1, [&] { emitter.emit(message()); }), "");
  EXPECT_EQ(writtenTo(2, [&] { emitter.emit(message()); }), "");
}

TEST_F(EmitterTest, ClosedStandardErrorIsIgnored) {
  StderrEmitterActor err({"stderr_emitter", "e"});
  const int saved = ::dup(2);
  ::close(2);
  err.emit(message());
  ::dup2(saved, 2);
  ::close(saved);
  EXPECT_EQ(writtenTo(2, [&] { err.emit(message("still alive")); }),
            "[WARNING 2024-03-01 12:00:05.000123] still alive: path=/x mode=644\n");
}

TEST_F(EmitterTest, ClosedStandardOutputIsIgnored) {
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(1);
    StdoutEmitterActor out({"stdout_emitter", "e"});
    for (int i = 0; i < 1'000; ++i) out.emit(message());  // more than the buffer of the stream holds
    EmergencyEmitter::instance().emit(message());
    std::_Exit(5);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 5);
}

TEST_F(EmitterTest, EveryTypeOfEmitterFormatsTextHeaderAndTextBody) {
  std::vector<std::string> types;
  EmitterFactory().listTypes(types);
  ASSERT_EQ(types.size(), 5U);
  for (const std::string& type : types) {
    SCOPED_TRACE(type);
    const auto actor = EmitterFactory().create({type, "a"});
    auto* emitter = actor->interfaceOf<Emitter>();
    EXPECT_EQ(emitter->formatHeader(message()), "[WARNING 2024-03-01 12:00:05.000123]");
    EXPECT_EQ(emitter->formatBody(message()), "opened: path=/x mode=644");
  }
}

// Counts how often an emitter formats.
template <typename Actor>
class Counting : public Actor {
 public:
  using Actor::Actor;
  int headers = 0;
  int bodies = 0;
  std::string formatHeader(const LogMessage& m) override {
    ++headers;
    return Actor::formatHeader(m);
  }
  std::string formatBody(const LogMessage& m) override {
    ++bodies;
    return Actor::formatBody(m);
  }
};

TEST_F(EmitterTest, DroppedEntriesAreFormattedToo) {
  Counting<NullEmitterActor> null({"null_emitter", "e"});
  null.emit(message());
  EXPECT_EQ(null.headers, 1);
  EXPECT_EQ(null.bodies, 1);
  Counting<SyslogEmitterActor> syslog({"syslog_emitter", "e"});
  syslog.emit(message());
  EXPECT_EQ(syslog.headers, 1);
  EXPECT_EQ(syslog.bodies, 1);
}

TEST_F(EmitterTest, EmergencyEmitterWritesTheBodyAsJson) {
  EXPECT_EQ(writtenTo(1, [&] { EmergencyEmitter::instance().emit(message("two\nlines")); }),
            "[WARNING 2024-03-01 12:00:05.000123] { \"msg\":\"two\\nlines\", "
            "\"params\":{ \"path\":\"/x\", \"mode\":\"644\" } }\n");
}

TEST_F(EmitterTest, EmergencyEmitterDoesNotSanitise) {
  EXPECT_EQ(writtenTo(1, [] { EmergencyEmitter::instance().write(Level::info, "[h\t]", "{\n\xe9}"); }),
            "[h\t] {\n\xe9}\n");
}

TEST_F(EmitterTest, EmergencyEmitterFlushesAfterEachEntry) {
  std::fflush(stdout);
  std::FILE* file = std::tmpfile();
  const int saved = ::dup(1);
  ::dup2(::fileno(file), 1);
  EmergencyEmitter::instance().write(Level::info, "[h]", "{}");
  struct Restore {
    int saved;
    ~Restore() {
      ::dup2(saved, 1);
      ::close(saved);
    }
  } const restore{saved};
  std::fseek(file, 0, SEEK_END);
  EXPECT_EQ(std::ftell(file), 7) << "the line is still in the buffer of the stream";
  std::fclose(file);
}

TEST_F(EmitterTest, ProcessHasOneEmergencyEmitter) {
  EXPECT_EQ(&EmergencyEmitter::instance(), &EmergencyEmitter::instance());
  EXPECT_STREQ(EmergencyEmitter::instance().name(), "EmergencyEmitter");
}

// --- The factory

TEST(EmitterFactory, ListTypesAppendsTheTypesInOrder) {
  std::vector<std::string> names = {"mine"};
  EmitterFactory().listTypes(names);
  EXPECT_THAT(
      names, ElementsAre("mine", "null_emitter", "stdout_emitter", "stderr_emitter", "syslog_emitter", "file_emitter"));
}

TEST(EmitterFactory, CreatesTheActorOfTheRequestedTypeAndName) {
  const struct {
    const char *type, *name;
    bool writesFiles;
  } cases[] = {
      {"null_emitter", "NullEmitter", false},       {"stdout_emitter", "StdoutEmitter", false},
      {"stderr_emitter", "StderrEmitter", false},   {"syslog_emitter", "SyslogEmitter", false},
      {"file_emitter", "RotatedFileEmitter", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.type);
    const std::unique_ptr<zuvsvc::Actor> actor = EmitterFactory().create({c.type, "my actor"});
    ASSERT_NE(actor, nullptr);
    EXPECT_EQ(actor->actorName(), "my actor");
    EXPECT_STREQ(actor->name(), c.name);
    auto* emitter = actor->interfaceOf<Emitter>();
    ASSERT_NE(emitter, nullptr);
    EXPECT_STREQ(emitter->name(), c.name);
    EXPECT_EQ(actor->getInterface("log_emitter"), emitter);
    EXPECT_EQ(actor->interfaceOf<FileEmitterInterface>() != nullptr, c.writesFiles);
    EXPECT_EQ(actor->getInterface("logfile_emitter") != nullptr, c.writesFiles);
    for (const char* unknown : {"", "emitter", "log_emitter ", "LOG_EMITTER", "actor"}) {
      EXPECT_EQ(actor->getInterface(unknown), nullptr) << unknown;
    }
  }
}

TEST(EmitterFactory, UnknownTypeReturnsNull) {
  for (const char* type : {"", "emitter", "NULL_EMITTER", "null_emitter ", " null_emitter", "null_emitte", "file"}) {
    EXPECT_EQ(EmitterFactory().create({type, "x"}), nullptr) << type;
  }
}

// --- Actors

TEST(Actor, ConfigResultsHaveTheirFixedNumbers) {
  EXPECT_EQ(static_cast<int>(ConfigResult::accepted), 1);
  EXPECT_EQ(static_cast<int>(ConfigResult::unknownKey), 3);
}

TEST(Actor, PlainActorHasItsOwnNameAndNoSettingsOrInterfaces) {
  zuvsvc::Actor actor("plain");
  EXPECT_STREQ(actor.name(), "plain");
  EXPECT_EQ(actor.setConfig("key", "text"), ConfigResult::unknownKey);
  EXPECT_EQ(actor.setConfig("key", 1), ConfigResult::unknownKey);
  EXPECT_TRUE(actor.verifyConfig());
  EXPECT_EQ(actor.getInterface("log_emitter"), nullptr);
}

TEST(Actor, EveryEmitterStartsAndStops) {
  std::vector<std::string> types;
  EmitterFactory().listTypes(types);
  for (const std::string& type : types) {
    SCOPED_TRACE(type);
    const auto actor = EmitterFactory().create({type, "a"});
    EXPECT_TRUE(actor->startup());
    EXPECT_EQ(actor->state(), AsyncTask::State::running);
    actor->shutdown();
    EXPECT_EQ(actor->state(), AsyncTask::State::stopping);
    EXPECT_TRUE(actor->isStopped()) << "isStopped finishes the shutdown";
    EXPECT_EQ(actor->state(), AsyncTask::State::stopped);
  }
}

TEST(Actor, StateStepChangesOnlyAStoppingActor) {
  zuvsvc::Actor actor("a");
  actor.stateStep();
  EXPECT_EQ(actor.state(), AsyncTask::State::ready);
  EXPECT_TRUE(actor.startup());
  actor.stateStep();
  EXPECT_EQ(actor.state(), AsyncTask::State::running);
  actor.shutdown();
  actor.stateStep();
  EXPECT_EQ(actor.state(), AsyncTask::State::stopped);
  EXPECT_FALSE(actor.startup());
  actor.stateStep();
  EXPECT_EQ(actor.state(), AsyncTask::State::failed);
}

TEST(Actor, EveryTypeAcceptsOnlyItsOwnKeys) {
  const struct {
    const char* type;
    std::vector<std::string> keys;
  } cases[] = {
      {"null_emitter", {}},
      {"stdout_emitter", {}},
      {"stderr_emitter", {}},
      {"syslog_emitter", {"subsystem", "category"}},
      {"file_emitter", {"interval", "prefix", "dir"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.type);
    const auto actor = EmitterFactory().create({c.type, "a"});
    for (const char* key :
         {"subsystem", "category", "interval", "prefix", "dir", "", "Interval", "dir ", "level", "name"}) {
      const bool isKnown = std::find(c.keys.begin(), c.keys.end(), key) != c.keys.end();
      EXPECT_EQ(actor->setConfig(key, "1 day"), isKnown ? ConfigResult::accepted : ConfigResult::unknownKey) << key;
      EXPECT_EQ(actor->setConfig(key, 86'400), ConfigResult::unknownKey) << key << " with a number";
    }
  }
}

TEST(Actor, EmittersWithoutSettingsPassVerifyConfig) {
  for (const char* type : {"null_emitter", "stdout_emitter", "stderr_emitter"}) {
    EXPECT_TRUE(EmitterFactory().create({type, "a"})->verifyConfig()) << type;
  }
}

// --- The system log emitter

class LoggedEntries : public LogMessageProcessor {
 public:
  explicit LoggedEntries(std::vector<std::string>& to) : to_(to) {}
  void process(std::unique_ptr<const LogMessage>& m) override {
    to_.push_back(lineOf(*m));
    m.reset();
  }

 private:
  std::vector<std::string>& to_;
};

class SyslogEmitterTest : public EmitterTest {
 protected:
  void SetUp() override {
    EmitterTest::SetUp();
    setSyncProcessor(new LoggedEntries(logged_));
  }
  void TearDown() override {
    setSyncProcessor(nullptr);
    EmitterTest::TearDown();
  }
  std::vector<std::string> logged_;
  SyslogEmitterActor emitter_{{"syslog_emitter", "sys one"}};
};

TEST_F(SyslogEmitterTest, OnlyTheFirstOfTwoMissingSettingsIsReported) {
  EXPECT_FALSE(emitter_.verifyConfig());
  EXPECT_THAT(logged_, ElementsAre("[ERROR] basiclib BasicLog.cpp verifyConfig required config field not present: "
                                   "actor=sys one field=subsystem"));
}

TEST_F(SyslogEmitterTest, MissingCategoryIsReported) {
  EXPECT_EQ(emitter_.setConfig("subsystem", "s"), ConfigResult::accepted);
  EXPECT_FALSE(emitter_.verifyConfig());
  EXPECT_THAT(logged_, ElementsAre("[ERROR] basiclib BasicLog.cpp verifyConfig required config field not present: "
                                   "actor=sys one field=category"));
}

TEST_F(SyslogEmitterTest, MissingSubsystemIsReported) {
  EXPECT_EQ(emitter_.setConfig("category", "c"), ConfigResult::accepted);
  EXPECT_FALSE(emitter_.verifyConfig());
  ASSERT_EQ(logged_.size(), 1U);
  EXPECT_THAT(logged_[0], testing::HasSubstr("field=subsystem"));
}

TEST_F(SyslogEmitterTest, WithBothSettingsVerifyConfigSucceedsAndLogsNothing) {
  EXPECT_EQ(emitter_.setConfig("subsystem", "s"), ConfigResult::accepted);
  EXPECT_EQ(emitter_.setConfig("category", "c"), ConfigResult::accepted);
  EXPECT_TRUE(emitter_.verifyConfig());
  EXPECT_THAT(logged_, IsEmpty());
}

TEST_F(SyslogEmitterTest, EmptySettingCountsAsMissing) {
  EXPECT_EQ(emitter_.setConfig("subsystem", "s"), ConfigResult::accepted);
  EXPECT_EQ(emitter_.setConfig("category", "c"), ConfigResult::accepted);
  EXPECT_EQ(emitter_.setConfig("subsystem", ""), ConfigResult::accepted);
  EXPECT_FALSE(emitter_.verifyConfig());
}

TEST_F(SyslogEmitterTest, MissingSettingIsNotLoggedWhenErrorsAreNotEnabled) {
  Logger& logger = getLogger(basiclibLogger);
  const Level before = logger.threshold();
  logger.setThreshold(Level::fatal);
  EXPECT_FALSE(emitter_.verifyConfig());
  logger.setThreshold(before);
  EXPECT_THAT(logged_, IsEmpty());
}

TEST_F(SyslogEmitterTest, UnknownKeyChangesNothing) {
  EXPECT_EQ(emitter_.setConfig("subsystem", "s"), ConfigResult::accepted);
  EXPECT_EQ(emitter_.setConfig("category", "c"), ConfigResult::accepted);
  EXPECT_EQ(emitter_.setConfig("subsystems", ""), ConfigResult::unknownKey);
  EXPECT_EQ(emitter_.setConfig("category", 0), ConfigResult::unknownKey);
  EXPECT_TRUE(emitter_.verifyConfig());
}

TEST_F(SyslogEmitterTest, AbsentTextCountsAsAMissingSetting) {
  EXPECT_EQ(emitter_.setConfig("subsystem", "s"), ConfigResult::accepted);
  EXPECT_EQ(emitter_.setConfig("category", std::string_view()), ConfigResult::accepted);
  EXPECT_EQ(emitter_.setConfig(std::string_view(), "c"), ConfigResult::unknownKey);
  EXPECT_FALSE(emitter_.verifyConfig());
}

TEST_F(SyslogEmitterTest, EntriesAreDropped) {
  EXPECT_EQ(writtenTo(1, [&] { emitter_.emit(message()); }), "");
  EXPECT_EQ(writtenTo(2, [&] { emitter_.emit(message()); }), "");
  EXPECT_THAT(logged_, IsEmpty());
}

}  // namespace
