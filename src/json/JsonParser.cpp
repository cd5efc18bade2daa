#include "json/JsonParser.h"

#include "json/TokenScanner.h"

// ---- One document ----

// Few documents nest deeper: one allocation is enough for the open containers.
parserinfo::parserinfo() { open_.reserve(8); }

parserinfo::~parserinfo() { dropEverything(); }

jsObject* parserinfo::takeRoot() { return state_ == State::finished ? root_.take() : nullptr; }

void parserinfo::onError(std::string_view) {
  state_ = State::finished;
  dropEverything();
}

void parserinfo::dropEverything() {
  root_.reset();
  for (const Open& open : open_) {
    if (!open.placed) json::release(open.container);
  }
  open_.clear();
  name_.clear();
}

void parserinfo::refuse(jsObject* value, std::string_view message) {
  json::release(value);
  onError(message);
}

// Stores a complete value: as the root, as an element of the open array, or as the member of the pending name.
void parserinfo::offer(jsObject* value) {
  if (state_ != State::value) return refuse(value, "onValue: wrong state");
  if (open_.empty()) {
    root_.reset(value);
    state_ = State::finished;
    return;
  }
  jsObject* into = open_.back().container;
  if (json::isArray(into)) {
    json::append(into, value);
    state_ = State::afterElement;
    return;
  }
  if (name_.empty()) return refuse(value, "onValue: no available name for field");
  json::setMember(into, name_, value);
  name_.clear();
  state_ = State::afterMember;
}

// A container under a name becomes a member at once. Any other container is placed, or dropped, when it is closed.
void parserinfo::open(jsObject* container) {
  const bool placed = !name_.empty();
  if (placed) json::setMember(open_.back().container, name_, container);
  name_.clear();
  open_.push_back({container, placed});
}

void parserinfo::close(JsonKind kind, std::string_view messageIfNotOpen) {
  if (open_.empty() || open_.back().container->kind() != kind) return onError(messageIfNotOpen);
  const Open closed = open_.back();
  open_.pop_back();
  name_.clear();
  state_ = State::value;
  const bool isMember = !open_.empty() && json::isObject(open_.back().container);
  if (!isMember) return offer(closed.container);
  if (!closed.placed) json::release(closed.container);  // its member name is empty
  state_ = State::afterMember;
}

void parserinfo::takeName(std::string_view name) {
  name_ = name;
  state_ = State::afterName;
}

void parserinfo::onLeftBracket() {
  if (state_ != State::value) return onError("onLeftBracket: wrong state");
  open(json::makeArray());
}

void parserinfo::onLeftCurly() {
  if (state_ != State::value) return onError("onLeftCurly: wrong state");
  open(json::makeObject());
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

void parserinfo::onNumber(double number) { offer(json::makeNumber(number)); }

void parserinfo::onString(std::string_view text) {
  if (state_ == State::name) return takeName(text);
  offer(json::makeString(text));
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
