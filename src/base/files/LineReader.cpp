#include "base/files/LineReader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/text/StringUtils.h"

namespace {

constexpr std::size_t smallestBuffer = 4096;
constexpr off_t largestBuffer = 65536;
constexpr off_t diskBlock = 512;  // the unit of st_blocks, whatever the file system

std::size_t bufferSizeFor(const OpenedFile& file, std::size_t lineBufferSize) {
  const auto wanted = static_cast<std::size_t>(std::min(file.size, largestBuffer));
  return std::max({lineBufferSize, wanted, smallestBuffer});
}

// Small files are read at once, holes or not.
bool isSparse(const OpenedFile& file) {
  return file.size > largestBuffer && file.info.st_blocks < file.size / diskBlock;
}

}  // namespace

LineReader::LineReader(const OpenedFile& file, std::size_t lineBufferSize)
    : LineReader(file, lineBufferSize, nullptr, bufferSizeFor(file, lineBufferSize)) {
  ownBuffer_.reset(new char[capacity_]);
  buffer_ = ownBuffer_.get();
}

LineReader::LineReader(const OpenedFile& file, std::size_t lineBufferSize, char* buffer, std::size_t bufferSize)
    : fd_(file.fd.get()),
      maxPiece_(lineBufferSize - 1),
      size_(file.size),
      isSparse_(isSparse(file)),
      buffer_(buffer),
      capacity_(bufferSize),
      atEnd_(false) {}

bool LineReader::next(LinePiece& piece) {
  std::size_t length = 0;
  do {
    const std::size_t window = std::min(end_ - begin_, maxPiece_);
    const void* newline = window > 0 ? std::memchr(buffer_ + begin_, '\n', window) : nullptr;
    if (newline != nullptr) {
      length = static_cast<std::size_t>(static_cast<const char*>(newline) - (buffer_ + begin_)) + 1;
    } else if (window == maxPiece_) {
      length = window;
    }
  } while (length == 0 && fill());
  if (failed_) return false;
  if (length == 0) length = end_ - begin_;  // the last line has no newline
  if (length == 0) return false;
  piece.text = std::string_view(buffer_ + begin_, length);
  piece.startsLine = startsLine_;
  piece.hole = hole_;
  hole_ = nextHole_;
  nextHole_ = 0;
  startsLine_ = piece.endsLine();
  begin_ += length;
  return true;
}

// Reads once more behind what is there. False when nothing comes.
bool LineReader::fill() {
  if (atEnd_) return false;
  if (begin_ > 0) std::memmove(buffer_, buffer_ + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  if (isSparse_ && !leaveOutHole()) return false;
  const ssize_t count = readSome(fd_, buffer_ + end_, capacity_ - end_);
  failed_ = count < 0;
  if (count > 0) {
    end_ += static_cast<std::size_t>(count);
    position_ += count;
  }
  atEnd_ = count <= 0 || (size_ > 0 && position_ >= size_);
  return count > 0;
}

// What is in memory is the start of a piece. The hole must make that piece whole, and the last of its bytes stays for
// the piece that tells of the others.
bool LineReader::leaveOutHole() {
  const off_t data = ::lseek(fd_, position_, SEEK_DATA);
  if (data < 0 && errno != ENXIO) {
    isSparse_ = false;  // a file system that does not tell
    return true;
  }
  const off_t piece = static_cast<off_t>(maxPiece_);
  const off_t missing = piece - static_cast<off_t>(end_);
  const off_t holeEnd = data < 0 ? size_ : std::min(data, size_);
  const off_t hole = std::max<off_t>(0, (holeEnd - position_ - 1 - missing) / piece * piece);
  nextHole_ += hole;
  position_ += hole;
  failed_ = ::lseek(fd_, position_, SEEK_SET) < 0;
  atEnd_ = failed_;
  return !failed_;
}

void LineReader::dropBlankLines() {
  if (hole_ > 0) return;
  const std::string_view known(buffer_ + begin_, end_ - begin_);
  const std::string_view text = StringUtils::trim(known, StringUtils::TrimSet::nonPrintable);
  const void* newline = ::memrchr(known.data(), '\n', static_cast<std::size_t>(text.data() - known.data()));
  if (newline == nullptr) return;
  begin_ += static_cast<std::size_t>(static_cast<const char*>(newline) - known.data()) + 1;
  startsLine_ = true;
}

WholeLineReader::Result WholeLineReader::next(std::string& line) {
  line.clear();
  LinePiece piece;
  bool isComplete = false;
  while (!isComplete && reader_.next(piece)) {
    const auto room = static_cast<off_t>(limit_) - static_cast<off_t>(line.size() + chunkSize);
    if (piece.hole >= room) return Result::tooLong;
    line.append(static_cast<std::size_t>(piece.hole), '\0').append(piece.text);
    isComplete = line.back() == '\n' || line.back() == '\r';
    if (line.size() + chunkSize >= limit_) return Result::tooLong;
  }
  if (reader_.failed()) return Result::failed;
  return line.empty() ? Result::end : Result::line;
}
