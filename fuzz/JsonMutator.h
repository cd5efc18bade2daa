// JsonMutator: changes a text as JSON. libFuzzer's own mutators change bytes, and most of their texts break the
// brackets.
//
//   fuzz::Random random(seed);
//   const std::string changed = fuzz::mutatedJson(text, random);        // a member twice, two values swapped, ...
//   const std::string mixed = fuzz::crossedJson(text, other, random);   // a value of `other` in `text`
//
// The text need not be JSON: its pieces are found loosely, and a bracket that is never closed ends with the text.
#pragma once

#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/Mutation.h"

namespace fuzz {

struct JsonSpan {
  std::size_t begin;
  std::size_t end;
};

// The pieces of a text, in the order of their ends.
struct JsonPieces {
  std::vector<JsonSpan> values;  // objects, arrays, strings, numbers and words, but no names
  std::vector<JsonSpan> names;
  std::vector<JsonSpan> items;  // members with their names, and elements: what commas separate
};

// Finds the pieces of a text.
class JsonPieceFinder {
 public:
  explicit JsonPieceFinder(std::string_view text) : text_(text) {
    levels_.emplace_back();
    while (at_ < text_.size()) step();
    while (levels_.size() > 1) close();
  }

  const JsonPieces& pieces() const { return pieces_; }

 private:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
  static constexpr std::string_view kPunctuation = "{}[],:\" \t\r\n";

  struct Level {
    std::size_t begin = 0;     // of the bracket
    std::size_t name = kNone;  // where the member begins whose value follows
    bool hasValue = false;     // the last piece of this level is a value, which becomes a name if a colon follows
  };

  void step() {
    const char c = text_[at_];
    const std::size_t begin = at_;
    ++at_;
    if (c == '{' || c == '[') {
      levels_.emplace_back();
      levels_.back().begin = begin;
    } else if (c == '}' || c == ']') {
      if (levels_.size() > 1) close();
    } else if (c == ':') {
      if (levels_.back().hasValue) nameFollowed();
    } else if (c == ',') {
      levels_.back().hasValue = false;
      levels_.back().name = kNone;
    } else if (c == '"') {
      while (at_ < text_.size() && text_[at_] != '"') at_ += text_[at_] == '\\' && at_ + 1 < text_.size() ? 2 : 1;
      if (at_ < text_.size()) ++at_;
      addValue(begin);
    } else if (kPunctuation.find(c) == std::string_view::npos) {
      while (at_ < text_.size() && kPunctuation.find(text_[at_]) == std::string_view::npos) ++at_;
      addValue(begin);
    }
  }

  void close() {
    const std::size_t begin = levels_.back().begin;
    levels_.pop_back();
    addValue(begin);
  }

  // The value ends where the search has come to.
  void addValue(std::size_t begin) {
    Level& level = levels_.back();
    pieces_.values.push_back({begin, at_});
    pieces_.items.push_back({level.name == kNone ? begin : level.name, at_});
    level.hasValue = level.name == kNone;
    level.name = kNone;
  }

  void nameFollowed() {
    Level& level = levels_.back();
    level.name = pieces_.values.back().begin;
    level.hasValue = false;
    pieces_.names.push_back(pieces_.values.back());
    pieces_.values.pop_back();
    pieces_.items.pop_back();
  }

