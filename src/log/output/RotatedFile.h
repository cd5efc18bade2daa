// RotatedFile: a log file that is replaced by a new one in every period.
//
//   RotatedFile file;
//   file.interval = 3'600'000'000;
//   file.prefix = "app-";
//   file.directory = "/var/log/app";
//   if (file.enterPeriod(ticks)) scrub_old_files(file.directory, file.prefix, now);
//   file.append("[INFO] started\n");                     // into /var/log/app/app-20250302-13.log
//
// Periods: a period begins at a multiple of the interval in local ticks (see TimeUtils.h).
// Names: the name of a file contains the start of its period, to the day if the interval is one day, to the hour if it
// is one hour, to the minute if it is one minute, and to the second for all other intervals.
// On the disk: a missing directory is created with mode 0750, a missing file with mode 0644, both less the umask.
// Existing files are appended to. If the name of the file is a link, the link is not followed, and nothing is written
// to anything but a regular file.
// Threads: the class does not lock; its owner does.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/system/UniqueFd.h"

class RotatedFile {
 public:
  // The settings. A new prefix or directory takes effect when the next file is opened. A new interval takes effect at
  // the next call of enterPeriod(), which keeps the open file and its name if the new period begins at the same time as
  // the old one.
  std::int64_t interval = 0;  // microseconds
  std::string prefix;
  std::string directory;

  // An interval below one millisecond is invalid, and then nothing is written.
  bool hasValidInterval() const { return interval > 999; }

  // Enters the period that contains `localTicks`. Returns true if that is the first period or differs from the current
  // one; it has then closed the old file, if one was open. With an invalid interval it returns false and enters
  // nothing.
  bool enterPeriod(std::int64_t localTicks);

  // Writes a line, which includes its newline, to the file of the period, without a buffer. Opens the file if it is not
  // open. If the line cannot be written, it is lost and the file is closed, so that the next line opens it again.
  // Writes nothing before the first period and while the interval is invalid.
  void append(std::string_view line);

  // Returns the name of the open file without its directory, or an empty text if no file is open.
  const std::string& fileName() const { return fileName_; }

 private:
  bool openFile();
  void closeFile();

  std::optional<std::int64_t> periodStart_;  // local ticks; empty before the first period
  UniqueFd fd_;
  std::string fileName_;
};

// Removes every regular file of the directory whose name begins with `prefix` and whose modification time, in whole
// seconds, is more than 30 days before `nowMicros`. `nowMicros` is the time of the wall clock, although file names
// contain local ticks; that is deliberate. Logs each file before it removes it. If `directory` or `prefix` is empty,
// nothing is removed. A file that cannot be removed is ignored.
void scrub_old_files(const std::string& directory, const std::string& prefix, std::int64_t nowMicros);
