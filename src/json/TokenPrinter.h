// TokenPrinter: prints the tokens of a text to standard output, for diagnosis.
//
//   json::dumpTokens("{\"a\":1}");     // prints: { "a" : 1.000000 }
//
// A space follows each token; no newline is printed. Strings are printed unescaped between double quotes, numbers with
// a point and six decimals, but at most their first 99 characters. An error is printed as "error: " and its message.
//
// The printer passes each token to stdio's standard output as soon as it receives the token, so tokens and the output
// of printf appear in the order in which they were printed.
#pragma once

#include "json/JsonScanner.h"

class TokenPrinter final : public TokenReceiver {
 public:
  TokenPrinter() = default;
  TokenPrinter(const TokenPrinter&) = delete;
  TokenPrinter& operator=(const TokenPrinter&) = delete;

  // Flushes standard output. Returns false if this or the output of any token failed. After a failure no further token
  // is printed. Without a call of finish(), the last tokens may wait in stdio's buffer, and a failure is not reported.
  // If the output of other code flushes stdio's buffer and fails, that code alone learns of it.
  bool finish();

  void onError(std::string_view message) override;
  void onLeftBracket() override;
  void onLeftCurly() override;
  void onRightBracket() override;
  void onRightCurly() override;
  void onComma() override;
  void onColon() override;
  void onNumber(double number) override;
  void onString(std::string_view text) override;
  void onNull() override;
  void onBool(bool value) override;
  void onName(std::string_view name) override;

 private:
  void put(std::string_view text);
  void print(std::string_view token);

  bool failed_ = false;
};

namespace json {

// Prints the tokens of `length` bytes. A negative length means that the text ends at its first zero byte. Returns true
// if the text was neither null nor empty and all of its tokens were written.
bool dumpTokens(const char* text, std::ptrdiff_t length = untilZeroByte);

}  // namespace json
