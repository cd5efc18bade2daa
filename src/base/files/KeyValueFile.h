// KeyValueFile: configuration files of "key=value" lines, with comments.
//
//   FileUtils::setKeyValue(path, "mode", "slow");              // comments, and lines without a pair, stay
//   FileUtils::getKeyValueInt(path, "retries", 3);
//
// A line holds a pair if it contains the separator and no "#" before it.
// - Blanks (bytes up to 32, and 127) around the key and around the value are removed.
// - The first "#" starts a comment, unless it is directly behind the separator. So the line "key=#x #y" has no comment
//   and the value "#x #y". That is deliberate.
// - A value in single or double quotes loses one pair of them.
// Any other line is kept as text.
//
// A value is written as given. The format has no escapes: a value that contains "#", has blanks at its ends or is in
// quotes does not read back as written.
//
// On disk: files are changed in place, as WholeFile.h describes. A new file has mode 0640.
// Other processes: each read and each write takes the FileLock of the path. It blocks for the lock without limit, and
// fails if the lock cannot be taken at all. The functions that read, change and write a file release the lock between
// the read and the write.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace FileUtils {

// Key to value, ordered by the bytes of the keys.
using KeyValueMap = std::map<std::string, std::string>;

// Splits a line into key, value and comment. `comment` is empty, or a blank followed by everything from the "#" on,
// without blanks at its end. Returns false if the line holds no pair; the outputs are then empty.
bool parseKeyValueLine(std::string_view line, char separator, std::string& key, std::string& value,
                       std::string& comment);

// Adds every pair of the file to `map`, replacing the values of keys that are in it already; other keys stay. If the
// file has several pairs with one key, the last one wins. Returns false if the lock cannot be taken or the file cannot
// be read to its end; `map` does not change then.
bool readKeyValueFile(const std::string& path, KeyValueMap& map, char separator);

// Makes the pairs of the file equal to those of `map`.
// - A pair whose key is not in `map` is removed with its line.
// - A pair with a new value keeps its line and its comment.
// - Missing pairs are appended in key order.
// - If several lines have the same key, each of them gets the value.
// - Every pair is written in normal form, without blanks around the separator and without quotes. So blanks that stood
//   inside the quotes, at the ends of a value, are lost at the next reading. An empty last line is removed. But if
//   these would be the only changes, the file is not written, and the result is true.
// Returns false, and writes nothing, in these cases: the lock cannot be taken; the file exists and cannot be read; a
// new or changed pair contains a line break or a zero byte, or its key is empty, contains the separator or "#", or has
// blanks at its ends. Returns false also if writing fails.
bool writeKeyValueFile(const std::string& path, const KeyValueMap& map, char separator);

// Sets one pair; the separator is "=". Creates a missing file. Returns true, without writing, if the key has that value
// already. Otherwise it writes the file as writeKeyValueFile does, so the other pairs get their normal form too.
// Returns false if the file exists and cannot be read, and whenever writeKeyValueFile returns false.
bool setKeyValue(const std::string& path, const std::string& key, const std::string& value);

// Reads the pairs with `separator`, sets those of `updates`, and writes them as writeKeyValueFile does with "=". If
// `separator` is not "=", every line without "=" stays as text, and the pairs are appended behind such lines. Returns
// false if the file is missing or cannot be read, and whenever writeKeyValueFile returns false.
bool setKeyValues(const std::string& path, const KeyValueMap& updates, char separator);

// The value of a key; the separator is "=". Empty if the key is missing or the file cannot be read.
std::string getKeyValue(const std::string& path, const std::string& key);

// The value of a key as a 32-bit number (see StringUtils::parseInt32); `fallback` if the key is missing or its value is
// no such number.
std::int32_t getKeyValueInt(const std::string& path, const std::string& key, std::int32_t fallback);

}  // namespace FileUtils
