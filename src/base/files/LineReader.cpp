#include "base/files/LineReader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/text/StringUtils.h"

namespace {

constexpr off_t bufferForUnknownSize = 4096;
constexpr off_t largestBuffer = 65536;

std::size_t bufferSizeFor(const OpenedFile& file, std::size_t lineBufferSize) {
  const off_t wanted = file.size() == 0 ? bufferForUnknownSize : std::min(file.size(), largestBuffer);
  return std::max(lineBufferSize, static_cast<std::size_t>(wanted));
}

// A file that fits the largest buffer is read in one call, so its holes do not matter.
bool hasHolesToSkip(const OpenedFile& file) { return file.size() > largestBuffer && file.isSparse(); }

bool isPrintable(char byte) { return byte > 32 && byte < 127; }

bool endsWholeLine(const LinePiece& piece) { return piece.text.back() == '\n' || piece.text.back() == '\r'; }

// The part of the text from its first printable byte on.
std::string_view withoutBlankStart(std::string_view text) {
  const auto printable = std::find_if(text.begin(), text.end(), isPrintable);
  text.remove_prefix(static_cast<std::size_t>(printable - text.begin()));
  return text;
}

void appendPiece(std::string& line, const LinePiece& piece) {
  line.append(static_cast<std::size_t>(piece.hole), '\0').append(piece.text);
}

// A caller may hold many lines, and a string that grew to a long line has up to twice its size.
void trimLine(std::string& line) {
  constexpr std::size_t shortLine = 4096;
  const std::size_t length = StringUtils::trim(line, StringUtils::TrimSet::nonPrintable).size();
  const bool isLong = line.size() > shortLine;
  line.resize(length);  // nothing is to be trimmed from its start
  if (isLong) line.shrink_to_fit();
}

}  // namespace

[[gnu::hot]] LineReader::LineReader(const OpenedFile& file, std::size_t lineBufferSize, BlankLines blankLines)
    : fd_(file.fd.get()),
      maxPiece_(lineBufferSize - 1),
      size_(file.size()),
      skipsHoles_(hasHolesToSkip(file)),
      leavesOutBlankLines_(blankLines == BlankLines::leftOut),
      capacity_(bufferSizeFor(file, lineBufferSize)),
      buffer_(new char[capacity_]) {}  // make_unique would clear it

[[gnu::hot]] bool LineReader::next(LinePiece& piece) {
  const std::string_view text = pieceText();
  if (text.empty()) return false;
  piece.text = text;
  piece.startsLine = startsLine_;
  piece.hole = hole_;
  hole_ = 0;
  startsLine_ = piece.endsLine();
  begin_ += text.size();
  return true;
}

// Returns the text of the next piece. Empty at the end of the file and after a read error.
[[gnu::hot]] std::string_view LineReader::pieceText() {
  for (;;) {
    if (leavesOutBlankLines_ && startsLine_) leaveOutBlankLines();
    const std::string_view window(buffer_.get() + begin_, std::min(end_ - begin_, maxPiece_));
    const std::size_t newline = window.find('\n');
    if (newline != std::string_view::npos) return window.substr(0, newline + 1);
    if (failed_) return std::string_view();
    if (atEnd_ || window.size() == maxPiece_) return window;  // the last line has no newline
    fill();
  }
}

// Leaves out the blank lines at the start of the buffer that lie in it as a whole.
[[gnu::hot]] void LineReader::leaveOutBlankLines() {
  const std::string_view window(buffer_.get() + begin_, end_ - begin_);
  const std::size_t blank = window.size() - withoutBlankStart(window).size();
  begin_ += window.substr(0, blank).rfind('\n') + 1;  // npos + 1 is 0
}

// Reads more bytes behind those that the buffer still holds.
[[gnu::hot]] void LineReader::fill() {
  std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  if (skipsHoles_ && position_ >= dataEnd_) findData();
  if (failed_) return;
  std::size_t room = capacity_ - end_;
  // A hole can be left out only while the buffer is empty, so that the borders of the pieces do not move. So a hole is
  // read piece by piece: when next has returned a piece that contains no newline, the buffer is empty.
  if (skipsHoles_ && position_ >= dataEnd_) room = maxPiece_ - end_;
  if (skipsHoles_ && position_ < dataEnd_) {
    room = static_cast<std::size_t>(std::min(static_cast<off_t>(room), dataEnd_ - position_));
  }
  const ssize_t count = readSome(fd_, buffer_.get() + end_, room);
  failed_ = count == -1;
  if (failed_) return;
  end_ += static_cast<std::size_t>(count);
  position_ += count;
  atEnd_ = count == 0 || (size_ != 0 && position_ >= size_);
}

// Finds out how far the data at the position reaches. If it is in a hole inside a line, and the buffer is empty, skips
// as many whole pieces of the hole as possible. At least one byte of it remains: the next piece starts with it and
// reports the skipped bytes.
void LineReader::findData() {
  const off_t data = ::lseek(fd_, position_, SEEK_DATA);
  if (data == -1 && errno != ENXIO) {
    skipsHoles_ = false;  // the file system does not report holes
    return;
  }
  if (data == position_) {
    dataEnd_ = ::lseek(fd_, position_, SEEK_HOLE);
  } else if (end_ == 0 && !startsLine_) {
    const off_t piece = static_cast<off_t>(maxPiece_);
    const off_t holeEnd = data == -1 ? size_ : std::min(data, size_);
    hole_ = (holeEnd - position_ - 1) / piece * piece;
    position_ += hole_;
  }
  failed_ = ::lseek(fd_, position_, SEEK_SET) == -1;
}

// True if the line is too long with the piece added to it.
[[gnu::hot]] bool WholeLineReader::isTooLong(off_t length, const LinePiece& piece) const {
  const off_t room = limit_ - static_cast<off_t>(chunkSize) - length;
  return piece.hole + static_cast<off_t>(piece.text.size()) >= room;
}

WholeLineReader::Result WholeLineReader::next(std::string& line) {
  line.clear();
  LinePiece piece;
  bool isComplete = false;
  while (!isComplete && reader_.next(piece)) {
    if (isTooLong(static_cast<off_t>(line.size()), piece)) return Result::tooLong;
    appendPiece(line, piece);
    isComplete = endsWholeLine(piece);
  }
  if (reader_.failed()) return Result::failed;
  return line.empty() ? Result::end : Result::line;
}

[[gnu::hot]] WholeLineReader::Result WholeLineReader::nextText(std::string& line) {
  line.clear();
  off_t length = 0;  // of the line, with the bytes before its first printable one
  bool isComplete = false;
  for (LinePiece piece; !isComplete && reader_.next(piece);) {
    if (isTooLong(length, piece)) return Result::tooLong;
    length += piece.hole + static_cast<off_t>(piece.text.size());
    if (line.empty()) {
      line = withoutBlankStart(piece.text);
    } else {
      appendPiece(line, piece);
    }
    if (!endsWholeLine(piece)) continue;
    length = 0;
    isComplete = !line.empty();
  }
  if (reader_.failed()) return Result::failed;
  trimLine(line);
  return line.empty() ? Result::end : Result::line;
}
