#include "json/JsonModel.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

#include "base/text/StringUtils.h"
#include "json/JsonRecords.h"

namespace {

using namespace json;

// A destroyed value has no kind.
template <class T>
void destroyRecord(jsObject* value) {
  auto* record = static_cast<T*>(value);
  record->setKind(0);
  delete record;  // NOLINT(clang-analyzer-cplusplus.NewDelete): no shared value has a kind for which this is called
}

// Allocates room for a header of type T, `length` bytes and a zero byte.
template <class T>
void* allocateWithBytes(std::size_t length) {
  return ::operator new(sizeof(T) + length + 1);
}

void setBytes(char* bytes, std::string_view text) {
  std::memcpy(bytes, text.data(), text.size());
  bytes[text.size()] = '\0';
}

// ---- The shared values, constant-initialized ----

PlainValue sharedNull(JsonKind::null);
BooleanValue sharedBooleans[] = {BooleanValue(false), BooleanValue(true)};
NumberValue sharedNumbers[] = {NumberValue(-1), NumberValue(0), NumberValue(1), NumberValue(2)};
EmptyString sharedEmptyString;

bool isSharedNumber(const jsObject* value) {
  const std::less_equal<const jsObject*> notAbove;
  return notAbove(std::begin(sharedNumbers), value) && notAbove(value, std::end(sharedNumbers) - 1);
}

// ---- Members ----

// In an object with no more members than this, comparing every name is faster than hashing one.
constexpr std::size_t membersWithoutIndex = 16;

Name* copyOfName(std::string_view text) {
  auto* name = new (allocateWithBytes<Name>(text.size())) Name{text.size()};
  setBytes(name->bytes(), text);
  return name;
}

void freeName(Name* name) { ::operator delete(name); }

// Most objects have few members: the first list has room for all of them, so that it is never copied.
constexpr std::uint32_t firstCapacity = 8;

std::uint32_t largerThan(std::uint32_t capacity) {
  if (capacity > std::numeric_limits<std::uint32_t>::max() / 2) std::abort();  // memory runs out long before this
  return capacity == 0 ? firstCapacity : 2 * capacity;
}

void grow(ArrayValue* array) {
  jsObject** old = array->values;
  array->capacity = largerThan(array->capacity);
  array->values = static_cast<jsObject**>(::operator new(array->capacity * sizeof(jsObject*)));
  std::copy_n(old, array->count, array->values);
  ::operator delete(old);
}

void grow(ObjectValue* object) {
  jsObject** oldValues = object->values;
  Name** oldNames = object->names;
  object->capacity = largerThan(object->capacity);
  object->values = static_cast<jsObject**>(::operator new(object->capacity*(sizeof(jsObject*) + sizeof(Name*))));
  object->names = reinterpret_cast<Name**>(object->values + object->capacity);
  std::copy_n(oldValues, object->count, object->values);
  std::copy_n(oldNames, object->count, object->names);
  ::operator delete(oldValues);
}

// Does nothing if `value` is the value in the slot.
void replace(jsObject*& slot, jsObject* value) {
  if (slot != value) json::release(std::exchange(slot, value));
}

// ---- Release ----

void releaseString(StringValue* string) {
  string->setKind(0);
  ::operator delete(string);
}

// Frees a scalar. A container is added to the front of the list `pending` instead.
void releaseOrPutOff(jsObject* value, Container*& pending) {
  switch (value->kind()) {
    case JsonKind::null:
    case JsonKind::boolean:
      return;
    case JsonKind::number:
      if (isSharedNumber(value)) return;
      return destroyRecord<NumberValue>(value);
    case JsonKind::string:
      if (value != &sharedEmptyString) releaseString(static_cast<StringValue*>(value));
      return;
    case JsonKind::invalid:
      return destroyRecord<PlainValue>(value);
    case JsonKind::array:
    case JsonKind::object:
      static_cast<Container*>(value)->nextToRelease = pending;
      pending = static_cast<Container*>(value);
      return;
  }
}

void destroy(ArrayValue* array) {
  ::operator delete(array->values);
  destroyRecord<ArrayValue>(array);
}

void destroy(ObjectValue* object) {
  for (std::size_t at = 0; at < object->count; ++at) freeName(object->names[at]);
  ::operator delete(object->values);  // the names are in the same block
  delete object->index;
  destroyRecord<ObjectValue>(object);
}

void destroy(Container* container, Container*& pending) {
  for (std::size_t at = 0; at < container->count; ++at) {
    releaseOrPutOff(std::exchange(container->values[at], nullptr), pending);
  }
  if (container->kind() == JsonKind::array) return destroy(static_cast<ArrayValue*>(container));
  destroy(static_cast<ObjectValue*>(container));
}

}  // namespace

