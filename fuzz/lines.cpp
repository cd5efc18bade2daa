// Laws of the line readers, for any file, line buffer and limit. The models below read one byte at a time.
// - Pieces are those of a line buffer of that size, both with the reader's own buffer and with a borrowed one.
// - Whole lines consist of chunks of at most 499 bytes. A line that reaches the limit is too long.
// - All lines of a file, and its first line that is not blank, are those of the model.
// - If a call fails, the result is the same, or an error status and no lines.
// Input: faults (fuzz::faults), the size of the line buffer, the limit, a repeat count (fuzz::repeatedRest), a file.
#include <fcntl.h>

#include <cstdint>

#include "base/files/LineReader.h"
#include "fuzz/FuzzTarget.h"

namespace {

using fuzz::require;
using Lines = std::vector<std::string>;
using Result = WholeLineReader::Result;

constexpr std::size_t largestFile = 200000;  // three times the largest read
constexpr std::size_t largestSlowFile = 3000;

// --- Pieces

struct Piece {
  std::string text;
  bool startsLine = true;
};
using Pieces = std::vector<Piece>;

Pieces modelOfPieces(const std::string& content, std::size_t most) {
  Pieces pieces;
  bool startsLine = true;
  for (std::size_t at = 0; at < content.size();) {
    Piece piece{"", startsLine};
    while (at < content.size() && piece.text.size() < most) {
      piece.text += content[at++];
      if (piece.text.back() == '\n') break;
    }
    startsLine = piece.text.back() == '\n';
    pieces.push_back(piece);
  }
  return pieces;
}

bool isOpen(const std::string& path, OpenedFile& file) { return openForReading(AT_FDCWD, path.c_str(), file); }

// Returns false if reading failed. The pieces read before the failure stay in `pieces`.
bool piecesOf(LineReader reader, Pieces& pieces) {
  pieces.clear();
  for (LinePiece piece; reader.next(piece);) pieces.push_back({std::string(piece.text), piece.startsLine});
  return !reader.failed();
}

void requireStart(const Pieces& found, const Pieces& expected, bool isWhole) {
  require(isWhole ? found.size() == expected.size() : found.size() <= expected.size(), "the number of pieces");
  for (std::size_t i = 0; i < found.size(); ++i) {
    require(found[i].text == expected[i].text, "a piece of the file");
    require(found[i].startsLine == expected[i].startsLine, "a piece starts a line or continues it");
  }
}

void requirePieces(const std::string& path, const std::string& content, std::size_t lineBuffer, const FaultPlan& plan) {
  const Pieces expected = modelOfPieces(content, lineBuffer - 1);
  Pieces found;
  bool isWhole = false;
  const bool isUndisturbed = fuzz::runUnder(plan, [&] {
    OpenedFile file;
    if (isOpen(path, file)) isWhole = piecesOf(LineReader(file, lineBuffer), found);
  });
  require(!isUndisturbed || isWhole, "a file without a fault is read to its end");
  requireStart(found, expected, isWhole);
}

// --- Whole lines

struct WholeLines {
  Lines lines;
  Result end = Result::end;
};

WholeLines modelOfWholeLines(const std::string& content, std::size_t limit) {
  WholeLines whole;
  std::string line;
  for (std::size_t at = 0; at < content.size();) {
    const std::size_t chunkBegin = at;
    while (at < content.size() && at - chunkBegin < 499) {
      if (content[at++] == '\n') break;
    }
    line += content.substr(chunkBegin, at - chunkBegin);
    if (line.size() >= limit - 500) {
      whole.end = Result::tooLong;
      return whole;
    }
    if (line.back() != '\n' && line.back() != '\r' && at < content.size()) continue;
    whole.lines.push_back(line);
    line.clear();
  }
  return whole;
}

void requireWholeLines(const std::string& path, const std::string& content, std::size_t limit) {
  const WholeLines expected = modelOfWholeLines(content, limit);
  OpenedFile file;
  require(isOpen(path, file), "a file can be opened");
  WholeLineReader reader(file, limit);
  WholeLines found;
  std::string line;
  while ((found.end = reader.next(line)) == Result::line) found.lines.push_back(line);
  require(found.lines == expected.lines, "whole lines");
  require(found.end == expected.end, "the end of the lines");
}

// --- All lines, and the first

std::string withoutEnd(std::string line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r' || line.back() == '\0')) line.pop_back();
  return line;
}

std::string trimmed(std::string text) {
  const auto isPrintable = [](char c) { return c >= 33 && c <= 126; };
  while (!text.empty() && !isPrintable(text.back())) text.pop_back();
  while (!text.empty() && !isPrintable(text.front())) text.erase(0, 1);
  return text;
}

void requireAllLines(const std::string& path, const Lines& whole, const FaultPlan& plan) {
  Lines expected;
  for (const std::string& line : whole) expected.push_back(withoutEnd(line));
  Lines found = {"old"};
  Status status;
  const bool isUndisturbed = fuzz::runUnder(plan, [&] { status = FileUtils::readLines(path, found); });
  require(!isUndisturbed || status.isSuccess(), "lines can be read");
  require(!status.isSuccess() || found == expected, "lines without their ends");
  require(status.isSuccess() || status.code() == status::openError || status.code() == status::readError,
          "a failure is an error of the file");
}

void requireFirstLine(const std::string& path, const Lines& whole, const FaultPlan& plan) {
  std::string expected;
  for (std::size_t i = 0; i < whole.size() && expected.empty(); ++i) expected = trimmed(whole[i]);
  std::string found = "old";
  Status status;
  const bool isUndisturbed = fuzz::runUnder(plan, [&] { status = FileUtils::readFirstLine(path, found); });
  require(!isUndisturbed || status.isSuccess(), "a first line can be read");
  if (status.isSuccess()) {
    // If every call fails, the reader cannot tell a file from a missing one.
    require(found == expected || (plan.fromThereOn && !isUndisturbed && found.empty()), "the first line, trimmed");
  } else {
    require(status.code() == status::openError || status.code() == status::readError,
            "a failure is an error of the file");
    require(found.empty(), "a failure gives no line");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Folder folder;
  const std::string path = folder.path() + "file";
  fuzz::Input input(data, size);
  const FaultPlan plan = fuzz::faults(input);
  const std::size_t lineBuffer = 2 + std::size_t{input.byte()} * input.byte() % 9000;
  const std::size_t limit = 501 + std::size_t{input.byte()} * 16;
  const std::string content = fuzz::repeatedRest(input, plan.oneByteAtATime ? largestSlowFile : largestFile);
  fuzz::writeFile(path, content);

  const fuzz::NothingStaysOpen nothing;
  requirePieces(path, content, lineBuffer, plan);
  requireWholeLines(path, content, limit);
  const WholeLines whole = modelOfWholeLines(content, WholeLineReader::defaultLimit);
  requireAllLines(path, whole.lines, plan);
  requireFirstLine(path, whole.lines, plan);
  return 0;
}
