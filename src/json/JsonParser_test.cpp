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
  const Case cases[] = {
      {"two values in an array", "[1 2]", "onValue: wrong state|onRightBracket: no open array|"},
      {"a value after the document", "1 2", "onValue: wrong state|"},
      {"an object after the document", "{} {}", "onLeftCurly: wrong state|onRightCurly: no open object|"},
      {"an array after the document", "[] []", "onLeftBracket: wrong state|onRightBracket: no open array|"},
      {"a closing curly bracket after a number", "1 }", "onRightCurly: no open object|"},
      {"a closing curly bracket after an array", "[] }", "onRightCurly: no open object|"},
      {"no colon", "{\"a\" \"b\"}", "onValue: wrong state|onRightCurly: no open object|"},
      {"no colon before a word", "{\"a\" b", "onName, wrong state|"},
      {"a name outside an object", "abc", "onName, wrong state|"},
      {"a name as a value", "{\"a\":abc", "onName, wrong state|"},
      {"a number as a name", "{1", "onValue: wrong state|"},
      {"a keyword as a name", "{true", "onValue: wrong state|"},
      {"an array as a name", "{[", "onLeftBracket: wrong state|"},
      {"an object as a name", "{{", "onLeftCurly: wrong state|"},
      {"an object after a name without a colon", "{\"a\"{", "onLeftCurly: wrong state|"},
      {"an array after a name without a colon", "{\"a\"[", "onLeftBracket: wrong state|"},
      {"an opening bracket after a number belongs to the number", "[1[", ""},
      {"an array after a closed array without a comma", "[[][", "onLeftBracket: wrong state|"},
      {"a comma at the start", ",", "onComma: wrong state|"},
      {"a comma at the start of an array", "[,", "onComma: wrong state|"},
      {"a comma at the start of an object", "{,", "onComma: wrong state|"},
      {"two commas", "[1,,", "onComma: wrong state|"},
      {"a comma after a name", "{\"a\",", "onComma: wrong state|"},
      {"a comma after a colon", "{\"a\":,", "onComma: wrong state|"},
      {"a comma after the document", "1,", "onComma: wrong state|"},
      {"a colon at the start", ":", "onColon: wrong state|"},
      {"a colon in an array", "[:", "onColon: wrong state|"},
      {"a colon before a name", "{:", "onColon: wrong state|"},
      {"two colons", "{\"a\"::", "onColon: wrong state|"},
      {"a colon after a member", "{\"a\":\"b\":", "onColon: wrong state|"},
      {"a closing square bracket with no open array", "]", "onRightBracket: no open array|"},
      {"a closing curly bracket with no open object", "}", "onRightCurly: no open object|"},
      {"a closing curly bracket in an array", "[}", "onRightCurly: no open object|"},
      {"a closing square bracket in an object", "{]", "onRightBracket: no open array|"},
      {"a closing square bracket after a name in an object", "{\"a\":]", "onRightBracket: no open array|"},
      {"a scalar under an empty name", "{\"\":1", "onValue: no available name for field|"},
      {"a string under an empty name", "{\"\":\"a\"", "onValue: no available name for field|"},
      {"null under an empty name", "{\"\":null", "onValue: no available name for field|"},
      {"a number sign before the document", "#1", "scanner error|onValue: wrong state|"},
      {"a number sign after the document", "{}#", "scanner error|"},
      {"a number sign in an array", "[#]", "scanner error|onRightBracket: no open array|"},
      {"an open string", "{\"a\":\"b", ""},
      {"an open array", "[1", ""},
      {"an open object", "{\"a\":1", ""},
      {"only whitespace", " \n", ""},
      {"after an error each comma is another error", "#,,", "scanner error|onComma: wrong state|onComma: wrong state|"},
      {"after an error each token is another error", "#[{]},:1\"a\" null true x",
       "scanner error|onLeftBracket: wrong state|onLeftCurly: wrong state|onRightBracket: no open array|"
       "onRightCurly: no open object|onComma: wrong state|onColon: wrong state|onValue: wrong state|"
       "onValue: wrong state|onValue: wrong state|onName, wrong state|"},
      {"after an error each value is another error", "#\"a\" null true x",
       "scanner error|onValue: wrong state|onValue: wrong state|onValue: wrong state|onName, wrong state|"},
      {"after an error closing brackets do not complete the document", "[{\"a\":[#]}]",
       "scanner error|onRightBracket: no open array|onRightCurly: no open object|onRightBracket: no open array|"},
      {"after an error an element does not complete the document", "[# 1]",
       "scanner error|onValue: wrong state|onRightBracket: no open array|"},
      {"after an error a member does not complete the document", "{\"a\"#:1}",
       "scanner error|onColon: wrong state|onValue: wrong state|onRightCurly: no open object|"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(messagesOf(c.text), c.expected);
    EXPECT_EQ(parsed(c.text), "none");
  }
}

