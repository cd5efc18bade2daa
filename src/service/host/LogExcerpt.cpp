#include "service/host/LogExcerpt.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

#include "base/files/FileAccess.h"
#include "service/host/LevelGate.h"

namespace {

using BasicLog::Level;

constexpr std::int32_t defaultLines = 50;
constexpr std::int32_t mostLines = 100000;
constexpr const char* noLogLine = "no logfile available for this profile";

constexpr std::size_t maxPiece = 4095;  // as a line buffer of 4096 bytes holds
constexpr off_t pieceSize = maxPiece;
constexpr off_t windowSize = 128 * 1024;   // stays in the processor's cache
constexpr off_t keptPart = 4 * pieceSize;  // so much of a line is read again so that the line is in memory as a whole
constexpr off_t piecesAtOnce = windowSize / pieceSize;
constexpr off_t diskBlock = 512;  // the unit of st_blocks, whatever the file system

std::size_t clampLines(std::int32_t maxLines) {
  return static_cast<std::size_t>(maxLines < 0 ? defaultLines : std::min(maxLines, mostLines));
}

// Reads as much of the range as the file holds. The bytes read, or -1.
ssize_t readAt(int fd, char* buffer, std::size_t size, off_t offset) {
  std::size_t have = 0;
  while (have < size) {
    const ssize_t count =
        uninterrupted([&] { return ::pread(fd, buffer + have, size - have, offset + static_cast<off_t>(have)); });
    if (count < 0) return -1;
    if (count == 0) break;
    have += static_cast<std::size_t>(count);
  }
  return static_cast<ssize_t>(have);
}

constexpr off_t piecesIn(off_t length) { return length / pieceSize + (length % pieceSize != 0 ? 1 : 0); }

// Whether there is nothing but a hole from an offset of a file to another.
bool isHole(int fd, off_t from, off_t to) {
  const off_t data = ::lseek(fd, from, SEEK_DATA);
  return data < 0 ? errno == ENXIO : data >= to;
}

std::string_view textOf(std::string_view piece) {
  piece = piece.substr(0, piece.find('\0'));
  while (!piece.empty() && (piece.back() == '\n' || piece.back() == '\r')) piece.remove_suffix(1);
  return piece;
}

// A part of the file that is in memory.
class Window {
 public:
  explicit Window(const OpenedFile& file) : fd_(file.fd.get()), begin_(file.size), end_(file.size) {}

  off_t begin() const { return begin_; }
  off_t end() const { return end_; }
  std::string_view bytes(off_t from, off_t to) const {
    return {buffer_.get() + (from - begin_), static_cast<std::size_t>(to - from)};
  }

  // Moves to where nothing has to be read.
  void jumpTo(off_t offset) { begin_ = end_ = offset; }

  // Moves to the range, of at most windowSize bytes. It ends earlier when the file does.
  bool moveTo(off_t begin, off_t end) {
    if (!buffer_) buffer_.reset(new char[windowSize]);
    const ssize_t count = readAt(fd_, buffer_.get(), static_cast<std::size_t>(end - begin), begin);
    begin_ = begin;
    end_ = begin + std::max<ssize_t>(0, count);
    return count >= 0;
  }

 private:
  int fd_;
  std::unique_ptr<char[]> buffer_;
  off_t begin_;
  off_t end_;
};

// Goes through a log from its end to its start and gathers lines, the last one first, until there are enough.
class BackwardReader {
 public:
  BackwardReader(const OpenedFile& file, Level threshold, std::size_t maxLines, std::vector<std::string>& lines)
      : fd_(file.fd.get()),
        isSparse_(file.info.st_blocks < file.size / diskBlock),
        window_(file),
        longLines_(file),
        gate_(threshold),
        end_(file.size),
        maxLines_(maxLines),
        lines_(lines) {}

  // False after a read error.
  bool read() {
    while (end_ > 0 && !hasEnough()) {
      takeLinesInWindow();
      if (end_ > 0 && !hasEnough() && !takeLineThatStartsEarlier()) return false;
    }
    return true;
  }

 private:
  bool hasEnough() const { return lines_.size() == maxLines_; }

  // The lines whose start is in the window for certain, and that are there as a whole. Everything is decided here when
  // lines are short, so this loop is what a large log costs.
  void takeLinesInWindow() {
    const std::string_view bytes = window_.bytes(window_.begin(), end_);
    std::size_t end = bytes.size();
    while (end > 0 && !hasEnough()) {
      const void* newline = ::memrchr(bytes.data(), '\n', end - 1);  // the last byte may be the line's own newline
      if (newline == nullptr && window_.begin() > 0) break;
      const std::size_t start =
          newline == nullptr ? 0 : static_cast<std::size_t>(static_cast<const char*>(newline) - bytes.data()) + 1;
      takeLine(bytes.substr(start, end - start));
      end = start;
    }
    end_ = window_.begin() + static_cast<off_t>(end);
  }

