// Every value has exactly one owner: wherever a document ends early, nothing leaks and nothing is freed twice. These
// tests count the allocated blocks in every build. The sanitizers find a double free and a use after free.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "json/JsonParser.h"
#include "json/JsonWriter.h"
#include "testing/faults/AllocationCount.h"

namespace {

// How many blocks `work` allocates and does not free. Negative if it frees more than it allocates.
template <class Work>
std::ptrdiff_t blocksLeakedBy(Work work) {
  const std::ptrdiff_t before = newBlocksInUse();
  work();
  return newBlocksInUse() - before;
}

void parseAndDrop(std::string_view text) {
  const auto length = static_cast<std::ptrdiff_t>(text.size());
  json::release(json::parse(text.data(), length));
  json::release(json::parseSequence(text.data(), length));
}

const char* const kDocuments[] = {
    R"({"a":[1.5,2.5,{"b":null,"c":"text"}],"c":{"d":"e\n","":[7,["x"]],f:true},"a":[false,"x"]})",
    R"([[["y"],{}],"text",{"k":{"k":{"k":[3]}}},-1e5,"",{"":{"a":["z"]}}])",
    R"({"a":"1"} {"b":["2",{"c":"3"}]} ["4"] {"d":"5"})",
    R"({"a":{"b":{"c":"1"},"b":{"d":["2"]}},"a":"3"})",
};

TEST(JsonOwnership, CountShowsALeakedBlock) {
  jsObject* kept = nullptr;
  EXPECT_EQ(blocksLeakedBy([&] { kept = json::makeString("a string is one block, however long it is"); }), 1);
  EXPECT_EQ(blocksLeakedBy([&] { json::release(kept); }), -1);
}

TEST(JsonOwnership, DocumentCutAtAnyByteLeaksNothing) {
  for (const std::string document : kDocuments) {
    for (std::size_t length = 0; length <= document.size(); ++length) {
      EXPECT_EQ(blocksLeakedBy([&] { parseAndDrop({document.data(), length}); }), 0) << document.substr(0, length);
    }
  }
}

TEST(JsonOwnership, DocumentWithAnyTokenInAnyPlaceLeaksNothing) {
  for (const std::string document : kDocuments) {
    for (std::size_t at = 0; at < document.size(); ++at) {
      for (const char* intruder :
           {"#", "[", "]", "{", "}", ",", ":", "\"", " ", "9.5", " \"v\" ", "w", "null", "\"\":", "{\"q\":"}) {
        const std::string inserted = document.substr(0, at) + intruder + document.substr(at);
        const std::string replaced = document.substr(0, at) + intruder + document.substr(at + 1);
        EXPECT_EQ(blocksLeakedBy([&] { parseAndDrop(inserted); }), 0) << inserted;
        EXPECT_EQ(blocksLeakedBy([&] { parseAndDrop(replaced); }), 0) << replaced;
      }
    }
  }
}

TEST(JsonOwnership, NoSequenceOfFiveTokensLeaks) {
  const char* const tokens[] = {"[", "{", "]", "}", ",", ":", " 7.5 ", "\"a\"", "\"\"", "#"};
  constexpr int length = 5;
  int combinations = 1;
  for (int at = 0; at < length; ++at) combinations *= 10;
  for (int combination = 0; combination < combinations; ++combination) {
    std::string text;
    for (int at = 0, digits = combination; at < length; ++at, digits /= 10) text += tokens[digits % 10];
    ASSERT_EQ(blocksLeakedBy([&] { parseAndDrop(text); }), 0) << text;
  }
}

TEST(JsonOwnership, EveryValueIsReleasedOnce) {
  const struct {
    const char* why;
    void (*work)();
  } cases[] = {
      {"shared values need no memory",
       [] {
         for (double number : {-1.0, 0.0, 1.0, 2.0, -0.0}) (void)json::makeNumber(number);
         (void)json::makeNull();
         for (bool boolean : {true, false}) (void)json::makeBoolean(boolean);
         (void)json::makeString("");
         for (int kind = 1; kind <= 4; ++kind) (void)json::makeOfKind(kind);
       }},
      {"a container releases the value it refuses",
       [] {
         ScopedJson object(json::makeObject());
         ScopedJson array(json::makeArray());
         json::setMember(object.get(), "", json::makeString("refused"));
         json::setMember(array.get(), "a", json::makeString("refused"));
         json::setMember(nullptr, "a", json::makeString("refused"));
         json::append(object.get(), json::makeString("refused"));
         json::append(nullptr, json::makeString("refused"));
         json::setElement(array.get(), 5, json::makeString("refused"));
         (void)json::setText(object.get(), "", "refused");
       }},
      {"an object releases replaced and removed values",
       [] {
         ScopedJson object(json::makeObject());
         for (int round = 0; round < 3; ++round) {
           for (int at = 0; at < 40; ++at) {
             json::setMember(object.get(), std::to_string(at), json::makeArray());
             json::append(json::member(object.get(), std::to_string(at)), json::makeString("element"));
           }
           for (int at = 0; at < 40; at += 3) json::setMember(object.get(), std::to_string(at), nullptr);
           json::release(json::removeMember(object.get(), "1"));
         }
       }},
      {"an array releases replaced and removed values",
       [] {
         ScopedJson array(json::makeArray());
         for (const char* text : {"a", "b", "c"}) json::append(array.get(), json::makeString(text));
         json::setElement(array.get(), 0, json::makeString("replaced"));
         json::release(json::removeElement(array.get(), 0));
         json::release(json::removeLast(array.get()));
       }},
      {"values of the invalid kind",
       [] {
         json::release(json::makeOfKind(0));
         ScopedJson array(json::makeArray());
         json::append(array.get(), json::makeOfKind(9));
       }},
      {"a tree of 400,000 levels, each with values before and after the next level",
       [] {
         std::string text = "null";
         std::string open;
         for (int level = 0; level < 200'000; ++level) {
           open += "{a:\"x\",b:[\"y\",";
           text += ",\"z\"],c:\"x\"}";
         }
         text.insert(0, open);
         ScopedJson tree(json::parse(text.c_str()));
         EXPECT_TRUE(json::isObject(tree.get()));
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(blocksLeakedBy(c.work), 0);
  }
}

// The kind is at the start of every value. A value that is used after its release is then of no kind.
TEST(JsonOwnership, TheKindOfAValueIsZeroWhenItsMemoryIsFreed) {
  const struct {
    const char* why;
    jsObject* (*make)();
    std::int32_t kind;
  } cases[] = {
      {"a number", [] { return json::makeNumber(7.5); }, 3},
      {"a string", [] { return json::makeString("text"); }, 4},
      {"an array", [] { return json::makeArray(); }, 5},
      {"an array with a shared element",
       [] {
         jsObject* array = json::makeArray();
         json::append(array, json::makeNull());
         return array;
       },
       5},
      {"an object", [] { return json::makeObject(); }, 6},
      {"an object with more members than are searched without an index",
       [] {
         jsObject* object = json::makeObject();
         for (int at = 0; at < 40; ++at) json::setMember(object, std::to_string(at), json::makeNull());
         return object;
       },
       6},
      {"a value of the invalid kind", [] { return json::makeOfKind(7); }, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    jsObject* value = c.make();
    std::int32_t start = -1;
    std::memcpy(&start, value, sizeof start);
    EXPECT_EQ(start, c.kind);
    json::release(value);
    EXPECT_EQ(startOfLastFreedBlock(), 0);
  }
}

TEST(JsonOwnership, TakenDocumentIsFreedAlthoughItsParserIsStillThere) {
  parserinfo parser;
  const std::ptrdiff_t before = newBlocksInUse();
  parser.onNumber(1.5);
  json::release(parser.takeRoot());
  EXPECT_EQ(newBlocksInUse(), before);
}

TEST(JsonOwnership, ErrorReleasesWhatTheParserHasBuiltAtOnce) {
  const std::string text =
      "[\"" + std::string(5000, 'x') + "\",{\"" + std::string(5000, 'n') + "\":[\"" + std::string(5000, 'y') + "\",";
  parserinfo parser;
  EXPECT_EQ(blocksLeakedBy([&] { EXPECT_TRUE(json::scan(parser, text.c_str())); }), 3);
  EXPECT_EQ(blocksLeakedBy([&] { EXPECT_TRUE(json::scan(parser, "#")); }), -3);
}

TEST(JsonOwnership, ReleaseOfATreeAllocatesNothing) {
  std::string text = "1.5";
  for (int level = 0; level < 1000; ++level) text = "{a:[\"x\"," + text + "],b:{c:[]}}";
  for (int member = 0; member < 100; ++member)
    text.insert(1, "m" + std::string(static_cast<std::size_t>(member), 'x') + ":[1.5],");
  jsObject* tree = json::parse(text.c_str());
  ASSERT_TRUE(json::isObject(tree));
  json::setText(tree, "a value of its own", "text");
  const std::ptrdiff_t allocated = newBlocksSoFar();
  json::release(tree);
  EXPECT_EQ(newBlocksSoFar(), allocated);
}

}  // namespace
