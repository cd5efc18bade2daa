// JsonRecords: the record in memory that a jsObject* of each kind points to. Only the model and the writer include this
// header, because they handle every value of a document. All other sources use JsonModel.h.
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

struct PlainValue final : Record {  // null and the invalid kind
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

// The bytes of the string follow the record in the same block of memory. A zero byte follows them.
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
static_assert(sizeof(EmptyString) > sizeof(StringValue), "bytes() points to the terminator");

// A member name. Its bytes and a zero byte follow in the same block of memory.
struct Name {
  std::size_t length;
  char* bytes() { return reinterpret_cast<char*>(this + 1); }
  std::string_view text() const { return {reinterpret_cast<const char*>(this + 1), length}; }
};

// Counts have 32 bits: a container has room for 2^31 entries. The program aborts if more are added.
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

// Two lists of the same length: values[i] is the value of the member names[i]. The names follow the values in the same
// block of memory.
struct ObjectValue final : Container {
  ObjectValue() : Container(JsonKind::object) {}

  Name** names = nullptr;
  MemberIndex* index = nullptr;  // null until the object has too many members for a linear search

  std::ptrdiff_t find(std::string_view name) const;
  void add(std::string_view name, jsObject* value);
  jsObject* takeOut(std::size_t place);
};

// ---- Converts a pointer to the record of that kind: null for a null pointer and for a value of another kind. The
// caller names T and `kind` to match; this is not checked. ----

template <class T>
T* recordIn(jsObject* value, JsonKind kind) {
  return hasKind(value, kind) ? static_cast<T*>(value) : nullptr;
}
template <class T>
const T* recordIn(const jsObject* value, JsonKind kind) {
  return hasKind(value, kind) ? static_cast<const T*>(value) : nullptr;
}

// ---- Numbers: see integerOf and isIntegral ----

// Returns true if the number plus 0.5, truncated toward zero, fits into 32 bits. False for NaN.
inline bool fits32Bits(double number) {
  constexpr double smallest = std::numeric_limits<std::int32_t>::min();
  constexpr double largest = std::numeric_limits<std::int32_t>::max();
  return number + 0.5 > smallest - 1 && number + 0.5 < largest + 1;
}

// Returns true if the number is integral, and sets `integer` to its value. If it returns false, the content of
// `integer` is undefined.
inline bool isIntegralNumber(double number, std::int32_t& integer) {
  if (!fits32Bits(number)) return false;
  integer = static_cast<std::int32_t>(number + 0.5);
  return integer < number + 0.00001 && number - 0.00001 < integer;
}

}  // namespace json
