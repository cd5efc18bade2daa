#include "json/JsonWriter.h"

#include <cstring>

#include "json/Escapes.h"
#include "json/JsonRecords.h"
#include "json/NumberText.h"

namespace {

using namespace json;

constexpr EscapeTable escapes = makeEscapes();

// ---- Output ----

// Buffers what is written and appends it to the text in pieces. Without the buffer, printing a request or an array of
// integers ("print request", "print integers" in bench/json_libraries) takes twice as many instructions.
class Output {
 public:
  explicit Output(std::string& text) : text_(text) {}
  ~Output() { flush(); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  void add(std::string_view bytes) {
    if (bytes.size() > sizeof gathered_) {
      flush();
      text_ += bytes;
      return;
    }
    makeRoom(bytes.size());
    std::memcpy(at_, bytes.data(), bytes.size());
    at_ += bytes.size();
  }

  void addEscaped(std::string_view bytes) {
    constexpr std::size_t stretch = sizeof gathered_ / longestEscape;
    for (; bytes.size() > stretch; bytes.remove_prefix(stretch)) addEscapedStretch(bytes.substr(0, stretch));
    addEscapedStretch(bytes);
  }

  void addNumber(double number) {
    makeRoom(mostFixedBytes);
    at_ = isIntegralNumber(number)
              ? writeInteger(at_, static_cast<std::uint32_t>(plusHalfTruncated(number)))  // never negative
              : writeFixed(at_, number);
  }

 private:
  void makeRoom(std::size_t bytes) {
    if (static_cast<std::size_t>(gathered_ + sizeof gathered_ - at_) < bytes) flush();
  }

  void flush() {
    text_.append(gathered_, at_);
    at_ = gathered_;
  }

  void addEscapedStretch(std::string_view bytes) {
    makeRoom(bytes.size() * longestEscape);
    char* at = at_;
    for (const char c : bytes) {
      const Escape& escape = escapes[static_cast<unsigned char>(c)];
      if (escape.length == 1) {
        *at++ = escape.text[0];
      } else {
        std::memcpy(at, escape.text, escape.length);
        at += escape.length;
      }
    }
    at_ = at;
  }

  std::string& text_;
  char gathered_[4096];
  char* at_ = gathered_;
};

// ---- Containers ----

struct Brackets {
  std::string_view empty;
  std::string_view open;
  std::string_view close;
};
constexpr Brackets squareBrackets = {"[ ]", "[ ", " ]"};
constexpr Brackets curlyBrackets = {"{ }", "{ ", " }"};

const Brackets& bracketsOf(const Container& container) {
  return container.kind() == JsonKind::object ? curlyBrackets : squareBrackets;
}

// A container that is being written, and the index of its next entry.
struct Open {
  const Container* container;
  std::uint32_t next;
};

void addString(Output& output, std::string_view text) {
  output.add("\"");
  output.addEscaped(text);
  output.add("\"");
}

// Writes what precedes the next entry, and returns the value of that entry.
const jsObject* startEntry(Output& output, Open& open) {
  const std::uint32_t at = open.next++;
  if (at != 0) output.add(", ");
  if (open.container->kind() == JsonKind::object) {
    output.add("\"");
    output.add(static_cast<const ObjectValue*>(open.container)->nameAt(at));
    output.add("\":");
  }
  return open.container->values[at];
}

void addScalar(Output& output, const jsObject* value) {
  switch (value->kind()) {
    case JsonKind::string:
      return addString(output, json::textOf(value));
    case JsonKind::number:
      return output.addNumber(static_cast<const NumberValue*>(value)->value);
    case JsonKind::boolean:
      return output.add(static_cast<const BooleanValue*>(value)->value ? "true" : "false");
    case JsonKind::null:
      return output.add("null");
    default:
      return;
  }
}

bool isContainer(const jsObject* value) { return json::isObject(value) || json::isArray(value); }

// Keeps the open containers in a list instead of recursing: a document may be nested deeper than the stack allows.
void addContainer(Output& output, const jsObject* value) {
  std::vector<Open> stack;
  const auto start = [&](const jsObject* started) {
    const auto* container = static_cast<const Container*>(started);
    const Brackets& brackets = bracketsOf(*container);
    output.add(container->count == 0 ? brackets.empty : brackets.open);
    if (container->count != 0) stack.push_back({container, 0});
  };
  start(value);
  while (!stack.empty()) {
    Open& open = stack.back();
    if (open.next == open.container->count) {
      output.add(bracketsOf(*open.container).close);
      stack.pop_back();
      continue;
    }
    const jsObject* entry = startEntry(output, open);
    if (isContainer(entry)) {
      start(entry);
    } else {
      addScalar(output, entry);
    }
  }
}

std::string& writeIf(bool isWanted, std::string& text, const jsObject* value) {
  return isWanted ? json::write(text, value) : text;
}

}  // namespace

namespace json {

std::string& write(std::string& text, const jsObject* value) {
  if (value == nullptr) return text;
  Output output(text);
  if (isContainer(value)) {
    addContainer(output, value);
  } else {
    addScalar(output, value);
  }
  return text;
}

std::string& writeObject(std::string& text, const jsObject* object) { return writeIf(isObject(object), text, object); }
std::string& writeArray(std::string& text, const jsObject* array) { return writeIf(isArray(array), text, array); }
std::string& writeString(std::string& text, const jsObject* string) { return writeIf(isString(string), text, string); }
std::string& writeNumber(std::string& text, const jsObject* number) { return writeIf(isNumber(number), text, number); }
std::string& writeBoolean(std::string& text, const jsObject* boolean) {
  return writeIf(isBoolean(boolean), text, boolean);
}
std::string& writeNull(std::string& text, const jsObject* null) { return writeIf(isNull(null), text, null); }

void arrayToStrings(std::vector<std::string>& list, const jsObject* array) {
  list.clear();
  for (std::size_t at = 0; at < elementCount(array); ++at) {
    const jsObject* value = element(array, at);
    std::string text;
    list.push_back(isString(value) ? std::string(textOf(value)) : write(text, value));
  }
}

}  // namespace json
