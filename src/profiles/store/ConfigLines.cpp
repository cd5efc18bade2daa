#include "profiles/store/ConfigLines.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>

#include "base/files/FileAttributes.h"
#include "base/files/FileLock.h"
#include "base/system/RawWrite.h"
#include "base/text/StringUtils.h"

using namespace std::string_view_literals;

namespace {

constexpr std::size_t lineBufferSize = 8000;
constexpr std::size_t flushSize = 65536;
constexpr mode_t newFileMode = 0644;
constexpr std::string_view lineBreaksAndZero = "\r\n\0"sv;

bool fitsOneLine(std::string_view text) { return text.find_first_of(lineBreaksAndZero) == std::string_view::npos; }

bool isKey(std::string_view key) { return !key.empty() && key.find('=') == std::string_view::npos && fitsOneLine(key); }

bool isSetting(const ConfigLines::KeyValue& setting) { return isKey(setting.first) && fitsOneLine(setting.second); }

// Returns true if the text begins with the key and "=".
bool carries(std::string_view text, std::string_view key) {
  return text.size() > key.size() && text[key.size()] == '=' && StringUtils::startsWith(text, key);
}

using Clock = LineEditor::Clock;

// Runs one pass of an editor under the locks.
template <typename Pass>
Status edit(const std::string& path, Pass pass) {
  const Clock::time_point end = ConfigLines::EditLimit::deadline();
  std::optional<FileLock> lock;
  if (FileLock::isDirectoryOurs()) {
    lock.emplace(path, std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()));
    if (lock->result() == FileLock::Result::busy) return Status::of(status::openError);
  }
  LineEditor editor(path, end);
  return pass(editor);
}

Status setAll(LineEditor& editor, const std::vector<ConfigLines::KeyValue>& settings) {
  std::vector<bool> isWritten(settings.size());
  const auto write = [&](std::size_t i) {
    editor.writeLine(settings[i].first + '=' + settings[i].second);
    isWritten[i] = true;
  };
  auto setting = settings.end();  // the one that replaces the line
  for (LinePiece line; editor.readLine(line);) {
    if (line.startsLine) {
      setting = std::find_if(settings.begin(), settings.end(),
                             [&](const auto& candidate) { return carries(line.text, candidate.first); });
      if (setting != settings.end()) write(static_cast<std::size_t>(setting - settings.begin()));
    }
    if (setting == settings.end()) editor.keepLine(line);
  }
  for (std::size_t i = 0; i < settings.size(); ++i) {
    if (!isWritten[i]) write(i);
  }
  return editor.commit();
}

Status removeAll(LineEditor& editor, const std::string& key) {
  bool hasRemoved = false;
  bool isRemoved = false;
  for (LinePiece line; editor.readLine(line);) {
    if (line.startsLine) isRemoved = carries(line.text, key);
    hasRemoved = hasRemoved || isRemoved;
    if (!isRemoved) editor.keepLine(line);
  }
  if (hasRemoved) return editor.commit();
  return editor.status();
}

// False if the file is missing or certainly has no line of the key, so that nothing need be made beside it.
bool mayHaveKey(const std::string& path, const std::string& key) {
  OpenedFile file;
  if (!openForReading(AT_FDCWD, path.c_str(), file, Follow::trusted)) return errno != ENOENT;
  LineReader reader(file, lineBufferSize, BlankLines::leftOut);
  for (LinePiece line; reader.next(line);) {
    if (line.startsLine && carries(line.text, key)) return true;
  }
  return reader.failed();
}

bool isUnsupported(int error) { return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP; }

}  // namespace

namespace ConfigLines {

bool readFirstValue(const std::string& path, std::string_view key, std::string& value) {
  value.clear();
  OpenedFile file;
  if (key.empty() || !isUsablePath(path) || !openForReading(AT_FDCWD, path.c_str(), file)) return false;
  LineReader reader(file, lineBufferSize, BlankLines::leftOut);
  for (LinePiece line; reader.next(line);) {
    const std::string_view text = StringUtils::trim(line.text, StringUtils::TrimSet::nonPrintable);
    if (!carries(text, key) || text.front() == '#') continue;
    value = text.substr(key.size() + 1);
    return true;
  }
  return false;
}

Status setKeys(const std::string& path, const std::vector<KeyValue>& settings) {
  if (!isUsablePath(path) || !std::all_of(settings.begin(), settings.end(), isSetting)) {
    return Status::of(status::invalidArgument);
  }
  return edit(path, [&](LineEditor& editor) { return setAll(editor, settings); });
}

Status removeKey(const std::string& path, const std::string& key) {
  if (!isUsablePath(path) || !isKey(key)) return Status::of(status::invalidArgument);
  if (!mayHaveKey(path, key)) return Status();
  return edit(path, [&](LineEditor& editor) { return removeAll(editor, key); });
}

}  // namespace ConfigLines

