// UniqueFile: makes new files with unused names. FileUtils.h has the rules that all of FileUtils share.
//
//   std::string path;
//   std::FILE* stream = FileUtils::makeUniqueFile("/tmp/bundle", path);     // "/tmp/bundle.x7Rk0a"
#pragma once

#include <cstdio>
#include <string>

namespace FileUtils {

// Makes a new file whose name is `base`, "." and six letters or digits, with mode 0644 less the umask. Stores its path
// in `pathOut` and returns a stream opened with "w+", which the caller must close.
// It tries at most 11 names and logs each failure. If all fail, it returns null and does not change `pathOut`. It also
// returns null, without logging, if the path would be longer than 4,095 bytes or if the system cannot make the stream.
std::FILE* makeUniqueFile(const std::string& base, std::string& pathOut);

}  // namespace FileUtils
