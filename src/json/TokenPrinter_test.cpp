#include "json/TokenPrinter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <cstdio>

#include "testing/run/DecimalPoint.h"

using namespace std::string_literals;

namespace {

// Redirects standard output to another file during its lifetime.
class OutputTo {
 public:
  explicit OutputTo(int descriptor) {
    std::fflush(stdout);
    saved_ = ::dup(STDOUT_FILENO);
    ::dup2(descriptor, STDOUT_FILENO);
  }
  ~OutputTo() {
    ::dup2(saved_, STDOUT_FILENO);
    ::close(saved_);
  }

 private:
  int saved_;
};

// What `work` prints to standard output.
template <class Work>
std::string outputOf(Work work) {
  std::FILE* file = std::tmpfile();
  {
    OutputTo redirected(::fileno(file));
    work();
  }
  std::string output;
  std::rewind(file);
  for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) output += static_cast<char>(c);
  std::fclose(file);
  return output;
}

std::string dumpOf(std::string_view text) {
  return outputOf(
      [&] { EXPECT_TRUE(json::dumpTokens(text.data(), static_cast<std::ptrdiff_t>(text.size()))) << text; });
}

TEST(TokenPrinter, PrintsEachTokenAndASpace) {
  char longNumber[400];
  std::snprintf(longNumber, sizeof longNumber, "%f", 1e300);
  const struct {
    const char* why;
    std::string text, printed;
  } cases[] = {
      {"brackets, commas and colons", "[{]},:", "[ { ] } , : "},
      {"words", "null true false name.x", "null true false name.x "},
      {"numbers", "3 -2.5 1e10", "3.000000 -2.500000 10000000000.000000 "},
      {"a long number is cut to 99 characters", "1e300", std::string(longNumber, 99) + " "},
      {"a document", "{\"a\" : [1, \"b\"]}", "{ \"a\" : [ 1.000000 , \"b\" ] } "},
      {"strings are printed unescaped between quotes", R"("a\n\"\u0041" "")", "\"a\n\"?0041\" \"\" "},
      {"zero bytes and bytes above 127 are printed unchanged", "\"a\0b\xC3\""s, "\"a\0b\xC3\" "s},
      {"a string is never used as a format", "\"%s%n\" ", "\"%s%n\" "},
      {"an error message", "#1", "error: scanner error 1.000000 "},
      {"spaces print nothing", " ", ""},
      {"a string without a closing quote prints nothing", "\"open", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(dumpOf(c.text), c.printed);
  }
}

TEST(TokenPrinter, PrintsNumbersWithAPointInEveryLocale) {
  const DecimalPoint comma(",");
  ASSERT_TRUE(comma.isSet());
  EXPECT_EQ(dumpOf("0.5 1.5e0 17592186044416.5"), "0.500000 1.500000 17592186044416.500000 ");
}

TEST(TokenPrinter, NullOrEmptyTextPrintsNothingAndFails) {
  EXPECT_EQ(outputOf([] {
              EXPECT_FALSE(json::dumpTokens(nullptr));
              EXPECT_FALSE(json::dumpTokens(""));
              EXPECT_FALSE(json::dumpTokens("1", 0));
            }),
            "");
}

TEST(TokenPrinter, NegativeLengthMeansUpToTheZeroByte) {
  EXPECT_EQ(outputOf([] { EXPECT_TRUE(json::dumpTokens("[1")); }), "[ 1.000000 ");
}

TEST(TokenPrinter, LongOutputIsCompleteAndInOrder) {
  std::string text;
  std::string expected;
  for (int at = 0; at < 5000; ++at) {
    text += "\"token " + std::to_string(at) + "\",";
    expected += "\"token " + std::to_string(at) + "\" , ";
  }
  EXPECT_EQ(dumpOf(text), expected);
}

TEST(TokenPrinter, TokensMixWithPrintfInTheirOrder) {
  EXPECT_EQ(outputOf([] {
              TokenPrinter printer;
              std::printf("first ");
              printer.onName("a");
              std::printf("%d ", 2);
              printer.onString("b");
              printer.onError("c");
              std::printf("last");
              EXPECT_TRUE(printer.finish());
            }),
            "first a 2 \"b\" error: c last");
}

TEST(TokenPrinter, EachTokenIsInTheBufferOfStandardOutputWhenItComes) {
  EXPECT_EQ(outputOf([] {
              TokenPrinter printer;
              std::size_t expected = 0;
              for (const std::string& token : {"null"s, "name"s, std::string(100, 'x')}) {
                printer.onName(token);
                expected += token.size() + 1;
                EXPECT_EQ(::__fpending(stdout), expected);
              }
              EXPECT_TRUE(printer.finish());
              EXPECT_EQ(::__fpending(stdout), 0U);
            }),
            "null name " + std::string(100, 'x') + " ");
}

TEST(TokenPrinter, WithoutFinishTheLastTokensWaitInTheBuffer) {
  EXPECT_EQ(outputOf([] {
              { TokenPrinter().onBool(true); }
              EXPECT_EQ(::__fpending(stdout), 5U);
              std::fflush(stdout);
            }),
            "true ");
}

TEST(TokenPrinter, ShortWriteIsContinued) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  const std::string longText(200000, 'x');  // more than the capacity of a pipe
  {
    OutputTo redirected(ends[1]);
    EXPECT_FALSE(json::dumpTokens(("\"" + longText + "\"").c_str()))
        << "the pipe is full before all of the text is written";
  }
  std::string arrived(300000, '\0');
  const ssize_t size = ::read(ends[0], &arrived[0], arrived.size());
  ASSERT_GT(size, 4096);
  EXPECT_EQ(arrived.substr(0, static_cast<std::size_t>(size)),
            "\"" + longText.substr(0, static_cast<std::size_t>(size) - 1));
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST(TokenPrinter, FailedWriteIsReportedAndNothingIsPrintedAfterIt) {
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  EXPECT_EQ(outputOf([full] {
              TokenPrinter printer;
              {
                OutputTo redirected(full);
                EXPECT_FALSE(json::dumpTokens("[1]"));
                EXPECT_TRUE(printer.finish()) << "the printer has nothing to write yet";
                printer.onNull();
                EXPECT_FALSE(printer.finish());
                EXPECT_FALSE(printer.finish());
              }
              printer.onComma();
              EXPECT_FALSE(printer.finish());
            }),
            "");
  ::close(full);
}

TEST(TokenPrinter, NothingIsPrintedAfterATokenThatCouldNotBeWritten) {
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  {
    OutputTo redirected(full);
    TokenPrinter printer;
    printer.onName(std::string(200000, 'x'));  // more than the buffer holds
    ::__fpurge(stdout);
    printer.onComma();
    EXPECT_EQ(::__fpending(stdout), 0U);
    EXPECT_FALSE(printer.finish());
  }
  ::close(full);
}

TEST(TokenPrinter, FlushOfOtherCodeThatFailsIsReportedToThatCodeAlone) {
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  {
    OutputTo redirected(full);
    TokenPrinter printer;
    printer.onNull();
    EXPECT_NE(std::fflush(stdout), 0);
    EXPECT_TRUE(printer.finish());
  }
  ::close(full);
}

}  // namespace
