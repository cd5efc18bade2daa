// TextRef: a view of a zero-terminated text that can also hold the text of a number.
//
//   bool known = TextRef(argument).equalsIgnoreCase(TextRef("debug"));   // argument may be null
//   puts(TextRef(-5).text());                                           // "-5"
//
// The view does not own text given to it: that must outlive the view. Text made from a number lives inside the view
// itself, and copies of such a view hold their own copy. A view is never null; a null pointer makes the empty view.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class TextRef {
 public:
  // `text` up to its zero byte; null is the empty text.
  explicit TextRef(const char* text);
  // Pointer and length of `text`, zero bytes inside included; invalid as soon as the string changes.
  explicit TextRef(const std::string& text);
  // As printf writes it: "%d", "true" or "false", "%lf" (six digits after the point, at most 99 bytes kept).
  explicit TextRef(std::int32_t number);
  explicit TextRef(bool value);
  explicit TextRef(double number);

  TextRef(const TextRef& other);
  TextRef& operator=(const TextRef& other);

  // Never null, always zero-terminated.
  const char* text() const { return text_; }
  std::uint32_t length() const { return length_; }
  bool isEmpty() const { return length_ == 0; }
  std::string_view view() const { return {text_, length_}; }

  // Same length and same bytes.
  bool equals(const TextRef& other) const;
  // As strcasecmp: ASCII letters only, each text up to its first zero byte.
  bool equalsIgnoreCase(const TextRef& other) const;

 private:
  bool isInline() const { return text_ == buffer_; }

  const char* text_;
  std::uint32_t length_;
  char buffer_[100];
};
