// Level: the severity of a log entry.
#pragma once

namespace BasicLog {

// The levels in the order of increasing severity. byDefault is not a level itself: as a threshold or as the level of an
// entry it means info.
enum class Level : int { byDefault = 0, trace, debug, info, notice, warning, error, fatal };

// Returns true for the seven levels, false for byDefault and all other values.
constexpr bool isValid(Level level) { return level >= Level::trace && level <= Level::fatal; }
// Returns the level itself if it is valid, and info if not.
constexpr Level effective(Level level) { return isValid(level) ? level : Level::info; }

}  // namespace BasicLog
