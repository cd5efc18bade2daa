#include "json/JsonParser.h"

#include "json/TokenScanner.h"

// ---- One document ----

jsObject* parserinfo::takeRoot() {
  if (state_ != State::finished) return nullptr;
  builder_.seal();
  return root_.take();
}

void parserinfo::onError(std::string_view) {
  state_ = State::finished;
  root_.reset();
  builder_.clear();
}

void parserinfo::refuse(jsObject* value, std::string_view message) {
  json::release(value);
  onError(message);
}

// Stores a complete value: as the root, as an element of the open array, or as the member of the pending name.
void parserinfo::offer(jsObject* value) {
  if (state_ != State::value) return refuse(value, "onValue: wrong state");
  switch (builder_.openKind()) {
    case JsonKind::array:
      builder_.add(value);
      state_ = State::afterElement;
      return;
    case JsonKind::object:
      if (!builder_.hasName()) return refuse(value, "onValue: no available name for field");
      builder_.add(value);
      state_ = State::afterMember;
      return;
    default:
      root_.reset(value);
      state_ = State::finished;
  }
}

// A container becomes a part of the one around it when it is closed.
void parserinfo::close(JsonKind kind, std::string_view messageIfNotOpen) {
  if (builder_.openKind() != kind) return onError(messageIfNotOpen);
  jsObject* closed = builder_.close();
  state_ = State::value;
  if (builder_.openKind() == JsonKind::object && !builder_.hasName()) {  // its member name is empty
    json::release(closed);
    state_ = State::afterMember;
    return;
  }
  offer(closed);
}

void parserinfo::takeName(std::string_view name) {
  builder_.takeName(name);
  state_ = State::afterName;
}

void parserinfo::onLeftBracket() {
  if (state_ != State::value) return onError("onLeftBracket: wrong state");
  builder_.open(JsonKind::array);
}

void parserinfo::onLeftCurly() {
  if (state_ != State::value) return onError("onLeftCurly: wrong state");
  builder_.open(JsonKind::object);
  state_ = State::name;
}

void parserinfo::onRightBracket() { close(JsonKind::array, "onRightBracket: no open array"); }

void parserinfo::onRightCurly() { close(JsonKind::object, "onRightCurly: no open object"); }

void parserinfo::onComma() {
  if (state_ == State::afterElement) {
    state_ = State::value;
  } else if (state_ == State::afterMember) {
    state_ = State::name;
  } else {
    onError("onComma: wrong state");
  }
}

void parserinfo::onColon() {
  if (state_ != State::afterName) return onError("onColon: wrong state");
  state_ = State::value;
}

void parserinfo::onNumber(double number) { offer(builder_.makeNumber(number)); }

void parserinfo::onString(std::string_view text) {
  if (state_ == State::name) return takeName(text);
  offer(builder_.makeString(text));
}

void parserinfo::onNull() { offer(json::makeNull()); }

void parserinfo::onBool(bool value) { offer(json::makeBoolean(value)); }

void parserinfo::onName(std::string_view name) {
  if (state_ != State::name) return onError("onName, wrong state");  // the comma is deliberate
  takeName(name);
}

// ---- A sequence of objects ----

sequencer::sequencer(jsObject* target) : target_(target), inner_(new parserinfo) {}

void sequencer::onError(std::string_view message) { inner_->onError(message); }
void sequencer::onLeftBracket() { inner_->onLeftBracket(); }
void sequencer::onLeftCurly() { inner_->onLeftCurly(); }
void sequencer::onRightBracket() { inner_->onRightBracket(); }

void sequencer::onRightCurly() {
  inner_->onRightCurly();
  jsObject* object = inner_->takeRoot();
  if (object == nullptr) return;
  json::append(target_, object);
  inner_.reset(new parserinfo);
}

void sequencer::onComma() { inner_->onComma(); }
void sequencer::onColon() { inner_->onColon(); }
void sequencer::onNumber(double number) { inner_->onNumber(number); }
void sequencer::onString(std::string_view text) { inner_->onString(text); }
void sequencer::onNull() { inner_->onNull(); }
void sequencer::onBool(bool value) { inner_->onBool(value); }
void sequencer::onName(std::string_view name) { inner_->onName(name); }

// ---- Whole texts ----

namespace {

// A final class, so that the scanner calls it without virtual calls.
class DocumentParser final : public parserinfo {};

}  // namespace

namespace json {

jsObject* parse(const char* text, std::ptrdiff_t length) {
  DocumentParser parser;
  if (!scanFor(parser, text, length)) return nullptr;
  return parser.takeRoot();
}

jsObject* parseSequence(const char* text, std::ptrdiff_t length) {
  ScopedJson objects(makeArray());
  sequencer receiver(objects.get());
  return scan(receiver, text, length) ? objects.take() : nullptr;
}

}  // namespace json
