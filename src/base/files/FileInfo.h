// FileInfo: answers questions about the file that a path leads to. FileUtils.h has the rules that all of FileUtils
// share.
//
// Links are followed, except by isRealDirectory. For an empty path, and if stat fails, the result is false, 0 or -1.
//
//   if (FileUtils::isRegularFile(path) && FileUtils::fileSize(path) > 0) ...
#pragma once

#include <cstdint>
#include <string>

namespace FileUtils {

bool fileExists(const std::string& path);
bool isRegularFile(const std::string& path);
bool isDirectory(const std::string& path);
bool isFifo(const std::string& path);
// True for a directory, false for a link to one.
bool isRealDirectory(const std::string& path);
// The size in bytes, or -1.
std::int64_t fileSize(const std::string& path);
// The modification time in microseconds since 1970, rounded down to a whole second, or 0, also if it does not fit 64
// bits.
std::int64_t fileModifiedMicros(const std::string& path);
// True if the path is a regular file whose modification time, rounded down to a whole second, is less than
// `maxAgeMicros` microseconds ago or lies in the future. So a file can count as up to one second older than it is. A
// negative `maxAgeMicros` requires a time that lies more than so many microseconds in the future.
bool isFreshRegularFile(const std::string& path, std::int64_t maxAgeMicros);
// True if the path can be opened for writing without blocking. For a FIFO that is so only while a process has it open
// for reading; a regular file that may be written gives true too.
bool fifoHasReader(const std::string& path);

}  // namespace FileUtils
