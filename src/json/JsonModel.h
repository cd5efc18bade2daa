// JsonModel: a JSON document as a tree of values in memory.
//
//   jsObject* request = json::makeObject();
//   json::setText(request, "method", "list profiles");
//   json::setMember(request, "retries", json::makeNumber(3));
//   jsObject* words = json::makeArray();
//   json::setMember(request, "words", words);          // the request owns the array now
//   json::append(words, json::makeString("list"));
//   ScopedJson document(request);                      // releases the whole tree at the end of the scope
//
// A `jsObject*` points to a value of any kind. Every function accepts a null pointer and a value of the wrong kind. It
// then returns null, 0, false, notFound or an empty text (isEmpty alone returns true), and changes no value.
//
// Ownership: the caller owns what a factory or a remove function returns. A caller that passes a value to a container
// gives it away; a container that refuses a value releases it. A value is in at most one container, and only once.
//
// Shared values: null, true, false, the numbers -1, 0, 1 and 2, and the empty string exist once and are never freed.
// They may be in any number of containers. Because of them, a value must be freed with json::release, never with
// delete.
//
// Memory: a parsed document lies in chunks of at most 64 KiB; large texts and lists may lie outside. A scalar that is
// removed from it keeps at most one chunk until it is released. A container keeps every chunk in which it has a value,
// a name or a list.
//
// Threads: only one thread at a time may use a tree. The shared values are never written to, so that trees of different
// threads may contain them.
//
// Cost: on average, adding and finding a member takes the same time in an object of any size; hash collisions, which
// the author of a document can provoke, make it slower. Releasing a tree neither allocates nor recurses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/text/TextOrNull.h"
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

// The common start of every value. JsonRecords.h defines what follows the kind.
class jsObject {
 public:
  jsObject(const jsObject&) = delete;
  jsObject& operator=(const jsObject&) = delete;

  JsonKind kind() const { return kind_; }

  // Converts a number from 1 to 6 to that kind, any other number to `invalid`.
  static JsonKind kindOf(std::int32_t number) {
    return number >= 1 && number <= 6 ? static_cast<JsonKind>(number) : JsonKind::invalid;
  }

 protected:
  constexpr explicit jsObject(JsonKind kind) : kind_(kind) {}
  ~jsObject() = default;

  // Stores the kind of that number. The access is volatile: otherwise the compiler would leave out the last one, which
  // sets the kind to 0 before the memory is freed.
  void setKind(std::int32_t number) { static_cast<volatile JsonKind&>(kind_) = kindOf(number); }

 private:
  JsonKind kind_;
};

