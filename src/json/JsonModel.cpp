#include "json/JsonModel.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

#include "base/text/StringUtils.h"
#include "json/JsonRecords.h"

namespace {

using namespace json;

// ---- The shared values, constant-initialized ----

PlainValue sharedNull(JsonKind::null, sharedPlace);
BooleanValue sharedBooleans[] = {BooleanValue(false), BooleanValue(true)};
// In ascending order.
NumberValue sharedNumbers[] = {{-1, sharedPlace}, {0, sharedPlace}, {1, sharedPlace}, {2, sharedPlace}};
EmptyString sharedEmptyString;

// ---- Members ----

// Most objects have few members: the first list has room for all of them, so that it is never copied.
constexpr std::uint32_t firstCapacity = 8;

// These allocate a block of its own.
template <class T>
T* newWithBytes(std::string_view text) {
  return makeWithBytes<T>({::operator new(sizeWithBytes<T>(text)), aloneInMemory}, text);
}
template <class T>
T* newWithList() {
  return makeWithList<T>({::operator new(sizeWithList<T>(firstCapacity)), aloneInMemory}, firstCapacity);
}

std::uint32_t largerThan(std::uint32_t capacity) {
  if (capacity >= mostEntries) std::abort();  // memory runs out long before this
  return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(std::uint64_t{2} * capacity, firstCapacity, mostEntries));
}

template <class T>
void freeList(T* container, jsObject** list) {
  if (list != listBehind(container)) ::operator delete(list);
}

void grow(ArrayValue* array) {
  jsObject** old = array->values;
  array->capacity = largerThan(array->capacity);
  array->values = static_cast<jsObject**>(::operator new(array->capacity* ArrayValue::entrySize));
  std::copy_n(old, array->count, array->values);
  freeList(array, old);
}

// Does nothing if `value` is the value in the slot.
void replace(jsObject*& slot, jsObject* value) {
  if (slot != value) json::release(std::exchange(slot, value));
}

// ---- Release ----

// Containers inside containers wait in a linked list, so that releasing neither recurses nor allocates.
class TreeRelease {
 public:
  explicit TreeRelease(BlockRelease& blocks) : blocks_(blocks) {}

  void run(jsObject* value) {
    freeOrPutOff(value);
    while (pending_ != nullptr) {
      Container* container = pending_;
      pending_ = container->nextToRelease;
      freeEntries(container);
      freeRecord(container);
    }
  }

 private:
  void freeOrPutOff(jsObject* value) {
    auto* record = static_cast<Record*>(value);
    if (record->place == sharedPlace) return;
    if (!json::isArray(value) && !json::isObject(value)) return freeRecord(record);
    auto* container = static_cast<Container*>(record);
    container->nextToRelease = pending_;
    pending_ = container;
  }

  void freeEntries(Container* container) {
    for (std::size_t at = 0; at < container->count; ++at) freeOrPutOff(std::exchange(container->values[at], nullptr));
    if (container->kind() == JsonKind::array) {
      freeList(static_cast<ArrayValue*>(container), container->values);
    } else {
      freeNames(static_cast<ObjectValue*>(container));
    }
  }

  void freeNames(ObjectValue* object) {
    for (std::size_t at = 0; at < object->count; ++at) blocks_.drop(object->names()[at]->block());
    freeList(object, object->values);
    delete object->index;
  }

  // A destroyed value has no kind.
  void freeRecord(Record* record) {
    const Block block = record->block();
    record->setKind(0);
    if (block.place != aloneInMemory) ASAN_POISON_MEMORY_REGION(record, sizeof *record);
    blocks_.drop(block);
  }

  BlockRelease& blocks_;
  Container* pending_ = nullptr;
};

}  // namespace