  std::string_view text_;
  std::size_t at_ = 0;
  JsonPieces pieces_;
  std::vector<Level> levels_;
};

namespace json_mutator {

constexpr const char* kValues[] = {"0",
                                   "-1",
                                   "-0.0",
                                   "2147483647",
                                   "2147483648",
                                   "-2147483649",
                                   "9007199254740993",
                                   "18446744073709551616",
                                   "0.00001",
                                   "2.99999",
                                   "2.9999901",
                                   "1e-7",
                                   "1e308",
                                   "1e999",
                                   "-1e999",
                                   "5e-324",
                                   ".5",
                                   "5.",
                                   "0x10",
                                   "00",
                                   "nan",
                                   "true",
                                   "false",
                                   "null",
                                   "nul",
                                   "{}",
                                   "[]",
                                   "\"\"",
                                   "\"a\"",
                                   "\"\\\"\"",
                                   "\"\\u0000\"",
                                   "\"\\ud800\"",
                                   "\"\\uD83D\\uDE00\"",
                                   "\"\x7f\"",
                                   "\"\xc3\xa9\"",
                                   "{\"a\":1,\"a\":2}",
                                   "[1,\"1\",null]"};
constexpr const char* kInStrings[] = {"\\\"", "\\\\",    "\\/",     "\\b",     "\\n",      "\\t",      "\\r", "\\f",
                                      "\\'",  "\\u0041", "\\u00e9", "\\u20aC", "\\ud83d",  "\\u12",    "\\x", "\\",
                                      "\n",   "\t",      "\x01",    "\x7f",    "\xc3\xa9", "\xe2\x82", "'",   "a"};
constexpr const char* kInNumbers[] = {"0", "1", "9", "-", "+", ".", "e", "E", "e+", "000000", "999999", "e308"};
constexpr const char* kNames[] = {"\"a\"", "\"A\"", "a", "\"\"", "\"a b\"", "\"\\u0061\"", "\"\\\"\"", "a.b_c"};

inline std::string_view textOf(std::string_view text, JsonSpan span) {
  return text.substr(span.begin, span.end - span.begin);
}

inline std::string replaced(std::string_view text, JsonSpan span, std::string_view by) {
  return std::string(text).replace(span.begin, span.end - span.begin, by);
}

// Removes an item with the comma behind it, or else the one before it.
inline std::string without(std::string_view text, JsonSpan item) {
  const std::size_t after = text.find_first_not_of(" \t\r\n", item.end);
  if (after != std::string_view::npos && text[after] == ',') {
    item.end = after + 1;
  } else if (item.begin > 0) {
    const std::size_t before = text.find_last_not_of(" \t\r\n", item.begin - 1);
    if (before != std::string_view::npos && text[before] == ',') item.begin = before;
  }
  return replaced(text, item, "");
}

inline std::string withItemBehind(std::string_view text, JsonSpan place, std::string_view item) {
  return std::string(text).insert(place.end, "," + std::string(item));
}

inline std::string swapped(std::string_view text, JsonSpan one, JsonSpan other) {
  if (other.begin < one.begin) std::swap(one, other);
  if (other.begin < one.end) return replaced(text, one, textOf(text, other));  // one is inside the other
  const std::string later = replaced(text, other, textOf(text, one));
  return replaced(later, one, textOf(text, other));
}

inline std::string moved(std::string_view text, JsonSpan item, JsonSpan place) {
  if (place.end > item.begin && place.begin < item.end) return without(text, item);
  const std::string piece(textOf(text, item));
  if (place.begin < item.begin) return withItemBehind(without(text, item), place, piece);
  return without(withItemBehind(text, place, piece), item);
}

inline std::string nested(std::string_view text, JsonSpan value, Random& random) {
  static constexpr const char* kOpen[] = {"[", "{\"a\":", "[1,", "{\"b\":2,\"a\":"};
  std::string open;
  std::string close;
  const std::size_t kind = random.below(std::size(kOpen));
  const std::size_t levels = random.below(32) == 0 ? 1 + random.below(60) : 1;
  for (std::size_t level = 0; level < levels; ++level) {
    open += kOpen[kind];
    close += kOpen[kind][0] == '[' ? ']' : '}';
  }
  return replaced(text, value, open + std::string(textOf(text, value)) + close);
}

// Changes the inside of a string, a number or a word at one place, or takes away the brackets of an object or array.
inline std::string changedInside(std::string_view text, JsonSpan value, Random& random) {
  const std::string_view piece = textOf(text, value);
  const bool isBracketed = piece.front() == '{' || piece.front() == '[';
  if (isBracketed) return replaced(text, value, piece.size() > 2 ? piece.substr(1, piece.size() - 2) : "");
  const bool isString = piece.front() == '"';
  const std::size_t first = isString ? 1 : 0;
  const std::size_t last = piece.size() > 1 && isString ? piece.size() - 1 : piece.size();
  const std::size_t at = value.begin + first + random.below(last - first + 1);
  if (random.below(4) == 0 && last > first && at < value.begin + last) return replaced(text, {at, at + 1}, "");
  return replaced(text, {at, at}, isString ? random.oneOf(kInStrings) : random.oneOf(kInNumbers));
}

}  // namespace json_mutator

// Returns the text with one change. A text without a value gets one.
inline std::string mutatedJson(std::string_view text, Random& random) {
  using namespace json_mutator;  // the steps of this function
  const JsonPieceFinder finder(text);
  const auto& [values, names, items] = finder.pieces();
  if (values.empty()) return std::string(text) + random.oneOf(kValues);
  const JsonSpan value = random.oneOf(values);
  const JsonSpan item = random.oneOf(items);
  switch (random.below(names.empty() ? 8 : 10)) {
    case 0:
      return without(text, item);
    case 1:
      return withItemBehind(text, random.oneOf(items), textOf(text, item));
    case 2:
      return swapped(text, item, random.oneOf(items));
    case 3:
      return moved(text, item, random.oneOf(items));
    case 4:
      return replaced(text, value, textOf(text, random.oneOf(values)));
    case 5:
      return nested(text, value, random);
    case 6:
      return replaced(text, value, random.oneOf(kValues));
    case 7:
      return changedInside(text, value, random);
    case 8:
      return replaced(text, random.oneOf(names), random.oneOf(kNames));
    default:
      return replaced(text, random.oneOf(names), textOf(text, random.oneOf(names)));
  }
}

// Returns the text with a value or a member of the other text in the place of one of its own.
inline std::string crossedJson(std::string_view text, std::string_view other, Random& random) {
  const JsonPieceFinder into(text);
  const JsonPieceFinder from(other);
  const bool isValue = random.below(2) == 0;
  const std::vector<JsonSpan>& places = isValue ? into.pieces().values : into.pieces().items;
  const std::vector<JsonSpan>& pieces = isValue ? from.pieces().values : from.pieces().items;
  if (places.empty() || pieces.empty()) return std::string(text) + std::string(other);
  return json_mutator::replaced(text, random.oneOf(places), json_mutator::textOf(other, random.oneOf(pieces)));
}

}  // namespace fuzz
