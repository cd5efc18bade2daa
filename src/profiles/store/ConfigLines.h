// ConfigLines: the key=value lines of the daemon's configuration files.
//
//   std::string level;
//   if (!ConfigLines::readFirstValue(path, "log_level", level)) level = "info";
//   Status s = ConfigLines::setKeys(path, {{"log_level", "debug"}, {"openhip.log_level", "debug"}});
//   s = ConfigLines::removeKey(path, "activation_code");
//
// A line carries a key when it begins with the key and "="; no quoting and no escapes exist. Readers trim a line first,
// writers do not: a key behind blanks is read but never replaced. That is a deliberate asymmetry of the file format.
// Lines are looked at through a buffer of 8,000 bytes: a longer line comes as pieces of 7,999 bytes.
//
// Edits replace the file: a new one is written beside it, brought to the device and renamed over the old one. A link is
// replaced by a regular file. After any failure the old file is as it was and nothing is left beside it.
// Other processes: setKeys and removeKey hold the FileLock of the path for their one pass. They wait ten seconds at
// most for its holder; where no lock can be taken at all (no directory, no right) they go on without.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/files/FileAccess.h"
#include "base/files/LineReader.h"
#include "base/system/Leftover.h"
#include "base/system/UniqueFd.h"
#include "command/status/StatusCodes.h"

namespace ConfigLines {

using KeyValue = std::pair<std::string, std::string>;

// Whether a line holds `key`, and its value: the rest of the first such line after "=", trimmed (everything outside
// 33..126) but otherwise as it stands; it may be empty. Empty lines and lines that begin with "#" are passed over.
// `value` is cleared first. A missing or unreadable file, and an empty key, are "not found".
bool readFirstValue(const std::string& path, std::string_view key, std::string& value);

// Gives each key its value in one pass: every line of a key is replaced, all other lines are copied byte for byte, and
// the keys without a line are appended in the order given. A missing file counts as empty; it is made with mode 0644.
// Statuses: those of LineEditor::commit; "file open" when the lock has been held by somebody else for ten seconds;
// "invalid argument" for an empty path or key, a key with "=" or a key or value with a line break or a zero byte.
Status setKeys(const std::string& path, const std::vector<KeyValue>& settings);

// Removes every line of a key. A file without one is not touched, a missing file is not made; both are success.
// Statuses as setKeys.
Status removeKey(const std::string& path, const std::string& key);

}  // namespace ConfigLines

// LineEditor: rewrites a file line by line.
//
//   LineEditor editor(path);
//   for (LinePiece line; editor.readLine(line);)
//     if (!isUnwanted(line)) editor.keepLine(line);
//   editor.writeLine("key=value");
//   return editor.commit();               // without it, or after discard(), the file stays as it is
//
// The first failure is remembered: from then on nothing is read or written, and commit returns it.
// On disk: the new content grows in `path` + ".temp", made anew; whatever file or link had that name is removed and
// never followed. It has the mode of the old file, and its owner where the system allows; 0644 for a new file. Other
// processes: takes no lock.
class LineEditor {
 public:
  explicit LineEditor(const std::string& path);
  ~LineEditor() { discard(); }
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  // The next piece of the old file with its line end, valid until the next call; false at the end and after a failure.
  // A missing file has no lines.
  bool readLine(LinePiece& line);

  // Writes a piece byte for byte, behind the hole that was before it: a sparse file stays one.
  void keepLine(const LinePiece& line);

  // Writes `text` and a newline. Where the last line copied had no newline it gets one first.
  void writeLine(std::string_view text);

  // Puts the new content in the place of the old file, with mode and owner, on the device before the rename.
  // Statuses: the first failure of "invalid argument" (empty path), "file open" (the old file is there and cannot be
  // opened, or the temporary file cannot be made), "file read", "file write" (also when only a flush or the close
  // fails), "chmod", "rename". A second commit, or one after discard: "file write".
  Status commit();

  // The first failure so far, else success.
  const Status& status() const { return status_; }

  // Drops the new content and removes the temporary file; the old file stays. Nothing after a commit.
  void discard();

 private:
  bool fail(StatusCode code);
  void write(std::string_view bytes);
  void leaveHole(off_t size);
  bool makeTemporary();
  bool flush();
  bool dressLikeOldFile();
  bool syncToDevice();

  std::string path_;
  std::string temporaryPath_;
  Status status_;
  OpenedFile old_;
  LineReader reader_;
  UniqueFd temporary_;
  bool hasTemporary_ = false;
  Leftover leftover_;  // the temporary file
  std::string pending_;
  bool endsInsideLine_ = false;
};
