#include "profiles/store/ConfigLines.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "base/files/FileLock.h"
#include "base/system/RawWrite.h"
#include "base/text/StringUtils.h"

namespace {

constexpr std::size_t lineBufferSize = 8000;
constexpr std::size_t flushSize = 65536;
constexpr std::chrono::seconds longestWait(10);
constexpr mode_t newFileMode = 0644;
constexpr mode_t temporaryMode = 0600;
constexpr std::string_view lineBreaksAndZero("\r\n\0", 3);

bool fitsOneLine(std::string_view text) { return text.find_first_of(lineBreaksAndZero) == std::string_view::npos; }

bool isKey(std::string_view key) { return !key.empty() && key.find('=') == std::string_view::npos && fitsOneLine(key); }

bool isSetting(const ConfigLines::KeyValue& setting) { return isKey(setting.first) && fitsOneLine(setting.second); }

// Returns true if the text begins with the key and "=".
bool carries(std::string_view text, std::string_view key) {
  return text.size() > key.size() && text[key.size()] == '=' && StringUtils::startsWith(text, key);
}

// Runs one pass of an editor under the lock.
template <typename Pass>
Status edit(const std::string& path, Pass pass) {
  const FileLock lock(path, longestWait);
  if (lock.result() == FileLock::Result::busy) return Status::of(status::openError);
  LineEditor editor(path);
  return pass(editor);
}

Status setAll(LineEditor& editor, const std::vector<ConfigLines::KeyValue>& settings) {
  std::vector<bool> isWritten(settings.size(), false);
  const auto write = [&](std::size_t i) {
    editor.writeLine(settings[i].first + '=' + settings[i].second);
    isWritten[i] = true;
  };
  bool isReplaced = false;
  for (LinePiece line; editor.readLine(line);) {
    if (line.startsLine) {
      const auto found = std::find_if(settings.begin(), settings.end(),
                                      [&](const auto& setting) { return carries(line.text, setting.first); });
      isReplaced = found != settings.end();
      if (isReplaced) write(static_cast<std::size_t>(found - settings.begin()));
    }
    if (!isReplaced) editor.keepLine(line);
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

bool isUnsupported(int error) { return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP; }

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return path.substr(0, std::max<std::size_t>(slash, 1));
}

// The rename has already happened and cannot be undone, so a failure here does not fail the edit.
void syncDirectory(const std::string& path) {
  const UniqueFd fd(uninterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  if (fd.isOpen()) (void)::fsync(fd.get());
}

}  // namespace

namespace ConfigLines {

bool readFirstValue(const std::string& path, std::string_view key, std::string& value) {
  value.clear();
  OpenedFile file;
  if (key.empty() || !isUsablePath(path) || !openForReading(AT_FDCWD, path.c_str(), file)) return false;
  LineReader reader(file, lineBufferSize);
  for (LinePiece line; reader.next(line);) {
    const std::string_view text = StringUtils::trim(line.text, StringUtils::TrimSet::nonPrintable);
    if (text.empty() || text.front() == '#' || !carries(text, key)) continue;
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
  return edit(path, [&](LineEditor& editor) { return removeAll(editor, key); });
}

}  // namespace ConfigLines

LineEditor::LineEditor(const std::string& path) : path_(path), temporaryPath_(path + ".temp") {
  if (!isUsablePath(path)) {
    fail(status::invalidArgument);
  } else if (openForReading(AT_FDCWD, path.c_str(), old_)) {
    reader_ = LineReader(old_, lineBufferSize);
  } else if (errno != ENOENT) {
    fail(status::openError);
  }
}

bool LineEditor::readLine(LinePiece& line) {
  if (!status_.isSuccess()) return false;
  if (reader_.next(line)) return true;
  if (reader_.failed()) fail(status::readError);
  return false;
}

void LineEditor::keepLine(const LinePiece& line) {
  if (line.hole > 0) leaveHole(line.hole);
  write(line.text);
}

void LineEditor::writeLine(std::string_view text) {
  if (endsInsideLine_) write("\n");
  write(text);
  write("\n");
}

// The order of steps:
//   1. write the remainder of the new content
//   2. set owner and mode
//   3. sync the new file to the device
//   4. rename it over the old file
//   5. sync the directory
// A failure in steps 1 to 4 leaves the old file unchanged and removes the new one.
Status LineEditor::commit() {
  const bool isReady = status_.isSuccess() && makeTemporary() && flush() && copyOwnerAndMode() && syncToDevice();
  if (isReady && ::rename(temporaryPath_.c_str(), path_.c_str()) == 0) {
    hasTemporary_ = false;
    leftover_.forget();
    syncDirectory(directoryOf(path_));
  } else if (isReady) {
    fail(status::renameError);
  }
  Status result = status_;
  discard();
  return result;
}

void LineEditor::discard() {
  if (hasTemporary_) (void)::unlink(temporaryPath_.c_str());
  hasTemporary_ = false;
  leftover_.forget();
  temporary_.reset();
  old_.fd.reset();
  fail(status::writeError);
}

bool LineEditor::fail(StatusCode code) {
  if (status_.isSuccess()) status_ = Status::of(code);
  return false;
}

void LineEditor::write(std::string_view bytes) {
  if (!status_.isSuccess() || bytes.empty()) return;
  endsInsideLine_ = bytes.back() != '\n';
  pending_.append(bytes);
  if (pending_.size() >= flushSize && makeTemporary()) (void)flush();
}

void LineEditor::leaveHole(off_t size) {
  if (!status_.isSuccess() || !makeTemporary() || !flush()) return;
  if (::lseek(temporary_.get(), size, SEEK_CUR) < 0) (void)fail(status::writeError);
}

// Only an edit that died can have left a file of this name: it is removed, and a link of that name is not followed.
bool LineEditor::makeTemporary() {
  if (hasTemporary_) return true;
  constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  (void)::unlink(temporaryPath_.c_str());  // if this fails, the open fails too
  temporary_.reset(uninterrupted([&] { return ::open(temporaryPath_.c_str(), flags, temporaryMode); }));
  hasTemporary_ = temporary_.isOpen();
  if (hasTemporary_) leftover_.mark(temporaryPath_.c_str());
  return hasTemporary_ || fail(status::openError);
}

bool LineEditor::flush() {
  const bool good = writeFully(temporary_.get(), pending_);
  pending_.clear();
  return good || fail(status::writeError);
}

// The owner comes first, because the system may clear mode bits when the owner changes.
bool LineEditor::copyOwnerAndMode() {
  struct stat made = {};
  const bool hasOld = S_ISREG(old_.info.st_mode);
  // The path may be a link to another user's program; no second set-user-ID program is created.
  const mode_t mode = hasOld ? old_.info.st_mode & 0777 : newFileMode;
  // A failure is dropped: the owner is kept only where the system allows. A cast to void would still be a warning in
  // the hardened build.
  [[maybe_unused]] const int owner = hasOld ? ::fchown(temporary_.get(), old_.info.st_uid, old_.info.st_gid) : 0;
  if (::fchmod(temporary_.get(), mode) == 0) return true;
  if (::fstat(temporary_.get(), &made) == 0 && (made.st_mode & 07777) == mode) return true;
  return fail(status::chmodError);
}

bool LineEditor::syncToDevice() {
  const int result = uninterrupted([&] { return ::fsync(temporary_.get()); });
  const bool isSynced = result == 0 || isUnsupported(errno);
  return (temporary_.close() && isSynced) || fail(status::writeError);
}
