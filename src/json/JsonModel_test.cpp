#include "json/JsonModel.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "json/JsonParser.h"
#include "json/JsonRecords.h"
#include "json/JsonWriter.h"

using namespace std::string_literals;

namespace {

// The text of a value, which this function releases.
std::string written(jsObject* owned) {
  ScopedJson value(owned);
  std::string text;
  return json::write(text, value.get());
}

// --- Kinds

TEST(JsonKinds, HaveFixedNumbersInTheFirst32BitsOfAValue) {
  const JsonKind kinds[] = {JsonKind::invalid, JsonKind::null,  JsonKind::boolean, JsonKind::number,
                            JsonKind::string,  JsonKind::array, JsonKind::object};
  for (std::int32_t number = 0; number <= 6; ++number) {
    ScopedJson value(json::makeOfKind(number));
    EXPECT_EQ(static_cast<std::int32_t>(kinds[number]), number);
    EXPECT_EQ(jsObject::kindOf(number), kinds[number]);
    EXPECT_EQ(value->kind(), kinds[number]);
    EXPECT_EQ(*reinterpret_cast<const std::int32_t*>(value.get()), number);
  }
  for (std::int32_t number : {7, -1, 256 + 3, std::numeric_limits<std::int32_t>::min()}) {
    ScopedJson value(json::makeOfKind(number));
    EXPECT_EQ(value->kind(), JsonKind::invalid) << number;
    EXPECT_EQ(jsObject::kindOf(number), JsonKind::invalid) << number;
  }
}

TEST(JsonKinds, MakeOfKindMakesTheEmptyValue) {
  EXPECT_EQ(json::makeOfKind(1), json::makeNull());
  EXPECT_EQ(json::makeOfKind(2), json::makeBoolean(false));
  EXPECT_EQ(json::makeOfKind(3), json::makeNumber(0));
  EXPECT_EQ(json::makeOfKind(4), json::makeString(""));
  EXPECT_EQ(written(json::makeOfKind(5)), "[ ]");
  EXPECT_EQ(written(json::makeOfKind(6)), "{ }");
}

TEST(JsonKinds, TestsAndCastsAgreeWithTheKind) {
  const std::vector<bool (*)(const jsObject*)> tests = {json::isNull,   json::isBoolean, json::isNumber,
                                                        json::isString, json::isArray,   json::isObject};
  const std::vector<jsObject* (*)(jsObject*)> casts = {json::asNull,   json::asBoolean, json::asNumber,
                                                       json::asString, json::asArray,   json::asObject};
  for (std::size_t at = 0; at < tests.size(); ++at) {
    for (std::int32_t kind = 0; kind <= 6; ++kind) {
      ScopedJson value(json::makeOfKind(kind));
      const bool same = static_cast<std::int32_t>(at) + 1 == kind;
      EXPECT_EQ(tests[at](value.get()), same) << kind << " " << at;
      EXPECT_EQ(casts[at](value.get()), same ? value.get() : nullptr) << kind << " " << at;
    }
    EXPECT_FALSE(tests[at](nullptr));
    EXPECT_EQ(casts[at](nullptr), nullptr);
  }
}

// --- Shared values and factories

TEST(JsonFactories, SharedValuesExistOnceAndReleaseDoesNothingToThem) {
  struct Case {
    const char* why;
    jsObject* (*make)();
    JsonKind kind;
    bool boolean;
    double number;
  };
  const Case cases[] = {
      {"null", json::makeNull, JsonKind::null, false, 0},
      {"true", [] { return json::makeBoolean(true); }, JsonKind::boolean, true, 0},
      {"false", [] { return json::makeBoolean(false); }, JsonKind::boolean, false, 0},
      {"minus one", [] { return json::makeNumber(-1); }, JsonKind::number, false, -1},
      {"zero", [] { return json::makeNumber(0); }, JsonKind::number, false, 0},
      {"one", [] { return json::makeNumber(1); }, JsonKind::number, false, 1},
      {"two", [] { return json::makeNumber(2); }, JsonKind::number, false, 2},
      {"the empty string", [] { return json::makeString(""); }, JsonKind::string, false, 0},
      {"a string whose pointer is null", [] { return json::makeString(std::string_view()); }, JsonKind::string, false,
       0},
  };
  json::release(nullptr);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    jsObject* value = c.make();
    for (int time = 0; time < 3; ++time) json::release(value);
    EXPECT_EQ(c.make(), value);
    EXPECT_EQ(value->kind(), c.kind);
    EXPECT_EQ(json::booleanOf(value), c.boolean);
    EXPECT_EQ(json::numberOf(value), c.number);
    EXPECT_EQ(json::textOf(value), "");
    EXPECT_EQ(json::textOf(value).data()[0], '\0');
  }
  EXPECT_EQ(json::makeNumber(-0.0), json::makeNumber(0)) << "minus zero is the shared zero";
  EXPECT_EQ(json::makeString(std::string_view()), json::makeString(""));
}

