// LogModel: a simple and slow second implementation of level parsing and log excerpts. Tests compare the results of the
// program with it. It uses nothing of the program except the names of the levels.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "log/front/BasicLog.h"

namespace log_model {

// Returns the level that the text names and true, or info and false if it names none.
std::pair<BasicLog::Level, bool> levelOf(const std::string& text);

// Returns the text of a piece of a log: it ends before the first zero byte, and line ends are removed.
std::string textOf(const std::string& piece);

// Returns the lines of a log that are at or above a level, in the order of the log. Each piece of 4095 bytes of a long
// line counts as a line.
std::vector<std::string> matchingLines(const std::string& log, BasicLog::Level threshold);

// Returns the last `maxLines` lines. A negative number means 50, and a number above 100000 means 100000.
std::vector<std::string> lastOf(std::vector<std::string> lines, std::int32_t maxLines);

}  // namespace log_model
