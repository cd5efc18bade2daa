// JsonParser: JSON text to a tree of values.
//
//   ScopedJson document(json::parse(text, length));
//   if (!json::isObject(document.get())) ...        // null: the text is no document
//
// Two receivers do the work: `parserinfo` builds one document, `sequencer` gathers the top-level objects of a text.
// Closing brackets do not look at what came before them, so [1,2,] and {"a":1,} are documents, {"b"} and {"b":} are
// empty objects. A repeated member keeps its first place and its last value. A member under an empty name is an error
// when its value is a scalar; an array or object there is read and dropped. Nesting may be of any depth.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "json/JsonModel.h"
#include "json/JsonScanner.h"

// Builds one document from its tokens. Any error is final: it drops all that was built, and whatever comes later is an
// error again. Each message is delivered to onError once; the parser itself only fails.
class parserinfo : public TokenReceiver {
 public:
  enum class State : std::int32_t {
    finished = 0,  // or failed
    value = 1,     // a value is expected
    afterElement = 2,
    afterMember = 3,
    name = 4,      // a member name is expected
    afterName = 5  // a colon is expected
  };

  parserinfo() = default;
  ~parserinfo() override;
  parserinfo(const parserinfo&) = delete;
  parserinfo& operator=(const parserinfo&) = delete;

  State state() const { return state_; }
  // The finished document, which is the caller's from now on; null when there is none.
  [[nodiscard]] jsObject* takeRoot();

  void onError(std::string_view message) override;
  void onLeftBracket() override;
  void onLeftCurly() override;
  void onRightBracket() override;
  void onRightCurly() override;
  void onComma() override;
  void onColon() override;
  void onNumber(double number) override;
  void onString(std::string_view text) override;
  void onNull() override;
  void onBool(bool value) override;
  void onName(std::string_view name) override;

 private:
  // An open container. Once placed it belongs to the object that it is a member of, until then to the parser.
  struct Open {
    jsObject* container;
    bool placed;
  };

  void offer(jsObject* value);
  void refuse(jsObject* value, std::string_view message);
  void open(jsObject* container);
  void close(JsonKind kind, std::string_view messageIfNotOpen);
  void takeName(std::string_view name);
  void dropEverything();

  State state_ = State::value;
  ScopedJson root_;
  std::vector<Open> open_;  // the innermost container last
  std::string name_;        // of the member whose value comes next; empty when none
};

// Appends every top-level object of a text to `target`, which stays the caller's. Other top-level values are not
// collected, and end the collecting: the parser inside then waits for the end of a document that is already complete.
class sequencer final : public TokenReceiver {
 public:
  explicit sequencer(jsObject* target);

  void onError(std::string_view message) override;
  void onLeftBracket() override;
  void onLeftCurly() override;
  void onRightBracket() override;
  void onRightCurly() override;
  void onComma() override;
  void onColon() override;
  void onNumber(double number) override;
  void onString(std::string_view text) override;
  void onNull() override;
  void onBool(bool value) override;
  void onName(std::string_view name) override;

 private:
  jsObject* target_;
  ScopedPtr<parserinfo> inner_;
};

namespace json {

// The one document that the text holds, owned by the caller, or null. A negative length means up to the zero byte.
[[nodiscard]] jsObject* parse(const char* text, std::ptrdiff_t length = -1);

// An array, owned by the caller, of the top-level objects of the text, one after another: {"a":1} {"b":2}. Null for a
// null or an empty text.
[[nodiscard]] jsObject* parseSequence(const char* text, std::ptrdiff_t length = -1);

}  // namespace json
