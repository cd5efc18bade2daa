#include "command/parameters/JsonRequest.h"

#include <gtest/gtest.h>

#include "command/framework/CommandCore.h"
#include "json/JsonParser.h"
#include "json/JsonWriter.h"
#include "testing/faults/AllocationCount.h"
#include "testing/run/Matchers.h"

namespace {

using Words = std::vector<std::string>;

std::string printed(const jsObject* value) {
  std::string text;
  json::write(text, value);
  return text;
}

// --- From the json form

TEST(RequestFromJsonForm, AnObjectBecomesTheRequest) {
  const struct {
    std::string text;
    const char* request;
  } cases[] = {
      {"{}", "{ }"},
      {R"({"method":"list profiles"})", R"({ "method":"list profiles" })"},
      {R"( {"method":"profile details","command_args":["profile","details"],"profile":"lab"} )",
       R"({ "method":"profile details", "command_args":[ "profile", "details" ], "profile":"lab" })"},
      {"{a:1,}", R"({ "a":1 })"},
      {std::string("{\"a\":\"x\0y\"}", 11), R"({ "a":"x\u0000y" })"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const ScopedJson request(requestFromJsonForm({"ravctl", "json", c.text}));
    EXPECT_TRUE(json::isObject(request.get()));
    EXPECT_EQ(printed(request.get()), c.request);
  }
}

TEST(RequestFromJsonForm, AnyOtherTextGivesNoRequest) {
  const struct {
    const char* why;
    std::vector<std::string> texts;
  } cases[] = {
      {"no value", {"", " ", "name", "}"}},
      {"an array", {"[]", R"([{"method":"list profiles"}])"}},
      {"a scalar", {"42", "1.5", "true", "null", R"("a text")", R"("")"}},
      {"an unclosed object", {"{", R"({"a":1)", R"({"a":"open})"}},
      {"a name without a value", {R"({"a")", R"({"a" "b"})"}},
      {"a token after the object", {R"({"a":1} {"b":2})", R"({"a":1} x)", R"({"a":1}#)"}},
      {"a zero byte after the object", {std::string("{}\0", 3), std::string("{}\0{}", 5)}},
      {"200,000 open brackets", {std::string(200'000, '['), std::string(200'000, '{')}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    for (const std::string& text : c.texts) {
      const ScopedJson request(requestFromJsonForm({"ravctl", "json", text}));
      EXPECT_EQ(request.get(), nullptr) << text.substr(0, 40);
    }
  }
}

TEST(RequestFromJsonForm, AValueThatIsNotAnObjectIsFreed) {
  for (const std::string text : {"[]", R"([{"method":"list profiles"},["a",1.5]])"}) {
    SCOPED_TRACE(text);
    const std::ptrdiff_t before = newBlocksInUse();
    {
      const ScopedJson parsed(json::parse(text.c_str()));
      ASSERT_GT(newBlocksInUse(), before) << "the parsed text uses no memory that could be freed";
    }
    EXPECT_EQ(requestFromJsonForm({"ravctl", "json", text}), nullptr);
    EXPECT_EQ(newBlocksInUse(), before);
  }
}

TEST(RequestFromJsonForm, APrefixOfARequestGivesNoRequest) {
  const std::string whole = R"({"method":"profile details","args":["a",{"b":[1,null]}],"profile":"lab"})";
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    const ScopedJson request(requestFromJsonForm({"ravctl", "json", whole.substr(0, length)}));
    EXPECT_EQ(request.get() != nullptr, length == whole.size()) << length;
  }
}

TEST(RequestFromJsonForm, RequiresExactlyThreeWordsAndJsonAsTheSecond) {
  const struct {
    const char* why;
    bool isAccepted;
    std::vector<Words> forms;
  } cases[] = {
      {"the first word may be any text", true, {{"ravctl", "json", "{}"}, {"", "json", "{}"}}},
      {"too few words", false, {{}, {"ravctl"}, {"ravctl", "json"}, {"json", "{}"}}},
      {"too many words", false, {{"ravctl", "json", "{}", ""}, {"ravctl", "json", "{}", "--quiet"}}},
      {"the case of the second word matters", false, {{"ravctl", "JSON", "{}"}, {"ravctl", "Json", "{}"}}},
      {"another second word", false, {{"ravctl", "json ", "{}"}, {"ravctl", "jso", "{}"}, {"ravctl", "", "{}"}}},
      {"another order of the words", false, {{"ravctl", "{}", "json"}, {"json", "ravctl", "{}"}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    for (const Words& words : c.forms) {
      const ScopedJson request(requestFromJsonForm(words));
      EXPECT_EQ(request.get() != nullptr, c.isAccepted) << testing::PrintToString(words);
    }
  }
}

// --- From command words

TEST(RequestFromCommandWords, HoldsTheMethodTheParametersAndAllWords) {
  const struct {
    const char* why;
    Words words;
    const char* request;
  } cases[] = {
      {"a command without parameters",
       {"ravctl", "list", "profiles"},
       R"({ "method":"list profiles", "command_args":[ "list", "profiles" ] })"},
      {"output-mode words become members too",
       {"ravctl", "list", "profiles", "--json"},
       R"({ "method":"list profiles", "--json":"<single-word-command-present>", )"
       R"("command_args":[ "list", "profiles", "--json" ] })"},
      {"a third word without = becomes a single word",
       {"/usr/bin/ravctl", "profile", "details", "lab"},
       R"({ "method":"profile details", "lab":"<single-word-command-present>", )"
       R"("command_args":[ "profile", "details", "lab" ] })"},
      {"parameters",
       {"ravctl", "profile", "create", "lab", "helmsor=h:1", "network=a=b", "invitation="},
       R"({ "method":"profile create", "lab":"<single-word-command-present>", "helmsor":"h:1", "network":"a=b", )"
       R"("invitation":"", )"
       R"("command_args":[ "profile", "create", "lab", "helmsor=h:1", "network=a=b", "invitation=" ] })"},
      {"a repeated key",
       {"ravctl", "a", "b", "x=1", "y=2", "x=3"},
       R"({ "method":"a b", "x":"3", "y":"2", "command_args":[ "a", "b", "x=1", "y=2", "x=3" ] })"},
      {"words without a name appear only in command_args",
       {"ravctl", "a", "b", "", "=x"},
       R"({ "method":"a b", "command_args":[ "a", "b", "", "=x" ] })"},
      {"the two words of the method may be any text",
       {"", "", "%n=%s"},
       R"({ "method":" %n=%s", "command_args":[ "", "%n=%s" ] })"},
      {"a word method= replaces the method",
       {"ravctl", "a", "b", "method=c", "x=1"},
       R"({ "method":"c", "x":"1", "command_args":[ "a", "b", "method=c", "x=1" ] })"},
      {"a word command_args= decides the position of the array",
       {"ravctl", "a", "b", "command_args=c", "x=1"},
       R"({ "method":"a b", "command_args":[ "a", "b", "command_args=c", "x=1" ], "x":"1" })"},
      {"command_name is an ordinary key here",
       {"ravctl", "a", "b", "command_name=c"},
       R"({ "method":"a b", "command_name":"c", "command_args":[ "a", "b", "command_name=c" ] })"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    ScopedJson request;
    const Status made = requestFromCommandWords(request, c.words);
    EXPECT_THAT(made, HasCode(status::success));
    EXPECT_EQ(made.details(), "");
    EXPECT_EQ(made.context(), "");
    EXPECT_EQ(printed(request.get()), c.request);
  }
}

TEST(RequestFromCommandWords, FewerThanThreeWordsWithTheProgramAreAnInvalidCommandAndKeepTheOldRequest) {
  for (const Words& words : {Words{}, {"ravctl"}, {"ravctl", "help"}}) {
    SCOPED_TRACE(testing::PrintToString(words));
    ScopedJson request;
    EXPECT_THAT(requestFromCommandWords(request, words), HasCode(status::invalidCommand));
    EXPECT_EQ(request.get(), nullptr);
    request.reset(json::parse(R"({"old":"x"})"));
    EXPECT_THAT(requestFromCommandWords(request, words), HasCode(status::invalidCommand));
    EXPECT_EQ(printed(request.get()), R"({ "old":"x" })");
    EXPECT_THAT(requestFromCommandWords(request, {"ravctl", "a", "b"}), HasCode(status::success));
    EXPECT_EQ(printed(request.get()), R"({ "method":"a b", "command_args":[ "a", "b" ] })");
  }
}

TEST(RequestFromCommandWords, AcceptsManyWords) {
  Words words = {"ravctl", "a", "b"};
  for (int i = 0; i < 10'000; ++i) words.push_back("key" + std::to_string(i) + "=" + std::to_string(i));
  ScopedJson request;
  EXPECT_THAT(requestFromCommandWords(request, words), HasCode(status::success));
  EXPECT_EQ(json::memberCount(request.get()), 10'002U);
  EXPECT_EQ(json::elementCount(json::member(request.get(), "command_args")), 10'002U);
  EXPECT_EQ(json::textOf(json::member(request.get(), "key9999")), "9999");
}

// --- Binding a request

class Example : public RavctlCommandInstance {
 public:
  Example() : RavctlCommandInstance("profile rename") { takes({&profile, &newName}); }
  void execute(StatusCodeResultField& status) override { status.set(status::success); }
  OptionalProfileParam profile;
  StringParam newName{"new_name", Need::required};
};

TEST(RequestFromCommandWords, BindsAfterMethodAndCommandArgsAreRemoved) {
  ScopedJson request;
  ASSERT_THAT(requestFromCommandWords(request, {"ravctl", "profile", "rename", "profile=lab", "new_name=x"}),
              HasCode(status::success));
  Example command;
  EXPECT_EQ(bind_json_args(command, request.get()).details(), "disregarding unused input: method");
  json::setMember(request.get(), "method", nullptr);
  // The removal has moved the last member to the front.
  EXPECT_EQ(bind_json_args(command, request.get()).details(), "disregarding unused input: command_args");
  json::setMember(request.get(), "command_args", nullptr);
  EXPECT_THAT(bind_json_args(command, request.get()), HasCode(status::success));
  EXPECT_EQ(command.profile.value(), "lab");
  EXPECT_EQ(command.newName.value(), "x");
}

}  // namespace
