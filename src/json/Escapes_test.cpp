#include "json/Escapes.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string textOf(const json::Escape& escape) { return {escape.text, escape.length}; }

class Escapes : public testing::Test {
 protected:
  std::string operator[](unsigned char byte) const { return textOf(table_[byte]); }

 private:
  json::EscapeTable table_ = json::makeEscapes();
};

TEST_F(Escapes, ControlByteBecomesUpperCaseHexadecimal) {
  EXPECT_EQ((*this)[0x00], "\\u0000");
  EXPECT_EQ((*this)[0x0f], "\\u000F");
  EXPECT_EQ((*this)[0x1f], "\\u001F");
  EXPECT_EQ((*this)[0x7f], "\\u007F");
}

TEST_F(Escapes, FiveBytesHaveAShortEscape) {
  EXPECT_EQ((*this)['\b'], "\\b");
  EXPECT_EQ((*this)['\t'], "\\t");
  EXPECT_EQ((*this)['\n'], "\\n");
  EXPECT_EQ((*this)['\r'], "\\r");
  EXPECT_EQ((*this)['"'], "\\\"");
  EXPECT_EQ((*this)['\f'], "\\u000C");
}

TEST_F(Escapes, EveryOtherAsciiByteIsUnchanged) {
  for (unsigned char byte = ' '; byte <= '~'; ++byte) {
    const std::string own(1, static_cast<char>(byte));
    EXPECT_EQ((*this)[byte], byte == '"' ? "\\\"" : own);
  }
}

TEST_F(Escapes, ByteAbove127BecomesAQuestionMark) {
  for (int byte = 0x80; byte <= 0xff; ++byte) EXPECT_EQ((*this)[static_cast<unsigned char>(byte)], "?");
}

}  // namespace