TEST(JsonParser, NumberSignIsAnOrdinaryByteInStringsAndNumbers) { EXPECT_EQ(parsed("[\"#\",1#2]"), "[ \"#\", 1 ]"); }

TEST(JsonParser, NullAndEmptyTextsParseToNull) {
  EXPECT_EQ(json::parse(nullptr), nullptr);
  EXPECT_EQ(json::parse(nullptr, 4), nullptr);
  EXPECT_EQ(json::parse(""), nullptr);
  EXPECT_EQ(json::parse("1", 0), nullptr);
}

TEST(JsonParser, NegativeLengthMeansUpToTheZeroByte) {
  ScopedJson document(json::parse("[1]\0]"));
  EXPECT_EQ(json::elementCount(document.get()), 1u);
}

TEST(JsonParser, ParsedScalarsAreTheSharedValues) {
  EXPECT_EQ(json::parse("true"), json::makeBoolean(true));
  EXPECT_EQ(json::parse("false"), json::makeBoolean(false));
  EXPECT_EQ(json::parse("null"), json::makeNull());
  EXPECT_EQ(json::parse("\"\""), json::makeString(""));
  EXPECT_EQ(json::parse("-1"), json::makeNumber(-1));
  EXPECT_EQ(json::parse("0.0"), json::makeNumber(0));
  EXPECT_EQ(json::parse("2"), json::makeNumber(2));
}

TEST(JsonParser, StringsKeepZeroBytes) {
  ScopedJson document(json::parse("\"a\0b\"", 5));
  EXPECT_EQ(json::textOf(document.get()), "a\0b"s);
}

TEST(JsonParser, StateFollowsTheTokens) {
  using State = parserinfo::State;
  parserinfo parser;
  EXPECT_EQ(parser.state(), State::value);
  EXPECT_EQ(parser.takeRoot(), nullptr);
  parser.onLeftCurly();
  EXPECT_EQ(parser.state(), State::name);
  parser.onString("a");
  EXPECT_EQ(parser.state(), State::afterName);
  parser.onColon();
  EXPECT_EQ(parser.state(), State::value);
  parser.onLeftBracket();
  EXPECT_EQ(parser.state(), State::value);
  parser.onNumber(5);
  EXPECT_EQ(parser.state(), State::afterElement);
  parser.onComma();
  EXPECT_EQ(parser.state(), State::value);
  parser.onRightBracket();
  EXPECT_EQ(parser.state(), State::afterMember);
  parser.onComma();
  EXPECT_EQ(parser.state(), State::name);
  parser.onName("b");
  EXPECT_EQ(parser.state(), State::afterName);
  EXPECT_EQ(parser.takeRoot(), nullptr) << "the document is not complete yet";
  parser.onRightCurly();
  EXPECT_EQ(parser.state(), State::finished);
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

TEST(JsonParser, ParsesDeeplyNestedTexts) {
  constexpr std::size_t depth = 200000;
  const std::string open(depth, '[');
  const std::string close(depth, ']');
  {
    ScopedJson document(json::parse((open + close).c_str()));
    EXPECT_TRUE(json::isArray(document.get()));
    std::string text;
    EXPECT_EQ(json::write(text, document.get()).size(), 4 * depth - 1);
  }
  EXPECT_EQ(parsed(open), "none");
  EXPECT_EQ(parsed(open + "}"), "none");

  std::string objects;
  for (std::size_t level = 0; level < depth; ++level) objects += "{\"a\":";
  EXPECT_EQ(parsed(objects), "none");
  ScopedJson nested(json::parse((objects + std::string(depth, '}')).c_str()));
  EXPECT_TRUE(json::isObject(nested.get()));
}

TEST(JsonParser, RepeatedNamesKeepTheFirstPositionAndTheLastValue) {
  std::string text = "{";
  for (unsigned at = 0; at < 1000; ++at) text += "m" + std::string(at % 7, 'x') + ":" + std::to_string(at) + ",";
  text += "}";
  EXPECT_EQ(parsed(text),
            "{ \"m\":994, \"mx\":995, \"mxx\":996, \"mxxx\":997, \"mxxxx\":998, \"mxxxxx\":999, \"mxxxxxx\":993 }");
}

// ---- Sequences ----

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
      {"an array is not collected", "[{\"a\":1}]", "[ ]"},
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

TEST(JsonSequence, NullAndEmptyTextsParseToNull) {
  EXPECT_EQ(json::parseSequence(nullptr), nullptr);
  EXPECT_EQ(json::parseSequence(""), nullptr);
  EXPECT_EQ(json::parseSequence("{}", 0), nullptr);
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
