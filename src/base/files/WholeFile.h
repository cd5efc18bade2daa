// WholeFile: reads and writes whole files and their lines. FileUtils.h has the rules that all of FileUtils share.
//
//   Status s = FileUtils::writeString(path, "lab", true);       // whole file, mode 0640
//   if (!s.isSuccess()) return s;
//   std::string name;
//   s = FileUtils::readFirstLine(path, name);                   // "lab"; a missing file gives "" and success
//
// Except where a function says otherwise, it does what the system does, with files of every kind and links of anybody:
// a directory opens and its read fails; a device is written like a file, so that a full one is "file write". But no
// function waits for the other end of a FIFO: without a reader it is "file open".
//
// Files are written in place: the new bytes are written first, then the file is cut to its new length, so that a full
// disk never empties a file. Links and the owner do not change. If writing fails, a file that did not exist before is
// removed again. Every write and close is checked; a failure is "stdlib error: file write".
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include "base/files/FileAccess.h"
#include "command/status/StatusCodes.h"

namespace FileUtils {

// The string-list type, for callers that add and remove elements at both ends.
using StringList = std::deque<std::string>;

// Reads the file into `bytes`, up to the size that it has at the start. If the file ends earlier, `bytes` holds what
// could be read. `bytes` is cleared first, and it is empty after a failure. A file of size 0, of whatever kind, counts
// as empty and is not opened.
// Statuses: "file stat" (also for a missing file); "file open"; "file read" (also if the file is larger than
// std::string::max_size()).
Status readFile(const std::string& path, std::string& bytes);

// Replaces the content of the file and sets mode 0640 whatever the umask. A failure to set the mode is ignored. A
// length of 0 makes an empty file. Statuses: "file open", "file write". The mode of a device or FIFO does not change.
Status writeFile(const std::string& path, const void* data, std::size_t length);
// Writes a text in the same way. Adds one newline at its end if `addNewline` is set.
Status writeString(const std::string& path, const std::string& text, bool addNewline);
// Writes lines in the same way. A newline follows each of them.
Status writeLines(const std::string& path, const std::vector<std::string>& lines);
Status writeLines(const std::string& path, const StringList& lines);
// Writes one line of the store in the same way, with Access::ofStore (see FileAccess.h): "file open" is also the status
// for anything but a regular file or /dev/null, and for a link that is not trusted. If writing fails, an old file gets
// its old bytes back.
Status writeStoreLine(const std::string& path, const std::string& text);

// Reads all lines, including empty ones. CR, LF and zero bytes are removed from the end of each line; zero bytes inside
// a line are kept. `lines` is cleared first, and it is empty after a failure. Lines end as in WholeLineReader.
// Statuses: "file open" (also for a missing file); "file read" (also if a line has 9,999,500 bytes or more: a caller
// that got only a part of the lines and wrote them back would cut the file).
Status readLines(const std::string& path, std::vector<std::string>& lines);
Status readLines(const std::string& path, StringList& lines);

// Reads the first line that is not blank. Bytes outside 33..126 are trimmed from both ends of each line, and a line is
// blank if nothing remains. The result is the trimmed line. `line` is cleared first, and it is empty after a failure.
// It opens files as readers of the store do (see FileAccess.h). It succeeds with an empty line in these cases:
// - every line is blank;
// - a line of 9,999,500 bytes or more comes before any shorter line that is not blank;
// - the file cannot be opened and stat reports no regular file there, because the file is missing, is of another kind,
//   or is in a directory that may not be searched.
// Blank lines take no memory, and no time for their holes. A line that is not blank holds its holes as zero bytes.
// Statuses: "file open" if stat reports a regular file that cannot be opened; "file read".
Status readFirstLine(const std::string& path, std::string& line);
// Does the same for a path relative to an open directory (see DirectoryListing.h). A null path counts as an empty one.
// Stores may have 100,000 profiles, so it is quick: a line in the first 64 KiB takes four system calls, which are open,
// fstat, read and close.
Status readFirstLineAt(int directoryFd, const char* path, std::string& line);
// Does the same for an open file, whose read position must be its start. Status: "file read".
Status readFirstLineFrom(const OpenedFile& file, std::string& line);

}  // namespace FileUtils
