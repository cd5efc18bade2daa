#include "service/host/LogExcerpt.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

#include "base/files/FileAccess.h"
#include "service/host/LevelGate.h"
#include "service/host/LevelSieve.h"

namespace {

using BasicLog::Level;

constexpr std::int32_t defaultLines = 50;
constexpr std::int32_t mostLines = 100000;
constexpr const char* noLogLine = "no logfile available for this profile";

constexpr std::size_t maxPiece = 4095;  // what a line buffer of 4096 bytes holds without its zero byte
constexpr off_t pieceSize = maxPiece;
// Small enough to stay in the processor's cache, and long enough for it to fetch ahead: a log that is read backwards in
// windows of 128 KiB takes 1.15 times as long.
constexpr off_t windowSize = 256 * 1024;
// A line whose end takes up at most this much of the window is read again, together with its start.
constexpr off_t rereadLimit = 4 * pieceSize;
constexpr off_t firstSize = 8 * 1024;  // of the first window: the last fifty lines of most logs are in it
constexpr off_t piecesAtOnce = windowSize / pieceSize;

std::size_t clampLines(std::int32_t maxLines) {
  return static_cast<std::size_t>(maxLines < 0 ? defaultLines : std::min(maxLines, mostLines));
}

constexpr off_t piecesIn(off_t length) { return length / pieceSize + (length % pieceSize != 0 ? 1 : 0); }

// Returns true if the file has no data between the two offsets.
bool isHole(int fd, off_t from, off_t to) {
  const off_t data = ::lseek(fd, from, SEEK_DATA);
  return data == -1 ? errno == ENXIO : data >= to;
}

std::string_view textOf(std::string_view piece) {
  piece = piece.substr(0, piece.find('\0'));
  while (!piece.empty() && (piece.back() == '\n' || piece.back() == '\r')) piece.remove_suffix(1);
  return piece;
}

// The part of the file that is in memory.
class Window {
 public:
  explicit Window(const OpenedFile& file) : fd_(file.fd.get()), begin_(file.size()), end_(file.size()) {}

  off_t begin() const { return begin_; }
  off_t end() const { return end_; }
  std::string_view bytes(off_t from, off_t to) const {
    return {buffer_.get() + (from - begin_), static_cast<std::size_t>(to - from)};
  }

  // Makes the window empty and moves it to the offset, without reading.
  void jumpTo(off_t offset) { begin_ = end_ = offset; }

  // Reads the range into the window. The window ends earlier if the file does. Returns false after a read error.
  bool moveTo(off_t begin, off_t end) {
    if (capacity_ < end - begin) {
      capacity_ = end - begin;
      buffer_.reset();  // freed first, so that both are never in memory
      buffer_.reset(new char[static_cast<std::size_t>(capacity_)]);
    }
    jumpTo(begin);
    while (end_ < end) {
      const ssize_t count = uninterrupted(
          [&] { return ::pread(fd_, buffer_.get() + (end_ - begin_), static_cast<std::size_t>(end - end_), end_); });
      if (count <= 0) return count == 0;
      end_ += count;
    }
    return true;
  }

 private:
  int fd_;
  std::unique_ptr<char[]> buffer_;
  off_t capacity_ = 0;
  off_t begin_;
  off_t end_;
};

// Walks through a log from its end to its start and collects matching lines, the last one first, until it has enough.
class BackwardReader {
 public:
  BackwardReader(const OpenedFile& file, Level threshold, std::size_t maxLines, std::vector<std::string>& lines)
      : fd_(file.fd.get()),
        isSparse_(file.isSparse()),
        window_(file),
        longLines_(file),
        threshold_(threshold),
        gate_(threshold),
        end_(file.size()),
        maxLines_(maxLines),
        lines_(lines) {}

  // Returns false after a read error.
  bool read() {
    for (;;) {
      takeLinesInWindow();
      if (end_ == 0 || hasEnough()) return true;
      if (!takeLineThatStartsEarlier()) return false;
    }
  }

 private:
  struct Range {
    off_t begin, end;
  };
  // What is known about a line that starts before the window. `nameless` is the longest part of the line that was found
  // in which no piece names a level.
  struct LongLine {
    off_t start;
    Range nameless;
  };

  bool hasEnough() const { return lines_.size() == maxLines_; }

