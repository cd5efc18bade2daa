// Escapes: how each byte of a string is written inside the quotes of a JSON text.
//
//   constexpr json::EscapeTable escapes = json::makeEscapes();
//   escapes[static_cast<unsigned char>('\n')]  // {"\\n", 2}
//
// Deliberate: a backslash and a slash are written unchanged, and each byte from 128 to 255 becomes a question mark.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace json {

constexpr std::size_t longestEscape = 6;

// What is written for one byte: the first `length` characters of `text`.
struct Escape {
  char text[longestEscape] = {'?'};
  std::uint16_t length = 1;
};
using EscapeTable = std::array<Escape, 256>;

struct ShortForm {
  char byte;
  char letter;
};
constexpr ShortForm shortForms[] = {{'\b', 'b'}, {'\t', 't'}, {'\n', 'n'}, {'\r', 'r'}, {'"', '"'}};

constexpr Escape hexadecimalForm(std::size_t byte) {
  constexpr char digits[] = "0123456789ABCDEF";
  return {{'\\', 'u', '0', '0', digits[byte / 16], digits[byte % 16]}, longestEscape};
}

constexpr bool isPlain(std::size_t byte) { return byte >= 32 && byte <= 126; }

constexpr EscapeTable makeEscapes() {
  EscapeTable escapes{};
  for (std::size_t byte = 0; byte < 128; ++byte) {
    escapes[byte] = isPlain(byte) ? Escape{{static_cast<char>(byte)}, 1} : hexadecimalForm(byte);
  }
  for (const ShortForm& form : shortForms) escapes[static_cast<unsigned char>(form.byte)] = {{'\\', form.letter}, 2};
  return escapes;
}

}  // namespace json
