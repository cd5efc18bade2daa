// RotatedFile: a log file that is another one in every period.
//
//   RotatedFile file;
//   file.interval = 3'600'000'000;
//   file.prefix = "app-";
//   file.directory = "/var/log/app";
//   if (file.enterPeriod(ticks)) scrub_old_files(file.directory, file.prefix, now);
//   file.append("[INFO]", "started");                    // into /var/log/app/app-20250302-13.log
//
// Periods are multiples of the interval in local ticks (see TimeUtils.h). A file is named after the start of its
// period: the day for intervals of a day, the hour for an hour, the minute for a minute, the second for all others. On
// the disk: the directory is made when it is missing (0750), files are appended to, and made 0644, both less the umask.
// A link in the file's place is not followed, and anything but a regular file is not written to. Threads: none; the
// owner locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/system/UniqueFd.h"

class RotatedFile {
 public:
  // The settings. A new prefix or directory counts from the next opening on.
  std::int64_t interval = 0;  // microseconds
  std::string prefix;
  std::string directory;

  // Intervals below a millisecond are none: nothing is written then.
  bool hasValidInterval() const { return interval > 999; }

  // Moves on to the period in which `localTicks` lies. True when it is another one than before: lines that are held
  // were written, and the file is closed.
  bool enterPeriod(std::int64_t localTicks);

  // Writes header, blank and body as one sanitised line (see Emitter.h) into the file of the period, which is opened
  // when it is not open. A line that cannot be written is lost, and the file is closed then, so that the next line
  // opens it anew. Without a period, or a valid interval, nothing is written.
  void append(std::string_view header, std::string_view body);

  // From here to release lines are held and then written together. What becomes of each is the same: when one cannot be
  // written, the next ones still are.
  void hold() { isHolding_ = true; }
  void release();

  // The name without directory of the open file, or empty.
  const std::string& fileName() const { return fileName_; }

 private:
  bool openFile();
  void closeFile();
  void writeHeld();

  bool hasPeriod_ = false;
  std::int64_t periodStart_ = 0;  // local ticks
  UniqueFd fd_;
  std::string fileName_;
  bool isHolding_ = false;
  std::string held_;
  std::vector<std::size_t> heldEnds_;  // where each held line ends
};

// Removes the regular files of a directory whose names begin with `prefix` and that were last changed more than 30 days
// before `nowMicros`, the wall clock (although the files are named by local ticks: deliberate). Each is logged first.
// Without a directory or a prefix nothing is removed. What cannot be removed stays.
void scrub_old_files(const std::string& directory, const std::string& prefix, std::int64_t nowMicros);