namespace json {

// ---- Containers ----

void ArrayValue::add(jsObject* value) {
  if (count == capacity) grow(this);
  values[count++] = value;
}

std::ptrdiff_t ObjectValue::find(std::string_view name) const {
  if (index != nullptr) {
    const std::size_t place = index->find(name, [&](std::size_t at) { return names[at]->text() == name; });
    return place == MemberIndex::none ? json::notFound : static_cast<std::ptrdiff_t>(place);
  }
  for (std::size_t at = 0; at < count; ++at) {
    if (names[at]->text() == name) return static_cast<std::ptrdiff_t>(at);
  }
  return json::notFound;
}

void ObjectValue::add(std::string_view name, jsObject* value) {
  if (count == capacity) grow(this);
  names[count] = copyOfName(name);
  values[count++] = value;
  if (index != nullptr) {
    index->add(name, count - 1);
  } else if (count > membersWithoutIndex) {
    index = new MemberIndex;
    for (std::size_t at = 0; at < count; ++at) index->add(names[at]->text(), at);
  }
}

// The last member moves into the freed place.
jsObject* ObjectValue::takeOut(std::size_t place) {
  const std::size_t last = count - 1;
  if (index != nullptr) {
    index->remove(names[place]->text(), place);
    if (place != last) index->move(names[last]->text(), last, place);
  }
  jsObject* taken = values[place];
  freeName(names[place]);
  names[place] = names[last];
  values[place] = values[last];
  --count;
  return taken;
}

// ---- Factories and release ----

jsObject* makeNull() { return &sharedNull; }

jsObject* makeBoolean(bool value) { return &sharedBooleans[value ? 1 : 0]; }

jsObject* makeNumber(double value) {
  if (value >= -1 && value <= 2) {
    for (NumberValue& shared : sharedNumbers) {
      if (value == shared.value) return &shared;
    }
  }
  return new NumberValue(value);
}

jsObject* makeString(std::string_view text) {
  if (text.empty()) return &sharedEmptyString;
  auto* made = new (allocateWithBytes<StringValue>(text.size())) StringValue(text.size());
  setBytes(made->bytes(), text);
  return made;
}

jsObject* makeArray() { return new ArrayValue; }

jsObject* makeObject() { return new ObjectValue; }

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
    case JsonKind::invalid:
      break;
  }
  return new PlainValue(JsonKind::invalid);
}

// Containers inside containers wait in a linked list, so that releasing neither recurses nor allocates.
void release(jsObject* value) {
  if (value == nullptr) return;
  Container* pending = nullptr;
  releaseOrPutOff(value, pending);
  while (pending != nullptr) {
    Container* container = pending;
    pending = container->nextToRelease;
    destroy(container, pending);
  }
}

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
  if (fits32Bits(number)) return static_cast<std::int32_t>(number + 0.5);
  if (number > 0) return std::numeric_limits<std::int32_t>::max();
  if (number < 0) return std::numeric_limits<std::int32_t>::min();
  return 0;
}

bool isIntegral(const jsObject* value) {
  std::int32_t integer = 0;
  return isNumber(value) && isIntegralNumber(numberOf(value), integer);
}

// ---- Objects ----

std::size_t memberCount(const jsObject* object) {
  const auto* record = recordIn<ObjectValue>(object, JsonKind::object);
  return record == nullptr ? 0 : record->count;
}

std::string_view memberName(const jsObject* object, std::size_t index) {
  const auto* record = recordIn<ObjectValue>(object, JsonKind::object);
  return record != nullptr && index < record->count ? record->names[index]->text() : std::string_view();
}

jsObject* memberValue(const jsObject* object, std::size_t index) {
  const auto* record = recordIn<ObjectValue>(object, JsonKind::object);
  return record != nullptr && index < record->count ? record->values[index] : nullptr;
}

std::ptrdiff_t findMember(const jsObject* object, std::string_view name) {
  const auto* record = recordIn<ObjectValue>(object, JsonKind::object);
  return record == nullptr || name.empty() ? notFound : record->find(name);
}

std::ptrdiff_t findMemberIgnoringCase(const jsObject* object, std::string_view name) {
  const auto* record = recordIn<ObjectValue>(object, JsonKind::object);
  if (record == nullptr || name.empty()) return notFound;
  for (std::size_t at = 0; at < record->count; ++at) {
    if (StringUtils::equalIgnoreCase(record->names[at]->text(), name)) return static_cast<std::ptrdiff_t>(at);
  }
  return notFound;
}

jsObject* member(const jsObject* object, std::string_view name) {
  const std::ptrdiff_t place = findMember(object, name);
  return place == notFound ? nullptr : memberValue(object, static_cast<std::size_t>(place));
}

void setMember(jsObject* object, std::string_view name, jsObject* value) {
  auto* record = recordIn<ObjectValue>(object, JsonKind::object);
  if (record == nullptr || name.empty()) return release(value);
  if (value == nullptr) return release(removeMember(object, name));
  const std::ptrdiff_t place = record->find(name);
  if (place == notFound) return record->add(name, value);
  replace(record->values[static_cast<std::size_t>(place)], value);
}

jsObject* setText(jsObject* object, std::string_view name, std::string_view text) {
  if (!isObject(object) || name.empty()) return nullptr;
  jsObject* value = makeString(text);
  setMember(object, name, value);
  return value;
}

jsObject* removeMember(jsObject* object, std::string_view name) {
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
  --record->count;
  std::memmove(place, place + 1, (record->count - index) * sizeof *place);
  return taken;
}

jsObject* removeLast(jsObject* array) {
  return isEmpty(array) ? nullptr : removeElement(array, elementCount(array) - 1);
}

}  // namespace json
