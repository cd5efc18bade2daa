// TextRef: a view of a zero-terminated text, which can also hold the text of a number itself.
//
//   bool known = TextRef(argument).equalsIgnoreCase(TextRef("debug"));   // argument may be null
//   puts(TextRef(-5).text());                                           // "-5"
//
// The view does not own a text that it is made from: that text must outlive the view. The text of a number lives inside
// the view, and each copy of such a view has its own copy of the text. A view is never null; a null pointer makes an
// empty view.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class TextRef {
 public:
  // A view of `text` up to its zero byte. Null makes the empty text.
  explicit TextRef(const char* text);
  // A view of the whole string, including zero bytes inside it. It becomes invalid when the string changes.
  explicit TextRef(const std::string& text);
  // The text of a value: an integer as printf writes it with "%d", a boolean as "true" or "false", and a double as
  // printf writes it with "%lf". The text of a double has six digits after the point; it is cut after 99 bytes.
  explicit TextRef(std::int32_t number);
  explicit TextRef(bool value);
  explicit TextRef(double number);

  TextRef(const TextRef& other);
  TextRef& operator=(const TextRef& other);

  // Never null; always zero-terminated.
  const char* text() const { return text_; }
  std::uint32_t length() const { return length_; }
  bool isEmpty() const { return length_ == 0; }
  std::string_view view() const { return {text_, length_}; }

  // True if both texts have the same length and the same bytes.
  bool equals(const TextRef& other) const;
  // Compares as strcasecmp does: it ignores the case of ASCII letters and reads each text up to its first zero byte.
  bool equalsIgnoreCase(const TextRef& other) const;

 private:
  bool isInline() const { return text_ == buffer_; }
  void copyInline(const TextRef& other);

  const char* text_;
  std::uint32_t length_;
  char buffer_[100];
};
