// JsonScanner: cuts JSON text into tokens and hands each to a receiver.
//
//   parserinfo parser;
//   if (json::scan(parser, text, length)) ...
//
// The scanner is lenient, and what follows is the language that it takes:
// - Blanks, tabs and line ends are skipped. Brackets, curly brackets, commas and colons are tokens wherever they stand.
// - A string ends at the next double quote without a backslash before it. A string left open ends the scan silently.
// - A number starts with a digit, "-", "+" or "." and runs to the next comma, "}", "]", blank, tab or line end; strtod
//   says what it is worth, so 12abc and 12:3 are 12, a lone minus is 0 and 0x10 is 16.
// - A bare word starts with a letter and runs over letters, "." and "_". null, true and false are values, others names.
// - Any other byte where a token may start is an error, and the scan goes on behind it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// What is done with the tokens of a text, one call for each, in order. Texts are valid during the call alone and may
// hold zero bytes.
class TokenReceiver {
 public:
  virtual ~TokenReceiver() = default;
  virtual void onError(std::string_view message) = 0;
  virtual void onLeftBracket() = 0;
  virtual void onLeftCurly() = 0;
  virtual void onRightBracket() = 0;
  virtual void onRightCurly() = 0;
  virtual void onComma() = 0;
  virtual void onColon() = 0;
  virtual void onNumber(double number) = 0;
  virtual void onString(std::string_view text) = 0;  // of a quoted string, unescaped
  virtual void onNull() = 0;
  virtual void onBool(bool value) = 0;
  virtual void onName(std::string_view name) = 0;  // a bare word that is no keyword
};

namespace json {

// Scans `length` bytes; a negative length means up to the zero byte that ends the text. True once the whole text has
// been gone through, whatever errors were delivered; false, with nothing delivered, for a null or an empty text.
bool scan(TokenReceiver& receiver, const char* text, std::ptrdiff_t length = -1);

// Appends what the bytes between two quotes stand for. A backslash before b, f, n, r or t is a control byte, before a
// quote, an apostrophe, a slash or a backslash that byte, before anything else a question mark: \u0041 becomes ?0041,
// which is deliberate. A backslash at the end is dropped.
void appendUnescaped(std::string& text, std::string_view between);

}  // namespace json