TEST(JsonFactories, NumbersWithoutASharedValueAreNewValues) {
  for (double number : {1.5, -2.0, 3.0, 1.0000000000000002, -1.0000000000000002, std::nan("")}) {
    ScopedJson first(json::makeNumber(number));
    ScopedJson second(json::makeNumber(number));
    EXPECT_NE(first.get(), second.get());
    const double kept = json::numberOf(first.get());
    EXPECT_TRUE(std::isnan(number) ? std::isnan(kept) : kept == number) << number << " became " << kept;
  }
}

TEST(JsonFactories, StringIsANewCopyOfEveryByteAndEndsWithAZeroByte) {
  const std::string bytes = "a\0b\xC3\xA4\xFF"s;
  std::string source = bytes;
  ScopedJson first(json::makeString(source));
  ScopedJson second(json::makeString(source));
  EXPECT_NE(first.get(), second.get());
  source.assign(bytes.size(), 'x');
  EXPECT_EQ(json::textOf(first.get()), bytes);
  EXPECT_EQ(json::textOf(first.get()).data()[bytes.size()], '\0');
}

TEST(JsonFactories, ContainersAreAlwaysNewAndEmpty) {
  for (jsObject* (*make)() : {json::makeArray, json::makeObject}) {
    ScopedJson first(make());
    ScopedJson second(make());
    EXPECT_NE(first.get(), second.get());
    EXPECT_TRUE(json::isEmpty(first.get()));
    EXPECT_EQ(json::memberCount(first.get()), 0u);
  }
}

TEST(JsonRelease, SharedValuesMayBeInAContainerManyTimes) {
  ScopedJson array(json::makeArray());
  for (int time = 0; time < 3; ++time) {
    json::append(array.get(), json::makeNull());
    json::append(array.get(), json::makeNumber(2));
    json::append(array.get(), json::makeString(""));
  }
  EXPECT_EQ(json::elementCount(array.get()), 9u);
}

TEST(ScopedJsonGuard, ReleasesTheWholeTreeUnlessItIsTaken) {
  jsObject* taken = nullptr;
  {
    ScopedJson kept(json::parse(R"({"a":["b"]})"));
    ScopedJson given(json::parse(R"({"a":["b"]})"));
    taken = given.take();
  }
  EXPECT_EQ(written(taken), R"({ "a":[ "b" ] })");
}

// --- Scalars

