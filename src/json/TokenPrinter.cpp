#include "json/TokenPrinter.h"

#include <unistd.h>

#include <cstdio>

#include "base/system/RawWrite.h"

namespace {

constexpr std::size_t pieceSize = 4096;

}  // namespace

TokenPrinter::~TokenPrinter() {
  (void)finish();  // a caller that needs the result has called finish() itself
}

bool TokenPrinter::finish() {
  if (!failed_ && !writeFully(STDOUT_FILENO, unwritten_)) failed_ = true;
  unwritten_.clear();
  return !failed_;
}

void TokenPrinter::print(std::string_view token) {
  unwritten_ += token;
  unwritten_ += ' ';
  if (unwritten_.size() >= pieceSize) (void)finish();  // failed_ keeps a failure for the next call
}

void TokenPrinter::onError(std::string_view message) {
  unwritten_ += "error: ";
  print(message);
}

void TokenPrinter::onLeftBracket() { print("["); }
void TokenPrinter::onLeftCurly() { print("{"); }
void TokenPrinter::onRightBracket() { print("]"); }
void TokenPrinter::onRightCurly() { print("}"); }
void TokenPrinter::onComma() { print(","); }
void TokenPrinter::onColon() { print(":"); }

void TokenPrinter::onNumber(double number) {
  char digits[100];  // a longer number is cut to 99 characters
  (void)std::snprintf(digits, sizeof digits, "%f", number);
  print(digits);
}

void TokenPrinter::onString(std::string_view text) {
  unwritten_ += '"';
  unwritten_ += text;
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
