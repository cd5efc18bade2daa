#include "base/text/TextRef.h"

#include <strings.h>

#include <cstdio>
#include <cstring>

TextRef::TextRef(const char* text)
    : text_(text == nullptr ? "" : text), length_(static_cast<std::uint32_t>(std::strlen(text_))) {}

TextRef::TextRef(const std::string& text) : text_(text.c_str()), length_(static_cast<std::uint32_t>(text.size())) {}

TextRef::TextRef(std::int32_t number) : text_(buffer_) {
  std::snprintf(buffer_, sizeof buffer_, "%d", number);
  length_ = static_cast<std::uint32_t>(std::strlen(buffer_));
}

TextRef::TextRef(bool value) : TextRef(value ? "true" : "false") {}

TextRef::TextRef(double number) : text_(buffer_) {
  std::snprintf(buffer_, sizeof buffer_, "%lf", number);
  length_ = static_cast<std::uint32_t>(std::strlen(buffer_));
}

TextRef::TextRef(const TextRef& other) : text_(other.isInline() ? buffer_ : other.text_), length_(other.length_) {
  copyInline(other);
}

TextRef& TextRef::operator=(const TextRef& other) {
  if (this == &other) return *this;
  text_ = other.isInline() ? buffer_ : other.text_;
  length_ = other.length_;
  copyInline(other);
  return *this;
}

void TextRef::copyInline(const TextRef& other) {
  if (other.isInline()) buffer_[other.view().copy(buffer_, sizeof buffer_)] = '\0';
}

bool TextRef::equals(const TextRef& other) const { return view() == other.view(); }

bool TextRef::equalsIgnoreCase(const TextRef& other) const { return ::strcasecmp(text_, other.text_) == 0; }
