// ConfigLines: the key=value lines of the daemon's configuration files.
//
//   std::string level;
//   if (!ConfigLines::readFirstValue(path, "log_level", level)) level = "info";
//   Status s = ConfigLines::setKeys(path, {{"log_level", "debug"}, {"openhip.log_level", "debug"}});
//   s = ConfigLines::removeKey(path, "activation_code");
//
// A line has a key if it begins with the key and "="; there is no quoting and no escaping. Readers trim a line first,
// writers do not, so a key behind leading blanks is read but never replaced. This is deliberate. Lines pass through a
// buffer of 8,000 bytes: a longer line is split into pieces of 7,999 bytes. A reader takes each piece for a line; an
// edit searches for keys only where a line really begins.
//
// Edits replace the file: they write a new file beside it, sync that to the device and rename it over the old one. A
// symbolic link is replaced by a regular file. After any failure the old file is unchanged, and the new one is removed
// if that is possible.
// Other processes: setKeys and removeKey hold the FileLock of the path for their one pass, and the lock of the
// temporary file (see ReplacementFile.h), which nobody else can take away. Each waits at most ten seconds for other
// holders; all edits in the scope of an EditLimit wait at most ten seconds together. They edit without a FileLock if
// none can be taken (no lock directory, no permission), and if somebody else may write in the lock directory.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/files/FileAccess.h"
#include "base/files/LineReader.h"
#include "base/files/ReplacementFile.h"
#include "base/system/WaitLimit.h"
#include "command/status/StatusCodes.h"

namespace ConfigLines {

// All edits in the scope of one EditLimit together wait for other holders for ten seconds at most. An edit that begins
// after that time still tries once.
struct Edits {
  static constexpr std::chrono::seconds longestWait{10};
};
using EditLimit = WaitLimit<Edits>;

using KeyValue = std::pair<std::string, std::string>;

// Returns true if a line has `key`, and sets `value` to the text behind "=" in the first such line. Each line is
// trimmed at both ends of every byte outside 33..126; the value is otherwise taken verbatim and may be empty. Empty
// lines and lines that begin with "#" are skipped. Clears `value` first. Returns false for a missing or unreadable file
// and for an empty key.
bool readFirstValue(const std::string& path, std::string_view key, std::string& value);

// Sets each key to its value in one pass: replaces every line of a key, copies all other lines byte for byte, and
// appends the keys that had no line in the order given. A missing file counts as empty; it is created with mode 0644.
// Statuses: those of LineEditor::commit; "file open" also if another holder keeps the lock for ten seconds; "invalid
// argument" for an empty path or key, a key with "=", or a key or value with a line break or a zero byte.
Status setKeys(const std::string& path, const std::vector<KeyValue>& settings);

// Removes every line of a key. Does not touch a file that has no such line and does not create a missing file; both are
// success. Statuses: as setKeys.
Status removeKey(const std::string& path, const std::string& key);

}  // namespace ConfigLines

// LineEditor: rewrites a file line by line.
//
//   LineEditor editor(path);
//   for (LinePiece line; editor.readLine(line);)
//     if (!isUnwanted(line)) editor.keepLine(line);
//   editor.writeLine("key=value");
//   return editor.commit();               // without commit(), or after discard(), the file stays unchanged
//
// The editor keeps its first failure: from then on it reads and writes nothing, and commit returns that failure.
// On disk: the editor writes the new content to a ReplacementFile, `path` + ".temp", which it makes before it opens the
// old file. The new file gets the owner of the old one, exactly its extended attributes (access lists, labels), and its
// nine permission bits, in this order; until then its mode is 0600. If the owner, the group or the access list cannot
// be kept, it loses the bits of group and others, so that an edit gives nobody more access. Any other attribute that
// cannot be kept is no failure. Without an old file it gets mode 0644 and what the system lets it inherit from the
// directory.
// Other processes: the lock of the new file keeps other editors away; the editor waits for them until `deadline`. If
// somebody changes the mode of the old file during the edit, the new one gets the bits that are set both before and
// after.
class LineEditor {
 public:
  using Clock = ReplacementFile::Clock;

  explicit LineEditor(const std::string& path) : LineEditor(path, ConfigLines::EditLimit::deadline()) {}
  LineEditor(const std::string& path, Clock::time_point deadline);
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  // Reads the next piece of the old file with its line end; `line` is valid until the next call. Returns false at the
  // end of the file and after a failure. A missing file has no lines.
  bool readLine(LinePiece& line);

  // Writes a piece byte for byte. If a hole precedes it in the old file, leaves the same hole in the new one, so that a
  // sparse file stays sparse.
  void keepLine(const LinePiece& line);

  // Writes `text` and a newline. If the line written before has no newline yet, writes that first.
  void writeLine(std::string_view text);

  // Replaces the old file by the new content: sets owner, attributes and mode, syncs the new file to the device, then
  // renames it. Statuses: the first failure of "invalid argument" (empty path), "file open" (the old file exists but
  // cannot be opened, or the temporary file cannot be created), "file read", "file write" (also if only the sync or the
  // close fails), "chmod", "rename". A second commit, or one after discard, returns the first failure, or
  // "file write" if there was none.
  Status commit();

  // Returns the first failure so far, or success. After a commit or a discard without a failure it is "file write".
  const Status& status() const { return status_; }

  // Drops the new content and removes the temporary file; the old file stays. Does nothing after a commit.
  void discard();

 private:
  void fail(StatusCode code);
  void write(std::string_view bytes);
  void leaveHole(off_t size);
  bool flush();
  mode_t copyOwnerAndAttributes();
  bool setMode();
  bool syncToDevice();

  Status status_;
  OpenedFile old_;
  std::optional<LineReader> reader_;  // empty if there is no old file
  ReplacementFile new_;
  std::string pending_;
  bool endsInsideLine_ = false;
};
