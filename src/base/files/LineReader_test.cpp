#include "base/files/LineReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <limits>

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
  const OpenedFile file = opened("one\ntwo\n");
  const ArmedFaults counted{FaultPlan{}};
  LineReader reader(file, 8000);
  EXPECT_THAT(piecesOf(reader), ElementsAre("one\n", "two\n"));
  EXPECT_THAT(counted.calls(), ElementsAre("read"));
}

TEST_F(LineReaderTest, AFileOfReportedSizeZeroIsReadToItsEnd) {
  OpenedFile file;
  ASSERT_TRUE(openForReading(AT_FDCWD, "/proc/self/status", file));
  ASSERT_EQ(file.size, 0);
  LineReader reader(file, 1024);
  EXPECT_GT(piecesOf(reader).size(), 10u);
}

TEST_F(LineReaderTest, AFileThatEndsEarlyIsNoError) {
  const OpenedFile file = opened("one\ntwo\n");
  ASSERT_EQ(::truncate(kFile, 5), 0);
  LineReader reader(file, 100);
  EXPECT_THAT(piecesOf(reader), ElementsAre("one\n", "t"));
  EXPECT_FALSE(reader.failed());
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

TEST_F(LineReaderTest, HolesThatTheFileSystemDoesNotReportAreRead) {
  const OpenedFile file = sparse(100000, {});
  const ArmedFaults armed{FaultPlan{1, false, EINVAL, {"lseek"}}};
  EXPECT_EQ(piecesWithHoles(file, 500).size(), 201u);
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

// --- Pieces and readers without text

TEST_F(LineReaderTest, APieceWithoutATextEndsNoLine) {
  EXPECT_FALSE(LinePiece().endsLine());
  EXPECT_FALSE((LinePiece{"text", true}.endsLine()));
  EXPECT_TRUE((LinePiece{"\n", true}.endsLine()));
}

TEST_F(LineReaderTest, ADefaultReaderHasNoLines) {
  LineReader reader;
  EXPECT_THAT(piecesOf(reader), ElementsAre());
  EXPECT_FALSE(reader.failed());
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

TEST_F(LineReaderTest, AReadErrorInAWholeLineIsReported) {
  const OpenedFile file = opened(std::string(100000, 'x'));
  const ArmedFaults armed{FaultPlan{2, false, EIO, {"read"}}};
  WholeLineReader reader(file, WholeLineReader::defaultLimit);
  std::string line;
  EXPECT_EQ(reader.next(line), WholeLineReader::Result::failed);
}

}  // namespace
