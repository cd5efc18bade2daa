#include "base/files/FileUtils.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "base/files/FileAccess.h"
#include "base/files/LineReader.h"
#include "base/text/StringUtils.h"
#include "base/text/TimeUtils.h"
#include "log/front/BasicLog.h"

namespace FileUtils {
namespace {

constexpr mode_t wholeFileMode = 0640;
constexpr mode_t copyMode = 0644;
constexpr mode_t uniqueFileMode = 0644;
constexpr mode_t programDirectoryMode = 0750;
constexpr std::size_t pathBufferSize = 4096;
constexpr std::int64_t microsPerSecond = 1000000;

bool lookAt(const std::string& path, struct stat& info) {
  return isUsablePath(path) && ::stat(path.c_str(), &info) == 0;
}

bool leadsTo(const std::string& path, const struct stat& file) {
  struct stat info = {};
  return lookAt(path, info) && isSameFile(info, file);
}

bool isOfType(const std::string& path, mode_t type) {
  struct stat info = {};
  return lookAt(path, info) && (info.st_mode & S_IFMT) == type;
}

bool isRegularAt(int directoryFd, const char* path) {
  struct stat info = {};
  return ::fstatat(directoryFd, path, &info, 0) == 0 && S_ISREG(info.st_mode);
}

template <typename Lines>
Status writeLinesOf(const std::string& path, const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text.append(line).push_back('\n');
  return replaceContent(path, text, wholeFileMode, SetMode::always);
}

std::size_t lengthWithoutLineEnd(const std::string& line) {
  return line.find_last_not_of(std::string_view("\r\n\0", 3)) + 1;  // npos + 1 is 0
}

template <typename Lines>
Status readLinesOf(const std::string& path, Lines& lines) {
  lines.clear();
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  OpenedFile file;
  if (!openForReading(AT_FDCWD, path.c_str(), file)) return Status::of(status::openError);
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

std::string programDirectory(const char* variable, const char* fallback) {
  const char* value = std::getenv(variable);
  std::string directory = value != nullptr && *value != '\0' ? value : fallback;
  if (directory.back() != '/') directory += '/';
  (void)makeDir(directory, programDirectoryMode);  // who needs it finds out when using it
  return directory;
}

// Six letters and digits that differ from call to call and from process to process; being the first to make the file is
// what counts, not being hard to guess.
std::string uniqueSuffix() {
  static constexpr char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  static std::atomic<std::uint64_t> calls{0};
  std::uint64_t bits =
      static_cast<std::uint64_t>(TimeUtils::nowMicros()) ^ (static_cast<std::uint64_t>(::getpid()) << 40);
  bits += calls.fetch_add(1, std::memory_order_relaxed) * 0x9e3779b97f4a7c15u;
  bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9u;
  bits = (bits ^ (bits >> 27)) * 0x94d049bb133111ebu;
  bits ^= bits >> 31;
  std::string suffix;
  for (int i = 0; i < 6; ++i, bits /= 62) suffix += letters[bits % 62];
  return suffix;
}

void logFailedOpen(int error) {
  static BasicLog::Logger& log = BasicLog::getLogger(BasicLog::basiclibLogger);
  if (!log.isEnabled(BasicLog::Level::error)) return;
  BasicLog::Entry entry(log, BasicLog::Level::error, "failed to open file", "FileUtils.cpp", "makeUniqueFile");
  entry.add("error", std::strerror(error));
}

Status copyError(StatusCode code, const std::string& path) { return Status::error(code, path, "copyFile"); }

// Copies `left` bytes, or as many as there are.
Status copyBytes(const OpenedFile& source, const std::string& from, FileWriter& target, const std::string& to) {
  char buffer[4096];
  for (off_t left = source.size; left > 0;) {
    const auto wanted = static_cast<std::size_t>(std::min<off_t>(left, sizeof buffer));
    const ssize_t count = readSome(source.fd.get(), buffer, wanted);
    if (count < 0) return copyError(status::readError, from);
    if (count == 0) break;
    const Status s = target.write(std::string_view(buffer, static_cast<std::size_t>(count)));
    if (!s.isSuccess()) return copyError(s.code(), to);
    left -= count;
  }
  return Status::success();
}

}  // namespace

// --- Whole files and lines

Status readFile(const std::string& path, std::string& bytes) {
  bytes.clear();
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  struct stat info = {};
  if (!lookAt(path, info)) return Status::of(status::statError);
  if (isNullDevice(info) || (S_ISREG(info.st_mode) && info.st_size == 0)) return Status::success();
  OpenedFile file;
  if (!openForReading(AT_FDCWD, path.c_str(), file)) return Status::of(status::openError);
  bytes.resize(static_cast<std::size_t>(file.size));
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    const ssize_t count = readSome(file.fd.get(), &bytes[filled], bytes.size() - filled);
    if (count < 0) {
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
  return replaceContent(path, std::string_view(static_cast<const char*>(data), length), wholeFileMode, SetMode::always);
}

Status writeString(const std::string& path, const std::string& text, bool addNewline) {
  if (!addNewline) return replaceContent(path, text, wholeFileMode, SetMode::always);
  return replaceContent(path, text + '\n', wholeFileMode, SetMode::always);
}

Status writeLines(const std::string& path, const std::vector<std::string>& lines) { return writeLinesOf(path, lines); }
Status writeLines(const std::string& path, const StringList& lines) { return writeLinesOf(path, lines); }
Status readLines(const std::string& path, std::vector<std::string>& lines) { return readLinesOf(path, lines); }
Status readLines(const std::string& path, StringList& lines) { return readLinesOf(path, lines); }

Status readFirstLine(const std::string& path, std::string& line) {
  line.clear();
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  return readFirstLineAt(AT_FDCWD, path.c_str(), line);
}

Status readFirstLineAt(int directoryFd, const char* path, std::string& line) {
  line.clear();
  if (path == nullptr || *path == '\0') return Status::of(status::invalidArgument);
  OpenedFile file;
  if (!openForReading(directoryFd, path, file)) {
    return Status::of(isRegularAt(directoryFd, path) ? status::openError : status::success);
  }
  char buffer[4096];
  WholeLineReader reader(file, WholeLineReader::defaultLimit, buffer, sizeof buffer);
  auto result = WholeLineReader::Result::line;
  while ((result = reader.next(line)) == WholeLineReader::Result::line) {
    const std::string_view trimmed = StringUtils::trim(line, StringUtils::TrimSet::nonPrintable);
    if (trimmed.empty()) {
      reader.dropBlankLines();
      continue;
    }
    line.erase(0, static_cast<std::size_t>(trimmed.data() - line.data()));
    line.resize(trimmed.size());
    return Status::success();
  }
  line.clear();
  return Status::of(result == WholeLineReader::Result::failed ? status::readError : status::success);
}

// --- Questions

bool fileExists(const std::string& path) {
  struct stat info = {};
  return lookAt(path, info);
}

bool isRegularFile(const std::string& path) { return isOfType(path, S_IFREG); }
bool isDirectory(const std::string& path) { return isOfType(path, S_IFDIR); }
bool isFifo(const std::string& path) { return isOfType(path, S_IFIFO); }

bool isRealDirectory(const std::string& path) {
  struct stat info = {};
  return isUsablePath(path) && ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::int64_t fileSize(const std::string& path) {
  struct stat info = {};
  return lookAt(path, info) ? info.st_size : -1;
}

std::int64_t fileModifiedMicros(const std::string& path) {
  struct stat info = {};
  std::int64_t micros = 0;
  if (!lookAt(path, info)) return 0;
  return __builtin_mul_overflow(info.st_mtime, microsPerSecond, &micros) ? 0 : micros;
}

bool isFreshRegularFile(const std::string& path, std::int64_t maxAgeMicros) {
  if (!isRegularFile(path)) return false;
  std::int64_t until = 0;
  if (__builtin_add_overflow(fileModifiedMicros(path), maxAgeMicros, &until)) return maxAgeMicros > 0;
  return until > TimeUtils::nowMicros();
}

bool fifoHasReader(const std::string& path) {
  if (!isUsablePath(path)) return false;
  const UniqueFd fd(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  return fd.isOpen();
}

Status getCurrentDir(std::string& dir) {
  char buffer[pathBufferSize];
  dir.clear();
  if (::getcwd(buffer, sizeof buffer) == nullptr) return Status::of(status::getcwdError);
  dir = buffer;
  return Status::success();
}

const char* configRoot() { return "/etc/zuv/"; }

// --- Creating, removing, renaming

Status makeDir(const std::string& path, mode_t mode) {
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  const bool good = ::mkdir(path.c_str(), mode) == 0 || errno == EEXIST;
  return Status::of(good ? status::success : status::mkdirError);
}

NewDir makeNewDir(const std::string& path, mode_t mode) {
  if (!isUsablePath(path)) return NewDir::failed;
  if (::mkdir(path.c_str(), mode) != 0) return errno == EEXIST ? NewDir::exists : NewDir::failed;
  if (setMode(path, mode).isSuccess()) return NewDir::made;
  (void)removeDir(path);
  return NewDir::failed;
}

Status setMode(const std::string& path, mode_t mode) {
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  if (::chmod(path.c_str(), mode) == 0) return Status::success();
  struct stat info = {};
  const bool good = lookAt(path, info) && (info.st_mode & 0777) == mode;
  return Status::of(good ? status::success : status::chmodError);
}

Status removeFile(const std::string& path) {
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  const bool good = ::unlink(path.c_str()) == 0 || errno == ENOENT;
  return Status::of(good ? status::success : status::unlinkError);
}

Status removeDir(const std::string& path) {
  if (!isUsablePath(path)) return Status::of(status::invalidArgument);
  const bool good = ::rmdir(path.c_str()) == 0 || errno == ENOENT;
  return Status::of(good ? status::success : status::rmdirError);
}

Status removePath(const std::string& path) {
  const Status s = removeFile(path);
  return s.isSuccess() ? s : removeDir(path);
}

Status renameFile(const std::string& from, const std::string& to, bool overwrite) {
  if (!isUsablePath(from) || !isUsablePath(to)) return Status::of(status::invalidArgument);
  const bool good = (overwrite || !isRegularFile(to)) && ::rename(from.c_str(), to.c_str()) == 0;
  return Status::of(good ? status::success : status::renameError);
}

Status copyFile(const std::string& from, const std::string& to) {
  if (!isUsablePath(to) || fileSize(from) < 0) return Status::of(status::invalidArgument);
  OpenedFile source;
  // Everybody may read the copy: what is copied is not for others to choose.
  if (!openForReading(AT_FDCWD, from.c_str(), source, Links::ofTrusted)) return copyError(status::openError, from);
  FileWriter target;
  Status s = target.open(to, copyMode);
  if (s.isSuccess() ? isSameFile(source.info, target.info()) : leadsTo(to, source.info)) {
    return Status::of(status::invalidArgument);
  }
  if (!s.isSuccess()) return copyError(s.code(), to);
  s = target.cutToNothing();
  if (!s.isSuccess()) return copyError(s.code(), to);
  s = copyBytes(source, from, target, to);
  if (!s.isSuccess()) return s;
  target.setMode(copyMode);
  s = target.finish();
  return s.isSuccess() ? s : copyError(s.code(), to);
}

std::FILE* makeUniqueFile(const std::string& base, std::string& pathOut) {
  constexpr int attempts = 11;  // deliberate
  constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC;
  if (!isUsablePath(base) || base.size() + std::strlen(".XXXXXX") >= pathBufferSize) return nullptr;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    const std::string path = base + "." + uniqueSuffix();
    UniqueFd fd(uninterrupted([&] { return ::open(path.c_str(), flags, uniqueFileMode); }));
    if (!fd.isOpen()) {
      logFailedOpen(errno);
      continue;
    }
    std::FILE* stream = ::fdopen(fd.get(), "w+");
    if (stream == nullptr) {
      (void)::unlink(path.c_str());
      return nullptr;
    }
    (void)fd.release();
    pathOut = path;
    return stream;
  }
  return nullptr;
}

// --- Directories of the program

const std::string& tempDir() {
  static const std::string directory = programDirectory("ZUV_TMP_DIR", "/tmp/");
  return directory;
}

const std::string& lockDir() {
  static const std::string directory = programDirectory("ZUV_LOCK_DIR", "/tmp/lock/");
  return directory;
}

}  // namespace FileUtils
