// LineReader: reads the lines of a file through a buffer.
//
//   LineReader reader(file, 4096);                     // pieces of up to 4,095 bytes
//   for (LinePiece piece; reader.next(piece);) ...
//   if (reader.failed()) return ...;                   // a read error ended the loop
//
// A piece is the remainder of a line including its newline, cut to one byte less than the line buffer size. A last line
// without a newline is a piece too. Zero bytes are ordinary bytes.
// The file is read up to the size that it had when it was opened; bytes appended later may be returned or not. A file
// with the size 0 is read to its end, because files in /proc have that size. The reader borrows the
// file, which must outlive it.
// Holes: reading a sparse file takes time for the data that it has on disk, not for the size that it claims. Pieces
// that lie in a hole, and so are zero bytes only, are left out, and the next piece reports how many bytes were left
// out. Anyone can make a file of 1 GiB without data in a moment: a command takes 36 ms to read it, and takes 5.3 s if
// holes are read like data. An edit would then write the zero bytes to disk.
// System calls: one for each 64 KiB of data, or 4 KiB if the size is 0, and at most ten for each piece of data between
// two holes. Only a file of more than 64 KiB is searched for holes.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "base/files/FileAccess.h"

struct LinePiece {
  std::string_view text;    // with the newline; valid until the next call of next
  bool startsLine = false;  // false: it continues the line of the previous piece
  off_t hole = 0;           // the zero bytes of the same line that were left out before this piece

  bool endsLine() const { return !text.empty() && text.back() == '\n'; }
};

// What a reader does with blank lines, which have no byte of 33..126. A reader whose caller has no use for them leaves
// them out: 100 MB of empty lines then take 0.07 s and not 0.55 s. It still returns those that the end of its buffer
// cuts.
enum class BlankLines { returned, leftOut };

class LineReader {
 public:
  LineReader(const OpenedFile& file, std::size_t lineBufferSize, BlankLines blankLines = BlankLines::returned);

  LineReader(LineReader&&) = default;
  LineReader& operator=(LineReader&&) = default;

  // Reads the next piece. Returns false at the end of the file and after a read error; `piece` does not change then.
  bool next(LinePiece& piece);

  // True if a read error, not the end of the file, ended the reading.
  bool failed() const { return failed_; }

 private:
  std::string_view pieceText();
  void leaveOutBlankLines();
  void fill();
  void findData();

  int fd_;
  std::size_t maxPiece_;
  off_t size_;          // 0: not known
  off_t position_ = 0;  // the offset in the file of the next read
  bool skipsHoles_;
  off_t dataEnd_ = 0;  // of a sparse file: from position_ to this offset there is no hole
  off_t hole_ = 0;     // the bytes left out before the next piece
  bool leavesOutBlankLines_;
  std::size_t capacity_;
  std::unique_ptr<char[]> buffer_;
  std::size_t begin_ = 0;  // [begin_, end_) was read and not yet returned
  std::size_t end_ = 0;
  bool atEnd_ = false;
  bool failed_ = false;
  bool startsLine_ = true;
};

// Reads whole lines of any length below a limit. It joins pieces of at most 499 bytes.
//
//   WholeLineReader reader(file, WholeLineReader::defaultLimit);
//   for (std::string line; reader.next(line) == WholeLineReader::Result::line;) ...
class WholeLineReader {
 public:
  static constexpr std::size_t defaultLimit = 10000000;
  static constexpr std::size_t chunkSize = 500;

  enum class Result { line, end, tooLong, failed };

  // A line with its line end must be shorter than `limit` less 500 bytes. For a longer one, next and nextText return
  // tooLong and may stop inside the line, so do not call them again. The file is borrowed and must outlive the reader.
  WholeLineReader(const OpenedFile& file, std::size_t limit, BlankLines blankLines = BlankLines::returned)
      : reader_(file, chunkSize, blankLines), limit_(static_cast<off_t>(limit)) {}

  // Reads the next line with its line end. A line ends with LF, or with a CR that happens to be the last byte of a
  // piece (pieces have at most 499 bytes, see above); an LF directly behind such a CR is then a line of its own. The
  // last line of the file may have no line end. The content of `line` is undefined unless the result is Result::line.
  // Its holes count as zero bytes, so it takes time and memory for its length.
  Result next(std::string& line);

  // Reads the next line that is not blank, and trims it as StringUtils::trim does with TrimSet::nonPrintable. Lines end
  // as above. Blank lines take no memory, and no time for their holes. A reader that leaves out blank lines does not
  // count the length of those that fit into its buffer, so its limit must be more than the 64 KiB of the buffer.
  Result nextText(std::string& line);

 private:
  bool isTooLong(off_t length, const LinePiece& piece) const;

  LineReader reader_;
  off_t limit_;
};