namespace json {

// Return true only if `value` is not null and has that kind.
inline bool hasKind(const jsObject* value, JsonKind kind) { return value != nullptr && value->kind() == kind; }
inline bool isNull(const jsObject* value) { return hasKind(value, JsonKind::null); }
inline bool isBoolean(const jsObject* value) { return hasKind(value, JsonKind::boolean); }
inline bool isNumber(const jsObject* value) { return hasKind(value, JsonKind::number); }
inline bool isString(const jsObject* value) { return hasKind(value, JsonKind::string); }
inline bool isArray(const jsObject* value) { return hasKind(value, JsonKind::array); }
inline bool isObject(const jsObject* value) { return hasKind(value, JsonKind::object); }

// Return the same pointer if the value has that kind, else null.
inline jsObject* asNull(jsObject* value) { return isNull(value) ? value : nullptr; }
inline jsObject* asBoolean(jsObject* value) { return isBoolean(value) ? value : nullptr; }
inline jsObject* asNumber(jsObject* value) { return isNumber(value) ? value : nullptr; }
inline jsObject* asString(jsObject* value) { return isString(value) ? value : nullptr; }
inline jsObject* asArray(jsObject* value) { return isArray(value) ? value : nullptr; }
inline jsObject* asObject(jsObject* value) { return isObject(value) ? value : nullptr; }

// Factories, which never return null.
jsObject* makeNull();                         // always the shared null
jsObject* makeBoolean(bool value);            // always a shared one
jsObject* makeNumber(double value);           // shared if equal to -1, 0, 1 or 2 (-0.0 equals 0), else new
jsObject* makeString(std::string_view text);  // a copy, which may contain zero bytes; the empty string is shared
jsObject* makeArray();                        // always new and empty
jsObject* makeObject();                       // always new and empty
// Makes the empty value of the kind with that number: null, false, 0, "", [ ] or { }. For a number outside 1 to 6 it
// makes a new value of the invalid kind: every is... function returns false for it, and the writer writes nothing.
jsObject* makeOfKind(std::int32_t number);

// Frees a value and everything inside it. Does nothing for a null pointer and for a shared value.
void release(jsObject* value);

// ---- Scalars ----

bool booleanOf(const jsObject* value);
double numberOf(const jsObject* value);
// The text of a string. A zero byte follows it in memory. The view is valid until the value is released.
std::string_view textOf(const jsObject* value);
// The number plus 0.5, truncated toward zero: 2.4 gives 2, 2.6 gives 3, and -2.0 gives -1. That is deliberate: see
// isIntegral. A number beyond the 32-bit range gives the nearest end of the range; NaN gives 0.
std::int32_t integerOf(const jsObject* value);
// Returns true if the number is less than 0.00001 away from integerOf(). A negative whole number is not integral,
// because integerOf() truncates after adding 0.5. That is deliberate: the writer's output relies on it. Returns false
// beyond the 32-bit range.
bool isIntegral(const jsObject* value);

// ---- Objects ----
//
// Members keep the order in which they were added, except that a removal moves the last member to the index of the
// removed one: after a is removed, a, b, c becomes c, b. That is deliberate: the writer prints them in this order.
// Names are byte strings. Within an object they are unique and not empty. A null name counts as an empty one.

constexpr std::ptrdiff_t notFound = -1;

std::size_t memberCount(const jsObject* object);
// The name of the member at `index`, or a view with a null pointer if the index is not below the count. A zero byte
// follows the name in memory. The view is valid until the member is removed or the object is released.
std::string_view memberName(const jsObject* object, std::size_t index);
// Null if the index is not below the count. The object still owns the value.
jsObject* memberValue(const jsObject* object, std::size_t index);
// The index of the member of that name, compared byte for byte, or notFound, which is -1.
std::ptrdiff_t findMember(const jsObject* object, TextOrNull name);
// The index of the first member of that name, or notFound. A to Z and a to z are equal. The search is linear.
std::ptrdiff_t findMemberIgnoringCase(const jsObject* object, TextOrNull name);
// The value of the member of that name, or null. The object still owns the value.
jsObject* member(const jsObject* object, TextOrNull name);

// Gives `value` to the object:
// - If the object has a member of that name, `value` replaces and releases the old value. If `value` is the old value,
//   nothing happens.
// - Otherwise the member is added at the end.
// - If the name is empty, `value` is released.
// - If `value` is a null pointer (not makeNull()), the member is removed and its value released.
void setMember(jsObject* object, TextOrNull name, jsObject* value);
// Sets the member to a new string and returns that string, which the object owns. Returns null if the name is empty.
jsObject* setText(jsObject* object, TextOrNull name, std::string_view text);
// Removes the member and returns its value, which the caller owns. Returns null if there is no such member.
[[nodiscard]] jsObject* removeMember(jsObject* object, TextOrNull name);

// ---- Arrays ----

std::size_t elementCount(const jsObject* array);
// Returns true if the array has no elements, and for a value that is not an array.
bool isEmpty(const jsObject* array);
// Null if the index is not below the count. The array still owns the element.
jsObject* element(const jsObject* array, std::size_t index);
// Adds `value` at the end. A null pointer adds the shared null.
void append(jsObject* array, jsObject* value);
// Appends a new empty object and returns it. The array owns it.
jsObject* appendObject(jsObject* array);
// Gives `value` to the array; a null pointer means the shared null:
// - If the index is below the count, `value` replaces and releases that element. If `value` is that element, nothing
//   happens.
// - If the index equals the count, `value` is appended.
// - Otherwise `value` is released.
void setElement(jsObject* array, std::size_t index, jsObject* value);
// Removes the element and returns it to the caller, who owns it. Each later element moves to the index before. Returns
// null if the index is not below the count.
[[nodiscard]] jsObject* removeElement(jsObject* array, std::size_t index);
// Removes the last element and returns it to the caller, who owns it. Returns null if the array is empty.
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
