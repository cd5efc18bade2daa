#include "base/files/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>

#include "base/files/FileAccess.h"
#include "base/files/LineReader.h"

namespace FileUtils {
namespace {

using namespace std::string_view_literals;

constexpr mode_t wholeFileMode = 0640;

bool isRegularAt(int directoryFd, const char* path) {
  struct stat info = {};
  return ::fstatat(directoryFd, path, &info, 0) == 0 && S_ISREG(info.st_mode);
}

Status replace(const std::string& path, std::string_view content, Access access) {
  return replaceContent(path, content, wholeFileMode, SetMode::always, access);
}

template <typename Lines>
Status writeLinesOf(const std::string& path, const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text.append(line).push_back('\n');
  return replace(path, text, Access::ofSystem);
}

std::size_t lengthWithoutLineEnd(const std::string& line) {
  return line.find_last_not_of("\r\n\0"sv) + 1;  // npos + 1 is 0
}

template <typename Lines>
Status readLinesOf(const std::string& path, Lines& lines) {
  lines.clear();
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  OpenedFile file;
  if (!openAnyForReading(path, file)) return Status::of(status::openError);
  WholeLineReader reader(file, WholeLineReader::defaultLimit);
  std::string line;
  auto result = WholeLineReader::Result::line;
  while ((result = reader.next(line)) == WholeLineReader::Result::line) {
    lines.emplace_back(line, 0, lengthWithoutLineEnd(line));
  }
  if (result == WholeLineReader::Result::end) return Status::success();
  lines.clear();
  return Status::of(status::readError);
}

}  // namespace

Status readFile(const std::string& path, std::string& bytes) {
  bytes.clear();
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  struct stat info = {};
  if (!lookAt(path, info)) return Status::of(status::statError);
  if (info.st_size == 0) return Status::success();
  OpenedFile file;
  if (!openAnyForReading(path, file)) return Status::of(status::openError);
  if (static_cast<std::uintmax_t>(file.size()) > bytes.max_size()) return Status::of(status::readError);
  bytes.resize(static_cast<std::size_t>(file.size()));
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    const ssize_t count = readSome(file.fd.get(), &bytes[filled], bytes.size() - filled);
    if (count == -1) {
      bytes.clear();
      return Status::of(status::readError);
    }
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  bytes.resize(filled);
  return Status::success();
}

Status writeFile(const std::string& path, const void* data, std::size_t length) {
  return replace(path, std::string_view(static_cast<const char*>(data), length), Access::ofSystem);
}

Status writeString(const std::string& path, const std::string& text, bool addNewline) {
  return replace(path, addNewline ? text + '\n' : text, Access::ofSystem);
}

Status writeStoreLine(const std::string& path, const std::string& text) {
  return replace(path, text + '\n', Access::ofStore);
}

Status writeLines(const std::string& path, const std::vector<std::string>& lines) { return writeLinesOf(path, lines); }
Status writeLines(const std::string& path, const StringList& lines) { return writeLinesOf(path, lines); }
Status readLines(const std::string& path, std::vector<std::string>& lines) { return readLinesOf(path, lines); }
Status readLines(const std::string& path, StringList& lines) { return readLinesOf(path, lines); }

[[gnu::hot]] Status readFirstLine(const std::string& path, std::string& line) {
  return readFirstLineAt(AT_FDCWD, isUsablePath(path) ? path.c_str() : nullptr, line);
}

[[gnu::hot]] Status readFirstLineAt(int directoryFd, const char* path, std::string& line) {
  line.clear();
  if (path == nullptr || *path == '\0') return Status::of(status::invalidArgument);
  OpenedFile file;
  if (!openForReading(directoryFd, path, file)) {
    return Status::of(isRegularAt(directoryFd, path) ? status::openError : status::success);
  }
  return readFirstLineFrom(file, line);
}

[[gnu::hot]] Status readFirstLineFrom(const OpenedFile& file, std::string& line) {
  WholeLineReader reader(file, WholeLineReader::defaultLimit, BlankLines::leftOut);
  const auto result = reader.nextText(line);
  if (result == WholeLineReader::Result::line) return Status::success();
  line.clear();
  return Status::of(result == WholeLineReader::Result::failed ? status::readError : status::success);
}

}  // namespace FileUtils
