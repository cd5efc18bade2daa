// TextOrNull: the type of a parameter that takes a text or a null pointer. A null pointer is an absent text, which
// counts as the empty text.
//
//   std::int64_t parseDuration(TextOrNull text);
//   parseDuration(std::getenv("TIMEOUT"));      // getenv may return null
//
// It is a view: it does not own the text, which must outlive the call.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

class TextOrNull : public std::string_view {
 public:
  // The conversions are implicit, so that callers pass any kind of text as they would to a std::string_view.
  constexpr TextOrNull(std::nullptr_t) {}
  constexpr TextOrNull(const char* text) : std::string_view(text == nullptr ? std::string_view() : text) {}
  constexpr TextOrNull(std::string_view text) : std::string_view(text) {}
  TextOrNull(const std::string& text) : std::string_view(text) {}
};
