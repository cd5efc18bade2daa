#include "json/JsonScanner.h"

#include "json/TokenScanner.h"

namespace {

// The byte that each escape letter stands for. An unlisted letter becomes a question mark.
struct EscapeRow {
  char letter;
  char byte;
};
constexpr EscapeRow escapeRows[] = {{'"', '"'},  {'\\', '\\'}, {'/', '/'},  {'n', '\n'}, {'t', '\t'},
                                    {'r', '\r'}, {'b', '\b'},  {'f', '\f'}, {'\'', '\''}};

char escaped(char letter) {
  for (const EscapeRow& row : escapeRows) {
    if (row.letter == letter) return row.byte;
  }
  return '?';
}

}  // namespace

namespace json {

bool scan(TokenReceiver& receiver, const char* text, std::ptrdiff_t length) { return scanFor(receiver, text, length); }

void appendUnescaped(std::string& text, std::string_view between) {
  std::size_t at = 0;
  while (true) {
    const std::size_t backslash = between.find('\\', at);
    text.append(between, at, backslash == std::string_view::npos ? backslash : backslash - at);
    if (backslash == std::string_view::npos || backslash + 1 == between.size()) return;
    text += escaped(between[backslash + 1]);
    at = backslash + 2;
  }
}

}  // namespace json
