// JsonRecords: the record in memory that a jsObject* of each kind points to. Only the model, the builder and the writer
// include this header, because they handle every value of a document. All other sources use JsonModel.h.
//
// A value and a name are each one block of memory: a block of its own, or a part of a chunk (see Chunks.h). Both are
// freed with BlockRelease.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <string_view>

#include "json/Chunks.h"
#include "json/JsonModel.h"
#include "json/MemberIndex.h"

namespace json {

// ---- The record of each kind ----

// The place of the shared values, which are never freed. No block has it, because it is beyond every chunk.
constexpr Place sharedPlace = std::numeric_limits<Place>::max();

struct Record : jsObject {
  constexpr Record(JsonKind kind, Place given) : jsObject(kind), place(given) {}
  using jsObject::setKind;
  Block block() { return {this, place}; }

  Place place;
};

struct PlainValue final : Record {  // null and the invalid kind
  using Record::Record;
};

struct BooleanValue final : Record {
  constexpr explicit BooleanValue(bool given) : Record(JsonKind::boolean, sharedPlace), value(given) {}
  bool value;
};

struct NumberValue final : Record {
  constexpr NumberValue(double given, Place at) : Record(JsonKind::number, at), value(given) {}
  double value;
};

// The bytes of the string follow the record in the same block of memory. A zero byte follows them.
struct StringValue : Record {
  constexpr StringValue(std::size_t given, Place at) : Record(JsonKind::string, at), length(given) {}
  std::size_t length;
  char* bytes() { return reinterpret_cast<char*>(this + 1); }
  const char* bytes() const { return reinterpret_cast<const char*>(this + 1); }
};

struct EmptyString final : StringValue {
  constexpr EmptyString() : StringValue(0, sharedPlace) {}
  char terminator = '\0';
};
static_assert(sizeof(EmptyString) != sizeof(StringValue), "the terminator is behind the record, where bytes() points");

// A member name. Its bytes and a zero byte follow in the same block of memory. Names are never changed, so that several
// members may have the same one: it is then counted once for each (see Chunks::countAgain).
class Name {
 public:
  Name(std::size_t length, Place place) : lengthAndPlace_(std::uint64_t{length} << placeBits | place) {}
  char* bytes() { return reinterpret_cast<char*>(this + 1); }
  std::string_view text() const {
    return {reinterpret_cast<const char*>(this + 1), static_cast<std::size_t>(lengthAndPlace_ >> placeBits)};
  }
  Block block() { return {this, static_cast<Place>(lengthAndPlace_ % (1U << placeBits))}; }

 private:
  std::uint64_t lengthAndPlace_;  // no memory has room for a name whose length needs more than the other 48 bits
};

// Counts have 32 bits: a container has room for 2^31 entries. The program aborts if more are added.
struct Container : Record {
  Container(JsonKind kind, Place at, std::size_t room) : Record(kind, at), capacity(static_cast<std::uint32_t>(room)) {}
  std::uint32_t count = 0;
  std::uint32_t capacity;
  jsObject** values = nullptr;
  Container* nextToRelease = nullptr;
};
constexpr std::size_t mostEntries = std::size_t{1} << 31;

struct ArrayValue final : Container {
  ArrayValue(Place at, std::size_t room) : Container(JsonKind::array, at, room) {}
  static constexpr std::size_t entrySize = sizeof(jsObject*);

  void add(jsObject* value);
};

// Two lists of the same length: values[i] is the value of the member names()[i]. The names follow the values in the
// same block of memory.
struct ObjectValue final : Container {
  ObjectValue(Place at, std::size_t room) : Container(JsonKind::object, at, room) {}
  static constexpr std::size_t entrySize = sizeof(jsObject*) + sizeof(Name*);

  MemberIndex* index = nullptr;  // null until the object has too many members for a linear search

  Name** names() const { return reinterpret_cast<Name**>(values + capacity); }
  std::string_view nameAt(std::size_t position) const { return names()[position]->text(); }
  std::ptrdiff_t find(std::string_view name) const;
  // Inline: otherwise parsing objects takes 4 % more instructions.
  void add(Name* name, jsObject* value) {
    if (count == capacity) growLists();
    names()[count] = name;
    values[count++] = value;
    if (index != nullptr || count > membersWithoutIndex) indexLast();
  }
  jsObject* takeOut(std::size_t position);

 private:
  // In an object with no more members than this, comparing every name is faster than hashing one.
  static constexpr std::uint32_t membersWithoutIndex = 16;

  void growLists();
  void indexLast();
};

// ---- Makes records in blocks that may have room for more ----

// For a string or a name: the block has room for the record, the bytes of the text and a zero byte.
template <class T>
std::size_t sizeWithBytes(std::string_view text) {
  return sizeof(T) + text.size() + 1;
}
template <class T>
T* makeWithBytes(const Block& block, std::string_view text) {
  T* made = new (block.start) T(text.size(), block.place);
  std::memcpy(made->bytes(), text.data(), text.size());
  made->bytes()[text.size()] = '\0';
  return made;
}

// For a container: the block has room for the record and a list with that capacity. A larger list is a block of its
// own. The capacity must be at least 1, so that no other block can start at the end of the record.
template <class T>
std::size_t sizeWithList(std::size_t capacity) {
  if (capacity > mostEntries) std::abort();  // memory runs out long before this
  return sizeof(T) + capacity * T::entrySize;
}
template <class T>
jsObject** listBehind(T* container) {
  return reinterpret_cast<jsObject**>(container + 1);
}
template <class T>
T* makeWithList(const Block& block, std::size_t capacity) {
  T* made = new (block.start) T(block.place, capacity);
  made->values = listBehind(made);
  return made;
}

// ---- For the builder ----

// The shared number that is equal to `value`, or null.
jsObject* sharedNumber(double value);

// Releases a value. The address sanitizer reports a later use of the value even if its chunk is still in use.
void releaseInto(BlockRelease& blocks, jsObject* value);

// ---- From a value to its record ----

// Converts a pointer to the record of that kind: null for a null pointer and for a value of another kind. The caller
// names T and `kind` to match; this is not checked.
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

// Returns the number plus 0.5, truncated toward zero. The result must fit into 32 bits (see fits32Bits).
inline std::int32_t plusHalfTruncated(double number) { return static_cast<std::int32_t>(number + 0.5); }

// Returns true if the number is integral. Then plusHalfTruncated() returns its value.
inline bool isIntegralNumber(double number) {
  return fits32Bits(number) && plusHalfTruncated(number) < number + 0.00001 &&
         number - 0.00001 < plusHalfTruncated(number);
}

}  // namespace json
