#include "command/framework/ResultFields.h"

#include <gtest/gtest.h>

#include "command/framework/CommandCore.h"
#include "command/status/AppStatusCodes.h"

namespace {

using Lines = std::vector<std::string>;

Lines linesOf(const ResultParamBase& field) {
  Lines lines;
  StringVectorValueBinder sink(lines);
  field.render(sink);
  return lines;
}

std::string typeOf(const ResultParamBase& field) {
  std::string word = "what was there";
  field.typeWord(word);
  return word;
}

// --- The sink

TEST(ValueBinder, TheBaseClassAcceptsNothing) {
  ValueBinder sink;
  EXPECT_FALSE(sink.takeText("key", "text"));
  EXPECT_FALSE(sink.takeInteger("key", 1));
  EXPECT_FALSE(sink.takeBoolean("key", true));
  EXPECT_FALSE(sink.takeStringList("key", {"a"}));
}

TEST(StringVectorValueBinder, AppendsALineForEachValue) {
  Lines lines = {"what was there"};
  StringVectorValueBinder sink(lines);
  EXPECT_TRUE(sink.takeText("key", "text"));
  EXPECT_TRUE(sink.takeText("empty", ""));
  EXPECT_TRUE(sink.takeText("", "no key"));
  EXPECT_TRUE(sink.takeText("%s", "%n\xff"));
  EXPECT_TRUE(sink.takeText("_text", "an underscore matters to lists alone"));
  EXPECT_TRUE(sink.takeInteger("n", -2147483647 - 1));
  EXPECT_TRUE(sink.takeInteger("n", 0));
  EXPECT_TRUE(sink.takeBoolean("b", true));
  EXPECT_TRUE(sink.takeBoolean("b", false));
  EXPECT_EQ(lines,
            (Lines{"what was there", "key: text", "empty: ", ": no key", "%s: %n\xff",
                   "_text: an underscore matters to lists alone", "n: -2147483648", "n: 0", "b: true", "b: false"}));
}

TEST(StringVectorValueBinder, AListHasAHeadingUnlessItsKeyBeginsWithAnUnderscore) {
  const struct {
    const char* why;
    std::string key;
    Lines list, lines;
  } cases[] = {
      {"a key", "key", {"a", " b "}, {"key:", "a", " b "}},
      {"a key and an empty list", "key", {}, {"key:"}},
      {"a key that begins with an underscore", "_key", {"a", "b"}, {"a", "b"}},
      {"a key that begins with an underscore and an empty list", "_key", {}, {}},
      {"a key that is only an underscore", "_", {"a"}, {"a"}},
      {"an empty key", "", {"a"}, {"a"}},
      {"an underscore inside the key", "k_ey", {"a"}, {"k_ey:", "a"}},
      {"elements are not changed", "_key", {"", "%s%n", "x: y"}, {"", "%s%n", "x: y"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    Lines lines;
    StringVectorValueBinder sink(lines);
    EXPECT_TRUE(sink.takeStringList(c.key, c.list));
    EXPECT_EQ(lines, c.lines);
  }
}

// --- Fields

TEST(StringResult, RendersOnlyIfItWasSet) {
  StringResult field("profile_name");
  EXPECT_EQ(field.name(), "profile_name");
  EXPECT_EQ(typeOf(field), "string");
  EXPECT_EQ(linesOf(field), Lines{});
  field.set("lab");
  EXPECT_EQ(linesOf(field), Lines{"profile_name: lab"});
  field.set("");
  EXPECT_TRUE(field.hasValue());
  EXPECT_EQ(linesOf(field), Lines{"profile_name: "});
  field.set("lab");
  field.clear();
  EXPECT_FALSE(field.hasValue());
  EXPECT_EQ(field.value(), "");
  EXPECT_EQ(linesOf(field), Lines{});
}

TEST(ResultFields, ABooleanAndAListAreAlwaysRenderedAndTheTypeOfAListIsItsName) {
  BoolResult running("running");
  EXPECT_EQ(typeOf(running), "bool");
  EXPECT_EQ(linesOf(running), Lines{"running: false"});
  running.set(true);
  EXPECT_EQ(linesOf(running), Lines{"running: true"});

  StringVectorResultField list("subcommand");
  EXPECT_EQ(typeOf(list), "subcommand");
  EXPECT_EQ(linesOf(list), Lines{"subcommand:"});
  list.list() = {"a", "b"};
  EXPECT_EQ(linesOf(list), (Lines{"subcommand:", "a", "b"}));
  StringVectorResultField bare("_log");
  EXPECT_EQ(typeOf(bare), "_log");
  EXPECT_EQ(linesOf(bare), Lines{});
}

// A sink that records which operation each field calls.
class NotingSink : public ValueBinder {
 public:
  bool takeText(std::string_view key, std::string_view) override { return note("text", key); }
  bool takeInteger(std::string_view key, std::int32_t) override { return note("integer", key); }
  bool takeBoolean(std::string_view key, bool) override { return note("boolean", key); }
  bool takeStringList(std::string_view key, Lines) override { return note("list", key); }
  Lines notes;

 private:
  bool note(const char* kind, std::string_view key) {
    notes.push_back(std::string(kind) + " " + std::string(key));
    return true;
  }
};

TEST(ResultFields, EachFieldPassesItsValueAsItsOwnKind) {
  NotingSink sink;
  StringResult text("t");
  text.set("1");
  text.render(sink);
  BoolResult("b").render(sink);
  StringVectorResultField("_l").render(sink);
  EXPECT_EQ(sink.notes, (Lines{"text t", "boolean b", "list _l"}));
}

// --- Status

class Command : public RavctlCommandInstance {
 public:
  Command() : RavctlCommandInstance("example method") {}
  void execute(StatusCodeResultField& status) override { status.set(result); }
  Status result;
};

// Runs a command that sets this status, and returns the lines of its status.
std::string rendered(const std::vector<const char*>& modeWords, const Status& result) {
  Command command;
  for (const char* word : modeWords) EXPECT_TRUE(command.mode().take(word));
  command.result = result;
  command.run();
  std::string text;
  for (const std::string& line : linesOf(command.status())) text += line + "\n";
  return text;
}

TEST(StatusCodeResultField, RendersAccordingToModeAndOutcome) {
  registerStatusTexts(status::applicationId, appStatusText);
  const Status success;
  const Status withNote = Status::of(status::profileIsActive);
  const Status failure = Status::of(status::profileNotFound);
  const Status detailed = Status::error(status::invalidArgument, "missing parameter: name", "bind_json_args");
  const std::string successText = "status_text: success\nstatus_code: 0x00000001\n";
  const std::string failureText = "status_text: profile not found\nstatus_code: 0x12001001\n";
  EXPECT_EQ(rendered({}, success), "");
  EXPECT_EQ(rendered({"--quiet"}, success), "");
  EXPECT_EQ(rendered({"--text"}, success), "") << "--text changes nothing";
  EXPECT_EQ(rendered({"--verbose"}, success), "method: example method\n" + successText);
  EXPECT_EQ(rendered({"--quiet", "--verbose"}, success), "method: example method\n" + successText);
  EXPECT_EQ(rendered({}, withNote), "");
  EXPECT_EQ(rendered({"--verbose"}, withNote),
            "method: example method\nstatus_text: profile is active\nstatus_code: 0x00001001\n");
  EXPECT_EQ(rendered({"--verbose"}, Status::error(status::success, "a note", "somewhere")),
            "method: example method\nstatus_text: success (a note)\nstatus_code: 0x00000001\n");
  EXPECT_EQ(rendered({}, failure), failureText);
  EXPECT_EQ(rendered({"--json"}, failure), failureText) << "--json changes nothing";
  EXPECT_EQ(rendered({"--quiet"}, failure), "status_code: 0x12001001\n");
  EXPECT_EQ(rendered({"--verbose", "--quiet"}, failure), "status_code: 0x12001001\n");
  EXPECT_EQ(rendered({"--verbose"}, failure), "method: example method\n" + failureText);
  EXPECT_EQ(rendered({}, detailed),
            "status_text: invalid argument (missing parameter: name)\nstatus_code: 0x10000003\n")
      << "details are shown, the context is not";
  EXPECT_EQ(rendered({"--quiet"}, detailed), "status_code: 0x10000003\n");
  EXPECT_EQ(rendered({}, Status::of(status::multipleResults)),
            "status_text: multiple results\nstatus_code: 0x20000001\n")
      << "an informational code is a failure";
  EXPECT_EQ(rendered({"--quiet"}, Status::of(0xabcdef01)), "status_code: 0xabcdef01\n");
  EXPECT_EQ(rendered({}, Status::error(status::openError, "%s%n", "")),
            "status_text: stdlib error: file open (%s%n)\nstatus_code: 0x14000005\n");
}

TEST(StatusCodeResultField, IsAnApplicationErrorUntilItIsSet) {
  const Command command;
  EXPECT_EQ(command.status().name(), "status");
  EXPECT_EQ(typeOf(command.status()), "status");
  EXPECT_STREQ(command.status().method(), "example method");
  EXPECT_EQ(command.status().status().code(), 0x12000001U);
  EXPECT_EQ(linesOf(command.status()), (Lines{"status_text: application error", "status_code: 0x12000001"}));
}

TEST(StatusCodeResultField, SettingACodeKeepsDetailsAndContextAndSettingAStatusReplacesThem) {
  Command command;
  StatusCodeResultField field(command, "method");
  field.set(Status::error(status::openError, "details", "context"));
  field.set(status::readError);
  EXPECT_EQ(field.status().code(), status::readError);
  EXPECT_EQ(field.status().details(), "details");
  EXPECT_EQ(field.status().context(), "context");
  field.set(Status::success());
  EXPECT_EQ(field.status().code(), 1U);
  EXPECT_EQ(field.status().details(), "");
  EXPECT_EQ(field.status().context(), "");
}

}  // namespace
