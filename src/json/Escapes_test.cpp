#include "json/Escapes.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

TEST(Escapes, OnlyPrintableBytesOtherThanTheQuoteAreUnchanged) {
  const json::EscapeTable escapes = json::makeEscapes();
  EXPECT_EQ(escapes.size(), 256U);
  const std::map<int, std::string> special = {
      {'\b', "\\b"},     {'\t', "\\t"},     {'\n', "\\n"},     {'\r', "\\r"},     {'"', "\\\""},
      {0x00, "\\u0000"}, {'\f', "\\u000C"}, {0x0f, "\\u000F"}, {0x1f, "\\u001F"}, {0x7f, "\\u007F"}};
  for (int byte = 0; byte < 256; ++byte) {
    const json::Escape& escape = escapes[static_cast<std::size_t>(byte)];
    const std::string text(escape.text, escape.length);
    if (special.count(byte) != 0) {
      EXPECT_EQ(text, special.at(byte)) << byte;
    } else if (byte >= ' ') {
      EXPECT_EQ(text, byte < 0x80 ? std::string(1, static_cast<char>(byte)) : "?") << byte;
    } else {
      EXPECT_EQ(text.substr(0, 4), "\\u00") << byte;
    }
  }
}

}  // namespace
