// KeyValueFile: configuration files of "key=value" lines, with comments.
//
//   FileUtils::setKeyValue(path, "mode", "slow");              // comments and other lines stay
//   FileUtils::getKeyValueInt(path, "retries", 3);
//
// A pair is a line with the separator and no "#" before it. Key and value are trimmed of blanks (bytes up to 32, and
// 127); a "#" more than one byte behind the separator starts a comment ("key=#x" has the value "#x", deliberately); a
// value in one pair of single or double quotes loses them. Any other line is text that is kept.
//
// A value is written as it is given. One with a "#", blanks at its ends or quotes around it is not read back as it was:
// the format has no escapes.
//
// On disk: files are changed in place, as FileUtils describes; a new one has mode 0640.
// Other processes: reading and writing each hold the FileLock of the path, waiting for it without limit, and fail
// without it. The functions that read, change and write let go in between.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace FileUtils {

// Keys in byte order.
using KeyValueMap = std::map<std::string, std::string>;

// Takes a line apart. False for a line without a pair; the outputs are then empty. `comment` is empty, or a blank and
// everything from the "#" on.
bool parseKeyValueLine(std::string_view line, char separator, std::string& key, std::string& value,
                       std::string& comment);

// Stores every pair of the file into `map`, over what it holds; nothing is cleared. The last of several pairs with one
// key wins. False when the lock cannot be taken or the file cannot be read to its end; `map` is then unchanged.
bool readKeyValueFile(const std::string& path, KeyValueMap& map, char separator);

// Makes the pairs of the file those of `map`. Lines of other keys go, a changed value keeps its line and comment,
// missing pairs are appended in key order. Every pair is written in normal form (no blanks at the separator, no
// quotes), yet a file that would change in nothing else is not touched. An empty last line is dropped. False, and
// nothing written: the lock cannot be taken; the file is there and cannot be read; a new or changed pair has a line
// break or a zero byte, an empty key, or a key with the separator, "#" or outer blanks. False also when writing fails.
bool writeKeyValueFile(const std::string& path, const KeyValueMap& map, char separator);

// Sets one pair, separator "="; a missing file is made. True without writing when it has that value already.
bool setKeyValue(const std::string& path, const std::string& key, const std::string& value);

// Reads the file with `separator`, sets the pairs of `updates` and writes it with "=". False when it cannot be read.
bool setKeyValues(const std::string& path, const KeyValueMap& updates, char separator);

// The value of a key, separator "="; empty when there is none or the file cannot be read.
std::string getKeyValue(const std::string& path, const std::string& key);

// The value as a whole 32-bit number (see StringUtils::parseInt32); `fallback` when there is none or it is no number.
std::int32_t getKeyValueInt(const std::string& path, const std::string& key, std::int32_t fallback);

}  // namespace FileUtils
