// LineReader: the one reader of lines, over a read-ahead buffer on a descriptor.
//
//   LineReader reader(file, 4096);                     // as a line buffer of 4,096 bytes: pieces of up to 4,095
//   for (LinePiece piece; reader.next(piece);) ...
//   if (reader.failed()) return ...;                   // a read error, not the end
//
// A piece is what is left of a line, up to and including its newline, but at most one byte less than the line buffer
// holds. A last line without a newline is a piece too. Zero bytes are ordinary bytes; what they mean is up to the
// caller. The file is read to the size it had when it was opened (what is appended meanwhile may be seen or not), or to
// its end when it was said to be empty, as files of /proc are. It is borrowed and must outlive the reader.
// Holes: a sparse file costs what it has on the disk, whatever size it claims. Pieces that lie in a hole as a whole,
// and so hold zero bytes alone, are left out; the piece behind them tells how many bytes they had.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "base/files/FileAccess.h"

struct LinePiece {
  std::string_view text;    // with the line end; valid until the next call
  bool startsLine = false;  // false: it goes on with the line of the piece before
  off_t hole = 0;           // zero bytes of the same line that were left out before this piece

  bool endsLine() const { return !text.empty() && text.back() == '\n'; }
};

class LineReader {
 public:
  // A reader without lines.
  LineReader() = default;
  // Its own buffer, no larger than the file needs.
  LineReader(const OpenedFile& file, std::size_t lineBufferSize);
  // A borrowed buffer of at least `lineBufferSize` bytes: no allocation at all.
  LineReader(const OpenedFile& file, std::size_t lineBufferSize, char* buffer, std::size_t bufferSize);

  LineReader(LineReader&&) = default;
  LineReader& operator=(LineReader&&) = default;

  // False at the end and after a read error; `piece` is then unchanged.
  bool next(LinePiece& piece);

  // Drops whole lines of nothing but bytes outside 33..126, as far as they are in memory already: what makes a caller
  // who is looking for the first line with a text quick on a large file without one.
  void dropBlankLines();

  // Whether reading ended with an error instead of the end of the file.
  bool failed() const { return failed_; }

 private:
  bool fill();
  bool leaveOutHole();

  int fd_ = -1;
  std::size_t maxPiece_ = 0;
  off_t size_ = 0;      // 0: not known
  off_t position_ = 0;  // in the file, of what is read next
  bool isSparse_ = false;
  off_t hole_ = 0;      // left out before the next piece
  off_t nextHole_ = 0;  // left out before the piece behind it
  std::unique_ptr<char[]> ownBuffer_;
  char* buffer_ = nullptr;
  std::size_t capacity_ = 0;
  std::size_t begin_ = 0;  // what was read and not handed out: [begin_, end_)
  std::size_t end_ = 0;
  bool atEnd_ = true;
  bool failed_ = false;
  bool startsLine_ = true;
};

// Whole lines of any length below a limit, put together from pieces of a line buffer of 500 bytes.
//
//   WholeLineReader reader(file, WholeLineReader::defaultLimit);
//   for (std::string line; reader.next(line) == WholeLineReader::Result::line;) ...
class WholeLineReader {
 public:
  static constexpr std::size_t defaultLimit = 10000000;
  static constexpr std::size_t chunkSize = 500;

  enum class Result { line, end, tooLong, failed };

  // A line must be shorter than `limit` less 500 bytes, its line end included. The file is borrowed.
  WholeLineReader(const OpenedFile& file, std::size_t limit) : reader_(file, chunkSize), limit_(limit) {}
  WholeLineReader(const OpenedFile& file, std::size_t limit, char* buffer, std::size_t bufferSize)
      : reader_(file, chunkSize, buffer, bufferSize), limit_(limit) {}

  // The next line with its line end. A line ends with LF; a CR that happens to be the last byte of a chunk ends it too,
  // so that an LF right behind it is a line of its own. `line` is undefined unless the result is `line`.
  Result next(std::string& line);

  // As LineReader::dropBlankLines; to be called between lines.
  void dropBlankLines() { reader_.dropBlankLines(); }

 private:
  LineReader reader_;
  std::size_t limit_;
};
