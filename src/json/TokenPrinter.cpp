#include "json/TokenPrinter.h"

#include <algorithm>
#include <cstdio>

#include "json/NumberText.h"

bool TokenPrinter::finish() {
  if (std::fflush(stdout) != 0) failed_ = true;
  return !failed_;
}

void TokenPrinter::put(std::string_view text) {
  if (!failed_ && !text.empty() && std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) failed_ = true;
}

void TokenPrinter::print(std::string_view token) {
  put(token);
  put(" ");
}

void TokenPrinter::onError(std::string_view message) {
  put("error: ");
  print(message);
}

void TokenPrinter::onLeftBracket() { print("["); }
void TokenPrinter::onLeftCurly() { print("{"); }
void TokenPrinter::onRightBracket() { print("]"); }
void TokenPrinter::onRightCurly() { print("}"); }
void TokenPrinter::onComma() { print(","); }
void TokenPrinter::onColon() { print(":"); }

void TokenPrinter::onNumber(double number) {
  constexpr std::size_t mostPrinted = 99;
  char digits[json::mostFixedBytes];
  const char* end = json::writeFixed(digits, number);
  print({digits, std::min(static_cast<std::size_t>(end - digits), mostPrinted)});
}

void TokenPrinter::onString(std::string_view text) {
  put("\"");
  put(text);
  print("\"");
}

void TokenPrinter::onNull() { print("null"); }
void TokenPrinter::onBool(bool value) { print(value ? "true" : "false"); }
void TokenPrinter::onName(std::string_view name) { print(name); }

namespace json {

bool dumpTokens(const char* text, std::ptrdiff_t length) {
  TokenPrinter printer;
  const bool scanned = scan(printer, text, length);
  return printer.finish() && scanned;
}

}  // namespace json
