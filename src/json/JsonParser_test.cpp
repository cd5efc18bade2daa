#include "json/JsonParser.h"

#include <gtest/gtest.h>

#include "json/JsonWriter.h"

using namespace std::string_literals;

namespace {

// The document of a text as the writer puts it, or "none".
std::string parsed(std::string_view text) {
  ScopedJson document(json::parse(text.data(), static_cast<std::ptrdiff_t>(text.size())));
  std::string out;
  return document ? json::write(out, document.get()) : "none";
}

// Notes the messages that reach onError, each followed by a bar.
class Witness final : public parserinfo {
 public:
  void onError(std::string_view message) override {
    messages += std::string(message) + "|";
    parserinfo::onError(message);
  }
  std::string messages;
};

std::string messagesOf(std::string_view text) {
  Witness witness;
  EXPECT_TRUE(json::scan(witness, text.data(), static_cast<std::ptrdiff_t>(text.size())));
  return witness.messages;
}

struct Case {
  const char* why;
  std::string text;
  std::string expected;
};

TEST(JsonParser, Documents) {
  const Case cases[] = {
      {"an empty object", "{}", "{ }"},
      {"an empty array", "[]", "[ ]"},
      {"a number between blanks", " \t42\r\n", "42"},
      {"a word", "true", "true"},
      {"null", "null", "null"},
      {"a string", "\"lab\"", "\"lab\""},
      {"an empty string", "\"\"", "\"\""},
      {"an array", "[1,\"a\",null,true,false,[],{}]", "[ 1, \"a\", null, true, false, [ ], { } ]"},
      {"an object", "{\"a\":1,\"b\":[2],\"c\":{\"d\":3}}", "{ \"a\":1, \"b\":[ 2 ], \"c\":{ \"d\":3 } }"},
      {"bare names", "{a:1,b.c_d:2}", "{ \"a\":1, \"b.c_d\":2 }"},
      {"a keyword is no name", "{null:1}", "none"},
      {"keywords may be quoted names", "{\"null\":1}", "{ \"null\":1 }"},
      {"a trailing comma in an array", "[1,2,]", "[ 1, 2 ]"},
      {"a trailing comma in an object", "{\"a\":1,}", "{ \"a\":1 }"},
      {"a name without its value is dropped", "{\"b\"}", "{ }"},
      {"a name with a colon alone is dropped", "{\"b\":}", "{ }"},
      {"such a name does not reach the object around it", "{\"x\":{\"b\":}}", "{ \"x\":{ } }"},
      {"nor without a colon", "{\"x\":{\"b\"}}", "{ \"x\":{ } }"},
      {"nor the array around it", "[{\"b\":}]", "[ { } ]"},
      {"members before a dropped name stay", "{\"a\":1,\"b\":}", "{ \"a\":1 }"},
      {"members go on after it", "{\"x\":{\"b\":},\"y\":1}", "{ \"x\":{ }, \"y\":1 }"},
      {"a repeated name keeps its place and takes the last value", "{\"a\":1,\"b\":0,\"a\":2}", "{ \"a\":2, \"b\":0 }"},
      {"also when the values are containers", "{\"a\":[1],\"a\":{\"b\":2}}", "{ \"a\":{ \"b\":2 } }"},
      {"null does not remove a member", "{\"a\":1,\"a\":null}", "{ \"a\":null }"},
      {"an array under an empty name is dropped", "{\"\":[1,[2]]}", "{ }"},
      {"so is an object", "{\"\":{\"a\":{\"\":[]}},\"b\":1}", "{ \"b\":1 }"},
      {"escapes", R"(["\u00e9\n\\"])", "[ \"?00e9\\n\\\" ]"},
      {"a name may be escaped", R"({"a\tb":1})", "{ \"a\tb\":1 }"},
      {"a name may hold a zero byte", "{\"a\0b\":1}"s, "{ \"a\0b\":1 }"s},
      {"a number runs over a colon", "12:3", "12"},
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

TEST(JsonParser, FailuresAndTheirMessages) {
  const Case cases[] = {
      {"two values in an array", "[1 2]", "onValue: wrong state|onRightBracket: no open array|"},
      {"a value behind the document", "1 2", "onValue: wrong state|"},
      {"an object behind the document", "{} {}", "onLeftCurly: wrong state|onRightCurly: no open object|"},
      {"an array behind the document", "[] []", "onLeftBracket: wrong state|onRightBracket: no open array|"},
      {"an end of an object behind a number", "1 }", "onRightCurly: no open object|"},
      {"an end of an object behind an array", "[] }", "onRightCurly: no open object|"},
      {"no colon", "{\"a\" \"b\"}", "onValue: wrong state|onRightCurly: no open object|"},
      {"no colon before a word", "{\"a\" b", "onName, wrong state|"},
      {"a name outside an object", "abc", "onName, wrong state|"},
      {"a name as a value", "{\"a\":abc", "onName, wrong state|"},
      {"a number as a name", "{1", "onValue: wrong state|"},
      {"a keyword as a name", "{true", "onValue: wrong state|"},
      {"an array as a name", "{[", "onLeftBracket: wrong state|"},
      {"an object as a name", "{{", "onLeftCurly: wrong state|"},
      {"an object straight behind a name", "{\"a\"{", "onLeftCurly: wrong state|"},
      {"an array straight behind a name", "{\"a\"[", "onLeftBracket: wrong state|"},
      {"a bracket straight behind a number belongs to the number", "[1[", ""},
      {"an array behind a closed one", "[[][", "onLeftBracket: wrong state|"},
      {"a comma at the start", ",", "onComma: wrong state|"},
      {"a comma at the start of an array", "[,", "onComma: wrong state|"},
      {"a comma at the start of an object", "{,", "onComma: wrong state|"},
      {"two commas", "[1,,", "onComma: wrong state|"},
      {"a comma behind a name", "{\"a\",", "onComma: wrong state|"},
      {"a comma behind a colon", "{\"a\":,", "onComma: wrong state|"},
      {"a comma behind the document", "1,", "onComma: wrong state|"},
      {"a colon at the start", ":", "onColon: wrong state|"},
      {"a colon in an array", "[:", "onColon: wrong state|"},
      {"a colon before a name", "{:", "onColon: wrong state|"},
      {"two colons", "{\"a\"::", "onColon: wrong state|"},
      {"a colon behind a member", "{\"a\":\"b\":", "onColon: wrong state|"},
      {"a bracket that closes nothing", "]", "onRightBracket: no open array|"},
      {"a curly that closes nothing", "}", "onRightCurly: no open object|"},
      {"a curly that closes an array", "[}", "onRightCurly: no open object|"},
      {"a bracket that closes an object", "{]", "onRightBracket: no open array|"},
      {"a bracket that closes an object behind a name", "{\"a\":]", "onRightBracket: no open array|"},
      {"a scalar under an empty name", "{\"\":1", "onValue: no available name for field|"},
      {"a string under an empty name", "{\"\":\"a\"", "onValue: no available name for field|"},
      {"null under an empty name", "{\"\":null", "onValue: no available name for field|"},
      {"a number sign before the document", "#1", "scanner error|onValue: wrong state|"},
      {"a number sign behind the document", "{}#", "scanner error|"},
      {"a number sign within", "[#]", "scanner error|onRightBracket: no open array|"},
      {"an open string", "{\"a\":\"b", ""},
      {"an open array", "[1", ""},
      {"an open object", "{\"a\":1", ""},
      {"blanks alone", " \n", ""},
      {"a comma reports again after a failure", "#,,", "scanner error|onComma: wrong state|onComma: wrong state|"},
      {"so do all tokens", "#[{]},:1\"a\" null true x",
       "scanner error|onLeftBracket: wrong state|onLeftCurly: wrong state|onRightBracket: no open array|"
       "onRightCurly: no open object|onComma: wrong state|onColon: wrong state|onValue: wrong state|"
       "onValue: wrong state|onValue: wrong state|onName, wrong state|"},
      {"and strings too", "#\"a\" null true x",
       "scanner error|onValue: wrong state|onValue: wrong state|onValue: wrong state|onName, wrong state|"},
      {"an error inside open containers is final: brackets revive nothing", "[{\"a\":[#]}]",
       "scanner error|onRightBracket: no open array|onRightCurly: no open object|onRightBracket: no open array|"},
      {"nor does an element", "[# 1]", "scanner error|onValue: wrong state|onRightBracket: no open array|"},
      {"nor does a pending name", "{\"a\"#:1}",
       "scanner error|onColon: wrong state|onValue: wrong state|onRightCurly: no open object|"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(messagesOf(c.text), c.expected);
    EXPECT_EQ(parsed(c.text), "none");
  }
}

TEST(JsonParser, ANumberSignIsAnOrdinaryByteInsideStringsAndNumbers) {
  EXPECT_EQ(parsed("[\"#\",1#2]"), "[ \"#\", 1 ]");
}

TEST(JsonParser, NullAndEmptyTextsAreNoDocument) {
  EXPECT_EQ(json::parse(nullptr), nullptr);
  EXPECT_EQ(json::parse(nullptr, 4), nullptr);
  EXPECT_EQ(json::parse(""), nullptr);
  EXPECT_EQ(json::parse("1", 0), nullptr);
}

TEST(JsonParser, ANegativeLengthMeansUpToTheZeroByte) {
  ScopedJson document(json::parse("[1]\0]"));
  EXPECT_EQ(json::elementCount(document.get()), 1u);
}

TEST(JsonParser, ScalarsAreTheSharedValues) {
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

TEST(JsonParser, StatesFollowTheTokens) {
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
  EXPECT_EQ(parser.takeRoot(), nullptr) << "there is no root before the end";
  parser.onRightCurly();
  EXPECT_EQ(parser.state(), State::finished);
  ScopedJson root(parser.takeRoot());
  std::string text;
  EXPECT_EQ(json::write(text, root.get()), "{ \"a\":[ 5 ] }");
  EXPECT_EQ(parser.takeRoot(), nullptr) << "it is the caller's already";
}

TEST(JsonParser, AnErrorDropsAFinishedDocumentToo) {
  parserinfo parser;
  parser.onNumber(7);
  parser.onError("from outside");
  EXPECT_EQ(parser.state(), parserinfo::State::finished);
  EXPECT_EQ(parser.takeRoot(), nullptr);
  parser.onNumber(7);
  EXPECT_EQ(parser.takeRoot(), nullptr);
}

TEST(JsonParser, EveryPrefixOfADocumentIsNoDocument) {
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

TEST(JsonParser, TakesTextsOfAnyDepth) {
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

TEST(JsonParser, AnObjectOfManyMembersKeepsTheirOrder) {
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

TEST(JsonSequence, GathersTheTopLevelObjects) {
  const Case cases[] = {
      {"one after another", "{\"a\":1} {\"b\":[{}]}{}", "[ { \"a\":1 }, { \"b\":[ { } ] }, { } ]"},
      {"one", "{\"a\":1}", "[ { \"a\":1 } ]"},
      {"blanks alone", " ", "[ ]"},
      {"an object left open is dropped", "{\"a\":1}{\"b\":", "[ { \"a\":1 } ]"},
      {"an array is not collected", "[{\"a\":1}]", "[ ]"},
      {"nor is a number, and collecting ends there", "1 {\"a\":1}", "[ ]"},
      {"what came before it stays", "{\"a\":1} 1 {\"b\":2}", "[ { \"a\":1 } ]"},
      {"an error ends the collecting", "{\"a\":1} # {\"b\":2} {\"c\":3}", "[ { \"a\":1 } ]"},
      {"an error inside an object drops it", "{\"a\":1}{\"b\":#}{}", "[ { \"a\":1 } ]"},
      {"a comma between objects is an error", "{},{}", "[ { } ]"},
      {"all tokens reach the parser", "{a:[1,\"x\",null,true,false]}", "[ { \"a\":[ 1, \"x\", null, true, false ] } ]"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(sequence(c.text), c.expected);
  }
}

TEST(JsonSequence, NullAndEmptyTextsGiveNoArray) {
  EXPECT_EQ(json::parseSequence(nullptr), nullptr);
  EXPECT_EQ(json::parseSequence(""), nullptr);
  EXPECT_EQ(json::parseSequence("{}", 0), nullptr);
}

TEST(JsonSequence, TheTargetStaysItsCallers) {
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
