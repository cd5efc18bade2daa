#include "base/LineReader.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t smallestBuffer = 4096;
constexpr off_t largestBuffer = 65536;

std::size_t bufferSizeFor(const OpenedFile& file, std::size_t lineBufferSize) {
  const auto wanted = static_cast<std::size_t>(std::min(file.size, largestBuffer));
  return std::max({lineBufferSize, wanted, smallestBuffer});
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
      remaining_(file.size),
      sizeKnown_(file.size > 0),
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
  const ssize_t count = readSome(fd_, buffer_ + end_, capacity_ - end_);
  failed_ = count < 0;
  if (count > 0) {
    end_ += static_cast<std::size_t>(count);
    remaining_ -= count;
  }
  atEnd_ = count <= 0 || (sizeKnown_ && remaining_ <= 0);
  return count > 0;
}

WholeLineReader::Result WholeLineReader::next(std::string& line) {
  line.clear();
  LinePiece piece;
  bool isComplete = false;
  while (!isComplete && reader_.next(piece)) {
    line.append(piece.text);
    isComplete = line.back() == '\n' || line.back() == '\r';
    if (line.size() + chunkSize >= limit_) return Result::tooLong;
  }
  if (reader_.failed()) return Result::failed;
  return line.empty() ? Result::end : Result::line;
}
