// Tests of the emitter interface, sanitising, actors, the factory, and all emitters that write no files.
#include "log/output/Emitter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "log/output/EmergencyEmitter.h"
#include "log/output/EmitterFactory.h"
#include "log/output/LogManager.h"
#include "log/output/RotatedFileEmitter.h"
#include "log/output/SyslogEmitter.h"
#include "log/output/TextEmitters.h"
#include "testing/run/LogLines.h"
#include "testing/run/Zone.h"

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

struct Written {
  std::string out, err;
};

// Returns what `run` writes to standard output and to standard error.
template <typename Run>
Written writtenBy(Run run) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  run();
  return {testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

// Runs `body` in a child process, which then ends without flushing its streams. Returns true if it came to that.
template <typename Body>
bool endsNormally(Body body) {
  const pid_t child = ::fork();
  if (child == 0) {
    body();
    std::_Exit(5);
  }
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 5;
}

std::vector<std::string> allTypes() {
  std::vector<std::string> types;
  EmitterFactory().listTypes(types);
  return types;
}

// Runs in the zone UTC.
class EmitterTest : public testing::Test {
  const Zone zone_{"UTC0"};
};

// --- The interface

template <typename Actor>
class Recording : public Actor {
 public:
  using Actor::Actor;
  std::vector<std::string> calls;
  std::string formatHeader(const LogMessage& m) override {
    calls.emplace_back("header");
    return Actor::formatHeader(m);
  }
  std::string formatBody(const LogMessage& m) override {
    calls.emplace_back("body");
    return Actor::formatBody(m);
  }
  void write(Level level, const std::string& header, const std::string& body) override {
    calls.push_back(std::to_string(static_cast<int>(level)) + "|" + header + "|" + body);
    Actor::write(level, header, body);
  }
};

TEST_F(EmitterTest, EmitFormatsHeaderAndBodyAndThenWritesThemEvenIfTheEntryIsDropped) {
  Recording<NullEmitterActor> null({"null_emitter", "e"});
  null.emit(message());
  EXPECT_THAT(null.calls,
              ElementsAre("header", "body", "5|[WARNING 2024-03-01 12:00:05.000123]|opened: path=/x mode=644"));
  Recording<SyslogEmitterActor> syslog({"syslog_emitter", "e"});
  syslog.emit(message());
  EXPECT_EQ(syslog.calls, null.calls);
}

// --- Sanitising

char sanitised(int byte) { return byte < 0x20 ? ' ' : byte < 0x7f ? static_cast<char>(byte) : '?'; }

TEST(SanitisedLine, LineIsHeaderBlankAndBody) {
  EXPECT_EQ(sanitisedLine("[INFO]", "text"), "[INFO] text");
  EXPECT_EQ(sanitisedLine("", ""), " ");
}

TEST(SanitisedLine, EveryByteIsKeptOrReplacedAtEveryPosition) {
  for (int byte = 0; byte < 256; ++byte) {
    for (std::size_t length = 1; length < 20; ++length) {
      for (std::size_t at = 0; at < length; ++at) {
        std::string body(length, 'x');
        std::string wanted(length, 'x');
        body[at] = static_cast<char>(byte);
        wanted[at] = sanitised(byte);
        ASSERT_EQ(sanitisedLine("h", body), "h " + wanted) << "byte " << byte << " at " << at << " of " << length;
      }
    }
  }
}

TEST(SanitisedLine, ReplacingAByteLeavesItsNeighboursUnchanged) {
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      const std::string body = {'x', 'x', 'x', static_cast<char>(first), static_cast<char>(second), 'x', 'x', 'x'};
      const std::string wanted = {'x', 'x', 'x', sanitised(first), sanitised(second), 'x', 'x', 'x'};
      ASSERT_EQ(sanitisedLine("seven b", body), "seven b " + wanted);
    }
  }
}

TEST(SanitisedLine, SanitiseReplacesEveryByteOfTheText) {
  std::string text = "first\n[a\n] b\xe9";
  sanitise(text);
  EXPECT_EQ(text, "first [a ] b?");
}

