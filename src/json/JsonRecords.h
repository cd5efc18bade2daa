// JsonRecords: what lies in memory behind a jsObject*, for the sources that handle every value of a document. All
// others use JsonModel.h.
#pragma once

#include <cstdint>
#include <limits>
#include <string_view>

#include "json/JsonModel.h"
#include "json/MemberIndex.h"

namespace json {

// ---- The record of each kind ----

struct Record : jsObject {
  constexpr explicit Record(JsonKind kind) : jsObject(kind) {}
  using jsObject::setKind;
};

struct PlainValue final : Record {  // null, and what has no kind
  using Record::Record;
};

struct BooleanValue final : Record {
  constexpr explicit BooleanValue(bool given) : Record(JsonKind::boolean), value(given) {}
  bool value;
};

struct NumberValue final : Record {
  constexpr explicit NumberValue(double given) : Record(JsonKind::number), value(given) {}
  double value;
};

// The bytes follow the record in the same block of memory, and a zero byte follows them.
struct StringValue : Record {
  constexpr explicit StringValue(std::size_t given) : Record(JsonKind::string), length(given) {}
  std::size_t length;
  char* bytes() { return reinterpret_cast<char*>(this + 1); }
  const char* bytes() const { return reinterpret_cast<const char*>(this + 1); }
};

struct EmptyString final : StringValue {
  constexpr EmptyString() : StringValue(0) {}
  char terminator = '\0';
};
static_assert(sizeof(EmptyString) > sizeof(StringValue), "the terminator lies where the bytes are looked for");

// A member name: the bytes follow, and a zero byte follows them.
struct Name {
  std::size_t length;
  char* bytes() { return reinterpret_cast<char*>(this + 1); }
  std::string_view text() const { return {reinterpret_cast<const char*>(this + 1), length}; }
};

// Counts have 32 bits: a container may have two thousand million entries.
struct Container : Record {
  using Record::Record;
  std::uint32_t count = 0;
  std::uint32_t capacity = 0;
  jsObject** values = nullptr;
  Container* nextToRelease = nullptr;
};

struct ArrayValue final : Container {
  ArrayValue() : Container(JsonKind::array) {}
  void add(jsObject* value);
};

// The names lie behind the values, in the same block: one list of each, of the same length.
struct ObjectValue final : Container {
  ObjectValue() : Container(JsonKind::object) {}

  Name** names = nullptr;
  MemberIndex* index = nullptr;  // only once there are more members than are quickly looked through

  std::ptrdiff_t find(std::string_view name) const;
  void add(std::string_view name, jsObject* value);
  jsObject* takeOut(std::size_t place);
};

// ---- From the pointer of a caller to the record: null for another kind ----

template <class T>
T* recordIn(jsObject* value, JsonKind kind) {
  return hasKind(value, kind) ? static_cast<T*>(value) : nullptr;
}
template <class T>
const T* recordIn(const jsObject* value, JsonKind kind) {
  return hasKind(value, kind) ? static_cast<const T*>(value) : nullptr;
}

// ---- Numbers: see integerOf and isIntegral ----

// Whether the number plus 0.5, cut toward zero, is a 32-bit integer. Not so for not-a-number.
inline bool fits32Bits(double number) {
  constexpr double smallest = std::numeric_limits<std::int32_t>::min();
  constexpr double largest = std::numeric_limits<std::int32_t>::max();
  return number + 0.5 > smallest - 1 && number + 0.5 < largest + 1;
}

// Whether the number is integral; if so, `integer` is what it is.
inline bool isIntegralNumber(double number, std::int32_t& integer) {
  if (!fits32Bits(number)) return false;
  integer = static_cast<std::int32_t>(number + 0.5);
  return integer < number + 0.00001 && number - 0.00001 < integer;
}

}  // namespace json
