// WholeFile: files read and written as a whole, and their lines (what holds for all of FileUtils is in FileUtils.h).
//
//   Status s = FileUtils::writeString(path, "lab", true);       // whole file, mode 0640
//   if (!s.isSuccess()) return s;
//   std::string name;
//   s = FileUtils::readFirstLine(path, name);                   // "lab"; a missing file gives "" and success
//
// Reading follows links. What was opened is looked at: anything but a regular file counts as one that cannot be opened,
// /dev/null as an empty file, and what a link finds in /proc as one that cannot be opened either. Writing follows links
// that root or our own user made. Somebody else's counts as a file that cannot be opened.
//
// Writing whole files changes them in place: the new bytes are written first, then the file is cut to its new length,
// so that a full disk never empties a file; links and the owner stay. A file that did not exist before is removed again
// when writing it fails. Every write and close is checked; a failure is "stdlib error: file write".
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include "command/status/StatusCodes.h"

namespace FileUtils {

// The string-list type, for callers that append and take away at both ends.
using StringList = std::deque<std::string>;

// Reads the whole file, up to the size it has at the start; one that ends earlier gives what there was. `bytes` is
// cleared first. An empty file is not opened at all. Statuses: "file stat" (not there), "file open", "file read".
Status readFile(const std::string& path, std::string& bytes);

// Replaces the content of the file; mode 0640 whatever the umask (a failure to set it is no failure). No bytes make an
// empty file. Statuses: "file open" (not a regular file, too), "file write".
Status writeFile(const std::string& path, const void* data, std::size_t length);
// The same with a text, and one newline behind it when `addNewline` is set.
Status writeString(const std::string& path, const std::string& text, bool addNewline);
// The same with each text followed by a newline.
Status writeLines(const std::string& path, const std::vector<std::string>& lines);
Status writeLines(const std::string& path, const StringList& lines);

// Reads all lines, without the CR, LF and NUL bytes at their ends; empty lines included. `lines` is cleared first, and
// on failure too. Zero bytes inside a line are kept. Statuses: "file open" (not there, too), "file read" (also for a
// line of 9,999,500 bytes and more, so that rewriting what was read never cuts a file).
Status readLines(const std::string& path, std::vector<std::string>& lines);
Status readLines(const std::string& path, StringList& lines);

// The first line that is not empty after trimming everything outside 33..126 at both ends, trimmed. `line` is cleared
// first; a file without such a line, or with an over-long one before it, is success with an empty line.
// A file that cannot be opened: success with an empty line, unless it is an existing regular file: "file open".
// Statuses: "file open", "file read".
Status readFirstLine(const std::string& path, std::string& line);
// The same for a path relative to an open directory (see DirectoryListing.h); built for stores of 100,000 profiles: a
// line that lies in the first 4 KiB costs open, fstat, read and close, and no allocation besides the result.
Status readFirstLineAt(int directoryFd, const char* path, std::string& line);

}  // namespace FileUtils
