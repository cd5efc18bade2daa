// FileInfo: what a path leads to (what holds for all of FileUtils is in FileUtils.h). Links are followed; an empty path
// and a failed stat are false, 0 or -1.
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
// A directory itself, not a link to one.
bool isRealDirectory(const std::string& path);
// Bytes, or -1.
std::int64_t fileSize(const std::string& path);
// Microseconds since 1970, whole seconds only, or 0.
std::int64_t fileModifiedMicros(const std::string& path);
// Whether a regular file was modified less than `maxAgeMicros` ago.
bool isFreshRegularFile(const std::string& path, std::int64_t maxAgeMicros);
// Whether the path can be opened for writing without waiting; a FIFO can only while somebody reads from it.
bool fifoHasReader(const std::string& path);

}  // namespace FileUtils
