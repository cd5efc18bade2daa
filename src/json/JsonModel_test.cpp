#include "json/JsonModel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace std::string_literals;

namespace {

// The names of an object in their order, joined by commas: "a,b,c".
std::string namesOf(const jsObject* object) {
  std::string names;
  for (std::size_t at = 0; at < json::memberCount(object); ++at) {
    if (at != 0) names += ',';
    names += json::memberName(object, at);
  }
  return names;
}

// The texts of an array of strings in their order, joined by commas.
std::string textsOf(const jsObject* array) {
  std::string texts;
  for (std::size_t at = 0; at < json::elementCount(array); ++at) {
    if (at != 0) texts += ',';
    texts += json::textOf(json::element(array, at));
  }
  return texts;
}

jsObject* objectOf(const std::vector<std::string>& names) {
  jsObject* object = json::makeObject();
  for (const std::string& name : names) json::setText(object, name, "value of " + name);
  return object;
}

jsObject* arrayOf(const std::vector<std::string>& texts) {
  jsObject* array = json::makeArray();
  for (const std::string& text : texts) json::append(array, json::makeString(text));
  return array;
}

// ---- Kinds ----

TEST(JsonKinds, HaveFixedNumbers) {
  EXPECT_EQ(static_cast<int>(JsonKind::invalid), 0);
  EXPECT_EQ(static_cast<int>(JsonKind::null), 1);
  EXPECT_EQ(static_cast<int>(JsonKind::boolean), 2);
  EXPECT_EQ(static_cast<int>(JsonKind::number), 3);
  EXPECT_EQ(static_cast<int>(JsonKind::string), 4);
  EXPECT_EQ(static_cast<int>(JsonKind::array), 5);
  EXPECT_EQ(static_cast<int>(JsonKind::object), 6);
}

TEST(JsonKinds, AreTheFirst32BitsOfAValue) {
  ScopedJson array(json::makeArray());
  EXPECT_EQ(*reinterpret_cast<const std::int32_t*>(array.get()), 5);
}

TEST(JsonKinds, NumbersOutside1To6AreTheInvalidKind) {
  for (std::int32_t number = 1; number <= 6; ++number) {
    ScopedJson value(json::makeOfKind(number));
    EXPECT_EQ(static_cast<std::int32_t>(value->kind()), number);
    EXPECT_EQ(static_cast<std::int32_t>(jsObject::kindOf(number)), number);
  }
  for (std::int32_t number : {0, 7, -1, 256 + 3, std::numeric_limits<std::int32_t>::min()}) {
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
  ScopedJson array(json::makeOfKind(5));
  EXPECT_EQ(json::elementCount(array.get()), 0u);
  ScopedJson object(json::makeOfKind(6));
  EXPECT_EQ(json::memberCount(object.get()), 0u);
}

TEST(JsonKinds, TestsAndCastsAgreeWithTheKind) {
  const std::vector<bool (*)(const jsObject*)> tests = {json::isNull,   json::isBoolean, json::isNumber,
                                                        json::isString, json::isArray,   json::isObject};
  const std::vector<jsObject* (*)(jsObject*)> casts = {json::asNull,   json::asBoolean, json::asNumber,
                                                       json::asString, json::asArray,   json::asObject};
  for (std::int32_t kind = 0; kind <= 6; ++kind) {
    ScopedJson value(json::makeOfKind(kind));
    for (std::size_t at = 0; at < tests.size(); ++at) {
      const bool same = static_cast<std::int32_t>(at) + 1 == kind;
      EXPECT_EQ(tests[at](value.get()), same) << kind << " " << at;
      EXPECT_EQ(casts[at](value.get()), same ? value.get() : nullptr) << kind << " " << at;
    }
  }
  for (std::size_t at = 0; at < tests.size(); ++at) {
    EXPECT_FALSE(tests[at](nullptr));
    EXPECT_EQ(casts[at](nullptr), nullptr);
  }
}

// ---- Shared values and factories ----

TEST(JsonFactories, NullTrueAndFalseAreShared) {
  EXPECT_EQ(json::makeNull(), json::makeNull());
  EXPECT_EQ(json::makeBoolean(true), json::makeBoolean(true));
  EXPECT_EQ(json::makeBoolean(false), json::makeBoolean(false));
  EXPECT_NE(json::makeBoolean(true), json::makeBoolean(false));
  EXPECT_TRUE(json::booleanOf(json::makeBoolean(true)));
  EXPECT_FALSE(json::booleanOf(json::makeBoolean(false)));
}

TEST(JsonFactories, FourNumbersAreSharedAndOthersAreNew) {
  for (double shared : {-1.0, 0.0, 1.0, 2.0}) {
    jsObject* first = json::makeNumber(shared);
    EXPECT_EQ(first, json::makeNumber(shared));
    json::release(first);
    EXPECT_EQ(json::numberOf(first), shared) << "releasing a shared value does nothing";
    EXPECT_TRUE(json::isNumber(first));
  }
  for (double other : {1.5, -2.0, 3.0, 1.0000000000000002, -1.0000000000000002}) {
    ScopedJson first(json::makeNumber(other));
    ScopedJson second(json::makeNumber(other));
    EXPECT_NE(first.get(), second.get());
    EXPECT_EQ(json::numberOf(first.get()), other);
  }
}

TEST(JsonFactories, MinusZeroIsTheSharedZeroAndNanIsNew) {
  EXPECT_EQ(json::makeNumber(-0.0), json::makeNumber(0.0));
  ScopedJson nan(json::makeNumber(std::nan("")));
  ScopedJson other(json::makeNumber(std::nan("")));
  EXPECT_NE(nan.get(), other.get());
  EXPECT_TRUE(std::isnan(json::numberOf(nan.get())));
}

TEST(JsonFactories, EmptyStringIsSharedAndOthersAreCopies) {
  jsObject* empty = json::makeString("");
  EXPECT_EQ(empty, json::makeString(std::string_view()));
  json::release(empty);
  EXPECT_EQ(json::textOf(empty), "");
  EXPECT_TRUE(json::isString(empty));

  std::string text = "lab";
  ScopedJson copy(json::makeString(text));
  ScopedJson other(json::makeString(text));
  EXPECT_NE(copy.get(), other.get());
  text = "changed";
  EXPECT_EQ(json::textOf(copy.get()), "lab");
}

TEST(JsonFactories, ContainersAreAlwaysNewAndEmpty) {
  ScopedJson array(json::makeArray());
  ScopedJson otherArray(json::makeArray());
  EXPECT_NE(array.get(), otherArray.get());
  EXPECT_TRUE(json::isEmpty(array.get()));
  ScopedJson object(json::makeObject());
  ScopedJson otherObject(json::makeObject());
  EXPECT_NE(object.get(), otherObject.get());
  EXPECT_EQ(json::memberCount(object.get()), 0u);
}

TEST(JsonFactories, StringKeepsEveryByteAndEndsWithAZeroByte) {
  const std::string bytes = "a\0b\xC3\xA4\xFF"s;
  ScopedJson value(json::makeString(bytes));
  EXPECT_EQ(json::textOf(value.get()), bytes);
  EXPECT_EQ(json::textOf(value.get()).data()[bytes.size()], '\0');
  EXPECT_EQ(json::textOf(json::makeString("")).data()[0], '\0');
}

TEST(JsonRelease, DoesNothingForNullAndSharedValues) {
  json::release(nullptr);
  for (int time = 0; time < 3; ++time) {
    json::release(json::makeNull());
    json::release(json::makeBoolean(true));
    json::release(json::makeBoolean(false));
  }
  EXPECT_TRUE(json::isNull(json::makeNull()));
  EXPECT_TRUE(json::booleanOf(json::makeBoolean(true)));
  EXPECT_TRUE(json::isBoolean(json::makeBoolean(false)));
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

TEST(JsonRelease, FreesDeepTrees) {
  jsObject* arrays = json::makeArray();
  jsObject* objects = json::makeObject();
  for (int depth = 1; depth < 200000; ++depth) {
    jsObject* array = json::makeArray();
    json::append(array, json::makeString("before"));
    json::append(array, arrays);
    json::append(array, json::makeString("behind"));
    arrays = array;
    jsObject* object = json::makeObject();
    json::setMember(object, "deeper", objects);
    objects = object;
  }
  json::release(arrays);
  json::release(objects);
}

TEST(ScopedJsonGuard, ReleasesTheWholeTreeUnlessItIsTaken) {
  jsObject* taken = nullptr;
  {
    ScopedJson kept(objectOf({"a", "b"}));
    ScopedJson given(objectOf({"a", "b"}));
    taken = given.take();
  }
  EXPECT_EQ(namesOf(taken), "a,b");
  json::release(taken);
}

// ---- Scalars ----

TEST(JsonNumbers, IntegerValueIsTheNumberPlusAHalfTruncatedTowardZero) {
  const std::vector<std::pair<double, int>> cases = {
      {2.4, 2},
      {2.6, 3},
      {2.5, 3},
      {0, 0},
      {0.49, 0},
      {-0.4, 0},
      {-0.5, 0},
      {-1, 0},
      {-2, -1},
      {-2.6, -2},
      {3.000001, 3},
      {2147483647, 2147483647},
      {2147483647.4, 2147483647},
      {-2147483648.0, -2147483647},
  };
  for (const auto& [number, integer] : cases) {
    ScopedJson value(json::makeNumber(number));
    EXPECT_EQ(json::integerOf(value.get()), integer) << number;
  }
}

TEST(JsonNumbers, IntegerValueIsLimitedToThe32BitRange) {
  const double infinity = std::numeric_limits<double>::infinity();
  const std::vector<std::pair<double, std::int32_t>> cases = {
      {2147483647.5, 2147483647},
      {2147483648.0, 2147483647},
      {1e300, 2147483647},
      {infinity, 2147483647},
      {-2147483650.0, -2147483647 - 1},
      {-1e300, -2147483647 - 1},
      {-infinity, -2147483647 - 1},
      {std::nan(""), 0},
  };
  for (const auto& [number, integer] : cases) {
    ScopedJson value(json::makeNumber(number));
    EXPECT_EQ(json::integerOf(value.get()), integer) << number;
  }
}

TEST(JsonNumbers, NumberNearItsIntegerValueIsIntegral) {
  struct Case {
    const char* why;
    double number;
    bool integral;
  };
  const Case cases[] = {
      {"a whole number", 3, true},
      {"zero", 0, true},
      {"just above", 3.000001, true},
      {"just below", 2.999999, true},
      {"too far above", 3.00002, false},
      {"too far below", 2.99998, false},
      {"a fraction", 2.5, false},
      {"a negative whole number has another integer value", -2, false},
      {"minus one has the integer value 0", -1, false},
      {"almost zero from below", -0.000001, true},
      {"the largest 32-bit integer", 2147483647, true},
      {"one more than the largest 32-bit integer", 2147483648.0, false},
      {"the smallest 32-bit integer", -2147483648.0, false},
      {"far above the 32-bit range", 1e10, false},
      {"far below the 32-bit range", -1e10, false},
      {"infinity", std::numeric_limits<double>::infinity(), false},
      {"minus infinity", -std::numeric_limits<double>::infinity(), false},
      {"NaN", std::nan(""), false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    ScopedJson value(json::makeNumber(c.number));
    EXPECT_EQ(json::isIntegral(value.get()), c.integral);
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

// ---- Objects ----

TEST(JsonObjects, NamesAndValuesBeyondTheCountAreNull) {
  ScopedJson object(objectOf({"a", "b"}));
  EXPECT_EQ(json::memberCount(object.get()), 2u);
  EXPECT_EQ(json::memberName(object.get(), 1), "b");
  EXPECT_EQ(json::memberName(object.get(), 1).data()[1], '\0');
  EXPECT_EQ(json::textOf(json::memberValue(object.get(), 1)), "value of b");
  for (std::size_t outside : {std::size_t{2}, static_cast<std::size_t>(-1)}) {
    EXPECT_EQ(json::memberName(object.get(), outside).data(), nullptr);
    EXPECT_EQ(json::memberValue(object.get(), outside), nullptr);
  }
}

TEST(JsonObjects, FindComparesByteForByte) {
  ScopedJson object(objectOf({"Name", "name", "nam", "na\0me"s}));
  EXPECT_EQ(json::findMember(object.get(), "Name"), 0);
  EXPECT_EQ(json::findMember(object.get(), "name"), 1);
  EXPECT_EQ(json::findMember(object.get(), "nam"), 2);
  EXPECT_EQ(json::findMember(object.get(), "na\0me"s), 3);
  EXPECT_EQ(json::findMember(object.get(), "NAME"), -1);
  EXPECT_EQ(json::findMember(object.get(), "names"), -1);
  EXPECT_EQ(json::findMember(object.get(), ""), -1);
  EXPECT_EQ(json::findMember(object.get(), std::string_view()), -1);
  EXPECT_EQ(json::findMember(nullptr, "Name"), -1);
}

TEST(JsonObjects, FindIgnoringCaseReturnsTheFirstMatch) {
  ScopedJson object(objectOf({"Name", "name", "\xC3\x84", "a@b", "[z"}));
  EXPECT_EQ(json::findMemberIgnoringCase(object.get(), "name"), 0);
  EXPECT_EQ(json::findMemberIgnoringCase(object.get(), "NAME"), 0);
  EXPECT_EQ(json::findMemberIgnoringCase(object.get(), "\xC3\xA4"), -1) << "only the letters A to Z have two cases";
  EXPECT_EQ(json::findMemberIgnoringCase(object.get(), "A@B"), 3);
  EXPECT_EQ(json::findMemberIgnoringCase(object.get(), "a`b"), -1);
  EXPECT_EQ(json::findMemberIgnoringCase(object.get(), "{Z"), -1);
  EXPECT_EQ(json::findMemberIgnoringCase(object.get(), "nam"), -1);
  EXPECT_EQ(json::findMemberIgnoringCase(object.get(), ""), -1);
  EXPECT_EQ(json::findMemberIgnoringCase(nullptr, "name"), -1);
}

TEST(JsonObjects, FindIgnoringCaseReadsNoByteAfterTheName) {
  ScopedJson object(json::makeObject());
  json::setMember(object.get(), "Name", json::makeNull());
  const std::string_view longer = "names";
  EXPECT_EQ(json::findMemberIgnoringCase(object.get(), longer.substr(0, 4)), 0);
  EXPECT_EQ(json::findMemberIgnoringCase(object.get(), longer.substr(0, 3)), -1);
  EXPECT_EQ(json::findMemberIgnoringCase(object.get(), longer), -1);
}

TEST(JsonObjects, MemberReturnsTheValueOfThatNameOrNull) {
  ScopedJson object(objectOf({"a"}));
  EXPECT_EQ(json::textOf(json::member(object.get(), "a")), "value of a");
  EXPECT_EQ(json::member(object.get(), "b"), nullptr);
  EXPECT_EQ(json::member(object.get(), ""), nullptr);
}

TEST(JsonObjects, NewMembersAreAppendedAndReplacedOnesKeepTheirIndex) {
  ScopedJson object(objectOf({"a", "b", "c"}));
  json::setMember(object.get(), "a", json::makeNumber(7));
  EXPECT_EQ(namesOf(object.get()), "a,b,c");
  EXPECT_EQ(json::numberOf(json::memberValue(object.get(), 0)), 7);
  json::setMember(object.get(), "d", json::makeNull());
  EXPECT_EQ(namesOf(object.get()), "a,b,c,d");
}

TEST(JsonObjects, SettingUnderAnEmptyNameChangesNothing) {
  ScopedJson object(objectOf({"a"}));
  json::setMember(object.get(), "", json::makeString("released"));
  json::setMember(object.get(), std::string_view(), json::makeArray());
  EXPECT_EQ(namesOf(object.get()), "a");
}

TEST(JsonObjects, SettingANullPointerMovesTheLastMemberToTheIndexOfTheRemovedOne) {
  ScopedJson object(objectOf({"a", "b", "c"}));
  json::setMember(object.get(), "a", nullptr);
  EXPECT_EQ(namesOf(object.get()), "c,b");
  EXPECT_EQ(json::textOf(json::memberValue(object.get(), 0)), "value of c");
  json::setMember(object.get(), "absent", nullptr);
  EXPECT_EQ(namesOf(object.get()), "c,b");
  json::setMember(object.get(), "b", nullptr);
  EXPECT_EQ(namesOf(object.get()), "c");
}

TEST(JsonObjects, SettingTheNullValueKeepsTheMember) {
  ScopedJson object(objectOf({"a", "b"}));
  json::setMember(object.get(), "a", json::makeNull());
  EXPECT_EQ(namesOf(object.get()), "a,b");
  EXPECT_TRUE(json::isNull(json::member(object.get(), "a")));
}

TEST(JsonObjects, SettingTheCurrentValueChangesNothing) {
  ScopedJson object(objectOf({"a", "b"}));
  jsObject* value = json::member(object.get(), "a");
  json::setMember(object.get(), "a", value);
  EXPECT_EQ(json::member(object.get(), "a"), value);
  EXPECT_EQ(json::textOf(value), "value of a");
}

TEST(JsonObjects, SetTextReturnsTheNewValueOrNullForAnEmptyName) {
  ScopedJson object(json::makeObject());
  jsObject* set = json::setText(object.get(), "a", "text");
  EXPECT_EQ(json::textOf(set), "text");
  EXPECT_EQ(json::member(object.get(), "a"), set);
  EXPECT_EQ(json::setText(object.get(), "a", ""), json::makeString(""));
  EXPECT_EQ(json::setText(object.get(), "", "text"), nullptr);
  EXPECT_EQ(json::setText(nullptr, "a", "text"), nullptr);
  EXPECT_EQ(namesOf(object.get()), "a");
}

TEST(JsonObjects, ArgumentsMayBeViewsIntoTheObject) {
  ScopedJson object(objectOf({"a", "b"}));
  json::setText(object.get(), json::memberName(object.get(), 0), json::textOf(json::member(object.get(), "a")));
  EXPECT_EQ(json::textOf(json::member(object.get(), "a")), "value of a");
  json::setMember(object.get(), json::memberName(object.get(), 0), nullptr);
  EXPECT_EQ(namesOf(object.get()), "b");
}

TEST(JsonObjects, RemoveReturnsTheValueToTheCaller) {
  ScopedJson object(objectOf({"a", "b", "c"}));
  ScopedJson removed(json::removeMember(object.get(), "b"));
  EXPECT_EQ(json::textOf(removed.get()), "value of b");
  EXPECT_EQ(namesOf(object.get()), "a,c");
  EXPECT_EQ(json::removeMember(object.get(), "b"), nullptr);
  EXPECT_EQ(json::removeMember(object.get(), "A"), nullptr);
  EXPECT_EQ(json::removeMember(object.get(), ""), nullptr);
  EXPECT_EQ(json::removeMember(nullptr, "a"), nullptr);
}

TEST(JsonObjects, SettingAMemberOfAValueThatIsNoObjectChangesNothing) {
  ScopedJson array(json::makeArray());
  json::setMember(array.get(), "a", json::makeString("released"));
  json::setMember(nullptr, "a", json::makeString("released"));
  EXPECT_EQ(json::memberCount(array.get()), 0u);
  EXPECT_EQ(json::elementCount(array.get()), 0u);
  EXPECT_EQ(json::memberName(array.get(), 0).data(), nullptr);
  EXPECT_EQ(json::memberValue(array.get(), 0), nullptr);
}

// ---- Large objects, which have an index ----

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

// The same behaviour as an object, as simply as possible.
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
    switch (random() % (step / 1000 % 2 == 0 ? 4 : 2)) {  // the object grows for 1000 steps, then shrinks
      case 0:
        json::release(json::removeMember(object.get(), name));
        model.remove(name);
        break;
      case 1:
        json::setMember(object.get(), name, step % 3 == 0 ? nullptr : json::makeNumber(value));
        if (step % 3 == 0) {
          model.remove(name);
        } else {
          model.set(name, value);
        }
        break;
      default:
        json::setMember(object.get(), name, json::makeNumber(value));
        model.set(name, value);
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

// ---- Arrays ----

TEST(JsonArrays, ElementsKeepTheirOrderAndAreNullBeyondTheCount) {
  ScopedJson array(arrayOf({"a", "b", "c"}));
  EXPECT_EQ(json::elementCount(array.get()), 3u);
  EXPECT_FALSE(json::isEmpty(array.get()));
  EXPECT_EQ(textsOf(array.get()), "a,b,c");
  EXPECT_EQ(json::element(array.get(), 3), nullptr);
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
  ScopedJson array(arrayOf({"a", "b", "c"}));
  json::setElement(array.get(), 1, json::makeString("B"));
  EXPECT_EQ(textsOf(array.get()), "a,B,c");
  json::setElement(array.get(), 5, json::makeString("released"));
  EXPECT_EQ(textsOf(array.get()), "a,B,c");
  json::setElement(array.get(), static_cast<std::size_t>(-1), json::makeString("released"));
  EXPECT_EQ(textsOf(array.get()), "a,B,c");
  json::setElement(array.get(), 3, json::makeString("d"));
  EXPECT_EQ(textsOf(array.get()), "a,B,c,d");
}

TEST(JsonArrays, SettingAnElementToItselfChangesNothing) {
  ScopedJson array(arrayOf({"a", "b"}));
  jsObject* first = json::element(array.get(), 0);
  json::setElement(array.get(), 0, first);
  EXPECT_EQ(json::element(array.get(), 0), first);
  EXPECT_EQ(textsOf(array.get()), "a,b");
}

TEST(JsonArrays, RemovalShiftsTheLaterElementsDown) {
  ScopedJson array(arrayOf({"a", "b", "c", "d"}));
  ScopedJson removed(json::removeElement(array.get(), 1));
  EXPECT_EQ(json::textOf(removed.get()), "b");
  EXPECT_EQ(textsOf(array.get()), "a,c,d");
  EXPECT_EQ(json::removeElement(array.get(), 3), nullptr);
  EXPECT_EQ(json::removeElement(array.get(), static_cast<std::size_t>(-1)), nullptr);
  EXPECT_EQ(textsOf(array.get()), "a,c,d");
}

TEST(JsonArrays, RemoveLastReturnsNullOnceTheArrayIsEmpty) {
  ScopedJson array(arrayOf({"a", "b"}));
  ScopedJson last(json::removeLast(array.get()));
  EXPECT_EQ(json::textOf(last.get()), "b");
  ScopedJson first(json::removeLast(array.get()));
  EXPECT_EQ(json::textOf(first.get()), "a");
  EXPECT_EQ(json::removeLast(array.get()), nullptr);
  EXPECT_TRUE(json::isEmpty(array.get()));
}

TEST(JsonArrays, AppendObjectReturnsTheNewObject) {
  ScopedJson array(arrayOf({"a"}));
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

}  // namespace
