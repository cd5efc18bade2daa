#include "json/NumberText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include "testing/faults/AllocationCount.h"
#include "testing/run/DecimalPoint.h"

namespace {

double doubleOf(std::uint64_t bits) {
  double number = 0;
  std::memcpy(&number, &bits, sizeof number);
  return number;
}

std::uint64_t bitsOf(double number) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &number, sizeof bits);
  return bits;
}

// --- Texts to numbers: the same bits as from strtod

void expectReadAsByStrtod(const std::string& text) {
  ASSERT_EQ(bitsOf(json::numberIn(text)), bitsOf(std::strtod(text.c_str(), nullptr))) << text;
}

TEST(NumberText, ANumberOfNineteenDigitsIsReadWithoutMemory) {
  const std::int64_t before = newBlocksSoFar();
  EXPECT_EQ(json::numberIn("9999999999999999999"), 1e19);
  EXPECT_EQ(json::numberIn("+9999999999999999999"), 1e19);
  EXPECT_EQ(json::numberIn("-9999999999999999999"), -1e19);
  EXPECT_EQ(newBlocksSoFar(), before);
}

TEST(NumberText, EdgeCasesAreReadAsByStrtod) {
  const struct {
    const char* why;
    std::vector<const char*> texts;
  } cases[] = {
      {"signs and zeros", {"0", "-0", "+0", "-0.0", "00012", "0000000000000000000000000000005"}},
      {"a point at the start or the end", {"0.1", ".1", "-.1", "1."}},
      {"no digits", {"-", "-.", ".", "", "--1", "1-"}},
      {"up to 16 digits", {"999999999999999", "9999999999999999", "123456789012.345", "1234567890123.456"}},
      {"near 2 to the power of 53",
       {"9007199254740991", "9007199254740992", "9007199254740993", "9007199254740994.5", "900719925474099.25"}},
      {"near 2 to the power of 64", {"18446744073709551615", "18446744073709551616", "9999999999999999999"}},
      {"exactly the middle between two doubles",
       {"9007199254740993.0", "9007199254740995.0", "4503599627370497.5", "450359962737049.75"}},
      {"more digits than 64 bits hold", {"0.9999999999999999999", "99999999999999999999", "1234567890.123456789"}},
      {"many zeros", {"0.000000000000001", "0.0000000000000000001", "0.00000000000000000000000000001"}},
      {"19 decimals just above the middle between two doubles",
       {".9999999999986293742", ".9999999999999136802", ".9999999999999889533"}},
      {"a plus sign and 19 digits", {"+1234567890123456789", "+9999999999999999999", "+.5"}},
      {"exponents", {"1e", "1e5", "1e5x", "1e999", "-1e999", "1e-999", "4.9e-324", "2.2250738585072011e-308"}},
      {"other forms", {"0x1.8p1", "nan", "inf", "-infinity", " 7", "1 2", "1,5", "1.2.3"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    for (const char* text : c.texts) expectReadAsByStrtod(text);
  }
}

TEST(NumberText, NumbersOfAnyLengthAreReadAsByStrtod) {
  for (std::size_t zeros = 0; zeros < 150; ++zeros) {
    expectReadAsByStrtod("+" + std::string(zeros, '0') + "1234567890.5e-3");
    expectReadAsByStrtod("0." + std::string(zeros, '0') + "12345678901234567890");
  }
}

TEST(NumberText, RandomDecimalsAreReadAsByStrtod) {
  std::mt19937_64 random(3);
  for (int round = 0; round < 40000; ++round) {
    const int digits = static_cast<int>(random() % 21) + 1;
    std::string text = random() % 4 == 0 ? "-" : "";
    const int point = static_cast<int>(random() % 23);
    for (int at = 0; at < digits; ++at) {
      if (at == point) text += '.';
      text += static_cast<char>('0' + random() % 10);
    }
    expectReadAsByStrtod(text);
  }
}

TEST(NumberText, DecimalsHalfwayBetweenTwoDoublesAreReadAsByStrtod) {
  std::mt19937_64 random(5);
  for (int round = 0; round < 4000; ++round) {
    const double number = static_cast<double>(random() % (1ULL << 53)) / static_cast<double>(1ULL << (random() % 54));
    char text[64];
    for (int precision : {15, 16, 17, 18, 19}) {
      std::snprintf(text, sizeof text, "%.*g", precision, (number + std::nextafter(number, 1e300)) / 2);
      expectReadAsByStrtod(text);
      std::snprintf(text, sizeof text, "%.*f", precision - 1, std::fmod(number, 10));
      expectReadAsByStrtod(text);
    }
  }
}

TEST(NumberText, FastPathStopsAtTheFirstByteThatIsNoDigit) {
  const auto read = [](const char* text) { return json::readPlainNumber(text, text + std::strlen(text)); };
  struct Case {
    const char* text;
    std::ptrdiff_t end;
    double number;
  };
  const Case cases[] = {{"12,", 2, 12},    {"-1.5]", 4, -1.5}, {"7e5", 1, 7},
                        {"1.2.3", 3, 1.2}, {"5.", 2, 5},       {".5", 2, .5}};
#ifdef __SIZEOF_INT128__
  constexpr bool canScale = true;
#else
  constexpr bool canScale = std::is_same_v<std::double_t, double>;
#endif
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    const bool isRead = canScale || c.number == std::floor(c.number);
    EXPECT_EQ(read(c.text).end, isRead ? c.text + c.end : nullptr);
    if (isRead) {
      EXPECT_EQ(read(c.text).value, c.number);
    }
  }
#ifdef __SIZEOF_INT128__
  const char* const manyDigits = "900719925474099.25,";
  EXPECT_EQ(read(manyDigits).end, manyDigits + 18) << "more digits than a double holds";
  EXPECT_EQ(read(manyDigits).value, 900719925474099.25);
#endif
  for (const char* text : {"", "-", "+1", "abc", "-.", ".", "12345678901234567890"}) {
    EXPECT_EQ(read(text).end, nullptr) << text;
  }
}

// --- Numbers to texts: the same digits as from "%f"

void expectWrittenAsBySnprintf(double number) {
  char expected[500];
  std::snprintf(expected, sizeof expected, "%f", number);
  char text[json::mostFixedBytes];
  ASSERT_EQ(std::string_view(text, static_cast<std::size_t>(json::writeFixed(text, number) - text)), expected);
}

TEST(NumberText, EdgeCasesAreWrittenAsBySnprintf) {
  using Limits = std::numeric_limits<double>;
  const struct {
    const char* why;
    std::vector<double> numbers;
  } cases[] = {
      {"few decimals", {0.0, 0.5, 0.1, 1.0}},
      {"near the middle between two texts", {9.9999995, 9.9999994, 0.0000005, 0.00000050000001, 0.0000015, 0.0000025}},
      {"exactly the middle between two texts", {0.0078125, 0.0234375, 0.00390625}},
      {"small numbers", {1e-9, 1e-18, 1e-30, Limits::min(), Limits::denorm_min(), Limits::epsilon()}},
      {"near the largest number of the fast path", {17592186044415.5, 17592186044416.0, 18446744073709.5, 3e13}},
      {"near the smallest number of the fast path", {0x1p-75, 0x1p-76, 0x1.8p-76, 0x1p-77}},
      {"many nines", {999999999999.9999, 999999999999.99999, 999999.9999995, 0.9999995, 0.99999949999999}},
      {"large numbers", {1e12, 1e15, 4503599627370495.5, 1e22, 1e300, Limits::max(), Limits::infinity()}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    for (double number : c.numbers) {
      expectWrittenAsBySnprintf(number);
      expectWrittenAsBySnprintf(-number);
    }
  }
  expectWrittenAsBySnprintf(std::nan(""));
  const int longest = std::snprintf(nullptr, 0, "%f", -Limits::max());
  EXPECT_EQ(json::mostFixedBytes, static_cast<std::size_t>(longest) + 1);
}

#ifdef __SIZEOF_INT128__
// The C library writes a zero byte behind the text, the fast path does not.
TEST(NumberText, NumbersFrom2ToThePowerOfMinus75To44AreWrittenWithoutTheCLibrary) {
  const auto isFast = [](double number) {
    char text[json::mostFixedBytes];
    std::memset(text, 'x', sizeof text);
    return *json::writeFixed(text, number) != '\0';
  };
  for (double number : {0.5, 3.25, 1e12, 17592186044415.5, 0x1p-75}) {
    EXPECT_TRUE(isFast(number)) << number;
    EXPECT_TRUE(isFast(-number)) << number;
  }
  for (double number : {0.0, 0x1p44, 0x1.fp-76, std::numeric_limits<double>::infinity()}) {
    EXPECT_FALSE(isFast(number)) << number;
  }
}
#endif

// --- Locales

const char* const kOtherPoints[] = {",", "\u066B", "::"};

TEST(NumberText, NumbersAreReadWithAPointInEveryLocale) {
  const char* const texts[] = {
      "1.5",   "1.5e0",   "-1.5E+1x", "+2.5", "0x1.8p1", "1,5", "+1,5",  "1.5,5", "+1\u066B5",
      "+1::5", "0x1,8p1", "12abc",    "12:3", ".5e1",    "e5",  "-.5E0", "1.2.3", "1e5",
      "inf",   "nan",     "",         "+",    ".",       ",",   "1e-2,", "+.5",   "1.00000000000000000000000005"};
  std::vector<double> expected;
  for (const char* text : texts) expected.push_back(std::strtod(text, nullptr));
  for (const char* point : kOtherPoints) {
    SCOPED_TRACE(point);
    const DecimalPoint locale(point);
    ASSERT_TRUE(locale.isSet());
    ASSERT_EQ(std::strtod((std::string("1") + point + "5").c_str(), nullptr), 1.5) << "the locale is in use";
    for (std::size_t at = 0; at < expected.size(); ++at) {
      EXPECT_EQ(bitsOf(json::numberIn(texts[at])), bitsOf(expected[at])) << texts[at];
    }
  }
}

TEST(NumberText, NumbersAreWrittenWithAPointInEveryLocale) {
  using Limits = std::numeric_limits<double>;
  const double numbers[] = {0.5,
                            0.0,
                            -0.0,
                            1e-300,
                            0x1p44,
                            0x1p44 + 1,
                            0x1p44 + 0.75,
                            1e22,
                            Limits::max(),
                            -Limits::max(),
                            1e300,
                            -1e-9,
                            std::nan(""),
                            Limits::infinity(),
                            -Limits::infinity()};
  for (const char* point : kOtherPoints) {
    SCOPED_TRACE(point);
    for (const double number : numbers) {
      char expected[json::mostFixedBytes];
      std::snprintf(expected, sizeof expected, "%f", number);
      const DecimalPoint locale(point);
      ASSERT_TRUE(locale.isSet());
      char text[json::mostFixedBytes];
      EXPECT_EQ(std::string_view(text, static_cast<std::size_t>(json::writeFixed(text, number) - text)), expected);
    }
  }
}

TEST(NumberText, HalvesAreRoundedToEvenAsBySnprintf) {
  for (int numerator = 1; numerator < 2000; ++numerator) {
    for (double power : {128.0, 256.0, 65536.0, 1048576.0}) expectWrittenAsBySnprintf(numerator / power);
  }
}

TEST(NumberText, RandomNumbersAreWrittenAsBySnprintf) {
  std::mt19937_64 random(11);
  for (int round = 0; round < 20000; ++round) {
    expectWrittenAsBySnprintf(doubleOf(random()));
    const std::uint64_t exponent = 1023 - 70 + random() % 120;
    expectWrittenAsBySnprintf(doubleOf((random() >> 12) | (exponent << 52) | (random() & (1ULL << 63))));
    expectWrittenAsBySnprintf(static_cast<double>(random() % 1000000000) / 1000.0);
  }
}

TEST(NumberText, IntegersOfEveryLengthAreWrittenInDecimal) {
  const auto expectWritten = [](std::uint32_t number) {
    char text[json::mostIntegerBytes];
    const auto size = static_cast<std::size_t>(json::writeInteger(text, number) - text);
    ASSERT_EQ(std::string_view(text, size), std::to_string(number));
  };
  for (std::uint64_t power = 1; power <= 1000000000; power *= 10) {
    for (std::uint64_t number = power - 1; number <= power + 1; ++number) {
      expectWritten(static_cast<std::uint32_t>(number));
    }
  }
  for (std::uint32_t number : {0u, 2147483647u, 2147483648u, 4294967295u}) expectWritten(number);
  EXPECT_EQ(json::mostIntegerBytes, std::to_string(4294967295u).size()) << "no text is longer";
  std::mt19937 random(13);
  for (int round = 0; round < 100000; ++round) expectWritten(static_cast<std::uint32_t>(random() >> random() % 32));
}

// Numbers with three decimals, which are common in programs, and numbers close to the middle between two texts of six
// decimals.
TEST(NumberText, AMillionNumbersAreWrittenAsBySnprintf) {
  std::mt19937_64 random(17);
  for (int round = 0; round < 250000; ++round) {
    const double thousandths = static_cast<double>(random() % 1000000000000) / 1000;
    const double middle = (static_cast<double>(random() >> random() % 44 >> 20) + 0.5) / 1000000;
    expectWrittenAsBySnprintf(thousandths);
    expectWrittenAsBySnprintf(middle);
    expectWrittenAsBySnprintf(std::nextafter(middle, 0));
    expectWrittenAsBySnprintf(-std::nextafter(middle, 1e300));
  }
}

}  // namespace
