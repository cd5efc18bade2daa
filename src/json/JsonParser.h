// JsonParser: parses JSON text into a tree of values.
//
//   ScopedJson document(json::parse(text, length));
//   if (!json::isObject(document.get())) ...        // null if the text is not a document
//
// The scanner (JsonScanner.h) defines the tokens. Two receivers are here: `parserinfo` builds one document,
// `sequencer` collects the top-level objects of a text.
//
// The parser accepts more than the JSON standard does:
// - A closing bracket is accepted after a comma, a member name or a colon: [1,2,] and {"a":1,} are documents, and
//   {"b"} and {"b":} are empty objects.
// - A member name may be a bare word.
// - A repeated member name keeps the position of the first member and takes the value of the last.
// - An array or object under an empty member name is parsed and dropped. A scalar under an empty name is an error.
// Nesting may be arbitrarily deep.
#pragma once

#include <string_view>

#include "json/DocumentBuilder.h"
#include "json/JsonModel.h"
#include "json/JsonScanner.h"

// Builds one document from its tokens. The first error is final: the parser releases everything built so far, and every
// later token is an error again. Each error calls onError once, with its message.
class parserinfo : public TokenReceiver {
 public:
  // The numbers are fixed.
  enum class State : std::int32_t {
    finished = 0,  // the document is complete, or an error occurred
    value = 1,     // a value is expected
    afterElement = 2,
    afterMember = 3,
    name = 4,      // a member name is expected
    afterName = 5  // a colon is expected
  };

  parserinfo() = default;
  parserinfo(const parserinfo&) = delete;
  parserinfo& operator=(const parserinfo&) = delete;

  State state() const { return state_; }
  // Hands the complete document over to the caller, who owns it from now on. Returns null if the document is not
  // complete, if an error occurred, or if the document has been taken already.
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
  void offer(jsObject* value);
  void refuse(jsObject* value, std::string_view message);
  void close(JsonKind kind, std::string_view messageIfNotOpen);
  void takeName(std::string_view name);

  State state_ = State::value;
  ScopedJson root_;
  json::DocumentBuilder builder_;  // the open containers
};

// Appends every top-level object of a text to the array `target`, which the caller still owns. A top-level value that
// is not an object is not collected, and nothing after it is collected either. Nor is anything after an error.
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

// Parses `length` bytes as one document, which the caller owns. Returns null if the text is not exactly one document. A
// negative length means that the text ends at its first zero byte.
[[nodiscard]] jsObject* parse(const char* text, std::ptrdiff_t length = untilZeroByte);

// Parses a text of several top-level objects, such as {"a":1} {"b":2}, and returns an array of them, which the caller
// owns. Returns null only if the text is null or empty. The length is as in parse().
[[nodiscard]] jsObject* parseSequence(const char* text, std::ptrdiff_t length = untilZeroByte);

}  // namespace json
