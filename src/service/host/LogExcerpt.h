// LogExcerpt: the last lines of a daemon's log, from a level on.
//
//   std::vector<std::string> lines;
//   Status s = readLogExcerpt(path, BasicLog::Level::warning, 50, lines);
//
// The log is cut into lines, a line of more than 4095 bytes into pieces of 4095, and each piece counts as a line with a
// level of its own. Of a piece the first zero byte and all behind it goes, then every CR and LF at its end; what is
// empty then is skipped. Its level is the one that its text names (BasicLog::parseLogLevel), info when it names none.
//
// Cost: the log is read backwards from its end, and no further than the lines shown reach. Memory is that of the lines
// and some 128 KiB. Only the start of a line far longer than that is looked for before the line is looked at. Holes of
// a sparse file, as they are left where a log is cut while its daemon writes on, are passed over. Other processes: the
// log is read to the size it had when it was opened. Lines written later are not seen; of a log that is cut meanwhile
// what is left is shown. Anything but a regular file counts as one that cannot be opened.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "command/status/StatusCodes.h"
#include "log/front/BasicLog.h"

// Replaces `lines` by the last `maxLines` lines at or above `threshold`, in the order of the file. A negative number
// means 50, one above 100000 means 100000; 0 shows none.
// Statuses: success; "success with warnings" and the one line "no logfile available for this profile" when there is no
// such file; "stdlib error: file open" and "stdlib error: file read", without lines.
Status readLogExcerpt(const std::string& path, BasicLog::Level threshold, std::int32_t maxLines,
                      std::vector<std::string>& lines);