// --- The emitters without files

TEST_F(EmitterTest, EmittersOfStandardStreamsWriteSanitisedLinesAndOthersWriteNothing) {
  const std::string lines = "[WARNING 2024-03-01 12:00:05.000123] two lines ?: path=/x mode=644\n[h ] a b\n";
  const struct {
    const char* type;
    std::string output, error;
  } cases[] = {
      {"null_emitter", "", ""},
      {"syslog_emitter", "", ""},
      {"stdout_emitter", lines, ""},
      {"stderr_emitter", "", lines},
  };
  const LoggedLines logged;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.type);
    const auto actor = EmitterFactory().create({c.type, "e"});
    const auto run = [&] {
      auto* emitter = actor->interfaceOf<Emitter>();
      emitter->emit(message("two\nlines \xe9"));
      emitter->write(Level::info, "[h\t]", std::string("a\0b", 3));
    };
    const Written written = writtenBy(run);
    EXPECT_EQ(written.out, c.output);
    EXPECT_EQ(written.err, c.error);
  }
  EXPECT_THAT(logged.lines, IsEmpty());
}

TEST_F(EmitterTest, ClosedStandardErrorIsIgnored) {
  const LoggedLines logged;
  StderrEmitterActor err({"stderr_emitter", "e"});
  const int saved = ::dup(2);
  ::close(2);
  err.emit(message());
  ::dup2(saved, 2);
  ::close(saved);
  EXPECT_EQ(writtenBy([&] { err.emit(message("still alive")); }).err,
            "[WARNING 2024-03-01 12:00:05.000123] still alive: path=/x mode=644\n");
  EXPECT_THAT(logged.lines, IsEmpty());
}

