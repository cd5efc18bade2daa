#include "base/files/LineReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

#include "base/files/WholeFile.h"
#include "base/system/RawWrite.h"
#include "base/text/StringUtils.h"
#include "testing/faults/FaultInjector.h"
#include "testing/run/HostTest.h"

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using Texts = std::vector<std::string>;

constexpr const char* kFile = "/tmp/file";

class LineReaderTest : public HostTest {};

OpenedFile opened(const std::string& content) {
  host::writeFile(kFile, content);
  OpenedFile file;
  EXPECT_TRUE(openForReading(AT_FDCWD, kFile, file));
  return file;
}

// Returns all pieces. A plus marks a piece that continues a line.
Texts piecesOf(LineReader& reader) {
  Texts pieces;
  for (LinePiece piece; reader.next(piece);) {
    pieces.push_back((piece.startsLine ? "" : "+") + std::string(piece.text));
  }
  return pieces;
}

Texts piecesOf(const std::string& content, std::size_t lineBufferSize) {
  const OpenedFile file = opened(content);
  LineReader reader(file, lineBufferSize);
  return piecesOf(reader);
}

TEST_F(LineReaderTest, PiecesAreLinesWithTheirEndsCutToOneByteLessThanTheBuffer) {
  struct Case {
    const char* why;
    std::string content;
    std::size_t bufferSize;
    Texts pieces;
  };
  const Case cases[] = {
      {"an empty file has none", "", 100, {}},
      {"an empty line is a piece", "\n", 100, {"\n"}},
      {"the line ends stay", "one\n\ntwo\r\n", 100, {"one\n", "\n", "two\r\n"}},
      {"a last line without a newline is a piece", "one\ntwo", 100, {"one\n", "two"}},
      {"zero bytes are ordinary bytes", "a\0b\n\0"s, 100, {"a\0b\n"s, "\0"s}},
      {"a long line is cut", "1234567\nx\n", 5, {"1234", "+567\n", "x\n"}},
      {"a line that fits is not cut", "123\nx\n", 5, {"123\n", "x\n"}},
      {"a newline that does not fit is a piece", "1234\nx\n", 5, {"1234", "+\n", "x\n"}},
      {"a long last line is cut", "12345678", 5, {"1234", "+5678"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(piecesOf(c.content, c.bufferSize), c.pieces);
  }
}

TEST_F(LineReaderTest, LongLinesHavePiecesOneByteShorterThanABufferOf1024Or4096Or8000Bytes) {
  for (const std::size_t size : {std::size_t{4096}, std::size_t{8000}, std::size_t{1024}}) {
    SCOPED_TRACE(size);
    const std::string line(size - 1, 'x');
    EXPECT_THAT(piecesOf(line + "\n", size), ElementsAre(line, "+\n"));
    EXPECT_THAT(piecesOf(line.substr(1) + "\n", size), ElementsAre(line.substr(1) + "\n"));
  }
}

TEST_F(LineReaderTest, PiecesDoNotDependOnTheSizesOfReads) {
  const std::string content = "one\n" + std::string(3000, 'x') + "\n\nlast";
  const OpenedFile file = opened(content);
  const ArmedFaults armed{FaultPlan{0, false, EIO, {}, true}};
  LineReader reader(file, 1000);
  EXPECT_THAT(piecesOf(reader),
              ElementsAre("one\n", std::string(999, 'x'), "+" + std::string(999, 'x'), "+" + std::string(999, 'x'),
                          "+" + std::string(3, 'x') + "\n", "\n", "last"));
}

TEST_F(LineReaderTest, AFileSmallerThanTheBufferIsReadOnce) {
  for (const Texts& lines : {Texts{"one\n", "two\n"}, Texts{"x"}}) {
    const OpenedFile file = opened(StringUtils::concatenate({lines.front(), lines.size() == 2 ? lines.back() : ""}));
    const ArmedFaults counted{FaultPlan{}};
    LineReader reader(file, 8000);
    EXPECT_EQ(piecesOf(reader), lines);
    EXPECT_THAT(counted.calls(), ElementsAre("read"));
  }
}

TEST_F(LineReaderTest, AFileOfReportedSizeZeroIsReadToItsEnd) {
  // Without the link /proc/self, which belongs to another user if ours is not root.
  const std::string path = "/proc/" + std::to_string(::getpid()) + "/status";
  OpenedFile file;
  ASSERT_TRUE(openForReading(AT_FDCWD, path.c_str(), file));
  ASSERT_EQ(file.size(), 0);
  LineReader reader(file, 1024);
  EXPECT_GT(piecesOf(reader).size(), 10u);
}

TEST_F(LineReaderTest, AFileThatEndsEarlyIsNoError) {
  const OpenedFile file = opened("one\ntwo\n");
  ASSERT_EQ(::truncate(kFile, 5), 0);
  const ArmedFaults counted{FaultPlan{}};
  LineReader reader(file, 100);
  EXPECT_THAT(piecesOf(reader), ElementsAre("one\n", "t"));
  EXPECT_FALSE(reader.failed());
  EXPECT_THAT(counted.calls(), ElementsAre("read", "read"));
}

TEST_F(LineReaderTest, AReadErrorIsNotTheEnd) {
  const OpenedFile file = opened("one\n" + std::string(100000, 'x'));
  const ArmedFaults armed{FaultPlan{2, false, EIO, {"read"}}};
  LineReader reader(file, 80000);
  EXPECT_THAT(piecesOf(reader), ElementsAre("one\n"));
  EXPECT_TRUE(reader.failed());
  LinePiece piece{"old", true};
  EXPECT_FALSE(reader.next(piece));
  EXPECT_EQ(piece.text, "old");
}

// --- Sparse files

using host::Island;
using host::Islands;

constexpr off_t kLargest = std::numeric_limits<off_t>::max() - (1 << 20);  // the system cannot read beyond it

OpenedFile sparse(off_t size, const Islands& islands) {
  host::writeSparse(kFile, size, islands);
  OpenedFile file;
  EXPECT_TRUE(openForReading(AT_FDCWD, kFile, file));
  return file;
}

// Returns all pieces. Adds those that the reader left out because they lie in holes.
Texts piecesWithHoles(const OpenedFile& file, std::size_t lineBufferSize) {
  LineReader reader(file, lineBufferSize);
  const std::size_t whole = lineBufferSize - 1;
  Texts pieces;
  for (LinePiece piece; reader.next(piece);) {
    const auto hole = static_cast<std::size_t>(piece.hole);
    EXPECT_EQ(hole % whole, 0u);
    EXPECT_TRUE(hole == 0 || !piece.startsLine);
    pieces.insert(pieces.end(), hole / whole, "+" + std::string(whole, '\0'));
    pieces.push_back((piece.startsLine ? "" : "+") + std::string(piece.text));
  }
  EXPECT_FALSE(reader.failed());
  return pieces;
}

struct SparseCase {
  const char* why;
  off_t size;
  Islands islands;
};
const SparseCase kSparseCases[] = {
    {"nothing but a hole", 300000, {}},
    {"a hole of whole pieces", 499 * 999, {}},
    {"a hole of whole pieces and one byte", 499 * 999 + 1, {}},
    {"a text at the start", 300000, {{0, "one\ntwo"}}},
    {"a text at the end", 300000, {{299990, "x=1\ny=2\n"}}},
    {"texts between holes", 700000, {{0, "a"}, {200001, "b\nc\n"}, {204799, "d"}, {500000, "\n"}}},
    {"a line end before a hole", 400000, {{100000, std::string(5000, 'x') + "\n"}}},
    {"a hole that is short", 100000, {{0, std::string(40000, '\n')}, {50000, std::string(50000, '\n')}}},
};

TEST_F(LineReaderTest, ASparseFileHasThePiecesOfAFullOne) {
  for (const SparseCase& c : kSparseCases) {
    std::string content(static_cast<std::size_t>(c.size), '\0');
    for (const Island& island : c.islands)
      content.replace(static_cast<std::size_t>(island.offset), island.text.size(), island.text);
    for (const std::size_t bufferSize : {std::size_t{500}, std::size_t{1024}, std::size_t{4096}, std::size_t{8000}}) {
      SCOPED_TRACE(std::string(c.why) + ", " + std::to_string(bufferSize));
      const Texts full = piecesOf(content, bufferSize);
      EXPECT_TRUE(piecesWithHoles(sparse(c.size, c.islands), bufferSize) == full);
      if (bufferSize != 1024) continue;
      const OpenedFile again = sparse(c.size, c.islands);
      const ArmedFaults armed{FaultPlan{0, false, EIO, {}, true}};
      EXPECT_TRUE(piecesWithHoles(again, bufferSize) == full);
    }
  }
}

TEST_F(LineReaderTest, ReadingASparseFileSkipsItsHoles) {
  for (const off_t size : {off_t{1} << 40, kLargest}) {
    SCOPED_TRACE(size);
    const OpenedFile file = sparse(size, {{size / 2, "text\n"}});
    const ArmedFaults counted{FaultPlan{}};
    LineReader reader(file, 8000);
    std::size_t pieces = 0;
    for (LinePiece piece; reader.next(piece);) ++pieces;
    EXPECT_FALSE(reader.failed());
    EXPECT_LT(pieces, 50u);
    EXPECT_LT(counted.count(), 50u);
  }
}

TEST_F(LineReaderTest, OnlyTheFirstAndTheLastPieceOfAHoleAtTheEndAreRead) {
  for (const off_t lastPiece : {1, 499}) {
    SCOPED_TRACE(lastPiece);
    const OpenedFile file = sparse(499 * 1000 + lastPiece, {});
    const ArmedFaults counted{FaultPlan{0, false, EIO, {"read"}}};
    LineReader reader(file, 500);
    EXPECT_EQ(piecesOf(reader).size(), 2u);
    EXPECT_EQ(counted.count(), 2u);
  }
}

// Islands of one line end, each in a block of its own.
Islands manyLineEnds(int count, off_t distance) {
  Islands islands;
  for (int i = 0; i < count; ++i) islands.push_back({i * distance, "\n"});
  return islands;
}

TEST_F(LineReaderTest, DataBetweenHolesTakesAtMostTenSystemCalls) {
  for (const std::size_t bufferSize : {std::size_t{500}, std::size_t{4096}, std::size_t{8000}}) {
    SCOPED_TRACE(bufferSize);
    const OpenedFile file = sparse(off_t{512} << 20, manyLineEnds(512, 1 << 20));
    const ArmedFaults counted{FaultPlan{}};
    LineReader reader(file, bufferSize);
    std::size_t ends = 0;
    for (LinePiece piece; reader.next(piece);) ends += piece.endsLine() ? 1 : 0;
    EXPECT_EQ(ends, 512u);
    EXPECT_LE(counted.count(), 10u * 512);
  }
}

TEST_F(LineReaderTest, DataOfASparseFileAreReadIn64KibAtATime) {
  std::string lines;
  while (lines.size() < (4 << 20)) lines += std::string(lines.size() % 700, 'x') + "\n";
  const OpenedFile file = sparse(16 << 20, {{0, lines}, {10 << 20, lines}});
  const ArmedFaults counted{FaultPlan{}};
  LineReader reader(file, 500);
  for (LinePiece piece; reader.next(piece);) {
  }
  EXPECT_LE(counted.count(), (8u << 20) / 65536 + 40);
}

// The lines have 16 bytes, so that each read ends with a line.
TEST_F(LineReaderTest, AReadHas64KibAtMostAndOnlyASparseFileIsSearchedForHoles) {
  constexpr off_t most = 65536;
  std::string lines;
  while (lines.size() < 64 * most) lines += std::string(15, 'x') + "\n";
  const struct {
    const char* why;
    off_t size;
    Islands islands;
    std::size_t reads;
    bool isSearched;
  } cases[] = {
      {"one read", most, {{0, lines.substr(0, most)}}, 1, false},
      {"one read, with a hole", most, {{0, "x\n"}}, 1, false},
      {"two reads", 2 * most, {{0, lines.substr(0, 2 * most)}}, 2, false},
      {"two reads of data, and two in a hole of one page", 2 * most, {{0, lines.substr(0, 2 * most - 4096)}}, 4, true},
      {"a hole of one page in 4 MiB", 64 * most, {{0, lines.substr(0, 64 * most - 4096)}}, 66, true},
      {"three reads", 2 * most + 1, {{0, lines.substr(0, 2 * most + 1)}}, 3, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const OpenedFile file = sparse(c.size, c.islands);
    const ArmedFaults counted{FaultPlan{}};
    LineReader reader(file, 500);
    for (LinePiece piece; reader.next(piece);) {
    }
    const std::vector<std::string> calls = counted.calls();
    EXPECT_EQ(static_cast<std::size_t>(std::count(calls.begin(), calls.end(), "read")), c.reads);
    EXPECT_EQ(calls.size() > c.reads, c.isSearched);
  }
}

TEST_F(LineReaderTest, AFileOfUnknownSizeIsReadFourKibibytesAtATime) {
  host::makeFifo(kFile);
  OpenedFile file;
  ASSERT_TRUE(openAnyForReading(kFile, file));
  std::string lines;
  while (lines.size() < 8192) lines += std::string(15, 'x') + "\n";
  lines += 'x';
  UniqueFd writer(::open(kFile, O_WRONLY | O_CLOEXEC));
  ASSERT_TRUE(writeFully(writer.get(), lines));
  writer.reset();
  const ArmedFaults counted{FaultPlan{}};
  LineReader reader(file, 500);
  EXPECT_EQ(piecesOf(reader).size(), 513u);
  EXPECT_EQ(counted.count(), 4u) << "the last one finds the end";
}

TEST_F(LineReaderTest, HolesThatTheFileSystemDoesNotReportAreRead) {
  const OpenedFile file = sparse(100000, {});
  const ArmedFaults armed{FaultPlan{1, true, EINVAL, {"lseek"}}};
  EXPECT_EQ(piecesWithHoles(file, 500).size(), 201u);
  EXPECT_EQ(armed.count(), 1u) << "it is not asked again";
}

TEST_F(LineReaderTest, AHoleThatCannotBeSkippedIsAReadError) {
  const OpenedFile file = sparse(100000, {});
  const ArmedFaults armed{FaultPlan{2, false, EIO, {"lseek"}}};
  LineReader reader(file, 500);
  off_t length = 0;
  for (LinePiece piece; reader.next(piece);) length += static_cast<off_t>(piece.text.size());
  EXPECT_TRUE(reader.failed());
  EXPECT_LT(length, 100000);
}

// --- Blank lines

TEST_F(LineReaderTest, AReaderWithoutBlankLinesReturnsAllOthersAndTheirPieces) {
  const std::string blanks = "\n \t\n\r\n\0\x80\n"s;
  const std::string longBlank(200000, ' ');
  struct Case {
    const char* why;
    std::string content;
  };
  const Case cases[] = {
      {"nothing", ""},
      {"only blank lines", blanks},
      {"blank lines around others", blanks + "one\n" + blanks + " two\n" + blanks + "three"},
      {"a blank last line without an end", "one\n  "},
      {"a blank line that is longer than the buffer", longBlank + "\none\n" + longBlank + "two\n"},
      {"a line that a long blank end follows", "one" + longBlank + "\n\n\ntwo"},
      {"a blank line that the buffer cuts", std::string(65530, '\n') + std::string(20, ' ') + "\none\n"},
      {"blank lines inside a piece", std::string(998, 'x') + "\n" + std::string(300, '\n') + "y\n"},
  };
  const auto isBlank = [](const std::string& piece) {
    return std::none_of(piece.begin(), piece.end(), [](char c) { return c > 32 && c < 127 && c != '+'; });
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const OpenedFile file = opened(c.content);
    for (const bool isSlow : {false, true}) {
      LineReader all(file, 1000);
      Texts expected = piecesOf(all);
      ASSERT_EQ(::lseek(file.fd.get(), 0, SEEK_SET), 0);
      const ArmedFaults armed{FaultPlan{0, false, EIO, {}, isSlow && c.content.size() < 100000}};
      LineReader others(file, 1000, BlankLines::leftOut);
      Texts pieces = piecesOf(others);
      ASSERT_EQ(::lseek(file.fd.get(), 0, SEEK_SET), 0);
      for (Texts* texts : {&expected, &pieces})
        texts->erase(std::remove_if(texts->begin(), texts->end(), isBlank), texts->end());
      EXPECT_EQ(pieces, expected);
    }
  }
}

TEST_F(LineReaderTest, BlankLinesInTheBufferAreLeftOut) {
  const OpenedFile file = opened("\n \n\none\n\n\t\ntwo\n\n");
  LineReader reader(file, 1000, BlankLines::leftOut);
  EXPECT_THAT(piecesOf(reader), ElementsAre("one\n", "two\n"));
}

// --- Pieces and readers without text

TEST_F(LineReaderTest, APieceWithoutATextEndsNoLine) {
  const LinePiece none;
  EXPECT_FALSE(none.endsLine());
  EXPECT_FALSE(none.startsLine);
  EXPECT_EQ(none.hole, 0);
  EXPECT_FALSE((LinePiece{"text", true}.endsLine()));
  EXPECT_TRUE((LinePiece{"\n", true}.endsLine()));
}

// --- Whole lines

struct WholeLines {
  Texts lines;
  WholeLineReader::Result last;
};

WholeLines wholeLinesOf(const std::string& content, std::size_t limit = WholeLineReader::defaultLimit) {
  const OpenedFile file = opened(content);
  WholeLineReader reader(file, limit);
  WholeLines result;
  for (std::string line; (result.last = reader.next(line)) == WholeLineReader::Result::line;) {
    result.lines.push_back(line);
  }
  return result;
}

TEST_F(LineReaderTest, WholeLinesAreJoinedFromPieces) {
  const std::string line(5000, 'x');
  const std::string chunk = std::string(498, 'x') + "\r";
  struct Case {
    const char* why;
    std::string content;
    Texts lines;
  };
  const Case cases[] = {
      {"a line longer than a piece is joined", "one\n" + line + "\n\nlast", {"one\n", line + "\n", "\n", "last"}},
      {"a carriage return at the end of a piece ends the line", chunk + "next\n", {chunk, "next\n"}},
      {"a carriage return at the end of the file too", chunk, {chunk}},
      {"a line feed behind such a carriage return is a separate line", chunk + "\nnext\n", {chunk, "\n", "next\n"}},
      {"a carriage return elsewhere is an ordinary byte", "a\rb\r\n\rc\n", {"a\rb\r\n", "\rc\n"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    const WholeLines result = wholeLinesOf(c.content);
    EXPECT_EQ(result.lines, c.lines);
    EXPECT_EQ(result.last, WholeLineReader::Result::end);
  }
}

TEST_F(LineReaderTest, ALineMustBeShorterThanTheLimitLess500) {
  for (const std::size_t limit : {std::size_t{700}, std::size_t{2000}, std::size_t{3001}}) {
    SCOPED_TRACE(limit);
    const std::string longest = std::string(limit - 500 - 2, 'x') + "\n";
    EXPECT_THAT(wholeLinesOf(longest, limit).lines, ElementsAre(longest));
    EXPECT_EQ(wholeLinesOf("x" + longest, limit).last, WholeLineReader::Result::tooLong);
    EXPECT_THAT(wholeLinesOf(std::string(limit - 500 - 1, 'x'), limit).last, WholeLineReader::Result::end);
    EXPECT_THAT(wholeLinesOf(std::string(limit - 500, 'x'), limit).last, WholeLineReader::Result::tooLong);
  }
}

TEST_F(LineReaderTest, TheFirstLineWithTextHasNoSpareMemoryIfItIsLongerThan4096Bytes) {
  for (const std::size_t length : {4096u, 4097u}) {
    SCOPED_TRACE(length);
    host::writeFile("/tmp/file", std::string(length - 1, 'x') + "\n");
    std::string line;
    EXPECT_THAT(FileUtils::readFirstLine("/tmp/file", line), HasCode(status::success));
    EXPECT_EQ(line.capacity() == line.size(), length > 4096);
  }
}

TEST_F(LineReaderTest, AHoleIsPartOfItsLine) {
  const OpenedFile file = sparse(100005, {{0, "a"}, {100000, "b\nc\nd"}});
  WholeLineReader reader(file, WholeLineReader::defaultLimit);
  std::string line;
  EXPECT_EQ(reader.next(line), WholeLineReader::Result::line);
  EXPECT_TRUE(line == "a" + std::string(99999, '\0') + "b\n");
  EXPECT_EQ(reader.next(line), WholeLineReader::Result::line);
  EXPECT_EQ(line, "c\n");
}

TEST_F(LineReaderTest, AHoleCanMakeALineTooLongWithoutUsingMemory) {
  for (const off_t size : {off_t{1} << 40, kLargest}) {
    const OpenedFile file = sparse(size, {});
    WholeLineReader reader(file, WholeLineReader::defaultLimit);
    std::string line;
    EXPECT_EQ(reader.next(line), WholeLineReader::Result::tooLong);
    EXPECT_LT(line.capacity(), 100000u);
  }
}

// --- Lines with text

Texts trimmedLinesOf(const std::string& content, std::size_t limit, bool& isTooLong) {
  Texts result;
  const WholeLines whole = wholeLinesOf(content, limit);
  isTooLong = whole.last == WholeLineReader::Result::tooLong;
  for (const std::string& line : whole.lines) {
    const auto text = StringUtils::trim(line, StringUtils::TrimSet::nonPrintable);
    if (!text.empty()) result.emplace_back(text);
  }
  return result;
}

void expectTextsAreWholeLines(std::size_t limit, BlankLines blankLines) {
  const std::string cut = std::string(498, ' ') + "\r";
  const Texts contents = {
      "",
      "\n\n",
      " one \r\n\n\t two\0 x\0\n\0three"s,
      "\x7f\n!\n \x7f~\x7f\n",
      cut + "\none\n",
      cut + cut + "one\n",
      std::string(498, 'x') + "\rtwo\n",
      std::string(700, ' ') + "one" + std::string(700, '\0') + "\n" + std::string(600, ' ') + "\ntwo",
      std::string(limit - 501, ' ') + "\none\n",    // this line is too long
      std::string(limit - 502, ' ') + "\none\n",    // and this one is not
      "\n" + std::string(limit - 502, 'x') + "\n",  // as long as a line may be
      "one\n" + std::string(limit - 600, ' ') + std::string(98, 'x') + "\ntwo\n",
      "one\n" + std::string(limit - 600, ' ') + std::string(99, 'x') + "\ntwo\n",
  };
  for (const std::string& content : contents) {
    SCOPED_TRACE(testing::PrintToString(content.substr(0, 60)) + " of " + std::to_string(content.size()));
    bool isTooLong = false;
    const Texts expected = trimmedLinesOf(content, limit, isTooLong);
    const OpenedFile file = opened(content);
    WholeLineReader reader(file, limit, blankLines);
    Texts lines;
    auto result = WholeLineReader::Result::line;
    for (std::string line; (result = reader.nextText(line)) == WholeLineReader::Result::line;) lines.push_back(line);
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(result, isTooLong ? WholeLineReader::Result::tooLong : WholeLineReader::Result::end);
  }
}

TEST_F(LineReaderTest, LinesWithTextAreTheTrimmedWholeLinesThatAreNotBlank) {
  expectTextsAreWholeLines(3000, BlankLines::returned);
  expectTextsAreWholeLines(100000, BlankLines::returned);
  expectTextsAreWholeLines(100000, BlankLines::leftOut);
}

TEST_F(LineReaderTest, BlankLinesTakeNoMemoryForTheirHoles) {
  constexpr off_t distance = 9'900'000 / 4096 * 4096;
  Islands islands = manyLineEnds(20, distance);
  islands.push_back({20 * distance, "\n lab \n"});
  const OpenedFile file = sparse(21 * distance, islands);
  WholeLineReader reader(file, WholeLineReader::defaultLimit);
  std::string line;
  EXPECT_EQ(reader.nextText(line), WholeLineReader::Result::line);
  EXPECT_EQ(line, "lab");
  EXPECT_LT(line.capacity(), 10000u);
}

TEST_F(LineReaderTest, ALongLineWithTextTakesMemoryForItsLengthAlone) {
  const OpenedFile file = sparse(9'000'000, {{0, "a"}, {5'000'000, "b"}});
  WholeLineReader reader(file, WholeLineReader::defaultLimit);
  std::string line;
  EXPECT_EQ(reader.nextText(line), WholeLineReader::Result::line);
  EXPECT_TRUE(line == "a" + std::string(4'999'999, '\0') + "b");
  EXPECT_LT(line.capacity(), 5'100'000u);
}

TEST_F(LineReaderTest, AReadErrorInAWholeLineIsReported) {
  const OpenedFile file = opened(std::string(100000, 'x'));
  const ArmedFaults armed{FaultPlan{2, false, EIO, {"read"}}};
  WholeLineReader reader(file, WholeLineReader::defaultLimit);
  std::string line;
  EXPECT_EQ(reader.next(line), WholeLineReader::Result::failed);
  EXPECT_EQ(reader.nextText(line), WholeLineReader::Result::failed);
}

}  // namespace
