// JsonScanner: splits JSON text into tokens and passes each token to a receiver.
//
//   parserinfo parser;
//   if (json::scan(parser, text, length)) ...
//
// The scanner accepts this language:
// - Spaces, tabs, carriage returns and line feeds between tokens are skipped.
// - Square brackets, curly brackets, commas and colons are tokens.
// - A string ends at the next double quote that is not escaped; a backslash escapes the byte after it. If the closing
//   quote is missing, the scan ends there without an error and without delivering that string.
// - A number starts with a digit, "-", "+" or "." and ends before the next comma, "}", "]", space, tab, carriage return
//   or line feed. Its value is what strtod() reads in the C locale: 12abc and 12:3 are 12, a minus sign alone is 0,
//   0x10 is 16.
// - A bare word starts with a letter and consists of letters, "." and "_". null, true and false are values. Every other
//   word is a name.
// - Any other byte at the start of a token is an error. The scan continues after that byte.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Receives the tokens of a text: one call per token, in order. A string_view argument is valid only during the call and
// may contain zero bytes. The text of a name or a string is a part of the scanned text, except that a string with
// escapes is a copy.
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
  virtual void onString(std::string_view text) = 0;  // a quoted string, unescaped
  virtual void onNull() = 0;
  virtual void onBool(bool value) = 0;
  virtual void onName(std::string_view name) = 0;  // a bare word other than null, true and false
};

namespace json {

constexpr std::ptrdiff_t untilZeroByte = -1;

// Scans `length` bytes. A negative length means that the text ends at its first zero byte.
// Returns true after the whole text has been scanned, even if errors were delivered. Returns false, and delivers
// nothing, if the text is null or empty.
bool scan(TokenReceiver& receiver, const char* text, std::ptrdiff_t length = untilZeroByte);

// Unescapes the bytes between the two quotes of a string and appends the result to `text`:
// - A backslash and b, f, n, r or t become that control byte.
// - A backslash and a quote, an apostrophe, a slash or a backslash become the second byte.
// - A backslash and any other byte become a question mark. So \u0041 becomes ?0041, which is deliberate.
// - A backslash at the end is dropped.
void appendUnescaped(std::string& text, std::string_view between);

}  // namespace json