  // The pieces of a line that is in memory.
  void takeLine(std::string_view line) {
    while (line.size() > maxPiece && !hasEnough()) {
      const std::size_t last = (line.size() - 1) / maxPiece * maxPiece;
      takePiece(line.substr(last));
      line.remove_suffix(line.size() - last);
    }
    if (!hasEnough()) takePiece(line);
  }

  // The line that ends at end_ and whose start is not in the window. It stays in the window, as a whole with others
  // before it, when so little of it is known yet that this is cheap.
  bool takeLineThatStartsEarlier() {
    if (end_ - window_.begin() <= keptPart) return moveWindow(end_);
    off_t start = 0;
    if (!findStart(start)) return false;
    while (end_ > start && !hasEnough()) {
      passPiecesInHole(start);
      const off_t from = start + std::max<off_t>(0, piecesIn(end_ - start) - piecesAtOnce) * pieceSize;
      if (!longLines_.moveTo(from, end_)) return false;
      takeLine(longLines_.bytes(from, longLines_.end()));
      end_ = from;
    }
    end_ = start;
    return true;
  }

  // Moves the window to the bytes before `end`. When the file has become shorter its new end is where lines end.
  bool moveWindow(off_t end) {
    if (!window_.moveTo(std::max<off_t>(0, end - windowSize), end)) return false;
    if (window_.end() < end) end_ = window_.end();
    return true;
  }

  // Where a hole begins that ends at `end`, or somewhere in its first half; `end` when there is none.
  off_t holeBefore(off_t end) const {
    off_t begin = end;
    for (off_t size = windowSize; isSparse_ && begin > 0 && isHole(fd_, std::max<off_t>(0, end - size), end);) {
      begin = std::max<off_t>(0, end - size);
      size = size < end - size ? 2 * size : end;
    }
    return begin;
  }

  // Pieces of zero bytes have no text. Of the line's pieces the first is left in any case.
  void passPiecesInHole(off_t start) {
    const off_t hole = std::max(start, holeBefore(end_));
    const off_t kept = std::max<off_t>(1, piecesIn(hole - start));
    if (kept <= (end_ - start) / pieceSize) end_ = start + kept * pieceSize;
  }

  // Moves the window until the start of the line at end_ is in it or just before it.
  bool findStart(off_t& start) {
    while (window_.begin() > 0) {
      const off_t hole = holeBefore(window_.begin());
      if (hole < window_.begin()) {
        window_.jumpTo(hole);
        continue;
      }
      if (!moveWindow(hole)) return false;
      const std::string_view bytes = window_.bytes(window_.begin(), window_.end());
      if (const void* newline = ::memrchr(bytes.data(), '\n', bytes.size())) {
        start = window_.begin() + (static_cast<const char*>(newline) - bytes.data()) + 1;
        return true;
      }
    }
    start = 0;
    return true;
  }

  void takePiece(std::string_view piece) {
    const LevelGate::Answer answer = gate_.ask(piece);
    if (answer == LevelGate::Answer::below) return;
    const std::string_view text = textOf(piece);
    if (text.empty()) return;
    if (answer == LevelGate::Answer::passes || gate_.passes(text)) lines_.emplace_back(text);
  }

  int fd_;
  bool isSparse_;
  Window window_;
  Window longLines_;  // pieces of a line that is longer than the window
  LevelGate gate_;
  off_t end_;  // what lies behind is done
  std::size_t maxLines_;
  std::vector<std::string>& lines_;
};

// Of a name that no file can have there is none.
bool isMissing(int error) { return error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG; }

}  // namespace

Status readLogExcerpt(const std::string& path, Level threshold, std::int32_t maxLines,
                      std::vector<std::string>& lines) {
  lines.clear();
  OpenedFile file;
  if (!openForReading(AT_FDCWD, path.c_str(), file)) {
    if (!isMissing(errno)) return Status::of(status::openError);
    lines.emplace_back(noLogLine);
    return Status::of(status::successWithWarnings);
  }
  if (!BackwardReader(file, threshold, clampLines(maxLines), lines).read()) {
    lines.clear();
    return Status::of(status::readError);
  }
  std::reverse(lines.begin(), lines.end());
  return Status::success();
}