  // Takes the lines that lie completely in the window. When lines are short, these are all lines, so the speed of this
  // loop decides how long a large log takes.
  void takeLinesInWindow() {
    const std::string_view bytes = window_.bytes(window_.begin(), end_);
    LevelSieve sieve(bytes, threshold_, vectors_);
    std::size_t end = bytes.size();
    while (end != 0 && !hasEnough()) {
      end = sieve.skip(end);
      const void* newline = ::memrchr(bytes.data(), '\n', end - 1);  // the last byte may be the line's own newline
      if (newline == nullptr && window_.begin() != 0) break;
      const std::size_t start =
          newline == nullptr ? 0 : static_cast<std::size_t>(static_cast<const char*>(newline) - bytes.data()) + 1;
      takeLine(bytes.substr(start, end - start));
      end = start;
    }
    end_ = window_.begin() + static_cast<off_t>(end);
  }

  // Takes the pieces of a line that is in memory, the last one first.
  void takeLine(std::string_view line) {
    while (!line.empty() && !hasEnough()) {
      const std::size_t last = (line.size() - 1) / maxPiece * maxPiece;
      takePiece(line.substr(last));
      line.remove_suffix(line.size() - last);
    }
  }

  // Handles the line that ends at end_ and starts before the window. If only a small part of it is in the window, this
  // moves the window instead, so that the line and others before it lie completely in it. Returns false after a read
  // error.
  bool takeLineThatStartsEarlier() {
    if (end_ - window_.begin() <= rereadLimit) return moveWindow(end_);
    const std::optional<LongLine> line = findStart();
    if (!line) return false;
    while (end_ > line->start && !hasEnough()) {
      skipPieces(*line);
      const off_t from = line->start + std::max<off_t>(0, piecesIn(end_ - line->start) - piecesAtOnce) * pieceSize;
      if (!longLines_.moveTo(from, end_)) return false;
      takeLine(longLines_.bytes(from, longLines_.end()));
      end_ = from;
    }
    end_ = line->start;
    return true;
  }

  // Moves the window to the bytes before `end`. If the file has become shorter, the last line ends at its new end.
  // Returns false after a read error.
  bool moveWindow(off_t end) {
    if (!window_.moveTo(std::max<off_t>(0, end - nextSize_), end)) return false;
    nextSize_ = windowSize;
    if (window_.end() < end) end_ = window_.end();
    return true;
  }

  // Finds the hole that ends at `end`. Returns its begin or an offset in its first half, or `end` if there is no hole.
  off_t holeBefore(off_t end) const {
    off_t begin = end;
    for (off_t size = windowSize; isSparse_ && begin != 0;) {
      const off_t from = std::max<off_t>(0, end - size);
      if (!isHole(fd_, from, end)) break;
      begin = from;
      size += std::min(size, end - size);  // twice as much, or all
    }
    return begin;
  }

  // Skips the pieces before end_ that lie in a hole, which has only zero bytes and so no text, or in the nameless part
  // of the line.
  void skipPieces(const LongLine& line) {
    const bool isNameless = line.nameless.begin < end_ && end_ <= line.nameless.end;
    const off_t begin = std::max(line.start, isNameless ? line.nameless.begin : holeBefore(end_));
    const off_t kept = piecesIn(begin - line.start);
    if (kept <= (end_ - line.start) / pieceSize) end_ = line.start + kept * pieceSize;  // the product fits an off_t
  }

  // Moves the window until it contains the start of the line at end_, or begins there. Returns nothing after a read
  // error.
  std::optional<LongLine> findStart() {
    Range nameless = {end_, end_};
    off_t namelessEnd = window_.begin();  // no piece between window_.begin() and this offset names a level
    while (window_.begin() != 0) {
      const off_t hole = holeBefore(window_.begin());
      if (hole < window_.begin()) {
        window_.jumpTo(hole);
        namelessEnd = hole;
        continue;
      }
      if (!moveWindow(hole)) return std::nullopt;
      const std::string_view bytes = window_.bytes(window_.begin(), window_.end());
      const bool isLineCut = window_.end() == end_;  // the last piece may be short then, see mayNameLevel
      if (threshold_ > Level::info && !isLineCut && !mayNameLevel(bytes, vectors_)) {
        if (nameless.end - nameless.begin < namelessEnd - window_.begin()) nameless = {window_.begin(), namelessEnd};
        continue;
      }
      namelessEnd = window_.begin();
      if (const void* newline = ::memrchr(bytes.data(), '\n', bytes.size())) {
        return LongLine{window_.begin() + (static_cast<const char*>(newline) - bytes.data()) + 1, nameless};
      }
    }
    return LongLine{0, nameless};
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
  Level threshold_;
  LevelGate gate_;
  Vectors vectors_ = widestVectors();
  off_t nextSize_ = firstSize;  // of the next window
  off_t end_;                   // everything from this offset on has been handled
  std::size_t maxLines_;
  std::vector<std::string>& lines_;
};

// A path that no file can have counts as a missing file.
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