TEST_F(EmitterTest, ClosedStandardOutputIsIgnored) {
  EXPECT_TRUE(endsNormally([] {
    ::close(1);
    StdoutEmitterActor out({"stdout_emitter", "e"});
    for (int i = 0; i < 1'000; ++i) out.emit(message());  // more than the buffer of the stream holds
    EmergencyEmitter::instance().emit(message());
  }));
}

TEST_F(EmitterTest, EveryTypeOfEmitterFormatsTextHeaderAndTextBody) {
  ASSERT_EQ(allTypes().size(), 5U);
  for (const std::string& type : allTypes()) {
    SCOPED_TRACE(type);
    const auto actor = EmitterFactory().create({type, "a"});
    auto* emitter = actor->interfaceOf<Emitter>();
    EXPECT_EQ(emitter->formatHeader(message()), "[WARNING 2024-03-01 12:00:05.000123]");
    EXPECT_EQ(emitter->formatBody(message()), "opened: path=/x mode=644");
  }
}

TEST_F(EmitterTest, EmergencyEmitterWritesJsonAndDoesNotSanitise) {
  EXPECT_EQ(writtenBy([&] { EmergencyEmitter::instance().emit(message("two\nlines")); }).out,
            "[WARNING 2024-03-01 12:00:05.000123] { \"msg\":\"two\\nlines\", "
            "\"params\":{ \"path\":\"/x\", \"mode\":\"644\" } }\n");
  EXPECT_EQ(writtenBy([] { EmergencyEmitter::instance().write(Level::info, "[h\t]", "{\n\xe9}"); }).out,
            "[h\t] {\n\xe9}\n");
}

TEST_F(EmitterTest, EmergencyEmitterFlushesAfterEachEntry) {
  const auto writeOne = [] { EmergencyEmitter::instance().write(Level::info, "[h]", "{}"); };
  EXPECT_EQ(writtenBy([&] { EXPECT_TRUE(endsNormally(writeOne)); }).out, "[h] {}\n");
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

TEST(EmitterFactory, ActorOfEachTypeHasItsNamesInterfacesAndSettings) {
  const struct {
    const char *type, *name;
    bool writesFiles;
    std::vector<std::string> keys;
  } cases[] = {
      {"null_emitter", "NullEmitter", false, {}},
      {"stdout_emitter", "StdoutEmitter", false, {}},
      {"stderr_emitter", "StderrEmitter", false, {}},
      {"syslog_emitter", "SyslogEmitter", false, {"subsystem", "category"}},
      {"file_emitter", "RotatedFileEmitter", true, {"interval", "prefix", "dir"}},
  };
  const LoggedLines logged;
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
    EXPECT_EQ(actor->verifyConfig(), c.keys.empty()) << "without any setting";
    for (const char* key :
         {"subsystem", "category", "interval", "prefix", "dir", "", "Interval", "dir ", "level", "name"}) {
      const bool isKnown = std::find(c.keys.begin(), c.keys.end(), key) != c.keys.end();
      EXPECT_EQ(actor->setConfig(key, "1 day"), isKnown ? ConfigResult::accepted : ConfigResult::unknownKey) << key;
      EXPECT_EQ(actor->setConfig(key, 86'400), ConfigResult::unknownKey) << key << " with a number";
    }
  }
}

TEST(EmitterFactory, NullKeyIsUnknownAndANullTextIsTheEmptyText) {
  const char* const absent = nullptr;
  const LoggedLines logged;
  for (const std::string& type : allTypes()) {
    SCOPED_TRACE(type);
    const auto actor = EmitterFactory().create({type, "a"});
    const std::vector<const char*> keys = type == "syslog_emitter" ? std::vector<const char*>{"subsystem", "category"}
                                          : type == "file_emitter" ? std::vector<const char*>{"interval"}
                                                                   : std::vector<const char*>{};
    for (const char* key : keys) EXPECT_EQ(actor->setConfig(key, "1 day"), ConfigResult::accepted);
    EXPECT_TRUE(actor->verifyConfig());
    EXPECT_EQ(actor->setConfig(absent, "1 day"), ConfigResult::unknownKey);
    EXPECT_EQ(actor->setConfig(absent, absent), ConfigResult::unknownKey);
    EXPECT_EQ(actor->setConfig(absent, 1), ConfigResult::unknownKey);
    EXPECT_TRUE(actor->verifyConfig());
    for (const char* key : keys) {
      EXPECT_EQ(actor->setConfig(key, absent), ConfigResult::accepted);
      EXPECT_FALSE(actor->verifyConfig()) << key;
      EXPECT_EQ(actor->setConfig(key, "1 day"), ConfigResult::accepted);
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

TEST(Actor, EveryEmitterStartsAtOnceAndIsStoppedFinishesItsShutdown) {
  for (const std::string& type : allTypes()) {
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

// --- The system log emitter

constexpr char kMissing[] =
    "[ERROR] basiclib BasicLog.cpp verifyConfig required config field not present: actor=sys one field=";

class SyslogEmitterTest : public EmitterTest {
 protected:
  LoggedLines logged_;
  SyslogEmitterActor emitter_{{"syslog_emitter", "sys one"}};
};

TEST_F(SyslogEmitterTest, FirstMissingSettingIsReported) {
  const struct {
    const char* why;
    std::vector<std::pair<const char*, std::string_view>> settings;
    const char* missing;
  } cases[] = {
      {"only the first of two missing settings is reported", {}, "subsystem"},
      {"a missing category is reported", {{"subsystem", "s"}}, "category"},
      {"a missing subsystem is reported", {{"category", "c"}}, "subsystem"},
      {"both settings are present", {{"subsystem", "s"}, {"category", "c"}}, nullptr},
      {"an empty text is missing", {{"subsystem", "s"}, {"category", "c"}, {"subsystem", ""}}, "subsystem"},
      {"an absent text is missing", {{"subsystem", "s"}, {"category", std::string_view()}}, "category"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    logged_.lines.clear();
    SyslogEmitterActor emitter({"syslog_emitter", "sys one"});
    for (const auto& [key, text] : c.settings) EXPECT_EQ(emitter.setConfig(key, text), ConfigResult::accepted);
    EXPECT_EQ(emitter.verifyConfig(), c.missing == nullptr);
    std::vector<std::string> expected;
    if (c.missing != nullptr) expected.push_back(std::string(kMissing) + c.missing);
    EXPECT_EQ(logged_.lines, expected);
  }
}

TEST_F(SyslogEmitterTest, MissingSettingIsNotLoggedWhenErrorsAreNotEnabled) {
  Logger& logger = getLogger(basiclibLogger);
  const Level before = logger.threshold();
  logger.setThreshold(Level::fatal);
  EXPECT_FALSE(emitter_.verifyConfig());
  logger.setThreshold(before);
  EXPECT_THAT(logged_.lines, IsEmpty());
}

TEST_F(SyslogEmitterTest, UnknownKeyIsRefusedAndTheSettingsStayComplete) {
  EXPECT_EQ(emitter_.setConfig("subsystem", "s"), ConfigResult::accepted);
  EXPECT_EQ(emitter_.setConfig("category", "c"), ConfigResult::accepted);
  EXPECT_EQ(emitter_.setConfig("subsystems", ""), ConfigResult::unknownKey);
  EXPECT_EQ(emitter_.setConfig("category", 0), ConfigResult::unknownKey);
  EXPECT_EQ(emitter_.setConfig(std::string_view(), ""), ConfigResult::unknownKey);
  EXPECT_TRUE(emitter_.verifyConfig());
}

// --- When and where entries are written

TEST_F(EmitterTest, EmitterWritesInEveryLifecycleState) {
  StderrEmitterActor emitter({"stderr_emitter", "e"});
  const auto expectToWriteIn = [&](AsyncTask::State state) {
    EXPECT_EQ(emitter.state(), state);
    EXPECT_EQ(writtenBy([&] { emitter.write(Level::info, "[h]", "b"); }).err, "[h] b\n");
    EXPECT_EQ(emitter.state(), state);
  };
  expectToWriteIn(AsyncTask::State::ready);
  EXPECT_TRUE(emitter.startup());
  expectToWriteIn(AsyncTask::State::running);
  emitter.shutdown();
  expectToWriteIn(AsyncTask::State::stopping);
  emitter.stateStep();
  expectToWriteIn(AsyncTask::State::stopped);
  EXPECT_FALSE(emitter.startup());
  expectToWriteIn(AsyncTask::State::failed);
}

// The child ends without flushing its streams.
TEST_F(EmitterTest, LineOfStandardErrorIsWrittenAtOnceAndLineOfStandardOutputWhenItsStreamIsFlushed) {
  const auto writtenByAChild = [](Emitter& emitter, bool flushes) {
    return writtenBy([&] {
      EXPECT_TRUE(endsNormally([&] {
        emitter.write(Level::info, "[h]", "b");
        if (flushes) (void)std::fflush(stdout);
      }));
    });
  };
  StderrEmitterActor err({"stderr_emitter", "e"});
  StdoutEmitterActor out({"stdout_emitter", "e"});
  EXPECT_EQ(writtenByAChild(err, false).err, "[h] b\n");
  EXPECT_EQ(writtenByAChild(out, false).out, "");
  EXPECT_EQ(writtenByAChild(out, true).out, "[h] b\n");
}

// Runs in its own process, in which the emitter is not made before the handler is registered.
TEST(EmergencyEmitterDeathTest, EmergencyEmitterWritesAlsoInTheLastExitHandler) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto run = [] {
    const auto writeAtExit = [] {
      ::dup2(2, 1);  // the test reads standard error
      EmergencyEmitter::instance().emit(message());
    };
    if (std::atexit(writeAtExit) != 0) std::_Exit(1);
    (void)EmergencyEmitter::instance();
    std::exit(5);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(5),
              testing::HasSubstr(R"(] { "msg":"opened", "params":{ "path":"/x", "mode":"644" } })"));
}

}  // namespace
