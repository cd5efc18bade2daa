// JsonModel: a JSON document as a tree of values.
//
//   jsObject* request = json::makeObject();
//   json::setText(request, "method", "list profiles");
//   json::setMember(request, "retries", json::makeNumber(3));
//   jsObject* words = json::makeArray();
//   json::setMember(request, "words", words);          // the request owns the array now
//   json::append(words, json::makeString("list"));
//   ScopedJson document(request);                      // releases the whole tree at the end of the scope
//
// Every value is reached through a `jsObject*` whatever its kind. Every function takes a null pointer and a value of
// another kind than its own: it then answers "nothing" (null, 0, false, an empty text) and changes nothing.
//
// Ownership: what a factory or a remove function returns belongs to the caller. Handing a value to a container gives it
// away, also where the container refuses it (it is then released at once). A value lies in one container at most, and
// in it once; the shared values below may lie anywhere any number of times. Shared values: null, true, false, -1, 0, 1,
// 2 and the empty string exist once and are never freed. Therefore a value is let go with json::release and never with
// delete. Threads: a tree is used by one thread at a time; the shared values are never written. Cost: adding and
// finding a member takes the same time in an object of any size, unless names were made to have one hash; releasing
// needs no memory and no depth of the stack.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "json/ScopedRelease.h"

enum class JsonKind : std::int32_t {
  invalid = 0,
  null = 1,
  boolean = 2,
  number = 3,
  string = 4,
  array = 5,
  object = 6
};

// One value. What follows the kind is known to JsonModel.cpp alone.
class jsObject {
 public:
  jsObject(const jsObject&) = delete;
  jsObject& operator=(const jsObject&) = delete;

  JsonKind kind() const { return kind_; }

  // The kinds 1 to 6 as numbers; any other number is no kind.
  static JsonKind kindOf(std::int32_t number) {
    return number >= 1 && number <= 6 ? static_cast<JsonKind>(number) : JsonKind::invalid;
  }

 protected:
  constexpr explicit jsObject(JsonKind kind) : kind_(kind) {}
  ~jsObject() = default;

  void setKind(std::int32_t number) { kind_ = kindOf(number); }

 private:
  JsonKind kind_;
};

