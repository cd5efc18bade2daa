// Laws of the JSON library, for any text:
// - The library reads nothing beyond the text, leaks nothing and frees nothing twice. The sanitizers check this.
// - Every member of a document is found by its name at its position.
// - A written tree parses back to the same tree, except that numbers have six decimals, and is then written as the same
//   text. This holds for trees that the format can represent: names without quotes and backslashes; strings without
//   backslashes, bytes above 126 and control bytes that have no escape letter; finite numbers that are not so close to
//   a whole number that rounding could make them whole.
// - The parser gives the same result if it is called through its interface, or with a text that ends at its zero byte.
// - A sequence contains only objects.
#include <cmath>
#include <cstdint>

#include "fuzz/FuzzTarget.h"
#include "json/JsonParser.h"
#include "json/JsonWriter.h"

namespace {

using fuzz::require;

bool carriesName(std::string_view name) { return name.find_first_of("\"\\") == std::string_view::npos; }

bool carriesText(std::string_view text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool hasLetter = c == '\b' || c == '\t' || c == '\n' || c == '\r';
    if (!hasLetter && (byte < 32 || byte > 126 || c == '\\')) return false;
  }
  return true;
}

// The writer prints numbers within 0.00001 of a whole number as whole. Rounding to six decimals may cross that limit.
bool carriesNumber(double number) {
  return std::isfinite(number) && std::fabs(std::fabs(number - std::round(number)) - 0.00001) > 0.000001;
}

bool carries(const jsObject* value) {
  if (json::isString(value)) return carriesText(json::textOf(value));
  if (json::isNumber(value)) return carriesNumber(json::numberOf(value));
  for (std::size_t at = 0; at < json::elementCount(value); ++at) {
    if (!carries(json::element(value, at))) return false;
  }
  for (std::size_t at = 0; at < json::memberCount(value); ++at) {
    if (!carriesName(json::memberName(value, at)) || !carries(json::memberValue(value, at))) return false;
  }
  return true;
}

bool sameNumber(double one, double other) { return std::fabs(one - other) <= 0.000011 + std::fabs(one) * 1e-15; }

bool same(const jsObject* one, const jsObject* other) {
  if (one->kind() != other->kind() || json::textOf(one) != json::textOf(other) ||
      json::booleanOf(one) != json::booleanOf(other) || !sameNumber(json::numberOf(one), json::numberOf(other)) ||
      json::elementCount(one) != json::elementCount(other) || json::memberCount(one) != json::memberCount(other)) {
    return false;
  }
  for (std::size_t at = 0; at < json::elementCount(one); ++at) {
    if (!same(json::element(one, at), json::element(other, at))) return false;
  }
  for (std::size_t at = 0; at < json::memberCount(one); ++at) {
    if (json::memberName(one, at) != json::memberName(other, at)) return false;
    if (!same(json::memberValue(one, at), json::memberValue(other, at))) return false;
  }
  return true;
}

void requireFoundMembers(const jsObject* value) {
  for (std::size_t at = 0; at < json::memberCount(value); ++at) {
    const std::string_view name = json::memberName(value, at);
    require(json::findMember(value, name) == static_cast<std::ptrdiff_t>(at), "a member is found at its position");
    require(json::findMemberIgnoringCase(value, name) <= static_cast<std::ptrdiff_t>(at),
            "a member is also found if the case is ignored");
    requireFoundMembers(json::memberValue(value, at));
  }
  for (std::size_t at = 0; at < json::elementCount(value); ++at) requireFoundMembers(json::element(value, at));
}

void requireStableText(const jsObject* document) {
  std::string text;
  json::write(text, document);
  ScopedJson again(json::parse(text.data(), static_cast<std::ptrdiff_t>(text.size())));
  if (!carries(document)) return;
  require(static_cast<bool>(again), "a written tree can be parsed");
  require(same(document, again.get()), "a written tree parses back to the same tree");
  std::string secondText;
  require(json::write(secondText, again.get()) == text, "a parsed tree is written as the same text");
}

std::string writtenOrNone(const jsObject* document) {
  std::string text;
  return document == nullptr ? "none" : json::write(text, document);
}

void requireSameThroughInterface(const char* text, std::ptrdiff_t length, const jsObject* document) {
  parserinfo parser;
  const bool isScanned = json::scan(parser, text, length);
  const ScopedJson found(parser.takeRoot());
  require(isScanned == (length != 0), "a scan accepts every text that is not empty");
  require(writtenOrNone(found.get()) == writtenOrNone(document), "virtual calls give the same document");
  const std::string copy(text, static_cast<std::size_t>(length));
  const std::string cut = copy.c_str();
  const ScopedJson toZeroByte(json::parse(copy.c_str()));
  const ScopedJson ofThatLength(json::parse(cut.data(), static_cast<std::ptrdiff_t>(cut.size())));
  require(writtenOrNone(toZeroByte.get()) == writtenOrNone(ofThatLength.get()),
          "a text without a length ends at its zero byte");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto* text = reinterpret_cast<const char*>(data);
  const auto length = static_cast<std::ptrdiff_t>(size);
  ScopedJson document(json::parse(text, length));
  if (document) {
    requireFoundMembers(document.get());
    requireStableText(document.get());
  }
  requireSameThroughInterface(text, length, document.get());
  ScopedJson objects(json::parseSequence(text, length));
  require(static_cast<bool>(objects) == (size != 0), "a sequence is an array unless the text is empty");
  for (std::size_t at = 0; at < json::elementCount(objects.get()); ++at) {
    require(json::isObject(json::element(objects.get(), at)), "a sequence contains only objects");
  }
  return 0;
}