// The integer value is the number plus a half, truncated toward zero, within the 32-bit range. A number is integral if
// it is less than 0.00001 away from its integer value. The writer writes an integral number as its integer value, and
// any other number with six decimals.
TEST(JsonNumbers, AreIntegralAndWrittenAsIntegersIfTheyAreCloseToTheirIntegerValue) {
  constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
  constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
  constexpr double infinity = std::numeric_limits<double>::infinity();
  struct Case {
    const char* why;
    double number;
    std::int32_t integer;
    bool isIntegral;
    const char* text;
  };
  // Where sums have more bits than a double, 0.99999 + 0.00001 is a little more than 1.
  constexpr bool kHasMoreBits = FLT_EVAL_METHOD != 0;
  const Case cases[] = {
      {"a shared whole number", 1, 1, true, "1"},
      {"a whole number", 3, 3, true, "3"},
      {"a whole number of two digits", 42, 42, true, "42"},
      {"a whole number of seven digits", 1000000, 1000000, true, "1000000"},
      {"zero", 0, 0, true, "0"},
      {"minus zero", -0.0, 0, true, "0"},
      {"just above a whole number", 3.000001, 3, true, "3"},
      {"closer than the last decimal", 1.0000005, 1, true, "1"},
      {"almost zero", 0.0000004, 0, true, "0"},
      {"just below a whole number", 2.999999, 3, true, "3"},
      {"too far above a whole number", 3.00002, 3, false, "3.000020"},
      {"too far above zero", 0.00002, 0, false, "0.000020"},
      {"too far below a whole number", 2.99998, 3, false, "2.999980"},
      {"0.00001 above a whole number", 1.00001, 1, false, "1.000010"},
      {"0.00001 below a whole number", 0.99999, 1, kHasMoreBits, kHasMoreBits ? "1" : "0.999990"},
      {"a tenth", 0.1, 0, false, "0.100000"},
      {"a fraction below a half", 2.4, 2, false, "2.400000"},
      {"a half", 2.5, 3, false, "2.500000"},
      {"a fraction above a half", 2.6, 3, false, "2.600000"},
      {"almost a half", 0.49, 0, false, "0.490000"},
      {"a half of the last decimal is rounded down to an even digit", 0.0078125, 0, false, "0.007812"},
      {"a half of the last decimal is rounded up to an even digit", 0.0234375, 0, false, "0.023438"},
      {"almost zero from below", -0.000001, 0, true, "0"},
      {"a negative fraction above minus a half", -0.4, 0, false, "-0.400000"},
      {"minus a half", -0.5, 0, false, "-0.500000"},
      {"minus one has the integer value 0", -1, 0, false, "-1.000000"},
      {"a negative whole number has another integer value", -2, -1, false, "-2.000000"},
      {"a negative half", -2.5, -2, false, "-2.500000"},
      {"a negative fraction", -2.6, -2, false, "-2.600000"},
      {"the largest 32-bit integer", 2147483647, most, true, "2147483647"},
      {"a fraction above the largest 32-bit integer", 2147483647.4, most, false, "2147483647.400000"},
      {"a half above the largest 32-bit integer", 2147483647.5, most, false, "2147483647.500000"},
      {"one more than the largest 32-bit integer", 2147483648.0, most, false, "2147483648.000000"},
      {"far above the 32-bit range", 1e10, most, false, "10000000000.000000"},
      {"a large number", 1e22, most, false, "10000000000000000000000.000000"},
      {"infinity", infinity, most, false, "inf"},
      {"the smallest 32-bit integer", -2147483648.0, -2147483647, false, "-2147483648.000000"},
      {"two less than the smallest 32-bit integer", -2147483650.0, least, false, "-2147483650.000000"},
      {"far below the 32-bit range", -1e10, least, false, "-10000000000.000000"},
      {"minus infinity", -infinity, least, false, "-inf"},
      {"NaN", std::nan(""), 0, false, "nan"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    ScopedJson value(json::makeNumber(c.number));
    EXPECT_EQ(json::integerOf(value.get()), c.integer);
    EXPECT_EQ(json::isIntegral(value.get()), c.isIntegral);
    EXPECT_EQ(written(value.take()), c.text);
  }
  for (double huge : {1e300, -1e300}) {
    ScopedJson value(json::makeNumber(huge));
    EXPECT_EQ(json::integerOf(value.get()), huge > 0 ? most : least);
  }
}

TEST(JsonScalars, FunctionsReturnZeroFalseOrEmptyForOtherKinds) {
  ScopedJson array(json::makeArray());
  for (const jsObject* value : {static_cast<const jsObject*>(nullptr), static_cast<const jsObject*>(array.get())}) {
    EXPECT_FALSE(json::booleanOf(value));
    EXPECT_EQ(json::numberOf(value), 0);
    EXPECT_EQ(json::integerOf(value), 0);
    EXPECT_FALSE(json::isIntegral(value));
    EXPECT_EQ(json::textOf(value), "");
    EXPECT_NE(json::textOf(value).data(), nullptr);
  }
}

// --- Objects

TEST(JsonObjects, NamesAndValuesBeyondTheCountAreNull) {
  ScopedJson object(json::parse(R"({"a":"x","b":"y"})"));
  EXPECT_EQ(json::memberCount(object.get()), 2u);
  EXPECT_EQ(json::memberName(object.get(), 1), "b");
  EXPECT_EQ(json::memberName(object.get(), 1).data()[1], '\0');
  EXPECT_EQ(json::textOf(json::memberValue(object.get(), 1)), "y");
  for (std::size_t outside : {std::size_t{2}, static_cast<std::size_t>(-1)}) {
    EXPECT_EQ(json::memberName(object.get(), outside).data(), nullptr);
    EXPECT_EQ(json::memberValue(object.get(), outside), nullptr);
  }
}

TEST(JsonObjects, FindComparesEveryByteAndFindIgnoringCaseReturnsTheFirstMatch) {
  ScopedJson object(json::makeObject());
  const std::string names[] = {"Name", "name", "na", "na\0me"s, "\xC3\x84", "a@b", "[z"};
  for (int at = 0; at < 7; ++at) json::setMember(object.get(), names[at], json::makeNumber(at));
  struct Case {
    const char* why;
    std::string name;
    std::ptrdiff_t found, foundIgnoringCase;
  };
  const Case cases[] = {
      {"the first name", "Name", 0, 0},
      {"a name that differs from the first one only in its case", "name", 1, 0},
      {"a name in another case", "NAME", -1, 0},
      {"a name that is the start of others", "na", 2, 2},
      {"an absent name that is the start of others", "nam", -1, -1},
      {"a longer name", "names", -1, -1},
      {"a name with a zero byte", "na\0me"s, 3, 3},
      {"another byte after a zero byte", "na\0mf"s, -1, -1},
      {"bytes above 127 have no case", "\xC3\xA4", -1, -1},
      {"letters beside a character that has no case", "A@B", -1, 5},
      {"the character that is 32 above @", "a`b", -1, -1},
      {"the character that is 32 above [", "{Z", -1, -1},
      {"the empty name", "", -1, -1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const std::string longer = c.name + "s";  // no function may read the byte after the name
    const std::string_view name(longer.data(), c.name.size());
    EXPECT_EQ(json::findMember(object.get(), name), c.found);
    EXPECT_EQ(json::findMemberIgnoringCase(object.get(), name), c.foundIgnoringCase);
    EXPECT_EQ(json::member(object.get(), name) == nullptr, c.found < 0);
    EXPECT_EQ(json::numberOf(json::member(object.get(), name)), c.found < 0 ? 0 : c.found);
  }
  const char* const noName = nullptr;
  EXPECT_EQ(json::findMember(object.get(), noName), -1);
  EXPECT_EQ(json::findMemberIgnoringCase(object.get(), noName), -1);
  EXPECT_EQ(json::member(object.get(), noName), nullptr);
  EXPECT_EQ(json::removeMember(object.get(), noName), nullptr);
  EXPECT_EQ(json::setText(object.get(), noName, "x"), nullptr);
  EXPECT_EQ(json::findMember(object.get(), std::string_view()), -1);
  EXPECT_EQ(json::findMember(nullptr, "Name"), -1);
  EXPECT_EQ(json::findMemberIgnoringCase(nullptr, "name"), -1);
}

TEST(JsonObjects, SettingAMemberAddsReplacesOrRemovesIt) {
  struct Case {
    const char* why;
    const char* name;
    const char* value;  // the JSON text of the value, or null for a null pointer
    const char* written;
  };
  const Case cases[] = {
      {"a new member is added at the end", "d", "null", R"({ "a":5, "b":6, "c":7, "d":null })"},
      {"a replaced member keeps its index", "a", "9", R"({ "a":9, "b":6, "c":7 })"},
      {"the null value keeps the member", "a", "null", R"({ "a":null, "b":6, "c":7 })"},
      {"a null pointer moves the last member to the index of the removed one", "a", nullptr, R"({ "c":7, "b":6 })"},
      {"a null pointer removes the last member", "c", nullptr, R"({ "a":5, "b":6 })"},
      {"a null pointer under an absent name changes nothing", "x", nullptr, R"({ "a":5, "b":6, "c":7 })"},
      {"an empty name changes nothing", "", "[9]", R"({ "a":5, "b":6, "c":7 })"},
      {"a null name changes nothing", nullptr, "[9]", R"({ "a":5, "b":6, "c":7 })"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    jsObject* object = json::parse(R"({"a":5,"b":6,"c":7})");
    json::setMember(object, c.name, json::parse(c.value));
    EXPECT_EQ(written(object), c.written);
  }
}

TEST(JsonObjects, ArgumentsMayBeViewsIntoTheObject) {
  jsObject* object = json::parse(R"({"a":"text","b":6})");
  json::setText(object, json::memberName(object, 0), json::textOf(json::member(object, "a")));
  EXPECT_EQ(json::textOf(json::member(object, "a")), "text");
  json::setMember(object, json::memberName(object, 0), nullptr);
  EXPECT_EQ(written(object), R"({ "b":6 })");
}

TEST(JsonObjects, SetTextReturnsTheNewValueOrNullForAnEmptyName) {
  jsObject* object = json::makeObject();
  jsObject* set = json::setText(object, "a", "text");
  EXPECT_EQ(json::textOf(set), "text");
  EXPECT_EQ(json::member(object, "a"), set);
  EXPECT_EQ(json::setText(object, "a", ""), json::makeString(""));
  EXPECT_EQ(json::setText(object, "", "text"), nullptr);
  EXPECT_EQ(json::setText(nullptr, "a", "text"), nullptr);
  EXPECT_EQ(written(object), R"({ "a":"" })");
}

TEST(JsonObjects, RemoveReturnsTheValueToTheCaller) {
  jsObject* object = json::parse(R"({"a":5,"b":"x","c":7})");
  EXPECT_EQ(written(json::removeMember(object, "b")), R"("x")");
  for (const char* absent : {"b", "A", ""}) EXPECT_EQ(json::removeMember(object, absent), nullptr) << absent;
  EXPECT_EQ(json::removeMember(nullptr, "a"), nullptr);
  EXPECT_EQ(written(object), R"({ "a":5, "c":7 })");
}

TEST(JsonObjects, ObjectFunctionsChangeNothingInOtherKinds) {
  ScopedJson array(json::parse(R"(["a"])"));
  for (jsObject* value : {static_cast<jsObject*>(nullptr), array.get(), json::makeNull()}) {
    json::setMember(value, "a", json::makeString("released"));
    EXPECT_EQ(json::setText(value, "a", "text"), nullptr);
    EXPECT_EQ(json::memberCount(value), 0u);
    EXPECT_EQ(json::memberName(value, 0).data(), nullptr);
    EXPECT_EQ(json::memberValue(value, 0), nullptr);
    EXPECT_EQ(json::findMember(value, "a"), json::notFound);
    EXPECT_EQ(json::findMemberIgnoringCase(value, "a"), json::notFound);
    EXPECT_EQ(json::member(value, "a"), nullptr);
    EXPECT_EQ(json::removeMember(value, "a"), nullptr);
  }
  EXPECT_EQ(written(array.take()), R"([ "a" ])");
}

// --- Large objects, which have an index

TEST(LargeJsonObjects, KeepOrderAndLookupWhenTheIndexIsBuilt) {
  ScopedJson object(json::makeObject());
  for (int count = 0; count < 100; ++count) {
    const std::string name = "m" + std::to_string(count);
    EXPECT_EQ(json::findMember(object.get(), name), -1);
    json::setMember(object.get(), name, json::makeNumber(count));
    for (int at = 0; at <= count; ++at) {
      ASSERT_EQ(json::findMember(object.get(), "m" + std::to_string(at)), at) << count;
    }
  }
  EXPECT_EQ(json::findMember(object.get(), ""), -1);
  EXPECT_EQ(json::findMemberIgnoringCase(object.get(), "M99"), 99);
}

// A model of an object: the same behaviour without an index.
struct PlainModel {
  std::vector<std::pair<std::string, double>> members;

  std::ptrdiff_t find(const std::string& name) const {
    for (std::size_t at = 0; at < members.size(); ++at) {
      if (members[at].first == name) return static_cast<std::ptrdiff_t>(at);
    }
    return -1;
  }
  void set(const std::string& name, double value) {
    const std::ptrdiff_t at = find(name);
    if (at < 0) {
      members.emplace_back(name, value);
    } else {
      members[static_cast<std::size_t>(at)].second = value;
    }
  }
  void remove(const std::string& name) {
    const std::ptrdiff_t at = find(name);
    if (at < 0) return;
    members[static_cast<std::size_t>(at)] = members.back();
    members.pop_back();
  }
};

void expectSame(const jsObject* object, const PlainModel& model) {
  ASSERT_EQ(json::memberCount(object), model.members.size());
  for (std::size_t at = 0; at < model.members.size(); ++at) {
    ASSERT_EQ(json::memberName(object, at), model.members[at].first);
    ASSERT_EQ(json::numberOf(json::memberValue(object, at)), model.members[at].second);
    ASSERT_EQ(json::findMember(object, model.members[at].first), static_cast<std::ptrdiff_t>(at));
  }
}

class LargeJsonObjectsAtRandom : public testing::TestWithParam<unsigned> {};

TEST_P(LargeJsonObjectsAtRandom, AgreeWithAPlainModel) {
  std::mt19937 random(GetParam());
  const std::string prefix(GetParam() % 2 == 0 ? 0 : 300, 'p');
  const unsigned names = GetParam() < 4 ? 30 : 700;
  ScopedJson object(json::makeObject());
  PlainModel model;
  for (int step = 0; step < 6000; ++step) {
    const std::string name = prefix + std::to_string(random() % names);
    const double value = step + 0.5;
    const auto choice = random() % (step / 1000 % 2 == 0 ? 4 : 2);  // the object grows for 1000 steps, then shrinks
    if (choice > 1 || (choice == 1 && step % 3 != 0)) {
      json::setMember(object.get(), name, json::makeNumber(value));
      model.set(name, value);
    } else {
      if (choice == 0) json::release(json::removeMember(object.get(), name));
      if (choice == 1) json::setMember(object.get(), name, nullptr);
      model.remove(name);
    }
    ASSERT_EQ(json::findMember(object.get(), name), model.find(name));
    if (step % 500 == 0) expectSame(object.get(), model);
  }
  expectSame(object.get(), model);
  while (!model.members.empty()) {
    const std::string name = model.members[random() % model.members.size()].first;
    json::setMember(object.get(), name, nullptr);
    model.remove(name);
  }
  EXPECT_EQ(json::memberCount(object.get()), 0u);
  json::setText(object.get(), "again", "usable");
  EXPECT_EQ(json::findMember(object.get(), "again"), 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, LargeJsonObjectsAtRandom, testing::Range(0u, 8u));

// --- Arrays

TEST(JsonArrays, ElementsKeepTheirOrderAndAreNullBeyondTheCount) {
  ScopedJson array(json::parse(R"(["a"])"));
  json::append(array.get(), json::makeString("b"));
  EXPECT_EQ(json::elementCount(array.get()), 2u);
  EXPECT_FALSE(json::isEmpty(array.get()));
  EXPECT_EQ(json::textOf(json::element(array.get(), 0)), "a");
  EXPECT_EQ(json::textOf(json::element(array.get(), 1)), "b");
  EXPECT_EQ(json::element(array.get(), 2), nullptr);
  EXPECT_EQ(json::element(array.get(), static_cast<std::size_t>(-1)), nullptr);
}

TEST(JsonArrays, NullPointerBecomesTheSharedNull) {
  ScopedJson array(json::makeArray());
  json::append(array.get(), nullptr);
  json::append(array.get(), json::makeString("b"));
  json::setElement(array.get(), 1, nullptr);
  json::setElement(array.get(), 2, nullptr);
  ASSERT_EQ(json::elementCount(array.get()), 3u);
  for (std::size_t at = 0; at < 3; ++at) EXPECT_EQ(json::element(array.get(), at), json::makeNull());
}

TEST(JsonArrays, SettingReplacesBelowTheCountAppendsAtItAndReleasesBeyondIt) {
  struct Case {
    std::size_t index;
    const char* written;
  };
  const Case cases[] = {
      {0, R"([ "new", "b", "c" ])"}, {1, R"([ "a", "new", "c" ])"},
      {2, R"([ "a", "b", "new" ])"}, {3, R"([ "a", "b", "c", "new" ])"},
      {4, R"([ "a", "b", "c" ])"},   {static_cast<std::size_t>(-1), R"([ "a", "b", "c" ])"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.index);
    jsObject* array = json::parse(R"(["a","b","c"])");
    json::setElement(array, c.index, json::makeString("new"));
    EXPECT_EQ(written(array), c.written);
  }
}

TEST(JsonContainers, SettingTheCurrentValueChangesNothing) {
  jsObject* object = json::parse(R"({"a":"x","b":"y"})");
  jsObject* value = json::member(object, "a");
  json::setMember(object, "a", value);
  EXPECT_EQ(json::member(object, "a"), value);
  EXPECT_EQ(written(object), R"({ "a":"x", "b":"y" })");
  jsObject* array = json::parse(R"(["a","b"])");
  jsObject* first = json::element(array, 0);
  json::setElement(array, 0, first);
  EXPECT_EQ(json::element(array, 0), first);
  EXPECT_EQ(written(array), R"([ "a", "b" ])");
}

TEST(JsonArrays, RemovalReturnsTheElementAndShiftsTheLaterOnesDown) {
  jsObject* array = json::parse(R"(["a","b","c","d"])");
  EXPECT_EQ(written(json::removeElement(array, 1)), R"("b")");
  EXPECT_EQ(json::removeElement(array, 3), nullptr);
  EXPECT_EQ(json::removeElement(array, static_cast<std::size_t>(-1)), nullptr);
  EXPECT_EQ(written(json::removeLast(array)), R"("d")");
  EXPECT_EQ(written(array), R"([ "a", "c" ])");
}

TEST(JsonArrays, RemoveLastReturnsNullOnceTheArrayIsEmpty) {
  ScopedJson array(json::parse(R"(["a"])"));
  EXPECT_EQ(written(json::removeLast(array.get())), R"("a")");
  EXPECT_EQ(json::removeLast(array.get()), nullptr);
  EXPECT_TRUE(json::isEmpty(array.get()));
}

TEST(JsonArrays, AppendObjectReturnsTheNewObject) {
  ScopedJson array(json::parse(R"(["a"])"));
  jsObject* record = json::appendObject(array.get());
  EXPECT_EQ(json::element(array.get(), 1), record);
  EXPECT_TRUE(json::isObject(record));
  EXPECT_EQ(json::memberCount(record), 0u);
  EXPECT_EQ(json::appendObject(record), nullptr);
  EXPECT_EQ(json::appendObject(nullptr), nullptr);
}

TEST(JsonArrays, ArrayFunctionsChangeNothingInOtherKinds) {
  ScopedJson object(json::makeObject());
  for (jsObject* value : {static_cast<jsObject*>(nullptr), object.get(), json::makeNull()}) {
    json::append(value, json::makeString("released"));
    json::setElement(value, 0, json::makeString("released"));
    EXPECT_EQ(json::elementCount(value), 0u);
    EXPECT_TRUE(json::isEmpty(value));
    EXPECT_EQ(json::element(value, 0), nullptr);
    EXPECT_EQ(json::removeElement(value, 0), nullptr);
    EXPECT_EQ(json::removeLast(value), nullptr);
  }
}

// --- Pointers and views that a caller keeps

TEST(JsonContainers, TextsAndNamesStayInPlaceWhileOtherMembersChange) {
  ScopedJson object(json::parse(R"({"first":"x","name":"text"})"));
  const std::string_view name = json::memberName(object.get(), 1);
  const std::string_view text = json::textOf(json::member(object.get(), "name"));
  for (int at = 0; at < 100; ++at) json::setText(object.get(), std::to_string(at), "other");
  for (int at = 0; at < 100; at += 3) json::setText(object.get(), std::to_string(at), "replaced");
  for (int at = 0; at < 100; ++at) json::setMember(object.get(), std::to_string(at), nullptr);
  json::setMember(object.get(), "first", nullptr);
  ASSERT_EQ(json::memberCount(object.get()), 1u);
  EXPECT_EQ(json::textOf(json::memberValue(object.get(), 0)).data(), text.data());
  EXPECT_EQ(text, "text");
  json::setText(object.get(), "name", "replaced");
  EXPECT_EQ(json::memberName(object.get(), 0).data(), name.data());
  EXPECT_EQ(name, "name");
}

TEST(JsonContainers, SharedValuesAreNotChangedWhileTheyAreInContainers) {
  jsObject* const shared[] = {json::makeNull(),     json::makeBoolean(true), json::makeBoolean(false),
                              json::makeNumber(-1), json::makeNumber(0),     json::makeNumber(1),
                              json::makeNumber(2),  json::makeString("")};
  const auto bytesOf = [](const jsObject* value) {
    const std::size_t size = json::isNumber(value)   ? sizeof(json::NumberValue)
                             : json::isString(value) ? sizeof(json::EmptyString)
                                                     : sizeof(json::BooleanValue);
    return std::string(reinterpret_cast<const char*>(value), json::isNull(value) ? sizeof(json::PlainValue) : size);
  };
  for (jsObject* value : shared) {
    const std::string before = bytesOf(value);
    ScopedJson array(json::makeArray());
    json::append(array.get(), value);
    json::setMember(json::appendObject(array.get()), "a", value);
    json::setElement(array.get(), 2, value);
    EXPECT_EQ(bytesOf(value), before);
    EXPECT_EQ(json::removeLast(array.get()), value);
    array.reset();
    EXPECT_EQ(bytesOf(value), before);
  }
}

}  // namespace