namespace json {

// ---- Containers ----

void ArrayValue::add(jsObject* value) {
  if (count == capacity) grow(this);
  values[count++] = value;
}

std::ptrdiff_t ObjectValue::find(std::string_view name) const {
  if (index != nullptr) {
    const std::size_t position = index->find(name, [this](std::size_t at) { return nameAt(at); });
    return position == MemberIndex::none ? json::notFound : static_cast<std::ptrdiff_t>(position);
  }
  for (std::size_t at = 0; at < count; ++at) {
    if (nameAt(at) == name) return static_cast<std::ptrdiff_t>(at);
  }
  return json::notFound;
}

void ObjectValue::growLists() {
  jsObject** oldValues = values;
  Name** oldNames = names();
  capacity = largerThan(capacity);
  values = static_cast<jsObject**>(::operator new(capacity* entrySize));
  std::copy_n(oldValues, count, values);
  std::copy_n(oldNames, count, names());
  freeList(this, oldValues);
}

void ObjectValue::indexLast() {
  const auto nameOf = [this](std::size_t at) { return nameAt(at); };
  if (index != nullptr) return index->add(count - 1, nameOf);
  index = new MemberIndex;
  for (std::size_t at = 0; at < count; ++at) index->add(at, nameOf);
}

// The last member moves into the freed position.
jsObject* ObjectValue::takeOut(std::size_t position) {
  const std::size_t last = count - 1;
  if (index != nullptr) {
    index->remove(position, [this](std::size_t at) { return nameAt(at); });
    if (position != last) index->move(nameAt(last), last, position);
  }
  jsObject* taken = values[position];
  BlockRelease().drop(names()[position]->block());
  names()[position] = names()[last];
  values[position] = values[last];
  --count;
  return taken;
}

// ---- Factories and release ----

jsObject* makeNull() { return &sharedNull; }

jsObject* makeBoolean(bool value) { return &sharedBooleans[value ? 1 : 0]; }

jsObject* sharedNumber(double value) {
  if (value < std::begin(sharedNumbers)->value || value > std::rbegin(sharedNumbers)->value) return nullptr;
  for (NumberValue& shared : sharedNumbers) {
    if (value == shared.value) return &shared;
  }
  return nullptr;
}

jsObject* makeNumber(double value) {
  jsObject* shared = sharedNumber(value);
  return shared != nullptr ? shared : new NumberValue(value, aloneInMemory);
}

jsObject* makeString(std::string_view text) {
  if (text.empty()) return &sharedEmptyString;
  return newWithBytes<StringValue>(text);
}

jsObject* makeArray() { return newWithList<ArrayValue>(); }

jsObject* makeObject() { return newWithList<ObjectValue>(); }

jsObject* makeOfKind(std::int32_t number) {
  switch (jsObject::kindOf(number)) {
    case JsonKind::null:
      return makeNull();
    case JsonKind::boolean:
      return makeBoolean(false);
    case JsonKind::number:
      return makeNumber(0);
    case JsonKind::string:
      return makeString("");
    case JsonKind::array:
      return makeArray();
    case JsonKind::object:
      return makeObject();
    default:
      return new PlainValue(JsonKind::invalid, aloneInMemory);
  }
}

void release(jsObject* value) {
  if (value == nullptr) return;
  BlockRelease blocks;
  releaseInto(blocks, value);
}

void releaseInto(BlockRelease& blocks, jsObject* value) { TreeRelease(blocks).run(value); }

// ---- Scalars ----

bool booleanOf(const jsObject* value) {
  const auto* boolean = recordIn<BooleanValue>(value, JsonKind::boolean);
  return boolean != nullptr && boolean->value;
}

double numberOf(const jsObject* value) {
  const auto* number = recordIn<NumberValue>(value, JsonKind::number);
  return number == nullptr ? 0 : number->value;
}

std::string_view textOf(const jsObject* value) {
  const auto* string = recordIn<StringValue>(value, JsonKind::string);
  return string == nullptr ? std::string_view("") : std::string_view(string->bytes(), string->length);
}

std::int32_t integerOf(const jsObject* value) {
  const double number = numberOf(value);
  if (fits32Bits(number)) return plusHalfTruncated(number);
  if (std::isnan(number)) return 0;
  using Limits = std::numeric_limits<std::int32_t>;
  return std::signbit(number) ? Limits::min() : Limits::max();
}

bool isIntegral(const jsObject* value) { return isNumber(value) && isIntegralNumber(numberOf(value)); }

// ---- Objects ----

std::size_t memberCount(const jsObject* object) {
  const auto* record = recordIn<ObjectValue>(object, JsonKind::object);
  return record == nullptr ? 0 : record->count;
}

std::string_view memberName(const jsObject* object, std::size_t index) {
  const auto* record = recordIn<ObjectValue>(object, JsonKind::object);
  if (record == nullptr || index >= record->count) return std::string_view();
  return record->nameAt(index);
}

jsObject* memberValue(const jsObject* object, std::size_t index) {
  const auto* record = recordIn<ObjectValue>(object, JsonKind::object);
  return record != nullptr && index < record->count ? record->values[index] : nullptr;
}

std::ptrdiff_t findMember(const jsObject* object, TextOrNull name) {
  const auto* record = recordIn<ObjectValue>(object, JsonKind::object);
  return record == nullptr || name.empty() ? notFound : record->find(name);
}

std::ptrdiff_t findMemberIgnoringCase(const jsObject* object, TextOrNull name) {
  const auto* record = recordIn<ObjectValue>(object, JsonKind::object);
  if (record == nullptr || name.empty()) return notFound;
  for (std::size_t at = 0; at < record->count; ++at) {
    if (StringUtils::equalIgnoreCase(record->nameAt(at), name)) return static_cast<std::ptrdiff_t>(at);
  }
  return notFound;
}

jsObject* member(const jsObject* object, TextOrNull name) {
  const std::ptrdiff_t place = findMember(object, name);
  return place == notFound ? nullptr : memberValue(object, static_cast<std::size_t>(place));
}

void setMember(jsObject* object, TextOrNull name, jsObject* value) {
  auto* record = recordIn<ObjectValue>(object, JsonKind::object);
  if (record == nullptr || name.empty()) return release(value);
  if (value == nullptr) return release(removeMember(object, name));
  const std::ptrdiff_t place = record->find(name);
  if (place == notFound) return record->add(newWithBytes<Name>(name), value);
  replace(record->values[static_cast<std::size_t>(place)], value);
}

jsObject* setText(jsObject* object, TextOrNull name, std::string_view text) {
  if (!isObject(object) || name.empty()) return nullptr;
  jsObject* value = makeString(text);
  setMember(object, name, value);
  return value;
}

jsObject* removeMember(jsObject* object, TextOrNull name) {
  const std::ptrdiff_t place = findMember(object, name);
  if (place == notFound) return nullptr;
  return static_cast<ObjectValue*>(object)->takeOut(static_cast<std::size_t>(place));
}

// ---- Arrays ----

std::size_t elementCount(const jsObject* array) {
  const auto* record = recordIn<ArrayValue>(array, JsonKind::array);
  return record == nullptr ? 0 : record->count;
}

bool isEmpty(const jsObject* array) { return elementCount(array) == 0; }

jsObject* element(const jsObject* array, std::size_t index) {
  const auto* record = recordIn<ArrayValue>(array, JsonKind::array);
  return record != nullptr && index < record->count ? record->values[index] : nullptr;
}

void append(jsObject* array, jsObject* value) {
  auto* record = recordIn<ArrayValue>(array, JsonKind::array);
  if (record == nullptr) return release(value);
  record->add(value == nullptr ? makeNull() : value);
}

jsObject* appendObject(jsObject* array) {
  if (!isArray(array)) return nullptr;
  jsObject* made = makeObject();
  append(array, made);
  return made;
}

void setElement(jsObject* array, std::size_t index, jsObject* value) {
  auto* record = recordIn<ArrayValue>(array, JsonKind::array);
  if (value == nullptr) value = makeNull();
  if (record == nullptr || index > record->count) return release(value);
  if (index == record->count) return record->add(value);
  replace(record->values[index], value);
}

jsObject* removeElement(jsObject* array, std::size_t index) {
  jsObject* taken = element(array, index);
  if (taken == nullptr) return nullptr;
  auto* record = static_cast<ArrayValue*>(array);
  jsObject** place = record->values + index;
  std::copy(place + 1, record->values + record->count, place);
  --record->count;
  return taken;
}

jsObject* removeLast(jsObject* array) {
  return isEmpty(array) ? nullptr : removeElement(array, elementCount(array) - 1);
}

}  // namespace json