namespace json {

// True only for a value of that kind.
inline bool hasKind(const jsObject* value, JsonKind kind) { return value != nullptr && value->kind() == kind; }
inline bool isNull(const jsObject* value) { return hasKind(value, JsonKind::null); }
inline bool isBoolean(const jsObject* value) { return hasKind(value, JsonKind::boolean); }
inline bool isNumber(const jsObject* value) { return hasKind(value, JsonKind::number); }
inline bool isString(const jsObject* value) { return hasKind(value, JsonKind::string); }
inline bool isArray(const jsObject* value) { return hasKind(value, JsonKind::array); }
inline bool isObject(const jsObject* value) { return hasKind(value, JsonKind::object); }

// The same pointer when the value is of that kind, else null.
inline jsObject* asNull(jsObject* value) { return isNull(value) ? value : nullptr; }
inline jsObject* asBoolean(jsObject* value) { return isBoolean(value) ? value : nullptr; }
inline jsObject* asNumber(jsObject* value) { return isNumber(value) ? value : nullptr; }
inline jsObject* asString(jsObject* value) { return isString(value) ? value : nullptr; }
inline jsObject* asArray(jsObject* value) { return isArray(value) ? value : nullptr; }
inline jsObject* asObject(jsObject* value) { return isObject(value) ? value : nullptr; }

// Factories. Never null.
jsObject* makeNull();                         // always the shared null
jsObject* makeBoolean(bool value);            // always a shared one
jsObject* makeNumber(double value);           // shared when equal to -1, 0, 1 or 2 (-0.0 is equal to 0), else new
jsObject* makeString(std::string_view text);  // a copy, which may hold zero bytes; the empty text is shared
jsObject* makeArray();                        // always new and empty
jsObject* makeObject();                       // always new and empty
// The empty value of a kind given as a number: null, false, 0, "", [ ], { }. Numbers other than 1 to 6 make a new value
// without a kind, of which every test is false and which prints as nothing.
jsObject* makeOfKind(std::int32_t number);

// Frees a value and everything below it. Null and the shared values: does nothing.
void release(jsObject* value);

// ---- Scalars ----

bool booleanOf(const jsObject* value);
double numberOf(const jsObject* value);
// The text, which is followed by a zero byte in memory; valid until the value is released.
std::string_view textOf(const jsObject* value);
// The number plus 0.5, cut toward zero: 2.4 gives 2, 2.6 gives 3, and -2.0 gives -1. Deliberate: see isIntegral.
// Outside the 32-bit range the nearest end of the range, 0 for not-a-number.
std::int32_t integerOf(const jsObject* value);
// Whether the number is within 0.00001 of its integer value. Negative whole numbers are not, because of the cut above;
// that is deliberate, and the writer's output relies on it. Never true outside the 32-bit range.
bool isIntegral(const jsObject* value);

// ---- Objects ----
// Members keep the order in which they were added, but a removal moves the last member into the freed place: a, b, c
// without a is c, b. Deliberate: printed texts follow it. Names are byte strings, unique and never empty.

constexpr std::ptrdiff_t notFound = -1;

std::size_t memberCount(const jsObject* object);
// Empty (with a null pointer) outside 0 to count-1. Followed by a zero byte; valid until the member is removed.
std::string_view memberName(const jsObject* object, std::size_t index);
// Null outside 0 to count-1. Stays owned by the object.
jsObject* memberValue(const jsObject* object, std::size_t index);
// The place of the first member of that name, byte for byte, or notFound (also for the empty name).
std::ptrdiff_t findMember(const jsObject* object, std::string_view name);
// The same, letters A to Z being equal to a to z. Looks at one member after the other.
std::ptrdiff_t findMemberIgnoringCase(const jsObject* object, std::string_view name);
// The value of that name, null without one. Stays owned by the object.
jsObject* member(const jsObject* object, std::string_view name);

// Gives `value` to the object: in the place of the member of that name, whose old value is released, else at the end.
// The value already there stays. An empty name: the value is released. A null pointer as value (not makeNull()):
// the member is removed and released.
void setMember(jsObject* object, std::string_view name, jsObject* value);
// The same with a new string value, which is returned (owned by the object); null under an empty name.
jsObject* setText(jsObject* object, std::string_view name, std::string_view text);
// Takes the member out; its value is the caller's. Null when there is none.
[[nodiscard]] jsObject* removeMember(jsObject* object, std::string_view name);

// ---- Arrays ----

std::size_t elementCount(const jsObject* array);
// Whether there is no element; true as well for what is no array.
bool isEmpty(const jsObject* array);
// Null outside 0 to count-1. Stays owned by the array.
jsObject* element(const jsObject* array, std::size_t index);
// A null pointer appends the shared null.
void append(jsObject* array, jsObject* value);
// Appends a new empty object and returns it (owned by the array).
jsObject* appendObject(jsObject* array);
// Replaces and releases the element there; index == count appends; any other index releases `value`. The value already
// there stays. A null pointer stands for the shared null.
void setElement(jsObject* array, std::size_t index, jsObject* value);
// Takes the element out, the later ones move down one place; it is the caller's. Null outside 0 to count-1.
[[nodiscard]] jsObject* removeElement(jsObject* array, std::size_t index);
// The same for the last element; null when the array is empty.
[[nodiscard]] jsObject* removeLast(jsObject* array);

}  // namespace json

// Owns a document and releases the whole tree at the end of the scope.
class ScopedJson final : public ScopedRelease<jsObject> {
 public:
  using ScopedRelease<jsObject>::ScopedRelease;
  ~ScopedJson() override { reset(); }

 protected:
  void release(jsObject* owned) override { json::release(owned); }
};
