// The rules that the JSON library must keep for any text:
// - The library reads nothing outside the text, leaks no memory and frees no block twice. The sanitizers check this.
// - findMember returns the index of every member of a document.
// - If a parsed tree is written and that text is parsed again, the result is the same tree, except that its numbers are
//   rounded to six decimals. The second tree is written as the same text as the first. This rule holds only for trees
//   that the written format can represent:
//   - No name contains a quote or a backslash.
//   - No string contains a backslash, a byte above 126, or a control byte other than \b, \t, \n and \r.
//   - Every number is finite, and rounding it to six decimals does not change whether it is written as a whole number.
// - A scan with virtual calls (json::scan with a parserinfo) gives the same document as json::parse.
// - A text without a length gives the same document as the same text with its length up to the first zero byte.
// - parseSequence returns an array of objects, and null only for an empty text.
// Three of four mutations of libFuzzer change the text as JSON (see JsonMutator.h).
#include <cmath>
#include <cstdint>

#include "fuzz/FuzzTarget.h"
#include "fuzz/JsonMutator.h"
#include "fuzz/Mutation.h"
#include "json/JsonParser.h"
#include "json/JsonWriter.h"

namespace {

using fuzz::require;

bool canRepresentName(std::string_view name) { return name.find_first_of("\"\\") == std::string_view::npos; }

bool canRepresentText(std::string_view text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool hasShortEscape = c == '\b' || c == '\t' || c == '\n' || c == '\r';
    if (!hasShortEscape && (byte < 32 || byte > 126 || c == '\\')) return false;
  }
  return true;
}

// The writer prints a number that is less than 0.00001 away from a whole number as that whole number. Rounding to six
// decimals may move a number across that limit.
bool canRepresentNumber(double number) {
  return std::isfinite(number) && std::fabs(std::fabs(number - std::round(number)) - 0.00001) > 0.000001;
}

bool canRepresent(const jsObject* value) {
  if (json::isString(value)) return canRepresentText(json::textOf(value));
  if (json::isNumber(value)) return canRepresentNumber(json::numberOf(value));
  for (std::size_t at = 0; at < json::elementCount(value); ++at) {
    if (!canRepresent(json::element(value, at))) return false;
  }
  for (std::size_t at = 0; at < json::memberCount(value); ++at) {
    if (!canRepresentName(json::memberName(value, at)) || !canRepresent(json::memberValue(value, at))) return false;
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
    require(json::findMember(value, name) == static_cast<std::ptrdiff_t>(at),
            "findMember returns the index of a member");
    require(json::findMemberIgnoringCase(value, name) <= static_cast<std::ptrdiff_t>(at),
            "a search that ignores case returns that member or an earlier one");
    requireFoundMembers(json::memberValue(value, at));
  }
  for (std::size_t at = 0; at < json::elementCount(value); ++at) requireFoundMembers(json::element(value, at));
}

void requireSameTreeAfterWriting(const jsObject* document) {
  std::string text;
  json::write(text, document);
  ScopedJson again(json::parse(text.data(), static_cast<std::ptrdiff_t>(text.size())));
  if (!canRepresent(document)) return;
  require(static_cast<bool>(again), "a written tree can be parsed");
  require(same(document, again.get()), "a written tree parses back to the same tree");
  std::string secondText;
  require(json::write(secondText, again.get()) == text, "a parsed tree is written as the same text");
}

std::string writtenOrNone(const jsObject* document) {
  std::string text;
  return document == nullptr ? "none" : json::write(text, document);
}

void requireSameDocumentFromOtherCalls(const char* text, std::ptrdiff_t length, const jsObject* document) {
  parserinfo parser;
  const bool isScanned = json::scan(parser, text, length);
  const ScopedJson scanned(parser.takeRoot());
  require(isScanned == (length != 0), "a scan returns false only for an empty text");
  require(writtenOrNone(scanned.get()) == writtenOrNone(document), "a scan gives the same document");
  const std::string copy(text, static_cast<std::size_t>(length));
  const std::string untilZeroByte = copy.c_str();
  const ScopedJson withoutLength(json::parse(copy.c_str()));
  const ScopedJson withLength(json::parse(untilZeroByte.data(), static_cast<std::ptrdiff_t>(untilZeroByte.size())));
  require(writtenOrNone(withoutLength.get()) == writtenOrNone(withLength.get()),
          "a text without a length ends at its zero byte");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto* text = reinterpret_cast<const char*>(data);
  const auto length = static_cast<std::ptrdiff_t>(size);
  ScopedJson document(json::parse(text, length));
  if (document) {
    requireFoundMembers(document.get());
    requireSameTreeAfterWriting(document.get());
  }
  requireSameDocumentFromOtherCalls(text, length, document.get());
  ScopedJson objects(json::parseSequence(text, length));
  require(static_cast<bool>(objects) == (size != 0), "parseSequence returns an array unless the text is empty");
  for (std::size_t at = 0; at < json::elementCount(objects.get()); ++at) {
    require(json::isObject(json::element(objects.get(), at)), "a sequence contains only objects");
  }
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room, unsigned seed) {
  fuzz::Random random(seed);
  if (random.below(4) == 0) return LLVMFuzzerMutate(data, size, room);
  return fuzz::putMutation(fuzz::mutatedJson(fuzz::textOf(data, size), random), data, size, room);
}

extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* one, std::size_t sizeOfOne,
                                                 const std::uint8_t* other, std::size_t sizeOfOther, std::uint8_t* out,
                                                 std::size_t room, unsigned seed) {
  fuzz::Random random(seed);
  const std::string mixed = fuzz::crossedJson(fuzz::textOf(one, sizeOfOne), fuzz::textOf(other, sizeOfOther), random);
  if (mixed.size() > room) return 0;
  return fuzz::putMutation(mixed, out, 0, room);
}
