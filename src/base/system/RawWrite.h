// Writes to a descriptor that is already open.
#pragma once

#include <string_view>

// Writes all of `text` to `descriptor`. It continues after short writes and interruptions. Returns false, with errno
// set, if a write fails; part of the text may have been written by then.
[[nodiscard]] bool writeFully(int descriptor, std::string_view text);
