// LogExcerpt: the last lines of a daemon's log that are at or above a level.
//
//   std::vector<std::string> lines;
//   Status s = readLogExcerpt(path, BasicLog::Level::warning, 50, lines);
//
// Lines: the log is cut into lines. A line of more than 4095 bytes is cut into pieces of 4095 bytes, and each piece
// counts as a line with its own level. The text of a piece ends before its first zero byte and has no CR and LF at its
// end. A piece whose text is empty is skipped. Its level is the one that the text names (BasicLog::parseLogLevel), or
// info if it names none.
//
// Cost: the log is read backwards from its end, only as far as needed to find the lines to show. The first read takes
// 8 KiB, which hold the last fifty lines of most logs, and later ones take up to 256 KiB. Memory use is the lines to
// show and a buffer of 256 KiB, and a second one for a line longer than the first. Such a line is read twice, first to
// find its start, except for its longest part without blanks and other ends of level names, if the threshold is above
// info. Holes of a sparse file are skipped without reading them; such holes arise when a log is truncated while its
// daemon continues to write.
//
// Other processes: the log is read up to the size that it had when it was opened; lines written later are not shown. If
// the log is truncated meanwhile, the lines that remain are shown.
//
// A log that is not a regular file counts as one that cannot be opened; /dev/null counts as an empty log.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "command/status/StatusCodes.h"
#include "log/front/BasicLog.h"

// The name of the log in the directory of a profile.
constexpr const char* logFileName = "hip.log";

// Replaces `lines` by the last `maxLines` lines at or above `threshold`, in the order of the file. A negative
// `maxLines` means 50, one above 100000 means 100000, and 0 gives no lines.
// Statuses:
//   success
//   "success with warnings"      the file does not exist, or no file can have this path; the only line is "no logfile
//                                available for this profile"
//   "stdlib error: file open"    `lines` is empty
//   "stdlib error: file read"    `lines` is empty
Status readLogExcerpt(const std::string& path, BasicLog::Level threshold, std::int32_t maxLines,
                      std::vector<std::string>& lines);
