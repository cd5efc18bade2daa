#include "base/files/LineReader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr off_t bufferForUnknownSize = 4096;
constexpr off_t largestBuffer = 65536;
constexpr off_t diskBlock = 512;  // the unit of st_blocks, whatever the file system

std::size_t bufferSizeFor(const OpenedFile& file, std::size_t lineBufferSize) {
  const off_t wanted = file.size > 0 ? std::min(file.size, largestBuffer) : bufferForUnknownSize;
  return std::max(lineBufferSize, static_cast<std::size_t>(wanted));
}

// A file that fits the largest buffer is read in one call, so its holes do not matter.
bool isSparse(const OpenedFile& file) {
  return file.size > largestBuffer && file.info.st_blocks < file.size / diskBlock;
}

}  // namespace

LineReader::LineReader(const OpenedFile& file, std::size_t lineBufferSize)
    : fd_(file.fd.get()),
      maxPiece_(lineBufferSize - 1),
      size_(file.size),
      isSparse_(isSparse(file)),
      capacity_(bufferSizeFor(file, lineBufferSize)),
      buffer_(new char[capacity_]),  // make_unique would clear it
      atEnd_(false) {}

bool LineReader::next(LinePiece& piece) {
  std::size_t length = 0;
  do {
    const std::size_t window = std::min(end_ - begin_, maxPiece_);
    const char* const start = buffer_.get() + begin_;
    const void* newline = window > 0 ? std::memchr(start, '\n', window) : nullptr;
    if (newline != nullptr) {
      length = static_cast<std::size_t>(static_cast<const char*>(newline) - start) + 1;
    } else if (window == maxPiece_) {
      length = window;
    }
  } while (length == 0 && fill());
  if (failed_) return false;
  if (length == 0) length = end_ - begin_;  // the last line has no newline
  if (length == 0) return false;
  piece.text = std::string_view(buffer_.get() + begin_, length);
  piece.startsLine = startsLine_;
  piece.hole = hole_;
  hole_ = 0;
  startsLine_ = piece.endsLine();
  begin_ += length;
  return true;
}

// Reads more bytes behind those that the buffer still holds. Returns false if no byte was added.
bool LineReader::fill() {
  if (atEnd_) return false;
  if (begin_ > 0) std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  if (isSparse_ && end_ == 0 && !startsLine_ && !leaveOutHole()) return false;
  // A hole can be left out only while the buffer is empty, so that the borders of the pieces do not move. So a sparse
  // file is read piece by piece: when next has returned a piece that contains no newline, the buffer is empty.
  const std::size_t room = (isSparse_ ? maxPiece_ : capacity_) - end_;
  const ssize_t count = readSome(fd_, buffer_.get() + end_, room);
  failed_ = count < 0;
  if (count > 0) {
    end_ += static_cast<std::size_t>(count);
    position_ += count;
  }
  atEnd_ = count <= 0 || (size_ > 0 && position_ >= size_);
  return count > 0;
}

// If the position is in a hole, skips as many whole pieces of it as possible. At least one byte of the hole remains:
// the next piece starts with it and reports the skipped bytes.
bool LineReader::leaveOutHole() {
  const off_t data = ::lseek(fd_, position_, SEEK_DATA);
  if (data < 0 && errno != ENXIO) {
    isSparse_ = false;  // the file system does not report holes
    return true;
  }
  const off_t piece = static_cast<off_t>(maxPiece_);
  const off_t holeEnd = data < 0 ? size_ : std::min(data, size_);
  hole_ = std::max<off_t>(0, (holeEnd - position_ - 1) / piece * piece);
  position_ += hole_;
  failed_ = ::lseek(fd_, position_, SEEK_SET) < 0;
  atEnd_ = failed_;
  return !failed_;
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
