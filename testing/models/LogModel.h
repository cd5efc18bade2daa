// LogModel: the level of a text and the excerpt of a log in the plainest words that say what they are; slow, and
// nothing of the program in it but the names of the levels. What the program answers is held against it.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "log/front/BasicLog.h"

namespace log_model {

// The level that a text names, info when it names none, and whether it names one.
std::pair<BasicLog::Level, bool> levelOf(const std::string& text);

// The text of a piece: without what stands from its first zero byte on and without line ends.
std::string textOf(const std::string& piece);

// The lines of a log at or above a level, line by line from its start, long lines in pieces of 4095 bytes.
std::vector<std::string> matchingLines(const std::string& log, BasicLog::Level threshold);

// What is left of a list when its first line goes as long as it has more than so many; negative means 50, and 100000 is
// the most.
std::vector<std::string> lastOf(std::vector<std::string> lines, std::int32_t maxLines);

}  // namespace log_model
