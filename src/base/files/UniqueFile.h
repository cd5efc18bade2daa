// UniqueFile: new files of names that nobody has (what holds for all of FileUtils is in FileUtils.h).
//
//   std::string path;
//   std::FILE* stream = FileUtils::makeUniqueFile("/tmp/bundle", path);     // "/tmp/bundle.x7Rk0a"
#pragma once

#include <cstdio>
#include <string>

namespace FileUtils {

// Makes a new file named `base`, "." and six letters or digits, mode 0644 less the umask, and returns a stream opened
// "w+" that the caller closes, with its name in `pathOut`. At most 11 names are tried, each failure is logged. Null,
// and `pathOut` unchanged: all failed, or the name would be longer than 4,095 bytes (nothing is logged then).
std::FILE* makeUniqueFile(const std::string& base, std::string& pathOut);

}  // namespace FileUtils
