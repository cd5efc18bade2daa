// TokenPrinter: prints the tokens of a text to standard output, for diagnosis.
//
//   json::dumpTokens("{\"a\":1}");     // prints: { "a" : 1.000000 }
//
// A space follows each token; no newline is printed. Strings are printed unescaped between double quotes. An error is
// printed as "error: " and its message.
//
// The printer buffers its output and writes it to file descriptor 1 directly, not through stdio: whenever 4096 bytes
// have gathered, and in finish(). A caller that has used stdout must call fflush(stdout) first.
#pragma once

#include <string>

#include "json/JsonScanner.h"

class TokenPrinter final : public TokenReceiver {
 public:
  TokenPrinter() = default;
  ~TokenPrinter() override;
  TokenPrinter(const TokenPrinter&) = delete;
  TokenPrinter& operator=(const TokenPrinter&) = delete;

  // Writes the buffered remainder. Returns false if this write or any earlier one failed. After a failed write nothing
  // more is printed. The destructor calls finish() too, but cannot report a failure.
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

// Prints the tokens of `length` bytes. A negative length means that the text ends at its first zero byte. Returns true
// if the text was neither null nor empty and all of its tokens were written.
bool dumpTokens(const char* text, std::ptrdiff_t length = -1);

}  // namespace json