LineEditor::LineEditor(const std::string& path, Clock::time_point deadline) {
  if (!isUsablePath(path)) {
    fail(status::invalidArgument);
  } else if (!new_.make(path, deadline).isSuccess()) {
    fail(status::openError);
  } else if (openForReading(new_.directory(), new_.oldName().c_str(), old_, Follow::trusted)) {
    reader_.emplace(old_, lineBufferSize);
  } else if (errno != ENOENT) {
    fail(status::openError);
  }
}

bool LineEditor::readLine(LinePiece& line) {
  if (!status_.isSuccess() || !reader_) return false;
  if (reader_->next(line)) return true;
  if (reader_->failed()) fail(status::readError);
  return false;
}

void LineEditor::keepLine(const LinePiece& line) {
  if (line.hole != 0) leaveHole(line.hole);
  write(line.text);
}

void LineEditor::writeLine(std::string_view text) {
  if (endsInsideLine_) write("\n");
  write(text);
  write("\n");
}

// The order of steps:
//   1. write the remainder of the new content
//   2. set owner, attributes and mode
//   3. sync the new file to the device
//   4. rename it over the old file
//   5. sync the directory
// A failure in steps 1 to 4 leaves the old file unchanged and removes the new one.
Status LineEditor::commit() {
  const bool isReady = status_.isSuccess() && flush() && setMode() && syncToDevice();
  if (isReady && !new_.replaceOld()) fail(status::renameError);
  Status result = status_;
  discard();
  return result;
}

void LineEditor::discard() {
  new_.remove();
  old_.fd.reset();
  fail(status::writeError);
}

void LineEditor::fail(StatusCode code) {
  if (status_.isSuccess()) status_ = Status::of(code);
}

void LineEditor::write(std::string_view bytes) {
  if (!status_.isSuccess() || bytes.empty()) return;
  endsInsideLine_ = bytes.back() != '\n';
  pending_.append(bytes);
  if (pending_.size() >= flushSize) (void)flush();
}

void LineEditor::leaveHole(off_t size) {
  if (!status_.isSuccess() || !flush()) return;
  if (::lseek(new_.fd(), size, SEEK_CUR) == -1) fail(status::writeError);
}

bool LineEditor::flush() {
  const bool good = writeFully(new_.fd(), pending_);
  pending_.clear();
  if (!good) fail(status::writeError);
  return good;
}

// Returns the mode that the new file may have. The owner comes first, because the system may clear mode bits when the
// owner changes. The path may be a link to another user's program; no second set-user-ID program is created. The mode
// is read again after the access list, so that the two cannot add up to more than the old file ever allowed.
mode_t LineEditor::copyOwnerAndAttributes() {
  struct stat made = {};
  struct stat now = {};
  const auto hasOwner = [this](const struct stat& info) {
    return info.st_uid == old_.info.st_uid && info.st_gid == old_.info.st_gid;
  };
  const bool isOwnerKept =
      new_.giveTo(old_.info.st_uid, old_.info.st_gid) || (::fstat(new_.fd(), &made) == 0 && hasOwner(made));
  const bool isListKept = copyFileAttributes(old_.fd.get(), new_.fd(), isOwnerKept);
  const bool isModeKnown = ::fstat(old_.fd.get(), &now) == 0;
  const mode_t mode = old_.info.st_mode & (isModeKnown ? now.st_mode : S_IRWXU) & 0777;
  return isOwnerKept && isListKept ? mode : mode & S_IRWXU;
}

bool LineEditor::setMode() {
  struct stat made = {};
  const mode_t mode = S_ISREG(old_.info.st_mode) ? copyOwnerAndAttributes() : newFileMode;
  if (::fchmod(new_.fd(), mode) == 0) return true;
  if (::fstat(new_.fd(), &made) == 0 && (made.st_mode & 07777) == mode) return true;
  fail(status::chmodError);
  return false;
}

bool LineEditor::syncToDevice() {
  const int result = uninterrupted([&] { return ::fsync(new_.fd()); });
  const bool isSynced = result == 0 || isUnsupported(errno);
  const bool isWritten = new_.closeToWrite() && isSynced;
  if (!isWritten) fail(status::writeError);
  return isWritten;
}
