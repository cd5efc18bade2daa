// TokenPrinter: prints the tokens of a text to standard output, as the scanner delivers them. For diagnosis.
//
//   json::dumpTokens("{\"a\":1}");     // prints: { "a" : 1.000000 }
//
// One blank follows each token; there is no line end. Strings stand between double quotes, unescaped. An error is
// "error: " and its message.
// Output goes to descriptor 1 itself, a piece at a time and the rest in finish(): whoever has unwritten text in a stdio
// stream over it flushes that first.
#pragma once

#include <string>

#include "json/JsonScanner.h"

class TokenPrinter final : public TokenReceiver {
 public:
  TokenPrinter() = default;
  ~TokenPrinter() override;
  TokenPrinter(const TokenPrinter&) = delete;
  TokenPrinter& operator=(const TokenPrinter&) = delete;

  // Writes what is left. False when anything could not be written; nothing is printed after the first such failure.
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
  void print(std::string_view token);

  std::string unwritten_;
  bool failed_ = false;
};

namespace json {

// Prints the tokens of a text. A negative length means up to the zero byte. True when there was a text and all of its
// tokens were written.
bool dumpTokens(const char* text, std::ptrdiff_t length = -1);

}  // namespace json
