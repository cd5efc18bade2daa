#include "json/JsonParser.h"

#include <gtest/gtest.h>

#include "json/JsonWriter.h"

using namespace std::string_literals;

namespace {

// The parsed document as the writer writes it, or "none".
std::string parsed(std::string_view text) {
  ScopedJson document(json::parse(text.data(), static_cast<std::ptrdiff_t>(text.size())));
  std::string out;
  return document ? json::write(out, document.get()) : "none";
}

// Records the messages passed to onError, each followed by a bar.
class ErrorRecorder final : public parserinfo {
 public:
  void onError(std::string_view message) override {
    messages += std::string(message) + "|";
    parserinfo::onError(message);
  }
  std::string messages;
};

std::string messagesOf(std::string_view text) {
  ErrorRecorder recorder;
  EXPECT_TRUE(json::scan(recorder, text.data(), static_cast<std::ptrdiff_t>(text.size())));
  return recorder.messages;
}

struct Case {
  const char* why;
  std::string text;
  std::string expected;
};

TEST(JsonParser, AcceptsEachFormOfDocument) {
  const Case cases[] = {
      {"an empty object", "{}", "{ }"},
      {"an empty array", "[]", "[ ]"},
      {"a number between spaces", " \t42\r\n", "42"},
      {"a word", "true", "true"},
      {"null", "null", "null"},
      {"a string", "\"lab\"", "\"lab\""},
      {"an empty string", "\"\"", "\"\""},
      {"an array", "[1,\"a\",null,true,false,[],{}]", "[ 1, \"a\", null, true, false, [ ], { } ]"},
      {"an object", "{\"a\":1,\"b\":[2],\"c\":{\"d\":3}}", "{ \"a\":1, \"b\":[ 2 ], \"c\":{ \"d\":3 } }"},
      {"bare names", "{a:1,b.c_d:2}", "{ \"a\":1, \"b.c_d\":2 }"},
      {"a bare keyword is not accepted as a name", "{null:1}", "none"},
      {"a quoted keyword is accepted as a name", "{\"null\":1}", "{ \"null\":1 }"},
      {"a trailing comma in an array", "[1,2,]", "[ 1, 2 ]"},
      {"a trailing comma in an object", "{\"a\":1,}", "{ \"a\":1 }"},
      {"a name without its value is dropped", "{\"b\"}", "{ }"},
      {"a name with a colon but no value is dropped", "{\"b\":}", "{ }"},
      {"a name with a colon but no value does not reach the outer object", "{\"x\":{\"b\":}}", "{ \"x\":{ } }"},
      {"a name without its value does not reach the outer object", "{\"x\":{\"b\"}}", "{ \"x\":{ } }"},
      {"a name without its value does not reach the outer array", "[{\"b\":}]", "[ { } ]"},
      {"members before a dropped name are kept", "{\"a\":1,\"b\":}", "{ \"a\":1 }"},
      {"members may follow an object with a dropped name", "{\"x\":{\"b\":},\"y\":1}", "{ \"x\":{ }, \"y\":1 }"},
      {"a repeated name keeps its position and takes the last value", "{\"a\":1,\"b\":0,\"a\":2}",
       "{ \"a\":2, \"b\":0 }"},
      {"a repeated name takes the last container", "{\"a\":[1],\"a\":{\"b\":2}}", "{ \"a\":{ \"b\":2 } }"},
      {"null does not remove a member", "{\"a\":1,\"a\":null}", "{ \"a\":null }"},
      {"an array under an empty name is dropped", "{\"\":[1,[2]]}", "{ }"},
      {"an object under an empty name is dropped", "{\"\":{\"a\":{\"\":[]}},\"b\":1}", "{ \"b\":1 }"},
      {"escapes", R"(["\u00e9\n\\"])", "[ \"?00e9\\n\\\" ]"},
      {"a name may be escaped", R"({"a\tb":1})", "{ \"a\tb\":1 }"},
      {"a name may hold a zero byte", "{\"a\0b\":1}"s, "{ \"a\0b\":1 }"s},
      {"a colon belongs to the number", "12:3", "12"},
      {"a string may hold a zero byte", "\"a\0b\""s, "\"a\\u0000b\""},
      {"a number sign is an ordinary byte in a string", "[\"#\"]", "[ \"#\" ]"},
      {"a number sign belongs to the number", "[1#2]", "[ 1 ]"},
      {"nested containers", "[[[{\"a\":[[]]}]]]", "[ [ [ { \"a\":[ [ ] ] } ] ] ]"},
      {"an array between members", "{\"a\":[{\"b\":1},{\"b\":2}],\"c\":3}",
       "{ \"a\":[ { \"b\":1 }, { \"b\":2 } ], \"c\":3 }"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(parsed(c.text), c.expected);
    if (c.expected != "none") {
      EXPECT_EQ(messagesOf(c.text), "");
    }
  }
}

TEST(JsonParser, ReportsEachErrorWithItsMessage) {
  const struct {
    const char* why;
    std::vector<const char*> texts;
    const char* messages;
  } cases[] = {
      {"text that ends too early is no error", {"{\"a\":\"b", "[1", "{\"a\":1", " \n"}, ""},
      {"an opening bracket after a number belongs to the number", {"[1["}, ""},
      {"two values in an array", {"[1 2]"}, "onValue: wrong state|onRightBracket: no open array|"},
      {"a value after the document", {"1 2"}, "onValue: wrong state|"},
      {"an object after the document", {"{} {}"}, "onLeftCurly: wrong state|onRightCurly: no open object|"},
      {"an array after the document", {"[] []"}, "onLeftBracket: wrong state|onRightBracket: no open array|"},
      {"no colon", {"{\"a\" \"b\"}"}, "onValue: wrong state|onRightCurly: no open object|"},
      {"a name where no name may stand", {"{\"a\" b", "abc", "{\"a\":abc"}, "onName, wrong state|"},
      {"a scalar as a name", {"{1", "{true"}, "onValue: wrong state|"},
      {"an array where no array may stand", {"{[", "{\"a\"[", "[[]["}, "onLeftBracket: wrong state|"},
      {"an object where no object may stand", {"{{", "{\"a\"{"}, "onLeftCurly: wrong state|"},
      {"a comma where no comma may stand",
       {",", "[,", "{,", "[1,,", "{\"a\",", "{\"a\":,", "1,"},
       "onComma: wrong state|"},
      {"a colon where no colon may stand", {":", "[:", "{:", "{\"a\"::", "{\"a\":\"b\":"}, "onColon: wrong state|"},
      {"a closing square bracket with no open array", {"]", "{]", "{\"a\":]"}, "onRightBracket: no open array|"},
      {"a closing curly bracket with no open object", {"}", "1 }", "[] }", "[}"}, "onRightCurly: no open object|"},
      {"a scalar under an empty name",
       {"{\"\":1", "{\"\":\"a\"", "{\"\":null"},
       "onValue: no available name for field|"},
      {"a number sign before the document", {"#1"}, "scanner error|onValue: wrong state|"},
      {"a number sign after the document", {"{}#"}, "scanner error|"},
      {"a number sign in an array", {"[#]"}, "scanner error|onRightBracket: no open array|"},
      {"after an error each comma is another error",
       {"#,,"},
       "scanner error|onComma: wrong state|onComma: wrong state|"},
      {"after an error each token is another error",
       {"#[{]},:1\"a\" null true x"},
       "scanner error|onLeftBracket: wrong state|onLeftCurly: wrong state|onRightBracket: no open array|"
       "onRightCurly: no open object|onComma: wrong state|onColon: wrong state|onValue: wrong state|"
       "onValue: wrong state|onValue: wrong state|onName, wrong state|"},
      {"after an error closing brackets do not complete the document",
       {"[{\"a\":[#]}]"},
       "scanner error|onRightBracket: no open array|onRightCurly: no open object|onRightBracket: no open array|"},
      {"after an error an element does not complete the document",
       {"[# 1]"},
       "scanner error|onValue: wrong state|onRightBracket: no open array|"},
      {"after an error a member does not complete the document",
       {"{\"a\"#:1}"},
       "scanner error|onColon: wrong state|onValue: wrong state|onRightCurly: no open object|"},
  };
  for (const auto& c : cases) {
    for (const char* text : c.texts) {
      SCOPED_TRACE(c.why + std::string(": ") + text);
      EXPECT_EQ(messagesOf(text), c.messages);
      EXPECT_EQ(parsed(text), "none");
    }
  }
}

TEST(JsonParser, NullAndEmptyTextsParseToNull) {
  for (jsObject* (*parse)(const char*, std::ptrdiff_t) : {json::parse, json::parseSequence}) {
    EXPECT_EQ(parse(nullptr, -1), nullptr);
    EXPECT_EQ(parse(nullptr, 4), nullptr);
    EXPECT_EQ(parse("", -1), nullptr);
    EXPECT_EQ(parse("{}", 0), nullptr);
  }
}

TEST(JsonParser, TextWithoutALengthEndsAtItsZeroByte) {
  ScopedJson document(json::parse("[1]\0]"));
  EXPECT_EQ(json::elementCount(document.get()), 1u);
  ScopedJson objects(json::parseSequence("{}{}\0{}"));
  EXPECT_EQ(json::elementCount(objects.get()), 2u);
}

TEST(JsonParser, ScalarsThatHaveASharedValueAreParsedToIt) {
  EXPECT_EQ(json::parse("true"), json::makeBoolean(true));
  EXPECT_EQ(json::parse("false"), json::makeBoolean(false));
  EXPECT_EQ(json::parse("null"), json::makeNull());
  EXPECT_EQ(json::parse("\"\""), json::makeString(""));
  EXPECT_EQ(json::parse("-1"), json::makeNumber(-1));
  EXPECT_EQ(json::parse("0.0"), json::makeNumber(0));
  EXPECT_EQ(json::parse("2"), json::makeNumber(2));
}

TEST(JsonParser, StatesHaveFixedNumbers) {
  using State = parserinfo::State;
  const State states[] = {State::finished,    State::value, State::afterElement,
                          State::afterMember, State::name,  State::afterName};
  int number = 0;
  for (const State state : states) EXPECT_EQ(static_cast<int>(state), number++);
}

TEST(JsonParser, StateFollowsTheTokens) {
  using State = parserinfo::State;
  struct Step {
    const char* token;
    void (*receive)(parserinfo&);
    State after;
  };
  const Step steps[] = {
      {"{", [](parserinfo& p) { p.onLeftCurly(); }, State::name},
      {"\"a\"", [](parserinfo& p) { p.onString("a"); }, State::afterName},
      {":", [](parserinfo& p) { p.onColon(); }, State::value},
      {"[", [](parserinfo& p) { p.onLeftBracket(); }, State::value},
      {"5", [](parserinfo& p) { p.onNumber(5); }, State::afterElement},
      {",", [](parserinfo& p) { p.onComma(); }, State::value},
      {"]", [](parserinfo& p) { p.onRightBracket(); }, State::afterMember},
      {", after a member", [](parserinfo& p) { p.onComma(); }, State::name},
      {"b", [](parserinfo& p) { p.onName("b"); }, State::afterName},
      {"}", [](parserinfo& p) { p.onRightCurly(); }, State::finished},
  };
  parserinfo parser;
  EXPECT_EQ(parser.state(), State::value);
  for (const Step& step : steps) {
    SCOPED_TRACE(step.token);
    EXPECT_EQ(parser.takeRoot(), nullptr) << "the document is not complete yet";
    step.receive(parser);
    EXPECT_EQ(parser.state(), step.after);
  }
  ScopedJson root(parser.takeRoot());
  std::string text;
  EXPECT_EQ(json::write(text, root.get()), "{ \"a\":[ 5 ] }");
  EXPECT_EQ(parser.takeRoot(), nullptr) << "the caller has taken the document already";
}

TEST(JsonParser, ErrorReleasesAFinishedDocumentToo) {
  parserinfo parser;
  parser.onNumber(7);
  parser.onError("from outside");
  EXPECT_EQ(parser.state(), parserinfo::State::finished);
  EXPECT_EQ(parser.takeRoot(), nullptr);
  parser.onNumber(7);
  EXPECT_EQ(parser.takeRoot(), nullptr);
}

TEST(JsonParser, NoPrefixOfADocumentIsADocument) {
  const std::string documents[] = {
      R"({"a":[1,2.5,{"b":null}],"c":{"d":"e\n","":[7,[8]],f:true},"a":[false,"x"]})",
      R"([[[],{}],"text",{"k":{"k":{"k":[]}}},-1e5,""])",
      R"("a string \" with \\ escapes")",
  };
  for (const std::string& document : documents) {
    EXPECT_NE(parsed(document), "none");
    for (std::size_t length = 0; length < document.size(); ++length) {
      EXPECT_EQ(parsed(document.substr(0, length)), "none") << document.substr(0, length);
    }
  }
}

TEST(JsonParser, ParsesAndWritesDeeplyNestedTexts) {
  std::string open;
  std::string close;
  std::string written;
  for (int level = 0; level < 100'000; ++level) {
    open += "{a:[";
    close += "]}";
    written += "{ \"a\":[ ";
  }
  written += "] }";
  for (int level = 1; level < 100'000; ++level) written += " ] }";
  EXPECT_EQ(parsed(open + close), written);
  EXPECT_EQ(parsed(open), "none");
  EXPECT_EQ(parsed(open + "}"), "none");
  EXPECT_EQ(parsed(std::string(200'000, '[')), "none");
}

TEST(JsonParser, RepeatedNamesKeepTheFirstPositionAndTheLastValue) {
  std::string text = "{";
  for (unsigned at = 0; at < 1000; ++at) text += "m" + std::string(at % 7, 'x') + ":" + std::to_string(at) + ",";
  text += "}";
  EXPECT_EQ(parsed(text),
            "{ \"m\":994, \"mx\":995, \"mxx\":996, \"mxxx\":997, \"mxxxx\":998, \"mxxxxx\":999, \"mxxxxxx\":993 }");
}

// --- Sequences

std::string sequence(std::string_view text) {
  ScopedJson objects(json::parseSequence(text.data(), static_cast<std::ptrdiff_t>(text.size())));
  std::string out;
  return objects ? json::write(out, objects.get()) : "none";
}

TEST(JsonSequence, CollectsTheTopLevelObjects) {
  const Case cases[] = {
      {"one after another", "{\"a\":1} {\"b\":[{}]}{}", "[ { \"a\":1 }, { \"b\":[ { } ] }, { } ]"},
      {"one object", "{\"a\":1}", "[ { \"a\":1 } ]"},
      {"only whitespace", " ", "[ ]"},
      {"an object left open is dropped", "{\"a\":1}{\"b\":", "[ { \"a\":1 } ]"},
      {"an array is not collected, and collecting ends there", "[{\"a\":1}] {\"b\":2}", "[ ]"},
      {"a number is not collected, and collecting ends there", "1 {\"a\":1}", "[ ]"},
      {"objects before a number are kept", "{\"a\":1} 1 {\"b\":2}", "[ { \"a\":1 } ]"},
      {"an error ends collecting", "{\"a\":1} # {\"b\":2} {\"c\":3}", "[ { \"a\":1 } ]"},
      {"an error inside an object drops it", "{\"a\":1}{\"b\":#}{}", "[ { \"a\":1 } ]"},
      {"a comma between objects is an error", "{},{}", "[ { } ]"},
      {"the inner parser receives every kind of token", "{a:[1,\"x\",null,true,false]}",
       "[ { \"a\":[ 1, \"x\", null, true, false ] } ]"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(sequence(c.text), c.expected);
  }
}

TEST(JsonSequence, SequencerDoesNotOwnItsTarget) {
  ScopedJson target(json::makeArray());
  json::append(target.get(), json::makeNumber(5));
  {
    sequencer receiver(target.get());
    EXPECT_TRUE(json::scan(receiver, "{a:1}{b:"));
  }
  std::string text;
  EXPECT_EQ(json::write(text, target.get()), "[ 5, { \"a\":1 } ]");
}

}  // namespace
