// Level: how severe a log entry is.
#pragma once

namespace BasicLog {

// In increasing severity. byDefault is no level itself: as a threshold or as an entry's level it means info.
enum class Level : int { byDefault = 0, trace, debug, info, notice, warning, error, fatal };

// One of the seven; byDefault is not.
constexpr bool isValid(Level level) { return level >= Level::trace && level <= Level::fatal; }
// The level that is meant: itself when valid, else info.
constexpr Level effective(Level level) { return isValid(level) ? level : Level::info; }

}  // namespace BasicLog
