#include "json/DocumentBuilder.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "json/JsonParser.h"
#include "json/JsonWriter.h"
#include "testing/faults/AllocationCount.h"

namespace {

using namespace json;

std::string written(const jsObject* value) {
  std::string text;
  return json::write(text, value);
}

jsObject* parsed(const std::string& text) { return json::parse(text.data(), static_cast<std::ptrdiff_t>(text.size())); }

TEST(DocumentBuilder, BuildsContainersFromTheInsideOut) {
  DocumentBuilder builder;
  EXPECT_EQ(builder.openKind(), JsonKind::invalid);
  builder.open(JsonKind::object);
  EXPECT_EQ(builder.openKind(), JsonKind::object);
  EXPECT_FALSE(builder.hasName());
  builder.takeName("ports");
  EXPECT_TRUE(builder.hasName());
  builder.open(JsonKind::array);
  EXPECT_EQ(builder.openKind(), JsonKind::array);
  builder.add(builder.makeNumber(8245));
  builder.add(builder.makeString("all"));
  builder.add(builder.close());
  EXPECT_EQ(builder.openKind(), JsonKind::object);
  EXPECT_FALSE(builder.hasName());
  ScopedJson object(builder.close());
  EXPECT_EQ(builder.openKind(), JsonKind::invalid);
  builder.seal();
  EXPECT_EQ(written(object.get()), R"({ "ports":[ 8245, "all" ] })");
}

TEST(DocumentBuilder, EmptyNameIsNoNameAndANameWithoutAValueIsDropped) {
  DocumentBuilder builder;
  builder.open(JsonKind::object);
  builder.takeName("");
  EXPECT_FALSE(builder.hasName());
  builder.takeName("dropped");
  ScopedJson object(builder.close());
  EXPECT_EQ(written(object.get()), "{ }");
}

TEST(DocumentBuilder, ClearReleasesWhatIsOpen) {
  const std::ptrdiff_t before = newBlocksInUse();
  {
    DocumentBuilder builder;
    const std::ptrdiff_t ofEmptyBuilder = newBlocksInUse();
    builder.open(JsonKind::array);
    builder.add(builder.makeString(std::string(5000, 'x')));
    builder.open(JsonKind::object);
    builder.takeName(std::string(5000, 'n'));
    builder.add(json::makeArray());
    builder.takeName("waits");
    builder.clear();
    EXPECT_EQ(builder.openKind(), JsonKind::invalid);
    builder.seal();
    EXPECT_EQ(newBlocksInUse(), ofEmptyBuilder);
    builder.open(JsonKind::object);
    builder.takeName("destroyed");
  }
  EXPECT_EQ(newBlocksInUse(), before);
}

TEST(ParsedDocument, ValueTakenOutOutlivesTheDocument) {
  std::string text = R"({"kept":{"a":["b",4.5]})";
  for (int at = 0; at < 20000; ++at) text += ",\"member-" + std::to_string(at) + "\":" + std::to_string(at);
  text += '}';
  const std::ptrdiff_t before = newBlocksInUse();
  jsObject* document = parsed(text);
  ASSERT_EQ(json::memberCount(document), 20001u);
  const std::ptrdiff_t whole = newBlocksInUse() - before;
  ScopedJson kept(json::removeMember(document, "kept"));
  json::release(document);
  EXPECT_EQ(written(kept.get()), R"({ "a":[ "b", 4.500000 ] })");
  EXPECT_GT(whole, 5);
  EXPECT_EQ(newBlocksInUse() - before, 1) << "one chunk";
  kept.reset();
  EXPECT_EQ(newBlocksInUse(), before);
}

TEST(ParsedDocument, ScalarTakenOutKeepsOneChunkAndAContainerEveryChunkInWhichItHasAPart) {
  std::string list = "[0.5";
  for (int at = 1; at < 20000; ++at) list += "," + std::to_string(at) + ".5";
  list += ']';
  const std::ptrdiff_t before = newBlocksInUse();
  jsObject* document = parsed("[" + list + ",\"text\"," + list + "]");
  const std::ptrdiff_t whole = newBlocksInUse() - before;
  ScopedJson last(json::removeLast(document));
  ScopedJson text(json::removeLast(document));
  json::release(document);
  const std::ptrdiff_t kept = newBlocksInUse() - before;
  EXPECT_GT(kept, whole / 2 - 2) << "about half of the chunks";
  EXPECT_LT(kept, whole / 2 + 4);
  EXPECT_EQ(json::elementCount(last.get()), 20000u);
  last.reset();
  EXPECT_EQ(newBlocksInUse() - before, 1) << "the chunk of the text";
  EXPECT_EQ(written(text.get()), R"("text")");
  text.reset();
  EXPECT_EQ(newBlocksInUse(), before);
}

TEST(ParsedDocument, CanBeChangedLikeAnyOther) {
  const std::ptrdiff_t before = newBlocksInUse();
  {
    ScopedJson document(parsed(R"([{},[],{"a":1.5,"b":[2.5]},{"a":"x","b":"y"}])"));
    jsObject* empty = json::element(document.get(), 0);
    jsObject* array = json::element(document.get(), 1);
    jsObject* object = json::element(document.get(), 2);
    for (int at = 0; at < 40; ++at) {
      json::setText(empty, "name " + std::to_string(at), "text");
      json::append(array, json::makeNumber(at + 0.5));
      json::setText(object, "name " + std::to_string(at), "text");
    }
    EXPECT_EQ(json::memberCount(empty), 40u);
    EXPECT_EQ(json::elementCount(array), 40u);
    EXPECT_EQ(json::memberCount(object), 42u);
    for (int at = 0; at < 40; ++at) json::setMember(object, "name " + std::to_string(at), nullptr);
    json::setMember(object, "a", json::makeString("new"));
    EXPECT_EQ(written(object), R"({ "a":"new", "b":[ 2.500000 ] })");
    EXPECT_EQ(written(json::element(document.get(), 3)), R"({ "a":"x", "b":"y" })");
  }
  EXPECT_EQ(newBlocksInUse(), before);
}

TEST(ParsedDocument, MembersOfOneNameInDifferentObjectsAreRemovedAlone) {
  ScopedJson document(parsed(R"([{"name":"x","b":1},{"name":"y","b":2},{"name":"z"}])"));
  json::setMember(json::element(document.get(), 0), "name", nullptr);
  json::release(json::removeElement(document.get(), 2));
  EXPECT_EQ(written(document.get()), R"([ { "b":1 }, { "name":"y", "b":2 } ])");
}

// Names of equal length and with equal outer letters have the same hash in the builder.
TEST(ParsedDocument, NamesWithTheSameShortHashAreDistinguished) {
  ScopedJson document(parsed(R"([{"axb":1,"ayb":2,"axb":3,"azb":4},{"ayb":5,"axb":6}])"));
  EXPECT_EQ(written(document.get()), R"([ { "axb":3, "ayb":2, "azb":4 }, { "ayb":5, "axb":6 } ])");
}

// The names of a chunk that has been freed must not be used for a later one.
TEST(ParsedDocument, DroppedContainersLeaveNoNamesBehind) {
  std::string text = "{";
  for (int at = 0; at < 3000; ++at) {
    text += "\"\":{\"name\":\"" + std::string(static_cast<std::size_t>(at % 90), 'x') + "\",\"other\":1.5},";
  }
  ScopedJson document(parsed(text + R"("name":{"other":"kept"}})"));
  EXPECT_EQ(written(document.get()), R"({ "name":{ "other":"kept" } })");
}

TEST(ParsedDocument, RepeatedNamesOfALargeObjectKeepTheFirstPositionAndTheLastValue) {
  const std::ptrdiff_t before = newBlocksInUse();
  {
    std::string text = "{";
    for (int at = 0; at < 3000; ++at) text += "\"n" + std::to_string(at % 1000) + "\":[" + std::to_string(at) + "],";
    ScopedJson document(parsed(text + "}"));
    ASSERT_EQ(json::memberCount(document.get()), 1000u);
    for (std::size_t at = 0; at < 1000; ++at) {
      ASSERT_EQ(json::memberName(document.get(), at), "n" + std::to_string(at));
      ASSERT_EQ(json::findMember(document.get(), "n" + std::to_string(at)), static_cast<std::ptrdiff_t>(at));
      ASSERT_EQ(json::numberOf(json::element(json::memberValue(document.get(), at), 0)), 2000.0 + static_cast<int>(at));
    }
  }
  EXPECT_EQ(newBlocksInUse(), before);
}

TEST(ParsedDocument, SmallDocumentIsOneBlockWithEachListBehindItsContainer) {
  const std::ptrdiff_t before = newBlocksInUse();
  ScopedJson document(parsed(R"({"a":[1.5,"text"],"b":{"c":null}})"));
  EXPECT_EQ(newBlocksInUse() - before, 1);
  auto* object = recordIn<ObjectValue>(document.get(), JsonKind::object);
  auto* array = recordIn<ArrayValue>(json::member(document.get(), "a"), JsonKind::array);
  ASSERT_TRUE(object != nullptr && array != nullptr);
  EXPECT_EQ(object->values, listBehind(object));
  EXPECT_EQ(array->values, listBehind(array));
}

TEST(ParsedDocument, RepeatedNamesOfAChunkAreOneName) {
  ScopedJson document(parsed(R"([{"first":1.5},{"name":2.5},{"other":3.5,"name":4.5}])"));
  EXPECT_EQ(json::memberName(json::element(document.get(), 1), 0).data(),
            json::memberName(json::element(document.get(), 2), 1).data());
}

// The names that log entries, requests and profiles use. No two of them have the same hash in the builder, so none
// displaces another.
TEST(ParsedDocument, EachOfTheNamesOfThisProgramIsKeptOnceInAChunk) {
  const char* const names[] = {"command",   "parameters", "name", "uri",   "port",   "priority", "cacert", "location",
                               "log_level", "dir",        "file", "errno", "errmsg", "status",   "list",   "result"};
  std::string object;
  for (const char* name : names) object += (object.empty() ? "" : ",") + std::string(name) + ":1";
  const ScopedJson document(parsed("[1.5,{" + object + "},{" + object + "}]"));
  for (std::size_t at = 0; at < std::size(names); ++at) {
    EXPECT_EQ(json::memberName(json::element(document.get(), 1), at).data(),
              json::memberName(json::element(document.get(), 2), at).data())
        << names[at];
  }
}

// The number of blocks that parsing the text allocates.
std::ptrdiff_t blocksToParse(const std::string& text) {
  const std::ptrdiff_t before = newBlocksSoFar();
  const ScopedJson document(parsed(text));
  EXPECT_TRUE(document) << text;
  return newBlocksSoFar() - before;
}

// The lists of a builder have room for the open containers and for the entries of a usual document.
TEST(ParsedDocument, ListsOfTheBuilderGrowOnlyForALargeDocument) {
  const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
  EXPECT_EQ(blocksToParse(nested(8)), blocksToParse("[]"));
  EXPECT_EQ(blocksToParse(nested(9)), blocksToParse("[]") + 1);
  const auto listOf = [](std::size_t entries) {
    std::string text = "[1";
    while (--entries != 0) text += ",1";
    return text + "]";
  };
  EXPECT_EQ(blocksToParse(listOf(64)), blocksToParse("[]"));
  EXPECT_EQ(blocksToParse(listOf(65)), blocksToParse("[]") + 1);
}

TEST(ParsedDocument, ContainerHasRoomForItsEntriesAndAnEmptyOneForOne) {
  for (const char* text : {"[1,[]]", "[1,[5]]"}) {
    const ScopedJson document(parsed(text));
    jsObject* array = json::element(document.get(), 1);
    const std::ptrdiff_t before = newBlocksSoFar();
    if (json::isEmpty(array)) json::append(array, json::makeNull());
    EXPECT_EQ(newBlocksSoFar(), before) << text;
    json::append(array, json::makeNull());
    EXPECT_EQ(newBlocksSoFar(), before + 1) << text;
  }
  for (const char* text : {"[1,2,{}]", "[1,2,{a:5}]"}) {
    const ScopedJson document(parsed(text));
    jsObject* object = json::element(document.get(), 2);
    const std::ptrdiff_t before = newBlocksSoFar();
    std::ptrdiff_t names = 0;
    if (json::memberCount(object) == 0) {
      json::setMember(object, "a", json::makeNull());
      ++names;
    }
    EXPECT_EQ(newBlocksSoFar(), before + names) << text;
    json::setMember(object, "b", json::makeNull());
    ++names;
    EXPECT_EQ(newBlocksSoFar(), before + names + 1) << text;
  }
}

TEST(DocumentBuilder, MadeAndClosedValuesBelongToTheCallerUntilTheyAreAdded) {
  DocumentBuilder builder;
  const std::ptrdiff_t before = newBlocksInUse();
  ScopedJson made(builder.makeString("made"));
  builder.open(JsonKind::array);
  builder.add(builder.makeString("inside"));
  ScopedJson closed(builder.close());
  builder.clear();
  builder.seal();
  EXPECT_EQ(written(made.get()), R"("made")");
  EXPECT_EQ(written(closed.get()), R"([ "inside" ])");
  made.reset();
  closed.reset();
  EXPECT_EQ(newBlocksInUse(), before);
}

TEST(DocumentBuilder, ValuesAfterSealLieInAnotherChunk) {
  DocumentBuilder builder;
  const std::ptrdiff_t before = newBlocksInUse();
  ScopedJson first(builder.makeNumber(1.5));
  ScopedJson second(builder.makeNumber(2.5));
  EXPECT_EQ(newBlocksInUse(), before + 1);
  builder.seal();
  ScopedJson third(builder.makeNumber(3.5));
  EXPECT_EQ(newBlocksInUse(), before + 2);
}

// Builds an object of two members and seals the builder.
jsObject* sealedObject(DocumentBuilder& builder, const char* firstName, const char* secondName) {
  builder.open(JsonKind::object);
  for (const char* name : {firstName, secondName}) {
    builder.takeName(name);
    builder.add(builder.makeNumber(1.5));
  }
  jsObject* object = builder.close();
  builder.seal();
  return object;
}

TEST(DocumentBuilder, NamesAfterSealLieInAnotherChunk) {
  const std::ptrdiff_t before = newBlocksInUse();
  {
    DocumentBuilder builder;
    const std::ptrdiff_t ofEmptyBuilder = newBlocksInUse();
    ScopedJson first(sealedObject(builder, "a", "port"));
    ScopedJson second(sealedObject(builder, "port", "a"));
    EXPECT_NE(json::memberName(second.get(), 0).data(), json::memberName(first.get(), 1).data());
    EXPECT_EQ(newBlocksInUse(), ofEmptyBuilder + 2);
    second.reset();
    EXPECT_EQ(newBlocksInUse(), ofEmptyBuilder + 1);
    EXPECT_EQ(written(first.get()), R"({ "a":1.500000, "port":1.500000 })");
  }
  EXPECT_EQ(newBlocksInUse(), before);
}

TEST(DocumentBuilder, NamesOfAReleasedDocumentAreNotUsedAgain) {
  DocumentBuilder builder;
  json::release(sealedObject(builder, "a", "port"));
  const ScopedJson object(sealedObject(builder, "port", "a"));
  EXPECT_EQ(written(object.get()), R"({ "port":1.500000, "a":1.500000 })");
}

#ifdef __has_feature
#if __has_feature(address_sanitizer)
#define RAVCTL_ADDRESS_SANITIZER
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(RAVCTL_ADDRESS_SANITIZER)
TEST(ParsedDocumentDeathTest, AddressSanitizerReportsTheUseOfAReleasedValue) {
  ScopedJson document(parsed("[1.5,2.5]"));
  jsObject* value = json::removeLast(document.get());
  json::release(value);
  EXPECT_DEATH((void)json::numberOf(value), "use-after-poison");
}
#endif

}  // namespace
